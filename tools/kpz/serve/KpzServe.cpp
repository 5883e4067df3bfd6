// KpzServe.cpp - kpz serve's routes, answers and limits over libmicrohttpd
// (tools/kpz/serve). See the header.
#include "kpz/serve/KpzServe.h"

#include <dirent.h>
#include <fcntl.h>
#include <microhttpd.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <list>
#include <mutex>
#include <new>
#include <nlohmann/json.hpp>
#include <queue>
#include <thread>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "kpz/KpzBeneath.h"
#include "kpz/KpzExtraction.h"
#include "kpz/KpzInfoJson.h"
#include "kpz/KpzMetadataReader.h"
#include "kpz/KpzReadHint.h"
#include "kpz/KpzSource.h"
#include "kpz/KpzUpright.h"
#include "kpz/serve/KpzServeFailure.h"
#include "kpz/serve/KpzServeHttp.h"
#include "kpz/serve/KpzServeMetrics.h"
#include "kpz/serve/KpzServePage.h"
#include "kpz/serve/KpzServeTurnedCache.h"
#include "raw/DtRawExpected.h"
#include "raw/DtRawFailure.h"
#include "raw/DtRawRecord.h"

namespace {

using Route = KpzServeMetrics::Route;
using Failure = KpzServeMetrics::Failure;

std::int64_t nowNanos() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

// One connection as the limits see it. `waitingSince`: when it began to
// wait for a request's head (0 while a request is answered); `busySince`:
// when the request under way arrived.
struct Conn {
  int fd = -1;
  std::atomic<std::int64_t> waitingSince{0};
  std::atomic<std::int64_t> busySince{0};
  bool cut = false;  // under the registry's lock
};

// One request, from its head to its response sent.
struct Req {
  std::int64_t start = 0;
  Route route = Route::Other;
  unsigned status = 0;
  std::uint64_t bytes = 0;
  Conn* conn = nullptr;
};

// A file's identity: a change of any part is another file.
struct Identity {
  std::uint64_t dev = 0;
  std::uint64_t ino = 0;
  std::uint64_t size = 0;
  std::int64_t mtimeSec = 0;
  long mtimeNsec = 0;
  bool operator==(const Identity& o) const {
    return dev == o.dev && ino == o.ino && size == o.size && mtimeSec == o.mtimeSec &&
           mtimeNsec == o.mtimeNsec;
  }
};
struct IdentityHash {
  std::size_t operator()(const Identity& k) const {
    std::uint64_t h = 1469598103934665603ull;
    for (std::uint64_t v : {k.dev, k.ino, k.size, static_cast<std::uint64_t>(k.mtimeSec),
                            static_cast<std::uint64_t>(k.mtimeNsec)}) {
      h = (h ^ v) * 1099511628211ull;
      h ^= h >> 29;
    }
    return static_cast<std::size_t>(h);
  }
};

// ETag of one representation of the file `id` ('p'review, 't'humbnail,
// 'i'nfo; upper case when turned upright).
std::string etagOf(const Identity& id, char variant) {
  char tag[128];
  std::snprintf(tag, sizeof tag, "\"%llx-%llx-%llx-%llx.%lx-%c\"",
                static_cast<unsigned long long>(id.dev), static_cast<unsigned long long>(id.ino),
                static_cast<unsigned long long>(id.size),
                static_cast<unsigned long long>(id.mtimeSec),
                static_cast<unsigned long>(id.mtimeNsec), variant);
  return tag;
}

// The ready answers the located cache holds (see Located), as they count
// against their bound.
struct ReadyTally {
  std::atomic<std::size_t> bytes{0};
  std::atomic<std::size_t> answers{0};
};

// Both pictures of one file as located by one parse of its head
// (DtRawRecord), with the orientation ?upright=1 turns by; a failure in a
// picture's place, the parse's own when the head does not parse: a file
// that is not KPZ is not parsed again either. Beside them, what every
// answer about this version of the file repeats (its Last-Modified, its
// tags) and, for a small picture, the whole answer to a plain GET of it,
// ready to be queued again by every request that finds it here.
struct Located {
  Located(const DtRawExpected<DtRawRecord>& record, const Identity& id, ReadyTally* tally)
      : preview(locate(record, DtRawRecord::PicturePreview)),
        thumbnail(locate(record, DtRawRecord::PictureThumbnail)),
        lastModified(KpzServeHttp::Date(static_cast<std::time_t>(id.mtimeSec))),
        etags{etagOf(id, 'p'), etagOf(id, 't'), etagOf(id, 'P'), etagOf(id, 'T')},
        m_tally(tally) {
    if (record) {
      orientation = KpzUpright::OrientationOf(*record);
      turns = KpzUpright::Turns(orientation);
    }
  }
  Located(const Located&) = delete;
  Located& operator=(const Located&) = delete;

  // The ready answers go with the last reference to this entry (responses
  // queued still hold their own), and their bytes leave the bound.
  ~Located() {
    for (int i = 0; i < 2; ++i) {
      MHD_Response* response = ready[i].load(std::memory_order_acquire);
      if (response == nullptr) continue;
      MHD_destroy_response(response);
      m_tally->bytes.fetch_sub(ReadyCost(i == 0 ? preview : thumbnail), std::memory_order_relaxed);
      m_tally->answers.fetch_sub(1, std::memory_order_relaxed);
    }
  }

  const DtRawExpected<DtRawRecord::Range>& Of(DtRawRecord::Picture which) const {
    return which == DtRawRecord::PicturePreview ? preview : thumbnail;
  }

  // The tag of `variant` ('p', 't', 'P', 'T'; see etagOf).
  const std::string& Etag(char variant) const {
    const int turned = std::isupper(static_cast<unsigned char>(variant)) ? 2 : 0;
    return etags[turned + (std::tolower(static_cast<unsigned char>(variant)) == 'p' ? 0 : 1)];
  }

  // What a picture's ready answer counts against the bound.
  static std::size_t ReadyCost(const DtRawExpected<DtRawRecord::Range>& picture) {
    return static_cast<std::size_t>(picture->m_length) + kReadyOverhead;
  }
  // The headers and libmicrohttpd's own bookkeeping of one ready answer.
  static constexpr std::size_t kReadyOverhead = 1024;

