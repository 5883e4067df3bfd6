// KpzCopyTest.cpp - copying a byte range from file to file (kit/kpz/KpzCopy):
// every way gives the same bytes, a refused way hands the rest to the next
// (the fault seam refuses copy_file_range and sendfile as an old kernel or
// another file system would), the last way's buffer is bounded, and input
// and output failures are told apart.
#include <gtest/gtest.h>

#if defined(KPZ_TEST_HAVE_KIT)

#include "kpz/KpzCopy.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>
#include <thread>

#include "support/FaultInjection.h"
#include "support/KpzFileBuilder.h"

namespace {

using kpztest::Bytes;
using Way = KpzCopy::Way;
using Failure = KpzCopy::Failure;

Bytes Pattern(std::size_t n) {
  Bytes b(n);
  for (std::size_t i = 0; i < n; ++i) b[i] = static_cast<std::uint8_t>((i * 31) ^ (i >> 9));
  return b;
}

Bytes Slice(const Bytes& b, std::size_t offset, std::size_t length) {
  return Bytes(b.begin() + static_cast<std::ptrdiff_t>(offset),
               b.begin() + static_cast<std::ptrdiff_t>(offset + length));
}

// A source file and an empty output file, both open.
class KpzCopyTest : public testing::Test {
 protected:
  void SetUp() override {
    bytes = Pattern(1500000);
    const std::string src = dir.Write("in.kpz", bytes);
    in = ::open(src.c_str(), O_RDONLY);
    outPath = dir.Path() + "/out.jpg";
    out = ::open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    ASSERT_GE(in, 0);
    ASSERT_GE(out, 0);
  }
  void TearDown() override {
    ::close(in);
    if (out >= 0) ::close(out);
  }
  Bytes Written() {
    ::close(out);
    out = -1;
    return kpztest::ReadFileBytes(outPath);
  }

