#include "raw/parser/DtRawTagDataList.h"

#include <gtest/gtest.h>

namespace {

// A heap entry with `size` heap bytes, as the parsers make them.
DtRawTagData* NewTag(UINT16 tagId, UINT32 size) {
  DtRawTagData* t = new DtRawTagData();
  t->m_tagId = tagId;
  t->m_size = size;
  t->m_data = size > 0 ? new UINT8[size]() : nullptr;
  return t;
}

TEST(DtRawTagDataList, AbsentIdGivesNullAndZero) {
  DtRawTagDataList list;
  EXPECT_EQ(list.GetTagData(0x0110), nullptr);
  EXPECT_EQ(list.IsExistData(0x0110), 0);
  ASSERT_EQ(list.PushBack(NewTag(0x0112, 2), 0x0112), 0);
  EXPECT_EQ(list.GetTagData(0x0110), nullptr);
  EXPECT_EQ(list.IsExistData(0x0110), 0);
}

TEST(DtRawTagDataList, PushedEntryIsFoundByItsKey) {
  DtRawTagDataList list;
  DtRawTagData* t = NewTag(0x0112, 2);
  ASSERT_EQ(list.PushBack(t, 0x0112), 0);
  EXPECT_EQ(list.GetTagData(0x0112), t);
  EXPECT_EQ(list.IsExistData(0x0112), 1);
  EXPECT_EQ(list.GetSize(), 1u);
}

TEST(DtRawTagDataList, NodeWithNullValueDoesNotCountAsExisting) {
  DtRawTagDataList list;
  ASSERT_NE(list.PushBack(nullptr, 5), 0);  // refused: nothing stored
  EXPECT_EQ(list.IsExistData(5), 0);
  EXPECT_EQ(list.GetSize(), 0u);
}

TEST(DtRawTagDataList, DuplicateKeyIsRefusedAndStaysTheCallers) {
  DtRawTagDataList list;
  DtRawTagData* first = NewTag(0x0112, 2);
  DtRawTagData* second = NewTag(0x0112, 2);
  ASSERT_EQ(list.PushBack(first, 0x0112), 0);
  EXPECT_EQ(list.PushBack(second, 0x0112), -1);
  EXPECT_EQ(list.GetTagData(0x0112), first);
  delete[] second->m_data;
  delete second;
}

TEST(DtRawTagDataList, UnkeyedEntriesAreKeptInOrderEvenWithEqualIds) {
  DtRawTagDataList list;
  DtRawTagData* a = NewTag(0x0112, 2);
  DtRawTagData* b = NewTag(0x0112, 2);
  DtRawTagData* c = NewTag(0x0132, 20);
  ASSERT_EQ(list.PushBack(a), 0);
  ASSERT_EQ(list.PushBack(b), 0);
  ASSERT_EQ(list.PushBack(c), 0);
  ASSERT_EQ(list.GetSize(), 3u);
  DtNlNode* n = list.GetBeginNode();
  EXPECT_EQ(DtRawTagDataList::TagDataOf(n), a);
  n = n->next;
  EXPECT_EQ(DtRawTagDataList::TagDataOf(n), b);
  n = n->next;
  EXPECT_EQ(DtRawTagDataList::TagDataOf(n), c);
  EXPECT_EQ(n->next, list.GetEndNode());
  EXPECT_EQ(DtRawTagDataList::TagDataOf(list.GetEndNode()), nullptr);
  EXPECT_EQ(DtRawTagDataList::TagDataOf(nullptr), nullptr);
  // Unkeyed entries are not found by tag id.
  EXPECT_EQ(list.GetTagData(0x0112), nullptr);
}

TEST(DtRawTagDataList, ClearAllDataOnAnEmptyListLeavesItUsable) {
  DtRawTagDataList list;
  EXPECT_EQ(list.ClearAllData(), 0);
  EXPECT_EQ(list.GetSize(), 0u);
  ASSERT_EQ(list.PushBack(NewTag(1, 0), 1), 0);
  EXPECT_EQ(list.IsExistData(1), 1);
}

TEST(DtRawTagDataList, ClearAllDataFreesEveryEntryAndItsBytes) {
  // ASan's leak check fails this test if any entry or array survives.
  DtRawTagDataList list;
  ASSERT_EQ(list.PushBack(NewTag(1, 4), 1), 0);
  ASSERT_EQ(list.PushBack(NewTag(2, 0), 2), 0);
  ASSERT_EQ(list.PushBack(NewTag(3, 32)), 0);
  list.ClearAllData();
  EXPECT_EQ(list.GetSize(), 0u);
  EXPECT_EQ(list.IsExistData(1), 0);
  EXPECT_EQ(list.IsExistData(2), 0);
  EXPECT_EQ(list.GetTagData(3), nullptr);
  EXPECT_EQ(list.GetBeginNode(), list.GetEndNode());
  ASSERT_EQ(list.PushBack(NewTag(1, 4), 1), 0);  // the same id may come back
  EXPECT_EQ(list.IsExistData(1), 1);
}

TEST(DtRawTagDataList, DestructorFreesWhatIsStillHeld) {
  // Checked by the leak checker of the sanitizer build.
  DtRawTagDataList* list = new DtRawTagDataList();
  ASSERT_EQ(list->PushBack(NewTag(1, 8), 1), 0);
  ASSERT_EQ(list->PushBack(NewTag(2, 8)), 0);
  delete list;
  SUCCEED();
}

}  // namespace
