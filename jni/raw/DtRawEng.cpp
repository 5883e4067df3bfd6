// DtRawEng.cpp - the parse engine: TIFF header, directories and maker notes in their fixed order.
#include "raw/DtRawEng.h"

#include <cstring>

#include "raw/DtRawError.h"
#include "raw/DtRawHeadEng.h"  // and DtRawHeadIo, the head channel it lends
#include "util/DtNlLogger.h"
#include "util/io/DtNlDataStream.h"
#include "util/io/DtNlIo.h"

namespace {

const UINT16 TIFF_MARK_LITTLE = 0x4949;  // "II"
const UINT16 TIFF_MARK_BIG = 0x4D4D;     // "MM"
const UINT16 TIFF_MARKER = 42;

const UINT16 TAG_MODEL = 0x0110;
const UINT16 TAG_EXIF_POINTER = 0x8769;
const UINT16 TAG_MAKER_NOTE = 0x927C;
const UINT16 TAG_IOB_POINTER = 0xA005;
const UINT16 TAG_KM_POINTER = 0xB028;

const char* const M372_MODEL = "DSLR-M372";
const UINT MAKER_NOTE_HEADER_SIZE = 12;

// Makes `parser` ready for a parse: on first use (null) it becomes the
// engine's own object of its kind, reset to the state of a new parser (the
// former "create with new": same state, no allocation); else it is emptied.
template <class Parser>
Parser* prepare(Parser*& parser, Parser& storage) {
  if (parser == nullptr) {
    storage.Reset();
    parser = &storage;
  } else {
    parser->Finalize();
  }
  return parser;
}

// The directory offset a pointer tag holds: 1 and *offset set when the tag
// exists with at least 4 value bytes, else 0.
int pointerOf(const DtRawTagData* tag, DtNlByteOrder order, UINT32* offset) {
  if (tag == nullptr || tag->m_data == nullptr || tag->m_size < 4) {
    return 0;
  }
  *offset = DtNlDataUtil::U8ArrayToU32(tag->m_data, order);
  return 1;
}

// Offsets go to the parsers as signed 32-bit values. Deliberate: the bits are
// kept (0xFFFFFFFF becomes -1); the channel takes the same low 32 bits.
int asParseOffset(UINT32 offset) { return static_cast<int>(offset); }

}  // namespace

DtRawEng::DtRawEng()
    : m_ifd0Parser(nullptr),
      m_ifd1Parser(nullptr),
      m_exifParser(nullptr),
      m_iobParser(nullptr),
      m_makerNoteParser(nullptr),
      m_kmMakerNoteParser(nullptr),
      m_byteOrder(DtNlBigEndian),
      m_isM372(1),
      m_ifd0Storage(),
      m_ifd1Storage(),
      m_exifStorage(),
      m_iobStorage(),
      m_makerNoteStorage(),
      m_kmMakerNoteStorage() {}

DtRawEng::~DtRawEng() { Finalize(); }

