// KpzToolOutputTest.cpp - where `kpz preview`/`kpz thumbnail` write, run as a
// program: outputs that are devices, FIFOs or links are written through and
// never replaced; -o naming a directory as cp does; the words for an output
// directory that cannot be made; names that would forge lines or move the
// terminal's cursor shown escaped; usage errors in kpz's own words; each
// command's own short help.
#include <gtest/gtest.h>

#if defined(KPZ_TOOL) && defined(KPZ_SAMPLE) && defined(KPZ_MAKE_SAMPLE)

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "KpzToolRunner.h"
#include "support/KpzFileBuilder.h"

namespace {

using kpztest::Bytes;
using kpztest::KpzSpec;
using kpztool::Lines;
using kpztool::Listing;
using kpztool::Result;
using kpztool::Text;
namespace fs = std::filesystem;

bool DevNullIsADevice() {
  struct stat st;
  return ::lstat("/dev/null", &st) == 0 && S_ISCHR(st.st_mode);
}

// Puts /dev/null back when a failing tool replaced it (root only can).
void RepairDevNull() {
  if (!DevNullIsADevice() && geteuid() == 0) {
    ::unlink("/dev/null");
    ::mknod("/dev/null", S_IFCHR | 0666, makedev(1, 3));
    ::chmod("/dev/null", 0666);
  }
}

class KpzToolOutput : public testing::Test {
 protected:
  // A valid file `name` whose preview is `size` bytes; returns its path.
  std::string Kpz(const std::string& name, std::size_t size = 900) {
    KpzSpec recipe;
    recipe.screennail = kpztest::FakeJpeg(size, 4);
    preview = recipe.screennail;
    return dir.Write(name, kpztest::BuildKpz(recipe));
  }
  Result Run(const std::vector<std::string>& args) {
    return kpztool::RunTool(args, dir.Path(), dir.Path());
  }

