// DtNlPointerQueueImplTest.cpp - the pointer ring: FIFO order, EnqueueForward
// and its INFO lines, counts across the wrap, queues without slots, allocation
// failure, the "queue is full" assertions, and a random model test.
#include "util/DtNlPointerQueueImpl.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cinttypes>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <deque>
#include <new>
#include <random>
#include <string>

#include "support/LogExpect.h"

// Test-local replacement of the non-throwing array allocation: counts calls
// and can make the next one fail. Unarmed it behaves as the default.
namespace {
int g_nothrowArrayNewCalls = 0;
bool g_failNextNothrowArrayNew = false;
}  // namespace

void* operator new[](std::size_t bytes, const std::nothrow_t&) noexcept {
  ++g_nothrowArrayNewCalls;
  if (g_failNextNothrowArrayNew) {
    g_failNextNothrowArrayNew = false;
    return nullptr;
  }
  try {
    return ::operator new[](bytes);
  } catch (...) {
    return nullptr;
  }
}

namespace {

const char kSource[] = "jni/util/DtNlPointerQueueImpl.cpp";
const int kLineAllocationError = 43;
const int kLineEnqueueFull = 57;
const int kLineEnqueueForwardFull = 64;
const int kLineEnqueueForwardBefore = 65;
const int kLineEnqueueForwardAfter = 70;

int a, b, c, d;

std::string PointerText(std::uintptr_t value) {
  char text[64];
  std::snprintf(text, sizeof(text), "%p", reinterpret_cast<void*>(value));
  return text;
}

std::string PositionsMessage(std::uintptr_t en, std::uintptr_t de, std::uintptr_t pp,
                             std::uintptr_t end) {
  return "EnqueueForward b en=" + PointerText(en) + " de=" + PointerText(de) +
         " pp=" + PointerText(pp) + ",end=" + PointerText(end);
}

// The slot array's address, read back from the "pp=" field of a log line.
std::uintptr_t StartFromLog(const std::string& log) {
  const std::size_t at = log.find("pp=");
  if (at == std::string::npos) return 0;
  std::uintptr_t value = 0;
  std::sscanf(log.c_str() + at + 3, "%" SCNxPTR, &value);
  return value;
}

TEST(DtNlPointerQueueImpl, SizeIsZeroBeforeInitializeAndTheCapacityAfter) {
  DtNlPointerQueueImpl q;
  EXPECT_EQ(q.GetSize(), 0);
  EXPECT_TRUE(q.Initialize(5).IsSuccess());
  EXPECT_EQ(q.GetSize(), 5);
  EXPECT_EQ(q.GetQueuedCount(), 0);
  EXPECT_EQ(q.IsFull(), 0u);
}

TEST(DtNlPointerQueueImpl, QueueOfCapacityThreeIsFullAfterThreeItems) {
  DtNlPointerQueueImpl q;
  ASSERT_TRUE(q.Initialize(3).IsSuccess());
  q.Enqueue(&a);
  q.Enqueue(&b);
  EXPECT_EQ(q.IsFull(), 0u);
  q.Enqueue(&c);
  EXPECT_EQ(q.IsFull(), 1u);
  EXPECT_EQ(q.GetQueuedCount(), 3);
  EXPECT_EQ(q.Dequeue(), &a);
  EXPECT_EQ(q.Dequeue(), &b);
  EXPECT_EQ(q.Dequeue(), &c);
  EXPECT_EQ(q.Dequeue(), nullptr);
}

TEST(DtNlPointerQueueImpl, EnqueueForwardPutsTheItemFirstAndLogsThePositions) {
  DtNlPointerQueueImpl q;
  ASSERT_TRUE(q.Initialize(3).IsSuccess());
  q.Enqueue(&a);
  q.Enqueue(&b);
  std::string err = kpztest::CaptureStderr([&] { q.EnqueueForward(&c); });
  // Four slots: the item goes into the last slot, in front of the first one.
  const std::uintptr_t start = StartFromLog(err);
  ASSERT_NE(start, 0u);
  const std::uintptr_t slot = sizeof(const void*);
  EXPECT_EQ(err, kpztest::InfoLine(kSource, "EnqueueForward", kLineEnqueueForwardBefore,
                                   PositionsMessage(start + 2 * slot, start, start,
                                                    start + 4 * slot)) +
                     kpztest::InfoLine(kSource, "EnqueueForward", kLineEnqueueForwardAfter,
                                       PositionsMessage(start + 2 * slot, start + 3 * slot,
                                                        start, start + 4 * slot)));
  EXPECT_EQ(q.GetQueuedCount(), 3);
  EXPECT_EQ(q.IsFull(), 1u);
  EXPECT_EQ(q.Dequeue(), &c);
  EXPECT_EQ(q.Dequeue(), &a);
  EXPECT_EQ(q.Dequeue(), &b);
  EXPECT_EQ(q.Dequeue(), nullptr);
}

TEST(DtNlPointerQueueImpl, LookReturnsTheOldestWithoutRemovingIt) {
  DtNlPointerQueueImpl q;
  ASSERT_TRUE(q.Initialize(2).IsSuccess());
  EXPECT_EQ(q.Look(), nullptr);
  q.Enqueue(&a);
  q.Enqueue(&b);
  EXPECT_EQ(q.Look(), &a);
  EXPECT_EQ(q.GetQueuedCount(), 2);
  EXPECT_EQ(q.Dequeue(), &a);
  EXPECT_EQ(q.Look(), &b);
}

TEST(DtNlPointerQueueImpl, CountIsRightWhenTheItemsWrapAroundTheEnd) {
  DtNlPointerQueueImpl q;
  ASSERT_TRUE(q.Initialize(3).IsSuccess());
  q.Enqueue(&a);
  q.Enqueue(&b);
  q.Enqueue(&c);
  q.Dequeue();
  q.Dequeue();
  q.Enqueue(&d);  // into the last slot
  q.Enqueue(&a);  // wraps to the first slot
  EXPECT_EQ(q.GetQueuedCount(), 3);
  EXPECT_EQ(q.IsFull(), 1u);
  EXPECT_EQ(q.Dequeue(), &c);
  EXPECT_EQ(q.Dequeue(), &d);
  EXPECT_EQ(q.Dequeue(), &a);
}

TEST(DtNlPointerQueueImpl, ClearEmptiesTheQueueAndKeepsTheCapacity) {
  DtNlPointerQueueImpl q;
  ASSERT_TRUE(q.Initialize(2).IsSuccess());
  q.Enqueue(&a);
  q.Clear();
  EXPECT_EQ(q.GetQueuedCount(), 0);
  EXPECT_EQ(q.Dequeue(), nullptr);
  EXPECT_EQ(q.GetSize(), 2);
}

TEST(DtNlPointerQueueImpl, ReinitialisingWithTheSameSizeKeepsTheSlotsAndEmptiesTheQueue) {
  DtNlPointerQueueImpl q;
  ASSERT_TRUE(q.Initialize(4).IsSuccess());
  q.Enqueue(&a);
  g_nothrowArrayNewCalls = 0;
  EXPECT_TRUE(q.Initialize(4).IsSuccess());
  EXPECT_EQ(g_nothrowArrayNewCalls, 0);
  EXPECT_EQ(q.GetQueuedCount(), 0);
  EXPECT_TRUE(q.Initialize(6).IsSuccess());
  EXPECT_EQ(g_nothrowArrayNewCalls, 1);
  EXPECT_EQ(q.GetSize(), 6);
}

TEST(DtNlPointerQueueImpl, QueueWithoutSlotsIsEmptyAndFull) {
  DtNlPointerQueueImpl q;
  EXPECT_EQ(q.GetQueuedCount(), 0);
  EXPECT_EQ(q.Dequeue(), nullptr);
  EXPECT_EQ(q.Look(), nullptr);
  EXPECT_EQ(q.IsFull(), 1u);
}

TEST(DtNlPointerQueueImpl, InitializeWithZeroReleasesTheSlots) {
  DtNlPointerQueueImpl q;
  ASSERT_TRUE(q.Initialize(3).IsSuccess());
  q.Enqueue(&a);
  EXPECT_TRUE(q.Initialize(0).IsSuccess());
  EXPECT_EQ(q.GetSize(), 0);
  EXPECT_EQ(q.GetQueuedCount(), 0);
  EXPECT_EQ(q.IsFull(), 1u);
  EXPECT_EQ(q.Dequeue(), nullptr);
}

TEST(DtNlPointerQueueImpl, AllocationFailureLogsAndReportsNoMemoryWithEnomem) {
  DtNlPointerQueueImpl q;
  ASSERT_TRUE(q.Initialize(2).IsSuccess());
  DtNlStatus st;
  g_failNextNothrowArrayNew = true;
  std::string err = kpztest::CaptureStderr([&] { st = q.Initialize(8); });
  g_failNextNothrowArrayNew = false;
  EXPECT_EQ(err, kpztest::ErrLine(kSource, "Initialize", kLineAllocationError,
                                  "memory allocation error\n"));
  EXPECT_EQ(st.errCode, DtNlErrNoMemory);
  EXPECT_EQ(st.sysErrNo, 12);
  EXPECT_EQ(q.GetSize(), 0);
  EXPECT_EQ(q.Dequeue(), nullptr);
  EXPECT_TRUE(q.Initialize(8).IsSuccess());
  EXPECT_EQ(q.GetSize(), 8);
}

TEST(DtNlPointerQueueImpl, CapacityWhoseSlotCountWrapsIsRefusedAsNoMemory) {
  DtNlPointerQueueImpl q;
  DtNlStatus st;
  std::string err = kpztest::CaptureStderr([&] { st = q.Initialize(0xFFFFFFFFu); });
  EXPECT_EQ(err, kpztest::ErrLine(kSource, "Initialize", kLineAllocationError,
                                  "memory allocation error\n"));
  EXPECT_EQ(st.errCode, DtNlErrNoMemory);
  EXPECT_EQ(st.sysErrNo, ENOMEM);
  EXPECT_EQ(q.GetSize(), 0);
}

TEST(DtNlPointerQueueImplDeathTest, EnqueueOntoAFullQueueEndsTheProcess) {
  DtNlPointerQueueImpl q;
  ASSERT_TRUE(q.Initialize(3).IsSuccess());
  q.Enqueue(&a);
  q.Enqueue(&b);
  q.Enqueue(&c);
  EXPECT_EXIT(q.Enqueue(&d), testing::ExitedWithCode(255),
              testing::Eq(kpztest::AssertText(kSource, "Enqueue", kLineEnqueueFull,
                                              "the queue is full!!")));
}

TEST(DtNlPointerQueueImplDeathTest, EnqueueForwardOntoAFullQueueEndsTheProcess) {
  DtNlPointerQueueImpl q;
  ASSERT_TRUE(q.Initialize(2).IsSuccess());
  q.Enqueue(&a);
  q.Enqueue(&b);
  EXPECT_EXIT(q.EnqueueForward(&c), testing::ExitedWithCode(255),
              testing::Eq(kpztest::AssertText(kSource, "EnqueueForward", kLineEnqueueForwardFull,
                                              "the queue is full!!")));
}

TEST(DtNlPointerQueueImplDeathTest, EnqueueBeforeInitializeEndsTheProcessAsFull) {
  DtNlPointerQueueImpl q;
  EXPECT_EXIT(q.Enqueue(&a), testing::ExitedWithCode(255),
              testing::Eq(kpztest::AssertText(kSource, "Enqueue", kLineEnqueueFull,
                                              "the queue is full!!")));
}

TEST(DtNlPointerQueueImplDeathTest, EnqueueForwardBeforeInitializeEndsTheProcessAsFull) {
  DtNlPointerQueueImpl q;
  EXPECT_EXIT(q.EnqueueForward(&a), testing::ExitedWithCode(255),
              testing::Eq(kpztest::AssertText(kSource, "EnqueueForward", kLineEnqueueForwardFull,
                                              "the queue is full!!")));
}

// Random Enqueue, EnqueueForward, Dequeue and Look against a std::deque
// model, checking count, capacity and fullness after every step.
TEST(DtNlPointerQueueImpl, RandomOperationsMatchADequeModel) {
  std::mt19937 rng(99u);
  int items[32] = {};
  DtNlPointerQueueImpl q;
  int capacity = 7;
  ASSERT_TRUE(q.Initialize(static_cast<UINT32>(capacity)).IsSuccess());
  std::deque<const void*> model;
  int forwards = 0;
  const std::string err = kpztest::CaptureStderr([&] {
    for (int step = 0; step < 10000; ++step) {
      const unsigned op = std::uniform_int_distribution<unsigned>(0, 99)(rng);
      const void* item = &items[std::uniform_int_distribution<unsigned>(0, 31)(rng)];
      const bool full = static_cast<int>(model.size()) == capacity;
      if (op < 30 && !full) {
        q.Enqueue(item);
        model.push_back(item);
      } else if (op < 50 && !full) {
        q.EnqueueForward(item);
        model.push_front(item);
        ++forwards;
      } else if (op < 90) {
        const void* expected = model.empty() ? nullptr : model.front();
        ASSERT_EQ(q.Dequeue(), expected) << "step " << step;
        if (!model.empty()) model.pop_front();
      } else if (op < 96) {
        ASSERT_EQ(q.Look(), model.empty() ? nullptr : model.front()) << "step " << step;
      } else if (op < 98) {
        q.Clear();
        model.clear();
      } else {
        capacity = std::uniform_int_distribution<int>(1, 9)(rng);
        ASSERT_TRUE(q.Initialize(static_cast<UINT32>(capacity)).IsSuccess());
        model.clear();
      }
      ASSERT_EQ(q.GetQueuedCount(), static_cast<int>(model.size())) << "step " << step;
      ASSERT_EQ(q.GetSize(), capacity) << "step " << step;
      ASSERT_EQ(q.IsFull(), static_cast<int>(model.size()) == capacity ? 1u : 0u)
          << "step " << step;
    }
  });
  EXPECT_GT(forwards, 1000);
  // Two log lines per EnqueueForward and nothing else.
  std::size_t lines = 0;
  for (char ch : err) lines += (ch == '\n') ? 1u : 0u;
  EXPECT_EQ(lines, static_cast<std::size_t>(2 * forwards));
}

}  // namespace
