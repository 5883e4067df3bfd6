// DtNlFileIoTest.cpp - the file channel: open, read (including the retry
// through the bounce buffer), write, seek, tell, flush, sync, end test and
// close, with every failure path driven through the fault seam and every log
// line compared whole.
#include "util/io/DtNlFileIo.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "support/FaultInjection.h"
#include "support/LogExpect.h"
#include "util/DtNlString.h"
#include "util/io/DtNlFile.h"

namespace {

using kpztest::Call;

const char* const kSrc = "jni/util/io/DtNlFileIo.cpp";

std::string Err(const char* function, int line, const std::string& message) {
  return kpztest::ErrLine(kSrc, function, line, message);
}

std::string Warn(const char* function, int line) {
  return kpztest::WarnLine(kSrc, function, line, "handle is null");
}

std::string ErrnoText(const char* prefix, int err) {
  return std::string(prefix) + "(" + std::to_string(err) + ").";
}

// Runs `body` with standard error captured. Faults are disarmed before the
// capture ends, since the capture itself reads a file through stdio.
template <typename F>
std::string Captured(F body) {
  return kpztest::CaptureStderr([&] {
    body();
    kpztest::DisarmAll();
  });
}

std::vector<UINT8> Pattern(std::size_t size) {
  std::vector<UINT8> bytes(size);
  for (std::size_t i = 0; i < size; ++i) {
    bytes[i] = static_cast<UINT8>((i * 7u + i / 251u + 3u) & 0xFFu);
  }
  return bytes;
}

class DtNlFileIoTest : public testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/kpz_fileio_XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    dir_ = pattern;
  }

  void TearDown() override {
    kpztest::DisarmAll();
    std::error_code ec;
    std::filesystem::remove_all(dir_, ec);
  }

  std::string PathOf(const std::string& name) const { return dir_ + "/" + name; }

  std::string Make(const std::string& name, const std::vector<UINT8>& bytes) const {
    const std::string path = PathOf(name);
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
    return path;
  }

  static std::vector<UINT8> Contents(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<UINT8>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }

  std::string dir_;
};

void ExpectStatus(const DtNlIo& io, DtNlErrCode code, int sysErrNo) {
  EXPECT_EQ(io.GetStatus().errCode, code);
  EXPECT_EQ(io.GetStatus().sysErrNo, sysErrNo);
}

// ---------------------------------------------------------------- construction

TEST_F(DtNlFileIoTest, NewChannelIsAClosedFileChannelSmallEnoughForAnyStack) {
  DtNlFileIo io;
  EXPECT_EQ(io.GetKind(), DtNlIo::KIND_FILE);
  // The bounce buffer is made on the first EFAULT retry, not with the object.
  EXPECT_LT(sizeof(DtNlFileIo), static_cast<std::size_t>(256));
  ExpectStatus(io, DtNlErrNone, 0);
  EXPECT_EQ(io.GetBaseOffset(), 0);
  EXPECT_EQ(io.GetDeliveredCount(), 0u);
}

// ------------------------------------------------------------- SetUnbuffered

TEST_F(DtNlFileIoTest, SetUnbufferedOnAClosedChannelFailsWithoutLogOrStatus) {
  DtNlFileIo io;
  int result = 0;
  std::string err = Captured([&] { result = io.SetUnbuffered(); });
  EXPECT_EQ(result, -1);
  EXPECT_EQ(err, "");
  ExpectStatus(io, DtNlErrNone, 0);
}

TEST_F(DtNlFileIoTest, UnbufferedChannelSeeksReadsAndTellsLikeABufferedOne) {
  const std::vector<UINT8> bytes = Pattern(10000);
  const std::string path = Make("a.bin", bytes);
  DtNlFileIo io;
  ASSERT_EQ(io.Open(path.c_str(), "rb"), 0);
  ASSERT_EQ(io.SetUnbuffered(), 0);
  ASSERT_EQ(io.Seek(3000, DtNlIoSeekSet), 0);
  std::vector<UINT8> got(5000);
  EXPECT_EQ(io.ReadU8(got.data(), 5000u), 5000u);
  EXPECT_EQ(got, std::vector<UINT8>(bytes.begin() + 3000, bytes.begin() + 8000));
  EXPECT_EQ(io.Tell(), 8000);
  std::vector<UINT8> tail(4000);
  EXPECT_EQ(io.ReadU8(tail.data(), 4000u), 2000u);  // short at end of file, no error
  EXPECT_EQ(std::vector<UINT8>(tail.begin(), tail.begin() + 2000),
            std::vector<UINT8>(bytes.begin() + 8000, bytes.end()));
  EXPECT_EQ(io.IsEof(), 1);
  ExpectStatus(io, DtNlErrNone, 0);
}

// Reads byte 0 then, after byte 1 of the file was changed through another
// stream, the next byte: what the channel returns for byte 1.
UINT8 SecondByteAfterChange(const std::string& path, bool unbuffered) {
  DtNlFileIo io;
  EXPECT_EQ(io.Open(path.c_str(), "rb"), 0);
  if (unbuffered) {
    EXPECT_EQ(io.SetUnbuffered(), 0);
  }
  UINT8 first = 0;
  EXPECT_EQ(io.ReadU8(&first, 1u), 1u);
  FILE* writer = std::fopen(path.c_str(), "r+b");
  EXPECT_NE(writer, nullptr);
  if (writer != nullptr) {
    std::fseek(writer, 1, SEEK_SET);
    std::fputc(0xEE, writer);
    std::fclose(writer);
  }
  UINT8 second = 0;
  EXPECT_EQ(io.ReadU8(&second, 1u), 1u);
  return second;
}

TEST_F(DtNlFileIoTest, UnbufferedChannelReadsStraightFromTheFileNotAheadIntoABuffer) {
  const std::vector<UINT8> bytes(64, 0x11);
  // Buffered, the first 1-byte read pulls the whole small file into stdio's
  // buffer, so the change behind it is not seen; unbuffered, it is.
  EXPECT_EQ(SecondByteAfterChange(Make("buffered.bin", bytes), false), 0x11);
  EXPECT_EQ(SecondByteAfterChange(Make("unbuffered.bin", bytes), true), 0xEE);
}

TEST_F(DtNlFileIoTest, UnbufferedFaultedReadIsStillRetriedThroughTheBounceBuffer) {
  const std::vector<UINT8> bytes = Pattern(100);
  const std::string path = Make("a.bin", bytes);
  DtNlFileIo io;
  ASSERT_EQ(io.Open(path.c_str(), "rb"), 0);
  ASSERT_EQ(io.SetUnbuffered(), 0);
  ASSERT_EQ(io.Seek(10, DtNlIoSeekSet), 0);
  kpztest::FaultGuard guard;
  std::vector<UINT8> got(50);
  std::string err = Captured([&] {
    kpztest::Arm(Call::Fread, EFAULT, 0, 1, 20);
    EXPECT_EQ(io.ReadU8(got.data(), 50u), 50u);
  });
  EXPECT_EQ(err, "");
  EXPECT_EQ(got, std::vector<UINT8>(bytes.begin() + 10, bytes.begin() + 60));
  EXPECT_EQ(io.Tell(), 60);
  ExpectStatus(io, DtNlErrNone, 0);
}

// ---------------------------------------------------------------------- Open

TEST_F(DtNlFileIoTest, OpenReadsAnExistingFile) {
  const std::vector<UINT8> bytes = Pattern(64);
  const std::string path = Make("a.bin", bytes);
  DtNlFileIo io;
  ASSERT_EQ(io.Open(path.c_str(), "rb"), 0);
  std::vector<UINT8> got(64);
  EXPECT_EQ(io.ReadU8(got.data(), 64u), 64u);
  EXPECT_EQ(got, bytes);
  ExpectStatus(io, DtNlErrNone, 0);
}

TEST_F(DtNlFileIoTest, OpenOnAnOpenChannelFailsAndTheFirstFileStaysReadable) {
  const std::string first = Make("first.bin", {1, 2, 3, 4});
  const std::string second = Make("second.bin", {9, 9, 9, 9});
  DtNlFileIo io;
  ASSERT_EQ(io.Open(first.c_str(), "rb"), 0);
  errno = 0;
  std::string err = Captured([&] { EXPECT_EQ(io.Open(second.c_str(), "rb"), -1); });
  EXPECT_EQ(err, "");
  ExpectStatus(io, DtNlErrAlreadyOpen, 0);
  UINT8 got[4] = {};
  EXPECT_EQ(io.ReadU8(got, 4u), 4u);
  EXPECT_EQ(got[0], 1);
  EXPECT_EQ(got[3], 4);
}

