// DtRawLayoutCheck.h - why the parse of a file's head fails, in words that
// are true for that file.
//
// Layer: jni/raw, beside the facade (DtRaw) and over the parse's head
// channel (DtRawHeadIo). The facade parses only the first 64 KiB of a file
// (the head, zero-filled after the end of a shorter file) and reports a
// directory it cannot read there with the same result code (-307) whether
// the file has only one directory, a directory beyond the first 64 KiB or a
// pointer past its end. The parse records where and why it stopped as it
// fails, in the head channel it runs through; Recorded names the reason from
// that record, using the file's real size to tell "past the end of the
// file" from "beyond the first 64 KiB". Nothing is looked up in the head
// again. Every front end (the JNI methods, the kit and through it the kpz
// tool and the Python package) takes its reasons from here, so a file is
// described in the same words everywhere.
//
// Contract:
//  - Finding::m_code is the result code of the step that recorded (0 when
//    the head parses); the reason is meaningful only when the code is not
//    0. A caller that got a different code from the facade must not use the
//    reason (DtRawErrorText::Stopped checks this).
//  - Words writes at most `size` bytes, its terminating zero included, and
//    never allocates.
//
//   const DtRawLayoutCheck::Finding f = DtRawLayoutCheck::Recorded(io, initRet);
//   char words[DtRawLayoutCheck::WORDS_SIZE];
//   DtRawLayoutCheck::Words(f, words, sizeof words);
//
// Holds nothing; every operation is a static function.
#ifndef KPZ_RAW_DTRAWLAYOUTCHECK_H
#define KPZ_RAW_DTRAWLAYOUTCHECK_H

#include <cstdint>

#include "util/DtNlTypes.h"

class DtRawHeadIo;

class DtRawLayoutCheck {
 public:
  // Bytes of the head: DtRaw::READ_SIZE (checked in DtRawLayoutCheck.cpp).
  static constexpr UINT HEAD_SIZE = 0x10000;

  // A buffer of this many bytes holds any reason's words and their zero.
  static constexpr UINT WORDS_SIZE = 128;

  // The part of the file a reason is about.
  enum Part : INT32 {
    PartNone,
    PartIfd0,
    PartIfd1,
    PartExif,         // the Exif directory
    PartIob,          // the interoperability directory
    PartMakerNote,    // the maker note (its header and directory)
    PartKmMakerNote,  // the Km maker note of the model "DSLR-M372"
  };

  // Why the parse stops. The words of each are in Words().
  enum Reason : INT32 {
    ReasonNone,            // the head parses
    ReasonEmpty,           // "the file is empty"
    ReasonNotTiff,         // "no TIFF header"
    ReasonHeaderCut,       // "the file ends within its TIFF header"
    ReasonOneDirectory,    // "only one directory, no second one after IFD0"
    ReasonZeroOffset,      // "the offset of <part> is 0"
    ReasonPastEnd,         // "<part> lies past the end of the file"
    ReasonRunsPastEnd,     // "<part> runs past the end of the file"
    ReasonBeyondHead,      // "<part> lies beyond the first 64 KiB"
    ReasonRunsBeyondHead,  // "<part> runs beyond the first 64 KiB"
    ReasonNoModel,         // "no camera model"
    ReasonEmptyModel,      // "the camera model is empty"
    ReasonLongModel,       // "the camera model is longer than 32 bytes"
    ReasonNoExif,          // "no Exif data"
    ReasonBadExifPointer,  // "the Exif pointer is not a 4-byte offset (it has <n> bytes)"
    ReasonNoMakerNote,     // "no maker note"
    ReasonNotKavi,         // "the maker note has no KAVI header"
    ReasonNoKmPointer,     // "no pointer to the Km maker note"
    ReasonBadKmPointer,    // "the pointer to the Km maker note is not a 4-byte offset (it has <n>
                           // bytes)"
  };

