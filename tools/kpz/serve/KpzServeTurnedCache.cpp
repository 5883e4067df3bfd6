// KpzServeTurnedCache.cpp - kpz serve's bounded cache of turned pictures
// (tools/kpz/serve). See the header.
#include "kpz/serve/KpzServeTurnedCache.h"

#include <iterator>
#include <utility>

namespace {

bool sameVersion(const KpzServeTurnedCache::File& a, const KpzServeTurnedCache::File& b) {
  return a.size == b.size && a.mtimeSec == b.mtimeSec && a.mtimeNsec == b.mtimeNsec;
}

}  // namespace

std::size_t KpzServeTurnedCache::KeyHash::operator()(const Key& k) const {
  std::uint64_t h = 1469598103934665603ull;
  for (std::uint64_t v : {k.dev, k.ino, static_cast<std::uint64_t>(static_cast<unsigned char>(k.variant))}) {
    h = (h ^ v) * 1099511628211ull;
    h ^= h >> 29;
  }
  return static_cast<std::size_t>(h);
}

KpzServeTurnedCache::KpzServeTurnedCache(std::size_t capacityBytes) : m_capacity(capacityBytes) {}

void KpzServeTurnedCache::drop(Order::iterator it) {
  m_bytes -= it->cost;
  m_index.erase(it->key);
  m_order.erase(it);
}

KpzServeTurnedCache::Bytes KpzServeTurnedCache::Get(const File& file, char variant) {
  std::lock_guard<std::mutex> lock(m_mutex);
  auto it = m_index.find(Key{file.dev, file.ino, variant});
  if (it == m_index.end()) {
    ++m_misses;
    return nullptr;
  }
  if (!sameVersion(it->second->file, file)) {
    drop(it->second);  // made from another version of the file
    ++m_misses;
    return nullptr;
  }
  m_order.splice(m_order.begin(), m_order, it->second);
  ++m_hits;
  return it->second->bytes;
}

void KpzServeTurnedCache::Put(const File& file, char variant, Bytes bytes) {
  if (!bytes) return;
  const Key key{file.dev, file.ino, variant};
  const std::size_t cost = bytes->size() + kEntryOverhead;
  std::lock_guard<std::mutex> lock(m_mutex);
  auto it = m_index.find(key);
  if (it != m_index.end()) drop(it->second);
  if (cost > m_capacity) return;
  m_order.push_front(Entry{key, file, std::move(bytes), cost});
  m_index.emplace(key, m_order.begin());
  m_bytes += cost;
  while (m_bytes > m_capacity) {  // one out per pass; the new entry alone fits
    drop(std::prev(m_order.end()));
    ++m_evictions;
  }
}

KpzServeTurnedCache::Figures KpzServeTurnedCache::Snapshot() {
  std::lock_guard<std::mutex> lock(m_mutex);
  Figures f;
  f.entries = m_index.size();
  f.bytes = m_bytes;
  f.capacity = m_capacity;
  f.hits = m_hits;
  f.misses = m_misses;
  f.evictions = m_evictions;
  return f;
}