TEST_F(DtNlFileIoTest, RepeatedOpenClearsTheEarlierStatusBeforeRecordingItsOwn) {
  const std::string path = Make("a.bin", {1, 2, 3});
  DtNlFileIo io;
  ASSERT_EQ(io.Open(path.c_str(), "rb"), 0);
  kpztest::FaultGuard guard;
  Captured([&] {
    kpztest::Arm(Call::Ftell, EIO);
    EXPECT_EQ(io.Tell(), -1);
  });
  ExpectStatus(io, DtNlErrIo, EIO);
  errno = 0;
  EXPECT_EQ(io.Open(path.c_str(), "rb"), -1);
  ExpectStatus(io, DtNlErrAlreadyOpen, 0);
}

TEST_F(DtNlFileIoTest, OpenOfAMissingFileLogsAndRecordsNotFound) {
  const std::string path = PathOf("missing.bin");
  DtNlFileIo io;
  std::string err = Captured([&] { EXPECT_EQ(io.Open(path.c_str(), "rb"), -1); });
  EXPECT_EQ(err, Err("Open", 77, "fopen(filePath: " + path + ") err(" + std::to_string(ENOENT) +
                                     ")."));
  ExpectStatus(io, DtNlErrNotFound, ENOENT);
}

TEST_F(DtNlFileIoTest, OpenFailingWithEioRecordsIo) {
  const std::string path = Make("a.bin", {1});
  DtNlFileIo io;
  kpztest::FaultGuard guard;
  std::string err = Captured([&] {
    kpztest::Arm(Call::Fopen, EIO);
    EXPECT_EQ(io.Open(path.c_str(), "rb"), -1);
  });
  EXPECT_EQ(err, Err("Open", 77, "fopen(filePath: " + path + ") err(5)."));
  ExpectStatus(io, DtNlErrIo, EIO);
}

TEST_F(DtNlFileIoTest, OpenFailingWithAnotherErrnoRecordsOpen) {
  const std::string path = Make("a.bin", {1});
  DtNlFileIo io;
  kpztest::FaultGuard guard;
  std::string err = Captured([&] {
    kpztest::Arm(Call::Fopen, EACCES);
    EXPECT_EQ(io.Open(path.c_str(), "rb"), -1);
  });
  EXPECT_EQ(err, Err("Open", 77, "fopen(filePath: " + path + ") err(13)."));
  ExpectStatus(io, DtNlErrOpen, EACCES);
}

TEST_F(DtNlFileIoTest, OpenOfADirectoryForWritingRecordsOpen) {
  DtNlFileIo io;
  std::string err = Captured([&] { EXPECT_EQ(io.Open(dir_.c_str(), "rb+"), -1); });
  EXPECT_EQ(err, Err("Open", 77, "fopen(filePath: " + dir_ + ") err(" + std::to_string(EISDIR) +
                                     ")."));
  ExpectStatus(io, DtNlErrOpen, EISDIR);
}

TEST_F(DtNlFileIoTest, OpenWithoutAPathFailsAsABadArgument) {
  DtNlFileIo io;
  kpztest::FaultGuard guard;
  int fopens = -1;
  std::string err = Captured([&] {
    kpztest::ResetCounts();
    EXPECT_EQ(io.Open(static_cast<const char*>(nullptr), "rb"), -1);
    fopens = kpztest::CallCount(Call::Fopen);
  });
  EXPECT_EQ(err, Err("Open", 77, "fopen(filePath: (null)) err(22)."));
  ExpectStatus(io, DtNlErrOpen, EINVAL);
  EXPECT_EQ(fopens, 0);
}

TEST_F(DtNlFileIoTest, OpenWithoutAModeFailsAsABadArgument) {
  const std::string path = Make("a.bin", {1});
  DtNlFileIo io;
  std::string err = Captured([&] { EXPECT_EQ(io.Open(path.c_str(), nullptr), -1); });
  EXPECT_EQ(err, Err("Open", 77, "fopen(filePath: " + path + ") err(22)."));
  ExpectStatus(io, DtNlErrOpen, EINVAL);
}

TEST_F(DtNlFileIoTest, SuccessfulOpenClearsStatusAndBaseOffset) {
  const std::string path = Make("a.bin", {1, 2});
  DtNlFileIo io;
  Captured([&] { io.Open(PathOf("missing").c_str(), "rb"); });
  io.SetBaseOffset(40);
  ASSERT_EQ(io.GetStatus().errCode, DtNlErrNotFound);
  EXPECT_EQ(io.Open(path.c_str(), "rb"), 0);
  ExpectStatus(io, DtNlErrNone, 0);
  EXPECT_EQ(io.GetBaseOffset(), 0);
}

TEST_F(DtNlFileIoTest, OpenByStringAndByFileReachTheSameFile) {
  const std::string path = Make("a.bin", {0x5A});
  DtNlFileIo byString;
  DtNlFileIo byFile;
  DtNlString text(path.c_str());
  DtNlFile file(path.c_str());
  EXPECT_EQ(byString.Open(text, "rb"), 0);
  EXPECT_EQ(byFile.Open(file, "rb"), 0);
  UINT8 a = 0;
  UINT8 b = 0;
  EXPECT_EQ(byString.ReadU8(&a, 1u), 1u);
  EXPECT_EQ(byFile.ReadU8(&b, 1u), 1u);
  EXPECT_EQ(a, 0x5A);
  EXPECT_EQ(b, 0x5A);
}

TEST_F(DtNlFileIoTest, BufferOpenIsNotSupported) {
  const UINT8 bytes[2] = {1, 2};
  DtNlFileIo io;
  errno = 0;
  std::string err = Captured([&] { EXPECT_EQ(io.Open(bytes, 2u), -1); });
  EXPECT_EQ(err, "");
  ExpectStatus(io, DtNlErrNotSupported, 0);
}

// -------------------------------------------------------------------- ReadU8

TEST_F(DtNlFileIoTest, ReadPastTheEndReturnsTheShortCountWithoutError) {
  const std::string path = Make("a.bin", Pattern(10));
  DtNlFileIo io;
  ASSERT_EQ(io.Open(path.c_str(), "rb"), 0);
  UINT8 got[16] = {};
  EXPECT_EQ(io.ReadU8(got, 6u), 6u);
  EXPECT_EQ(io.IsEof(), 0);
  EXPECT_EQ(io.ReadU8(got, 16u), 4u);
  EXPECT_EQ(io.IsEof(), 1);
  ExpectStatus(io, DtNlErrNone, 0);
  EXPECT_EQ(io.ReadU8(got, 1u), 0u);
  ExpectStatus(io, DtNlErrNone, 0);
}

TEST_F(DtNlFileIoTest, ReadOfZeroBytesReturnsZero) {
  const std::string path = Make("a.bin", Pattern(10));
  DtNlFileIo io;
  ASSERT_EQ(io.Open(path.c_str(), "rb"), 0);
  UINT8 got = 0;
  EXPECT_EQ(io.ReadU8(&got, 0u), 0u);
  EXPECT_EQ(io.Tell(), 0);
  ExpectStatus(io, DtNlErrNone, 0);
}

TEST_F(DtNlFileIoTest, ReadIntoNoDestinationReadsNothing) {
  const std::string path = Make("a.bin", Pattern(10));
  DtNlFileIo io;
  ASSERT_EQ(io.Open(path.c_str(), "rb"), 0);
  std::string err = Captured([&] { EXPECT_EQ(io.ReadU8(nullptr, 5u), 0u); });
  EXPECT_EQ(err, "");
  EXPECT_EQ(io.Tell(), 0);
  ExpectStatus(io, DtNlErrNone, 0);
}

