// KpzUpright.cpp - turning a preview or thumbnail JPEG upright with
// TurboJPEG (kit/kpz, above jni/raw). See KpzUpright.h for the rules.

#include "kpz/KpzUpright.h"

#include <turbojpeg.h>

#include <cstring>
#include <memory>
#include <new>

#include "raw/DtRaw.h"
#include "raw/DtRawError.h"
#include "raw/DtRawRecord.h"

namespace {

const std::uint16_t kOrientationTag = 0x0112;
const std::uint16_t kTiffShort = 3;

// One TurboJPEG handle per thread, for transforming, decoding and encoding
// (a transform handle does all three); made on first use. A handle that
// has met a failure is not used again: its decompressor can be left in a
// state that fails every later call ("SOS before SOF"), so it is dropped
// (dropHandle) and the next call makes a fresh one.
struct HandleDeleter {
  void operator()(void* h) const { tjDestroy(h); }
};
std::unique_ptr<void, HandleDeleter>& threadSlot() {
  thread_local std::unique_ptr<void, HandleDeleter> handle;
  return handle;
}
tjhandle threadHandle() {
  std::unique_ptr<void, HandleDeleter>& slot = threadSlot();
  if (!slot) {
    slot.reset(tjInitTransform());
  }
  return slot.get();
}
void dropHandle() { threadSlot().reset(); }

// A buffer TurboJPEG allocated, freed with tjFree.
struct TjBuffer {
  unsigned char* data = nullptr;
  unsigned long size = 0;
  TjBuffer() = default;
  TjBuffer(const TjBuffer&) = delete;
  TjBuffer& operator=(const TjBuffer&) = delete;
  ~TjBuffer() { tjFree(data); }
};

std::uint16_t get16(const UINT8* p, bool little) {
  return little ? static_cast<std::uint16_t>(p[0] | (p[1] << 8))
                : static_cast<std::uint16_t>((p[0] << 8) | p[1]);
}
std::uint32_t get32(const UINT8* p, bool little) {
  return little ? (static_cast<std::uint32_t>(p[0]) | (static_cast<std::uint32_t>(p[1]) << 8) |
                   (static_cast<std::uint32_t>(p[2]) << 16) |
                   (static_cast<std::uint32_t>(p[3]) << 24))
                : ((static_cast<std::uint32_t>(p[0]) << 24) |
                   (static_cast<std::uint32_t>(p[1]) << 16) |
                   (static_cast<std::uint32_t>(p[2]) << 8) | static_cast<std::uint32_t>(p[3]));
}
void put16(UINT8* p, std::uint16_t v, bool little) {
  p[little ? 0 : 1] = static_cast<UINT8>(v & 0xFF);
  p[little ? 1 : 0] = static_cast<UINT8>(v >> 8);
}

// The TurboJPEG operation for a rotation code, through the code's Exif
// orientation as the library maps it.
int operationOf(unsigned char code) {
  if (code == 0 || code > 7) {
    return TJXOP_NONE;
  }
  switch (DtRaw::convRotInfoUsetoStd(code)) {
    case 2:
      return TJXOP_HFLIP;
    case 3:
      return TJXOP_ROT180;
    case 4:
      return TJXOP_VFLIP;
    case 5:
      return TJXOP_TRANSPOSE;
    case 6:
      return TJXOP_ROT90;
    case 7:
      return TJXOP_TRANSVERSE;
    case 8:
      return TJXOP_ROT270;
    default:
      return TJXOP_NONE;
  }
}

// Which edges of the stored picture the operation moves to the left or top
// of the output: the right edge (its width must be whole blocks) and the
// bottom edge (its height).
bool movesRightEdge(int op) {
  return op == TJXOP_HFLIP || op == TJXOP_ROT180 || op == TJXOP_ROT270 ||
         op == TJXOP_TRANSVERSE;
}
bool movesBottomEdge(int op) {
  return op == TJXOP_VFLIP || op == TJXOP_ROT180 || op == TJXOP_ROT90 || op == TJXOP_TRANSVERSE;
}
bool transposes(int op) {
  return op == TJXOP_TRANSPOSE || op == TJXOP_TRANSVERSE || op == TJXOP_ROT90 ||
         op == TJXOP_ROT270;
}

// The operation as "transpose, then mirror": out(x, y) comes from the
// stored picture at (sx, sy).
struct Mapping {
  bool transpose = false;
  bool mirrorX = false;  // applied in the output's frame
  bool mirrorY = false;
};
Mapping mappingOf(int op) {
  Mapping m;
  m.transpose = transposes(op);
  switch (op) {
    case TJXOP_HFLIP:
    case TJXOP_ROT90:
      m.mirrorX = true;
      break;
    case TJXOP_VFLIP:
    case TJXOP_ROT270:
      m.mirrorY = true;
      break;
    case TJXOP_ROT180:
    case TJXOP_TRANSVERSE:
      m.mirrorX = true;
      m.mirrorY = true;
      break;
    default:
      break;
  }
  return m;
}

std::string tjWords(tjhandle h) {
  const char* s = tjGetErrorStr2(h);
  std::string words = s != nullptr ? s : "unknown error";
  // TurboJPEG prefixes its own function names ("tjTransform(): ..."): drop them.
  const std::size_t colon = words.find("(): ");
  if (colon != std::string::npos) {
    words.erase(0, colon + 4);
  }
  return words;
}

KpzUpright::Result failed(KpzUpright::Result r, const std::string& why) {
  dropHandle();
  r.ok = false;
  r.error = why;
  r.jpeg.clear();
  return r;
}

// The failure of a TurboJPEG call in words: damaged data or unreadable.
std::string tjFailure(tjhandle h, const char* doing) {
  if (tjGetErrorCode(h) == TJERR_WARNING) {
    return std::string("the JPEG data is damaged (") + tjWords(h) + "); not " + doing;
  }
  return std::string("the JPEG cannot be ") + doing + " (" + tjWords(h) + ")";
}

// Copies the marker segments APPn (all but Adobe's APP14, which describes
// the old colour transform) and COM of `jpeg` into the freshly encoded
// `encoded`, in place of its own APPn segments except APP14.
std::vector<UINT8> withMarkersOf(const UINT8* jpeg, std::size_t size, const UINT8* encoded,
                                 std::size_t encodedSize) {
  // The segments of a stream from its SOI up to the first non-APP/COM marker.
  const auto headSegments = [](const UINT8* p, std::size_t n, std::size_t* end) {
    std::vector<std::pair<std::size_t, std::size_t>> segs;  // (start, length with marker)
    std::size_t pos = 2;
    while (pos + 4 <= n && p[pos] == 0xFF) {
      const UINT8 m = p[pos + 1];
      const bool app = m >= 0xE0 && m <= 0xEF;
      if (!app && m != 0xFE) {
        break;
      }
      const std::size_t len = static_cast<std::size_t>((p[pos + 2] << 8) | p[pos + 3]);
      if (len < 2 || len > n - pos - 2) {
        break;
      }
      segs.emplace_back(pos, len + 2);
      pos += len + 2;
    }
    *end = pos;
    return segs;
  };
  std::size_t origEnd = 0;
  std::size_t encEnd = 0;
  const auto orig = headSegments(jpeg, size, &origEnd);
  const auto enc = headSegments(encoded, encodedSize, &encEnd);
  std::vector<UINT8> out(encoded, encoded + 2);  // SOI
  out.reserve(encodedSize + origEnd);
  for (const auto& s : orig) {
    if (jpeg[s.first + 1] != 0xEE) {
      out.insert(out.end(), jpeg + s.first, jpeg + s.first + s.second);
    }
  }
  for (const auto& s : enc) {
    if (encoded[s.first + 1] == 0xEE) {
      out.insert(out.end(), encoded + s.first, encoded + s.first + s.second);
    }
  }
  out.insert(out.end(), encoded + encEnd, encoded + encodedSize);
  return out;
}

std::string blockWords(int w, int h) {
  return w == h ? std::to_string(w) + "-pixel" : std::to_string(w) + "x" + std::to_string(h) + "-pixel";
}

}  // namespace

