// KpzExitStatus.h - the exit statuses of every front end, written once.
//
// Part of the kit (kit/kpz). The kpz tool exits with them; the Python
// package binds them (kpz._kpz.kit.ExitStatus) for kpz.distributed, which
// exits and reports per input with the same numbers. A run's status is the
// highest of its inputs' (KpzSummary).
#ifndef KPZ_KIT_KPZ_KPZEXITSTATUS_H
#define KPZ_KIT_KPZ_KPZEXITSTATUS_H

enum class KpzExitStatus : int {
  Ok = 0,
  Input = 1,   // an input cannot be read, or holds no such picture or value
  Usage = 2,   // wrong arguments
  Output = 3,  // an output (for rotate: the file itself) cannot be written
};

// The number a process exits with.
constexpr int KpzExitCode(KpzExitStatus status) { return static_cast<int>(status); }

#endif  // KPZ_KIT_KPZ_KPZEXITSTATUS_H
