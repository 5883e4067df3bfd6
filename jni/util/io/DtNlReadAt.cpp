// DtNlReadAt.cpp - bytes read at an offset from a descriptor or from memory
// (jni/util/io). See DtNlReadAt.h for the contract.
#include "util/io/DtNlReadAt.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <limits>

namespace {

// The largest position pread takes: off_t is 32 bits on 32-bit Android.
const std::uint64_t kMaxOffset = static_cast<std::uint64_t>(std::numeric_limits<off_t>::max());

// The most one pread is asked for: well within ssize_t on every target.
const std::size_t kMaxPread = 0x40000000u;

// A read that never waits for the disk: preadv2 with RWF_NOWAIT (glibc 2.26
// and later; Android's libc from API level 33 on).
#if defined(RWF_NOWAIT) && (!defined(__ANDROID__) || __ANDROID_API__ >= 33)
#define KPZ_HAVE_READ_NOWAIT 1
#endif

// The bytes of [offset, offset + length) the page cache holds from `offset`
// on, read without waiting for the disk: how many arrived (0 when none, when
// the platform or the file system cannot read this way, or on any error: the
// blocking read after it meets the error again and reports it).
std::size_t readCached(int fd, std::uint64_t offset, std::size_t length, UINT8* out) {
#if defined(KPZ_HAVE_READ_NOWAIT)
  if (offset > kMaxOffset || length == 0) {
    return 0;
  }
  struct iovec part;
  part.iov_base = out;
  part.iov_len = length > kMaxPread ? kMaxPread : length;
  const int saved = errno;
  ssize_t n = -1;
  do {
    n = preadv2(fd, &part, 1, static_cast<off_t>(offset), RWF_NOWAIT);
  } while (n < 0 && errno == EINTR);
  errno = saved;  // EAGAIN (not in memory), EOPNOTSUPP, ENOSYS, EINVAL: not the caller's concern
  return n > 0 ? static_cast<std::size_t>(n) : 0u;
#else
  (void)fd;
  (void)offset;
  (void)length;
  (void)out;
  return 0;
#endif
}

// No readahead for the open file: each read brings in the pages it asks for.
void adviseRandom(int fd) {
#if defined(POSIX_FADV_RANDOM)
  const int saved = errno;  // posix_fadvise answers in its result; leave no trace either way
  (void)posix_fadvise(fd, 0, 0, POSIX_FADV_RANDOM);  // only a hint: refused changes nothing
  errno = saved;
#else
  (void)fd;
#endif
}

}  // namespace

DtNlReadAt::~DtNlReadAt() = default;

const UINT8* DtNlReadAt::View(std::uint64_t /*offset*/, std::size_t /*length*/) const {
  return nullptr;
}

// ---- descriptor ------------------------------------------------------------

DtNlFdReadAt::DtNlFdReadAt()
    : m_fd(-1), m_owned(false), m_adviseCold(false), m_type(TypeNone), m_size(0) {}

DtNlFdReadAt::~DtNlFdReadAt() { Close(); }

void DtNlFdReadAt::Close() {
  if (m_owned && m_fd >= 0) {
    (void)close(m_fd);  // read only: nothing to lose on close
  }
  m_fd = -1;
  m_owned = false;
  m_adviseCold = false;
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
  return ReadFd(m_fd, offset, length, out, got, m_adviseCold);
}

int DtNlFdReadAt::ReadFd(int fd, std::uint64_t offset, std::size_t length, UINT8* out,
                         std::size_t* got, bool adviseCold) {
  std::size_t done = 0;
  int err = 0;
  if (adviseCold) {
    done = readCached(fd, offset, length, out);
    if (done < length) {
      // Something must come from the disk (or the file ends first: one
      // hint for nothing, which changes nothing).
      adviseRandom(fd);
    }
  }
  while (done < length) {  // each pass reads at least one byte, or ends the loop
    if (offset > kMaxOffset || done > kMaxOffset - offset) {
      err = EOVERFLOW;
      break;
    }
    const std::size_t left = length - done;
    const std::size_t want = left > kMaxPread ? kMaxPread : left;
    const ssize_t n = pread(fd, out + done, want, static_cast<off_t>(offset + done));
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
