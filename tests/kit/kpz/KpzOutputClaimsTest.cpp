// KpzOutputClaimsTest.cpp - which input of a batch owns a shared output name
// (kit/kpz/KpzOutputClaims): the first in input order that wrote it,
// whatever the timing of the threads; failed inputs take nothing.
#include <gtest/gtest.h>

#if defined(KPZ_TEST_HAVE_KIT)

#include "kpz/KpzOutputClaims.h"

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

namespace {

const std::size_t kNone = KpzOutputClaims::kNone;

TEST(KpzOutputClaims, InputsWithTheSameKeyAreChainedInInputOrder) {
  const KpzOutputClaims claims({"a", "b", "a", "", "a", "b"});
  EXPECT_EQ(claims.Previous(0), kNone);
  EXPECT_EQ(claims.Previous(1), kNone);
  EXPECT_EQ(claims.Previous(2), 0u);
  EXPECT_EQ(claims.Previous(3), kNone);  // no key: in no group
  EXPECT_EQ(claims.Previous(4), 2u);
  EXPECT_EQ(claims.Previous(5), 1u);
}

TEST(KpzOutputClaims, AFirstInputNeverWaits) {
  KpzOutputClaims claims({"a", "a"});
  KpzOutputClaims::Turn turn(claims, 0);
  EXPECT_EQ(turn.WaitForEarlier(), kNone);
}

TEST(KpzOutputClaims, TheWriterIsNamedToEveryLaterInput) {
  KpzOutputClaims claims({"x", "x", "x"});
  {
    KpzOutputClaims::Turn first(claims, 0);
    first.Wrote();
  }
  {
    KpzOutputClaims::Turn second(claims, 1);
    EXPECT_EQ(second.WaitForEarlier(), 0u);
  }
  KpzOutputClaims::Turn third(claims, 2);
  EXPECT_EQ(third.WaitForEarlier(), 0u);
}

TEST(KpzOutputClaims, AFailedInputLeavesTheNameToTheNext) {
  KpzOutputClaims claims({"x", "x", "x"});
  { KpzOutputClaims::Turn failed(claims, 0); }  // ends without writing
  {
    KpzOutputClaims::Turn second(claims, 1);
    EXPECT_EQ(second.WaitForEarlier(), kNone);
    second.Wrote();
  }
  KpzOutputClaims::Turn third(claims, 2);
  EXPECT_EQ(third.WaitForEarlier(), 1u);
}

TEST(KpzOutputClaims, ALaterInputWaitsForAnEarlierOneStillRunning) {
  for (const bool earlierWrites : {true, false}) {
    KpzOutputClaims claims({"x", "x"});
    std::atomic<bool> earlierDone{false};
    std::size_t seen = 12345;
    bool waitedLongEnough = false;
    std::thread later;
    {
      KpzOutputClaims::Turn first(claims, 0);
      later = std::thread([&] {
        KpzOutputClaims::Turn second(claims, 1);
        seen = second.WaitForEarlier();
        waitedLongEnough = earlierDone.load();
      });
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      if (earlierWrites) first.Wrote();
      earlierDone = true;
    }
    later.join();
    EXPECT_TRUE(waitedLongEnough);
    EXPECT_EQ(seen, earlierWrites ? 0u : kNone);
  }
}

TEST(KpzOutputClaims, WordsNameTheOwnerOrAnEarlierInput) {
  EXPECT_EQ(KpzOutputClaims::TakenWords("out/x.preview.jpg", "b/x.kpz"),
            "not written: out/x.preview.jpg is already written by b/x.kpz");
  EXPECT_EQ(KpzOutputClaims::TakenEarlierWords("out/x.preview.jpg"),
            "not written: out/x.preview.jpg is already written by an earlier input");
}

}  // namespace

#else

TEST(KpzOutputClaims, NeedsTheKpzTool) { GTEST_SKIP() << "the kpz tool is not built"; }

#endif
