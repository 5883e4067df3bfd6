// KpzToolRotateTest.cpp - `kpz rotate` run as a program: the composition
// table of turns and rotation codes as written to files, the whole file
// compared before and after, the modification time kept, read-only
// refusal, --dry-run, --code, usage errors and several files.
#include <gtest/gtest.h>

#if defined(KPZ_TOOL) && defined(KPZ_SAMPLE) && defined(KPZ_MAKE_SAMPLE)

#include <cstdint>
#include <string>
#include <vector>

#include "KpzToolRunner.h"
#include "support/KpzFileBuilder.h"
#include "support/KpzFileBuilderExtras.h"

namespace {

using kpztest::Bytes;
using kpztest::KpzLayout;
using kpztest::KpzSpec;
using kpztool::Result;
using kpztool::Text;

const std::time_t kAccess = 1200000000;
const std::time_t kModified = 1000000000;

// Exif orientation of each rotation code, and the words of each code.
const std::uint16_t kExifOf[8] = {1, 6, 3, 8, 2, 5, 4, 7};
const char* const kWords[8] = {"normal",
                               "rotated 90° clockwise",
                               "rotated 180°",
                               "rotated 90° counter-clockwise",
                               "mirrored horizontally",
                               "mirrored horizontally, rotated 90° counter-clockwise",
                               "mirrored vertically",
                               "mirrored horizontally, rotated 90° clockwise"};

class KpzToolRotate : public testing::Test {
 protected:
  std::string Make(const std::string& name, KpzSpec recipe) {
    order = recipe.order;
    image = kpztest::BuildKpz(recipe, &where);
    const std::string path = dir.Write(name, image);
    EXPECT_FALSE(path.empty());
    EXPECT_TRUE(kpztest::SetFileTimes(path, kAccess, kModified));
    return path;
  }
  Result Run(const std::vector<std::string>& args) {
    return kpztool::RunTool(args, dir.Path(), dir.Path());
  }
  std::uint16_t Orientation(const std::string& path, std::uint32_t ifdAt) const {
    const Bytes now = kpztest::ReadFileBytes(path);
    const std::uint32_t at = kpztest::TagValueOffset(image, order, ifdAt, kpztest::tag::kOrientation);
    if (at == 0 || now.size() < at + 2u) return 0;
    return order == DtNlBigEndian ? static_cast<std::uint16_t>(now[at] << 8 | now[at + 1])
                                  : static_cast<std::uint16_t>(now[at + 1] << 8 | now[at]);
  }
  Bytes WithOrientation(std::uint16_t exif) const {
    Bytes b = image;
    for (std::uint32_t ifd : {where.ifd0, where.ifd1}) {
      b = kpztest::Patched(b, kpztest::TagValueOffset(image, order, ifd, kpztest::tag::kOrientation),
                           kpztest::U16Bytes(exif, order));
    }
    return b;
  }

