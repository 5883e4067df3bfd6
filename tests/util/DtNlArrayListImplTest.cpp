// DtNlArrayListImplTest.cpp - the contiguous pointer list: one-slot growth,
// shifts, refusals, the unsigned index wrap on an empty list, EnsureCapacity
// shrinking, allocation failures, and a random model test of contents and the
// exact capacity rule.
#include "util/DtNlArrayListImpl.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <new>
#include <random>
#include <vector>

// Test-local replacement of the non-throwing array allocation, so that a test
// can make the next such allocation fail. Unarmed it behaves as the default.
namespace {
int g_failNothrowArrayNewAt = 0;  // 1 = the next call fails; 0 = never
}  // namespace

void* operator new[](std::size_t bytes, const std::nothrow_t&) noexcept {
  if (g_failNothrowArrayNewAt > 0) {
    --g_failNothrowArrayNewAt;
    if (g_failNothrowArrayNewAt == 0) {
      return nullptr;
    }
  }
  try {
    return ::operator new[](bytes);
  } catch (...) {
    return nullptr;
  }
}

namespace {

struct AllocationFailure {
  explicit AllocationFailure(int nth) { g_failNothrowArrayNewAt = nth; }
  ~AllocationFailure() { g_failNothrowArrayNewAt = 0; }
  AllocationFailure(const AllocationFailure&) = delete;
  AllocationFailure& operator=(const AllocationFailure&) = delete;
};

int a, b, c, d, x;

std::vector<void*> Contents(const DtNlArrayListImpl& list) {
  std::vector<void*> out;
  for (UINT32 i = 0; i < list.GetSize(); ++i) {
    out.push_back(list.Get(i));
  }
  return out;
}

TEST(DtNlArrayListImpl, NewListIsEmptyWithTheRequestedCapacity) {
  DtNlArrayListImpl list(5);
  EXPECT_EQ(list.GetSize(), 0u);
  EXPECT_EQ(list.GetCapacity(), 5u);
  EXPECT_EQ(list.IsEmpty(), 1u);
}

TEST(DtNlArrayListImpl, FullListGrowsByExactlyOneSlotPerInsertion) {
  DtNlArrayListImpl list(2);
  list.AddTail(&a);
  list.AddTail(&b);
  EXPECT_EQ(list.GetCapacity(), 2u);
  EXPECT_EQ(list.AddTail(&c), &c);
  EXPECT_EQ(list.GetCapacity(), 3u);
  EXPECT_EQ(list.AddHead(&d), &d);
  EXPECT_EQ(list.GetCapacity(), 4u);
  EXPECT_EQ(Contents(list), (std::vector<void*>{&d, &a, &b, &c}));
  EXPECT_EQ(list.IsEmpty(), 0u);
}

TEST(DtNlArrayListImpl, ZeroCapacityListGrowsOnFirstAdd) {
  DtNlArrayListImpl list(0);
  EXPECT_EQ(list.GetCapacity(), 0u);
  EXPECT_EQ(list.Head(), nullptr);
  EXPECT_EQ(list.AddTail(&a), &a);
  EXPECT_EQ(list.GetCapacity(), 1u);
  EXPECT_EQ(list.Head(), &a);
}

TEST(DtNlArrayListImpl, AddInTheMiddleShiftsLaterElementsUp) {
  DtNlArrayListImpl list(4);
  list.AddTail(&a);
  list.AddTail(&b);
  list.AddTail(&c);
  EXPECT_EQ(list.Add(&x, 1), &x);
  EXPECT_EQ(Contents(list), (std::vector<void*>{&a, &x, &b, &c}));
  EXPECT_EQ(list.GetCapacity(), 4u);
}

TEST(DtNlArrayListImpl, AddBeyondTheSizeIsRefusedAndChangesNothing) {
  DtNlArrayListImpl list(4);
  list.AddTail(&a);
  list.AddTail(&b);
  EXPECT_EQ(list.Add(&x, 3), nullptr);
  EXPECT_EQ(list.GetSize(), 2u);
  EXPECT_EQ(list.GetCapacity(), 4u);
  EXPECT_EQ(Contents(list), (std::vector<void*>{&a, &b}));
}

TEST(DtNlArrayListImpl, AddingANullPointerSucceedsButReturnsNull) {
  DtNlArrayListImpl list(1);
  EXPECT_EQ(list.AddTail(nullptr), nullptr);
  EXPECT_EQ(list.GetSize(), 1u);
}

TEST(DtNlArrayListImpl, RemoveInTheMiddleShiftsDownAndKeepsTheCapacity) {
  DtNlArrayListImpl list(3);
  list.AddTail(&a);
  list.AddTail(&b);
  list.AddTail(&c);
  EXPECT_EQ(list.Remove(static_cast<UINT32>(1)), &b);
  EXPECT_EQ(Contents(list), (std::vector<void*>{&a, &c}));
  EXPECT_EQ(list.GetCapacity(), 3u);
  // Slot 2 is null again: once the list is emptied, every slot reads null.
  list.RemoveTail();
  list.RemoveTail();
  EXPECT_EQ(list.Get(2), nullptr);
}

TEST(DtNlArrayListImpl, RemoveAtOrBeyondTheSizeReturnsNull) {
  DtNlArrayListImpl list(3);
  list.AddTail(&a);
  EXPECT_EQ(list.Remove(static_cast<UINT32>(1)), nullptr);
  EXPECT_EQ(list.Remove(static_cast<UINT32>(0xFFFFFFFFu)), nullptr);
  EXPECT_EQ(list.GetSize(), 1u);
}

TEST(DtNlArrayListImpl, GetAtTheSizeReturnsNullOnANonEmptyList) {
  DtNlArrayListImpl list(4);
  list.AddTail(&a);
  list.AddTail(&b);
  EXPECT_EQ(list.Get(1), &b);
  EXPECT_EQ(list.Get(2), nullptr);
}

TEST(DtNlArrayListImpl, GetOnAnEmptyListReadsTheNullSlots) {
  DtNlArrayListImpl list(4);
  for (UINT32 i = 0; i < 4; ++i) {
    EXPECT_EQ(list.Get(i), nullptr) << i;
  }
}

TEST(DtNlArrayListImpl, GetOnAnEmptyListNeverReadsBeyondTheArray) {
  DtNlArrayListImpl list(4);
  EXPECT_EQ(list.Get(4), nullptr);
  EXPECT_EQ(list.Get(0xFFFFFFFEu), nullptr);
  DtNlArrayListImpl none(0);
  EXPECT_EQ(none.Get(0), nullptr);
}

TEST(DtNlArrayListImpl, HeadAndTailAreTheEndElements) {
  DtNlArrayListImpl list(3);
  list.AddTail(&a);
  list.AddTail(&b);
  list.AddTail(&c);
  EXPECT_EQ(list.Head(), &a);
  EXPECT_EQ(list.Tail(), &c);
}

TEST(DtNlArrayListImpl, TailOfAnEmptyListIsNull) {
  DtNlArrayListImpl list(3);
  EXPECT_EQ(list.Tail(), nullptr);
  DtNlArrayListImpl none(0);
  EXPECT_EQ(none.Tail(), nullptr);
  EXPECT_EQ(none.Head(), nullptr);
}

TEST(DtNlArrayListImpl, EnsureCapacityShrinksANonFullListDownToItsSize) {
  DtNlArrayListImpl list(8);
  list.AddTail(&a);
  list.AddTail(&b);
  list.AddTail(&c);
  list.EnsureCapacity(1);
  EXPECT_EQ(list.GetCapacity(), 3u);
  EXPECT_EQ(Contents(list), (std::vector<void*>{&a, &b, &c}));
}

TEST(DtNlArrayListImpl, EnsureCapacityShrinksToTheRequestWhenItExceedsTheSize) {
  DtNlArrayListImpl list(8);
  list.AddTail(&a);
  list.EnsureCapacity(5);
  EXPECT_EQ(list.GetCapacity(), 5u);
  EXPECT_EQ(Contents(list), (std::vector<void*>{&a}));
}

TEST(DtNlArrayListImpl, EnsureCapacityNeverShrinksAFullList) {
  DtNlArrayListImpl list(8);
  for (int i = 0; i < 8; ++i) {
    list.AddTail(&a);
  }
  list.EnsureCapacity(1);
  EXPECT_EQ(list.GetCapacity(), 8u);
  EXPECT_EQ(list.GetSize(), 8u);
}

TEST(DtNlArrayListImpl, EnsureCapacityGrowsAndKeepsTheElements) {
  DtNlArrayListImpl list(2);
  list.AddTail(&a);
  list.AddTail(&b);
  list.EnsureCapacity(10);
  EXPECT_EQ(list.GetCapacity(), 10u);
  EXPECT_EQ(Contents(list), (std::vector<void*>{&a, &b}));
  for (UINT32 i = 2; i < 10; ++i) {
    list.AddTail(&c);
  }
  EXPECT_EQ(list.GetCapacity(), 10u);
}

TEST(DtNlArrayListImpl, EnsureCapacityOfTheCurrentCapacityDoesNothing) {
  DtNlArrayListImpl list(4);
  list.AddTail(&a);
  list.EnsureCapacity(4);
  EXPECT_EQ(list.GetCapacity(), 4u);
}

TEST(DtNlArrayListImpl, EnsureCapacityZeroOnAnEmptyListLeavesNoSlots) {
  DtNlArrayListImpl list(4);
  list.EnsureCapacity(0);
  EXPECT_EQ(list.GetCapacity(), 0u);
  EXPECT_EQ(list.Get(0), nullptr);
  EXPECT_EQ(list.AddTail(&a), &a);
  EXPECT_EQ(list.GetCapacity(), 1u);
}

TEST(DtNlArrayListImpl, IndexOfFindsTheLowerOfTwoEqualPointers) {
  DtNlArrayListImpl list(4);
  list.AddTail(&a);
  list.AddTail(&b);
  list.AddTail(&c);
  list.AddTail(&b);
  EXPECT_EQ(list.IndexOf(&b), 1);
  EXPECT_EQ(list.IndexOf(&x), -1);
  EXPECT_EQ(list.Remove(static_cast<const void*>(&b)), &b);
  EXPECT_EQ(Contents(list), (std::vector<void*>{&a, &c, &b}));
}

TEST(DtNlArrayListImpl, RemoveOfAPointerNotHeldReturnsNull) {
  DtNlArrayListImpl list(2);
  list.AddTail(&a);
  EXPECT_EQ(list.Remove(static_cast<const void*>(&x)), nullptr);
  EXPECT_EQ(list.GetSize(), 1u);
}

TEST(DtNlArrayListImpl, RemoveHeadAndRemoveTailOnAnEmptyListReturnNull) {
  DtNlArrayListImpl list(2);
  EXPECT_EQ(list.RemoveHead(), nullptr);
  EXPECT_EQ(list.RemoveTail(), nullptr);
  EXPECT_EQ(list.GetSize(), 0u);
}

TEST(DtNlArrayListImpl, RemoveHeadAndRemoveTailTakeTheEnds) {
  DtNlArrayListImpl list(3);
  list.AddTail(&a);
  list.AddTail(&b);
  list.AddTail(&c);
  EXPECT_EQ(list.RemoveHead(), &a);
  EXPECT_EQ(list.RemoveTail(), &c);
  EXPECT_EQ(Contents(list), (std::vector<void*>{&b}));
}

TEST(DtNlArrayListImpl, ClearNullsEverySlotAndKeepsTheArray) {
  DtNlArrayListImpl list(3);
  list.AddTail(&a);
  list.AddTail(&b);
  list.Clear();
  EXPECT_EQ(list.GetSize(), 0u);
  EXPECT_EQ(list.GetCapacity(), 3u);
  EXPECT_EQ(list.Get(0), nullptr);
  EXPECT_EQ(list.Get(1), nullptr);
}

TEST(DtNlArrayListImpl, ListTooLargeToAllocateStartsWithNoSlots) {
  DtNlArrayListImpl list(0x1FC00001u);
  EXPECT_EQ(list.GetCapacity(), 0u);
  EXPECT_EQ(list.GetSize(), 0u);
  EXPECT_EQ(list.Get(0), nullptr);
  EXPECT_EQ(list.AddTail(&a), &a);
  EXPECT_EQ(list.GetCapacity(), 1u);
}

TEST(DtNlArrayListImpl, EnsureCapacityTooLargeToAllocateLeavesTheListUnchanged) {
  DtNlArrayListImpl list(2);
  list.AddTail(&a);
  list.EnsureCapacity(0x1FC00001u);
  EXPECT_EQ(list.GetCapacity(), 2u);
  EXPECT_EQ(Contents(list), (std::vector<void*>{&a}));
}

TEST(DtNlArrayListImpl, ConstructorAllocationFailureLeavesAnEmptyListWithNoSlots) {
  AllocationFailure fail(1);
  DtNlArrayListImpl list(4);
  EXPECT_EQ(list.GetCapacity(), 0u);
  EXPECT_EQ(list.Get(3), nullptr);
}

TEST(DtNlArrayListImpl, AddIntoAFullListIsRefusedWhenTheGrowthFails) {
  DtNlArrayListImpl list(1);
  list.AddTail(&a);
  {
    AllocationFailure fail(1);
    EXPECT_EQ(list.AddTail(&b), nullptr);
  }
  EXPECT_EQ(list.GetSize(), 1u);
  EXPECT_EQ(list.GetCapacity(), 1u);
  EXPECT_EQ(Contents(list), (std::vector<void*>{&a}));
}

TEST(DtNlArrayListImpl, ShiftsStillHappenWhenTheTemporaryCannotBeAllocated) {
  DtNlArrayListImpl list(5);
  list.AddTail(&a);
  list.AddTail(&b);
  list.AddTail(&c);
  {
    AllocationFailure fail(1);  // the shift's temporary
    EXPECT_EQ(list.AddHead(&d), &d);
  }
  EXPECT_EQ(Contents(list), (std::vector<void*>{&d, &a, &b, &c}));
  {
    AllocationFailure fail(1);
    EXPECT_EQ(list.Remove(static_cast<UINT32>(0)), &d);
  }
  EXPECT_EQ(Contents(list), (std::vector<void*>{&a, &b, &c}));
  EXPECT_EQ(list.GetCapacity(), 5u);
}

// Drives the list with random operations against a std::vector model and the
// exact capacity rule.
TEST(DtNlArrayListImpl, RandomOperationsMatchAVectorModel) {
  std::mt19937 rng(20240611u);
  int items[16] = {};
  DtNlArrayListImpl list(3);
  std::vector<void*> model;
  UINT32 capacity = 3;
  auto pick = [&](UINT32 bound) {  // 0..bound inclusive
    return static_cast<UINT32>(std::uniform_int_distribution<UINT32>(0, bound)(rng));
  };
  for (int step = 0; step < 10000; ++step) {
    const UINT32 size = static_cast<UINT32>(model.size());
    void* item = (pick(15) == 0) ? nullptr : static_cast<void*>(&items[pick(15)]);
    // Bias toward removal when the list is long, to keep it short.
    const UINT32 op = pick(size > 40 ? 11 : 9);
    switch (op) {
      case 0:
      case 1: {
        const UINT32 index = pick(size + 1);
        const void* got = list.Add(item, index);
        if (index > size) {
          ASSERT_EQ(got, nullptr);
        } else {
          ASSERT_EQ(got, item);
          if (size + 1 > capacity) capacity = size + 1;
          model.insert(model.begin() + static_cast<std::ptrdiff_t>(index), item);
        }
        break;
      }
      case 2:
        ASSERT_EQ(list.AddHead(item), item);
        if (size + 1 > capacity) capacity = size + 1;
        model.insert(model.begin(), item);
        break;
      case 3:
        ASSERT_EQ(list.AddTail(item), item);
        if (size + 1 > capacity) capacity = size + 1;
        model.push_back(item);
        break;
      case 4:
      case 10: {
        const UINT32 index = pick(size + 1);
        void* got = list.Remove(index);
        if (index >= size) {
          ASSERT_EQ(got, nullptr);
        } else {
          ASSERT_EQ(got, model[index]);
          model.erase(model.begin() + static_cast<std::ptrdiff_t>(index));
        }
        break;
      }
      case 5: {
        auto it = std::find(model.begin(), model.end(), item);
        ASSERT_EQ(list.IndexOf(item),
                  it == model.end() ? -1 : static_cast<int>(it - model.begin()));
        void* got = list.Remove(static_cast<const void*>(item));
        if (it == model.end()) {
          ASSERT_EQ(got, nullptr);
        } else {
          ASSERT_EQ(got, item);
          model.erase(it);
        }
        break;
      }
      case 6:
        ASSERT_EQ(list.RemoveHead(), size == 0 ? nullptr : model.front());
        if (size != 0) model.erase(model.begin());
        break;
      case 7:
      case 11:
        ASSERT_EQ(list.RemoveTail(), size == 0 ? nullptr : model.back());
        if (size != 0) model.pop_back();
        break;
      case 8: {
        const UINT32 n = pick(size + 6);
        list.EnsureCapacity(n);
        if (n != capacity && !(n < capacity && size == capacity)) {
          capacity = n > size ? n : size;
        }
        break;
      }
      default:
        if (pick(50) == 0) {
          list.Clear();
          model.clear();
        }
        break;
    }
    ASSERT_EQ(list.GetSize(), model.size()) << "step " << step;
    ASSERT_EQ(list.GetCapacity(), capacity) << "step " << step;
    ASSERT_EQ(list.IsEmpty(), model.empty() ? 1u : 0u);
    ASSERT_EQ(Contents(list), model) << "step " << step;
    if (model.empty()) {
      // Every slot of an empty list reads null.
      for (UINT32 i = 0; i < capacity; ++i) ASSERT_EQ(list.Get(i), nullptr);
    } else {
      ASSERT_EQ(list.Head(), model.front());
      ASSERT_EQ(list.Tail(), model.back());
    }
  }
}

}  // namespace
