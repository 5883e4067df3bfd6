// DtNlStatus.h - the utility layer's error codes and its status value.
//
// A DtNlStatus pairs a DtNlErrCode (0 success, negative failure) with the errno
// captured when the failure was recorded. It is a plain value: copied freely,
// no heap ownership. A status counts as failed when its code is negative OR its
// errno is non-zero (see IsFailure()).
//
//   DtNlStatus st = file.Stat(&record);
//   if (st.IsFailure()) { ... st.errCode, st.sysErrNo ... }
//
// The values of DtNlErrCode are a contract with the raw layer, which singles out
// DtNlErrNotFound and DtNlErrIo; they never change.
#ifndef KPZ_UTIL_DTNLSTATUS_H
#define KPZ_UTIL_DTNLSTATUS_H

#include "util/DtNlTypes.h"

enum DtNlErrCode : INT32 {
  DtNlErrNone = 0,             // success; the default state
  DtNlErrOpen = -1000,         // fopen failed (errno neither ENOENT nor EIO)
  DtNlErrAlreadyOpen = -1001,  // open on a channel that already holds a file or buffer
  DtNlErrClose = -1002,        // closing the file failed
  DtNlErrSeek = -1010,         // repositioning failed
  DtNlErrTell = -1011,         // the position could not be read
  DtNlErrRead = -1020,         // a read failed
  DtNlErrWrite = -1021,        // a write failed
  DtNlErrFlush = -1023,        // flushing failed
  DtNlErrSync = -1025,         // syncing to the device failed
  DtNlErrMkFile = -1030,       // a file could not be created
  DtNlErrMkDir = -1031,        // a directory could not be created
  DtNlErrRmFile = -1032,       // a file could not be removed
  DtNlErrRmDir = -1033,        // a directory could not be removed
  DtNlErrDirBusy = -1034,      // the directory to remove is busy (EBUSY)
  DtNlErrRename = -1040,       // renaming failed
  DtNlErrGetList = -1041,      // a directory could not be listed
  DtNlErrNotFound = -1050,     // the path does not exist (ENOENT)
  DtNlErrStat = -1051,         // file status could not be read
  DtNlErrSetTime = -1052,      // access/modification times could not be set
  DtNlErrChmod = -1053,        // permissions could not be changed
  DtNlErrNotSupported = -1198, // the channel does not provide this operation
  DtNlErrIo = -1199,           // device-level I/O error: used whenever errno is EIO
  DtNlErrInvalidParam = -8999, // an argument is out of range
  DtNlErrNoMemory = -9999      // a buffer could not be allocated
};

class DtNlStatus {
 public:
  DtNlStatus();
  // Clears both fields, then copies them from `other` (unless it is this object).
  DtNlStatus(const DtNlStatus& other);

  // Sets the code and discards any captured errno (sysErrNo becomes 0).
  DtNlStatus& operator=(DtNlErrCode code);
  DtNlStatus& operator=(const DtNlStatus& other);

  void Clear();

  // True when errCode is negative or an errno was captured.
  bool IsFailure() const { return errCode < 0 || sysErrNo != 0; }
  bool IsSuccess() const { return !IsFailure(); }

  DtNlErrCode errCode;  // the result; 0 when nothing failed
  INT32 sysErrNo;       // errno captured with the failure; 0 when none
};

#endif  // KPZ_UTIL_DTNLSTATUS_H