KpzUpright::Orientation KpzUpright::OrientationOf(const DtRawRecord& record) {
  Orientation o;
  o.result = record.m_rotationResult;
  o.code = record.m_orientationRecorded ? record.m_rotationCode : 0;
  // The value itself tells an unknown value from orientation 1 (the
  // library gives code 0 for both).
  o.stored = record.m_orientationStored;
  return o;
}

KpzUpright::Orientation KpzUpright::ReadOrientation(const UINT8* head, std::size_t size) {
  const DtRawExpected<DtRawRecord> record = DtRawRecord::Parse(head, size, size);
  if (!record) {
    Orientation o;
    o.result = record.Failure().m_code;
    return o;
  }
  return OrientationOf(*record);
}

bool KpzUpright::Turns(const Orientation& o) {
  return o.result == DtRawOk && o.code >= 1 && o.code <= 7;
}

std::string KpzUpright::WhyNotTurned(const Orientation& o) {
  if (Turns(o)) {
    return "";
  }
  if (o.result == DtRawErrNoData) {
    return "no orientation is recorded in this file";
  }
  if (o.result != DtRawOk) {
    return "its orientation cannot be read (error " + std::to_string(o.result) + ")";
  }
  if (o.stored >= 0 && o.stored != 1) {
    return NotAnExifOrientationWords(o.stored);
  }
  return "its orientation is normal";
}

