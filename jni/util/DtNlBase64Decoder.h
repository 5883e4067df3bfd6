// DtNlBase64Decoder.h - strict, allocation-free decoder of standard Base64
// text (A-Z a-z 0-9 + /) into a caller's buffer (containers layer; uses
// DtNlLogger).
//
// The input length must be a multiple of 4 and every character must be in the
// alphabet or be the pad "=", which counts as the value 0 wherever it stands.
// Padding is not subtracted: every group of 4 characters yields 3 bytes, so
// "QQ==" decodes to 0x41 0x00 0x00. Callers that need the exact length count
// the trailing "=" themselves. Every refusal is logged at ERR level.
//
//   UINT8 out[3];
//   int size = sizeof(out);
//   if (DtNlBase64Decoder::Decode(out, &size, text, 4) == 0) { /* size == 3 */ }
//
// The class has no state; all pointers are the caller's, borrowed per call.
#ifndef KPZ_UTIL_DTNLBASE64DECODER_H
#define KPZ_UTIL_DTNLBASE64DECODER_H

#include "util/DtNlTypes.h"

class DtNlBase64Decoder {
 public:
  // Decodes `srcSize` characters of `src` into `dst`. On entry `*pDstSize` is
  // the capacity of `dst`; on success (result 0) it becomes 3 x (srcSize / 4).
  // On failure (result -1) `*pDstSize` keeps the capacity and `dst` holds the
  // groups decoded before the failing one. Refused: a size that is not a
  // multiple of 4, a capacity too small for the next group, a character
  // outside the alphabet; also (silently) a null `pDstSize`, or a null `src`
  // or `dst` when there is a group to decode.
  static int Decode(UINT8* dst, int* pDstSize, const UINT8* src, int srcSize);

 private:
  // One group of 4 characters into 3 bytes; 0, or -1 with `dst` untouched.
  static int convert6x4To8x3(UINT8* dst, const UINT8* src);
  // The 6-bit value of `c`; 0 for "="; -1 (logged) for any other character.
  static int searchTable(UINT8 c);

  static const char c_table[64];  // the alphabet in value order, unterminated
};

#endif  // KPZ_UTIL_DTNLBASE64DECODER_H
