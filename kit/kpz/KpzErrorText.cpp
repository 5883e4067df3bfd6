// KpzErrorText.cpp - the front ends' words for the library's initialisation
// results (kit/kpz, above jni/raw). See KpzErrorText.h for the contracts; the
// words themselves are the library's (jni/raw/DtRawErrorText), so that the
// JNI methods tell a file's failure as the tool does.

#include "kpz/KpzErrorText.h"

#include <cerrno>

#include "kpz/KpzSource.h"
#include "raw/DtRawError.h"
#include "raw/DtRaw.h"
#include "raw/DtRawErrorText.h"
#include "raw/DtRawRecord.h"
#include "raw/parser/DtRawHeadIo.h"

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

std::string KpzErrorText::Stopped(int code, const DtRawHeadIo& io) {
  char words[DtRawErrorText::WORDS_SIZE];
  DtRawErrorText::Stopped(code, io, words, sizeof words);
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
  if (!DtRawErrorText::IsParseCode(code)) {
    return Initialize(code);
  }
  // The head read again, parsed once through a head channel: its record
  // says why, when it fails with `code` too.
  DtRawHeadIo io(probe.Size());
  DtRaw raw;
  DtRawRecord::ParseThrough(&raw, &io);
  (void)raw.InitializeBuf(probe.Head(), static_cast<int>(KpzSource::kHeadSize));
  return Stopped(code, io);
}

std::string KpzErrorText::ForParse(const DtRawHeadIo& io, int code) {
  return DtRawErrorText::IsParseCode(code) ? Stopped(code, io) : Initialize(code);
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
