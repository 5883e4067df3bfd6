// KpzBenchMain.cpp - kpz_bench: the Google Benchmark program that times the
// library's preview path (by path and by descriptor) against the floor (the
// bare system calls) and, when built with it, libexiv2's PreviewManager, all
// over one corpus.
//
// Part of bench/ (preset `bench`); never run by the unit tests or CI. Every
// benchmark processes one file per iteration, going round the corpus, so a
// figure is the time per file. Before timing, every file is read once (warm
// page cache) and the main path's bytes are compared with the floor's.
//
//   kpz_bench                                   # generates the default corpus in /tmp
//   kpz_bench --kpz_corpus=/tmp/c/manifest.tsv --kpz_files=16
//             --benchmark_repetitions=5 --benchmark_out=r.json --benchmark_out_format=json
//
// Flags of its own (the rest are Google Benchmark's):
//   --kpz_corpus=MANIFEST  a corpus written by `kpz_bench_run corpus`
//   --kpz_files=N          use only the first N files of it
// The library's and the Android log's lines go to standard error; run with
// 2>/dev/null to keep them out of the way (they are part of the cost).
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "BenchCorpus.h"
#include "BenchJobs.h"
#include "support/KpzFileBuilder.h"
#if KPZ_BENCH_DESCRIPTOR
#include "BenchDescriptorJob.h"
#endif
#if KPZ_BENCH_EXIV2
#include "BenchExiv2Job.h"
#endif

