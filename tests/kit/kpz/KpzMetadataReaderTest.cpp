// KpzMetadataReaderTest.cpp - every metadata value the kpz tool reads from a
// KPZ file (kit/kpz/KpzMetadataReader), on files of both byte orders
// written with the test-data builder: values, result codes of absent and
// damaged values, and failed initialisations.
#include <gtest/gtest.h>

#if defined(KPZ_TEST_HAVE_KIT)

#include "kpz/KpzMetadataReader.h"

#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "kpz/KpzInfoJson.h"
#include "kpz/KpzInfoText.h"
#include "kpz/KpzPictureReader.h"
#include "kpz/KpzSource.h"
#include "raw/DtRawRecord.h"
#include "support/BoundedRun.h"
#include "support/FaultInjection.h"
#include "support/KpzFileBuilder.h"
#include "support/KpzReadPicture.h"
#include "support/LogExpect.h"

namespace {

using kpztest::Bytes;
using kpztest::KpzLayout;
using kpztest::KpzSpec;

class KpzMetadataReaderOrders : public testing::TestWithParam<DtNlByteOrder> {
 protected:
  KpzMetadata ReadSpec(KpzSpec recipe, KpzLayout* where = nullptr) {
    recipe.order = GetParam();
    const std::string path = dir.Write("m.kpz", kpztest::BuildKpz(recipe, where));
    KpzMetadata md;
    kpztest::CaptureStderr([&] { ok = KpzMetadataReader::Read(path, &md); });
    EXPECT_EQ(md.file, path);
    return md;
  }

