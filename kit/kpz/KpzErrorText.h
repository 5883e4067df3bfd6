// KpzErrorText.h - the words the kpz tool uses for the library's result codes.
//
// Part of the kit (kit/kpz), above the library's raw
// facade (jni/raw/DtRaw). Every command reports a failure as one line,
// "kpz: <file>: <words>"; the words for a failed initialisation, shared by
// all commands, come from here.
//
// The library's codes for a read that failed (-307, -305, -306) are also
// what its parse returns when a directory or a value it needs lies outside
// the first 64 KiB or past the end of the file, or when the file has only one
// directory. The tool tells these apart by reading the head itself
// (KpzSource): a read that fails there is reported with the system's words;
// a head read whole that does not parse is looked at by the library's layout
// check (DtRawLayoutCheck), which names the first thing that stops the
// parse, as "not a KPZ raw file (<reason>)".
//
//   KpzErrorText::Parse(initRet, src.Head(), src.Size());
//   // "not a KPZ raw file (only one directory, no second one after IFD0)"
//   KpzErrorText::ForFile("a.kpz", raw.Initialize("a.kpz"));   // after a failed Initialize
//
// Holds nothing; every operation is a static function.
#ifndef KPZ_KIT_KPZ_KPZERRORTEXT_H
#define KPZ_KIT_KPZ_KPZERRORTEXT_H

#include <cstdint>
#include <string>

#include "util/DtNlTypes.h"

class KpzSource;

class KpzErrorText {
 public:
  // Words for result `code` of a parse over a head that was read whole
  // (DtRaw::InitializeBuf over KpzSource::Head). `head` holds
  // KpzSource::kHeadSize bytes (zeros after the file's end), `fileSize` is the
  // file's real size. For a layout code (-305, -306, -307, -400, -101):
  // "not a KPZ raw file (<reason>)" with the reason DtRawLayoutCheck finds in
  // the head ("no camera model", "IFD1 lies past the end of the file", ...);
  // when the head is null or does not give that code, the code's own words
  // ("not a KPZ raw file (its directories cannot be read within the first
  // 64 KiB)", "... (no TIFF header)", "... (camera model, Exif data or maker
  // note missing)"). Any other code: "the file cannot be read as a KPZ raw
  // file (error <code>)".
  static std::string Parse(int code, const UINT8* head, std::uint64_t fileSize);

  // Words for result `code` of a failed DtRaw::Initialize(path) (file mode).
  // For a code that a failed read or a failed parse may give, the head is
  // read again by the tool: when that fails, its words ("file not found",
  // "input/output error while reading the file", ...); when it succeeds,
  // Parse's words over that head for a parse code, Initialize's otherwise.
  static std::string ForFile(const std::string& path, int code);

  // The same for a file the tool opened and read the head of itself
  // (KpzSource::Open) before the library's Initialize failed with `code`:
  // Parse's words over that head for a parse code, Initialize's otherwise.
  // Nothing is opened again.
  static std::string ForSource(KpzSource& source, int code);

  // The library's result code for a file the tool could not open or read
  // with errno `err` (KpzSource::Errno), as the library's own Initialize
  // gives it: -302 file not found, -399 input/output error, -300 any other
  // error; 0 for `err` 0 or EISDIR (a directory, a device, pipe or socket
  // is not opened as a file at all: no code).
  static int OpenResult(int err);

  // A short lower-case phrase for a failed DtRaw::Initialize result `code`
  // as the library reports it, without looking at the file ("file not
  // found", "not a KPZ raw file (no TIFF header)", ...); a code without words
  // of its own gives "the file cannot be read as a KPZ raw file (error
  // <code>)".
  static std::string Initialize(int code);

  // The phrase for an argument that names a directory where a file is needed.
  static const char* Directory();
};

#endif  // KPZ_KIT_KPZ_KPZERRORTEXT_H
