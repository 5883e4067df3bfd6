// KpzFileBuilder.h - composes valid and deliberately broken KPZ raw files in
// code, for tests only (no binary test inputs are committed).
//
// Two layers:
//  * Low level. kpztest::Ifd describes one directory: entries with any tag,
//    type, count and value bytes, kept in the order added (duplicates and
//    unsorted ids allowed). kpztest::KpzFile is a growable byte image: place
//    blocks at chosen offsets (the gap is zero-filled), patch single values,
//    pad and truncate. Nothing is validated: any header, offset or count can
//    be written, which is how the broken variants are made.
//  * High level. kpztest::KpzSpec describes a whole file (names, orientation,
//    date-times, exposure values, screennail, thumbnail, maker notes, byte
//    order); kpztest::BuildKpz lays it out and returns the bytes, and reports
//    where every piece landed in a kpztest::KpzLayout.
//
// On-disk form of one directory as written here (all numbers in the Ifd's
// byte order), placed at absolute offset `at`:
//   at + 0          entry count (16 bits; the number of entries unless overridden)
//   at + 2 + 12*i   entry i: tag (16), type (16), count (32), value-or-offset field (4 bytes)
//   at + 2 + 12*n   next-directory offset (32 bits)
//   at + 6 + 12*n   data area: out-of-line values, in the order added, each at an even offset
// An entry whose value has at most 4 bytes is stored in its field (padded
// with zeros); a longer value goes to the data area, or to an explicit
// absolute offset (AddAt), and the field holds its absolute offset. The
// inline/out-of-line choice depends only on the number of value bytes given,
// never on type and count, so tests can pair any bytes with any type.
//
//   kpztest::Ifd ifd0(DtNlLittleEndian);
//   ifd0.AddAscii(0x0110, "DSLR-M372").AddLong(0x8769, 0x40);
//   kpztest::KpzFile file(DtNlLittleEndian);
//   file.Header(8).PlaceIfd(8, ifd0);
//
//   kpztest::KpzSpec recipe;
//   recipe.order = DtNlBigEndian;
//   recipe.m372 = true;
//   kpztest::KpzLayout where;
//   std::vector<uint8_t> bytes = kpztest::BuildKpz(recipe, &where);
//   kpztest::TempDir dir;
//   std::string path = dir.Write("a.kpz", bytes);
//
// Nothing here owns raw pointers; every object is a plain value. TempDir owns
// its directory on disk and removes it (with everything in it) when destroyed.
// The file helpers use C calls that the fault seam wraps (fopen, fwrite,
// opendir, unlink, rmdir, ...): call them only while no fault is armed, and
// expect them in the seam's call counts.
#ifndef KPZ_TESTS_SUPPORT_KPZFILEBUILDER_H
#define KPZ_TESTS_SUPPORT_KPZFILEBUILDER_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "util/DtNlDataUtil.h"

