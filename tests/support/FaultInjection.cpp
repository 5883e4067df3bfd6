// FaultInjection.cpp - the __wrap_ side of the link-time fault seam.
#include "support/FaultInjection.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>
#include <utime.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <set>
#include <vector>

extern "C" {
FILE* __real_fopen(const char* path, const char* mode);
int __real_fclose(FILE* stream);
size_t __real_fread(void* ptr, size_t size, size_t n, FILE* stream);
size_t __real_fwrite(const void* ptr, size_t size, size_t n, FILE* stream);
int __real_fseek(FILE* stream, long offset, int whence);
long __real_ftell(FILE* stream);
int __real_fflush(FILE* stream);
int __real_fileno(FILE* stream);
int __real_ferror(FILE* stream);
void __real_clearerr(FILE* stream);
int __real_fsync(int fd);
void __real_sync(void);
int __real_open(const char* path, int flags, ...);
int __real_close(int fd);
int __real_mkdir(const char* path, mode_t mode);
int __real_unlink(const char* path);
int __real_rmdir(const char* path);
int __real_stat(const char* path, struct stat* buf);
int __real_stat64(const char* path, struct stat64* buf);
int __real_chmod(const char* path, mode_t mode);
int __real_rename(const char* from, const char* to);
int __real_utime(const char* path, const struct utimbuf* times);
DIR* __real_opendir(const char* path);
time_t __real_time(time_t* out);
ssize_t __real_pread(int fd, void* buf, size_t n, off_t offset);
ssize_t __real_preadv2(int fd, const struct iovec* iov, int count, off_t offset, int flags);
ssize_t __real_write(int fd, const void* buf, size_t n);
int __real_fstat(int fd, struct stat* buf);
ssize_t __real_copy_file_range(int in, off64_t* inOffset, int out, off64_t* outOffset, size_t n,
                               unsigned int flags);
ssize_t __real_sendfile(int out, int in, off_t* offset, size_t n);
int __real_posix_fadvise(int fd, off_t offset, off_t length, int advice);
}

namespace kpztest {
namespace {

const int kCalls = static_cast<int>(Call::Count);

struct Slot {
  std::atomic<int> count{0};
  std::atomic<int> skip{0};
  std::atomic<int> times{0};
  std::atomic<int> err{0};
  std::atomic<std::size_t> partial{0};
};

Slot g_slots[kCalls];
std::atomic<bool> g_timeSet{false};
std::atomic<std::time_t> g_timeValue{0};
std::mutex g_errorMutex;
std::set<FILE*> g_errorStreams;  // streams whose error indicator the seam has set
std::mutex g_fadviseMutex;
std::vector<FadviseCall> g_fadviseCalls;  // see FadviseCalls

Slot& SlotOf(Call call) { return g_slots[static_cast<int>(call)]; }

// Counts the call; returns true (and sets errno) when this call must fail.
bool ShouldFail(Call call) {
  Slot& slot = SlotOf(call);
  slot.count.fetch_add(1);
  if (slot.times.load() <= 0) {
    return false;
  }
  if (slot.skip.load() > 0) {
    slot.skip.fetch_sub(1);
    return false;
  }
  slot.times.fetch_sub(1);
  errno = slot.err.load();
  return true;
}

void MarkError(FILE* stream) {
  std::lock_guard<std::mutex> lock(g_errorMutex);
  g_errorStreams.insert(stream);
}

void ForgetStream(FILE* stream) {
  std::lock_guard<std::mutex> lock(g_errorMutex);
  g_errorStreams.erase(stream);
}

bool HasMarkedError(FILE* stream) {
  std::lock_guard<std::mutex> lock(g_errorMutex);
  return g_errorStreams.count(stream) != 0;
}

void NoteFadvise(int fd, long long offset, long long length, int advice) {
  std::lock_guard<std::mutex> lock(g_fadviseMutex);
  // A fixed block, taken once: the record never reallocates, so it never
  // shows in a test that watches the library's largest allocation.
  if (g_fadviseCalls.capacity() < kMaxFadviseRecords) {
    g_fadviseCalls.reserve(kMaxFadviseRecords);
  }
  if (g_fadviseCalls.size() < kMaxFadviseRecords) {
    g_fadviseCalls.push_back(FadviseCall{fd, offset, length, advice});
  }
}

}  // namespace

void Arm(Call call, int err, int skip, int times, std::size_t partial) {
  Slot& slot = SlotOf(call);
  slot.err = err;
  slot.skip = skip;
  slot.partial = partial;
  slot.times = times;
}

void Disarm(Call call) {
  SlotOf(call).times = 0;
  SlotOf(call).skip = 0;
}

void DisarmAll() {
  for (Slot& slot : g_slots) {
    slot.times = 0;
    slot.skip = 0;
  }
}

int CallCount(Call call) { return SlotOf(call).count.load(); }

void ResetCounts() {
  for (Slot& slot : g_slots) {
    slot.count = 0;
  }
  std::lock_guard<std::mutex> lock(g_fadviseMutex);
  g_fadviseCalls.clear();
}

std::vector<FadviseCall> FadviseCalls() {
  std::lock_guard<std::mutex> lock(g_fadviseMutex);
  return g_fadviseCalls;
}

void SetTime(std::time_t value) {
  g_timeValue = value;
  g_timeSet = true;
}

void ClearTime() { g_timeSet = false; }

bool ReadsWithoutWaiting(const std::string& path) {
#if defined(RWF_NOWAIT)
  // Past the seam: neither counted nor failed.
  const int fd = __real_open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  char bytes[4096];
  bool taken = false;
  if (__real_pread(fd, bytes, sizeof bytes, 0) > 0) {  // now in memory if it was not
    struct iovec part;
    part.iov_base = bytes;
    part.iov_len = sizeof bytes;
    taken = __real_preadv2(fd, &part, 1, 0, RWF_NOWAIT) > 0;
  }
  __real_close(fd);
  return taken;
#else
  (void)path;
  return false;
#endif
}

FaultGuard::FaultGuard() {
  DisarmAll();
  ClearTime();
  ResetCounts();
}

FaultGuard::~FaultGuard() {
  DisarmAll();
  ClearTime();
  ResetCounts();
}

}  // namespace kpztest

