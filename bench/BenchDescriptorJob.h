// BenchDescriptorJob.h - the descriptor entry's job: the screennail of a file
// read through an open descriptor as getScreennailFromFd reads it (without
// the JVM), with the open and close an app makes around the call.
//
// Part of bench/; compiled when the library has the descriptor read path
// (jni/KpzScreennailReader: ReadFd), and then KPZ_BENCH_DESCRIPTOR is 1 in
// every bench program. A library of an older revision (scripts/bench.sh's
// before/after build) goes without this job. It calls the entry's own read
// path, so what it times is what the entry runs; the function stays out of
// line so that a profiler can count it on its own
// (callgrind --toggle-collect='BenchDescriptorJob::Preview*').
//
//   UINT got = BenchDescriptorJob::Preview(path, &BenchJobs::IgnorePreview, nullptr);
//
// No pointer members. A sink's `context` is borrowed for the call.
#ifndef KPZ_BENCH_BENCHDESCRIPTORJOB_H
#define KPZ_BENCH_BENCHDESCRIPTORJOB_H

#include "BenchJobs.h"
#include "util/DtNlTypes.h"

class BenchDescriptorJob {
 public:
  // open(path, O_RDONLY) (the app's ContentResolver.openFileDescriptor), the
  // entry's two progress log lines (Android log, tag "KpzInterface"), its
  // fstat (DtNlFdReadAt::Adopt, the descriptor borrowed), its read path
  // (KpzScreennailReader::ReadFd: a pread of the 64 KiB head, InitializeBuf,
  // GetScreennailInfo, Finalize, one pread of the preview into a new heap
  // buffer), close (the app's). The buffer goes to `sink` and is freed.
  // Returns the bytes handed to the sink, 0 on any failure (logged as the
  // entry logs it; the sink is not called).
  static UINT Preview(const char* path, BenchPreviewSink sink, void* context);
};

#endif  // KPZ_BENCH_BENCHDESCRIPTORJOB_H
