// DtRaw.cpp - the raw file facade: lifecycle, loading of the file head,
// screennail and thumbnail queries, metadata queries and the in-place
// write-back of orientation and date-time. See DtRaw.h for the contracts.
//
// Layer: jni/raw. Calls down into the parse engine (DtRawEng), the tag data
// (jni/raw/parser), the files, streams and channels (jni/util/io) and the
// logger.
//
//   DtRaw raw;
//   raw.Initialize("/sdcard/DCIM/a.kpz");
//   DtRawThumbnailInfo info;
//   raw.GetThumbnailInfo(&info);
#include "raw/DtRaw.h"

#include <cstring>
#include <new>

#include "raw/DtRawEng.h"
#include "raw/DtRawError.h"
#include "raw/parser/DtRawTagData.h"
#include "util/DtNlDataUtil.h"
#include "util/DtNlListImpl.h"
#include "util/DtNlLogger.h"
#include "util/io/DtNlDataStream.h"
#include "util/io/DtNlFileIo.h"
#include "util/io/DtNlFileStatus.h"
#include "util/io/DtNlIo.h"
#include "util/io/DtNlTime.h"

namespace {

// Tag ids read by this file.
const unsigned short TAG_JPEG_OFFSET = 0x0201;       // IFD0: screennail, IFD1: thumbnail
const unsigned short TAG_JPEG_LENGTH = 0x0202;       // IFD0: screennail, IFD1: thumbnail
const unsigned short TAG_COMPRESSION = 0x0103;       // IFD1
const unsigned short TAG_ORIENTATION = 0x0112;       // IFD0, IFD1
const unsigned short TAG_IOB_INDEX = 0x0001;         // Iob
const unsigned short TAG_KM_SCN_OFFSET = 0x0088;     // Km maker note
const unsigned short TAG_KM_SCN_LENGTH = 0x0089;     // Km maker note
const unsigned short TAG_SCN_WIDTH_HEIGHT = 0xB02C;  // KAVI maker note

// Fixed screennail size of the "DSLR-M372" model.
const UINT16 M372_SCN_WIDTH = 640;
const UINT16 M372_SCN_HEIGHT = 480;

// Exif orientation (index 0..8) to rotation code; 0 and 1 both give 0.
const unsigned char STD_TO_USE[9] = {0, 0, 4, 2, 6, 5, 1, 7, 3};
// Rotation code (index 0..7) to Exif orientation.
const unsigned char USE_TO_STD[8] = {1, 6, 3, 8, 2, 5, 4, 7};

// True when `tag` carries at least `width` value bytes to decode.
bool hasValue(const DtRawTagData* tag, UINT width) {
  return tag->m_data != nullptr && tag->m_size >= width;
}

// A tag's size as the "%d" of a log line. Sizes above INT32_MAX (a wrapped
// count * unit product) print as negative numbers, as on the 32-bit target.
int sizeForLog(const DtRawTagData* tag) { return static_cast<int>(tag->m_size); }

// The file's path for a log line; never null.
const char* pathText(const DtNlFile& file) {
  const char* text = file.GetPath().text;
  return text != nullptr ? text : "";
}

}  // namespace

DtRaw::DtRaw()
    : m_file(),
      m_rawEng(nullptr),
      m_stream(nullptr),
      m_buff(nullptr),
      m_buffSize(0),
      m_isBuffOwner(0),
      m_isBuffMode(0),
      m_updateList() {}

DtRaw::~DtRaw() { Finalize(); }

int DtRaw::Initialize(const char* path) {
  if (path == nullptr) {
    Finalize();
    return DtRawErrParam;
  }
  DtNlFile file(path);
  return Initialize(file);
}

int DtRaw::Initialize(DtNlString& path) {
  DtNlFile file(path);
  return Initialize(file);
}

int DtRaw::Initialize(DtNlFile& file) {
  // The stored file is replaced only by a different one: re-initialising with
  // the same file keeps the stored object as it is.
  if (file.Equals(m_file) == 0) {
    m_file = file;
  }
  if (m_buff != nullptr) {
    Finalize();
  }

  m_isBuffMode = 0;
  if (m_stream == nullptr) {
    m_stream = new DtNlDataStream();
  }

  // Deliberate: when the file is shorter than READ_SIZE the parse sees zeros
  // after its end, never whatever the allocation held. readBuff zeroes what
  // the read did not fill, so the copy is not cleared here first.
  m_buffSize = READ_SIZE;
  m_buff = new unsigned char[READ_SIZE];
  m_isBuffOwner = 1;

  int result = readBuff(file, m_buff, m_buffSize);
  if (result != DtRawOk) {
    Finalize();
    return result;
  }

  if (m_stream->Open(m_buff, m_buffSize) != 0) {
    const DtNlStatus status = m_stream->GetIo()->GetStatus();  // before Finalize deletes it
    Finalize();
    DTNL_LOG(DTNL_LV_INFO, __LINE__, "Raw: Open Err!! %s", pathText(m_file));
    return DtRawError::GetRawErr(status, DtRawErrOpen);
  }

  if (m_rawEng == nullptr) {
    m_rawEng = new (std::nothrow) DtRawEng();
    DTNL_ASSERT(__LINE__, m_rawEng != nullptr, "Raw: RawEng is NULL!!");
  }

  result = m_rawEng->Parse(m_stream);
  if (result != DtRawOk) {
    Finalize();
    return result;
  }

  if (m_stream->GetIo()->Close() == 0) {
    return DtRawOk;
  }
  const DtNlStatus status = m_stream->GetIo()->GetStatus();  // before Finalize deletes it
  Finalize();
  return DtRawError::GetRawErr(status, DtRawErrClose);
}

// The head is always read from m_file, which Initialize has made equal to
// the argument.
int DtRaw::readBuff(DtNlFile& /*file*/, unsigned char* buff, unsigned int size) {
  if (m_stream->Open(m_file, "rb") != 0) {
    DTNL_LOG(DTNL_LV_INFO, __LINE__, "[DtRaw::readBuff]: Open Err!! %s", pathText(m_file));
    return DtRawError::GetRawErr(m_stream->GetIo()->GetStatus(), DtRawErrOpen);
  }
  // The stream may have replaced its channel on Open: take it afterwards.
  DtNlIo* io = m_stream->GetIo();

  // One large read: let it go straight from the kernel into the copy.
  DtNlFileIo* fileIo = io->GetKind() == DtNlIo::KIND_FILE ? static_cast<DtNlFileIo*>(io) : nullptr;
  if (fileIo != nullptr) {
    fileIo->SetUnbuffered();  // still works buffered if refused
    // ReadU8At: a warm head in one call; from a cold disk the head alone, not the kernel's guess
  }

  int readResult = DtRawOk;
  const UINT got = fileIo != nullptr ? fileIo->ReadU8At(0, buff, size) : io->ReadU8(buff, size);
  if (got < size && io->GetStatus().IsFailure()) {
    readResult = DtRawError::GetRawErr(io->GetStatus(), DtRawErrRead);
  }
  // Zeros after what arrived: a failed read still leaves the bytes it
  // delivered for the parse (as the result may be dropped below), and only
  // those.
  const UINT delivered = fileIo != nullptr ? fileIo->GetDeliveredCount() : got;
  if (delivered < size) {
    std::memset(buff + delivered, 0, size - delivered);
  }
  // Deliberate: a read error counts only when the close fails too. A short
  // read without an error status is a file shorter than the head.
  if (io->Close() == 0) {
    return DtRawOk;
  }
  if (readResult != DtRawOk) {
    return readResult;
  }
  return DtRawError::GetRawErr(io->GetStatus(), DtRawErrClose);
}

