#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "util/DtNlListImpl.h"

namespace {

const UINT32 kNoKey = 0xFFFFFFFFu;

typedef std::vector<std::pair<const void*, UINT32>> Elements;

// Checks every invariant of `list` against the expected elements, in order:
// the forward walk visits exactly them and comes back to the end node, every
// prev link is the reverse of a next link, the backward walk is the exact
// reverse, the size matches, and the end node keeps its null value and no key.
// Every walk is bounded, so a broken link fails the test instead of looping.
void ExpectList(const DtNlListImpl& list, const Elements& want) {
  DtNlNode* end = list.GetEndNode();
  ASSERT_EQ(end, static_cast<const DtNlNode*>(&list));
  EXPECT_EQ(end->value, nullptr);
  EXPECT_EQ(end->key, kNoKey);
  EXPECT_EQ(list.GetSize(), want.size());
  EXPECT_EQ(list.GetBeginNode(), end->next);

  Elements forward;
  DtNlNode* node = list.GetBeginNode();
  for (size_t steps = 0; node != end; ++steps) {
    ASSERT_LE(steps, want.size()) << "forward walk does not return to the end node";
    ASSERT_NE(node, nullptr);
    ASSERT_NE(node->next, nullptr);
    ASSERT_EQ(node->next->prev, node) << "next/prev round trip broken";
    forward.emplace_back(node->value, node->key);
    node = node->next;
  }
  ASSERT_EQ(end->next->prev, end);
  EXPECT_EQ(forward, want);

  Elements backward;
  node = end->prev;
  for (size_t steps = 0; node != end; ++steps) {
    ASSERT_LE(steps, want.size()) << "backward walk does not return to the end node";
    ASSERT_NE(node, nullptr);
    ASSERT_NE(node->prev, nullptr);
    ASSERT_EQ(node->prev->next, node) << "prev/next round trip broken";
    backward.emplace(backward.begin(), node->value, node->key);
    node = node->prev;
  }
  EXPECT_EQ(backward, want);

  if (want.empty()) {
    EXPECT_EQ(end->next, end);
    EXPECT_EQ(end->prev, end);
    EXPECT_EQ(list.GetBeginNode(), list.GetEndNode());
  }
}

struct Values {
  int a = 1, b = 2, c = 3, d = 4, e = 5;
};

TEST(DtNlListImpl, NewListIsEmptyAndItsOwnEndNode) {
  DtNlListImpl list;
  EXPECT_EQ(list.GetBeginNode(), list.GetEndNode());
  EXPECT_EQ(list.GetSize(), 0u);
  EXPECT_EQ(list.Find(5), nullptr);
  EXPECT_EQ(list.Find(kNoKey), nullptr);
  ExpectList(list, {});
}

TEST(DtNlListImpl, NoKeyIsAllOnes) { EXPECT_EQ(DtNlListImpl::NO_KEY, 0xFFFFFFFFu); }

TEST(DtNlListImpl, PushBackAppendsAndPushFrontPrepends) {
  Values v;
  DtNlListImpl list;
  DtNlNode* na = list.PushBack(&v.a, 1);
  ASSERT_NE(na, nullptr);
  EXPECT_EQ(na->value, &v.a);
  EXPECT_EQ(na->key, 1u);
  ExpectList(list, {{&v.a, 1}});
  ASSERT_NE(list.PushBack(&v.b, 2), nullptr);
  ExpectList(list, {{&v.a, 1}, {&v.b, 2}});
  DtNlNode* nc = list.PushFront(&v.c, 3);
  ASSERT_NE(nc, nullptr);
  EXPECT_EQ(list.GetBeginNode(), nc);
  ExpectList(list, {{&v.c, 3}, {&v.a, 1}, {&v.b, 2}});
}

TEST(DtNlListImpl, PushWithADuplicateKeyIsRefusedAndChangesNothing) {
  Values v;
  DtNlListImpl list;
  list.PushBack(&v.a, 1);
  list.PushBack(&v.b, 2);
  list.PushFront(&v.c, 3);
  EXPECT_EQ(list.PushBack(&v.d, 2), nullptr);
  EXPECT_EQ(list.GetSize(), 3u);
  EXPECT_EQ(list.PushFront(&v.d, 1), nullptr);
  EXPECT_EQ(list.Insert(list.GetBeginNode(), &v.d, 3), nullptr);
  ExpectList(list, {{&v.c, 3}, {&v.a, 1}, {&v.b, 2}});
}

TEST(DtNlListImpl, DuplicateKeyIsFoundWhereverThePositionIs) {
  Values v;
  DtNlListImpl list;
  DtNlNode* first = list.PushBack(&v.a, 10);
  list.PushBack(&v.b, 20);
  DtNlNode* last = list.PushBack(&v.c, 30);
  // The key 10 sits before the position, the key 30 at it.
  EXPECT_EQ(list.Insert(last, &v.d, 10), nullptr);
  EXPECT_EQ(list.Insert(first, &v.d, 30), nullptr);
  ExpectList(list, {{&v.a, 10}, {&v.b, 20}, {&v.c, 30}});
}

TEST(DtNlListImpl, InsertLinksTheNewNodeImmediatelyBeforeThePosition) {
  Values v;
  DtNlListImpl list;
  list.PushBack(&v.a, 1);
  DtNlNode* nb = list.PushBack(&v.b, 2);
  DtNlNode* ne = list.Insert(nb, &v.e, 5);
  ASSERT_NE(ne, nullptr);
  EXPECT_EQ(ne->next, nb);
  EXPECT_EQ(nb->prev, ne);
  ExpectList(list, {{&v.a, 1}, {&v.e, 5}, {&v.b, 2}});
  ASSERT_NE(list.Insert(list.GetEndNode(), &v.c, 3), nullptr);
  ExpectList(list, {{&v.a, 1}, {&v.e, 5}, {&v.b, 2}, {&v.c, 3}});
}

TEST(DtNlListImpl, InsertIntoAnEmptyListAtTheEndNode) {
  Values v;
  DtNlListImpl list;
  ASSERT_NE(list.Insert(list.GetEndNode(), &v.a, 7), nullptr);
  ExpectList(list, {{&v.a, 7}});
}

TEST(DtNlListImpl, InsertWithANullPositionIsRefused) {
  Values v;
  DtNlListImpl list;
  list.PushBack(&v.a, 1);
  EXPECT_EQ(list.Insert(nullptr, &v.b, 2), nullptr);
  EXPECT_EQ(list.Insert(nullptr, &v.b, kNoKey), nullptr);
  ExpectList(list, {{&v.a, 1}});
}

TEST(DtNlListImpl, NullValueIsStoredLikeAnyOther) {
  DtNlListImpl list;
  ASSERT_NE(list.PushBack(nullptr, 4), nullptr);
  ExpectList(list, {{nullptr, 4}});
  EXPECT_EQ(list.EraseNode(list.Find(4)), nullptr);
  ExpectList(list, {});
}

TEST(DtNlListImpl, UnkeyedElementsMayRepeatAndFindReturnsTheFirst) {
  Values v;
  DtNlListImpl list;
  list.PushBack(&v.a, 1);
  DtNlNode* x1 = list.PushBack(&v.b, kNoKey);
  DtNlNode* x2 = list.PushBack(&v.c, kNoKey);
  ASSERT_NE(x1, nullptr);
  ASSERT_NE(x2, nullptr);
  EXPECT_EQ(list.Find(kNoKey), x1);
  EXPECT_EQ(list.Find(kNoKey, x1->next), x2);
  EXPECT_EQ(list.Find(kNoKey, x2->next), nullptr);  // the end node's key is never compared
  ExpectList(list, {{&v.a, 1}, {&v.b, kNoKey}, {&v.c, kNoKey}});
}

TEST(DtNlListImpl, FindReturnsTheNodeWithTheKey) {
  Values v;
  DtNlListImpl list;
  DtNlNode* na = list.PushBack(&v.a, 0);
  DtNlNode* nb = list.PushBack(&v.b, 0x0112);
  DtNlNode* nc = list.PushBack(&v.c, 0xFFFFFFFEu);
  EXPECT_EQ(list.Find(0), na);
  EXPECT_EQ(list.Find(0x0112), nb);
  EXPECT_EQ(list.Find(0xFFFFFFFEu), nc);
  EXPECT_EQ(list.Find(0x0113), nullptr);
}

TEST(DtNlListImpl, FindFromANodeStartsAtThatNode) {
  Values v;
  DtNlListImpl list;
  list.PushBack(&v.a, 1);
  DtNlNode* nb = list.PushBack(&v.b, 2);
  list.PushBack(&v.c, 3);
  EXPECT_EQ(list.Find(2, nb), nb);
  EXPECT_EQ(list.Find(3, nb)->value, &v.c);
}

TEST(DtNlListImpl, FindFromANodePastTheMatchReturnsNull) {
  Values v;
  DtNlListImpl list;
  list.PushBack(&v.a, 1);
  DtNlNode* nb = list.PushBack(&v.b, 2);
  list.PushBack(&v.c, 3);
  EXPECT_EQ(list.Find(1, nb), nullptr);
  EXPECT_EQ(list.Find(2, nb->next), nullptr);
  EXPECT_NE(list.Find(1), nullptr);  // the key is in the list all the same
}

TEST(DtNlListImpl, FindFromTheEndNodeReturnsNull) {
  Values v;
  DtNlListImpl list;
  list.PushBack(&v.a, 1);
  EXPECT_EQ(list.Find(1, list.GetEndNode()), nullptr);
  EXPECT_EQ(list.Find(kNoKey, list.GetEndNode()), nullptr);
}

TEST(DtNlListImpl, FindFromANullNodeReturnsNull) {
  Values v;
  DtNlListImpl list;
  list.PushBack(&v.a, 1);
  EXPECT_EQ(list.Find(1, nullptr), nullptr);
}

TEST(DtNlListImpl, IsValidKeyIsZeroOnlyForAKeyAlreadyPresent) {
  Values v;
  DtNlListImpl list;
  EXPECT_EQ(list.isValidKey(1), 1u);
  EXPECT_EQ(list.isValidKey(kNoKey), 1u);
  list.PushBack(&v.a, 1);
  list.PushBack(&v.b, kNoKey);
  EXPECT_EQ(list.isValidKey(1), 0u);
  EXPECT_EQ(list.isValidKey(2), 1u);
  EXPECT_EQ(list.isValidKey(kNoKey), 1u);
}

TEST(DtNlListImpl, EraseNodeOfTheEndNodeOrNullReturnsNullAndChangesNothing) {
  Values v;
  DtNlListImpl list;
  EXPECT_EQ(list.EraseNode(list.GetEndNode()), nullptr);
  EXPECT_EQ(list.EraseNode(nullptr), nullptr);
  ExpectList(list, {});
  list.PushBack(&v.a, 1);
  list.PushBack(&v.b, 2);
  EXPECT_EQ(list.EraseNode(list.GetEndNode()), nullptr);
  EXPECT_EQ(list.EraseNode(nullptr), nullptr);
  ExpectList(list, {{&v.a, 1}, {&v.b, 2}});
}

TEST(DtNlListImpl, EraseNodeOfTheOnlyElementLeavesAnEmptyListPointingToItself) {
  Values v;
  DtNlListImpl list;
  DtNlNode* n = list.PushBack(&v.a, 1);
  EXPECT_EQ(list.EraseNode(n), &v.a);
  ExpectList(list, {});
  EXPECT_EQ(v.a, 1);  // the value itself is untouched
}

TEST(DtNlListImpl, EraseNodeAtTheFrontMiddleAndBack) {
  Values v;
  DtNlListImpl list;
  DtNlNode* na = list.PushBack(&v.a, 1);
  DtNlNode* nb = list.PushBack(&v.b, 2);
  list.PushBack(&v.c, 3);
  DtNlNode* nd = list.PushBack(&v.d, 4);
  list.PushBack(&v.e, 5);
  EXPECT_EQ(list.EraseNode(nb), &v.b);
  ExpectList(list, {{&v.a, 1}, {&v.c, 3}, {&v.d, 4}, {&v.e, 5}});
  EXPECT_EQ(list.EraseNode(na), &v.a);
  ExpectList(list, {{&v.c, 3}, {&v.d, 4}, {&v.e, 5}});
  EXPECT_EQ(list.EraseNode(list.GetEndNode()->prev), &v.e);
  ExpectList(list, {{&v.c, 3}, {&v.d, 4}});
  EXPECT_EQ(list.EraseNode(nd), &v.d);
  ExpectList(list, {{&v.c, 3}});
}

TEST(DtNlListImpl, ErasedKeyMayBeInsertedAgain) {
  Values v;
  DtNlListImpl list;
  list.PushBack(&v.a, 1);
  list.PushBack(&v.b, 2);
  EXPECT_EQ(list.EraseNode(list.Find(2)), &v.b);
  EXPECT_EQ(list.isValidKey(2), 1u);
  ASSERT_NE(list.PushFront(&v.c, 2), nullptr);
  ExpectList(list, {{&v.c, 2}, {&v.a, 1}});
}

TEST(DtNlListImpl, ClearLeavesTheValuesUntouchedAndTheListEmpty) {
  Values v;
  // Values on the heap as well: freeing one would be caught by the sanitizers,
  // and the vector frees them itself afterwards.
  std::vector<int> heap(3, 42);
  DtNlListImpl list;
  list.PushBack(&v.a, 1);
  list.PushBack(&heap[0], 2);
  list.PushBack(&heap[1], kNoKey);
  list.PushFront(&heap[2], 4);
  list.Clear();
  ExpectList(list, {});
  EXPECT_EQ(list.Find(1), nullptr);
  EXPECT_EQ(v.a, 1);
  EXPECT_EQ(heap, std::vector<int>(3, 42));
}

TEST(DtNlListImpl, ListCanBeReusedAtOnceAfterClear) {
  Values v;
  DtNlListImpl list;
  list.PushBack(&v.a, 1);
  list.PushBack(&v.b, 2);
  list.Clear();
  ASSERT_NE(list.PushBack(&v.c, 1), nullptr);  // old keys are free again
  ASSERT_NE(list.PushFront(&v.d, 2), nullptr);
  ASSERT_NE(list.PushBack(&v.e, 3), nullptr);
  ExpectList(list, {{&v.d, 2}, {&v.c, 1}, {&v.e, 3}});
  EXPECT_EQ(list.Find(1)->value, &v.c);
}

TEST(DtNlListImpl, ClearOfAnEmptyListAndClearTwiceAreHarmless) {
  Values v;
  DtNlListImpl list;
  list.Clear();
  ExpectList(list, {});
  list.PushBack(&v.a, 1);
  list.Clear();
  list.Clear();
  ExpectList(list, {});
}

TEST(DtNlListImpl, DestroyingAFullListLeavesTheValuesToTheCaller) {
  std::vector<int> values(50, 9);
  {
    DtNlListImpl list;
    for (UINT32 i = 0; i < 50; ++i) {
      ASSERT_NE(list.PushBack(&values[i], i), nullptr);
    }
  }  // the sanitizer build reports any node left behind
  EXPECT_EQ(values, std::vector<int>(50, 9));
}

TEST(DtNlListImpl, ManyElementsKeepEveryInvariantThroughInsertsAndErases) {
  std::vector<int> values(200);
  DtNlListImpl list;
  Elements want;
  for (UINT32 i = 0; i < 200; ++i) {
    if (i % 2 == 0) {
      ASSERT_NE(list.PushBack(&values[i], i), nullptr);
      want.emplace_back(&values[i], i);
    } else {
      ASSERT_NE(list.PushFront(&values[i], i), nullptr);
      want.emplace(want.begin(), &values[i], i);
    }
  }
  ExpectList(list, want);
  for (UINT32 i = 0; i < 200; i += 3) {
    EXPECT_EQ(list.EraseNode(list.Find(i)), &values[i]);
  }
  Elements left;
  for (const auto& element : want) {
    if (element.second % 3 != 0) {
      left.push_back(element);
    }
  }
  ExpectList(list, left);
}

// ---- Lent nodes ------------------------------------------------------------

// True when `node` is one of the `count` nodes at `block`.
bool InBlock(const DtNlNode* node, const DtNlNode* block, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    if (node == &block[i]) {
      return true;
    }
  }
  return false;
}

