// KpzConsole.h - where a run of the kpz tool writes: its results on standard
// output, its own lines and the progress bar on the real standard error,
// the library's diagnostic lines nowhere unless --verbose.
//
// Part of the kpz command-line tool (tools/kpz), above the library. One
// console is made per run, on the main thread, before any worker starts, and
// lives until the workers have ended: it redirects descriptor 2 for the
// whole run (KpzQuietStderr) so that library lines from any thread are
// hidden, while Err writes to the real standard error and is never lost.
// Err, and Out when standard output is a terminal, take the progress bar
// off the line before writing; Progress draws it again when due. Out, Err and Progress are for the main thread.
//
//   KpzConsole console(verbose);
//   console.Out("wrote a.preview.jpg (3000 bytes)\n");
//   console.Err("kpz: b.kpz: file not found\n");
//   console.Progress(2, 1000);
//
// Holds no pointers; owns the saved standard error through its
// KpzQuietStderr and borrows that descriptor to its progress bar.
#ifndef KPZ_TOOLS_KPZ_KPZCONSOLE_H
#define KPZ_TOOLS_KPZ_KPZCONSOLE_H

#include <cstddef>
#include <string>

#include "kpz/KpzProgressBar.h"
#include "kpz/KpzQuietStderr.h"

class KpzConsole {
 public:
  // Hides the library's lines unless `verbose`. The progress bar is used
  // only when the real standard error is a terminal.
  explicit KpzConsole(bool verbose);
  KpzConsole(const KpzConsole&) = delete;
  KpzConsole& operator=(const KpzConsole&) = delete;

  // Writes all of `text` to standard output (descriptor 1, nothing kept in
  // a buffer). True when written; else false and *why (when given) says
  // what failed: "cannot write to standard output: No space left on device".
  // A short write is a failure too.
  bool Out(const std::string& text, std::string* why = nullptr);
  // Writes `text` to the real standard error. False on failure.
  bool Err(const std::string& text);
  // Shows `done` of `total` files on the bar (runs of one file show none);
  // with `more`, `total` is the number found so far ("250/1000+ files").
  // A quiet console (SetQuiet) shows no bar.
  void Progress(std::size_t done, std::size_t total, bool more = false);
  // Takes the bar away for good (before the summary).
  void EndProgress();
  // -q: no bar from now on.
  void SetQuiet(bool quiet) { m_quiet = quiet; }

 private:
  KpzQuietStderr m_hush;  // first: the bar borrows its descriptor
  KpzProgressBar m_bar;
  // Standard output is a terminal (the bar's, as a rule): its lines take the
  // bar off first. Lines into a file or a pipe leave the bar drawn.
  bool m_outIsTerminal;
  bool m_quiet = false;
};

#endif  // KPZ_TOOLS_KPZ_KPZCONSOLE_H
