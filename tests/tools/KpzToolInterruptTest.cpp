// KpzToolInterruptTest.cpp - SIGINT and SIGTERM during `kpz preview -o
// DIR`, run as a program: the signal comes at a point the test chooses (the
// tool writing one output into a named pipe that the test reads), the run
// starts no new file, ends the one in hand, leaves no temporary file,
// prints its summary and the interruption, and ends by that signal. A
// later run into that directory removes what a run killed outright left.
#include <gtest/gtest.h>

#if defined(KPZ_TOOL)

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <ctime>
#include <filesystem>
#include <string>
#include <vector>

#include "KpzToolRunner.h"
#include "support/KpzFileBuilder.h"

namespace {

using kpztest::Bytes;
using kpztest::KpzSpec;
using kpztool::Listing;
namespace fs = std::filesystem;

const std::size_t kPicture = 256 * 1024;

std::string Name(int i) {
  char name[32];
  std::snprintf(name, sizeof name, "f%04d", i);
  return name;
}

class KpzToolInterrupt : public testing::TestWithParam<int> {
 protected:
  void SetUp() override {
    fs::create_directories(dir.Path() + "/in");
    for (int i = 0; i < 20; ++i) {
      KpzSpec recipe;
      // Larger than a pipe holds: the tool waits while the test holds it.
      recipe.screennail = kpztest::FakeJpeg(kPicture, static_cast<std::uint8_t>(i));
      ASSERT_TRUE(kpztest::WriteFileBytes(dir.Path() + "/in/" + Name(i) + ".kpz",
                                          kpztest::BuildKpz(recipe)));
    }
    fs::create_directories(dir.Path() + "/out");
  }

  // Starts the tool with `args` in the scratch directory; standard output
  // and error to files there.
  pid_t Start(const std::vector<std::string>& args) {
    std::vector<std::string> argv = {KPZ_TOOL};
    argv.insert(argv.end(), args.begin(), args.end());
    std::vector<char*> cargv;
    for (std::string& a : argv) cargv.push_back(a.data());
    cargv.push_back(nullptr);
    const std::string out = dir.Path() + "/stdout.txt";
    const std::string err = dir.Path() + "/stderr.txt";
    const pid_t pid = fork();
    if (pid == 0) {
      const int o = ::open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
      const int e = ::open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
      if (o < 0 || e < 0 || dup2(o, 1) < 0 || dup2(e, 2) < 0 || chdir(dir.Path().c_str()) != 0) {
        _exit(127);
      }
      execv(cargv[0], cargv.data());
      _exit(127);
    }
    return pid;
  }

  std::string Err() { return kpztool::Text(kpztest::ReadFileBytes(dir.Path() + "/stderr.txt")); }

