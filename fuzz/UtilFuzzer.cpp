// UtilFuzzer.cpp - libFuzzer target for the utility layer's general
// facilities that parse caller data: the text stream over a memory channel,
// the Base64 decoder and the bit-field helpers.
//
// Sits above jni/util and jni/util/io; see fuzz/README.md.
//
//   build/fuzz/fuzz/UtilFuzzer -dict=fuzz/kpz.dict build/fuzz/corpus/util build/fuzz/seeds/util
//
// Input: byte 0 chooses the facility (value mod 3: 0 text stream, 1 Base64,
// 2 bit fields); the next bytes are parameters, the rest is the data, copied
// into a heap block of exactly its size. Every result is compared with a
// small reference model written here. The bit-field operations that assert
// (Read1Bit, ReadBits, Write1Bit) end the process on bad arguments by design,
// so they are called with valid arguments only; the status-returning ones get
// any arguments, but never a field that runs past the data (their documented
// contract leaves that to the caller). No pointer members.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "util/DtNlBase64Decoder.h"
#include "util/DtNlStatus.h"
#include "util/DtNlString.h"
#include "util/DtNlTypes.h"
#include "util/DtNlUtil.h"
#include "util/io/DtNlBuffIo.h"
#include "util/io/DtNlTextStream.h"

