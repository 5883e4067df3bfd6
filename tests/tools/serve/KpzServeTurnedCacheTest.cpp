// KpzServeTurnedCacheTest.cpp - kpz serve's cache of turned pictures
// (tools/kpz/serve/KpzServeTurnedCache): the bound, the order of leaving,
// and a changed file never answered from it.
#include <gtest/gtest.h>

#if defined(KPZ_TEST_HAVE_SERVE)

#include <atomic>
#include <cstdint>
#include <memory>
#include <thread>
#include <vector>

#include "kpz/serve/KpzServeTurnedCache.h"

namespace {

using Cache = KpzServeTurnedCache;

Cache::File fileOf(std::uint64_t ino, std::uint64_t size = 1000, std::int64_t mtime = 100) {
  Cache::File f;
  f.dev = 7;
  f.ino = ino;
  f.size = size;
  f.mtimeSec = mtime;
  f.mtimeNsec = 5;
  return f;
}

Cache::Bytes bytesOf(std::size_t n, std::uint8_t fill) {
  return std::make_shared<const std::vector<std::uint8_t>>(n, fill);
}

// Room for exactly `n` entries of `picture` bytes each.
std::size_t roomFor(std::size_t n, std::size_t picture) {
  return n * (picture + Cache::kEntryOverhead);
}

}  // namespace

TEST(KpzServeTurnedCache, KeptPictureIsFoundForTheSameFileAndVariant) {
  Cache cache(roomFor(4, 100));
  cache.Put(fileOf(1), 'T', bytesOf(100, 0xAA));
  const Cache::Bytes got = cache.Get(fileOf(1), 'T');
  ASSERT_TRUE(got);
  EXPECT_EQ(*got, std::vector<std::uint8_t>(100, 0xAA));
  EXPECT_FALSE(cache.Get(fileOf(1), 'P'));  // the other picture of the file
  EXPECT_FALSE(cache.Get(fileOf(2), 'T'));  // another file
  const Cache::Figures f = cache.Snapshot();
  EXPECT_EQ(f.hits, 1u);
  EXPECT_EQ(f.misses, 2u);
}

TEST(KpzServeTurnedCache, ChangedSizeOrTimeMissesAndDropsTheOldPicture) {
  Cache cache(roomFor(4, 100));
  cache.Put(fileOf(1, 1000, 100), 'T', bytesOf(100, 1));
  EXPECT_FALSE(cache.Get(fileOf(1, 1001, 100), 'T'));  // size changed
  EXPECT_EQ(cache.Snapshot().entries, 0u);
  EXPECT_EQ(cache.Snapshot().bytes, 0u);

  cache.Put(fileOf(1, 1000, 100), 'T', bytesOf(100, 1));
  Cache::File touched = fileOf(1, 1000, 100);
  touched.mtimeNsec += 1;  // same second, written again
  EXPECT_FALSE(cache.Get(touched, 'T'));
  EXPECT_FALSE(cache.Get(fileOf(1, 1000, 100), 'T'));  // gone, not merely hidden
}

TEST(KpzServeTurnedCache, PutForANewVersionReplacesTheOld) {
  Cache cache(roomFor(4, 100));
  cache.Put(fileOf(1, 1000, 100), 'P', bytesOf(100, 1));
  cache.Put(fileOf(1, 1000, 200), 'P', bytesOf(100, 2));
  EXPECT_EQ(cache.Snapshot().entries, 1u);
  const Cache::Bytes got = cache.Get(fileOf(1, 1000, 200), 'P');
  ASSERT_TRUE(got);
  EXPECT_EQ((*got)[0], 2);
}