namespace kpztest {

using Bytes = std::vector<std::uint8_t>;

// TIFF data types.
enum TiffType : std::uint16_t {
  kTiffByte = 1,
  kTiffAscii = 2,
  kTiffShort = 3,
  kTiffLong = 4,
  kTiffRational = 5,
  kTiffSByte = 6,
  kTiffUndefined = 7,
  kTiffSShort = 8,
  kTiffSLong = 9,
  kTiffSRational = 10,
  kTiffFloat = 11,
  kTiffDouble = 12
};

// Tag ids the library keeps.
namespace tag {
constexpr std::uint16_t kMake = 0x010F;
constexpr std::uint16_t kModel = 0x0110;
constexpr std::uint16_t kOrientation = 0x0112;
constexpr std::uint16_t kExifPointer = 0x8769;
constexpr std::uint16_t kJpegOffset = 0x0201;
constexpr std::uint16_t kJpegLength = 0x0202;
constexpr std::uint16_t kDateTime = 0x0132;
constexpr std::uint16_t kCompression = 0x0103;
constexpr std::uint16_t kExposureTime = 0x829A;
constexpr std::uint16_t kFNumber = 0x829D;
constexpr std::uint16_t kExposureProgram = 0x8822;
constexpr std::uint16_t kIsoSpeed = 0x8827;
constexpr std::uint16_t kExifVersion = 0x9000;
constexpr std::uint16_t kDateTimeOriginal = 0x9003;
constexpr std::uint16_t kExposureBias = 0x9204;
constexpr std::uint16_t kFlash = 0x9209;
constexpr std::uint16_t kFocalLength = 0x920A;
constexpr std::uint16_t kMakerNote = 0x927C;
constexpr std::uint16_t kColorSpace = 0xA001;
constexpr std::uint16_t kIobPointer = 0xA005;
constexpr std::uint16_t kCustomRendered = 0xA401;
constexpr std::uint16_t kFocalLength35 = 0xA405;
constexpr std::uint16_t kPixelX = 0xA002;
constexpr std::uint16_t kPixelY = 0xA003;
constexpr std::uint16_t kIobIndex = 0x0001;
constexpr std::uint16_t kIobVersion = 0x0002;
constexpr std::uint16_t kKmPointer = 0xB028;
constexpr std::uint16_t kScnWidthHeight = 0xB02C;
constexpr std::uint16_t kMakerNoteFiller = 0xB001;
constexpr std::uint16_t kKmScreennailOffset = 0x0088;
constexpr std::uint16_t kKmScreennailLength = 0x0089;
}  // namespace tag

// Byte encodings in `order`.
Bytes U16Bytes(std::uint16_t value, DtNlByteOrder order);
Bytes U32Bytes(std::uint32_t value, DtNlByteOrder order);
Bytes U16sBytes(const std::vector<std::uint16_t>& values, DtNlByteOrder order);
Bytes U32sBytes(const std::vector<std::uint32_t>& values, DtNlByteOrder order);
// The characters of `text`, followed by one zero byte when `withNul`.
Bytes AsciiBytes(const std::string& text, bool withNul = true);
// Appends `tail` to `head` and returns the result.
Bytes Concat(Bytes head, const Bytes& tail);

// `size` deterministic bytes (a simple sequence seeded by `seed`).
Bytes PatternBytes(std::size_t size, std::uint8_t seed = 0);
// A JPEG-shaped byte string of `size` bytes (>= 4): FF D8, pattern bytes, FF D9.
// Smaller sizes give the first `size` bytes of FF D8 FF D9.
Bytes FakeJpeg(std::size_t size, std::uint8_t seed = 0);

// One directory entry as the builder will write it.
struct IfdEntry {
  std::uint16_t tag = 0;
  std::uint16_t type = 0;
  std::uint32_t count = 0;
  Bytes value;            // value bytes, already in file byte order
  bool rawField = false;  // true: `field` is written as is and `value` is ignored
  std::array<std::uint8_t, 4> field{};
  bool explicitOffset = false;  // true: `value` is written at `valueOffset`
  std::uint32_t valueOffset = 0;
};

class Ifd {
 public:
  explicit Ifd(DtNlByteOrder order);

  DtNlByteOrder Order() const { return m_order; }

  // Adds an entry with `value` (file byte order) placed by the layout above.
  Ifd& Add(std::uint16_t tagId, std::uint16_t type, std::uint32_t count, Bytes value);
  // Adds an entry whose `value` lies at absolute offset `valueOffset`; the
  // field holds `valueOffset` and KpzFile::PlaceIfd writes the bytes there
  // (an empty `value` writes nothing: a dangling offset).
  Ifd& AddAt(std::uint16_t tagId, std::uint16_t type, std::uint32_t count, Bytes value,
             std::uint32_t valueOffset);
  // Adds an entry whose 4-byte field is `field` in the Ifd's order: any
  // offset, any count; no value bytes are written anywhere.
  Ifd& AddRaw(std::uint16_t tagId, std::uint16_t type, std::uint32_t count, std::uint32_t field);
  // Same with the field's four bytes given literally.
  Ifd& AddRawField(std::uint16_t tagId, std::uint16_t type, std::uint32_t count,
                   const std::array<std::uint8_t, 4>& field);

