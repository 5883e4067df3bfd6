// DtNlVariableSizePointerStackImpl.cpp - the pointer stack with a growth step
// (containers layer).
//
//   DtNlVariableSizePointerStackImpl stack;
//   stack.Initialize(2, 2);
//   stack.Push(&a);
//   stack.Pop();   // &a
#include "util/DtNlVariableSizePointerStackImpl.h"

#include <cstdint>
#include <new>

namespace {

// More slots than this cannot be addressed on the 32-bit target; such a
// request is reported as an allocation failure.
const UINT32 kMaxSlots = 0x1FC00000u;

// `count` null slots (new[]), or null when they cannot be allocated.
void** allocateSlots(std::uint64_t count) {
  if (count > kMaxSlots) {
    return nullptr;
  }
  return new (std::nothrow) void*[static_cast<UINT32>(count)]();
}

}  // namespace

DtNlVariableSizePointerStackImpl::DtNlVariableSizePointerStackImpl()
    : base(nullptr), limit(nullptr), top(nullptr), extendSize(0) {}

DtNlVariableSizePointerStackImpl::~DtNlVariableSizePointerStackImpl() {
  delete[] base;
  base = nullptr;
  limit = nullptr;
  top = nullptr;
}

DtNlStatus DtNlVariableSizePointerStackImpl::Initialize(UINT32 size, UINT32 stepSize) {
  DTNL_ASSERT(__LINE__, size != 0, "");
  DTNL_ASSERT(__LINE__, stepSize != 0, "");
  DTNL_ASSERT(__LINE__, base == top, "");

  DtNlStatus status;
  if (base != nullptr && static_cast<UINT32>(getSize()) == size) {
    extendSize = stepSize;  // same capacity: keep the array
    return status;
  }

  delete[] base;
  base = allocateSlots(size);
  if (base == nullptr) {
    limit = nullptr;
    top = nullptr;
    extendSize = 0;
    status = DtNlErrNoMemory;
    return status;
  }
  top = base;
  limit = base + size;
  extendSize = stepSize;
  return status;
}

DtNlStatus DtNlVariableSizePointerStackImpl::Push(void* item) {
  DTNL_ASSERT(__LINE__, top != nullptr, "");
  DTNL_ASSERT(__LINE__, limit != nullptr, "");
  // Deliberate order: a full stack fails here, before the growth below could
  // run. Owners size the stack through Initialize.
  DTNL_ASSERT(__LINE__, top < limit, "");
  if (top == limit) {
    const DtNlStatus grown = extend();
    if (grown.IsFailure()) {
      return grown;
    }
  }
  DTNL_ASSERT(__LINE__, limit > top, "");
  *top = item;
  ++top;
  return DtNlStatus();
}

void* DtNlVariableSizePointerStackImpl::Pop() {
  DTNL_ASSERT(__LINE__, top != nullptr, "");
  DTNL_ASSERT(__LINE__, base != nullptr, "");
  DTNL_ASSERT(__LINE__, top >= base, "");
  if (top == base) {
    return nullptr;
  }
  --top;
  return *top;
}

DtNlStatus DtNlVariableSizePointerStackImpl::extend() {
  DTNL_ASSERT(__LINE__, base != nullptr, "");
  DTNL_ASSERT(__LINE__, getSize() != 0, "");
  DTNL_ASSERT(__LINE__, extendSize != 0, "");
  const int stacked = getStackedCount();
  const UINT32 oldCapacity = static_cast<UINT32>(getSize());
  // Summed in 64 bits so that no step can wrap the capacity.
  const std::uint64_t newCapacity = static_cast<std::uint64_t>(oldCapacity) + extendSize;

  DtNlStatus status;
  void** grown = allocateSlots(newCapacity);
  if (grown == nullptr) {
    status = DtNlErrNoMemory;
    return status;  // the stack is unchanged
  }
  for (UINT32 i = 0; i < oldCapacity; ++i) {
    grown[i] = base[i];
  }
  delete[] base;
  base = grown;
  limit = base + newCapacity;
  top = base + stacked;
  return status;
}
