#include "util/DtNlDataUtil.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace {

const DtNlByteOrder kOrder7 = static_cast<DtNlByteOrder>(7);

std::string Hex(const UINT8* p, size_t n) {
  std::string out;
  char buf[4];
  for (size_t i = 0; i < n; ++i) {
    std::snprintf(buf, sizeof buf, "%02X ", p[i]);
    out += buf;
  }
  return out;
}

// ---- byte order values ----

TEST(DtNlDataUtil, ByteOrderValuesAreZeroForBigAndOneForLittleEndian) {
  EXPECT_EQ(static_cast<int>(DtNlBigEndian), 0);
  EXPECT_EQ(static_cast<int>(DtNlLittleEndian), 1);
  EXPECT_EQ(sizeof(DtNlByteOrder), 4u);
}

// ---- U16ToU8Array / U32ToU8Array ----

struct U16WriteRow {
  UINT16 value;
  DtNlByteOrder order;
  UINT8 b0, b1;
};

TEST(DtNlDataUtil, U16ToU8ArrayStoresTwoBytesInTheGivenOrderAtAnyAlignment) {
  const U16WriteRow rows[] = {
      {0x1234, DtNlBigEndian, 0x12, 0x34},    {0x1234, DtNlLittleEndian, 0x34, 0x12},
      {0x1234, kOrder7, 0x34, 0x12},          {0x0000, DtNlBigEndian, 0x00, 0x00},
      {0xFFFF, DtNlLittleEndian, 0xFF, 0xFF}, {0x00FF, DtNlBigEndian, 0x00, 0xFF},
      {0x00FF, DtNlLittleEndian, 0xFF, 0x00}, {0x8001, DtNlBigEndian, 0x80, 0x01},
      {0x8001, kOrder7, 0x01, 0x80},          {0xFF00, DtNlBigEndian, 0xFF, 0x00},
  };
  for (const U16WriteRow& row : rows) {
    for (size_t offset = 0; offset < 4; ++offset) {
      std::array<UINT8, 8> buf;
      buf.fill(0xEE);
      UINT8* dst = buf.data() + offset;
      EXPECT_EQ(DtNlDataUtil::U16ToU8Array(row.value, dst, row.order), dst);
      std::array<UINT8, 8> want;
      want.fill(0xEE);
      want[offset] = row.b0;
      want[offset + 1] = row.b1;
      EXPECT_EQ(Hex(buf.data(), buf.size()), Hex(want.data(), want.size()))
          << "value " << row.value << " order " << static_cast<int>(row.order) << " offset "
          << offset;
    }
  }
}

struct U32WriteRow {
  UINT32 value;
  DtNlByteOrder order;
  UINT8 b[4];
};

TEST(DtNlDataUtil, U32ToU8ArrayStoresFourBytesInTheGivenOrderAtAnyAlignment) {
  const U32WriteRow rows[] = {
      {0x12345678u, DtNlBigEndian, {0x12, 0x34, 0x56, 0x78}},
      {0x12345678u, DtNlLittleEndian, {0x78, 0x56, 0x34, 0x12}},
      {0x12345678u, kOrder7, {0x78, 0x56, 0x34, 0x12}},
      {0x00000102u, DtNlBigEndian, {0x00, 0x00, 0x01, 0x02}},
      {0x00000102u, DtNlLittleEndian, {0x02, 0x01, 0x00, 0x00}},
      {0xFFFFFFFFu, DtNlBigEndian, {0xFF, 0xFF, 0xFF, 0xFF}},
      {0x00000000u, kOrder7, {0x00, 0x00, 0x00, 0x00}},
      {0x80000001u, DtNlBigEndian, {0x80, 0x00, 0x00, 0x01}},
      {0x80000001u, DtNlLittleEndian, {0x01, 0x00, 0x00, 0x80}},
  };
  for (const U32WriteRow& row : rows) {
    for (size_t offset = 0; offset < 4; ++offset) {
      std::array<UINT8, 10> buf;
      buf.fill(0xEE);
      UINT8* dst = buf.data() + offset;
      EXPECT_EQ(DtNlDataUtil::U32ToU8Array(row.value, dst, row.order), dst);
      std::array<UINT8, 10> want;
      want.fill(0xEE);
      std::memcpy(want.data() + offset, row.b, 4);
      EXPECT_EQ(Hex(buf.data(), buf.size()), Hex(want.data(), want.size()))
          << "value " << row.value << " order " << static_cast<int>(row.order) << " offset "
          << offset;
    }
  }
}

