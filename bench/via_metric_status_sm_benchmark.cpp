// ViaMetricStatusSm at scale: one VRF with 1,000,000 IPv4 routes (/24s and
// /32s), each with one preference and two vias of one type; the framework on
// real time.
//
// Via plans: "shared", every route uses via 0 and one of 256 pool vias;
// "pool", two distinct vias of the 256; "unique", one pool via and one via
// of its own.
//
// Budgets:
// - via 0, used by every route, changes its metric: all routes stamped, and
//   with RouteStatusSm attached stamped and re-evaluated, at least 1,000,000
//   routes/s. The work is one handler call: held_ms is how long the event
//   loop is held. "rewrite" makes the change one that rewrites every RIB route
//   (via 0 resolved, then unresolved) rather than a new metric value;
// - one via under one route changes its metric (resolved, then unresolved),
//   ViaMetricStatus::viaMetricIs to the RIB route write through the index,
//   the stamp and RouteStatusSm: at most 3 us, the median of every event
//   timed alone;
// - the index (RouteByViaKey set entries, entities and the index's own
//   slots) at most 100 bytes per (preference, via) pair, "shared" plan.
//   Context: the other plans, and the per-route reactor tree, alone (with
//   the entities' notifiee lists it is the first to need) and beside
//   RouteStatusSm (whose lists it shares).
//
// - paced sweeps ("PacedViaMetricSweep"), via 0 changing its metric with
//   RouteStatusSm attached: no turn of the event loop longer than the sweep
//   quantum plus 1 ms, and the whole sweep, from the change to its last
//   slice, at least 2,500,000 routes/s. The same change with the toggle off,
//   in the same run, is the baseline (one turn holds the loop throughout).
//
// Whole-scenario figures are timed by hand, one change per iteration.
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <time.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "IpRib/ProtocolRouteStatusSm.h"
#include "IpRib/ProtocolViaMetricStatusSm.h"
#include "Kel/Clock.h"
#include "Kel/System.h"
#include "bench/AllocationCount.h"
#include "bench/BenchData.h"
#include "bench/RouteStatusBenchWorld.h"
#include "platform/Flipset/Flipset.h"

namespace {

using Kel::Ptr;
using Pando::IpGenPrefix;
namespace Protocol = Routing::Protocol;
namespace Rib = Routing::Rib;
using namespace Bench;  // the shared world and its parameters

// VMS_BENCH_ROUTES sets another table size, e.g. a smaller one to profile.
const size_t routeCount = Bench::routesFromEnvironment("VMS_BENCH_ROUTES");
constexpr uint32_t poolSize = 256;
constexpr uint32_t sharedVia = 0;               // pool vias are 1 to poolSize
constexpr uint32_t firstOwnVia = poolSize + 1;  // vias of one route each
constexpr uint32_t spreadTargets = 65536;
constexpr Routing::RouteMetric protocolMetric = 10;

enum class Plan : int64_t { shared, pool, unique };

// This thread's CPU time: the machine is shared, and the wall clock counts
// the time other processes take from it.
double cpuSeconds() {
  timespec t;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
  return double(t.tv_sec) + double(t.tv_nsec) * 1e-9;
}

Rib::ViaMetric resolved(Routing::RouteMetric m = 1) {
  return Rib::ViaMetric(Rib::MetricPref(1, m));
}
// Next hops lie in 172.16.0.0/12, which no route prefix overlaps: no via
// resolves back through its own route.
const IpGenPrefix nextHopNet = IpGenPrefix::fromV4(0xac100000u, 12);
Pando::IpGenAddr nextHop(uint32_t i) { return Pando::IpGenAddr::fromV4(0xac100000u + i); }

struct Data {
  std::vector<IpGenPrefix> prefixes;
  std::vector<std::pair<uint32_t, uint32_t>> poolPairs;  // two distinct pool vias a route
  std::vector<uint32_t> order;                           // the routes, shuffled
};

const Data& data() {
  static const Data d = [] {
    Data d;
    d.prefixes = routePrefixes(routeCount, routeCount + routeCount / 100 + 100, nextHopNet);
    std::mt19937_64 rng(4);
    d.poolPairs.reserve(routeCount);
    for (size_t i = 0; i < routeCount; ++i) {
      const uint32_t a = uint32_t(rng() % poolSize);
      const uint32_t b = (a + 1 + uint32_t(rng() % (poolSize - 1))) % poolSize;
      d.poolPairs.emplace_back(1 + a, 1 + b);
    }
    d.order = shuffledOrder(routeCount);
    return d;
  }();
  return d;
}

std::pair<uint32_t, uint32_t> viasOf(Plan plan, size_t i) {
  const auto [a, b] = data().poolPairs[i];
  switch (plan) {
    case Plan::shared:
      return {sharedVia, a};
    case Plan::pool:
      return {a, b};
    case Plan::unique:
      break;
  }
  return {a, firstOwnVia + uint32_t(i)};
}

// One VRF's status in the protocol's directory, the RIB's via metric tree
// with the pool's vias resolved, and on demand RouteStatusSm (with the
// inputs and outputs the agent gives it) and ViaMetricStatusSm.
struct World : Bench::RouteStatusWorld {
  explicit World(bool resolve = true) {
    dir->statusIs(status);
    for (uint32_t i = 0; i <= poolSize; ++i) {
      viaRecordIs(i);
      if (resolve) ipMetrics->viaMetricIs(via(i), resolved());
    }
  }

