// DtNlReadAt.cpp - bytes read at an offset from a descriptor or from memory
// (jni/util/io). See DtNlReadAt.h for the contract.
#include "util/io/DtNlReadAt.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <limits>

namespace {

// The largest position pread takes: off_t is 32 bits on 32-bit Android.
const std::uint64_t kMaxOffset = static_cast<std::uint64_t>(std::numeric_limits<off_t>::max());

// The most one pread is asked for: well within ssize_t on every target.
const std::size_t kMaxPread = 0x40000000u;

}  // namespace

DtNlReadAt::~DtNlReadAt() = default;

const UINT8* DtNlReadAt::View(std::uint64_t /*offset*/, std::size_t /*length*/) const {
  return nullptr;
}

// ---- descriptor ------------------------------------------------------------

DtNlFdReadAt::DtNlFdReadAt() : m_fd(-1), m_owned(false), m_type(TypeNone), m_size(0) {}

DtNlFdReadAt::~DtNlFdReadAt() { Close(); }

void DtNlFdReadAt::Close() {
  if (m_owned && m_fd >= 0) {
    (void)close(m_fd);  // read only: nothing to lose on close
  }
  m_fd = -1;
  m_owned = false;
  m_type = TypeNone;
  m_size = 0;
}

int DtNlFdReadAt::OpenPath(const char* path) {
  Close();
  const int fd = open(path, O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
  if (fd < 0) {
    return errno;
  }
  return Adopt(fd, true);
}

int DtNlFdReadAt::Adopt(int fd, bool owned) {
  Close();
  if (fd < 0) {
    return EBADF;
  }
  m_fd = fd;
  m_owned = owned;
  struct stat st;
  std::memset(&st, 0, sizeof st);
  if (fstat(fd, &st) != 0) {
    return errno;
  }
  if (S_ISREG(st.st_mode)) {
    m_type = TypeRegular;
  } else if (S_ISDIR(st.st_mode)) {
    m_type = TypeDirectory;
  } else if (S_ISFIFO(st.st_mode) || S_ISSOCK(st.st_mode)) {
    m_type = TypeStream;
  } else {
    m_type = TypeOther;
  }
  m_size = st.st_size > 0 ? static_cast<std::uint64_t>(st.st_size) : 0u;
  return 0;
}

void DtNlFdReadAt::Borrow(int fd, std::uint64_t size) {
  Close();
  m_fd = fd;
  m_type = fd >= 0 ? TypeRegular : TypeNone;
  m_size = size;
}

int DtNlFdReadAt::GetData(std::uint64_t offset, std::size_t length, UINT8* out,
                          std::size_t* got) {
  std::size_t done = 0;
  int err = 0;
  while (done < length) {  // each pass reads at least one byte, or ends the loop
    if (offset > kMaxOffset || done > kMaxOffset - offset) {
      err = EOVERFLOW;
      break;
    }
    const std::size_t left = length - done;
    const std::size_t want = left > kMaxPread ? kMaxPread : left;
    const ssize_t n = pread(m_fd, out + done, want, static_cast<off_t>(offset + done));
    if (n < 0) {
      if (errno == EINTR) {
        continue;
      }
      err = errno;
      break;
    }
    if (n == 0) {
      break;  // the end of the file
    }
    done += static_cast<std::size_t>(n);
  }
  *got = done;
  return err;
}

// ---- memory ----------------------------------------------------------------

DtNlMemReadAt::DtNlMemReadAt(const UINT8* data, std::size_t length, std::uint64_t size)
    : m_data(data),
      m_length(data == nullptr ? 0 : length),
      m_size(size < m_length ? m_length : size) {}

int DtNlMemReadAt::GetData(std::uint64_t offset, std::size_t length, UINT8* out,
                           std::size_t* got) {
  *got = 0;
  if (length == 0 || offset >= m_size) {
    return 0;
  }
  // Subtraction form: offset < m_size here.
  const std::uint64_t inData = m_size - offset;
  const std::size_t want = inData < length ? static_cast<std::size_t>(inData) : length;
  const std::size_t held = offset < m_length ? m_length - static_cast<std::size_t>(offset) : 0;
  const std::size_t copied = held < want ? held : want;
  if (copied > 0) {
    std::memcpy(out, m_data + static_cast<std::size_t>(offset), copied);
  }
  *got = copied;
  return copied < want ? ENODATA : 0;
}

const UINT8* DtNlMemReadAt::View(std::uint64_t offset, std::size_t length) const {
  if (offset > m_length || length > m_length - static_cast<std::size_t>(offset)) {
    return nullptr;
  }
  return m_data + static_cast<std::size_t>(offset);
}
