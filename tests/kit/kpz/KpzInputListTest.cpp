// KpzInputListTest.cpp - how the kpz tool turns FILE arguments into files
// (kit/kpz/KpzInputList): named files as given, directories by their
// entries filtered by extension, recursion, links and unreadable directories.
#include <gtest/gtest.h>

#if defined(KPZ_TEST_HAVE_KIT)

#include "kpz/KpzInputList.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "support/KpzFileBuilder.h"

namespace {

using kpztest::Bytes;
namespace fs = std::filesystem;

std::vector<std::string> Paths(const std::vector<KpzInputList::Entry>& entries) {
  std::vector<std::string> paths;
  for (const auto& e : entries) {
    paths.push_back(e.path);
    EXPECT_EQ(e.error, "") << e.path;
  }
  return paths;
}

class KpzInputListTest : public testing::Test {
 protected:
  std::string File(const std::string& rel) {
    const fs::path p = fs::path(dir.Path()) / rel;
    fs::create_directories(p.parent_path());
    EXPECT_TRUE(kpztest::WriteFileBytes(p.string(), Bytes{1}));
    return p.string();
  }
  std::string Dir(const std::string& rel) {
    const fs::path p = fs::path(dir.Path()) / rel;
    fs::create_directories(p);
    return p.string();
  }
  std::string P(const std::string& rel) const { return dir.Path() + "/" + rel; }

