// BenchJpeg.cpp - the --upright benchmark's preview JPEG (bench/). See
// BenchJpeg.h.

#include "BenchJpeg.h"

#include <turbojpeg.h>

#include <cstddef>

std::vector<std::uint8_t> BenchJpeg::Preview(int width, int height, int quality) {
  if (width <= 0 || height <= 0) {
    return {};
  }
  std::vector<unsigned char> rgb(static_cast<std::size_t>(width) *
                                 static_cast<std::size_t>(height) * 3);
  std::uint32_t noise = 12345;  // a fixed linear congruential sequence
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      int r = 0;
      int g = 0;
      int b = 0;
      if (y < height * 2 / 5) {  // sky
        r = 90 + y * 60 / height;
        g = 140 + y * 60 / height;
        b = 230 - y * 40 / height;
      } else {  // ground
        r = 70 + (x * 40) / width + ((y / 9) % 2) * 12;
        g = 110 + (y * 50) / height;
        b = 50 + (x * 20) / width;
      }
      const int dx = x - width * 2 / 3;
      const int dy = y - height / 3;
      if (dx * dx + dy * dy < (height / 8) * (height / 8)) {  // the sun
        r = 250;
        g = 230;
        b = 150;
      }
      if (x > width / 6 && x < width / 3 && y > height / 2 && y < height * 4 / 5) {  // a house
        r = 180;
        g = 60 + ((x / 12 + y / 12) % 2) * 30;
        b = 50;
      }
      noise = noise * 1664525u + 1013904223u;
      const int n = static_cast<int>((noise >> 24) % 13u) - 6;
      unsigned char* px = rgb.data() + (static_cast<std::size_t>(y) *
                                            static_cast<std::size_t>(width) +
                                        static_cast<std::size_t>(x)) * 3;
      const int v[3] = {r + n, g + n, b + n};
      for (int c = 0; c < 3; ++c) {
        px[c] = static_cast<unsigned char>(v[c] < 0 ? 0 : (v[c] > 255 ? 255 : v[c]));
      }
    }
  }
  tjhandle h = tjInitCompress();
  if (h == nullptr) {
    return {};
  }
  unsigned char* buf = nullptr;
  unsigned long size = 0;
  std::vector<std::uint8_t> out;
  if (tjCompress2(h, rgb.data(), width, 0, height, TJPF_RGB, &buf, &size, TJSAMP_420, quality,
                  0) == 0) {
    out.assign(buf, buf + size);
  }
  tjFree(buf);
  tjDestroy(h);
  return out;
}
