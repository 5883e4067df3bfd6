// DtNlIoTest.cpp - the channel base: status recording, state reset on Open,
// the forwarding and unsupported Opens, base offset, kind and offset cutting.
#include "util/io/DtNlIo.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "support/LogExpect.h"
#include "util/DtNlString.h"
#include "util/io/DtNlFile.h"

namespace {

// A channel that implements only the pure operations; its protected state is
// exposed so that the base class rules can be observed.
class BareIo : public DtNlIo {
 public:
  explicit BareIo(INT32 kind = KIND_MEMORY) : DtNlIo(kind) {}
  ~BareIo() override { ++destroyed; }

  using DtNlIo::Open;
  int Close() override { return 0; }
  UINT ReadU8(UINT8*, UINT) override { return 0; }
  UINT WriteU8(UINT8 const*, UINT) override { return 0; }
  int Seek(long long, DtNlIoSeekPos) override { return 0; }
  int Tell() override { return 0; }
  long long Tell64() override { return 0; }
  int IsEof() const override { return m_endFlag; }

  void CallInit() { init(); }
  void CallSetErr(DtNlErrCode code) { setErr(code); }
  void SetEndFlag(INT32 value) { m_endFlag = value; }
  static INT32 Low(long long offset) { return lowOffset(offset); }