int DtRawEng::Parse(DtNlDataStream* stream) {
  // Deliberate: a missing stream is refused as an invalid argument.
  if (stream == nullptr || stream->GetIo() == nullptr) {
    return DtRawErrParam;
  }
  stream = DtRawHeadEng::Through(this, stream);  // the lent head channel's, if any
  DtNlIo* io = stream->GetIo();
  // Deliberate: a reused engine keeps its parsers but none of their entries,
  // so nothing read from an earlier stream survives into this parse.
  DtRawIFDParserBase* const parsers[] = {m_ifd0Parser, m_ifd1Parser,      m_exifParser,
                                         m_iobParser,  m_makerNoteParser, m_kmMakerNoteParser};
  for (DtRawIFDParserBase* parser : parsers) {
    if (parser != nullptr) {
      parser->Finalize();
    }
  }

  if (io->Seek(0, DtNlIoSeekSet) != 0) {
    DTNL_LOG(DTNL_LV_INFO, __LINE__, "[DtRawEng::Parse]: File Seek Err!!");
    return DtRawError::GetRawErr(io->GetStatus(), DtRawErrSeek);
  }
  UINT16 mark = 0;
  if (stream->ReadU16(&mark, 1, DtNlBigEndian) != 2) {
    DTNL_LOG(DTNL_LV_INFO, __LINE__, "[DtRawEng::Parse]: Read TIFF Byteorder err!!");
    return DtRawError::GetRawErr(io->GetStatus(), DtRawErrRead);
  }
  if (mark == TIFF_MARK_LITTLE) {
    m_byteOrder = DtNlLittleEndian;
  } else if (mark == TIFF_MARK_BIG) {
    m_byteOrder = DtNlBigEndian;
  } else {
    DTNL_LOG(DTNL_LV_INFO, __LINE__, "[DtRawEng::Parse]: Not TIFF Byteorder err!!");
    return DtRawHeadIo::Refused(io, DtRawHeadIo::StepNotTiff, nullptr, DtRawErrNotTiff);
  }
  UINT16 marker = 0;
  if (stream->ReadU16(&marker, 1, m_byteOrder) != 2) {
    DTNL_LOG(DTNL_LV_INFO, __LINE__, "[DtRawEng::Parse]: Read TIFF Marker err!!");
    return DtRawError::GetRawErr(io->GetStatus(), DtRawErrRead);
  }
  if (marker != TIFF_MARKER) {
    DTNL_LOG(DTNL_LV_INFO, __LINE__, "[DtRawEng::Parse]: Not TIFF Marker err!!");
    return DtRawHeadIo::Refused(io, DtRawHeadIo::StepNotTiff, nullptr, DtRawErrNotTiff, 2);
  }
  UINT32 ifd0Offset = 0;
  if (stream->ReadU32(&ifd0Offset, 1, m_byteOrder) != 4) {
    DTNL_LOG(DTNL_LV_INFO, __LINE__, "[DtRawEng::Parse]: Read IFD0 offset err!!");
    return DtRawError::GetRawErr(io->GetStatus(), DtRawErrRead);
  }

  const int result = parseIFD(stream, ifd0Offset);
  if (result != DtRawOk) {
    return result;
  }

  const DtRawTagData* model = getTagData(TAG_MODEL, m_ifd0Parser);
  if (model == nullptr || model->m_data == nullptr) {
    DTNL_LOG(DTNL_LV_INFO, __LINE__, "[DtRawEng::Parse]: not exist model name!!");
    return DtRawHeadIo::Refused(io, DtRawHeadIo::StepModel, model, DtRawErrFormat);
  }
  // Compared over exactly the value's size (at most 32 bytes, all held in
  // m_data): a stored terminating zero takes part in the comparison.
  m_isM372 =
      (std::strncmp(reinterpret_cast<const char*>(model->m_data), M372_MODEL, model->m_size) == 0)
          ? 1
          : 0;

  // The Exif IFD was read only when IFD0 points at one; a parser left from an
  // earlier parse holds nothing then and counts as absent.
  const DtRawTagData* exifPointer = getTagData(TAG_EXIF_POINTER, m_ifd0Parser);
  UINT32 exifOffset = 0;
  if (m_exifParser == nullptr || pointerOf(exifPointer, m_byteOrder, &exifOffset) == 0) {
    return DtRawHeadIo::Refused(io, DtRawHeadIo::StepExif, exifPointer, DtRawErrFormat);
  }
  const DtRawTagData* makerNote = getTagData(TAG_MAKER_NOTE, m_exifParser);
  if (makerNote == nullptr) {
    DTNL_LOG(DTNL_LV_INFO, __LINE__, "[DtRawEng::Parse]: not exist maker note pointer!");
    return DtRawHeadIo::Refused(io, DtRawHeadIo::StepMakerNote, nullptr, DtRawErrFormat);
  }
  return parseKaviMakerNote(stream, makerNote->m_offset);
}

DtRawTagData* DtRawEng::getTagData(unsigned short tagId, DtRawIFDParserBase* parser) {
  if (parser == nullptr) {
    return nullptr;
  }
  return parser->GetTagData(tagId);
}

void DtRawEng::Finalize() {
  // The former "delete every parser": each one in use gives up its entries
  // and its pointer is nulled; the objects stay for the next parse.
  DtRawIFDParserBase* const parsers[] = {m_ifd0Parser, m_ifd1Parser,      m_exifParser,
                                         m_iobParser,  m_makerNoteParser, m_kmMakerNoteParser};
  for (DtRawIFDParserBase* parser : parsers) {
    if (parser != nullptr) {
      parser->Finalize();
    }
  }
  m_ifd0Parser = nullptr;
  m_ifd1Parser = nullptr;
  m_exifParser = nullptr;
  m_iobParser = nullptr;
  m_makerNoteParser = nullptr;
  m_kmMakerNoteParser = nullptr;
}

