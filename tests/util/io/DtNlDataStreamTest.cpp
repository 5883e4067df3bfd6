// DtNlDataStreamTest.cpp - the data stream: typed reads and writes in both
// byte orders, bit reads across byte boundaries, ClearBit/FlushBit (each run
// over a memory channel and over a file channel), and the rules by which the
// stream replaces, keeps or lends its channel.
#include "util/io/DtNlDataStream.h"

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
    char pattern[] = "/tmp/kpz_datastream_XXXXXX";
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

  std::string Make(const std::string& name, const std::vector<UINT8>& bytes) const {
    const std::string path = path_ + "/" + name;
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
    return path;
  }

  const std::string& Path() const { return path_; }

 private:
  std::string path_;
};

std::vector<UINT8> Contents(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::vector<UINT8>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::vector<UINT8> Pattern(std::size_t size) {
  std::vector<UINT8> bytes(size);
  for (std::size_t i = 0; i < size; ++i) {
    bytes[i] = static_cast<UINT8>((i * 37u + 11u) & 0xFFu);
  }
  return bytes;
}

// Runs `body` with standard error captured; faults are disarmed before the
// capture ends, since the capture itself reads a file through stdio.
template <typename F>
std::string Captured(F body) {
  return kpztest::CaptureStderr([&] {
    body();
    kpztest::DisarmAll();
  });
}

// ------------------------------------------------- tests over both channels

enum class Channel { Memory, File };

class DtNlDataStreamOver : public testing::TestWithParam<Channel> {
 protected:
  void SetUp() override { ASSERT_TRUE(dir_.Ok()); }

  // Opens `stream` on `bytes` through a channel of the parameter's kind, which
  // the stream creates and owns.
  void OpenOver(DtNlDataStream& stream, const std::vector<UINT8>& bytes) {
    block_ = bytes;
    if (GetParam() == Channel::Memory) {
      ASSERT_EQ(stream.Open(block_.data(), static_cast<UINT>(block_.size())), 0);
      ASSERT_EQ(stream.GetIo()->GetKind(), DtNlIo::KIND_MEMORY);
    } else {
      path_ = dir_.Make("data.bin", bytes);
      ASSERT_EQ(stream.Open(path_.c_str(), "rb+"), 0);
      ASSERT_EQ(stream.GetIo()->GetKind(), DtNlIo::KIND_FILE);
    }
  }

  // The bytes the channel holds now.
  std::vector<UINT8> Held(DtNlDataStream& stream) {
    if (GetParam() == Channel::Memory) {
      return block_;
    }
    stream.GetIo()->Flush();
    return Contents(path_);
  }

  static int Tell(DtNlDataStream& stream) { return stream.GetIo()->Tell(); }

  TempDir dir_;
  std::vector<UINT8> block_;
  std::string path_;
};

INSTANTIATE_TEST_SUITE_P(Channels, DtNlDataStreamOver,
                         testing::Values(Channel::Memory, Channel::File),
                         [](const testing::TestParamInfo<Channel>& param) {
                           return param.param == Channel::Memory ? std::string("Memory")
                                                                : std::string("File");
                         });

TEST_P(DtNlDataStreamOver, ReadBitTakesBitsMostSignificantFirst) {
  DtNlDataStream stream;
  OpenOver(stream, {0xB4, 0x9F, 0x00});
  UINT32 out = 0xFFFFFFFFu;
  EXPECT_EQ(stream.ReadBit(&out, 3u), 3u);
  EXPECT_EQ(out, 5u);  // 101
  EXPECT_EQ(Tell(stream), 1);
  EXPECT_EQ(stream.ReadBit(&out, 7u), 7u);
  EXPECT_EQ(out, 0x52u);  // 10100 then 10 from 0x9F
  EXPECT_EQ(Tell(stream), 2);
}

TEST_P(DtNlDataStreamOver, ReadBitServedFromTheHeldByteLeavesTheChannelAlone) {
  DtNlDataStream stream;
  OpenOver(stream, {0xB4, 0x9F});
  UINT32 out = 0;
  ASSERT_EQ(stream.ReadBit(&out, 3u), 3u);
  EXPECT_EQ(stream.ReadBit(&out, 5u), 5u);
  EXPECT_EQ(out, 0x14u);  // the remaining 10100
  EXPECT_EQ(Tell(stream), 1);
  EXPECT_EQ(stream.ReadBit(&out, 8u), 8u);
  EXPECT_EQ(out, 0x9Fu);
  EXPECT_EQ(Tell(stream), 2);
}

TEST_P(DtNlDataStreamOver, ReadBitOfZeroBitsYieldsZeroWithoutReading) {
  DtNlDataStream stream;
  OpenOver(stream, {0xFF});
  UINT32 out = 0xDEADu;
  EXPECT_EQ(stream.ReadBit(&out, 0u), 0u);
  EXPECT_EQ(out, 0u);
  EXPECT_EQ(Tell(stream), 0);
}

TEST_P(DtNlDataStreamOver, ReadBitOfSixteenBitsReadsTwoWholeBytes) {
  DtNlDataStream stream;
  OpenOver(stream, {0xB4, 0x9F, 0x3C});
  UINT32 out = 0;
  EXPECT_EQ(stream.ReadBit(&out, 16u), 16u);
  EXPECT_EQ(out, 0xB49Fu);
  EXPECT_EQ(Tell(stream), 2);
  EXPECT_EQ(stream.ReadBit(&out, 0u), 0u);  // the held byte is used up
  EXPECT_EQ(Tell(stream), 2);
  EXPECT_EQ(stream.ReadBit(&out, 8u), 8u);
  EXPECT_EQ(out, 0x3Cu);
}

TEST_P(DtNlDataStreamOver, ReadBitJoinsTheHeldBitsWithWholeAndPartBytes) {
  DtNlDataStream stream;
  OpenOver(stream, {0x12, 0x34, 0x56, 0x78});
  UINT32 out = 0;
  ASSERT_EQ(stream.ReadBit(&out, 4u), 4u);
  EXPECT_EQ(out, 0x1u);
  EXPECT_EQ(stream.ReadBit(&out, 20u), 20u);  // 4 held bits, 0x34, 0x56
  EXPECT_EQ(out, 0x23456u);
  EXPECT_EQ(Tell(stream), 3);
  EXPECT_EQ(stream.ReadBit(&out, 6u), 6u);
  EXPECT_EQ(out, 0x1Eu);  // 011110 from 0x78
  EXPECT_EQ(stream.ReadBit(&out, 2u), 2u);
  EXPECT_EQ(out, 0x0u);
  EXPECT_EQ(Tell(stream), 4);
}

TEST_P(DtNlDataStreamOver, ReadBitWiderThan32BitsKeepsTheLowest32) {
  DtNlDataStream stream;
  OpenOver(stream, {0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC, 0x01, 0x02, 0x03, 0x04, 0x05});
  UINT32 out = 0;
  EXPECT_EQ(stream.ReadBit(&out, 36u), 36u);  // 0x123456789
  EXPECT_EQ(out, 0x23456789u);
  EXPECT_EQ(Tell(stream), 5);
  EXPECT_EQ(stream.ReadBit(&out, 4u), 4u);
  EXPECT_EQ(out, 0xAu);
  EXPECT_EQ(Tell(stream), 5);
  EXPECT_EQ(stream.ReadBit(&out, 48u), 48u);  // 0xBC0102030405
  EXPECT_EQ(out, 0x02030405u);
  EXPECT_EQ(Tell(stream), 11);
}

TEST_P(DtNlDataStreamOver, ReadBitOfAVeryWideFieldReadsOnlyTheBytesItNeeds) {
  const std::vector<UINT8> bytes = Pattern(400);
  DtNlDataStream stream;
  OpenOver(stream, bytes);
  UINT32 out = 0;
  EXPECT_EQ(stream.ReadBit(&out, 8u * 300u + 4u), 8u * 300u + 4u);  // 301 bytes
  const UINT32 low = (static_cast<UINT32>(bytes[296]) << 24) |
                     (static_cast<UINT32>(bytes[297]) << 16) |
                     (static_cast<UINT32>(bytes[298]) << 8) | bytes[299];
  EXPECT_EQ(out, (low << 4) | (bytes[300] >> 4));
  EXPECT_EQ(Tell(stream), 301);
  EXPECT_EQ(stream.ReadBit(&out, 4u), 4u);
  EXPECT_EQ(out, static_cast<UINT32>(bytes[300] & 0x0Fu));
  EXPECT_EQ(Tell(stream), 301);
}

TEST_P(DtNlDataStreamOver, ReadBitWhenTheChannelDeliversNothingKeepsTheState) {
  DtNlDataStream stream;
  OpenOver(stream, {0xB4});
  UINT32 out = 0;
  ASSERT_EQ(stream.ReadBit(&out, 3u), 3u);
  out = 0xFFFFu;
  EXPECT_EQ(stream.ReadBit(&out, 8u), 0u);
  EXPECT_EQ(out, 0u);
  EXPECT_EQ(stream.ReadBit(&out, 5u), 5u);  // still the held byte, 3 bits in
  EXPECT_EQ(out, 0x14u);
}

TEST_P(DtNlDataStreamOver, ReadBitCountsBytesTheChannelDidNotDeliverAsZero) {
  DtNlDataStream stream;
  OpenOver(stream, {0xAB});
  UINT32 out = 0;
  EXPECT_EQ(stream.ReadBit(&out, 16u), 16u);  // a short read is not detected
  EXPECT_EQ(out, 0xAB00u);
  EXPECT_EQ(Tell(stream), 1);
}

TEST_P(DtNlDataStreamOver, ReadBitShortOfAWideFieldShiftsInZeros) {
  DtNlDataStream stream;
  OpenOver(stream, {0x11, 0x22});
  UINT32 out = 0;
  EXPECT_EQ(stream.ReadBit(&out, 40u), 40u);  // 11 22 00 00 00
  EXPECT_EQ(out, 0x22000000u);
}

TEST_P(DtNlDataStreamOver, ReadBitShortOfAVeryWideFieldEndsInZeros) {
  DtNlDataStream stream;
  OpenOver(stream, Pattern(300));
  UINT32 out = 0xFFu;
  EXPECT_EQ(stream.ReadBit(&out, 8u * 400u), 8u * 400u);
  EXPECT_EQ(out, 0u);
  EXPECT_EQ(Tell(stream), 300);
}

TEST_P(DtNlDataStreamOver, ReadBitShortInALaterPieceKeepsTheBytesItGot) {
  const std::vector<UINT8> bytes = Pattern(258);
  DtNlDataStream stream;
  OpenOver(stream, bytes);
  UINT32 out = 0;
  EXPECT_EQ(stream.ReadBit(&out, 8u * 260u), 8u * 260u);  // ... b256 b257 00 00
  EXPECT_EQ(out, (static_cast<UINT32>(bytes[256]) << 24) | (static_cast<UINT32>(bytes[257]) << 16));
  EXPECT_EQ(Tell(stream), 258);
}

TEST_P(DtNlDataStreamOver, ReadBitWithoutADestinationReadsNothing) {
  DtNlDataStream stream;
  OpenOver(stream, {0xB4});
  EXPECT_EQ(stream.ReadBit(nullptr, 8u), 0u);
  EXPECT_EQ(Tell(stream), 0);
}

TEST_P(DtNlDataStreamOver, ReadU16HonoursBothByteOrders) {
  DtNlDataStream stream;
  OpenOver(stream, {0x12, 0x34, 0x56, 0x78});
  UINT16 out[2] = {};
  EXPECT_EQ(stream.ReadU16(out, 2u, DtNlBigEndian), 4u);
  EXPECT_EQ(out[0], 0x1234);
  EXPECT_EQ(out[1], 0x5678);
  ASSERT_EQ(stream.GetIo()->Seek(0, DtNlIoSeekSet), 0);
  EXPECT_EQ(stream.ReadU16(out, 2u, DtNlLittleEndian), 4u);
  EXPECT_EQ(out[0], 0x3412);
  EXPECT_EQ(out[1], 0x7856);
  ASSERT_EQ(stream.GetIo()->Seek(0, DtNlIoSeekSet), 0);
  EXPECT_EQ(stream.ReadU16(out, 1u, static_cast<DtNlByteOrder>(7)), 2u);  // not 0: as read
  EXPECT_EQ(out[0], 0x3412);
}

TEST_P(DtNlDataStreamOver, ReadU32HonoursBothByteOrders) {
  DtNlDataStream stream;
  OpenOver(stream, {0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC, 0xDE, 0xF0});
  UINT32 out[2] = {};
  EXPECT_EQ(stream.ReadU32(out, 2u, DtNlBigEndian), 8u);
  EXPECT_EQ(out[0], 0x12345678u);
  EXPECT_EQ(out[1], 0x9ABCDEF0u);
  ASSERT_EQ(stream.GetIo()->Seek(0, DtNlIoSeekSet), 0);
  EXPECT_EQ(stream.ReadU32(out, 1u, DtNlLittleEndian), 4u);
  EXPECT_EQ(out[0], 0x78563412u);
}

TEST_P(DtNlDataStreamOver, ReadU32WithOnlyThreeBytesLeftReturnsZeroAndLeavesThemUnswapped) {
  DtNlDataStream stream;
  OpenOver(stream, {0xAA, 0xBB, 0xCC});
  UINT32 out = 0;
  EXPECT_EQ(stream.ReadU32(&out, 1u, DtNlBigEndian), 0u);
  EXPECT_EQ(out, 0x00CCBBAAu);
  EXPECT_EQ(Tell(stream), 3);
}

TEST_P(DtNlDataStreamOver, ReadU16ShortOfTheCountReturnsZero) {
  DtNlDataStream stream;
  OpenOver(stream, {0x12, 0x34, 0x56});
  UINT16 out[2] = {};
  EXPECT_EQ(stream.ReadU16(out, 2u, DtNlBigEndian), 0u);
  EXPECT_EQ(out[0], 0x3412);  // as read, not swapped
}

TEST_P(DtNlDataStreamOver, ReadOfZeroValuesReturnsZero) {
  DtNlDataStream stream;
  OpenOver(stream, {0x12, 0x34});
  UINT16 out = 0x5555;
  EXPECT_EQ(stream.ReadU16(&out, 0u, DtNlBigEndian), 0u);
  EXPECT_EQ(out, 0x5555);
  EXPECT_EQ(Tell(stream), 0);
}

TEST_P(DtNlDataStreamOver, CountWhoseByteSizeOverflowsReadsAndWritesNothing) {
  DtNlDataStream stream;
  OpenOver(stream, {1, 2, 3, 4, 5, 6, 7, 8});
  UINT16 in16[4] = {};
  UINT32 in32[2] = {};
  EXPECT_EQ(stream.ReadU16(in16, 0x80000000u, DtNlBigEndian), 0u);
  EXPECT_EQ(stream.ReadU32(in32, 0x40000000u, DtNlLittleEndian), 0u);
  EXPECT_EQ(stream.WriteU16(in16, 0x80000000u, DtNlBigEndian), 0u);
  EXPECT_EQ(stream.WriteU32(in32, 0x40000000u, DtNlLittleEndian), 0u);
  EXPECT_EQ(Tell(stream), 0);
  EXPECT_EQ(Held(stream), std::vector<UINT8>({1, 2, 3, 4, 5, 6, 7, 8}));
}

TEST_P(DtNlDataStreamOver, WriteU16BigEndianSwapsOnTheWayWithoutTouchingTheCaller) {
  DtNlDataStream stream;
  OpenOver(stream, std::vector<UINT8>(4, 0));
  const UINT16 in[2] = {0x1234, 0x5678};
  EXPECT_EQ(stream.WriteU16(in, 2u, DtNlBigEndian), 4u);
  EXPECT_EQ(in[0], 0x1234);
  EXPECT_EQ(in[1], 0x5678);
  EXPECT_EQ(Held(stream), std::vector<UINT8>({0x12, 0x34, 0x56, 0x78}));
}

TEST_P(DtNlDataStreamOver, WriteU16LittleEndianWritesTheValuesAsTheyAre) {
  DtNlDataStream stream;
  OpenOver(stream, std::vector<UINT8>(4, 0));
  const UINT16 in[2] = {0x1234, 0x5678};
  EXPECT_EQ(stream.WriteU16(in, 2u, DtNlLittleEndian), 4u);
  EXPECT_EQ(Held(stream), std::vector<UINT8>({0x34, 0x12, 0x78, 0x56}));
}

TEST_P(DtNlDataStreamOver, WriteU32HonoursBothByteOrders) {
  DtNlDataStream stream;
  OpenOver(stream, std::vector<UINT8>(8, 0));
  const UINT32 in[1] = {0x12345678u};
  EXPECT_EQ(stream.WriteU32(in, 1u, DtNlBigEndian), 4u);
  EXPECT_EQ(stream.WriteU32(in, 1u, DtNlLittleEndian), 4u);
  EXPECT_EQ(in[0], 0x12345678u);
  EXPECT_EQ(Held(stream),
            std::vector<UINT8>({0x12, 0x34, 0x56, 0x78, 0x78, 0x56, 0x34, 0x12}));
}

TEST_P(DtNlDataStreamOver, BigEndianWritesLongerThanOneStackPieceComeOutWhole) {
  DtNlDataStream stream;
  OpenOver(stream, std::vector<UINT8>(1000, 0));
  std::vector<UINT16> in16(300);
  std::vector<UINT32> in32(100);
  std::vector<UINT8> expected;
  for (std::size_t i = 0; i < in16.size(); ++i) {
    in16[i] = static_cast<UINT16>(0x0100u * i + 0x80u + i);
    expected.push_back(static_cast<UINT8>(in16[i] >> 8));
    expected.push_back(static_cast<UINT8>(in16[i] & 0xFFu));
  }
  for (std::size_t i = 0; i < in32.size(); ++i) {
    in32[i] = static_cast<UINT32>(0x01020304u * (i + 1u));
    for (int shift = 24; shift >= 0; shift -= 8) {
      expected.push_back(static_cast<UINT8>((in32[i] >> shift) & 0xFFu));
    }
  }
  const std::vector<UINT16> before16 = in16;
  const std::vector<UINT32> before32 = in32;
  EXPECT_EQ(stream.WriteU16(in16.data(), 300u, DtNlBigEndian), 600u);
  EXPECT_EQ(stream.WriteU32(in32.data(), 100u, DtNlBigEndian), 400u);
  EXPECT_EQ(in16, before16);
  EXPECT_EQ(in32, before32);
  EXPECT_EQ(Held(stream), expected);
}

TEST_P(DtNlDataStreamOver, WriteWithoutSourceValuesWritesNothing) {
  DtNlDataStream stream;
  OpenOver(stream, std::vector<UINT8>(4, 0));
  EXPECT_EQ(stream.WriteU16(nullptr, 2u, DtNlBigEndian), 0u);
  EXPECT_EQ(stream.WriteU32(nullptr, 1u, DtNlLittleEndian), 0u);
  EXPECT_EQ(Tell(stream), 0);
}

TEST_P(DtNlDataStreamOver, ClearBitStepsBackOntoThePartlyReadByte) {
  DtNlDataStream stream;
  OpenOver(stream, {0xB4, 0x9F});
  UINT32 out = 0;
  ASSERT_EQ(stream.ReadBit(&out, 3u), 3u);
  ASSERT_EQ(Tell(stream), 1);
  EXPECT_EQ(stream.ClearBit(), 0);
  EXPECT_EQ(Tell(stream), 0);
  UINT16 value = 0;
  EXPECT_EQ(stream.ReadU16(&value, 1u, DtNlBigEndian), 2u);
  EXPECT_EQ(value, 0xB49F);
  EXPECT_EQ(stream.ReadBit(&out, 0u), 0u);  // the bit reader starts afresh
}

TEST_P(DtNlDataStreamOver, ClearBitWithNoPartlyReadByteDoesNotSeek) {
  DtNlDataStream stream;
  OpenOver(stream, {0xB4, 0x9F});
  kpztest::FaultGuard guard;
  EXPECT_EQ(stream.ClearBit(), 0);  // fresh stream
  UINT32 out = 0;
  ASSERT_EQ(stream.ReadBit(&out, 8u), 8u);
  kpztest::ResetCounts();
  EXPECT_EQ(stream.ClearBit(), 0);
  EXPECT_EQ(kpztest::CallCount(Call::Fseek), 0);
  EXPECT_EQ(Tell(stream), 1);
}

TEST_P(DtNlDataStreamOver, SecondClearBitDoesNotSeekAgain) {
  DtNlDataStream stream;
  OpenOver(stream, {0xB4, 0x9F});
  UINT32 out = 0;
  ASSERT_EQ(stream.ReadBit(&out, 3u), 3u);
  EXPECT_EQ(stream.ClearBit(), 0);
  EXPECT_EQ(stream.ClearBit(), 0);  // a second step back from 0 would fail on a file
  EXPECT_EQ(Tell(stream), 0);
  EXPECT_EQ(stream.GetIo()->GetStatus().errCode, DtNlErrNone);
}

TEST_P(DtNlDataStreamOver, FlushBitSkipsTheRestOfTheHeldByte) {
  DtNlDataStream stream;
  OpenOver(stream, {0xB4, 0x9F, 0x3C});
  UINT32 out = 0;
  ASSERT_EQ(stream.ReadBit(&out, 3u), 3u);
  EXPECT_EQ(stream.FlushBit(), 0);
  EXPECT_EQ(Tell(stream), 1);
  EXPECT_EQ(stream.ReadBit(&out, 8u), 8u);
  EXPECT_EQ(out, 0x9Fu);
  EXPECT_EQ(stream.FlushBit(), 0);  // nothing held: no change
  EXPECT_EQ(stream.ReadBit(&out, 8u), 8u);
  EXPECT_EQ(out, 0x3Cu);
}

// ----------------------------------------------------- construction and Open

TEST(DtNlDataStream, MaskBitHoldsTheBitsLeftAfterIConsumed) {
  for (int i = 0; i <= 8; ++i) {
    EXPECT_EQ(DtNlDataStream::MASK_BIT[i], static_cast<UINT8>(0xFF >> i)) << i;
  }
}

TEST(DtNlDataStream, DefaultStreamOwnsAFileChannel) {
  DtNlDataStream stream;
  ASSERT_NE(stream.GetIo(), nullptr);
  EXPECT_EQ(stream.GetIo()->GetKind(), DtNlIo::KIND_FILE);
}

TEST(DtNlDataStream, NullChannelBehavesAsTheDefault) {
  DtNlDataStream stream(nullptr);
  ASSERT_NE(stream.GetIo(), nullptr);
  EXPECT_EQ(stream.GetIo()->GetKind(), DtNlIo::KIND_FILE);
  UINT8 block[2] = {0x12, 0x34};
  EXPECT_EQ(stream.Open(block, 2u), 0);  // owned, so it may be replaced
  EXPECT_EQ(stream.GetIo()->GetKind(), DtNlIo::KIND_MEMORY);
}

TEST(DtNlDataStream, LentMemoryChannelOpenedWithAPathFailsAndIsKept) {
  TempDir dir;
  ASSERT_TRUE(dir.Ok());
  const std::string path = dir.Make("a.bin", {1, 2});
  DtNlBuffIo lent;
  DtNlDataStream stream(&lent);
  errno = 0;
  EXPECT_EQ(stream.Open(path.c_str(), "rb"), -1);
  EXPECT_EQ(stream.GetIo(), &lent);
  EXPECT_EQ(lent.GetStatus().errCode, DtNlErrNotSupported);
  EXPECT_EQ(stream.Open(DtNlFile(path.c_str()), "rb"), -1);
  EXPECT_EQ(stream.GetIo(), &lent);
}

TEST(DtNlDataStream, LentFileChannelOpenedWithABufferFailsAndIsKept) {
  DtNlFileIo lent;
  DtNlDataStream stream(&lent);
  UINT8 block[2] = {1, 2};
  errno = 0;
  EXPECT_EQ(stream.Open(block, 2u), -1);
  EXPECT_EQ(stream.GetIo(), &lent);
  EXPECT_EQ(lent.GetStatus().errCode, DtNlErrNotSupported);
}

TEST(DtNlDataStream, LentChannelIsNeitherClosedNorDeleted) {
  TempDir dir;
  ASSERT_TRUE(dir.Ok());
  const std::string path = dir.Make("a.bin", {1, 2, 3});
  DtNlFileIo lent;
  ASSERT_EQ(lent.Open(path.c_str(), "rb"), 0);
  {
    DtNlDataStream stream(&lent);
    UINT16 value = 0;
    EXPECT_EQ(stream.ReadU16(&value, 1u, DtNlBigEndian), 2u);
    EXPECT_EQ(value, 0x0102);
  }
  UINT8 byte = 0;
  EXPECT_EQ(lent.ReadU8(&byte, 1u), 1u);  // still open, where the stream left it
  EXPECT_EQ(byte, 3);
}

TEST(DtNlDataStream, LentChannelOfTheRightKindIsOpenedInPlace) {
  UINT8 block[2] = {0xAB, 0xCD};
  DtNlBuffIo lent;
  DtNlDataStream stream(&lent);
  EXPECT_EQ(stream.Open(block, 2u), 0);
  EXPECT_EQ(stream.GetIo(), &lent);
  UINT16 value = 0;
  EXPECT_EQ(stream.ReadU16(&value, 1u, DtNlBigEndian), 2u);
  EXPECT_EQ(value, 0xABCD);
}

TEST(DtNlDataStream, OwningStreamOpenedOnABufferThenAPathEndsWithAFileChannel) {
  TempDir dir;
  ASSERT_TRUE(dir.Ok());
  const std::string path = dir.Make("a.bin", {0x0A, 0x0B});
  UINT8 block[2] = {1, 2};
  DtNlDataStream stream;
  ASSERT_EQ(stream.Open(block, 2u), 0);
  ASSERT_EQ(stream.GetIo()->GetKind(), DtNlIo::KIND_MEMORY);
  EXPECT_EQ(stream.Open(path.c_str(), "rb"), 0);
  EXPECT_EQ(stream.GetIo()->GetKind(), DtNlIo::KIND_FILE);
  UINT16 value = 0;
  EXPECT_EQ(stream.ReadU16(&value, 1u, DtNlBigEndian), 2u);
  EXPECT_EQ(value, 0x0A0B);
  EXPECT_EQ(block[0], 1);  // the caller's block is left alone
}

TEST(DtNlDataStream, OwningStreamOpenedOnAPathThenABufferClosesTheFile) {
  TempDir dir;
  ASSERT_TRUE(dir.Ok());
  const std::string path = dir.Make("a.bin", {0x0A, 0x0B});
  UINT8 block[2] = {0x12, 0x34};
  kpztest::FaultGuard guard;
  DtNlDataStream stream;
  ASSERT_EQ(stream.Open(path.c_str(), "rb"), 0);
  kpztest::ResetCounts();
  EXPECT_EQ(stream.Open(block, 2u), 0);
  EXPECT_EQ(kpztest::CallCount(Call::Fclose), 1);
  EXPECT_EQ(stream.GetIo()->GetKind(), DtNlIo::KIND_MEMORY);
  UINT16 value = 0;
  EXPECT_EQ(stream.ReadU16(&value, 1u, DtNlBigEndian), 2u);
  EXPECT_EQ(value, 0x1234);
}

TEST(DtNlDataStream, OwnedChannelOfTheRightKindIsNotReplaced) {
  TempDir dir;
  ASSERT_TRUE(dir.Ok());
  const std::string path = dir.Make("a.bin", {1});
  DtNlDataStream stream;
  ASSERT_EQ(stream.Open(path.c_str(), "rb"), 0);
  DtNlIo* const file = stream.GetIo();
  errno = 0;
  EXPECT_EQ(stream.Open(path.c_str(), "rb"), -1);
  EXPECT_EQ(stream.GetIo(), file);
  EXPECT_EQ(file->GetStatus().errCode, DtNlErrAlreadyOpen);

  UINT8 block[1] = {1};
  ASSERT_EQ(stream.Open(block, 1u), 0);
  DtNlIo* const memory = stream.GetIo();
  EXPECT_EQ(stream.Open(block, 1u), -1);
  EXPECT_EQ(stream.GetIo(), memory);
  EXPECT_EQ(memory->GetStatus().errCode, DtNlErrAlreadyOpen);
}

TEST(DtNlDataStream, OpenByFileObjectOpensItsPath) {
  TempDir dir;
  ASSERT_TRUE(dir.Ok());
  dir.Make("b.bin", {0x77, 0x66});
  DtNlDataStream stream;
  EXPECT_EQ(stream.Open(DtNlFile(dir.Path().c_str(), "b.bin"), "rb"), 0);
  UINT16 value = 0;
  EXPECT_EQ(stream.ReadU16(&value, 1u, DtNlLittleEndian), 2u);
  EXPECT_EQ(value, 0x6677);
}

TEST(DtNlDataStream, OpenOfAMissingFileFailsInTheChannel) {
  TempDir dir;
  ASSERT_TRUE(dir.Ok());
  const std::string path = dir.Path() + "/missing.bin";
  DtNlDataStream stream;
  std::string err = Captured([&] { EXPECT_EQ(stream.Open(path.c_str(), "rb"), -1); });
  EXPECT_EQ(err, kpztest::ErrLine(kFileIoSrc, "Open", 77,
                                  "fopen(filePath: " + path + ") err(" + std::to_string(ENOENT) +
                                      ")."));
  EXPECT_EQ(stream.GetIo()->GetStatus().errCode, DtNlErrNotFound);
}

TEST(DtNlDataStream, OpenKeepsTheBitReaderState) {
  TempDir dir;
  ASSERT_TRUE(dir.Ok());
  const std::string path = dir.Make("a.bin", {0x9F});
  UINT8 block[1] = {0xB4};
  DtNlDataStream stream;
  ASSERT_EQ(stream.Open(block, 1u), 0);
  UINT32 out = 0;
  ASSERT_EQ(stream.ReadBit(&out, 3u), 3u);
  ASSERT_EQ(stream.Open(path.c_str(), "rb"), 0);
  EXPECT_EQ(stream.ReadBit(&out, 5u), 5u);  // the rest of 0xB4, from before the open
  EXPECT_EQ(out, 0x14u);
  EXPECT_EQ(stream.GetIo()->Tell(), 0);
  EXPECT_EQ(stream.ReadBit(&out, 8u), 8u);
  EXPECT_EQ(out, 0x9Fu);
}

TEST(DtNlDataStream, BigEndianWriteStopsAtTheFirstPieceTheBlockTakesShort) {
  std::vector<UINT8> block(300, 0);
  DtNlDataStream stream;
  ASSERT_EQ(stream.Open(block.data(), 300u), 0);
  std::vector<UINT16> in(200);
  for (std::size_t i = 0; i < in.size(); ++i) {
    in[i] = static_cast<UINT16>(0xA000u + i);
  }
  EXPECT_EQ(stream.WriteU16(in.data(), 200u, DtNlBigEndian), 300u);
  EXPECT_EQ(stream.GetIo()->IsEof(), 1);
  EXPECT_EQ(block[0], 0xA0);
  EXPECT_EQ(block[1], 0x00);
  EXPECT_EQ(block[298], 0xA0);
  EXPECT_EQ(block[299], 149);  // the 150th value fills the block
}

TEST(DtNlDataStream, BigEndianWriteStopsWhenAFilePieceFails) {
  TempDir dir;
  ASSERT_TRUE(dir.Ok());
  const std::string path = dir.Make("w.bin", {});
  DtNlDataStream stream;
  ASSERT_EQ(stream.Open(path.c_str(), "rb+"), 0);
  std::vector<UINT16> in(400, 0x1234);  // three pieces of up to 256 bytes
  kpztest::FaultGuard guard;
  UINT put = 0;
  std::string err = Captured([&] {
    kpztest::Arm(Call::Fwrite, EIO, 1, 1);
    put = stream.WriteU16(in.data(), 400u, DtNlBigEndian);
  });
  EXPECT_EQ(put, 256u);  // the first piece went out, the second failed
  // No third piece is offered to the closed channel ("handle is null").
  EXPECT_EQ(err, kpztest::ErrLine(kFileIoSrc, "WriteU8", 243, "fwrite err(5)."));
  EXPECT_EQ(stream.GetIo()->GetStatus().errCode, DtNlErrIo);
}

TEST(DtNlDataStream, LittleEndianWriteReturnsTheChannelsResult) {
  TempDir dir;
  ASSERT_TRUE(dir.Ok());
  const std::string path = dir.Make("w.bin", {});
  DtNlDataStream stream;
  ASSERT_EQ(stream.Open(path.c_str(), "rb+"), 0);
  const UINT32 in[2] = {1u, 2u};
  kpztest::FaultGuard guard;
  UINT put = 99;
  Captured([&] {
    kpztest::Arm(Call::Fwrite, ENOSPC);
    put = stream.WriteU32(in, 2u, DtNlLittleEndian);
  });
  EXPECT_EQ(put, 0u);
  EXPECT_EQ(stream.GetIo()->GetStatus().errCode, DtNlErrWrite);
}

TEST(DtNlDataStream, ReadOnAFailingFileChannelReturnsZeroAndTheChannelKeepsTheCause) {
  TempDir dir;
  ASSERT_TRUE(dir.Ok());
  const std::string path = dir.Make("a.bin", {1, 2, 3, 4});
  DtNlDataStream stream;
  ASSERT_EQ(stream.Open(path.c_str(), "rb"), 0);
  kpztest::FaultGuard guard;
  UINT32 value = 0;
  Captured([&] {
    kpztest::Arm(Call::Fread, EIO);
    EXPECT_EQ(stream.ReadU32(&value, 1u, DtNlBigEndian), 0u);
  });
  EXPECT_EQ(stream.GetIo()->GetStatus().errCode, DtNlErrIo);
  EXPECT_EQ(stream.GetIo()->GetStatus().sysErrNo, EIO);
}

TEST(DtNlDataStream, ClearBitReturnsTheChannelsSeekResult) {
  TempDir dir;
  ASSERT_TRUE(dir.Ok());
  const std::string path = dir.Make("a.bin", {0xB4, 0x9F});
  DtNlFileIo lent;
  ASSERT_EQ(lent.Open(path.c_str(), "rb"), 0);
  DtNlDataStream stream(&lent);
  UINT32 out = 0;
  ASSERT_EQ(stream.ReadBit(&out, 3u), 3u);
  kpztest::FaultGuard guard;
  std::string err = Captured([&] {
    kpztest::Arm(Call::Fseek, EIO);
    EXPECT_EQ(stream.ClearBit(), -1);
  });
  EXPECT_EQ(err, kpztest::ErrLine(kFileIoSrc, "Seek", 267, "fseek err(5)."));
  EXPECT_EQ(stream.ClearBit(), 0);  // the held byte was dropped all the same

  ASSERT_EQ(stream.ReadBit(&out, 3u), 3u);
  lent.Close();
  err = Captured([&] { EXPECT_EQ(stream.ClearBit(), -1); });
  EXPECT_EQ(err, kpztest::WarnLine(kFileIoSrc, "Seek", 257, "handle is null"));
}

}  // namespace