  kpztest::TempDir dir;
};

TEST_P(KpzToolInterrupt, SignalStopsTheRunCleanlyWithItsSummary) {
  const int signal = GetParam();
  // Input 3's output is a named pipe: the tool writes it through, so while
  // the test holds the pipe's bytes the tool is at that point of the run.
  const std::string fifo = dir.Path() + "/out/" + Name(3) + ".preview.jpg";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const int reader = ::open(fifo.c_str(), O_RDONLY | O_NONBLOCK);
  ASSERT_GE(reader, 0);
  const pid_t pid = Start({"preview", "-j", "1", "in", "-o", "out"});
  ASSERT_GT(pid, 0);
  // The first bytes of input 3's picture: the tool is writing it now, and
  // waits for the test to read the rest.
  pollfd p = {reader, POLLIN, 0};
  ASSERT_EQ(poll(&p, 1, 60000), 1) << "the tool never wrote into the pipe";
  ASSERT_EQ(kill(pid, signal), 0);
  // The file in hand is ended: its bytes come whole, then the pipe closes.
  fcntl(reader, F_SETFL, 0);
  std::size_t got = 0;
  char buf[1024];
  for (;;) {  // ends at the end of the pipe (the tool closed it) or an error
    const ssize_t n = read(reader, buf, sizeof buf);
    if (n <= 0) break;
    got += static_cast<std::size_t>(n);
  }
  close(reader);
  int status = 0;
  ASSERT_EQ(waitpid(pid, &status, 0), pid);
  EXPECT_EQ(got, kPicture);
  ASSERT_TRUE(WIFSIGNALED(status)) << "exited with " << WEXITSTATUS(status);
  EXPECT_EQ(WTERMSIG(status), signal);
  const std::string err = Err();
  const std::string name = signal == SIGINT ? "SIGINT" : "SIGTERM";
  EXPECT_NE(err.find("kpz: interrupted by " + name + ": the files after these were not started\n"),
            std::string::npos)
      << err;
  // Inputs 0 to 3 done, and those the workers had taken before the signal
  // (a few: KpzBatch's window), each whole and counted; no later one
  // started; nothing half-written anywhere.
  const std::vector<std::string> out = Listing(dir.Path() + "/out");
  EXPECT_GE(out.size(), 4u);
  EXPECT_LT(out.size(), 12u);
  for (const std::string& n : out) {
    EXPECT_NE(n[0], '.') << n;
  }
  const std::string n = std::to_string(out.size());
  EXPECT_NE(err.find("kpz: " + n + " files: " + n + " done, 0 failed\n"), std::string::npos)
      << err;
}

INSTANTIATE_TEST_SUITE_P(SigintAndSigterm, KpzToolInterrupt, testing::Values(SIGINT, SIGTERM),
                         [](const testing::TestParamInfo<int>& param) {
                           return param.param == SIGINT ? std::string("Sigint")
                                                       : std::string("Sigterm");
                         });

TEST_F(KpzToolInterrupt, LaterRunRemovesTheTemporariesOfARunKilledOutright) {
  // What a kpz killed by SIGKILL while writing leaves: its temporary file,
  // named for its machine and process (now gone), ten minutes old.
  const pid_t gone = fork();
  if (gone == 0) _exit(0);
  int status = 0;
  waitpid(gone, &status, 0);
  char host[256] = {};
  gethostname(host, sizeof host - 1);
  std::string tag;
  for (const char* c = host; *c != '\0' && tag.size() < 32; ++c) {
    const bool plain = (*c >= 'a' && *c <= 'z') || (*c >= 'A' && *c <= 'Z') ||
                       (*c >= '0' && *c <= '9') || *c == '.' || *c == '-';
    tag += plain ? *c : '-';
  }
  const std::string left =
      ".f0000.preview.jpg.kpz-" + (tag.empty() ? std::string("host") : tag) + "-" +
      std::to_string(gone) + ".Ab12Cd";
  const std::string path = dir.Path() + "/out/" + left;
  ASSERT_TRUE(kpztest::WriteFileBytes(path, Bytes(100, 1)));
  const std::time_t old = std::time(nullptr) - 11 * 60;
  const struct timespec times[2] = {{old, 0}, {old, 0}};
  utimensat(AT_FDCWD, path.c_str(), times, 0);
  ASSERT_TRUE(kpztest::WriteFileBytes(dir.Path() + "/out/.mine.txt", Bytes(3, 2)));
  const pid_t pid = Start({"preview", "-q", "in", "-o", "out"});
  ASSERT_EQ(waitpid(pid, &status, 0), pid);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0) << Err();
  EXPECT_FALSE(fs::exists(path));
  EXPECT_TRUE(fs::exists(dir.Path() + "/out/.mine.txt"));  // a user's hidden file stays
  EXPECT_EQ(Listing(dir.Path() + "/out").size(), 21u);
}

}  // namespace

#else

TEST(KpzToolInterrupt, NeedsTheKpzTool) { GTEST_SKIP() << "the kpz tool is not built"; }

#endif
