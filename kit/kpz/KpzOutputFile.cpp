// KpzOutputFile.cpp - output names and all-or-nothing writes of the kpz
// tool (kit/kpz). See KpzOutputFile.h for the contracts.

#include "kpz/KpzOutputFile.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <system_error>

#include "kpz/KpzCopy.h"
#include "kpz/KpzShownName.h"
#include "kpz/KpzSource.h"
#include "raw/DtRawErrorText.h"

namespace {

std::string withErrno(const std::string& what, int err) {
  return what + ": " + std::strerror(err);
}

// This machine's name as it goes into a temporary name: letters, digits,
// '-' and '.' only (anything else becomes '-'), at most 32 characters.
std::string hostTag() {
  char host[256] = {};
  if (gethostname(host, sizeof host - 1) != 0 || host[0] == '\0') {
    return "host";
  }
  std::string tag;
  for (const char* c = host; *c != '\0' && tag.size() < 32; ++c) {
    const bool plain = (*c >= 'a' && *c <= 'z') || (*c >= 'A' && *c <= 'Z') ||
                       (*c >= '0' && *c <= '9') || *c == '.' || *c == '-';
    tag += plain ? *c : '-';
  }
  return tag;
}

const char kDigits[] = "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";

// The part of a temporary name that names its owner, after the output's
// name: ".kpz-<host>-<pid>." (see KpzOutputFile::IsStaleTemporary).
std::string ownerTag() {
  return ".kpz-" + hostTag() + "-" + std::to_string(static_cast<long long>(getpid())) + ".";
}

// A name for the temporary file of `name`: ".<name>.kpz-<host>-<pid>.<6
// characters>", made different on every call (a counter mixed with the
// process id and the clock); a name that exists already is met by O_EXCL
// and another is taken. A name too long for the file system with the
// owner in it is ".<name>.<6 characters>", which no later run removes.
std::string temporaryName(const std::string& name) {
  static std::atomic<std::uint64_t> counter{0};
  static const std::uint64_t seed =
      static_cast<std::uint64_t>(getpid()) * UINT64_C(0x9E3779B97F4A7C15) ^
      static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count());
  std::uint64_t v = seed + counter.fetch_add(1) * UINT64_C(0xBF58476D1CE4E5B9);
  v ^= v >> 31;
  v *= UINT64_C(0x94D049BB133111EB);
  v ^= v >> 29;
  const std::string owner = ownerTag();
  std::string out = "." + name + (name.size() + owner.size() + 7 <= 255 ? owner : ".");
  for (int i = 0; i < 6; ++i) {
    out += kDigits[v % 62];
    v /= 62;
  }
  return out;
}

// How many temporary names are tried before giving up.
const int kNameTries = 100;

// How many symbolic links are followed from the output's name (the kernel's
// own limit on Linux).
const int kMaxLinks = 40;

// The file that `path` ends at when its last part is followed through
// symbolic links: the path itself when it is no link or does not exist, the
// final target (which may not exist) otherwise. False with *err (ELOOP or a
// readlink error) when it cannot be followed.
bool followLinks(const std::string& path, std::string* target, int* err) {
  std::string p = path;
  for (int i = 0; i <= kMaxLinks; ++i) {  // each pass follows one link
    struct stat st;
    if (lstat(p.c_str(), &st) != 0 || !S_ISLNK(st.st_mode)) {
      *target = p;
      return true;
    }
    std::string link(4096, '\0');
    const ssize_t n = readlink(p.c_str(), &link[0], link.size());
    if (n < 0 || static_cast<std::size_t>(n) >= link.size()) {
      *err = n < 0 ? errno : ENAMETOOLONG;
      return false;
    }
    link.resize(static_cast<std::size_t>(n));
    const std::filesystem::path parent = std::filesystem::path(p).parent_path();
    p = link[0] == '/' || parent.empty() ? link : (parent / link).string();
  }
  *err = ELOOP;
  return false;
}

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

