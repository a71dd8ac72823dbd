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
// One thread, like the framework.
#pragma once

#include <cstddef>

namespace Kel::Pool {

enum class Arena { data, reactors };

void* allocate(std::size_t size, Arena arena = Arena::data);
// `size` and `arena` are those the block was allocated with.
void deallocate(void* p, std::size_t size, Arena arena = Arena::data) noexcept;

// Memory accounting: what the live pooled blocks were asked for, and hold.
struct Usage {
  std::size_t requested = 0;
  std::size_t held = 0;
};
Usage usage();
// Live pooled blocks of `blockSize` bytes (a multiple of 8), in both arenas.
std::size_t liveBlocks(std::size_t blockSize);
// The largest pooled block.
inline constexpr std::size_t largest = 256;

}  // namespace Kel::Pool
