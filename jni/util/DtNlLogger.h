// DtNlLogger.h - diagnostic lines on standard error, hex dumps and assertions.
//
// Every line has the form
//   <colour><level> [<file>::<function>:<line>]: <message>\033[0m\n
// e.g. "\033[31mERR  [jni/util/io/DtNlFileIo.cpp::Open:77]: fopen(...) err(2).\033[0m\n".
// There is no level filter. The logger holds no state and never allocates:
// each call puts its line together in its own stack buffer (the message cut
// at 1,022 characters) and writes it with one call, so concurrent callers may
// interleave whole lines only.
//
// Assert is for programming errors only (null pointers, broken bounds); no byte
// of any input file may reach it. A failed assertion prints a banner, the
// assertion line and the banner again, then ends the process with exit(-1).
//
// Call sites use the macros below, which fill in the source path, the bare
// function name and the line:
//   DTNL_LOG(DTNL_LV_ERR, 77, "fopen(filePath: %s) err(%d).", path, errno);
//   DTNL_LOG(DTNL_LV_INFO, __LINE__, "Raw: model is M372.");
//   DTNL_ASSERT(__LINE__, ptr != nullptr, "");
#ifndef KPZ_UTIL_DTNLLOGGER_H
#define KPZ_UTIL_DTNLLOGGER_H

#include "util/DtNlTypes.h"

// Level tag and its colour, always passed together.
#define DTNL_LV_INFO "INFO", "\033[0m"
#define DTNL_LV_WARN "WARN", "\033[33m"
#define DTNL_LV_ERR "ERR ", "\033[31m"

// `line` is the number printed in the line: pass __LINE__, or the fixed number a
// message is documented with.
#define DTNL_LOG(levelAndColour, line, ...) \
  DtNlLogger::PutLog(levelAndColour, __FILE__, __func__, (line), __VA_ARGS__)
// Assert is reached only when the condition fails (it would return at once
// otherwise), so a check on a hot path costs one test.
#define DTNL_ASSERT(line, condition, ...)                             \
  do {                                                                \
    if (!(condition)) {                                               \
      DtNlLogger::Assert(__FILE__, __func__, (line), 0, __VA_ARGS__); \
    }                                                                 \
  } while (0)

class DtNlLogger {
 public:
  DtNlLogger() = default;
  ~DtNlLogger() = default;

  // Formats the message (cut to 1,022 characters, no mark) and writes one line.
  static void PutLog(const char* level, const char* colour, const char* file, const char* function,
                     int line, const char* format, ...) __attribute__((format(printf, 6, 7)));

  // Returns at once when `condition` is non-zero. Otherwise prints
  // "###...###" (59 '#'), "## ASSERT!! [file::function:line]: message!!" and the
  // banner again on standard error, then calls exit(-1) (status 255).
  static void Assert(const char* file, const char* function, int line, int condition,
                     const char* format, ...) __attribute__((format(printf, 5, 6)));

  // Logs `title` followed by "0x%02X " for each byte of `data`, in colour
  // "\033[37m", as many whole fields as fit in 1,024 bytes; a null `data` logs
  // the title followed by "none".
  static void PutDump(const char* level, const char* file, const char* function, int line,
                      const char* title, const UINT8* data, int size);
};

#endif  // KPZ_UTIL_DTNLLOGGER_H
