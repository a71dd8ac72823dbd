#include "platform/Routing/Route/Route.h"

#include <sstream>
#include <utility>

#include "Kel/Error.h"

namespace Routing {

void RouteList::routeIs(const Kel::Ptr<Route>& r) {
  if (!r) throw Kel::NullArgumentError("RouteList::routeIs: null route");
  const RouteKey key = r->key();
  Kel::Ptr<Route>* slot = route_.find(key);
  if (slot != nullptr && *slot == r) return;
  if (r->filed()) {
    std::ostringstream msg;
    msg << "Route " << key << " is already filed in a route list";
    throw Kel::RangeError(msg.str());
  }
  if (key.prefix().af() != af_) {
    std::ostringstream msg;
    msg << "Route " << key << " is not of address family " << af_;
    throw Kel::RangeError(msg.str());
  }
  Kel::Ptr<Route> old;
  if (slot != nullptr) {
    old = std::exchange(*slot, r);
  } else {
    route_.insert(Kel::Ptr<Route>(r));
  }
  if (old) old->filedIs(false);
  r->filedIs(true);
  notifyKey(&Notifiee::onRoute, key);
}

void RouteList::routeDel(const RouteKey& k) {
  std::optional<Kel::Ptr<Route>> old = route_.extract(k);
  if (!old) return;
  (*old)->filedIs(false);
  notifyKey(&Notifiee::onRoute, k);
}

void RouteList::routeDelAll() {
  while (!route_.empty()) routeDel((*route_.begin())->key());
}

Kel::Ptr<RouteList> routeListFactory(Pando::AddressFamily af) {
  return Kel::makePtr<RouteList>(af);
}

}  // namespace Routing
