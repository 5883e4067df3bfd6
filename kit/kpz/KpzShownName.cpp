// KpzShownName.cpp - file names escaped for a line of output (kit/kpz).
// See KpzShownName.h for the form.

#include "kpz/KpzShownName.h"

#include <cstddef>
#include <cstdint>

namespace {

// The length of the valid UTF-8 sequence at name[i] (1..4), or 0 when the
// byte there does not begin one. *cp is set to its code point.
std::size_t sequenceAt(const std::string& name, std::size_t i, std::uint32_t* cp) {
  const unsigned char b = static_cast<unsigned char>(name[i]);
  std::size_t len = 0;
  std::uint32_t v = 0;
  std::uint32_t least = 0;
  if (b < 0x80) {
    *cp = b;
    return 1;
  } else if (b >= 0xC2 && b <= 0xDF) {
    len = 2;
    v = b & 0x1Fu;
    least = 0x80;
  } else if (b >= 0xE0 && b <= 0xEF) {
    len = 3;
    v = b & 0x0Fu;
    least = 0x800;
  } else if (b >= 0xF0 && b <= 0xF4) {
    len = 4;
    v = b & 0x07u;
    least = 0x10000;
  } else {
    return 0;
  }
  if (len > name.size() - i) {
    return 0;
  }
  for (std::size_t k = 1; k < len; ++k) {
    const unsigned char c = static_cast<unsigned char>(name[i + k]);
    if ((c & 0xC0u) != 0x80u) {
      return 0;
    }
    v = (v << 6) | (c & 0x3Fu);
  }
  if (v < least || v > 0x10FFFF || (v >= 0xD800 && v <= 0xDFFF)) {
    return 0;  // overlong, beyond Unicode, or a surrogate
  }
  *cp = v;
  return len;
}

bool isControl(std::uint32_t cp) {
  return cp < 0x20 || cp == 0x7F || (cp >= 0x80 && cp <= 0x9F) || cp == 0x2028 || cp == 0x2029;
}

void appendOctal(std::string* out, unsigned char b) {
  *out += '\\';
  *out += static_cast<char>('0' + ((b >> 6) & 7));
  *out += static_cast<char>('0' + ((b >> 3) & 7));
  *out += static_cast<char>('0' + (b & 7));
}

}  // namespace

bool KpzShownName::IsPlain(const std::string& name) {
  if (!name.empty() && name[0] == '\'') {
    return false;
  }
  std::size_t i = 0;
  while (i < name.size()) {  // each pass consumes at least one byte
    std::uint32_t cp = 0;
    const std::size_t len = sequenceAt(name, i, &cp);
    if (len == 0 || isControl(cp)) {
      return false;
    }
    i += len;
  }
  return true;
}

std::string KpzShownName::Of(const std::string& name) {
  if (IsPlain(name)) {
    return name;
  }
  std::string out = "'";
  std::size_t i = 0;
  while (i < name.size()) {  // each pass consumes at least one byte
    std::uint32_t cp = 0;
    const std::size_t len = sequenceAt(name, i, &cp);
    if (len == 0) {
      appendOctal(&out, static_cast<unsigned char>(name[i]));
      ++i;
      continue;
    }
    if (isControl(cp)) {
      const char* named = nullptr;
      switch (cp) {
        case '\n': named = "\\n"; break;
        case '\t': named = "\\t"; break;
        case '\r': named = "\\r"; break;
        case '\a': named = "\\a"; break;
        case '\b': named = "\\b"; break;
        case '\f': named = "\\f"; break;
        case '\v': named = "\\v"; break;
        default: break;
      }
      if (named != nullptr) {
        out += named;
      } else {
        for (std::size_t k = 0; k < len; ++k) {
          appendOctal(&out, static_cast<unsigned char>(name[i + k]));
        }
      }
    } else if (cp == '\\') {
      out += "\\\\";
    } else if (cp == '\'') {
      out += "\\'";
    } else {
      out.append(name, i, len);
    }
    i += len;
  }
  return out + "'";
}
