// KpzToolFifoTest.cpp - inputs that are not regular files, given to the
// built tool: a named pipe among good files for `info`, `info --json`,
// `rotate --code` and `rotate --dry-run` is refused in words without
// waiting (each run bounded in time), the good files in the same run are
// still done; `info --json /dev/zero` gives no parse code for a file that
// was not read.
#include <gtest/gtest.h>

#if defined(KPZ_TOOL)

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "KpzToolRunner.h"
#include "support/BoundedRun.h"
#include "support/KpzFileBuilder.h"

namespace {

using Json = nlohmann::json;
using kpztest::KpzSpec;

const char kNotRegular[] = "not a regular file (a device, named pipe or socket), not read";

class KpzToolFifo : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_FALSE(dir.Write("a.kpz", kpztest::BuildKpz(KpzSpec())).empty());
    ASSERT_FALSE(dir.Write("b.kpz", kpztest::BuildKpz(KpzSpec())).empty());
    fifo = dir.Path() + "/p.kpz";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  }
  void TearDown() override {
    // A tool that hung in open() on the pipe (the failure tested) is let go.
    const int w = ::open(fifo.c_str(), O_WRONLY | O_NONBLOCK);
    if (w >= 0) {
      ::close(w);
    }
  }

  // Runs the tool in a child bounded in time: "<exit>\n<stdout>\x01<stderr>".
  struct Run {
    bool timedOut = true;
    int exit = -1;
    std::string out;
    std::string err;
  };
  Run Tool(const std::vector<std::string>& args) {
    const kpztest::Bounded b = kpztest::RunBounded(std::chrono::seconds(20), [&] {
      const kpztool::Result r = kpztool::RunTool(args, dir.Path(), dir.Path());
      return std::to_string(r.exit) + "\n" + kpztool::Text(r.out) + '\x01' + r.err;
    });
    Run run;
    run.timedOut = b.timedOut;
    const std::size_t nl = b.out.find('\n');
    const std::size_t sep = b.out.find('\x01');
    if (b.exited && nl != std::string::npos && sep != std::string::npos) {
      run.exit = std::stoi(b.out.substr(0, nl));
      run.out = b.out.substr(nl + 1, sep - nl - 1);
      run.err = b.out.substr(sep + 1);
    }
    return run;
  }

  kpztest::TempDir dir;
  std::string fifo;
};

TEST_F(KpzToolFifo, InfoSaysNotARegularFileAndReadsTheOthers) {
  const Run r = Tool({"info", "a.kpz", "p.kpz", "b.kpz"});
  ASSERT_FALSE(r.timedOut) << "kpz info waited on a FIFO";
  EXPECT_EQ(r.exit, 1);  // an input that cannot be read
  EXPECT_NE(r.out.find("a.kpz\n"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("b.kpz\n"), std::string::npos) << r.out;
  EXPECT_NE(r.err.find(std::string("kpz: p.kpz: ") + kNotRegular + "\n"), std::string::npos)
      << r.err;
}

TEST_F(KpzToolFifo, InfoJsonGivesNoResultCodeForThePipe) {
  const Run r = Tool({"info", "--json", "a.kpz", "p.kpz", "b.kpz"});
  ASSERT_FALSE(r.timedOut) << "kpz info --json waited on a FIFO";
  EXPECT_EQ(r.exit, 1);  // an input that cannot be read
  const std::vector<std::string> lines = kpztool::Lines(r.out);
  ASSERT_EQ(lines.size(), 3u) << r.out;
  const Json p = Json::parse(lines[1]);
  EXPECT_EQ(p["file"], "p.kpz");
  EXPECT_TRUE(p["result"].is_null()) << lines[1];
  EXPECT_EQ(p["error"], kNotRegular);
  EXPECT_EQ(Json::parse(lines[0])["result"], 0);
  EXPECT_EQ(Json::parse(lines[2])["result"], 0);
}

TEST_F(KpzToolFifo, RotateAndItsDryRunRefuseThePipeAndDoTheOthers) {
  for (const bool dryRun : {true, false}) {
    std::vector<std::string> args = {"rotate", "--code", "1"};
    if (dryRun) {
      args.emplace_back("--dry-run");
    }
    for (const char* f : {"a.kpz", "p.kpz", "b.kpz"}) {
      args.emplace_back(f);
    }
    const Run r = Tool(args);
    ASSERT_FALSE(r.timedOut) << "kpz rotate waited on a FIFO (dry run " << dryRun << ")";
    EXPECT_EQ(r.exit, 1);  // an input that cannot be read
    EXPECT_NE(r.out.find("a.kpz: normal -> rotated 90° clockwise"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("b.kpz: normal -> rotated 90° clockwise"), std::string::npos) << r.out;
    EXPECT_NE(r.err.find(std::string("kpz: p.kpz: ") + kNotRegular + "\n"), std::string::npos)
        << r.err;
  }
}

TEST(KpzToolDevice, InfoJsonOfDevZeroSaysItWasNotRead) {
  kpztest::TempDir dir;
  const kpztool::Result r = kpztool::RunTool({"info", "--json", "/dev/zero"}, dir.Path(),
                                             dir.Path());
  EXPECT_EQ(r.exit, 1);  // an input that cannot be read
  const Json j = Json::parse(kpztool::Text(r.out));
  EXPECT_TRUE(j["result"].is_null()) << j;
  EXPECT_EQ(j["error"], kNotRegular);
}

}  // namespace

#else

TEST(KpzToolFifo, NeedsTheKpzTool) { GTEST_SKIP() << "the kpz tool is not built"; }

#endif
