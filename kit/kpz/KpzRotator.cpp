// KpzRotator.cpp - `kpz rotate` on one file through DtRaw's write-back
// (kit/kpz, above jni/raw). See KpzRotator.h for the contracts.

#include "kpz/KpzRotator.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cstring>

#include "kpz/KpzErrorText.h"
#include "kpz/KpzSource.h"
#include "raw/DtRaw.h"
#include "raw/DtRawError.h"
#include "raw/DtRawRecord.h"
#include "raw/parser/DtRawHeadIo.h"
#include "raw/parser/DtRawTagData.h"

namespace {

KpzRotator::Outcome failed(KpzRotator::Outcome out, KpzRotator::Failure failure, int result,
                           const std::string& error) {
  out.ok = false;
  out.failure = failure;
  out.result = result;
  out.error = error;
  return out;
}

// Words for a refused SetRotationInfo.
std::string setError(int code) {
  switch (code) {
    case DtRawErrReadOnly:
      return "the file is read-only (its owner may not write it); not changed";
    case DtRawErrSize:
      return "an orientation entry is not 2 bytes long; not changed";
    case DtRawErrNoData:
      return "no orientation recorded in this file; not changed";
    case DtRawErrStat:
    case DtRawErrNotFound:
    case DtRawErrIo:
      return "the file's status cannot be read; not changed";
    default:
      return "the orientation cannot be set (error " + std::to_string(code) + "); not changed";
  }
}

// Words for a failed Update.
std::string updateError(int code) {
  switch (code) {
    case DtRawErrOpen:
    case DtRawErrNotFound:
      return "the file cannot be opened for writing; not changed";
    case DtRawErrStat:
      return "the file's status cannot be read; not changed";
    case DtRawErrSetTime:
      return "orientation written, but the file's times could not be set back";
    case DtRawErrClose:
      return "the file could not be closed after writing; it may be changed only in part";
    case DtRawErrSeek:
      return "the orientation's place in the file could not be reached (seek failed); the file "
             "may be changed only in part";
    case DtRawErrIo:
      return "input/output error while writing the orientation; the file may be changed only "
             "in part";
    default:
      return "writing the orientation failed (error " + std::to_string(code) +
             "); the file may be changed only in part";
  }
}

const UINT16 kTagOrientation = 0x0112;
const UINT16 kTagDateTime = 0x0132;
const std::uint32_t kOrientationSize = 2;
const std::uint32_t kDateTimeSize = 20;

// The TIFF header's bytes at the start of the file (byte order, 42, IFD0's
// offset): no value written or copied may lie among them.
const std::uint32_t kTiffHeaderSize = 8;
// A directory entry: tag, type, count, then the value or its offset.
const std::uint32_t kEntrySize = 12;
// The library seeks to a value's position as a signed 32-bit number: from
// 2 GiB on it is negative, and the read of the head clamps it to byte 0.
const std::uint32_t kLastReachable = 0x7FFFFFFFu;

// One place the write-back changes.
struct Write {
  const char* what;
  const DtRawHeadIo::Place* place;
};

bool overlaps(std::uint64_t aPos, std::uint64_t aSize, std::uint64_t bPos, std::uint64_t bSize) {
  return aPos < bPos + bSize && bPos < aPos + aSize;
}

std::string partWords(INT32 category) {
  switch (category) {
    case DtRawTagCategoryIfd0:
      return "IFD0's";
    case DtRawTagCategoryIfd1:
      return "IFD1's";
    case DtRawTagCategoryExif:
      return "the Exif directory's";
    case DtRawTagCategoryIob:
      return "the interoperability directory's";
    case DtRawTagCategoryMakerNote:
      return "the maker note's";
    case DtRawTagCategoryKmMakerNote:
      return "the Km maker note's";
    default:
      return "a directory's";
  }
}

// "(<what>, <n> bytes at byte <pos>)"
std::string placeWords(const char* what, const DtRawHeadIo::Place& p) {
  return std::string("(") + what + ", " + std::to_string(p.m_size) + " bytes at byte " +
         std::to_string(p.m_pos) + ")";
}

// Why the `size` bytes at `pos` cannot be used in place ("lies past the end
// of the file ...", "overlaps the file's 8-byte TIFF header"); "" when they
// lie inside the file, after its header and within the library's reach.
std::string reachWords(std::uint32_t pos, std::uint32_t size, std::uint64_t fileSize) {
  // Subtraction form, in 64 bits: neither pos + size nor fileSize - size wraps.
  if (size > fileSize || pos > fileSize - size) {
    return "lies past the end of the file (" + std::to_string(fileSize) + " bytes)";
  }
  if (pos > kLastReachable) {
    return "lies 2 GiB or more into the file, beyond the reach of a change in place";
  }
  if (pos < kTiffHeaderSize) {
    return "overlaps the file's " + std::to_string(kTiffHeaderSize) + "-byte TIFF header";
  }
  return std::string();
}

// Every place DtRaw::Update will write for a new orientation, and the bytes
// it copies there, worked out from where the library's parse found the
// entries (`places`, kept by the head channel it ran through) by
// SetRotationInfo's and syncDateTime's rules, and checked before anything
// is written: each lies inside the file, after its TIFF header and below
// 2 GiB; the date and time copied into IFD1's was read from the file
// itself; no written value overlaps a directory entry other than its own,
// nor the bytes it is copied from. Empty words when all holds.
//
// The library itself seeks to a value's offset with its sign and clamps a
// read of the head to its start (a negative offset reads byte 0 on), so
// these checks are made here, before it is asked to write.
std::string checkPlan(const DtRawHeadIo::Places& places) {
  Write plan[3] = {};
  std::size_t count = 0;
  const DtRawHeadIo::Place* ifd0 = places.Get(DtRawTagCategoryIfd0, kTagOrientation);
  if (ifd0 == nullptr || ifd0->m_size != kOrientationSize) {
    // The library answered a 2-byte orientation its parse kept nowhere
    // seen here: the plan would not be whole.
    return "the places of the orientation in the file cannot be worked out; not changed";
  }
  plan[count++] = Write{"IFD0's orientation", ifd0};
  const DtRawHeadIo::Place* ifd1 = places.Get(DtRawTagCategoryIfd1, kTagOrientation);
  if (ifd1 != nullptr && ifd1->m_size == kOrientationSize) {
    plan[count++] = Write{"IFD1's orientation", ifd1};
  }
  const DtRawHeadIo::Place* time0 = places.Get(DtRawTagCategoryIfd0, kTagDateTime);
  const DtRawHeadIo::Place* time1 = places.Get(DtRawTagCategoryIfd1, kTagDateTime);
  const DtRawHeadIo::Place* copied = nullptr;
  if (time0 != nullptr && time1 != nullptr && time0->m_size == kDateTimeSize &&
      time1->m_size == kDateTimeSize) {
    // Written when the two differ (compared as text); when either could not
    // be compared here, counted as written.
    const bool same =
        time0->m_hasData && time1->m_hasData &&
        std::strncmp(reinterpret_cast<const char*>(time0->m_data),
                     reinterpret_cast<const char*>(time1->m_data), kDateTimeSize) == 0;
    if (!same) {
      plan[count++] = Write{"IFD1's date and time", time1};
      copied = time0;
    }
  }
  const std::uint64_t fileSize = places.m_fileSize;
  if (copied != nullptr) {
    // The bytes copied are IFD0's value as the library read it from the
    // head: they must be the file's own, where the entry says they are.
    std::string why = reachWords(copied->m_pos, copied->m_size, fileSize);
    if (why.empty() && (copied->m_pos > DtRawHeadIo::HEAD_SIZE ||
                        copied->m_size > DtRawHeadIo::HEAD_SIZE - copied->m_pos)) {
      why = "lies beyond the first 64 KiB, which is all that is read";
    }
    if (!why.empty()) {
      return "the date and time to be copied to the thumbnail's " +
             placeWords("IFD0's date and time", *copied) + " " + why + "; not changed";
    }
  }
  for (std::size_t i = 0; i < count; ++i) {
    const DtRawHeadIo::Place& p = *plan[i].place;
    const std::string head =
        "a place the new orientation is written to " + placeWords(plan[i].what, p) + " ";
    const std::string why = reachWords(p.m_pos, p.m_size, fileSize);
    if (!why.empty()) {
      return head + why + "; not changed";
    }
    // A value written over the bytes it is copied from.
    if (copied != nullptr && &p != copied &&
        overlaps(p.m_pos, p.m_size, copied->m_pos, copied->m_size)) {
      return head + "overlaps the date and time copied to it (" +
             std::to_string(copied->m_size) + " bytes at byte " +
             std::to_string(copied->m_pos) + "); not changed";
    }
    // A value written over an entry: first the entries written, then every
    // other entry kept. A value held in its own entry's field is inside it.
    const DtRawHeadIo::Place* hit = nullptr;
    for (std::size_t j = 0; j < count && hit == nullptr; ++j) {
      const DtRawHeadIo::Place& q = *plan[j].place;
      if (&q != &p && overlaps(p.m_pos, p.m_size, q.m_entry, kEntrySize)) {
        hit = &q;
      }
    }
    for (UINT j = 0; j < places.m_count && hit == nullptr; ++j) {
      const DtRawHeadIo::Place& q = places.m_at[j];
      if (&q != &p && overlaps(p.m_pos, p.m_size, q.m_entry, kEntrySize)) {
        hit = &q;
      }
    }
    if (hit != nullptr) {
      return head + "overlaps " + partWords(hit->m_category) + " entry of tag " +
             std::to_string(hit->m_tag) + " (" + std::to_string(kEntrySize) + " bytes at byte " +
             std::to_string(hit->m_entry) + "); not changed";
    }
  }
  return std::string();
}

}  // namespace

