// DtRawIFDParserBase.cpp - reading one directory and keeping its target entries.
#include "raw/parser/DtRawIFDParserBase.h"

#include <cstring>
#include <typeinfo>

#include "raw/DtRawError.h"
#include "raw/parser/DtRawHeadIo.h"
#include "util/DtNlLogger.h"
#include "util/io/DtNlBuffIo.h"
#include "util/io/DtNlDataStream.h"
#include "util/io/DtNlIo.h"

namespace {

// Bytes of one directory entry, and of an entry after its tag id.
const UINT ENTRY_SIZE = 12;
const UINT ENTRY_REST = 10;

// Largest value whose bytes are copied; longer ones are kept by position only.
const UINT32 MAX_COPIED_SIZE = 32;

// Largest memory block read in place: every position in it is a valid Tell().
const UINT MAX_VIEW_SIZE = 0x7FFFFFFFu;

// A 16- or 32-bit number at `p` in `order` (the data utilities' decoding,
// inlined for the per-field loop).
inline UINT16 loadU16(const UINT8* p, DtNlByteOrder order) {
  return order == DtNlBigEndian ? static_cast<UINT16>((p[0] << 8) | p[1])
                                : static_cast<UINT16>(p[0] | (p[1] << 8));
}
inline UINT32 loadU32(const UINT8* p, DtNlByteOrder order) {
  if (order == DtNlBigEndian) {
    return (static_cast<UINT32>(p[0]) << 24) | (static_cast<UINT32>(p[1]) << 16) |
           (static_cast<UINT32>(p[2]) << 8) | static_cast<UINT32>(p[3]);
  }
  return static_cast<UINT32>(p[0]) | (static_cast<UINT32>(p[1]) << 8) |
         (static_cast<UINT32>(p[2]) << 16) | (static_cast<UINT32>(p[3]) << 24);
}

// The steps of reading a directory, over either of two sources with the same
// results: a plain memory channel (or the record's head channel, which reads
// as one) is read in place (its block, viewed once, with the channel's own
// clamping rules and no call per field), any other channel through the data
// stream field by field. Each step reports failure as the channel would; the
// caller logs and maps the status, and records in a head channel where the
// read stopped.
class DirReader {
 public:
  // `inMemory`: `io` is the exact memory channel or the head channel (another
  // subclass may read differently), as the caller told once for the parse.
  DirReader(DtNlDataStream* stream, DtNlIo* io, DtNlByteOrder order, bool inMemory)
      : m_stream(stream), m_io(io), m_order(order), m_block(nullptr), m_size(0), m_pos(0) {
    if (!inMemory) {
      return;
    }
    const DtNlBuffIo* memory = static_cast<const DtNlBuffIo*>(io);
    const UINT8* here = nullptr;
    const UINT left = memory->View(&here);
    const long long pos = io->Tell64();
    if (here == nullptr || pos < 0 || static_cast<unsigned long long>(pos) + left > MAX_VIEW_SIZE) {
      return;
    }
    m_pos = static_cast<UINT>(pos);
    m_size = m_pos + left;
    m_block = here - m_pos;
  }
  DirReader(const DirReader&) = delete;
  DirReader& operator=(const DirReader&) = delete;

  // Leaves the channel where field-by-field reading would have left it.
  ~DirReader() {
    if (m_block != nullptr) {
      (void)m_io->Seek(static_cast<long long>(m_pos), DtNlIoSeekSet);  // in range: never fails
    }
  }

  bool ReadU16(UINT16* out) {
    if (m_block == nullptr) {
      return m_stream->ReadU16(out, 1, m_order) == 2;
    }
    if (m_size - m_pos < 2) {
      m_pos = m_size;  // a short read takes what is left
      return false;
    }
    *out = loadU16(m_block + m_pos, m_order);
    m_pos += 2;
    return true;
  }

  bool ReadU32(UINT32* out) {
    if (m_block == nullptr) {
      return m_stream->ReadU32(out, 1, m_order) == 4;
    }
    if (m_size - m_pos < 4) {
      m_pos = m_size;
      return false;
    }
    *out = loadU32(m_block + m_pos, m_order);
    m_pos += 4;
    return true;
  }