  kpztest::TempDir dir;
  bool ok = false;
};

TEST_P(KpzMetadataReaderOrders, EveryValueOfAFileIsRead) {
  KpzSpec recipe;
  recipe.make = "KAVI Co.";
  recipe.orientation = 6;
  recipe.thumbnailOrientation = 8;
  recipe.dateTimeOriginal = "2011:12:31 23:59:58";
  recipe.exposureTime = std::make_pair(10u, 2500u);
  recipe.fNumber = std::make_pair(56u, 10u);
  recipe.isoSpeed = 400;
  recipe.exposureBias = std::make_pair(2, -3);
  recipe.exposureProgram = 3;
  recipe.focalLength = std::make_pair(185u, 10u);
  recipe.focalLength35 = 28;
  recipe.flash = 0x59;
  recipe.colorSpace = 0xFFFF;
  recipe.customRendered = 1;
  recipe.pixelX = 6016;
  recipe.pixelY = 4008;
  recipe.exifVersion = "0221";
  recipe.iobVersion = "0100";
  KpzLayout where;
  const KpzMetadata md = ReadSpec(recipe, &where);
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
  KpzSpec recipe;
  recipe.make.reset();
  recipe.orientation.reset();
  recipe.dateTimeOriginal.reset();
  recipe.exposureTime.reset();
  recipe.fNumber.reset();
  recipe.isoSpeed.reset();
  recipe.exposureBias.reset();
  recipe.exposureProgram.reset();
  recipe.focalLength.reset();
  recipe.focalLength35.reset();
  recipe.flash.reset();
  recipe.colorSpace.reset();
  recipe.customRendered.reset();
  recipe.pixelX.reset();
  recipe.pixelY.reset();
  recipe.exifVersion.reset();
  recipe.iobIndex.reset();
  recipe.iobVersion.reset();
  recipe.editIfd1 = [](kpztest::Ifd& ifd) { ifd.Remove(kpztest::tag::kJpegOffset); };
  recipe.ifd0ScreennailTags = false;
  const KpzMetadata md = ReadSpec(recipe);
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
  KpzSpec recipe;
  recipe.exifVersion = "02a0";
  recipe.dateTimeOriginal = "2010:05:01T12:34:56";
  recipe.editExif = [](kpztest::Ifd& ifd) {
    ifd.Replace(kpztest::tag::kFNumber, kpztest::kTiffRational, 2,
                kpztest::U32sBytes({28, 10, 28, 10}, ifd.Order()));
  };
  const KpzMetadata md = ReadSpec(recipe);
  ASSERT_TRUE(ok) << md.error;
  EXPECT_EQ(md.exifVersion.result, -401);
  EXPECT_EQ(md.exifVersion.value, 0);
  EXPECT_EQ(md.fNumber.result, -402);
  EXPECT_EQ(md.fNumber.value.numerator, 0u);
  EXPECT_EQ(md.dateTimeOriginal.result, -402);
  EXPECT_EQ(md.dateTimeOriginal.value.m_year, 0);
}

TEST_P(KpzMetadataReaderOrders, NameLongerThanTheBufferIsCut) {
  KpzSpec recipe;
  recipe.make = std::string(300, 'M');  // kept by position only, read from the head copy
  const KpzMetadata md = ReadSpec(recipe);
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

TEST(KpzMetadataReader, DeviceErrorUnderTheHeadReadIsReportedAsOne) {
  // The tool reads the head itself before the library does: the error is
  // met there and told as one, with the library's code for it.
  kpztest::TempDir dir;
  const std::string path = dir.Write("e.kpz", kpztest::BuildKpz(kpztest::KpzSpec()));
  KpzMetadata md;
  kpztest::FaultGuard guard;
  kpztest::Arm(kpztest::Call::Fread, EIO);
  kpztest::Arm(kpztest::Call::Pread, EIO);
  kpztest::CaptureStderr([&] { EXPECT_FALSE(KpzMetadataReader::Read(path, &md)); });
  EXPECT_EQ(md.initResult, -399);
  EXPECT_EQ(md.openErrno, EIO);
  EXPECT_EQ(md.error, "input/output error while reading the file");
}

TEST(KpzMetadataReader, DirectoriesBeyondTheHeadAreALayoutFault) {
  kpztest::TempDir dir;
  kpztest::KpzSpec recipe;
  recipe.ifd0Offset = 0x18000;
  recipe.minTotalSize = 0x20000;
  const std::string path = dir.Write("far.kpz", kpztest::BuildKpz(recipe));
  KpzMetadata md;
  kpztest::CaptureStderr([&] { EXPECT_FALSE(KpzMetadataReader::Read(path, &md)); });
  EXPECT_TRUE(md.initResult == -305 || md.initResult == -306 || md.initResult == -307)
      << md.initResult;
  EXPECT_EQ(md.error, "not a KPZ raw file (IFD0 lies beyond the first 64 KiB)");
}

// The words of a head that does not parse are the parse's own record's, in
// file mode and from the head alone, and the picture readers' too: one file
// for each kind of step the parse records (a read that fell short, a cut
// file, a missing tag, a refused header).
TEST(KpzMetadataReader, AFailedParseIsToldInTheRecordsWords) {
  kpztest::TempDir dir;
  std::vector<Bytes> files;
  KpzSpec recipe;
  recipe.ifd1Pointer = 0;
  files.push_back(kpztest::BuildKpz(recipe));  // one directory
  recipe = KpzSpec();
  recipe.ifd1Pointer = 0x00FFFFF0;
  files.push_back(kpztest::BuildKpz(recipe));  // IFD1 past the end
  recipe = KpzSpec();
  recipe.hasMakerNote = false;
  files.push_back(kpztest::BuildKpz(recipe));  // no maker note
  files.push_back(kpztest::BuildKpz(KpzSpec()));
  files.back().resize(40);  // cut inside IFD0
  files.push_back(kpztest::BuildKpz(KpzSpec()));
  files.back().resize(5);  // cut inside its TIFF header
  files.push_back(Bytes(100, 'j'));  // no TIFF header
  for (std::size_t i = 0; i < files.size(); ++i) {
    const Bytes& bytes = files[i];
    std::string words;
    kpztest::CaptureStderr([&] {
      const DtRawExpected<DtRawRecord> record =
          DtRawRecord::Parse(bytes.data(), bytes.size(), bytes.size());
      words = record.Ok() ? "" : record.Failure().m_words;
    });
    EXPECT_EQ(words.rfind("not a KPZ raw file (", 0), 0u) << words;
    const std::string path = dir.Write("f" + std::to_string(i) + ".kpz", bytes);
    KpzMetadata md;
    bool ok = true;
    kpztest::CaptureStderr([&] { ok = KpzMetadataReader::Read(path, &md); });
    EXPECT_FALSE(ok);
    EXPECT_EQ(md.error, words) << i;
    KpzSource memory;
    memory.OpenMemory(bytes.data(), bytes.size(), bytes.size());
    KpzMetadata fromHead;
    kpztest::CaptureStderr([&] { ok = KpzMetadataReader::ReadHead(memory, "", &fromHead); });
    EXPECT_FALSE(ok);
    EXPECT_EQ(fromHead.error, words) << i;
    for (const KpzPictureReader::Kind kind :
         {KpzPictureReader::Kind::Preview, KpzPictureReader::Kind::Thumbnail}) {
      std::vector<UINT8> out{0xEE};
      std::string error;
      kpztest::CaptureStderr([&] { ok = kpztest::ReadPicture(path, kind, &out, &error); });
      EXPECT_FALSE(ok);
      EXPECT_EQ(error, words) << i << " " << KpzPictureReader::Name(kind);
    }
  }
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

// ---- inputs that are not regular files; the name opened once -------------

TEST(KpzMetadataReader, FifoIsNotReadAndSaysSoWithoutWaiting) {
  kpztest::TempDir dir;
  const std::string fifo = dir.Path() + "/p.kpz";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const kpztest::Bounded r = kpztest::RunBounded(std::chrono::seconds(10), [&] {
    KpzMetadata md;
    const bool ok = KpzMetadataReader::Read(fifo, &md);
    return std::to_string(ok) + "|" + std::to_string(md.initialized) + "|" + md.error;
  });
  ASSERT_TRUE(r.started);
  EXPECT_FALSE(r.timedOut) << "info waited on a FIFO";
  EXPECT_EQ(r.out, "0|0|not a regular file (a device, named pipe or socket), not read");
}

TEST(KpzMetadataReader, DeviceIsNotReadAndGetsNoParseCode) {
  KpzMetadata md;
  EXPECT_FALSE(KpzMetadataReader::Read("/dev/zero", &md));
  EXPECT_FALSE(md.initialized);
  EXPECT_EQ(md.error, "not a regular file (a device, named pipe or socket), not read");
  const std::string line = KpzInfoJson::Line(md);
  EXPECT_NE(line.find("\"result\":null"), std::string::npos) << line;
  EXPECT_EQ(line.find("-400"), std::string::npos) << line;
}

TEST(KpzMetadataReader, FifoRenamedOverThePathAfterTheOpenIsNeverOpened) {
  kpztest::TempDir dir;
  const std::string path = dir.Write("m.kpz", kpztest::BuildKpz(KpzSpec()));
  const std::string fifo = dir.Path() + "/fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const kpztest::Bounded r = kpztest::RunBounded(std::chrono::seconds(10), [&] {
    KpzSource source;
    std::string why;
    if (!source.Open(path, &why)) {
      return "open: " + why;
    }
    // The point the test chooses: after the open, before the library reads.
    if (std::rename(fifo.c_str(), path.c_str()) != 0) {
      return std::string("rename failed");
    }
    KpzMetadata md;
    bool ok = false;
    kpztest::CaptureStderr([&] { ok = KpzMetadataReader::ReadOpened(source, "m.kpz", &md); });
    return std::to_string(ok) + "|" + md.file + "|" + md.model.value + "|" + md.error;
  });
  ASSERT_TRUE(r.started);
  EXPECT_FALSE(r.timedOut) << "the library opened the FIFO put under the name";
  EXPECT_EQ(r.out, "1|m.kpz|DSLR-M100|");
}

// ---- cut files: nothing past the end is told as a value ------------------

// Every cut of a whole file: a value the cut file does not hold whole is
// never a value (least of all 0), and a cut that does not parse names the
// end of the file as its reason.
TEST(KpzMetadataReader, ACutFileTellsWhatLiesPastItsEndAsNotRecorded) {
  kpztest::TempDir dir;
  const Bytes whole = kpztest::BuildKpz(KpzSpec());
  KpzMetadata full;
  const std::string wholePath = dir.Write("whole.kpz", whole);
  kpztest::CaptureStderr([&] { ASSERT_TRUE(KpzMetadataReader::Read(wholePath, &full)); });
  ASSERT_TRUE(full.exposureTime.Ok());
  int parsed = 0;
  int pastEnd = 0;
  for (std::size_t cut = 0; cut < whole.size(); ++cut) {
    SCOPED_TRACE("cut at " + std::to_string(cut) + " bytes");
    const std::string path = dir.Write("cut.kpz", Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(cut)));
    KpzMetadata md;
    bool ok = false;
    kpztest::CaptureStderr([&] { ok = KpzMetadataReader::Read(path, &md); });
    if (!ok) {
      const bool namesTheEnd = md.error.find("past the end of the file") != std::string::npos ||
                               md.error == "not a KPZ raw file (the file is empty)" ||
                               md.error == "not a KPZ raw file (the file ends within its TIFF header)";
      EXPECT_TRUE(namesTheEnd) << md.error;
      continue;
    }
    ++parsed;
    // Each value: its true value, or absent; never a value read from zeros.
    const auto check = [&](const auto& v, const auto& truth, const char* what) {
      if (v.pastEnd) {
        ++pastEnd;
        EXPECT_EQ(v.result, -100) << what;
      }
      if (v.Ok()) {
        EXPECT_TRUE(std::memcmp(&v.value, &truth.value, sizeof v.value) == 0) << what;
      }
    };
    check(md.exposureTime, full.exposureTime, "exposure time");
    check(md.fNumber, full.fNumber, "f-number");
    check(md.focalLength, full.focalLength, "focal length");
    check(md.focalLength35mm, full.focalLength35mm, "35 mm focal length");
    check(md.exposureBias, full.exposureBias, "exposure bias");
    check(md.isoSpeed, full.isoSpeed, "ISO");
    check(md.exposureProgram, full.exposureProgram, "exposure program");
    check(md.rotation, full.rotation, "rotation");
    check(md.rawImageWidth, full.rawImageWidth, "width");
    check(md.rawImageHeight, full.rawImageHeight, "height");
    check(md.colorSpace, full.colorSpace, "colour space");
    check(md.exifVersion, full.exifVersion, "Exif version");
    check(md.screennail, full.screennail, "preview");
    if (md.make.Ok()) {
      EXPECT_EQ(md.make.value, full.make.value);
    }
    if (md.dateTimeOriginal.Ok()) {
      EXPECT_EQ(md.dateTimeOriginal.value.m_year, full.dateTimeOriginal.value.m_year);
    }
  }
  EXPECT_GT(parsed, 0);
  EXPECT_GT(pastEnd, 0);
}

