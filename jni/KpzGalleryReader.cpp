// KpzGalleryReader.cpp - one KPZ file for a gallery, from one head read
// (jni/). See KpzGalleryReader.h.
#include "KpzGalleryReader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <limits>
#include <new>

#include "raw/DtRaw.h"
#include "raw/DtRawError.h"
#include "raw/DtRawLayoutCheck.h"
#include "raw/DtRawScreennailInfo.h"
#include "raw/DtRawThumbnailInfo.h"

static_assert(KpzGalleryReader::HEAD_SIZE == DtRaw::READ_SIZE,
              "the reader parses the head the facade reads");

namespace {

// The largest position pread takes: off_t is 32 bits on 32-bit Android.
const std::uint64_t kMaxOffset = static_cast<std::uint64_t>(std::numeric_limits<off_t>::max());

void fail(KpzGalleryReader::Failure* why, KpzGalleryReader::Kind kind, int err, const char* words) {
  why->m_kind = kind;
  why->m_errno = err;
  std::snprintf(why->m_words, sizeof why->m_words, "%s", words);
}

// Reads up to `size` bytes at `offset` of `fd` into `out`, going on after
// short counts and interrupted calls, until all are read, the end of the
// file, or an error. Returns the count read; *err is 0 or the errno of the
// failing call (EOVERFLOW for a position beyond what off_t holds).
std::uint64_t readAt(int fd, UINT8* out, std::uint64_t size, std::uint64_t offset, int* err) {
  *err = 0;
  std::uint64_t done = 0;
  while (done < size) {  // each pass reads at least one byte, or ends the loop
    const std::uint64_t at = offset + done;
    if (at > kMaxOffset) {
      *err = EOVERFLOW;
      break;
    }
    const std::uint64_t left = size - done;
    const std::size_t want = left > 0x40000000u ? 0x40000000u : static_cast<std::size_t>(left);
    const ssize_t got =
        pread(fd, out + static_cast<std::size_t>(done), want, static_cast<off_t>(at));
    if (got < 0) {
      if (errno == EINTR) {
        continue;
      }
      *err = errno;
      break;
    }
    if (got == 0) {
      break;  // the end of the file
    }
    done += static_cast<std::uint64_t>(got);
  }
  return done;
}

bool insideFile(std::uint64_t size, std::uint64_t offset, std::uint64_t length) {
  return offset <= size && length <= size - offset;
}

}  // namespace

KpzGalleryReader::KpzGalleryReader()
    : m_fd(-1),
      m_ownsFd(false),
      m_size(0),
      m_headRead(0),
      m_head(),
      m_parsed(false),
      m_info(),
      m_previewResult(DtRawErrNotInit),
      m_previewOffset(0),
      m_previewSize(0),
      m_thumbnailResult(DtRawErrNotInit),
      m_thumbnailOffset(0),
      m_thumbnailSize(0) {}

KpzGalleryReader::~KpzGalleryReader() {
  if (m_ownsFd && m_fd >= 0) {
    close(m_fd);
  }
}

const char* KpzGalleryReader::Name(PictureKind kind) {
  return kind == PicturePreview ? "preview" : "thumbnail";
}

