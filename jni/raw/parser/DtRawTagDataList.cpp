// DtRawTagDataList.cpp - the owning store of kept entries over a keyed list.
#include "raw/parser/DtRawTagDataList.h"

DtRawTagDataList::DtRawTagDataList() : m_list(new DtNlListImpl()) {}

DtRawTagDataList::~DtRawTagDataList() {
  ClearAllData();
  delete m_list;
  m_list = nullptr;
}

int DtRawTagDataList::IsExistData(unsigned short tagId) const {
  const DtNlNode* node = m_list->Find(tagId);
  return (node != nullptr && node->value != nullptr) ? 1 : 0;
}

DtRawTagData* DtRawTagDataList::GetTagData(unsigned short tagId) const {
  const DtNlNode* node = m_list->Find(tagId);
  return (node != nullptr) ? TagDataOf(node) : nullptr;
}

int DtRawTagDataList::ClearAllData() {
  // Each pass erases one node, so the loop ends after GetSize() passes.
  while (m_list->GetBeginNode() != m_list->GetEndNode()) {
    const void* value = m_list->EraseNode(m_list->GetBeginNode());
    DtRawTagData* data = static_cast<DtRawTagData*>(const_cast<void*>(value));
    if (data == nullptr) {
      continue;
    }
    delete[] data->m_data;
    data->m_data = nullptr;
    delete data;
  }
  return 0;
}

int DtRawTagDataList::PushBack(DtRawTagData* data, UINT32 key) {
  if (data == nullptr) {
    return -1;
  }
  return (m_list->PushBack(data, key) != nullptr) ? 0 : -1;
}

int DtRawTagDataList::PushBack(DtRawTagData* data) { return PushBack(data, DtNlListImpl::NO_KEY); }

UINT32 DtRawTagDataList::GetSize() const { return m_list->GetSize(); }

DtNlNode* DtRawTagDataList::GetBeginNode() const { return m_list->GetBeginNode(); }

DtNlNode* DtRawTagDataList::GetEndNode() const { return m_list->GetEndNode(); }

DtRawTagData* DtRawTagDataList::TagDataOf(const DtNlNode* node) {
  if (node == nullptr) {
    return nullptr;
  }
  // The list stores the entries it owns as const void*; they are ours to hand out.
  return static_cast<DtRawTagData*>(const_cast<void*>(node->value));
}
