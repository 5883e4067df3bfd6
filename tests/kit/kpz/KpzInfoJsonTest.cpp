// KpzInfoJsonTest.cpp - the kpz tool's `info --json` object (kit/kpz/
// KpzInfoJson), parsed back with nlohmann-json: key names and order, raw
// numbers, result codes, nulls for absent values, failed files, texts.
#include <gtest/gtest.h>

#if defined(KPZ_TEST_HAVE_KIT)

#include "kpz/KpzInfoJson.h"

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace {

using Json = nlohmann::ordered_json;

template <typename T>
KpzMetadata::Value<T> Ok(const T& v) {
  KpzMetadata::Value<T> x;
  x.result = 0;
  x.value = v;
  return x;
}

KpzMetadata Record() {
  KpzMetadata md;
  md.file = "dir/a.kpz";
  md.initialized = true;
  md.make = Ok<std::string>("KAVI");
  md.model = Ok<std::string>("DSLR-M100");
  DtRawDateTime dt;
  dt.m_year = 2010;
  dt.m_month = 5;
  dt.m_day = 1;
  dt.m_hour = 12;
  dt.m_minute = 34;
  dt.m_second = 56;
  md.dateTimeOriginal = Ok(dt);
  KpzMetadata::Fraction f;
  f.numerator = 1;
  f.denominator = 250;
  md.exposureTime = Ok(f);
  f.numerator = 56;
  f.denominator = 10;
  md.fNumber = Ok(f);
  md.isoSpeed = Ok<UINT16>(200);
  KpzMetadata::SignedFraction s;
  s.numerator = -1;
  s.denominator = 3;
  md.exposureBias = Ok(s);
  md.exposureProgram = Ok<UINT8>(2);
  f.numerator = 500;
  f.denominator = 10;
  md.focalLength = Ok(f);
  f.numerator = 75;
  f.denominator = 1;
  md.focalLength35mm = Ok(f);
  DtRawFlashInfo flash;
  flash.m_fired = 1;
  flash.m_return = 2;
  flash.m_mode = 3;
  flash.m_function = 0;
  flash.m_redEye = 1;
  md.flash = Ok(flash);
  md.rotation = Ok<UINT8>(1);
  md.rawImageWidth = Ok<UINT16>(6000);
  md.rawImageHeight = Ok<UINT16>(4000);
  md.colorSpace = Ok<std::int16_t>(-1);
  md.customRendered = Ok<std::int16_t>(0);
  md.exifVersion = Ok<UINT16>(230);
  md.iobVersion = Ok<UINT16>(100);
  md.iobIndex = Ok(std::string("R98\0", 4));
  md.t593Mode = Ok<UINT8>(0);
  DtRawScreennailInfo p;
  p.m_fileOffset = 4096;
  p.m_size = 3000;
  p.m_horizon = 1616;
  p.m_vertical = 1080;
  md.screennail = Ok(p);
  DtRawThumbnailInfo t;
  t.m_fileOffset = 538;
  t.m_size = 339;
  t.m_compression = 6;
  t.m_rotation = 3;
  md.thumbnail = Ok(t);
  return md;
}

Json Parse(const std::string& line) {
  EXPECT_FALSE(line.empty());
  EXPECT_EQ(line.back(), '\n');
  EXPECT_EQ(line.find('\n'), line.size() - 1);  // one line
  return Json::parse(line, nullptr, /*allow_exceptions=*/false);
}

TEST(KpzInfoJson, KeysComeInTheDocumentedOrder) {
  const Json j = Parse(KpzInfoJson::Line(Record()));
  ASSERT_TRUE(j.is_object());
  std::vector<std::string> keys;
  for (auto it = j.begin(); it != j.end(); ++it) {
    keys.push_back(it.key());
  }
  EXPECT_EQ(keys, (std::vector<std::string>{
                      "file",          "result",          "error",         "make",
                      "model",         "dateTimeOriginal", "exposureTime", "fNumber",
                      "isoSpeed",      "exposureBias",    "exposureProgram", "focalLength",
                      "focalLength35mm", "flash",          "rotation",      "upright",
                      "rawImageWidth",
                      "rawImageHeight", "colorSpace",      "customRendered", "exifVersion",
                      "iobVersion",    "iobIndex",        "t593Mode",      "screennail",
                      "thumbnail"}));
}

TEST(KpzInfoJson, EveryValueIsItsRawNumberWithItsResult) {
  const std::string line = KpzInfoJson::Line(Record());
  const std::string expected =
      R"({"file":"dir/a.kpz","result":0,"error":null,)"
      R"("make":{"result":0,"value":"KAVI"},"model":{"result":0,"value":"DSLR-M100"},)"
      R"("dateTimeOriginal":{"result":0,"year":2010,"month":5,"day":1,"hour":12,"minute":34,"second":56},)"
      R"("exposureTime":{"result":0,"numerator":1,"denominator":250},)"
      R"("fNumber":{"result":0,"numerator":56,"denominator":10},)"
      R"("isoSpeed":{"result":0,"value":200},)"
      R"("exposureBias":{"result":0,"numerator":-1,"denominator":3},)"
      R"("exposureProgram":{"result":0,"value":2},)"
      R"("focalLength":{"result":0,"numerator":500,"denominator":10},)"
      R"("focalLength35mm":{"result":0,"numerator":75,"denominator":1},)"
      R"("flash":{"result":0,"fired":1,"return":2,"mode":3,"function":0,"redEye":1},)"
      R"("rotation":{"result":0,"code":1,"exifOrientation":6},)"
      R"("upright":{"code":1,"turn":"90° clockwise"},)"
      R"("rawImageWidth":{"result":0,"value":6000},"rawImageHeight":{"result":0,"value":4000},)"
      R"("colorSpace":{"result":0,"value":-1},"customRendered":{"result":0,"value":0},)"
      R"("exifVersion":{"result":0,"value":230},"iobVersion":{"result":0,"value":100},)"
      R"("iobIndex":{"result":0,"value":"R98","size":4},"t593Mode":{"result":0,"value":0},)"
      R"("screennail":{"result":0,"offset":4096,"size":3000,"width":1616,"height":1080},)"
      R"("thumbnail":{"result":0,"offset":538,"size":339,"compression":6,"rotation":3}})"
      "\n";
  EXPECT_EQ(line, expected);
}

TEST(KpzInfoJson, AbsentValuesAreNullWithTheirResultNeverZero) {
  KpzMetadata md = Record();
  md.isoSpeed = KpzMetadata::Value<UINT16>();
  md.isoSpeed.result = -100;
  md.exposureTime = KpzMetadata::Value<KpzMetadata::Fraction>();
  md.exposureTime.result = -402;
  md.flash = KpzMetadata::Value<DtRawFlashInfo>();
  md.flash.result = -100;
  md.make = KpzMetadata::Value<std::string>();
  md.make.result = -100;
  md.screennail = KpzMetadata::Value<DtRawScreennailInfo>();
  md.screennail.result = -100;
  const Json j = Parse(KpzInfoJson::Line(md));
  EXPECT_EQ(j["isoSpeed"], Json::parse(R"({"result":-100,"value":null})"));
  EXPECT_EQ(j["exposureTime"],
            Json::parse(R"({"result":-402,"numerator":null,"denominator":null})"));
  EXPECT_EQ(j["flash"], Json::parse(R"({"result":-100,"fired":null,"return":null,)"
                                    R"("mode":null,"function":null,"redEye":null})"));
  EXPECT_EQ(j["make"], Json::parse(R"({"result":-100,"value":null})"));
  EXPECT_EQ(j["screennail"], Json::parse(R"({"result":-100,"offset":null,"size":null,)"
                                         R"("width":null,"height":null})"));
}

TEST(KpzInfoJson, FileThatCannotBeOpenedHasOnlyItsNameResultAndError) {
  KpzMetadata md;
  md.file = "gone.kpz";
  md.initialized = true;
  md.initResult = -302;
  md.error = "file not found";
  EXPECT_EQ(KpzInfoJson::Line(md),
            "{\"file\":\"gone.kpz\",\"result\":-302,\"error\":\"file not found\"}\n");
  md.initialized = false;  // a directory: never opened
  md.error = "is a directory, not a KPZ raw file";
  EXPECT_EQ(KpzInfoJson::Line(md),
            "{\"file\":\"gone.kpz\",\"result\":null,"
            "\"error\":\"is a directory, not a KPZ raw file\"}\n");
}

TEST(KpzInfoJson, TextsEndAtTheirFirstZeroAndBadUtf8IsReplaced) {
  KpzMetadata md = Record();
  md.make = Ok(std::string("KA\xFFVI", 5));
  md.model = Ok(std::string("M\0junk", 6));
  md.iobIndex = Ok(std::string("\0\0", 2));
  md.file = "caf\xC3\xA9 \"q\".kpz";
  const Json j = Parse(KpzInfoJson::Line(md));
  ASSERT_TRUE(j.is_object());
  EXPECT_EQ(j["make"]["value"], "KA\xEF\xBF\xBDVI");
  EXPECT_EQ(j["model"]["value"], "M");
  EXPECT_EQ(j["iobIndex"]["value"], "");
  EXPECT_EQ(j["iobIndex"]["size"], 2);
  EXPECT_EQ(j["file"], "caf\xC3\xA9 \"q\".kpz");
}

}  // namespace

#else

TEST(KpzInfoJson, NeedsTheKpzTool) { GTEST_SKIP() << "the kpz tool is not built"; }

#endif
