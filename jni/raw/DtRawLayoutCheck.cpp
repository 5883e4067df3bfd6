// DtRawLayoutCheck.cpp - the reasons a file's head does not parse, from
// where and why the parse recorded that it stopped (jni/raw). See
// DtRawLayoutCheck.h for the contract.

#include "raw/DtRawLayoutCheck.h"

#include <cinttypes>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>

#include "raw/DtRaw.h"
#include "raw/DtRawError.h"
#include "raw/DtRawRecord.h"
#include "raw/parser/DtRawHeadIo.h"
#include "raw/parser/DtRawTagData.h"

static_assert(DtRawLayoutCheck::HEAD_SIZE == DtRaw::READ_SIZE,
              "the reasons are about the head the facade parses");
static_assert(DtRawHeadIo::HEAD_SIZE == DtRaw::READ_SIZE,
              "the head channel holds the head the facade parses");

namespace {

const std::uint32_t kHead = DtRawLayoutCheck::HEAD_SIZE;

// Where a read ran out of the head: the directory itself, or one of its
// values, with its nominal start and end in the file.
struct Stop {
  bool value = false;
  std::uint64_t start = 0;
  std::uint64_t end = 0;
};

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
    // Not reached: a read the parse recorded as falling short stopped
    // outside the head or the file. No reason is better than a false one.
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

const char* partName(Part part) {
  switch (part) {
    case DtRawLayoutCheck::PartIfd0:
      return "IFD0";
    case DtRawLayoutCheck::PartIfd1:
      return "IFD1";
    case DtRawLayoutCheck::PartExif:
      return "the Exif directory";
    case DtRawLayoutCheck::PartIob:
      return "the interoperability directory";
    case DtRawLayoutCheck::PartMakerNote:
      return "the maker note";
    case DtRawLayoutCheck::PartKmMakerNote:
      return "the Km maker note";
    case DtRawLayoutCheck::PartNone:
    default:
      return "";
  }
}

}  // namespace