  // Typed conveniences (count from the data; values encoded in the Ifd's order).
  Ifd& AddShort(std::uint16_t tagId, std::uint16_t value);
  Ifd& AddShorts(std::uint16_t tagId, const std::vector<std::uint16_t>& values);
  Ifd& AddLong(std::uint16_t tagId, std::uint32_t value);
  Ifd& AddLongs(std::uint16_t tagId, const std::vector<std::uint32_t>& values);
  Ifd& AddRational(std::uint16_t tagId, std::uint32_t num, std::uint32_t den);
  Ifd& AddSRational(std::uint16_t tagId, std::int32_t num, std::int32_t den);
  // ASCII with the terminating zero counted (count = length + 1) unless !withNul.
  Ifd& AddAscii(std::uint16_t tagId, const std::string& text, bool withNul = true);
  Ifd& AddUndefined(std::uint16_t tagId, const Bytes& bytes);

  // Replaces type, count and value of the first entry with `tagId` (placement
  // is recomputed); returns false when there is none.
  bool Replace(std::uint16_t tagId, std::uint16_t type, std::uint32_t count, Bytes value);
  // Replaces the first entry with `tagId` by a raw 4-byte field.
  bool ReplaceRaw(std::uint16_t tagId, std::uint16_t type, std::uint32_t count,
                  std::uint32_t field);
  // Removes every entry with `tagId`; returns how many were removed.
  std::size_t Remove(std::uint16_t tagId);
  bool Has(std::uint16_t tagId) const;

  Ifd& SetNext(std::uint32_t nextOffset);
  std::uint32_t Next() const { return m_next; }
  // Writes `count` as the entry count instead of the real number of entries.
  Ifd& SetCountOverride(std::uint16_t count);

  const std::vector<IfdEntry>& Entries() const { return m_entries; }
  std::vector<IfdEntry>& Entries() { return m_entries; }

  // Bytes of the directory proper: 2 + 12 * entries + 4.
  std::uint32_t DirSize() const;
  // DirSize() plus the data area.
  std::uint32_t Size() const;
  // Absolute offset that the field of entry `index` will hold / holds when the
  // directory is placed at `at` (only meaningful for out-of-line values).
  std::uint32_t ValueOffsetOf(std::size_t index, std::uint32_t at) const;
  // Absolute offset of entry `index`'s 12 bytes when placed at `at`.
  static std::uint32_t EntryOffset(std::size_t index, std::uint32_t at);

  // The directory and its data area, for placement at absolute offset `at`.
  Bytes Serialize(std::uint32_t at) const;
  // Values with explicit offsets: (absolute offset, bytes).
  std::vector<std::pair<std::uint32_t, Bytes>> ExternalValues() const;

 private:
  DtNlByteOrder m_order;
  std::vector<IfdEntry> m_entries;
  std::uint32_t m_next = 0;
  bool m_hasCountOverride = false;
  std::uint16_t m_countOverride = 0;
};

// A growable file image.
class KpzFile {
 public:
  explicit KpzFile(DtNlByteOrder order);

  DtNlByteOrder Order() const { return m_order; }

  // The 8-byte TIFF header: "II"/"MM", 42, `ifd0Offset`.
  KpzFile& Header(std::uint32_t ifd0Offset);
  // Any header: `mark` is written big-endian as it appears on disk (0x4949 is
  // "II"), `marker` and `ifd0Offset` in the file's order.
  KpzFile& RawHeader(std::uint16_t mark, std::uint16_t marker, std::uint32_t ifd0Offset);

  // Writes `bytes` at `at`, growing the image with zeros as needed.
  KpzFile& Place(std::uint32_t at, const Bytes& bytes);
  // Places the directory at `at` and its explicit-offset values.
  KpzFile& PlaceIfd(std::uint32_t at, const Ifd& ifd);
  // Places a maker note at `at`: the 12-byte `header` (padded with zeros or
  // cut to 12) when non-empty, then the directory.
  KpzFile& PlaceMakerNote(std::uint32_t at, const Ifd& ifd, const Bytes& header);

