// DtNlTextStream.h - line-based text reader and writer over one channel.
//
// Part of the files-and-streams layer, beside DtNlDataStream, and managing its
// channel the same way. Input lines may end in LF, CR LF or a lone CR; the
// line end is consumed and counted but never stored. Output lines get the
// configured line end (CR LF unless SetLineEnd chose another). The stream logs
// nothing and records no error of its own: a channel whose status shows an
// error (kept until the channel's next Open) makes every later read that
// meets the end of data, and every write, report 0.
//
//   DtNlTextStream ts;                        // owns a DtNlFileIo
//   if (ts.Open("/sdcard/list.txt", "rb") == 0) {
//     char line[128];
//     while (ts.ReadLine(line, sizeof line) != 0) { use(line); }
//   }
//
// Pointer members: m_io is owned when m_ownsIo is 1 (created by the stream,
// deleted by it) and borrowed otherwise (lent by the caller, must outlive the
// stream; never closed or deleted by it).
#ifndef KPZ_UTIL_IO_DTNLTEXTSTREAM_H
#define KPZ_UTIL_IO_DTNLTEXTSTREAM_H

#include "util/DtNlTypes.h"

class DtNlFile;
class DtNlIo;
class DtNlString;

class DtNlTextStream {
 public:
  // Values of the line end written by WriteLine; any other value means LF.
  static const INT32 LINE_END_CRLF = 0;
  static const INT32 LINE_END_CR = 1;
  static const INT32 LINE_END_LF = 2;

  // Creates and owns a file channel; line end CR LF.
  DtNlTextStream();
  // Borrows `io`; a null `io` behaves as the default constructor.
  explicit DtNlTextStream(DtNlIo* io);
  // Deletes the channel if the stream owns it.
  ~DtNlTextStream();

  DtNlTextStream(const DtNlTextStream&) = delete;
  DtNlTextStream& operator=(const DtNlTextStream&) = delete;

  // Opens a file through the channel; an owned memory channel is first closed
  // and replaced by a file channel. The channel's Open result (0 / -1); a lent
  // channel of the wrong kind fails with DtNlErrNotSupported in the channel.
  int Open(const char* path, const char* mode);
  int Open(DtNlFile const& file, const char* mode);
  // Opens a memory block; an owned file channel is first closed and replaced
  // by a memory channel. Otherwise as the path variant.
  int Open(const unsigned char* buffer, unsigned int size);

  // Reads one line into `buf`, storing at most size - 1 characters and a NUL.
  // Returns the bytes taken from the channel, line end included: 0 at the end
  // of data with nothing read, and 0 when the channel shows an error where the
  // data ends or a lone CR cannot be pushed back. A line longer than size - 1
  // characters comes back in pieces of size - 1; the rest stays unread. A
  // null `buf` or a `size` below 2 reads nothing and returns 0 (`buf[0]` is
  // NUL when size is 1).
  unsigned int ReadLine(char* buf, unsigned int size);
  // As above into `line`, at most `size` characters. On a channel error (or a
  // null `line`, or no memory for the size + 1 byte temporary) returns 0 and
  // leaves `line` unchanged.
  unsigned int ReadLine(DtNlString* line, unsigned int size);

  // Writes `len` bytes of `text` and the line end. Returns the bytes written
  // including the line end; 0 for `len` 0 (nothing is written), for a null
  // `text`, or when the channel shows an error after either write.
  unsigned int WriteLine(const char* text, unsigned int len);

  // The line end WriteLine uses: LINE_END_CRLF, LINE_END_CR, else LF.
  INT32 GetLineEnd() const;
  void SetLineEnd(INT32 lineEnd);

  // The channel all I/O goes through (null only if it could not be created).
  DtNlIo* GetIo() const;

 private:
  // Makes sure the stream's channel is of `kind`, replacing an owned channel
  // of another kind. Lent channels are left as they are.
  void ensureOwnedKind(INT32 kind);
  // 1 when the channel's status shows an error (or there is no channel).
  int channelFailed() const;

  DtNlIo* m_io;       // owned when m_ownsIo, else borrowed
  INT32 m_lineEnd;    // LINE_END_CRLF (every constructor), LINE_END_CR, else LF
  INT32 m_ownsIo;     // 1 when the stream created m_io
};

#endif  // KPZ_UTIL_IO_DTNLTEXTSTREAM_H
