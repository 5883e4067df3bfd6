// BenchJobs.cpp - the per-file jobs the benchmarks time. See BenchJobs.h.
#include "BenchJobs.h"

#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <memory>
#include <new>

#include <android/log.h>

#include "KpzScreennailReader.h"
#include "raw/DtRaw.h"
#include "util/io/DtNlFile.h"
#include "util/io/DtNlFileIo.h"
#include "util/io/DtNlIo.h"

namespace {

const char* const kLogTag = "KpzInterface";

// One line of the Android log at INFO, as the JNI entry writes it.
__attribute__((format(printf, 1, 2))) void logLine(const char* format, ...) {
  va_list args;
  va_start(args, format);
  __android_log_vprint(ANDROID_LOG_INFO, kLogTag, format, args);
  va_end(args);
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

}  // namespace

const UINT BenchJobs::HEAD_SIZE;

UINT BenchJobs::MainPath(const char* path, BenchPreviewSink sink, void* context) {
  logLine("getScreennailNative called.");
  logLine("filepath:%s", path);
  // The same frame as the entry's: the facade and the channel on the stack,
  // destroyed in reverse order; the entry's own read path.
  DtRaw raw;
  DtNlFileIo fileIo;
  UINT size = 0;
  std::unique_ptr<UINT8[]> buffer = KpzScreennailReader::Read(path, raw, fileIo, &size);
  if (!buffer) {
    return 0;
  }
  // Where the entry makes the Java array and copies the bytes into it.
  sink(buffer.get(), size, context);
  return size;
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
