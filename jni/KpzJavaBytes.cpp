// KpzJavaBytes.cpp - the screennail entries' byte[]. See the header.
#include "KpzJavaBytes.h"

#include <android/log.h>

namespace {

const char* const kLogTag = "KpzInterface";

}  // namespace

jbyteArray KpzJavaBytes::NewArray(JNIEnv* env, const UINT8* bytes, UINT size) {
  const jsize length = static_cast<jsize>(size);
  jbyteArray array = env->NewByteArray(length);
  if (array == nullptr) {
    // The JVM could not make the array and has an OutOfMemoryError pending.
    __android_log_print(ANDROID_LOG_ERROR, kLogTag, "NewByteArray ERROR. size=%u", size);
    return nullptr;
  }
  env->SetByteArrayRegion(array, 0, length, reinterpret_cast<const jbyte*>(bytes));
  return array;
}
