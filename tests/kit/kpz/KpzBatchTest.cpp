// KpzBatchTest.cpp - the kpz tool's pool of worker threads (kit/kpz/
// KpzBatch): outcomes in input order whatever the timing, real parallelism,
// the bounded lead of the workers, the waiting ticks and a task's exception.
// No test sleeps: tasks wait for events the test sets (each wait bounded),
// and the waits between ticks run on a clock the test controls.
#include <gtest/gtest.h>

#if defined(KPZ_TEST_HAVE_KIT)

#include "kpz/KpzBatch.h"
#include "support/KpzManualClock.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <new>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using Outcome = KpzBatch::Outcome;

// Far beyond any wait a test needs: a wait that ends this way is a failure.
constexpr std::chrono::seconds kBound(30);

Outcome Named(std::size_t i) {
  Outcome o;
  o.out = std::to_string(i);
  return o;
}

// Events that tasks on other threads wait for, each wait bounded.
class Events {
 public:
  void Set(std::size_t i) {
    {
      std::lock_guard<std::mutex> hold(m_lock);
      m_set.insert(i);
    }
    m_changed.notify_all();
  }
  // True when event `i` came within kBound.
  bool WaitFor(std::size_t i) {
    std::unique_lock<std::mutex> hold(m_lock);
    return m_changed.wait_for(hold, kBound, [&] { return m_set.count(i) > 0; });
  }
  // True when `n` events came within kBound.
  bool WaitForCount(std::size_t n) {
    std::unique_lock<std::mutex> hold(m_lock);
    return m_changed.wait_for(hold, kBound, [&] { return m_set.size() >= n; });
  }

 private:
  std::mutex m_lock;
  std::condition_variable m_changed;
  std::set<std::size_t> m_set;
};

TEST(KpzBatch, OutcomesArriveInIndexOrderWhenLaterTasksFinishFirst) {
  // In each group of four (the four workers' tasks), task i finishes only
  // after task i + 1: the last of a group finishes first.
  const std::size_t count = 12;
  Events finished;
  std::atomic<int> timedOut{0};
  std::mutex orderLock;
  std::vector<std::size_t> finishOrder;
  std::vector<std::string> seen;
  std::vector<std::size_t> indices;
  KpzBatch::Run(
      count, 4,
      [&](std::size_t i) {
        if (i % 4 != 3 && !finished.WaitFor(i + 1)) ++timedOut;
        {
          std::lock_guard<std::mutex> hold(orderLock);
          finishOrder.push_back(i);
        }
        finished.Set(i);
        return Named(i);
      },
      [&](std::size_t i, Outcome& o) {
        indices.push_back(i);
        seen.push_back(o.out);
      },
      [](std::size_t) {});
  EXPECT_EQ(timedOut.load(), 0);
  ASSERT_EQ(finishOrder.size(), count);
  EXPECT_EQ(finishOrder[0], 3u);  // a later task did finish first
  ASSERT_EQ(seen.size(), count);
  for (std::size_t i = 0; i < count; ++i) {
    EXPECT_EQ(indices[i], i);
    EXPECT_EQ(seen[i], std::to_string(i));
  }
}

