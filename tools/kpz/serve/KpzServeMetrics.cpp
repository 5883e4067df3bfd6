// KpzServeMetrics.cpp - kpz serve's counters and their Prometheus text
// (tools/kpz/serve). See the header.
#include "kpz/serve/KpzServeMetrics.h"

#include <cinttypes>
#include <cstdarg>
#include <cstdio>

namespace {

const unsigned kStatusCodes[] = {200, 206, 301, 304, 400, 403, 404, 405,
                                 414, 416, 422, 431, 500, 503, 0};
const double kBounds[] = {0.0001, 0.00025, 0.0005, 0.001, 0.0025, 0.005, 0.01,
                          0.025,  0.05,    0.1,    0.25,  0.5,    1,     5};
const char* const kFailureNames[] = {"not_found",    "not_kpz",    "damaged",   "no_preview",
                                     "no_thumbnail", "unreadable", "forbidden", "limit",
                                     "bad_request",  "incomplete"};

void append(std::string* out, const char* format, ...) __attribute__((format(printf, 2, 3)));
void append(std::string* out, const char* format, ...) {
  char line[256];
  va_list args;
  va_start(args, format);
  const int n = std::vsnprintf(line, sizeof line, format, args);
  va_end(args);
  if (n > 0) out->append(line, static_cast<std::size_t>(n) < sizeof line ? static_cast<std::size_t>(n) : sizeof line - 1);
}

}  // namespace

static_assert(sizeof kBounds / sizeof kBounds[0] == 14, "one bound per bucket");
static_assert(sizeof kFailureNames / sizeof kFailureNames[0] == KpzServeMetrics::kFailures,
              "one name per failure");

KpzServeMetrics::KpzServeMetrics() : m_parsed(0), m_cut(0), m_connections(0) {
  for (auto& route : m_requests) for (auto& c : route) c.store(0);
  for (auto& c : m_bytes) c.store(0);
  for (auto& route : m_latency) for (auto& c : route) c.store(0);
  for (auto& c : m_latencyMicros) c.store(0);
  for (auto& c : m_failures) c.store(0);
}

const char* KpzServeMetrics::RouteName(Route route) {
  static const char* const kNames[] = {"page", "list", "preview", "thumbnail", "info",
                                       "metrics", "healthz", "asset", "other"};
  return kNames[route];
}

const char* KpzServeMetrics::FailureName(Failure failure) {
  return failure >= 0 && failure < kFailures ? kFailureNames[failure] : "other";
}

int KpzServeMetrics::statusIndex(unsigned status) {
  for (int i = 0; i < kStatuses - 2; ++i) {
    if (kStatusCodes[i] == status) return i;
  }
  return kStatuses - 2;  // any other
}

void KpzServeMetrics::Request(Route route, unsigned status, std::uint64_t bytes, double seconds) {
  m_requests[route][statusIndex(status)].fetch_add(1, std::memory_order_relaxed);
  m_bytes[route].fetch_add(bytes, std::memory_order_relaxed);
  int b = 0;
  while (b < kBuckets && seconds > kBounds[b]) ++b;
  m_latency[route][b].fetch_add(1, std::memory_order_relaxed);
  m_latencyMicros[route].fetch_add(static_cast<std::uint64_t>(seconds * 1e6),
                                   std::memory_order_relaxed);
}

