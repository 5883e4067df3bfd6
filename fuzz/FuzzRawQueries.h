// FuzzRawQueries.h - shared by the raw fuzz targets: runs every query of an
// initialised (or empty) DtRaw and checks each result against the codes the
// query may return, and every output against the bytes it must come from.
//
// Sits above the whole library (it only calls DtRaw's public operations); used
// by fuzz/RawBufferFuzzer.cpp and fuzz/RawFileFuzzer.cpp only.
//
//   DtRaw raw;
//   const int init = raw.InitializeBuf(copy.data(), static_cast<int>(copy.size()));
//   kpzfuzz::Check(kpzfuzz::IsInitCode(init), "InitializeBuf result");
//   kpzfuzz::RunQueries(raw, init == 0, copy.data(), copy.size());
//
// A failed check prints what failed and aborts, which libFuzzer reports as a
// crash with the input saved. No pointer members; `image` is borrowed per call.
#ifndef KPZ_FUZZ_FUZZRAWQUERIES_H
#define KPZ_FUZZ_FUZZRAWQUERIES_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <string>
#include <memory>
#include <new>

#include "raw/DtRaw.h"
#include "raw/DtRawDateTime.h"
#include "raw/DtRawError.h"
#include "raw/DtRawFlashInfo.h"
#include "raw/DtRawScreennailInfo.h"
#include "raw/DtRawThumbnailInfo.h"
#include "util/io/DtNlTime.h"

