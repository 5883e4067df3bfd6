// DtNlUtil.h - bit fields across byte boundaries, most significant bit first
// (foundation layer; uses DtNlStatus and DtNlLogger).
//
// A position is a byte pointer and a bit offset 0..7 within that byte, 0 being
// the byte's most significant bit. Every operation can hand back the position
// just after the field (ppNext, pNextOffset), so consecutive fields are read
// or written by chaining calls. Every output pointer is optional: null means
// the caller does not want it. `dataLen` is only checked to be positive: the
// caller guarantees that the whole field lies inside the array.
//
//   const UINT8* p = bytes;
//   UINT8 bit = 0;
//   UINT32 version = 0;
//   DtNlUtil::ReadBitsToUint32(p, len, bit, 4, &version, &p, &bit);   // top nibble
//   UINT32 flags = DtNlUtil::ReadBits(p, len, bit, 8, &p, &bit);      // next 8 bits
//
// All operations are static; every pointer is the caller's, borrowed per call.
#ifndef KPZ_UTIL_DTNLUTIL_H
#define KPZ_UTIL_DTNLUTIL_H

#include "util/DtNlStatus.h"
#include "util/DtNlTypes.h"

class DtNlUtil {
 public:
  // The bit at `offsetBit` of *pData (0 or 1). Asserts pData != null,
  // dataLen > 0 and offsetBit < 8 ("offsetBit is %u").
  static UINT8 Read1Bit(const UINT8* pData, int dataLen, UINT8 offsetBit, const UINT8** ppNext,
                        UINT8* pNextOffset);

  // Reads `requestBit` (0..32) bits, the first bit read being the most
  // significant, into *pValue. Refused with an INFO line and
  // DtNlErrInvalidParam (outputs untouched) unless pData != null,
  // dataLen >= 1, offsetBit < 8 and requestBit <= 32. 0 bits read 0.
  static DtNlStatus ReadBitsToUint32(const UINT8* pData, int dataLen, UINT8 offsetBit,
                                     UINT8 requestBit, UINT32* pValue, const UINT8** ppNext,
                                     UINT8* pNextOffset);
  // The same for at most 16 / 8 bits; a wider request is refused with an INFO
  // line and DtNlErrInvalidParam. On any failure *pValue is untouched.
  static DtNlStatus ReadBitsToUint16(const UINT8* pData, int dataLen, UINT8 offsetBit,
                                     UINT8 requestBit, UINT16* pValue, const UINT8** ppNext,
                                     UINT8* pNextOffset);
  static DtNlStatus ReadBitsToUint8(const UINT8* pData, int dataLen, UINT8 offsetBit,
                                    UINT8 requestBit, UINT8* pValue, const UINT8** ppNext,
                                    UINT8* pNextOffset);
  // ReadBitsToUint32 returning the value; arguments it refuses end the process
  // through an assertion.
  static UINT32 ReadBits(const UINT8* pData, int dataLen, UINT8 offsetBit, UINT8 requestBit,
                         const UINT8** ppNext, UINT8* pNextOffset);

  // Sets (bit != 0) or clears the bit at `offsetBit` of *pData, leaving the
  // others. Asserts as Read1Bit.
  static void Write1Bit(UINT8 bit, UINT8* pData, int dataLen, UINT8 offsetBit, UINT8** ppNext,
                        UINT8* pNextOffset);

  // Writes the low `requestBit` (1..32) bits of `value`, most significant
  // first; neighbouring bits are preserved. Refused with an INFO line and
  // DtNlErrInvalidParam unless pData != null, dataLen > 0, offsetBit < 8 and
  // requestBit is 1..32.
  static DtNlStatus WriteBitsFromUint32(UINT32 value, UINT8 requestBit, UINT8* pData,
                                        int dataLen, UINT8 offsetBit, UINT8** ppNext,
                                        UINT8* pNextOffset);
};

#endif  // KPZ_UTIL_DTNLUTIL_H
