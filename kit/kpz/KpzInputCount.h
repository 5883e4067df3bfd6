// KpzInputCount.h - counts the files that the FILE arguments of a kpz
// command name, ahead of the work, so that a progress bar can tell the
// total before the work walk has found every file.
//
// Part of the kit (kit/kpz); uses only the C++ library. Arguments that name
// no directory are counted at once (one file each). Otherwise a second walk
// of the same arguments (KpzInputWalk: the same files, one directory level
// at a time) runs on a thread of its own and keeps only its count, so its
// memory is that of the walk, whatever the number of files. The destructor
// stops it (between two files) and waits for it.
//
//   KpzInputCount count(args, options);
//   bar.Update(done, count.Counted(), !count.Finished());
//
// Owns its thread; not copied.
#ifndef KPZ_KIT_KPZ_KPZINPUTCOUNT_H
#define KPZ_KIT_KPZ_KPZINPUTCOUNT_H

#include <atomic>
#include <cstddef>
#include <string>
#include <thread>
#include <vector>

#include "kpz/KpzInputList.h"

class KpzInputCount {
 public:
  KpzInputCount(const std::vector<std::string>& args, const KpzInputList::Options& options);
  ~KpzInputCount();
  KpzInputCount(const KpzInputCount&) = delete;
  KpzInputCount& operator=(const KpzInputCount&) = delete;

  // The files counted so far (any thread).
  std::size_t Counted() const { return m_counted.load(); }
  // True once Counted() is all of them (any thread).
  bool Finished() const { return m_finished.load(); }

 private:
  std::atomic<std::size_t> m_counted{0};
  std::atomic<bool> m_finished{false};
  std::atomic<bool> m_stop{false};
  std::thread m_thread;
};

#endif  // KPZ_KIT_KPZ_KPZINPUTCOUNT_H
