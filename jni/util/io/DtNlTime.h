// DtNlTime.h - the current local date and time, taken once at construction.
//
// Layer: util/io. The constructor reads time() and breaks it down with
// localtime_r. A clock reading of 0 or less (or a failed time()) gives an
// invalid object: IsValid() is 0 and the broken-down time is all zero (so
// GetYear() is 1900, GetMonth() 1 and every other field 0). A positive value
// that localtime_r cannot break down (a year beyond int) stays valid with the
// same all-zero fields. Plain value; no pointers.
//
//   DtNlTime now;
//   if (now.IsValid()) { printf("%04d:%02d:%02d", now.GetYear(), now.GetMonth(), now.GetDay()); }
#ifndef KPZ_UTIL_IO_DTNLTIME_H
#define KPZ_UTIL_IO_DTNLTIME_H

#include <ctime>

class DtNlTime {
 public:
  DtNlTime();

  int IsValid() const;    // 1 when the seconds value is above 0
  int GetYear() const;    // tm_year + 1900
  int GetMonth() const;   // tm_mon + 1, 1..12
  int GetDay() const;     // tm_mday, 1..31
  int GetHour() const;    // tm_hour
  int GetMinute() const;  // tm_min
  int GetSecond() const;  // tm_sec

 private:
  struct tm local;  // broken-down local time; zero when invalid
  time_t seconds;   // time() at construction
};

#endif  // KPZ_UTIL_IO_DTNLTIME_H
