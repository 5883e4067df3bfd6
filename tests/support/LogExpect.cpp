#include "support/LogExpect.h"

#include <gtest/gtest.h>

namespace kpztest {

std::string LogLine(const std::string& colour, const std::string& level, const std::string& file,
                    const std::string& function, int line, const std::string& message) {
  return colour + level + " [" + file + "::" + function + ":" + std::to_string(line) +
         "]: " + message + "\033[0m\n";
}

std::string InfoLine(const std::string& file, const std::string& function, int line,
                     const std::string& message) {
  return LogLine("\033[0m", "INFO", file, function, line, message);
}

std::string WarnLine(const std::string& file, const std::string& function, int line,
                     const std::string& message) {
  return LogLine("\033[33m", "WARN", file, function, line, message);
}

std::string ErrLine(const std::string& file, const std::string& function, int line,
                    const std::string& message) {
  return LogLine("\033[31m", "ERR ", file, function, line, message);
}

std::string AssertText(const std::string& file, const std::string& function, int line,
                       const std::string& message) {
  const std::string banner(59, '#');
  return banner + "\n## ASSERT!! [" + file + "::" + function + ":" + std::to_string(line) +
         "]: " + message + "!!\n" + banner + "\n";
}

std::string CaptureStderr(const std::function<void()>& body) {
  testing::internal::CaptureStderr();
  body();
  return testing::internal::GetCapturedStderr();
}

}  // namespace kpztest
