// KpzScreennailReader.h - the read path of the JNI entry getScreennailNative,
// free of JNI: from a path to the screennail's bytes in a buffer of its own.
//
// Layer: the top one (jni/), beside the JNI entry, above the raw facade
// (jni/raw/DtRaw) and the files-and-streams layer (jni/util/io/DtNlFileIo).
// The entry (KpzInterfaceJni.cpp) calls it and copies the bytes into a Java
// array; the benchmarks (bench/) time this same function, so what they
// measure is what the entry runs. Each failure is written to the Android log
// (tag "KpzInterface", ERROR) in the entry's words, the screennail's place
// and size at INFO, never through DtNlLogger.
//
//   DtRaw raw;
//   DtNlFileIo fileIo;
//   UINT size = 0;
//   std::unique_ptr<UINT8[]> jpeg = KpzScreennailReader::Read(path, raw, fileIo, &size);
//
// Holds nothing; safe from several threads at once (each with its own DtRaw
// and DtNlFileIo).
#ifndef KPZ_JNI_KPZSCREENNAILREADER_H
#define KPZ_JNI_KPZSCREENNAILREADER_H

#include <memory>

#include "raw/DtRaw.h"
#include "util/DtNlTypes.h"
#include "util/io/DtNlFileIo.h"

class KpzScreennailReader {
 public:
  // The largest Java array: jsize is a signed 32-bit count.
  static const UINT kMaxJavaArray = 0x7FFFFFFFu;

  // Reads the screennail of the KPZ file `path`: parses the file with `raw`
  // (Initialize, GetScreennailInfo, Finalize), then opens it again with
  // `fileIo` and reads the screennail's bytes with one seek and one read.
  // Returns the bytes (owned by the caller) with their count in `*size`
  // (at most kMaxJavaArray), or null after logging why (*size is then 0).
  // `raw` and `fileIo` are borrowed and left finalized and closed; the
  // caller destroys them (the channel first). The buffer is never larger
  // than what the file holds after the screennail's offset, whatever size the
  // file claims.
  static std::unique_ptr<UINT8[]> Read(const char* path, DtRaw& raw, DtNlFileIo& fileIo,
                                       UINT* size);
};

#endif  // KPZ_JNI_KPZSCREENNAILREADER_H
