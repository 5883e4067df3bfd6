// KpzInterfaceFdJniTest.cpp - getScreennailFromFd (jni/KpzInterfaceFdJni.cpp)
// driven natively over real descriptors: the method is compiled into this
// executable (tests/java/CMakeLists.txt) and called with a fake JNI function
// table that makes and records arrays. Every line the method logs is seen with
// its priority, tag and text, and the largest array request is recorded: a
// forged size must never be allocated beyond what the file holds (the
// recorders and the fake JVM are shared with the path entry's test:
// JniTestHarness.h). The JVM-level test is KaviKPZInterfaceCheck.java.
#include <gtest/gtest.h>

#if defined(KPZ_TEST_HAVE_JNI)

#include <fcntl.h>
#include <jni.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

extern char** environ;

#include "KpzScreennailReader.h"
#include "java/JniTestHarness.h"
#include "raw/DtRaw.h"
#include "support/FaultInjection.h"
#include "support/KpzFileBuilder.h"
#include "support/LogExpect.h"
#include "util/io/DtNlFileIo.h"
#include "util/io/DtNlReadAt.h"

extern "C" JNIEXPORT jbyteArray JNICALL
Java_com_kavi_dtv_kpzinterface_KaviKPZInterface_getScreennailFromFd(JNIEnv* env, jobject self,
                                                                     jint fd);

namespace {

using kpztest::Bytes;
using kpztest::KpzLayout;
using kpztest::KpzSpec;
using kpztest::jni::Built;
using kpztest::jni::Events;
using kpztest::jni::ExpectEntryTagOnly;
using kpztest::jni::InfoLine;
using kpztest::jni::LargestArrayRequest;
using kpztest::jni::ResetRecorders;
using kpztest::jni::Then;
using kpztest::jni::Write;

// The fake JVM of the descriptor method: the shared array functions are all
// it uses.
class FakeJvm : public kpztest::jni::FakeJvmBase {
 public:
  jbyteArray Call(int fd) {
    return Java_com_kavi_dtv_kpzinterface_KaviKPZInterface_getScreennailFromFd(Env(), nullptr, fd);
  }
};

// A descriptor opened by the test, closed by it on scope exit.
class Fd {
 public:
  explicit Fd(int fd) : m_fd(fd) {}
  ~Fd() {
    if (m_fd >= 0) {
      ::close(m_fd);
    }
  }
  Fd(const Fd&) = delete;
  Fd& operator=(const Fd&) = delete;
  int Get() const { return m_fd; }