std::string KpzUpright::NotAnExifOrientationWords(long long value) {
  return "its orientation value " + std::to_string(value) + " is not one of 1 to 8";
}

const char* KpzUpright::TurnWords(unsigned char code) {
  switch (operationOf(code)) {
    case TJXOP_ROT90:
      return "90° clockwise";
    case TJXOP_ROT180:
      return "180°";
    case TJXOP_ROT270:
      return "90° counter-clockwise";
    case TJXOP_HFLIP:
      return "mirrored left to right";
    case TJXOP_VFLIP:
      return "mirrored top to bottom";
    case TJXOP_TRANSPOSE:
      return "mirrored left to right and turned 90° counter-clockwise";
    case TJXOP_TRANSVERSE:
      return "mirrored left to right and turned 90° clockwise";
    default:
      return "none";
  }
}

int KpzUpright::TiffOrientation(UINT8* tiff, std::size_t size, bool setNormal) {
  if (tiff == nullptr || size < 8) {
    return -1;
  }
  bool little = false;
  if (tiff[0] == 'I' && tiff[1] == 'I') {
    little = true;
  } else if (!(tiff[0] == 'M' && tiff[1] == 'M')) {
    return -1;
  }
  if (get16(tiff + 2, little) != 42) {
    return -1;
  }
  const std::uint32_t ifd0 = get32(tiff + 4, little);
  if (ifd0 > size || size - ifd0 < 2) {
    return -1;
  }
  const std::uint16_t count = get16(tiff + ifd0, little);
  for (std::uint32_t i = 0; i < count; ++i) {
    const std::uint64_t at = std::uint64_t{ifd0} + 2 + 12ull * i;
    if (at + 12 > size) {
      return -1;
    }
    UINT8* e = tiff + at;
    if (get16(e, little) != kOrientationTag) {
      continue;
    }
    if (get16(e + 2, little) != kTiffShort || get32(e + 4, little) < 1) {
      return -1;
    }
    const int value = get16(e + 8, little);
    if (setNormal) {
      put16(e + 8, 1, little);
    }
    return value;
  }
  return -1;
}

