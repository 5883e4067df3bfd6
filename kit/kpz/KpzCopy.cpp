// KpzCopy.cpp - the three ways of copying a byte range between files
// (kit/kpz). See KpzCopy.h for the contracts.

#include "kpz/KpzCopy.h"

#include <sys/sendfile.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <new>

#include "kpz/KpzReadHint.h"

namespace {

// The most one copy_file_range or sendfile call is asked to move.
const std::uint64_t kChunk = 0x40000000u;  // 1 GiB

std::size_t chunkOf(std::uint64_t left) {
  return static_cast<std::size_t>(left < kChunk ? left : kChunk);
}

// copy_file_range until done. False when the next way must take the rest:
// refused, failed, or no byte moved where some were due (some file systems
// answer 0 instead of refusing).
bool byCopyFileRange(int in, std::uint64_t offset, std::uint64_t length, int out,
                     KpzCopy::Result* r) {
  while (r->copied < length) {  // each pass moves at least one byte, or returns
    loff_t from = static_cast<loff_t>(offset + r->copied);
    const ssize_t n = copy_file_range(in, &from, out, nullptr, chunkOf(length - r->copied), 0u);
    if (n < 0 && errno == EINTR) {
      continue;
    }
    if (n <= 0) {
      return false;
    }
    r->copied += static_cast<std::uint64_t>(n);
  }
  return true;
}

// sendfile until done; false as above.
bool bySendfile(int in, std::uint64_t offset, std::uint64_t length, int out, KpzCopy::Result* r) {
  while (r->copied < length) {  // each pass moves at least one byte, or returns
    off_t from = static_cast<off_t>(offset + r->copied);
    const ssize_t n = sendfile(out, in, &from, chunkOf(length - r->copied));
    if (n < 0 && errno == EINTR) {
      continue;
    }
    if (n <= 0) {
      return false;
    }
    r->copied += static_cast<std::uint64_t>(n);
  }
  return true;
}

// pread into a bounded buffer and write it out; sets the failure.
void byReadWrite(int in, std::uint64_t offset, std::uint64_t length, int out,
                 KpzCopy::Result* r) {
  const std::uint64_t left = length - r->copied;
  const std::size_t size =
      static_cast<std::size_t>(left < KpzCopy::kBufferSize ? left : KpzCopy::kBufferSize);
  std::unique_ptr<unsigned char[]> buffer(new (std::nothrow) unsigned char[size]);
  if (!buffer) {
    r->failure = KpzCopy::Failure::Memory;
    return;
  }
  while (r->copied < length) {  // each pass moves at least one byte, or returns
    const std::uint64_t rest = length - r->copied;
    const std::size_t want = static_cast<std::size_t>(rest < size ? rest : size);
    const ssize_t got =
        pread(in, buffer.get(), want, static_cast<off_t>(offset + r->copied));
    if (got < 0 && errno == EINTR) {
      continue;
    }
    if (got < 0) {
      r->failure = KpzCopy::Failure::Input;
      r->err = errno;
      return;
    }
    if (got == 0) {
      r->failure = KpzCopy::Failure::InputEnded;
      return;
    }
    std::size_t done = 0;
    while (done < static_cast<std::size_t>(got)) {  // each pass writes at least one byte
      const ssize_t n = write(out, buffer.get() + done, static_cast<std::size_t>(got) - done);
      if (n < 0 && errno == EINTR) {
        continue;
      }
      if (n <= 0) {
        r->failure = KpzCopy::Failure::Output;
        r->err = n == 0 ? EIO : errno;
        return;
      }
      done += static_cast<std::size_t>(n);
      r->copied += static_cast<std::uint64_t>(n);
    }
  }
}

}  // namespace

KpzCopy::Result KpzCopy::Range(int in, std::uint64_t offset, std::uint64_t length, int out) {
  return RangeFrom(Way::CopyFileRange, in, offset, length, out);
}

KpzCopy::Result KpzCopy::RangeFrom(Way first, int in, std::uint64_t offset, std::uint64_t length,
                                   int out) {
  Result r;
  r.last = first;
  // Every way reads the input through the page cache: ask for the whole
  // range in one request before the first byte is copied.
  KpzReadHint::WillNeed(in, offset, length);
  if (first == Way::CopyFileRange && byCopyFileRange(in, offset, length, out, &r)) {
    return r;
  }
  if (first != Way::ReadWrite) {
    r.last = Way::Sendfile;
    if (bySendfile(in, offset, length, out, &r)) {
      return r;
    }
  }
  r.last = Way::ReadWrite;
  byReadWrite(in, offset, length, out, &r);
  return r;
}
