// DtRawHeadIo.cpp - the head channel and the record of where a parse stopped
// (jni/raw/parser). See DtRawHeadIo.h.
#include "raw/parser/DtRawHeadIo.h"

#include <cstring>
#include <typeinfo>

#include "raw/parser/DtRawTagData.h"
#include "raw/parser/DtRawTagDataList.h"
#include "util/DtNlListImpl.h"
#include "util/DtNlDataUtil.h"

namespace {

// Bytes of a directory's entry count, of one entry and of its next offset.
const std::uint64_t kCountSize = 2;
const std::uint64_t kEntrySize = 12;
const std::uint64_t kNextSize = 4;

// Bytes of the maker note's header before its directory ("KAVI" and 8 more).
const std::uint64_t kMakerNoteHeader = 12;

// The pointers that lead from one directory to another.
const UINT16 kTagExifPointer = 0x8769;  // IFD0: the Exif directory
const UINT16 kTagIobPointer = 0xA005;   // Exif: the interoperability directory
const UINT16 kTagMakerNote = 0x927C;    // Exif: the maker note
const UINT16 kTagKmPointer = 0xB028;    // maker note: the Km maker note

// Offsets the channel reads at 0 (negative as signed 32-bit numbers): no
// extent is noted for them.
const UINT32 kLargestOffset = 0x7FFFFFFFu;

// Bytes per value of TIFF types 3 to 10, as the IFD parsers count them (every
// other type 1).
std::uint64_t unitOf(UINT16 type) {
  static const UINT8 kUnits[8] = {2, 4, 8, 1, 1, 1, 4, 8};
  const UINT16 index = static_cast<UINT16>(type - 3u);
  return index < sizeof kUnits ? kUnits[index] : 1u;
}

}  // namespace

DtRawHeadIo::DtRawHeadIo(std::uint64_t fileSize)
    : DtNlBuffIo(),
      m_fileSize(fileSize),
      m_head(nullptr),
      m_headSize(0),
      m_header(),
      m_movedTo(0),
      m_stop(),
      m_cut(),
      m_takenCount(0),
      m_lengthCount(0),
      m_places(nullptr),
      m_placesNoted(0) {}

DtRawHeadIo::~DtRawHeadIo() = default;

int DtRawHeadIo::Open(const UINT8* buffer, UINT size) {
  const int result = DtNlBuffIo::Open(buffer, size);
  if (result == 0) {
    m_head = buffer;
    m_headSize = size;
    std::memset(m_header, 0, sizeof m_header);
    if (buffer != nullptr) {
      std::memcpy(m_header, buffer, size < sizeof m_header ? size : sizeof m_header);
    }
    m_stop = Stop();
    m_cut = Cut();
    m_takenCount = 0;
    m_lengthCount = 0;
    m_movedTo = 0;
    KeepPlaces(m_places);
  }
  return result;
}

void DtRawHeadIo::KeepPlaces(Places* places) {
  m_places = places;
  m_placesNoted = 0;
  if (places != nullptr) {
    *places = Places();
    places->m_fileSize = m_fileSize;
  }
}

void DtRawHeadIo::KeptEntry(const DtRawTagData* tag, UINT32 entry) {
  if (m_places == nullptr || m_placesNoted >= Places::MAX_PLACES) {
    return;
  }
  Place& p = m_places->m_at[m_placesNoted++];
  p.m_category = static_cast<INT32>(tag->m_category);
  p.m_tag = tag->m_tagId;
  p.m_entry = entry;
  p.m_pos = tag->m_offset;
  p.m_size = tag->m_size;
  p.m_hasData = tag->m_data != nullptr && tag->m_size >= 1 && tag->m_size <= sizeof p.m_data;
  if (p.m_hasData) {
    std::memcpy(p.m_data, tag->m_data, tag->m_size);
  }
}

bool DtRawHeadIo::Place::PastEnd(std::uint64_t fileSize) const {
  // The entry's tag, type and count (8 bytes), then its field: the value
  // itself (up to 4 bytes) or the offset of the value (4 bytes).
  const std::uint64_t field = m_size <= 4 ? m_size : 4;
  if (std::uint64_t{m_entry} + 8 + field > fileSize) {
    return true;
  }
  return m_size > 0 && std::uint64_t{m_pos} + m_size > fileSize;
}

const DtRawHeadIo::Place* DtRawHeadIo::Places::Get(INT32 category, UINT16 tag) const {
  for (UINT i = 0; i < m_count && i < MAX_PLACES; ++i) {
    if (m_at[i].m_category == category && m_at[i].m_tag == tag) {
      return &m_at[i];
    }
  }
  return nullptr;
}