TEST_F(DtNlFileIoTest, ReadErrorWithEioRecordsIoAndClosesSilently) {
  const std::string path = Make("a.bin", Pattern(10));
  DtNlFileIo io;
  ASSERT_EQ(io.Open(path.c_str(), "rb"), 0);
  kpztest::FaultGuard guard;
  int closes = 0;
  UINT8 got[8] = {};
  std::string err = Captured([&] {
    kpztest::ResetCounts();
    kpztest::Arm(Call::Fread, EIO, 0, 1, 3);
    EXPECT_EQ(io.ReadU8(got, 8u), 0u);
    closes = kpztest::CallCount(Call::Fclose);
  });
  EXPECT_EQ(err, "");
  EXPECT_EQ(closes, 1);
  ExpectStatus(io, DtNlErrIo, EIO);
  err = Captured([&] { EXPECT_EQ(io.ReadU8(got, 8u), 0u); });
  EXPECT_EQ(err, Warn("ReadU8", 115));
  ExpectStatus(io, DtNlErrIo, EIO);
}

TEST_F(DtNlFileIoTest, ReadErrorWithAnotherErrnoRecordsReadAndCloses) {
  const std::string path = Make("a.bin", Pattern(10));
  DtNlFileIo io;
  ASSERT_EQ(io.Open(path.c_str(), "rb"), 0);
  kpztest::FaultGuard guard;
  UINT8 got[8] = {};
  std::string err = Captured([&] {
    kpztest::Arm(Call::Fread, EBADF);
    EXPECT_EQ(io.ReadU8(got, 8u), 0u);
  });
  EXPECT_EQ(err, "");
  ExpectStatus(io, DtNlErrRead, EBADF);
  err = Captured([&] { EXPECT_EQ(io.Tell(), -1); });
  EXPECT_EQ(err, Warn("Tell", 280));
}

TEST_F(DtNlFileIoTest, FaultedReadIsRetriedThroughTheBounceBuffer) {
  const std::vector<UINT8> bytes = Pattern(100);
  const std::string path = Make("a.bin", bytes);
  DtNlFileIo io;
  ASSERT_EQ(io.Open(path.c_str(), "rb"), 0);
  ASSERT_EQ(io.Seek(10, DtNlIoSeekSet), 0);
  kpztest::FaultGuard guard;
  std::vector<UINT8> got(50);
  int freads = 0;
  int fseeks = 0;
  int clears = 0;
  std::string err = Captured([&] {
    kpztest::ResetCounts();
    kpztest::Arm(Call::Fread, EFAULT, 0, 1, 20);
    EXPECT_EQ(io.ReadU8(got.data(), 50u), 50u);
    freads = kpztest::CallCount(Call::Fread);
    fseeks = kpztest::CallCount(Call::Fseek);
    clears = kpztest::CallCount(Call::Clearerr);
  });
  EXPECT_EQ(err, "");
  EXPECT_EQ(freads, 2);  // the failed call and one chunk
  EXPECT_EQ(fseeks, 1);  // the step back over the 20 bytes consumed
  EXPECT_EQ(clears, 1);
  EXPECT_EQ(got, std::vector<UINT8>(bytes.begin() + 10, bytes.begin() + 60));
  EXPECT_EQ(io.Tell(), 60);
  ExpectStatus(io, DtNlErrNone, 0);
}

TEST_F(DtNlFileIoTest, FaultedReadThatConsumedNothingIsRetriedWithoutSteppingBack) {
  const std::vector<UINT8> bytes = Pattern(40);
  const std::string path = Make("a.bin", bytes);
  DtNlFileIo io;
  ASSERT_EQ(io.Open(path.c_str(), "rb"), 0);
  kpztest::FaultGuard guard;
  std::vector<UINT8> got(40);
  int fseeks = -1;
  Captured([&] {
    kpztest::ResetCounts();
    kpztest::Arm(Call::Fread, EFAULT, 0, 1, 0);
    EXPECT_EQ(io.ReadU8(got.data(), 40u), 40u);
    fseeks = kpztest::CallCount(Call::Fseek);
  });
  EXPECT_EQ(fseeks, 0);
  EXPECT_EQ(got, bytes);
  ExpectStatus(io, DtNlErrNone, 0);
}

TEST_F(DtNlFileIoTest, FaultedReadLargerThanTheBounceBufferGoesInSeveralChunks) {
  const std::vector<UINT8> bytes = Pattern(500000);
  const std::string path = Make("big.bin", bytes);
  DtNlFileIo io;
  ASSERT_EQ(io.Open(path.c_str(), "rb"), 0);
  kpztest::FaultGuard guard;
  std::vector<UINT8> got(450000);
  int freads = 0;
  std::string err = Captured([&] {
    kpztest::ResetCounts();
    kpztest::Arm(Call::Fread, EFAULT, 0, 1, 1000);
    EXPECT_EQ(io.ReadU8(got.data(), 450000u), 450000u);
    freads = kpztest::CallCount(Call::Fread);
  });
  EXPECT_EQ(err, "");
  EXPECT_EQ(freads, 4);  // failed call, then 196608 + 196608 + 56784
  EXPECT_EQ(got, std::vector<UINT8>(bytes.begin(), bytes.begin() + 450000));
  EXPECT_EQ(io.Tell(), 450000);
  ExpectStatus(io, DtNlErrNone, 0);
}

TEST_F(DtNlFileIoTest, FaultedReadEndingAtEndOfFileReturnsWhatTheFileHeld) {
  const std::vector<UINT8> bytes = Pattern(300000);
  const std::string path = Make("big.bin", bytes);
  DtNlFileIo io;
  ASSERT_EQ(io.Open(path.c_str(), "rb"), 0);
  kpztest::FaultGuard guard;
  std::vector<UINT8> got(400000, 0xEE);
  int freads = 0;
  Captured([&] {
    kpztest::ResetCounts();
    kpztest::Arm(Call::Fread, EFAULT, 0, 1, 100);
    EXPECT_EQ(io.ReadU8(got.data(), 400000u), 300000u);
    freads = kpztest::CallCount(Call::Fread);
  });
  EXPECT_EQ(freads, 4);  // failed call, 196608, 103392, then 0 at end of file
  EXPECT_EQ(std::vector<UINT8>(got.begin(), got.begin() + 300000), bytes);
  EXPECT_EQ(got[300000], 0xEE);  // nothing written beyond what was read
  EXPECT_EQ(io.IsEof(), 1);
  ExpectStatus(io, DtNlErrNone, 0);
}

TEST_F(DtNlFileIoTest, FailedStepBackLogsAndReturnsZeroWithoutAnErrorCode) {
  const std::string path = Make("a.bin", Pattern(30));
  DtNlFileIo io;
  ASSERT_EQ(io.Open(path.c_str(), "rb"), 0);
  kpztest::FaultGuard guard;
  UINT8 got[16] = {};
  std::string err = Captured([&] {
    kpztest::Arm(Call::Fread, EFAULT, 0, 1, 4);
    kpztest::Arm(Call::Fseek, EIO);
    EXPECT_EQ(io.ReadU8(got, 16u), 0u);
  });
  EXPECT_EQ(err, Err("ReadU8", 139,
                     "virtual UINT DtNlFileIo::ReadU8(UINT8*, UINT) seek err(5)."));
  ExpectStatus(io, DtNlErrNone, 0);
  EXPECT_EQ(io.Tell(), 4);  // still open, where the failed call left it
}

TEST_F(DtNlFileIoTest, FailingChunkWithEioLogsRecordsIoAndCloses) {
  const std::string path = Make("a.bin", Pattern(30));
  DtNlFileIo io;
  ASSERT_EQ(io.Open(path.c_str(), "rb"), 0);
  kpztest::FaultGuard guard;
  UINT8 got[16] = {};
  std::string err = Captured([&] {
    kpztest::Arm(Call::Fread, EFAULT, 0, 1, 4);
    // The first ferror sees the faulted call; the second, after the chunk,
    // reports an EIO error.
    kpztest::Arm(Call::Ferror, EIO, 1, 1);
    EXPECT_EQ(io.ReadU8(got, 16u), 0u);
  });
  EXPECT_EQ(err, Err("ReadU8", 154, "fread err(5)."));
  ExpectStatus(io, DtNlErrIo, EIO);
  err = Captured([&] { EXPECT_EQ(io.ReadU8(got, 1u), 0u); });
  EXPECT_EQ(err, Warn("ReadU8", 115));
}