int KpzUpright::SetOwnOrientationToNormal(UINT8* jpeg, std::size_t size) {
  if (jpeg == nullptr || size < 4 || jpeg[0] != 0xFF || jpeg[1] != 0xD8) {
    return 0;
  }
  static const UINT8 kExif[6] = {'E', 'x', 'i', 'f', 0, 0};
  int first = 0;
  std::size_t pos = 2;
  while (pos + 4 <= size && jpeg[pos] == 0xFF) {
    const UINT8 m = jpeg[pos + 1];
    if (m == 0xFF) {  // fill byte
      ++pos;
      continue;
    }
    if (m == 0xDA || m == 0xD9) {  // image data or the end: no more markers to look at
      break;
    }
    if (m == 0x01 || (m >= 0xD0 && m <= 0xD7)) {  // markers without a length
      pos += 2;
      continue;
    }
    const std::size_t len = static_cast<std::size_t>((jpeg[pos + 2] << 8) | jpeg[pos + 3]);
    if (len < 2 || len > size - pos - 2) {
      break;
    }
    if (m == 0xE1 && len >= 2 + sizeof kExif && std::memcmp(jpeg + pos + 4, kExif, sizeof kExif) == 0) {
      const int value = TiffOrientation(jpeg + pos + 4 + sizeof kExif, len - 2 - sizeof kExif, true);
      if (value > 0 && first == 0) {
        first = value;
      }
    }
    pos += len + 2;
  }
  return first;
}

namespace {

// How a JPEG's coefficients are coded, as its frame marker says.
enum class Coding { Unknown, Huffman, Progressive, Arithmetic, Lossless };

const char* codingWords(Coding c) {
  switch (c) {
    case Coding::Huffman:
      return "Huffman-coded";
    case Coding::Progressive:
      return "progressive";
    case Coding::Arithmetic:
      return "arithmetic-coded";
    case Coding::Lossless:
      return "lossless";
    case Coding::Unknown:
    default:
      return "coded";
  }
}

// Pixels one byte of coded data can stand for, at most, in a picture a file
// can hold as its preview. Huffman coding spends at least one bit on each
// 8x8 block's DC value and one on its end of block, so a byte covers at
// most 4 blocks (256 pixels) of one component; progressive scans code the
// DC values alone in their first scan (512). Arithmetic coding has no such
// floor: a flat picture codes in next to nothing. A photograph never does:
// 2048 pixels a byte (a quarter of a bit per block) is already far below
// any real preview's, and it bounds the decoder's work by the data there.
// A picture up to this size is decoded whatever its data (a flat frame, a
// lens cap's black, codes in next to nothing): its decode takes a few tens
// of MB at most.
const std::uint64_t kFreePixels = std::uint64_t{1} << 22;

std::uint64_t pixelsPerCodedByte(Coding c) {
  switch (c) {
    case Coding::Huffman:
      return 256;
    case Coding::Progressive:
      return 512;
    case Coding::Arithmetic:
    case Coding::Lossless:
    case Coding::Unknown:
    default:
      return 2048;
  }
}

// The coding of `jpeg` (its first frame marker) and the bytes of its scans'
// coded data (everything after each SOS header up to the next marker other
// than a restart marker or a stuffed 0xFF00), up to EOI or the end. Trailing
// bytes after EOI (padding to a preview's length) are not counted. Every
// step moves forward; reads are checked against `size`.
std::uint64_t codedBytes(const UINT8* jpeg, std::size_t size, Coding* coding) {
  *coding = Coding::Unknown;
  std::uint64_t coded = 0;
  std::size_t pos = 2;  // after SOI
  while (pos + 4 <= size) {
    if (jpeg[pos] != 0xFF) {
      return coded;  // not a marker where one must be: stop counting
    }
    const UINT8 m = jpeg[pos + 1];
    if (m == 0xFF) {
      ++pos;  // fill byte
      continue;
    }
    if (m == 0xD9) {
      return coded;  // EOI
    }
    if (m == 0x01 || (m >= 0xD0 && m <= 0xD8)) {
      pos += 2;  // no length
      continue;
    }
    const std::size_t len = (static_cast<std::size_t>(jpeg[pos + 2]) << 8) | jpeg[pos + 3];
    if (len < 2 || len > size - pos - 2) {
      return coded;
    }
    if (*coding == Coding::Unknown && m >= 0xC0 && m <= 0xCF && m != 0xC4 && m != 0xC8 &&
        m != 0xCC) {
      if (m >= 0xC9) {
        *coding = Coding::Arithmetic;
      } else if (m == 0xC2 || m == 0xC6) {
        *coding = Coding::Progressive;
      } else if (m == 0xC3 || m == 0xC7) {
        *coding = Coding::Lossless;
      } else {
        *coding = Coding::Huffman;
      }
    }
    pos += 2 + len;
    if (m != 0xDA) {
      continue;
    }
    // The scan's coded data: up to the next real marker.
    const std::size_t start = pos;
    while (pos + 1 < size) {
      if (jpeg[pos] == 0xFF) {
        const UINT8 next = jpeg[pos + 1];
        if (next != 0x00 && !(next >= 0xD0 && next <= 0xD7) && next != 0xFF) {
          break;
        }
      }
      ++pos;
    }
    coded += pos - start;
  }
  return coded;
}

}  // namespace

