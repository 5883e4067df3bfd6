// KpzReadPicture.h - the whole picture of a file in one call, for the kit's
// tests: the kit's extraction (KpzExtraction::Open, then Extract with the
// bytes asked for), as every front end runs it.
#ifndef KPZ_TESTS_SUPPORT_KPZREADPICTURE_H
#define KPZ_TESTS_SUPPORT_KPZREADPICTURE_H

#include <string>
#include <utility>
#include <vector>

#include "kpz/KpzExtraction.h"
#include "kpz/KpzSource.h"

namespace kpztest {

// True with the picture of `kind` in *out; false with *out emptied and
// *error set to the kit's words.
inline bool ReadPicture(const std::string& path, KpzExtraction::Kind kind, std::vector<UINT8>* out,
                        std::string* error) {
  KpzExtraction::Options options;
  options.kind = kind;
  KpzSource source;
  KpzExtraction::Outcome got = KpzExtraction::Extract(path, &source, options, /*wantBytes=*/true);
  *out = std::move(got.bytes);
  *error = std::move(got.words);
  return got.ok();
}

}  // namespace kpztest

#endif  // KPZ_TESTS_SUPPORT_KPZREADPICTURE_H