TEST(DtNlListImpl, LentNodesAreTakenBeforeAnyIsAllocated) {
  DtNlNode block[3];
  DtNlListImpl list;
  ASSERT_EQ(list.LendNodes(block, 3), 0);
  EXPECT_EQ(list.GetSpareCount(), 3u);
  int values[3] = {0, 1, 2};
  for (UINT32 i = 0; i < 3; ++i) {
    DtNlNode* node = list.PushBack(&values[i], i);
    ASSERT_NE(node, nullptr);
    EXPECT_EQ(node, &block[i]);  // in block order
  }
  EXPECT_EQ(list.GetSpareCount(), 0u);
  ExpectList(list, {{&values[0], 0}, {&values[1], 1}, {&values[2], 2}});
}

TEST(DtNlListImpl, ABlockThatRunsOutIsFollowedByAllocatedNodes) {
  DtNlNode block[2];
  DtNlListImpl list;
  ASSERT_EQ(list.LendNodes(block, 2), 0);
  int values[5] = {0, 1, 2, 3, 4};
  Elements want;
  for (UINT32 i = 0; i < 5; ++i) {
    DtNlNode* node = list.PushBack(&values[i], i);
    ASSERT_NE(node, nullptr);
    EXPECT_EQ(InBlock(node, block, 2), i < 2) << i;
    want.emplace_back(&values[i], i);
  }
  ExpectList(list, want);
  // Erasing an allocated node frees it (the sanitizers see a leak or a double
  // free otherwise); erasing a lent one makes it a spare.
  EXPECT_EQ(list.EraseNode(list.Find(3)), &values[3]);
  EXPECT_EQ(list.GetSpareCount(), 0u);
  EXPECT_EQ(list.EraseNode(list.Find(0)), &values[0]);
  EXPECT_EQ(list.GetSpareCount(), 1u);
  ExpectList(list, {{&values[1], 1}, {&values[2], 2}, {&values[4], 4}});
  // The spare is used again before anything is allocated.
  EXPECT_EQ(list.PushFront(&values[0], 0), &block[0]);
  ExpectList(list, {{&values[0], 0}, {&values[1], 1}, {&values[2], 2}, {&values[4], 4}});
}

