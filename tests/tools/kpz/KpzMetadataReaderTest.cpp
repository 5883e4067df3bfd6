// KpzMetadataReaderTest.cpp - every metadata value the kpz tool reads from a
// KPZ file (tools/kpz/KpzMetadataReader), on files of both byte orders
// written with the test-data builder: values, result codes of absent and
// damaged values, and failed initialisations.
#include <gtest/gtest.h>

#if defined(KPZ_TEST_HAVE_TOOL)

#include "kpz/KpzMetadataReader.h"

#include <string>

#include "support/KpzFileBuilder.h"
#include "support/LogExpect.h"

namespace {

using kpztest::Bytes;
using kpztest::KpzLayout;
using kpztest::KpzSpec;

class KpzMetadataReaderOrders : public testing::TestWithParam<DtNlByteOrder> {
 protected:
  KpzMetadata ReadSpec(KpzSpec spec, KpzLayout* where = nullptr) {
    spec.order = GetParam();
    const std::string path = dir.Write("m.kpz", kpztest::BuildKpz(spec, where));
    KpzMetadata md;
    kpztest::CaptureStderr([&] { ok = KpzMetadataReader::Read(path, &md); });
    EXPECT_EQ(md.file, path);
    return md;
  }

  kpztest::TempDir dir;
  bool ok = false;
};

TEST_P(KpzMetadataReaderOrders, EveryValueOfAFileIsRead) {
  KpzSpec spec;
  spec.make = "KAVI Co.";
  spec.orientation = 6;
  spec.thumbnailOrientation = 8;
  spec.dateTimeOriginal = "2011:12:31 23:59:58";
  spec.exposureTime = std::make_pair(10u, 2500u);
  spec.fNumber = std::make_pair(56u, 10u);
  spec.isoSpeed = 400;
  spec.exposureBias = std::make_pair(2, -3);
  spec.exposureProgram = 3;
  spec.focalLength = std::make_pair(185u, 10u);
  spec.focalLength35 = 28;
  spec.flash = 0x59;
  spec.colorSpace = 0xFFFF;
  spec.customRendered = 1;
  spec.pixelX = 6016;
  spec.pixelY = 4008;
  spec.exifVersion = "0221";
  spec.iobVersion = "0100";
  KpzLayout where;
  const KpzMetadata md = ReadSpec(spec, &where);
  ASSERT_TRUE(ok) << md.error;
  EXPECT_TRUE(md.initialized);
  EXPECT_EQ(md.initResult, 0);
  EXPECT_EQ(md.error, "");

  EXPECT_EQ(md.make.result, 0);
  EXPECT_EQ(md.make.value, "KAVI Co.");
  EXPECT_EQ(md.model.value, "DSLR-M100");
  EXPECT_EQ(md.dateTimeOriginal.result, 0);
  EXPECT_EQ(md.dateTimeOriginal.value.m_year, 2011);
  EXPECT_EQ(md.dateTimeOriginal.value.m_month, 12);
  EXPECT_EQ(md.dateTimeOriginal.value.m_day, 31);
  EXPECT_EQ(md.dateTimeOriginal.value.m_hour, 23);
  EXPECT_EQ(md.dateTimeOriginal.value.m_minute, 59);
  EXPECT_EQ(md.dateTimeOriginal.value.m_second, 58);
  EXPECT_EQ(md.exposureTime.result, 0);
  EXPECT_EQ(md.exposureTime.value.numerator, 1u);  // 10/2500 as the library reduces it
  EXPECT_EQ(md.exposureTime.value.denominator, 250u);
  EXPECT_EQ(md.fNumber.value.numerator, 56u);
  EXPECT_EQ(md.fNumber.value.denominator, 10u);
  EXPECT_EQ(md.isoSpeed.value, 400);
  EXPECT_EQ(md.exposureBias.result, 0);
  EXPECT_EQ(md.exposureBias.value.numerator, 2);
  EXPECT_EQ(md.exposureBias.value.denominator, -3);
  EXPECT_EQ(md.exposureProgram.value, 3);
  EXPECT_EQ(md.focalLength.value.numerator, 185u);
  EXPECT_EQ(md.focalLength.value.denominator, 10u);
  EXPECT_EQ(md.focalLength35mm.value.numerator, 28u);
  EXPECT_EQ(md.focalLength35mm.value.denominator, 1u);
  EXPECT_EQ(md.flash.result, 0);
  EXPECT_EQ(md.flash.value.m_fired, 1);
  EXPECT_EQ(md.flash.value.m_return, 0);
  EXPECT_EQ(md.flash.value.m_mode, 3);
  EXPECT_EQ(md.flash.value.m_function, 0);
  EXPECT_EQ(md.flash.value.m_redEye, 1);
  EXPECT_EQ(md.rotation.result, 0);
  EXPECT_EQ(md.rotation.value, 1);  // Exif 6
  EXPECT_EQ(md.rawImageWidth.value, 6016);
  EXPECT_EQ(md.rawImageHeight.value, 4008);
  EXPECT_EQ(md.colorSpace.value, -1);
  EXPECT_EQ(md.customRendered.value, 1);
  EXPECT_EQ(md.exifVersion.value, 221);
  EXPECT_EQ(md.iobVersion.value, 100);
  EXPECT_EQ(md.iobIndex.result, 0);
  EXPECT_EQ(md.iobIndex.value, std::string("R98\0", 4));
  EXPECT_EQ(md.t593Mode.result, 0);
  EXPECT_EQ(md.t593Mode.value, 0);
  EXPECT_EQ(md.screennail.result, 0);
  EXPECT_EQ(md.screennail.value.m_fileOffset, where.screennail);
  EXPECT_EQ(md.screennail.value.m_size, 64u);
  EXPECT_EQ(md.screennail.value.m_horizon, 1616);
  EXPECT_EQ(md.screennail.value.m_vertical, 1080);
  EXPECT_EQ(md.thumbnail.result, 0);
  EXPECT_EQ(md.thumbnail.value.m_fileOffset, where.thumbnail);
  EXPECT_EQ(md.thumbnail.value.m_size, 32u);
  EXPECT_EQ(md.thumbnail.value.m_compression, 6);
  EXPECT_EQ(md.thumbnail.value.m_rotation, 3);  // Exif 8
}

TEST_P(KpzMetadataReaderOrders, AbsentValuesCarryResultMinus100AndNoValue) {
  KpzSpec spec;
  spec.make.reset();
  spec.orientation.reset();
  spec.dateTimeOriginal.reset();
  spec.exposureTime.reset();
  spec.fNumber.reset();
  spec.isoSpeed.reset();
  spec.exposureBias.reset();
  spec.exposureProgram.reset();
  spec.focalLength.reset();
  spec.focalLength35.reset();
  spec.flash.reset();
  spec.colorSpace.reset();
  spec.customRendered.reset();
  spec.pixelX.reset();
  spec.pixelY.reset();
  spec.exifVersion.reset();
  spec.iobIndex.reset();
  spec.iobVersion.reset();
  spec.editIfd1 = [](kpztest::Ifd& ifd) { ifd.Remove(kpztest::tag::kJpegOffset); };
  spec.ifd0ScreennailTags = false;
  const KpzMetadata md = ReadSpec(spec);
  ASSERT_TRUE(ok) << md.error;
  for (int result : {md.make.result, md.rotation.result, md.dateTimeOriginal.result,
                     md.exposureTime.result, md.fNumber.result, md.isoSpeed.result,
                     md.exposureBias.result, md.exposureProgram.result, md.focalLength.result,
                     md.focalLength35mm.result, md.flash.result, md.colorSpace.result,
                     md.customRendered.result, md.rawImageWidth.result,
                     md.rawImageHeight.result, md.exifVersion.result, md.iobIndex.result,
                     md.iobVersion.result, md.screennail.result, md.thumbnail.result}) {
    EXPECT_EQ(result, -100);
  }
  EXPECT_EQ(md.make.value, "");
  EXPECT_EQ(md.isoSpeed.value, 0);
  EXPECT_EQ(md.iobIndex.value, "");
  EXPECT_EQ(md.screennail.value.m_size, 0u);
  EXPECT_EQ(md.model.result, 0);  // still there
  EXPECT_EQ(md.t593Mode.result, 0);
}

TEST_P(KpzMetadataReaderOrders, DamagedValuesCarryTheirResultAndNoValue) {
  KpzSpec spec;
  spec.exifVersion = "02a0";
  spec.dateTimeOriginal = "2010:05:01T12:34:56";
  spec.editExif = [](kpztest::Ifd& ifd) {
    ifd.Replace(kpztest::tag::kFNumber, kpztest::kTiffRational, 2,
                kpztest::U32sBytes({28, 10, 28, 10}, ifd.Order()));
  };
  const KpzMetadata md = ReadSpec(spec);
  ASSERT_TRUE(ok) << md.error;
  EXPECT_EQ(md.exifVersion.result, -401);
  EXPECT_EQ(md.exifVersion.value, 0);
  EXPECT_EQ(md.fNumber.result, -402);
  EXPECT_EQ(md.fNumber.value.numerator, 0u);
  EXPECT_EQ(md.dateTimeOriginal.result, -402);
  EXPECT_EQ(md.dateTimeOriginal.value.m_year, 0);
}

TEST_P(KpzMetadataReaderOrders, NameLongerThanTheBufferIsCut) {
  KpzSpec spec;
  spec.make = std::string(300, 'M');  // kept by position only, read from the head copy
  const KpzMetadata md = ReadSpec(spec);
  ASSERT_TRUE(ok) << md.error;
  EXPECT_EQ(md.make.result, 0);
  EXPECT_EQ(md.make.value, std::string(KpzMetadataReader::kNameBuffer - 1, 'M'));
}

INSTANTIATE_TEST_SUITE_P(BothByteOrders, KpzMetadataReaderOrders,
                         testing::Values(DtNlLittleEndian, DtNlBigEndian),
                         [](const testing::TestParamInfo<DtNlByteOrder>& p) {
                           return std::string(p.param == DtNlBigEndian ? "BigEndian"
                                                                          : "LittleEndian");
                         });

TEST(KpzMetadataReader, MissingFileGivesItsWordsAndNoValues) {
  kpztest::TempDir dir;
  KpzMetadata md;
  md.make.result = 0;  // must be replaced
  bool ok = true;
  kpztest::CaptureStderr([&] { ok = KpzMetadataReader::Read(dir.Path() + "/gone.kpz", &md); });
  EXPECT_FALSE(ok);
  EXPECT_TRUE(md.initialized);
  EXPECT_EQ(md.initResult, -302);
  EXPECT_EQ(md.error, "file not found");
  EXPECT_EQ(md.make.result, -201);
  EXPECT_EQ(md.thumbnail.result, -201);
}

TEST(KpzMetadataReader, NotAKpzFileGivesItsWords) {
  kpztest::TempDir dir;
  const std::string path = dir.Write("t.kpz", Bytes(100, 'x'));
  KpzMetadata md;
  kpztest::CaptureStderr([&] { EXPECT_FALSE(KpzMetadataReader::Read(path, &md)); });
  EXPECT_EQ(md.initResult, -400);
  EXPECT_EQ(md.error, "not a KPZ raw file (no TIFF header)");
}

TEST(KpzMetadataReader, DirectoryIsNotOpened) {
  kpztest::TempDir dir;
  KpzMetadata md;
  std::string err;
  err = kpztest::CaptureStderr([&] { EXPECT_FALSE(KpzMetadataReader::Read(dir.Path(), &md)); });
  EXPECT_FALSE(md.initialized);
  EXPECT_EQ(md.error, "is a directory, not a KPZ raw file");
  EXPECT_EQ(err, "");  // the library was not asked
}

}  // namespace

#else

TEST(KpzMetadataReader, NeedsTheKpzTool) { GTEST_SKIP() << "the kpz tool is not built"; }

#endif
