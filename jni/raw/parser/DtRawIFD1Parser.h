// DtRawIFD1Parser.h - the parser of the second directory (IFD1, the thumbnail's), keeping its
// target tags.
//
// Layer: jni/raw/parser (raw metadata engine). A DtRawIFDParserBase that
// differs only in its target set and its category (DtRawTagCategoryIfd1); owned by DtRawEng.
// No fields of its own; no pointer members beyond the base's.
//
//   DtRawIFD1Parser p;
//   p.Parse(&stream, 0, offset, order);
//   DtRawTagData* t = p.GetTagData(0x0201);  // owned by p, or null
#ifndef KPZ_RAW_PARSER_DTRAWIFD1PARSER_H
#define KPZ_RAW_PARSER_DTRAWIFD1PARSER_H

#include "raw/parser/DtRawIFDParserBase.h"
#include "util/DtNlTypes.h"

class DtRawIFD1Parser : public DtRawIFDParserBase {
 public:
  DtRawIFD1Parser();
  ~DtRawIFD1Parser() override;

 protected:
  // Target ids, in search order: 0x0103, 0x0112, 0x0201, 0x0202, 0x0132.
  void initTargetTagList() override;
  // DtRawTagCategoryIfd1.
  UINT32 getTagCategory() override;
};

#endif  // KPZ_RAW_PARSER_DTRAWIFD1PARSER_H
