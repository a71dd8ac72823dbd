// The world RouteStatusSm runs in, for the benchmarks: one IPv4 VRF, "red",
// its protocol status, the RIB's via metric tree, via records, and the other
// inputs and outputs the agent wires to RouteStatusSm. Building it makes
// only empty tables; attachRsm() makes RouteStatusSm, which reviews at once
// whatever the status already holds.
//
// A benchmark derives its own world from it: members a derived world adds
// (its reactors, say) go before these on destruction, and rsm goes first of
// these.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "IpRib/ProtocolRouteStatusSm.h"
#include "Kel/Ptr.h"
#include "Kel/String.h"
#include "bench/BenchData.h"
#include "platform/Flipset/Flipset.h"

namespace Bench {

inline constexpr Vrf::VrfIdMap::VrfId vrfId = 3;
inline constexpr Routing::RoutePreference preference = 20;
inline const Routing::Protocol::ViaType viaType(Routing::Protocol::ViaTypeEnum::viaIntfNextHop);

// The table size: 1,000,000 routes unless the environment variable names
// another (a smaller one, say, to profile).
inline size_t routesFromEnvironment(const char* variable) {
  const char* text = std::getenv(variable);
  return text != nullptr ? size_t(std::strtoul(text, nullptr, 10)) : 1'000'000;
}

// `count` distinct route prefixes, none overlapping `nextHops` (where the
// vias' next hops lie, so that no via resolves through its own route), taken
// in order from `candidates` seeded distinct prefixes.
inline std::vector<Pando::IpGenPrefix> routePrefixes(size_t count, size_t candidates,
                                                     const Pando::IpGenPrefix& nextHops) {
  std::vector<Pando::IpGenPrefix> prefixes;
  for (const Pando::IpGenPrefix& p : distinctPrefixes(candidates, 1)) {
    if (prefixes.size() == count) break;
    if (!p.contains(nextHops) && !nextHops.contains(p)) prefixes.push_back(p);
  }
  return prefixes;
}

// The indices 0 to count - 1, in a seeded shuffled order.
inline std::vector<uint32_t> shuffledOrder(size_t count) {
  std::vector<uint32_t> order(count);
  for (uint32_t i = 0; i < count; ++i) order[i] = i;
  shuffle(order, 5);
  return order;
}

using Clock = std::chrono::steady_clock;
inline double seconds(Clock::time_point from, Clock::time_point to) {
  return std::chrono::duration<double>(to - from).count();
}

// Via `i` of the benchmark's VRF.
inline Routing::Rib::ViaKey via(uint32_t i) {
  return Routing::Rib::ViaKey(Routing::Rib::ViaKey::kindIpv4, vrfId, 2, i);
}

struct RouteStatusWorld {
  RouteStatusWorld() {
    Flipset::toggleStateIs("StaticRouteMetric", true);
    ipMetrics = metricTree->viaMetricStatusIs(via(0));
  }

  // Gives via `i` its configuration (an interface of its own) and next hop.
  void viaRecordIs(uint32_t i, const Pando::IpGenAddr& nextHop) {
    viaConfig->viaIs(via(i),
                     Routing::Rib::Via(nextHop, Pando::IntfId("Ethernet" + std::to_string(i))));
    graph->viaNextHopIs(via(i), nextHop);
  }

  void attachRsm() {
    rsm = Routing::Protocol::routeStatusSmFactory(
        L3::VrfName("red"), Pando::AddressFamily::ipv4, vrfId, status, ipMetrics, evpnMetrics,
        looping, graph, ribConfig, viaSets, 2, v4DefaultMetrics, v6DefaultMetrics, ready, bfdList,
        viaConfig, auxViaConfig, metricTree, Kel::String("rib"), viaStatus);
  }

  Kel::Ptr<Routing::Rib::DedupViaKeyTable> viaKeys = Kel::makePtr<Routing::Rib::DedupViaKeyTable>();
  Kel::Ptr<Routing::Protocol::Status> status = Routing::Protocol::statusFactory(
      Routing::Protocol::RouteStatusKey(vrfId, Pando::AddressFamily::ipv4));
  Kel::Ptr<Routing::Rib::ViaMetricStatusByVrf> metricTree =
      Kel::makePtr<Routing::Rib::ViaMetricStatusByVrf>();
  Kel::Ptr<Routing::Rib::ViaMetricStatus> ipMetrics;
  Kel::Ptr<Routing::Rib::ViaMetricStatus> evpnMetrics =
      Kel::makePtr<Routing::Rib::ViaMetricStatus>();
  Kel::Ptr<Routing::Rib::ViaMetricStatus> v4DefaultMetrics =
      Kel::makePtr<Routing::Rib::ViaMetricStatus>();
  Kel::Ptr<Routing::Rib::ViaMetricStatus> v6DefaultMetrics =
      Kel::makePtr<Routing::Rib::ViaMetricStatus>();
  Kel::Ptr<Routing::Rib::LoopingRouteStatus> looping =
      Kel::makePtr<Routing::Rib::LoopingRouteStatus>();
  Kel::Ptr<Routing::Rib::Ip::GlobalNextHopDependencyGraph> graph =
      Kel::makePtr<Routing::Rib::Ip::GlobalNextHopDependencyGraph>();
  Kel::Ptr<Routing::Rib::RouteConfig> ribConfig = Kel::makePtr<Routing::Rib::RouteConfig>();
  Kel::Ptr<Routing::Rib::ViaSetConfig> viaSets = Kel::makePtr<Routing::Rib::ViaSetConfig>();
  Kel::Ptr<Routing::Protocol::VrfReadyStatus> ready =
      Routing::Protocol::vrfReadyStatusFactory(L3::VrfName("red"));
  Kel::Ptr<Routing::BfdTrackedStaticRoutesList> bfdList =
      Kel::makePtr<Routing::BfdTrackedStaticRoutesList>();
  Kel::Ptr<Routing::Rib::Ip::ViaConfig> viaConfig = Kel::makePtr<Routing::Rib::Ip::ViaConfig>();
  Kel::Ptr<Routing::Rib::Ip::ViaConfig> auxViaConfig = Kel::makePtr<Routing::Rib::Ip::ViaConfig>();
  Kel::Ptr<Routing::Rib::ViaStatusByVrf> viaStatus = Kel::makePtr<Routing::Rib::ViaStatusByVrf>();
  Kel::Ptr<Routing::Protocol::RouteStatusSm> rsm;  // last, so that it goes first
};

}  // namespace Bench
