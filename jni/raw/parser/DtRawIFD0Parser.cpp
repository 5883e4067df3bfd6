// DtRawIFD0Parser.cpp - the target set and category of the IFD0 parser.
#include "raw/parser/DtRawIFD0Parser.h"

#include "raw/parser/DtRawTagData.h"

DtRawIFD0Parser::DtRawIFD0Parser() : DtRawIFDParserBase() {}

DtRawIFD0Parser::~DtRawIFD0Parser() {}

void DtRawIFD0Parser::initTargetTagList() {
  if (m_targetTagList != nullptr) {
    return;
  }
  static const UINT16 c_targets[] = {0x010F, 0x0110, 0x0112, 0x8769, 0x0201, 0x0202, 0x0132};
  setTargetTags(c_targets, static_cast<INT32>(sizeof c_targets / sizeof c_targets[0]));
}

UINT32 DtRawIFD0Parser::getTagCategory() { return DtRawTagCategoryIfd0; }
