// Hostile-input catalogue for DtRaw: several hundred malformed KPZ files made
// with kpztest::BuildKpz (truncations at every structure boundary; pointers
// and value offsets at 0, 1, 0x7FFFFFFF, 0xFFFFFFFF, past the end and at the
// directory holding them; entry counts at 0, 1 and 0xFFFF; value counts at
// 0, 1, 0x7FFFFFFF and 0xFFFFFFFF; target tags of every type 0..13 with
// counts whose size overflows), each run through every public operation in
// buffer mode and in file mode.
//
// For every case and mode: no crash and no sanitizer report; every result is
// one the operation documents, and the exact one where the file determines
// it; every diagnostic line has the logger's form and no assertion fires;
// the file keeps its size through the write-back; and memory stays bounded:
// while the operations run, no single allocation exceeds max(file size,
// 64 KiB) + 1 KiB, the file channels and the engine included. Allocations
// are seen through a replacement of the global operator new in this
// executable.
#include "raw/DtRaw.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <initializer_list>
#include <memory>
#include <new>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "raw/DtRawDateTime.h"
#include "raw/DtRawError.h"
#include "raw/DtRawFlashInfo.h"
#include "raw/DtRawScreennailInfo.h"
#include "raw/DtRawThumbnailInfo.h"
#include "support/KpzFileBuilder.h"
#include "support/LogExpect.h"
#include "util/DtNlString.h"
#include "util/io/DtNlFile.h"
#include "util/io/DtNlTime.h"

// ---- Allocation watch ------------------------------------------------------
//
// While a watch is on, every operator new records its size. Test-only global
// state of this executable; the library keeps none.
namespace {

std::atomic<bool> g_watching{false};
std::atomic<std::size_t> g_largest{0};

void Record(std::size_t size) {
  if (!g_watching.load(std::memory_order_relaxed)) {
    return;
  }
  std::size_t seen = g_largest.load(std::memory_order_relaxed);
  while (size > seen && !g_largest.compare_exchange_weak(seen, size)) {
  }
}

void* Allocate(std::size_t size) {
  Record(size);
  void* p = std::malloc(size == 0 ? 1 : size);
  if (p == nullptr) {
    std::abort();  // nothing in these tests comes near exhausting memory
  }
  return p;
}

void* AllocateNoThrow(std::size_t size) noexcept {
  Record(size);
  return std::malloc(size == 0 ? 1 : size);
}

// Turns the watch on for its lifetime and reports the largest allocation.
class AllocationWatch {
 public:
  AllocationWatch() {
    g_largest.store(0);
    g_watching.store(true);
  }
  ~AllocationWatch() { g_watching.store(false); }
  AllocationWatch(const AllocationWatch&) = delete;
  AllocationWatch& operator=(const AllocationWatch&) = delete;

  std::size_t Largest() const { return g_largest.load(); }
};

}  // namespace

