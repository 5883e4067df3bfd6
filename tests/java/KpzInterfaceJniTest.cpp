// KpzInterfaceJniTest.cpp - the JNI entry (jni/KpzInterfaceJni.cpp) driven
// natively: the entry is compiled into this executable (tests/java/CMakeLists.txt)
// and called with a fake JNI function table that records every JNI call, hands
// out heap copies of the path (so that a missing or double release shows up in
// the leak checker) and can refuse the characters or the array. Every line the
// entry logs is seen with its priority, tag and text, and the largest array
// request is recorded: the entry must never allocate what a forged size claims
// beyond the end of the file (the recorders and the fake JVM's array functions
// are shared with the descriptor method's test: JniTestHarness.h). The
// JVM-level test is KaviKPZInterfaceCheck.java.
#include <gtest/gtest.h>

#if defined(KPZ_TEST_HAVE_JNI)

#include <fcntl.h>
#include <jni.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "java/JniTestHarness.h"
#include "support/FaultInjection.h"
#include "support/KpzFileBuilder.h"
#include "support/LogExpect.h"

extern "C" JNIEXPORT jbyteArray JNICALL
Java_com_kavi_dtv_kpzinterface_KaviKPZInterface_getScreennailNative(JNIEnv* env, jobject self,
                                                                     jstring path);

namespace {

using kpztest::Bytes;
using kpztest::KpzSpec;
using kpztest::jni::Built;
using kpztest::jni::Events;
using kpztest::jni::InfoLine;
using kpztest::jni::LargestArrayRequest;
using kpztest::jni::RecordEvent;
using kpztest::jni::Then;
using kpztest::jni::Write;

const char* const kFileIoSource = "jni/util/io/DtNlFileIo.cpp";

// The fake JVM of the path entry: the shared array functions, and the two
// functions for the path's characters. It hands out heap copies of the path,
// so that a missing or double release shows up in the leak checker, and can
// refuse the characters. Events: "GetStringUTFChars", "ReleaseStringUTFChars".
class FakeJvm : public kpztest::jni::FakeJvmBase {
 public:
  FakeJvm() {
    Table().GetStringUTFChars = &FakeJvm::getStringUtfChars;
    Table().ReleaseStringUTFChars = &FakeJvm::releaseStringUtfChars;
  }
  ~FakeJvm() {
    for (char* chars : m_handedOut) {
      std::free(chars);  // only what the entry failed to release
    }
  }
  FakeJvm(const FakeJvm&) = delete;
  FakeJvm& operator=(const FakeJvm&) = delete;

  // Calls the entry on `path` (or on a null string when `path` is null).
  jbyteArray Call(const char* path) {
    m_path = path == nullptr ? std::string() : std::string(path);
    return Java_com_kavi_dtv_kpzinterface_KaviKPZInterface_getScreennailNative(
        Env(), nullptr, path == nullptr ? nullptr : &m_string);
  }

  void RefuseCharacters() { m_refuseChars = true; }
  int Releases() const { return m_releases; }
  int BadReleases() const { return m_badReleases; }
  std::size_t Unreleased() const { return m_handedOut.size(); }

 private:
  static FakeJvm& of(JNIEnv* env) { return static_cast<FakeJvm&>(Of(env)); }

  static const char* JNICALL getStringUtfChars(JNIEnv* env, jstring str, jboolean* isCopy) {
    FakeJvm& jvm = of(env);
    RecordEvent("GetStringUTFChars");
    if (str != &jvm.m_string || jvm.m_refuseChars) {
      return nullptr;
    }
    if (isCopy != nullptr) {
      *isCopy = JNI_TRUE;
    }
    char* copy = static_cast<char*>(std::malloc(jvm.m_path.size() + 1));
    std::memcpy(copy, jvm.m_path.c_str(), jvm.m_path.size() + 1);
    jvm.m_handedOut.push_back(copy);
    return copy;
  }

