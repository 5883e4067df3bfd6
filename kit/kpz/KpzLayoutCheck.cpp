// KpzLayoutCheck.cpp - the kit's face of the library's layout check
// (jni/raw/DtRawLayoutCheck). See KpzLayoutCheck.h.

#include "kpz/KpzLayoutCheck.h"

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

KpzLayoutCheck::Places KpzLayoutCheck::Locate(const UINT8* head, std::uint64_t fileSize) {
  Places places;
  DtRawLayoutCheck::Locate(head, fileSize, &places);
  return places;
}
