// KpzLayoutCheck.h - why the library's parse of a file's head fails, in
// words that are true for that file.
//
// Part of the kit (kit/kpz), beside the library's raw facade (jni/raw/DtRaw).
// A thin face of the library's own check, jni/raw/DtRawLayoutCheck, which
// walks the head the way the parse does and names the first thing that
// stops it; the walk and its words live there once, so that the JNI methods
// and the kit's front ends describe a file alike. This class gives the kit
// its types (scoped enums, std::string words) over it.
//
// Contract (DtRawLayoutCheck's):
//  - `head` holds exactly kHeadSize bytes (KpzSource::Head(): the file's
//    first bytes, zeros after its end); `fileSize` is the file's real size.
//  - Inspect never reads outside the head, allocates nothing and never
//    fails: any bytes give a Finding.
//  - Finding::code is the result code the library's parse gives over the
//    same head (0 when it parses); the reason is meaningful only when the
//    code is not 0. A caller that got a different code from the library (the
//    file changed in between) must not use the reason.
//
//   const KpzLayoutCheck::Finding f = KpzLayoutCheck::Inspect(src.Head(), src.Size());
//   if (f.code == initRet) { words = KpzLayoutCheck::Words(f); }   // "no camera model"
//
// Holds nothing; every operation is a static function.
#ifndef KPZ_KIT_KPZ_KPZLAYOUTCHECK_H
#define KPZ_KIT_KPZ_KPZLAYOUTCHECK_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "raw/DtRawLayoutCheck.h"
#include "util/DtNlTypes.h"

class KpzLayoutCheck {
 public:
  // Bytes of the head: KpzSource::kHeadSize, DtRaw::READ_SIZE.
  static constexpr std::uint32_t kHeadSize = 0x10000;

  // The part of the file a reason is about.
  enum class Part {
    None,
    Ifd0,
    Ifd1,
    Exif,         // the Exif directory
    Iob,          // the interoperability directory
    MakerNote,    // the maker note (its header and directory)
    KmMakerNote,  // the Km maker note of the model "DSLR-M372"
  };

  // Why the parse stops. The words of each are in Words().
  enum class Reason {
    None,            // the head parses
    Empty,           // "the file is empty"
    NotTiff,         // "no TIFF header"
    HeaderCut,       // "the file ends within its TIFF header"
    OneDirectory,    // "only one directory, no second one after IFD0"
    ZeroOffset,      // "the offset of <part> is 0"
    PastEnd,         // "<part> lies past the end of the file"
    RunsPastEnd,     // "<part> runs past the end of the file"
    BeyondHead,      // "<part> lies beyond the first 64 KiB"
    RunsBeyondHead,  // "<part> runs beyond the first 64 KiB"
    NoModel,         // "no camera model"
    EmptyModel,      // "the camera model is empty"
    LongModel,       // "the camera model is longer than 32 bytes"
    NoExif,          // "no Exif data"
    BadExifPointer,  // "the Exif pointer is not a 4-byte offset (it has <n> bytes)"
    NoMakerNote,     // "no maker note"
    NotKavi,         // "the maker note has no KAVI header"
    NoKmPointer,     // "no pointer to the Km maker note"
    BadKmPointer,    // "the pointer to the Km maker note is not a 4-byte offset (it has <n> bytes)"
  };

  struct Finding {
    int code = 0;  // the library's parse result over this head
    Reason reason = Reason::None;
    Part part = Part::None;   // for ZeroOffset, PastEnd ... RunsBeyondHead
    bool value = false;       // true: a value stored for `part`, not the part itself
    std::uint64_t bytes = 0;  // for BadExifPointer and BadKmPointer: the value's length
  };

  // Walks `head` (kHeadSize bytes) of a file of `fileSize` bytes as the
  // library's parse does. A null head gives a Finding with code 0. When the
  // parse fails after it read part of a directory or value from beyond the
  // end of a cut file (zeros there), the reason names that part as running
  // (or lying) past the end of the file: what the zeros made the parse
  // meet next ("only one directory", "no maker note", ...) is not the cause.
  static Finding Inspect(const UINT8* head, std::uint64_t fileSize);

  // Where the walk found each target tag, as the library records it
  // (DtRawLayoutCheck::Place: part, tag, entry, value's place and size, the
  // value's bytes when short; PastEnd(fileSize); Places::Get and ::Cut).
  using Place = DtRawLayoutCheck::Place;
  using Places = DtRawLayoutCheck::Places;

  // The walk of Inspect, keeping where each target tag lies. Never fails;
  // a directory the walk could not read contributes nothing.
  static Places Locate(const UINT8* head, std::uint64_t fileSize);

  // The reason in words, short and lower case, without the "not a KPZ raw
  // file" around it ("no camera model", "IFD1 lies past the end of the
  // file", "a value in IFD0 runs beyond the first 64 KiB"); "" for None.
  static std::string Words(const Finding& finding);
};

#endif  // KPZ_KIT_KPZ_KPZLAYOUTCHECK_H
