// RouteStatusSm at scale: one VRF with 1,000,000 IPv4 routes (/24s and /32s),
// each with one preference and two vias of one type drawn from 256 resolved,
// non-looping vias, "StaticRouteMetric" on; the framework on real time.
//
// Budgets:
// - initial load, the protocol's writes evaluated as they arrive, to RIB
//   routes: at least 1,000,000 routes/s (context: the same writes with no
//   RouteStatusSm, the status store alone);
// - a full review after a via metric table's generation bump, paced by the
//   activity loop with the default quantum of 0.1 s: at least 2,000,000
//   routes/s, and no turn of the loop longer than the quantum plus 1 ms;
// - a via added to or removed from one route, status write to RIB write: at
//   most 2 us (median of the repetitions' means);
// - status store, RouteStatusSm's reactors and RIB output (routes and via
//   sets): at most 600 bytes per route (reserved by malloc).
// Context: the whole table dropped after the load (the VRF gone: status,
// reactors and RIB output, in one turn); the start after a restart (the
// status written before RouteStatusSm is made, which then reviews it: write,
// attach and first review timed apart); one evaluation of an unchanged route
// with default trace levels, with every level of "IpRib::RouteStatusSm" on
// for text (to a sink that discards) and ring, and with the ring's levels on
// but text off; a via change and an evaluation over many routes
// (cache-cold); RouteStatusSm attached to, and dropped from, a status
// already loaded with 25,000 and 50,000 routes (the two sizes show whether
// the cost grows linearly).
//
// The load, the start after a restart and the memory are measured with
// route computation's reactors nested per preference and via type, and with
// one reactor per route ("SingleRouteReactor", argument `single`).
//
// Whole-scenario figures are timed by hand, one run per repetition. The
// environment variable RSM_BENCH_ROUTES sets another table size (to profile).
#include <benchmark/benchmark.h>

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
#include "Kel/Clock.h"
#include "Kel/Trace.h"
#include "bench/AllocationCount.h"
#include "bench/BenchData.h"
#include "bench/RouteStatusBenchWorld.h"

namespace {

using Kel::Ptr;
using Pando::IpGenPrefix;
namespace Protocol = Routing::Protocol;
namespace Rib = Routing::Rib;
using namespace Bench;  // the shared world and its parameters

const size_t routeCount = Bench::routesFromEnvironment("RSM_BENCH_ROUTES");
constexpr uint32_t viaCount = 256;
constexpr Routing::RouteMetric metric = 10;
// How far ahead the protocol names the prefixes it writes.
constexpr size_t writeAhead = 8;

// The vias' next hops lie in 192.168.0.0/24, which no route prefix overlaps:
// no via resolves back through its own route.
const IpGenPrefix nextHopNet = IpGenPrefix::fromV4(0xc0a80000u, 24);
Pando::IpGenAddr nextHop(uint32_t i) { return Pando::IpGenAddr::fromV4(0xc0a80000u + i); }

struct Data {
  std::vector<IpGenPrefix> prefixes;
  std::vector<std::pair<uint32_t, uint32_t>> vias;  // two distinct pool indices per route
  std::vector<uint32_t> order;                      // the routes, shuffled
};

const Data& data() {
  static const Data d = [] {
    Data d;
    d.prefixes = routePrefixes(routeCount, routeCount + 100, nextHopNet);
    std::mt19937_64 rng(4);
    d.vias.reserve(routeCount);
    for (size_t i = 0; i < routeCount; ++i) {
      const uint32_t a = uint32_t(rng() % viaCount);
      const uint32_t b = (a + 1 + uint32_t(rng() % (viaCount - 1))) % viaCount;
      d.vias.emplace_back(a, b);
    }
    d.order = shuffledOrder(routeCount);
    return d;
  }();
  return d;
}

// One VRF's inputs and outputs as the agent wires them, with a pool of
// resolved vias; RouteStatusSm is attached on demand.
struct World : Bench::RouteStatusWorld {
  World() {
    pool.reserve(viaCount);
    for (uint32_t i = 0; i < viaCount; ++i) {
      viaRecordIs(i, nextHop(i));
      ipMetrics->viaMetricIs(via(i), Rib::ViaMetric(Rib::MetricPref(1, 1)));
      pool.push_back(viaKeys->dedupViaKeyIs(via(i)));
    }
  }