int DtRaw::InitializeBuf(unsigned char* buff, int size) {
  // The argument check leaves an earlier initialisation untouched. A negative
  // size is not rejected: it is taken as unsigned, and the caller vouches for
  // that many bytes.
  if (buff == nullptr || size == 0) {
    return DtRawErrParam;
  }
  if (m_buff != nullptr) {
    Finalize();
  }

  m_isBuffMode = 1;
  if (m_stream == nullptr) {
    m_stream = new DtNlDataStream();
  }
  m_buff = buff;
  m_isBuffOwner = 0;
  m_buffSize = static_cast<UINT>(size);

  if (m_stream->Open(m_buff, m_buffSize) != 0) {
    const int result = DtRawError::GetRawErr(m_stream->GetIo()->GetStatus(), DtRawErrBuffOpen);
    Finalize();
    return result;
  }

  if (m_rawEng == nullptr) {
    m_rawEng = new (std::nothrow) DtRawEng();
    DTNL_ASSERT(__LINE__, m_rawEng != nullptr, "Raw: RawEng is NULL!!");
  }

  const int parsed = m_rawEng->Parse(m_stream);
  if (parsed != DtRawOk) {
    Finalize();
    return parsed;
  }

  if (m_stream->GetIo()->Close() == 0) {
    return DtRawOk;
  }
  const int result = DtRawError::GetRawErr(m_stream->GetIo()->GetStatus(), DtRawErrBuffClose);
  Finalize();
  return result;
}

void DtRaw::Finalize() {
  if (m_stream != nullptr) {
    DtNlIo* io = m_stream->GetIo();
    if (io != nullptr) {
      (void)io->Close();  // the result is of no use here
    }
    delete m_stream;
    m_stream = nullptr;
  }
  if (m_rawEng != nullptr) {
    m_rawEng->Finalize();
    delete m_rawEng;
    m_rawEng = nullptr;
  }
  // A caller's buffer (buffer mode) is never freed here.
  if (m_isBuffOwner == 1 && m_buff != nullptr) {
    delete[] m_buff;
  }
  m_buff = nullptr;
  m_isBuffOwner = 0;
  m_updateList.ClearAllData();
}

int DtRaw::GetIobIndex(const char** value, int* size) {
  if (m_rawEng == nullptr) {
    return DtRawErrNotInit;
  }
  // Null outputs are refused rather than written through.
  if (value == nullptr || size == nullptr) {
    return DtRawErrParam;
  }
  const DtRawTagData* tag = m_rawEng->getTagData(TAG_IOB_INDEX, m_rawEng->m_iobParser);
  if (tag == nullptr || tag->m_data == nullptr) {
    DTNL_LOG(DTNL_LV_INFO, __LINE__, "Raw: not exist iob index!!");
    return DtRawErrNoData;
  }
  *value = reinterpret_cast<const char*>(tag->m_data);
  *size = static_cast<int>(tag->m_size);
  return DtRawOk;
}

int DtRaw::GetScreennailInfo(DtRawScreennailInfo* info) {
  if (m_rawEng == nullptr) {
    return DtRawErrNotInit;
  }
  // A null record is refused rather than written through.
  if (info == nullptr) {
    return DtRawErrParam;
  }

  const bool isM372 = m_rawEng->m_isM372 != 0;
  const DtRawTagData* offsetTag = nullptr;
  const DtRawTagData* lengthTag = nullptr;
  if (isM372) {
    DTNL_LOG(DTNL_LV_INFO, __LINE__, "Raw: model is M372.");
    offsetTag = m_rawEng->getTagData(TAG_KM_SCN_OFFSET, m_rawEng->m_kmMakerNoteParser);
  } else {
    DTNL_LOG(DTNL_LV_INFO, __LINE__, "Raw: model is not M372.");
    offsetTag = m_rawEng->getTagData(TAG_JPEG_OFFSET, m_rawEng->m_ifd0Parser);
  }

  if (offsetTag == nullptr) {
    DTNL_LOG(DTNL_LV_INFO, __LINE__, "Raw: screen nail offset.");
    return DtRawErrNoData;
  }
  if (!hasValue(offsetTag, 4)) {
    DTNL_LOG(DTNL_LV_WARN, __LINE__, "Raw: invalid screen nail offset data, size=%d.",
             sizeForLog(offsetTag));
    return DtRawErrNoData;
  }
  info->m_fileOffset = DtNlDataUtil::U8ArrayToU32(offsetTag->m_data, offsetTag->m_byteOrder);

  if (isM372) {
    lengthTag = m_rawEng->getTagData(TAG_KM_SCN_LENGTH, m_rawEng->m_kmMakerNoteParser);
  } else {
    lengthTag = m_rawEng->getTagData(TAG_JPEG_LENGTH, m_rawEng->m_ifd0Parser);
  }
  if (lengthTag == nullptr) {
    DTNL_LOG(DTNL_LV_INFO, __LINE__, "Raw: screen nail size.");
    return DtRawErrNoData;
  }
  if (!hasValue(lengthTag, 4)) {
    DTNL_LOG(DTNL_LV_WARN, __LINE__, "Raw: invalid screen nail size data, size=%d.",
             sizeForLog(lengthTag));
    return DtRawErrNoData;
  }
  info->m_size = DtNlDataUtil::U8ArrayToU32(lengthTag->m_data, lengthTag->m_byteOrder);

  if (isM372) {
    info->m_horizon = M372_SCN_WIDTH;
    info->m_vertical = M372_SCN_HEIGHT;
    return DtRawOk;
  }

  // The tag stores the height first, then the width, each as 32 bits; only
  // their low 16 bits are kept.
  const DtRawTagData* sizeTag =
      m_rawEng->getTagData(TAG_SCN_WIDTH_HEIGHT, m_rawEng->m_makerNoteParser);
  if (sizeTag == nullptr || !hasValue(sizeTag, 8)) {
    DTNL_LOG(DTNL_LV_INFO, __LINE__, "Raw: not reading SCN_WIDTH_HEIGHT tag (not error).");
    info->m_horizon = 0;
    info->m_vertical = 0;
    return DtRawOk;
  }
  info->m_vertical =
      static_cast<UINT16>(DtNlDataUtil::U8ArrayToU32(sizeTag->m_data, sizeTag->m_byteOrder));
  info->m_horizon =
      static_cast<UINT16>(DtNlDataUtil::U8ArrayToU32(sizeTag->m_data + 4, sizeTag->m_byteOrder));
  return DtRawOk;
}

