// KpzScreennailReader.h - the read path of the JNI screennail entries,
// free of JNI: from a path (getScreennailNative) or an open descriptor
// (getScreennailFromFd) to the screennail's bytes in a buffer of its own.
//
// Layer: the top one (jni/), beside the JNI entries, above the raw facade
// (jni/raw/DtRaw) and the files-and-streams layer (jni/util/io: DtNlFileIo for
// a path, DtNlFdReadAt for a descriptor). The entries (KpzInterfaceJni.cpp,
// KpzInterfaceFdJni.cpp) call it and copy the bytes into a Java array
// (KpzJavaBytes); the benchmarks (bench/) time these same functions, so what
// they measure is what the entries run. Both readers ask the facade where the
// screennail lies in one shared step, with the same log lines; each then reads
// it its own way. Each failure is written to the Android log (tag
// "KpzInterface", ERROR) in the entry's words, the screennail's place and size
// at INFO, never through DtNlLogger.
//
//   DtRaw raw;
//   DtNlFileIo fileIo;
//   UINT size = 0;
//   std::unique_ptr<UINT8[]> jpeg = KpzScreennailReader::Read(path, raw, fileIo, &size);
//
//   DtNlFdReadAt file;
//   if (file.Adopt(fd, false) == 0) jpeg = KpzScreennailReader::ReadFd(file, &size);
//
// Holds nothing; safe from several threads at once (each with its own DtRaw
// and DtNlFileIo; one DtNlFdReadAt may even be shared, pread moving nothing).
#ifndef KPZ_JNI_KPZSCREENNAILREADER_H
#define KPZ_JNI_KPZSCREENNAILREADER_H

#include <memory>

#include "raw/DtRaw.h"
#include "util/DtNlTypes.h"
#include "util/io/DtNlFileIo.h"

class DtNlFdReadAt;

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

  // Reads the screennail of the KPZ file open on `fd` (borrowed: neither
  // closed nor moved, every read is a pread): its first 64 KiB (zeros after
  // the end of a shorter file, as Initialize has them for a path), parsed
  // with a DtRaw of its own (InitializeBuf, GetScreennailInfo, Finalize),
  // then the screennail with one pread, or more where the descriptor reports
  // no size. The answers and the offset's reading are those of Read, so a
  // file gives the same bytes through both; a descriptor that cannot be read
  // positionally (a pipe) fails. Returns the bytes (owned by the caller) with
  // their count in `*size` (at most kMaxJavaArray), or null after logging why
  // (*size is then 0). The buffer grows only by what the descriptor really
  // holds, never by the claimed size alone.
  static std::unique_ptr<UINT8[]> ReadFd(DtNlFdReadAt& fd, UINT* size);
};

#endif  // KPZ_JNI_KPZSCREENNAILREADER_H
