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
// a head read whole that does not parse is described from where and why the
// parse itself recorded that it stopped (the head channel it ran through,
// DtRawHeadIo), as "not a KPZ raw file (<reason>)".
//
//   DtRawHeadIo io(source.Size());
//   DtRawRecord::ParseThrough(&raw, &io);
//   const int initRet = raw.Initialize(path);
//   KpzErrorText::ForParse(io, initRet);
//   // "not a KPZ raw file (only one directory, no second one after IFD0)"
//
// Holds nothing; every operation is a static function.
#ifndef KPZ_KIT_KPZ_KPZERRORTEXT_H
#define KPZ_KIT_KPZ_KPZERRORTEXT_H

#include <string>

class DtRawHeadIo;

class KpzErrorText {
 public:
  // Words for result `code` of a parse that ran through the head channel
  // `io` (DtRawRecord::ParseThrough). For a layout code (-305, -306, -307,
  // -400, -101): "not a KPZ raw file (<reason>)" with the reason the parse
  // recorded there as it stopped ("no camera model", "IFD1 lies past the end
  // of the file", ...); when it recorded none for that code, the code's own
  // words ("not a KPZ raw file (its directories cannot be read within the
  // first 64 KiB)", "... (no TIFF header)", "... (camera model, Exif data or
  // maker note missing)"). Any other code: "the file cannot be read as a KPZ
  // raw file (error <code>)".
  static std::string Stopped(int code, const DtRawHeadIo& io);

  // Words for result `code` of a failed DtRaw::Initialize(path) (file mode).
  // For a code that a failed read or a failed parse may give, the head is
  // read again by the tool: when that fails, its words ("file not found",
  // "input/output error while reading the file", ...); when it succeeds,
  // Stopped's words over the parse of that head for a parse code,
  // Initialize's otherwise.
  static std::string ForFile(const std::string& path, int code);

  // The same for a failed DtRaw::Initialize or InitializeBuf whose parse ran
  // through `io`: Stopped's words for a parse code, Initialize's otherwise.
  // Nothing is opened or parsed again.
  static std::string ForParse(const DtRawHeadIo& io, int code);

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
