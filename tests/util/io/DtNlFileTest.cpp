#include "util/io/DtNlFile.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utime.h>

#include <cerrno>
#include <climits>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "support/FaultInjection.h"
#include "support/LogExpect.h"
#include "util/io/DtNlFileIterator.h"
#include "util/io/DtNlFileStatus.h"
#include "util/io/DtNlFileStatus64.h"

namespace {

using kpztest::Arm;
using kpztest::Call;
using kpztest::CallCount;
using kpztest::CaptureStderr;
using kpztest::ErrLine;

const char* const kSrc = "jni/util/io/DtNlFile.cpp";

std::string Str(DtNlString const& s) { return s.text != nullptr ? std::string(s.text) : "<null>"; }
std::string Str(const DtNlString* s) { return s != nullptr ? Str(*s) : "<null ptr>"; }

std::string PathOf(DtNlFile const& f) { return Str(f.GetPath()); }
std::string RootOf(DtNlFile const& f) {
  DtNlString out;
  f.GetRootPath(&out);
  return Str(out);
}
std::string ChildOf(DtNlFile const& f) {
  DtNlString out;
  f.GetChildPath(&out);
  return Str(out);
}
std::string NameOf(DtNlFile const& f) {
  DtNlString out;
  f.GetName(&out);
  return Str(out);
}

// ---------------------------------------------------------------------------
// Paths

TEST(DtNlFile, PathSeparatorIsSlash) { EXPECT_STREQ(DtNlFile::PATH_SEPA, "/"); }

TEST(DtNlFile, DefaultFileHasTheEmptyPath) {
  DtNlFile f;
  EXPECT_EQ(PathOf(f), "");
  EXPECT_EQ(f.GetPath().length, 0u);
  EXPECT_EQ(RootOf(f), "/");
  EXPECT_EQ(ChildOf(f), "");
  EXPECT_EQ(NameOf(f), "");
}

TEST(DtNlFile, OneTrailingSeparatorIsDropped) {
  DtNlFile f("/a/b/");
  EXPECT_EQ(PathOf(f), "/a/b");
  EXPECT_EQ(NameOf(f), "b");
  EXPECT_EQ(RootOf(f), "/");
  EXPECT_EQ(ChildOf(f), "/a/b");
}

TEST(DtNlFile, LoneSeparatorBecomesTheEmptyPath) {
  DtNlFile f("/");
  EXPECT_EQ(PathOf(f), "");
  EXPECT_TRUE(f.Equals(DtNlFile()));
}

TEST(DtNlFile, DoubledTrailingSeparatorKeepsOneAndHasAnEmptyName) {
  DtNlFile f("a//");
  EXPECT_EQ(PathOf(f), "a/");
  // The name index lies at the end of the path: the name is "", and an
  // output string is overwritten rather than left as it was.
  DtNlString out("junk");
  EXPECT_EQ(f.GetName(&out), &out);
  EXPECT_EQ(Str(out), "");
}

TEST(DtNlFile, PathWithoutSeparatorIsItsOwnName) {
  DtNlFile f("name");
  EXPECT_EQ(NameOf(f), "name");
  EXPECT_EQ(RootOf(f), "/");
  EXPECT_EQ(ChildOf(f), "name");
  // Name index 0: a rename appends to the whole path (see Rename tests).
}

TEST(DtNlFile, NullTextsAreTakenAsEmpty) {
  const char* none = nullptr;
  EXPECT_EQ(PathOf(DtNlFile(none)), "");
  EXPECT_EQ(PathOf(DtNlFile(DtNlString(none))), "");
  EXPECT_EQ(PathOf(DtNlFile(none, "a")), "/a");
  EXPECT_EQ(PathOf(DtNlFile("/r", none)), "/r");
  EXPECT_EQ(PathOf(DtNlFile(DtNlString("/r"), none)), "/r");
  EXPECT_EQ(PathOf(DtNlFile(DtNlString(none), DtNlString(none))), "");
  EXPECT_EQ(PathOf(DtNlFile(DtNlFile("/r"), none)), "/r/");
  EXPECT_EQ(PathOf(DtNlFile(DtNlFile("/r"), DtNlString(none))), "/r/");
}

TEST(DtNlFile, StringConstructorMatchesTextConstructor) {
  DtNlFile a(DtNlString("/x/y/"));
  EXPECT_EQ(PathOf(a), "/x/y");
  EXPECT_TRUE(a.Equals(DtNlFile("/x/y")));
}

TEST(DtNlFile, TwoPartJoinSplitsRootChildAndName) {
  DtNlFile f("/sdcard", "x.kpz");
  EXPECT_EQ(PathOf(f), "/sdcard/x.kpz");
  EXPECT_EQ(RootOf(f), "/sdcard");
  EXPECT_EQ(ChildOf(f), "/x.kpz");
  EXPECT_EQ(NameOf(f), "x.kpz");
}

TEST(DtNlFile, TwoPartJoinDropsTheParentsTrailingSeparator) {
  DtNlFile f("/sdcard/", "DCIM/x.kpz");
  EXPECT_EQ(PathOf(f), "/sdcard/DCIM/x.kpz");
  EXPECT_EQ(RootOf(f), "/sdcard");
  EXPECT_EQ(ChildOf(f), "/DCIM/x.kpz");
  EXPECT_EQ(NameOf(f), "x.kpz");
}

TEST(DtNlFile, TwoPartJoinKeepsTheChildsLeadingSeparator) {
  DtNlFile f("/sdcard/", "/x.kpz");
  EXPECT_EQ(PathOf(f), "/sdcard/x.kpz");
  EXPECT_TRUE(f.Equals(DtNlFile("/sdcard", "x.kpz")));
}

TEST(DtNlFile, TwoPartJoinWithEmptyParentGivesALeadingSeparator) {
  DtNlFile f("", "a");
  EXPECT_EQ(PathOf(f), "/a");
  EXPECT_EQ(RootOf(f), "/");
  EXPECT_EQ(ChildOf(f), "/a");
  EXPECT_EQ(NameOf(f), "a");
  EXPECT_EQ(PathOf(DtNlFile("/", "a")), "/a");
}

TEST(DtNlFile, TwoPartJoinWithEmptyChildIsTheRootAlone) {
  DtNlFile f("/sdcard", "");
  EXPECT_EQ(PathOf(f), "/sdcard");
  EXPECT_EQ(RootOf(f), "/sdcard");
  EXPECT_EQ(ChildOf(f), "/");
  EXPECT_EQ(NameOf(f), "");
}

TEST(DtNlFile, TwoPartJoinDropsTheChildsTrailingSeparator) {
  DtNlFile f("/r", "a/");
  EXPECT_EQ(PathOf(f), "/r/a");
  EXPECT_EQ(NameOf(f), "a");
}

TEST(DtNlFile, NameIndexNeverFallsInsideTheRoot) {
  // The last separator of '/a/b' lies inside the root: the name is empty.
  DtNlFile f("/a/b", "");
  EXPECT_EQ(NameOf(f), "");
  EXPECT_EQ(NameOf(DtNlFile("/a/b", "c")), "c");
}

TEST(DtNlFile, RootWithoutSeparatorAndEmptyChildHasNameIndexZero) {
  DtNlFile f("abc", "");
  EXPECT_EQ(PathOf(f), "abc");
  EXPECT_EQ(RootOf(f), "abc");
  EXPECT_EQ(ChildOf(f), "/");
  EXPECT_EQ(NameOf(f), "abc");
}

TEST(DtNlFile, AllTwoPartConstructorsAgree) {
  DtNlFile a(DtNlString("/p/"), DtNlString("c"));
  DtNlFile b(DtNlString("/p/"), "c");
  DtNlFile c("/p/", "c");
  EXPECT_EQ(PathOf(a), "/p/c");
  EXPECT_TRUE(a.Equals(b));
  EXPECT_TRUE(a.Equals(c));
}

TEST(DtNlFile, ChildOfAFileAppendsSeparatorAndName) {
  DtNlFile parent("/sdcard", "DCIM");
  DtNlFile f(parent, "x.kpz");
  EXPECT_EQ(PathOf(f), "/sdcard/DCIM/x.kpz");
  EXPECT_EQ(RootOf(f), "/sdcard");
  EXPECT_EQ(ChildOf(f), "/DCIM/x.kpz");
  EXPECT_EQ(NameOf(f), "x.kpz");
  EXPECT_TRUE(f.Equals(DtNlFile(parent, DtNlString("x.kpz"))));
  EXPECT_TRUE(f.Equals(DtNlFile(parent, "/x.kpz")));
}

TEST(DtNlFile, EmptyChildOfAFileBecomesASeparator) {
  DtNlFile f(DtNlFile("/p"), "");
  EXPECT_EQ(PathOf(f), "/p/");
  EXPECT_EQ(NameOf(f), "");
}

TEST(DtNlFile, ChildOfAFileIsNotNormalised) {
  DtNlFile inner(DtNlFile("/p"), "a/b");
  EXPECT_EQ(PathOf(inner), "/p/a/b");
  EXPECT_EQ(NameOf(inner), "a/b");
  DtNlFile trailing(DtNlFile("/p"), "x/");
  EXPECT_EQ(PathOf(trailing), "/p/x/");
  EXPECT_EQ(NameOf(trailing), "x/");
}

TEST(DtNlFile, ChildOfTheEmptyPathStartsWithTheSeparator) {
  DtNlFile f(DtNlFile("/"), "a");
  EXPECT_EQ(PathOf(f), "/a");
  EXPECT_EQ(NameOf(f), "a");
}

TEST(DtNlFile, GetPathCopiesIntoOutAndReturnsThePath) {
  DtNlFile f("/a/b");
  DtNlString out("old");
  DtNlString const& p = f.GetPath(&out);
  EXPECT_EQ(Str(out), "/a/b");
  EXPECT_EQ(&p, &f.GetPath());
  EXPECT_NE(out.text, p.text);
}

TEST(DtNlFile, QueriesWithoutOutWriteIntoTheEditString) {
  DtNlFile f("/sdcard", "x.kpz");
  DtNlString* name = f.GetName();
  ASSERT_NE(name, nullptr);
  EXPECT_EQ(Str(name), "x.kpz");
  DtNlString* root = f.GetRootPath(nullptr);
  EXPECT_EQ(Str(root), "/sdcard");
  DtNlString* child = f.GetChildPath(nullptr);
  EXPECT_EQ(Str(child), "/x.kpz");
}

TEST(DtNlFile, QueriesWithOutReturnOut) {
  DtNlFile f("/sdcard", "x.kpz");
  DtNlString a("junk"), b("junk"), c("junk");
  EXPECT_EQ(f.GetName(&a), &a);
  EXPECT_EQ(f.GetRootPath(&b), &b);
  EXPECT_EQ(f.GetChildPath(&c), &c);
  EXPECT_EQ(Str(a), "x.kpz");
  EXPECT_EQ(Str(b), "/sdcard");
  EXPECT_EQ(Str(c), "/x.kpz");
}

TEST(DtNlFile, FreeDropsTheEditStringAndQueriesStillWork) {
  DtNlFile f("/a/b");
  EXPECT_EQ(Str(f.GetName()), "b");
  f.Free();
  f.Free();
  EXPECT_EQ(Str(f.GetName()), "b");
}

TEST(DtNlFile, CopyTakesPathRootAndNameIndexButNotTheEditString) {
  DtNlFile src("/sdcard", "x.kpz");
  DtNlString* srcName = src.GetName();
  {
    DtNlFile copy(src);
    EXPECT_TRUE(copy.Equals(src));
    EXPECT_EQ(RootOf(copy), "/sdcard");
    EXPECT_EQ(Str(copy.GetName()), "x.kpz");
  }
  // The copy's destruction left the source's edit string alone.
  EXPECT_EQ(Str(srcName), "x.kpz");
}

TEST(DtNlFile, AssignmentCopiesAndSelfAssignmentKeeps) {
  DtNlFile src("/sdcard", "x.kpz");
  DtNlFile dst("/other");
  DtNlString* dstName = dst.GetName();
  dst = src;
  EXPECT_TRUE(dst.Equals(src));
  EXPECT_EQ(Str(dstName), "other");  // the target's own edit string survives
  DtNlFile& alias = dst;
  dst = alias;
  EXPECT_TRUE(dst.Equals(src));
  EXPECT_EQ(PathOf(dst), "/sdcard/x.kpz");
}

TEST(DtNlFile, EqualsComparesPathRootAndNameIndex) {
  EXPECT_EQ(DtNlFile("/a/b").Equals(DtNlFile("/a/b")), 1);
  EXPECT_EQ(DtNlFile("/a/b").Equals(DtNlFile("/a/c")), 0);
  EXPECT_EQ(DtNlFile("/a/b").Equals(DtNlFile("/a/bc")), 0);
  // Same text, different root.
  EXPECT_EQ(DtNlFile("/a/b").Equals(DtNlFile("/a", "b")), 0);
  // Same text and root, different name index.
  DtNlFile joined("/a", "b/c");
  DtNlFile added(DtNlFile("/a", ""), "b/c");
  EXPECT_EQ(PathOf(joined), PathOf(added));
  EXPECT_EQ(RootOf(joined), RootOf(added));
  EXPECT_EQ(joined.Equals(added), 0);
}

TEST(DtNlFile, ParentOfAOneComponentPathIsItself) {
  DtNlFile f("name");
  DtNlFile p = f.GetParent(1);
  EXPECT_EQ(PathOf(p), "name");
  EXPECT_TRUE(p.Equals(f));
}

TEST(DtNlFile, ParentOneLevelUpOfAFileUnderTheRootIsTheRoot) {
  DtNlFile f("/sdcard", "x.kpz");
  DtNlFile untouched("keep");
  DtNlFile p = f.GetParent(1, &untouched);
  EXPECT_EQ(PathOf(p), "/sdcard");
  EXPECT_EQ(RootOf(p), "/sdcard");
  EXPECT_TRUE(p.Equals(DtNlFile("/sdcard", "")));
  // Only a file that is its root alone writes the out parameter.
  EXPECT_EQ(PathOf(untouched), "keep");
}

TEST(DtNlFile, ParentOfTheRootAloneIsACopyAlsoWrittenToOut) {
  DtNlFile root("/sdcard", "");
  DtNlFile out("elsewhere");
  DtNlFile p = root.GetParent(1, &out);
  EXPECT_TRUE(p.Equals(root));
  EXPECT_TRUE(out.Equals(root));
  EXPECT_TRUE(DtNlFile().GetParent(3).Equals(DtNlFile()));
}

TEST(DtNlFile, ParentTwoLevelsUpWithoutRoot) {
  DtNlFile f("/a/b/c");
  EXPECT_TRUE(f.GetParent(1).Equals(DtNlFile("/a/b")));
  EXPECT_TRUE(f.GetParent(2).Equals(DtNlFile("/a")));
  EXPECT_EQ(PathOf(f.GetParent(2)), "/a");
}

TEST(DtNlFile, ParentClimbsToTheTopSeparatorAndStops) {
  DtNlFile f("/a/b/c");
  EXPECT_EQ(PathOf(f.GetParent(3)), "");
  EXPECT_EQ(PathOf(f.GetParent(4)), "");
  EXPECT_EQ(PathOf(f.GetParent(INT_MAX)), "");
  EXPECT_EQ(PathOf(DtNlFile("/a").GetParent(1)), "");
}

TEST(DtNlFile, ParentStopsAtTheRootAndKeepsIt) {
  DtNlFile f("/sdcard", "DCIM/100/x.kpz");
  DtNlFile one = f.GetParent(1);
  EXPECT_EQ(PathOf(one), "/sdcard/DCIM/100");
  EXPECT_EQ(RootOf(one), "/sdcard");
  EXPECT_TRUE(one.Equals(DtNlFile("/sdcard", "DCIM/100")));
  EXPECT_TRUE(f.GetParent(2).Equals(DtNlFile("/sdcard", "DCIM")));
  EXPECT_TRUE(f.GetParent(3).Equals(DtNlFile("/sdcard", "")));
  EXPECT_TRUE(f.GetParent(9).Equals(DtNlFile("/sdcard", "")));
}

TEST(DtNlFile, ParentAtLevelZeroOrBelowIsTheWholePathWithoutRoot) {
  DtNlFile f("/sdcard", "x.kpz");
  DtNlFile zero = f.GetParent(0);
  EXPECT_EQ(PathOf(zero), "/sdcard/x.kpz");
  EXPECT_EQ(RootOf(zero), "/");
  EXPECT_TRUE(zero.Equals(DtNlFile("/sdcard/x.kpz")));
  EXPECT_TRUE(f.GetParent(-1).Equals(DtNlFile("/sdcard/x.kpz")));
  EXPECT_TRUE(f.GetParent(INT_MIN).Equals(DtNlFile("/sdcard/x.kpz")));
}

TEST(DtNlFile, ParentOfARelativePathGainsALeadingSeparator) {
  // Root length 0: the parent text is joined as a child of the empty root.
  EXPECT_EQ(PathOf(DtNlFile("a/b").GetParent(1)), "/a");
}

// ---------------------------------------------------------------------------
// File-system operations

class DtNlFileFs : public testing::Test {
 protected:
  void SetUp() override {
    char tmpl[] = "/tmp/kpz-file-XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    dir_ = tmpl;
    kpztest::ResetCounts();
  }
  void TearDown() override {
    std::error_code ec;
    std::filesystem::remove_all(dir_, ec);
  }

