// KpzQuietStderrTest.cpp - hiding standard error around library calls in the
// kpz tool (tools/kpz/KpzQuietStderr).
#include <gtest/gtest.h>

#if defined(KPZ_TEST_HAVE_TOOL)

#include "kpz/KpzQuietStderr.h"

#include <unistd.h>

#include <cstdio>
#include <string>

#include "support/LogExpect.h"

namespace {

TEST(KpzQuietStderr, QuietObjectHidesBothStdioAndDescriptorWrites) {
  const std::string err = kpztest::CaptureStderr([] {
    KpzQuietStderr hush(true);
    std::fputs("via stdio\n", stderr);
    EXPECT_EQ(write(STDERR_FILENO, "via fd\n", 7), 7);
  });
  EXPECT_EQ(err, "");
}

TEST(KpzQuietStderr, StandardErrorIsBackAfterTheObjectEnds) {
  const std::string err = kpztest::CaptureStderr([] {
    { KpzQuietStderr hush(true); std::fputs("hidden\n", stderr); }
    std::fputs("shown\n", stderr);
  });
  EXPECT_EQ(err, "shown\n");
}

TEST(KpzQuietStderr, NotQuietChangesNothing) {
  const std::string err = kpztest::CaptureStderr([] {
    KpzQuietStderr hush(false);
    std::fputs("verbose\n", stderr);
  });
  EXPECT_EQ(err, "verbose\n");
}

}  // namespace

#else

TEST(KpzQuietStderr, NeedsTheKpzTool) { GTEST_SKIP() << "the kpz tool is not built"; }

#endif
