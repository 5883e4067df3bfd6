// KpzLayoutWalk.cpp - the step-by-step walk of a head, an oracle for the
// parser's own record (tests/support). See KpzLayoutWalk.h.
//
// The walk follows jni/raw/DtRawEng.cpp and jni/raw/parser/DtRawIFDParserBase.cpp
// step by step over the head as the facade's memory channel serves it: a
// seek to an offset is taken as a signed 32-bit number (negative: offset 0)
// and clamped at the end of the head; a read that meets the end of the head
// fails (-307). Positions below are 32-bit and never exceed HEAD_SIZE; the
// nominal positions of the file's structures, used only for the words, are
// 64-bit.
#include "support/KpzLayoutWalk.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "raw/DtRaw.h"
#include "raw/DtRawError.h"

static_assert(KpzLayoutWalk::HEAD_SIZE == DtRaw::READ_SIZE,
              "the walk covers the head the facade parses");

namespace {

const std::uint32_t kHead = KpzLayoutWalk::HEAD_SIZE;
const std::uint32_t kEntrySize = 12;
const std::uint32_t kMaxCopied = 32;  // longer values are kept by position only
const std::uint32_t kMakerNoteHeader = 12;

const UINT16 kTagModel = 0x0110;
const UINT16 kTagExifPointer = 0x8769;
const UINT16 kTagMakerNote = 0x927C;
const UINT16 kTagIobPointer = 0xA005;
const UINT16 kTagKmPointer = 0xB028;

// The target tags of each directory, as the library's parsers keep them.
const UINT16 kIfd0Targets[] = {0x010F, 0x0110, 0x0112, 0x8769, 0x0201, 0x0202, 0x0132};
const UINT16 kIfd1Targets[] = {0x0103, 0x0112, 0x0201, 0x0202, 0x0132};
const UINT16 kExifTargets[] = {0x829A, 0x829D, 0x8822, 0x8827, 0x9000, 0x9003, 0x9204, 0x9209,
                               0x920A, 0x927C, 0xA001, 0xA005, 0xA401, 0xA405, 0xA002, 0xA003};
const UINT16 kIobTargets[] = {0x0001, 0x0002};
const UINT16 kMakerNoteTargets[] = {0xB028, 0xB02C};
const UINT16 kKmTargets[] = {0x0088, 0x0089};
const std::size_t kMaxTargets = 16;

// Bytes per value of TIFF types 3 to 10 as the library counts them (SSHORT
// 1, every type outside 3..10 also 1).
std::uint32_t unitOf(UINT16 type) {
  static const std::uint8_t kUnits[8] = {2, 4, 8, 1, 1, 1, 4, 8};
  const UINT16 index = static_cast<UINT16>(type - 3u);
  return index < 8 ? kUnits[index] : 1u;
}

// Numbers at `p` in the file's order (big: "MM").
UINT16 load16(const UINT8* p, bool big) {
  return big ? static_cast<UINT16>((p[0] << 8) | p[1]) : static_cast<UINT16>(p[0] | (p[1] << 8));
}
std::uint32_t load32(const UINT8* p, bool big) {
  if (big) {
    return (std::uint32_t{p[0]} << 24) | (std::uint32_t{p[1]} << 16) | (std::uint32_t{p[2]} << 8) |
           std::uint32_t{p[3]};
  }
  return std::uint32_t{p[0]} | (std::uint32_t{p[1]} << 8) | (std::uint32_t{p[2]} << 16) |
         (std::uint32_t{p[3]} << 24);
}

// The head as the library's memory channel serves it to one directory.
class HeadReader {
 public:
  HeadReader(const UINT8* head, bool big) : m_head(head), m_big(big), m_pos(0) {}

  // A seek from the start to a 32-bit offset: read as signed (at or above
  // 2 GiB it is negative and gives 0), clamped at the end of the head.
  void Seek(std::uint32_t offset) {
    if (offset > 0x7FFFFFFFu) {
      m_pos = 0;
    } else {
      m_pos = offset < kHead ? offset : kHead;
    }
  }
  void Skip(std::uint32_t count) {
    const std::uint32_t left = kHead - m_pos;
    m_pos += count < left ? count : left;
  }
  std::uint32_t Pos() const { return m_pos; }
  std::uint32_t Left() const { return kHead - m_pos; }

