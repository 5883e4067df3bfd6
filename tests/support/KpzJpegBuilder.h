// KpzJpegBuilder.h - real, decodable JPEGs for the test-data builder's
// previews and thumbnails (tests and benchmarks only), and the means to
// look into a JPEG: its pixels, its DCT coefficients, its own Exif
// orientation.
//
// Header only, and not part of kpz_test_support: it needs TurboJPEG
// (libturbojpeg0-dev) for encoding and decoding and the libjpeg API
// (libjpeg62-turbo-dev) for the coefficients, which only the targets that
// include it link (tests/tools/CMakeLists.txt, bench/CMakeLists.txt).
//
//   kpztest::Bytes jpeg = kpztest::MakeJpeg(61, 45, TJSAMP_420);   // 61x45, 4:2:0
//   jpeg = kpztest::WithOwnExifOrientation(jpeg, 6, DtNlBigEndian);
//   recipe.screennail = jpeg;                                      // a KpzSpec
//   kpztest::Picture p = kpztest::DecodeJpeg(jpeg);                // p.width == 61
//   kpztest::Coefficients c = kpztest::ReadCoefficients(jpeg);
//
// The picture MakeJpeg draws has no symmetry (gradients in both directions,
// a diagonal ramp, a mark near the top left corner, fine texture), so every
// one of the eight orientations gives different pixels.
//
// Plain values; nothing owned but vectors.
#ifndef KPZ_TESTS_SUPPORT_KPZJPEGBUILDER_H
#define KPZ_TESTS_SUPPORT_KPZJPEGBUILDER_H

#include <algorithm>
#include <cmath>
#include <csetjmp>
#include <cstdlib>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

// jmorecfg.h types INT32 unless XMD_H is defined; this project's own INT32
// (util/DtNlTypes.h) would conflict, and the libjpeg API used here needs neither.
#ifndef XMD_H
#define XMD_H
#define KPZ_TESTS_DEFINED_XMD_H
#endif
#include <jpeglib.h>
#ifdef KPZ_TESTS_DEFINED_XMD_H
#undef XMD_H
#undef KPZ_TESTS_DEFINED_XMD_H
#endif
#include <turbojpeg.h>

#include "support/KpzFileBuilder.h"

namespace kpztest {

// Decoded pixels: RGB (3 bytes a pixel) or grey (1), rows top to bottom.
struct Picture {
  int width = 0;
  int height = 0;
  int channels = 3;
  std::vector<std::uint8_t> pixels;
  bool ok = false;
  const std::uint8_t* At(int x, int y) const {
    return pixels.data() + (static_cast<std::size_t>(y) * static_cast<std::size_t>(width) +
                            static_cast<std::size_t>(x)) *
                               static_cast<std::size_t>(channels);
  }
};

// The pixels MakeJpeg encodes (RGB), `seed` varying them.
inline Picture DrawPicture(int width, int height, std::uint8_t seed = 0) {
  Picture p;
  p.width = width;
  p.height = height;
  p.pixels.resize(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 3);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      std::uint8_t* px = p.pixels.data() +
                         (static_cast<std::size_t>(y) * static_cast<std::size_t>(width) +
                          static_cast<std::size_t>(x)) * 3;
      const int texture = ((x * 7 + y * 13 + seed) % 17) - 8;
      int r = 20 + x * 200 / (width > 1 ? width - 1 : 1) + texture;
      int g = 30 + y * 180 / (height > 1 ? height - 1 : 1) - texture;
      int b = 60 + ((x + 2 * y + seed) % 64) * 2;
      if (x < width / 4 && y < height / 5) {  // the mark near the top left corner
        r = 240;
        g = 20;
        b = 30;
      }
      px[0] = static_cast<std::uint8_t>(r < 0 ? 0 : (r > 255 ? 255 : r));
      px[1] = static_cast<std::uint8_t>(g < 0 ? 0 : (g > 255 ? 255 : g));
      px[2] = static_cast<std::uint8_t>(b < 0 ? 0 : (b > 255 ? 255 : b));
    }
  }
  p.ok = true;
  return p;
}