TEST_F(DtNlFileIoTest, FailingChunkWithAnotherErrnoLogsRecordsReadAndCloses) {
  const std::string path = Make("a.bin", Pattern(30));
  DtNlFileIo io;
  ASSERT_EQ(io.Open(path.c_str(), "rb"), 0);
  kpztest::FaultGuard guard;
  UINT8 got[16] = {};
  int closes = 0;
  std::string err = Captured([&] {
    kpztest::ResetCounts();
    kpztest::Arm(Call::Fread, EFAULT, 0, 2, 4);
    EXPECT_EQ(io.ReadU8(got, 16u), 0u);
    closes = kpztest::CallCount(Call::Fclose);
  });
  EXPECT_EQ(err, Err("ReadU8", 154, "fread err(14)."));
  EXPECT_EQ(closes, 1);
  ExpectStatus(io, DtNlErrRead, EFAULT);
}

// ----------------------------------------------------------- GetDeliveredCount

TEST_F(DtNlFileIoTest, DeliveredCountIsTheResultOfASuccessfulRead) {
  const std::string path = Make("a.bin", Pattern(10));
  DtNlFileIo io;
  ASSERT_EQ(io.Open(path.c_str(), "rb"), 0);
  UINT8 got[16] = {};
  EXPECT_EQ(io.ReadU8(got, 6u), 6u);
  EXPECT_EQ(io.GetDeliveredCount(), 6u);
  EXPECT_EQ(io.ReadU8(got, 16u), 4u);  // short at the end of the file
  EXPECT_EQ(io.GetDeliveredCount(), 4u);
  EXPECT_EQ(io.ReadU8(got, 1u), 0u);
  EXPECT_EQ(io.GetDeliveredCount(), 0u);
}

TEST_F(DtNlFileIoTest, DeliveredCountAfterAFailedReadIsWhatArrivedBeforeTheError) {
  const std::vector<UINT8> bytes = Pattern(10);
  const std::string path = Make("a.bin", bytes);
  DtNlFileIo io;
  ASSERT_EQ(io.Open(path.c_str(), "rb"), 0);
  kpztest::FaultGuard guard;
  UINT8 got[8] = {};
  Captured([&] {
    kpztest::Arm(Call::Fread, EIO, 0, 1, 3);
    EXPECT_EQ(io.ReadU8(got, 8u), 0u);  // fails, and the channel closes
  });
  EXPECT_EQ(io.GetDeliveredCount(), 3u);
  EXPECT_EQ(std::vector<UINT8>(got, got + 3), std::vector<UINT8>(bytes.begin(), bytes.begin() + 3));
  // A read on the closed channel delivers nothing.
  Captured([&] { EXPECT_EQ(io.ReadU8(got, 8u), 0u); });
  EXPECT_EQ(io.GetDeliveredCount(), 0u);
}

TEST_F(DtNlFileIoTest, DeliveredCountAfterAFailedRetryCountsTheRetriedBytes) {
  const std::vector<UINT8> bytes = Pattern(30);
  const std::string path = Make("a.bin", bytes);
  DtNlFileIo io;
  ASSERT_EQ(io.Open(path.c_str(), "rb"), 0);
  kpztest::FaultGuard guard;
  UINT8 got[16] = {};
  Captured([&] {
    // The first read and the first retry both deliver 4 bytes and fail.
    kpztest::Arm(Call::Fread, EFAULT, 0, 2, 4);
    EXPECT_EQ(io.ReadU8(got, 16u), 0u);
  });
  EXPECT_EQ(io.GetDeliveredCount(), 4u);
  EXPECT_EQ(std::vector<UINT8>(got, got + 4), std::vector<UINT8>(bytes.begin(), bytes.begin() + 4));
}

// ------------------------------------------------------------------- WriteU8

TEST_F(DtNlFileIoTest, WrittenBytesReadBack) {
  const std::string path = Make("w.bin", {});
  const std::vector<UINT8> bytes = Pattern(20);
  DtNlFileIo io;
  ASSERT_EQ(io.Open(path.c_str(), "rb+"), 0);
  EXPECT_EQ(io.WriteU8(bytes.data(), 20u), 20u);
  EXPECT_EQ(io.Seek(0, DtNlIoSeekSet), 0);
  std::vector<UINT8> got(20);
  EXPECT_EQ(io.ReadU8(got.data(), 20u), 20u);
  EXPECT_EQ(got, bytes);
  EXPECT_EQ(io.Close(), 0);
  EXPECT_EQ(Contents(path), bytes);
}

TEST_F(DtNlFileIoTest, WriteToAReadOnlyStreamLogsRecordsWriteAndCloses) {
  const std::string path = Make("a.bin", Pattern(4));
  DtNlFileIo io;
  ASSERT_EQ(io.Open(path.c_str(), "rb"), 0);
  const UINT8 bytes[2] = {7, 7};
  std::string err = Captured([&] { EXPECT_EQ(io.WriteU8(bytes, 2u), 0u); });
  EXPECT_EQ(err, Err("WriteU8", 243, ErrnoText("fwrite err", EBADF)));
  ExpectStatus(io, DtNlErrWrite, EBADF);
  err = Captured([&] { EXPECT_EQ(io.WriteU8(bytes, 2u), 0u); });
  EXPECT_EQ(err, Warn("WriteU8", 238));
}

TEST_F(DtNlFileIoTest, WriteErrorWithEioRecordsIo) {
  const std::string path = Make("w.bin", {});
  DtNlFileIo io;
  ASSERT_EQ(io.Open(path.c_str(), "rb+"), 0);
  kpztest::FaultGuard guard;
  const UINT8 bytes[4] = {1, 2, 3, 4};
  std::string err = Captured([&] {
    kpztest::Arm(Call::Fwrite, EIO, 0, 1, 2);
    EXPECT_EQ(io.WriteU8(bytes, 4u), 0u);
  });
  EXPECT_EQ(err, Err("WriteU8", 243, "fwrite err(5)."));
  ExpectStatus(io, DtNlErrIo, EIO);
  err = Captured([&] { EXPECT_EQ(io.Flush(), -1); });
  EXPECT_EQ(err, Warn("Flush", 318));
}

TEST_F(DtNlFileIoTest, WriteErrorWithAnotherErrnoRecordsWrite) {
  const std::string path = Make("w.bin", {});
  DtNlFileIo io;
  ASSERT_EQ(io.Open(path.c_str(), "rb+"), 0);
  kpztest::FaultGuard guard;
  const UINT8 bytes[4] = {1, 2, 3, 4};
  std::string err = Captured([&] {
    kpztest::Arm(Call::Fwrite, ENOSPC);
    EXPECT_EQ(io.WriteU8(bytes, 4u), 0u);
  });
  EXPECT_EQ(err, Err("WriteU8", 243, "fwrite err(28)."));
  ExpectStatus(io, DtNlErrWrite, ENOSPC);
}

TEST_F(DtNlFileIoTest, WriteFromNoSourceWritesNothing) {
  const std::string path = Make("w.bin", {});
  DtNlFileIo io;
  ASSERT_EQ(io.Open(path.c_str(), "rb+"), 0);
  EXPECT_EQ(io.WriteU8(nullptr, 4u), 0u);
  EXPECT_EQ(io.Tell(), 0);
  ExpectStatus(io, DtNlErrNone, 0);
}

// ---------------------------------------------------------------------- Seek

TEST_F(DtNlFileIoTest, SeekFollowsTheStdioOrigins) {
  const std::vector<UINT8> bytes = Pattern(100);
  const std::string path = Make("a.bin", bytes);
  DtNlFileIo io;
  ASSERT_EQ(io.Open(path.c_str(), "rb"), 0);
  EXPECT_EQ(io.Seek(10, DtNlIoSeekSet), 0);
  EXPECT_EQ(io.Tell(), 10);
  EXPECT_EQ(io.Seek(5, DtNlIoSeekCur), 0);
  EXPECT_EQ(io.Tell(), 15);
  EXPECT_EQ(io.Seek(-3, DtNlIoSeekCur), 0);
  EXPECT_EQ(io.Tell(), 12);
  EXPECT_EQ(io.Seek(-4, DtNlIoSeekEnd), 0);  // negative from the end, as fseek counts
  EXPECT_EQ(io.Tell(), 96);
  UINT8 got = 0;
  EXPECT_EQ(io.ReadU8(&got, 1u), 1u);
  EXPECT_EQ(got, bytes[96]);
}

