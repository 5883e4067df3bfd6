// DtNlFile.h - a file path (root part + child part) and the file-system
// operations on the path it names.
//
// Layer: util/io (files and streams), above the foundation (DtNlString,
// DtNlStatus, DtNlLogger). The channels and the raw-file facade name their
// files with it.
//
// A path is kept as one string plus two indexes: the root length (how many
// leading characters came from the parent of a two-part constructor; 0 for a
// path built from one string) and the name index (where the last component
// starts). The separator is PATH_SEPA ("/"). One trailing separator is dropped
// when a path is set: "/" becomes the empty path, "a//" becomes "a/".
//
//   DtNlFile f("/sdcard/", "DCIM/x.kpz");   // "/sdcard/DCIM/x.kpz", root 7, name 13
//   DtNlFileStatus64 st;
//   if (f.Stat64(&st).IsSuccess() && st.IsFile()) { ... st.GetSize() ... }
//   f.Rename("y.kpz");                      // "/sdcard/DCIM/y.kpz"
//
// File-system operations return a DtNlStatus: {0, 0} on success, otherwise the
// operation's code (DtNlErrNotFound for ENOENT where the operation separates it,
// DtNlErrIo for EIO) and the errno of the failing call; failures with a message
// are logged at level ERR. A failed operation leaves the path unchanged.
//
// Pointer members: editString is owned (created on demand, deleted by Free()
// and the destructor, never copied).
#ifndef KPZ_UTIL_IO_DTNLFILE_H
#define KPZ_UTIL_IO_DTNLFILE_H

#include <utime.h>

#include "util/DtNlStatus.h"
#include "util/DtNlString.h"

class DtNlFileStatus;
class DtNlFileStatus64;
class DtNlFileIterator;

class DtNlFile {
 public:
  // The path separator, "/".
  static const char* const PATH_SEPA;

  DtNlFile();  // the empty path
  // One-string path (root length 0). A null text is taken as the empty path.
  DtNlFile(DtNlString const& fullPath);  // NOLINT: implicit by design
  DtNlFile(const char* fullPath);        // NOLINT: implicit by design
  // Two-part join: `parent` without one trailing separator becomes the root;
  // `child` gains a leading separator when it is non-empty and lacks one
  // ("" + "a" gives "/a"). Null texts are taken as empty.
  DtNlFile(DtNlString const& parent, DtNlString const& child);
  DtNlFile(DtNlString const& parent, const char* child);
  DtNlFile(const char* parent, const char* child);
  // `parent`'s path, root and name index, then PATH_SEPA (unless `child`
  // starts with it) and `child`; an empty child appends "/". The name index
  // points just after the separator that was placed before the child.
  DtNlFile(DtNlFile const& parent, DtNlString const& child);
  DtNlFile(DtNlFile const& parent, const char* child);
  // Copies path, root length and name index, never the edit string.
  DtNlFile(DtNlFile const& other);
  DtNlFile& operator=(DtNlFile const& other);
  ~DtNlFile();

  // Deletes the edit string (results of earlier Get*(nullptr) calls die).
  void Free();

  // Copies the path into *out when `out` is non-null; returns the path.
  DtNlString const& GetPath(DtNlString* out = nullptr) const;
  // The next three write their result into *out, or, when `out` is null,
  // into a fresh edit string owned by this file (valid until the next such
  // call, Free() or destruction). They return the string written.
  // Root: "/" for root length 0, else the first root-length characters.
  DtNlString* GetRootPath(DtNlString* out = nullptr) const;
  // Child: the whole path for root length 0; the part after the root (it
  // starts with the separator) when there is one; else "/".
  DtNlString* GetChildPath(DtNlString* out = nullptr) const;
  // Name: the whole path for name index 0; the last component when the name
  // index differs from the root length; else "".
  DtNlString* GetName(DtNlString* out = nullptr) const;
  // The file `level` separators up. A path no longer than its root is returned
  // as a copy (and copied into *out when `out` is non-null); otherwise *out is
  // not written. Climbing stops at the root, which is kept; "/x" climbs to "/"
  // (the empty path); a path without separator, or level <= 0, gives a
  // one-string copy of the whole path (root length 0).
  DtNlFile GetParent(int level, DtNlFile* out = nullptr) const;
  // 1 when path text, root length and name index are all equal, else 0.
  int Equals(DtNlFile const& other) const;

