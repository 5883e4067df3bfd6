// KpzScreennailReader.cpp - the entries' read paths, without JNI. See the header.
#include "KpzScreennailReader.h"

#include <android/log.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>
#include <utility>

#include "raw/DtRawScreennailInfo.h"
#include "util/io/DtNlFile.h"
#include "util/io/DtNlIo.h"
#include "util/io/DtNlReadAt.h"

namespace {

const char* const kLogTag = "KpzInterface";

// The facade parses the first 64 KiB of a file, as DtRaw::Initialize reads them.
const UINT kHeadSize = 0x10000;

// The step both readers share once `raw` was initialized over the file (by
// path or over its head): asks where the screennail lies, logs the answer at
// INFO (or the failure), and finalizes `raw`. true with *info filled, false
// after logging why.
bool locate(DtRaw& raw, DtRawScreennailInfo* info) {
  info->m_fileOffset = 0;
  info->m_size = 0;
  info->m_horizon = 0;
  info->m_vertical = 0;
  const int infoRet = raw.GetScreennailInfo(info);
  if (infoRet != 0) {
    __android_log_print(ANDROID_LOG_ERROR, kLogTag, "raw.GetScreennailInfo ERROR. ret=%d", infoRet);
    raw.Finalize();
    return false;
  }
  // "%d" of the size: a size of 2 GiB or more shows as negative, as it always has.
  __android_log_print(ANDROID_LOG_INFO, kLogTag,
                      "ScreennailInfo m_fileOffset=0x%x m_size=%d m_horizon=%d m_vertical=%d",
                      info->m_fileOffset, static_cast<int>(info->m_size), info->m_horizon,
                      info->m_vertical);
  // The parsed metadata is no longer needed: the file is read again directly.
  raw.Finalize();
  return true;
}

// How many bytes to allocate and read for a screennail that claims `size`
// bytes at `offset` of the file `path`: the smaller of `size` and what the file
// really holds after `offset` (and of the largest Java array). The size field
// comes from the file and may claim up to 4 GiB; bounding the buffer by the
// file keeps a forged value from allocating it, while a claim beyond the end
// still ends in the same short read and log line. A file that cannot be
// measured any more (removed since it was opened) or holds nothing after
// `offset` gives 0: nothing of it is trusted.
UINT boundedReadSize(const char* path, UINT32 offset, UINT32 size) {
  const UINT bounded = DtNlFile(path).BytesAvailable(offset, size);
  return bounded > KpzScreennailReader::kMaxJavaArray ? KpzScreennailReader::kMaxJavaArray
                                                      : bounded;
}

// Reads up to `size` bytes at `offset` of `file` into `buffer`
// (DtNlReadAt's contract: all of them, fewer only at the end of the file or
// on an error). Returns the count read; *err is 0, or the errno of the
// failing read (EOVERFLOW for a position beyond what off_t holds).
UINT readAt(DtNlFdReadAt& file, UINT8* buffer, UINT size, long long offset, int* err) {
  std::size_t got = 0;
  *err = file.GetData(static_cast<std::uint64_t>(offset), size, buffer, &got);
  return static_cast<UINT>(got);
}

// A buffer of `size` bytes, or null when it cannot be had (logged).
std::unique_ptr<UINT8[]> allocate(UINT size) {
  std::unique_ptr<UINT8[]> buffer(new (std::nothrow) UINT8[size == 0 ? 1 : size]);
  if (!buffer) {
    __android_log_print(ANDROID_LOG_ERROR, kLogTag, "buffer allocation ERROR. size=%u", size);
  }
  return buffer;
}

// Reads the screennail: `size` bytes at `offset` of `fd`.
// Returns the count read into *out (== size on success). The buffer is sized
// by what the descriptor really holds, never by the claimed size alone: for a
// regular file by its size after `offset`; beyond that (a file that grew, or
// a descriptor without a size, such as a device) it grows only by what
// further reads really return, through `scratch` (kHeadSize bytes), so a
// forged size cannot make it allocate more than twice what is there.
// *allocFailed tells an allocation failure from a short read.
UINT readFdScreennail(DtNlFdReadAt& fd, UINT32 offset, UINT size, UINT8* scratch,
                      std::unique_ptr<UINT8[]>* out, int* err, bool* allocFailed) {
  *allocFailed = false;
  *err = 0;
  UINT capacity = 0;
  if (fd.FileType() == DtNlFdReadAt::TypeRegular && fd.Size() > offset) {
    const std::uint64_t after = fd.Size() - offset;
    capacity = after < size ? static_cast<UINT>(after) : size;
  }
  std::unique_ptr<UINT8[]> buffer = allocate(capacity);
  if (!buffer) {
    *allocFailed = true;
    return 0;
  }
  UINT filled = readAt(fd, buffer.get(), capacity, offset, err);
  // The common case ends here: the whole screennail in one read.
  while (*err == 0 && filled == capacity && filled < size) {
    const UINT want = size - filled < kHeadSize ? size - filled : kHeadSize;
    const UINT got = readAt(fd, scratch, want, static_cast<long long>(offset) + filled, err);
    if (got == 0) {
      break;  // the end of the data (or an error, in *err)
    }
    const UINT grown = size - filled < filled ? size : (filled > got ? 2 * filled : filled + got);
    std::unique_ptr<UINT8[]> bigger = allocate(grown);
    if (!bigger) {
      *allocFailed = true;
      break;
    }
    std::memcpy(bigger.get(), buffer.get(), filled);
    std::memcpy(bigger.get() + filled, scratch, got);
    buffer = std::move(bigger);
    capacity = grown;
    filled += got;
    if (filled < capacity) {
      filled += readAt(fd, buffer.get() + filled, capacity - filled,
                       static_cast<long long>(offset) + filled, err);
    }
  }
  *out = std::move(buffer);
  return filled;
}

}  // namespace

