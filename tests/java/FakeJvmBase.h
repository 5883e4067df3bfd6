// FakeJvmBase.h - the part of a fake JVM both JNI methods need: a JNI function
// table whose NewByteArray and SetByteArrayRegion make real arrays (kept until
// the object goes) and record each call in the harness's events
// (JniTestHarness.h), and can be told to refuse arrays. Every other entry of
// the table is null. A test derives its own fake from it, adds the table
// entries its method needs and the call of that method:
//
//   class FakeJvm : public kpztest::jni::FakeJvmBase {
//    public:
//     jbyteArray Call(int fd) { return Java_..._getScreennailFromFd(Env(), nullptr, fd); }
//   };
//
// Constructing one resets the harness's recorders.
#ifndef KPZ_TESTS_JAVA_FAKEJVMBASE_H
#define KPZ_TESTS_JAVA_FAKEJVMBASE_H

#include <jni.h>

#include <memory>
#include <vector>

#include "support/KpzFileBuilder.h"

namespace kpztest {
namespace jni {

class FakeJvmBase {
 public:
  FakeJvmBase(const FakeJvmBase&) = delete;
  FakeJvmBase& operator=(const FakeJvmBase&) = delete;

  // The bytes of an array the method returned (a test failure and no bytes
  // for an array this fake did not make).
  Bytes BytesOf(jbyteArray array) const;

  // From now on NewByteArray returns null, as a JVM out of memory does.
  void RefuseArrays() { m_refuseArrays = true; }

 protected:
  FakeJvmBase();
  ~FakeJvmBase() = default;

  // The environment to hand to the method; borrowed from this object.
  JNIEnv* Env() { return &m_env.env; }
  // The function table behind Env(), for the entries a derived fake adds.
  JNINativeInterface_& Table() { return m_table; }
  // The fake an environment from Env() belongs to.
  static FakeJvmBase& Of(JNIEnv* env) { return *reinterpret_cast<EnvHolder*>(env)->owner; }

 private:
  struct Array {
    _jbyteArray handle;
    Bytes bytes;
  };
  struct EnvHolder {
    JNIEnv env;  // first member: a JNIEnv* is also an EnvHolder*
    FakeJvmBase* owner;
  };

  static jbyteArray JNICALL newByteArray(JNIEnv* env, jsize len);
  static void JNICALL setByteArrayRegion(JNIEnv* env, jbyteArray array, jsize start, jsize len,
                                         const jbyte* buf);

  JNINativeInterface_ m_table;
  EnvHolder m_env;
  std::vector<std::unique_ptr<Array>> m_arrays;
  bool m_refuseArrays = false;
};

}  // namespace jni
}  // namespace kpztest

#endif  // KPZ_TESTS_JAVA_FAKEJVMBASE_H