bool KpzGalleryReader::OpenPath(const char* path, Failure* why) {
  // Non-blocking: opening a named pipe must not wait for a writer; nothing
  // changes for a regular file.
  const int fd = open(path, O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
  if (fd < 0) {
    const int err = errno;
    why->m_kind = KindUnreadable;
    why->m_errno = err;
    DtRawErrorText::ReadError(err, why->m_words, sizeof why->m_words);
    return false;
  }
  return openDescriptor(fd, true, why);
}

bool KpzGalleryReader::OpenFd(int fd, Failure* why) {
  if (fd < 0) {
    why->m_kind = KindUnreadable;
    why->m_errno = EBADF;
    DtRawErrorText::ReadError(EBADF, why->m_words, sizeof why->m_words);
    return false;
  }
  return openDescriptor(fd, false, why);
}

bool KpzGalleryReader::openDescriptor(int fd, bool owned, Failure* why) {
  m_fd = fd;
  m_ownsFd = owned;
  struct stat st;
  std::memset(&st, 0, sizeof st);
  if (fstat(fd, &st) != 0) {
    const int err = errno;
    why->m_kind = KindUnreadable;
    why->m_errno = err;
    DtRawErrorText::ReadError(err, why->m_words, sizeof why->m_words);
    return false;
  }
  if (S_ISDIR(st.st_mode)) {
    fail(why, KindUnreadable, EISDIR, DtRawErrorText::Directory());
    return false;
  }
  if (!S_ISREG(st.st_mode)) {
    // As the kpz tool: a device, named pipe or socket is not read (a pipe
    // could not be read positionally anyway).
    const bool stream = S_ISFIFO(st.st_mode) || S_ISSOCK(st.st_mode);
    fail(why, KindUnreadable, stream ? ESPIPE : 0, DtRawErrorText::NotRegular());
    return false;
  }
  m_size = st.st_size > 0 ? static_cast<std::uint64_t>(st.st_size) : 0u;
  return readHead(why) && parse(why);
}

bool KpzGalleryReader::readHead(Failure* why) {
  m_head.reset(new (std::nothrow) UINT8[HEAD_SIZE]);
  if (!m_head) {
    fail(why, KindUnreadable, ENOMEM, "not enough memory to read the file");
    return false;
  }
  // Up to the size just taken: no read is spent on finding the end.
  const UINT want = m_size < HEAD_SIZE ? static_cast<UINT>(m_size) : HEAD_SIZE;
  int err = 0;
  m_headRead = static_cast<UINT>(readAt(m_fd, m_head.get(), want, 0, &err));
  if (err != 0) {
    why->m_kind = KindUnreadable;
    why->m_errno = err;
    DtRawErrorText::ReadError(err, why->m_words, sizeof why->m_words);
    return false;
  }
  // As in the facade's own copy: zeros after the file's end.
  std::memset(m_head.get() + m_headRead, 0, HEAD_SIZE - m_headRead);
  return true;
}

bool KpzGalleryReader::parse(Failure* why) {
  DtRaw raw;
  const int initRet = raw.InitializeBuf(m_head.get(), static_cast<int>(HEAD_SIZE));
  if (initRet != DtRawOk) {
    // Laid out as something else, or a KPZ file cut short or with broken
    // pointers: the layout check tells which, when it meets the same code.
    Kind kind = KindNotKpz;
    if (DtRawErrorText::IsParseCode(initRet)) {
      const DtRawLayoutCheck::Finding found = DtRawLayoutCheck::Inspect(m_head.get(), m_size);
      if (found.m_code != DtRawOk && DtRawLayoutCheck::IsDamage(found.m_reason)) {
        kind = KindDamaged;
      }
    }
    why->m_kind = kind;
    why->m_errno = 0;
    DtRawErrorText::Parse(initRet, m_head.get(), m_size, why->m_words, sizeof why->m_words);
    return false;
  }

  DtRawScreennailInfo preview;
  preview.m_fileOffset = 0;
  preview.m_size = 0;
  preview.m_horizon = 0;
  preview.m_vertical = 0;
  m_previewResult = raw.GetScreennailInfo(&preview);
  m_previewOffset = preview.m_fileOffset;
  m_previewSize = preview.m_size;

  DtRawThumbnailInfo thumbnail;
  thumbnail.m_compression = 0;
  thumbnail.m_rotation = 0;
  thumbnail.m_size = 0;
  thumbnail.m_fileOffset = 0;
  m_thumbnailResult = raw.GetThumbnailInfo(&thumbnail);
  m_thumbnailOffset = thumbnail.m_fileOffset;
  m_thumbnailSize = thumbnail.m_size;

  Info& info = m_info;
  unsigned char rotation = 0;
  info.m_orientationRecorded = raw.GetRotationInfo(&rotation) == DtRawOk;
  info.m_orientation = info.m_orientationRecorded ? DtRaw::convRotInfoUsetoStd(rotation) : 1;
  info.m_hasModel = raw.GetModelName(info.m_model, sizeof info.m_model) == DtRawOk;
  if (!info.m_hasModel) {
    std::memset(info.m_model, 0, sizeof info.m_model);
  }
  info.m_hasDateTime = raw.GetOrgDateTime(&info.m_dateTime) == DtRawOk;
  if (!info.m_hasDateTime) {
    info.m_dateTime = DtRawDateTime();
  }
  raw.Finalize();
  m_parsed = true;

  Failure unused;
  Picture picture;
  if (Locate(PicturePreview, &picture, &unused)) {
    info.m_previewLength = picture.m_length;
    info.m_previewWidth = preview.m_horizon;
    info.m_previewHeight = preview.m_vertical;
  }
  if (Locate(PictureThumbnail, &picture, &unused)) {
    info.m_thumbnailLength = picture.m_length;
  }
  return true;
}

void KpzGalleryReader::GetInfo(Info* info) { *info = m_info; }

bool KpzGalleryReader::Locate(PictureKind kind, Picture* picture, Failure* why) {
  const char* const what = Name(kind);
  const Kind none = kind == PicturePreview ? KindNoPreview : KindNoThumbnail;
  const int result = kind == PicturePreview ? m_previewResult : m_thumbnailResult;
  const UINT32 offset = kind == PicturePreview ? m_previewOffset : m_thumbnailOffset;
  const UINT32 length = kind == PicturePreview ? m_previewSize : m_thumbnailSize;
  why->m_errno = 0;
  if (!m_parsed) {
    why->m_kind = KindUnreadable;
    DtRawErrorText::Initialize(DtRawErrNotInit, why->m_words, sizeof why->m_words);
    return false;
  }
  if (result == DtRawErrNoData) {
    why->m_kind = none;
    DtRawErrorText::NoPicture(what, why->m_words, sizeof why->m_words);
    return false;
  }
  if (result != DtRawOk) {
    why->m_kind = KindDamaged;
    DtRawErrorText::Location(what, result, why->m_words, sizeof why->m_words);
    return false;
  }
  if (length == 0) {
    why->m_kind = none;
    DtRawErrorText::EmptyPicture(what, why->m_words, sizeof why->m_words);
    return false;
  }
  // As in the screennail entries: the preview's offset is a signed 32-bit
  // number, so an offset of 2 GiB or more is out of reach.
  if (kind == PicturePreview && static_cast<INT32>(offset) < 0) {
    fail(why, KindDamaged, 0, DtRawErrorText::PreviewOutOfReach());
    return false;
  }
  if (!insideFile(m_size, offset, length)) {
    why->m_kind = KindDamaged;
    DtRawErrorText::PastEnd(what, why->m_words, sizeof why->m_words);
    return false;
  }
  // A thumbnail is small: a larger one is refused before anything is
  // allocated or read for it.
  if (kind == PictureThumbnail && length > DtRawErrorText::THUMBNAIL_MAX_SIZE) {
    why->m_kind = KindDamaged;
    DtRawErrorText::ThumbnailTooLarge(length, why->m_words, sizeof why->m_words);
    return false;
  }
  picture->m_kind = kind;
  picture->m_offset = offset;
  picture->m_length = length;
  return true;
}

const UINT8* KpzGalleryReader::InHead(const Picture& picture) const {
  if (!m_head || picture.m_offset > m_headRead ||
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
  int err = 0;
  const std::uint64_t got = readAt(m_fd, out, picture.m_length, picture.m_offset, &err);
  if (got == picture.m_length) {
    return true;
  }
  // err 0: the file ended first (it became shorter since it was measured).
  why->m_kind = err == 0 ? KindDamaged : KindUnreadable;
  why->m_errno = err;
  DtRawErrorText::PictureReadError(Name(picture.m_kind), err, why->m_words, sizeof why->m_words);
  return false;
}
