// KpzBatchTest.cpp - the kpz tool's pool of worker threads (kit/kpz/
// KpzBatch): outcomes in input order whatever the timing, real parallelism,
// the bounded lead of the workers and the waiting ticks.
#include <gtest/gtest.h>

#if defined(KPZ_TEST_HAVE_KIT)

#include "kpz/KpzBatch.h"

#include <atomic>
#include <chrono>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace {

using Outcome = KpzBatch::Outcome;

Outcome Named(std::size_t i) {
  Outcome o;
  o.out = std::to_string(i);
  return o;
}

TEST(KpzBatch, OutcomesArriveInIndexOrderWhenLaterTasksFinishFirst) {
  std::vector<std::string> seen;
  std::vector<std::size_t> indices;
  const std::size_t count = 12;
  KpzBatch::Run(
      count, 4,
      [&](std::size_t i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5 * (count - i)));
        return Named(i);
      },
      [&](std::size_t i, Outcome& o) {
        indices.push_back(i);
        seen.push_back(o.out);
      },
      [](std::size_t) {});
  ASSERT_EQ(seen.size(), count);
  for (std::size_t i = 0; i < count; ++i) {
    EXPECT_EQ(indices[i], i);
    EXPECT_EQ(seen[i], std::to_string(i));
  }
}

TEST(KpzBatch, TasksRunOnSeveralThreadsAtOnce) {
  std::atomic<int> arrived{0};
  std::atomic<int> together{0};
  const unsigned int used = KpzBatch::Run(
      4, 4,
      [&](std::size_t i) {
        ++arrived;
        const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        while (arrived.load() < 4 && std::chrono::steady_clock::now() < until) {
          std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        if (arrived.load() == 4) ++together;
        return Named(i);
      },
      [](std::size_t, Outcome&) {}, [](std::size_t) {});
  EXPECT_EQ(used, 4u);
  EXPECT_EQ(together.load(), 4);  // all four tasks were running at the same time
}

TEST(KpzBatch, NoMoreWorkersThanTasksAndZeroJobsMeansOne) {
  const auto task = [](std::size_t i) { return Named(i); };
  const auto sink = [](std::size_t, Outcome&) {};
  const auto tick = [](std::size_t) {};
  EXPECT_EQ(KpzBatch::Run(2, 8, task, sink, tick), 2u);
  EXPECT_EQ(KpzBatch::Run(5, 0, task, sink, tick), 1u);
}

TEST(KpzBatch, NothingToDoRunsNothing) {
  int calls = 0;
  EXPECT_EQ(KpzBatch::Run(
                0, 4, [&](std::size_t i) { ++calls; return Named(i); },
                [&](std::size_t, Outcome&) { ++calls; }, [&](std::size_t) { ++calls; }),
            0u);
  EXPECT_EQ(calls, 0);
}

TEST(KpzBatch, SinkAndTickRunOnTheCallingThreadTasksOnWorkers) {
  const std::thread::id me = std::this_thread::get_id();
  std::atomic<int> tasksHere{0};
  int sinksElsewhere = 0;
  int ticksElsewhere = 0;
  KpzBatch::Run(
      20, 3,
      [&](std::size_t i) {
        if (std::this_thread::get_id() == me) ++tasksHere;
        return Named(i);
      },
      [&](std::size_t, Outcome&) {
        if (std::this_thread::get_id() != me) ++sinksElsewhere;
      },
      [&](std::size_t) {
        if (std::this_thread::get_id() != me) ++ticksElsewhere;
      });
  EXPECT_EQ(tasksHere.load(), 0);
  EXPECT_EQ(sinksElsewhere, 0);
  EXPECT_EQ(ticksElsewhere, 0);
}

TEST(KpzBatch, WorkersStayWithinTheWindowAheadOfTheDelivery) {
  const unsigned int jobs = 2;
  const std::size_t window = KpzBatch::Window(jobs);
  std::atomic<std::size_t> delivered{0};
  std::atomic<std::size_t> farthest{0};
  const std::size_t count = window * 3;
  KpzBatch::Run(
      count, jobs,
      [&](std::size_t i) {
        const std::size_t lead = i - delivered.load();
        std::size_t prev = farthest.load();
        while (lead > prev && !farthest.compare_exchange_weak(prev, lead)) {
        }
        return Named(i);
      },
      [&](std::size_t i, Outcome&) {
        if (i % 16 == 0) std::this_thread::sleep_for(std::chrono::milliseconds(2));
        delivered = i + 1;
      },
      [](std::size_t) {});
  // The count seen here lags the pool's own by the delivery in progress.
  EXPECT_LE(farthest.load(), window);
  EXPECT_GE(farthest.load(), window / 2);  // the workers did run ahead
}

TEST(KpzBatch, TickComesWhileWaitingAndAfterEachDelivery) {
  std::vector<std::size_t> ticks;
  KpzBatch::Run(
      2, 2,
      [](std::size_t i) {
        if (i == 0) std::this_thread::sleep_for(std::chrono::milliseconds(350));
        return Named(i);
      },
      [](std::size_t, Outcome&) {}, [&](std::size_t done) { ticks.push_back(done); });
  ASSERT_GE(ticks.size(), 4u);  // at least two waiting ticks, then one per delivery
  EXPECT_EQ(ticks[0], 0u);
  EXPECT_EQ(ticks[1], 0u);
  EXPECT_EQ(ticks[ticks.size() - 2], 1u);
  EXPECT_EQ(ticks.back(), 2u);
}

TEST(KpzBatch, ASingleTaskRunsOnTheCallingThreadWithoutWorkers) {
  const std::thread::id me = std::this_thread::get_id();
  std::thread::id ranOn;
  std::vector<std::size_t> ticks;
  const unsigned int used = KpzBatch::Run(
      1, 4,
      [&](std::size_t i) {
        ranOn = std::this_thread::get_id();
        return Named(i);
      },
      [](std::size_t, Outcome&) {}, [&](std::size_t done) { ticks.push_back(done); });
  EXPECT_EQ(used, 0u);
  EXPECT_EQ(ranOn, me);
  EXPECT_EQ(ticks, (std::vector<std::size_t>{1}));
}

TEST(KpzBatch, OutcomesKeepEveryField) {
  Outcome got;
  KpzBatch::Run(
      1, 1,
      [](std::size_t) {
        Outcome o;
        o.status = 3;
        o.out = "out";
        o.err = "err";
        o.reason = "why";
        return o;
      },
      [&](std::size_t, Outcome& o) { got = o; }, [](std::size_t) {});
  EXPECT_EQ(got.status, 3);
  EXPECT_EQ(got.out, "out");
  EXPECT_EQ(got.err, "err");
  EXPECT_EQ(got.reason, "why");
}

TEST(KpzBatch, WindowIsFourTasksPerJobAndAtLeastSixtyFour) {
  EXPECT_EQ(KpzBatch::Window(1), 64u);
  EXPECT_EQ(KpzBatch::Window(16), 64u);
  EXPECT_EQ(KpzBatch::Window(32), 128u);
}

TEST(KpzBatch, DefaultJobsIsTheNumberOfProcessors) {
  const unsigned int n = std::thread::hardware_concurrency();
  EXPECT_EQ(KpzBatch::DefaultJobs(), n > 0 ? n : 1u);
}

}  // namespace

#else

TEST(KpzBatch, NeedsTheKpzTool) { GTEST_SKIP() << "the kpz tool is not built"; }

#endif
