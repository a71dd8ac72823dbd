// Route leaking at scale: one source VRF with 1,000,000 IPv4 routes (/24s
// and /32s), each naming one of 10 destination VRFs (100,000 routes each);
// the framework on real time, default trace levels.
//
// Budgets:
// - the source's first full pass, createVrf to the last destination's
//   LeakRouteConfig entry, paced by the activity loop with the default
//   quantum of 0.1 s: at least 2,000,000 routes/s, and no turn of the loop
//   longer than the quantum plus 1 ms (context: the agent's writing of the
//   same routes into its route list, timed in the same run);
// - memory per leaked (route, destination): at most 120 bytes (counted by
//   bench/AllocationCount.h: the bytes malloc reserves for each block it
//   hands out, plus the blocks the pool and the slabs hold), shown in two
//   parts: the watcher every source route gets, leaking or not, and the
//   leak's own structures (LeakRoute, directory entry, list entry, config
//   entry);
// - one route changing its target, from the route's change to the new
//   destination's LeakRouteConfig entry and the old one's removal: at most
//   2 us (cache-cold: routes taken in a shuffled order; context: a change
//   of the same routes' metric, which moves nothing);
// - a source VRF with 100,000 leaked routes deleted: its lists and entries
//   released within one review, and memory back to where it was before the
//   VRF was created.
//
// Whole-scenario figures are timed by hand, one run per repetition.
// LEAK_BENCH_ROUTES sets another table size (to profile).
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "IpRib/ProtocolRouteLeakSm.h"
#include "Kel/Clock.h"
#include "bench/AllocationCount.h"
#include "bench/BenchData.h"

namespace {

using Kel::Ptr;
using Pando::AddressFamily;
namespace Protocol = Routing::Protocol;
namespace Leak = Routing::Protocol::Leak;
using Clock = std::chrono::steady_clock;

size_t routesFromEnvironment() {
  const char* text = std::getenv("LEAK_BENCH_ROUTES");
  return text != nullptr && *text != '\0' ? std::strtoull(text, nullptr, 10) : 1'000'000;
}

const size_t routeCount = routesFromEnvironment();
constexpr uint32_t destinations = 10;  // named d0 to d9
constexpr Vrf::VrfIdMap::VrfId sourceId = 1;
constexpr Vrf::VrfIdMap::VrfId firstDestinationId = 10;
constexpr AddressFamily af = AddressFamily::ipv4;

double seconds(Clock::time_point a, Clock::time_point b) {
  return std::chrono::duration<double>(b - a).count();
}

// This thread's processor time: on a shared machine, wall time also counts
// the turns other processes take.
double cpuSeconds() {
  timespec t;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
  return double(t.tv_sec) + double(t.tv_nsec) * 1e-9;
}

const std::vector<Pando::IpGenPrefix>& prefixes() {
  static const std::vector<Pando::IpGenPrefix> p = Bench::distinctPrefixes(routeCount, 7);
  return p;
}

// The name-to-id map, the leak root, the destinations created (empty route
// lists, each with its config) and the source's route list, not yet created.
struct World {
  World() {
    names->vrfNameToIdIs(L3::VrfName("source"), sourceId);
    for (uint32_t d = 0; d < destinations; ++d) {
      const char name[] = {'d', char('0' + d), '\0'};
      destinationName.emplace_back(name);
      names->vrfNameToIdIs(destinationName.back(), firstDestinationId + d);
      const Protocol::VrfIdAf key(firstDestinationId + d, af);
      configs.push_back(Protocol::leakRouteConfigFactory(key));
      root->createVrf(key, Routing::routeListFactory(af), configs.back());
    }
    Kel::ActivityManager::instance().runUntilQuiet();
  }

  // The agent writes the source's routes: route i leaks into d(i % 10).
  void writeRoutes(size_t count) {
    const std::vector<Pando::IpGenPrefix>& p = prefixes();
    for (size_t i = 0; i < count; ++i) {
      auto r = Kel::makePtr<Routing::Route>(Routing::RouteKey(p[i], 1));
      r->leakVrfNameIs(destinationName[i % destinations]);
      routes->routeIs(r);
    }
  }

  void createSource() {
    sourceConfig = Protocol::leakRouteConfigFactory(Protocol::VrfIdAf(sourceId, af));
    root->createVrf(Protocol::VrfIdAf(sourceId, af), routes, sourceConfig);
  }

  size_t leaked() const {
    size_t n = 0;
    for (const auto& c : configs) n += c->leakRoutes();
    return n;
  }

