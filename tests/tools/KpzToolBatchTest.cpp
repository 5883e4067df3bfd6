// KpzToolBatchTest.cpp - kpz commands over many files and directories, run as
// a program: a batch of 1,000 generated files with broken ones among them,
// output directories, no partial outputs, stable order with many jobs,
// extension and recursion options, the summary, and the progress bar (shown
// on a pseudo-terminal, never on a file).
#include <gtest/gtest.h>

#if defined(KPZ_TOOL) && defined(KPZ_SAMPLE) && defined(KPZ_MAKE_SAMPLE)

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "KpzToolRunner.h"
#include "support/KpzFileBuilder.h"

namespace {

using Json = nlohmann::json;
using kpztest::Bytes;
using kpztest::KpzSpec;
using kpztool::Lines;
using kpztool::Listing;
using kpztool::Result;
using kpztool::Text;
namespace fs = std::filesystem;

std::string Name(int i) {
  char name[32];
  std::snprintf(name, sizeof name, "f%04d.kpz", i);
  return name;
}

class KpzToolBatch : public testing::Test {
 protected:
  std::string Sub(const std::string& rel) {
    const std::string p = dir.Path() + "/" + rel;
    fs::create_directories(p);
    return p;
  }
  std::string Put(const std::string& rel, const Bytes& bytes) {
    const std::string p = dir.Path() + "/" + rel;
    fs::create_directories(fs::path(p).parent_path());
    EXPECT_TRUE(kpztest::WriteFileBytes(p, bytes));
    return p;
  }
  Result Run(const std::vector<std::string>& args, int stderrFd = -1) {
    return kpztool::RunTool(args, dir.Path(), dir.Path(), stderrFd);
  }

 public:
  Result RunPublic(const std::vector<std::string>& args, int stderrFd) { return Run(args, stderrFd); }