std::string KpzServeMetrics::Text(const Gauges& gauges) const {
  std::string out;
  out += "# HELP kpz_serve_requests_total Requests answered, by route and status.\n"
         "# TYPE kpz_serve_requests_total counter\n";
  for (int r = 0; r < kRoutes; ++r) {
    for (int s = 0; s < kStatuses - 1; ++s) {
      const std::uint64_t n = m_requests[r][s].load(std::memory_order_relaxed);
      if (n == 0) continue;
      if (kStatusCodes[s] == 0) {
        append(&out, "kpz_serve_requests_total{route=\"%s\",status=\"other\"} %" PRIu64 "\n",
               RouteName(static_cast<Route>(r)), n);
      } else {
        append(&out, "kpz_serve_requests_total{route=\"%s\",status=\"%u\"} %" PRIu64 "\n",
               RouteName(static_cast<Route>(r)), kStatusCodes[s], n);
      }
    }
  }
  out += "# HELP kpz_serve_response_bytes_total Bytes of response bodies, by route.\n"
         "# TYPE kpz_serve_response_bytes_total counter\n";
  for (int r = 0; r < kRoutes; ++r) {
    append(&out, "kpz_serve_response_bytes_total{route=\"%s\"} %" PRIu64 "\n",
           RouteName(static_cast<Route>(r)), m_bytes[r].load(std::memory_order_relaxed));
  }
  out += "# HELP kpz_serve_request_seconds Time from a request's head to its response sent.\n"
         "# TYPE kpz_serve_request_seconds histogram\n";
  for (int r = 0; r < kRoutes; ++r) {
    const char* name = RouteName(static_cast<Route>(r));
    std::uint64_t total = 0;
    for (int b = 0; b <= kBuckets; ++b) {
      total += m_latency[r][b].load(std::memory_order_relaxed);
      if (b < kBuckets) {
        append(&out, "kpz_serve_request_seconds_bucket{route=\"%s\",le=\"%g\"} %" PRIu64 "\n", name,
               kBounds[b], total);
      } else {
        append(&out, "kpz_serve_request_seconds_bucket{route=\"%s\",le=\"+Inf\"} %" PRIu64 "\n",
               name, total);
      }
    }
    append(&out, "kpz_serve_request_seconds_sum{route=\"%s\"} %.6f\n", name,
           static_cast<double>(m_latencyMicros[r].load(std::memory_order_relaxed)) / 1e6);
    append(&out, "kpz_serve_request_seconds_count{route=\"%s\"} %" PRIu64 "\n", name, total);
  }
  out += "# HELP kpz_serve_failures_total Failed requests, by kind.\n"
         "# TYPE kpz_serve_failures_total counter\n";
  for (int f = 0; f < kFailures; ++f) {
    append(&out, "kpz_serve_failures_total{kind=\"%s\"} %" PRIu64 "\n", kFailureNames[f],
           m_failures[f].load(std::memory_order_relaxed));
  }
  append(&out,
         "# HELP kpz_serve_head_parses_total Heads of files parsed to locate their pictures "
         "(once per file not in the located cache).\n"
         "# TYPE kpz_serve_head_parses_total counter\n"
         "kpz_serve_head_parses_total %" PRIu64 "\n",
         m_parsed.load(std::memory_order_relaxed));
  append(&out,
         "# HELP kpz_serve_connections_cut_total Connections closed for sending too slowly.\n"
         "# TYPE kpz_serve_connections_cut_total counter\n"
         "kpz_serve_connections_cut_total %" PRIu64 "\n",
         m_cut.load(std::memory_order_relaxed));
  append(&out,
         "# HELP kpz_serve_connections Open connections.\n"
         "# TYPE kpz_serve_connections gauge\n"
         "kpz_serve_connections %ld\n",
         m_connections.load(std::memory_order_relaxed));
  append(&out,
         "# HELP kpz_serve_requests_in_progress Requests being answered.\n"
         "# TYPE kpz_serve_requests_in_progress gauge\n"
         "kpz_serve_requests_in_progress %u\n",
         gauges.inFlight);
  append(&out,
         "# HELP kpz_serve_located_cache_entries Files whose pictures' places are kept.\n"
         "# TYPE kpz_serve_located_cache_entries gauge\n"
         "kpz_serve_located_cache_entries %zu\n",
         gauges.cacheEntries);
  append(&out,
         "# HELP kpz_serve_turned_cache_entries Turned pictures (?upright=1) kept.\n"
         "# TYPE kpz_serve_turned_cache_entries gauge\n"
         "kpz_serve_turned_cache_entries %zu\n",
         gauges.turnedEntries);
  append(&out,
         "# HELP kpz_serve_turned_cache_bytes Bytes the kept turned pictures count against "
         "the bound.\n"
         "# TYPE kpz_serve_turned_cache_bytes gauge\n"
         "kpz_serve_turned_cache_bytes %zu\n",
         gauges.turnedBytes);
  append(&out,
         "# HELP kpz_serve_turned_cache_capacity_bytes The bound of the turned pictures kept.\n"
         "# TYPE kpz_serve_turned_cache_capacity_bytes gauge\n"
         "kpz_serve_turned_cache_capacity_bytes %zu\n",
         gauges.turnedCapacity);
  append(&out,
         "# HELP kpz_serve_turned_cache_hits_total Turned pictures answered from the cache.\n"
         "# TYPE kpz_serve_turned_cache_hits_total counter\n"
         "kpz_serve_turned_cache_hits_total %" PRIu64 "\n",
         gauges.turnedHits);
  append(&out,
         "# HELP kpz_serve_turned_cache_misses_total Turned pictures decoded and turned anew.\n"
         "# TYPE kpz_serve_turned_cache_misses_total counter\n"
         "kpz_serve_turned_cache_misses_total %" PRIu64 "\n",
         gauges.turnedMisses);
  append(&out,
         "# HELP kpz_serve_turned_cache_evictions_total Turned pictures dropped to keep the "
         "bound.\n"
         "# TYPE kpz_serve_turned_cache_evictions_total counter\n"
         "kpz_serve_turned_cache_evictions_total %" PRIu64 "\n",
         gauges.turnedEvictions);
  append(&out,
         "# HELP kpz_serve_ready_answers Small pictures' whole answers kept, sent again as "
         "they are.\n"
         "# TYPE kpz_serve_ready_answers gauge\n"
         "kpz_serve_ready_answers %zu\n",
         gauges.readyAnswers);
  append(&out,
         "# HELP kpz_serve_ready_bytes Bytes the kept answers count against the bound.\n"
         "# TYPE kpz_serve_ready_bytes gauge\n"
         "kpz_serve_ready_bytes %zu\n",
         gauges.readyBytes);
  append(&out,
         "# HELP kpz_serve_ready_capacity_bytes The bound of the answers kept.\n"
         "# TYPE kpz_serve_ready_capacity_bytes gauge\n"
         "kpz_serve_ready_capacity_bytes %zu\n",
         gauges.readyCapacity);
  return out;
}