  std::string P(const std::string& name) const { return dir_ + "/" + name; }

  void Write(const std::string& name, const std::string& content) const {
    std::ofstream out(P(name), std::ios::binary);
    out << content;
  }

  std::string Read(const std::string& name) const {
    std::ifstream in(P(name), std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }

  bool Exists(const std::string& name) const { return std::filesystem::exists(P(name)); }

  kpztest::FaultGuard guard_;
  std::string dir_;
};

using DtNlFileFsDeathTest = DtNlFileFs;

void ExpectStatus(DtNlStatus const& st, DtNlErrCode code, int err) {
  EXPECT_EQ(st.errCode, code);
  EXPECT_EQ(st.sysErrNo, err);
}

// "<call> err(<err>)" followed by `end`, as the library logs a failed call.
std::string Msg(const std::string& call, int err, char end = '.') {
  return call + " err(" + std::to_string(err) + ")" + end;
}

// MkFile

// The capture of standard error opens and closes files itself: faults of
// open/close are armed, and calls counted, inside the captured body only.
struct MkFileRun {
  DtNlStatus status;
  std::string err;
  int opens = -1;
  int closes = -1;
  int syncs = -1;
};

MkFileRun RunMkFile(DtNlFile const& f, Call armed, int armedErr) {
  MkFileRun run;
  run.err = CaptureStderr([&] {
    kpztest::ResetCounts();
    if (armedErr != 0) Arm(armed, armedErr);
    run.status = f.MkFile();
    kpztest::DisarmAll();
    run.opens = CallCount(Call::Open);
    run.closes = CallCount(Call::Close);
    run.syncs = CallCount(Call::Sync);
  });
  return run;
}

TEST_F(DtNlFileFs, MkFileCreatesAnEmptyFileWithoutSync) {
  MkFileRun run = RunMkFile(DtNlFile(dir_.c_str(), "new.kpz"), Call::Open, 0);
  ExpectStatus(run.status, DtNlErrNone, 0);
  EXPECT_EQ(run.err, "");
  EXPECT_TRUE(Exists("new.kpz"));
  EXPECT_EQ(std::filesystem::file_size(P("new.kpz")), 0u);
  EXPECT_EQ(run.opens, 1);
  EXPECT_EQ(run.closes, 1);
  EXPECT_EQ(run.syncs, 0);
}

TEST_F(DtNlFileFs, MkFileTruncatesAnExistingFile) {
  Write("x.kpz", "0123456789");
  DtNlFile f(dir_.c_str(), "x.kpz");
  ExpectStatus(f.MkFile(), DtNlErrNone, 0);
  EXPECT_EQ(Read("x.kpz"), "");
}

TEST_F(DtNlFileFs, MkFileOpenFailureWithEioIsAnIoError) {
  MkFileRun run = RunMkFile(DtNlFile(dir_.c_str(), "x"), Call::Open, EIO);
  ExpectStatus(run.status, DtNlErrIo, EIO);
  EXPECT_EQ(run.err, ErrLine(kSrc, "MkFile", 313, Msg("open", EIO)));
  EXPECT_FALSE(Exists("x"));
  EXPECT_EQ(run.closes, 0);
  EXPECT_EQ(run.syncs, 0);
}

TEST_F(DtNlFileFs, MkFileOpenFailureInAMissingDirectoryIsAMkFileError) {
  // MkFile does not separate ENOENT.
  MkFileRun run = RunMkFile(DtNlFile(dir_.c_str(), "no/x"), Call::Open, 0);
  ExpectStatus(run.status, DtNlErrMkFile, ENOENT);
  EXPECT_EQ(run.err, ErrLine(kSrc, "MkFile", 313, Msg("open", ENOENT)));
}

TEST_F(DtNlFileFs, MkFileOpenFailureWithEaccesIsAMkFileError) {
  MkFileRun run = RunMkFile(DtNlFile(dir_.c_str(), "x"), Call::Open, EACCES);
  ExpectStatus(run.status, DtNlErrMkFile, EACCES);
  EXPECT_EQ(run.err, ErrLine(kSrc, "MkFile", 313, Msg("open", EACCES)));
}

TEST_F(DtNlFileFs, MkFileCloseFailureWithEioIsAnIoError) {
  MkFileRun run = RunMkFile(DtNlFile(dir_.c_str(), "x"), Call::Close, EIO);
  ExpectStatus(run.status, DtNlErrIo, EIO);
  EXPECT_EQ(run.err, ErrLine(kSrc, "MkFile", 324, Msg("close", EIO)));
  EXPECT_TRUE(Exists("x"));
  EXPECT_EQ(run.closes, 1);
  EXPECT_EQ(run.syncs, 0);
}

TEST_F(DtNlFileFs, MkFileCloseFailureWithOtherErrnoIsAMkFileError) {
  MkFileRun run = RunMkFile(DtNlFile(dir_.c_str(), "x"), Call::Close, EINTR);
  ExpectStatus(run.status, DtNlErrMkFile, EINTR);
  EXPECT_EQ(run.err, ErrLine(kSrc, "MkFile", 324, Msg("close", EINTR)));
}

// MkDir

TEST_F(DtNlFileFs, MkDirCreatesADirectoryWithoutSync) {
  DtNlStatus st = DtNlFile(dir_.c_str(), "d").MkDir();
  ExpectStatus(st, DtNlErrNone, 0);
  EXPECT_TRUE(std::filesystem::is_directory(P("d")));
  EXPECT_EQ(CallCount(Call::Mkdir), 1);
  EXPECT_EQ(CallCount(Call::Sync), 0);
}

TEST_F(DtNlFileFs, MkDirOnAnExistingPathIsAMkDirError) {
  ASSERT_EQ(mkdir(P("d").c_str(), 0755), 0);
  DtNlStatus st;
  std::string err = CaptureStderr([&] { st = DtNlFile(dir_.c_str(), "d").MkDir(); });
  ExpectStatus(st, DtNlErrMkDir, EEXIST);
  EXPECT_EQ(err, ErrLine(kSrc, "MkDir", 341, Msg("mkdir", EEXIST)));
}

TEST_F(DtNlFileFs, MkDirInAMissingDirectoryIsAMkDirError) {
  DtNlStatus st;
  std::string err = CaptureStderr([&] { st = DtNlFile(dir_.c_str(), "no/d").MkDir(); });
  ExpectStatus(st, DtNlErrMkDir, ENOENT);
  EXPECT_EQ(err, ErrLine(kSrc, "MkDir", 341, Msg("mkdir", ENOENT)));
}

TEST_F(DtNlFileFs, MkDirWithEioIsAnIoError) {
  Arm(Call::Mkdir, EIO);
  DtNlStatus st;
  std::string err = CaptureStderr([&] { st = DtNlFile(dir_.c_str(), "d").MkDir(); });
  ExpectStatus(st, DtNlErrIo, EIO);
  EXPECT_EQ(err, ErrLine(kSrc, "MkDir", 341, Msg("mkdir", EIO)));
  EXPECT_FALSE(Exists("d"));
  EXPECT_EQ(CallCount(Call::Sync), 0);
}

// RmFile

TEST_F(DtNlFileFs, RmFileRemovesAndSyncsOnce) {
  Write("x", "abc");
  ExpectStatus(DtNlFile(dir_.c_str(), "x").RmFile(), DtNlErrNone, 0);
  EXPECT_FALSE(Exists("x"));
  EXPECT_EQ(CallCount(Call::Sync), 1);
}

TEST_F(DtNlFileFs, RmFileOfAMissingFileIsNotFoundWithoutSync) {
  DtNlStatus st;
  std::string err = CaptureStderr([&] { st = DtNlFile(dir_.c_str(), "x").RmFile(); });
  ExpectStatus(st, DtNlErrNotFound, ENOENT);
  EXPECT_EQ(err, ErrLine(kSrc, "RmFile", 357, Msg("unlink", ENOENT)));
  EXPECT_EQ(CallCount(Call::Sync), 0);
}

TEST_F(DtNlFileFs, RmFileWithEioIsAnIoError) {
  Write("x", "abc");
  Arm(Call::Unlink, EIO);
  DtNlStatus st;
  std::string err = CaptureStderr([&] { st = DtNlFile(dir_.c_str(), "x").RmFile(); });
  ExpectStatus(st, DtNlErrIo, EIO);
  EXPECT_EQ(err, ErrLine(kSrc, "RmFile", 357, Msg("unlink", EIO)));
  EXPECT_TRUE(Exists("x"));
  EXPECT_EQ(CallCount(Call::Sync), 0);
}

TEST_F(DtNlFileFs, RmFileOfADirectoryIsARmFileError) {
  ASSERT_EQ(mkdir(P("d").c_str(), 0755), 0);
  DtNlStatus st;
  std::string err = CaptureStderr([&] { st = DtNlFile(dir_.c_str(), "d").RmFile(); });
  ExpectStatus(st, DtNlErrRmFile, EISDIR);
  EXPECT_EQ(err, ErrLine(kSrc, "RmFile", 357, Msg("unlink", EISDIR)));
}

TEST_F(DtNlFileFs, RmFileWithEaccesIsARmFileError) {
  Write("x", "abc");
  Arm(Call::Unlink, EACCES);
  DtNlStatus st;
  std::string err = CaptureStderr([&] { st = DtNlFile(dir_.c_str(), "x").RmFile(); });
  ExpectStatus(st, DtNlErrRmFile, EACCES);
  EXPECT_EQ(err, ErrLine(kSrc, "RmFile", 357, Msg("unlink", EACCES)));
}

// RmDir

TEST_F(DtNlFileFs, RmDirRemovesAnEmptyDirectoryAndSyncsOnce) {
  ASSERT_EQ(mkdir(P("d").c_str(), 0755), 0);
  ExpectStatus(DtNlFile(dir_.c_str(), "d").RmDir(), DtNlErrNone, 0);
  EXPECT_FALSE(Exists("d"));
  EXPECT_EQ(CallCount(Call::Sync), 1);
}

TEST_F(DtNlFileFs, RmDirOfAMissingDirectoryIsNotFound) {
  DtNlStatus st;
  std::string err = CaptureStderr([&] { st = DtNlFile(dir_.c_str(), "d").RmDir(); });
  ExpectStatus(st, DtNlErrNotFound, ENOENT);
  EXPECT_EQ(err, ErrLine(kSrc, "RmDir", 376, Msg("rmdir", ENOENT)));
  EXPECT_EQ(CallCount(Call::Sync), 0);
}

TEST_F(DtNlFileFs, RmDirOfANonEmptyDirectoryIsARmDirError) {
  ASSERT_EQ(mkdir(P("d").c_str(), 0755), 0);
  Write("d/x", "1");
  DtNlStatus st;
  std::string err = CaptureStderr([&] { st = DtNlFile(dir_.c_str(), "d").RmDir(); });
  ExpectStatus(st, DtNlErrRmDir, ENOTEMPTY);
  EXPECT_EQ(err, ErrLine(kSrc, "RmDir", 376, Msg("rmdir", ENOTEMPTY)));
  EXPECT_TRUE(Exists("d/x"));
  EXPECT_EQ(CallCount(Call::Sync), 0);
}

TEST_F(DtNlFileFs, RmDirOfABusyDirectoryIsDirBusy) {
  ASSERT_EQ(mkdir(P("d").c_str(), 0755), 0);
  Arm(Call::Rmdir, EBUSY);
  DtNlStatus st;
  std::string err = CaptureStderr([&] { st = DtNlFile(dir_.c_str(), "d").RmDir(); });
  ExpectStatus(st, DtNlErrDirBusy, EBUSY);
  EXPECT_EQ(err, ErrLine(kSrc, "RmDir", 376, Msg("rmdir", EBUSY)));
  EXPECT_EQ(CallCount(Call::Sync), 0);
}

TEST_F(DtNlFileFs, RmDirWithEioIsAnIoError) {
  ASSERT_EQ(mkdir(P("d").c_str(), 0755), 0);
  Arm(Call::Rmdir, EIO);
  DtNlStatus st;
  std::string err = CaptureStderr([&] { st = DtNlFile(dir_.c_str(), "d").RmDir(); });
  ExpectStatus(st, DtNlErrIo, EIO);
  EXPECT_EQ(err, ErrLine(kSrc, "RmDir", 376, Msg("rmdir", EIO)));
}

TEST_F(DtNlFileFs, RmDirWithEaccesIsARmDirError) {
  ASSERT_EQ(mkdir(P("d").c_str(), 0755), 0);
  Arm(Call::Rmdir, EACCES);
  DtNlStatus st;
  std::string err = CaptureStderr([&] { st = DtNlFile(dir_.c_str(), "d").RmDir(); });
  ExpectStatus(st, DtNlErrRmDir, EACCES);
  EXPECT_EQ(err, ErrLine(kSrc, "RmDir", 376, Msg("rmdir", EACCES)));
}

// Stat

TEST_F(DtNlFileFs, StatFillsTheRecordWithoutSync) {
  Write("x", "0123456789");
  DtNlFileStatus rec;
  ExpectStatus(DtNlFile(dir_.c_str(), "x").Stat(&rec), DtNlErrNone, 0);
  EXPECT_EQ(rec.IsFile(), 1);
  EXPECT_EQ(rec.GetSize(), 10u);
  EXPECT_EQ(CallCount(Call::Stat), 1);
  EXPECT_EQ(CallCount(Call::Sync), 0);
}

TEST_F(DtNlFileFs, StatOfAMissingPathIsNotFoundWithoutMessage) {
  DtNlFileStatus rec;
  DtNlStatus st;
  std::string err = CaptureStderr([&] { st = DtNlFile(dir_.c_str(), "x").Stat(&rec); });
  ExpectStatus(st, DtNlErrNotFound, ENOENT);
  EXPECT_EQ(err, "");
}

TEST_F(DtNlFileFs, StatWithEioIsAnIoErrorAtItsOwnLine) {
  Arm(Call::Stat, EIO);
  DtNlFileStatus rec;
  DtNlStatus st;
  std::string err = CaptureStderr([&] { st = DtNlFile(dir_.c_str()).Stat(&rec); });
  ExpectStatus(st, DtNlErrIo, EIO);
  EXPECT_EQ(err, ErrLine(kSrc, "Stat", 400, Msg("stat", EIO)));
}

TEST_F(DtNlFileFs, StatThroughARegularFileIsAStatError) {
  Write("x", "1");
  DtNlFileStatus rec;
  DtNlStatus st;
  std::string err = CaptureStderr([&] { st = DtNlFile(dir_.c_str(), "x/y").Stat(&rec); });
  ExpectStatus(st, DtNlErrStat, ENOTDIR);
  EXPECT_EQ(err, ErrLine(kSrc, "Stat", 403, Msg("stat", ENOTDIR)));
}

TEST_F(DtNlFileFs, StatWithEaccesIsAStatError) {
  Arm(Call::Stat, EACCES);
  DtNlFileStatus rec;
  DtNlStatus st;
  std::string err = CaptureStderr([&] { st = DtNlFile(dir_.c_str()).Stat(&rec); });
  ExpectStatus(st, DtNlErrStat, EACCES);
  EXPECT_EQ(err, ErrLine(kSrc, "Stat", 403, Msg("stat", EACCES)));
}

TEST_F(DtNlFileFsDeathTest, StatIntoNullAsserts) {
  DtNlFile f(dir_.c_str());
  EXPECT_EXIT(f.Stat(nullptr), testing::ExitedWithCode(255),
              testing::Eq(kpztest::AssertText(kSrc, "Stat", 339, "")));
}

// BytesAvailable

TEST_F(DtNlFileFs, BytesAvailableIsTheRequestWhenTheFileHoldsItAll) {
  Write("f", std::string(100, 'x'));
  EXPECT_EQ(DtNlFile(dir_.c_str(), "f").BytesAvailable(10, 90), 90u);
  EXPECT_EQ(DtNlFile(dir_.c_str(), "f").BytesAvailable(0, 0), 0u);
}

TEST_F(DtNlFileFs, BytesAvailableIsCutToWhatTheFileHoldsAfterTheOffset) {
  Write("f", std::string(100, 'x'));
  EXPECT_EQ(DtNlFile(dir_.c_str(), "f").BytesAvailable(10, 91), 90u);
  // A forged 4 GiB size is bounded by the file, not trusted.
  EXPECT_EQ(DtNlFile(dir_.c_str(), "f").BytesAvailable(99, 0xFFFFFFFFu), 1u);
}

TEST_F(DtNlFileFs, BytesAvailableIsZeroAtOrPastTheEnd) {
  Write("f", std::string(100, 'x'));
  EXPECT_EQ(DtNlFile(dir_.c_str(), "f").BytesAvailable(100, 5), 0u);
  EXPECT_EQ(DtNlFile(dir_.c_str(), "f").BytesAvailable(0xFFFFFFFFu, 5), 0u);
}

TEST_F(DtNlFileFs, BytesAvailableOfAMissingFileIsZeroWithoutMessage) {
  UINT32 got = 1;
  std::string err =
      CaptureStderr([&] { got = DtNlFile(dir_.c_str(), "none").BytesAvailable(0, 10); });
  EXPECT_EQ(got, 0u);
  EXPECT_EQ(err, "");
}

// Stat64

TEST_F(DtNlFileFs, Stat64FillsTheRecordWithoutSync) {
  ASSERT_EQ(mkdir(P("d").c_str(), 0755), 0);
  DtNlFileStatus64 rec;
  ExpectStatus(DtNlFile(dir_.c_str(), "d").Stat64(&rec), DtNlErrNone, 0);
  EXPECT_EQ(rec.IsDir(), 1);
  EXPECT_EQ(CallCount(Call::Stat64), 1);
  EXPECT_EQ(CallCount(Call::Sync), 0);
}

TEST_F(DtNlFileFs, Stat64OfAMissingPathIsNotFoundWithoutMessage) {
  DtNlFileStatus64 rec;
  DtNlStatus st;
  std::string err = CaptureStderr([&] { st = DtNlFile(dir_.c_str(), "x").Stat64(&rec); });
  ExpectStatus(st, DtNlErrNotFound, ENOENT);
  EXPECT_EQ(err, "");
}

TEST_F(DtNlFileFs, Stat64WithEioIsAnIoErrorAtItsOwnLine) {
  Arm(Call::Stat64, EIO);
  DtNlFileStatus64 rec;
  DtNlStatus st;
  std::string err = CaptureStderr([&] { st = DtNlFile(dir_.c_str()).Stat64(&rec); });
  ExpectStatus(st, DtNlErrIo, EIO);
  EXPECT_EQ(err, ErrLine(kSrc, "Stat64", 418, Msg("stat64", EIO)));
}

TEST_F(DtNlFileFs, Stat64OtherFailureMessageEndsInAComma) {
  Write("x", "1");
  DtNlFileStatus64 rec;
  DtNlStatus st;
  std::string err = CaptureStderr([&] { st = DtNlFile(dir_.c_str(), "x/y").Stat64(&rec); });
  ExpectStatus(st, DtNlErrStat, ENOTDIR);
  EXPECT_EQ(err, ErrLine(kSrc, "Stat64", 421, Msg("stat64", ENOTDIR, ',')));
}

TEST_F(DtNlFileFs, Stat64WithEaccesIsAStatError) {
  Arm(Call::Stat64, EACCES);
  DtNlFileStatus64 rec;
  DtNlStatus st;
  std::string err = CaptureStderr([&] { st = DtNlFile(dir_.c_str()).Stat64(&rec); });
  ExpectStatus(st, DtNlErrStat, EACCES);
  EXPECT_EQ(err, ErrLine(kSrc, "Stat64", 421, Msg("stat64", EACCES, ',')));
}

TEST_F(DtNlFileFsDeathTest, Stat64IntoNullAsserts) {
  DtNlFile f(dir_.c_str());
  EXPECT_EXIT(f.Stat64(nullptr), testing::ExitedWithCode(255),
              testing::Eq(kpztest::AssertText(kSrc, "Stat64", 356, "")));
}

// Chmod

TEST_F(DtNlFileFs, ChmodChangesTheModeAndSyncs) {
  Write("x", "1");
  ASSERT_EQ(chmod(P("x").c_str(), 0600), 0);
  kpztest::ResetCounts();
  ExpectStatus(DtNlFile(dir_.c_str(), "x").Chmod(0640), DtNlErrNone, 0);
  struct stat rec {};
  ASSERT_EQ(stat(P("x").c_str(), &rec), 0);
  EXPECT_EQ(rec.st_mode & 07777u, 0640u);
  EXPECT_EQ(CallCount(Call::Chmod), 1);
  EXPECT_EQ(CallCount(Call::Sync), 1);
}

TEST_F(DtNlFileFs, ChmodIgnoresBitsAboveTheMode) {
  Write("x", "1");
  // Bits above the 16 of a mode are cut off.
  ExpectStatus(DtNlFile(dir_.c_str(), "x").Chmod(0x10000u | 0604u), DtNlErrNone, 0);
  struct stat rec {};
  ASSERT_EQ(stat(P("x").c_str(), &rec), 0);
  EXPECT_EQ(rec.st_mode & 07777u, 0604u);
}

TEST_F(DtNlFileFs, ChmodOfAMissingPathIsNotFoundAndStillSyncs) {
  DtNlStatus st;
  std::string err = CaptureStderr([&] { st = DtNlFile(dir_.c_str(), "x").Chmod(0644); });
  ExpectStatus(st, DtNlErrNotFound, ENOENT);
  EXPECT_EQ(err, ErrLine(kSrc, "Chmod", 433, Msg("chmod", ENOENT)));
  EXPECT_EQ(CallCount(Call::Sync), 1);
}

TEST_F(DtNlFileFs, ChmodWithEioIsAnIoErrorAndStillSyncs) {
  Write("x", "1");
  Arm(Call::Chmod, EIO);
  DtNlStatus st;
  std::string err = CaptureStderr([&] { st = DtNlFile(dir_.c_str(), "x").Chmod(0644); });
  ExpectStatus(st, DtNlErrIo, EIO);
  EXPECT_EQ(err, ErrLine(kSrc, "Chmod", 433, Msg("chmod", EIO)));
  EXPECT_EQ(CallCount(Call::Sync), 1);
}

TEST_F(DtNlFileFs, ChmodWithEpermIsAChmodError) {
  Write("x", "1");
  Arm(Call::Chmod, EPERM);
  DtNlStatus st;
  std::string err = CaptureStderr([&] { st = DtNlFile(dir_.c_str(), "x").Chmod(0644); });
  ExpectStatus(st, DtNlErrChmod, EPERM);
  EXPECT_EQ(err, ErrLine(kSrc, "Chmod", 433, Msg("chmod", EPERM)));
  EXPECT_EQ(CallCount(Call::Sync), 1);
}

// Rename

TEST_F(DtNlFileFs, RenameStaysInTheDirectoryAndSyncs) {
  Write("x.kpz", "data");
  DtNlFile f(dir_.c_str(), "x.kpz");
  ExpectStatus(f.Rename(DtNlString("y.kpz")), DtNlErrNone, 0);
  EXPECT_EQ(PathOf(f), P("y.kpz"));
  EXPECT_FALSE(Exists("x.kpz"));
  EXPECT_EQ(Read("y.kpz"), "data");
  EXPECT_EQ(CallCount(Call::Sync), 1);
  // Root and name index are kept.
  EXPECT_EQ(RootOf(f), dir_);
  EXPECT_EQ(NameOf(f), "y.kpz");
  EXPECT_TRUE(f.Equals(DtNlFile(dir_.c_str(), "y.kpz")));
}

TEST_F(DtNlFileFs, RenameOfADeeperPathKeepsItsDirectory) {
  ASSERT_EQ(mkdir(P("d").c_str(), 0755), 0);
  Write("d/x.kpz", "data");
  DtNlFile f(P("d/x.kpz").c_str());
  ExpectStatus(f.Rename("y.kpz"), DtNlErrNone, 0);
  EXPECT_EQ(PathOf(f), P("d/y.kpz"));
  EXPECT_TRUE(Exists("d/y.kpz"));
}

TEST_F(DtNlFileFs, RenameOfAPathWithoutSeparatorAppendsTheNewName) {
  Write("x.kpz", "data");
  char* oldCwd = getcwd(nullptr, 0);
  ASSERT_NE(oldCwd, nullptr);
  ASSERT_EQ(chdir(dir_.c_str()), 0);
  DtNlFile f("x.kpz");
  DtNlStatus st = f.Rename("y.kpz");
  EXPECT_EQ(chdir(oldCwd), 0);
  free(oldCwd);
  ExpectStatus(st, DtNlErrNone, 0);
  EXPECT_EQ(PathOf(f), "x.kpzy.kpz");
  EXPECT_TRUE(Exists("x.kpzy.kpz"));
  EXPECT_FALSE(Exists("x.kpz"));
}

TEST_F(DtNlFileFs, RenameOfAMissingFileIsNotFoundAndKeepsThePath) {
  DtNlFile f(dir_.c_str(), "x.kpz");
  DtNlStatus st;
  std::string err = CaptureStderr([&] { st = f.Rename("y.kpz"); });
  ExpectStatus(st, DtNlErrNotFound, ENOENT);
  EXPECT_EQ(err, ErrLine(kSrc, "Rename", 455, Msg("rename", ENOENT)));
  EXPECT_EQ(PathOf(f), P("x.kpz"));
  EXPECT_EQ(CallCount(Call::Sync), 0);
}

TEST_F(DtNlFileFs, RenameWithEioIsAnIoError) {
  Write("x.kpz", "data");
  DtNlFile f(dir_.c_str(), "x.kpz");
  Arm(Call::Rename, EIO);
  DtNlStatus st;
  std::string err = CaptureStderr([&] { st = f.Rename("y.kpz"); });
  ExpectStatus(st, DtNlErrIo, EIO);
  EXPECT_EQ(err, ErrLine(kSrc, "Rename", 455, Msg("rename", EIO)));
  EXPECT_EQ(PathOf(f), P("x.kpz"));
  EXPECT_TRUE(Exists("x.kpz"));
  EXPECT_EQ(CallCount(Call::Sync), 0);
}

TEST_F(DtNlFileFs, RenameWithExdevIsARenameError) {
  Write("x.kpz", "data");
  DtNlFile f(dir_.c_str(), "x.kpz");
  Arm(Call::Rename, EXDEV);
  DtNlStatus st;
  std::string err = CaptureStderr([&] { st = f.Rename("y.kpz"); });
  ExpectStatus(st, DtNlErrRename, EXDEV);
  EXPECT_EQ(err, ErrLine(kSrc, "Rename", 455, Msg("rename", EXDEV)));
  EXPECT_EQ(PathOf(f), P("x.kpz"));
}

TEST_F(DtNlFileFs, ParentOfARootRenamedWithoutSeparatorIsCutToTheText) {
  // A root-only file renamed to "<root>y" has no separator at its root
  // length; its parent is built from the text above it, root cut to fit.
  ASSERT_EQ(mkdir(P("r").c_str(), 0755), 0);
  DtNlFile f(P("r").c_str(), "");
  ExpectStatus(f.Rename("y"), DtNlErrNone, 0);
  EXPECT_EQ(PathOf(f), P("ry"));
  EXPECT_TRUE(Exists("ry"));
  DtNlFile p = f.GetParent(1);
  EXPECT_EQ(PathOf(p), dir_);
  EXPECT_EQ(RootOf(p), dir_);
  EXPECT_TRUE(p.Equals(DtNlFile(dir_.c_str(), "")));
}

// SetTime

TEST_F(DtNlFileFs, SetTimeSetsBothTimesAndSyncs) {
  Write("x", "1");
  utimbuf times{};
  times.actime = 1000000;
  times.modtime = 2000000;
  ExpectStatus(DtNlFile(dir_.c_str(), "x").SetTime(&times), DtNlErrNone, 0);
  struct stat rec {};
  ASSERT_EQ(stat(P("x").c_str(), &rec), 0);
  EXPECT_EQ(rec.st_atime, 1000000);
  EXPECT_EQ(rec.st_mtime, 2000000);
  EXPECT_EQ(CallCount(Call::Utime), 1);
  EXPECT_EQ(CallCount(Call::Sync), 1);
}

TEST_F(DtNlFileFs, SetTimeWithoutTimesSetsThemToNow) {
  Write("x", "1");
  utimbuf old{};
  old.actime = 1000;
  old.modtime = 1000;
  ASSERT_EQ(utime(P("x").c_str(), &old), 0);
  const time_t before = ::time(nullptr);
  ExpectStatus(DtNlFile(dir_.c_str(), "x").SetTime(nullptr), DtNlErrNone, 0);
  struct stat rec {};
  ASSERT_EQ(stat(P("x").c_str(), &rec), 0);
  EXPECT_GE(rec.st_mtime, before - 1);
  EXPECT_GE(rec.st_atime, before - 1);
}

TEST_F(DtNlFileFs, SetTimeOfAMissingFileIsNotFound) {
  utimbuf times{};
  DtNlStatus st;
  std::string err = CaptureStderr([&] { st = DtNlFile(dir_.c_str(), "x").SetTime(&times); });
  ExpectStatus(st, DtNlErrNotFound, ENOENT);
  EXPECT_EQ(err, ErrLine(kSrc, "SetTime", 475, Msg("utime", ENOENT)));
  EXPECT_EQ(CallCount(Call::Sync), 0);
}

TEST_F(DtNlFileFs, SetTimeWithEioIsAnIoError) {
  Write("x", "1");
  Arm(Call::Utime, EIO);
  utimbuf times{};
  DtNlStatus st;
  std::string err = CaptureStderr([&] { st = DtNlFile(dir_.c_str(), "x").SetTime(&times); });
  ExpectStatus(st, DtNlErrIo, EIO);
  EXPECT_EQ(err, ErrLine(kSrc, "SetTime", 475, Msg("utime", EIO)));
  EXPECT_EQ(CallCount(Call::Sync), 0);
}

TEST_F(DtNlFileFs, SetTimeWithEpermIsASetTimeError) {
  Write("x", "1");
  Arm(Call::Utime, EPERM);
  utimbuf times{};
  DtNlStatus st;
  std::string err = CaptureStderr([&] { st = DtNlFile(dir_.c_str(), "x").SetTime(&times); });
  ExpectStatus(st, DtNlErrSetTime, EPERM);
  EXPECT_EQ(err, ErrLine(kSrc, "SetTime", 475, Msg("utime", EPERM)));
}

// GetList

int CountOpenFds() {
  int n = 0;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    (void)entry;
    ++n;
  }
  return n;
}

TEST_F(DtNlFileFs, GetListOpensTheListing) {
  Write("a", "1");
  DtNlFileIterator it;
  ExpectStatus(DtNlFile(dir_.c_str()).GetList(&it), DtNlErrNone, 0);
  EXPECT_EQ(CallCount(Call::Stat64), 1);
  EXPECT_EQ(CallCount(Call::Opendir), 1);
  EXPECT_EQ(CallCount(Call::Sync), 0);
  int count = 0;
  int sawA = 0;
  DtNlString name;
  while (it.Next(&name) != 0 && count < 10) {
    ++count;
    if (name.Equals("a") != 0) sawA = 1;
  }
  EXPECT_EQ(count, 3);  // '.', '..' and 'a'
  EXPECT_EQ(sawA, 1);
}

TEST_F(DtNlFileFs, GetListOfAMissingPathIsStat64sNotFound) {
  DtNlFileIterator it;
  DtNlStatus st;
  std::string err = CaptureStderr([&] { st = DtNlFile(dir_.c_str(), "none").GetList(&it); });
  ExpectStatus(st, DtNlErrNotFound, ENOENT);
  EXPECT_EQ(err, "");
  EXPECT_EQ(CallCount(Call::Opendir), 0);
  char* name = dir_.data();
  EXPECT_EQ(it.Next(&name), 0);
}

TEST_F(DtNlFileFs, GetListWithStat64EioReportsStat64sError) {
  Arm(Call::Stat64, EIO);
  DtNlFileIterator it;
  DtNlStatus st;
  std::string err = CaptureStderr([&] { st = DtNlFile(dir_.c_str()).GetList(&it); });
  ExpectStatus(st, DtNlErrIo, EIO);
  EXPECT_EQ(err, ErrLine(kSrc, "Stat64", 418, Msg("stat64", EIO)));
  EXPECT_EQ(CallCount(Call::Opendir), 0);
}

TEST_F(DtNlFileFs, GetListWithOpendirEioIsAnIoErrorWithoutMessage) {
  Arm(Call::Opendir, EIO);
  DtNlFileIterator it;
  DtNlStatus st;
  std::string err = CaptureStderr([&] { st = DtNlFile(dir_.c_str()).GetList(&it); });
  ExpectStatus(st, DtNlErrIo, EIO);
  EXPECT_EQ(err, "");
  char* name = dir_.data();
  EXPECT_EQ(it.Next(&name), 0);
  EXPECT_EQ(name, nullptr);
}

TEST_F(DtNlFileFs, GetListWithOpendirEaccesIsAGetListError) {
  Arm(Call::Opendir, EACCES);
  DtNlFileIterator it;
  DtNlStatus st;
  std::string err = CaptureStderr([&] { st = DtNlFile(dir_.c_str()).GetList(&it); });
  ExpectStatus(st, DtNlErrGetList, EACCES);
  EXPECT_EQ(err, "");
}

TEST_F(DtNlFileFs, GetListOfARegularFileIsAGetListError) {
  Write("x", "1");
  DtNlFileIterator it;
  DtNlStatus st;
  std::string err = CaptureStderr([&] { st = DtNlFile(dir_.c_str(), "x").GetList(&it); });
  ExpectStatus(st, DtNlErrGetList, ENOTDIR);
  EXPECT_EQ(err, "");
}

TEST_F(DtNlFileFs, GetListClosesAStreamTheIteratorAlreadyHeld) {
  const int base = CountOpenFds();
  DtNlFileIterator it;
  ExpectStatus(DtNlFile(dir_.c_str()).GetList(&it), DtNlErrNone, 0);
  EXPECT_EQ(CountOpenFds(), base + 1);
  ExpectStatus(DtNlFile(dir_.c_str()).GetList(&it), DtNlErrNone, 0);
  EXPECT_EQ(CountOpenFds(), base + 1);
  // A failed listing leaves the iterator closed.
  EXPECT_EQ(DtNlFile(dir_.c_str(), "none").GetList(&it).errCode, DtNlErrNotFound);
  EXPECT_EQ(CountOpenFds(), base);
}

TEST_F(DtNlFileFsDeathTest, GetListIntoNullAsserts) {
  DtNlFile f(dir_.c_str());
  EXPECT_EXIT(f.GetList(nullptr), testing::ExitedWithCode(255),
              testing::Eq(kpztest::AssertText(kSrc, "GetList", 416, "")));
}

// Existence and kind

TEST_F(DtNlFileFs, IsExistTellsPresentFromAbsent) {
  Write("x", "1");
  EXPECT_EQ(DtNlFile(dir_.c_str(), "x").IsExist(), 1);
  EXPECT_EQ(DtNlFile(dir_.c_str()).IsExist(), 1);
  std::string err = CaptureStderr([&] { EXPECT_EQ(DtNlFile(dir_.c_str(), "y").IsExist(), 0); });
  EXPECT_EQ(err, "");
  EXPECT_EQ(CallCount(Call::Sync), 0);
}

TEST_F(DtNlFileFs, IsExistCountsAnUnreadablePathAsAbsentAndLogs) {
  Write("x", "1");
  Arm(Call::Stat64, EACCES);
  std::string err = CaptureStderr([&] { EXPECT_EQ(DtNlFile(dir_.c_str(), "x").IsExist(), 0); });
  EXPECT_EQ(err, ErrLine(kSrc, "Stat64", 421, Msg("stat64", EACCES, ',')));
}

TEST_F(DtNlFileFs, IsDirAndIsFileTellTheKind) {
  Write("x", "1");
  int isDir = 7;
  int isFile = 7;
  ExpectStatus(DtNlFile(dir_.c_str()).IsDir(&isDir), DtNlErrNone, 0);
  ExpectStatus(DtNlFile(dir_.c_str()).IsFile(&isFile), DtNlErrNone, 0);
  EXPECT_EQ(isDir, 1);
  EXPECT_EQ(isFile, 0);
  isDir = 7;
  isFile = 7;
  ExpectStatus(DtNlFile(dir_.c_str(), "x").IsDir(&isDir), DtNlErrNone, 0);
  ExpectStatus(DtNlFile(dir_.c_str(), "x").IsFile(&isFile), DtNlErrNone, 0);
  EXPECT_EQ(isDir, 0);
  EXPECT_EQ(isFile, 1);
}

TEST_F(DtNlFileFs, IsDirAndIsFileOfAMissingPathAreZeroWithNotFound) {
  int isDir = 7;
  int isFile = 7;
  ExpectStatus(DtNlFile(dir_.c_str(), "y").IsDir(&isDir), DtNlErrNotFound, ENOENT);
  ExpectStatus(DtNlFile(dir_.c_str(), "y").IsFile(&isFile), DtNlErrNotFound, ENOENT);
  EXPECT_EQ(isDir, 0);
  EXPECT_EQ(isFile, 0);
}

TEST_F(DtNlFileFs, IsDirAndIsFileAreZeroWhenStat64Fails) {
  Write("x", "1");
  Arm(Call::Stat64, EIO, 0, 2);
  int isDir = 7;
  int isFile = 7;
  std::string err = CaptureStderr([&] {
    ExpectStatus(DtNlFile(dir_.c_str()).IsDir(&isDir), DtNlErrIo, EIO);
    ExpectStatus(DtNlFile(dir_.c_str(), "x").IsFile(&isFile), DtNlErrIo, EIO);
  });
  EXPECT_EQ(isDir, 0);
  EXPECT_EQ(isFile, 0);
  const std::string line = ErrLine(kSrc, "Stat64", 418, Msg("stat64", EIO));
  EXPECT_EQ(err, line + line);
}

TEST_F(DtNlFileFsDeathTest, IsDirIntoNullAsserts) {
  DtNlFile f(dir_.c_str());
  EXPECT_EXIT(f.IsDir(nullptr), testing::ExitedWithCode(255),
              testing::Eq(kpztest::AssertText(kSrc, "IsDir", 438, "")));
}

TEST_F(DtNlFileFsDeathTest, IsFileIntoNullAsserts) {
  DtNlFile f(dir_.c_str());
  EXPECT_EXIT(f.IsFile(nullptr), testing::ExitedWithCode(255),
              testing::Eq(kpztest::AssertText(kSrc, "IsFile", 446, "")));
}

}  // namespace
