// DtNlListImpl.cpp - the keyed circular doubly linked list (containers layer,
// no dependencies beyond the C++ runtime).
//
// The list object is its own end node; every element node is a lent one or
// allocated singly with new and freed here; its value is never freed.
//
//   DtNlListImpl list;
//   list.PushBack(&tag, 0x0112);
//   const void* v = list.EraseNode(list.Find(0x0112));  // &tag
#include "util/DtNlListImpl.h"

const UINT32 DtNlListImpl::NO_KEY;

DtNlListImpl::DtNlListImpl()
    : DtNlNode(),
      size(0),
      m_ownNodes(0),
      m_lentCount(0),
      m_lentTaken(0),
      m_lentBlock(nullptr),
      m_spare(nullptr) {
  next = this;
  prev = this;
  value = nullptr;
  key = NO_KEY;
}

DtNlListImpl::~DtNlListImpl() { Clear(); }

DtNlNode* DtNlListImpl::Insert(DtNlNode* pos, const void* nodeValue, UINT32 nodeKey) {
  if (isValidKey(nodeKey) == 0u) {
    return nullptr;
  }
  return InsertAbsent(pos, nodeValue, nodeKey);
}

DtNlNode* DtNlListImpl::newNode() {
  ++m_ownNodes;
  return new DtNlNode();
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
  --m_ownNodes;
  return kept;
}

void DtNlListImpl::Clear() {
  // From the last element towards the first; each step removes one element,
  // so the walk ends at the end node. Lent nodes need no step of their own:
  // once the list is empty, every one of them is free again.
  DtNlNode* node = m_ownNodes != 0 ? prev : GetEndNode();  // only lent nodes: no walk
  while (node != nullptr && node != GetEndNode()) {
    DtNlNode* before = node->prev;
    if (!isLent(node)) {
      delete node;  // the value belongs to the caller
    }
    node = before;
  }
  m_spare = nullptr;
  m_lentTaken = 0;
  m_ownNodes = 0;
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
  if (block == nullptr || count == 0 || m_lentBlock != nullptr || size != 0) {
    return -1;
  }
  // Taken in block order as needed; nothing is written to the block now.
  m_lentBlock = block;
  m_lentCount = count;
  m_lentTaken = 0;
  m_spare = nullptr;
  return 0;
}

UINT32 DtNlListImpl::GetSpareCount() const {
  UINT32 count = m_lentCount - m_lentTaken;
  // The chain holds at most the block's nodes, each once.
  for (const DtNlNode* node = m_spare; node != nullptr; node = node->next) {
    ++count;
  }
  return count;
}
