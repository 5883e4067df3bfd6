// DtNlString.cpp - the utility layer's owning string (foundation layer, no
// dependencies beyond the C library).
//
// Every change builds the new block completely before the old one is freed, so
// a string may be set from its own text or from a piece of it.
//
//   DtNlString s("a/b");
//   int i = s.LastIndexOf("/", DtNlString::FROM_END);  // 1
#include "util/DtNlString.h"

#include <strings.h>

#include <cstring>

const int DtNlString::FROM_END;

namespace {

// A string built from a null text is treated as "" by every query and edit.
const char* textOrEmpty(const char* text) { return text != nullptr ? text : ""; }

// strlen narrowed to the string's 32-bit length type. Texts handled here live
// in memory, so they are far shorter than 4 GiB.
unsigned int textLength(const char* s) { return static_cast<unsigned int>(std::strlen(s)); }

}  // namespace

DtNlString::DtNlString() : text(new char[1]), length(0) { text[0] = '\0'; }

DtNlString::DtNlString(const char* s) : text(nullptr), length(0) { setString(s); }

DtNlString::DtNlString(DtNlString const& other) : text(nullptr), length(0) {
  setString(other.text);
}

DtNlString::DtNlString(const unsigned char* data, unsigned char size) : text(nullptr), length(0) {
  setString(data, size);
}

DtNlString& DtNlString::operator=(const char* s) {
  setString(s);
  return *this;
}

DtNlString& DtNlString::operator=(DtNlString const& other) {
  if (this == &other) {
    return *this;
  }
  setString(other.text);
  return *this;
}

DtNlString::~DtNlString() { delete[] text; }

void DtNlString::setString(const char* s) {
  if (s == nullptr) {
    return;
  }
  const unsigned int newLength = textLength(s);
  char* block = new char[newLength + 1u];
  std::memcpy(block, s, newLength + 1u);
  delete[] text;
  text = block;
  length = newLength;
}

void DtNlString::setString(const unsigned char* data, unsigned int size) {
  if (data == nullptr) {
    return;
  }
  // Deliberate: a size of 0 gives the empty string. There is no last byte to
  // inspect, and reading data[-1] would step outside the caller's array.
  unsigned int newLength = size;
  if (size > 0u && data[size - 1u] == 0u) {
    newLength = size - 1u;  // exactly one trailing NUL is dropped
  }
  char* block = new char[static_cast<std::size_t>(newLength) + 1u];
  std::memcpy(block, data, newLength);
  block[newLength] = '\0';
  delete[] text;
  text = block;
  length = newLength;
}

int DtNlString::Equals(const char* s) const {
  if (textLength(s) > length) {
    return 0;
  }
  return std::strcmp(textOrEmpty(text), s) == 0 ? 1 : 0;
}

int DtNlString::CaseEquals(const char* s) const {
  if (textLength(s) > length) {
    return 0;
  }
  return strcasecmp(textOrEmpty(text), s) == 0 ? 1 : 0;
}

int DtNlString::StartsWith(const char* s) const {
  const unsigned int n = textLength(s);
  if (n > length) {
    return 0;
  }
  return std::strncmp(textOrEmpty(text), s, n) == 0 ? 1 : 0;
}

int DtNlString::EndsWith(const char* s) const {
  const unsigned int n = textLength(s);
  if (n > length) {
    return 0;
  }
  return std::strncmp(textOrEmpty(text) + (length - n), s, n) == 0 ? 1 : 0;
}

int DtNlString::IndexOf(const char* s, int start) const {
  if (textLength(s) > length) {
    return -1;
  }
  // Deliberate: a start outside the text never reads outside the block. A
  // negative start searches from the beginning; a start past the end finds
  // nothing.
  if (start < 0) {
    start = 0;
  }
  if (static_cast<unsigned int>(start) > length) {
    return -1;
  }
  const char* base = textOrEmpty(text);
  const char* found = std::strstr(base + start, s);
  if (found == nullptr) {
    return -1;
  }
  return static_cast<int>(found - base);
}

int DtNlString::LastIndexOf(const char* s, int start) const {
  const unsigned int n = textLength(s);
  // 64-bit arithmetic: start + n and length - n must neither wrap nor
  // overflow, whatever the caller passes.
  long long from = start;
  if (start == FROM_END || from + static_cast<long long>(n) > static_cast<long long>(length)) {
    from = static_cast<long long>(length) - static_cast<long long>(n);
  }
  if (from < 0) {
    return -1;
  }
  const char* base = textOrEmpty(text);
  // from + n <= length here, so every comparison stays inside the block.
  for (long long i = from; i >= 0; --i) {
    if (std::strncmp(base + i, s, n) == 0) {
      return static_cast<int>(i);
    }
  }
  return -1;
}

DtNlString* DtNlString::SubStr(int start, DtNlString* out) {
  DtNlString* target = (out != nullptr) ? out : this;
  // Compared unsigned: a negative start is a no-op as well.
  if (static_cast<unsigned int>(start) >= length) {
    return target;
  }
  const unsigned int first = static_cast<unsigned int>(start);
  const unsigned int pieceLength = length - first;
  char* piece = new char[static_cast<std::size_t>(pieceLength) + 1u];
  std::memcpy(piece, text + first, pieceLength);
  piece[pieceLength] = '\0';
  target->setString(piece);
  delete[] piece;
  return target;
}

DtNlString* DtNlString::SubStr(int start, int end, DtNlString* out) {
  DtNlString* target = (out != nullptr) ? out : this;
  if (static_cast<unsigned int>(start) >= length || start >= end) {
    return target;
  }
  // Here 0 <= start < end, so end is positive.
  const unsigned int first = static_cast<unsigned int>(start);
  unsigned int last = static_cast<unsigned int>(end);
  if (last > length) {
    last = length;
  }
  const unsigned int pieceLength = last - first;
  char* piece = new char[static_cast<std::size_t>(pieceLength) + 1u];
  std::memcpy(piece, text + first, pieceLength);
  piece[pieceLength] = '\0';
  target->setString(piece);
  delete[] piece;
  return target;
}

DtNlString* DtNlString::Append(const char* s, DtNlString* out) {
  DtNlString* target = (out != nullptr) ? out : this;
  if (s == nullptr || s[0] == '\0') {
    return target;
  }
  const std::size_t n = std::strlen(s);
  const std::size_t total = static_cast<std::size_t>(length) + n;
  char* block = new char[total + 1u];
  if (length > 0u) {
    std::memcpy(block, text, length);
  }
  std::memcpy(block + length, s, n);
  block[total] = '\0';
  target->setString(block);
  delete[] block;
  return target;
}

DtNlString* DtNlString::Insert(int index, const char* s, DtNlString* out) {
  DtNlString* target = (out != nullptr) ? out : this;
  if (s == nullptr || s[0] == '\0') {
    return target;
  }
  // Compared unsigned: an index at or past the end, or negative, appends.
  if (static_cast<unsigned int>(index) >= length) {
    return Append(s, out);
  }
  const unsigned int head = static_cast<unsigned int>(index);
  const std::size_t n = std::strlen(s);
  const std::size_t total = static_cast<std::size_t>(length) + n;
  char* block = new char[total + 1u];
  std::memcpy(block, text, head);
  std::memcpy(block + head, s, n);
  std::memcpy(block + head + n, text + head, length - head);
  block[total] = '\0';
  target->setString(block);
  delete[] block;
  return target;
}