// Encodes `picture` (RGB) with `subsamp` (TJSAMP_*) at `quality`; empty on failure.
inline Bytes EncodeJpeg(const Picture& picture, int subsamp, int quality = 90) {
  tjhandle h = tjInitCompress();
  if (h == nullptr) {
    return {};
  }
  unsigned char* buf = nullptr;
  unsigned long size = 0;
  Bytes out;
  if (tjCompress2(h, picture.pixels.data(), picture.width, 0, picture.height, TJPF_RGB, &buf,
                  &size, subsamp, quality, 0) == 0) {
    out.assign(buf, buf + size);
  }
  tjFree(buf);
  tjDestroy(h);
  return out;
}

// A baseline JPEG of `width` x `height` pixels of DrawPicture.
inline Bytes MakeJpeg(int width, int height, int subsamp, int quality = 90,
                      std::uint8_t seed = 0) {
  return EncodeJpeg(DrawPicture(width, height, seed), subsamp, quality);
}

// Decodes `jpeg` (RGB, or grey for a grey JPEG); ok false on any failure
// or warning.
inline Picture DecodeJpeg(const Bytes& jpeg, int flags = TJFLAG_ACCURATEDCT) {
  Picture p;
  tjhandle h = tjInitDecompress();
  if (h == nullptr) {
    return p;
  }
  int subsamp = 0;
  int colorspace = 0;
  if (tjDecompressHeader3(h, jpeg.data(), jpeg.size(), &p.width, &p.height, &subsamp,
                          &colorspace) == 0) {
    p.channels = subsamp == TJSAMP_GRAY ? 1 : 3;
    p.pixels.resize(static_cast<std::size_t>(p.width) * static_cast<std::size_t>(p.height) *
                    static_cast<std::size_t>(p.channels));
    p.ok = tjDecompress2(h, jpeg.data(), jpeg.size(), p.pixels.data(), p.width, 0, p.height,
                         p.channels == 1 ? TJPF_GRAY : TJPF_RGB, flags) == 0;
  }
  tjDestroy(h);
  return p;
}

// The chroma sampling TurboJPEG reads from `jpeg` (TJSAMP_*); -1 when unreadable.
inline int JpegSampling(const Bytes& jpeg) {
  tjhandle h = tjInitDecompress();
  int w = 0;
  int ht = 0;
  int subsamp = -1;
  int colorspace = 0;
  if (h == nullptr || tjDecompressHeader3(h, jpeg.data(), jpeg.size(), &w, &ht, &subsamp,
                                          &colorspace) != 0) {
    subsamp = -1;
  }
  if (h != nullptr) {
    tjDestroy(h);
  }
  return subsamp;
}

// The eight orientations as pixel mappings, written out one by one (not
// shared with the tool): the pixel of the upright picture at (x, y) comes
// from the stored picture at the returned position. `op` is a TJXOP_*.
inline void UprightSource(int op, int x, int y, int storedW, int storedH, int* sx, int* sy) {
  switch (op) {
    case TJXOP_HFLIP:  // Exif 2
      *sx = storedW - 1 - x;
      *sy = y;
      return;
    case TJXOP_ROT180:  // Exif 3
      *sx = storedW - 1 - x;
      *sy = storedH - 1 - y;
      return;
    case TJXOP_VFLIP:  // Exif 4
      *sx = x;
      *sy = storedH - 1 - y;
      return;
    case TJXOP_TRANSPOSE:  // Exif 5
      *sx = y;
      *sy = x;
      return;
    case TJXOP_ROT90:  // Exif 6: the stored picture's left column becomes the top row
      *sx = y;
      *sy = storedH - 1 - x;
      return;
    case TJXOP_TRANSVERSE:  // Exif 7
      *sx = storedW - 1 - y;
      *sy = storedH - 1 - x;
      return;
    case TJXOP_ROT270:  // Exif 8: the stored picture's right column becomes the top row
      *sx = storedW - 1 - y;
      *sy = x;
      return;
    default:
      *sx = x;
      *sy = y;
      return;
  }
}