TEST_F(DtNlFileIoTest, SeekFromTheBaseOffsetAddsIt) {
  const std::vector<UINT8> bytes = Pattern(100);
  const std::string path = Make("a.bin", bytes);
  DtNlFileIo io;
  ASSERT_EQ(io.Open(path.c_str(), "rb"), 0);
  io.SetBaseOffset(20);
  EXPECT_EQ(io.Seek(5, DtNlIoSeekBase), 0);
  EXPECT_EQ(io.Tell(), 25);
  io.SetBaseOffset(-10);
  EXPECT_EQ(io.Seek(15, DtNlIoSeekBase), 0);  // 15 + (-10): the wrapped sum is 5
  EXPECT_EQ(io.Tell(), 5);
}

TEST_F(DtNlFileIoTest, SeekFromTheBaseOffsetWrapsAt32Bits) {
  const std::string path = Make("a.bin", Pattern(10));
  DtNlFileIo io;
  ASSERT_EQ(io.Open(path.c_str(), "rb"), 0);
  io.SetBaseOffset(0x7FFFFFFF);
  std::string err = Captured([&] { EXPECT_EQ(io.Seek(1, DtNlIoSeekBase), -1); });
  EXPECT_EQ(err, Err("Seek", 267, "fseek err(22)."));  // the sum wrapped negative
  ExpectStatus(io, DtNlErrSeek, EINVAL);
}

TEST_F(DtNlFileIoTest, SeekKeepsOnlyTheLow32BitsOfTheOffset) {
  const std::vector<UINT8> bytes = Pattern(10);
  const std::string path = Make("a.bin", bytes);
  DtNlFileIo io;
  ASSERT_EQ(io.Open(path.c_str(), "rb"), 0);
  EXPECT_EQ(io.Seek((1LL << 32) + 5, DtNlIoSeekSet), 0);
  EXPECT_EQ(io.Tell(), 5);
  UINT8 got = 0;
  EXPECT_EQ(io.ReadU8(&got, 1u), 1u);
  EXPECT_EQ(got, bytes[5]);
}

TEST_F(DtNlFileIoTest, SeekToAnOffsetWhoseLow32BitsAreNegativeFails) {
  const std::string path = Make("a.bin", Pattern(10));
  DtNlFileIo io;
  ASSERT_EQ(io.Open(path.c_str(), "rb"), 0);
  std::string err = Captured([&] { EXPECT_EQ(io.Seek(0xFFFFFFFFLL, DtNlIoSeekSet), -1); });
  EXPECT_EQ(err, Err("Seek", 267, "fseek err(22)."));
  ExpectStatus(io, DtNlErrSeek, EINVAL);
}

TEST_F(DtNlFileIoTest, SeekWithAnInvalidOriginFailsInStdio) {
  const std::string path = Make("a.bin", Pattern(10));
  DtNlFileIo io;
  ASSERT_EQ(io.Open(path.c_str(), "rb"), 0);
  std::string err =
      Captured([&] { EXPECT_EQ(io.Seek(0, static_cast<DtNlIoSeekPos>(7)), -1); });
  EXPECT_EQ(err, Err("Seek", 267, "fseek err(22)."));
  ExpectStatus(io, DtNlErrSeek, EINVAL);
}

TEST_F(DtNlFileIoTest, SeekErrorWithEioRecordsIo) {
  const std::string path = Make("a.bin", Pattern(10));
  DtNlFileIo io;
  ASSERT_EQ(io.Open(path.c_str(), "rb"), 0);
  kpztest::FaultGuard guard;
  std::string err = Captured([&] {
    kpztest::Arm(Call::Fseek, EIO);
    EXPECT_EQ(io.Seek(1, DtNlIoSeekSet), -1);
  });
  EXPECT_EQ(err, Err("Seek", 267, "fseek err(5)."));
  ExpectStatus(io, DtNlErrIo, EIO);
  EXPECT_EQ(io.Tell(), 0);  // a failed seek leaves the channel open
}

TEST_F(DtNlFileIoTest, SeekErrorWithAnotherErrnoRecordsSeek) {
  const std::string path = Make("a.bin", Pattern(10));
  DtNlFileIo io;
  ASSERT_EQ(io.Open(path.c_str(), "rb"), 0);
  kpztest::FaultGuard guard;
  std::string err = Captured([&] {
    kpztest::Arm(Call::Fseek, ESPIPE);
    EXPECT_EQ(io.Seek(1, DtNlIoSeekSet), -1);
  });
  EXPECT_EQ(err, Err("Seek", 267, "fseek err(29)."));
  ExpectStatus(io, DtNlErrSeek, ESPIPE);
}

TEST_F(DtNlFileIoTest, FirstErrorWinsAcrossOperations) {
  const std::string path = Make("a.bin", Pattern(10));
  DtNlFileIo io;
  ASSERT_EQ(io.Open(path.c_str(), "rb"), 0);
  kpztest::FaultGuard guard;
  Captured([&] {
    EXPECT_EQ(io.Seek(0xFFFFFFFFLL, DtNlIoSeekSet), -1);
    kpztest::Arm(Call::Ftell, EIO);
    EXPECT_EQ(io.Tell(), -1);
    kpztest::Arm(Call::Fflush, ENOSPC);
    EXPECT_EQ(io.Flush(), -1);
  });
  ExpectStatus(io, DtNlErrSeek, EINVAL);
}

// ---------------------------------------------------------------- Tell/Tell64

TEST_F(DtNlFileIoTest, TellAndTell64GiveThePosition) {
  const std::string path = Make("a.bin", Pattern(10));
  DtNlFileIo io;
  ASSERT_EQ(io.Open(path.c_str(), "rb"), 0);
  EXPECT_EQ(io.Seek(7, DtNlIoSeekSet), 0);
  EXPECT_EQ(io.Tell(), 7);
  EXPECT_EQ(io.Tell64(), 7LL);
}

TEST_F(DtNlFileIoTest, TellErrorWithEioRecordsIo) {
  const std::string path = Make("a.bin", Pattern(10));
  DtNlFileIo io;
  ASSERT_EQ(io.Open(path.c_str(), "rb"), 0);
  kpztest::FaultGuard guard;
  std::string err = Captured([&] {
    kpztest::Arm(Call::Ftell, EIO);
    EXPECT_EQ(io.Tell(), -1);
  });
  EXPECT_EQ(err, Err("Tell", 285, "ftell err(5)."));
  ExpectStatus(io, DtNlErrIo, EIO);
}

TEST_F(DtNlFileIoTest, TellErrorWithAnotherErrnoRecordsTell) {
  const std::string path = Make("a.bin", Pattern(10));
  DtNlFileIo io;
  ASSERT_EQ(io.Open(path.c_str(), "rb"), 0);
  kpztest::FaultGuard guard;
  std::string err = Captured([&] {
    kpztest::Arm(Call::Ftell, ESPIPE);
    EXPECT_EQ(io.Tell(), -1);
  });
  EXPECT_EQ(err, Err("Tell", 285, "ftell err(29)."));
  ExpectStatus(io, DtNlErrTell, ESPIPE);
}

TEST_F(DtNlFileIoTest, Tell64ErrorWithEioRecordsIo) {
  const std::string path = Make("a.bin", Pattern(10));
  DtNlFileIo io;
  ASSERT_EQ(io.Open(path.c_str(), "rb"), 0);
  kpztest::FaultGuard guard;
  std::string err = Captured([&] {
    kpztest::Arm(Call::Ftell, EIO);
    EXPECT_EQ(io.Tell64(), -1LL);
  });
  EXPECT_EQ(err, Err("Tell64", 304, "ftell err(5)."));
  ExpectStatus(io, DtNlErrIo, EIO);
}

TEST_F(DtNlFileIoTest, Tell64ErrorWithAnotherErrnoRecordsTell) {
  const std::string path = Make("a.bin", Pattern(10));
  DtNlFileIo io;
  ASSERT_EQ(io.Open(path.c_str(), "rb"), 0);
  kpztest::FaultGuard guard;
  std::string err = Captured([&] {
    kpztest::Arm(Call::Ftell, EBADF);
    EXPECT_EQ(io.Tell64(), -1LL);
  });
  EXPECT_EQ(err, Err("Tell64", 304, "ftell err(9)."));
  ExpectStatus(io, DtNlErrTell, EBADF);
}