  KpzFile& PatchU8(std::uint32_t at, std::uint8_t value);
  KpzFile& PatchU16(std::uint32_t at, std::uint16_t value);
  KpzFile& PatchU32(std::uint32_t at, std::uint32_t value);

  // Grows the image to `size` bytes with `fill` (never shrinks).
  KpzFile& PadTo(std::uint32_t size, std::uint8_t fill = 0);
  // Grows the image to `size` bytes with PatternBytes (never shrinks).
  KpzFile& PadToWithPattern(std::uint32_t size, std::uint8_t seed = 0);
  // Cuts the image to `size` bytes (never grows).
  KpzFile& Truncate(std::uint32_t size);

  std::uint32_t Size() const;
  const Bytes& Data() const { return m_bytes; }
  Bytes Take() { return std::move(m_bytes); }

 private:
  DtNlByteOrder m_order;
  Bytes m_bytes;
};

// The 12-byte maker-note header used when none is given: "KAVI" and 8 zeros.
Bytes KaviMakerNoteHeader();

// A whole file. Every optional that is empty leaves its tag out; the edit
// hooks run after the standard tags were added and before the layout, so a
// test can add, replace or remove anything (pointer tags are filled in by the
// layout afterwards only when they are still present and no `...Pointer`
// override is set).
struct KpzSpec {
  DtNlByteOrder order = DtNlLittleEndian;

  // IFD0
  std::optional<std::string> make = std::string("KAVI");
  // Written as ASCII with its zero byte. m372 = true writes "DSLR-M372" instead.
  std::optional<std::string> model = std::string("DSLR-M100");
  std::optional<std::uint16_t> orientation = 1;
  std::optional<std::string> dateTime = std::string("2010:05:01 12:34:56");
  bool m372 = false;

  // Screennail: IFD0 0x0201/0x0202 (and, for m372, the Km maker note's
  // 0x0088/0x0089) hold its offset and length.
  Bytes screennail = FakeJpeg(64, 0x50);
  std::optional<std::uint32_t> screennailOffset;     // empty: after the head structures
  std::optional<std::uint32_t> screennailLengthTag;  // empty: screennail.size()
  bool ifd0ScreennailTags = true;

  // IFD1 and the thumbnail.
  bool hasIfd1 = true;
  Bytes thumbnail = FakeJpeg(32, 0x20);
  std::optional<std::uint32_t> thumbnailOffset;     // empty: after the head structures
  std::optional<std::uint32_t> thumbnailLengthTag;  // empty: thumbnail.size()
  std::optional<std::uint16_t> thumbnailCompression = 6;
  std::optional<std::uint16_t> thumbnailOrientation = 1;
  std::optional<std::string> thumbnailDateTime;

  // Exif IFD.
  bool hasExif = true;
  std::optional<std::pair<std::uint32_t, std::uint32_t>> exposureTime =
      std::make_pair(std::uint32_t{10}, std::uint32_t{600});
  std::optional<std::pair<std::uint32_t, std::uint32_t>> fNumber =
      std::make_pair(std::uint32_t{28}, std::uint32_t{10});
  std::optional<std::uint16_t> exposureProgram = 2;
  std::optional<std::uint16_t> isoSpeed = 200;
  std::optional<std::string> exifVersion = std::string("0230");  // UNDEFINED, no zero byte
  std::optional<std::string> dateTimeOriginal = std::string("2010:05:01 12:34:56");
  std::optional<std::pair<std::int32_t, std::int32_t>> exposureBias =
      std::make_pair(std::int32_t{-1}, std::int32_t{3});
  std::optional<std::uint16_t> flash = 0x0010;
  std::optional<std::pair<std::uint32_t, std::uint32_t>> focalLength =
      std::make_pair(std::uint32_t{500}, std::uint32_t{10});
  std::optional<std::uint16_t> colorSpace = 1;
  std::optional<std::uint16_t> customRendered = 0;
  std::optional<std::uint16_t> focalLength35 = 75;
  std::optional<std::uint16_t> pixelX = 6000;
  std::optional<std::uint16_t> pixelY = 4000;

