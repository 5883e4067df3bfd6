// KpzOutputFileTest.cpp - output names and all-or-nothing writes of the kpz
// tool (kit/kpz/KpzOutputFile), in process, with the fault seam making the
// temporary file's sync, rename or copy fail; what --sync adds (fsync of the
// file and of its directory) and what the default leaves out.
#include <gtest/gtest.h>

#if defined(KPZ_TEST_HAVE_KIT)

#include "kpz/KpzOutputFile.h"

#include "kpz/KpzSource.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
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

}  // namespace

#else

TEST(KpzOutputFile, NeedsTheKpzTool) { GTEST_SKIP() << "the kpz tool is not built"; }

#endif
