#include "Kel/Pool.h"

#include <algorithm>
#include <cstdlib>

#include "Kel/HugePages.h"

namespace Kel::Pool {

namespace detail {

ArenaState arenas[2];
std::size_t requestedTotal = 0;

// An arena's chunks grow from 64 KiB to one huge page: small users stay
// small, large tables get huge pages.
constexpr std::size_t firstChunk = 64 * 1024;

void newChunk(ArenaState& a) {
  const std::size_t chunk = std::max(a.nextChunk, firstChunk);
  char* fresh = static_cast<char*>(
      chunk < HugePages::bytes ? std::malloc(chunk) : std::aligned_alloc(HugePages::bytes, chunk));
  if (fresh == nullptr) throw std::bad_alloc();
  if (chunk >= HugePages::bytes) HugePages::advise(fresh, chunk);
  a.carve = fresh;
  a.carveEnd = fresh + chunk;
  a.nextChunk = std::min(2 * chunk, HugePages::bytes);
}

}  // namespace detail

Usage usage() {
  Usage u{detail::requestedTotal, 0};
  for (const detail::ArenaState& a : detail::arenas) {
    for (std::size_t c = 0; c < detail::classCount; ++c) u.held += a.live[c] * c * detail::granule;
  }
  return u;
}

std::size_t liveBlocks(std::size_t blockSize) {
  if (blockSize % detail::granule != 0 || blockSize > largest) return 0;
  std::size_t n = 0;
  for (const detail::ArenaState& a : detail::arenas) n += a.live[blockSize / detail::granule];
  return n;
}

std::size_t liveBlocks(Arena arena) {
  std::size_t n = 0;
  for (const std::size_t live : detail::arenas[int(arena)].live) n += live;
  return n;
}

}  // namespace Kel::Pool
