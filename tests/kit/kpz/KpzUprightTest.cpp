// KpzUprightTest.cpp - the pieces of `--upright` (kit/kpz/KpzUpright) on
// their own: the orientation read from a file's head and its words, the
// bounds-checked patch of a JPEG's own Exif orientation, and turning
// damaged JPEGs, which must end in words, never in a crash (the asan preset
// runs this too). Whole runs of the tool: tests/tools/KpzToolUprightTest.cpp.
#include <gtest/gtest.h>

#if defined(KPZ_TEST_HAVE_KIT) && defined(KPZ_TEST_HAVE_JPEG)

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "kpz/KpzSource.h"
#include "kpz/KpzUpright.h"
#include "raw/DtRaw.h"
#include "raw/DtRawError.h"
#include "support/BoundedRun.h"
#include "support/KpzFileBuilder.h"
#include "support/KpzJpegBuilder.h"

namespace {

using kpztest::Bytes;
using kpztest::KpzSpec;

// The orientation KpzUpright reads from the head of `recipe`'s file.
KpzUpright::Orientation OrientationOf(const KpzSpec& recipe) {
  Bytes head = kpztest::BuildKpz(recipe);
  head.resize(KpzSource::kHeadSize, 0);
  return KpzUpright::ReadOrientation(head.data(), head.size());
}

TEST(KpzUpright, ReadsEveryRotationCodeInBothByteOrders) {
  for (DtNlByteOrder order : {DtNlLittleEndian, DtNlBigEndian}) {
    for (unsigned char code = 0; code <= 7; ++code) {
      KpzSpec recipe;
      recipe.order = order;
      recipe.orientation = DtRaw::convRotInfoUsetoStd(code);
      const KpzUpright::Orientation o = OrientationOf(recipe);
      EXPECT_EQ(o.result, DtRawOk);
      EXPECT_EQ(o.code, code);
      EXPECT_EQ(o.stored, DtRaw::convRotInfoUsetoStd(code));
      EXPECT_EQ(KpzUpright::Turns(o), code != 0);
      EXPECT_EQ(KpzUpright::WhyNotTurned(o).empty(), code != 0);
    }
  }
}

TEST(KpzUpright, TellsNormalMissingAndUnknownApart) {
  KpzSpec normal;
  EXPECT_EQ(KpzUpright::WhyNotTurned(OrientationOf(normal)), "its orientation is normal");
  KpzSpec missing;
  missing.orientation.reset();
  EXPECT_EQ(KpzUpright::WhyNotTurned(OrientationOf(missing)),
            "no orientation is recorded in this file");
  KpzSpec unknown;
  unknown.orientation = 9;
  EXPECT_EQ(KpzUpright::WhyNotTurned(OrientationOf(unknown)),
            "its orientation value 9 is not one of 1 to 8");
}

TEST(KpzUpright, TurnWordsFollowTheRotationCodes) {
  EXPECT_STREQ(KpzUpright::TurnWords(0), "none");
  EXPECT_STREQ(KpzUpright::TurnWords(1), "90° clockwise");
  EXPECT_STREQ(KpzUpright::TurnWords(2), "180°");
  EXPECT_STREQ(KpzUpright::TurnWords(3), "90° counter-clockwise");
  EXPECT_STREQ(KpzUpright::TurnWords(4), "mirrored left to right");
  EXPECT_STREQ(KpzUpright::TurnWords(5), "mirrored left to right and turned 90° counter-clockwise");
  EXPECT_STREQ(KpzUpright::TurnWords(6), "mirrored top to bottom");
  EXPECT_STREQ(KpzUpright::TurnWords(7), "mirrored left to right and turned 90° clockwise");
  EXPECT_STREQ(KpzUpright::TurnWords(8), "none");
}

TEST(KpzUpright, OwnOrientationIsSetToOneInBothByteOrders) {
  for (DtNlByteOrder order : {DtNlLittleEndian, DtNlBigEndian}) {
    Bytes jpeg = kpztest::WithOwnExifOrientation(kpztest::MakeJpeg(16, 16, TJSAMP_444), 8, order);
    const Bytes before = jpeg;
    EXPECT_EQ(KpzUpright::SetOwnOrientationToNormal(jpeg.data(), jpeg.size()), 8);
    EXPECT_EQ(kpztest::OwnExifOrientation(jpeg), 1);
    // Only the value's two bytes changed.
    std::size_t changed = 0;
    for (std::size_t i = 0; i < jpeg.size(); ++i) {
      changed += jpeg[i] != before[i] ? 1u : 0u;
    }
    EXPECT_EQ(changed, 1u);  // 8 -> 1: one byte of the two
  }
}

TEST(KpzUpright, JpegWithoutExifIsLeftAlone) {
  Bytes jpeg = kpztest::MakeJpeg(16, 16, TJSAMP_420);
  const Bytes before = jpeg;
  EXPECT_EQ(KpzUpright::SetOwnOrientationToNormal(jpeg.data(), jpeg.size()), 0);
  EXPECT_EQ(jpeg, before);
}

TEST(KpzUpright, CutExifSegmentsAreNeverReadOrWrittenPastTheirEnd) {
  const Bytes whole =
      kpztest::WithOwnExifOrientation(kpztest::MakeJpeg(16, 16, TJSAMP_444), 6, DtNlBigEndian);
  // Every cut of the stream inside the Exif segment: the patch sees only
  // `cut` bytes (ASan would see any read or write beyond them).
  const std::size_t exifEnd = 2 + kpztest::ExifSegment(6, DtNlBigEndian).size();
  for (std::size_t cut = 0; cut <= exifEnd; ++cut) {
    std::vector<UINT8> part(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(cut));
    const int got = KpzUpright::SetOwnOrientationToNormal(part.empty() ? nullptr : part.data(),
                                                          part.size());
    EXPECT_EQ(got, cut == exifEnd ? 6 : 0) << cut;
  }
}

TEST(KpzUpright, TiffOrientationRefusesEntriesPastTheEndAndWrongTypes) {
  Bytes seg = kpztest::ExifSegment(3, DtNlLittleEndian);
  Bytes tiff(seg.begin() + 10, seg.end());
  EXPECT_EQ(KpzUpright::TiffOrientation(tiff.data(), tiff.size(), false), 3);
  // The second entry (the orientation) ends at 8 + 2 + 24 = 34.
  EXPECT_EQ(KpzUpright::TiffOrientation(tiff.data(), 33, false), -1);
  Bytes wrongType = tiff;
  wrongType[8 + 2 + 12 + 2] = 4;  // LONG instead of SHORT
  EXPECT_EQ(KpzUpright::TiffOrientation(wrongType.data(), wrongType.size(), true), -1);
  EXPECT_EQ(wrongType[8 + 2 + 12 + 8], 3);  // not written
  Bytes farIfd = tiff;
  farIfd[4] = 0xF0;  // IFD0 beyond the bytes
  EXPECT_EQ(KpzUpright::TiffOrientation(farIfd.data(), farIfd.size(), false), -1);
}

TEST(KpzUpright, LosslessTurnSaysSoAndKeepsTheSize) {
  const Bytes jpeg = kpztest::MakeJpeg(64, 32, TJSAMP_420);
  const KpzUpright::Result r = KpzUpright::Turn(jpeg.data(), jpeg.size(), 1,
                                                KpzUpright::Edges::Reencode);
  ASSERT_TRUE(r.ok) << r.error;
  EXPECT_EQ(r.treatment, KpzUpright::Treatment::Lossless);
  EXPECT_EQ(r.outWidth, 32);
  EXPECT_EQ(r.outHeight, 64);
  EXPECT_EQ(KpzUpright::Note(r, 1), "turned 90° clockwise, losslessly");
  EXPECT_EQ(KpzUpright::SummaryNote(r), "");
}

TEST(KpzUpright, GreyPartialEdgesAreReencodedGrey) {
  tjhandle h = tjInitCompress();
  std::vector<unsigned char> grey(30 * 20);
  for (std::size_t i = 0; i < grey.size(); ++i) {
    grey[i] = static_cast<unsigned char>(i * 7);
  }
  unsigned char* buf = nullptr;
  unsigned long size = 0;
  ASSERT_EQ(tjCompress2(h, grey.data(), 30, 0, 20, TJPF_GRAY, &buf, &size, TJSAMP_GRAY, 90, 0), 0);
  const Bytes jpeg(buf, buf + size);
  tjFree(buf);
  tjDestroy(h);
  const KpzUpright::Result r =
      KpzUpright::Turn(jpeg.data(), jpeg.size(), 2, KpzUpright::Edges::Reencode);
  ASSERT_TRUE(r.ok) << r.error;
  EXPECT_EQ(r.treatment, KpzUpright::Treatment::Reencoded);
  EXPECT_EQ(kpztest::JpegSampling(r.jpeg), TJSAMP_GRAY);
  EXPECT_EQ(KpzUpright::Note(r, 2),
            "turned 180°; re-encoded at quality 95: its size, 30x20, is not a whole number of "
            "8-pixel blocks (size kept, 30x20)");
}

TEST(KpzUpright, FourTwoTwoBecomesFourFourZeroWhenReencodedAQuarterTurn) {
  const Bytes jpeg = kpztest::MakeJpeg(40, 21, TJSAMP_422);  // 16x8 blocks; 21 rows: partial
  const KpzUpright::Result r =
      KpzUpright::Turn(jpeg.data(), jpeg.size(), 1, KpzUpright::Edges::Reencode);
  ASSERT_TRUE(r.ok) << r.error;
  EXPECT_EQ(r.treatment, KpzUpright::Treatment::Reencoded);
  EXPECT_EQ(kpztest::JpegSampling(r.jpeg), TJSAMP_440);
  EXPECT_EQ(KpzUpright::Note(r, 1),
            "turned 90° clockwise; re-encoded at quality 95: its height, 21, is not a whole "
            "number of 16x8-pixel blocks (size kept, 21x40)");
}

TEST(KpzUpright, DamagedJpegsEndInWordsNeverInACrash) {
  // Every byte of a real JPEG's head set to 0xFF or 0x00 in turn, and the
  // stream cut at many places, each turned with both edge rules.
  const Bytes jpeg = kpztest::MakeJpeg(40, 24, TJSAMP_420);
  std::size_t failures = 0;
  std::size_t runs = 0;
  const auto turn = [&](const Bytes& bytes) {
    for (KpzUpright::Edges edges : {KpzUpright::Edges::Reencode, KpzUpright::Edges::Trim}) {
      const KpzUpright::Result r = KpzUpright::Turn(bytes.data(), bytes.size(), 2, edges);
      ++runs;
      if (!r.ok) {
        ++failures;
        EXPECT_FALSE(r.error.empty());
        EXPECT_TRUE(r.jpeg.empty());
      }
    }
  };
  for (std::size_t i = 0; i < 700 && i < jpeg.size(); ++i) {
    for (std::uint8_t value : {std::uint8_t{0x00}, std::uint8_t{0xFF}}) {
      Bytes bad = jpeg;
      bad[i] = value;
      turn(bad);
    }
  }
  for (std::size_t cut = 1; cut < jpeg.size(); cut += 37) {
    turn(Bytes(jpeg.begin(), jpeg.begin() + static_cast<std::ptrdiff_t>(cut)));
  }
  EXPECT_GT(failures, 0u);
  EXPECT_LT(failures, runs);
  // The thread's TurboJPEG handle works after all those failures (a
  // handle that failed once can fail every later call; it is replaced).
  const KpzUpright::Result good =
      KpzUpright::Turn(jpeg.data(), jpeg.size(), 2, KpzUpright::Edges::Reencode);
  EXPECT_TRUE(good.ok) << good.error;
}

TEST(KpzUpright, APictureBombIsRefusedInWordsWithoutDecoding) {
  // A few hundred bytes of arithmetic-coded data claiming 9999x9999 pixels,
  // padded to 49 KB as a file's preview would be: within the old bound of
  // pixels per byte of the whole JPEG, far beyond what its coded data can
  // stand for.
  Bytes jpeg = kpztest::ArithmeticFlatJpeg(9999, 9999);
  if (jpeg.empty()) {
    GTEST_SKIP() << "this libjpeg cannot write arithmetic-coded JPEGs";
  }
  ASSERT_LT(jpeg.size(), 4096u);
  const std::size_t coded = jpeg.size();
  jpeg.resize(49 * 1024, 0);
  const kpztest::Bounded r = kpztest::RunBounded(std::chrono::seconds(20), [&] {
    const KpzUpright::Result t =
        KpzUpright::Turn(jpeg.data(), jpeg.size(), 1, KpzUpright::Edges::Reencode);
    return std::to_string(t.ok) + "|" + t.error;
  });
  ASSERT_TRUE(r.started);
  EXPECT_FALSE(r.timedOut);
  ASSERT_TRUE(r.exited);
  EXPECT_EQ(r.out.substr(0, 2), "0|");
  EXPECT_NE(r.out.find("the JPEG declares 9999x9999 pixels, too large for its "),
            std::string::npos)
      << r.out;
  EXPECT_NE(r.out.find(" bytes of arithmetic-coded data; it is damaged, not turned"),
            std::string::npos)
      << r.out;
  EXPECT_LT(r.GrowthKiB(), 32 * 1024) << "the refusal took memory (" << coded << " bytes coded)";
}

TEST(KpzUpright, RealPicturesOfEveryCodingStillTurn) {
  // The bound leaves real pictures alone: a detailed picture, Huffman and
  // progressive, and a flat arithmetic-coded one of moderate size.
  const Bytes base = kpztest::MakeJpeg(640, 480, TJSAMP_420);
  const KpzUpright::Result a = KpzUpright::Turn(base.data(), base.size(), 1,
                                                KpzUpright::Edges::Reencode);
  EXPECT_TRUE(a.ok) << a.error;
  const Bytes flat = kpztest::ArithmeticFlatJpeg(256, 256);
  if (!flat.empty()) {
    const KpzUpright::Result b =
        KpzUpright::Turn(flat.data(), flat.size(), 1, KpzUpright::Edges::Reencode);
    EXPECT_TRUE(b.ok) << b.error;
  }
}

TEST(KpzUpright, AGoodJpegAfterAnUnreadableOneIsTurned) {
  const Bytes good = kpztest::MakeJpeg(16, 16, TJSAMP_444);
  const Bytes bad = kpztest::PatternBytes(300, 1);
  for (int round = 0; round < 3; ++round) {
    EXPECT_FALSE(KpzUpright::Turn(bad.data(), bad.size(), 1, KpzUpright::Edges::Reencode).ok);
    const KpzUpright::Result r =
        KpzUpright::Turn(good.data(), good.size(), 1, KpzUpright::Edges::Reencode);
    EXPECT_TRUE(r.ok) << r.error;
  }
}

TEST(KpzUpright, CodeZeroIsNoTurn) {
  const Bytes jpeg = kpztest::MakeJpeg(16, 16, TJSAMP_444);
  const KpzUpright::Result r =
      KpzUpright::Turn(jpeg.data(), jpeg.size(), 0, KpzUpright::Edges::Reencode);
  EXPECT_FALSE(r.ok);
  EXPECT_EQ(r.error, "no turn for rotation code 0");
}

}  // namespace

#else

TEST(KpzUpright, NeedsTheToolAndTheJpegLibraries) {
  GTEST_SKIP() << "the kpz tool or TurboJPEG/libjpeg for the tests is not built";
}

#endif
