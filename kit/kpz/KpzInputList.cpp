// KpzInputList.cpp - FILE arguments to files: directories listed, filtered
// and sorted (kit/kpz). See KpzInputList.h for the rules.

#include "kpz/KpzInputList.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <system_error>

#include "kpz/KpzShownName.h"

namespace fs = std::filesystem;

namespace {

std::string lower(std::string text) {
  for (char& c : text) {
    c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  return text;
}

}  // namespace

std::vector<std::string> KpzInputList::Normalise(const std::vector<std::string>& extensions) {
  std::vector<std::string> out;
  for (const std::string& e : extensions) {
    if (e.empty()) {
      continue;
    }
    if (e == "*") {
      out.push_back(e);
      continue;
    }
    out.push_back(lower(e[0] == '.' ? e : "." + e));
  }
  if (out.empty()) {
    out.emplace_back(".kpz");
  }
  return out;
}

std::string KpzInputList::NoFilesWords(const std::vector<std::string>& extensions) {
  std::string words = "no files to work on: the directories named hold no file ending in";
  for (const std::string& e : Normalise(extensions)) {
    words += " " + KpzShownName::Of(e);
  }
  return words;
}

bool KpzInputList::Matches(const std::string& name, const std::vector<std::string>& normalised) {
  const std::string lowered = lower(name);
  for (const std::string& e : normalised) {
    if (e == "*") {
      return true;
    }
    if (lowered.size() > e.size() &&
        lowered.compare(lowered.size() - e.size(), e.size(), e) == 0) {
      return true;
    }
  }
  return false;
}

bool KpzInputList::NamesDirectory(const std::vector<std::string>& args) {
  for (const std::string& a : args) {
    std::error_code ec;
    if (fs::is_directory(a, ec)) {
      return true;
    }
  }
  return false;
}

void KpzInputList::addDirectory(const std::string& dir, const std::vector<std::string>& extensions,
                                bool recursive, unsigned int depth, std::vector<Entry>* out) {
  if (depth > kMaxDepth) {
    out->push_back({dir, "directories nested too deep (over " + std::to_string(kMaxDepth) +
                             " levels); not entered"});
    return;
  }
  std::error_code ec;
  fs::directory_iterator it(dir, ec);
  if (ec) {
    out->push_back({dir, "cannot read the directory: " + ec.message()});
    return;
  }
  std::vector<fs::directory_entry> entries;
  const fs::directory_iterator end;
  while (it != end) {  // the iterator moves forward or fails on each pass
    entries.push_back(*it);
    it.increment(ec);
    if (ec) {
      out->push_back({dir, "cannot read the directory: " + ec.message()});
      return;
    }
  }
  std::sort(entries.begin(), entries.end(),
            [](const fs::directory_entry& a, const fs::directory_entry& b) {
              return a.path().filename().string() < b.path().filename().string();
            });
  for (const fs::directory_entry& e : entries) {
    const std::string name = e.path().filename().string();
    if (name.empty() || name[0] == '.') {
      continue;
    }
    std::error_code typeEc;
    if (e.is_directory(typeEc) && !e.is_symlink(typeEc)) {
      if (recursive) {
        addDirectory(e.path().string(), extensions, recursive, depth + 1, out);
      }
      continue;
    }
    if (e.is_regular_file(typeEc) && Matches(name, extensions)) {
      out->push_back({e.path().string(), ""});
    }
  }
}

std::vector<KpzInputList::Entry> KpzInputList::Expand(const std::vector<std::string>& args,
                                                      const Options& options) {
  const std::vector<std::string> extensions = Normalise(options.extensions);
  std::vector<Entry> out;
  for (const std::string& a : args) {
    std::error_code ec;
    if (fs::is_directory(a, ec)) {
      addDirectory(a, extensions, options.recursive, 0, &out);
    } else {
      out.push_back({a, ""});
    }
  }
  return out;
}
