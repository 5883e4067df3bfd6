// DtRawTagData.h - one kept directory entry of a KPZ raw file, and the
// category naming the directory it came from.
//
// Layer: jni/raw/parser (raw metadata engine). The IFD parsers create one
// DtRawTagData per target entry they keep and store it in their
// DtRawTagDataList; the facade reads the fields directly and decodes m_data
// with DtNlDataUtil in m_byteOrder.
//
//   const DtRawTagData* t = parser->GetTagData(0x0112);
//   if (t != nullptr && t->m_data != nullptr && t->m_size >= 2)
//     orientation = DtNlDataUtil::U8ArrayToU16(t->m_data, t->m_byteOrder);
//
// Pointer member: m_data is borrowed from this object's point of view: the
// DtRawTagDataList holding the object owns the array (new[]) and frees it in
// ClearAllData. The destructor never frees it; a copy never shares it (its
// m_data is null).
#ifndef KPZ_RAW_PARSER_DTRAWTAGDATA_H
#define KPZ_RAW_PARSER_DTRAWTAGDATA_H

#include "util/DtNlDataUtil.h"
#include "util/DtNlTypes.h"

// The kind of directory an entry was read from (the parser's category).
enum DtRawTagCategory : UINT32 {
  DtRawTagCategoryIfd0 = 0,        // DtRawIFD0Parser
  DtRawTagCategoryIfd1 = 1,        // DtRawIFD1Parser
  DtRawTagCategoryExif = 2,        // DtRawExifIFDParser
  DtRawTagCategoryIob = 3,         // DtRawIobIFDParser
  DtRawTagCategoryMakerNote = 4,   // DtRawKaviMakerNoteParser
  DtRawTagCategoryKmMakerNote = 5  // DtRawKaviKmMakerNoteParser
};

class DtRawTagData {
 public:
  // Every field zero: category 0, null data, byte order 0.
  DtRawTagData()
      : m_category(DtRawTagCategoryIfd0),
        m_tagId(0),
        m_offset(0),
        m_size(0),
        m_data(nullptr),
        m_byteOrder(DtNlBigEndian) {}
  // Copies every field but m_data, which becomes null: a copy describes where
  // a value lies but carries (and frees) no bytes.
  DtRawTagData(const DtRawTagData& other);
  DtRawTagData& operator=(const DtRawTagData& other);
  // Does not free m_data (see above).
  virtual ~DtRawTagData();

  // The shared copying step of the copy constructor and assignment;
  // copying from itself does nothing.
  void copy(const DtRawTagData& other);

  UINT32 m_category;          // a DtRawTagCategory value
  UINT16 m_tagId;             // TIFF tag id
  UINT32 m_offset;            // absolute stream position of the value bytes
  UINT32 m_size;              // value size in bytes (count x unit size, 32-bit)
  UINT8* m_data;              // m_size value bytes as stored, or null (see above)
  DtNlByteOrder m_byteOrder;  // byte order of the file, to decode m_data
};

#endif  // KPZ_RAW_PARSER_DTRAWTAGDATA_H
