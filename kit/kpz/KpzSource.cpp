// KpzSource.cpp - the kit's opening of a KPZ file and reading of its
// head (kit/kpz). See KpzSource.h for the contracts.

#include "kpz/KpzSource.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "kpz/KpzErrorText.h"
#include "raw/DtRaw.h"
#include "raw/DtRawErrorText.h"

static_assert(KpzSource::kHeadSize == DtRaw::READ_SIZE,
              "the tool's head must be the library's file-mode copy");

namespace {

// The library's words for a read of the picture `what` that failed with
// `err` (0: the file ended first).
std::string pictureWords(const char* what, int err) {
  char words[DtRawErrorText::WORDS_SIZE];
  DtRawErrorText::PictureReadError(what, err, words, sizeof words);
  return words;
}

}  // namespace

KpzSource::KpzSource() : m_fd(-1), m_size(0), m_dev(0), m_ino(0), m_head() {}

KpzSource::~KpzSource() { Close(); }

void KpzSource::Close() {
  m_path.clear();
  m_reader.Close();  // borrowed: forgets the descriptor
  if (m_fd >= 0) {
    close(m_fd);
    m_fd = -1;
  }
}

int KpzSource::Release() {
  const int fd = m_fd;
  m_fd = -1;
  Close();
  return fd;
}

std::string KpzSource::NotRegularWords() { return DtRawErrorText::NotRegular(); }

std::string KpzSource::ReadErrorWords(int err) {
  char words[DtRawErrorText::WORDS_SIZE];
  DtRawErrorText::ReadError(err, words, sizeof words);
  return words;
}

std::string KpzSource::LibraryPath(const char* procDir) const {
  if (m_fd < 0) {
    return std::string();
  }
  const std::string byFd = std::string(procDir) + "/" + std::to_string(m_fd);
  struct stat st;
  if (stat(byFd.c_str(), &st) == 0 && st.st_dev == m_dev && st.st_ino == m_ino) {
    return byFd;
  }
  return m_path;
}

void KpzSource::OpenMemory(const UINT8* data, std::size_t length, std::uint64_t fileSize) {
  Close();
  m_errno = 0;
  m_mtime = timespec{0, 0};
  m_size = fileSize;
  m_dev = 0;
  m_ino = 0;
  if (!m_head) {
    m_head.reset(new UINT8[kHeadSize]);
  }
  const std::size_t take = length < kHeadSize ? length : kHeadSize;
  if (take > 0) {
    std::memcpy(m_head.get(), data, take);
  }
  std::memset(m_head.get() + take, 0, kHeadSize - take);
}

bool KpzSource::Open(const std::string& path, std::string* error) {
  Close();
  m_size = 0;
  m_errno = 0;
  // Non-blocking: opening a named pipe must not wait for a writer. It
  // changes nothing for a regular file.
  m_fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
  if (m_fd < 0) {
    m_errno = errno;
    // A Unix socket cannot be opened at all (ENXIO): what the name is, not
    // the errno, is the reason. Nothing was opened, so the name's kind is
    // the only one to tell.
    struct stat named;
    if (m_errno == ENXIO && stat(path.c_str(), &named) == 0 && S_ISSOCK(named.st_mode)) {
      m_errno = ESPIPE;  // as the library's record tells a socket taken by descriptor
      *error = NotRegularWords();
      return false;
    }
    *error = ReadErrorWords(m_errno);
    return false;
  }
  return Adopt(m_fd, path, error) && ReadHead(error);
}

bool KpzSource::Adopt(int fd, const std::string& name, std::string* error) {
  if (fd != m_fd) {
    Close();
    m_fd = fd;
  }
  m_size = 0;
  m_errno = 0;
  struct stat st;
  if (fstat(m_fd, &st) != 0) {
    m_errno = errno;
    *error = ReadErrorWords(m_errno);
    Close();
    return false;
  }
  if (S_ISDIR(st.st_mode)) {
    m_errno = EISDIR;
    *error = KpzErrorText::Directory();
    Close();
    return false;
  }
  if (!S_ISREG(st.st_mode)) {
    // A pipe or socket is ESPIPE (it could not be read at an offset anyway),
    // a device 0, as the library's record tells them.
    m_errno = S_ISFIFO(st.st_mode) || S_ISSOCK(st.st_mode) ? ESPIPE : 0;
    *error = NotRegularWords();
    Close();
    return false;
  }
  // A regular file: reads from here on may wait for the disk as usual.
  const int flags = fcntl(m_fd, F_GETFL);
  if (flags < 0 || fcntl(m_fd, F_SETFL, flags & ~O_NONBLOCK) != 0) {
    m_errno = errno;
    *error = ReadErrorWords(m_errno);
    Close();
    return false;
  }
  m_path = name;
  m_mtime = st.st_mtim;
  m_size = static_cast<std::uint64_t>(st.st_size);
  m_dev = st.st_dev;
  m_ino = st.st_ino;
  m_reader.Borrow(m_fd, m_size);
  return true;
}

bool KpzSource::ReadHead(std::string* error) {
  if (!m_head) {
    m_head.reset(new UINT8[kHeadSize]);
  }
  // Up to the size just taken: no read is spent on finding the end.
  const std::size_t want = m_size < kHeadSize ? static_cast<std::size_t>(m_size) : kHeadSize;
  // The head and one picture are all that is read: a cold disk reads them
  // alone, not the readahead's guess around them (a warm one in one call each).
  m_reader.AdviseReadOnly();
  std::size_t got = 0;
  const int err = m_reader.GetData(0, want, m_head.get(), &got);
  if (err != 0) {
    m_errno = err;
    *error = ReadErrorWords(m_errno);
    Close();
    return false;
  }
  // got < want: the file became shorter meanwhile.
  // As in the library's copy: zeros after the file's end.
  std::memset(m_head.get() + got, 0, kHeadSize - got);
  return true;
}

bool KpzSource::ReadAt(std::uint64_t offset, std::size_t length, UINT8* out, const char* what,
                       std::string* error) const {
  // No WILLNEED hint here: a read that must wait for the disk turns readahead
  // off first (AdviseReadOnly, in ReadHead), so this pread itself reads
  // exactly the range from a cold disk, and on a warm page cache the hint's
  // walk over the range's pages cost about a tenth of a 1.5 MB read.
  std::size_t got = 0;
  const int err = m_reader.GetData(offset, length, out, &got);
  if (err != 0 || got < length) {
    // err 0: the file ended first.
    m_errno = err;
    *error = pictureWords(what, err);
    return false;
  }
  return true;
}
