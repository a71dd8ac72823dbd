// Budget: a route with one preference, one via type and two vias costs at most
// 400 bytes in a Status, its share of the hashed route table included. The via
// keys are shared through a DedupViaKeyTable, as in the agent (each route uses
// two of a pool of 1000), and are counted apart. Context: the time to write
// such a route into a Status that has no reactors. The first run prints the
// size of each object of a route to stderr, as allocated and as reserved.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <random>
#include <utility>
#include <vector>

#include "IpRib/ProtocolRouteStatus.h"
#include "bench/AllocationCount.h"
#include "bench/BenchData.h"
#include "platform/Routing/Rib/DedupViaKey.h"

namespace {

using Kel::Ptr;
using Routing::Protocol::DedupViaKeyByViaType;
using Routing::Protocol::DedupViaKeyMetric;
using Routing::Protocol::Route;
using Routing::Protocol::RoutePref;
using Routing::Protocol::Status;
using Routing::Protocol::ViaType;
using Routing::Protocol::ViaTypeEnum;
using Routing::Rib::DedupViaKey;
using Routing::Rib::DedupViaKeyTable;
using Routing::Rib::ViaKey;

constexpr size_t routeCount = 1'000'000;
constexpr uint32_t viaKeyCount = 1000;

struct Data {
  std::vector<Pando::IpGenPrefix> prefixes;
  std::vector<std::pair<uint32_t, uint32_t>> vias;  // two distinct pool indices per route
};

const Data& data() {
  static const Data d = [] {
    Data d;
    d.prefixes = Bench::distinctPrefixes(routeCount, 1);
    std::mt19937_64 rng(4);
    d.vias.reserve(routeCount);
    for (size_t i = 0; i < routeCount; ++i) {
      const uint32_t a = uint32_t(rng() % viaKeyCount);
      const uint32_t b = (a + 1 + uint32_t(rng() % (viaKeyCount - 1))) % viaKeyCount;
      d.vias.emplace_back(a, b);
    }
    return d;
  }();
  return d;
}

using Pool = std::vector<Ptr<const DedupViaKey>>;

void fillPool(DedupViaKeyTable& table, Pool& pool) {
  for (uint32_t i = 0; i < viaKeyCount; ++i) {
    pool.push_back(table.dedupViaKeyIs(ViaKey(ViaKey::kindIpv4, 0, 1, i)));
  }
}

Ptr<Status> emptyStatus() {
  return Routing::Protocol::statusFactory(
      Routing::Protocol::RouteStatusKey(0, Pando::AddressFamily::ipv4));
}

// What a protocol writes for one route: the route, one preference, two vias of
// one type, and the time of the change.
void writeRoutes(Status& status, const Pool& pool) {
  const Data& d = data();
  const ViaType viaType(ViaTypeEnum::viaIntfNextHop);
  for (size_t i = 0; i < routeCount; ++i) {
    const Ptr<Route> route = status.routeIs(d.prefixes[i]);
    const Ptr<RoutePref> pref = route->routePrefIs(20);
    pref->dedupViaKeyIs(viaType, pool[d.vias[i].first], 10);
    pref->dedupViaKeyIs(viaType, pool[d.vias[i].second], 10);
    route->routeChangedAtIs(1);
  }
}

void printBreakdown(const Status& status) {
  const Route& route = **status.route().begin();
  const RoutePref& pref = **route.routePref().begin();
  const DedupViaKeyByViaType& byType = **pref.dedupViaKeyByViaType().begin();
  std::fprintf(stderr, "%-40s %8s %9s\n", "object, per route", "sizeof", "reserved");
  double size = 0, reserved = 0;
  const auto row = [&](const char* what, double s, double r) {
    std::fprintf(stderr, "%-40s %8.1f %9.1f\n", what, s, r);
    size += s;
    reserved += r;
  };
  const auto object = [&](const char* what, size_t s, size_t count) {
    row(what, double(s * count), double(Bench::chunkFor(s) * int64_t(count)));
  };
  object("Route", sizeof(Route), 1);
  object("RoutePref", sizeof(RoutePref), 1);
  object("DedupViaKeyByViaType", sizeof(DedupViaKeyByViaType), 1);
  object("  its via table", byType.dedupViaKey().bytes(), 1);
  object("DedupViaKeyMetric x2", sizeof(DedupViaKeyMetric), 2);
  const double share = double(status.route().bytes()) / status.routeSize();
  row("route table share", share, share);
  std::fprintf(stderr, "%-40s %8.1f %9.1f\n", "total", size, reserved);
  std::fprintf(stderr, "%-40s %8zu %9lld\n", "DedupViaKey (shared, each)", sizeof(DedupViaKey),
               static_cast<long long>(Bench::chunkFor(sizeof(DedupViaKey))));
}

void BM_RouteMemory(benchmark::State& state) {
  data();
  Bench::Bytes keys, routes;
  for (auto _ : state) {
    const Bench::Bytes start = Bench::live();
    Pool pool;
    pool.reserve(viaKeyCount);  // the benchmark's handles are not the store's
    {
      Bench::Counting on;
      const auto table = Kel::makePtr<DedupViaKeyTable>();
      fillPool(*table, pool);
      const Bench::Bytes afterKeys = Bench::live();
      Ptr<Status> status = emptyStatus();
      writeRoutes(*status, pool);
      const Bench::Bytes afterRoutes = Bench::live();
      keys = afterKeys - start;
      routes = afterRoutes - afterKeys;
      static bool printed = false;
      if (!printed) printBreakdown(*status);
      printed = true;
      state.PauseTiming();  // the teardown is not timed
      status = nullptr;
      pool.clear();
    }
    if (!(Bench::live() == start)) state.SkipWithError("the store leaked");
    state.ResumeTiming();
  }
  state.counters["route_req_B"] = double(routes.requested) / routeCount;
  state.counters["route_rsv_B"] = double(routes.reserved) / routeCount;
  state.counters["viakeys_req_B"] = double(keys.requested);
  state.counters["viakeys_rsv_B"] = double(keys.reserved);
}
BENCHMARK(BM_RouteMemory)->Iterations(1)->Unit(benchmark::kMillisecond);

void BM_StatusWrite(benchmark::State& state) {
  data();
  const auto table = Kel::makePtr<DedupViaKeyTable>();
  Pool pool;
  fillPool(*table, pool);
  for (auto _ : state) {
    state.PauseTiming();
    Ptr<Status> status = emptyStatus();
    state.ResumeTiming();
    writeRoutes(*status, pool);
    state.PauseTiming();
    status = nullptr;
    // Coalesce the freed blocks now: left in malloc's fast bins, they would be
    // merged inside the next timed run, at the route table's first growth.
    malloc_trim(0);
    state.ResumeTiming();
  }
  state.counters["per_route"] =
      benchmark::Counter(double(routeCount), benchmark::Counter::kIsIterationInvariantRate |
                                                 benchmark::Counter::kInvert);
}
BENCHMARK(BM_StatusWrite)->Unit(benchmark::kMillisecond);

}  // namespace
