// DtNlUtilTest.cpp - the bit-field reader and writer: chained fields across
// byte boundaries, refused arguments with their INFO lines, every assertion,
// and random fields written and read back against a bit-vector model.
#include "util/DtNlUtil.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "support/LogExpect.h"

namespace {

const char kSource[] = "jni/util/DtNlUtil.cpp";
const int kLineRead1BitNullData = 11;
const int kLineRead1BitLength = 12;
const int kLineRead1BitOffset = 13;
const int kLineReadRefused = 32;
const int kLineRead16Width = 64;
const int kLineRead8Width = 85;
const int kLineReadBitsStatus = 106;
const int kLineWrite1BitNullData = 112;
const int kLineWrite1BitLength = 113;
const int kLineWrite1BitOffset = 114;
const int kLineWriteRefused = 139;

std::string RefusalMessage(const char* function, const void* data, int length, unsigned offset,
                           unsigned width) {
  char text[256];
  std::snprintf(text, sizeof(text), "%s(): pData=0x%p, dataLen=%d, offsetBit=%u, requestBit=%u",
                function, data, length, offset, width);
  return text;
}

TEST(DtNlUtil, FourBitsThenEightBitsChainAcrossTheByteBoundary) {
  const UINT8 data[] = {0xB4, 0x0F};
  const UINT8* next = nullptr;
  UINT8 offset = 0xFF;
  UINT32 value = 0;
  ASSERT_TRUE(DtNlUtil::ReadBitsToUint32(data, 2, 0, 4, &value, &next, &offset).IsSuccess());
  EXPECT_EQ(value, 0xBu);
  EXPECT_EQ(next, data);
  EXPECT_EQ(offset, 4);
  ASSERT_TRUE(DtNlUtil::ReadBitsToUint32(next, 2, offset, 8, &value, &next, &offset).IsSuccess());
  EXPECT_EQ(value, 0x40u);
  EXPECT_EQ(next, data + 1);
  EXPECT_EQ(offset, 4);
}

TEST(DtNlUtil, TwelveBitsFromOffsetSixSpanThreeBytes) {
  const UINT8 data[] = {0x03, 0xFF, 0xC0};
  const UINT8* next = nullptr;
  UINT8 offset = 0;
  UINT32 value = 0;
  ASSERT_TRUE(DtNlUtil::ReadBitsToUint32(data, 3, 6, 12, &value, &next, &offset).IsSuccess());
  EXPECT_EQ(value, 0xFFFu);
  EXPECT_EQ(next, data + 2);
  EXPECT_EQ(offset, 2);
}

TEST(DtNlUtil, ThirtyTwoBitsReadAWholeWordMostSignificantFirst) {
  const UINT8 data[] = {0x12, 0x34, 0x56, 0x78, 0x9A};
  UINT32 value = 0;
  const UINT8* next = nullptr;
  UINT8 offset = 0;
  ASSERT_TRUE(DtNlUtil::ReadBitsToUint32(data, 5, 4, 32, &value, &next, &offset).IsSuccess());
  EXPECT_EQ(value, 0x23456789u);
  EXPECT_EQ(next, data + 4);
  EXPECT_EQ(offset, 4);
}

TEST(DtNlUtil, ZeroBitsReadZeroAndKeepThePosition) {
  const UINT8 data[] = {0xFF};
  UINT32 value = 0xDEADBEEF;
  const UINT8* next = nullptr;
  UINT8 offset = 0;
  ASSERT_TRUE(DtNlUtil::ReadBitsToUint32(data, 1, 5, 0, &value, &next, &offset).IsSuccess());
  EXPECT_EQ(value, 0u);
  EXPECT_EQ(next, data);
  EXPECT_EQ(offset, 5);
}

TEST(DtNlUtil, OutputPointersAreOptional) {
  const UINT8 data[] = {0x80};
  EXPECT_TRUE(DtNlUtil::ReadBitsToUint32(data, 1, 0, 1, nullptr, nullptr, nullptr).IsSuccess());
  UINT8 byte = 0;
  EXPECT_TRUE(DtNlUtil::WriteBitsFromUint32(1, 1, &byte, 1, 0, nullptr, nullptr).IsSuccess());
  EXPECT_EQ(byte, 0x80);
  EXPECT_EQ(DtNlUtil::Read1Bit(data, 1, 0, nullptr, nullptr), 1);
}

TEST(DtNlUtil, RequestOf33BitsIsRefusedWithOneInfoLine) {
  const UINT8 data[] = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
  UINT32 value = 77;
  const UINT8* next = data + 3;
  UINT8 offset = 6;
  DtNlStatus st;
  std::string err = kpztest::CaptureStderr(
      [&] { st = DtNlUtil::ReadBitsToUint32(data, 5, 0, 33, &value, &next, &offset); });
  EXPECT_EQ(err, kpztest::InfoLine(kSource, "ReadBitsToUint32", kLineReadRefused,
                                   RefusalMessage("ReadBitsToUint32", data, 5, 0, 33)));
  EXPECT_EQ(st.errCode, DtNlErrInvalidParam);
  EXPECT_EQ(st.errCode, -8999);
  EXPECT_EQ(st.sysErrNo, 0);
  EXPECT_EQ(value, 77u);
  EXPECT_EQ(next, data + 3);
  EXPECT_EQ(offset, 6);
}

TEST(DtNlUtil, OffsetEightIsRefusedWithOneInfoLine) {
  const UINT8 data[] = {0xFF};
  UINT32 value = 77;
  DtNlStatus st;
  std::string err = kpztest::CaptureStderr(
      [&] { st = DtNlUtil::ReadBitsToUint32(data, 1, 8, 1, &value, nullptr, nullptr); });
  EXPECT_EQ(err, kpztest::InfoLine(kSource, "ReadBitsToUint32", kLineReadRefused,
                                   RefusalMessage("ReadBitsToUint32", data, 1, 8, 1)));
  EXPECT_EQ(st.errCode, DtNlErrInvalidParam);
  EXPECT_EQ(value, 77u);
}

TEST(DtNlUtil, NullDataAndNonPositiveLengthAreRefused) {
  const UINT8 data[] = {0xFF};
  UINT32 value = 77;
  DtNlStatus nullData, zeroLength, negativeLength;
  std::string err = kpztest::CaptureStderr([&] {
    nullData = DtNlUtil::ReadBitsToUint32(nullptr, 1, 0, 1, &value, nullptr, nullptr);
    zeroLength = DtNlUtil::ReadBitsToUint32(data, 0, 0, 1, &value, nullptr, nullptr);
    negativeLength = DtNlUtil::ReadBitsToUint32(data, -3, 0, 1, &value, nullptr, nullptr);
  });
  EXPECT_EQ(err, kpztest::InfoLine(kSource, "ReadBitsToUint32", kLineReadRefused,
                                   RefusalMessage("ReadBitsToUint32", nullptr, 1, 0, 1)) +
                     kpztest::InfoLine(kSource, "ReadBitsToUint32", kLineReadRefused,
                                       RefusalMessage("ReadBitsToUint32", data, 0, 0, 1)) +
                     kpztest::InfoLine(kSource, "ReadBitsToUint32", kLineReadRefused,
                                       RefusalMessage("ReadBitsToUint32", data, -3, 0, 1)));
  EXPECT_EQ(nullData.errCode, DtNlErrInvalidParam);
  EXPECT_EQ(zeroLength.errCode, DtNlErrInvalidParam);
  EXPECT_EQ(negativeLength.errCode, DtNlErrInvalidParam);
  EXPECT_EQ(value, 77u);
}

TEST(DtNlUtil, Uint8ReaderRefusesNineBits) {
  const UINT8 data[] = {0xFF, 0xFF};
  UINT8 value = 77;
  const UINT8* next = data;
  UINT8 offset = 3;
  DtNlStatus st;
  std::string err = kpztest::CaptureStderr(
      [&] { st = DtNlUtil::ReadBitsToUint8(data, 2, 0, 9, &value, &next, &offset); });
  EXPECT_EQ(err, kpztest::InfoLine(kSource, "ReadBitsToUint8", kLineRead8Width,
                                   "ReadBitsToUint8(): requestBit=9"));
  EXPECT_EQ(st.errCode, DtNlErrInvalidParam);
  EXPECT_EQ(st.sysErrNo, 0);
  EXPECT_EQ(value, 77);
  EXPECT_EQ(next, data);
  EXPECT_EQ(offset, 3);
}

TEST(DtNlUtil, Uint16ReaderRefusesSeventeenBits) {
  const UINT8 data[] = {0xFF, 0xFF, 0xFF};
  UINT16 value = 77;
  DtNlStatus st;
  std::string err = kpztest::CaptureStderr(
      [&] { st = DtNlUtil::ReadBitsToUint16(data, 3, 0, 17, &value, nullptr, nullptr); });
  EXPECT_EQ(err, kpztest::InfoLine(kSource, "ReadBitsToUint16", kLineRead16Width,
                                   "ReadBitsToUint16(): requestBit=17"));
  EXPECT_EQ(st.errCode, DtNlErrInvalidParam);
  EXPECT_EQ(value, 77);
}

TEST(DtNlUtil, NarrowReadersPassAWideReaderRefusalThroughAndKeepTheValue) {
  const UINT8 data[] = {0xFF, 0xFF};
  UINT16 wide = 77;
  UINT8 narrow = 78;
  DtNlStatus st16, st8;
  std::string err = kpztest::CaptureStderr([&] {
    st16 = DtNlUtil::ReadBitsToUint16(data, 2, 9, 4, &wide, nullptr, nullptr);
    st8 = DtNlUtil::ReadBitsToUint8(nullptr, 2, 0, 4, &narrow, nullptr, nullptr);
  });
  EXPECT_EQ(err, kpztest::InfoLine(kSource, "ReadBitsToUint32", kLineReadRefused,
                                   RefusalMessage("ReadBitsToUint32", data, 2, 9, 4)) +
                     kpztest::InfoLine(kSource, "ReadBitsToUint32", kLineReadRefused,
                                       RefusalMessage("ReadBitsToUint32", nullptr, 2, 0, 4)));
  EXPECT_EQ(st16.errCode, DtNlErrInvalidParam);
  EXPECT_EQ(st8.errCode, DtNlErrInvalidParam);
  EXPECT_EQ(wide, 77);
  EXPECT_EQ(narrow, 78);
}

TEST(DtNlUtil, NarrowReadersDeliverTheFieldAndThePosition) {
  const UINT8 data[] = {0x5A, 0xC3, 0x81};
  UINT16 wide = 0;
  UINT8 narrow = 0;
  const UINT8* next = nullptr;
  UINT8 offset = 0;
  ASSERT_TRUE(DtNlUtil::ReadBitsToUint16(data, 3, 4, 16, &wide, &next, &offset).IsSuccess());
  EXPECT_EQ(wide, 0xAC38);
  EXPECT_EQ(next, data + 2);
  EXPECT_EQ(offset, 4);
  ASSERT_TRUE(DtNlUtil::ReadBitsToUint8(data, 3, 1, 8, &narrow, &next, &offset).IsSuccess());
  EXPECT_EQ(narrow, 0xB5);
  EXPECT_EQ(next, data + 1);
  EXPECT_EQ(offset, 1);
}

TEST(DtNlUtil, ReadBitsReturnsTheValue) {
  const UINT8 data[] = {0xB4, 0x0F};
  const UINT8* next = nullptr;
  UINT8 offset = 0;
  EXPECT_EQ(DtNlUtil::ReadBits(data, 2, 4, 8, &next, &offset), 0x40u);
  EXPECT_EQ(next, data + 1);
  EXPECT_EQ(offset, 4);
}

TEST(DtNlUtil, Read1BitAtOffsetSevenMovesToTheNextByte) {
  const UINT8 data[] = {0x01, 0x00};
  const UINT8* next = nullptr;
  UINT8 offset = 0xFF;
  EXPECT_EQ(DtNlUtil::Read1Bit(data, 2, 7, &next, &offset), 1);
  EXPECT_EQ(next, data + 1);
  EXPECT_EQ(offset, 0);
  EXPECT_EQ(DtNlUtil::Read1Bit(data, 2, 6, &next, &offset), 0);
  EXPECT_EQ(next, data);
  EXPECT_EQ(offset, 7);
}

TEST(DtNlUtil, WriteOfThreeBitsAtOffsetTwoLeavesTheOtherBits) {
  UINT8 byte = 0x00;
  UINT8* next = nullptr;
  UINT8 offset = 0;
  ASSERT_TRUE(DtNlUtil::WriteBitsFromUint32(5, 3, &byte, 1, 2, &next, &offset).IsSuccess());
  EXPECT_EQ(byte, 0x28);
  EXPECT_EQ(next, &byte);
  EXPECT_EQ(offset, 5);
  UINT8 ones = 0xFF;
  ASSERT_TRUE(DtNlUtil::WriteBitsFromUint32(5, 3, &ones, 1, 2, nullptr, nullptr).IsSuccess());
  EXPECT_EQ(ones, 0xEF);
}

TEST(DtNlUtil, WriteIgnoresTheBitsAboveTheWidth) {
  UINT8 data[2] = {0, 0};
  ASSERT_TRUE(DtNlUtil::WriteBitsFromUint32(0xFFFFFF0Au, 4, data, 2, 6, nullptr, nullptr)
                  .IsSuccess());
  EXPECT_EQ(data[0], 0x02);
  EXPECT_EQ(data[1], 0x80);
}

TEST(DtNlUtil, WriteOfZeroBitsIsRefused) {
  UINT8 byte = 0x11;
  UINT8* next = &byte;
  UINT8 offset = 4;
  DtNlStatus st;
  std::string err = kpztest::CaptureStderr(
      [&] { st = DtNlUtil::WriteBitsFromUint32(5, 0, &byte, 1, 2, &next, &offset); });
  EXPECT_EQ(err, kpztest::InfoLine(kSource, "WriteBitsFromUint32", kLineWriteRefused,
                                   RefusalMessage("WriteBitsFromUint32", &byte, 1, 2, 0)));
  EXPECT_EQ(st.errCode, DtNlErrInvalidParam);
  EXPECT_EQ(st.sysErrNo, 0);
  EXPECT_EQ(byte, 0x11);
  EXPECT_EQ(offset, 4);
}

TEST(DtNlUtil, WriteRefusesEveryOtherBadArgument) {
  UINT8 byte = 0x11;
  DtNlStatus wide, offsetEight, nullData, zeroLength;
  std::string err = kpztest::CaptureStderr([&] {
    wide = DtNlUtil::WriteBitsFromUint32(5, 33, &byte, 8, 0, nullptr, nullptr);
    offsetEight = DtNlUtil::WriteBitsFromUint32(5, 3, &byte, 1, 8, nullptr, nullptr);
    nullData = DtNlUtil::WriteBitsFromUint32(5, 3, nullptr, 1, 0, nullptr, nullptr);
    zeroLength = DtNlUtil::WriteBitsFromUint32(5, 3, &byte, 0, 0, nullptr, nullptr);
  });
  EXPECT_EQ(err,
            kpztest::InfoLine(kSource, "WriteBitsFromUint32", kLineWriteRefused,
                              RefusalMessage("WriteBitsFromUint32", &byte, 8, 0, 33)) +
                kpztest::InfoLine(kSource, "WriteBitsFromUint32", kLineWriteRefused,
                                  RefusalMessage("WriteBitsFromUint32", &byte, 1, 8, 3)) +
                kpztest::InfoLine(kSource, "WriteBitsFromUint32", kLineWriteRefused,
                                  RefusalMessage("WriteBitsFromUint32", nullptr, 1, 0, 3)) +
                kpztest::InfoLine(kSource, "WriteBitsFromUint32", kLineWriteRefused,
                                  RefusalMessage("WriteBitsFromUint32", &byte, 0, 0, 3)));
  EXPECT_EQ(wide.errCode, DtNlErrInvalidParam);
  EXPECT_EQ(offsetEight.errCode, DtNlErrInvalidParam);
  EXPECT_EQ(nullData.errCode, DtNlErrInvalidParam);
  EXPECT_EQ(zeroLength.errCode, DtNlErrInvalidParam);
  EXPECT_EQ(byte, 0x11);
}

TEST(DtNlUtil, Write1BitSetsAndClearsOneBitAndAdvances) {
  UINT8 data[2] = {0x00, 0xFF};
  UINT8* next = nullptr;
  UINT8 offset = 0;
  DtNlUtil::Write1Bit(7, data, 2, 7, &next, &offset);  // any non-zero sets
  EXPECT_EQ(data[0], 0x01);
  EXPECT_EQ(next, data + 1);
  EXPECT_EQ(offset, 0);
  DtNlUtil::Write1Bit(0, next, 1, offset, &next, &offset);
  EXPECT_EQ(data[1], 0x7F);
  EXPECT_EQ(next, data + 1);
  EXPECT_EQ(offset, 1);
}

TEST(DtNlUtilDeathTest, Read1BitWithNullDataEndsTheProcess) {
  EXPECT_EXIT(DtNlUtil::Read1Bit(nullptr, 1, 0, nullptr, nullptr), testing::ExitedWithCode(255),
              testing::Eq(kpztest::AssertText(kSource, "Read1Bit", kLineRead1BitNullData, "")));
}

TEST(DtNlUtilDeathTest, Read1BitWithZeroLengthEndsTheProcess) {
  const UINT8 data[] = {0};
  EXPECT_EXIT(DtNlUtil::Read1Bit(data, 0, 0, nullptr, nullptr), testing::ExitedWithCode(255),
              testing::Eq(kpztest::AssertText(kSource, "Read1Bit", kLineRead1BitLength, "")));
}

TEST(DtNlUtilDeathTest, Read1BitAtOffsetEightEndsTheProcessNamingTheOffset) {
  const UINT8 data[] = {0};
  EXPECT_EXIT(DtNlUtil::Read1Bit(data, 1, 8, nullptr, nullptr), testing::ExitedWithCode(255),
              testing::Eq(kpztest::AssertText(kSource, "Read1Bit", kLineRead1BitOffset,
                                              "offsetBit is 8")));
}

TEST(DtNlUtilDeathTest, Write1BitWithNullDataEndsTheProcess) {
  EXPECT_EXIT(DtNlUtil::Write1Bit(1, nullptr, 1, 0, nullptr, nullptr),
              testing::ExitedWithCode(255),
              testing::Eq(kpztest::AssertText(kSource, "Write1Bit", kLineWrite1BitNullData, "")));
}

TEST(DtNlUtilDeathTest, Write1BitWithZeroLengthEndsTheProcess) {
  UINT8 data[] = {0};
  EXPECT_EXIT(DtNlUtil::Write1Bit(1, data, 0, 0, nullptr, nullptr),
              testing::ExitedWithCode(255),
              testing::Eq(kpztest::AssertText(kSource, "Write1Bit", kLineWrite1BitLength, "")));
}

TEST(DtNlUtilDeathTest, Write1BitAtOffsetNineEndsTheProcessNamingTheOffset) {
  UINT8 data[] = {0};
  EXPECT_EXIT(DtNlUtil::Write1Bit(1, data, 1, 9, nullptr, nullptr),
              testing::ExitedWithCode(255),
              testing::Eq(kpztest::AssertText(kSource, "Write1Bit", kLineWrite1BitOffset,
                                              "offsetBit is 9")));
}

TEST(DtNlUtilDeathTest, ReadBitsWithABadArgumentLogsThenEndsTheProcess) {
  const UINT8 data[] = {0, 0, 0, 0, 0};
  EXPECT_EXIT(DtNlUtil::ReadBits(data, 5, 0, 33, nullptr, nullptr), testing::ExitedWithCode(255),
              testing::Eq(kpztest::InfoLine(kSource, "ReadBitsToUint32", kLineReadRefused,
                                            RefusalMessage("ReadBitsToUint32", data, 5, 0, 33)) +
                          kpztest::AssertText(kSource, "ReadBits", kLineReadBitsStatus, "")));
}

// Random fields of 0..32 bits at random positions, written into a random
// buffer and read back, against a bit-vector model of the whole buffer.
TEST(DtNlUtil, RandomFieldsWriteAndReadBackPreservingTheNeighbours) {
  std::mt19937 rng(2718u);
  const int kBytes = 12;
  std::vector<UINT8> buffer(kBytes);
  for (UINT8& byte : buffer) byte = static_cast<UINT8>(rng());
  std::vector<int> model(kBytes * 8);
  for (int i = 0; i < kBytes * 8; ++i) {
    model[static_cast<std::size_t>(i)] =
        (buffer[static_cast<std::size_t>(i / 8)] >> (7 - i % 8)) & 1;
  }

  for (int round = 0; round < 10000; ++round) {
    const int width = std::uniform_int_distribution<int>(0, 32)(rng);
    // Even an empty field starts inside the array.
    const int first =
        std::uniform_int_distribution<int>(0, kBytes * 8 - (width == 0 ? 1 : width))(rng);
    const UINT32 value = static_cast<UINT32>(rng());
    UINT8* start = buffer.data() + first / 8;
    const UINT8 offset = static_cast<UINT8>(first % 8);
    const int length = kBytes - first / 8;
    const int after = first + width;

    if (width > 0) {
      UINT8* next = nullptr;
      UINT8 nextOffset = 0xFF;
      ASSERT_TRUE(DtNlUtil::WriteBitsFromUint32(value, static_cast<UINT8>(width), start, length,
                                                offset, &next, &nextOffset)
                      .IsSuccess());
      ASSERT_EQ(next, buffer.data() + after / 8);
      ASSERT_EQ(nextOffset, after % 8);
      for (int i = 0; i < width; ++i) {
        model[static_cast<std::size_t>(first + i)] =
            static_cast<int>((value >> (width - 1 - i)) & 1u);
      }
    }
    for (int i = 0; i < kBytes * 8; ++i) {
      ASSERT_EQ((buffer[static_cast<std::size_t>(i / 8)] >> (7 - i % 8)) & 1,
                model[static_cast<std::size_t>(i)])
          << "round " << round << " bit " << i;
    }

    const UINT32 mask = width == 32 ? 0xFFFFFFFFu : ((1u << width) - 1u);
    const UINT32 expected = width > 0 ? (value & mask) : 0u;
    UINT32 got = 0xA5A5A5A5u;
    const UINT8* readNext = nullptr;
    UINT8 readOffset = 0xFF;
    ASSERT_TRUE(DtNlUtil::ReadBitsToUint32(start, length, offset, static_cast<UINT8>(width), &got,
                                           &readNext, &readOffset)
                    .IsSuccess());
    ASSERT_EQ(got, expected) << "round " << round;
    ASSERT_EQ(readNext, buffer.data() + after / 8);
    ASSERT_EQ(readOffset, after % 8);
    if (width <= 16) {
      UINT16 got16 = 0;
      ASSERT_TRUE(DtNlUtil::ReadBitsToUint16(start, length, offset, static_cast<UINT8>(width),
                                             &got16, nullptr, nullptr)
                      .IsSuccess());
      ASSERT_EQ(got16, expected);
    }
    if (width <= 8) {
      UINT8 got8 = 0;
      ASSERT_TRUE(DtNlUtil::ReadBitsToUint8(start, length, offset, static_cast<UINT8>(width),
                                            &got8, nullptr, nullptr)
                      .IsSuccess());
      ASSERT_EQ(got8, expected);
    }
    ASSERT_EQ(DtNlUtil::ReadBits(start, length, offset, static_cast<UINT8>(width), nullptr,
                                 nullptr),
              expected);
  }
}

}  // namespace
