// make_sample.cpp - writes the bundled sample, samples/sample.kpz: a small KPZ
// raw file composed with the test-data builder whose preview (160 x 120) and
// thumbnail (32 x 24) are real baseline JPEGs that any image viewer opens.
//
//   kpz_make_sample samples/sample.kpz                      # what scripts/make-sample.sh runs
//   kpz_make_sample out.kpz preview.jpg thumb.jpg           # also the two JPEGs on their own
//
// The JPEGs are encoded here, by hand, so that nothing outside the repository
// is needed: a little landscape (sky, sun, hills) drawn in flat 8 x 8 blocks,
// so that every block needs its DC coefficient only. Each file is a JFIF
// baseline JPEG with three components (Y, Cb, Cr, no subsampling), all
// quantisation steps 1, the standard DC Huffman tables and AC tables that hold
// only the end-of-block code. The output is the same on every run.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "support/KpzFileBuilder.h"

namespace {

using kpztest::Bytes;

struct Rgb {
  double r;
  double g;
  double b;
};

// The colour of the scene at (x, y), both in 0..1 (y downward).
Rgb Scene(double x, double y) {
  const double sunX = 0.72;
  const double sunY = 0.28;
  const double dx = (x - sunX) * 1.33;
  const double dy = y - sunY;
  if (dx * dx + dy * dy < 0.018) {
    return {255, 214, 64};
  }
  const double hill = 0.62 + 0.08 * std::sin(x * 7.0) + 0.04 * std::sin(x * 17.0 + 1.0);
  if (y > hill) {
    const double shade = (y - hill) / (1.0 - hill + 1e-9);
    return {60 - 30 * shade, 150 - 60 * shade, 60 - 20 * shade};
  }
  const double t = y / hill;
  return {70 + 120 * t, 130 + 90 * t, 230 - 10 * t};
}

class BitWriter {
 public:
  explicit BitWriter(Bytes* out) : m_out(out) {}

  // Appends the low `count` bits of `bits`, most significant first; every
  // 0xFF byte of entropy-coded data is followed by a stuffed 0x00.
  void Put(std::uint32_t bits, int count) {
    for (int i = count - 1; i >= 0; --i) {
      const std::uint32_t bit = (bits >> i) & 1u;
      m_acc = static_cast<std::uint8_t>((static_cast<std::uint32_t>(m_acc) << 1) | bit);
      if (++m_used == 8) {
        flushByte();
      }
    }
  }

  // Pads the last byte with 1 bits.
  void Finish() {
    while (m_used != 0) {
      Put(1, 1);
    }
  }

 private:
  void flushByte() {
    m_out->push_back(m_acc);
    if (m_acc == 0xFF) {
      m_out->push_back(0x00);
    }
    m_acc = 0;
    m_used = 0;
  }

  Bytes* m_out;
  std::uint8_t m_acc = 0;
  int m_used = 0;
};

struct HuffTable {
  std::uint8_t bits[16];         // number of codes of each length 1..16
  std::vector<std::uint8_t> values;
  std::uint32_t code[256] = {};  // code of each value
  int length[256] = {};          // its length

