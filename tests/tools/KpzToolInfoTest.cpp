// KpzToolInfoTest.cpp - `kpz info` run as a program: the JSON of the bundled
// sample and of generated files of both byte orders compared field by field
// with what the library's getters return (called here, in process), JSON
// Lines validity, the text table, failures and exit codes.
#include <gtest/gtest.h>

#if defined(KPZ_TOOL) && defined(KPZ_SAMPLE) && defined(KPZ_MAKE_SAMPLE)

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

#include "KpzToolRunner.h"
#include "raw/DtRaw.h"
#include "support/KpzFileBuilder.h"
#include "support/LogExpect.h"

namespace {

using Json = nlohmann::json;
using kpztest::Bytes;
using kpztest::KpzLayout;
using kpztest::KpzSpec;
using kpztool::Lines;
using kpztool::Result;
using kpztool::Text;

// `got` is {"result": result, <fields>}: the fields as given when result is
// 0, null otherwise, and nothing else.
void Check(const Json& got, const char* name, int result, const Json& fields) {
  SCOPED_TRACE(name);
  ASSERT_TRUE(got.is_object()) << got;
  EXPECT_EQ(got.size(), fields.size() + 1) << got;
  EXPECT_EQ(got["result"], result);
  for (auto it = fields.begin(); it != fields.end(); ++it) {
    ASSERT_TRUE(got.contains(it.key())) << it.key();
    if (result == 0) {
      EXPECT_EQ(got[it.key()], it.value()) << it.key();
    } else {
      EXPECT_TRUE(got[it.key()].is_null()) << it.key() << " " << got;
    }
  }
}

// Compares the tool's object for `path` with the getters of a DtRaw of our own.
void ExpectMatchesTheGetters(const Json& j, const std::string& path) {
  DtRaw raw;
  int init = 0;
  kpztest::CaptureStderr([&] { init = raw.Initialize(path.c_str()); });
  ASSERT_EQ(init, 0);
  EXPECT_EQ(j["file"], path);
  EXPECT_EQ(j["result"], 0);
  EXPECT_TRUE(j["error"].is_null());
  kpztest::CaptureStderr([&] {
    char name[256] = {};
    int r = raw.GetMakerName(name, sizeof name);
    Check(j["make"], "make", r, {{"value", std::string(name)}});
    r = raw.GetModelName(name, sizeof name);
    Check(j["model"], "model", r, {{"value", std::string(name)}});

    DtRawDateTime dt;
    r = raw.GetOrgDateTime(&dt);
    Check(j["dateTimeOriginal"], "dateTimeOriginal", r,
          {{"year", dt.m_year}, {"month", dt.m_month}, {"day", dt.m_day}, {"hour", dt.m_hour},
           {"minute", dt.m_minute}, {"second", dt.m_second}});

    const struct {
      const char* key;
      int (DtRaw::*getter)(unsigned int*, unsigned int*);
    } fractions[] = {{"exposureTime", &DtRaw::GetExposureTime},
                     {"fNumber", &DtRaw::GetFNumber},
                     {"focalLength", &DtRaw::GetRealFocalLength},
                     {"focalLength35mm", &DtRaw::Get35mmFocalLength}};
    for (const auto& f : fractions) {
      unsigned int num = 0;
      unsigned int den = 0;
      r = (raw.*f.getter)(&num, &den);
      Check(j[f.key], f.key, r, {{"numerator", num}, {"denominator", den}});
    }
    int sNum = 0;
    int sDen = 0;
    r = raw.GetExposureBias(&sNum, &sDen);
    Check(j["exposureBias"], "exposureBias", r, {{"numerator", sNum}, {"denominator", sDen}});

    unsigned short u16 = 0;
    r = raw.GetISOSpeed(&u16);
    Check(j["isoSpeed"], "isoSpeed", r, {{"value", u16}});
    r = raw.GetRawImageWidth(&u16);
    Check(j["rawImageWidth"], "rawImageWidth", r, {{"value", u16}});
    r = raw.GetRawImageHeight(&u16);
    Check(j["rawImageHeight"], "rawImageHeight", r, {{"value", u16}});
    r = raw.GetExifVersion(&u16);
    Check(j["exifVersion"], "exifVersion", r, {{"value", u16}});
    r = raw.GetIobVersion(&u16);
    Check(j["iobVersion"], "iobVersion", r, {{"value", u16}});

    short s16 = 0;
    r = raw.GetColorSpace(&s16);
    Check(j["colorSpace"], "colorSpace", r, {{"value", s16}});
    r = raw.GetCustomRendered(&s16);
    Check(j["customRendered"], "customRendered", r, {{"value", s16}});

    unsigned char u8 = 0;
    r = raw.GetExposureProgram(&u8);
    Check(j["exposureProgram"], "exposureProgram", r, {{"value", u8}});
    r = raw.GetT593Mode(&u8);
    Check(j["t593Mode"], "t593Mode", r, {{"value", u8}});
    r = raw.GetRotationInfo(&u8);
    Check(j["rotation"], "rotation", r,
          {{"code", u8}, {"exifOrientation", DtRaw::convRotInfoUsetoStd(u8)}});
    // What --upright applies: the rotation code, or 0 without one.
    EXPECT_EQ(j["upright"]["code"], r == 0 ? u8 : 0) << path;
    EXPECT_EQ(j["upright"]["turn"].is_null(), r != 0 || u8 == 0) << path;

    DtRawFlashInfo flash;
    r = raw.GetFlashInfo(&flash);
    Check(j["flash"], "flash", r,
          {{"fired", flash.m_fired}, {"return", flash.m_return}, {"mode", flash.m_mode},
           {"function", flash.m_function}, {"redEye", flash.m_redEye}});

    const char* index = nullptr;
    int indexSize = 0;
    r = raw.GetIobIndex(&index, &indexSize);
    std::string indexText;
    if (r == 0) {
      indexText.assign(index, static_cast<std::size_t>(indexSize));
      indexText = indexText.substr(0, indexText.find('\0'));
    }
    Check(j["iobIndex"], "iobIndex", r, {{"value", indexText}, {"size", indexSize}});

    DtRawScreennailInfo scn;
    r = raw.GetScreennailInfo(&scn);
    Check(j["screennail"], "screennail", r,
          {{"offset", scn.m_fileOffset}, {"size", scn.m_size}, {"width", scn.m_horizon},
           {"height", scn.m_vertical}});
    DtRawThumbnailInfo thumb;
    r = raw.GetThumbnailInfo(&thumb);
    Check(j["thumbnail"], "thumbnail", r,
          {{"offset", thumb.m_fileOffset}, {"size", thumb.m_size},
           {"compression", thumb.m_compression}, {"rotation", thumb.m_rotation}});
  });
  EXPECT_EQ(j.size(), 26u);
}

class KpzToolInfo : public testing::Test {
 protected:
  std::string Write(const std::string& name, const KpzSpec& recipe, KpzLayout* where = nullptr) {
    const std::string path = dir.Write(name, kpztest::BuildKpz(recipe, where));
    EXPECT_FALSE(path.empty());
    return path;
  }
  Result Run(const std::vector<std::string>& args) {
    return kpztool::RunTool(args, dir.Path(), dir.Path());
  }
  // Every line of standard output parsed; fails on a line that is not JSON.
  std::vector<Json> JsonLines(const Result& r) {
    std::vector<Json> objects;
    const std::string out = Text(r.out);
    EXPECT_TRUE(out.empty() || out.back() == '\n');
    for (const std::string& line : Lines(out)) {
      objects.push_back(Json::parse(line, nullptr, false));
      EXPECT_FALSE(objects.back().is_discarded()) << line;
    }
    return objects;
  }

