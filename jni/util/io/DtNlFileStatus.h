// DtNlFileStatus.h - read-only view of a file's `struct stat` record.
//
// Layer: util/io. DtNlFile::Stat fills the record exactly as stat() does; the
// accessors decode it. A fresh object holds an all-zero record (neither file
// nor directory, no permission bits, size 0). Plain value: copy freely; it
// holds no pointers.
//
//   DtNlFileStatus st;
//   if (DtNlFile("/sdcard/x.kpz").Stat(&st).IsSuccess() && st.IsFile()) {
//     UINT size = st.GetSize();
//   }
//
// Booleans are returned as int 1/0. GetSize keeps only the low 32 bits of
// st_size; use DtNlFileStatus64 (DtNlFile::Stat64) for larger files.
#ifndef KPZ_UTIL_IO_DTNLFILESTATUS_H
#define KPZ_UTIL_IO_DTNLFILESTATUS_H

#include <sys/stat.h>
#include <utime.h>

#include <ctime>

#include "util/DtNlTypes.h"

class DtNlFileStatus {
 public:
  DtNlFileStatus();  // zeroed record
  // Wraps a copy of `record`.
  explicit DtNlFileStatus(struct stat const& record);

  unsigned int GetMode() const;  // st_mode
  int IsFile() const;            // (st_mode & 0xF000) == 0x8000
  int IsDir() const;             // (st_mode & 0xF000) == 0x4000
  int IsUserReadable() const;    // 0400
  int IsUserWritable() const;    // 0200
  int IsUserExecutable() const;  // 0100
  int IsGroupReadable() const;   // 040
  int IsGroupWritable() const;   // 020
  int IsGroupExecutable() const; // 010
  int IsOtherReadable() const;   // 04
  int IsOtherWritable() const;   // 02
  int IsOtherExecutable() const; // 01
  // The low 32 bits of st_size (deliberately cut where off_t is wider).
  UINT GetSize() const;
  time_t GetLastAccessTime() const;        // st_atime, seconds
  time_t GetLastModificationTime() const;  // st_mtime, seconds
  time_t GetLastChangeTime() const;        // st_ctime, seconds
  // out->actime = st_atime, out->modtime = st_mtime (ready for
  // DtNlFile::SetTime); `out` must not be null.
  void GetUTime(utimbuf* out) const;

 private:
  friend class DtNlFile;  // Stat fills `record`

  struct stat record;
};

#endif  // KPZ_UTIL_IO_DTNLFILESTATUS_H
