// DtRawIFD1Parser.cpp - the target set and category of the IFD1 parser.
#include "raw/parser/DtRawIFD1Parser.h"

#include "raw/parser/DtRawTagData.h"

DtRawIFD1Parser::DtRawIFD1Parser() : DtRawIFDParserBase() {}

DtRawIFD1Parser::~DtRawIFD1Parser() {}

void DtRawIFD1Parser::initTargetTagList() {
  if (m_targetTagList != nullptr) {
    return;
  }
  static const UINT16 c_targets[] = {0x0103, 0x0112, 0x0201, 0x0202, 0x0132};
  setTargetTags(c_targets, static_cast<INT32>(sizeof c_targets / sizeof c_targets[0]));
}

UINT32 DtRawIFD1Parser::getTagCategory() { return DtRawTagCategoryIfd1; }