inline bool Transposes(int op) {
  return op == TJXOP_TRANSPOSE || op == TJXOP_TRANSVERSE || op == TJXOP_ROT90 ||
         op == TJXOP_ROT270;
}

// `stored` turned by `op` in memory, pixel by pixel.
inline Picture TurnPicture(const Picture& stored, int op) {
  Picture p;
  p.channels = stored.channels;
  p.width = Transposes(op) ? stored.height : stored.width;
  p.height = Transposes(op) ? stored.width : stored.height;
  p.pixels.resize(stored.pixels.size());
  for (int y = 0; y < p.height; ++y) {
    for (int x = 0; x < p.width; ++x) {
      int sx = 0;
      int sy = 0;
      UprightSource(op, x, y, stored.width, stored.height, &sx, &sy);
      std::memcpy(const_cast<std::uint8_t*>(p.At(x, y)), stored.At(sx, sy),
                  static_cast<std::size_t>(p.channels));
    }
  }
  p.ok = stored.ok;
  return p;
}

// The largest difference of any sample of `a` and `b` (same size); -1 when
// their sizes differ.
inline int MaxDifference(const Picture& a, const Picture& b) {
  if (a.width != b.width || a.height != b.height || a.channels != b.channels) {
    return -1;
  }
  int most = 0;
  for (std::size_t i = 0; i < a.pixels.size(); ++i) {
    const int d = a.pixels[i] > b.pixels[i] ? a.pixels[i] - b.pixels[i] : b.pixels[i] - a.pixels[i];
    most = d > most ? d : most;
  }
  return most;
}

// Peak signal-to-noise ratio in dB of `a` against `b` (same size); 0 when
// they differ in size, 99 when they are equal.
inline double Psnr(const Picture& a, const Picture& b);

// One component's DCT coefficients as stored (quantised), block by block
// in raster order, with its quantisation table (natural order).
struct Component {
  int hSamp = 0;
  int vSamp = 0;
  int widthInBlocks = 0;
  int heightInBlocks = 0;
  std::vector<int> quant;                 // 64 values
  std::vector<std::int16_t> coefficients;  // 64 per block
  int At(int bx, int by, int k) const {
    return coefficients[(static_cast<std::size_t>(by) * static_cast<std::size_t>(widthInBlocks) +
                         static_cast<std::size_t>(bx)) * 64 + static_cast<std::size_t>(k)];
  }
};
struct Coefficients {
  bool ok = false;
  int width = 0;
  int height = 0;
  std::vector<Component> components;
};

namespace detail {
struct JpegErrorJump {
  jpeg_error_mgr pub;
  std::jmp_buf jump;
};
inline void JumpOnError(j_common_ptr cinfo) {
  std::longjmp(reinterpret_cast<JpegErrorJump*>(cinfo->err)->jump, 1);
}
inline void Silent(j_common_ptr, int) {}
}  // namespace detail

// A grey JPEG of `width` x `height` pixels of one flat value, arithmetic
// coded (libjpeg's arith_code), so that a picture of many pixels takes a few
// hundred bytes: what a picture bomb looks like. Rows are written one at a
// time (memory: one row). Empty when the library cannot write it (built
// without arithmetic coding).
inline Bytes ArithmeticFlatJpeg(int width, int height) {
  jpeg_compress_struct info;
  detail::JpegErrorJump err;
  info.err = jpeg_std_error(&err.pub);
  err.pub.error_exit = detail::JumpOnError;
  err.pub.emit_message = detail::Silent;
  unsigned char* out = nullptr;
  unsigned long outSize = 0;
  if (setjmp(err.jump) != 0) {
    jpeg_destroy_compress(&info);
    std::free(out);
    return Bytes();
  }
  jpeg_create_compress(&info);
  jpeg_mem_dest(&info, &out, &outSize);
  info.image_width = static_cast<JDIMENSION>(width);
  info.image_height = static_cast<JDIMENSION>(height);
  info.input_components = 1;
  info.in_color_space = JCS_GRAYSCALE;
  jpeg_set_defaults(&info);
  info.arith_code = TRUE;
  jpeg_start_compress(&info, TRUE);
  std::vector<JSAMPLE> row(static_cast<std::size_t>(width), 128);
  JSAMPROW rows[1] = {row.data()};
  while (info.next_scanline < info.image_height) {
    jpeg_write_scanlines(&info, rows, 1);
  }
  jpeg_finish_compress(&info);
  Bytes jpeg(out, out + outSize);
  jpeg_destroy_compress(&info);
  std::free(out);
  return jpeg;
}

