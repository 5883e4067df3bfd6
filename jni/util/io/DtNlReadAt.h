// DtNlReadAt.h - bytes read at an offset: the one way every reader of a KPZ
// file reaches its bytes, whatever holds them.
//
// Part of the files-and-streams layer (jni/util/io). The record parse
// (jni/raw/DtRawRecord) reads a file's head through it, and the front ends
// read the pictures through it: a descriptor or a path (DtNlFdReadAt, the
// only pread loop of the project's readers), a block of memory
// (DtNlMemReadAt: a buffer, or a remote file's head already fetched), and
// whatever only a front end has (a Python file object) as its own subclass.
//
// The contract of GetData, for every implementation:
//  - It reads up to `length` bytes at `offset` into `out` and sets *got to
//    the count read. It returns 0 when it read everything it could: *got is
//    `length`, or less only because the data ends first (end of data: *got
//    is then the bytes between `offset` and the end, 0 at or past the end).
//    A short count is never left to the caller to retry: an implementation
//    goes on after short reads of its own source until `length` bytes, the
//    end of the data, or an error.
//  - It returns the system's error number (an errno value, never 0) when a
//    read fails; *got then counts the bytes read before the failure, which
//    are in `out`. An interrupted call (EINTR) is retried, never returned.
//    EOVERFLOW: the offset lies beyond what the source can address;
//    ENODATA: the bytes exist (below Size()) but are not held (a head in
//    memory without the rest of its file).
//  - Bytes of `out` past *got are left as they were.
//  - `length` 0 reads nothing and returns 0.
//
//   DtNlFdReadAt file;
//   int err = file.OpenPath("a.kpz");
//   std::size_t got = 0;
//   if (err == 0) err = file.GetData(0, sizeof head, head, &got);
//
// Implementations hold no global state; one object may be read from several
// threads at once only where its class says so.
#ifndef KPZ_UTIL_IO_DTNLREADAT_H
#define KPZ_UTIL_IO_DTNLREADAT_H

#include <cstddef>
#include <cstdint>

#include "util/DtNlTypes.h"

class DtNlReadAt {
 public:
  DtNlReadAt() = default;
  virtual ~DtNlReadAt();
  DtNlReadAt(const DtNlReadAt&) = delete;
  DtNlReadAt& operator=(const DtNlReadAt&) = delete;

  // See the contract above.
  virtual int GetData(std::uint64_t offset, std::size_t length, UINT8* out, std::size_t* got) = 0;

  // The size of the data in bytes: for a file, its size when it was opened
  // (a read goes by the file as it is when it reads, should it change).
  virtual std::uint64_t Size() const = 0;

  // The bytes [offset, offset + length) where they already lie in memory,
  // read without a copy; null when they do not (the default). Valid as long
  // as the object and its memory live.
  virtual const UINT8* View(std::uint64_t offset, std::size_t length) const;
};

// The bytes of an open descriptor, read with pread: the descriptor's offset
// never moves, so a caller sharing it sees no change, and separate threads
// may read one object at once. The descriptor is the object's own when it
// opened it (OpenPath; closed by the destructor) and borrowed otherwise
// (Adopt without `owned`; never closed).
class DtNlFdReadAt : public DtNlReadAt {
 public:
  // What the descriptor is, as fstat tells.
  enum Type : INT32 { TypeNone, TypeRegular, TypeDirectory, TypeStream, TypeOther };

  DtNlFdReadAt();
  ~DtNlFdReadAt() override;

  // Opens `path` read-only without waiting (O_NONBLOCK: a named pipe is not
  // waited on) and takes it as Adopt does. 0, or the errno of open or fstat.
  // The descriptor is owned.
  int OpenPath(const char* path);

  // Takes `fd` (owned: closed by the destructor, also when this fails) and
  // its size and type from fstat. 0, or the errno (EBADF for a negative
  // descriptor). A descriptor of another type than TypeRegular is taken,
  // for the caller to refuse in its own words (Type()).
  int Adopt(int fd, bool owned);

  // Borrows `fd`, a regular file of `size` bytes as the caller's own fstat
  // just found it, without asking the system again.
  void Borrow(int fd, std::uint64_t size);

  // Closes the descriptor when owned and forgets it. Safe any number of times.
  void Close();

  // From now on, reads as ReadFd does with `adviseCold`: what the system
  // already holds in memory comes in one call, and before a read has to wait
  // for the disk the system is told that only the bytes asked for are wanted.
  // The hint holds for the open file, shared by every descriptor duplicated
  // from it: ask it only for a file this object opened, or one the caller
  // owns. Until Close.
  void AdviseReadOnly() { m_adviseCold = true; }

  int GetData(std::uint64_t offset, std::size_t length, UINT8* out, std::size_t* got) override;
  std::uint64_t Size() const override { return m_size; }

  int Fd() const { return m_fd; }
  Type FileType() const { return m_type; }

  // GetData's contract over any descriptor `fd` (its offset never moves).
  // With `adviseCold`, the bytes the system already holds in its page cache
  // are taken in one call that never waits for the disk (preadv2 with
  // RWF_NOWAIT, where the platform has it); only when some are not there is
  // the open file told to do without readahead (posix_fadvise RANDOM) before
  // they are read, so that a cold disk reads the bytes asked for and no more,
  // while a warm page cache costs one call, as a plain read does. Thread-safe
  // as pread is.
  static int ReadFd(int fd, std::uint64_t offset, std::size_t length, UINT8* out,
                    std::size_t* got, bool adviseCold);

 private:
  int m_fd;
  bool m_owned;
  bool m_adviseCold;  // see AdviseReadOnly
  Type m_type;
  std::uint64_t m_size;
};

// Bytes in memory (borrowed: they must outlive the object). Size() is
// `size`, which may exceed the bytes held (`length`) when only a file's first
// bytes are at hand: a read beyond them fails with ENODATA.
class DtNlMemReadAt : public DtNlReadAt {
 public:
  DtNlMemReadAt(const UINT8* data, std::size_t length, std::uint64_t size);
  DtNlMemReadAt(const UINT8* data, std::size_t length) : DtNlMemReadAt(data, length, length) {}

  int GetData(std::uint64_t offset, std::size_t length, UINT8* out, std::size_t* got) override;
  std::uint64_t Size() const override { return m_size; }
  const UINT8* View(std::uint64_t offset, std::size_t length) const override;

 private:
  const UINT8* m_data;
  std::size_t m_length;  // bytes held, <= m_size
  std::uint64_t m_size;
};

#endif  // KPZ_UTIL_IO_DTNLREADAT_H
