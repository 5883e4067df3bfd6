// KpzGalleryReader.cpp - one KPZ file for a gallery, from one head read
// (jni/). See KpzGalleryReader.h.
#include "KpzGalleryReader.h"

#include <cerrno>
#include <cstring>
#include <new>

#include "raw/DtRaw.h"
#include "raw/DtRawError.h"
#include "raw/DtRawErrorText.h"

static_assert(static_cast<int>(KpzGalleryReader::PicturePreview) == DtRawRecord::PicturePreview &&
                  static_cast<int>(KpzGalleryReader::PictureThumbnail) ==
                      DtRawRecord::PictureThumbnail,
              "the reader's picture kinds are the record's");

namespace {

DtRawRecord::Picture which(KpzGalleryReader::PictureKind kind) {
  return static_cast<DtRawRecord::Picture>(kind);
}

}  // namespace

KpzGalleryReader::KpzGalleryReader()
    : m_file(), m_head(), m_headRead(0), m_parsed(false), m_record(), m_info() {}

KpzGalleryReader::~KpzGalleryReader() = default;

const char* KpzGalleryReader::Name(PictureKind kind) { return DtRawRecord::Name(which(kind)); }

bool KpzGalleryReader::OpenPath(const char* path, Failure* why) {
  return DtRawRecord::OpenPath(&m_file, path, why) && readHead(why) && parse(why);
}

bool KpzGalleryReader::OpenFd(int fd, Failure* why) { return openDescriptor(fd, false, why); }

bool KpzGalleryReader::openDescriptor(int fd, bool owned, Failure* why) {
  if (!DtRawRecord::OpenFd(&m_file, fd, why, owned)) {
    return false;
  }
  return readHead(why) && parse(why);
}

bool KpzGalleryReader::readHead(Failure* why) {
  m_head.reset(new (std::nothrow) UINT8[HEAD_SIZE]);
  if (!m_head) {
    why->Set(DtRawFailure::KindUnreadable, ENOMEM, 0, "not enough memory to read the file");
    return false;
  }
  // Up to the size just taken: no read is spent on finding the end.
  const std::uint64_t size = m_file.Size();
  const std::size_t want = size < HEAD_SIZE ? static_cast<std::size_t>(size) : HEAD_SIZE;
  std::size_t got = 0;
  const int err = m_file.GetData(0, want, m_head.get(), &got);
  if (err != 0) {
    why->m_kind = DtRawFailure::KindUnreadable;
    why->m_errno = err;
    why->m_code = 0;
    DtRawErrorText::ReadError(err, why->m_words, sizeof why->m_words);
    return false;
  }
  m_headRead = static_cast<UINT>(got);
  // As in the facade's own copy: zeros after the file's end.
  std::memset(m_head.get() + got, 0, HEAD_SIZE - got);
  return true;
}

bool KpzGalleryReader::parse(Failure* why) {
  const DtRawExpected<DtRawRecord> record =
      DtRawRecord::Parse(m_head.get(), HEAD_SIZE, m_file.Size());
  if (!record) {
    static_cast<DtRawFailure&>(*why) = record.Failure();
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
  const DtRawExpected<DtRawRecord::Range> preview = m_record.Locate(DtRawRecord::PicturePreview);
  if (preview) {
    info.m_previewLength = preview->m_length;
    info.m_previewWidth = m_record.m_previewWidth;
    info.m_previewHeight = m_record.m_previewHeight;
  }
  const DtRawExpected<DtRawRecord::Range> thumbnail =
      m_record.Locate(DtRawRecord::PictureThumbnail);
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
  const DtRawExpected<DtRawRecord::Range> range = m_record.Locate(which(kind));
  if (!range) {
    static_cast<DtRawFailure&>(*why) = range.Failure();
    return false;
  }
  picture->m_kind = kind;
  picture->m_offset = range->m_offset;
  picture->m_length = range->m_length;
  return true;
}

const UINT8* KpzGalleryReader::InHead(const Picture& picture) const {
  if (!m_head || !m_parsed || picture.m_offset > m_headRead ||
      picture.m_length > m_headRead - picture.m_offset) {
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
  range.m_picture = which(picture.m_kind);
  range.m_offset = picture.m_offset;
  range.m_length = picture.m_length;
  return DtRawRecord::ReadPicture(m_file, range, out, why);
}
