// DtNlBuffIo.cpp - the byte channel over a caller-owned memory block.
#include "util/io/DtNlBuffIo.h"

#include <cstring>

DtNlBuffIo::DtNlBuffIo() : DtNlIo(KIND_MEMORY), m_buffer(nullptr), m_size(0), m_position(0) {}

DtNlBuffIo::~DtNlBuffIo() { DtNlBuffIo::Close(); }

int DtNlBuffIo::Open(const UINT8* buffer, UINT size) {
  init();
  if (m_buffer != nullptr) {
    setErr(DtNlErrAlreadyOpen);
    return -1;
  }
  // The block stays the caller's; WriteU8 writes into it, so the channel keeps
  // it as writable memory.
  m_buffer = const_cast<UINT8*>(buffer);
  m_size = size;
  m_position = 0;
  return 0;
}

int DtNlBuffIo::Close() {
  m_buffer = nullptr;
  m_size = 0;
  m_position = 0;
  return 0;
}

UINT DtNlBuffIo::clampToEnd(UINT size) {
  // Subtraction form of "position + size >= block size": m_position never
  // exceeds m_size, and no sum can wrap however large `size` is.
  const UINT left = m_size - m_position;
  if (size >= left) {
    m_endFlag = 1;  // reaching the end exactly counts as well
    return left;
  }
  return size;
}

UINT DtNlBuffIo::ReadU8(UINT8* dst, UINT size) {
  if (m_buffer == nullptr || (dst == nullptr && size != 0)) {
    // No block (or nowhere to copy to): nothing moves and nothing changes.
    return 0;
  }
  const UINT n = clampToEnd(size);
  if (n == 0) {
    return 0;
  }
  std::memcpy(dst, m_buffer + m_position, n);
  m_position += n;
  return n;
}

UINT DtNlBuffIo::WriteU8(UINT8 const* src, UINT size) {
  if (m_buffer == nullptr || (src == nullptr && size != 0)) {
    // No block (or nothing to copy from): nothing moves and nothing changes.
    return 0;
  }
  const UINT n = clampToEnd(size);
  if (n == 0) {
    return 0;
  }
  std::memcpy(m_buffer + m_position, src, n);
  m_position += n;
  return n;
}

int DtNlBuffIo::Seek(long long offset, DtNlIoSeekPos origin) {
  if (static_cast<UINT32>(origin) > 3u) {
    return -1;
  }
  // The target is computed in 64 bits from a 32-bit offset and 32-bit
  // position, size and base offset, so no sum or difference can wrap.
  const long long off = lowOffset(offset);
  long long target = 0;
  switch (origin) {
    case DtNlIoSeekSet:
      target = off;
      break;
    case DtNlIoSeekCur:
      target = static_cast<long long>(m_position) + off;
      break;
    case DtNlIoSeekEnd:
      // Counts backward: a positive offset moves toward the start.
      target = static_cast<long long>(m_size) - off;
      break;
    case DtNlIoSeekBase:
    default:
      target = off + GetBaseOffset();
      break;
  }
  if (target < 0) {
    target = 0;
  }
  if (target < static_cast<long long>(m_size)) {
    m_position = static_cast<UINT>(target);
    m_endFlag = 0;
  } else {
    m_position = m_size;
    m_endFlag = 1;
  }
  return 0;
}

int DtNlBuffIo::Tell() {
  // A block beyond 2 GiB cannot exist on the 32-bit target; here such a
  // position is reported as a failure rather than as a negative number.
  if (m_position > 0x7FFFFFFFu) {
    return -1;
  }
  return static_cast<int>(m_position);
}

long long DtNlBuffIo::Tell64() { return static_cast<long long>(m_position); }

int DtNlBuffIo::IsEof() const { return m_endFlag; }

UINT DtNlBuffIo::View(const UINT8** bytes) const {
  if (m_buffer == nullptr) {
    *bytes = nullptr;
    return 0;
  }
  *bytes = m_buffer + m_position;
  return m_size - m_position;  // m_position never exceeds m_size
}
