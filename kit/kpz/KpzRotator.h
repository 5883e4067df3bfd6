// KpzRotator.h - `rotate` on one KPZ raw file: reads
// the picture's orientation, works out the new one and writes it in place.
//
// Part of the kit (kit/kpz), above the library's raw
// facade: one DtRaw per call. The current rotation code comes from
// DtRaw::GetRotationInfo, the new one from KpzRotation (a turn) or from the
// caller (a code); it is queued with DtRaw::SetRotationInfo and written with
// DtRaw::Update(nullptr), which changes only the orientation values in
// place (and, where the library keeps them in step, IFD1's DateTime) and
// sets the file's access and modification times back to what they were.
// A dry run stops after SetRotationInfo: its checks run, nothing is written.
//
//   KpzRotator::Change change;
//   change.turn = KpzRotation::Direction::Clockwise;
//   KpzRotator::Outcome out = KpzRotator::Rotate("a.kpz", change, /*dryRun=*/false);
//   // out.ok, out.before == 0, out.after == 1, out.written
//
// Holds nothing; every operation is a static function. The library's lines
// go to standard error as usual (see KpzQuietStderr).
#ifndef KPZ_KIT_KPZ_KPZROTATOR_H
#define KPZ_KIT_KPZ_KPZROTATOR_H

#include <string>

#include "kpz/KpzRotation.h"

class KpzSource;

class KpzRotator {
 public:
  // What to do: turn the picture, or set a rotation code outright.
  struct Change {
    bool setCode = false;  // true: `code`; false: `turn`
    KpzRotation::Direction turn = KpzRotation::Direction::Clockwise;
    unsigned char code = 0;  // 0..KpzRotation::kLastCode
  };

  enum class Failure {
    None,
    Input,  // the file cannot be read, is not a KPZ file or has no orientation
    Output  // the file cannot be changed (read-only, write failure, ...)
  };

  struct Outcome {
    bool ok = false;
    Failure failure = Failure::None;
    std::string error;          // words for the failure; empty on success
    int result = 0;             // the library's code for the failure, 0 otherwise
    unsigned char before = 0;   // the code read from the file (valid once read)
    unsigned char after = 0;    // the code asked for (valid once read)
    bool written = false;       // the file was changed
    int openErrno = 0;          // the system's error when the file could not be opened
  };

  // Applies `change` to the file at `path` (see above). With `dryRun` or
  // when the new code equals the current one, nothing is written and
  // `written` stays false. On failure `error` says what failed in words.
  // The file is opened once (KpzSource::Open: a directory, device, pipe or
  // socket is refused in its words without waiting) and the library works
  // on that very file. Every place the change writes (IFD0's and IFD1's
  // orientation, IFD1's date and time) and the bytes it copies (IFD0's
  // date and time, into IFD1's) are checked before the first byte is
  // written: each must lie inside the file, after its 8-byte TIFF header
  // and below 2 GiB, the copied bytes within the first 64 KiB that were
  // read, and no written value may overlap another's entry or the bytes it
  // is copied from. Otherwise the change is refused with nothing written
  // (result -305) and the words name the place. The library seeks to an
  // offset with its sign and its read of the head clamps a negative one to
  // byte 0, as it is meant to; the refusal is made here, before it is
  // asked to write. After a write the whole modification time is set
  // back, nanoseconds included.
  static Outcome Rotate(const std::string& path, const Change& change, bool dryRun);

  // The same on a file already opened by KpzSource::Open (its name is not
  // looked at again).
  static Outcome Rotate(KpzSource& source, const Change& change, bool dryRun);

  // The line the tool prints for a success: "<path>: <before> -> <after>",
  // with " (dry run, not written)" or " (unchanged)" appended as it applies,
  // and a newline.
  static std::string Report(const std::string& path, const Outcome& outcome, bool dryRun);
};

#endif  // KPZ_KIT_KPZ_KPZROTATOR_H
