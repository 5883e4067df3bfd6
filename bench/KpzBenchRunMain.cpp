// KpzBenchRunMain.cpp - kpz_bench_run: writes a benchmark corpus, or runs one
// job over a corpus in a plain loop, for the tools that count rather than
// time (strace -c, valgrind --tool=callgrind, peak memory).
//
// Part of bench/ (preset `bench`); never run by the unit tests or CI.
//
//   kpz_bench_run corpus --out DIR [--files N] [--preview-bytes B]
//                 [--filler-bytes F] [--thumbnail-bytes T] [--sparse]
//                 [--ifd0-entries E] [--real-jpeg WIDTHxHEIGHT[@QUALITY]]
//                 [--orientation-mix]
//   kpz_bench_run JOB MANIFEST [--files N] [--rounds R] [--marker] [--any-result]
//   kpz_bench_run paired MANIFEST [--files N] [--passes P]
//
// --real-jpeg makes every preview one real 4:2:0 JPEG of that size (quality
// 92 unless given), encoded once with TurboJPEG (BenchJpeg), instead of
// JPEG-shaped bytes; --orientation-mix varies IFD0's orientation as
// BenchCorpus::OrientationFor says and writes orientations.tsv.
// JOB is one of: main (the JNI entry's path), fd (the descriptor entry's,
// with the app's open and close; when built), locate, parse (a head held in
// memory; the heads are read before the jobs run), record (the kit's
// head-only locate of a head held in memory), gallery (the gallery entry's
// info and thumbnail), floor, floorhinted (the
// floor with the library's access hints, for a cold page cache), floorhead,
// exiv2 (when built with libexiv2). --files 0 runs no job at all: the baseline to
// subtract. --marker brackets the last job with two failing access() calls
// on "/kpz-bench-marker/begin" and ".../end", so that a system-call trace
// can be cut to exactly one file. --any-result goes on when a job fails (for
// files the library refuses on purpose) and reports how many did. At the end
// one line reports the jobs run,
// the wall time, the heap allocations and frees per job (counted from the
// second round on, so that one-time allocations do not count; all rounds
// when there is one) and the peak resident memory (maxrss_kib).
//
// `paired` times the main path against the floor file by file: in each
// pass, for each file, the two run back to back, library first on even
// (file + pass) and floor first on odd ones, because the second of a pair
// profits from the first. It reports the geometric mean of the per-file
// ratios library / floor over all pairs, with their median and quartiles.
// Exit status 0 when every job succeeded, 1 when one failed, 2 for wrong
// arguments.
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "BenchAllocCounter.h"
#include "BenchCorpus.h"
#include "BenchJobs.h"
#if KPZ_BENCH_DESCRIPTOR
#include "BenchDescriptorJob.h"
#endif
#if KPZ_BENCH_TURBOJPEG
#include "BenchJpeg.h"
#endif
#if KPZ_BENCH_EXIV2
#include "BenchExiv2Job.h"
#endif

