// FakeJvmBase.cpp - the array functions of the fake JVM the JNI tests share.
#include "java/FakeJvmBase.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "java/JniTestHarness.h"

namespace kpztest {
namespace jni {

FakeJvmBase::FakeJvmBase() {
  std::memset(&m_table, 0, sizeof m_table);
  m_table.NewByteArray = &FakeJvmBase::newByteArray;
  m_table.SetByteArrayRegion = &FakeJvmBase::setByteArrayRegion;
  m_env.env.functions = &m_table;
  m_env.owner = this;
  ResetRecorders();
}

Bytes FakeJvmBase::BytesOf(jbyteArray array) const {
  for (const auto& a : m_arrays) {
    if (&a->handle == array) {
      return a->bytes;
    }
  }
  ADD_FAILURE() << "not an array of this fake JVM";
  return Bytes();
}

jbyteArray JNICALL FakeJvmBase::newByteArray(JNIEnv* env, jsize len) {
  FakeJvmBase& jvm = Of(env);
  RecordEvent("NewByteArray " + std::to_string(len));
  if (jvm.m_refuseArrays || len < 0) {
    return nullptr;
  }
  jvm.m_arrays.push_back(std::make_unique<Array>());
  jvm.m_arrays.back()->bytes.assign(static_cast<std::size_t>(len), 0);
  return &jvm.m_arrays.back()->handle;
}

void JNICALL FakeJvmBase::setByteArrayRegion(JNIEnv* env, jbyteArray array, jsize start, jsize len,
                                             const jbyte* buf) {
  FakeJvmBase& jvm = Of(env);
  RecordEvent("SetByteArrayRegion " + std::to_string(start) + " " + std::to_string(len));
  for (auto& a : jvm.m_arrays) {
    if (&a->handle != array) {
      continue;
    }
    const auto first = static_cast<std::size_t>(start);
    const auto count = static_cast<std::size_t>(len);
    ASSERT_LE(first, a->bytes.size());
    ASSERT_LE(count, a->bytes.size() - first);
    if (count > 0) {
      std::memcpy(a->bytes.data() + first, buf, count);
    }
    return;
  }
  ADD_FAILURE() << "SetByteArrayRegion on an unknown array";
}

}  // namespace jni
}  // namespace kpztest