  void Build() {
    std::uint32_t next = 0;
    std::size_t k = 0;
    for (int len = 1; len <= 16; ++len) {
      for (int i = 0; i < bits[len - 1]; ++i) {
        code[values[k]] = next++;
        length[values[k]] = len;
        ++k;
      }
      next <<= 1;
    }
  }
};

void PutU16(Bytes* out, unsigned value) {
  out->push_back(static_cast<std::uint8_t>(value >> 8));
  out->push_back(static_cast<std::uint8_t>(value & 0xFF));
}

void PutHuffTable(Bytes* out, int tableClass, int id, const HuffTable& t) {
  out->push_back(static_cast<std::uint8_t>((tableClass << 4) | id));
  for (std::uint8_t b : t.bits) {
    out->push_back(b);
  }
  out->insert(out->end(), t.values.begin(), t.values.end());
}

// A baseline JPEG of width x height pixels (multiples of 8).
Bytes EncodeJpeg(int width, int height) {
  HuffTable dcLuma{{0, 1, 5, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0, 0, 0},
                   {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}};
  HuffTable dcChroma{{0, 3, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0},
                     {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}};
  HuffTable acOnlyEob{{1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, {0x00}};
  dcLuma.Build();
  dcChroma.Build();
  acOnlyEob.Build();

  Bytes out = {0xFF, 0xD8};
  // APP0 JFIF 1.01, no units, 1:1, no embedded thumbnail.
  out.insert(out.end(), {0xFF, 0xE0, 0x00, 0x10, 'J', 'F', 'I', 'F', 0x00, 0x01, 0x01, 0x00,
                         0x00, 0x01, 0x00, 0x01, 0x00, 0x00});
  // DQT: tables 0 and 1, 8-bit, every step 1.
  out.insert(out.end(), {0xFF, 0xDB});
  PutU16(&out, 2 + 2 * 65);
  for (int table = 0; table < 2; ++table) {
    out.push_back(static_cast<std::uint8_t>(table));
    out.insert(out.end(), 64, 1);
  }
  // SOF0: 8-bit, three components 1x1.
  out.insert(out.end(), {0xFF, 0xC0});
  PutU16(&out, 8 + 3 * 3);
  out.push_back(8);
  PutU16(&out, static_cast<unsigned>(height));
  PutU16(&out, static_cast<unsigned>(width));
  out.insert(out.end(), {3, 1, 0x11, 0, 2, 0x11, 1, 3, 0x11, 1});
  // DHT: DC and AC tables for luma (0) and chroma (1).
  out.insert(out.end(), {0xFF, 0xC4});
  const std::size_t lengthAt = out.size();
  PutU16(&out, 0);
  PutHuffTable(&out, 0, 0, dcLuma);
  PutHuffTable(&out, 1, 0, acOnlyEob);
  PutHuffTable(&out, 0, 1, dcChroma);
  PutHuffTable(&out, 1, 1, acOnlyEob);
  const std::size_t dhtLength = out.size() - lengthAt;
  out[lengthAt] = static_cast<std::uint8_t>(dhtLength >> 8);
  out[lengthAt + 1] = static_cast<std::uint8_t>(dhtLength & 0xFF);
  // SOS: all three components, full spectrum.
  out.insert(out.end(), {0xFF, 0xDA, 0x00, 0x0C, 3, 1, 0x00, 2, 0x11, 3, 0x11, 0, 63, 0});

  BitWriter bits(&out);
  int predictor[3] = {0, 0, 0};
  for (int by = 0; by < height / 8; ++by) {
    for (int bx = 0; bx < width / 8; ++bx) {
      const Rgb c = Scene((bx * 8 + 4.0) / width, (by * 8 + 4.0) / height);
      const double ycc[3] = {0.299 * c.r + 0.587 * c.g + 0.114 * c.b,
                             -0.168736 * c.r - 0.331264 * c.g + 0.5 * c.b + 128.0,
                             0.5 * c.r - 0.418688 * c.g - 0.081312 * c.b + 128.0};
      for (int comp = 0; comp < 3; ++comp) {
        // A flat block's only coefficient: DC = 8 * (sample - 128).
        const int dc = static_cast<int>(std::lround(8.0 * (ycc[comp] - 128.0)));
        const int diff = dc - predictor[comp];
        predictor[comp] = dc;
        const unsigned magnitude = static_cast<unsigned>(diff < 0 ? -diff : diff);
        int category = 0;
        while ((magnitude >> category) != 0) {
          ++category;
        }
        const HuffTable& dcTable = comp == 0 ? dcLuma : dcChroma;
        bits.Put(dcTable.code[category], dcTable.length[category]);
        if (category > 0) {
          // Negative differences are sent as diff - 1 in `category` bits.
          const int coded = diff < 0 ? diff + (1 << category) - 1 : diff;
          bits.Put(static_cast<std::uint32_t>(coded), category);
        }
        bits.Put(acOnlyEob.code[0], acOnlyEob.length[0]);
      }
    }
  }
  bits.Finish();
  out.insert(out.end(), {0xFF, 0xD9});
  return out;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2 && argc != 4) {
    std::fprintf(stderr, "usage: kpz_make_sample OUT.kpz [PREVIEW.jpg THUMBNAIL.jpg]\n");
    return 2;
  }
  const Bytes preview = EncodeJpeg(160, 120);
  const Bytes thumbnail = EncodeJpeg(32, 24);

  kpztest::KpzSpec recipe;
  recipe.order = DtNlLittleEndian;
  recipe.make = std::string("KAVI");
  recipe.model = std::string("DSLR-M100");
  recipe.dateTime = std::string("2010:05:01 12:34:56");
  recipe.dateTimeOriginal = std::string("2010:05:01 12:34:56");
  recipe.screennail = preview;
  recipe.scnHeightWidth = std::make_pair(std::uint32_t{120}, std::uint32_t{160});
  recipe.thumbnail = thumbnail;
  recipe.thumbnailCompression = 6;
  recipe.pixelX = 160;
  recipe.pixelY = 120;

  bool ok = kpztest::WriteFileBytes(argv[1], kpztest::BuildKpz(recipe));
  if (argc == 4) {
    ok = ok && kpztest::WriteFileBytes(argv[2], preview) &&
         kpztest::WriteFileBytes(argv[3], thumbnail);
  }
  if (!ok) {
    std::fprintf(stderr, "kpz_make_sample: cannot write the output files\n");
    return 1;
  }
  return 0;
}
