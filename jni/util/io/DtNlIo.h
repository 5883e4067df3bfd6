// DtNlIo.h - the byte channel interface of the files-and-streams layer.
//
// DtNlIo is the one byte-level I/O abstraction: open, close, read bytes, write
// bytes, seek, tell, end-of-data test and flush, as virtual operations. Two
// channels implement it: DtNlFileIo over a stdio FILE and DtNlBuffIo over a
// caller-owned memory block. The data and text streams and the raw layer reach
// bytes only through these operations. Channels are deleted through this base.
//
//   DtNlBuffIo io;
//   io.Open(bytes, sizeof bytes);
//   io.Seek(4, DtNlIoSeekSet);
//   UINT got = io.ReadU8(dst, 2);        // short count at the end of the block
//   if (io.GetStatus().IsFailure()) { ... }
//
// Return conventions of every channel: Open, Close, Seek, Flush return 0 on
// success and -1 on failure; ReadU8/WriteU8 return the bytes transferred (0 on
// failure); Tell/Tell64 return the position or -1; IsEof returns 1 or 0.
// Failures are recorded in the channel's status, where the first error since
// the last Open wins (see setErr).
//
// No pointer members: the channel holds only values here.
#ifndef KPZ_UTIL_IO_DTNLIO_H
#define KPZ_UTIL_IO_DTNLIO_H

#include "util/DtNlStatus.h"
#include "util/DtNlTypes.h"

class DtNlFile;
class DtNlString;

// Origin of a Seek offset. Any other value is invalid.
enum DtNlIoSeekPos : INT32 {
  DtNlIoSeekSet = 0,  // from the beginning (absolute position)
  DtNlIoSeekCur = 1,  // from the current position
  DtNlIoSeekEnd = 2,  // from the end; the sign convention is the channel's own
  DtNlIoSeekBase = 3  // from the channel's base offset (offset + base offset)
};

class DtNlIo {
 public:
  // Values of GetKind(); fixed by the constructor of each channel.
  static const INT32 KIND_MEMORY = 0;
  static const INT32 KIND_FILE = 1;

  virtual ~DtNlIo();

  DtNlIo(const DtNlIo&) = delete;
  DtNlIo& operator=(const DtNlIo&) = delete;

  // Opens the file's path: same result as Open(DtNlString const&, mode).
  virtual int Open(DtNlFile const& file, const char* mode);
  // Opens the string's text: same result as Open(const char*, mode).
  virtual int Open(DtNlString const& path, const char* mode);
  // Not supported by this base: clears the state, records
  // DtNlErrNotSupported and returns -1. The file channel overrides it.
  virtual int Open(const char* path, const char* mode);
  // Not supported by this base: as the path variant. The memory channel
  // overrides it.
  virtual int Open(const UINT8* buffer, UINT size);

  // Releases what the channel holds; 0 on success, -1 on failure.
  virtual int Close() = 0;
  // Copies up to `size` bytes from the current position to `dst`; returns the
  // count (short at the end of data), 0 on failure.
  virtual UINT ReadU8(UINT8* dst, UINT size) = 0;
  // Copies up to `size` bytes from `src` at the current position; returns the
  // count, 0 on failure.
  virtual UINT WriteU8(UINT8 const* src, UINT size) = 0;
  // Moves the position; only the low 32 bits of `offset` count (a signed
  // 32-bit offset). 0 on success, -1 on failure.
  virtual int Seek(long long offset, DtNlIoSeekPos origin) = 0;
  // The current position, or -1 on failure.
  virtual int Tell() = 0;
  virtual long long Tell64() = 0;
  // 1 once the end of data has been met, else 0.
  virtual int IsEof() const = 0;
  // Pushes buffered writes out; this base has nothing to flush and returns 0.
  virtual int Flush();

  // The first error recorded since the last Open (both fields 0 if none).
  DtNlStatus GetStatus() const;
  // Origin of DtNlIoSeekBase; 0 after every Open.
  INT32 GetBaseOffset() const;
  void SetBaseOffset(INT32 baseOffset);
  // KIND_FILE or KIND_MEMORY.
  INT32 GetKind() const;

 protected:
  // Zeroes the status, base offset and end flag; `kind` is the channel's kind.
  explicit DtNlIo(INT32 kind);

  // Clears the status and sets the end flag and base offset to 0.
  void init();
  // Records a failure, first error wins: the code is taken only while the
  // recorded code is not negative and no errno has been captured; errno is
  // captured only while none has been (a 0 errno leaves room for the next).
  void setErr(DtNlErrCode code);
  // The low 32 bits of `offset` as a signed 32-bit offset. Deliberate: file
  // offsets are 32-bit on the target, so the upper half is dropped
  // (2^32 + 5 becomes 5, 0xFFFFFFFF becomes -1).
  static INT32 lowOffset(long long offset);

  INT32 m_endFlag;  // end-of-data flag of the memory channel; 0 after init

 private:
  DtNlStatus m_status;
  INT32 m_baseOffset;
  INT32 m_kind;
};

#endif  // KPZ_UTIL_IO_DTNLIO_H
