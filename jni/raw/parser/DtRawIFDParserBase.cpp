// DtRawIFDParserBase.cpp - reading one directory and keeping its target entries.
#include "raw/parser/DtRawIFDParserBase.h"

#include <cstring>

#include "raw/DtRawError.h"
#include "util/DtNlLogger.h"
#include "util/io/DtNlDataStream.h"
#include "util/io/DtNlIo.h"

namespace {

// Bytes per value of TIFF types 3 to 10, indexed by type - 3. Two quirks are
// kept on purpose: SSHORT (8) counts 1 byte per value, and FLOAT (11) and
// DOUBLE (12) fall outside the table and count 1 byte, like every other type.
const UINT8 c_unitSize[8] = {
    2,  // 3 SHORT
    4,  // 4 LONG
    8,  // 5 RATIONAL
    1,  // 6 SBYTE
    1,  // 7 UNDEFINED
    1,  // 8 SSHORT
    4,  // 9 SLONG
    8   // 10 SRATIONAL
};

// Bytes of one directory entry, and of an entry after its tag id.
const long long ENTRY_SIZE = 12;
const long long ENTRY_REST = 10;

// Largest value whose bytes are copied; longer ones are kept by position only.
const UINT32 MAX_COPIED_SIZE = 32;

}  // namespace

DtRawIFDParserBase::DtRawIFDParserBase()
    : m_tagDataList(), m_nextIfdOffset(0), m_targetTagNum(0), m_targetTagList(nullptr) {}

