// KpzInterfaceGalleryJni.cpp - the native methods behind KaviKPZInterface's
// gallery calls (getInfo, getThumbnail, readPreview): nativeInfo,
// nativeThumbnail and nativeReadPreview of
// com.kavi.dtv.kpzinterface.KaviKPZInterface.
//
// Layer: the top one (jni/), beside the screennail entries, over
// KpzGalleryReader, which opens the file (or takes the descriptor), reads its
// head once, parses it with the raw facade and locates and reads the
// pictures; this file only moves its answers into Java objects. Every method
// takes the path as UTF-8 bytes (null: use the descriptor `fd`, borrowed,
// never closed, its offset untouched). A failure becomes a
// com.kavi.dtv.kpzinterface.KpzException carrying its kind, the errno and the
// kpz tool's words for the file, and one ERROR line in the Android log (tag
// "KpzInterface"); success logs nothing.
//
// Nothing is kept between calls; any number of threads may call at once. A
// failure of the JVM itself (no memory for an array, a class not found)
// leaves its own exception pending and the method returns at once.
#include <android/log.h>
#include <jni.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>

#include "KpzGalleryReader.h"
#include "util/DtNlTypes.h"

namespace {

const char* const kLogTag = "KpzInterface";
const char* const kExceptionClass = "com/kavi/dtv/kpzinterface/KpzException";
const char* const kInfoClass = "com/kavi/dtv/kpzinterface/KpzInfo";

// The largest Java array: jsize is a signed 32-bit count.
const UINT32 kMaxJavaArray = 0x7FFFFFFFu;

using Failure = KpzGalleryReader::Failure;

// A new byte[] holding `length` bytes of `bytes`; null with the JVM's
// exception pending when it cannot be made.
jbyteArray newBytes(JNIEnv* env, const void* bytes, jsize length) {
  jbyteArray array = env->NewByteArray(length);
  if (array == nullptr) {
    return nullptr;
  }
  if (length > 0) {
    env->SetByteArrayRegion(array, 0, length, static_cast<const jbyte*>(bytes));
  }
  if (env->ExceptionCheck()) {
    env->DeleteLocalRef(array);
    return nullptr;
  }
  return array;
}

// Logs `why` and throws it as a KpzException (or leaves the JVM's own
// exception pending when that cannot be made).
void throwFailure(JNIEnv* env, const char* method, const Failure& why) {
  __android_log_print(ANDROID_LOG_ERROR, kLogTag, "%s ERROR. kind=%d errno=%d: %s", method,
                      static_cast<int>(why.m_kind), why.m_errno, why.m_words);
  jclass type = env->FindClass(kExceptionClass);
  if (type == nullptr) {
    return;  // NoClassDefFoundError pending
  }
  const jmethodID make = env->GetMethodID(type, "<init>", "(II[B)V");
  if (make == nullptr) {
    env->DeleteLocalRef(type);
    return;  // NoSuchMethodError pending
  }
  jbyteArray words =
      newBytes(env, why.m_words, static_cast<jsize>(strnlen(why.m_words, sizeof why.m_words)));
  if (words == nullptr) {
    env->DeleteLocalRef(type);
    return;
  }
  jobject error = env->NewObject(type, make, static_cast<jint>(why.m_kind),
                                 static_cast<jint>(why.m_errno), words);
  env->DeleteLocalRef(words);
  env->DeleteLocalRef(type);
  if (error == nullptr || env->ExceptionCheck()) {
    return;
  }
  env->Throw(static_cast<jthrowable>(error));
  env->DeleteLocalRef(error);
}

// What a failed open leaves: a failure to throw, or the JVM's own exception.
enum class Opened { Yes, Failed, Pending };

// Opens `reader` on the path bytes, or on `fd` when `path` is null.
Opened open(JNIEnv* env, jbyteArray path, jint fd, KpzGalleryReader& reader, Failure* why) {
  if (path == nullptr) {
    return reader.OpenFd(static_cast<int>(fd), why) ? Opened::Yes : Opened::Failed;
  }
  const jsize length = env->GetArrayLength(path);
  // The path's own bytes and a terminating zero: no more than Java holds.
  std::unique_ptr<char[]> chars(new (std::nothrow) char[static_cast<std::size_t>(length) + 1]);
  if (!chars) {
    why->m_kind = DtRawFailure::KindUnreadable;
    why->m_errno = ENOMEM;
    std::snprintf(why->m_words, sizeof why->m_words, "not enough memory for the file's name");
    return Opened::Failed;
  }
  env->GetByteArrayRegion(path, 0, length, reinterpret_cast<jbyte*>(chars.get()));
  if (env->ExceptionCheck()) {
    return Opened::Pending;
  }
  chars[static_cast<std::size_t>(length)] = '\0';
  return reader.OpenPath(chars.get(), why) ? Opened::Yes : Opened::Failed;
}

// Opens `reader` and throws what fails. True when the reader is open.
bool openOrThrow(JNIEnv* env, const char* method, jbyteArray path, jint fd,
                 KpzGalleryReader& reader) {
  Failure why;
  const Opened opened = open(env, path, fd, reader, &why);
  if (opened == Opened::Failed) {
    throwFailure(env, method, why);
  }
  return opened == Opened::Yes;
}

// A failure of the JNI methods' own, in words the tool has no need of.
void throwTooLarge(JNIEnv* env, const char* method, const char* what) {
  Failure why;
  why.m_kind = DtRawFailure::KindDamaged;
  std::snprintf(why.m_words, sizeof why.m_words,
                "the %s is larger than 2 GiB, more than a Java array holds", what);
  throwFailure(env, method, why);
}

}  // namespace

