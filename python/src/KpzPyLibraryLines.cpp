// KpzPyLibraryLines.cpp - the library's lines collected instead of written
// on standard error, and the wrapped C library writes that collect them.
// See the header.
#include "KpzPyLibraryLines.h"

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

namespace py = pybind11;

namespace {

// The lines written on standard error by this thread while a
// KpzPyLibraryLines listens on it, or null (then they are dropped).
thread_local std::string* tl_libraryLines = nullptr;

void collect(const char* text, std::size_t length) {
  if (tl_libraryLines != nullptr && length > 0) {
    tl_libraryLines->append(text, length);
  }
}

// Formats `format` with `args` whole, however long, and collects it.
// Returns what vfprintf would have returned; when nobody listens on this
// thread the line is dropped unformatted and 0 (nothing written) returned.
int collectFormatted(const char* format, va_list args) {
  if (tl_libraryLines == nullptr) {
    return 0;
  }
  va_list sizing;
  va_copy(sizing, args);
  char small[512];
  const int needed = std::vsnprintf(small, sizeof small, format, sizing);
  va_end(sizing);
  if (needed < 0) {
    return needed;
  }
  const std::size_t length = static_cast<std::size_t>(needed);
  if (length < sizeof small) {
    collect(small, length);
    return needed;
  }
  std::vector<char> large(length + 1);
  std::vsnprintf(large.data(), large.size(), format, args);
  collect(large.data(), length);
  return needed;
}

}  // namespace

extern "C" {
// The real functions, as the linker's --wrap names them.
int __real_vfprintf(FILE* stream, const char* format, va_list args);
int __real___vfprintf_chk(FILE* stream, int flag, const char* format, va_list args);
std::size_t __real_fwrite(const void* data, std::size_t size, std::size_t count, FILE* stream);
int __real_fputs(const char* text, FILE* stream);

int __wrap_vfprintf(FILE* stream, const char* format, va_list args) {
  if (stream == stderr) {
    return collectFormatted(format, args);
  }
  return __real_vfprintf(stream, format, args);
}

int __wrap_fprintf(FILE* stream, const char* format, ...) {
  va_list args;
  va_start(args, format);
  const int written = stream == stderr ? collectFormatted(format, args)
                                       : __real_vfprintf(stream, format, args);
  va_end(args);
  return written;
}

// The forms _FORTIFY_SOURCE gives fprintf and vfprintf: `flag` asks the C
// library to check %n and positional arguments; for a stream other than
// standard error the real checked function is called with it.
int __wrap___vfprintf_chk(FILE* stream, int flag, const char* format, va_list args) {
  if (stream == stderr) {
    return collectFormatted(format, args);
  }
  return __real___vfprintf_chk(stream, flag, format, args);
}

int __wrap___fprintf_chk(FILE* stream, int flag, const char* format, ...) {
  va_list args;
  va_start(args, format);
  const int written = stream == stderr ? collectFormatted(format, args)
                                       : __real___vfprintf_chk(stream, flag, format, args);
  va_end(args);
  return written;
}

std::size_t __wrap_fwrite(const void* data, std::size_t size, std::size_t count, FILE* stream) {
  if (stream != stderr) {
    return __real_fwrite(data, size, count, stream);
  }
  if (size != 0 && count <= SIZE_MAX / size) {
    collect(static_cast<const char*>(data), size * count);
  }
  return count;
}

int __wrap_fputs(const char* text, FILE* stream) {
  if (stream != stderr) {
    return __real_fputs(text, stream);
  }
  collect(text, std::strlen(text));
  return 1;
}
}  // extern "C"

KpzPyLibraryLines::KpzPyLibraryLines(const py::object& logger) {
  // Asked on every call into the library, so asked cheaply: the method's
  // name made once (kept for the process's life, never freed) and the
  // level as the small int CPython keeps.
  static PyObject* const kIsEnabledFor = PyUnicode_InternFromString("isEnabledFor");
  if (kIsEnabledFor == nullptr) {
    throw py::error_already_set();
  }
  const py::object debug = py::reinterpret_steal<py::object>(PyLong_FromLong(10));  // logging.DEBUG
  if (!debug) {
    throw py::error_already_set();
  }
  PyObject* answer = PyObject_CallMethodOneArg(logger.ptr(), kIsEnabledFor, debug.ptr());
  if (answer == nullptr) {
    throw py::error_already_set();
  }
  const int enabled = PyObject_IsTrue(answer);
  Py_DECREF(answer);
  if (enabled < 0) {
    throw py::error_already_set();
  }
  if (enabled == 1) {
    m_logger = logger;
    tl_libraryLines = &m_lines;
  }
}

KpzPyLibraryLines::~KpzPyLibraryLines() {
  if (tl_libraryLines != &m_lines) {
    return;
  }
  tl_libraryLines = nullptr;
  try {
    std::size_t start = 0;
    while (start < m_lines.size()) {  // one record per line; each pass moves on
      std::size_t end = m_lines.find('\n', start);
      if (end == std::string::npos) {
        end = m_lines.size();
      }
      m_logger.attr("debug")("%s", Clean(m_lines.substr(start, end - start)));
      start = end + 1;
    }
  } catch (const py::error_already_set&) {
    // A failing log handler must not turn a finished call into a failure.
  }
}

std::string KpzPyLibraryLines::Clean(const std::string& line) {
  std::string out;
  out.reserve(line.size());
  for (std::size_t i = 0; i < line.size(); ++i) {  // i moves on every pass
    if (line[i] == '\033' && i + 1 < line.size() && line[i + 1] == '[') {
      std::size_t j = i + 2;
      while (j < line.size() && line[j] != 'm') {
        ++j;
      }
      i = j;  // the 'm' (or the end) is skipped by the loop's step
      continue;
    }
    out.push_back(line[i]);
  }
  return out;
}
