// KpzReadHint.h - tells the system which bytes of an input file the kpz tool
// is about to read, so that a cold page cache reads those and little more.
//
// Part of the kit (kit/kpz); uses only posix_fadvise.
// The tool reads a KPZ file in two places: the 64 KiB head at its start and
// one picture (a preview or thumbnail) far inside. Left to itself, the
// kernel's readahead turns the small first read into a larger one and reads
// on past the end of the picture; a cold file then costs several times the
// bytes the job needs. The readers switch readahead off themselves when a
// read must wait for the disk (DtNlFdReadAt::AdviseReadOnly); WillNeed()
// asks for one range in a single request, before the bytes are read or
// copied (pread, copy_file_range, sendfile: all go through the page cache),
// or for a file to come (reading ahead across inputs). With a warm page
// cache it changes nothing.
//
//   KpzReadHint::WillNeed(fd, offset, length);     // right before the copy
//
// A hint only: a refusal (an old kernel, a pipe, a file system without them,
// a platform without posix_fadvise) is ignored and changes nothing else; it
// leaves errno as it was. Holds nothing; every operation is a static function.
#ifndef KPZ_KIT_KPZ_KPZREADHINT_H
#define KPZ_KIT_KPZ_KPZREADHINT_H

#include <cstdint>

class KpzReadHint {
 public:
  // The `length` bytes at `offset` of `fd` will be read soon
  // (POSIX_FADV_WILLNEED): the system starts reading them at once. A length
  // of 0 asks for nothing (posix_fadvise would take it as "to the end of the
  // file"); a range beyond the platform's file offsets is cut there. True when
  // the system took the hint.
  static bool WillNeed(int fd, std::uint64_t offset, std::uint64_t length);
};

#endif  // KPZ_KIT_KPZ_KPZREADHINT_H
