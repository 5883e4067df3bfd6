// KpzToolStdoutTest.cpp - standard output that cannot take what kpz prints
// (a full device: /dev/full), run as a program: every command's lines lost
// are an output failure, told on standard error, exit status 3, counted in
// the summary per file; the help too.
#include <gtest/gtest.h>

#if defined(KPZ_TOOL)

#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <vector>

#include "KpzToolRunner.h"
#include "support/KpzFileBuilder.h"

namespace {

using kpztest::Bytes;
using kpztest::KpzSpec;
using kpztool::Lines;
using kpztool::Result;
namespace fs = std::filesystem;

const char kFull[] = "/dev/full";
const char kLost[] = "cannot write to standard output: No space left on device";

class KpzToolStdout : public testing::Test {
 protected:
  void SetUp() override {
    struct stat st;
    if (stat(kFull, &st) != 0 || !S_ISCHR(st.st_mode)) {
      GTEST_SKIP() << "no /dev/full here";
    }
  }
  std::string Put(const std::string& rel) {
    const std::string p = dir.Path() + "/" + rel;
    fs::create_directories(fs::path(p).parent_path());
    KpzSpec recipe;
    recipe.thumbnail = kpztest::FakeJpeg(32, 7);
    EXPECT_TRUE(kpztest::WriteFileBytes(p, kpztest::BuildKpz(recipe)));
    return p;
  }
  Result RunFull(const std::vector<std::string>& args) {
    return kpztool::RunTool(args, dir.Path(), dir.Path(), -1, kFull);
  }

  kpztest::TempDir dir;
};

TEST_F(KpzToolStdout, InfoTableLostIsExit3InWords) {
  Put("a.kpz");
  const Result r = RunFull({"info", "a.kpz"});
  EXPECT_EQ(r.exit, 3);
  EXPECT_EQ(r.err, std::string("kpz: a.kpz: ") + kLost + "\n");
}

TEST_F(KpzToolStdout, InfoJsonOfADirectoryCountsEachRecordLostInTheSummary) {
  Put("d/a.kpz");
  Put("d/b.kpz");
  const Result r = RunFull({"info", "--json", "d"});
  EXPECT_EQ(r.exit, 3);
  const std::vector<std::string> lines = Lines(r.err);
  ASSERT_EQ(lines.size(), 4u) << r.err;
  EXPECT_EQ(lines[0], std::string("kpz: d/a.kpz: ") + kLost);
  EXPECT_EQ(lines[1], std::string("kpz: d/b.kpz: ") + kLost);
  EXPECT_EQ(lines[2], "kpz: 2 files: 0 done, 2 failed");
  EXPECT_EQ(lines[3], std::string("kpz:   2 ") + kLost);
}

TEST_F(KpzToolStdout, PreviewWroteLinesLostAreOutputFailures) {
  Put("a.kpz");
  Put("b.kpz");
  const Result r = RunFull({"thumbnail", "a.kpz", "b.kpz", "-o", "out"});
  EXPECT_EQ(r.exit, 3);
  EXPECT_NE(r.err.find(std::string("kpz: a.kpz: ") + kLost + "\n"), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("kpz: 2 files: 0 done, 2 failed\n"), std::string::npos) << r.err;
}

TEST_F(KpzToolStdout, RotateLinesLostAreOutputFailures) {
  Put("a.kpz");
  const Result r = RunFull({"rotate", "--cw", "a.kpz"});
  EXPECT_EQ(r.exit, 3);
  EXPECT_EQ(r.err, std::string("kpz: a.kpz: ") + kLost + "\n");
}

TEST_F(KpzToolStdout, QuietPreviewPrintsNothingSoLosesNothing) {
  Put("a.kpz");
  Put("b.kpz");
  const Result r = RunFull({"thumbnail", "-q", "a.kpz", "b.kpz", "-o", "out"});
  EXPECT_EQ(r.exit, 0);
  EXPECT_EQ(r.err, "");
}

TEST_F(KpzToolStdout, HelpAndVersionLostAreExit3) {
  for (const char* arg : {"--help", "--version"}) {
    const Result r = RunFull({arg});
    EXPECT_EQ(r.exit, 3) << arg;
    EXPECT_EQ(r.err, std::string("kpz: ") + kLost + "\n") << arg;
  }
}

}  // namespace

#else

TEST(KpzToolStdout, NeedsTheKpzTool) { GTEST_SKIP() << "the kpz tool is not built"; }

#endif
