// KpzInputCount.cpp - the count of a run's files, ahead of the work
// (kit/kpz). See KpzInputCount.h.

#include "kpz/KpzInputCount.h"

#include <system_error>

#include "kpz/KpzInputWalk.h"

KpzInputCount::KpzInputCount(const std::vector<std::string>& args,
                             const KpzInputList::Options& options) {
  bool counted = !KpzInputList::NamesDirectory(args);
  for (const std::string& arg : args) {
    counted = counted && !KpzInputList::IsPattern(arg);
  }
  if (counted) {
    m_counted.store(args.size());
    m_finished.store(true);
    return;
  }
  const auto count = [this](std::vector<std::string> names, KpzInputList::Options opt) {
    KpzInputWalk walk(std::move(names), opt);
    KpzInputList::Entry entry;
    while (!m_stop.load() && walk.Next(&entry)) {  // each pass counts one file, or ends
      m_counted.fetch_add(1);
    }
    if (!m_stop.load()) {
      m_finished.store(true);
    }
  };
  try {
    m_thread = std::thread(count, args, options);
  } catch (const std::system_error&) {
    // No thread: no count ahead; the bar shows the files found so far.
  }
}

KpzInputCount::~KpzInputCount() {
  m_stop.store(true);
  if (m_thread.joinable()) {
    m_thread.join();
  }
}
