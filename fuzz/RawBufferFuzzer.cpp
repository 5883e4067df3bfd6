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
// finalising leave no leak. And, over the input's first 64 KiB as a head (zeros
// after a shorter input), what the parse records in its head channel as it
// fails (DtRawHeadIo) names the same reason as the step-by-step walk of that
// head (tests/support/KpzLayoutWalk). No pointer members.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>

#include "FuzzRawQueries.h"
#include "raw/DtRaw.h"
#include "raw/DtRawEng.h"
#include "raw/DtRawError.h"
#include "raw/DtRawLayoutCheck.h"
#include "raw/parser/DtRawHeadIo.h"
#include "support/KpzLayoutWalk.h"
#include "util/io/DtNlDataStream.h"

namespace {

bool readFamily(int code) {
  return code == DtRawErrSeek || code == DtRawErrTell || code == DtRawErrRead;
}

// The reason recorded by the parse against the reason the walk finds.
void CheckRecordedReason(const std::uint8_t* data, std::size_t size) {
  std::unique_ptr<std::uint8_t[]> head(new std::uint8_t[DtRawHeadIo::HEAD_SIZE]());
  std::memcpy(head.get(), data, size < DtRawHeadIo::HEAD_SIZE ? size : DtRawHeadIo::HEAD_SIZE);
  DtRawHeadIo io(size);
  DtNlDataStream stream(&io);
  kpzfuzz::Check(stream.Open(head.get(), DtRawHeadIo::HEAD_SIZE) == 0, "head channel open", 0);
  DtRawEng eng;
  const int code = eng.Parse(&stream);
  const DtRawLayoutCheck::Finding got = DtRawLayoutCheck::Recorded(io, code);
  const DtRawLayoutCheck::Finding walked = KpzLayoutWalk::Inspect(head.get(), size);
  if (code == DtRawOk) {
    kpzfuzz::Check(got.m_reason == DtRawLayoutCheck::ReasonNone, "a reason for a good head", code);
    return;
  }
  const bool sameCode =
      got.m_code == walked.m_code || (readFamily(got.m_code) && readFamily(walked.m_code));
  kpzfuzz::Check(sameCode, "recorded code differs from the walk's", got.m_code);
  kpzfuzz::Check(got.m_reason == walked.m_reason && got.m_part == walked.m_part &&
                     got.m_value == walked.m_value && got.m_bytes == walked.m_bytes,
                 "recorded reason differs from the walk's", code);
}

}  // namespace

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

  CheckRecordedReason(data, size);
  return 0;
}