TEST(KpzMetadataReader, ValuesAtNegativeOffsetsAreNotReadFromTheFilesStart) {
  // Values claimed at 2 GiB or more (negative as signed 32-bit offsets): the
  // library's read of the head clamps them to byte 0, so what it answers is
  // the TIFF header, not the value. In a file longer than the head they were
  // once given as the file's make, exposure time, f-number and date.
  // Not recorded, past the end of a smaller file; not recorded, not past
  // the end, in a (sparse) file long enough to hold them.
  for (const std::uint64_t size : {std::uint64_t{100000}, std::uint64_t{0x80000100}}) {
    SCOPED_TRACE("file of " + std::to_string(size) + " bytes");
    kpztest::TempDir dir;
    KpzSpec recipe;
    recipe.minTotalSize = 100000;
    recipe.editIfd0 = [](kpztest::Ifd& ifd) {
      ifd.ReplaceRaw(kpztest::tag::kMake, kpztest::kTiffAscii, 5, 0x80000000u);
    };
    recipe.editExif = [](kpztest::Ifd& ifd) {
      ifd.ReplaceRaw(kpztest::tag::kExposureTime, kpztest::kTiffRational, 1, 0x80000010u);
      ifd.ReplaceRaw(kpztest::tag::kFNumber, kpztest::kTiffRational, 1, 0xFFFFFFFCu);
      ifd.ReplaceRaw(kpztest::tag::kDateTimeOriginal, kpztest::kTiffAscii, 20, 0xFFFFFFF0u);
    };
    const std::string path = dir.Write("n.kpz", kpztest::BuildKpz(recipe));
    if (size > 100000) {
      ASSERT_TRUE(kpztest::ExtendFileSparse(path, size));
    }
    KpzMetadata md;
    bool ok = false;
    kpztest::CaptureStderr([&] { ok = KpzMetadataReader::Read(path, &md); });
    ASSERT_TRUE(ok) << md.error;
    const bool pastEnd = size < 0x80000000u;
    EXPECT_EQ(md.make.result, -100);
    EXPECT_EQ(md.make.value, "");
    EXPECT_EQ(md.make.pastEnd, pastEnd);
    EXPECT_EQ(md.exposureTime.result, -100);
    EXPECT_EQ(md.exposureTime.value.denominator, 0u);
    EXPECT_EQ(md.exposureTime.pastEnd, pastEnd);
    EXPECT_EQ(md.fNumber.result, -100);
    EXPECT_TRUE(md.fNumber.pastEnd);  // 0xFFFFFFFC + 8 lies past any such file
    EXPECT_EQ(md.dateTimeOriginal.result, -100);
    EXPECT_TRUE(md.dateTimeOriginal.pastEnd);
    // The values where they belong are read as usual.
    EXPECT_TRUE(md.model.Ok());
    EXPECT_EQ(md.model.value, "DSLR-M100");
    EXPECT_TRUE(md.isoSpeed.Ok());
    EXPECT_EQ(md.isoSpeed.value, 200);
  }
}

