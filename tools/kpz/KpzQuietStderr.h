// KpzQuietStderr.h - hides the library's diagnostic lines while the kpz tool
// calls it.
//
// Part of the kpz command-line tool (tools/kpz), above the library. The library
// writes its diagnostics on standard error (file descriptor 2); the tool shows
// them only with --verbose. While an object made with `quiet` true is alive,
// descriptor 2 points at /dev/null; its destructor puts the real standard
// error back. With `quiet` false it does nothing.
//
//   {
//     KpzQuietStderr hush(!verbose);
//     raw.Initialize(path);      // library lines go nowhere unless verbose
//   }
//   std::fprintf(stderr, "kpz: ...\n");   // the tool's own line is seen
//
// Holds no pointers; the saved descriptor is owned and closed by the
// destructor. Not for use by several threads at once (the tool has one).
#ifndef KPZ_TOOLS_KPZ_KPZQUIETSTDERR_H
#define KPZ_TOOLS_KPZ_KPZQUIETSTDERR_H

class KpzQuietStderr {
 public:
  explicit KpzQuietStderr(bool quiet);
  ~KpzQuietStderr();
  KpzQuietStderr(const KpzQuietStderr&) = delete;
  KpzQuietStderr& operator=(const KpzQuietStderr&) = delete;

 private:
  int m_saved;  // duplicate of the real standard error; -1 when nothing was redirected
};

#endif  // KPZ_TOOLS_KPZ_KPZQUIETSTDERR_H
