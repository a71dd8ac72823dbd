#include "Kel/Pool.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <new>

#include "Kel/HugePages.h"

namespace Kel::Pool {

namespace {

#if defined(__SANITIZE_ADDRESS__)
constexpr bool pooled = false;
#else
constexpr bool pooled = true;
#endif

constexpr std::size_t granule = 8;
constexpr std::size_t classCount = largest / granule + 1;
// An arena's chunks grow from 64 KiB to one huge page: small users stay
// small, large tables get huge pages.
constexpr std::size_t firstChunk = 64 * 1024;

struct FreeBlock {
  FreeBlock* next;
};

struct ArenaState {
  FreeBlock* free[classCount] = {};
  std::size_t live[classCount] = {};
  char* carve = nullptr;  // the unused rest of the newest chunk
  char* carveEnd = nullptr;
  std::size_t nextChunk = firstChunk;
};

ArenaState arenas[2];
std::size_t requestedTotal = 0;

std::size_t classOf(std::size_t size) { return (size + granule - 1) / granule; }

// A fresh chunk for `a`; the rest of the old one is too small for the block
// at hand and is left (at most 255 bytes).
void newChunk(ArenaState& a) {
  const std::size_t chunk = a.nextChunk;
  char* fresh = static_cast<char*>(
      chunk < HugePages::bytes ? std::malloc(chunk) : std::aligned_alloc(HugePages::bytes, chunk));
  if (fresh == nullptr) throw std::bad_alloc();
  if (chunk >= HugePages::bytes) HugePages::advise(fresh, chunk);
  a.carve = fresh;
  a.carveEnd = fresh + chunk;
  a.nextChunk = std::min(2 * chunk, HugePages::bytes);
}

}  // namespace

void* allocate(std::size_t size, Arena arena) {
  if (!pooled || size > largest) return ::operator new(size);
  ArenaState& a = arenas[int(arena)];
  const std::size_t c = classOf(size);
  void* p = a.free[c];
  if (p != nullptr) {
    // Freed blocks come back in any order: start loading the next one now,
    // or each allocation from a long list waits on its own cache miss.
    a.free[c] = a.free[c]->next;
    __builtin_prefetch(a.free[c], 1);
  } else {
    const std::size_t block = c * granule;
    if (std::size_t(a.carveEnd - a.carve) < block) newChunk(a);
    p = a.carve;
    a.carve += block;
  }
  ++a.live[c];
  requestedTotal += size;
  return p;
}

void deallocate(void* p, std::size_t size, Arena arena) noexcept {
  if (!pooled || size > largest) {
    ::operator delete(p);
    return;
  }
  ArenaState& a = arenas[int(arena)];
  const std::size_t c = classOf(size);
  --a.live[c];
  requestedTotal -= size;
  a.free[c] = new (p) FreeBlock{a.free[c]};
}

Usage usage() {
  Usage u{requestedTotal, 0};
  for (const ArenaState& a : arenas) {
    for (std::size_t c = 0; c < classCount; ++c) u.held += a.live[c] * c * granule;
  }
  return u;
}

std::size_t liveBlocks(std::size_t blockSize) {
  if (blockSize % granule != 0 || blockSize > largest) return 0;
  std::size_t n = 0;
  for (const ArenaState& a : arenas) n += a.live[blockSize / granule];
  return n;
}

}  // namespace Kel::Pool