KpzOutputFile::Status KpzOutputFile::writeThrough(const std::string& path, const Filler& fill,
                                                  std::string* error) {
  // No O_CREAT: what is there is written, nothing is made in its place.
  const int fd = open(path.c_str(), O_WRONLY | O_NOCTTY | O_CLOEXEC);
  if (fd < 0) {
    *error = withErrno("cannot open it for writing", errno);
    return Status::OutputFailed;
  }
  std::string why;
  Status s = fill(fd, &why);
  const bool closed = close(fd) == 0;
  if (s == Status::Done && !closed) {
    s = Status::OutputFailed;
    why = std::strerror(errno);
  }
  if (s != Status::Done) {
    *error = s == Status::OutputFailed ? "cannot write to it: " + why : why;
  }
  return s;
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
  // A link's target is what gets written (the link stays as it is).
  std::string target;
  int linkErr = 0;
  if (!followLinks(path, &target, &linkErr)) {
    *error = withErrno("cannot follow the link", linkErr);
    return Status::OutputFailed;
  }
  // One look at the name: a directory is never replaced, nor the input; a
  // device or FIFO is written through.
  struct stat st;
  if (stat(target.c_str(), &st) == 0) {
    if (S_ISDIR(st.st_mode)) {
      *error = "is a directory";
      return Status::OutputFailed;
    }
    if (source != nullptr && st.st_dev == source->Device() && st.st_ino == source->Inode()) {
      *error = "the output would replace the input file";
      return Status::WouldReplaceInput;
    }
    if (S_ISBLK(st.st_mode)) {
      *error = "is a block device: kpz writes no picture onto a device";
      return Status::OutputFailed;
    }
    if (S_ISSOCK(st.st_mode)) {
      *error = "is a socket: it cannot be written as a file";
      return Status::OutputFailed;
    }
    if (S_ISCHR(st.st_mode) || S_ISFIFO(st.st_mode)) {
      return writeThrough(target, fill, error);
    }
  }
  const std::string& dest = target;
  const std::filesystem::path out(dest);
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
    *error = withErrno("cannot create a file in " + KpzShownName::Of(dir), errno);
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
  if (rename(tmp.c_str(), dest.c_str()) != 0) {
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

namespace {

// The library's words for a picture whose file ended before its last byte.
std::string pictureEnded(const char* what) {
  char words[DtRawErrorText::WORDS_SIZE];
  DtRawErrorText::PastEnd(what, words, sizeof words);
  return words;
}

}  // namespace

KpzOutputFile::Status KpzOutputFile::Copy(const std::string& path, const KpzSource& source,
                                          std::uint64_t offset, std::uint64_t length,
                                          const char* what, bool sync, std::string* error) {
  const Filler fill = [&](int fd, std::string* why) {
    const KpzCopy::Result r = KpzCopy::Range(source.Fd(), offset, length, fd);
    switch (r.failure) {
      case KpzCopy::Failure::None:
        return Status::Done;
      case KpzCopy::Failure::InputEnded:
        *why = pictureEnded(what);
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

bool KpzOutputFile::NamesDirectory(const std::string& output) {
  if (output.empty() || output == "-") {
    return false;
  }
  if (output.back() == '/') {
    return true;
  }
  struct stat st;
  return stat(output.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

bool KpzOutputFile::MakeDirectory(const std::string& path, std::string* error) {
  std::string shown = path;
  while (shown.size() > 1 && shown.back() == '/') {
    shown.pop_back();
  }
  const auto fail = [&](int err) {
    *error = KpzShownName::Of(shown) + ": cannot make the output directory: " + std::strerror(err);
    return false;
  };
  if (path.empty()) {
    return fail(ENOENT);
  }
  // Every prefix that ends a part, the whole path last: made when missing.
  for (std::size_t end = 1; end <= shown.size(); ++end) {  // each pass looks at one more byte
    if (end < shown.size() && shown[end] != '/') {
      continue;
    }
    if (shown[end - 1] == '/') {
      continue;  // "a//b", or the root
    }
    const std::string prefix = shown.substr(0, end);
    struct stat st;
    if (stat(prefix.c_str(), &st) == 0) {
      if (!S_ISDIR(st.st_mode)) {
        return fail(ENOTDIR);
      }
      continue;
    }
    if (errno != ENOENT) {
      return fail(errno);
    }
    if (mkdir(prefix.c_str(), 0777) != 0 && errno != EEXIST) {
      return fail(errno);
    }
    if (stat(prefix.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {  // made by another meanwhile
      return fail(ENOTDIR);
    }
  }
  return true;
}

bool KpzOutputFile::JpegEndsWhole(const UINT8* head, std::size_t headSize, const UINT8* tail,
                                  std::size_t tailSize, std::uint64_t size) {
  if (head == nullptr || tail == nullptr || size < 4 || headSize < 3 || tailSize < 2 ||
      headSize > size || tailSize > size) {
    return false;
  }
  return head[0] == 0xFF && head[1] == 0xD8 && head[2] == 0xFF &&
         tail[tailSize - 2] == 0xFF && tail[tailSize - 1] == 0xD9;
}

bool KpzOutputFile::IsWhole(const std::string& path) {
  const int fd = open(path.c_str(), O_RDONLY | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) {
    return false;
  }
  struct stat st;
  bool whole = false;
  if (fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && st.st_size >= 4) {
    const std::uint64_t size = static_cast<std::uint64_t>(st.st_size);
    UINT8 head[3];
    UINT8 tail[2];
    whole = pread(fd, head, sizeof head, 0) == static_cast<ssize_t>(sizeof head) &&
            pread(fd, tail, sizeof tail, static_cast<off_t>(size - sizeof tail)) ==
                static_cast<ssize_t>(sizeof tail) &&
            JpegEndsWhole(head, sizeof head, tail, sizeof tail, size);
  }
  close(fd);
  return whole;
}

bool KpzOutputFile::IsStaleTemporary(const std::string& dir, const std::string& name) {
  const std::size_t n = name.size();
  if (n < 9 || name[0] != '.' || name[n - 7] != '.') {
    return false;
  }
  for (std::size_t i = n - 6; i < n; ++i) {
    if (std::strchr(kDigits, name[i]) == nullptr || name[i] == '\0') {
      return false;
    }
  }
  const std::size_t pidEnd = n - 7;
  std::size_t pidStart = pidEnd;
  while (pidStart > 0 && name[pidStart - 1] >= '0' && name[pidStart - 1] <= '9') {
    --pidStart;  // each pass takes one digit
  }
  if (pidStart == pidEnd || pidEnd - pidStart > 9) {
    return false;
  }
  const std::string tag = ".kpz-" + hostTag() + "-";
  if (pidStart < tag.size() + 2 || name.compare(pidStart - tag.size(), tag.size(), tag) != 0) {
    return false;  // "." and at least one character of the output's name before the tag
  }
  const long pid = std::strtol(name.c_str() + pidStart, nullptr, 10);
  if (pid <= 0 || pid == static_cast<long>(getpid())) {
    return false;
  }
  if (kill(static_cast<pid_t>(pid), 0) == 0 || errno != ESRCH) {
    return false;  // there (EPERM: another user's process), or unknown
  }
  struct stat st;
  const std::string path = (std::filesystem::path(dir) / name).string();
  if (lstat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) {
    return false;
  }
  const std::time_t now = std::time(nullptr);
  return now - st.st_mtime >= static_cast<std::time_t>(kStaleMinutes * 60);
}

std::size_t KpzOutputFile::RemoveStale(const std::string& dir) {
  std::size_t removed = 0;
  std::error_code ec;
  std::filesystem::directory_iterator it(dir, ec);
  const std::filesystem::directory_iterator end;
  while (!ec && it != end) {  // the iterator moves forward or fails on each pass
    const std::string name = it->path().filename().string();
    if (!name.empty() && name[0] == '.' && IsStaleTemporary(dir, name) &&
        unlink(it->path().c_str()) == 0) {
      ++removed;
    }
    it.increment(ec);
  }
  return removed;
}
