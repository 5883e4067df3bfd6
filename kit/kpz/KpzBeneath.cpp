// KpzBeneath.cpp - names opened beneath a directory (kit/kpz). See the
// header for the contract.
#include "kpz/KpzBeneath.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

#if defined(__linux__) && __has_include(<linux/openat2.h>)
#include <linux/openat2.h>
#define KPZ_HAVE_OPENAT2 1
#endif

bool KpzBeneath::WellFormed(const std::string& relative) {
  if (relative.empty()) {
    return true;
  }
  std::size_t start = 0;
  while (start <= relative.size()) {  // one component per pass
    std::size_t end = relative.find('/', start);
    if (end == std::string::npos) {
      end = relative.size();
    }
    const std::string part = relative.substr(start, end - start);
    if (part.empty() || part == "." || part == ".." || part.find('\0') != std::string::npos) {
      return false;
    }
    start = end + 1;
  }
  return true;
}

int KpzBeneath::OpenByWalk(int rootFd, const std::string& relative, int flags, int* err) {
  if (!WellFormed(relative)) {
    *err = EINVAL;
    return -1;
  }
  int dir = rootFd;
  std::size_t start = 0;
  while (true) {  // one component per pass, each opened without following a link
    const std::size_t slash = relative.find('/', start);
    const bool last = slash == std::string::npos;
    const std::string part =
        relative.empty() ? std::string(".") : relative.substr(start, last ? std::string::npos : slash - start);
    const int fd = last ? openat(dir, part.c_str(), flags | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY)
                        : openat(dir, part.c_str(),
                                 O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY);
    const int saved = errno;
    if (dir != rootFd) {
      close(dir);
    }
    if (fd < 0) {
      *err = saved;
      return -1;
    }
    if (last) {
      return fd;
    }
    dir = fd;
    start = slash + 1;
  }
}

int KpzBeneath::Open(int rootFd, const std::string& relative, int flags, int* err) {
  if (!WellFormed(relative)) {
    *err = EINVAL;
    return -1;
  }
#ifdef KPZ_HAVE_OPENAT2
  struct open_how how = {};
  how.flags = static_cast<__u64>(static_cast<unsigned int>(flags | O_CLOEXEC | O_NOCTTY));
  how.resolve = RESOLVE_BENEATH | RESOLVE_NO_MAGICLINKS;
  const char* name = relative.empty() ? "." : relative.c_str();
  for (int tries = 0;; ++tries) {  // again when interrupted, a few times at most
    const long fd = syscall(SYS_openat2, rootFd, name, &how, sizeof how);
    if (fd >= 0) {
      return static_cast<int>(fd);
    }
    // EAGAIN: a rename elsewhere raced the walk.
    if ((errno == EINTR || errno == EAGAIN) && tries < 8) {
      continue;
    }
    if (errno != ENOSYS && errno != EPERM) {  // EPERM: a seccomp filter that refuses it
      *err = errno;
      return -1;
    }
    break;
  }
#endif
  return OpenByWalk(rootFd, relative, flags, err);
}