 protected:
  kpztest::TempDir dir;
};

// A small valid file whose ISO speed and thumbnail carry `i`.
Bytes Good(int i) {
  KpzSpec recipe;
  recipe.order = i % 2 == 0 ? DtNlLittleEndian : DtNlBigEndian;
  recipe.isoSpeed = static_cast<std::uint16_t>(100 + i);
  recipe.thumbnail = kpztest::FakeJpeg(32, static_cast<std::uint8_t>(i));
  return kpztest::BuildKpz(recipe);
}

Bytes NoMakerNote() {
  KpzSpec recipe;
  recipe.hasMakerNote = false;
  return kpztest::BuildKpz(recipe);
}

TEST_F(KpzToolBatch, ThousandFilesWithBrokenOnesEndWithTheRightSummary) {
  Sub("in");
  int junk = 0;
  int noNote = 0;
  std::vector<bool> good(1000, true);
  for (int i = 0; i < 1000; ++i) {
    if (i % 50 == 7) {
      Put("in/" + Name(i), Bytes(40, 'j'));
      good[static_cast<std::size_t>(i)] = false;
      ++junk;
    } else if (i % 97 == 3) {
      Put("in/" + Name(i), NoMakerNote());
      good[static_cast<std::size_t>(i)] = false;
      ++noNote;
    } else {
      Put("in/" + Name(i), Good(i));
    }
  }
  const int ok = 1000 - junk - noNote;
  const std::string summary =
      "kpz: 1000 files: " + std::to_string(ok) + " done, " + std::to_string(junk + noNote) +
      " failed\n"
      "kpz:   " + std::to_string(junk) + " not a KPZ raw file (no TIFF header)\n"
      "kpz:   " + std::to_string(noNote) +
      " not a KPZ raw file (no maker note)\n";
  ASSERT_GT(junk, noNote);

  const Result info = Run({"info", "--json", "-j", "8", "in"});
  EXPECT_EQ(info.exit, 1);
  ASSERT_GE(info.err.size(), summary.size());
  EXPECT_EQ(info.err.substr(info.err.size() - summary.size()), summary);
  EXPECT_EQ(Lines(info.err).size(), static_cast<std::size_t>(junk + noNote + 3));
  const std::vector<std::string> lines = Lines(Text(info.out));
  ASSERT_EQ(lines.size(), 1000u);
  for (int i = 0; i < 1000; ++i) {
    const Json j = Json::parse(lines[static_cast<std::size_t>(i)], nullptr, false);
    ASSERT_FALSE(j.is_discarded()) << i;
    EXPECT_EQ(j["file"], "in/" + Name(i));
    if (good[static_cast<std::size_t>(i)]) {
      EXPECT_EQ(j["isoSpeed"]["value"], 100 + i) << i;
    } else {
      EXPECT_FALSE(j["error"].is_null()) << i;
    }
  }

  const Result thumbs = Run({"thumbnail", "in", "-o", "out"});
  EXPECT_EQ(thumbs.exit, 1);
  ASSERT_GE(thumbs.err.size(), summary.size());
  EXPECT_EQ(thumbs.err.substr(thumbs.err.size() - summary.size()), summary);
  const std::vector<std::string> written = Listing(dir.Path() + "/out");
  EXPECT_EQ(written.size(), static_cast<std::size_t>(ok));  // no temporary files left
  for (int i : {0, 1, 998, 999}) {
    ASSERT_TRUE(good[static_cast<std::size_t>(i)]);
    char name[32];
    std::snprintf(name, sizeof name, "f%04d.thumb.jpg", i);
    EXPECT_EQ(kpztest::ReadFileBytes(dir.Path() + "/out/" + name),
              kpztest::FakeJpeg(32, static_cast<std::uint8_t>(i)));
  }
  EXPECT_FALSE(fs::exists(dir.Path() + "/out/f0007.thumb.jpg"));  // junk: nothing written
}

TEST_F(KpzToolBatch, PreviewOfADirectoryGoesNextToEachInputInOrder) {
  Put("d/b.kpz", Good(2));
  Put("d/a.kpz", Good(1));
  Put("d/c.txt", Bytes(3, 'x'));
  const Result r = Run({"preview", "d"});
  EXPECT_EQ(r.exit, 0) << r.err;
  EXPECT_EQ(Text(r.out),
            "wrote d/a.preview.jpg (64 bytes)\n"
            "wrote d/b.preview.jpg (64 bytes)\n");
  EXPECT_EQ(r.err, "kpz: 2 files: 2 done, 0 failed\n");
}

TEST_F(KpzToolBatch, SeveralFilesWriteIntoTheOutputDirectoryMadeWhenMissing) {
  const std::string a = Put("a.kpz", Good(1));
  const std::string b = Put("b.kpz", Good(2));
  const Result r = Run({"thumbnail", a, b, "-o", "new/sub"});
  EXPECT_EQ(r.exit, 0) << r.err;
  EXPECT_EQ(Text(r.out),
            "wrote new/sub/a.thumb.jpg (32 bytes)\n"
            "wrote new/sub/b.thumb.jpg (32 bytes)\n");
  EXPECT_EQ(Listing(dir.Path() + "/new/sub"),
            (std::vector<std::string>{"a.thumb.jpg", "b.thumb.jpg"}));
}

TEST_F(KpzToolBatch, BrokenFilesLeaveNoOutputAndKeepAnOldOne) {
  Put("in/good.kpz", Good(1));
  Put("in/bad.kpz", Bytes(40, 'j'));
  Put("out/bad.preview.jpg", Bytes{'o', 'l', 'd'});
  const Result r = Run({"preview", "in", "-o", "out"});
  EXPECT_EQ(r.exit, 1);
  EXPECT_EQ(Text(r.out), "wrote out/good.preview.jpg (64 bytes)\n");
  EXPECT_EQ(r.err,
            "kpz: in/bad.kpz: not a KPZ raw file (no TIFF header)\n"
            "kpz: 2 files: 1 done, 1 failed\n"
            "kpz:   1 not a KPZ raw file (no TIFF header)\n");
  EXPECT_EQ(kpztest::ReadFileBytes(dir.Path() + "/out/bad.preview.jpg"), (Bytes{'o', 'l', 'd'}));
  EXPECT_EQ(Listing(dir.Path() + "/out"),
            (std::vector<std::string>{"bad.preview.jpg", "good.preview.jpg"}));
}

TEST_F(KpzToolBatch, StandardOutputTakesOneFileOnly) {
  const std::string a = Put("a.kpz", Good(1));
  const Result r = Run({"preview", a, a, "-o", "-"});
  EXPECT_EQ(r.exit, 2);
  EXPECT_EQ(r.err,
            "kpz: -o - (standard output) takes one FILE; with several, -o names a directory\n");
  EXPECT_TRUE(r.out.empty());
}

TEST_F(KpzToolBatch, OutputDirectoryBlockedByAFileIsExit3) {
  const std::string a = Put("a.kpz", Good(1));
  Put("blocked", Bytes{1});
  const Result r = Run({"preview", a, a, "-o", "blocked"});
  EXPECT_EQ(r.exit, 3);
  EXPECT_EQ(r.err.rfind("kpz: blocked: cannot make the output directory", 0), 0u) << r.err;
}

TEST_F(KpzToolBatch, TwoInputsWithOneOutputNameTheFirstWins) {
  Put("in/a/x.kpz", Good(1));
  Put("in/b/x.kpz", Good(2));
  const Result r = Run({"thumbnail", "-r", "in", "-o", "out"});
  EXPECT_EQ(r.exit, 3);
  EXPECT_EQ(Text(r.out), "wrote out/x.thumb.jpg (32 bytes)\n");
  EXPECT_EQ(r.err,
            "kpz: in/b/x.kpz: not written: out/x.thumb.jpg is already written by in/a/x.kpz\n"
            "kpz: 2 files: 1 done, 1 failed\n"
            "kpz:   1 output already written by an earlier input\n");
  EXPECT_EQ(kpztest::ReadFileBytes(dir.Path() + "/out/x.thumb.jpg"), kpztest::FakeJpeg(32, 1));
}

TEST_F(KpzToolBatch, AFailedInputTakesNoOutputNameAndReportsItsOwnError) {
  Put("in/a/x.kpz", Bytes(40, 'j'));
  Put("in/b/x.kpz", Good(2));
  for (const char* jobs : {"1", "2"}) {
    const Result r = Run({"thumbnail", "-j", jobs, "-r", "in", "-o", "out"});
    EXPECT_EQ(r.exit, 1);
    EXPECT_EQ(Text(r.out), "wrote out/x.thumb.jpg (32 bytes)\n");
    EXPECT_EQ(r.err,
              "kpz: in/a/x.kpz: not a KPZ raw file (no TIFF header)\n"
              "kpz: 2 files: 1 done, 1 failed\n"
              "kpz:   1 not a KPZ raw file (no TIFF header)\n");
    EXPECT_EQ(kpztest::ReadFileBytes(dir.Path() + "/out/x.thumb.jpg"), kpztest::FakeJpeg(32, 2));
  }
}

// a.kpz and a.KPZ are both good; b.kpz is damaged, b.KPZ good. Whatever the
// order and the jobs: a.preview.jpg is the first a's, every later a is told
// who wrote it; b.preview.jpg is b.KPZ's; b.kpz reports its own error.
struct CaseMix {
  std::vector<std::string> args;  // the inputs as given
  const char* jobs;
  const char* aFirst;             // the a file that comes first
};

class KpzToolCaseMix : public KpzToolBatch, public testing::WithParamInterface<CaseMix> {};

Bytes WithPreview(std::uint8_t seed) {
  KpzSpec recipe;
  recipe.screennail = kpztest::FakeJpeg(64, seed);
  return kpztest::BuildKpz(recipe);
}

TEST_P(KpzToolCaseMix, NoInputHidesAnErrorAndTheFirstWriterKeepsTheName) {
  const CaseMix& c = GetParam();
  Put("in/a.kpz", WithPreview(1));
  Put("in/a.KPZ", WithPreview(2));
  Put("in/b.kpz", Bytes(40, 'j'));
  Put("in/b.KPZ", WithPreview(4));
  for (const bool intoDirectory : {true, false}) {
    std::vector<std::string> args = {"preview", "-j", c.jobs};
    args.insert(args.end(), c.args.begin(), c.args.end());
    const std::string outDir = intoDirectory ? "out" : "in";
    if (intoDirectory) {
      args.insert(args.end(), {"-o", "out"});
    }
    const Result r = Run(args);
    const std::string aOther = std::string(c.aFirst) == "in/a.kpz" ? "in/a.KPZ" : "in/a.kpz";
    const std::string aOut = outDir + "/a.preview.jpg";
    const std::string bOut = outDir + "/b.preview.jpg";
    const std::string aLine = "kpz: " + aOther + ": not written: " + aOut +
                              " is already written by " + c.aFirst + "\n";
    const std::string bLine = "kpz: in/b.kpz: not a KPZ raw file (no TIFF header)\n";
    const bool aBeforeB = c.args.front().rfind("in/a", 0) == 0 || c.args.front() == "in";
    const std::string wroteA = "wrote " + aOut + " (64 bytes)\n";
    const std::string wroteB = "wrote " + bOut + " (64 bytes)\n";
    EXPECT_EQ(r.exit, 3);
    EXPECT_EQ(Text(r.out), aBeforeB ? wroteA + wroteB : wroteB + wroteA);
    EXPECT_EQ(r.err, (aBeforeB ? aLine + bLine : bLine + aLine) +
                         "kpz: 4 files: 2 done, 2 failed\n"
                         "kpz:   1 not a KPZ raw file (no TIFF header)\n"
                         "kpz:   1 output already written by an earlier input\n");
    const std::uint8_t aSeed = std::string(c.aFirst) == "in/a.kpz" ? 1 : 2;
    EXPECT_EQ(kpztest::ReadFileBytes(dir.Path() + "/" + aOut), kpztest::FakeJpeg(64, aSeed));
    EXPECT_EQ(kpztest::ReadFileBytes(dir.Path() + "/" + bOut), kpztest::FakeJpeg(64, 4));
    fs::remove(dir.Path() + "/" + aOut);
    fs::remove(dir.Path() + "/" + bOut);
  }
}

INSTANTIATE_TEST_SUITE_P(
    BothOrdersOneAndTwoJobs, KpzToolCaseMix,
    testing::Values(
        CaseMix{{"in/a.kpz", "in/a.KPZ", "in/b.kpz", "in/b.KPZ"}, "1", "in/a.kpz"},
        CaseMix{{"in/a.kpz", "in/a.KPZ", "in/b.kpz", "in/b.KPZ"}, "2", "in/a.kpz"},
        CaseMix{{"in/b.KPZ", "in/b.kpz", "in/a.KPZ", "in/a.kpz"}, "1", "in/a.KPZ"},
        CaseMix{{"in/b.KPZ", "in/b.kpz", "in/a.KPZ", "in/a.kpz"}, "2", "in/a.KPZ"},
        // The directory itself: its files in name order, a.KPZ a.kpz b.KPZ b.kpz.
        CaseMix{{"in"}, "1", "in/a.KPZ"}, CaseMix{{"in"}, "2", "in/a.KPZ"}));

TEST_F(KpzToolBatch, ExitStatusIsTheHighestOfTheFiles) {
  Put("in/a/x.kpz", Good(1));
  Put("in/b/x.kpz", Good(2));
  Put("in/c/y.kpz", Bytes(9, 'j'));
  EXPECT_EQ(Run({"preview", "-r", "in", "-o", "out"}).exit, 3);  // 1 and 3
  EXPECT_EQ(Run({"preview", "-r", "in"}).exit, 1);                // 1 only
}

TEST_F(KpzToolBatch, RecursionAndExtensionsChooseTheFiles) {
  Put("in/a.kpz", Good(1));
  Put("in/B.DNG", Good(2));
  Put("in/sub/c.kpz", Good(3));
  Put("in/.hidden.kpz", Good(4));
  Put("in/notes.txt", Bytes(3, 'x'));
  const auto files = [](const Result& r) {
    std::vector<std::string> names;
    for (const std::string& line : Lines(Text(r.out))) {
      names.push_back(Json::parse(line)["file"]);
    }
    return names;
  };
  EXPECT_EQ(files(Run({"info", "--json", "in"})), (std::vector<std::string>{"in/a.kpz"}));
  EXPECT_EQ(files(Run({"info", "--json", "-r", "in"})),
            (std::vector<std::string>{"in/a.kpz", "in/sub/c.kpz"}));
  EXPECT_EQ(files(Run({"info", "--json", "--ext", "dng,KPZ", "in"})),
            (std::vector<std::string>{"in/B.DNG", "in/a.kpz"}));
  EXPECT_EQ(files(Run({"info", "--json", "--ext", "dng", "--ext", "kpz", "-r", "in"})),
            (std::vector<std::string>{"in/B.DNG", "in/a.kpz", "in/sub/c.kpz"}));
  const Result all = Run({"info", "--json", "--ext", "*", "in"});
  EXPECT_EQ(files(all), (std::vector<std::string>{"in/B.DNG", "in/a.kpz", "in/notes.txt"}));
  EXPECT_EQ(all.exit, 1);  // notes.txt is no KPZ file
}

TEST_F(KpzToolBatch, AQuotedPatternIsExpandedWithoutTheExtensionFilter) {
  Put("d/b.xyz", Good(2));
  Put("d/a.xyz", Good(1));
  Put("d/c.kpz", Good(3));
  // What the user typed is what was asked for: --ext (default .kpz) chooses
  // the files of directories, not the matches of a pattern.
  const Result r = Run({"thumbnail", "d/*.xyz", "-o", "out"});
  EXPECT_EQ(r.exit, 0) << r.err;
  EXPECT_EQ(Text(r.out), "wrote out/a.thumb.jpg (32 bytes)\nwrote out/b.thumb.jpg (32 bytes)\n");
  EXPECT_EQ(Listing(dir.Path() + "/out"), (std::vector<std::string>{"a.thumb.jpg", "b.thumb.jpg"}));
  const Result none = Run({"info", "d/*.none"});
  EXPECT_EQ(none.exit, 1);
  EXPECT_EQ(none.err, "kpz: d/*.none: file not found\n");
}

TEST_F(KpzToolBatch, DirectoryWithoutFilesLeavesNothingToDo) {
  Sub("empty");
  const Result r = Run({"info", "empty", "--ext", "dng"});
  EXPECT_EQ(r.exit, 1);
  EXPECT_EQ(r.err, "kpz: no files to work on: the directories named hold no file ending in .dng\n");
}

TEST_F(KpzToolBatch, OrderIsStableWhateverTheJobs) {
  for (int i = 0; i < 40; ++i) {
    KpzSpec recipe;
    recipe.isoSpeed = static_cast<std::uint16_t>(i);
    recipe.minTotalSize = static_cast<std::uint32_t>((40 - i) * 4096);  // early files are slow
    Put("in/" + Name(i), kpztest::BuildKpz(recipe));
  }
  const Result one = Run({"info", "-j", "1", "in"});
  const Result many = Run({"info", "-j", "16", "in"});
  EXPECT_EQ(one.exit, 0);
  EXPECT_EQ(many.exit, 0);
  EXPECT_EQ(Text(many.out), Text(one.out));
  EXPECT_EQ(many.err, "kpz: 40 files: 40 done, 0 failed\n");
}

TEST_F(KpzToolBatch, OneFileAtATimeReadingAheadWritesWhatManyJobsWrite) {
  // With -j 1 each file's successor is looked at early (its head read, its
  // picture asked for); broken, missing and odd inputs among them must still
  // be reported by their own turn, once, and every output be the same.
  std::vector<std::string> inputs;
  for (int i = 0; i < 12; ++i) {
    KpzSpec recipe;
    recipe.screennail =
        kpztest::FakeJpeg(3000 + static_cast<std::size_t>(i), static_cast<std::uint8_t>(i));
    recipe.minTotalSize = 0x20000;
    Bytes bytes = kpztest::BuildKpz(recipe);
    if (i == 3) bytes = Bytes(40, 'j');  // not a KPZ file
    if (i == 7) bytes = NoMakerNote();
    inputs.push_back(i == 5 ? dir.Path() + "/in/gone.kpz" : Put("in/" + Name(i), bytes));
  }
  Sub("in/dir.kpz");
  inputs.insert(inputs.begin() + 9, dir.Path() + "/in/dir.kpz");
  std::vector<std::string> one = {"preview", "-j", "1", "-o", "one"};
  std::vector<std::string> two = {"preview", "-j", "2", "-o", "two"};
  one.insert(one.end(), inputs.begin(), inputs.end());
  two.insert(two.end(), inputs.begin(), inputs.end());
  const Result a = Run(one);
  const Result b = Run(two);
  EXPECT_EQ(a.exit, b.exit);
  EXPECT_NE(a.exit, 0);
  std::string bOut = Text(b.out);
  for (std::size_t at = bOut.find("two/"); at != std::string::npos; at = bOut.find("two/", at)) {
    bOut.replace(at, 4, "one/");
  }
  EXPECT_EQ(Text(a.out), bOut);
  EXPECT_EQ(a.err, b.err);
  EXPECT_EQ(Listing(dir.Path() + "/one"), Listing(dir.Path() + "/two"));
  for (const std::string& name : Listing(dir.Path() + "/one")) {
    EXPECT_EQ(kpztest::ReadFileBytes(dir.Path() + "/one/" + name),
              kpztest::ReadFileBytes(dir.Path() + "/two/" + name))
        << name;
  }
  // 13 inputs, of which 4 are missing, broken or a directory.
  EXPECT_EQ(Listing(dir.Path() + "/one").size(), 9u);
}

TEST_F(KpzToolBatch, VerboseLibraryLinesStayWholeWithManyJobs) {
  // Files the library parses and logs about (a missing one never reaches it).
  std::vector<std::string> args = {"info", "-v", "-j", "4"};
  for (int i = 0; i < 30; ++i) {
    args.push_back(Put("bad" + std::to_string(i) + ".kpz", Bytes(100, 'x')));
  }
  const Result r = Run(args);
  EXPECT_EQ(r.exit, 1);
  int library = 0;
  int tool = 0;
  for (const std::string& line : Lines(r.err)) {
    if (line.rfind("kpz: ", 0) == 0) {
      ++tool;
    } else {
      ++library;
      EXPECT_EQ(line.rfind("\033[", 0), 0u) << line;
      EXPECT_EQ(line.substr(line.size() - 4), "\033[0m") << line;
    }
  }
  EXPECT_EQ(tool, 30 + 2);  // one per file, the summary and its one reason
  EXPECT_GE(library, 30);
}

TEST_F(KpzToolBatch, NoProgressBarWhenStandardErrorIsAFile) {
  for (int i = 0; i < 60; ++i) {
    Put("in/" + Name(i), Good(i));
  }
  const Result r = Run({"info", "in"});
  EXPECT_EQ(r.exit, 0);
  EXPECT_EQ(r.err, "kpz: 60 files: 60 done, 0 failed\n");
}

TEST_F(KpzToolBatch, ProgressBarOnATerminalForALongRun) {
  const int master = posix_openpt(O_RDWR | O_NOCTTY);
  if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0) {
    if (master >= 0) close(master);
    GTEST_SKIP() << "no pseudo-terminals here";
  }
  const int slave = open(ptsname(master), O_RDWR | O_NOCTTY);
  ASSERT_GE(slave, 0);
  for (int i = 0; i < 60; ++i) {
    Put("in/" + Name(i), Good(i));
  }
  const Result r = Run({"info", "--json", "in"}, slave);
  close(slave);
  EXPECT_EQ(r.exit, 0);
  EXPECT_EQ(Lines(Text(r.out)).size(), 60u);  // standard output is untouched
  std::string term;
  fcntl(master, F_SETFL, O_NONBLOCK);
  char buf[4096];
  for (;;) {  // ends when the terminal has nothing more
    const ssize_t n = read(master, buf, sizeof buf);
    if (n <= 0) break;
    term.append(buf, static_cast<std::size_t>(n));
  }
  close(master);
  EXPECT_NE(term.find("\rkpz: ["), std::string::npos) << term;
  EXPECT_NE(term.find("] 60/60 files"), std::string::npos) << term;
  EXPECT_NE(term.find("\r\033[Kkpz: 60 files: 60 done, 0 failed"), std::string::npos) << term;
}

