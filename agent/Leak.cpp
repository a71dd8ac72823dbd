#include "agent/Leak.h"

namespace IpRibAgent {

namespace {

constexpr Pando::AddressFamily families[] = {Pando::AddressFamily::ipv4,
                                             Pando::AddressFamily::ipv6};

}  // namespace

LeakSide::LeakSide(const Kel::Ptr<const Vrf::VrfIdMap::NameToIdMap>& names, ProtocolSide& protocol)
    : protocol_(protocol), root_(Protocol::Leak::rootSmFactory(names)) {
  notifierIs(names);
  for (const auto& e : names->vrfNameToId()) vrfIs(e.name, e.id);
}

LeakSide::~LeakSide() {
  // The muxes and demuxes before the configs they write.
  root_ = nullptr;
}

const Protocol::LeakRouteConfig* LeakSide::leakRouteConfig(const L3::VrfName& vrf,
                                                           Pando::AddressFamily af) const {
  const auto it = vrf_.find(vrf);
  return it == vrf_.end() ? nullptr : it->second.config[af == Pando::AddressFamily::ipv6].ptr();
}

uint64_t LeakSide::leakedRoutes() const {
  uint64_t n = 0;
  for (const auto& [name, v] : vrf_) {
    for (const auto& c : v.config) n += c->leakRoutes();
  }
  return n;
}

void LeakSide::onVrfNameToId(const L3::VrfName& name) {
  const Vrf::VrfIdMap::VrfId id = notifier()->vrfNameToId(name);
  const auto it = vrf_.find(name);
  if (it != vrf_.end() && it->second.id == id) return;
  if (it != vrf_.end()) vrfDel(name);
  if (id != Vrf::VrfIdMap::invalidVrfId) vrfIs(name, id);
  protocol_.leakTargetChanged(name);
}

void LeakSide::vrfIs(const L3::VrfName& name, Vrf::VrfIdMap::VrfId id) {
  Created& v = vrf_[name];
  v.id = id;
  for (const Pando::AddressFamily af : families) {
    const Protocol::VrfIdAf key(id, af);
    Kel::Ptr<Protocol::LeakRouteConfig>& config = v.config[af == Pando::AddressFamily::ipv6];
    config = Protocol::leakRouteConfigFactory(key);
    root_->createVrf(key, protocol_.routeList(name, af), config);
  }
}

void LeakSide::vrfDel(const L3::VrfName& name) {
  const auto it = vrf_.find(name);
  for (const Pando::AddressFamily af : families) {
    root_->deleteVrf(Protocol::VrfIdAf(it->second.id, af));
  }
  vrf_.erase(it);
}

}  // namespace IpRibAgent