TEST(DtNlListImpl, ClearGivesEveryLentNodeBackAndFreesTheOthers) {
  DtNlNode block[4];
  DtNlListImpl list;
  ASSERT_EQ(list.LendNodes(block, 4), 0);
  int values[6] = {0, 1, 2, 3, 4, 5};
  for (int round = 0; round < 3; ++round) {
    for (UINT32 i = 0; i < 6; ++i) {
      ASSERT_NE(list.PushBack(&values[i], i), nullptr);
    }
    EXPECT_EQ(list.EraseNode(list.Find(2)), &values[2]);
    list.Clear();
    ExpectList(list, {});
    EXPECT_EQ(list.GetSpareCount(), 4u);
    // The list refills from the start of its block every time.
    EXPECT_EQ(list.PushBack(&values[0], 0), &block[0]);
    list.Clear();
  }
}

TEST(DtNlListImpl, LendNodesIsRefusedTwiceOnAFilledListAndWithoutNodes) {
  DtNlNode block[2];
  DtNlNode other[2];
  int value = 7;
  DtNlListImpl list;
  EXPECT_EQ(list.LendNodes(nullptr, 2), -1);
  EXPECT_EQ(list.LendNodes(block, 0), -1);
  EXPECT_EQ(list.GetSpareCount(), 0u);

  DtNlListImpl filled;
  ASSERT_NE(filled.PushBack(&value, 1), nullptr);
  EXPECT_EQ(filled.LendNodes(block, 2), -1);
  EXPECT_EQ(filled.GetSpareCount(), 0u);

  ASSERT_EQ(list.LendNodes(block, 2), 0);
  EXPECT_EQ(list.LendNodes(other, 2), -1);
  EXPECT_EQ(list.PushBack(&value, 1), &block[0]);
}

TEST(DtNlListImpl, InsertAbsentLinksWithoutTheDuplicateSearch) {
  DtNlListImpl list;
  int values[3] = {0, 1, 2};
  ASSERT_NE(list.InsertAbsent(list.GetEndNode(), &values[0], 10), nullptr);
  ASSERT_NE(list.InsertAbsent(list.GetBeginNode(), &values[1], 11), nullptr);
  ExpectList(list, {{&values[1], 11}, {&values[0], 10}});
  EXPECT_EQ(list.InsertAbsent(nullptr, &values[2], 12), nullptr);
  ExpectList(list, {{&values[1], 11}, {&values[0], 10}});
  // The checked insert still refuses a present key.
  EXPECT_EQ(list.PushBack(&values[2], 10), nullptr);
}

}  // namespace
