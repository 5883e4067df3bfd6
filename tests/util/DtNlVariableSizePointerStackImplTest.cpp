// DtNlVariableSizePointerStackImplTest.cpp - the growable pointer stack: LIFO
// order, re-initialisation, allocation failure, every reachable assertion
// (a full stack ends the process instead of growing), and a random model test.
#include "util/DtNlVariableSizePointerStackImpl.h"

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

const char kSource[] = "jni/util/DtNlVariableSizePointerStackImpl.cpp";
const int kLineInitializeSizeZero = 40;
const int kLineInitializeStepZero = 41;
const int kLineInitializeNotEmpty = 42;
const int kLinePushTopNull = 66;
const int kLinePushFull = 70;
const int kLinePopTopNull = 84;

int a, b, c;

TEST(DtNlVariableSizePointerStackImpl, FreshStackHasNoCapacityAndNoItems) {
  DtNlVariableSizePointerStackImpl stack;
  EXPECT_EQ(stack.getSize(), 0);
  EXPECT_EQ(stack.getStackedCount(), 0);
}

TEST(DtNlVariableSizePointerStackImpl, InitializeReportsSuccessAndTheCapacity) {
  DtNlVariableSizePointerStackImpl stack;
  DtNlStatus st = stack.Initialize(4, 2);
  EXPECT_EQ(st.errCode, DtNlErrNone);
  EXPECT_EQ(st.sysErrNo, 0);
  EXPECT_EQ(stack.getSize(), 4);
  EXPECT_EQ(stack.getStackedCount(), 0);
}

TEST(DtNlVariableSizePointerStackImpl, InitializeWithTheSameSizeKeepsTheArray) {
  DtNlVariableSizePointerStackImpl stack;
  ASSERT_TRUE(stack.Initialize(4, 1).IsSuccess());
  g_nothrowArrayNewCalls = 0;
  EXPECT_TRUE(stack.Initialize(4, 3).IsSuccess());
  EXPECT_EQ(g_nothrowArrayNewCalls, 0);
  EXPECT_TRUE(stack.Initialize(8, 3).IsSuccess());
  EXPECT_EQ(g_nothrowArrayNewCalls, 1);
  EXPECT_EQ(stack.getSize(), 8);
}

TEST(DtNlVariableSizePointerStackImpl, PopsComeBackInReverseOrderThenNull) {
  DtNlVariableSizePointerStackImpl stack;
  ASSERT_TRUE(stack.Initialize(3, 1).IsSuccess());
  EXPECT_TRUE(stack.Push(&a).IsSuccess());
  EXPECT_TRUE(stack.Push(&b).IsSuccess());
  EXPECT_TRUE(stack.Push(&c).IsSuccess());
  EXPECT_EQ(stack.getStackedCount(), 3);
  EXPECT_EQ(stack.Pop(), &c);
  EXPECT_EQ(stack.Pop(), &b);
  EXPECT_EQ(stack.Pop(), &a);
  EXPECT_EQ(stack.Pop(), nullptr);
  EXPECT_EQ(stack.getStackedCount(), 0);
}

TEST(DtNlVariableSizePointerStackImpl, PopOnAnEmptyStackLogsNothing) {
  DtNlVariableSizePointerStackImpl stack;
  ASSERT_TRUE(stack.Initialize(2, 2).IsSuccess());
  void* got = &a;
  EXPECT_EQ(kpztest::CaptureStderr([&] { got = stack.Pop(); }), "");
  EXPECT_EQ(got, nullptr);
}

TEST(DtNlVariableSizePointerStackImpl, TwoSlotsAcceptTwoPushes) {
  DtNlVariableSizePointerStackImpl stack;
  ASSERT_TRUE(stack.Initialize(2, 4).IsSuccess());
  EXPECT_TRUE(stack.Push(&a).IsSuccess());
  EXPECT_TRUE(stack.Push(&b).IsSuccess());
  EXPECT_EQ(stack.getStackedCount(), 2);
  EXPECT_EQ(stack.getSize(), 2);
}