  kpztest::TempDir dir;
  Bytes bytes;
  std::string outPath;
  int in = -1;
  int out = -1;
};

TEST_F(KpzCopyTest, CopyFileRangeCopiesTheRangeAndNothingElse) {
  kpztest::FaultGuard guard;
  const KpzCopy::Result r = KpzCopy::Range(in, 65536 + 17, 1234567, out);
  EXPECT_EQ(r.failure, Failure::None);
  EXPECT_EQ(r.copied, 1234567u);
  EXPECT_EQ(r.last, Way::CopyFileRange);
  EXPECT_EQ(kpztest::CallCount(kpztest::Call::Pread), 0);  // not through the process
  EXPECT_EQ(Written(), Slice(bytes, 65536 + 17, 1234567));
}

TEST_F(KpzCopyTest, RefusedCopyFileRangeFallsBackToSendfile) {
  kpztest::FaultGuard guard;
  kpztest::Arm(kpztest::Call::CopyFileRange, EXDEV);
  const KpzCopy::Result r = KpzCopy::Range(in, 100, 1000000, out);
  EXPECT_EQ(r.failure, Failure::None);
  EXPECT_EQ(r.last, Way::Sendfile);
  EXPECT_EQ(Written(), Slice(bytes, 100, 1000000));
}

TEST_F(KpzCopyTest, RefusedSendfileFallsBackToABoundedReadWriteLoop) {
  kpztest::FaultGuard guard;
  kpztest::Arm(kpztest::Call::CopyFileRange, ENOSYS);
  kpztest::Arm(kpztest::Call::Sendfile, EINVAL);
  const KpzCopy::Result r = KpzCopy::Range(in, 3, 1000000, out);
  EXPECT_EQ(r.failure, Failure::None);
  EXPECT_EQ(r.last, Way::ReadWrite);
  // 1,000,000 bytes through a buffer of 256 KiB: four reads.
  EXPECT_EQ(kpztest::CallCount(kpztest::Call::Pread), 4);
  EXPECT_EQ(Written(), Slice(bytes, 3, 1000000));
}

TEST_F(KpzCopyTest, EachWayWritesOnFromTheOutputsPosition) {
  // A first part by copy_file_range, the rest by the read/write loop after
  // both kernel ways failed: the output is the two parts in order.
  const KpzCopy::Result first = KpzCopy::RangeFrom(Way::CopyFileRange, in, 0, 4096, out);
  ASSERT_EQ(first.failure, Failure::None);
  kpztest::FaultGuard guard;
  kpztest::Arm(kpztest::Call::CopyFileRange, EIO);
  kpztest::Arm(kpztest::Call::Sendfile, EIO);
  const KpzCopy::Result rest = KpzCopy::Range(in, 4096, bytes.size() - 4096, out);
  EXPECT_EQ(rest.failure, Failure::None);
  EXPECT_EQ(rest.last, Way::ReadWrite);
  EXPECT_EQ(Written(), bytes);
}

TEST_F(KpzCopyTest, EveryWayGivesTheSameBytes) {
  for (Way way : {Way::CopyFileRange, Way::Sendfile, Way::ReadWrite}) {
    ASSERT_EQ(ftruncate(out, 0), 0);
    ASSERT_EQ(lseek(out, 0, SEEK_SET), 0);
    const KpzCopy::Result r = KpzCopy::RangeFrom(way, in, 777, 654321, out);
    EXPECT_EQ(r.failure, Failure::None);
    EXPECT_EQ(r.last, way);
    EXPECT_EQ(kpztest::ReadFileBytes(outPath), Slice(bytes, 777, 654321));
  }
}

TEST_F(KpzCopyTest, InputEndingEarlyIsReportedWithWhatWasCopied) {
  const KpzCopy::Result r = KpzCopy::Range(in, bytes.size() - 10, 11, out);
  EXPECT_EQ(r.failure, Failure::InputEnded);
  EXPECT_EQ(r.copied, 10u);
  EXPECT_EQ(r.last, Way::ReadWrite);  // each way had its say
}

TEST_F(KpzCopyTest, ReadErrorIsAnInputFailure) {
  kpztest::FaultGuard guard;
  kpztest::Arm(kpztest::Call::CopyFileRange, EIO);
  kpztest::Arm(kpztest::Call::Sendfile, EIO);
  kpztest::Arm(kpztest::Call::Pread, EIO);
  const KpzCopy::Result r = KpzCopy::Range(in, 0, 5000, out);
  EXPECT_EQ(r.failure, Failure::Input);
  EXPECT_EQ(r.err, EIO);
}

TEST_F(KpzCopyTest, WriteErrorIsAnOutputFailure) {
  kpztest::FaultGuard guard;
  kpztest::Arm(kpztest::Call::CopyFileRange, ENOSPC);
  kpztest::Arm(kpztest::Call::Sendfile, ENOSPC);
  kpztest::Arm(kpztest::Call::Write, ENOSPC);
  const KpzCopy::Result r = KpzCopy::Range(in, 0, 5000, out);
  EXPECT_EQ(r.failure, Failure::Output);
  EXPECT_EQ(r.err, ENOSPC);
}

TEST_F(KpzCopyTest, APipeTakesTheBytesThroughAWayThatServesIt) {
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  Bytes got;
  std::thread reader([&] {
    unsigned char buf[65536];
    for (;;) {  // until the writer closes its end
      const ssize_t n = ::read(fds[0], buf, sizeof buf);
      if (n <= 0) break;
      got.insert(got.end(), buf, buf + n);
    }
  });
  const KpzCopy::Result r = KpzCopy::Range(in, 5, 300000, fds[1]);
  ::close(fds[1]);
  reader.join();
  ::close(fds[0]);
  EXPECT_EQ(r.failure, Failure::None);
  EXPECT_NE(r.last, Way::CopyFileRange);  // copy_file_range takes regular files only
  EXPECT_EQ(got, Slice(bytes, 5, 300000));
}

TEST_F(KpzCopyTest, EveryWayFirstAsksForTheWholeInputRangeAtOnce) {
  for (const Way first : {Way::CopyFileRange, Way::Sendfile, Way::ReadWrite}) {
    kpztest::FaultGuard guard;
    const KpzCopy::Result r = KpzCopy::RangeFrom(first, in, 4096 + 5, 700000, out);
    EXPECT_EQ(r.failure, Failure::None);
    const std::vector<kpztest::FadviseCall> calls = kpztest::FadviseCalls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].fd, in);
    EXPECT_EQ(calls[0].offset, 4096 + 5);
    EXPECT_EQ(calls[0].length, 700000);
    EXPECT_EQ(calls[0].advice, POSIX_FADV_WILLNEED);
  }
  Bytes want = Slice(bytes, 4096 + 5, 700000);
  Bytes thrice = want;
  thrice.insert(thrice.end(), want.begin(), want.end());
  thrice.insert(thrice.end(), want.begin(), want.end());
  EXPECT_EQ(Written(), thrice);
}

TEST_F(KpzCopyTest, RefusedReadHintChangesNothingElse) {
  kpztest::FaultGuard guard;
  kpztest::Arm(kpztest::Call::Fadvise, EINVAL);
  errno = 0;
  const KpzCopy::Result r = KpzCopy::Range(in, 17, 1000000, out);
  EXPECT_EQ(r.failure, Failure::None);
  EXPECT_EQ(r.copied, 1000000u);
  EXPECT_EQ(r.last, Way::CopyFileRange);
  EXPECT_EQ(errno, 0);
  EXPECT_EQ(kpztest::CallCount(kpztest::Call::Fadvise), 1);
  EXPECT_EQ(Written(), Slice(bytes, 17, 1000000));
}

TEST_F(KpzCopyTest, EmptyRangeAsksForNothing) {
  // posix_fadvise would take a length of 0 as "to the end of the file".
  kpztest::FaultGuard guard;
  const KpzCopy::Result r = KpzCopy::Range(in, 100, 0, out);
  EXPECT_EQ(r.failure, Failure::None);
  EXPECT_EQ(kpztest::CallCount(kpztest::Call::Fadvise), 0);
  EXPECT_EQ(Written(), Bytes());
}

}  // namespace

#else

TEST(KpzCopy, NeedsTheKpzTool) { GTEST_SKIP() << "the kpz tool is not built"; }

#endif