// What the tool drew on a pseudo-terminal as its standard error while it ran
// `args` over `files` inputs named "in/f0000.kpz" ...
// With `columns` >= 0 the terminal says it has that many columns.
std::string TerminalOf(KpzToolBatch& t, const std::vector<std::string>& args, Result* r,
                       int columns = -1) {
  const int master = posix_openpt(O_RDWR | O_NOCTTY);
  if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0) {
    if (master >= 0) close(master);
    return "";
  }
  const int slave = open(ptsname(master), O_RDWR | O_NOCTTY);
  if (columns >= 0) {
    winsize size{};
    size.ws_row = 24;
    size.ws_col = static_cast<unsigned short>(columns);
    ioctl(slave, TIOCSWINSZ, &size);
  }
  *r = t.RunPublic(args, slave);
  close(slave);
  std::string term;
  fcntl(master, F_SETFL, O_NONBLOCK);
  char buf[4096];
  for (;;) {  // ends when the terminal has nothing more
    const ssize_t n = read(master, buf, sizeof buf);
    if (n <= 0) break;
    term.append(buf, static_cast<std::size_t>(n));
  }
  close(master);
  return term;
}

// Every drawing of the bar in `term`, the text between "\r" and ESC [K.
std::vector<std::string> Frames(const std::string& term) {
  std::vector<std::string> frames;
  std::size_t at = 0;
  while ((at = term.find("\rkpz: [", at)) != std::string::npos) {  // each pass takes one
    const std::size_t end = term.find("\033[K", at);
    frames.push_back(term.substr(at + 1, end == std::string::npos ? end : end - at - 1));
    at += 1;
  }
  return frames;
}

