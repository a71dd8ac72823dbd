// Budget: an interface flap reaches the IntfStatus counter in at most 1 us
// per change, with 10,000 interfaces in the VRF and an IntfSm attached. Each
// iteration turns dpRoutingEnabled of the next interface off and on again
// (two changes), walking all 10,000 in turn so the entries are not all hot in
// cache. The per_change counter is the time of one change. The baseline is
// the same flap with nobody watching.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>
#include <vector>

#include "IpRib/ProtocolIntfSm.h"

namespace {

using Routing::Protocol::IntfSm;
using Routing::Protocol::IntfStatus;

constexpr int interfaces = 10000;

struct Vrf {
  Vrf() {
    entries.reserve(interfaces);
    for (int i = 0; i < interfaces; ++i) {
      Kel::Ptr<Ip::IpIntfStatus> e =
          status->ipIntfStatusIs(Pando::IntfId(Kel::String("Ethernet" + std::to_string(i))));
      e->dpRoutingEnabledIs(true);
      entries.push_back(e);
    }
  }
  Kel::Ptr<Ip::VrfIpIntfStatus> status =
      Kel::makePtr<Ip::Status>()->vrfIpIntfStatusIs(L3::VrfName(Kel::String("red")));
  std::vector<Kel::Ptr<Ip::IpIntfStatus>> entries;
};

void flap(benchmark::State& state, Vrf& vrf) {
  size_t i = 0;
  for (auto _ : state) {
    Ip::IpIntfStatus& e = *vrf.entries[i];
    e.dpRoutingEnabledIs(false);
    benchmark::ClobberMemory();
    e.dpRoutingEnabledIs(true);
    benchmark::ClobberMemory();
    if (++i == vrf.entries.size()) i = 0;
  }
  state.counters["per_change"] = benchmark::Counter(
      2, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void BM_IntfFlapBaseline(benchmark::State& state) {
  Vrf vrf;
  flap(state, vrf);
}
BENCHMARK(BM_IntfFlapBaseline);

void BM_IntfFlapIntfSm(benchmark::State& state) {
  Vrf vrf;
  const Kel::Ptr<IntfStatus> intfStatus = Routing::Protocol::ipv4IntfStatusFactory(vrf.status);
  const Kel::Ptr<IntfSm> sm = IntfSm::IntfSmIs(intfStatus);
  const uint32_t before = intfStatus->intfStatusChanged();
  flap(state, vrf);
  // Every change must have reached the counter.
  if (intfStatus->intfStatusChanged() - before != 2 * uint32_t(state.iterations())) {
    state.SkipWithError("a change did not reach the counter");
  }
}
BENCHMARK(BM_IntfFlapIntfSm);

}  // namespace
