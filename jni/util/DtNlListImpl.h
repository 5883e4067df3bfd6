// DtNlListImpl.h - circular doubly linked list of (value, key) nodes.
//
// The list object is itself the end node (sentinel): following `next` from it
// visits every element and comes back to it. Keys are unique except the
// reserved NO_KEY (0xFFFFFFFF), which may occur any number of times. The list
// never owns, dereferences or frees the values: erasing a node hands its value
// back to the caller. Nodes are allocated singly and freed by the list.
// Because its links point at its own address, a list is never copied or moved.
//
//   for (DtNlNode* n = list.GetBeginNode(); n != list.GetEndNode(); n = n->next)
//     use(n->key, n->value);
#ifndef KPZ_UTIL_DTNLLISTIMPL_H
#define KPZ_UTIL_DTNLLISTIMPL_H

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

  UINT32 GetSize() const;
  DtNlNode* GetBeginNode() const;  // == GetEndNode() when empty
  DtNlNode* GetEndNode() const;    // the list itself

  // First node at or after `from`, before the end node, with `key`; or null
  // (also for a null `from`).
  DtNlNode* Find(UINT32 key) const;
  DtNlNode* Find(UINT32 key, DtNlNode* from) const;

  // Links a new node immediately before `pos`. Null (list unchanged) when `key`
  // is a non-reserved key already present or `pos` is null.
  DtNlNode* Insert(DtNlNode* pos, const void* value, UINT32 key);
  DtNlNode* PushFront(const void* value, UINT32 key);
  DtNlNode* PushBack(const void* value, UINT32 key);

  // Unlinks and frees `node`, returning its value; null for a null or end node.
  const void* EraseNode(DtNlNode* node);
  void Clear();

  // 1 if `key` may be inserted (NO_KEY, or not present), else 0.
  UINT32 isValidKey(UINT32 key) const;

 private:
  UINT32 size;  // number of elements
};

#endif  // KPZ_UTIL_DTNLLISTIMPL_H
