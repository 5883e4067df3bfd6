// DtNlBase64Decoder.cpp - the strict Base64 decoder (containers layer).
//
//   const UINT8 text[] = {'T', 'W', 'F', 'u'};
//   UINT8 out[3];
//   int size = 3;
//   DtNlBase64Decoder::Decode(out, &size, text, 4);   // "Man", size 3
#include "util/DtNlBase64Decoder.h"

#include "util/DtNlLogger.h"

const char DtNlBase64Decoder::c_table[64] = {
    'A', 'B', 'C', 'D', 'E', 'F', 'G', 'H', 'I', 'J', 'K', 'L', 'M', 'N', 'O', 'P',
    'Q', 'R', 'S', 'T', 'U', 'V', 'W', 'X', 'Y', 'Z', 'a', 'b', 'c', 'd', 'e', 'f',
    'g', 'h', 'i', 'j', 'k', 'l', 'm', 'n', 'o', 'p', 'q', 'r', 's', 't', 'u', 'v',
    'w', 'x', 'y', 'z', '0', '1', '2', '3', '4', '5', '6', '7', '8', '9', '+', '/'};

int DtNlBase64Decoder::Decode(UINT8* dst, int* pDstSize, const UINT8* src, int srcSize) {
  if (pDstSize == nullptr) {
    return -1;  // deliberate: no capacity to read, nowhere to report the size
  }
  if ((srcSize & 3) != 0) {
    DTNL_LOG(DTNL_LV_ERR, __LINE__, "[DtNlBase64Decoder::Decode] srcSize = %d.", srcSize);
    return -1;
  }
  if (srcSize >= 4 && (src == nullptr || dst == nullptr)) {
    return -1;  // deliberate: a group to decode but no text or no buffer
  }
  // A negative size that is a multiple of 4 has no group and decodes to nothing.
  const int groups = srcSize > 0 ? srcSize / 4 : 0;
  for (int group = 0; group < groups; ++group) {
    // The capacity is read afresh for every group; 3 x group + 2 cannot
    // overflow since group < INT_MAX / 4.
    if (3 * group + 2 >= *pDstSize) {
      DTNL_LOG(DTNL_LV_ERR, __LINE__, "[DtNlBase64Decoder::Decode] pDstSize = %d, srcSize = %d.",
               *pDstSize, srcSize);
      return -1;
    }
    const int result = convert6x4To8x3(dst + 3 * group, src + 4 * group);
    if (result != 0) {
      // The message names the class as it always has; log readers match it.
      DTNL_LOG(DTNL_LV_ERR, __LINE__,
               "[DtNpTovarelBase64Decoder::Decode] convert6x4To8x3() failed.");
      return result;
    }
  }
  *pDstSize = 3 * groups;
  return 0;
}

int DtNlBase64Decoder::convert6x4To8x3(UINT8* dst, const UINT8* src) {
  UINT32 sextets[4] = {0, 0, 0, 0};
  for (int k = 0; k < 4; ++k) {
    const int value = searchTable(src[k]);
    if (value < 0) {
      DTNL_LOG(DTNL_LV_ERR, __LINE__,
               "[DtNlBase64Decoder::convert6x4To8x3] searchTable() failed.");
      return -1;
    }
    sextets[k] = static_cast<UINT32>(value);
  }
  const UINT32 bits = (sextets[0] << 18) | (sextets[1] << 12) | (sextets[2] << 6) | sextets[3];
  dst[0] = static_cast<UINT8>((bits >> 16) & 0xFFu);
  dst[1] = static_cast<UINT8>((bits >> 8) & 0xFFu);
  dst[2] = static_cast<UINT8>(bits & 0xFFu);
  return 0;
}

int DtNlBase64Decoder::searchTable(UINT8 c) {
  if (c == '=') {
    return 0;  // the pad counts as 0 wherever it stands
  }
  for (int i = 0; i < 64; ++i) {
    if (static_cast<UINT8>(c_table[i]) == c) {
      return i;
    }
  }
  DTNL_LOG(DTNL_LV_ERR, __LINE__, "[DtNlBase64Decoder::searchTable] base64 = %2.2X.",
           static_cast<unsigned int>(c));
  return -1;
}
