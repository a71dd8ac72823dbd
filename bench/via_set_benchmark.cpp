// Budget: finding a present via set content (dedupConfigViaSetIs hitting)
// costs the same whether the via set configuration mirrors into a
// Brisk::ViaSetCollection or not; the argument says which (0: none, 1: a
// collection). Context: creating and releasing a via set, which pays for the
// mirror's copy of the keys.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <random>
#include <vector>

#include "platform/Routing/Rib/Brisk/ViaSet.h"
#include "platform/Routing/Rib/Brisk/ViaSetCollection.h"
#include "platform/Routing/Rib/ViaSetConfig.h"

namespace {

using Routing::Rib::ViaKey;
using Routing::Rib::ViaSetConfig;
using Routing::Rib::ViaSetEntry;
using Routing::Rib::Brisk::ViaSet;

constexpr uint32_t setCount = 100'000;

ViaSet twoVias(uint32_t n) {
  ViaSet s;
  s.viaKeyIs(0, ViaKey(1, 0, 2, n));
  s.viaKeyIs(1, ViaKey(1, 0, 2, n + 1));
  return s;
}

Kel::Ptr<ViaSetConfig> config(bool mirrored) {
  auto c = Kel::makePtr<ViaSetConfig>();
  if (mirrored) c->configViaSetCollIs(Kel::makePtr<Routing::Rib::Brisk::ViaSetCollection>());
  return c;
}

void BM_DedupHit(benchmark::State& state) {
  auto c = config(state.range(0) != 0);
  std::vector<ViaSet> contents;
  std::vector<Kel::Ptr<const ViaSetEntry>> held;
  for (uint32_t n = 0; n < setCount; ++n) {
    contents.push_back(twoVias(2 * n));
    held.push_back(c->dedupConfigViaSetIs(contents.back()));
  }
  std::mt19937 rng(7);
  std::vector<uint32_t> order(4096);
  for (uint32_t& i : order) i = rng() % setCount;
  size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(c->dedupConfigViaSetIs(contents[order[i++ & 4095]]));
  }
}
BENCHMARK(BM_DedupHit)->Arg(0)->Arg(1);

void BM_DedupCreateRelease(benchmark::State& state) {
  auto c = config(state.range(0) != 0);
  const ViaSet s = twoVias(1);
  for (auto _ : state) benchmark::DoNotOptimize(c->dedupConfigViaSetIs(s));
}
BENCHMARK(BM_DedupCreateRelease)->Arg(0)->Arg(1);

}  // namespace
