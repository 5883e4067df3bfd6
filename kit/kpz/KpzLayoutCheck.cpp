// KpzLayoutCheck.cpp - the kit's face of the library's layout check
// (jni/raw/DtRawLayoutCheck). See KpzLayoutCheck.h.

#include "kpz/KpzLayoutCheck.h"

#include <cstring>

#include "kpz/KpzSource.h"
#include "raw/DtRawLayoutCheck.h"

static_assert(KpzLayoutCheck::kHeadSize == KpzSource::kHeadSize,
              "the layout check walks the head the tool reads");
static_assert(KpzLayoutCheck::kHeadSize == DtRawLayoutCheck::HEAD_SIZE,
              "the kit's layout check is the library's");

// The kit's enumerators follow the library's one for one, in the same order.
static_assert(static_cast<int>(KpzLayoutCheck::Part::KmMakerNote) ==
                  DtRawLayoutCheck::PartKmMakerNote,
              "the parts follow the library's");
static_assert(static_cast<int>(KpzLayoutCheck::Reason::Empty) == DtRawLayoutCheck::ReasonEmpty &&
                  static_cast<int>(KpzLayoutCheck::Reason::BadKmPointer) ==
                      DtRawLayoutCheck::ReasonBadKmPointer,
              "the reasons follow the library's");

KpzLayoutCheck::Finding KpzLayoutCheck::Inspect(const UINT8* head, std::uint64_t fileSize) {
  const DtRawLayoutCheck::Finding found = DtRawLayoutCheck::Inspect(head, fileSize);
  Finding f;
  f.code = found.m_code;
  f.reason = static_cast<Reason>(found.m_reason);
  f.part = static_cast<Part>(found.m_part);
  f.value = found.m_value;
  f.bytes = found.m_bytes;
  return f;
}

std::string KpzLayoutCheck::Words(const Finding& f) {
  DtRawLayoutCheck::Finding found;
  found.m_code = f.code;
  found.m_reason = static_cast<DtRawLayoutCheck::Reason>(f.reason);
  found.m_part = static_cast<DtRawLayoutCheck::Part>(f.part);
  found.m_value = f.value;
  found.m_bytes = f.bytes;
  char words[DtRawLayoutCheck::WORDS_SIZE];
  DtRawLayoutCheck::Words(found, words, sizeof words);
  return words;
}

namespace {

DtRawLayoutCheck::Place toLibrary(const KpzLayoutCheck::Place& p) {
  DtRawLayoutCheck::Place q;
  q.m_part = static_cast<DtRawLayoutCheck::Part>(p.part);
  q.m_tag = p.tag;
  q.m_entry = p.entry;
  q.m_pos = p.pos;
  q.m_size = p.size;
  q.m_hasData = p.hasData;
  std::memcpy(q.m_data, p.data, sizeof q.m_data);
  return q;
}

}  // namespace

static_assert(KpzLayoutCheck::Places::kMax == DtRawLayoutCheck::Places::MAX_PLACES,
              "the kit keeps as many places as the library");

bool KpzLayoutCheck::Place::PastEnd(std::uint64_t fileSize) const {
  return toLibrary(*this).PastEnd(fileSize);
}

const KpzLayoutCheck::Place* KpzLayoutCheck::Places::Get(Part part, UINT16 tag) const {
  for (std::size_t i = 0; i < count && i < kMax; ++i) {
    if (at[i].part == part && at[i].tag == tag) {
      return &at[i];
    }
  }
  return nullptr;
}

bool KpzLayoutCheck::Places::Cut(Part part) const {
  DtRawLayoutCheck::Places lib;
  lib.m_count = static_cast<UINT>(count < kMax ? count : kMax);
  for (std::size_t i = 0; i < lib.m_count; ++i) {
    lib.m_at[i] = toLibrary(at[i]);
  }
  lib.m_fileSize = fileSize;
  std::memcpy(lib.m_read, read, sizeof lib.m_read);
  std::memcpy(lib.m_cut, cut, sizeof lib.m_cut);
  return lib.Cut(static_cast<DtRawLayoutCheck::Part>(part));
}

KpzLayoutCheck::Places KpzLayoutCheck::Locate(const UINT8* head, std::uint64_t fileSize) {
  DtRawLayoutCheck::Places lib;
  DtRawLayoutCheck::Locate(head, fileSize, &lib);
  Places places;
  places.count = lib.m_count;
  for (std::size_t i = 0; i < places.count; ++i) {
    const DtRawLayoutCheck::Place& q = lib.m_at[i];
    Place& p = places.at[i];
    p.part = static_cast<Part>(q.m_part);
    p.tag = q.m_tag;
    p.entry = q.m_entry;
    p.pos = q.m_pos;
    p.size = q.m_size;
    p.hasData = q.m_hasData;
    std::memcpy(p.data, q.m_data, sizeof p.data);
  }
  places.fileSize = lib.m_fileSize;
  std::memcpy(places.read, lib.m_read, sizeof places.read);
  std::memcpy(places.cut, lib.m_cut, sizeof places.cut);
  return places;
}
