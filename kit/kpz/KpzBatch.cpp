// KpzBatch.cpp - the worker threads of a kpz batch and the in-order delivery
// of their outcomes (kit/kpz). See KpzBatch.h for the contracts.

#include "kpz/KpzBatch.h"

#include "kpz/KpzExitStatus.h"

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
struct Shared {
  std::mutex lock;
  std::condition_variable ready;  // an outcome was stored
  std::condition_variable space;  // the delivery moved on
  std::vector<std::unique_ptr<KpzBatch::Outcome>> slots;
  std::size_t next = 0;       // the next index a worker takes
  std::size_t delivered = 0;  // outcomes handed to the sink
  std::size_t window = 1;
};

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

void work(Shared* s, const KpzBatch::Task& task) {
  const std::size_t count = s->slots.size();
  for (;;) {  // each pass takes a new index; there are `count` of them
    std::size_t i = 0;
    {
      std::unique_lock<std::mutex> hold(s->lock);
      s->space.wait(hold, [s, count] {
        return s->next >= count || s->next - s->delivered < s->window;
      });
      if (s->next >= count) {
        return;
      }
      i = s->next++;
    }
    std::unique_ptr<KpzBatch::Outcome> outcome(new KpzBatch::Outcome(guarded(task, i)));
    {
      std::lock_guard<std::mutex> hold(s->lock);
      s->slots[i] = std::move(outcome);
    }
    s->ready.notify_one();
  }
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
    Outcome outcome = guarded(task, 0);
    sink(0, outcome);
    tick(1);
    return 0;
  }
  Shared shared;
  shared.slots.resize(count);
  shared.window = Window(static_cast<unsigned int>(wanted));
  std::vector<std::thread> workers;
  for (std::size_t w = 0; w < wanted; ++w) {
    try {
      workers.emplace_back(work, &shared, std::cref(task));
    } catch (const std::system_error&) {
      break;  // run with the workers there are
    }
  }
  if (workers.empty()) {
    for (std::size_t i = 0; i < count; ++i) {
      Outcome outcome = guarded(task, i);
      sink(i, outcome);
      tick(i + 1);
    }
    return 0;
  }
  for (std::size_t i = 0; i < count; ++i) {
    std::unique_ptr<Outcome> outcome;
    {
      std::unique_lock<std::mutex> hold(shared.lock);
      while (!shared.slots[i]) {  // a worker holds index i and will store it
        if (clock.WaitFor(shared.ready, hold, std::chrono::milliseconds(kTickMs))) {
          hold.unlock();
          tick(i);
          hold.lock();
        }
      }
      outcome = std::move(shared.slots[i]);
      shared.delivered = i + 1;
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