int DtRaw::GetThumbnailInfo(DtRawThumbnailInfo* info) {
  if (m_rawEng == nullptr) {
    return DtRawErrNotInit;
  }
  // A null record is refused rather than written through.
  if (info == nullptr) {
    return DtRawErrParam;
  }
  DtRawIFD1Parser* ifd1 = m_rawEng->m_ifd1Parser;

  const DtRawTagData* tag = m_rawEng->getTagData(TAG_JPEG_OFFSET, ifd1);
  if (tag == nullptr) {
    DTNL_LOG(DTNL_LV_INFO, __LINE__, "Raw: not exist thumbnail!!");
    return DtRawErrNoData;
  }
  if (!hasValue(tag, 4)) {
    DTNL_LOG(DTNL_LV_WARN, __LINE__, "Raw: %s() invalid data, size=%d.", "GetThumbnailInfo",
             sizeForLog(tag));
    return DtRawErrNoData;
  }
  info->m_fileOffset = DtNlDataUtil::U8ArrayToU32(tag->m_data, tag->m_byteOrder);

  tag = m_rawEng->getTagData(TAG_JPEG_LENGTH, ifd1);
  if (tag == nullptr) {
    DTNL_LOG(DTNL_LV_INFO, __LINE__, "Raw: not exist thumbnail offset!!");
    return DtRawErrNoData;
  }
  if (!hasValue(tag, 4)) {
    DTNL_LOG(DTNL_LV_WARN, __LINE__, "Raw: %s() invalid data, size=%d.", "GetThumbnailInfo",
             sizeForLog(tag));
    return DtRawErrNoData;
  }
  info->m_size = DtNlDataUtil::U8ArrayToU32(tag->m_data, tag->m_byteOrder);

  tag = m_rawEng->getTagData(TAG_COMPRESSION, ifd1);
  if (tag == nullptr) {
    DTNL_LOG(DTNL_LV_INFO, __LINE__, "Raw: not exist thumbnail compression!!");
    return DtRawErrNoData;
  }
  if (!hasValue(tag, 2)) {
    DTNL_LOG(DTNL_LV_WARN, __LINE__, "Raw: %s() invalid data, size=%d.", "GetThumbnailInfo",
             sizeForLog(tag));
    return DtRawErrNoData;
  }
  info->m_compression =
      static_cast<UINT8>(DtNlDataUtil::U8ArrayToU16(tag->m_data, tag->m_byteOrder) & 0xFFu);

  tag = m_rawEng->getTagData(TAG_ORIENTATION, ifd1);
  if (tag == nullptr || !hasValue(tag, 2)) {
    DTNL_LOG(DTNL_LV_INFO, __LINE__, "Raw: not exist thumbnail rotation!!(not error.)");
    info->m_rotation = 0;
    return DtRawOk;
  }
  info->m_rotation = convRotInfoStdtoUse(DtNlDataUtil::U8ArrayToU16(tag->m_data, tag->m_byteOrder));
  return DtRawOk;
}

int DtRaw::GetThumbnailData(unsigned char* buff, unsigned int size) {
  if (m_rawEng == nullptr || m_stream == nullptr) {
    return DtRawErrNotInit;
  }
  // A null destination is refused rather than written through.
  if (buff == nullptr) {
    return DtRawErrParam;
  }

  DtRawThumbnailInfo info{};
  const int infoResult = GetThumbnailInfo(&info);
  if (infoResult != DtRawOk) {
    return infoResult;
  }
  const UINT count = size < info.m_size ? size : info.m_size;
  const UINT offset = info.m_fileOffset;

  // Subtraction form: offset is checked against the copy before it is
  // subtracted, so neither the test nor the pointer below can wrap.
  if (offset <= m_buffSize && count <= m_buffSize - offset) {
    if (m_stream->Open(m_buff + offset, m_buffSize - offset) != 0) {
      return DtRawError::GetRawErr(m_stream->GetIo()->GetStatus(), DtRawErrBuffOpen);
    }
  } else if (m_isBuffMode == 1) {
    DTNL_LOG(DTNL_LV_INFO, __LINE__,
             "Raw: Because the thumbnail is not stored in the buffer, can't get the thumbnail.");
    return DtRawErrNoData;
  } else {
    if (m_stream->Open(m_file, "rb") != 0) {
      DTNL_LOG(DTNL_LV_INFO, __LINE__, "Raw: Open Err!! [%s]", pathText(m_file));
      return DtRawError::GetRawErr(m_stream->GetIo()->GetStatus(), DtRawErrOpen);
    }
    DtNlIo* fileIo = m_stream->GetIo();
    const int seekResult = fileIo->Seek(static_cast<long long>(offset), DtNlIoSeekSet);
    if (seekResult != 0) {
      DTNL_LOG(DTNL_LV_INFO, __LINE__, "Raw: Seek Err for get thumbnail!!: %d", seekResult);
      const DtNlStatus status = fileIo->GetStatus();
      (void)fileIo->Close();  // the seek failure is what is reported
      return DtRawError::GetRawErr(status, DtRawErrSeek);
    }
  }

  // The stream may have replaced its channel on Open: take it afterwards.
  DtNlIo* io = m_stream->GetIo();
  int result = DtRawOk;
  if (io->ReadU8(buff, count) < count) {
    DTNL_LOG(DTNL_LV_INFO, __LINE__, "Raw: Thumbnail Data Read Err!!");
    result = DtRawError::GetRawErr(io->GetStatus(), DtRawErrRead);
  }
  if (io->Close() == 0 || result != DtRawOk) {
    return result;
  }
  const int closeDefault = io->GetKind() == DtNlIo::KIND_FILE ? DtRawErrClose : DtRawErrBuffClose;
  return DtRawError::GetRawErr(io->GetStatus(), closeDefault);
}

unsigned char DtRaw::convRotInfoStdtoUse(unsigned short std) {
  // 0 and 9 upwards are not orientations: they give the plain code 0.
  if (std >= sizeof(STD_TO_USE)) {
    return 0;
  }
  return STD_TO_USE[std];
}

