// KpzLayoutWalk.h - an independent walk of a file's head, written apart
// from the library's parser, that the tests hold the parser's own record to.
//
// Test support (tests/support), over the library's reason type
// (jni/raw/DtRawLayoutCheck) and nothing else of it. The library's parse
// records where and why it stops (DtRawHeadIo, read by
// DtRawLayoutCheck::Recorded) and, when asked, where the entries it kept lie
// (DtRawHeadIo::Places). This walk finds both again its own way: the TIFF
// header, IFD0, IFD1, the Exif and interoperability directories, the camera
// model, the maker note and, for the model "DSLR-M372", the Km maker note;
// the same target tags, the same memory-channel rules of clamped seeks and
// short reads, the same order of giving up. A test (and the raw buffer
// fuzzer) that finds the two disagreeing over a head has found a bug in one
// of them.
//
// Contract:
//  - `head` holds exactly HEAD_SIZE bytes (the file's first bytes, zeros
//    after its end); `fileSize` is the file's real size.
//  - Never reads outside the head: every read is checked in the
//    subtraction form against the bytes left, every loop is bounded (at most
//    65,535 entries per directory, six directories), no count is trusted.
//    Allocates nothing, holds nothing and never fails.
//
//   const DtRawLayoutCheck::Finding walked = KpzLayoutWalk::Inspect(head, fileSize);
//   EXPECT_EQ(walked.m_reason, DtRawLayoutCheck::Recorded(io, code).m_reason);
//
// Holds nothing; every operation is a static function.
#ifndef KPZ_TESTS_SUPPORT_KPZLAYOUTWALK_H
#define KPZ_TESTS_SUPPORT_KPZLAYOUTWALK_H

#include <cstdint>

#include "raw/DtRawLayoutCheck.h"
#include "util/DtNlTypes.h"

class KpzLayoutWalk {
 public:
  // Bytes of the head: DtRaw::READ_SIZE.
  static constexpr UINT HEAD_SIZE = 0x10000;

  // Walks `head` (HEAD_SIZE bytes) of a file of `fileSize` bytes as the
  // facade's parse does. A null head gives a Finding with code 0.
  // Finding::m_code is the result code the facade's parse gives over the
  // same head (0 when it parses); the reason is meaningful only when the
  // code is not 0. When the parse fails after it read part of a directory or
  // value from beyond the end of a cut file (zeros there), the reason names
  // that part as running (or lying) past the end of the file.
  static DtRawLayoutCheck::Finding Inspect(const UINT8* head, std::uint64_t fileSize);

  // One kept entry (a target tag) as the walk found it.
  struct Place {
    DtRawLayoutCheck::Part m_part = DtRawLayoutCheck::PartNone;
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

  // The target tags of every directory the walk read whole.
  struct Places {
    static constexpr UINT MAX_PLACES = 40;
    Place m_at[MAX_PLACES];
    UINT m_count = 0;
    std::uint64_t m_fileSize = 0;
    bool m_read[8] = {};  // by Part: the directory was read whole
    bool m_cut[8] = {};   // by Part: it runs past the end of the file

    // The entry of `tag` in `part`, or null when the walk kept none.
    const Place* Get(DtRawLayoutCheck::Part part, UINT16 tag) const;
    // True when `part` runs past the end of the file, or was not reached
    // because the part holding its pointer does, or when the entry holding
    // its offset is cut.
    bool Cut(DtRawLayoutCheck::Part part) const;
  };

  // The walk of Inspect, keeping in `*places` where each target tag lies.
  // Never fails; a directory the walk could not read contributes nothing.
  static void Locate(const UINT8* head, std::uint64_t fileSize, Places* places);
};

#endif  // KPZ_TESTS_SUPPORT_KPZLAYOUTWALK_H
