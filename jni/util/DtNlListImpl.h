// DtNlListImpl.h - circular doubly linked list of (value, key) nodes.
//
// The list object is itself the end node (sentinel): following `next` from it
// visits every element and comes back to it. Keys are unique except the
// reserved NO_KEY (0xFFFFFFFF), which may occur any number of times. The list
// never owns, dereferences or frees the values: erasing a node hands its value
// back to the caller. Nodes are allocated singly and freed by the list,
// unless the owner lends the list a block of nodes (LendNodes): those are used
// first and go back to the block when erased, so that a list refilled for
// every parse costs no allocation. Because its links point at its own
// address, a list is never copied or moved.
//
// Pointer members beyond the node fields: m_lentBlock is the lent block
// (borrowed); m_spare chains its erased nodes (inside that block).
//
//   for (DtNlNode* n = list.GetBeginNode(); n != list.GetEndNode(); n = n->next)
//     use(n->key, n->value);
#ifndef KPZ_UTIL_DTNLLISTIMPL_H
#define KPZ_UTIL_DTNLLISTIMPL_H

#include <cstdint>

#include "util/DtNlTypes.h"

struct DtNlNode {
  DtNlNode* next;     // following node; the end node after the last element
  DtNlNode* prev;     // preceding node; the end node before the first element
  const void* value;  // the caller's value (borrowed, never freed here)
  UINT32 key;         // the caller's key; NO_KEY for none
};

class DtNlListImpl : public DtNlNode {
 public:
  static const UINT32 NO_KEY = 0xFFFFFFFFu;

  DtNlListImpl();
  ~DtNlListImpl();  // Clear(): frees the nodes, never the values
  DtNlListImpl(const DtNlListImpl&) = delete;
  DtNlListImpl& operator=(const DtNlListImpl&) = delete;

  UINT32 GetSize() const { return size; }
  DtNlNode* GetBeginNode() const { return next; }  // == GetEndNode() when empty
  // The list itself. Handing the end node out as a mutable node is what lets
  // callers compare against it and insert before it.
  DtNlNode* GetEndNode() const { return const_cast<DtNlListImpl*>(this); }

  // First node at or after `from`, before the end node, with `key`; or null
  // (also for a null `from`).
  DtNlNode* Find(UINT32 searchKey) const { return Find(searchKey, next); }
  DtNlNode* Find(UINT32 searchKey, DtNlNode* from) const {
    // Deliberate: a null `from` finds nothing instead of being followed.
    const DtNlNode* end = GetEndNode();
    for (DtNlNode* node = from; node != nullptr && node != end; node = node->next) {
      if (node->key == searchKey) {
        return node;
      }
    }
    return nullptr;
  }

  // Links a new node immediately before `pos`. Null (list unchanged) when `key`
  // is a non-reserved key already present or `pos` is null.
  DtNlNode* Insert(DtNlNode* pos, const void* value, UINT32 key);
  // Insert without the duplicate-key search, for a caller that has just found
  // `key` absent (Find gave null) and changed nothing since: the search would
  // only repeat that. Inserting a present key breaks the list's invariant.
  // Null only for a null `pos`.
  DtNlNode* InsertAbsent(DtNlNode* pos, const void* nodeValue, UINT32 nodeKey) {
    if (pos == nullptr) {
      return nullptr;
    }
    // A lent node when one is free (an erased one first, then one never
    // taken), else a new one.
    DtNlNode* node = m_spare;
    if (node != nullptr) {
      m_spare = node->next;
    } else if (m_lentTaken < m_lentCount) {
      node = &m_lentBlock[m_lentTaken++];
    } else {
      node = newNode();
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
  DtNlNode* PushFront(const void* value, UINT32 key);
  DtNlNode* PushBack(const void* value, UINT32 key);

  // Unlinks and frees `node`, returning its value; null for a null or end node.
  const void* EraseNode(DtNlNode* node);
  void Clear();

  // 1 if `key` may be inserted (NO_KEY, or not present), else 0.
  UINT32 isValidKey(UINT32 key) const;

  // Lends the list `count` nodes at `block` (borrowed: they must outlive the
  // list and nobody else may touch them). Insert takes a spare lent node
  // before it allocates one; erasing a lent node gives it back to the spares
  // instead of freeing it. Accepted once, on an empty list without a block:
  // 0, else -1 (nothing changes; also for a null block or a count of 0).
  int LendNodes(DtNlNode* block, UINT32 count);
  // Lent nodes not holding an element now (0 without a block).
  UINT32 GetSpareCount() const;

 private:
  // A node allocated for the list, counted in m_ownNodes.
  DtNlNode* newNode();
  // True when `node` lies in the lent block.
  bool isLent(const DtNlNode* node) const {
    // Compared as addresses: a node of the block lies in [block, block + count).
    const std::uintptr_t at = reinterpret_cast<std::uintptr_t>(node);
    const std::uintptr_t begin = reinterpret_cast<std::uintptr_t>(m_lentBlock);
    return at >= begin && at - begin < static_cast<std::uintptr_t>(m_lentCount) * sizeof(DtNlNode);
  }

  // The count comes first, right after the four node fields.
  UINT32 size;            // number of elements
  UINT32 m_ownNodes;      // elements whose node was allocated (not lent)
  UINT32 m_lentCount;     // nodes in the lent block; 0 without one
  UINT32 m_lentTaken;     // lent nodes taken at least once since the list was last emptied
  DtNlNode* m_lentBlock;  // the lent block (borrowed), or null
  DtNlNode* m_spare;      // lent nodes erased since, chained through `next`
};

#endif  // KPZ_UTIL_DTNLLISTIMPL_H
