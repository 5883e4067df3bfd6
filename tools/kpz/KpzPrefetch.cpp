// KpzPrefetch.cpp - reading ahead across input files (tools/kpz). See
// KpzPrefetch.h for the contract.

#include "kpz/KpzPrefetch.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "kpz/KpzReadHint.h"
#include "kpz/KpzSource.h"

bool KpzPrefetch::Picture(const std::string& path, KpzPictureReader::Kind kind) {
  KpzSource source;
  KpzPictureReader::Picture picture;
  std::string why;
  if (!source.Open(path, &why) || !KpzPictureReader::Find(source, kind, &picture, &why)) {
    return false;
  }
  return KpzReadHint::WillNeed(source.Fd(), picture.offset, picture.length);
}

bool KpzPrefetch::Head(const std::string& path) {
  const int saved = errno;
  // Non-blocking as in KpzSource::Open: a named pipe must not wait for a writer.
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
  if (fd < 0) {
    errno = saved;
    return false;
  }
  // Only a regular file: a device would be read for nothing.
  struct stat st;
  const bool hinted = fstat(fd, &st) == 0 && S_ISREG(st.st_mode) &&
                      KpzReadHint::WillNeed(fd, 0, KpzSource::kHeadSize);
  close(fd);
  errno = saved;
  return hinted;
}
