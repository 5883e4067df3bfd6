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
// When the number of tasks is not known in advance (the files are found as
// the run goes), RunWhile takes a `more` callable instead of a count:
// more(i) is asked, for i = 0, 1, 2 ... in turn, whether there is a task i
// (and may make its input ready); the first false ends the run. What is held
// at once is bounded by the window, whatever the number of tasks.
//
//   KpzBatch::RunWhile(jobs,
//       [&](std::size_t i) { return walk.Next(&inputs[i % n]); },  // one call at a time
//       task, sink, tick);
//
// Holds nothing between calls; every operation is a static function. The
// callables and the clock are borrowed for the call.
#ifndef KPZ_KIT_KPZ_KPZBATCH_H
#define KPZ_KIT_KPZ_KPZBATCH_H

#include <cstddef>
#include <functional>
#include <string>

#include "kpz/KpzClock.h"
#include "kpz/KpzExitStatus.h"

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
  using More = std::function<bool(std::size_t index)>;

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

  // Runs task(0), task(1) ... while more(i) says there is a task i, as Run
  // does otherwise: outcomes to `sink` in index order on the calling thread,
  // `tick` likewise. more(i) is called once for each i in increasing order,
  // one call at a time (from a worker thread or the calling thread), never
  // again after it returned false, and for an index i only once the
  // outcome of i - Window(jobs) is in the sink's hands (the window counts
  // from the outcomes delivered, the one being delivered included): so the
  // inputs of the tasks fit in a ring of Window(jobs) + 1 places, the input
  // of i being needed until sink(i) returns. A more() that throws ends the
  // run as a false would.
  // `jobs` worker threads are started (0 counts as 1) once more(0) and
  // more(1) said there are two tasks; a single task runs on the calling
  // thread. Returns the number of worker threads that ran.
  static unsigned int RunWhile(unsigned int jobs, const More& more, const Task& task,
                               const Sink& sink, const Tick& tick,
                               const KpzClock& clock = KpzClock::Steady());

  // A failure of `file`, told on one line: "kpz: <file>: <why>\n" in `err`,
  // the name shown as KpzShownName shows it; `why` is the summary's reason.
  static Outcome Failure(KpzExitStatus status, const std::string& file, const std::string& why);

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

#endif  // KPZ_KIT_KPZ_KPZBATCH_H
