// Heap accounting for the memory benchmarks. Global operator new and delete,
// every form, are replaced so that the blocks made while a Counting scope
// lives are recorded with their requested size; live() tells what the
// recorded blocks still hold: the bytes requested and the bytes malloc
// reserves for them (its usable size plus the 8-byte chunk header). The
// framework's pooled blocks count too: their requested sizes, and the block
// sizes they hold (the pool's chunks bypass operator new); so do its slabs'
// blocks and region headers (Kel/Slab.h, mapped apart from the heap).
//
// Include it from exactly one file of a benchmark binary (it defines the
// replacement operators). Outside a Counting scope an allocation costs one
// flag test; a free costs a look-up while recorded blocks remain.
#pragma once

#include <malloc.h>
#include <sys/mman.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <new>
#include <utility>

#include "Kel/Pool.h"
#include "Kel/Slab.h"

namespace Bench {

struct Bytes {
  int64_t requested = 0;
  int64_t reserved = 0;
  friend Bytes operator-(const Bytes& a, const Bytes& b) {
    return {a.requested - b.requested, a.reserved - b.reserved};
  }
  friend bool operator==(const Bytes&, const Bytes&) = default;
};

namespace detail {

// The requested size of each recorded live block, by address: not every free
// says its size. Linear probing with backward-shift deletion, in pages mapped
// apart so that it counts nothing itself; doubles past half full.
class BlockSizes {
 public:
  bool empty() const { return count_ == 0; }

  void add(void* p, size_t n) {
    if (2 * (count_ + 1) > capacity()) grow();
    Slot& s = slots_[probe(p)];
    if (s.p == nullptr) ++count_;
    s = {p, n};
  }

  template <class F>
  void forEach(F&& f) const {
    for (size_t i = 0; i < capacity(); ++i) {
      if (slots_[i].p != nullptr) f(slots_[i].p, slots_[i].n);
    }
  }

  // Forgets `p`; false when it was not recorded.
  bool take(void* p, size_t& n) {
    size_t i = probe(p);
    if (slots_[i].p == nullptr) return false;
    n = slots_[i].n;
    --count_;
    // Pull back each later entry of the run that may sit at i.
    for (size_t j = next(i); slots_[j].p != nullptr; j = next(j)) {
      const size_t h = home(slots_[j].p);
      const bool between = i <= j ? (i < h && h <= j) : (i < h || h <= j);
      if (!between) {
        slots_[i] = slots_[j];
        i = j;
      }
    }
    slots_[i] = {};
    return true;
  }

