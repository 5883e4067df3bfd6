// DtNlFileStatus64.h - read-only view of a file's `struct stat64` record.
//
// Layer: util/io. DtNlFile::Stat64 fills the record exactly as stat64() does;
// the accessors decode it like DtNlFileStatus's, except that GetSize gives the
// full 64-bit size. A fresh object holds an all-zero record. Plain value: copy
// freely; it holds no pointers.
//
//   DtNlFileStatus64 st;
//   if (DtNlFile("/sdcard/big.kpz").Stat64(&st).IsSuccess()) {
//     std::uint64_t size = st.GetSize();
//   }
#ifndef KPZ_UTIL_IO_DTNLFILESTATUS64_H
#define KPZ_UTIL_IO_DTNLFILESTATUS64_H

#include <sys/stat.h>
#include <utime.h>

#include <cstdint>
#include <ctime>

class DtNlFileStatus64 {
 public:
  DtNlFileStatus64();  // zeroed record
  // Wraps a copy of `record`.
  explicit DtNlFileStatus64(struct stat64 const& record);

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
  // st_size; a (never expected) negative size reads as 0.
  std::uint64_t GetSize() const;
  time_t GetLastAccessTime() const;        // st_atime, seconds
  time_t GetLastModificationTime() const;  // st_mtime, seconds
  time_t GetLastChangeTime() const;        // st_ctime, seconds
  // out->actime = st_atime, out->modtime = st_mtime; `out` must not be null.
  void GetUTime(utimbuf* out) const;

 private:
  friend class DtNlFile;  // Stat64 fills `record`

  struct stat64 record;
};

#endif  // KPZ_UTIL_IO_DTNLFILESTATUS64_H