  kpztest::TempDir dir;
  KpzInputList::Options opt;
};

TEST_F(KpzInputListTest, NamedFilesAreTakenAsGivenWhateverTheirName) {
  const std::string a = File("a.txt");
  const std::vector<std::string> args = {a, P("missing.kpz"), "rel/x"};
  EXPECT_EQ(Paths(KpzInputList::Expand(args, opt)), args);
}

TEST_F(KpzInputListTest, DirectoryGivesItsKpzFilesInNameOrderInAnyCase) {
  File("b.kpz");
  File("A.KPZ");
  File("c.Kpz");
  File("notes.txt");
  File("kpz");
  Dir("sub.kpz");
  EXPECT_EQ(Paths(KpzInputList::Expand({dir.Path()}, opt)),
            (std::vector<std::string>{P("A.KPZ"), P("b.kpz"), P("c.Kpz")}));
}

TEST_F(KpzInputListTest, TrailingSlashGivesTheSameNames) {
  File("a.kpz");
  EXPECT_EQ(Paths(KpzInputList::Expand({dir.Path() + "/"}, opt)),
            (std::vector<std::string>{P("a.kpz")}));
}

TEST_F(KpzInputListTest, HiddenNamesAreSkipped) {
  File(".hidden.kpz");
  File("._a.kpz");
  File(".dir/x.kpz");
  File("shown.kpz");
  opt.recursive = true;
  EXPECT_EQ(Paths(KpzInputList::Expand({dir.Path()}, opt)),
            (std::vector<std::string>{P("shown.kpz")}));
}

TEST_F(KpzInputListTest, SubdirectoriesAreEnteredOnlyWhenRecursiveDepthFirstInNameOrder) {
  File("m.kpz");
  File("a/2.kpz");
  File("a/b/1.kpz");
  File("z/0.kpz");
  EXPECT_EQ(Paths(KpzInputList::Expand({dir.Path()}, opt)),
            (std::vector<std::string>{P("m.kpz")}));
  opt.recursive = true;
  EXPECT_EQ(Paths(KpzInputList::Expand({dir.Path()}, opt)),
            (std::vector<std::string>{P("a/2.kpz"), P("a/b/1.kpz"), P("m.kpz"), P("z/0.kpz")}));
}

TEST_F(KpzInputListTest, ArgumentsKeepTheirOrder) {
  const std::string f = File("f.kpz");
  File("d/1.kpz");
  EXPECT_EQ(Paths(KpzInputList::Expand({P("d"), f, P("d")}, opt)),
            (std::vector<std::string>{P("d/1.kpz"), f, P("d/1.kpz")}));
}

TEST_F(KpzInputListTest, LinksToFilesAreTakenLinksToDirectoriesNotFollowed) {
  const std::string target = File("real/r.kpz");
  Dir("top");
  ASSERT_EQ(::symlink(target.c_str(), P("top/link.kpz").c_str()), 0);
  ASSERT_EQ(::symlink(P("top").c_str(), P("top/loop").c_str()), 0);  // would loop
  ASSERT_EQ(::symlink(P("real").c_str(), P("top/real-link").c_str()), 0);
  opt.recursive = true;
  EXPECT_EQ(Paths(KpzInputList::Expand({P("top")}, opt)),
            (std::vector<std::string>{P("top/link.kpz")}));
  // A link to a directory named as an argument is a directory.
  EXPECT_EQ(Paths(KpzInputList::Expand({P("top/real-link")}, opt)),
            (std::vector<std::string>{P("top/real-link/r.kpz")}));
}

TEST_F(KpzInputListTest, ExtOptionChoosesOtherExtensions) {
  File("a.kpz");
  File("b.dng");
  File("c.RAW");
  File("d.txt");
  opt.extensions = {"dng", ".raw"};
  EXPECT_EQ(Paths(KpzInputList::Expand({dir.Path()}, opt)),
            (std::vector<std::string>{P("b.dng"), P("c.RAW")}));
  opt.extensions = {"*"};
  EXPECT_EQ(Paths(KpzInputList::Expand({dir.Path()}, opt)).size(), 4u);
}

TEST_F(KpzInputListTest, DirectoryWithoutMatchesGivesNothing) {
  File("a.txt");
  EXPECT_TRUE(KpzInputList::Expand({dir.Path()}, opt).empty());
}

TEST_F(KpzInputListTest, NestingDeeperThanTheLimitIsReportedNotEntered) {
  std::string rel = "d0";
  for (unsigned int i = 1; i <= KpzInputList::kMaxDepth + 1; ++i) {
    rel += "/d" + std::to_string(i);
  }
  File(rel + "/deep.kpz");
  File("d0/top.kpz");
  opt.recursive = true;
  const std::vector<KpzInputList::Entry> got = KpzInputList::Expand({P("d0")}, opt);
  ASSERT_EQ(got.size(), 2u);
  EXPECT_EQ(got[0].error,
            "directories nested too deep (over 64 levels); not entered");
  EXPECT_EQ(got[0].path, P(rel));
  EXPECT_EQ(got[1].path, P("d0/top.kpz"));
  EXPECT_EQ(got[1].error, "");
}

TEST_F(KpzInputListTest, UnreadableDirectoryBecomesAnEntryWithItsError) {
  // Run in a child that is not root (root reads any directory).
  ASSERT_EQ(::chmod(dir.Path().c_str(), 0755), 0);
  const std::string locked = Dir("locked");
  File("locked/a.kpz");
  ASSERT_EQ(::chmod(locked.c_str(), 0), 0);
  EXPECT_EXIT(
      {
        if (geteuid() == 0 && setuid(65534) != 0) _exit(3);
        const auto got = KpzInputList::Expand({locked}, KpzInputList::Options());
        const bool ok = got.size() == 1 && got[0].path == locked &&
                        got[0].error == "cannot read the directory: Permission denied";
        _exit(ok ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
  ::chmod(locked.c_str(), 0755);
}

TEST(KpzInputList, NamesDirectoryTellsWhetherAnArgumentIsOne) {
  kpztest::TempDir dir;
  EXPECT_TRUE(KpzInputList::NamesDirectory({"nope.kpz", dir.Path()}));
  EXPECT_FALSE(KpzInputList::NamesDirectory({"nope.kpz", dir.Path() + "/x"}));
  EXPECT_FALSE(KpzInputList::NamesDirectory({}));
}

TEST(KpzInputList, NormaliseLowersAndAddsTheDot) {
  EXPECT_EQ(KpzInputList::Normalise({"", "KPZ", ".Dng", "*"}),
            (std::vector<std::string>{".kpz", ".dng", "*"}));
  EXPECT_EQ(KpzInputList::Normalise({}), (std::vector<std::string>{".kpz"}));
  EXPECT_EQ(KpzInputList::Normalise({""}), (std::vector<std::string>{".kpz"}));
}

TEST(KpzInputList, MatchesComparesTheEndWithoutCase) {
  const std::vector<std::string> kpz = {".kpz"};
  EXPECT_TRUE(KpzInputList::Matches("a.kpz", kpz));
  EXPECT_TRUE(KpzInputList::Matches("A.KpZ", kpz));
  EXPECT_FALSE(KpzInputList::Matches(".kpz", kpz));
  EXPECT_FALSE(KpzInputList::Matches("a.kpz.bak", kpz));
  EXPECT_FALSE(KpzInputList::Matches("akpz", kpz));
  EXPECT_TRUE(KpzInputList::Matches(".x", {"*"}));
  EXPECT_TRUE(KpzInputList::Matches("b.dng", {".kpz", ".dng"}));
}

}  // namespace

#else

TEST(KpzInputList, NeedsTheKpzTool) { GTEST_SKIP() << "the kpz tool is not built"; }

#endif
