#include "agent/World.h"

#include <algorithm>

#include "IpRib/ProtocolIntf.h"

namespace IpRibAgent {

namespace Protocol = Routing::Protocol;

namespace {

constexpr Pando::AddressFamily families[] = {Pando::AddressFamily::ipv4,
                                             Pando::AddressFamily::ipv6};

Rib::Transport transportOf(Pando::AddressFamily af) {
  return af == Pando::AddressFamily::ipv4 ? Rib::Transport::ipv4 : Rib::Transport::ipv6;
}

}  // namespace

World::World(const Setup& setup)
    : setup_(setup),
      platform_(setup.protocol),
      allVrfReadyStatus_(Protocol::allVrfReadyStatusFactory()),
      protocol_(setup.protocol, platform_,
                [this](Vrf::VrfIdMap::VrfId id, Rib::Transport t) { return viaConfig(id, t); }) {}

World::~World() {
  // Readers before what they read.
  while (!container_.empty()) containerDel(container_.begin()->first);
  viaMetricStatusSm_ = nullptr;
}

void World::start() {
  started_ = true;
  viaMetricStatusSm_ = Protocol::viaMetricStatusSmFactory(
      Kel::Ptr<const Rib::ViaMetricStatusByVrf>(platform_.viaMetricStatusByVrf(RibKind::unicast)),
      routeStatusDir_);
  refresh();
}

Kel::Ptr<Rib::Ip::ViaConfig> World::viaConfig(Vrf::VrfIdMap::VrfId vrfId,
                                              Rib::Transport transport) {
  Kel::Ptr<Rib::Ip::ViaConfig>& c = viaConfig_[{vrfId, transport}];
  if (!c) c = Kel::makePtr<Rib::Ip::ViaConfig>(Kel::String(Rib::ribString), transport);
  return c;
}

Kel::Ptr<Rib::RouteConfig> World::ribConfig(Vrf::VrfIdMap::VrfId vrfId, Pando::AddressFamily af) {
  Kel::Ptr<Rib::RouteConfig>& c = ribConfig_[{vrfId, af}];
  if (!c) c = Kel::makePtr<Rib::RouteConfig>();
  return c;
}

std::vector<World::RibTable> World::ribTables() const {
  std::vector<RibTable> out;
  for (const auto& [key, routes] : ribConfig_) out.push_back({key.first, key.second, routes.ptr()});
  return out;
}

std::vector<World::ContainerRef> World::containers() const {
  std::vector<ContainerRef> out;
  for (const auto& [f, c] : container_) out.push_back({f.first, c->vrfId(), f.second, c.ptr()});
  std::sort(out.begin(), out.end(), [](const ContainerRef& a, const ContainerRef& b) {
    return a.vrfId != b.vrfId ? a.vrfId < b.vrfId : a.af < b.af;
  });
  return out;
}

Protocol::ContainerSm* World::container(const L3::VrfName& vrf, Pando::AddressFamily af) const {
  const auto it = container_.find({vrf, af});
  return it == container_.end() ? nullptr : it->second.ptr();
}

bool World::inputsReady(const L3::VrfName& vrf, Vrf::VrfIdMap::VrfId id,
                        Pando::AddressFamily af) const {
  const Platform& p = platform_;
  const auto metric = [&](Vrf::VrfIdMap::VrfId v, Rib::Transport t) {
    return p.viaMetricStatus(RibKind::unicast, v, t) != nullptr;
  };
  return metric(id, transportOf(af)) && p.loopingRouteStatus(RibKind::unicast, af, vrf) &&
         (setup_.ipIntfCheckNotNeeded || p.vrfInput(vrf, VrfInput::intf, af, RibKind::unicast)) &&
         metric(Vrf::VrfIdMap::defaultVrfId, Rib::Transport::ipv4) &&
         metric(Vrf::VrfIdMap::defaultVrfId, Rib::Transport::ipv6) &&
         metric(Vrf::VrfIdMap::defaultVrfId, Rib::Transport::evpn);
}

void World::refresh() {
  if (!started_) return;
  std::vector<Family> gone;
  for (const auto& [f, c] : container_) {
    const Vrf::VrfIdMap::VrfId id = platform_.vrfId(f.first);
    if (id != c->vrfId() || !inputsReady(f.first, id, f.second)) gone.push_back(f);
  }
  for (const Family& f : gone) containerDel(f);
  std::vector<std::pair<L3::VrfName, Vrf::VrfIdMap::VrfId>> vrfs;
  for (const auto& e : platform_.nameToIdMap().vrfNameToId()) vrfs.emplace_back(e.name, e.id);
  std::sort(vrfs.begin(), vrfs.end(),
            [](const auto& a, const auto& b) { return a.second < b.second; });
  for (const auto& [name, id] : vrfs) {
    for (const Pando::AddressFamily af : families) {
      if (!container_.count({name, af}) && inputsReady(name, id, af)) containerIs(name, id, af);
    }
  }
}

void World::containerIs(const L3::VrfName& vrf, Vrf::VrfIdMap::VrfId id, Pando::AddressFamily af) {
  const Platform& p = platform_;
  const Pando::AddressFamily other =
      af == Pando::AddressFamily::ipv4 ? Pando::AddressFamily::ipv6 : Pando::AddressFamily::ipv4;
  Kel::Ptr<Protocol::IntfStatus> intfStatus;
  if (af == Pando::AddressFamily::ipv4) {
    if (auto s = p.ipStatus()->vrfIpIntfStatus(vrf))
      intfStatus = Protocol::ipv4IntfStatusFactory(s);
  } else if (auto s = p.ip6Status()->vrfIp6IntfStatus(vrf)) {
    intfStatus = Protocol::ipv6IntfStatusFactory(s);
  }
  const auto metric = [&](Vrf::VrfIdMap::VrfId v, Rib::Transport t) {
    return Kel::Ptr<const Rib::ViaMetricStatus>(p.viaMetricStatus(RibKind::unicast, v, t));
  };
  const Vrf::VrfIdMap::VrfId dflt = Vrf::VrfIdMap::defaultVrfId;
  Kel::Ptr<Protocol::ContainerSm> c = Protocol::ContainerSm::ContainerSmIs(
      Protocol::ContainerKey(vrf, af), id, metric(id, transportOf(af)),
      viaConfig(id, transportOf(af)), viaConfig(id, transportOf(other)),
      metric(dflt, Rib::Transport::evpn), evpnViaConfig_, viaSets_, ribConfig(id, af),
      Kel::Ptr<const Rib::LoopingRouteStatus>(p.loopingRouteStatus(RibKind::unicast, af, vrf)),
      intfStatus, Kel::Ptr<const Rib::Ip::GlobalNextHopDependencyGraph>(p.nhdGraph()),
      viaConfig(dflt, Rib::Transport::ipv4), metric(dflt, Rib::Transport::ipv4),
      viaConfig(dflt, Rib::Transport::ipv6), metric(dflt, Rib::Transport::ipv6), setup_.protocol,
      allVrfReadyStatus_->vrfReadyStatusIs(vrf), p.bfdList(),
      Kel::Ptr<const Rib::ViaStatusByVrf>(p.viaStatusByVrf()),
      Kel::Ptr<const Rib::ViaMetricStatusByVrf>(p.viaMetricStatusByVrf(RibKind::unicast)),
      Kel::String(Rib::ribString));
  container_[{vrf, af}] = c;
  routeStatusDir_->statusIs(c->status());
  protocol_.statusIs(vrf, af, id, c->status());
}

void World::containerDel(const Family& f) {
  const auto it = container_.find(f);
  protocol_.statusDel(f.first, f.second);
  const Kel::Ptr<Rib::RouteConfig> routes = it->second->ribConfig();
  const Vrf::VrfIdMap::VrfId id = it->second->vrfId();
  routeStatusDir_->statusDel(it->second->status()->key());
  if (Protocol::RouteStatusSm* sm = it->second->routeStatusSm()) {
    droppedEvaluations_ += sm->evaluations();
    droppedReviewSlices_ += sm->reviewSlices();
  }
  container_.erase(it);
  // The RIB forgets the routes of a VRF whose protocol container went.
  routes->doDeleteRoutesForVrf(id);
}

}  // namespace IpRibAgent
