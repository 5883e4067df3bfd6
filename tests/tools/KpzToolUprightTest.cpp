// KpzToolUprightTest.cpp - `kpz preview --upright` and `kpz thumbnail
// --upright` run as a program on files written with the test-data builder
// whose previews are real JPEGs (tests/support/KpzJpegBuilder.h): all eight
// rotation codes in both byte orders, whole and partial edge blocks in 4:4:4
// and 4:2:0, previews with their own Exif orientation, -o -, batches, -v
// lines, damaged JPEGs, and the `info` lines about it.
//
// How a turned output is checked:
//  * lossless turns: its DCT coefficients (read with jpeg_read_coefficients)
//    equal the stored preview's, turned on the block grid (dequantised,
//    every one). Its decoded pixels are also compared with the stored
//    preview decoded and turned in memory: there they may differ by a
//    little (kLosslessPixelTolerance), since the decoder's integer inverse
//    DCT and chroma upsampling round differently along rows and columns,
//    so decoding is not exactly symmetric under a turn. The coefficients
//    are what shows the turn lost nothing.
//  * re-encoded turns (edges that are not whole blocks): same size as the
//    turned preview, same chroma sampling, and a peak signal-to-noise ratio
//    against the in-memory turn of at least kReencodedPsnr dB.
#include <gtest/gtest.h>

#if defined(KPZ_TOOL) && defined(KPZ_TEST_HAVE_JPEG)

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "KpzToolRunner.h"
#include "raw/DtRaw.h"
#include "support/BoundedRun.h"
#include "support/KpzFileBuilder.h"
#include "support/KpzJpegBuilder.h"

namespace {

using kpztest::Bytes;
using kpztest::KpzSpec;
using kpztool::Result;
using kpztool::RunTool;
using kpztool::Text;

// Found by running these tests: decoding a losslessly turned JPEG differs
// from turning the decoded stored JPEG by up to 3 (of 255) per sample, in
// 4:4:4 and 4:2:0 alike; many cases differ by 2, some not at all.
constexpr int kLosslessPixelTolerance = 3;
// A re-encoded turn (quality 95) against the in-memory turn: these small,
// finely textured pictures give 37 to 40 dB; a wrong turn gives far less.
constexpr double kReencodedPsnr = 35.0;

// The turn each rotation code asks for, as the table of
// kit/kpz/KpzRotation.h says (code 1: rotated 90° clockwise, ...).
int OperationOf(unsigned char code) {
  switch (code) {
    case 1:
      return TJXOP_ROT90;
    case 2:
      return TJXOP_ROT180;
    case 3:
      return TJXOP_ROT270;
    case 4:
      return TJXOP_HFLIP;
    case 5:
      return TJXOP_TRANSPOSE;
    case 6:
      return TJXOP_VFLIP;
    case 7:
      return TJXOP_TRANSVERSE;
    default:
      return TJXOP_NONE;
  }
}

bool MovesRightEdge(int op) {
  return op == TJXOP_HFLIP || op == TJXOP_ROT180 || op == TJXOP_ROT270 ||
         op == TJXOP_TRANSVERSE;
}
bool MovesBottomEdge(int op) {
  return op == TJXOP_VFLIP || op == TJXOP_ROT180 || op == TJXOP_ROT90 || op == TJXOP_TRANSVERSE;
}

bool Contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

class KpzToolUpright : public testing::Test {
 protected:
  // A file whose IFD0 holds rotation `code` and whose preview is `jpeg`.
  std::string Write(const std::string& name, unsigned char code, const Bytes& jpeg,
                    DtNlByteOrder order = DtNlLittleEndian) {
    KpzSpec recipe;
    recipe.order = order;
    recipe.orientation = DtRaw::convRotInfoUsetoStd(code);
    recipe.screennail = jpeg;
    return WriteRecipe(name, recipe);
  }
  std::string WriteRecipe(const std::string& name, const KpzSpec& recipe) {
    const std::string path = dir.Write(name, kpztest::BuildKpz(recipe));
    EXPECT_FALSE(path.empty());
    return path;
  }
  Result Run(const std::vector<std::string>& args) { return RunTool(args, dir.Path(), dir.Path()); }
  std::string At(const std::string& name) const { return dir.Path() + "/" + name; }