  kpztest::TempDir dir;
  DtNlByteOrder order = DtNlLittleEndian;
  Bytes image;
  KpzLayout where;
};

TEST_F(KpzToolRotate, CompositionTableOfEveryCodeAndTurn) {
  // [code][--cw, --ccw, --180]
  const int table[8][3] = {{1, 3, 2}, {2, 0, 3}, {3, 1, 0}, {0, 2, 1},
                           {7, 5, 6}, {4, 6, 7}, {5, 7, 4}, {6, 4, 5}};
  const char* const options[3] = {"--cw", "--ccw", "--180"};
  for (int code = 0; code < 8; ++code) {
    for (int t = 0; t < 3; ++t) {
      SCOPED_TRACE(std::to_string(code) + " " + options[t]);
      KpzSpec recipe;
      recipe.orientation = kExifOf[code];
      recipe.thumbnailOrientation = kExifOf[code];
      const std::string path = Make("c.kpz", recipe);
      const Result r = Run({"rotate", options[t], "c.kpz"});
      const int after = table[code][t];
      ASSERT_EQ(r.exit, 0) << r.err;
      EXPECT_EQ(r.err, "");
      EXPECT_EQ(Text(r.out), std::string("c.kpz: ") + kWords[code] + " -> " + kWords[after] + "\n");
      EXPECT_EQ(Orientation(path, where.ifd0), kExifOf[after]);
      EXPECT_EQ(Orientation(path, where.ifd1), kExifOf[after]);
    }
  }
}

TEST_F(KpzToolRotate, OnlyTheOrientationBytesChangeAndTheModificationTimeIsKept) {
  for (DtNlByteOrder o : {DtNlLittleEndian, DtNlBigEndian}) {
    KpzSpec recipe;
    recipe.order = o;
    recipe.minTotalSize = 0x14000;  // a file longer than the library's head copy
    const std::string path = Make(o == DtNlBigEndian ? "be.kpz" : "le.kpz", recipe);
    const Result r = Run({"rotate", path, "--cw"});
    ASSERT_EQ(r.exit, 0) << r.err;
    const Bytes now = kpztest::ReadFileBytes(path);
    EXPECT_EQ(now, WithOrientation(6));
    // Two bytes differ: the low byte of each orientation value (1 -> 6).
    std::size_t differ = 0;
    for (std::size_t i = 0; i < now.size() && i < image.size(); ++i) {
      if (now[i] != image[i]) ++differ;
    }
    EXPECT_EQ(differ, 2u);
    EXPECT_EQ(kpztest::GetFileTimes(path).modification, kModified);
  }
}

TEST_F(KpzToolRotate, ReadOnlyFileIsRefusedWithExit3AndLeftAlone) {
  const std::string path = Make("ro.kpz", KpzSpec());
  ASSERT_TRUE(kpztest::SetFileMode(path, 0444));
  const Result r = Run({"rotate", "--ccw", path});
  EXPECT_EQ(r.exit, 3);
  EXPECT_TRUE(r.out.empty());
  EXPECT_EQ(r.err,
            "kpz: " + path + ": the file is read-only (its owner may not write it); not changed\n");
  EXPECT_EQ(kpztest::ReadFileBytes(path), image);
  EXPECT_EQ(kpztest::FileMode(path), 0444);
  EXPECT_EQ(kpztest::GetFileTimes(path).modification, kModified);
}

TEST_F(KpzToolRotate, DryRunShowsTheChangeAndWritesNothing) {
  const std::string path = Make("d.kpz", KpzSpec());
  const Result r = Run({"rotate", "--180", "--dry-run", "d.kpz"});
  EXPECT_EQ(r.exit, 0) << r.err;
  EXPECT_EQ(Text(r.out), "d.kpz: normal -> rotated 180° (dry run, not written)\n");
  EXPECT_EQ(kpztest::ReadFileBytes(path), image);
  EXPECT_EQ(kpztest::GetFileTimes(path).modification, kModified);
  EXPECT_EQ(Run({"rotate", "-n", "--cw", "d.kpz"}).exit, 0);
  EXPECT_EQ(kpztest::ReadFileBytes(path), image);
}

TEST_F(KpzToolRotate, CodeSetsTheOrientationOutright) {
  const std::string path = Make("k.kpz", KpzSpec());
  Result r = Run({"rotate", "--code", "6", "k.kpz"});
  EXPECT_EQ(r.exit, 0) << r.err;
  EXPECT_EQ(Text(r.out), "k.kpz: normal -> mirrored vertically\n");
  EXPECT_EQ(kpztest::ReadFileBytes(path), WithOrientation(4));
  r = Run({"rotate", "--code", "6", "k.kpz"});
  EXPECT_EQ(Text(r.out), "k.kpz: mirrored vertically -> mirrored vertically (unchanged)\n");
}

TEST_F(KpzToolRotate, WrongChoicesAreUsageErrors) {
  const std::string path = Make("u.kpz", KpzSpec());
  const std::vector<std::vector<std::string>> cases = {
      {"rotate", path},
      {"rotate", "--cw", "--ccw", path},
      {"rotate", "--180", "--code", "1", path}};
  for (const auto& args : cases) {
    const Result r = Run(args);
    EXPECT_EQ(r.exit, 2);
    EXPECT_EQ(r.err, "kpz: rotate needs exactly one of --cw, --ccw, --180 or --code N\n");
  }
  for (const char* bad : {"8", "-1", "255"}) {
    const Result r = Run({"rotate", "--code", bad, path});
    EXPECT_EQ(r.exit, 2) << bad;
    EXPECT_EQ(r.err, "kpz: --code takes a rotation code from 0 to 7\n") << bad;
  }
  EXPECT_EQ(Run({"rotate", "--code", "x", path}).exit, 2);
  EXPECT_EQ(kpztest::ReadFileBytes(path), image);
}

TEST_F(KpzToolRotate, SeveralFilesInOrderWithASummaryAndTheHighestExitStatus) {
  const std::string a = Make("a.kpz", KpzSpec());
  const std::string ro = Make("ro.kpz", KpzSpec());
  ASSERT_TRUE(kpztest::SetFileMode(ro, 0444));
  const std::string text = dir.Write("t.kpz", Bytes(50, 'x'));
  const Result r = Run({"rotate", "--cw", "a.kpz", "t.kpz", "ro.kpz", "a.kpz"});
  EXPECT_EQ(r.exit, 3);
  // a.kpz named twice is turned twice.
  EXPECT_EQ(Text(r.out),
            "a.kpz: normal -> rotated 90° clockwise\n"
            "a.kpz: rotated 90° clockwise -> rotated 180°\n");
  EXPECT_EQ(r.err,
            "kpz: t.kpz: not a KPZ raw file (no TIFF header)\n"
            "kpz: ro.kpz: the file is read-only (its owner may not write it); not changed\n"
            "kpz: 4 files: 2 done, 2 failed\n"
            "kpz:   1 not a KPZ raw file (no TIFF header)\n"
            "kpz:   1 the file is read-only (its owner may not write it); not changed\n");
}

TEST_F(KpzToolRotate, FileWithoutOrientationIsAnInputProblem) {
  KpzSpec recipe;
  recipe.orientation.reset();
  const std::string path = Make("n.kpz", recipe);
  const Result r = Run({"rotate", "--cw", "n.kpz"});
  EXPECT_EQ(r.exit, 1);
  EXPECT_EQ(r.err, "kpz: n.kpz: no orientation recorded in this file; it cannot be set in place\n");
  EXPECT_EQ(kpztest::ReadFileBytes(path), image);
}

TEST_F(KpzToolRotate, AnIfd0DateTimeAtANegativeOffsetIsRefusedAndTheFileLeftAlone) {
  // IFD0's date and time claimed at 2 GiB (negative as a signed 32-bit
  // offset), IFD1's different: once, the TIFF header was copied over the
  // thumbnail's date and time and the run said it had succeeded.
  for (const std::uint32_t offset : {0x80000000u, 0xFFFFFFFFu}) {
    KpzSpec recipe;
    recipe.thumbnailDateTime = "2001:01:01 00:00:00";
    recipe.editIfd0 = [offset](kpztest::Ifd& ifd) {
      ifd.ReplaceRaw(kpztest::tag::kDateTime, 2, 20, offset);
    };
    const std::string path = Make("d.kpz", recipe);
    const Result r = Run({"rotate", "--cw", "d.kpz"});
    EXPECT_EQ(r.exit, 3);
    EXPECT_TRUE(r.out.empty());
    EXPECT_EQ(r.err,
              "kpz: d.kpz: the date and time to be copied to the thumbnail's (IFD0's date and "
              "time, 20 bytes at byte " +
                  std::to_string(offset) + ") lies past the end of the file (" +
                  std::to_string(image.size()) + " bytes); not changed\n");
    EXPECT_EQ(kpztest::ReadFileBytes(path), image);
    EXPECT_EQ(kpztest::GetFileTimes(path).modification, kModified);
  }
}

TEST_F(KpzToolRotate, DirectoryIsNotAKpzFile) {
  const Result r = Run({"rotate", "--cw", dir.Path()});
  EXPECT_EQ(r.exit, 1);
  EXPECT_EQ(r.err, "kpz: " + dir.Path() + ": is a directory, not a KPZ raw file\n");
}

}  // namespace

#else

TEST(KpzToolRotate, NeedsTheToolTheSampleAndItsGenerator) {
  GTEST_SKIP() << "the kpz tool is not built";
}

#endif
