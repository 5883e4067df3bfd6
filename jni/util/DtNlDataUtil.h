// DtNlDataUtil.h - byte order, byte-array conversion and small data helpers.
//
// DtNlByteOrder names the two orders of a TIFF file. Every helper tests the
// order against zero: 0 is big endian (swapped on this little-endian host), any
// other value is treated as little endian. All operations are static,
// stateless and reentrant; none logs or reports errors.
//
//   UINT8 b[2];
//   DtNlDataUtil::U16ToU8Array(0x1234, b, DtNlBigEndian);   // b = 12 34
//   UINT16 v = DtNlDataUtil::U8ArrayToU16(b, DtNlBigEndian); // 0x1234
#ifndef KPZ_UTIL_DTNLDATAUTIL_H
#define KPZ_UTIL_DTNLDATAUTIL_H

#include "util/DtNlTypes.h"

enum DtNlByteOrder : INT32 {
  DtNlBigEndian = 0,    // "MM": most significant byte first
  DtNlLittleEndian = 1  // "II": least significant byte first; the host's order
};

class DtNlDataUtil {
 public:
  DtNlDataUtil() = default;
  ~DtNlDataUtil() = default;

  // 28-bit sync-safe form: four 7-bit groups, each byte's top bit 0.
  static UINT32 ToSyncSafe(UINT32 value);
  static UINT32 ToUnSyncSafe(UINT32 value);

  // atoi(text); a null text gives 0.
  static int AsciiToInt(const char* text);
  // atoi over `len` bytes of unterminated text; only the low 8 bits of `len`
  // count (texts of up to 255 bytes); when they are 0, or `data` is null, the
  // result is 0 and no byte is read.
  static int AsciiToInt(const UINT8* data, UINT len);

  // Writes the `count` bytes of `src` to `dst` reversed; src may equal or
  // overlap dst. A count of 0 or less writes nothing.
  static void SwapU8Array(const UINT8* src, int count, UINT8* dst);

  // Store `value` in `order`; return `dst` (a null dst is returned untouched).
  static UINT8* U16ToU8Array(UINT16 value, UINT8* dst, DtNlByteOrder order);
  static UINT8* U32ToU8Array(UINT32 value, UINT8* dst, DtNlByteOrder order);
  // Load 2 / 4 bytes at `src` (any alignment, not null) in `order`.
  static UINT16 U8ArrayToU16(const UINT8* src, DtNlByteOrder order);
  static UINT32 U8ArrayToU32(const UINT8* src, DtNlByteOrder order);

  static UINT16 SwapU16(UINT16 value);
  static UINT32 SwapU32(UINT32 value);

  // 1 if the first `count` bytes are equal (count 0 gives 1), else 0.
  static UINT DataCmp(const UINT8* a, const UINT8* b, UINT count);
};

#endif  // KPZ_UTIL_DTNLDATAUTIL_H
