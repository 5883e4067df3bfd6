// KpzPictureJobTest.cpp - one input of a picture command (kit/kpz/
// KpzPictureJob): the picture written and the 'wrote' line, each failure
// with its exit status and the file its line names, a refused output name
// asked for only once the picture is read, the suffixes.
#include <gtest/gtest.h>

#if defined(KPZ_TEST_HAVE_KIT)

#include "kpz/KpzClaimWindow.h"
#include "kpz/KpzPictureJob.h"

#include <string>

#include "support/KpzFileBuilder.h"

namespace {

using kpztest::KpzSpec;

TEST(KpzPictureJob, WritesThePictureAndTellsItOnTheWroteLine) {
  kpztest::TempDir dir;
  KpzSpec recipe;
  recipe.screennail = kpztest::FakeJpeg(2500, 1);
  const std::string in = dir.Write("a.kpz", kpztest::BuildKpz(recipe));
  const std::string out = dir.Path() + "/a.preview.jpg";
  int asked = 0;
  const KpzPictureJob::Done done = KpzPictureJob::Run(in, out, {}, [&asked] {
    ++asked;
    return std::string();
  });
  EXPECT_TRUE(done.wrote);
  EXPECT_EQ(asked, 1);
  EXPECT_EQ(done.outcome.status, 0);
  EXPECT_EQ(done.outcome.out, "wrote " + out + " (2500 bytes)\n");
  EXPECT_EQ(done.outcome.err, "");
  EXPECT_EQ(done.outcome.reason, "");
  EXPECT_EQ(kpztest::ReadFileBytes(out), recipe.screennail);
}

TEST(KpzPictureJob, AnInputThatCannotBeReadIsItsOwnFailureAndAsksForNoName) {
  kpztest::TempDir dir;
  const std::string in = dir.Path() + "/missing.kpz";
  int asked = 0;
  const KpzPictureJob::Done done =
      KpzPictureJob::Run(in, dir.Path() + "/missing.preview.jpg", {}, [&asked] {
        ++asked;
        return std::string();
      });
  EXPECT_FALSE(done.wrote);
  EXPECT_EQ(asked, 0);  // a failed input takes no name
  EXPECT_EQ(done.outcome.status, 1);
  EXPECT_EQ(done.outcome.err, "kpz: " + in + ": " + done.outcome.reason + "\n");
  EXPECT_FALSE(done.outcome.reason.empty());
}

TEST(KpzPictureJob, ARefusedNameIsTheOutputsFailureWithTheClaimsReason) {
  kpztest::TempDir dir;
  KpzSpec recipe;
  recipe.screennail = kpztest::FakeJpeg(1200, 2);
  const std::string in = dir.Write("b.kpz", kpztest::BuildKpz(recipe));
  const std::string out = dir.Path() + "/x.preview.jpg";
  const std::string words = KpzClaimWindow::TakenWords(out, "a.kpz");
  const KpzPictureJob::Done done =
      KpzPictureJob::Run(in, out, {}, [&words] { return words; });
  EXPECT_FALSE(done.wrote);
  EXPECT_EQ(done.outcome.status, 3);
  EXPECT_EQ(done.outcome.err, "kpz: " + in + ": " + words + "\n");
  EXPECT_EQ(done.outcome.reason, KpzClaimWindow::kTakenReason);
  EXPECT_TRUE(kpztest::ReadFileBytes(out).empty());  // nothing written
}

TEST(KpzPictureJob, AnOutputThatWouldReplaceItsInputIsAUsageErrorNamingTheOutput) {
  kpztest::TempDir dir;
  KpzSpec recipe;
  recipe.screennail = kpztest::FakeJpeg(1200, 3);
  const std::string in = dir.Write("c.kpz", kpztest::BuildKpz(recipe));
  const KpzPictureJob::Done done = KpzPictureJob::Run(in, in, {}, nullptr);
  EXPECT_FALSE(done.wrote);
  EXPECT_EQ(done.outcome.status, 2);
  EXPECT_EQ(done.outcome.err.rfind("kpz: " + in + ": ", 0), 0u) << done.outcome.err;
}

TEST(KpzPictureJob, AnOutputThatCannotBeWrittenIsTheOutputsFailure) {
  kpztest::TempDir dir;
  KpzSpec recipe;
  recipe.screennail = kpztest::FakeJpeg(1200, 4);
  const std::string in = dir.Write("d.kpz", kpztest::BuildKpz(recipe));
  const std::string out = dir.Path() + "/no/such/dir/d.preview.jpg";
  const KpzPictureJob::Done done = KpzPictureJob::Run(in, out, {}, nullptr);
  EXPECT_FALSE(done.wrote);
  EXPECT_EQ(done.outcome.status, 3);
  EXPECT_EQ(done.outcome.err.rfind("kpz: " + out + ": ", 0), 0u) << done.outcome.err;
}

TEST(KpzPictureJob, SuffixesAndTheWroteLineShowNamesAsKpzShowsThem) {
  EXPECT_STREQ(KpzPictureJob::Suffix(KpzPictureJob::Kind::Preview), ".preview.jpg");
  EXPECT_STREQ(KpzPictureJob::Suffix(KpzPictureJob::Kind::Thumbnail), ".thumb.jpg");
  EXPECT_EQ(KpzPictureJob::WroteLine("o\n.jpg", 7), "wrote 'o\\n.jpg' (7 bytes)\n");
}

}  // namespace

#else

TEST(KpzPictureJob, NeedsTheKpzTool) { GTEST_SKIP() << "the kpz tool is not built"; }

#endif