unsigned char DtRaw::convRotInfoUsetoStd(unsigned char use) {
  // 8 upwards is not a rotation code: it gives the normal orientation 1.
  if (use >= sizeof(USE_TO_STD)) {
    return 1;
  }
  return USE_TO_STD[use];
}

int DtRaw::GetRotationInfo(unsigned char* rotation) {
  if (m_rawEng == nullptr) {
    return DtRawErrNotInit;
  }
  // A null destination is refused rather than written through.
  if (rotation == nullptr) {
    return DtRawErrParam;
  }
  const DtRawTagData* tag = m_rawEng->getTagData(TAG_ORIENTATION, m_rawEng->m_ifd0Parser);
  if (tag == nullptr) {
    DTNL_LOG(DTNL_LV_INFO, __LINE__, "Raw: not exist rotation information!!");
    return DtRawErrNoData;
  }
  if (!hasValue(tag, 2)) {
    DTNL_LOG(DTNL_LV_WARN, __LINE__, "Raw: %s() invalid data, size=%d.", "GetRotationInfo",
             sizeForLog(tag));
    return DtRawErrNoData;
  }
  *rotation = convRotInfoStdtoUse(DtNlDataUtil::U8ArrayToU16(tag->m_data, tag->m_byteOrder));
  return DtRawOk;
}

// ---- Metadata --------------------------------------------------------------

namespace {

// Tag ids read by the metadata queries and the write-back.
const unsigned short TAG_MAKE = 0x010F;                // IFD0
const unsigned short TAG_MODEL = 0x0110;               // IFD0
const unsigned short TAG_DATE_TIME = 0x0132;           // IFD0, IFD1
const unsigned short TAG_EXPOSURE_TIME = 0x829A;       // Exif
const unsigned short TAG_F_NUMBER = 0x829D;            // Exif
const unsigned short TAG_EXPOSURE_PROGRAM = 0x8822;    // Exif
const unsigned short TAG_ISO_SPEED = 0x8827;           // Exif
const unsigned short TAG_EXIF_VERSION = 0x9000;        // Exif
const unsigned short TAG_DATE_TIME_ORIGINAL = 0x9003;  // Exif
const unsigned short TAG_EXPOSURE_BIAS = 0x9204;       // Exif
const unsigned short TAG_FLASH = 0x9209;               // Exif
const unsigned short TAG_FOCAL_LENGTH = 0x920A;        // Exif
const unsigned short TAG_COLOR_SPACE = 0xA001;         // Exif
const unsigned short TAG_PIXEL_X = 0xA002;             // Exif
const unsigned short TAG_PIXEL_Y = 0xA003;             // Exif
const unsigned short TAG_CUSTOM_RENDERED = 0xA401;     // Exif
const unsigned short TAG_FOCAL_LENGTH_35MM = 0xA405;   // Exif
const unsigned short TAG_IOB_VERSION = 0x0002;         // Iob

// "YYYY:MM:DD HH:MM:SS" and its zero byte.
const UINT DATE_TIME_SIZE = 20;
// Bytes of an orientation value (one SHORT).
const UINT ORIENTATION_SIZE = 2;
// Bytes of one (signed) rational.
const UINT RATIONAL_SIZE = 8;
// Characters of an Exif or Iob version ("0230").
const UINT VERSION_SIZE = 4;

// What a date-time text holds wrongly at one position, if anything.
enum DateTimeFault { DateTimeOk, DateTimeColon, DateTimeSpace, DateTimeNul, DateTimeNumber };

bool isDecimalDigit(unsigned char c) { return c >= '0' && c <= '9'; }

// The fault of character `c` at position `pos` (0..19) of a date-time text:
// ':' or ' ' at 4, 7, 13 and 16; ' ' at 10; the zero byte at 19; a decimal
// digit everywhere else.
DateTimeFault dateTimeFaultAt(UINT pos, unsigned char c) {
  if (pos == 4 || pos == 7 || pos == 13 || pos == 16) {
    return (c == ':' || c == ' ') ? DateTimeOk : DateTimeColon;
  }
  if (pos == 10) {
    return c == ' ' ? DateTimeOk : DateTimeSpace;
  }
  if (pos == 19) {
    return c == '\0' ? DateTimeOk : DateTimeNul;
  }
  return isDecimalDigit(c) ? DateTimeOk : DateTimeNumber;
}

// The parser of the directory `category` names, or null (also for a
// directory that was not read).
DtRawIFDParserBase* parserOf(DtRawEng* eng, DtRawTagCategory category) {
  switch (category) {
    case DtRawTagCategoryIfd0:
      return eng->m_ifd0Parser;
    case DtRawTagCategoryIfd1:
      return eng->m_ifd1Parser;
    case DtRawTagCategoryExif:
      return eng->m_exifParser;
    case DtRawTagCategoryIob:
      return eng->m_iobParser;
    case DtRawTagCategoryMakerNote:
      return eng->m_makerNoteParser;
    case DtRawTagCategoryKmMakerNote:
      return eng->m_kmMakerNoteParser;
  }
  return nullptr;
}

}  // namespace

int DtRaw::findTag(const char* function, int line, bool outputsOk, unsigned short tagId,
                   DtRawTagCategory category, UINT minSize, const char* missing,
                   const DtRawTagData** tag) {
  if (m_rawEng == nullptr) {
    return DtRawErrNotInit;
  }
  // Null outputs are refused rather than written through (as in every getter).
  if (!outputsOk) {
    return DtRawErrParam;
  }
  const DtRawTagData* found = m_rawEng->getTagData(tagId, parserOf(m_rawEng, category));
  if (found == nullptr) {
    DtNlLogger::PutLog(DTNL_LV_INFO, __FILE__, function, line, "%s", missing);
    return DtRawErrNoData;
  }
  if (minSize != 0 && !hasValue(found, minSize)) {
    DtNlLogger::PutLog(DTNL_LV_WARN, __FILE__, function, line, "Raw: %s() invalid data, size=%d.",
                       function, sizeForLog(found));
    return DtRawErrNoData;
  }
  *tag = found;
  return DtRawOk;
}

// Each getter below: its tag, its directory, the bytes it needs (0: checked
// by its own decoding), its text for a missing tag, then its decoding. The
// log lines name the getter and the line of its findTag call.

int DtRaw::GetRawImageHeight(unsigned short* height) {
  const DtRawTagData* tag = nullptr;
  const int found = findTag(__func__, __LINE__, height != nullptr, TAG_PIXEL_Y,
                            DtRawTagCategoryExif, 2, "Raw: not exist raw image height!!", &tag);
  if (found != DtRawOk) {
    return found;
  }
  *height = DtNlDataUtil::U8ArrayToU16(tag->m_data, tag->m_byteOrder);
  return DtRawOk;
}

