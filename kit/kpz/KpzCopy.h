// KpzCopy.h - copies a range of bytes from one open file to another without
// passing them through the kpz tool where the kernel can do it.
//
// Part of the kit (kit/kpz); uses only the C library and
// Linux system calls. The bytes go with copy_file_range (kernel to kernel, or
// a shared extent where the file system offers one); where that is refused
// (another file system, a pipe, an old kernel, a file system without it)
// with sendfile; where that is refused too, through a bounded buffer with
// pread and write. A way that fails part-way hands the rest to the next one,
// so a real error is always met, and reported, by the last way: the
// read/write loop, which knows whether the input or the output failed. The
// input is read at explicit offsets (its position is not used); the output
// is written at its current position, which moves on.
//
//   KpzCopy::Result r = KpzCopy::Range(inFd, offset, length, outFd);
//   if (r.failure == KpzCopy::Failure::InputEnded) { ... file shorter than said ... }
//
// Holds nothing; every operation is a static function.
#ifndef KPZ_KIT_KPZ_KPZCOPY_H
#define KPZ_KIT_KPZ_KPZCOPY_H

#include <cstddef>
#include <cstdint>

class KpzCopy {
 public:
  // The bounce buffer of the last way, allocated for the copy only.
  static constexpr std::size_t kBufferSize = 256 * 1024;

  enum class Way { CopyFileRange, Sendfile, ReadWrite };
  enum class Failure {
    None,        // every byte was copied
    InputEnded,  // the input ended before `length` bytes
    Input,       // reading the input failed (err)
    Output,      // writing the output failed (err)
    Memory       // no memory for the buffer
  };

  struct Result {
    std::uint64_t copied = 0;     // bytes written to the output
    Failure failure = Failure::None;
    int err = 0;                  // errno of an Input or Output failure
    Way last = Way::CopyFileRange;  // the last way used
  };

  // Copies `length` bytes at `offset` of `in` to `out`, trying every way in
  // order.
  static Result Range(int in, std::uint64_t offset, std::uint64_t length, int out);

  // For tests and measurements: the ways before `first` are not tried.
  static Result RangeFrom(Way first, int in, std::uint64_t offset, std::uint64_t length, int out);
};

#endif  // KPZ_KIT_KPZ_KPZCOPY_H
