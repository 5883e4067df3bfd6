// KpzServeHttp.h - the small HTTP rules kpz serve applies to a request's
// already-parsed fields: byte ranges, dates, entity tags, the signature of a
// signed URL, and the checks on a URL's path.
//
// Part of the kpz tool (tools/kpz/serve), beside KpzServe, which takes the
// fields from libmicrohttpd. Nothing here reads a socket.
//
//   KpzServeHttp::Range r = KpzServeHttp::ParseRange("bytes=0-99", 1000);
//   // r.kind == Satisfiable, r.first == 0, r.length == 100
//
// Holds nothing; every operation is a static function.
#ifndef KPZ_TOOLS_KPZ_SERVE_KPZSERVEHTTP_H
#define KPZ_TOOLS_KPZ_SERVE_KPZSERVEHTTP_H

#include <ctime>
#include <cstdint>
#include <string>

class KpzServeHttp {
 public:
  struct Range {
    enum class Kind {
      None,           // no Range, or one this server answers with the whole body
                      // (several ranges, another unit, a malformed value)
      Satisfiable,    // one range inside the body: answer 206
      Unsatisfiable   // one range wholly past the end: answer 416
    };
    Kind kind = Kind::None;
    std::uint64_t first = 0;
    std::uint64_t length = 0;
  };

  // One `bytes=` range of a body of `size` bytes ("a-b", "a-", "-n").
  static Range ParseRange(const char* header, std::uint64_t size);

  // An IMF-fixdate ("Sun, 06 Nov 1994 08:49:37 GMT") for `when`.
  static std::string Date(std::time_t when);
  // Its reverse; false for anything else.
  static bool ParseDate(const char* text, std::time_t* when);

  // Whether an If-None-Match value names `etag` (or is "*"); a weak tag
  // (W/"...") matches its strong twin, as the weak comparison asks.
  static bool MatchesEtag(const char* ifNoneMatch, const std::string& etag);

  // The signature of `message` under `key`: HMAC-SHA256 (OpenSSL's
  // libcrypto), as 64 lower-case hexadecimal digits.
  static std::string Sign(const std::string& key, const std::string& message);
  // Whether `signature` is Sign(key, message), compared in constant time.
  static bool Verify(const std::string& key, const std::string& message,
                     const char* signature);

  // The path of a URL as the client sent it (no query), decoded: false for
  // a path that encodes a '/', a '\' or a NUL (%2F, %5C, %00), holds a
  // raw '\', or does not start with '/'. Other %XX are decoded
  // (libmicrohttpd's MHD_http_unescape).
  static bool DecodePath(const char* raw, std::string* decoded);
  // A query value as sent, decoded (%XX); false when it decodes to a NUL.
  static bool DecodeValue(const char* raw, std::string* decoded);
};

#endif  // KPZ_TOOLS_KPZ_SERVE_KPZSERVEHTTP_H
