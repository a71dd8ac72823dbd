// soak: drives a long random event stream through the whole system (the
// agent's command language, the same stream as the whole-system test: VRFs
// declared, renumbered and removed across 100 VRFs, their inputs,
// interfaces, next-hop metrics and BFD sessions flapping, routes set and
// removed, RIB sequence triggers, restarts under graceful restart), then
// holds the churned system against a fresh start given the same inputs:
// the same containers, RIB routes, via sets, via-to-route index entries,
// BFD entries, leak muxes, lists and routes, live reactors, VRF tables
// mounted, and the agent's own records (RIB mappings, vias, via keys);
// memory within 1%, the
// library's (what dropping it frees) and the whole world's.
//
//   soak [--seed N] [--events N] [--vrfs N] [--prefixes N] [--restarts-per-million N]
//        [--memory-check 0|1]
//
// Prints a progress line on the terminal and the events per second (with
// heap accounting on: every allocation is recorded so that the two worlds'
// memory can be told apart). Exit status 1 when a count differs, memory is
// off by more than 1% (unless --memory-check 0), or a line is refused.
// It lives in tools/ and is built with every tree (not with the benchmarks
// in bench/), since its short run is part of `make test`, sanitizers too.
#include <unistd.h>

#include <chrono>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <functional>
#include <memory>
#include <string>

#include "Kel/Pool.h"
#include "bench/AllocationCount.h"
#include "tests/system/SystemRun.h"

namespace {

using Routing::Protocol::Test::SystemConfig;
using Routing::Protocol::Test::SystemRun;

// What must be the same after churn as after a fresh start: the library's
// objects, then the agent's own records.
struct Counts {
  uint64_t containers = 0, ribRoutes = 0, viaSets = 0, indexEntries = 0, bfdEntries = 0,
           leakMuxes = 0, leakLists = 0, leakedRoutes = 0, reactors = 0, vrfTables = 0;
  uint64_t ribMounts = 0, vias = 0, viaKeys = 0;
  friend bool operator==(const Counts&, const Counts&) = default;
};

Counts countsOf(IpRibAgent::World& world) {
  Counts c;
  c.containers = world.containers().size();
  for (const Routing::Rib::RouteConfig* t : world.ribTables()) c.ribRoutes += t->routeSize();
  c.viaSets = world.viaSetConfig()->size();
  c.indexEntries = world.rootSm()->viaMetricStatusSm()->routeByViaKeySize();
  c.bfdEntries = world.platform().bfdList()->routeSize();
  const Routing::Protocol::Leak::RootSm& leak = world.leak()->root();
  c.leakMuxes = leak.muxSms();
  for (const auto& set : leak.demuxSmSetDir()->lrlpSet()) c.leakLists += set->leakRouteLists();
  c.leakedRoutes = world.leak()->leakedRoutes();
  c.reactors = Kel::Pool::liveBlocks(Kel::Pool::Arena::reactors);
  c.vrfTables = world.rootSm()->mountedVrfTables();
  c.ribMounts = world.ribMounts();
  c.vias = world.platform().vias();
  c.viaKeys = world.protocol().viaKeys();
  return c;
}

// The memory of one world: the library's (what dropping it frees) and the
// whole world's (what dropping the world frees: the library, the agent's
// records and the RIB's tables). The test model beside the churned world
// counts in neither.
struct Memory {
  Bench::Bytes library, world;
};

Memory memoryOf(IpRibAgent::World& world, const std::function<void()>& worldDel) {
  const Bench::Bytes whole = Bench::live();
  world.stop();
  const Bench::Bytes withoutLibrary = Bench::live();
  worldDel();
  return {whole - withoutLibrary, whole - Bench::live()};
}

void print(const char* what, const Counts& c, const Memory& m) {
  std::printf("%-12s containers %" PRIu64 ", RIB routes %" PRIu64 ", via sets %" PRIu64
              ", index entries %" PRIu64 ", BFD entries %" PRIu64 ", leak muxes %" PRIu64
              ", leak lists %" PRIu64 ", leaked routes %" PRIu64 ", pooled reactors %" PRIu64
              ", VRF tables %" PRIu64 "; agent: RIB mounts %" PRIu64 ", vias %" PRIu64
              ", via keys %" PRIu64 "\n",
              what, c.containers, c.ribRoutes, c.viaSets, c.indexEntries, c.bfdEntries, c.leakMuxes,
              c.leakLists, c.leakedRoutes, c.reactors, c.vrfTables, c.ribMounts, c.vias, c.viaKeys);
  std::printf("%-12s memory: library %" PRId64 " B requested, %" PRId64
              " B reserved; whole world %" PRId64 " B requested, %" PRId64 " B reserved\n",
              what, m.library.requested, m.library.reserved, m.world.requested, m.world.reserved);
}

double percent(int64_t churned, int64_t started) {
  return 100.0 * double(churned - started) / double(started);
}

uint64_t argument(int argc, char** argv, const char* name, uint64_t fallback) {
  for (int i = 1; i + 1 < argc; ++i) {
    if (std::strcmp(argv[i], name) == 0) return std::strtoull(argv[i + 1], nullptr, 10);
  }
  return fallback;
}

}  // namespace

