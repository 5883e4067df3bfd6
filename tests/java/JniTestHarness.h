// JniTestHarness.h - what the native tests of the JNI methods share:
// KpzInterfaceJniTest (getScreennailNative, by path) and KpzInterfaceFdJniTest
// (getScreennailFromFd, by descriptor). Each of those executables compiles its
// method from jni/ together with JniTestHarness.cpp and FakeJvmBase.cpp
// (tests/java/CMakeLists.txt).
//
// Provided here:
//   - the event recorder: every Android log line and every call into the fake
//     JVM, in order ("I <text>", "E <text>", "NewByteArray <n>", ...), with the
//     tag of each log line; guarded by one mutex, since calls may log from many
//     threads at once;
//   - the largest array request (operator new[]) seen since the last reset;
//   - the helpers for the expected lines and the test files;
//   - FakeJvmBase (FakeJvmBase.h), the JNI function table with the array
//     functions both methods use, which each test extends.
//
// JniTestHarness.cpp also defines the replacements that make the recording
// possible: __android_log_print (the methods' log goes to the recorder, not to
// an Android log library) and the array forms of operator new/delete (with
// malloc/free, noting the largest request: a forged size must never be
// allocated beyond what the file holds). A program may define each of them only
// once, so they live in that one source file, compiled once into each test
// executable, and nowhere else.
#ifndef KPZ_TESTS_JAVA_JNITESTHARNESS_H
#define KPZ_TESTS_JAVA_JNITESTHARNESS_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "java/FakeJvmBase.h"
#include "support/KpzFileBuilder.h"

namespace kpztest {
namespace jni {

// The recorded events and the tag of each log line, in order. Read them while
// no other thread is calling the method.
std::vector<std::string>& Events();
std::vector<std::string>& LogTags();

// Appends one event, under the recorder's lock.
void RecordEvent(const std::string& event);

// Empties the events and the tags and forgets the largest array request.
void ResetRecorders();

// The largest size asked of operator new[] since the last reset.
std::size_t LargestArrayRequest();

// Expects every recorded log line to carry the methods' tag, "KpzInterface".
void ExpectEntryTagOnly();

// The line the methods log for the screennail's location:
// "I ScreennailInfo m_fileOffset=0x<hex> m_size=<signed> m_horizon=<w> m_vertical=<h>".
std::string InfoLine(std::uint32_t offset, std::uint32_t size, unsigned width, unsigned height);

// `head` followed by `tail`.
std::vector<std::string> Then(std::vector<std::string> head, const std::vector<std::string>& tail);

// A KPZ file written to a test directory: its path, where its parts lie, its bytes.
struct Built {
  std::string path;
  KpzLayout where;
  Bytes bytes;
};

// Builds `recipe` and writes it as `name` in `dir` (a failed write is a test failure).
Built Write(const TempDir& dir, const std::string& name, const KpzSpec& recipe);

}  // namespace jni
}  // namespace kpztest

#endif  // KPZ_TESTS_JAVA_JNITESTHARNESS_H
