// DtRawKaviKmMakerNoteParser.cpp - the target set and category of the Km maker note parser.
#include "raw/parser/DtRawKaviKmMakerNoteParser.h"

#include "raw/parser/DtRawTagData.h"

DtRawKaviKmMakerNoteParser::DtRawKaviKmMakerNoteParser() : DtRawIFDParserBase() {}

DtRawKaviKmMakerNoteParser::~DtRawKaviKmMakerNoteParser() {}

void DtRawKaviKmMakerNoteParser::initTargetTagList() {
  if (m_targetTagList != nullptr) {
    return;
  }
  static const UINT16 c_targets[] = {0x0088, 0x0089};
  setTargetTags(c_targets, static_cast<INT32>(sizeof c_targets / sizeof c_targets[0]));
}

UINT32 DtRawKaviKmMakerNoteParser::getTagCategory() { return DtRawTagCategoryKmMakerNote; }
