// BenchAllocCounter.h - counts the heap allocations of the process, for the
// benchmark programs only (never the library): malloc, calloc, realloc and
// the aligned variants are replaced by functions that count and hand over to
// the C library's own allocator.
//
// Part of bench/. Linked into kpz_bench_run; the C library routes its own
// allocations (fopen's FILE, stdio buffers) through these too, so the count
// is every allocation made while a job runs.
//
//   const unsigned long long before = BenchAllocCounter::Allocations();
//   job();
//   const unsigned long long made = BenchAllocCounter::Allocations() - before;
//
// No pointer members. The counters are process-wide atomics.
#ifndef KPZ_BENCH_BENCHALLOCCOUNTER_H
#define KPZ_BENCH_BENCHALLOCCOUNTER_H

class BenchAllocCounter {
 public:
  // Allocations (malloc, calloc, realloc of a null pointer, the aligned
  // variants) since the process started; realloc of a live block counts as
  // one allocation too.
  static unsigned long long Allocations();
  // Frees of a non-null pointer since the process started.
  static unsigned long long Frees();
};

#endif  // KPZ_BENCH_BENCHALLOCCOUNTER_H
