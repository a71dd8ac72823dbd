// The root's budgets.
//
// - Start-up with 1,000 VRFs named and all their inputs present: from the
//   mount groups' completion (doMountsComplete) to every VRF ready with its
//   containers built, at most 50 ms. With 4,000 VRFs: the time, and the
//   memory per empty VRF and family (at most 20 KB).
// - A VRF added and removed 10,000 times: memory flat (the last thousand
//   cycles allocate nothing they do not free), no table left mounted.
//
// Each VRF gets every input of both families, unicast and multicast; the
// start's bulk pass evaluates IPv4 multicast only, so a VRF gets three
// containers (IPv4, IPv6, IPv4 multicast). Memory counts every heap and
// pooled byte made from the start of the agent to the end of its start-up,
// less what an agent with no VRF makes.
#include <benchmark/benchmark.h>

#include <string>

#include "bench/AllocationCount.h"
#include "tests/IpRib/RootWorldFixture.h"

namespace Routing::Protocol::Bench {
namespace {

using Test::RootWorld;

std::string vrfName(int i) { return "vrf" + std::to_string(i); }

void nameVrfs(RootWorld& w, int vrfs) {
  w.defaultVrfMetricsIs(true);
  for (int i = 1; i <= vrfs; ++i) {
    w.vrfIs(vrfName(i), Vrf::VrfIdMap::VrfId(i));
    w.vrfInputsIs(vrfName(i), Vrf::VrfIdMap::VrfId(i));
  }
}

// Bytes made by an agent's start (its construction and the mounts'
// completion) with `vrfs` VRFs in place; the start's own time into `seconds`.
int64_t startBytes(RootWorld& w, double* seconds) {
  ::Bench::Counting on;
  const ::Bench::Bytes before = ::Bench::live();
  w.agent = AgentBuilder::AgentBuilderIs(w.config, w.platform);
  const auto start = std::chrono::steady_clock::now();
  w.settle();
  *seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  return (::Bench::live() - before).reserved;
}

void BM_StartWithReadyVrfs(benchmark::State& state) {
  const int vrfs = int(state.range(0));
  double emptySeconds = 0;
  int64_t emptyBytes = 0;
  {
    RootWorld empty;
    nameVrfs(empty, 0);
    emptyBytes = startBytes(empty, &emptySeconds);
  }
  int64_t bytes = 0;
  size_t containers = 0;
  for (auto _ : state) {
    state.PauseTiming();
    {
      RootWorld w;
      nameVrfs(w, vrfs);
      double seconds = 0;
      bytes = startBytes(w, &seconds);
      state.SetIterationTime(seconds);
      containers = w.agent->containerCount();
      if (containers != size_t(3 * vrfs)) state.SkipWithError("not every VRF is ready");
    }
    state.ResumeTiming();
  }
  state.counters["containers"] = double(containers);
  state.counters["bytes_per_vrf_family"] = double(bytes - emptyBytes) / double(containers);
}
BENCHMARK(BM_StartWithReadyVrfs)
    ->Arg(1000)
    ->Arg(4000)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

void BM_VrfAddedAndRemoved(benchmark::State& state) {
  constexpr int cycles = 10000;
  constexpr int counted = 1000;
  for (auto _ : state) {
    RootWorld w;
    nameVrfs(w, 0);
    w.start();
    const uint64_t mountsBefore = w.platform.stateDb->mappingsMade();
    const uint64_t unmountsBefore = w.platform.stateDb->mappingsReleased();
    ::Bench::Bytes before;
    for (int i = 0; i < cycles; ++i) {
      if (i == cycles - counted) before = ::Bench::live();
      ::Bench::Counting on;
      w.vrfIs("red", 7);
      w.vrfInputsIs("red", 7);
      w.vrfDel("red");
      w.mcMetrics->viaMetricStatusByTransportDel(7);
      w.metrics->viaMetricStatusByTransportDel(7);
      for (int f = 0; f < 4; ++f) w.loopingIs(f, "red", false);
      w.intfIs(Pando::AddressFamily::ipv4, "red", false);
      w.intfIs(Pando::AddressFamily::ipv6, "red", false);
    }
    const ::Bench::Bytes leaked = ::Bench::live() - before;
    state.counters["leaked_bytes_last_1000"] = double(leaked.reserved);
    state.counters["tables_left_mounted"] =
        double((w.platform.stateDb->mappingsMade() - mountsBefore) -
               (w.platform.stateDb->mappingsReleased() - unmountsBefore));
    state.counters["vrf_tables_held"] = double(w.root().mountedVrfTables());
  }
  state.SetItemsProcessed(int64_t(state.iterations()) * cycles);
}
BENCHMARK(BM_VrfAddedAndRemoved)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace Routing::Protocol::Bench
