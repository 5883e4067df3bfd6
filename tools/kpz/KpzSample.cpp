// KpzSample.cpp - see KpzSample.h.
#include "kpz/KpzSample.h"

#include <limits.h>
#include <unistd.h>

std::string KpzSample::BesideBinary(const std::string& exePath) {
  const std::string::size_type slash = exePath.rfind('/');
  if (slash == std::string::npos) {
    return std::string();
  }
  const std::string dir = exePath.substr(0, slash);
  const std::string::size_type parentEnd = dir.rfind('/');
  const std::string last = parentEnd == std::string::npos ? dir : dir.substr(parentEnd + 1);
  if (last != "bin") {
    return std::string();
  }
  const std::string prefix = parentEnd == std::string::npos ? std::string(".") : dir.substr(0, parentEnd);
  return prefix + "/share/kpz/sample.kpz";
}

std::string KpzSample::Path(const char* fallback) {
  char exe[PATH_MAX];
  const ssize_t n = ::readlink("/proc/self/exe", exe, sizeof exe - 1);
  if (n > 0) {
    const std::string installed = BesideBinary(std::string(exe, static_cast<std::size_t>(n)));
    if (!installed.empty() && ::access(installed.c_str(), R_OK) == 0) {
      return installed;
    }
  }
  return fallback;
}
