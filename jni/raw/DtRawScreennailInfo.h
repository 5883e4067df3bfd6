// DtRawScreennailInfo.h - where the screennail (the large preview JPEG) of a
// KPZ raw file lies, and its pixel size. A plain record of the raw facade
// layer (jni/raw), filled by DtRaw::GetScreennailInfo; it holds no pointers.
//
//   DtRawScreennailInfo info;
//   if (raw.GetScreennailInfo(&info) == 0) { /* read info.m_size bytes at info.m_fileOffset */ }
#ifndef KPZ_RAW_DTRAWSCREENNAILINFO_H
#define KPZ_RAW_DTRAWSCREENNAILINFO_H

#include "util/DtNlTypes.h"

struct DtRawScreennailInfo {
  UINT32 m_fileOffset = 0;  // byte offset of the JPEG from the start of the file
  UINT32 m_size = 0;        // its length in bytes
  UINT16 m_horizon = 0;     // width in pixels; 0 when unknown
  UINT16 m_vertical = 0;    // height in pixels; 0 when unknown
};

#endif  // KPZ_RAW_DTRAWSCREENNAILINFO_H
