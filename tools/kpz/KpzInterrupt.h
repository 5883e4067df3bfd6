// KpzInterrupt.h - SIGINT and SIGTERM during a kpz run: the run stops taking
// new files, lets the files in hand end (each output written whole, or its
// temporary file removed), prints its summary, then ends by that signal.
//
// Part of the kpz command-line tool (tools/kpz). The handler only stores
// the signal's number in a lock-free atomic (async-signal-safe); the batch
// asks Caught() before each new file. It is installed with SA_RESETHAND:
// a second signal ends the process at once, as if none had been caught
// (its temporary files are then left; a later run into the same output
// directory removes them: KpzOutputFile::RemoveStale).
//
//   KpzInterrupt interrupt;               // for the run
//   ... more(i) returns false once KpzInterrupt::Caught() != 0 ...
//   KpzInterrupt::EndBySignal();           // after the summary; returns when none was caught
//
// One object at a time, made on the main thread; the destructor puts the
// former handlers back.
#ifndef KPZ_TOOLS_KPZ_KPZINTERRUPT_H
#define KPZ_TOOLS_KPZ_KPZINTERRUPT_H

#include <signal.h>

#include <string>

class KpzInterrupt {
 public:
  KpzInterrupt();
  ~KpzInterrupt();
  KpzInterrupt(const KpzInterrupt&) = delete;
  KpzInterrupt& operator=(const KpzInterrupt&) = delete;

  // The signal caught (SIGINT or SIGTERM), or 0.
  static int Caught();

  // "SIGINT", "SIGTERM".
  static std::string Name(int signal);

  // When a signal was caught: ends the process by it (its default action,
  // so the parent sees the process killed by that signal, exit status
  // 128 + N in a shell). Otherwise returns.
  static void EndBySignal();

 private:
  struct sigaction m_oldInt;
  struct sigaction m_oldTerm;
};

#endif  // KPZ_TOOLS_KPZ_KPZINTERRUPT_H