  kpztest::TempDir dir;
};

// A recipe that sets every value to something other than the builder's default.
KpzSpec Unusual(DtNlByteOrder order) {
  KpzSpec recipe;
  recipe.order = order;
  recipe.make = "KAVI Corporation";
  recipe.orientation = 8;
  recipe.thumbnailOrientation = 5;
  recipe.dateTimeOriginal = "2019 07 04 08:09:10";
  recipe.exposureTime = std::make_pair(3u, 2u);  // 1.5 s: the library reports 1/0
  recipe.fNumber = std::make_pair(71u, 10u);
  recipe.isoSpeed = 3200;
  recipe.exposureBias = std::make_pair(-7, 10);
  recipe.exposureProgram = 7;
  recipe.focalLength = std::make_pair(2400u, 100u);
  recipe.focalLength35 = 36;
  recipe.flash = 0x4F;
  recipe.colorSpace = 0xFFFF;
  recipe.customRendered = 1;
  recipe.pixelX = 65535;
  recipe.pixelY = 1;
  recipe.exifVersion = "0231";
  recipe.iobIndex = "THM";
  recipe.thumbnailCompression = 1;
  recipe.scnHeightWidth = std::make_pair(480u, 640u);
  return recipe;
}

TEST_F(KpzToolInfo, JsonOfTheBundledSampleMatchesTheGetters) {
  const Result r = Run({"info", "--json"});
  ASSERT_EQ(r.exit, 0) << r.err;
  EXPECT_EQ(r.err, "");
  const std::vector<Json> objects = JsonLines(r);
  ASSERT_EQ(objects.size(), 1u);
  ExpectMatchesTheGetters(objects[0], KPZ_SAMPLE);
}

TEST_F(KpzToolInfo, JsonOfGeneratedFilesOfBothByteOrdersMatchesTheGetters) {
  const std::string le = Write("le.kpz", Unusual(DtNlLittleEndian));
  const std::string be = Write("be.kpz", Unusual(DtNlBigEndian));
  KpzSpec plain;
  plain.order = DtNlBigEndian;
  const std::string def = Write("def.kpz", plain);
  const Result r = Run({"info", "--json", le, be, def});
  ASSERT_EQ(r.exit, 0) << r.err;
  const std::vector<Json> objects = JsonLines(r);
  ASSERT_EQ(objects.size(), 3u);
  ExpectMatchesTheGetters(objects[0], le);
  ExpectMatchesTheGetters(objects[1], be);
  ExpectMatchesTheGetters(objects[2], def);
  // Spot checks that the comparison compared something.
  EXPECT_EQ(objects[1]["isoSpeed"]["value"], 3200);
  EXPECT_EQ(objects[1]["exposureTime"]["numerator"], 1);
  EXPECT_EQ(objects[1]["exposureTime"]["denominator"], 0);
  EXPECT_EQ(objects[1]["rotation"]["code"], 3);
  EXPECT_EQ(objects[1]["colorSpace"]["value"], -1);
}

TEST_F(KpzToolInfo, AbsentValuesAreNullWithTheirCodeAndMatchTheGetters) {
  KpzSpec recipe;
  recipe.order = DtNlBigEndian;
  recipe.isoSpeed.reset();
  recipe.flash.reset();
  recipe.exposureTime.reset();
  recipe.iobIndex.reset();
  recipe.exifVersion = "x230";
  recipe.editExif = [](kpztest::Ifd& ifd) {
    ifd.Replace(kpztest::tag::kFNumber, kpztest::kTiffRational, 2,
                kpztest::U32sBytes({28, 10, 28, 10}, ifd.Order()));
  };
  const std::string path = Write("a.kpz", recipe);
  const Result r = Run({"info", "--json", path});
  ASSERT_EQ(r.exit, 0) << r.err;
  const std::vector<Json> objects = JsonLines(r);
  ASSERT_EQ(objects.size(), 1u);
  ExpectMatchesTheGetters(objects[0], path);
  EXPECT_EQ(objects[0]["isoSpeed"], Json::parse(R"({"result":-100,"value":null})"));
  EXPECT_EQ(objects[0]["exifVersion"], Json::parse(R"({"result":-401,"value":null})"));
  EXPECT_EQ(objects[0]["fNumber"]["result"], -402);
}

TEST_F(KpzToolInfo, EveryFileGetsOneLineInInputOrderAndFailuresSayWhy) {
  const std::string a = Write("a.kpz", KpzSpec());
  const std::string text = dir.Write("t.kpz", Bytes(100, 'x'));
  const std::string gone = dir.Path() + "/gone.kpz";
  const Result r = Run({"info", "--json", "-j", "3", text, a, gone, a});
  EXPECT_EQ(r.exit, 1);
  const std::vector<Json> objects = JsonLines(r);
  ASSERT_EQ(objects.size(), 4u);
  EXPECT_EQ(objects[0], Json::parse(R"({"file":")" + text +
                                    R"j(","result":-400,"error":"not a KPZ raw file (no TIFF header)"})j"));
  ExpectMatchesTheGetters(objects[1], a);
  EXPECT_EQ(objects[2], Json::parse(R"({"file":")" + gone +
                                    R"(","result":-302,"error":"file not found"})"));
  ExpectMatchesTheGetters(objects[3], a);
  EXPECT_EQ(r.err, "kpz: " + text + ": not a KPZ raw file (no TIFF header)\n"
                   "kpz: " + gone + ": file not found\n"
                   "kpz: 4 files: 2 done, 2 failed\n"
                   "kpz:   1 file not found\n"
                   "kpz:   1 not a KPZ raw file (no TIFF header)\n");
}

