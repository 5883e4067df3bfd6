#include "raw/parser/DtRawExifIFDParser.h"

#include <gtest/gtest.h>

#include <vector>

#include "raw/DtRawError.h"
#include "raw/RawTestChannels.h"
#include "raw/parser/TargetParserTests.h"
#include "support/KpzFileBuilder.h"
#include "support/LogExpect.h"

template <>
struct TargetParserTraits<DtRawExifIFDParser> {
  static constexpr DtRawTagCategory kCategory = DtRawTagCategoryExif;
  static std::vector<UINT16> Targets() { return {0x829A, 0x829D, 0x8822, 0x8827, 0x9000, 0x9003, 0x9204, 0x9209, 0x920A, 0x927C, 0xA001, 0xA005, 0xA401, 0xA405, 0xA002, 0xA003}; }
};

INSTANTIATE_TYPED_TEST_SUITE_P(DtRawExifIFDParser, TargetParserTest, DtRawExifIFDParser);

namespace {

using kpztest::Bytes;
using kpztest::Ifd;

class DtRawExifIFDParserChannels : public testing::TestWithParam<kpztest::RawParam> {};

TEST_P(DtRawExifIFDParserChannels, KeepsTheMakerNoteByPositionAndSizeWithoutBytes) {
  const DtNlByteOrder order = GetParam().order;
  Ifd ifd(order);
  ifd.AddUndefined(0x927C, kpztest::PatternBytes(200, 3));
  kpztest::KpzFile f(order);
  f.PlaceIfd(8, ifd);
  kpztest::RawStream s(GetParam().channel, f.Data());
  DtRawExifIFDParser p;
  ASSERT_EQ(p.Parse(s.Get(), 0, 8, order), DtRawOk);
  const DtRawTagData* t = p.GetTagData(0x927C);
  ASSERT_NE(t, nullptr);
  EXPECT_EQ(t->m_size, 200u);
  EXPECT_EQ(t->m_data, nullptr);
  EXPECT_EQ(t->m_offset, ifd.ValueOffsetOf(0, 8));
}

INSTANTIATE_TEST_SUITE_P(AllChannels, DtRawExifIFDParserChannels, kpztest::AllRawParams(),
                         kpztest::RawParamName);

}  // namespace