namespace {

[[noreturn]] void Fail(const char* what, long long value) {
  std::fprintf(stderr, "kpz fuzz check failed: %s (%lld)\n", what, value);
  std::abort();
}

void Check(bool ok, const char* what, long long value = 0) {
  if (!ok) {
    Fail(what, value);
  }
}

// A heap block of exactly `size` bytes (AddressSanitizer sees one past it).
std::unique_ptr<UINT8[]> Block(const UINT8* data, std::size_t size) {
  std::unique_ptr<UINT8[]> block(new UINT8[size == 0 ? 1 : size]());
  if (size != 0 && data != nullptr) {
    std::memcpy(block.get(), data, size);
  }
  return block;
}

// ---- Text stream ---------------------------------------------------------

// One line as ReadLine(buf, size) must deliver it from `in` at `*pos`.
struct RefLine {
  unsigned consumed = 0;
  std::string stored;
};

RefLine ReferenceLine(const std::vector<UINT8>& in, std::size_t* pos, unsigned size) {
  RefLine line;
  while (*pos < in.size()) {
    const UINT8 c = in[(*pos)++];
    ++line.consumed;
    if (c == '\n') {
      return line;
    }
    if (c == '\r') {
      if (*pos < in.size() && in[*pos] == '\n') {
        ++*pos;
        ++line.consumed;
      }
      return line;
    }
    line.stored.push_back(static_cast<char>(c));
    if (line.stored.size() == size - 1) {
      return line;
    }
  }
  return line;
}

void FuzzTextStream(const UINT8* params, std::size_t paramSize, const UINT8* data,
                    std::size_t size) {
  const unsigned lineSize = paramSize > 0 ? params[0] % 40u : 16u;
  const INT32 lineEnd = paramSize > 1 ? static_cast<INT32>(params[1] % 4u) : 0;
  const unsigned outCapacity = paramSize > 2 ? params[2] : 64u;
  const std::vector<UINT8> input(data, data + size);
  std::unique_ptr<UINT8[]> block = Block(data, size);

  // Read every line into a char buffer of exactly lineSize bytes.
  {
    DtNlBuffIo io;
    Check(io.Open(block.get(), static_cast<UINT>(size)) == 0, "BuffIo open");
    DtNlTextStream ts(&io);
    std::unique_ptr<char[]> buf(lineSize == 0 ? nullptr : new char[lineSize]);
    std::size_t pos = 0;
    // Every line consumes at least one byte: size + 1 calls reach the end.
    for (std::size_t call = 0; call <= size; ++call) {
      const unsigned got = ts.ReadLine(buf.get(), lineSize);
      if (lineSize < 2) {
        Check(got == 0, "ReadLine with a size below 2 reads nothing", got);
        Check(lineSize == 0 || buf[0] == '\0', "ReadLine with size 1 stores NUL");
        break;
      }
      const RefLine want = ReferenceLine(input, &pos, lineSize);
      Check(got == want.consumed, "ReadLine count", got);
      Check(std::memcmp(buf.get(), want.stored.data(), want.stored.size()) == 0 &&
                buf[want.stored.size()] == '\0',
            "ReadLine text");
      if (got == 0) {
        Check(pos == input.size(), "ReadLine 0 before the end", static_cast<long long>(pos));
        break;
      }
    }
  }

  // The same through the DtNlString form (at most lineSize characters).
  if (lineSize >= 1) {
    DtNlBuffIo io;
    Check(io.Open(block.get(), static_cast<UINT>(size)) == 0, "BuffIo open");
    DtNlTextStream ts(&io);
    std::size_t pos = 0;
    for (std::size_t call = 0; call <= size; ++call) {
      DtNlString line;
      const unsigned got = ts.ReadLine(&line, lineSize);
      const RefLine want = ReferenceLine(input, &pos, lineSize + 1);
      Check(got == want.consumed, "ReadLine(DtNlString) count", got);
      // Bytes after an embedded NUL are not part of a C string.
      const std::string expect(want.stored.c_str());
      Check(line.text != nullptr && expect == line.text, "ReadLine(DtNlString) text");
      if (got == 0) {
        break;
      }
    }
  }

  // Write the input back, split at every 0x0A, into a block of outCapacity.
  {
    std::vector<UINT8> out(outCapacity == 0 ? 1 : outCapacity, 0xA5);
    DtNlBuffIo io;
    Check(io.Open(out.data(), outCapacity) == 0, "BuffIo open for writing");
    DtNlTextStream ts(&io);
    ts.SetLineEnd(lineEnd);
    const std::string ending = lineEnd == DtNlTextStream::LINE_END_CRLF ? "\r\n"
                               : lineEnd == DtNlTextStream::LINE_END_CR ? "\r"
                                                                        : "\n";
    std::vector<UINT8> model;
    std::size_t start = 0;
    for (std::size_t i = 0; i <= size; ++i) {
      if (i != size && data[i] != '\n') {
        continue;
      }
      const unsigned len = static_cast<unsigned>(i - start);
      const unsigned got =
          ts.WriteLine(reinterpret_cast<const char*>(block.get()) + start, len);
      // The memory channel clamps at its end without recording an error.
      unsigned want = 0;
      if (len != 0) {
        const std::size_t room1 = outCapacity - model.size();
        const std::size_t text = len < room1 ? len : room1;
        model.insert(model.end(), block.get() + start, block.get() + start + text);
        const std::size_t room2 = outCapacity - model.size();
        const std::size_t tail = ending.size() < room2 ? ending.size() : room2;
        model.insert(model.end(), ending.begin(), ending.begin() + static_cast<std::ptrdiff_t>(tail));
        want = static_cast<unsigned>(text + tail);
      }
      Check(got == want, "WriteLine count", got);
      start = i + 1;
    }
    Check(model.size() <= outCapacity, "WriteLine past the block");
    Check(model.empty() || std::memcmp(out.data(), model.data(), model.size()) == 0,
          "WriteLine bytes");
  }
}

// ---- Base64 --------------------------------------------------------------

int Sextet(UINT8 c) {
  if (c >= 'A' && c <= 'Z') return c - 'A';
  if (c >= 'a' && c <= 'z') return c - 'a' + 26;
  if (c >= '0' && c <= '9') return c - '0' + 52;
  if (c == '+') return 62;
  if (c == '/') return 63;
  if (c == '=') return 0;
  return -1;
}

void FuzzBase64(const UINT8* params, std::size_t paramSize, const UINT8* data,
                std::size_t size) {
  const bool negative = paramSize > 0 && (params[0] & 0x80u) != 0;
  const unsigned capRaw = paramSize > 2 ? (static_cast<unsigned>(params[1]) << 8) | params[2] : 0u;
  const int srcSize = negative ? -static_cast<int>(size) : static_cast<int>(size);
  const unsigned needed = 3u * static_cast<unsigned>(size / 4);
  // Capacities around the needed one are the interesting ones.
  const int capacity = static_cast<int>(capRaw % (needed + 8u));

  std::unique_ptr<UINT8[]> src = Block(data, size);
  std::unique_ptr<UINT8[]> dst(new UINT8[capacity == 0 ? 1 : static_cast<unsigned>(capacity)]());
  std::vector<UINT8> model(static_cast<std::size_t>(capacity), 0);
  int dstSize = capacity;
  const int got = DtNlBase64Decoder::Decode(capacity == 0 ? nullptr : dst.get(), &dstSize,
                                            src.get(), srcSize);

  // The reference.
  int want = 0;
  int wantSize = capacity;
  if ((srcSize & 3) != 0) {
    want = -1;
  } else if (srcSize <= 0) {
    wantSize = 0;
  } else {
    const int groups = srcSize / 4;
    wantSize = 3 * groups;
    for (int g = 0; g < groups; ++g) {
      if (3 * g + 2 >= capacity) {
        want = -1;
        wantSize = capacity;
        break;
      }
      int v[4];
      bool bad = false;
      for (int k = 0; k < 4; ++k) {
        v[k] = Sextet(data[4 * g + k]);
        bad = bad || v[k] < 0;
      }
      if (bad) {
        want = -1;
        wantSize = capacity;
        break;
      }
      const unsigned n = (static_cast<unsigned>(v[0]) << 18) | (static_cast<unsigned>(v[1]) << 12) |
                         (static_cast<unsigned>(v[2]) << 6) | static_cast<unsigned>(v[3]);
      model[static_cast<std::size_t>(3 * g)] = static_cast<UINT8>(n >> 16);
      model[static_cast<std::size_t>(3 * g + 1)] = static_cast<UINT8>(n >> 8);
      model[static_cast<std::size_t>(3 * g + 2)] = static_cast<UINT8>(n);
    }
  }
  Check(got == want, "Decode result", got);
  Check(dstSize == wantSize, "Decode size", dstSize);
  Check(capacity == 0 ||
            std::memcmp(dst.get(), model.data(), static_cast<std::size_t>(capacity)) == 0,
        "Decode bytes");
}

// ---- Bit fields ----------------------------------------------------------

UINT32 RefRead(const UINT8* p, unsigned offsetBit, unsigned bits) {
  UINT32 v = 0;
  for (unsigned i = 0; i < bits; ++i) {
    const unsigned at = offsetBit + i;
    v = (v << 1) | ((p[at / 8] >> (7 - at % 8)) & 1u);
  }
  return v;
}

void RefWrite(UINT8* p, unsigned offsetBit, unsigned bits, UINT32 value) {
  for (unsigned i = 0; i < bits; ++i) {
    const unsigned at = offsetBit + i;
    const UINT8 mask = static_cast<UINT8>(0x80u >> (at % 8));
    if (((value >> (bits - 1 - i)) & 1u) != 0) {
      p[at / 8] = static_cast<UINT8>(p[at / 8] | mask);
    } else {
      p[at / 8] = static_cast<UINT8>(p[at / 8] & ~mask);
    }
  }
}

void FuzzBitFields(const UINT8* params, std::size_t paramSize, const UINT8* data,
                   std::size_t size) {
  if (paramSize < 8) {
    return;
  }
  const UINT8 offsetBit = params[0];
  const UINT8 requestBit = params[1];
  const UINT32 value = static_cast<UINT32>(params[3]) | static_cast<UINT32>(params[4]) << 8 |
                       static_cast<UINT32>(params[5]) << 16 | static_cast<UINT32>(params[6]) << 24;
  const int lengths[4] = {static_cast<int>(size), 0, -1, 0x7FFFFFFF};
  const int dataLen = lengths[params[2] % 4u];
  const unsigned op = params[7] % 6u;

  std::unique_ptr<UINT8[]> block = Block(data, size);
  const UINT8* p = size == 0 ? nullptr : block.get();
  const unsigned long long totalBits = 8ull * size;
  const bool fits = p != nullptr && offsetBit < 8 &&
                    static_cast<unsigned long long>(offsetBit) + requestBit <= totalBits;
  const bool argsOk = p != nullptr && dataLen >= 1 && offsetBit < 8;
  const unsigned end = static_cast<unsigned>(offsetBit) + requestBit;

  if (op <= 2) {
    // ReadBitsToUint32 / 16 / 8.
    const unsigned limit = op == 0 ? 32u : op == 1 ? 16u : 8u;
    const bool valid = argsOk && requestBit <= limit;
    if (valid && !fits) {
      return;  // the caller's guarantee would be broken
    }
    static const UINT8 kSentinel = 0;
    const UINT8* const sentinel = &kSentinel;
    const UINT8* next = sentinel;
    UINT8 nextOffset = 0xEE;
    UINT32 v32 = 0xDEADBEEFu;
    UINT16 v16 = 0xBEEF;
    UINT8 v8 = 0xEF;
    DtNlStatus st;
    if (op == 0) {
      st = DtNlUtil::ReadBitsToUint32(p, dataLen, offsetBit, requestBit, &v32, &next, &nextOffset);
    } else if (op == 1) {
      st = DtNlUtil::ReadBitsToUint16(p, dataLen, offsetBit, requestBit, &v16, &next, &nextOffset);
    } else {
      st = DtNlUtil::ReadBitsToUint8(p, dataLen, offsetBit, requestBit, &v8, &next, &nextOffset);
    }
    if (!valid) {
      Check(st.IsFailure(), "bit read refused", requestBit);
      Check(v32 == 0xDEADBEEFu && v16 == 0xBEEF && v8 == 0xEF, "refused read left the value");
      Check(next == sentinel && nextOffset == 0xEE, "refused read left the position");
      return;
    }
    Check(st.IsSuccess(), "bit read", requestBit);
    const UINT32 want = RefRead(p, offsetBit, requestBit);
    const UINT32 have = op == 0 ? v32 : op == 1 ? v16 : v8;
    Check(have == want, "bit read value", have);
    Check(next == p + end / 8 && nextOffset == end % 8, "bit read next position", end);
    return;
  }

  if (op == 3) {
    // WriteBitsFromUint32, on a copy.
    const bool valid = p != nullptr && dataLen > 0 && offsetBit < 8 && requestBit >= 1 &&
                       requestBit <= 32;
    if (valid && !fits) {
      return;
    }
    std::unique_ptr<UINT8[]> copy = Block(data, size);
    std::vector<UINT8> model(data, data + size);
    UINT8* next = nullptr;
    UINT8 nextOffset = 0xEE;
    const DtNlStatus st = DtNlUtil::WriteBitsFromUint32(value, requestBit,
                                                        size == 0 ? nullptr : copy.get(),
                                                        dataLen, offsetBit, &next, &nextOffset);
    if (!valid) {
      Check(st.IsFailure(), "bit write refused", requestBit);
      Check(size == 0 || std::memcmp(copy.get(), data, size) == 0, "refused write left the data");
      Check(next == nullptr && nextOffset == 0xEE, "refused write left the position");
      return;
    }
    Check(st.IsSuccess(), "bit write", requestBit);
    RefWrite(model.data(), offsetBit, requestBit, value);
    Check(std::memcmp(copy.get(), model.data(), size) == 0, "bit write bytes");
    Check(next == copy.get() + end / 8 && nextOffset == end % 8, "bit write next position", end);
    return;
  }

  // The asserting forms, with valid arguments only.
  if (p == nullptr) {
    return;
  }
  const UINT8 off = static_cast<UINT8>(offsetBit % 8u);
  const int len = static_cast<int>(size > 0x7FFFFFFFu ? 0x7FFFFFFFu : size);
  if (op == 4) {
    const UINT8 bits = static_cast<UINT8>(requestBit % 33u);
    if (static_cast<unsigned long long>(off) + bits > totalBits) {
      return;
    }
    const UINT8* next = nullptr;
    UINT8 nextOffset = 0;
    const UINT32 v = DtNlUtil::ReadBits(p, len, off, bits, &next, &nextOffset);
    Check(v == RefRead(p, off, bits), "ReadBits value", v);
    const unsigned e = static_cast<unsigned>(off) + bits;
    Check(next == p + e / 8 && nextOffset == e % 8, "ReadBits next position", e);
    // Walk every bit of the data one at a time.
    const UINT8* q = p;
    UINT8 o = 0;
    for (unsigned long long i = 0; i < totalBits; ++i) {
      const UINT8* qn = nullptr;
      UINT8 on = 0;
      const UINT8 bit = DtNlUtil::Read1Bit(q, len, o, &qn, &on);
      Check(bit == ((p[i / 8] >> (7 - i % 8)) & 1u), "Read1Bit value", static_cast<long long>(i));
      q = qn;
      o = on;
    }
    Check(q == p + size && o == 0, "Read1Bit walk ends after the data");
    return;
  }
  // op 5: Write1Bit over a copy, every bit set to the complement of the input.
  std::unique_ptr<UINT8[]> copy = Block(data, size);
  UINT8* q = copy.get();
  UINT8 o = 0;
  for (unsigned long long i = 0; i < totalBits; ++i) {
    UINT8* qn = nullptr;
    UINT8 on = 0;
    const UINT8 bit = static_cast<UINT8>(((data[i / 8] >> (7 - i % 8)) & 1u) ^ 1u);
    DtNlUtil::Write1Bit(bit, q, len, o, &qn, &on);
    q = qn;
    o = on;
  }
  for (std::size_t i = 0; i < size; ++i) {
    Check(copy[i] == static_cast<UINT8>(~data[i]), "Write1Bit bytes", static_cast<long long>(i));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) {
    return 0;
  }
  const unsigned which = data[0] % 3u;
  // Parameters: up to 8 bytes after the selector; the rest is the data.
  const std::size_t paramSize = size - 1 < 8 ? size - 1 : 8;
  const UINT8* params = data + 1;
  const UINT8* body = data + 1 + paramSize;
  const std::size_t bodySize = size - 1 - paramSize;
  switch (which) {
    case 0:
      FuzzTextStream(params, paramSize, body, bodySize);
      break;
    case 1:
      FuzzBase64(params, paramSize, body, bodySize);
      break;
    default:
      FuzzBitFields(params, paramSize, body, bodySize);
      break;
  }
  return 0;
}