TEST_F(KpzToolInfo, TableOfAGeneratedFile) {
  KpzLayout where;
  const std::string path = Write("u.kpz", Unusual(DtNlBigEndian), &where);
  const Result r = Run({"info", path});
  ASSERT_EQ(r.exit, 0) << r.err;
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(Text(r.out),
            path + "\n"
            "  Maker             KAVI Corporation\n"
            "  Model             DSLR-M100\n"
            "  Date taken        2019-07-04 08:09:10\n"
            "  Exposure time     1/0 s (longer than 1 s; the exact time is not kept)\n"
            "  F-number          f/7.1\n"
            "  ISO               3200\n"
            "  Exposure bias     -0.7 EV\n"
            "  Exposure program  portrait mode\n"
            "  Focal length      24 mm (36 mm in 35 mm film)\n"
            "  Flash             fired, compulsory flash firing, return light detected, "
            "red-eye reduction\n"
            "  Orientation       rotated 90° counter-clockwise (--upright turns the preview 90° "
            "counter-clockwise)\n"
            "  Raw image size    65535 x 1 pixels\n"
            "  Colour space      uncalibrated\n"
            "  Custom rendered   custom process\n"
            "  Exif version      2.31\n"
            "  Iob version       1.00\n"
            "  Iob index         THM\n"
            "  T593 mode         0\n"
            "  Preview           64 bytes at offset " + std::to_string(where.screennail) +
            ", 640 x 480 pixels\n"
            "  Thumbnail         32 bytes at offset " + std::to_string(where.thumbnail) +
            ", uncompressed (compression 1)\n");
}

