#include "util/io/DtNlFileStatus.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utime.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>

#include "support/FaultInjection.h"
#include "support/LogExpect.h"
#include "util/io/DtNlFile.h"
#include "util/io/DtNlFileStatus64.h"

namespace {

struct stat Record(unsigned int mode) {
  struct stat rec {};
  rec.st_mode = static_cast<mode_t>(mode);
  return rec;
}

struct stat64 Record64(unsigned int mode) {
  struct stat64 rec {};
  rec.st_mode = static_cast<mode_t>(mode);
  return rec;
}

// The nine permission accessors, in the order user/group/other x read/write/execute.
template <typename S>
int Bits(S const& s) {
  return s.IsUserReadable() << 8 | s.IsUserWritable() << 7 | s.IsUserExecutable() << 6 |
         s.IsGroupReadable() << 5 | s.IsGroupWritable() << 4 | s.IsGroupExecutable() << 3 |
         s.IsOtherReadable() << 2 | s.IsOtherWritable() << 1 | s.IsOtherExecutable();
}

TEST(DtNlFileStatus, FreshRecordIsAllZero) {
  DtNlFileStatus s;
  EXPECT_EQ(s.GetMode(), 0u);
  EXPECT_EQ(s.IsFile(), 0);
  EXPECT_EQ(s.IsDir(), 0);
  EXPECT_EQ(Bits(s), 0);
  EXPECT_EQ(s.GetSize(), 0u);
  EXPECT_EQ(s.GetLastAccessTime(), 0);
  EXPECT_EQ(s.GetLastModificationTime(), 0);
  EXPECT_EQ(s.GetLastChangeTime(), 0);
  DtNlFileStatus64 s64;
  EXPECT_EQ(s64.GetMode(), 0u);
  EXPECT_EQ(s64.IsFile(), 0);
  EXPECT_EQ(s64.IsDir(), 0);
  EXPECT_EQ(Bits(s64), 0);
  EXPECT_EQ(s64.GetSize(), 0u);
  EXPECT_EQ(s64.GetLastAccessTime(), 0);
  EXPECT_EQ(s64.GetLastModificationTime(), 0);
  EXPECT_EQ(s64.GetLastChangeTime(), 0);
}

TEST(DtNlFileStatus, ModeIsReturnedWhole) {
  EXPECT_EQ(DtNlFileStatus(Record(0x81A4u)).GetMode(), 0x81A4u);
  EXPECT_EQ(DtNlFileStatus64(Record64(0x41EDu)).GetMode(), 0x41EDu);
}

TEST(DtNlFileStatus, KindComparesTheWholeTypeField) {
  struct Case {
    unsigned int type;
    int file;
    int dir;
  };
  const Case cases[] = {
      {0x8000u, 1, 0},  // regular file
      {0x4000u, 0, 1},  // directory
      {0xA000u, 0, 0},  // symbolic link: has the regular-file bit
      {0xC000u, 0, 0},  // socket: has both bits
      {0x6000u, 0, 0},  // block device: has the directory bit
      {0x1000u, 0, 0},  // fifo
      {0x2000u, 0, 0},  // character device
  };
  for (const Case& c : cases) {
    DtNlFileStatus s(Record(c.type | 0777u));
    DtNlFileStatus64 s64(Record64(c.type | 0777u));
    EXPECT_EQ(s.IsFile(), c.file) << std::hex << c.type;
    EXPECT_EQ(s.IsDir(), c.dir) << std::hex << c.type;
    EXPECT_EQ(s64.IsFile(), c.file) << std::hex << c.type;
    EXPECT_EQ(s64.IsDir(), c.dir) << std::hex << c.type;
  }
}

TEST(DtNlFileStatus, EachPermissionAccessorReadsItsOwnBit) {
  for (int bit = 0; bit < 9; ++bit) {
    const unsigned int mode = 0x8000u | (1u << bit);
    EXPECT_EQ(Bits(DtNlFileStatus(Record(mode))), 1 << bit) << bit;
    EXPECT_EQ(Bits(DtNlFileStatus64(Record64(mode))), 1 << bit) << bit;
  }
  EXPECT_EQ(Bits(DtNlFileStatus(Record(07777u))), 0777);
  EXPECT_EQ(Bits(DtNlFileStatus64(Record64(0x8000u | 07000u))), 0);
}

TEST(DtNlFileStatus, SizeKeepsTheLow32BitsAndSize64KeepsAll) {
  struct stat rec = Record(0x8000u);
  rec.st_size = static_cast<off_t>(0x123456789LL);
  EXPECT_EQ(DtNlFileStatus(rec).GetSize(), 0x23456789u);
  rec.st_size = static_cast<off_t>(0xFFFFFFFFLL);
  EXPECT_EQ(DtNlFileStatus(rec).GetSize(), 0xFFFFFFFFu);
  struct stat64 rec64 = Record64(0x8000u);
  rec64.st_size = static_cast<off64_t>(0x123456789LL);
  EXPECT_EQ(DtNlFileStatus64(rec64).GetSize(), 0x123456789ULL);
}

TEST(DtNlFileStatus, NegativeSize64ReadsAsZero) {
  struct stat64 rec64 = Record64(0x8000u);
  rec64.st_size = -1;
  EXPECT_EQ(DtNlFileStatus64(rec64).GetSize(), 0u);
}

TEST(DtNlFileStatus, TimesAndUTimeComeFromTheRecord) {
  struct stat rec = Record(0x8000u);
  rec.st_atime = 111;
  rec.st_mtime = 222;
  rec.st_ctime = 333;
  DtNlFileStatus s(rec);
  EXPECT_EQ(s.GetLastAccessTime(), 111);
  EXPECT_EQ(s.GetLastModificationTime(), 222);
  EXPECT_EQ(s.GetLastChangeTime(), 333);
  utimbuf u{};
  s.GetUTime(&u);
  EXPECT_EQ(u.actime, 111);
  EXPECT_EQ(u.modtime, 222);

  struct stat64 rec64 = Record64(0x8000u);
  rec64.st_atime = 444;
  rec64.st_mtime = 555;
  rec64.st_ctime = 666;
  DtNlFileStatus64 s64(rec64);
  EXPECT_EQ(s64.GetLastAccessTime(), 444);
  EXPECT_EQ(s64.GetLastModificationTime(), 555);
  EXPECT_EQ(s64.GetLastChangeTime(), 666);
  s64.GetUTime(&u);
  EXPECT_EQ(u.actime, 444);
  EXPECT_EQ(u.modtime, 555);
}

TEST(DtNlFileStatusDeathTest, UTimeIntoNullAsserts) {
  DtNlFileStatus s;
  EXPECT_EXIT(s.GetUTime(nullptr), testing::ExitedWithCode(255),
              testing::Eq(kpztest::AssertText("jni/util/io/DtNlFileStatus.cpp", "GetUTime", 52, "")));
  DtNlFileStatus64 s64;
  EXPECT_EXIT(s64.GetUTime(nullptr), testing::ExitedWithCode(255),
              testing::Eq(kpztest::AssertText("jni/util/io/DtNlFileStatus64.cpp", "GetUTime", 53,
                                              "")));
}

// Records filled from real files.

class DtNlFileStatusFs : public testing::Test {
 protected:
  void SetUp() override {
    char tmpl[] = "/tmp/kpz-status-XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    dir_ = tmpl;
  }
  void TearDown() override {
    std::error_code ec;
    std::filesystem::remove_all(dir_, ec);
  }
  std::string P(const std::string& name) const { return dir_ + "/" + name; }

