// BenchCorpus.cpp - writes and reads the benchmark corpus. See BenchCorpus.h.
#include "BenchCorpus.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

#include "raw/DtRaw.h"
#include "support/KpzFileBuilder.h"
#include "util/DtNlDataUtil.h"

namespace {

const std::uint32_t kKiB = 1024u;
const std::uint64_t kMaxFileSize = 0xFFFFFFFFull;

// Writes `bytes` to `path` (created or replaced); false with *error set.
bool writeWhole(const std::string& path, const kpztest::Bytes& bytes, std::string* error) {
  std::FILE* out = std::fopen(path.c_str(), "wb");
  if (out == nullptr) {
    *error = path + ": cannot create (" + std::strerror(errno) + ")";
    return false;
  }
  const std::size_t written = std::fwrite(bytes.data(), 1, bytes.size(), out);
  const int closed = std::fclose(out);
  if (written != bytes.size() || closed != 0) {
    *error = path + ": write failed";
    return false;
  }
  return true;
}

// The marker segments a camera's baseline JPEG starts with, up to the start
// of the entropy-coded data: SOI; APP0 "JFIF"; DQT (one table of ones); SOF0
// with the pixel size and three components; SOS.
kpztest::Bytes jpegHeader(std::uint16_t width, std::uint16_t height) {
  kpztest::Bytes h = {0xFF, 0xD8, 0xFF, 0xE0, 0x00, 0x10, 'J',  'F',  'I',  'F',  0x00, 0x01, 0x01,
                      0x00, 0x00, 0x01, 0x00, 0x01, 0x00, 0x00, 0xFF, 0xDB, 0x00, 0x43, 0x00};
  h.insert(h.end(), 64, 0x01);
  const kpztest::Bytes sof = {0xFF,
                              0xC0,
                              0x00,
                              0x11,
                              0x08,
                              static_cast<std::uint8_t>(height >> 8),
                              static_cast<std::uint8_t>(height & 0xFFu),
                              static_cast<std::uint8_t>(width >> 8),
                              static_cast<std::uint8_t>(width & 0xFFu),
                              0x03,
                              0x01,
                              0x22,
                              0x00,
                              0x02,
                              0x11,
                              0x01,
                              0x03,
                              0x11,
                              0x01,
                              0xFF,
                              0xDA,
                              0x00,
                              0x0C,
                              0x03,
                              0x01,
                              0x00,
                              0x02,
                              0x11,
                              0x03,
                              0x11,
                              0x00,
                              0x3F,
                              0x00};
  h.insert(h.end(), sof.begin(), sof.end());
  return h;
}

// A JPEG-shaped preview of exactly `size` bytes: the header above, pattern
// bytes as entropy-coded data (no 0xFF among them, so no stray marker), EOI
// (FF D9). A reader that walks the markers stops at SOS, as on a camera's
// file, and finds the pixel size in SOF0. Too short for the header: the
// builder's FF D8 ... FF D9 string (at least 6 bytes) with FF DB after SOI.
kpztest::Bytes jpegLike(std::uint32_t size, std::uint8_t seed, std::uint16_t width,
                        std::uint16_t height) {
  const kpztest::Bytes header = jpegHeader(width, height);
  if (size < header.size() + 2u) {
    kpztest::Bytes bytes = kpztest::FakeJpeg(size < 6u ? 6u : size, seed);
    bytes[2] = 0xFF;
    bytes[3] = 0xDB;
    return bytes;
  }
  kpztest::Bytes bytes = kpztest::PatternBytes(size, seed);
  for (std::uint8_t& b : bytes) {
    if (b == 0xFF) {
      b = 0xFE;
    }
  }
  std::copy(header.begin(), header.end(), bytes.begin());
  bytes[size - 2u] = 0xFF;
  bytes[size - 1u] = 0xD9;
  return bytes;
}

// Parses one unsigned decimal field; false when it is not one.
bool parseU64(const std::string& text, std::uint64_t* value) {
  if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos) {
    return false;
  }
  errno = 0;
  const unsigned long long parsed = std::strtoull(text.c_str(), nullptr, 10);
  if (errno != 0) {
    return false;
  }
  *value = parsed;
  return true;
}

}  // namespace

const char* const BenchCorpus::MANIFEST_NAME = "manifest.tsv";

