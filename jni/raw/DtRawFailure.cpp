// DtRawFailure.cpp - why a KPZ file could not be used (jni/raw). See
// DtRawFailure.h.
#include "raw/DtRawFailure.h"

#include <cstdio>

void DtRawFailure::Set(Kind kind, int err, int code, const char* words) {
  m_kind = kind;
  m_errno = err;
  m_code = code;
  m_reason = DtRawLayoutCheck::ReasonNone;
  m_part = DtRawLayoutCheck::PartNone;
  m_value = false;
  m_at = 0;
  std::snprintf(m_words, sizeof m_words, "%s", words != nullptr ? words : "");
}

const char* DtRawFailure::Name(Kind kind) {
  switch (kind) {
    case KindNotKpz:
      return "not_kpz";
    case KindDamaged:
      return "damaged";
    case KindNoPreview:
      return "no_preview";
    case KindNoThumbnail:
      return "no_thumbnail";
    case KindUnreadable:
      return "unreadable";
    case KindNone:
    default:
      return "none";
  }
}
