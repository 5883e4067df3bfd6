// DtRawRecord.cpp - one parse of a KPZ file's head into one record (jni/raw).
// See DtRawRecord.h.
#include "raw/DtRawRecord.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <new>

#include "raw/DtRaw.h"
#include "raw/DtRawError.h"
#include "raw/DtRawErrorText.h"
#include "raw/DtRawScreennailInfo.h"
#include "raw/DtRawEng.h"
#include "raw/DtRawHeadEng.h"
#include "raw/DtRawLayoutCheck.h"
#include "raw/DtRawThumbnailInfo.h"
#include "raw/parser/DtRawHeadIo.h"
#include "raw/parser/DtRawTagData.h"
#include "util/DtNlDataUtil.h"
#include "util/io/DtNlDataStream.h"
#include "util/io/DtNlReadAt.h"

static_assert(DtRawRecord::HEAD_SIZE == DtRaw::READ_SIZE,
              "the record parses the head the facade reads");

namespace {

const unsigned short kTagOrientation = 0x0112;  // IFD0

DtRawFailure readFailure(int err) {
  DtRawFailure why;
  why.m_kind = DtRawFailure::KindUnreadable;
  why.m_errno = err;
  DtRawErrorText::ReadError(err, why.m_words, sizeof why.m_words);
  return why;
}

// Refuses what *file is not: a regular file. Its errno was 0.
bool checkType(const DtNlFdReadAt& file, DtRawFailure* why) {
  switch (file.FileType()) {
    case DtNlFdReadAt::TypeRegular:
      return true;
    case DtNlFdReadAt::TypeDirectory:
      why->Set(DtRawFailure::KindUnreadable, EISDIR, 0, DtRawErrorText::Directory());
      return false;
    case DtNlFdReadAt::TypeStream:
      // A pipe or socket could not be read positionally anyway.
      why->Set(DtRawFailure::KindUnreadable, ESPIPE, 0, DtRawErrorText::NotRegular());
      return false;
    default:
      // A device is not read: reading it could wait forever.
      why->Set(DtRawFailure::KindUnreadable, 0, 0, DtRawErrorText::NotRegular());
      return false;
  }
}

}  // namespace

const char* DtRawRecord::Name(Picture which) {
  return which == PicturePreview ? "preview" : "thumbnail";
}

bool DtRawRecord::OpenPath(DtNlFdReadAt* file, const char* path, DtRawFailure* why) {
  const int err = file->OpenPath(path);
  if (err != 0) {
    // A Unix socket cannot be opened at all (ENXIO): what the name is, not
    // the errno, is the reason, as for a socket taken by descriptor.
    struct stat named;
    if (err == ENXIO && stat(path, &named) == 0 && S_ISSOCK(named.st_mode)) {
      why->Set(DtRawFailure::KindUnreadable, ESPIPE, 0, DtRawErrorText::NotRegular());
      return false;
    }
    *why = readFailure(err);
    return false;
  }
  return checkType(*file, why);
}

bool DtRawRecord::OpenFd(DtNlFdReadAt* file, int fd, DtRawFailure* why, bool owned) {
  const int err = file->Adopt(fd, owned);
  if (err != 0) {
    *why = readFailure(err);
    return false;
  }
  return checkType(*file, why);
}

DtRawExpected<DtRawRecord> DtRawRecord::Read(DtNlReadAt& stream, UINT8* head, Fields fields) {
  const std::uint64_t size = stream.Size();
  // Up to the size the stream tells: no read is spent on finding the end.
  const std::size_t want = size < HEAD_SIZE ? static_cast<std::size_t>(size) : HEAD_SIZE;
  const UINT8* inMemory = want == HEAD_SIZE ? stream.View(0, HEAD_SIZE) : nullptr;
  if (inMemory != nullptr) {
    // The facade only reads a buffer it is given (its write-back refuses
    // buffer mode), so the stream's own memory is parsed in place.
    return parseFull(const_cast<UINT8*>(inMemory), HEAD_SIZE, size, fields);
  }
  std::size_t got = 0;
  const int err = stream.GetData(0, want, head, &got);
  if (err != 0) {
    return readFailure(err);
  }
  // As in the facade's own copy: zeros after the file's end.
  std::memset(head + got, 0, HEAD_SIZE - got);
  return parseFull(head, static_cast<UINT>(got), size, fields);
}

