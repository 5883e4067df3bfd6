// DtNlArrayListImpl.h - ordered list of opaque pointers in one contiguous array
// (containers layer; depends only on DtNlTypes).
//
// The list favours small memory over speed: a full list grows by exactly the
// one slot an insertion needs, and every shift of elements goes through a
// temporary copy. Slots from `size` up are always null. The list never owns,
// dereferences or frees the pointers it holds.
//
//   DtNlArrayListImpl list(2);
//   list.AddTail(&a);
//   list.AddHead(&b);          // b, a
//   void* first = list.Get(0); // &b
//
// Pointer members: `list` is owned (new[]/delete[]).
#ifndef KPZ_UTIL_DTNLARRAYLISTIMPL_H
#define KPZ_UTIL_DTNLARRAYLISTIMPL_H

#include "util/DtNlTypes.h"

class DtNlArrayListImpl {
 public:
  // Allocates `initialCapacity` null slots (a zero-slot array for 0). When the
  // array cannot be allocated (more than 0x1FC00000 slots, or the heap is
  // exhausted) the list starts with capacity 0 and grows on the first Add.
  explicit DtNlArrayListImpl(UINT32 initialCapacity);
  // Clears every slot and frees the array; the held pointers are not touched.
  ~DtNlArrayListImpl();
  DtNlArrayListImpl(const DtNlArrayListImpl&) = delete;
  DtNlArrayListImpl& operator=(const DtNlArrayListImpl&) = delete;

  UINT32 GetSize() const;
  UINT32 GetCapacity() const;
  // 1 when the list holds no element, else 0.
  UINT32 IsEmpty() const;

  // The element at `index`; null when `index` > size - 1 (unsigned, so an
  // empty list refuses no index and hands back its null slots) or when
  // `index` lies outside the array.
  void* Get(UINT32 index) const;
  // Slot 0 / slot size - 1 without an element check; null when there is no
  // such slot (capacity 0, or Tail of an empty list).
  void* Head() const;
  void* Tail() const;

  // Index of the first slot holding `item` (pointer equality), or -1.
  int IndexOf(const void* item) const;

  // Inserts `item` at `index` (0..size), shifting later elements up, and
  // returns `item`. Null when `index` > size or when the one extra slot a full
  // list needs cannot be allocated; the list is then unchanged. (Adding a null
  // pointer also returns null, although it succeeds.)
  const void* Add(const void* item, UINT32 index);
  const void* AddHead(const void* item);
  const void* AddTail(const void* item);

  // Removes and returns the element at `index`, shifting later elements down;
  // null when `index` >= size. The capacity is kept.
  void* Remove(UINT32 index);
  // Removes the first occurrence of `item`; null when it is not held.
  void* Remove(const void* item);
  void* RemoveHead();
  void* RemoveTail();

  // Nulls every slot and sets the size to 0; the array is kept.
  void Clear();

  // Resizes the array to max(n, size) slots, except when n equals the
  // capacity or when n is smaller and the list is full (a full list is never
  // shrunk). If the new array cannot be allocated the list is unchanged.
  void EnsureCapacity(UINT32 n);

 private:
  // An array of n null slots (new[]), or null when it cannot be allocated.
  static void** makeList(UINT32 n);
  static void clear(void** slots, UINT32 n);
  static void copyList(void** dst, void* const* src, UINT32 n);
  // Nulls n slots, then frees the array unless it is null.
  static void destroyList(void** slots, UINT32 n);
  // Copies n slots from src to dst through a temporary array, so that
  // overlapping ranges are safe in either direction; nothing for n == 0.
  static void moveList(void** dst, void* const* src, UINT32 n);

  void** list;      // owned; `capacity` slots, null when allocation failed
  UINT32 capacity;  // number of slots
  UINT32 size;      // number of elements, in slots 0..size-1
};

#endif  // KPZ_UTIL_DTNLARRAYLISTIMPL_H