int DtRaw::GetRawImageWidth(unsigned short* width) {
  const DtRawTagData* tag = nullptr;
  const int found = findTag(__func__, __LINE__, width != nullptr, TAG_PIXEL_X, DtRawTagCategoryExif,
                            2, "Raw: not exist raw image width!!", &tag);
  if (found != DtRawOk) {
    return found;
  }
  *width = DtNlDataUtil::U8ArrayToU16(tag->m_data, tag->m_byteOrder);
  return DtRawOk;
}

int DtRaw::GetColorSpace(short* colorSpace) {
  const DtRawTagData* tag = nullptr;
  const int found = findTag(__func__, __LINE__, colorSpace != nullptr, TAG_COLOR_SPACE,
                            DtRawTagCategoryExif, 2, "Raw: not exist color space!!", &tag);
  if (found != DtRawOk) {
    return found;
  }
  // The 16 bits are kept as they are: 0xFFFF (uncalibrated) reads as -1.
  *colorSpace = static_cast<short>(DtNlDataUtil::U8ArrayToU16(tag->m_data, tag->m_byteOrder));
  return DtRawOk;
}

int DtRaw::GetCustomRendered(short* customRendered) {
  const DtRawTagData* tag = nullptr;
  const int found = findTag(__func__, __LINE__, customRendered != nullptr, TAG_CUSTOM_RENDERED,
                            DtRawTagCategoryExif, 2, "Raw: not exist custom rendered!!", &tag);
  if (found != DtRawOk) {
    return found;
  }
  *customRendered = static_cast<short>(DtNlDataUtil::U8ArrayToU16(tag->m_data, tag->m_byteOrder));
  return DtRawOk;
}

int DtRaw::Get35mmFocalLength(unsigned int* num, unsigned int* den) {
  const DtRawTagData* tag = nullptr;
  const int found =
      findTag(__func__, __LINE__, num != nullptr && den != nullptr, TAG_FOCAL_LENGTH_35MM,
              DtRawTagCategoryExif, 2, "Raw: not exist focal length in 35mm!!", &tag);
  if (found != DtRawOk) {
    return found;
  }
  *num = DtNlDataUtil::U8ArrayToU16(tag->m_data, tag->m_byteOrder);
  *den = 1;
  return DtRawOk;
}

int DtRaw::GetFlashInfo(DtRawFlashInfo* flash) {
  const DtRawTagData* tag = nullptr;
  const int found = findTag(__func__, __LINE__, flash != nullptr, TAG_FLASH, DtRawTagCategoryExif,
                            2, "Raw: not exist flash information!!", &tag);
  if (found != DtRawOk) {
    return found;
  }
  const UINT value = DtNlDataUtil::U8ArrayToU16(tag->m_data, tag->m_byteOrder);
  flash->m_fired = static_cast<UINT8>(value & 0x1u);
  flash->m_return = static_cast<UINT8>((value >> 1) & 0x3u);
  flash->m_mode = static_cast<UINT8>((value >> 3) & 0x3u);
  flash->m_function = static_cast<UINT8>((value >> 5) & 0x1u);
  flash->m_redEye = static_cast<UINT8>((value >> 6) & 0x1u);
  return DtRawOk;
}

int DtRaw::GetExposureProgram(unsigned char* program) {
  const DtRawTagData* tag = nullptr;
  const int found = findTag(__func__, __LINE__, program != nullptr, TAG_EXPOSURE_PROGRAM,
                            DtRawTagCategoryExif, 2, "Raw: not exist exposure program!!", &tag);
  if (found != DtRawOk) {
    return found;
  }
  *program =
      static_cast<unsigned char>(DtNlDataUtil::U8ArrayToU16(tag->m_data, tag->m_byteOrder) & 0xFFu);
  return DtRawOk;
}

int DtRaw::GetISOSpeed(unsigned short* iso) {
  const DtRawTagData* tag = nullptr;
  const int found = findTag(__func__, __LINE__, iso != nullptr, TAG_ISO_SPEED, DtRawTagCategoryExif,
                            2, "Raw: not exist iso speed rate!!", &tag);
  if (found != DtRawOk) {
    return found;
  }
  *iso = DtNlDataUtil::U8ArrayToU16(tag->m_data, tag->m_byteOrder);
  return DtRawOk;
}

int DtRaw::GetRealFocalLength(unsigned int* num, unsigned int* den) {
  const DtRawTagData* tag = nullptr;
  const int found = findTag(__func__, __LINE__, num != nullptr && den != nullptr, TAG_FOCAL_LENGTH,
                            DtRawTagCategoryExif, 0, "Raw: not exist focal length!!", &tag);
  if (found != DtRawOk) {
    return found;
  }
  return getFractionNumber(tag, num, den);
}

int DtRaw::GetFNumber(unsigned int* num, unsigned int* den) {
  const DtRawTagData* tag = nullptr;
  const int found = findTag(__func__, __LINE__, num != nullptr && den != nullptr, TAG_F_NUMBER,
                            DtRawTagCategoryExif, 0, "Raw: not exist f value!!", &tag);
  if (found != DtRawOk) {
    return found;
  }
  return getFractionNumber(tag, num, den);
}

int DtRaw::GetExposureTime(unsigned int* num, unsigned int* den) {
  const DtRawTagData* tag = nullptr;
  const int found = findTag(__func__, __LINE__, num != nullptr && den != nullptr, TAG_EXPOSURE_TIME,
                            DtRawTagCategoryExif, 0, "Raw: not exist exposure time!!", &tag);
  if (found != DtRawOk) {
    return found;
  }
  unsigned int readNum = 0;
  unsigned int readDen = 0;
  const int result = getFractionNumber(tag, &readNum, &readDen);
  if (result != DtRawOk) {
    return result;
  }
  // Deliberate: the time is brought to the form 1/n by a truncating unsigned
  // division, so n/1 with n >= 2 (two seconds or more) becomes 1/0. A zero
  // denominator is returned as read.
  if (readDen != 0 && readNum > 1) {
    readDen = readDen / readNum;
    readNum = 1;
  }
  *num = readNum;
  *den = readDen;
  return DtRawOk;
}

int DtRaw::GetExposureBias(int* num, int* den) {
  const DtRawTagData* tag = nullptr;
  const int found = findTag(__func__, __LINE__, num != nullptr && den != nullptr, TAG_EXPOSURE_BIAS,
                            DtRawTagCategoryExif, 0, "Raw: not exist exposure bias!!", &tag);
  if (found != DtRawOk) {
    return found;
  }
  unsigned int readNum = 0;
  unsigned int readDen = 0;
  const int result = getFractionNumber(tag, &readNum, &readDen);
  if (result != DtRawOk) {
    return result;
  }
  // The two 32-bit words are two's-complement signed numbers.
  *num = static_cast<int>(static_cast<INT32>(readNum));
  *den = static_cast<int>(static_cast<INT32>(readDen));
  return DtRawOk;
}

