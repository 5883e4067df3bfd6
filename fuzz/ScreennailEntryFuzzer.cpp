// ScreennailEntryFuzzer.cpp - libFuzzer target: the input is written to a
// temporary file and its screennail is read the way the JNI entry reads it.
//
// Sits above everything (the JNI entry's level); see fuzz/README.md.
//
//   build/fuzz/fuzz/ScreennailEntryFuzzer -dict=fuzz/kpz.dict build/fuzz/corpus/raw build/fuzz/seeds/raw
//
// Built with KPZ_FUZZ_REAL_JNI_ENTRY (the JNI and Android log headers were
// found), the target calls the entry itself, jni/KpzInterfaceJni.cpp compiled
// in, through a fake JNI function table that hands out the path and records
// the array; its Android log lines are dropped. Without the headers it replays
// the entry's sequence of library calls: DtRaw Initialize, GetScreennailInfo,
// Finalize, then a DtNlFileIo open, seek and one read of the reported range,
// with the entry's allocation bound (never more than the file holds).
//
// With the real entry, the same file is also read through a descriptor by
// getScreennailFromFd (jni/KpzInterfaceFdJni.cpp, compiled in too), whose
// offset is set first: it must give exactly what the path gives, leave the
// offset where it was and the descriptor open.
//
// Either way the result is checked against the screennail a separate DtRaw
// reports for the same file: the bytes at its offset when they lie wholly in
// the file, no array otherwise; the path's characters are released once; no
// array is bigger than the file. No pointer members outlive a run: the fake
// JVM owns the characters it hands out and the arrays it makes.
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "FuzzRawQueries.h"
#include "FuzzScratchFile.h"
#include "raw/DtRaw.h"
#include "raw/DtRawError.h"
#include "raw/DtRawScreennailInfo.h"

#if KPZ_FUZZ_REAL_JNI_ENTRY
#include <fcntl.h>
#include <jni.h>

// The entry under test (jni/KpzInterfaceJni.cpp, compiled into this target).
extern "C" JNIEXPORT jbyteArray JNICALL
Java_com_kavi_dtv_kpzinterface_KaviKPZInterface_getScreennailNative(JNIEnv* env, jobject self,
                                                                     jstring path);
// The descriptor method (jni/KpzInterfaceFdJni.cpp, compiled in as well).
extern "C" JNIEXPORT jbyteArray JNICALL
Java_com_kavi_dtv_kpzinterface_KaviKPZInterface_getScreennailFromFd(JNIEnv* env, jobject self,
                                                                     jint fd);
#else
#include "util/DtNlTypes.h"
#include "util/io/DtNlFile.h"
#include "util/io/DtNlFileIo.h"
#include "util/io/DtNlIo.h"
#endif

namespace {

// What the entry returned: no array, or an array with these bytes.
struct Outcome {
  bool hasArray = false;
  std::vector<std::uint8_t> bytes;
};

#if KPZ_FUZZ_REAL_JNI_ENTRY

// A fake JVM with the four JNI functions the entry uses.
class FakeJvm {
 public:
  explicit FakeJvm(const std::string& path) : m_path(path) {
    std::memset(&m_table, 0, sizeof m_table);
    m_table.GetStringUTFChars = &FakeJvm::getChars;
    m_table.ReleaseStringUTFChars = &FakeJvm::releaseChars;
    m_table.NewByteArray = &FakeJvm::newArray;
    m_table.SetByteArrayRegion = &FakeJvm::setRegion;
    m_env.env.functions = &m_table;
    m_env.owner = this;
  }
  ~FakeJvm() { std::free(m_chars); }
  FakeJvm(const FakeJvm&) = delete;
  FakeJvm& operator=(const FakeJvm&) = delete;

  JNIEnv* GetEnv() { return &m_env.env; }
  jstring Path() { return &m_string; }
  bool IsOurArray(jbyteArray array) const { return array == &m_array && m_made; }
  const std::vector<std::uint8_t>& ArrayBytes() const { return m_bytes; }
  // True when the characters were handed out and released exactly once.
  bool Balanced() const { return m_handedOut == 1 && m_released == 1 && m_chars == nullptr; }

 private:
  struct EnvBlock {
    JNIEnv env;  // first member: a JNIEnv* is also an Env*
    FakeJvm* owner;
  };
  static FakeJvm& of(JNIEnv* env) { return *reinterpret_cast<EnvBlock*>(env)->owner; }