  DtRawExpected<DtRawRecord::Range> preview;
  DtRawExpected<DtRawRecord::Range> thumbnail;
  KpzUpright::Orientation orientation;
  bool turns = false;  // the orientation asks for a turn
  const std::string lastModified;  // KpzServeHttp::Date of the modification time
  const std::string etags[4];      // 'p', 't', 'P', 'T'
  // [0] the preview's, [1] the thumbnail's answer to a plain GET (status
  // 200, the whole picture, its headers), or null. Set once (the first
  // request to publish one wins); owned by this entry.
  mutable std::atomic<MHD_Response*> ready[2] = {{nullptr}, {nullptr}};

 private:
  ReadyTally* m_tally;  // borrowed: the server's, outlives the cache
  static DtRawExpected<DtRawRecord::Range> locate(const DtRawExpected<DtRawRecord>& record,
                                                  DtRawRecord::Picture which) {
    if (!record) return record.Failure();
    return record->Locate(which);
  }
};

// The located pictures of the last `capacity` files asked for, by identity.
class LocatedCache {
 public:
  explicit LocatedCache(std::size_t capacity) : m_capacity(capacity == 0 ? 1 : capacity) {}

  std::shared_ptr<const Located> Get(const Identity& key) {
    std::lock_guard<std::mutex> lock(m_mutex);
    auto it = m_index.find(key);
    if (it == m_index.end()) return nullptr;
    m_order.splice(m_order.begin(), m_order, it->second);
    return it->second->second;
  }

  void Put(const Identity& key, std::shared_ptr<const Located> value) {
    std::lock_guard<std::mutex> lock(m_mutex);
    auto it = m_index.find(key);
    if (it != m_index.end()) {
      it->second->second = std::move(value);
      m_order.splice(m_order.begin(), m_order, it->second);
      return;
    }
    m_order.emplace_front(key, std::move(value));
    m_index.emplace(key, m_order.begin());
    while (m_index.size() > m_capacity) {  // one out per pass
      m_index.erase(m_order.back().first);
      m_order.pop_back();
    }
  }

  std::size_t Size() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_index.size();
  }

 private:
  using Entry = std::pair<Identity, std::shared_ptr<const Located>>;
  std::size_t m_capacity;
  std::mutex m_mutex;
  std::list<Entry> m_order;  // most recent first
  std::unordered_map<Identity, std::list<Entry>::iterator, IdentityHash> m_index;
};

std::string lower(std::string s) {
  for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

const char kNotFound[] = "not found\n";

}  // namespace

struct KpzServe::Impl {
  explicit Impl(Options o)
      : options(std::move(o)), cache(options.cacheEntries), turnedCache(options.turnedCacheBytes) {}

  Options options;
  int rootFd = -1;
  MHD_Daemon* daemon = nullptr;
  unsigned port = 0;
  std::string urlHost;
  KpzServeMetrics metrics;
  // What the ready answers held by the located cache count against
  // options.readyBytes; declared before the cache, which gives it back.
  ReadyTally ready;
  LocatedCache cache;
  KpzServeTurnedCache turnedCache;
  std::atomic<unsigned> inFlight{0};
  std::mutex connMutex;
  std::unordered_set<Conn*> conns;
  std::atomic<bool> draining{false};

  // --- libmicrohttpd's callbacks -------------------------------------------

  static size_t keepEscaped(void*, MHD_Connection*, char* s) { return std::strlen(s); }

