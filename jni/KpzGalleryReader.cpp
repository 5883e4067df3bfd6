// KpzGalleryReader.cpp - one KPZ file for a gallery, from one head read
// (jni/). See KpzGalleryReader.h.
#include "KpzGalleryReader.h"

#include <cerrno>
#include <cstring>
#include <new>

#include "raw/DtRaw.h"
#include "raw/DtRawError.h"
#include "raw/DtRawErrorText.h"

KpzGalleryReader::KpzGalleryReader() : m_file(), m_head(), m_parsed(false), m_record(), m_info() {}

KpzGalleryReader::~KpzGalleryReader() = default;

const char* KpzGalleryReader::Name(PictureKind kind) { return DtRawRecord::Name(kind); }

bool KpzGalleryReader::OpenPath(const char* path, Failure* why) {
  return DtRawRecord::OpenPath(&m_file, path, why) && readRecord(why);
}

bool KpzGalleryReader::OpenFd(int fd, Failure* why) {
  return DtRawRecord::OpenFd(&m_file, fd, why) && readRecord(why);
}

bool KpzGalleryReader::readRecord(Failure* why) {
  m_head.reset(new (std::nothrow) UINT8[HEAD_SIZE]);
  if (!m_head) {
    why->Set(DtRawFailure::KindUnreadable, ENOMEM, 0, "not enough memory to read the file");
    return false;
  }
  const DtRawExpected<DtRawRecord> record = DtRawRecord::Read(m_file, m_head.get());
  if (!record) {
    *why = record.Failure();
    return false;
  }
  m_record = *record;
  m_parsed = true;

  Info& info = m_info;
  info.m_orientation = m_record.m_orientation;
  info.m_orientationRecorded = m_record.m_orientationRecorded;
  info.m_hasModel = m_record.m_hasModel;
  std::memcpy(info.m_model, m_record.m_model, sizeof info.m_model);
  info.m_hasDateTime = m_record.m_hasDateTime;
  info.m_dateTime = m_record.m_dateTime;
  const DtRawExpected<DtRawRecord::Range> preview = m_record.Locate(PicturePreview);
  if (preview) {
    info.m_previewLength = preview->m_length;
    info.m_previewWidth = m_record.m_previewWidth;
    info.m_previewHeight = m_record.m_previewHeight;
  }
  const DtRawExpected<DtRawRecord::Range> thumbnail = m_record.Locate(PictureThumbnail);
  if (thumbnail) {
    info.m_thumbnailLength = thumbnail->m_length;
  }
  return true;
}

void KpzGalleryReader::GetInfo(Info* info) { *info = m_info; }

bool KpzGalleryReader::Locate(PictureKind kind, Picture* picture, Failure* why) {
  if (!m_parsed) {
    why->m_kind = DtRawFailure::KindUnreadable;
    why->m_errno = 0;
    why->m_code = DtRawErrNotInit;
    DtRawErrorText::Initialize(DtRawErrNotInit, why->m_words, sizeof why->m_words);
    return false;
  }
  const DtRawExpected<DtRawRecord::Range> range = m_record.Locate(kind);
  if (!range) {
    *why = range.Failure();
    return false;
  }
  picture->m_kind = kind;
  picture->m_offset = range->m_offset;
  picture->m_length = range->m_length;
  return true;
}

const UINT8* KpzGalleryReader::InHead(const Picture& picture) const {
  const UINT headRead = m_record.m_headRead;
  if (!m_head || !m_parsed || picture.m_offset > headRead ||
      picture.m_length > headRead - picture.m_offset) {
    return nullptr;
  }
  return m_head.get() + static_cast<std::size_t>(picture.m_offset);  // within the head
}

bool KpzGalleryReader::Read(const Picture& picture, UINT8* out, Failure* why) {
  const UINT8* inHead = InHead(picture);
  if (inHead != nullptr) {
    std::memcpy(out, inHead, picture.m_length);
    return true;
  }
  DtRawRecord::Range range;
  range.m_picture = picture.m_kind;
  range.m_offset = picture.m_offset;
  range.m_length = picture.m_length;
  return DtRawRecord::ReadPicture(m_file, range, out, why);
}
