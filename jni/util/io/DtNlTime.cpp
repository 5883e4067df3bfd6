// DtNlTime.cpp - the local time taken at construction.
#include "util/io/DtNlTime.h"

#include <cstring>

DtNlTime::DtNlTime() : local(), seconds(0) {
  // An invalid clock reading leaves an all-zero broken-down time, and so does
  // a value localtime_r cannot break down.
  std::memset(&local, 0, sizeof(local));
  seconds = ::time(nullptr);
  if (seconds >= 1 && ::localtime_r(&seconds, &local) == nullptr) {
    std::memset(&local, 0, sizeof(local));
  }
}

int DtNlTime::IsValid() const { return seconds > 0 ? 1 : 0; }

int DtNlTime::GetYear() const { return local.tm_year + 1900; }

int DtNlTime::GetMonth() const { return local.tm_mon + 1; }

int DtNlTime::GetDay() const { return local.tm_mday; }

int DtNlTime::GetHour() const { return local.tm_hour; }

int DtNlTime::GetMinute() const { return local.tm_min; }

int DtNlTime::GetSecond() const { return local.tm_sec; }