  bool U16(UINT16* out) {
    if (Left() < 2) {
      m_pos = kHead;
      return false;
    }
    *out = Load16(m_pos);
    m_pos += 2;
    return true;
  }
  bool U32(std::uint32_t* out) {
    if (Left() < 4) {
      m_pos = kHead;
      return false;
    }
    *out = Load32(m_pos);
    m_pos += 4;
    return true;
  }
  // `size` bytes into `out` (at most kMaxCopied); false when the head ends first.
  bool Bytes(UINT8* out, std::uint32_t size) {
    if (Left() < size) {
      m_pos = kHead;
      return false;
    }
    std::memcpy(out, m_head + m_pos, size);
    m_pos += size;
    return true;
  }

  // Numbers at `at`; the caller has checked that they lie in the head.
  UINT16 Load16(std::uint32_t at) const { return load16(m_head + at, m_big); }
  std::uint32_t Load32(std::uint32_t at) const { return load32(m_head + at, m_big); }

 private:
  const UINT8* m_head;
  bool m_big;
  std::uint32_t m_pos;  // <= kHead
};

// One kept entry, as the library keeps it.
struct Tag {
  bool kept = false;
  std::uint32_t entry = 0;  // where the entry starts (in the head)
  UINT16 type = 0;
  std::uint32_t count = 0;
  std::uint32_t size = 0;  // count x unit, 32-bit (wraps as the library's does)
  std::uint32_t pos = 0;   // where the value lies (the entry's field, or its offset)
  bool hasData = false;    // the value's bytes were copied (1 to 32 bytes)
  UINT8 data[kMaxCopied] = {};

  // The value's true length in bytes (no wrap).
  std::uint64_t Length() const { return std::uint64_t{count} * unitOf(type); }
};

// One directory read: its kept entries and its next offset.
struct Dir {
  const UINT16* targets = nullptr;
  std::size_t targetCount = 0;
  Tag tags[kMaxTargets];
  std::size_t kept = 0;
  std::uint32_t next = 0;
  std::uint64_t start = 0;  // nominal extent in the file
  std::uint64_t end = 0;

