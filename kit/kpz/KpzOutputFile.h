// KpzOutputFile.h - where the kpz tool writes a picture, and how.
//
// Part of the kit (kit/kpz). An output is either standard
// output ("-") or a file that appears whole or not at all: the bytes go to a
// hidden temporary file in the same directory
// (".<name>.kpz-<host>-<pid>.<6 characters>": the machine and the process
// that write it), which is renamed over the final name when complete; on any
// failure the temporary file is removed and an existing file of that name is
// left untouched. A temporary file left by a process killed outright is
// removed by a later run into the same output directory (RemoveStale). A new file gets the usual permissions (0666 less the umask).
//
// What is already there under the output's name:
//   - a symbolic link is followed (as many links as the system allows): its
//     target is what gets written, by the same temporary-then-rename next to
//     the target, so the link stays a link and keeps pointing where it did;
//   - a character device (/dev/null, a terminal) or a FIFO is written
//     through, never replaced (a FIFO waits for its reader, as `cat > fifo`
//     does); nothing is synced there;
//   - a block device or a socket is refused in words ("is a block device:
//     kpz writes no picture onto a device", "is a socket: it cannot be
//     written as a file"), a directory too ("is a directory").
//
// Durability: by default the file is not forced to the device (as cp and
// the other extractors do): readers never see a partial file, but after a
// crash of the system or a power loss an output written in the last moments
// may be missing or empty, or still the file it replaced. With `sync` set, the file's bytes are flushed to
// the device (fsync) before the rename and its directory after it, so the
// output is on the disk when the call returns.
//
//   std::string out = KpzOutputFile::DefaultPath("dir/x.kpz", ".preview.jpg", false);
//   // out == "dir/x.preview.jpg"
//   std::string why;
//   if (!KpzOutputFile::Write(out, jpeg, false, &why)) { ... why ... }
//   KpzOutputFile::Copy(out, source, offset, length, "preview", false, &why);
//
// Holds nothing; every operation is a static function.
#ifndef KPZ_KIT_KPZ_KPZOUTPUTFILE_H
#define KPZ_KIT_KPZ_KPZOUTPUTFILE_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "util/DtNlTypes.h"

class KpzSource;

class KpzOutputFile {
 public:
  enum class Status {
    Done,
    InputFailed,       // the input could not be read (Copy only)
    OutputFailed,      // the output could not be written
    WouldReplaceInput  // the output names the input file itself (Copy only)
  };

  // The output name for `input`: its file name with the last extension
  // replaced by `suffix` (a name without extension gets `suffix` appended),
  // in the input's directory, or in the current directory when
  // `inCurrentDirectory` is set. "dir/x.kpz" -> "dir/x.preview.jpg".
  static std::string DefaultPath(const std::string& input, const std::string& suffix,
                                 bool inCurrentDirectory);

  // Writes all of `bytes` to `path` ("-": standard output). True on success;
  // otherwise false and *error says what failed, in words.
  static bool Write(const std::string& path, const std::vector<UINT8>& bytes, bool sync,
                    std::string* error);

  // Writes the `length` bytes at `offset` of the open `source` to `path`
  // ("-": standard output), copied file to file (KpzCopy). `what` names the
  // bytes in messages ("preview"). Done, or the failure with *error in words:
  // InputFailed ("preview extends past the end of the file", ...),
  // OutputFailed, or WouldReplaceInput when `path` is the source itself
  // (then nothing is written).
  static Status Copy(const std::string& path, const KpzSource& source, std::uint64_t offset,
                     std::uint64_t length, const char* what, bool sync, std::string* error);

  // Writes all of `bytes` (made from the open `source`: a turned picture)
  // to `path` ("-": standard output). Done, OutputFailed, or
  // WouldReplaceInput when `path` is the source itself (nothing written).
  static Status Put(const std::string& path, const KpzSource& source,
                    const std::vector<UINT8>& bytes, bool sync, std::string* error);

  // True when `output` names the same existing file as `input`.
  static bool IsSameFile(const std::string& input, const std::string& output);

  // True when the output `output` (an argument of -o) names a directory
  // that receives the outputs, as cp decides: it ends in '/', or it is an
  // existing directory (or a link to one). "-" never is.
  static bool NamesDirectory(const std::string& output);

  // Makes the output directory `path` and its missing parents. True when it
  // exists or was made; else false and *error holds the words after "kpz: ":
  // "<path>: cannot make the output directory: Not a directory" (the path
  // shown by KpzShownName, without trailing '/').
  static bool MakeDirectory(const std::string& path, std::string* error);

  // Cheap checks that the JPEG whose first `headSize` bytes are `head` and
  // last `tailSize` bytes are `tail`, `size` bytes in all, is whole: at
  // least 4 bytes; it starts with SOI (FF D8) and a marker's FF; it ends
  // with EOI (FF D9) and nothing after it. Needs headSize >= 3 and
  // tailSize >= 2, neither above `size`. The data in between is not read.
  static bool JpegEndsWhole(const UINT8* head, std::size_t headSize, const UINT8* tail,
                            std::size_t tailSize, std::uint64_t size);

  // Minutes a temporary file must have been left unchanged before a later
  // run takes it for stale (IsStaleTemporary).
  static constexpr long long kStaleMinutes = 10;

  // True when the entry `name` of the directory `dir` is a temporary file
  // that a kpz run left when it was killed outright (SIGKILL, a second
  // SIGINT, a crash or a power loss): a regular file (not a link) named
  // ".<output>.kpz-<host>-<pid>.<6 letters or digits>", <host> this
  // machine's name, no process <pid> on this machine, and unchanged for
  // kStaleMinutes. So a user's own file (any other name), the temporary of
  // a run still going (its process is there, whoever's it is), of a run on
  // another machine sharing the folder (another <host>) or of one in
  // another PID namespace of this machine that is still writing (changed
  // lately) is never taken.
  static bool IsStaleTemporary(const std::string& dir, const std::string& name);

  // Removes the stale temporaries (IsStaleTemporary) among the entries of
  // `dir`, one pass over them; returns how many were removed. A failure
  // (the directory unreadable, a file that went away) only means fewer.
  static std::size_t RemoveStale(const std::string& dir);

  // The summary's remarks of --skip-existing, the same in every front end:
  // an output present and whole (IsWhole) is not written again; one present
  // but not whole is written again.
  static constexpr const char* kSkippedNote = "already present, not written again (--skip-existing)";
  static constexpr const char* kRewrittenNote =
      "written again, as the file present was not a whole JPEG (--skip-existing)";

  // True when `path` (links followed) is a regular file whose bytes pass
  // JpegEndsWhole: what counts as an output already present. A missing
  // file, a folder, a dangling link, an empty, cut or foreign file is not.
  static bool IsWhole(const std::string& path);

 private:
  // Fills the output's descriptor; Done or a failure with *error set.
  using Filler = std::function<Status(int fd, std::string* error)>;
  static Status writeFile(const std::string& path, const KpzSource* source, bool sync,
                          const Filler& fill, std::string* error);
  // Writes into the existing device or FIFO `path` (never replaced).
  static Status writeThrough(const std::string& path, const Filler& fill, std::string* error);
  static bool writeAll(int fd, const std::vector<UINT8>& bytes);
};

#endif  // KPZ_KIT_KPZ_KPZOUTPUTFILE_H