using kpztest::Call;
using kpztest::ShouldFail;

extern "C" {

FILE* __wrap_fopen(const char* path, const char* mode) {
  if (ShouldFail(Call::Fopen)) return nullptr;
  return __real_fopen(path, mode);
}

int __wrap_fclose(FILE* stream) {
  kpztest::ForgetStream(stream);
  if (ShouldFail(Call::Fclose)) {
    const int err = errno;
    __real_fclose(stream);
    errno = err;
    return EOF;
  }
  return __real_fclose(stream);
}

size_t __wrap_fread(void* ptr, size_t size, size_t n, FILE* stream) {
  if (ShouldFail(Call::Fread)) {
    const int err = errno;
    size_t done = 0;
    const size_t partial = kpztest::SlotOf(Call::Fread).partial.load();
    const size_t want = (size == 0) ? 0 : (partial < n ? partial : n);
    if (want > 0) done = __real_fread(ptr, size, want, stream);
    kpztest::MarkError(stream);
    errno = err;
    return done;
  }
  return __real_fread(ptr, size, n, stream);
}

size_t __wrap_fwrite(const void* ptr, size_t size, size_t n, FILE* stream) {
  if (ShouldFail(Call::Fwrite)) {
    const int err = errno;
    size_t done = 0;
    const size_t partial = kpztest::SlotOf(Call::Fwrite).partial.load();
    const size_t want = (size == 0) ? 0 : (partial < n ? partial : n);
    if (want > 0) done = __real_fwrite(ptr, size, want, stream);
    kpztest::MarkError(stream);
    errno = err;
    return done;
  }
  return __real_fwrite(ptr, size, n, stream);
}

int __wrap_fseek(FILE* stream, long offset, int whence) {
  if (ShouldFail(Call::Fseek)) return -1;
  return __real_fseek(stream, offset, whence);
}

long __wrap_ftell(FILE* stream) {
  if (ShouldFail(Call::Ftell)) return -1;
  return __real_ftell(stream);
}

int __wrap_fflush(FILE* stream) {
  if (ShouldFail(Call::Fflush)) return EOF;
  return __real_fflush(stream);
}

int __wrap_fileno(FILE* stream) {
  if (ShouldFail(Call::Fileno)) return -1;
  return __real_fileno(stream);
}

int __wrap_ferror(FILE* stream) {
  if (ShouldFail(Call::Ferror)) return 1;
  if (kpztest::HasMarkedError(stream)) return 1;
  return __real_ferror(stream);
}

void __wrap_clearerr(FILE* stream) {
  kpztest::SlotOf(Call::Clearerr).count.fetch_add(1);
  kpztest::ForgetStream(stream);
  __real_clearerr(stream);
}

int __wrap_fsync(int fd) {
  if (ShouldFail(Call::Fsync)) return -1;
  return __real_fsync(fd);
}

void __wrap_sync(void) {
  kpztest::SlotOf(Call::Sync).count.fetch_add(1);
  __real_sync();
}

int __wrap_open(const char* path, int flags, ...) {
  mode_t mode = 0;
  if ((flags & O_CREAT) != 0) {
    va_list args;
    va_start(args, flags);
    mode = static_cast<mode_t>(va_arg(args, unsigned int));
    va_end(args);
  }
  if (ShouldFail(Call::Open)) return -1;
  return __real_open(path, flags, mode);
}

int __wrap_close(int fd) {
  if (ShouldFail(Call::Close)) {
    const int err = errno;
    __real_close(fd);
    errno = err;
    return -1;
  }
  return __real_close(fd);
}

int __wrap_mkdir(const char* path, mode_t mode) {
  if (ShouldFail(Call::Mkdir)) return -1;
  return __real_mkdir(path, mode);
}

int __wrap_unlink(const char* path) {
  if (ShouldFail(Call::Unlink)) return -1;
  return __real_unlink(path);
}

int __wrap_rmdir(const char* path) {
  if (ShouldFail(Call::Rmdir)) return -1;
  return __real_rmdir(path);
}

int __wrap_stat(const char* path, struct stat* buf) {
  if (ShouldFail(Call::Stat)) return -1;
  return __real_stat(path, buf);
}

int __wrap_stat64(const char* path, struct stat64* buf) {
  if (ShouldFail(Call::Stat64)) return -1;
  return __real_stat64(path, buf);
}

int __wrap_chmod(const char* path, mode_t mode) {
  if (ShouldFail(Call::Chmod)) return -1;
  return __real_chmod(path, mode);
}

int __wrap_rename(const char* from, const char* to) {
  if (ShouldFail(Call::Rename)) return -1;
  return __real_rename(from, to);
}

int __wrap_utime(const char* path, const struct utimbuf* times) {
  if (ShouldFail(Call::Utime)) return -1;
  return __real_utime(path, times);
}

DIR* __wrap_opendir(const char* path) {
  if (ShouldFail(Call::Opendir)) return nullptr;
  return __real_opendir(path);
}

time_t __wrap_time(time_t* out) {
  kpztest::SlotOf(Call::Time).count.fetch_add(1);
  if (kpztest::g_timeSet.load()) {
    const time_t value = kpztest::g_timeValue.load();
    if (out != nullptr) *out = value;
    return value;
  }
  return __real_time(out);
}

ssize_t __wrap_pread(int fd, void* buf, size_t n, off_t offset) {
  if (ShouldFail(Call::Pread)) return -1;
  return __real_pread(fd, buf, n, offset);
}

ssize_t __wrap_preadv2(int fd, const struct iovec* iov, int count, off_t offset, int flags) {
  if (ShouldFail(Call::Preadv2)) return -1;
  if (kpztest::SlotOf(Call::Pread).times.load() > 0) {
    errno = EAGAIN;  // see Call::Preadv2
    return -1;
  }
  return __real_preadv2(fd, iov, count, offset, flags);
}

ssize_t __wrap_write(int fd, const void* buf, size_t n) {
  if (ShouldFail(Call::Write)) return -1;
  return __real_write(fd, buf, n);
}

int __wrap_fstat(int fd, struct stat* buf) {
  if (ShouldFail(Call::Fstat)) return -1;
  return __real_fstat(fd, buf);
}

ssize_t __wrap_copy_file_range(int in, off64_t* inOffset, int out, off64_t* outOffset, size_t n,
                               unsigned int flags) {
  if (ShouldFail(Call::CopyFileRange)) return -1;
  return __real_copy_file_range(in, inOffset, out, outOffset, n, flags);
}

ssize_t __wrap_sendfile(int out, int in, off_t* offset, size_t n) {
  if (ShouldFail(Call::Sendfile)) return -1;
  return __real_sendfile(out, in, offset, n);
}

int __wrap_posix_fadvise(int fd, off_t offset, off_t length, int advice) {
  kpztest::NoteFadvise(fd, offset, length, advice);
  if (ShouldFail(Call::Fadvise)) return errno;  // ShouldFail has set errno to the armed error
  return __real_posix_fadvise(fd, offset, length, advice);
}

}  // extern "C"
