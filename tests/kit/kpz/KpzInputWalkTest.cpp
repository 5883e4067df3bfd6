// KpzInputWalkTest.cpp - the files of FILE arguments one at a time
// (kit/kpz/KpzInputWalk): the same files in the same order as the whole
// list, a directory that cannot be read told at its place, and a walk that
// holds one directory level's names, not the run's.
#include <gtest/gtest.h>

#if defined(KPZ_TEST_HAVE_KIT)

#include "kpz/KpzInputWalk.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "support/KpzFileBuilder.h"

namespace {

namespace fs = std::filesystem;

class KpzInputWalkTest : public testing::Test {
 protected:
  void File(const std::string& rel) {
    const fs::path p = fs::path(dir.Path()) / rel;
    fs::create_directories(p.parent_path());
    ASSERT_TRUE(kpztest::WriteFileBytes(p.string(), kpztest::Bytes{1}));
  }
  std::string P(const std::string& rel) const { return dir.Path() + "/" + rel; }

  std::vector<KpzInputList::Entry> Walk(const std::vector<std::string>& args) const {
    KpzInputWalk walk(args, opt);
    std::vector<KpzInputList::Entry> got;
    KpzInputList::Entry e;
    while (walk.Next(&e)) {
      got.push_back(e);
    }
    EXPECT_FALSE(walk.Next(&e)) << "a walk at its end stays there";
    return got;
  }

  kpztest::TempDir dir;
  KpzInputList::Options opt;
};

std::vector<std::string> Flat(const std::vector<KpzInputList::Entry>& entries) {
  std::vector<std::string> out;
  for (const auto& e : entries) {
    out.push_back(e.path + "|" + e.error);
  }
  return out;
}

TEST_F(KpzInputWalkTest, GivesTheFilesOfTheWholeListInItsOrder) {
  for (const char* f : {"b.kpz", "A.KPZ", "notes.txt", "d1/z.kpz", "d1/a.kpz", "d1/d2/m.kpz",
                        "d0/x.kpz", ".hidden/y.kpz", "e/"}) {
    File(std::string(f) + (std::string(f).back() == '/' ? "keep.txt" : ""));
  }
  opt.recursive = true;
  const std::vector<std::string> args = {P("d1"), "named.txt", dir.Path(), P("missing.kpz")};
  const auto walked = Walk(args);
  EXPECT_EQ(Flat(walked), Flat(KpzInputList::Expand(args, opt)));
  EXPECT_EQ(Flat(walked),
            (std::vector<std::string>{P("d1/a.kpz|"), P("d1/d2/m.kpz|"), P("d1/z.kpz|"),
                                      "named.txt|", P("A.KPZ|"), P("b.kpz|"), P("d0/x.kpz|"),
                                      P("d1/a.kpz|"), P("d1/d2/m.kpz|"), P("d1/z.kpz|"),
                                      P("missing.kpz|")}));
}

TEST_F(KpzInputWalkTest, APatternTypedIsExpandedAndNotFilteredByExtension) {
  for (const char* f : {"d/b.xyz", "d/a.xyz", "d/c.kpz", "d/.h.xyz", "d/sub/e.kpz", "d/sub/f.xyz"}) {
    File(f);
  }
  // --ext chooses what directories give; a pattern's matches are all taken.
  const auto walked = Walk({P("d/*.xyz"), P("d/s*"), P("d/*.none"), P("d/c.kpz")});
  EXPECT_EQ(Flat(walked),
            (std::vector<std::string>{P("d/a.xyz|"), P("d/b.xyz|"), P("d/sub/e.kpz|"),
                                      P("d/*.none|"), P("d/c.kpz|")}));
  EXPECT_EQ(Flat(walked), Flat(KpzInputList::Expand({P("d/*.xyz"), P("d/s*"), P("d/*.none"),
                                                     P("d/c.kpz")},
                                                    opt)));
  // A file whose name holds '*' is that file, not a pattern.
  File("d/star*.kpz");
  EXPECT_FALSE(KpzInputList::IsPattern(P("d/star*.kpz")));
  EXPECT_EQ(Flat(Walk({P("d/star*.kpz")})), (std::vector<std::string>{P("d/star*.kpz|")}));
}

TEST_F(KpzInputWalkTest, WithoutRecursionSubdirectoriesAreNotEntered) {
  File("a.kpz");
  File("sub/b.kpz");
  EXPECT_EQ(Flat(Walk({dir.Path()})), (std::vector<std::string>{P("a.kpz|")}));
}

TEST_F(KpzInputWalkTest, ADirectoryThatCannotBeReadIsToldAtItsPlace) {
  if (geteuid() == 0) {
    GTEST_SKIP() << "root reads every directory: no unreadable one can be made";
  }
  File("a/1.kpz");
  File("b/2.kpz");
  File("c/3.kpz");
  ASSERT_EQ(chmod(P("b").c_str(), 0), 0);
  opt.recursive = true;
  const auto got = Walk({dir.Path()});
  chmod(P("b").c_str(), 0755);
  ASSERT_EQ(got.size(), 3u);
  EXPECT_EQ(got[0].path, P("a/1.kpz"));
  EXPECT_EQ(got[1].path, P("b"));
  EXPECT_EQ(got[1].error, "cannot read the directory: Permission denied");
  EXPECT_EQ(got[2].path, P("c/3.kpz"));
}

TEST_F(KpzInputWalkTest, TooDeepANestIsToldAndTheRestWalked) {
  std::string deep;
  for (unsigned int i = 0; i <= KpzInputList::kMaxDepth + 1; ++i) {
    deep += "d/";
  }
  File(deep + "x.kpz");
  File("z.kpz");
  opt.recursive = true;
  const auto got = Walk({dir.Path()});
  ASSERT_EQ(got.size(), 2u);
  EXPECT_NE(got[0].error.find("directories nested too deep"), std::string::npos);
  EXPECT_EQ(got[1].path, P("z.kpz"));
}

TEST_F(KpzInputWalkTest, FilesComeAsTheWalkGoesNotAfterIt) {
  // The second folder's file is made only after the first file was given:
  // a walk that listed everything first would not see it.
  File("a/1.kpz");
  File("b/keep.txt");
  opt.recursive = true;
  KpzInputWalk walk({dir.Path()}, opt);
  KpzInputList::Entry e;
  ASSERT_TRUE(walk.Next(&e));
  EXPECT_EQ(e.path, P("a/1.kpz"));
  File("b/2.kpz");
  ASSERT_TRUE(walk.Next(&e));
  EXPECT_EQ(e.path, P("b/2.kpz"));
  EXPECT_FALSE(walk.Next(&e));
}

TEST_F(KpzInputWalkTest, NoArgumentsGiveNothing) { EXPECT_TRUE(Walk({}).empty()); }

}  // namespace

#else
TEST(KpzInputWalkTest, Skipped) { GTEST_SKIP() << "built without the kit"; }
#endif
