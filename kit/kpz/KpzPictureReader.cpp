// KpzPictureReader.cpp - the preview and thumbnail JPEGs of a KPZ file for
// every front end (kit/kpz, above jni/raw). See KpzPictureReader.h.

#include "kpz/KpzPictureReader.h"

#include "kpz/KpzErrorText.h"
#include "kpz/KpzSource.h"
#include "raw/DtRaw.h"
#include "raw/DtRawError.h"
#include "raw/DtRawErrorText.h"
#include "raw/DtRawScreennailInfo.h"
#include "raw/DtRawThumbnailInfo.h"

namespace {

// True when `length` bytes at `offset` lie inside a file of `size` bytes.
bool insideFile(std::uint64_t size, std::uint64_t offset, std::uint64_t length) {
  return offset <= size && length <= size - offset;
}

// The library's words, for one picture (`what`: "preview" or "thumbnail").
std::string words(UINT (*say)(const char*, char*, UINT), const char* what) {
  char text[DtRawErrorText::WORDS_SIZE];
  say(what, text, sizeof text);
  return text;
}

}  // namespace

const char* KpzPictureReader::Name(Kind kind) {
  return kind == Kind::Preview ? "preview" : "thumbnail";
}

bool KpzPictureReader::Find(KpzSource& source, Kind kind, Picture* picture, std::string* error,
                            Problem* problem) {
  Problem unused;
  Problem& why = problem != nullptr ? *problem : unused;
  why = Problem();
  DtRaw raw;
  const int initRet = raw.InitializeBuf(source.Head(), static_cast<int>(KpzSource::kHeadSize));
  if (initRet != DtRawOk) {
    why = {Failure::NotKpz, initRet};
    *error = KpzErrorText::Parse(initRet, source.Head(), source.Size());
    return false;
  }
  const char* what = Name(kind);
  std::uint32_t offset = 0;
  std::uint32_t length = 0;
  int infoRet = DtRawOk;
  if (kind == Kind::Preview) {
    DtRawScreennailInfo info;
    infoRet = raw.GetScreennailInfo(&info);
    offset = info.m_fileOffset;
    length = info.m_size;
  } else {
    DtRawThumbnailInfo info;
    infoRet = raw.GetThumbnailInfo(&info);
    offset = info.m_fileOffset;
    length = info.m_size;
  }
  raw.Finalize();
  if (infoRet == DtRawErrNoData) {
    why = {Failure::NoPicture, infoRet};
    *error = words(DtRawErrorText::NoPicture, what);
    return false;
  }
  if (infoRet != DtRawOk) {
    why = {Failure::Location, infoRet};
    char text[DtRawErrorText::WORDS_SIZE];
    DtRawErrorText::Location(what, infoRet, text, sizeof text);
    *error = text;
    return false;
  }
  if (length == 0) {
    why = {Failure::NoPicture, DtRawOk};
    *error = words(DtRawErrorText::EmptyPicture, what);
    return false;
  }
  // As in the JNI entry: the preview's offset is a signed 32-bit number, so
  // an offset of 2 GiB or more is out of reach.
  if (kind == Kind::Preview && static_cast<INT32>(offset) < 0) {
    why = {Failure::Unusable, DtRawOk};
    *error = DtRawErrorText::PreviewOutOfReach();
    return false;
  }
  if (!insideFile(source.Size(), offset, length)) {
    why = {Failure::Unusable, DtRawOk};
    *error = words(DtRawErrorText::PastEnd, what);
    return false;
  }
  // A thumbnail is small: a larger one is refused before anything is
  // allocated or read for it (the bound and its words are the library's).
  if (kind == Kind::Thumbnail && length > DtRawErrorText::THUMBNAIL_MAX_SIZE) {
    why = {Failure::Unusable, DtRawOk};
    char text[DtRawErrorText::WORDS_SIZE];
    DtRawErrorText::ThumbnailTooLarge(length, text, sizeof text);
    *error = text;
    return false;
  }
  picture->offset = offset;
  picture->length = length;
  return true;
}
