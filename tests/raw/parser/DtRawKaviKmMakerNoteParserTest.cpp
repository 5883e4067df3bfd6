#include "raw/parser/DtRawKaviKmMakerNoteParser.h"

#include <gtest/gtest.h>

#include <vector>

#include "raw/DtRawError.h"
#include "raw/RawTestChannels.h"
#include "support/KpzFileBuilder.h"
#include "support/LogExpect.h"

namespace {

using kpztest::Bytes;
using kpztest::Ifd;

const std::vector<UINT16> kTargets = {0x0088, 0x0089};

// Exposes the protected parts of the parser.
class Exposed : public DtRawKaviKmMakerNoteParser {
 public:
  using DtRawKaviKmMakerNoteParser::getTagCategory;
  using DtRawKaviKmMakerNoteParser::initTargetTagList;
  const UINT16* TargetList() const { return m_targetTagList; }
  INT32 TargetNum() const { return m_targetTagNum; }
};

TEST(DtRawKaviKmMakerNoteParser, TargetSetIsTheFixedListInItsOrder) {
  Exposed p;
  EXPECT_EQ(p.TargetList(), nullptr);
  p.initTargetTagList();
  ASSERT_EQ(p.TargetNum(), static_cast<INT32>(kTargets.size()));
  ASSERT_NE(p.TargetList(), nullptr);
  EXPECT_EQ(std::vector<UINT16>(p.TargetList(), p.TargetList() + p.TargetNum()), kTargets);
}

TEST(DtRawKaviKmMakerNoteParser, SecondInitTargetTagListKeepsTheFirstArray) {
  Exposed p;
  p.initTargetTagList();
  const UINT16* first = p.TargetList();
  p.initTargetTagList();
  EXPECT_EQ(p.TargetList(), first);
  EXPECT_EQ(p.TargetNum(), static_cast<INT32>(kTargets.size()));
}

TEST(DtRawKaviKmMakerNoteParser, CategoryIsDtRawTagCategoryKmMakerNote) {
  Exposed p;
  EXPECT_EQ(p.getTagCategory(), static_cast<UINT32>(DtRawTagCategoryKmMakerNote));
}

class DtRawKaviKmMakerNoteParserChannels : public testing::TestWithParam<kpztest::RawParam> {};

TEST_P(DtRawKaviKmMakerNoteParserChannels, KeepsEveryTargetIdAndNothingElse) {
  const DtNlByteOrder order = GetParam().order;
  Ifd ifd(order);
  ifd.AddShort(0x7777, 1);
  for (UINT16 id : kTargets) ifd.AddShort(0x7778, 2).AddShort(id, static_cast<UINT16>(id ^ 0x5A5A));
  ifd.SetNext(0x1234);
  kpztest::KpzFile f(order);
  f.PlaceIfd(8, ifd);
  kpztest::RawStream s(GetParam().channel, f.Data());
  DtRawKaviKmMakerNoteParser p;
  std::string err =
      kpztest::CaptureStderr([&] { EXPECT_EQ(p.Parse(s.Get(), 0, 8, order), DtRawOk); });
  EXPECT_EQ(err, "");
  for (UINT16 id : kTargets) {
    const DtRawTagData* t = p.GetTagData(id);
    ASSERT_NE(t, nullptr) << id;
    EXPECT_EQ(t->m_category, static_cast<UINT32>(DtRawTagCategoryKmMakerNote));
    EXPECT_EQ(t->m_byteOrder, order);
    ASSERT_EQ(t->m_size, 2u);
    EXPECT_EQ(DtNlDataUtil::U8ArrayToU16(t->m_data, order), static_cast<UINT16>(id ^ 0x5A5A));
  }
  EXPECT_EQ(p.GetTagData(0x7777), nullptr);
  EXPECT_EQ(p.GetTagData(0x7778), nullptr);
  EXPECT_EQ(p.GetNextIFDOffset(), 0x1234u);
}

INSTANTIATE_TEST_SUITE_P(AllChannels, DtRawKaviKmMakerNoteParserChannels, kpztest::AllRawParams(),
                         kpztest::RawParamName);

}  // namespace