TEST(KpzServeTurnedCache, BoundHoldsAndTheLeastRecentlyUsedLeavesFirst) {
  const std::size_t bound = roomFor(3, 100);
  Cache cache(bound);
  cache.Put(fileOf(1), 'T', bytesOf(100, 1));
  cache.Put(fileOf(2), 'T', bytesOf(100, 2));
  cache.Put(fileOf(3), 'T', bytesOf(100, 3));
  ASSERT_TRUE(cache.Get(fileOf(1), 'T'));  // 1 is now the most recent; 2 the least
  cache.Put(fileOf(4), 'T', bytesOf(100, 4));
  EXPECT_FALSE(cache.Get(fileOf(2), 'T'));
  EXPECT_TRUE(cache.Get(fileOf(1), 'T'));
  EXPECT_TRUE(cache.Get(fileOf(3), 'T'));
  EXPECT_TRUE(cache.Get(fileOf(4), 'T'));
  for (std::uint64_t i = 10; i < 200; ++i) {
    cache.Put(fileOf(i), 'T', bytesOf(50 + i % 90, 9));
    const Cache::Figures f = cache.Snapshot();
    ASSERT_LE(f.bytes, bound) << i;
  }
  const Cache::Figures f = cache.Snapshot();
  EXPECT_GT(f.evictions, 0u);
  EXPECT_EQ(f.capacity, bound);
}

TEST(KpzServeTurnedCache, PictureLargerThanTheBoundIsNotKept) {
  Cache cache(roomFor(1, 100));
  cache.Put(fileOf(1), 'P', bytesOf(101, 1));
  EXPECT_FALSE(cache.Get(fileOf(1), 'P'));
  EXPECT_EQ(cache.Snapshot().bytes, 0u);
  cache.Put(fileOf(2), 'P', bytesOf(100, 1));  // exactly the bound
  EXPECT_TRUE(cache.Get(fileOf(2), 'P'));
}

TEST(KpzServeTurnedCache, ZeroCapacityKeepsNothing) {
  Cache cache(0);
  cache.Put(fileOf(1), 'T', bytesOf(1, 1));
  EXPECT_FALSE(cache.Get(fileOf(1), 'T'));
  EXPECT_EQ(cache.Snapshot().entries, 0u);
}

TEST(KpzServeTurnedCache, BytesHandedOutOutliveTheirEntry) {
  Cache cache(roomFor(1, 100));
  cache.Put(fileOf(1), 'T', bytesOf(100, 0x5A));
  const Cache::Bytes held = cache.Get(fileOf(1), 'T');
  cache.Put(fileOf(2), 'T', bytesOf(100, 0x11));  // pushes file 1 out
  EXPECT_FALSE(cache.Get(fileOf(1), 'T'));
  ASSERT_TRUE(held);
  EXPECT_EQ(*held, std::vector<std::uint8_t>(100, 0x5A));
}

TEST(KpzServeTurnedCache, ManyThreadsAtOnceKeepTheBoundAndTheBytes) {
  const std::size_t bound = roomFor(8, 64);
  Cache cache(bound);
  std::vector<std::thread> threads;
  std::atomic<int> wrong{0};
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&cache, &wrong, t] {
      for (int i = 0; i < 2000; ++i) {  // a fixed count: no clock
        const std::uint64_t ino = static_cast<std::uint64_t>((i * 7 + t) % 16);
        const std::uint8_t fill = static_cast<std::uint8_t>(ino);
        const Cache::Bytes got = cache.Get(fileOf(ino), 'T');
        if (got && (got->size() != 64 || (*got)[63] != fill)) ++wrong;
        if (!got) cache.Put(fileOf(ino), 'T', bytesOf(64, fill));
      }
    });
  }
  for (std::thread& th : threads) th.join();
  EXPECT_EQ(wrong.load(), 0);
  const Cache::Figures f = cache.Snapshot();
  EXPECT_LE(f.bytes, bound);
  EXPECT_LE(f.entries, 8u);
  EXPECT_EQ(f.hits + f.misses, 4u * 2000u);
}

#else

TEST(KpzServeTurnedCache, NeedsKpzServe) { GTEST_SKIP() << "kpz serve is not built"; }

#endif
