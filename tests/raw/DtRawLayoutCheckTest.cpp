// DtRawLayoutCheckTest.cpp - the reasons a head does not parse
// (jni/raw/DtRawLayoutCheck), through its own interface: the reason the
// parse recorded in its head channel, its words in a caller's buffer, which
// reasons are damage, and that its code is the facade's. (Every reason and
// its agreement with an independent walk over cut, damaged and random heads
// are in tests/raw/DtRawHeadIoTest.cpp.)
#include "raw/DtRawLayoutCheck.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <tuple>
#include <vector>

#include "raw/DtRaw.h"
#include "raw/DtRawError.h"
#include "raw/DtRawRecord.h"
#include "raw/parser/DtRawHeadIo.h"
#include "support/KpzFileBuilder.h"

namespace {

struct Head {
  std::vector<UINT8> bytes = std::vector<UINT8>(DtRawLayoutCheck::HEAD_SIZE, 0);
  std::uint64_t fileSize = 0;
};

Head HeadOf(const std::vector<std::uint8_t>& file) {
  Head h;
  if (!file.empty()) {  // an empty vector's data() may be null
    std::memcpy(h.bytes.data(), file.data(), std::min(file.size(), h.bytes.size()));
  }
  h.fileSize = file.size();
  return h;
}

// The facade's result over the same head.
int FacadeCode(Head& h) {
  DtRaw raw;
  return raw.InitializeBuf(h.bytes.data(), static_cast<int>(h.bytes.size()));
}

// The reason the facade's parse of the head recorded in a head channel.
DtRawLayoutCheck::Finding RecordedOf(Head& h) {
  DtRawHeadIo io(h.fileSize);
  DtRaw raw;
  DtRawRecord::ParseThrough(&raw, &io);
  const int code = raw.InitializeBuf(h.bytes.data(), static_cast<int>(h.bytes.size()));
  return DtRawLayoutCheck::Recorded(io, code);
}

std::string WordsOf(const DtRawLayoutCheck::Finding& f) {
  char out[DtRawLayoutCheck::WORDS_SIZE];
  const UINT n = DtRawLayoutCheck::Words(f, out, sizeof out);
  EXPECT_EQ(n, std::strlen(out));
  return out;
}

TEST(DtRawLayoutCheck, AGoodFileParses) {
  Head h = HeadOf(kpztest::BuildKpz(kpztest::KpzSpec()));
  const DtRawLayoutCheck::Finding f = RecordedOf(h);
  EXPECT_EQ(f.m_code, DtRawOk);
  EXPECT_EQ(f.m_reason, DtRawLayoutCheck::ReasonNone);
  EXPECT_EQ(WordsOf(f), "");
  EXPECT_EQ(FacadeCode(h), DtRawOk);
}

TEST(DtRawLayoutCheck, ReasonsAgreeWithTheFacadeAndSayWhetherTheFileIsDamaged) {
  struct Case {
    const char* name;
    kpztest::KpzSpec recipe;
    const char* words;
    bool damage;
  };
  std::vector<Case> cases;
  {
    Case c{"ifd1 past the end", {}, "IFD1 lies past the end of the file", true};
    c.recipe.ifd1Pointer = 0x00F00000u;
    cases.push_back(c);
  }
  {
    Case c{"exif past the end", {}, "the Exif directory lies past the end of the file", true};
    c.recipe.exifPointer = 0x00F00000u;
    cases.push_back(c);
  }
  {
    Case c{"one directory", {}, "only one directory, no second one after IFD0", false};
    c.recipe.hasIfd1 = false;
    cases.push_back(c);
  }
  {
    Case c{"no model", {}, "no camera model", false};
    c.recipe.model.reset();
    cases.push_back(c);
  }
  {
    Case c{"no maker note", {}, "no maker note", false};
    c.recipe.hasMakerNote = false;
    cases.push_back(c);
  }
  {
    Case c{"ifd1 beyond the head", {}, "IFD1 lies beyond the first 64 KiB", false};
    c.recipe.ifd1Pointer = 0x00011000u;
    c.recipe.minTotalSize = 0x00020000u;
    cases.push_back(c);
  }
  for (Case& c : cases) {
    Head h = HeadOf(kpztest::BuildKpz(c.recipe));
    const DtRawLayoutCheck::Finding f = RecordedOf(h);
    EXPECT_EQ(f.m_code, FacadeCode(h)) << c.name;
    EXPECT_NE(f.m_code, DtRawOk) << c.name;
    EXPECT_EQ(WordsOf(f), c.words) << c.name;
    EXPECT_EQ(DtRawLayoutCheck::IsDamage(f.m_reason), c.damage) << c.name;
  }
}

TEST(DtRawLayoutCheck, ShortFilesAndNoTiff) {
  Head empty = HeadOf({});
  DtRawLayoutCheck::Finding f = RecordedOf(empty);
  EXPECT_EQ(f.m_code, DtRawErrNotTiff);
  EXPECT_EQ(WordsOf(f), "the file is empty");
  EXPECT_FALSE(DtRawLayoutCheck::IsDamage(f.m_reason));

  std::vector<std::uint8_t> cut = kpztest::BuildKpz(kpztest::KpzSpec());
  cut.resize(5);
  Head h = HeadOf(cut);
  f = RecordedOf(h);
  EXPECT_EQ(f.m_code, FacadeCode(h));
  EXPECT_EQ(WordsOf(f), "the file ends within its TIFF header");
  EXPECT_TRUE(DtRawLayoutCheck::IsDamage(f.m_reason));

  Head text = HeadOf(kpztest::AsciiBytes("hello, world", false));
  f = RecordedOf(text);
  EXPECT_EQ(WordsOf(f), "no TIFF header");
  // Nothing recorded: no reason.
  const DtRawHeadIo nothing(100);
  EXPECT_EQ(DtRawLayoutCheck::Recorded(nothing, DtRawErrRead).m_reason,
            DtRawLayoutCheck::ReasonNone);
}

TEST(DtRawLayoutCheck, WordsInASmallBufferAreCutAndTerminated) {
  DtRawLayoutCheck::Finding f;
  f.m_code = DtRawErrRead;
  f.m_reason = DtRawLayoutCheck::ReasonRunsBeyondHead;
  f.m_part = DtRawLayoutCheck::PartMakerNote;
  f.m_value = true;
  const std::string whole = "a value in the maker note runs beyond the first 64 KiB";
  char out[10];
  EXPECT_EQ(DtRawLayoutCheck::Words(f, out, sizeof out), whole.size());
  EXPECT_EQ(std::string(out), whole.substr(0, 9));
  EXPECT_EQ(DtRawLayoutCheck::Words(f, nullptr, 0), whole.size());
  f.m_reason = DtRawLayoutCheck::ReasonBadKmPointer;
  f.m_bytes = 18446744073709551615ull;
  char big[DtRawLayoutCheck::WORDS_SIZE];
  EXPECT_LT(DtRawLayoutCheck::Words(f, big, sizeof big), DtRawLayoutCheck::WORDS_SIZE);
  EXPECT_EQ(std::string(big),
            "the pointer to the Km maker note is not a 4-byte offset (it has "
            "18446744073709551615 bytes)");
}

// ---- every reason, in both byte orders -------------------------------------

using kpztest::Bytes;
using kpztest::Ifd;
using kpztest::KpzFile;
using kpztest::KpzSpec;
namespace tag = kpztest::tag;

const std::uint32_t kFar = 0x00FFFFF0;  // beyond every small file here

// An ordinary TIFF as image libraries write it: one directory (a 64x64
// 8-bit grey strip image) at offset 8 whose next-directory offset is 0,
// 8 KiB in all.
kpztest::Bytes OrdinaryTiff(DtNlByteOrder order) {
  kpztest::Ifd ifd(order);
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
  kpztest::KpzFile file(order);
  file.Header(8).PlaceIfd(8, ifd).Place(256, kpztest::PatternBytes(4096, 3)).PadTo(8192);
  return file.Take();
}

struct Case {
  const char* name;
  std::function<kpztest::Bytes(DtNlByteOrder)> make;
  const char* reason;  // the words inside "not a KPZ raw file (...)"
};

kpztest::Bytes Build(DtNlByteOrder order, const std::function<void(kpztest::KpzSpec&)>& edit) {
  kpztest::KpzSpec recipe;
  recipe.order = order;
  edit(recipe);
  return kpztest::BuildKpz(recipe);
}

class DtRawLayoutReasons : public testing::TestWithParam<std::tuple<Case, DtNlByteOrder>> {
 protected:
  const Case& C() const { return std::get<0>(GetParam()); }
  DtNlByteOrder Order() const { return std::get<1>(GetParam()); }
};

// The reason the parse records, and the words of the record's failure that
// every front end shows.
TEST_P(DtRawLayoutReasons, TheParseRecordsTheReasonAndTheRecordTellsIt) {
  const kpztest::Bytes bytes = C().make(Order());
  Head h = HeadOf(bytes);
  const DtRawLayoutCheck::Finding f = RecordedOf(h);
  EXPECT_EQ(f.m_code, FacadeCode(h));
  EXPECT_EQ(WordsOf(f), C().reason);
  const DtRawExpected<DtRawRecord> record =
      DtRawRecord::Parse(bytes.data(), bytes.size(), bytes.size());
  ASSERT_FALSE(record.Ok());
  EXPECT_EQ(record.Failure().m_kind, DtRawFailure::KindNotKpz);
  EXPECT_EQ(std::string(record.Failure().m_words),
            std::string("not a KPZ raw file (") + C().reason + ")");
}

std::vector<Case> Cases() {
  return {
      Case{"OrdinaryTiffWithOneDirectory", OrdinaryTiff,
           "only one directory, no second one after IFD0"},
      Case{"SecondDirectoryPastTheEnd",
           [](DtNlByteOrder o) { return Build(o, [](kpztest::KpzSpec& r) { r.ifd1Pointer = kFar; }); },
           "IFD1 lies past the end of the file"},
      Case{
          "SecondDirectoryAtTwoGiB",
          [](DtNlByteOrder o) { return Build(o, [](kpztest::KpzSpec& r) { r.ifd1Pointer = 0x80000010u; }); },
          "IFD1 lies past the end of the file"},
      Case{"FirstDirectoryBeyondTheHead",
           [](DtNlByteOrder o) {
             return Build(o, [](kpztest::KpzSpec& r) {
               r.ifd0Offset = 0x18000;
               r.minTotalSize = 0x20000;
             });
           },
           "IFD0 lies beyond the first 64 KiB"},
      Case{"FirstDirectoryAtZero",
           [](DtNlByteOrder o) { return Build(o, [](kpztest::KpzSpec& r) { r.ifd0Offset = 0; }); },
           "the offset of IFD0 is 0"},
      Case{"FirstDirectoryRunsPastTheEnd",
           [](DtNlByteOrder o) {
             // 6,000 entries (72,000 bytes) in a file of a few hundred bytes.
             return Build(
                 o, [](kpztest::KpzSpec& r) { r.editIfd0 = [](kpztest::Ifd& ifd) { ifd.SetCountOverride(6000); }; });
           },
           "IFD0 runs past the end of the file"},
      Case{"FirstDirectoryRunsBeyondTheHead",
           [](DtNlByteOrder o) {
             return Build(o, [](kpztest::KpzSpec& r) {
               r.editIfd0 = [](kpztest::Ifd& ifd) { ifd.SetCountOverride(6000); };
               r.minTotalSize = 0x20000;
             });
           },
           "IFD0 runs beyond the first 64 KiB"},
      Case{"ExifDirectoryPastTheEnd",
           [](DtNlByteOrder o) { return Build(o, [](kpztest::KpzSpec& r) { r.exifPointer = kFar; }); },
           "the Exif directory lies past the end of the file"},
      Case{"ExifDirectoryAtZero",
           [](DtNlByteOrder o) { return Build(o, [](kpztest::KpzSpec& r) { r.exifPointer = 0; }); },
           "the offset of the Exif directory is 0"},
      Case{"InteroperabilityDirectoryPastTheEnd",
           [](DtNlByteOrder o) { return Build(o, [](kpztest::KpzSpec& r) { r.iobPointer = kFar; }); },
           "the interoperability directory lies past the end of the file"},
      Case{"MakerNoteBeyondTheHead",
           [](DtNlByteOrder o) {
             return Build(o, [](kpztest::KpzSpec& r) {
               r.makerNotePointer = 0x12000;
               r.minTotalSize = 0x20000;
             });
           },
           "the maker note lies beyond the first 64 KiB"},
      Case{"M372MakerNotePastTheEnd",
           [](DtNlByteOrder o) {
             return Build(o, [](kpztest::KpzSpec& r) {
               r.m372 = true;
               r.makerNotePointer = kFar;
             });
           },
           "the maker note lies past the end of the file"},
      Case{"KmMakerNotePastTheEnd",
           [](DtNlByteOrder o) {
             return Build(o, [](kpztest::KpzSpec& r) {
               r.m372 = true;
               r.kmPointer = kFar;
             });
           },
           "the Km maker note lies past the end of the file"},
      Case{"ValuePastTheEnd",
           [](DtNlByteOrder o) {
             return Build(o, [](kpztest::KpzSpec& r) {
               r.editIfd0 = [](kpztest::Ifd& ifd) {
                 ifd.ReplaceRaw(tag::kModel, kpztest::kTiffAscii, 20, kFar);
               };
             });
           },
           "a value in IFD0 lies past the end of the file"},
      Case{"ValueBeyondTheHead",
           [](DtNlByteOrder o) {
             return Build(o, [](kpztest::KpzSpec& r) {
               r.editIfd0 = [](kpztest::Ifd& ifd) {
                 ifd.ReplaceRaw(tag::kModel, kpztest::kTiffAscii, 20, 0x18000);
               };
               r.minTotalSize = 0x20000;
             });
           },
           "a value in IFD0 lies beyond the first 64 KiB"},
      Case{"ValueRunsBeyondTheHead",
           [](DtNlByteOrder o) {
             return Build(o, [](kpztest::KpzSpec& r) {
               r.editExif = [](kpztest::Ifd& ifd) {
                 ifd.ReplaceRaw(tag::kDateTimeOriginal, kpztest::kTiffAscii, 20, 0xFFF8);
               };
               r.minTotalSize = 0x20000;
             });
           },
           "a value in the Exif directory runs beyond the first 64 KiB"},
      Case{"NoCameraModel",
           [](DtNlByteOrder o) { return Build(o, [](kpztest::KpzSpec& r) { r.model.reset(); }); },
           "no camera model"},
      Case{"EmptyCameraModel",
           [](DtNlByteOrder o) {
             return Build(o, [](kpztest::KpzSpec& r) {
               r.editIfd0 = [](kpztest::Ifd& ifd) {
                 ifd.ReplaceRaw(tag::kModel, kpztest::kTiffAscii, 0, 0);
               };
             });
           },
           "the camera model is empty"},
      Case{"LongCameraModel",
           [](DtNlByteOrder o) {
             return Build(o, [](kpztest::KpzSpec& r) { r.model = std::string(40, 'M'); });
           },
           "the camera model is longer than 32 bytes"},
      Case{"NoExifData",
           [](DtNlByteOrder o) { return Build(o, [](kpztest::KpzSpec& r) { r.hasExif = false; }); },
           "no Exif data"},
      Case{"ShortExifPointer",
           [](DtNlByteOrder o) {
             return Build(o, [](kpztest::KpzSpec& r) {
               r.editIfd0 = [](kpztest::Ifd& ifd) {
                 ifd.ReplaceRaw(tag::kExifPointer, kpztest::kTiffShort, 1, 0x40);
               };
             });
           },
           "the Exif pointer is not a 4-byte offset (it has 2 bytes)"},
      Case{"NoMakerNote",
           [](DtNlByteOrder o) { return Build(o, [](kpztest::KpzSpec& r) { r.hasMakerNote = false; }); },
           "no maker note"},
      Case{"M372MakerNoteWithoutItsHeader",
           [](DtNlByteOrder o) {
             return Build(o, [](kpztest::KpzSpec& r) {
               r.m372 = true;
               r.makerNoteHeader = Bytes{'N', 'O', 'T', 'E'};
             });
           },
           "the maker note has no KAVI header"},
      Case{"M372WithoutKmPointer",
           [](DtNlByteOrder o) {
             return Build(o, [](kpztest::KpzSpec& r) {
               r.m372 = true;
               r.editMakerNote = [](kpztest::Ifd& ifd) { ifd.Remove(tag::kKmPointer); };
             });
           },
           "no pointer to the Km maker note"},
      Case{"M372WithShortKmPointer",
           [](DtNlByteOrder o) {
             return Build(o, [](kpztest::KpzSpec& r) {
               r.m372 = true;
               r.editMakerNote = [](kpztest::Ifd& ifd) {
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

INSTANTIATE_TEST_SUITE_P(EachReason, DtRawLayoutReasons,
                         testing::Combine(testing::ValuesIn(Cases()),
                                          testing::Values(DtNlLittleEndian, DtNlBigEndian)),
                         [](const testing::TestParamInfo<std::tuple<Case, DtNlByteOrder>>& p) {
                           return std::string(std::get<0>(p.param).name) +
                                  (std::get<1>(p.param) == DtNlLittleEndian ? "_LittleEndian"
                                                                            : "_BigEndian");
                         });

// An offset of 2 GiB or more is read by the library at offset 0 (it takes
// offsets as signed 32-bit numbers); the reason still names where the part
// lies: past the end of a small file, beyond the head of a file that large.
TEST(DtRawLayoutCheck, OffsetsOfTwoGiBAndMoreAreNamedByWhereThePartLies) {
  for (const DtNlByteOrder order : {DtNlLittleEndian, DtNlBigEndian}) {
    const kpztest::Bytes ifd1 = Build(order, [](kpztest::KpzSpec& r) { r.ifd1Pointer = 0x80000010u; });
    Head h = HeadOf(ifd1);
    int library = 0;
    library = FacadeCode(h);
    EXPECT_EQ(library, DtRawErrRead);
    DtRawLayoutCheck::Finding f = RecordedOf(h);
    EXPECT_EQ(f.m_code, DtRawErrRead);
    EXPECT_EQ(WordsOf(f), "IFD1 lies past the end of the file");
    h.fileSize = 0x100000000ull;  // the same head in a 4 GiB file
    f = RecordedOf(h);
    EXPECT_EQ(WordsOf(f), "IFD1 lies beyond the first 64 KiB");

    // The M372 maker note's header is then the TIFF header: -101, not -307.
    const kpztest::Bytes note = Build(order, [](kpztest::KpzSpec& r) {
      r.m372 = true;
      r.makerNotePointer = 0x90000000u;
    });
    h = HeadOf(note);
    library = FacadeCode(h);
    EXPECT_EQ(library, DtRawErrFormat);
    f = RecordedOf(h);
    EXPECT_EQ(f.m_code, DtRawErrFormat);
    EXPECT_EQ(WordsOf(f), "the maker note lies past the end of the file");
  }
}

}  // namespace
