// KpzInfoJson.h - `info --json`'s object: one KPZ file's
// metadata as one JSON object on one line (JSON Lines), with the raw numbers
// and each getter's result code. The keys are described in docs/KPZ-JSON.md.
//
// Part of the kit (kit/kpz), above the library: it turns a
// KpzMetadata record (filled by KpzMetadataReader) into JSON with
// nlohmann-json and calls nothing below.
//
//   {"file":"a.kpz","result":0,"error":null,"make":{"result":0,"value":"KAVI"},...}
//
//   std::fputs(KpzInfoJson::Line(md).c_str(), stdout);
//
// Holds nothing; every operation is a static function.
#ifndef KPZ_KIT_KPZ_KPZINFOJSON_H
#define KPZ_KIT_KPZ_KPZINFOJSON_H

#include <string>

#include "kpz/KpzMetadata.h"

class KpzInfoJson {
 public:
  // The object for `md` on one line, ending with a newline. Every value is
  // an object holding "result" (the getter's code) and its fields, which
  // are null unless "result" is 0. A file that could not be initialised has
  // only "file", "result" (null for a directory, which is not opened) and
  // "error". Texts that are not valid UTF-8 have the bad bytes replaced by
  // U+FFFD; text values end before their first zero byte.
  static std::string Line(const KpzMetadata& md);
};

#endif  // KPZ_KIT_KPZ_KPZINFOJSON_H
