// make_py_fixtures.cpp - writes the KPZ files the Python package's tests
// (tests/python) read, composed with the test-data builder, and a manifest
// that says what each file is made to be. Run by the tests themselves
// (conftest.py) into a temporary directory; nothing it writes is committed.
//
//   kpz_py_fixtures <dir>        # writes <dir>/manifest.json and <dir>/*.kpz
//
// manifest.json: {"files": [{"name", "path", "preview", "thumbnail",
// "orientation"}...], "many": [paths...]}. "preview" and "thumbnail" name
// what reading that picture must end in: "ok" or the Python exception class
// ("NotKpzError", "NoPreviewError", "BadPreviewError"). What the bytes,
// metadata and words must be is not here: the tests take them from the kpz
// tool, which the package must agree with. "orientation" is the stored
// Exif orientation (0: none). "many" lists 64 valid files with distinct
// previews for the thread and memory tests.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>
#include <vector>

#include <nlohmann/json.hpp>

#include "support/KpzFileBuilder.h"
#include "support/KpzFileBuilderExtras.h"
#include "support/KpzJpegBuilder.h"

namespace {

using kpztest::Bytes;
using kpztest::KpzLayout;
using kpztest::KpzSpec;

const std::uint16_t kTagScreennailOffset = 0x0201;

class Writer {
 public:
  explicit Writer(std::filesystem::path dir) : m_dir(std::move(dir)) {}

  bool Add(const std::string& name, const Bytes& bytes, const std::string& preview,
           const std::string& thumbnail, int orientation) {
    const std::string path = (m_dir / (name + ".kpz")).string();
    if (!kpztest::WriteFileBytes(path, bytes)) {
      std::fprintf(stderr, "kpz_py_fixtures: cannot write %s\n", path.c_str());
      return false;
    }
    m_files.push_back({{"name", name},
                       {"path", path},
                       {"preview", preview},
                       {"thumbnail", thumbnail},
                       {"orientation", orientation}});
    return true;
  }

  bool AddMany(const std::string& name, const Bytes& bytes) {
    const std::string path = (m_dir / (name + ".kpz")).string();
    if (!kpztest::WriteFileBytes(path, bytes)) {
      std::fprintf(stderr, "kpz_py_fixtures: cannot write %s\n", path.c_str());
      return false;
    }
    m_many.push_back(path);
    return true;
  }

  bool Finish() const {
    nlohmann::json manifest = {{"files", m_files}, {"many", m_many}};
    std::ofstream out(m_dir / "manifest.json");
    out << manifest.dump(1) << "\n";
    return static_cast<bool>(out);
  }

 private:
  std::filesystem::path m_dir;
  nlohmann::json m_files = nlohmann::json::array();
  nlohmann::json m_many = nlohmann::json::array();
};

// A file with real JPEG pictures (a preview of `w` x `h`, 4:2:0) and
// Exif orientation `orientation` (1..8).
KpzSpec realPictures(int w, int h, std::uint16_t orientation, std::uint8_t seed) {
  KpzSpec r;
  r.screennail = kpztest::MakeJpeg(w, h, TJSAMP_420, 90, seed);
  r.thumbnail = kpztest::MakeJpeg(40, 30, TJSAMP_420, 85, static_cast<std::uint8_t>(seed + 1));
  r.orientation = orientation;
  return r;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: kpz_py_fixtures <dir>\n");
    return 2;
  }
  const std::filesystem::path dir = argv[1];
  std::error_code ec;
  std::filesystem::create_directories(dir, ec);
  Writer w(dir);
  bool ok = true;