 private:
  int m_fd;
};

// A readable, seekable descriptor that reports no size: /proc/<pid>/environ
// of a child (`sleep`) whose environment is made of `bytes` cut at their zero
// bytes. The file reads as `bytes` (plus one zero byte when they do not end in
// one) while fstat says a regular file of size 0, as for descriptors whose
// size is unknown. The child is killed by its pid on destruction.
class SizelessFile {
 public:
  explicit SizelessFile(const Bytes& bytes) : m_content(bytes) {
    std::vector<std::string> strings(1);
    for (std::uint8_t b : bytes) {
      if (b == 0) {
        strings.emplace_back();
      } else {
        strings.back().push_back(static_cast<char>(b));
      }
    }
    if (strings.back().empty()) {
      strings.pop_back();  // the bytes ended in a zero byte: it ends the last string
    } else {
      m_content.push_back(0);  // the kernel ends the last string with one
    }
    std::vector<char*> envp;
    for (std::string& one : strings) {
      envp.push_back(&one[0]);
    }
    envp.push_back(nullptr);
    char sleepName[] = "sleep";
    char seconds[] = "120";
    char* argv[] = {sleepName, seconds, nullptr};
    if (posix_spawnp(&m_pid, "sleep", nullptr, nullptr, argv, envp.data()) != 0) {
      m_pid = -1;
      return;
    }
    m_path = "/proc/" + std::to_string(m_pid) + "/environ";
    // Until the child has started `sleep`, its environ is still ours.
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (std::chrono::steady_clock::now() < until) {
      if (kpztest::ReadFileBytes(m_path) == m_content) {
        m_ready = true;
        break;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
  }
  ~SizelessFile() {
    if (m_pid > 0) {
      ::kill(m_pid, SIGKILL);
      int status = 0;
      ::waitpid(m_pid, &status, 0);
    }
  }
  SizelessFile(const SizelessFile&) = delete;
  SizelessFile& operator=(const SizelessFile&) = delete;

  bool Ready() const { return m_ready; }
  const std::string& Path() const { return m_path; }
  const Bytes& Content() const { return m_content; }

 private:
  Bytes m_content;
  pid_t m_pid = -1;
  std::string m_path;
  bool m_ready = false;
};

std::vector<std::string> Head(int fd) {
  return {"I getScreennailFromFd called.", "I fd:" + std::to_string(fd)};
}

int OpenRead(const std::string& path) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  EXPECT_GE(fd, 0) << path << ": " << std::strerror(errno);
  return fd;
}

// ---- success paths ------------------------------------------------------------

TEST(KpzInterfaceFdJni, ReturnsTheScreennailOfALittleEndianFile) {
  kpztest::TempDir dir;
  KpzSpec recipe;
  recipe.order = DtNlLittleEndian;
  recipe.screennail = kpztest::FakeJpeg(5000, 0x10);
  const Built f = Write(dir, "le.kpz", recipe);
  Fd fd(OpenRead(f.path));
  FakeJvm jvm;
  jbyteArray got = jvm.Call(fd.Get());
  ASSERT_NE(got, nullptr);
  EXPECT_EQ(jvm.BytesOf(got), recipe.screennail);
  EXPECT_EQ(Events(), Then(Head(fd.Get()), {InfoLine(f.where.screennail, 5000, 1616, 1080),
                                            "NewByteArray 5000", "SetByteArrayRegion 0 5000"}));
  ExpectEntryTagOnly();
}

TEST(KpzInterfaceFdJni, ReturnsTheScreennailOfABigEndianFile) {
  kpztest::TempDir dir;
  KpzSpec recipe;
  recipe.order = DtNlBigEndian;
  recipe.screennail = kpztest::FakeJpeg(3001, 0x11);
  const Built f = Write(dir, "be.kpz", recipe);
  Fd fd(OpenRead(f.path));
  FakeJvm jvm;
  jbyteArray got = jvm.Call(fd.Get());
  ASSERT_NE(got, nullptr);
  EXPECT_EQ(jvm.BytesOf(got), recipe.screennail);
  EXPECT_EQ(Events(), Then(Head(fd.Get()), {InfoLine(f.where.screennail, 3001, 1616, 1080),
                                            "NewByteArray 3001", "SetByteArrayRegion 0 3001"}));
}

TEST(KpzInterfaceFdJni, FindsTheM372ScreennailThroughTheKmMakerNote) {
  kpztest::TempDir dir;
  KpzSpec recipe;
  recipe.m372 = true;
  recipe.screennail = kpztest::FakeJpeg(2222, 0x12);
  recipe.editIfd0 = [](kpztest::Ifd& ifd) {  // a decoy a wrong branch would return
    ifd.ReplaceRaw(kpztest::tag::kJpegOffset, kpztest::kTiffLong, 1, 0);
    ifd.ReplaceRaw(kpztest::tag::kJpegLength, kpztest::kTiffLong, 1, 8);
  };
  const Built f = Write(dir, "m372.kpz", recipe);
  Fd fd(OpenRead(f.path));
  FakeJvm jvm;
  jbyteArray got = jvm.Call(fd.Get());
  ASSERT_NE(got, nullptr);
  EXPECT_EQ(jvm.BytesOf(got), recipe.screennail);
  EXPECT_EQ(Events(), Then(Head(fd.Get()), {InfoLine(f.where.screennail, 2222, 640, 480),
                                            "NewByteArray 2222", "SetByteArrayRegion 0 2222"}));
}

TEST(KpzInterfaceFdJni, LeavesTheDescriptorOpenAndItsOffsetWhereItWas) {
  kpztest::TempDir dir;
  KpzSpec recipe;
  recipe.screennail = kpztest::FakeJpeg(4000, 0x13);
  const Built f = Write(dir, "offset.kpz", recipe);
  Fd fd(OpenRead(f.path));
  ASSERT_EQ(::lseek(fd.Get(), 123, SEEK_SET), 123);
  FakeJvm jvm;
  for (int i = 0; i < 2; ++i) {
    jbyteArray got = jvm.Call(fd.Get());
    ASSERT_NE(got, nullptr);
    EXPECT_EQ(jvm.BytesOf(got), recipe.screennail);
  }
  EXPECT_EQ(::lseek(fd.Get(), 0, SEEK_CUR), 123);
  EXPECT_NE(::fcntl(fd.Get(), F_GETFD), -1) << "the descriptor was closed";
  std::uint8_t next[4] = {};
  ASSERT_EQ(::read(fd.Get(), next, sizeof next), 4);  // the caller reads on from 123
  EXPECT_EQ(Bytes(next, next + 4), Bytes(f.bytes.begin() + 123, f.bytes.begin() + 127));
}

TEST(KpzInterfaceFdJni, ReadsAPreviewBeyondTheHeadWithOneRead) {
  kpztest::TempDir dir;
  KpzSpec recipe;
  recipe.screennail = kpztest::FakeJpeg(300000, 0x14);
  const Built f = Write(dir, "big.kpz", recipe);
  ASSERT_GT(f.bytes.size(), 0x10000u);
  Fd fd(OpenRead(f.path));
  kpztest::FaultGuard guard;
  FakeJvm jvm;
  jbyteArray got = jvm.Call(fd.Get());
  ASSERT_NE(got, nullptr);
  EXPECT_EQ(jvm.BytesOf(got), recipe.screennail);
  EXPECT_EQ(kpztest::CallCount(kpztest::Call::Pread), 2);  // the 64 KiB head, then the preview
  EXPECT_EQ(kpztest::CallCount(kpztest::Call::Fopen), 0);  // nothing is opened by path
}

TEST(KpzInterfaceFdJni, AScreennailOfNoBytesGivesAnEmptyArray) {
  kpztest::TempDir dir;
  KpzSpec recipe;
  recipe.screennail = Bytes();
  const Built f = Write(dir, "empty-sn.kpz", recipe);
  Fd fd(OpenRead(f.path));
  FakeJvm jvm;
  jbyteArray got = jvm.Call(fd.Get());
  ASSERT_NE(got, nullptr);
  EXPECT_TRUE(jvm.BytesOf(got).empty());
  EXPECT_EQ(Events(), Then(Head(fd.Get()), {InfoLine(f.where.screennail, 0, 1616, 1080),
                                            "NewByteArray 0", "SetByteArrayRegion 0 0"}));
}

TEST(KpzInterfaceFdJni, InterruptedReadsAreRepeated) {
  kpztest::TempDir dir;
  KpzSpec recipe;
  recipe.screennail = kpztest::FakeJpeg(100000, 0x15);
  const Built f = Write(dir, "eintr.kpz", recipe);
  Fd fd(OpenRead(f.path));
  kpztest::FaultGuard guard;
  kpztest::Arm(kpztest::Call::Pread, EINTR, 0, 1);  // the head
  FakeJvm jvm;
  jbyteArray got = jvm.Call(fd.Get());
  ASSERT_NE(got, nullptr);
  EXPECT_EQ(jvm.BytesOf(got), recipe.screennail);
  kpztest::Arm(kpztest::Call::Pread, EINTR, 1, 2);  // the preview, twice
  got = jvm.Call(fd.Get());
  ASSERT_NE(got, nullptr);
  EXPECT_EQ(jvm.BytesOf(got), recipe.screennail);
}

// Eight threads, each with its own fake JVM: four with descriptors of their
// own, four sharing one descriptor of a fifth file (no offset is shared, so
// they may). Every call gives the right bytes; no offset moves.
TEST(KpzInterfaceFdJni, ConcurrentCallsOnSeparateAndSharedDescriptorsAreCorrect) {
  kpztest::TempDir dir;
  const int files = 5;
  std::vector<Built> built;
  std::vector<Bytes> expected;
  for (int i = 0; i < files; ++i) {
    KpzSpec recipe;
    recipe.order = (i % 2 == 0) ? DtNlLittleEndian : DtNlBigEndian;
    recipe.screennail = kpztest::FakeJpeg(20000 + static_cast<std::size_t>(i) * 7001,
                                          static_cast<std::uint8_t>(0x30 + i));
    built.push_back(Write(dir, "t" + std::to_string(i) + ".kpz", recipe));
    expected.push_back(recipe.screennail);
  }
  std::vector<std::unique_ptr<Fd>> fds;
  for (int i = 0; i < files; ++i) {
    fds.push_back(std::make_unique<Fd>(OpenRead(built[static_cast<std::size_t>(i)].path)));
    ASSERT_EQ(::lseek(fds.back()->Get(), 9 + i, SEEK_SET), 9 + i);
  }
  const int threads = 8;
  const int calls = 40;
  std::atomic<int> good{0};
  std::vector<std::thread> workers;
  kpztest::CaptureStderr([&] {
    for (int t = 0; t < threads; ++t) {
      workers.emplace_back([&, t] {
        const std::size_t which = static_cast<std::size_t>(t < 4 ? t : 4);
        FakeJvm jvm;
        for (int i = 0; i < calls; ++i) {
          jbyteArray got = jvm.Call(fds[which]->Get());
          if (got != nullptr && jvm.BytesOf(got) == expected[which]) {
            ++good;
          }
        }
      });
    }
    for (std::thread& w : workers) {
      w.join();
    }
  });
  EXPECT_EQ(good.load(), threads * calls);
  for (int i = 0; i < files; ++i) {
    EXPECT_EQ(::lseek(fds[static_cast<std::size_t>(i)]->Get(), 0, SEEK_CUR), 9 + i);
  }
}

// A descriptor without a size (fstat: 0 bytes): the preview's buffer grows by
// what the reads really return, through several steps, to the right bytes.
TEST(KpzInterfaceFdJni, DescriptorWithoutASizeIsReadByWhatItHolds) {
  KpzSpec recipe;
  recipe.screennail = kpztest::FakeJpeg(150000, 0x1B);
  KpzLayout where;
  const Bytes bytes = kpztest::BuildKpz(recipe, &where);
  SizelessFile file(bytes);
  ASSERT_TRUE(file.Ready()) << "no child with the file as its environment";
  Fd fd(OpenRead(file.Path()));
  struct stat st;
  ASSERT_EQ(::fstat(fd.Get(), &st), 0);
  ASSERT_TRUE(S_ISREG(st.st_mode));
  ASSERT_EQ(st.st_size, 0);  // what makes it a descriptor without a size
  FakeJvm jvm;
  jbyteArray got = nullptr;
  kpztest::CaptureStderr([&] { got = jvm.Call(fd.Get()); });
  ASSERT_NE(got, nullptr);
  EXPECT_EQ(jvm.BytesOf(got), recipe.screennail);
  EXPECT_EQ(Events(), Then(Head(fd.Get()), {InfoLine(where.screennail, 150000, 1616, 1080),
                                            "NewByteArray 150000", "SetByteArrayRegion 0 150000"}));
  EXPECT_LE(LargestArrayRequest(), std::size_t{150000});
}

// The same with a forged length: null, and never more allocated than twice
// what the descriptor holds after the offset.
TEST(KpzInterfaceFdJni, DescriptorWithoutASizeAllocatesOnlyByWhatItHolds) {
  KpzSpec recipe;
  recipe.screennail = kpztest::FakeJpeg(90000, 0x1C);
  recipe.screennailLengthTag = 0x7FFFFFF0u;
  KpzLayout where;
  const Bytes bytes = kpztest::BuildKpz(recipe, &where);
  SizelessFile file(bytes);
  ASSERT_TRUE(file.Ready()) << "no child with the file as its environment";
  const std::size_t there = file.Content().size() - where.screennail;
  Fd fd(OpenRead(file.Path()));
  FakeJvm jvm;
  jbyteArray got = nullptr;
  kpztest::CaptureStderr([&] { got = jvm.Call(fd.Get()); });
  EXPECT_EQ(got, nullptr);
  EXPECT_EQ(Events(), Then(Head(fd.Get()), {InfoLine(where.screennail, 0x7FFFFFF0u, 1616, 1080),
                                            "E pread ERROR. readSize=" + std::to_string(there) +
                                                " errno=0"}));
  EXPECT_LE(LargestArrayRequest(), 2 * there);
}

// ---- the descriptor's own failures ----------------------------------------------

TEST(KpzInterfaceFdJni, NegativeDescriptorGivesNull) {
  FakeJvm jvm;
  EXPECT_EQ(jvm.Call(-1), nullptr);
  EXPECT_EQ(Events(), Then(Head(-1), {"E fd is negative. fd=-1"}));
  EXPECT_EQ(jvm.Call(-77), nullptr);
  EXPECT_EQ(Events().back(), "E fd is negative. fd=-77");
  ExpectEntryTagOnly();
}

TEST(KpzInterfaceFdJni, ClosedDescriptorGivesNull) {
  kpztest::TempDir dir;
  const Built f = Write(dir, "closed.kpz", KpzSpec());
  const int fd = OpenRead(f.path);
  ASSERT_EQ(::close(fd), 0);
  FakeJvm jvm;
  EXPECT_EQ(jvm.Call(fd), nullptr);
  EXPECT_EQ(Events(), Then(Head(fd), {"E fd is not open. fd=" + std::to_string(fd)}));
}

TEST(KpzInterfaceFdJni, PipeGivesNullAndLeavesItsBytesUnread) {
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  Fd readEnd(ends[0]);
  Fd writeEnd(ends[1]);
  const Bytes sent = kpztest::BuildKpz(KpzSpec());
  const std::size_t some = 512;  // fits the pipe's buffer
  ASSERT_EQ(::write(writeEnd.Get(), sent.data(), some), static_cast<ssize_t>(some));
  FakeJvm jvm;
  EXPECT_EQ(jvm.Call(readEnd.Get()), nullptr);
  EXPECT_EQ(Events(), Then(Head(readEnd.Get()),
                           {"E fd is not seekable. fd=" + std::to_string(readEnd.Get())}));
  std::vector<std::uint8_t> back(some);
  ASSERT_EQ(::read(readEnd.Get(), back.data(), some), static_cast<ssize_t>(some));
  EXPECT_EQ(back, Bytes(sent.begin(), sent.begin() + static_cast<std::ptrdiff_t>(some)));
}

TEST(KpzInterfaceFdJni, DirectoryGivesNullWithTheReadError) {
  kpztest::TempDir dir;
  Fd fd(::open(dir.Path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  ASSERT_GE(fd.Get(), 0);
  FakeJvm jvm;
  EXPECT_EQ(jvm.Call(fd.Get()), nullptr);
  EXPECT_EQ(Events(), Then(Head(fd.Get()), {"E pread ERROR. readSize=0 errno=" +
                                            std::to_string(EISDIR)}));
}

TEST(KpzInterfaceFdJni, WriteOnlyDescriptorGivesNullWithTheReadError) {
  kpztest::TempDir dir;
  const Built f = Write(dir, "wronly.kpz", KpzSpec());
  Fd fd(::open(f.path.c_str(), O_WRONLY | O_CLOEXEC));
  ASSERT_GE(fd.Get(), 0);
  FakeJvm jvm;
  EXPECT_EQ(jvm.Call(fd.Get()), nullptr);
  EXPECT_EQ(Events(), Then(Head(fd.Get()), {"E pread ERROR. readSize=0 errno=" +
                                            std::to_string(EBADF)}));
}

TEST(KpzInterfaceFdJni, StatusFailureGivesNullWithItsErrno) {
  kpztest::TempDir dir;
  const Built f = Write(dir, "fstat.kpz", KpzSpec());
  Fd fd(OpenRead(f.path));
  kpztest::FaultGuard guard;
  kpztest::Arm(kpztest::Call::Fstat, EIO);
  FakeJvm jvm;
  EXPECT_EQ(jvm.Call(fd.Get()), nullptr);
  EXPECT_EQ(Events(), Then(Head(fd.Get()), {"E fstat ERROR. fd=" + std::to_string(fd.Get()) +
                                            " errno=5"}));
}

TEST(KpzInterfaceFdJni, HeadReadErrorGivesNullWithItsErrno) {
  kpztest::TempDir dir;
  const Built f = Write(dir, "headerr.kpz", KpzSpec());
  Fd fd(OpenRead(f.path));
  kpztest::FaultGuard guard;
  kpztest::Arm(kpztest::Call::Pread, EIO);
  FakeJvm jvm;
  EXPECT_EQ(jvm.Call(fd.Get()), nullptr);
  EXPECT_EQ(Events(), Then(Head(fd.Get()), {"E pread ERROR. readSize=0 errno=5"}));
}

TEST(KpzInterfaceFdJni, PreviewReadErrorGivesNullWithItsErrno) {
  kpztest::TempDir dir;
  KpzSpec recipe;
  recipe.screennail = kpztest::FakeJpeg(100000, 0x16);
  const Built f = Write(dir, "preverr.kpz", recipe);
  Fd fd(OpenRead(f.path));
  kpztest::FaultGuard guard;
  kpztest::Arm(kpztest::Call::Pread, EIO, /*skip=*/1);  // the head (64 KiB in one read) passes
  FakeJvm jvm;
  EXPECT_EQ(jvm.Call(fd.Get()), nullptr);
  EXPECT_EQ(Events(), Then(Head(fd.Get()), {InfoLine(f.where.screennail, 100000, 1616, 1080),
                                            "E pread ERROR. readSize=0 errno=5"}));
}

// ---- the file's failures, as the path entry meets them -----------------------------

// The facade sees the 64 KiB head with zeros after the end of the file, as
// through the path: an empty file is not TIFF (-400), as DtRaw::Initialize says.
TEST(KpzInterfaceFdJni, EmptyFileIsNotTiffAsThroughItsPath) {
  kpztest::TempDir dir;
  const std::string path = dir.Write("empty.kpz", Bytes());
  {
    DtRaw raw;
    kpztest::CaptureStderr([&] { EXPECT_EQ(raw.Initialize(path.c_str()), -400); });
  }
  Fd fd(OpenRead(path));
  FakeJvm jvm;
  kpztest::CaptureStderr([&] { EXPECT_EQ(jvm.Call(fd.Get()), nullptr); });
  EXPECT_EQ(Events(), Then(Head(fd.Get()), {"E raw.InitializeBuf ERROR. ret=-400"}));
}

// IFD1 pointed at past the end of a short file, inside the first 64 KiB: the
// path entry's parse reads zeros there (an empty directory) and goes on; so
// must the descriptor's.
TEST(KpzInterfaceFdJni, DirectoryPastTheEndOfAShortFileReadsAsZerosAsThroughItsPath) {
  kpztest::TempDir dir;
  KpzSpec recipe;
  recipe.screennail = kpztest::FakeJpeg(700, 0x1A);
  recipe.hasIfd1 = false;
  KpzLayout first;
  kpztest::BuildKpz(recipe, &first);
  recipe.ifd1Pointer = first.total + 256;
  const Built f = Write(dir, "ifd1-past.kpz", recipe);
  ASSERT_LT(f.bytes.size() + 256, std::size_t{0x10000});
  {
    DtRaw raw;
    kpztest::CaptureStderr([&] { EXPECT_EQ(raw.Initialize(f.path.c_str()), 0); });
  }
  Fd fd(OpenRead(f.path));
  FakeJvm jvm;
  jbyteArray got = nullptr;
  kpztest::CaptureStderr([&] { got = jvm.Call(fd.Get()); });
  ASSERT_NE(got, nullptr);
  EXPECT_EQ(jvm.BytesOf(got), recipe.screennail);
}

TEST(KpzInterfaceFdJni, NoScreennailLocationGivesNull) {
  kpztest::TempDir dir;
  KpzSpec recipe;
  recipe.ifd0ScreennailTags = false;
  const Built f = Write(dir, "nosn.kpz", recipe);
  Fd fd(OpenRead(f.path));
  FakeJvm jvm;
  kpztest::CaptureStderr([&] { EXPECT_EQ(jvm.Call(fd.Get()), nullptr); });
  EXPECT_EQ(Events(), Then(Head(fd.Get()), {"E raw.GetScreennailInfo ERROR. ret=-100"}));
}

TEST(KpzInterfaceFdJni, ScreennailPastTheEndGivesNullAndAllocatesOnlyWhatIsThere) {
  kpztest::TempDir dir;
  KpzSpec recipe;
  recipe.screennail = kpztest::FakeJpeg(5000, 0x17);
  recipe.screennailLengthTag = 5000 + 4096;
  const Built f = Write(dir, "past.kpz", recipe);
  const std::uint32_t there = f.where.total - f.where.screennail;
  Fd fd(OpenRead(f.path));
  FakeJvm jvm;
  EXPECT_EQ(jvm.Call(fd.Get()), nullptr);
  EXPECT_EQ(Events(), Then(Head(fd.Get()), {InfoLine(f.where.screennail, 9096, 1616, 1080),
                                            "E pread ERROR. readSize=" + std::to_string(there) +
                                                " errno=0"}));
  EXPECT_LE(LargestArrayRequest(), std::size_t{0x10000});  // the head is the largest
}

TEST(KpzInterfaceFdJni, ForgedLengthOf4GiBAllocatesOnlyWhatIsThere) {
  kpztest::TempDir dir;
  KpzSpec recipe;
  recipe.screennail = kpztest::FakeJpeg(200000, 0x18);
  recipe.screennailLengthTag = 0xFFFFFFFFu;
  const Built f = Write(dir, "huge.kpz", recipe);
  const std::uint32_t there = f.where.total - f.where.screennail;
  Fd fd(OpenRead(f.path));
  FakeJvm jvm;
  EXPECT_EQ(jvm.Call(fd.Get()), nullptr);
  EXPECT_EQ(Events(), Then(Head(fd.Get()), {InfoLine(f.where.screennail, 0xFFFFFFFFu, 1616, 1080),
                                            "E pread ERROR. readSize=" + std::to_string(there) +
                                                " errno=0"}));
  EXPECT_EQ(LargestArrayRequest(), std::size_t{there});
}

TEST(KpzInterfaceFdJni, OffsetOf2GiBOrMoreIsRefusedAsThePathEntryRefusesIt) {
  kpztest::TempDir dir;
  KpzSpec recipe;
  recipe.editIfd0 = [](kpztest::Ifd& ifd) {
    ifd.ReplaceRaw(kpztest::tag::kJpegOffset, kpztest::kTiffLong, 1, 0x80000000u);
  };
  const Built f = Write(dir, "far.kpz", recipe);
  Fd fd(OpenRead(f.path));
  kpztest::FaultGuard guard;
  FakeJvm jvm;
  EXPECT_EQ(jvm.Call(fd.Get()), nullptr);
  EXPECT_EQ(Events(), Then(Head(fd.Get()), {InfoLine(0x80000000u, 64, 1616, 1080),
                                            "E m_fileOffset out of range. m_fileOffset=0x80000000"}));
  EXPECT_EQ(kpztest::CallCount(kpztest::Call::Pread), 2);  // the head's reads only
}

TEST(KpzInterfaceFdJni, RefusedArrayGivesNull) {
  kpztest::TempDir dir;
  KpzSpec recipe;
  recipe.screennail = kpztest::FakeJpeg(4000, 0x19);
  const Built f = Write(dir, "oom.kpz", recipe);
  Fd fd(OpenRead(f.path));
  FakeJvm jvm;
  jvm.RefuseArrays();
  EXPECT_EQ(jvm.Call(fd.Get()), nullptr);
  EXPECT_EQ(Events(), Then(Head(fd.Get()), {InfoLine(f.where.screennail, 4000, 1616, 1080),
                                            "NewByteArray 4000", "E NewByteArray ERROR. size=4000"}));
}

// ---- one reader for both entries ----------------------------------------------------

// What one of KpzScreennailReader's readers made of a file: its bytes (or
// none) and its log lines.
struct ReaderRun {
  bool read = false;
  Bytes bytes;
  std::vector<std::string> lines;
};

ReaderRun RunRead(const std::string& path) {
  ResetRecorders();
  ReaderRun run;
  kpztest::CaptureStderr([&] {
    DtRaw raw;
    DtNlFileIo fileIo;
    UINT size = 0;
    std::unique_ptr<UINT8[]> got = KpzScreennailReader::Read(path.c_str(), raw, fileIo, &size);
    run.read = got != nullptr;
    if (got) {
      run.bytes.assign(got.get(), got.get() + size);
    }
  });
  run.lines = Events();
  return run;
}

ReaderRun RunReadFd(int fd) {
  ResetRecorders();
  ReaderRun run;
  DtNlFdReadAt file;
  EXPECT_EQ(file.Adopt(fd, false), 0);
  kpztest::CaptureStderr([&] {
    UINT size = 0;
    std::unique_ptr<UINT8[]> got = KpzScreennailReader::ReadFd(file, &size);
    run.read = got != nullptr;
    if (got) {
      run.bytes.assign(got.get(), got.get() + size);
    }
  });
  run.lines = Events();
  return run;
}

// The path and the descriptor readers share the step that asks the facade where
// the screennail lies: over one file they give the same bytes (or none) and the
// same lines of that step, the initialisation's own name aside; only the
// reading of the picture has words of its own (fileIo.* against pread).
TEST(KpzInterfaceFdJni, ThePathAndTheDescriptorReaderLocateAlike) {
  struct Case {
    const char* name;
    KpzSpec recipe;
    std::vector<std::string> locate;  // the shared step's failure line; empty: it found the picture
  };
  kpztest::TempDir dir;
  std::vector<Case> cases;
  {
    Case c{"le.kpz", {}, {}};
    c.recipe.screennail = kpztest::FakeJpeg(5000, 0x20);
    cases.push_back(c);
    Case be{"be.kpz", {}, {}};
    be.recipe.order = DtNlBigEndian;
    be.recipe.screennail = kpztest::FakeJpeg(3001, 0x21);
    cases.push_back(be);
    Case empty{"empty-sn.kpz", {}, {}};
    empty.recipe.screennail = Bytes();
    cases.push_back(empty);
    Case none{"nosn.kpz", {}, {"E raw.GetScreennailInfo ERROR. ret=-100"}};
    none.recipe.ifd0ScreennailTags = false;
    cases.push_back(none);
    Case past{"past.kpz", {}, {}};
    past.recipe.screennail = kpztest::FakeJpeg(5000, 0x22);
    past.recipe.screennailLengthTag = 5000 + 4096;
    cases.push_back(past);
  }
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const Built f = Write(dir, c.name, c.recipe);
    const ReaderRun byPath = RunRead(f.path);
    Fd fd(OpenRead(f.path));
    const ReaderRun byFd = RunReadFd(fd.Get());
    EXPECT_EQ(byPath.read, byFd.read);
    EXPECT_EQ(byPath.bytes, byFd.bytes);
    ASSERT_FALSE(byPath.lines.empty());
    ASSERT_FALSE(byFd.lines.empty());
    // The first line is the shared step's, here always: each file initializes.
    const std::uint32_t claimed = c.recipe.screennailLengthTag.value_or(
        static_cast<std::uint32_t>(c.recipe.screennail.size()));
    const std::string first =
        c.locate.empty() ? InfoLine(f.where.screennail, claimed, 1616, 1080) : c.locate.front();
    EXPECT_EQ(byPath.lines.front(), first);
    EXPECT_EQ(byFd.lines.front(), first);
    if (byPath.read) {
      EXPECT_EQ(byPath.lines, std::vector<std::string>{first});
      EXPECT_EQ(byFd.lines, std::vector<std::string>{first});
      EXPECT_EQ(byFd.bytes, c.recipe.screennail);
    }
  }
  // A file that is not TIFF: the same code from either initialisation.
  const std::string empty = dir.Write("empty.kpz", Bytes());
  const ReaderRun byPath = RunRead(empty);
  Fd fd(OpenRead(empty));
  const ReaderRun byFd = RunReadFd(fd.Get());
  EXPECT_FALSE(byPath.read);
  EXPECT_FALSE(byFd.read);
  EXPECT_EQ(byPath.lines, std::vector<std::string>{"E raw.Initialize ERROR. ret=-400"});
  EXPECT_EQ(byFd.lines, std::vector<std::string>{"E raw.InitializeBuf ERROR. ret=-400"});
}

}  // namespace

#else  // !KPZ_TEST_HAVE_JNI

TEST(KpzInterfaceFdJni, NeedsTheJniHeadersAndTheAndroidLogLibrary) {
  GTEST_SKIP() << "this build has no JNI entry";
}

#endif  // KPZ_TEST_HAVE_JNI
