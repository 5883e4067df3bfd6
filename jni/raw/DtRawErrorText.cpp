// DtRawErrorText.cpp - the words of every failure to read a KPZ file
// (jni/raw). See DtRawErrorText.h for the contracts.

#include "raw/DtRawErrorText.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "raw/DtRawError.h"
#include "raw/DtRawLayoutCheck.h"

namespace {

// snprintf into `out` (`size` bytes; only the length when `out` is null or
// `size` 0), giving the length of the whole text.
UINT put(char* out, UINT size, const char* format, ...) __attribute__((format(printf, 3, 4)));
UINT put(char* out, UINT size, const char* format, ...) {
  char none[1];
  if (out == nullptr || size == 0) {
    out = none;
    size = 1;
  }
  va_list args;
  va_start(args, format);
  const int n = std::vsnprintf(out, size, format, args);
  va_end(args);
  return n < 0 ? 0u : static_cast<UINT>(n);
}

UINT numbered(int code, char* out, UINT size) {
  return put(out, size, "the file cannot be read as a KPZ raw file (error %d)", code);
}

// Codes of a read that failed in the parse: the memory channel gives -307,
// the others name the same event at another step.
bool readFamily(int code) {
  return code == DtRawErrSeek || code == DtRawErrTell || code == DtRawErrRead;
}

// Words for a parse result `code` when the head is not at hand (or the head
// does not give that result): what the code itself says.
UINT withoutHead(int code, char* out, UINT size) {
  switch (code) {
    case DtRawErrSeek:
    case DtRawErrTell:
    case DtRawErrRead:
      return put(out, size, "%s",
                 "not a KPZ raw file (its directories cannot be read within the first 64 KiB)");
    case DtRawErrNotTiff:
      return put(out, size, "%s", "not a KPZ raw file (no TIFF header)");
    case DtRawErrFormat:
      return put(out, size, "%s",
                 "not a KPZ raw file (camera model, Exif data or maker note missing)");
    default:
      return numbered(code, out, size);
  }
}

// The system's words for `err` (strerror_r, whichever of its two forms the C
// library has), starting in lower case, into `out` (`size` >= 2 bytes).
[[maybe_unused]] const char* chosen(int result, const char* buffer) {
  return result == 0 ? buffer : nullptr;
}
[[maybe_unused]] const char* chosen(const char* result, const char* /*buffer*/) { return result; }

void systemWords(int err, char* out, UINT size) {
  out[0] = '\0';
  const char* words = chosen(strerror_r(err, out, size), out);
  if (words == nullptr) {
    std::snprintf(out, size, "error %d", err);
  } else if (words != out) {
    std::snprintf(out, size, "%s", words);
  }
  if (out[0] >= 'A' && out[0] <= 'Z') {
    out[0] = static_cast<char>(out[0] - 'A' + 'a');
  }
}

}  // namespace

bool DtRawErrorText::IsParseCode(int code) {
  switch (code) {
    case DtRawErrSeek:
    case DtRawErrTell:
    case DtRawErrRead:
    case DtRawErrNotTiff:
    case DtRawErrFormat:
      return true;
    default:
      return false;
  }
}

namespace {

// "not a KPZ raw file (<reason>)" for `found` when it explains `code`, else
// the code's own words.
UINT explained(int code, const DtRawLayoutCheck::Finding& found, char* out, UINT size) {
  const bool same = found.m_code == code || (readFamily(found.m_code) && readFamily(code));
  char reason[DtRawLayoutCheck::WORDS_SIZE];
  const UINT length = DtRawLayoutCheck::Words(found, reason, sizeof reason);
  if (!same || length == 0) {
    return withoutHead(code, out, size);
  }
  return put(out, size, "not a KPZ raw file (%s)", reason);
}

}  // namespace

UINT DtRawErrorText::Parse(int code, const UINT8* head, std::uint64_t fileSize, char* out,
                           UINT size) {
  if (head == nullptr || !IsParseCode(code)) {
    return withoutHead(code, out, size);
  }
  return explained(code, DtRawLayoutCheck::Inspect(head, fileSize), out, size);
}