TEST(DtNlVariableSizePointerStackImpl, TooManySlotsGiveNoMemoryAndAnUninitialisedStack) {
  DtNlVariableSizePointerStackImpl stack;
  ASSERT_TRUE(stack.Initialize(4, 4).IsSuccess());
  DtNlStatus st = stack.Initialize(0x1FC00001u, 1);
  EXPECT_EQ(st.errCode, DtNlErrNoMemory);
  EXPECT_EQ(st.sysErrNo, 0);
  EXPECT_EQ(stack.getSize(), 0);
  EXPECT_EQ(stack.getStackedCount(), 0);
  EXPECT_TRUE(stack.Initialize(2, 1).IsSuccess());
  EXPECT_EQ(stack.getSize(), 2);
}

TEST(DtNlVariableSizePointerStackImpl, AllocationFailureGivesNoMemory) {
  DtNlVariableSizePointerStackImpl stack;
  g_failNextNothrowArrayNew = true;
  DtNlStatus st = stack.Initialize(4, 4);
  g_failNextNothrowArrayNew = false;
  EXPECT_EQ(st.errCode, DtNlErrNoMemory);
  EXPECT_EQ(st.sysErrNo, 0);
  EXPECT_EQ(stack.getSize(), 0);
}

TEST(DtNlVariableSizePointerStackImplDeathTest, InitializeWithSizeZeroEndsTheProcess) {
  DtNlVariableSizePointerStackImpl stack;
  EXPECT_EXIT(stack.Initialize(0, 1), testing::ExitedWithCode(255),
              testing::Eq(kpztest::AssertText(kSource, "Initialize", kLineInitializeSizeZero, "")));
}

TEST(DtNlVariableSizePointerStackImplDeathTest, InitializeWithStepZeroEndsTheProcess) {
  DtNlVariableSizePointerStackImpl stack;
  EXPECT_EXIT(stack.Initialize(4, 0), testing::ExitedWithCode(255),
              testing::Eq(kpztest::AssertText(kSource, "Initialize", kLineInitializeStepZero, "")));
}

TEST(DtNlVariableSizePointerStackImplDeathTest, InitializeOnANonEmptyStackEndsTheProcess) {
  DtNlVariableSizePointerStackImpl stack;
  ASSERT_TRUE(stack.Initialize(2, 1).IsSuccess());
  stack.Push(&a);
  EXPECT_EXIT(stack.Initialize(2, 1), testing::ExitedWithCode(255),
              testing::Eq(kpztest::AssertText(kSource, "Initialize", kLineInitializeNotEmpty, "")));
}

TEST(DtNlVariableSizePointerStackImplDeathTest, PushBeforeInitializeEndsTheProcess) {
  DtNlVariableSizePointerStackImpl stack;
  EXPECT_EXIT(stack.Push(&a), testing::ExitedWithCode(255),
              testing::Eq(kpztest::AssertText(kSource, "Push", kLinePushTopNull, "")));
}

TEST(DtNlVariableSizePointerStackImplDeathTest, ThirdPushOntoTwoSlotsEndsTheProcess) {
  DtNlVariableSizePointerStackImpl stack;
  ASSERT_TRUE(stack.Initialize(2, 4).IsSuccess());
  stack.Push(&a);
  stack.Push(&b);
  EXPECT_EXIT(stack.Push(&c), testing::ExitedWithCode(255),
              testing::Eq(kpztest::AssertText(kSource, "Push", kLinePushFull, "")));
}

TEST(DtNlVariableSizePointerStackImplDeathTest, PopBeforeInitializeEndsTheProcess) {
  DtNlVariableSizePointerStackImpl stack;
  EXPECT_EXIT(stack.Pop(), testing::ExitedWithCode(255),
              testing::Eq(kpztest::AssertText(kSource, "Pop", kLinePopTopNull, "")));
}

// Random pushes, pops and re-initialisations of the empty stack against a
// std::vector model, checking capacity and count after every step.
TEST(DtNlVariableSizePointerStackImpl, RandomOperationsMatchAVectorModel) {
  std::mt19937 rng(11u);
  int items[32] = {};
  DtNlVariableSizePointerStackImpl stack;
  UINT32 capacity = 6;
  ASSERT_TRUE(stack.Initialize(capacity, 3).IsSuccess());
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
      ASSERT_TRUE(stack.Initialize(capacity, 1 + capacity % 3).IsSuccess());
    }
    ASSERT_EQ(stack.getSize(), static_cast<int>(capacity)) << "step " << step;
    ASSERT_EQ(stack.getStackedCount(), static_cast<int>(model.size())) << "step " << step;
  }
}

}  // namespace
