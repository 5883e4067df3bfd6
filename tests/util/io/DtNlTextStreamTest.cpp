// DtNlTextStreamTest.cpp - the text stream: line reads with LF, CR LF and lone
// CR ends, lines longer than the buffer, line writes with each line end (each
// run over a memory channel and over a file channel), channels failing part
// way through a read, a push-back or a write, the sticky channel status, and
// the rules by which the stream replaces, keeps or lends its channel.
#include "util/io/DtNlTextStream.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "support/FaultInjection.h"
#include "support/LogExpect.h"
#include "util/DtNlString.h"
#include "util/io/DtNlBuffIo.h"
#include "util/io/DtNlFile.h"
#include "util/io/DtNlFileIo.h"
#include "util/io/DtNlIo.h"

namespace {

using kpztest::Call;

const char* const kFileIoSrc = "jni/util/io/DtNlFileIo.cpp";

// A per-test directory under /tmp, removed with everything in it.
class TempDir {
 public:
  TempDir() {
    char pattern[] = "/tmp/kpz_textstream_XXXXXX";
    if (mkdtemp(pattern) != nullptr) {
      path_ = pattern;
    }
  }
  ~TempDir() {
    std::error_code ec;
    if (!path_.empty()) {
      std::filesystem::remove_all(path_, ec);
    }
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  bool Ok() const { return !path_.empty(); }

  std::string Make(const std::string& name, const std::string& text) const {
    const std::string path = path_ + "/" + name;
    std::ofstream out(path, std::ios::binary);
    out.write(text.data(), static_cast<std::streamsize>(text.size()));
    return path;
  }

  std::string PathOf(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

std::string Contents(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Runs `body` with standard error captured; faults are disarmed before the
// capture ends, since the capture itself reads a file through stdio.
template <typename F>
std::string CaptureWithFaults(F body) {
  return kpztest::CaptureStderr([&] {
    body();
    kpztest::DisarmAll();
  });
}

using Line = std::pair<std::string, unsigned int>;

// Reads lines of at most size - 1 characters until ReadLine returns 0; the
// final empty read is included. Bounded by `limit` calls.
std::vector<Line> ReadAll(DtNlTextStream& ts, unsigned int size, int limit = 64) {
  std::vector<Line> lines;
  std::vector<char> buf(size, 'Z');
  for (int i = 0; i < limit; ++i) {
    const unsigned int count = ts.ReadLine(buf.data(), size);
    lines.emplace_back(std::string(buf.data()), count);
    if (count == 0) {
      break;
    }
  }
  return lines;
}

enum class Channel { Memory, File };

// Every reading and writing test runs over a memory block and over a file.
class DtNlTextStreamOverEitherChannel : public testing::TestWithParam<Channel> {
 protected:
  // Opens `ts` for reading over `text`.
  void OpenForReading(DtNlTextStream& ts, const std::string& text) {
    if (GetParam() == Channel::Memory) {
      block_.assign(text.begin(), text.end());
      ASSERT_EQ(ts.Open(block_.data(), static_cast<unsigned int>(block_.size())), 0);
      return;
    }
    ASSERT_TRUE(dir_.Ok());
    const std::string path = dir_.Make("in.txt", text);
    ASSERT_EQ(ts.Open(path.c_str(), "rb"), 0);
  }

  // Opens `ts` for writing: a zeroed block of `room` bytes, or a new file.
  void OpenForWriting(DtNlTextStream& ts, std::size_t room) {
    if (GetParam() == Channel::Memory) {
      block_.assign(room, 0);
      ASSERT_EQ(ts.Open(block_.data(), static_cast<unsigned int>(block_.size())), 0);
      return;
    }
    ASSERT_TRUE(dir_.Ok());
    ASSERT_EQ(ts.Open(dir_.PathOf("out.txt").c_str(), "wb"), 0);
  }

  // What has been written so far (the file is closed first).
  std::string Written(DtNlTextStream& ts) {
    if (GetParam() == Channel::Memory) {
      return std::string(block_.begin(), block_.end()).c_str();
    }
    ts.GetIo()->Close();
    return Contents(dir_.PathOf("out.txt"));
  }

  TempDir dir_;
  std::vector<UINT8> block_;
};

TEST_P(DtNlTextStreamOverEitherChannel, ReadsCrLfLoneCrAndLfLinesCountingTheirEnds) {
  DtNlTextStream ts;
  OpenForReading(ts, "ab\r\ncd\ref\ngh");
  EXPECT_EQ(ReadAll(ts, 16),
            (std::vector<Line>{{"ab", 4}, {"cd", 3}, {"ef", 3}, {"gh", 2}, {"", 0}}));
}

TEST_P(DtNlTextStreamOverEitherChannel, EmptyLinesReturnTheLengthOfTheirLineEnd) {
  DtNlTextStream ts;
  OpenForReading(ts, "\n\r\n\r\rx");
  EXPECT_EQ(ReadAll(ts, 8),
            (std::vector<Line>{{"", 1}, {"", 2}, {"", 1}, {"", 1}, {"x", 1}, {"", 0}}));
}

TEST_P(DtNlTextStreamOverEitherChannel, LongLineComesBackInPiecesOfSizeMinusOne) {
  DtNlTextStream ts;
  OpenForReading(ts, "abcdefghij\nk\n");
  EXPECT_EQ(ReadAll(ts, 4),
            (std::vector<Line>{{"abc", 3}, {"def", 3}, {"ghi", 3}, {"j", 2}, {"k", 2}, {"", 0}}));
}

TEST_P(DtNlTextStreamOverEitherChannel, LineEndRightAfterAFullPieceReadsAsAnEmptyLine) {
  DtNlTextStream ts;
  OpenForReading(ts, "abc\r\nd");
  EXPECT_EQ(ReadAll(ts, 4), (std::vector<Line>{{"abc", 3}, {"", 2}, {"d", 1}, {"", 0}}));
}

TEST_P(DtNlTextStreamOverEitherChannel, LoneCrAtTheEndOfDataEndsTheLastLine) {
  DtNlTextStream ts;
  OpenForReading(ts, "ab\r");
  EXPECT_EQ(ReadAll(ts, 16), (std::vector<Line>{{"ab", 3}, {"", 0}}));
}

TEST_P(DtNlTextStreamOverEitherChannel, SizeTwoReadsOneCharacterAtATime) {
  DtNlTextStream ts;
  OpenForReading(ts, "ab\n");
  EXPECT_EQ(ReadAll(ts, 2), (std::vector<Line>{{"a", 1}, {"b", 1}, {"", 1}, {"", 0}}));
}

TEST_P(DtNlTextStreamOverEitherChannel, EmptyDataGivesAnEmptyLineAndZero) {
  DtNlTextStream ts;
  OpenForReading(ts, "");
  EXPECT_EQ(ReadAll(ts, 16), (std::vector<Line>{{"", 0}}));
}

TEST_P(DtNlTextStreamOverEitherChannel, StringReadTakesAtMostSizeCharacters) {
  DtNlTextStream ts;
  OpenForReading(ts, "hello\r\nworld");
  DtNlString line("old");
  EXPECT_EQ(ts.ReadLine(&line, 3), 3u);
  EXPECT_STREQ(line.text, "hel");
  EXPECT_EQ(ts.ReadLine(&line, 3), 4u);
  EXPECT_STREQ(line.text, "lo");
  EXPECT_EQ(ts.ReadLine(&line, 16), 5u);
  EXPECT_STREQ(line.text, "world");
  EXPECT_EQ(ts.ReadLine(&line, 16), 0u);
  EXPECT_STREQ(line.text, "");
  EXPECT_EQ(line.length, 0u);
}

TEST_P(DtNlTextStreamOverEitherChannel, WriteLineAppendsCrLfByDefault) {
  DtNlTextStream ts;
  OpenForWriting(ts, 16);
  EXPECT_EQ(ts.GetLineEnd(), DtNlTextStream::LINE_END_CRLF);
  EXPECT_EQ(ts.WriteLine("x", 1), 3u);
  EXPECT_EQ(ts.WriteLine("yz", 2), 4u);
  EXPECT_EQ(Written(ts), "x\r\nyz\r\n");
}

TEST_P(DtNlTextStreamOverEitherChannel, WriteLineUsesTheChosenLineEnd) {
  DtNlTextStream ts;
  OpenForWriting(ts, 16);
  ts.SetLineEnd(DtNlTextStream::LINE_END_CR);
  EXPECT_EQ(ts.WriteLine("a", 1), 2u);
  ts.SetLineEnd(DtNlTextStream::LINE_END_LF);
  EXPECT_EQ(ts.WriteLine("b", 1), 2u);
  ts.SetLineEnd(7);  // any other value also means LF
  EXPECT_EQ(ts.WriteLine("c", 1), 2u);
  ts.SetLineEnd(DtNlTextStream::LINE_END_CRLF);
  EXPECT_EQ(ts.WriteLine("d", 1), 3u);
  EXPECT_EQ(Written(ts), "a\rb\nc\nd\r\n");
}

TEST_P(DtNlTextStreamOverEitherChannel, WriteLineOfZeroLengthWritesNothing) {
  DtNlTextStream ts;
  OpenForWriting(ts, 16);
  EXPECT_EQ(ts.WriteLine("", 0), 0u);
  EXPECT_EQ(ts.WriteLine("abc", 0), 0u);
  EXPECT_EQ(ts.WriteLine("q", 1), 3u);
  EXPECT_EQ(Written(ts), "q\r\n");
}

TEST_P(DtNlTextStreamOverEitherChannel, WrittenLinesReadBackWithEveryLineEnd) {
  DtNlTextStream writer;
  OpenForWriting(writer, 64);
  writer.WriteLine("first", 5);
  writer.SetLineEnd(DtNlTextStream::LINE_END_CR);
  writer.WriteLine("second", 6);
  writer.SetLineEnd(DtNlTextStream::LINE_END_LF);
  writer.WriteLine("third", 5);
  const std::string text = Written(writer);
  DtNlTextStream reader;
  OpenForReading(reader, text);
  EXPECT_EQ(ReadAll(reader, 32),
            (std::vector<Line>{{"first", 7}, {"second", 7}, {"third", 6}, {"", 0}}));
}

INSTANTIATE_TEST_SUITE_P(MemoryAndFile, DtNlTextStreamOverEitherChannel,
                         testing::Values(Channel::Memory, Channel::File),
                         [](const testing::TestParamInfo<Channel>& param) {
                           return param.param == Channel::Memory ? "Memory" : "File";
                         });

TEST(DtNlTextStream, BuffersTooSmallForACharacterReadNothing) {
  const unsigned char text[] = {'a', '\n'};
  DtNlTextStream ts;
  ASSERT_EQ(ts.Open(text, 2), 0);
  char buf[2] = {'Q', 'Q'};
  EXPECT_EQ(ts.ReadLine(buf, 1), 0u);
  EXPECT_EQ(buf[0], 0);
  EXPECT_EQ(buf[1], 'Q');
  buf[0] = 'Q';
  EXPECT_EQ(ts.ReadLine(buf, 0), 0u);
  EXPECT_EQ(buf[0], 'Q');
  EXPECT_EQ(ts.ReadLine(static_cast<char*>(nullptr), 8), 0u);
  EXPECT_EQ(ts.ReadLine(static_cast<DtNlString*>(nullptr), 8), 0u);
  // Nothing was consumed.
  EXPECT_EQ(ts.ReadLine(buf, 2), 1u);
  EXPECT_EQ(buf[0], 'a');
}

TEST(DtNlTextStream, StringReadOfSizeZeroTakesNothing) {
  const unsigned char text[] = {'a', '\n'};
  DtNlTextStream ts;
  ASSERT_EQ(ts.Open(text, 2), 0);
  DtNlString line("old");
  EXPECT_EQ(ts.ReadLine(&line, 0), 0u);
  EXPECT_STREQ(line.text, "");
  EXPECT_EQ(ts.ReadLine(&line, 4), 2u);
  EXPECT_STREQ(line.text, "a");
}

TEST(DtNlTextStream, StringReadOfTheLargestSizeIsRefused) {
  const unsigned char text[] = {'a', '\n'};
  DtNlTextStream ts;
  ASSERT_EQ(ts.Open(text, 2), 0);
  DtNlString line("old");
  EXPECT_EQ(ts.ReadLine(&line, 0xFFFFFFFFu), 0u);
  EXPECT_STREQ(line.text, "old");
}

TEST(DtNlTextStream, WriteLineWithNullTextWritesNothing) {
  UINT8 block[8] = {};
  DtNlTextStream ts;
  ASSERT_EQ(ts.Open(block, 8), 0);
  EXPECT_EQ(ts.WriteLine(nullptr, 3), 0u);
  EXPECT_EQ(ts.GetIo()->Tell(), 0);
}

TEST(DtNlTextStream, MemoryBlockThatFillsUpGivesAShortCountWithoutError) {
  UINT8 block[4] = {};
  DtNlTextStream ts;
  ASSERT_EQ(ts.Open(block, 4), 0);
  EXPECT_EQ(ts.WriteLine("abc", 3), 4u);  // "abc" and the CR; the LF does not fit
  EXPECT_EQ(std::string(block, block + 4), "abc\r");
  EXPECT_EQ(ts.WriteLine("d", 1), 0u);
  EXPECT_FALSE(ts.GetIo()->GetStatus().IsFailure());
}

TEST(DtNlTextStream, StickyChannelErrorMakesASuccessfulWriteReportZeroUntilReopened) {
  UINT8 block[16] = {};
  DtNlTextStream ts;
  ASSERT_EQ(ts.Open(block, 16), 0);
  EXPECT_EQ(ts.Open(block, 16), -1);  // already open: the error sticks
  EXPECT_EQ(ts.GetIo()->GetStatus().errCode, DtNlErrAlreadyOpen);
  // The text does go out, but the error is seen before the line end is written.
  EXPECT_EQ(ts.WriteLine("ab", 2), 0u);
  EXPECT_EQ(std::string(block, block + 4), std::string("ab\0\0", 4));
  ts.GetIo()->Close();
  ASSERT_EQ(ts.Open(block, 16), 0);
  EXPECT_EQ(ts.WriteLine("cd", 2), 4u);
  EXPECT_EQ(std::string(block, block + 4), "cd\r\n");
}

TEST(DtNlTextStream, StickyChannelErrorMakesTheEndOfDataAndEveryStringReadZero) {
  const unsigned char text[] = {'a', 'b', '\n', 'c', 'd', '\n', 'e'};
  DtNlBuffIo io;
  ASSERT_EQ(io.Open(text, 7), 0);
  ASSERT_EQ(io.Open(text, 7), -1);  // the error sticks; the block stays attached
  DtNlTextStream ts(&io);
  char buf[16];
  // A line that ends in a line end is still delivered into a buffer...
  EXPECT_EQ(ts.ReadLine(buf, 16), 3u);
  EXPECT_STREQ(buf, "ab");
  // ...a string read reports the error and keeps the string...
  DtNlString line("old");
  EXPECT_EQ(ts.ReadLine(&line, 16), 0u);
  EXPECT_STREQ(line.text, "old");
  // ...and meeting the end of data reports it too.
  EXPECT_EQ(ts.ReadLine(buf, 16), 0u);
}

TEST(DtNlTextStream, FileReadFailingPartWayReturnsZeroAndClosesTheChannel) {
  TempDir dir;
  ASSERT_TRUE(dir.Ok());
  const std::string path = dir.Make("in.txt", "ab\ncdef\ngh\n");
  kpztest::FaultGuard guard;
  DtNlTextStream ts;
  ASSERT_EQ(ts.Open(path.c_str(), "rb"), 0);
  char buf[16];
  ASSERT_EQ(ts.ReadLine(buf, 16), 3u);
  unsigned int failed = 99;
  std::string err = CaptureWithFaults([&] {
    kpztest::Arm(Call::Fread, EIO, 2);  // 'c' and 'd' come, then the read fails
    failed = ts.ReadLine(buf, 16);
  });
  EXPECT_EQ(failed, 0u);
  EXPECT_EQ(err, "");  // the channel logs nothing for a failed first read
  EXPECT_EQ(ts.GetIo()->GetStatus().errCode, DtNlErrIo);
  EXPECT_EQ(ts.GetIo()->GetStatus().sysErrNo, EIO);
  // The channel is closed: later reads fail too.
  err = kpztest::CaptureStderr([&] { failed = ts.ReadLine(buf, 16); });
  EXPECT_EQ(failed, 0u);
  EXPECT_EQ(err, kpztest::WarnLine(kFileIoSrc, "ReadU8", 115, "handle is null"));
}

TEST(DtNlTextStream, FileReadFailingAfterACrReturnsZero) {
  TempDir dir;
  ASSERT_TRUE(dir.Ok());
  const std::string path = dir.Make("in.txt", "ab\r\n");
  kpztest::FaultGuard guard;
  DtNlTextStream ts;
  ASSERT_EQ(ts.Open(path.c_str(), "rb"), 0);
  char buf[16];
  unsigned int got = 99;
  CaptureWithFaults([&] {
    kpztest::Arm(Call::Fread, EACCES, 3);  // a, b and CR come; the byte after fails
    got = ts.ReadLine(buf, 16);
  });
  EXPECT_EQ(got, 0u);
  EXPECT_EQ(ts.GetIo()->GetStatus().errCode, DtNlErrRead);
}

TEST(DtNlTextStream, PushBackFailingAfterALoneCrReturnsZero) {
  TempDir dir;
  ASSERT_TRUE(dir.Ok());
  const std::string path = dir.Make("in.txt", "ab\rcd\n");
  kpztest::FaultGuard guard;
  DtNlTextStream ts;
  ASSERT_EQ(ts.Open(path.c_str(), "rb"), 0);
  char buf[16];
  unsigned int got = 99;
  std::string err = CaptureWithFaults([&] {
    kpztest::Arm(Call::Fseek, EIO);
    got = ts.ReadLine(buf, 16);
  });
  EXPECT_EQ(got, 0u);
  EXPECT_EQ(err, kpztest::ErrLine(kFileIoSrc, "Seek", 267, "fseek err(5)."));
  EXPECT_EQ(ts.GetIo()->GetStatus().errCode, DtNlErrIo);
}

TEST(DtNlTextStream, FileWriteFailingReturnsZeroAndLaterWritesStayFailed) {
  TempDir dir;
  ASSERT_TRUE(dir.Ok());
  kpztest::FaultGuard guard;
  DtNlTextStream ts;
  ASSERT_EQ(ts.Open(dir.PathOf("out.txt").c_str(), "wb"), 0);
  unsigned int got = 99;
  std::string err = CaptureWithFaults([&] {
    kpztest::Arm(Call::Fwrite, EIO);
    got = ts.WriteLine("abc", 3);
  });
  EXPECT_EQ(got, 0u);
  EXPECT_EQ(err, kpztest::ErrLine(kFileIoSrc, "WriteU8", 243, "fwrite err(5)."));
  EXPECT_EQ(ts.GetIo()->GetStatus().errCode, DtNlErrIo);
  err = kpztest::CaptureStderr([&] { got = ts.WriteLine("def", 3); });
  EXPECT_EQ(got, 0u);
  // The text write fails on the closed channel; the line end is not tried.
  EXPECT_EQ(err, kpztest::WarnLine(kFileIoSrc, "WriteU8", 238, "handle is null"));
}

TEST(DtNlTextStream, FileWriteOfTheLineEndFailingReturnsZero) {
  TempDir dir;
  ASSERT_TRUE(dir.Ok());
  kpztest::FaultGuard guard;
  DtNlTextStream ts;
  ASSERT_EQ(ts.Open(dir.PathOf("out.txt").c_str(), "wb"), 0);
  unsigned int got = 99;
  std::string err = CaptureWithFaults([&] {
    kpztest::Arm(Call::Fwrite, ENOSPC, 1);  // the text goes out, the line end fails
    got = ts.WriteLine("abc", 3);
  });
  EXPECT_EQ(got, 0u);
  EXPECT_EQ(err, kpztest::ErrLine(kFileIoSrc, "WriteU8", 243,
                                  "fwrite err(" + std::to_string(ENOSPC) + ")."));
  EXPECT_EQ(ts.GetIo()->GetStatus().errCode, DtNlErrWrite);
}

TEST(DtNlTextStream, MissingFileFailsToOpenAndReadsNothing) {
  TempDir dir;
  ASSERT_TRUE(dir.Ok());
  const std::string path = dir.PathOf("missing.txt");
  DtNlTextStream ts;
  int opened = 0;
  std::string err = kpztest::CaptureStderr([&] { opened = ts.Open(path.c_str(), "rb"); });
  EXPECT_EQ(opened, -1);
  EXPECT_EQ(err, kpztest::ErrLine(kFileIoSrc, "Open", 77,
                                  "fopen(filePath: " + path + ") err(2)."));
  EXPECT_EQ(ts.GetIo()->GetStatus().errCode, DtNlErrNotFound);
  char buf[8];
  unsigned int got = 99;
  err = kpztest::CaptureStderr([&] { got = ts.ReadLine(buf, 8); });
  EXPECT_EQ(got, 0u);
  EXPECT_EQ(err, kpztest::WarnLine(kFileIoSrc, "ReadU8", 115, "handle is null"));
}

TEST(DtNlTextStream, OpensAFileNamedByAPathObject) {
  TempDir dir;
  ASSERT_TRUE(dir.Ok());
  const std::string path = dir.Make("in.txt", "line\n");
  DtNlFile file(path.c_str());
  DtNlTextStream ts;
  ASSERT_EQ(ts.Open(file, "rb"), 0);
  char buf[16];
  EXPECT_EQ(ts.ReadLine(buf, 16), 5u);
  EXPECT_STREQ(buf, "line");
}

TEST(DtNlTextStream, DefaultStreamOwnsAFileChannel) {
  DtNlTextStream ts;
  ASSERT_NE(ts.GetIo(), nullptr);
  EXPECT_EQ(ts.GetIo()->GetKind(), DtNlIo::KIND_FILE);
  DtNlTextStream fromNull(nullptr);
  ASSERT_NE(fromNull.GetIo(), nullptr);
  EXPECT_EQ(fromNull.GetIo()->GetKind(), DtNlIo::KIND_FILE);
  EXPECT_EQ(fromNull.GetLineEnd(), DtNlTextStream::LINE_END_CRLF);
}

TEST(DtNlTextStream, OwningStreamSwitchesItsChannelToTheKindEachOpenNeeds) {
  TempDir dir;
  ASSERT_TRUE(dir.Ok());
  const std::string path = dir.Make("in.txt", "file\n");
  const unsigned char text[] = {'m', 'e', 'm', '\n'};
  DtNlTextStream ts;
  ASSERT_EQ(ts.Open(text, 4), 0);
  EXPECT_EQ(ts.GetIo()->GetKind(), DtNlIo::KIND_MEMORY);
  char buf[16];
  EXPECT_EQ(ts.ReadLine(buf, 16), 4u);
  EXPECT_STREQ(buf, "mem");
  ASSERT_EQ(ts.Open(path.c_str(), "rb"), 0);
  EXPECT_EQ(ts.GetIo()->GetKind(), DtNlIo::KIND_FILE);
  EXPECT_EQ(ts.ReadLine(buf, 16), 5u);
  EXPECT_STREQ(buf, "file");
  ASSERT_EQ(ts.Open(text, 4), 0);
  EXPECT_EQ(ts.GetIo()->GetKind(), DtNlIo::KIND_MEMORY);
  EXPECT_EQ(ts.ReadLine(buf, 16), 4u);
  EXPECT_STREQ(buf, "mem");
}

TEST(DtNlTextStream, OwnedFileChannelIsClosedWhenReplaced) {
  TempDir dir;
  ASSERT_TRUE(dir.Ok());
  const std::string path = dir.Make("in.txt", "x\n");
  const unsigned char text[] = {'m', '\n'};
  kpztest::FaultGuard guard;
  DtNlTextStream ts;
  ASSERT_EQ(ts.Open(path.c_str(), "rb"), 0);
  kpztest::ResetCounts();
  ASSERT_EQ(ts.Open(text, 2), 0);
  EXPECT_EQ(kpztest::CallCount(Call::Fclose), 1);
}

TEST(DtNlTextStream, LentMemoryChannelIsKeptAndRefusesAPath) {
  TempDir dir;
  ASSERT_TRUE(dir.Ok());
  const std::string path = dir.Make("in.txt", "x\n");
  DtNlBuffIo io;
  DtNlTextStream ts(&io);
  EXPECT_EQ(ts.GetIo(), &io);
  EXPECT_EQ(ts.Open(path.c_str(), "rb"), -1);
  EXPECT_EQ(ts.GetIo(), &io);
  EXPECT_EQ(io.GetStatus().errCode, DtNlErrNotSupported);
}

TEST(DtNlTextStream, LentFileChannelIsKeptRefusesABufferAndOutlivesTheStream) {
  TempDir dir;
  ASSERT_TRUE(dir.Ok());
  const std::string path = dir.Make("in.txt", "one\ntwo\n");
  const unsigned char text[] = {'m', '\n'};
  DtNlFileIo* io = new DtNlFileIo();
  ASSERT_EQ(io->Open(path.c_str(), "rb"), 0);
  {
    DtNlTextStream ts(io);
    char buf[16];
    EXPECT_EQ(ts.ReadLine(buf, 16), 4u);
    EXPECT_EQ(ts.Open(text, 2), -1);
    EXPECT_EQ(ts.GetIo(), io);
    EXPECT_EQ(io->GetStatus().errCode, DtNlErrNotSupported);
  }
  // The stream neither closed nor deleted the lent channel.
  UINT8 rest[4] = {};
  EXPECT_EQ(io->ReadU8(rest, 4), 4u);
  EXPECT_EQ(std::string(rest, rest + 4), "two\n");
  delete io;
}

}  // namespace
