// KpzServeMetrics.h - what kpz serve counts, told as Prometheus text at
// /metrics: requests by route and status, bytes of bodies sent, a latency
// histogram by route, failures by kind, the heads parsed and the connections
// cut.
//
// Part of the kpz tool (tools/kpz/serve). Fixed arrays of atomic counters:
// counting takes no lock and no memory, whatever the traffic.
#ifndef KPZ_TOOLS_KPZ_SERVE_KPZSERVEMETRICS_H
#define KPZ_TOOLS_KPZ_SERVE_KPZSERVEMETRICS_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

class KpzServeMetrics {
 public:
  enum Route { Page, List, Preview, Thumbnail, Info, Metrics, Health, Asset, Other, kRoutes };
  enum Failure {
    NotFound,     // 404: not there or not allowed
    NotKpz,       // 422: the file's kinds of failure (KpzServeFailure's table)
    Damaged,      // 422
    NoPreview,    // 422
    NoThumbnail,  // 422
    Unreadable,   // 422: a read failed after the file was opened
    Forbidden,    // 403: no valid signature
    Limit,        // 503
    BadRequest,   // 405, 414, 416, 431
    Incomplete,   // a response not sent whole (client gone, file cut, time over)
    kFailures
  };

  KpzServeMetrics();
  KpzServeMetrics(const KpzServeMetrics&) = delete;
  KpzServeMetrics& operator=(const KpzServeMetrics&) = delete;

  void Request(Route route, unsigned status, std::uint64_t bytes, double seconds);
  void Fail(Failure failure) { m_failures[failure].fetch_add(1, std::memory_order_relaxed); }
  void Cut() { m_cut.fetch_add(1, std::memory_order_relaxed); }
  // A file's head parsed to locate its pictures (a file not in the cache of
  // located pictures: once per file for both pictures).
  void Parsed() { m_parsed.fetch_add(1, std::memory_order_relaxed); }
  void Connections(long delta) { m_connections.fetch_add(delta, std::memory_order_relaxed); }
  long OpenConnections() const { return m_connections.load(std::memory_order_relaxed); }

  // What the caches and the requests under way hold at the time of asking.
  struct Gauges {
    unsigned inFlight = 0;
    std::size_t cacheEntries = 0;        // files whose pictures' places are kept
    std::size_t turnedEntries = 0;       // turned pictures kept
    std::size_t turnedBytes = 0;         // their bytes as the bound counts them
    std::size_t turnedCapacity = 0;      // the bound
    std::uint64_t turnedHits = 0;
    std::uint64_t turnedMisses = 0;
    std::uint64_t turnedEvictions = 0;
    std::size_t readyAnswers = 0;        // small pictures' answers kept whole
    std::size_t readyBytes = 0;          // what they count against their bound
    std::size_t readyCapacity = 0;       // the bound
  };

  // The Prometheus text exposition of every counter and of `gauges`.
  std::string Text(const Gauges& gauges) const;

  static const char* RouteName(Route route);
  // The label of `failure` at /metrics ("not_found", "not_kpz", ...).
  static const char* FailureName(Failure failure);

 private:
  static constexpr int kStatuses = 16;
  static constexpr int kBuckets = 14;
  static int statusIndex(unsigned status);

  std::atomic<std::uint64_t> m_requests[kRoutes][kStatuses];
  std::atomic<std::uint64_t> m_bytes[kRoutes];
  std::atomic<std::uint64_t> m_latency[kRoutes][kBuckets + 1];  // the last: +Inf
  std::atomic<std::uint64_t> m_latencyMicros[kRoutes];
  std::atomic<std::uint64_t> m_failures[kFailures];
  std::atomic<std::uint64_t> m_parsed;
  std::atomic<std::uint64_t> m_cut;
  std::atomic<long> m_connections;
};

#endif  // KPZ_TOOLS_KPZ_SERVE_KPZSERVEMETRICS_H