UINT DtRawErrorText::Stopped(int code, const DtRawHeadIo& io, char* out, UINT size,
                             DtRawLayoutCheck::Finding* finding, std::uint64_t* at) {
  DtRawLayoutCheck::Finding found;
  std::uint64_t where = 0;
  if (IsParseCode(code)) {
    found = DtRawLayoutCheck::Recorded(io, code, &where);
  }
  const UINT length = explained(code, found, out, size);
  // The reason only where the words are its own.
  const bool told = IsParseCode(code) && (found.m_code == code ||
                                          (readFamily(found.m_code) && readFamily(code))) &&
                    found.m_reason != DtRawLayoutCheck::ReasonNone;
  if (finding != nullptr) {
    *finding = told ? found : DtRawLayoutCheck::Finding();
  }
  if (at != nullptr) {
    *at = told ? where : 0;
  }
  return length;
}

UINT DtRawErrorText::Initialize(int code, char* out, UINT size) {
  switch (code) {
    case DtRawErrNotFound:
      return put(out, size, "%s", "file not found");
    case DtRawErrOpen:
      return put(out, size, "%s", "the file cannot be opened for reading");
    case DtRawErrIo:
      return put(out, size, "%s", "input/output error while reading the file");
    case DtRawErrRead:
    case DtRawErrClose:
      return put(out, size, "%s", "the file cannot be read");
    case DtRawErrNotTiff:
    case DtRawErrFormat:
    case DtRawErrSeek:
    case DtRawErrTell:
      return withoutHead(code, out, size);
    default:
      return numbered(code, out, size);
  }
}

UINT DtRawErrorText::ReadError(int err, char* out, UINT size) {
  switch (err) {
    case ENOENT:
      return put(out, size, "%s", "file not found");
    case EACCES:
    case EPERM:
      return put(out, size, "%s", "the file cannot be opened for reading (permission denied)");
    case EIO:
      return put(out, size, "%s", "input/output error while reading the file");
    case EISDIR:
      return put(out, size, "%s", Directory());
    default: {
      char words[WORDS_SIZE / 2];
      systemWords(err, words, sizeof words);
      return put(out, size, "the file cannot be read (%s)", words);
    }
  }
}

UINT DtRawErrorText::PictureReadError(const char* what, int err, char* out, UINT size) {
  if (err == 0) {
    return PastEnd(what, out, size);
  }
  if (err == EIO) {
    return put(out, size, "input/output error while reading the %s", what);
  }
  char words[WORDS_SIZE / 2];
  systemWords(err, words, sizeof words);
  return put(out, size, "the %s cannot be read (%s)", what, words);
}

UINT DtRawErrorText::NoPicture(const char* what, char* out, UINT size) {
  return put(out, size, "no %s stored in this file", what);
}

UINT DtRawErrorText::EmptyPicture(const char* what, char* out, UINT size) {
  return put(out, size, "the %s stored in this file is empty (0 bytes)", what);
}

UINT DtRawErrorText::PastEnd(const char* what, char* out, UINT size) {
  return put(out, size, "%s extends past the end of the file", what);
}

UINT DtRawErrorText::ThumbnailTooLarge(UINT32 length, char* out, UINT size) {
  return put(out, size, "the thumbnail stored in this file is too large (%u bytes; a thumbnail is "
             "at most %u)", static_cast<unsigned>(length), static_cast<unsigned>(THUMBNAIL_MAX_SIZE));
}

UINT DtRawErrorText::Location(const char* what, int code, char* out, UINT size) {
  return put(out, size, "the %s's location cannot be read (error %d)", what, code);
}

const char* DtRawErrorText::PreviewOutOfReach() {
  return "preview lies beyond the first 2 GiB of the file, out of reach";
}

const char* DtRawErrorText::Directory() { return "is a directory, not a KPZ raw file"; }

const char* DtRawErrorText::NotRegular() {
  return "not a regular file (a device, named pipe or socket), not read";
}
