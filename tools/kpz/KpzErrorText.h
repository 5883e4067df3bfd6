// KpzErrorText.h - the words the kpz tool uses for the library's result codes.
//
// Part of the kpz command-line tool (tools/kpz), above the library's raw
// facade (jni/raw/DtRaw). Every command reports a failure as one line,
// "kpz: <file>: <words>"; the words for a failed DtRaw::Initialize, shared by
// all commands, come from here.
//
//   std::string why = KpzErrorText::Initialize(DtRawErrNotFound);  // "file not found"
//
// Holds nothing; every operation is a static function.
#ifndef KPZ_TOOLS_KPZ_KPZERRORTEXT_H
#define KPZ_TOOLS_KPZ_KPZERRORTEXT_H

#include <string>

class KpzErrorText {
 public:
  // A short lower-case phrase for a failed DtRaw::Initialize result `code`
  // ("file not found", "not a KPZ raw file (no TIFF header)", ...); a code
  // without words of its own gives "the file cannot be read as a KPZ raw file
  // (error <code>)".
  static std::string Initialize(int code);

  // The phrase for an argument that names a directory where a file is needed.
  static const char* Directory();
};

#endif  // KPZ_TOOLS_KPZ_KPZERRORTEXT_H
