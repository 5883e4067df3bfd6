#include "raw/parser/DtRawIobIFDParser.h"

#include <gtest/gtest.h>

#include <vector>

#include "raw/parser/TargetParserTests.h"

template <>
struct TargetParserTraits<DtRawIobIFDParser> {
  static constexpr DtRawTagCategory kCategory = DtRawTagCategoryIob;
  static std::vector<UINT16> Targets() { return {0x0001, 0x0002}; }
};

INSTANTIATE_TYPED_TEST_SUITE_P(DtRawIobIFDParser, TargetParserTest, DtRawIobIFDParser);
