// KpzServeFailure.cpp - kpz serve's table of failures (tools/kpz/serve).
// See the header.
#include "kpz/serve/KpzServeFailure.h"

namespace {

constexpr unsigned kUnprocessable = 422;

struct Entry {
  DtRawFailure::Kind kind;
  KpzServeFailure::Row row;
};

const Entry kTable[] = {
    {DtRawFailure::KindNotKpz, {kUnprocessable, KpzServeMetrics::NotKpz}},
    {DtRawFailure::KindDamaged, {kUnprocessable, KpzServeMetrics::Damaged}},
    {DtRawFailure::KindNoPreview, {kUnprocessable, KpzServeMetrics::NoPreview}},
    {DtRawFailure::KindNoThumbnail, {kUnprocessable, KpzServeMetrics::NoThumbnail}},
    {DtRawFailure::KindUnreadable, {kUnprocessable, KpzServeMetrics::Unreadable}},
};

}  // namespace

KpzServeFailure::Row KpzServeFailure::Of(DtRawFailure::Kind kind) {
  for (const Entry& e : kTable) {
    if (e.kind == kind) return e.row;
  }
  return {kUnprocessable, KpzServeMetrics::Unreadable};
}
