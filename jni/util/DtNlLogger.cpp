// DtNlLogger.cpp - standard-error logging, hex dumps and assertions.
#include "util/DtNlLogger.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

const int kLineBufferSize = 1024;
// vsnprintf limit: at most 1,022 characters and the terminator.
const size_t kFormatLimit = 1023;
const char kBanner[] = "###########################################################\n";
const char kDumpColour[] = "\033[37m";

}  // namespace

void DtNlLogger::PutLog(const char* level, const char* colour, const char* file,
                        const char* function, int line, const char* format, ...) {
  char message[kLineBufferSize];
  std::memset(message, 0, sizeof(message));
  va_list args;
  va_start(args, format);
  std::vsnprintf(message, kFormatLimit, format, args);
  va_end(args);
  std::fprintf(stderr, "%s%s [%s::%s:%d]: %s\033[0m\n", colour, level, file, function, line,
               message);
}

void DtNlLogger::Assert(const char* file, const char* function, int line, int condition,
                        const char* format, ...) {
  if (condition != 0) {
    return;
  }
  char message[kLineBufferSize];
  std::memset(message, 0, sizeof(message));
  va_list args;
  va_start(args, format);
  std::vsnprintf(message, kFormatLimit, format, args);
  va_end(args);
  std::fputs(kBanner, stderr);
  std::fprintf(stderr, "## ASSERT!! [%s::%s:%d]: %s!!\n", file, function, line, message);
  std::fputs(kBanner, stderr);
  std::exit(-1);
}

void DtNlLogger::PutDump(const char* level, const char* file, const char* function, int line,
                         const char* title, const UINT8* data, int size) {
  char text[kLineBufferSize];
  std::memset(text, 0, sizeof(text));
  std::strncpy(text, title, kLineBufferSize - 1);
  // The running length counts the whole title, even where the copy was cut.
  size_t running = std::strlen(title);

  if (data != nullptr) {
    for (int i = 0; i < size; ++i) {
      char field[8];
      std::snprintf(field, sizeof(field), "0x%02X ", data[i]);
      const size_t fieldLength = std::strlen(field);
      running += fieldLength;
      if (running >= static_cast<size_t>(kLineBufferSize)) {
        break;
      }
      std::memcpy(text + running - fieldLength, field, fieldLength + 1);
    }
  } else {
    // Unsigned on purpose: a title longer than 1,023 characters wraps this to a
    // large number, and the bounded append below then adds nothing.
    const UINT32 room = static_cast<UINT32>(1023u - static_cast<UINT32>(running));
    if (room > 3) {
      const size_t used = std::strlen(text);
      std::strncat(text, "none", sizeof(text) - 1 - used);
    }
  }
  PutLog(level, kDumpColour, file, function, line, "%s", text);
}
