// make_fixtures.cpp - writes the KPZ files that the JVM test
// (tests/java/KaviKPZInterfaceCheck.java) hands to the native entry, composed
// with the test-data builder, and a Java properties file that says what the
// entry must answer for each of them. Run by CTest before the JVM test; nothing
// it writes is committed.
//
//   kpz_java_fixtures <dir>        # writes <dir>/fixtures.properties and the files
//
// Per file <name> the properties give: <name>.path, and where the entry finds
// a screennail, <name>.offset (hex, as the entry logs it), <name>.size,
// <name>.width, <name>.height, <name>.readSize (what the read returns) and,
// when the read succeeds, <name>.expected (a file holding the exact bytes).
// stress.count and stress.<i>.* describe the files of the concurrency run,
// which lie in a deep directory so that their paths are about 2.7 KB long.
//
// The gallery calls (tests/java/KpzGalleryCheck.java) are checked against
// the kpz tool on every file here: besides the files above, gallery.<name>.path
// names files of every orientation, with thumbnails in and beyond the head,
// with a large preview (gallery.large: 1.5 MB, the size of a camera's), and
// files that are damaged or no KPZ files at all. What they must answer is
// not written down: the check asks `kpz` itself.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>
#include <vector>

#include "support/KpzFileBuilder.h"

namespace {

using kpztest::Bytes;
using kpztest::KpzLayout;
using kpztest::KpzSpec;

struct Expect {
  std::uint32_t offset = 0;
  std::uint32_t size = 0;
  unsigned width = 0;
  unsigned height = 0;
  std::uint32_t readSize = 0;
};

std::string Hex(std::uint32_t value) {
  char text[16];
  std::snprintf(text, sizeof text, "%x", value);
  return text;
}

class Writer {
 public:
  explicit Writer(std::filesystem::path dir) : m_dir(std::move(dir)) {}

  // Builds `recipe` into <subdir>/<name>.kpz, records what the entry must answer
  // under `key`, and writes the expected bytes when the read succeeds.
  bool Add(const std::string& key, const std::string& subdir, const std::string& name,
           const KpzSpec& recipe, const Expect& expect, bool withExpected) {
    const std::filesystem::path dir = subdir.empty() ? m_dir : m_dir / subdir;
    std::error_code ec;
    std::filesystem::create_directories(dir, ec);
    const std::string path = (dir / (name + ".kpz")).string();
    if (ec || !kpztest::WriteFileBytes(path, kpztest::BuildKpz(recipe))) {
      std::fprintf(stderr, "kpz_java_fixtures: cannot write %s\n", path.c_str());
      return false;
    }
    m_props += key + ".path=" + path + "\n";
    m_props += key + ".offset=" + Hex(expect.offset) + "\n";
    m_props += key + ".size=" + std::to_string(static_cast<std::int32_t>(expect.size)) + "\n";
    m_props += key + ".width=" + std::to_string(expect.width) + "\n";
    m_props += key + ".height=" + std::to_string(expect.height) + "\n";
    m_props += key + ".readSize=" + std::to_string(expect.readSize) + "\n";
    if (withExpected) {
      const std::string expected = (dir / (name + ".jpg")).string();
      if (!kpztest::WriteFileBytes(expected, recipe.screennail)) {
        std::fprintf(stderr, "kpz_java_fixtures: cannot write %s\n", expected.c_str());
        return false;
      }
      m_props += key + ".expected=" + expected + "\n";
    }
    return true;
  }

  void Line(const std::string& text) { m_props += text + "\n"; }

  bool Finish() const {
    std::ofstream out(m_dir / "fixtures.properties", std::ios::binary);
    out << m_props;
    out.close();
    return static_cast<bool>(out);
  }

