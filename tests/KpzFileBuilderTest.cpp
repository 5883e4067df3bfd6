#include "support/KpzFileBuilder.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace {

using kpztest::Bytes;
using kpztest::Ifd;
using kpztest::KpzFile;

// Reads a 16/32-bit number of the image in `order` (test-side decoder,
// independent of the library).
std::uint32_t Get(const Bytes& b, std::size_t at, std::size_t width, DtNlByteOrder order) {
  std::uint32_t v = 0;
  for (std::size_t i = 0; i < width; ++i) {
    const std::size_t idx = order == DtNlBigEndian ? at + i : at + width - 1 - i;
    v = (v << 8) | b.at(idx);
  }
  return v;
}

// Offset of the 12-byte entry with `tagId` in the directory at `dir`, or 0.
std::size_t FindEntry(const Bytes& b, std::size_t dir, std::uint16_t tagId, DtNlByteOrder order) {
  const std::uint32_t n = Get(b, dir, 2, order);
  for (std::uint32_t i = 0; i < n; ++i) {
    const std::size_t e = dir + 2 + 12 * i;
    if (Get(b, e, 2, order) == tagId) return e;
  }
  return 0;
}

TEST(KpzFileBuilder, SmallLittleEndianFileMatchesHandWrittenBytes) {
  Ifd ifd(DtNlLittleEndian);
  ifd.AddShort(0x0112, 6).AddAscii(0x0110, "ABCDEF");
  KpzFile file(DtNlLittleEndian);
  file.Header(8).PlaceIfd(8, ifd);
  const Bytes expected = {
      0x49, 0x49, 0x2A, 0x00, 0x08, 0x00, 0x00, 0x00,                          // header
      0x02, 0x00,                                                              // 2 entries
      0x12, 0x01, 0x03, 0x00, 0x01, 0x00, 0x00, 0x00, 0x06, 0x00, 0x00, 0x00,  // SHORT 6 inline
      0x10, 0x01, 0x02, 0x00, 0x07, 0x00, 0x00, 0x00, 0x26, 0x00, 0x00, 0x00,  // ASCII 7 at 38
      0x00, 0x00, 0x00, 0x00,                                                  // next
      'A',  'B',  'C',  'D',  'E',  'F',  0x00, 0x00};                         // value, pad
  EXPECT_EQ(file.Data(), expected);
}

TEST(KpzFileBuilder, SmallBigEndianFileMatchesHandWrittenBytes) {
  Ifd ifd(DtNlBigEndian);
  ifd.AddShort(0x0112, 6).AddAscii(0x0110, "ABCDEF");
  KpzFile file(DtNlBigEndian);
  file.Header(8).PlaceIfd(8, ifd);
  const Bytes expected = {
      0x4D, 0x4D, 0x00, 0x2A, 0x00, 0x00, 0x00, 0x08,                          // header
      0x00, 0x02,                                                              // 2 entries
      0x01, 0x12, 0x00, 0x03, 0x00, 0x00, 0x00, 0x01, 0x00, 0x06, 0x00, 0x00,  // SHORT 6 inline
      0x01, 0x10, 0x00, 0x02, 0x00, 0x00, 0x00, 0x07, 0x00, 0x00, 0x00, 0x26,  // ASCII 7 at 38
      0x00, 0x00, 0x00, 0x00,                                                  // next
      'A',  'B',  'C',  'D',  'E',  'F',  0x00, 0x00};                         // value, pad
  EXPECT_EQ(file.Data(), expected);
}

