// KpzBatch.h - runs one task per file of a kpz command on a pool of threads
// and hands the outcomes back in input order.
//
// Part of the kit (kit/kpz); uses only the C++ library.
// Task i runs on some worker thread; its Outcome is given to the sink on the
// calling thread, in index order, as soon as it and every outcome before it
// are there, so what a command prints is the same whatever the timing. The
// workers stay at most Window(jobs) tasks ahead of the delivery, which
// bounds the outcomes held at once. Tasks must not depend on each other;
// each uses its own library objects (one DtRaw per task).
//
//   KpzBatch::Run(files.size(), jobs,
//       [&](std::size_t i) { return infoOf(files[i]); },           // worker threads
//       [&](std::size_t i, KpzBatch::Outcome& o) { print(o); },    // this thread, in order
//       [&](std::size_t done) { bar.Update(done, files.size()); });
//
// A task that throws does not end the process: its exception becomes that
// file's failure (see Run).
//
// Holds nothing between calls; every operation is a static function. The
// callables and the clock are borrowed for the call.
#ifndef KPZ_TOOLS_KPZ_KPZBATCH_H
#define KPZ_TOOLS_KPZ_KPZBATCH_H

#include <cstddef>
#include <functional>
#include <string>

#include "kpz/KpzClock.h"

class KpzBatch {
 public:
  // What one task produced.
  struct Outcome {
    int status = 0;      // 0 done; else the exit status it asks for (1 input, 2 usage, 3 output)
    std::string out;     // text for standard output
    std::string err;     // the tool's own lines for standard error
    std::string reason;  // the failure in a few words, for the summary; empty when done
    std::string note;    // a file done with a remark the summary counts ("re-encoded at
                         // quality 95: ..."); empty when there is none
  };

  using Task = std::function<Outcome(std::size_t index)>;
  using Sink = std::function<void(std::size_t index, Outcome& outcome)>;
  using Tick = std::function<void(std::size_t delivered)>;

  // How often `tick` is called while the calling thread waits, in ms.
  static constexpr unsigned int kTickMs = 100;

  // Runs task(0) .. task(count - 1) on min(jobs, count) worker threads (jobs
  // 0 counts as 1) and gives every outcome to `sink` on the calling thread in
  // index order. `tick` is called on the calling thread with the number of
  // outcomes delivered so far after each delivery and about every kTickMs ms
  // while waiting. When no worker thread can be started, the calling thread
  // runs the tasks itself, one after another; so it does for a count of 1.
  // Returns the number of worker threads that ran (0 in those cases or for a
  // count of 0).
  // A task that throws gives, instead of its outcome, a failure with exit
  // status 1 whose `reason` is Thrown's words; `err` stays empty, for the
  // sink to tell it with the file's name. The waits between ticks are
  // measured on `clock`.
  static unsigned int Run(std::size_t count, unsigned int jobs, const Task& task,
                          const Sink& sink, const Tick& tick,
                          const KpzClock& clock = KpzClock::Steady());

  // The words for an exception a task threw, the one being handled (call
  // only inside a catch block): "not enough memory" for std::bad_alloc,
  // "failed: <what()>" for another std::exception, "failed for an unknown
  // reason" for anything else.
  static std::string Thrown();

  // Tasks the workers may run ahead of the delivery.
  static std::size_t Window(unsigned int jobs);

  // The number of processors, at least 1.
  static unsigned int DefaultJobs();
};

#endif  // KPZ_TOOLS_KPZ_KPZBATCH_H
