// KpzPictureReaderTest.cpp - the kpz tool's reader (kit/kpz/KpzPictureReader)
// in process: the bytes it takes out of files written with the test-data
// builder, and the words it finds for failures the fault seam provokes. The
// reader leaves the library's lines on standard error (the tool hides them
// once per run, see KpzQuietStderrTest and KpzConsoleTest).
#include <gtest/gtest.h>

#if defined(KPZ_TEST_HAVE_KIT)

#include "kpz/KpzPictureReader.h"

#include "kpz/KpzSource.h"
#include "raw/DtRaw.h"
#include "raw/DtRawScreennailInfo.h"

#include <cerrno>
#include <string>
#include <vector>

#include "support/FaultInjection.h"
#include "support/KpzFileBuilder.h"
#include "support/KpzReadPicture.h"
#include "support/LogExpect.h"

namespace {

using kpztest::Bytes;
using kpztest::KpzSpec;
using Kind = KpzPictureReader::Kind;

struct Outcome {
  bool ok = false;
  std::vector<UINT8> bytes;
  std::string error;
  std::string stderrText;
};

Outcome Read(const std::string& path, Kind kind) {
  Outcome o;
  o.bytes = {0xEE};  // must be replaced or emptied
  o.stderrText = kpztest::CaptureStderr(
      [&] { o.ok = kpztest::ReadPicture(path, kind, &o.bytes, &o.error); });
  return o;
}

TEST(KpzPictureReader, PreviewIsTheScreennailBytes) {
  kpztest::TempDir dir;
  KpzSpec recipe;
  recipe.screennail = kpztest::FakeJpeg(2500, 1);
  const std::string path = dir.Write("a.kpz", kpztest::BuildKpz(recipe));
  const Outcome o = Read(path, Kind::Preview);
  EXPECT_TRUE(o.ok) << o.error;
  EXPECT_EQ(o.bytes, recipe.screennail);
  // Only the library's lines: the reader itself prints nothing.
  std::size_t start = 0;
  while (start < o.stderrText.size()) {  // one line per pass
    const std::size_t end = o.stderrText.find('\n', start);
    ASSERT_NE(end, std::string::npos);
    EXPECT_NE(o.stderrText.substr(start, end - start).find(" [jni/"), std::string::npos);
    start = end + 1;
  }
}

TEST(KpzPictureReader, ThumbnailIsTheIfd1Bytes) {
  kpztest::TempDir dir;
  KpzSpec recipe;
  recipe.order = DtNlBigEndian;
  recipe.thumbnail = kpztest::FakeJpeg(321, 2);
  const std::string path = dir.Write("t.kpz", kpztest::BuildKpz(recipe));
  const Outcome o = Read(path, Kind::Thumbnail);
  EXPECT_TRUE(o.ok) << o.error;
  EXPECT_EQ(o.bytes, recipe.thumbnail);
}

TEST(KpzPictureReader, NamesAreTheWordsUsedInMessages) {
  EXPECT_STREQ(KpzPictureReader::Name(Kind::Preview), "preview");
  EXPECT_STREQ(KpzPictureReader::Name(Kind::Thumbnail), "thumbnail");
}

TEST(KpzPictureReader, UnreadableFileIsReportedAsSuch) {
  kpztest::TempDir dir;
  const std::string path = dir.Write("u.kpz", kpztest::BuildKpz(KpzSpec()));
  kpztest::FaultGuard guard;
  kpztest::Arm(kpztest::Call::Open, EACCES);
  const Outcome o = Read(path, Kind::Preview);
  EXPECT_FALSE(o.ok);
  EXPECT_TRUE(o.bytes.empty());
  EXPECT_EQ(o.error, "the file cannot be opened for reading (permission denied)");
}

TEST(KpzPictureReader, DeviceErrorOnOpeningIsAnInputOutputError) {
  kpztest::TempDir dir;
  const std::string path = dir.Write("e.kpz", kpztest::BuildKpz(KpzSpec()));
  kpztest::FaultGuard guard;
  kpztest::Arm(kpztest::Call::Open, EIO);
  const Outcome o = Read(path, Kind::Thumbnail);
  EXPECT_FALSE(o.ok);
  EXPECT_EQ(o.error, "input/output error while reading the file");
}

TEST(KpzPictureReader, DeviceErrorReadingTheHeadIsNotMistakenForALayoutFault) {
  kpztest::TempDir dir;
  const std::string path = dir.Write("h.kpz", kpztest::BuildKpz(KpzSpec()));
  kpztest::FaultGuard guard;
  kpztest::Arm(kpztest::Call::Pread, EIO);
  const Outcome o = Read(path, Kind::Preview);
  EXPECT_FALSE(o.ok);
  EXPECT_EQ(o.error, "input/output error while reading the file");
}

TEST(KpzPictureReader, ReadErrorOfThePreviewIsAnInputOutputError) {
  kpztest::TempDir dir;
  const std::string path = dir.Write("x.kpz", kpztest::BuildKpz(KpzSpec()));
  kpztest::FaultGuard guard;
  kpztest::Arm(kpztest::Call::Pread, EIO, /*skip=*/1);  // the head read passes
  const Outcome o = Read(path, Kind::Preview);
  EXPECT_FALSE(o.ok);
  EXPECT_TRUE(o.bytes.empty());
  EXPECT_EQ(o.error, "input/output error while reading the preview");
}

TEST(KpzPictureReader, FileThatCannotBeMeasuredIsReported) {
  kpztest::TempDir dir;
  const std::string path = dir.Write("m.kpz", kpztest::BuildKpz(KpzSpec()));
  kpztest::FaultGuard guard;
  kpztest::Arm(kpztest::Call::Fstat, EOVERFLOW);
  const Outcome o = Read(path, Kind::Preview);
  EXPECT_FALSE(o.ok);
  EXPECT_EQ(o.error, "the file cannot be read (value too large for defined data type)");
}

TEST(KpzPictureReader, DirectoriesOutsideTheFirst64KiBAreALayoutFaultNotAReadError) {
  kpztest::TempDir dir;
  KpzSpec recipe;
  recipe.ifd0Offset = 0x18000;  // IFD0 said to lie beyond the head
  recipe.minTotalSize = 0x20000;
  const std::string path = dir.Write("far.kpz", kpztest::BuildKpz(recipe));
  for (Kind kind : {Kind::Preview, Kind::Thumbnail}) {
    const Outcome o = Read(path, kind);
    EXPECT_FALSE(o.ok);
    EXPECT_EQ(o.error, "not a KPZ raw file (IFD0 lies beyond the first 64 KiB)");
  }
}

TEST(KpzPictureReader, PreviewLocatedFromTheHeadIsWhatTheFileModeFinds) {
  kpztest::TempDir dir;
  for (const DtNlByteOrder order : {DtNlLittleEndian, DtNlBigEndian}) {
    KpzSpec recipe;
    recipe.order = order;
    recipe.screennail = kpztest::FakeJpeg(4000, 9);
    recipe.minTotalSize = 0x30000;
    const std::string path = dir.Write("same.kpz", kpztest::BuildKpz(recipe));
    DtRaw raw;
    ASSERT_EQ(raw.Initialize(path.c_str()), 0);
    DtRawScreennailInfo info;
    ASSERT_EQ(raw.GetScreennailInfo(&info), 0);
    KpzSource source;
    KpzPictureReader::Picture picture;
    std::string why;
    ASSERT_TRUE(source.Open(path, &why)) << why;
    ASSERT_TRUE(KpzPictureReader::Find(source, Kind::Preview, &picture, &why)) << why;
    EXPECT_EQ(picture.offset, info.m_fileOffset);
    EXPECT_EQ(picture.length, info.m_size);
  }
}

TEST(KpzPictureReader, ThumbnailWithAMissingLengthIsNotStored) {
  kpztest::TempDir dir;
  KpzSpec recipe;
  recipe.editIfd1 = [](kpztest::Ifd& ifd) { ifd.Remove(kpztest::tag::kJpegLength); };
  const std::string path = dir.Write("n.kpz", kpztest::BuildKpz(recipe));
  const Outcome o = Read(path, Kind::Thumbnail);
  EXPECT_FALSE(o.ok);
  EXPECT_EQ(o.error, "no thumbnail stored in this file");
}

TEST(KpzPictureReader, FileWithoutMakerNoteIsNotAKpzFile) {
  kpztest::TempDir dir;
  KpzSpec recipe;
  recipe.hasMakerNote = false;
  const std::string path = dir.Write("k.kpz", kpztest::BuildKpz(recipe));
  const Outcome o = Read(path, Kind::Preview);
  EXPECT_FALSE(o.ok);
  EXPECT_EQ(o.error, "not a KPZ raw file (no maker note)");
}

TEST(KpzPictureReader, LibraryLinesAreLeftOnStandardErrorForTheCallerToHide) {
  kpztest::TempDir dir;
  const std::string path = dir.Write("junk.kpz", Bytes(40, 'j'));
  const Outcome o = Read(path, Kind::Preview);
  EXPECT_EQ(o.error, "not a KPZ raw file (no TIFF header)");
  ASSERT_FALSE(o.stderrText.empty());  // the parse's own account of the failure
  std::size_t start = 0;
  while (start < o.stderrText.size()) {  // one line per pass
    const std::size_t end = o.stderrText.find('\n', start);
    ASSERT_NE(end, std::string::npos);
    EXPECT_NE(o.stderrText.substr(start, end - start).find(" [jni/"), std::string::npos);
    start = end + 1;
  }
}

TEST(KpzPictureReader, MissingFileIsNotFoundWithoutAskingTheLibrary) {
  kpztest::TempDir dir;
  const Outcome o = Read(dir.Path() + "/gone.kpz", Kind::Preview);
  EXPECT_EQ(o.error, "file not found");
  EXPECT_TRUE(o.stderrText.empty()) << o.stderrText;
}

TEST(KpzPictureReader, DirectoryIsNotAKpzFile) {
  kpztest::TempDir dir;
  const Outcome o = Read(dir.Path(), Kind::Thumbnail);
  EXPECT_FALSE(o.ok);
  EXPECT_TRUE(o.bytes.empty());
  EXPECT_EQ(o.error, "is a directory, not a KPZ raw file");
}

}  // namespace

#else

TEST(KpzPictureReader, NeedsTheKpzTool) { GTEST_SKIP() << "the kpz tool is not built"; }

#endif
