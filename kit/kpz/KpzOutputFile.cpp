// KpzOutputFile.cpp - output names and all-or-nothing writes of the kpz
// tool (kit/kpz). See KpzOutputFile.h for the contracts.

#include "kpz/KpzOutputFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "kpz/KpzCopy.h"
#include "kpz/KpzSource.h"

namespace {

std::string withErrno(const std::string& what, int err) {
  return what + ": " + std::strerror(err);
}

// A name for the temporary file of `name`: ".<name>.<6 characters>", made
// different on every call (a counter mixed with the process id and the
// clock); a name that exists already is met by O_EXCL and another is taken.
std::string temporaryName(const std::string& name) {
  static std::atomic<std::uint64_t> counter{0};
  static const std::uint64_t seed =
      static_cast<std::uint64_t>(getpid()) * UINT64_C(0x9E3779B97F4A7C15) ^
      static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count());
  std::uint64_t v = seed + counter.fetch_add(1) * UINT64_C(0xBF58476D1CE4E5B9);
  v ^= v >> 31;
  v *= UINT64_C(0x94D049BB133111EB);
  v ^= v >> 29;
  static const char kDigits[] = "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
  std::string out = "." + name + ".";
  for (int i = 0; i < 6; ++i) {
    out += kDigits[v % 62];
    v /= 62;
  }
  return out;
}

// How many temporary names are tried before giving up.
const int kNameTries = 100;

}  // namespace

std::string KpzOutputFile::DefaultPath(const std::string& input, const std::string& suffix,
                                       bool inCurrentDirectory) {
  const std::filesystem::path in(input);
  std::filesystem::path name = in.filename();
  name.replace_extension();  // "x.kpz" -> "x"; "x" stays "x"
  const std::string file = name.string() + suffix;
  if (inCurrentDirectory) {
    return file;
  }
  return (in.parent_path() / file).string();
}

bool KpzOutputFile::IsSameFile(const std::string& input, const std::string& output) {
  std::error_code ec;
  return std::filesystem::equivalent(input, output, ec) && !ec;
}

bool KpzOutputFile::writeAll(int fd, const std::vector<UINT8>& bytes) {
  std::size_t done = 0;
  while (done < bytes.size()) {  // each pass writes at least one byte or fails
    const ssize_t n = write(fd, bytes.data() + done, bytes.size() - done);
    if (n < 0 && errno == EINTR) {
      continue;
    }
    if (n <= 0) {
      if (n == 0) {
        errno = EIO;
      }
      return false;
    }
    done += static_cast<std::size_t>(n);
  }
  return true;
}

KpzOutputFile::Status KpzOutputFile::writeFile(const std::string& path, const KpzSource* source,
                                               bool sync, const Filler& fill,
                                               std::string* error) {
  if (path == "-") {
    std::fflush(stdout);
    std::string why;
    const Status s = fill(STDOUT_FILENO, &why);
    if (s == Status::OutputFailed) {
      *error = "cannot write to standard output: " + why;
    } else if (s != Status::Done) {
      *error = why;
    }
    return s;
  }
  // One look at the name: a directory is never replaced, nor the input.
  struct stat st;
  if (stat(path.c_str(), &st) == 0) {
    if (S_ISDIR(st.st_mode)) {
      *error = "is a directory";
      return Status::OutputFailed;
    }
    if (source != nullptr && st.st_dev == source->Device() && st.st_ino == source->Inode()) {
      *error = "the output would replace the input file";
      return Status::WouldReplaceInput;
    }
  }
  const std::filesystem::path out(path);
  const std::string dir = out.parent_path().empty() ? "." : out.parent_path().string();
  const std::string prefix = out.parent_path().empty() ? "" : dir + "/";
  std::string tmp;
  int fd = -1;
  for (int i = 0; i < kNameTries && fd < 0; ++i) {  // each pass tries one new name
    tmp = prefix + temporaryName(out.filename().string());
    // 0666 less the umask, as for any new file.
    fd = open(tmp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd < 0 && errno != EEXIST) {
      break;
    }
  }
  if (fd < 0) {
    *error = withErrno("cannot create a file in " + dir, errno);
    return Status::OutputFailed;
  }
  std::string why;
  Status s = fill(fd, &why);
  if (s == Status::Done && sync && fsync(fd) != 0) {
    s = Status::OutputFailed;
    why = std::strerror(errno);
  }
  const bool closed = close(fd) == 0;
  if (s == Status::Done && !closed) {
    s = Status::OutputFailed;
    why = std::strerror(errno);
  }
  if (s != Status::Done) {
    unlink(tmp.c_str());
    *error = s == Status::OutputFailed ? "cannot write the file: " + why : why;
    return s;
  }
  if (rename(tmp.c_str(), path.c_str()) != 0) {
    const int err = errno;
    unlink(tmp.c_str());
    *error = err == EISDIR ? std::string("is a directory") : withErrno("cannot create the file", err);
    return Status::OutputFailed;
  }
  if (sync) {
    // The new name is on the disk only when the directory is.
    const int dirFd = open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const bool synced = dirFd >= 0 && fsync(dirFd) == 0;
    const int err = errno;
    if (dirFd >= 0) {
      close(dirFd);
    }
    if (!synced) {
      *error = withErrno("written, but its directory could not be flushed to the disk", err);
      return Status::OutputFailed;
    }
  }
  return Status::Done;
}

bool KpzOutputFile::Write(const std::string& path, const std::vector<UINT8>& bytes, bool sync,
                          std::string* error) {
  const Filler fill = [&bytes](int fd, std::string* why) {
    if (!writeAll(fd, bytes)) {
      *why = std::strerror(errno);
      return Status::OutputFailed;
    }
    return Status::Done;
  };
  return writeFile(path, nullptr, sync, fill, error) == Status::Done;
}

KpzOutputFile::Status KpzOutputFile::Put(const std::string& path, const KpzSource& source,
                                         const std::vector<UINT8>& bytes, bool sync,
                                         std::string* error) {
  const Filler fill = [&bytes](int fd, std::string* why) {
    if (!writeAll(fd, bytes)) {
      *why = std::strerror(errno);
      return Status::OutputFailed;
    }
    return Status::Done;
  };
  return writeFile(path, &source, sync, fill, error);
}

KpzOutputFile::Status KpzOutputFile::Copy(const std::string& path, const KpzSource& source,
                                          std::uint64_t offset, std::uint64_t length,
                                          const char* what, bool sync, std::string* error) {
  const Filler fill = [&](int fd, std::string* why) {
    const KpzCopy::Result r = KpzCopy::Range(source.Fd(), offset, length, fd);
    switch (r.failure) {
      case KpzCopy::Failure::None:
        return Status::Done;
      case KpzCopy::Failure::InputEnded:
        *why = std::string(what) + " extends past the end of the file";
        return Status::InputFailed;
      case KpzCopy::Failure::Input:
        *why = r.err == EIO ? std::string("input/output error while reading the ") + what
                            : std::string("the ") + what + " cannot be read: " +
                                  std::strerror(r.err);
        return Status::InputFailed;
      case KpzCopy::Failure::Memory:
        *why = "out of memory";
        return Status::OutputFailed;
      case KpzCopy::Failure::Output:
        break;
    }
    *why = std::strerror(r.err);
    return Status::OutputFailed;
  };
  return writeFile(path, &source, sync, fill, error);
}
