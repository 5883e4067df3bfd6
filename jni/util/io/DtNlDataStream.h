// DtNlDataStream.h - byte-order aware reader and writer over one channel.
//
// Part of the files-and-streams layer; the raw parse engine and the IFD parsers
// read the TIFF-structured file through it. It reads and writes 16- and 32-bit
// values in a chosen byte order and bit fields of any width (most significant
// bit first). It has no close, seek or byte read of its own: users reach the
// channel through GetIo(). It logs nothing and records no error of its own;
// failures are the channel's (its return values and GetIo()->GetStatus()).
//
//   DtNlDataStream ds;                          // owns a DtNlFileIo
//   if (ds.Open("/sdcard/a.kpz", "rb") == 0) {
//     UINT16 order;
//     ds.ReadU16(&order, 1, DtNlLittleEndian);
//     ds.GetIo()->Seek(8, DtNlIoSeekSet);
//   }
//
// Pointer members: m_io is owned when m_ownsIo is 1 and borrowed otherwise
// (lent by the caller, must outlive the stream; never closed or deleted by
// it). A channel the stream makes for itself is one of the two it carries
// inside (m_fileIo, m_memoryIo): switching between a file and a memory block
// closes the one and takes the other, with no allocation.
#ifndef KPZ_UTIL_IO_DTNLDATASTREAM_H
#define KPZ_UTIL_IO_DTNLDATASTREAM_H

#include "util/DtNlDataUtil.h"
#include "util/DtNlTypes.h"
#include "util/io/DtNlBuffIo.h"
#include "util/io/DtNlFileIo.h"

class DtNlFile;
class DtNlIo;

class DtNlDataStream {
 public:
  // MASK_BIT[i] == 0xFF >> i: the bits of a byte left after i were consumed.
  static const UINT8 MASK_BIT[9];

  // Creates and owns a file channel.
  DtNlDataStream();
  // Borrows `io`; a null `io` behaves as the default constructor.
  explicit DtNlDataStream(DtNlIo* io);
  // Deletes the channel if the stream owns it.
  ~DtNlDataStream();

  DtNlDataStream(const DtNlDataStream&) = delete;
  DtNlDataStream& operator=(const DtNlDataStream&) = delete;

  // Opens a file through the channel; an owned memory channel is first
  // replaced by a file channel. The channel's Open result (0 / -1); a lent
  // channel of the wrong kind fails with DtNlErrNotSupported in the channel.
  // The bit reader's state is kept.
  int Open(const char* path, const char* mode);
  int Open(DtNlFile const& file, const char* mode);
  // Opens a memory block; an owned file channel is first closed and replaced
  // by a memory channel. Otherwise as the path variant.
  int Open(const UINT8* buffer, UINT size);

  // Reads `count` values; big-endian values (order 0) are swapped in place,
  // any other order is taken as read. Returns the bytes read, or 0 when fewer
  // than count * width came back (what was read stays in `out`, unswapped) or
  // when count * width does not fit in 32 bits (nothing is read).
  UINT ReadU16(UINT16* out, UINT count, DtNlByteOrder order);
  UINT ReadU32(UINT32* out, UINT count, DtNlByteOrder order);
  // Writes `count` values in `order`; the caller's values are never changed.
  // Returns the bytes the channel accepted; a big-endian write goes out in
  // stack-sized pieces and stops at the first piece accepted short. 0 when
  // count * width does not fit in 32 bits.
  UINT WriteU16(UINT16 const* in, UINT count, DtNlByteOrder order);
  UINT WriteU32(UINT32 const* in, UINT count, DtNlByteOrder order);

  // Reads a `bits`-wide field, most significant bit first, right-aligned in
  // *out (a field wider than 32 bits keeps its lowest 32). Returns `bits`, or 0
  // when the channel delivered nothing (state unchanged, *out 0). Bytes the
  // channel fails to deliver after the first count as 0.
  UINT ReadBit(UINT32* out, UINT bits);
  // Drops a partly consumed byte and steps the channel back onto it: the
  // channel's Seek result; 0 without a seek when no byte is partly consumed.
  int ClearBit();
  // Drops a partly consumed byte without moving the channel; always 0.
  int FlushBit();

  // The channel all I/O goes through (never null unless allocation failed).
  DtNlIo* GetIo() const;

 private:
  // Makes sure the stream's channel is of `kind`, replacing an owned channel
  // of another kind. Lent channels are left as they are.
  void ensureOwnedKind(INT32 kind);
  // Writes `count` values of `width` bytes byte-swapped through a stack buffer.
  UINT writeSwapped(const UINT8* in, UINT count, UINT width);

  DtNlIo* m_io;           // owned when m_ownsIo (then &m_fileIo or &m_memoryIo), else borrowed
  INT32 m_ownsIo;         // 1 when the stream created m_io
  UINT8 m_bitBuffer;      // the byte bit reads are served from
  INT32 m_bitPos;         // bits of m_bitBuffer consumed, 0..8; 8 = empty
  DtNlFileIo m_fileIo;    // the stream's own file channel
  DtNlBuffIo m_memoryIo;  // the stream's own memory channel
};

#endif  // KPZ_UTIL_IO_DTNLDATASTREAM_H
