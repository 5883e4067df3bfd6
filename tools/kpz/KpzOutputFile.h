// KpzOutputFile.h - where the kpz tool writes a picture, and how.
//
// Part of the kpz command-line tool (tools/kpz). An output is either standard
// output ("-") or a file that appears whole or not at all: the bytes go to a
// hidden temporary file in the same directory (".<name>.XXXXXX"), which is
// flushed to the device and then renamed over the final name; on any failure
// the temporary file is removed and an existing file of that name is left
// untouched. A new file gets the usual permissions (0666 less the umask).
//
//   std::string out = KpzOutputFile::DefaultPath("dir/x.kpz", ".preview.jpg", false);
//   // out == "dir/x.preview.jpg"
//   std::string why;
//   if (!KpzOutputFile::Write(out, jpeg, &why)) { ... why ... }
//
// Holds nothing; every operation is a static function.
#ifndef KPZ_TOOLS_KPZ_KPZOUTPUTFILE_H
#define KPZ_TOOLS_KPZ_KPZOUTPUTFILE_H

#include <string>
#include <vector>

#include "util/DtNlTypes.h"

class KpzOutputFile {
 public:
  // The output name for `input`: its file name with the last extension
  // replaced by `suffix` (a name without extension gets `suffix` appended),
  // in the input's directory, or in the current directory when
  // `inCurrentDirectory` is set. "dir/x.kpz" -> "dir/x.preview.jpg".
  static std::string DefaultPath(const std::string& input, const std::string& suffix,
                                 bool inCurrentDirectory);

  // Writes all of `bytes` to `path` ("-": standard output). True on success;
  // otherwise false and *error says what failed, in words.
  static bool Write(const std::string& path, const std::vector<UINT8>& bytes, std::string* error);

  // True when `output` names the same existing file as `input`.
  static bool IsSameFile(const std::string& input, const std::string& output);

 private:
  static bool writeStdout(const std::vector<UINT8>& bytes, std::string* error);
  static bool writeAll(int fd, const std::vector<UINT8>& bytes);
};

#endif  // KPZ_TOOLS_KPZ_KPZOUTPUTFILE_H