// KpzInfo nativeInfo(byte[] path, int fd)
extern "C" JNIEXPORT jobject JNICALL Java_com_kavi_dtv_kpzinterface_KaviKPZInterface_nativeInfo(
    JNIEnv* env, jclass /*type*/, jbyteArray path, jint fd) {
  const char* const method = "getInfo";
  KpzGalleryReader reader;
  if (!openOrThrow(env, method, path, fd, reader)) {
    return nullptr;
  }
  KpzGalleryReader::Info info;
  reader.GetInfo(&info);

  jbyteArray model = nullptr;
  if (info.m_hasModel) {
    model =
        newBytes(env, info.m_model, static_cast<jsize>(strnlen(info.m_model, sizeof info.m_model)));
    if (model == nullptr) {
      return nullptr;
    }
  }
  jclass type = env->FindClass(kInfoClass);
  if (type == nullptr) {
    return nullptr;
  }
  const jmethodID make = env->GetMethodID(type, "<init>", "(IZIIJJ[BZIIIIII)V");
  if (make == nullptr) {
    env->DeleteLocalRef(type);
    return nullptr;
  }
  const DtRawDateTime& dt = info.m_dateTime;
  jobject result = env->NewObject(
      type, make, static_cast<jint>(info.m_orientation),
      static_cast<jboolean>(info.m_orientationRecorded ? JNI_TRUE : JNI_FALSE),
      static_cast<jint>(info.m_previewWidth), static_cast<jint>(info.m_previewHeight),
      static_cast<jlong>(info.m_previewLength), static_cast<jlong>(info.m_thumbnailLength), model,
      static_cast<jboolean>(info.m_hasDateTime ? JNI_TRUE : JNI_FALSE),
      static_cast<jint>(dt.m_year), static_cast<jint>(dt.m_month), static_cast<jint>(dt.m_day),
      static_cast<jint>(dt.m_hour), static_cast<jint>(dt.m_minute), static_cast<jint>(dt.m_second));
  env->DeleteLocalRef(type);
  if (model != nullptr) {
    env->DeleteLocalRef(model);
  }
  return result;  // null with an exception pending when it could not be made
}

// byte[] nativeThumbnail(byte[] path, int fd)
extern "C" JNIEXPORT jbyteArray JNICALL
Java_com_kavi_dtv_kpzinterface_KaviKPZInterface_nativeThumbnail(JNIEnv* env, jclass /*type*/,
                                                                jbyteArray path, jint fd) {
  const char* const method = "getThumbnail";
  KpzGalleryReader reader;
  if (!openOrThrow(env, method, path, fd, reader)) {
    return nullptr;
  }
  Failure why;
  KpzGalleryReader::Picture picture;
  if (!reader.Locate(KpzGalleryReader::PictureThumbnail, &picture, &why)) {
    throwFailure(env, method, why);
    return nullptr;
  }
  if (picture.m_length > kMaxJavaArray) {
    throwTooLarge(env, method, "thumbnail");
    return nullptr;
  }
  const jsize length = static_cast<jsize>(picture.m_length);
  // Mostly it lies in the head already read: no further read.
  const UINT8* inHead = reader.InHead(picture);
  if (inHead != nullptr) {
    return newBytes(env, inHead, length);
  }
  // Located inside the file: the buffer is no larger than the file holds.
  std::unique_ptr<UINT8[]> bytes(new (std::nothrow) UINT8[picture.m_length]);
  if (!bytes) {
    why.m_kind = DtRawFailure::KindUnreadable;
    why.m_errno = ENOMEM;
    std::snprintf(why.m_words, sizeof why.m_words, "not enough memory to read the thumbnail");
    throwFailure(env, method, why);
    return nullptr;
  }
  if (!reader.Read(picture, bytes.get(), &why)) {
    throwFailure(env, method, why);
    return nullptr;
  }
  return newBytes(env, bytes.get(), length);
}

// long nativeReadPreview(byte[] path, int fd, ByteBuffer buffer)
extern "C" JNIEXPORT jlong JNICALL
Java_com_kavi_dtv_kpzinterface_KaviKPZInterface_nativeReadPreview(JNIEnv* env, jclass /*type*/,
                                                                  jbyteArray path, jint fd,
                                                                  jobject buffer) {
  const char* const method = "readPreview";
  void* const address = buffer != nullptr ? env->GetDirectBufferAddress(buffer) : nullptr;
  const jlong capacity = buffer != nullptr ? env->GetDirectBufferCapacity(buffer) : -1;
  if (address == nullptr || capacity < 0) {
    jclass type = env->FindClass("java/lang/IllegalArgumentException");
    if (type != nullptr) {
      env->ThrowNew(type, "buffer is not a direct buffer");
      env->DeleteLocalRef(type);
    }
    return 0;
  }
  KpzGalleryReader reader;
  if (!openOrThrow(env, method, path, fd, reader)) {
    return 0;
  }
  Failure why;
  KpzGalleryReader::Picture picture;
  if (!reader.Locate(KpzGalleryReader::PicturePreview, &picture, &why)) {
    throwFailure(env, method, why);
    return 0;
  }
  const jlong length = static_cast<jlong>(picture.m_length);
  if (length > capacity) {
    return length;  // the capacity needed; nothing read
  }
  if (!reader.Read(picture, static_cast<UINT8*>(address), &why)) {
    throwFailure(env, method, why);
    return 0;
  }
  return length;
}
