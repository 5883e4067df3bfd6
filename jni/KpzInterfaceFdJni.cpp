// KpzInterfaceFdJni.cpp - the JNI method getScreennailFromFd of
// com.kavi.dtv.kpzinterface.KaviKPZInterface: the screennail of a KPZ raw file
// read through an open file descriptor instead of a path.
//
// Layer: the top one (jni/), beside getScreennailNative (KpzInterfaceJni.cpp),
// over the same JNI-free read path (KpzScreennailReader::ReadFd) and the same
// array (KpzJavaBytes). On Android an app mostly holds a content:// URI, not a
// path; ContentResolver.openFileDescriptor(uri, "r") gives a
// ParcelFileDescriptor whose getFd() is the descriptor handed here. Reopening
// /proc/self/fd/N by path is refused for some providers' descriptors, so the
// bytes are read through the descriptor itself, positionally, by the library's
// one read-at loop (DtNlFdReadAt, borrowing the descriptor):
//
//   1. pread of the file's first 64 KiB (the head the facade parses; zeros
//      after the end of a shorter file, as DtRaw::Initialize has them),
//   2. DtRaw::InitializeBuf over that head, GetScreennailInfo, Finalize (the
//      step and the lines the path entry has too),
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

#include <cerrno>
#include <memory>

#include "KpzJavaBytes.h"
#include "KpzScreennailReader.h"
#include "util/DtNlTypes.h"
#include "util/io/DtNlReadAt.h"

namespace {

const char* const kLogTag = "KpzInterface";

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
  UINT size = 0;
  std::unique_ptr<UINT8[]> buffer = KpzScreennailReader::ReadFd(file, &size);
  if (!buffer) {
    return nullptr;  // logged by the reader
  }
  return KpzJavaBytes::NewArray(env, buffer.get(), size);
}
