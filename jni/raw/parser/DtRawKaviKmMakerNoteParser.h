// DtRawKaviKmMakerNoteParser.h - the parser of the Km maker note directory (model DSLR-M372),
// keeping its target tags.
//
// Layer: jni/raw/parser (raw metadata engine). A DtRawIFDParserBase that
// differs only in its target set and its category (DtRawTagCategoryKmMakerNote); owned by DtRawEng.
// No fields of its own; no pointer members beyond the base's.
//
//   DtRawKaviKmMakerNoteParser p;
//   p.Parse(&stream, 0, offset, order);
//   DtRawTagData* t = p.GetTagData(0x0088);  // owned by p, or null
#ifndef KPZ_RAW_PARSER_DTRAWKAVIKMMAKERNOTEPARSER_H
#define KPZ_RAW_PARSER_DTRAWKAVIKMMAKERNOTEPARSER_H

#include "raw/parser/DtRawIFDParserBase.h"
#include "util/DtNlTypes.h"

class DtRawKaviKmMakerNoteParser : public DtRawIFDParserBase {
 public:
  DtRawKaviKmMakerNoteParser();
  ~DtRawKaviKmMakerNoteParser() override;

 protected:
  // Target ids, in search order: 0x0088 (screennail offset), 0x0089 (screennail size).
  void initTargetTagList() override;
  // DtRawTagCategoryKmMakerNote.
  UINT32 getTagCategory() override;
};

#endif  // KPZ_RAW_PARSER_DTRAWKAVIKMMAKERNOTEPARSER_H
