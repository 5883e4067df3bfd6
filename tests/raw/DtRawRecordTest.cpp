// DtRawRecordTest.cpp - one parse of a file's head into one record, over a
// descriptor, memory and a test stream; one failure kind with its words.
#include "raw/DtRawRecord.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "support/FaultInjection.h"
#include "support/KpzFileBuilder.h"
#include "util/io/DtNlReadAt.h"

namespace {

using Bytes = std::vector<UINT8>;
using kpztest::KpzSpec;

// A stream over memory that serves at most `m_chunk` bytes per call of its
// source and fails with `m_err` once `m_failAt` bytes were served: the
// contract's loop (go on after short counts, give the errno and the count
// read) is its own, as every front end's stream must have it.
class ChoppyStream : public DtNlReadAt {
 public:
  explicit ChoppyStream(const Bytes& data) : m_data(data) {}
  int GetData(std::uint64_t offset, std::size_t length, UINT8* out, std::size_t* got) override {
    std::size_t done = 0;
    int err = 0;
    while (done < length && offset + done < m_data.size()) {
      if (offset + done >= m_failAt) {
        err = m_err;
        break;
      }
      std::size_t n = length - done;
      n = n < m_chunk ? n : m_chunk;
      const std::size_t left = m_data.size() - static_cast<std::size_t>(offset + done);
      n = n < left ? n : left;
      const std::uint64_t beforeFault = m_failAt - (offset + done);
      n = n < beforeFault ? n : static_cast<std::size_t>(beforeFault);
      std::memcpy(out + done, m_data.data() + offset + done, n);
      done += n;
      ++m_calls;
    }
    *got = done;
    return err;
  }
  std::uint64_t Size() const override { return m_data.size(); }

  Bytes m_data;
  std::size_t m_chunk = 1000;
  std::uint64_t m_failAt = UINT64_MAX;
  int m_err = EIO;
  int m_calls = 0;
};

class DtRawRecordTest : public ::testing::Test {
 protected:
  DtRawRecordTest() : m_head(new UINT8[DtRawRecord::HEAD_SIZE]) {}

  DtRawExpected<DtRawRecord> FromPath(const std::string& name, const Bytes& bytes) {
    DtRawFailure why;
    if (!DtRawRecord::OpenPath(&m_file, m_dir.Write(name, bytes).c_str(), &why)) {
      return why;
    }
    return DtRawRecord::Read(m_file, m_head.get());
  }

