// DtNlFile.cpp - path joining/splitting and the file-system operations of DtNlFile.
#include "util/io/DtNlFile.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "util/DtNlLogger.h"
#include "util/io/DtNlFileIterator.h"
#include "util/io/DtNlFileStatus.h"
#include "util/io/DtNlFileStatus64.h"

const char* const DtNlFile::PATH_SEPA = "/";

namespace {

const unsigned int NO_INDEX = 0xFFFFFFFFu;

// The text of `s`; "" for a string without text.
const char* textOf(DtNlString const& s) { return s.text != nullptr ? s.text : ""; }

unsigned int lengthOf(DtNlString const& s) { return s.text != nullptr ? s.length : 0u; }

bool startsWithSepa(DtNlString const& s) {
  return lengthOf(s) > 0 && s.text[0] == DtNlFile::PATH_SEPA[0];
}

bool endsWithSepa(DtNlString const& s) {
  const unsigned int len = lengthOf(s);
  return len > 0 && s.text[len - 1] == DtNlFile::PATH_SEPA[0];
}

// *out = the characters [start, end) of `src`, `end` cut to its length; "" when
// the range is empty. `out` may be `src`.
void assignRange(DtNlString* out, DtNlString const& src, unsigned int start, unsigned int end) {
  const unsigned int len = lengthOf(src);
  if (end > len) {
    end = len;
  }
  if (start >= end) {
    *out = "";
    return;
  }
  const unsigned int n = end - start;
  char* piece = new char[n + 1u];
  std::memcpy(piece, textOf(src) + start, n);
  piece[n] = '\0';
  // The terminator is the last byte: setString drops it, keeping n characters.
  out->setString(reinterpret_cast<const unsigned char*>(piece), n + 1u);
  delete[] piece;
}

// Index of the last separator among the first `end` characters of `s` (`end`
// cut to its length), or NO_INDEX.
unsigned int lastSepa(DtNlString const& s, unsigned int end) {
  const unsigned int len = lengthOf(s);
  unsigned int i = end < len ? end : len;
  while (i > 0) {
    --i;
    if (s.text[i] == DtNlFile::PATH_SEPA[0]) {
      return i;
    }
  }
  return NO_INDEX;
}

DtNlStatus failure(DtNlErrCode code, int err) {
  DtNlStatus status;
  status.errCode = code;
  status.sysErrNo = err;
  return status;
}

// The code for a failed call's errno: ENOENT (when the operation separates
// it) and EIO have their own codes, anything else gives `own`.
DtNlErrCode codeOf(int err, DtNlErrCode own, bool separatesNotFound) {
  if (separatesNotFound && err == ENOENT) {
    return DtNlErrNotFound;
  }
  if (err == EIO) {
    return DtNlErrIo;
  }
  return own;
}

}  // namespace

DtNlFile::DtNlFile() : path(), editString(nullptr), rootLength(0), nameIndex(0) {}

DtNlFile::DtNlFile(DtNlString const& fullPath)
    : path(), editString(nullptr), rootLength(0), nameIndex(0) {
  setFullPath(fullPath);
  rootLength = 0;
}

DtNlFile::DtNlFile(const char* fullPath)
    : path(fullPath != nullptr ? fullPath : ""), editString(nullptr), rootLength(0), nameIndex(0) {
  // The text goes straight into `path`: one temporary copy fewer than setFullPath.
  finishFullPath();
}

DtNlFile::DtNlFile(DtNlString const& parent, DtNlString const& child)
    : path(), editString(nullptr), rootLength(0), nameIndex(0) {
  init(parent, child);
}

DtNlFile::DtNlFile(DtNlString const& parent, const char* child)
    : path(), editString(nullptr), rootLength(0), nameIndex(0) {
  init(parent, DtNlString(child != nullptr ? child : ""));
}

DtNlFile::DtNlFile(const char* parent, const char* child)
    : path(), editString(nullptr), rootLength(0), nameIndex(0) {
  init(DtNlString(parent != nullptr ? parent : ""), DtNlString(child != nullptr ? child : ""));
}

