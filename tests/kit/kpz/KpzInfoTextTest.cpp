// KpzInfoTextTest.cpp - the kpz tool's `info` table (kit/kpz/KpzInfoText):
// each value's words and units, odd fractions, absent values, and the whole
// table of one record.
#include <gtest/gtest.h>

#if defined(KPZ_TEST_HAVE_KIT)

#include "kpz/KpzInfoText.h"

#include <cstdint>
#include <limits>
#include <string>

namespace {

using Fraction = KpzMetadata::Fraction;
using SignedFraction = KpzMetadata::SignedFraction;

Fraction F(UINT32 n, UINT32 d) {
  Fraction f;
  f.numerator = n;
  f.denominator = d;
  return f;
}

SignedFraction S(INT32 n, INT32 d) {
  SignedFraction f;
  f.numerator = n;
  f.denominator = d;
  return f;
}

template <typename T>
KpzMetadata::Value<T> Ok(const T& v) {
  KpzMetadata::Value<T> x;
  x.result = 0;
  x.value = v;
  return x;
}

template <typename T>
KpzMetadata::Value<T> Failed(int result) {
  KpzMetadata::Value<T> x;
  x.result = result;
  return x;
}

TEST(KpzInfoText, AbsentIsNotRecordedOtherFailuresAreUnreadable) {
  EXPECT_EQ(KpzInfoText::Absent(-100), "not recorded");
  EXPECT_EQ(KpzInfoText::Absent(-201), "unreadable (error -201)");
  EXPECT_EQ(KpzInfoText::Absent(-200), "unreadable (error -200)");
}

TEST(KpzInfoText, ValueInTheWrongFormIsSaidToBeRecordedButNotShown) {
  EXPECT_EQ(KpzInfoText::Absent(-402), "recorded in an unexpected form, not shown (error -402)");
}

TEST(KpzInfoText, VersionThatIsNotFourDigitsIsSaidSo) {
  EXPECT_EQ(KpzInfoText::Absent(-401), "recorded, but not as four digits (error -401)");
  EXPECT_EQ(KpzInfoText::Absent(-403), "recorded, but not as four digits (error -403)");
}

TEST(KpzInfoText, DecimalRoundsHalfUpAndDropsTrailingZeros) {
  EXPECT_EQ(KpzInfoText::Decimal(28, 10, 2), "2.8");
  EXPECT_EQ(KpzInfoText::Decimal(8, 1, 2), "8");
  EXPECT_EQ(KpzInfoText::Decimal(80, 10, 2), "8");
  EXPECT_EQ(KpzInfoText::Decimal(95, 100, 2), "0.95");
  EXPECT_EQ(KpzInfoText::Decimal(1, 3, 2), "0.33");
  EXPECT_EQ(KpzInfoText::Decimal(2, 3, 2), "0.67");
  EXPECT_EQ(KpzInfoText::Decimal(1, 200, 2), "0.01");  // 0.005 rounds up
  EXPECT_EQ(KpzInfoText::Decimal(1, 201, 2), "0");
  EXPECT_EQ(KpzInfoText::Decimal(101, 100, 2), "1.01");
  EXPECT_EQ(KpzInfoText::Decimal(7, 2, 0), "4");
  EXPECT_EQ(KpzInfoText::Decimal(0xFFFFFFFFu, 1, 2), "4294967295");
  EXPECT_EQ(KpzInfoText::Decimal(1, 0, 2), "?");
}

TEST(KpzInfoText, ExposureTimeInTheUsualForms) {
  EXPECT_EQ(KpzInfoText::ExposureTime(F(1, 250)), "1/250 s");
  EXPECT_EQ(KpzInfoText::ExposureTime(F(1, 1)), "1 s");
  EXPECT_EQ(KpzInfoText::ExposureTime(F(2, 1)), "2 s");
  EXPECT_EQ(KpzInfoText::ExposureTime(F(0, 100)), "0 s");
  EXPECT_EQ(KpzInfoText::ExposureTime(F(5, 2)), "2.5 s");
  EXPECT_EQ(KpzInfoText::ExposureTime(F(10, 600)), "1/60 s");
  EXPECT_EQ(KpzInfoText::ExposureTime(F(3, 4)), "3/4 s");
}

TEST(KpzInfoText, ExposureTimeWithAZeroDenominatorIsHonest) {
  EXPECT_EQ(KpzInfoText::ExposureTime(F(1, 0)),
            "1/0 s (longer than 1 s; the exact time is not kept)");
  EXPECT_EQ(KpzInfoText::ExposureTime(F(5, 0)), "5/0 s (not a valid time)");
  EXPECT_EQ(KpzInfoText::ExposureTime(F(0, 0)), "0/0 s (not a valid time)");
}

TEST(KpzInfoText, FNumberWithOneOrTwoDecimals) {
  EXPECT_EQ(KpzInfoText::FNumber(F(8, 1)), "f/8");
  EXPECT_EQ(KpzInfoText::FNumber(F(56, 10)), "f/5.6");
  EXPECT_EQ(KpzInfoText::FNumber(F(28, 10)), "f/2.8");
  EXPECT_EQ(KpzInfoText::FNumber(F(110, 10)), "f/11");
  EXPECT_EQ(KpzInfoText::FNumber(F(95, 100)), "f/0.95");
  EXPECT_EQ(KpzInfoText::FNumber(F(28, 0)), "not a valid value (28/0)");
}

TEST(KpzInfoText, IsoIsTheNumber) {
  EXPECT_EQ(KpzInfoText::Iso(200), "200");
  EXPECT_EQ(KpzInfoText::Iso(65535), "65535");
}

TEST(KpzInfoText, ExposureBiasInThirdsHalvesAndDecimals) {
  EXPECT_EQ(KpzInfoText::ExposureBias(S(-1, 3)), "-1/3 EV");
  EXPECT_EQ(KpzInfoText::ExposureBias(S(-2, 6)), "-1/3 EV");
  EXPECT_EQ(KpzInfoText::ExposureBias(S(4, 3)), "+1 1/3 EV");
  EXPECT_EQ(KpzInfoText::ExposureBias(S(-5, 3)), "-1 2/3 EV");
  EXPECT_EQ(KpzInfoText::ExposureBias(S(1, 2)), "+1/2 EV");
  EXPECT_EQ(KpzInfoText::ExposureBias(S(6, 3)), "+2 EV");
  EXPECT_EQ(KpzInfoText::ExposureBias(S(0, 3)), "0 EV");
  EXPECT_EQ(KpzInfoText::ExposureBias(S(-3, 10)), "-0.3 EV");
  EXPECT_EQ(KpzInfoText::ExposureBias(S(7, 100)), "+0.07 EV");
  EXPECT_EQ(KpzInfoText::ExposureBias(S(7, 9)), "+7/9 EV");
  EXPECT_EQ(KpzInfoText::ExposureBias(S(1, -3)), "-1/3 EV");
  EXPECT_EQ(KpzInfoText::ExposureBias(S(-1, -3)), "+1/3 EV");
  EXPECT_EQ(KpzInfoText::ExposureBias(S(-1, 0)), "-1/0 EV (not a valid value)");
}

TEST(KpzInfoText, ExposureBiasAtTheEdgesOfThirtyTwoBits) {
  const INT32 lowest = std::numeric_limits<INT32>::min();
  EXPECT_EQ(KpzInfoText::ExposureBias(S(lowest, 1)), "-2147483648 EV");
  EXPECT_EQ(KpzInfoText::ExposureBias(S(lowest, -1)), "+2147483648 EV");
  EXPECT_EQ(KpzInfoText::ExposureBias(S(1, lowest)), "-1/2147483648 EV");
}

TEST(KpzInfoText, FocalLengthWithItsThirtyFiveMillimetreEquivalent) {
  EXPECT_EQ(KpzInfoText::FocalLength(Ok(F(500, 10)), Ok(F(75, 1))),
            "50 mm (75 mm in 35 mm film)");
  EXPECT_EQ(KpzInfoText::FocalLength(Ok(F(185, 10)), Failed<Fraction>(-100)), "18.5 mm");
  EXPECT_EQ(KpzInfoText::FocalLength(Failed<Fraction>(-100), Ok(F(28, 1))),
            "not recorded (28 mm in 35 mm film)");
  EXPECT_EQ(KpzInfoText::FocalLength(Ok(F(50, 1)), Ok(F(0, 1))),
            "50 mm (35 mm film equivalent unknown)");
  EXPECT_EQ(KpzInfoText::FocalLength(Failed<Fraction>(-402), Failed<Fraction>(-100)),
            "recorded in an unexpected form, not shown (error -402)");
  EXPECT_EQ(KpzInfoText::FocalLength(Ok(F(50, 0)), Failed<Fraction>(-100)),
            "50/0 mm (not a valid value)");
}

TEST(KpzInfoText, ExposureProgramsInWords) {
  const char* const words[] = {"not defined",       "manual",           "normal program",
                               "aperture priority", "shutter priority", "creative program",
                               "action program",    "portrait mode",    "landscape mode"};
  for (UINT8 p = 0; p < 9; ++p) {
    EXPECT_EQ(KpzInfoText::ExposureProgram(p), words[p]);
  }
  EXPECT_EQ(KpzInfoText::ExposureProgram(9), "unknown (9)");
  EXPECT_EQ(KpzInfoText::ExposureProgram(255), "unknown (255)");
}

DtRawFlashInfo Flash(UINT8 fired, UINT8 ret, UINT8 mode, UINT8 function, UINT8 redEye) {
  DtRawFlashInfo f;
  f.m_fired = fired;
  f.m_return = ret;
  f.m_mode = mode;
  f.m_function = function;
  f.m_redEye = redEye;
  return f;
}

TEST(KpzInfoText, FlashInWords) {
  EXPECT_EQ(KpzInfoText::Flash(Flash(1, 0, 0, 0, 1)), "fired, red-eye reduction");
  EXPECT_EQ(KpzInfoText::Flash(Flash(0, 0, 0, 0, 0)), "did not fire");
  EXPECT_EQ(KpzInfoText::Flash(Flash(0, 0, 0, 1, 0)), "no flash function");
  EXPECT_EQ(KpzInfoText::Flash(Flash(0, 0, 2, 0, 0)), "did not fire, compulsory flash suppression");
  EXPECT_EQ(KpzInfoText::Flash(Flash(1, 0, 3, 0, 1)), "fired, auto mode, red-eye reduction");
  EXPECT_EQ(KpzInfoText::Flash(Flash(1, 3, 1, 0, 0)),
            "fired, compulsory flash firing, return light detected");
  EXPECT_EQ(KpzInfoText::Flash(Flash(1, 2, 0, 0, 0)), "fired, return light not detected");
  EXPECT_EQ(KpzInfoText::Flash(Flash(0, 1, 0, 0, 0)),
            "did not fire, return light status 1 (reserved)");
  EXPECT_EQ(KpzInfoText::Flash(Flash(1, 0, 0, 1, 0)), "fired, no flash function");
}

TEST(KpzInfoText, ImageSizeWithEitherSideAbsent) {
  EXPECT_EQ(KpzInfoText::ImageSize(Ok<UINT16>(6000), Ok<UINT16>(4000)), "6000 x 4000 pixels");
  EXPECT_EQ(KpzInfoText::ImageSize(Ok<UINT16>(6000), Failed<UINT16>(-100)),
            "width 6000, height not recorded");
  EXPECT_EQ(KpzInfoText::ImageSize(Failed<UINT16>(-100), Failed<UINT16>(-100)),
            "width not recorded, height not recorded");
}

TEST(KpzInfoText, ColourSpaceAndCustomRenderedInWords) {
  EXPECT_EQ(KpzInfoText::ColourSpace(1), "sRGB");
  EXPECT_EQ(KpzInfoText::ColourSpace(-1), "uncalibrated");
  EXPECT_EQ(KpzInfoText::ColourSpace(2), "unknown (2)");
  EXPECT_EQ(KpzInfoText::ColourSpace(-2), "unknown (65534)");
  EXPECT_EQ(KpzInfoText::CustomRendered(0), "normal process");
  EXPECT_EQ(KpzInfoText::CustomRendered(1), "custom process");
  EXPECT_EQ(KpzInfoText::CustomRendered(7), "unknown (7)");
}

TEST(KpzInfoText, VersionsWithTwoDigitsAfterThePoint) {
  EXPECT_EQ(KpzInfoText::Version(230), "2.30");
  EXPECT_EQ(KpzInfoText::Version(100), "1.00");
  EXPECT_EQ(KpzInfoText::Version(221), "2.21");
  EXPECT_EQ(KpzInfoText::Version(5), "0.05");
  EXPECT_EQ(KpzInfoText::Version(9999), "99.99");
}

TEST(KpzInfoText, DateTimeAsRecordedEvenOutOfRange) {
  DtRawDateTime dt;
  dt.m_year = 2010;
  dt.m_month = 5;
  dt.m_day = 1;
  dt.m_hour = 2;
  dt.m_minute = 3;
  dt.m_second = 4;
  EXPECT_EQ(KpzInfoText::DateTime(dt), "2010-05-01 02:03:04");
  dt.m_month = 13;
  dt.m_hour = 99;
  EXPECT_EQ(KpzInfoText::DateTime(dt), "2010-13-01 99:03:04");
}

TEST(KpzInfoText, PreviewAndThumbnailPlaces) {
  DtRawScreennailInfo p;
  p.m_fileOffset = 4096;
  p.m_size = 123456;
  p.m_horizon = 1616;
  p.m_vertical = 1080;
  EXPECT_EQ(KpzInfoText::Preview(p), "123456 bytes at offset 4096, 1616 x 1080 pixels");
  p.m_horizon = 0;
  p.m_vertical = 0;
  EXPECT_EQ(KpzInfoText::Preview(p), "123456 bytes at offset 4096, pixel size not recorded");
  DtRawThumbnailInfo t;
  t.m_fileOffset = 538;
  t.m_size = 339;
  t.m_compression = 6;
  EXPECT_EQ(KpzInfoText::Thumbnail(t), "339 bytes at offset 538, JPEG (compression 6)");
  t.m_compression = 1;
  EXPECT_EQ(KpzInfoText::Thumbnail(t), "339 bytes at offset 538, uncompressed (compression 1)");
  t.m_compression = 99;
  EXPECT_EQ(KpzInfoText::Thumbnail(t), "339 bytes at offset 538, compression 99");
}

TEST(KpzInfoText, TextStopsAtZeroAndShowsControlCharacters) {
  EXPECT_EQ(KpzInfoText::Text(std::string("R98\0x", 5)), "R98");
  EXPECT_EQ(KpzInfoText::Text("a\tb\x7F"), "a\\x09b\\x7F");
  EXPECT_EQ(KpzInfoText::Text(""), "(empty)");
  EXPECT_EQ(KpzInfoText::Text(std::string("\0abc", 4)), "(empty)");
  EXPECT_EQ(KpzInfoText::Text("caf\xC3\xA9"), "caf\xC3\xA9");
}

KpzMetadata FullRecord() {
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
  md.exposureTime = Ok(F(1, 250));
  md.fNumber = Ok(F(56, 10));
  md.isoSpeed = Ok<UINT16>(200);
  md.exposureBias = Ok(S(-1, 3));
  md.exposureProgram = Ok<UINT8>(2);
  md.focalLength = Ok(F(500, 10));
  md.focalLength35mm = Ok(F(75, 1));
  md.flash = Ok(Flash(1, 0, 0, 0, 1));
  md.rotation = Ok<UINT8>(1);
  md.rawImageWidth = Ok<UINT16>(6000);
  md.rawImageHeight = Ok<UINT16>(4000);
  md.colorSpace = Ok<std::int16_t>(1);
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
  md.thumbnail = Ok(t);
  return md;
}

TEST(KpzInfoText, TableShowsEveryValueAligned) {
  EXPECT_EQ(KpzInfoText::Table(FullRecord()),
            "dir/a.kpz\n"
            "  Maker             KAVI\n"
            "  Model             DSLR-M100\n"
            "  Date taken        2010-05-01 12:34:56\n"
            "  Exposure time     1/250 s\n"
            "  F-number          f/5.6\n"
            "  ISO               200\n"
            "  Exposure bias     -1/3 EV\n"
            "  Exposure program  normal program\n"
            "  Focal length      50 mm (75 mm in 35 mm film)\n"
            "  Flash             fired, red-eye reduction\n"
            "  Orientation       rotated 90° clockwise (--upright turns the preview 90° "
            "clockwise)\n"
            "  Raw image size    6000 x 4000 pixels\n"
            "  Colour space      sRGB\n"
            "  Custom rendered   normal process\n"
            "  Exif version      2.30\n"
            "  Iob version       1.00\n"
            "  Iob index         R98\n"
            "  T593 mode         0\n"
            "  Preview           3000 bytes at offset 4096, 1616 x 1080 pixels\n"
            "  Thumbnail         339 bytes at offset 538, JPEG (compression 6)\n");
}

TEST(KpzInfoText, TableShowsAbsentValuesAsAbsentNeverAsZero) {
  KpzMetadata md = FullRecord();
  md.make = Failed<std::string>(-100);
  md.exposureTime = Failed<Fraction>(-100);
  md.fNumber = Failed<Fraction>(-402);
  md.isoSpeed = Failed<UINT16>(-100);
  md.exposureBias = Failed<SignedFraction>(-100);
  md.flash = Failed<DtRawFlashInfo>(-100);
  md.rotation = Failed<UINT8>(-100);
  md.exifVersion = Failed<UINT16>(-401);
  md.screennail = Failed<DtRawScreennailInfo>(-100);
  md.thumbnail = Failed<DtRawThumbnailInfo>(-100);
  const std::string table = KpzInfoText::Table(md);
  for (const char* line : {"  Maker             not recorded\n",
                           "  Exposure time     not recorded\n",
                           "  F-number          recorded in an unexpected form, not shown (error -402)\n",
                           "  ISO               not recorded\n",
                           "  Exposure bias     not recorded\n",
                           "  Flash             not recorded\n",
                           "  Orientation       not recorded\n",
                           "  Exif version      recorded, but not as four digits (error -401)\n",
                           "  Preview           not recorded\n",
                           "  Thumbnail         not recorded\n"}) {
    EXPECT_NE(table.find(line), std::string::npos) << line << table;
  }
}

TEST(KpzInfoText, RecordNeverReadShowsEveryValueUnreadable) {
  KpzMetadata md;
  md.file = "x.kpz";
  const std::string table = KpzInfoText::Table(md);
  EXPECT_EQ(table.find("x.kpz\n  Maker             unreadable (error -201)\n"), 0u) << table;
  EXPECT_EQ(table.find(" 0\n"), std::string::npos) << table;
}

}  // namespace

#else

TEST(KpzInfoText, NeedsTheKpzTool) { GTEST_SKIP() << "the kpz tool is not built"; }

#endif