namespace {

// Compares the preview handed over with the expected bytes.
struct Expected {
  const std::vector<UINT8>* bytes = nullptr;
  bool same = false;
};

void compareSink(const UINT8* data, UINT size, void* context) {
  Expected* expected = static_cast<Expected*>(context);
  expected->same = expected->bytes->size() == size &&
                   (size == 0 || std::memcmp(expected->bytes->data(), data, size) == 0);
}

void copySink(const UINT8* data, UINT size, void* context) {
  static_cast<std::vector<UINT8>*>(context)->assign(data, data + size);
}

// The corpus and the memory the jobs share. The heads are the first
// HEAD_SIZE bytes of each file (zero-filled past a short file's end).
struct Fixture {
  std::vector<BenchFile> files;
  std::vector<std::vector<UINT8>> heads;
  std::vector<UINT8> scratch = std::vector<UINT8>(BenchJobs::HEAD_SIZE);
  std::uint64_t previewBytes = 0;  // sum over the files
};

// Reads every file once (warming the page cache), keeps its head and checks
// that the main path and the descriptor path (when built) give exactly the
// floor's bytes. false with a message
// printed when a file fails.
bool prepare(Fixture* fx) {
  for (const BenchFile& file : fx->files) {
    std::vector<UINT8> preview;
    std::vector<UINT8> head(BenchJobs::HEAD_SIZE);
    if (BenchJobs::Floor(file, head.data(), &copySink, &preview) != file.previewSize) {
      std::printf("kpz_bench: %s: the floor job cannot read the preview\n", file.path.c_str());
      return false;
    }
    Expected expected;
    expected.bytes = &preview;
    if (BenchJobs::MainPath(file.path.c_str(), &compareSink, &expected) != file.previewSize ||
        !expected.same) {
      std::printf("kpz_bench: %s: the main path does not give the preview\n", file.path.c_str());
      return false;
    }
#if KPZ_BENCH_DESCRIPTOR
    expected.same = false;
    if (BenchDescriptorJob::Preview(file.path.c_str(), &compareSink, &expected) !=
            file.previewSize ||
        !expected.same) {
      std::printf("kpz_bench: %s: the descriptor path does not give the preview\n",
                  file.path.c_str());
      return false;
    }
#endif
    fx->heads.push_back(std::move(head));
    fx->previewBytes += file.previewSize;
  }
  return true;
}

#if KPZ_BENCH_EXIV2
// How many files libexiv2 gives exactly our preview for; prints what it makes
// of the first file of each byte order and model.
std::size_t checkExiv2(const Fixture& fx) {
  std::size_t found = 0;
  for (std::size_t i = 0; i < fx.files.size(); ++i) {
    const BenchFile& file = fx.files[i];
    std::vector<UINT8> preview;
    std::vector<UINT8> head(BenchJobs::HEAD_SIZE);
    BenchJobs::Floor(file, head.data(), &copySink, &preview);
    Expected expected;
    expected.bytes = &preview;
    if (BenchExiv2Job::Preview(file.path.c_str(), &compareSink, &expected) != 0 &&
        expected.same) {
      ++found;
    }
    if (i < 4) {
      std::printf("exiv2 %s, %s %s: %s\n", BenchExiv2Job::Version().c_str(),
                  file.bigEndian ? "MM" : "II", file.m372 ? "M372" : "M100",
                  BenchExiv2Job::Describe(file.path.c_str()).c_str());
    }
  }
  return found;
}
#endif

// Registers one benchmark whose iteration runs `job` on the next file.
template <typename Job>
void add(const char* name, const Fixture& fx, std::uint64_t bytesPerRound, Job job) {
  benchmark::RegisterBenchmark(name, [&fx, bytesPerRound, job](benchmark::State& state) {
    const std::size_t count = fx.files.size();
    std::size_t next = 0;
    bool failed = false;
    for (auto _ : state) {
      const std::size_t index = next;
      next = next + 1 == count ? 0 : next + 1;
      if (!job(index)) {
        failed = true;
        break;
      }
    }
    if (failed) {
      state.SkipWithError("a job failed");
      return;
    }
    state.SetItemsProcessed(state.iterations());
    if (bytesPerRound != 0) {
      state.SetBytesProcessed(static_cast<std::int64_t>(
          bytesPerRound * static_cast<std::uint64_t>(state.iterations()) / count));
    }
    state.counters["files"] = static_cast<double>(count);
  })->UseRealTime()->Unit(benchmark::kMicrosecond);
}

bool startsWith(const char* text, const char* prefix) {
  return std::strncmp(text, prefix, std::strlen(prefix)) == 0;
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  std::string manifest;
  unsigned long maxFiles = 0;
  std::vector<char*> rest;
  rest.push_back(argv[0]);
  for (int i = 1; i < argc; ++i) {
    if (startsWith(argv[i], "--kpz_corpus=")) {
      manifest = argv[i] + std::strlen("--kpz_corpus=");
    } else if (startsWith(argv[i], "--kpz_files=")) {
      maxFiles = std::strtoul(argv[i] + std::strlen("--kpz_files="), nullptr, 10);
    } else {
      rest.push_back(argv[i]);
    }
  }
  int restCount = static_cast<int>(rest.size());
  if (benchmark::ReportUnrecognizedArguments(restCount, rest.data())) {
    return 2;
  }

  Fixture fx;
  std::string why;
  std::unique_ptr<kpztest::TempDir> tempDir;  // the generated corpus, removed at exit
  if (manifest.empty()) {
    tempDir.reset(new kpztest::TempDir());
    std::printf("kpz_bench: generating the default corpus in %s\n", tempDir->Path().c_str());
    if (tempDir->Path().empty() ||
        !BenchCorpus::Generate(BenchCorpusPlan(), tempDir->Path(), &fx.files, &why)) {
      std::printf("kpz_bench: %s\n", why.c_str());
      return 1;
    }
  } else if (!BenchCorpus::Load(manifest, &fx.files, &why)) {
    std::printf("kpz_bench: %s\n", why.c_str());
    return 1;
  }
  if (maxFiles != 0 && maxFiles < fx.files.size()) {
    fx.files.resize(maxFiles);
  }
  if (!prepare(&fx)) {
    return 1;
  }
  std::printf(
      "kpz_bench: %zu files, %.2f MB of previews; main and descriptor paths checked against "
      "the floor\n",
      fx.files.size(), static_cast<double>(fx.previewBytes) / 1e6);

  Fixture* f = &fx;
  add("MainPath", fx, fx.previewBytes, [f](std::size_t i) {
    return BenchJobs::MainPath(f->files[i].path.c_str(), &BenchJobs::IgnorePreview, nullptr) != 0;
  });
#if KPZ_BENCH_DESCRIPTOR
  add("Descriptor", fx, fx.previewBytes, [f](std::size_t i) {
    return BenchDescriptorJob::Preview(f->files[i].path.c_str(), &BenchJobs::IgnorePreview,
                                       nullptr) != 0;
  });
#endif
  add("Floor", fx, fx.previewBytes, [f](std::size_t i) {
    return BenchJobs::Floor(f->files[i], f->scratch.data(), &BenchJobs::IgnorePreview,
                            nullptr) != 0;
  });
  add("LocateOnly", fx, 0, [f](std::size_t i) {
    DtRawScreennailInfo info;
    const int ret = BenchJobs::Locate(f->files[i].path.c_str(), &info);
    benchmark::DoNotOptimize(info);
    return ret == 0;
  });
  add("FloorHead64K", fx, 0, [f](std::size_t i) {
    return BenchJobs::FloorHead(f->files[i].path.c_str(), f->scratch.data()) != 0;
  });
  add("ParseBuffer", fx, 0, [f](std::size_t i) {
    BenchQueryResults results;
    const int ret = BenchJobs::ParseBuffer(f->heads[i].data(),
                                           static_cast<int>(f->heads[i].size()),
                                           f->scratch.data(), BenchJobs::HEAD_SIZE, &results);
    benchmark::DoNotOptimize(results);
    return ret == 0;
  });
#if KPZ_BENCH_EXIV2
  BenchExiv2Job::Setup();
  const std::size_t exivFound = checkExiv2(fx);
  std::printf("exiv2: gave exactly the preview for %zu of %zu files\n", exivFound,
              fx.files.size());
  // Timed whatever it finds: with no preview found it still opens the file,
  // reads its metadata and lists the previews.
  add("Exiv2PreviewManager", fx, exivFound == fx.files.size() ? fx.previewBytes : 0,
      [f](std::size_t i) {
        const UINT got =
            BenchExiv2Job::Preview(f->files[i].path.c_str(), &BenchJobs::IgnorePreview, nullptr);
        benchmark::DoNotOptimize(got);
        return true;
      });
#endif

  std::fflush(stdout);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
