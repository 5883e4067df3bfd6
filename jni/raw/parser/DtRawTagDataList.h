// DtRawTagDataList.h - the store of kept directory entries of one parser (or
// of the facade's pending changes), over a keyed list.
//
// Layer: jni/raw/parser (raw metadata engine). The list owns every
// DtRawTagData handed to it and each one's m_data array; both are freed by
// ClearAllData and the destructor. Parsers key entries by tag id (ids are
// unique); the facade's write-back queue appends unkeyed entries in order.
//
//   DtRawTagDataList list;
//   DtRawTagData* t = new DtRawTagData();
//   t->m_tagId = 0x0112;
//   if (list.PushBack(t, t->m_tagId) != 0) delete t;  // refused: still ours
//   DtRawTagData* found = list.GetTagData(0x0112);    // owned by the list
//   for (DtNlNode* n = list.GetBeginNode(); n != list.GetEndNode(); n = n->next)
//     use(DtRawTagDataList::TagDataOf(n));
//
// Pointer member: m_list is owned (created in the constructor, deleted in the
// destructor). The values it holds are owned by this object, not by m_list.
#ifndef KPZ_RAW_PARSER_DTRAWTAGDATALIST_H
#define KPZ_RAW_PARSER_DTRAWTAGDATALIST_H

#include "raw/parser/DtRawTagData.h"
#include "util/DtNlListImpl.h"
#include "util/DtNlTypes.h"

class DtRawTagDataList {
 public:
  DtRawTagDataList();
  // ClearAllData(), then deletes the keyed list.
  ~DtRawTagDataList();
  DtRawTagDataList(const DtRawTagDataList&) = delete;
  DtRawTagDataList& operator=(const DtRawTagDataList&) = delete;

  // 1 when an entry is stored under `tagId` (non-null), else 0.
  int IsExistData(unsigned short tagId) const;
  // The entry stored under `tagId`, or null. Stays owned by the list.
  DtRawTagData* GetTagData(unsigned short tagId) const;
  // Frees every entry and its m_data array; the list stays usable. The result
  // is always 0 and carries no meaning.
  int ClearAllData();

  // Appends `data` under `key`, handing it (and its m_data) over to the list.
  // 0 when appended; -1 when refused (null `data`, or `key` other than
  // DtNlListImpl::NO_KEY already present), and then `data` stays the caller's.
  int PushBack(DtRawTagData* data, UINT32 key);
  // Appends `data` unkeyed (DtNlListImpl::NO_KEY): never refused for
  // duplicates, kept in the order appended. Same ownership rule as above.
  int PushBack(DtRawTagData* data);

  // Iteration in stored order: from GetBeginNode() along `next` up to (not
  // including) GetEndNode().
  UINT32 GetSize() const;
  DtNlNode* GetBeginNode() const;
  DtNlNode* GetEndNode() const;
  // The entry a node of this list holds (null for the end node).
  static DtRawTagData* TagDataOf(const DtNlNode* node);

 private:
  DtNlListImpl* m_list;  // owned
};

#endif  // KPZ_RAW_PARSER_DTRAWTAGDATALIST_H
