// make_serve_fixtures.cpp - writes the folder of KPZ files that kpz serve's
// tests (tests/tools/serve) serve, composed with the test-data builder, and
// a manifest of what each file is made to be. Run by the tests themselves
// into a temporary directory; nothing it writes is committed.
//
//   kpz_serve_fixtures <dir>      # <dir>/manifest.json, <dir>/root/...
//
// manifest.json: {"root": path, "good": [relative names], "bad": [relative
// names of files that are not KPZ raw files], "large": name of a file with
// a 3 MB preview, "many": [names of the files in root/many/], "partial":
// {"no_preview": name, "no_thumbnail": name}: KPZ files that lack one of
// their pictures, in root/partial/}. Good files
// hold real JPEG pictures (a browser decodes them), with orientations 1, 3,
// 6 and 8 among them, some in a subfolder, one with a space in its name.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

#include <nlohmann/json.hpp>

#include "support/KpzFileBuilder.h"
#include "support/KpzJpegBuilder.h"

namespace {

using kpztest::Bytes;
using kpztest::KpzSpec;

KpzSpec realPictures(int w, int h, std::uint16_t orientation, std::uint8_t seed) {
  KpzSpec r;
  r.screennail = kpztest::MakeJpeg(w, h, TJSAMP_420, 88, seed);
  r.thumbnail = kpztest::MakeJpeg(160, 120, TJSAMP_420, 85, static_cast<std::uint8_t>(seed + 1));
  r.orientation = orientation;
  r.thumbnailOrientation = orientation;
  return r;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: kpz_serve_fixtures <dir>\n");
    return 2;
  }
  const std::filesystem::path dir = argv[1];
  const std::filesystem::path root = dir / "root";
  std::error_code ec;
  std::filesystem::create_directories(root / "sub", ec);
  std::filesystem::create_directories(root / "many", ec);
  std::filesystem::create_directories(root / "partial", ec);
  bool ok = true;
  nlohmann::json good = nlohmann::json::array();
  nlohmann::json bad = nlohmann::json::array();
  nlohmann::json many = nlohmann::json::array();
  const auto write = [&](const std::string& name, const Bytes& bytes, nlohmann::json* list) {
    if (!kpztest::WriteFileBytes((root / name).string(), bytes)) {
      std::fprintf(stderr, "kpz_serve_fixtures: cannot write %s\n", name.c_str());
      ok = false;
    }
    list->push_back(name);
  };

  const std::uint16_t orientations[] = {1, 6, 3, 8, 1, 6};
  for (int i = 0; i < 6; ++i) {
    KpzSpec r = realPictures(640 + 16 * i, 480, orientations[i], static_cast<std::uint8_t>(10 * i));
    r.dateTimeOriginal = "2010:05:0" + std::to_string(i + 1) + " 12:34:56";
    const std::string name = i == 0 ? "shot 01.kpz" : "shot0" + std::to_string(i + 1) + ".kpz";
    write(name, kpztest::BuildKpz(r), &good);
  }
  write("sub/inner1.kpz", kpztest::BuildKpz(realPictures(320, 240, 6, 90)), &good);
  write("sub/inner2.KPZ", kpztest::BuildKpz(realPictures(320, 240, 1, 95)), &good);
  {
    // A preview of 3 MB far inside the file, for ranges and cuts.
    KpzSpec r;
    r.screennail = kpztest::FakeJpeg(3000000, 0x42);
    r.screennailOffset = 1000000;
    write("large.kpz", kpztest::BuildKpz(r), &good);
  }
  write("not_tiff.kpz", kpztest::PatternBytes(3000, 0x11), &bad);
  write("empty.kpz", Bytes(), &bad);
  {
    Bytes cut = kpztest::BuildKpz(KpzSpec());
    cut.resize(40);
    write("truncated.kpz", cut, &bad);
  }
  nlohmann::json partial = nlohmann::json::object();
  {
    // A KPZ file whose thumbnail is recorded empty, and one without a
    // preview: each has the other picture.
    nlohmann::json unused = nlohmann::json::array();
    KpzSpec r = realPictures(320, 240, 6, 120);
    r.thumbnailLengthTag = 0;
    write("partial/no_thumbnail.kpz", kpztest::BuildKpz(r), &unused);
    partial["no_thumbnail"] = "partial/no_thumbnail.kpz";
    KpzSpec p = realPictures(320, 240, 1, 125);
    p.ifd0ScreennailTags = false;
    write("partial/no_preview.kpz", kpztest::BuildKpz(p), &unused);
    partial["no_preview"] = "partial/no_preview.kpz";
  }
  for (int i = 0; i < 40; ++i) {
    char name[32];
    std::snprintf(name, sizeof name, "many/m%03d.kpz", i);
    write(name, kpztest::BuildKpz(realPictures(64, 48, 1, static_cast<std::uint8_t>(i))), &many);
  }

  nlohmann::json manifest = {{"root", root.string()}, {"good", good}, {"bad", bad},
                             {"large", "large.kpz"},  {"many", many}, {"partial", partial}};
  std::ofstream out(dir / "manifest.json");
  out << manifest.dump(1) << "\n";
  return ok && out ? 0 : 1;
}