std::uint32_t BenchCorpus::PreviewOffsetFor(std::uint32_t index) {
  // 70 KiB .. 160 KiB in whole KiB, spread by a step prime to the range.
  return 70u * kKiB + ((index * 37u) % 91u) * kKiB;
}

std::uint32_t BenchCorpus::PreviewSizeFor(std::uint32_t index, std::uint32_t previewBytes) {
  // 93 % .. 107 % of the base length, even, never below the 6 bytes of the
  // smallest JPEG-shaped string written here.
  const std::uint64_t percent = 93u + (index * 7u) % 15u;
  std::uint64_t size = static_cast<std::uint64_t>(previewBytes) * percent / 100u;
  size &= ~static_cast<std::uint64_t>(1u);
  if (size < 6u) {
    size = 6u;
  }
  if (size > kMaxFileSize) {
    size = kMaxFileSize - 1u;
  }
  return static_cast<std::uint32_t>(size);
}

const char* const BenchCorpus::ORIENTATIONS_NAME = "orientations.tsv";

unsigned char BenchCorpus::OrientationFor(std::uint32_t index) {
  if (index % 8u == 1u) {
    return 1;
  }
  if (index % 8u == 5u) {
    return 3;
  }
  if (index % 32u == 3u) {
    return 2;
  }
  return 0;
}

bool BenchCorpus::Generate(const BenchCorpusPlan& plan, const std::string& dir,
                           std::vector<BenchFile>* files, std::string* error) {
  files->clear();
  for (std::uint32_t i = 0; i < plan.files; ++i) {
    BenchFile file;
    file.previewOffset = PreviewOffsetFor(i);
    file.previewSize = plan.realPreview.empty()
                           ? PreviewSizeFor(i, plan.previewBytes)
                           : static_cast<std::uint32_t>(plan.realPreview.size());
    file.bigEndian = (i % 2u) == 1u;
    file.m372 = (i % 4u) == 3u;
    file.fileSize =
        static_cast<std::uint64_t>(file.previewOffset) + file.previewSize + plan.fillerBytes;
    if (file.fileSize > kMaxFileSize) {
      *error = "a preview of this length with this much filler does not fit a 32-bit file";
      return false;
    }

    kpztest::KpzSpec kpz;
    kpz.order = file.bigEndian ? DtNlBigEndian : DtNlLittleEndian;
    kpz.m372 = file.m372;
    // The pixel size the file's maker notes give for the preview.
    kpz.screennail = plan.realPreview.empty()
                         ? jpegLike(file.previewSize, static_cast<std::uint8_t>(i),
                                    file.m372 ? 640u : 1616u, file.m372 ? 480u : 1080u)
                         : plan.realPreview;
    if (plan.orientationMix) {
      kpz.orientation = DtRaw::convRotInfoUsetoStd(OrientationFor(i));
    }
    kpz.screennailOffset = file.previewOffset;
    kpz.thumbnail = jpegLike(plan.thumbnailBytes, 0x20, 160u, 120u);
    kpz.minTotalSize = plan.sparseFiller ? 0u : static_cast<std::uint32_t>(file.fileSize);
    if (plan.extraIfd0Entries != 0) {
      const std::uint32_t extra = plan.extraIfd0Entries;
      kpz.editIfd0 = [extra](kpztest::Ifd& ifd) {
        const std::size_t own = ifd.Entries().size();
        for (std::uint32_t k = 0; k < extra; ++k) {
          // 0xC000 and up: private tags no parser of the library keeps.
          ifd.AddRaw(static_cast<std::uint16_t>(0xC000u + (k % 0x3000u)), 3, 1, k);
        }
        // The extra entries first: each is read before the own ones are found.
        std::rotate(ifd.Entries().begin(), ifd.Entries().begin() + static_cast<std::ptrdiff_t>(own),
                    ifd.Entries().end());
      };
    }
    if (plan.extraIfd0Entries > 0xFFFFu - 7u) {  // IFD0 has 7 entries of its own
      *error = "IFD0 holds at most 65,535 entries";
      return false;
    }
    kpztest::KpzLayout where;
    kpztest::Bytes bytes = kpztest::BuildKpz(kpz, &where);
    // The head structures and the thumbnail must end before the preview.
    std::uint64_t thumbEnd = static_cast<std::uint64_t>(where.thumbnail) + kpz.thumbnail.size();
    if (thumbEnd > file.previewOffset && plan.extraIfd0Entries != 0) {
      // A long IFD0 pushes everything after it further: the preview follows
      // on the next 4 KiB boundary instead.
      file.previewOffset = static_cast<std::uint32_t>((thumbEnd + 0xFFFu) & ~std::uint64_t{0xFFFu});
      file.fileSize =
          static_cast<std::uint64_t>(file.previewOffset) + file.previewSize + plan.fillerBytes;
      kpz.screennailOffset = file.previewOffset;
      kpz.minTotalSize = plan.sparseFiller ? 0u : static_cast<std::uint32_t>(file.fileSize);
      bytes = kpztest::BuildKpz(kpz, &where);
      thumbEnd = static_cast<std::uint64_t>(where.thumbnail) + kpz.thumbnail.size();
    }
    if (where.screennail != file.previewOffset || thumbEnd > file.previewOffset) {
      *error = "the thumbnail is too long: it would overlap the preview";
      return false;
    }

    char name[32];
    std::snprintf(name, sizeof name, "kpz%05" PRIu32 ".kpz", i);
    file.path = dir + "/" + name;
    if (!writeWhole(file.path, bytes, error)) {
      return false;
    }
    if (plan.sparseFiller && truncate(file.path.c_str(), static_cast<off_t>(file.fileSize)) != 0) {
      *error = file.path + ": cannot extend (" + std::strerror(errno) + ")";
      return false;
    }
    files->push_back(file);
  }
  if (plan.orientationMix) {
    std::ofstream out(dir + "/" + ORIENTATIONS_NAME, std::ios::trunc);
    for (std::uint32_t i = 0; i < plan.files; ++i) {
      out << static_cast<int>(OrientationFor(i)) << '\t' << (*files)[i].path << '\n';
    }
    out.close();
    if (!out) {
      *error = dir + "/" + ORIENTATIONS_NAME + ": write failed";
      return false;
    }
  }
  return Save(dir + "/" + MANIFEST_NAME, *files, error);
}