// A zero size leaves no room even for the terminator: refused, as is a null
// buffer, without writing anything.
int DtRaw::GetMakerName(char* buff, unsigned int size) {
  const DtRawTagData* tag = nullptr;
  const int found = findTag(__func__, __LINE__, buff != nullptr && size != 0, TAG_MAKE,
                            DtRawTagCategoryIfd0, 0, "Raw: not exist maker name!!", &tag);
  if (found != DtRawOk) {
    return found;
  }
  return copyName(tag, buff, size);
}

int DtRaw::GetModelName(char* buff, unsigned int size) {
  const DtRawTagData* tag = nullptr;
  const int found = findTag(__func__, __LINE__, buff != nullptr && size != 0, TAG_MODEL,
                            DtRawTagCategoryIfd0, 0, "Raw: not exist model name!!", &tag);
  if (found != DtRawOk) {
    return found;
  }
  return copyName(tag, buff, size);
}

int DtRaw::copyName(const DtRawTagData* tag, char* buff, unsigned int size) {
  std::memset(buff, 0, size);
  if (getRawTagDataValue(tag, reinterpret_cast<unsigned char*>(buff), size) != DtRawOk) {
    return DtRawErrNoData;
  }
  buff[size - 1] = '\0';  // a name as long as the buffer or longer is cut by one
  return DtRawOk;
}

int DtRaw::GetOrgDateTime(DtRawDateTime* dateTime) {
  const DtRawTagData* tag = nullptr;
  const int found = findTag(__func__, __LINE__, dateTime != nullptr, TAG_DATE_TIME_ORIGINAL,
                            DtRawTagCategoryExif, 0, "Raw: not exist original date time!!", &tag);
  if (found != DtRawOk) {
    return found;
  }
  // Every failure of the parse, also a missing value, is a size fault here.
  if (getDateTimeParts(tag->m_data, tag->m_size, &dateTime->m_year, &dateTime->m_month,
                       &dateTime->m_day, &dateTime->m_hour, &dateTime->m_minute,
                       &dateTime->m_second) != DtRawOk) {
    return DtRawErrSize;
  }
  return DtRawOk;
}

int DtRaw::GetExifVersion(unsigned short* version) {
  const DtRawTagData* tag = nullptr;
  const int found =
      findTag(__func__, __LINE__, version != nullptr, TAG_EXIF_VERSION, DtRawTagCategoryExif,
              VERSION_SIZE, "Raw: not exist exif version!!", &tag);
  if (found != DtRawOk) {
    return found;
  }
  // The number is stored also when it is 0 (not a version).
  *version = convVerArrayToUint16(tag->m_data);
  return *version == 0 ? DtRawErrExifVersion : DtRawOk;
}

int DtRaw::GetIobVersion(unsigned short* version) {
  const DtRawTagData* tag = nullptr;
  const int found =
      findTag(__func__, __LINE__, version != nullptr, TAG_IOB_VERSION, DtRawTagCategoryIob,
              VERSION_SIZE, "Raw: not exist iob version!!", &tag);
  if (found != DtRawOk) {
    return found;
  }
  *version = convVerArrayToUint16(tag->m_data);
  return *version == 0 ? DtRawErrIobVersion : DtRawOk;
}

int DtRaw::GetT593Mode(unsigned char* mode) {
  // The mode is not kept in the file: it is always 0. A null `mode` is not
  // written through; the result stays 0.
  if (mode != nullptr) {
    *mode = 0;
  }
  return DtRawOk;
}

int DtRaw::getRawTagDataValue(const DtRawTagData* tag, unsigned char* buff, unsigned int size) {
  // Deliberate: the count is the smaller of the two sizes compared as signed
  // 32-bit numbers, so a tag size of 2^31 or more is taken over the caller's
  // size; the value then cannot be read whole and the read below reports a
  // short count.
  const INT32 tagSize = static_cast<INT32>(tag->m_size);
  const INT32 callerSize = static_cast<INT32>(size);
  const UINT count = tagSize < callerSize ? tag->m_size : size;
  // What is really transferred never exceeds the caller's buffer.
  const UINT transfer = count < size ? count : size;

  if (tag->m_data != nullptr) {
    // Nor the tag's own bytes.
    const UINT fromData = transfer < tag->m_size ? transfer : tag->m_size;
    if (fromData != 0) {
      std::memcpy(buff, tag->m_data, fromData);
    }
    return DtRawOk;
  }

  // Values without kept bytes are read from the memory copy. An offset
  // beyond its end is refused as an open failure, without reading: the
  // value is not in memory.
  const bool inCopy = tag->m_offset <= m_buffSize;
  if (!inCopy || m_stream->Open(m_buff + tag->m_offset, m_buffSize - tag->m_offset) != 0) {
    DTNL_LOG(DTNL_LV_INFO, __LINE__, "Raw: value open err!!");
    return inCopy ? DtRawError::GetRawErr(m_stream->GetIo()->GetStatus(), DtRawErrBuffOpen)
                  : static_cast<int>(DtRawErrBuffOpen);
  }
  // The stream may have replaced its channel on Open: take it afterwards.
  DtNlIo* io = m_stream->GetIo();
  int result = DtRawOk;
  if (io->ReadU8(buff, transfer) < count) {
    DTNL_LOG(DTNL_LV_INFO, __LINE__, "Raw: value read err!!");
    result = DtRawError::GetRawErr(io->GetStatus(), DtRawErrRead);
  }
  if (io->Close() == 0) {
    return result;
  }
  DTNL_LOG(DTNL_LV_INFO, __LINE__, "Raw: value close err!!");
  if (result != DtRawOk) {
    return result;
  }
  return DtRawError::GetRawErr(io->GetStatus(), DtRawErrBuffClose);
}

int DtRaw::getFractionNumber(const DtRawTagData* tag, unsigned int* num, unsigned int* den) {
  if (tag->m_data == nullptr || tag->m_size != RATIONAL_SIZE) {
    return DtRawErrSize;
  }
  *num = DtNlDataUtil::U8ArrayToU32(tag->m_data, tag->m_byteOrder);
  *den = DtNlDataUtil::U8ArrayToU32(tag->m_data + 4, tag->m_byteOrder);
  return DtRawOk;
}