  static void onConnection(void* cls, MHD_Connection* connection, void** socketContext,
                           MHD_ConnectionNotificationCode code) {
    Impl* self = static_cast<Impl*>(cls);
    if (code == MHD_CONNECTION_NOTIFY_STARTED) {
      Conn* c = new Conn;
      const MHD_ConnectionInfo* info =
          MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD);
      c->fd = info != nullptr ? info->connect_fd : -1;
      c->waitingSince.store(nowNanos());
      *socketContext = c;
      self->metrics.Connections(1);
      std::lock_guard<std::mutex> lock(self->connMutex);
      self->conns.insert(c);
      return;
    }
    Conn* c = static_cast<Conn*>(*socketContext);
    if (c == nullptr) return;
    {
      // Before libmicrohttpd closes the socket: Tick never shuts down a
      // descriptor number that may already be another's.
      std::lock_guard<std::mutex> lock(self->connMutex);
      self->conns.erase(c);
    }
    self->metrics.Connections(-1);
    delete c;
    *socketContext = nullptr;
  }

  static void onCompleted(void* cls, MHD_Connection*, void** reqCls,
                          MHD_RequestTerminationCode code) {
    Impl* self = static_cast<Impl*>(cls);
    Req* r = static_cast<Req*>(*reqCls);
    if (r == nullptr) return;
    *reqCls = nullptr;
    const double seconds = static_cast<double>(nowNanos() - r->start) / 1e9;
    self->metrics.Request(r->route, r->status, r->bytes, seconds);
    if (code != MHD_REQUEST_TERMINATED_COMPLETED_OK) {
      self->metrics.Fail(Failure::Incomplete);
    }
    self->inFlight.fetch_sub(1, std::memory_order_relaxed);
    if (r->conn != nullptr) {
      r->conn->busySince.store(0);
      r->conn->waitingSince.store(nowNanos());
    }
    delete r;
  }

  static MHD_Result onRequest(void* cls, MHD_Connection* connection, const char* url,
                              const char* method, const char*, const char*, size_t* uploadSize,
                              void** reqCls) {
    Impl* self = static_cast<Impl*>(cls);
    Req* r = static_cast<Req*>(*reqCls);
    if (r == nullptr) {
      // The head has arrived. A GET or HEAD is answered on the next call,
      // once libmicrohttpd knows there is no body: a response queued before
      // that would close the connection after it (no keep-alive).
      r = new Req;
      r->start = nowNanos();
      const MHD_ConnectionInfo* info =
          MHD_get_connection_info(connection, MHD_CONNECTION_INFO_SOCKET_CONTEXT);
      r->conn = info != nullptr ? static_cast<Conn*>(info->socket_context) : nullptr;
      if (r->conn != nullptr) {
        r->conn->waitingSince.store(0);
        r->conn->busySince.store(r->start);
      }
      self->inFlight.fetch_add(1, std::memory_order_relaxed);
      *reqCls = r;
      if (std::strcmp(method, "GET") == 0 || std::strcmp(method, "HEAD") == 0) {
        return MHD_YES;
      }
      return self->answer(connection, url, method, r);  // 405 at once, and closed
    }
    if (*uploadSize != 0) {
      *uploadSize = 0;  // a body sent with a GET: not used
      return MHD_YES;
    }
    if (r->status != 0) {
      return MHD_YES;  // answered already
    }
    return self->answer(connection, url, method, r);
  }

  // --- answers --------------------------------------------------------------

  MHD_Result queue(MHD_Connection* c, Req* r, unsigned status, MHD_Response* response,
                   std::uint64_t bytes) {
    if (response == nullptr) {
      return MHD_NO;  // out of memory: the connection is closed
    }
    MHD_add_response_header(response, "X-Content-Type-Options", "nosniff");
    r->status = status;
    r->bytes = bytes;
    const MHD_Result ok = MHD_queue_response(c, status, response);
    MHD_destroy_response(response);
    return ok;
  }

  MHD_Result text(MHD_Connection* c, Req* r, unsigned status, const std::string& body,
                  const char* type = "text/plain; charset=utf-8",
                  const char* cacheControl = "no-store") {
    MHD_Response* response = MHD_create_response_from_buffer(
        body.size(), const_cast<char*>(body.data()), MHD_RESPMEM_MUST_COPY);
    if (response == nullptr) return MHD_NO;
    MHD_add_response_header(response, "Content-Type", type);
    if (cacheControl != nullptr) MHD_add_response_header(response, "Cache-Control", cacheControl);
    return queue(c, r, status, response, body.size());
  }

  MHD_Result notFound(MHD_Connection* c, Req* r) {
    metrics.Fail(Failure::NotFound);
    return text(c, r, MHD_HTTP_NOT_FOUND, kNotFound);
  }

  MHD_Result busy(MHD_Connection* c, Req* r, bool closeConnection) {
    metrics.Fail(Failure::Limit);
    MHD_Response* response = MHD_create_response_from_buffer(
        sizeof "busy, try again\n" - 1, const_cast<char*>("busy, try again\n"),
        MHD_RESPMEM_PERSISTENT);
    if (response == nullptr) return MHD_NO;
    MHD_add_response_header(response, "Retry-After",
                            std::to_string(options.retryAfterSeconds).c_str());
    MHD_add_response_header(response, "Cache-Control", "no-store");
    MHD_add_response_header(response, "Content-Type", "text/plain; charset=utf-8");
    if (closeConnection) MHD_add_response_header(response, "Connection", "close");
    return queue(c, r, MHD_HTTP_SERVICE_UNAVAILABLE, response, 0);
  }

  MHD_Result answer(MHD_Connection* c, const char* url, const char* method, Req* r) {
    const bool head = std::strcmp(method, "HEAD") == 0;
    if (!head && std::strcmp(method, "GET") != 0) {
      metrics.Fail(Failure::BadRequest);
      MHD_Response* response = MHD_create_response_from_buffer(
          sizeof "method not allowed\n" - 1, const_cast<char*>("method not allowed\n"),
          MHD_RESPMEM_PERSISTENT);
      if (response == nullptr) return MHD_NO;
      MHD_add_response_header(response, "Allow", "GET, HEAD");
      MHD_add_response_header(response, "Connection", "close");  // its body is not read
      return queue(c, r, MHD_HTTP_METHOD_NOT_ALLOWED, response, 0);
    }
    if (std::strlen(url) > options.maxUrlBytes) {
      metrics.Fail(Failure::BadRequest);
      return text(c, r, MHD_HTTP_URI_TOO_LONG, "URL too long\n");
    }
    std::size_t headerBytes = 0;
    MHD_get_connection_values(
        c, MHD_HEADER_KIND,
        [](void* cls, MHD_ValueKind, const char* key, const char* value) -> MHD_Result {
          *static_cast<std::size_t*>(cls) +=
              std::strlen(key) + (value != nullptr ? std::strlen(value) : 0) + 4;
          return MHD_YES;
        },
        &headerBytes);
    if (headerBytes > options.maxHeaderBytes) {
      metrics.Fail(Failure::BadRequest);
      return text(c, r, MHD_HTTP_REQUEST_HEADER_FIELDS_TOO_LARGE, "headers too large\n");
    }
    if (draining.load()) {
      return busy(c, r, true);
    }
    if (metrics.OpenConnections() > static_cast<long>(options.maxConnections)) {
      return busy(c, r, true);
    }
    if (inFlight.load(std::memory_order_relaxed) > options.maxRequests) {
      return busy(c, r, false);
    }

    std::string path;
    if (!KpzServeHttp::DecodePath(url, &path)) {
      return notFound(c, r);
    }
    struct Prefix {
      const char* text;
      Route route;
    };
    static const Prefix kPrefixes[] = {{"/preview/", Route::Preview},
                                       {"/thumbnail/", Route::Thumbnail},
                                       {"/info/", Route::Info},
                                       {"/browse/", Route::Page},
                                       {"/list/", Route::List}};
    if (path == "/") {
      r->route = Route::Page;
      return page(c, r, "");
    }
    if (path == "/metrics") {
      r->route = Route::Metrics;
      KpzServeMetrics::Gauges g;
      g.inFlight = inFlight.load();
      g.cacheEntries = cache.Size();
      const KpzServeTurnedCache::Figures t = turnedCache.Snapshot();
      g.turnedEntries = t.entries;
      g.turnedBytes = t.bytes;
      g.turnedCapacity = t.capacity;
      g.turnedHits = t.hits;
      g.turnedMisses = t.misses;
      g.turnedEvictions = t.evictions;
      g.readyAnswers = ready.answers.load(std::memory_order_relaxed);
      g.readyBytes = ready.bytes.load(std::memory_order_relaxed);
      g.readyCapacity = options.readyBytes;
      return text(c, r, MHD_HTTP_OK, metrics.Text(g), "text/plain; version=0.0.4; charset=utf-8");
    }
    if (path == "/healthz") {
      r->route = Route::Health;
      return text(c, r, MHD_HTTP_OK, "ok\n");
    }
    if (path == "/_/gallery.js" || path == "/_/gallery.css") {
      r->route = Route::Asset;
      const bool js = path == "/_/gallery.js";
      const char* body = js ? KpzServePage::Script() : KpzServePage::Style();
      return text(c, r, MHD_HTTP_OK, body,
                  js ? "text/javascript; charset=utf-8" : "text/css; charset=utf-8",
                  "max-age=300");
    }
    for (const Prefix& p : kPrefixes) {
      const std::size_t n = std::strlen(p.text);
      if (path.compare(0, n, p.text) != 0) continue;
      r->route = p.route;
      std::string rest = path.substr(n);
      if (p.route == Route::Page || p.route == Route::List) {
        while (!rest.empty() && rest.back() == '/') rest.pop_back();
        if (p.route == Route::Page) return page(c, r, rest);
        return list(c, r, rest);
      }
      return file(c, r, p.route, rest);
    }
    return notFound(c, r);
  }

  // The signature check of a signed server; true when unsigned.
  bool signedFor(MHD_Connection* c, const std::string& message) {
    if (options.key.empty()) return true;
    const char* sig = MHD_lookup_connection_value(c, MHD_GET_ARGUMENT_KIND, "sig");
    return KpzServeHttp::Verify(options.key, message, sig);
  }

  MHD_Result forbidden(MHD_Connection* c, Req* r) {
    metrics.Fail(Failure::Forbidden);
    return text(c, r, MHD_HTTP_FORBIDDEN, "forbidden: no valid signature\n");
  }

  MHD_Result page(MHD_Connection* c, Req* r, const std::string& dir) {
    if (!signedFor(c, "browse/" + dir)) return forbidden(c, r);
    if (!KpzBeneath::WellFormed(dir)) return notFound(c, r);
    const std::string body = KpzServePage::Html();
    MHD_Response* response = MHD_create_response_from_buffer(
        body.size(), const_cast<char*>(body.data()), MHD_RESPMEM_MUST_COPY);
    if (response == nullptr) return MHD_NO;
    MHD_add_response_header(response, "Content-Type", "text/html; charset=utf-8");
    MHD_add_response_header(response, "Content-Security-Policy", KpzServePage::Policy());
    MHD_add_response_header(response, "Cache-Control", "no-cache");
    MHD_add_response_header(response, "Referrer-Policy", "no-referrer");
    MHD_add_response_header(response, "X-Frame-Options", "DENY");
    return queue(c, r, MHD_HTTP_OK, response, body.size());
  }

  bool allowedName(const std::string& name) const {
    const std::size_t dot = name.rfind('.');
    if (dot == std::string::npos) return false;
    const std::string ext = lower(name.substr(dot));
    return std::find(options.extensions.begin(), options.extensions.end(), ext) !=
           options.extensions.end();
  }

  MHD_Result list(MHD_Connection* c, Req* r, const std::string& dir) {
    if (!signedFor(c, "browse/" + dir)) return forbidden(c, r);
    if (!KpzBeneath::WellFormed(dir)) return notFound(c, r);
    std::string after;
    if (!KpzServeHttp::DecodeValue(MHD_lookup_connection_value(c, MHD_GET_ARGUMENT_KIND, "after"),
                                   &after)) {
      return notFound(c, r);
    }
    unsigned long limit = 100;
    if (const char* l = MHD_lookup_connection_value(c, MHD_GET_ARGUMENT_KIND, "limit")) {
      limit = std::strtoul(l, nullptr, 10);
    }
    if (limit == 0) limit = 1;
    if (limit > options.listLimit) limit = options.listLimit;
    int err = 0;
    const int fd = KpzBeneath::Open(rootFd, dir, O_RDONLY | O_DIRECTORY | O_NONBLOCK, &err);
    if (fd < 0) return notFound(c, r);
    DIR* d = fdopendir(fd);
    if (d == nullptr) {
      close(fd);
      return notFound(c, r);
    }
    // The `limit + 1` first names after `after`, in byte order, kept in a
    // heap whose top is the last of them: memory bounded by the page, not
    // by the folder.
    using Entry = std::pair<std::string, bool>;  // name, is a folder
    const auto byName = [](const Entry& a, const Entry& b) { return a.first < b.first; };
    std::priority_queue<Entry, std::vector<Entry>, decltype(byName)> best(byName);
    while (dirent* e = readdir(d)) {  // one entry per pass; the folder's entries are finite
      const std::string name = e->d_name;
      if (name.empty() || name[0] == '.' || name <= after) continue;
      unsigned char type = e->d_type;
      if (type == DT_UNKNOWN) {
        struct stat st;
        if (fstatat(dirfd(d), e->d_name, &st, AT_SYMLINK_NOFOLLOW) != 0) continue;
        type = S_ISDIR(st.st_mode) ? DT_DIR : S_ISREG(st.st_mode) ? DT_REG : DT_UNKNOWN;
      }
      const bool folder = type == DT_DIR;
      if (!folder && !(type == DT_REG && allowedName(name))) continue;
      if (best.size() <= limit) {
        best.emplace(name, folder);
      } else if (name < best.top().first) {
        best.pop();
        best.emplace(name, folder);
      }
    }
    closedir(d);
    std::vector<Entry> page;
    page.reserve(best.size());
    while (!best.empty()) {
      page.push_back(best.top());
      best.pop();
    }
    std::reverse(page.begin(), page.end());
    const bool more = page.size() > limit;
    if (more) page.pop_back();
    nlohmann::json out;
    out["dir"] = dir;
    out["entries"] = nlohmann::json::array();
    const std::string prefix = dir.empty() ? std::string() : dir + "/";
    for (const Entry& e : page) {
      nlohmann::json item;
      item["name"] = e.first;
      item["dir"] = e.second;
      if (!options.key.empty()) {
        const std::string rel = prefix + e.first;
        if (e.second) {
          item["sig"] = {{"browse", KpzServeHttp::Sign(options.key, "browse/" + rel)}};
        } else {
          item["sig"] = {{"preview", KpzServeHttp::Sign(options.key, "preview/" + rel)},
                         {"thumbnail", KpzServeHttp::Sign(options.key, "thumbnail/" + rel)},
                         {"info", KpzServeHttp::Sign(options.key, "info/" + rel)}};
        }
      }
      out["entries"].push_back(std::move(item));
    }
    out["next"] = more ? nlohmann::json(page.back().first) : nlohmann::json(nullptr);
    const std::string body =
        out.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
    return text(c, r, MHD_HTTP_OK, body, "application/json", "no-cache");
  }

  // `lastModified`: KpzServeHttp::Date of the file's modification time.
  void validators(MHD_Response* response, const std::string& etag,
                  const std::string& lastModified) {
    MHD_add_response_header(response, "ETag", etag.c_str());
    MHD_add_response_header(response, "Last-Modified", lastModified.c_str());
    MHD_add_response_header(response, "Cache-Control", options.cacheControl.c_str());
  }

  // True when the client's copy is current (If-None-Match, or without it
  // If-Modified-Since).
  static bool fresh(MHD_Connection* c, const std::string& etag, const Identity& id) {
    const char* inm = MHD_lookup_connection_value(c, MHD_HEADER_KIND, "If-None-Match");
    if (inm != nullptr) return KpzServeHttp::MatchesEtag(inm, etag);
    std::time_t since = 0;
    return KpzServeHttp::ParseDate(
               MHD_lookup_connection_value(c, MHD_HEADER_KIND, "If-Modified-Since"), &since) &&
           static_cast<std::time_t>(id.mtimeSec) <= since;
  }

  // A file that cannot be used, answered and counted by KpzServeFailure's
  // row of `kind`, in `words` (the kit's).
  MHD_Result unprocessable(MHD_Connection* c, Req* r, DtRawFailure::Kind kind,
                           const std::string& words) {
    const KpzServeFailure::Row row = KpzServeFailure::Of(kind);
    metrics.Fail(row.counted);
    return text(c, r, row.status, words + "\n");
  }

  MHD_Result unprocessable(MHD_Connection* c, Req* r, const DtRawFailure& why) {
    return unprocessable(c, r, why.m_kind, why.m_words);
  }

  // A picture's bytes not read: as the kit sorts it, the file ended first
  // (no errno) is damage, an error of the system makes it unreadable.
  MHD_Result unread(MHD_Connection* c, Req* r, const KpzSource& source, const std::string& why) {
    return unprocessable(
        c, r, source.Errno() != 0 ? DtRawFailure::KindUnreadable : DtRawFailure::KindDamaged, why);
  }

  MHD_Result file(MHD_Connection* c, Req* r, Route route, const std::string& rel) {
    if (!signedFor(c, std::string(KpzServeMetrics::RouteName(route)) + "/" + rel)) {
      return forbidden(c, r);
    }
    const std::size_t slash = rel.rfind('/');
    if (!KpzBeneath::WellFormed(rel) || rel.empty() ||
        !allowedName(slash == std::string::npos ? rel : rel.substr(slash + 1))) {
      return notFound(c, r);
    }
    int err = 0;
    const int fd = KpzBeneath::Open(rootFd, rel, O_RDONLY | O_NONBLOCK, &err);
    if (fd < 0) return notFound(c, r);

    const char* up = MHD_lookup_connection_value(c, MHD_GET_ARGUMENT_KIND, "upright");
    const bool upright = up != nullptr && std::strcmp(up, "1") == 0;
    Identity seen;
    std::shared_ptr<const Located> located;
    if (route != Route::Info && !upright) {
      MHD_Result answered = MHD_NO;
      if (answerReady(c, r, route, fd, &seen, &located, &answered)) return answered;
    }

    KpzSource source;
    std::string why;
    if (!source.Adopt(fd, rel, &why)) return notFound(c, r);  // a folder, pipe, device, socket
    Identity id;
    id.dev = static_cast<std::uint64_t>(source.Device());
    id.ino = static_cast<std::uint64_t>(source.Inode());
    id.size = source.Size();
    id.mtimeSec = static_cast<std::int64_t>(source.ModifiedAt().tv_sec);
    id.mtimeNsec = source.ModifiedAt().tv_nsec;
    if (route != Route::Info && !(located && id == seen)) located = cache.Get(id);

    const char variantBase = route == Route::Preview ? 'p' : route == Route::Thumbnail ? 't' : 'i';
    const char variant = upright && route != Route::Info
                             ? static_cast<char>(std::toupper(variantBase)) : variantBase;
    const std::string etag = located ? located->Etag(variant) : etagOf(id, variant);
    const std::string lastModified =
        located ? located->lastModified : KpzServeHttp::Date(static_cast<std::time_t>(id.mtimeSec));
    if (fresh(c, etag, id)) {
      MHD_Response* response = MHD_create_response_from_buffer(0, nullptr, MHD_RESPMEM_PERSISTENT);
      if (response == nullptr) return MHD_NO;
      validators(response, etag, lastModified);
      return queue(c, r, MHD_HTTP_NOT_MODIFIED, response, 0);
    }

    if (route == Route::Info) {
      if (!source.ReadHead(&why)) {
        return unprocessable(c, r, DtRawFailure::KindUnreadable, why);
      }
      KpzMetadata md;
      const bool ok = KpzMetadataReader::ReadOpened(source, rel, &md);
      if (!ok) {
        // Answered below with kpz info's JSON; counted by the same table.
        metrics.Fail(KpzServeFailure::Of(DtRawErrorText::IsParseCode(md.initResult)
                                             ? DtRawFailure::KindNotKpz
                                             : DtRawFailure::KindUnreadable)
                         .counted);
      }
      const std::string body = KpzInfoJson::Line(md);
      MHD_Response* response = MHD_create_response_from_buffer(
          body.size(), const_cast<char*>(body.data()), MHD_RESPMEM_MUST_COPY);
      if (response == nullptr) return MHD_NO;
      MHD_add_response_header(response, "Content-Type", "application/json");
      if (ok) {
        validators(response, etag, lastModified);
      } else {
        MHD_add_response_header(response, "Cache-Control", "no-store");
      }
      return queue(c, r, ok ? MHD_HTTP_OK : MHD_HTTP_UNPROCESSABLE_CONTENT, response, body.size());
    }

    // The head read on this descriptor (a file not located yet) turns its
    // readahead off: see the send from the descriptor below.
    const bool headRead = !located;
    if (!located) {
      if (!source.ReadHead(&why)) {
        return unprocessable(c, r, DtRawFailure::KindUnreadable, why);
      }
      const std::size_t headBytes =
          source.Size() < KpzSource::kHeadSize ? static_cast<std::size_t>(source.Size())
                                               : KpzSource::kHeadSize;
      // The one parse of this file: both pictures and the orientation.
      metrics.Parsed();
      auto parsed = std::make_shared<const Located>(
          DtRawRecord::Parse(source.Head(), headBytes, source.Size(), DtRawRecord::FieldsPictures),
          id, &ready);
      cache.Put(id, parsed);
      located = std::move(parsed);
    }
    const DtRawRecord::Picture which =
        route == Route::Preview ? DtRawRecord::PicturePreview : DtRawRecord::PictureThumbnail;
    const DtRawExpected<DtRawRecord::Range>& picture = located->Of(which);
    if (!picture) return unprocessable(c, r, picture.Failure());
    const DtRawRecord::Range& o = *picture;

    if (upright && located->turns) {
      return turned(c, r, source, *located, o, etag, id);
    }
    std::uint64_t first = 0;
    std::uint64_t length = o.m_length;
    unsigned status = MHD_HTTP_OK;
    KpzServeHttp::Range range;
    if (!rangeOf(c, etag, length, &range)) {
      return unsatisfiable(c, r, length);
    }
    if (range.kind == KpzServeHttp::Range::Kind::Satisfiable) {
      first = range.first;
      length = range.length;
      status = MHD_HTTP_PARTIAL_CONTENT;
    }
    if (length <= kInlineBytes) {
      const bool whole = status == MHD_HTTP_OK && !upright;
      return withHead(c, r, source, o, status, first, length, etag, lastModified,
                      whole ? located.get() : nullptr);
    }
    // Sent from the raw file's own descriptor (sendfile), which the
    // response owns and closes. libmicrohttpd sends it 128 KiB at a time.
    // When the head was read on this descriptor (a file met for the first
    // time: its pages likely cold too), readahead is off for it, so the
    // whole range is asked for at once first, not read 128 KiB by 128 KiB as
    // each send needs it. A file located before is opened afresh with the
    // system's own readahead, and its pages are most often in the cache
    // already: asking for them again would walk the cache page by page
    // (a tenth of a warm preview's processor time) for nothing.
    const int sendFd = source.Release();
    if (headRead) KpzReadHint::WillNeed(sendFd, o.m_offset + first, length);
    MHD_Response* response =
        MHD_create_response_from_fd_at_offset64(length, sendFd, o.m_offset + first);
    if (response == nullptr) {
      close(sendFd);
      return MHD_NO;
    }
    pictureHeaders(response, etag, lastModified, status, first, length, o.m_length);
    return queue(c, r, status, response, length);
  }

  // The ready answer of a picture (see Located), when the request is a
  // plain one (no range, no condition) and the file behind `fd` is still
  // the version it was made from: queued, `fd` closed, true. Otherwise
  // false, `fd` left open, and *seen and *located what this found out (the
  // file's identity, its entry) for the caller to go on with.
  bool answerReady(MHD_Connection* c, Req* r, Route route, int fd, Identity* seen,
                   std::shared_ptr<const Located>* located, MHD_Result* answered) {
    if (MHD_lookup_connection_value(c, MHD_HEADER_KIND, "Range") != nullptr ||
        MHD_lookup_connection_value(c, MHD_HEADER_KIND, "If-None-Match") != nullptr ||
        MHD_lookup_connection_value(c, MHD_HEADER_KIND, "If-Modified-Since") != nullptr) {
      return false;
    }
    struct stat st;
    if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) return false;  // KpzSource tells why
    seen->dev = static_cast<std::uint64_t>(st.st_dev);
    seen->ino = static_cast<std::uint64_t>(st.st_ino);
    seen->size = static_cast<std::uint64_t>(st.st_size);
    seen->mtimeSec = static_cast<std::int64_t>(st.st_mtim.tv_sec);
    seen->mtimeNsec = st.st_mtim.tv_nsec;
    *located = cache.Get(*seen);
    if (!*located) return false;
    const int slot = route == Route::Preview ? 0 : 1;
    MHD_Response* response = (*located)->ready[slot].load(std::memory_order_acquire);
    if (response == nullptr) return false;
    close(fd);
    *answered = queueReady(c, r, response, (*located)->Of(slot == 0 ? DtRawRecord::PicturePreview
                                                                    : DtRawRecord::PictureThumbnail)
                                               ->m_length);
    return true;
  }

  // A picture (or range) this small is read and sent with its head in one
  // write. libmicrohttpd sends the head of a response from a descriptor on
  // its own, with TCP_NODELAY set, before the first sendfile: two segments,
  // and two wake-ups of the client, where one does. For a thumbnail that
  // second segment costs more than reading its bytes (a copy of a few KiB
  // from the page cache); a preview is still sent from the descriptor.
  static constexpr std::uint64_t kInlineBytes = 64 * 1024;

  // Reads `length` bytes of the picture from `first` on and answers with
  // them (a 422 in the kit's words when the file no longer holds them).
  // With `keep` (the whole picture, as a plain GET asks for it), the answer
  // is also offered to the entry as its ready one.
  MHD_Result withHead(MHD_Connection* c, Req* r, KpzSource& source,
                      const DtRawRecord::Range& located, unsigned status, std::uint64_t first,
                      std::uint64_t length, const std::string& etag,
                      const std::string& lastModified, const Located* keep) {
    auto* bytes = new (std::nothrow) std::vector<UINT8>();
    if (bytes == nullptr) return busy(c, r, false);
    try {
      bytes->resize(static_cast<std::size_t>(length));
    } catch (const std::bad_alloc&) {
      delete bytes;
      return busy(c, r, false);
    }
    std::string why;
    if (length != 0 && !source.ReadAt(located.m_offset + first, static_cast<std::size_t>(length),
                                      bytes->data(), DtRawRecord::Name(located.m_picture), &why)) {
      delete bytes;
      return unread(c, r, source, why);
    }
    MHD_Response* response = MHD_create_response_from_buffer_with_free_callback_cls(
        static_cast<size_t>(length), bytes->data(),
        [](void* cls) { delete static_cast<std::vector<UINT8>*>(cls); }, bytes);
    if (response == nullptr) {
      delete bytes;
      return MHD_NO;
    }
    pictureHeaders(response, etag, lastModified, status, first, length, located.m_length);
    if (keep == nullptr) return queue(c, r, status, response, length);
    MHD_add_response_header(response, "X-Content-Type-Options", "nosniff");
    const int slot = located.m_picture == DtRawRecord::PicturePreview ? 0 : 1;
    const bool kept = offerReady(*keep, slot, response);
    const MHD_Result ok = queueReady(c, r, response, length);
    if (!kept) MHD_destroy_response(response);
    return ok;
  }

  // Publishes `response` (complete: every header added) as the ready
  // answer of `located`'s picture `slot` when the bound has room and none
  // was published first; the entry then owns the reference made with it.
  bool offerReady(const Located& located, int slot, MHD_Response* response) {
    const std::size_t cost = Located::ReadyCost(slot == 0 ? located.preview : located.thumbnail);
    if (ready.bytes.fetch_add(cost, std::memory_order_relaxed) + cost > options.readyBytes) {
      ready.bytes.fetch_sub(cost, std::memory_order_relaxed);
      return false;
    }
    MHD_Response* none = nullptr;
    if (!located.ready[slot].compare_exchange_strong(none, response, std::memory_order_acq_rel)) {
      ready.bytes.fetch_sub(cost, std::memory_order_relaxed);
      return false;
    }
    ready.answers.fetch_add(1, std::memory_order_relaxed);
    return true;
  }

  // Queues a ready answer (200, the whole picture) as it is: it is shared,
  // so nothing is added to it.
  MHD_Result queueReady(MHD_Connection* c, Req* r, MHD_Response* response, std::uint64_t bytes) {
    r->status = MHD_HTTP_OK;
    r->bytes = bytes;
    return MHD_queue_response(c, MHD_HTTP_OK, response);
  }

  // False when a Range asks for bytes wholly past the end (answer 416).
  static bool rangeOf(MHD_Connection* c, const std::string& etag, std::uint64_t size,
                      KpzServeHttp::Range* range) {
    const char* header = MHD_lookup_connection_value(c, MHD_HEADER_KIND, "Range");
    const char* ifRange = MHD_lookup_connection_value(c, MHD_HEADER_KIND, "If-Range");
    if (header == nullptr || (ifRange != nullptr && etag != ifRange)) {
      return true;  // the whole body
    }
    *range = KpzServeHttp::ParseRange(header, size);
    return range->kind != KpzServeHttp::Range::Kind::Unsatisfiable;
  }

  MHD_Result unsatisfiable(MHD_Connection* c, Req* r, std::uint64_t size) {
    metrics.Fail(Failure::BadRequest);
    MHD_Response* response = MHD_create_response_from_buffer(0, nullptr, MHD_RESPMEM_PERSISTENT);
    if (response == nullptr) return MHD_NO;
    MHD_add_response_header(response, "Content-Range",
                            ("bytes */" + std::to_string(size)).c_str());
    return queue(c, r, MHD_HTTP_RANGE_NOT_SATISFIABLE, response, 0);
  }

  void pictureHeaders(MHD_Response* response, const std::string& etag,
                      const std::string& lastModified, unsigned status, std::uint64_t first,
                      std::uint64_t length, std::uint64_t size) {
    MHD_add_response_header(response, "Content-Type", "image/jpeg");
    MHD_add_response_header(response, "Accept-Ranges", "bytes");
    validators(response, etag, lastModified);
    if (status == MHD_HTTP_PARTIAL_CONTENT) {
      const std::string cr = "bytes " + std::to_string(first) + "-" +
                             std::to_string(first + length - 1) + "/" + std::to_string(size);
      MHD_add_response_header(response, "Content-Range", cr.c_str());
    }
  }

  // The picture at `stored` of a file whose orientation (in `located`) asks
  // for a turn, turned by the kit (KpzExtraction::Turn) or found turned in
  // the cache of turned pictures.
  MHD_Result turned(MHD_Connection* c, Req* r, KpzSource& source, const Located& located,
                    const DtRawRecord::Range& stored, const std::string& etag, const Identity& id) {
    const std::string& lastModified = located.lastModified;
    KpzServeTurnedCache::File file;
    file.dev = id.dev;
    file.ino = id.ino;
    file.size = id.size;
    file.mtimeSec = id.mtimeSec;
    file.mtimeNsec = id.mtimeNsec;
    const bool preview = stored.m_picture == DtRawRecord::PicturePreview;
    const char variant = preview ? 'P' : 'T';
    KpzServeTurnedCache::Bytes bytes = turnedCache.Get(file, variant);
    if (!bytes) {
      std::vector<UINT8> original;
      try {
        original.resize(stored.m_length);  // inside the file: Locate checked it
      } catch (const std::bad_alloc&) {
        return busy(c, r, false);
      }
      std::string why;
      if (!source.ReadAt(stored.m_offset, stored.m_length, original.data(),
                         DtRawRecord::Name(stored.m_picture), &why)) {
        return unread(c, r, source, why);
      }
      KpzExtraction::Options want;
      want.kind = preview ? KpzExtraction::Kind::Preview : KpzExtraction::Kind::Thumbnail;
      want.upright = true;
      KpzExtraction::Outcome o;
      o.range.offset = stored.m_offset;
      o.range.length = stored.m_length;
      o.orientation = located.orientation;
      o.turns = true;
      KpzExtraction::Turn(original.data(), original.size(), want, &o);
      if (!o.ok()) return unprocessable(c, r, o.kind, o.words);
      bytes = std::make_shared<const std::vector<UINT8>>(std::move(o.bytes));
      // Kept under the identity read when the file was opened: a file
      // changed since is another identity and misses.
      turnedCache.Put(file, variant, bytes);
    }
    const std::uint64_t size = bytes->size();
    std::uint64_t first = 0;
    std::uint64_t length = size;
    unsigned status = MHD_HTTP_OK;
    KpzServeHttp::Range range;
    if (!rangeOf(c, etag, size, &range)) {
      return unsatisfiable(c, r, size);
    }
    if (range.kind == KpzServeHttp::Range::Kind::Satisfiable) {
      first = range.first;
      length = range.length;
      status = MHD_HTTP_PARTIAL_CONTENT;
    }
    // The response holds its own reference: the bytes outlive their entry
    // in the cache until they are sent.
    auto* held = new KpzServeTurnedCache::Bytes(bytes);
    MHD_Response* response = MHD_create_response_from_buffer_with_free_callback_cls(
        static_cast<size_t>(length), const_cast<UINT8*>(bytes->data()) + first,
        [](void* cls) { delete static_cast<KpzServeTurnedCache::Bytes*>(cls); }, held);
    if (response == nullptr) {
      delete held;
      return MHD_NO;
    }
    pictureHeaders(response, etag, lastModified, status, first, length, size);
    return queue(c, r, status, response, length);
  }
};