  kpztest::FaultGuard guard_;
  std::string dir_;
};

TEST_F(DtNlFileStatusFs, StatOfARegularFileDecodesKindModeSizeAndTimes) {
  {
    std::ofstream out(P("x"), std::ios::binary);
    out << "0123456789AB";
  }
  ASSERT_EQ(chmod(P("x").c_str(), 0640), 0);
  utimbuf times{};
  times.actime = 1234567;
  times.modtime = 7654321;
  ASSERT_EQ(utime(P("x").c_str(), &times), 0);

  DtNlFileStatus s;
  ASSERT_EQ(DtNlFile(P("x").c_str()).Stat(&s).errCode, DtNlErrNone);
  EXPECT_EQ(s.IsFile(), 1);
  EXPECT_EQ(s.IsDir(), 0);
  EXPECT_EQ(s.GetMode() & 07777u, 0640u);
  EXPECT_EQ(Bits(s), 0640);
  EXPECT_EQ(s.GetSize(), 12u);
  EXPECT_EQ(s.GetLastAccessTime(), 1234567);
  EXPECT_EQ(s.GetLastModificationTime(), 7654321);
  utimbuf back{};
  s.GetUTime(&back);
  EXPECT_EQ(back.actime, 1234567);
  EXPECT_EQ(back.modtime, 7654321);

  DtNlFileStatus64 s64;
  ASSERT_EQ(DtNlFile(P("x").c_str()).Stat64(&s64).errCode, DtNlErrNone);
  EXPECT_EQ(s64.IsFile(), 1);
  EXPECT_EQ(Bits(s64), 0640);
  EXPECT_EQ(s64.GetSize(), 12u);
  EXPECT_EQ(s64.GetLastModificationTime(), 7654321);
  EXPECT_EQ(s64.GetLastChangeTime(), s.GetLastChangeTime());
}

TEST_F(DtNlFileStatusFs, StatOfADirectoryIsADirectory) {
  DtNlFileStatus s;
  ASSERT_EQ(DtNlFile(dir_.c_str()).Stat(&s).errCode, DtNlErrNone);
  EXPECT_EQ(s.IsDir(), 1);
  EXPECT_EQ(s.IsFile(), 0);
}

TEST_F(DtNlFileStatusFs, FileBeyond4GiBKeepsTheLowWordIn32BitsAndAllIn64) {
  // Where st_size itself is 32 bits wide, stat refuses such a file
  // (EOVERFLOW); DtNlWidthTest pins that behaviour for both widths.
  if (sizeof(static_cast<struct stat*>(nullptr)->st_size) < 8) {
    GTEST_SKIP() << "st_size is 32 bits wide here";
  }
  // A sparse file: no data blocks are written.
  const int fd = ::open(P("big").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  ASSERT_GE(fd, 0);
  const off64_t fiveGiB = static_cast<off64_t>(5) << 30;
  const int truncated = ftruncate64(fd, fiveGiB);
  ::close(fd);
  if (truncated != 0) GTEST_SKIP() << "file system cannot hold a 5 GiB sparse file";

  DtNlFileStatus s;
  ASSERT_EQ(DtNlFile(P("big").c_str()).Stat(&s).errCode, DtNlErrNone);
  EXPECT_EQ(s.GetSize(), 1u << 30);  // 5 GiB modulo 4 GiB
  DtNlFileStatus64 s64;
  ASSERT_EQ(DtNlFile(P("big").c_str()).Stat64(&s64).errCode, DtNlErrNone);
  EXPECT_EQ(s64.GetSize(), static_cast<std::uint64_t>(5) << 30);
}

}  // namespace
