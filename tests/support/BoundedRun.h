// BoundedRun.h - runs a piece of a test in a child process with a deadline,
// for calls that could wait forever (a named pipe opened for reading) or
// take more memory than they should (a picture bomb).
//
// The child is a fork of the test: it runs `body`, writes the string the
// body returns to a pipe and exits. The parent waits for that string at
// most `deadline`, then kills the child (SIGKILL) and reaps it, so a hang
// ends the test instead of the run. The child's peak resident size comes
// from wait4's rusage: the growth during the body is that peak minus the
// size the child had when it started (both from the child's own view).
//
//   const kpztest::Bounded r = kpztest::RunBounded(std::chrono::seconds(10), [&] {
//     return KpzMetadataReader::Read(fifo, &md) ? std::string("ok") : md.error;
//   });
//   EXPECT_FALSE(r.timedOut);
//   EXPECT_EQ(r.out, "not a regular file ...");
//
// Only async-signal-safe work after fork matters for threads of the parent;
// the test executables run one thread when this is called.
#ifndef KPZ_TESTS_SUPPORT_BOUNDEDRUN_H
#define KPZ_TESTS_SUPPORT_BOUNDEDRUN_H

#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

namespace kpztest {

struct Bounded {
  bool started = false;   // the child could be made
  bool timedOut = false;  // killed at the deadline
  bool exited = false;    // ended by itself with status 0
  std::string out;        // what the body returned (when it ended)
  long startKiB = 0;      // the child's peak resident size when the body began
  long peakKiB = 0;       // its peak resident size at the end (wait4)
  long GrowthKiB() const { return peakKiB > startKiB ? peakKiB - startKiB : 0; }
};

template <typename Body>
Bounded RunBounded(std::chrono::milliseconds deadline, Body body) {
  Bounded r;
  int fds[2];
  if (pipe(fds) != 0) {
    return r;
  }
  const pid_t pid = fork();
  if (pid < 0) {
    close(fds[0]);
    close(fds[1]);
    return r;
  }
  if (pid == 0) {
    close(fds[0]);
    struct rusage before;
    getrusage(RUSAGE_SELF, &before);
    const long start = before.ru_maxrss;
    const std::string out = body();
    // "<start KiB>\n<out>"
    const std::string msg = std::to_string(start) + "\n" + out;
    std::size_t done = 0;
    while (done < msg.size()) {
      const ssize_t n = write(fds[1], msg.data() + done, msg.size() - done);
      if (n < 0 && errno == EINTR) {
        continue;
      }
      if (n <= 0) {
        break;
      }
      done += static_cast<std::size_t>(n);
    }
    close(fds[1]);
    _exit(0);
  }
  r.started = true;
  close(fds[1]);
  std::string got;
  const auto end = std::chrono::steady_clock::now() + deadline;
  bool eof = false;
  while (!eof) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        end - std::chrono::steady_clock::now());
    if (left.count() <= 0) {
      r.timedOut = true;
      break;
    }
    struct pollfd p = {fds[0], POLLIN, 0};
    const int ready = poll(&p, 1, static_cast<int>(left.count()));
    if (ready < 0 && errno == EINTR) {
      continue;
    }
    if (ready <= 0) {
      r.timedOut = ready == 0;
      break;
    }
    char buf[4096];
    const ssize_t n = read(fds[0], buf, sizeof buf);
    if (n < 0 && errno == EINTR) {
      continue;
    }
    if (n <= 0) {
      eof = true;
    } else {
      got.append(buf, static_cast<std::size_t>(n));
    }
  }
  close(fds[0]);
  if (!eof) {
    kill(pid, SIGKILL);
  }
  int status = 0;
  struct rusage usage;
  std::memset(&usage, 0, sizeof usage);
  while (wait4(pid, &status, 0, &usage) < 0 && errno == EINTR) {
  }
  r.exited = eof && WIFEXITED(status) && WEXITSTATUS(status) == 0;
  r.peakKiB = usage.ru_maxrss;
  const std::size_t nl = got.find('\n');
  if (r.exited && nl != std::string::npos) {
    r.startKiB = std::atol(got.substr(0, nl).c_str());
    r.out = got.substr(nl + 1);
  }
  return r;
}

}  // namespace kpztest

#endif  // KPZ_TESTS_SUPPORT_BOUNDEDRUN_H
