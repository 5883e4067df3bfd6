#include "raw/parser/DtRawKaviKmMakerNoteParser.h"

#include <gtest/gtest.h>

#include <vector>

#include "raw/parser/TargetParserTests.h"

template <>
struct TargetParserTraits<DtRawKaviKmMakerNoteParser> {
  static constexpr DtRawTagCategory kCategory = DtRawTagCategoryKmMakerNote;
  static std::vector<UINT16> Targets() { return {0x0088, 0x0089}; }
};

INSTANTIATE_TYPED_TEST_SUITE_P(DtRawKaviKmMakerNoteParser, TargetParserTest, DtRawKaviKmMakerNoteParser);
