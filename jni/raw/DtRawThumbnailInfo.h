// DtRawThumbnailInfo.h - where the IFD1 thumbnail of a KPZ raw file lies, its
// compression and its rotation code. A plain record of the raw facade layer
// (jni/raw), filled by DtRaw::GetThumbnailInfo; it holds no pointers.
//
//   DtRawThumbnailInfo info;
//   if (raw.GetThumbnailInfo(&info) == 0) { std::vector<unsigned char> jpeg(info.m_size); }
#ifndef KPZ_RAW_DTRAWTHUMBNAILINFO_H
#define KPZ_RAW_DTRAWTHUMBNAILINFO_H

#include "util/DtNlTypes.h"

struct DtRawThumbnailInfo {
  UINT8 m_compression = 0;  // low byte of IFD1's Compression value
  UINT8 m_rotation = 0;     // rotation code 0..7 (DtRaw::convRotInfoStdtoUse); 0 when unknown
  UINT32 m_size = 0;        // thumbnail length in bytes
  UINT32 m_fileOffset = 0;  // thumbnail offset from the start of the file
};

#endif  // KPZ_RAW_DTRAWTHUMBNAILINFO_H