KpzUpright::Result KpzUpright::Turn(const UINT8* jpeg, std::size_t size, unsigned char code,
                                    Edges edges) {
  try {
    return turn(jpeg, size, code, edges);
  } catch (const std::bad_alloc&) {
    return failed(Result(), "not enough memory to turn the JPEG");
  }
}

KpzUpright::Result KpzUpright::turn(const UINT8* jpeg, std::size_t size, unsigned char code,
                                    Edges edges) {
  Result r;
  const int op = operationOf(code);
  if (op == TJXOP_NONE) {
    return failed(r, "no turn for rotation code " + std::to_string(code));
  }
  tjhandle h = threadHandle();
  if (h == nullptr) {
    return failed(r, "the JPEG library cannot be started (out of memory)");
  }
  if (size == 0 || size > 0xFFFFFFFFull) {
    return failed(r, "the JPEG is too large to turn");
  }
  int subsamp = -1;
  int colorspace = -1;
  if (tjDecompressHeader3(h, jpeg, static_cast<unsigned long>(size), &r.width, &r.height,
                          &subsamp, &colorspace) != 0) {
    if (tjGetErrorCode(h) == TJERR_WARNING) {
      return failed(r, tjFailure(h, "turned"));
    }
    return failed(r, "not a JPEG that can be read (" + tjWords(h) + ")");
  }
  if (r.width <= 0 || r.height <= 0 || subsamp < 0 || subsamp >= TJ_NUMSAMP) {
    return failed(r, "not a JPEG that can be read (no picture size or sampling)");
  }
  const std::uint64_t pixels =
      static_cast<std::uint64_t>(r.width) * static_cast<std::uint64_t>(r.height);
  if (pixels > kMaxPixels || pixels / kMaxPixelsPerByte > size) {
    return failed(r, "the JPEG declares " + std::to_string(r.width) + "x" +
                         std::to_string(r.height) + " pixels, more than its " +
                         std::to_string(size) + " bytes can hold; it is damaged");
  }
  // The decoder's work and memory follow the declared size: bounded by
  // what the coded data present can stand for.
  Coding coding = Coding::Unknown;
  const std::uint64_t coded = codedBytes(jpeg, size, &coding);
  if (pixels > kFreePixels && pixels / pixelsPerCodedByte(coding) > coded) {
    return failed(r, "the JPEG declares " + std::to_string(r.width) + "x" +
                         std::to_string(r.height) + " pixels, too large for its " +
                         std::to_string(coded) + " bytes of " + codingWords(coding) +
                         " data; it is damaged, not turned");
  }
  r.blockWidth = tjMCUWidth[subsamp];
  r.blockHeight = tjMCUHeight[subsamp];
  const bool partialRight = movesRightEdge(op) && r.width % r.blockWidth != 0;
  const bool partialBottom = movesBottomEdge(op) && r.height % r.blockHeight != 0;

  if (!(partialRight || partialBottom) || edges == Edges::Trim) {
    tjtransform t;
    std::memset(&t, 0, sizeof t);
    t.op = op;
    t.options = (partialRight || partialBottom) ? TJXOPT_TRIM : TJXOPT_PERFECT;
    TjBuffer out;
    if (tjTransform(h, jpeg, static_cast<unsigned long>(size), 1, &out.data, &out.size, &t, 0) !=
        0) {
      return failed(r, tjFailure(h, "turned"));
    }
    r.jpeg.assign(out.data, out.data + out.size);
    r.treatment = (partialRight || partialBottom) ? Treatment::Trimmed : Treatment::Lossless;
    const int keptW = partialRight ? r.width / r.blockWidth * r.blockWidth : r.width;
    const int keptH = partialBottom ? r.height / r.blockHeight * r.blockHeight : r.height;
    r.cutColumns = r.width - keptW;
    r.cutRows = r.height - keptH;
    r.outWidth = transposes(op) ? keptH : keptW;
    r.outHeight = transposes(op) ? keptW : keptH;
  } else {
    // Decode, turn the pixels, encode again: the picture keeps its size.
    if (colorspace == TJCS_CMYK || colorspace == TJCS_YCCK) {
      return failed(r, "a CMYK JPEG whose edges are not whole blocks cannot be turned "
                       "without loss here; --edges=trim turns it losslessly");
    }
    const bool gray = subsamp == TJSAMP_GRAY;
    const int pf = gray ? TJPF_GRAY : TJPF_RGB;
    const int ps = tjPixelSize[pf];
    const std::size_t stride = static_cast<std::size_t>(r.width) * static_cast<std::size_t>(ps);
    // Not zeroed first (the decoder writes every byte): a vector would clear
    // megabytes for nothing.
    const std::unique_ptr<UINT8[]> pixelsIn(new UINT8[stride * static_cast<std::size_t>(r.height)]);
    if (tjDecompress2(h, jpeg, static_cast<unsigned long>(size), pixelsIn.get(), r.width,
                      static_cast<int>(stride), r.height, pf, TJFLAG_ACCURATEDCT) != 0) {
      return failed(r, tjFailure(h, "decoded"));
    }
    const Mapping m = mappingOf(op);
    r.outWidth = m.transpose ? r.height : r.width;
    r.outHeight = m.transpose ? r.width : r.height;
    const std::size_t outStride =
        static_cast<std::size_t>(r.outWidth) * static_cast<std::size_t>(ps);
    const std::unique_ptr<UINT8[]> pixelsOut(
        new UINT8[outStride * static_cast<std::size_t>(r.outHeight)]);
    for (int y = 0; y < r.outHeight; ++y) {
      UINT8* dst = pixelsOut.get() + static_cast<std::size_t>(y) * outStride;
      const int y1 = m.mirrorY ? r.outHeight - 1 - y : y;
      for (int x = 0; x < r.outWidth; ++x) {
        const int x1 = m.mirrorX ? r.outWidth - 1 - x : x;
        const int sx = m.transpose ? y1 : x1;
        const int sy = m.transpose ? x1 : y1;
        const UINT8* src = pixelsIn.get() + static_cast<std::size_t>(sy) * stride +
                           static_cast<std::size_t>(sx) * static_cast<std::size_t>(ps);
        std::memcpy(dst + static_cast<std::size_t>(x) * static_cast<std::size_t>(ps), src,
                    static_cast<std::size_t>(ps));
      }
    }
    int outSamp = subsamp;
    if (m.transpose && subsamp == TJSAMP_422) {
      outSamp = TJSAMP_440;
    } else if (m.transpose && subsamp == TJSAMP_440) {
      outSamp = TJSAMP_422;
    } else if (m.transpose && subsamp == TJSAMP_411) {
      outSamp = TJSAMP_420;
    }
    TjBuffer out;
    if (tjCompress2(h, pixelsOut.get(), r.outWidth, static_cast<int>(outStride), r.outHeight, pf,
                    &out.data, &out.size, outSamp, kQuality, TJFLAG_ACCURATEDCT) != 0) {
      return failed(r, "the turned picture cannot be encoded (" + tjWords(h) + ")");
    }
    r.jpeg = withMarkersOf(jpeg, size, out.data, out.size);
    r.treatment = Treatment::Reencoded;
  }
  r.ownOrientation = SetOwnOrientationToNormal(r.jpeg.data(), r.jpeg.size());
  r.ok = true;
  return r;
}

