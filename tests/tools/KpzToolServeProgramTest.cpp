// KpzToolServeProgramTest.cpp - kpz serve runs as a program of its own
// (tools/kpz/KpzServeProgram): kpz itself loads none of the server's
// libraries, answers serve's help and wrong options alone, and says so in
// words when the server program is not where it should be. That the handed
// command line serves is shown by the server's own tests (tests/tools/serve),
// which all start it as `kpz serve`.
#include <gtest/gtest.h>

#if defined(KPZ_TOOL) && defined(KPZ_SERVE_TOOL)

#include <sys/stat.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "KpzToolRunner.h"
#include "support/KpzFileBuilder.h"

namespace {

using kpztool::Result;
using kpztool::RunTool;
using kpztool::Text;

// The shared objects the dynamic loader maps for `program`, as it lists them
// when asked to trace instead of run (what ldd shows).
std::string LoadedObjects(const std::string& program) {
  const std::string command = "LD_TRACE_LOADED_OBJECTS=1 '" + program + "' 2>&1";
  std::string text;
  if (FILE* pipe = ::popen(command.c_str(), "r")) {
    char buf[4096];
    std::size_t n = 0;
    while ((n = std::fread(buf, 1, sizeof buf, pipe)) > 0) {
      text.append(buf, n);
    }
    ::pclose(pipe);
  }
  return text;
}

TEST(KpzToolServeProgram, KpzLoadsNoneOfTheServersLibrariesAndTheServerProgramDoes) {
  const std::string kpz = LoadedObjects(KPZ_TOOL);
  const std::string serve = LoadedObjects(KPZ_SERVE_TOOL);
  ASSERT_NE(kpz.find("libc.so"), std::string::npos) << kpz;
  for (const char* lib : {"libmicrohttpd", "libcrypto", "libgnutls"}) {
    EXPECT_EQ(kpz.find(lib), std::string::npos) << lib << " in\n" << kpz;
  }
  for (const char* lib : {"libmicrohttpd", "libcrypto"}) {
    EXPECT_NE(serve.find(lib), std::string::npos) << lib << " not in\n" << serve;
  }
}

// A kpz copied away from its server program: bin/kpz under a folder with no
// libexec/kpz/kpz-serve.
class KpzToolServeProgramAlone : public testing::Test {
 protected:
  void SetUp() override {
    std::filesystem::create_directory(dir.Path() + "/bin");
    std::filesystem::copy_file(KPZ_TOOL, kpz);
    std::filesystem::create_directory(dir.Path() + "/photos");
  }
  Result Run(const std::vector<std::string>& args) {
    return RunTool(args, dir.Path(), dir.Path(), -1, "", kpz);
  }

  kpztest::TempDir dir;
  const std::string kpz = dir.Path() + "/bin/kpz";
};

TEST_F(KpzToolServeProgramAlone, ServeWithoutItsProgramFailsInWords) {
  const Result r = Run({"serve", "--listen", "127.0.0.1:0", "photos"});
  EXPECT_EQ(r.exit, 1);
  EXPECT_EQ(r.err, "kpz: cannot start the server program " + dir.Path() +
                       "/bin/../libexec/kpz/kpz-serve: No such file or directory\n");
  EXPECT_EQ(Text(r.out), "");
}

TEST_F(KpzToolServeProgramAlone, ServesHelpAndWrongOptionsAreAnsweredByKpzItself) {
  const Result help = Run({"serve", "--help"});
  EXPECT_EQ(help.exit, 0) << help.err;
  EXPECT_NE(Text(help.out).find("Usage: kpz serve [OPTIONS] ROOT"), std::string::npos)
      << Text(help.out);
  const Result noRoot = Run({"serve"});
  EXPECT_EQ(noRoot.exit, 2);
  EXPECT_NE(noRoot.err.find("ROOT is required"), std::string::npos) << noRoot.err;
  const Result badTimeout = Run({"serve", "--timeout", "0", "photos"});
  EXPECT_EQ(badTimeout.exit, 2);
  EXPECT_EQ(badTimeout.err.find("server program"), std::string::npos) << badTimeout.err;
}

TEST_F(KpzToolServeProgramAlone, EveryOtherCommandRunsWithoutTheServerProgram) {
  const Result r = Run({"info", "--json", KPZ_SAMPLE});
  EXPECT_EQ(r.exit, 0) << r.err;
  EXPECT_NE(Text(r.out).find("\"model\":{\"result\":0,\"value\":\"DSLR-M100\"}"), std::string::npos)
      << Text(r.out);
}

}  // namespace

#else

TEST(KpzToolServeProgram, NeedsTheToolAndTheServerProgram) {
  GTEST_SKIP() << "the kpz tool is not built";
}

#endif