TEST_F(KpzToolBatch, ProgressBarKnowsTheTotalOfFilesNamedAtOnce) {
  std::vector<std::string> args = {"info", "--json", "-j", "2"};
  for (int i = 0; i < 60; ++i) {
    Put("in/" + Name(i), Good(i));
    args.push_back("in/" + Name(i));
  }
  Result r;
  const std::string term = TerminalOf(*this, args, &r);
  if (term.empty()) {
    GTEST_SKIP() << "no pseudo-terminals here";
  }
  EXPECT_EQ(r.exit, 0);
  const std::vector<std::string> frames = Frames(term);
  ASSERT_FALSE(frames.empty()) << term;
  for (const std::string& f : frames) {
    // "kpz: [###---] 12/60 files, 3000/s, 0:00 left": never "12/13+".
    EXPECT_NE(f.find("/60 files"), std::string::npos) << f;
    EXPECT_EQ(f.find('+'), std::string::npos) << f;
  }
}

TEST_F(KpzToolBatch, ProgressBarOnATerminalOfAnyWidthFitsOrIsLeftOut) {
  for (int i = 0; i < 60; ++i) {
    Put("in/" + Name(i), Good(i));
  }
  // 0 columns (what `script` and some CI runners report): unknown, 80 assumed.
  for (const int columns : {0, 30, 12, 500}) {
    Result r;
    const std::string term = TerminalOf(*this, {"info", "--json", "in"}, &r, columns);
    if (term.empty() && columns == 0) {
      GTEST_SKIP() << "no pseudo-terminals here";
    }
    EXPECT_EQ(r.exit, 0) << columns;
    const std::size_t limit = columns == 0 ? 80 : static_cast<std::size_t>(columns);
    for (const std::string& f : Frames(term)) {
      EXPECT_LT(f.size(), limit) << columns << ": " << f;
    }
    if (columns != 12) {
      EXPECT_FALSE(Frames(term).empty()) << columns;
    }
    EXPECT_NE(term.find("kpz: 60 files: 60 done, 0 failed"), std::string::npos) << term;
  }
}

