// The platform around a RootSm, on virtual time: the state database and
// shared memory with every input table published at its path, helpers that
// play the platform and the RIB (VRF names and ids, interface status, via
// metric tables, looping-route status), and the agent started through
// AgentBuilder.
//
//   protocol 2 (static, "staticConfig"); inputs of a VRF: its name and id,
//   its IPv4 and IPv6 interface status, its metric tables per transport and
//   its looping-route status per family, unicast and multicast; the default
//   VRF (id 0) also carries the EVPN metric table.
#pragma once


#include <string>

#include "IpRib/ProtocolAgentBuilder.h"
#include "Kel/Clock.h"
#include "Kel/System.h"

namespace Routing::Protocol::Test {

struct RootWorld {
  static constexpr Rib::RoutingProtocol staticProtocol = 2;

  explicit RootWorld(AgentConfig config = {}) : config(config) {
    names->vrfNameToIdIs(L3::VrfName::defaultVrf(), Vrf::VrfIdMap::defaultVrfId);
    vrfIds->vrfEntryIs(Vrf::VrfIdMap::defaultVrfId, L3::VrfName::defaultVrf());
    platform.stateDb->entityIs("vrf/vrfNameStatus", nameStatus);
    platform.stateDb->entityIs("vrf/vrfIdMapStatus", vrfIds);
    platform.stateDb->entityIs("ip/status", ip4);
    platform.stateDb->entityIs("ip6/status", ip6);
    platform.sharedMem->entityIs("routing/rib/viaMetricStatus", metrics);
    platform.sharedMem->entityIs("routing/mrib/viaMetricStatus", mcMetrics);
    const char* loopingPaths[4] = {
        "routing/rib/loopingRouteStatus", "routing6/rib/loopingRouteStatus",
        "routing/mrib/loopingRouteStatus", "routing6/mrib/loopingRouteStatus"};
    for (int f = 0; f < 4; ++f) platform.stateDb->entityIs(loopingPaths[f], looping[f]);
  }
  ~RootWorld() { agent = nullptr; }

  // The agent: RootSmIs, grStateIs; the mounts complete on the next turns.
  void start() {
    agent = AgentBuilder::AgentBuilderIs(config, platform);
    settle();
  }
  RootSm& root() const { return *agent->rootSm(); }
  size_t settle() { return Kel::ActivityManager::instance().runUntilQuiet(100000); }

  // ------------------------------------------------------------ platform side
  void vrfIs(const std::string& name, Vrf::VrfIdMap::VrfId id) {
    names->vrfNameToIdIs(L3::VrfName(name), id);
    vrfIds->vrfEntryIs(id, L3::VrfName(name));
  }
  void vrfDel(const std::string& name) {
    const Vrf::VrfIdMap::VrfId id = names->vrfNameToId(L3::VrfName(name));
    names->vrfNameToIdDel(L3::VrfName(name));
    if (id != Vrf::VrfIdMap::invalidVrfId) vrfIds->vrfEntryDel(id);
  }
  // This protocol's metric table of a VRF and transport, present or not.
  void metricIs(bool multicast, Vrf::VrfIdMap::VrfId id, Rib::Transport t, bool present) {
    Rib::ViaMetricStatusByVrf& tree = multicast ? *mcMetrics : *metrics;
    if (present) {
      tree.viaMetricStatusByTransportIs(id)
          ->viaMetricStatusByProtocolIs(uint8_t(t))
          ->viaMetricStatusIs(config.protocol);
      return;
    }
    const auto byTransport = tree.viaMetricStatusByTransport(id);
    if (!byTransport) return;
    if (const auto byProtocol = byTransport->viaMetricStatusByProtocol(uint8_t(t))) {
      byProtocol->viaMetricStatusDel(config.protocol);
    }
  }
  void intfIs(Pando::AddressFamily af, const std::string& name, bool present) {
    const L3::VrfName vrf(name);
    if (af == Pando::AddressFamily::ipv4) {
      present ? void(ip4->vrfIpIntfStatusIs(vrf)) : ip4->vrfIpIntfStatusDel(vrf);
    } else {
      present ? void(ip6->vrfIp6IntfStatusIs(vrf)) : ip6->vrfIp6IntfStatusDel(vrf);
    }
  }
  // family: 0 unicast IPv4, 1 unicast IPv6, 2 multicast IPv4, 3 multicast IPv6.
  void loopingIs(int family, const std::string& name, bool present) {
    const L3::VrfName vrf(name);
    present ? void(looping[family]->vrfStatusIs(vrf)) : looping[family]->vrfStatusDel(vrf);
  }
  // The default VRF's metric tables the unicast families need (and EVPN's).
  void defaultVrfMetricsIs(bool present) {
    metricIs(false, 0, Rib::Transport::ipv4, present);
    metricIs(false, 0, Rib::Transport::ipv6, present);
    metricIs(false, 0, Rib::Transport::evpn, present);
  }
  // Every input of a VRF, unicast and multicast, both families.
  void vrfInputsIs(const std::string& name, Vrf::VrfIdMap::VrfId id) {
    for (const bool mc : {false, true}) {
      metricIs(mc, id, Rib::Transport::ipv4, true);
      metricIs(mc, id, Rib::Transport::ipv6, true);
    }
    intfIs(Pando::AddressFamily::ipv4, name, true);
    intfIs(Pando::AddressFamily::ipv6, name, true);
    for (int f = 0; f < 4; ++f) loopingIs(f, name, true);
  }

  // ------------------------------------------------------------ library side
  ContainerSm* container(const std::string& name, Pando::AddressFamily af,
                         bool multicast = false) const {
    return agent->container(ContainerKey(L3::VrfName(name), af), multicast);
  }
  Kel::Ptr<VrfReadyStatus> readyStatus(const std::string& name) const {
    return platform.allVrfReadyStatus->vrfReadyStatus(L3::VrfName(name));
  }

  AgentConfig config;
  Kel::VirtualTimeScope time;
  AgentPlatform platform = AgentPlatform::make();
  Kel::Ptr<Vrf::VrfIdMap::NameToIdMap> names = Kel::makePtr<Vrf::VrfIdMap::NameToIdMap>();
  Kel::Ptr<Vrf::VrfIdMap::NameToIdMapWrapper> nameStatus =
      Kel::makePtr<Vrf::VrfIdMap::NameToIdMapWrapper>(names);
  Kel::Ptr<Vrf::VrfIdMap::Status> vrfIds = Kel::makePtr<Vrf::VrfIdMap::Status>();
  Kel::Ptr<Ip::Status> ip4 = Kel::makePtr<Ip::Status>();
  Kel::Ptr<Ip6::Status> ip6 = Kel::makePtr<Ip6::Status>();
  Kel::Ptr<Rib::ViaMetricStatusByVrf> metrics = Kel::makePtr<Rib::ViaMetricStatusByVrf>();
  Kel::Ptr<Rib::ViaMetricStatusByVrf> mcMetrics = Kel::makePtr<Rib::ViaMetricStatusByVrf>();
  Kel::Ptr<Rib::LoopingRouteStatusByVrf> looping[4] = {
      Kel::makePtr<Rib::LoopingRouteStatusByVrf>(), Kel::makePtr<Rib::LoopingRouteStatusByVrf>(),
      Kel::makePtr<Rib::LoopingRouteStatusByVrf>(), Kel::makePtr<Rib::LoopingRouteStatusByVrf>()};
  Kel::Ptr<AgentBuilder> agent;
};

}  // namespace Routing::Protocol::Test