TEST(KpzFileBuilder, RawPiecesAreWrittenAsGiven) {
  Ifd ifd(DtNlBigEndian);
  ifd.AddRaw(0x0201, 4, 0x40000001u, 0xFFFFFFFFu)
      .AddAt(0x0110, 2, 3, Bytes{'a', 'b', 0}, 0x30)
      .SetNext(8)  // points at itself
      .SetCountOverride(0x7FFF);
  KpzFile file(DtNlBigEndian);
  file.RawHeader(0x494D, 43, 8).PlaceIfd(8, ifd);
  const Bytes expected = {
      0x49, 0x4D, 0x00, 0x2B, 0x00, 0x00, 0x00, 0x08,                          // header
      0x7F, 0xFF,                                                              // count override
      0x02, 0x01, 0x00, 0x04, 0x40, 0x00, 0x00, 0x01, 0xFF, 0xFF, 0xFF, 0xFF,  // raw field
      0x01, 0x10, 0x00, 0x02, 0x00, 0x00, 0x00, 0x03, 0x00, 0x00, 0x00, 0x30,  // value at 0x30
      0x00, 0x00, 0x00, 0x08,                                                  // next: itself
      0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,              // zero gap 38..47
      'a',  'b',  0x00};                                                       // the value
  EXPECT_EQ(file.Data(), expected);
}

TEST(KpzFileBuilder, DuplicateTagsAreKeptInTheOrderAdded) {
  Ifd ifd(DtNlLittleEndian);
  ifd.AddShort(0x0112, 1).AddShort(0x0112, 3);
  const Bytes b = ifd.Serialize(0);
  EXPECT_EQ(Get(b, 0, 2, DtNlLittleEndian), 2u);
  EXPECT_EQ(Get(b, 2 + 8, 2, DtNlLittleEndian), 1u);
  EXPECT_EQ(Get(b, 14 + 8, 2, DtNlLittleEndian), 3u);
}

TEST(KpzFileBuilder, ReplaceAndRemoveEditEntries) {
  Ifd ifd(DtNlLittleEndian);
  ifd.AddShort(1, 1).AddShort(2, 2).AddShort(2, 3);
  EXPECT_TRUE(ifd.Replace(1, 4, 1, kpztest::U32Bytes(9, DtNlLittleEndian)));
  EXPECT_FALSE(ifd.Replace(7, 4, 1, Bytes{}));
  EXPECT_EQ(ifd.Remove(2), 2u);
  ASSERT_EQ(ifd.Entries().size(), 1u);
  EXPECT_EQ(ifd.Entries()[0].type, 4);
  EXPECT_TRUE(ifd.Has(1));
  EXPECT_FALSE(ifd.Has(2));
}

TEST(KpzFileBuilder, PatchPadAndTruncateShapeTheImage) {
  KpzFile file(DtNlBigEndian);
  file.PadTo(4, 0xEE).PatchU16(1, 0x1234).PatchU32(6, 0xA1B2C3D4);
  EXPECT_EQ(file.Data(), (Bytes{0xEE, 0x12, 0x34, 0xEE, 0x00, 0x00, 0xA1, 0xB2, 0xC3, 0xD4}));
  file.Truncate(3).Truncate(5);
  EXPECT_EQ(file.Data(), (Bytes{0xEE, 0x12, 0x34}));
  file.PadToWithPattern(6, 1);
  EXPECT_EQ(file.Size(), 6u);
  EXPECT_EQ(file.Data()[3], kpztest::PatternBytes(3, 1)[0]);
}

TEST(KpzFileBuilder, MakerNoteHeaderPrecedesTheDirectory) {
  Ifd mn(DtNlLittleEndian);
  mn.AddLong(0xB028, 0x1234);
  KpzFile file(DtNlLittleEndian);
  file.PlaceMakerNote(4, mn, kpztest::KaviMakerNoteHeader());
  const Bytes& b = file.Data();
  ASSERT_EQ(b.size(), 4u + 12u + 18u);
  EXPECT_EQ(std::string(b.begin() + 4, b.begin() + 8), "KAVI");
  EXPECT_EQ(Get(b, 16, 2, DtNlLittleEndian), 1u);
  EXPECT_EQ(Get(b, 18, 2, DtNlLittleEndian), 0xB028u);
  EXPECT_EQ(Get(b, 26, 4, DtNlLittleEndian), 0x1234u);
}

