// DtRawDateTime.h - a shooting date and time of a KPZ raw file, as read from
// its Exif "YYYY:MM:DD HH:MM:SS" text. A plain record of the raw facade layer
// (jni/raw), filled by DtRaw::GetOrgDateTime; it holds no pointers. The
// values are stored as written in the file: they are not range-tested (a
// month of 13 or an hour of 99 is kept as it is).
//
//   DtRawDateTime dt;
//   if (raw.GetOrgDateTime(&dt) == 0) { printf("%04u-%02u", dt.m_year, dt.m_month); }
#ifndef KPZ_RAW_DTRAWDATETIME_H
#define KPZ_RAW_DTRAWDATETIME_H

#include "util/DtNlTypes.h"

struct DtRawDateTime {
  UINT16 m_year = 0;   // four digits, e.g. 2010
  UINT8 m_month = 0;   // two digits each from here on
  UINT8 m_day = 0;
  UINT8 m_hour = 0;
  UINT8 m_minute = 0;
  UINT8 m_second = 0;
};

#endif  // KPZ_RAW_DTRAWDATETIME_H
