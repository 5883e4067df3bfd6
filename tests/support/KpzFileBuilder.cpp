// KpzFileBuilder.cpp - composing KPZ test files: directories, file images, whole-file layout.
#include "support/KpzFileBuilder.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace kpztest {

namespace {

bool IsBig(DtNlByteOrder order) { return order == DtNlBigEndian; }

std::uint32_t AlignEven(std::uint32_t value) { return value + (value & 1u); }

std::uint32_t ToU32(std::size_t value) { return static_cast<std::uint32_t>(value); }

// Number of bytes an entry occupies in the data area (0 when inline, raw or explicit).
std::uint32_t DataAreaBytes(const IfdEntry& entry) {
  if (entry.rawField || entry.explicitOffset || entry.value.size() <= 4) {
    return 0;
  }
  return AlignEven(ToU32(entry.value.size()));
}

IfdEntry MakeEntry(std::uint16_t tagId, std::uint16_t type, std::uint32_t count, Bytes value) {
  IfdEntry entry;
  entry.tag = tagId;
  entry.type = type;
  entry.count = count;
  entry.value = std::move(value);
  return entry;
}

void PutU16(Bytes* out, std::size_t at, std::uint16_t value, DtNlByteOrder order) {
  const Bytes b = U16Bytes(value, order);
  std::memcpy(out->data() + at, b.data(), b.size());
}

void PutU32(Bytes* out, std::size_t at, std::uint32_t value, DtNlByteOrder order) {
  const Bytes b = U32Bytes(value, order);
  std::memcpy(out->data() + at, b.data(), b.size());
}

// readdir64: a 32-bit readdir can fail with EOVERFLOW on 64-bit directory
// cookies (a 32-bit process on a 64-bit kernel, e.g. under qemu-arm).
void RemoveTree(const std::string& path) {
  DIR* dir = opendir(path.c_str());
  if (dir != nullptr) {
    for (dirent64* ent = readdir64(dir); ent != nullptr; ent = readdir64(dir)) {
      const std::string name = ent->d_name;
      if (name == "." || name == "..") {
        continue;
      }
      const std::string child = path + "/" + name;
      struct stat st;
      if (lstat(child.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) {
        RemoveTree(child);
      } else {
        unlink(child.c_str());
      }
    }
    closedir(dir);
  }
  rmdir(path.c_str());
}

}  // namespace

// ---- byte helpers ----------------------------------------------------------

Bytes U16Bytes(std::uint16_t value, DtNlByteOrder order) {
  const std::uint8_t hi = static_cast<std::uint8_t>(value >> 8);
  const std::uint8_t lo = static_cast<std::uint8_t>(value & 0xFFu);
  return IsBig(order) ? Bytes{hi, lo} : Bytes{lo, hi};
}

Bytes U32Bytes(std::uint32_t value, DtNlByteOrder order) {
  Bytes out(4);
  for (std::size_t i = 0; i < 4; ++i) {
    const std::size_t shift = IsBig(order) ? (3 - i) * 8 : i * 8;
    out[i] = static_cast<std::uint8_t>((value >> shift) & 0xFFu);
  }
  return out;
}

Bytes U16sBytes(const std::vector<std::uint16_t>& values, DtNlByteOrder order) {
  Bytes out;
  for (std::uint16_t v : values) {
    out = Concat(std::move(out), U16Bytes(v, order));
  }
  return out;
}

Bytes U32sBytes(const std::vector<std::uint32_t>& values, DtNlByteOrder order) {
  Bytes out;
  for (std::uint32_t v : values) {
    out = Concat(std::move(out), U32Bytes(v, order));
  }
  return out;
}

Bytes AsciiBytes(const std::string& text, bool withNul) {
  Bytes out(text.begin(), text.end());
  if (withNul) {
    out.push_back(0);
  }
  return out;
}

Bytes Concat(Bytes head, const Bytes& tail) {
  head.insert(head.end(), tail.begin(), tail.end());
  return head;
}

Bytes PatternBytes(std::size_t size, std::uint8_t seed) {
  Bytes out(size);
  for (std::size_t i = 0; i < size; ++i) {
    out[i] = static_cast<std::uint8_t>((i * 7u + seed) & 0xFFu);
  }
  return out;
}

Bytes FakeJpeg(std::size_t size, std::uint8_t seed) {
  const Bytes minimal{0xFF, 0xD8, 0xFF, 0xD9};
  if (size < 4) {
    return Bytes(minimal.begin(), minimal.begin() + static_cast<std::ptrdiff_t>(size));
  }
  Bytes out = PatternBytes(size, seed);
  out[0] = 0xFF;
  out[1] = 0xD8;
  out[size - 2] = 0xFF;
  out[size - 1] = 0xD9;
  return out;
}

Bytes KaviMakerNoteHeader() {
  Bytes out{'K', 'A', 'V', 'I'};
  out.resize(12, 0);
  return out;
}

// ---- Ifd -------------------------------------------------------------------

Ifd::Ifd(DtNlByteOrder order) : m_order(order) {}

Ifd& Ifd::Add(std::uint16_t tagId, std::uint16_t type, std::uint32_t count, Bytes value) {
  m_entries.push_back(MakeEntry(tagId, type, count, std::move(value)));
  return *this;
}

Ifd& Ifd::AddAt(std::uint16_t tagId, std::uint16_t type, std::uint32_t count, Bytes value,
                std::uint32_t valueOffset) {
  IfdEntry entry = MakeEntry(tagId, type, count, std::move(value));
  entry.explicitOffset = true;
  entry.valueOffset = valueOffset;
  m_entries.push_back(std::move(entry));
  return *this;
}

Ifd& Ifd::AddRaw(std::uint16_t tagId, std::uint16_t type, std::uint32_t count,
                 std::uint32_t field) {
  const Bytes b = U32Bytes(field, m_order);
  return AddRawField(tagId, type, count, {b[0], b[1], b[2], b[3]});
}

Ifd& Ifd::AddRawField(std::uint16_t tagId, std::uint16_t type, std::uint32_t count,
                      const std::array<std::uint8_t, 4>& field) {
  IfdEntry entry = MakeEntry(tagId, type, count, Bytes());
  entry.rawField = true;
  entry.field = field;
  m_entries.push_back(std::move(entry));
  return *this;
}

Ifd& Ifd::AddShort(std::uint16_t tagId, std::uint16_t value) {
  return Add(tagId, kTiffShort, 1, U16Bytes(value, m_order));
}

Ifd& Ifd::AddShorts(std::uint16_t tagId, const std::vector<std::uint16_t>& values) {
  return Add(tagId, kTiffShort, ToU32(values.size()), U16sBytes(values, m_order));
}

Ifd& Ifd::AddLong(std::uint16_t tagId, std::uint32_t value) {
  return Add(tagId, kTiffLong, 1, U32Bytes(value, m_order));
}

Ifd& Ifd::AddLongs(std::uint16_t tagId, const std::vector<std::uint32_t>& values) {
  return Add(tagId, kTiffLong, ToU32(values.size()), U32sBytes(values, m_order));
}

Ifd& Ifd::AddRational(std::uint16_t tagId, std::uint32_t num, std::uint32_t den) {
  return Add(tagId, kTiffRational, 1, U32sBytes({num, den}, m_order));
}

Ifd& Ifd::AddSRational(std::uint16_t tagId, std::int32_t num, std::int32_t den) {
  return Add(
      tagId, kTiffSRational, 1,
      U32sBytes({static_cast<std::uint32_t>(num), static_cast<std::uint32_t>(den)}, m_order));
}

Ifd& Ifd::AddAscii(std::uint16_t tagId, const std::string& text, bool withNul) {
  Bytes value = AsciiBytes(text, withNul);
  const std::uint32_t count = ToU32(value.size());
  return Add(tagId, kTiffAscii, count, std::move(value));
}

Ifd& Ifd::AddUndefined(std::uint16_t tagId, const Bytes& bytes) {
  return Add(tagId, kTiffUndefined, ToU32(bytes.size()), bytes);
}

bool Ifd::Replace(std::uint16_t tagId, std::uint16_t type, std::uint32_t count, Bytes value) {
  for (IfdEntry& entry : m_entries) {
    if (entry.tag == tagId) {
      entry = MakeEntry(tagId, type, count, std::move(value));
      return true;
    }
  }
  return false;
}

bool Ifd::ReplaceRaw(std::uint16_t tagId, std::uint16_t type, std::uint32_t count,
                     std::uint32_t field) {
  for (IfdEntry& entry : m_entries) {
    if (entry.tag == tagId) {
      const Bytes b = U32Bytes(field, m_order);
      entry = MakeEntry(tagId, type, count, Bytes());
      entry.rawField = true;
      entry.field = {b[0], b[1], b[2], b[3]};
      return true;
    }
  }
  return false;
}

std::size_t Ifd::Remove(std::uint16_t tagId) {
  std::size_t removed = 0;
  for (std::size_t i = m_entries.size(); i > 0; --i) {
    if (m_entries[i - 1].tag == tagId) {
      m_entries.erase(m_entries.begin() + static_cast<std::ptrdiff_t>(i - 1));
      ++removed;
    }
  }
  return removed;
}

bool Ifd::Has(std::uint16_t tagId) const {
  for (const IfdEntry& entry : m_entries) {
    if (entry.tag == tagId) {
      return true;
    }
  }
  return false;
}

Ifd& Ifd::SetNext(std::uint32_t nextOffset) {
  m_next = nextOffset;
  return *this;
}

Ifd& Ifd::SetCountOverride(std::uint16_t count) {
  m_hasCountOverride = true;
  m_countOverride = count;
  return *this;
}

std::uint32_t Ifd::DirSize() const { return 2u + 12u * ToU32(m_entries.size()) + 4u; }

std::uint32_t Ifd::Size() const {
  std::uint32_t size = DirSize();
  for (const IfdEntry& entry : m_entries) {
    size += DataAreaBytes(entry);
  }
  return size;
}

std::uint32_t Ifd::ValueOffsetOf(std::size_t index, std::uint32_t at) const {
  const IfdEntry& target = m_entries.at(index);
  if (target.explicitOffset) {
    return target.valueOffset;
  }
  std::uint32_t pos = at + DirSize();
  for (std::size_t i = 0; i < index; ++i) {
    pos += DataAreaBytes(m_entries[i]);
  }
  return pos;
}

std::uint32_t Ifd::EntryOffset(std::size_t index, std::uint32_t at) {
  return at + 2u + 12u * ToU32(index);
}

Bytes Ifd::Serialize(std::uint32_t at) const {
  Bytes out(Size(), 0);
  const std::uint16_t count =
      m_hasCountOverride ? m_countOverride : static_cast<std::uint16_t>(m_entries.size());
  PutU16(&out, 0, count, m_order);
  std::uint32_t dataPos = DirSize();  // relative to `at`
  for (std::size_t i = 0; i < m_entries.size(); ++i) {
    const IfdEntry& entry = m_entries[i];
    const std::size_t base = 2 + 12 * i;
    PutU16(&out, base, entry.tag, m_order);
    PutU16(&out, base + 2, entry.type, m_order);
    PutU32(&out, base + 4, entry.count, m_order);
    if (entry.rawField) {
      std::memcpy(out.data() + base + 8, entry.field.data(), 4);
    } else if (entry.explicitOffset) {
      PutU32(&out, base + 8, entry.valueOffset, m_order);
    } else if (entry.value.size() <= 4) {
      if (!entry.value.empty()) {
        std::memcpy(out.data() + base + 8, entry.value.data(), entry.value.size());
      }
    } else {
      PutU32(&out, base + 8, at + dataPos, m_order);
      std::memcpy(out.data() + dataPos, entry.value.data(), entry.value.size());
      dataPos += DataAreaBytes(entry);
    }
  }
  PutU32(&out, 2 + 12 * m_entries.size(), m_next, m_order);
  return out;
}

std::vector<std::pair<std::uint32_t, Bytes>> Ifd::ExternalValues() const {
  std::vector<std::pair<std::uint32_t, Bytes>> out;
  for (const IfdEntry& entry : m_entries) {
    if (entry.explicitOffset && !entry.rawField && !entry.value.empty()) {
      out.emplace_back(entry.valueOffset, entry.value);
    }
  }
  return out;
}

// ---- KpzFile ---------------------------------------------------------------

KpzFile::KpzFile(DtNlByteOrder order) : m_order(order) {}

KpzFile& KpzFile::Header(std::uint32_t ifd0Offset) {
  return RawHeader(IsBig(m_order) ? 0x4D4D : 0x4949, 42, ifd0Offset);
}

KpzFile& KpzFile::RawHeader(std::uint16_t mark, std::uint16_t marker, std::uint32_t ifd0Offset) {
  Place(0, U16Bytes(mark, DtNlBigEndian));
  Place(2, U16Bytes(marker, m_order));
  return Place(4, U32Bytes(ifd0Offset, m_order));
}

KpzFile& KpzFile::Place(std::uint32_t at, const Bytes& bytes) {
  const std::size_t end = static_cast<std::size_t>(at) + bytes.size();
  if (m_bytes.size() < end) {
    m_bytes.resize(end, 0);
  }
  if (!bytes.empty()) {
    std::memcpy(m_bytes.data() + at, bytes.data(), bytes.size());
  }
  return *this;
}

KpzFile& KpzFile::PlaceIfd(std::uint32_t at, const Ifd& ifd) {
  Place(at, ifd.Serialize(at));
  for (const auto& ext : ifd.ExternalValues()) {
    Place(ext.first, ext.second);
  }
  return *this;
}

KpzFile& KpzFile::PlaceMakerNote(std::uint32_t at, const Ifd& ifd, const Bytes& header) {
  if (header.empty()) {
    return PlaceIfd(at, ifd);
  }
  Bytes head = header;
  head.resize(12, 0);
  Place(at, head);
  return PlaceIfd(at + 12u, ifd);
}

KpzFile& KpzFile::PatchU8(std::uint32_t at, std::uint8_t value) { return Place(at, Bytes{value}); }

KpzFile& KpzFile::PatchU16(std::uint32_t at, std::uint16_t value) {
  return Place(at, U16Bytes(value, m_order));
}

KpzFile& KpzFile::PatchU32(std::uint32_t at, std::uint32_t value) {
  return Place(at, U32Bytes(value, m_order));
}

KpzFile& KpzFile::PadTo(std::uint32_t size, std::uint8_t fill) {
  if (m_bytes.size() < size) {
    m_bytes.resize(size, fill);
  }
  return *this;
}

KpzFile& KpzFile::PadToWithPattern(std::uint32_t size, std::uint8_t seed) {
  if (m_bytes.size() < size) {
    const std::size_t old = m_bytes.size();
    const Bytes pattern = PatternBytes(size - old, seed);
    m_bytes.insert(m_bytes.end(), pattern.begin(), pattern.end());
  }
  return *this;
}

KpzFile& KpzFile::Truncate(std::uint32_t size) {
  if (m_bytes.size() > size) {
    m_bytes.resize(size);
  }
  return *this;
}

std::uint32_t KpzFile::Size() const { return ToU32(m_bytes.size()); }

// ---- BuildKpz --------------------------------------------------------------

Bytes BuildKpz(const KpzSpec& recipe, KpzLayout* layout) {
  const DtNlByteOrder order = recipe.order;
  const bool hasKm = recipe.hasKmMakerNote.value_or(recipe.m372);
  const Bytes mnHeader = recipe.makerNoteHeader.value_or(recipe.m372 ? KaviMakerNoteHeader() : Bytes());
  const std::uint32_t mnHeaderSize = mnHeader.empty() ? 0u : 12u;
  const std::uint32_t snLength = recipe.screennailLengthTag.value_or(ToU32(recipe.screennail.size()));
  const std::uint32_t tnLength = recipe.thumbnailLengthTag.value_or(ToU32(recipe.thumbnail.size()));

  // Directories with placeholder pointers: sizes do not depend on pointer values.
  Ifd ifd0(order);
  if (recipe.make) ifd0.AddAscii(tag::kMake, *recipe.make);
  if (recipe.m372) {
    ifd0.AddAscii(tag::kModel, "DSLR-M372");
  } else if (recipe.model) {
    ifd0.AddAscii(tag::kModel, *recipe.model);
  }
  if (recipe.orientation) ifd0.AddShort(tag::kOrientation, *recipe.orientation);
  if (recipe.dateTime) ifd0.AddAscii(tag::kDateTime, *recipe.dateTime);
  if (recipe.hasExif) ifd0.AddLong(tag::kExifPointer, 0);
  if (recipe.ifd0ScreennailTags) {
    ifd0.AddLong(tag::kJpegOffset, 0);
    ifd0.AddLong(tag::kJpegLength, snLength);
  }
  if (recipe.editIfd0) recipe.editIfd0(ifd0);

  Ifd ifd1(order);
  if (recipe.thumbnailCompression) ifd1.AddShort(tag::kCompression, *recipe.thumbnailCompression);
  if (recipe.thumbnailOrientation) ifd1.AddShort(tag::kOrientation, *recipe.thumbnailOrientation);
  ifd1.AddLong(tag::kJpegOffset, 0);
  ifd1.AddLong(tag::kJpegLength, tnLength);
  if (recipe.thumbnailDateTime) ifd1.AddAscii(tag::kDateTime, *recipe.thumbnailDateTime);
  if (recipe.editIfd1) recipe.editIfd1(ifd1);

  Ifd mn(order);
  if (hasKm) mn.AddLong(tag::kKmPointer, 0);
  if (recipe.scnHeightWidth) {
    mn.AddLongs(tag::kScnWidthHeight, {recipe.scnHeightWidth->first, recipe.scnHeightWidth->second});
  }
  if (!recipe.makerNoteFiller.empty()) mn.AddUndefined(tag::kMakerNoteFiller, recipe.makerNoteFiller);
  if (recipe.editMakerNote) recipe.editMakerNote(mn);
  const std::uint32_t mnSize = mnHeaderSize + mn.Size();

  Ifd exif(order);
  if (recipe.exposureTime)
    exif.AddRational(tag::kExposureTime, recipe.exposureTime->first, recipe.exposureTime->second);
  if (recipe.fNumber) exif.AddRational(tag::kFNumber, recipe.fNumber->first, recipe.fNumber->second);
  if (recipe.exposureProgram) exif.AddShort(tag::kExposureProgram, *recipe.exposureProgram);
  if (recipe.isoSpeed) exif.AddShort(tag::kIsoSpeed, *recipe.isoSpeed);
  if (recipe.exifVersion) exif.AddUndefined(tag::kExifVersion, AsciiBytes(*recipe.exifVersion, false));
  if (recipe.dateTimeOriginal) exif.AddAscii(tag::kDateTimeOriginal, *recipe.dateTimeOriginal);
  if (recipe.exposureBias)
    exif.AddSRational(tag::kExposureBias, recipe.exposureBias->first, recipe.exposureBias->second);
  if (recipe.flash) exif.AddShort(tag::kFlash, *recipe.flash);
  if (recipe.focalLength)
    exif.AddRational(tag::kFocalLength, recipe.focalLength->first, recipe.focalLength->second);
  if (recipe.hasMakerNote) exif.AddRaw(tag::kMakerNote, kTiffUndefined, mnSize, 0);
  if (recipe.colorSpace) exif.AddShort(tag::kColorSpace, *recipe.colorSpace);
  if (recipe.hasIob) exif.AddLong(tag::kIobPointer, 0);
  if (recipe.customRendered) exif.AddShort(tag::kCustomRendered, *recipe.customRendered);
  if (recipe.focalLength35) exif.AddShort(tag::kFocalLength35, *recipe.focalLength35);
  if (recipe.pixelX) exif.AddShort(tag::kPixelX, *recipe.pixelX);
  if (recipe.pixelY) exif.AddShort(tag::kPixelY, *recipe.pixelY);
  if (recipe.editExif) recipe.editExif(exif);

  Ifd iob(order);
  if (recipe.iobIndex) iob.AddAscii(tag::kIobIndex, *recipe.iobIndex);
  if (recipe.iobVersion) iob.AddUndefined(tag::kIobVersion, AsciiBytes(*recipe.iobVersion, false));
  if (recipe.editIob) recipe.editIob(iob);

  Ifd km(order);
  km.AddLong(tag::kKmScreennailOffset, 0);
  km.AddLong(tag::kKmScreennailLength, snLength);
  if (recipe.editKm) recipe.editKm(km);

  // Positions.
  KpzLayout where;
  std::uint32_t pos = 8;
  where.ifd0 = pos;
  pos = AlignEven(pos + ifd0.Size());
  if (recipe.hasIfd1) {
    where.ifd1 = pos;
    pos = AlignEven(pos + ifd1.Size());
  }
  if (recipe.hasExif) {
    where.exif = pos;
    pos = AlignEven(pos + exif.Size());
    if (recipe.hasIob) {
      where.iob = pos;
      pos = AlignEven(pos + iob.Size());
    }
    if (recipe.hasMakerNote) {
      where.makerNote = pos;
      where.makerNoteDir = pos + mnHeaderSize;
      where.makerNoteSize = mnSize;
      pos = AlignEven(pos + mnSize);
      if (hasKm) {
        where.km = pos;
        pos = AlignEven(pos + km.Size());
      }
    }
  }
  if (recipe.hasIfd1) {
    where.thumbnail = recipe.thumbnailOffset.value_or(pos);
    if (!recipe.thumbnailOffset) pos = AlignEven(pos + ToU32(recipe.thumbnail.size()));
  }
  where.screennail = recipe.screennailOffset.value_or(pos);
  if (!recipe.screennailOffset) pos = AlignEven(pos + ToU32(recipe.screennail.size()));

  // Pointer values.
  auto setLong = [](Ifd& ifd, std::uint16_t tagId, std::uint32_t value) {
    for (IfdEntry& entry : ifd.Entries()) {
      if (entry.tag == tagId && !entry.rawField && !entry.explicitOffset &&
          entry.type == kTiffLong && entry.value.size() == 4) {
        entry.value = U32Bytes(value, ifd.Order());
        return;
      }
    }
  };
  setLong(ifd0, tag::kExifPointer, recipe.exifPointer.value_or(where.exif));
  if (recipe.ifd0ScreennailTags) setLong(ifd0, tag::kJpegOffset, where.screennail);
  ifd0.SetNext(recipe.ifd1Pointer.value_or(where.ifd1));
  setLong(ifd1, tag::kJpegOffset, where.thumbnail);
  setLong(exif, tag::kIobPointer, recipe.iobPointer.value_or(where.iob));
  for (IfdEntry& entry : exif.Entries()) {
    if (entry.tag == tag::kMakerNote && entry.rawField) {
      const Bytes b = U32Bytes(recipe.makerNotePointer.value_or(where.makerNote), order);
      entry.field = {b[0], b[1], b[2], b[3]};
      break;
    }
  }
  setLong(mn, tag::kKmPointer, recipe.kmPointer.value_or(where.km));
  setLong(km, tag::kKmScreennailOffset, where.screennail);

  KpzFile file(order);
  file.Header(recipe.ifd0Offset.value_or(where.ifd0));
  file.PlaceIfd(where.ifd0, ifd0);
  if (where.ifd1 != 0) file.PlaceIfd(where.ifd1, ifd1);
  if (where.exif != 0) file.PlaceIfd(where.exif, exif);
  if (where.iob != 0) file.PlaceIfd(where.iob, iob);
  if (where.makerNote != 0) file.PlaceMakerNote(where.makerNote, mn, mnHeader);
  if (where.km != 0) file.PlaceIfd(where.km, km);
  if (recipe.hasIfd1) file.Place(where.thumbnail, recipe.thumbnail);
  file.Place(where.screennail, recipe.screennail);
  file.PadToWithPattern(recipe.minTotalSize, 0xA5);
  where.total = file.Size();
  if (layout != nullptr) {
    *layout = where;
  }
  return file.Take();
}

// ---- files -----------------------------------------------------------------

TempDir::TempDir() {
  char templ[] = "/tmp/kpztest-XXXXXX";
  const char* made = mkdtemp(templ);
  m_path = (made != nullptr) ? std::string(made) : std::string();
}

TempDir::~TempDir() {
  if (!m_path.empty()) {
    RemoveTree(m_path);
  }
}

std::string TempDir::Write(const std::string& name, const Bytes& bytes) const {
  if (m_path.empty()) {
    return std::string();
  }
  const std::string path = m_path + "/" + name;
  return WriteFileBytes(path, bytes) ? path : std::string();
}

bool WriteFileBytes(const std::string& path, const Bytes& bytes) {
  // Goes through the C calls the fault seam wraps: not to be called while a
  // fault is armed.
  std::FILE* f = std::fopen(path.c_str(), "wb");
  if (f == nullptr) {
    return false;
  }
  const std::size_t written = bytes.empty() ? 0 : std::fwrite(bytes.data(), 1, bytes.size(), f);
  const int closed = std::fclose(f);
  return written == bytes.size() && closed == 0;
}

bool ExtendFileSparse(const std::string& path, std::uint64_t size) {
  struct stat st;
  if (::stat(path.c_str(), &st) != 0 || static_cast<std::uint64_t>(st.st_size) > size) {
    return false;
  }
  return ::truncate(path.c_str(), static_cast<off_t>(size)) == 0;
}

Bytes ReadFileBytes(const std::string& path) {
  Bytes out;
  std::FILE* f = std::fopen(path.c_str(), "rb");
  if (f == nullptr) {
    return out;
  }
  std::uint8_t chunk[4096];
  for (;;) {
    const std::size_t n = std::fread(chunk, 1, sizeof chunk, f);
    out.insert(out.end(), chunk, chunk + n);
    if (n < sizeof chunk) {
      break;
    }
  }
  std::fclose(f);
  return out;
}

}  // namespace kpztest
