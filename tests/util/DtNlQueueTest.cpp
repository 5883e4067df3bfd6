// DtNlQueueTest.cpp - the byte ring buffer: transfers across the wrap point,
// short counts when full or empty, re-initialisation, allocation failure with
// its ERR line, and a random model test of every count and byte.
#include "util/DtNlQueue.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstddef>
#include <deque>
#include <new>
#include <random>
#include <vector>

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

const char kSource[] = "jni/util/DtNlQueue.cpp";
const int kLineAllocationError = 40;

std::vector<UINT8> Bytes(UINT8 first, UINT32 count) {
  std::vector<UINT8> out(count);
  for (UINT32 i = 0; i < count; ++i) out[i] = static_cast<UINT8>(first + i);
  return out;
}

TEST(DtNlQueue, TransfersWrapAroundTheEndOfTheBuffer) {
  DtNlQueue q;
  ASSERT_TRUE(q.Initialize(8).IsSuccess());
  std::vector<UINT8> first = Bytes(1, 6);
  EXPECT_EQ(q.Enqueue(first.data(), 6), 6u);
  std::vector<UINT8> out(20, 0);
  EXPECT_EQ(q.Dequeue(out.data(), 4), 4u);
  EXPECT_EQ(std::vector<UINT8>(out.begin(), out.begin() + 4), Bytes(1, 4));
  // Two bytes fit before the end of the buffer, four more at its start.
  std::vector<UINT8> second = Bytes(101, 6);
  EXPECT_EQ(q.Enqueue(second.data(), 6), 6u);
  UINT8 more = 0xEE;
  EXPECT_EQ(q.Enqueue(&more, 1), 0u);  // full
  EXPECT_EQ(q.Dequeue(out.data(), 20), 8u);
  EXPECT_EQ(std::vector<UINT8>(out.begin(), out.begin() + 8),
            (std::vector<UINT8>{5, 6, 101, 102, 103, 104, 105, 106}));
  EXPECT_EQ(q.Dequeue(out.data(), 20), 0u);  // empty
}

TEST(DtNlQueue, EnqueueBeyondTheFreeSpaceAcceptsWhatFits) {
  DtNlQueue q;
  ASSERT_TRUE(q.Initialize(5).IsSuccess());
  std::vector<UINT8> in = Bytes(1, 9);
  EXPECT_EQ(q.Enqueue(in.data(), 9), 5u);
  std::vector<UINT8> out(9, 0);
  EXPECT_EQ(q.Dequeue(out.data(), 9), 5u);
  EXPECT_EQ(std::vector<UINT8>(out.begin(), out.begin() + 5), Bytes(1, 5));
}

TEST(DtNlQueue, ReinitialisingWithTheSameSizeKeepsTheBufferAndDiscardsTheContents) {
  DtNlQueue q;
  ASSERT_TRUE(q.Initialize(8).IsSuccess());
  std::vector<UINT8> in = Bytes(1, 5);
  q.Enqueue(in.data(), 5);
  g_nothrowArrayNewCalls = 0;
  EXPECT_TRUE(q.Initialize(8).IsSuccess());
  EXPECT_EQ(g_nothrowArrayNewCalls, 0);
  UINT8 out[8];
  EXPECT_EQ(q.Dequeue(out, 8), 0u);
  std::vector<UINT8> full = Bytes(1, 9);
  EXPECT_EQ(q.Enqueue(full.data(), 9), 8u);
}

TEST(DtNlQueue, ReinitialisingWithAnotherSizeReplacesTheBuffer) {
  DtNlQueue q;
  ASSERT_TRUE(q.Initialize(4).IsSuccess());
  g_nothrowArrayNewCalls = 0;
  EXPECT_TRUE(q.Initialize(6).IsSuccess());
  EXPECT_EQ(g_nothrowArrayNewCalls, 1);
  std::vector<UINT8> in = Bytes(1, 10);
  EXPECT_EQ(q.Enqueue(in.data(), 10), 6u);
}

TEST(DtNlQueue, ClearEmptiesTheQueue) {
  DtNlQueue q;
  ASSERT_TRUE(q.Initialize(4).IsSuccess());
  std::vector<UINT8> in = Bytes(1, 3);
  q.Enqueue(in.data(), 3);
  q.Clear();
  UINT8 out[4];
  EXPECT_EQ(q.Dequeue(out, 4), 0u);
  std::vector<UINT8> again = Bytes(1, 5);
  EXPECT_EQ(q.Enqueue(again.data(), 5), 4u);
}

TEST(DtNlQueue, TransfersOfZeroBytesMoveNothing) {
  DtNlQueue q;
  ASSERT_TRUE(q.Initialize(4).IsSuccess());
  UINT8 byte = 7;
  EXPECT_EQ(q.Enqueue(&byte, 0), 0u);
  EXPECT_EQ(q.Dequeue(&byte, 0), 0u);
  EXPECT_EQ(q.Dequeue(&byte, 1), 0u);
}