 private:
  struct Slot {
    void* p = nullptr;
    size_t n = 0;
  };
  size_t capacity() const { return slots_ == nullptr ? 0 : size_t(1) << bits_; }
  size_t next(size_t i) const { return (i + 1) & (capacity() - 1); }
  size_t home(void* p) const { return (uintptr_t(p) >> 4) * 0x9e3779b97f4a7c15ull >> (64 - bits_); }
  // The slot holding `p`, or the free slot where it would go.
  size_t probe(void* p) const {
    size_t i = home(p);
    while (slots_[i].p != nullptr && slots_[i].p != p) i = next(i);
    return i;
  }
  static Slot* map(unsigned bits) {
    void* m = mmap(nullptr, sizeof(Slot) << bits, PROT_READ | PROT_WRITE,
                   MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (m == MAP_FAILED) std::abort();
    return static_cast<Slot*>(m);
  }
  void grow() {
    Slot* old = slots_;
    const size_t oldCapacity = capacity();
    bits_ = old == nullptr ? 16 : bits_ + 1;
    slots_ = map(bits_);
    for (size_t i = 0; i < oldCapacity; ++i) {
      if (old[i].p != nullptr) slots_[probe(old[i].p)] = old[i];
    }
    if (old != nullptr) munmap(old, sizeof(Slot) * oldCapacity);
  }

  Slot* slots_ = nullptr;
  unsigned bits_ = 0;
  size_t count_ = 0;
};

inline bool counting = false;
inline Bytes live;  // of the recorded blocks still allocated
inline BlockSizes sizes;

inline int64_t reservedFor(void* p) { return int64_t(malloc_usable_size(p) + 8); }

inline void* allocate(size_t n, size_t align) noexcept {
  void* p = nullptr;
  if (align <= alignof(std::max_align_t)) {
    p = std::malloc(n != 0 ? n : 1);
  } else if (posix_memalign(&p, align, n != 0 ? n : 1) != 0) {
    p = nullptr;
  }
  if (p != nullptr && counting) {
    sizes.add(p, n);
    live.requested += int64_t(n);
    live.reserved += reservedFor(p);
  }
  return p;
}

inline void* allocateOrThrow(size_t n, size_t align) {
  void* p = allocate(n, align);
  if (p == nullptr) throw std::bad_alloc();
  return p;
}

inline void release(void* p) noexcept {
  if (p == nullptr) return;
  size_t n;
  if (!sizes.empty() && sizes.take(p, n)) {
    live.requested -= int64_t(n);
    live.reserved -= reservedFor(p);
  }
  std::free(p);
}

inline constexpr size_t plainAlign = alignof(std::max_align_t);

}  // namespace detail

// What the recorded blocks and the pooled ones hold now.
inline Bytes live() {
  const Kel::Pool::Usage pooled = Kel::Pool::usage();
  const Kel::Slab::Usage slabs = Kel::Slab::usage();
  return {detail::live.requested + int64_t(pooled.requested + slabs.requested),
          detail::live.reserved + int64_t(pooled.held + slabs.held)};
}

// (pooled, size) to count; (pooled, 0) to the bytes the slabs hold.
using BlockCounts = std::map<std::pair<bool, size_t>, int64_t>;

// The recorded live heap blocks by requested size, and the pooled ones by
// block size. Made with recording off, so it is not recorded itself.
inline BlockCounts liveBlocksBySize() {
  const bool was = detail::counting;
  detail::counting = false;
  BlockCounts bySize;
  detail::sizes.forEach([&](void*, size_t n) { ++bySize[{false, n}]; });
  for (size_t size = 8; size <= Kel::Pool::largest; size += 8) {
    if (const size_t n = Kel::Pool::liveBlocks(size)) bySize[{true, size}] = int64_t(n);
  }
  bySize[{true, 0}] = int64_t(Kel::Slab::usage().held);
  detail::counting = was;
  return bySize;
}

// Records the blocks made during its lifetime.
class Counting {
 public:
  Counting() { detail::counting = true; }
  ~Counting() { detail::counting = false; }
  Counting(const Counting&) = delete;
  Counting& operator=(const Counting&) = delete;
};

// The bytes malloc reserves for a block of `n` bytes.
inline int64_t chunkFor(size_t n) {
  void* p = std::malloc(n);
  const int64_t c = detail::reservedFor(p);
  std::free(p);
  return c;
}

// Prints to stderr the live blocks made between two snapshots, by requested
// size (pooled: by block size, marked "p"; the slabs' bytes on a line "slabs"),
// divided by `per` (the routes, say).
inline void printBlocks(const char* phase, const BlockCounts& before, const BlockCounts& after,
                        double per) {
  std::fprintf(stderr, "%s, per route:\n%10s %10s %10s %10s\n", phase, "block B", "blocks",
               "requested", "reserved");
  for (const auto& [key, n] : after) {
    const auto [pooled, size] = key;
    const auto b = before.find(key);
    const double blocks = double(n - (b != before.end() ? b->second : 0)) / per;
    if (size == 0) {
      if (blocks >= 0.5)
        std::fprintf(stderr, "%10s %10s %10.1f %10.1f\n", "slabs", "", blocks, blocks);
      continue;
    }
    if (blocks * double(size) < 0.5) continue;
    std::fprintf(stderr, "%9zu%s %10.3f %10.1f %10.1f\n", size, pooled ? "p" : " ", blocks,
                 blocks * double(size), blocks * double(pooled ? size : chunkFor(size)));
  }
}

}  // namespace Bench

void* operator new(size_t n) {
  return Bench::detail::allocateOrThrow(n, Bench::detail::plainAlign);
}
void* operator new[](size_t n) {
  return Bench::detail::allocateOrThrow(n, Bench::detail::plainAlign);
}
void* operator new(size_t n, const std::nothrow_t&) noexcept {
  return Bench::detail::allocate(n, Bench::detail::plainAlign);
}
void* operator new[](size_t n, const std::nothrow_t&) noexcept {
  return Bench::detail::allocate(n, Bench::detail::plainAlign);
}
void* operator new(size_t n, std::align_val_t a) {
  return Bench::detail::allocateOrThrow(n, size_t(a));
}
void* operator new[](size_t n, std::align_val_t a) {
  return Bench::detail::allocateOrThrow(n, size_t(a));
}
void* operator new(size_t n, std::align_val_t a, const std::nothrow_t&) noexcept {
  return Bench::detail::allocate(n, size_t(a));
}
void* operator new[](size_t n, std::align_val_t a, const std::nothrow_t&) noexcept {
  return Bench::detail::allocate(n, size_t(a));
}
void operator delete(void* p) noexcept { Bench::detail::release(p); }
void operator delete[](void* p) noexcept { Bench::detail::release(p); }
void operator delete(void* p, size_t) noexcept { Bench::detail::release(p); }
void operator delete[](void* p, size_t) noexcept { Bench::detail::release(p); }
void operator delete(void* p, std::align_val_t) noexcept { Bench::detail::release(p); }
void operator delete[](void* p, std::align_val_t) noexcept { Bench::detail::release(p); }
void operator delete(void* p, size_t, std::align_val_t) noexcept { Bench::detail::release(p); }
void operator delete[](void* p, size_t, std::align_val_t) noexcept { Bench::detail::release(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { Bench::detail::release(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { Bench::detail::release(p); }
void operator delete(void* p, std::align_val_t, const std::nothrow_t&) noexcept {
  Bench::detail::release(p);
}
void operator delete[](void* p, std::align_val_t, const std::nothrow_t&) noexcept {
  Bench::detail::release(p);
}
