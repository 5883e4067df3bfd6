// MakeSeedCorpus.cpp - writes the fuzzers' seed corpus, every file described
// in code with the test-data builder (tests/support/KpzFileBuilder.h).
//
// A build tool of the fuzz configuration; it calls nothing of the library.
//
//   build/fuzz/fuzz/kpz_fuzz_seeds build/fuzz/seeds
//     -> build/fuzz/seeds/raw/*.kpz   (RawBufferFuzzer, RawFileFuzzer, ScreennailEntryFuzzer)
//     -> build/fuzz/seeds/util/*      (UtilFuzzer)
//
// The raw seeds cover both byte orders and both model branches (another
// model, "DSLR-M372"), every optional directory present and absent, values at
// the limits the queries test, and broken variants: bad headers, pointers at
// 0, 1, 0x7FFFFFFF and 0xFFFFFFFF, directories pointing at themselves,
// truncations at every structure boundary. Exit status 0 when every file was
// written, 1 otherwise. No pointer members.
#include <sys/stat.h>
#include <sys/types.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "support/KpzFileBuilder.h"

namespace {

using kpztest::Bytes;
using kpztest::Ifd;
using kpztest::KpzLayout;
using kpztest::KpzSpec;
namespace tag = kpztest::tag;

struct Seed {
  std::string name;
  Bytes bytes;
};

bool MakeDir(const std::string& path) {
  return mkdir(path.c_str(), 0755) == 0 || errno == EEXIST;
}

const char* OrderName(DtNlByteOrder order) { return order == DtNlBigEndian ? "be" : "le"; }

// Well-formed files and files with one value at a limit, for one byte order
// and model branch.
void AddVariants(DtNlByteOrder order, bool m372, std::vector<Seed>* out) {
  const std::string prefix = std::string(OrderName(order)) + (m372 ? "-m372-" : "-m100-");
  auto add = [&](const std::string& name, KpzSpec description) {
    description.order = order;
    description.m372 = m372;
    out->push_back({prefix + name + ".kpz", kpztest::BuildKpz(description)});
  };

  add("standard", KpzSpec());
  {
    KpzSpec s;
    s.hasIfd1 = false;
    add("no-ifd1", s);
  }
  {
    KpzSpec s;
    s.hasExif = false;
    add("no-exif", s);
  }
  {
    KpzSpec s;
    s.hasIob = false;
    add("no-iob", s);
  }
  {
    KpzSpec s;
    s.hasMakerNote = false;
    add("no-makernote", s);
  }
  {
    KpzSpec s;
    s.scnHeightWidth.reset();
    s.editMakerNote = [](Ifd& mn) { mn.AddLong(tag::kScnWidthHeight, 1080); };
    add("scn-size-4-bytes", s);
  }
  {
    KpzSpec s;
    s.ifd0ScreennailTags = false;
    add("no-screennail-tags", s);
  }
  {
    KpzSpec s;
    s.thumbnailOrientation.reset();
    s.orientation = 6;
    add("orientation-6-no-thumbnail-orientation", s);
  }
  {
    KpzSpec s;
    s.editIfd1 = [](Ifd& ifd1) { ifd1.Replace(tag::kOrientation, kpztest::kTiffLong, 1,
                                             kpztest::U32Bytes(1, ifd1.Order())); };
    add("thumbnail-orientation-4-bytes", s);
  }
  {
    KpzSpec s;
    s.thumbnailDateTime = std::string("2011:06:02 01:02:03");
    add("thumbnail-datetime-differs", s);
  }
  {
    KpzSpec s;
    s.thumbnailDateTime = std::string("2010:05:01 12:34:56");
    add("thumbnail-datetime-equal", s);
  }
  {
    KpzSpec s;
    s.exposureTime = std::make_pair(std::uint32_t{4}, std::uint32_t{1});
    s.fNumber = std::make_pair(std::uint32_t{5}, std::uint32_t{0});
    s.flash = 0x0059;
    s.exifVersion = std::string("02a0");
    s.iobVersion = std::string("01x0");
    s.dateTimeOriginal = std::string("2010:05:01T12:34:56");
    add("odd-values", s);
  }
  {
    KpzSpec s;
    s.make = std::string(40, 'K');
    s.model = std::string(40, 'M');
    add("long-names", s);
  }
  {
    KpzSpec s;
    s.editIfd0 = [](Ifd& ifd0) {
      ifd0.Replace(tag::kModel, kpztest::kTiffAscii, 9, kpztest::AsciiBytes("DSLR-M372", false));
    };
    add("model-without-nul", s);
  }
  {
    KpzSpec s;
    s.thumbnailOffset = 0x10010;
    s.minTotalSize = 0x10100;
    add("thumbnail-beyond-head", s);
  }
  {
    KpzSpec s;
    s.screennailLengthTag = 0xFFFFFFFFu;
    s.thumbnailLengthTag = 0x7FFFFFFFu;
    add("huge-lengths", s);
  }
  {
    KpzSpec s;
    s.screennailLengthTag = 0;
    s.thumbnailLengthTag = 0;
    add("zero-lengths", s);
  }
  {
    KpzSpec s;
    s.makerNoteHeader = Bytes{'N', 'O', 'T', 'K'};
    add("makernote-header-not-kavi", s);
  }
  {
    KpzSpec s;
    s.hasKmMakerNote = false;
    add("no-km-makernote", s);
  }
}

// Structurally broken files, from a standard one of this order and branch.
void AddBroken(DtNlByteOrder order, bool m372, std::vector<Seed>* out) {
  const std::string prefix = std::string(OrderName(order)) + (m372 ? "-m372-" : "-m100-");
  KpzSpec base;
  base.order = order;
  base.m372 = m372;
  KpzLayout where;
  const Bytes good = kpztest::BuildKpz(base, &where);

  // Truncations at every structure boundary (and one byte either side).
  const std::vector<std::pair<std::string, std::uint32_t>> cuts = {
      {"header", 8},          {"ifd0", where.ifd0 + 2}, {"ifd1", where.ifd1},
      {"exif", where.exif},   {"iob", where.iob},       {"makernote", where.makerNote},
      {"km", where.km},       {"thumbnail", where.thumbnail},
      {"screennail", where.screennail}};
  for (const auto& cut : cuts) {
    if (cut.second == 0 || cut.second > good.size()) {
      continue;
    }
    for (int delta = -1; delta <= 1; ++delta) {
      const std::uint32_t at = cut.second + static_cast<std::uint32_t>(delta);
      if (at > good.size()) {
        continue;
      }
      out->push_back({prefix + "cut-" + cut.first + "-" + std::to_string(at) + ".kpz",
                      Bytes(good.begin(), good.begin() + at)});
    }
  }

  // Pointers at the limits.
  const std::vector<std::uint32_t> limits = {0u, 1u, 0x7FFFFFFFu, 0xFFFFFFFFu, 0xFFF0u};
  for (std::uint32_t v : limits) {
    const std::string n = std::to_string(v);
    {
      KpzSpec s = base;
      s.ifd0Offset = v;
      out->push_back({prefix + "ifd0-offset-" + n + ".kpz", kpztest::BuildKpz(s)});
    }
    {
      KpzSpec s = base;
      s.ifd1Pointer = v;
      out->push_back({prefix + "ifd1-pointer-" + n + ".kpz", kpztest::BuildKpz(s)});
    }
    {
      KpzSpec s = base;
      s.exifPointer = v;
      out->push_back({prefix + "exif-pointer-" + n + ".kpz", kpztest::BuildKpz(s)});
    }
    {
      KpzSpec s = base;
      s.iobPointer = v;
      out->push_back({prefix + "iob-pointer-" + n + ".kpz", kpztest::BuildKpz(s)});
    }
    {
      KpzSpec s = base;
      s.makerNotePointer = v;
      out->push_back({prefix + "makernote-pointer-" + n + ".kpz", kpztest::BuildKpz(s)});
    }
    {
      KpzSpec s = base;
      s.kmPointer = v;
      out->push_back({prefix + "km-pointer-" + n + ".kpz", kpztest::BuildKpz(s)});
    }
    {
      // The offset tags only: the pictures themselves stay where they are.
      KpzSpec s = base;
      s.editIfd0 = [v](Ifd& ifd0) { ifd0.ReplaceRaw(tag::kJpegOffset, kpztest::kTiffLong, 1, v); };
      s.editIfd1 = [v](Ifd& ifd1) { ifd1.ReplaceRaw(tag::kJpegOffset, kpztest::kTiffLong, 1, v); };
      s.editKm = [v](Ifd& km) {
        km.ReplaceRaw(tag::kKmScreennailOffset, kpztest::kTiffLong, 1, v);
      };
      out->push_back({prefix + "picture-offsets-" + n + ".kpz", kpztest::BuildKpz(s)});
    }
  }

  // Directories pointing at themselves.
  {
    KpzSpec s = base;
    s.ifd1Pointer = where.ifd0;
    out->push_back({prefix + "ifd1-is-ifd0.kpz", kpztest::BuildKpz(s)});
  }
  {
    KpzSpec s = base;
    s.exifPointer = where.ifd0;
    out->push_back({prefix + "exif-is-ifd0.kpz", kpztest::BuildKpz(s)});
  }
  {
    KpzSpec s = base;
    s.kmPointer = where.makerNoteDir;
    out->push_back({prefix + "km-is-makernote.kpz", kpztest::BuildKpz(s)});
  }

  // Entry counts at the limits.
  for (std::uint16_t count : {std::uint16_t{0}, std::uint16_t{1}, std::uint16_t{0xFFFF}}) {
    KpzSpec s = base;
    s.editIfd0 = [count](Ifd& ifd0) { ifd0.SetCountOverride(count); };
    out->push_back({prefix + "ifd0-count-" + std::to_string(count) + ".kpz",
                    kpztest::BuildKpz(s)});
  }

  // Target tags of every type 0..13 with a count that overflows the size.
  for (std::uint16_t type = 0; type <= 13; ++type) {
    KpzSpec s = base;
    s.editIfd0 = [type](Ifd& ifd0) {
      ifd0.ReplaceRaw(tag::kOrientation, type, 0x40000001u, 0x10u);
      ifd0.ReplaceRaw(tag::kJpegOffset, type, 0xFFFFFFFFu, 0xFFFFFFF0u);
    };
    out->push_back({prefix + "type-" + std::to_string(type) + "-overflow.kpz",
                    kpztest::BuildKpz(s)});
  }

  // Bad headers.
  {
    kpztest::KpzFile f(order);
    f.RawHeader(0x494D, 42, 8);
    out->push_back({prefix + "header-IM.kpz", f.Take()});
  }
  {
    kpztest::KpzFile f(order);
    f.RawHeader(order == DtNlBigEndian ? 0x4D4D : 0x4949, 43, 8);
    out->push_back({prefix + "header-43.kpz", f.Take()});
  }
}

void AddUtilSeeds(std::vector<Seed>* out) {
  auto seed = [out](const std::string& name, std::uint8_t which, const Bytes& params,
                    const std::string& body) {
    Bytes b{which};
    Bytes p = params;
    p.resize(8, 0);
    b.insert(b.end(), p.begin(), p.end());
    b.insert(b.end(), body.begin(), body.end());
    out->push_back({name, b});
  };
  // Text stream: line size, line end, output capacity.
  seed("text-mixed-ends", 0, {16, 0, 64}, "ab\r\ncd\ref\ngh");
  seed("text-long-line", 0, {4, 2, 8}, "abcdefghijklmnop\n");
  seed("text-lone-cr-at-end", 0, {3, 1, 200}, "x\r");
  seed("text-nul", 0, {8, 0, 32}, std::string("a\0b\nc", 5));
  // Base64: flags, capacity (two bytes).
  seed("base64-man", 1, {0, 0, 3}, "TWFu");
  seed("base64-pad", 1, {0, 0, 3}, "TWE=");
  seed("base64-pad-middle", 1, {0, 0, 3}, "T=Fu");
  seed("base64-bad-char", 1, {0, 0, 6}, "TW-u");
  seed("base64-two-groups-short", 1, {0, 0, 5}, "TWFuTWFu");
  seed("base64-newline", 1, {0, 0, 9}, "TWFu\n");
  seed("base64-negative", 1, {0x80, 0, 3}, "TWFu");
  // Bit fields: offset, bits, length kind, value (4), operation.
  seed("bits-read32", 2, {0, 4, 0, 0, 0, 0, 0, 0}, "\xB4\x0F");
  seed("bits-read-cross", 2, {6, 12, 0, 0, 0, 0, 0, 0}, "\x03\xFF\xC0");
  seed("bits-read-33", 2, {0, 33, 0, 0, 0, 0, 0, 0}, "\x01\x02\x03\x04\x05");
  seed("bits-read8-9", 2, {0, 9, 0, 0, 0, 0, 0, 2}, "\x01\x02");
  seed("bits-write", 2, {2, 3, 0, 5, 0, 0, 0, 3}, std::string(1, '\0'));
  seed("bits-readbits", 2, {3, 17, 0, 0, 0, 0, 0, 4}, "\x12\x34\x56\x78");
  seed("bits-write1", 2, {0, 0, 0, 0, 0, 0, 0, 5}, "\xA5\x5A");
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s OUTDIR\n", argv[0]);
    return 2;
  }
  const std::string root = argv[1];
  if (!MakeDir(root) || !MakeDir(root + "/raw") || !MakeDir(root + "/util")) {
    std::perror("kpz_fuzz_seeds: mkdir");
    return 1;
  }
  std::vector<Seed> raw;
  for (DtNlByteOrder order : {DtNlLittleEndian, DtNlBigEndian}) {
    for (bool m372 : {false, true}) {
      AddVariants(order, m372, &raw);
      AddBroken(order, m372, &raw);
    }
  }
  std::vector<Seed> util;
  AddUtilSeeds(&util);

  int failed = 0;
  for (const Seed& s : raw) {
    failed += kpztest::WriteFileBytes(root + "/raw/" + s.name, s.bytes) ? 0 : 1;
  }
  for (const Seed& s : util) {
    failed += kpztest::WriteFileBytes(root + "/util/" + s.name, s.bytes) ? 0 : 1;
  }
  std::printf("kpz_fuzz_seeds: %zu raw and %zu util seeds in %s\n", raw.size(), util.size(),
              root.c_str());
  return failed == 0 ? 0 : 1;
}
