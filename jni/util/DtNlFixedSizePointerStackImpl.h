// DtNlFixedSizePointerStackImpl.h - last-in-first-out stack of opaque pointers
// with a capacity set once by Initialize (containers layer; uses DtNlStatus
// and DtNlLogger).
//
// Misuse (use before Initialize, bounds out of order, re-initialising a
// non-empty stack, pushing onto a full stack) ends the process through
// DtNlLogger::Assert; allocation failure is a DtNlErrNoMemory status.
//
//   DtNlFixedSizePointerStackImpl stack;
//   if (stack.Initialize(16).IsSuccess()) {
//     stack.Push(&item);
//     void* top = stack.Pop();   // &item
//   }
//
// Pointer members: `base` is owned (new[]/delete[]); `limit` and `top` point
// into it. The stacked pointers are borrowed and never dereferenced.
#ifndef KPZ_UTIL_DTNLFIXEDSIZEPOINTERSTACKIMPL_H
#define KPZ_UTIL_DTNLFIXEDSIZEPOINTERSTACKIMPL_H

#include "util/DtNlLogger.h"
#include "util/DtNlStatus.h"
#include "util/DtNlTypes.h"

class DtNlFixedSizePointerStackImpl {
 public:
  DtNlFixedSizePointerStackImpl();
  // Frees the array, if any.
  ~DtNlFixedSizePointerStackImpl();
  DtNlFixedSizePointerStackImpl(const DtNlFixedSizePointerStackImpl&) = delete;
  DtNlFixedSizePointerStackImpl& operator=(const DtNlFixedSizePointerStackImpl&) = delete;

  // Prepares `size` slots; asserts `size` != 0 and that the stack is empty.
  // An existing array of exactly `size` slots is kept. More than 0x1FC00000
  // slots, or an exhausted heap, gives DtNlErrNoMemory (sysErrNo 0) and leaves
  // the stack uninitialised.
  DtNlStatus Initialize(UINT32 size);

  // Stores `item` on top and returns success. Pushing before Initialize or
  // onto a full stack fails an assertion: a fixed stack never grows.
  DtNlStatus Push(void* item);

  // Removes and returns the top item; null when the stack is empty. Asserts
  // that the stack was initialised.
  void* Pop();

  // Capacity in slots (0 before Initialize); asserts limit >= base.
  int getSize() const {
    // The header names itself: __FILE__ would differ between the library and
    // its callers' translation units.
    DtNlLogger::Assert("jni/util/DtNlFixedSizePointerStackImpl.h", __func__, __LINE__,
                       limit >= base ? 1 : 0, "");
    return static_cast<int>(limit - base);
  }

 private:
  void** base;   // owned slot array; null before Initialize
  void** limit;  // one past the last slot
  void** top;    // next free slot; == base when empty
};

#endif  // KPZ_UTIL_DTNLFIXEDSIZEPOINTERSTACKIMPL_H
