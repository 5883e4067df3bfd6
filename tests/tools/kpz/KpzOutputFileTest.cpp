// KpzOutputFileTest.cpp - output names and all-or-nothing writes of the kpz
// tool (tools/kpz/KpzOutputFile), in process, with the fault seam making the
// temporary file's sync or rename fail.
#include <gtest/gtest.h>

#if defined(KPZ_TEST_HAVE_TOOL)

#include "kpz/KpzOutputFile.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
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
  ASSERT_TRUE(KpzOutputFile::Write(out, Bytes{1, 2, 3}, &why)) << why;
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
  const bool ok = KpzOutputFile::Write("plain.jpg", Bytes{9}, &why);
  std::filesystem::current_path(before);
  ASSERT_TRUE(ok) << why;
  EXPECT_EQ(kpztest::ReadFileBytes(dir.Path() + "/plain.jpg"), (Bytes{9}));
}

TEST(KpzOutputFile, FailedSyncLeavesNoFileAndKeepsTheOldOne) {
  kpztest::TempDir dir;
  const std::string out = dir.Path() + "/o.jpg";
  ASSERT_TRUE(kpztest::WriteFileBytes(out, Bytes{'o', 'l', 'd'}));
  kpztest::FaultGuard guard;
  kpztest::Arm(kpztest::Call::Fsync, EIO);
  std::string why;
  EXPECT_FALSE(KpzOutputFile::Write(out, Bytes(1000, 7), &why));
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
  EXPECT_FALSE(KpzOutputFile::Write(out, Bytes(10, 1), &why));
  EXPECT_EQ(why, std::string("cannot create the file: ") + std::strerror(EXDEV));
  EXPECT_EQ(kpztest::ReadFileBytes(out), (Bytes{'o', 'l', 'd'}));
  EXPECT_EQ(Listing(dir.Path()), (std::vector<std::string>{"r.jpg"}));
}

TEST(KpzOutputFile, MissingDirectoryIsReportedWithItsName) {
  kpztest::TempDir dir;
  std::string why;
  EXPECT_FALSE(KpzOutputFile::Write(dir.Path() + "/no/o.jpg", Bytes{1}, &why));
  EXPECT_EQ(why, "cannot create a file in " + dir.Path() + "/no: " + std::strerror(ENOENT));
}

TEST(KpzOutputFile, DirectoryIsNotReplaced) {
  kpztest::TempDir dir;
  std::string why;
  EXPECT_FALSE(KpzOutputFile::Write(dir.Path(), Bytes{1}, &why));
  EXPECT_EQ(why, "is a directory");
  EXPECT_TRUE(Listing(dir.Path()).empty());
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
