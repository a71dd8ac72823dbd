#include "platform/Routing/Rib/RouteConfig.h"

#include <utility>
#include <vector>

namespace Routing::Rib {

void RouteConfig::routeAdd(const Route& r) {
  if (route_.size() >= capacity() && route_.find(r.key()) == nullptr) checkRoom(route_.size());
  const auto [stored, inserted] = route_.insertWith(r.key(), [&r] { return Route(r); });
  if (inserted) {
    familyCountIs(r.key(), 1);
  } else {
    if (*stored == r) return;
    // The old route goes after the slot is rewritten: dropping its via set
    // may notify reactors that write to this table.
    Route old = std::exchange(*stored, r);
  }
  ++adds_;
  notifyKey(&Notifiee::onRoute, r.key());
}

void RouteConfig::routeDelete(const RouteKey& k) {
  if (!route_.erase(k)) return;
  familyCountIs(k, -1);
  ++deletes_;
  notifyKey(&Notifiee::onRoute, k);
}

void RouteConfig::doDeleteRoutesForVrf(Vrf::VrfIdMap::VrfId vrfId) {
  // Keys first: reactors may change the table while it is being emptied.
  std::vector<RouteKey> doomed;
  for (const Route& r : route_) {
    if (r.key().vrfId() == vrfId) doomed.push_back(r.key());
  }
  for (const RouteKey& k : doomed) routeDelete(k);
}

void RouteConfig::familyCountIs(const RouteKey& k, int delta) {
  const uint64_t family = familyOf(k.vrfId(), k.prefix().af());
  FamilyCount& c = *familyCount_.insertWith(family,
                                            [family] {
                                              return FamilyCount{family, 0};
                                            })
                        .first;
  c.count += delta;
  if (c.count == 0) familyCount_.erase(family);
}

void RouteConfig::cleanup() {
  while (route_.size() != 0) {
    const RouteKey k = route_.begin()->key();  // a copy: the route goes first
    routeDelete(k);
  }
}

}  // namespace Routing::Rib
