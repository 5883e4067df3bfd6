// KpzInterfaceFdJni.cpp - the JNI method getScreennailFromFd of
// com.kavi.dtv.kpzinterface.KaviKPZInterface: the screennail of a KPZ raw file
// read through an open file descriptor instead of a path.
//
// Layer: the top one (jni/), beside getScreennailNative (KpzInterfaceJni.cpp),
// above the raw facade (jni/raw/DtRaw). On Android an app mostly holds a
// content:// URI, not a path; ContentResolver.openFileDescriptor(uri, "r")
// gives a ParcelFileDescriptor whose getFd() is the descriptor handed here.
// Reopening /proc/self/fd/N by path is refused for some providers' descriptors,
// so the bytes are read through the descriptor itself, positionally, by the
// library's one read-at loop (DtNlFdReadAt, borrowing the descriptor):
//
//   1. pread of the file's first 64 KiB (the head the facade parses; zeros
//      after the end of a shorter file, as DtRaw::Initialize has them),
//   2. DtRaw::InitializeBuf over that head, GetScreennailInfo, Finalize,
//   3. one pread of the screennail into one buffer, copied into a new byte[].
//
// pread never moves the descriptor's file offset, so a caller that shares the
// descriptor sees no change; the descriptor is neither closed nor kept. A
// descriptor that cannot be read positionally (a pipe or a socket) gives null.
// The screennail is accepted exactly as getScreennailNative accepts it (same
// DtRaw answers, the same reading of the offset as a signed 32-bit number,
// the whole length or nothing), so one file gives the same bytes through its
// path and through a descriptor. Lines go to the Android log with the same tag
// and style as the path entry's; nothing is kept between calls, and concurrent
// calls on separate descriptors are fine (calls on one descriptor too: no
// offset is shared).
//
//   // Java
//   try (ParcelFileDescriptor pfd = resolver.openFileDescriptor(uri, "r")) {
//     byte[] jpeg = new KaviKPZInterface().getScreennailFromFd(pfd.getFd());
//   }
#include <android/log.h>
#include <jni.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <new>

#include "raw/DtRaw.h"
#include "raw/DtRawScreennailInfo.h"
#include "util/DtNlTypes.h"
#include "util/io/DtNlReadAt.h"

namespace {

const char* const kLogTag = "KpzInterface";

// The facade parses the first 64 KiB of a file, as DtRaw::Initialize reads them.
const UINT kHeadSize = 0x10000;

// The largest Java array: jsize is a signed 32-bit count.
const UINT kMaxJavaArray = 0x7FFFFFFFu;

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
UINT readScreennail(DtNlFdReadAt& fd, UINT32 offset, UINT size, UINT8* scratch,
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

// Everything after the descriptor was found open: the head, the facade, the
// screennail, the array. Returns the new array, or null after logging why.
jbyteArray readFromFd(JNIEnv* env, DtNlFdReadAt& fd) {
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
  info.m_fileOffset = 0;
  info.m_size = 0;
  info.m_horizon = 0;
  info.m_vertical = 0;
  {
    // The facade borrows the head until Finalize, which ends this block.
    DtRaw raw;
    const int initRet = raw.InitializeBuf(head.get(), static_cast<int>(kHeadSize));
    if (initRet < 0) {
      __android_log_print(ANDROID_LOG_ERROR, kLogTag, "raw.InitializeBuf ERROR. ret=%d", initRet);
      return nullptr;
    }
    const int infoRet = raw.GetScreennailInfo(&info);
    if (infoRet != 0) {
      __android_log_print(ANDROID_LOG_ERROR, kLogTag, "raw.GetScreennailInfo ERROR. ret=%d", infoRet);
      raw.Finalize();
      return nullptr;
    }
    // "%d" of the size: a size of 2 GiB or more shows as negative, as in the path entry.
    __android_log_print(ANDROID_LOG_INFO, kLogTag,
                        "ScreennailInfo m_fileOffset=0x%x m_size=%d m_horizon=%d m_vertical=%d",
                        info.m_fileOffset, static_cast<int>(info.m_size), info.m_horizon,
                        info.m_vertical);
    raw.Finalize();
  }

  // As the path entry reads the offset: a signed 32-bit number, so an offset
  // of 2 GiB or more is refused (files are read within their first 2 GiB).
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
      readScreennail(fd, info.m_fileOffset, toRead, head.get(), &buffer, &err, &allocFailed);
  head.reset();
  if (allocFailed) {
    return nullptr;  // logged by allocate
  }
  if (readSize != info.m_size) {
    __android_log_print(ANDROID_LOG_ERROR, kLogTag, "pread ERROR. readSize=%u errno=%d", readSize,
                        err);
    return nullptr;
  }

  // readSize == m_size <= kMaxJavaArray here, so the count fits a jsize.
  const jsize length = static_cast<jsize>(info.m_size);
  jbyteArray array = env->NewByteArray(length);
  if (array == nullptr) {
    // The JVM could not make the array and has an OutOfMemoryError pending.
    __android_log_print(ANDROID_LOG_ERROR, kLogTag, "NewByteArray ERROR. size=%u", info.m_size);
    return nullptr;
  }
  env->SetByteArrayRegion(array, 0, length, reinterpret_cast<const jbyte*>(buffer.get()));
  return array;
}

}  // namespace

// Returns the screennail of the KPZ file open on `fd` as a new byte[], or null
// on any failure (logged): a negative or closed descriptor, one that cannot be
// read positionally (a pipe), a read error, a file that is not KPZ or holds
// no whole screennail. The descriptor's offset does not move; it is not
// closed. When the JVM cannot make the array an OutOfMemoryError is pending.
// `self` is not used.
extern "C" JNIEXPORT jbyteArray JNICALL
Java_com_kavi_dtv_kpzinterface_KaviKPZInterface_getScreennailFromFd(JNIEnv* env, jobject /*self*/,
                                                                     jint fd) {
  __android_log_print(ANDROID_LOG_INFO, kLogTag, "getScreennailFromFd called.");
  __android_log_print(ANDROID_LOG_INFO, kLogTag, "fd:%d", static_cast<int>(fd));
  if (fd < 0) {
    __android_log_print(ANDROID_LOG_ERROR, kLogTag, "fd is negative. fd=%d", static_cast<int>(fd));
    return nullptr;
  }
  DtNlFdReadAt file;  // borrows the descriptor: never closed here
  const int err = file.Adopt(static_cast<int>(fd), false);
  if (err != 0) {
    if (err == EBADF) {
      __android_log_print(ANDROID_LOG_ERROR, kLogTag, "fd is not open. fd=%d", static_cast<int>(fd));
    } else {
      __android_log_print(ANDROID_LOG_ERROR, kLogTag, "fstat ERROR. fd=%d errno=%d",
                          static_cast<int>(fd), err);
    }
    return nullptr;
  }
  return readFromFd(env, file);
}
