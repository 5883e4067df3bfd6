#include "raw/parser/DtRawIFD0Parser.h"

#include <gtest/gtest.h>

#include <vector>

#include "raw/DtRawError.h"
#include "raw/RawTestChannels.h"
#include "raw/parser/TargetParserTests.h"
#include "support/FaultInjection.h"
#include "support/KpzFileBuilder.h"
#include "support/LogExpect.h"

template <>
struct TargetParserTraits<DtRawIFD0Parser> {
  static constexpr DtRawTagCategory kCategory = DtRawTagCategoryIfd0;
  static std::vector<UINT16> Targets() { return {0x010F, 0x0110, 0x0112, 0x8769, 0x0201, 0x0202, 0x0132}; }
};

INSTANTIATE_TYPED_TEST_SUITE_P(DtRawIFD0Parser, TargetParserTest, DtRawIFD0Parser);

namespace {

using kpztest::Bytes;
using kpztest::Ifd;

const std::vector<UINT16> kTargets = TargetParserTraits<DtRawIFD0Parser>::Targets();

class DtRawIFD0ParserChannels : public testing::TestWithParam<kpztest::RawParam> {};

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