namespace {

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

// The part of a directory category (DtRawTagCategory).
Part partOf(INT32 category) {
  switch (category) {
    case DtRawTagCategoryIfd0:
      return DtRawLayoutCheck::PartIfd0;
    case DtRawTagCategoryIfd1:
      return DtRawLayoutCheck::PartIfd1;
    case DtRawTagCategoryExif:
      return DtRawLayoutCheck::PartExif;
    case DtRawTagCategoryIob:
      return DtRawLayoutCheck::PartIob;
    case DtRawTagCategoryMakerNote:
      return DtRawLayoutCheck::PartMakerNote;
    case DtRawTagCategoryKmMakerNote:
      return DtRawLayoutCheck::PartKmMakerNote;
    default:
      return DtRawLayoutCheck::PartNone;
  }
}

// The directory category (DtRawTagCategory) of a part; -1 for none.
INT32 categoryOf(Part part) {
  for (INT32 c = 0; c < static_cast<INT32>(DtRawHeadIo::Places::CATEGORIES); ++c) {
    if (partOf(c) == part) {
      return c;
    }
  }
  return -1;
}

// The facade's parse of `head` through `io` (the channel's file size), over
// a copy of the head kept in *copy: the facade takes its buffer as writable,
// and the channel refers to it until the caller has read its record.
int parseThrough(const UINT8* head, DtRawHeadIo* io, std::unique_ptr<UINT8[]>* kept) {
  std::unique_ptr<UINT8[]>& copy = *kept;
  copy.reset(new (std::nothrow) UINT8[DtRawLayoutCheck::HEAD_SIZE]);
  if (!copy) {
    return DtRawErrBuffOpen;  // the buffer to open a stream over could not be had
  }
  std::memcpy(copy.get(), head, DtRawLayoutCheck::HEAD_SIZE);
  DtRaw raw;
  DtRawRecord::ParseThrough(&raw, io);
  const int code = raw.InitializeBuf(copy.get(), static_cast<int>(DtRawLayoutCheck::HEAD_SIZE));
  raw.Finalize();
  return code;
}

// The entry's tag, positions, size and bytes of `from` into *to: a place
// the parse kept and one by Part hold the same, but for the directory.
template <typename From, typename To>
void sameEntry(const From& from, To* to) {
  static_assert(sizeof to->m_data == sizeof from.m_data, "the same value bytes");
  to->m_tag = from.m_tag;
  to->m_entry = from.m_entry;
  to->m_pos = from.m_pos;
  to->m_size = from.m_size;
  to->m_hasData = from.m_hasData;
  std::memcpy(to->m_data, from.m_data, sizeof to->m_data);
}

// The places kept by a parse, by Part.
void byPart(const DtRawHeadIo::Places& kept, DtRawLayoutCheck::Places* places) {
  *places = DtRawLayoutCheck::Places();
  places->m_fileSize = kept.m_fileSize;
  for (UINT i = 0; i < kept.m_count && i < DtRawHeadIo::Places::MAX_PLACES &&
                   places->m_count < DtRawLayoutCheck::Places::MAX_PLACES;
       ++i) {
    const DtRawHeadIo::Place& from = kept.m_at[i];
    DtRawLayoutCheck::Place& to = places->m_at[places->m_count++];
    to.m_part = partOf(from.m_category);
    sameEntry(from, &to);
  }
  for (UINT c = 0; c < DtRawHeadIo::Places::CATEGORIES; ++c) {
    const std::size_t part = static_cast<std::size_t>(partOf(static_cast<INT32>(c)));
    if (part != DtRawLayoutCheck::PartNone && part < sizeof places->m_read) {
      places->m_read[part] = kept.m_read[c];
      places->m_cut[part] = kept.m_cut[c];
    }
  }
}

// The places by Part back as a parse keeps them.
void byCategory(const DtRawLayoutCheck::Places& places, DtRawHeadIo::Places* kept) {
  *kept = DtRawHeadIo::Places();
  kept->m_fileSize = places.m_fileSize;
  for (UINT i = 0; i < places.m_count && i < DtRawLayoutCheck::Places::MAX_PLACES &&
                   kept->m_count < DtRawHeadIo::Places::MAX_PLACES;
       ++i) {
    const DtRawLayoutCheck::Place& from = places.m_at[i];
    DtRawHeadIo::Place& to = kept->m_at[kept->m_count++];
    to.m_category = categoryOf(from.m_part);
    sameEntry(from, &to);
  }
  for (UINT c = 0; c < DtRawHeadIo::Places::CATEGORIES; ++c) {
    const std::size_t part = static_cast<std::size_t>(partOf(static_cast<INT32>(c)));
    if (part != DtRawLayoutCheck::PartNone && part < sizeof places.m_read) {
      kept->m_read[c] = places.m_read[part];
      kept->m_cut[c] = places.m_cut[part];
    }
  }
}

// The Finding of what stopped the parse, before the cut and the header.
Finding whyStopped(const DtRawHeadIo::Stop& s, std::uint64_t fileSize) {
  const int code = s.m_code;
  switch (s.m_step) {
    case DtRawHeadIo::StepNotTiff:
      // No mark in an empty file is no file at all; a wrong marker is not.
      return failed(code, fileSize == 0 && s.m_offset == 0 ? DtRawLayoutCheck::ReasonEmpty
                                                           : DtRawLayoutCheck::ReasonNotTiff);
    case DtRawHeadIo::StepRead:
      return located(code, partOf(s.m_category), s.m_offset, Stop{s.m_value, s.m_start, s.m_end},
                     fileSize);
    case DtRawHeadIo::StepModel:
      if (!s.m_tagFound) {
        return failed(code, DtRawLayoutCheck::ReasonNoModel);
      }
      return failed(code, s.m_bytes == 0 ? DtRawLayoutCheck::ReasonEmptyModel
                                         : DtRawLayoutCheck::ReasonLongModel);
    case DtRawHeadIo::StepExif:
      return s.m_tagFound ? failed(code, DtRawLayoutCheck::ReasonBadExifPointer, s.m_bytes)
                          : failed(code, DtRawLayoutCheck::ReasonNoExif);
    case DtRawHeadIo::StepMakerNote:
      return failed(code, DtRawLayoutCheck::ReasonNoMakerNote);
    case DtRawHeadIo::StepNotKavi:
      // At offset 0, or 2 GiB and more, the channel read the TIFF header:
      // the maker note is named by where it lies.
      if (s.m_offset == 0 || s.m_offset > 0x7FFFFFFFu) {
        return located(code, DtRawLayoutCheck::PartMakerNote, s.m_offset,
                       Stop{false, s.m_start, s.m_end}, fileSize);
      }
      return failed(code, DtRawLayoutCheck::ReasonNotKavi);
    case DtRawHeadIo::StepKmPointer:
      return s.m_tagFound ? failed(code, DtRawLayoutCheck::ReasonBadKmPointer, s.m_bytes)
                          : failed(code, DtRawLayoutCheck::ReasonNoKmPointer);
    case DtRawHeadIo::StepNone:
    default:
      return Finding();
  }
}

}  // namespace

