// DtRawErrorText.h - the words in which a failure to read a KPZ file is
// told: the facade's result codes, the layout reasons of DtRawLayoutCheck,
// the system's errors while opening or reading, and the preview's and the
// thumbnail's own failures.
//
// Layer: jni/raw, beside the facade (DtRaw) and over DtRawLayoutCheck. The
// words live here once: the JNI methods hand them to Java, and the kit (and
// through it the kpz tool, the Python package and kpz.distributed) prints
// them, so one file fails in the same words everywhere. Each phrase is short
// and lower case: "file not found", "not a KPZ raw file (no camera model)",
// "no thumbnail stored in this file", "preview extends past the end of the
// file".
//
// Every operation writes into a caller's buffer of `size` bytes (the
// terminating zero included; cut short when too small; nothing at all when
// `out` is null or `size` is 0) and returns the length of the whole phrase,
// as snprintf does, so that a caller may size its buffer from a first call.
// A buffer of WORDS_SIZE bytes holds every phrase whole. Nothing allocates,
// nothing fails.
//
//   char words[DtRawErrorText::WORDS_SIZE];
//   DtRawErrorText::Stopped(initRet, headIo, words, sizeof words);
//   // "not a KPZ raw file (only one directory, no second one after IFD0)"
//   DtRawErrorText::NoPicture("thumbnail", words, sizeof words);
//   // "no thumbnail stored in this file"
//
// Holds nothing; every operation is a static function, safe on any thread.
#ifndef KPZ_RAW_DTRAWERRORTEXT_H
#define KPZ_RAW_DTRAWERRORTEXT_H

#include <cstdint>

#include "raw/DtRawLayoutCheck.h"
#include "util/DtNlTypes.h"

class DtRawHeadIo;

class DtRawErrorText {
 public:
  // Bytes that hold any phrase of this class and its terminating zero.
  static constexpr UINT WORDS_SIZE = 256;

  // Words for result `code` of a parse that read through the head channel
  // `io` (DtRawHeadIo), from where and why the parse recorded that it
  // stopped: for a layout code (-305, -306, -307, -400, -101) "not a KPZ raw
  // file (<reason>)" with the reason DtRawLayoutCheck::Recorded names; when
  // nothing was recorded for that code, the code's own words ("not a KPZ raw
  // file (its directories cannot be read within the first 64 KiB)", "...
  // (no TIFF header)", "... (camera model, Exif data or maker note
  // missing)"). Any other code: "the file cannot be read as a KPZ raw file
  // (error <code>)".
  // With `finding`, also the reason itself (DtRawLayoutCheck::Recorded's)
  // and with `at` where its part starts, when the words tell it (else a
  // Finding of ReasonNone and 0).
  static UINT Stopped(int code, const DtRawHeadIo& io, char* out, UINT size,
                      DtRawLayoutCheck::Finding* finding = nullptr, std::uint64_t* at = nullptr);

  // Kept for programs built against 1.0.0 (deprecated): Stopped's words for
  // `code` over the head of a file of `fileSize` bytes, parsed once more by
  // the facade through a head channel (DtRawLayoutCheck::Inspect); the
  // code's own words when `head` is null or that parse does not give `code`.
  // New code takes Stopped over the channel of its own parse.
  static UINT Parse(int code, const UINT8* head, std::uint64_t fileSize, char* out, UINT size);

  // Words for a failed DtRaw::Initialize result `code` as the facade reports
  // it, without looking at the file ("file not found", "not a KPZ raw file
  // (no TIFF header)", ...); a code without words of its own gives "the file
  // cannot be read as a KPZ raw file (error <code>)".
  static UINT Initialize(int code, char* out, UINT size);

  // True for the codes of the parse itself (the layout codes that Stopped
  // explains from the parse's record), false for every other code.
  static bool IsParseCode(int code);

  // Words for the system's error `err` met while opening a file or reading
  // its head: "file not found", "the file cannot be opened for reading
  // (permission denied)", "input/output error while reading the file",
  // Directory() for EISDIR, else "the file cannot be read (<the system's
  // words, lower case>)".
  static UINT ReadError(int err, char* out, UINT size);

  // Words for a read of the picture `what` ("preview", "thumbnail") that
  // failed with the system's error `err`, or, when `err` is 0, met the end of
  // the file first: "<what> extends past the end of the file",
  // "input/output error while reading the <what>", "the <what> cannot be
  // read (<the system's words>)".
  static UINT PictureReadError(const char* what, int err, char* out, UINT size);

  // "no <what> stored in this file": the file records no such picture.
  static UINT NoPicture(const char* what, char* out, UINT size);

  // "the <what> stored in this file is empty (0 bytes)".
  static UINT EmptyPicture(const char* what, char* out, UINT size);

  // "<what> extends past the end of the file": the picture recorded does not
  // lie wholly inside the file.
  static UINT PastEnd(const char* what, char* out, UINT size);

  // The largest thumbnail handed out, in bytes: 256 KiB. A thumbnail is a
  // small picture for a grid cell (160x120 by convention, a few KB as
  // JPEG); in a JPEG file the Exif segment that carries it cannot exceed
  // 64 KiB, its length being a 16-bit number. Four times that leaves room
  // for any camera's thumbnail while a hostile file claiming hundreds of
  // megabytes (inside a sparse file of that size) makes no front end
  // allocate or read more than this. Every front end refuses a larger one
  // with ThumbnailTooLarge's words before allocating anything for it.
  static constexpr UINT32 THUMBNAIL_MAX_SIZE = 256 * 1024;

  // "the thumbnail stored in this file is too large (<length> bytes; a
  // thumbnail is at most 262144)": a thumbnail of more than
  // THUMBNAIL_MAX_SIZE bytes.
  static UINT ThumbnailTooLarge(UINT32 length, char* out, UINT size);

  // "the <what>'s location cannot be read (error <code>)".
  static UINT Location(const char* what, int code, char* out, UINT size);

  // A preview whose offset is 2 GiB or more: "preview lies beyond the first
  // 2 GiB of the file, out of reach".
  static const char* PreviewOutOfReach();

  // An argument that names a directory where a file is needed: "is a
  // directory, not a KPZ raw file".
  static const char* Directory();

  // A file that is not a regular file (a device, a named pipe or a socket),
  // refused without being read: "not a regular file (a device, named pipe
  // or socket), not read".
  static const char* NotRegular();
};

#endif  // KPZ_RAW_DTRAWERRORTEXT_H
