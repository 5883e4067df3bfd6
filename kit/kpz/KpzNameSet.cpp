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

std::size_t KpzNameSet::Part::find(const Digest& d) const {
  const std::size_t mask = high.size() - 1;
  std::size_t i = static_cast<std::size_t>(d.high) & mask;
  while (high[i] != 0 && (high[i] != d.high || low[i] != d.low)) {
    i = (i + 1) & mask;  // the table is never full: an empty slot ends the search
  }
  return i;
}

void KpzNameSet::Part::grow() {
  std::vector<std::uint64_t> oldHigh(high.empty() ? 16 : high.size() * 2, 0);
  std::vector<std::uint32_t> oldLow(oldHigh.size(), 0);
  high.swap(oldHigh);
  low.swap(oldLow);
  for (std::size_t i = 0; i < oldHigh.size(); ++i) {
    if (oldHigh[i] != 0) {
      const std::size_t at = find({oldHigh[i], oldLow[i]});
      high[at] = oldHigh[i];
      low[at] = oldLow[i];
    }
  }
}

bool KpzNameSet::Insert(std::string_view name) {
  const Digest d = digestOf(name);
  Part& part = m_parts[d.high >> 58];
  if ((part.size + 1) * 4 > part.high.size() * 3) {
    part.grow();
  }
  const std::size_t at = part.find(d);
  if (part.high[at] != 0) {
    return false;
  }
  part.high[at] = d.high;
  part.low[at] = d.low;
  ++part.size;
  ++m_size;
  return true;
}

bool KpzNameSet::Contains(std::string_view name) const {
  const Digest d = digestOf(name);
  const Part& part = partOf(d);
  return !part.high.empty() && part.high[part.find(d)] != 0;
}

std::size_t KpzNameSet::Bytes() const {
  std::size_t bytes = 0;
  for (const Part& part : m_parts) {
    bytes += part.high.capacity() * 8 + part.low.capacity() * 4;
  }
  return bytes;
}