bool KpzUpright::PictureSize(const UINT8* jpeg, std::size_t size, int* width, int* height) {
  tjhandle h = threadHandle();
  if (h == nullptr || size == 0 || size > 0xFFFFFFFFull) {
    return false;
  }
  int w = 0;
  int hgt = 0;
  int subsamp = -1;
  int colorspace = -1;
  if (tjDecompressHeader3(h, jpeg, static_cast<unsigned long>(size), &w, &hgt, &subsamp,
                          &colorspace) != 0) {
    dropHandle();  // see threadSlot: a handle that failed is not used again
    return false;
  }
  if (w <= 0 || hgt <= 0) {
    return false;
  }
  *width = w;
  *height = hgt;
  return true;
}

KpzUpright::Applied KpzUpright::Apply(const Orientation& orientation, const UINT8* jpeg,
                                      std::size_t size, Edges edges, const char* name) {
  Applied a;
  a.turns = Turns(orientation);
  if (!a.turns) {
    a.remark = std::string(name) + " not turned: " + WhyNotTurned(orientation);
    return a;
  }
  a.result = Turn(jpeg, size, orientation.code, edges);
  if (!a.result.ok) {
    a.error = std::string("the ") + name + " cannot be turned upright: " + a.result.error;
    return a;
  }
  a.remark = std::string(name) + " " + Note(a.result, orientation.code);
  return a;
}