  // Creates the file, or truncates an existing one to 0 bytes (mode 0666
  // before umask). Codes: DtNlErrIo on EIO, else DtNlErrMkFile.
  DtNlStatus MkFile() const;
  // mkdir with mode 0755. Codes: DtNlErrIo on EIO, else DtNlErrMkDir.
  DtNlStatus MkDir() const;
  // unlink, then sync() on success. Codes: DtNlErrNotFound, DtNlErrIo, DtNlErrRmFile.
  DtNlStatus RmFile() const;
  // rmdir, then sync() on success. Codes: DtNlErrNotFound, DtNlErrDirBusy
  // (EBUSY), DtNlErrIo, DtNlErrRmDir (e.g. ENOTEMPTY).
  DtNlStatus RmDir() const;
  // stat into `status` (must not be null). ENOENT gives DtNlErrNotFound and
  // logs nothing; DtNlErrIo on EIO, else DtNlErrStat, both logged.
  DtNlStatus Stat(DtNlFileStatus* status) const;
  // stat64 into `status` (must not be null); codes and logging as Stat.
  DtNlStatus Stat64(DtNlFileStatus64* status) const;
  // How many of `size` bytes starting at `offset` the file holds: the smaller
  // of `size` and the file's length after `offset`; 0 when it holds nothing
  // there or cannot be measured (Stat64 fails, logged as there). Bounds a
  // read whose size comes from the file itself before allocating for it.
  UINT32 BytesAvailable(UINT32 offset, UINT32 size) const;
  // chmod with `mode` cut to mode_t; sync() afterwards whatever the outcome.
  // Codes: DtNlErrNotFound, DtNlErrIo, DtNlErrChmod.
  DtNlStatus Chmod(unsigned int mode) const;
  // Renames within the file's directory: the new path is the path up to the
  // name index followed by `newName` (with name index 0 that is the old path
  // followed by `newName`). On success the path text changes (root length and
  // name index stay) and sync() runs. Codes: DtNlErrNotFound, DtNlErrIo,
  // DtNlErrRename.
  DtNlStatus Rename(DtNlString const& newName);
  // utime(path, times) (null `times` sets both times to now), then sync() on
  // success. Codes: DtNlErrNotFound, DtNlErrIo, DtNlErrSetTime.
  DtNlStatus SetTime(utimbuf const* times) const;
  // Opens the directory listing into `it` (must not be null); any stream `it`
  // held is closed first and it stays closed on failure. Stat64's status when
  // that fails; opendir failure (not logged): DtNlErrIo on EIO, else
  // DtNlErrGetList.
  DtNlStatus GetList(DtNlFileIterator* it) const;

  // 1 when Stat64 succeeds, else 0 (an unreadable path counts as absent).
  int IsExist() const;
  // Stat64's status; *isDir / *isFile (must not be null) is 1 only when it
  // succeeded and the path is a directory / a regular file, else 0.
  DtNlStatus IsDir(int* isDir) const;
  DtNlStatus IsFile(int* isFile) const;

 private:
  // Sets the path (dropping one trailing separator) and the name index; keeps
  // the root length.
  void setFullPath(DtNlString const& fullPath);
  // The second half of setFullPath, on the text already in `path`: drops one
  // trailing separator and sets nameIndex.
  void finishFullPath();
  void init(DtNlString const& parent, DtNlString const& child);
  void addChild(DtNlFile const& parent, DtNlString const& child);
  void copy(DtNlFile const& other);
  // Replaces the edit string with a new empty one and returns it.
  DtNlString* createEditString() const;

  DtNlString path;                  // the full path; text never null
  mutable DtNlString* editString;   // owned; null until a Get* call needs it
  unsigned int rootLength;          // leading characters that form the root
  unsigned int nameIndex;           // first character of the last component
};

#endif  // KPZ_UTIL_IO_DTNLFILE_H
