#include "raw/parser/DtRawKaviMakerNoteParser.h"

#include <gtest/gtest.h>

#include <vector>

#include "raw/parser/TargetParserTests.h"

template <>
struct TargetParserTraits<DtRawKaviMakerNoteParser> {
  static constexpr DtRawTagCategory kCategory = DtRawTagCategoryMakerNote;
  static std::vector<UINT16> Targets() { return {0xB028, 0xB02C}; }
};

INSTANTIATE_TYPED_TEST_SUITE_P(DtRawKaviMakerNoteParser, TargetParserTest, DtRawKaviMakerNoteParser);
