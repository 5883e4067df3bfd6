// KpzPictureReader.cpp - the preview and thumbnail JPEGs of a KPZ file for
// the kpz tool (tools/kpz, above jni/raw). See KpzPictureReader.h.

#include "kpz/KpzPictureReader.h"

#include <cstdint>
#include <filesystem>
#include <memory>
#include <new>
#include <system_error>

#include "kpz/KpzErrorText.h"
#include "raw/DtRaw.h"
#include "raw/DtRawError.h"
#include "raw/DtRawScreennailInfo.h"
#include "raw/DtRawThumbnailInfo.h"
#include "util/io/DtNlFile.h"
#include "util/io/DtNlFileIo.h"
#include "util/io/DtNlFileStatus64.h"
#include "util/io/DtNlIo.h"

namespace {

// The file's size in *size; false when it cannot be taken.
bool fileSize(const std::string& path, std::uint64_t* size) {
  DtNlFileStatus64 status;
  if (DtNlFile(path.c_str()).Stat64(&status).IsFailure()) {
    return false;
  }
  *size = status.GetSize();
  return true;
}

// True when `length` bytes at `offset` lie inside a file of `size` bytes.
bool insideFile(std::uint64_t size, std::uint32_t offset, std::uint32_t length) {
  return offset <= size && length <= size - offset;
}

}  // namespace

const char* KpzPictureReader::Name(Kind kind) {
  return kind == Kind::Preview ? "preview" : "thumbnail";
}

bool KpzPictureReader::Read(const std::string& path, Kind kind, std::vector<UINT8>* out,
                            std::string* error) {
  out->clear();
  std::error_code ec;
  if (std::filesystem::is_directory(path, ec)) {
    *error = KpzErrorText::Directory();
    return false;
  }
  const bool ok = kind == Kind::Preview ? readPreview(path, out, error)
                                        : readThumbnail(path, out, error);
  if (!ok) {
    out->clear();
  }
  return ok;
}

bool KpzPictureReader::readPreview(const std::string& path, std::vector<UINT8>* out,
                                   std::string* error) {
  DtRawScreennailInfo info;
  {
    DtRaw raw;
    const int initRet = raw.Initialize(path.c_str());
    if (initRet < 0) {
      *error = KpzErrorText::Initialize(initRet);
      return false;
    }
    const int infoRet = raw.GetScreennailInfo(&info);
    raw.Finalize();
    if (infoRet == DtRawErrNoData) {
      *error = "no preview stored in this file";
      return false;
    }
    if (infoRet != 0) {
      *error = "the preview's location cannot be read (error " + std::to_string(infoRet) + ")";
      return false;
    }
  }
  if (info.m_size == 0) {
    *error = "the preview stored in this file is empty (0 bytes)";
    return false;
  }

  // The channel carries a 192 KiB buffer: kept on the heap, not the stack.
  std::unique_ptr<DtNlFileIo> io(new (std::nothrow) DtNlFileIo());
  if (!io) {
    *error = "out of memory";
    return false;
  }
  if (io->Open(path.c_str(), "r") < 0) {
    *error = "the file cannot be opened for reading";
    return false;
  }
  // As in the JNI entry: the offset is a signed 32-bit number, so an offset
  // of 2 GiB or more is out of reach.
  if (io->Seek(static_cast<long long>(static_cast<INT32>(info.m_fileOffset)), DtNlIoSeekSet) < 0) {
    *error = "preview lies beyond the first 2 GiB of the file, out of reach";
    return false;
  }
  std::uint64_t size = 0;
  if (!fileSize(path, &size)) {
    *error = "the file's size cannot be read";
    return false;
  }
  if (!insideFile(size, info.m_fileOffset, info.m_size)) {
    *error = "preview extends past the end of the file";
    return false;
  }
  out->resize(info.m_size);
  const UINT got = io->ReadU8(out->data(), info.m_size);
  io->Close();
  if (got != info.m_size) {
    *error = io->GetStatus().IsFailure() ? "input/output error while reading the preview"
                                         : "preview extends past the end of the file";
    return false;
  }
  return true;
}

bool KpzPictureReader::readThumbnail(const std::string& path, std::vector<UINT8>* out,
                                     std::string* error) {
  DtRaw raw;
  const int initRet = raw.Initialize(path.c_str());
  if (initRet < 0) {
    *error = KpzErrorText::Initialize(initRet);
    return false;
  }
  DtRawThumbnailInfo info;
  const int infoRet = raw.GetThumbnailInfo(&info);
  if (infoRet == DtRawErrNoData) {
    *error = "no thumbnail stored in this file";
    return false;
  }
  if (infoRet != 0) {
    *error = "the thumbnail's location cannot be read (error " + std::to_string(infoRet) + ")";
    return false;
  }
  if (info.m_size == 0) {
    *error = "the thumbnail stored in this file is empty (0 bytes)";
    return false;
  }
  // The library's memory copy of the file head runs past a short file's end:
  // only a range the file really holds is taken.
  std::uint64_t size = 0;
  if (!fileSize(path, &size)) {
    *error = "the file's size cannot be read";
    return false;
  }
  if (!insideFile(size, info.m_fileOffset, info.m_size)) {
    *error = "thumbnail extends past the end of the file";
    return false;
  }
  out->resize(info.m_size);
  const int dataRet = raw.GetThumbnailData(out->data(), info.m_size);
  raw.Finalize();
  if (dataRet != 0) {
    *error = dataRet == DtRawErrRead ? "thumbnail extends past the end of the file"
                                     : KpzErrorText::Initialize(dataRet);
    return false;
  }
  return true;
}
