// DtNlFileIo.cpp - the byte channel over a stdio FILE stream.
//
// Diagnostics keep errno intact: the value logged is the value recorded.
#include "util/io/DtNlFileIo.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <new>

#include "util/DtNlLogger.h"
#include "util/io/DtNlReadAt.h"

namespace {

// Maps errno to the code of a failed operation: EIO always wins.
DtNlErrCode CodeFor(int err, DtNlErrCode own) { return err == EIO ? DtNlErrIo : own; }

// True when a position fits the 32-bit file offsets the library works with.
bool FitsInt32(long long value) { return value >= -2147483647LL - 1 && value <= 2147483647LL; }

// Text of the step-back failure message of ReadU8.
const char* const READ_U8_SIGNATURE = "virtual UINT DtNlFileIo::ReadU8(UINT8*, UINT)";

}  // namespace

const UINT DtNlFileIo::BOUNCE_SIZE;

// The bounce buffer, once made, is left uninitialised on purpose: only the
// bytes fread delivered into it are ever copied out.
DtNlFileIo::DtNlFileIo()
    : DtNlIo(KIND_FILE), m_handle(nullptr), m_bounce(nullptr), m_delivered(0) {}

DtNlFileIo::~DtNlFileIo() {
  DtNlFileIo::Close();
  delete[] m_bounce;
  m_bounce = nullptr;
}

UINT DtNlFileIo::GetDeliveredCount() const { return m_delivered; }

int DtNlFileIo::Open(const char* path, const char* mode) {
  init();
  if (m_handle != nullptr) {
    setErr(DtNlErrAlreadyOpen);
    return -1;
  }
  FILE* handle = nullptr;
  if (path != nullptr && mode != nullptr) {
    handle = fopen(path, mode);
  } else {
    // A missing path or mode fails the way fopen reports a bad argument.
    errno = EINVAL;
  }
  if (handle != nullptr) {
    m_handle = handle;
    return 0;
  }
  const int err = errno;
  DTNL_LOG(DTNL_LV_ERR, 77, "fopen(filePath: %s) err(%d).", path != nullptr ? path : "(null)", err);
  errno = err;
  if (err == ENOENT) {
    setErr(DtNlErrNotFound);
  } else {
    setErr(CodeFor(err, DtNlErrOpen));
  }
  return -1;
}

int DtNlFileIo::SetUnbuffered() {
  if (m_handle == nullptr) {
    return -1;  // nothing to switch; not an I/O failure, so nothing is logged
  }
  // Valid only before the first operation on the stream; setvbuf refuses it
  // (non-zero) otherwise, and the stream then stays buffered.
  return setvbuf(m_handle, nullptr, _IONBF, 0) == 0 ? 0 : -1;
}

int DtNlFileIo::Close() {
  if (m_handle == nullptr) {
    return 0;
  }
  FILE* handle = m_handle;
  m_handle = nullptr;  // forgotten whatever fclose reports
  if (fclose(handle) == 0) {
    return 0;
  }
  const int err = errno;
  DTNL_LOG(DTNL_LV_ERR, 96, "fclose err(%d).", err);
  errno = err;
  setErr(CodeFor(err, DtNlErrClose));
  return -1;
}

