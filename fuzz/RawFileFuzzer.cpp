// RawFileFuzzer.cpp - libFuzzer target: the input is written to a temporary
// file, which DtRaw::Initialize loads (file mode); then every query runs.
//
// Sits above the raw facade (jni/raw/DtRaw); see fuzz/README.md.
//
//   build/fuzz/fuzz/RawFileFuzzer -dict=fuzz/kpz.dict build/fuzz/corpus/raw build/fuzz/seeds/raw
//
// The file lives in a directory made with mkdtemp under $TMPDIR (else
// /dev/shm, else /tmp) when the process starts, one per fuzzing process, and
// removed at exit. sync() is a no-op in this program (see below). The
// checks: every result is one the operation may return; a thumbnail copied out
// equals the file's bytes (the head copy is the file zero-extended to 64 KiB);
// the write-back (SetRotationInfo from the input's last byte, then Update)
// reports the written orientation afterwards and never changes the file's
// size; re-initialising from the written file works as the first time.
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "FuzzRawQueries.h"
#include "FuzzScratchFile.h"
#include "raw/DtRaw.h"
#include "raw/DtRawError.h"

namespace {

std::vector<std::uint8_t> ReadWhole(const std::string& path, std::size_t size) {
  std::vector<std::uint8_t> bytes(size);
  std::FILE* f = std::fopen(path.c_str(), "rb");
  if (f == nullptr) {
    return std::vector<std::uint8_t>();
  }
  const std::size_t got = size == 0 ? 0 : std::fread(bytes.data(), 1, size, f);
  std::fclose(f);
  bytes.resize(got);
  return bytes;
}

}  // namespace

// The file's times are restored through DtNlFile::SetTime, which ends with
// sync(): every file system of the machine flushed, once per run. Nothing
// here depends on the data reaching the disk, so in this program sync does
// nothing (the definition takes the C library's place at link time).
extern "C" void sync(void) noexcept {}

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  SetUpScratch("RawFileFuzzer");
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string& path = TheScratch().file;
  if (!WriteWhole(path, data, size)) {
    std::perror("RawFileFuzzer: writing the input");
    std::abort();
  }
  // What the facade holds in memory: the file head, zero-extended to its size.
  std::vector<std::uint8_t> image(data, data + size);
  if (image.size() < DtRaw::READ_SIZE) {
    image.resize(DtRaw::READ_SIZE, 0);
  }

  DtRaw raw;
  const int init = raw.Initialize(path.c_str());
  kpzfuzz::Check(kpzfuzz::IsInitCode(init), "Initialize", init);
  kpzfuzz::Check(init != DtRawErrNotFound && init != DtRawErrParam, "Initialize of a real file",
                 init);
  kpzfuzz::RunQueries(raw, init == DtRawOk, image.data(), image.size());

  // The write-back on this copy. It overwrites values where they stand: the
  // file never changes its size.
  const unsigned char rotation = size == 0 ? 0 : static_cast<unsigned char>(data[size - 1] % 9u);
  const bool withTime = size > 1 && (data[size - 2] & 1u) != 0;
  kpzfuzz::RunWriteBack(raw, init == DtRawOk, rotation, withTime);
  struct stat after {};
  kpzfuzz::Check(stat(path.c_str(), &after) == 0 && static_cast<std::size_t>(after.st_size) == size,
                 "the file changed its size in Update", static_cast<int>(after.st_size));
  // What the write-back wrote is now part of the file.
  const std::vector<std::uint8_t> written = ReadWhole(path, size);
  if (written.size() == size) {
    image.assign(written.begin(), written.end());
    if (image.size() < DtRaw::READ_SIZE) {
      image.resize(DtRaw::READ_SIZE, 0);
    }
  }

  // The same path again: the first state is released and the file parsed anew.
  const int again = raw.Initialize(path.c_str());
  kpzfuzz::Check(kpzfuzz::IsInitCode(again), "Initialize again", again);
  kpzfuzz::RunQueries(raw, again == DtRawOk, image.data(), image.size());

  raw.Finalize();
  kpzfuzz::RunQueries(raw, false, image.data(), image.size());
  return 0;
}