  // RouteStatusSm empties its route reactor table front first, which is slow
  // at this size: delete the routes first, with ViaMetricStatusSm gone.
  ~World() {
    vms = nullptr;
    if (rsm) status->routeDelAll();
  }

  void viaRecordIs(uint32_t i) { RouteStatusWorld::viaRecordIs(i, nextHop(i)); }
  Ptr<const Rib::DedupViaKey> dedup(uint32_t i) { return viaKeys->dedupViaKeyIs(via(i)); }

  void writeRoutes(Plan plan) {
    const Data& d = data();
    for (size_t i = 0; i < routeCount; ++i) {
      const auto [a, b] = viasOf(plan, i);
      const Ptr<Protocol::RoutePref> pref = status->routeIs(d.prefixes[i])->routePrefIs(preference);
      pref->dedupViaKeyIs(viaType, dedup(a), protocolMetric);
      pref->dedupViaKeyIs(viaType, dedup(b), protocolMetric);
    }
  }

  // Files every route present (a stamp each, which makes RouteStatusSm, if
  // any, write it); then the first review, as the agent runs it.
  void attachVms() {
    vms = Protocol::viaMetricStatusSmFactory(metricTree, dir);
    status->initializedIs(true);
    Kel::ActivityManager::instance().runUntilQuiet();
  }

