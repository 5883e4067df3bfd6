// KpzFileBuilderExtras.cpp - tag positions in file images, file times and
// modes on disk, log-call lines in library sources (tests only).
#include "support/KpzFileBuilderExtras.h"

#include <sys/stat.h>
#include <utime.h>

#include <cstddef>
#include <fstream>
#include <vector>

namespace kpztest {

namespace {

std::uint32_t ReadU32At(const Bytes& image, std::size_t at, DtNlByteOrder order) {
  return DtNlDataUtil::U8ArrayToU32(image.data() + at, order);
}

std::uint16_t ReadU16At(const Bytes& image, std::size_t at, DtNlByteOrder order) {
  return DtNlDataUtil::U8ArrayToU16(image.data() + at, order);
}

// Bytes per value of a TIFF type; 0 for unknown types.
std::uint64_t UnitSize(std::uint16_t type) {
  switch (type) {
    case kTiffByte:
    case kTiffAscii:
    case kTiffSByte:
    case kTiffUndefined:
      return 1;
    case kTiffShort:
    case kTiffSShort:
      return 2;
    case kTiffLong:
    case kTiffSLong:
    case kTiffFloat:
      return 4;
    case kTiffRational:
    case kTiffSRational:
    case kTiffDouble:
      return 8;
    default:
      return 0;
  }
}

// Offset of the 12-byte entry with `tagId`, or 0.
std::size_t EntryAt(const Bytes& image, DtNlByteOrder order, std::uint32_t ifdAt,
                    std::uint16_t tagId) {
  if (ifdAt == 0 || image.size() < 2 || ifdAt > image.size() - 2) {
    return 0;
  }
  const std::size_t count = ReadU16At(image, ifdAt, order);
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t entry = static_cast<std::size_t>(ifdAt) + 2 + 12 * i;
    if (entry > image.size() || image.size() - entry < 12) {
      return 0;
    }
    if (ReadU16At(image, entry, order) == tagId) {
      return entry;
    }
  }
  return 0;
}

std::string RepoRoot() {
  const std::string self = __FILE__;
  const std::string tail = "tests/support/KpzFileBuilderExtras.cpp";
  const std::size_t at = self.rfind(tail);
  return at == std::string::npos ? std::string() : self.substr(0, at);
}

}  // namespace

std::uint32_t TagFieldOffset(const Bytes& image, DtNlByteOrder order, std::uint32_t ifdAt,
                             std::uint16_t tagId) {
  const std::size_t entry = EntryAt(image, order, ifdAt, tagId);
  return entry == 0 ? 0u : static_cast<std::uint32_t>(entry + 8);
}

std::uint32_t TagValueOffset(const Bytes& image, DtNlByteOrder order, std::uint32_t ifdAt,
                             std::uint16_t tagId) {
  const std::size_t entry = EntryAt(image, order, ifdAt, tagId);
  if (entry == 0) {
    return 0;
  }
  const std::uint64_t size =
      UnitSize(ReadU16At(image, entry + 2, order)) * ReadU32At(image, entry + 4, order);
  if (size <= 4) {
    return static_cast<std::uint32_t>(entry + 8);
  }
  return ReadU32At(image, entry + 8, order);
}

Bytes Patched(Bytes image, std::uint32_t at, const Bytes& bytes) {
  for (std::size_t i = 0; i < bytes.size() && at < image.size() && i < image.size() - at; ++i) {
    image[at + i] = bytes[i];
  }
  return image;
}

bool SetFileTimes(const std::string& path, std::time_t access, std::time_t modification) {
  utimbuf times{};
  times.actime = access;
  times.modtime = modification;
  return utime(path.c_str(), &times) == 0;
}

FileTimes GetFileTimes(const std::string& path) {
  struct stat st {};
  FileTimes out;
  if (stat(path.c_str(), &st) != 0) {
    out.access = -1;
    out.modification = -1;
    return out;
  }
  out.access = st.st_atime;
  out.modification = st.st_mtime;
  return out;
}

int FileMode(const std::string& path) {
  struct stat st {};
  if (stat(path.c_str(), &st) != 0) {
    return -1;
  }
  return static_cast<int>(st.st_mode & 07777u);
}

bool SetFileMode(const std::string& path, unsigned int mode) {
  return chmod(path.c_str(), static_cast<mode_t>(mode)) == 0;
}

int LogCallLineIn(const std::string& relPath, const std::string& function,
                  const std::string& format, int occurrence) {
  std::ifstream in(RepoRoot() + relPath);
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) {
    lines.push_back(line);
  }
  const std::string head = "::" + function + "(";
  const std::string quoted = "\"" + format + "\"";
  std::size_t i = 0;
  // The definition: at column 0, not a comment.
  while (i < lines.size() && (lines[i].empty() || lines[i][0] == ' ' ||
                              lines[i].rfind("//", 0) == 0 ||
                              lines[i].find(head) == std::string::npos)) {
    ++i;
  }
  int seen = 0;
  // Up to the closing brace of the definition, at column 0.
  for (++i; i < lines.size() && lines[i].rfind("}", 0) != 0; ++i) {
    if (lines[i].find(quoted) == std::string::npos || ++seen != occurrence) {
      continue;
    }
    for (std::size_t back = 0; back <= 3 && back <= i; ++back) {
      if (lines[i - back].find("__LINE__") != std::string::npos) {
        return static_cast<int>(i - back + 1);
      }
    }
    return -1;
  }
  return -1;
}

}  // namespace kpztest