// Reads every component's coefficients with the libjpeg API
// (jpeg_read_coefficients), no decoding; ok false on any error.
inline Coefficients ReadCoefficients(const Bytes& jpeg) {
  Coefficients c;
  jpeg_decompress_struct info;
  detail::JpegErrorJump err;
  info.err = jpeg_std_error(&err.pub);
  err.pub.error_exit = detail::JumpOnError;
  err.pub.emit_message = detail::Silent;
  if (setjmp(err.jump) != 0) {
    jpeg_destroy_decompress(&info);
    c.ok = false;
    c.components.clear();
    return c;
  }
  jpeg_create_decompress(&info);
  jpeg_mem_src(&info, jpeg.data(), static_cast<unsigned long>(jpeg.size()));
  jpeg_read_header(&info, TRUE);
  jvirt_barray_ptr* arrays = jpeg_read_coefficients(&info);
  c.width = static_cast<int>(info.image_width);
  c.height = static_cast<int>(info.image_height);
  for (int ci = 0; ci < info.num_components; ++ci) {
    jpeg_component_info* comp = &info.comp_info[ci];
    Component out;
    out.hSamp = comp->h_samp_factor;
    out.vSamp = comp->v_samp_factor;
    out.widthInBlocks = static_cast<int>(comp->width_in_blocks);
    out.heightInBlocks = static_cast<int>(comp->height_in_blocks);
    for (int k = 0; k < 64; ++k) {
      out.quant.push_back(comp->quant_table != nullptr ? comp->quant_table->quantval[k] : 0);
    }
    out.coefficients.resize(static_cast<std::size_t>(out.widthInBlocks) *
                            static_cast<std::size_t>(out.heightInBlocks) * 64);
    for (int by = 0; by < out.heightInBlocks; ++by) {
      JBLOCKARRAY row = (*info.mem->access_virt_barray)(
          reinterpret_cast<j_common_ptr>(&info), arrays[ci], static_cast<JDIMENSION>(by), 1,
          FALSE);
      for (int bx = 0; bx < out.widthInBlocks; ++bx) {
        for (int k = 0; k < 64; ++k) {
          out.coefficients[(static_cast<std::size_t>(by) *
                                static_cast<std::size_t>(out.widthInBlocks) +
                            static_cast<std::size_t>(bx)) * 64 + static_cast<std::size_t>(k)] =
              row[0][bx][k];
        }
      }
    }
    c.components.push_back(std::move(out));
  }
  jpeg_finish_decompress(&info);
  jpeg_destroy_decompress(&info);
  c.ok = true;
  return c;
}

