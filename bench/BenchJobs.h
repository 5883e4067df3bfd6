// BenchJobs.h - the per-file jobs the benchmarks time: the library's main path
// as the JNI entry runs it (without the JVM), locating only, parsing a head
// held in memory, and the floor (the same system calls with the offsets
// known in advance).
//
// Part of bench/. Calls the raw facade (jni/raw/DtRaw), the stdio channel
// (jni/util/io/DtNlFileIo) and, for the floor, the POSIX calls directly. The
// benchmark programs (bench/KpzBenchMain.cpp, bench/KpzBenchRunMain.cpp) call
// these; the functions stay out of line so that a profiler can count each
// one on its own (callgrind --toggle-collect='BenchJobs::MainPath*').
//
//   UINT got = BenchJobs::MainPath(file.path.c_str(), &BenchJobs::IgnorePreview, nullptr);
//   UINT want = BenchJobs::Floor(file, head, &BenchJobs::IgnorePreview, nullptr);
//
// No pointer members. A sink's `context` is borrowed for the call.
#ifndef KPZ_BENCH_BENCHJOBS_H
#define KPZ_BENCH_BENCHJOBS_H

#include <cstdint>

#include "BenchCorpus.h"
#include "raw/DtRawDateTime.h"
#include "raw/DtRawFlashInfo.h"
#include "raw/DtRawScreennailInfo.h"
#include "raw/DtRawThumbnailInfo.h"
#include "util/DtNlTypes.h"

// Receives the preview bytes where the JNI entry would copy them into a Java
// array. `data` is valid only during the call.
typedef void (*BenchPreviewSink)(const UINT8* data, UINT size, void* context);

// What the parse-only job got from its queries.
struct BenchQueryResults {
  DtRawScreennailInfo screennail;
  DtRawThumbnailInfo thumbnail;
  unsigned char rotation = 0;
  const char* iobIndex = nullptr;  // borrowed from the DtRaw; invalid after the job
  int iobIndexSize = 0;
  UINT thumbnailCopied = 0;  // bytes GetThumbnailData copied
  unsigned short rawHeight = 0;
  unsigned short rawWidth = 0;
  short colorSpace = 0;
  short customRendered = 0;
  unsigned int focal35Num = 0;
  unsigned int focal35Den = 0;
  DtRawFlashInfo flash;
  unsigned char exposureProgram = 0;
  unsigned short iso = 0;
  unsigned int focalNum = 0;
  unsigned int focalDen = 0;
  unsigned int fNumberNum = 0;
  unsigned int fNumberDen = 0;
  unsigned int exposureNum = 0;
  unsigned int exposureDen = 0;
  int biasNum = 0;
  int biasDen = 0;
  char maker[64] = {};
  char model[64] = {};
  DtRawDateTime dateTime;
  unsigned short exifVersion = 0;
  unsigned short iobVersion = 0;
  unsigned char t593Mode = 0;
};

class BenchJobs {
 public:
  // Bytes of the file head the library reads and parses.
  static const UINT HEAD_SIZE = 0x10000;

  // The JNI entry's work for one file: its three progress log lines (Android
  // log, tag "KpzInterface"), DtRaw::Initialize, GetScreennailInfo,
  // Finalize, then a stack DtNlFileIo opened "r", a seek to the offset, the
  // size bounded by the file's length (a stat), one ReadU8 into a new heap
  // buffer, Close; the buffer goes to `sink` and is freed. Returns the bytes
  // handed to the sink, 0 on any failure (logged as the entry logs it; the
  // sink is not called).
  static UINT MainPath(const char* path, BenchPreviewSink sink, void* context);

  // Initialize, GetScreennailInfo and (through the destructor) Finalize.
  // 0 with *info filled, or the first failing raw-layer code.
  static int Locate(const char* path, DtRawScreennailInfo* info);

  // (These two: when built with KPZ_BENCH_RECORD.)
  // The head-only locate of the kit, Python, kpz.remote and kpz serve: the
  // first HEAD_SIZE bytes of a file of `fileSize` bytes, already in memory,
  // parsed into one record (pictures and orientation only), then the
  // preview's range. Its length, or 0 when the preview cannot be had.
  static UINT RecordLocate(const UINT8* head, std::uint64_t fileSize, std::uint64_t* offset);

  // The gallery entry's two steps for one file (KpzGalleryReader): open by
  // path, read the head and parse it (the info), then locate the thumbnail
  // and read it into `out` (`outSize` bytes). The thumbnail's length, or 0
  // when any step failed or it does not fit.
  static UINT Gallery(const char* path, UINT8* out, UINT outSize);

  // InitializeBuf over the caller's `head` (`size` bytes, borrowed for the
  // call) and every query (Get...) DtRaw offers; the thumbnail is copied
  // into `thumbBuf` (`thumbBufSize` bytes). 0 when every step succeeded,
  // else the first failing code (later queries are still made).
  static int ParseBuffer(unsigned char* head, int size, unsigned char* thumbBuf,
                         unsigned int thumbBufSize, BenchQueryResults* out);

  // The floor: open, read HEAD_SIZE bytes into `head`, close; open, lseek to
  // the known offset, read the known size into a new heap buffer, close;
  // the buffer goes to `sink` and is freed. Bytes handed over, 0 on failure.
  static UINT Floor(const BenchFile& file, UINT8* head, BenchPreviewSink sink, void* context);

  // The floor for a cold page cache: as Floor, with the access hints the
  // library gives (posix_fadvise RANDOM after each open, WILLNEED on the head
  // and on the preview's known range before reading it), so that only those
  // bytes come from the disk. Bytes handed over, 0 on failure.
  static UINT FloorHinted(const BenchFile& file, UINT8* head, BenchPreviewSink sink,
                          void* context);

  // The floor of locating: open, read HEAD_SIZE bytes into `head`, close.
  // Bytes read (fewer for a shorter file), 0 on failure.
  static UINT FloorHead(const char* path, UINT8* head);

  // A sink that does nothing with the bytes.
  static void IgnorePreview(const UINT8* data, UINT size, void* context);
};

#endif  // KPZ_BENCH_BENCHJOBS_H
