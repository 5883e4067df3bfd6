// KpzProgressBarTest.cpp - the kpz tool's progress bar (kit/kpz/
// KpzProgressBar): its text, when it is long enough to show, and what it
// writes to its descriptor (a pipe here, read back; a pseudo-terminal for
// the terminal test). Time is a clock the test moves (KpzManualClock): no
// test sleeps.
#include <gtest/gtest.h>

#if defined(KPZ_TEST_HAVE_KIT)

#include "kpz/KpzProgressBar.h"
#include "support/KpzManualClock.h"

#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <string>

namespace {

// A pipe whose read end never blocks.
class Pipe {
 public:
  Pipe() {
    if (pipe(m_fds) != 0) {
      m_fds[0] = m_fds[1] = -1;
    } else {
      fcntl(m_fds[0], F_SETFL, O_NONBLOCK);
    }
  }
  ~Pipe() {
    close(m_fds[0]);
    close(m_fds[1]);
  }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;
  int WriteEnd() const { return m_fds[1]; }
  std::string Drain() const {
    std::string text;
    char buf[512];
    for (;;) {  // ends when the pipe is empty
      const ssize_t n = read(m_fds[0], buf, sizeof buf);
      if (n <= 0) {
        return text;
      }
      text.append(buf, static_cast<std::size_t>(n));
    }
  }

