#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "raw/DtRawError.h"
#include "raw/RawTestChannels.h"
#include "raw/parser/DtRawIFDParserBase.h"
#include "support/FaultInjection.h"
#include "support/KpzFileBuilder.h"
#include "support/KpzFileBuilderExtras.h"
#include "support/LogExpect.h"
#include "util/io/DtNlBuffIo.h"
#include "util/io/DtNlDataStream.h"

namespace {

using kpztest::Bytes;
using kpztest::CaptureStderr;
using kpztest::Ifd;
using kpztest::KpzFile;
using kpztest::RawChannel;
using kpztest::RawStream;

const char* const kSrc = "jni/raw/parser/DtRawIFDParserBase.cpp";
// Lines of the parser's messages: wherever its logging calls stand in the source.
const int kLineAssert = kpztest::LogCallLineIn(kSrc, "parse", "pStream is NULL!!");
const int kLineFileSeek =
    kpztest::LogCallLineIn(kSrc, "parse", "DtRawIFDParserBase: File Seek Err!!");
const int kLineDirNum =
    kpztest::LogCallLineIn(kSrc, "parse", "DtRawIFDParserBase: Read Dir Num Err!!");
const int kLineSeekAllFound =
    kpztest::LogCallLineIn(kSrc, "parse", "DtRawIFDParserBase: Seek Err!!");
const int kLineReadTag =
    kpztest::LogCallLineIn(kSrc, "parse", "DtRawIFDParserBase: Read Tag Err!!");
const int kLineSeekSkip =
    kpztest::LogCallLineIn(kSrc, "parse", "DtRawIFDParserBase: Seek Err!!", 2);
const int kLineReadType =
    kpztest::LogCallLineIn(kSrc, "parse", "DtRawIFDParserBase: Read Data Type Err!!");
const int kLineReadCount =
    kpztest::LogCallLineIn(kSrc, "parse", "DtRawIFDParserBase: Read data count Err!!");
const int kLineReadOffset =
    kpztest::LogCallLineIn(kSrc, "parse", "DtRawIFDParserBase: Read Data Offset Err!!");
const int kLineFileEeek =
    kpztest::LogCallLineIn(kSrc, "parse", "DtRawIFDParserBase: File Eeek Err!!");
const int kLineReadData =
    kpztest::LogCallLineIn(kSrc, "parse", "DtRawIFDParserBase: Read Data Err!!");
const int kLineSeekEntryEnd =
    kpztest::LogCallLineIn(kSrc, "parse", "DtRawIFDParserBase: Seek Err!!", 3);
const int kLineReadNext =
    kpztest::LogCallLineIn(kSrc, "parse", "DtRawIFDParserBase: Read Next Ifd Offset Err!!");
const int kLineNoData = kpztest::LogCallLineIn(kSrc, "UpdateTagData",
                                               "DtRawIFDParserBase: no data for update. tagId:%d");
const int kLineNoMatch =
    kpztest::LogCallLineIn(kSrc, "UpdateTagData", "DtRawIFDParserBase: no match data size!!");

std::string ParseLine(int line, const std::string& message) {
  return kpztest::InfoLine(kSrc, "parse", line, message);
}

std::string FseekErrLine(int err) {
  return kpztest::ErrLine(kpztest::FileIoSource(), "Seek", 267,
                          "fseek err(" + std::to_string(err) + ").");
}

// A parser with a chosen target set and category 9, exposing its internals.
class TestParser : public DtRawIFDParserBase {
 public:
  explicit TestParser(std::vector<UINT16> ids) : m_ids(std::move(ids)) {}
  using DtRawIFDParserBase::getTagDataSize;
  using DtRawIFDParserBase::isTargetTag;
  const UINT16* TargetList() const { return m_targetTagList; }
  INT32 TargetNum() const { return m_targetTagNum; }
  const DtRawTagDataList& List() const { return m_tagDataList; }
  int InitCalls() const { return m_initCalls; }
  void Init() { initTargetTagList(); }

 protected:
  void initTargetTagList() override {
    ++m_initCalls;
    if (m_targetTagList != nullptr) return;
    setTargetTags(m_ids.data(), static_cast<INT32>(m_ids.size()));
  }
  UINT32 getTagCategory() override { return 9; }

