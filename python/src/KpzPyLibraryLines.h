// KpzPyLibraryLines.h - the library's diagnostic lines in a Python process.
//
// Part of the Python module kpz._kpz (python/src). The library writes one
// line per event on standard error (the kpz tool shows them only with
// --verbose). In a Python process they must not reach the process's
// standard error: the module is linked with the C library's stream writes
// wrapped (-Wl,--wrap=..., python/CMakeLists.txt), and a write to standard
// error made on a thread while a KpzPyLibraryLines of that thread listens is
// collected instead; writes to any other stream pass through unchanged.
// Every form the compiler may turn a write into is wrapped: fprintf and
// vfprintf, their _FORTIFY_SOURCE forms __fprintf_chk and __vfprintf_chk,
// fputs and fwrite. A line is kept whole, whatever its length.
//
//   KpzPyLibraryLines lines(logger);   // logger: logging.getLogger("kpz.library")
//   ... call the library ...           // its lines are collected
//   // on destruction: one logger.debug record per line, colour escapes removed
//
// When the logger does not listen at DEBUG level the lines are dropped.
// The state is one thread-local pointer, set only while an object of this
// class lives on that thread.
#ifndef KPZ_PYTHON_SRC_KPZPYLIBRARYLINES_H
#define KPZ_PYTHON_SRC_KPZPYLIBRARYLINES_H

#include <pybind11/pybind11.h>

#include <string>

class KpzPyLibraryLines {
 public:
  // Listens on the calling thread when `logger` is enabled for DEBUG.
  // Made and destroyed with the interpreter lock held, on the calling thread.
  explicit KpzPyLibraryLines(const pybind11::object& logger);
  // Hands each collected line to the logger (a failing handler is ignored).
  ~KpzPyLibraryLines();
  KpzPyLibraryLines(const KpzPyLibraryLines&) = delete;
  KpzPyLibraryLines& operator=(const KpzPyLibraryLines&) = delete;

  // `line` without the terminal's colour escapes (ESC [ ... m).
  static std::string Clean(const std::string& line);

 private:
  pybind11::object m_logger;
  std::string m_lines;
};

#endif  // KPZ_PYTHON_SRC_KPZPYLIBRARYLINES_H
