// TargetParserTests.h - the checks every target-set parser must pass, as one
// typed test suite. A parser's test file states the parser's category and
// target ids in a TargetParserTraits specialisation and instantiates the suite:
//
//   template <> struct TargetParserTraits<DtRawIobIFDParser> {
//     static constexpr DtRawTagCategory kCategory = DtRawTagCategoryIob;
//     static std::vector<UINT16> Targets() { return {0x0001, 0x0002}; }
//   };
//   INSTANTIATE_TYPED_TEST_SUITE_P(Iob, TargetParserTest, DtRawIobIFDParser);
//
// Checks: the target set is the fixed list in its order; a second
// initTargetTagList keeps the first array; the category; and, over both
// channels and both byte orders, every target id is kept with its value while
// other ids are dropped and the next-directory offset is read.
#ifndef KPZ_TESTS_RAW_PARSER_TARGETPARSERTESTS_H
#define KPZ_TESTS_RAW_PARSER_TARGETPARSERTESTS_H

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "raw/DtRawError.h"
#include "raw/RawTestChannels.h"
#include "raw/parser/DtRawTagData.h"
#include "support/KpzFileBuilder.h"
#include "support/LogExpect.h"
#include "util/DtNlDataUtil.h"

template <typename Parser>
struct TargetParserTraits;

// Exposes the protected parts of a parser.
template <typename Parser>
class ExposedParser : public Parser {
 public:
  using Parser::getTagCategory;
  using Parser::initTargetTagList;
  const UINT16* TargetList() const { return this->m_targetTagList; }
  INT32 TargetNum() const { return this->m_targetTagNum; }
};

template <typename Parser>
class TargetParserTest : public testing::Test {};

TYPED_TEST_SUITE_P(TargetParserTest);

TYPED_TEST_P(TargetParserTest, TargetSetIsTheFixedListInItsOrder) {
  const std::vector<UINT16> targets = TargetParserTraits<TypeParam>::Targets();
  ExposedParser<TypeParam> p;
  EXPECT_EQ(p.TargetList(), nullptr);
  p.initTargetTagList();
  ASSERT_EQ(p.TargetNum(), static_cast<INT32>(targets.size()));
  ASSERT_NE(p.TargetList(), nullptr);
  EXPECT_EQ(std::vector<UINT16>(p.TargetList(), p.TargetList() + p.TargetNum()), targets);
}

TYPED_TEST_P(TargetParserTest, SecondInitTargetTagListKeepsTheFirstArray) {
  ExposedParser<TypeParam> p;
  p.initTargetTagList();
  const UINT16* first = p.TargetList();
  p.initTargetTagList();
  EXPECT_EQ(p.TargetList(), first);
  EXPECT_EQ(p.TargetNum(), static_cast<INT32>(TargetParserTraits<TypeParam>::Targets().size()));
}

TYPED_TEST_P(TargetParserTest, CategoryIsTheParsersOwn) {
  ExposedParser<TypeParam> p;
  EXPECT_EQ(p.getTagCategory(), static_cast<UINT32>(TargetParserTraits<TypeParam>::kCategory));
}

TYPED_TEST_P(TargetParserTest, KeepsEveryTargetIdAndNothingElseOverEveryChannel) {
  const std::vector<UINT16> targets = TargetParserTraits<TypeParam>::Targets();
  for (const kpztest::RawParam& param : kpztest::AllRawParams()) {
    SCOPED_TRACE(testing::Message() << "channel " << static_cast<int>(param.channel) << ", order "
                                    << static_cast<int>(param.order));
    const DtNlByteOrder order = param.order;
    kpztest::Ifd ifd(order);
    ifd.AddShort(0x7777, 1);
    for (UINT16 id : targets) {
      ifd.AddShort(0x7778, 2).AddShort(id, static_cast<UINT16>(id ^ 0x5A5A));
    }
    ifd.SetNext(0x1234);
    kpztest::KpzFile f(order);
    f.PlaceIfd(8, ifd);
    kpztest::RawStream s(param.channel, f.Data());
    TypeParam p;
    const std::string err =
        kpztest::CaptureStderr([&] { EXPECT_EQ(p.Parse(s.Get(), 0, 8, order), DtRawOk); });
    EXPECT_EQ(err, "");
    for (UINT16 id : targets) {
      const DtRawTagData* t = p.GetTagData(id);
      ASSERT_NE(t, nullptr) << id;
      EXPECT_EQ(t->m_category, static_cast<UINT32>(TargetParserTraits<TypeParam>::kCategory));
      EXPECT_EQ(t->m_byteOrder, order);
      ASSERT_EQ(t->m_size, 2u);
      EXPECT_EQ(DtNlDataUtil::U8ArrayToU16(t->m_data, order), static_cast<UINT16>(id ^ 0x5A5A));
    }
    EXPECT_EQ(p.GetTagData(0x7777), nullptr);
    EXPECT_EQ(p.GetTagData(0x7778), nullptr);
    EXPECT_EQ(p.GetNextIFDOffset(), 0x1234u);
  }
}

REGISTER_TYPED_TEST_SUITE_P(TargetParserTest, TargetSetIsTheFixedListInItsOrder,
                            SecondInitTargetTagListKeepsTheFirstArray, CategoryIsTheParsersOwn,
                            KeepsEveryTargetIdAndNothingElseOverEveryChannel);

#endif  // KPZ_TESTS_RAW_PARSER_TARGETPARSERTESTS_H
