// KpzServeProgram.cpp - see KpzServeProgram.h.
#include "kpz/KpzServeProgram.h"

#include <limits.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "kpz/KpzExitStatus.h"

std::string KpzServeProgram::Beside(const std::string& exePath, const std::string& relative) {
  if (relative.empty()) {
    return std::string();
  }
  if (relative[0] == '/') {
    return relative;
  }
  const std::string::size_type slash = exePath.rfind('/');
  if (slash == std::string::npos) {
    return std::string();
  }
  return exePath.substr(0, slash + 1) + relative;
}

int KpzServeProgram::Exec(const char* relative, char** argv) {
  char exe[PATH_MAX];
  const ssize_t n = ::readlink("/proc/self/exe", exe, sizeof exe - 1);
  if (n <= 0) {
    const int err = errno;
    std::fprintf(stderr, "kpz: cannot start the server: this program's own path is unknown (%s)\n",
                 std::strerror(err));
    return KpzExitCode(KpzExitStatus::Input);
  }
  const std::string program = Beside(std::string(exe, static_cast<std::size_t>(n)), relative);
  std::fflush(nullptr);  // nothing buffered is lost with this process's image
  ::execv(program.c_str(), argv);
  const int err = errno;
  std::fprintf(stderr, "kpz: cannot start the server program %s: %s\n", program.c_str(),
               std::strerror(err));
  return KpzExitCode(KpzExitStatus::Input);
}
