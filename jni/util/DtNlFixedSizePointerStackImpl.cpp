// DtNlFixedSizePointerStackImpl.cpp - the fixed-capacity pointer stack
// (containers layer).
//
//   DtNlFixedSizePointerStackImpl stack;
//   stack.Initialize(4);
//   stack.Push(&a);
//   stack.Pop();   // &a
#include "util/DtNlFixedSizePointerStackImpl.h"

#include <new>

namespace {

// More slots than this cannot be addressed on the 32-bit target; such a
// request is reported as an allocation failure.
const UINT32 kMaxSlots = 0x1FC00000u;

}  // namespace

DtNlFixedSizePointerStackImpl::DtNlFixedSizePointerStackImpl()
    : base(nullptr), limit(nullptr), top(nullptr) {}

DtNlFixedSizePointerStackImpl::~DtNlFixedSizePointerStackImpl() {
  // The array is released here too, so that a fixed stack never leaks it.
  delete[] base;
  base = nullptr;
  limit = nullptr;
  top = nullptr;
}

DtNlStatus DtNlFixedSizePointerStackImpl::Initialize(UINT32 size) {
  DTNL_ASSERT(__LINE__, size != 0, "");
  DTNL_ASSERT(__LINE__, base == top, "");

  DtNlStatus status;
  if (base != nullptr && static_cast<UINT32>(getSize()) == size) {
    return status;  // same capacity: keep the array
  }

  delete[] base;
  base = (size > kMaxSlots) ? nullptr : new (std::nothrow) void*[size]();  // null slots
  if (base == nullptr) {
    limit = nullptr;
    top = nullptr;
    status = DtNlErrNoMemory;
    return status;
  }
  top = base;
  limit = base + size;
  return status;
}

DtNlStatus DtNlFixedSizePointerStackImpl::Push(void* item) {
  DTNL_ASSERT(__LINE__, top != nullptr, "");
  DTNL_ASSERT(__LINE__, limit != nullptr, "");
  DTNL_ASSERT(__LINE__, top < limit, "");
  *top = item;
  ++top;
  return DtNlStatus();
}

void* DtNlFixedSizePointerStackImpl::Pop() {
  DTNL_ASSERT(__LINE__, top != nullptr, "");
  DTNL_ASSERT(__LINE__, base != nullptr, "");
  DTNL_ASSERT(__LINE__, top >= base, "");
  if (top == base) {
    return nullptr;
  }
  --top;
  return *top;
}
