// KpzInputList.h - turns the FILE arguments of a kpz command into the list of
// files to work on: files as named, directories by their entries.
//
// Part of the kit (kit/kpz); uses only the C++ library.
// A named file is always taken, whatever its name; so is every match of a
// pattern the shell left unexpanded ('dir/*.xyz', quoted), expanded here as
// the shell would (IsPattern, Matching). A named directory gives
// its regular files (symbolic links to files included) whose extension is
// one of the chosen ones, compared without regard to case (".kpz" by
// default), in name order; names beginning with "." are skipped. With
// `recursive`, subdirectories are entered too (depth first, in name order;
// symbolic links to directories are not followed, and no more than kMaxDepth
// levels below a named directory are entered).
// A directory that cannot be read becomes an entry with an error, so that
// the batch reports it like any other failure.
//
//   KpzInputList::Options opt;
//   opt.recursive = true;
//   std::vector<KpzInputList::Entry> files = KpzInputList::Expand({"a.kpz", "shots/"}, opt);
//   // a.kpz, shots/1.kpz, shots/2.KPZ, shots/day2/3.kpz ...
//
// Holds nothing; every operation is a static function. KpzInputWalk gives the
// same files one at a time.
#ifndef KPZ_KIT_KPZ_KPZINPUTLIST_H
#define KPZ_KIT_KPZ_KPZINPUTLIST_H

#include <string>
#include <vector>

class KpzInputList {
 public:
  // Levels of subdirectories entered below a named directory.
  static constexpr unsigned int kMaxDepth = 64;

  struct Options {
    bool recursive = false;
    // Wanted extensions, each with or without its dot ("kpz" or ".KPZ"); "*"
    // takes every file. Empty means the default, ".kpz".
    std::vector<std::string> extensions;
  };

  struct Entry {
    std::string path;   // as named, or the directory's path joined with the entry's name
    std::string error;  // non-empty: this entry stands for a directory that could not be read
  };

  // The files named by `args` (see above), in argument order.
  static std::vector<Entry> Expand(const std::vector<std::string>& args, const Options& options);

  // True when `arg` is a pattern to expand: it holds '*', '?' or '[' and
  // names nothing that exists (a file may have such a name).
  static bool IsPattern(const std::string& arg);

  // The paths that the pattern `arg` matches (glob(3): '*', '?', '[...]';
  // a name beginning with '.' only where the pattern says '.'), sorted;
  // empty when none does. Matches are taken as named: a pattern the user
  // typed is what was asked for, so --ext does not filter it, and a
  // directory matched gives its files as a directory named does.
  static std::vector<std::string> Matching(const std::string& arg);

  // True when one of the arguments names a directory.
  static bool NamesDirectory(const std::vector<std::string>& args);

  // The extensions as compared: lower case with a leading dot; "*" kept as
  // is; empty strings dropped; ".kpz" when nothing is left.
  static std::vector<std::string> Normalise(const std::vector<std::string>& extensions);

  // True when the file name `name` ends in one of `normalised` (as made by
  // Normalise), compared without regard to case; "*" matches every name. A
  // name that is only an extension (".kpz") has none and does not match.
  static bool Matches(const std::string& name, const std::vector<std::string>& normalised);

  // The words for a run whose arguments gave no file (every front end says
  // them after "kpz: "): "no files to work on: the directories named hold
  // no file ending in .kpz", the extensions as Normalise makes them, each
  // shown as KpzShownName shows a name.
  static std::string NoFilesWords(const std::vector<std::string>& extensions);
};

#endif  // KPZ_KIT_KPZ_KPZINPUTLIST_H