KpzServe::KpzServe(Options options) : m_impl(new Impl(std::move(options))) {}

KpzServe::~KpzServe() {
  Stop();
  if (m_impl->rootFd >= 0) close(m_impl->rootFd);
}

unsigned KpzServe::Port() const { return m_impl->port; }

std::string KpzServe::Url() const {
  return "http://" + m_impl->urlHost + ":" + std::to_string(m_impl->port) + "/";
}

bool KpzServe::Start(std::string* error) {
  Impl& s = *m_impl;
  s.rootFd = open(s.options.root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (s.rootFd < 0) {
    *error = s.options.root + ": " + (errno == ENOTDIR ? "not a directory" : std::strerror(errno));
    return false;
  }
  addrinfo hints;
  std::memset(&hints, 0, sizeof hints);
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_NUMERICSERV;
  addrinfo* found = nullptr;
  const std::string service = std::to_string(s.options.port);
  const int rc = getaddrinfo(s.options.host.c_str(), service.c_str(), &hints, &found);
  if (rc != 0 || found == nullptr) {
    *error = "cannot listen on " + s.options.host + ": " + gai_strerror(rc);
    return false;
  }
  sockaddr_storage address;
  std::memcpy(&address, found->ai_addr, found->ai_addrlen);
  const bool v6 = found->ai_family == AF_INET6;
  freeaddrinfo(found);
  s.urlHost = v6 ? "[" + s.options.host + "]" : s.options.host;

  unsigned threads = s.options.threads;
  if (threads == 0) threads = std::max(1u, std::thread::hardware_concurrency());
  unsigned int flags = MHD_USE_INTERNAL_POLLING_THREAD | MHD_USE_EPOLL | MHD_USE_TURBO |
                       MHD_USE_ITC;
  // libmicrohttpd writes a line for every client gone or cut: thousands
  // from a crowd of slow clients, and a standard error nobody reads (a
  // full pipe) would stop the threads that write them. Only with -v.
  if (s.options.logConnections) flags |= MHD_USE_ERROR_LOG;
  if (v6) flags |= MHD_USE_IPv6;
  // Connections past the limit still get their 503 (answer()); past this
  // second bound libmicrohttpd closes them at once.
  const unsigned hardLimit = s.options.maxConnections + 64;
  s.daemon = MHD_start_daemon(
      flags, 0, nullptr, nullptr, &Impl::onRequest, &s,
      MHD_OPTION_EXTERNAL_LOGGER,
      static_cast<MHD_LogCallback>([](void* cls, const char* format, va_list args) {
        char line[512];
        std::vsnprintf(line, sizeof line, format, args);
        dprintf(static_cast<Impl*>(cls)->options.logFd, "kpz: serve: %s", line);
      }),
      &s,
      MHD_OPTION_SOCK_ADDR, reinterpret_cast<sockaddr*>(&address),
      MHD_OPTION_THREAD_POOL_SIZE, threads,
      MHD_OPTION_CONNECTION_LIMIT, hardLimit,
      MHD_OPTION_CONNECTION_TIMEOUT, s.options.timeoutSeconds,
      // Room for the request line and the headers; past it, libmicrohttpd
      // answers 414 or 431 itself.
      MHD_OPTION_CONNECTION_MEMORY_LIMIT,
      static_cast<size_t>(s.options.maxUrlBytes + s.options.maxHeaderBytes + 8192),
      MHD_OPTION_UNESCAPE_CALLBACK, &Impl::keepEscaped, nullptr,
      MHD_OPTION_NOTIFY_COMPLETED, &Impl::onCompleted, &s,
      MHD_OPTION_NOTIFY_CONNECTION, &Impl::onConnection, &s,
      MHD_OPTION_LISTEN_BACKLOG_SIZE, 1024u,
      MHD_OPTION_END);
  if (s.daemon == nullptr) {
    *error = "cannot listen on " + s.options.host + ":" + service;
    return false;
  }
  const MHD_DaemonInfo* info = MHD_get_daemon_info(s.daemon, MHD_DAEMON_INFO_BIND_PORT);
  s.port = info != nullptr ? info->port : s.options.port;
  return true;
}

void KpzServe::Tick() {
  Impl& s = *m_impl;
  const std::int64_t now = nowNanos();
  const std::int64_t headLimit = static_cast<std::int64_t>(s.options.timeoutSeconds) * 1000000000;
  const std::int64_t busyLimit = static_cast<std::int64_t>(s.options.requestSeconds) * 1000000000;
  const bool draining = s.draining.load();
  std::lock_guard<std::mutex> lock(s.connMutex);
  for (Conn* c : s.conns) {
    if (c->cut || c->fd < 0) continue;
    const std::int64_t waiting = c->waitingSince.load();
    const std::int64_t busy = c->busySince.load();
    const bool late = (waiting != 0 && (draining || now - waiting > headLimit)) ||
                      (busy != 0 && now - busy > busyLimit);
    if (late) {
      // libmicrohttpd sees the connection end and closes it.
      shutdown(c->fd, SHUT_RDWR);
      c->cut = true;
      s.metrics.Cut();
    }
  }
}

void KpzServe::Stop() {
  Impl& s = *m_impl;
  if (s.daemon == nullptr) return;
  s.draining.store(true);
  const MHD_socket listener = MHD_quiesce_daemon(s.daemon);
  if (listener != MHD_INVALID_SOCKET) close(listener);
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(s.options.drainSeconds);
  while (std::chrono::steady_clock::now() < end) {  // bounded by drainSeconds
    Tick();  // idle connections closed at once
    if (s.metrics.OpenConnections() == 0) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  MHD_stop_daemon(s.daemon);
  s.daemon = nullptr;
}