const UINT KpzScreennailReader::kMaxJavaArray;

std::unique_ptr<UINT8[]> KpzScreennailReader::Read(const char* path, DtRaw& raw,
                                                   DtNlFileIo& fileIo, UINT* size) {
  *size = 0;
  const int initRet = raw.Initialize(path);
  if (initRet < 0) {
    __android_log_print(ANDROID_LOG_ERROR, kLogTag, "raw.Initialize ERROR. ret=%d", initRet);
    return nullptr;  // no Finalize here: the destructor cleans up
  }
  DtRawScreennailInfo info;
  if (!locate(raw, &info)) {
    return nullptr;
  }

  const int openRet = fileIo.Open(path, "r");
  if (openRet < 0) {
    __android_log_print(ANDROID_LOG_ERROR, kLogTag, "fileIo.Open ERROR. ret=%d", openRet);
    return nullptr;
  }
  // One seek and one large read: no stdio buffer in between (the read then
  // goes straight into the buffer, with no block-alignment reads).
  fileIo.SetUnbuffered();  // if refused, the stream simply stays buffered
  // Deliberate: the offset is widened as a signed 32-bit number, so an offset
  // of 2 GiB or more becomes negative and the seek fails.
  const long long seekOffset = static_cast<long long>(static_cast<INT32>(info.m_fileOffset));
  const int seekRet = fileIo.Seek(seekOffset, DtNlIoSeekSet);
  if (seekRet < 0) {
    __android_log_print(ANDROID_LOG_ERROR, kLogTag, "fileIo.Seek ERROR. ret=%d", seekRet);
    fileIo.Close();
    return nullptr;
  }

  // One read into one buffer; at most what the file holds is allocated (see
  // boundedReadSize). An allocation failure counts as a read of 0 bytes.
  const UINT toRead = boundedReadSize(path, info.m_fileOffset, info.m_size);
  std::unique_ptr<UINT8[]> buffer(new (std::nothrow) UINT8[toRead]);
  // At the offset just sought: a warm preview in one call, from a cold disk
  // the preview alone, no more.
  const UINT readSize = buffer ? fileIo.ReadU8At(seekOffset, buffer.get(), toRead) : 0u;
  if (readSize != info.m_size) {
    __android_log_print(ANDROID_LOG_ERROR, kLogTag, "fileIo.ReadU8 ERROR. readSize=%u", readSize);
    fileIo.Close();
    return nullptr;
  }
  fileIo.Close();
  // readSize == m_size <= kMaxJavaArray here.
  *size = readSize;
  return buffer;
}

std::unique_ptr<UINT8[]> KpzScreennailReader::ReadFd(DtNlFdReadAt& fd, UINT* size) {
  *size = 0;
  std::unique_ptr<UINT8[]> head = allocate(kHeadSize);
  if (!head) {
    return nullptr;
  }
  int err = 0;
  const UINT headSize = readAt(fd, head.get(), kHeadSize, 0, &err);
  // As DtRaw::Initialize does for a file: the facade parses all 64 KiB, with
  // zeros after the end of a shorter file, so that a file gives the same
  // answers through a descriptor as through its path.
  std::memset(head.get() + headSize, 0, kHeadSize - headSize);
  if (err == ESPIPE) {
    __android_log_print(ANDROID_LOG_ERROR, kLogTag, "fd is not seekable. fd=%d", fd.Fd());
    return nullptr;
  }
  if (err != 0) {
    __android_log_print(ANDROID_LOG_ERROR, kLogTag, "pread ERROR. readSize=%u errno=%d", headSize,
                        err);
    return nullptr;
  }

  DtRawScreennailInfo info;
  {
    // The facade borrows the head until Finalize, which ends this block.
    DtRaw raw;
    const int initRet = raw.InitializeBuf(head.get(), static_cast<int>(kHeadSize));
    if (initRet < 0) {
      __android_log_print(ANDROID_LOG_ERROR, kLogTag, "raw.InitializeBuf ERROR. ret=%d", initRet);
      return nullptr;
    }
    if (!locate(raw, &info)) {
      return nullptr;
    }
  }

  // As Read takes the offset: a signed 32-bit number, so an offset of 2 GiB
  // or more is refused (files are read within their first 2 GiB).
  if (static_cast<INT32>(info.m_fileOffset) < 0) {
    __android_log_print(ANDROID_LOG_ERROR, kLogTag, "m_fileOffset out of range. m_fileOffset=0x%x",
                        info.m_fileOffset);
    return nullptr;
  }
  // More than the largest Java array can never be read whole: the read stops there.
  const UINT toRead = info.m_size > kMaxJavaArray ? kMaxJavaArray : info.m_size;
  std::unique_ptr<UINT8[]> buffer;
  bool allocFailed = false;
  const UINT readSize =
      readFdScreennail(fd, info.m_fileOffset, toRead, head.get(), &buffer, &err, &allocFailed);
  head.reset();
  if (allocFailed) {
    return nullptr;  // logged by allocate
  }
  if (readSize != info.m_size) {
    __android_log_print(ANDROID_LOG_ERROR, kLogTag, "pread ERROR. readSize=%u errno=%d", readSize,
                        err);
    return nullptr;
  }
  // readSize == m_size <= kMaxJavaArray here.
  *size = readSize;
  return buffer;
}
