// KpzServeHttpTest.cpp - kpz serve's rules for ranges, dates, tags,
// signatures and paths (tools/kpz/serve/KpzServeHttp).
#include <gtest/gtest.h>

#if defined(KPZ_TEST_HAVE_SERVE)

#include "kpz/serve/KpzServeHttp.h"

using Kind = KpzServeHttp::Range::Kind;

TEST(KpzServeHttp, RangeFromFirstToLastIsInclusive) {
  const KpzServeHttp::Range r = KpzServeHttp::ParseRange("bytes=0-99", 1000);
  EXPECT_EQ(r.kind, Kind::Satisfiable);
  EXPECT_EQ(r.first, 0u);
  EXPECT_EQ(r.length, 100u);
}

TEST(KpzServeHttp, RangeOpenEndedRunsToTheEnd) {
  const KpzServeHttp::Range r = KpzServeHttp::ParseRange("bytes=900-", 1000);
  EXPECT_EQ(r.kind, Kind::Satisfiable);
  EXPECT_EQ(r.first, 900u);
  EXPECT_EQ(r.length, 100u);
}

TEST(KpzServeHttp, RangeSuffixTakesTheLastBytes) {
  const KpzServeHttp::Range r = KpzServeHttp::ParseRange("bytes=-10", 1000);
  EXPECT_EQ(r.kind, Kind::Satisfiable);
  EXPECT_EQ(r.first, 990u);
  EXPECT_EQ(r.length, 10u);
  const KpzServeHttp::Range all = KpzServeHttp::ParseRange("bytes=-5000", 1000);
  EXPECT_EQ(all.first, 0u);
  EXPECT_EQ(all.length, 1000u);
}

TEST(KpzServeHttp, RangeLastPastTheEndIsClamped) {
  const KpzServeHttp::Range r = KpzServeHttp::ParseRange("bytes=500-5000", 1000);
  EXPECT_EQ(r.kind, Kind::Satisfiable);
  EXPECT_EQ(r.length, 500u);
}

TEST(KpzServeHttp, RangeWhollyPastTheEndIsUnsatisfiable) {
  EXPECT_EQ(KpzServeHttp::ParseRange("bytes=1000-", 1000).kind, Kind::Unsatisfiable);
  EXPECT_EQ(KpzServeHttp::ParseRange("bytes=-0", 1000).kind, Kind::Unsatisfiable);
}

TEST(KpzServeHttp, RangeMalformedOrSeveralIsIgnored) {
  EXPECT_EQ(KpzServeHttp::ParseRange("bytes=5-1", 1000).kind, Kind::None);
  EXPECT_EQ(KpzServeHttp::ParseRange("bytes=0-1,5-6", 1000).kind, Kind::None);
  EXPECT_EQ(KpzServeHttp::ParseRange("items=0-1", 1000).kind, Kind::None);
  EXPECT_EQ(KpzServeHttp::ParseRange("bytes=x-1", 1000).kind, Kind::None);
  EXPECT_EQ(KpzServeHttp::ParseRange("bytes=99999999999999999999999-", 1000).kind, Kind::None);
  EXPECT_EQ(KpzServeHttp::ParseRange(nullptr, 1000).kind, Kind::None);
}

TEST(KpzServeHttp, DateRoundTrips) {
  EXPECT_EQ(KpzServeHttp::Date(784111777), "Sun, 06 Nov 1994 08:49:37 GMT");
  std::time_t t = 0;
  ASSERT_TRUE(KpzServeHttp::ParseDate("Sun, 06 Nov 1994 08:49:37 GMT", &t));
  EXPECT_EQ(t, 784111777);
  EXPECT_FALSE(KpzServeHttp::ParseDate("yesterday", &t));
  EXPECT_FALSE(KpzServeHttp::ParseDate(nullptr, &t));
}

TEST(KpzServeHttp, EtagMatchesInAListWeakOrStar) {
  EXPECT_TRUE(KpzServeHttp::MatchesEtag("\"a\", \"b\"", "\"b\""));
  EXPECT_TRUE(KpzServeHttp::MatchesEtag("W/\"b\"", "\"b\""));
  EXPECT_TRUE(KpzServeHttp::MatchesEtag("*", "\"b\""));
  EXPECT_FALSE(KpzServeHttp::MatchesEtag("\"a\"", "\"b\""));
  EXPECT_FALSE(KpzServeHttp::MatchesEtag("\"b", "\"b\""));
}

// RFC 4231, test case 2.
TEST(KpzServeHttp, SignIsHmacSha256) {
  EXPECT_EQ(KpzServeHttp::Sign("Jefe", "what do ya want for nothing?"),
            "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843");
  const std::string sig = KpzServeHttp::Sign("k", "preview/a.kpz");
  EXPECT_TRUE(KpzServeHttp::Verify("k", "preview/a.kpz", sig.c_str()));
  EXPECT_FALSE(KpzServeHttp::Verify("k", "preview/b.kpz", sig.c_str()));
  EXPECT_FALSE(KpzServeHttp::Verify("k", "preview/a.kpz", sig.substr(1).c_str()));
  EXPECT_FALSE(KpzServeHttp::Verify("k", "preview/a.kpz", nullptr));
}

TEST(KpzServeHttp, PathDecodesButRefusesEncodedSeparatorsAndNul) {
  std::string p;
  ASSERT_TRUE(KpzServeHttp::DecodePath("/preview/shot%2001.kpz?x=1", &p));
  EXPECT_EQ(p, "/preview/shot 01.kpz");
  ASSERT_TRUE(KpzServeHttp::DecodePath("/preview/%2e%2e/a.kpz", &p));
  EXPECT_EQ(p, "/preview/../a.kpz");  // decoded; the path check refuses ".."
  EXPECT_FALSE(KpzServeHttp::DecodePath("/preview/a%2fb.kpz", &p));
  EXPECT_FALSE(KpzServeHttp::DecodePath("/preview/a%2Fb.kpz", &p));
  EXPECT_FALSE(KpzServeHttp::DecodePath("/preview/a%5cb.kpz", &p));
  EXPECT_FALSE(KpzServeHttp::DecodePath("/preview/a\\b.kpz", &p));
  EXPECT_FALSE(KpzServeHttp::DecodePath("/preview/a.kpz%00", &p));
  EXPECT_FALSE(KpzServeHttp::DecodePath("preview/a.kpz", &p));
}

#else

TEST(KpzServeHttp, NeedsKpzServe) { GTEST_SKIP() << "kpz serve is not built"; }

#endif
