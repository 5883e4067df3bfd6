// library_lines_check.cpp - the Python module's capture of the library's
// lines (python/src/KpzPyLibraryLines), built the way a distribution's
// compiler builds it: -O2 -D_FORTIFY_SOURCE=2, so that fprintf and vfprintf
// become __fprintf_chk and __vfprintf_chk. Linked with the same --wrap
// options as the module, with an embedded interpreter and a logger that
// records what it is given. Standard error is a file the check reads back.
//
// Checks, each printing "ok <name>" or "FAILED <name>: <why>" (exit 1 on any
// failure):
//   - real library lines (a parse of the sample that logs) reach the logger,
//     one record per line, none reaches standard error;
//   - a line of 5,000 bytes written with fprintf, vfprintf, fputs and fwrite
//     reaches the logger whole;
//   - with nobody listening at DEBUG, the lines are dropped, not written;
//   - writes to other streams pass through unchanged.
// Usage: kpz_library_lines_check SAMPLE.kpz
#include <pybind11/embed.h>

#include <cstdarg>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <unistd.h>
#include <vector>

#include "KpzPyLibraryLines.h"
#include "raw/DtRaw.h"

#if !defined(_FORTIFY_SOURCE) || _FORTIFY_SOURCE < 2 || !defined(__OPTIMIZE__)
#error "this check is meant to be built with -O2 -D_FORTIFY_SOURCE=2"
#endif

namespace py = pybind11;

namespace {

int g_failures = 0;  // this program's own tally, main's thread only

void report(bool ok, const std::string& name, const std::string& why) {
  if (ok) {
    std::printf("ok %s\n", name.c_str());
  } else {
    std::printf("FAILED %s: %s\n", name.c_str(), why.c_str());
    ++g_failures;
  }
}

// A logger "kpz.library.check" whose records land in a Python list.
py::object makeLogger(bool debug) {
  py::exec(R"(
import logging
class _Keep(logging.Handler):
    def __init__(self):
        super().__init__(logging.DEBUG)
        self.records = []
    def emit(self, record):
        self.records.append(record.getMessage())
)");
  py::object logging = py::module_::import("logging");
  py::object logger = logging.attr("getLogger")("kpz.library.check");
  for (py::handle h : py::list(logger.attr("handlers"))) {
    logger.attr("removeHandler")(h);
  }
  py::object keep = py::globals()["_Keep"]();
  logger.attr("addHandler")(keep);
  logger.attr("propagate") = false;
  logger.attr("setLevel")(debug ? 10 : 20);
  return logger;
}

std::vector<std::string> records(const py::object& logger) {
  std::vector<std::string> out;
  for (py::handle h : py::list(logger.attr("handlers"))) {
    for (py::handle r : py::list(h.attr("records"))) {
      out.push_back(r.cast<std::string>());
    }
  }
  return out;
}

std::string readAll(const char* path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

int viaVfprintf(FILE* stream, const char* format, ...) {
  va_list args;
  va_start(args, format);
  const int n = std::vfprintf(stream, format, args);
  va_end(args);
  return n;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stdout, "usage: %s SAMPLE.kpz\n", argv[0]);
    return 2;
  }
  // Standard error goes to a file of our own, read back at the end.
  char errPath[] = "/tmp/kpz-library-lines-XXXXXX";
  const int errFd = mkstemp(errPath);
  if (errFd < 0 || dup2(errFd, 2) < 0) {
    std::printf("FAILED setup: cannot redirect standard error\n");
    return 1;
  }
  py::scoped_interpreter python;

  {  // real library lines: a parse of the sample logs its steps
    py::object logger = makeLogger(true);
    {
      KpzPyLibraryLines lines(logger);
      DtRaw raw;
      const int result = raw.Initialize(argv[1]);
      DtRawScreennailInfo info{};
      raw.GetScreennailInfo(&info);
      raw.Finalize();
      report(result == 0, "sample parses", "Initialize gave " + std::to_string(result));
    }
    const std::vector<std::string> got = records(logger);
    bool shaped = !got.empty();
    for (const std::string& r : got) {
      shaped = shaped && r.find(" [jni/") != std::string::npos && r.find('\n') == std::string::npos &&
               r.find('\033') == std::string::npos;
    }
    report(shaped, "library lines reach the logger, one record each",
           std::to_string(got.size()) + " records");
  }

  {  // one long line, written every way the library or the compiler may write it
    const std::string longText(5000, 'x');
    py::object logger = makeLogger(true);
    {
      KpzPyLibraryLines lines(logger);
      std::fprintf(stderr, "fprintf %s end\n", longText.c_str());
      viaVfprintf(stderr, "vfprintf %s end\n", longText.c_str());
      std::fputs(("fputs " + longText + " end\n").c_str(), stderr);
      const std::string w = "fwrite " + longText + " end\n";
      std::fwrite(w.data(), 1, w.size(), stderr);
    }
    const std::vector<std::string> got = records(logger);
    const std::vector<std::string> want = {"fprintf " + longText + " end", "vfprintf " + longText + " end",
                                           "fputs " + longText + " end", "fwrite " + longText + " end"};
    report(got == want, "a line of 5,000 bytes reaches the logger whole, each way",
           std::to_string(got.size()) + " records, first of " +
               std::to_string(got.empty() ? 0 : got[0].size()) + " bytes");
  }

  {  // nobody listens at DEBUG: dropped
    py::object logger = makeLogger(false);
    {
      KpzPyLibraryLines lines(logger);
      std::fprintf(stderr, "dropped\n");
    }
    report(records(logger).empty(), "without a DEBUG listener the lines are dropped",
           "a record was made");
  }

  {  // other streams pass through
    char outPath[] = "/tmp/kpz-library-lines-out-XXXXXX";
    const int outFd = mkstemp(outPath);
    FILE* out = outFd >= 0 ? fdopen(outFd, "w") : nullptr;
    if (out != nullptr) {
      py::object logger = makeLogger(true);
      {
        KpzPyLibraryLines lines(logger);
        std::fprintf(out, "a %d\n", 1);
        viaVfprintf(out, "b %d\n", 2);
        std::fputs("c\n", out);
        std::fwrite("d\n", 1, 2, out);
      }
      std::fclose(out);
      report(readAll(outPath) == "a 1\nb 2\nc\nd\n" && records(logger).empty(),
             "writes to other streams pass through", "got \"" + readAll(outPath) + "\"");
      unlink(outPath);
    } else {
      report(false, "writes to other streams pass through", "cannot make a file");
    }
  }

  std::fflush(stderr);
  const std::string err = readAll(errPath);
  unlink(errPath);
  report(err.empty(), "nothing reached standard error", "it holds \"" + err.substr(0, 200) + "\"");
  return g_failures == 0 ? 0 : 1;
}