KpzRotator::Outcome KpzRotator::Rotate(const std::string& path, const Change& change, bool dryRun) {
  KpzSource source;
  std::string why;
  if (!source.Open(path, &why)) {
    Outcome out;
    out.openErrno = source.Errno();
    return failed(out, Failure::Input, KpzErrorText::OpenResult(out.openErrno), why);
  }
  return Rotate(source, change, dryRun);
}

KpzRotator::Outcome KpzRotator::Rotate(KpzSource& source, const Change& change, bool dryRun) {
  Outcome out;
  // The one parse runs through a head channel that records why it stops
  // and where the entries it kept lie.
  DtRawHeadIo io(source.Size());
  DtRawHeadIo::Places places;
  io.KeepPlaces(&places);
  DtRaw raw;
  DtRawRecord::ParseThrough(&raw, &io);
  const std::string libraryPath = source.LibraryPath();
  const int initRet = raw.Initialize(libraryPath.c_str());
  if (initRet != DtRawOk) {
    return failed(out, Failure::Input, initRet, KpzErrorText::ForParse(io, initRet));
  }
  unsigned char current = 0;
  const int getRet = raw.GetRotationInfo(&current);
  if (getRet == DtRawErrNoData) {
    return failed(out, Failure::Input, getRet,
                  "no orientation recorded in this file; it cannot be set in place");
  }
  if (getRet != DtRawOk) {
    return failed(out, Failure::Input, getRet,
                  "the orientation cannot be read (error " + std::to_string(getRet) + ")");
  }
  out.before = current;
  out.after = change.setCode ? change.code : KpzRotation::Turn(current, change.turn);
  if (out.after == out.before) {
    out.ok = true;  // nothing to write: the file is left as it is
    return out;
  }
  const int setRet = raw.SetRotationInfo(out.after);
  if (setRet != DtRawOk) {
    return failed(out, Failure::Output, setRet, setError(setRet));
  }
  // Every place to be written is checked before the first byte is: a
  // failure leaves the file as it was (a dry run says it too).
  const std::string planError = checkPlan(places);
  if (!planError.empty()) {
    raw.Finalize();  // drops the queued change unwritten
    return failed(out, Failure::Output, DtRawErrSeek, planError);
  }
  if (dryRun) {
    raw.Finalize();  // drops the queued change unwritten
    out.ok = true;
    return out;
  }
  const int updateRet = raw.Update(nullptr);
  raw.Finalize();
  if (updateRet != DtRawOk) {
    out.written = updateRet == DtRawErrSetTime;
    return failed(out, Failure::Output, updateRet, updateError(updateRet));
  }
  out.written = true;
  // The library sets the times back to the second; the modification time
  // is set back whole (nanoseconds included), through the descriptor.
  struct timespec times[2];
  times[0].tv_sec = 0;
  times[0].tv_nsec = UTIME_OMIT;  // the access time as the library left it
  times[1] = source.ModifiedAt();
  if (futimens(source.Fd(), times) != 0) {
    return failed(out, Failure::Output, DtRawErrSetTime, updateError(DtRawErrSetTime));
  }
  out.ok = true;
  return out;
}

std::string KpzRotator::Report(const std::string& path, const Outcome& outcome, bool dryRun) {
  std::string line =
      path + ": " + KpzRotation::Words(outcome.before) + " -> " + KpzRotation::Words(outcome.after);
  if (outcome.before == outcome.after) {
    line += " (unchanged)";
  } else if (dryRun) {
    line += " (dry run, not written)";
  }
  return line + "\n";
}