TEST_F(DtNlFileIoTest, PositionBeyondTwoGibibytesIsReportedAsOverflow) {
  const std::string path = Make("sparse.bin", {});
  // truncate64: off_t may be 32 bits wide (the 32-bit ARM target).
  ASSERT_EQ(truncate64(path.c_str(), static_cast<off64_t>(3) << 30), 0);
  DtNlFileIo io;
  ASSERT_EQ(io.Open(path.c_str(), "rb"), 0);
  ASSERT_EQ(io.Seek(0, DtNlIoSeekEnd), 0);
  std::string err = Captured([&] {
    EXPECT_EQ(io.Tell(), -1);
    EXPECT_EQ(io.Tell64(), -1LL);
  });
  EXPECT_EQ(err, Err("Tell", 285, ErrnoText("ftell err", EOVERFLOW)) +
                     Err("Tell64", 304, ErrnoText("ftell err", EOVERFLOW)));
  ExpectStatus(io, DtNlErrTell, EOVERFLOW);
}

// ------------------------------------------------------------- Flush and Sync

TEST_F(DtNlFileIoTest, FlushPushesWrittenBytesToTheFile) {
  const std::string path = Make("w.bin", {});
  DtNlFileIo io;
  ASSERT_EQ(io.Open(path.c_str(), "rb+"), 0);
  const UINT8 bytes[3] = {4, 5, 6};
  EXPECT_EQ(io.WriteU8(bytes, 3u), 3u);
  EXPECT_EQ(io.Flush(), 0);
  EXPECT_EQ(Contents(path), std::vector<UINT8>({4, 5, 6}));
}

TEST_F(DtNlFileIoTest, FlushErrorWithEioRecordsIo) {
  const std::string path = Make("a.bin", Pattern(4));
  DtNlFileIo io;
  ASSERT_EQ(io.Open(path.c_str(), "rb+"), 0);
  kpztest::FaultGuard guard;
  std::string err = Captured([&] {
    kpztest::Arm(Call::Fflush, EIO);
    EXPECT_EQ(io.Flush(), -1);
  });
  EXPECT_EQ(err, Err("Flush", 323, "fflush err(5)."));
  ExpectStatus(io, DtNlErrIo, EIO);
}

TEST_F(DtNlFileIoTest, FlushErrorWithAnotherErrnoRecordsFlush) {
  const std::string path = Make("a.bin", Pattern(4));
  DtNlFileIo io;
  ASSERT_EQ(io.Open(path.c_str(), "rb+"), 0);
  kpztest::FaultGuard guard;
  std::string err = Captured([&] {
    kpztest::Arm(Call::Fflush, ENOSPC);
    EXPECT_EQ(io.Flush(), -1);
  });
  EXPECT_EQ(err, Err("Flush", 323, "fflush err(28)."));
  ExpectStatus(io, DtNlErrFlush, ENOSPC);
}

TEST_F(DtNlFileIoTest, SyncSucceedsOnAnOpenFile) {
  const std::string path = Make("a.bin", Pattern(4));
  DtNlFileIo io;
  ASSERT_EQ(io.Open(path.c_str(), "rb+"), 0);
  kpztest::FaultGuard guard;
  int fsyncs = 0;
  int fflushes = 0;
  Captured([&] {
    kpztest::ResetCounts();
    EXPECT_EQ(io.Sync(), 0);
    fsyncs = kpztest::CallCount(Call::Fsync);
    fflushes = kpztest::CallCount(Call::Fflush);
  });
  EXPECT_EQ(fsyncs, 1);
  EXPECT_EQ(fflushes, 0);
  ExpectStatus(io, DtNlErrNone, 0);
}

TEST_F(DtNlFileIoTest, FlushDoesNotSync) {
  const std::string path = Make("a.bin", Pattern(4));
  DtNlFileIo io;
  ASSERT_EQ(io.Open(path.c_str(), "rb+"), 0);
  kpztest::FaultGuard guard;
  int fsyncs = -1;
  Captured([&] {
    kpztest::ResetCounts();
    EXPECT_EQ(io.Flush(), 0);
    fsyncs = kpztest::CallCount(Call::Fsync);
  });
  EXPECT_EQ(fsyncs, 0);
}

TEST_F(DtNlFileIoTest, SyncWithAFailingFilenoLogsWithoutAnErrorCode) {
  const std::string path = Make("a.bin", Pattern(4));
  DtNlFileIo io;
  ASSERT_EQ(io.Open(path.c_str(), "rb+"), 0);
  kpztest::FaultGuard guard;
  std::string err = Captured([&] {
    kpztest::Arm(Call::Fileno, EBADF);
    EXPECT_EQ(io.Sync(), -1);
  });
  EXPECT_EQ(err, Err("Sync", 341, "fileno err(9)."));
  ExpectStatus(io, DtNlErrNone, 0);
}

TEST_F(DtNlFileIoTest, SyncErrorWithEioRecordsIo) {
  const std::string path = Make("a.bin", Pattern(4));
  DtNlFileIo io;
  ASSERT_EQ(io.Open(path.c_str(), "rb+"), 0);
  kpztest::FaultGuard guard;
  std::string err = Captured([&] {
    kpztest::Arm(Call::Fsync, EIO);
    EXPECT_EQ(io.Sync(), -1);
  });
  EXPECT_EQ(err, Err("Sync", 346, "fsync err(5)."));
  ExpectStatus(io, DtNlErrIo, EIO);
}

TEST_F(DtNlFileIoTest, SyncErrorWithAnotherErrnoRecordsSync) {
  const std::string path = Make("a.bin", Pattern(4));
  DtNlFileIo io;
  ASSERT_EQ(io.Open(path.c_str(), "rb+"), 0);
  kpztest::FaultGuard guard;
  std::string err = Captured([&] {
    kpztest::Arm(Call::Fsync, EROFS);
    EXPECT_EQ(io.Sync(), -1);
  });
  EXPECT_EQ(err, Err("Sync", 346, "fsync err(30)."));
  ExpectStatus(io, DtNlErrSync, EROFS);
}

// --------------------------------------------------------------------- Close

TEST_F(DtNlFileIoTest, CloseReleasesTheFile) {
  const std::string path = Make("a.bin", Pattern(4));
  DtNlFileIo io;
  ASSERT_EQ(io.Open(path.c_str(), "rb"), 0);
  EXPECT_EQ(io.Close(), 0);
  ExpectStatus(io, DtNlErrNone, 0);
  EXPECT_EQ(io.Open(path.c_str(), "rb"), 0);  // no longer held
}

TEST_F(DtNlFileIoTest, CloseOfAClosedChannelReturnsZeroSilently) {
  DtNlFileIo io;
  kpztest::FaultGuard guard;
  int closes = -1;
  std::string err = Captured([&] {
    kpztest::ResetCounts();
    EXPECT_EQ(io.Close(), 0);
    closes = kpztest::CallCount(Call::Fclose);
  });
  EXPECT_EQ(err, "");
  EXPECT_EQ(closes, 0);
}

TEST_F(DtNlFileIoTest, FailedCloseWithEioRecordsIoAndForgetsTheHandle) {
  const std::string path = Make("a.bin", Pattern(4));
  DtNlFileIo io;
  ASSERT_EQ(io.Open(path.c_str(), "rb"), 0);
  kpztest::FaultGuard guard;
  std::string err = Captured([&] {
    kpztest::Arm(Call::Fclose, EIO);
    EXPECT_EQ(io.Close(), -1);
  });
  EXPECT_EQ(err, Err("Close", 96, "fclose err(5)."));
  ExpectStatus(io, DtNlErrIo, EIO);
  err = Captured([&] {
    EXPECT_EQ(io.Close(), 0);
    EXPECT_EQ(io.IsEof(), 0);
  });
  EXPECT_EQ(err, Warn("IsEof", 359));
}

TEST_F(DtNlFileIoTest, FailedCloseWithAnotherErrnoRecordsClose) {
  const std::string path = Make("a.bin", Pattern(4));
  DtNlFileIo io;
  ASSERT_EQ(io.Open(path.c_str(), "rb"), 0);
  kpztest::FaultGuard guard;
  std::string err = Captured([&] {
    kpztest::Arm(Call::Fclose, EBADF);
    EXPECT_EQ(io.Close(), -1);
  });
  EXPECT_EQ(err, Err("Close", 96, "fclose err(9)."));
  ExpectStatus(io, DtNlErrClose, EBADF);
}