  struct Finding {
    int m_code = 0;  // the result of the parse step that recorded the reason
    Reason m_reason = ReasonNone;
    Part m_part = PartNone;     // for ReasonZeroOffset, ReasonPastEnd ... ReasonRunsBeyondHead
    bool m_value = false;       // true: a value stored for `m_part`, not the part itself
    std::uint64_t m_bytes = 0;  // for the two Bad...Pointer reasons: the value's length
  };

  // The reason the parse itself recorded in its head channel `io` as it
  // failed with `code`: where and why it stopped, and the first structure it
  // read whole from the zeros past the file's end (DtRawHeadIo); when it
  // failed after such a read, the reason names that part as running (or
  // lying) past the end of the file, not what the zeros made it meet next.
  // m_code is the code of the step that recorded (0 with ReasonNone when
  // none did). With `at`, also where the part (or value) the reason names
  // starts in the file (0 when it names none). Never fails, allocates
  // nothing.
  static Finding Recorded(const DtRawHeadIo& io, int code, std::uint64_t* at = nullptr);

  // ---- kept for programs built against 1.0.0 (deprecated) -----------------
  // Each runs the facade's one parse over `head` through a head channel (it
  // logs as that parse does) and tells what that channel recorded; nothing
  // walks the head a second time. New code parses once with DtRawRecord and
  // reads Recorded, or DtRawHeadIo::KeepPlaces, from that parse.

  // The Finding of the facade's parse of `head` (HEAD_SIZE bytes) of a file
  // of `fileSize` bytes, as Recorded gives it. A null head gives a Finding
  // with code 0.
  static Finding Inspect(const UINT8* head, std::uint64_t fileSize);

  // One kept entry (a target tag) as the parse found it.
  struct Place {
    Part m_part = PartNone;
    UINT16 m_tag = 0;
    std::uint32_t m_entry = 0;  // where its 12-byte entry starts
    std::uint32_t m_pos = 0;    // where its value lies: the entry's field, or the offset held
    std::uint32_t m_size = 0;   // the value's bytes as the facade counts them (32-bit)
    bool m_hasData = false;     // m_data holds the value (1 to 32 bytes, read from the head)
    UINT8 m_data[32] = {};

    // True when a byte of the entry or of the value lies at or past
    // `fileSize`: the facade read zeros there, not the file.
    bool PastEnd(std::uint64_t fileSize) const;
  };

  // The target tags of every directory the parse read whole.
  struct Places {
    static constexpr UINT MAX_PLACES = 40;
    Place m_at[MAX_PLACES];
    UINT m_count = 0;
    std::uint64_t m_fileSize = 0;
    bool m_read[8] = {};  // by Part: the directory was read whole
    bool m_cut[8] = {};   // by Part: it runs past the end of the file

    // The entry of `tag` in `part`, or null when the parse kept none.
    const Place* Get(Part part, UINT16 tag) const;
    // True when `part` runs past the end of the file, was not reached
    // because the part holding its pointer does, or when the entry holding
    // its offset is cut (DtRawHeadIo::Places::Cut).
    bool Cut(Part part) const;
  };

  // The places the facade's parse of `head` kept (DtRawHeadIo::KeepPlaces),
  // by Part. Never fails; a directory the parse could not read contributes
  // nothing.
  static void Locate(const UINT8* head, std::uint64_t fileSize, Places* places);

  // The reason in words, short and lower case, without the "not a KPZ raw
  // file" around it ("no camera model", "IFD1 lies past the end of the
  // file", "a value in IFD0 runs beyond the first 64 KiB"); "" for
  // ReasonNone. Written into `out` (`size` bytes, zero-terminated, cut short
  // when too small; nothing when `out` is null or `size` 0). Returns the
  // length of the whole words, as snprintf does.
  static UINT Words(const Finding& finding, char* out, UINT size);

  // True for the reasons that say a file is cut short or its pointers are
  // broken (a damaged KPZ file), false for those that say it is laid out as
  // something else (not a KPZ file at all) and for ReasonNone.
  static bool IsDamage(Reason reason);
};

#endif  // KPZ_RAW_DTRAWLAYOUTCHECK_H