TEST(DtNlDataUtil, WritersReturnANullDestinationAtOnce) {
  EXPECT_EQ(DtNlDataUtil::U16ToU8Array(0x1234, nullptr, DtNlBigEndian), nullptr);
  EXPECT_EQ(DtNlDataUtil::U16ToU8Array(0x1234, nullptr, DtNlLittleEndian), nullptr);
  EXPECT_EQ(DtNlDataUtil::U32ToU8Array(0x12345678u, nullptr, DtNlBigEndian), nullptr);
  EXPECT_EQ(DtNlDataUtil::U32ToU8Array(0x12345678u, nullptr, DtNlLittleEndian), nullptr);
}

// ---- U8ArrayToU16 / U8ArrayToU32 ----

struct U16ReadRow {
  UINT8 b0, b1;
  DtNlByteOrder order;
  UINT16 value;
};

TEST(DtNlDataUtil, U8ArrayToU16ReadsTwoBytesInTheGivenOrderAtAnyAlignment) {
  const U16ReadRow rows[] = {
      {0x12, 0x34, DtNlBigEndian, 0x1234}, {0x12, 0x34, DtNlLittleEndian, 0x3412},
      {0x12, 0x34, kOrder7, 0x3412},       {0x00, 0xFF, DtNlBigEndian, 0x00FF},
      {0x00, 0xFF, DtNlLittleEndian, 0xFF00}, {0xFF, 0xFF, DtNlBigEndian, 0xFFFF},
      {0x80, 0x01, DtNlBigEndian, 0x8001}, {0x80, 0x01, kOrder7, 0x0180},
  };
  for (const U16ReadRow& row : rows) {
    for (size_t offset = 0; offset < 4; ++offset) {
      std::array<UINT8, 8> buf;
      buf.fill(0xEE);
      buf[offset] = row.b0;
      buf[offset + 1] = row.b1;
      EXPECT_EQ(DtNlDataUtil::U8ArrayToU16(buf.data() + offset, row.order), row.value)
          << "offset " << offset << " order " << static_cast<int>(row.order);
    }
  }
}

struct U32ReadRow {
  UINT8 b[4];
  DtNlByteOrder order;
  UINT32 value;
};

TEST(DtNlDataUtil, U8ArrayToU32ReadsFourBytesInTheGivenOrderAtAnyAlignment) {
  const U32ReadRow rows[] = {
      {{0x00, 0x00, 0x01, 0x02}, DtNlBigEndian, 0x00000102u},
      {{0x00, 0x00, 0x01, 0x02}, DtNlLittleEndian, 0x02010000u},
      {{0x00, 0x00, 0x01, 0x02}, kOrder7, 0x02010000u},
      {{0x12, 0x34, 0x56, 0x78}, DtNlBigEndian, 0x12345678u},
      {{0x12, 0x34, 0x56, 0x78}, DtNlLittleEndian, 0x78563412u},
      {{0xFF, 0xFF, 0xFF, 0xFF}, DtNlBigEndian, 0xFFFFFFFFu},
      {{0x80, 0x00, 0x00, 0x01}, DtNlBigEndian, 0x80000001u},
      {{0x80, 0x00, 0x00, 0x01}, DtNlLittleEndian, 0x01000080u},
  };
  for (const U32ReadRow& row : rows) {
    for (size_t offset = 0; offset < 4; ++offset) {
      std::array<UINT8, 10> buf;
      buf.fill(0xEE);
      std::memcpy(buf.data() + offset, row.b, 4);
      EXPECT_EQ(DtNlDataUtil::U8ArrayToU32(buf.data() + offset, row.order), row.value)
          << "offset " << offset << " order " << static_cast<int>(row.order);
    }
  }
}

