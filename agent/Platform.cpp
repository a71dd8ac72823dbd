#include "agent/Platform.h"

namespace IpRibAgent {

namespace {

constexpr std::array<Rib::Transport, 3> allTransports = {Rib::Transport::ipv4, Rib::Transport::ipv6,
                                                         Rib::Transport::evpn};
constexpr std::array<Pando::AddressFamily, 2> families = {Pando::AddressFamily::ipv4,
                                                          Pando::AddressFamily::ipv6};
constexpr std::array<RibKind, 2> ribs = {RibKind::unicast, RibKind::multicast};

Rib::Transport transportOf(Pando::AddressFamily af) {
  return af == Pando::AddressFamily::ipv4 ? Rib::Transport::ipv4 : Rib::Transport::ipv6;
}

Pando::IpGenPrefix hostPrefix(const Pando::IpGenAddr& a) {
  return Pando::IpGenPrefix(a, Pando::IpGenPrefix::maxLen(a.af()));
}

// The graph's own via that resolves a looping next hop into `prefix`; its
// selector is one no protocol uses.
Rib::ViaKey loopVia(const Pando::IpGenPrefix& prefix, Vrf::VrfIdMap::VrfId vrfId, uint32_t index) {
  return Rib::ViaKey(
      prefix.af() == Pando::AddressFamily::ipv4 ? Rib::ViaKey::kindIpv4 : Rib::ViaKey::kindIpv6,
      vrfId, 0xffffffff, index);
}

}  // namespace

Platform::Platform(Rib::RoutingProtocol protocol,
                   const Routing::Protocol::AgentPlatform& agentPlatform)
    : protocol_(protocol),
      vrfNameStatus_(Kel::makePtr<Vrf::VrfIdMap::NameToIdMapWrapper>(
          Kel::makePtr<Vrf::VrfIdMap::NameToIdMap>())),
      bfdList_(agentPlatform.bfdTrackedRoutesList),
      bfdAgent_(Kel::makePtr<Routing::BfdAgentStub>(bfdList_)) {
  Cairn::EntityManager& stateDb = *agentPlatform.stateDb;
  KelSharedMem::EntityManager& sharedMem = *agentPlatform.sharedMem;
  stateDb.entityIs("vrf/vrfNameStatus", vrfNameStatus_);
  stateDb.entityIs("vrf/vrfIdMapStatus", vrfIdStatus_);
  stateDb.entityIs("ip/status", ipStatus_);
  stateDb.entityIs("ip6/status", ip6Status_);
  static constexpr const char* loopingPaths[2][2] = {
      {"routing/rib/loopingRouteStatus", "routing6/rib/loopingRouteStatus"},
      {"routing/mrib/loopingRouteStatus", "routing6/mrib/loopingRouteStatus"}};
  for (const RibKind rib : ribs) {
    const bool mc = rib == RibKind::multicast;
    viaMetricStatusByVrf_[mc] = Kel::makePtr<Rib::ViaMetricStatusByVrf>();
    sharedMem.entityIs(mc ? "routing/mrib/viaMetricStatus" : "routing/rib/viaMetricStatus",
                       viaMetricStatusByVrf_[mc]);
    for (size_t af = 0; af < 2; ++af) {
      looping_[mc][af] = Kel::makePtr<Rib::LoopingRouteStatusByVrf>();
      stateDb.entityIs(loopingPaths[mc][af], looping_[mc][af]);
    }
  }
  stateDb.entityIs(Rib::Ip::GlobalNextHopDependencyGraph::mountPath(Rib::ribString).view(), graph_);
  vrfIs(L3::VrfName::defaultVrf(), Vrf::VrfIdMap::defaultVrfId, false);
}

// ---------------------------------------------------------------- VRFs

void Platform::vrfIs(const L3::VrfName& name, Vrf::VrfIdMap::VrfId id, bool bare) {
  const auto it = bare_.find(name);
  if (it != bare_.end()) {
    if (vrfId(name) == id && it->second == bare) return;
    loopsIs(name, false);
    vrfTablesIs(name, false);
    if (bare) intfTablesIs(name, false);
    vrfIdStatus_->vrfEntryDel(vrfId(name));
  }
  bare_[name] = bare;
  vrfNameStatus_->nameToIdMap()->vrfNameToIdIs(name, id);
  vrfIdStatus_->vrfEntryIs(id, name);
  loopsIs(name, true);
  if (bare) return;
  vrfTablesIs(name, true);
  intfTablesIs(name, true);
}

void Platform::vrfDel(const L3::VrfName& name) {
  const auto it = bare_.find(name);
  if (it == bare_.end()) return;
  loopsIs(name, false);
  vrfTablesIs(name, false);
  intfTablesIs(name, false);
  // The RIB's tables of the VRF go with it: declared again, it starts
  // without next-hop metrics or loops.
  std::erase_if(metric_, [&](const auto& e) { return std::get<1>(e.first) == name; });
  std::erase_if(loop_, [&](const auto& e) { return std::get<0>(e.first) == name; });
  bare_.erase(it);
  vrfIdStatus_->vrfEntryDel(vrfId(name));
  vrfNameStatus_->nameToIdMap()->vrfNameToIdDel(name);
}

void Platform::vrfTablesIs(const L3::VrfName& name, bool on) {
  for (const RibKind rib : ribs) {
    for (const Rib::Transport t : allTransports) metricTableIs(rib, name, t, on);
    for (const Pando::AddressFamily af : families) vrfInputIs(name, VrfInput::looping, af, rib, on);
  }
}

void Platform::intfTablesIs(const L3::VrfName& name, bool on) {
  for (const Pando::AddressFamily af : families) {
    vrfInputIs(name, VrfInput::intf, af, RibKind::unicast, on);
  }
}

void Platform::loopsIs(const L3::VrfName& vrf, bool on) {
  const Vrf::VrfIdMap::VrfId id = vrfId(vrf);
  for (const auto& [loop, index] : loop_) {
    const auto& [loopVrf, prefix, nh] = loop;
    if (loopVrf != vrf) continue;
    if (on) {
      publishLoops(vrf, nh.addr);
    } else {
      graph_->viaNextHopDel(loopVia(prefix, id, index));
      graph_->routeViasDel(id, hostPrefix(nh.addr));
    }
  }
}

void Platform::vrfInputIs(const L3::VrfName& name, VrfInput input, Pando::AddressFamily af,
                          RibKind rib, bool on) {
  switch (input) {
    case VrfInput::metric:
      metricTableIs(rib, name, transportOf(af), on);
      break;
    case VrfInput::looping: {
      const Kel::Ptr<Rib::LoopingRouteStatusByVrf>& byVrf =
          looping_[size_t(rib)][af == Pando::AddressFamily::ipv6];
      if (!on) {
        byVrf->vrfStatusDel(name);
        break;
      }
      Kel::Ptr<Rib::LoopingRouteStatus> s = byVrf->vrfStatusIs(name);
      if (rib == RibKind::multicast) break;
      for (const auto& [loop, index] : loop_) {
        const auto& [vrf, prefix, nh] = loop;
        if (vrf == name && prefix.af() == af) s->loopingRouteIs(prefix);
      }
      break;
    }
    case VrfInput::intf:
      // Both RIBs read the one interface status of the family.
      if (af == Pando::AddressFamily::ipv4) {
        on ? void(ipStatus_->vrfIpIntfStatusIs(name)) : ipStatus_->vrfIpIntfStatusDel(name);
      } else {
        on ? void(ip6Status_->vrfIp6IntfStatusIs(name)) : ip6Status_->vrfIp6IntfStatusDel(name);
      }
      break;
  }
}

bool Platform::vrfInput(const L3::VrfName& name, VrfInput input, Pando::AddressFamily af,
                        RibKind rib) const {
  switch (input) {
    case VrfInput::metric:
      return viaMetricStatus(rib, vrfId(name), transportOf(af)) != nullptr;
    case VrfInput::looping:
      return loopingRouteStatus(rib, af, name) != nullptr;
    case VrfInput::intf:
      return af == Pando::AddressFamily::ipv4 ? ipStatus_->vrfIpIntfStatusHas(name)
                                              : ip6Status_->vrfIp6IntfStatusHas(name);
  }
  return false;
}

// ---------------------------------------------------------------- interfaces

void Platform::interfaceIs(const L3::VrfName& vrf, const Pando::IntfId& intf,
                           Pando::AddressFamily af, bool routing) {
  if (af == Pando::AddressFamily::ipv4) {
    ipStatus_->vrfIpIntfStatusIs(vrf)->ipIntfStatusIs(intf)->dpRoutingEnabledIs(routing);
  } else {
    ip6Status_->vrfIp6IntfStatusIs(vrf)->ip6IntfStatusIs(intf)->dpRoutingEnabledIs(routing);
  }
}

bool Platform::interfaceDel(const L3::VrfName& vrf, const Pando::IntfId& intf,
                            Pando::AddressFamily af) {
  if (af == Pando::AddressFamily::ipv4) {
    Kel::Ptr<Ip::VrfIpIntfStatus> s = ipStatus_->vrfIpIntfStatus(vrf);
    if (!s || !s->ipIntfStatusHas(intf)) return false;
    s->ipIntfStatusDel(intf);
    return true;
  }
  Kel::Ptr<Ip6::VrfIp6IntfStatus> s = ip6Status_->vrfIp6IntfStatus(vrf);
  if (!s || !s->ip6IntfStatusHas(intf)) return false;
  s->ip6IntfStatusDel(intf);
  return true;
}

// ---------------------------------------------------------------- RIB inputs

Kel::Ptr<Rib::ViaMetricStatus> Platform::viaMetricStatus(RibKind rib, Vrf::VrfIdMap::VrfId vrfId,
                                                         Rib::Transport transport) const {
  Kel::Ptr<Rib::ViaMetricStatusByTransport> byTransport =
      viaMetricStatusByVrf(rib)->viaMetricStatusByTransport(vrfId);
  if (!byTransport) return nullptr;
  Kel::Ptr<Rib::ViaMetricStatusByProtocol> byProtocol =
      byTransport->viaMetricStatusByProtocol(uint8_t(transport));
  return byProtocol ? byProtocol->viaMetricStatus(protocol_) : nullptr;
}

Kel::Ptr<Rib::LoopingRouteStatus> Platform::loopingRouteStatus(RibKind rib, Pando::AddressFamily af,
                                                               const L3::VrfName& vrf) const {
  return looping_[size_t(rib)][af == Pando::AddressFamily::ipv6]->vrfStatus(vrf);
}

void Platform::metricTableIs(RibKind rib, const L3::VrfName& vrf, Rib::Transport transport,
                             bool on) {
  const Vrf::VrfIdMap::VrfId id = vrfId(vrf);
  const Kel::Ptr<Rib::ViaMetricStatusByVrf>& tree = viaMetricStatusByVrf(rib);
  if (on) {
    tree->viaMetricStatusByTransportIs(id)
        ->viaMetricStatusByProtocolIs(uint8_t(transport))
        ->viaMetricStatusIs(protocol_);
    publishMetrics(rib, vrf, transport);
    return;
  }
  Kel::Ptr<Rib::ViaMetricStatusByTransport> byTransport = tree->viaMetricStatusByTransport(id);
  if (!byTransport) return;
  byTransport->viaMetricStatusByProtocolDel(uint8_t(transport));
  if (byTransport->viaMetricStatusByProtocolSize() == 0) tree->viaMetricStatusByTransportDel(id);
}

std::optional<NextHopMetric> Platform::metricFor(RibKind rib, const L3::VrfName& vrf,
                                                 const Rib::ViaKey& key,
                                                 const Rib::Via& via) const {
  const Rib::Transport t = Rib::Transport(key.kind());
  for (const NextHop& nh : {NextHop{via.nextHop(), via.intf()}, NextHop{via.nextHop(), {}}}) {
    const auto it = metric_.find(MetricKey(rib, vrf, t, nh));
    if (it != metric_.end()) return it->second;
  }
  return std::nullopt;
}

void Platform::publishMetrics(RibKind rib, const L3::VrfName& vrf, Rib::Transport transport) {
  const Vrf::VrfIdMap::VrfId id = vrfId(vrf);
  Kel::Ptr<Rib::ViaMetricStatus> table = viaMetricStatus(rib, id, transport);
  if (!table) return;
  // Via keys order by kind, then VRF id: the VRF's keys of the transport are one range.
  const auto end = via_.lower_bound(Rib::ViaKey(uint8_t(transport), id + 1, 0, 0));
  for (auto it = via_.lower_bound(Rib::ViaKey(uint8_t(transport), id, 0, 0)); it != end; ++it) {
    publishMetric(*table, rib, vrf, it->first, it->second);
  }
}

void Platform::publishMetric(Rib::ViaMetricStatus& table, RibKind rib, const L3::VrfName& vrf,
                             const Rib::ViaKey& key, const Rib::Via& via) {
  if (std::optional<NextHopMetric> m = metricFor(rib, vrf, key, via)) {
    table.viaMetricIs(key, Rib::ViaMetric(Rib::MetricPref(1, m->metric), m->looping));
  } else {
    table.viaMetricDel(key);
  }
}

void Platform::viaMetricIs(RibKind rib, const L3::VrfName& vrf, Rib::Transport transport,
                           const NextHop& nh, NextHopMetric m) {
  metric_[MetricKey(rib, vrf, transport, nh)] = m;
  publishMetrics(rib, vrf, transport);
}

bool Platform::viaMetricDel(RibKind rib, const L3::VrfName& vrf, Rib::Transport transport,
                            const NextHop& nh) {
  if (metric_.erase(MetricKey(rib, vrf, transport, nh)) == 0) return false;
  publishMetrics(rib, vrf, transport);
  return true;
}

void Platform::viaIs(const Rib::ViaKey& key, const Rib::Via& via) {
  if (const auto it = via_.find(key); it != via_.end() && it->second == via) return;
  via_[key] = via;
  graph_->viaNextHopIs(key, via.nextHop());
  const L3::VrfName* vrf = vrfName(key.vrfId());
  if (!vrf) return;
  for (const RibKind rib : ribs) {
    if (Kel::Ptr<Rib::ViaMetricStatus> table =
            viaMetricStatus(rib, key.vrfId(), Rib::Transport(key.kind()))) {
      publishMetric(*table, rib, *vrf, key, via);
    }
  }
}

void Platform::viaDel(const Rib::ViaKey& key) {
  if (via_.erase(key) == 0) return;
  graph_->viaNextHopDel(key);
  for (const RibKind rib : ribs) {
    if (Kel::Ptr<Rib::ViaMetricStatus> table =
            viaMetricStatus(rib, key.vrfId(), Rib::Transport(key.kind()))) {
      table->viaMetricDel(key);
    }
  }
}

const Rib::Via* Platform::via(const Rib::ViaKey& key) const {
  const auto it = via_.find(key);
  return it == via_.end() ? nullptr : &it->second;
}

void Platform::publishLoops(const L3::VrfName& vrf, const Pando::IpGenAddr& nextHop) {
  const Vrf::VrfIdMap::VrfId id = vrfId(vrf);
  if (id == Vrf::VrfIdMap::invalidVrfId) return;
  std::vector<Rib::ViaKey> vias;
  for (const auto& [loop, index] : loop_) {
    const auto& [loopVrf, prefix, nh] = loop;
    if (loopVrf != vrf || nh.addr != nextHop) continue;
    const Rib::ViaKey k = loopVia(prefix, id, index);
    graph_->viaNextHopIs(k, prefix.addr());
    vias.push_back(k);
  }
  if (vias.empty()) {
    graph_->routeViasDel(id, hostPrefix(nextHop));
  } else {
    graph_->routeViasIs(id, hostPrefix(nextHop), std::move(vias));
  }
}

void Platform::loopingRouteIs(const L3::VrfName& vrf, const Pando::IpGenPrefix& prefix,
                              const NextHop& nh) {
  if (!loop_.emplace(LoopKey(vrf, prefix, nh), nextLoopVia_).second) return;
  ++nextLoopVia_;
  publishLoops(vrf, nh.addr);
  if (Kel::Ptr<Rib::LoopingRouteStatus> s =
          loopingRouteStatus(RibKind::unicast, prefix.af(), vrf)) {
    s->loopingRouteIs(prefix);
  }
}

bool Platform::loopingRouteDel(const L3::VrfName& vrf, const Pando::IpGenPrefix& prefix,
                               const NextHop& nh) {
  const auto it = loop_.find(LoopKey(vrf, prefix, nh));
  if (it == loop_.end()) return false;
  const Vrf::VrfIdMap::VrfId id = vrfId(vrf);
  graph_->viaNextHopDel(loopVia(prefix, id, it->second));
  loop_.erase(it);
  publishLoops(vrf, nh.addr);
  Kel::Ptr<Rib::LoopingRouteStatus> s = loopingRouteStatus(RibKind::unicast, prefix.af(), vrf);
  if (!s) return true;
  for (const auto& [loop, index] : loop_) {
    if (std::get<0>(loop) == vrf && std::get<1>(loop) == prefix) return true;
  }
  s->loopingRouteDel(prefix);
  return true;
}

// ---------------------------------------------------------------- BFD

void Platform::bfdSessionIs(const NextHop& peer, bool up, const Pando::IntfId& resolved) {
  bfdAgent_->sessionIs(peer.addr, peer.intf, up, resolved);
}

}  // namespace IpRibAgent