 private:
  std::filesystem::path m_dir;
  std::string m_props;
};

// Where the builder puts the screennail of `recipe`.
std::uint32_t ScreennailOffset(const KpzSpec& recipe) {
  KpzLayout where;
  kpztest::BuildKpz(recipe, &where);
  return where.screennail;
}

std::uint32_t TotalSize(const KpzSpec& recipe) {
  KpzLayout where;
  kpztest::BuildKpz(recipe, &where);
  return where.total;
}

// A well-formed file of another model: width and height from the maker note.
bool AddPlain(Writer& w, const std::string& key, const std::string& subdir,
              const std::string& name, DtNlByteOrder order, std::size_t size, std::uint8_t seed) {
  KpzSpec recipe;
  recipe.order = order;
  recipe.screennail = kpztest::FakeJpeg(size, seed);
  recipe.scnHeightWidth = std::make_pair(std::uint32_t{1080}, std::uint32_t{1616});
  const auto n = static_cast<std::uint32_t>(size);
  return w.Add(key, subdir, name, recipe, {ScreennailOffset(recipe), n, 1616, 1080, n}, true);
}

// A "DSLR-M372" file: the screennail is found through the Km maker note only;
// IFD0's own offset and length tags point at a decoy (the TIFF header) that a
// wrong branch would return.
bool AddM372(Writer& w, const std::string& key, const std::string& subdir,
             const std::string& name, DtNlByteOrder order, std::size_t size, std::uint8_t seed) {
  KpzSpec recipe;
  recipe.order = order;
  recipe.m372 = true;
  recipe.screennail = kpztest::FakeJpeg(size, seed);
  recipe.editIfd0 = [](kpztest::Ifd& ifd) {
    ifd.ReplaceRaw(kpztest::tag::kJpegOffset, kpztest::kTiffLong, 1, 0);
    ifd.ReplaceRaw(kpztest::tag::kJpegLength, kpztest::kTiffLong, 1, 8);
  };
  const auto n = static_cast<std::uint32_t>(size);
  return w.Add(key, subdir, name, recipe, {ScreennailOffset(recipe), n, 640, 480, n}, true);
}


// A file for the gallery calls: its path under gallery.<name>.path.
bool AddGalleryFile(Writer& w, const std::filesystem::path& dir, const std::string& name,
                    const Bytes& bytes) {
  const std::string path = (dir / (name + ".kpz")).string();
  if (!kpztest::WriteFileBytes(path, bytes)) {
    std::fprintf(stderr, "kpz_java_fixtures: cannot write %s\n", path.c_str());
    return false;
  }
  w.Line("gallery." + name + ".path=" + path);
  return true;
}

bool AddGalleryRecipe(Writer& w, const std::filesystem::path& dir, const std::string& name,
                      const KpzSpec& recipe) {
  return AddGalleryFile(w, dir, name, kpztest::BuildKpz(recipe));
}

// Files of every kind a gallery meets: good ones turned every way, and the
// failures kpz names (no picture, a picture past the end, damaged, not KPZ).
bool AddGallery(Writer& w, const std::filesystem::path& dir) {
  std::error_code ec;
  std::filesystem::create_directories(dir, ec);
  if (ec) {
    return false;
  }
  bool ok = true;
  // Every orientation, both byte orders, both branches of the model.
  for (std::uint16_t orientation = 1; orientation <= 8 && ok; ++orientation) {
    KpzSpec recipe;
    recipe.order = orientation % 2 == 0 ? DtNlBigEndian : DtNlLittleEndian;
    recipe.m372 = orientation == 7;
    recipe.orientation = orientation;
    recipe.screennail = kpztest::FakeJpeg(20000 + orientation * 1111u, 0x70);
    recipe.thumbnail = kpztest::FakeJpeg(3000 + orientation * 7u, 0x71);
    recipe.scnHeightWidth = std::make_pair(std::uint32_t{1080}, std::uint32_t{1616});
    recipe.dateTimeOriginal = "2011:0" + std::to_string(orientation) + ":02 03:04:05";
    ok = AddGalleryRecipe(w, dir, "orient" + std::to_string(orientation), recipe);
  }
  {  // A camera's sizes: a 1.5 MB preview, an 8 KB thumbnail, turned 90 degrees.
    KpzSpec recipe;
    recipe.orientation = 6;
    recipe.screennail = kpztest::FakeJpeg(1536 * 1024, 0x72);
    recipe.thumbnail = kpztest::FakeJpeg(8 * 1024, 0x73);
    recipe.scnHeightWidth = std::make_pair(std::uint32_t{1080}, std::uint32_t{1616});
    recipe.minTotalSize = 24u * 1024 * 1024;  // the raw data after it
    ok = ok && AddGalleryRecipe(w, dir, "large", recipe);
  }
  {  // No orientation recorded, an orientation out of range, no model, no date.
    KpzSpec recipe;
    recipe.orientation.reset();
    recipe.dateTimeOriginal.reset();
    ok = ok && AddGalleryRecipe(w, dir, "noorient", recipe);
    recipe.orientation = 9;
    ok = ok && AddGalleryRecipe(w, dir, "orient9", recipe);
  }
  {  // The thumbnail beyond the head: read from the file, not the head.
    KpzSpec recipe;
    recipe.thumbnailOffset = 0x10000 + 4000;
    recipe.thumbnail = kpztest::FakeJpeg(5000, 0x74);
    ok = ok && AddGalleryRecipe(w, dir, "farthumb", recipe);
  }
  {  // The thumbnail straddling the end of the head.
    KpzSpec recipe;
    recipe.thumbnailOffset = 0x10000 - 1000;
    recipe.thumbnail = kpztest::FakeJpeg(3000, 0x75);
    ok = ok && AddGalleryRecipe(w, dir, "edgethumb", recipe);
  }
  {  // No thumbnail recorded; an empty one; one claiming more than the file holds.
    KpzSpec recipe;
    recipe.editIfd1 = [](kpztest::Ifd& ifd) { ifd.Remove(kpztest::tag::kJpegOffset); };
    ok = ok && AddGalleryRecipe(w, dir, "nothumb", recipe);
    KpzSpec empty;
    empty.thumbnailLengthTag = 0;
    ok = ok && AddGalleryRecipe(w, dir, "emptythumb", empty);
    KpzSpec past;
    past.thumbnailLengthTag = 0xFFFFFFF0u;
    ok = ok && AddGalleryRecipe(w, dir, "thumbpast", past);
  }
  {  // A thumbnail claiming 600 MB inside a sparse file that holds it: refused
     // as too large, with nothing allocated for it.
    const std::uint32_t claimed = 600u * 1024 * 1024;
    KpzSpec huge;
    huge.thumbnailLengthTag = claimed;
    ok = ok && AddGalleryRecipe(w, dir, "hugethumb", huge) &&
         kpztest::ExtendFileSparse((dir / "hugethumb.kpz").string(),
                                   std::uint64_t{claimed} + 0x20000);
  }
  {  // No preview recorded; a preview claiming more than the file holds.
    KpzSpec recipe;
    recipe.ifd0ScreennailTags = false;
    ok = ok && AddGalleryRecipe(w, dir, "nopreview", recipe);
    KpzSpec past;
    past.screennailLengthTag = 0x7FFFFFF0u;
    ok = ok && AddGalleryRecipe(w, dir, "previewpast", past);
  }
  {  // Cut short within IFD1 (told as IFD1 running past the end of the file);
     // IFD1 and the Exif directory past the end; cut within the header.
    KpzSpec recipe;
    KpzLayout where;
    Bytes bytes = kpztest::BuildKpz(recipe, &where);
    bytes.resize(where.ifd1 + 4);  // within IFD1
    ok = ok && AddGalleryFile(w, dir, "cut", bytes);
    KpzSpec ifd1;
    ifd1.ifd1Pointer = 0x00F00000u;
    ok = ok && AddGalleryRecipe(w, dir, "ifd1past", ifd1);
    KpzSpec exif;
    exif.exifPointer = 0x00F00000u;
    ok = ok && AddGalleryRecipe(w, dir, "exifpast", exif);
    Bytes header = kpztest::BuildKpz(recipe);
    header.resize(5);
    ok = ok && AddGalleryFile(w, dir, "header", header);
  }
  {  // Not KPZ files: text, nothing, a TIFF of one directory, no maker note, no model.
    ok = ok && AddGalleryFile(w, dir, "text", kpztest::AsciiBytes("just some text\n", false));
    ok = ok && AddGalleryFile(w, dir, "empty", Bytes());
    KpzSpec tiff;
    tiff.hasIfd1 = false;
    ok = ok && AddGalleryRecipe(w, dir, "onedir", tiff);
    KpzSpec plain;
    plain.hasMakerNote = false;
    ok = ok && AddGalleryRecipe(w, dir, "nomakernote", plain);
    KpzSpec nameless;
    nameless.model.reset();
    ok = ok && AddGalleryRecipe(w, dir, "nomodel", nameless);
  }
  return ok;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: kpz_java_fixtures <dir>\n");
    return 2;
  }
  const std::filesystem::path dir(argv[1]);
  std::error_code ec;
  std::filesystem::remove_all(dir, ec);
  std::filesystem::create_directories(dir, ec);
  if (ec) {
    std::fprintf(stderr, "kpz_java_fixtures: cannot create %s\n", argv[1]);
    return 1;
  }
  Writer w(dir);
  bool ok = true;

