// DtRawIFD0Parser.h - the parser of the first directory (IFD0), keeping its target tags.
//
// Layer: jni/raw/parser (raw metadata engine). A DtRawIFDParserBase that
// differs only in its target set and its category (DtRawTagCategoryIfd0); owned by DtRawEng.
// No fields of its own; no pointer members beyond the base's.
//
//   DtRawIFD0Parser p;
//   p.Parse(&stream, 0, offset, order);
//   DtRawTagData* t = p.GetTagData(0x0110);  // owned by p, or null
#ifndef KPZ_RAW_PARSER_DTRAWIFD0PARSER_H
#define KPZ_RAW_PARSER_DTRAWIFD0PARSER_H

#include "raw/parser/DtRawIFDParserBase.h"
#include "util/DtNlTypes.h"

class DtRawIFD0Parser : public DtRawIFDParserBase {
 public:
  DtRawIFD0Parser();
  ~DtRawIFD0Parser() override;

 protected:
  // Target ids, in search order: 0x010F, 0x0110, 0x0112, 0x8769, 0x0201, 0x0202, 0x0132.
  void initTargetTagList() override;
  // DtRawTagCategoryIfd0.
  UINT32 getTagCategory() override;
};

#endif  // KPZ_RAW_PARSER_DTRAWIFD0PARSER_H
