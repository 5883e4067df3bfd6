// KpzScreennailReader.cpp - the entry's read path, without JNI. See the header.
#include "KpzScreennailReader.h"

#include <android/log.h>

#include <new>

#include "raw/DtRawScreennailInfo.h"
#include "util/io/DtNlFile.h"
#include "util/io/DtNlIo.h"

namespace {

const char* const kLogTag = "KpzInterface";

// How many bytes to allocate and read for a screennail that claims `size`
// bytes at `offset` of the file `path`: the smaller of `size` and what the file
// really holds after `offset` (and of the largest Java array). The size field
// comes from the file and may claim up to 4 GiB; bounding the buffer by the
// file keeps a forged value from allocating it, while a claim beyond the end
// still ends in the same short read and log line. A file that cannot be
// measured any more (removed since it was opened) or holds nothing after
// `offset` gives 0: nothing of it is trusted.
UINT boundedReadSize(const char* path, UINT32 offset, UINT32 size) {
  const UINT bounded = DtNlFile(path).BytesAvailable(offset, size);
  return bounded > KpzScreennailReader::kMaxJavaArray ? KpzScreennailReader::kMaxJavaArray
                                                      : bounded;
}

}  // namespace

const UINT KpzScreennailReader::kMaxJavaArray;

std::unique_ptr<UINT8[]> KpzScreennailReader::Read(const char* path, DtRaw& raw,
                                                   DtNlFileIo& fileIo, UINT* size) {
  *size = 0;
  const int initRet = raw.Initialize(path);
  if (initRet < 0) {
    __android_log_print(ANDROID_LOG_ERROR, kLogTag, "raw.Initialize ERROR. ret=%d", initRet);
    return nullptr;  // no Finalize here: the destructor cleans up
  }

  DtRawScreennailInfo info;
  info.m_fileOffset = 0;
  info.m_size = 0;
  info.m_horizon = 0;
  info.m_vertical = 0;
  const int infoRet = raw.GetScreennailInfo(&info);
  if (infoRet != 0) {
    __android_log_print(ANDROID_LOG_ERROR, kLogTag, "raw.GetScreennailInfo ERROR. ret=%d", infoRet);
    raw.Finalize();
    return nullptr;
  }
  // "%d" of the size: a size of 2 GiB or more shows as negative, as it always has.
  __android_log_print(ANDROID_LOG_INFO, kLogTag,
                      "ScreennailInfo m_fileOffset=0x%x m_size=%d m_horizon=%d m_vertical=%d",
                      info.m_fileOffset, static_cast<int>(info.m_size), info.m_horizon,
                      info.m_vertical);
  // The parsed metadata is no longer needed: the file is read again directly.
  raw.Finalize();

  const int openRet = fileIo.Open(path, "r");
  if (openRet < 0) {
    __android_log_print(ANDROID_LOG_ERROR, kLogTag, "fileIo.Open ERROR. ret=%d", openRet);
    return nullptr;
  }
  // One seek and one large read: no stdio buffer in between (the read then
  // goes straight into the buffer, with no block-alignment reads).
  fileIo.SetUnbuffered();  // if refused, the stream simply stays buffered
  // Deliberate: the offset is widened as a signed 32-bit number, so an offset
  // of 2 GiB or more becomes negative and the seek fails.
  const long long seekOffset = static_cast<long long>(static_cast<INT32>(info.m_fileOffset));
  const int seekRet = fileIo.Seek(seekOffset, DtNlIoSeekSet);
  if (seekRet < 0) {
    __android_log_print(ANDROID_LOG_ERROR, kLogTag, "fileIo.Seek ERROR. ret=%d", seekRet);
    fileIo.Close();
    return nullptr;
  }

  // One read into one buffer; at most what the file holds is allocated (see
  // boundedReadSize). An allocation failure counts as a read of 0 bytes.
  const UINT toRead = boundedReadSize(path, info.m_fileOffset, info.m_size);
  fileIo.AdviseReadOnly(seekOffset, toRead);  // a cold disk reads the preview alone, no more
  std::unique_ptr<UINT8[]> buffer(new (std::nothrow) UINT8[toRead]);
  const UINT readSize = buffer ? fileIo.ReadU8(buffer.get(), toRead) : 0u;
  if (readSize != info.m_size) {
    __android_log_print(ANDROID_LOG_ERROR, kLogTag, "fileIo.ReadU8 ERROR. readSize=%u", readSize);
    fileIo.Close();
    return nullptr;
  }
  fileIo.Close();
  // readSize == m_size <= kMaxJavaArray here.
  *size = readSize;
  return buffer;
}