  kpztest::TempDir dir;
  Bytes preview;
};

// ---- outputs that are not regular files -------------------------------------------

TEST_F(KpzToolOutput, DevNullIsWrittenThroughAndStaysADevice) {
  ASSERT_TRUE(DevNullIsADevice());
  Kpz("a.kpz");
  const Result r = Run({"preview", "a.kpz", "-o", "/dev/null"});
  const bool stillDevice = DevNullIsADevice();
  RepairDevNull();
  EXPECT_EQ(r.exit, 0) << r.err;
  EXPECT_EQ(Text(r.out), "wrote /dev/null (900 bytes)\n");
  EXPECT_TRUE(stillDevice) << "/dev/null was replaced by a file (and has been made again)";
}

TEST_F(KpzToolOutput, AFifoWithAReaderGetsThePicture) {
  Kpz("a.kpz", 5000);  // less than a pipe holds: the tool never waits for the reader
  const std::string fifo = dir.Path() + "/fifo";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  const int reader = ::open(fifo.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  ASSERT_GE(reader, 0);
  const Result r = Run({"preview", "a.kpz", "-o", "fifo"});
  Bytes got;
  for (int i = 0; i < 100 && got.size() < preview.size(); ++i) {  // at most 100 polls of 100 ms
    struct pollfd p = {reader, POLLIN, 0};
    if (::poll(&p, 1, 100) > 0) {
      UINT8 buf[4096];
      const ssize_t n = ::read(reader, buf, sizeof buf);
      if (n <= 0) {
        break;
      }
      got.insert(got.end(), buf, buf + n);
    }
  }
  ::close(reader);
  EXPECT_EQ(r.exit, 0) << r.err;
  EXPECT_EQ(got, preview);
  struct stat st;
  ASSERT_EQ(::lstat(fifo.c_str(), &st), 0);
  EXPECT_TRUE(S_ISFIFO(st.st_mode)) << "the FIFO was replaced by a file";
}

TEST_F(KpzToolOutput, ALinksTargetIsWrittenAndTheLinkKept) {
  Kpz("a.kpz");
  fs::create_directory(dir.Path() + "/store");
  dir.Write("store/target.jpg", Bytes{'o', 'l', 'd'});
  fs::create_symlink("store/target.jpg", dir.Path() + "/link.jpg");
  const Result r = Run({"preview", "a.kpz", "-o", "link.jpg"});
  EXPECT_EQ(r.exit, 0) << r.err;
  EXPECT_TRUE(fs::is_symlink(dir.Path() + "/link.jpg"));
  EXPECT_EQ(fs::read_symlink(dir.Path() + "/link.jpg"), "store/target.jpg");
  EXPECT_EQ(kpztest::ReadFileBytes(dir.Path() + "/store/target.jpg"), preview);
  EXPECT_EQ(Listing(dir.Path() + "/store"), (std::vector<std::string>{"target.jpg"}));
}

// ---- -o naming a directory ---------------------------------------------------------

TEST_F(KpzToolOutput, AnExistingDirectoryReceivesTheOutputOfOneFile) {
  Kpz("a.kpz");
  fs::create_directory(dir.Path() + "/odir");
  const Result r = Run({"preview", "a.kpz", "-o", "odir"});
  EXPECT_EQ(r.exit, 0) << r.err;
  EXPECT_EQ(Text(r.out), "wrote odir/a.preview.jpg (900 bytes)\n");
  EXPECT_EQ(kpztest::ReadFileBytes(dir.Path() + "/odir/a.preview.jpg"), preview);
}

TEST_F(KpzToolOutput, ANameEndingInASlashIsADirectoryMadeWhenMissing) {
  Kpz("a.kpz");
  const Result r = Run({"thumbnail", "a.kpz", "-o", "new/sub/"});
  EXPECT_EQ(r.exit, 0) << r.err;
  EXPECT_TRUE(fs::exists(dir.Path() + "/new/sub/a.thumb.jpg"));
}

TEST_F(KpzToolOutput, AnOutputDirectoryThatCannotBeMadeIsToldInOneWay) {
  Kpz("a.kpz");
  dir.Write("afile", Bytes{1});
  const Result slash = Run({"preview", "a.kpz", "-o", "afile/"});
  EXPECT_EQ(slash.exit, 3);
  EXPECT_EQ(slash.err, "kpz: afile: cannot make the output directory: Not a directory\n");
  const Result sub = Run({"preview", "a.kpz", "-o", "afile/sub/"});
  EXPECT_EQ(sub.exit, 3);
  EXPECT_EQ(sub.err, "kpz: afile/sub: cannot make the output directory: Not a directory\n");
  const Result many = Run({"preview", "a.kpz", "a.kpz", "-o", "afile"});
  EXPECT_EQ(many.exit, 3);
  EXPECT_EQ(many.err, "kpz: afile: cannot make the output directory: Not a directory\n");
  EXPECT_EQ(Listing(dir.Path()), (std::vector<std::string>{"a.kpz", "afile"}));
}

TEST_F(KpzToolOutput, AnOutputDirectoryUnderAReadOnlyParentIsToldInWords) {
  if (geteuid() == 0) {
    GTEST_SKIP() << "root writes into read-only directories";
  }
  Kpz("a.kpz");
  fs::create_directory(dir.Path() + "/ro");
  ::chmod((dir.Path() + "/ro").c_str(), 0555);
  const Result r = Run({"preview", "a.kpz", "-o", "ro/new/"});
  ::chmod((dir.Path() + "/ro").c_str(), 0755);
  EXPECT_EQ(r.exit, 3);
  EXPECT_EQ(r.err, std::string("kpz: ro/new: cannot make the output directory: ") +
                       std::strerror(EACCES) + "\n");
}

// ---- names that would forge lines ----------------------------------------------------

const char* const kForging = "evil\nwrote out-fake.preview.jpg (1 bytes)\nkpz: x.kpz";
const char* const kForgingShown = "'evil\\nwrote out-fake.preview.jpg (1 bytes)\\nkpz: x.kpz'";

TEST_F(KpzToolOutput, ANameWithNewlinesPrintsOneWroteLine) {
  Kpz(kForging);
  const Result r = Run({"preview", kForging});
  EXPECT_EQ(r.exit, 0) << r.err;
  EXPECT_EQ(Text(r.out),
            "wrote 'evil\\nwrote out-fake.preview.jpg (1 bytes)\\nkpz: x.preview.jpg' (900 "
            "bytes)\n");
  EXPECT_EQ(Lines(Text(r.out)).size(), 1u);
}

TEST_F(KpzToolOutput, FailureLinesAndTheSummaryShowNamesEscaped) {
  Kpz("good.kpz");
  dir.Write(kForging, Bytes{'n', 'o', 't'});
  const Result r = Run({"preview", "good.kpz", kForging, "\x1b[2J.kpz"});
  EXPECT_EQ(r.exit, 1);
  const std::vector<std::string> lines = Lines(r.err);
  ASSERT_GE(lines.size(), 3u) << r.err;
  EXPECT_EQ(lines[0].rfind(std::string("kpz: ") + kForgingShown + ": not a KPZ raw file", 0), 0u)
      << r.err;
  EXPECT_EQ(lines[1], "kpz: '\\033[2J.kpz': file not found");
  EXPECT_EQ(r.err.find('\x1b'), std::string::npos);
  for (const std::string& line : lines) {
    EXPECT_EQ(line.rfind("kpz: ", 0), 0u) << line;
  }
}

TEST_F(KpzToolOutput, InfoHeadersAreEscapedAndJsonKeepsItsOwnEscapes) {
  Kpz(kForging);
  const Result text = Run({"info", kForging});
  EXPECT_EQ(text.exit, 0) << text.err;
  EXPECT_EQ(Lines(Text(text.out)).at(0), kForgingShown);
  const Result json = Run({"info", "--json", kForging});
  EXPECT_EQ(json.exit, 0) << json.err;
  ASSERT_EQ(Lines(Text(json.out)).size(), 1u);
  EXPECT_EQ(nlohmann::json::parse(Text(json.out)).at("file").get<std::string>(), kForging);
}

TEST_F(KpzToolOutput, RotateReportsShowNamesEscaped) {
  Kpz("tab\there.kpz");
  const Result r = Run({"rotate", "--cw", "--dry-run", "tab\there.kpz"});
  EXPECT_EQ(r.exit, 0) << r.err;
  EXPECT_EQ(Text(r.out).rfind("'tab\\there.kpz': ", 0), 0u) << Text(r.out);
}

// ---- usage and help --------------------------------------------------------------------

TEST_F(KpzToolOutput, EveryUsageErrorLineBeginsWithKpz) {
  Kpz("a.kpz");
  const std::vector<std::vector<std::string>> cases = {
      {},          {"convert"},          {"preview", "--bogus"}, {"info", "-j", "0"},
      {"thumbnail", "-j", "x"}, {"rotate"}, {"preview", "--edges", "cut", "--upright"}};
  for (const auto& args : cases) {
    const Result r = Run(args);
    EXPECT_EQ(r.exit, 2);
    ASSERT_FALSE(r.err.empty());
    for (const std::string& line : Lines(r.err)) {
      EXPECT_EQ(line.rfind("kpz: ", 0), 0u) << line;
    }
  }
  EXPECT_EQ(Run({"preview", "--bogus"}).err,
            "kpz: The following argument was not expected: --bogus\n"
            "kpz: run 'kpz preview --help' for the options\n");
}

TEST_F(KpzToolOutput, EachCommandHasItsOwnShortHelp) {
  const std::string general = Text(Run({"--help"}).out);
  for (const char* words : {"Durability:", "rotate: turns the picture", "Exit status",
                            "written through", "shown quoted"}) {
    EXPECT_NE(general.find(words), std::string::npos) << words;
  }
  for (const char* command : {"info", "preview", "thumbnail", "rotate"}) {
    const Result r = Run({command, "--help"});
    EXPECT_EQ(r.exit, 0);
    const std::string help = Text(r.out);
    EXPECT_EQ(help.find("Durability:"), std::string::npos) << command;
    EXPECT_EQ(help.find("rotate: turns the picture"), std::string::npos) << command;
    EXPECT_NE(help.find("'kpz --help' tells all the rules"), std::string::npos) << command;
    EXPECT_LT(help.size(), general.size() / 2) << command;
  }
}

}  // namespace

#else

TEST(KpzToolOutput, NeedsTheToolTheSampleAndItsGenerator) { GTEST_SKIP() << "the kpz tool is not built"; }

#endif
