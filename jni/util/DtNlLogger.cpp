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
const char kEnd[] = "\033[0m\n";

// Longest colour, level, file and function names together that PutLog puts
// into its own line buffer; with the brackets, the line number, a message of
// at most 1,022 characters and the end they fit kWholeLineSize.
const std::size_t kNamesRoom = 960;
const std::size_t kWholeLineSize = 2048;

// Copies `length` bytes of `text` to `at`; the byte after them.
inline char* append(char* at, const char* text, std::size_t length) {
  std::memcpy(at, text, length);
  return at + length;
}

// `value` in decimal, as %d prints it; the byte after it.
char* appendDecimal(char* at, int value) {
  // Deliberate: the magnitude in unsigned arithmetic, so INT_MIN has one too.
  unsigned int magnitude = static_cast<unsigned int>(value);
  if (value < 0) {
    *at++ = '-';
    magnitude = 0u - magnitude;
  }
  char digits[10];
  std::size_t count = 0;
  do {
    digits[count++] = static_cast<char>('0' + magnitude % 10u);
    magnitude /= 10u;
  } while (magnitude != 0u);
  while (count > 0) {
    *at++ = digits[--count];
  }
  return at;
}

}  // namespace

void DtNlLogger::PutLog(const char* level, const char* colour, const char* file,
                        const char* function, int line, const char* format, ...) {
  const std::size_t colourLength = std::strlen(colour);
  const std::size_t levelLength = std::strlen(level);
  const std::size_t fileLength = std::strlen(file);
  const std::size_t functionLength = std::strlen(function);
  if (colourLength + levelLength + fileLength + functionLength > kNamesRoom) {
    // Names too long for the line buffer: formatted by stdio, as ever.
    char message[kLineBufferSize];
    std::memset(message, 0, sizeof(message));
    va_list args;
    va_start(args, format);
    std::vsnprintf(message, kFormatLimit, format, args);
    va_end(args);
    std::fprintf(stderr, "%s%s [%s::%s:%d]: %s\033[0m\n", colour, level, file, function, line,
                 message);
    return;
  }
  // The same bytes as "%s%s [%s::%s:%d]: %s\033[0m\n", put together here and
  // written with one call (one write on unbuffered standard error, as before).
  // No piece holds a zero byte: the names and the message are C strings.
  char text[kWholeLineSize];
  char* at = text;
  at = append(at, colour, colourLength);
  at = append(at, level, levelLength);
  at = append(at, " [", 2);
  at = append(at, file, fileLength);
  at = append(at, "::", 2);
  at = append(at, function, functionLength);
  at = append(at, ":", 1);
  at = appendDecimal(at, line);
  at = append(at, "]: ", 3);
  if (std::strchr(format, '%') == nullptr) {
    // Nothing to convert: the text itself, cut where vsnprintf would cut it.
    at = append(at, format, strnlen(format, kFormatLimit - 1));
  } else {
    va_list args;
    va_start(args, format);
    std::vsnprintf(at, kFormatLimit, format, args);
    va_end(args);
    at += std::strlen(at);
  }
  at = append(at, kEnd, sizeof kEnd);  // with its terminator
  // fputs, not fwrite: the file channel's own writes are the fwrite calls.
  std::fputs(text, stderr);
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