  kpztest::TempDir dir;
};

// ---- every code, both byte orders, whole and partial blocks -----------------

struct Shape {
  const char* name;
  int subsamp;
  int width;
  int height;
};
const Shape kShapes[] = {
    {"444_whole_64x48", TJSAMP_444, 64, 48},
    {"420_whole_64x48", TJSAMP_420, 64, 48},
    {"444_partial_61x45", TJSAMP_444, 61, 45},
    {"420_partial_61x45", TJSAMP_420, 61, 45},
};

struct TurnCase {
  unsigned char code;
  bool bigEndian;
  Shape shape;
};

class KpzToolUprightTurn : public KpzToolUpright, public testing::WithParamInterface<TurnCase> {};

TEST_P(KpzToolUprightTurn, WritesTheStoredPreviewTurnedAsTheOrientationSays) {
  const TurnCase c = GetParam();
  const int op = OperationOf(c.code);
  const Bytes stored = kpztest::MakeJpeg(c.shape.width, c.shape.height, c.shape.subsamp);
  ASSERT_FALSE(stored.empty());
  const std::string in =
      Write("a.kpz", c.code, stored, c.bigEndian ? DtNlBigEndian : DtNlLittleEndian);
  const Result r = Run({"preview", "--upright", "-v", in, "-o", At("out.jpg")});
  ASSERT_EQ(r.exit, 0) << r.err;
  const Bytes written = kpztest::ReadFileBytes(At("out.jpg"));
  EXPECT_EQ(Text(r.out), "wrote " + At("out.jpg") + " (" + std::to_string(written.size()) +
                             " bytes)\n");

  const kpztest::Picture expected = kpztest::TurnPicture(kpztest::DecodeJpeg(stored), op);
  const kpztest::Picture got = kpztest::DecodeJpeg(written);
  ASSERT_TRUE(got.ok);
  // The size is always kept: the turned size of the stored picture.
  EXPECT_EQ(got.width, expected.width);
  EXPECT_EQ(got.height, expected.height);
  EXPECT_EQ(kpztest::JpegSampling(written), c.shape.subsamp);

  const int blockW = c.shape.subsamp == TJSAMP_420 ? 16 : 8;
  const int blockH = blockW;
  const bool lossless = !(MovesRightEdge(op) && c.shape.width % blockW != 0) &&
                        !(MovesBottomEdge(op) && c.shape.height % blockH != 0);
  if (lossless) {
    EXPECT_EQ(kpztest::CompareTurnedCoefficients(kpztest::ReadCoefficients(stored),
                                                 kpztest::ReadCoefficients(written), op),
              "");
    EXPECT_LE(kpztest::MaxDifference(got, expected), kLosslessPixelTolerance);
    EXPECT_TRUE(Contains(r.err, ": preview turned ")) << r.err;
    EXPECT_TRUE(Contains(r.err, ", losslessly\n")) << r.err;
  } else {
    EXPECT_GE(kpztest::Psnr(got, expected), kReencodedPsnr);
    EXPECT_TRUE(Contains(r.err, "; re-encoded at quality 95: ")) << r.err;
    EXPECT_TRUE(Contains(r.err, " a whole number of " + std::to_string(blockW) +
                                    "-pixel blocks (size kept, " + std::to_string(got.width) +
                                    "x" + std::to_string(got.height) + ")"))
        << r.err;
  }
}

std::vector<TurnCase> AllTurnCases() {
  std::vector<TurnCase> cases;
  for (unsigned char code = 1; code <= 7; ++code) {
    for (bool big : {false, true}) {
      for (const Shape& s : kShapes) {
        cases.push_back({code, big, s});
      }
    }
  }
  return cases;
}

INSTANTIATE_TEST_SUITE_P(EveryCode, KpzToolUprightTurn, testing::ValuesIn(AllTurnCases()),
                         [](const testing::TestParamInfo<TurnCase>& p) {
                           return "code" + std::to_string(p.param.code) +
                                  (p.param.bigEndian ? "_MM_" : "_II_") + p.param.shape.name;
                         });

// ---- what the turn means ---------------------------------------------------------

TEST_F(KpzToolUpright, ClockwiseCodePutsTheStoredTopLeftMarkAtTheTopRight) {
  // The stored picture's red mark lies in its top left corner; a picture
  // "rotated 90° clockwise" is shown by turning it a quarter clockwise, which
  // takes the top left corner to the top right.
  const Bytes stored = kpztest::MakeJpeg(64, 48, TJSAMP_444);
  const std::string in = Write("cw.kpz", 1, stored);
  ASSERT_EQ(Run({"preview", "--upright", in, "-o", At("cw.jpg")}).exit, 0);
  const kpztest::Picture got = kpztest::DecodeJpeg(kpztest::ReadFileBytes(At("cw.jpg")));
  ASSERT_TRUE(got.ok);
  ASSERT_EQ(got.width, 48);
  ASSERT_EQ(got.height, 64);
  const std::uint8_t* topRight = got.At(got.width - 2, 1);
  const std::uint8_t* topLeft = got.At(1, 1);
  EXPECT_GT(topRight[0], 200);
  EXPECT_LT(topRight[1], 60);
  EXPECT_LT(topLeft[0], 200);
}

// ---- trimming instead of re-encoding ---------------------------------------------

TEST_F(KpzToolUpright, TrimCutsThePartialBlocksOfTheMovedEdgesLosslesslyAndSaysSo) {
  // 61x45 in 4:2:0: 16-pixel blocks. Turned 180°, both the right edge
  // (61 = 3 x 16 + 13) and the bottom edge (45 = 2 x 16 + 13) move.
  const Bytes stored = kpztest::MakeJpeg(61, 45, TJSAMP_420);
  const std::string in = Write("t.kpz", 2, stored);
  const Result r = Run({"preview", "--upright", "--edges=trim", in, "-o", At("t.jpg")});
  ASSERT_EQ(r.exit, 0) << r.err;
  EXPECT_EQ(r.err, "kpz: " + in +
                       ": preview turned 180°, losslessly; cut to whole 16-pixel blocks: 13 pixel "
                       "columns off the stored picture's right edge and 13 pixel rows off its "
                       "bottom edge (61x45 -> 48x32)\n");
  const Bytes written = kpztest::ReadFileBytes(At("t.jpg"));
  const kpztest::Picture got = kpztest::DecodeJpeg(written);
  ASSERT_TRUE(got.ok);
  EXPECT_EQ(got.width, 48);
  EXPECT_EQ(got.height, 32);
  EXPECT_EQ(kpztest::CompareTurnedCoefficients(kpztest::ReadCoefficients(stored),
                                               kpztest::ReadCoefficients(written), TJXOP_ROT180),
            "");
}

TEST_F(KpzToolUpright, TrimOfAQuarterTurnCutsOnlyTheEdgeThatMoves) {
  // Turned 90° clockwise the bottom edge goes to the left; the right edge
  // becomes the bottom one and stays where it is.
  const Bytes stored = kpztest::MakeJpeg(61, 45, TJSAMP_444);
  const std::string in = Write("q.kpz", 1, stored);
  const Result r = Run({"preview", "--upright", "--edges", "trim", in, "-o", At("q.jpg")});
  ASSERT_EQ(r.exit, 0) << r.err;
  EXPECT_TRUE(Contains(r.err, "5 pixel rows off its bottom edge (61x45 -> 40x61)")) << r.err;
  EXPECT_FALSE(Contains(r.err, "columns")) << r.err;
  const Bytes written = kpztest::ReadFileBytes(At("q.jpg"));
  EXPECT_EQ(kpztest::CompareTurnedCoefficients(kpztest::ReadCoefficients(stored),
                                               kpztest::ReadCoefficients(written), TJXOP_ROT90),
            "");
}

TEST_F(KpzToolUpright, TrimOfWholeBlocksCutsNothingAndSaysNothing) {
  const Bytes stored = kpztest::MakeJpeg(64, 48, TJSAMP_420);
  const std::string in = Write("w.kpz", 2, stored);
  const Result r = Run({"preview", "--upright", "--edges=trim", in, "-o", At("w.jpg")});
  ASSERT_EQ(r.exit, 0) << r.err;
  EXPECT_EQ(r.err, "");
  const kpztest::Picture got = kpztest::DecodeJpeg(kpztest::ReadFileBytes(At("w.jpg")));
  EXPECT_EQ(got.width, 64);
  EXPECT_EQ(got.height, 48);
}

TEST_F(KpzToolUpright, EdgesWithoutUprightIsAUsageError) {
  const std::string in = Write("e.kpz", 1, kpztest::MakeJpeg(16, 16, TJSAMP_444));
  const Result r = Run({"preview", "--edges=trim", in});
  EXPECT_EQ(r.exit, 2);
  EXPECT_EQ(r.err, "kpz: --edges goes with --upright\n");
}

TEST_F(KpzToolUpright, UnknownEdgesValueIsAUsageError) {
  const std::string in = Write("e.kpz", 1, kpztest::MakeJpeg(16, 16, TJSAMP_444));
  EXPECT_EQ(Run({"preview", "--upright", "--edges=crop", in}).exit, 2);
}

// ---- re-encoding: the summary and the markers ----------------------------------

TEST_F(KpzToolUpright, ReencodedPreviewIsCountedAtTheEndEvenForOneFile) {
  const std::string in = Write("r.kpz", 1, kpztest::MakeJpeg(64, 45, TJSAMP_420));
  const Result r = Run({"preview", "--upright", in, "-o", At("r.jpg")});
  ASSERT_EQ(r.exit, 0) << r.err;
  EXPECT_EQ(r.err,
            "kpz:   1 preview re-encoded at quality 95: edges not a whole number of 16-pixel "
            "blocks\n");
}

TEST_F(KpzToolUpright, ReencodedPreviewKeepsItsOwnMarkersWithTheOrientationSetToOne) {
  const Bytes stored =
      kpztest::WithOwnExifOrientation(kpztest::MakeJpeg(61, 45, TJSAMP_444), 6, DtNlBigEndian);
  const std::string in = Write("x.kpz", 1, stored);
  const Result r = Run({"preview", "--upright", "-v", in, "-o", At("x.jpg")});
  ASSERT_EQ(r.exit, 0) << r.err;
  EXPECT_TRUE(Contains(r.err, "; its own Exif orientation 6 set to 1\n")) << r.err;
  const Bytes written = kpztest::ReadFileBytes(At("x.jpg"));
  EXPECT_EQ(kpztest::OwnExifOrientation(written), 1);
  // The Exif segment is the stored one but for the orientation's value.
  const auto segs = kpztest::HeadSegments(written);
  ASSERT_FALSE(segs.empty());
  EXPECT_EQ(segs[0].first, 0xE1);
  EXPECT_EQ(segs[0].second, kpztest::ExifSegment(1, DtNlBigEndian));
}

// ---- a preview with its own Exif orientation -----------------------------------

class KpzToolUprightOwnExif : public KpzToolUpright,
                              public testing::WithParamInterface<DtNlByteOrder> {};

TEST_P(KpzToolUprightOwnExif, IsTurnedOnceAndItsOwnOrientationEndsAsOne) {
  const DtNlByteOrder exifOrder = GetParam();
  const Bytes plain = kpztest::MakeJpeg(64, 48, TJSAMP_420);
  const Bytes stored = kpztest::WithOwnExifOrientation(plain, 6, exifOrder);
  ASSERT_EQ(kpztest::OwnExifOrientation(stored), 6);
  const std::string in = Write("o.kpz", 1, stored);
  const Result r = Run({"preview", "--upright", "-v", in, "-o", At("o.jpg")});
  ASSERT_EQ(r.exit, 0) << r.err;
  EXPECT_TRUE(Contains(r.err, "preview turned 90° clockwise, losslessly; its own Exif "
                              "orientation 6 set to 1\n"))
      << r.err;
  const Bytes written = kpztest::ReadFileBytes(At("o.jpg"));
  EXPECT_EQ(kpztest::OwnExifOrientation(written), 1);
  // Everything else of the Exif segment is kept, byte for byte.
  bool found = false;
  for (const auto& s : kpztest::HeadSegments(written)) {
    if (s.first == 0xE1) {
      EXPECT_EQ(s.second, kpztest::ExifSegment(1, exifOrder));
      found = true;
    }
  }
  EXPECT_TRUE(found);
  EXPECT_EQ(kpztest::CompareTurnedCoefficients(kpztest::ReadCoefficients(stored),
                                               kpztest::ReadCoefficients(written), TJXOP_ROT90),
            "");
}

INSTANTIATE_TEST_SUITE_P(BothByteOrders, KpzToolUprightOwnExif,
                         testing::Values(DtNlLittleEndian, DtNlBigEndian),
                         [](const testing::TestParamInfo<DtNlByteOrder>& p) {
                           return std::string(p.param == DtNlBigEndian ? "MM" : "II");
                         });

// ---- nothing to turn -----------------------------------------------------------------

TEST_F(KpzToolUpright, NormalOrientationWritesTheStoredBytesAndVerboseSaysWhy) {
  const Bytes stored = kpztest::MakeJpeg(61, 45, TJSAMP_420);
  const std::string in = Write("n.kpz", 0, stored);
  const Result r = Run({"preview", "--upright", "-v", in, "-o", At("n.jpg")});
  ASSERT_EQ(r.exit, 0) << r.err;
  EXPECT_EQ(kpztest::ReadFileBytes(At("n.jpg")), stored);
  EXPECT_TRUE(Contains(r.err, "kpz: " + in + ": preview not turned: its orientation is normal\n"))
      << r.err;
  const Result quiet = Run({"preview", "--upright", in, "-o", At("n2.jpg")});
  EXPECT_EQ(quiet.err, "");
}

TEST_F(KpzToolUpright, MissingOrientationWritesTheStoredBytesAndVerboseSaysWhy) {
  const Bytes stored = kpztest::MakeJpeg(64, 48, TJSAMP_444);
  KpzSpec recipe;
  recipe.orientation.reset();
  recipe.screennail = stored;
  const std::string in = WriteRecipe("m.kpz", recipe);
  const Result r = Run({"preview", "--upright", "-v", in, "-o", At("m.jpg")});
  ASSERT_EQ(r.exit, 0) << r.err;
  EXPECT_EQ(kpztest::ReadFileBytes(At("m.jpg")), stored);
  EXPECT_TRUE(Contains(r.err, "kpz: " + in +
                                  ": preview not turned: no orientation is recorded in this "
                                  "file\n"))
      << r.err;
}

TEST_F(KpzToolUpright, UnknownOrientationValueWritesTheStoredBytesAndVerboseSaysWhy) {
  const Bytes stored = kpztest::MakeJpeg(64, 48, TJSAMP_444);
  for (const std::uint16_t value : std::vector<std::uint16_t>{0, 9, 0xFFFF}) {
    KpzSpec recipe;
    recipe.orientation = value;
    recipe.order = value == 9 ? DtNlBigEndian : DtNlLittleEndian;
    recipe.screennail = stored;
    const std::string in = WriteRecipe("u.kpz", recipe);
    const Result r = Run({"preview", "--upright", "-v", in, "-o", At("u.jpg")});
    ASSERT_EQ(r.exit, 0) << r.err;
    EXPECT_EQ(kpztest::ReadFileBytes(At("u.jpg")), stored);
    EXPECT_TRUE(Contains(r.err, "kpz: " + in + ": preview not turned: its orientation value " +
                                    std::to_string(value) + " is not one of 1 to 8\n"))
        << r.err;
  }
}

TEST_F(KpzToolUpright, WithoutUprightATurnedFileStillGivesTheStoredBytes) {
  const Bytes stored = kpztest::MakeJpeg(61, 45, TJSAMP_420);
  const std::string in = Write("s.kpz", 1, stored);
  const Result r = Run({"preview", "-v", in, "-o", "-"});
  ASSERT_EQ(r.exit, 0) << r.err;
  EXPECT_EQ(r.out, stored);
  EXPECT_FALSE(Contains(r.err, "turned")) << r.err;
}

// ---- outputs and batches ------------------------------------------------------------

TEST_F(KpzToolUpright, DashOutputWritesTheUprightJpegToStandardOutput) {
  const Bytes stored = kpztest::MakeJpeg(64, 48, TJSAMP_420);
  const std::string in = Write("d.kpz", 3, stored);
  const Result toFile = Run({"preview", "--upright", in, "-o", At("d.jpg")});
  ASSERT_EQ(toFile.exit, 0) << toFile.err;
  const Result r = Run({"preview", "--upright", in, "-o", "-"});
  ASSERT_EQ(r.exit, 0) << r.err;
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(r.out, kpztest::ReadFileBytes(At("d.jpg")));
  EXPECT_EQ(kpztest::CompareTurnedCoefficients(kpztest::ReadCoefficients(stored),
                                               kpztest::ReadCoefficients(r.out), TJXOP_ROT270),
            "");
}

TEST_F(KpzToolUpright, ThumbnailIsTurnedToo) {
  KpzSpec recipe;
  recipe.orientation = DtRaw::convRotInfoUsetoStd(2);
  recipe.thumbnail = kpztest::MakeJpeg(32, 16, TJSAMP_420);
  const std::string in = WriteRecipe("t.kpz", recipe);
  const Result r = Run({"thumbnail", "--upright", "-v", in, "-o", "-"});
  ASSERT_EQ(r.exit, 0) << r.err;
  EXPECT_TRUE(Contains(r.err, ": thumbnail turned 180°, losslessly\n")) << r.err;
  EXPECT_EQ(kpztest::CompareTurnedCoefficients(kpztest::ReadCoefficients(recipe.thumbnail),
                                               kpztest::ReadCoefficients(r.out), TJXOP_ROT180),
            "");
}

TEST_F(KpzToolUpright, DirectoryBatchTurnsEachFileAndCountsTheReencodedOnes) {
  std::filesystem::create_directory(At("in"));
  const Bytes whole = kpztest::MakeJpeg(64, 48, TJSAMP_420);
  const Bytes partial = kpztest::MakeJpeg(64, 45, TJSAMP_420);
  Write("in/a.kpz", 0, whole);
  Write("in/b.kpz", 1, partial);     // the bottom edge moves: re-encoded
  Write("in/c.kpz", 3, partial);     // the right edge moves, a whole 64: lossless
  Write("in/d.kpz", 6, partial);     // the bottom edge moves: re-encoded
  KpzSpec broken;
  broken.orientation = DtRaw::convRotInfoUsetoStd(1);
  broken.screennail = kpztest::FakeJpeg(3000, 9);  // JPEG-shaped, not decodable
  WriteRecipe("in/ab.kpz", broken);  // between a and b: later files on its thread still turn
  const Result r = Run({"preview", "--upright", "-j", "1", At("in"), "-o", At("out")});
  EXPECT_EQ(r.exit, 1);
  EXPECT_EQ(kpztool::Listing(At("out")),
            (std::vector<std::string>{"a.preview.jpg", "b.preview.jpg", "c.preview.jpg",
                                      "d.preview.jpg"}));
  EXPECT_EQ(kpztest::ReadFileBytes(At("out/a.preview.jpg")), whole);
  const kpztest::Picture b = kpztest::DecodeJpeg(kpztest::ReadFileBytes(At("out/b.preview.jpg")));
  EXPECT_EQ(b.width, 45);
  EXPECT_EQ(b.height, 64);
  EXPECT_EQ(kpztest::CompareTurnedCoefficients(
                kpztest::ReadCoefficients(partial),
                kpztest::ReadCoefficients(kpztest::ReadFileBytes(At("out/c.preview.jpg"))),
                TJXOP_ROT270),
            "");
  const std::vector<std::string> lines = kpztool::Lines(r.err);
  ASSERT_EQ(lines.size(), 4u) << r.err;
  EXPECT_TRUE(Contains(lines[0], "kpz: " + At("in/ab.kpz") +
                                     ": the preview cannot be turned upright: "))
      << lines[0];
  EXPECT_EQ(lines[1], "kpz: 5 files: 4 done, 1 failed");
  EXPECT_TRUE(Contains(lines[2], "kpz:   1 the preview cannot be turned upright: ")) << lines[2];
  EXPECT_EQ(lines[3],
            "kpz:   2 previews re-encoded at quality 95: edges not a whole number of 16-pixel "
            "blocks");
}

// ---- damaged previews ----------------------------------------------------------------

TEST_F(KpzToolUpright, PreviewThatIsNoJpegFailsInWordsAndWritesNothing) {
  KpzSpec recipe;
  recipe.orientation = DtRaw::convRotInfoUsetoStd(1);
  recipe.screennail = kpztest::PatternBytes(5000, 3);
  const std::string in = WriteRecipe("g.kpz", recipe);
  const Result r = Run({"preview", "--upright", in, "-o", At("g.jpg")});
  EXPECT_EQ(r.exit, 1);
  EXPECT_TRUE(Contains(r.err, "kpz: " + in +
                                  ": the preview cannot be turned upright: not a JPEG that can "
                                  "be read ("))
      << r.err;
  EXPECT_FALSE(std::filesystem::exists(At("g.jpg")));
}

TEST_F(KpzToolUpright, CutOffJpegDataIsReportedAsDamaged) {
  const Bytes whole = kpztest::MakeJpeg(64, 48, TJSAMP_420);
  const Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(whole.size() / 2));
  const std::string in = Write("c.kpz", 2, cut);
  const Result r = Run({"preview", "--upright", in, "-o", At("c.jpg")});
  EXPECT_EQ(r.exit, 1);
  EXPECT_TRUE(Contains(r.err, ": the preview cannot be turned upright: the JPEG data is damaged ("))
      << r.err;
  EXPECT_FALSE(std::filesystem::exists(At("c.jpg")));
}