DtRawLayoutCheck::Finding DtRawLayoutCheck::Recorded(const DtRawHeadIo& io, int code,
                                                     std::uint64_t* at) {
  const std::uint64_t fileSize = io.FileSize();
  const DtRawHeadIo::Stop& stop = io.Stopped();
  Finding f = whyStopped(stop, fileSize);
  std::uint64_t where = 0;
  if (f.m_part != PartNone) {
    // As located() names it: a part at 2 GiB or more by its offset.
    where = stop.m_offset > 0x7FFFFFFFu ? stop.m_offset : stop.m_start;
  }
  if (f.m_code == DtRawOk || code == DtRawOk) {
    if (at != nullptr) {
      *at = 0;
    }
    return Finding();
  }
  // A failure after a read from past the file's end is named as that read.
  const DtRawHeadIo::Cut& cut = io.FirstCut();
  if (cut.m_set) {
    f.m_reason = cut.m_start >= fileSize ? ReasonPastEnd : ReasonRunsPastEnd;
    f.m_part = partOf(cut.m_category);
    f.m_value = cut.m_value;
    f.m_bytes = 0;
    where = cut.m_start;
  }
  if (io.Head() != nullptr && io.HeadSize() >= 8) {
    headerCut(io.Header(), fileSize, &f);
  }
  if (f.m_part == PartNone) {
    where = 0;
  }
  if (at != nullptr) {
    *at = where;
  }
  return f;
}

DtRawLayoutCheck::Finding DtRawLayoutCheck::Inspect(const UINT8* head, std::uint64_t fileSize) {
  if (head == nullptr) {
    return Finding();
  }
  DtRawHeadIo io(fileSize);
  std::unique_ptr<UINT8[]> copy;
  const int code = parseThrough(head, &io, &copy);
  return Recorded(io, code);
}

void DtRawLayoutCheck::Locate(const UINT8* head, std::uint64_t fileSize, Places* places) {
  if (places == nullptr) {
    return;
  }
  DtRawHeadIo::Places kept;
  kept.m_fileSize = fileSize;
  if (head != nullptr) {
    DtRawHeadIo io(fileSize);
    io.KeepPlaces(&kept);
    std::unique_ptr<UINT8[]> copy;
    parseThrough(head, &io, &copy);
  }
  byPart(kept, places);
}

bool DtRawLayoutCheck::Place::PastEnd(std::uint64_t fileSize) const {
  DtRawHeadIo::Place same;
  same.m_entry = m_entry;
  same.m_pos = m_pos;
  same.m_size = m_size;
  return same.PastEnd(fileSize);
}