int DtRaw::getDateTimeParts(unsigned char* text, unsigned int size, unsigned short* year,
                            unsigned char* month, unsigned char* day, unsigned char* hour,
                            unsigned char* minute, unsigned char* second) {
  if (size != DATE_TIME_SIZE) {
    DTNL_LOG(DTNL_LV_INFO, __LINE__, "[DtRaw::getDateTimeParts]: No Raw DateTime!!");
    return DtRawErrSize;
  }
  if (text == nullptr) {
    return DtRawErrParam;
  }
  // The text as the log lines show it: the 20 bytes up to their first zero
  // byte, terminated here so that a text without one is never read past.
  char shown[DATE_TIME_SIZE + 1] = {};
  std::memcpy(shown, text, DATE_TIME_SIZE);

  for (UINT pos = 0; pos < DATE_TIME_SIZE; ++pos) {
    switch (dateTimeFaultAt(pos, text[pos])) {
      case DateTimeOk:
        continue;
      case DateTimeColon:
        DTNL_LOG(DTNL_LV_INFO, __LINE__, "Raw: Format Err!! ':' - \"%s\"", shown);
        return DtRawErrSize;
      case DateTimeSpace:
        DTNL_LOG(DTNL_LV_INFO, __LINE__, "Raw: Format Err!! 'SP' - \"%s\"", shown);
        return DtRawErrSize;
      case DateTimeNul:
        DTNL_LOG(DTNL_LV_INFO, __LINE__, "Raw: Format Err!! '\\0' - \"%s\"", shown);
        return DtRawErrSize;
      case DateTimeNumber:
        DTNL_LOG(DTNL_LV_INFO, __LINE__, "Raw: Format Err!! Number - \"%s\"", shown);
        return DtRawErrSize;
    }
  }
  // Only digits remain at these positions: four give at most 9999, two at
  // most 99, so every value fits its field.
  *year = static_cast<unsigned short>(DtNlDataUtil::AsciiToInt(text, 4));
  *month = static_cast<unsigned char>(DtNlDataUtil::AsciiToInt(text + 5, 2));
  *day = static_cast<unsigned char>(DtNlDataUtil::AsciiToInt(text + 8, 2));
  *hour = static_cast<unsigned char>(DtNlDataUtil::AsciiToInt(text + 11, 2));
  *minute = static_cast<unsigned char>(DtNlDataUtil::AsciiToInt(text + 14, 2));
  *second = static_cast<unsigned char>(DtNlDataUtil::AsciiToInt(text + 17, 2));
  return DtRawOk;
}

unsigned short DtRaw::convVerArrayToUint16(unsigned char* version) {
  UINT value = 0;
  for (UINT i = 0; i < VERSION_SIZE; ++i) {
    if (!isDecimalDigit(version[i])) {
      return 0;
    }
    value = value * 10u + static_cast<UINT>(version[i] - '0');
  }
  return static_cast<unsigned short>(value);  // at most 9999
}

// ---- Write-back ------------------------------------------------------------

int DtRaw::SetRotationInfo(unsigned char rotation) {
  if (m_isBuffMode == 1) {
    DTNL_LOG(DTNL_LV_INFO, __LINE__, "Raw: Because it is a buffer mode, data cannot be updated.");
    return DtRawErrBufferMode;
  }
  DTNL_LOG(DTNL_LV_INFO, __LINE__, "[DtRaw::SetRotationInfo]: %d.", static_cast<int>(rotation));
  if (m_rawEng == nullptr) {
    return DtRawErrNotInit;
  }

  DtNlFileStatus fileStatus;
  const DtNlStatus statResult = m_file.Stat(&fileStatus);
  if (statResult.IsFailure()) {
    return DtRawError::GetRawErr(statResult, DtRawErrStat);
  }
  // Only the owner-write bit counts, whoever the caller is.
  if (fileStatus.IsUserWritable() == 0) {
    DTNL_LOG(DTNL_LV_INFO, __LINE__, "[DtRaw::SetRotationInfo]: Read Only File!!");
    return DtRawErrReadOnly;
  }

  const DtRawTagData* ifd0Tag = m_rawEng->getTagData(TAG_ORIENTATION, m_rawEng->m_ifd0Parser);
  if (ifd0Tag == nullptr) {
    DTNL_LOG(DTNL_LV_INFO, __LINE__, "Raw: No Rotation Info!!");
    return DtRawErrNoData;
  }
  if (ifd0Tag->m_size != ORIENTATION_SIZE) {
    DTNL_LOG(DTNL_LV_INFO, __LINE__, "Raw: rotation data size is exif standard violation!!");
    return DtRawErrSize;
  }
  const UINT16 orientation = convRotInfoUsetoStd(rotation);
  UINT8 bytes[ORIENTATION_SIZE] = {};
  DtNlDataUtil::U16ToU8Array(orientation, bytes, ifd0Tag->m_byteOrder);
  // An unkeyed append is never refused: the result carries nothing here.
  (void)requestUpdateData(ifd0Tag, bytes, ORIENTATION_SIZE);

  const DtRawTagData* ifd1Tag = m_rawEng->getTagData(TAG_ORIENTATION, m_rawEng->m_ifd1Parser);
  if (ifd1Tag == nullptr) {
    DTNL_LOG(DTNL_LV_INFO, __LINE__, "Raw: not exist rotation info for thumbnail.");
  } else if (ifd1Tag->m_size != ORIENTATION_SIZE) {
    DTNL_LOG(DTNL_LV_INFO, __LINE__, "Raw: rotation data size is exif standard violation!!");
    // Deliberate: every queued change goes, also those of earlier calls.
    m_updateList.ClearAllData();
    return DtRawErrSize;
  } else {
    DtNlDataUtil::U16ToU8Array(orientation, bytes, ifd1Tag->m_byteOrder);
    (void)requestUpdateData(ifd1Tag, bytes, ORIENTATION_SIZE);
  }

  syncDateTime();  // its outcome does not change the result
  return DtRawOk;
}

void DtRaw::syncDateTime() {
  if (m_rawEng == nullptr) {
    return;
  }
  const DtRawTagData* ifd0Tag = m_rawEng->getTagData(TAG_DATE_TIME, m_rawEng->m_ifd0Parser);
  if (ifd0Tag == nullptr) {
    DTNL_LOG(DTNL_LV_INFO, __LINE__, "Raw: No DateTime.");
    return;
  }
  if (ifd0Tag->m_size != DATE_TIME_SIZE) {
    DTNL_LOG(DTNL_LV_INFO, __LINE__, "Raw: DateTime(IFD0) data size is EXIF standard violation.");
    return;
  }
  const DtRawTagData* ifd1Tag = m_rawEng->getTagData(TAG_DATE_TIME, m_rawEng->m_ifd1Parser);
  if (ifd1Tag == nullptr) {
    DTNL_LOG(DTNL_LV_INFO, __LINE__, "Raw: No Thumbnail DateTime.");
    return;
  }
  if (ifd1Tag->m_size != DATE_TIME_SIZE) {
    DTNL_LOG(DTNL_LV_INFO, __LINE__, "Raw: DateTime(IFD1) data size is EXIF standard violation.");
    return;
  }
  if (ifd0Tag->m_data == nullptr || ifd1Tag->m_data == nullptr) {
    DTNL_LOG(DTNL_LV_INFO, __LINE__, "Raw: DateTime is Invalid.");
    return;
  }
  // Compared as text: a zero byte ends the comparison early.
  if (std::strncmp(reinterpret_cast<const char*>(ifd0Tag->m_data),
                   reinterpret_cast<const char*>(ifd1Tag->m_data), DATE_TIME_SIZE) == 0) {
    return;
  }
  (void)requestUpdateData(ifd1Tag, ifd0Tag->m_data, DATE_TIME_SIZE);
}

