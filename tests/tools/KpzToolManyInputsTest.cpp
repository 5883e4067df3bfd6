// KpzToolManyInputsTest.cpp - kpz over many inputs, run as a program: what
// the tool holds grows little with the number of files (its peak memory over
// 30,000 hard links against 3,000), and the rule for a shared output name
// holds between inputs far apart (further than the batch's window of files in
// flight).
#include <gtest/gtest.h>

#if defined(KPZ_TOOL) && defined(KPZ_SAMPLE) && defined(KPZ_MAKE_SAMPLE)

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include "KpzToolRunner.h"
#include "support/KpzFileBuilder.h"

namespace {

using kpztest::Bytes;
using kpztest::KpzSpec;
using kpztool::Lines;
using kpztool::Result;
using kpztool::Text;
namespace fs = std::filesystem;

std::string Name(std::size_t i) {
  char name[32];
  std::snprintf(name, sizeof name, "f%05zu.kpz", i);
  return name;
}

// A small valid file whose thumbnail carries `i`.
Bytes Good(int i) {
  KpzSpec recipe;
  recipe.thumbnail = kpztest::FakeJpeg(32, static_cast<std::uint8_t>(i));
  return kpztest::BuildKpz(recipe);
}

// `count` inputs below `root`, in folders of 1,000: one file, hard links to it
// for the others. False when the links cannot be made.
bool MakeTree(const std::string& root, std::size_t count) {
  const std::string first = root + "/000/" + Name(0);
  fs::create_directories(root + "/000");
  if (!kpztest::WriteFileBytes(first, Good(1))) return false;
  for (std::size_t i = 1; i < count; ++i) {
    char folder[24];  // room for any size_t
    std::snprintf(folder, sizeof folder, "%03zu", i / 1000);
    const std::string dir = root + "/" + folder;
    if (i % 1000 == 0) fs::create_directories(dir);
    std::error_code ec;
    fs::create_hard_link(first, dir + "/" + Name(i), ec);
    if (ec) return false;
  }
  return true;
}

struct Peak {
  int exit = -1;
  long maxRssKb = -1;  // the child's peak resident memory
  std::string err;
};

// Runs the tool in `cwd`, standard output to /dev/null, and reads its peak
// memory from wait4.
Peak RunMeasured(const std::vector<std::string>& args, const std::string& cwd) {
  const std::string errPath = cwd + "/.stderr";
  std::vector<std::string> argv = {KPZ_TOOL};
  argv.insert(argv.end(), args.begin(), args.end());
  std::vector<char*> cargv;
  for (std::string& a : argv) cargv.push_back(a.data());
  cargv.push_back(nullptr);
  Peak p;
  const pid_t pid = fork();
  if (pid == 0) {
    const int out = ::open("/dev/null", O_WRONLY);
    const int err = ::open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (out < 0 || err < 0 || dup2(out, 1) < 0 || dup2(err, 2) < 0 || chdir(cwd.c_str()) != 0) {
      _exit(127);
    }
    execv(cargv[0], cargv.data());
    _exit(127);
  }
  int status = 0;
  rusage usage{};
  if (pid > 0 && wait4(pid, &status, 0, &usage) == pid && WIFEXITED(status)) {
    p.exit = WEXITSTATUS(status);
    p.maxRssKb = usage.ru_maxrss;
  }
  p.err = Text(kpztest::ReadFileBytes(errPath));
  fs::remove(errPath);
  return p;
}

TEST(KpzToolManyInputs, PeakMemoryGrowsLittleWithTheNumberOfInputs) {
  // Kept per input: ~400 bytes when every input was listed with its output
  // name and key (27,000 more inputs cost ~11 MB); now a digest of each name
  // written (12 to 24 bytes), the inputs walked as the run goes. Between
  // these two sizes the map of recent writers (KpzClaimWindow::kOwnersKept)
  // also fills up, ~1.5 MB; beyond it only the digests grow.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  // A sanitizer's own bookkeeping (ASan's quarantine of freed blocks, TSan's
  // shadow) grows with the allocations made, not with what is held.
  GTEST_SKIP() << "peak memory is the sanitizer's here, not the tool's";
#endif
  kpztest::TempDir dir;
  const std::size_t small = 3000;
  const std::size_t large = 30000;
  ASSERT_TRUE(MakeTree(dir.Path() + "/small", small));
  ASSERT_TRUE(MakeTree(dir.Path() + "/large", large));
  const Peak a = RunMeasured({"thumbnail", "-r", "small", "-o", "out-small", "-j", "2"}, dir.Path());
  const Peak b = RunMeasured({"thumbnail", "-r", "large", "-o", "out-large", "-j", "2"}, dir.Path());
  ASSERT_EQ(a.exit, 0) << a.err;
  ASSERT_EQ(b.exit, 0) << b.err;
  EXPECT_EQ(b.err, "kpz: 30000 files: 30000 done, 0 failed\n");
  EXPECT_TRUE(fs::exists(dir.Path() + "/out-large/f29999.thumb.jpg"));
  ASSERT_GT(a.maxRssKb, 0);
  const long growthKb = b.maxRssKb - a.maxRssKb;
  std::printf("peak memory: %ld KB for %zu inputs, %ld KB for %zu\n", a.maxRssKb, small,
              b.maxRssKb, large);
  // 27,000 inputs more: under 4 MB, i.e. under ~150 bytes each.
  EXPECT_LT(growthKb, 4 * 1024) << "peak " << a.maxRssKb << " KB for " << small << " inputs, "
                                << b.maxRssKb << " KB for " << large;
}

TEST(KpzToolManyInputs, ASharedOutputNameBelongsToTheFirstWriterAlsoFarBehind) {
  // a/ and b/ hold the same 300 names: every b/ input comes 300 inputs after
  // its a/ namesake, beyond the files in flight; each is refused, naming it.
  kpztest::TempDir dir;
  const std::size_t n = 300;
  for (std::size_t i = 0; i < n; ++i) {
    for (const char* side : {"a", "b"}) {
      fs::create_directories(dir.Path() + "/in/" + side);
      ASSERT_TRUE(kpztest::WriteFileBytes(dir.Path() + "/in/" + side + "/" + Name(i),
                                          Good(static_cast<int>(i))));
    }
  }
  for (const char* jobs : {"1", "4"}) {
    const Result r =
        kpztool::RunTool({"thumbnail", "-r", "in", "-o", "out", "-j", jobs}, dir.Path(), dir.Path());
    EXPECT_EQ(r.exit, 3);
    const std::vector<std::string> out = Lines(Text(r.out));
    ASSERT_EQ(out.size(), n);
    const std::vector<std::string> err = Lines(r.err);
    ASSERT_EQ(err.size(), n + 2);
    for (std::size_t i = 0; i < n; ++i) {
      const std::string thumb = Name(i).substr(0, 6) + ".thumb.jpg";
      EXPECT_EQ(out[i], "wrote out/" + thumb + " (32 bytes)");
      EXPECT_EQ(err[i], "kpz: in/b/" + Name(i) + ": not written: out/" + thumb +
                            " is already written by in/a/" + Name(i));
    }
    EXPECT_EQ(err[n], "kpz: 600 files: 300 done, 300 failed");
    EXPECT_EQ(err[n + 1], "kpz:   300 output already written by an earlier input");
    EXPECT_EQ(kpztest::ReadFileBytes(dir.Path() + "/out/" + Name(7).substr(0, 6) + ".thumb.jpg"),
              kpztest::FakeJpeg(32, 7));
  }
}

}  // namespace

#else

TEST(KpzToolManyInputs, NeedsTheTool) { GTEST_SKIP() << "the kpz tool is not built"; }

#endif