 private:
  int m_fds[2];
};

// What Update draws for `done` of `total`, `ms` into the run, on 80 columns.
std::string Drawn(std::size_t done, std::size_t total, long long ms, bool more = false) {
  KpzProgressBar::Frame f;
  f.done = done;
  f.total = total;
  f.more = more;
  f.elapsedMs = ms;
  return KpzProgressBar::Line(f, 80);
}

// A bar of `size` characters, `filled` of them '#'.
std::string Bar(std::size_t filled, std::size_t size) {
  return std::string(filled, '#') + std::string(size - filled, '-');
}

TEST(KpzProgressBar, RenderFillsTheBarInProportion) {
  EXPECT_EQ(KpzProgressBar::Render(250, 1000, 80),
            "kpz: [##########------------------------------] 250/1000 files");
  EXPECT_EQ(KpzProgressBar::Render(0, 3, 80),
            "kpz: [----------------------------------------] 0/3 files");
  EXPECT_EQ(KpzProgressBar::Render(3, 3, 80),
            "kpz: [########################################] 3/3 files");
}

TEST(KpzProgressBar, RenderKeepsTheBarBetweenTenAndFortyCharacters) {
  // 80 columns leave room for 40; 30 columns for 30 - 6 - 2 - 10 - 1 = 11.
  EXPECT_EQ(KpzProgressBar::Render(6, 12, 30), "kpz: [#####------] 6/12 files");
  EXPECT_EQ(KpzProgressBar::Render(1, 2, 500).size(),
            std::string("kpz: [] 1/2 files").size() + 40);
}

TEST(KpzProgressBar, TextTellsTheRateAndTheTimeLeft) {
  KpzProgressBar::Frame f;
  f.done = 250;
  f.total = 1000;
  f.elapsedMs = 20000;  // 12.5 files a second: 750 more take 60 s
  // 80 columns: 6 + 2 + 14 + 19 + 1 spare leave 38 for the bar, a quarter filled.
  EXPECT_EQ(KpzProgressBar::Text(f, 80),
            "kpz: [" + Bar(9, 38) + "] 250/1000 files, 12.5/s, 1:00 left");
  f.elapsedMs = 2500;  // 100 a second; hours when slow
  EXPECT_NE(KpzProgressBar::Text(f, 80).find("250/1000 files, 100/s, 0:08 left"), std::string::npos)
      << KpzProgressBar::Text(f, 80);
  f.done = 1;
  f.elapsedMs = 36000;
  EXPECT_NE(KpzProgressBar::Text(f, 80).find("1/1000 files, 0.0/s, 9:59:24 left"), std::string::npos);
  f.done = 250;
  f.more = true;  // still counting: no time left, a '+'
  f.elapsedMs = 20000;
  EXPECT_NE(KpzProgressBar::Text(f, 80).find("] 250/1000+ files, 12.5/s"), std::string::npos);
  f.more = false;
  f.done = 1000;  // all done: nothing left to tell
  EXPECT_NE(KpzProgressBar::Text(f, 80).find("] 1000/1000 files, 50.0/s"), std::string::npos);
  EXPECT_EQ(KpzProgressBar::Text(f, 80).find("left"), std::string::npos);
}

TEST(KpzProgressBar, NarrowLinesDropTheTimeLeftThenTheRateThenTheBar) {
  KpzProgressBar::Frame f;
  f.done = 250;
  f.total = 1000;
  f.elapsedMs = 20000;
  EXPECT_EQ(KpzProgressBar::Text(f, 52), "kpz: [" + Bar(2, 10) + "] 250/1000 files, 12.5/s, 1:00 left");
  EXPECT_EQ(KpzProgressBar::Text(f, 51), "kpz: [" + Bar(5, 20) + "] 250/1000 files, 12.5/s");
  EXPECT_EQ(KpzProgressBar::Text(f, 41), "kpz: [" + Bar(2, 10) + "] 250/1000 files, 12.5/s");
  EXPECT_EQ(KpzProgressBar::Text(f, 40), "kpz: [" + Bar(4, 17) + "] 250/1000 files");
  EXPECT_EQ(KpzProgressBar::Text(f, 33), "kpz: [" + Bar(2, 10) + "] 250/1000 files");
  EXPECT_EQ(KpzProgressBar::Text(f, 32), "kpz: 250/1000 files");
  EXPECT_EQ(KpzProgressBar::Text(f, 25), "kpz: 250/1000 files");
  EXPECT_EQ(KpzProgressBar::Text(f, 20), "kpz: 250/1000 files");
  EXPECT_EQ(KpzProgressBar::Text(f, 19), "");  // the count does not fit: nothing
  EXPECT_EQ(KpzProgressBar::Line(f, 19), "");
  EXPECT_EQ(KpzProgressBar::Line(f, 25), "\rkpz: 250/1000 files\033[K");
}

TEST(KpzProgressBar, AnyWidthGivesALineWithinItOrNothing) {
  KpzProgressBar::Frame f;
  f.done = 49;
  f.total = 51;
  f.more = true;
  f.elapsedMs = 1500;
  // 0 and below: unknown (a terminal of 0 columns), 80 assumed.
  EXPECT_EQ(KpzProgressBar::Text(f, 0), KpzProgressBar::Text(f, 80));
  EXPECT_EQ(KpzProgressBar::Text(f, -1), KpzProgressBar::Text(f, 80));
  EXPECT_EQ(KpzProgressBar::Text(f, LLONG_MIN), KpzProgressBar::Text(f, 80));
  EXPECT_EQ(KpzProgressBar::Text(f, LLONG_MAX), KpzProgressBar::Text(f, 1000));
  for (long long width = 1; width <= 200; ++width) {
    const std::string text = KpzProgressBar::Text(f, width);
    EXPECT_LT(text.size(), static_cast<std::size_t>(width)) << width;
  }
  f.elapsedMs = LLONG_MAX;
  f.done = SIZE_MAX;
  f.total = SIZE_MAX;
  EXPECT_FALSE(KpzProgressBar::Text(f, 200).empty());
}

TEST(KpzProgressBar, RenderCountsDoneAboveTotalAsTotalAndAnEmptyRunAsFull) {
  EXPECT_EQ(KpzProgressBar::Render(9, 4, 30), "kpz: [############] 4/4 files");
  EXPECT_EQ(KpzProgressBar::Render(0, 0, 30), "kpz: [############] 0/0 files");
}

TEST(KpzProgressBar, LongMeansOverFiftyFilesOrOverOneSecond) {
  EXPECT_FALSE(KpzProgressBar::IsLong(50, 0));
  EXPECT_TRUE(KpzProgressBar::IsLong(51, 0));
  EXPECT_FALSE(KpzProgressBar::IsLong(2, 1000));
  EXPECT_TRUE(KpzProgressBar::IsLong(2, 1001));
}

TEST(KpzProgressBar, DisabledBarWritesNothing) {
  Pipe p;
  {
    KpzProgressBar bar(p.WriteEnd(), false);
    bar.Update(10, 1000);
    bar.Update(1000, 1000);
    EXPECT_FALSE(bar.IsShown());
  }
  EXPECT_EQ(p.Drain(), "");
}

TEST(KpzProgressBar, ShortRunShowsNoBar) {
  Pipe p;
  KpzManualClock clock;
  KpzProgressBar bar(p.WriteEnd(), true, clock);
  bar.Update(1, 50);
  EXPECT_FALSE(bar.IsShown());
  EXPECT_EQ(p.Drain(), "");
}

TEST(KpzProgressBar, RunThatLastsOverASecondGetsItsBar) {
  Pipe p;
  KpzManualClock clock;
  KpzProgressBar bar(p.WriteEnd(), true, clock);
  clock.Advance(std::chrono::milliseconds(KpzProgressBar::kTimeThresholdMs));
  bar.Update(1, 3);  // one second exactly: not yet
  EXPECT_EQ(p.Drain(), "");
  clock.Advance(std::chrono::milliseconds(1));
  bar.Update(1, 3);
  EXPECT_EQ(p.Drain(), Drawn(1, 3, KpzProgressBar::kTimeThresholdMs + 1));
}

TEST(KpzProgressBar, ManyFilesDrawAtOnceThenAtMostEveryTenthOfASecond) {
  Pipe p;
  KpzManualClock clock;
  KpzProgressBar bar(p.WriteEnd(), true, clock);
  bar.Update(1, 100);  // a pipe is no terminal: 80 columns are assumed
  EXPECT_EQ(p.Drain(), Drawn(1, 100, 0));
  EXPECT_TRUE(bar.IsShown());
  bar.Update(2, 100);  // too soon
  EXPECT_EQ(p.Drain(), "");
  bar.Update(100, 100);  // the end is always drawn
  EXPECT_EQ(p.Drain(), Drawn(100, 100, 0));
  clock.Advance(std::chrono::milliseconds(KpzProgressBar::kRedrawMs - 1));
  bar.Update(40, 100);  // still too soon
  EXPECT_EQ(p.Drain(), "");
  clock.Advance(std::chrono::milliseconds(1));
  bar.Update(50, 100);
  EXPECT_EQ(p.Drain(), Drawn(50, 100, KpzProgressBar::kRedrawMs));
  bar.Update(51, 100);  // the redraw starts the next tenth
  EXPECT_EQ(p.Drain(), "");
}

TEST(KpzProgressBar, FilesStillBeingFoundShowTheirNumberSoFarWithAPlus) {
  EXPECT_EQ(KpzProgressBar::RenderSoFar(250, 1000, 80),
            "kpz: [##########------------------------------] 250/1000+ files");
  // The bar as Render draws it one column narrower, the '+' in that column.
  std::string plain = KpzProgressBar::Render(3, 40, 40);
  EXPECT_EQ(KpzProgressBar::RenderSoFar(3, 40, 41), plain.insert(plain.size() - 6, "+"));
  Pipe p;
  KpzManualClock clock;
  KpzProgressBar bar(p.WriteEnd(), true, clock);
  bar.Update(60, 60, true);  // all found so far delivered, but more may come
  EXPECT_EQ(p.Drain(), "\r" + KpzProgressBar::RenderSoFar(60, 60, 80) + "\033[K");
  bar.Update(60, 70, true);  // too soon, and not the end
  EXPECT_EQ(p.Drain(), "");
  bar.Update(70, 70);  // the end, every file found: always drawn
  EXPECT_EQ(p.Drain(), "\r" + KpzProgressBar::Render(70, 70, 80) + "\033[K");
}

TEST(KpzProgressBar, ClearTakesTheShownBarAwayOnce) {
  Pipe p;
  KpzManualClock clock;
  {
    KpzProgressBar bar(p.WriteEnd(), true, clock);
    bar.Clear();
    EXPECT_EQ(p.Drain(), "");  // nothing shown, nothing to clear
    bar.Update(1, 100);
    p.Drain();
    bar.Clear();
    EXPECT_FALSE(bar.IsShown());
    EXPECT_EQ(p.Drain(), "\r\033[K");
    bar.Clear();
    EXPECT_EQ(p.Drain(), "");
    bar.Update(2, 100);  // after a clear the bar comes back at once
    EXPECT_EQ(p.Drain(), "\r" + KpzProgressBar::Render(2, 100, 80) + "\033[K");
  }
  EXPECT_EQ(p.Drain(), "\r\033[K");  // the destructor clears it
}

TEST(KpzProgressBar, ABarWithoutDescriptorGivesTheBytesUpdateAndClearWrite) {
  // Step by step on two clocks kept equal: what the piped bar writes is what
  // Next and Clearing return, in the same calls (a pipe is 80 columns).
  Pipe p;
  KpzManualClock clockA;
  KpzManualClock clockB;
  KpzProgressBar written(p.WriteEnd(), true, clockA);
  KpzProgressBar given(-1, true, clockB);
  struct Step {
    long long advanceMs;
    std::size_t done;
    std::size_t total;
    bool more;
    bool clear;
  };
  const Step steps[] = {{0, 1, 10, false, false},   {1001, 2, 10, false, false},
                        {50, 3, 10, false, false},  {0, 3, 10, false, true},
                        {0, 4, 10, false, false},   {99, 5, 60, true, false},
                        {1, 6, 60, true, false},    {0, 60, 60, false, false},
                        {0, 60, 60, false, true},   {0, 60, 60, false, true}};
  std::size_t drawn = 0;
  for (const Step& step : steps) {
    clockA.Advance(std::chrono::milliseconds(step.advanceMs));
    clockB.Advance(std::chrono::milliseconds(step.advanceMs));
    std::string bytes;
    if (step.clear) {
      written.Clear();
      bytes = given.Clearing();
    } else {
      written.Update(step.done, step.total, step.more);
      bytes = given.Next(step.done, step.total, step.more, 80);
    }
    EXPECT_EQ(bytes, p.Drain()) << step.done << "/" << step.total;
    EXPECT_EQ(given.IsShown(), written.IsShown());
    if (!bytes.empty()) ++drawn;
  }
  EXPECT_EQ(drawn, 6u);  // every kind of step was taken: drawn, held back, cleared
  EXPECT_FALSE(given.Next(61, 100, false, 80).empty());
  clockB.Advance(std::chrono::milliseconds(KpzProgressBar::kRedrawMs));
  EXPECT_EQ(given.Next(62, 100, false, 10), "\r\033[K");  // too narrow: the bar taken off
  EXPECT_FALSE(given.IsShown());
}

TEST(KpzProgressBar, OnlyATerminalIsATerminal) {
  Pipe p;
  EXPECT_FALSE(KpzProgressBar::IsTerminal(p.WriteEnd()));
  const int master = posix_openpt(O_RDWR | O_NOCTTY);
  if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0) {
    if (master >= 0) close(master);
    GTEST_SKIP() << "no pseudo-terminals here";
  }
  const int slave = open(ptsname(master), O_RDWR | O_NOCTTY);
  ASSERT_GE(slave, 0);
  EXPECT_TRUE(KpzProgressBar::IsTerminal(slave));
  close(slave);
  close(master);
}

}  // namespace

#else

TEST(KpzProgressBar, NeedsTheKpzTool) { GTEST_SKIP() << "the kpz tool is not built"; }

#endif