namespace kpzfuzz {

// Largest thumbnail the targets copy out: the buffer is sized from the
// thumbnail's length tag, which the file controls, so it is capped.
constexpr std::uint32_t kThumbnailCap = 1u << 20;

// Prints `what` and aborts (a crash for libFuzzer, with the input saved).
[[noreturn]] inline void Fail(const char* what, int code) {
  std::fprintf(stderr, "kpz fuzz check failed: %s (result %d)\n", what, code);
  std::abort();
}

inline void Check(bool ok, const char* what, int code = 0) {
  if (!ok) {
    Fail(what, code);
  }
}

inline bool OneOf(int code, std::initializer_list<int> allowed) {
  for (int a : allowed) {
    if (code == a) {
      return true;
    }
  }
  return false;
}

// Results an initialisation may give: success, the parse's codes and the I/O
// codes of loading.
inline bool IsInitCode(int code) {
  return OneOf(code, {DtRawOk, DtRawErrFormat, DtRawErrParam, DtRawErrOpen, DtRawErrBuffOpen,
                      DtRawErrNotFound, DtRawErrClose, DtRawErrBuffClose, DtRawErrSeek,
                      DtRawErrTell, DtRawErrRead, DtRawErrIo, DtRawErrNotTiff});
}

// A name query into a buffer of exactly `size` bytes (AddressSanitizer sees
// one byte past it): on success the text is terminated inside the buffer.
template <typename Getter>
inline void CheckName(Getter get, unsigned size, int notInit, const char* what) {
  std::unique_ptr<char[]> buff(new char[size == 0 ? 1 : size]);
  std::memset(buff.get(), 0x5A, size == 0 ? 1 : size);
  const int result = get(buff.get(), size);
  if (size == 0) {
    Check(OneOf(result, {DtRawErrParam, notInit}), what, result);
    return;
  }
  Check(OneOf(result, {DtRawOk, DtRawErrNoData, notInit}), what, result);
  if (result == DtRawOk) {
    Check(buff[size - 1] == '\0', what, result);
  }
}

// The metadata getters of the facade.
inline void RunMetadataQueries(DtRaw& raw, bool initialised) {
  const int notInit = initialised ? 1 : DtRawErrNotInit;
  const std::initializer_list<int> plain = {DtRawOk, DtRawErrNoData, notInit};
  const std::initializer_list<int> rational = {DtRawOk, DtRawErrNoData, DtRawErrSize, notInit};

  unsigned short u16 = 0;
  short s16 = 0;
  unsigned char u8 = 0;
  unsigned int num = 0;
  unsigned int den = 0;
  int snum = 0;
  int sden = 0;
  int r = raw.GetRawImageHeight(&u16);
  Check(OneOf(r, plain), "GetRawImageHeight", r);
  r = raw.GetRawImageWidth(&u16);
  Check(OneOf(r, plain), "GetRawImageWidth", r);
  r = raw.GetColorSpace(&s16);
  Check(OneOf(r, plain), "GetColorSpace", r);
  r = raw.GetCustomRendered(&s16);
  Check(OneOf(r, plain), "GetCustomRendered", r);
  r = raw.Get35mmFocalLength(&num, &den);
  Check(OneOf(r, plain), "Get35mmFocalLength", r);
  Check(r != DtRawOk || (den == 1 && num <= 0xFFFFu), "Get35mmFocalLength value", r);
  DtRawFlashInfo flash;
  r = raw.GetFlashInfo(&flash);
  Check(OneOf(r, plain), "GetFlashInfo", r);
  Check(r != DtRawOk || (flash.m_fired <= 1 && flash.m_return <= 3 && flash.m_mode <= 3 &&
                         flash.m_function <= 1 && flash.m_redEye <= 1),
        "GetFlashInfo fields", r);
  r = raw.GetExposureProgram(&u8);
  Check(OneOf(r, plain), "GetExposureProgram", r);
  r = raw.GetISOSpeed(&u16);
  Check(OneOf(r, plain), "GetISOSpeed", r);
  r = raw.GetRealFocalLength(&num, &den);
  Check(OneOf(r, rational), "GetRealFocalLength", r);
  r = raw.GetFNumber(&num, &den);
  Check(OneOf(r, rational), "GetFNumber", r);
  r = raw.GetExposureTime(&num, &den);
  Check(OneOf(r, rational), "GetExposureTime", r);
  Check(r != DtRawOk || num <= 1 || den == 0, "GetExposureTime is 1/n", r);
  r = raw.GetExposureBias(&snum, &sden);
  Check(OneOf(r, rational), "GetExposureBias", r);

  for (unsigned size : {0u, 1u, 2u, 32u, 33u, 100u}) {
    CheckName([&raw](char* b, unsigned n) { return raw.GetMakerName(b, n); }, size, notInit,
              "GetMakerName");
    CheckName([&raw](char* b, unsigned n) { return raw.GetModelName(b, n); }, size, notInit,
              "GetModelName");
  }

  DtRawDateTime dt;
  r = raw.GetOrgDateTime(&dt);
  Check(OneOf(r, {DtRawOk, DtRawErrNoData, DtRawErrSize, notInit}), "GetOrgDateTime", r);
  Check(r != DtRawOk || (dt.m_year <= 9999 && dt.m_month <= 99 && dt.m_day <= 99 &&
                         dt.m_hour <= 99 && dt.m_minute <= 99 && dt.m_second <= 99),
        "GetOrgDateTime fields", r);

  u16 = 0xFFFF;
  r = raw.GetExifVersion(&u16);
  Check(OneOf(r, {DtRawOk, DtRawErrNoData, DtRawErrExifVersion, notInit}), "GetExifVersion", r);
  Check(r != DtRawErrExifVersion || u16 == 0, "GetExifVersion stores 0", r);
  Check(r != DtRawOk || (u16 >= 1 && u16 <= 9999), "GetExifVersion value", r);
  u16 = 0xFFFF;
  r = raw.GetIobVersion(&u16);
  Check(OneOf(r, {DtRawOk, DtRawErrNoData, DtRawErrIobVersion, notInit}), "GetIobVersion", r);
  Check(r != DtRawErrIobVersion || u16 == 0, "GetIobVersion stores 0", r);
  Check(r != DtRawOk || (u16 >= 1 && u16 <= 9999), "GetIobVersion value", r);

  u8 = 0xEE;
  r = raw.GetT593Mode(&u8);
  Check(r == DtRawOk && u8 == 0, "GetT593Mode", r);
}

// Runs every read-only query of `raw`. `initialised` says whether the last
// initialisation returned 0. `image`/`imageSize` are the bytes a successful
// GetThumbnailData must have copied from (buffer mode: the caller's buffer;
// file mode: the file's bytes, zero-extended to the head copy's size).
inline void RunQueries(DtRaw& raw, bool initialised, const std::uint8_t* image,
                       std::size_t imageSize) {
  const int notInit = initialised ? 1 : DtRawErrNotInit;  // 1: no code expected

  DtRawScreennailInfo scn;
  const int scnResult = raw.GetScreennailInfo(&scn);
  Check(OneOf(scnResult, {DtRawOk, DtRawErrNoData, notInit}), "GetScreennailInfo", scnResult);
  if (scnResult == DtRawOk && raw.GetScreennailInfo(nullptr) != DtRawErrParam) {
    Fail("GetScreennailInfo(nullptr)", 0);
  }

  DtRawThumbnailInfo thumb;
  const int thumbResult = raw.GetThumbnailInfo(&thumb);
  Check(OneOf(thumbResult, {DtRawOk, DtRawErrNoData, notInit}), "GetThumbnailInfo", thumbResult);
  if (thumbResult == DtRawOk) {
    Check(thumb.m_rotation <= 7, "thumbnail rotation code", thumb.m_rotation);
  }

  // The thumbnail's bytes into a buffer sized from its length (capped), and
  // once more into a one-byte buffer.
  const std::uint32_t want =
      thumbResult == DtRawOk ? (thumb.m_size < kThumbnailCap ? thumb.m_size : kThumbnailCap) : 16u;
  std::unique_ptr<std::uint8_t[]> data(new std::uint8_t[want == 0 ? 1 : want]());
  const int dataResult = raw.GetThumbnailData(data.get(), want);
  Check(OneOf(dataResult, {DtRawOk, DtRawErrNoData, notInit, DtRawErrOpen, DtRawErrBuffOpen,
                           DtRawErrNotFound, DtRawErrClose, DtRawErrBuffClose, DtRawErrSeek,
                           DtRawErrRead, DtRawErrIo}),
        "GetThumbnailData", dataResult);
  if (dataResult == DtRawOk) {
    Check(thumbResult == DtRawOk, "GetThumbnailData succeeded without thumbnail info", 0);
    const std::uint32_t offset = thumb.m_fileOffset;
    // (A thumbnail of length 0 copies nothing, wherever it claims to lie.)
    Check(want == 0 || (offset <= imageSize && want <= imageSize - offset),
          "GetThumbnailData succeeded for bytes outside the data", 0);
    Check(want == 0 || std::memcmp(data.get(), image + offset, want) == 0,
          "GetThumbnailData copied other bytes than the thumbnail's", 0);
  }
  // A one-byte read of a thumbnail that was copied whole must give its first byte.
  std::uint8_t one = 0;
  const int oneResult = raw.GetThumbnailData(&one, 1u);
  if (dataResult == DtRawOk && want >= 1) {
    Check(oneResult == DtRawOk, "GetThumbnailData of one byte", oneResult);
    Check(one == image[thumb.m_fileOffset], "GetThumbnailData of one byte: value", one);
  } else if (dataResult != DtRawOk) {
    Check(oneResult != DtRawErrParam, "GetThumbnailData of one byte refused", oneResult);
  }

  unsigned char rotation = 0xEE;
  const int rotResult = raw.GetRotationInfo(&rotation);
  Check(OneOf(rotResult, {DtRawOk, DtRawErrNoData, notInit}), "GetRotationInfo", rotResult);
  if (rotResult == DtRawOk) {
    Check(rotation <= 7, "rotation code", rotation);
  }

  const char* iob = nullptr;
  int iobSize = -1;
  const int iobResult = raw.GetIobIndex(&iob, &iobSize);
  Check(OneOf(iobResult, {DtRawOk, DtRawErrNoData, notInit}), "GetIobIndex", iobResult);
  if (iobResult == DtRawOk) {
    // Kept bytes are 1 to 32; touching each lets AddressSanitizer check them.
    Check(iob != nullptr && iobSize >= 1 && iobSize <= 32, "GetIobIndex value", iobSize);
    unsigned sum = 0;
    for (int i = 0; i < iobSize; ++i) {
      sum += static_cast<unsigned char>(iob[i]);
    }
    Check(sum <= 255u * 32u, "GetIobIndex bytes", static_cast<int>(sum));
  }

  RunMetadataQueries(raw, initialised);
}

// The write-back in buffer mode: always refused. `everInitialised` says
// whether the object was initialised in buffer mode at least once (the mode
// flag outlives Finalize).
inline void CheckWriteBackRefused(DtRaw& raw, bool initialised, bool everInitialised) {
  const int set = raw.SetRotationInfo(1);
  if (everInitialised) {
    Check(set == DtRawErrBufferMode, "SetRotationInfo in buffer mode", set);
  } else {
    Check(OneOf(set, {DtRawErrBufferMode, DtRawErrNotInit}), "SetRotationInfo, never loaded", set);
  }
  const int update = raw.Update(nullptr);
  Check(update == (initialised ? DtRawErrBufferMode : DtRawErrNotInit), "Update in buffer mode",
        update);
}

// The write-back in file mode: queue `rotation`, write with or without a
// valid time, and check that a written orientation is what GetRotationInfo
// reports afterwards. Returns Update's result.
inline int RunWriteBack(DtRaw& raw, bool initialised, unsigned char rotation, bool withTime) {
  const int notInit = initialised ? 1 : DtRawErrNotInit;
  const int set = raw.SetRotationInfo(rotation);
  Check(OneOf(set, {DtRawOk, DtRawErrNoData, DtRawErrSize, DtRawErrStat, DtRawErrNotFound,
                    DtRawErrIo, DtRawErrReadOnly, notInit}),
        "SetRotationInfo", set);
  DtNlTime now;
  const int update = raw.Update(withTime ? &now : nullptr);
  Check(OneOf(update, {DtRawOk, DtRawErrStat, DtRawErrOpen, DtRawErrSeek, DtRawErrWrite,
                       DtRawErrClose, DtRawErrSetTime, DtRawErrNotFound, DtRawErrIo, notInit}),
        "Update", update);
  if (set == DtRawOk && update == DtRawOk) {
    unsigned char rotationAfter = 0xEE;
    const int get = raw.GetRotationInfo(&rotationAfter);
    const unsigned char expect = DtRaw::convRotInfoStdtoUse(DtRaw::convRotInfoUsetoStd(rotation));
    Check(get == DtRawOk && rotationAfter == expect, "rotation after Update", rotationAfter);
  }
  // The queue is empty now: a second Update has nothing to write.
  const int second = raw.Update(nullptr);
  Check(second == (initialised ? DtRawOk : DtRawErrNotInit) || update != DtRawOk,
        "Update of an empty queue", second);
  return update;
}

}  // namespace kpzfuzz

#endif  // KPZ_FUZZ_FUZZRAWQUERIES_H