  kpztest::TempDir m_dir;
  DtNlFdReadAt m_file;
  std::unique_ptr<UINT8[]> m_head;
};

TEST_F(DtRawRecordTest, OneParseGivesBothPicturesTheOrientationTheModelAndTheDate) {
  KpzSpec layout;
  layout.orientation = 6;
  layout.dateTimeOriginal = std::string("2011:02:03 04:05:06");
  kpztest::KpzLayout where;
  const Bytes bytes = kpztest::BuildKpz(layout, &where);
  const DtRawExpected<DtRawRecord> record = FromPath("a.kpz", bytes);
  ASSERT_TRUE(record) << record.Failure().m_words;
  EXPECT_EQ(record->m_fileSize, bytes.size());
  EXPECT_EQ(record->m_orientation, 6);
  EXPECT_TRUE(record->m_orientationRecorded);
  EXPECT_TRUE(record->m_hasModel);
  EXPECT_STREQ(record->m_model, "DSLR-M100");
  ASSERT_TRUE(record->m_hasDateTime);
  EXPECT_EQ(record->m_dateTime.m_year, 2011);
  EXPECT_EQ(record->m_dateTime.m_second, 6);
  EXPECT_EQ(record->m_previewWidth, 1616);
  EXPECT_EQ(record->m_previewHeight, 1080);
  const DtRawExpected<DtRawRecord::Range> preview = record->Locate(DtRawRecord::PicturePreview);
  ASSERT_TRUE(preview);
  EXPECT_EQ(preview->m_offset, where.screennail);
  EXPECT_EQ(preview->m_length, layout.screennail.size());
  const DtRawExpected<DtRawRecord::Range> thumb = record->Locate(DtRawRecord::PictureThumbnail);
  ASSERT_TRUE(thumb);
  EXPECT_EQ(thumb->m_offset, where.thumbnail);
  EXPECT_EQ(thumb->m_length, layout.thumbnail.size());
  std::vector<UINT8> jpeg(thumb->m_length);
  DtRawFailure why;
  ASSERT_TRUE(DtRawRecord::ReadPicture(m_file, *thumb, jpeg.data(), &why)) << why.m_words;
  EXPECT_EQ(jpeg, layout.thumbnail);
}

TEST_F(DtRawRecordTest, APathAWholeBufferAHeadAndAChoppyStreamGiveOneRecord) {
  KpzSpec layout;
  layout.minTotalSize = 3 * DtRawRecord::HEAD_SIZE;
  const Bytes bytes = kpztest::BuildKpz(layout);
  const DtRawExpected<DtRawRecord> byPath = FromPath("a.kpz", bytes);
  ASSERT_TRUE(byPath);

  // A whole buffer is parsed in place: the caller's head is not written.
  std::memset(m_head.get(), 0xA5, DtRawRecord::HEAD_SIZE);
  DtNlMemReadAt mem(bytes.data(), bytes.size());
  const DtRawExpected<DtRawRecord> byMemory = DtRawRecord::Read(mem, m_head.get());
  ASSERT_TRUE(byMemory);
  EXPECT_EQ(m_head[0], 0xA5);
  EXPECT_EQ(m_head[DtRawRecord::HEAD_SIZE - 1], 0xA5);

  // A remote file's head, fetched by the caller.
  const DtRawExpected<DtRawRecord> byHead = DtRawRecord::Parse(bytes.data(), 4096, bytes.size());
  ASSERT_TRUE(byHead);

  ChoppyStream choppy(bytes);
  choppy.m_chunk = 777;
  const DtRawExpected<DtRawRecord> byStream = DtRawRecord::Read(choppy, m_head.get());
  ASSERT_TRUE(byStream);
  EXPECT_GT(choppy.m_calls, 80) << "the head came in short pieces";

  for (const DtRawRecord* r : {&*byMemory, &*byHead, &*byStream}) {
    for (DtRawRecord::Picture which : {DtRawRecord::PicturePreview, DtRawRecord::PictureThumbnail}) {
      const DtRawExpected<DtRawRecord::Range> want = byPath->Locate(which);
      const DtRawExpected<DtRawRecord::Range> got = r->Locate(which);
      ASSERT_TRUE(got);
      EXPECT_EQ(got->m_offset, want->m_offset);
      EXPECT_EQ(got->m_length, want->m_length);
    }
    EXPECT_STREQ(r->m_model, byPath->m_model);
    EXPECT_EQ(r->m_orientation, byPath->m_orientation);
    EXPECT_EQ(r->m_fileSize, bytes.size());
  }
}

TEST_F(DtRawRecordTest, APicturesOnlyParseLocatesAlikeAndLeavesTheMetadataUnread) {
  const Bytes bytes = kpztest::BuildKpz(KpzSpec());
  const DtRawExpected<DtRawRecord> all = DtRawRecord::Parse(bytes.data(), bytes.size(), bytes.size());
  const DtRawExpected<DtRawRecord> pictures = DtRawRecord::Parse(
      bytes.data(), bytes.size(), bytes.size(), DtRawRecord::FieldsPictures);
  ASSERT_TRUE(all);
  ASSERT_TRUE(pictures);
  EXPECT_TRUE(all->m_hasModel);
  EXPECT_TRUE(all->m_hasDateTime);
  EXPECT_FALSE(pictures->m_hasModel);
  EXPECT_FALSE(pictures->m_hasDateTime);
  EXPECT_STREQ(pictures->m_model, "");
  EXPECT_EQ(pictures->m_orientationRecorded, all->m_orientationRecorded);
  EXPECT_EQ(pictures->m_orientationStored, all->m_orientationStored);
  for (DtRawRecord::Picture which : {DtRawRecord::PicturePreview, DtRawRecord::PictureThumbnail}) {
    ASSERT_TRUE(pictures->Locate(which));
    EXPECT_EQ(pictures->Locate(which)->m_offset, all->Locate(which)->m_offset);
    EXPECT_EQ(pictures->Locate(which)->m_length, all->Locate(which)->m_length);
  }
}

TEST_F(DtRawRecordTest, AHeadReadThatFailsIsUnreadableWithTheSystemsWords) {
  ChoppyStream choppy(kpztest::BuildKpz(KpzSpec()));
  choppy.m_failAt = 100;
  const DtRawExpected<DtRawRecord> record = DtRawRecord::Read(choppy, m_head.get());
  ASSERT_FALSE(record);
  EXPECT_EQ(record.Failure().m_kind, DtRawFailure::KindUnreadable);
  EXPECT_EQ(record.Failure().m_errno, EIO);
  EXPECT_STREQ(record.Failure().m_words, "input/output error while reading the file");
}

TEST_F(DtRawRecordTest, AHeadReadByDescriptorRetriesEintrAndReportsEio) {
  const Bytes bytes = kpztest::BuildKpz(KpzSpec());
  const std::string path = m_dir.Write("a.kpz", bytes);
  DtRawFailure why;
  ASSERT_TRUE(DtRawRecord::OpenPath(&m_file, path.c_str(), &why));
  kpztest::FaultGuard guard;
  kpztest::Arm(kpztest::Call::Pread, EINTR, 0, 2);
  EXPECT_TRUE(DtRawRecord::Read(m_file, m_head.get()));
  kpztest::Arm(kpztest::Call::Pread, EIO);
  const DtRawExpected<DtRawRecord> failed = DtRawRecord::Read(m_file, m_head.get());
  ASSERT_FALSE(failed);
  EXPECT_EQ(failed.Failure().m_kind, DtRawFailure::KindUnreadable);
  EXPECT_EQ(failed.Failure().m_errno, EIO);
}

TEST_F(DtRawRecordTest, EveryNotAKpzFileIsNotKpzAlsoWhenCutShort) {
  Bytes cutInHeader = kpztest::BuildKpz(KpzSpec());
  cutInHeader.resize(6);
  Bytes cutInIfd0 = kpztest::BuildKpz(KpzSpec());
  cutInIfd0.resize(20);
  KpzSpec far;
  far.ifd1Pointer = 0x00F00000u;
  struct Case {
    const char* name;
    Bytes bytes;
    const char* words;
  } cases[] = {
      {"header", cutInHeader, "not a KPZ raw file (the file ends within its TIFF header)"},
      {"ifd0", cutInIfd0, "not a KPZ raw file (IFD0 runs past the end of the file)"},
      {"far", kpztest::BuildKpz(far), "not a KPZ raw file (IFD1 lies past the end of the file)"},
      {"empty", Bytes(), "not a KPZ raw file (the file is empty)"},
      {"text", kpztest::AsciiBytes("hello", false), "not a KPZ raw file (no TIFF header)"},
  };
  for (const Case& c : cases) {
    const DtRawExpected<DtRawRecord> record = FromPath(c.name, c.bytes);
    ASSERT_FALSE(record) << c.name;
    EXPECT_EQ(record.Failure().m_kind, DtRawFailure::KindNotKpz) << c.name;
    EXPECT_EQ(record.Failure().m_errno, 0) << c.name;
    EXPECT_NE(record.Failure().m_code, 0) << c.name;
    EXPECT_STREQ(record.Failure().m_words, c.words) << c.name;
    // The same from memory.
    const DtRawExpected<DtRawRecord> inMemory =
        DtRawRecord::Parse(c.bytes.data(), c.bytes.size(), c.bytes.size());
    ASSERT_FALSE(inMemory) << c.name;
    EXPECT_EQ(inMemory.Failure().m_kind, DtRawFailure::KindNotKpz) << c.name;
    EXPECT_STREQ(inMemory.Failure().m_words, c.words) << c.name;
  }
}

TEST_F(DtRawRecordTest, EachPictureFailsOnItsOwnWithItsKind) {
  KpzSpec layout;
  layout.hasIfd1 = false;
  layout.ifd0ScreennailTags = true;
  layout.screennailLengthTag = 0x7FFFFFF0u;
  KpzSpec noThumbnail;
  noThumbnail.thumbnailLengthTag = 0;
  KpzSpec hugeThumbnail;
  hugeThumbnail.thumbnailLengthTag = DtRawErrorText::THUMBNAIL_MAX_SIZE + 1;
  hugeThumbnail.minTotalSize = DtRawErrorText::THUMBNAIL_MAX_SIZE + 0x20000;
  KpzSpec noPreview;
  noPreview.ifd0ScreennailTags = false;
  struct Case {
    const char* name;
    KpzSpec layout;
    DtRawRecord::Picture which;
    DtRawFailure::Kind kind;
    const char* words;
  } cases[] = {
      {"empty-thumb", noThumbnail, DtRawRecord::PictureThumbnail, DtRawFailure::KindNoThumbnail,
       "the thumbnail stored in this file is empty (0 bytes)"},
      {"huge-thumb", hugeThumbnail, DtRawRecord::PictureThumbnail, DtRawFailure::KindDamaged,
       "the thumbnail stored in this file is too large (262145 bytes; a thumbnail is at most "
       "262144)"},
      {"no-preview", noPreview, DtRawRecord::PicturePreview, DtRawFailure::KindNoPreview,
       "no preview stored in this file"},
  };
  for (const Case& c : cases) {
    const DtRawExpected<DtRawRecord> record = FromPath(c.name, kpztest::BuildKpz(c.layout));
    ASSERT_TRUE(record) << c.name << ": " << record.Failure().m_words;
    const DtRawExpected<DtRawRecord::Range> range = record->Locate(c.which);
    ASSERT_FALSE(range) << c.name;
    EXPECT_EQ(range.Failure().m_kind, c.kind) << c.name;
    EXPECT_STREQ(range.Failure().m_words, c.words) << c.name;
    const DtRawRecord::Picture other = c.which == DtRawRecord::PicturePreview
                                           ? DtRawRecord::PictureThumbnail
                                           : DtRawRecord::PicturePreview;
    EXPECT_TRUE(record->Locate(other)) << c.name << ": the other picture is unaffected";
  }
}

TEST_F(DtRawRecordTest, APictureReadThatMeetsTheEndIsDamagedAnErrorUnreadable) {
  const Bytes bytes = kpztest::BuildKpz(KpzSpec());
  const DtRawExpected<DtRawRecord> record = DtRawRecord::Parse(bytes.data(), 512, bytes.size());
  ASSERT_TRUE(record);
  const DtRawExpected<DtRawRecord::Range> preview = record->Locate(DtRawRecord::PicturePreview);
  ASSERT_TRUE(preview);
  std::vector<UINT8> out(preview->m_length);
  DtRawFailure why;

  Bytes shorter(bytes.begin(), bytes.begin() + static_cast<long>(preview->m_offset) + 1);
  ChoppyStream cut(shorter);
  EXPECT_FALSE(DtRawRecord::ReadPicture(cut, *preview, out.data(), &why));
  EXPECT_EQ(why.m_kind, DtRawFailure::KindDamaged);
  EXPECT_EQ(why.m_errno, 0);
  EXPECT_STREQ(why.m_words, "preview extends past the end of the file");

  ChoppyStream failing(bytes);
  failing.m_failAt = preview->m_offset + 1;
  EXPECT_FALSE(DtRawRecord::ReadPicture(failing, *preview, out.data(), &why));
  EXPECT_EQ(why.m_kind, DtRawFailure::KindUnreadable);
  EXPECT_EQ(why.m_errno, EIO);
  EXPECT_STREQ(why.m_words, "input/output error while reading the preview");

  // A head in memory without the rest of its file: the picture is not held.
  DtNlMemReadAt head(bytes.data(), 512, bytes.size());
  if (preview->m_offset + preview->m_length > 512) {
    EXPECT_FALSE(DtRawRecord::ReadPicture(head, *preview, out.data(), &why));
    EXPECT_EQ(why.m_kind, DtRawFailure::KindUnreadable);
    EXPECT_EQ(why.m_errno, ENODATA);
  }
}

TEST_F(DtRawRecordTest, NotAFileIsUnreadableInTheToolsWords) {
  DtRawFailure why;
  EXPECT_FALSE(DtRawRecord::OpenPath(&m_file, (m_dir.Path() + "/none").c_str(), &why));
  EXPECT_EQ(why.m_kind, DtRawFailure::KindUnreadable);
  EXPECT_EQ(why.m_errno, ENOENT);
  EXPECT_STREQ(why.m_words, "file not found");
  EXPECT_FALSE(DtRawRecord::OpenPath(&m_file, m_dir.Path().c_str(), &why));
  EXPECT_EQ(why.m_kind, DtRawFailure::KindUnreadable);
  EXPECT_EQ(why.m_errno, EISDIR);
  EXPECT_STREQ(why.m_words, DtRawErrorText::Directory());
  EXPECT_FALSE(DtRawRecord::OpenFd(&m_file, -1, &why));
  EXPECT_EQ(why.m_errno, EBADF);

  // A socket by name: refused as what it is, not as "no such device".
  const std::string path = m_dir.Path() + "/sock";
  sockaddr_un addr;
  std::memset(&addr, 0, sizeof addr);
  addr.sun_family = AF_UNIX;
  ASSERT_LT(path.size(), sizeof addr.sun_path);
  std::memcpy(addr.sun_path, path.c_str(), path.size() + 1);
  const int sock = socket(AF_UNIX, SOCK_STREAM, 0);
  ASSERT_GE(sock, 0);
  ASSERT_EQ(bind(sock, reinterpret_cast<const sockaddr*>(&addr), sizeof addr), 0);
  EXPECT_FALSE(DtRawRecord::OpenPath(&m_file, path.c_str(), &why));
  EXPECT_EQ(why.m_kind, DtRawFailure::KindUnreadable);
  EXPECT_EQ(why.m_errno, ESPIPE);
  EXPECT_STREQ(why.m_words, DtRawErrorText::NotRegular());
  close(sock);
  unlink(path.c_str());
}

TEST(DtRawFailure, KindsKeepTheJavaNumbersAndHaveNames) {
  EXPECT_EQ(DtRawFailure::KindNotKpz, 0);
  EXPECT_EQ(DtRawFailure::KindDamaged, 1);
  EXPECT_EQ(DtRawFailure::KindNoPreview, 2);
  EXPECT_EQ(DtRawFailure::KindNoThumbnail, 3);
  EXPECT_EQ(DtRawFailure::KindUnreadable, 4);
  EXPECT_STREQ(DtRawFailure::Name(DtRawFailure::KindNotKpz), "not_kpz");
  EXPECT_STREQ(DtRawFailure::Name(DtRawFailure::KindNoThumbnail), "no_thumbnail");
  EXPECT_STREQ(DtRawFailure::Name(DtRawFailure::KindNone), "none");
}

}  // namespace