TEST_F(DtNlFileIoTest, DestructorClosesTheFile) {
  const std::string path = Make("w.bin", {});
  kpztest::FaultGuard guard;
  {
    DtNlFileIo io;
    ASSERT_EQ(io.Open(path.c_str(), "rb+"), 0);
    const UINT8 bytes[2] = {0xCA, 0xFE};
    EXPECT_EQ(io.WriteU8(bytes, 2u), 2u);
    kpztest::ResetCounts();
  }
  EXPECT_EQ(kpztest::CallCount(Call::Fclose), 1);
  EXPECT_EQ(Contents(path), std::vector<UINT8>({0xCA, 0xFE}));
}

TEST_F(DtNlFileIoTest, EveryOperationOnAClosedChannelWarnsThatTheHandleIsNull) {
  DtNlFileIo io;
  UINT8 byte = 0;
  std::string err = Captured([&] {
    EXPECT_EQ(io.ReadU8(&byte, 1u), 0u);
    EXPECT_EQ(io.WriteU8(&byte, 1u), 0u);
    EXPECT_EQ(io.Seek(0, DtNlIoSeekSet), -1);
    EXPECT_EQ(io.Tell(), -1);
    EXPECT_EQ(io.Tell64(), -1LL);
    EXPECT_EQ(io.Flush(), -1);
    EXPECT_EQ(io.Sync(), -1);
    EXPECT_EQ(io.IsEof(), 0);
    EXPECT_EQ(io.Close(), 0);
  });
  EXPECT_EQ(err, Warn("ReadU8", 115) + Warn("WriteU8", 238) + Warn("Seek", 257) +
                     Warn("Tell", 280) + Warn("Tell64", 298) + Warn("Flush", 318) +
                     Warn("Sync", 336) + Warn("IsEof", 359));
  ExpectStatus(io, DtNlErrNone, 0);
}

// ------------------------------------------------------------- AdviseReadOnly

TEST_F(DtNlFileIoTest, AdviseReadOnlyOnAClosedChannelFailsWithoutCallLogOrStatus) {
  kpztest::FaultGuard guard;
  DtNlFileIo io;
  int result = 0;
  std::string err = Captured([&] { result = io.AdviseReadOnly(0, 100); });
  EXPECT_EQ(result, -1);
  EXPECT_EQ(err, "");
  EXPECT_TRUE(kpztest::FadviseCalls().empty());
  ExpectStatus(io, DtNlErrNone, 0);
}

TEST_F(DtNlFileIoTest, AdviseReadOnlyTurnsReadaheadOffAndAsksForExactlyTheRange) {
  const std::vector<UINT8> bytes = Pattern(10000);
  const std::string path = Make("a.bin", bytes);
  DtNlFileIo io;
  ASSERT_EQ(io.Open(path.c_str(), "rb"), 0);
  kpztest::FaultGuard guard;
  int result = -1;
  std::string err = Captured([&] { result = io.AdviseReadOnly(3000, 5000); });
  EXPECT_EQ(result, 0);
  EXPECT_EQ(err, "");
  const std::vector<kpztest::FadviseCall> calls = kpztest::FadviseCalls();
  ASSERT_EQ(calls.size(), 2u);
  EXPECT_GE(calls[0].fd, 0);
  EXPECT_EQ(calls[0].offset, 0);
  EXPECT_EQ(calls[0].length, 0);  // the whole file
  EXPECT_EQ(calls[0].advice, POSIX_FADV_RANDOM);
  EXPECT_EQ(calls[1].fd, calls[0].fd);
  EXPECT_EQ(calls[1].offset, 3000);
  EXPECT_EQ(calls[1].length, 5000);
  EXPECT_EQ(calls[1].advice, POSIX_FADV_WILLNEED);
  // The position is untouched: the read still starts where the channel stands.
  EXPECT_EQ(io.Tell(), 0);
  std::vector<UINT8> got(10000);
  EXPECT_EQ(io.ReadU8(got.data(), 10000u), 10000u);
  EXPECT_EQ(got, bytes);
  ExpectStatus(io, DtNlErrNone, 0);
}

TEST_F(DtNlFileIoTest, AdviseReadOnlyOfNoBytesAsksForNoRange) {
  // posix_fadvise takes a length of 0 as "to the end of the file".
  const std::string path = Make("a.bin", Pattern(100));
  DtNlFileIo io;
  ASSERT_EQ(io.Open(path.c_str(), "rb"), 0);
  kpztest::FaultGuard guard;
  EXPECT_EQ(io.AdviseReadOnly(50, 0), 0);
  const std::vector<kpztest::FadviseCall> calls = kpztest::FadviseCalls();
  ASSERT_EQ(calls.size(), 1u);
  EXPECT_EQ(calls[0].advice, POSIX_FADV_RANDOM);
}

TEST_F(DtNlFileIoTest, AdviseReadOnlyOutsideTheFileOffsetsIsNotPassedOn) {
  const std::string path = Make("a.bin", Pattern(100));
  DtNlFileIo io;
  ASSERT_EQ(io.Open(path.c_str(), "rb"), 0);
  kpztest::FaultGuard guard;
  EXPECT_EQ(io.AdviseReadOnly(-1, 10), -1);
  EXPECT_EQ(io.AdviseReadOnly(0x80000000LL, 10), -1);
  EXPECT_EQ(io.AdviseReadOnly(0, -5), -1);
  EXPECT_EQ(io.AdviseReadOnly(0, 0x80000000LL), -1);
  EXPECT_TRUE(kpztest::FadviseCalls().empty());
  // A range reaching past the last 32-bit offset is cut there.
  EXPECT_EQ(io.AdviseReadOnly(0x7FFFFF00LL, 0x1000), 0);
  const std::vector<kpztest::FadviseCall> calls = kpztest::FadviseCalls();
  ASSERT_EQ(calls.size(), 2u);
  EXPECT_EQ(calls[1].offset, 0x7FFFFF00LL);
  EXPECT_EQ(calls[1].length, 0xFFLL);
  ExpectStatus(io, DtNlErrNone, 0);
}

TEST_F(DtNlFileIoTest, RefusedHintChangesNothingElse) {
  const std::vector<UINT8> bytes = Pattern(10000);
  const std::string path = Make("a.bin", bytes);
  for (int skip = 0; skip < 2; ++skip) {  // RANDOM refused, then WILLNEED refused
    DtNlFileIo io;
    ASSERT_EQ(io.Open(path.c_str(), "rb"), 0);
    ASSERT_EQ(io.SetUnbuffered(), 0);
    ASSERT_EQ(io.Seek(3000, DtNlIoSeekSet), 0);
    kpztest::FaultGuard guard;
    int result = 0;
    int errnoAfter = 0;
    std::string err = Captured([&] {
      kpztest::Arm(Call::Fadvise, skip == 0 ? EINVAL : ENOSYS, skip);
      errno = 1234;
      result = io.AdviseReadOnly(3000, 5000);
      errnoAfter = errno;
    });
    EXPECT_EQ(result, -1) << "skip " << skip;
    EXPECT_EQ(errnoAfter, 1234) << "skip " << skip;
    EXPECT_EQ(err, "");
    EXPECT_EQ(kpztest::CallCount(Call::Fadvise), skip + 1);
    ExpectStatus(io, DtNlErrNone, 0);
    std::vector<UINT8> got(5000);
    EXPECT_EQ(io.ReadU8(got.data(), 5000u), 5000u);
    EXPECT_EQ(got, std::vector<UINT8>(bytes.begin() + 3000, bytes.begin() + 8000));
    EXPECT_EQ(io.Tell(), 8000);
    ExpectStatus(io, DtNlErrNone, 0);
  }
}

// ------------------------------------------------------------------ ReadU8At