  // `size` bytes into `dst`; the count read.
  UINT ReadBytes(UINT8* dst, UINT size) {
    if (m_block == nullptr) {
      return m_io->ReadU8(dst, size);
    }
    const UINT left = m_size - m_pos;
    const UINT n = size < left ? size : left;
    std::memcpy(dst, m_block + m_pos, n);
    m_pos += n;
    return n;
  }

  // The 12 bytes of the entry at the current position when a memory block
  // holds all of them (its fields then need no check each), else null.
  // Nothing moves.
  const UINT8* WholeEntry() const {
    return (m_block != nullptr && m_size - m_pos >= ENTRY_SIZE) ? m_block + m_pos : nullptr;
  }

  // Seek forward `count` bytes from the current position; false on failure.
  bool Skip(UINT count) {
    if (m_block == nullptr) {
      return m_io->Seek(static_cast<long long>(count), DtNlIoSeekCur) == 0;
    }
    const UINT left = m_size - m_pos;
    m_pos += count < left ? count : left;  // clamped at the end, as the channel does
    return true;
  }

  // Seek to `pos` from the start; false on failure.
  bool SeekTo(long long pos) {
    if (m_block == nullptr) {
      return m_io->Seek(pos, DtNlIoSeekSet) == 0;
    }
    // The channel's rule: the low 32 bits, signed; negative gives 0, past the
    // end gives the end.
    const long long target = static_cast<long long>(static_cast<INT32>(static_cast<UINT32>(pos)));
    if (target < 0) {
      m_pos = 0;
    } else {
      m_pos = static_cast<unsigned long long>(target) < m_size ? static_cast<UINT>(target) : m_size;
    }
    return true;
  }

  // The current position, or a negative value on failure.
  int Tell() {
    if (m_block == nullptr) {
      return m_io->Tell();
    }
    return static_cast<int>(m_pos);  // m_pos <= MAX_VIEW_SIZE
  }

 private:
  DtNlDataStream* m_stream;  // borrowed
  DtNlIo* m_io;              // borrowed: the stream's channel
  DtNlByteOrder m_order;
  const UINT8* m_block;  // borrowed: the memory block's start; null: field by field
  UINT m_size;           // bytes in the block
  UINT m_pos;            // the position in the block, <= m_size
};

// The directory of `category` with `entries` entries, keeping `tags` (of the
// `targetCount` target ids at `targets`), was read whole: noted in the head
// channel `head`, at the offset the parse moved it to. Out of line: the parse
// of any other channel does not carry it.
[[gnu::noinline]] void took(DtRawHeadIo* head, UINT32 category, UINT32 entries,
                            const DtRawTagDataList* tags, const UINT16* targets,
                            INT32 targetCount) {
  head->TookDirectory(category, head->MovedTo(), entries, tags, targets, targetCount);
}

// A failed step of the directory of `category` with `entries` entries (-1:
// the count itself was not read), while reading its own bytes or
// (`valueSize` above 0) the value of `valueSize` bytes at `valuePos`:
// recorded in `head` (null: the channel is no head channel), at the offset
// the parse moved it to for this directory (a head channel is read in place,
// so it has not moved since). Returns `code`. Out of line and cold.
[[gnu::cold]] [[gnu::noinline]] int stopped(DtRawHeadIo* head, UINT32 category, INT32 entries,
                                            int code, UINT32 valuePos = 0, UINT32 valueSize = 0) {
  if (head == nullptr || head->Head() == nullptr) {
    return code;
  }
  return head->StopInDirectory(category, head->MovedTo(), entries, valuePos, valueSize, code);
}

}  // namespace

const UINT32 DtRawIFDParserBase::MAX_TARGETS;

DtRawIFDParserBase::DtRawIFDParserBase()
    : m_tagDataList(),
      m_nextIfdOffset(0),
      m_targetTagNum(0),
      m_targetTagList(nullptr),
      m_keptTargets(0) {}