DtNlFile::DtNlFile(DtNlFile const& parent, DtNlString const& child)
    : path(), editString(nullptr), rootLength(0), nameIndex(0) {
  addChild(parent, child);
}

DtNlFile::DtNlFile(DtNlFile const& parent, const char* child)
    : path(), editString(nullptr), rootLength(0), nameIndex(0) {
  addChild(parent, DtNlString(child != nullptr ? child : ""));
}

DtNlFile::DtNlFile(DtNlFile const& other)
    : path(), editString(nullptr), rootLength(0), nameIndex(0) {
  copy(other);
}

DtNlFile& DtNlFile::operator=(DtNlFile const& other) {
  // The edit string is not copied; our own stays as it is.
  copy(other);
  return *this;
}

DtNlFile::~DtNlFile() { Free(); }

void DtNlFile::Free() {
  delete editString;
  editString = nullptr;
}

void DtNlFile::copy(DtNlFile const& other) {
  if (&other == this) {
    return;
  }
  path = other.path;
  rootLength = other.rootLength;
  nameIndex = other.nameIndex;
}

DtNlString* DtNlFile::createEditString() const {
  delete editString;
  editString = new DtNlString();
  return editString;
}

void DtNlFile::setFullPath(DtNlString const& fullPath) {
  path = textOf(fullPath);
  finishFullPath();
}

// Drops one trailing separator of `path`, then finds where the name starts
// (never before the root).
void DtNlFile::finishFullPath() {
  if (endsWithSepa(path)) {
    assignRange(&path, path, 0, path.length - 1u);
  }
  const unsigned int i = lastSepa(path, path.length);
  nameIndex = (i == NO_INDEX) ? 0 : ((i >= rootLength) ? i + 1u : rootLength);
}

void DtNlFile::init(DtNlString const& parent, DtNlString const& child) {
  DtNlString full(textOf(parent));
  if (endsWithSepa(full)) {
    assignRange(&full, full, 0, full.length - 1u);
  }
  rootLength = full.length;
  if (lengthOf(child) > 0) {
    if (!startsWithSepa(child)) {
      full.Append(PATH_SEPA, nullptr);
    }
    full.Append(child.text, nullptr);
  }
  setFullPath(full);
}

void DtNlFile::addChild(DtNlFile const& parent, DtNlString const& child) {
  copy(parent);
  // The child is appended as given (no normalisation); an empty child
  // becomes a lone separator.
  nameIndex = path.length + 1u;
  if (!startsWithSepa(child)) {
    path.Append(PATH_SEPA, nullptr);
  }
  path.Append(textOf(child), nullptr);
}

DtNlString const& DtNlFile::GetPath(DtNlString* out) const {
  if (out != nullptr) {
    *out = path;
  }
  return path;
}

DtNlString* DtNlFile::GetRootPath(DtNlString* out) const {
  DtNlString* target = out != nullptr ? out : createEditString();
  if (rootLength == 0) {
    *target = PATH_SEPA;
  } else {
    assignRange(target, path, 0, rootLength);
  }
  return target;
}

DtNlString* DtNlFile::GetChildPath(DtNlString* out) const {
  DtNlString* target = out != nullptr ? out : createEditString();
  if (rootLength == 0) {
    assignRange(target, path, 0, path.length);
  } else if (path.length > rootLength) {
    assignRange(target, path, rootLength, path.length);
  } else {
    *target = PATH_SEPA;
  }
  return target;
}

DtNlString* DtNlFile::GetName(DtNlString* out) const {
  DtNlString* target = out != nullptr ? out : createEditString();
  if (nameIndex == 0) {
    assignRange(target, path, 0, path.length);
  } else if (nameIndex != rootLength) {
    // A path ending in a separator ("a/" from "a//") has an empty name: the
    // result is "" rather than whatever *out held before.
    assignRange(target, path, nameIndex, path.length);
  } else {
    *target = "";
  }
  return target;
}

