#include "platform/Routing/Bfd/BfdTrackedStaticRoutes.h"

namespace Routing {

void TrackedViaList::trackedViaIs(const Via& v) {
  if (trackedVia_.insert(Via(v)).second) notifyKey(&Notifiee::onTrackedVia, v);
}

void TrackedViaList::trackedViaDel(const Via& v) {
  if (trackedVia_.erase(v)) notifyKey(&Notifiee::onTrackedVia, v);
}

Kel::Ptr<TrackedViaList> BfdTrackedStaticRoutes::dependantRoute(const RouteKey& k) const {
  const auto* e = dependantRoute_.find(k);
  return e ? *e : nullptr;
}

Kel::Ptr<TrackedViaList> BfdTrackedStaticRoutes::dependantRouteIs(const RouteKey& k) {
  if (const auto* e = dependantRoute_.find(k)) return *e;
  Kel::Ptr<TrackedViaList> list = *dependantRoute_.insert(Kel::makePtr<TrackedViaList>(k)).first;
  notifyKey(&Notifiee::onDependantRoute, k);
  return list;
}

void BfdTrackedStaticRoutes::dependantRouteDel(const RouteKey& k) {
  if (dependantRoute_.erase(k)) notifyKey(&Notifiee::onDependantRoute, k);
}

Kel::Ptr<BfdTrackedStaticRoutes> BfdTrackedStaticRoutesList::route(const BfdStatusKey& k) const {
  const auto* e = route_.find(k);
  return e ? *e : nullptr;
}

Kel::Ptr<BfdTrackedStaticRoutes> BfdTrackedStaticRoutesList::routeIs(const BfdStatusKey& k) {
  if (const auto* e = route_.find(k)) return *e;
  Kel::Ptr<BfdTrackedStaticRoutes> entry =
      *route_.insert(Kel::makePtr<BfdTrackedStaticRoutes>(k)).first;
  notifyKey(&Notifiee::onRoute, k);
  return entry;
}

void BfdTrackedStaticRoutesList::routeDel(const BfdStatusKey& k) {
  if (route_.erase(k)) notifyKey(&Notifiee::onRoute, k);
}

}  // namespace Routing