bool BenchCorpus::Save(const std::string& manifestPath, const std::vector<BenchFile>& files,
                       std::string* error) {
  std::ofstream out(manifestPath, std::ios::trunc);
  // offset size fileSize order model path (the path last: it may hold spaces)
  for (const BenchFile& file : files) {
    out << file.previewOffset << '\t' << file.previewSize << '\t' << file.fileSize << '\t'
        << (file.bigEndian ? "MM" : "II") << '\t' << (file.m372 ? "M372" : "M100") << '\t'
        << file.path << '\n';
  }
  out.close();
  if (!out) {
    *error = manifestPath + ": write failed";
    return false;
  }
  return true;
}

bool BenchCorpus::Load(const std::string& manifestPath, std::vector<BenchFile>* files,
                       std::string* error) {
  files->clear();
  std::ifstream in(manifestPath);
  if (!in) {
    *error = manifestPath + ": cannot open";
    return false;
  }
  std::string line;
  std::size_t lineNo = 0;
  while (std::getline(in, line)) {
    ++lineNo;
    std::istringstream fields(line);
    std::string offset;
    std::string size;
    std::string fileSize;
    std::string order;
    std::string model;
    std::string path;
    std::getline(fields, offset, '\t');
    std::getline(fields, size, '\t');
    std::getline(fields, fileSize, '\t');
    std::getline(fields, order, '\t');
    std::getline(fields, model, '\t');
    std::getline(fields, path);
    std::uint64_t off = 0;
    std::uint64_t len = 0;
    std::uint64_t total = 0;
    if (!parseU64(offset, &off) || !parseU64(size, &len) || !parseU64(fileSize, &total) ||
        off > kMaxFileSize || len > kMaxFileSize || (order != "II" && order != "MM") ||
        path.empty()) {
      *error = manifestPath + ":" + std::to_string(lineNo) + ": malformed line";
      return false;
    }
    BenchFile file;
    file.previewOffset = static_cast<std::uint32_t>(off);
    file.previewSize = static_cast<std::uint32_t>(len);
    file.fileSize = total;
    file.bigEndian = order == "MM";
    file.m372 = model == "M372";
    file.path = path;
    files->push_back(file);
  }
  if (files->empty()) {
    *error = manifestPath + ": no files listed";
    return false;
  }
  return true;
}
