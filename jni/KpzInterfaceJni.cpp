// KpzInterfaceJni.cpp - the library's JNI entry, the native method
// getScreennailNative of com.kavi.dtv.kpzinterface.KaviKPZInterface.
//
// Layer: the top one (jni/), above the raw facade (jni/raw/DtRaw) and the
// files-and-streams layer (jni/util/io/DtNlFileIo). Given the path of a KPZ raw
// file it returns the bytes of the screennail (the large preview JPEG stored in
// the file) as a new Java byte[], or null on any failure; the reason is written
// only to the Android log (tag "KpzInterface", INFO for progress, ERROR for
// failures), never through DtNlLogger. It keeps nothing between calls and runs
// wholly on the calling thread; concurrent calls from several threads are fine.
//
//   // Java
//   byte[] jpeg = new KaviKPZInterface().getScreennailNative("/sdcard/DCIM/a.kpz");
//
// The frame holds a DtRaw and a DtNlFileIo on the native stack, a few
// hundred bytes (the channel makes its retry buffer only when it needs it).
// No pointer members; the path's UTF-8 characters are borrowed from the JVM
// and released exactly once on every path, and the read buffer is owned by the
// call and freed on every path.
#include <android/log.h>
#include <jni.h>

#include <memory>
#include <new>

#include "raw/DtRaw.h"
#include "raw/DtRawScreennailInfo.h"
#include "util/DtNlTypes.h"
#include "util/io/DtNlFile.h"
#include "util/io/DtNlFileIo.h"
#include "util/io/DtNlIo.h"

namespace {

const char* const kLogTag = "KpzInterface";

// The largest Java array: jsize is a signed 32-bit count.
const UINT kMaxJavaArray = 0x7FFFFFFFu;

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
  return bounded > kMaxJavaArray ? kMaxJavaArray : bounded;
}

// Everything between taking the path's characters and releasing them. Returns
// the new array, or null after logging why. `raw` and `fileIo` belong to the
// caller, which destroys them (the channel first) after releasing `chars`.
jbyteArray readScreennail(JNIEnv* env, const char* chars, DtRaw& raw, DtNlFileIo& fileIo) {
  const int initRet = raw.Initialize(chars);
  if (initRet < 0) {
    __android_log_print(ANDROID_LOG_ERROR, kLogTag, "raw.Initialize ERROR. ret=%d", initRet);
    return nullptr;  // no Finalize here: the destructor cleans up
  }

  DtRawScreennailInfo info;
  info.m_fileOffset = 0;
  info.m_size = 0;
  info.m_horizon = 0;
  info.m_vertical = 0;
  const int infoRet = raw.GetScreennailInfo(&info);
  if (infoRet != 0) {
    __android_log_print(ANDROID_LOG_ERROR, kLogTag, "raw.GetScreennailInfo ERROR. ret=%d", infoRet);
    raw.Finalize();
    return nullptr;
  }
  // "%d" of the size: a size of 2 GiB or more shows as negative, as it always has.
  __android_log_print(ANDROID_LOG_INFO, kLogTag,
                      "ScreennailInfo m_fileOffset=0x%x m_size=%d m_horizon=%d m_vertical=%d",
                      info.m_fileOffset, static_cast<int>(info.m_size), info.m_horizon,
                      info.m_vertical);
  // The parsed metadata is no longer needed: the file is read again directly.
  raw.Finalize();

  const int openRet = fileIo.Open(chars, "r");
  if (openRet < 0) {
    __android_log_print(ANDROID_LOG_ERROR, kLogTag, "fileIo.Open ERROR. ret=%d", openRet);
    return nullptr;
  }
  // One seek and one large read: no stdio buffer in between (the read then
  // goes straight into the array's buffer, with no block-alignment reads).
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
  const UINT toRead = boundedReadSize(chars, info.m_fileOffset, info.m_size);
  fileIo.AdviseReadOnly(seekOffset, toRead);  // a cold disk reads the preview alone, no more
  std::unique_ptr<UINT8[]> buffer(new (std::nothrow) UINT8[toRead]);
  const UINT readSize = buffer ? fileIo.ReadU8(buffer.get(), toRead) : 0u;
  if (readSize != info.m_size) {
    __android_log_print(ANDROID_LOG_ERROR, kLogTag, "fileIo.ReadU8 ERROR. readSize=%u", readSize);
    buffer.reset();
    fileIo.Close();
    return nullptr;
  }
  fileIo.Close();

  // readSize == m_size <= kMaxJavaArray here, so the count fits a jsize.
  const jsize length = static_cast<jsize>(info.m_size);
  jbyteArray array = env->NewByteArray(length);
  if (array == nullptr) {
    // The JVM could not make the array and has an OutOfMemoryError pending.
    __android_log_print(ANDROID_LOG_ERROR, kLogTag, "NewByteArray ERROR. size=%u", info.m_size);
    return nullptr;  // the buffer is freed on the way out
  }
  env->SetByteArrayRegion(array, 0, length, reinterpret_cast<const jbyte*>(buffer.get()));
  buffer.reset();
  return array;
}

}  // namespace

// Returns the screennail of the KPZ file at `path` as a new byte[], or null on
// any failure (logged). A null `path` returns null at once; when the JVM cannot
// hand out the path's characters or make the array (an OutOfMemoryError is
// then pending in Java), the result is null too. `self` is not used.
extern "C" JNIEXPORT jbyteArray JNICALL
Java_com_kavi_dtv_kpzinterface_KaviKPZInterface_getScreennailNative(JNIEnv* env, jobject /*self*/,
                                                                     jstring path) {
  __android_log_print(ANDROID_LOG_INFO, kLogTag, "getScreennailNative called.");
  // A null string would crash the JVM inside GetStringUTFChars.
  if (path == nullptr) {
    __android_log_print(ANDROID_LOG_ERROR, kLogTag, "path is null.");
    return nullptr;
  }
  const char* chars = env->GetStringUTFChars(path, nullptr);
  if (chars == nullptr) {
    __android_log_print(ANDROID_LOG_ERROR, kLogTag, "GetStringUTFChars ERROR.");
    return nullptr;
  }
  __android_log_print(ANDROID_LOG_INFO, kLogTag, "filepath:%s", chars);

  // Destroyed in reverse order after the characters are released: the
  // channel, then the facade.
  DtRaw raw;
  DtNlFileIo fileIo;
  jbyteArray result = readScreennail(env, chars, raw, fileIo);
  env->ReleaseStringUTFChars(path, chars);
  return result;
}