TEST(KpzFileBuilder, FakeJpegHasStartAndEndMarkers) {
  const Bytes j = kpztest::FakeJpeg(10);
  ASSERT_EQ(j.size(), 10u);
  EXPECT_EQ(j[0], 0xFF);
  EXPECT_EQ(j[1], 0xD8);
  EXPECT_EQ(j[8], 0xFF);
  EXPECT_EQ(j[9], 0xD9);
  EXPECT_EQ(kpztest::FakeJpeg(2), (Bytes{0xFF, 0xD8}));
}

class KpzFileBuilderOrder : public testing::TestWithParam<DtNlByteOrder> {};

TEST_P(KpzFileBuilderOrder, BuiltFileLinksEveryDirectoryToItsLayoutPosition) {
  const DtNlByteOrder order = GetParam();
  kpztest::KpzSpec description;
  description.order = order;
  kpztest::KpzLayout at;
  const Bytes b = kpztest::BuildKpz(description, &at);
  ASSERT_EQ(b.size(), at.total);
  EXPECT_EQ(Get(b, 0, 2, DtNlBigEndian), order == DtNlBigEndian ? 0x4D4Du : 0x4949u);
  EXPECT_EQ(Get(b, 2, 2, order), 42u);
  EXPECT_EQ(Get(b, 4, 4, order), at.ifd0);

  const std::size_t exifPtr = FindEntry(b, at.ifd0, kpztest::tag::kExifPointer, order);
  ASSERT_NE(exifPtr, 0u);
  EXPECT_EQ(Get(b, exifPtr + 8, 4, order), at.exif);
  const std::uint32_t n0 = Get(b, at.ifd0, 2, order);
  EXPECT_EQ(Get(b, at.ifd0 + 2 + 12 * n0, 4, order), at.ifd1);

  const std::size_t sn = FindEntry(b, at.ifd0, kpztest::tag::kJpegOffset, order);
  ASSERT_NE(sn, 0u);
  EXPECT_EQ(Get(b, sn + 8, 4, order), at.screennail);
  EXPECT_EQ(Bytes(b.begin() + static_cast<std::ptrdiff_t>(at.screennail),
                  b.begin() + static_cast<std::ptrdiff_t>(at.screennail) + 64),
            description.screennail);

  const std::size_t tn = FindEntry(b, at.ifd1, kpztest::tag::kJpegOffset, order);
  ASSERT_NE(tn, 0u);
  EXPECT_EQ(Get(b, tn + 8, 4, order), at.thumbnail);
  EXPECT_EQ(Bytes(b.begin() + static_cast<std::ptrdiff_t>(at.thumbnail),
                  b.begin() + static_cast<std::ptrdiff_t>(at.thumbnail) + 32),
            description.thumbnail);

  const std::size_t mn = FindEntry(b, at.exif, kpztest::tag::kMakerNote, order);
  ASSERT_NE(mn, 0u);
  EXPECT_EQ(Get(b, mn + 4, 4, order), at.makerNoteSize);
  EXPECT_EQ(Get(b, mn + 8, 4, order), at.makerNote);
  EXPECT_EQ(at.makerNoteDir, at.makerNote);  // no header for other models
  EXPECT_EQ(at.km, 0u);

  const std::size_t iob = FindEntry(b, at.exif, kpztest::tag::kIobPointer, order);
  ASSERT_NE(iob, 0u);
  EXPECT_EQ(Get(b, iob + 8, 4, order), at.iob);
  EXPECT_NE(FindEntry(b, at.iob, kpztest::tag::kIobVersion, order), 0u);

  const std::size_t model = FindEntry(b, at.ifd0, kpztest::tag::kModel, order);
  ASSERT_NE(model, 0u);
  EXPECT_EQ(Get(b, model + 4, 4, order), 10u);  // "DSLR-M100" and its zero
}

