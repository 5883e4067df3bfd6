// KpzServeFailureTest.cpp - kpz serve's one table from a kind of failure to
// its answer and its counter (tools/kpz/serve/KpzServeFailure).
#include <gtest/gtest.h>

#if defined(KPZ_TEST_HAVE_SERVE)

#include <set>
#include <string>

#include "kpz/serve/KpzServeFailure.h"
#include "kpz/serve/KpzServeMetrics.h"
#include "raw/DtRawFailure.h"

namespace {

const DtRawFailure::Kind kKinds[] = {DtRawFailure::KindNotKpz, DtRawFailure::KindDamaged,
                                     DtRawFailure::KindNoPreview, DtRawFailure::KindNoThumbnail,
                                     DtRawFailure::KindUnreadable};

}  // namespace

TEST(KpzServeFailure, EveryKindOfAFileIsUnprocessable) {
  for (const DtRawFailure::Kind kind : kKinds) {
    EXPECT_EQ(KpzServeFailure::Of(kind).status, 422u) << DtRawFailure::Name(kind);
  }
}

TEST(KpzServeFailure, EveryKindIsCountedUnderItsOwnName) {
  std::set<std::string> labels;
  for (const DtRawFailure::Kind kind : kKinds) {
    const char* label = KpzServeMetrics::FailureName(KpzServeFailure::Of(kind).counted);
    EXPECT_STREQ(label, DtRawFailure::Name(kind));
    labels.insert(label);
  }
  EXPECT_EQ(labels.size(), sizeof kKinds / sizeof kKinds[0]);
}

TEST(KpzServeFailure, AMissingThumbnailIsNotCountedAsAMissingPreview) {
  EXPECT_EQ(KpzServeFailure::Of(DtRawFailure::KindNoThumbnail).counted,
            KpzServeMetrics::NoThumbnail);
  EXPECT_EQ(KpzServeFailure::Of(DtRawFailure::KindNoPreview).counted, KpzServeMetrics::NoPreview);
}

TEST(KpzServeFailure, NoKindOrAnUnknownOneIsToldAsUnreadable) {
  EXPECT_EQ(KpzServeFailure::Of(DtRawFailure::KindNone).counted, KpzServeMetrics::Unreadable);
  EXPECT_EQ(KpzServeFailure::Of(static_cast<DtRawFailure::Kind>(99)).counted,
            KpzServeMetrics::Unreadable);
  EXPECT_EQ(KpzServeFailure::Of(static_cast<DtRawFailure::Kind>(99)).status, 422u);
}

TEST(KpzServeFailure, TheMetricsNameEveryFailureAndNoOther) {
  EXPECT_STREQ(KpzServeMetrics::FailureName(KpzServeMetrics::NotFound), "not_found");
  EXPECT_STREQ(KpzServeMetrics::FailureName(KpzServeMetrics::Incomplete), "incomplete");
  EXPECT_STREQ(KpzServeMetrics::FailureName(KpzServeMetrics::kFailures), "other");
}

TEST(KpzServeFailure, TheMetricsTextCountsEachKindAndTheParses) {
  KpzServeMetrics metrics;
  metrics.Fail(KpzServeFailure::Of(DtRawFailure::KindNoThumbnail).counted);
  metrics.Parsed();
  metrics.Parsed();
  const std::string text = metrics.Text(KpzServeMetrics::Gauges());
  EXPECT_NE(text.find("\nkpz_serve_failures_total{kind=\"no_thumbnail\"} 1\n"), std::string::npos);
  EXPECT_NE(text.find("\nkpz_serve_failures_total{kind=\"no_preview\"} 0\n"), std::string::npos);
  EXPECT_NE(text.find("\nkpz_serve_head_parses_total 2\n"), std::string::npos);
  EXPECT_EQ(text.find("no_picture"), std::string::npos);
}

#endif  // KPZ_TEST_HAVE_SERVE
