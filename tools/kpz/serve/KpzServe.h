// KpzServe.h - `kpz serve ROOT`: the KPZ files beneath ROOT over HTTP/1.1,
// their previews and thumbnails sent straight from the raw file's own
// descriptor (sendfile), their metadata as `kpz info --json` gives it, and a
// gallery page.
//
// Part of the kpz tool (tools/kpz/serve), a front end over the kit: a file
// is opened beneath ROOT (KpzBeneath), checked and its head read
// (KpzSource), the head parsed once into the record of both its pictures
// and its orientation (DtRawRecord), a picture turned (KpzExtraction::Turn)
// and the metadata read (KpzMetadataReader, KpzInfoJson) by the kit's own
// steps; a failure is answered by one table of its kind (KpzServeFailure).
// HTTP is libmicrohttpd's: this file parses no request; it routes them,
// answers them and keeps the limits.
//
//   KpzServe::Options o;
//   o.root = "photos";
//   KpzServe server(o);
//   std::string why;
//   if (!server.Start(&why)) { ... }
//   std::printf("%s\n", server.Url().c_str());   // http://127.0.0.1:PORT/
//   while (!stopRequested) server.Tick();          // every ~250 ms: cuts slow clients
//   server.Stop();                                  // drains within o.drainSeconds
//
// Owns the daemon, the root's descriptor and every cache; not copyable.
// Start, Tick and Stop are called from one thread; requests are answered
// on libmicrohttpd's thread pool.
#ifndef KPZ_TOOLS_KPZ_SERVE_KPZSERVE_H
#define KPZ_TOOLS_KPZ_SERVE_KPZSERVE_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

class KpzServe {
 public:
  struct Options {
    std::string root;                   // the directory served
    std::string host = "127.0.0.1";     // numeric IPv4 or IPv6 address, or a name
    unsigned port = 8080;               // 0: any free port (Port() tells it)
    std::string cacheControl = "no-cache";
    std::vector<std::string> extensions = {".kpz"};  // lower case, with the dot
    std::string key;                    // HMAC key of signed URLs; empty: not signed
    unsigned threads = 0;               // 0: one per processor
    unsigned maxConnections = 2048;     // more are answered 503 and closed
    unsigned maxRequests = 256;         // requests in progress; more are answered 503
    unsigned timeoutSeconds = 10;       // idle connection, and time to send a request's head
    unsigned requestSeconds = 300;      // one response's whole time
    unsigned maxUrlBytes = 4096;        // longer: 414
    unsigned maxHeaderBytes = 8192;     // all header lines together; more: 431
    unsigned cacheEntries = 8192;       // located pictures kept (by file identity)
    std::size_t turnedCacheBytes = 64u << 20;  // turned pictures kept (?upright=1); 0: none
    // Small pictures (a thumbnail) kept with their located place as the
    // whole answer to a plain GET, headers and bytes, sent again as they
    // are while the file stays the same; 0: none.
    std::size_t readyBytes = 32u << 20;
    unsigned retryAfterSeconds = 1;     // told with a 503
    unsigned drainSeconds = 5;          // Stop waits this long for answers under way
    unsigned listLimit = 1000;          // most entries one /list page gives
    int logFd = 2;                      // where libmicrohttpd's complaints are written
    bool logConnections = false;        // them too: a line per client gone or cut
  };

  explicit KpzServe(Options options);
  ~KpzServe();
  KpzServe(const KpzServe&) = delete;
  KpzServe& operator=(const KpzServe&) = delete;

  // Opens ROOT and starts listening. False with *error in words.
  bool Start(std::string* error);
  // The port listened on (the one the system chose for port 0).
  unsigned Port() const;
  // "http://HOST:PORT/".
  std::string Url() const;
  // Cuts connections over their time (a request's head not sent within
  // timeoutSeconds, a response not done within requestSeconds). Call often
  // (every 250 ms or so).
  void Tick();
  // Stops accepting, closes idle connections, waits up to drainSeconds for
  // the answers under way, then stops. Safe to call twice.
  void Stop();

  struct Impl;

 private:
  std::unique_ptr<Impl> m_impl;
};

#endif  // KPZ_TOOLS_KPZ_SERVE_KPZSERVE_H
