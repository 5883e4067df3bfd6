// DtRawExifIFDParser.cpp - the target set and category of the Exif IFD parser.
#include "raw/parser/DtRawExifIFDParser.h"

#include "raw/parser/DtRawTagData.h"

DtRawExifIFDParser::DtRawExifIFDParser() : DtRawIFDParserBase() {}

DtRawExifIFDParser::~DtRawExifIFDParser() {}

void DtRawExifIFDParser::initTargetTagList() {
  if (m_targetTagList != nullptr) {
    return;
  }
  static const UINT16 c_targets[] = {0x829A, 0x829D, 0x8822, 0x8827, 0x9000, 0x9003,
                                     0x9204, 0x9209, 0x920A, 0x927C, 0xA001, 0xA005,
                                     0xA401, 0xA405, 0xA002, 0xA003};
  setTargetTags(c_targets, static_cast<INT32>(sizeof c_targets / sizeof c_targets[0]));
}

UINT32 DtRawExifIFDParser::getTagCategory() { return DtRawTagCategoryExif; }
