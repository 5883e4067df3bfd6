// KpzErrorText.cpp - the front ends' words for the library's initialisation
// results (kit/kpz, above jni/raw). See KpzErrorText.h for the contracts; the
// words themselves are the library's (jni/raw/DtRawErrorText), so that the
// JNI methods tell a file's failure as the tool does.

#include "kpz/KpzErrorText.h"

#include <cerrno>

#include "kpz/KpzSource.h"
#include "raw/DtRawError.h"
#include "raw/DtRawErrorText.h"

namespace {

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

}  // namespace

std::string KpzErrorText::Parse(int code, const UINT8* head, std::uint64_t fileSize) {
  char words[DtRawErrorText::WORDS_SIZE];
  DtRawErrorText::Parse(code, head, fileSize, words, sizeof words);
  return words;
}

std::string KpzErrorText::Initialize(int code) {
  char words[DtRawErrorText::WORDS_SIZE];
  DtRawErrorText::Initialize(code, words, sizeof words);
  return words;
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
  return DtRawErrorText::IsParseCode(code) ? Parse(code, probe.Head(), probe.Size())
                                           : Initialize(code);
}

std::string KpzErrorText::ForSource(KpzSource& source, int code) {
  return DtRawErrorText::IsParseCode(code) ? Parse(code, source.Head(), source.Size())
                                           : Initialize(code);
}

int KpzErrorText::OpenResult(int err) {
  switch (err) {
    case 0:
    case EISDIR:
    case ESPIPE:  // a pipe or socket: refused unread, no library result
      return 0;
    case ENOENT:
      return DtRawErrNotFound;
    case EIO:
      return DtRawErrIo;
    default:
      return DtRawErrOpen;
  }
}

const char* KpzErrorText::Directory() { return DtRawErrorText::Directory(); }