int main(int argc, char** argv) {
  SystemConfig config;
  config.seed = argument(argc, argv, "--seed", 1);
  config.vrfs = int(argument(argc, argv, "--vrfs", 100));
  config.prefixes = int(argument(argc, argv, "--prefixes", 40));
  config.keepScript = false;
  // Restarts rebuild every container: a few hundred in a long run.
  config.restartsPerMillion = int(argument(argc, argv, "--restarts-per-million", 30));
  const uint64_t events = argument(argc, argv, "--events", 10000000);
  const bool terminal = isatty(STDERR_FILENO) != 0;

  Bench::Counting counting;
  Counts churned;
  Memory churnedMemory;
  std::vector<std::string> fresh;
  {
    auto run = std::make_unique<SystemRun>(config);
    run->begin();
    const auto start = std::chrono::steady_clock::now();
    // Processor time beside wall-clock time: on a shared machine the wall
    // clock says more about the neighbours than about the system.
    const std::clock_t cpuStart = std::clock();
    const uint64_t every = std::max<uint64_t>(1, events / 100);
    for (uint64_t n = 1; n <= events && run->refused().empty(); ++n) {
      run->step();
      if (terminal && n % every == 0) {
        const double s =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        std::fprintf(stderr, "\rsoak: %" PRIu64 "/%" PRIu64 " events, %.0f events/s ", n, events,
                     double(n) / s);
      }
    }
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    if (terminal) std::fprintf(stderr, "\n");
    if (!run->refused().empty()) {
      std::printf("refused: %s\n", run->refused().c_str());
      return 1;
    }
    const double cpu = double(std::clock() - cpuStart) / CLOCKS_PER_SEC;
    std::printf("seed %" PRIu64 ", %d VRFs: %" PRIu64
                " events in %.1f s, %.0f events/s (%.1f s of processor time, %.0f events/s)\n",
                config.seed, config.vrfs, events, seconds, double(events) / seconds, cpu,
                double(events) / cpu);
    // Both worlds end with the same closing pass, so that neither keeps a
    // ready set that its past left stale.
    const std::vector<std::string> closing = run->closingPass();
    fresh = run->freshStartScript();
    fresh.insert(fresh.end(), closing.begin(), closing.end());
    run->runLines(closing);
    churned = countsOf(run->world());
    churnedMemory = memoryOf(run->world(), [&] { run->worldDel(); });
  }
  std::ostringstream sink;
  IpRibAgent::Interpreter interpreter(sink, sink, IpRibAgent::Interpreter::TimeMode::virtualTime);
  for (const std::string& line : fresh) {
    if (!interpreter.execute(line, "fresh start", 0)) {
      std::printf("fresh start refused %s: %s\n", line.c_str(), sink.str().c_str());
      return 1;
    }
  }
  const Counts started = countsOf(interpreter.world());
  const Memory startedMemory = memoryOf(interpreter.world(), [&] { interpreter.worldDel(); });
  print("after churn", churned, churnedMemory);
  print("fresh start", started, startedMemory);
  const double library = percent(churnedMemory.library.reserved, startedMemory.library.reserved);
  const double whole = percent(churnedMemory.world.reserved, startedMemory.world.reserved);
  std::printf("memory after churn vs fresh start (reserved): library %+" PRId64
              " B (%+.2f%%), whole world %+" PRId64 " B (%+.2f%%)\n",
              churnedMemory.library.reserved - startedMemory.library.reserved, library,
              churnedMemory.world.reserved - startedMemory.world.reserved, whole);
  if (!(churned == started)) {
    std::printf("FAILED: something is left over after churn\n");
    return 1;
  }
  if (argument(argc, argv, "--memory-check", 1) != 0 &&
      (std::abs(library) > 1.0 || std::abs(whole) > 1.0)) {
    std::printf("FAILED: memory off by more than 1%%\n");
    return 1;
  }
  return 0;
}