  static void JNICALL releaseStringUtfChars(JNIEnv* env, jstring str, const char* chars) {
    FakeJvm& jvm = of(env);
    RecordEvent("ReleaseStringUTFChars");
    ++jvm.m_releases;
    for (auto it = jvm.m_handedOut.begin(); it != jvm.m_handedOut.end(); ++it) {
      if (*it == chars && str == &jvm.m_string) {
        std::free(*it);
        jvm.m_handedOut.erase(it);
        return;
      }
    }
    ++jvm.m_badReleases;
  }

  _jstring m_string;
  std::string m_path;
  std::vector<char*> m_handedOut;
  bool m_refuseChars = false;
  int m_releases = 0;
  int m_badReleases = 0;
};

std::vector<std::string> Head(const std::string& path) {
  return {"I getScreennailNative called.", "GetStringUTFChars", "I filepath:" + path};
}

// Every test checks that the characters were released exactly once and that
// every line went to the entry's tag.
void ExpectCleanRelease(const FakeJvm& jvm, int expectedReleases = 1) {
  EXPECT_EQ(jvm.Releases(), expectedReleases);
  EXPECT_EQ(jvm.BadReleases(), 0);
  EXPECT_EQ(jvm.Unreleased(), 0u);
  kpztest::jni::ExpectEntryTagOnly();
}

// ---- success paths ------------------------------------------------------------

TEST(KpzInterfaceJni, ReturnsTheScreennailOfALittleEndianFileAndReleasesLast) {
  kpztest::TempDir dir;
  KpzSpec recipe;
  recipe.order = DtNlLittleEndian;
  recipe.screennail = kpztest::FakeJpeg(5000, 0x10);
  const Built f = Write(dir, "le.kpz", recipe);
  FakeJvm jvm;
  jbyteArray got = jvm.Call(f.path.c_str());
  ASSERT_NE(got, nullptr);
  EXPECT_EQ(jvm.BytesOf(got), recipe.screennail);
  EXPECT_EQ(Events(), Then(Head(f.path), {InfoLine(f.where.screennail, 5000, 1616, 1080),
                                          "NewByteArray 5000", "SetByteArrayRegion 0 5000",
                                          "ReleaseStringUTFChars"}));
  ExpectCleanRelease(jvm);
}

TEST(KpzInterfaceJni, ReturnsTheScreennailOfABigEndianFile) {
  kpztest::TempDir dir;
  KpzSpec recipe;
  recipe.order = DtNlBigEndian;
  recipe.screennail = kpztest::FakeJpeg(3001, 0x20);
  recipe.scnHeightWidth = std::make_pair(std::uint32_t{480}, std::uint32_t{720});
  const Built f = Write(dir, "be.kpz", recipe);
  FakeJvm jvm;
  jbyteArray got = jvm.Call(f.path.c_str());
  ASSERT_NE(got, nullptr);
  EXPECT_EQ(jvm.BytesOf(got), recipe.screennail);
  EXPECT_EQ(Events()[3], InfoLine(f.where.screennail, 3001, 720, 480));
  ExpectCleanRelease(jvm);
}

TEST(KpzInterfaceJni, M372FileIsReadThroughTheKmMakerNoteAt640By480) {
  kpztest::TempDir dir;
  KpzSpec recipe;
  recipe.m372 = true;
  recipe.screennail = kpztest::FakeJpeg(2002, 0x30);
  // IFD0's own tags point at the TIFF header: a wrong branch would return it.
  recipe.editIfd0 = [](kpztest::Ifd& ifd) {
    ifd.ReplaceRaw(kpztest::tag::kJpegOffset, kpztest::kTiffLong, 1, 0);
    ifd.ReplaceRaw(kpztest::tag::kJpegLength, kpztest::kTiffLong, 1, 8);
  };
  const Built f = Write(dir, "m372.kpz", recipe);
  FakeJvm jvm;
  jbyteArray got = jvm.Call(f.path.c_str());
  ASSERT_NE(got, nullptr);
  EXPECT_EQ(jvm.BytesOf(got), recipe.screennail);
  EXPECT_EQ(Events()[3], InfoLine(f.where.screennail, 2002, 640, 480));
  ExpectCleanRelease(jvm);
}

TEST(KpzInterfaceJni, ScreennailOfZeroBytesGivesAnEmptyArray) {
  kpztest::TempDir dir;
  KpzSpec recipe;
  recipe.screennail = Bytes();
  const Built f = Write(dir, "empty.kpz", recipe);
  FakeJvm jvm;
  jbyteArray got = jvm.Call(f.path.c_str());
  ASSERT_NE(got, nullptr);
  EXPECT_TRUE(jvm.BytesOf(got).empty());
  EXPECT_EQ(Events(), Then(Head(f.path), {InfoLine(f.where.screennail, 0, 1616, 1080),
                                          "NewByteArray 0", "SetByteArrayRegion 0 0",
                                          "ReleaseStringUTFChars"}));
  ExpectCleanRelease(jvm);
}

TEST(KpzInterfaceJni, ScreennailEndingExactlyAtTheEndOfTheFileIsReadWhole) {
  kpztest::TempDir dir;
  KpzSpec recipe;
  recipe.screennail = kpztest::FakeJpeg(777, 0x40);
  const Built f = Write(dir, "exact.kpz", recipe);
  ASSERT_EQ(f.where.screennail + 777u, f.where.total);
  FakeJvm jvm;
  jbyteArray got = jvm.Call(f.path.c_str());
  ASSERT_NE(got, nullptr);
  EXPECT_EQ(jvm.BytesOf(got), recipe.screennail);
  ExpectCleanRelease(jvm);
}

// ---- failures of the facade ---------------------------------------------------

TEST(KpzInterfaceJni, MissingFileLogsTheFacadeCodeAndReturnsNull) {
  kpztest::TempDir dir;
  const std::string path = dir.Path() + "/missing.kpz";
  FakeJvm jvm;
  jbyteArray got = nullptr;
  const std::string err = kpztest::CaptureStderr([&] { got = jvm.Call(path.c_str()); });
  EXPECT_EQ(got, nullptr);
  EXPECT_EQ(Events(), Then(Head(path), {"E raw.Initialize ERROR. ret=-302",
                                        "ReleaseStringUTFChars"}));
  EXPECT_NE(err.find(kpztest::ErrLine(kFileIoSource, "Open", 77,
                                      "fopen(filePath: " + path + ") err(2).")),
            std::string::npos)
      << err;
  ExpectCleanRelease(jvm);
}

TEST(KpzInterfaceJni, FileWithoutScreennailLocationLogsTheFacadeCodeAndReturnsNull) {
  kpztest::TempDir dir;
  KpzSpec recipe;
  recipe.ifd0ScreennailTags = false;
  const Built f = Write(dir, "nosn.kpz", recipe);
  FakeJvm jvm;
  jbyteArray got = nullptr;
  kpztest::CaptureStderr([&] { got = jvm.Call(f.path.c_str()); });
  EXPECT_EQ(got, nullptr);
  EXPECT_EQ(Events(), Then(Head(f.path), {"E raw.GetScreennailInfo ERROR. ret=-100",
                                          "ReleaseStringUTFChars"}));
  ExpectCleanRelease(jvm);
}

// ---- failures of the direct read ------------------------------------------------

TEST(KpzInterfaceJni, ScreennailPastTheEndLogsTheShortCountAndReturnsNull) {
  kpztest::TempDir dir;
  KpzSpec recipe;
  recipe.screennail = kpztest::FakeJpeg(1000, 0x50);
  recipe.screennailLengthTag = 1000 + 24;
  const Built f = Write(dir, "past.kpz", recipe);
  FakeJvm jvm;
  jbyteArray got = nullptr;
  kpztest::CaptureStderr([&] { got = jvm.Call(f.path.c_str()); });
  EXPECT_EQ(got, nullptr);
  EXPECT_EQ(Events(), Then(Head(f.path), {InfoLine(f.where.screennail, 1024, 1616, 1080),
                                          "E fileIo.ReadU8 ERROR. readSize=1000",
                                          "ReleaseStringUTFChars"}));
  ExpectCleanRelease(jvm);
}

TEST(KpzInterfaceJni, ForgedSizeOf4GiBAllocatesOnlyWhatTheFileHolds) {
  kpztest::TempDir dir;
  KpzSpec recipe;
  recipe.screennail = kpztest::FakeJpeg(3000, 0x60);
  recipe.screennailLengthTag = 0xFFFFFFFFu;
  const Built f = Write(dir, "huge.kpz", recipe);
  FakeJvm jvm;
  jbyteArray got = nullptr;
  kpztest::CaptureStderr([&] { got = jvm.Call(f.path.c_str()); });
  EXPECT_EQ(got, nullptr);
  EXPECT_EQ(Events(), Then(Head(f.path), {InfoLine(f.where.screennail, 0xFFFFFFFFu, 1616, 1080),
                                          "E fileIo.ReadU8 ERROR. readSize=3000",
                                          "ReleaseStringUTFChars"}));
  EXPECT_LE(LargestArrayRequest(), std::size_t{0x10000});  // the facade's file head
  ExpectCleanRelease(jvm);
}

TEST(KpzInterfaceJni, OffsetPastTheEndOfTheFileReadsNothingAndReturnsNull) {
  kpztest::TempDir dir;
  KpzSpec recipe;
  recipe.editIfd0 = [](kpztest::Ifd& ifd) {
    ifd.ReplaceRaw(kpztest::tag::kJpegOffset, kpztest::kTiffLong, 1, 0x7FFF0000u);
  };
  const Built f = Write(dir, "far.kpz", recipe);
  FakeJvm jvm;
  jbyteArray got = nullptr;
  kpztest::CaptureStderr([&] { got = jvm.Call(f.path.c_str()); });
  EXPECT_EQ(got, nullptr);
  EXPECT_EQ(Events(), Then(Head(f.path), {InfoLine(0x7FFF0000u, 64, 1616, 1080),
                                          "E fileIo.ReadU8 ERROR. readSize=0",
                                          "ReleaseStringUTFChars"}));
  ExpectCleanRelease(jvm);
}

TEST(KpzInterfaceJni, ZeroSizeAtAnOffsetPastTheEndStillGivesAnEmptyArray) {
  kpztest::TempDir dir;
  KpzSpec recipe;
  recipe.screennail = Bytes();
  recipe.editIfd0 = [](kpztest::Ifd& ifd) {
    ifd.ReplaceRaw(kpztest::tag::kJpegOffset, kpztest::kTiffLong, 1, 0x100000u);
  };
  const Built f = Write(dir, "zero-far.kpz", recipe);
  FakeJvm jvm;
  jbyteArray got = jvm.Call(f.path.c_str());
  ASSERT_NE(got, nullptr);
  EXPECT_TRUE(jvm.BytesOf(got).empty());
  ExpectCleanRelease(jvm);
}

TEST(KpzInterfaceJni, OffsetOf2GiBIsTakenAsNegativeAndTheSeekFails) {
  kpztest::TempDir dir;
  KpzSpec recipe;
  recipe.editIfd0 = [](kpztest::Ifd& ifd) {
    ifd.ReplaceRaw(kpztest::tag::kJpegOffset, kpztest::kTiffLong, 1, 0x80000000u);
  };
  const Built f = Write(dir, "neg.kpz", recipe);
  FakeJvm jvm;
  jbyteArray got = nullptr;
  const std::string err = kpztest::CaptureStderr([&] { got = jvm.Call(f.path.c_str()); });
  EXPECT_EQ(got, nullptr);
  EXPECT_EQ(Events(), Then(Head(f.path), {InfoLine(0x80000000u, 64, 1616, 1080),
                                          "E fileIo.Seek ERROR. ret=-1",
                                          "ReleaseStringUTFChars"}));
  EXPECT_NE(err.find(kpztest::ErrLine(kFileIoSource, "Seek", 267,
                                      "fseek err(" + std::to_string(EINVAL) + ").")),
            std::string::npos)
      << err;
  ExpectCleanRelease(jvm);
}

TEST(KpzInterfaceJni, OpenFailureOfTheDirectReadLogsAndReturnsNull) {
  kpztest::TempDir dir;
  KpzSpec recipe;
  const Built f = Write(dir, "open.kpz", recipe);
  kpztest::FaultGuard guard;
  kpztest::Arm(kpztest::Call::Fopen, EACCES, /*skip=*/1);  // the facade's open passes
  FakeJvm jvm;
  jbyteArray got = nullptr;
  int opens = 0;
  const std::string err = kpztest::CaptureStderr([&] {
    got = jvm.Call(f.path.c_str());
    opens = kpztest::CallCount(kpztest::Call::Fopen);
  });
  EXPECT_EQ(got, nullptr);
  EXPECT_EQ(Events(), Then(Head(f.path), {InfoLine(f.where.screennail, 64, 1616, 1080),
                                          "E fileIo.Open ERROR. ret=-1",
                                          "ReleaseStringUTFChars"}));
  EXPECT_NE(err.find(kpztest::ErrLine(kFileIoSource, "Open", 77,
                                      "fopen(filePath: " + f.path + ") err(13).")),
            std::string::npos)
      << err;
  EXPECT_EQ(opens, 2);  // the facade's, then the entry's
  ExpectCleanRelease(jvm);
}

TEST(KpzInterfaceJni, SeekFailureOfTheDirectReadClosesTheFileAndReturnsNull) {
  kpztest::TempDir dir;
  KpzSpec recipe;
  const Built f = Write(dir, "seek.kpz", recipe);
  kpztest::FaultGuard guard;
  kpztest::Arm(kpztest::Call::Fseek, EIO);  // the facade reads its file head without seeking
  FakeJvm jvm;
  jbyteArray got = nullptr;
  int opens = 0;
  int closes = 0;
  const std::string err = kpztest::CaptureStderr([&] {
    got = jvm.Call(f.path.c_str());
    opens = kpztest::CallCount(kpztest::Call::Fopen);
    closes = kpztest::CallCount(kpztest::Call::Fclose);
  });
  EXPECT_EQ(got, nullptr);
  EXPECT_EQ(Events(), Then(Head(f.path), {InfoLine(f.where.screennail, 64, 1616, 1080),
                                          "E fileIo.Seek ERROR. ret=-1",
                                          "ReleaseStringUTFChars"}));
  EXPECT_NE(err.find(kpztest::ErrLine(kFileIoSource, "Seek", 267, "fseek err(5).")),
            std::string::npos)
      << err;
  EXPECT_EQ(opens, 2);
  EXPECT_EQ(closes, 2);  // every file opened was closed again
  ExpectCleanRelease(jvm);
}

TEST(KpzInterfaceJni, ReadErrorOfTheDirectReadLogsTheCountAndReturnsNull) {
  kpztest::TempDir dir;
  KpzSpec recipe;
  recipe.minTotalSize = 200000;  // longer than the head: the head is one read
  const Built f = Write(dir, "read.kpz", recipe);
  kpztest::FaultGuard guard;
  kpztest::Arm(kpztest::Call::Pread, EIO, /*skip=*/1);  // the facade's head read passes
  FakeJvm jvm;
  jbyteArray got = nullptr;
  int opens = 0;
  int closes = 0;
  kpztest::CaptureStderr([&] {
    got = jvm.Call(f.path.c_str());
    opens = kpztest::CallCount(kpztest::Call::Fopen);
    closes = kpztest::CallCount(kpztest::Call::Fclose);
  });
  EXPECT_EQ(got, nullptr);
  EXPECT_EQ(Events(), Then(Head(f.path), {InfoLine(f.where.screennail, 64, 1616, 1080),
                                          "E fileIo.ReadU8 ERROR. readSize=0",
                                          "ReleaseStringUTFChars"}));
  EXPECT_EQ(opens, 2);
  EXPECT_EQ(closes, 2);  // the failed read closed the entry's file
  ExpectCleanRelease(jvm);
}

TEST(KpzInterfaceJni, FileThatCannotBeMeasuredAfterOpeningIsNotTrusted) {
  kpztest::TempDir dir;
  KpzSpec recipe;
  const Built f = Write(dir, "stat.kpz", recipe);
  kpztest::FaultGuard guard;
  {  // A dry run counts the stat64 calls; the last one is the entry's.
    FakeJvm dry;
    kpztest::CaptureStderr([&] { dry.Call(f.path.c_str()); });
  }
  const int stats = kpztest::CallCount(kpztest::Call::Stat64);
  ASSERT_GE(stats, 1);
  kpztest::ResetCounts();
  kpztest::Arm(kpztest::Call::Stat64, EIO, stats - 1);
  FakeJvm jvm;
  jbyteArray got = nullptr;
  const std::string err = kpztest::CaptureStderr([&] { got = jvm.Call(f.path.c_str()); });
  EXPECT_EQ(got, nullptr);
  EXPECT_EQ(Events(), Then(Head(f.path), {InfoLine(f.where.screennail, 64, 1616, 1080),
                                          "E fileIo.ReadU8 ERROR. readSize=0",
                                          "ReleaseStringUTFChars"}));
  EXPECT_NE(err.find("stat64 err(5)."), std::string::npos) << err;
  ExpectCleanRelease(jvm);
}

// ---- JNI refusals -----------------------------------------------------------------

TEST(KpzInterfaceJni, NullPathReturnsNullWithoutTouchingTheJvm) {
  FakeJvm jvm;
  EXPECT_EQ(jvm.Call(nullptr), nullptr);
  EXPECT_EQ(Events(), (std::vector<std::string>{"I getScreennailNative called.",
                                                "E path is null."}));
  ExpectCleanRelease(jvm, 0);
}

TEST(KpzInterfaceJni, RefusedPathCharactersReturnNullAndReleaseNothing) {
  FakeJvm jvm;
  jvm.RefuseCharacters();
  EXPECT_EQ(jvm.Call("/any.kpz"), nullptr);
  EXPECT_EQ(Events(), (std::vector<std::string>{"I getScreennailNative called.",
                                                "GetStringUTFChars",
                                                "E GetStringUTFChars ERROR."}));
  ExpectCleanRelease(jvm, 0);
}

TEST(KpzInterfaceJni, RefusedArrayReturnsNullAndFreesTheBuffer) {
  kpztest::TempDir dir;
  KpzSpec recipe;
  recipe.screennail = kpztest::FakeJpeg(4000, 0x70);
  const Built f = Write(dir, "oom.kpz", recipe);
  FakeJvm jvm;
  jvm.RefuseArrays();
  EXPECT_EQ(jvm.Call(f.path.c_str()), nullptr);
  EXPECT_EQ(Events(), Then(Head(f.path), {InfoLine(f.where.screennail, 4000, 1616, 1080),
                                          "NewByteArray 4000",
                                          "E NewByteArray ERROR. size=4000",
                                          "ReleaseStringUTFChars"}));
  ExpectCleanRelease(jvm);
}

TEST(KpzInterfaceJni, RepeatedCallsGiveTheSameBytesEachTime) {
  kpztest::TempDir dir;
  KpzSpec recipe;
  recipe.screennail = kpztest::FakeJpeg(1500, 0x71);
  const Built f = Write(dir, "again.kpz", recipe);
  FakeJvm jvm;
  for (int i = 0; i < 3; ++i) {
    jbyteArray got = jvm.Call(f.path.c_str());
    ASSERT_NE(got, nullptr);
    EXPECT_EQ(jvm.BytesOf(got), recipe.screennail);
  }
  ExpectCleanRelease(jvm, 3);
}

TEST(KpzInterfaceJni, AFileAlreadyInMemoryIsReadWithoutHints) {
  kpztest::TempDir dir;
  KpzSpec recipe;
  recipe.screennail = kpztest::FakeJpeg(300000, 0x42);
  const Built f = Write(dir, "warm.kpz", recipe);
  if (!kpztest::ReadsWithoutWaiting(f.path)) {
    GTEST_SKIP() << "no reads without waiting here: every file is read as from a cold disk";
  }
  {
    FakeJvm jvm;  // brings the preview into memory too
    ASSERT_NE(jvm.Call(f.path.c_str()), nullptr);
  }
  kpztest::FaultGuard guard;
  FakeJvm jvm;
  jbyteArray got = jvm.Call(f.path.c_str());
  ASSERT_NE(got, nullptr);
  EXPECT_EQ(jvm.BytesOf(got), recipe.screennail);
  EXPECT_EQ(kpztest::CallCount(kpztest::Call::Preadv2), 2);  // the head, then the preview
  EXPECT_EQ(kpztest::CallCount(kpztest::Call::Pread), 0);
  EXPECT_TRUE(kpztest::FadviseCalls().empty());
  ExpectCleanRelease(jvm);
}

TEST(KpzInterfaceJni, EachReadFromADiskAsksForItsOwnBytesWithoutReadahead) {
  kpztest::TempDir dir;
  KpzSpec recipe;
  recipe.screennail = kpztest::FakeJpeg(300000, 0x42);
  const Built f = Write(dir, "cold.kpz", recipe);
  kpztest::FaultGuard guard;
  kpztest::Arm(kpztest::Call::Preadv2, EAGAIN, 0, 100);  // nothing in memory, as on a cold disk
  FakeJvm jvm;
  jbyteArray got = jvm.Call(f.path.c_str());
  ASSERT_NE(got, nullptr);
  EXPECT_EQ(jvm.BytesOf(got), recipe.screennail);
  const std::vector<kpztest::FadviseCall> calls = kpztest::FadviseCalls();
  ASSERT_EQ(calls.size(), 2u);  // the facade's head, then the entry's preview
  EXPECT_EQ(calls[0].advice, POSIX_FADV_RANDOM);
  EXPECT_EQ(calls[0].offset, 0);
  EXPECT_EQ(calls[0].length, 0);
  EXPECT_EQ(calls[1].advice, POSIX_FADV_RANDOM);
  EXPECT_EQ(calls[1].offset, 0);
  EXPECT_EQ(calls[1].length, 0);
  // Each in one read: readahead off, the read itself asks for its range.
  EXPECT_EQ(kpztest::CallCount(kpztest::Call::Pread), 2);
  ExpectCleanRelease(jvm);
}

TEST(KpzInterfaceJni, RefusedReadHintsChangeNeitherTheBytesNorTheLines) {
  kpztest::TempDir dir;
  KpzSpec recipe;
  recipe.screennail = kpztest::FakeJpeg(5000, 0x24);
  const Built f = Write(dir, "refused.kpz", recipe);
  std::string plainErr;
  {
    FakeJvm jvm;
    plainErr = kpztest::CaptureStderr([&] { ASSERT_NE(jvm.Call(f.path.c_str()), nullptr); });
  }
  for (int skip = 0; skip < 2; ++skip) {  // each of the two hints refused in turn
    kpztest::FaultGuard guard;
    kpztest::Arm(kpztest::Call::Preadv2, EAGAIN, 0, 100);  // the hints are asked for
    kpztest::Arm(kpztest::Call::Fadvise, ENOSYS, skip, 1);
    FakeJvm jvm;
    jbyteArray got = nullptr;
    const std::string err = kpztest::CaptureStderr([&] { got = jvm.Call(f.path.c_str()); });
    ASSERT_NE(got, nullptr) << "skip " << skip;
    EXPECT_EQ(jvm.BytesOf(got), recipe.screennail);
    EXPECT_EQ(Events(), Then(Head(f.path), {InfoLine(f.where.screennail, 5000, 1616, 1080),
                                            "NewByteArray 5000", "SetByteArrayRegion 0 5000",
                                            "ReleaseStringUTFChars"}));
    EXPECT_EQ(err, plainErr);  // the facade's own lines, the same
    EXPECT_EQ(kpztest::CallCount(kpztest::Call::Fadvise), 2);
    ExpectCleanRelease(jvm);
  }
}

}  // namespace

#else  // !KPZ_TEST_HAVE_JNI

TEST(KpzInterfaceJni, NeedsTheJniHeadersAndTheAndroidLogLibrary) {
  GTEST_SKIP() << "this build has no JNI entry";
}

#endif  // KPZ_TEST_HAVE_JNI
