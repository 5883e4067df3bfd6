// KpzQuietStderrTest.cpp - hiding standard error for a whole run of the kpz
// tool while its own lines get through (tools/kpz/KpzQuietStderr), also with
// several threads writing at once.
#include <gtest/gtest.h>

#if defined(KPZ_TEST_HAVE_TOOL)

#include "kpz/KpzQuietStderr.h"

#include <unistd.h>

#include <cstdio>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "support/LogExpect.h"

namespace {

// Library-like lines and tool lines from `threads` threads at once; every
// tool line is "kpz: t<thread> n<i>" followed by padding to make it long.
void WriteFromThreads(const KpzQuietStderr& hush, int threads, int lines) {
  std::vector<std::thread> pool;
  for (int t = 0; t < threads; ++t) {
    pool.emplace_back([&hush, t, lines] {
      for (int i = 0; i < lines; ++i) {
        std::fprintf(stderr, "library line %d %d %s\n", t, i, std::string(60, 'L').c_str());
        hush.Write("kpz: t" + std::to_string(t) + " n" + std::to_string(i) + " " +
                   std::string(200, 'x') + "\n");
      }
    });
  }
  for (std::thread& th : pool) {
    th.join();
  }
}

// How many times each line occurs in `text`; false when a line is torn (the
// text does not end with a newline).
std::map<std::string, int> CountLines(const std::string& text) {
  std::map<std::string, int> counts;
  std::size_t start = 0;
  while (start < text.size()) {  // each pass moves past one newline or ends
    const std::size_t end = text.find('\n', start);
    if (end == std::string::npos) {
      ++counts["<torn>" + text.substr(start)];
      break;
    }
    ++counts[text.substr(start, end - start)];
    start = end + 1;
  }
  return counts;
}

TEST(KpzQuietStderr, QuietObjectHidesBothStdioAndDescriptorWrites) {
  const std::string err = kpztest::CaptureStderr([] {
    KpzQuietStderr hush(true);
    EXPECT_TRUE(hush.IsQuiet());
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
    EXPECT_FALSE(hush.IsQuiet());
    EXPECT_EQ(hush.RealStderr(), STDERR_FILENO);
    std::fputs("verbose\n", stderr);
  });
  EXPECT_EQ(err, "verbose\n");
}

TEST(KpzQuietStderr, WriteReachesTheRealStandardErrorWhileQuiet) {
  const std::string err = kpztest::CaptureStderr([] {
    KpzQuietStderr hush(true);
    EXPECT_NE(hush.RealStderr(), STDERR_FILENO);
    std::fputs("library\n", stderr);
    EXPECT_TRUE(hush.Write("kpz: a.kpz: file not found\n"));
  });
  EXPECT_EQ(err, "kpz: a.kpz: file not found\n");
}

TEST(KpzQuietStderr, WriteWithoutQuietGoesToStandardErrorInOrder) {
  const std::string err = kpztest::CaptureStderr([] {
    KpzQuietStderr hush(false);
    std::fputs("library\n", stderr);
    EXPECT_TRUE(hush.Write("kpz: tool\n"));
  });
  EXPECT_EQ(err, "library\nkpz: tool\n");
}

TEST(KpzQuietStderr, ManyThreadsLoseNoToolLineAndShowNoLibraryLine) {
  const int threads = 4;
  const int lines = 200;
  const std::string err = kpztest::CaptureStderr([&] {
    KpzQuietStderr hush(true);
    WriteFromThreads(hush, threads, lines);
  });
  const std::map<std::string, int> counts = CountLines(err);
  EXPECT_EQ(counts.size(), static_cast<std::size_t>(threads * lines));
  for (int t = 0; t < threads; ++t) {
    for (int i = 0; i < lines; ++i) {
      const std::string line =
          "kpz: t" + std::to_string(t) + " n" + std::to_string(i) + " " + std::string(200, 'x');
      const auto it = counts.find(line);
      EXPECT_TRUE(it != counts.end() && it->second == 1) << line;
    }
  }
}

TEST(KpzQuietStderr, VerboseLinesFromManyThreadsStayWhole) {
  const int threads = 4;
  const int lines = 100;
  const std::string err = kpztest::CaptureStderr([&] {
    KpzQuietStderr hush(false);
    WriteFromThreads(hush, threads, lines);
  });
  const std::map<std::string, int> counts = CountLines(err);
  EXPECT_EQ(counts.size(), static_cast<std::size_t>(2 * threads * lines));
  for (const auto& c : counts) {
    EXPECT_EQ(c.second, 1) << c.first;
    EXPECT_TRUE(c.first.rfind("kpz: t", 0) == 0 || c.first.rfind("library line ", 0) == 0)
        << c.first;
  }
}

}  // namespace

#else

TEST(KpzQuietStderr, NeedsTheKpzTool) { GTEST_SKIP() << "the kpz tool is not built"; }

#endif