int DtRaw::requestUpdateData(const DtRawTagData* tag, const unsigned char* data,
                             unsigned int size) {
  DtRawTagData* change = new DtRawTagData();
  *change = *tag;  // every field but m_data: where the value lies, not its bytes
  // The new bytes always span the tag's own size (a shorter `data` is padded
  // with zeros, a longer one cut), because Update writes m_size of them.
  UINT8* bytes = new UINT8[tag->m_size]();
  const UINT count = size < tag->m_size ? size : tag->m_size;
  if (count != 0) {
    std::memcpy(bytes, data, count);
  }
  change->m_data = bytes;
  const int result = m_updateList.PushBack(change);
  if (result != 0) {
    // Refused: both are still ours.
    delete[] bytes;
    delete change;
  }
  return result;
}

int DtRaw::Update(const DtNlTime* time) {
  if (m_rawEng == nullptr || m_stream == nullptr) {
    return DtRawErrNotInit;
  }
  if (m_isBuffMode == 1) {
    DTNL_LOG(DTNL_LV_INFO, __LINE__, "Raw: Because it is a buffer mode, data cannot be updated.");
    return DtRawErrBufferMode;
  }
  if (m_updateList.GetSize() == 0) {
    DTNL_LOG(DTNL_LV_INFO, __LINE__, "[Raw:Update]: There is no updated data.");
    return DtRawOk;
  }

  // Failures up to the open leave the queue as it is, for a retry.
  DtNlFileStatus fileStatus;
  const DtNlStatus statResult = m_file.Stat(&fileStatus);
  if (statResult.IsFailure()) {
    return DtRawError::GetRawErr(statResult, DtRawErrStat);
  }
  utimbuf times{};
  fileStatus.GetUTime(&times);

  if (m_stream->Open(m_file, "rb+") != 0) {
    DTNL_LOG(DTNL_LV_INFO, __LINE__, "[Raw:Update]: Open Err!! %s", pathText(m_file));
    return DtRawError::GetRawErr(m_stream->GetIo()->GetStatus(), DtRawErrOpen);
  }
  // The stream may have replaced its channel on Open: take it afterwards.
  DtNlIo* io = m_stream->GetIo();

  // Write-back never grows the file. A queued value can lie past its end only
  // when the file is shorter than the head copy (whose rest reads as zeros);
  // such a change is refused like a failed seek, before anything of it is
  // written. Sizes are compared in 32 bits, the reach of a file here.
  const UINT32 fileSize = fileStatus.GetSize();

  int failure = DtRawOk;
  bool written = false;
  // Bounded by the queue's length; each pass moves to the next change.
  for (DtNlNode* node = m_updateList.GetBeginNode(); node != m_updateList.GetEndNode();
       node = node->next) {
    const DtRawTagData* change = DtRawTagDataList::TagDataOf(node);
    // Subtraction form: the offset is checked before it is subtracted.
    if (change->m_offset > fileSize || change->m_size > fileSize - change->m_offset) {
      DTNL_LOG(DTNL_LV_INFO, __LINE__,
               "[Raw:Update]: Value past the end of the file!! offset=%u size=%u fileSize=%u",
               change->m_offset, change->m_size, fileSize);
      failure = DtRawErrSeek;
      break;
    }
    // Deliberate: the value's position is a signed 32-bit file offset,
    // widened with its sign.
    const long long offset = static_cast<long long>(static_cast<INT32>(change->m_offset));
    const int seekResult = io->Seek(offset, DtNlIoSeekSet);
    if (seekResult != 0) {
      DTNL_LOG(DTNL_LV_INFO, __LINE__, "[Raw:Update]: Seek Err!!: %d", seekResult);
      failure = DtRawError::GetRawErr(io->GetStatus(), DtRawErrSeek);
      break;
    }
    if (io->WriteU8(change->m_data, change->m_size) < change->m_size) {
      DTNL_LOG(DTNL_LV_INFO, __LINE__, "[Raw:Update]: Write Err!!");
      failure = DtRawError::GetRawErr(io->GetStatus(), DtRawErrWrite);
      break;
    }
    // Later queries see the new value. UpdateTagData logs its own failures;
    // they change nothing here.
    DtRawIFDParserBase* parser = nullptr;
    if (change->m_category == DtRawTagCategoryIfd0) {
      parser = m_rawEng->m_ifd0Parser;
    } else if (change->m_category == DtRawTagCategoryIfd1) {
      parser = m_rawEng->m_ifd1Parser;
    } else {
      DTNL_ASSERT(__LINE__, false, "Raw: invalid tag data category!! %d",
                  static_cast<int>(change->m_category));
    }
    if (parser != nullptr) {
      (void)parser->UpdateTagData(change);
    }
    written = true;
  }
  // From here on the queue is empty, whatever the outcome.
  m_updateList.ClearAllData();

  if (io->Close() != 0) {
    // The times are not restored after a failed close.
    if (failure != DtRawOk) {
      return failure;
    }
    return DtRawError::GetRawErr(io->GetStatus(), DtRawErrClose);
  }
  if (written) {
    const int stamped = setTimeStamp(&times, time);
    if (stamped != DtRawOk) {
      return stamped;
    }
  }
  if (failure != DtRawOk) {
    return failure;
  }
  DTNL_LOG(DTNL_LV_INFO, __LINE__, "Raw: Update OK.");
  return DtRawOk;
}

int DtRaw::setTimeStamp(utimbuf* times, const DtNlTime* time) {
  utimbuf local = *times;
  // Deliberate: a valid `time` is not used as a time: it sets both file
  // times to 0. A null or invalid one restores `times`.
  if (time != nullptr && time->IsValid() == 1) {
    local.actime = 0;
    local.modtime = 0;
  }
  const DtNlStatus status = m_file.SetTime(&local);
  if (status.IsFailure()) {
    DTNL_LOG(DTNL_LV_ERR, __LINE__, "Raw: DtNlFile.SetTime err.");
    return DtRawError::GetRawErr(status, DtRawErrSetTime);
  }
  return DtRawOk;
}