int DtRawEng::parseIFD(DtNlDataStream* stream, UINT32 ifd0Offset) {
  int result = prepare(m_ifd0Parser, m_ifd0Storage)
                   ->Parse(stream, 0, asParseOffset(ifd0Offset), m_byteOrder);
  if (result != DtRawOk) {
    DTNL_LOG(DTNL_LV_INFO, __LINE__, "[DtRawEng::parseIFD]: IFD0th parse err!!");
    return result;
  }
  // IFD1 follows IFD0 unconditionally (a zero next offset reads offset 0).
  const UINT32 ifd1Offset = m_ifd0Parser->GetNextIFDOffset();
  result = prepare(m_ifd1Parser, m_ifd1Storage)
               ->Parse(stream, 0, asParseOffset(ifd1Offset), m_byteOrder);
  if (result != DtRawOk) {
    DTNL_LOG(DTNL_LV_INFO, __LINE__, "[DtRawEng::parseIFD]: IFD1th parse err!!");
    return result;
  }

  UINT32 exifOffset = 0;
  if (pointerOf(getTagData(TAG_EXIF_POINTER, m_ifd0Parser), m_byteOrder, &exifOffset) == 0) {
    return DtRawOk;  // no Exif IFD is not an error here
  }
  result = prepare(m_exifParser, m_exifStorage)
               ->Parse(stream, 0, asParseOffset(exifOffset), m_byteOrder);
  if (result != DtRawOk) {
    DTNL_LOG(DTNL_LV_INFO, __LINE__, "[DtRawEng::parseIFD]: ExifIFD parse err!!");
    return result;
  }

  UINT32 iobOffset = 0;
  if (pointerOf(getTagData(TAG_IOB_POINTER, m_exifParser), m_byteOrder, &iobOffset) == 0) {
    return DtRawOk;
  }
  result =
      prepare(m_iobParser, m_iobStorage)->Parse(stream, 0, asParseOffset(iobOffset), m_byteOrder);
  if (result != DtRawOk) {
    DTNL_LOG(DTNL_LV_INFO, __LINE__, "[DtRawEng::parseIFD]: Interoperability IFD parse err!!");
    return result;
  }
  return DtRawOk;
}

int DtRawEng::parseKaviMakerNote(DtNlDataStream* stream, UINT32 offset) {
  DtNlIo* io = stream->GetIo();
  UINT32 dirOffset = offset;
  if (m_isM372 == 1) {
    if (io->Seek(static_cast<long long>(offset), DtNlIoSeekSet) != 0) {
      DTNL_LOG(DTNL_LV_INFO, __LINE__, "[DtRawEng::pKMN]: File Seek Err!!");
      return DtRawError::GetRawErr(io->GetStatus(), DtRawErrSeek);
    }
    UINT8 header[MAKER_NOTE_HEADER_SIZE] = {0};
    if (io->ReadU8(header, MAKER_NOTE_HEADER_SIZE) != MAKER_NOTE_HEADER_SIZE) {
      DTNL_LOG(DTNL_LV_INFO, __LINE__, "[DtRawEng::pKMN]: Read kavi maker note header Err!!");
      return DtRawHeadIo::Unread(io, offset, DtRawError::GetRawErr(io->GetStatus(), DtRawErrRead));
    }
    if (DtRawHeadIo::HeaderTaken(io, offset) && std::memcmp(header, "KAVI", 4) != 0) {
      DTNL_LOG(DTNL_LV_INFO, __LINE__, "[DtRawEng::pKMN]: maker note is not kavi!!");
      return DtRawHeadIo::Refused(io, DtRawHeadIo::StepNotKavi, nullptr, DtRawErrFormat, offset);
    }
    // Deliberate: unsigned 32-bit sum, wraps like every offset here.
    dirOffset = offset + MAKER_NOTE_HEADER_SIZE;
  }

  int result = prepare(m_makerNoteParser, m_makerNoteStorage)
                   ->Parse(stream, 0, asParseOffset(dirOffset), m_byteOrder);
  if (result != DtRawOk) {
    DTNL_LOG(DTNL_LV_INFO, __LINE__, "[DtRawEng::pKMN]: maker note parse err!!");
    return result;
  }
  if (m_isM372 != 1) {
    return DtRawOk;
  }

  const DtRawTagData* kmPointer = getTagData(TAG_KM_POINTER, m_makerNoteParser);
  if (kmPointer == nullptr) {
    DTNL_LOG(DTNL_LV_INFO, __LINE__,
             "DtRawEng: There is no km maker note pointer though it is M372!!");
    return DtRawHeadIo::Refused(io, DtRawHeadIo::StepKmPointer, nullptr, DtRawErrFormat);
  }
  UINT32 kmOffset = 0;
  if (kmPointer->m_size <= 3 || pointerOf(kmPointer, m_byteOrder, &kmOffset) == 0) {
    DTNL_LOG(DTNL_LV_WARN, __LINE__, "DtRawEng: km maker note pointer is invalid, size=%d.",
             static_cast<int>(kmPointer->m_size));
    return DtRawHeadIo::Refused(io, DtRawHeadIo::StepKmPointer, kmPointer, DtRawErrFormat);
  }
  result = prepare(m_kmMakerNoteParser, m_kmMakerNoteStorage)
               ->Parse(stream, 0, asParseOffset(kmOffset), m_byteOrder);
  if (result != DtRawOk) {
    DTNL_LOG(DTNL_LV_INFO, __LINE__, "DtRawEng: km maker note parse err!!");
    return result;
  }
  return DtRawOk;
}
