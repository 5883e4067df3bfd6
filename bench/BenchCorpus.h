// BenchCorpus.h - the benchmark corpus: a set of realistic KPZ raw files
// written by the test-data builder (tests/support/KpzFileBuilder), and the
// manifest that tells every benchmark program where each preview lies.
//
// Part of bench/ (never linked into the library or the unit tests). Sits on
// the test-data builder and the C library; the benchmark programs read the
// manifest and run their jobs (bench/BenchJobs) over the files it names.
//
//   BenchCorpusPlan plan;            // 48 files, ~1.5 MB previews, 12 MB filler
//   std::vector<BenchFile> files;
//   std::string why;
//   if (!BenchCorpus::Generate(plan, "/tmp/corpus", &files, &why)) { ... }
//   BenchCorpus::Load("/tmp/corpus/manifest.tsv", &files, &why);
//
// No pointer members.
#ifndef KPZ_BENCH_BENCHCORPUS_H
#define KPZ_BENCH_BENCHCORPUS_H

#include <cstdint>
#include <string>
#include <vector>

// One file of the corpus and where its preview lies (known in advance, so
// that the floor benchmark can go straight to it).
struct BenchFile {
  std::string path;                 // absolute path
  std::uint32_t previewOffset = 0;  // byte offset of the preview JPEG
  std::uint32_t previewSize = 0;    // its length in bytes
  std::uint64_t fileSize = 0;       // length of the whole file
  bool bigEndian = false;           // "MM" file (else "II")
  bool m372 = false;  // written as the model whose preview tags sit in the Km maker note
};

// What to generate. The defaults are the realistic corpus: previews of
// about 1.5 MB (each file varies the length by -7 % .. +7 %) at offsets of
// 70 to 160 KiB, a 10 KiB thumbnail inside the file head, 12 MB of filler
// (the raw image data) after the preview, both byte orders alternating,
// every fourth file of the model with a Km maker note. Previews and
// thumbnail are JPEG-shaped: the marker segments of a baseline JPEG up to
// SOS (with the pixel size the maker note gives), pattern bytes as image
// data, EOI; tools that walk JPEG markers read them as they read a camera's.
struct BenchCorpusPlan {
  std::uint32_t files = 48;
  std::uint32_t previewBytes = 1536u * 1024u;
  std::uint32_t fillerBytes = 12u * 1024u * 1024u;
  std::uint32_t thumbnailBytes = 10u * 1024u;
  // true: the filler is a hole (ftruncate) instead of written bytes; the
  // files keep their length but take almost no disk space. No job reads the
  // filler, so this changes nothing for the jobs measured.
  bool sparseFiller = false;
  // Further entries in IFD0, placed before its own ones (tags the library
  // does not keep), so that every one of them is read and passed over. IFD0
  // holds at most 65,535 entries: more is refused.
  std::uint32_t extraIfd0Entries = 0;
  // Non-empty: every file's preview is these bytes (a real, decodable JPEG,
  // encoded once by the caller) instead of JPEG-shaped bytes; previewBytes
  // is then not used.
  std::vector<std::uint8_t> realPreview;
  // true: IFD0's orientation varies as in a camera's folder (OrientationFor)
  // and orientations.tsv lists each file's rotation code; false: all normal.
  bool orientationMix = false;
};

class BenchCorpus {
 public:
  // The manifest's file name inside a corpus directory.
  static const char* const MANIFEST_NAME;

  // Writes plan.files files named kpzNNNNN.kpz and the manifest into the
  // existing directory `dir`, and fills *files. false (with *error set) when
  // a file cannot be written or the plan cannot be laid out (a preview or
  // filler that would push the file past 4 GiB).
  static bool Generate(const BenchCorpusPlan& plan, const std::string& dir,
                       std::vector<BenchFile>* files, std::string* error);

  // Reads a manifest written by Generate. false (with *error set) when it
  // cannot be read or a line is malformed; an empty manifest is an error too.
  static bool Load(const std::string& manifestPath, std::vector<BenchFile>* files,
                   std::string* error);

  // Writes `files` as a manifest. false (with *error set) on a write error.
  static bool Save(const std::string& manifestPath, const std::vector<BenchFile>& files,
                   std::string* error);

  // Where the preview of file number `index` goes and how long it is, for a
  // base preview length of `previewBytes` (deterministic, no randomness).
  static std::uint32_t PreviewOffsetFor(std::uint32_t index);
  static std::uint32_t PreviewSizeFor(std::uint32_t index, std::uint32_t previewBytes);

  // The rotation code of file number `index` with orientationMix: one file
  // in four a portrait shot (1 rotated 90° clockwise and 3 rotated 90°
  // counter-clockwise alternating), one in 32 upside down (2), the rest
  // normal (0).
  static unsigned char OrientationFor(std::uint32_t index);

  // The file orientations.tsv of an orientation mix: "<code>\t<path>" per file.
  static const char* const ORIENTATIONS_NAME;
};

#endif  // KPZ_BENCH_BENCHCORPUS_H
