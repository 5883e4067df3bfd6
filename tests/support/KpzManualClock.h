// KpzManualClock.h - clocks for tests of the kit's timed parts (KpzClock):
// time that moves only when the test says so, and waits that run out at
// once, so that a test never depends on how fast the machine is.
//
//   KpzManualClock clock;
//   KpzProgressBar bar(fd, true, clock);
//   clock.Advance(std::chrono::milliseconds(1001));
#ifndef KPZ_TESTS_SUPPORT_KPZMANUALCLOCK_H
#define KPZ_TESTS_SUPPORT_KPZMANUALCLOCK_H

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "kpz/KpzClock.h"

// Now() stands still until Advance; WaitFor gives the lock up once and
// reports the time as run out (as if the timeout had passed at once).
class KpzManualClock : public KpzClock {
 public:
  TimePoint Now() const override { return m_now; }
  bool WaitFor(std::condition_variable&, std::unique_lock<std::mutex>& hold,
               std::chrono::milliseconds) const override {
    hold.unlock();  // others may take the lock meanwhile, as in a real wait
    hold.lock();
    return true;
  }
  void Advance(std::chrono::milliseconds by) { m_now += by; }

 private:
  TimePoint m_now{};  // set by the test's thread only
};

#endif  // KPZ_TESTS_SUPPORT_KPZMANUALCLOCK_H
