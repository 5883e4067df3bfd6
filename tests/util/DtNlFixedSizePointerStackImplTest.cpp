// DtNlFixedSizePointerStackImplTest.cpp - the fixed pointer stack: LIFO
// order, re-initialisation, allocation failure, every reachable assertion and
// a random model test.
#include "util/DtNlFixedSizePointerStackImpl.h"

#include <gtest/gtest.h>

#include <cstddef>
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

const char kSource[] = "jni/util/DtNlFixedSizePointerStackImpl.cpp";
const int kLineInitializeSizeZero = 32;
const int kLineInitializeNotEmpty = 33;
const int kLinePushTopNull = 54;
const int kLinePushFull = 56;
const int kLinePopTopNull = 63;

int a, b, c;

TEST(DtNlFixedSizePointerStackImpl, FreshStackHasNoCapacity) {
  DtNlFixedSizePointerStackImpl stack;
  EXPECT_EQ(stack.getSize(), 0);
}

TEST(DtNlFixedSizePointerStackImpl, InitializeReportsSuccessAndTheCapacity) {
  DtNlFixedSizePointerStackImpl stack;
  DtNlStatus st = stack.Initialize(4);
  EXPECT_EQ(st.errCode, DtNlErrNone);
  EXPECT_EQ(st.sysErrNo, 0);
  EXPECT_EQ(stack.getSize(), 4);
}

TEST(DtNlFixedSizePointerStackImpl, InitializeWithTheSameSizeKeepsTheArray) {
  DtNlFixedSizePointerStackImpl stack;
  ASSERT_TRUE(stack.Initialize(4).IsSuccess());
  g_nothrowArrayNewCalls = 0;
  EXPECT_TRUE(stack.Initialize(4).IsSuccess());
  EXPECT_EQ(g_nothrowArrayNewCalls, 0);
  EXPECT_TRUE(stack.Initialize(8).IsSuccess());
  EXPECT_EQ(g_nothrowArrayNewCalls, 1);
  EXPECT_EQ(stack.getSize(), 8);
}

TEST(DtNlFixedSizePointerStackImpl, PopsComeBackInReverseOrderThenNull) {
  DtNlFixedSizePointerStackImpl stack;
  ASSERT_TRUE(stack.Initialize(3).IsSuccess());
  EXPECT_TRUE(stack.Push(&a).IsSuccess());
  EXPECT_TRUE(stack.Push(&b).IsSuccess());
  EXPECT_TRUE(stack.Push(&c).IsSuccess());
  EXPECT_EQ(stack.Pop(), &c);
  EXPECT_EQ(stack.Pop(), &b);
  EXPECT_EQ(stack.Pop(), &a);
  EXPECT_EQ(stack.Pop(), nullptr);
}

TEST(DtNlFixedSizePointerStackImpl, PopOnAnEmptyStackLogsNothing) {
  DtNlFixedSizePointerStackImpl stack;
  ASSERT_TRUE(stack.Initialize(2).IsSuccess());
  void* got = &a;
  EXPECT_EQ(kpztest::CaptureStderr([&] { got = stack.Pop(); }), "");
  EXPECT_EQ(got, nullptr);
}

TEST(DtNlFixedSizePointerStackImpl, TooManySlotsGiveNoMemoryAndAnUninitialisedStack) {
  DtNlFixedSizePointerStackImpl stack;
  ASSERT_TRUE(stack.Initialize(4).IsSuccess());
  DtNlStatus st = stack.Initialize(0x1FC00001u);
  EXPECT_EQ(st.errCode, DtNlErrNoMemory);
  EXPECT_EQ(st.sysErrNo, 0);
  EXPECT_EQ(stack.getSize(), 0);
  // The stack can be initialised again afterwards.
  EXPECT_TRUE(stack.Initialize(2).IsSuccess());
  EXPECT_EQ(stack.getSize(), 2);
}

