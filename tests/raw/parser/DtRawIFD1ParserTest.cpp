#include "raw/parser/DtRawIFD1Parser.h"

#include <gtest/gtest.h>

#include <vector>

#include "raw/parser/TargetParserTests.h"

template <>
struct TargetParserTraits<DtRawIFD1Parser> {
  static constexpr DtRawTagCategory kCategory = DtRawTagCategoryIfd1;
  static std::vector<UINT16> Targets() { return {0x0103, 0x0112, 0x0201, 0x0202, 0x0132}; }
};

INSTANTIATE_TYPED_TEST_SUITE_P(DtRawIFD1Parser, TargetParserTest, DtRawIFD1Parser);