TEST(DtNlQueue, NullBuffersTransferNothing) {
  DtNlQueue q;
  ASSERT_TRUE(q.Initialize(4).IsSuccess());
  EXPECT_EQ(q.Enqueue(nullptr, 3), 0u);
  UINT8 byte = 9;
  ASSERT_EQ(q.Enqueue(&byte, 1), 1u);
  EXPECT_EQ(q.Dequeue(nullptr, 3), 0u);
  UINT8 out = 0;
  EXPECT_EQ(q.Dequeue(&out, 1), 1u);
  EXPECT_EQ(out, 9);
}

TEST(DtNlQueue, QueueBeforeInitializeTransfersNothing) {
  DtNlQueue q;
  UINT8 bytes[3] = {1, 2, 3};
  EXPECT_EQ(q.Enqueue(bytes, 3), 0u);
  EXPECT_EQ(q.Dequeue(bytes, 3), 0u);
}

TEST(DtNlQueue, SizeZeroReleasesTheBufferAndTransfersNothing) {
  DtNlQueue q;
  ASSERT_TRUE(q.Initialize(4).IsSuccess());
  EXPECT_TRUE(q.Initialize(0).IsSuccess());
  UINT8 bytes[3] = {1, 2, 3};
  EXPECT_EQ(q.Enqueue(bytes, 3), 0u);
  EXPECT_EQ(q.Dequeue(bytes, 3), 0u);
  EXPECT_TRUE(q.Initialize(2).IsSuccess());
  EXPECT_EQ(q.Enqueue(bytes, 3), 2u);
}

TEST(DtNlQueue, AllocationFailureLogsAndReportsNoMemoryWithEnomem) {
  DtNlQueue q;
  ASSERT_TRUE(q.Initialize(4).IsSuccess());
  DtNlStatus st;
  g_failNextNothrowArrayNew = true;
  std::string err = kpztest::CaptureStderr([&] { st = q.Initialize(16); });
  g_failNextNothrowArrayNew = false;
  EXPECT_EQ(err, kpztest::ErrLine(kSource, "Initialize", kLineAllocationError,
                                  "memory allocation error\n"));
  EXPECT_EQ(st.errCode, DtNlErrNoMemory);
  EXPECT_EQ(st.sysErrNo, ENOMEM);
  EXPECT_EQ(st.sysErrNo, 12);
  // The queue has no buffer any more and transfers nothing.
  UINT8 bytes[3] = {1, 2, 3};
  EXPECT_EQ(q.Enqueue(bytes, 3), 0u);
  EXPECT_EQ(q.Dequeue(bytes, 3), 0u);
  EXPECT_TRUE(q.Initialize(16).IsSuccess());
  EXPECT_EQ(q.Enqueue(bytes, 3), 3u);
}

// Random transfers across the wrap point against a std::deque model: every
// count returned and every byte delivered must match.
TEST(DtNlQueue, RandomTransfersMatchADequeModel) {
  std::mt19937 rng(4242u);
  DtNlQueue q;
  UINT32 capacity = 13;
  ASSERT_TRUE(q.Initialize(capacity).IsSuccess());
  std::deque<UINT8> model;
  std::vector<UINT8> buffer(64);
  UINT8 next = 0;
  for (int step = 0; step < 10000; ++step) {
    const unsigned op = std::uniform_int_distribution<unsigned>(0, 99)(rng);
    const UINT32 n = std::uniform_int_distribution<UINT32>(0, 2 * capacity + 2)(rng);
    if (op < 48) {
      for (UINT32 i = 0; i < n; ++i) buffer[i] = static_cast<UINT8>(next + i);
      const UINT32 room = capacity - static_cast<UINT32>(model.size());
      const UINT32 expected = n < room ? n : room;
      ASSERT_EQ(q.Enqueue(buffer.data(), n), expected) << "step " << step;
      for (UINT32 i = 0; i < expected; ++i) model.push_back(buffer[i]);
      next = static_cast<UINT8>(next + expected);
    } else if (op < 96) {
      const UINT32 held = static_cast<UINT32>(model.size());
      const UINT32 expected = n < held ? n : held;
      ASSERT_EQ(q.Dequeue(buffer.data(), n), expected) << "step " << step;
      for (UINT32 i = 0; i < expected; ++i) {
        ASSERT_EQ(buffer[i], model.front()) << "step " << step;
        model.pop_front();
      }
    } else if (op < 98) {
      q.Clear();
      model.clear();
    } else {
      capacity = std::uniform_int_distribution<UINT32>(1, 20)(rng);
      ASSERT_TRUE(q.Initialize(capacity).IsSuccess());
      model.clear();
    }
  }
}

}  // namespace
