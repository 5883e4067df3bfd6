// DtNlQueue.cpp - the byte ring buffer (containers layer).
//
//   DtNlQueue q;
//   q.Initialize(4);
//   q.Enqueue(bytes, 6);   // 4: the queue is full
#include "util/DtNlQueue.h"

#include <cerrno>
#include <cstring>
#include <new>

#include "util/DtNlLogger.h"

DtNlQueue::DtNlQueue()
    : start(nullptr), end(nullptr), enqueuePos(nullptr), dequeuePos(nullptr), dataSize(0) {}

DtNlQueue::~DtNlQueue() {
  delete[] start;
  start = nullptr;
  end = nullptr;
  enqueuePos = nullptr;
  dequeuePos = nullptr;
  dataSize = 0;
}

DtNlStatus DtNlQueue::Initialize(UINT32 size) {
  DtNlStatus status;
  if (size != getQueueSize()) {
    delete[] start;
    start = nullptr;
    end = nullptr;
    // Deliberate: size 0 keeps no buffer at all; the empty range start..end
    // makes the queue both empty and full, so transfers move nothing.
    if (size != 0) {
      start = new (std::nothrow) UINT8[size];
      if (start == nullptr) {
        enqueuePos = nullptr;
        dequeuePos = nullptr;
        dataSize = 0;
        DTNL_LOG(DTNL_LV_ERR, __LINE__, "memory allocation error\n");
        status.errCode = DtNlErrNoMemory;
        status.sysErrNo = ENOMEM;
        return status;
      }
      end = start + size;
    }
  }
  clear();
  return status;
}

UINT32 DtNlQueue::Enqueue(UINT8* src, UINT32 size) {
  if (src == nullptr) {
    return 0;  // deliberate: nothing to copy from
  }
  UINT32 remaining = size;
  // At most two rounds: up to the end of the buffer, then from its start.
  while (remaining != 0) {
    const UINT32 copied = enqueueByCopyingOneTime(src, remaining);
    if (copied == 0) {
      break;
    }
    src += copied;
    DTNL_ASSERT(__LINE__, remaining >= copied, "");
    remaining -= copied;
    DTNL_ASSERT(__LINE__, remaining <= size, "");
  }
  return size - remaining;
}

UINT32 DtNlQueue::Dequeue(UINT8* dst, UINT32 size) {
  if (dst == nullptr) {
    return 0;  // deliberate: nowhere to copy to
  }
  UINT32 remaining = size;
  while (remaining != 0) {
    const UINT32 copied = dequeueByCopyingOneTime(dst, remaining);
    if (copied == 0) {
      break;
    }
    dst += copied;
    DTNL_ASSERT(__LINE__, remaining >= copied, "");
    remaining -= copied;
    DTNL_ASSERT(__LINE__, remaining <= size, "");
  }
  return size - remaining;
}

void DtNlQueue::Clear() { clear(); }

UINT32 DtNlQueue::getQueueSize() const { return static_cast<UINT32>(end - start); }

UINT32 DtNlQueue::getOneTimeCopiableSizeForEnqueue() const {
  if (dequeuePos < enqueuePos) {
    DTNL_ASSERT(__LINE__, enqueuePos < end, "");
    return static_cast<UINT32>(end - enqueuePos);
  }
  if (enqueuePos < dequeuePos) {
    return static_cast<UINT32>(dequeuePos - enqueuePos);
  }
  // The positions meet: full is tested first so that a queue without a
  // buffer (size 0, both empty and full) offers no room.
  if (dataSize == getQueueSize()) {
    return 0;
  }
  if (dataSize == 0) {
    DTNL_ASSERT(__LINE__, enqueuePos < end, "");
    return static_cast<UINT32>(end - enqueuePos);
  }
  DTNL_ASSERT(__LINE__, false, "invalid data size(%u)", dataSize);
  return 0;
}

UINT32 DtNlQueue::getOneTimeCopiableSizeForDequeue() const {
  if (dequeuePos < enqueuePos) {
    return static_cast<UINT32>(enqueuePos - dequeuePos);
  }
  if (enqueuePos < dequeuePos) {
    DTNL_ASSERT(__LINE__, dequeuePos < end, "");
    return static_cast<UINT32>(end - dequeuePos);
  }
  if (dataSize == 0) {
    return 0;
  }
  if (dataSize == getQueueSize()) {
    DTNL_ASSERT(__LINE__, dequeuePos < end, "");
    return static_cast<UINT32>(end - dequeuePos);
  }
  DTNL_ASSERT(__LINE__, false, "");
  return 0;
}

UINT32 DtNlQueue::enqueueByCopyingOneTime(const UINT8* src, UINT32 size) {
  UINT32 count = getOneTimeCopiableSizeForEnqueue();
  if (count == 0) {
    return 0;
  }
  if (count > size) {
    count = size;
  }
  std::memcpy(enqueuePos, src, count);
  enqueuePos = forward(enqueuePos, count);
  dataSize += count;
  return count;
}

UINT32 DtNlQueue::dequeueByCopyingOneTime(UINT8* dst, UINT32 size) {
  UINT32 count = getOneTimeCopiableSizeForDequeue();
  if (count == 0) {
    return 0;
  }
  if (count > size) {
    count = size;
  }
  std::memcpy(dst, dequeuePos, count);
  dequeuePos = forward(dequeuePos, count);
  DTNL_ASSERT(__LINE__, dataSize >= count, "");
  dataSize -= count;
  return count;
}

UINT8* DtNlQueue::forward(UINT8* pos, UINT32 n) const {
  // Measured against the room left, so that no pointer beyond `end` is formed.
  const UINT32 room = static_cast<UINT32>(end - pos);
  if (n < room) {
    return pos + n;
  }
  return start + (n - room);
}

void DtNlQueue::clear() {
  enqueuePos = start;
  dequeuePos = start;
  dataSize = 0;
}