TEST(KpzMetadataReader, CutFilesOfTheIssueGiveTheirWords) {
  kpztest::TempDir dir;
  const Bytes whole = kpztest::BuildKpz(KpzSpec());
  for (const std::size_t cut : {8u, 50u, 96u, 200u, 308u, 328u}) {
    if (cut >= whole.size()) {
      continue;
    }
    SCOPED_TRACE("cut at " + std::to_string(cut) + " bytes");
    const std::string path = dir.Write("cut.kpz", Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(cut)));
    KpzMetadata md;
    bool ok = false;
    kpztest::CaptureStderr([&] { ok = KpzMetadataReader::Read(path, &md); });
    if (!ok) {
      EXPECT_NE(md.error.find("past the end of the file"), std::string::npos) << md.error;
      EXPECT_EQ(md.error.find("only one directory"), std::string::npos) << md.error;
      EXPECT_EQ(md.error.find("no maker note"), std::string::npos) << md.error;
      EXPECT_EQ(md.error.find("is 0"), std::string::npos) << md.error;
      continue;
    }
    // Parsed: whatever is cut off says so, in the table and in JSON.
    const std::string table = KpzInfoText::Table(md);
    const std::string json = KpzInfoJson::Line(md);
    EXPECT_NE(table.find("not recorded (its place lies past the end of the file)"),
              std::string::npos)
        << table;
    EXPECT_NE(json.find("\"pastEnd\":true"), std::string::npos) << json;
  }
}

}  // namespace

#else

TEST(KpzMetadataReader, NeedsTheKpzTool) { GTEST_SKIP() << "the kpz tool is not built"; }

#endif