DtRawExpected<DtRawRecord> DtRawRecord::Parse(const UINT8* head, std::size_t length,
                                              std::uint64_t fileSize, Fields fields) {
  if (head == nullptr) {
    length = 0;
  }
  if (length >= HEAD_SIZE) {
    // Read only, as in Read.
    return parseFull(const_cast<UINT8*>(head), HEAD_SIZE, fileSize, fields);
  }
  std::unique_ptr<UINT8[]> copy(new (std::nothrow) UINT8[HEAD_SIZE]);
  if (!copy) {
    return readFailure(ENOMEM);
  }
  if (length > 0) {
    std::memcpy(copy.get(), head, length);
  }
  std::memset(copy.get() + length, 0, HEAD_SIZE - length);
  return parseFull(copy.get(), static_cast<UINT>(length), fileSize, fields);
}

DtRawExpected<DtRawRecord> DtRawRecord::parseFull(UINT8* head, UINT headRead,
                                                  std::uint64_t fileSize, Fields fields) {
  // The facade parses through a head channel of the record's own, lent to
  // its stream (which it then owns and deletes; the channel outlives it):
  // the parse records there where and why it stops, as it fails.
  DtRawHeadIo io(fileSize);
  DtRaw raw;
  raw.m_stream = new DtNlDataStream(&io);
  const int initRet = raw.InitializeBuf(head, static_cast<int>(HEAD_SIZE));
  if (initRet != DtRawOk) {
    // The kind the words say: the layout codes are "not a KPZ raw file
    // (...)", also for a file cut short within its directories; any other
    // code "the file cannot be read as a KPZ raw file (error <code>)".
    DtRawFailure why;
    why.m_kind = DtRawErrorText::IsParseCode(initRet) ? DtRawFailure::KindNotKpz
                                                      : DtRawFailure::KindUnreadable;
    why.m_code = initRet;
    DtRawLayoutCheck::Finding found;
    DtRawErrorText::Stopped(initRet, io, why.m_words, sizeof why.m_words, &found, &why.m_at);
    why.m_reason = found.m_reason;
    why.m_part = found.m_part;
    why.m_value = found.m_value;
    return why;
  }

  DtRawRecord record;
  record.m_fileSize = fileSize;
  record.m_headRead = headRead;

  DtRawScreennailInfo preview;
  preview.m_fileOffset = 0;
  preview.m_size = 0;
  preview.m_horizon = 0;
  preview.m_vertical = 0;
  record.m_previewResult = raw.GetScreennailInfo(&preview);
  record.m_previewOffset = preview.m_fileOffset;
  record.m_previewSize = preview.m_size;
  if (record.m_previewResult == DtRawOk) {
    record.m_previewWidth = preview.m_horizon;
    record.m_previewHeight = preview.m_vertical;
  }

  DtRawThumbnailInfo thumbnail;
  thumbnail.m_compression = 0;
  thumbnail.m_rotation = 0;
  thumbnail.m_size = 0;
  thumbnail.m_fileOffset = 0;
  record.m_thumbnailResult = raw.GetThumbnailInfo(&thumbnail);
  record.m_thumbnailOffset = thumbnail.m_fileOffset;
  record.m_thumbnailSize = thumbnail.m_size;

  unsigned char rotation = 0;
  record.m_rotationResult = raw.GetRotationInfo(&rotation);
  record.m_orientationRecorded = record.m_rotationResult == DtRawOk;
  if (record.m_orientationRecorded) {
    record.m_rotationCode = rotation;
    // The value itself, to tell an unknown value from orientation 1 (the
    // rotation code is 0 for both): the tag GetRotationInfo just decoded.
    const DtRawTagData* tag = raw.m_rawEng->getTagData(kTagOrientation, raw.m_rawEng->m_ifd0Parser);
    if (tag != nullptr && tag->m_data != nullptr && tag->m_size >= 2) {
      record.m_orientationStored = DtNlDataUtil::U8ArrayToU16(tag->m_data, tag->m_byteOrder);
    }
  }
  record.m_orientation =
      record.m_orientationRecorded ? DtRaw::convRotInfoUsetoStd(rotation) : UINT16{1};
  if (fields == FieldsAll) {
    record.m_hasModel = raw.GetModelName(record.m_model, sizeof record.m_model) == DtRawOk;
    if (!record.m_hasModel) {
      std::memset(record.m_model, 0, sizeof record.m_model);
    }
    record.m_hasDateTime = raw.GetOrgDateTime(&record.m_dateTime) == DtRawOk;
    if (!record.m_hasDateTime) {
      record.m_dateTime = DtRawDateTime();
    }
  }
  raw.Finalize();
  return record;
}

