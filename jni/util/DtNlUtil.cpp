// DtNlUtil.cpp - the bit-field reader and writer (foundation layer).
//
//   UINT8 header[2] = {0, 0};
//   DtNlUtil::WriteBitsFromUint32(5, 3, header, 2, 2, nullptr, nullptr);  // 0x28
#include "util/DtNlUtil.h"

#include "util/DtNlLogger.h"

UINT8 DtNlUtil::Read1Bit(const UINT8* pData, int dataLen, UINT8 offsetBit, const UINT8** ppNext,
                         UINT8* pNextOffset) {
  DTNL_ASSERT(__LINE__, pData != nullptr, "");
  DTNL_ASSERT(__LINE__, dataLen > 0, "");
  DTNL_ASSERT(__LINE__, offsetBit < 8, "offsetBit is %u", static_cast<unsigned int>(offsetBit));
  DTNL_ASSERT(__LINE__, offsetBit <= 7, "");

  const UINT8 bit = static_cast<UINT8>((*pData >> (7 - offsetBit)) & 1u);
  const unsigned int following = offsetBit + 1u;
  if (ppNext != nullptr) {
    *ppNext = pData + (following >> 3);  // the next byte exactly after offset 7
  }
  if (pNextOffset != nullptr) {
    *pNextOffset = static_cast<UINT8>(following & 7u);
  }
  return bit;
}

DtNlStatus DtNlUtil::ReadBitsToUint32(const UINT8* pData, int dataLen, UINT8 offsetBit,
                                      UINT8 requestBit, UINT32* pValue, const UINT8** ppNext,
                                      UINT8* pNextOffset) {
  DtNlStatus status;
  if (pData == nullptr || dataLen < 1 || offsetBit >= 8 || requestBit > 32) {
    DTNL_LOG(DTNL_LV_INFO, __LINE__, "%s(): pData=0x%p, dataLen=%d, offsetBit=%u, requestBit=%u",
             __func__, static_cast<const void*>(pData), dataLen,
             static_cast<unsigned int>(offsetBit), static_cast<unsigned int>(requestBit));
    status = DtNlErrInvalidParam;
    return status;
  }

  const UINT8* position = pData;
  UINT8 offset = offsetBit;
  UINT32 value = 0;
  // Bounded by requestBit (at most 32) single-bit steps.
  for (int i = requestBit - 1; i >= 0; --i) {
    const UINT8 bit = Read1Bit(position, dataLen, offset, &position, &offset);
    value |= static_cast<UINT32>(bit) << i;
  }
  if (pValue != nullptr) {
    *pValue = value;
  }
  if (ppNext != nullptr) {
    *ppNext = position;
  }
  if (pNextOffset != nullptr) {
    *pNextOffset = offset;
  }
  return status;
}

DtNlStatus DtNlUtil::ReadBitsToUint16(const UINT8* pData, int dataLen, UINT8 offsetBit,
                                      UINT8 requestBit, UINT16* pValue, const UINT8** ppNext,
                                      UINT8* pNextOffset) {
  DtNlStatus status;
  if (requestBit > 16) {
    DTNL_LOG(DTNL_LV_INFO, __LINE__, "%s(): requestBit=%u", __func__,
             static_cast<unsigned int>(requestBit));
    status = DtNlErrInvalidParam;
    return status;
  }
  UINT32 value = 0;
  status = ReadBitsToUint32(pData, dataLen, offsetBit, requestBit, &value, ppNext, pNextOffset);
  if (status.IsFailure()) {
    return status;
  }
  if (pValue != nullptr) {
    *pValue = static_cast<UINT16>(value);
  }
  return status;
}

DtNlStatus DtNlUtil::ReadBitsToUint8(const UINT8* pData, int dataLen, UINT8 offsetBit,
                                     UINT8 requestBit, UINT8* pValue, const UINT8** ppNext,
                                     UINT8* pNextOffset) {
  DtNlStatus status;
  if (requestBit > 8) {
    DTNL_LOG(DTNL_LV_INFO, __LINE__, "%s(): requestBit=%u", __func__,
             static_cast<unsigned int>(requestBit));
    status = DtNlErrInvalidParam;
    return status;
  }
  UINT32 value = 0;
  status = ReadBitsToUint32(pData, dataLen, offsetBit, requestBit, &value, ppNext, pNextOffset);
  if (status.IsFailure()) {
    return status;
  }
  if (pValue != nullptr) {
    *pValue = static_cast<UINT8>(value);
  }
  return status;
}

UINT32 DtNlUtil::ReadBits(const UINT8* pData, int dataLen, UINT8 offsetBit, UINT8 requestBit,
                          const UINT8** ppNext, UINT8* pNextOffset) {
  UINT32 value = 0;
  const DtNlStatus status =
      ReadBitsToUint32(pData, dataLen, offsetBit, requestBit, &value, ppNext, pNextOffset);
  DTNL_ASSERT(__LINE__, status.IsSuccess(), "");
  return value;
}

void DtNlUtil::Write1Bit(UINT8 bit, UINT8* pData, int dataLen, UINT8 offsetBit, UINT8** ppNext,
                         UINT8* pNextOffset) {
  DTNL_ASSERT(__LINE__, pData != nullptr, "");
  DTNL_ASSERT(__LINE__, dataLen > 0, "");
  DTNL_ASSERT(__LINE__, offsetBit < 8, "offsetBit is %u", static_cast<unsigned int>(offsetBit));

  const UINT8 mask = static_cast<UINT8>(1u << (7 - offsetBit));
  if (bit != 0) {
    *pData = static_cast<UINT8>(*pData | mask);
  } else {
    *pData = static_cast<UINT8>(*pData & static_cast<UINT8>(~mask));
  }
  const unsigned int following = offsetBit + 1u;
  if (ppNext != nullptr) {
    *ppNext = pData + (following >> 3);
  }
  if (pNextOffset != nullptr) {
    *pNextOffset = static_cast<UINT8>(following & 7u);
  }
}

DtNlStatus DtNlUtil::WriteBitsFromUint32(UINT32 value, UINT8 requestBit, UINT8* pData,
                                         int dataLen, UINT8 offsetBit, UINT8** ppNext,
                                         UINT8* pNextOffset) {
  DtNlStatus status;
  // Deliberate unsigned 8-bit wrap: requestBit 0 becomes 0xFF and is refused
  // together with everything above 32.
  const UINT8 widthLess1 = static_cast<UINT8>((requestBit - 1u) & 0xFFu);
  if (pData == nullptr || dataLen <= 0 || offsetBit >= 8 || widthLess1 > 31) {
    DTNL_LOG(DTNL_LV_INFO, __LINE__, "%s(): pData=0x%p, dataLen=%d, offsetBit=%u, requestBit=%u",
             __func__, static_cast<const void*>(pData), dataLen,
             static_cast<unsigned int>(offsetBit), static_cast<unsigned int>(requestBit));
    status = DtNlErrInvalidParam;
    return status;
  }

  UINT8* position = pData;
  UINT8 offset = offsetBit;
  // Bounded by requestBit (at most 32) single-bit steps.
  for (int i = requestBit - 1; i >= 0; --i) {
    const UINT8 bit = static_cast<UINT8>((value >> i) & 1u);
    Write1Bit(bit, position, dataLen, offset, &position, &offset);
  }
  if (ppNext != nullptr) {
    *ppNext = position;
  }
  if (pNextOffset != nullptr) {
    *pNextOffset = offset;
  }
  return status;
}
