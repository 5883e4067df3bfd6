// make_corpus.cpp - writes the hostile files of the differential test
// (tests/differential/front_ends_check.py), composed with the test-data
// builder: a good file of each byte order and branch, the good file cut at
// every place a reader meets (inside the TIFF header, IFD0's entry count, its
// entries and next-directory pointer, IFD1, the Exif directory, the maker
// note, the thumbnail, the preview), empty, random and text files, TIFFs that
// are no KPZ files, files without a thumbnail or a preview or with empty
// ones, pictures recorded past the end of the file. The check itself adds
// what the builder cannot write (pipes, sockets, directories, links).
//
//   kpz_diff_corpus <dir>     # writes <dir>/<name>.kpz and <dir>/corpus.txt
//
// corpus.txt lists one file name a line, in the order written. Nothing it
// writes is committed.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>
#include <vector>

#include "support/KpzFileBuilder.h"
#include "support/KpzFileBuilderExtras.h"

namespace {

using kpztest::Bytes;
using kpztest::KpzLayout;
using kpztest::KpzSpec;

class Corpus {
 public:
  explicit Corpus(std::filesystem::path dir) : m_dir(std::move(dir)) {}

  void Add(const std::string& name, const Bytes& bytes) {
    const std::string file = name + ".kpz";
    if (!kpztest::WriteFileBytes((m_dir / file).string(), bytes)) {
      std::fprintf(stderr, "kpz_diff_corpus: cannot write %s\n", (m_dir / file).c_str());
      m_ok = false;
      return;
    }
    m_list += file + "\n";
  }

  void Add(const std::string& name, const KpzSpec& recipe) { Add(name, kpztest::BuildKpz(recipe)); }

  // Makes <name>.kpz `size` bytes long without writing them (a sparse file).
  void Grow(const std::string& name, std::uint64_t size) {
    if (!kpztest::ExtendFileSparse((m_dir / (name + ".kpz")).string(), size)) {
      std::fprintf(stderr, "kpz_diff_corpus: cannot grow %s.kpz\n", name.c_str());
      m_ok = false;
    }
  }

  bool Finish() {
    std::ofstream out(m_dir / "corpus.txt", std::ios::binary);
    out << m_list;
    out.close();
    return m_ok && static_cast<bool>(out);
  }

 private:
  std::filesystem::path m_dir;
  std::string m_list;
  bool m_ok = true;
};

Bytes Cut(const Bytes& bytes, std::uint32_t size) {
  return Bytes(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size));
}

std::uint16_t U16At(const Bytes& bytes, std::uint32_t at, DtNlByteOrder order) {
  const unsigned a = bytes[at];
  const unsigned b = bytes[at + 1];
  return static_cast<std::uint16_t>(order == DtNlLittleEndian ? a | (b << 8) : (a << 8) | b);
}

// The good file of `order`, then the same cut at every place worth cutting.
void AddCuts(Corpus& corpus, const std::string& prefix, DtNlByteOrder order) {
  KpzSpec recipe;
  recipe.order = order;
  recipe.screennail = kpztest::FakeJpeg(20000, 0x31);
  recipe.thumbnail = kpztest::FakeJpeg(3000, 0x32);
  KpzLayout at;
  const Bytes good = kpztest::BuildKpz(recipe, &at);
  corpus.Add(prefix + "good", good);

  const std::uint32_t entries = U16At(good, at.ifd0, order);
  const std::uint32_t ifd0End = at.ifd0 + 2 + 12 * entries;  // its next-directory pointer
  const std::uint32_t exifEntries = U16At(good, at.exif, order);
  const std::uint32_t thumbLength = static_cast<std::uint32_t>(recipe.thumbnail.size());
  const std::uint32_t previewLength = static_cast<std::uint32_t>(recipe.screennail.size());
  const struct {
    const char* name;
    std::uint32_t size;
  } cuts[] = {
      {"cut-header-2", 2},                                 // the byte order mark only
      {"cut-header-6", 6},                                 // inside IFD0's offset
      {"cut-ifd0-count", at.ifd0 + 1},                     // inside IFD0's entry count
      {"cut-ifd0-entry-first", at.ifd0 + 2 + 5},           // inside its first entry
      {"cut-ifd0-entry-middle", at.ifd0 + 2 + 12 * (entries / 2) + 8},
      {"cut-ifd0-next", ifd0End + 2},                      // inside the next-IFD pointer
      {"cut-ifd0-after", ifd0End + 4},                     // right after IFD0
      {"cut-ifd1", at.ifd1 + 4},                           // inside IFD1
      {"cut-exif", at.exif + 2 + 12 * (exifEntries / 2)},  // inside the Exif directory
      {"cut-makernote-header", at.makerNote + 6},
      {"cut-makernote-dir", at.makerNoteDir + 14},
      {"cut-thumbnail", at.thumbnail + thumbLength / 2},
      {"cut-thumbnail-last", at.thumbnail + thumbLength - 1},
      {"cut-preview", at.screennail + previewLength / 2},
      {"cut-preview-last", at.screennail + previewLength - 1},
  };
  for (const auto& cut : cuts) {
    if (cut.size < good.size()) {
      corpus.Add(prefix + cut.name, Cut(good, cut.size));
    }
  }
}