void* operator new(std::size_t size) { return Allocate(size); }
void* operator new[](std::size_t size) { return Allocate(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return AllocateNoThrow(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return AllocateNoThrow(size);
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { std::free(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { std::free(p); }

namespace {

using kpztest::Bytes;
using kpztest::Ifd;
using kpztest::KpzLayout;
using kpztest::KpzSpec;
namespace tag = kpztest::tag;

enum class Mode { Buffer, File };

const char* ModeName(Mode mode) { return mode == Mode::File ? "file" : "buffer"; }

// Slack above max(file size, 64 KiB) for the small bookkeeping allocations.
constexpr std::size_t kAllocationSlack = 1024;

bool OneOf(int code, std::initializer_list<int> allowed) {
  for (int a : allowed) {
    if (a == code) {
      return true;
    }
  }
  return false;
}

// ---- The catalogue ----------------------------------------------------------

// What the file determines beyond "a documented code".
struct Expect {
  std::optional<int> init;  // Initialize / InitializeBuf
  std::function<void(DtRaw&)> after;  // further checks once initialised
};

struct HostileCase {
  std::string name;
  Bytes bytes;
  Expect buffer;
  Expect file;
};

// Test names print the case's name, not its bytes.
void PrintTo(const HostileCase& c, std::ostream* os) { *os << c.name; }

std::uint16_t U16At(const Bytes& b, std::size_t at, DtNlByteOrder order) {
  if (at > b.size() || b.size() - at < 2) {
    return 0;
  }
  return order == DtNlBigEndian ? static_cast<std::uint16_t>((b[at] << 8) | b[at + 1])
                                : static_cast<std::uint16_t>((b[at + 1] << 8) | b[at]);
}

std::uint32_t U32At(const Bytes& b, std::size_t at, DtNlByteOrder order) {
  const std::uint32_t first = U16At(b, at, order);
  const std::uint32_t second = U16At(b, at + 2, order);
  return order == DtNlBigEndian ? (first << 16) | second : (second << 16) | first;
}

// Offsets of a directory's structure: start, after the count, every entry
// boundary, before and after the next-directory offset.
std::vector<std::uint32_t> DirBoundaries(const Bytes& b, std::uint32_t at, DtNlByteOrder order) {
  std::vector<std::uint32_t> cuts = {at, at + 1, at + 2};
  const std::uint32_t n = U16At(b, at, order);
  for (std::uint32_t i = 1; i <= n; ++i) {
    cuts.push_back(at + 2 + 12 * i);
  }
  cuts.push_back(at + 2 + 12 * n + 4);
  return cuts;
}

std::uint32_t DirEnd(const Bytes& b, std::uint32_t at, DtNlByteOrder order) {
  return at + 2 + 12 * static_cast<std::uint32_t>(U16At(b, at, order)) + 4;
}

std::string BaseName(DtNlByteOrder order, bool m372) {
  return std::string(order == DtNlBigEndian ? "BigEndian" : "LittleEndian") +
         (m372 ? "M372" : "OtherModel");
}

KpzSpec BaseSpec(DtNlByteOrder order, bool m372) {
  KpzSpec description;
  description.order = order;
  description.m372 = m372;
  return description;
}

// Expectations that hold in both modes.
Expect Both(std::optional<int> init, std::function<void(DtRaw&)> after = nullptr) {
  Expect e;
  e.init = init;
  e.after = std::move(after);
  return e;
}

void ExpectNoThumbnail(DtRaw& raw) {
  DtRawThumbnailInfo info;
  EXPECT_EQ(raw.GetThumbnailInfo(&info), DtRawErrNoData);
}

void ExpectNoIobIndex(DtRaw& raw) {
  const char* value = nullptr;
  int size = 0;
  EXPECT_EQ(raw.GetIobIndex(&value, &size), DtRawErrNoData);
}

void ExpectNoIobVersion(DtRaw& raw) {
  unsigned short version = 0;
  EXPECT_EQ(raw.GetIobVersion(&version), DtRawErrNoData);
}

void ExpectNoScreennail(DtRaw& raw) {
  DtRawScreennailInfo info;
  EXPECT_EQ(raw.GetScreennailInfo(&info), DtRawErrNoData);
}

void ExpectScreennailWithoutSize(DtRaw& raw) {
  DtRawScreennailInfo info;
  info.m_horizon = 7;
  info.m_vertical = 7;
  EXPECT_EQ(raw.GetScreennailInfo(&info), DtRawOk);
  EXPECT_EQ(info.m_horizon, 0);
  EXPECT_EQ(info.m_vertical, 0);
}

// Truncations of a standard file at every structure boundary, one byte
// either side of each directory's start, and inside the pictures.
void AddTruncations(DtNlByteOrder order, bool m372, std::vector<HostileCase>* out) {
  KpzLayout where;
  const Bytes good = kpztest::BuildKpz(BaseSpec(order, m372), &where);
  // The last byte the parse reads: the end of the Km maker note (model
  // "DSLR-M372"), else the end of the maker note's first value (the
  // screennail size, stored first in its data area).
  const std::uint32_t lastParsed = m372 ? DirEnd(good, where.km, order)
                                        : DirEnd(good, where.makerNoteDir, order) + 8;

  std::vector<std::uint32_t> cuts = {0, 1, 2, 3, 4, 5, 6, 7, 8};
  for (std::uint32_t dir : {where.ifd0, where.ifd1, where.exif, where.iob, where.makerNoteDir,
                            where.km}) {
    if (dir == 0) {
      continue;
    }
    const std::vector<std::uint32_t> b = DirBoundaries(good, dir, order);
    cuts.insert(cuts.end(), b.begin(), b.end());
    cuts.push_back(dir - 1);
  }
  if (m372) {
    cuts.push_back(where.makerNote + 4);  // after the "KAVI" signature
  }
  cuts.push_back(lastParsed - 1);
  cuts.push_back(lastParsed);
  cuts.push_back(where.thumbnail + 1);
  cuts.push_back(where.screennail + 1);
  cuts.push_back(static_cast<std::uint32_t>(good.size()) - 1);

  std::vector<std::uint32_t> done;
  for (std::uint32_t cut : cuts) {
    if (cut > good.size() || std::find(done.begin(), done.end(), cut) != done.end()) {
      continue;
    }
    done.push_back(cut);
    HostileCase c;
    c.name = BaseName(order, m372) + "CutAt" + std::to_string(cut);
    c.bytes.assign(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(cut));
    // Buffer mode: nothing to parse, a read that runs out, or a whole parse.
    if (cut == 0) {
      c.buffer.init = DtRawErrParam;
    } else if (cut < lastParsed) {
      c.buffer.init = DtRawErrRead;
    } else {
      c.buffer.init = DtRawOk;
    }
    // File mode: the head copy is zero-extended, so the rest reads as zeros.
    const bool markOrMarkerZero =
        cut <= 2 || (cut == 3 && order == DtNlBigEndian);  // byte order or 42 cut off
    if (markOrMarkerZero) {
      c.file.init = DtRawErrNotTiff;
    } else if (cut >= lastParsed) {
      c.file.init = DtRawOk;
    }
    out->push_back(std::move(c));
  }
}

// Every pointer of the file at 0, 1, 0x7FFFFFFF, 0xFFFFFFFF, just past the
// end, and at the directory that holds it (IFD0's next-IFD and Exif pointers
// at IFD0, the Exif IFD's Iob and maker-note pointers at the Exif IFD, the
// maker note's Km pointer at the maker note).
void AddPointers(DtNlByteOrder order, bool m372, std::vector<HostileCase>* out) {
  KpzLayout where;
  const KpzSpec base = BaseSpec(order, m372);
  const Bytes good = kpztest::BuildKpz(base, &where);
  const std::uint32_t pastEnd = (static_cast<std::uint32_t>(good.size()) + 1u) & ~1u;

  enum Pointer { Ifd0, Ifd1, Exif, Iob, MakerNote, Km };
  const char* names[] = {"Ifd0Offset", "Ifd1Pointer", "ExifPointer",
                         "IobPointer", "MakerNotePointer", "KmPointer"};
  const std::uint32_t loops[] = {0, where.ifd0, where.ifd0, where.exif, where.exif,
                                 where.makerNoteDir};

  for (int p = Ifd0; p <= Km; ++p) {
    const std::vector<std::pair<std::string, std::uint32_t>> values = {
        {"0", 0u},
        {"1", 1u},
        {"0x7FFFFFFF", 0x7FFFFFFFu},
        {"0xFFFFFFFF", 0xFFFFFFFFu},
        {"PastTheEnd", pastEnd},
        {"AtTheDirectoryHoldingIt", loops[p]}};
    for (const auto& v : values) {
      if (p == Ifd0 && v.first == "AtTheDirectoryHoldingIt") {
        continue;  // IFD0 has nothing before it but the header (the 0 case)
      }
      KpzSpec s = base;
      switch (p) {
        case Ifd0: s.ifd0Offset = v.second; break;
        case Ifd1: s.ifd1Pointer = v.second; break;
        case Exif: s.exifPointer = v.second; break;
        case Iob: s.iobPointer = v.second; break;
        case MakerNote: s.makerNotePointer = v.second; break;
        default: s.kmPointer = v.second; break;
      }
      HostileCase c;
      c.name = BaseName(order, m372) + names[p] + "At" + v.first;
      // The "x" of the hexadecimal values is not allowed in a test name.
      for (char& ch : c.name) {
        if (ch == 'x') ch = 'X';
      }
      c.bytes = kpztest::BuildKpz(s);

      if (p == Km && !m372) {
        // Another model has no Km maker-note pointer: nothing changes.
        c.buffer = Both(DtRawOk);
        c.file = Both(DtRawOk);
      } else if (v.second == 0u || v.second == 1u || v.second == 0xFFFFFFFFu) {
        // 0xFFFFFFFF is -1 as a seek offset and lands on 0. A directory read
        // at offset 0 or 1 takes header bytes as its entry count (over
        // 10,000 entries), which never fit: the read runs out. A "DSLR-M372"
        // maker note there lacks the "KAVI" signature instead.
        const int code = (p == MakerNote && m372) ? DtRawErrFormat : DtRawErrRead;
        c.buffer = Both(code);
        c.file = Both(code);
      } else if (v.second == 0x7FFFFFFFu) {
        // Far beyond any data: the read there runs out in both modes.
        c.buffer = Both(DtRawErrRead);
        c.file = Both(DtRawErrRead);
      } else if (v.first == "PastTheEnd") {
        c.buffer = Both(DtRawErrRead);
        // In file mode the directory there is all zeros: empty.
        switch (p) {
          case Ifd1: c.file = Both(DtRawOk, ExpectNoThumbnail); break;
          case Exif: c.file = Both(DtRawErrFormat); break;  // no maker note
          case Iob: c.file = Both(DtRawOk, ExpectNoIobIndex); break;
          case MakerNote:
            c.file = m372 ? Both(DtRawErrFormat)  // zeros are not "KAVI"
                          : Both(DtRawOk, ExpectScreennailWithoutSize);
            break;
          case Km: c.file = Both(DtRawOk, ExpectNoScreennail); break;
          default:
            // An empty IFD0 whose next offset 0 makes IFD1 start at the header.
            c.file = Both(DtRawErrRead);
            break;
        }
      } else {
        // At the directory that holds the pointer.
        Expect e;
        switch (p) {
          case Ifd1: e = Both(DtRawOk, ExpectNoThumbnail); break;  // IFD0 has no compression
          case Exif: e = Both(DtRawErrFormat); break;              // IFD0 has no maker note
          case Iob: e = Both(DtRawOk, ExpectNoIobIndex); break;    // the Exif IFD's ids
          case MakerNote:
            e = m372 ? Both(DtRawErrFormat) : Both(DtRawOk, ExpectScreennailWithoutSize);
            break;
          default: e = Both(DtRawOk, ExpectNoScreennail); break;  // Km: the maker note's ids
        }
        c.buffer = e;
        c.file = e;
      }
      out->push_back(std::move(c));
    }
  }
}

// Entry counts of 0, 1 and 0xFFFF in each directory.
void AddCounts(DtNlByteOrder order, bool m372, std::vector<HostileCase>* out) {
  const KpzSpec base = BaseSpec(order, m372);
  enum Dir { Ifd0, Ifd1, Exif, Iob, MakerNote, Km };
  const char* names[] = {"Ifd0", "Ifd1", "Exif", "Iob", "MakerNote", "KmMakerNote"};
  for (int d = Ifd0; d <= Km; ++d) {
    if (d == Km && !m372) {
      continue;
    }
    for (std::uint16_t count : {std::uint16_t{0}, std::uint16_t{1}, std::uint16_t{0xFFFF}}) {
      KpzSpec s = base;
      auto edit = [count](Ifd& ifd) { ifd.SetCountOverride(count); };
      switch (d) {
        case Ifd0: s.editIfd0 = edit; break;
        case Ifd1: s.editIfd1 = edit; break;
        case Exif: s.editExif = edit; break;
        case Iob: s.editIob = edit; break;
        case MakerNote: s.editMakerNote = edit; break;
        default: s.editKm = edit; break;
      }
      HostileCase c;
      c.name = BaseName(order, m372) + names[d] + "Counts" + std::to_string(count) + "Entries";
      c.bytes = kpztest::BuildKpz(s);
      Expect e;
      if (count == 0xFFFF) {
        // 65,535 entries never fit: the directory runs out of data.
        e = Both(DtRawErrRead);
      } else {
        switch (d) {
          case Ifd0:
            // The next-IFD offset is read from an entry's tag and type:
            // far beyond the data, so IFD1 cannot be read.
            e = Both(DtRawErrRead);
            break;
          case Ifd1: e = Both(DtRawOk, ExpectNoThumbnail); break;  // at most the compression
          case Exif: e = Both(DtRawErrFormat); break;  // no maker note among the first
          case Iob:
            e = count == 0 ? Both(DtRawOk, ExpectNoIobIndex) : Both(DtRawOk, ExpectNoIobVersion);
            break;
          case MakerNote:
            if (count == 0) {
              e = m372 ? Both(DtRawErrFormat) : Both(DtRawOk, ExpectScreennailWithoutSize);
            } else {
              // The first entry: the Km pointer ("DSLR-M372") or the screennail size.
              e = Both(DtRawOk);
            }
            break;
          default: e = Both(DtRawOk, ExpectNoScreennail); break;  // Km: no length
        }
      }
      c.buffer = e;
      c.file = e;
      out->push_back(std::move(c));
    }
  }
}

// Target tags of every type 0..13 whose count times the type's unit size
// wraps (or reaches 0xFFFFFFFF for one-byte types).
void AddTypes(DtNlByteOrder order, bool m372, std::vector<HostileCase>* out) {
  KpzLayout where;
  const KpzSpec base = BaseSpec(order, m372);
  (void)kpztest::BuildKpz(base, &where);

  for (std::uint16_t type = 0; type <= 13; ++type) {
    std::uint32_t unit = 1;
    switch (type) {
      case 3: unit = 2; break;
      case 4: case 9: unit = 4; break;
      case 5: case 10: unit = 8; break;
      default: unit = 1; break;
    }
    // count * unit wraps to unit (0x80000001 SHORTs are 2 bytes), or is
    // 0xFFFFFFFF for one-byte types.
    const std::uint32_t count = unit == 1 ? 0xFFFFFFFFu : 0xFFFFFFFFu / unit + 2u;
    const std::string t = "Type" + std::to_string(type);

    // IFD0 orientation: inline 6 for sizes up to 4, else at offset 4.
    {
      KpzSpec s = base;
      const Bytes six = kpztest::U16Bytes(6, order);
      s.editIfd0 = [type, count, unit, six](Ifd& ifd0) {
        if (unit == 8) {
          ifd0.ReplaceRaw(tag::kOrientation, type, count, 4u);
        } else {
          ifd0.Remove(tag::kOrientation);
          ifd0.AddRawField(tag::kOrientation, type, count, {six[0], six[1], 0, 0});
        }
      };
      HostileCase c;
      c.name = BaseName(order, m372) + "Orientation" + t + "CountOverflows";
      c.bytes = kpztest::BuildKpz(s);
      const Bytes image = c.bytes;
      std::function<void(DtRaw&)> after;
      if (unit == 1) {
        // 0xFFFFFFFF bytes: kept without bytes, so unreadable.
        after = [](DtRaw& raw) {
          unsigned char r = 0xEE;
          EXPECT_EQ(raw.GetRotationInfo(&r), DtRawErrNoData);
          EXPECT_EQ(r, 0xEE);
        };
      } else if (unit == 8) {
        const unsigned char want = DtRaw::convRotInfoStdtoUse(U16At(image, 4, order));
        after = [want](DtRaw& raw) {
          unsigned char r = 0xEE;
          EXPECT_EQ(raw.GetRotationInfo(&r), DtRawOk);
          EXPECT_EQ(r, want);
        };
      } else {
        after = [](DtRaw& raw) {
          unsigned char r = 0xEE;
          EXPECT_EQ(raw.GetRotationInfo(&r), DtRawOk);
          EXPECT_EQ(r, 1);  // orientation 6
        };
      }
      c.buffer = Both(DtRawOk, after);
      c.file = Both(DtRawOk, after);
      out->push_back(std::move(c));
    }

    // IFD0 screennail offset (the Km maker note's for "DSLR-M372").
    {
      KpzSpec s = base;
      const std::uint32_t field = unit == 8 ? where.ifd0 : where.screennail;
      auto edit = [type, count, field](Ifd& ifd, std::uint16_t id) {
        ifd.ReplaceRaw(id, type, count, field);
      };
      if (m372) {
        s.editKm = [edit](Ifd& km) { edit(km, tag::kKmScreennailOffset); };
      } else {
        s.editIfd0 = [edit](Ifd& ifd0) { edit(ifd0, tag::kJpegOffset); };
      }
      HostileCase c;
      c.name = BaseName(order, m372) + "ScreennailOffset" + t + "CountOverflows";
      c.bytes = kpztest::BuildKpz(s);
      std::function<void(DtRaw&)> after;
      if (unit == 4) {
        const std::uint32_t want = where.screennail;
        after = [want](DtRaw& raw) {
          DtRawScreennailInfo info;
          EXPECT_EQ(raw.GetScreennailInfo(&info), DtRawOk);
          EXPECT_EQ(info.m_fileOffset, want);
        };
      } else if (unit == 8) {
        const std::uint32_t want = U32At(c.bytes, where.ifd0, order);
        after = [want](DtRaw& raw) {
          DtRawScreennailInfo info;
          EXPECT_EQ(raw.GetScreennailInfo(&info), DtRawOk);
          EXPECT_EQ(info.m_fileOffset, want);
        };
      } else {
        after = ExpectNoScreennail;  // 2 bytes, or none kept
      }
      c.buffer = Both(DtRawOk, after);
      c.file = Both(DtRawOk, after);
      out->push_back(std::move(c));
    }

    // IFD0 Exif pointer.
    {
      KpzSpec s = base;
      const std::uint32_t field = where.exif;
      s.exifPointer = where.exif;
      s.editIfd0 = [type, count, field](Ifd& ifd0) {
        ifd0.ReplaceRaw(tag::kExifPointer, type, count, field);
      };
      HostileCase c;
      c.name = BaseName(order, m372) + "ExifPointer" + t + "CountOverflows";
      c.bytes = kpztest::BuildKpz(s);
      if (unit == 4) {
        c.buffer = Both(DtRawOk);
        c.file = Both(DtRawOk);
      } else if (unit == 8) {
        // Eight bytes read at the Exif IFD: its count and first tag make
        // an offset far beyond the data.
        const std::uint32_t taken = U32At(c.bytes, where.exif, order);
        if (taken >= DtRaw::READ_SIZE) {
          c.buffer = Both(DtRawErrRead);
          c.file = Both(DtRawErrRead);
        }
      } else {
        // Too short or not kept: no Exif IFD, hence no maker note.
        c.buffer = Both(DtRawErrFormat);
        c.file = Both(DtRawErrFormat);
      }
      out->push_back(std::move(c));
    }

    // Exif maker note.
    {
      KpzSpec s = base;
      const std::uint32_t field = where.makerNote;
      s.editExif = [type, count, field](Ifd& exif) {
        exif.ReplaceRaw(tag::kMakerNote, type, count, field);
      };
      HostileCase c;
      c.name = BaseName(order, m372) + "MakerNote" + t + "CountOverflows";
      c.bytes = kpztest::BuildKpz(s);
      if (unit == 1 || unit == 8) {
        // Kept by position at its real offset: parsed as usual.
        c.buffer = Both(DtRawOk);
        c.file = Both(DtRawOk);
      }
      out->push_back(std::move(c));
    }
  }
}

// Value counts of 0, 1, 0x7FFFFFFF and 0xFFFFFFFF on the Make and Model
// names (ASCII, field 8), and IFD0 DateTime value offsets at 0, 1,
// 0x7FFFFFFF and 0xFFFFFFFF.
void AddValueCountsAndOffsets(DtNlByteOrder order, bool m372, std::vector<HostileCase>* out) {
  const KpzSpec base = BaseSpec(order, m372);
  const std::vector<std::pair<std::string, std::uint32_t>> values = {
      {"0", 0u}, {"1", 1u}, {"0X7FFFFFFF", 0x7FFFFFFFu}, {"0XFFFFFFFF", 0xFFFFFFFFu}};
  for (const auto& v : values) {
    const std::uint32_t n = v.second;
    {
      KpzSpec s = base;
      s.editIfd0 = [n](Ifd& ifd0) { ifd0.ReplaceRaw(tag::kMake, kpztest::kTiffAscii, n, 8u); };
      HostileCase c;
      c.name = BaseName(order, m372) + "MakeCount" + v.first;
      c.bytes = kpztest::BuildKpz(s);
      // Counts over 32 are read from the head copy at offset 8 when asked
      // for; 0xFFFFFFFF bytes can never be read whole.
      const int name = n == 0xFFFFFFFFu ? DtRawErrNoData : DtRawOk;
      auto after = [name](DtRaw& raw) {
        char buff[32];
        EXPECT_EQ(raw.GetMakerName(buff, sizeof buff), name);
      };
      c.buffer = Both(DtRawOk, after);
      c.file = Both(DtRawOk, after);
      out->push_back(std::move(c));
    }
    {
      KpzSpec s = base;
      s.editIfd0 = [n](Ifd& ifd0) { ifd0.ReplaceRaw(tag::kModel, kpztest::kTiffAscii, n, 8u); };
      HostileCase c;
      c.name = BaseName(order, m372) + "ModelCount" + v.first;
      c.bytes = kpztest::BuildKpz(s);
      if (n != 1u) {
        // No bytes kept (none, or more than 32): no model name.
        c.buffer = Both(DtRawErrFormat);
        c.file = Both(DtRawErrFormat);
      }
      out->push_back(std::move(c));
    }
    {
      KpzSpec s = base;
      s.editIfd0 = [n](Ifd& ifd0) {
        ifd0.ReplaceRaw(tag::kDateTime, kpztest::kTiffAscii, 20, n);
      };
      HostileCase c;
      c.name = BaseName(order, m372) + "DateTimeOffset" + v.first;
      c.bytes = kpztest::BuildKpz(s);
      // 0xFFFFFFFF is -1 as a seek offset and lands on 0; 0x7FFFFFFF is
      // beyond any data.
      const int init = n == 0x7FFFFFFFu ? DtRawErrRead : DtRawOk;
      c.buffer = Both(init);
      c.file = Both(init);
      out->push_back(std::move(c));
    }
  }
}

// Headers that are not TIFF, and files of nothing but a header.
void AddHeaders(DtNlByteOrder order, std::vector<HostileCase>* out) {
  const std::string o = order == DtNlBigEndian ? "BigEndian" : "LittleEndian";
  const std::uint16_t mark = order == DtNlBigEndian ? 0x4D4D : 0x4949;
  struct H {
    std::string name;
    std::uint16_t mark;
    std::uint16_t marker;
    std::uint32_t ifd0;
    int result;
  };
  const std::vector<H> headers = {
      {"MixedMarkIM", 0x494D, 42, 8, DtRawErrNotTiff},
      {"MixedMarkMI", 0x4D49, 42, 8, DtRawErrNotTiff},
      {"Marker43", mark, 43, 8, DtRawErrNotTiff},
      {"MarkerSwapped", mark, 0x2A00, 8, DtRawErrNotTiff},
      {"HeaderOnly", mark, 42, 8, 0},  // IFD0 at the end of the data
  };
  for (const H& h : headers) {
    kpztest::KpzFile f(order);
    f.RawHeader(h.mark, h.marker, h.ifd0);
    HostileCase c;
    c.name = o + "Header" + h.name;
    c.bytes = f.Take();
    if (h.result != 0) {
      c.buffer = Both(h.result);
      c.file = Both(h.result);
    } else {
      // Buffer mode: no IFD0 in the data. File mode: an empty IFD0 of
      // zeros, whose next offset 0 makes IFD1 start at the header.
      c.buffer = Both(DtRawErrRead);
      c.file = Both(DtRawErrRead);
    }
    out->push_back(std::move(c));
  }
}

std::vector<HostileCase> Catalogue() {
  std::vector<HostileCase> all;
  for (DtNlByteOrder order : {DtNlLittleEndian, DtNlBigEndian}) {
    AddHeaders(order, &all);
    for (bool m372 : {false, true}) {
      AddTruncations(order, m372, &all);
      AddPointers(order, m372, &all);
      AddCounts(order, m372, &all);
      AddTypes(order, m372, &all);
      AddValueCountsAndOffsets(order, m372, &all);
    }
  }
  return all;
}

// ---- Running one case -------------------------------------------------------

// Every line on standard error has the logger's form; no assertion fired.
void ExpectOnlyLogLines(const std::string& err) {
  EXPECT_EQ(err.find("ASSERT!!"), std::string::npos) << err;
  std::size_t start = 0;
  while (start < err.size()) {
    const std::size_t end = err.find('\n', start);
    ASSERT_NE(end, std::string::npos) << "unterminated line: " << err.substr(start);
    const std::string line = err.substr(start, end - start);
    const bool info = line.rfind("\033[0mINFO [jni/", 0) == 0;
    const bool warn = line.rfind("\033[33mWARN [jni/", 0) == 0;
    const bool error = line.rfind("\033[31mERR  [jni/", 0) == 0;
    EXPECT_TRUE(info || warn || error) << "not a log line: " << line;
    EXPECT_TRUE(line.size() >= 4 && line.compare(line.size() - 4, 4, "\033[0m") == 0)
        << "not a log line: " << line;
    start = end + 1;
  }
}

// The read-only queries; `notInit` is -201 before initialisation, else a
// code no query returns.
void RunQueries(DtRaw& raw, int notInit, const Bytes& image) {
  DtRawScreennailInfo scn;
  int r = raw.GetScreennailInfo(&scn);
  EXPECT_TRUE(OneOf(r, {DtRawOk, DtRawErrNoData, notInit})) << "GetScreennailInfo " << r;

  DtRawThumbnailInfo thumb;
  const int thumbResult = raw.GetThumbnailInfo(&thumb);
  EXPECT_TRUE(OneOf(thumbResult, {DtRawOk, DtRawErrNoData, notInit}))
      << "GetThumbnailInfo " << thumbResult;
  const std::uint32_t want = thumbResult == DtRawOk && thumb.m_size < 0x10000u ? thumb.m_size
                                                                               : 0x10000u;
  std::vector<std::uint8_t> data(want == 0 ? 1 : want, 0);
  r = raw.GetThumbnailData(data.data(), want);
  EXPECT_TRUE(OneOf(r, {DtRawOk, DtRawErrNoData, notInit, DtRawErrOpen, DtRawErrBuffOpen,
                        DtRawErrNotFound, DtRawErrClose, DtRawErrBuffClose, DtRawErrSeek,
                        DtRawErrRead, DtRawErrIo}))
      << "GetThumbnailData " << r;
  if (r == DtRawOk && want != 0) {
    const std::uint32_t off = thumb.m_fileOffset;
    ASSERT_TRUE(off <= image.size() && want <= image.size() - off);
    EXPECT_EQ(std::memcmp(data.data(), image.data() + off, want), 0);
  }

  unsigned char rotation = 0;
  r = raw.GetRotationInfo(&rotation);
  EXPECT_TRUE(OneOf(r, {DtRawOk, DtRawErrNoData, notInit})) << "GetRotationInfo " << r;
  EXPECT_TRUE(r != DtRawOk || rotation <= 7);

  const char* iob = nullptr;
  int iobSize = 0;
  r = raw.GetIobIndex(&iob, &iobSize);
  EXPECT_TRUE(OneOf(r, {DtRawOk, DtRawErrNoData, notInit})) << "GetIobIndex " << r;
  EXPECT_TRUE(r != DtRawOk || (iob != nullptr && iobSize >= 1 && iobSize <= 32));

  const std::initializer_list<int> plain = {DtRawOk, DtRawErrNoData, notInit};
  const std::initializer_list<int> rational = {DtRawOk, DtRawErrNoData, DtRawErrSize, notInit};
  unsigned short u16 = 0;
  short s16 = 0;
  unsigned char u8 = 0;
  unsigned int num = 0;
  unsigned int den = 0;
  int snum = 0;
  int sden = 0;
  DtRawFlashInfo flash;
  DtRawDateTime dt;
  EXPECT_TRUE(OneOf(raw.GetRawImageHeight(&u16), plain));
  EXPECT_TRUE(OneOf(raw.GetRawImageWidth(&u16), plain));
  EXPECT_TRUE(OneOf(raw.GetColorSpace(&s16), plain));
  EXPECT_TRUE(OneOf(raw.GetCustomRendered(&s16), plain));
  EXPECT_TRUE(OneOf(raw.Get35mmFocalLength(&num, &den), plain));
  EXPECT_TRUE(OneOf(raw.GetFlashInfo(&flash), plain));
  EXPECT_TRUE(OneOf(raw.GetExposureProgram(&u8), plain));
  EXPECT_TRUE(OneOf(raw.GetISOSpeed(&u16), plain));
  EXPECT_TRUE(OneOf(raw.GetRealFocalLength(&num, &den), rational));
  EXPECT_TRUE(OneOf(raw.GetFNumber(&num, &den), rational));
  EXPECT_TRUE(OneOf(raw.GetExposureTime(&num, &den), rational));
  EXPECT_TRUE(OneOf(raw.GetExposureBias(&snum, &sden), rational));
  EXPECT_TRUE(OneOf(raw.GetOrgDateTime(&dt), {DtRawOk, DtRawErrNoData, DtRawErrSize, notInit}));
  EXPECT_TRUE(OneOf(raw.GetExifVersion(&u16), {DtRawOk, DtRawErrNoData, DtRawErrExifVersion,
                                               notInit}));
  EXPECT_TRUE(OneOf(raw.GetIobVersion(&u16), {DtRawOk, DtRawErrNoData, DtRawErrIobVersion,
                                              notInit}));
  EXPECT_EQ(raw.GetT593Mode(&u8), DtRawOk);
  for (unsigned size : {1u, 32u, 100u}) {
    // Exactly `size` bytes, so that one byte more would be a sanitizer report.
    std::unique_ptr<char[]> name(new char[size]);
    r = raw.GetMakerName(name.get(), size);
    EXPECT_TRUE(OneOf(r, plain)) << "GetMakerName " << r;
    EXPECT_TRUE(r != DtRawOk || name[size - 1] == '\0');
    r = raw.GetModelName(name.get(), size);
    EXPECT_TRUE(OneOf(r, plain)) << "GetModelName " << r;
    EXPECT_TRUE(r != DtRawOk || name[size - 1] == '\0');
  }
}

long long FileSize(const std::string& path) {
  struct stat st {};
  return stat(path.c_str(), &st) == 0 ? static_cast<long long>(st.st_size) : -1;
}

class DtRawHostileInput : public testing::TestWithParam<HostileCase> {
 protected:
  // Loads the case in `mode` and runs every operation under the watch.
  void RunMode(Mode mode) {
    SCOPED_TRACE(ModeName(mode));
    const HostileCase& c = GetParam();
    const Expect& expect = mode == Mode::File ? c.file : c.buffer;
    kpztest::TempDir dir;
    const std::string path = mode == Mode::File ? dir.Write("hostile.kpz", c.bytes) : "";
    ASSERT_TRUE(mode == Mode::Buffer || !path.empty());
    // The caller's buffer in buffer mode: exactly the file's bytes.
    std::unique_ptr<unsigned char[]> buffer(new unsigned char[c.bytes.empty() ? 1 : c.bytes.size()]);
    if (!c.bytes.empty()) {
      std::memcpy(buffer.get(), c.bytes.data(), c.bytes.size());
    }
    // What a thumbnail copied out must equal: the head copy in file mode.
    Bytes image = c.bytes;
    if (mode == Mode::File && image.size() < DtRaw::READ_SIZE) {
      image.resize(DtRaw::READ_SIZE, 0);
    }
    const std::size_t bound =
        (c.bytes.size() > DtRaw::READ_SIZE ? c.bytes.size() : DtRaw::READ_SIZE) + kAllocationSlack;

    int init = 0;
    std::size_t largest = 0;
    const std::string err = kpztest::CaptureStderr([&] {
      AllocationWatch watch;
      DtRaw raw;
      RunQueries(raw, DtRawErrNotInit, image);
      if (mode == Mode::File) {
        init = raw.Initialize(path.c_str());
        DtNlString asString(path.c_str());
        EXPECT_EQ(raw.Initialize(asString), init) << "Initialize(DtNlString&)";
        DtNlFile asFile(path.c_str());
        EXPECT_EQ(raw.Initialize(asFile), init) << "Initialize(DtNlFile&)";
      } else {
        init = raw.InitializeBuf(buffer.get(), static_cast<int>(c.bytes.size()));
      }
      const int notInit = init == DtRawOk ? 1 : DtRawErrNotInit;
      RunQueries(raw, notInit, image);
      if (init == DtRawOk && expect.after) {
        expect.after(raw);
      }

      const int set = raw.SetRotationInfo(1);
      DtNlTime now;
      const int update = raw.Update(&now);
      if (mode == Mode::Buffer) {
        EXPECT_EQ(set, c.bytes.empty() ? DtRawErrNotInit : DtRawErrBufferMode);
        EXPECT_EQ(update, init == DtRawOk ? DtRawErrBufferMode : DtRawErrNotInit);
      } else {
        EXPECT_TRUE(OneOf(set, {DtRawOk, DtRawErrNoData, DtRawErrSize, DtRawErrStat,
                                DtRawErrNotFound, DtRawErrIo, DtRawErrReadOnly, notInit}))
            << "SetRotationInfo " << set;
        EXPECT_TRUE(OneOf(update, {DtRawOk, DtRawErrStat, DtRawErrOpen, DtRawErrSeek,
                                   DtRawErrWrite, DtRawErrClose, DtRawErrSetTime,
                                   DtRawErrNotFound, DtRawErrIo, notInit}))
            << "Update " << update;
        EXPECT_EQ(FileSize(path), static_cast<long long>(c.bytes.size()))
            << "the write-back changed the file's size";
      }
      raw.Finalize();
      RunQueries(raw, DtRawErrNotInit, image);
      raw.Finalize();
      largest = watch.Largest();
    });
    ExpectOnlyLogLines(err);
    if (expect.init) {
      EXPECT_EQ(init, *expect.init);
    } else {
      EXPECT_TRUE(OneOf(init, {DtRawOk, DtRawErrFormat, DtRawErrParam, DtRawErrOpen,
                               DtRawErrBuffOpen, DtRawErrNotFound, DtRawErrClose,
                               DtRawErrBuffClose, DtRawErrSeek, DtRawErrTell, DtRawErrRead,
                               DtRawErrIo, DtRawErrNotTiff}))
          << "initialisation " << init;
    }
    EXPECT_LT(largest, bound) << "largest single allocation";
  }
};

TEST_P(DtRawHostileInput, EveryOperationEndsInADocumentedCodeWithBoundedMemory) {
  RunMode(Mode::Buffer);
  RunMode(Mode::File);
}

std::string CaseName(const testing::TestParamInfo<HostileCase>& info) { return info.param.name; }

INSTANTIATE_TEST_SUITE_P(Catalogue, DtRawHostileInput, testing::ValuesIn(Catalogue()), CaseName);

// The catalogue is as large as it claims.
TEST(DtRawHostileInputCatalogue, HoldsAtLeastTwoHundredMalformedFiles) {
  EXPECT_GE(Catalogue().size(), 200u);
}

// The watch itself sees an allocation above the bound.
TEST(DtRawHostileInputCatalogue, AllocationWatchSeesALargeAllocation) {
  std::size_t largest = 0;
  {
    AllocationWatch watch;
    std::unique_ptr<unsigned char[]> big(new unsigned char[DtRaw::READ_SIZE * 4]);
    big[0] = 1;
    largest = watch.Largest();
  }
  EXPECT_GE(largest, static_cast<std::size_t>(DtRaw::READ_SIZE) * 4);
}

}  // namespace
