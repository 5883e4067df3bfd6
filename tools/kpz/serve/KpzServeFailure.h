// KpzServeFailure.h - how kpz serve answers for a file it cannot use: one
// table from the kind of the failure (DtRawFailure::Kind, the one list every
// front end maps) to the HTTP status and the label /metrics counts it
// under. The body is the failure's own words, the kit's, as kpz prints them.
//
// Part of the kpz tool (tools/kpz/serve), beside the counters
// (KpzServeMetrics) it names a row of.
//
//   const KpzServeFailure::Row row = KpzServeFailure::Of(why.m_kind);
//   metrics.Fail(row.counted);
//   answer(row.status, std::string(why.m_words) + "\n");
//
// Holds nothing; every operation is a static function.
#ifndef KPZ_TOOLS_KPZ_SERVE_KPZSERVEFAILURE_H
#define KPZ_TOOLS_KPZ_SERVE_KPZSERVEFAILURE_H

#include "kpz/serve/KpzServeMetrics.h"
#include "raw/DtRawFailure.h"

class KpzServeFailure {
 public:
  struct Row {
    unsigned status;                   // the HTTP status of the answer
    KpzServeMetrics::Failure counted;  // the failure counted at /metrics
  };

  // The row of `kind`. A file that is not KPZ, has no such picture, whose
  // picture is damaged or which cannot be read is a 422, counted under the
  // kind's own name (DtRawFailure::Name: "not_kpz", "damaged", "no_preview",
  // "no_thumbnail", "unreadable"). KindNone, which is no failure, and any
  // other value are told as unreadable.
  static Row Of(DtRawFailure::Kind kind);
};

#endif  // KPZ_TOOLS_KPZ_SERVE_KPZSERVEFAILURE_H
