#include "agent/Protocol.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "Kel/System.h"

namespace IpRibAgent {

ProtocolSide::ProtocolSide(Rib::RoutingProtocol protocol, Platform& platform)
    : protocol_(protocol), platform_(platform) {}

Rib::ViaKey ProtocolSide::viaKey(const Published& p, const ViaSpec& via) {
  const Pando::AddressFamily af = via.nextHop.addr.af();
  const uint8_t kind =
      af == Pando::AddressFamily::ipv4 ? Rib::ViaKey::kindIpv4 : Rib::ViaKey::kindIpv6;
  const ViaSpecKey key(p.vrfId, kind, via.nextHop, via.label);
  auto it = viaKey_.find(key);
  if (it == viaKey_.end()) {
    it = viaKey_
             .emplace(key, Rib::ViaKey(kind, p.vrfId, protocol_, ++nextViaIndex_[{p.vrfId, kind}]))
             .first;
    viaUse_.emplace(it->second, ViaUse{key, 0});
  }
  const Rib::Via record(via.nextHop.addr, via.nextHop.intf, via.label);
  (af == p.af ? p.viaConfig : p.auxViaConfig)->viaIs(it->second, record);
  platform_.viaIs(it->second, record);
  return it->second;
}

void ProtocolSide::viaHeld(const Rib::ViaKey& key) { ++viaUse_.at(key).uses; }

void ProtocolSide::viaReleased(const Rib::ViaKey& key) {
  const auto it = viaUse_.find(key);
  if (--it->second.uses != 0) return;
  viaKey_.erase(it->second.spec);
  viaUse_.erase(it);
  platform_.viaDel(key);
}

void ProtocolSide::viasReleased(const Protocol::RoutePref& rp) {
  for (const auto& byType : rp.dedupViaKeyByViaType()) {
    for (const auto& v : byType->dedupViaKey()) viaReleased(v->viaKey());
  }
}

void ProtocolSide::stamp(Protocol::Route& route) {
  const double now = Kel::System::currentTime();
  const double last = route.routeChangedAt();
  route.routeChangedAtIs(now > last ? now
                                    : std::nextafter(last, std::numeric_limits<double>::max()));
}

void ProtocolSide::writePref(const Published& p, Protocol::RoutePref& rp, const PrefSpec& spec) {
  rp.fecTypeIs(spec.fecType);
  rp.tagIs(spec.tag);
  rp.installInFibIs(spec.installInFib);
  std::map<std::pair<Protocol::ViaType, Rib::ViaKey>, Routing::RouteMetric> wanted;
  std::set<Rib::ViaKey> tracked;
  for (const ViaSpec& v : spec.vias) {
    const Rib::ViaKey k = viaKey(p, v);
    wanted[{v.type, k}] = v.metric;
    if (v.bfd) tracked.insert(k);
  }
  // Tracking first, so that a tracked via never counts as untracked.
  std::vector<Rib::ViaKey> untrack;
  rp.forEachBfdTrackedVia([&](const Rib::ViaKey& k) {
    if (!tracked.count(k)) untrack.push_back(k);
  });
  for (const Rib::ViaKey& k : untrack) rp.bfdTrackedViaCollDel(k);
  for (const Rib::ViaKey& k : tracked) rp.bfdTrackedViaCollIs(k);
  std::vector<std::pair<Protocol::ViaType, Rib::ViaKey>> gone;
  for (const auto& byType : rp.dedupViaKeyByViaType()) {
    for (const auto& v : byType->dedupViaKey()) {
      if (!wanted.count({byType->viaType(), v->viaKey()})) {
        gone.emplace_back(byType->viaType(), v->viaKey());
      }
    }
  }
  for (const auto& [type, k] : gone) rp.dedupViaKeyDel(type, k);
  for (const auto& [typeKey, metric] : wanted) {
    const auto& [type, k] = typeKey;
    Kel::Ptr<Protocol::DedupViaKeyByViaType> byType = rp.dedupViaKeyByViaType(type);
    Kel::Ptr<Protocol::DedupViaKeyMetric> present = byType ? byType->dedupViaKey(k) : nullptr;
    if (present) {
      present->metricIs(metric);
    } else {
      rp.dedupViaKeyIs(type, viaKeys_->dedupViaKeyIs(k), metric);
      viaHeld(k);
    }
  }
  // Released last: a via may move from one type to another.
  for (const auto& [type, k] : gone) viaReleased(k);
}

void ProtocolSide::write(const Published& p, const Pando::IpGenPrefix& prefix, const Prefs& prefs) {
  if (prefs.empty()) {
    if (const Kel::Ptr<Protocol::Route> route = p.status->route(prefix)) {
      for (const auto& rp : route->routePref()) viasReleased(*rp);
    }
    p.status->routeDel(prefix);
    return;
  }
  Kel::Ptr<Protocol::Route> route = p.status->routeIs(prefix);
  std::vector<Routing::RoutePreference> gone;
  for (const auto& rp : route->routePref()) {
    if (!prefs.count(rp->preference())) gone.push_back(rp->preference());
  }
  for (Routing::RoutePreference g : gone) {
    viasReleased(*route->routePref(g));
    route->routePrefDel(g);
  }
  for (const auto& [pref, spec] : prefs) writePref(p, *route->routePrefIs(pref), spec);
  stamp(*route);
}

const Kel::Ptr<Routing::RouteList>& ProtocolSide::routeList(const L3::VrfName& vrf,
                                                            Pando::AddressFamily af) {
  Kel::Ptr<Routing::RouteList>& list = routeList_[Family(vrf, af)];
  if (!list) list = Routing::routeListFactory(af);
  return list;
}

L3::VrfName ProtocolSide::leakTo(const Family& f, const Pando::IpGenPrefix& prefix,
                                 const Prefs& prefs) {
  const Routing::RouteList& list = *routeList(f.first, f.second);
  for (const auto& [pref, spec] : prefs) {
    if (const Kel::Ptr<Routing::Route> r = list.route(Routing::RouteKey(prefix, pref))) {
      return r->leakVrfName();
    }
  }
  return L3::VrfName();
}

void ProtocolSide::fileRoute(const Family& f, const Routing::RouteKey& key, const PrefSpec& spec,
                             const L3::VrfName& leakTo) {
  Routing::RouteMetric metric = spec.vias.empty() ? 0 : std::numeric_limits<uint32_t>::max();
  for (const ViaSpec& v : spec.vias) metric = std::min(metric, v.metric);
  Routing::RouteList& list = *routeList(f.first, f.second);
  if (const Kel::Ptr<Routing::Route> r = list.route(key)) {
    r->metricIs(metric);
    return;
  }
  // Made whole before it is filed: its readers hear of it once.
  const auto r = Kel::makePtr<Routing::Route>(key);
  r->metricIs(metric);
  r->leakVrfNameIs(leakTo);
  list.routeIs(r);
}

void ProtocolSide::routeIs(const L3::VrfName& vrf, const Pando::IpGenPrefix& prefix,
                           Routing::RoutePreference pref, const PrefSpec& spec) {
  const Family f(vrf, prefix.af());
  Prefs& prefs = route_[f][prefix];
  const L3::VrfName to = leakTo(f, prefix, prefs);
  // A fresh copy: assigned over the old one, the vias would keep its buffer.
  prefs.insert_or_assign(pref, PrefSpec(spec));
  fileRoute(f, Routing::RouteKey(prefix, pref), spec, to);
  if (const auto it = published_.find(f); it != published_.end()) write(it->second, prefix, prefs);
}

bool ProtocolSide::routeDel(const L3::VrfName& vrf, const Pando::IpGenPrefix& prefix,
                            std::optional<Routing::RoutePreference> pref) {
  const Family f(vrf, prefix.af());
  const auto routes = route_.find(f);
  if (routes == route_.end()) return false;
  const auto it = routes->second.find(prefix);
  if (it == routes->second.end()) return false;
  if (pref && it->second.erase(*pref) == 0) return false;
  Routing::RouteList& list = *routeList(vrf, prefix.af());
  if (pref) {
    list.routeDel(Routing::RouteKey(prefix, *pref));
  } else {
    for (const auto& [p, spec] : it->second) list.routeDel(Routing::RouteKey(prefix, p));
    it->second.clear();
  }
  if (const auto p = published_.find(f); p != published_.end()) {
    write(p->second, prefix, it->second);
  }
  if (it->second.empty()) routes->second.erase(it);
  return true;
}

bool ProtocolSide::leakIs(const L3::VrfName& vrf, const Pando::IpGenPrefix& prefix,
                          const L3::VrfName& to) {
  const auto routes = route_.find(Family(vrf, prefix.af()));
  if (routes == route_.end()) return false;
  const auto it = routes->second.find(prefix);
  if (it == routes->second.end()) return false;
  const Routing::RouteList& list = *routeList(vrf, prefix.af());
  for (const auto& [pref, spec] : it->second) {
    list.route(Routing::RouteKey(prefix, pref))->leakVrfNameIs(to);
  }
  return true;
}

bool ProtocolSide::leakDel(const L3::VrfName& vrf, const Pando::IpGenPrefix& prefix) {
  const Family f(vrf, prefix.af());
  const auto routes = route_.find(f);
  if (routes == route_.end()) return false;
  const auto it = routes->second.find(prefix);
  if (it == routes->second.end() || leakTo(f, prefix, it->second).value().empty()) return false;
  return leakIs(vrf, prefix, L3::VrfName());
}

void ProtocolSide::leakTargetChanged(const L3::VrfName& to) {
  for (const auto& [f, list] : routeList_) {
    std::vector<Kel::Ptr<Routing::Route>> moved;
    for (const Kel::Ptr<Routing::Route>& r : list->route()) {
      if (r->leakVrfName() == to) moved.push_back(r);
    }
    for (const Kel::Ptr<Routing::Route>& old : moved) {
      const auto r = Kel::makePtr<Routing::Route>(old->key());
      r->metricIs(old->metric());
      r->leakVrfNameIs(to);
      list->routeIs(r);
    }
  }
}

void ProtocolSide::initializedIs(const L3::VrfName& vrf, Pando::AddressFamily af) {
  const Family f(vrf, af);
  initialized_.insert(f);
  if (const auto p = published_.find(f); p != published_.end()) {
    p->second.status->initializedIs(true);
  }
}

void ProtocolSide::statusIs(const L3::VrfName& vrf, Pando::AddressFamily af,
                            Vrf::VrfIdMap::VrfId vrfId, const Kel::Ptr<Protocol::Status>& status,
                            const Kel::Ptr<Rib::Ip::ViaConfig>& viaConfig,
                            const Kel::Ptr<Rib::Ip::ViaConfig>& auxViaConfig) {
  const Family f(vrf, af);
  const Published& p = published_[f] = Published{vrfId, af, status, viaConfig, auxViaConfig};
  if (const auto routes = route_.find(f); routes != route_.end()) {
    for (const auto& [prefix, prefs] : routes->second) write(p, prefix, prefs);
  }
  if (initialized_.count(f)) status->initializedIs(true);
}

void ProtocolSide::statusDel(const L3::VrfName& vrf, Pando::AddressFamily af) {
  const auto it = published_.find(Family(vrf, af));
  if (it == published_.end()) return;
  for (const auto& route : it->second.status->route()) {
    for (const auto& rp : route->routePref()) viasReleased(*rp);
  }
  published_.erase(it);
}

}  // namespace IpRibAgent
