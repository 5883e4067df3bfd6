// KpzInputWalk.h - the files named by the FILE arguments of a kpz command,
// one at a time, as KpzInputList gives them, without listing them all first.
//
// Part of the kit (kit/kpz); uses only the C++ library.
// The same files in the same order as KpzInputList::Expand (which is this
// walk run to its end): named files as named; a named directory's matching
// regular files in name order, subdirectories entered depth first with
// `recursive`. What is held at once is one sorted listing per directory
// level being walked (a name and one flag per entry kept), so a run over
// ten million files in folders of a thousand holds a few thousand names.
// A single directory's names are sorted, so a directory of a million
// entries is held as a million names while it is walked.
//
//   KpzInputWalk walk({"shots/"}, options);
//   KpzInputList::Entry e;
//   while (walk.Next(&e)) { ... e.path, or e.error for a directory that cannot be read ... }
//
// Not shared between threads.
#ifndef KPZ_KIT_KPZ_KPZINPUTWALK_H
#define KPZ_KIT_KPZ_KPZINPUTWALK_H

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "kpz/KpzInputList.h"

class KpzInputWalk {
 public:
  KpzInputWalk(std::vector<std::string> args, const KpzInputList::Options& options);

  // The next file (or directory that cannot be read) into `entry`; false at
  // the end.
  bool Next(KpzInputList::Entry* entry);

 private:
  struct Level {
    std::string dir;
    std::vector<std::pair<std::string, bool>> names;  // (name, is a directory to enter)
    std::size_t next = 0;
    unsigned int depth = 0;
  };

  // Lists `dir` onto the stack, or puts the entry telling why it cannot be.
  // True when `entry` was set.
  bool enter(const std::string& dir, unsigned int depth, KpzInputList::Entry* entry);

  std::vector<std::string> m_args;
  std::size_t m_nextArg = 0;
  std::vector<std::string> m_extensions;  // normalised
  bool m_recursive = false;
  std::vector<Level> m_stack;
};

#endif  // KPZ_KIT_KPZ_KPZINPUTWALK_H