namespace {

const char* const kUsage =
    "usage: kpz_bench_run corpus --out DIR [--files N] [--preview-bytes B]\n"
    "                     [--filler-bytes F] [--thumbnail-bytes T] [--sparse]\n"
    "                     [--ifd0-entries E] [--real-jpeg WIDTHxHEIGHT[@QUALITY]]\n"
    "                     [--orientation-mix]\n"
    "       kpz_bench_run JOB MANIFEST [--files N] [--rounds R] [--marker] [--any-result]\n"
    "       kpz_bench_run paired MANIFEST [--files N] [--passes P]\n"
    "       JOB: main locate parse floor floorhinted floorhead"
#if KPZ_BENCH_RECORD
    " record gallery"
#endif
#if KPZ_BENCH_DESCRIPTOR
    " fd"
#endif
#if KPZ_BENCH_EXIV2
    " exiv2"
#endif
    "\n";

int usage() {
  std::fputs(kUsage, stderr);
  return 2;
}

// Parses a whole unsigned 32-bit decimal number.
bool parseU32(const char* text, std::uint32_t* value) {
  char* end = nullptr;
  const unsigned long long parsed = std::strtoull(text, &end, 10);
  if (*text == '\0' || *text == '-' || end == nullptr || *end != '\0' || parsed > 0xFFFFFFFFull) {
    return false;
  }
  *value = static_cast<std::uint32_t>(parsed);
  return true;
}

double secondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

long peakRssKib() {
  struct rusage usage;
  std::memset(&usage, 0, sizeof usage);
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

int runCorpus(int argc, char** argv) {
  BenchCorpusPlan plan;
  std::string dir;
  for (int i = 2; i < argc; ++i) {
    const std::string arg = argv[i];
    const bool hasValue = i + 1 < argc;
    if (arg == "--sparse") {
      plan.sparseFiller = true;
    } else if (arg == "--out" && hasValue) {
      dir = argv[++i];
    } else if (arg == "--files" && hasValue && parseU32(argv[i + 1], &plan.files)) {
      ++i;
    } else if (arg == "--preview-bytes" && hasValue && parseU32(argv[i + 1], &plan.previewBytes)) {
      ++i;
    } else if (arg == "--filler-bytes" && hasValue && parseU32(argv[i + 1], &plan.fillerBytes)) {
      ++i;
    } else if (arg == "--thumbnail-bytes" && hasValue &&
               parseU32(argv[i + 1], &plan.thumbnailBytes)) {
      ++i;
    } else if (arg == "--ifd0-entries" && hasValue &&
               parseU32(argv[i + 1], &plan.extraIfd0Entries)) {
      ++i;
    } else if (arg == "--orientation-mix") {
      plan.orientationMix = true;
    } else if (arg == "--real-jpeg" && hasValue) {
      unsigned width = 0;
      unsigned height = 0;
      unsigned quality = 92;
      const int got = std::sscanf(argv[++i], "%ux%u@%u", &width, &height, &quality);
      if (got < 2 || width == 0 || height == 0 || width > 65535 || height > 65535 ||
          quality < 1 || quality > 100) {
        return usage();
      }
#if KPZ_BENCH_TURBOJPEG
      plan.realPreview = BenchJpeg::Preview(static_cast<int>(width), static_cast<int>(height),
                                            static_cast<int>(quality));
      if (plan.realPreview.empty()) {
        std::fprintf(stderr, "kpz_bench_run: the preview JPEG cannot be encoded\n");
        return 1;
      }
#else
      std::fprintf(stderr, "kpz_bench_run: --real-jpeg needs TurboJPEG (libturbojpeg0-dev)\n");
      return 1;
#endif
    } else {
      return usage();
    }
  }
  if (dir.empty()) {
    return usage();
  }
  const auto start = std::chrono::steady_clock::now();
  std::vector<BenchFile> files;
  std::string why;
  if (!BenchCorpus::Generate(plan, dir, &files, &why)) {
    std::fprintf(stderr, "kpz_bench_run: %s\n", why.c_str());
    return 1;
  }
  std::printf("corpus: %zu files in %s, %.2f s\n", files.size(), dir.c_str(), secondsSince(start));
  if (!plan.realPreview.empty()) {
    std::printf("corpus: every preview a real JPEG of %zu bytes\n", plan.realPreview.size());
  }
  return 0;
}

// The first `maxFiles` files of the manifest at `path`; false (reported) when
// it cannot be read.
bool loadCorpus(const char* path, std::uint32_t maxFiles, std::vector<BenchFile>* files) {
  std::string why;
  if (!BenchCorpus::Load(path, files, &why)) {
    std::fprintf(stderr, "kpz_bench_run: %s\n", why.c_str());
    return false;
  }
  if (maxFiles < files->size()) {
    files->resize(maxFiles);
  }
  return true;
}

// Runs `job` on file `index`; false when it failed.
bool runOne(const std::string& job, const BenchFile& file, std::vector<UINT8>* head,
            std::vector<UINT8>* scratch) {
  if (job == "main") {
    return BenchJobs::MainPath(file.path.c_str(), &BenchJobs::IgnorePreview, nullptr) ==
           file.previewSize;
  }
#if KPZ_BENCH_DESCRIPTOR
  if (job == "fd") {
    return BenchDescriptorJob::Preview(file.path.c_str(), &BenchJobs::IgnorePreview, nullptr) ==
           file.previewSize;
  }
#endif
  if (job == "locate") {
    DtRawScreennailInfo info;
    return BenchJobs::Locate(file.path.c_str(), &info) == 0 &&
           info.m_fileOffset == file.previewOffset && info.m_size == file.previewSize;
  }
  if (job == "parse") {
    BenchQueryResults results;
    return BenchJobs::ParseBuffer(head->data(), static_cast<int>(head->size()), scratch->data(),
                                  static_cast<unsigned int>(scratch->size()), &results) == 0 &&
           results.screennail.m_size == file.previewSize;
  }
#if KPZ_BENCH_RECORD
  if (job == "record") {
    std::uint64_t offset = 0;
    return BenchJobs::RecordLocate(head->data(), file.fileSize, &offset) == file.previewSize &&
           offset == file.previewOffset;
  }
  if (job == "gallery") {
    return BenchJobs::Gallery(file.path.c_str(), scratch->data(),
                              static_cast<UINT>(scratch->size())) != 0;
  }
#endif
  if (job == "floor") {
    return BenchJobs::Floor(file, scratch->data(), &BenchJobs::IgnorePreview, nullptr) ==
           file.previewSize;
  }
  if (job == "floorhinted") {
    return BenchJobs::FloorHinted(file, scratch->data(), &BenchJobs::IgnorePreview, nullptr) ==
           file.previewSize;
  }
  if (job == "floorhead") {
    return BenchJobs::FloorHead(file.path.c_str(), scratch->data()) != 0;
  }
#if KPZ_BENCH_EXIV2
  if (job == "exiv2") {
    // What libexiv2 finds is reported by kpz_bench; here only its cost counts.
    (void)BenchExiv2Job::Preview(file.path.c_str(), &BenchJobs::IgnorePreview, nullptr);
    return true;
  }
#endif
  return false;
}

bool knownJob(const std::string& job) {
  return job == "main" || job == "locate" || job == "parse" || job == "floor" ||
         job == "floorhinted" || job == "floorhead"
#if KPZ_BENCH_DESCRIPTOR
         || job == "fd"
#endif
#if KPZ_BENCH_RECORD
         || job == "record" || job == "gallery"
#endif
#if KPZ_BENCH_EXIV2
         || job == "exiv2"
#endif
      ;
}

int runJob(int argc, char** argv) {
  if (argc < 3) {
    return usage();
  }
  const std::string job = argv[1];
  if (!knownJob(job)) {
    return usage();
  }
  std::uint32_t maxFiles = 0xFFFFFFFFu;
  std::uint32_t rounds = 1;
  bool marker = false;
  bool anyResult = false;
  std::uint64_t failed = 0;
  for (int i = 3; i < argc; ++i) {
    const std::string arg = argv[i];
    const bool hasValue = i + 1 < argc;
    if (arg == "--marker") {
      marker = true;
    } else if (arg == "--any-result") {
      anyResult = true;
    } else if (arg == "--files" && hasValue && parseU32(argv[i + 1], &maxFiles)) {
      ++i;
    } else if (arg == "--rounds" && hasValue && parseU32(argv[i + 1], &rounds)) {
      ++i;
    } else {
      return usage();
    }
  }
  std::vector<BenchFile> files;
  if (!loadCorpus(argv[2], maxFiles, &files)) {
    return 1;
  }
#if KPZ_BENCH_EXIV2
  if (job == "exiv2") {
    BenchExiv2Job::Setup();
  }
#endif
  std::vector<std::vector<UINT8>> heads;
  if (job == "parse" || job == "record") {
    for (const BenchFile& file : files) {
      heads.emplace_back(BenchJobs::HEAD_SIZE);
      if (BenchJobs::FloorHead(file.path.c_str(), heads.back().data()) == 0) {
        std::fprintf(stderr, "kpz_bench_run: %s: cannot read the head\n", file.path.c_str());
        return 1;
      }
    }
  }
  std::vector<UINT8> scratch(BenchJobs::HEAD_SIZE);
  std::vector<UINT8> noHead;

  const auto start = std::chrono::steady_clock::now();
  std::uint64_t done = 0;
  std::uint64_t counted = 0;
  unsigned long long allocBase = BenchAllocCounter::Allocations();
  unsigned long long freeBase = BenchAllocCounter::Frees();
  for (std::uint32_t round = 0; round < rounds && !files.empty(); ++round) {
    if (round == 1) {
      // From here on: the steady state.
      allocBase = BenchAllocCounter::Allocations();
      freeBase = BenchAllocCounter::Frees();
      counted = 0;
    }
    for (std::size_t i = 0; i < files.size(); ++i) {
      const bool last = round + 1 == rounds && i + 1 == files.size();
      if (marker && last) {
        (void)access("/kpz-bench-marker/begin", F_OK);
      }
      const bool ok = runOne(job, files[i], heads.empty() ? &noHead : &heads[i], &scratch);
      if (marker && last) {
        (void)access("/kpz-bench-marker/end", F_OK);
      }
      if (!ok && anyResult) {
        ++failed;
      } else if (!ok) {
        std::fprintf(stderr, "kpz_bench_run: %s: job %s failed\n", files[i].path.c_str(),
                     job.c_str());
        return 1;
      }
      ++done;
      ++counted;
    }
  }
  const double seconds = secondsSince(start);
  const double perJob = counted != 0 ? 1.0 / static_cast<double>(counted) : 0.0;
  std::printf(
      "%s: %llu jobs, %llu failed, %.3f s, %.1f us/job, allocs_per_job=%.2f, "
      "frees_per_job=%.2f, maxrss_kib=%ld\n",
      job.c_str(), static_cast<unsigned long long>(done), static_cast<unsigned long long>(failed),
      seconds, done != 0 ? seconds * 1e6 / static_cast<double>(done) : 0.0,
      static_cast<double>(BenchAllocCounter::Allocations() - allocBase) * perJob,
      static_cast<double>(BenchAllocCounter::Frees() - freeBase) * perJob, peakRssKib());
  return 0;
}

// Seconds one call of `job` on `file` takes; negative when it failed.
double timeOne(bool library, const BenchFile& file, std::vector<UINT8>* head) {
  const auto start = std::chrono::steady_clock::now();
  const UINT got = library
                       ? BenchJobs::MainPath(file.path.c_str(), &BenchJobs::IgnorePreview, nullptr)
                       : BenchJobs::Floor(file, head->data(), &BenchJobs::IgnorePreview, nullptr);
  const double seconds = secondsSince(start);
  return got == file.previewSize ? seconds : -1.0;
}

int runPaired(int argc, char** argv) {
  if (argc < 3) {
    return usage();
  }
  std::uint32_t maxFiles = 0xFFFFFFFFu;
  std::uint32_t passes = 20;
  for (int i = 3; i < argc; ++i) {
    const std::string arg = argv[i];
    const bool hasValue = i + 1 < argc;
    if (arg == "--files" && hasValue && parseU32(argv[i + 1], &maxFiles)) {
      ++i;
    } else if (arg == "--passes" && hasValue && parseU32(argv[i + 1], &passes) && passes > 0) {
      ++i;
    } else {
      return usage();
    }
  }
  std::vector<BenchFile> files;
  if (!loadCorpus(argv[2], maxFiles, &files)) {
    return 1;
  }
  std::vector<UINT8> head(BenchJobs::HEAD_SIZE);
  // One untimed pass: the page cache and the allocator warm up.
  for (const BenchFile& file : files) {
    if (timeOne(true, file, &head) < 0 || timeOne(false, file, &head) < 0) {
      std::fprintf(stderr, "kpz_bench_run: %s: a job failed\n", file.path.c_str());
      return 1;
    }
  }
  std::vector<double> ratios;
  double libSum = 0;
  double floorSum = 0;
  for (std::uint32_t pass = 0; pass < passes; ++pass) {
    for (std::size_t i = 0; i < files.size(); ++i) {
      const bool libraryFirst = (i + pass) % 2 == 0;
      const double first = timeOne(libraryFirst, files[i], &head);
      const double second = timeOne(!libraryFirst, files[i], &head);
      const double lib = libraryFirst ? first : second;
      const double floor = libraryFirst ? second : first;
      if (lib <= 0 || floor <= 0) {
        std::fprintf(stderr, "kpz_bench_run: %s: a job failed\n", files[i].path.c_str());
        return 1;
      }
      ratios.push_back(lib / floor);
      libSum += lib;
      floorSum += floor;
    }
  }
  double logSum = 0;
  for (double r : ratios) {
    logSum += std::log(r);
  }
  std::sort(ratios.begin(), ratios.end());
  const std::size_t n = ratios.size();
  std::printf(
      "paired: %zu pairs, geomean=%.4f, median=%.4f, q1=%.4f, q3=%.4f, "
      "main_us=%.1f, floor_us=%.1f\n",
      n, std::exp(logSum / static_cast<double>(n)), ratios[n / 2], ratios[n / 4],
      ratios[(3 * n) / 4], libSum * 1e6 / static_cast<double>(n),
      floorSum * 1e6 / static_cast<double>(n));
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    return usage();
  }
  if (std::strcmp(argv[1], "corpus") == 0) {
    return runCorpus(argc, argv);
  }
  if (std::strcmp(argv[1], "paired") == 0) {
    return runPaired(argc, argv);
  }
  return runJob(argc, argv);
}
