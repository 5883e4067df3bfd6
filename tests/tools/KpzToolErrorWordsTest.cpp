// KpzToolErrorWordsTest.cpp - every command of the kpz tool, run as a program,
// gives the same words for the same failure of a file: info (standard error),
// info --json (the "error" field, with the library's result), preview,
// thumbnail and rotate. One case per result code a file can make the
// initialisation return, and for the layout codes one per kind of reason
// (every reason, in both byte orders, is in tests/raw/DtRawLayoutCheckTest.cpp);
// the codes only the fault seam can make are in
// tests/kit/kpz/KpzErrorTextTest.cpp, the pictures' and the orientation's
// own failures in KpzToolTest.cpp and KpzToolRotateTest.cpp.
#include <gtest/gtest.h>

#if defined(KPZ_TOOL) && defined(KPZ_SAMPLE) && defined(KPZ_MAKE_SAMPLE)

#include <nlohmann/json.hpp>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "KpzToolRunner.h"
#include "support/KpzFileBuilder.h"

namespace {

using Json = nlohmann::json;
using kpztest::Bytes;
using kpztest::KpzSpec;
using kpztool::Result;
using kpztool::Text;

// An ordinary TIFF as image libraries write it: 8 KiB, one directory at
// offset 8 whose next-directory offset is 0.
Bytes OrdinaryTiff(DtNlByteOrder order) {
  kpztest::Ifd ifd(order);
  ifd.AddShort(0x0100, 64).AddShort(0x0101, 64).AddShort(0x0102, 8).AddShort(0x0103, 1);
  ifd.AddShort(0x0106, 1).AddLong(0x0111, 256).AddLong(0x0116, 64).AddLong(0x0117, 4096);
  ifd.SetNext(0);
  kpztest::KpzFile file(order);
  file.Header(8).PlaceIfd(8, ifd).Place(256, kpztest::PatternBytes(4096, 3)).PadTo(8192);
  return file.Take();
}

struct Case {
  const char* name;
  // Makes the input in `dir` and returns its path (relative to `dir`).
  std::function<std::string(kpztest::TempDir&)> make;
  std::vector<int> results;  // the JSON results it may carry
  const char* words;
};

class KpzToolErrorWords : public testing::TestWithParam<Case> {
 protected:
  Result Run(const std::vector<std::string>& args) {
    return kpztool::RunTool(args, dir.Path(), dir.Path());
  }
  kpztest::TempDir dir;
};

TEST_P(KpzToolErrorWords, EveryCommandSaysTheSame) {
  const Case& c = GetParam();
  const std::string in = c.make(dir);
  const std::string line = "kpz: " + in + ": " + c.words + "\n";
  for (const std::vector<std::string>& args :
       std::vector<std::vector<std::string>>{{"info", in},
                                             {"preview", in, "-o", "p.jpg"},
                                             {"thumbnail", in, "-o", "t.jpg"},
                                             {"rotate", "--cw", in}}) {
    const Result r = Run(args);
    EXPECT_EQ(r.exit, 1) << args[0];
    EXPECT_EQ(r.err, line) << args[0];
    EXPECT_TRUE(r.out.empty()) << args[0];
  }
  const Result json = Run({"info", "--json", in});
  EXPECT_EQ(json.exit, 1);
  const Json j = Json::parse(Text(json.out), nullptr, false);
  ASSERT_FALSE(j.is_discarded()) << Text(json.out);
  EXPECT_EQ(j["error"], c.words);
  ASSERT_TRUE(j["result"].is_number_integer()) << j.dump();
  EXPECT_NE(std::find(c.results.begin(), c.results.end(), j["result"].get<int>()),
            c.results.end())
      << j.dump();
}

std::string Put(kpztest::TempDir& dir, const std::string& name, const Bytes& bytes) {
  dir.Write(name, bytes);
  return name;
}

INSTANTIATE_TEST_SUITE_P(
    EachCode, KpzToolErrorWords,
    testing::Values(
        Case{"NoTiffHeader",
             [](kpztest::TempDir& d) { return Put(d, "junk.kpz", Bytes(40, 'j')); },
             {-400}, "not a KPZ raw file (no TIFF header)"},
        Case{"NoMakerNote",
             [](kpztest::TempDir& d) {
               KpzSpec recipe;
               recipe.hasMakerNote = false;
               return Put(d, "plain.kpz", kpztest::BuildKpz(recipe));
             },
             {-101}, "not a KPZ raw file (no maker note)"},
        Case{"NoCameraModel",
             [](kpztest::TempDir& d) {
               KpzSpec recipe;
               recipe.model.reset();
               return Put(d, "nomodel.kpz", kpztest::BuildKpz(recipe));
             },
             {-101}, "not a KPZ raw file (no camera model)"},
        Case{"OrdinaryTiffLittleEndian",
             [](kpztest::TempDir& d) { return Put(d, "ii.tif", OrdinaryTiff(DtNlLittleEndian)); },
             {-305, -306, -307}, "not a KPZ raw file (only one directory, no second one after IFD0)"},
        Case{"OrdinaryTiffBigEndian",
             [](kpztest::TempDir& d) { return Put(d, "mm.tif", OrdinaryTiff(DtNlBigEndian)); },
             {-305, -306, -307}, "not a KPZ raw file (only one directory, no second one after IFD0)"},
        Case{"EmptyFile", [](kpztest::TempDir& d) { return Put(d, "empty.kpz", Bytes()); },
             {-400}, "not a KPZ raw file (the file is empty)"},
        Case{"FirstDirectoryBeyondTheHead",
             [](kpztest::TempDir& d) {
               KpzSpec recipe;
               recipe.ifd0Offset = 0x18000;
               recipe.minTotalSize = 0x20000;
               return Put(d, "far.kpz", kpztest::BuildKpz(recipe));
             },
             {-305, -306, -307}, "not a KPZ raw file (IFD0 lies beyond the first 64 KiB)"},
        Case{"ExifDirectoryPastTheEndOfTheFile",
             [](kpztest::TempDir& d) {
               KpzSpec recipe;
               recipe.exifPointer = 0x00FFFFF0;  // far beyond this small file
               return Put(d, "exif.kpz", kpztest::BuildKpz(recipe));
             },
             {-305, -306, -307},
             "not a KPZ raw file (the Exif directory lies past the end of the file)"},
        Case{"MakerNoteBeyondTheHead",
             [](kpztest::TempDir& d) {
               KpzSpec recipe;
               recipe.makerNotePointer = 0x12000;
               recipe.minTotalSize = 0x20000;
               return Put(d, "note.kpz", kpztest::BuildKpz(recipe));
             },
             {-305, -306, -307}, "not a KPZ raw file (the maker note lies beyond the first 64 KiB)"},
        Case{"MissingFile", [](kpztest::TempDir&) { return std::string("gone.kpz"); }, {-302},
             "file not found"}),

    [](const testing::TestParamInfo<Case>& p) { return std::string(p.param.name); });

}  // namespace

#else

TEST(KpzToolErrorWords, NeedsTheToolTheSampleAndItsGenerator) {
  GTEST_SKIP() << "the kpz tool is not built";
}

#endif