TEST(KpzBatch, TasksRunOnSeveralThreadsAtOnce) {
  Events arrived;
  std::atomic<int> together{0};
  const unsigned int used = KpzBatch::Run(
      4, 4,
      [&](std::size_t i) {
        arrived.Set(i);
        if (arrived.WaitForCount(4)) ++together;
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
  // While the first outcome is being delivered, the workers run ahead to
  // index Window(jobs) (the window counts from the outcomes delivered, the
  // one in the sink's hands included) and no further.
  const unsigned int jobs = 2;
  const std::size_t window = KpzBatch::Window(jobs);
  Events done;
  std::atomic<bool> firstDelivered{false};
  std::atomic<std::size_t> beyond{0};
  bool reached = false;
  KpzBatch::Run(
      window * 3, jobs,
      [&](std::size_t i) {
        if (i > window && !firstDelivered.load()) ++beyond;
        if (i > 0) done.Set(i);
        return Named(i);
      },
      [&](std::size_t i, Outcome&) {
        if (i == 0) {
          reached = done.WaitFor(window) && done.WaitForCount(window);
          firstDelivered = true;
        }
      },
      [](std::size_t) {});
  EXPECT_TRUE(reached);            // the workers did run ahead, the whole window
  EXPECT_EQ(beyond.load(), 0u);    // and not one task beyond it
}

TEST(KpzBatch, TickComesWhileWaitingAndAfterEachDelivery) {
  // Every wait of the delivering thread runs out at once (the test's clock):
  // it ticks while task 0 is held, and task 0 is let go after two ticks.
  KpzManualClock clock;
  Events ticked;
  std::vector<std::size_t> ticks;
  bool released = false;
  KpzBatch::Run(
      2, 2,
      [&](std::size_t i) {
        if (i == 0) released = ticked.WaitFor(1);
        return Named(i);
      },
      [](std::size_t, Outcome&) {},
      [&](std::size_t done) {
        ticks.push_back(done);
        if (ticks.size() == 2) ticked.Set(1);
      },
      clock);
  EXPECT_TRUE(released);
  ASSERT_GE(ticks.size(), 4u);  // at least two waiting ticks, then one per delivery
  EXPECT_EQ(ticks[0], 0u);
  EXPECT_EQ(ticks[1], 0u);
  EXPECT_EQ(ticks[ticks.size() - 2], 1u);
  EXPECT_EQ(ticks.back(), 2u);
}

TEST(KpzBatch, ATaskThatThrowsBecomesThatFilesFailureInWords) {
  for (const unsigned int jobs : {1u, 3u}) {  // the calling thread, and workers
    std::vector<Outcome> got;
    KpzBatch::Run(
        5, jobs,
        [](std::size_t i) -> Outcome {
          if (i == 1) throw std::runtime_error("boom");
          if (i == 2) throw std::bad_alloc();
          if (i == 3) throw 42;
          return Named(i);
        },
        [&](std::size_t, Outcome& o) { got.push_back(o); }, [](std::size_t) {});
    ASSERT_EQ(got.size(), 5u) << jobs;
    EXPECT_EQ(got[0].status, 0);
    EXPECT_EQ(got[0].out, "0");
    EXPECT_EQ(got[1].status, 1);
    EXPECT_EQ(got[1].reason, "failed: boom");
    EXPECT_EQ(got[1].err, "");  // the sink tells it with the file's name
    EXPECT_EQ(got[2].status, 1);
    EXPECT_EQ(got[2].reason, "not enough memory");
    EXPECT_EQ(got[3].status, 1);
    EXPECT_EQ(got[3].reason, "failed for an unknown reason");
    EXPECT_EQ(got[4].status, 0);
    EXPECT_EQ(got[4].out, "4");
  }
  Outcome single;
  KpzBatch::Run(
      1, 4, [](std::size_t) -> Outcome { throw std::logic_error("one"); },
      [&](std::size_t, Outcome& o) { single = o; }, [](std::size_t) {});
  EXPECT_EQ(single.status, 1);
  EXPECT_EQ(single.reason, "failed: one");
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

// RunWhile: the number of tasks is found as the run goes.

TEST(KpzBatch, UnknownCountDeliversInOrderAndAsksForEachIndexOnceInTurn) {
  for (const unsigned int jobs : {1u, 3u}) {
    const std::size_t count = 1000;  // many windows
    std::mutex asked;
    std::vector<std::size_t> questions;
    std::vector<std::size_t> order;
    const unsigned int ran = KpzBatch::RunWhile(
        jobs,
        [&](std::size_t i) {
          std::lock_guard<std::mutex> hold(asked);
          questions.push_back(i);
          return i < count;
        },
        [](std::size_t i) { return Named(i); },
        [&](std::size_t i, Outcome& o) {
          EXPECT_EQ(o.out, std::to_string(i));
          order.push_back(i);
        },
        [](std::size_t) {});
    EXPECT_EQ(ran, jobs);
    ASSERT_EQ(order.size(), count);
    for (std::size_t i = 0; i < count; ++i) EXPECT_EQ(order[i], i);
    // 0, 1, ... count: each once, in order, and none after the first "no".
    ASSERT_EQ(questions.size(), count + 1) << jobs;
    for (std::size_t i = 0; i <= count; ++i) EXPECT_EQ(questions[i], i);
  }
}

TEST(KpzBatch, UnknownCountAsksOnlyWithinTheWindowOfTheDelivery) {
  // Index i is asked about only once every outcome before i - Window(jobs)
  // was delivered: a ring of Window(jobs) + 1 inputs is enough, each input
  // still there while its task runs and while it is delivered.
  const unsigned int jobs = 2;
  const std::size_t window = KpzBatch::Window(jobs);
  const std::size_t count = window * 5;
  std::atomic<std::size_t> returned{0};  // sinks that returned
  std::atomic<std::size_t> tooEarly{0};
  std::atomic<std::size_t> overwritten{0};
  const std::size_t places = window + 1;
  std::unique_ptr<std::atomic<std::size_t>[]> ring(new std::atomic<std::size_t>[places]);
  KpzBatch::RunWhile(
      jobs,
      [&](std::size_t i) {
        if (i >= count) return false;
        if (i >= window && returned.load() < i - window) ++tooEarly;
        ring[i % places] = i;
        return true;
      },
      [&](std::size_t i) {
        if (ring[i % places].load() != i) ++overwritten;
        return Named(i);
      },
      [&](std::size_t i, Outcome&) {
        if (ring[i % places].load() != i) ++overwritten;
        if (i % 7 == 0) std::this_thread::yield();
        returned = i + 1;
      },
      [](std::size_t) {});
  EXPECT_EQ(returned.load(), count);
  EXPECT_EQ(tooEarly.load(), 0u);
  EXPECT_EQ(overwritten.load(), 0u);
}

TEST(KpzBatch, UnknownCountOfNoneOrOneStartsNoThread) {
  std::size_t sunk = 0;
  EXPECT_EQ(KpzBatch::RunWhile(
                4, [](std::size_t) { return false; },
                [](std::size_t i) { return Named(i); }, [&](std::size_t, Outcome&) { ++sunk; },
                [](std::size_t) {}),
            0u);
  EXPECT_EQ(sunk, 0u);
  const std::thread::id caller = std::this_thread::get_id();
  std::thread::id ranOn;
  std::vector<std::size_t> ticks;
  EXPECT_EQ(KpzBatch::RunWhile(
                4, [](std::size_t i) { return i < 1; },
                [&](std::size_t i) {
                  ranOn = std::this_thread::get_id();
                  return Named(i);
                },
                [&](std::size_t, Outcome&) { ++sunk; },
                [&](std::size_t done) { ticks.push_back(done); }),
            0u);
  EXPECT_EQ(sunk, 1u);
  EXPECT_EQ(ranOn, caller);
  EXPECT_EQ(ticks, std::vector<std::size_t>{1});
}

TEST(KpzBatch, AnUnknownCountEndsWhereTheQuestionThrows) {
  std::vector<std::size_t> order;
  KpzBatch::RunWhile(
      2,
      [](std::size_t i) -> bool {
        if (i == 100) throw std::runtime_error("directory gone");
        return true;
      },
      [](std::size_t i) { return Named(i); },
      [&](std::size_t i, Outcome&) { order.push_back(i); }, [](std::size_t) {});
  ASSERT_EQ(order.size(), 100u);
  EXPECT_EQ(order.back(), 99u);
}

TEST(KpzBatch, UnknownCountTicksWhileWaitingForTheLastTask) {
  // The delivery waits for task 1 (held until two ticks came); the ticks
  // come on the test's clock, each telling what was delivered.
  KpzManualClock clock;
  Events ticked;
  std::vector<std::size_t> ticks;
  bool released = false;
  KpzBatch::RunWhile(
      2, [](std::size_t i) { return i < 2; },
      [&](std::size_t i) {
        if (i == 1) released = ticked.WaitFor(2);
        return Named(i);
      },
      [](std::size_t, Outcome&) {},
      [&](std::size_t done) {
        ticks.push_back(done);
        ticked.Set(ticks.size());
      },
      clock);
  EXPECT_TRUE(released);
  ASSERT_GE(ticks.size(), 3u);
  EXPECT_EQ(ticks.back(), 2u);
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