  const Tag* Get(UINT16 id) const {
    for (std::size_t i = 0; i < targetCount; ++i) {
      if (targets[i] == id) {
        return tags[i].kept ? &tags[i] : nullptr;
      }
    }
    return nullptr;
  }
};

// Where a read ran out of the head: the directory itself, or one of its
// values, with its nominal start and end in the file.
struct Stop {
  bool value = false;
  std::uint64_t start = 0;
  std::uint64_t end = 0;
};

// Reads the directory at `offset` as DtRawIFDParserBase::parse does. False
// (with *stop set) where the library's parse fails with -307.
bool readDir(HeadReader& r, std::uint32_t offset, const UINT16* targets, std::size_t targetCount,
             Dir* dir, Stop* stop) {
  dir->targets = targets;
  dir->targetCount = targetCount;
  const std::uint64_t start = offset;
  r.Seek(offset);
  UINT16 entries = 0;
  if (!r.U16(&entries)) {
    *stop = Stop{false, start, start + 2};
    return false;
  }
  const std::uint64_t end = start + 2 + std::uint64_t{kEntrySize} * entries + 4;
  const Stop inDir{false, start, end};
  dir->start = start;
  dir->end = end;
  // At most 65,535 passes; each ends at most 12 bytes further on, or returns.
  for (std::uint32_t i = 0; i < entries; ++i) {
    if (dir->kept == targetCount) {
      r.Skip(kEntrySize);
      continue;
    }
    const std::uint32_t entryStart = r.Pos();
    const bool whole = r.Left() >= kEntrySize;
    UINT16 id = 0;
    if (whole) {
      id = r.Load16(entryStart);
    } else if (!r.U16(&id)) {
      *stop = inDir;
      return false;
    }
    std::size_t index = targetCount;
    for (std::size_t t = 0; t < targetCount; ++t) {
      if (targets[t] == id) {
        index = t;
        break;
      }
    }
    if (index == targetCount || dir->tags[index].kept) {
      r.Skip(whole ? kEntrySize : kEntrySize - 2);
      continue;
    }
    Tag& tag = dir->tags[index];
    tag.entry = entryStart;
    if (whole) {
      tag.type = r.Load16(entryStart + 2);
      tag.count = r.Load32(entryStart + 4);
    } else if (!r.U16(&tag.type) || !r.U32(&tag.count)) {
      *stop = inDir;
      return false;
    }
    tag.size = tag.count * unitOf(tag.type);  // 32-bit, wraps as the library's does
    if (tag.size <= 4) {
      tag.pos = entryStart + 8;  // the entry's own field
    } else if (whole) {
      tag.pos = r.Load32(entryStart + 8);
    } else if (!r.U32(&tag.pos)) {
      *stop = inDir;
      return false;
    }
    if (tag.size >= 1 && tag.size <= kMaxCopied) {
      r.Seek(tag.pos);
      if (!r.Bytes(tag.data, tag.size)) {
        // A value in the entry's field is part of the directory itself.
        *stop = tag.size <= 4 ? inDir : Stop{true, tag.pos, std::uint64_t{tag.pos} + tag.size};
        return false;
      }
      tag.hasData = true;
    }
    tag.kept = true;
    ++dir->kept;
    r.Seek(entryStart + kEntrySize);  // entryStart <= kHead: no wrap
  }
  if (!r.U32(&dir->next)) {
    *stop = inDir;
    return false;
  }
  return true;
}

// The offset a pointer tag holds: true when the library follows it (the tag
// is kept with at least 4 value bytes copied).
bool pointerOf(const Tag* tag, bool big, std::uint32_t* offset) {
  if (tag == nullptr || !tag->hasData || tag->size < 4) {
    return false;
  }
  *offset = load32(tag->data, big);
  return true;
}

using Finding = DtRawLayoutCheck::Finding;
using Part = DtRawLayoutCheck::Part;
using Reason = DtRawLayoutCheck::Reason;

// A structure at the 32-bit `offset` that the parse could not read in the
// head (the library's result `code`). An offset of 0 is the TIFF header
// itself, and one of 2 GiB or more is read by the library at 0 as well, so
// neither is described by where the read stopped but by the offset.
Finding located(int code, Part part, std::uint32_t offset, const Stop& stop,
                std::uint64_t fileSize) {
  Finding f;
  f.m_code = code;
  f.m_part = part;
  if (offset == 0) {
    f.m_reason = part == DtRawLayoutCheck::PartIfd1 ? DtRawLayoutCheck::ReasonOneDirectory
                                                    : DtRawLayoutCheck::ReasonZeroOffset;
    return f;
  }
  std::uint64_t start = stop.start;
  std::uint64_t end = stop.end;
  f.m_value = stop.value;
  if (offset > 0x7FFFFFFFu) {
    start = offset;
    end = start + 2;
    f.m_value = false;
  }
  if (start >= fileSize) {
    f.m_reason = DtRawLayoutCheck::ReasonPastEnd;
  } else if (start >= kHead) {
    f.m_reason = DtRawLayoutCheck::ReasonBeyondHead;
  } else if (end > fileSize) {
    f.m_reason = DtRawLayoutCheck::ReasonRunsPastEnd;
  } else if (end > kHead) {
    f.m_reason = DtRawLayoutCheck::ReasonRunsBeyondHead;
  } else {
    // Not reached when the walk matches the library: a read that stopped
    // inside the head and the file. No reason is better than a false one.
    f.m_reason = DtRawLayoutCheck::ReasonNone;
    f.m_part = DtRawLayoutCheck::PartNone;
  }
  return f;
}

Finding failed(int code, Reason reason, std::uint64_t bytes = 0) {
  Finding f;
  f.m_code = code;
  f.m_reason = reason;
  f.m_bytes = bytes;
  return f;
}

// What the walk met of the file's end, and where it keeps the tags found.
struct WalkState {
  std::uint64_t fileSize = 0;
  bool cut = false;  // a directory or copied value read the zeros past the end
  Finding cutFinding;
  KpzLayoutWalk::Places* places = nullptr;  // null: not kept
};

// Notes the first structure the parse read that ends past the file's end.
void noteCut(WalkState& w, Part part, bool value, std::uint64_t start, std::uint64_t end) {
  if (w.cut || end <= w.fileSize) {
    return;
  }
  w.cut = true;
  w.cutFinding.m_part = part;
  w.cutFinding.m_value = value;
  w.cutFinding.m_reason =
      start >= w.fileSize ? DtRawLayoutCheck::ReasonPastEnd : DtRawLayoutCheck::ReasonRunsPastEnd;
}

// After `dir` of `part` was read whole: its cut, and its tags kept.
void took(WalkState& w, Part part, const Dir& dir) {
  if (dir.start <= 0x7FFFFFFFu) {
    noteCut(w, part, false, dir.start, dir.end);
  }
  if (w.places != nullptr) {
    const std::size_t i = static_cast<std::size_t>(part);
    w.places->m_read[i] = true;
    w.places->m_cut[i] = dir.start <= 0x7FFFFFFFu && dir.end > w.fileSize;
  }
  for (std::size_t i = 0; i < dir.targetCount; ++i) {
    const Tag& tag = dir.tags[i];
    if (!tag.kept) {
      continue;
    }
    if (tag.hasData && tag.size > 4) {
      noteCut(w, part, true, tag.pos, std::uint64_t{tag.pos} + tag.size);
    }
    if (w.places != nullptr && w.places->m_count < KpzLayoutWalk::Places::MAX_PLACES) {
      KpzLayoutWalk::Place& p = w.places->m_at[w.places->m_count++];
      p.m_part = part;
      p.m_tag = dir.targets[i];
      p.m_entry = tag.entry;
      p.m_pos = tag.pos;
      p.m_size = tag.size;
      p.m_hasData = tag.hasData;
      std::memcpy(p.m_data, tag.data, sizeof p.m_data);
    }
  }
}

Finding walkOnce(const UINT8* head, WalkState& w);

// The walk itself, with a failure after a cut named as the cut.
Finding walk(const UINT8* head, WalkState& w) {
  Finding f = walkOnce(head, w);
  if (f.m_code != DtRawOk && w.cut) {
    const int code = f.m_code;
    f = w.cutFinding;
    f.m_code = code;
  }
  return f;
}

// The steps of DtRawEng::Parse over the head.
Finding walkOnce(const UINT8* head, WalkState& w) {
  const std::uint64_t fileSize = w.fileSize;
  const UINT16 mark = static_cast<UINT16>((head[0] << 8) | head[1]);
  if (mark != 0x4949 && mark != 0x4D4D) {
    return failed(DtRawErrNotTiff,
                  fileSize == 0 ? DtRawLayoutCheck::ReasonEmpty : DtRawLayoutCheck::ReasonNotTiff);
  }
  const bool big = mark == 0x4D4D;
  if (load16(head + 2, big) != 42) {
    return failed(DtRawErrNotTiff, DtRawLayoutCheck::ReasonNotTiff);
  }
  const std::uint32_t ifd0Offset = load32(head + 4, big);
  HeadReader r(head, big);
  Stop stop;

  Dir ifd0;
  if (!readDir(r, ifd0Offset, kIfd0Targets, sizeof kIfd0Targets / sizeof kIfd0Targets[0], &ifd0,
               &stop)) {
    return located(DtRawErrRead, DtRawLayoutCheck::PartIfd0, ifd0Offset, stop, fileSize);
  }
  took(w, DtRawLayoutCheck::PartIfd0, ifd0);
  Dir ifd1;
  if (!readDir(r, ifd0.next, kIfd1Targets, sizeof kIfd1Targets / sizeof kIfd1Targets[0], &ifd1,
               &stop)) {
    return located(DtRawErrRead, DtRawLayoutCheck::PartIfd1, ifd0.next, stop, fileSize);
  }
  took(w, DtRawLayoutCheck::PartIfd1, ifd1);
  Dir exif;
  bool haveExif = false;
  std::uint32_t exifOffset = 0;
  if (pointerOf(ifd0.Get(kTagExifPointer), big, &exifOffset)) {
    if (!readDir(r, exifOffset, kExifTargets, sizeof kExifTargets / sizeof kExifTargets[0], &exif,
                 &stop)) {
      return located(DtRawErrRead, DtRawLayoutCheck::PartExif, exifOffset, stop, fileSize);
    }
    took(w, DtRawLayoutCheck::PartExif, exif);
    haveExif = true;
    std::uint32_t iobOffset = 0;
    if (pointerOf(exif.Get(kTagIobPointer), big, &iobOffset)) {
      Dir iob;
      if (!readDir(r, iobOffset, kIobTargets, sizeof kIobTargets / sizeof kIobTargets[0], &iob,
                   &stop)) {
        return located(DtRawErrRead, DtRawLayoutCheck::PartIob, iobOffset, stop, fileSize);
      }
      took(w, DtRawLayoutCheck::PartIob, iob);
    }
  }

  const Tag* model = ifd0.Get(kTagModel);
  if (model == nullptr) {
    return failed(DtRawErrFormat, DtRawLayoutCheck::ReasonNoModel);
  }
  if (!model->hasData) {
    return failed(DtRawErrFormat, model->Length() == 0 ? DtRawLayoutCheck::ReasonEmptyModel
                                                       : DtRawLayoutCheck::ReasonLongModel);
  }
  // As the library compares: over exactly the value's size (1 to 32 bytes).
  char name[kMaxCopied + 1] = {};
  std::memcpy(name, model->data, model->size);
  const bool m372 = std::strncmp(name, "DSLR-M372", model->size) == 0;

  if (!haveExif) {
    const Tag* pointer = ifd0.Get(kTagExifPointer);
    return pointer == nullptr
               ? failed(DtRawErrFormat, DtRawLayoutCheck::ReasonNoExif)
               : failed(DtRawErrFormat, DtRawLayoutCheck::ReasonBadExifPointer, pointer->Length());
  }
  const Tag* makerNote = exif.Get(kTagMakerNote);
  if (makerNote == nullptr) {
    return failed(DtRawErrFormat, DtRawLayoutCheck::ReasonNoMakerNote);
  }

  const std::uint32_t noteOffset = makerNote->pos;
  std::uint32_t noteDir = noteOffset;
  if (m372) {
    r.Seek(noteOffset);
    UINT8 header[kMakerNoteHeader] = {};
    const Stop inHeader{false, noteOffset, std::uint64_t{noteOffset} + kMakerNoteHeader};
    if (!r.Bytes(header, kMakerNoteHeader)) {
      return located(DtRawErrRead, DtRawLayoutCheck::PartMakerNote, noteOffset, inHeader, fileSize);
    }
    if (noteOffset <= 0x7FFFFFFFu) {
      noteCut(w, DtRawLayoutCheck::PartMakerNote, false, noteOffset, inHeader.end);
    }
    if (std::memcmp(header, "KAVI", 4) != 0) {
      // At offset 0, or 2 GiB and more, the library reads the TIFF header.
      if (noteOffset == 0 || noteOffset > 0x7FFFFFFFu) {
        return located(DtRawErrFormat, DtRawLayoutCheck::PartMakerNote, noteOffset, inHeader,
                       fileSize);
      }
      return failed(DtRawErrFormat, DtRawLayoutCheck::ReasonNotKavi);
    }
    noteDir = noteOffset + kMakerNoteHeader;  // 32-bit, wraps as the library's does
  }
  Dir note;
  if (!readDir(r, noteDir, kMakerNoteTargets,
               sizeof kMakerNoteTargets / sizeof kMakerNoteTargets[0], &note, &stop)) {
    return located(DtRawErrRead, DtRawLayoutCheck::PartMakerNote, noteDir, stop, fileSize);
  }
  took(w, DtRawLayoutCheck::PartMakerNote, note);
  if (!m372) {
    return Finding();
  }
  const Tag* kmPointer = note.Get(kTagKmPointer);
  if (kmPointer == nullptr) {
    return failed(DtRawErrFormat, DtRawLayoutCheck::ReasonNoKmPointer);
  }
  std::uint32_t kmOffset = 0;
  if (!pointerOf(kmPointer, big, &kmOffset)) {
    return failed(DtRawErrFormat, DtRawLayoutCheck::ReasonBadKmPointer, kmPointer->Length());
  }
  Dir km;
  if (!readDir(r, kmOffset, kKmTargets, sizeof kKmTargets / sizeof kKmTargets[0], &km, &stop)) {
    return located(DtRawErrRead, DtRawLayoutCheck::PartKmMakerNote, kmOffset, stop, fileSize);
  }
  took(w, DtRawLayoutCheck::PartKmMakerNote, km);
  return Finding();
}


// A file shorter than its 8-byte header: whatever the parse met after the
// header's first bytes was made of the zeros after the file's end. A file of
// 1 to 3 bytes that begins as a TIFF header does ("I", "II", "MM\0") is cut
// within it too, not without one.
void headerCut(const UINT8* head, std::uint64_t fileSize, Finding* f) {
  static const UINT8 kLittle[4] = {0x49, 0x49, 0x2A, 0x00};
  static const UINT8 kBig[4] = {0x4D, 0x4D, 0x00, 0x2A};
  const bool cutMark = f->m_code == DtRawErrNotTiff && fileSize > 0 && fileSize < 4 &&
                       (std::memcmp(head, kLittle, static_cast<std::size_t>(fileSize)) == 0 ||
                        std::memcmp(head, kBig, static_cast<std::size_t>(fileSize)) == 0);
  if (cutMark || (f->m_code != DtRawOk && f->m_code != DtRawErrNotTiff && fileSize < 8)) {
    f->m_reason = DtRawLayoutCheck::ReasonHeaderCut;
    f->m_part = DtRawLayoutCheck::PartNone;
    f->m_value = false;
  }
}


}  // namespace