TEST_F(KpzToolInfo, AbsentValuesReadNotRecordedInTheTable) {
  KpzSpec recipe;
  recipe.isoSpeed.reset();
  recipe.orientation.reset();
  recipe.ifd0ScreennailTags = false;
  const std::string path = Write("n.kpz", recipe);
  const Result r = Run({"info", path});
  ASSERT_EQ(r.exit, 0) << r.err;
  const std::string out = Text(r.out);
  for (const char* line : {"  ISO               not recorded\n",
                           "  Orientation       not recorded\n",
                           "  Preview           not recorded\n"}) {
    EXPECT_NE(out.find(line), std::string::npos) << line << out;
  }
}

TEST_F(KpzToolInfo, TablesOfSeveralFilesAreSeparatedByABlankLine) {
  const std::string a = Write("a.kpz", KpzSpec());
  const std::string gone = dir.Path() + "/gone.kpz";
  const Result one = Run({"info", a});
  const Result r = Run({"info", a, gone, a});
  EXPECT_EQ(r.exit, 1);
  EXPECT_EQ(Text(r.out), Text(one.out) + "\n" + Text(one.out));
  EXPECT_EQ(r.err, "kpz: " + gone + ": file not found\n"
                   "kpz: 3 files: 2 done, 1 failed\n"
                   "kpz:   1 file not found\n");
}

TEST_F(KpzToolInfo, WithoutFileTheBundledSampleIsShown) {
  const Result r = Run({"info"});
  ASSERT_EQ(r.exit, 0) << r.err;
  EXPECT_EQ(Text(r.out).find(std::string(KPZ_SAMPLE) + "\n  Maker             KAVI\n"), 0u)
      << Text(r.out);
}

TEST_F(KpzToolInfo, OneMissingFileIsExit1WithoutSummary) {
  const std::string gone = dir.Path() + "/gone.kpz";
  const Result r = Run({"info", gone});
  EXPECT_EQ(r.exit, 1);
  EXPECT_TRUE(r.out.empty());
  EXPECT_EQ(r.err, "kpz: " + gone + ": file not found\n");
}

TEST_F(KpzToolInfo, VerboseShowsTheLibraryLines) {
  // A file the tool opens and the library parses (a missing one is not
  // handed to the library at all: the tool's own open says so).
  const std::string bad = dir.Write("x.kpz", Bytes(100, 'x'));
  const Result quiet = Run({"info", bad});
  const Result loud = Run({"info", "-v", bad});
  EXPECT_EQ(quiet.err, "kpz: " + bad + ": not a KPZ raw file (no TIFF header)\n");
  EXPECT_NE(loud.err.find("INFO [jni/raw/DtRawEng.cpp::Parse:106]: [DtRawEng::Parse]: Not TIFF "
                          "Byteorder err!!"),
            std::string::npos)
      << loud.err;
}

}  // namespace

#else

TEST(KpzToolInfo, NeedsTheToolTheSampleAndItsGenerator) {
  GTEST_SKIP() << "the kpz tool is not built";
}

#endif
