// Budgets: a text trace whose level is off costs at most ~3 ns; a ring record
// with three arguments (two integers and a 20-byte value) at most 50 ns (aim
// ~10 ns); a ring record whose level is off next to nothing.
#include <benchmark/benchmark.h>

#include <array>
#include <cstdint>
#include <ostream>
#include <string>

#include "Kel/Trace.h"

namespace {

Kel::TraceFacility trace("Bench::Trace");

// The size of an IPv6 prefix key.
struct Prefix {
  std::array<uint8_t, 16> bytes;
  uint32_t length;
};
static_assert(sizeof(Prefix) == 20);

std::ostream& operator<<(std::ostream& os, const Prefix& p) {
  return os << int(p.bytes[0]) << "::/" << p.length;
}

void BM_TextTraceOff(benchmark::State& state) {
  std::string vrfName = "red";
  Prefix prefix{{0x20, 0x01}, 64};
  for (auto _ : state) {
    KEL_TRACE(trace, 9, "Vrf: " << vrfName << " validVia " << prefix);
    // Reload the level mask each time round, as a call site in real code must.
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_TextTraceOff);

void BM_RinglogThreeArgs(benchmark::State& state) {
  Prefix prefix{{0x20, 0x01}, 64};
  uint32_t preference = 20;
  uint64_t vias = 0;
  for (auto _ : state) {
    KEL_RINGLOG(trace, 8, "add route %s preference %s with %s vias", prefix, preference, ++vias);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_RinglogThreeArgs);

void BM_RinglogOff(benchmark::State& state) {
  Prefix prefix{{0x20, 0x01}, 64};
  uint64_t vias = 0;
  for (auto _ : state) {
    KEL_RINGLOG(trace, 9, "via %s of %s", ++vias, prefix);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_RinglogOff);

}  // namespace
