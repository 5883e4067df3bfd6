// DtRawIFDParserBase.h - reads one TIFF image file directory (IFD) and keeps
// only the entries of its subclass's target set.
//
// Layer: jni/raw/parser (raw metadata engine), over the data stream and
// channels of jni/util/io. The engine (DtRawEng) owns one parser per directory
// kind and reuses it: Finalize() before every further Parse.
//
// On-disk form of a directory (TIFF 6.0), every number in the file's order:
//   offset      size  field
//   0           2     entry count n
//   2 + 12*i    2     entry i: tag id
//   4 + 12*i    2     entry i: data type
//   6 + 12*i    4     entry i: value count
//   10 + 12*i   4     entry i: the value itself when it has at most 4 bytes,
//                     else the offset of the value (plus the parse base)
//   2 + 12*n    4     offset of the next directory
//
//   DtRawIFD0Parser p;
//   if (p.Parse(&stream, 0, ifd0Offset, DtNlLittleEndian) == DtRawOk) {
//     DtRawTagData* model = p.GetTagData(0x0110);  // owned by p, or null
//     UINT32 next = p.GetNextIFDOffset();
//   }
//   p.Finalize();
//
// Pointer member: m_targetTagList is borrowed from the subclass's constant
// table (setTargetTags; it must outlive the parser). The stream given to
// Parse is borrowed for the call only. Kept entries are owned through
// m_tagDataList, which holds them (and their value bytes) in its own block,
// so a parse allocates nothing.
//
// A plain memory channel (DtNlBuffIo) is read in place, without a call per
// field; any other channel field by field. Both give the same entries,
// results, log lines and final position.
#ifndef KPZ_RAW_PARSER_DTRAWIFDPARSERBASE_H
#define KPZ_RAW_PARSER_DTRAWIFDPARSERBASE_H

#include "raw/parser/DtRawTagData.h"
#include "raw/parser/DtRawTagDataList.h"
#include "util/DtNlDataUtil.h"
#include "util/DtNlTypes.h"

class DtNlDataStream;

class DtRawIFDParserBase {
 public:
  // The most ids a target set may have: the entries a parser keeps fit its
  // tag list's own block, and each kept id has a bit in m_keptTargets.
  static const UINT32 MAX_TARGETS = DtRawTagDataList::BLOCK_ENTRIES;

  DtRawIFDParserBase();
  // Frees the target set, then Finalize().
  virtual ~DtRawIFDParserBase();
  DtRawIFDParserBase(const DtRawIFDParserBase&) = delete;
  DtRawIFDParserBase& operator=(const DtRawIFDParserBase&) = delete;

  // Reads the directory at `ifdOffset` (from the stream's start) in `order`;
  // out-of-line values lie at `base` + their stored offset. Keeps each target
  // entry (first occurrence of an id wins; ids already kept are skipped) and
  // sets GetNextIFDOffset() to the stored next offset + `base`.
  // DtRawOk, or on a failed step (logged at INFO): the channel's status mapped
  // by DtRawError::GetRawErr over DtRawErrSeek / DtRawErrTell / DtRawErrRead.
  // On failure the entries kept so far stay and the next offset is unchanged.
  // A null `stream` is a programming error (assertion); a stream without a
  // channel gives DtRawErrParam.
  virtual int Parse(DtNlDataStream* stream, int base, int ifdOffset, DtNlByteOrder order);

  // The kept entry with `tagId`, or null; owned by this parser.
  DtRawTagData* GetTagData(unsigned short tagId);
  // The last parsed directory's next offset plus base; 0 before any parse.
  UINT32 GetNextIFDOffset() const;
  // Overwrites the kept entry's value bytes with `src->m_data`. DtRawOk;
  // DtRawErrNoData (logged) when no entry has src->m_tagId; DtRawErrSize
  // (logged) when the sizes differ. An entry kept without bytes (size 0 or
  // above 32) is left unchanged.
  int UpdateTagData(const DtRawTagData* src);
  // Frees every kept entry; the target set and the next offset stay. Always 0.
  int Finalize();
  // Back to the state of a new parser: no entries, next offset 0 (the target
  // set stays). For owners that keep a parser object instead of making a new one.
  void Reset();

 protected:
  // Fills the target set on the first call only (subclasses).
  virtual void initTargetTagList() = 0;
  // The DtRawTagCategory of the entries this parser keeps (subclasses).
  virtual UINT32 getTagCategory() = 0;

  // The algorithm behind Parse.
  int parse(DtNlDataStream* stream, int base, int ifdOffset, DtNlByteOrder order);
  // 1 when `tagId` is in the target set, else 0.
  int isTargetTag(unsigned short tagId);
  // The index of `tagId` in the target set (the first, when an id is listed
  // twice), or MAX_TARGETS when it is not there.
  UINT32 targetIndexOf(unsigned short tagId) const {
    if (m_targetTagList == nullptr) {
      return MAX_TARGETS;
    }
    // Linear, from the front (setTargetTags keeps the set to MAX_TARGETS).
    for (INT32 i = 0; i < m_targetTagNum; ++i) {
      if (m_targetTagList[i] == tagId) {
        return static_cast<UINT32>(i);
      }
    }
    return MAX_TARGETS;
  }
  // count x unit size of `type` as an unsigned 32-bit product, which wraps
  // deliberately (UNIT_SIZE below has the unit table and its two quirks).
  static UINT32 getTagDataSize(UINT16 type, UINT32 count) {
    // Deliberate: the index is an unsigned 16-bit difference, so types 0 to 2
    // wrap to 65533..65535 and fall outside the table like types 11 and up.
    const UINT16 index = static_cast<UINT16>(type - 3u);
    const UINT32 unit = (index < sizeof UNIT_SIZE) ? UNIT_SIZE[index] : 1u;
    // Deliberate: unsigned 32-bit product that may wrap (LONG x 0x40000001 is 4).
    return count * unit;
  }

  // Bytes per value of TIFF types 3 to 10, indexed by type - 3. Two quirks are
  // kept on purpose: SSHORT (8) counts 1 byte per value, and FLOAT (11) and
  // DOUBLE (12) fall outside the table and count 1 byte, like every other type.
  static constexpr UINT8 UNIT_SIZE[8] = {
      2,  // 3 SHORT
      4,  // 4 LONG
      8,  // 5 RATIONAL
      1,  // 6 SBYTE
      1,  // 7 UNDEFINED
      1,  // 8 SSHORT
      4,  // 9 SLONG
      8   // 10 SRATIONAL
  };

  // Sets the target set (for subclasses' initTargetTagList) to the `count`
  // ids at `ids` (borrowed: they must outlive the parser), once. A set of more
  // than MAX_TARGETS ids is refused (the set stays empty).
  void setTargetTags(const UINT16* ids, INT32 count);

  DtRawTagDataList m_tagDataList;  // kept entries, keyed by tag id; owned
  UINT32 m_nextIfdOffset;          // next directory offset + base; 0 until parsed
  INT32 m_targetTagNum;            // ids in m_targetTagList
  const UINT16* m_targetTagList;   // borrowed target ids; null until initTargetTagList
  UINT32 m_keptTargets;            // bit i set: an entry with target id i is kept
};

#endif  // KPZ_RAW_PARSER_DTRAWIFDPARSERBASE_H
