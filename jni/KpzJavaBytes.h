// KpzJavaBytes.h - a read screennail handed to Java: the one place the
// screennail entries (getScreennailNative, getScreennailFromFd) make their
// byte[].
//
// Layer: the top one (jni/), beside the JNI entries (KpzInterfaceJni.cpp,
// KpzInterfaceFdJni.cpp), after their read path (KpzScreennailReader). A
// failure is written to the Android log (tag "KpzInterface", ERROR) in the
// entries' words.
//
//   std::unique_ptr<UINT8[]> jpeg = KpzScreennailReader::Read(path, raw, fileIo, &size);
//   return jpeg ? KpzJavaBytes::NewArray(env, jpeg.get(), size) : nullptr;
//
// Holds nothing; any number of threads may call at once.
#ifndef KPZ_JNI_KPZJAVABYTES_H
#define KPZ_JNI_KPZJAVABYTES_H

#include <jni.h>

#include "util/DtNlTypes.h"

class KpzJavaBytes {
 public:
  // A new byte[] holding the `size` bytes at `bytes` (borrowed for the call;
  // `size` at most KpzScreennailReader::kMaxJavaArray, so that it fits a
  // jsize). Null when the JVM cannot make the array: then logged, with the
  // JVM's OutOfMemoryError pending.
  static jbyteArray NewArray(JNIEnv* env, const UINT8* bytes, UINT size);
};

#endif  // KPZ_JNI_KPZJAVABYTES_H