UINT DtNlFileIo::ReadU8(UINT8* dst, UINT size) {
  m_delivered = 0;
  if (m_handle == nullptr) {
    DTNL_LOG(DTNL_LV_WARN, 115, "handle is null");
    return 0;
  }
  if (dst == nullptr && size != 0) {
    // Caller error: there is nowhere to put the bytes; the stream is untouched.
    return 0;
  }
  const UINT first = static_cast<UINT>(fread(dst, 1, size, m_handle));
  m_delivered = first;  // fread counts what it delivered, also before an error
  if (ferror(m_handle) == 0) {
    return first;  // a short count at end of file is not an error
  }
  if (errno != EFAULT) {
    return failRead();
  }
  if (m_bounce == nullptr) {
    m_bounce = new (std::nothrow) UINT8[BOUNCE_SIZE];
    errno = EFAULT;  // whatever the allocation did to it
    if (m_bounce == nullptr) {
      return failRead();  // no memory to retry with: the EFAULT stands
    }
  }

  // The system could not write into `dst` directly: step back over what the
  // failed call consumed and read again through the bounce buffer.
  clearerr(m_handle);
  // `first` <= size and the file lies within its first 2 GiB, so the step back
  // fits a signed offset.
  if (first > 0 && fseek(m_handle, -static_cast<long>(first), SEEK_CUR) != 0) {
    const int err = errno;
    DTNL_LOG(DTNL_LV_ERR, 139, "%s seek err(%d).", READ_U8_SIGNATURE, err);
    errno = err;
    return 0;
  }
  UINT remaining = size;
  UINT total = 0;
  UINT8* out = dst;
  // Each pass either ends or takes count > 0 bytes off `remaining`.
  for (;;) {
    const UINT want = remaining < BOUNCE_SIZE ? remaining : BOUNCE_SIZE;
    const UINT count = static_cast<UINT>(fread(m_bounce, 1, want, m_handle));
    if (count > want) {
      // Unreachable with a conforming fread (it never returns more than asked);
      // checked before the copy so that nothing is written out of bounds.
      DTNL_LOG(DTNL_LV_ERR, 165, "Underflow!! unitSize:%d < readSize:%d.",
               static_cast<int>(remaining), static_cast<int>(count));
      DTNL_ASSERT(166, false, "");
      return 0;
    }
    std::memcpy(out, m_bounce, count);
    out += count;
    if (static_cast<UINT>(out - dst) > m_delivered) {
      m_delivered = static_cast<UINT>(out - dst);
    }
    if (ferror(m_handle) != 0) {
      const int err = errno;
      DTNL_LOG(DTNL_LV_ERR, 154, "fread err(%d).", err);
      errno = err;
      return failRead();
    }
    remaining -= count;
    total += count;
    if (count == 0 || remaining == 0) {
      return total;
    }
  }
}

UINT DtNlFileIo::failRead() {
  setErr(CodeFor(errno, DtNlErrRead));
  Close();
  return 0;
}

UINT DtNlFileIo::WriteU8(UINT8 const* src, UINT size) {
  if (m_handle == nullptr) {
    DTNL_LOG(DTNL_LV_WARN, 238, "handle is null");
    return 0;
  }
  if (src == nullptr && size != 0) {
    // Caller error: there are no bytes to write; the stream is untouched.
    return 0;
  }
  const UINT written = static_cast<UINT>(fwrite(src, 1, size, m_handle));
  if (ferror(m_handle) == 0) {
    return written;
  }
  const int err = errno;
  DTNL_LOG(DTNL_LV_ERR, 243, "fwrite err(%d).", err);
  errno = err;
  setErr(CodeFor(err, DtNlErrWrite));
  Close();
  return 0;
}

int DtNlFileIo::Seek(long long offset, DtNlIoSeekPos origin) {
  if (m_handle == nullptr) {
    DTNL_LOG(DTNL_LV_WARN, 257, "handle is null");
    return -1;
  }
  INT32 target = lowOffset(offset);
  int whence = static_cast<int>(origin);  // 0, 1, 2 are SEEK_SET, SEEK_CUR, SEEK_END
  if (origin == DtNlIoSeekBase) {
    // Deliberate 32-bit wrap-around: the sum stays a 32-bit file offset, so an
    // overflowing sum turns negative and fseek refuses it.
    target = lowOffset(
        static_cast<long long>(static_cast<UINT32>(target) + static_cast<UINT32>(GetBaseOffset())));
    whence = SEEK_SET;
  }
  if (fseek(m_handle, static_cast<long>(target), whence) >= 0) {
    return 0;
  }
  const int err = errno;
  DTNL_LOG(DTNL_LV_ERR, 267, "fseek err(%d).", err);
  errno = err;
  setErr(CodeFor(err, DtNlErrSeek));
  return -1;
}

int DtNlFileIo::Tell() {
  if (m_handle == nullptr) {
    DTNL_LOG(DTNL_LV_WARN, 280, "handle is null");
    return -1;
  }
  const long long pos = ftell(m_handle);
  if (pos >= 0 && FitsInt32(pos)) {
    return static_cast<int>(pos);
  }
  if (pos >= 0) {
    // A host with 64-bit offsets may stand beyond 2 GiB; the 32-bit ftell of
    // the target reports that as EOVERFLOW, and so do we.
    errno = EOVERFLOW;
  }
  const int err = errno;
  DTNL_LOG(DTNL_LV_ERR, 285, "ftell err(%d).", err);
  errno = err;
  setErr(CodeFor(err, DtNlErrTell));
  return -1;
}

