// KpzErrorText.h - the words the kpz tool uses for the library's result codes.
//
// Part of the kpz command-line tool (tools/kpz), above the library's raw
// facade (jni/raw/DtRaw). Every command reports a failure as one line,
// "kpz: <file>: <words>"; the words for a failed initialisation, shared by
// all commands, come from here.
//
// The library's codes for a read that failed (-307, -305, -306) are also
// what its parse returns when a directory, a value or the maker note lies
// outside the first 64 KiB or past the end of the file. The tool tells the
// two apart by reading the head itself (KpzSource): a read that fails there
// is reported with the system's words; a head read whole that does not
// parse is reported as a file that is not laid out as a KPZ file.
//
//   KpzErrorText::Parse(DtRawErrRead);
//   // "not a KPZ raw file (its directories lie outside the first 64 KiB or past its end)"
//   KpzErrorText::ForFile("a.kpz", raw.Initialize("a.kpz"));   // after a failed Initialize
//
// Holds nothing; every operation is a static function.
#ifndef KPZ_TOOLS_KPZ_KPZERRORTEXT_H
#define KPZ_TOOLS_KPZ_KPZERRORTEXT_H

#include <string>

class KpzErrorText {
 public:
  // Words for result `code` of a parse over a head that was read whole
  // (DtRaw::InitializeBuf over KpzSource::Head): "not a KPZ raw file (...)"
  // for the layout codes, "the file cannot be read as a KPZ raw file (error
  // <code>)" for any other.
  static std::string Parse(int code);

  // Words for result `code` of a failed DtRaw::Initialize(path) (file mode).
  // For a code that a failed read or a failed parse may give, the head is
  // read again by the tool: when that fails, its words ("file not found",
  // "input/output error while reading the file", ...); when it succeeds,
  // Parse's words for a parse code, Initialize's otherwise.
  static std::string ForFile(const std::string& path, int code);

  // A short lower-case phrase for a failed DtRaw::Initialize result `code`
  // as the library reports it ("file not found", "not a KPZ raw file (no
  // TIFF header)", ...); a code without words of its own gives "the file
  // cannot be read as a KPZ raw file (error <code>)".
  static std::string Initialize(int code);

  // The phrase for an argument that names a directory where a file is needed.
  static const char* Directory();

  // The phrase for a parse that ran out of the head or past the file's end.
  static const char* OutsideHead();
};

#endif  // KPZ_TOOLS_KPZ_KPZERRORTEXT_H