// Compares the coefficients of `turned` with those of `stored` turned by
// `op` on the block grid, every coefficient dequantised (coefficient x its
// quantisation value; a quarter turn transposes the table too). Blocks of
// `turned` only: with trimmed edges, the stored picture's cut blocks are
// not looked at. Returns "" when all are equal, else the first difference.
inline std::string CompareTurnedCoefficients(const Coefficients& stored,
                                             const Coefficients& turned, int op) {
  if (!stored.ok || !turned.ok) {
    return "coefficients cannot be read";
  }
  if (stored.components.size() != turned.components.size()) {
    return "different numbers of components";
  }
  const bool t = Transposes(op);
  // Whether the turn runs against the stored picture's x or y: the two
  // corners of a 2x2 picture tell it.
  int x0 = 0;
  int y0 = 0;
  int x1 = 0;
  int y1 = 0;
  UprightSource(op, 0, 0, 2, 2, &x0, &y0);
  UprightSource(op, 1, 1, 2, 2, &x1, &y1);
  const bool mirrorStoredX = x1 < x0;
  const bool mirrorStoredY = y1 < y0;
  for (std::size_t ci = 0; ci < stored.components.size(); ++ci) {
    const Component& s = stored.components[ci];
    const Component& o = turned.components[ci];
    if ((t ? s.vSamp : s.hSamp) != o.hSamp || (t ? s.hSamp : s.vSamp) != o.vSamp) {
      return "component " + std::to_string(ci) + ": sampling factors not turned";
    }
    // The stored blocks that correspond to the turned ones (the turned
    // picture's grid, mapped back).
    const int usedW = t ? o.heightInBlocks : o.widthInBlocks;
    const int usedH = t ? o.widthInBlocks : o.heightInBlocks;
    if (usedW > s.widthInBlocks || usedH > s.heightInBlocks) {
      return "component " + std::to_string(ci) + ": more blocks than stored";
    }
    for (int by = 0; by < o.heightInBlocks; ++by) {
      for (int bx = 0; bx < o.widthInBlocks; ++bx) {
        int sbx = 0;
        int sby = 0;
        UprightSource(op, bx, by, usedW, usedH, &sbx, &sby);
        for (int v = 0; v < 8; ++v) {
          for (int u = 0; u < 8; ++u) {
            // Inside the block the same turn acts on the 8x8 frequencies:
            // a transpose swaps them, a mirror negates the odd ones of its
            // direction.
            const int su = t ? v : u;
            const int sv = t ? u : v;
            int sign = 1;
            if (mirrorStoredX && (su % 2) == 1) {
              sign = -sign;
            }
            if (mirrorStoredY && (sv % 2) == 1) {
              sign = -sign;
            }
            const int sk = sv * 8 + su;
            const int k = v * 8 + u;
            const int want = sign * s.At(sbx, sby, sk) * s.quant[static_cast<std::size_t>(sk)];
            const int got = o.At(bx, by, k) * o.quant[static_cast<std::size_t>(k)];
            if (want != got) {
              return "component " + std::to_string(ci) + " block (" + std::to_string(bx) + "," +
                     std::to_string(by) + ") frequency (" + std::to_string(u) + "," +
                     std::to_string(v) + "): " + std::to_string(got) + ", want " +
                     std::to_string(want);
            }
          }
        }
      }
    }
  }
  return "";
}

// An APP1 Exif segment whose IFD0 holds Make "KAVI" and Orientation
// `orientation`, in `order`.
inline Bytes ExifSegment(std::uint16_t orientation, DtNlByteOrder order) {
  Bytes tiff = {static_cast<std::uint8_t>(order == DtNlBigEndian ? 'M' : 'I'),
                static_cast<std::uint8_t>(order == DtNlBigEndian ? 'M' : 'I')};
  tiff = Concat(tiff, U16Bytes(42, order));
  tiff = Concat(tiff, U32Bytes(8, order));
  tiff = Concat(tiff, U16Bytes(2, order));  // two entries
  tiff = Concat(tiff, U16Bytes(0x010F, order));
  tiff = Concat(tiff, U16Bytes(2, order));
  tiff = Concat(tiff, U32Bytes(5, order));
  tiff = Concat(tiff, U32Bytes(0, order));  // the offset of its bytes, set below
  tiff = Concat(tiff, U16Bytes(0x0112, order));
  tiff = Concat(tiff, U16Bytes(3, order));
  tiff = Concat(tiff, U32Bytes(1, order));
  tiff = Concat(tiff, Concat(U16Bytes(orientation, order), Bytes{0, 0}));
  tiff = Concat(tiff, U32Bytes(0, order));  // no IFD1
  // The Make entry's five bytes ("KAVI" and its zero) lie after the
  // directory; its field holds their offset.
  const std::uint32_t makeAt = static_cast<std::uint32_t>(tiff.size());
  const Bytes makeOffset = U32Bytes(makeAt, order);
  std::copy(makeOffset.begin(), makeOffset.end(), tiff.begin() + 10 + 8);
  tiff = Concat(tiff, Bytes{'K', 'A', 'V', 'I', 0, 0});
  Bytes seg = {0xFF, 0xE1};
  const std::size_t len = 2 + 6 + tiff.size();
  seg.push_back(static_cast<std::uint8_t>(len >> 8));
  seg.push_back(static_cast<std::uint8_t>(len & 0xFF));
  seg = Concat(seg, Bytes{'E', 'x', 'i', 'f', 0, 0});
  return Concat(seg, tiff);
}

