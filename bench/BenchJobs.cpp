// BenchJobs.cpp - the per-file jobs the benchmarks time. See BenchJobs.h.
#include "BenchJobs.h"

#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <memory>
#include <new>

#include "raw/DtRaw.h"
#include "util/io/DtNlFile.h"
#include "util/io/DtNlFileIo.h"
#include "util/io/DtNlIo.h"

#if KPZ_BENCH_ANDROID_LOG
#include <android/log.h>
#else
#include <cstdio>
#endif

namespace {

const char* const kLogTag = "KpzInterface";
const UINT kMaxJavaArray = 0x7FFFFFFFu;

// One line of the Android log at INFO or ERROR level, as the JNI entry writes
// it. Without the Android log library the line goes to standard error in the
// same shape, with one call.
__attribute__((format(printf, 2, 3))) void logLine(bool error, const char* format, ...) {
  va_list args;
  va_start(args, format);
#if KPZ_BENCH_ANDROID_LOG
  __android_log_vprint(error ? ANDROID_LOG_ERROR : ANDROID_LOG_INFO, kLogTag, format, args);
#else
  char text[512];
  std::vsnprintf(text, sizeof text, format, args);
  std::fprintf(stderr, "%s %c %s\n", kLogTag, error ? 'E' : 'I', text);
#endif
  va_end(args);
}

// The bytes the entry allocates and reads for a preview that claims `size`
// bytes at `offset`: bounded by what the file holds after `offset` and by
// the largest Java array; 0 when the file cannot be measured.
UINT boundedReadSize(const char* path, UINT32 offset, UINT32 size) {
  const UINT bounded = DtNlFile(path).BytesAvailable(offset, size);
  return bounded > kMaxJavaArray ? kMaxJavaArray : bounded;
}

// Reads up to `size` bytes at the current position, retrying short reads and
// interruptions; the count read (short only at end of file), or -1.
ssize_t readFull(int fd, UINT8* dst, std::size_t size) {
  std::size_t done = 0;
  while (done < size) {
    const ssize_t got = read(fd, dst + done, size - done);
    if (got < 0 && errno == EINTR) {
      continue;
    }
    if (got < 0) {
      return -1;
    }
    if (got == 0) {
      break;
    }
    done += static_cast<std::size_t>(got);
  }
  return static_cast<ssize_t>(done);
}

// Everything between taking the path and releasing it, as in the entry.
UINT readScreennail(const char* chars, DtRaw& raw, DtNlFileIo& fileIo, BenchPreviewSink sink,
                    void* context) {
  const int initRet = raw.Initialize(chars);
  if (initRet < 0) {
    logLine(true, "raw.Initialize ERROR. ret=%d", initRet);
    return 0;
  }
  DtRawScreennailInfo info;
  const int infoRet = raw.GetScreennailInfo(&info);
  if (infoRet != 0) {
    logLine(true, "raw.GetScreennailInfo ERROR. ret=%d", infoRet);
    raw.Finalize();
    return 0;
  }
  logLine(false, "ScreennailInfo m_fileOffset=0x%x m_size=%d m_horizon=%d m_vertical=%d",
          info.m_fileOffset, static_cast<int>(info.m_size), info.m_horizon, info.m_vertical);
  raw.Finalize();

  const int openRet = fileIo.Open(chars, "r");
  if (openRet < 0) {
    logLine(true, "fileIo.Open ERROR. ret=%d", openRet);
    return 0;
  }
  fileIo.SetUnbuffered();
  const long long seekOffset = static_cast<long long>(static_cast<INT32>(info.m_fileOffset));
  const int seekRet = fileIo.Seek(seekOffset, DtNlIoSeekSet);
  if (seekRet < 0) {
    logLine(true, "fileIo.Seek ERROR. ret=%d", seekRet);
    fileIo.Close();
    return 0;
  }
  const UINT toRead = boundedReadSize(chars, info.m_fileOffset, info.m_size);
  fileIo.AdviseReadOnly(seekOffset, toRead);  // a cold disk reads the preview alone, no more
  std::unique_ptr<UINT8[]> buffer(new (std::nothrow) UINT8[toRead]);
  const UINT readSize = buffer ? fileIo.ReadU8(buffer.get(), toRead) : 0u;
  if (readSize != info.m_size) {
    logLine(true, "fileIo.ReadU8 ERROR. readSize=%u", readSize);
    buffer.reset();
    fileIo.Close();
    return 0;
  }
  fileIo.Close();
  // Where the entry makes the Java array and copies the bytes into it.
  sink(buffer.get(), readSize, context);
  return readSize;
}

}  // namespace

const UINT BenchJobs::HEAD_SIZE;

UINT BenchJobs::MainPath(const char* path, BenchPreviewSink sink, void* context) {
  logLine(false, "getScreennailNative called.");
  logLine(false, "filepath:%s", path);
  // The same frame as the entry's: the facade and the channel on the stack,
  // destroyed in reverse order.
  DtRaw raw;
  DtNlFileIo fileIo;
  return readScreennail(path, raw, fileIo, sink, context);
}

int BenchJobs::Locate(const char* path, DtRawScreennailInfo* info) {
  DtRaw raw;
  const int initRet = raw.Initialize(path);
  if (initRet < 0) {
    return initRet;
  }
  return raw.GetScreennailInfo(info);
}