TEST(DtNlDataUtil, WritingThenReadingInTheSameOrderGivesTheValueBack) {
  const UINT32 values[] = {0u, 1u, 0x7Fu, 0x80u, 0xFFFFu, 0x10000u, 0x12345678u, 0xFFFFFFFFu};
  const DtNlByteOrder orders[] = {DtNlBigEndian, DtNlLittleEndian, kOrder7};
  for (UINT32 v : values) {
    for (DtNlByteOrder order : orders) {
      UINT8 buf[7] = {0};
      DtNlDataUtil::U32ToU8Array(v, buf + 3, order);
      EXPECT_EQ(DtNlDataUtil::U8ArrayToU32(buf + 3, order), v);
      const UINT16 v16 = static_cast<UINT16>(v & 0xFFFFu);
      DtNlDataUtil::U16ToU8Array(v16, buf + 1, order);
      EXPECT_EQ(DtNlDataUtil::U8ArrayToU16(buf + 1, order), v16);
    }
  }
}

// ---- SwapU16 / SwapU32 ----

TEST(DtNlDataUtil, SwapU16ExchangesTheTwoBytes) {
  EXPECT_EQ(DtNlDataUtil::SwapU16(0x1234), 0x3412);
  EXPECT_EQ(DtNlDataUtil::SwapU16(0x00FF), 0xFF00);
  EXPECT_EQ(DtNlDataUtil::SwapU16(0xFF00), 0x00FF);
  EXPECT_EQ(DtNlDataUtil::SwapU16(0x0000), 0x0000);
  EXPECT_EQ(DtNlDataUtil::SwapU16(0x8001), 0x0180);
}

TEST(DtNlDataUtil, SwapU32ReversesTheFourBytes) {
  EXPECT_EQ(DtNlDataUtil::SwapU32(0x12345678u), 0x78563412u);
  EXPECT_EQ(DtNlDataUtil::SwapU32(0x000000FFu), 0xFF000000u);
  EXPECT_EQ(DtNlDataUtil::SwapU32(0xFF000000u), 0x000000FFu);
  EXPECT_EQ(DtNlDataUtil::SwapU32(0x00FF0000u), 0x0000FF00u);
  EXPECT_EQ(DtNlDataUtil::SwapU32(0x80000001u), 0x01000080u);
  EXPECT_EQ(DtNlDataUtil::SwapU32(0xFFFFFFFFu), 0xFFFFFFFFu);
}

// ---- SwapU8Array ----

// The buffer after writing the `count` bytes at `srcOff` reversed to `dstOff`.
std::vector<UINT8> Reversed(const std::vector<UINT8>& buf, size_t srcOff, size_t count,
                            size_t dstOff) {
  std::vector<UINT8> want = buf;
  for (size_t i = 0; i < count; ++i) {
    want[dstOff + i] = buf[srcOff + count - 1 - i];
  }
  return want;
}

std::vector<UINT8> Pattern(size_t n) {
  std::vector<UINT8> v(n);
  for (size_t i = 0; i < n; ++i) {
    v[i] = static_cast<UINT8>(i * 7 + 1);
  }
  return v;
}

TEST(DtNlDataUtil, SwapU8ArrayWithCountZeroOrOneLeavesTheDataUnchanged) {
  std::vector<UINT8> buf = Pattern(4);
  const std::vector<UINT8> before = buf;
  DtNlDataUtil::SwapU8Array(buf.data(), 0, buf.data());
  EXPECT_EQ(buf, before);
  DtNlDataUtil::SwapU8Array(buf.data(), 1, buf.data());
  EXPECT_EQ(buf, before);
  std::vector<UINT8> dst(4, 0xEE);
  DtNlDataUtil::SwapU8Array(buf.data(), 0, dst.data());
  EXPECT_EQ(dst, std::vector<UINT8>(4, 0xEE));
}

