#include "kpz/KpzQuietStderr.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

KpzQuietStderr::KpzQuietStderr(bool quiet) : m_saved(-1) {
  if (!quiet) {
    return;
  }
  std::fflush(stderr);
  const int saved = dup(STDERR_FILENO);
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
