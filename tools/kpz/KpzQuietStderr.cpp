// KpzQuietStderr.cpp - the once-per-run redirection of descriptor 2 and the
// tool's own writes to the real standard error (tools/kpz). See the header.

#include "kpz/KpzQuietStderr.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

KpzQuietStderr::KpzQuietStderr(bool quiet) : m_saved(-1) {
  if (!quiet) {
    return;
  }
  std::fflush(stderr);
  const int saved = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3);
  if (saved < 0) {
    return;  // cannot restore later: leave standard error as it is
  }
  const int devNull = open("/dev/null", O_WRONLY | O_CLOEXEC);
  if (devNull < 0) {
    close(saved);
    return;
  }
  if (dup2(devNull, STDERR_FILENO) < 0) {
    close(saved);
  } else {
    m_saved = saved;
  }
  close(devNull);
}

KpzQuietStderr::~KpzQuietStderr() {
  if (m_saved < 0) {
    return;
  }
  std::fflush(stderr);
  dup2(m_saved, STDERR_FILENO);
  close(m_saved);
}

int KpzQuietStderr::RealStderr() const { return m_saved >= 0 ? m_saved : STDERR_FILENO; }

bool KpzQuietStderr::Write(const std::string& text) const {
  if (m_saved < 0) {
    return std::fwrite(text.data(), 1, text.size(), stderr) == text.size() &&
           std::fflush(stderr) == 0;
  }
  std::size_t done = 0;
  while (done < text.size()) {  // each pass writes at least one byte or fails
    const ssize_t n = write(m_saved, text.data() + done, text.size() - done);
    if (n < 0 && errno == EINTR) {
      continue;
    }
    if (n <= 0) {
      return false;
    }
    done += static_cast<std::size_t>(n);
  }
  return true;
}
