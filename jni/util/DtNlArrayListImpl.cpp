// DtNlArrayListImpl.cpp - the contiguous pointer list (containers layer).
//
// Growth is by exactly one slot per insertion into a full list; shifts copy
// through a temporary array.
//
//   DtNlArrayListImpl list(0);
//   list.AddTail(&x);   // capacity 1
#include "util/DtNlArrayListImpl.h"

#include <cstring>
#include <new>

namespace {

// Largest slot count ever requested from the allocator; anything above it
// cannot be addressed on the 32-bit target and is treated as an allocation
// failure.
const UINT32 kMaxSlots = 0x1FC00000u;

}  // namespace

DtNlArrayListImpl::DtNlArrayListImpl(UINT32 initialCapacity)
    : list(makeList(initialCapacity)), capacity(initialCapacity), size(0) {
  if (list == nullptr) {
    // Deliberate: a list whose array could not be allocated starts empty with
    // no slots instead of pretending to have them.
    capacity = 0;
  }
}

DtNlArrayListImpl::~DtNlArrayListImpl() {
  destroyList(list, capacity);
  list = nullptr;
  capacity = 0;
  size = 0;
}

UINT32 DtNlArrayListImpl::GetSize() const { return size; }

UINT32 DtNlArrayListImpl::GetCapacity() const { return capacity; }

UINT32 DtNlArrayListImpl::IsEmpty() const { return size == 0 ? 1u : 0u; }

void* DtNlArrayListImpl::Get(UINT32 index) const {
  // Deliberate unsigned wrap: on an empty list size - 1 is 0xFFFFFFFF, so no
  // index is refused here and the (null) slots themselves are returned.
  const UINT32 last = static_cast<UINT32>(size - 1u);
  if (index > last) {
    return nullptr;
  }
  // The wrap above must never lead outside the array.
  if (index >= capacity) {
    return nullptr;
  }
  return list[index];
}

void* DtNlArrayListImpl::Head() const {
  if (capacity == 0) {
    return nullptr;  // no slot 0 to read
  }
  return list[0];
}

void* DtNlArrayListImpl::Tail() const {
  if (size == 0) {
    return nullptr;  // deliberate: an empty list has no tail slot to read
  }
  return list[size - 1u];
}

int DtNlArrayListImpl::IndexOf(const void* item) const {
  for (UINT32 i = 0; i < size; ++i) {
    if (list[i] == item) {
      return static_cast<int>(i);
    }
  }
  return -1;
}

const void* DtNlArrayListImpl::Add(const void* item, UINT32 index) {
  if (index > size) {
    return nullptr;
  }
  if (size + 1u > capacity) {
    EnsureCapacity(size + 1u);
    if (size + 1u > capacity) {
      return nullptr;  // the extra slot could not be allocated
    }
  }
  if (index < size) {
    moveList(list + index + 1, list + index, size - index);
  }
  // The list holds opaque pointers it never writes through; constness is the
  // caller's business and is restored when the pointer is handed back.
  list[index] = const_cast<void*>(item);  // NOLINT(cppcoreguidelines-pro-type-const-cast)
  ++size;
  return item;
}

const void* DtNlArrayListImpl::AddHead(const void* item) { return Add(item, 0); }

const void* DtNlArrayListImpl::AddTail(const void* item) { return Add(item, size); }

void* DtNlArrayListImpl::Remove(UINT32 index) {
  if (index >= size) {
    return nullptr;
  }
  void* removed = list[index];
  if (index < size - 1u) {
    moveList(list + index, list + index + 1, size - 1u - index);
  }
  list[size - 1u] = nullptr;
  --size;
  return removed;
}

void* DtNlArrayListImpl::Remove(const void* item) {
  const int index = IndexOf(item);
  if (index < 0) {
    return nullptr;
  }
  return Remove(static_cast<UINT32>(index));
}

void* DtNlArrayListImpl::RemoveHead() { return Remove(static_cast<UINT32>(0)); }

void* DtNlArrayListImpl::RemoveTail() {
  // Deliberate unsigned wrap: on an empty list the index becomes 0xFFFFFFFF,
  // which Remove refuses.
  return Remove(static_cast<UINT32>(size - 1u));
}

void DtNlArrayListImpl::Clear() {
  clear(list, capacity);
  size = 0;
}

void DtNlArrayListImpl::EnsureCapacity(UINT32 n) {
  if (n == capacity) {
    return;
  }
  if (n < capacity && size == capacity) {
    return;  // a full list is never shrunk
  }
  const UINT32 newCapacity = n > size ? n : size;
  void** newList = makeList(newCapacity);
  if (newList == nullptr) {
    return;  // allocation failed: the list stays as it was
  }
  copyList(newList, list, size);
  destroyList(list, capacity);
  list = newList;
  capacity = newCapacity;
}

void** DtNlArrayListImpl::makeList(UINT32 n) {
  if (n > kMaxSlots) {
    return nullptr;
  }
  void** slots = new (std::nothrow) void*[n];
  if (slots != nullptr) {
    clear(slots, n);
  }
  return slots;
}

void DtNlArrayListImpl::clear(void** slots, UINT32 n) {
  for (UINT32 i = 0; i < n; ++i) {
    slots[i] = nullptr;
  }
}

void DtNlArrayListImpl::copyList(void** dst, void* const* src, UINT32 n) {
  for (UINT32 i = 0; i < n; ++i) {
    dst[i] = src[i];
  }
}

void DtNlArrayListImpl::destroyList(void** slots, UINT32 n) {
  if (slots == nullptr) {
    return;
  }
  clear(slots, n);
  delete[] slots;
}

void DtNlArrayListImpl::moveList(void** dst, void* const* src, UINT32 n) {
  if (n == 0) {
    return;
  }
  void** temp = makeList(n);
  if (temp == nullptr) {
    // Deliberate: without a temporary the shift is still done, overlap-safe,
    // in place, so that an insertion or removal never half-happens.
    std::memmove(static_cast<void*>(dst), static_cast<const void*>(src), n * sizeof(void*));
    return;
  }
  copyList(temp, src, n);
  copyList(dst, temp, n);
  destroyList(temp, n);
}