  // What a protocol writes for each route: the route, one preference, two
  // vias of one type, and the time of the change (unless `ready` is false:
  // then RouteStatusSm leaves the route alone until markReady).
  void writeRoutes(size_t count = routeCount, bool ready = true) {
    const Data& d = data();
    for (size_t i = 0; i < count; ++i) {
      if (i + writeAhead < count) status->routeWriteAhead(d.prefixes[i + writeAhead]);
      const Ptr<Protocol::Route> route = status->routeIs(d.prefixes[i]);
      const Ptr<Protocol::RoutePref> pref = route->routePrefIs(preference);
      pref->dedupViaKeyIs(viaType, pool[d.vias[i].first], metric);
      pref->dedupViaKeyIs(viaType, pool[d.vias[i].second], metric);
      if (ready) route->routeChangedAtIs(1);
    }
  }
  void markReady() {
    for (const Ptr<Protocol::Route>& route : status->route()) route->routeChangedAtIs(1);
  }

  // The first review, as the agent runs it once the protocol is done.
  void initialize() {
    status->initializedIs(true);
    Kel::ActivityManager::instance().runUntilQuiet();
  }

  std::vector<Ptr<const Rib::DedupViaKey>> pool;
};

// A loaded and reviewed table, shared by the benchmarks that change little.
std::unique_ptr<World>& loadedSlot() {
  static std::unique_ptr<World> w;
  return w;
}

World& loaded() {
  std::unique_ptr<World>& w = loadedSlot();
  if (!w) {
    w = std::make_unique<World>();
    w->attachRsm();
    w->writeRoutes();
    w->initialize();
  }
  return *w;
}

// ------------------------------------------------------------ initial load

// "SingleRouteReactor" as a benchmark's argument asks, for its run.
struct SingleRouteReactor {
  explicit SingleRouteReactor(int64_t on) { Flipset::toggleStateIs("SingleRouteReactor", on != 0); }
  ~SingleRouteReactor() { Flipset::toggleStateIs("SingleRouteReactor", false); }
};

void BM_InitialLoad(benchmark::State& state) {
  const bool withSm = state.range(0) != 0;
  const SingleRouteReactor single(state.range(1));
  data();
  double elapsed = 0, teardown = 0;
  for (auto _ : state) {
    auto w = std::make_unique<World>();
    if (withSm) w->attachRsm();
    const Clock::time_point start = Clock::now();
    w->writeRoutes();
    elapsed = seconds(start, Clock::now());
    state.SetIterationTime(elapsed);
    if (w->status->routeSize() != routeCount ||
        w->ribConfig->routeSize() != (withSm ? routeCount : 0)) {
      state.SkipWithError("not every route reached the status and the RIB");
    }
    const Clock::time_point dropping = Clock::now();
    w.reset();
    teardown = seconds(dropping, Clock::now());
  }
  state.counters["routes_per_s"] = double(routeCount) / elapsed;
  state.counters["teardown_ms"] = teardown * 1e3;
}
BENCHMARK(BM_InitialLoad)
    ->ArgNames({"sm", "single"})
    ->Args({0, 0})
    ->Args({1, 0})
    ->Args({1, 1})
    ->Iterations(1)
    ->Repetitions(5)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

// The agent's start after a restart: the protocol has written its status
// (and marked it initialized) before the VRF's container starts, so
// RouteStatusSm is made over a loaded status and its first review, paced by
// the activity loop, writes the RIB. End to end, with each phase timed.
void BM_InitialLoadAfterRestart(benchmark::State& state) {
  const SingleRouteReactor single(state.range(0));
  data();
  double write = 0, attach = 0, review = 0;
  for (auto _ : state) {
    auto w = std::make_unique<World>();
    const Clock::time_point start = Clock::now();
    w->writeRoutes();
    w->status->initializedIs(true);
    const Clock::time_point written = Clock::now();
    w->attachRsm();
    const Clock::time_point attached = Clock::now();
    Kel::ActivityManager::instance().runUntilQuiet();
    const Clock::time_point reviewed = Clock::now();
    write = seconds(start, written);
    attach = seconds(written, attached);
    review = seconds(attached, reviewed);
    state.SetIterationTime(write + attach + review);
    if (w->ribConfig->routeSize() != routeCount || !w->ready->v4RouteReviewComplete()) {
      state.SkipWithError("not every route reached the RIB");
    }
  }
  state.counters["routes_per_s"] = double(routeCount) / (write + attach + review);
  state.counters["write_ms"] = write * 1e3;
  state.counters["attach_ms"] = attach * 1e3;
  state.counters["review_ms"] = review * 1e3;
}
BENCHMARK(BM_InitialLoadAfterRestart)
    ->ArgName("single")
    ->Arg(0)
    ->Arg(1)
    ->Iterations(1)
    ->Repetitions(3)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

// ------------------------------------------------------------ full review

void BM_FullReview(benchmark::State& state) {
  World& w = loaded();
  Kel::ActivityManager& loop = Kel::ActivityManager::instance();
  double elapsed = 0, longest = 0;
  uint64_t slices = 0;
  for (auto _ : state) {
    const uint64_t slicesBefore = w.rsm->reviewSlices();
    longest = 0;
    const Clock::time_point start = Clock::now();
    Clock::time_point end = start;
    w.ipMetrics->doBumpGeneration();
    for (;;) {
      const Clock::time_point turn = Clock::now();
      if (loop.runOnce() == 0) break;
      end = Clock::now();
      longest = std::max(longest, seconds(turn, end));
    }
    elapsed = seconds(start, end);
    state.SetIterationTime(elapsed);
    slices = w.rsm->reviewSlices() - slicesBefore;
    if (!w.ready->v4RouteReviewComplete()) state.SkipWithError("the review did not complete");
  }
  state.counters["routes_per_s"] = double(routeCount) / elapsed;
  state.counters["slices"] = double(slices);
  state.counters["longest_slice_ms"] = longest * 1e3;
  state.counters["quantum_ms"] = w.rsm->reviewQuantum() * 1e3;
}
BENCHMARK(BM_FullReview)
    ->Iterations(1)
    ->Repetitions(3)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

// ------------------------------------------------------------ one route's vias

// Adds a third via under a route's preference, then removes it, over one route
// (cache-warm) or 65,536 routes taken in a shuffled order (cold): each
// iteration is one status write and the evaluation it runs.
void BM_ViaChange(benchmark::State& state) {
  World& w = loaded();
  const Data& d = data();
  struct Target {
    Ptr<Protocol::RoutePref> pref;
    uint32_t extra;
  };
  std::vector<Target> targets(state.range(0) != 0 ? std::min<size_t>(65536, routeCount) : 1);
  for (size_t k = 0; k < targets.size(); ++k) {
    const uint32_t i = d.order[k];
    uint32_t extra = 0;
    while (extra == d.vias[i].first || extra == d.vias[i].second) ++extra;
    targets[k] = {w.status->route(d.prefixes[i])->routePref(preference), extra};
  }
  const uint64_t addsBefore = w.ribConfig->adds();
  size_t next = 0;
  bool adding = true;
  for (auto _ : state) {
    const Target& t = targets[next];
    if (adding) {
      t.pref->dedupViaKeyIs(viaType, w.pool[t.extra], metric);
    } else {
      t.pref->dedupViaKeyDel(viaType, via(t.extra));
    }
    if (++next == targets.size()) {
      next = 0;
      adding = !adding;
    }
  }
  const uint64_t writes = w.ribConfig->adds() - addsBefore;
  // Leave the table as it was: remove the vias still added.
  for (size_t k = adding ? 0 : next; k < (adding ? next : targets.size()); ++k) {
    targets[k].pref->dedupViaKeyDel(viaType, via(targets[k].extra));
  }
  if (writes != uint64_t(state.iterations())) {
    state.SkipWithError("a status write did not reach the RIB");
  }
}
BENCHMARK(BM_ViaChange)->ArgName("spread")->Arg(0)->Arg(1)->Repetitions(5);

// ------------------------------------------------------------ one evaluation

// Counts the text traces and drops them.
class DiscardSink final : public Kel::TraceSink {
 public:
  void write(const Kel::TraceFacility&, int, uint64_t, std::string_view) override { ++lines; }
  uint64_t lines = 0;
};

enum TraceMode : int64_t { defaultLevels, allTextAndRing, allRingNoText };

// Re-evaluates routes whose result does not change, one route over and over
// (warm) or every route in a shuffled order (cold).
void BM_HandleRoute(benchmark::State& state) {
  World& w = loaded();
  const Data& d = data();
  Kel::TraceRegistry& registry = Kel::TraceRegistry::instance();
  Kel::TraceFacility& facility = *registry.facility("IpRib::RouteStatusSm");
  const uint32_t textLevels = facility.textLevels(), ringLevels = facility.ringLevels();
  DiscardSink sink;
  Kel::TraceSink& previousSink = registry.sink();
  registry.sinkIs(&sink);
  switch (TraceMode(state.range(0))) {
    case defaultLevels:
      break;
    case allTextAndRing:
      registry.levelsIs("IpRib::RouteStatusSm/0-9,IpRib::RouteStatusSm/ring:0-9");
      break;
    case allRingNoText:
      registry.levelsIs("IpRib::RouteStatusSm/,IpRib::RouteStatusSm/ring:0-9");
      break;
  }
  const size_t count = state.range(1) != 0 ? routeCount : 1;
  const uint64_t addsBefore = w.ribConfig->adds();
  const uint64_t recordsBefore = facility.ringlog().written();
  size_t next = 0;
  for (auto _ : state) {
    w.rsm->handleRoute(d.prefixes[d.order[next]]);
    if (++next == count) next = 0;
  }
  const double evaluations = double(state.iterations());
  state.counters["ring_records"] =
      double(facility.ringlog().written() - recordsBefore) / evaluations;
  state.counters["text_lines"] = double(sink.lines) / evaluations;
  for (int level = 0; level < Kel::TraceFacility::levels; ++level) {
    facility.textLevelIs(level, (textLevels >> level) & 1u);
    facility.ringLevelIs(level, (ringLevels >> level) & 1u);
  }
  registry.sinkIs(&previousSink);
  if (w.ribConfig->adds() != addsBefore) state.SkipWithError("an evaluation changed the RIB");
}
BENCHMARK(BM_HandleRoute)
    ->ArgNames({"trace", "spread"})
    ->ArgsProduct({{defaultLevels, allTextAndRing, allRingNoText}, {0, 1}})
    ->Repetitions(3);

// ------------------------------------------------------------ attaching

// RouteStatusSm made for a status that is already loaded (the agent after a
// restart), and dropped while its routes are present (the VRF goes).
void BM_AttachToLoaded(benchmark::State& state) {
  const size_t count = std::min(size_t(state.range(0)), routeCount);
  double attach = 0, detach = 0;
  for (auto _ : state) {
    World w;
    w.writeRoutes(count);
    const Clock::time_point start = Clock::now();
    w.attachRsm();
    const Clock::time_point attached = Clock::now();
    w.rsm = nullptr;
    const Clock::time_point end = Clock::now();
    attach = seconds(start, attached);
    detach = seconds(attached, end);
    state.SetIterationTime(attach + detach);
  }
  state.counters["attach_routes_per_s"] = double(count) / attach;
  state.counters["drop_routes_per_s"] = double(count) / detach;
}
BENCHMARK(BM_AttachToLoaded)
    ->ArgName("routes")
    ->Arg(25'000)
    ->Arg(50'000)
    ->Iterations(1)
    ->Repetitions(1)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

// ------------------------------------------------------------ memory

// Counts what the routes hold, phase by phase: the protocol writes a status
// store alone; then again with RouteStatusSm attached, the routes not yet
// ready (the reactors are the difference); then marking them ready writes
// the RIB output. The vias and their records are fixed costs, counted apart.
void BM_Memory(benchmark::State& state) {
  loadedSlot().reset();  // last of the file: make room
  const SingleRouteReactor single(state.range(0));
  data();
  World().attachRsm();  // one-time allocations (the toggle cache, say) are not the routes'
  Bench::Bytes inputs, store, reactors, output, ribRoutes;
  for (auto _ : state) {
    const Bench::Bytes start = Bench::live();
    {
      Bench::Counting on;
      World w;
      const Bench::Bytes before = Bench::live();
      const Bench::BlockCounts blocksBefore = Bench::liveBlocksBySize();
      inputs = before - start;
      w.writeRoutes();
      store = Bench::live() - before;
      Bench::printBlocks("status store", blocksBefore, Bench::liveBlocksBySize(),
                         double(routeCount));
    }
    {
      Bench::Counting on;
      World w;
      w.attachRsm();
      const Bench::Bytes before = Bench::live();
      const Bench::BlockCounts blocksBefore = Bench::liveBlocksBySize();
      w.writeRoutes(routeCount, false);
      const Bench::Bytes loaded = Bench::live();
      const Bench::BlockCounts blocksLoaded = Bench::liveBlocksBySize();
      w.markReady();
      reactors = (loaded - before) - store;
      output = Bench::live() - loaded;
      Bench::printBlocks("status store and reactors", blocksBefore, blocksLoaded,
                         double(routeCount));
      Bench::printBlocks("RIB output", blocksLoaded, Bench::liveBlocksBySize(), double(routeCount));
      ribRoutes = {};
      w.ribConfig->route().forEachBlock([&](size_t n) {
        ribRoutes.requested += int64_t(n);
        ribRoutes.reserved += Bench::chunkFor(n);
      });
      if (w.ribConfig->routeSize() != routeCount) state.SkipWithError("the RIB is incomplete");
    }
    if (!(Bench::live() == start)) state.SkipWithError("memory leaked");
  }
  const auto perRoute = [&](const char* name, const Bench::Bytes& b) {
    state.counters[std::string(name) + "_req_B"] = double(b.requested) / routeCount;
    state.counters[std::string(name) + "_rsv_B"] = double(b.reserved) / routeCount;
  };
  perRoute("store", store);
  perRoute("reactors", reactors);
  perRoute("rib", output);
  perRoute("rib_routes", ribRoutes);
  perRoute("rib_viasets", output - ribRoutes);
  perRoute("total", Bench::Bytes{store.requested + reactors.requested + output.requested,
                                 store.reserved + reactors.reserved + output.reserved});
  state.counters["vias_fixed_rsv_B"] = double(inputs.reserved);
}
BENCHMARK(BM_Memory)->ArgName("single")->Arg(0)->Arg(1)->Iterations(1)->Repetitions(1)->Unit(
    benchmark::kMillisecond);

}  // namespace