long long DtNlFileIo::Tell64() {
  if (m_handle == nullptr) {
    DTNL_LOG(DTNL_LV_WARN, 298, "handle is null");
    return -1;
  }
  const long long pos = ftell(m_handle);
  if (pos >= 0 && FitsInt32(pos)) {
    return pos;
  }
  if (pos >= 0) {
    // As in Tell: positions are 32-bit file offsets.
    errno = EOVERFLOW;
  }
  const int err = errno;
  DTNL_LOG(DTNL_LV_ERR, 304, "ftell err(%d).", err);
  errno = err;
  setErr(CodeFor(err, DtNlErrTell));
  return -1;
}

int DtNlFileIo::Flush() {
  if (m_handle == nullptr) {
    DTNL_LOG(DTNL_LV_WARN, 318, "handle is null");
    return -1;
  }
  if (fflush(m_handle) == 0) {
    return 0;
  }
  const int err = errno;
  DTNL_LOG(DTNL_LV_ERR, 323, "fflush err(%d).", err);
  errno = err;
  setErr(CodeFor(err, DtNlErrFlush));
  return -1;
}

int DtNlFileIo::Sync() {
  if (m_handle == nullptr) {
    DTNL_LOG(DTNL_LV_WARN, 336, "handle is null");
    return -1;
  }
  const int fd = fileno(m_handle);
  if (fd == -1) {
    DTNL_LOG(DTNL_LV_ERR, 341, "fileno err(%d).", errno);
    return -1;  // no error code for a failing fileno
  }
  if (fsync(fd) == 0) {
    return 0;
  }
  const int err = errno;
  DTNL_LOG(DTNL_LV_ERR, 346, "fsync err(%d).", err);
  errno = err;
  setErr(CodeFor(err, DtNlErrSync));
  return -1;
}

int DtNlFileIo::IsEof() const {
  if (m_handle == nullptr) {
    DTNL_LOG(DTNL_LV_WARN, 359, "handle is null");
    return 0;
  }
  return feof(m_handle) != 0 ? 1 : 0;
}

// Kept at the end of the file, after every logged line: it logs nothing.
int DtNlFileIo::AdviseReadOnly(long long offset, long long length) {
  if (m_handle == nullptr || offset < 0 || length < 0 || !FitsInt32(offset) ||
      !FitsInt32(length)) {
    return -1;
  }
#if defined(POSIX_FADV_RANDOM) && defined(POSIX_FADV_WILLNEED)
  const int saved = errno;  // posix_fadvise reports through its result; fileno may set errno
  const int fd = fileno(m_handle);
  int refused = fd < 0 ? 1 : posix_fadvise(fd, 0, 0, POSIX_FADV_RANDOM);
  if (refused == 0 && length > 0) {  // a length of 0 would mean "to the end of the file"
    // Both fit 32 bits; the range is cut at the last 32-bit offset.
    const long long rest = 2147483647LL - offset;
    refused = posix_fadvise(fd, static_cast<off_t>(offset),
                            static_cast<off_t>(length < rest ? length : rest), POSIX_FADV_WILLNEED);
  }
  errno = saved;
  return refused == 0 ? 0 : -1;
#else
  return -1;  // no access hints on this platform
#endif
}

// Kept at the end of the file, after every logged line: it logs nothing of
// its own.
UINT DtNlFileIo::ReadU8At(long long offset, UINT8* dst, UINT size) {
  m_delivered = 0;
  if (m_handle == nullptr || offset < 0 || !FitsInt32(offset) || (dst == nullptr && size != 0)) {
    return 0;
  }
  const int fd = fileno(m_handle);
  if (fd < 0) {
    return 0;
  }
  std::size_t got = 0;
  const int err = DtNlFdReadAt::ReadFd(fd, static_cast<std::uint64_t>(offset), size, dst, &got,
                                       true);
  m_delivered = static_cast<UINT>(got);  // got <= size
  if (err == 0) {
    return m_delivered;  // a short count at end of file is not an error
  }
  if (err == ESPIPE && got == 0) {
    // A pipe or a terminal has no offsets: read from where it stands, as before.
    return ReadU8(dst, size);
  }
  if (err == EFAULT) {
    // As ReadU8 does: read again through its retry buffer, from the offset.
    if (fseek(m_handle, static_cast<long>(offset), SEEK_SET) != 0) {
      return failRead();
    }
    return ReadU8(dst, size);
  }
  errno = err;
  return failRead();
}