DtNlFile DtNlFile::GetParent(int level, DtNlFile* out) const {
  if (path.length <= rootLength) {
    if (out != nullptr) {
      *out = *this;
    }
    return DtNlFile(*this);
  }
  // Walk up at most `level` separators, stopping at the root. `end` strictly
  // decreases, so the walk ends within the path's length.
  unsigned int end = path.length;
  unsigned int found = NO_INDEX;
  for (int n = 0; n < level; ++n) {
    const unsigned int i = lastSepa(path, end);
    if (i == NO_INDEX) {
      break;
    }
    found = i;
    if (i == rootLength) {
      break;
    }
    end = i;
  }
  if (found == NO_INDEX) {
    return DtNlFile(path);
  }
  if (found == 0) {
    return DtNlFile(PATH_SEPA);
  }
  DtNlString text;
  assignRange(&text, path, 0, found);
  DtNlString rootPart;
  DtNlString rest;
  assignRange(&rootPart, text, 0, rootLength);
  assignRange(&rest, text, rootLength, text.length);
  return DtNlFile(rootPart, rest);
}

int DtNlFile::Equals(DtNlFile const& other) const {
  if (path.Equals(textOf(other.path)) == 0) {
    return 0;
  }
  return (rootLength == other.rootLength && nameIndex == other.nameIndex) ? 1 : 0;
}

DtNlStatus DtNlFile::MkFile() const {
  const int fd = ::open(path.text, O_WRONLY | O_CREAT | O_TRUNC, 0666);
  if (fd < 0) {
    const int err = errno;
    DTNL_LOG(DTNL_LV_ERR, 313, "open err(%d).", err);
    return failure(codeOf(err, DtNlErrMkFile, false), err);
  }
  if (::close(fd) != 0) {
    const int err = errno;
    DTNL_LOG(DTNL_LV_ERR, 324, "close err(%d).", err);
    return failure(codeOf(err, DtNlErrMkFile, false), err);
  }
  return DtNlStatus();
}

DtNlStatus DtNlFile::MkDir() const {
  if (::mkdir(path.text, 0755) != 0) {
    const int err = errno;
    DTNL_LOG(DTNL_LV_ERR, 341, "mkdir err(%d).", err);
    return failure(codeOf(err, DtNlErrMkDir, false), err);
  }
  return DtNlStatus();
}

DtNlStatus DtNlFile::RmFile() const {
  if (::unlink(path.text) != 0) {
    const int err = errno;
    DTNL_LOG(DTNL_LV_ERR, 357, "unlink err(%d).", err);
    return failure(codeOf(err, DtNlErrRmFile, true), err);
  }
  ::sync();
  return DtNlStatus();
}

DtNlStatus DtNlFile::RmDir() const {
  if (::rmdir(path.text) != 0) {
    const int err = errno;
    DTNL_LOG(DTNL_LV_ERR, 376, "rmdir err(%d).", err);
    const DtNlErrCode code = err == EBUSY ? DtNlErrDirBusy : codeOf(err, DtNlErrRmDir, true);
    return failure(code, err);
  }
  ::sync();
  return DtNlStatus();
}

DtNlStatus DtNlFile::Stat(DtNlFileStatus* status) const {
  DTNL_ASSERT(__LINE__, status != nullptr, "");
  if (::stat(path.text, &status->record) == 0) {
    return DtNlStatus();
  }
  const int err = errno;
  if (err == ENOENT) {
    return failure(DtNlErrNotFound, err);
  }
  if (err == EIO) {
    DTNL_LOG(DTNL_LV_ERR, 400, "stat err(%d).", err);
    return failure(DtNlErrIo, err);
  }
  DTNL_LOG(DTNL_LV_ERR, 403, "stat err(%d).", err);
  return failure(DtNlErrStat, err);
}

