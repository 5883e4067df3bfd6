// DtNlFileIo.h - the byte channel over a stdio FILE stream.
//
// Part of the files-and-streams layer; used directly by the raw-file facade and
// the JNI entry, and by DtNlDataStream. Reads go straight into the caller's
// memory; a 0x30000-byte bounce buffer serves only to retry a read that the
// system could not deliver into the caller's memory (EFAULT). It is allocated
// on that first retry, not with the object, so a channel is small enough for
// any stack and costs nothing to make.
//
//   DtNlFileIo io;
//   if (io.Open("/sdcard/a.kpz", "rb") == 0) {
//     io.Seek(offset, DtNlIoSeekSet);
//     UINT got = io.ReadU8(buf, size);   // short at end of file, 0 on error
//     io.Close();
//   }
//
// Every failure is logged (file jni/util/io/DtNlFileIo.cpp) and recorded in the
// status; EIO always records DtNlErrIo. A failed read or write closes the
// channel; any later operation then logs "handle is null" and fails.
//
// Pointer members: m_handle is owned (closed by Close and the destructor);
// m_bounce is owned (new[] on the first EFAULT retry, delete[] by the
// destructor), null until then.
#ifndef KPZ_UTIL_IO_DTNLFILEIO_H
#define KPZ_UTIL_IO_DTNLFILEIO_H

#include <cstdio>

#include "util/DtNlTypes.h"
#include "util/io/DtNlIo.h"

class DtNlFileIo : public DtNlIo {
 public:
  static const UINT BOUNCE_SIZE = 0x30000;

  DtNlFileIo();
  // Closes the file if it is open.
  ~DtNlFileIo() override;
  DtNlFileIo(const DtNlFileIo&) = delete;
  DtNlFileIo& operator=(const DtNlFileIo&) = delete;

  using DtNlIo::Open;
  // fopen(path, mode), mode passed unchanged. -1 if a file is already open
  // (DtNlErrAlreadyOpen; that file stays open) or fopen fails (logged;
  // DtNlErrNotFound on ENOENT, DtNlErrIo on EIO, else DtNlErrOpen).
  int Open(const char* path, const char* mode) override;
  // Makes the open stream unbuffered, so that each read or seek is one system
  // call straight into the caller's memory. Worth it for a few large reads
  // (a file head, a preview), never for byte-by-byte reading. Must come right
  // after Open, before any other operation; -1 when no file is open or the
  // stream cannot be switched (it then stays buffered and every operation
  // works as before). Logs nothing and records no status code.
  int SetUnbuffered();
  // Tells the system that of this open file only the `length` bytes at
  // `offset` are about to be read, in one go: no readahead around them or
  // after them (posix_fadvise RANDOM on the open file), and those bytes
  // fetched at once (WILLNEED). For a cold page cache this reads what the
  // caller needs and little more; with a warm one it changes nothing. Only a
  // hint: 0 when the system took it, -1 when no file is open, the range lies
  // outside the 32-bit file offsets, the platform has no such hint or the
  // system refused it; every operation works the same either way. Logs
  // nothing, records no status code and leaves errno as it was.
  int AdviseReadOnly(long long offset, long long length);
  // Reads up to `size` bytes at `offset` as pread does: the stream's position
  // is neither used nor moved, and its buffer is passed by (for a stream
  // made unbuffered, or with nothing read or written yet). Bytes the system
  // already holds in memory come in one call; when some must come from the
  // disk, the open file is first told to do without readahead, as
  // AdviseReadOnly does, so that a cold disk reads these bytes alone. The
  // result, the status codes and GetDeliveredCount as for ReadU8: the bytes
  // read, short only at end of file; a read error records DtNlErrRead /
  // DtNlErrIo, closes the channel and returns 0; memory the system cannot
  // write into is read through ReadU8's retry buffer from `offset`, and a
  // stream without offsets (a pipe) by ReadU8 from where it stands. Nothing
  // is logged beyond what that retry logs; 0 and no status code without an
  // open file, or for an offset outside the 32-bit file offsets.
  UINT ReadU8At(long long offset, UINT8* dst, UINT size);
  // Closes the file; the handle is forgotten even when fclose fails (-1,
  // DtNlErrClose / DtNlErrIo). Closing a closed channel returns 0 silently.
  int Close() override;
  // Bytes read; a short count at end of file is not an error. A read error
  // records DtNlErrRead / DtNlErrIo, closes the channel and returns 0.
  UINT ReadU8(UINT8* dst, UINT size) override;
  // Bytes the last ReadU8 put into the caller's memory, counted from its
  // start: its result, or, after a read error (result 0), the bytes that
  // arrived before the error. 0 before any read.
  UINT GetDeliveredCount() const;
  // Bytes written; a write error records DtNlErrWrite / DtNlErrIo, closes the
  // channel and returns 0.
  UINT WriteU8(UINT8 const* src, UINT size) override;
  // fseek to the low 32 bits of `offset` (signed); DtNlIoSeekBase adds the base
  // offset and seeks from the start. DtNlIoSeekEnd counts as fseek's SEEK_END.
  // Failure: -1, DtNlErrSeek / DtNlErrIo.
  int Seek(long long offset, DtNlIoSeekPos origin) override;
  // The position (a 32-bit file offset), -1 on failure (DtNlErrTell / DtNlErrIo).
  int Tell() override;
  long long Tell64() override;
  // 1 when the stream's end-of-file indicator is set; 0 otherwise or when closed.
  int IsEof() const override;
  // fflush; -1 on failure (DtNlErrFlush / DtNlErrIo).
  int Flush() override;
  // Pushes the file's data to the device (fsync); -1 on failure
  // (DtNlErrSync / DtNlErrIo; a failing fileno records no code).
  int Sync();

 private:
  // The failure tail of ReadU8: records the read error (DtNlErrIo on EIO, else
  // DtNlErrRead), closes the channel and returns 0.
  UINT failRead();

  FILE* m_handle;    // owned; null while closed
  UINT8* m_bounce;   // owned retry buffer of BOUNCE_SIZE bytes; null until needed
  UINT m_delivered;  // see GetDeliveredCount
};

#endif  // KPZ_UTIL_IO_DTNLFILEIO_H