TEST_F(DtNlFileIoTest, ReadAtReadsTheRangeAndLeavesThePositionWhereItWas) {
  const std::vector<UINT8> bytes = Pattern(10000);
  const std::string path = Make("a.bin", bytes);
  DtNlFileIo io;
  ASSERT_EQ(io.Open(path.c_str(), "rb"), 0);
  ASSERT_EQ(io.SetUnbuffered(), 0);
  ASSERT_EQ(io.Seek(100, DtNlIoSeekSet), 0);
  std::vector<UINT8> got(5000);
  std::string err = Captured([&] { EXPECT_EQ(io.ReadU8At(3000, got.data(), 5000u), 5000u); });
  EXPECT_EQ(err, "");
  EXPECT_EQ(got, std::vector<UINT8>(bytes.begin() + 3000, bytes.begin() + 8000));
  EXPECT_EQ(io.GetDeliveredCount(), 5000u);
  EXPECT_EQ(io.Tell(), 100);
  std::vector<UINT8> next(10);
  EXPECT_EQ(io.ReadU8(next.data(), 10u), 10u);
  EXPECT_EQ(next, std::vector<UINT8>(bytes.begin() + 100, bytes.begin() + 110));
  ExpectStatus(io, DtNlErrNone, 0);
}

TEST_F(DtNlFileIoTest, ReadAtPastTheEndReturnsTheShortCountWithoutError) {
  const std::vector<UINT8> bytes = Pattern(1000);
  const std::string path = Make("a.bin", bytes);
  DtNlFileIo io;
  ASSERT_EQ(io.Open(path.c_str(), "rb"), 0);
  std::vector<UINT8> got(500, 0xEE);
  EXPECT_EQ(io.ReadU8At(800, got.data(), 500u), 200u);
  EXPECT_EQ(io.GetDeliveredCount(), 200u);
  EXPECT_EQ(std::vector<UINT8>(got.begin(), got.begin() + 200),
            std::vector<UINT8>(bytes.begin() + 800, bytes.end()));
  EXPECT_EQ(got[200], 0xEE);  // nothing written past what arrived
  EXPECT_EQ(io.ReadU8At(5000, got.data(), 500u), 0u);
  ExpectStatus(io, DtNlErrNone, 0);
}

TEST_F(DtNlFileIoTest, ReadAtWithoutAFileOrOutsideTheOffsetsReadsNothingSilently) {
  const std::string path = Make("a.bin", Pattern(100));
  std::vector<UINT8> got(10);
  DtNlFileIo closed;
  std::string err = Captured([&] { EXPECT_EQ(closed.ReadU8At(0, got.data(), 10u), 0u); });
  EXPECT_EQ(err, "");
  ExpectStatus(closed, DtNlErrNone, 0);
  DtNlFileIo io;
  ASSERT_EQ(io.Open(path.c_str(), "rb"), 0);
  kpztest::FaultGuard guard;
  EXPECT_EQ(io.ReadU8At(-1, got.data(), 10u), 0u);
  EXPECT_EQ(io.ReadU8At(0x80000000LL, got.data(), 10u), 0u);
  EXPECT_EQ(io.ReadU8At(0, nullptr, 10u), 0u);
  EXPECT_EQ(kpztest::CallCount(Call::Pread) + kpztest::CallCount(Call::Preadv2), 0);
  ExpectStatus(io, DtNlErrNone, 0);
  EXPECT_EQ(io.ReadU8At(0, got.data(), 10u), 10u);  // still open
}

TEST_F(DtNlFileIoTest, ReadAtOfBytesInMemoryIsOneCallWithoutHints) {
  const std::vector<UINT8> bytes = Pattern(10000);
  const std::string path = Make("a.bin", bytes);
  if (!kpztest::ReadsWithoutWaiting(path)) {
    GTEST_SKIP() << "no reads without waiting here: every read is made as from a cold disk";
  }
  DtNlFileIo io;
  ASSERT_EQ(io.Open(path.c_str(), "rb"), 0);
  kpztest::FaultGuard guard;
  std::vector<UINT8> got(4000);
  EXPECT_EQ(io.ReadU8At(1000, got.data(), 4000u), 4000u);
  EXPECT_EQ(got, std::vector<UINT8>(bytes.begin() + 1000, bytes.begin() + 5000));
  EXPECT_EQ(kpztest::CallCount(Call::Preadv2), 1);
  EXPECT_EQ(kpztest::CallCount(Call::Pread), 0);
  EXPECT_TRUE(kpztest::FadviseCalls().empty());
}

TEST_F(DtNlFileIoTest, ReadAtFromADiskTurnsReadaheadOffThenReadsTheRange) {
  const std::vector<UINT8> bytes = Pattern(10000);
  const std::string path = Make("a.bin", bytes);
  DtNlFileIo io;
  ASSERT_EQ(io.Open(path.c_str(), "rb"), 0);
  kpztest::FaultGuard guard;
  kpztest::Arm(Call::Preadv2, EAGAIN, 0, 100);  // nothing in memory, as on a cold disk
  std::vector<UINT8> got(4000);
  EXPECT_EQ(io.ReadU8At(1000, got.data(), 4000u), 4000u);
  EXPECT_EQ(got, std::vector<UINT8>(bytes.begin() + 1000, bytes.begin() + 5000));
  const std::vector<kpztest::FadviseCall> calls = kpztest::FadviseCalls();
  ASSERT_EQ(calls.size(), 1u);
  EXPECT_EQ(calls[0].offset, 0);
  EXPECT_EQ(calls[0].length, 0);
  EXPECT_EQ(calls[0].advice, POSIX_FADV_RANDOM);
  EXPECT_EQ(kpztest::CallCount(Call::Pread), 1);
  ExpectStatus(io, DtNlErrNone, 0);
}

TEST_F(DtNlFileIoTest, ReadAtErrorRecordsItsCodeAndClosesSilently) {
  const std::string path = Make("a.bin", Pattern(10000));
  for (const int code : {EIO, EBADF}) {
    DtNlFileIo io;
    ASSERT_EQ(io.Open(path.c_str(), "rb"), 0);
    kpztest::FaultGuard guard;
    std::vector<UINT8> got(4000);
    UINT result = 1;
    std::string err = Captured([&] {
      kpztest::Arm(Call::Pread, code);
      result = io.ReadU8At(0, got.data(), 4000u);
    });
    EXPECT_EQ(result, 0u);
    EXPECT_EQ(err, "");
    ExpectStatus(io, code == EIO ? DtNlErrIo : DtNlErrRead, code);
    EXPECT_EQ(io.ReadU8At(0, got.data(), 4000u), 0u);  // closed
  }
}

TEST_F(DtNlFileIoTest, ReadAtIntoMemoryTheSystemCannotWriteGoesThroughTheBounceBuffer) {
  const std::vector<UINT8> bytes = Pattern(10000);
  const std::string path = Make("a.bin", bytes);
  DtNlFileIo io;
  ASSERT_EQ(io.Open(path.c_str(), "rb"), 0);
  ASSERT_EQ(io.SetUnbuffered(), 0);
  kpztest::FaultGuard guard;
  std::vector<UINT8> got(4000);
  UINT result = 0;
  std::string err = Captured([&] {
    kpztest::Arm(Call::Pread, EFAULT);
    kpztest::Arm(Call::Fread, EFAULT, 0, 1, 0);
    result = io.ReadU8At(2000, got.data(), 4000u);
  });
  EXPECT_EQ(result, 4000u);
  EXPECT_EQ(err, "");
  EXPECT_EQ(got, std::vector<UINT8>(bytes.begin() + 2000, bytes.begin() + 6000));
  ExpectStatus(io, DtNlErrNone, 0);
}

TEST_F(DtNlFileIoTest, ReadAtOfAPipeReadsWhereItStands) {
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  const std::string text = "bytes through a pipe";
  ASSERT_EQ(write(fds[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
  const std::string path = "/dev/fd/" + std::to_string(fds[0]);
  DtNlFileIo io;
  // Opened while the pipe has a writer (no wait), which then goes: the read ends.
  ASSERT_EQ(io.Open(path.c_str(), "rb"), 0);
  close(fds[1]);
  close(fds[0]);  // the channel has its own descriptor
  std::vector<UINT8> got(100);
  EXPECT_EQ(io.ReadU8At(0, got.data(), 100u), text.size());
  EXPECT_EQ(std::string(got.begin(), got.begin() + static_cast<long>(text.size())), text);
  ExpectStatus(io, DtNlErrNone, 0);
}

}  // namespace