  static const char* JNICALL getChars(JNIEnv* env, jstring str, jboolean* isCopy) {
    FakeJvm& jvm = of(env);
    kpzfuzz::Check(str == &jvm.m_string && jvm.m_chars == nullptr, "GetStringUTFChars call", 0);
    jvm.m_chars = static_cast<char*>(std::malloc(jvm.m_path.size() + 1));
    kpzfuzz::Check(jvm.m_chars != nullptr, "GetStringUTFChars memory", 0);
    std::memcpy(jvm.m_chars, jvm.m_path.c_str(), jvm.m_path.size() + 1);
    ++jvm.m_handedOut;
    if (isCopy != nullptr) {
      *isCopy = JNI_TRUE;
    }
    return jvm.m_chars;
  }

  static void JNICALL releaseChars(JNIEnv* env, jstring str, const char* chars) {
    FakeJvm& jvm = of(env);
    kpzfuzz::Check(str == &jvm.m_string && chars == jvm.m_chars && chars != nullptr,
                   "ReleaseStringUTFChars of characters not handed out", 0);
    std::free(jvm.m_chars);
    jvm.m_chars = nullptr;
    ++jvm.m_released;
  }

  static jbyteArray JNICALL newArray(JNIEnv* env, jsize len) {
    FakeJvm& jvm = of(env);
    kpzfuzz::Check(!jvm.m_made && len >= 0, "NewByteArray call", static_cast<int>(len));
    jvm.m_bytes.assign(static_cast<std::size_t>(len), 0);
    jvm.m_made = true;
    return &jvm.m_array;
  }

  static void JNICALL setRegion(JNIEnv* env, jbyteArray array, jsize start, jsize len,
                                const jbyte* buf) {
    FakeJvm& jvm = of(env);
    kpzfuzz::Check(array == &jvm.m_array && jvm.m_made, "SetByteArrayRegion array", 0);
    kpzfuzz::Check(start >= 0 && len >= 0 &&
                       static_cast<std::size_t>(start) <= jvm.m_bytes.size() &&
                       static_cast<std::size_t>(len) <= jvm.m_bytes.size() -
                                                            static_cast<std::size_t>(start),
                   "SetByteArrayRegion outside the array", static_cast<int>(len));
    if (len > 0) {
      std::memcpy(jvm.m_bytes.data() + start, buf, static_cast<std::size_t>(len));
    }
  }