void DtRawRecord::ParseThrough(DtRaw* raw, DtRawHeadIo* io) {
  if (raw == nullptr) {
    return;
  }
  // The facade makes an engine only when it has none: one lent the channel
  // now is the one its next parse runs (Finalize first, as that parse would,
  // so that the facade keeps nothing of an earlier file). Without memory for
  // it, the facade parses as ever, and the channel records nothing.
  raw->Finalize();
  if (io != nullptr) {
    raw->m_rawEng = new (std::nothrow) DtRawHeadEng(io);
  }
}

DtRawExpected<DtRawRecord::Range> DtRawRecord::Locate(Picture which) const {
  const bool isPreview = which == PicturePreview;
  const char* const what = Name(which);
  const DtRawFailure::Kind none =
      isPreview ? DtRawFailure::KindNoPreview : DtRawFailure::KindNoThumbnail;
  const int result = isPreview ? m_previewResult : m_thumbnailResult;
  const UINT32 offset = isPreview ? m_previewOffset : m_thumbnailOffset;
  const UINT32 length = isPreview ? m_previewSize : m_thumbnailSize;
  DtRawFailure why;
  if (result == DtRawErrNoData) {
    why.m_kind = none;
    why.m_code = result;
    DtRawErrorText::NoPicture(what, why.m_words, sizeof why.m_words);
    return why;
  }
  if (result != DtRawOk) {
    why.m_kind = DtRawFailure::KindDamaged;
    why.m_code = result;
    DtRawErrorText::Location(what, result, why.m_words, sizeof why.m_words);
    return why;
  }
  if (length == 0) {
    why.m_kind = none;
    DtRawErrorText::EmptyPicture(what, why.m_words, sizeof why.m_words);
    return why;
  }
  // As getScreennailNative reads it: the preview's offset is a signed 32-bit
  // number, so an offset of 2 GiB or more is out of reach.
  if (isPreview && static_cast<INT32>(offset) < 0) {
    why.Set(DtRawFailure::KindDamaged, 0, 0, DtRawErrorText::PreviewOutOfReach());
    return why;
  }
  if (offset > m_fileSize || length > m_fileSize - offset) {
    why.m_kind = DtRawFailure::KindDamaged;
    DtRawErrorText::PastEnd(what, why.m_words, sizeof why.m_words);
    return why;
  }
  // A thumbnail is small: a larger one is refused before anything is
  // allocated or read for it.
  if (!isPreview && length > DtRawErrorText::THUMBNAIL_MAX_SIZE) {
    why.m_kind = DtRawFailure::KindDamaged;
    DtRawErrorText::ThumbnailTooLarge(length, why.m_words, sizeof why.m_words);
    return why;
  }
  Range range;
  range.m_picture = which;
  range.m_offset = offset;
  range.m_length = length;
  return range;
}

bool DtRawRecord::ReadPicture(DtNlReadAt& stream, const Range& range, UINT8* out,
                              DtRawFailure* why) {
  std::size_t got = 0;
  const int err = stream.GetData(range.m_offset, range.m_length, out, &got);
  if (err == 0 && got == range.m_length) {
    return true;
  }
  // err 0: the data ended first (the file became shorter since it was measured).
  why->m_kind = err == 0 ? DtRawFailure::KindDamaged : DtRawFailure::KindUnreadable;
  why->m_errno = err;
  why->m_code = 0;
  DtRawErrorText::PictureReadError(Name(range.m_picture), err, why->m_words, sizeof why->m_words);
  return false;
}
