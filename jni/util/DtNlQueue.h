// DtNlQueue.h - first-in-first-out ring buffer of bytes (containers layer;
// uses DtNlStatus and DtNlLogger).
//
// Callers enqueue and dequeue byte ranges; the queue copies them in at most
// two contiguous pieces around the wrap point. Every byte of the buffer is
// usable: when the two positions meet, `dataSize` tells empty from full. A
// short transfer count means the queue filled or emptied and is not an error.
//
//   DtNlQueue q;
//   q.Initialize(8);
//   UINT8 in[6] = {1, 2, 3, 4, 5, 6}, out[4];
//   q.Enqueue(in, 6);    // 6
//   q.Dequeue(out, 4);   // 4: 1 2 3 4
//
// Pointer members: `start` is owned (new[]/delete[]); `end`, `enqueuePos` and
// `dequeuePos` point into it.
#ifndef KPZ_UTIL_DTNLQUEUE_H
#define KPZ_UTIL_DTNLQUEUE_H

#include "util/DtNlStatus.h"
#include "util/DtNlTypes.h"

class DtNlQueue {
 public:
  DtNlQueue();
  ~DtNlQueue();  // frees the buffer
  DtNlQueue(const DtNlQueue&) = delete;
  DtNlQueue& operator=(const DtNlQueue&) = delete;

  // Makes the buffer `size` bytes (reallocating only when the size changes)
  // and empties the queue. Size 0 releases the buffer: such a queue accepts
  // and delivers nothing. If the buffer cannot be allocated, logs ERR
  // "memory allocation error\n" and returns DtNlErrNoMemory with sysErrNo
  // ENOMEM; the queue then has no buffer.
  DtNlStatus Initialize(UINT32 size);

  // Copies up to `size` bytes from `src` in; returns the number accepted
  // (fewer when the queue fills; 0 for a null `src`).
  UINT32 Enqueue(UINT8* src, UINT32 size);
  // Copies up to `size` bytes out to `dst`, oldest first; returns the number
  // delivered (fewer when the queue empties; 0 for a null `dst`).
  UINT32 Dequeue(UINT8* dst, UINT32 size);

  // Discards the contents; the buffer is kept.
  void Clear();

 private:
  UINT32 getQueueSize() const;
  // Length of the contiguous free run at enqueuePos / filled run at
  // dequeuePos. An inconsistent dataSize fails an assertion.
  UINT32 getOneTimeCopiableSizeForEnqueue() const;
  UINT32 getOneTimeCopiableSizeForDequeue() const;
  // One contiguous copy of at most `size` bytes; returns the count copied.
  UINT32 enqueueByCopyingOneTime(const UINT8* src, UINT32 size);
  UINT32 dequeueByCopyingOneTime(UINT8* dst, UINT32 size);
  // `pos` advanced by n (n <= buffer size), wrapping once past the end.
  UINT8* forward(UINT8* pos, UINT32 n) const;
  void clear();

  UINT8* start;       // owned buffer; null before Initialize or for size 0
  UINT8* end;         // one past the buffer's last byte
  UINT8* enqueuePos;  // where the next byte is written
  UINT8* dequeuePos;  // where the next byte is read
  UINT32 dataSize;    // bytes held
};

#endif  // KPZ_UTIL_DTNLQUEUE_H
