// KpzPrefetchTest.cpp - reading ahead across inputs (tools/kpz/KpzPrefetch):
// what is asked of the system for the next input's picture and for the head
// after it, and that an input that cannot be read, located or is no regular
// file is left alone, with no output and errno as it was.
#include <gtest/gtest.h>

#if defined(KPZ_TEST_HAVE_TOOL)

#include "kpz/KpzPrefetch.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <string>
#include <vector>

#include "kpz/KpzSource.h"
#include "support/FaultInjection.h"
#include "support/KpzFileBuilder.h"

namespace {

using Kind = KpzPictureReader::Kind;
using kpztest::KpzLayout;
using kpztest::KpzSpec;

std::vector<kpztest::FadviseCall> WillNeeds() {
  std::vector<kpztest::FadviseCall> out;
  for (const kpztest::FadviseCall& c : kpztest::FadviseCalls()) {
    if (c.advice == POSIX_FADV_WILLNEED) out.push_back(c);
  }
  return out;
}

TEST(KpzPrefetch, PictureAsksForTheLocatedPreviewOrThumbnail) {
  kpztest::TempDir dir;
  KpzSpec recipe;
  recipe.screennail = kpztest::FakeJpeg(200000, 3);
  recipe.thumbnail = kpztest::FakeJpeg(5000, 4);
  KpzLayout where;
  const std::string path = dir.Write("p.kpz", kpztest::BuildKpz(recipe, &where));
  {
    kpztest::FaultGuard guard;
    ASSERT_TRUE(KpzPrefetch::Picture(path, Kind::Preview));
    const std::vector<kpztest::FadviseCall> calls = WillNeeds();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].offset, static_cast<long long>(where.screennail));
    EXPECT_EQ(calls[0].length, 200000);
  }
  {
    kpztest::FaultGuard guard;
    ASSERT_TRUE(KpzPrefetch::Picture(path, Kind::Thumbnail));
    const std::vector<kpztest::FadviseCall> calls = WillNeeds();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].length, 5000);
  }
}

TEST(KpzPrefetch, InputThatCannotBeReadOrLocatedIsLeftAlone) {
  kpztest::TempDir dir;
  KpzSpec recipe;
  recipe.editIfd0 = [](kpztest::Ifd& ifd) { ifd.Remove(kpztest::tag::kJpegOffset); };
  const std::string unlocated = dir.Write("u.kpz", kpztest::BuildKpz(recipe));
  kpztest::FaultGuard guard;
  errno = 0;
  testing::internal::CaptureStdout();
  EXPECT_FALSE(KpzPrefetch::Picture(dir.Path() + "/missing.kpz", Kind::Preview));
  EXPECT_FALSE(KpzPrefetch::Picture(unlocated, Kind::Preview));
  EXPECT_FALSE(KpzPrefetch::Picture(dir.Path(), Kind::Preview));  // a directory
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_TRUE(WillNeeds().empty());
}

TEST(KpzPrefetch, HeadAsksForTheFirst64KiBOfARegularFileOnly) {
  kpztest::TempDir dir;
  const std::string path = dir.Write("h.kpz", kpztest::Bytes(100000, 7));
  kpztest::FaultGuard guard;
  errno = 0;
  EXPECT_TRUE(KpzPrefetch::Head(path));
  std::vector<kpztest::FadviseCall> calls = WillNeeds();
  ASSERT_EQ(calls.size(), 1u);
  EXPECT_EQ(calls[0].offset, 0);
  EXPECT_EQ(calls[0].length, static_cast<long long>(KpzSource::kHeadSize));
  EXPECT_FALSE(KpzPrefetch::Head(dir.Path() + "/missing.kpz"));
  EXPECT_FALSE(KpzPrefetch::Head(dir.Path()));  // a directory
  const std::string fifo = dir.Path() + "/pipe.kpz";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  EXPECT_FALSE(KpzPrefetch::Head(fifo));  // opened without waiting for a writer, not advised
  EXPECT_EQ(WillNeeds().size(), 1u);
  EXPECT_EQ(errno, 0);
}

TEST(KpzPrefetch, RefusedHintIsReportedAndChangesNothingElse) {
  kpztest::TempDir dir;
  const std::string path = dir.Write("r.kpz", kpztest::BuildKpz(KpzSpec()));
  kpztest::FaultGuard guard;
  kpztest::Arm(kpztest::Call::Fadvise, EINVAL, 0, 10);
  errno = 0;
  EXPECT_FALSE(KpzPrefetch::Head(path));
  EXPECT_FALSE(KpzPrefetch::Picture(path, Kind::Preview));
  EXPECT_EQ(errno, 0);
}

}  // namespace

#else

TEST(KpzPrefetch, NeedsTheKpzTool) { GTEST_SKIP() << "the kpz tool is not built"; }

#endif
