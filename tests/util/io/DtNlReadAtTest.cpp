// DtNlReadAtTest.cpp - the read-at contract over a descriptor and over
// memory: whole reads, the end of the data, errors, interrupted calls.
#include "util/io/DtNlReadAt.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <string>
#include <vector>

#include "support/FaultInjection.h"
#include "support/KpzFileBuilder.h"

namespace {

using Bytes = std::vector<UINT8>;

Bytes Pattern(std::size_t n) {
  Bytes b(n);
  for (std::size_t i = 0; i < n; ++i) {
    b[i] = static_cast<UINT8>(i * 7 + 3);
  }
  return b;
}

class DtNlReadAtTest : public ::testing::Test {
 protected:
  std::string Write(const std::string& name, const Bytes& bytes) { return m_dir.Write(name, bytes); }
  kpztest::TempDir m_dir;
};

TEST_F(DtNlReadAtTest, AFileReadsEveryByteAskedForInsideIt) {
  const Bytes data = Pattern(5000);
  DtNlFdReadAt file;
  ASSERT_EQ(file.OpenPath(Write("a", data).c_str()), 0);
  EXPECT_EQ(file.FileType(), DtNlFdReadAt::TypeRegular);
  EXPECT_EQ(file.Size(), 5000u);
  Bytes out(100, 0xEE);
  std::size_t got = 99;
  EXPECT_EQ(file.GetData(1000, 100, out.data(), &got), 0);
  EXPECT_EQ(got, 100u);
  EXPECT_EQ(out, Bytes(data.begin() + 1000, data.begin() + 1100));
}

TEST_F(DtNlReadAtTest, AFileReadNearItsEndGivesTheBytesLeftAndNoError) {
  const Bytes data = Pattern(300);
  DtNlFdReadAt file;
  ASSERT_EQ(file.OpenPath(Write("a", data).c_str()), 0);
  Bytes out(100, 0xEE);
  std::size_t got = 0;
  EXPECT_EQ(file.GetData(250, 100, out.data(), &got), 0);
  EXPECT_EQ(got, 50u);
  EXPECT_EQ(Bytes(out.begin(), out.begin() + 50), Bytes(data.begin() + 250, data.end()));
  EXPECT_EQ(out[50], 0xEE) << "bytes past the count are left as they were";
  EXPECT_EQ(file.GetData(300, 10, out.data(), &got), 0);
  EXPECT_EQ(got, 0u);
  EXPECT_EQ(file.GetData(1u << 20, 10, out.data(), &got), 0);
  EXPECT_EQ(got, 0u);
}

TEST_F(DtNlReadAtTest, AnInterruptedReadIsRetriedNotReturned) {
  const Bytes data = Pattern(64);
  DtNlFdReadAt file;
  ASSERT_EQ(file.OpenPath(Write("a", data).c_str()), 0);
  kpztest::FaultGuard guard;
  kpztest::Arm(kpztest::Call::Pread, EINTR, 0, 3);
  Bytes out(64);
  std::size_t got = 0;
  EXPECT_EQ(file.GetData(0, 64, out.data(), &got), 0);
  EXPECT_EQ(got, 64u);
  EXPECT_EQ(out, data);
  EXPECT_EQ(kpztest::CallCount(kpztest::Call::Pread), 4);
}

TEST_F(DtNlReadAtTest, AFailingReadGivesItsErrno) {
  DtNlFdReadAt file;
  ASSERT_EQ(file.OpenPath(Write("a", Pattern(64)).c_str()), 0);
  kpztest::FaultGuard guard;
  kpztest::Arm(kpztest::Call::Pread, EIO);
  Bytes out(64);
  std::size_t got = 7;
  EXPECT_EQ(file.GetData(0, 64, out.data(), &got), EIO);
  EXPECT_EQ(got, 0u);
}

TEST_F(DtNlReadAtTest, AnOffsetBeyondWhatTheSystemAddressesIsEoverflow) {
  DtNlFdReadAt file;
  ASSERT_EQ(file.OpenPath(Write("a", Pattern(64)).c_str()), 0);
  Bytes out(8);
  std::size_t got = 7;
  EXPECT_EQ(file.GetData(UINT64_MAX - 2, 8, out.data(), &got), EOVERFLOW);
  EXPECT_EQ(got, 0u);
}

TEST_F(DtNlReadAtTest, NothingAskedNothingRead) {
  DtNlFdReadAt file;
  ASSERT_EQ(file.OpenPath(Write("a", Pattern(64)).c_str()), 0);
  kpztest::FaultGuard guard;
  std::size_t got = 7;
  EXPECT_EQ(file.GetData(0, 0, nullptr, &got), 0);
  EXPECT_EQ(got, 0u);
  EXPECT_EQ(kpztest::CallCount(kpztest::Call::Pread), 0);
}

TEST_F(DtNlReadAtTest, OpeningTellsTheErrnoAndTheTypeOfWhatIsThere) {
  DtNlFdReadAt file;
  EXPECT_EQ(file.OpenPath((m_dir.Path() + "/missing").c_str()), ENOENT);
  EXPECT_EQ(file.Fd(), -1);
  ASSERT_EQ(file.OpenPath(m_dir.Path().c_str()), 0);
  EXPECT_EQ(file.FileType(), DtNlFdReadAt::TypeDirectory);
  const std::string fifo = m_dir.Path() + "/fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  ASSERT_EQ(file.OpenPath(fifo.c_str()), 0) << "a named pipe is opened without waiting";
  EXPECT_EQ(file.FileType(), DtNlFdReadAt::TypeStream);
  file.Close();
  unlink(fifo.c_str());
  EXPECT_EQ(file.Adopt(-1, false), EBADF);
}

TEST_F(DtNlReadAtTest, ABorrowedDescriptorIsNeitherClosedNorMoved) {
  const Bytes data = Pattern(64);
  const int fd = open(Write("a", data).c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(lseek(fd, 5, SEEK_SET), 5);
  {
    DtNlFdReadAt file;
    ASSERT_EQ(file.Adopt(fd, false), 0);
    Bytes out(10);
    std::size_t got = 0;
    EXPECT_EQ(file.GetData(20, 10, out.data(), &got), 0);
    EXPECT_EQ(got, 10u);
  }
  EXPECT_EQ(lseek(fd, 0, SEEK_CUR), 5);
  EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC) << "still open";
  close(fd);
}

TEST_F(DtNlReadAtTest, AnOwnedDescriptorIsClosedWithTheObject) {
  const int fd = open(Write("a", Pattern(8)).c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_GE(fd, 0);
  {
    DtNlFdReadAt file;
    ASSERT_EQ(file.Adopt(fd, true), 0);
  }
  errno = 0;
  EXPECT_EQ(fcntl(fd, F_GETFD), -1);
  EXPECT_EQ(errno, EBADF);
}

TEST(DtNlMemReadAt, ReadsInsideClampsAtTheEndAndViewsWithoutACopy) {
  const Bytes data = Pattern(100);
  DtNlMemReadAt mem(data.data(), data.size());
  EXPECT_EQ(mem.Size(), 100u);
  Bytes out(30, 0xEE);
  std::size_t got = 0;
  EXPECT_EQ(mem.GetData(80, 30, out.data(), &got), 0);
  EXPECT_EQ(got, 20u);
  EXPECT_EQ(Bytes(out.begin(), out.begin() + 20), Bytes(data.begin() + 80, data.end()));
  EXPECT_EQ(out[20], 0xEE);
  EXPECT_EQ(mem.GetData(100, 5, out.data(), &got), 0);
  EXPECT_EQ(got, 0u);
  EXPECT_EQ(mem.View(10, 90), data.data() + 10);
  EXPECT_EQ(mem.View(10, 91), nullptr);
  EXPECT_EQ(mem.View(UINT64_MAX, 1), nullptr);
}

TEST(DtNlMemReadAt, AHeadOfALargerFileReadsWhatItHoldsThenEnodata) {
  const Bytes head = Pattern(100);
  DtNlMemReadAt mem(head.data(), head.size(), 1000);
  EXPECT_EQ(mem.Size(), 1000u);
  Bytes out(50, 0xEE);
  std::size_t got = 0;
  EXPECT_EQ(mem.GetData(90, 50, out.data(), &got), ENODATA);
  EXPECT_EQ(got, 10u);
  EXPECT_EQ(mem.GetData(500, 50, out.data(), &got), ENODATA);
  EXPECT_EQ(got, 0u);
  EXPECT_EQ(mem.GetData(990, 50, out.data(), &got), ENODATA);
  EXPECT_EQ(got, 0u);
  EXPECT_EQ(mem.GetData(1000, 50, out.data(), &got), 0) << "past the end: the end of the data";
  EXPECT_EQ(got, 0u);
}

}  // namespace