const DtRawLayoutCheck::Place* DtRawLayoutCheck::Places::Get(Part part, UINT16 tag) const {
  for (UINT i = 0; i < m_count && i < MAX_PLACES; ++i) {
    if (m_at[i].m_part == part && m_at[i].m_tag == tag) {
      return &m_at[i];
    }
  }
  return nullptr;
}

bool DtRawLayoutCheck::Places::Cut(Part part) const {
  DtRawHeadIo::Places kept;
  byCategory(*this, &kept);
  return kept.Cut(categoryOf(part));
}

UINT DtRawLayoutCheck::Words(const Finding& f, char* out, UINT size) {
  const char* const part = partName(f.m_part);
  const char* const value = f.m_value ? "a value in " : "";
  char buffer[1] = {0};
  if (out == nullptr || size == 0) {
    out = buffer;  // only the length is wanted
    size = 1;
  }
  int n = 0;
  switch (f.m_reason) {
    case ReasonEmpty:
      n = std::snprintf(out, size, "the file is empty");
      break;
    case ReasonNotTiff:
      n = std::snprintf(out, size, "no TIFF header");
      break;
    case ReasonHeaderCut:
      n = std::snprintf(out, size, "the file ends within its TIFF header");
      break;
    case ReasonOneDirectory:
      n = std::snprintf(out, size, "only one directory, no second one after IFD0");
      break;
    case ReasonZeroOffset:
      n = std::snprintf(out, size, "the offset of %s is 0", part);
      break;
    case ReasonPastEnd:
      n = std::snprintf(out, size, "%s%s lies past the end of the file", value, part);
      break;
    case ReasonRunsPastEnd:
      n = std::snprintf(out, size, "%s%s runs past the end of the file", value, part);
      break;
    case ReasonBeyondHead:
      n = std::snprintf(out, size, "%s%s lies beyond the first 64 KiB", value, part);
      break;
    case ReasonRunsBeyondHead:
      n = std::snprintf(out, size, "%s%s runs beyond the first 64 KiB", value, part);
      break;
    case ReasonNoModel:
      n = std::snprintf(out, size, "no camera model");
      break;
    case ReasonEmptyModel:
      n = std::snprintf(out, size, "the camera model is empty");
      break;
    case ReasonLongModel:
      n = std::snprintf(out, size, "the camera model is longer than 32 bytes");
      break;
    case ReasonNoExif:
      n = std::snprintf(out, size, "no Exif data");
      break;
    case ReasonBadExifPointer:
      n = std::snprintf(out, size,
                        "the Exif pointer is not a 4-byte offset (it has %" PRIu64 " bytes)",
                        static_cast<std::uint64_t>(f.m_bytes));
      break;
    case ReasonNoMakerNote:
      n = std::snprintf(out, size, "no maker note");
      break;
    case ReasonNotKavi:
      n = std::snprintf(out, size, "the maker note has no KAVI header");
      break;
    case ReasonNoKmPointer:
      n = std::snprintf(out, size, "no pointer to the Km maker note");
      break;
    case ReasonBadKmPointer:
      n = std::snprintf(out, size,
                        "the pointer to the Km maker note is not a 4-byte offset (it has %" PRIu64
                        " bytes)",
                        static_cast<std::uint64_t>(f.m_bytes));
      break;
    case ReasonNone:
    default:
      out[0] = '\0';
      n = 0;
      break;
  }
  return n < 0 ? 0u : static_cast<UINT>(n);
}

bool DtRawLayoutCheck::IsDamage(Reason reason) {
  switch (reason) {
    case ReasonHeaderCut:
    case ReasonZeroOffset:
    case ReasonPastEnd:
    case ReasonRunsPastEnd:
    case ReasonBadExifPointer:
    case ReasonBadKmPointer:
      return true;
    default:
      return false;
  }
}
