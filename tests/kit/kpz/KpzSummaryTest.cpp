// KpzSummaryTest.cpp - the closing lines and the exit status of a kpz batch
// (kit/kpz/KpzSummary).
#include <gtest/gtest.h>

#if defined(KPZ_TEST_HAVE_KIT)

#include "kpz/KpzSummary.h"

namespace {

TEST(KpzSummary, AllDoneGivesOneLineAndStatusZero) {
  KpzSummary s;
  s.Add(0, "");
  s.Add(0, "");
  EXPECT_EQ(s.Render(), "kpz: 2 files: 2 done, 0 failed\n");
  EXPECT_EQ(s.ExitStatus(), 0);
  EXPECT_EQ(s.Files(), 2u);
  EXPECT_EQ(s.Done(), 2u);
  EXPECT_EQ(s.Failed(), 0u);
}

TEST(KpzSummary, ReasonsAreListedMostFrequentFirstTiesAlphabetically) {
  KpzSummary s;
  s.Add(1, "not a KPZ raw file (no TIFF header)");
  s.Add(0, "");
  s.Add(1, "file not found");
  s.Add(1, "not a KPZ raw file (no TIFF header)");
  s.Add(3, "cannot write");
  s.Add(1, "b reason");
  EXPECT_EQ(s.Render(),
            "kpz: 6 files: 1 done, 5 failed\n"
            "kpz:   2 not a KPZ raw file (no TIFF header)\n"
            "kpz:   1 b reason\n"
            "kpz:   1 cannot write\n"
            "kpz:   1 file not found\n");
}

TEST(KpzSummary, RemarksFollowTheReasonsCountedWithTheirNounInNumber) {
  KpzSummary s;
  s.Add(0, "");
  s.AddNote("preview", "re-encoded at quality 95: edges not a whole number of 16-pixel blocks");
  s.Add(0, "");
  s.AddNote("preview", "re-encoded at quality 95: edges not a whole number of 16-pixel blocks");
  s.Add(0, "");
  s.AddNote("preview", "trimmed to whole 8-pixel blocks (-v tells the pixels each lost)");
  s.Add(1, "file not found");
  EXPECT_TRUE(s.HasNotes());
  EXPECT_EQ(s.ExitStatus(), 1);
  EXPECT_EQ(s.Render(),
            "kpz: 4 files: 3 done, 1 failed\n"
            "kpz:   1 file not found\n"
            "kpz:   2 previews re-encoded at quality 95: edges not a whole number of 16-pixel "
            "blocks\n"
            "kpz:   1 preview trimmed to whole 8-pixel blocks (-v tells the pixels each lost)\n");
  EXPECT_EQ(s.RenderNotes(),
            "kpz:   2 previews re-encoded at quality 95: edges not a whole number of 16-pixel "
            "blocks\n"
            "kpz:   1 preview trimmed to whole 8-pixel blocks (-v tells the pixels each lost)\n");
}

TEST(KpzSummary, NoRemarksRenderNothing) {
  KpzSummary s;
  s.Add(0, "");
  EXPECT_FALSE(s.HasNotes());
  EXPECT_EQ(s.RenderNotes(), "");
}

TEST(KpzSummary, ExitStatusIsTheHighestOfTheFailures) {
  KpzSummary s;
  s.Add(1, "x");
  EXPECT_EQ(s.ExitStatus(), 1);
  s.Add(3, "y");
  EXPECT_EQ(s.ExitStatus(), 3);
  s.Add(2, "z");
  EXPECT_EQ(s.ExitStatus(), 3);
  s.Add(0, "");
  EXPECT_EQ(s.ExitStatus(), 3);
}

TEST(KpzSummary, OneFileIsSingularAndAnEmptyReasonReadsFailed) {
  KpzSummary s;
  s.Add(2, "");
  EXPECT_EQ(s.Render(), "kpz: 1 file: 0 done, 1 failed\nkpz:   1 failed\n");
  EXPECT_EQ(s.ExitStatus(), 2);
}

TEST(KpzSummary, AnEmptyNoteIsNotCounted) {
  KpzSummary s;
  s.Add(0, "");
  s.AddNote("preview", "");
  EXPECT_FALSE(s.HasNotes());
  EXPECT_EQ(s.RenderNotes(), "");
}

TEST(KpzSummary, UprightNotesAreCountedAsTheToolPrintsThem) {
  KpzSummary s;
  const std::string note = "re-encoded at quality 95: edges not a whole number of 16-pixel blocks";
  s.Add(0, "");
  s.Add(0, "");
  s.AddNote("preview", note);
  s.AddNote("preview", note);
  EXPECT_EQ(s.Render(), "kpz: 2 files: 2 done, 0 failed\nkpz:   2 previews " + note + "\n");
}

TEST(KpzSummary, NothingAddedCountsNothing) {
  const KpzSummary s;
  EXPECT_EQ(s.Render(), "kpz: 0 files: 0 done, 0 failed\n");
  EXPECT_EQ(s.ExitStatus(), 0);
}

}  // namespace

#else

TEST(KpzSummary, NeedsTheKpzTool) { GTEST_SKIP() << "the kpz tool is not built"; }

#endif