TEST_F(KpzToolUpright, JpegDeclaringFarMorePixelsThanItsBytesHoldIsRefusedUndecoded) {
  // A real JPEG whose frame header is changed to declare 60000 x 60000.
  Bytes jpeg = kpztest::MakeJpeg(16, 16, TJSAMP_444);
  bool patched = false;
  for (std::size_t i = 2; i + 8 < jpeg.size(); ++i) {
    if (jpeg[i] == 0xFF && jpeg[i + 1] == 0xC0) {
      jpeg[i + 5] = 0xEA;  // height 0xEA60 = 60000
      jpeg[i + 6] = 0x60;
      jpeg[i + 7] = 0xEA;  // width
      jpeg[i + 8] = 0x60;
      patched = true;
      break;
    }
  }
  ASSERT_TRUE(patched);
  const std::string in = Write("h.kpz", 1, jpeg);
  const Result r = Run({"preview", "--upright", in, "-o", At("h.jpg")});
  EXPECT_EQ(r.exit, 1);
  EXPECT_TRUE(Contains(r.err, "the JPEG declares 60000x60000 pixels, more than its " +
                                  std::to_string(jpeg.size()) + " bytes can hold; it is damaged"))
      << r.err;
}

// ---- info ------------------------------------------------------------------------------

TEST_F(KpzToolUpright, InfoTellsWhatUprightWouldDo) {
  const std::string in = Write("i.kpz", 1, kpztest::MakeJpeg(16, 16, TJSAMP_444));
  const Result r = Run({"info", in});
  ASSERT_EQ(r.exit, 0) << r.err;
  EXPECT_TRUE(Contains(Text(r.out), "  Orientation       rotated 90° clockwise (--upright turns "
                                    "the preview 90° clockwise)\n"))
      << Text(r.out);
  const Result j = Run({"info", "--json", in});
  const nlohmann::json o = nlohmann::json::parse(Text(j.out));
  EXPECT_EQ(o["upright"]["code"], 1);
  EXPECT_EQ(o["upright"]["turn"], "90° clockwise");
}

