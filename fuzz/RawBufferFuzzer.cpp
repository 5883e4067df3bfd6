// RawBufferFuzzer.cpp - libFuzzer target: the input is a KPZ file image handed
// to DtRaw::InitializeBuf (buffer mode), followed by every query.
//
// Sits above the raw facade (jni/raw/DtRaw); see fuzz/README.md.
//
//   build/fuzz/fuzz/RawBufferFuzzer -dict=fuzz/kpz.dict build/fuzz/corpus/raw build/fuzz/seeds/raw
//
// Each run copies the input into a heap block of exactly its size, so that a
// read one byte past the caller's buffer is an AddressSanitizer report. The
// checks: every result is one the operation may return; a thumbnail copied out
// equals the buffer's bytes at its offset; the caller's buffer is never
// changed; the write-back is refused in buffer mode (-102); re-initialising and
// finalising leave no leak. No pointer members.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>

#include "FuzzRawQueries.h"
#include "raw/DtRaw.h"
#include "raw/DtRawError.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // InitializeBuf takes an int size; larger inputs are not a valid call.
  if (size > 0x7FFFFFFFu) {
    return 0;
  }
  std::unique_ptr<std::uint8_t[]> copy(new std::uint8_t[size == 0 ? 1 : size]);
  if (size != 0) {
    std::memcpy(copy.get(), data, size);
  }

  DtRaw raw;
  // Before any initialisation every query is refused.
  kpzfuzz::RunQueries(raw, false, copy.get(), size);

  const int init = raw.InitializeBuf(copy.get(), static_cast<int>(size));
  kpzfuzz::Check(kpzfuzz::IsInitCode(init), "InitializeBuf", init);
  kpzfuzz::Check(size != 0 || init == DtRawErrParam, "InitializeBuf of 0 bytes", init);
  kpzfuzz::RunQueries(raw, init == DtRawOk, copy.get(), size);
  kpzfuzz::CheckWriteBackRefused(raw, init == DtRawOk, size != 0);

  // Nothing of the above may write into the caller's buffer.
  kpzfuzz::Check(size == 0 || std::memcmp(copy.get(), data, size) == 0,
                 "the caller's buffer was changed", 0);

  // Re-initialisation over a prefix releases the first state.
  const std::size_t half = size / 2;
  const int again = raw.InitializeBuf(copy.get(), static_cast<int>(half));
  kpzfuzz::Check(kpzfuzz::IsInitCode(again), "InitializeBuf of the first half", again);
  if (half == 0) {
    // Refused before anything is released: the first state is still there.
    kpzfuzz::Check(again == DtRawErrParam, "InitializeBuf of 0 bytes keeps the state", again);
    kpzfuzz::RunQueries(raw, init == DtRawOk, copy.get(), size);
  } else {
    kpzfuzz::RunQueries(raw, again == DtRawOk, copy.get(), half);
  }

  raw.Finalize();
  kpzfuzz::RunQueries(raw, false, copy.get(), size);
  raw.Finalize();
  return 0;
}
