// DtNlBase64DecoderTest.cpp - the strict Base64 decoder: groups, padding
// decoded as zero, every refusal with its ERR lines, partial output on failure,
// and random bytes through a reference encoder and back.
#include "util/DtNlBase64Decoder.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "support/LogExpect.h"

namespace {

const char kSource[] = "jni/util/DtNlBase64Decoder.cpp";
const int kLineSrcSize = 22;
const int kLineCapacity = 34;
const int kLineConvertFailed = 41;
const int kLineSearchFailed = 55;
const int kLineBadCharacter = 77;

std::vector<UINT8> Text(const std::string& s) { return std::vector<UINT8>(s.begin(), s.end()); }

std::string BadCharacterLines(UINT8 c) {
  char hex[8];
  std::snprintf(hex, sizeof(hex), "%2.2X", static_cast<unsigned int>(c));
  return kpztest::ErrLine(kSource, "searchTable", kLineBadCharacter,
                          std::string("[DtNlBase64Decoder::searchTable] base64 = ") + hex + ".") +
         kpztest::ErrLine(kSource, "convert6x4To8x3", kLineSearchFailed,
                          "[DtNlBase64Decoder::convert6x4To8x3] searchTable() failed.") +
         kpztest::ErrLine(kSource, "Decode", kLineConvertFailed,
                          "[DtNpTovarelBase64Decoder::Decode] convert6x4To8x3() failed.");
}

// Reference encoder: standard alphabet, "=" padding.
std::string Encode(const std::vector<UINT8>& data) {
  static const char kAlphabet[] =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  std::size_t i = 0;
  for (; i + 3 <= data.size(); i += 3) {
    const unsigned v = (static_cast<unsigned>(data[i]) << 16) |
                       (static_cast<unsigned>(data[i + 1]) << 8) | data[i + 2];
    out += kAlphabet[(v >> 18) & 63];
    out += kAlphabet[(v >> 12) & 63];
    out += kAlphabet[(v >> 6) & 63];
    out += kAlphabet[v & 63];
  }
  const std::size_t rest = data.size() - i;
  if (rest == 1) {
    const unsigned v = static_cast<unsigned>(data[i]) << 16;
    out += kAlphabet[(v >> 18) & 63];
    out += kAlphabet[(v >> 12) & 63];
    out += "==";
  } else if (rest == 2) {
    const unsigned v = (static_cast<unsigned>(data[i]) << 16) |
                       (static_cast<unsigned>(data[i + 1]) << 8);
    out += kAlphabet[(v >> 18) & 63];
    out += kAlphabet[(v >> 12) & 63];
    out += kAlphabet[(v >> 6) & 63];
    out += '=';
  }
  return out;
}

TEST(DtNlBase64Decoder, EmptyTextSucceedsWithoutTouchingEitherBuffer) {
  int size = 7;
  std::string err = kpztest::CaptureStderr(
      [&] { EXPECT_EQ(DtNlBase64Decoder::Decode(nullptr, &size, nullptr, 0), 0); });
  EXPECT_EQ(size, 0);
  EXPECT_EQ(err, "");
}

TEST(DtNlBase64Decoder, FourCharactersDecodeToThreeBytes) {
  std::vector<UINT8> text = Text("TWFu");
  UINT8 out[3] = {0, 0, 0};
  int size = 3;
  EXPECT_EQ(DtNlBase64Decoder::Decode(out, &size, text.data(), 4), 0);
  EXPECT_EQ(size, 3);
  EXPECT_EQ(std::string(out, out + 3), "Man");
}

TEST(DtNlBase64Decoder, CapacityTwoIsRefusedBeforeWritingAnything) {
  std::vector<UINT8> text = Text("TWFu");
  UINT8 out[3] = {0xAA, 0xAA, 0xAA};
  int size = 2;
  std::string err = kpztest::CaptureStderr(
      [&] { EXPECT_EQ(DtNlBase64Decoder::Decode(out, &size, text.data(), 4), -1); });
  EXPECT_EQ(err, kpztest::ErrLine(kSource, "Decode", kLineCapacity,
                                  "[DtNlBase64Decoder::Decode] pDstSize = 2, srcSize = 4."));
  EXPECT_EQ(size, 2);
  EXPECT_EQ(out[0], 0xAA);
  EXPECT_EQ(out[1], 0xAA);
  EXPECT_EQ(out[2], 0xAA);
}

TEST(DtNlBase64Decoder, PaddingIsDecodedAsZeroAndNotSubtracted) {
  std::vector<UINT8> text = Text("TWE=");
  UINT8 out[3] = {0xAA, 0xAA, 0xAA};
  int size = 3;
  EXPECT_EQ(DtNlBase64Decoder::Decode(out, &size, text.data(), 4), 0);
  EXPECT_EQ(size, 3);
  EXPECT_EQ(out[0], 0x4D);
  EXPECT_EQ(out[1], 0x61);
  EXPECT_EQ(out[2], 0x00);

  std::vector<UINT8> two = Text("QQ==");
  size = 3;
  EXPECT_EQ(DtNlBase64Decoder::Decode(out, &size, two.data(), 4), 0);
  EXPECT_EQ(size, 3);
  EXPECT_EQ(out[0], 0x41);
  EXPECT_EQ(out[1], 0x00);
  EXPECT_EQ(out[2], 0x00);
}

TEST(DtNlBase64Decoder, PadInTheMiddleCountsAsZero) {
  std::vector<UINT8> text = Text("T=Fu");
  UINT8 out[3] = {0, 0, 0};
  int size = 3;
  EXPECT_EQ(DtNlBase64Decoder::Decode(out, &size, text.data(), 4), 0);
  // T=19, '='=0, F=5, u=46.
  EXPECT_EQ(out[0], 0x4C);
  EXPECT_EQ(out[1], 0x01);
  EXPECT_EQ(out[2], 0x6E);
}

TEST(DtNlBase64Decoder, LengthNotAMultipleOfFourFailsAtOnce) {
  std::vector<UINT8> text = Text("TWFu\n");
  UINT8 out[6] = {0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA};
  int size = 6;
  std::string err = kpztest::CaptureStderr(
      [&] { EXPECT_EQ(DtNlBase64Decoder::Decode(out, &size, text.data(), 5), -1); });
  EXPECT_EQ(err, kpztest::ErrLine(kSource, "Decode", kLineSrcSize,
                                  "[DtNlBase64Decoder::Decode] srcSize = 5."));
  EXPECT_EQ(size, 6);
  EXPECT_EQ(out[0], 0xAA);
}

TEST(DtNlBase64Decoder, NegativeSizeNotAMultipleOfFourFails) {
  int size = 6;
  UINT8 out[6] = {};
  std::string err = kpztest::CaptureStderr(
      [&] { EXPECT_EQ(DtNlBase64Decoder::Decode(out, &size, out, -5), -1); });
  EXPECT_EQ(err, kpztest::ErrLine(kSource, "Decode", kLineSrcSize,
                                  "[DtNlBase64Decoder::Decode] srcSize = -5."));
  EXPECT_EQ(size, 6);
}

TEST(DtNlBase64Decoder, NegativeMultipleOfFourDecodesToNothing) {
  int size = 6;
  UINT8 out[6] = {};
  std::string err = kpztest::CaptureStderr(
      [&] { EXPECT_EQ(DtNlBase64Decoder::Decode(out, &size, out, -8), 0); });
  EXPECT_EQ(size, 0);
  EXPECT_EQ(err, "");
}

TEST(DtNlBase64Decoder, InvalidCharacterLogsThreeLinesInOrder) {
  std::vector<UINT8> text = Text("TW-u");
  UINT8 out[3] = {0xAA, 0xAA, 0xAA};
  int size = 3;
  std::string err = kpztest::CaptureStderr(
      [&] { EXPECT_EQ(DtNlBase64Decoder::Decode(out, &size, text.data(), 4), -1); });
  EXPECT_EQ(err, BadCharacterLines('-'));
  EXPECT_EQ(size, 3);
  EXPECT_EQ(out[0], 0xAA);
  EXPECT_EQ(out[2], 0xAA);
}

TEST(DtNlBase64Decoder, OnlyTheFirstBadCharacterOfAGroupIsReported) {
  std::vector<UINT8> text = Text("T\r\nu");
  UINT8 out[3];
  int size = 3;
  std::string err = kpztest::CaptureStderr(
      [&] { EXPECT_EQ(DtNlBase64Decoder::Decode(out, &size, text.data(), 4), -1); });
  EXPECT_EQ(err, BadCharacterLines('\r'));
}

TEST(DtNlBase64Decoder, HighByteCharacterIsReportedInUpperCaseHex) {
  std::vector<UINT8> text = Text("TWF");
  text.push_back(0xE9);
  UINT8 out[3];
  int size = 3;
  std::string err = kpztest::CaptureStderr(
      [&] { EXPECT_EQ(DtNlBase64Decoder::Decode(out, &size, text.data(), 4), -1); });
  EXPECT_EQ(err, BadCharacterLines(0xE9));
}

TEST(DtNlBase64Decoder, SecondGroupThatDoesNotFitIsRefusedAfterTheFirstIsWritten) {
  std::vector<UINT8> text = Text("TWFuTWFu");
  UINT8 out[6] = {0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA};
  int size = 5;
  std::string err = kpztest::CaptureStderr(
      [&] { EXPECT_EQ(DtNlBase64Decoder::Decode(out, &size, text.data(), 8), -1); });
  EXPECT_EQ(err, kpztest::ErrLine(kSource, "Decode", kLineCapacity,
                                  "[DtNlBase64Decoder::Decode] pDstSize = 5, srcSize = 8."));
  EXPECT_EQ(size, 5);
  EXPECT_EQ(std::string(out, out + 3), "Man");
  EXPECT_EQ(out[3], 0xAA);
  EXPECT_EQ(out[4], 0xAA);
}

TEST(DtNlBase64Decoder, BadCharacterInALaterGroupKeepsTheEarlierGroups) {
  std::vector<UINT8> text = Text("TWFuT*Fu");
  UINT8 out[6] = {0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA};
  int size = 6;
  std::string err = kpztest::CaptureStderr(
      [&] { EXPECT_EQ(DtNlBase64Decoder::Decode(out, &size, text.data(), 8), -1); });
  EXPECT_EQ(err, BadCharacterLines('*'));
  EXPECT_EQ(size, 6);
  EXPECT_EQ(std::string(out, out + 3), "Man");
  EXPECT_EQ(out[3], 0xAA);
}

TEST(DtNlBase64Decoder, NullPointersAreRefusedWithoutAccess) {
  std::vector<UINT8> text = Text("TWFu");
  UINT8 out[3];
  int size = 3;
  std::string err = kpztest::CaptureStderr([&] {
    EXPECT_EQ(DtNlBase64Decoder::Decode(out, nullptr, text.data(), 4), -1);
    EXPECT_EQ(DtNlBase64Decoder::Decode(nullptr, &size, text.data(), 4), -1);
    EXPECT_EQ(DtNlBase64Decoder::Decode(out, &size, nullptr, 4), -1);
  });
  EXPECT_EQ(err, "");
  EXPECT_EQ(size, 3);
}

TEST(DtNlBase64Decoder, EveryAlphabetCharacterHasItsValue) {
  const std::string alphabet =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  for (int v = 0; v < 64; ++v) {
    // "AAA" followed by the character puts its value in the low six bits.
    std::vector<UINT8> text = Text(std::string("AAA") + alphabet[static_cast<std::size_t>(v)]);
    UINT8 out[3] = {0xFF, 0xFF, 0xFF};
    int size = 3;
    ASSERT_EQ(DtNlBase64Decoder::Decode(out, &size, text.data(), 4), 0);
    EXPECT_EQ(out[0], 0);
    EXPECT_EQ(out[1], 0);
    EXPECT_EQ(out[2], v);
  }
}

// Random byte strings through the reference encoder and back: the output is
// always 3 bytes per group, the input followed by zeros for the padding.
TEST(DtNlBase64Decoder, RandomBytesSurviveEncodingAndDecoding) {
  std::mt19937 rng(31337u);
  std::string err = kpztest::CaptureStderr([&] {
    for (int round = 0; round < 10000; ++round) {
      const std::size_t length = std::uniform_int_distribution<std::size_t>(0, 48)(rng);
      std::vector<UINT8> data(length);
      for (UINT8& byte : data) byte = static_cast<UINT8>(rng());
      const std::vector<UINT8> text = Text(Encode(data));
      const int groups = static_cast<int>(text.size() / 4);
      std::vector<UINT8> out(static_cast<std::size_t>(3 * groups) + 1, 0xCC);
      int size = 3 * groups;
      ASSERT_EQ(DtNlBase64Decoder::Decode(out.data(), &size, text.data(),
                                          static_cast<int>(text.size())),
                0)
          << "round " << round;
      ASSERT_EQ(size, 3 * groups);
      std::vector<UINT8> expected = data;
      expected.resize(static_cast<std::size_t>(3 * groups), 0);
      expected.push_back(0xCC);  // nothing written beyond the groups
      ASSERT_EQ(out, expected) << "round " << round;
    }
  });
  EXPECT_EQ(err, "");
}

}  // namespace