std::string KpzUpright::Note(const Result& r, unsigned char code) {
  std::string note = std::string("turned ") + TurnWords(code);
  const std::string block = blockWords(r.blockWidth, r.blockHeight);
  switch (r.treatment) {
    case Treatment::Lossless:
      note += ", losslessly";
      break;
    case Treatment::Trimmed: {
      note += ", losslessly; cut to whole " + block + " blocks:";
      if (r.cutColumns > 0) {
        note += " " + std::to_string(r.cutColumns) + " pixel column" +
                (r.cutColumns == 1 ? "" : "s") + " off the stored picture's right edge";
      }
      if (r.cutColumns > 0 && r.cutRows > 0) {
        note += " and";
      }
      if (r.cutRows > 0) {
        note += " " + std::to_string(r.cutRows) + " pixel row" + (r.cutRows == 1 ? "" : "s") +
                " off its bottom edge";
      }
      note += " (" + std::to_string(r.width) + "x" + std::to_string(r.height) + " -> " +
              std::to_string(r.outWidth) + "x" + std::to_string(r.outHeight) + ")";
      break;
    }
    case Treatment::Reencoded: {
      note += "; re-encoded at quality " + std::to_string(kQuality) + ": ";
      const int op = operationOf(code);
      const bool w = movesRightEdge(op) && r.width % r.blockWidth != 0;
      const bool h = movesBottomEdge(op) && r.height % r.blockHeight != 0;
      if (w && h) {
        note += "its size, " + std::to_string(r.width) + "x" + std::to_string(r.height) +
                ", is not";
      } else if (w) {
        note += "its width, " + std::to_string(r.width) + ", is not";
      } else {
        note += "its height, " + std::to_string(r.height) + ", is not";
      }
      note += " a whole number of " + block + " blocks (size kept, " +
              std::to_string(r.outWidth) + "x" + std::to_string(r.outHeight) + ")";
      break;
    }
  }
  if (r.ownOrientation > 0) {
    note += "; its own Exif orientation " + std::to_string(r.ownOrientation) + " set to 1";
  }
  return note;
}

std::string KpzUpright::SummaryNote(const Result& r) {
  const std::string block = blockWords(r.blockWidth, r.blockHeight);
  switch (r.treatment) {
    case Treatment::Reencoded:
      return "re-encoded at quality " + std::to_string(kQuality) +
             ": edges not a whole number of " + block + " blocks";
    case Treatment::Trimmed:
      return "trimmed to whole " + block + " blocks (-v tells the pixels each lost)";
    case Treatment::Lossless:
      break;
  }
  return "";
}
