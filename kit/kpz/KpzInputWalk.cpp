// KpzInputWalk.cpp - FILE arguments to files, one at a time (kit/kpz). See
// KpzInputWalk.h.

#include "kpz/KpzInputWalk.h"

#include <algorithm>
#include <iterator>
#include <filesystem>
#include <system_error>

namespace fs = std::filesystem;

KpzInputWalk::KpzInputWalk(std::vector<std::string> args, const KpzInputList::Options& options)
    : m_args(std::move(args)),
      m_extensions(KpzInputList::Normalise(options.extensions)),
      m_recursive(options.recursive) {}

bool KpzInputWalk::enter(const std::string& dir, unsigned int depth, KpzInputList::Entry* entry) {
  if (depth > KpzInputList::kMaxDepth) {
    *entry = {dir, "directories nested too deep (over " +
                       std::to_string(KpzInputList::kMaxDepth) + " levels); not entered"};
    return true;
  }
  std::error_code ec;
  fs::directory_iterator it(dir, ec);
  if (ec) {
    *entry = {dir, "cannot read the directory: " + ec.message()};
    return true;
  }
  Level level;
  level.dir = dir;
  level.depth = depth;
  const fs::directory_iterator end;
  while (it != end) {  // the iterator moves forward or fails on each pass
    const fs::directory_entry& e = *it;
    std::string name = e.path().filename().string();
    if (!name.empty() && name[0] != '.') {
      std::error_code typeEc;
      if (e.is_directory(typeEc) && !e.is_symlink(typeEc)) {
        if (m_recursive) {
          level.names.emplace_back(std::move(name), true);
        }
      } else if (e.is_regular_file(typeEc) && KpzInputList::Matches(name, m_extensions)) {
        level.names.emplace_back(std::move(name), false);
      }
    }
    it.increment(ec);
    if (ec) {
      *entry = {dir, "cannot read the directory: " + ec.message()};
      return true;
    }
  }
  std::sort(level.names.begin(), level.names.end(),
            [](const auto& a, const auto& b) { return a.first < b.first; });
  level.names.shrink_to_fit();
  m_stack.push_back(std::move(level));
  return false;
}

bool KpzInputWalk::Next(KpzInputList::Entry* entry) {
  for (;;) {
    if (m_stack.empty()) {
      if (m_nextArg == m_args.size()) {
        return false;
      }
      std::string arg = std::move(m_args[m_nextArg++]);
      if (KpzInputList::IsPattern(arg)) {
        // A pattern the user typed ('dir/*.xyz'): its matches in its place,
        // as named, whatever their extension; none at all: the pattern as
        // named (told "file not found").
        std::vector<std::string> matches = KpzInputList::Matching(arg);
        if (!matches.empty()) {
          m_args.insert(m_args.begin() + static_cast<std::ptrdiff_t>(m_nextArg),
                        std::make_move_iterator(matches.begin()),
                        std::make_move_iterator(matches.end()));
          continue;
        }
      }
      std::error_code ec;
      if (!fs::is_directory(arg, ec)) {
        *entry = {std::move(arg), ""};
        return true;
      }
      if (enter(arg, 0, entry)) {
        return true;
      }
      continue;
    }
    Level& top = m_stack.back();
    if (top.next == top.names.size()) {
      m_stack.pop_back();
      continue;
    }
    auto& [name, isDirectory] = top.names[top.next++];
    // Joined as the directory iterator joins: one separator added unless the
    // directory's path ends in one.
    std::string path = (fs::path(top.dir) / name).string();
    std::string().swap(name);  // walked: its memory goes back
    if (!isDirectory) {
      *entry = {std::move(path), ""};
      return true;
    }
    const unsigned int depth = top.depth + 1;  // `top` may move when entering
    if (enter(path, depth, entry)) {
      return true;
    }
  }
}
