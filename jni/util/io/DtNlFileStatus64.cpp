// DtNlFileStatus64.cpp - accessors over a `struct stat64` record.
#include "util/io/DtNlFileStatus64.h"

#include <cstring>

#include "util/DtNlLogger.h"

namespace {

const unsigned int TYPE_MASK = 0xF000u;
const unsigned int TYPE_FILE = 0x8000u;
const unsigned int TYPE_DIR = 0x4000u;

int hasBits(unsigned int mode, unsigned int bits) { return (mode & bits) != 0 ? 1 : 0; }

}  // namespace

DtNlFileStatus64::DtNlFileStatus64() : record() { std::memset(&record, 0, sizeof(record)); }

DtNlFileStatus64::DtNlFileStatus64(struct stat64 const& other) : record(other) {}

unsigned int DtNlFileStatus64::GetMode() const { return static_cast<unsigned int>(record.st_mode); }

int DtNlFileStatus64::IsFile() const { return (GetMode() & TYPE_MASK) == TYPE_FILE ? 1 : 0; }

int DtNlFileStatus64::IsDir() const { return (GetMode() & TYPE_MASK) == TYPE_DIR ? 1 : 0; }

int DtNlFileStatus64::IsUserReadable() const { return hasBits(GetMode(), 0400u); }
int DtNlFileStatus64::IsUserWritable() const { return hasBits(GetMode(), 0200u); }
int DtNlFileStatus64::IsUserExecutable() const { return hasBits(GetMode(), 0100u); }
int DtNlFileStatus64::IsGroupReadable() const { return hasBits(GetMode(), 040u); }
int DtNlFileStatus64::IsGroupWritable() const { return hasBits(GetMode(), 020u); }
int DtNlFileStatus64::IsGroupExecutable() const { return hasBits(GetMode(), 010u); }
int DtNlFileStatus64::IsOtherReadable() const { return hasBits(GetMode(), 04u); }
int DtNlFileStatus64::IsOtherWritable() const { return hasBits(GetMode(), 02u); }
int DtNlFileStatus64::IsOtherExecutable() const { return hasBits(GetMode(), 01u); }

std::uint64_t DtNlFileStatus64::GetSize() const {
  // A negative size (never given by stat64) reads as 0.
  if (record.st_size < 0) {
    return 0;
  }
  return static_cast<std::uint64_t>(record.st_size);
}

time_t DtNlFileStatus64::GetLastAccessTime() const { return record.st_atime; }

time_t DtNlFileStatus64::GetLastModificationTime() const { return record.st_mtime; }

time_t DtNlFileStatus64::GetLastChangeTime() const { return record.st_ctime; }

void DtNlFileStatus64::GetUTime(utimbuf* out) const {
  DTNL_ASSERT(__LINE__, out != nullptr, "");
  out->actime = record.st_atime;
  out->modtime = record.st_mtime;
}
