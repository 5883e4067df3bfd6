// KpzServeTurnedCache.h - the pictures kpz serve has turned upright
// (?upright=1), kept so that the next request for one costs no decode and
// no turn: bounded in bytes, the least recently used dropped first, an
// entry good only for the very version of the file it was made from.
//
// Part of the kpz tool (tools/kpz/serve), beside KpzServe, which fills it
// and answers from it.
//
//   KpzServeTurnedCache cache(64 << 20);
//   KpzServeTurnedCache::Bytes b = cache.Get(file, 'T');
//   if (!b) { b = turn(...); cache.Put(file, 'T', b); }
//   // send b->data(): the bytes stay alive while `b` (a copy of it) does
//
// An entry is found by the file's device and inode and the picture asked
// for ('P'review, 'T'humbnail); it holds the size and modification time it
// was made from. A Get whose file has another size or time drops the entry
// and misses: a changed file is never answered from here, and its old
// picture is not kept.
//
// The bound counts each entry's bytes plus a fixed allowance for its
// bookkeeping (kEntryOverhead); a picture larger than the whole bound is
// not kept. Bytes handed out by Get stay alive while a response holds them,
// after their entry is dropped: those are bounded by the requests in
// progress, not by this cache. Thread-safe (one lock); not copyable.
#ifndef KPZ_TOOLS_KPZ_SERVE_KPZSERVETURNEDCACHE_H
#define KPZ_TOOLS_KPZ_SERVE_KPZSERVETURNEDCACHE_H

#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <vector>

class KpzServeTurnedCache {
 public:
  // One version of one file: a change of size or modification time is
  // another version.
  struct File {
    std::uint64_t dev = 0;
    std::uint64_t ino = 0;
    std::uint64_t size = 0;
    std::int64_t mtimeSec = 0;
    long mtimeNsec = 0;
  };
  using Bytes = std::shared_ptr<const std::vector<std::uint8_t>>;

  struct Figures {
    std::size_t entries = 0;
    std::size_t bytes = 0;           // as the bound counts them
    std::size_t capacity = 0;        // the bound
    std::uint64_t hits = 0;
    std::uint64_t misses = 0;        // stale entries dropped included
    std::uint64_t evictions = 0;     // dropped to keep the bound
  };

  // What the bound counts for one entry besides its picture's bytes.
  static constexpr std::size_t kEntryOverhead = 256;

  // `capacityBytes` 0: nothing is kept.
  explicit KpzServeTurnedCache(std::size_t capacityBytes);
  KpzServeTurnedCache(const KpzServeTurnedCache&) = delete;
  KpzServeTurnedCache& operator=(const KpzServeTurnedCache&) = delete;

  // The picture `variant` of `file` as kept, or null (not kept, or kept
  // from another version of the file: then dropped).
  Bytes Get(const File& file, char variant);
  // Keeps `bytes` as the picture `variant` of `file` (replacing what was
  // kept for that file and variant), then drops the least recently used
  // until the bound holds. Not kept when larger than the bound.
  void Put(const File& file, char variant, Bytes bytes);

  Figures Snapshot();

 private:
  struct Key {
    std::uint64_t dev;
    std::uint64_t ino;
    char variant;
    bool operator==(const Key& o) const {
      return dev == o.dev && ino == o.ino && variant == o.variant;
    }
  };
  struct KeyHash {
    std::size_t operator()(const Key& k) const;
  };
  struct Entry {
    Key key;
    File file;
    Bytes bytes;
    std::size_t cost;
  };
  using Order = std::list<Entry>;  // most recent first

  void drop(Order::iterator it);  // under m_mutex

  const std::size_t m_capacity;
  std::mutex m_mutex;
  Order m_order;
  std::unordered_map<Key, Order::iterator, KeyHash> m_index;
  std::size_t m_bytes = 0;
  std::uint64_t m_hits = 0;
  std::uint64_t m_misses = 0;
  std::uint64_t m_evictions = 0;
};

#endif  // KPZ_TOOLS_KPZ_SERVE_KPZSERVETURNEDCACHE_H
