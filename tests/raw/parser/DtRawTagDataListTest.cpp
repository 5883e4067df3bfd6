#include <gtest/gtest.h>

#include <vector>

#include "raw/parser/DtRawTagDataList.h"

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

// ---- The list's own block --------------------------------------------------

TEST(DtRawTagDataList, NewTagDataGivesValueBytesOnlyForOneTo32Bytes) {
  DtRawTagDataList list;
  for (UINT32 size : {0u, 33u, 40u, 0xFFFFFFFFu}) {
    DtRawTagData* t = list.NewTagData(size);
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(t->m_data, nullptr) << size;
    EXPECT_EQ(t->m_tagId, 0u);
    EXPECT_EQ(t->m_size, 0u);
    list.DeleteTagData(t);
  }
  for (UINT32 size : {1u, 4u, 32u}) {
    DtRawTagData* t = list.NewTagData(size);
    ASSERT_NE(t->m_data, nullptr) << size;
    for (UINT32 i = 0; i < size; ++i) {
      t->m_data[i] = static_cast<UINT8>(i + 1);  // every byte may be written
    }
    list.DeleteTagData(t);
  }
  EXPECT_EQ(list.GetFreeBlockEntries(), DtRawTagDataList::BLOCK_ENTRIES);
}

TEST(DtRawTagDataList, ABlockThatRunsOutIsFollowedByHeapEntries) {
  DtRawTagDataList list;
  const UINT32 total = DtRawTagDataList::BLOCK_ENTRIES + 5;
  for (UINT32 i = 0; i < total; ++i) {
    DtRawTagData* t = list.NewTagData(4);
    t->m_tagId = static_cast<UINT16>(0x100 + i);
    t->m_size = 4;
    for (UINT32 b = 0; b < 4; ++b) {
      t->m_data[b] = static_cast<UINT8>(i * 4 + b);
    }
    ASSERT_EQ(list.PushBack(t, t->m_tagId), 0);
  }
  EXPECT_EQ(list.GetFreeBlockEntries(), 0u);
  EXPECT_EQ(list.GetSize(), total);
  // Every entry, in the block or past it, keeps its own bytes.
  for (UINT32 i = 0; i < total; ++i) {
    const DtRawTagData* t = list.GetTagData(static_cast<UINT16>(0x100 + i));
    ASSERT_NE(t, nullptr) << i;
    for (UINT32 b = 0; b < 4; ++b) {
      EXPECT_EQ(t->m_data[b], static_cast<UINT8>(i * 4 + b));
    }
  }
  list.ClearAllData();  // the sanitizers see any heap entry lost or freed twice
  EXPECT_EQ(list.GetSize(), 0u);
  EXPECT_EQ(list.GetFreeBlockEntries(), DtRawTagDataList::BLOCK_ENTRIES);
}

TEST(DtRawTagDataList, ClearAllDataReusesTheSameBlockForTheNextFill) {
  DtRawTagDataList list;
  std::vector<const DtRawTagData*> first;
  for (int round = 0; round < 3; ++round) {
    std::vector<const DtRawTagData*> records;
    for (UINT16 id = 1; id <= 7; ++id) {
      DtRawTagData* t = list.NewTagData(2);
      t->m_tagId = id;
      ASSERT_EQ(list.PushBack(t, id), 0);
      records.push_back(t);
    }
    if (round == 0) {
      first = records;
    }
    EXPECT_EQ(records, first);  // the same storage, round after round
    EXPECT_EQ(list.GetFreeBlockEntries(), DtRawTagDataList::BLOCK_ENTRIES - 7);
    list.ClearAllData();
    EXPECT_EQ(list.GetTagData(1), nullptr);
  }
}

TEST(DtRawTagDataList, BlockAndHeapEntriesMixInOneList) {
  DtRawTagDataList list;
  DtRawTagData* fromBlock = list.NewTagData(2);
  fromBlock->m_tagId = 1;
  ASSERT_EQ(list.PushBack(fromBlock, 1), 0);
  ASSERT_EQ(list.PushBack(NewTag(2, 8), 2), 0);  // made by the caller, as the write-back does
  ASSERT_EQ(list.PushBack(NewTag(3, 0)), 0);
  EXPECT_EQ(list.GetSize(), 3u);
  EXPECT_EQ(list.GetTagData(1), fromBlock);
  EXPECT_NE(list.GetTagData(2), nullptr);
  list.ClearAllData();
  EXPECT_EQ(list.GetSize(), 0u);
}

TEST(DtRawTagDataList, DeletingTheLastRecordTakenMakesItFreeAgain) {
  DtRawTagDataList list;
  DtRawTagData* a = list.NewTagData(1);
  DtRawTagData* b = list.NewTagData(1);
  EXPECT_EQ(list.GetFreeBlockEntries(), DtRawTagDataList::BLOCK_ENTRIES - 2);
  list.DeleteTagData(b);
  EXPECT_EQ(list.GetFreeBlockEntries(), DtRawTagDataList::BLOCK_ENTRIES - 1);
  EXPECT_EQ(list.NewTagData(1), b);
  list.DeleteTagData(nullptr);  // ignored
  list.DeleteTagData(a);        // not the last: its slot waits for ClearAllData
  list.ClearAllData();
  EXPECT_EQ(list.GetFreeBlockEntries(), DtRawTagDataList::BLOCK_ENTRIES);
}

TEST(DtRawTagDataList, PushBackAbsentAppendsUnderItsKey) {
  DtRawTagDataList list;
  DtRawTagData* t = list.NewTagData(2);
  t->m_tagId = 0x0112;
  list.PushBackAbsent(t, 0x0112);
  EXPECT_EQ(list.GetTagData(0x0112), t);
  EXPECT_EQ(list.IsExistData(0x0112), 1);
  EXPECT_EQ(list.GetSize(), 1u);
}

}  // namespace
