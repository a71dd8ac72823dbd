// A VRF's world for RouteStatusSm tests: the protocol's status, the RIB's
// input tables (via metrics, via records, next-hop graph, looping routes,
// BFD tracking) and its outputs (routes, via sets), on virtual time.
//
//   VRF "red" (id 3), selector 2 for the protocol's vias;
//   via(i) is via i with next hop 192.168.<i/256>.<i%256> (2001:db8::<i>) on "Ethernet<i>".
#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <vector>

#include "IpRib/ProtocolRouteStatusSm.h"
#include "Kel/System.h"
#include "Kel/Trace.h"
#include "platform/Flipset/Flipset.h"
#include "platform/Routing/Bfd/BfdAgentStub.h"

namespace Routing::Protocol::Test {

inline constexpr Vrf::VrfIdMap::VrfId testVrfId = 3;
inline constexpr uint32_t testSelector = 2;

struct RouteStatusWorld {
  explicit RouteStatusWorld(Pando::AddressFamily af = Pando::AddressFamily::ipv4) : af(af) {
    Flipset::toggleStateIs("StaticRouteMetric", true);
    ipMetrics = metricTree->viaMetricStatusIs(via(0));
  }
  ~RouteStatusWorld() {
    sm = nullptr;
    Flipset::reloadToggles();
  }

  // A via of this VRF; its record carries a next hop, an interface and `label`.
  Rib::ViaKey via(uint32_t i) const {
    return Rib::ViaKey(
        af == Pando::AddressFamily::ipv4 ? Rib::ViaKey::kindIpv4 : Rib::ViaKey::kindIpv6, testVrfId,
        testSelector, i);
  }
  Pando::IpGenAddr nextHop(uint32_t i) const {
    if (af == Pando::AddressFamily::ipv4) return Pando::IpGenAddr::fromV4(0xc0a80000u + i);
    return Pando::IpGenAddr(Pando::AddressFamily::ipv6, 0x20010db800000000ull, i);
  }
  void viaRecordIs(uint32_t i, uint32_t label = Rib::Via::noLabel) {
    viaConfig->viaIs(via(i),
                     Rib::Via(nextHop(i), Pando::IntfId("Ethernet" + std::to_string(i)), label));
    graph->viaNextHopIs(via(i), nextHop(i));
  }
  // Resolves via i with `metric` (the RIB's metric, not the protocol's).
  void resolve(uint32_t i, Routing::RouteMetric metric = 1) {
    viaRecordIs(i);
    ipMetrics->viaMetricIs(via(i), Rib::ViaMetric(Rib::MetricPref(1, metric)));
  }

  Kel::Ptr<RouteStatusSm> start() {
    sm = routeStatusSmFactory(L3::VrfName("red"), af, testVrfId, status, ipMetrics, evpnMetrics,
                              looping, graph, ribConfig, viaSets, 2, v4DefaultMetrics,
                              v6DefaultMetrics, ready, bfdList, viaConfig, auxViaConfig, metricTree,
                              Kel::String("rib"), viaStatus);
    return sm;
  }

  // The protocol's side.
  Kel::Ptr<RoutePref> routePref(const Pando::IpGenPrefix& p, RoutePreference pref) {
    return status->routeIs(p)->routePrefIs(pref);
  }
  void addVia(const Pando::IpGenPrefix& p, RoutePreference pref, ViaTypeEnum type, uint32_t i,
              Routing::RouteMetric metric = 0) {
    routePref(p, pref)->dedupViaKeyIs(type, viaKeys->dedupViaKeyIs(via(i)), metric);
  }
  void touch(const Pando::IpGenPrefix& p) {
    Kel::Ptr<Route> r = status->routeIs(p);
    r->routeChangedAtIs(r->routeChangedAt() + 1);
  }

  size_t runUntilQuiet() { return Kel::ActivityManager::instance().runUntilQuiet(100000); }

  // The RIB's side.
  const Rib::Route* ribRoute(const Pando::IpGenPrefix& p) const {
    return ribConfig->route(Rib::RouteKey(testVrfId, p));
  }
  std::vector<uint32_t> ribVias(const Pando::IpGenPrefix& p) const {
    std::vector<uint32_t> out;
    if (const Rib::Route* r = ribRoute(p)) {
      for (const Rib::ViaKey& k : r->viaSet()->viaKeys()) out.push_back(k.viaIndex());
    }
    return out;
  }

  Pando::AddressFamily af;
  Kel::VirtualTimeScope time;
  Kel::Ptr<Rib::DedupViaKeyTable> viaKeys = Kel::makePtr<Rib::DedupViaKeyTable>();
  Kel::Ptr<Status> status = statusFactory(RouteStatusKey(testVrfId, af));
  Kel::Ptr<Rib::ViaMetricStatusByVrf> metricTree = Kel::makePtr<Rib::ViaMetricStatusByVrf>();
  Kel::Ptr<Rib::ViaMetricStatus> ipMetrics;
  Kel::Ptr<Rib::ViaMetricStatus> evpnMetrics = Kel::makePtr<Rib::ViaMetricStatus>();
  Kel::Ptr<Rib::ViaMetricStatus> v4DefaultMetrics = Kel::makePtr<Rib::ViaMetricStatus>();
  Kel::Ptr<Rib::ViaMetricStatus> v6DefaultMetrics = Kel::makePtr<Rib::ViaMetricStatus>();
  Kel::Ptr<Rib::LoopingRouteStatus> looping = Kel::makePtr<Rib::LoopingRouteStatus>();
  Kel::Ptr<Rib::Ip::GlobalNextHopDependencyGraph> graph =
      Kel::makePtr<Rib::Ip::GlobalNextHopDependencyGraph>();
  Kel::Ptr<Rib::RouteConfig> ribConfig = Kel::makePtr<Rib::RouteConfig>();
  Kel::Ptr<Rib::ViaSetConfig> viaSets = Kel::makePtr<Rib::ViaSetConfig>();
  Kel::Ptr<VrfReadyStatus> ready = vrfReadyStatusFactory(L3::VrfName("red"));
  Kel::Ptr<BfdTrackedStaticRoutesList> bfdList = Kel::makePtr<BfdTrackedStaticRoutesList>();
  Kel::Ptr<BfdAgentStub> bfdAgent = Kel::makePtr<BfdAgentStub>(bfdList);
  Kel::Ptr<Rib::Ip::ViaConfig> viaConfig = Kel::makePtr<Rib::Ip::ViaConfig>();
  Kel::Ptr<Rib::Ip::ViaConfig> auxViaConfig = Kel::makePtr<Rib::Ip::ViaConfig>();
  Kel::Ptr<Rib::ViaStatusByVrf> viaStatus = Kel::makePtr<Rib::ViaStatusByVrf>();
  Kel::Ptr<RouteStatusSm> sm;
};

}  // namespace Routing::Protocol::Test
