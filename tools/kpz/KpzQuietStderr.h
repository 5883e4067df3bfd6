// KpzQuietStderr.h - hides the library's diagnostic lines for a whole run of
// the kpz tool while keeping the tool's own lines.
//
// Part of the kpz command-line tool (tools/kpz), above the library. The library
// writes its diagnostics on standard error (file descriptor 2); the tool shows
// them only with --verbose. Descriptor 2 belongs to the whole process, so it
// is redirected once per run, never around single library calls (threads
// would restore each other's descriptors in the wrong order): while an
// object made with `quiet` true is alive, descriptor 2 points at /dev/null
// and the real standard error is kept on a private descriptor, which Write
// uses. The destructor puts the real standard error back. With `quiet`
// false nothing is redirected and Write goes to standard error.
//
//   KpzQuietStderr hush(!verbose);          // main thread, before any worker
//   raw.Initialize(path);                   // library lines go nowhere unless verbose
//   hush.Write("kpz: a.kpz: ...\n");        // the tool's own line is seen
//
// Holds no pointers; the saved descriptor is owned and closed by the
// destructor. Create and destroy it on one thread while no other thread
// runs; in between, Write and library calls may come from any thread.
#ifndef KPZ_TOOLS_KPZ_KPZQUIETSTDERR_H
#define KPZ_TOOLS_KPZ_KPZQUIETSTDERR_H

#include <string>

class KpzQuietStderr {
 public:
  explicit KpzQuietStderr(bool quiet);
  ~KpzQuietStderr();
  KpzQuietStderr(const KpzQuietStderr&) = delete;
  KpzQuietStderr& operator=(const KpzQuietStderr&) = delete;

  // True while descriptor 2 is redirected by this object.
  bool IsQuiet() const { return m_saved >= 0; }

  // The descriptor of the real standard error: the private copy while
  // quiet, else 2.
  int RealStderr() const;

  // Writes all of `text` to the real standard error. Text written with one
  // call is never split by another thread's line: while quiet it goes out
  // in one write() (retried only for the part a signal or a full pipe left
  // over); otherwise through stderr's stdio lock, as the library's lines
  // do. False when it could not be written.
  bool Write(const std::string& text) const;

 private:
  int m_saved;  // duplicate of the real standard error; -1 when nothing was redirected
};

#endif  // KPZ_TOOLS_KPZ_KPZQUIETSTDERR_H