TEST(DtNlDataUtil, SwapU8ArrayWithANegativeCountWritesNothing) {
  std::vector<UINT8> src = Pattern(4);
  std::vector<UINT8> dst(4, 0xEE);
  DtNlDataUtil::SwapU8Array(src.data(), -3, dst.data());
  EXPECT_EQ(dst, std::vector<UINT8>(4, 0xEE));
}

TEST(DtNlDataUtil, SwapU8ArrayReversesInPlace) {
  std::vector<UINT8> buf = {1, 2, 3, 4, 5};
  DtNlDataUtil::SwapU8Array(buf.data(), 5, buf.data());
  EXPECT_EQ(buf, (std::vector<UINT8>{5, 4, 3, 2, 1}));
}

TEST(DtNlDataUtil, SwapU8ArrayWritesTheReversedBytesToASeparateArray) {
  const std::vector<UINT8> src = {1, 2, 3, 4, 5, 6};
  std::vector<UINT8> dst(8, 0xEE);
  DtNlDataUtil::SwapU8Array(src.data(), 6, dst.data() + 1);
  EXPECT_EQ(dst, (std::vector<UINT8>{0xEE, 6, 5, 4, 3, 2, 1, 0xEE}));
  EXPECT_EQ(src, (std::vector<UINT8>{1, 2, 3, 4, 5, 6}));
}

TEST(DtNlDataUtil, SwapU8ArrayHandlesEveryCountInPlaceAndApart) {
  for (size_t count = 1; count <= 70; ++count) {
    std::vector<UINT8> buf = Pattern(count + 4);
    const std::vector<UINT8> before = buf;
    DtNlDataUtil::SwapU8Array(buf.data() + 2, static_cast<int>(count), buf.data() + 2);
    EXPECT_EQ(buf, Reversed(before, 2, count, 2)) << "in place, count " << count;

    std::vector<UINT8> dst(count + 2, 0xEE);
    DtNlDataUtil::SwapU8Array(before.data(), static_cast<int>(count), dst.data() + 1);
    std::vector<UINT8> want(count + 2, 0xEE);
    for (size_t i = 0; i < count; ++i) {
      want[1 + i] = before[count - 1 - i];
    }
    EXPECT_EQ(dst, want) << "apart, count " << count;
  }
}

TEST(DtNlDataUtil, SwapU8ArrayHandlesOverlappingArraysInBothDirections) {
  const size_t counts[] = {2, 3, 5, 8, 9, 16, 17, 100, 1000};
  const size_t shifts[] = {1, 2, 3, 7, 8, 9};
  for (size_t count : counts) {
    for (size_t shift : shifts) {
      if (shift >= count) {
        continue;
      }
      // dst after src.
      std::vector<UINT8> buf = Pattern(count + shift);
      std::vector<UINT8> before = buf;
      DtNlDataUtil::SwapU8Array(buf.data(), static_cast<int>(count), buf.data() + shift);
      EXPECT_EQ(buf, Reversed(before, 0, count, shift)) << "forward " << count << "/" << shift;
      // dst before src.
      buf = Pattern(count + shift);
      before = buf;
      DtNlDataUtil::SwapU8Array(buf.data() + shift, static_cast<int>(count), buf.data());
      EXPECT_EQ(buf, Reversed(before, shift, count, 0)) << "backward " << count << "/" << shift;
    }
  }
}

TEST(DtNlDataUtil, SwapU8ArrayHandlesALargeArray) {
  std::vector<UINT8> buf = Pattern(100000);
  const std::vector<UINT8> before = buf;
  DtNlDataUtil::SwapU8Array(buf.data(), 100000, buf.data());
  EXPECT_EQ(buf, Reversed(before, 0, 100000, 0));
}

// ---- DataCmp ----

