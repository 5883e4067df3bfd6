// DtNlStatus.cpp - the status value of the utility layer.
#include "util/DtNlStatus.h"

DtNlStatus::DtNlStatus() : errCode(DtNlErrNone), sysErrNo(0) {}

DtNlStatus::DtNlStatus(const DtNlStatus& other) : errCode(DtNlErrNone), sysErrNo(0) {
  if (&other != this) {
    errCode = other.errCode;
    sysErrNo = other.sysErrNo;
  }
}

DtNlStatus& DtNlStatus::operator=(DtNlErrCode code) {
  errCode = code;
  sysErrNo = 0;
  return *this;
}

DtNlStatus& DtNlStatus::operator=(const DtNlStatus& other) {
  if (&other != this) {
    errCode = other.errCode;
    sysErrNo = other.sysErrNo;
  }
  return *this;
}

void DtNlStatus::Clear() {
  errCode = DtNlErrNone;
  sysErrNo = 0;
}
