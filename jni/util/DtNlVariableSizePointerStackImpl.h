// DtNlVariableSizePointerStackImpl.h - last-in-first-out stack of opaque
// pointers that also records a growth step (containers layer; uses
// DtNlStatus and DtNlLogger).
//
// Push asserts that a slot is free before it would grow the stack, so a
// variable stack must be given enough capacity by Initialize before it fills;
// pushing onto a full stack ends the process through DtNlLogger::Assert, as do
// use before Initialize and re-initialising a non-empty stack. Allocation
// failure is a DtNlErrNoMemory status.
//
//   DtNlVariableSizePointerStackImpl stack;
//   stack.Initialize(8, 4);
//   stack.Push(&item);
//   int held = stack.getStackedCount();   // 1
//
// Pointer members: `base` is owned (new[]/delete[]); `limit` and `top` point
// into it. The stacked pointers are borrowed and never dereferenced.
#ifndef KPZ_UTIL_DTNLVARIABLESIZEPOINTERSTACKIMPL_H
#define KPZ_UTIL_DTNLVARIABLESIZEPOINTERSTACKIMPL_H

#include "util/DtNlLogger.h"
#include "util/DtNlStatus.h"
#include "util/DtNlTypes.h"

class DtNlVariableSizePointerStackImpl {
 public:
  DtNlVariableSizePointerStackImpl();
  // Frees the array, if any.
  ~DtNlVariableSizePointerStackImpl();
  DtNlVariableSizePointerStackImpl(const DtNlVariableSizePointerStackImpl&) = delete;
  DtNlVariableSizePointerStackImpl& operator=(const DtNlVariableSizePointerStackImpl&) = delete;

  // Prepares `size` slots and records `stepSize` as the growth step; asserts
  // both are non-zero and that the stack is empty. An existing array of
  // exactly `size` slots is kept (only the step changes). More than 0x1FC00000
  // slots, or an exhausted heap, gives DtNlErrNoMemory (sysErrNo 0) and leaves
  // the stack uninitialised.
  DtNlStatus Initialize(UINT32 size, UINT32 stepSize);

  // Stores `item` on top and returns success. Asserts that the stack was
  // initialised and that a slot is free.
  DtNlStatus Push(void* item);

  // Removes and returns the top item; null when the stack is empty. Asserts
  // that the stack was initialised.
  void* Pop();

  // Capacity in slots (0 before Initialize); asserts limit >= base.
  int getSize() const {
    // The header names itself: __FILE__ would differ between the library and
    // its callers' translation units.
    DtNlLogger::Assert("jni/util/DtNlVariableSizePointerStackImpl.h", __func__, __LINE__,
                       limit >= base ? 1 : 0, "");
    return static_cast<int>(limit - base);
  }

  // Items held; asserts top >= base and limit >= top.
  int getStackedCount() const {
    DtNlLogger::Assert("jni/util/DtNlVariableSizePointerStackImpl.h", __func__, __LINE__,
                       top >= base ? 1 : 0, "");
    DtNlLogger::Assert("jni/util/DtNlVariableSizePointerStackImpl.h", __func__, __LINE__,
                       limit >= top ? 1 : 0, "");
    return static_cast<int>(top - base);
  }

 private:
  // Adds `extendSize` slots, keeping the stacked items; DtNlErrNoMemory and
  // an unchanged stack when the larger array cannot be allocated.
  DtNlStatus extend();

  void** base;        // owned slot array; null before Initialize
  void** limit;       // one past the last slot
  void** top;         // next free slot; == base when empty
  UINT32 extendSize;  // slots added by each extension
};

#endif  // KPZ_UTIL_DTNLVARIABLESIZEPOINTERSTACKIMPL_H
