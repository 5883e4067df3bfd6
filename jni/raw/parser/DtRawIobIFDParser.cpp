// DtRawIobIFDParser.cpp - the target set and category of the Interoperability IFD parser.
#include "raw/parser/DtRawIobIFDParser.h"

#include "raw/parser/DtRawTagData.h"

DtRawIobIFDParser::DtRawIobIFDParser() : DtRawIFDParserBase() {}

DtRawIobIFDParser::~DtRawIobIFDParser() {}

void DtRawIobIFDParser::initTargetTagList() {
  if (m_targetTagList != nullptr) {
    return;
  }
  static const UINT16 c_targets[] = {0x0001, 0x0002};
  setTargetTags(c_targets, static_cast<INT32>(sizeof c_targets / sizeof c_targets[0]));
}

UINT32 DtRawIobIFDParser::getTagCategory() { return DtRawTagCategoryIob; }
