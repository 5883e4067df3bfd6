// DtRawFailure.h - why a KPZ file could not be used: one kind out of a short
// list, the system's error and the library's result code where they apply,
// and the words every front end shows.
//
// Layer: jni/raw, beside the failure words (DtRawErrorText). The record
// parse (DtRawRecord) and the picture reads fill one as they fail; each
// front end maps the kind with one table of its own (Java's
// KpzException.Kind, numbered alike; the kpz tool's exit status; Python's
// exception classes, by Name()).
//
//   DtRawFailure why;
//   why.Set(DtRawFailure::KindNotKpz, 0, -400, "not a KPZ raw file (no TIFF header)");
//
// A plain record: no pointers, copyable.
#ifndef KPZ_RAW_DTRAWFAILURE_H
#define KPZ_RAW_DTRAWFAILURE_H

#include <cstdint>

#include "raw/DtRawErrorText.h"
#include "raw/DtRawLayoutCheck.h"
#include "util/DtNlTypes.h"

class DtRawFailure {
 public:
  // The kinds, numbered as the Java enum KpzException.Kind. The kind is the
  // one the words say: every "not a KPZ raw file (...)" is KindNotKpz, also
  // for a file cut short inside its directories.
  enum Kind : INT32 {
    KindNone = -1,        // no failure
    KindNotKpz = 0,       // the head does not parse as a KPZ raw file
    KindDamaged = 1,      // a picture that does not lie inside the file, lies out of reach,
                          // is too large (a thumbnail), whose location cannot be read, or
                          // whose read meets the end of the file first
    KindNoPreview = 2,    // no preview recorded, or an empty one
    KindNoThumbnail = 3,  // no thumbnail recorded, or an empty one
    KindUnreadable = 4,   // cannot be opened or read (m_errno: the system's error, or 0
                          // for a directory, device, pipe or socket refused unread)
  };

  Kind m_kind = KindNone;
  int m_errno = 0;  // the system's error, 0 when not the system's
  int m_code = 0;   // the library's result code, 0 when none applies
  char m_words[DtRawErrorText::WORDS_SIZE] = {};  // zero-terminated

  // Where and why the parse of a head stopped, as the parser recorded it
  // (a head that does not parse; else ReasonNone, PartNone, 0): the reason
  // and the part of the file it names (DtRawLayoutCheck's Reason and Part,
  // which m_words tells), whether a value stored for that part rather than
  // the part itself, and the part's (or value's) offset in the file as
  // recorded (0 when the reason names no place).
  DtRawLayoutCheck::Reason m_reason = DtRawLayoutCheck::ReasonNone;
  DtRawLayoutCheck::Part m_part = DtRawLayoutCheck::PartNone;
  bool m_value = false;
  std::uint64_t m_at = 0;

  // Sets every field (the place to none); `words` is copied (cut to fit),
  // null gives "".
  void Set(Kind kind, int err, int code, const char* words);

  // A short lower-case name of `kind` for front ends that pick a class by
  // name: "not_kpz", "damaged", "no_preview", "no_thumbnail", "unreadable";
  // "none" for KindNone and anything else.
  static const char* Name(Kind kind);
};

#endif  // KPZ_RAW_DTRAWFAILURE_H
