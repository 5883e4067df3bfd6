// KpzBatch.cpp - the worker threads of a kpz batch and the in-order delivery
// of their outcomes (kit/kpz). See KpzBatch.h for the contracts.

#include "kpz/KpzBatch.h"

#include "kpz/KpzExitStatus.h"
#include "kpz/KpzShownName.h"

#include <chrono>
#include <condition_variable>
#include <exception>
#include <memory>
#include <mutex>
#include <new>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace {

// State shared by the workers and the delivering thread, guarded by `lock`.
// Index i's outcome waits in slots[i % window] until delivered: a worker
// takes i only while i - delivered < window, so no two waiting outcomes share
// a place.
struct Shared {
  std::mutex lock;
  std::condition_variable ready;  // an outcome was stored, or the tasks are all known
  std::condition_variable space;  // the delivery moved on
  std::vector<std::unique_ptr<KpzBatch::Outcome>> slots;
  std::size_t next = 0;       // the next index a worker takes
  std::size_t delivered = 0;  // outcomes handed to the sink
  std::size_t window = 1;
  std::size_t known = 0;      // tasks 0 .. known - 1 exist
  bool ended = false;         // and no other: known is the count
  // Asked, one call at a time (under `asking`), whether the next index is a
  // task; null when the count was given.
  const KpzBatch::More* more = nullptr;
  std::mutex asking;
};

// more(i), a throw counting as the end.
bool ask(const KpzBatch::More& more, std::size_t i) {
  try {
    return more(i);
  } catch (...) {
    return false;
  }
}

// task(i), or the failure its exception stands for.
KpzBatch::Outcome guarded(const KpzBatch::Task& task, std::size_t i) {
  try {
    return task(i);
  } catch (...) {
    KpzBatch::Outcome failed;  // empty strings: nothing allocated yet
    failed.status = KpzExitCode(KpzExitStatus::Input);
    try {
      failed.reason = KpzBatch::Thrown();
    } catch (const std::bad_alloc&) {
      // No memory for the words either: the failure is still counted.
    }
    return failed;
  }
}

// The next index for a worker, or false when there is none. Takes `asking`
// first so that the indices are asked about in order, one at a time.
bool take(Shared* s, std::size_t* index) {
  std::lock_guard<std::mutex> turn(s->asking);
  std::size_t i = 0;
  {
    std::unique_lock<std::mutex> hold(s->lock);
    s->space.wait(hold, [s] {
      return (s->ended && s->next >= s->known) || s->next - s->delivered < s->window;
    });
    if (s->next < s->known) {
      *index = s->next++;
      return true;
    }
    if (s->ended) {
      return false;
    }
    i = s->next;
  }
  const bool there = ask(*s->more, i);  // outside the lock: it may read a directory
  {
    std::lock_guard<std::mutex> hold(s->lock);
    if (there) {
      s->known = i + 1;
      s->next = i + 1;
    } else {
      s->ended = true;
    }
  }
  if (!there) {
    s->ready.notify_all();  // the delivery may be waiting for a task that is not there
    s->space.notify_all();  // nor is there more for the other workers
    return false;
  }
  *index = i;
  return true;
}

void work(Shared* s, const KpzBatch::Task& task) {
  std::size_t i = 0;
  while (take(s, &i)) {  // each pass takes a new index; their number is finite
    std::unique_ptr<KpzBatch::Outcome> outcome(new KpzBatch::Outcome(guarded(task, i)));
    {
      std::lock_guard<std::mutex> hold(s->lock);
      s->slots[i % s->window] = std::move(outcome);
    }
    s->ready.notify_one();
  }
}

