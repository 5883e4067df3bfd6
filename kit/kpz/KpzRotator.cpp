// KpzRotator.cpp - `kpz rotate` on one file through DtRaw's write-back
// (tools/kpz, above jni/raw). See KpzRotator.h for the contracts.

#include "kpz/KpzRotator.h"

#include <filesystem>
#include <system_error>

#include "kpz/KpzErrorText.h"
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

}  // namespace

KpzRotator::Outcome KpzRotator::Rotate(const std::string& path, const Change& change,
                                       bool dryRun) {
  Outcome out;
  std::error_code ec;
  if (std::filesystem::is_directory(path, ec)) {
    return failed(out, Failure::Input, 0, KpzErrorText::Directory());
  }
  DtRaw raw;
  const int initRet = raw.Initialize(path.c_str());
  if (initRet != DtRawOk) {
    return failed(out, Failure::Input, initRet, KpzErrorText::ForFile(path, initRet));
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
  out.ok = true;
  return out;
}

std::string KpzRotator::Report(const std::string& path, const Outcome& outcome, bool dryRun) {
  std::string line = path + ": " + KpzRotation::Words(outcome.before) + " -> " +
                     KpzRotation::Words(outcome.after);
  if (outcome.before == outcome.after) {
    line += " (unchanged)";
  } else if (dryRun) {
    line += " (dry run, not written)";
  }
  return line + "\n";
}
