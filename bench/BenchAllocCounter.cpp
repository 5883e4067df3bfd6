// BenchAllocCounter.cpp - the counting allocator of the benchmark programs.
// See BenchAllocCounter.h.
//
// glibc lets a program replace malloc and friends and routes its own calls
// through the replacement; __libc_malloc and the like stay reachable and do
// the real work.
#include "BenchAllocCounter.h"

#include <atomic>
#include <cerrno>
#include <cstddef>

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* ptr, std::size_t size);
void __libc_free(void* ptr);
void* __libc_memalign(std::size_t alignment, std::size_t size);
}

namespace {

std::atomic<unsigned long long> g_allocations{0};
std::atomic<unsigned long long> g_frees{0};

void countAllocation() { g_allocations.fetch_add(1, std::memory_order_relaxed); }

}  // namespace

unsigned long long BenchAllocCounter::Allocations() {
  return g_allocations.load(std::memory_order_relaxed);
}

unsigned long long BenchAllocCounter::Frees() { return g_frees.load(std::memory_order_relaxed); }

extern "C" {

void* malloc(std::size_t size) {
  countAllocation();
  return __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size) {
  countAllocation();
  return __libc_calloc(count, size);
}

void* realloc(void* ptr, std::size_t size) {
  countAllocation();
  return __libc_realloc(ptr, size);
}

void free(void* ptr) {
  if (ptr != nullptr) {
    g_frees.fetch_add(1, std::memory_order_relaxed);
  }
  __libc_free(ptr);
}

void* memalign(std::size_t alignment, std::size_t size) {
  countAllocation();
  return __libc_memalign(alignment, size);
}

void* aligned_alloc(std::size_t alignment, std::size_t size) {
  countAllocation();
  return __libc_memalign(alignment, size);
}

int posix_memalign(void** out, std::size_t alignment, std::size_t size) {
  countAllocation();
  void* ptr = __libc_memalign(alignment, size);
  if (ptr == nullptr) {
    return ENOMEM;
  }
  *out = ptr;
  return 0;
}

}  // extern "C"
