// JniTestHarness.cpp - the recorders and helpers of JniTestHarness.h, and the
// process-wide replacements they rest on (__android_log_print, operator
// new[]/delete[]): one definition each per test executable.
#include "java/JniTestHarness.h"

#include <android/log.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <new>

namespace {

std::atomic<std::size_t> g_largestArrayRequest{0};

std::mutex& RecorderMutex() {
  static std::mutex mutex;
  return mutex;
}

void* ArrayAlloc(std::size_t size) {
  std::size_t seen = g_largestArrayRequest.load();
  while (size > seen && !g_largestArrayRequest.compare_exchange_weak(seen, size)) {
  }
  return std::malloc(size == 0 ? 1 : size);
}

std::string Hex(std::uint32_t value) {
  char text[16];
  std::snprintf(text, sizeof text, "%x", value);
  return text;
}

}  // namespace

extern "C" int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
  char text[4096];
  va_list args;
  va_start(args, fmt);
  std::vsnprintf(text, sizeof text, fmt, args);
  va_end(args);
  const char* letter = prio == ANDROID_LOG_INFO ? "I " : prio == ANDROID_LOG_ERROR ? "E " : "? ";
  std::lock_guard<std::mutex> lock(RecorderMutex());
  kpztest::jni::Events().push_back(std::string(letter) + text);
  kpztest::jni::LogTags().push_back(tag == nullptr ? "(null)" : tag);
  return 1;
}

void* operator new[](std::size_t size) {
  void* p = ArrayAlloc(size);
  if (p == nullptr) {
    std::abort();  // the tests never run out of memory
  }
  return p;
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return ArrayAlloc(size); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { std::free(p); }

namespace kpztest {
namespace jni {

std::vector<std::string>& Events() {
  static std::vector<std::string> events;
  return events;
}

std::vector<std::string>& LogTags() {
  static std::vector<std::string> tags;
  return tags;
}

void RecordEvent(const std::string& event) {
  std::lock_guard<std::mutex> lock(RecorderMutex());
  Events().push_back(event);
}

void ResetRecorders() {
  std::lock_guard<std::mutex> lock(RecorderMutex());
  Events().clear();
  LogTags().clear();
  g_largestArrayRequest = 0;
}

std::size_t LargestArrayRequest() { return g_largestArrayRequest.load(); }

void ExpectEntryTagOnly() {
  for (const std::string& tag : LogTags()) {
    EXPECT_EQ(tag, "KpzInterface");
  }
}

std::string InfoLine(std::uint32_t offset, std::uint32_t size, unsigned width, unsigned height) {
  return "I ScreennailInfo m_fileOffset=0x" + Hex(offset) +
         " m_size=" + std::to_string(static_cast<std::int32_t>(size)) +
         " m_horizon=" + std::to_string(width) + " m_vertical=" + std::to_string(height);
}

std::vector<std::string> Then(std::vector<std::string> head, const std::vector<std::string>& tail) {
  head.insert(head.end(), tail.begin(), tail.end());
  return head;
}

Built Write(const TempDir& dir, const std::string& name, const KpzSpec& recipe) {
  Built b;
  b.bytes = BuildKpz(recipe, &b.where);
  b.path = dir.Write(name, b.bytes);
  EXPECT_FALSE(b.path.empty());
  return b;
}

}  // namespace jni
}  // namespace kpztest
