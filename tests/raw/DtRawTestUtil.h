// DtRawTestUtil.h - helpers shared by the DtRaw facade tests (tests only).
//
// Log lines carry the source line of the logging call. Rather than pinning
// numbers that move whenever a file is edited, the expected line is looked up
// in the library's source: the line holding the quoted format string (or, when
// the format string continues a call begun on an earlier line, the nearest line
// above it that passes __LINE__).
//
//   std::string want = dtrawtest::RawInfo("GetRotationInfo",
//                                         "Raw: not exist rotation information!!");
//
// A Loaded object holds a file image, its temporary copy on disk and a DtRaw
// initialised from one or the other; it owns all three (no raw pointers).
#ifndef KPZ_TESTS_RAW_DTRAWTESTUTIL_H
#define KPZ_TESTS_RAW_DTRAWTESTUTIL_H

#include <cstddef>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "raw/DtRaw.h"
#include "support/KpzFileBuilder.h"
#include "support/LogExpect.h"

namespace dtrawtest {

inline const char* RawCpp() { return "jni/raw/DtRaw.cpp"; }

// The repository root, from this header's own absolute path.
inline std::string RepoRoot() {
  const std::string self = __FILE__;
  const std::string tail = "tests/raw/DtRawTestUtil.h";
  const std::size_t at = self.rfind(tail);
  return at == std::string::npos ? std::string() : self.substr(0, at);
}

// 1-based line number of the `occurrence`-th (1-based) logging call in
// `relPath` whose format string is exactly `format`; -1 when there is none.
inline int SourceLine(const std::string& relPath, const std::string& format,
                      int occurrence = 1) {
  std::ifstream in(RepoRoot() + relPath);
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) {
    lines.push_back(line);
  }
  const std::string quoted = "\"" + format + "\"";
  int seen = 0;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    if (lines[i].find(quoted) == std::string::npos || ++seen != occurrence) {
      continue;
    }
    // Walk back over at most three continuation lines to the __LINE__ token.
    for (std::size_t back = 0; back <= 3 && back <= i; ++back) {
      if (lines[i - back].find("__LINE__") != std::string::npos) {
        return static_cast<int>(i - back + 1);
      }
    }
    return -1;
  }
  return -1;
}

inline std::string RawInfo(const std::string& function, const std::string& format,
                           const std::string& message, int occurrence = 1) {
  return kpztest::InfoLine(RawCpp(), function, SourceLine(RawCpp(), format, occurrence), message);
}
inline std::string RawInfo(const std::string& function, const std::string& message) {
  return RawInfo(function, message, message);
}
inline std::string RawWarn(const std::string& function, const std::string& format,
                           const std::string& message, int occurrence = 1) {
  return kpztest::WarnLine(RawCpp(), function, SourceLine(RawCpp(), format, occurrence), message);
}

// A line logged by another library source through its own __LINE__.
inline std::string OtherInfo(const std::string& relPath, const std::string& function,
                             const std::string& message) {
  return kpztest::InfoLine(relPath, function, SourceLine(relPath, message), message);
}

// The file channel's fixed-line messages.
inline std::string FopenErr(const std::string& path, int err) {
  return kpztest::ErrLine("jni/util/io/DtNlFileIo.cpp", "Open", 77,
                          "fopen(filePath: " + path + ") err(" + std::to_string(err) + ").");
}
inline std::string FcloseErr(int err) {
  return kpztest::ErrLine("jni/util/io/DtNlFileIo.cpp", "Close", 96,
                          "fclose err(" + std::to_string(err) + ").");
}
inline std::string FseekErr(int err) {
  return kpztest::ErrLine("jni/util/io/DtNlFileIo.cpp", "Seek", 267,
                          "fseek err(" + std::to_string(err) + ").");
}

enum class Mode { File, Buffer };

inline const char* ModeName(Mode mode) { return mode == Mode::File ? "File" : "Buffer"; }
inline const char* OrderName(DtNlByteOrder order) {
  return order == DtNlBigEndian ? "BigEndian" : "LittleEndian";
}

// A file image, its copy on disk and a DtRaw over one of them.
class Loaded {
 public:
  explicit Loaded(kpztest::Bytes bytes) : m_bytes(std::move(bytes)) {
    m_path = m_dir.Write("raw.kpz", m_bytes);
  }
  Loaded(const Loaded&) = delete;
  Loaded& operator=(const Loaded&) = delete;

  // Initialises `raw` in `mode`: from the path, or over this object's bytes
  // (which stay alive as long as this object).
  int Load(Mode mode) {
    if (mode == Mode::File) {
      return raw.Initialize(m_path.c_str());
    }
    return raw.InitializeBuf(m_bytes.data(), static_cast<int>(m_bytes.size()));
  }

  const std::string& Path() const { return m_path; }
  const kpztest::Bytes& Bytes() const { return m_bytes; }
  const kpztest::TempDir& Dir() const { return m_dir; }

 private:
  kpztest::TempDir m_dir;
  kpztest::Bytes m_bytes;
  std::string m_path;

 public:
  DtRaw raw;  // declared last, so destroyed before the bytes it may borrow
};

}  // namespace dtrawtest

#endif  // KPZ_TESTS_RAW_DTRAWTESTUTIL_H