// Starts up to `wanted` workers on `shared`, delivers every outcome in index
// order and joins them. Returns the number of workers, 0 when none could be
// started (then nothing ran).
unsigned int runOn(Shared& shared, std::size_t wanted, const KpzBatch::Task& task,
                   const KpzBatch::Sink& sink, const KpzBatch::Tick& tick,
                   const KpzClock& clock) {
  std::vector<std::thread> workers;
  for (std::size_t w = 0; w < wanted; ++w) {
    try {
      workers.emplace_back(work, &shared, std::cref(task));
    } catch (const std::system_error&) {
      break;  // run with the workers there are
    }
  }
  if (workers.empty()) {
    return 0;
  }
  for (std::size_t i = 0;; ++i) {  // ends when the tasks are known and all delivered
    std::unique_ptr<KpzBatch::Outcome> outcome;
    {
      std::unique_lock<std::mutex> hold(shared.lock);
      // A worker holds index i and will store it, or finds that there is none.
      while (!shared.slots[i % shared.window] && !(shared.ended && i >= shared.known)) {
        if (clock.WaitFor(shared.ready, hold, std::chrono::milliseconds(KpzBatch::kTickMs))) {
          hold.unlock();
          tick(i);
          hold.lock();
        }
      }
      if (!shared.slots[i % shared.window]) {
        break;
      }
      outcome = std::move(shared.slots[i % shared.window]);
      shared.delivered = i + 1;  // the one in the sink's hands counts
    }
    shared.space.notify_all();
    sink(i, *outcome);
    tick(i + 1);
  }
  for (std::thread& t : workers) {
    t.join();
  }
  return static_cast<unsigned int>(workers.size());
}

// Task i on the calling thread, delivered at once.
void runHere(const KpzBatch::Task& task, const KpzBatch::Sink& sink, const KpzBatch::Tick& tick,
             std::size_t i) {
  KpzBatch::Outcome outcome = guarded(task, i);
  sink(i, outcome);
  tick(i + 1);
}

}  // namespace

std::size_t KpzBatch::Window(unsigned int jobs) {
  const std::size_t ahead = static_cast<std::size_t>(jobs) * 4;
  return ahead > 64 ? ahead : 64;
}

unsigned int KpzBatch::DefaultJobs() {
  const unsigned int n = std::thread::hardware_concurrency();
  return n > 0 ? n : 1;
}

KpzBatch::Outcome KpzBatch::Failure(KpzExitStatus status, const std::string& file,
                                     const std::string& why) {
  Outcome o;
  o.status = KpzExitCode(status);
  o.err = "kpz: " + KpzShownName::Of(file) + ": " + why + "\n";
  o.reason = why;
  return o;
}

std::string KpzBatch::Thrown() {
  try {
    throw;
  } catch (const std::bad_alloc&) {
    return "not enough memory";
  } catch (const std::exception& e) {
    return std::string("failed: ") + e.what();
  } catch (...) {
    return "failed for an unknown reason";
  }
}

unsigned int KpzBatch::Run(std::size_t count, unsigned int jobs, const Task& task,
                           const Sink& sink, const Tick& tick, const KpzClock& clock) {
  if (count == 0) {
    return 0;
  }
  const std::size_t wanted = jobs == 0 ? 1 : (jobs < count ? jobs : count);
  if (count == 1) {
    // Nothing to overlap and nothing to wait for: no thread is started.
    runHere(task, sink, tick, 0);
    return 0;
  }
  Shared shared;
  shared.window = Window(static_cast<unsigned int>(wanted));
  shared.slots.resize(shared.window < count ? shared.window : count);
  shared.window = shared.slots.size();
  shared.known = count;
  shared.ended = true;
  const unsigned int ran = runOn(shared, wanted, task, sink, tick, clock);
  if (ran == 0) {
    for (std::size_t i = 0; i < count; ++i) {
      runHere(task, sink, tick, i);
    }
  }
  return ran;
}

unsigned int KpzBatch::RunWhile(unsigned int jobs, const More& more, const Task& task,
                                const Sink& sink, const Tick& tick, const KpzClock& clock) {
  // The first two indices are asked about here: a single task runs on this
  // thread, as Run runs a count of 1.
  std::size_t known = 0;
  while (known < 2 && ask(more, known)) {
    ++known;
  }
  if (known < 2) {
    if (known == 1) {
      runHere(task, sink, tick, 0);
    }
    return 0;
  }
  Shared shared;
  shared.window = Window(jobs == 0 ? 1 : jobs);
  shared.slots.resize(shared.window);
  shared.known = known;
  shared.more = &more;
  const unsigned int ran = runOn(shared, jobs == 0 ? 1 : jobs, task, sink, tick, clock);
  if (ran == 0) {
    // No worker thread: one task after another here, each asked about in turn.
    for (std::size_t i = 0; i < known || ask(more, i); ++i) {
      runHere(task, sink, tick, i);
    }
  }
  return ran;
}
