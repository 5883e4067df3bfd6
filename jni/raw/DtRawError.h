// DtRawError.h - the raw layer's result codes and the mapping of a utility-
// layer status onto them.
//
// Layer: jni/raw (engine part). Every operation of the raw layer (DtRawEng, the
// IFD parsers, DtRaw) returns a signed 32-bit DtRawErrCode: DtRawOk (0) on
// success, a negative code on failure. A failing I/O step passes its channel's
// status and the code that names the step through GetRawErr, so that a missing
// file or a device error is reported as such:
//
//   if (io->Seek(offset, DtNlIoSeekSet) != 0)
//     return DtRawError::GetRawErr(io->GetStatus(), DtRawErrSeek);
//
// No pointer members; stateless.
#ifndef KPZ_RAW_DTRAWERROR_H
#define KPZ_RAW_DTRAWERROR_H

#include "util/DtNlStatus.h"
#include "util/DtNlTypes.h"

enum DtRawErrCode : INT32 {
  DtRawOk = 0,                 // success
  DtRawErrNoData = -100,       // the requested tag or value is not present
  DtRawErrFormat = -101,       // the file's structure is not as required
  DtRawErrBufferMode = -102,   // write-back asked of an object initialised from a buffer
  DtRawErrParam = -200,        // an argument is invalid (null pointer, zero size)
  DtRawErrNotInit = -201,      // the facade has no parsed engine
  DtRawErrOpen = -300,         // a file could not be opened
  DtRawErrBuffOpen = -301,     // a stream over a memory buffer could not be opened
  DtRawErrNotFound = -302,     // the file does not exist (from DtNlErrNotFound)
  DtRawErrClose = -303,        // a file could not be closed
  DtRawErrBuffClose = -304,    // a stream over a memory buffer could not be closed
  DtRawErrSeek = -305,         // a seek failed
  DtRawErrTell = -306,         // the current position could not be taken
  DtRawErrRead = -307,         // a read failed or returned fewer bytes than asked
  DtRawErrWrite = -308,        // a write failed
  DtRawErrReadOnly = -309,     // the owner may not write the file
  DtRawErrStat = -310,         // the file's status could not be read
  DtRawErrSetTime = -311,      // the file's time stamp could not be set
  DtRawErrIo = -399,           // device I/O error (from DtNlErrIo)
  DtRawErrNotTiff = -400,      // no TIFF header (byte-order mark or the number 42)
  DtRawErrExifVersion = -401,  // the Exif version is not a number
  DtRawErrSize = -402,         // a value's size does not match
  DtRawErrIobVersion = -403    // the Iob version is not a number
};

class DtRawError {
 public:
  // DtRawErrNotFound when status.errCode is DtNlErrNotFound, DtRawErrIo when it
  // is DtNlErrIo, `defaultCode` otherwise (also for a successful status).
  static int GetRawErr(DtNlStatus status, int defaultCode);
};

#endif  // KPZ_RAW_DTRAWERROR_H
