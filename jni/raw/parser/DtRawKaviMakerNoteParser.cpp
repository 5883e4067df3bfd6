// DtRawKaviMakerNoteParser.cpp - the target set and category of the KAVI maker note parser.
#include "raw/parser/DtRawKaviMakerNoteParser.h"

#include "raw/parser/DtRawTagData.h"

DtRawKaviMakerNoteParser::DtRawKaviMakerNoteParser() : DtRawIFDParserBase() {}

DtRawKaviMakerNoteParser::~DtRawKaviMakerNoteParser() {}

void DtRawKaviMakerNoteParser::initTargetTagList() {
  if (m_targetTagList != nullptr) {
    return;
  }
  static const UINT16 c_targets[] = {0xB028, 0xB02C};
  setTargetTags(c_targets, static_cast<INT32>(sizeof c_targets / sizeof c_targets[0]));
}

UINT32 DtRawKaviMakerNoteParser::getTagCategory() { return DtRawTagCategoryMakerNote; }
