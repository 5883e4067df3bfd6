// KpzErrorText.cpp - the kpz tool's words for the library's initialisation
// results (tools/kpz, above jni/raw). See KpzErrorText.h for the contracts.

#include "kpz/KpzErrorText.h"

#include <cerrno>

#include "kpz/KpzLayoutCheck.h"
#include "kpz/KpzSource.h"
#include "raw/DtRawError.h"

namespace {

std::string numbered(int code) {
  return "the file cannot be read as a KPZ raw file (error " + std::to_string(code) + ")";
}

// Codes a failed read of the head and a failed parse may both give.
bool readOrParse(int code) {
  switch (code) {
    case DtRawErrOpen:
    case DtRawErrNotFound:
    case DtRawErrClose:
    case DtRawErrSeek:
    case DtRawErrTell:
    case DtRawErrRead:
    case DtRawErrIo:
    case DtRawErrNotTiff:
    case DtRawErrFormat:
      return true;
    default:
      return false;
  }
}

// Words for a parse result `code` when the head is not at hand (or the
// head does not give that result): what the code itself says.
std::string withoutHead(int code) {
  switch (code) {
    case DtRawErrSeek:
    case DtRawErrTell:
    case DtRawErrRead:
      return "not a KPZ raw file (its directories cannot be read within the first 64 KiB)";
    case DtRawErrNotTiff:
      return "not a KPZ raw file (no TIFF header)";
    case DtRawErrFormat:
      return "not a KPZ raw file (camera model, Exif data or maker note missing)";
    default:
      return numbered(code);
  }
}

// The codes of a read that failed in the parse: the library's memory
// channel gives -307, the others name the same event at another step.
bool readFamily(int code) {
  return code == DtRawErrSeek || code == DtRawErrTell || code == DtRawErrRead;
}

// Codes of the parse itself.
bool parseCode(int code) {
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

}  // namespace

std::string KpzErrorText::Parse(int code, const UINT8* head, std::uint64_t fileSize) {
  if (head == nullptr || !parseCode(code)) {
    return withoutHead(code);
  }
  const KpzLayoutCheck::Finding found = KpzLayoutCheck::Inspect(head, fileSize);
  const bool same = found.code == code || (readFamily(found.code) && readFamily(code));
  const std::string words = KpzLayoutCheck::Words(found);
  if (!same || words.empty()) {
    return withoutHead(code);
  }
  return "not a KPZ raw file (" + words + ")";
}

std::string KpzErrorText::Initialize(int code) {
  switch (code) {
    case DtRawErrNotFound:
      return "file not found";
    case DtRawErrOpen:
      return "the file cannot be opened for reading";
    case DtRawErrIo:
      return "input/output error while reading the file";
    case DtRawErrRead:
    case DtRawErrClose:
      return "the file cannot be read";
    case DtRawErrNotTiff:
    case DtRawErrFormat:
    case DtRawErrSeek:
    case DtRawErrTell:
      return withoutHead(code);
    default:
      return numbered(code);
  }
}

std::string KpzErrorText::ForFile(const std::string& path, int code) {
  if (!readOrParse(code)) {
    return Initialize(code);
  }
  KpzSource probe;
  std::string why;
  if (!probe.Open(path, &why)) {
    return why;
  }
  return parseCode(code) ? Parse(code, probe.Head(), probe.Size()) : Initialize(code);
}

std::string KpzErrorText::ForSource(KpzSource& source, int code) {
  return parseCode(code) ? Parse(code, source.Head(), source.Size()) : Initialize(code);
}

int KpzErrorText::OpenResult(int err) {
  switch (err) {
    case 0:
    case EISDIR:
      return 0;
    case ENOENT:
      return DtRawErrNotFound;
    case EIO:
      return DtRawErrIo;
    default:
      return DtRawErrOpen;
  }
}

const char* KpzErrorText::Directory() { return "is a directory, not a KPZ raw file"; }