DtRawIFDParserBase::~DtRawIFDParserBase() {
  delete[] m_targetTagList;
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
  DTNL_ASSERT(__LINE__, stream != nullptr, "pStream is NULL!!");
  DtNlIo* io = stream->GetIo();
  if (io == nullptr) {
    return DtRawErrParam;
  }
  io->SetBaseOffset(base);

  if (io->Seek(static_cast<long long>(ifdOffset), DtNlIoSeekSet) != 0) {
    DTNL_LOG(DTNL_LV_INFO, __LINE__, "DtRawIFDParserBase: File Seek Err!!");
    return DtRawError::GetRawErr(io->GetStatus(), DtRawErrSeek);
  }
  UINT16 entryNum = 0;
  if (stream->ReadU16(&entryNum, 1, order) != 2) {
    DTNL_LOG(DTNL_LV_INFO, __LINE__, "DtRawIFDParserBase: Read Dir Num Err!!");
    return DtRawError::GetRawErr(io->GetStatus(), DtRawErrRead);
  }

  // At most 65,535 entries; every pass ends 12 bytes further on (or returns).
  for (UINT32 i = 0; i < entryNum; ++i) {
    if (m_tagDataList.GetSize() == static_cast<UINT32>(m_targetTagNum)) {
      // Every target is kept: skip the entry unread.
      if (io->Seek(ENTRY_SIZE, DtNlIoSeekCur) != 0) {
        DTNL_LOG(DTNL_LV_INFO, __LINE__, "DtRawIFDParserBase: Seek Err!!");
        return DtRawError::GetRawErr(io->GetStatus(), DtRawErrSeek);
      }
      continue;
    }
    const int entryStart = io->Tell();
    if (entryStart < 0) {
      return DtRawError::GetRawErr(io->GetStatus(), DtRawErrTell);
    }
    UINT16 tagId = 0;
    if (stream->ReadU16(&tagId, 1, order) != 2) {
      DTNL_LOG(DTNL_LV_INFO, __LINE__, "DtRawIFDParserBase: Read Tag Err!!");
      return DtRawError::GetRawErr(io->GetStatus(), DtRawErrRead);
    }
    if (isTargetTag(tagId) == 0 || m_tagDataList.IsExistData(tagId) != 0) {
      // Not wanted, or a later duplicate: the first occurrence wins.
      if (io->Seek(ENTRY_REST, DtNlIoSeekCur) != 0) {
        DTNL_LOG(DTNL_LV_INFO, __LINE__, "DtRawIFDParserBase: Seek Err!!");
        return DtRawError::GetRawErr(io->GetStatus(), DtRawErrSeek);
      }
      continue;
    }
    UINT16 type = 0;
    if (stream->ReadU16(&type, 1, order) != 2) {
      DTNL_LOG(DTNL_LV_INFO, __LINE__, "DtRawIFDParserBase: Read Data Type Err!!");
      return DtRawError::GetRawErr(io->GetStatus(), DtRawErrRead);
    }
    UINT32 count = 0;
    if (stream->ReadU32(&count, 1, order) != 4) {
      DTNL_LOG(DTNL_LV_INFO, __LINE__, "DtRawIFDParserBase: Read data count Err!!");
      return DtRawError::GetRawErr(io->GetStatus(), DtRawErrRead);
    }
    const UINT32 size = getTagDataSize(type, count);

    UINT32 valuePos = 0;
    if (size <= 4) {
      // The value is the entry's own 4-byte field, which starts here.
      const int fieldPos = io->Tell();
      if (fieldPos < 0) {
        return DtRawError::GetRawErr(io->GetStatus(), DtRawErrTell);
      }
      valuePos = static_cast<UINT32>(fieldPos);
    } else {
      UINT32 valueOffset = 0;
      if (stream->ReadU32(&valueOffset, 1, order) != 4) {
        DTNL_LOG(DTNL_LV_INFO, __LINE__, "DtRawIFDParserBase: Read Data Offset Err!!");
        return DtRawError::GetRawErr(io->GetStatus(), DtRawErrRead);
      }
      // Deliberate: unsigned 32-bit sum; a wrapped position is simply one the
      // channel clamps or refuses below.
      valuePos = static_cast<UINT32>(base) + valueOffset;
    }

    UINT8* data = nullptr;
    if (size >= 1 && size <= MAX_COPIED_SIZE) {
      // The channel keeps the low 32 bits of the position as a signed offset
      // and clamps (memory) or refuses (file) what lies outside the data.
      if (io->Seek(static_cast<long long>(valuePos), DtNlIoSeekSet) != 0) {
        DTNL_LOG(DTNL_LV_INFO, __LINE__, "DtRawIFDParserBase: File Eeek Err!!");
        return DtRawError::GetRawErr(io->GetStatus(), DtRawErrSeek);
      }
      data = new UINT8[size]();
      if (io->ReadU8(data, size) != size) {
        DTNL_LOG(DTNL_LV_INFO, __LINE__, "DtRawIFDParserBase: Read Data Err!!");
        delete[] data;
        return DtRawError::GetRawErr(io->GetStatus(), DtRawErrRead);
      }
    }

    DtRawTagData* tag = new DtRawTagData();
    tag->m_category = getTagCategory();
    tag->m_tagId = tagId;
    tag->m_offset = valuePos;
    tag->m_size = size;
    tag->m_data = data;
    tag->m_byteOrder = order;
    if (m_tagDataList.PushBack(tag, tagId) != 0) {
      // Not reached: the id was checked absent above. Keep nothing leaked.
      delete[] tag->m_data;
      delete tag;
    }

    if (io->Seek(static_cast<long long>(entryStart) + ENTRY_SIZE, DtNlIoSeekSet) != 0) {
      DTNL_LOG(DTNL_LV_INFO, __LINE__, "DtRawIFDParserBase: Seek Err!!");
      return DtRawError::GetRawErr(io->GetStatus(), DtRawErrSeek);
    }
  }

  UINT32 nextOffset = 0;
  if (stream->ReadU32(&nextOffset, 1, order) != 4) {
    DTNL_LOG(DTNL_LV_INFO, __LINE__, "DtRawIFDParserBase: Read Next Ifd Offset Err!!");
    return DtRawError::GetRawErr(io->GetStatus(), DtRawErrRead);
  }
  // Deliberate: unsigned 32-bit sum, wraps like every file offset here.
  m_nextIfdOffset = nextOffset + static_cast<UINT32>(base);
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
  return 0;
}

int DtRawIFDParserBase::isTargetTag(unsigned short tagId) {
  if (m_targetTagList == nullptr) {
    return 0;
  }
  for (INT32 i = 0; i < m_targetTagNum; ++i) {
    if (m_targetTagList[i] == tagId) {
      return 1;
    }
  }
  return 0;
}

UINT32 DtRawIFDParserBase::getTagDataSize(UINT16 type, UINT32 count) {
  // Deliberate: the index is an unsigned 16-bit difference, so types 0 to 2
  // wrap to 65533..65535 and fall outside the table like types 11 and up.
  const UINT16 index = static_cast<UINT16>(type - 3u);
  const UINT32 unit = (index < sizeof c_unitSize) ? c_unitSize[index] : 1u;
  // Deliberate: unsigned 32-bit product that may wrap (LONG x 0x40000001 is 4).
  return count * unit;
}

void DtRawIFDParserBase::setTargetTags(const UINT16* ids, INT32 count) {
  if (m_targetTagList != nullptr || ids == nullptr || count <= 0) {
    return;
  }
  m_targetTagList = new UINT16[static_cast<UINT32>(count)];
  std::memcpy(m_targetTagList, ids, static_cast<size_t>(count) * sizeof(UINT16));
  m_targetTagNum = count;
}