bool DtRawHeadIo::Places::Cut(INT32 category) const {
  // Bounded: each step goes to the directory holding the pointer, and IFD0
  // has none.
  for (UINT steps = 0; steps < CATEGORIES; ++steps) {
    if (category < 0 || category >= static_cast<INT32>(CATEGORIES)) {
      return false;
    }
    const UINT i = static_cast<UINT>(category);
    if (m_cut[i]) {
      return true;
    }
    // The directory holding the pointer, and the pointer's tag (0: the
    // next-directory offset, part of the holder's extent).
    INT32 holder = NO_CATEGORY;
    UINT16 pointer = 0;
    switch (category) {
      case DtRawTagCategoryIfd1:
        holder = DtRawTagCategoryIfd0;
        break;
      case DtRawTagCategoryExif:
        holder = DtRawTagCategoryIfd0;
        pointer = kTagExifPointer;
        break;
      case DtRawTagCategoryIob:
        holder = DtRawTagCategoryExif;
        pointer = kTagIobPointer;
        break;
      case DtRawTagCategoryMakerNote:
        holder = DtRawTagCategoryExif;
        pointer = kTagMakerNote;
        break;
      case DtRawTagCategoryKmMakerNote:
        holder = DtRawTagCategoryMakerNote;
        pointer = kTagKmPointer;
        break;
      default:
        return false;
    }
    const Place* held = pointer != 0 ? Get(holder, pointer) : nullptr;
    if (held != nullptr && held->PastEnd(m_fileSize)) {
      return true;
    }
    if (m_read[i]) {
      return false;
    }
    category = holder;
  }
  return false;
}

int DtRawHeadIo::Seek(long long offset, DtNlIoSeekPos origin) {
  if (origin == DtNlIoSeekSet) {
    m_movedTo = static_cast<UINT32>(static_cast<unsigned long long>(offset));  // low 32 bits
  }
  return DtNlBuffIo::Seek(offset, origin);
}


DtRawHeadIo* DtRawHeadIo::Of(DtNlIo* io) {
  return (io != nullptr && typeid(*io) == typeid(DtRawHeadIo)) ? static_cast<DtRawHeadIo*>(io)
                                                                 : nullptr;
}

int DtRawHeadIo::StopInDirectory(UINT32 category, UINT32 offset, INT32 entries, UINT32 valuePos,
                                 UINT32 valueSize, int code) {
  if (m_stop.m_step != StepNone) {
    return code;
  }
  findCut();
  m_stop.m_step = StepRead;
  m_stop.m_code = code;
  m_stop.m_category = static_cast<INT32>(category);
  m_stop.m_offset = offset;
  m_stop.m_start = offset;
  if (entries < 0) {
    m_stop.m_end = std::uint64_t{offset} + kCountSize;
  } else if (valueSize > 4) {
    // A value outside the entry: where it lies, not the directory.
    m_stop.m_value = true;
    m_stop.m_start = valuePos;
    m_stop.m_end = std::uint64_t{valuePos} + valueSize;
  } else {
    // A value in the entry's own field is part of the directory.
    m_stop.m_end = std::uint64_t{offset} + kCountSize +
                   kEntrySize * static_cast<std::uint64_t>(entries) + kNextSize;
  }
  return code;
}

int DtRawHeadIo::StopInHeader(UINT32 offset, int code) {
  if (m_stop.m_step != StepNone) {
    return code;
  }
  findCut();
  m_stop.m_step = StepRead;
  m_stop.m_code = code;
  m_stop.m_category = DtRawTagCategoryMakerNote;
  m_stop.m_offset = offset;
  m_stop.m_start = offset;
  m_stop.m_end = std::uint64_t{offset} + kMakerNoteHeader;
  return code;
}

int DtRawHeadIo::Refuse(Step step, const DtRawTagData* tag, int code, UINT32 offset) {
  if (m_stop.m_step != StepNone) {
    return code;
  }
  findCut();
  m_stop.m_step = step;
  m_stop.m_code = code;
  m_stop.m_tagFound = tag != nullptr;
  m_stop.m_bytes = tag != nullptr ? lengthOf(tag) : 0;
  m_stop.m_offset = offset;
  if (step == StepNotKavi) {
    m_stop.m_category = DtRawTagCategoryMakerNote;
    m_stop.m_start = offset;
    m_stop.m_end = std::uint64_t{offset} + kMakerNoteHeader;
  }
  return code;
}

void DtRawHeadIo::TookDirectory(UINT32 category, UINT32 offset, UINT32 entries,
                                const DtRawTagDataList* tags, const UINT16* targets,
                                INT32 targetCount) {
  if (m_places != nullptr && m_stop.m_step == StepNone) {
    // The entries noted while it was read are its own now.
    m_places->m_count = m_placesNoted;
    if (category < Places::CATEGORIES) {
      const std::uint64_t end = std::uint64_t{offset} + kCountSize + kEntrySize * entries + kNextSize;
      m_places->m_read[category] = true;
      m_places->m_cut[category] = offset <= kLargestOffset && end > m_fileSize;
    }
  }
  if (m_takenCount < MAX_TAKEN && m_stop.m_step == StepNone) {
    Taken& t = m_taken[m_takenCount++];
    t.m_header = false;
    t.m_category = static_cast<INT32>(category);
    t.m_offset = offset;
    t.m_entries = entries;
    t.m_tags = tags;
    t.m_targets = targets;
    t.m_targetCount = targetCount;
  }
}

