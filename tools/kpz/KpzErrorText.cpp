// KpzErrorText.cpp - the kpz tool's words for the library's initialisation
// results (tools/kpz, above jni/raw). See KpzErrorText.h for the contracts.

#include "kpz/KpzErrorText.h"

#include "raw/DtRawError.h"

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
      return "not a KPZ raw file (no TIFF header)";
    case DtRawErrFormat:
      return "not a KPZ raw file (camera model, Exif data or maker note missing)";
    case DtRawErrSeek:
    case DtRawErrTell:
      return "damaged KPZ raw file (a directory lies outside the first 64 KiB)";
    default:
      return "the file cannot be read as a KPZ raw file (error " + std::to_string(code) + ")";
  }
}

const char* KpzErrorText::Directory() { return "is a directory, not a KPZ raw file"; }
