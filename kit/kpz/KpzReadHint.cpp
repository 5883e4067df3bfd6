// KpzReadHint.cpp - access hints for the front ends' input files (kit/kpz).
// See KpzReadHint.h for the contracts.

#include "kpz/KpzReadHint.h"

#include <fcntl.h>
#include <sys/types.h>

#include <cerrno>
#include <limits>

bool KpzReadHint::WillNeed(int fd, std::uint64_t offset, std::uint64_t length) {
#if defined(POSIX_FADV_WILLNEED)
  const std::uint64_t most = static_cast<std::uint64_t>(std::numeric_limits<off_t>::max());
  if (length == 0 || offset > most) {
    return false;
  }
  const std::uint64_t cut = length < most - offset ? length : most - offset;
  if (cut == 0) {
    return false;
  }
  const int saved = errno;
  const bool taken = posix_fadvise(fd, static_cast<off_t>(offset), static_cast<off_t>(cut),
                                   POSIX_FADV_WILLNEED) == 0;
  errno = saved;
  return taken;
#else
  (void)fd;
  (void)offset;
  (void)length;
  return false;
#endif
}
