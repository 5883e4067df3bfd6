// DtRawTagDataList.h - the store of kept directory entries of one parser (or
// of the facade's pending changes), over a keyed list.
//
// Layer: jni/raw/parser (raw metadata engine). The list owns every
// DtRawTagData handed to it and each one's m_data array; both are freed by
// ClearAllData and the destructor. Parsers key entries by tag id (ids are
// unique); the facade's write-back queue appends unkeyed entries in order.
//
// Storage: the list carries room for BLOCK_ENTRIES entries inside itself (the
// record, its list node and up to MAX_BLOCK_BYTES value bytes each). A parser
// keeps at most as many entries as its target set has ids, never more than
// BLOCK_ENTRIES, so parsing allocates nothing; NewTagData falls back to the
// heap only when the block is used up (a long write-back queue). ClearAllData
// gives the whole block back at once.
//
//   DtRawTagDataList list;
//   DtRawTagData* t = list.NewTagData(2);          // m_data: 2 bytes to fill
//   t->m_tagId = 0x0112;
//   if (list.PushBack(t, t->m_tagId) != 0) list.DeleteTagData(t);  // refused: still ours
//   DtRawTagData* found = list.GetTagData(0x0112);  // owned by the list
//   for (DtNlNode* n = list.GetBeginNode(); n != list.GetEndNode(); n = n->next)
//     use(DtRawTagDataList::TagDataOf(n));
//
// No pointer members: the keyed list lives inside this object (which is
// therefore never copied or moved). The values the list holds are owned by
// this object: records of the block live in m_records and carry bytes of
// m_bytes; other records and their arrays were allocated with new / new[].
#ifndef KPZ_RAW_PARSER_DTRAWTAGDATALIST_H
#define KPZ_RAW_PARSER_DTRAWTAGDATALIST_H

#include <cstdint>
#include <new>

#include "raw/parser/DtRawTagData.h"
#include "util/DtNlListImpl.h"
#include "util/DtNlTypes.h"

class DtRawTagDataList {
 public:
  // Entries the list holds without allocating: the largest target set.
  static const UINT32 BLOCK_ENTRIES = 16;
  // Value bytes an entry of the block carries (the largest value a parser copies).
  static const UINT32 MAX_BLOCK_BYTES = 32;

  DtRawTagDataList();
  // ClearAllData().
  ~DtRawTagDataList();
  DtRawTagDataList(const DtRawTagDataList&) = delete;
  DtRawTagDataList& operator=(const DtRawTagDataList&) = delete;

  // 1 when an entry is stored under `tagId` (non-null), else 0.
  int IsExistData(unsigned short tagId) const;
  // The entry stored under `tagId`, or null. Stays owned by the list.
  DtRawTagData* GetTagData(unsigned short tagId) const;
  // Frees every entry and its m_data array (and gives the block back); the
  // list stays usable. The result is always 0 and carries no meaning.
  int ClearAllData() {
    if (m_list.GetSize() == 0 && m_blockUsed == 0) {
      return 0;  // nothing to free: the common case of an unused parser
    }
    return clearAll();
  }

  // A new record with every field zero, for a value of `size` bytes: m_data
  // points at `size` bytes to fill when `size` is 1 to MAX_BLOCK_BYTES, else
  // it is null. Taken from the block while it lasts, else allocated. The
  // record is the caller's until PushBack takes it; one that is not pushed
  // goes back through DeleteTagData.
  DtRawTagData* NewTagData(UINT32 size) {
    if (m_blockUsed >= BLOCK_ENTRIES) {
      return newHeapTagData(size);
    }
    const UINT32 i = m_blockUsed++;
    DtRawTagData* data = new (m_records[i]) DtRawTagData();
    data->m_data = (size >= 1 && size <= MAX_BLOCK_BYTES) ? m_bytes[i] : nullptr;
    return data;
  }
  // Releases a record of NewTagData (or one made with new, m_data new[] or
  // null) that the list does not hold. Null is ignored.
  void DeleteTagData(DtRawTagData* data);

  // Appends `data` under `key`, handing it (and its m_data) over to the list.
  // 0 when appended; -1 when refused (null `data`, or `key` other than
  // DtNlListImpl::NO_KEY already present), and then `data` stays the caller's.
  int PushBack(DtRawTagData* data, UINT32 key);
  // Appends `data` under `key` for a caller that has just found `key` absent
  // (GetTagData / IsExistData gave null / 0): the list does not search for
  // it again. Handing over as PushBack; `data` must not be null.
  void PushBackAbsent(DtRawTagData* data, UINT32 key) {
    noteHeapRecord(data);
    (void)m_list.InsertAbsent(m_list.GetEndNode(), data, key);
  }
  // Appends `data` unkeyed (DtNlListImpl::NO_KEY): never refused for
  // duplicates, kept in the order appended. Same ownership rule as above.
  int PushBack(DtRawTagData* data);

  // Iteration in stored order: from GetBeginNode() along `next` up to (not
  // including) GetEndNode().
  UINT32 GetSize() const { return m_list.GetSize(); }
  DtNlNode* GetBeginNode() const;
  DtNlNode* GetEndNode() const;
  // The entry a node of this list holds (null for the end node).
  static DtRawTagData* TagDataOf(const DtNlNode* node);

  // Records of the block not taken now (BLOCK_ENTRIES when the list is empty).
  UINT32 GetFreeBlockEntries() const;

 private:
  // ClearAllData's work.
  int clearAll();
  // NewTagData once the block is used up.
  static DtRawTagData* newHeapTagData(UINT32 size);
  // Counts `data` in m_heapRecords when it is not a record of the block.
  void noteHeapRecord(const DtRawTagData* data) {
    if (blockIndexOf(data) >= BLOCK_ENTRIES) {
      ++m_heapRecords;
    }
  }
  // Index of `data` in the block, or BLOCK_ENTRIES when it is not a block record.
  UINT32 blockIndexOf(const DtRawTagData* data) const {
    // Compared as addresses: a record of the block starts at one of its slots.
    const std::uintptr_t at = reinterpret_cast<std::uintptr_t>(data);
    const std::uintptr_t begin = reinterpret_cast<std::uintptr_t>(&m_records[0][0]);
    const std::uintptr_t span = static_cast<std::uintptr_t>(BLOCK_ENTRIES) * sizeof(DtRawTagData);
    if (at < begin || at - begin >= span) {
      return BLOCK_ENTRIES;
    }
    return static_cast<UINT32>((at - begin) / sizeof(DtRawTagData));
  }
  // Frees one record that no node holds any more.
  void release(DtRawTagData* data);

  DtNlListImpl m_list;              // the keyed list: key tag id (or NO_KEY), value DtRawTagData*
  UINT32 m_blockUsed;               // block records taken, in index order
  UINT32 m_heapRecords;             // records in the list that are not the block's
  DtNlNode m_nodes[BLOCK_ENTRIES];  // lent to m_list
  // Raw storage of the block's records: a record is constructed in place when
  // taken and destroyed when given back.
  alignas(DtRawTagData) unsigned char m_records[BLOCK_ENTRIES][sizeof(DtRawTagData)];
  UINT8 m_bytes[BLOCK_ENTRIES][MAX_BLOCK_BYTES];  // value bytes of the block's records
};

#endif  // KPZ_RAW_PARSER_DTRAWTAGDATALIST_H
