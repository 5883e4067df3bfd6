// DtRawFlashInfo.h - the Exif Flash value of a KPZ raw file, split into its
// bit fields. A plain record of the raw facade layer (jni/raw), filled by
// DtRaw::GetFlashInfo; it holds no pointers.
//
//   DtRawFlashInfo flash;
//   if (raw.GetFlashInfo(&flash) == 0 && flash.m_fired == 1) { /* flash fired */ }
#ifndef KPZ_RAW_DTRAWFLASHINFO_H
#define KPZ_RAW_DTRAWFLASHINFO_H

#include "util/DtNlTypes.h"

struct DtRawFlashInfo {
  UINT8 m_fired = 0;     // bit 0: 1 when the flash fired
  UINT8 m_return = 0;    // bits 1-2 (0..3): strobe return light status
  UINT8 m_mode = 0;      // bits 3-4 (0..3): flash mode
  UINT8 m_function = 0;  // bit 5: 1 when the camera has no flash function
  UINT8 m_redEye = 0;    // bit 6: 1 when red-eye reduction was used
};

#endif  // KPZ_RAW_DTRAWFLASHINFO_H
