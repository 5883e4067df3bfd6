#include "raw/parser/DtRawIFD0Parser.h"

#include <gtest/gtest.h>

#include <vector>

#include "raw/DtRawError.h"
#include "raw/RawTestChannels.h"
#include "support/FaultInjection.h"
#include "support/KpzFileBuilder.h"
#include "support/LogExpect.h"

namespace {

using kpztest::Bytes;
using kpztest::Ifd;

const std::vector<UINT16> kTargets = {0x010F, 0x0110, 0x0112, 0x8769, 0x0201, 0x0202, 0x0132};

// Exposes the protected parts of the parser.
class Exposed : public DtRawIFD0Parser {
 public:
  using DtRawIFD0Parser::getTagCategory;
  using DtRawIFD0Parser::initTargetTagList;
  const UINT16* TargetList() const { return m_targetTagList; }
  INT32 TargetNum() const { return m_targetTagNum; }
};

TEST(DtRawIFD0Parser, TargetSetIsTheFixedListInItsOrder) {
  Exposed p;
  EXPECT_EQ(p.TargetList(), nullptr);
  p.initTargetTagList();
  ASSERT_EQ(p.TargetNum(), static_cast<INT32>(kTargets.size()));
  ASSERT_NE(p.TargetList(), nullptr);
  EXPECT_EQ(std::vector<UINT16>(p.TargetList(), p.TargetList() + p.TargetNum()), kTargets);
}

TEST(DtRawIFD0Parser, SecondInitTargetTagListKeepsTheFirstArray) {
  Exposed p;
  p.initTargetTagList();
  const UINT16* first = p.TargetList();
  p.initTargetTagList();
  EXPECT_EQ(p.TargetList(), first);
  EXPECT_EQ(p.TargetNum(), static_cast<INT32>(kTargets.size()));
}

TEST(DtRawIFD0Parser, CategoryIsDtRawTagCategoryIfd0) {
  Exposed p;
  EXPECT_EQ(p.getTagCategory(), static_cast<UINT32>(DtRawTagCategoryIfd0));
}

class DtRawIFD0ParserChannels : public testing::TestWithParam<kpztest::RawParam> {};

TEST_P(DtRawIFD0ParserChannels, KeepsEveryTargetIdAndNothingElse) {
  const DtNlByteOrder order = GetParam().order;
  Ifd ifd(order);
  ifd.AddShort(0x7777, 1);
  for (UINT16 id : kTargets) ifd.AddShort(0x7778, 2).AddShort(id, static_cast<UINT16>(id ^ 0x5A5A));
  ifd.SetNext(0x1234);
  kpztest::KpzFile f(order);
  f.PlaceIfd(8, ifd);
  kpztest::RawStream s(GetParam().channel, f.Data());
  DtRawIFD0Parser p;
  std::string err =
      kpztest::CaptureStderr([&] { EXPECT_EQ(p.Parse(s.Get(), 0, 8, order), DtRawOk); });
  EXPECT_EQ(err, "");
  for (UINT16 id : kTargets) {
    const DtRawTagData* t = p.GetTagData(id);
    ASSERT_NE(t, nullptr) << id;
    EXPECT_EQ(t->m_category, static_cast<UINT32>(DtRawTagCategoryIfd0));
    EXPECT_EQ(t->m_byteOrder, order);
    ASSERT_EQ(t->m_size, 2u);
    EXPECT_EQ(DtNlDataUtil::U8ArrayToU16(t->m_data, order), static_cast<UINT16>(id ^ 0x5A5A));
  }
  EXPECT_EQ(p.GetTagData(0x7777), nullptr);
  EXPECT_EQ(p.GetTagData(0x7778), nullptr);
  EXPECT_EQ(p.GetNextIFDOffset(), 0x1234u);
}

// IFD0 with its seven targets first, then `trailing` entries (non-targets and
// later duplicates of targets) before the next offset.
Bytes Ifd0WithTrailing(DtNlByteOrder order, int trailing) {
  Ifd ifd(order);
  for (UINT16 id : kTargets) ifd.AddShort(id, 1);
  for (int i = 0; i < trailing; ++i) ifd.AddShort(i % 2 == 0 ? 0x0110 : 0x7777, 2);
  ifd.SetNext(0x4321);
  kpztest::KpzFile f(order);
  f.PlaceIfd(8, ifd);
  return f.Take();
}

TEST_P(DtRawIFD0ParserChannels, EntriesAfterTheSevenTargetsAreSkippedButTheNextOffsetIsRead) {
  const DtNlByteOrder order = GetParam().order;
  kpztest::RawStream s(GetParam().channel, Ifd0WithTrailing(order, 5));
  DtRawIFD0Parser p;
  ASSERT_EQ(p.Parse(s.Get(), 0, 8, order), DtRawOk);
  ASSERT_NE(p.GetTagData(0x0110), nullptr);
  EXPECT_EQ(DtNlDataUtil::U8ArrayToU16(p.GetTagData(0x0110)->m_data, order), 1);
  EXPECT_EQ(p.GetNextIFDOffset(), 0x4321u);
}

TEST(DtRawIFD0Parser, EntriesAfterTheSevenTargetsCostNoRead) {
  kpztest::FaultGuard guard;
  const Bytes none = Ifd0WithTrailing(DtNlLittleEndian, 0);
  const Bytes five = Ifd0WithTrailing(DtNlLittleEndian, 5);
  int reads[2] = {0, 0};
  const Bytes* inputs[2] = {&none, &five};
  for (int i = 0; i < 2; ++i) {
    kpztest::RawStream s(kpztest::RawChannel::File, *inputs[i]);
    DtRawIFD0Parser p;
    kpztest::ResetCounts();
    ASSERT_EQ(p.Parse(s.Get(), 0, 8, DtNlLittleEndian), DtRawOk);
    reads[i] = kpztest::CallCount(kpztest::Call::Fread);
    EXPECT_EQ(p.GetNextIFDOffset(), 0x4321u);
  }
  EXPECT_EQ(reads[1], reads[0]);
}

INSTANTIATE_TEST_SUITE_P(AllChannels, DtRawIFD0ParserChannels, kpztest::AllRawParams(),
                         kpztest::RawParamName);

}  // namespace
