#include "raw/parser/DtRawExifIFDParser.h"

#include <gtest/gtest.h>

#include <vector>

#include "raw/DtRawError.h"
#include "raw/RawTestChannels.h"
#include "support/KpzFileBuilder.h"
#include "support/LogExpect.h"

namespace {

using kpztest::Bytes;
using kpztest::Ifd;

const std::vector<UINT16> kTargets = {0x829A, 0x829D, 0x8822, 0x8827, 0x9000, 0x9003,
                                      0x9204, 0x9209, 0x920A, 0x927C, 0xA001, 0xA005,
                                      0xA401, 0xA405, 0xA002, 0xA003};

// Exposes the protected parts of the parser.
class Exposed : public DtRawExifIFDParser {
 public:
  using DtRawExifIFDParser::getTagCategory;
  using DtRawExifIFDParser::initTargetTagList;
  const UINT16* TargetList() const { return m_targetTagList; }
  INT32 TargetNum() const { return m_targetTagNum; }
};

TEST(DtRawExifIFDParser, TargetSetIsTheFixedListInItsOrder) {
  Exposed p;
  EXPECT_EQ(p.TargetList(), nullptr);
  p.initTargetTagList();
  ASSERT_EQ(p.TargetNum(), static_cast<INT32>(kTargets.size()));
  ASSERT_NE(p.TargetList(), nullptr);
  EXPECT_EQ(std::vector<UINT16>(p.TargetList(), p.TargetList() + p.TargetNum()), kTargets);
}

TEST(DtRawExifIFDParser, SecondInitTargetTagListKeepsTheFirstArray) {
  Exposed p;
  p.initTargetTagList();
  const UINT16* first = p.TargetList();
  p.initTargetTagList();
  EXPECT_EQ(p.TargetList(), first);
  EXPECT_EQ(p.TargetNum(), static_cast<INT32>(kTargets.size()));
}

TEST(DtRawExifIFDParser, CategoryIsDtRawTagCategoryExif) {
  Exposed p;
  EXPECT_EQ(p.getTagCategory(), static_cast<UINT32>(DtRawTagCategoryExif));
}

class DtRawExifIFDParserChannels : public testing::TestWithParam<kpztest::RawParam> {};

TEST_P(DtRawExifIFDParserChannels, KeepsEveryTargetIdAndNothingElse) {
  const DtNlByteOrder order = GetParam().order;
  Ifd ifd(order);
  ifd.AddShort(0x7777, 1);
  for (UINT16 id : kTargets) ifd.AddShort(0x7778, 2).AddShort(id, static_cast<UINT16>(id ^ 0x5A5A));
  ifd.SetNext(0x1234);
  kpztest::KpzFile f(order);
  f.PlaceIfd(8, ifd);
  kpztest::RawStream s(GetParam().channel, f.Data());
  DtRawExifIFDParser p;
  std::string err =
      kpztest::CaptureStderr([&] { EXPECT_EQ(p.Parse(s.Get(), 0, 8, order), DtRawOk); });
  EXPECT_EQ(err, "");
  for (UINT16 id : kTargets) {
    const DtRawTagData* t = p.GetTagData(id);
    ASSERT_NE(t, nullptr) << id;
    EXPECT_EQ(t->m_category, static_cast<UINT32>(DtRawTagCategoryExif));
    EXPECT_EQ(t->m_byteOrder, order);
    ASSERT_EQ(t->m_size, 2u);
    EXPECT_EQ(DtNlDataUtil::U8ArrayToU16(t->m_data, order), static_cast<UINT16>(id ^ 0x5A5A));
  }
  EXPECT_EQ(p.GetTagData(0x7777), nullptr);
  EXPECT_EQ(p.GetTagData(0x7778), nullptr);
  EXPECT_EQ(p.GetNextIFDOffset(), 0x1234u);
}

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