DtRawIFDParserBase::~DtRawIFDParserBase() {
  // The target set is borrowed (see setTargetTags): nothing to free.
  m_targetTagList = nullptr;
  Finalize();
}

int DtRawIFDParserBase::Parse(DtNlDataStream* stream, int base, int ifdOffset,
                              DtNlByteOrder order) {
  return parse(stream, base, ifdOffset, order);
}

int DtRawIFDParserBase::parse(DtNlDataStream* stream, int base, int ifdOffset,
                              DtNlByteOrder order) {
  initTargetTagList();
  // The category of every entry kept: one per parser, asked once.
  const UINT32 category = getTagCategory();
  DTNL_ASSERT(__LINE__, stream != nullptr, "pStream is NULL!!");
  DtNlIo* io = stream->GetIo();
  if (io == nullptr) {
    return DtRawErrParam;
  }
  io->SetBaseOffset(base);
  // The channel's kind, told once for the whole directory: the exact memory
  // channel (the common case, told by the identity of its type alone), the
  // record's head channel, or another one.
  const std::type_info& kind = typeid(*io);
  const bool plain = kind == typeid(DtNlBuffIo);
  DtRawHeadIo* const head = plain ? nullptr : DtRawHeadIo::Of(io);

  if (io->Seek(static_cast<long long>(ifdOffset), DtNlIoSeekSet) != 0) {
    DTNL_LOG(DTNL_LV_INFO, __LINE__, "DtRawIFDParserBase: File Seek Err!!");
    return DtRawError::GetRawErr(io->GetStatus(), DtRawErrSeek);
  }
  DirReader dir(stream, io, order, plain || head != nullptr);
  UINT16 entryNum = 0;
  if (!dir.ReadU16(&entryNum)) {
    DTNL_LOG(DTNL_LV_INFO, __LINE__, "DtRawIFDParserBase: Read Dir Num Err!!");
    return stopped(head, getTagCategory(), -1,
                   DtRawError::GetRawErr(io->GetStatus(), DtRawErrRead));
  }

  // A head channel asked to keep where the entries lie (placing) notes each
  // one kept; nearly always null.
  DtRawHeadIo* const placing = head != nullptr && head->KeepsPlaces() ? head : nullptr;
  // At most 65,535 entries; every pass ends 12 bytes further on (or returns).
  for (UINT32 i = 0; i < entryNum; ++i) {
    if (m_tagDataList.GetSize() == static_cast<UINT32>(m_targetTagNum)) {
      // Every target is kept: skip the entry unread.
      if (!dir.Skip(ENTRY_SIZE)) {
        DTNL_LOG(DTNL_LV_INFO, __LINE__, "DtRawIFDParserBase: Seek Err!!");
        return stopped(head, getTagCategory(), entryNum,
                       DtRawError::GetRawErr(io->GetStatus(), DtRawErrSeek));
      }
      continue;
    }
    const int entryStart = dir.Tell();
    if (entryStart < 0) {
      return stopped(head, getTagCategory(), entryNum,
                     DtRawError::GetRawErr(io->GetStatus(), DtRawErrTell));
    }
    // A whole entry in a memory block is decoded in place (the reads below
    // cannot fall short then); otherwise field by field.
    const UINT8* whole = dir.WholeEntry();
    UINT16 tagId = 0;
    if (whole != nullptr) {
      tagId = loadU16(whole, order);
    } else if (!dir.ReadU16(&tagId)) {
      DTNL_LOG(DTNL_LV_INFO, __LINE__, "DtRawIFDParserBase: Read Tag Err!!");
      return stopped(head, getTagCategory(), entryNum,
                     DtRawError::GetRawErr(io->GetStatus(), DtRawErrRead));
    }
    // The index of the id in the target set doubles as the bit that says
    // whether an entry with it is kept already (the list's IsExistData, told
    // without searching the list).
    const UINT32 target = targetIndexOf(tagId);
    if (target >= MAX_TARGETS || (m_keptTargets & (1u << target)) != 0) {
      // Not wanted, or a later duplicate: the first occurrence wins. (A whole
      // entry was not read past its start.)
      if (!dir.Skip(whole != nullptr ? ENTRY_SIZE : ENTRY_REST)) {
        DTNL_LOG(DTNL_LV_INFO, __LINE__, "DtRawIFDParserBase: Seek Err!!");
        return stopped(head, getTagCategory(), entryNum,
                       DtRawError::GetRawErr(io->GetStatus(), DtRawErrSeek));
      }
      continue;
    }
    UINT16 type = 0;
    if (whole != nullptr) {
      type = loadU16(whole + 2, order);
    } else if (!dir.ReadU16(&type)) {
      DTNL_LOG(DTNL_LV_INFO, __LINE__, "DtRawIFDParserBase: Read Data Type Err!!");
      return stopped(head, getTagCategory(), entryNum,
                     DtRawError::GetRawErr(io->GetStatus(), DtRawErrRead));
    }
    UINT32 count = 0;
    if (whole != nullptr) {
      count = loadU32(whole + 4, order);
    } else if (!dir.ReadU32(&count)) {
      DTNL_LOG(DTNL_LV_INFO, __LINE__, "DtRawIFDParserBase: Read data count Err!!");
      return stopped(head, getTagCategory(), entryNum,
                     DtRawError::GetRawErr(io->GetStatus(), DtRawErrRead));
    }
    const UINT32 size = getTagDataSize(type, count);

    UINT32 valuePos = 0;
    if (size <= 4) {
      // The value is the entry's own 4-byte field, which starts here.
      const int fieldPos = whole != nullptr ? entryStart + 8 : dir.Tell();
      if (fieldPos < 0) {
        return stopped(head, getTagCategory(), entryNum,
                       DtRawError::GetRawErr(io->GetStatus(), DtRawErrTell));
      }
      valuePos = static_cast<UINT32>(fieldPos);
    } else {
      UINT32 valueOffset = 0;
      if (whole != nullptr) {
        valueOffset = loadU32(whole + 8, order);
      } else if (!dir.ReadU32(&valueOffset)) {
        DTNL_LOG(DTNL_LV_INFO, __LINE__, "DtRawIFDParserBase: Read Data Offset Err!!");
        return stopped(head, getTagCategory(), entryNum,
                       DtRawError::GetRawErr(io->GetStatus(), DtRawErrRead));
      }
      // Deliberate: unsigned 32-bit sum; a wrapped position is simply one the
      // channel clamps or refuses below.
      valuePos = static_cast<UINT32>(base) + valueOffset;
    }

    // The record and its bytes come from the list's own block (the former
    // "allocate a byte array" of the value: same bytes, same owner, no heap).
    DtRawTagData* tag = nullptr;
    if (size >= 1 && size <= MAX_COPIED_SIZE) {
      // The channel keeps the low 32 bits of the position as a signed offset
      // and clamps (memory) or refuses (file) what lies outside the data.
      if (!dir.SeekTo(static_cast<long long>(valuePos))) {
        DTNL_LOG(DTNL_LV_INFO, __LINE__, "DtRawIFDParserBase: File Eeek Err!!");
        return stopped(head, getTagCategory(), entryNum,
                       DtRawError::GetRawErr(io->GetStatus(), DtRawErrSeek));
      }
      tag = m_tagDataList.NewTagData(size);
      if (whole != nullptr && size <= 4) {
        // The entry's own field, which the block holds: no read can fall short.
        for (UINT32 b = 0; b < size; ++b) {
          tag->m_data[b] = whole[8 + b];
        }
      } else if (dir.ReadBytes(tag->m_data, size) != size) {
        DTNL_LOG(DTNL_LV_INFO, __LINE__, "DtRawIFDParserBase: Read Data Err!!");
        m_tagDataList.DeleteTagData(tag);
        return stopped(head, getTagCategory(), entryNum,
                       DtRawError::GetRawErr(io->GetStatus(), DtRawErrRead), valuePos, size);
      }
    } else {
      tag = m_tagDataList.NewTagData(size);  // kept by position only: no bytes
      if (head != nullptr) {
        head->KeptByPosition(tag, type, count);  // its length, unwrapped
      }
    }

    tag->m_category = category;
    tag->m_tagId = tagId;
    tag->m_offset = valuePos;
    tag->m_size = size;
    tag->m_byteOrder = order;
    // The id was found absent above, so the list need not search for it again.
    m_tagDataList.PushBackAbsent(tag, tagId);
    m_keptTargets |= 1u << target;
    if (placing != nullptr) {
      placing->KeptEntry(tag, static_cast<UINT32>(entryStart));
    }

    if (!dir.SeekTo(static_cast<long long>(entryStart) + ENTRY_SIZE)) {
      DTNL_LOG(DTNL_LV_INFO, __LINE__, "DtRawIFDParserBase: Seek Err!!");
      return stopped(head, getTagCategory(), entryNum,
                     DtRawError::GetRawErr(io->GetStatus(), DtRawErrSeek));
    }
  }

  UINT32 nextOffset = 0;
  if (!dir.ReadU32(&nextOffset)) {
    DTNL_LOG(DTNL_LV_INFO, __LINE__, "DtRawIFDParserBase: Read Next Ifd Offset Err!!");
    return stopped(head, getTagCategory(), entryNum,
                   DtRawError::GetRawErr(io->GetStatus(), DtRawErrRead));
  }
  // Deliberate: unsigned 32-bit sum, wraps like every file offset here.
  m_nextIfdOffset = nextOffset + static_cast<UINT32>(base);
  if (head != nullptr) {
    // Read whole: noted in a head channel, with the entries kept (looked at
    // only if the parse fails later).
    took(head, category, entryNum, &m_tagDataList, m_targetTagList, m_targetTagNum);
  }
  return DtRawOk;
}

