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

const UINT32 DtNlListImpl::NO_KEY;

DtNlListImpl::DtNlListImpl() : DtNlNode(), size(0) {
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
  DtNlNode* node = new DtNlNode();
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
  node->next = nullptr;
  node->prev = nullptr;
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