  // Files whose pictures can be read.
  ok &= w.Add("plain", kpztest::BuildKpz(KpzSpec()), "ok", "ok", 1);
  {
    KpzSpec r;
    r.order = DtNlBigEndian;
    r.screennail = kpztest::FakeJpeg(5000, 0x31);
    ok &= w.Add("big_endian", kpztest::BuildKpz(r), "ok", "ok", 1);
  }
  {
    KpzSpec r;
    r.m372 = true;
    ok &= w.Add("m372", kpztest::BuildKpz(r), "ok", "ok", 1);
  }
  {
    // A preview far inside a larger file, as in a camera's file.
    KpzSpec r;
    r.screennail = kpztest::FakeJpeg(300000, 0x42);
    r.screennailOffset = 3000000;
    r.minTotalSize = 4000000;
    ok &= w.Add("large", kpztest::BuildKpz(r), "ok", "ok", 1);
  }
  {
    KpzSpec r;
    r.orientation.reset();
    ok &= w.Add("no_orientation", kpztest::BuildKpz(r), "ok", "ok", 0);
  }
  // Every orientation, with real JPEGs: one size whose edges are whole
  // blocks (a lossless turn) and one whose edges are not (re-encoded).
  for (std::uint16_t o = 1; o <= 8; ++o) {
    ok &= w.Add("orient" + std::to_string(o) + "_whole",
                kpztest::BuildKpz(realPictures(64, 48, o, static_cast<std::uint8_t>(o))), "ok",
                "ok", o);
    ok &= w.Add("orient" + std::to_string(o) + "_partial",
                kpztest::BuildKpz(realPictures(61, 45, o, static_cast<std::uint8_t>(o + 20))),
                "ok", "ok", o);
  }
  {
    // An orientation value outside 1..8: not turned.
    KpzSpec r = realPictures(64, 48, 1, 7);
    r.orientation = 9;
    ok &= w.Add("orient_bad_value", kpztest::BuildKpz(r), "ok", "ok", 9);
  }
  {
    // A turn of a preview that is not a JPEG fails; without upright it is
    // read as stored.
    KpzSpec r;
    r.orientation = 6;
    ok &= w.Add("orient6_not_jpeg", kpztest::BuildKpz(r), "ok", "ok", 6);
  }
  {
    // A picture bomb as the preview: a few bytes of arithmetic-coded data
    // claiming 9999x9999 pixels, padded to 49 KB. Read as stored, it is the
    // preview; turned upright, it is refused in words, never decoded.
    Bytes bomb = kpztest::ArithmeticFlatJpeg(9999, 9999);
    if (!bomb.empty()) {
      bomb.resize(49 * 1024, 0);
      KpzSpec r;
      r.orientation = 6;
      r.screennail = bomb;
      ok &= w.Add("orient6_bomb", kpztest::BuildKpz(r), "ok", "ok", 6);
    }
  }

  {
    // IFD0's date and time claimed at 2 GiB (negative as a signed 32-bit
    // offset), IFD1's different: its pictures read, its orientation cannot
    // be set in place (the date and time to copy is not in the file).
    KpzSpec r;
    r.thumbnailDateTime = "2001:01:01 00:00:00";
    r.editIfd0 = [](kpztest::Ifd& ifd) {
      ifd.ReplaceRaw(kpztest::tag::kDateTime, 2, 20, 0x80000000u);
    };
    ok &= w.Add("date_at_2gib", kpztest::BuildKpz(r), "ok", "ok", 1);
  }

