// DtNlTextStream.cpp - line reads and writes over one channel (files-and-streams
// layer).
//
//   DtNlTextStream ts;
//   ts.Open(block, blockSize);
//   char line[64];
//   unsigned int taken = ts.ReadLine(line, sizeof line);
#include "util/io/DtNlTextStream.h"

#include <new>

#include "util/DtNlString.h"
#include "util/io/DtNlBuffIo.h"
#include "util/io/DtNlFile.h"
#include "util/io/DtNlFileIo.h"
#include "util/io/DtNlIo.h"

namespace {

const UINT8 kCr = 0x0D;
const UINT8 kLf = 0x0A;
const UINT8 kCrLf[2] = {kCr, kLf};

// A new channel of `kind`, or null when the heap is exhausted.
DtNlIo* NewChannel(INT32 kind) {
  if (kind == DtNlIo::KIND_FILE) {
    return new (std::nothrow) DtNlFileIo();
  }
  return new (std::nothrow) DtNlBuffIo();
}

}  // namespace

const INT32 DtNlTextStream::LINE_END_CRLF;
const INT32 DtNlTextStream::LINE_END_CR;
const INT32 DtNlTextStream::LINE_END_LF;

DtNlTextStream::DtNlTextStream()
    : m_io(NewChannel(DtNlIo::KIND_FILE)), m_lineEnd(LINE_END_CRLF), m_ownsIo(1) {}

DtNlTextStream::DtNlTextStream(DtNlIo* io) : m_io(io), m_lineEnd(LINE_END_CRLF), m_ownsIo(0) {
  if (io == nullptr) {
    m_io = NewChannel(DtNlIo::KIND_FILE);
    m_ownsIo = 1;
  }
}

DtNlTextStream::~DtNlTextStream() {
  if (m_ownsIo != 0 && m_io != nullptr) {
    delete m_io;
  }
  m_io = nullptr;
}

DtNlIo* DtNlTextStream::GetIo() const { return m_io; }

INT32 DtNlTextStream::GetLineEnd() const { return m_lineEnd; }

void DtNlTextStream::SetLineEnd(INT32 lineEnd) { m_lineEnd = lineEnd; }

void DtNlTextStream::ensureOwnedKind(INT32 kind) {
  if (m_ownsIo == 0) {
    return;  // a lent channel is used as it is
  }
  if (m_io != nullptr && m_io->GetKind() == kind) {
    return;
  }
  if (m_io != nullptr) {
    m_io->Close();
    delete m_io;
  }
  // An owned channel that could not be created earlier is created now.
  m_io = NewChannel(kind);
}

int DtNlTextStream::channelFailed() const {
  if (m_io == nullptr) {
    return 1;
  }
  return m_io->GetStatus().IsFailure() ? 1 : 0;
}

int DtNlTextStream::Open(const char* path, const char* mode) {
  ensureOwnedKind(DtNlIo::KIND_FILE);
  if (m_io == nullptr) {
    return -1;
  }
  return m_io->Open(path, mode);
}

int DtNlTextStream::Open(DtNlFile const& file, const char* mode) {
  const DtNlString path(file.GetPath());
  return Open(path.text, mode);
}

int DtNlTextStream::Open(const unsigned char* buffer, unsigned int size) {
  ensureOwnedKind(DtNlIo::KIND_MEMORY);
  if (m_io == nullptr) {
    return -1;
  }
  return m_io->Open(buffer, size);
}

unsigned int DtNlTextStream::ReadLine(char* buf, unsigned int size) {
  if (buf == nullptr || size == 0) {
    return 0;  // deliberate: no room even for the terminator
  }
  buf[0] = 0;
  if (size < 2 || m_io == nullptr) {
    return 0;  // deliberate: no room for a character, or no channel
  }
  buf[size - 1] = 0;
  UINT8* const bytes = reinterpret_cast<UINT8*>(buf);
  unsigned int count = 0;
  // Each round stores one byte at bytes[count] (count <= size - 2) or
  // returns, so the loop ends after at most size - 1 rounds.
  while (count < size - 1) {
    if (m_io->ReadU8(bytes + count, 1) == 0) {
      if (channelFailed() != 0) {
        return 0;
      }
      bytes[count] = 0;  // end of data: keep what was read
      return count;
    }
    ++count;
    const unsigned int at = count - 1;  // where the byte just read lies
    if (bytes[at] == kLf) {
      bytes[at] = 0;
      return count;
    }
    if (bytes[at] == kCr) {
      // The next byte goes into the CR's place.
      if (m_io->ReadU8(bytes + at, 1) == 0) {
        if (channelFailed() != 0) {
          return 0;
        }
        bytes[at] = 0;
        return count;
      }
      if (bytes[at] == kLf) {
        ++count;
        bytes[at] = 0;
        return count;
      }
      // A lone CR: the byte after it starts the next line.
      if (m_io->Seek(-1, DtNlIoSeekCur) != 0) {
        return 0;
      }
      bytes[at] = 0;
      return count;
    }
  }
  // size - 1 characters stored; bytes[size - 1] is the terminator and the rest
  // of the line stays unread for the next call.
  return count;
}

unsigned int DtNlTextStream::ReadLine(DtNlString* line, unsigned int size) {
  if (line == nullptr || size == 0xFFFFFFFFu) {
    return 0;  // deliberate: nowhere to store, or size + 1 would wrap to 0
  }
  char* const temp = new (std::nothrow) char[size + 1u]();
  if (temp == nullptr) {
    return 0;
  }
  unsigned int count = ReadLine(temp, size + 1u);
  if (channelFailed() != 0) {
    count = 0;  // `line` keeps its text
  } else {
    *line = temp;
  }
  delete[] temp;
  return count;
}

unsigned int DtNlTextStream::WriteLine(const char* text, unsigned int len) {
  if (len == 0) {
    return 0;  // nothing at all is written, not even a line end
  }
  if (text == nullptr || m_io == nullptr) {
    return 0;  // deliberate: nothing to write from, or nowhere to write to
  }
  const UINT written = m_io->WriteU8(reinterpret_cast<const UINT8*>(text), len);
  if (channelFailed() != 0) {
    return 0;
  }
  const UINT8* lineEnd = kCrLf;
  UINT lineEndSize = 2;
  if (m_lineEnd == LINE_END_CR) {
    lineEndSize = 1;
  } else if (m_lineEnd != LINE_END_CRLF) {
    lineEnd = kCrLf + 1;  // LF alone
    lineEndSize = 1;
  }
  const UINT endWritten = m_io->WriteU8(lineEnd, lineEndSize);
  if (channelFailed() != 0) {
    return 0;
  }
  return written + endWritten;
}
