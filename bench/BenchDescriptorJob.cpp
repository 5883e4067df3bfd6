// BenchDescriptorJob.cpp - the descriptor entry's job. See the header.
#include "BenchDescriptorJob.h"

#include <android/log.h>
#include <fcntl.h>
#include <unistd.h>

#include <memory>

#include "KpzScreennailReader.h"
#include "util/io/DtNlReadAt.h"

namespace {

const char* const kLogTag = "KpzInterface";

}  // namespace

UINT BenchDescriptorJob::Preview(const char* path, BenchPreviewSink sink, void* context) {
  // The app's side: a descriptor opened for the call and closed after it.
  const int fd = open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    return 0;
  }
  __android_log_print(ANDROID_LOG_INFO, kLogTag, "getScreennailFromFd called.");
  __android_log_print(ANDROID_LOG_INFO, kLogTag, "fd:%d", fd);
  UINT size = 0;
  std::unique_ptr<UINT8[]> buffer;
  {
    // The entry's own steps: the descriptor borrowed, then its read path.
    DtNlFdReadAt file;
    if (file.Adopt(fd, false) == 0) {
      buffer = KpzScreennailReader::ReadFd(file, &size);
    }
  }
  close(fd);
  if (!buffer) {
    return 0;
  }
  // Where the entry makes the Java array and copies the bytes into it.
  sink(buffer.get(), size, context);
  return size;
}