  Ptr<Vrf::VrfIdMap::NameToIdMap> names = Kel::makePtr<Vrf::VrfIdMap::NameToIdMap>();
  Ptr<Leak::RootSm> root = Leak::rootSmFactory(names);
  std::vector<L3::VrfName> destinationName;
  std::vector<Ptr<Protocol::LeakRouteConfig>> configs;
  Ptr<Routing::RouteList> routes = Routing::routeListFactory(af);
  Ptr<Protocol::LeakRouteConfig> sourceConfig;
};

// Stops the benchmark, saying why on stderr too.
void skip(benchmark::State& state, const char* why) {
  std::fprintf(stderr, "%s\n", why);
  state.SkipWithError(why);
}

// Runs turns of the loop until none is due; returns the longest, in
// seconds, and the longest in processor time.
double runTurns(size_t& turns, double* longestCpu = nullptr) {
  Kel::ActivityManager& loop = Kel::ActivityManager::instance();
  double longest = 0, cpu = 0;
  turns = 0;
  for (;;) {
    const Clock::time_point t = Clock::now();
    const double c = cpuSeconds();
    if (loop.runOnce() == 0) break;
    longest = std::max(longest, seconds(t, Clock::now()));
    cpu = std::max(cpu, cpuSeconds() - c);
    ++turns;
  }
  if (longestCpu != nullptr) *longestCpu = cpu;
  return longest;
}

// ------------------------------------------------------------ first pass and memory

void BM_FirstPass(benchmark::State& state) {
  double write = 0, attach = 0, pass = 0, passCpu = 0, longest = 0, longestCpu = 0;
  size_t turns = 0;
  Bench::Bytes watchers, structures;
  // One-time allocations (the data, the loop's schedule) are not the leak's.
  prefixes();
  World().createSource();
  for (auto _ : state) {
    const Bench::Bytes start = Bench::live();
    {
      Bench::Counting on;
      World w;
      const Clock::time_point t0 = Clock::now();
      w.writeRoutes(routeCount);
      const Clock::time_point t1 = Clock::now();
      const Bench::Bytes before = Bench::live();
      const Bench::BlockCounts blocksBefore = Bench::liveBlocksBySize();
      // createVrf attaches a watcher to every route and schedules the pass.
      w.createSource();
      const Clock::time_point t2 = Clock::now();
      const Bench::Bytes attached = Bench::live();
      const Bench::BlockCounts blocksAttached = Bench::liveBlocksBySize();
      const double cpu0 = cpuSeconds();
      longest = runTurns(turns, &longestCpu);
      const Clock::time_point t3 = Clock::now();
      passCpu = cpuSeconds() - cpu0;
      write = seconds(t0, t1);
      attach = seconds(t1, t2);
      pass = seconds(t2, t3);
      state.SetIterationTime(attach + pass);
      watchers = attached - before;
      structures = Bench::live() - attached;
      Bench::printBlocks("source watchers", blocksBefore, blocksAttached, double(routeCount));
      Bench::printBlocks("leak structures", blocksAttached, Bench::liveBlocksBySize(),
                         double(routeCount));
      if (w.leaked() != routeCount) skip(state, "not every route was leaked");
    }
    if (!(Bench::live() == start)) skip(state, "memory leaked");
  }
  state.counters["pass_routes_per_s"] = double(routeCount) / pass;
  state.counters["pass_cpu_routes_per_s"] = double(routeCount) / passCpu;
  state.counters["attach_and_pass_routes_per_s"] = double(routeCount) / (attach + pass);
  state.counters["attach_ms"] = attach * 1e3;
  state.counters["pass_ms"] = pass * 1e3;
  state.counters["agent_write_ms"] = write * 1e3;
  state.counters["pass_vs_write"] = pass / write;
  state.counters["turns"] = double(turns);
  state.counters["longest_turn_ms"] = longest * 1e3;
  state.counters["longest_turn_cpu_ms"] = longestCpu * 1e3;
  state.counters["watcher_rsv_B"] = double(watchers.reserved) / double(routeCount);
  state.counters["leak_rsv_B"] = double(structures.reserved) / double(routeCount);
  state.counters["total_rsv_B"] =
      double(watchers.reserved + structures.reserved) / double(routeCount);
}
BENCHMARK(BM_FirstPass)
    ->Iterations(1)
    ->Repetitions(3)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

// ------------------------------------------------------------ one route's target

// A loaded world shared by the per-route benchmark.
World& loaded() {
  static std::unique_ptr<World> w = [] {
    auto w = std::make_unique<World>();
    w->writeRoutes(routeCount);
    w->createSource();
    size_t turns;
    runTurns(turns);
    return w;
  }();
  return *w;
}

// Retargets routes from d(i) to d(i + 1) and back, over 65,536 routes taken
// in a shuffled order: each iteration is one route's change, its move from
// one list to the other and both destinations' decisions. The baseline
// (retarget 0) changes the same routes' metric instead: the same event
// reaches the mux, which finds nothing to move.
void BM_TargetChange(benchmark::State& state) {
  const bool retarget = state.range(0) != 0;
  World& w = loaded();
  std::vector<uint32_t> order(std::min<size_t>(65536, routeCount));
  for (uint32_t i = 0; i < order.size(); ++i) order[i] = i;
  std::vector<uint32_t> all(routeCount);
  for (uint32_t i = 0; i < routeCount; ++i) all[i] = i;
  Bench::shuffle(all, 11);
  std::copy(all.begin(), all.begin() + long(order.size()), order.begin());
  std::vector<Ptr<Routing::Route>> targets;
  for (uint32_t i : order) {
    targets.push_back(w.routes->route(Routing::RouteKey(prefixes()[i], 1)));
  }
  size_t next = 0;
  bool away = true;
  for (auto _ : state) {
    const uint32_t i = order[next];
    if (retarget) {
      targets[next]->leakVrfNameIs(w.destinationName[(i + (away ? 1 : 0)) % destinations]);
    } else {
      targets[next]->metricIs(away ? 1 : 0);
    }
    if (++next == targets.size()) {
      next = 0;
      away = !away;
    }
  }
  // Leave the table as it was.
  for (size_t k = away ? 0 : next; k < (away ? next : targets.size()); ++k) {
    targets[k]->leakVrfNameIs(w.destinationName[order[k] % destinations]);
  }
  Kel::ActivityManager::instance().runUntilQuiet();
  if (w.leaked() != routeCount) skip(state, "a route was lost");
}
BENCHMARK(BM_TargetChange)->ArgName("retarget")->Arg(0)->Arg(1)->Repetitions(5);

// ------------------------------------------------------------ deleting a VRF

// A source of 100,000 routes leaking into one destination is deleted: the
// destination decides every key again in one review, which releases every
// list and entry of the source.
void BM_DeleteVrf(benchmark::State& state) {
  const size_t count = std::min<size_t>(100'000, routeCount);
  double del = 0, review = 0, longest = 0;
  size_t turns = 0;
  int64_t residue = 0;
  prefixes();
  for (auto _ : state) {
    Bench::Counting on;
    World w;
    const std::vector<Pando::IpGenPrefix>& p = prefixes();
    for (size_t i = 0; i < count; ++i) {
      auto r = Kel::makePtr<Routing::Route>(Routing::RouteKey(p[i], 1));
      r->leakVrfNameIs(w.destinationName[0]);
      w.routes->routeIs(r);
    }
    const Bench::Bytes before = Bench::live();
    w.createSource();
    runTurns(turns);
    if (w.configs[0]->leakRoutes() != count) skip(state, "the leak is incomplete");
    const Ptr<Leak::DemuxSm> demux = w.root->demuxSm(Protocol::VrfIdAf(firstDestinationId, af));
    const uint64_t pausesBefore = demux->reviewPauses();
    const Clock::time_point t0 = Clock::now();
    w.root->deleteVrf(Protocol::VrfIdAf(sourceId, af));
    const Clock::time_point t1 = Clock::now();
    longest = runTurns(turns);
    review = seconds(t1, Clock::now());
    del = seconds(t0, t1);
    state.SetIterationTime(del + review);
    if (w.configs[0]->leakRoutes() != 0) skip(state, "entries left behind");
    if (demux->reviewPauses() != pausesBefore) skip(state, "more than one review run");
    w.sourceConfig = nullptr;
    residue = (Bench::live() - before).reserved;
  }
  state.counters["delete_ms"] = del * 1e3;
  state.counters["review_ms"] = review * 1e3;
  state.counters["review_turns"] = double(turns);
  state.counters["longest_turn_ms"] = longest * 1e3;
  state.counters["residue_B"] = double(residue);
}
BENCHMARK(BM_DeleteVrf)
    ->Iterations(1)
    ->Repetitions(3)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace
