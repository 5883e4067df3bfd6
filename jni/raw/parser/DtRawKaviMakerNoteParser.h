// DtRawKaviMakerNoteParser.h - the parser of the KAVI maker note directory, keeping its target
// tags.
//
// Layer: jni/raw/parser (raw metadata engine). A DtRawIFDParserBase that
// differs only in its target set and its category (DtRawTagCategoryMakerNote); owned by DtRawEng.
// No fields of its own; no pointer members beyond the base's.
//
//   DtRawKaviMakerNoteParser p;
//   p.Parse(&stream, 0, offset, order);
//   DtRawTagData* t = p.GetTagData(0xB02C);  // owned by p, or null
#ifndef KPZ_RAW_PARSER_DTRAWKAVIMAKERNOTEPARSER_H
#define KPZ_RAW_PARSER_DTRAWKAVIMAKERNOTEPARSER_H

#include "raw/parser/DtRawIFDParserBase.h"
#include "util/DtNlTypes.h"

class DtRawKaviMakerNoteParser : public DtRawIFDParserBase {
 public:
  DtRawKaviMakerNoteParser();
  ~DtRawKaviMakerNoteParser() override;

 protected:
  // Target ids, in search order: 0xB028 (Km maker-note offset), 0xB02C (screennail height and
  // width).
  void initTargetTagList() override;
  // DtRawTagCategoryMakerNote.
  UINT32 getTagCategory() override;
};

#endif  // KPZ_RAW_PARSER_DTRAWKAVIMAKERNOTEPARSER_H
