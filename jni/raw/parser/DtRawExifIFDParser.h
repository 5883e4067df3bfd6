// DtRawExifIFDParser.h - the parser of the Exif directory, keeping its target tags.
//
// Layer: jni/raw/parser (raw metadata engine). A DtRawIFDParserBase that
// differs only in its target set and its category (DtRawTagCategoryExif); owned by DtRawEng.
// No fields of its own; no pointer members beyond the base's.
//
//   DtRawExifIFDParser p;
//   p.Parse(&stream, 0, offset, order);
//   DtRawTagData* t = p.GetTagData(0x927C);  // owned by p, or null
#ifndef KPZ_RAW_PARSER_DTRAWEXIFIFDPARSER_H
#define KPZ_RAW_PARSER_DTRAWEXIFIFDPARSER_H

#include "raw/parser/DtRawIFDParserBase.h"
#include "util/DtNlTypes.h"

class DtRawExifIFDParser : public DtRawIFDParserBase {
 public:
  DtRawExifIFDParser();
  ~DtRawExifIFDParser() override;

 protected:
  // Target ids, in search order: 0x829A, 0x829D, 0x8822, 0x8827, 0x9000, 0x9003, 0x9204, 0x9209,
  // 0x920A, 0x927C, 0xA001, 0xA005, 0xA401, 0xA405, 0xA002, 0xA003.
  void initTargetTagList() override;
  // DtRawTagCategoryExif.
  UINT32 getTagCategory() override;
};

#endif  // KPZ_RAW_PARSER_DTRAWEXIFIFDPARSER_H
