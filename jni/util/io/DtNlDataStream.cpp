// DtNlDataStream.cpp - typed and bit-level reads and writes over one channel.
#include "util/io/DtNlDataStream.h"

#include "util/DtNlString.h"
#include "util/io/DtNlBuffIo.h"
#include "util/io/DtNlFile.h"
#include "util/io/DtNlFileIo.h"
#include "util/io/DtNlIo.h"

namespace {

// Stack piece size of byte-swapped writes and multi-byte bit reads; a
// multiple of both value widths.
const UINT CHUNK_SIZE = 256;

const UINT32 MAX_UINT = 0xFFFFFFFFu;

}  // namespace

const UINT8 DtNlDataStream::MASK_BIT[9] = {0xFF, 0x7F, 0x3F, 0x1F, 0x0F, 0x07, 0x03, 0x01, 0x00};

// The stream's own channels live inside it (the former "create a channel with
// new": same channel, same life, no allocation).
DtNlDataStream::DtNlDataStream()
    : m_io(nullptr), m_ownsIo(1), m_bitBuffer(0), m_bitPos(8), m_fileIo(), m_memoryIo() {
  m_io = &m_fileIo;
}

DtNlDataStream::DtNlDataStream(DtNlIo* io)
    : m_io(io), m_ownsIo(0), m_bitBuffer(0), m_bitPos(8), m_fileIo(), m_memoryIo() {
  if (io == nullptr) {
    m_io = &m_fileIo;
    m_ownsIo = 1;
  }
}

DtNlDataStream::~DtNlDataStream() {
  // The own channels close as they are destroyed; a lent one is left alone.
  m_io = nullptr;
}

DtNlIo* DtNlDataStream::GetIo() const { return m_io; }

void DtNlDataStream::ensureOwnedKind(INT32 kind) {
  if (m_ownsIo == 0) {
    return;  // a lent channel is used as it is
  }
  DtNlIo* wanted = (kind == DtNlIo::KIND_FILE) ? static_cast<DtNlIo*>(&m_fileIo)
                                               : static_cast<DtNlIo*>(&m_memoryIo);
  if (m_io == wanted) {
    return;
  }
  m_io->Close();
  m_io = wanted;
}

int DtNlDataStream::Open(const char* path, const char* mode) {
  ensureOwnedKind(DtNlIo::KIND_FILE);
  if (m_io == nullptr) {
    return -1;
  }
  return m_io->Open(path, mode);
}

int DtNlDataStream::Open(DtNlFile const& file, const char* mode) {
  // The path's own characters: they stay unchanged for the call, so no
  // temporary copy of them is made.
  const char* text = file.GetPath().text;
  return Open(text != nullptr ? text : "", mode);
}

int DtNlDataStream::Open(const UINT8* buffer, UINT size) {
  ensureOwnedKind(DtNlIo::KIND_MEMORY);
  if (m_io == nullptr) {
    return -1;
  }
  return m_io->Open(buffer, size);
}

UINT DtNlDataStream::ReadU16(UINT16* out, UINT count, DtNlByteOrder order) {
  if (m_io == nullptr || count > MAX_UINT / 2u) {
    return 0;
  }
  const UINT bytes = count * 2u;
  if (m_io->ReadU8(reinterpret_cast<UINT8*>(out), bytes) < bytes) {
    return 0;
  }
  if (order == DtNlBigEndian) {
    for (UINT i = 0; i < count; ++i) {
      out[i] = DtNlDataUtil::SwapU16(out[i]);
    }
  }
  return bytes;
}

UINT DtNlDataStream::ReadU32(UINT32* out, UINT count, DtNlByteOrder order) {
  if (m_io == nullptr || count > MAX_UINT / 4u) {
    return 0;
  }
  const UINT bytes = count * 4u;
  if (m_io->ReadU8(reinterpret_cast<UINT8*>(out), bytes) < bytes) {
    return 0;
  }
  if (order == DtNlBigEndian) {
    for (UINT i = 0; i < count; ++i) {
      out[i] = DtNlDataUtil::SwapU32(out[i]);
    }
  }
  return bytes;
}

UINT DtNlDataStream::WriteU16(UINT16 const* in, UINT count, DtNlByteOrder order) {
  if (m_io == nullptr || count > MAX_UINT / 2u || (in == nullptr && count != 0)) {
    return 0;
  }
  const UINT8* bytes = reinterpret_cast<const UINT8*>(in);
  if (order != DtNlBigEndian) {
    return m_io->WriteU8(bytes, count * 2u);
  }
  return writeSwapped(bytes, count, 2u);
}

