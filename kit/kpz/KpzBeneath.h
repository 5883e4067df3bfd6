// KpzBeneath.h - opens a name confined beneath a directory: no `..` out of
// it, no symbolic link leading out of it, no magic link (/proc/self/fd/N)
// followed.
//
// Part of the kit (kit/kpz), under the front ends that take names from
// others (kpz serve takes them from URLs). Where the kernel has openat2
// (Linux 5.6), it resolves the name with RESOLVE_BENEATH |
// RESOLVE_NO_MAGICLINKS; elsewhere the name is walked one component at a
// time with O_NOFOLLOW, so a symbolic link anywhere on the way is refused.
//
//   int root = open("/srv/photos", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
//   int err = 0;
//   int fd = KpzBeneath::Open(root, "2024/a.kpz", O_RDONLY | O_NONBLOCK, &err);
//   if (fd < 0) { ... err: ENOENT, EXDEV (leads out), ELOOP (a link), ... }
//
// Holds nothing; every operation is a static function, safe on any thread.
#ifndef KPZ_KIT_KPZ_KPZBENEATH_H
#define KPZ_KIT_KPZ_KPZBENEATH_H

#include <string>

class KpzBeneath {
 public:
  // Opens `relative` (components separated by '/', no leading '/', no empty
  // component, no "." or "..": such a name is refused with EINVAL before
  // anything is opened) beneath the directory `rootFd`, with `flags` (plus
  // O_CLOEXEC and O_NOCTTY). An empty name opens the root itself. Returns
  // the descriptor (the caller's), or -1 with *err set to the errno.
  static int Open(int rootFd, const std::string& relative, int flags, int* err);

  // Whether `relative` is a name Open takes (see above).
  static bool WellFormed(const std::string& relative);

  // For tests: true to walk with O_NOFOLLOW even where openat2 exists.
  static int OpenByWalk(int rootFd, const std::string& relative, int flags, int* err);
};

#endif  // KPZ_KIT_KPZ_KPZBENEATH_H