DtRawTagData* DtRawIFDParserBase::GetTagData(unsigned short tagId) {
  return m_tagDataList.GetTagData(tagId);
}

UINT32 DtRawIFDParserBase::GetNextIFDOffset() const { return m_nextIfdOffset; }

int DtRawIFDParserBase::UpdateTagData(const DtRawTagData* src) {
  // Deliberate: a null source, or one without bytes for a non-empty value,
  // is refused as an invalid argument instead of being dereferenced.
  if (src == nullptr || (src->m_data == nullptr && src->m_size != 0)) {
    return DtRawErrParam;
  }
  DtRawTagData* kept = m_tagDataList.GetTagData(src->m_tagId);
  if (kept == nullptr) {
    DTNL_LOG(DTNL_LV_INFO, __LINE__, "DtRawIFDParserBase: no data for update. tagId:%d",
             static_cast<int>(src->m_tagId));
    return DtRawErrNoData;
  }
  if (kept->m_size != src->m_size) {
    DTNL_LOG(DTNL_LV_INFO, __LINE__, "DtRawIFDParserBase: no match data size!!");
    return DtRawErrSize;
  }
  // Deliberate: an entry kept by position only (no bytes: size 0 or above
  // 32) has nothing to bring up to date.
  if (kept->m_data == nullptr || kept->m_size == 0) {
    return DtRawOk;
  }
  std::memcpy(kept->m_data, src->m_data, kept->m_size);
  return DtRawOk;
}

int DtRawIFDParserBase::Finalize() {
  m_tagDataList.ClearAllData();
  m_keptTargets = 0;
  return 0;
}

void DtRawIFDParserBase::Reset() {
  Finalize();
  m_nextIfdOffset = 0;
}

int DtRawIFDParserBase::isTargetTag(unsigned short tagId) {
  return targetIndexOf(tagId) < MAX_TARGETS ? 1 : 0;
}

void DtRawIFDParserBase::setTargetTags(const UINT16* ids, INT32 count) {
  if (m_targetTagList != nullptr || ids == nullptr || count <= 0 ||
      count > static_cast<INT32>(MAX_TARGETS)) {
    return;
  }
  // Kept by reference instead of copied into a new array: the ids are a
  // subclass's constant table, which outlives every parser.
  m_targetTagList = ids;
  m_targetTagNum = count;
}
