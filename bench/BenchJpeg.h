// BenchJpeg.h - the real JPEG preview of the --upright benchmark corpus,
// encoded once with TurboJPEG and then written into every file.
//
// Part of bench/ (built only when TurboJPEG is found: KPZ_BENCH_TURBOJPEG).
// The picture stands in for a camera's preview: smooth areas (a sky
// gradient, a ground plane, a few shapes with hard edges) with fine noise
// over all of it, as a sensor gives, so that its entropy-coded data is about
// as long per pixel as a real preview's at that quality.
//
//   std::vector<std::uint8_t> jpeg = BenchJpeg::Preview(1616, 1080, 92);
//
// No state; every function is static.
#ifndef KPZ_BENCH_BENCHJPEG_H
#define KPZ_BENCH_BENCHJPEG_H

#include <cstdint>
#include <vector>

class BenchJpeg {
 public:
  // A baseline 4:2:0 JPEG of `width` x `height` pixels at `quality`; empty
  // when TurboJPEG fails.
  static std::vector<std::uint8_t> Preview(int width, int height, int quality);
};

#endif  // KPZ_BENCH_BENCHJPEG_H
