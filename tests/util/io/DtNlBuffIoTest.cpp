// DtNlBuffIoTest.cpp - the memory channel: attaching a block, the clamping
// read/write rule and its end flag, seeking from every origin, tell, close and
// the silence of the channel.
#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "support/LogExpect.h"
#include "util/DtNlString.h"
#include "util/io/DtNlBuffIo.h"
#include "util/io/DtNlFile.h"

namespace {

std::vector<UINT8> Ten() { return {10, 11, 12, 13, 14, 15, 16, 17, 18, 19}; }

void ExpectStatus(const DtNlIo& io, DtNlErrCode code, int sysErrNo) {
  EXPECT_EQ(io.GetStatus().errCode, code);
  EXPECT_EQ(io.GetStatus().sysErrNo, sysErrNo);
}

// ------------------------------------------------------------- construction

TEST(DtNlBuffIo, NewChannelIsAnEmptyMemoryChannel) {
  DtNlBuffIo io;
  UINT8 byte = 0;
  EXPECT_EQ(io.GetKind(), DtNlIo::KIND_MEMORY);
  EXPECT_EQ(io.Tell(), 0);
  EXPECT_EQ(io.Tell64(), 0LL);
  EXPECT_EQ(io.IsEof(), 0);
  EXPECT_EQ(io.ReadU8(&byte, 1u), 0u);
  EXPECT_EQ(io.WriteU8(&byte, 1u), 0u);
  ExpectStatus(io, DtNlErrNone, 0);
}

// ---------------------------------------------------------------------- Open

TEST(DtNlBuffIo, OpenAttachesTheBlockAtPositionZero) {
  std::vector<UINT8> block = Ten();
  DtNlBuffIo io;
  EXPECT_EQ(io.Open(block.data(), 10u), 0);
  UINT8 got[3] = {};
  EXPECT_EQ(io.ReadU8(got, 3u), 3u);
  EXPECT_EQ(got[0], 10);
  EXPECT_EQ(got[2], 12);
  EXPECT_EQ(io.Tell(), 3);
  ExpectStatus(io, DtNlErrNone, 0);
}

TEST(DtNlBuffIo, OpenWhileABlockIsAttachedFailsAndKeepsTheFirstBlock) {
  std::vector<UINT8> first = Ten();
  std::vector<UINT8> second(4, 0x99);
  DtNlBuffIo io;
  ASSERT_EQ(io.Open(first.data(), 10u), 0);
  ASSERT_EQ(io.Seek(2, DtNlIoSeekSet), 0);
  errno = 0;
  EXPECT_EQ(io.Open(second.data(), 4u), -1);
  ExpectStatus(io, DtNlErrAlreadyOpen, 0);
  UINT8 got = 0;
  EXPECT_EQ(io.ReadU8(&got, 1u), 1u);
  EXPECT_EQ(got, 12);  // still the first block, at its old position
}

TEST(DtNlBuffIo, OpenAfterCloseAttachesTheNewBlock) {
  std::vector<UINT8> first = Ten();
  std::vector<UINT8> second(4, 0x99);
  DtNlBuffIo io;
  ASSERT_EQ(io.Open(first.data(), 10u), 0);
  EXPECT_EQ(io.Close(), 0);
  EXPECT_EQ(io.Open(second.data(), 4u), 0);
  UINT8 got = 0;
  EXPECT_EQ(io.ReadU8(&got, 1u), 1u);
  EXPECT_EQ(got, 0x99);
}

TEST(DtNlBuffIo, OpenResetsStatusEndFlagAndBaseOffset) {
  std::vector<UINT8> block = Ten();
  DtNlBuffIo io;
  ASSERT_EQ(io.Open(block.data(), 10u), 0);
  errno = EIO;
  io.Open(block.data(), 10u);  // records DtNlErrAlreadyOpen with errno 5
  io.SetBaseOffset(3);
  io.Seek(0, DtNlIoSeekEnd);
  ASSERT_EQ(io.IsEof(), 1);
  io.Close();
  EXPECT_EQ(io.Open(block.data(), 10u), 0);
  ExpectStatus(io, DtNlErrNone, 0);
  EXPECT_EQ(io.IsEof(), 0);
  EXPECT_EQ(io.GetBaseOffset(), 0);
}

TEST(DtNlBuffIo, PathOpensAreNotSupported) {
  DtNlBuffIo io;
  errno = 0;
  EXPECT_EQ(io.Open("/tmp/a.kpz", "rb"), -1);
  ExpectStatus(io, DtNlErrNotSupported, 0);
  EXPECT_EQ(io.Open(DtNlString("/tmp/a.kpz"), "rb"), -1);
  ExpectStatus(io, DtNlErrNotSupported, 0);
  EXPECT_EQ(io.Open(DtNlFile("/tmp/a.kpz"), "rb"), -1);
  ExpectStatus(io, DtNlErrNotSupported, 0);
}

TEST(DtNlBuffIo, NullBlockIsAcceptedAndTransfersNothing) {
  DtNlBuffIo io;
  EXPECT_EQ(io.Open(nullptr, 10u), 0);
  ExpectStatus(io, DtNlErrNone, 0);
  UINT8 byte = 0x42;
  EXPECT_EQ(io.ReadU8(&byte, 4u), 0u);
  EXPECT_EQ(io.WriteU8(&byte, 4u), 0u);
  EXPECT_EQ(byte, 0x42);
  EXPECT_EQ(io.Tell(), 0);
  EXPECT_EQ(io.IsEof(), 0);
  // A null block does not count as attached: a real block may follow.
  std::vector<UINT8> block = Ten();
  EXPECT_EQ(io.Open(block.data(), 10u), 0);
  EXPECT_EQ(io.ReadU8(&byte, 1u), 1u);
  EXPECT_EQ(byte, 10);
}

// -------------------------------------------------------------------- ReadU8

TEST(DtNlBuffIo, ReadThatReachesTheEndExactlySetsTheEndFlag) {
  std::vector<UINT8> block = Ten();
  DtNlBuffIo io;
  ASSERT_EQ(io.Open(block.data(), 10u), 0);
  ASSERT_EQ(io.Seek(6, DtNlIoSeekSet), 0);
  UINT8 got[4] = {};
  EXPECT_EQ(io.ReadU8(got, 4u), 4u);
  EXPECT_EQ(got[0], 16);
  EXPECT_EQ(got[3], 19);
  EXPECT_EQ(io.IsEof(), 1);
  EXPECT_EQ(io.ReadU8(got, 1u), 0u);
  EXPECT_EQ(io.Tell(), 10);
}

TEST(DtNlBuffIo, ReadShortOfTheEndLeavesTheEndFlagClear) {
  std::vector<UINT8> block = Ten();
  DtNlBuffIo io;
  ASSERT_EQ(io.Open(block.data(), 10u), 0);
  UINT8 got[9] = {};
  EXPECT_EQ(io.ReadU8(got, 9u), 9u);
  EXPECT_EQ(io.IsEof(), 0);
  EXPECT_EQ(io.Tell(), 9);
}

TEST(DtNlBuffIo, ReadPastTheEndIsClampedToWhatIsLeft) {
  std::vector<UINT8> block = Ten();
  DtNlBuffIo io;
  ASSERT_EQ(io.Open(block.data(), 10u), 0);
  ASSERT_EQ(io.Seek(7, DtNlIoSeekSet), 0);
  UINT8 got[8] = {0, 0, 0, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE};
  EXPECT_EQ(io.ReadU8(got, 8u), 3u);
  EXPECT_EQ(got[2], 19);
  EXPECT_EQ(got[3], 0xEE);
  EXPECT_EQ(io.IsEof(), 1);
}

TEST(DtNlBuffIo, HugeReadCountIsClampedWithoutWrapping) {
  std::vector<UINT8> block = Ten();
  DtNlBuffIo io;
  ASSERT_EQ(io.Open(block.data(), 10u), 0);
  ASSERT_EQ(io.Seek(6, DtNlIoSeekSet), 0);
  UINT8 got[4] = {};
  // 6 + 0xFFFFFFFF would wrap to 5 in 32 bits; the clamp still applies.
  EXPECT_EQ(io.ReadU8(got, 0xFFFFFFFFu), 4u);
  EXPECT_EQ(got[3], 19);
  EXPECT_EQ(io.IsEof(), 1);
  EXPECT_EQ(io.Tell(), 10);
}

TEST(DtNlBuffIo, ReadOfZeroBytesBeforeTheEndChangesNothing) {
  std::vector<UINT8> block = Ten();
  DtNlBuffIo io;
  ASSERT_EQ(io.Open(block.data(), 10u), 0);
  UINT8 got = 0;
  EXPECT_EQ(io.ReadU8(&got, 0u), 0u);
  EXPECT_EQ(io.IsEof(), 0);
  EXPECT_EQ(io.Tell(), 0);
}

TEST(DtNlBuffIo, ReadOfZeroBytesAtTheEndSetsTheEndFlag) {
  // An empty block is the one place where the position is at the end while
  // the flag is still clear (it is cleared by Open).
  std::vector<UINT8> none(1, 0x77);
  DtNlBuffIo io;
  ASSERT_EQ(io.Open(none.data(), 0u), 0);
  ASSERT_EQ(io.IsEof(), 0);
  UINT8 got = 0;
  EXPECT_EQ(io.ReadU8(&got, 0u), 0u);  // position 0 + 0 >= size 0
  EXPECT_EQ(io.IsEof(), 1);
  EXPECT_EQ(got, 0);
}

TEST(DtNlBuffIo, WriteOfZeroBytesAtTheEndSetsTheEndFlag) {
  std::vector<UINT8> none(1, 0x77);
  DtNlBuffIo io;
  ASSERT_EQ(io.Open(none.data(), 0u), 0);
  const UINT8 src = 1;
  EXPECT_EQ(io.WriteU8(&src, 0u), 0u);
  EXPECT_EQ(io.IsEof(), 1);
  EXPECT_EQ(none[0], 0x77);
}

TEST(DtNlBuffIo, ReadIntoNoDestinationChangesNothing) {
  std::vector<UINT8> block = Ten();
  DtNlBuffIo io;
  ASSERT_EQ(io.Open(block.data(), 10u), 0);
  EXPECT_EQ(io.ReadU8(nullptr, 10u), 0u);
  EXPECT_EQ(io.Tell(), 0);
  EXPECT_EQ(io.IsEof(), 0);
}

// ------------------------------------------------------------------- WriteU8

TEST(DtNlBuffIo, WriteCopiesIntoTheBlockAndNeverGrowsIt) {
  std::vector<UINT8> block(12, 0);
  DtNlBuffIo io;
  ASSERT_EQ(io.Open(block.data(), 10u), 0);  // the last two bytes are outside
  ASSERT_EQ(io.Seek(7, DtNlIoSeekSet), 0);
  const UINT8 src[5] = {1, 2, 3, 4, 5};
  EXPECT_EQ(io.WriteU8(src, 5u), 3u);
  EXPECT_EQ(io.IsEof(), 1);
  EXPECT_EQ(block, std::vector<UINT8>({0, 0, 0, 0, 0, 0, 0, 1, 2, 3, 0, 0}));
  EXPECT_EQ(io.WriteU8(src, 1u), 0u);
}

TEST(DtNlBuffIo, WriteShortOfTheEndLeavesTheEndFlagClear) {
  std::vector<UINT8> block(10, 0);
  DtNlBuffIo io;
  ASSERT_EQ(io.Open(block.data(), 10u), 0);
  const UINT8 src[2] = {8, 9};
  EXPECT_EQ(io.WriteU8(src, 2u), 2u);
  EXPECT_EQ(io.IsEof(), 0);
  EXPECT_EQ(io.Tell(), 2);
  EXPECT_EQ(block[1], 9);
}

TEST(DtNlBuffIo, HugeWriteCountIsClampedWithoutWrapping) {
  std::vector<UINT8> block(10, 0);
  DtNlBuffIo io;
  ASSERT_EQ(io.Open(block.data(), 10u), 0);
  ASSERT_EQ(io.Seek(8, DtNlIoSeekSet), 0);
  const UINT8 src[2] = {0xAA, 0xBB};
  EXPECT_EQ(io.WriteU8(src, 0xFFFFFFFEu), 2u);  // 8 + n wraps to 6 in 32 bits
  EXPECT_EQ(block[9], 0xBB);
  EXPECT_EQ(io.IsEof(), 1);
}

TEST(DtNlBuffIo, WriteFromNoSourceChangesNothing) {
  std::vector<UINT8> block(10, 0);
  DtNlBuffIo io;
  ASSERT_EQ(io.Open(block.data(), 10u), 0);
  EXPECT_EQ(io.WriteU8(nullptr, 3u), 0u);
  EXPECT_EQ(io.Tell(), 0);
}

// ---------------------------------------------------------------------- Seek

TEST(DtNlBuffIo, SeekFromEndCountsBackward) {
  std::vector<UINT8> block = Ten();
  DtNlBuffIo io;
  ASSERT_EQ(io.Open(block.data(), 10u), 0);
  EXPECT_EQ(io.Seek(3, DtNlIoSeekEnd), 0);
  EXPECT_EQ(io.Tell(), 7);
  EXPECT_EQ(io.IsEof(), 0);
  UINT8 got = 0;
  EXPECT_EQ(io.ReadU8(&got, 1u), 1u);
  EXPECT_EQ(got, 17);
}

TEST(DtNlBuffIo, SeekFromEndWithANegativeOffsetClampsToTheEnd) {
  std::vector<UINT8> block = Ten();
  DtNlBuffIo io;
  ASSERT_EQ(io.Open(block.data(), 10u), 0);
  EXPECT_EQ(io.Seek(-3, DtNlIoSeekEnd), 0);
  EXPECT_EQ(io.Tell(), 10);
  EXPECT_EQ(io.IsEof(), 1);
  EXPECT_EQ(io.Seek(0, DtNlIoSeekEnd), 0);
  EXPECT_EQ(io.Tell(), 10);
  EXPECT_EQ(io.IsEof(), 1);
  EXPECT_EQ(io.Seek(15, DtNlIoSeekEnd), 0);  // before the start
  EXPECT_EQ(io.Tell(), 0);
  EXPECT_EQ(io.IsEof(), 0);
}

TEST(DtNlBuffIo, SeekBeforeTheStartLandsAtZero) {
  std::vector<UINT8> block = Ten();
  DtNlBuffIo io;
  ASSERT_EQ(io.Open(block.data(), 10u), 0);
  ASSERT_EQ(io.Seek(4, DtNlIoSeekSet), 0);
  EXPECT_EQ(io.Seek(-5, DtNlIoSeekSet), 0);
  EXPECT_EQ(io.Tell(), 0);
  ASSERT_EQ(io.Seek(4, DtNlIoSeekSet), 0);
  EXPECT_EQ(io.Seek(-9, DtNlIoSeekCur), 0);
  EXPECT_EQ(io.Tell(), 0);
  EXPECT_EQ(io.IsEof(), 0);
}

TEST(DtNlBuffIo, SeekPastTheEndClampsAndSetsTheEndFlag) {
  std::vector<UINT8> block = Ten();
  DtNlBuffIo io;
  ASSERT_EQ(io.Open(block.data(), 10u), 0);
  EXPECT_EQ(io.Seek(12, DtNlIoSeekSet), 0);
  EXPECT_EQ(io.Tell(), 10);
  EXPECT_EQ(io.IsEof(), 1);
  EXPECT_EQ(io.Seek(10, DtNlIoSeekSet), 0);  // exactly at the end
  EXPECT_EQ(io.IsEof(), 1);
}

TEST(DtNlBuffIo, SeekInsideTheBlockClearsTheEndFlag) {
  std::vector<UINT8> block = Ten();
  DtNlBuffIo io;
  ASSERT_EQ(io.Open(block.data(), 10u), 0);
  ASSERT_EQ(io.Seek(12, DtNlIoSeekSet), 0);
  ASSERT_EQ(io.IsEof(), 1);
  EXPECT_EQ(io.Seek(9, DtNlIoSeekSet), 0);
  EXPECT_EQ(io.IsEof(), 0);
  EXPECT_EQ(io.Tell(), 9);
}

TEST(DtNlBuffIo, SeekFromTheCurrentPositionMovesBothWays) {
  std::vector<UINT8> block = Ten();
  DtNlBuffIo io;
  ASSERT_EQ(io.Open(block.data(), 10u), 0);
  EXPECT_EQ(io.Seek(4, DtNlIoSeekCur), 0);
  EXPECT_EQ(io.Seek(3, DtNlIoSeekCur), 0);
  EXPECT_EQ(io.Tell(), 7);
  EXPECT_EQ(io.Seek(-2, DtNlIoSeekCur), 0);
  EXPECT_EQ(io.Tell(), 5);
  EXPECT_EQ(io.Seek(8, DtNlIoSeekCur), 0);
  EXPECT_EQ(io.Tell(), 10);
  EXPECT_EQ(io.IsEof(), 1);
}

TEST(DtNlBuffIo, SeekFromTheBaseOffsetAddsIt) {
  std::vector<UINT8> block = Ten();
  DtNlBuffIo io;
  ASSERT_EQ(io.Open(block.data(), 10u), 0);
  io.SetBaseOffset(4);
  EXPECT_EQ(io.Seek(2, DtNlIoSeekBase), 0);
  EXPECT_EQ(io.Tell(), 6);
  io.SetBaseOffset(-4);
  EXPECT_EQ(io.Seek(2, DtNlIoSeekBase), 0);  // -2 becomes 0
  EXPECT_EQ(io.Tell(), 0);
  io.SetBaseOffset(0x7FFFFFFF);
  EXPECT_EQ(io.Seek(0x7FFFFFFF, DtNlIoSeekBase), 0);  // no wrap into negatives
  EXPECT_EQ(io.Tell(), 10);
  EXPECT_EQ(io.IsEof(), 1);
}

TEST(DtNlBuffIo, SeekWithAnOriginAbove3FailsAndChangesNothing) {
  std::vector<UINT8> block = Ten();
  DtNlBuffIo io;
  ASSERT_EQ(io.Open(block.data(), 10u), 0);
  ASSERT_EQ(io.Seek(12, DtNlIoSeekSet), 0);
  ASSERT_EQ(io.IsEof(), 1);
  std::string err = kpztest::CaptureStderr([&] {
    EXPECT_EQ(io.Seek(0, static_cast<DtNlIoSeekPos>(4)), -1);
    EXPECT_EQ(io.Seek(0, static_cast<DtNlIoSeekPos>(-1)), -1);  // above 3 as unsigned
  });
  EXPECT_EQ(err, "");
  EXPECT_EQ(io.Tell(), 10);
  EXPECT_EQ(io.IsEof(), 1);
  ExpectStatus(io, DtNlErrNone, 0);
}

TEST(DtNlBuffIo, SeekKeepsOnlyTheLow32BitsOfTheOffset) {
  std::vector<UINT8> block = Ten();
  DtNlBuffIo io;
  ASSERT_EQ(io.Open(block.data(), 10u), 0);
  EXPECT_EQ(io.Seek((1LL << 32) + 5, DtNlIoSeekSet), 0);
  EXPECT_EQ(io.Tell(), 5);
  EXPECT_EQ(io.Seek(0xFFFFFFFFLL, DtNlIoSeekCur), 0);  // -1
  EXPECT_EQ(io.Tell(), 4);
  EXPECT_EQ(io.Seek(0x80000000LL, DtNlIoSeekSet), 0);  // the most negative offset
  EXPECT_EQ(io.Tell(), 0);
}

// ------------------------------------------------------------ Tell and others

TEST(DtNlBuffIo, TellBeyondTheIntRangeFailsWhileTell64GivesThePosition) {
  UINT8 byte = 0;
  DtNlBuffIo io;
  // Only positions are used: the oversized block is never read.
  ASSERT_EQ(io.Open(&byte, 0xFFFFFFFFu), 0);
  EXPECT_EQ(io.Seek(0, DtNlIoSeekEnd), 0);
  EXPECT_EQ(io.Tell(), -1);
  EXPECT_EQ(io.Tell64(), 0xFFFFFFFFLL);
  EXPECT_EQ(io.Seek(0x7FFFFFFF, DtNlIoSeekSet), 0);
  EXPECT_EQ(io.Tell(), 0x7FFFFFFF);
}

TEST(DtNlBuffIo, FlushSucceedsAndChangesNothing) {
  std::vector<UINT8> block = Ten();
  DtNlBuffIo io;
  ASSERT_EQ(io.Open(block.data(), 10u), 0);
  ASSERT_EQ(io.Seek(3, DtNlIoSeekSet), 0);
  EXPECT_EQ(io.Flush(), 0);
  EXPECT_EQ(io.Tell(), 3);
}

TEST(DtNlBuffIo, CloseForgetsTheBlockWithoutTouchingIt) {
  std::vector<UINT8> block = Ten();
  DtNlBuffIo io;
  ASSERT_EQ(io.Open(block.data(), 10u), 0);
  ASSERT_EQ(io.Seek(5, DtNlIoSeekSet), 0);
  EXPECT_EQ(io.Close(), 0);
  EXPECT_EQ(io.Tell(), 0);
  UINT8 got = 0;
  EXPECT_EQ(io.ReadU8(&got, 1u), 0u);
  EXPECT_EQ(io.Seek(0, DtNlIoSeekEnd), 0);
  EXPECT_EQ(io.Tell(), 0);  // size is 0 now
  EXPECT_EQ(block, Ten());
  EXPECT_EQ(io.Close(), 0);
}

TEST(DtNlBuffIo, ChannelNeverLogsNorRecordsTransferErrors) {
  std::vector<UINT8> block = Ten();
  DtNlBuffIo io;
  std::string err = kpztest::CaptureStderr([&] {
    UINT8 got[20] = {};
    io.ReadU8(got, 1u);
    io.Open(block.data(), 10u);
    io.ReadU8(got, 20u);
    io.ReadU8(got, 20u);
    io.WriteU8(got, 20u);
    io.Seek(99, DtNlIoSeekSet);
    io.Seek(-99, DtNlIoSeekCur);
    io.Seek(0, static_cast<DtNlIoSeekPos>(9));
    io.Tell();
    io.Tell64();
    io.IsEof();
    io.Flush();
    io.Close();
    io.Close();
  });
  EXPECT_EQ(err, "");
  ExpectStatus(io, DtNlErrNone, 0);
}

TEST(DtNlBuffIo, DestructorLeavesTheCallersBlockAlone) {
  std::vector<UINT8> block = Ten();
  {
    DtNlIo* io = new DtNlBuffIo();
    ASSERT_EQ(io->Open(block.data(), 10u), 0);
    delete io;
  }
  EXPECT_EQ(block, Ten());
}

// --------------------------------------------------------------------- View

TEST(DtNlBuffIo, ViewShowsTheBlockFromThePositionWithoutMovingIt) {
  std::vector<UINT8> block = Ten();
  DtNlBuffIo io;
  ASSERT_EQ(io.Open(block.data(), static_cast<UINT>(block.size())), 0);
  const UINT8* bytes = nullptr;
  EXPECT_EQ(io.View(&bytes), 10u);
  EXPECT_EQ(bytes, block.data());
  ASSERT_EQ(io.Seek(7, DtNlIoSeekSet), 0);
  EXPECT_EQ(io.View(&bytes), 3u);
  EXPECT_EQ(bytes, block.data() + 7);
  EXPECT_EQ(io.Tell(), 7);
  EXPECT_EQ(io.IsEof(), 0);
  ASSERT_EQ(io.Seek(0, DtNlIoSeekEnd), 0);
  EXPECT_EQ(io.View(&bytes), 0u);
  EXPECT_EQ(bytes, block.data() + 10);
  ExpectStatus(io, DtNlErrNone, 0);
}

TEST(DtNlBuffIo, ViewWithoutABlockShowsNothing) {
  DtNlBuffIo io;
  const UINT8* bytes = reinterpret_cast<const UINT8*>(&io);
  EXPECT_EQ(io.View(&bytes), 0u);
  EXPECT_EQ(bytes, nullptr);
  ASSERT_EQ(io.Open(nullptr, 5), 0);  // a null block with a size: still nothing to show
  EXPECT_EQ(io.View(&bytes), 0u);
  EXPECT_EQ(bytes, nullptr);
}

}  // namespace