int BenchJobs::ParseBuffer(unsigned char* head, int size, unsigned char* thumbBuf,
                           unsigned int thumbBufSize, BenchQueryResults* out) {
  DtRaw raw;
  const int initRet = raw.InitializeBuf(head, size);
  if (initRet != 0) {
    return initRet;
  }
  int first = 0;
  const auto note = [&first](int ret) {
    if (first == 0 && ret != 0) {
      first = ret;
    }
  };
  note(raw.GetScreennailInfo(&out->screennail));
  note(raw.GetThumbnailInfo(&out->thumbnail));
  note(raw.GetRotationInfo(&out->rotation));
  note(raw.GetIobIndex(&out->iobIndex, &out->iobIndexSize));
  const unsigned int want =
      out->thumbnail.m_size < thumbBufSize ? out->thumbnail.m_size : thumbBufSize;
  const int dataRet = raw.GetThumbnailData(thumbBuf, want);
  note(dataRet);
  out->thumbnailCopied = dataRet == 0 ? want : 0u;
  note(raw.GetRawImageHeight(&out->rawHeight));
  note(raw.GetRawImageWidth(&out->rawWidth));
  note(raw.GetColorSpace(&out->colorSpace));
  note(raw.GetCustomRendered(&out->customRendered));
  note(raw.Get35mmFocalLength(&out->focal35Num, &out->focal35Den));
  note(raw.GetFlashInfo(&out->flash));
  note(raw.GetExposureProgram(&out->exposureProgram));
  note(raw.GetISOSpeed(&out->iso));
  note(raw.GetRealFocalLength(&out->focalNum, &out->focalDen));
  note(raw.GetFNumber(&out->fNumberNum, &out->fNumberDen));
  note(raw.GetExposureTime(&out->exposureNum, &out->exposureDen));
  note(raw.GetExposureBias(&out->biasNum, &out->biasDen));
  note(raw.GetMakerName(out->maker, sizeof out->maker));
  note(raw.GetModelName(out->model, sizeof out->model));
  note(raw.GetOrgDateTime(&out->dateTime));
  note(raw.GetExifVersion(&out->exifVersion));
  note(raw.GetIobVersion(&out->iobVersion));
  note(raw.GetT593Mode(&out->t593Mode));
  return first;
}

UINT BenchJobs::Floor(const BenchFile& file, UINT8* head, BenchPreviewSink sink, void* context) {
  if (FloorHead(file.path.c_str(), head) == 0) {
    return 0;
  }
  const int fd = open(file.path.c_str(), O_RDONLY);
  if (fd < 0) {
    return 0;
  }
  if (lseek(fd, static_cast<off_t>(file.previewOffset), SEEK_SET) < 0) {
    close(fd);
    return 0;
  }
  std::unique_ptr<UINT8[]> buffer(new (std::nothrow) UINT8[file.previewSize]);
  const ssize_t got = buffer ? readFull(fd, buffer.get(), file.previewSize) : -1;
  const int closed = close(fd);
  if (got != static_cast<ssize_t>(file.previewSize) || closed != 0) {
    return 0;
  }
  sink(buffer.get(), file.previewSize, context);
  return file.previewSize;
}

UINT BenchJobs::FloorHinted(const BenchFile& file, UINT8* head, BenchPreviewSink sink,
                            void* context) {
  int fd = open(file.path.c_str(), O_RDONLY);
  if (fd < 0) {
    return 0;
  }
  (void)posix_fadvise(fd, 0, 0, POSIX_FADV_RANDOM);
  (void)posix_fadvise(fd, 0, HEAD_SIZE, POSIX_FADV_WILLNEED);
  const ssize_t headGot = readFull(fd, head, HEAD_SIZE);
  if (close(fd) != 0 || headGot <= 0) {
    return 0;
  }
  fd = open(file.path.c_str(), O_RDONLY);
  if (fd < 0) {
    return 0;
  }
  (void)posix_fadvise(fd, 0, 0, POSIX_FADV_RANDOM);
  if (lseek(fd, static_cast<off_t>(file.previewOffset), SEEK_SET) < 0) {
    close(fd);
    return 0;
  }
  (void)posix_fadvise(fd, static_cast<off_t>(file.previewOffset),
                      static_cast<off_t>(file.previewSize), POSIX_FADV_WILLNEED);
  std::unique_ptr<UINT8[]> buffer(new (std::nothrow) UINT8[file.previewSize]);
  const ssize_t got = buffer ? readFull(fd, buffer.get(), file.previewSize) : -1;
  const int closed = close(fd);
  if (got != static_cast<ssize_t>(file.previewSize) || closed != 0) {
    return 0;
  }
  sink(buffer.get(), file.previewSize, context);
  return file.previewSize;
}

UINT BenchJobs::FloorHead(const char* path, UINT8* head) {
  const int fd = open(path, O_RDONLY);
  if (fd < 0) {
    return 0;
  }
  const ssize_t got = readFull(fd, head, HEAD_SIZE);
  const int closed = close(fd);
  if (got <= 0 || closed != 0) {
    return 0;
  }
  return static_cast<UINT>(got);
}

void BenchJobs::IgnorePreview(const UINT8* /*data*/, UINT /*size*/, void* /*context*/) {}
