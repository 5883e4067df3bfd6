// KpzSourceTest.cpp - the kpz tool's own opening of a file and reading of its
// head (kit/kpz/KpzSource): the head is laid out as the library's file-mode
// copy, and every way a read can fail has its own words, never those of a
// file that is not a KPZ file.
#include <gtest/gtest.h>

#if defined(KPZ_TEST_HAVE_KIT)

#include "kpz/KpzSource.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "raw/DtRaw.h"
#include "support/FaultInjection.h"
#include "support/KpzFileBuilder.h"

namespace {

using kpztest::Bytes;

Bytes Counting(std::size_t n) {
  Bytes b(n);
  for (std::size_t i = 0; i < n; ++i) b[i] = static_cast<std::uint8_t>(i % 251 + 1);
  return b;
}

std::string OpenError(const std::string& path) {
  KpzSource src;
  std::string why;
  EXPECT_FALSE(src.Open(path, &why));
  EXPECT_EQ(src.Fd(), -1);
  return why;
}

TEST(KpzSource, HeadIsTheSizeOfTheLibrarysCopy) {
  EXPECT_EQ(KpzSource::kHeadSize, static_cast<std::size_t>(DtRaw::READ_SIZE));
}

TEST(KpzSource, HeadOfAShortFileIsItsBytesThenZeros) {
  kpztest::TempDir dir;
  const Bytes bytes = Counting(1000);
  KpzSource src;
  std::string why;
  ASSERT_TRUE(src.Open(dir.Write("s.kpz", bytes), &why)) << why;
  EXPECT_EQ(src.Size(), 1000u);
  const Bytes head(src.Head(), src.Head() + KpzSource::kHeadSize);
  Bytes want = bytes;
  want.resize(KpzSource::kHeadSize, 0);
  EXPECT_EQ(head, want);
}

TEST(KpzSource, HeadOfALongFileIsItsFirst64KiB) {
  kpztest::TempDir dir;
  const Bytes bytes = Counting(200000);
  KpzSource src;
  std::string why;
  ASSERT_TRUE(src.Open(dir.Write("l.kpz", bytes), &why)) << why;
  EXPECT_EQ(src.Size(), 200000u);
  EXPECT_EQ(Bytes(src.Head(), src.Head() + KpzSource::kHeadSize),
            Bytes(bytes.begin(), bytes.begin() + 65536));
}

TEST(KpzSource, HeadOfAFileReopenedOverALongerOneHasNoStaleBytes) {
  kpztest::TempDir dir;
  KpzSource src;
  std::string why;
  ASSERT_TRUE(src.Open(dir.Write("long.kpz", Counting(70000)), &why)) << why;
  ASSERT_TRUE(src.Open(dir.Write("short.kpz", Bytes(10, 0xAB)), &why)) << why;
  Bytes want(KpzSource::kHeadSize, 0);
  std::fill(want.begin(), want.begin() + 10, 0xAB);
  EXPECT_EQ(Bytes(src.Head(), src.Head() + KpzSource::kHeadSize), want);
}

TEST(KpzSource, MissingFileIsNotFound) {
  kpztest::TempDir dir;
  EXPECT_EQ(OpenError(dir.Path() + "/gone.kpz"), "file not found");
}

TEST(KpzSource, DirectoryIsSaidToBeOne) {
  kpztest::TempDir dir;
  EXPECT_EQ(OpenError(dir.Path()), "is a directory, not a KPZ raw file");
}

TEST(KpzSource, NamedPipeIsRefusedWithoutWaitingForAWriter) {
  kpztest::TempDir dir;
  const std::string fifo = dir.Path() + "/p.kpz";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  EXPECT_EQ(OpenError(fifo), "not a regular file (a device, named pipe or socket), not read");
}

TEST(KpzSource, UnixSocketIsNotARegularFileNotANoDeviceError) {
  kpztest::TempDir dir;
  const std::string path = dir.Path() + "/s.kpz";
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  ASSERT_LT(path.size(), sizeof(addr.sun_path));
  std::memcpy(addr.sun_path, path.c_str(), path.size() + 1);
  const int sock = socket(AF_UNIX, SOCK_STREAM, 0);
  ASSERT_GE(sock, 0);
  ASSERT_EQ(bind(sock, reinterpret_cast<const sockaddr*>(&addr), sizeof(addr)), 0);
  ASSERT_EQ(listen(sock, 1), 0);
  KpzSource source;
  std::string why;
  EXPECT_FALSE(source.Open(path, &why));
  EXPECT_EQ(why, "not a regular file (a device, named pipe or socket), not read");
  EXPECT_EQ(source.Errno(), ESPIPE);  // as the library tells a socket
  close(sock);
}

TEST(KpzSource, RefusedPermissionIsSaidSo) {
  kpztest::TempDir dir;
  const std::string path = dir.Write("p.kpz", Counting(10));
  kpztest::FaultGuard guard;
  kpztest::Arm(kpztest::Call::Open, EACCES);
  EXPECT_EQ(OpenError(path), "the file cannot be opened for reading (permission denied)");
}

TEST(KpzSource, DeviceErrorWhileReadingTheHeadIsAnInputOutputError) {
  kpztest::TempDir dir;
  const std::string path = dir.Write("e.kpz", Counting(100000));
  kpztest::FaultGuard guard;
  kpztest::Arm(kpztest::Call::Pread, EIO);
  EXPECT_EQ(OpenError(path), "input/output error while reading the file");
}

TEST(KpzSource, InterruptedReadOfTheHeadIsRetried) {
  kpztest::TempDir dir;
  const Bytes bytes = Counting(100000);
  const std::string path = dir.Write("i.kpz", bytes);
  kpztest::FaultGuard guard;
  kpztest::Arm(kpztest::Call::Pread, EINTR);
  KpzSource src;
  std::string why;
  ASSERT_TRUE(src.Open(path, &why)) << why;
  EXPECT_EQ(kpztest::CallCount(kpztest::Call::Pread), 2);
  EXPECT_EQ(Bytes(src.Head(), src.Head() + KpzSource::kHeadSize),
            Bytes(bytes.begin(), bytes.begin() + 65536));
}

TEST(KpzSource, OtherReadErrorsAreReportedInTheSystemsWords) {
  kpztest::TempDir dir;
  const std::string path = dir.Write("b.kpz", Counting(100));
  kpztest::FaultGuard guard;
  kpztest::Arm(kpztest::Call::Pread, EISDIR);
  EXPECT_EQ(OpenError(path), "is a directory, not a KPZ raw file");
  kpztest::Arm(kpztest::Call::Pread, EBADF);
  EXPECT_EQ(OpenError(path), "the file cannot be read (bad file descriptor)");
}

TEST(KpzSource, FailingStatusIsReportedInTheSystemsWords) {
  kpztest::TempDir dir;
  const std::string path = dir.Write("f.kpz", Counting(10));
  kpztest::FaultGuard guard;
  kpztest::Arm(kpztest::Call::Fstat, EOVERFLOW);
  EXPECT_EQ(OpenError(path), "the file cannot be read (value too large for defined data type)");
}

TEST(KpzSource, ReadAtGivesTheBytesOrSaysWhyNot) {
  kpztest::TempDir dir;
  const Bytes bytes = Counting(5000);
  KpzSource src;
  std::string why;
  ASSERT_TRUE(src.Open(dir.Write("r.kpz", bytes), &why)) << why;
  Bytes got(100);
  ASSERT_TRUE(src.ReadAt(4900, 100, got.data(), "thumbnail", &why)) << why;
  EXPECT_EQ(got, Bytes(bytes.begin() + 4900, bytes.end()));
  EXPECT_FALSE(src.ReadAt(4901, 100, got.data(), "thumbnail", &why));
  EXPECT_EQ(why, "thumbnail extends past the end of the file");
  kpztest::FaultGuard guard;
  kpztest::Arm(kpztest::Call::Pread, EIO);
  EXPECT_FALSE(src.ReadAt(0, 100, got.data(), "preview", &why));
  EXPECT_EQ(why, "input/output error while reading the preview");
}

TEST(KpzSource, CloseEndsTheDescriptorOnce) {
  kpztest::TempDir dir;
  KpzSource src;
  std::string why;
  ASSERT_TRUE(src.Open(dir.Write("c.kpz", Counting(10)), &why)) << why;
  EXPECT_GE(src.Fd(), 0);
  kpztest::FaultGuard guard;
  src.Close();
  src.Close();
  EXPECT_EQ(src.Fd(), -1);
  EXPECT_EQ(kpztest::CallCount(kpztest::Call::Close), 1);
}

TEST(KpzSource, ReadsOfAFileInMemoryAskNoHint) {
  kpztest::TempDir dir;
  const Bytes bytes = Counting(300000);
  const std::string path = dir.Write("w.kpz", bytes);
  if (!kpztest::ReadsWithoutWaiting(path)) {
    GTEST_SKIP() << "no reads without waiting here: every file is read as from a cold disk";
  }
  kpztest::FaultGuard guard;
  KpzSource src;
  std::string why;
  ASSERT_TRUE(src.Open(path, &why)) << why;
  Bytes got(150000);
  ASSERT_TRUE(src.ReadAt(100000, got.size(), got.data(), "preview", &why)) << why;
  EXPECT_EQ(got, Bytes(bytes.begin() + 100000, bytes.begin() + 250000));
  EXPECT_EQ(kpztest::CallCount(kpztest::Call::Preadv2), 2);
  EXPECT_EQ(kpztest::CallCount(kpztest::Call::Pread), 0);
  EXPECT_TRUE(kpztest::FadviseCalls().empty());
}

TEST(KpzSource, ReadsFromADiskTurnReadaheadOffFirst) {
  kpztest::TempDir dir;
  const Bytes bytes = Counting(300000);
  const std::string path = dir.Write("h.kpz", bytes);
  kpztest::FaultGuard guard;
  kpztest::Arm(kpztest::Call::Preadv2, EAGAIN, 0, 100);  // nothing in memory, as on a cold disk
  KpzSource src;
  std::string why;
  ASSERT_TRUE(src.Open(path, &why)) << why;
  std::vector<kpztest::FadviseCall> calls = kpztest::FadviseCalls();
  ASSERT_EQ(calls.size(), 1u);
  EXPECT_EQ(calls[0].fd, src.Fd());
  EXPECT_EQ(calls[0].offset, 0);
  EXPECT_EQ(calls[0].length, 0);
  EXPECT_EQ(calls[0].advice, POSIX_FADV_RANDOM);
  Bytes got(150000);
  ASSERT_TRUE(src.ReadAt(100000, got.size(), got.data(), "preview", &why)) << why;
  EXPECT_EQ(got, Bytes(bytes.begin() + 100000, bytes.begin() + 250000));
  // Readahead stays off; each read asks for its own range, in one pread.
  calls = kpztest::FadviseCalls();
  ASSERT_EQ(calls.size(), 2u);
  EXPECT_EQ(calls[1].advice, POSIX_FADV_RANDOM);
  EXPECT_EQ(kpztest::CallCount(kpztest::Call::Pread), 2);
}

TEST(KpzSource, RefusedReadHintsChangeNothingElse) {
  kpztest::TempDir dir;
  const Bytes bytes = Counting(200000);
  const std::string path = dir.Write("r.kpz", bytes);
  kpztest::FaultGuard guard;
  kpztest::Arm(kpztest::Call::Preadv2, EAGAIN, 0, 100);  // the hints are asked for
  kpztest::Arm(kpztest::Call::Fadvise, EINVAL, 0, 100);  // and refused
  KpzSource src;
  std::string why;
  errno = 0;
  ASSERT_TRUE(src.Open(path, &why)) << why;
  EXPECT_EQ(Bytes(src.Head(), src.Head() + KpzSource::kHeadSize),
            Bytes(bytes.begin(), bytes.begin() + KpzSource::kHeadSize));
  Bytes got(1000);
  ASSERT_TRUE(src.ReadAt(199000, got.size(), got.data(), "preview", &why)) << why;
  EXPECT_EQ(got, Bytes(bytes.begin() + 199000, bytes.end()));
  EXPECT_EQ(errno, 0);  // the refusals left no trace
  EXPECT_FALSE(src.ReadAt(199001, got.size(), got.data(), "preview", &why));
  EXPECT_EQ(why, "preview extends past the end of the file");
  EXPECT_EQ(kpztest::CallCount(kpztest::Call::Fadvise), 3);
}

TEST(KpzSource, AdoptTakesSizeAndIdentityWithoutReadingThenReadHeadReads) {
  kpztest::TempDir dir;
  const Bytes bytes = Counting(5000);
  const std::string path = dir.Write("a.kpz", bytes);
  const int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  ASSERT_GE(fd, 0);
  KpzSource src;
  std::string why;
  ASSERT_TRUE(src.Adopt(fd, "a.kpz", &why)) << why;
  struct stat st;
  ASSERT_EQ(stat(path.c_str(), &st), 0);
  EXPECT_EQ(src.Size(), 5000u);
  EXPECT_EQ(src.Inode(), st.st_ino);
  EXPECT_EQ(src.Fd(), fd);
  EXPECT_EQ(fcntl(fd, F_GETFL) & O_NONBLOCK, 0);  // cleared for a regular file
  ASSERT_TRUE(src.ReadHead(&why)) << why;
  EXPECT_EQ(Bytes(src.Head(), src.Head() + 5000), bytes);
}

TEST(KpzSource, AdoptRefusesAFolderAndAPipeInOpensWords) {
  kpztest::TempDir dir;
  const std::string fifo = dir.Path() + "/p.kpz";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  KpzSource src;
  std::string why;
  EXPECT_FALSE(src.Adopt(open(fifo.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC), "p.kpz", &why));
  EXPECT_EQ(why, OpenError(fifo));
  EXPECT_EQ(src.Fd(), -1);
  EXPECT_FALSE(src.Adopt(open(dir.Path().c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC), "d", &why));
  EXPECT_EQ(src.Errno(), EISDIR);
}

TEST(KpzSource, ReleaseHandsTheDescriptorOver) {
  kpztest::TempDir dir;
  KpzSource src;
  std::string why;
  ASSERT_TRUE(src.Open(dir.Write("r.kpz", Counting(100)), &why)) << why;
  const int fd = src.Release();
  ASSERT_GE(fd, 0);
  EXPECT_EQ(src.Fd(), -1);
  src.Close();
  EXPECT_EQ(fcntl(fd, F_GETFD) >= 0, true);  // still open: the caller's
  EXPECT_EQ(close(fd), 0);
  EXPECT_EQ(src.Release(), -1);
}

}  // namespace

#else

TEST(KpzSource, NeedsTheKpzTool) { GTEST_SKIP() << "the kpz tool is not built"; }

#endif
