// KpzOutputFile.cpp - output names and all-or-nothing writes of the kpz
// tool (tools/kpz). See KpzOutputFile.h for the contracts.

#include "kpz/KpzOutputFile.h"

#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>

namespace {

std::string withErrno(const std::string& what, int err) {
  return what + ": " + std::strerror(err);
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

bool KpzOutputFile::writeStdout(const std::vector<UINT8>& bytes, std::string* error) {
  std::fflush(stdout);
  if (!writeAll(STDOUT_FILENO, bytes)) {
    *error = withErrno("cannot write to standard output", errno);
    return false;
  }
  return true;
}

bool KpzOutputFile::Write(const std::string& path, const std::vector<UINT8>& bytes,
                          std::string* error) {
  if (path == "-") {
    return writeStdout(bytes, error);
  }
  std::error_code ec;
  if (std::filesystem::is_directory(path, ec)) {
    *error = "is a directory";
    return false;
  }
  const std::filesystem::path out(path);
  const std::filesystem::path dir = out.parent_path().empty() ? "." : out.parent_path();
  std::string tmp = (dir / ("." + out.filename().string() + ".XXXXXX")).string();
  const int fd = mkstemp(tmp.data());
  if (fd < 0) {
    *error = withErrno("cannot create a file in " + dir.string(), errno);
    return false;
  }
  // mkstemp creates the file private (0600); give it the usual permissions.
  const mode_t mask = umask(0);
  umask(mask);
  const bool written = fchmod(fd, 0666 & ~mask) == 0 && writeAll(fd, bytes) && fsync(fd) == 0;
  const int writeErr = errno;
  const bool closed = close(fd) == 0;
  const int closeErr = errno;
  if (!written || !closed) {
    unlink(tmp.c_str());
    *error = withErrno("cannot write the file", written ? closeErr : writeErr);
    return false;
  }
  if (rename(tmp.c_str(), path.c_str()) != 0) {
    const int err = errno;
    unlink(tmp.c_str());
    *error = withErrno("cannot create the file", err);
    return false;
  }
  return true;
}
