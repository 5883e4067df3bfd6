// KpzConsoleTest.cpp - where a run of the kpz tool writes (tools/kpz/
// KpzConsole): results on standard output, its own lines on the real
// standard error, the library's lines only when verbose, and no progress bar
// when standard error is not a terminal.
#include <gtest/gtest.h>

#if defined(KPZ_TEST_HAVE_TOOL)

#include "kpz/KpzConsole.h"

#include <string>

#include "raw/DtRaw.h"
#include "support/LogExpect.h"

namespace {

const std::string kMissing = "/nonexistent-kpz-dir/gone.kpz";

// The library line a failed initialisation of kMissing writes.
std::string FopenLine() {
  return kpztest::ErrLine("jni/util/io/DtNlFileIo.cpp", "Open", 77,
                          "fopen(filePath: " + kMissing + ") err(2).");
}

TEST(KpzConsole, LibraryLinesAreHiddenAndTheToolsLinesShown) {
  const std::string err = kpztest::CaptureStderr([] {
    KpzConsole console(false);
    DtRaw raw;
    EXPECT_EQ(raw.Initialize(kMissing.c_str()), -302);
    EXPECT_TRUE(console.Err("kpz: gone.kpz: file not found\n"));
  });
  EXPECT_EQ(err, "kpz: gone.kpz: file not found\n");
}

TEST(KpzConsole, VerboseShowsTheLibraryLinesBeforeTheToolsLine) {
  const std::string err = kpztest::CaptureStderr([] {
    KpzConsole console(true);
    DtRaw raw;
    raw.Initialize(kMissing.c_str());
    console.Err("kpz: gone.kpz: file not found\n");
  });
  EXPECT_EQ(err.find(FopenLine()), 0u) << err;
  const std::string tool = "kpz: gone.kpz: file not found\n";
  ASSERT_GE(err.size(), tool.size());
  EXPECT_EQ(err.substr(err.size() - tool.size()), tool);
}

TEST(KpzConsole, StandardErrorIsBackAfterTheConsoleEnds) {
  const std::string err = kpztest::CaptureStderr([] {
    { KpzConsole console(false); }
    DtRaw raw;
    raw.Initialize(kMissing.c_str());
  });
  EXPECT_EQ(err.find(FopenLine()), 0u) << err;
}

TEST(KpzConsole, OutWritesStandardOutputWhole) {
  testing::internal::CaptureStdout();
  {
    KpzConsole console(false);
    EXPECT_TRUE(console.Out("wrote a.preview.jpg (3 bytes)\n"));
    EXPECT_TRUE(console.Out(""));
    EXPECT_TRUE(console.Out("second\n"));
  }
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "wrote a.preview.jpg (3 bytes)\nsecond\n");
}

TEST(KpzConsole, NoProgressBarWhenStandardErrorIsNotATerminal) {
  const std::string err = kpztest::CaptureStderr([] {
    KpzConsole console(false);
    for (std::size_t i = 0; i <= 1000; i += 100) {
      console.Progress(i, 1000);
    }
    console.EndProgress();
    console.Err("end\n");
  });
  EXPECT_EQ(err, "end\n");
}

}  // namespace

#else

TEST(KpzConsole, NeedsTheKpzTool) { GTEST_SKIP() << "the kpz tool is not built"; }

#endif
