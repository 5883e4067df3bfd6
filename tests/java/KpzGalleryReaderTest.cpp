// KpzGalleryReaderTest.cpp - the read path of the gallery calls without JNI
// (jni/KpzGalleryReader): one head read per file, the info, pictures located
// on the kpz tool's terms and read from the head or with pread, descriptors
// borrowed (offset kept, never closed), and every failure's kind, errno and
// words. Files come from the test-data builder; faults from the seam.
#include "KpzGalleryReader.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "support/FaultInjection.h"
#include "support/KpzFileBuilder.h"

namespace {

using kpztest::Bytes;
using kpztest::KpzSpec;
using Reader = KpzGalleryReader;

class KpzGalleryReaderTest : public testing::Test {
 protected:
  std::string Write(const std::string& name, const Bytes& bytes) {
    return m_dir.Write(name, bytes);
  }
  std::string Write(const std::string& name, const KpzSpec& recipe,
                    kpztest::KpzLayout* where = nullptr) {
    return m_dir.Write(name, kpztest::BuildKpz(recipe, where));
  }

  kpztest::TempDir m_dir;
  kpztest::FaultGuard m_faults;
};

Bytes Slice(const Bytes& file, std::uint64_t offset, std::uint32_t length) {
  return Bytes(file.begin() + static_cast<std::ptrdiff_t>(offset),
               file.begin() + static_cast<std::ptrdiff_t>(offset + length));
}

TEST_F(KpzGalleryReaderTest, InfoOfAGoodFile) {
  KpzSpec recipe;
  recipe.orientation = 6;
  recipe.screennail = kpztest::FakeJpeg(30000, 1);
  recipe.thumbnail = kpztest::FakeJpeg(4000, 2);
  recipe.scnHeightWidth = std::make_pair(std::uint32_t{1080}, std::uint32_t{1616});
  recipe.dateTimeOriginal = "2012:03:04 05:06:07";
  const std::string path = Write("a.kpz", recipe);

  Reader reader;
  Reader::Failure why;
  ASSERT_TRUE(reader.OpenPath(path.c_str(), &why)) << why.m_words;
  Reader::Info info;
  reader.GetInfo(&info);
  EXPECT_EQ(info.m_orientation, 6);
  EXPECT_TRUE(info.m_orientationRecorded);
  EXPECT_EQ(info.m_previewWidth, 1616);
  EXPECT_EQ(info.m_previewHeight, 1080);
  EXPECT_EQ(info.m_previewLength, 30000u);
  EXPECT_EQ(info.m_thumbnailLength, 4000u);
  EXPECT_TRUE(info.m_hasModel);
  EXPECT_STREQ(info.m_model, "DSLR-M100");
  ASSERT_TRUE(info.m_hasDateTime);
  EXPECT_EQ(info.m_dateTime.m_year, 2012);
  EXPECT_EQ(info.m_dateTime.m_second, 7);
}

TEST_F(KpzGalleryReaderTest, NoOrientationIsOneAndNotRecorded) {
  KpzSpec recipe;
  recipe.orientation.reset();
  recipe.dateTimeOriginal.reset();
  const std::string path = Write("a.kpz", recipe);
  Reader reader;
  Reader::Failure why;
  ASSERT_TRUE(reader.OpenPath(path.c_str(), &why));
  Reader::Info info;
  reader.GetInfo(&info);
  EXPECT_EQ(info.m_orientation, 1);
  EXPECT_FALSE(info.m_orientationRecorded);
  EXPECT_FALSE(info.m_hasDateTime);
}

TEST_F(KpzGalleryReaderTest, TheHeadIsReadOnceAndAThumbnailInItNeedsNoFurtherRead) {
  KpzSpec recipe;
  recipe.minTotalSize = 300000;
  kpztest::KpzLayout where;
  const std::string path = Write("a.kpz", recipe, &where);
  const Bytes file = kpztest::ReadFileBytes(path);
  kpztest::ResetCounts();
  Reader reader;
  Reader::Failure why;
  ASSERT_TRUE(reader.OpenPath(path.c_str(), &why));
  EXPECT_EQ(kpztest::CallCount(kpztest::Call::Pread), 1);
  Reader::Picture thumb;
  ASSERT_TRUE(reader.Locate(Reader::PictureThumbnail, &thumb, &why));
  ASSERT_NE(reader.InHead(thumb), nullptr);
  std::vector<UINT8> out(thumb.m_length);
  ASSERT_TRUE(reader.Read(thumb, out.data(), &why));
  EXPECT_EQ(kpztest::CallCount(kpztest::Call::Pread), 1);
  EXPECT_EQ(Bytes(out.begin(), out.end()), Slice(file, where.thumbnail, thumb.m_length));
}

TEST_F(KpzGalleryReaderTest, APictureBeyondTheHeadIsReadWithPread) {
  KpzSpec recipe;
  recipe.thumbnailOffset = 0x10000 - 100;  // straddles the head's end
  recipe.thumbnail = kpztest::FakeJpeg(3000, 3);
  recipe.screennail = kpztest::FakeJpeg(200000, 4);
  kpztest::KpzLayout where;
  const std::string path = Write("a.kpz", recipe, &where);
  const Bytes file = kpztest::ReadFileBytes(path);
  Reader reader;
  Reader::Failure why;
  ASSERT_TRUE(reader.OpenPath(path.c_str(), &why));
  for (Reader::PictureKind kind : {Reader::PictureThumbnail, Reader::PicturePreview}) {
    Reader::Picture picture;
    ASSERT_TRUE(reader.Locate(kind, &picture, &why));
    EXPECT_EQ(reader.InHead(picture), nullptr);
    kpztest::ResetCounts();
    std::vector<UINT8> out(picture.m_length);
    ASSERT_TRUE(reader.Read(picture, out.data(), &why)) << why.m_words;
    EXPECT_GE(kpztest::CallCount(kpztest::Call::Pread), 1);
    EXPECT_EQ(Bytes(out.begin(), out.end()), Slice(file, picture.m_offset, picture.m_length));
  }
}

TEST_F(KpzGalleryReaderTest, PicturesClaimingMoreThanTheFileHoldsAreRefusedUnread) {
  KpzSpec recipe;
  recipe.thumbnailLengthTag = 0xFFFFFFF0u;
  recipe.screennailLengthTag = 0x7FFFFFF0u;
  const std::string path = Write("a.kpz", recipe);
  Reader reader;
  Reader::Failure why;
  ASSERT_TRUE(reader.OpenPath(path.c_str(), &why));
  Reader::Info info;
  reader.GetInfo(&info);
  EXPECT_EQ(info.m_previewLength, 0u);
  EXPECT_EQ(info.m_previewWidth, 0u);
  EXPECT_EQ(info.m_thumbnailLength, 0u);
  Reader::Picture picture;
  EXPECT_FALSE(reader.Locate(Reader::PictureThumbnail, &picture, &why));
  EXPECT_EQ(why.m_kind, DtRawFailure::KindDamaged);
  EXPECT_STREQ(why.m_words, "thumbnail extends past the end of the file");
  EXPECT_FALSE(reader.Locate(Reader::PicturePreview, &picture, &why));
  EXPECT_EQ(why.m_kind, DtRawFailure::KindDamaged);
  EXPECT_STREQ(why.m_words, "preview extends past the end of the file");
}

TEST_F(KpzGalleryReaderTest, AThumbnailClaimingHundredsOfMegabytesIsRefusedUnread) {
  // A sparse file of 600 MB whose thumbnail claims 600 MB (all inside the
  // file): refused as too large, before anything is allocated or read.
  const std::uint32_t claimed = 600u * 1024 * 1024;
  KpzSpec recipe;
  recipe.thumbnailLengthTag = claimed;
  const std::string path = Write("huge.kpz", recipe);
  ASSERT_TRUE(kpztest::ExtendFileSparse(path, std::uint64_t{claimed} + 0x20000));
  kpztest::ResetCounts();
  Reader reader;
  Reader::Failure why;
  ASSERT_TRUE(reader.OpenPath(path.c_str(), &why)) << why.m_words;
  Reader::Info info;
  reader.GetInfo(&info);
  EXPECT_EQ(info.m_thumbnailLength, 0u);
  EXPECT_GT(info.m_previewLength, 0u);
  Reader::Picture picture;
  EXPECT_FALSE(reader.Locate(Reader::PictureThumbnail, &picture, &why));
  EXPECT_EQ(why.m_kind, DtRawFailure::KindDamaged);
  EXPECT_EQ(why.m_errno, 0);
  EXPECT_STREQ(why.m_words,
               "the thumbnail stored in this file is too large (629145600 bytes; a thumbnail is "
               "at most 262144)");
  EXPECT_EQ(kpztest::CallCount(kpztest::Call::Pread), 1);  // the head only
}

TEST_F(KpzGalleryReaderTest, AThumbnailOfTheBoundIsReadAndOneByteMoreIsRefused) {
  for (const std::uint32_t length : {DtRawErrorText::THUMBNAIL_MAX_SIZE,
                                     DtRawErrorText::THUMBNAIL_MAX_SIZE + 1}) {
    KpzSpec recipe;
    recipe.thumbnail = kpztest::FakeJpeg(length, 0x31);
    kpztest::KpzLayout where;
    const std::string path = Write("b.kpz", recipe, &where);
    Reader reader;
    Reader::Failure why;
    ASSERT_TRUE(reader.OpenPath(path.c_str(), &why)) << why.m_words;
    Reader::Picture picture;
    const bool found = reader.Locate(Reader::PictureThumbnail, &picture, &why);
    if (length == DtRawErrorText::THUMBNAIL_MAX_SIZE) {
      ASSERT_TRUE(found) << why.m_words;
      std::vector<UINT8> out(picture.m_length);
      ASSERT_TRUE(reader.Read(picture, out.data(), &why)) << why.m_words;
      EXPECT_EQ(Bytes(out.begin(), out.end()), recipe.thumbnail);
    } else {
      EXPECT_FALSE(found);
      EXPECT_EQ(why.m_kind, DtRawFailure::KindDamaged);
      EXPECT_STREQ(why.m_words,
                   "the thumbnail stored in this file is too large (262145 bytes; a thumbnail is "
                   "at most 262144)");
    }
  }
}

TEST_F(KpzGalleryReaderTest, APreviewAtTwoGiBIsOutOfReach) {
  KpzSpec recipe;
  recipe.editIfd0 = [](kpztest::Ifd& ifd) {
    ifd.ReplaceRaw(kpztest::tag::kJpegOffset, kpztest::kTiffLong, 1, 0x80000000u);
  };
  const std::string path = Write("a.kpz", recipe);
  Reader reader;
  Reader::Failure why;
  ASSERT_TRUE(reader.OpenPath(path.c_str(), &why));
  Reader::Picture picture;
  EXPECT_FALSE(reader.Locate(Reader::PicturePreview, &picture, &why));
  EXPECT_EQ(why.m_kind, DtRawFailure::KindDamaged);
  EXPECT_STREQ(why.m_words, "preview lies beyond the first 2 GiB of the file, out of reach");
}

TEST_F(KpzGalleryReaderTest, MissingAndEmptyPictures) {
  KpzSpec noThumb;
  noThumb.editIfd1 = [](kpztest::Ifd& ifd) { ifd.Remove(kpztest::tag::kJpegOffset); };
  KpzSpec emptyPreview;
  emptyPreview.screennail = Bytes();
  KpzSpec noPreview;
  noPreview.ifd0ScreennailTags = false;
  struct Case {
    std::string path;
    Reader::PictureKind kind;
    DtRawFailure::Kind expected;
    const char* words;
  } cases[] = {
      {Write("t.kpz", noThumb), Reader::PictureThumbnail, DtRawFailure::KindNoThumbnail,
       "no thumbnail stored in this file"},
      {Write("e.kpz", emptyPreview), Reader::PicturePreview, DtRawFailure::KindNoPreview,
       "the preview stored in this file is empty (0 bytes)"},
      {Write("p.kpz", noPreview), Reader::PicturePreview, DtRawFailure::KindNoPreview,
       "no preview stored in this file"},
  };
  for (const Case& c : cases) {
    Reader reader;
    Reader::Failure why;
    ASSERT_TRUE(reader.OpenPath(c.path.c_str(), &why)) << c.path;
    Reader::Picture picture;
    EXPECT_FALSE(reader.Locate(c.kind, &picture, &why)) << c.path;
    EXPECT_EQ(why.m_kind, c.expected) << c.path;
    EXPECT_EQ(why.m_errno, 0) << c.path;
    EXPECT_STREQ(why.m_words, c.words) << c.path;
  }
}

// Every "not a KPZ raw file (...)" is KindNotKpz, as its words say, also a
// file cut short within its header or directories.
TEST_F(KpzGalleryReaderTest, AFileThatDoesNotParseIsNotKpzWhateverTheReason) {
  KpzSpec far;
  far.ifd1Pointer = 0x00F00000u;
  KpzSpec oneDir;
  oneDir.hasIfd1 = false;
  Bytes cut = kpztest::BuildKpz(KpzSpec());
  cut.resize(6);
  struct Case {
    std::string path;
    DtRawFailure::Kind kind;
    const char* words;
  } cases[] = {
      {Write("far.kpz", far), DtRawFailure::KindNotKpz,
       "not a KPZ raw file (IFD1 lies past the end of the file)"},
      {Write("cut.kpz", cut), DtRawFailure::KindNotKpz,
       "not a KPZ raw file (the file ends within its TIFF header)"},
      {Write("one.kpz", oneDir), DtRawFailure::KindNotKpz,
       "not a KPZ raw file (only one directory, no second one after IFD0)"},
      {Write("text.kpz", kpztest::AsciiBytes("hello", false)), DtRawFailure::KindNotKpz,
       "not a KPZ raw file (no TIFF header)"},
      {Write("empty.kpz", Bytes()), DtRawFailure::KindNotKpz, "not a KPZ raw file (the file is empty)"},
  };
  for (const Case& c : cases) {
    Reader reader;
    Reader::Failure why;
    EXPECT_FALSE(reader.OpenPath(c.path.c_str(), &why)) << c.path;
    EXPECT_EQ(why.m_kind, c.kind) << c.path;
    EXPECT_EQ(why.m_errno, 0) << c.path;
    EXPECT_STREQ(why.m_words, c.words) << c.path;
  }
}

TEST_F(KpzGalleryReaderTest, ADescriptorIsBorrowedItsOffsetKept) {
  const std::string path = Write("a.kpz", KpzSpec());
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(lseek(fd, 7, SEEK_SET), 7);
  {
    Reader reader;
    Reader::Failure why;
    ASSERT_TRUE(reader.OpenFd(fd, &why)) << why.m_words;
    Reader::Picture picture;
    ASSERT_TRUE(reader.Locate(Reader::PicturePreview, &picture, &why));
    std::vector<UINT8> out(picture.m_length);
    ASSERT_TRUE(reader.Read(picture, out.data(), &why));
  }
  EXPECT_EQ(lseek(fd, 0, SEEK_CUR), 7);  // not moved
  EXPECT_NE(fcntl(fd, F_GETFD), -1);     // not closed
  close(fd);
}

TEST_F(KpzGalleryReaderTest, UnreadableDescriptorsAndPaths) {
  Reader::Failure why;
  {
    Reader reader;
    EXPECT_FALSE(reader.OpenFd(-1, &why));
    EXPECT_EQ(why.m_kind, DtRawFailure::KindUnreadable);
    EXPECT_EQ(why.m_errno, EBADF);
  }
  int pipeFds[2];
  ASSERT_EQ(pipe(pipeFds), 0);
  {
    Reader reader;
    EXPECT_FALSE(reader.OpenFd(pipeFds[0], &why));
    EXPECT_EQ(why.m_kind, DtRawFailure::KindUnreadable);
    EXPECT_EQ(why.m_errno, ESPIPE);
    EXPECT_STREQ(why.m_words, "not a regular file (a device, named pipe or socket), not read");
  }
  EXPECT_NE(fcntl(pipeFds[0], F_GETFD), -1);  // still the caller's
  close(pipeFds[0]);
  close(pipeFds[1]);
  {
    Reader reader;
    EXPECT_FALSE(reader.OpenPath((m_dir.Path() + "/gone.kpz").c_str(), &why));
    EXPECT_EQ(why.m_kind, DtRawFailure::KindUnreadable);
    EXPECT_EQ(why.m_errno, ENOENT);
    EXPECT_STREQ(why.m_words, "file not found");
  }
  {
    Reader reader;
    EXPECT_FALSE(reader.OpenPath(m_dir.Path().c_str(), &why));
    EXPECT_EQ(why.m_errno, EISDIR);
    EXPECT_STREQ(why.m_words, "is a directory, not a KPZ raw file");
  }
}

TEST_F(KpzGalleryReaderTest, ReadErrorsCarryTheirErrno) {
  KpzSpec recipe;
  recipe.screennail = kpztest::FakeJpeg(100000, 5);
  const std::string path = Write("a.kpz", recipe);
  {
    kpztest::Arm(kpztest::Call::Pread, EIO);  // the head
    Reader reader;
    Reader::Failure why;
    EXPECT_FALSE(reader.OpenPath(path.c_str(), &why));
    EXPECT_EQ(why.m_kind, DtRawFailure::KindUnreadable);
    EXPECT_EQ(why.m_errno, EIO);
    EXPECT_STREQ(why.m_words, "input/output error while reading the file");
  }
  {
    kpztest::Arm(kpztest::Call::Pread, EINTR);  // interrupted: read again
    Reader reader;
    Reader::Failure why;
    EXPECT_TRUE(reader.OpenPath(path.c_str(), &why)) << why.m_words;
  }
  {
    Reader reader;
    Reader::Failure why;
    ASSERT_TRUE(reader.OpenPath(path.c_str(), &why));
    Reader::Picture picture;
    ASSERT_TRUE(reader.Locate(Reader::PicturePreview, &picture, &why));
    kpztest::Arm(kpztest::Call::Pread, EIO);  // the preview
    std::vector<UINT8> out(picture.m_length);
    EXPECT_FALSE(reader.Read(picture, out.data(), &why));
    EXPECT_EQ(why.m_kind, DtRawFailure::KindUnreadable);
    EXPECT_EQ(why.m_errno, EIO);
    EXPECT_STREQ(why.m_words, "input/output error while reading the preview");
  }
}

TEST_F(KpzGalleryReaderTest, AFileCutShortAfterItsHeadWasReadIsDamaged) {
  KpzSpec recipe;
  recipe.screennail = kpztest::FakeJpeg(100000, 6);
  const std::string path = Write("a.kpz", recipe);
  Reader reader;
  Reader::Failure why;
  ASSERT_TRUE(reader.OpenPath(path.c_str(), &why));
  Reader::Picture picture;
  ASSERT_TRUE(reader.Locate(Reader::PicturePreview, &picture, &why));
  ASSERT_EQ(truncate(path.c_str(), static_cast<off_t>(picture.m_offset + 10)), 0);
  std::vector<UINT8> out(picture.m_length);
  EXPECT_FALSE(reader.Read(picture, out.data(), &why));
  EXPECT_EQ(why.m_kind, DtRawFailure::KindDamaged);
  EXPECT_EQ(why.m_errno, 0);
  EXPECT_STREQ(why.m_words, "preview extends past the end of the file");
}

}  // namespace
