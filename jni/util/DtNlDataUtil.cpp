// DtNlDataUtil.cpp - byte-order and data helpers (foundation layer; uses
// DtNlString for the length-limited decimal conversion).
//
// The array readers and writers assemble values byte by byte, so they accept
// any alignment and give the same bytes whatever the host's own order.
//
//   UINT8 b[4] = {0x00, 0x00, 0x01, 0x02};
//   UINT32 v = DtNlDataUtil::U8ArrayToU32(b, DtNlBigEndian);  // 0x102
#include "util/DtNlDataUtil.h"

#include <cstdlib>
#include <cstring>

#include "util/DtNlString.h"

UINT32 DtNlDataUtil::ToSyncSafe(UINT32 value) {
  return (value & 0x7Fu) | ((value & 0x3F80u) << 1) | ((value & 0x1FC000u) << 2) |
         ((value & 0xFE00000u) << 3);
}

UINT32 DtNlDataUtil::ToUnSyncSafe(UINT32 value) {
  return (value & 0x7Fu) | ((value & 0x7F00u) >> 1) | ((value & 0x7F0000u) >> 2) |
         ((value & 0x7F000000u) >> 3);
}

int DtNlDataUtil::AsciiToInt(const char* text) {
  // Deliberate: a null text converts to 0 instead of being handed to atoi.
  if (text == nullptr) {
    return 0;
  }
  return std::atoi(text);
}

int DtNlDataUtil::AsciiToInt(const UINT8* data, UINT len) {
  // Deliberate: only the low 8 bits of `len` are kept (the string takes an
  // 8-bit size), so a len of 300 converts the first 44 bytes. A len whose low
  // 8 bits are 0 gives the empty string and so converts to 0 without reading
  // any byte; a null `data` gives a null text and converts to 0 as well.
  const DtNlString piece(data, static_cast<unsigned char>(len & 0xFFu));
  return AsciiToInt(piece.text);
}

void DtNlDataUtil::SwapU8Array(const UINT8* src, int count, UINT8* dst) {
  // Deliberate: a count of 0 or less, or a null array, writes nothing.
  if (count <= 0 || src == nullptr || dst == nullptr) {
    return;
  }
  const std::size_t n = static_cast<std::size_t>(count);
  // memmove copies as if through a temporary, so equal or overlapping arrays
  // give the same result as distinct ones: dst[i] = old src[n - 1 - i].
  std::memmove(dst, src, n);
  std::size_t i = 0;
  std::size_t j = n - 1u;
  while (i < j) {
    const UINT8 t = dst[i];
    dst[i] = dst[j];
    dst[j] = t;
    ++i;
    --j;
  }
}

UINT8* DtNlDataUtil::U16ToU8Array(UINT16 value, UINT8* dst, DtNlByteOrder order) {
  if (dst == nullptr) {
    return dst;
  }
  dst[0] = static_cast<UINT8>(value & 0xFFu);
  dst[1] = static_cast<UINT8>(value >> 8);
  if (order == 0) {
    SwapU8Array(dst, 2, dst);
  }
  return dst;
}

UINT8* DtNlDataUtil::U32ToU8Array(UINT32 value, UINT8* dst, DtNlByteOrder order) {
  if (dst == nullptr) {
    return dst;
  }
  dst[0] = static_cast<UINT8>(value & 0xFFu);
  dst[1] = static_cast<UINT8>((value >> 8) & 0xFFu);
  dst[2] = static_cast<UINT8>((value >> 16) & 0xFFu);
  dst[3] = static_cast<UINT8>(value >> 24);
  if (order == 0) {
    SwapU8Array(dst, 4, dst);
  }
  return dst;
}

UINT16 DtNlDataUtil::U8ArrayToU16(const UINT8* src, DtNlByteOrder order) {
  const UINT16 value = static_cast<UINT16>(src[0] | (src[1] << 8));
  return order == 0 ? SwapU16(value) : value;
}

UINT32 DtNlDataUtil::U8ArrayToU32(const UINT8* src, DtNlByteOrder order) {
  const UINT32 value = static_cast<UINT32>(src[0]) | (static_cast<UINT32>(src[1]) << 8) |
                       (static_cast<UINT32>(src[2]) << 16) | (static_cast<UINT32>(src[3]) << 24);
  return order == 0 ? SwapU32(value) : value;
}

UINT16 DtNlDataUtil::SwapU16(UINT16 value) {
  return static_cast<UINT16>(((value & 0xFFu) << 8) | (value >> 8));
}

UINT32 DtNlDataUtil::SwapU32(UINT32 value) {
  return ((value & 0xFFu) << 24) | ((value & 0xFF00u) << 8) | ((value >> 8) & 0xFF00u) |
         (value >> 24);
}

UINT DtNlDataUtil::DataCmp(const UINT8* a, const UINT8* b, UINT count) {
  for (UINT i = 0; i < count; ++i) {
    if (a[i] != b[i]) {
      return 0;
    }
  }
  return 1;
}
