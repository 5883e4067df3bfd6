// FaultInjection.h - makes chosen C library calls fail, for tests only.
//
// Every test executable is linked with -Wl,--wrap=<call> for the calls listed in
// kpztest::Call, so the library's calls land in FaultInjection.cpp. Unarmed, a
// wrapper passes straight through to the real call and counts it. Armed, it
// lets `skip` calls through, then fails the next `times` calls with `err`.
//
//   kpztest::FaultGuard guard;                      // disarms everything on scope exit
//   kpztest::Arm(kpztest::Call::Fseek, EIO);        // next fseek fails with EIO
//   kpztest::Arm(kpztest::Call::Fread, EFAULT, 0, 1, /*partial=*/100);
//
// How a failing call fails:
//   fread/fwrite  really transfer min(partial, n) bytes, then mark the stream's
//                 error indicator (seen through the wrapped ferror, cleared by
//                 clearerr/fclose), set errno and return that count.
//   fopen/opendir return null;   ftell returns -1;   fileno returns -1;
//   posix_fadvise returns `err` itself (its way of failing) without the call;
//   time          returns the value given by SetTime (armed or not);
//   fclose        really closes the stream (the handle is gone either way), then
//                 reports failure;
//   everything else: returns -1 (EOF for fclose/fflush) without doing the call.
// errno is set to `err` in every case.
#ifndef KPZ_TESTS_SUPPORT_FAULTINJECTION_H
#define KPZ_TESTS_SUPPORT_FAULTINJECTION_H

#include <cstddef>
#include <ctime>
#include <string>
#include <vector>

namespace kpztest {

enum class Call {
  Fopen, Fclose, Fread, Fwrite, Fseek, Ftell, Fflush, Fileno, Ferror, Clearerr, Fsync, Sync,
  Open, Close, Mkdir, Unlink, Rmdir, Stat, Stat64, Chmod, Rename, Utime, Opendir, Time,
  // Calls of the kpz tool (tools/kpz): its own reads and file-to-file copies.
  Pread, Write, Fstat, CopyFileRange, Sendfile,
  // The read that never waits for the disk. While a Pread fault is armed it
  // answers EAGAIN (the bytes are not in memory), so that the armed pread is
  // the read that meets the fault.
  Preadv2,
  // Access hints (library and tool alike).
  Fadvise,
  Count
};

// Fails the (skip+1)-th to (skip+times)-th calls of `call` from now on with `err`.
// `partial` is the byte count fread/fwrite really transfer before failing.
void Arm(Call call, int err, int skip = 0, int times = 1, std::size_t partial = 0);
void Disarm(Call call);
void DisarmAll();

// Calls of `call` seen since the last ResetCounts (armed or not).
int CallCount(Call call);
void ResetCounts();

// The arguments of one posix_fadvise call as the seam saw it.
struct FadviseCall {
  int fd;
  long long offset;
  long long length;
  int advice;
};

// The posix_fadvise calls recorded after a ResetCounts; later ones are
// only counted (CallCount).
constexpr std::size_t kMaxFadviseRecords = 256;

// The first kMaxFadviseRecords posix_fadvise calls seen since the last
// ResetCounts (armed or not), in order.
std::vector<FadviseCall> FadviseCalls();

// Makes the wrapped time() return `value` until ClearTime().
void SetTime(std::time_t value);
void ClearTime();

// Disarms every fault, clears the time override and resets the counts on
// construction and destruction.
// True when this platform and the file system under `path` give the bytes
// of a file already in memory without waiting for the disk (preadv2 with
// RWF_NOWAIT), as the readers try first: the first bytes of `path`, read
// once, come back that way. Tests of what a warm file costs skip where not.
bool ReadsWithoutWaiting(const std::string& path);

class FaultGuard {
 public:
  FaultGuard();
  ~FaultGuard();
  FaultGuard(const FaultGuard&) = delete;
  FaultGuard& operator=(const FaultGuard&) = delete;
};

}  // namespace kpztest

#endif  // KPZ_TESTS_SUPPORT_FAULTINJECTION_H
