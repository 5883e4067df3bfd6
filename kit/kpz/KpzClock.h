// KpzClock.h - the time the kit's timed parts read: the progress bar (when a
// run is long, how often it redraws) and the batch runner (how long the
// delivering thread waits before it ticks).
//
// Part of the kit (kit/kpz); uses only the C++ library. Production code
// passes nothing and gets KpzClock::Steady(), std::chrono::steady_clock. A
// test passes a clock of its own, so that what it checks never depends on
// how fast the machine runs:
//
//   class ManualClock : public KpzClock { ... Now() returns a time the test sets ... };
//   ManualClock clock;
//   KpzProgressBar bar(fd, true, clock);
//   clock.Advance(std::chrono::milliseconds(1001));   // a long run, without sleeping
//
// A clock is borrowed by what uses it and must outlive it. Steady() is one
// immutable object, safe from any thread.
#ifndef KPZ_KIT_KPZ_KPZCLOCK_H
#define KPZ_KIT_KPZ_KPZCLOCK_H

#include <chrono>
#include <condition_variable>
#include <mutex>

class KpzClock {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;

  KpzClock() = default;
  virtual ~KpzClock() = default;
  KpzClock(const KpzClock&) = delete;
  KpzClock& operator=(const KpzClock&) = delete;

  // The time now; never goes back.
  virtual TimePoint Now() const { return std::chrono::steady_clock::now(); }

  // Waits on `ready` (with `hold` locked, as condition_variable::wait_for)
  // until it is notified, woken spuriously, or `timeout` has passed on this
  // clock. True when the time ran out.
  virtual bool WaitFor(std::condition_variable& ready, std::unique_lock<std::mutex>& hold,
                       std::chrono::milliseconds timeout) const {
    return ready.wait_for(hold, timeout) == std::cv_status::timeout;
  }

  // The steady clock, the one production code uses.
  static const KpzClock& Steady() {
    static const KpzClock steady;
    return steady;
  }
};

#endif  // KPZ_KIT_KPZ_KPZCLOCK_H
