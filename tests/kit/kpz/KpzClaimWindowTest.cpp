// KpzClaimWindowTest.cpp - which input owns a shared output name when the
// inputs come as the run goes (kit/kpz/KpzClaimWindow): the first in input
// order that wrote it, also when that input was delivered and let go long
// before; what is held stays within the window.
#include <gtest/gtest.h>

#if defined(KPZ_TEST_HAVE_KIT)

#include "kpz/KpzBatch.h"
#include "kpz/KpzClaimWindow.h"

#include <algorithm>
#include <atomic>
#include <map>
#include <string>
#include <thread>
#include <vector>

namespace {

using Earlier = KpzClaimWindow::Earlier;

// Input i's turn, run at once: it writes when `writes`; what it found.
Earlier Turn(KpzClaimWindow& claims, std::size_t i, bool writes) {
  KpzClaimWindow::Turn turn(claims, i);
  const Earlier e = turn.WaitForEarlier();
  if (writes && !e.taken) turn.Wrote();
  return e;
}

TEST(KpzClaimWindow, AWriterLetGoIsStillNamedToALaterInput) {
  KpzClaimWindow claims;
  claims.Add(0, "out/x.jpg", "a/x.kpz");
  claims.Add(1, "out/y.jpg", "a/y.kpz");
  EXPECT_FALSE(Turn(claims, 0, true).taken);
  EXPECT_FALSE(Turn(claims, 1, true).taken);
  claims.Release(0);
  claims.Release(1);
  EXPECT_EQ(claims.Held(), 0u);
  EXPECT_EQ(claims.Written(), 2u);
  claims.Add(2, "out/x.jpg", "b/x.kpz");
  const Earlier e = Turn(claims, 2, true);
  EXPECT_TRUE(e.taken);
  EXPECT_TRUE(e.named);
  EXPECT_EQ(e.owner, "a/x.kpz");
}

TEST(KpzClaimWindow, AFailedInputLeavesTheNameToTheNextAcrossReleases) {
  KpzClaimWindow claims;
  claims.Add(0, "x", "first");
  EXPECT_FALSE(Turn(claims, 0, false).taken);  // fails: takes nothing
  claims.Release(0);
  claims.Add(1, "x", "second");
  EXPECT_FALSE(Turn(claims, 1, true).taken);
  claims.Release(1);
  claims.Add(2, "x", "third");
  const Earlier e = Turn(claims, 2, true);
  EXPECT_TRUE(e.taken);
  EXPECT_EQ(e.owner, "second");
}

TEST(KpzClaimWindow, AnInputWithoutANameTakesPartInNoGroup) {
  KpzClaimWindow claims;
  claims.Add(0, "", "unreadable");
  claims.Add(1, "", "unreadable too");
  EXPECT_FALSE(Turn(claims, 0, true).taken);
  EXPECT_FALSE(Turn(claims, 1, true).taken);
  claims.Release(0);
  claims.Release(1);
  EXPECT_EQ(claims.Written(), 0u);
}

TEST(KpzClaimWindow, ALaterInputWaitsForAnEarlierOneStillRunning) {
  // The earlier input ends (and, in one case, is let go) only once the later
  // one is seen waiting for it: the later one's answer follows the earlier
  // one's outcome. A wait that did not wait answers before the earlier one
  // ends, and the test fails, whatever the timing.
  for (const bool earlierWrites : {true, false}) {
    for (const bool released : {true, false}) {
      KpzClaimWindow claims;
      claims.Add(0, "x", "first");
      claims.Add(1, "x", "second");
      std::atomic<bool> earlierDone{false};
      std::atomic<bool> answered{false};
      Earlier seen;
      bool answeredAfterTheEarlier = false;
      std::thread later;
      {
        KpzClaimWindow::Turn first(claims, 0);
        later = std::thread([&] {
          KpzClaimWindow::Turn second(claims, 1);
          seen = second.WaitForEarlier();
          answeredAfterTheEarlier = earlierDone.load();
          answered = true;
        });
        // Until the later input waits or (a broken wait) has answered; the
        // bound only keeps a hang from lasting.
        for (long spins = 0; spins < 1000000000L && claims.Waiting() == 0 && !answered; ++spins) {
          std::this_thread::yield();
        }
        EXPECT_EQ(claims.Waiting(), answered ? 0u : 1u);
        if (earlierWrites) first.Wrote();
        earlierDone = true;
      }
      if (released) claims.Release(0);
      later.join();
      EXPECT_TRUE(answeredAfterTheEarlier);
      EXPECT_EQ(seen.taken, earlierWrites);
      if (earlierWrites) {
        EXPECT_EQ(seen.owner, "first");
      }
    }
  }
}

TEST(KpzClaimWindow, WritersBeyondTheOnesKeptAreToldAsAnEarlierInput) {
  // 10,000 inputs, names 0..4999 twice: every second one is refused; the
  // writer is named for the last 100 names written, the others are told as
  // an earlier input. What is held: the window's inputs, a digest per name.
  KpzClaimWindow claims(100);
  const std::size_t window = 65;
  std::size_t named = 0;
  std::size_t unnamed = 0;
  std::size_t mostHeld = 0;
  for (std::size_t i = 0; i < 10000; ++i) {
    claims.Add(i, "out/" + std::to_string(i % 5000), "in/" + std::to_string(i));
    if (i >= window) claims.Release(i - window);  // delivered
    const Earlier e = Turn(claims, i, true);
    mostHeld = std::max(mostHeld, claims.Held());
    if (i < 5000) {
      EXPECT_FALSE(e.taken) << i;
      continue;
    }
    ASSERT_TRUE(e.taken) << i;
    if (e.named) {
      ++named;
      EXPECT_EQ(e.owner, "in/" + std::to_string(i - 5000));
      EXPECT_GE(i - 5000, 4900u);  // one of the last hundred written
    } else {
      ++unnamed;
    }
  }
  EXPECT_EQ(named, 100u);
  EXPECT_EQ(unnamed, 4900u);
  EXPECT_LE(mostHeld, window + 1);
  EXPECT_LE(claims.OwnersKept(), 100u);
  EXPECT_EQ(claims.Written(), 5000u);
}

TEST(KpzClaimWindow, ABatchOfUnknownCountKeepsTheRuleAcrossItsWindow) {
  // Worker threads, inputs added as the batch asks for them and let go as
  // they are delivered: names shared by inputs far apart (300 names over
  // 3,000 inputs), some inputs failing. The owner of each name is the first
  // input of it, in input order, that did not fail, whatever the timing.
  const std::size_t count = 3000;
  const auto key = [](std::size_t i) { return "out/" + std::to_string(i % 300); };
  const auto fails = [](std::size_t i) { return i % 7 == 3; };
  std::map<std::string, std::size_t> owner;  // the expected owner of each name
  for (std::size_t i = 0; i < count; ++i) {
    if (!fails(i)) owner.emplace(key(i), i);
  }
  for (const unsigned int jobs : {1u, 4u}) {
    KpzClaimWindow claims;
    std::vector<std::string> lines;
    KpzBatch::RunWhile(
        jobs,
        [&](std::size_t i) {
          if (i >= count) return false;
          claims.Add(i, key(i), "in/" + std::to_string(i));
          return true;
        },
        [&](std::size_t i) {
          KpzClaimWindow::Turn turn(claims, i);
          KpzBatch::Outcome o;
          if (fails(i)) {
            o.status = 1;
            return o;
          }
          const Earlier e = turn.WaitForEarlier();
          if (e.taken) {
            o.status = 3;
            o.out = e.named ? e.owner : "?";
            return o;
          }
          turn.Wrote();
          return o;
        },
        [&](std::size_t i, KpzBatch::Outcome& o) {
          lines.push_back(o.out);
          EXPECT_LE(claims.Held(), KpzBatch::Window(jobs) + 1);
          claims.Release(i);
          const std::size_t first = owner.at(key(i));
          if (fails(i)) {
            EXPECT_EQ(o.status, 1) << i;
          } else if (i == first) {
            EXPECT_EQ(o.status, 0) << i;
          } else {
            EXPECT_EQ(o.status, 3) << i;
            EXPECT_EQ(o.out, "in/" + std::to_string(first)) << i;
          }
        },
        [](std::size_t) {});
    EXPECT_EQ(lines.size(), count);
    EXPECT_EQ(claims.Held(), 0u);
    EXPECT_EQ(claims.Written(), 300u);
  }
}

TEST(KpzClaimWindow, WordsNameTheOwnerOrAnEarlierInput) {
  EXPECT_EQ(KpzClaimWindow::TakenWords("out/x.preview.jpg", "b/x.kpz"),
            "not written: out/x.preview.jpg is already written by b/x.kpz");
  EXPECT_EQ(KpzClaimWindow::TakenWords("o\n.jpg", "i.kpz"),
            "not written: 'o\\n.jpg' is already written by i.kpz");
  EXPECT_EQ(KpzClaimWindow::TakenEarlierWords("out/x.preview.jpg"),
            "not written: out/x.preview.jpg is already written by an earlier input");
}

}  // namespace

#else

TEST(KpzClaimWindow, NeedsTheKpzTool) { GTEST_SKIP() << "the kpz tool is not built"; }

#endif