TEST(DtNlDataUtil, DataCmpOfZeroBytesIsOne) {
  const UINT8 a[] = {1};
  const UINT8 b[] = {2};
  EXPECT_EQ(DtNlDataUtil::DataCmp(a, b, 0), 1u);
}

TEST(DtNlDataUtil, DataCmpIsOneForEqualBytesAndZeroAtAnyDifference) {
  const UINT8 a[] = {1, 2, 3, 4, 5};
  const UINT8 same[] = {1, 2, 3, 4, 5};
  const UINT8 first[] = {9, 2, 3, 4, 5};
  const UINT8 last[] = {1, 2, 3, 4, 9};
  EXPECT_EQ(DtNlDataUtil::DataCmp(a, same, 5), 1u);
  EXPECT_EQ(DtNlDataUtil::DataCmp(a, first, 5), 0u);
  EXPECT_EQ(DtNlDataUtil::DataCmp(a, last, 5), 0u);
  EXPECT_EQ(DtNlDataUtil::DataCmp(a, last, 4), 1u);  // the difference lies past count
  EXPECT_EQ(DtNlDataUtil::DataCmp(a + 1, same + 1, 3), 1u);
}

// ---- AsciiToInt ----

TEST(DtNlDataUtil, AsciiToIntOfTextFollowsDecimalConversion) {
  EXPECT_EQ(DtNlDataUtil::AsciiToInt("2009"), 2009);
  EXPECT_EQ(DtNlDataUtil::AsciiToInt("  \t-42x"), -42);
  EXPECT_EQ(DtNlDataUtil::AsciiToInt("+7"), 7);
  EXPECT_EQ(DtNlDataUtil::AsciiToInt("007:"), 7);
  EXPECT_EQ(DtNlDataUtil::AsciiToInt("abc"), 0);
  EXPECT_EQ(DtNlDataUtil::AsciiToInt(""), 0);
  EXPECT_EQ(DtNlDataUtil::AsciiToInt("- 5"), 0);
  EXPECT_EQ(DtNlDataUtil::AsciiToInt("2147483647"), 2147483647);
}

TEST(DtNlDataUtil, AsciiToIntOfANullTextIsZero) {
  EXPECT_EQ(DtNlDataUtil::AsciiToInt(static_cast<const char*>(nullptr)), 0);
}

TEST(DtNlDataUtil, AsciiToIntOfBytesConvertsOnlyLenBytes) {
  const UINT8 data[] = {'2', '0', '0', '9', ':', '1', '0'};
  EXPECT_EQ(DtNlDataUtil::AsciiToInt(data, 4), 2009);
  EXPECT_EQ(DtNlDataUtil::AsciiToInt(data, 7), 2009);
  EXPECT_EQ(DtNlDataUtil::AsciiToInt(data, 2), 20);
  EXPECT_EQ(DtNlDataUtil::AsciiToInt(data + 5, 2), 10);
  EXPECT_EQ(DtNlDataUtil::AsciiToInt(data + 5, 1), 1);
}

TEST(DtNlDataUtil, AsciiToIntOfBytesWithATrailingNul) {
  const UINT8 data[] = {'1', '2', 0};
  EXPECT_EQ(DtNlDataUtil::AsciiToInt(data, 3), 12);
}

TEST(DtNlDataUtil, AsciiToIntOfBytesWithLen300ConvertsOnlyTheFirst44Bytes) {
  // 43 spaces, '7' at index 43, '5' at index 44, then spaces.
  std::vector<UINT8> data(300, ' ');
  data[43] = '7';
  data[44] = '5';
  EXPECT_EQ(DtNlDataUtil::AsciiToInt(data.data(), 300), 7);
  EXPECT_EQ(DtNlDataUtil::AsciiToInt(data.data(), 45), 75);
}

TEST(DtNlDataUtil, AsciiToIntOfBytesConverts255BytesWhole) {
  std::vector<UINT8> data(255, ' ');
  data[254] = '9';
  EXPECT_EQ(DtNlDataUtil::AsciiToInt(data.data(), 255), 9);
}