UINT DtNlDataStream::WriteU32(UINT32 const* in, UINT count, DtNlByteOrder order) {
  if (m_io == nullptr || count > MAX_UINT / 4u || (in == nullptr && count != 0)) {
    return 0;
  }
  const UINT8* bytes = reinterpret_cast<const UINT8*>(in);
  if (order != DtNlBigEndian) {
    return m_io->WriteU8(bytes, count * 4u);
  }
  return writeSwapped(bytes, count, 4u);
}

UINT DtNlDataStream::writeSwapped(const UINT8* in, UINT count, UINT width) {
  UINT8 chunk[CHUNK_SIZE];
  const UINT perChunk = CHUNK_SIZE / width;
  UINT total = 0;
  UINT done = 0;
  // Each pass writes at least one value or stops.
  while (done < count) {
    const UINT left = count - done;
    const UINT n = left < perChunk ? left : perChunk;
    const UINT8* src = in + static_cast<std::size_t>(done) * width;
    for (UINT i = 0; i < n; ++i) {
      for (UINT b = 0; b < width; ++b) {
        chunk[i * width + b] = src[i * width + (width - 1u - b)];
      }
    }
    const UINT bytes = n * width;
    const UINT put = m_io->WriteU8(chunk, bytes);
    total += put;
    if (put < bytes) {
      break;
    }
    done += n;
  }
  return total;
}

UINT DtNlDataStream::ReadBit(UINT32* out, UINT bits) {
  if (out == nullptr) {
    return 0;  // caller error: nowhere to put the field; nothing is read
  }
  *out = 0;
  const UINT avail = 8u - static_cast<UINT>(m_bitPos);
  if (bits <= avail) {
    const UINT held = static_cast<UINT>(m_bitBuffer & MASK_BIT[m_bitPos]);
    *out = held >> (avail - bits);
    m_bitPos += static_cast<INT32>(bits);
    return bits;
  }
  if (m_io == nullptr) {
    return 0;
  }
  const UINT need = bits - avail;
  const UINT r = need & 7u;
  const UINT n = need / 8u + (r != 0 ? 1u : 0u);  // >= 1

  UINT32 value = 0;
  if (m_bitPos <= 7) {
    value = static_cast<UINT32>(m_bitBuffer & MASK_BIT[m_bitPos]);
  }
  UINT8 chunk[CHUNK_SIZE];
  UINT8 last = 0;
  UINT index = 0;  // bytes of the field taken so far
  // Each pass takes got > 0 bytes, or fills the rest with zeros, or returns.
  while (index < n) {
    const UINT left = n - index;
    const UINT want = left < CHUNK_SIZE ? left : CHUNK_SIZE;
    UINT got = m_io->ReadU8(chunk, want);
    if (got > want) {
      got = want;  // a channel never delivers more than asked
    }
    if (got == 0 && index == 0) {
      return 0;  // nothing delivered: the bit reader's state is unchanged
    }
    for (UINT i = 0; i < got; ++i, ++index) {
      if (index + 1u == n) {
        last = chunk[i];
      } else {
        // Only the lowest 32 bits of a wide field are kept.
        value = (value << 8) | chunk[i];
      }
    }
    if (got < want && index < n) {
      // The channel ran dry: the bytes it did not deliver count as 0. The
      // zero bytes before the last one shift the field left by 8 bits each.
      const UINT shifted = n - index - 1u;
      value = shifted >= 4u ? 0u : value << (8u * shifted);
      last = 0;
      index = n;
    }
  }

  if (r == 0) {
    value = (value << 8) | last;
    m_bitPos = 8;
  } else {
    const UINT top = static_cast<UINT>(last & static_cast<UINT8>(~MASK_BIT[r]));
    value = (top >> (8u - r)) | (value << r);
    m_bitPos = static_cast<INT32>(r);
  }
  m_bitBuffer = last;
  *out = value;
  return bits;
}

int DtNlDataStream::ClearBit() {
  if (m_bitPos > 7) {
    return 0;
  }
  m_bitPos = 8;
  if (m_io == nullptr) {
    return -1;
  }
  return m_io->Seek(-1, DtNlIoSeekCur);
}

int DtNlDataStream::FlushBit() {
  if (m_bitPos <= 7) {
    m_bitPos = 8;
  }
  return 0;
}
