// Deterministic data for the benchmarks: distinct IPv4 prefixes, /24 and /32
// in equal parts, spread over the address space by a fixed-seed generator, and
// a seeded shuffle. The same on every run and every machine, so that figures
// from different runs measure the same tables.
#pragma once

#include <cstddef>
#include <cstdint>
#include <random>
#include <utility>
#include <vector>

#include "Kel/Collections.h"
#include "platform/Pando/IpGenPrefix.h"

namespace Bench {

// For std containers: the prefix's hash with the seed the framework's
// collections use, so that baselines pay the same hashing.
struct PrefixHash {
  size_t operator()(const Pando::IpGenPrefix& p) const { return p.hash(Kel::collectionHashSeed); }
};

// `count` distinct prefixes in the order drawn.
inline std::vector<Pando::IpGenPrefix> distinctPrefixes(size_t count, uint64_t seed) {
  std::mt19937_64 rng(seed);
  // One slot array rather than a node per key: freeing millions of nodes
  // would leave malloc a consolidation to do inside the first timed run.
  Kel::HashedSet<Pando::IpGenPrefix> seen;
  std::vector<Pando::IpGenPrefix> out;
  out.reserve(count);
  while (out.size() < count) {
    const uint64_t r = rng();
    const auto p = Pando::IpGenPrefix::fromV4(uint32_t(r), (r >> 63) != 0 ? 32 : 24);
    if (seen.insert(Pando::IpGenPrefix(p)).second) out.push_back(p);
  }
  return out;
}

// Fisher-Yates with our own generator: std::shuffle's order is the library's choice.
template <class T>
void shuffle(std::vector<T>& v, uint64_t seed) {
  std::mt19937_64 rng(seed);
  for (size_t i = v.size(); i > 1; --i) std::swap(v[i - 1], v[rng() % i]);
}

}  // namespace Bench