  // Interoperability IFD.
  bool hasIob = true;
  std::optional<std::string> iobIndex = std::string("R98");
  std::optional<std::string> iobVersion = std::string("0100");  // UNDEFINED, no zero byte

  // KAVI maker note (Exif 0x927C, UNDEFINED, count = its whole size).
  bool hasMakerNote = true;
  // Header: empty optional = "KAVI" header exactly when m372; an empty Bytes
  // value = no header; otherwise these bytes (padded or cut to 12).
  std::optional<Bytes> makerNoteHeader;
  // SCN_WIDTH_HEIGHT: (height, width) as two LONGs.
  std::optional<std::pair<std::uint32_t, std::uint32_t>> scnHeightWidth =
      std::make_pair(std::uint32_t{1080}, std::uint32_t{1616});
  // Filler value (tag 0xB001, UNDEFINED, not kept by the library) that makes
  // the maker note longer than 32 bytes, as real ones are, so that the Exif
  // parser keeps it by position only. Empty: no filler entry.
  Bytes makerNoteFiller = PatternBytes(32, 0x4D);

  // Km maker note (written only for m372 unless forced).
  std::optional<bool> hasKmMakerNote;  // empty: m372

  // Overrides of the pointer values the layout would write.
  std::optional<std::uint32_t> ifd0Offset;   // header's IFD0 offset (IFD0 is still placed at 8)
  std::optional<std::uint32_t> ifd1Pointer;  // IFD0's next offset
  std::optional<std::uint32_t> exifPointer;  // IFD0 0x8769
  std::optional<std::uint32_t> iobPointer;   // Exif 0xA005
  std::optional<std::uint32_t> makerNotePointer;  // Exif 0x927C field
  std::optional<std::uint32_t> kmPointer;         // maker note 0xB028

  // Edit hooks, run on each directory after the standard tags were added.
  std::function<void(Ifd&)> editIfd0;
  std::function<void(Ifd&)> editIfd1;
  std::function<void(Ifd&)> editExif;
  std::function<void(Ifd&)> editIob;
  std::function<void(Ifd&)> editMakerNote;
  std::function<void(Ifd&)> editKm;

  // The image is padded (with pattern bytes) to at least this size.
  std::uint32_t minTotalSize = 0;
};

// Where BuildKpz put each piece (absolute offsets; 0 = not written).
struct KpzLayout {
  std::uint32_t ifd0 = 0;
  std::uint32_t ifd1 = 0;
  std::uint32_t exif = 0;
  std::uint32_t iob = 0;
  std::uint32_t makerNote = 0;      // start of the maker note (its header, if any)
  std::uint32_t makerNoteDir = 0;   // its directory (makerNote + 12 with a header)
  std::uint32_t makerNoteSize = 0;  // header + directory + data area
  std::uint32_t km = 0;
  std::uint32_t thumbnail = 0;
  std::uint32_t screennail = 0;
  std::uint32_t total = 0;
};

// Lays out `recipe`: header at 0, IFD0 at 8, then IFD1, Exif, Iob, maker note,
// Km maker note, thumbnail and screennail, each at the next even offset
// (unless its offset is given), then padding to minTotalSize.
Bytes BuildKpz(const KpzSpec& recipe, KpzLayout* layout = nullptr);

// A fresh directory under /tmp (mkdtemp), removed with its contents on destruction.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& Path() const { return m_path; }
  // Writes `bytes` to Path()/name and returns the full path ("" on failure).
  std::string Write(const std::string& name, const Bytes& bytes) const;

 private:
  std::string m_path;
};

// Writes / reads a whole file; false / empty on failure.
bool WriteFileBytes(const std::string& path, const Bytes& bytes);
// Grows the file at `path` to `size` bytes without writing the new ones
// (truncate): a sparse file whose tail reads as zeros and takes no room on
// disk, for files that claim pictures of hundreds of megabytes. False on
// failure or when the file is already longer.
bool ExtendFileSparse(const std::string& path, std::uint64_t size);
Bytes ReadFileBytes(const std::string& path);

}  // namespace kpztest

#endif  // KPZ_TESTS_SUPPORT_KPZFILEBUILDER_H
