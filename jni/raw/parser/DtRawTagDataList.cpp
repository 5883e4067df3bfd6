// DtRawTagDataList.cpp - the owning store of kept entries over a keyed list.
#include "raw/parser/DtRawTagDataList.h"

const UINT32 DtRawTagDataList::BLOCK_ENTRIES;
const UINT32 DtRawTagDataList::MAX_BLOCK_BYTES;

// The block's records and bytes are left unconstructed and uninitialised: a
// record is constructed when taken, and its bytes are filled by whoever asked
// for them before anyone reads them.
DtRawTagDataList::DtRawTagDataList() : m_list(), m_blockUsed(0), m_heapRecords(0) {
  (void)m_list.LendNodes(m_nodes, BLOCK_ENTRIES);  // a new, empty list: never refused
}

DtRawTagDataList::~DtRawTagDataList() { ClearAllData(); }

int DtRawTagDataList::IsExistData(unsigned short tagId) const {
  const DtNlNode* node = m_list.Find(tagId);
  return (node != nullptr && node->value != nullptr) ? 1 : 0;
}

DtRawTagData* DtRawTagDataList::GetTagData(unsigned short tagId) const {
  const DtNlNode* node = m_list.Find(tagId);
  return (node != nullptr) ? TagDataOf(node) : nullptr;
}

int DtRawTagDataList::clearAll() {
  // The former "erase the first node, free its entry" loop, in one pass:
  // every entry is released, then the list is emptied at once (which also
  // frees its nodes). Records of the block need nothing, so without heap
  // records there is no walk at all.
  if (m_heapRecords != 0) {
    // Visits each of GetSize() nodes once.
    for (DtNlNode* node = m_list.GetBeginNode(); node != m_list.GetEndNode(); node = node->next) {
      release(TagDataOf(node));
    }
  }
  m_list.Clear();
  // Every record of the block was held by a node (or given back already).
  m_blockUsed = 0;
  m_heapRecords = 0;
  return 0;
}

DtRawTagData* DtRawTagDataList::newHeapTagData(UINT32 size) {
  DtRawTagData* data = new DtRawTagData();
  // Not value-initialised: the caller fills all `size` bytes (or gives the
  // record back) before anyone reads them.
  data->m_data = (size >= 1 && size <= MAX_BLOCK_BYTES) ? new UINT8[size] : nullptr;
  return data;
}

void DtRawTagDataList::DeleteTagData(DtRawTagData* data) {
  if (data == nullptr) {
    return;
  }
  const UINT32 i = blockIndexOf(data);
  if (i < BLOCK_ENTRIES && i + 1 == m_blockUsed) {
    --m_blockUsed;  // the last record taken: free to be taken again
  }
  release(data);
}

void DtRawTagDataList::release(DtRawTagData* data) {
  if (data == nullptr) {
    return;
  }
  if (blockIndexOf(data) < BLOCK_ENTRIES) {
    // A record of the block: its bytes are the block's and its destructor
    // does nothing, so the storage is simply free to be taken again.
    data->m_data = nullptr;
    return;
  }
  delete[] data->m_data;
  data->m_data = nullptr;
  delete data;
}

int DtRawTagDataList::PushBack(DtRawTagData* data, UINT32 key) {
  if (data == nullptr) {
    return -1;
  }
  if (m_list.PushBack(data, key) == nullptr) {
    return -1;
  }
  noteHeapRecord(data);
  return 0;
}

int DtRawTagDataList::PushBack(DtRawTagData* data) { return PushBack(data, DtNlListImpl::NO_KEY); }

DtNlNode* DtRawTagDataList::GetBeginNode() const { return m_list.GetBeginNode(); }

DtNlNode* DtRawTagDataList::GetEndNode() const { return m_list.GetEndNode(); }

DtRawTagData* DtRawTagDataList::TagDataOf(const DtNlNode* node) {
  if (node == nullptr) {
    return nullptr;
  }
  // The list stores the entries it owns as const void*; they are ours to hand out.
  return static_cast<DtRawTagData*>(const_cast<void*>(node->value));
}

UINT32 DtRawTagDataList::GetFreeBlockEntries() const { return BLOCK_ENTRIES - m_blockUsed; }
