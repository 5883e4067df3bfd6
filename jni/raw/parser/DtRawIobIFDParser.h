// DtRawIobIFDParser.h - the parser of the Interoperability (Iob) directory, keeping its target
// tags.
//
// Layer: jni/raw/parser (raw metadata engine). A DtRawIFDParserBase that
// differs only in its target set and its category (DtRawTagCategoryIob); owned by DtRawEng.
// No fields of its own; no pointer members beyond the base's.
//
//   DtRawIobIFDParser p;
//   p.Parse(&stream, 0, offset, order);
//   DtRawTagData* t = p.GetTagData(0x0001);  // owned by p, or null
#ifndef KPZ_RAW_PARSER_DTRAWIOBIFDPARSER_H
#define KPZ_RAW_PARSER_DTRAWIOBIFDPARSER_H

#include "raw/parser/DtRawIFDParserBase.h"
#include "util/DtNlTypes.h"

class DtRawIobIFDParser : public DtRawIFDParserBase {
 public:
  DtRawIobIFDParser();
  ~DtRawIobIFDParser() override;

 protected:
  // Target ids, in search order: 0x0001, 0x0002.
  void initTargetTagList() override;
  // DtRawTagCategoryIob.
  UINT32 getTagCategory() override;
};

#endif  // KPZ_RAW_PARSER_DTRAWIOBIFDPARSER_H
