// DtRawExpected.h - a value or the failure that stands in its place, never
// both, and the caller must look (the type is [[nodiscard]]).
//
// Layer: jni/raw. Returned by the record parse (DtRawRecord) and its picture
// look-ups.
//
//   const DtRawExpected<DtRawRecord> record = DtRawRecord::Parse(head, size);
//   if (!record) { report(record.Failure()); return; }
//   use(record->m_orientation);
//
// Holds both objects by value; only the one that the state names is
// meaningful (the other stays as default-constructed). Asking for the value
// of a failure (or the failure of a value) is a programming error: it gives
// the default-constructed object.
#ifndef KPZ_RAW_DTRAWEXPECTED_H
#define KPZ_RAW_DTRAWEXPECTED_H

#include "raw/DtRawFailure.h"

template <class T>
class [[nodiscard]] DtRawExpected {
 public:
  DtRawExpected(const T& value) : m_ok(true), m_value(value), m_failure() {}  // NOLINT: implicit
  DtRawExpected(const DtRawFailure& failure)                                  // NOLINT: implicit
      : m_ok(false), m_value(), m_failure(failure) {}

  explicit operator bool() const { return m_ok; }
  bool Ok() const { return m_ok; }

  const T& Value() const { return m_value; }
  const T& operator*() const { return m_value; }
  const T* operator->() const { return &m_value; }

  const DtRawFailure& Failure() const { return m_failure; }

 private:
  bool m_ok;
  T m_value;
  DtRawFailure m_failure;
};

#endif  // KPZ_RAW_DTRAWEXPECTED_H