TEST_F(KpzToolUpright, InfoOfAFileWithoutOrientationSaysUprightTurnsNothing) {
  KpzSpec recipe;
  recipe.orientation.reset();
  const std::string in = WriteRecipe("n.kpz", recipe);
  const Result j = Run({"info", "--json", in});
  const nlohmann::json o = nlohmann::json::parse(Text(j.out));
  EXPECT_EQ(o["upright"]["code"], 0);
  EXPECT_TRUE(o["upright"]["turn"].is_null());
}

TEST_F(KpzToolUpright, HelpShowsUprightWithAnExample) {
  const Result r = Run({"preview", "--help"});
  EXPECT_EQ(r.exit, 0);
  EXPECT_TRUE(Contains(Text(r.out), "--upright")) << Text(r.out);
  EXPECT_TRUE(Contains(Text(r.out), "kpz preview --upright a.kpz")) << Text(r.out);
  EXPECT_TRUE(Contains(Text(r.out), "--edges")) << Text(r.out);
}

// ---- a picture bomb as a file's preview -----------------------------------------

TEST_F(KpzToolUpright, APictureBombPreviewIsRefusedInWordsAndNothingIsWritten) {
  // A few hundred bytes of arithmetic-coded data claiming 9999x9999 pixels,
  // padded to 49 KB: decoding it would take about 300 MB for one file.
  Bytes bomb = kpztest::ArithmeticFlatJpeg(9999, 9999);
  if (bomb.empty()) {
    GTEST_SKIP() << "this libjpeg cannot write arithmetic-coded JPEGs";
  }
  bomb.resize(49 * 1024, 0);
  const std::string in = Write("bomb.kpz", 6, bomb);
  const kpztest::Bounded b = kpztest::RunBounded(std::chrono::seconds(30), [&] {
    const Result r = Run({"preview", "--upright", in, "-o", At("bomb.jpg")});
    return std::to_string(r.exit) + "|" + r.err;
  });
  ASSERT_TRUE(b.started);
  ASSERT_FALSE(b.timedOut);
  ASSERT_TRUE(b.exited);
  EXPECT_EQ(b.out.substr(0, 2), "1|") << b.out;
  EXPECT_TRUE(Contains(b.out, "kpz: " + in +
                                  ": the preview cannot be turned upright: the JPEG declares "
                                  "9999x9999 pixels, too large for its "))
      << b.out;
  EXPECT_TRUE(Contains(b.out, " bytes of arithmetic-coded data; it is damaged, not turned\n"))
      << b.out;
  EXPECT_FALSE(std::filesystem::exists(At("bomb.jpg")));
}

}  // namespace

#else

TEST(KpzToolUpright, NeedsTheToolAndTheJpegLibraries) {
  GTEST_SKIP() << "the kpz tool or TurboJPEG/libjpeg for the tests is not built";
}

#endif
