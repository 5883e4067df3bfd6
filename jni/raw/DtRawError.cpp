// DtRawError.cpp - mapping of a utility-layer status onto the raw result codes.
#include "raw/DtRawError.h"

int DtRawError::GetRawErr(DtNlStatus status, int defaultCode) {
  if (status.errCode == DtNlErrNotFound) {
    return DtRawErrNotFound;
  }
  if (status.errCode == DtNlErrIo) {
    return DtRawErrIo;
  }
  return defaultCode;
}