DtRawLayoutCheck::Finding KpzLayoutWalk::Inspect(const UINT8* head, std::uint64_t fileSize) {
  if (head == nullptr) {
    return Finding();
  }
  WalkState w;
  w.fileSize = fileSize;
  Finding f = walk(head, w);
  headerCut(head, fileSize, &f);
  return f;
}

bool KpzLayoutWalk::Place::PastEnd(std::uint64_t fileSize) const {
  // The entry's tag, type and count (8 bytes), then its field: the value
  // itself (up to 4 bytes) or the offset of the value (4 bytes).
  const std::uint64_t field = m_size <= 4 ? m_size : 4;
  if (std::uint64_t{m_entry} + 8 + field > fileSize) {
    return true;
  }
  return m_size > 0 && std::uint64_t{m_pos} + m_size > fileSize;
}

const KpzLayoutWalk::Place* KpzLayoutWalk::Places::Get(Part part, UINT16 tag) const {
  for (UINT i = 0; i < m_count && i < MAX_PLACES; ++i) {
    if (m_at[i].m_part == part && m_at[i].m_tag == tag) {
      return &m_at[i];
    }
  }
  return nullptr;
}

bool KpzLayoutWalk::Places::Cut(Part part) const {
  // Bounded: each step goes to the part holding the pointer, IFD0 has none.
  for (int steps = 0; steps < 8; ++steps) {
    const std::size_t i = static_cast<std::size_t>(part);
    if (i >= sizeof m_cut || m_cut[i]) {
      return i < sizeof m_cut;
    }
    // The part holding the pointer, and the pointer's tag (0: the
    // next-directory offset, part of the holder's extent).
    Part holder = DtRawLayoutCheck::PartNone;
    UINT16 pointer = 0;
    switch (part) {
      case DtRawLayoutCheck::PartIfd1:
        holder = DtRawLayoutCheck::PartIfd0;
        break;
      case DtRawLayoutCheck::PartExif:
        holder = DtRawLayoutCheck::PartIfd0;
        pointer = kTagExifPointer;
        break;
      case DtRawLayoutCheck::PartIob:
        holder = DtRawLayoutCheck::PartExif;
        pointer = kTagIobPointer;
        break;
      case DtRawLayoutCheck::PartMakerNote:
        holder = DtRawLayoutCheck::PartExif;
        pointer = kTagMakerNote;
        break;
      case DtRawLayoutCheck::PartKmMakerNote:
        holder = DtRawLayoutCheck::PartMakerNote;
        pointer = kTagKmPointer;
        break;
      case DtRawLayoutCheck::PartIfd0:
      case DtRawLayoutCheck::PartNone:
      default:
        return false;
    }
    const Place* held = pointer != 0 ? Get(holder, pointer) : nullptr;
    if (held != nullptr && held->PastEnd(m_fileSize)) {
      return true;
    }
    if (m_read[i]) {
      return false;
    }
    part = holder;
  }
  return false;
}

void KpzLayoutWalk::Locate(const UINT8* head, std::uint64_t fileSize, Places* places) {
  if (places == nullptr) {
    return;
  }
  *places = Places();
  if (head == nullptr) {
    return;
  }
  places->m_fileSize = fileSize;
  WalkState w;
  w.fileSize = fileSize;
  w.places = places;
  (void)walk(head, w);
}