TEST(DtNlFixedSizePointerStackImpl, AllocationFailureGivesNoMemory) {
  DtNlFixedSizePointerStackImpl stack;
  g_failNextNothrowArrayNew = true;
  DtNlStatus st = stack.Initialize(4);
  g_failNextNothrowArrayNew = false;
  EXPECT_EQ(st.errCode, DtNlErrNoMemory);
  EXPECT_EQ(st.sysErrNo, 0);
  EXPECT_EQ(stack.getSize(), 0);
}

TEST(DtNlFixedSizePointerStackImplDeathTest, InitializeWithSizeZeroEndsTheProcess) {
  DtNlFixedSizePointerStackImpl stack;
  EXPECT_EXIT(stack.Initialize(0), testing::ExitedWithCode(255),
              testing::Eq(kpztest::AssertText(kSource, "Initialize", kLineInitializeSizeZero, "")));
}

TEST(DtNlFixedSizePointerStackImplDeathTest, InitializeOnANonEmptyStackEndsTheProcess) {
  DtNlFixedSizePointerStackImpl stack;
  ASSERT_TRUE(stack.Initialize(2).IsSuccess());
  stack.Push(&a);
  EXPECT_EXIT(stack.Initialize(2), testing::ExitedWithCode(255),
              testing::Eq(kpztest::AssertText(kSource, "Initialize", kLineInitializeNotEmpty, "")));
}

TEST(DtNlFixedSizePointerStackImplDeathTest, PushBeforeInitializeEndsTheProcess) {
  DtNlFixedSizePointerStackImpl stack;
  EXPECT_EXIT(stack.Push(&a), testing::ExitedWithCode(255),
              testing::Eq(kpztest::AssertText(kSource, "Push", kLinePushTopNull, "")));
}

TEST(DtNlFixedSizePointerStackImplDeathTest, PushOntoAFullStackEndsTheProcess) {
  DtNlFixedSizePointerStackImpl stack;
  ASSERT_TRUE(stack.Initialize(2).IsSuccess());
  stack.Push(&a);
  stack.Push(&b);
  EXPECT_EXIT(stack.Push(&c), testing::ExitedWithCode(255),
              testing::Eq(kpztest::AssertText(kSource, "Push", kLinePushFull, "")));
}

TEST(DtNlFixedSizePointerStackImplDeathTest, PopBeforeInitializeEndsTheProcess) {
  DtNlFixedSizePointerStackImpl stack;
  EXPECT_EXIT(stack.Pop(), testing::ExitedWithCode(255),
              testing::Eq(kpztest::AssertText(kSource, "Pop", kLinePopTopNull, "")));
}

// Random pushes, pops and re-initialisations of the empty stack against a
// std::vector model.
TEST(DtNlFixedSizePointerStackImpl, RandomOperationsMatchAVectorModel) {
  std::mt19937 rng(7u);
  int items[32] = {};
  DtNlFixedSizePointerStackImpl stack;
  UINT32 capacity = 5;
  ASSERT_TRUE(stack.Initialize(capacity).IsSuccess());
  std::vector<void*> model;
  for (int step = 0; step < 10000; ++step) {
    const unsigned op = std::uniform_int_distribution<unsigned>(0, 9)(rng);
    if (op < 5 && model.size() < capacity) {
      void* item = &items[std::uniform_int_distribution<unsigned>(0, 31)(rng)];
      ASSERT_TRUE(stack.Push(item).IsSuccess());
      model.push_back(item);
    } else if (op < 9) {
      void* expected = model.empty() ? nullptr : model.back();
      ASSERT_EQ(stack.Pop(), expected) << "step " << step;
      if (!model.empty()) model.pop_back();
    } else if (model.empty()) {
      capacity = std::uniform_int_distribution<UINT32>(1, 12)(rng);
      ASSERT_TRUE(stack.Initialize(capacity).IsSuccess());
    }
    ASSERT_EQ(stack.getSize(), static_cast<int>(capacity)) << "step " << step;
  }
  while (!model.empty()) {
    ASSERT_EQ(stack.Pop(), model.back());
    model.pop_back();
  }
  EXPECT_EQ(stack.Pop(), nullptr);
}

}  // namespace
