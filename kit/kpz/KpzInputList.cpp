// KpzInputList.cpp - FILE arguments to files: directories listed, filtered
// and sorted (kit/kpz). See KpzInputList.h for the rules.

#include "kpz/KpzInputList.h"

#include <glob.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <system_error>

#include "kpz/KpzInputWalk.h"
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

bool KpzInputList::IsPattern(const std::string& arg) {
  if (arg.find_first_of("*?[") == std::string::npos) {
    return false;
  }
  std::error_code ec;
  return !fs::exists(fs::symlink_status(arg, ec));
}

std::vector<std::string> KpzInputList::Matching(const std::string& arg) {
  std::vector<std::string> out;
  glob_t found{};
  if (glob(arg.c_str(), 0, nullptr, &found) == 0) {
    out.reserve(found.gl_pathc);
    for (std::size_t i = 0; i < found.gl_pathc; ++i) {
      out.emplace_back(found.gl_pathv[i]);
    }
  }
  globfree(&found);
  return out;
}

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

std::vector<KpzInputList::Entry> KpzInputList::Expand(const std::vector<std::string>& args,
                                                      const Options& options) {
  std::vector<Entry> out;
  KpzInputWalk walk(args, options);
  Entry e;
  while (walk.Next(&e)) {
    out.push_back(std::move(e));
  }
  return out;
}
