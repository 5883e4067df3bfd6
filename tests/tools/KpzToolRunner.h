// KpzToolRunner.h - runs the built kpz tool as a program for the KpzTool*Test
// files (tests only): its exit status, standard output and standard error.
//
//   kpztool::Result r = kpztool::RunTool({"info", "a.kpz"}, dir, dir);
//   EXPECT_EQ(r.exit, 0);
//
// The tool's path comes from tests/tools/CMakeLists.txt (KPZ_TOOL). Header
// only; holds no pointers.
#ifndef KPZ_TESTS_TOOLS_KPZTOOLRUNNER_H
#define KPZ_TESTS_TOOLS_KPZTOOLRUNNER_H

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "support/KpzFileBuilder.h"

namespace kpztool {

struct Result {
  int exit = -1;
  kpztest::Bytes out;
  std::string err;
};

inline std::string Text(const kpztest::Bytes& bytes) {
  return std::string(bytes.begin(), bytes.end());
}

// Runs the tool with `args` in directory `cwd`; its standard output and error
// go to files in `scratch` (removed afterwards). With `stderrFd` >= 0 the
// tool's standard error is that descriptor instead, and Result::err is empty.
// With `stdoutPath`, standard output is opened there instead (/dev/full, say)
// and Result::out is empty. `program` is the binary run (the tool built, by
// default).
inline Result RunTool(const std::vector<std::string>& args, const std::string& cwd,
                      const std::string& scratch, int stderrFd = -1,
                      const std::string& stdoutPath = "", const std::string& program = KPZ_TOOL) {
  const std::string outPath = stdoutPath.empty() ? scratch + "/.stdout" : stdoutPath;
  const std::string errPath = scratch + "/.stderr";
  std::vector<std::string> argv = {program};
  argv.insert(argv.end(), args.begin(), args.end());
  std::vector<char*> cargv;
  for (std::string& a : argv) {
    cargv.push_back(a.data());
  }
  cargv.push_back(nullptr);
  Result r;
  const pid_t pid = fork();
  if (pid == 0) {
    const int out = ::open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    const int err =
        stderrFd >= 0 ? stderrFd : ::open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (out < 0 || err < 0 || dup2(out, 1) < 0 || dup2(err, 2) < 0 || chdir(cwd.c_str()) != 0) {
      _exit(127);
    }
    execv(cargv[0], cargv.data());
    _exit(127);
  }
  int status = 0;
  if (pid > 0 && waitpid(pid, &status, 0) == pid && WIFEXITED(status)) {
    r.exit = WEXITSTATUS(status);
  }
  if (stdoutPath.empty()) {
    r.out = kpztest::ReadFileBytes(outPath);
    std::filesystem::remove(outPath);
  }
  if (stderrFd < 0) {
    r.err = Text(kpztest::ReadFileBytes(errPath));
  }
  std::filesystem::remove(errPath);
  return r;
}

// The names in `dir`, sorted.
inline std::vector<std::string> Listing(const std::string& dir) {
  std::vector<std::string> names;
  for (const auto& e : std::filesystem::directory_iterator(dir)) {
    names.push_back(e.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

// The lines of `text` (each without its newline).
inline std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::size_t start = 0;
  while (start < text.size()) {  // each pass consumes at least one character
    const std::size_t end = text.find('\n', start);
    if (end == std::string::npos) {
      lines.push_back(text.substr(start));
      break;
    }
    lines.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  return lines;
}

}  // namespace kpztool

#endif  // KPZ_TESTS_TOOLS_KPZTOOLRUNNER_H
