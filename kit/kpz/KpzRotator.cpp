// KpzRotator.cpp - `kpz rotate` on one file through DtRaw's write-back
// (tools/kpz, above jni/raw). See KpzRotator.h for the contracts.

#include "kpz/KpzRotator.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cstring>

#include "kpz/KpzErrorText.h"
#include "kpz/KpzLayoutCheck.h"
#include "kpz/KpzSource.h"
#include "raw/DtRaw.h"
#include "raw/DtRawError.h"

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

// One place the write-back changes.
struct Write {
  const char* what;
  const KpzLayoutCheck::Place* place;
};

// Every place DtRaw::Update will write for a new orientation, worked out
// from the head as the library parsed it (SetRotationInfo's and
// syncDateTime's rules), each checked against the file before anything is
// written. Empty words when all lie inside the file.
std::string checkPlan(KpzSource& source) {
  const KpzLayoutCheck::Places places = KpzLayoutCheck::Locate(source.Head(), source.Size());
  Write plan[3] = {};
  std::size_t count = 0;
  const KpzLayoutCheck::Place* ifd0 = places.Get(DtRawLayoutCheck::PartIfd0, kTagOrientation);
  if (ifd0 == nullptr || ifd0->m_size != kOrientationSize) {
    // The library found a 2-byte orientation the walk did not: the plan
    // would not be whole.
    return "the places of the orientation in the file cannot be worked out; not changed";
  }
  plan[count++] = Write{"IFD0's orientation", ifd0};
  const KpzLayoutCheck::Place* ifd1 = places.Get(DtRawLayoutCheck::PartIfd1, kTagOrientation);
  if (ifd1 != nullptr && ifd1->m_size == kOrientationSize) {
    plan[count++] = Write{"IFD1's orientation", ifd1};
  }
  const KpzLayoutCheck::Place* time0 = places.Get(DtRawLayoutCheck::PartIfd0, kTagDateTime);
  const KpzLayoutCheck::Place* time1 = places.Get(DtRawLayoutCheck::PartIfd1, kTagDateTime);
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
    }
  }
  const std::uint64_t fileSize = source.Size();
  for (std::size_t i = 0; i < count; ++i) {
    const KpzLayoutCheck::Place& p = *plan[i].place;
    const std::uint64_t end = std::uint64_t{p.m_pos} + p.m_size;
    // The library seeks to a signed 32-bit position: 2 GiB and more fail.
    if (p.m_pos > 0x7FFFFFFFu || end > fileSize) {
      return std::string("a place the new orientation is written to (") + plan[i].what + ", " +
             std::to_string(p.m_size) + " bytes at byte " + std::to_string(p.m_pos) +
             ") lies past the end of the file (" + std::to_string(fileSize) +
             " bytes); not changed";
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
  DtRaw raw;
  const std::string libraryPath = source.LibraryPath();
  const int initRet = raw.Initialize(libraryPath.c_str());
  if (initRet != DtRawOk) {
    return failed(out, Failure::Input, initRet, KpzErrorText::ForSource(source, initRet));
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
  const std::string planError = checkPlan(source);
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
