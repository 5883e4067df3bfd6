// KpzLayoutCheckTest.cpp - the reasons the kpz kit gives for a file whose
// head does not parse (the library's jni/raw/DtRawLayoutCheck, through
// KpzErrorText): one
// case per reason, in both byte orders, through the kit's public readers
// (KpzExtraction and KpzMetadataReader::Read, which reach the words
// by the buffer-mode and the file-mode road), on files made by the test-data
// builder; and the walk held against the library's own parse on thousands
// of damaged, truncated and random heads: the same result code every time,
// a reason for every failure, and no read outside the head (run under the
// asan preset too).
#include <gtest/gtest.h>

#if defined(KPZ_TEST_HAVE_KIT)

#include <algorithm>
#include <cstdint>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "kpz/KpzMetadata.h"
#include "kpz/KpzMetadataReader.h"
#include "kpz/KpzPictureReader.h"
#include "kpz/KpzSource.h"
#include "raw/DtRaw.h"
#include "raw/DtRawError.h"
#include "raw/DtRawLayoutCheck.h"
#include "support/KpzFileBuilder.h"
#include "support/KpzReadPicture.h"
#include "support/LogExpect.h"

namespace {

using kpztest::Bytes;
using kpztest::Ifd;
using kpztest::KpzFile;
using kpztest::KpzSpec;
namespace tag = kpztest::tag;

std::string WordsOf(const DtRawLayoutCheck::Finding& f) {
  char words[DtRawLayoutCheck::WORDS_SIZE];
  DtRawLayoutCheck::Words(f, words, sizeof words);
  return words;
}

const std::uint32_t kFar = 0x00FFFFF0;  // beyond every small file here

std::uint32_t Next(std::mt19937& rng) { return static_cast<std::uint32_t>(rng()); }

// The first bytes of `file` (all of a shorter one) into `head`, zeros after.
void CopyHead(const Bytes& file, std::vector<UINT8>* head) {
  const std::size_t n = std::min(file.size(), head->size());
  std::copy(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(n), head->begin());
}

// An ordinary TIFF as image libraries write it: one directory (a 64x64
// 8-bit grey strip image) at offset 8 whose next-directory offset is 0,
// 8 KiB in all.
Bytes OrdinaryTiff(DtNlByteOrder order) {
  Ifd ifd(order);
  ifd.AddShort(0x0100, 64)     // ImageWidth
      .AddShort(0x0101, 64)    // ImageLength
      .AddShort(0x0102, 8)     // BitsPerSample
      .AddShort(0x0103, 1)     // Compression: none
      .AddShort(0x0106, 1)     // PhotometricInterpretation: black is zero
      .AddLong(0x0111, 256)    // StripOffsets
      .AddShort(0x0115, 1)     // SamplesPerPixel
      .AddLong(0x0116, 64)     // RowsPerStrip
      .AddLong(0x0117, 4096);  // StripByteCounts
  ifd.SetNext(0);
  KpzFile file(order);
  file.Header(8).PlaceIfd(8, ifd).Place(256, kpztest::PatternBytes(4096, 3)).PadTo(8192);
  return file.Take();
}

struct Case {
  const char* name;
  std::function<Bytes(DtNlByteOrder)> make;
  const char* reason;  // the words inside "not a KPZ raw file (...)"
};

Bytes Build(DtNlByteOrder order, const std::function<void(KpzSpec&)>& edit) {
  KpzSpec recipe;
  recipe.order = order;
  edit(recipe);
  return kpztest::BuildKpz(recipe);
}

class KpzLayoutReasons : public testing::TestWithParam<std::tuple<Case, DtNlByteOrder>> {
 protected:
  const Case& C() const { return std::get<0>(GetParam()); }
  DtNlByteOrder Order() const { return std::get<1>(GetParam()); }
};

// The preview and thumbnail readers (the head read by the kit, parsed in
// buffer mode) and the metadata reader (the library's file mode, then the
// kit's re-read) give the same words.
TEST_P(KpzLayoutReasons, EveryReaderGivesTheReason) {
  kpztest::TempDir dir;
  const Bytes bytes = C().make(Order());
  const std::string path = dir.Write("f.kpz", bytes);
  ASSERT_FALSE(path.empty());
  const std::string words = std::string("not a KPZ raw file (") + C().reason + ")";

  for (const KpzPictureReader::Kind kind :
       {KpzPictureReader::Kind::Preview, KpzPictureReader::Kind::Thumbnail}) {
    std::vector<UINT8> out{0xEE};
    std::string error;
    bool ok = true;
    kpztest::CaptureStderr([&] { ok = kpztest::ReadPicture(path, kind, &out, &error); });
    EXPECT_FALSE(ok);
    EXPECT_TRUE(out.empty());
    EXPECT_EQ(error, words) << KpzPictureReader::Name(kind);
  }

  KpzMetadata md;
  bool ok = true;
  kpztest::CaptureStderr([&] { ok = KpzMetadataReader::Read(path, &md); });
  EXPECT_FALSE(ok);
  EXPECT_EQ(md.error, words);

  // The head alone gives the same: the entry point a binding calls.
  std::vector<UINT8> head(KpzSource::kHeadSize, 0);
  CopyHead(bytes, &head);
  KpzSource memory;
  memory.OpenMemory(head.data(), head.size(), bytes.size());
  KpzMetadata fromHead;
  kpztest::CaptureStderr([&] { ok = KpzMetadataReader::ReadHead(memory, "", &fromHead); });
  EXPECT_FALSE(ok);
  EXPECT_EQ(fromHead.error, words);
}

std::vector<Case> Cases() {
  return {
      Case{"OrdinaryTiffWithOneDirectory", OrdinaryTiff,
           "only one directory, no second one after IFD0"},
      Case{"SecondDirectoryPastTheEnd",
           [](DtNlByteOrder o) { return Build(o, [](KpzSpec& r) { r.ifd1Pointer = kFar; }); },
           "IFD1 lies past the end of the file"},
      Case{
          "SecondDirectoryAtTwoGiB",
          [](DtNlByteOrder o) { return Build(o, [](KpzSpec& r) { r.ifd1Pointer = 0x80000010u; }); },
          "IFD1 lies past the end of the file"},
      Case{"FirstDirectoryBeyondTheHead",
           [](DtNlByteOrder o) {
             return Build(o, [](KpzSpec& r) {
               r.ifd0Offset = 0x18000;
               r.minTotalSize = 0x20000;
             });
           },
           "IFD0 lies beyond the first 64 KiB"},
      Case{"FirstDirectoryAtZero",
           [](DtNlByteOrder o) { return Build(o, [](KpzSpec& r) { r.ifd0Offset = 0; }); },
           "the offset of IFD0 is 0"},
      Case{"FirstDirectoryRunsPastTheEnd",
           [](DtNlByteOrder o) {
             // 6,000 entries (72,000 bytes) in a file of a few hundred bytes.
             return Build(
                 o, [](KpzSpec& r) { r.editIfd0 = [](Ifd& ifd) { ifd.SetCountOverride(6000); }; });
           },
           "IFD0 runs past the end of the file"},
      Case{"FirstDirectoryRunsBeyondTheHead",
           [](DtNlByteOrder o) {
             return Build(o, [](KpzSpec& r) {
               r.editIfd0 = [](Ifd& ifd) { ifd.SetCountOverride(6000); };
               r.minTotalSize = 0x20000;
             });
           },
           "IFD0 runs beyond the first 64 KiB"},
      Case{"ExifDirectoryPastTheEnd",
           [](DtNlByteOrder o) { return Build(o, [](KpzSpec& r) { r.exifPointer = kFar; }); },
           "the Exif directory lies past the end of the file"},
      Case{"ExifDirectoryAtZero",
           [](DtNlByteOrder o) { return Build(o, [](KpzSpec& r) { r.exifPointer = 0; }); },
           "the offset of the Exif directory is 0"},
      Case{"InteroperabilityDirectoryPastTheEnd",
           [](DtNlByteOrder o) { return Build(o, [](KpzSpec& r) { r.iobPointer = kFar; }); },
           "the interoperability directory lies past the end of the file"},
      Case{"MakerNoteBeyondTheHead",
           [](DtNlByteOrder o) {
             return Build(o, [](KpzSpec& r) {
               r.makerNotePointer = 0x12000;
               r.minTotalSize = 0x20000;
             });
           },
           "the maker note lies beyond the first 64 KiB"},
      Case{"M372MakerNotePastTheEnd",
           [](DtNlByteOrder o) {
             return Build(o, [](KpzSpec& r) {
               r.m372 = true;
               r.makerNotePointer = kFar;
             });
           },
           "the maker note lies past the end of the file"},
      Case{"KmMakerNotePastTheEnd",
           [](DtNlByteOrder o) {
             return Build(o, [](KpzSpec& r) {
               r.m372 = true;
               r.kmPointer = kFar;
             });
           },
           "the Km maker note lies past the end of the file"},
      Case{"ValuePastTheEnd",
           [](DtNlByteOrder o) {
             return Build(o, [](KpzSpec& r) {
               r.editIfd0 = [](Ifd& ifd) {
                 ifd.ReplaceRaw(tag::kModel, kpztest::kTiffAscii, 20, kFar);
               };
             });
           },
           "a value in IFD0 lies past the end of the file"},
      Case{"ValueBeyondTheHead",
           [](DtNlByteOrder o) {
             return Build(o, [](KpzSpec& r) {
               r.editIfd0 = [](Ifd& ifd) {
                 ifd.ReplaceRaw(tag::kModel, kpztest::kTiffAscii, 20, 0x18000);
               };
               r.minTotalSize = 0x20000;
             });
           },
           "a value in IFD0 lies beyond the first 64 KiB"},
      Case{"ValueRunsBeyondTheHead",
           [](DtNlByteOrder o) {
             return Build(o, [](KpzSpec& r) {
               r.editExif = [](Ifd& ifd) {
                 ifd.ReplaceRaw(tag::kDateTimeOriginal, kpztest::kTiffAscii, 20, 0xFFF8);
               };
               r.minTotalSize = 0x20000;
             });
           },
           "a value in the Exif directory runs beyond the first 64 KiB"},
      Case{"NoCameraModel",
           [](DtNlByteOrder o) { return Build(o, [](KpzSpec& r) { r.model.reset(); }); },
           "no camera model"},
      Case{"EmptyCameraModel",
           [](DtNlByteOrder o) {
             return Build(o, [](KpzSpec& r) {
               r.editIfd0 = [](Ifd& ifd) {
                 ifd.ReplaceRaw(tag::kModel, kpztest::kTiffAscii, 0, 0);
               };
             });
           },
           "the camera model is empty"},
      Case{"LongCameraModel",
           [](DtNlByteOrder o) {
             return Build(o, [](KpzSpec& r) { r.model = std::string(40, 'M'); });
           },
           "the camera model is longer than 32 bytes"},
      Case{"NoExifData",
           [](DtNlByteOrder o) { return Build(o, [](KpzSpec& r) { r.hasExif = false; }); },
           "no Exif data"},
      Case{"ShortExifPointer",
           [](DtNlByteOrder o) {
             return Build(o, [](KpzSpec& r) {
               r.editIfd0 = [](Ifd& ifd) {
                 ifd.ReplaceRaw(tag::kExifPointer, kpztest::kTiffShort, 1, 0x40);
               };
             });
           },
           "the Exif pointer is not a 4-byte offset (it has 2 bytes)"},
      Case{"NoMakerNote",
           [](DtNlByteOrder o) { return Build(o, [](KpzSpec& r) { r.hasMakerNote = false; }); },
           "no maker note"},
      Case{"M372MakerNoteWithoutItsHeader",
           [](DtNlByteOrder o) {
             return Build(o, [](KpzSpec& r) {
               r.m372 = true;
               r.makerNoteHeader = Bytes{'N', 'O', 'T', 'E'};
             });
           },
           "the maker note has no KAVI header"},
      Case{"M372WithoutKmPointer",
           [](DtNlByteOrder o) {
             return Build(o, [](KpzSpec& r) {
               r.m372 = true;
               r.editMakerNote = [](Ifd& ifd) { ifd.Remove(tag::kKmPointer); };
             });
           },
           "no pointer to the Km maker note"},
      Case{"M372WithShortKmPointer",
           [](DtNlByteOrder o) {
             return Build(o, [](KpzSpec& r) {
               r.m372 = true;
               r.editMakerNote = [](Ifd& ifd) {
                 ifd.ReplaceRaw(tag::kKmPointer, kpztest::kTiffByte, 3, 0);
               };
             });
           },
           "the pointer to the Km maker note is not a 4-byte offset (it has 3 bytes)"},
      Case{"JunkWithoutTiffHeader", [](DtNlByteOrder) { return Bytes(40, 'j'); }, "no TIFF header"},
      Case{"EmptyFile", [](DtNlByteOrder) { return Bytes(); }, "the file is empty"},
      Case{"FileEndsInItsHeader",
           [](DtNlByteOrder o) {
             KpzFile file(o);
             file.Header(8).Truncate(6);
             return file.Take();
           },
           "the file ends within its TIFF header"},
  };
}

INSTANTIATE_TEST_SUITE_P(EachReason, KpzLayoutReasons,
                         testing::Combine(testing::ValuesIn(Cases()),
                                          testing::Values(DtNlLittleEndian, DtNlBigEndian)),
                         [](const testing::TestParamInfo<std::tuple<Case, DtNlByteOrder>>& p) {
                           return std::string(std::get<0>(p.param).name) +
                                  (std::get<1>(p.param) == DtNlLittleEndian ? "_LittleEndian"
                                                                            : "_BigEndian");
                         });

// --- The walk against the library -------------------------------------------

struct Head {
  std::vector<UINT8> bytes = std::vector<UINT8>(KpzSource::kHeadSize, 0);
  std::uint64_t fileSize = 0;
};

Head HeadOf(const Bytes& file, std::uint64_t fileSize) {
  Head h;
  CopyHead(file, &h.bytes);
  h.fileSize = fileSize;
  return h;
}

// The library's result over the head, in buffer mode (the head is copied:
// the library is given its own block).
int LibraryResult(const Head& h) {
  std::vector<UINT8> copy = h.bytes;
  DtRaw raw;
  const int result = raw.InitializeBuf(copy.data(), static_cast<int>(copy.size()));
  raw.Finalize();
  return result;
}

// Checks one head: the walk's code is the library's, a failure has a reason
// with words, a success has none. Returns false (after reporting) on a
// difference.
bool Agrees(const Head& h, const std::string& what) {
  const int library = LibraryResult(h);
  const DtRawLayoutCheck::Finding f = DtRawLayoutCheck::Inspect(h.bytes.data(), h.fileSize);
  const std::string words = WordsOf(f);
  EXPECT_EQ(f.m_code, library) << what << " (" << words << ")";
  if (f.m_code != library) {
    return false;
  }
  if (library == DtRawOk) {
    EXPECT_EQ(f.m_reason, DtRawLayoutCheck::ReasonNone) << what;
    return f.m_reason == DtRawLayoutCheck::ReasonNone;
  }
  EXPECT_FALSE(words.empty()) << what << " code " << library;
  return !words.empty();
}

// The starting points of the damage: standard files in both byte orders,
// with and without the M372 maker notes, small and larger than the head.
std::vector<Bytes> Seeds() {
  std::vector<Bytes> seeds;
  for (const DtNlByteOrder order : {DtNlLittleEndian, DtNlBigEndian}) {
    for (const bool m372 : {false, true}) {
      for (const std::uint32_t total : {0u, 0x18000u}) {
        KpzSpec r;
        r.order = order;
        r.m372 = m372;
        r.minTotalSize = total;
        seeds.push_back(kpztest::BuildKpz(r));
      }
    }
    seeds.push_back(OrdinaryTiff(order));
  }
  return seeds;
}

// Damaged heads: numbers that matter to the walk (offsets at and around the
// end of the file and of the head, 0, 2 GiB, the largest) written over
// random places of the structures, random bytes, and cuts.
TEST(KpzLayoutCheck, AgreesWithTheLibraryOnDamagedFiles) {
  std::mt19937 rng(20261125);
  const std::vector<Bytes> seeds = Seeds();
  int checked = 0;
  int failures = 0;
  int disagreements = 0;
  const std::string err = kpztest::CaptureStderr([&] {
    for (int i = 0; i < 6000 && disagreements < 5; ++i) {
      Bytes file = seeds[Next(rng) % seeds.size()];
      const std::uint32_t structures = std::min<std::uint32_t>(
          static_cast<std::uint32_t>(file.size()), 1024);  // the directories lie in here
      const int edits = 1 + static_cast<int>(Next(rng) % 3);
      for (int e = 0; e < edits; ++e) {
        const std::uint32_t at = Next(rng) % (structures - 4);
        const std::uint32_t size = static_cast<std::uint32_t>(file.size());
        const std::uint32_t values[] = {0,
                                        1,
                                        8,
                                        size - 2,
                                        size,
                                        size + 100,
                                        0xFFF0,
                                        0xFFFA,
                                        0xFFFE,
                                        0x10000,
                                        0x18000,
                                        0x7FFFFFFF,
                                        0x80000000,
                                        0xFFFFFFF4,
                                        0xFFFFFFFF,
                                        Next(rng) % 0x20000,
                                        Next(rng) % 65535};
        switch (Next(rng) % 3) {
          case 0: {  // a 32-bit number
            const std::uint32_t v = values[Next(rng) % (sizeof values / sizeof values[0])];
            for (std::uint32_t b = 0; b < 4; ++b) {
              file[at + b] = static_cast<std::uint8_t>(v >> (8 * b));
            }
            break;
          }
          case 1: {  // a 16-bit count or type
            const std::uint16_t v =
                static_cast<std::uint16_t>(Next(rng) % 2 ? Next(rng) % 16 : Next(rng));
            file[at] = static_cast<std::uint8_t>(v);
            file[at + 1] = static_cast<std::uint8_t>(v >> 8);
            break;
          }
          default:
            file[at] = static_cast<std::uint8_t>(Next(rng));
            break;
        }
      }
      if (Next(rng) % 4 == 0) {
        file.resize(Next(rng) % (file.size() + 1));  // cut: zeros after the end
      }
      const Head h = HeadOf(file, file.size());
      const bool ok = Agrees(h, "damaged file " + std::to_string(i));
      disagreements += ok ? 0 : 1;
      failures += LibraryResult(h) != DtRawOk ? 1 : 0;
      ++checked;
    }
  });
  EXPECT_EQ(disagreements, 0);
  EXPECT_EQ(checked, 6000);
  // The damage reached the structures: most heads fail, some still parse.
  EXPECT_GT(failures, 1000);
  EXPECT_LT(failures, checked);
}

// Random heads behind a valid TIFF header, random sizes of file.
TEST(KpzLayoutCheck, AgreesWithTheLibraryOnRandomHeads) {
  std::mt19937 rng(42);
  int disagreements = 0;
  const std::string err = kpztest::CaptureStderr([&] {
    for (int i = 0; i < 400 && disagreements < 5; ++i) {
      Head h;
      const bool big = Next(rng) % 2 == 0;
      // Small numbers are more often offsets and counts that fit.
      for (std::size_t b = 8; b < h.bytes.size(); ++b) {
        h.bytes[b] = static_cast<UINT8>(Next(rng) % 4 == 0 ? Next(rng) : Next(rng) % 3);
      }
      const UINT8 header[8] = {static_cast<UINT8>(big ? 'M' : 'I'),
                               static_cast<UINT8>(big ? 'M' : 'I'),
                               static_cast<UINT8>(big ? 0 : 42),
                               static_cast<UINT8>(big ? 42 : 0),
                               0,
                               0,
                               0,
                               0};
      std::copy(header, header + 8, h.bytes.begin());
      const std::uint32_t ifd0 = Next(rng) % 0x11000;
      for (std::size_t b = 0; b < 4; ++b) {
        h.bytes[big ? 7 - b : 4 + b] = static_cast<UINT8>(ifd0 >> (8 * b));
      }
      const std::uint64_t sizes[] = {
          0, 7, 8, 100, 0xFFFF, 0x10000, 0x20000, 0xFFFFFFFFull, Next(rng) % 0x30000};
      h.fileSize = sizes[Next(rng) % (sizeof sizes / sizeof sizes[0])];
      disagreements += Agrees(h, "random head " + std::to_string(i)) ? 0 : 1;
    }
  });
  EXPECT_EQ(disagreements, 0);
}

// A head that is all ones, all zeros, or the header alone, with every size.
TEST(KpzLayoutCheck, HostileHeadsNeverCrashAndAgree) {
  const std::string err = kpztest::CaptureStderr([&] {
    for (const int fill : {0x00, 0xFF, 0x2A}) {
      for (const std::uint64_t size : {0ull, 1ull, 8ull, 0x10000ull, 0x100000000ull}) {
        Head h;
        std::fill(h.bytes.begin(), h.bytes.end(), static_cast<UINT8>(fill));
        h.fileSize = size;
        Agrees(h, "filled head");
        h.bytes[0] = h.bytes[1] = 'M';
        h.bytes[2] = 0;
        h.bytes[3] = 42;
        Agrees(h, "filled head behind a header");
      }
    }
  });
  EXPECT_EQ(DtRawLayoutCheck::Inspect(nullptr, 100).m_code, DtRawOk);
}

TEST(KpzLayoutCheck, StandardFilesParse) {
  for (const Bytes& seed : Seeds()) {
    const Head h = HeadOf(seed, seed.size());
    const DtRawLayoutCheck::Finding f = DtRawLayoutCheck::Inspect(h.bytes.data(), h.fileSize);
    if (seed.size() == 8192) {
      EXPECT_EQ(f.m_reason, DtRawLayoutCheck::ReasonOneDirectory);  // the ordinary TIFF
      continue;
    }
    EXPECT_EQ(f.m_code, DtRawOk);
    EXPECT_EQ(WordsOf(f), "");
  }
}

// An offset of 2 GiB or more is read by the library at offset 0 (it takes
// offsets as signed 32-bit numbers); the reason still names where the part
// lies: past the end of a small file, beyond the head of a file that large.
TEST(KpzLayoutCheck, OffsetsOfTwoGiBAndMoreAreNamedByWhereThePartLies) {
  for (const DtNlByteOrder order : {DtNlLittleEndian, DtNlBigEndian}) {
    const Bytes ifd1 = Build(order, [](KpzSpec& r) { r.ifd1Pointer = 0x80000010u; });
    Head h = HeadOf(ifd1, ifd1.size());
    int library = 0;
    kpztest::CaptureStderr([&] { library = LibraryResult(h); });
    EXPECT_EQ(library, DtRawErrRead);
    DtRawLayoutCheck::Finding f = DtRawLayoutCheck::Inspect(h.bytes.data(), h.fileSize);
    EXPECT_EQ(f.m_code, DtRawErrRead);
    EXPECT_EQ(WordsOf(f), "IFD1 lies past the end of the file");
    h.fileSize = 0x100000000ull;  // the same head in a 4 GiB file
    f = DtRawLayoutCheck::Inspect(h.bytes.data(), h.fileSize);
    EXPECT_EQ(WordsOf(f), "IFD1 lies beyond the first 64 KiB");

    // The M372 maker note's header is then the TIFF header: -101, not -307.
    const Bytes note = Build(order, [](KpzSpec& r) {
      r.m372 = true;
      r.makerNotePointer = 0x90000000u;
    });
    h = HeadOf(note, note.size());
    kpztest::CaptureStderr([&] { library = LibraryResult(h); });
    EXPECT_EQ(library, DtRawErrFormat);
    f = DtRawLayoutCheck::Inspect(h.bytes.data(), h.fileSize);
    EXPECT_EQ(f.m_code, DtRawErrFormat);
    EXPECT_EQ(WordsOf(f), "the maker note lies past the end of the file");
  }
}

}  // namespace

#else

TEST(KpzLayoutCheck, NeedsTheTool) { GTEST_SKIP() << "the kpz tool is not built"; }

#endif