// `size` pseudo-random bytes from `seed` (a fixed linear congruential
// sequence: the same file on every run).
Bytes RandomBytes(std::size_t size, std::uint32_t seed) {
  Bytes out(size);
  std::uint32_t state = seed;
  for (auto& byte : out) {
    state = state * 1664525u + 1013904223u;
    byte = static_cast<std::uint8_t>(state >> 24);
  }
  return out;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: kpz_diff_corpus <dir>\n");
    return 2;
  }
  const std::filesystem::path dir(argv[1]);
  std::error_code ec;
  std::filesystem::create_directories(dir, ec);
  if (ec) {
    std::fprintf(stderr, "kpz_diff_corpus: cannot create %s\n", argv[1]);
    return 1;
  }
  Corpus corpus(dir);

  AddCuts(corpus, "le-", DtNlLittleEndian);
  AddCuts(corpus, "be-", DtNlBigEndian);
  {  // The other branch: the preview found through the Km maker note.
    KpzSpec recipe;
    recipe.m372 = true;
    recipe.screennail = kpztest::FakeJpeg(9000, 0x33);
    corpus.Add("m372-good", recipe);
  }

  // No KPZ files.
  corpus.Add("empty", Bytes());
  corpus.Add("random", RandomBytes(70000, 0x5A17u));
  corpus.Add("text", kpztest::AsciiBytes("just some text\n", false));
  {
    KpzSpec tiff;
    tiff.hasIfd1 = false;
    corpus.Add("tiff-one-directory", tiff);
    KpzSpec plain;
    plain.hasMakerNote = false;
    corpus.Add("tiff-no-makernote", plain);
    KpzSpec nameless;
    nameless.model.reset();
    corpus.Add("tiff-no-model", nameless);
    KpzSpec noExif;
    noExif.hasExif = false;
    corpus.Add("tiff-no-exif", noExif);
  }

  // KPZ files missing a picture, or with an empty one, or one out of reach.
  {
    KpzSpec noThumb;
    noThumb.editIfd1 = [](kpztest::Ifd& ifd) { ifd.Remove(kpztest::tag::kJpegOffset); };
    corpus.Add("no-thumbnail", noThumb);
    KpzSpec noPreview;
    noPreview.ifd0ScreennailTags = false;
    corpus.Add("no-preview", noPreview);
    KpzSpec emptyThumb;
    emptyThumb.thumbnailLengthTag = 0;
    corpus.Add("empty-thumbnail", emptyThumb);
    KpzSpec emptyPreview;
    emptyPreview.screennail = Bytes();
    corpus.Add("empty-preview", emptyPreview);
    KpzSpec thumbPast;
    thumbPast.thumbnailLengthTag = 0xFFFFFFF0u;
    corpus.Add("thumbnail-past-end", thumbPast);
    KpzSpec previewPast;
    previewPast.screennailLengthTag = 0x7FFFFFF0u;
    corpus.Add("preview-past-end", previewPast);
    KpzSpec ifd1Past;
    ifd1Past.ifd1Pointer = 0x00F00000u;
    corpus.Add("ifd1-past-end", ifd1Past);
    KpzSpec exifPast;
    exifPast.exifPointer = 0x00F00000u;
    corpus.Add("exif-past-end", exifPast);

    // The preview's offset at 2 GiB and beyond (negative as a signed
    // 32-bit offset): out of reach.
    KpzLayout at;
    Bytes far = kpztest::BuildKpz(KpzSpec(), &at);
    const std::uint32_t field =
        kpztest::TagValueOffset(far, DtNlLittleEndian, at.ifd0, kpztest::tag::kJpegOffset);
    corpus.Add("preview-beyond-2gib",
               kpztest::Patched(far, field, kpztest::U32Bytes(0x80000010u, DtNlLittleEndian)));
  }

  // Pictures where the head read ends: a thumbnail beyond the first 64 KiB
  // and one across its end; a preview of a camera's size after them.
  {
    KpzSpec beyond;
    beyond.thumbnailOffset = 0x10000 + 4000;
    beyond.thumbnail = kpztest::FakeJpeg(5000, 0x34);
    corpus.Add("thumbnail-beyond-head", beyond);
    KpzSpec across;
    across.thumbnailOffset = 0x10000 - 1000;
    across.thumbnail = kpztest::FakeJpeg(3000, 0x35);
    across.screennail = kpztest::FakeJpeg(1536 * 1024, 0x36);
    corpus.Add("thumbnail-across-head", across);
  }
  {  // A thumbnail claiming 600 MB in a sparse file that holds that many:
     // refused as too large, nothing read or allocated for it.
    const std::uint32_t claimed = 600u * 1024 * 1024;
    KpzSpec huge;
    huge.thumbnailLengthTag = claimed;
    corpus.Add("thumbnail-too-large", huge);
    corpus.Grow("thumbnail-too-large", std::uint64_t{claimed} + 0x20000);
  }
  return corpus.Finish() ? 0 : 1;
}