bool DtRawHeadIo::TookHeader(UINT32 offset) {
  if (m_takenCount < MAX_TAKEN && m_stop.m_step == StepNone) {
    Taken& t = m_taken[m_takenCount++];
    t = Taken();
    t.m_header = true;
    t.m_category = DtRawTagCategoryMakerNote;
    t.m_offset = offset;
  }
  return true;
}

void DtRawHeadIo::findCut() {
  // At most MAX_TAKEN structures, each with at most its list's entries.
  for (UINT i = 0; i < m_takenCount && !m_cut.m_set; ++i) {
    const Taken& t = m_taken[i];
    if (t.m_header) {
      if (t.m_offset <= kLargestOffset) {
        noteCut(t.m_category, false, t.m_offset, t.m_offset + kMakerNoteHeader);
      }
      continue;
    }
    if (t.m_offset <= kLargestOffset) {
      noteCut(t.m_category, false, t.m_offset,
              t.m_offset + kCountSize + kEntrySize * t.m_entries + kNextSize);
    }
    if (m_cut.m_set || t.m_tags == nullptr) {
      continue;
    }
    // Of the values kept with their bytes, the first in target order that
    // ends past the file.
    const DtRawTagData* first = nullptr;
    INT32 firstTarget = t.m_targetCount;
    for (const DtNlNode* node = t.m_tags->GetBeginNode(); node != t.m_tags->GetEndNode();
         node = node->next) {
      const DtRawTagData* tag = DtRawTagDataList::TagDataOf(node);
      if (tag->m_data == nullptr || tag->m_size <= 4 ||
          std::uint64_t{tag->m_offset} + tag->m_size <= m_fileSize) {
        continue;
      }
      for (INT32 k = 0; k < firstTarget && t.m_targets != nullptr; ++k) {
        if (t.m_targets[k] == tag->m_tagId) {
          firstTarget = k;
          first = tag;
          break;
        }
      }
    }
    // A value at 2 GiB or more was read at 0, but is named by where it lies.
    if (first != nullptr) {
      noteCut(t.m_category, true, first->m_offset, std::uint64_t{first->m_offset} + first->m_size);
    }
  }
}

void DtRawHeadIo::KeptByPosition(const DtRawTagData* tag, UINT16 type, UINT32 count) {
  if (m_lengthCount < MAX_LENGTHS) {
    m_lengthTags[m_lengthCount] = tag;
    m_lengths[m_lengthCount] = std::uint64_t{count} * unitOf(type);
    ++m_lengthCount;
  }
}

int DtRawHeadIo::Refused(DtNlIo* io, Step step, const DtRawTagData* tag, int code,
                         UINT32 offset) {
  DtRawHeadIo* head = Of(io);
  return head != nullptr ? head->Refuse(step, tag, code, offset) : code;
}

int DtRawHeadIo::Unread(DtNlIo* io, UINT32 offset, int code) {
  DtRawHeadIo* head = Of(io);
  return head != nullptr ? head->StopInHeader(offset, code) : code;
}

bool DtRawHeadIo::HeaderTaken(DtNlIo* io, UINT32 offset) {
  // On a parse's success path: the plain memory channel is told first, by
  // the identity of its type.
  if (io == nullptr || typeid(*io) == typeid(DtNlBuffIo)) {
    return true;
  }
  DtRawHeadIo* head = Of(io);
  return head != nullptr ? head->TookHeader(offset) : true;
}

void DtRawHeadIo::noteCut(INT32 category, bool value, std::uint64_t start, std::uint64_t end) {
  if (m_cut.m_set || end <= m_fileSize) {
    return;
  }
  m_cut.m_set = true;
  m_cut.m_category = category;
  m_cut.m_value = value;
  m_cut.m_start = start;
  m_cut.m_end = end;
}

std::uint64_t DtRawHeadIo::lengthOf(const DtRawTagData* tag) const {
  for (UINT i = 0; i < m_lengthCount; ++i) {
    if (m_lengthTags[i] == tag) {
      return m_lengths[i];
    }
  }
  // A value of at most 4 bytes is kept at the entry's own field, 8 bytes
  // into the entry, after its tag id, type and count: the 32-bit size is
  // the product of those two, which may have wrapped.
  if (tag->m_size <= 4 && m_head != nullptr && tag->m_offset >= 8 &&
      tag->m_offset <= m_headSize) {
    const UINT8* entry = m_head + (tag->m_offset - 8);
    const UINT16 type = DtNlDataUtil::U8ArrayToU16(entry + 2, tag->m_byteOrder);
    const UINT32 count = DtNlDataUtil::U8ArrayToU32(entry + 4, tag->m_byteOrder);
    return std::uint64_t{count} * unitOf(type);
  }
  return tag->m_size;
}