  static int destroyed;
};

int BareIo::destroyed = 0;

// A channel that accepts paths and remembers the one it was given.
class PathIo : public BareIo {
 public:
  using DtNlIo::Open;
  int Open(const char* path, const char* mode) override {
    init();
    lastPath = path != nullptr ? path : "<null>";
    lastMode = mode != nullptr ? mode : "<null>";
    return 0;
  }
  std::string lastPath;
  std::string lastMode;
};

TEST(DtNlIo, ConstructorStartsWithCleanStateAndTheGivenKind) {
  BareIo memory(DtNlIo::KIND_MEMORY);
  BareIo file(DtNlIo::KIND_FILE);
  EXPECT_EQ(memory.GetStatus().errCode, DtNlErrNone);
  EXPECT_EQ(memory.GetStatus().sysErrNo, 0);
  EXPECT_EQ(memory.GetBaseOffset(), 0);
  EXPECT_EQ(memory.IsEof(), 0);
  EXPECT_EQ(memory.GetKind(), 0);
  EXPECT_EQ(file.GetKind(), 1);
}

TEST(DtNlIo, SetErrRecordsCodeAndCurrentErrno) {
  BareIo io;
  errno = EIO;
  io.CallSetErr(DtNlErrSeek);
  EXPECT_EQ(io.GetStatus().errCode, DtNlErrSeek);
  EXPECT_EQ(io.GetStatus().sysErrNo, EIO);
}

TEST(DtNlIo, SecondFailureChangesNeitherCodeNorErrno) {
  BareIo io;
  errno = EACCES;
  io.CallSetErr(DtNlErrOpen);
  errno = EIO;
  io.CallSetErr(DtNlErrRead);
  EXPECT_EQ(io.GetStatus().errCode, DtNlErrOpen);
  EXPECT_EQ(io.GetStatus().sysErrNo, EACCES);
}

TEST(DtNlIo, ZeroErrnoAtTheFirstFailureLeavesRoomForTheNextErrno) {
  BareIo io;
  errno = 0;
  io.CallSetErr(DtNlErrSeek);
  EXPECT_EQ(io.GetStatus().errCode, DtNlErrSeek);
  EXPECT_EQ(io.GetStatus().sysErrNo, 0);
  errno = ENOSPC;
  io.CallSetErr(DtNlErrWrite);
  EXPECT_EQ(io.GetStatus().errCode, DtNlErrSeek);  // the first code stays
  EXPECT_EQ(io.GetStatus().sysErrNo, ENOSPC);      // the errno is taken now
  errno = EIO;
  io.CallSetErr(DtNlErrRead);
  EXPECT_EQ(io.GetStatus().sysErrNo, ENOSPC);
}

TEST(DtNlIo, CapturedErrnoBlocksALaterCodeEvenWhenNoCodeWasRecorded) {
  BareIo io;
  errno = EBADF;
  io.CallSetErr(DtNlErrNone);
  EXPECT_EQ(io.GetStatus().errCode, DtNlErrNone);
  EXPECT_EQ(io.GetStatus().sysErrNo, EBADF);
  EXPECT_TRUE(io.GetStatus().IsFailure());
  io.CallSetErr(DtNlErrRead);
  EXPECT_EQ(io.GetStatus().errCode, DtNlErrNone);
  EXPECT_EQ(io.GetStatus().sysErrNo, EBADF);
}

TEST(DtNlIo, NonNegativeCodeWithoutErrnoIsReplacedByTheNextCode) {
  BareIo io;
  errno = 0;
  io.CallSetErr(DtNlErrNone);
  io.CallSetErr(DtNlErrTell);
  EXPECT_EQ(io.GetStatus().errCode, DtNlErrTell);
}

TEST(DtNlIo, InitClearsStatusEndFlagAndBaseOffset) {
  BareIo io;
  errno = EIO;
  io.CallSetErr(DtNlErrIo);
  io.SetEndFlag(1);
  io.SetBaseOffset(77);
  io.CallInit();
  EXPECT_EQ(io.GetStatus().errCode, DtNlErrNone);
  EXPECT_EQ(io.GetStatus().sysErrNo, 0);
  EXPECT_EQ(io.IsEof(), 0);
  EXPECT_EQ(io.GetBaseOffset(), 0);
}

TEST(DtNlIo, PathOpenIsNotSupportedByTheBase) {
  BareIo io;
  io.SetEndFlag(1);
  io.SetBaseOffset(9);
  errno = 0;
  std::string err = kpztest::CaptureStderr([&] { EXPECT_EQ(io.Open("/tmp/x", "rb"), -1); });
  EXPECT_EQ(err, "");
  EXPECT_EQ(io.GetStatus().errCode, DtNlErrNotSupported);
  EXPECT_EQ(io.GetStatus().sysErrNo, 0);
  EXPECT_EQ(io.IsEof(), 0);           // cleared by the open's reset
  EXPECT_EQ(io.GetBaseOffset(), 0);   // likewise
}

TEST(DtNlIo, BufferOpenIsNotSupportedByTheBase) {
  BareIo io;
  const UINT8 bytes[4] = {1, 2, 3, 4};
  errno = 0;
  EXPECT_EQ(io.Open(bytes, 4u), -1);
  EXPECT_EQ(io.GetStatus().errCode, DtNlErrNotSupported);
}

TEST(DtNlIo, UnsupportedOpenStartsFromACleanStatus) {
  BareIo io;
  errno = EIO;
  io.CallSetErr(DtNlErrIo);
  errno = 0;
  EXPECT_EQ(io.Open("p", "r"), -1);
  EXPECT_EQ(io.GetStatus().errCode, DtNlErrNotSupported);
  EXPECT_EQ(io.GetStatus().sysErrNo, 0);
}

TEST(DtNlIo, UnsupportedOpenCapturesTheCurrentErrno) {
  BareIo io;
  errno = ENOENT;
  EXPECT_EQ(io.Open("p", "r"), -1);
  EXPECT_EQ(io.GetStatus().errCode, DtNlErrNotSupported);
  EXPECT_EQ(io.GetStatus().sysErrNo, ENOENT);
}

TEST(DtNlIo, StringOpenForwardsTheTextToThePathOpen) {
  PathIo io;
  DtNlString path("/data/a.kpz");
  EXPECT_EQ(io.Open(path, "rb+"), 0);
  EXPECT_EQ(io.lastPath, "/data/a.kpz");
  EXPECT_EQ(io.lastMode, "rb+");
}

TEST(DtNlIo, FileOpenForwardsThePathToThePathOpen) {
  PathIo io;
  DtNlFile file("/data/dir", "b.kpz");
  EXPECT_EQ(io.Open(file, "r"), 0);
  EXPECT_EQ(io.lastPath, "/data/dir/b.kpz");
  EXPECT_EQ(io.lastMode, "r");
}

TEST(DtNlIo, FileOpenOnTheBaseIsNotSupported) {
  BareIo io;
  DtNlFile file("/data/c.kpz");
  errno = 0;
  EXPECT_EQ(io.Open(file, "r"), -1);
  EXPECT_EQ(io.GetStatus().errCode, DtNlErrNotSupported);
}

TEST(DtNlIo, FlushOfTheBaseSucceeds) {
  BareIo io;
  EXPECT_EQ(io.Flush(), 0);
  EXPECT_EQ(io.GetStatus().errCode, DtNlErrNone);
}

TEST(DtNlIo, BaseOffsetIsWhatWasSet) {
  BareIo io;
  io.SetBaseOffset(-12);
  EXPECT_EQ(io.GetBaseOffset(), -12);
  io.SetBaseOffset(0x7FFFFFFF);
  EXPECT_EQ(io.GetBaseOffset(), 0x7FFFFFFF);
}

TEST(DtNlIo, LowOffsetKeepsOnlyTheLow32BitsAsASignedValue) {
  struct Row {
    long long in;
    INT32 out;
  };
  const Row rows[] = {
      {0, 0},
      {5, 5},
      {-1, -1},
      {0x7FFFFFFFLL, 0x7FFFFFFF},
      {0x80000000LL, -2147483647 - 1},
      {0xFFFFFFFFLL, -1},
      {0x100000005LL, 5},                    // 2^32 + 5 wraps to 5
      {0x1FFFFFFFDLL, -3},                   // 2^33 - 3
      {-0x100000000LL, 0},                   // -2^32
      {-0x7FFFFFFFFFFFFFFFLL - 1, 0},        // the most negative offset
      {0x7FFFFFFFFFFFFFFFLL, -1},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(BareIo::Low(row.in), row.out) << row.in;
  }
}

TEST(DtNlIo, ChannelsAreDeletedThroughTheBase) {
  BareIo::destroyed = 0;
  DtNlIo* io = new BareIo();
  delete io;
  EXPECT_EQ(BareIo::destroyed, 1);
}

}  // namespace
