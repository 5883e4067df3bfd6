// DtNlPointerQueueImpl.h - first-in-first-out ring of opaque pointers that can
// also put an item back at the front (containers layer; uses DtNlStatus and
// DtNlLogger).
//
// A queue of capacity n has n + 1 slots; one slot always stays free, so equal
// positions mean empty and a free slot just before dequeuePos means full.
// Overfilling ends the process through DtNlLogger::Assert ("the queue is
// full!!"); check IsFull() first. A queue without slots (before Initialize, or
// initialised with 0) has capacity 0 and counts as both empty and full.
//
//   DtNlPointerQueueImpl q;
//   q.Initialize(3);
//   q.Enqueue(&a);
//   q.EnqueueForward(&b);       // b is dequeued next
//   const void* p = q.Dequeue();  // &b
//
// Pointer members: `start` is owned (new[]/delete[]); `enqueuePos`,
// `dequeuePos` and `end` point into it. The queued pointers are borrowed and
// never dereferenced.
#ifndef KPZ_UTIL_DTNLPOINTERQUEUEIMPL_H
#define KPZ_UTIL_DTNLPOINTERQUEUEIMPL_H

#include "util/DtNlStatus.h"
#include "util/DtNlTypes.h"

class DtNlPointerQueueImpl {
 public:
  DtNlPointerQueueImpl();
  ~DtNlPointerQueueImpl();  // frees the slots
  DtNlPointerQueueImpl(const DtNlPointerQueueImpl&) = delete;
  DtNlPointerQueueImpl& operator=(const DtNlPointerQueueImpl&) = delete;

  // Gives the queue capacity `size` (size + 1 slots, reallocated only when
  // GetSize() differs) and empties it. Size 0 releases the slots. If the
  // slots cannot be allocated (also for size 0xFFFFFFFF, whose slot count
  // does not fit 32 bits), logs ERR "memory allocation error\n" and returns
  // DtNlErrNoMemory with sysErrNo ENOMEM; the queue then has no slots.
  DtNlStatus Initialize(UINT32 size);

  // Appends `item`; asserts that the queue is not full.
  void Enqueue(const void* item);
  // Puts `item` in front of the oldest item so that it is dequeued next;
  // asserts that the queue is not full. Logs the positions before and after
  // (two INFO lines).
  void EnqueueForward(const void* item);
  // Removes and returns the oldest item; null when empty.
  const void* Dequeue();
  // The oldest item without removing it; null when empty.
  const void* Look() const;

  int GetQueuedCount() const;
  // Capacity: slots - 1, or 0 without slots.
  int GetSize() const;
  // 1 when no further item fits, else 0.
  UINT32 IsFull() const;
  // Empties the queue; the slots are kept.
  void Clear();

 private:
  // The next / previous slot, wrapping; without slots the position itself.
  const void** forward(const void** pos) const;
  const void** backward(const void** pos) const;

  const void** start;       // owned slot array; null without slots
  const void** enqueuePos;  // next slot to fill
  const void** dequeuePos;  // next slot to take
  const void** end;         // one past the last slot
};

#endif  // KPZ_UTIL_DTNLPOINTERQUEUEIMPL_H
