// KpzInterfaceJni.cpp - the library's JNI entry, the native method
// getScreennailNative of com.kavi.dtv.kpzinterface.KaviKPZInterface.
//
// Layer: the top one (jni/), over its JNI-free read path
// (KpzScreennailReader) and the array it hands to Java (KpzJavaBytes), above
// the raw facade (jni/raw/DtRaw) and the files-and-streams layer
// (jni/util/io/DtNlFileIo). Given the path of a KPZ raw file it returns the
// bytes of the screennail (the large preview JPEG stored in the file) as a new
// Java byte[], or null on any failure; the reason is written only to the
// Android log (tag "KpzInterface", INFO for progress, ERROR for
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

#include "KpzJavaBytes.h"
#include "KpzScreennailReader.h"
#include "raw/DtRaw.h"
#include "util/DtNlTypes.h"
#include "util/io/DtNlFileIo.h"

namespace {

const char* const kLogTag = "KpzInterface";

// Everything between taking the path's characters and releasing them: the
// read (KpzScreennailReader), then the array (KpzJavaBytes). Returns the new
// array, or null after logging why. `raw` and `fileIo` belong to the caller,
// which destroys them (the channel first) after releasing `chars`.
jbyteArray readScreennail(JNIEnv* env, const char* chars, DtRaw& raw, DtNlFileIo& fileIo) {
  UINT size = 0;
  std::unique_ptr<UINT8[]> buffer = KpzScreennailReader::Read(chars, raw, fileIo, &size);
  if (!buffer) {
    return nullptr;  // logged by the reader
  }
  return KpzJavaBytes::NewArray(env, buffer.get(), size);  // the buffer is freed on the way out
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