DtNlStatus DtNlFile::Stat64(DtNlFileStatus64* status) const {
  DTNL_ASSERT(__LINE__, status != nullptr, "");
  if (::stat64(path.text, &status->record) == 0) {
    return DtNlStatus();
  }
  const int err = errno;
  if (err == ENOENT) {
    return failure(DtNlErrNotFound, err);
  }
  if (err == EIO) {
    DTNL_LOG(DTNL_LV_ERR, 418, "stat64 err(%d).", err);
    return failure(DtNlErrIo, err);
  }
  // This message ends in a comma, unlike the EIO one.
  DTNL_LOG(DTNL_LV_ERR, 421, "stat64 err(%d),", err);
  return failure(DtNlErrStat, err);
}

DtNlStatus DtNlFile::Chmod(unsigned int mode) const {
  // Deliberate: the mode is cut to mode_t (16 bits on the target).
  const int result = ::chmod(path.text, static_cast<mode_t>(mode));
  const int err = errno;
  DtNlStatus status;
  if (result != 0) {
    DTNL_LOG(DTNL_LV_ERR, 433, "chmod err(%d).", err);
    status = failure(codeOf(err, DtNlErrChmod, true), err);
  }
  // Flushed whether or not the change succeeded.
  ::sync();
  return status;
}

DtNlStatus DtNlFile::Rename(DtNlString const& newName) {
  DtNlString newPath(path);
  // Deliberate: with no separator in the path (name index 0) nothing is cut,
  // so the new name is appended to the whole old path.
  if (nameIndex > 0) {
    assignRange(&newPath, path, 0, nameIndex);
  }
  newPath.Append(textOf(newName), nullptr);
  if (::rename(path.text, newPath.text) != 0) {
    const int err = errno;
    DTNL_LOG(DTNL_LV_ERR, 455, "rename err(%d).", err);
    return failure(codeOf(err, DtNlErrRename, true), err);
  }
  path = newPath;
  ::sync();
  return DtNlStatus();
}

DtNlStatus DtNlFile::SetTime(utimbuf const* times) const {
  if (::utime(path.text, times) != 0) {
    const int err = errno;
    DTNL_LOG(DTNL_LV_ERR, 475, "utime err(%d).", err);
    return failure(codeOf(err, DtNlErrSetTime, true), err);
  }
  ::sync();
  return DtNlStatus();
}

DtNlStatus DtNlFile::GetList(DtNlFileIterator* it) const {
  DTNL_ASSERT(__LINE__, it != nullptr, "");
  it->close();
  DtNlFileStatus64 status;
  const DtNlStatus statStatus = Stat64(&status);
  if (statStatus.IsFailure()) {
    return statStatus;
  }
  DIR* dir = ::opendir(path.text);
  if (dir == nullptr) {
    const int err = errno;
    return failure(codeOf(err, DtNlErrGetList, false), err);
  }
  it->dir = dir;
  return DtNlStatus();
}

int DtNlFile::IsExist() const {
  DtNlFileStatus64 status;
  return Stat64(&status).IsFailure() ? 0 : 1;
}

DtNlStatus DtNlFile::IsDir(int* isDir) const {
  DTNL_ASSERT(__LINE__, isDir != nullptr, "");
  DtNlFileStatus64 status;
  const DtNlStatus result = Stat64(&status);
  *isDir = (result.IsSuccess() && status.IsDir() != 0) ? 1 : 0;
  return result;
}

DtNlStatus DtNlFile::IsFile(int* isFile) const {
  DTNL_ASSERT(__LINE__, isFile != nullptr, "");
  DtNlFileStatus64 status;
  const DtNlStatus result = Stat64(&status);
  *isFile = (result.IsSuccess() && status.IsFile() != 0) ? 1 : 0;
  return result;
}

UINT32 DtNlFile::BytesAvailable(UINT32 offset, UINT32 size) const {
  DtNlFileStatus64 status;
  if (Stat64(&status).IsFailure()) {
    return 0;
  }
  const std::uint64_t fileSize = status.GetSize();
  if (offset >= fileSize) {
    return 0;
  }
  const std::uint64_t available = fileSize - offset;
  return available < size ? static_cast<UINT32>(available) : size;
}