  Ptr<Protocol::RouteStatusDir> dir = Protocol::routeStatusDirFactory();
  Ptr<Protocol::ViaMetricStatusSm> vms;  // last, so that it goes first
};

// Loaded "shared" worlds, with and without RouteStatusSm, kept across
// benchmarks; one at a time.
std::unique_ptr<World>& loadedSlot() {
  static std::unique_ptr<World> w;
  return w;
}

World& loaded(bool withRsm) {
  std::unique_ptr<World>& w = loadedSlot();
  if (!w || bool(w->rsm) != withRsm) {
    w.reset();
    // Reactors first, as the agent runs before the protocol writes.
    w = std::make_unique<World>();
    if (withRsm) w->attachRsm();
    w->attachVms();
    w->writeRoutes(Plan::shared);
  }
  return *w;
}

// ------------------------------------------------------------ one via, every route

void BM_SharedViaChange(benchmark::State& state) {
  const bool withRsm = state.range(0) != 0;
  const bool rewrite = state.range(1) != 0;
  World& w = loaded(withRsm);
  const Rib::ViaKey shared = via(sharedVia);
  const uint64_t addsBefore = w.ribConfig->adds();
  double elapsed = 0, cpu = 0;
  for (auto _ : state) {
    const Rib::ViaMetric* now = w.ipMetrics->viaMetric(shared);
    const double cpuStart = cpuSeconds();
    const Clock::time_point start = Clock::now();
    if (rewrite) {
      w.ipMetrics->viaMetricDel(shared);
    } else {
      w.ipMetrics->viaMetricIs(shared, resolved(now->metricPref().metric == 1 ? 2 : 1));
    }
    elapsed = seconds(start, Clock::now());
    cpu = cpuSeconds() - cpuStart;
    state.SetIterationTime(elapsed);
    if (rewrite) w.ipMetrics->viaMetricIs(shared, resolved());  // rewrites again, untimed
  }
  const uint64_t writes = w.ribConfig->adds() - addsBefore;
  if (writes != (withRsm && rewrite ? 2 * routeCount * uint64_t(state.iterations()) : 0)) {
    state.SkipWithError("the RIB writes are not one per route and change");
  }
  state.counters["routes_per_s"] = double(routeCount) / elapsed;
  state.counters["cpu_routes_per_s"] = double(routeCount) / cpu;
  state.counters["held_ms"] = elapsed * 1e3;
}
void sharedViaChangeArgs(benchmark::internal::Benchmark* b) {
  b->ArgNames({"rsm", "rewrite"})
      ->Iterations(1)
      ->Repetitions(5)
      ->UseManualTime()
      ->Unit(benchmark::kMillisecond);
}

// The change, then turns of the loop until no sweep is pending; the turn
// that made the change counts as one.
void BM_SharedViaSweep(benchmark::State& state) {
  const bool paced = state.range(0) != 0;
  const bool rewrite = state.range(1) != 0;
  World& w = loaded(true);
  Flipset::toggleStateIs("PacedViaMetricSweep", paced);
  Kel::ActivityManager& loop = Kel::ActivityManager::instance();
  const Rib::ViaKey shared = via(sharedVia);
  const uint64_t addsBefore = w.ribConfig->adds();
  double elapsed = 0, longest = 0;
  uint64_t turns = 0;
  for (auto _ : state) {
    const Rib::ViaMetric* now = w.ipMetrics->viaMetric(shared);
    const Clock::time_point start = Clock::now();
    if (rewrite) {
      w.ipMetrics->viaMetricDel(shared);
    } else {
      w.ipMetrics->viaMetricIs(shared, resolved(now->metricPref().metric == 1 ? 2 : 1));
    }
    Clock::time_point end = Clock::now();
    longest = seconds(start, end);
    turns = 1;
    while (w.vms->sweepsPending() != 0) {
      const Clock::time_point turn = Clock::now();
      loop.runOnce();
      end = Clock::now();
      longest = std::max(longest, seconds(turn, end));
      ++turns;
    }
    elapsed = seconds(start, end);
    state.SetIterationTime(elapsed);
    if (rewrite) {  // rewrites again, untimed
      w.ipMetrics->viaMetricIs(shared, resolved());
      loop.runUntilQuiet();
    }
  }
  Flipset::toggleStateIs("PacedViaMetricSweep", false);
  const uint64_t writes = w.ribConfig->adds() - addsBefore;
  if (writes != (rewrite ? 2 * routeCount * uint64_t(state.iterations()) : 0)) {
    state.SkipWithError("the RIB writes are not one per route and change");
  }
  state.counters["routes_per_s"] = double(routeCount) / elapsed;
  state.counters["longest_turn_ms"] = longest * 1e3;
  state.counters["turns"] = double(turns);
  state.counters["quantum_ms"] = w.vms->sweepQuantum() * 1e3;
}

// ------------------------------------------------------------ one via, one route

// Each target route gets a via of its own, unresolved; every iteration
// resolves it (the RIB route gains the via) or withdraws its metric (the RIB
// route loses it). One route over and over (warm) or 65,536 routes in a
// shuffled order (cold); with RouteStatusSm, or alone (the stamp is the end).
void BM_OwnViaChange(benchmark::State& state) {
  const bool withRsm = state.range(0) != 0;
  World& w = loaded(withRsm);
  const Data& d = data();
  const size_t targets = state.range(1) != 0 ? std::min<size_t>(spreadTargets, routeCount) : 1;
  const auto target = [&](size_t k) { return w.status->route(d.prefixes[d.order[k]]); };
  for (size_t k = 0; k < targets; ++k) {
    const uint32_t own = firstOwnVia + uint32_t(k);
    w.viaRecordIs(own);
    target(k)->routePref(preference)->dedupViaKeyIs(viaType, w.dedup(own), protocolMetric);
  }
  std::vector<double> samples;
  samples.reserve(size_t(state.max_iterations));
  const uint64_t addsBefore = w.ribConfig->adds();
  const double startedAt = Kel::System::currentTime();
  size_t next = 0;
  bool resolving = true;
  for (auto _ : state) {
    const Rib::ViaKey own = via(firstOwnVia + uint32_t(next));
    const Clock::time_point start = Clock::now();
    if (resolving) {
      w.ipMetrics->viaMetricIs(own, resolved());
    } else {
      w.ipMetrics->viaMetricDel(own);
    }
    const double t = seconds(start, Clock::now());
    state.SetIterationTime(t);
    samples.push_back(t);
    if (++next == targets) {
      next = 0;
      resolving = !resolving;
    }
  }
  const uint64_t writes = w.ribConfig->adds() - addsBefore;
  const bool stamped = target(0)->routeChangedAt() >= startedAt;
  // Leave the table as it was.
  for (size_t k = 0; k < targets; ++k) {
    const uint32_t own = firstOwnVia + uint32_t(k);
    w.ipMetrics->viaMetricDel(via(own));
    target(k)->routePref(preference)->dedupViaKeyDel(viaType, via(own));
  }
  if (writes != (withRsm ? uint64_t(state.iterations()) : 0) || !stamped) {
    state.SkipWithError("a change did not reach the route or the RIB");
  }
  std::sort(samples.begin(), samples.end());
  state.counters["median_us"] = samples[samples.size() / 2] * 1e6;
  state.counters["p99_us"] = samples[samples.size() * 99 / 100] * 1e6;
}

void ownViaChangeArgs(benchmark::internal::Benchmark* b) {
  b->ArgNames({"rsm", "spread"})->Iterations(200000)->Repetitions(3)->UseManualTime();
}

// Grouped by the world they load, which takes a while at this size.
BENCHMARK(BM_SharedViaChange)->Apply(sharedViaChangeArgs)->Args({0, 0});
BENCHMARK(BM_OwnViaChange)->Apply(ownViaChangeArgs)->Args({0, 0})->Args({0, 1});
BENCHMARK(BM_SharedViaChange)->Apply(sharedViaChangeArgs)->Args({1, 0})->Args({1, 1});
BENCHMARK(BM_SharedViaSweep)
    ->Apply(sharedViaChangeArgs)
    ->ArgNames({"paced", "rewrite"})
    ->Args({0, 0})
    ->Args({1, 0})
    ->Args({0, 1})
    ->Args({1, 1});
BENCHMARK(BM_OwnViaChange)->Apply(ownViaChangeArgs)->Args({1, 0})->Args({1, 1});

// ------------------------------------------------------------ memory

// The index: set slots, entities and the index's own slots, as malloc reserves them.
Bench::Bytes indexBytes(const Protocol::ViaMetricStatusSm& vms) {
  Bench::Bytes b;
  const auto add = [&](size_t n) {
    if (n == 0) return;
    b.requested += int64_t(n);
    b.reserved += Bench::chunkFor(n);
  };
  add(vms.routeByViaKey().bytes());
  for (const Ptr<Protocol::RouteByViaKey>& r : vms.routeByViaKey()) {
    add(sizeof(Protocol::RouteByViaKey));
    add(r->route().bytes());
  }
  return b;
}

void perPair(benchmark::State& state, const std::string& name, const Bench::Bytes& b) {
  state.counters[name + "_req_B"] = double(b.requested) / double(2 * routeCount);
  state.counters[name + "_rsv_B"] = double(b.reserved) / double(2 * routeCount);
}

// ViaMetricStatusSm started over a loaded status: everything it holds is the
// index and the reactor tree (with the entities' notifiee lists).
void BM_Memory(benchmark::State& state) {
  loadedSlot().reset();  // make room
  data();
  const Plan plan = Plan(state.range(0));
  Bench::Bytes index, tree;
  for (auto _ : state) {
    const Bench::Bytes start = Bench::live();
    {
      World w;
      w.writeRoutes(plan);
      const Bench::Bytes before = Bench::live();
      const Bench::BlockCounts blocksBefore = Bench::liveBlocksBySize();
      {
        Bench::Counting on;
        w.vms = Protocol::viaMetricStatusSmFactory(w.metricTree, w.dir);
      }
      Bench::printBlocks("ViaMetricStatusSm alone", blocksBefore, Bench::liveBlocksBySize(),
                         double(routeCount));
      index = indexBytes(*w.vms);
      tree = (Bench::live() - before) - index;
      w.vms = nullptr;
    }
    if (!(Bench::live() == start)) state.SkipWithError("memory leaked");
  }
  perPair(state, "index", index);
  perPair(state, "tree", tree);
}
BENCHMARK(BM_Memory)
    ->ArgName("plan")
    ->Arg(int64_t(Plan::shared))
    ->Arg(int64_t(Plan::pool))
    ->Arg(int64_t(Plan::unique))
    ->Iterations(1)
    ->Repetitions(1)
    ->Unit(benchmark::kMillisecond);

// The reactor tree beside RouteStatusSm, whose reactors already gave the
// entities their notifiee lists (which grow in place of the old): the vias
// unresolved, so that the stamps write nothing to the RIB. The counting
// allocator does not see blocks freed that it did not record, so this takes
// malloc's own count of bytes in use (chunks, as reserved).
int64_t mallocInUse() {
  const struct mallinfo2 m = mallinfo2();
  return int64_t(m.uordblks + m.hblkhd);
}

void BM_MemoryBesideRouteStatusSm(benchmark::State& state) {
  loadedSlot().reset();
  data();
  Bench::Bytes index;
  int64_t tree = 0;
  for (auto _ : state) {
    World w(false);
    w.writeRoutes(Plan::shared);
    w.attachRsm();
    const int64_t before = mallocInUse();
    w.vms = Protocol::viaMetricStatusSmFactory(w.metricTree, w.dir);
    index = indexBytes(*w.vms);
    tree = mallocInUse() - before - index.reserved;
    if (w.ribConfig->routeSize() != 0) state.SkipWithError("the RIB was written");
  }
  perPair(state, "index", index);
  state.counters["tree_rsv_B"] = double(tree) / double(2 * routeCount);
}
BENCHMARK(BM_MemoryBesideRouteStatusSm)
    ->Iterations(1)
    ->Repetitions(1)
    ->Unit(benchmark::kMillisecond);

}  // namespace