// `jpeg` with ExifSegment(orientation, order) right after its SOI.
inline Bytes WithOwnExifOrientation(const Bytes& jpeg, std::uint16_t orientation,
                                    DtNlByteOrder order) {
  Bytes out(jpeg.begin(), jpeg.begin() + 2);
  out = Concat(out, ExifSegment(orientation, order));
  out.insert(out.end(), jpeg.begin() + 2, jpeg.end());
  return out;
}

// The segments before the image data: (marker, whole segment bytes).
inline std::vector<std::pair<int, Bytes>> HeadSegments(const Bytes& jpeg) {
  std::vector<std::pair<int, Bytes>> segs;
  std::size_t pos = 2;
  while (pos + 4 <= jpeg.size() && jpeg[pos] == 0xFF && jpeg[pos + 1] != 0xDA) {
    const std::size_t len = (static_cast<std::size_t>(jpeg[pos + 2]) << 8) | jpeg[pos + 3];
    if (len < 2 || pos + 2 + len > jpeg.size()) {
      break;
    }
    segs.emplace_back(jpeg[pos + 1], Bytes(jpeg.begin() + static_cast<std::ptrdiff_t>(pos),
                                           jpeg.begin() + static_cast<std::ptrdiff_t>(pos + 2 + len)));
    pos += 2 + len;
  }
  return segs;
}

// The orientation in the first APP1 Exif segment of `jpeg` (read by offset
// as ExifSegment lays it out); 0 when there is none.
inline int OwnExifOrientation(const Bytes& jpeg) {
  for (const auto& s : HeadSegments(jpeg)) {
    const Bytes& b = s.second;
    if (s.first != 0xE1 || b.size() < 10 + 8 || std::memcmp(b.data() + 4, "Exif\0\0", 6) != 0) {
      continue;
    }
    const std::uint8_t* tiff = b.data() + 10;
    const std::size_t n = b.size() - 10;
    const bool little = tiff[0] == 'I';
    const auto u16 = [&](std::size_t at) {
      return little ? (tiff[at] | (tiff[at + 1] << 8)) : ((tiff[at] << 8) | tiff[at + 1]);
    };
    const auto u32 = [&](std::size_t at) {
      return little ? (static_cast<std::uint32_t>(u16(at)) | (static_cast<std::uint32_t>(u16(at + 2)) << 16))
                    : ((static_cast<std::uint32_t>(u16(at)) << 16) | static_cast<std::uint32_t>(u16(at + 2)));
    };
    const std::size_t ifd = u32(4);
    if (ifd + 2 > n) {
      return 0;
    }
    const int count = u16(ifd);
    for (int i = 0; i < count && ifd + 2 + 12 * static_cast<std::size_t>(i) + 12 <= n; ++i) {
      const std::size_t e = ifd + 2 + 12 * static_cast<std::size_t>(i);
      if (u16(e) == 0x0112) {
        return u16(e + 8);
      }
    }
    return 0;
  }
  return 0;
}

inline double Psnr(const Picture& a, const Picture& b) {
  if (a.width != b.width || a.height != b.height || a.channels != b.channels ||
      a.pixels.empty()) {
    return 0;
  }
  double sum = 0;
  for (std::size_t i = 0; i < a.pixels.size(); ++i) {
    const double d = static_cast<double>(a.pixels[i]) - static_cast<double>(b.pixels[i]);
    sum += d * d;
  }
  if (sum == 0) {
    return 99;
  }
  const double mse = sum / static_cast<double>(a.pixels.size());
  return 10.0 * std::log10(255.0 * 255.0 / mse);
}

}  // namespace kpztest

#endif  // KPZ_TESTS_SUPPORT_KPZJPEGBUILDER_H
