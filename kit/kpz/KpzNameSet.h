// KpzNameSet.h - a set of names held as digests, a dozen bytes per name:
// the output names a long run has written, so that a later input of the
// same name is refused without keeping every name.
//
// Part of the kit (kit/kpz); uses only the C++ library.
// A name is kept as a 96-bit digest (two different 64-bit hashes of its
// bytes, one cut to 32 bits) in open-addressing tables filled at most to
// three quarters: 12 to 32 bytes per name. The digests are spread over
// kParts tables by their top bits, each doubling on its own, so that a
// doubling holds old and new copies of one part only, not of the whole set.
// Two different names are taken for the same only when both hashes agree:
// for names whose digests behave as random ones, the chance that any two of
// ten million names do is about one in 10^15.
//
//   KpzNameSet written;
//   written.Insert("a.preview.jpg");       // true: new
//   written.Contains("a.preview.jpg");     // true
//
// Not shared between threads.
#ifndef KPZ_KIT_KPZ_KPZNAMESET_H
#define KPZ_KIT_KPZ_KPZNAMESET_H

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

class KpzNameSet {
 public:
  // Adds `name`; true when it was not there.
  bool Insert(std::string_view name);

  // True when `name` was added.
  bool Contains(std::string_view name) const;

  // The number of names added.
  std::size_t Size() const { return m_size; }

  // The bytes the tables hold.
  std::size_t Bytes() const;

  // Tables the digests are spread over.
  static constexpr unsigned int kParts = 64;

 private:
  struct Digest {
    std::uint64_t high;
    std::uint32_t low;
  };

  // One table. Slot i holds (high[i], low[i]); a high part of 0 marks it
  // empty (a digest whose high part is 0 is kept as 1).
  struct Part {
    std::vector<std::uint64_t> high;
    std::vector<std::uint32_t> low;
    std::size_t size = 0;

    // The slot holding `d`, or the empty slot where it would go.
    std::size_t find(const Digest& d) const;
    void grow();
  };

  static Digest digestOf(std::string_view name);
  const Part& partOf(const Digest& d) const { return m_parts[d.high >> 58]; }

  Part m_parts[kParts];
  std::size_t m_size = 0;
};

#endif  // KPZ_KIT_KPZ_KPZNAMESET_H