  // Files that are not KPZ raw files.
  ok &= w.Add("not_tiff", kpztest::PatternBytes(3000, 0x11), "NotKpzError", "NotKpzError", 0);
  ok &= w.Add("empty", Bytes(), "NotKpzError", "NotKpzError", 0);
  {
    KpzSpec r;
    r.model.reset();
    ok &= w.Add("no_model", kpztest::BuildKpz(r), "NotKpzError", "NotKpzError", 1);
  }
  {
    KpzSpec r;
    r.hasMakerNote = false;
    ok &= w.Add("no_maker_note", kpztest::BuildKpz(r), "NotKpzError", "NotKpzError", 1);
  }
  {
    KpzSpec r;
    r.exifPointer = 0x00F00000;  // far past the end of the file
    ok &= w.Add("exif_past_end", kpztest::BuildKpz(r), "NotKpzError", "NotKpzError", 1);
  }
  {
    // An ordinary single-directory TIFF: IFD0 at 8, no next directory.
    KpzSpec r;
    r.hasIfd1 = false;
    r.hasExif = false;
    r.hasMakerNote = false;
    r.ifd0ScreennailTags = false;
    r.minTotalSize = 8192;
    ok &= w.Add("single_directory", kpztest::BuildKpz(r), "NotKpzError", "NotKpzError", 1);
  }
  {
    // A file cut short in its directories.
    Bytes whole = kpztest::BuildKpz(KpzSpec());
    whole.resize(40);
    ok &= w.Add("truncated", whole, "NotKpzError", "NotKpzError", 0);
  }

  // KPZ files without a usable preview.
  {
    KpzSpec r;
    r.ifd0ScreennailTags = false;
    ok &= w.Add("no_preview", kpztest::BuildKpz(r), "NoPreviewError", "ok", 1);
  }
  {
    KpzSpec r;
    r.screennailLengthTag = 0;
    ok &= w.Add("empty_preview", kpztest::BuildKpz(r), "NoPreviewError", "ok", 1);
  }

  // KPZ files without a usable thumbnail: told apart from a missing preview.
  {
    KpzSpec r;
    r.editIfd1 = [](kpztest::Ifd& ifd) { ifd.Remove(kpztest::tag::kJpegOffset); };
    ok &= w.Add("no_thumbnail", kpztest::BuildKpz(r), "ok", "NoThumbnailError", 1);
  }
  {
    KpzSpec r;
    r.thumbnailLengthTag = 0;
    ok &= w.Add("empty_thumbnail", kpztest::BuildKpz(r), "ok", "NoThumbnailError", 1);
  }
  {
    KpzSpec r;
    r.screennailLengthTag = 1000000;
    ok &= w.Add("preview_past_end", kpztest::BuildKpz(r), "BadPreviewError", "ok", 1);
  }
  {
    KpzLayout layout;
    Bytes image = kpztest::BuildKpz(KpzSpec(), &layout);
    const std::uint32_t at =
        kpztest::TagValueOffset(image, DtNlLittleEndian, layout.ifd0, kTagScreennailOffset);
    image = kpztest::Patched(image, at, kpztest::U32Bytes(0x80000010u, DtNlLittleEndian));
    ok &= w.Add("preview_beyond_2gib", image, "BadPreviewError", "ok", 1);
  }
  {
    KpzSpec r;
    r.thumbnailLengthTag = 1000000;
    ok &= w.Add("thumbnail_past_end", kpztest::BuildKpz(r), "ok", "BadPreviewError", 1);
  }
  {
    // A thumbnail claiming 600 MB; the file is small (so the claim runs past
    // its end) until a test grows it, sparse, to hold the claim.
    KpzSpec r;
    r.thumbnailLengthTag = 600u * 1024 * 1024;
    ok &= w.Add("thumbnail_claims_600mb", kpztest::BuildKpz(r), "ok", "BadPreviewError", 1);
  }
  {
    KpzSpec r;
    r.hasIfd1 = false;
    ok &= w.Add("no_ifd1", kpztest::BuildKpz(r), "NotKpzError", "NotKpzError", 1);
  }

  // Many valid files with distinct previews of different sizes.
  for (int i = 0; i < 64; ++i) {
    KpzSpec r;
    r.screennail = kpztest::FakeJpeg(2000 + static_cast<std::size_t>(i) * 997,
                                     static_cast<std::uint8_t>(i));
    r.orientation = static_cast<std::uint16_t>(1 + i % 8);
    char name[32];
    std::snprintf(name, sizeof name, "many_%02d", i);
    ok &= w.AddMany(name, kpztest::BuildKpz(r));
  }

  ok &= w.Finish();
  return ok ? 0 : 1;
}
