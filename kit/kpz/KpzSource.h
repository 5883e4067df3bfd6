// KpzSource.h - one KPZ file opened for reading by the kpz tool itself: its
// descriptor, its size and the first 64 KiB the library parses.
//
// Part of the kit (kit/kpz), beside the library's raw
// facade (jni/raw/DtRaw). The library's file mode reads the head with its own
// channel and, by design, parses whatever a failed read left in its copy,
// so a device error and a file whose directories point past the head end in
// the same result code. The tool reads the head itself: a read that fails
// here is a real read error (permissions, I/O error, a directory, a file
// removed meanwhile) and is reported in its own words; once the head is read
// whole, every parse failure (DtRaw::InitializeBuf over Head()) is about the
// file's layout. The head is laid out exactly as DtRaw::Initialize lays out
// its copy: READ_SIZE bytes, the file's first bytes followed by zeros when
// the file is shorter, so the parse sees the same bytes in both modes.
//
//   KpzSource src;
//   std::string why;
//   if (!src.Open("a.kpz", &why)) { ... why: "file not found", ... }
//   raw.InitializeBuf(src.Head(), static_cast<int>(KpzSource::kHeadSize));
//   ... pread(src.Fd(), ...) for bytes beyond the head
//
// Owns the descriptor (closed by the destructor or Close) and the head
// buffer. One object per file and thread; not copyable.
#ifndef KPZ_KIT_KPZ_KPZSOURCE_H
#define KPZ_KIT_KPZ_KPZSOURCE_H

#include <sys/types.h>
#include <time.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "util/DtNlTypes.h"
#include "util/io/DtNlReadAt.h"

class KpzSource {
 public:
  // Bytes of the head: DtRaw::READ_SIZE (checked where it is defined).
  static constexpr std::size_t kHeadSize = 0x10000;

  KpzSource();
  ~KpzSource();
  KpzSource(const KpzSource&) = delete;
  KpzSource& operator=(const KpzSource&) = delete;

  // Opens `path` read-only, takes its size and reads its head. True when the
  // head was read whole (kHeadSize bytes, or the whole of a shorter file).
  // False with *error set to a short lower-case phrase ("file not found",
  // "the file cannot be opened for reading (permission denied)", "input/output
  // error while reading the file", "is a directory, not a KPZ raw file",
  // ...) and nothing held. A named pipe, socket or device other than a block
  // device is refused without being read (reading it could wait forever).
  // The name is opened once, without waiting (O_NONBLOCK, cleared again once
  // fstat of the descriptor showed a regular file): whatever is under the
  // name afterwards, every later read and LibraryPath() are of this file.
  bool Open(const std::string& path, std::string* error);

  // Open in two steps, for a caller that opens the name itself (a server
  // confining names beneath its root, KpzBeneath): Adopt takes over `fd`
  // (opened read-only with O_NONBLOCK; closed on failure as on success) and
  // `name` (LibraryPath's fallback), and checks it as Open does (a
  // directory, device, pipe or socket refused in Open's words), taking the
  // size, identity and times without reading anything; ReadHead then reads
  // the head. Open is `open` + Adopt + ReadHead. A caller that already knows
  // where the pictures lie (a cache keyed by the file's identity) may skip
  // ReadHead; Head() is then not to be used.
  bool Adopt(int fd, const std::string& name, std::string* error);
  bool ReadHead(std::string* error);

  // Takes the file's content from memory instead of a descriptor: the head
  // is the first min(length, kHeadSize) bytes of `data` (borrowed for the
  // call), zeros after them; Size() is `fileSize`, which may exceed `length`
  // when only the file's first bytes are at hand (a stream read in ranges).
  // Fd() is -1 afterwards and ReadAt fails: the caller reads the picture's
  // range itself. Never fails.
  void OpenMemory(const UINT8* data, std::size_t length, std::uint64_t fileSize);

  // The errno of the last failed Open or ReadAt, 0 when the failure was not
  // the system's (a directory is EISDIR; a device, pipe or socket, a short
  // file and a memory source give 0).
  int Errno() const { return m_errno; }

  // Closes the descriptor (if open). Safe any number of times.
  void Close();

  // Hands the descriptor over to the caller (who closes it) and forgets
  // it, as Close would; -1 when nothing is open. For a server that sends
  // the picture from it after this object is gone.
  int Release();

  // A name under which the library can open the very file Open opened:
  // "<procDir>/<fd>" when that name leads to the same file (device and
  // inode as the descriptor's), so a file, pipe or link put under the
  // original name afterwards is never the one opened; the name given to
  // Open otherwise (no /proc: the name, checked only when it was opened).
  // Empty for a memory source or when nothing is open. `procDir` is for
  // tests that need the fallback.
  std::string LibraryPath(const char* procDir = "/proc/self/fd") const;

  // The file's modification time as Open found it (fstat of the
  // descriptor), to the nanosecond.
  const struct timespec& ModifiedAt() const { return m_mtime; }

  int Fd() const { return m_fd; }
  std::uint64_t Size() const { return m_size; }
  dev_t Device() const { return m_dev; }
  ino_t Inode() const { return m_ino; }
  // The head: kHeadSize bytes, zeros after the file's end. Valid after a
  // successful Open until the object is destroyed or opened again.
  UINT8* Head() { return m_head.get(); }

  // Reads exactly `length` bytes at `offset` into `out`. True when all were
  // read; false with *error set ("<what> extends past the end of the file"
  // when the file ended first, with `what` the picture's name, "input/output
  // error while reading the <what>" or the system's words otherwise).
  bool ReadAt(std::uint64_t offset, std::size_t length, UINT8* out, const char* what,
              std::string* error) const;

  // Words for an errno met while opening or reading a file.
  static std::string ReadErrorWords(int err);

  // Words for an input that is not a regular file (a device, a named pipe,
  // a socket): refused without being read.
  static std::string NotRegularWords();

 private:
  int m_fd;
  std::string m_path;  // as given to Open
  struct timespec m_mtime = {0, 0};
  std::uint64_t m_size;
  dev_t m_dev;
  ino_t m_ino;
  // kHeadSize bytes once opened; not zeroed in advance, since every byte is
  // either read or set to zero by Open / OpenMemory.
  std::unique_ptr<UINT8[]> m_head;
  mutable int m_errno = 0;
  // Reads m_fd (borrowed) once Adopt took it: the library's one pread
  // loop (ReadHead, ReadAt).
  mutable DtNlFdReadAt m_reader;
};

#endif  // KPZ_KIT_KPZ_KPZSOURCE_H