TEST_P(KpzFileBuilderOrder, M372FileHasKaviHeaderAndKmMakerNote) {
  const DtNlByteOrder order = GetParam();
  kpztest::KpzSpec description;
  description.order = order;
  description.m372 = true;
  description.minTotalSize = 0x12000;
  kpztest::KpzLayout at;
  const Bytes b = kpztest::BuildKpz(description, &at);
  EXPECT_EQ(b.size(), 0x12000u);
  EXPECT_EQ(std::string(b.begin() + static_cast<std::ptrdiff_t>(at.makerNote),
                        b.begin() + static_cast<std::ptrdiff_t>(at.makerNote) + 4),
            "KAVI");
  EXPECT_EQ(at.makerNoteDir, at.makerNote + 12);
  const std::size_t kmPtr = FindEntry(b, at.makerNoteDir, kpztest::tag::kKmPointer, order);
  ASSERT_NE(kmPtr, 0u);
  EXPECT_EQ(Get(b, kmPtr + 8, 4, order), at.km);
  const std::size_t off = FindEntry(b, at.km, kpztest::tag::kKmScreennailOffset, order);
  const std::size_t len = FindEntry(b, at.km, kpztest::tag::kKmScreennailLength, order);
  ASSERT_NE(off, 0u);
  ASSERT_NE(len, 0u);
  EXPECT_EQ(Get(b, off + 8, 4, order), at.screennail);
  EXPECT_EQ(Get(b, len + 8, 4, order), 64u);
  const std::size_t model = FindEntry(b, at.ifd0, kpztest::tag::kModel, order);
  ASSERT_NE(model, 0u);
  const std::uint32_t modelAt = Get(b, model + 8, 4, order);
  EXPECT_EQ(std::string(b.begin() + static_cast<std::ptrdiff_t>(modelAt),
                        b.begin() + static_cast<std::ptrdiff_t>(modelAt) + 10),
            std::string("DSLR-M372\0", 10));
}

TEST_P(KpzFileBuilderOrder, PointerOverridesAndHooksReachTheBytes) {
  const DtNlByteOrder order = GetParam();
  kpztest::KpzSpec description;
  description.order = order;
  description.exifPointer = 0xFFFFFFFFu;
  description.screennailOffset = 0x20000;
  description.editIfd0 = [](Ifd& ifd) { ifd.AddShort(0x0112, 8); };  // duplicate orientation
  kpztest::KpzLayout at;
  const Bytes b = kpztest::BuildKpz(description, &at);
  EXPECT_EQ(at.screennail, 0x20000u);
  EXPECT_EQ(b.size(), 0x20000u + 64u);
  const std::size_t exifPtr = FindEntry(b, at.ifd0, kpztest::tag::kExifPointer, order);
  EXPECT_EQ(Get(b, exifPtr + 8, 4, order), 0xFFFFFFFFu);
  const std::uint32_t n0 = Get(b, at.ifd0, 2, order);
  const std::size_t last = at.ifd0 + 2 + 12 * (n0 - 1);
  EXPECT_EQ(Get(b, last, 2, order), 0x0112u);
  EXPECT_EQ(Get(b, last + 8, 2, order), 8u);
}

INSTANTIATE_TEST_SUITE_P(BothOrders, KpzFileBuilderOrder,
                         testing::Values(DtNlBigEndian, DtNlLittleEndian),
                         [](const testing::TestParamInfo<DtNlByteOrder>& p) {
                           return std::string(p.param == DtNlBigEndian ? "Big" : "Little");
                         });

TEST(KpzFileBuilder, TempDirWritesFilesAndRemovesThemAfterwards) {
  std::string dirPath;
  std::string filePath;
  {
    kpztest::TempDir dir;
    dirPath = dir.Path();
    ASSERT_FALSE(dirPath.empty());
    filePath = dir.Write("x.kpz", Bytes{1, 2, 3});
    ASSERT_EQ(filePath, dirPath + "/x.kpz");
    EXPECT_EQ(kpztest::ReadFileBytes(filePath), (Bytes{1, 2, 3}));
  }
  struct stat st;
  EXPECT_NE(stat(dirPath.c_str(), &st), 0);
}

}  // namespace
