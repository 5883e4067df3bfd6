// DtNlFileStatus.cpp - accessors over a `struct stat` record.
#include "util/io/DtNlFileStatus.h"

#include <cstdint>
#include <cstring>

#include "util/DtNlLogger.h"

namespace {

const unsigned int TYPE_MASK = 0xF000u;
const unsigned int TYPE_FILE = 0x8000u;
const unsigned int TYPE_DIR = 0x4000u;

int hasBits(unsigned int mode, unsigned int bits) { return (mode & bits) != 0 ? 1 : 0; }

}  // namespace

DtNlFileStatus::DtNlFileStatus() : record() { std::memset(&record, 0, sizeof(record)); }

DtNlFileStatus::DtNlFileStatus(struct stat const& other) : record(other) {}

unsigned int DtNlFileStatus::GetMode() const { return static_cast<unsigned int>(record.st_mode); }

int DtNlFileStatus::IsFile() const { return (GetMode() & TYPE_MASK) == TYPE_FILE ? 1 : 0; }

int DtNlFileStatus::IsDir() const { return (GetMode() & TYPE_MASK) == TYPE_DIR ? 1 : 0; }

int DtNlFileStatus::IsUserReadable() const { return hasBits(GetMode(), 0400u); }
int DtNlFileStatus::IsUserWritable() const { return hasBits(GetMode(), 0200u); }
int DtNlFileStatus::IsUserExecutable() const { return hasBits(GetMode(), 0100u); }
int DtNlFileStatus::IsGroupReadable() const { return hasBits(GetMode(), 040u); }
int DtNlFileStatus::IsGroupWritable() const { return hasBits(GetMode(), 020u); }
int DtNlFileStatus::IsGroupExecutable() const { return hasBits(GetMode(), 010u); }
int DtNlFileStatus::IsOtherReadable() const { return hasBits(GetMode(), 04u); }
int DtNlFileStatus::IsOtherWritable() const { return hasBits(GetMode(), 02u); }
int DtNlFileStatus::IsOtherExecutable() const { return hasBits(GetMode(), 01u); }

UINT DtNlFileStatus::GetSize() const {
  // Deliberate: only the low 32 bits of the size are kept (unsigned
  // conversion, i.e. the size modulo 2^32).
  return static_cast<UINT>(static_cast<std::uint64_t>(record.st_size));
}

time_t DtNlFileStatus::GetLastAccessTime() const { return record.st_atime; }

time_t DtNlFileStatus::GetLastModificationTime() const { return record.st_mtime; }

time_t DtNlFileStatus::GetLastChangeTime() const { return record.st_ctime; }

void DtNlFileStatus::GetUTime(utimbuf* out) const {
  DTNL_ASSERT(__LINE__, out != nullptr, "");
  out->actime = record.st_atime;
  out->modtime = record.st_mtime;
}
