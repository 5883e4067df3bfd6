// BenchExiv2Job.h - the comparison job: the same preview taken out of the
// same file through libexiv2's PreviewManager, the way a program built on
// that library would do it.
//
// Part of bench/; compiled only when libexiv2 is found (Debian:
// libexiv2-dev), and then KPZ_BENCH_EXIV2 is 1 in every bench program.
// Exceptions thrown by libexiv2 are caught here: nothing leaves these
// functions by an exception.
//
//   BenchExiv2Job::Setup();
//   UINT got = BenchExiv2Job::Preview(path, &BenchJobs::IgnorePreview, nullptr);
//
// No pointer members. A sink's `context` is borrowed for the call.
#ifndef KPZ_BENCH_BENCHEXIV2JOB_H
#define KPZ_BENCH_BENCHEXIV2JOB_H

#include <string>

#include "BenchJobs.h"
#include "util/DtNlTypes.h"

class BenchExiv2Job {
 public:
  // Silences libexiv2's own warning output; call once before the first job.
  static void Setup();

  // Opens the file, reads its metadata, lists its previews and takes the
  // largest into the library's heap buffer, which goes to `sink`. Bytes
  // handed over; 0 when the file cannot be read or holds no preview that
  // libexiv2 recognises (the sink is not called).
  static UINT Preview(const char* path, BenchPreviewSink sink, void* context);

  // One line saying what libexiv2 makes of the file: the image type it
  // detected and each preview it lists (size, pixel size, MIME type), or the
  // error it reported.
  static std::string Describe(const char* path);

  // The library's version text, e.g. "0.27.6".
  static std::string Version();
};

#endif  // KPZ_BENCH_BENCHEXIV2JOB_H
