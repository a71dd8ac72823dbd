// Small blocks for the framework's many small objects (entities, reactors,
// reactor lists, small collections).
//
// A route costs a handful of such objects; malloc adds 8 to 24 bytes to each
// and scatters them. Here blocks come in 8-byte size classes, each with a
// free list, and new blocks are carved one after the other from the chunks
// of an arena that all size classes share: objects made together (a route,
// its preference, its vias) sit together, so a pass that reads them misses
// the cache once per route rather than once per object. Entities and the
// reactors that watch them have an arena each, since passes over routes read
// the one and not the other. Freed blocks stay in their class for reuse;
// chunks (64 KiB growing to 2 MiB) are never returned, since a RIB's table
// sizes come back, and they come from malloc directly, out of sight of heap
// accounting that replaces operator new. Blocks over 256 bytes, and all
// blocks in sanitizer builds (so that misuse stays visible), go to the heap.
// One thread, like the framework. The common paths are inline: a route's
// objects cost a dozen instructions each.
#pragma once

#include <cstddef>
#include <new>

namespace Kel::Pool {

enum class Arena { data, reactors };

// The largest pooled block.
inline constexpr std::size_t largest = 256;

namespace detail {

#if defined(__SANITIZE_ADDRESS__)
inline constexpr bool pooled = false;
#else
inline constexpr bool pooled = true;
#endif
inline constexpr std::size_t granule = 8;
inline constexpr std::size_t classCount = largest / granule + 1;

struct FreeBlock {
  FreeBlock* next;
};
// Blocks of 16 bytes or more also keep the block freed `skipDistance` frees
// before them: mostly the one that many places further down the list, so a
// pop can start loading it that many allocations ahead. A hint only: pops
// and frees in between make it stale, and prefetching stale pool memory is
// harmless (chunks are never returned).
inline constexpr std::size_t skipDistance = 4;
struct SkippingFreeBlock : FreeBlock {
  FreeBlock* skip;
};

struct ArenaState {
  FreeBlock* free[classCount] = {};
  FreeBlock* freedLately[classCount][skipDistance] = {};  // by frees % skipDistance
  std::size_t frees[classCount] = {};
  std::size_t live[classCount] = {};
  char* carve = nullptr;  // the unused rest of the newest chunk
  char* carveEnd = nullptr;
  std::size_t nextChunk = 0;
};

extern ArenaState arenas[2];
extern std::size_t requestedTotal;

inline std::size_t classOf(std::size_t size) { return (size + granule - 1) / granule; }
inline void prefetchForWrite(const void* p, std::size_t size) {
  const char* first = static_cast<const char*>(p);
  for (const char* line = first; line < first + size; line += 64) __builtin_prefetch(line, 1);
  __builtin_prefetch(first + size - 1, 1);  // a block may straddle one more line
}
// Starts a fresh chunk for `a` (the rest of the old one, under 256 bytes, is left).
void newChunk(ArenaState& a);

}  // namespace detail

inline void* allocate(std::size_t size, Arena arena = Arena::data) {
  if (!detail::pooled || size > largest) return ::operator new(size);
  detail::ArenaState& a = detail::arenas[int(arena)];
  const std::size_t c = detail::classOf(size);
  void* p = a.free[c];
  if (p != nullptr) {
    // Freed blocks come back in any order and long out of cache: start
    // loading the whole of the next one now, and of the one some pops
    // further, or each allocation waits on its own cache misses, the
    // constructor's writes and the list's next link too.
    const std::size_t block = c * detail::granule;
    a.free[c] = a.free[c]->next;
    if (a.free[c] != nullptr) detail::prefetchForWrite(a.free[c], block);
    if (block >= sizeof(detail::SkippingFreeBlock)) {
      const detail::FreeBlock* skip = static_cast<detail::SkippingFreeBlock*>(p)->skip;
      if (skip != nullptr) detail::prefetchForWrite(skip, block);
    }
  } else {
    const std::size_t block = c * detail::granule;
    if (std::size_t(a.carveEnd - a.carve) < block) detail::newChunk(a);
    p = a.carve;
    a.carve += block;
  }
  ++a.live[c];
  detail::requestedTotal += size;
  return p;
}

// `size` and `arena` are those the block was allocated with.
inline void deallocate(void* p, std::size_t size, Arena arena = Arena::data) noexcept {
  if (!detail::pooled || size > largest) {
    ::operator delete(p);
    return;
  }
  detail::ArenaState& a = detail::arenas[int(arena)];
  const std::size_t c = detail::classOf(size);
  --a.live[c];
  detail::requestedTotal -= size;
  if (c * detail::granule < sizeof(detail::SkippingFreeBlock)) {
    a.free[c] = new (p) detail::FreeBlock{a.free[c]};
    return;
  }
  detail::FreeBlock*& lately = a.freedLately[c][a.frees[c]++ % detail::skipDistance];
  auto* b = new (p) detail::SkippingFreeBlock{{a.free[c]}, lately};
  lately = b;
  a.free[c] = b;
}

// Memory accounting: what the live pooled blocks were asked for, and hold.
struct Usage {
  std::size_t requested = 0;
  std::size_t held = 0;
};
Usage usage();
// Live pooled blocks of `blockSize` bytes (a multiple of 8), in both arenas.
std::size_t liveBlocks(std::size_t blockSize);
// Live pooled blocks of one arena, every size: the reactors alive, say.
std::size_t liveBlocks(Arena arena);

}  // namespace Kel::Pool