  ok = ok && AddPlain(w, "le", "", "le", DtNlLittleEndian, 40000, 0x11);
  ok = ok && AddPlain(w, "be", "", "be", DtNlBigEndian, 30001, 0x22);
  ok = ok && AddM372(w, "m372", "", "m372", DtNlBigEndian, 20002, 0x33);

  {  // No screennail location in IFD0.
    KpzSpec recipe;
    recipe.ifd0ScreennailTags = false;
    ok = ok && w.Add("nosn", "", "nosn", recipe, {}, false);
  }
  {  // The length claims 4,096 bytes more than the file holds.
    KpzSpec recipe;
    recipe.screennail = kpztest::FakeJpeg(5000, 0x44);
    recipe.screennailLengthTag = 5000 + 4096;
    const std::uint32_t at = ScreennailOffset(recipe);
    ok = ok && w.Add("past", "", "past", recipe, {at, 9096, 1616, 1080, TotalSize(recipe) - at}, false);
  }
  {  // A forged length of 0xFFFFFFFF.
    KpzSpec recipe;
    recipe.screennail = kpztest::FakeJpeg(3000, 0x55);
    recipe.screennailLengthTag = 0xFFFFFFFFu;
    const std::uint32_t at = ScreennailOffset(recipe);
    ok = ok && w.Add("huge", "", "huge", recipe, {at, 0xFFFFFFFFu, 1616, 1080, TotalSize(recipe) - at},
                     false);
  }
  {  // A screennail of 0 bytes.
    KpzSpec recipe;
    recipe.screennail = Bytes();
    ok = ok && w.Add("empty", "", "empty", recipe, {ScreennailOffset(recipe), 0, 1616, 1080, 0}, true);
  }

  // The concurrency run: eight files of both byte orders and both branches,
  // of different sizes, under a deep directory (11 levels of 240 characters).
  std::string deep = "stress";
  for (int level = 0; level < 11; ++level) {
    deep += "/" + std::string(240, static_cast<char>('a' + level));
  }
  const int stressCount = 8;
  w.Line("stress.count=" + std::to_string(stressCount));
  for (int i = 0; i < stressCount && ok; ++i) {
    const std::string key = "stress." + std::to_string(i);
    const std::string name = "s" + std::to_string(i);
    const DtNlByteOrder order = (i % 2 == 0) ? DtNlLittleEndian : DtNlBigEndian;
    const std::size_t size = 24000 + static_cast<std::size_t>(i) * 4999;
    const auto seed = static_cast<std::uint8_t>(0x60 + i);
    ok = (i % 4 == 3) ? AddM372(w, key, deep, name, order, size, seed)
                      : AddPlain(w, key, deep, name, order, size, seed);
  }
  ok = ok && AddGallery(w, dir / "gallery");
  ok = ok && w.Finish();
  return ok ? 0 : 1;
}