TEST_F(KpzToolBatch, ProgressBarOfADirectoryEndsWithItsTotalCountedAhead) {
  for (int i = 0; i < 60; ++i) {
    Put("in/" + Name(i), Good(i));
  }
  Result r;
  const std::string term = TerminalOf(*this, {"info", "--json", "-j", "1", "in"}, &r);
  if (term.empty()) {
    GTEST_SKIP() << "no pseudo-terminals here";
  }
  const std::vector<std::string> frames = Frames(term);
  ASSERT_FALSE(frames.empty()) << term;
  // The count ahead may still run at the first frames ("3/41+"); the total
  // found never goes past 60, and the last frame is the whole run.
  for (const std::string& f : frames) {
    const std::size_t slash = f.find('/');
    ASSERT_NE(slash, std::string::npos) << f;
    EXPECT_LE(std::stoul(f.substr(slash + 1)), 60u) << f;
  }
  EXPECT_NE(frames.back().find("] 60/60 files"), std::string::npos) << frames.back();
}

TEST_F(KpzToolBatch, QuietDrawsNoBarAndPrintsNoReportLines) {
  for (int i = 0; i < 60; ++i) {
    Put("in/" + Name(i), Good(i));
  }
  Result r;
  const std::string term = TerminalOf(*this, {"thumbnail", "-q", "in", "-o", "out"}, &r);
  if (term.empty()) {
    GTEST_SKIP() << "no pseudo-terminals here";
  }
  EXPECT_EQ(r.exit, 0);
  EXPECT_EQ(term, "");  // no bar, no summary: all were done
  EXPECT_EQ(Text(r.out), "");
  EXPECT_EQ(Listing(dir.Path() + "/out").size(), 60u);
  // A failure is still told, and the summary with it.
  Put("in/" + Name(60), Bytes{'n', 'o'});
  const Result bad = Run({"thumbnail", "-q", "in", "-o", "out2"});
  EXPECT_EQ(bad.exit, 1);
  EXPECT_EQ(Text(bad.out), "");
  EXPECT_NE(bad.err.find("kpz: in/f0060.kpz: "), std::string::npos) << bad.err;
  EXPECT_NE(bad.err.find("kpz: 61 files: 60 done, 1 failed\n"), std::string::npos) << bad.err;
}

