// DtNlListImpl.cpp - the keyed circular doubly linked list (containers layer,
// no dependencies beyond the C++ runtime).
//
// The list object is its own end node; every element node is allocated singly
// with new and freed here, its value never.
//
//   DtNlListImpl list;
//   list.PushBack(&tag, 0x0112);
//   const void* v = list.EraseNode(list.Find(0x0112));  // &tag
#include "util/DtNlListImpl.h"

#include <cstdint>

const UINT32 DtNlListImpl::NO_KEY;

DtNlListImpl::DtNlListImpl()
    : DtNlNode(), size(0), m_lentBegin(nullptr), m_lentEnd(nullptr), m_spare(nullptr) {
  next = this;
  prev = this;
  value = nullptr;
  key = NO_KEY;
}

DtNlListImpl::~DtNlListImpl() { Clear(); }

UINT32 DtNlListImpl::GetSize() const { return size; }

DtNlNode* DtNlListImpl::GetBeginNode() const { return next; }

DtNlNode* DtNlListImpl::GetEndNode() const {
  // The end node is this very object; handing it out as a mutable node is what
  // lets callers compare against it and insert before it.
  return const_cast<DtNlListImpl*>(this);  // NOLINT(cppcoreguidelines-pro-type-const-cast)
}

DtNlNode* DtNlListImpl::Find(UINT32 searchKey) const { return Find(searchKey, GetBeginNode()); }

DtNlNode* DtNlListImpl::Find(UINT32 searchKey, DtNlNode* from) const {
  // Deliberate: a null `from` finds nothing instead of being followed.
  const DtNlNode* end = GetEndNode();
  for (DtNlNode* node = from; node != nullptr && node != end; node = node->next) {
    if (node->key == searchKey) {
      return node;
    }
  }
  return nullptr;
}

DtNlNode* DtNlListImpl::Insert(DtNlNode* pos, const void* nodeValue, UINT32 nodeKey) {
  if (isValidKey(nodeKey) == 0u) {
    return nullptr;
  }
  if (pos == nullptr) {
    return nullptr;
  }
  DtNlNode* node = m_spare;
  if (node != nullptr) {
    m_spare = node->next;
  } else {
    node = new DtNlNode();
  }
  node->value = nodeValue;
  node->key = nodeKey;
  node->next = pos;
  node->prev = pos->prev;
  pos->prev->next = node;
  pos->prev = node;
  ++size;
  return node;
}

DtNlNode* DtNlListImpl::PushFront(const void* nodeValue, UINT32 nodeKey) {
  return Insert(GetBeginNode(), nodeValue, nodeKey);
}

DtNlNode* DtNlListImpl::PushBack(const void* nodeValue, UINT32 nodeKey) {
  return Insert(GetEndNode(), nodeValue, nodeKey);
}

const void* DtNlListImpl::EraseNode(DtNlNode* node) {
  if (node == nullptr || node == GetEndNode()) {
    return nullptr;
  }
  if (size > 0u) {
    --size;
  }
  node->next->prev = node->prev;
  node->prev->next = node->next;
  const void* kept = node->value;
  node->prev = nullptr;
  if (isLent(node)) {
    // Back to the spares; the block belongs to whoever lent it.
    node->value = nullptr;
    node->next = m_spare;
    m_spare = node;
    return kept;
  }
  node->next = nullptr;
  delete node;
  return kept;
}

void DtNlListImpl::Clear() {
  // From the last element towards the first; each step removes one element,
  // so the walk ends at the end node.
  DtNlNode* node = prev;
  while (node != nullptr && node != GetEndNode()) {
    DtNlNode* before = node->prev;
    static_cast<void>(EraseNode(node));  // values belong to the caller
    node = before;
  }
  size = 0;
  next = this;
  prev = this;
  key = NO_KEY;
}

UINT32 DtNlListImpl::isValidKey(UINT32 candidate) const {
  if (candidate == NO_KEY) {
    return 1;
  }
  return Find(candidate) == nullptr ? 1u : 0u;
}

int DtNlListImpl::LendNodes(DtNlNode* block, UINT32 count) {
  if (block == nullptr || count == 0 || m_lentBegin != nullptr || size != 0) {
    return -1;
  }
  m_lentBegin = block;
  m_lentEnd = block + count;
  // Chained so that the first node of the block is taken first.
  m_spare = nullptr;
  for (UINT32 i = count; i > 0; --i) {
    DtNlNode* node = &block[i - 1];
    node->prev = nullptr;
    node->value = nullptr;
    node->key = NO_KEY;
    node->next = m_spare;
    m_spare = node;
  }
  return 0;
}

UINT32 DtNlListImpl::GetSpareCount() const {
  UINT32 count = 0;
  // The chain holds at most the block's nodes, each once.
  for (const DtNlNode* node = m_spare; node != nullptr; node = node->next) {
    ++count;
  }
  return count;
}

bool DtNlListImpl::isLent(const DtNlNode* node) const {
  // Compared as addresses: a node of the block lies in [begin, end).
  const std::uintptr_t at = reinterpret_cast<std::uintptr_t>(node);
  return m_lentBegin != nullptr && at >= reinterpret_cast<std::uintptr_t>(m_lentBegin) &&
         at < reinterpret_cast<std::uintptr_t>(m_lentEnd);
}