TEST(DtNlDataUtil, AsciiToIntOfBytesWithLenWhoseLow8BitsAreZeroIsZeroAndReadsNothing) {
  // The byte before the data is a NUL and the data itself a digit: neither
  // may be read.
  std::vector<UINT8> bytes = {0, '5'};
  EXPECT_EQ(DtNlDataUtil::AsciiToInt(bytes.data() + 1, 0), 0);
  EXPECT_EQ(DtNlDataUtil::AsciiToInt(bytes.data() + 1, 256), 0);
  EXPECT_EQ(DtNlDataUtil::AsciiToInt(bytes.data() + 1, 512), 0);
  EXPECT_EQ(DtNlDataUtil::AsciiToInt(bytes.data() + 1, 257), 5);
}

TEST(DtNlDataUtil, AsciiToIntOfNullBytesIsZero) {
  EXPECT_EQ(DtNlDataUtil::AsciiToInt(static_cast<const UINT8*>(nullptr), 4), 0);
}

// ---- sync-safe integers ----

struct SyncSafeRow {
  UINT32 plain;
  UINT32 safe;
};

TEST(DtNlDataUtil, ToSyncSafeSpreadsTheLow28BitsOverFour7BitGroups) {
  const SyncSafeRow rows[] = {
      {0x00000000u, 0x00000000u}, {0x0000007Fu, 0x0000007Fu}, {0x00000080u, 0x00000100u},
      {0x00003FFFu, 0x00007F7Fu}, {0x00004000u, 0x00010000u}, {0x001FFFFFu, 0x007F7F7Fu},
      {0x00200000u, 0x01000000u}, {0x0FFFFFFFu, 0x7F7F7F7Fu}, {0x0ABCDEF1u, 0x55733D71u},
  };
  for (const SyncSafeRow& row : rows) {
    EXPECT_EQ(DtNlDataUtil::ToSyncSafe(row.plain), row.safe) << std::hex << row.plain;
    EXPECT_EQ(DtNlDataUtil::ToUnSyncSafe(row.safe), row.plain) << std::hex << row.safe;
  }
}

TEST(DtNlDataUtil, ToSyncSafeDiscardsBits28To31) {
  EXPECT_EQ(DtNlDataUtil::ToSyncSafe(0x10000000u), 0u);
  EXPECT_EQ(DtNlDataUtil::ToSyncSafe(0xFFFFFFFFu), 0x7F7F7F7Fu);
  EXPECT_EQ(DtNlDataUtil::ToSyncSafe(0xF0000080u), 0x100u);
}

TEST(DtNlDataUtil, ToUnSyncSafeIgnoresTheTopBitOfEachByte) {
  EXPECT_EQ(DtNlDataUtil::ToUnSyncSafe(0x80808080u), 0u);
  EXPECT_EQ(DtNlDataUtil::ToUnSyncSafe(0xFFFFFFFFu), 0x0FFFFFFFu);
  EXPECT_EQ(DtNlDataUtil::ToUnSyncSafe(0x00000180u), 0x80u);
}

TEST(DtNlDataUtil, SyncSafeRoundTripGivesBackEveryValueBelow2To28) {
  std::vector<UINT32> xs = {0u,       1u,        0x7Fu,      0x80u,      0x3FFFu,     0x4000u,
                            0x1FFFFFu, 0x200000u, 0xFFFFFFFu, 0xFFFFFFEu, 0x8000000u, 0x7FFFFFFu};
  for (UINT32 x = 0; x < 0x10000000u; x += 4093u) {
    xs.push_back(x);
  }
  for (UINT32 x : xs) {
    const UINT32 safe = DtNlDataUtil::ToSyncSafe(x);
    ASSERT_EQ(safe & 0x80808080u, 0u) << std::hex << x;
    ASSERT_EQ(DtNlDataUtil::ToUnSyncSafe(safe), x) << std::hex << x;
  }
}

}  // namespace
