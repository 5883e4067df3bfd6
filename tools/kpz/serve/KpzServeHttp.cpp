// KpzServeHttp.cpp - ranges, dates, tags, signatures and paths for kpz
// serve (tools/kpz/serve). See the header.
#include "kpz/serve/KpzServeHttp.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <microhttpd.h>

#include <cctype>
#include <cstring>
#include <limits>

namespace {

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// Decimal digits at *p into *out, moving *p past them; false when there
// are none or they overflow.
bool readNumber(const char** p, std::uint64_t* out) {
  const char* s = *p;
  if (!std::isdigit(static_cast<unsigned char>(*s))) {
    return false;
  }
  std::uint64_t v = 0;
  while (std::isdigit(static_cast<unsigned char>(*s))) {
    const unsigned d = static_cast<unsigned>(*s - '0');
    if (v > (std::numeric_limits<std::uint64_t>::max() - d) / 10) {
      return false;
    }
    v = v * 10 + d;
    ++s;
  }
  *p = s;
  *out = v;
  return true;
}

// libmicrohttpd's decoding of %XX in the bytes of `raw` before `stop`;
// false when they decode to a NUL.
bool unescape(const char* raw, char stop, std::string* out) {
  const char* end = std::strchr(raw, stop);
  out->assign(raw, end != nullptr ? static_cast<std::size_t>(end - raw) : std::strlen(raw));
  const std::size_t n = MHD_http_unescape(&(*out)[0]);
  if (std::strlen(out->c_str()) != n) {
    return false;
  }
  out->resize(n);
  return true;
}

}  // namespace

KpzServeHttp::Range KpzServeHttp::ParseRange(const char* header, std::uint64_t size) {
  Range r;
  if (header == nullptr || std::strncmp(header, "bytes=", 6) != 0) {
    return r;
  }
  const char* p = header + 6;
  while (*p == ' ') ++p;
  std::uint64_t first = 0;
  std::uint64_t last = 0;
  if (*p == '-') {  // the last n bytes
    ++p;
    std::uint64_t n = 0;
    if (!readNumber(&p, &n)) return r;
    while (*p == ' ') ++p;
    if (*p != '\0') return r;  // several ranges: the whole body
    if (n == 0 || size == 0) {
      r.kind = Range::Kind::Unsatisfiable;
      return r;
    }
    r.kind = Range::Kind::Satisfiable;
    r.length = n < size ? n : size;
    r.first = size - r.length;
    return r;
  }
  if (!readNumber(&p, &first) || *p != '-') return r;
  ++p;
  const bool open = !std::isdigit(static_cast<unsigned char>(*p));
  if (!open && !readNumber(&p, &last)) return r;
  while (*p == ' ') ++p;
  if (*p != '\0') return r;
  if (!open && last < first) return r;  // malformed: ignored
  if (first >= size) {
    r.kind = Range::Kind::Unsatisfiable;
    return r;
  }
  if (open || last >= size) {
    last = size - 1;
  }
  r.kind = Range::Kind::Satisfiable;
  r.first = first;
  r.length = last - first + 1;
  return r;
}

std::string KpzServeHttp::Date(std::time_t when) {
  struct tm t;
  gmtime_r(&when, &t);
  char out[40];
  std::strftime(out, sizeof out, "%a, %d %b %Y %H:%M:%S GMT", &t);
  return out;
}

bool KpzServeHttp::ParseDate(const char* text, std::time_t* when) {
  if (text == nullptr) return false;
  struct tm t;
  std::memset(&t, 0, sizeof t);
  const char* end = strptime(text, "%a, %d %b %Y %H:%M:%S GMT", &t);
  if (end == nullptr || *end != '\0') return false;
  *when = timegm(&t);
  return true;
}

bool KpzServeHttp::MatchesEtag(const char* ifNoneMatch, const std::string& etag) {
  if (ifNoneMatch == nullptr) return false;
  const char* p = ifNoneMatch;
  while (*p != '\0') {  // one tag per pass
    while (*p == ' ' || *p == ',' || *p == '\t') ++p;
    if (*p == '*') return true;
    if (p[0] == 'W' && p[1] == '/') p += 2;
    if (*p != '"') return false;
    const char* close = std::strchr(p + 1, '"');
    if (close == nullptr) return false;
    const std::size_t n = static_cast<std::size_t>(close - p + 1);
    if (n == etag.size() && std::memcmp(p, etag.data(), n) == 0) return true;
    p = close + 1;
  }
  return false;
}

std::string KpzServeHttp::Sign(const std::string& key, const std::string& message) {
  unsigned char mac[EVP_MAX_MD_SIZE];
  unsigned int macLength = 0;
  HMAC(EVP_sha256(), key.data(), static_cast<int>(key.size()),
       reinterpret_cast<const unsigned char*>(message.data()), message.size(), mac, &macLength);
  static const char kHex[] = "0123456789abcdef";
  std::string out;
  out.reserve(macLength * 2);
  for (unsigned int i = 0; i < macLength; ++i) {
    out.push_back(kHex[mac[i] >> 4]);
    out.push_back(kHex[mac[i] & 15]);
  }
  return out;
}

bool KpzServeHttp::Verify(const std::string& key, const std::string& message,
                          const char* signature) {
  if (signature == nullptr) return false;
  const std::string want = Sign(key, message);
  if (std::strlen(signature) != want.size()) return false;
  return CRYPTO_memcmp(want.data(), signature, want.size()) == 0;
}

bool KpzServeHttp::DecodePath(const char* raw, std::string* decoded) {
  if (raw == nullptr || raw[0] != '/') return false;
  for (const char* s = raw; *s != '\0' && *s != '?'; ++s) {
    if (*s == '\\') return false;
    if (*s == '%' && hexValue(s[1]) >= 0 && hexValue(s[2]) >= 0) {
      const int c = hexValue(s[1]) * 16 + hexValue(s[2]);
      if (c == '/' || c == '\\' || c == 0) return false;
    }
  }
  return unescape(raw, '?', decoded);
}

bool KpzServeHttp::DecodeValue(const char* raw, std::string* decoded) {
  if (raw == nullptr) {
    decoded->clear();
    return true;
  }
  return unescape(raw, '\0', decoded);
}
