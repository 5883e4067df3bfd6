// DtNlBuffIo.h - the byte channel over a caller-owned memory block.
//
// Part of the files-and-streams layer: the raw-file facade parses a file's first
// 64 KiB through it, and DtNlDataStream creates one when opened on a buffer. A
// memory channel never grows: reads and writes are clamped to the block, and
// reaching its end sets the end flag (IsEof). It logs nothing and records no
// error code of its own (only Open's DtNlErrAlreadyOpen / the base class's
// DtNlErrNotSupported).
//
//   DtNlBuffIo io;
//   io.Open(block, blockSize);
//   io.Seek(3, DtNlIoSeekEnd);           // 3 bytes before the end
//   UINT got = io.ReadU8(dst, 8);        // 3; IsEof() is now 1
//
// Pointer members: m_buffer is borrowed (must outlive the channel or the next
// Close); the channel never frees it.
#ifndef KPZ_UTIL_IO_DTNLBUFFIO_H
#define KPZ_UTIL_IO_DTNLBUFFIO_H

#include "util/DtNlTypes.h"
#include "util/io/DtNlIo.h"

class DtNlBuffIo : public DtNlIo {
 public:
  DtNlBuffIo();
  // Forgets the block (Close).
  ~DtNlBuffIo() override;

  using DtNlIo::Open;
  // Attaches `size` bytes at `buffer`, position 0. -1 with DtNlErrAlreadyOpen
  // if a block is attached. A null buffer is accepted: it reads and writes
  // nothing.
  int Open(const UINT8* buffer, UINT size) override;
  // Forgets the block, its size and the position; always 0.
  int Close() override;
  // Copies min(size, bytes left) bytes; when the request reaches or passes the
  // end of the block the end flag is set. 0 when nothing is left.
  UINT ReadU8(UINT8* dst, UINT size) override;
  // The same bounds rule as ReadU8, copying into the block.
  UINT WriteU8(UINT8 const* src, UINT size) override;
  // Low 32 bits of `offset`, signed. Set: offset; Cur: position + offset;
  // End: size - offset (a positive offset moves toward the start); Base:
  // offset + base offset. A negative target becomes 0; a target at or past the
  // end clamps to the size and sets the end flag, otherwise the flag is
  // cleared. 0, or -1 (nothing changed) for an origin above 3.
  int Seek(long long offset, DtNlIoSeekPos origin) override;
  // The position; Tell gives -1 for a position beyond the int range.
  int Tell() override;
  long long Tell64() override;
  // The end flag.
  int IsEof() const override;

  // The attached block from the current position on, without copying it:
  // *bytes points at the position (null when no block is attached) and the
  // result is the count of bytes left there. Nothing moves. The bytes stay the
  // block owner's and are valid until Close or the block's end of life. For
  // readers that decode many small fields in one go; they move the position
  // afterwards with Seek.
  UINT View(const UINT8** bytes) const;

 private:
  // Bytes a transfer of `size` may move now; sets the end flag when the request
  // reaches the end of the block.
  UINT clampToEnd(UINT size);

  UINT8* m_buffer;  // borrowed, never freed; null when nothing is attached
  UINT m_size;      // bytes in the block
  UINT m_position;  // always <= m_size
};

#endif  // KPZ_UTIL_IO_DTNLBUFFIO_H
