// The shared list of BFD tracking requests of static routes:
//
//   BfdTrackedStaticRoutesList -> BfdTrackedStaticRoutes (by BfdStatusKey, one
//     per BFD session) -> TrackedViaList (by RouteKey, one per dependant
//     route) -> Routing::Via (a set)
//
// The route side writes the requests; the agent that runs the sessions writes
// each entry's `status` and `resolvedIntf`. Every change notifies the entity's
// reactors at once with the element key; setting a scalar to its current
// value notifies nobody. Collections are hashed: look-ups and changes are O(1)
// expected, iteration is in hash order.
// Decided here: an entry is usable while `status` is true and `resolvedIntf`
// names an interface; a new entry is down with no interface.
#pragma once

#include <cstdint>

#include "Kel/Collections.h"
#include "Kel/Entity.h"
#include "platform/Pando/IntfId.h"
#include "platform/Routing/Bfd/BfdKeys.h"

namespace Routing {

// The tracked vias of one dependant route.
class TrackedViaList final : public Kel::Entity {
 public:
  class Notifiee : public Kel::NotifieeOf<TrackedViaList> {
   public:
    virtual void onTrackedVia(const Via&) {}
  };
  explicit TrackedViaList(const RouteKey& routeKey) : routeKey_(routeKey) {}
  const char* typeName() const override { return "Routing::TrackedViaList"; }

  const RouteKey& routeKey() const { return routeKey_; }
  const Kel::HashedSet<Via>& trackedVia() const { return trackedVia_; }
  bool trackedViaHas(const Via& v) const { return trackedVia_.find(v) != nullptr; }
  uint32_t trackedViaSize() const { return trackedVia_.size(); }
  void trackedViaIs(const Via& v);
  void trackedViaDel(const Via& v);

 private:
  RouteKey routeKey_;
  Kel::HashedSet<Via> trackedVia_;
};

// One BFD session's tracking entry and the routes that depend on it.
class BfdTrackedStaticRoutes final : public Kel::Entity {
 public:
  using DependantRouteMap = Kel::HashedPtrMap<RouteKey, TrackedViaList, &TrackedViaList::routeKey>;
  class Notifiee : public Kel::NotifieeOf<BfdTrackedStaticRoutes> {
   public:
    virtual void onStatus() {}
    virtual void onResolvedIntf() {}
    virtual void onDependantRoute(const RouteKey&) {}
  };
  explicit BfdTrackedStaticRoutes(const BfdStatusKey& key) : key_(key) {}
  const char* typeName() const override { return "Routing::BfdTrackedStaticRoutes"; }

  const BfdStatusKey& key() const { return key_; }
  // The session is up.
  bool status() const { return status_; }
  void statusIs(bool up) { attributeIs(status_, up, &Notifiee::onStatus); }
  // Where the session's peer is reached; empty while unknown.
  const Pando::IntfId& resolvedIntf() const { return resolvedIntf_; }
  void resolvedIntfIs(const Pando::IntfId& intf) {
    attributeIs(resolvedIntf_, intf, &Notifiee::onResolvedIntf);
  }

  const DependantRouteMap& dependantRoute() const { return dependantRoute_; }
  Kel::Ptr<TrackedViaList> dependantRoute(const RouteKey& k) const;
  uint32_t dependantRouteSize() const { return dependantRoute_.size(); }
  // Returns the list for `k`, creating an empty one when absent.
  Kel::Ptr<TrackedViaList> dependantRouteIs(const RouteKey& k);
  void dependantRouteDel(const RouteKey& k);

 private:
  BfdStatusKey key_;
  bool status_ = false;
  Pando::IntfId resolvedIntf_;
  DependantRouteMap dependantRoute_;
};

// All tracking entries, one per BFD session.
class BfdTrackedStaticRoutesList final : public Kel::Entity {
 public:
  using RouteMap =
      Kel::HashedPtrMap<BfdStatusKey, BfdTrackedStaticRoutes, &BfdTrackedStaticRoutes::key>;
  class Notifiee : public Kel::NotifieeOf<BfdTrackedStaticRoutesList> {
   public:
    virtual void onRoute(const BfdStatusKey&) {}
  };
  const char* typeName() const override { return "Routing::BfdTrackedStaticRoutesList"; }

  const RouteMap& route() const { return route_; }
  Kel::Ptr<BfdTrackedStaticRoutes> route(const BfdStatusKey& k) const;
  uint32_t routeSize() const { return route_.size(); }
  // Returns the entry for `k`, creating one (down) when absent.
  Kel::Ptr<BfdTrackedStaticRoutes> routeIs(const BfdStatusKey& k);
  void routeDel(const BfdStatusKey& k);

 private:
  RouteMap route_;
};

}  // namespace Routing