TEST_F(KpzToolBatch, SkipExistingLeavesWholeOutputsAndWritesTheOthers) {
  for (int i = 0; i < 4; ++i) {
    KpzSpec recipe;
    recipe.thumbnail = kpztest::FakeJpeg(32, static_cast<std::uint8_t>(i));
    recipe.thumbnail[2] = 0xFF;  // a marker after SOI: a whole JPEG to IsWhole
    Put("in/" + Name(i), kpztest::BuildKpz(recipe));
  }
  ASSERT_EQ(Run({"thumbnail", "in", "-o", "out"}).exit, 0);
  const std::string out = dir.Path() + "/out/";
  fs::remove(out + "f0000.thumb.jpg");                       // missing: written
  kpztest::WriteFileBytes(out + "f0001.thumb.jpg", Bytes{0xFF, 0xD8, 0xFF});  // cut: written again
  const auto before = fs::last_write_time(out + "f0002.thumb.jpg");
  const Result r = Run({"thumbnail", "--skip-existing", "in", "-o", "out"});
  EXPECT_EQ(r.exit, 0);
  EXPECT_EQ(Text(r.out), "wrote out/f0000.thumb.jpg (32 bytes)\nwrote out/f0001.thumb.jpg (32 bytes)\n");
  EXPECT_EQ(r.err,
            "kpz: 4 files: 4 done, 0 failed\n"
            "kpz:   2 thumbnails already present, not written again (--skip-existing)\n"
            "kpz:   1 thumbnail written again, as the file present was not a whole JPEG "
            "(--skip-existing)\n");
  EXPECT_EQ(fs::last_write_time(out + "f0002.thumb.jpg"), before);
  EXPECT_EQ(fs::file_size(out + "f0001.thumb.jpg"), 32u);
}

}  // namespace

#else

TEST(KpzToolBatch, NeedsTheToolTheSampleAndItsGenerator) {
  GTEST_SKIP() << "the kpz tool is not built";
}

#endif
