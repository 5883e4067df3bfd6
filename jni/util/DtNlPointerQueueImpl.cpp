// DtNlPointerQueueImpl.cpp - the pointer ring with one spare slot (containers
// layer).
//
//   DtNlPointerQueueImpl q;
//   q.Initialize(2);
//   q.Enqueue(&a);
//   q.Look();   // &a
#include "util/DtNlPointerQueueImpl.h"

#include <cerrno>
#include <new>

#include "util/DtNlLogger.h"

DtNlPointerQueueImpl::DtNlPointerQueueImpl()
    : start(nullptr), enqueuePos(nullptr), dequeuePos(nullptr), end(nullptr) {}

DtNlPointerQueueImpl::~DtNlPointerQueueImpl() {
  delete[] start;
  start = nullptr;
  enqueuePos = nullptr;
  dequeuePos = nullptr;
  end = nullptr;
}

DtNlStatus DtNlPointerQueueImpl::Initialize(UINT32 size) {
  DtNlStatus status;
  if (static_cast<UINT32>(GetSize()) != size) {
    delete[] start;
    start = nullptr;
    end = nullptr;
    // Deliberate: capacity 0 keeps no slots at all (a single slot could never
    // hold an item), which leaves the queue in its never-initialised state.
    if (size != 0) {
      // size + 1 slots: 0xFFFFFFFF would wrap to 0 and is refused like any
      // other impossible allocation.
      if (size != 0xFFFFFFFFu) {
        start = new (std::nothrow) const void*[size + 1u]();
      }
      if (start == nullptr) {
        enqueuePos = nullptr;
        dequeuePos = nullptr;
        DTNL_LOG(DTNL_LV_ERR, __LINE__, "memory allocation error\n");
        status.errCode = DtNlErrNoMemory;
        status.sysErrNo = ENOMEM;
        return status;
      }
      end = start + size + 1u;
    }
  }
  Clear();
  return status;
}

void DtNlPointerQueueImpl::Enqueue(const void* item) {
  const void** next = forward(enqueuePos);
  DTNL_ASSERT(__LINE__, next != dequeuePos, "the queue is full!!");
  *enqueuePos = item;
  enqueuePos = next;
}

void DtNlPointerQueueImpl::EnqueueForward(const void* item) {
  const void** previous = backward(dequeuePos);
  DTNL_ASSERT(__LINE__, previous != enqueuePos, "the queue is full!!");
  DTNL_LOG(DTNL_LV_INFO, __LINE__, "%s b en=%p de=%p pp=%p,end=%p", "EnqueueForward",
           static_cast<const void*>(enqueuePos), static_cast<const void*>(dequeuePos),
           static_cast<const void*>(start), static_cast<const void*>(end));
  dequeuePos = previous;
  *dequeuePos = item;
  DTNL_LOG(DTNL_LV_INFO, __LINE__, "%s b en=%p de=%p pp=%p,end=%p", "EnqueueForward",
           static_cast<const void*>(enqueuePos), static_cast<const void*>(dequeuePos),
           static_cast<const void*>(start), static_cast<const void*>(end));
}

const void* DtNlPointerQueueImpl::Dequeue() {
  if (enqueuePos == dequeuePos) {
    return nullptr;
  }
  const void* item = *dequeuePos;
  dequeuePos = forward(dequeuePos);
  return item;
}

const void* DtNlPointerQueueImpl::Look() const {
  if (enqueuePos == dequeuePos) {
    return nullptr;
  }
  return *dequeuePos;
}

int DtNlPointerQueueImpl::GetQueuedCount() const {
  if (enqueuePos >= dequeuePos) {
    return static_cast<int>(enqueuePos - dequeuePos);
  }
  return static_cast<int>((end - start) - (dequeuePos - enqueuePos));
}

int DtNlPointerQueueImpl::GetSize() const {
  if (start != nullptr && end != nullptr) {
    DTNL_ASSERT(__LINE__, end - start >= 2, "");
    return static_cast<int>(end - start - 1);
  }
  DTNL_ASSERT(__LINE__, start == end, "");
  return 0;
}

UINT32 DtNlPointerQueueImpl::IsFull() const {
  return forward(enqueuePos) == dequeuePos ? 1u : 0u;
}

void DtNlPointerQueueImpl::Clear() {
  enqueuePos = start;
  dequeuePos = start;
}

const void** DtNlPointerQueueImpl::forward(const void** pos) const {
  if (start == nullptr) {
    // Deliberate: without slots the only position is null; returning it makes
    // the queue count as full, so Enqueue ends in "the queue is full!!".
    return pos;
  }
  if (end - pos > 1) {
    return pos + 1;
  }
  DTNL_ASSERT(__LINE__, end - pos == 1, "");
  return start;
}

const void** DtNlPointerQueueImpl::backward(const void** pos) const {
  if (start == nullptr) {
    return pos;  // as in forward: no slots, the queue is full
  }
  if (pos != start) {
    return pos - 1;
  }
  return end - 1;
}
