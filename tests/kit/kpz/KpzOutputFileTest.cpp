// KpzOutputFileTest.cpp - output names and all-or-nothing writes of the kpz
// tool (kit/kpz/KpzOutputFile), in process, with the fault seam making the
// temporary file's sync, rename or copy fail; what --sync adds (fsync of the
// file and of its directory) and what the default leaves out.
#include <gtest/gtest.h>

#if defined(KPZ_TEST_HAVE_KIT)

#include "kpz/KpzOutputFile.h"

#include "kpz/KpzSource.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <string>
#include <vector>

#include "support/FaultInjection.h"
#include "support/KpzFileBuilder.h"

namespace {

using kpztest::Bytes;

std::vector<std::string> Listing(const std::string& dir) {
  std::vector<std::string> names;
  for (const auto& e : std::filesystem::directory_iterator(dir)) {
    names.push_back(e.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

TEST(KpzOutputFile, DefaultPathReplacesTheExtensionNextToTheInput) {
  EXPECT_EQ(KpzOutputFile::DefaultPath("dir/x.kpz", ".preview.jpg", false), "dir/x.preview.jpg");
  EXPECT_EQ(KpzOutputFile::DefaultPath("/a/b/x.KPZ", ".thumb.jpg", false), "/a/b/x.thumb.jpg");
  EXPECT_EQ(KpzOutputFile::DefaultPath("x.kpz", ".preview.jpg", false), "x.preview.jpg");
}

TEST(KpzOutputFile, DefaultPathReplacesOnlyTheLastExtension) {
  EXPECT_EQ(KpzOutputFile::DefaultPath("d/a.b.kpz", ".preview.jpg", false), "d/a.b.preview.jpg");
}

TEST(KpzOutputFile, DefaultPathAppendsToANameWithoutExtension) {
  EXPECT_EQ(KpzOutputFile::DefaultPath("d/raw", ".thumb.jpg", false), "d/raw.thumb.jpg");
  EXPECT_EQ(KpzOutputFile::DefaultPath("d/.hidden", ".thumb.jpg", false), "d/.hidden.thumb.jpg");
}

TEST(KpzOutputFile, DefaultPathInTheCurrentDirectoryDropsTheInputsDirectory) {
  EXPECT_EQ(KpzOutputFile::DefaultPath("/src/samples/sample.kpz", ".preview.jpg", true),
            "sample.preview.jpg");
}

TEST(KpzOutputFile, WriteCreatesTheFileWithTheUsualPermissions) {
  kpztest::TempDir dir;
  const std::string out = dir.Path() + "/o.jpg";
  std::string why;
  ASSERT_TRUE(KpzOutputFile::Write(out, Bytes{1, 2, 3}, false, &why)) << why;
  EXPECT_EQ(kpztest::ReadFileBytes(out), (Bytes{1, 2, 3}));
  struct stat st;
  ASSERT_EQ(::stat(out.c_str(), &st), 0);
  const mode_t mask = umask(0);
  umask(mask);
  EXPECT_EQ(st.st_mode & 0777, 0666 & ~mask);
  EXPECT_EQ(Listing(dir.Path()), (std::vector<std::string>{"o.jpg"}));
}

TEST(KpzOutputFile, WriteWithoutADirectoryPartUsesTheCurrentDirectory) {
  kpztest::TempDir dir;
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(dir.Path());
  std::string why;
  const bool ok = KpzOutputFile::Write("plain.jpg", Bytes{9}, false, &why);
  std::filesystem::current_path(before);
  ASSERT_TRUE(ok) << why;
  EXPECT_EQ(kpztest::ReadFileBytes(dir.Path() + "/plain.jpg"), (Bytes{9}));
}

TEST(KpzOutputFile, FailedSyncOfTheFileLeavesNoFileAndKeepsTheOldOne) {
  kpztest::TempDir dir;
  const std::string out = dir.Path() + "/o.jpg";
  ASSERT_TRUE(kpztest::WriteFileBytes(out, Bytes{'o', 'l', 'd'}));
  kpztest::FaultGuard guard;
  kpztest::Arm(kpztest::Call::Fsync, EIO);
  std::string why;
  EXPECT_FALSE(KpzOutputFile::Write(out, Bytes(1000, 7), true, &why));
  EXPECT_EQ(why, std::string("cannot write the file: ") + std::strerror(EIO));
  EXPECT_EQ(kpztest::ReadFileBytes(out), (Bytes{'o', 'l', 'd'}));
  EXPECT_EQ(Listing(dir.Path()), (std::vector<std::string>{"o.jpg"}));
}

TEST(KpzOutputFile, FailedRenameLeavesNoFileAndKeepsTheOldOne) {
  kpztest::TempDir dir;
  const std::string out = dir.Path() + "/r.jpg";
  ASSERT_TRUE(kpztest::WriteFileBytes(out, Bytes{'o', 'l', 'd'}));
  kpztest::FaultGuard guard;
  kpztest::Arm(kpztest::Call::Rename, EXDEV);
  std::string why;
  EXPECT_FALSE(KpzOutputFile::Write(out, Bytes(10, 1), false, &why));
  EXPECT_EQ(why, std::string("cannot create the file: ") + std::strerror(EXDEV));
  EXPECT_EQ(kpztest::ReadFileBytes(out), (Bytes{'o', 'l', 'd'}));
  EXPECT_EQ(Listing(dir.Path()), (std::vector<std::string>{"r.jpg"}));
}

TEST(KpzOutputFile, MissingDirectoryIsReportedWithItsName) {
  kpztest::TempDir dir;
  std::string why;
  EXPECT_FALSE(KpzOutputFile::Write(dir.Path() + "/no/o.jpg", Bytes{1}, false, &why));
  EXPECT_EQ(why, "cannot create a file in " + dir.Path() + "/no: " + std::strerror(ENOENT));
}

TEST(KpzOutputFile, DirectoryIsNotReplaced) {
  kpztest::TempDir dir;
  std::string why;
  EXPECT_FALSE(KpzOutputFile::Write(dir.Path(), Bytes{1}, false, &why));
  EXPECT_EQ(why, "is a directory");
  EXPECT_TRUE(Listing(dir.Path()).empty());
}

TEST(KpzOutputFile, WithoutSyncNothingIsFlushedToTheDisk) {
  kpztest::TempDir dir;
  kpztest::FaultGuard guard;
  std::string why;
  ASSERT_TRUE(KpzOutputFile::Write(dir.Path() + "/n.jpg", Bytes(100, 3), false, &why)) << why;
  EXPECT_EQ(kpztest::CallCount(kpztest::Call::Fsync), 0);
  EXPECT_EQ(kpztest::CallCount(kpztest::Call::Rename), 1);
}

TEST(KpzOutputFile, SyncFlushesTheFileBeforeTheRenameAndItsDirectoryAfter) {
  kpztest::TempDir dir;
  kpztest::FaultGuard guard;
  std::string why;
  // The directory's flush fails: the file is in place, the failure reported.
  kpztest::Arm(kpztest::Call::Fsync, EIO, /*skip=*/1);
  EXPECT_FALSE(KpzOutputFile::Write(dir.Path() + "/s.jpg", Bytes(100, 4), true, &why));
  EXPECT_EQ(why, std::string("written, but its directory could not be flushed to the disk: ") +
                     std::strerror(EIO));
  EXPECT_EQ(kpztest::ReadFileBytes(dir.Path() + "/s.jpg"), Bytes(100, 4));
  EXPECT_EQ(kpztest::CallCount(kpztest::Call::Fsync), 2);
  kpztest::ResetCounts();
  ASSERT_TRUE(KpzOutputFile::Write(dir.Path() + "/t.jpg", Bytes(100, 5), true, &why)) << why;
  EXPECT_EQ(kpztest::CallCount(kpztest::Call::Fsync), 2);
}

TEST(KpzOutputFile, TemporaryFilesOfOneNameNeverCollide) {
  kpztest::TempDir dir;
  // A temporary name already taken is passed over (O_EXCL), never reused.
  for (int i = 0; i < 50; ++i) {
    std::string why;
    ASSERT_TRUE(KpzOutputFile::Write(dir.Path() + "/same.jpg", Bytes(10, static_cast<UINT8>(i)),
                                     false, &why))
        << why;
  }
  EXPECT_EQ(Listing(dir.Path()), (std::vector<std::string>{"same.jpg"}));
  EXPECT_EQ(kpztest::ReadFileBytes(dir.Path() + "/same.jpg"), Bytes(10, 49));
}

// A source file of `n` bytes counting up, opened.
struct OpenSource {
  explicit OpenSource(kpztest::TempDir& dir, std::size_t n = 200000) {
    bytes.resize(n);
    for (std::size_t i = 0; i < n; ++i) bytes[i] = static_cast<UINT8>(i * 7 + i / 256);
    path = dir.Write("src.kpz", bytes);
    std::string why;
    EXPECT_TRUE(source.Open(path, &why)) << why;
  }
  Bytes Slice(std::size_t offset, std::size_t length) const {
    return Bytes(bytes.begin() + static_cast<std::ptrdiff_t>(offset),
                 bytes.begin() + static_cast<std::ptrdiff_t>(offset + length));
  }
  Bytes bytes;
  std::string path;
  KpzSource source;
};

TEST(KpzOutputFile, CopyWritesExactlyTheRangeOfTheSource) {
  kpztest::TempDir dir;
  OpenSource src(dir);
  std::string why;
  EXPECT_EQ(KpzOutputFile::Copy(dir.Path() + "/c.jpg", src.source, 70001, 123457, "preview",
                                false, &why),
            KpzOutputFile::Status::Done)
      << why;
  EXPECT_EQ(kpztest::ReadFileBytes(dir.Path() + "/c.jpg"), src.Slice(70001, 123457));
}

TEST(KpzOutputFile, CopyPastTheEndOfTheSourceIsAnInputFailureAndLeavesNoFile) {
  kpztest::TempDir dir;
  OpenSource src(dir, 1000);
  std::string why;
  EXPECT_EQ(KpzOutputFile::Copy(dir.Path() + "/c.jpg", src.source, 900, 101, "preview", false,
                                &why),
            KpzOutputFile::Status::InputFailed);
  EXPECT_EQ(why, "preview extends past the end of the file");
  EXPECT_EQ(Listing(dir.Path()), (std::vector<std::string>{"src.kpz"}));
}

TEST(KpzOutputFile, CopyOverTheSourceItselfIsRefusedAndTheSourceKept) {
  kpztest::TempDir dir;
  OpenSource src(dir, 1000);
  std::string why;
  EXPECT_EQ(KpzOutputFile::Copy(src.path, src.source, 0, 10, "preview", false, &why),
            KpzOutputFile::Status::WouldReplaceInput);
  EXPECT_EQ(why, "the output would replace the input file");
  EXPECT_EQ(kpztest::ReadFileBytes(src.path), src.bytes);
  EXPECT_EQ(Listing(dir.Path()), (std::vector<std::string>{"src.kpz"}));
}

TEST(KpzOutputFile, CopyFailingToWriteIsAnOutputFailureAndKeepsTheOldFile) {
  kpztest::TempDir dir;
  OpenSource src(dir, 5000);
  const std::string out = dir.Path() + "/full.jpg";
  ASSERT_TRUE(kpztest::WriteFileBytes(out, Bytes{'o', 'l', 'd'}));
  kpztest::FaultGuard guard;
  kpztest::Arm(kpztest::Call::CopyFileRange, ENOSPC);
  kpztest::Arm(kpztest::Call::Sendfile, ENOSPC);
  kpztest::Arm(kpztest::Call::Write, ENOSPC);
  std::string why;
  EXPECT_EQ(KpzOutputFile::Copy(out, src.source, 0, 5000, "preview", false, &why),
            KpzOutputFile::Status::OutputFailed);
  EXPECT_EQ(why, std::string("cannot write the file: ") + std::strerror(ENOSPC));
  EXPECT_EQ(kpztest::ReadFileBytes(out), (Bytes{'o', 'l', 'd'}));
  EXPECT_EQ(Listing(dir.Path()), (std::vector<std::string>{"full.jpg", "src.kpz"}));
}

TEST(KpzOutputFile, CopyToStandardOutputGoesThroughTheSameWays) {
  kpztest::TempDir dir;
  OpenSource src(dir, 3000);
  const std::string captured = dir.Path() + "/stdout";
  std::fflush(stdout);
  const int saved = dup(1);
  const int fd = ::open(captured.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(dup2(fd, 1), 1);
  std::string why;
  const KpzOutputFile::Status s =
      KpzOutputFile::Copy("-", src.source, 100, 2000, "thumbnail", true, &why);
  dup2(saved, 1);
  ::close(saved);
  ::close(fd);
  EXPECT_EQ(s, KpzOutputFile::Status::Done) << why;
  EXPECT_EQ(kpztest::ReadFileBytes(captured), src.Slice(100, 2000));
}

TEST(KpzOutputFile, IsSameFileSeesThroughLinksAndOtherSpellings) {
  kpztest::TempDir dir;
  const std::string a = dir.Write("a.kpz", Bytes{1});
  ASSERT_EQ(::symlink(a.c_str(), (dir.Path() + "/l.kpz").c_str()), 0);
  EXPECT_TRUE(KpzOutputFile::IsSameFile(a, dir.Path() + "/./a.kpz"));
  EXPECT_TRUE(KpzOutputFile::IsSameFile(a, dir.Path() + "/l.kpz"));
  EXPECT_FALSE(KpzOutputFile::IsSameFile(a, dir.Path() + "/b.kpz"));  // does not exist
}

// /dev/null as it must stay on this machine: a character device. A test
// that finds it replaced puts it back at once (as root, mknod c 1 3).
bool DevNullIsADevice() {
  struct stat st;
  return ::lstat("/dev/null", &st) == 0 && S_ISCHR(st.st_mode);
}
void RepairDevNull() {
  if (!DevNullIsADevice() && geteuid() == 0) {
    ::unlink("/dev/null");
    ::mknod("/dev/null", S_IFCHR | 0666, makedev(1, 3));
    ::chmod("/dev/null", 0666);
  }
}

TEST(KpzOutputFile, DevNullIsWrittenThroughAndStaysADevice) {
  ASSERT_TRUE(DevNullIsADevice());
  std::string why;
  const bool ok = KpzOutputFile::Write("/dev/null", Bytes(1041, 7), true, &why);
  const bool stillDevice = DevNullIsADevice();
  RepairDevNull();
  EXPECT_TRUE(ok) << why;
  EXPECT_TRUE(stillDevice) << "/dev/null was replaced (and has been made again)";
}

TEST(KpzOutputFile, CopyToDevNullWritesThroughAndKeepsTheDevice) {
  kpztest::TempDir dir;
  ASSERT_TRUE(DevNullIsADevice());
  const std::string src = dir.Write("src.kpz", Bytes(4000, 3));
  KpzSource source;
  std::string why;
  ASSERT_TRUE(source.Open(src, &why)) << why;
  const KpzOutputFile::Status s =
      KpzOutputFile::Copy("/dev/null", source, 10, 3000, "preview", false, &why);
  const bool stillDevice = DevNullIsADevice();
  RepairDevNull();
  EXPECT_EQ(s, KpzOutputFile::Status::Done) << why;
  EXPECT_TRUE(stillDevice);
}

TEST(KpzOutputFile, AFifoIsWrittenThroughToItsReader) {
  kpztest::TempDir dir;
  const std::string fifo = dir.Path() + "/fifo";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  // The reader is there before the write (so the writer's open does not
  // wait), and the bytes fit in the pipe: nothing here can block.
  const int reader = ::open(fifo.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  ASSERT_GE(reader, 0);
  std::string why;
  EXPECT_TRUE(KpzOutputFile::Write(fifo, Bytes{1, 2, 3, 4, 5}, false, &why)) << why;
  Bytes got;
  for (int i = 0; i < 100 && got.size() < 5; ++i) {  // bounded: at most 100 polls of 100 ms
    struct pollfd p = {reader, POLLIN, 0};
    if (::poll(&p, 1, 100) > 0) {
      UINT8 buf[16];
      const ssize_t n = ::read(reader, buf, sizeof buf);
      if (n <= 0) {
        break;
      }
      got.insert(got.end(), buf, buf + n);
    }
  }
  ::close(reader);
  EXPECT_EQ(got, (Bytes{1, 2, 3, 4, 5}));
  struct stat st;
  ASSERT_EQ(::lstat(fifo.c_str(), &st), 0);
  EXPECT_TRUE(S_ISFIFO(st.st_mode)) << "the FIFO was replaced";
  EXPECT_EQ(Listing(dir.Path()), (std::vector<std::string>{"fifo"}));
}

TEST(KpzOutputFile, ALinksTargetIsWrittenAndTheLinkKept) {
  kpztest::TempDir dir;
  std::filesystem::create_directory(dir.Path() + "/real");
  const std::string target = dir.Write("real/t.jpg", Bytes{'o', 'l', 'd'});
  const std::string link = dir.Path() + "/link.jpg";
  std::filesystem::create_symlink("real/t.jpg", link);
  std::string why;
  ASSERT_TRUE(KpzOutputFile::Write(link, Bytes{1, 2, 3}, false, &why)) << why;
  EXPECT_TRUE(std::filesystem::is_symlink(link));
  EXPECT_EQ(std::filesystem::read_symlink(link), "real/t.jpg");
  EXPECT_EQ(kpztest::ReadFileBytes(target), (Bytes{1, 2, 3}));
  // The temporary file went next to the target, and is gone.
  EXPECT_EQ(Listing(dir.Path() + "/real"), (std::vector<std::string>{"t.jpg"}));
}

TEST(KpzOutputFile, ADanglingLinksTargetIsMadeAndAChainOfLinksFollowed) {
  kpztest::TempDir dir;
  const std::string first = dir.Path() + "/first";
  std::filesystem::create_symlink(dir.Path() + "/second", first);
  std::filesystem::create_symlink("made.jpg", dir.Path() + "/second");
  std::string why;
  ASSERT_TRUE(KpzOutputFile::Write(first, Bytes{9, 9}, false, &why)) << why;
  EXPECT_TRUE(std::filesystem::is_symlink(first));
  EXPECT_TRUE(std::filesystem::is_symlink(dir.Path() + "/second"));
  EXPECT_EQ(kpztest::ReadFileBytes(dir.Path() + "/made.jpg"), (Bytes{9, 9}));
}

TEST(KpzOutputFile, ALinkToTheInputIsRefused) {
  kpztest::TempDir dir;
  const std::string src = dir.Write("src.kpz", Bytes(100, 1));
  std::filesystem::create_symlink("src.kpz", dir.Path() + "/out.jpg");
  KpzSource source;
  std::string why;
  ASSERT_TRUE(source.Open(src, &why)) << why;
  EXPECT_EQ(KpzOutputFile::Copy(dir.Path() + "/out.jpg", source, 0, 10, "preview", false, &why),
            KpzOutputFile::Status::WouldReplaceInput);
  EXPECT_EQ(kpztest::ReadFileBytes(src), Bytes(100, 1));
}

TEST(KpzOutputFile, ALoopOfLinksIsToldInWords) {
  kpztest::TempDir dir;
  std::filesystem::create_symlink("b", dir.Path() + "/a");
  std::filesystem::create_symlink("a", dir.Path() + "/b");
  std::string why;
  EXPECT_FALSE(KpzOutputFile::Write(dir.Path() + "/a", Bytes{1}, false, &why));
  EXPECT_EQ(why, std::string("cannot follow the link: ") + std::strerror(ELOOP));
}

TEST(KpzOutputFile, ASocketIsRefusedAndKept) {
  kpztest::TempDir dir;
  const std::string path = dir.Path() + "/sock";
  const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
  ASSERT_GE(fd, 0);
  struct sockaddr_un addr = {};
  addr.sun_family = AF_UNIX;
  ASSERT_LT(path.size(), sizeof addr.sun_path);
  std::memcpy(addr.sun_path, path.c_str(), path.size() + 1);
  ASSERT_EQ(::bind(fd, reinterpret_cast<struct sockaddr*>(&addr), sizeof addr), 0);
  std::string why;
  EXPECT_FALSE(KpzOutputFile::Write(path, Bytes{1}, false, &why));
  ::close(fd);
  EXPECT_EQ(why, "is a socket: it cannot be written as a file");
  struct stat st;
  ASSERT_EQ(::lstat(path.c_str(), &st), 0);
  EXPECT_TRUE(S_ISSOCK(st.st_mode));
}

TEST(KpzOutputFile, ABlockDeviceIsRefusedAndKept) {
  kpztest::TempDir dir;
  const std::string path = dir.Path() + "/blk";
  // A node of the loop driver, never opened: only root may make one.
  if (::mknod(path.c_str(), S_IFBLK | 0600, makedev(7, 200)) != 0) {
    GTEST_SKIP() << "cannot make a block device node here (needs root)";
  }
  std::string why;
  EXPECT_FALSE(KpzOutputFile::Write(path, Bytes{1}, false, &why));
  EXPECT_EQ(why, "is a block device: kpz writes no picture onto a device");
  struct stat st;
  ASSERT_EQ(::lstat(path.c_str(), &st), 0);
  EXPECT_TRUE(S_ISBLK(st.st_mode));
}

TEST(KpzOutputFile, NamesDirectoryAsCpDoes) {
  kpztest::TempDir dir;
  std::filesystem::create_directory(dir.Path() + "/odir");
  std::filesystem::create_directory_symlink("odir", dir.Path() + "/dlink");
  dir.Write("afile", Bytes{1});
  EXPECT_TRUE(KpzOutputFile::NamesDirectory(dir.Path() + "/odir"));
  EXPECT_TRUE(KpzOutputFile::NamesDirectory(dir.Path() + "/dlink"));
  EXPECT_TRUE(KpzOutputFile::NamesDirectory(dir.Path() + "/new/"));
  EXPECT_FALSE(KpzOutputFile::NamesDirectory(dir.Path() + "/new"));
  EXPECT_FALSE(KpzOutputFile::NamesDirectory(dir.Path() + "/afile"));
  EXPECT_FALSE(KpzOutputFile::NamesDirectory("-"));
  EXPECT_FALSE(KpzOutputFile::NamesDirectory(""));
}

TEST(KpzOutputFile, MakeDirectoryMakesMissingParents) {
  kpztest::TempDir dir;
  std::string why;
  EXPECT_TRUE(KpzOutputFile::MakeDirectory(dir.Path() + "/a/b//c/", &why)) << why;
  EXPECT_TRUE(std::filesystem::is_directory(dir.Path() + "/a/b/c"));
  EXPECT_TRUE(KpzOutputFile::MakeDirectory(dir.Path() + "/a/b", &why)) << why;
}

TEST(KpzOutputFile, MakeDirectoryThroughAFileIsToldInWords) {
  kpztest::TempDir dir;
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(dir.Path());
  kpztest::WriteFileBytes("afile", Bytes{1});
  std::string a, b, c;
  const bool madeA = KpzOutputFile::MakeDirectory("afile/", &a);
  const bool madeB = KpzOutputFile::MakeDirectory("afile/sub/", &b);
  const bool madeC = KpzOutputFile::MakeDirectory("afile", &c);
  std::filesystem::current_path(before);
  EXPECT_FALSE(madeA);
  EXPECT_FALSE(madeB);
  EXPECT_FALSE(madeC);
  EXPECT_EQ(a, "afile: cannot make the output directory: Not a directory");
  EXPECT_EQ(b, "afile/sub: cannot make the output directory: Not a directory");
  EXPECT_EQ(c, "afile: cannot make the output directory: Not a directory");
}

TEST(KpzOutputFile, MakeDirectoryUnderAReadOnlyParentIsToldInWords) {
  if (geteuid() == 0) {
    GTEST_SKIP() << "root writes into read-only directories";
  }
  kpztest::TempDir dir;
  const std::string ro = dir.Path() + "/ro";
  std::filesystem::create_directory(ro);
  ::chmod(ro.c_str(), 0555);
  std::string why;
  EXPECT_FALSE(KpzOutputFile::MakeDirectory(ro + "/new", &why));
  ::chmod(ro.c_str(), 0755);
  EXPECT_EQ(why, ro + "/new: cannot make the output directory: " + std::strerror(EACCES));
}

TEST(KpzOutputFile, MakeDirectoryShowsAForgingNameEscaped) {
  kpztest::TempDir dir;
  dir.Write("f", Bytes{1});
  std::string why;
  EXPECT_FALSE(KpzOutputFile::MakeDirectory(dir.Path() + "/f/x\nwrote y", &why));
  EXPECT_EQ(why.find('\n'), std::string::npos) << why;
}

TEST(KpzOutputFile, JpegEndsWholeChecksTheEnds) {
  const UINT8 head[] = {0xFF, 0xD8, 0xFF, 0xE0};
  const UINT8 tail[] = {0x00, 0xFF, 0xD9};
  const UINT8 cut[] = {0x12, 0x34};
  const UINT8 trailing[] = {0xFF, 0xD9, 0x00};
  const UINT8 png[] = {0x89, 'P', 'N'};
  EXPECT_TRUE(KpzOutputFile::JpegEndsWhole(head, 4, tail, 3, 1000));
  EXPECT_TRUE(KpzOutputFile::JpegEndsWhole(head, 3, tail + 1, 2, 4));
  EXPECT_FALSE(KpzOutputFile::JpegEndsWhole(head, 4, cut, 2, 1000));
  EXPECT_FALSE(KpzOutputFile::JpegEndsWhole(head, 4, trailing, 3, 1000));
  EXPECT_FALSE(KpzOutputFile::JpegEndsWhole(png, 3, tail, 3, 1000));
  EXPECT_FALSE(KpzOutputFile::JpegEndsWhole(head, 4, tail, 3, 3));   // too short
  EXPECT_FALSE(KpzOutputFile::JpegEndsWhole(head, 2, tail, 3, 1000));  // too little head
  EXPECT_FALSE(KpzOutputFile::JpegEndsWhole(head, 4, tail, 3, 0));
}

TEST(KpzOutputFile, IsWholeTakesOnlyARegularWholeJpeg) {
  kpztest::TempDir dir;
  const std::string whole = dir.Write("whole.jpg", Bytes{0xFF, 0xD8, 0xFF, 0xE0, 1, 2, 0xFF, 0xD9});
  EXPECT_TRUE(KpzOutputFile::IsWhole(whole));
  EXPECT_FALSE(KpzOutputFile::IsWhole(dir.Write("empty.jpg", Bytes{})));
  EXPECT_FALSE(KpzOutputFile::IsWhole(dir.Write("garbage.jpg", Bytes(100, 0x41))));
  EXPECT_FALSE(KpzOutputFile::IsWhole(dir.Write("cut.jpg", Bytes{0xFF, 0xD8, 0xFF, 0xE0, 1, 2})));
  std::filesystem::create_directory(dir.Path() + "/folder.jpg");
  EXPECT_FALSE(KpzOutputFile::IsWhole(dir.Path() + "/folder.jpg"));
  std::filesystem::create_symlink("missing.jpg", dir.Path() + "/dangling.jpg");
  EXPECT_FALSE(KpzOutputFile::IsWhole(dir.Path() + "/dangling.jpg"));
  EXPECT_FALSE(KpzOutputFile::IsWhole(dir.Path() + "/absent.jpg"));
  const std::string fifo = dir.Path() + "/fifo.jpg";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  EXPECT_FALSE(KpzOutputFile::IsWhole(fifo));  // never blocks on a FIFO
}

// A process id that is gone: a child that ended and was reaped.
pid_t DeadPid() {
  const pid_t pid = fork();
  if (pid == 0) {
    _exit(0);
  }
  int status = 0;
  waitpid(pid, &status, 0);
  return pid;
}

// Sets the modification time of `path` to `when`.
void Touch(const std::string& path, std::time_t when) {
  const struct timespec times[2] = {{when, 0}, {when, 0}};
  utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW);
}

TEST(KpzOutputFile, TemporaryNameTellsTheMachineAndTheProcess) {
  kpztest::TempDir dir;
  kpztest::FaultGuard guard;
  kpztest::Arm(kpztest::Call::Rename, EIO);
  kpztest::Arm(kpztest::Call::Unlink, EIO);  // so that the temporary file stays to be seen
  std::string why;
  EXPECT_FALSE(KpzOutputFile::Write(dir.Path() + "/o.jpg", Bytes(10, 1), false, &why));
  const std::vector<std::string> names = Listing(dir.Path());
  ASSERT_EQ(names.size(), 1u);
  const std::string& t = names[0];
  const std::string mine = "-" + std::to_string(getpid()) + ".";
  ASSERT_EQ(t.rfind(".o.jpg.kpz-", 0), 0u) << t;
  ASSERT_EQ(t.size() > 7 ? t.compare(t.size() - 7 - mine.size() + 1, mine.size(), mine) : 1, 0)
      << t;
  // Ours, and this process is alive: never stale, whatever its age.
  Touch(dir.Path() + "/" + t, 1000);
  EXPECT_FALSE(KpzOutputFile::IsStaleTemporary(dir.Path(), t));
}

TEST(KpzOutputFile, RemoveStaleTakesOnlyOldTemporariesOfDeadRunsOnThisMachine) {
  kpztest::TempDir dir;
  std::string why;
  {
    kpztest::FaultGuard guard;
    kpztest::Arm(kpztest::Call::Rename, EIO);
    kpztest::Arm(kpztest::Call::Unlink, EIO);
    ASSERT_FALSE(KpzOutputFile::Write(dir.Path() + "/a.jpg", Bytes(10, 1), false, &why));
  }
  const std::string left = Listing(dir.Path())[0];  // ".a.jpg.kpz-<host>-<pid>.XXXXXX"
  const std::string hostAndPid = left.substr(std::string(".a.jpg.kpz-").size());
  const std::string host = hostAndPid.substr(0, hostAndPid.rfind('-'));
  const std::string dead = std::to_string(DeadPid());
  const std::time_t now = std::time(nullptr);
  const std::time_t old = now - KpzOutputFile::kStaleMinutes * 60;
  const auto put = [&](const std::string& name, std::time_t when) {
    ASSERT_TRUE(kpztest::WriteFileBytes(dir.Path() + "/" + name, Bytes(3, 7)));
    Touch(dir.Path() + "/" + name, when);
  };
  std::filesystem::remove(dir.Path() + "/" + left);
  put(".b.preview.jpg.kpz-" + host + "-" + dead + ".aB3xY9", old);      // stale: removed
  put(".c.jpg.kpz-" + host + "-" + dead + ".000000", old - 86400);      // stale: removed
  put(".d.jpg.kpz-" + host + "-" + dead + ".aB3xY9", old + 60);         // changed lately
  put(".e.jpg.kpz-" + host + "-1.aB3xY9", old);                          // pid 1 is alive
  put(".f.jpg.kpz-" + host + "-" + std::to_string(getpid()) + ".aB3xY9", old);  // this run's
  put(".g.jpg.kpz-elsewhere-" + dead + ".aB3xY9", old);                  // another machine
  put(".h.jpg.aB3xY9", old);                                             // no owner in its name
  put(".kpz-" + host + "-" + dead + ".aB3xY9", old);                     // no output name
  put(".i.jpg.kpz-" + host + "-" + dead + ".aB3xY", old);               // 5 characters
  put(".j.jpg.kpz-" + host + "-" + dead + ".aB3x-9", old);              // not letters or digits
  put("k.jpg.kpz-" + host + "-" + dead + ".aB3xY9", old);               // not hidden
  put("user.jpg", old);
  std::filesystem::create_directory(dir.Path() + "/.l.jpg.kpz-" + host + "-" + dead + ".aB3xY9");
  std::filesystem::create_symlink("user.jpg",
                                  dir.Path() + "/.m.jpg.kpz-" + host + "-" + dead + ".aB3xY9");
  Touch(dir.Path() + "/.m.jpg.kpz-" + host + "-" + dead + ".aB3xY9", old);
  EXPECT_EQ(KpzOutputFile::RemoveStale(dir.Path()), 2u);
  const std::vector<std::string> kept = Listing(dir.Path());
  EXPECT_EQ(kept.size(), 12u);
  for (const std::string& name : kept) {
    EXPECT_EQ(name.find(".b.preview.jpg"), std::string::npos);
    EXPECT_EQ(name.find(".c.jpg"), std::string::npos);
  }
  EXPECT_EQ(KpzOutputFile::RemoveStale(dir.Path() + "/missing"), 0u);
}

}  // namespace

#else

TEST(KpzOutputFile, NeedsTheKpzTool) { GTEST_SKIP() << "the kpz tool is not built"; }

#endif