 private:
  std::vector<UINT16> m_ids;
  int m_initCalls = 0;
};

// `ifd` placed at `at`, preceded by 0xEE filler.
Bytes DirAt(const Ifd& ifd, UINT32 at = 8) {
  KpzFile f(ifd.Order());
  f.PadTo(at, 0xEE);
  f.PlaceIfd(at, ifd);
  return f.Take();
}

Bytes Slice(const Bytes& b, std::size_t from, std::size_t n) {
  return Bytes(b.begin() + static_cast<std::ptrdiff_t>(from),
               b.begin() + static_cast<std::ptrdiff_t>(from + n));
}

Bytes Cat(Bytes a, const Bytes& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

Bytes DataOf(const DtRawTagData* t) {
  if (t == nullptr || t->m_data == nullptr) return Bytes();
  return Bytes(t->m_data, t->m_data + t->m_size);
}

// Position of entry `i`'s 4-byte value field when the directory is at `at`.
UINT32 FieldPos(std::size_t i, UINT32 at = 8) { return Ifd::EntryOffset(i, at) + 8u; }

class ParserOverChannels : public testing::TestWithParam<kpztest::RawParam> {
 protected:
  DtNlByteOrder Order() const { return GetParam().order; }
  RawChannel Channel() const { return GetParam().channel; }
  // Parses `bytes` with `parser` and returns the result; stderr in *err.
  int Run(TestParser* parser, const Bytes& bytes, int base, int ifdOffset, std::string* err) {
    RawStream s(Channel(), bytes);
    EXPECT_EQ(s.OpenResult(), 0);
    int result = 1;
    *err = CaptureStderr([&] { result = parser->Parse(s.Get(), base, ifdOffset, Order()); });
    return result;
  }
};

TEST_P(ParserOverChannels, ZeroEntryDirectoryKeepsNothingAndTakesTheNextOffset) {
  Ifd ifd(Order());
  ifd.SetNext(0x1234);
  TestParser p({0x10});
  std::string err;
  EXPECT_EQ(Run(&p, DirAt(ifd), 0, 8, &err), DtRawOk);
  EXPECT_EQ(err, "");
  EXPECT_EQ(p.GetNextIFDOffset(), 0x1234u);
  EXPECT_EQ(p.GetTagData(0x10), nullptr);
}

TEST_P(ParserOverChannels, ShortCount2IsInlineAndShortCount3IsReadThroughItsOffset) {
  Ifd ifd(Order());
  ifd.AddShorts(0x10, {1, 2}).AddShorts(0x11, {3, 4, 5});
  TestParser p({0x10, 0x11});
  std::string err;
  ASSERT_EQ(Run(&p, DirAt(ifd), 0, 8, &err), DtRawOk);
  EXPECT_EQ(err, "");
  const DtRawTagData* two = p.GetTagData(0x10);
  ASSERT_NE(two, nullptr);
  EXPECT_EQ(two->m_size, 4u);
  EXPECT_EQ(two->m_offset, FieldPos(0));
  EXPECT_EQ(DataOf(two), kpztest::U16sBytes({1, 2}, Order()));
  const DtRawTagData* three = p.GetTagData(0x11);
  ASSERT_NE(three, nullptr);
  EXPECT_EQ(three->m_size, 6u);
  EXPECT_EQ(three->m_offset, ifd.ValueOffsetOf(1, 8));
  EXPECT_NE(three->m_offset, FieldPos(1));
  EXPECT_EQ(DataOf(three), kpztest::U16sBytes({3, 4, 5}, Order()));
}

TEST_P(ParserOverChannels, KeptEntryCarriesCategoryIdAndByteOrder) {
  Ifd ifd(Order());
  ifd.AddShort(0x10, 7);
  TestParser p({0x10});
  std::string err;
  ASSERT_EQ(Run(&p, DirAt(ifd), 0, 8, &err), DtRawOk);
  const DtRawTagData* t = p.GetTagData(0x10);
  ASSERT_NE(t, nullptr);
  EXPECT_EQ(t->m_category, 9u);
  EXPECT_EQ(t->m_tagId, 0x10);
  EXPECT_EQ(t->m_byteOrder, Order());
}

TEST_P(ParserOverChannels, SShortCount4HasSize4AndIsReadInline) {
  Ifd ifd(Order());
  ifd.Add(0x10, kpztest::kTiffSShort, 4, Bytes{1, 2, 3, 4});
  TestParser p({0x10});
  std::string err;
  ASSERT_EQ(Run(&p, DirAt(ifd), 0, 8, &err), DtRawOk);
  const DtRawTagData* t = p.GetTagData(0x10);
  ASSERT_NE(t, nullptr);
  EXPECT_EQ(t->m_size, 4u);
  EXPECT_EQ(t->m_offset, FieldPos(0));
  EXPECT_EQ(DataOf(t), (Bytes{1, 2, 3, 4}));
}

TEST_P(ParserOverChannels, FloatAndDoubleCountOneBytePerValue) {
  Ifd ifd(Order());
  ifd.Add(0x10, kpztest::kTiffFloat, 3, Bytes{1, 2, 3})
      .Add(0x11, kpztest::kTiffDouble, 2, Bytes{4, 5});
  TestParser p({0x10, 0x11});
  std::string err;
  ASSERT_EQ(Run(&p, DirAt(ifd), 0, 8, &err), DtRawOk);
  ASSERT_NE(p.GetTagData(0x10), nullptr);
  EXPECT_EQ(p.GetTagData(0x10)->m_size, 3u);
  EXPECT_EQ(DataOf(p.GetTagData(0x10)), (Bytes{1, 2, 3}));
  ASSERT_NE(p.GetTagData(0x11), nullptr);
  EXPECT_EQ(p.GetTagData(0x11)->m_size, 2u);
}

TEST_P(ParserOverChannels, AsciiCount40IsKeptByPositionOnlyAtBasePlusOffset) {
  Ifd ifd(Order());
  ifd.AddRaw(0x10, kpztest::kTiffAscii, 40, 0x100).SetNext(0x40);
  TestParser p({0x10});
  RawStream s(Channel(), DirAt(ifd));
  std::string err = CaptureStderr([&] { EXPECT_EQ(p.Parse(s.Get(), 0x20, 8, Order()), DtRawOk); });
  EXPECT_EQ(err, "");
  const DtRawTagData* t = p.GetTagData(0x10);
  ASSERT_NE(t, nullptr);
  EXPECT_EQ(t->m_size, 40u);
  EXPECT_EQ(t->m_data, nullptr);
  EXPECT_EQ(t->m_offset, 0x120u);
  EXPECT_EQ(p.GetNextIFDOffset(), 0x60u);
  EXPECT_EQ(s.Io()->GetBaseOffset(), 0x20);
}

TEST_P(ParserOverChannels, OutOfLineValueIsReadAtBasePlusItsOffset) {
  Ifd ifd(Order());
  ifd.AddRaw(0x10, kpztest::kTiffShort, 3, 0x30);
  KpzFile f(Order());
  f.PlaceIfd(8, ifd).Place(0x40, Bytes{9, 8, 7, 6, 5, 4});
  TestParser p({0x10});
  std::string err;
  ASSERT_EQ(Run(&p, f.Data(), 0x10, 8, &err), DtRawOk);
  const DtRawTagData* t = p.GetTagData(0x10);
  ASSERT_NE(t, nullptr);
  EXPECT_EQ(t->m_offset, 0x40u);
  EXPECT_EQ(DataOf(t), (Bytes{9, 8, 7, 6, 5, 4}));
}

TEST_P(ParserOverChannels, BasePlusOffsetWrapsAsUnsigned32BitSum) {
  // Deliberate wrap: 0x10 + 0xFFFFFFF8 is position 8, the directory itself.
  Ifd ifd(Order());
  ifd.AddRaw(0x10, kpztest::kTiffShort, 3, 0xFFFFFFF8u);
  const Bytes bytes = DirAt(ifd);
  TestParser p({0x10});
  std::string err;
  ASSERT_EQ(Run(&p, bytes, 0x10, 8, &err), DtRawOk);
  const DtRawTagData* t = p.GetTagData(0x10);
  ASSERT_NE(t, nullptr);
  EXPECT_EQ(t->m_offset, 8u);
  EXPECT_EQ(DataOf(t), Slice(bytes, 8, 6));
}

TEST_P(ParserOverChannels, NextOffsetPlusBaseWrapsAsUnsigned32BitSum) {
  Ifd ifd(Order());
  ifd.SetNext(0xFFFFFFF0u);
  TestParser p({0x10});
  std::string err;
  ASSERT_EQ(Run(&p, DirAt(ifd), 0x20, 8, &err), DtRawOk);
  EXPECT_EQ(p.GetNextIFDOffset(), 0x10u);
}

TEST_P(ParserOverChannels, CountZeroIsKeptWithSizeZeroAndNoBytes) {
  Ifd ifd(Order());
  ifd.Add(0x10, kpztest::kTiffLong, 0, Bytes());
  TestParser p({0x10});
  std::string err;
  ASSERT_EQ(Run(&p, DirAt(ifd), 0, 8, &err), DtRawOk);
  const DtRawTagData* t = p.GetTagData(0x10);
  ASSERT_NE(t, nullptr);
  EXPECT_EQ(t->m_size, 0u);
  EXPECT_EQ(t->m_data, nullptr);
  EXPECT_EQ(t->m_offset, FieldPos(0));
}

TEST_P(ParserOverChannels, LongCount0x40000001WrapsToSize4AndIsReadInline) {
  Ifd ifd(Order());
  ifd.AddRawField(0x10, kpztest::kTiffLong, 0x40000001u, {0xAA, 0xBB, 0xCC, 0xDD});
  TestParser p({0x10});
  std::string err;
  ASSERT_EQ(Run(&p, DirAt(ifd), 0, 8, &err), DtRawOk);
  const DtRawTagData* t = p.GetTagData(0x10);
  ASSERT_NE(t, nullptr);
  EXPECT_EQ(t->m_size, 4u);
  EXPECT_EQ(t->m_offset, FieldPos(0));
  EXPECT_EQ(DataOf(t), (Bytes{0xAA, 0xBB, 0xCC, 0xDD}));
}

TEST_P(ParserOverChannels, RationalCount0x20000000WrapsToSizeZero) {
  Ifd ifd(Order());
  ifd.AddRaw(0x10, kpztest::kTiffRational, 0x20000000u, 0xFFFFFFFFu);
  TestParser p({0x10});
  std::string err;
  ASSERT_EQ(Run(&p, DirAt(ifd), 0, 8, &err), DtRawOk);
  const DtRawTagData* t = p.GetTagData(0x10);
  ASSERT_NE(t, nullptr);
  EXPECT_EQ(t->m_size, 0u);
  EXPECT_EQ(t->m_data, nullptr);
  EXPECT_EQ(t->m_offset, FieldPos(0));
}

TEST_P(ParserOverChannels, FirstOfTwoEntriesWithTheSameIdIsKept) {
  Ifd ifd(Order());
  ifd.AddShort(0x10, 1).AddShort(0x10, 2).AddShort(0x11, 3);
  TestParser p({0x10, 0x11, 0x12});
  std::string err;
  ASSERT_EQ(Run(&p, DirAt(ifd), 0, 8, &err), DtRawOk);
  ASSERT_NE(p.GetTagData(0x10), nullptr);
  EXPECT_EQ(p.GetTagData(0x10)->m_offset, FieldPos(0));
  EXPECT_EQ(DataOf(p.GetTagData(0x10)), kpztest::U16Bytes(1, Order()));
  ASSERT_NE(p.GetTagData(0x11), nullptr);
  EXPECT_EQ(DataOf(p.GetTagData(0x11)), kpztest::U16Bytes(3, Order()));
}

TEST_P(ParserOverChannels, EntriesOutsideTheTargetSetAreNotKept) {
  Ifd ifd(Order());
  ifd.AddShort(0x99, 1).AddLong(0x0110, 5).AddShort(0x10, 2).SetNext(0x77);
  TestParser p({0x10, 0x11});
  std::string err;
  ASSERT_EQ(Run(&p, DirAt(ifd), 0, 8, &err), DtRawOk);
  EXPECT_EQ(p.GetTagData(0x99), nullptr);
  EXPECT_EQ(p.GetTagData(0x0110), nullptr);
  ASSERT_NE(p.GetTagData(0x10), nullptr);
  EXPECT_EQ(DataOf(p.GetTagData(0x10)), kpztest::U16Bytes(2, Order()));
  EXPECT_EQ(p.GetNextIFDOffset(), 0x77u);
}

TEST_P(ParserOverChannels, OnceAllTargetsAreKeptTheNextOffsetIsStillRead) {
  Ifd ifd(Order());
  ifd.AddShort(0x10, 1).AddShort(0x10, 2).AddShort(0x99, 3).AddShort(0x11, 4).SetNext(0x55);
  TestParser p({0x10});
  std::string err;
  ASSERT_EQ(Run(&p, DirAt(ifd), 0, 8, &err), DtRawOk);
  EXPECT_EQ(DataOf(p.GetTagData(0x10)), kpztest::U16Bytes(1, Order()));
  EXPECT_EQ(p.GetTagData(0x11), nullptr);
  EXPECT_EQ(p.GetNextIFDOffset(), 0x55u);
}

TEST_P(ParserOverChannels, SecondParseWithoutFinalizeKeepsTheFirstEntries) {
  Ifd first(Order());
  first.AddShort(0x10, 1).SetNext(0x11);
  Ifd second(Order());
  second.AddShort(0x10, 2).AddShort(0x11, 3).SetNext(0x22);
  TestParser p({0x10, 0x11});
  std::string err;
  ASSERT_EQ(Run(&p, DirAt(first), 0, 8, &err), DtRawOk);
  const DtRawTagData* kept = p.GetTagData(0x10);
  ASSERT_EQ(Run(&p, DirAt(second), 0, 8, &err), DtRawOk);
  EXPECT_EQ(p.GetTagData(0x10), kept);
  EXPECT_EQ(DataOf(p.GetTagData(0x10)), kpztest::U16Bytes(1, Order()));
  EXPECT_EQ(DataOf(p.GetTagData(0x11)), kpztest::U16Bytes(3, Order()));
  EXPECT_EQ(p.GetNextIFDOffset(), 0x22u);
}

TEST_P(ParserOverChannels, FullListFromAnEarlierParseSkipsEveryEntry) {
  Ifd first(Order());
  first.AddShort(0x10, 1);
  Ifd second(Order());
  second.AddShort(0x10, 2).SetNext(0x33);
  TestParser p({0x10});
  std::string err;
  ASSERT_EQ(Run(&p, DirAt(first), 0, 8, &err), DtRawOk);
  ASSERT_EQ(Run(&p, DirAt(second), 0, 8, &err), DtRawOk);
  EXPECT_EQ(DataOf(p.GetTagData(0x10)), kpztest::U16Bytes(1, Order()));
  EXPECT_EQ(p.GetNextIFDOffset(), 0x33u);
}

TEST_P(ParserOverChannels, FinalizeFreesEntriesButKeepsTargetsAndNextOffset) {
  Ifd ifd(Order());
  ifd.AddShort(0x10, 1).SetNext(0x44);
  TestParser p({0x10});
  std::string err;
  ASSERT_EQ(Run(&p, DirAt(ifd), 0, 8, &err), DtRawOk);
  const UINT16* targets = p.TargetList();
  EXPECT_EQ(p.Finalize(), 0);
  EXPECT_EQ(p.GetTagData(0x10), nullptr);
  EXPECT_EQ(p.GetNextIFDOffset(), 0x44u);
  EXPECT_EQ(p.TargetList(), targets);
  EXPECT_EQ(p.TargetNum(), 1);
  ASSERT_EQ(Run(&p, DirAt(ifd), 0, 8, &err), DtRawOk);
  EXPECT_NE(p.GetTagData(0x10), nullptr);
}

// ---- failures over both channels -------------------------------------------

TEST_P(ParserOverChannels, DirectoryAtTheEndOfDataFailsReadingTheEntryCount) {
  TestParser p({0x10});
  std::string err;
  EXPECT_EQ(Run(&p, Bytes(8, 0xEE), 0, 8, &err), DtRawErrRead);
  EXPECT_EQ(err, ParseLine(kLineDirNum, "DtRawIFDParserBase: Read Dir Num Err!!"));
}

TEST_P(ParserOverChannels, DirectoryFarPastTheEndFailsReadingTheEntryCount) {
  TestParser p({0x10});
  std::string err;
  EXPECT_EQ(Run(&p, Bytes(8, 0xEE), 0, 0x7FFFFFFF, &err), DtRawErrRead);
  EXPECT_EQ(err, ParseLine(kLineDirNum, "DtRawIFDParserBase: Read Dir Num Err!!"));
}

TEST_P(ParserOverChannels, EntriesEndingEarlyFailReadingTheTagId) {
  Ifd ifd(Order());
  ifd.AddShort(0x10, 1);
  KpzFile f(Order());
  f.PlaceIfd(8, ifd).Truncate(8 + 2 + 1);
  TestParser p({0x10});
  std::string err;
  EXPECT_EQ(Run(&p, f.Data(), 0, 8, &err), DtRawErrRead);
  EXPECT_EQ(err, ParseLine(kLineReadTag, "DtRawIFDParserBase: Read Tag Err!!"));
}

TEST_P(ParserOverChannels, EntryEndingAfterItsIdFailsReadingTheType) {
  Ifd ifd(Order());
  ifd.AddShort(0x10, 1);
  KpzFile f(Order());
  f.PlaceIfd(8, ifd).Truncate(8 + 2 + 2 + 1);
  TestParser p({0x10});
  std::string err;
  EXPECT_EQ(Run(&p, f.Data(), 0, 8, &err), DtRawErrRead);
  EXPECT_EQ(err, ParseLine(kLineReadType, "DtRawIFDParserBase: Read Data Type Err!!"));
}

TEST_P(ParserOverChannels, EntryEndingAfterItsTypeFailsReadingTheCount) {
  Ifd ifd(Order());
  ifd.AddShort(0x10, 1);
  KpzFile f(Order());
  f.PlaceIfd(8, ifd).Truncate(8 + 2 + 4 + 3);
  TestParser p({0x10});
  std::string err;
  EXPECT_EQ(Run(&p, f.Data(), 0, 8, &err), DtRawErrRead);
  EXPECT_EQ(err, ParseLine(kLineReadCount, "DtRawIFDParserBase: Read data count Err!!"));
}

TEST_P(ParserOverChannels, EntryEndingAfterItsCountFailsReadingTheOffset) {
  Ifd ifd(Order());
  ifd.AddRaw(0x10, kpztest::kTiffAscii, 10, 0x40);
  KpzFile f(Order());
  f.PlaceIfd(8, ifd).Truncate(8 + 2 + 8 + 2);
  TestParser p({0x10});
  std::string err;
  EXPECT_EQ(Run(&p, f.Data(), 0, 8, &err), DtRawErrRead);
  EXPECT_EQ(err, ParseLine(kLineReadOffset, "DtRawIFDParserBase: Read Data Offset Err!!"));
}

TEST_P(ParserOverChannels, InlineValueCutByTheEndFailsReadingTheData) {
  Ifd ifd(Order());
  ifd.AddLong(0x10, 1);
  KpzFile f(Order());
  f.PlaceIfd(8, ifd).Truncate(8 + 2 + 8 + 3);
  TestParser p({0x10});
  std::string err;
  EXPECT_EQ(Run(&p, f.Data(), 0, 8, &err), DtRawErrRead);
  EXPECT_EQ(err, ParseLine(kLineReadData, "DtRawIFDParserBase: Read Data Err!!"));
  EXPECT_EQ(p.GetTagData(0x10), nullptr);
}

TEST_P(ParserOverChannels, ValueJustPastTheEndFailsReadingTheData) {
  Ifd ifd(Order());
  ifd.AddRaw(0x10, kpztest::kTiffAscii, 10, 0);
  Bytes bytes = DirAt(ifd);
  Ifd moved(Order());
  moved.AddRaw(0x10, kpztest::kTiffAscii, 10, static_cast<UINT32>(bytes.size()) + 10u);
  bytes = DirAt(moved);
  TestParser p({0x10});
  std::string err;
  EXPECT_EQ(Run(&p, bytes, 0, 8, &err), DtRawErrRead);
  EXPECT_EQ(err, ParseLine(kLineReadData, "DtRawIFDParserBase: Read Data Err!!"));
}

TEST_P(ParserOverChannels, ValueAtOffset0x7FFFFFFFFailsReadingTheData) {
  Ifd ifd(Order());
  ifd.AddRaw(0x10, kpztest::kTiffAscii, 10, 0x7FFFFFFFu);
  TestParser p({0x10});
  std::string err;
  EXPECT_EQ(Run(&p, DirAt(ifd), 0, 8, &err), DtRawErrRead);
  EXPECT_EQ(err, ParseLine(kLineReadData, "DtRawIFDParserBase: Read Data Err!!"));
}

TEST_P(ParserOverChannels, ValueAtOffset0xFFFFFFFFIsClampedOrRefusedByTheChannel) {
  // The channel takes the offset as the signed 32-bit value -1: the memory
  // channel clamps it to the start, the file channel's seek fails.
  Ifd ifd(Order());
  ifd.AddRaw(0x10, kpztest::kTiffAscii, 10, 0xFFFFFFFFu);
  const Bytes bytes = DirAt(ifd);
  TestParser p({0x10});
  std::string err;
  const int result = Run(&p, bytes, 0, 8, &err);
  if (Channel() == RawChannel::Memory) {
    EXPECT_EQ(result, DtRawOk);
    EXPECT_EQ(err, "");
    const DtRawTagData* t = p.GetTagData(0x10);
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(t->m_offset, 0xFFFFFFFFu);
    EXPECT_EQ(DataOf(t), Slice(bytes, 0, 10));
  } else {
    EXPECT_EQ(result, DtRawErrSeek);
    EXPECT_EQ(err, FseekErrLine(EINVAL) +
                       ParseLine(kLineFileEeek, "DtRawIFDParserBase: File Eeek Err!!"));
    EXPECT_EQ(p.GetTagData(0x10), nullptr);
  }
}

TEST_P(ParserOverChannels, DirectoryEndingAfterItsEntriesFailsReadingTheNextOffset) {
  Ifd ifd(Order());
  ifd.AddShort(0x10, 1);
  KpzFile f(Order());
  f.PlaceIfd(8, ifd).Truncate(8 + 2 + 12 + 3);
  TestParser p({0x10});
  std::string err;
  EXPECT_EQ(Run(&p, f.Data(), 0, 8, &err), DtRawErrRead);
  EXPECT_EQ(err, ParseLine(kLineReadNext, "DtRawIFDParserBase: Read Next Ifd Offset Err!!"));
}

TEST_P(ParserOverChannels, FailureKeepsEarlierEntriesAndThePreviousNextOffset) {
  Ifd good(Order());
  good.SetNext(0x99);
  Ifd bad(Order());
  bad.AddShort(0x10, 1).AddRaw(0x11, kpztest::kTiffAscii, 10, 0x7FFFFFF0u);
  TestParser p({0x10, 0x11});
  std::string err;
  ASSERT_EQ(Run(&p, DirAt(good), 0, 8, &err), DtRawOk);
  EXPECT_EQ(Run(&p, DirAt(bad), 0, 8, &err), DtRawErrRead);
  EXPECT_EQ(DataOf(p.GetTagData(0x10)), kpztest::U16Bytes(1, Order()));
  EXPECT_EQ(p.GetTagData(0x11), nullptr);
  EXPECT_EQ(p.GetNextIFDOffset(), 0x99u);
}

// ---- Reading a memory block in place ------------------------------------------

// A memory channel that is not exactly DtNlBuffIo: the parser reads it field
// by field, through the channel's own calls, like any other channel.
class FieldByFieldBuffIo : public DtNlBuffIo {};

// Everything a parse leaves behind that anyone could see.
struct ParseOutcome {
  int result = 1;
  std::string err;
  std::vector<std::string> kept;  // one line per kept entry
  UINT32 next = 0;
  long long position = -1;
  int eof = -1;
};

std::string Describe(const DtRawTagData* t) {
  std::string text = std::to_string(t->m_tagId) + " cat " + std::to_string(t->m_category) + " at " +
                     std::to_string(t->m_offset) + " size " + std::to_string(t->m_size) +
                     " order " + std::to_string(t->m_byteOrder) + " bytes";
  for (const UINT8 b : DataOf(t)) {
    text += " " + std::to_string(b);
  }
  return text;
}

// Parses `bytes` (the block is exactly their size) at `ifdOffset` through
// `io`, with targets `ids`.
ParseOutcome ParseWith(DtNlBuffIo* io, const Bytes& bytes, int base, int ifdOffset,
                       DtNlByteOrder order, const std::vector<UINT16>& ids) {
  std::unique_ptr<UINT8[]> copy(new UINT8[bytes.empty() ? 1 : bytes.size()]);
  if (!bytes.empty()) {
    std::memcpy(copy.get(), bytes.data(), bytes.size());
  }
  EXPECT_EQ(io->Open(copy.get(), static_cast<UINT>(bytes.size())), 0);
  DtNlDataStream stream(io);
  TestParser p(ids);
  ParseOutcome out;
  out.err = CaptureStderr([&] { out.result = p.Parse(&stream, base, ifdOffset, order); });
  for (DtNlNode* n = p.List().GetBeginNode(); n != p.List().GetEndNode(); n = n->next) {
    out.kept.push_back(Describe(DtRawTagDataList::TagDataOf(n)));
  }
  out.next = p.GetNextIFDOffset();
  out.position = io->Tell64();
  out.eof = io->IsEof();
  io->Close();
  return out;
}

// The same parse read in place and field by field must leave the same traces.
void ExpectSameBothWays(const Bytes& bytes, int base, int ifdOffset, DtNlByteOrder order,
                        const std::vector<UINT16>& ids) {
  DtNlBuffIo inPlace;
  FieldByFieldBuffIo fieldByField;
  const ParseOutcome a = ParseWith(&inPlace, bytes, base, ifdOffset, order, ids);
  const ParseOutcome b = ParseWith(&fieldByField, bytes, base, ifdOffset, order, ids);
  EXPECT_EQ(a.result, b.result);
  EXPECT_EQ(a.err, b.err);
  EXPECT_EQ(a.kept, b.kept);
  EXPECT_EQ(a.next, b.next);
  EXPECT_EQ(a.position, b.position);
  EXPECT_EQ(a.eof, b.eof);
}

TEST(DtRawIFDParserBase, InPlaceAndFieldByFieldReadingAgreeWhereverTheDataEnds) {
  for (DtNlByteOrder order : {DtNlLittleEndian, DtNlBigEndian}) {
    Ifd ifd(order);
    ifd.AddShort(0x99, 1)
        .AddShort(0x10, 2)                     // inline
        .AddLongs(0x11, {7, 8, 9})             // out of line, copied
        .AddAscii(0x12, std::string(40, 'a'))  // out of line, kept by position
        .AddShort(0x10, 3)                     // a later duplicate
        .AddShorts(0x13, {4, 5})               // inline, 4 bytes
        .AddRaw(0x14, 4, 0, 0)                 // no value
        .AddShort(0x98, 6)
        .SetNext(0x4242);
    const Bytes whole = DirAt(ifd);
    const std::vector<UINT16> ids = {0x10, 0x11, 0x12, 0x13, 0x14};
    for (std::size_t cut = 0; cut <= whole.size(); ++cut) {
      SCOPED_TRACE("cut at " + std::to_string(cut));
      ExpectSameBothWays(Slice(whole, 0, cut), 0, 8, order, ids);
    }
    // All targets found early: the rest is skipped unread, wherever it ends.
    for (std::size_t cut = 0; cut <= whole.size(); cut += 5) {
      SCOPED_TRACE("all found, cut at " + std::to_string(cut));
      ExpectSameBothWays(Slice(whole, 0, cut), 0, 8, order, {0x10});
    }
    // Directory and value offsets outside the block, negative ones included.
    for (int at : {-1, -12, 0x7FFFFFFF, static_cast<int>(whole.size()), 3}) {
      SCOPED_TRACE("directory at " + std::to_string(at));
      ExpectSameBothWays(whole, 0, at, order, ids);
    }
    for (int base : {-8, 1000, 0x7FFFFFF0}) {
      SCOPED_TRACE("base " + std::to_string(base));
      ExpectSameBothWays(whole, base, 8, order, ids);
    }
  }
}

TEST(DtRawIFDParserBase, InPlaceAndFieldByFieldReadingAgreeOnArbitraryBytes) {
  // Deterministic pseudo-random blocks: a directory count, entries of random
  // ids among the targets, random types, counts and offsets.
  std::uint32_t state = 12345u;
  const auto next = [&state]() {
    state = state * 1664525u + 1013904223u;
    return state >> 8;
  };
  const std::vector<UINT16> ids = {1, 2, 3, 4, 5, 6};
  for (int round = 0; round < 400; ++round) {
    Bytes bytes(8 + next() % 300);
    for (UINT8& b : bytes) {
      b = static_cast<UINT8>(next());
    }
    // Small counts and target ids often enough to get past the first entry.
    if (bytes.size() > 10) {
      bytes[8] = static_cast<UINT8>(next() % 20);
      bytes[9] = 0;
      for (std::size_t at = 10; at + 1 < bytes.size(); at += 12) {
        bytes[at] = static_cast<UINT8>(next() % 8);
        bytes[at + 1] = 0;
        if (at + 3 < bytes.size()) {
          bytes[at + 2] = static_cast<UINT8>(next() % 13);
          bytes[at + 3] = 0;
        }
        if (at + 7 < bytes.size()) {
          bytes[at + 5] = bytes[at + 6] = bytes[at + 7] = 0;
          bytes[at + 4] = static_cast<UINT8>(next() % 40);
        }
      }
    }
    SCOPED_TRACE("round " + std::to_string(round));
    ExpectSameBothWays(bytes, 0, 8, DtNlLittleEndian, ids);
  }
}

TEST_P(ParserOverChannels, DirectoryOf65535EntriesIsWalkedToItsNextOffset) {
  Ifd ifd(Order());
  for (int i = 0; i < 65533; ++i) {
    ifd.AddRaw(0x99, 3, 1, static_cast<std::uint32_t>(i));
  }
  ifd.AddShort(0x10, 0x1234).AddLongs(0x11, {1, 2});  // the targets come last
  ifd.SetNext(0x5678);
  ASSERT_EQ(ifd.Entries().size(), 65535u);
  TestParser p({0x10, 0x11});
  std::string err;
  ASSERT_EQ(Run(&p, DirAt(ifd), 0, 8, &err), DtRawOk);
  EXPECT_EQ(err, "");
  EXPECT_EQ(DataOf(p.GetTagData(0x10)), kpztest::U16Bytes(0x1234, Order()));
  ASSERT_NE(p.GetTagData(0x11), nullptr);
  EXPECT_EQ(p.GetTagData(0x11)->m_size, 8u);
  EXPECT_EQ(p.GetNextIFDOffset(), 0x5678u);
}

TEST_P(ParserOverChannels, ReparseAfterFinalizeReusesTheSameStorage) {
  Ifd ifd(Order());
  ifd.AddShort(0x10, 1).AddLongs(0x11, {2, 3}).SetNext(0x11);
  const Bytes bytes = DirAt(ifd);
  TestParser p({0x10, 0x11});
  std::string err;
  ASSERT_EQ(Run(&p, bytes, 0, 8, &err), DtRawOk);
  const DtRawTagData* first = p.GetTagData(0x11);
  ASSERT_NE(first, nullptr);
  const UINT8* firstBytes = first->m_data;
  for (int round = 0; round < 3; ++round) {
    p.Finalize();
    EXPECT_EQ(p.GetTagData(0x11), nullptr);
    EXPECT_EQ(p.List().GetFreeBlockEntries(), DtRawTagDataList::BLOCK_ENTRIES);
    ASSERT_EQ(Run(&p, bytes, 0, 8, &err), DtRawOk);
    EXPECT_EQ(p.GetTagData(0x11), first);
    EXPECT_EQ(p.GetTagData(0x11)->m_data, firstBytes);
    EXPECT_EQ(DataOf(p.GetTagData(0x11)),
              Cat(kpztest::U32Bytes(2, Order()), kpztest::U32Bytes(3, Order())));
  }
}

TEST_P(ParserOverChannels, ATagListFilledToItsTargetCountHoldsEveryTarget) {
  std::vector<UINT16> ids;
  Ifd ifd(Order());
  for (UINT16 id = 0x20; id < 0x20 + DtRawIFDParserBase::MAX_TARGETS; ++id) {
    ids.push_back(id);
    ifd.AddLongs(id, {id, 1u});  // 8 bytes each, out of line
  }
  ifd.AddShort(0x20, 9);  // past the last target: skipped unread
  ifd.SetNext(0x99);
  TestParser p(ids);
  std::string err;
  ASSERT_EQ(Run(&p, DirAt(ifd), 0, 8, &err), DtRawOk);
  EXPECT_EQ(p.List().GetSize(), DtRawIFDParserBase::MAX_TARGETS);
  EXPECT_EQ(p.List().GetFreeBlockEntries(), 0u);
  for (UINT16 id : ids) {
    ASSERT_NE(p.GetTagData(id), nullptr) << id;
    EXPECT_EQ(DataOf(p.GetTagData(id)),
              Cat(kpztest::U32Bytes(id, Order()), kpztest::U32Bytes(1, Order())));
  }
  EXPECT_EQ(p.GetNextIFDOffset(), 0x99u);
}

TEST(DtRawIFDParserBase, TargetSetOfMoreThanSixteenIdsIsRefused) {
  std::vector<UINT16> ids;
  for (UINT16 id = 1; id <= DtRawIFDParserBase::MAX_TARGETS + 1; ++id) {
    ids.push_back(id);
  }
  TestParser p(ids);
  p.Init();
  EXPECT_EQ(p.TargetList(), nullptr);
  EXPECT_EQ(p.TargetNum(), 0);
  EXPECT_EQ(p.isTargetTag(1), 0);
}

INSTANTIATE_TEST_SUITE_P(AllChannels, ParserOverChannels, kpztest::AllRawParams(),
                         kpztest::RawParamName);

// ---- failures only a file channel can produce -----------------------------

class ParserOverFile : public testing::Test {
 protected:
  // Parses over a file channel; the reads of the parse alone (not those of
  // the stderr capture) are left in m_reads.
  int Run(TestParser* p, const Bytes& bytes, int ifdOffset, std::string* err) {
    RawStream s(RawChannel::File, bytes);
    EXPECT_EQ(s.OpenResult(), 0);
    int result = 1;
    *err = CaptureStderr([&] {
      kpztest::ResetCounts();
      result = p->Parse(s.Get(), 0, ifdOffset, DtNlLittleEndian);
      m_reads = kpztest::CallCount(kpztest::Call::Fread);
    });
    kpztest::DisarmAll();
    return result;
  }
  kpztest::FaultGuard m_guard;
  int m_reads = 0;
};

TEST_F(ParserOverFile, NegativeDirectoryOffsetFailsTheSeek) {
  TestParser p({0x10});
  std::string err;
  EXPECT_EQ(Run(&p, Bytes(16, 0), -1, &err), DtRawErrSeek);
  EXPECT_EQ(err,
            FseekErrLine(EINVAL) + ParseLine(kLineFileSeek, "DtRawIFDParserBase: File Seek Err!!"));
}

TEST_F(ParserOverFile, DeviceErrorOnTheDirectorySeekGivesIoError) {
  Ifd ifd(DtNlLittleEndian);
  const Bytes bytes = DirAt(ifd);
  TestParser p({0x10});
  RawStream s(RawChannel::File, bytes);
  kpztest::Arm(kpztest::Call::Fseek, EIO);
  int result = 0;
  const std::string err = CaptureStderr([&] { result = p.Parse(s.Get(), 0, 8, DtNlLittleEndian); });
  kpztest::DisarmAll();
  EXPECT_EQ(result, DtRawErrIo);
  EXPECT_EQ(err,
            FseekErrLine(EIO) + ParseLine(kLineFileSeek, "DtRawIFDParserBase: File Seek Err!!"));
}

TEST_F(ParserOverFile, DeviceErrorOnAReadGivesIoError) {
  Ifd ifd(DtNlLittleEndian);
  const Bytes bytes = DirAt(ifd);
  TestParser p({0x10});
  RawStream s(RawChannel::File, bytes);
  kpztest::Arm(kpztest::Call::Fread, EIO);
  int result = 0;
  const std::string err = CaptureStderr([&] { result = p.Parse(s.Get(), 0, 8, DtNlLittleEndian); });
  kpztest::DisarmAll();
  EXPECT_EQ(result, DtRawErrIo);
  EXPECT_EQ(err, ParseLine(kLineDirNum, "DtRawIFDParserBase: Read Dir Num Err!!"));
}

// Runs `ifd` with one fseek failing after `skip` good ones; returns the result.
int RunWithFailingSeek(TestParser* p, const Ifd& ifd, int skip, std::string* err) {
  RawStream s(RawChannel::File, DirAt(ifd));
  kpztest::Arm(kpztest::Call::Fseek, EINVAL, skip);
  int result = 0;
  *err = CaptureStderr([&] { result = p->Parse(s.Get(), 0, 8, DtNlLittleEndian); });
  kpztest::DisarmAll();
  return result;
}

TEST_F(ParserOverFile, FailedSkipAfterAllTargetsAreKeptIsASeekError) {
  // Seeks: directory, value, entry end, then the 12-byte skip.
  Ifd ifd(DtNlLittleEndian);
  ifd.AddShort(0x10, 1).AddShort(0x11, 2);
  TestParser p({0x10});
  std::string err;
  EXPECT_EQ(RunWithFailingSeek(&p, ifd, 3, &err), DtRawErrSeek);
  EXPECT_EQ(err,
            FseekErrLine(EINVAL) + ParseLine(kLineSeekAllFound, "DtRawIFDParserBase: Seek Err!!"));
  EXPECT_NE(p.GetTagData(0x10), nullptr);
}

TEST_F(ParserOverFile, FailedSkipOfANonTargetEntryIsASeekError) {
  // Seeks: directory, then the 10-byte skip.
  Ifd ifd(DtNlLittleEndian);
  ifd.AddShort(0x99, 1);
  TestParser p({0x10});
  std::string err;
  EXPECT_EQ(RunWithFailingSeek(&p, ifd, 1, &err), DtRawErrSeek);
  EXPECT_EQ(err, FseekErrLine(EINVAL) + ParseLine(kLineSeekSkip, "DtRawIFDParserBase: Seek Err!!"));
}

TEST_F(ParserOverFile, FailedSeekToTheValueIsAFileEeekError) {
  // Seeks: directory, then the value.
  Ifd ifd(DtNlLittleEndian);
  ifd.AddShort(0x10, 1);
  TestParser p({0x10});
  std::string err;
  EXPECT_EQ(RunWithFailingSeek(&p, ifd, 1, &err), DtRawErrSeek);
  EXPECT_EQ(err,
            FseekErrLine(EINVAL) + ParseLine(kLineFileEeek, "DtRawIFDParserBase: File Eeek Err!!"));
}

TEST_F(ParserOverFile, FailedSeekToTheEntryEndIsASeekError) {
  // Seeks: directory, value, then the entry end.
  Ifd ifd(DtNlLittleEndian);
  ifd.AddShort(0x10, 1);
  TestParser p({0x10, 0x11});
  std::string err;
  EXPECT_EQ(RunWithFailingSeek(&p, ifd, 2, &err), DtRawErrSeek);
  EXPECT_EQ(err,
            FseekErrLine(EINVAL) + ParseLine(kLineSeekEntryEnd, "DtRawIFDParserBase: Seek Err!!"));
  EXPECT_NE(p.GetTagData(0x10), nullptr);  // kept before the failure
}

TEST_F(ParserOverFile, FailedTellAtTheEntryStartIsATellErrorWithoutALineOfItsOwn) {
  Ifd ifd(DtNlLittleEndian);
  ifd.AddShort(0x10, 1);
  TestParser p({0x10});
  RawStream s(RawChannel::File, DirAt(ifd));
  kpztest::Arm(kpztest::Call::Ftell, EBADF);
  int result = 0;
  const std::string err = CaptureStderr([&] { result = p.Parse(s.Get(), 0, 8, DtNlLittleEndian); });
  kpztest::DisarmAll();
  EXPECT_EQ(result, DtRawErrTell);
  EXPECT_EQ(err, kpztest::ErrLine(kpztest::FileIoSource(), "Tell", 285,
                                  "ftell err(" + std::to_string(EBADF) + ")."));
}

TEST_F(ParserOverFile, FailedTellAtTheInlineFieldMapsTheChannelStatus) {
  Ifd ifd(DtNlLittleEndian);
  ifd.AddShort(0x10, 1);
  TestParser p({0x10});
  RawStream s(RawChannel::File, DirAt(ifd));
  kpztest::Arm(kpztest::Call::Ftell, EIO, 1);
  int result = 0;
  const std::string err = CaptureStderr([&] { result = p.Parse(s.Get(), 0, 8, DtNlLittleEndian); });
  kpztest::DisarmAll();
  EXPECT_EQ(result, DtRawErrIo);
  EXPECT_EQ(err, kpztest::ErrLine(kpztest::FileIoSource(), "Tell", 285,
                                  "ftell err(" + std::to_string(EIO) + ")."));
  EXPECT_EQ(p.GetTagData(0x10), nullptr);
}

TEST_F(ParserOverFile, EntriesAfterTheLastTargetAreSkippedUnread) {
  Ifd shortDir(DtNlLittleEndian);
  shortDir.AddShort(0x10, 1).SetNext(0x11);
  Ifd longDir(DtNlLittleEndian);
  longDir.AddShort(0x10, 1).AddShort(0x99, 2).AddShort(0x98, 3).AddShort(0x10, 4).SetNext(0x22);
  std::string err;
  TestParser a({0x10});
  ASSERT_EQ(Run(&a, DirAt(shortDir), 8, &err), DtRawOk);
  const int readsShort = m_reads;
  TestParser b({0x10});
  ASSERT_EQ(Run(&b, DirAt(longDir), 8, &err), DtRawOk);
  EXPECT_EQ(m_reads, readsShort);
  EXPECT_EQ(b.GetNextIFDOffset(), 0x22u);
}

TEST_F(ParserOverFile, NonTargetEntryCostsOneReadOfItsId) {
  Ifd one(DtNlLittleEndian);
  one.AddShort(0x99, 1);
  Ifd two(DtNlLittleEndian);
  two.AddShort(0x99, 1).AddShort(0x98, 1);
  std::string err;
  TestParser a({0x10});
  ASSERT_EQ(Run(&a, DirAt(one), 8, &err), DtRawOk);
  const int readsOne = m_reads;
  TestParser b({0x10});
  ASSERT_EQ(Run(&b, DirAt(two), 8, &err), DtRawOk);
  EXPECT_EQ(m_reads, readsOne + 1);
}

// ---- the parts that need no channel ---------------------------------------

TEST(DtRawIFDParserBase, UnitSizeTableHasItsTwoQuirks) {
  const struct {
    UINT16 type;
    UINT32 unit;
  } rows[] = {{0, 1}, {1, 1}, {2, 1},  {3, 2},  {4, 4},  {5, 8},  {6, 1},      {7, 1},
              {8, 1}, {9, 4}, {10, 8}, {11, 1}, {12, 1}, {13, 1}, {0xFFFF, 1}, {0x8003, 1}};
  for (const auto& row : rows) {
    EXPECT_EQ(TestParser::getTagDataSize(row.type, 1), row.unit) << "type " << row.type;
    EXPECT_EQ(TestParser::getTagDataSize(row.type, 3), 3 * row.unit) << "type " << row.type;
  }
}

TEST(DtRawIFDParserBase, SizeIsAnUnsigned32BitProductThatWraps) {
  EXPECT_EQ(TestParser::getTagDataSize(4, 0x40000001u), 4u);
  EXPECT_EQ(TestParser::getTagDataSize(5, 0x20000000u), 0u);
  EXPECT_EQ(TestParser::getTagDataSize(3, 0x80000000u), 0u);
  EXPECT_EQ(TestParser::getTagDataSize(10, 0xFFFFFFFFu), 0xFFFFFFF8u);
  EXPECT_EQ(TestParser::getTagDataSize(2, 0xFFFFFFFFu), 0xFFFFFFFFu);
  EXPECT_EQ(TestParser::getTagDataSize(4, 0), 0u);
}

TEST(DtRawIFDParserBase, NewParserHasNoTargetsNoEntriesAndNoNextOffset) {
  TestParser p({0x10});
  EXPECT_EQ(p.TargetList(), nullptr);
  EXPECT_EQ(p.TargetNum(), 0);
  EXPECT_EQ(p.GetNextIFDOffset(), 0u);
  EXPECT_EQ(p.GetTagData(0x10), nullptr);
  EXPECT_EQ(p.isTargetTag(0x10), 0);
}

TEST(DtRawIFDParserBase, TargetTestSearchesTheWholeSet) {
  TestParser p({0x10, 0x20, 0x30});
  p.Init();
  EXPECT_EQ(p.isTargetTag(0x10), 1);
  EXPECT_EQ(p.isTargetTag(0x30), 1);
  EXPECT_EQ(p.isTargetTag(0x31), 0);
  EXPECT_EQ(p.isTargetTag(0), 0);
}

TEST(DtRawIFDParserBase, EveryParseAsksForTheTargetSetWhichIsBuiltOnce) {
  Ifd ifd(DtNlLittleEndian);
  const Bytes bytes = DirAt(ifd);
  TestParser p({0x10});
  RawStream s1(RawChannel::Memory, bytes);
  ASSERT_EQ(p.Parse(s1.Get(), 0, 8, DtNlLittleEndian), DtRawOk);
  const UINT16* first = p.TargetList();
  ASSERT_NE(first, nullptr);
  RawStream s2(RawChannel::Memory, bytes);
  ASSERT_EQ(p.Parse(s2.Get(), 0, 8, DtNlLittleEndian), DtRawOk);
  EXPECT_EQ(p.InitCalls(), 2);
  EXPECT_EQ(p.TargetList(), first);
}

// A parser holding 0x10 (2 bytes), 0x11 (40 bytes, kept without bytes) and
// 0x12 (count 0).
class UpdateFixture : public testing::Test {
 protected:
  void SetUp() override {
    Ifd ifd(DtNlBigEndian);
    ifd.AddShort(0x10, 1).AddRaw(0x11, kpztest::kTiffAscii, 40, 0x100).Add(0x12, 7, 0, Bytes());
    RawStream s(RawChannel::Memory, DirAt(ifd));
    ASSERT_EQ(m_parser.Parse(s.Get(), 0, 8, DtNlBigEndian), DtRawOk);
  }
  TestParser m_parser{{0x10, 0x11, 0x12}};
};

TEST_F(UpdateFixture, UpdateCopiesTheNewBytesIntoTheKeptEntry) {
  UINT8 bytes[2] = {0x00, 0x06};
  DtRawTagData src(*m_parser.GetTagData(0x10));
  src.m_data = bytes;
  std::string err = CaptureStderr([&] { EXPECT_EQ(m_parser.UpdateTagData(&src), DtRawOk); });
  EXPECT_EQ(err, "");
  EXPECT_EQ(DataOf(m_parser.GetTagData(0x10)), (Bytes{0x00, 0x06}));
  EXPECT_NE(m_parser.GetTagData(0x10)->m_data, bytes);
}

TEST_F(UpdateFixture, UpdateOfAnAbsentIdIsNoData) {
  UINT8 bytes[2] = {0, 6};
  DtRawTagData src;
  src.m_tagId = 0x0132;
  src.m_size = 2;
  src.m_data = bytes;
  std::string err = CaptureStderr([&] { EXPECT_EQ(m_parser.UpdateTagData(&src), DtRawErrNoData); });
  EXPECT_EQ(err, kpztest::InfoLine(kSrc, "UpdateTagData", kLineNoData,
                                   "DtRawIFDParserBase: no data for update. tagId:306"));
}

TEST_F(UpdateFixture, UpdateWithAnotherSizeIsASizeError) {
  UINT8 bytes[4] = {0, 0, 0, 6};
  DtRawTagData src(*m_parser.GetTagData(0x10));
  src.m_size = 4;
  src.m_data = bytes;
  std::string err = CaptureStderr([&] { EXPECT_EQ(m_parser.UpdateTagData(&src), DtRawErrSize); });
  EXPECT_EQ(err, kpztest::InfoLine(kSrc, "UpdateTagData", kLineNoMatch,
                                   "DtRawIFDParserBase: no match data size!!"));
  EXPECT_EQ(DataOf(m_parser.GetTagData(0x10)), (Bytes{0x00, 0x01}));
}

TEST_F(UpdateFixture, UpdateOfAnEntryKeptWithoutBytesChangesNothing) {
  Bytes bytes(40, 'x');
  DtRawTagData src(*m_parser.GetTagData(0x11));
  src.m_data = bytes.data();
  EXPECT_EQ(m_parser.UpdateTagData(&src), DtRawOk);
  EXPECT_EQ(m_parser.GetTagData(0x11)->m_data, nullptr);
  DtRawTagData empty(*m_parser.GetTagData(0x12));
  EXPECT_EQ(m_parser.UpdateTagData(&empty), DtRawOk);
}

TEST_F(UpdateFixture, UpdateWithoutSourceBytesIsRefused) {
  EXPECT_EQ(m_parser.UpdateTagData(nullptr), DtRawErrParam);
  DtRawTagData src(*m_parser.GetTagData(0x10));  // m_data null, size 2
  EXPECT_EQ(m_parser.UpdateTagData(&src), DtRawErrParam);
  EXPECT_EQ(DataOf(m_parser.GetTagData(0x10)), (Bytes{0x00, 0x01}));
}

TEST(DtRawIFDParserBaseDeathTest, NullStreamIsAProgrammingError) {
  TestParser p({0x10});
  EXPECT_EXIT(p.Parse(nullptr, 0, 8, DtNlLittleEndian), testing::ExitedWithCode(255),
              testing::Eq(kpztest::AssertText(kSrc, "parse", kLineAssert, "pStream is NULL!!")));
}

}  // namespace