  JNINativeInterface_ m_table;
  EnvBlock m_env;
  _jstring m_string;
  _jbyteArray m_array;
  std::string m_path;
  char* m_chars = nullptr;  // owned: the characters handed out, until released
  int m_handedOut = 0;
  int m_released = 0;
  bool m_made = false;
  std::vector<std::uint8_t> m_bytes;
};

Outcome RunEntry(const std::string& path) {
  FakeJvm jvm(path);
  jbyteArray array =
      Java_com_kavi_dtv_kpzinterface_KaviKPZInterface_getScreennailNative(jvm.GetEnv(), nullptr,
                                                                           jvm.Path());
  kpzfuzz::Check(jvm.Balanced(), "the path's characters are released exactly once", 0);
  Outcome out;
  if (array != nullptr) {
    kpzfuzz::Check(jvm.IsOurArray(array), "the entry returned an array it did not make", 0);
    out.hasArray = true;
    out.bytes = jvm.ArrayBytes();
  }
  return out;
}

// The same file through a descriptor whose offset is `offset`: the result,
// and the descriptor checked afterwards (same offset, still open).
Outcome RunFdEntry(const std::string& path, off_t offset) {
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  kpzfuzz::Check(fd >= 0, "opening the scratch file for the descriptor run", errno);
  kpzfuzz::Check(lseek(fd, offset, SEEK_SET) == offset, "setting the descriptor's offset", 0);
  FakeJvm jvm(path);
  jbyteArray array =
      Java_com_kavi_dtv_kpzinterface_KaviKPZInterface_getScreennailFromFd(jvm.GetEnv(), nullptr, fd);
  kpzfuzz::Check(lseek(fd, 0, SEEK_CUR) == offset, "the descriptor's offset moved", 0);
  kpzfuzz::Check(fcntl(fd, F_GETFD) != -1, "the descriptor was closed", 0);
  close(fd);
  Outcome out;
  if (array != nullptr) {
    kpzfuzz::Check(jvm.IsOurArray(array), "the descriptor method returned an array it did not make",
                   0);
    out.hasArray = true;
    out.bytes = jvm.ArrayBytes();
  }
  return out;
}

#else  // !KPZ_FUZZ_REAL_JNI_ENTRY

// The entry's bound: the smaller of the claimed size and what the file holds
// after the offset; 0 when the file cannot be measured.
UINT BoundedReadSize(const char* path, UINT32 offset, UINT32 size) {
  const UINT bounded = DtNlFile(path).BytesAvailable(offset, size);
  return bounded > 0x7FFFFFFFu ? 0x7FFFFFFFu : bounded;
}

Outcome RunEntry(const std::string& path) {
  Outcome out;
  DtRaw raw;
  if (raw.Initialize(path.c_str()) < 0) {
    return out;
  }
  DtRawScreennailInfo info;
  if (raw.GetScreennailInfo(&info) != DtRawOk) {
    raw.Finalize();
    return out;
  }
  raw.Finalize();

  // On the heap here; the entry keeps it on its stack (it is small).
  std::unique_ptr<DtNlFileIo> fileIo(new DtNlFileIo());
  if (fileIo->Open(path.c_str(), "r") < 0) {
    return out;
  }
  fileIo->SetUnbuffered();
  const long long seekOffset = static_cast<long long>(static_cast<INT32>(info.m_fileOffset));
  if (fileIo->Seek(seekOffset, DtNlIoSeekSet) < 0) {
    fileIo->Close();
    return out;
  }
  const UINT toRead = BoundedReadSize(path.c_str(), info.m_fileOffset, info.m_size);
  fileIo->AdviseReadOnly(seekOffset, toRead);  // as the entry: the range comes from the file
  std::vector<std::uint8_t> buffer(toRead);
  const UINT got = fileIo->ReadU8(buffer.data(), toRead);
  fileIo->Close();
  if (got != info.m_size) {
    return out;
  }
  out.hasArray = true;
  out.bytes = std::move(buffer);
  return out;
}

#endif  // KPZ_FUZZ_REAL_JNI_ENTRY

}  // namespace

#if KPZ_FUZZ_REAL_JNI_ENTRY
// The entry's Android log lines are of no interest here: dropped.
extern "C" int __android_log_print(int /*prio*/, const char* /*tag*/, const char* /*fmt*/, ...) {
  return 0;
}
#endif

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  SetUpScratch("ScreennailEntryFuzzer");
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string& path = TheScratch().file;
  if (!WriteWhole(path, data, size)) {
    std::perror("ScreennailEntryFuzzer: writing the input");
    std::abort();
  }

  const Outcome got = RunEntry(path);
#if KPZ_FUZZ_REAL_JNI_ENTRY
  {
    const Outcome viaFd = RunFdEntry(path, static_cast<off_t>(size / 2));
    kpzfuzz::Check(viaFd.hasArray == got.hasArray && viaFd.bytes == got.bytes,
                   "the descriptor gives other bytes than the path", viaFd.hasArray ? 1 : 0);
  }
#endif

  // The reference: where a separate facade says the screennail is.
  DtRaw raw;
  DtRawScreennailInfo info;
  const bool located =
      raw.Initialize(path.c_str()) == DtRawOk && raw.GetScreennailInfo(&info) == DtRawOk;
  raw.Finalize();
  if (!located) {
    kpzfuzz::Check(!got.hasArray, "an array although the screennail cannot be located", 0);
    return 0;
  }
  // Offsets of 2 GiB and more are negative for the entry's seek and fail.
  const bool seekable = info.m_fileOffset <= 0x7FFFFFFFu;
  const bool inFile = info.m_fileOffset <= size && info.m_size <= size - info.m_fileOffset;
  const bool expected = seekable && (info.m_size == 0 || inFile);
  kpzfuzz::Check(got.hasArray == expected, "the entry's result against the screennail's range",
                 got.hasArray ? 1 : 0);
  if (got.hasArray) {
    kpzfuzz::Check(got.bytes.size() == info.m_size, "array length", static_cast<int>(info.m_size));
    kpzfuzz::Check(info.m_size == 0 ||
                       std::memcmp(got.bytes.data(), data + info.m_fileOffset, info.m_size) == 0,
                   "array bytes differ from the file's", 0);
  }
  return 0;
}
