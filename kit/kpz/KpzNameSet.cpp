// KpzNameSet.cpp - names as 96-bit digests in an open-addressing table
// (kit/kpz). See KpzNameSet.h.

#include "kpz/KpzNameSet.h"

#include <cstring>

namespace {

// FNV-1a, 64 bits.
std::uint64_t fnv1a(std::string_view s) {
  std::uint64_t h = 0xcbf29ce484222325ULL;
  for (const char c : s) {
    h = (h ^ static_cast<unsigned char>(c)) * 0x100000001b3ULL;
  }
  return h;
}

// The finaliser of SplitMix64: every input bit reaches every output bit.
std::uint64_t mix(std::uint64_t z) {
  z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ULL;
  z = (z ^ (z >> 27)) * 0x94d049bb133111ebULL;
  return z ^ (z >> 31);
}

// A second hash of another kind: eight bytes at a time, each word mixed in.
std::uint64_t words(std::string_view s) {
  std::uint64_t h = 0x9e3779b97f4a7c15ULL ^ s.size();
  std::size_t i = 0;
  for (; i + 8 <= s.size(); i += 8) {
    std::uint64_t w;
    std::memcpy(&w, s.data() + i, 8);
    h = mix(h ^ w);
  }
  std::uint64_t tail = 0;
  if (s.size() > i) {  // an empty view may have no data at all
    std::memcpy(&tail, s.data() + i, s.size() - i);
  }
  return mix(h ^ tail ^ (static_cast<std::uint64_t>(s.size() - i) << 56));
}

}  // namespace

KpzNameSet::Digest KpzNameSet::digestOf(std::string_view name) {
  Digest d{mix(fnv1a(name)), static_cast<std::uint32_t>(words(name))};
  if (d.high == 0) {
    d.high = 1;
  }
  return d;
}

std::size_t KpzNameSet::find(const Digest& d) const {
  const std::size_t mask = m_high.size() - 1;
  std::size_t i = static_cast<std::size_t>(d.high) & mask;
  while (m_high[i] != 0 && (m_high[i] != d.high || m_low[i] != d.low)) {
    i = (i + 1) & mask;  // the table is never full: an empty slot ends the search
  }
  return i;
}

void KpzNameSet::grow() {
  std::vector<std::uint64_t> high(m_high.empty() ? 1024 : m_high.size() * 2, 0);
  std::vector<std::uint32_t> low(high.size(), 0);
  m_high.swap(high);
  m_low.swap(low);
  for (std::size_t i = 0; i < high.size(); ++i) {
    if (high[i] != 0) {
      const std::size_t at = find({high[i], low[i]});
      m_high[at] = high[i];
      m_low[at] = low[i];
    }
  }
}

bool KpzNameSet::Insert(std::string_view name) {
  if ((m_size + 1) * 4 > m_high.size() * 3) {
    grow();
  }
  const Digest d = digestOf(name);
  const std::size_t at = find(d);
  if (m_high[at] != 0) {
    return false;
  }
  m_high[at] = d.high;
  m_low[at] = d.low;
  ++m_size;
  return true;
}

bool KpzNameSet::Contains(std::string_view name) const {
  return !m_high.empty() && m_high[find(digestOf(name))] != 0;
}
