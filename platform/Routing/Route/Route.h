// The agent's own routes of one VRF and address family, as the leak code
// reads them:
//
//   RouteList (one VRF and family) -> route (by Routing::RouteKey) -> Route
//
// The agent writes; the leak code watches. A Route names the VRF its route
// is to be leaked into (an L3::VrfName, so a name past 100 bytes is refused
// when it is made; the empty name means no leak), and carries the metric
// the agent installs it with; its preference is part of its key. Both
// attributes notify the route's reactors on a real change. A route object
// may also be replaced as a whole under its key (routeIs with a new object),
// which readers tell apart from a change by comparing route pointers.
// Every change of the list notifies its reactors at once with the key. A
// route leaving the list (deleted or replaced) first tells its own reactors
// through `filed`, then the list's reactors hear the key.
// `route` is hash ordered (Kel::HashedPtrMap), so a paced pass can resume
// from a key with seek(). Look-ups and changes are O(1) expected.
// Decided here: a route is filed in one list at most, and only in a list of
// its prefix's family: anything else is a Kel::RangeError that changes
// nothing. A new route has metric 0 and leaks nowhere.
#pragma once

#include <cstdint>

#include "Kel/Collections.h"
#include "Kel/Entity.h"
#include "platform/L3/VrfName.h"
#include "platform/Pando/AddressFamily.h"
#include "platform/Routing/Route/RouteKey.h"
#include "platform/Routing/RouteTypes.h"

namespace Routing {

class Route final : public Kel::Entity {
 public:
  class Notifiee : public Kel::NotifieeOf<Route> {
   public:
    virtual void onMetric() {}
    virtual void onLeakVrfName() {}
    virtual void onFiled() {}
  };
  explicit Route(const RouteKey& key) : key_(key) {}
  const char* typeName() const override { return "Routing::Route"; }

  const RouteKey& key() const { return key_; }
  RouteMetric metric() const { return metric_; }
  // The VRF this route is to be leaked into; empty for none.
  const L3::VrfName& leakVrfName() const { return leakVrfName_; }
  // Filed in a RouteList: from its filing there until it leaves it.
  bool filed() const { return filed_; }

  void metricIs(RouteMetric m) { attributeIs(metric_, m, &Notifiee::onMetric); }
  void leakVrfNameIs(const L3::VrfName& v) {
    attributeIs(leakVrfName_, v, &Notifiee::onLeakVrfName);
  }

 private:
  friend class RouteList;
  void filedIs(bool v) { attributeIs(filed_, v, &Notifiee::onFiled); }

  RouteKey key_;
  bool filed_ = false;
  RouteMetric metric_ = 0;
  L3::VrfName leakVrfName_;
};

class RouteList final : public Kel::Entity {
 public:
  using RouteMap = Kel::HashedPtrMap<RouteKey, Route, &Route::key>;
  class Notifiee : public Kel::NotifieeOf<RouteList> {
   public:
    virtual void onRoute(const RouteKey&) {}
  };
  explicit RouteList(Pando::AddressFamily af) : af_(af) {}
  const char* typeName() const override { return "Routing::RouteList"; }

  Pando::AddressFamily af() const { return af_; }
  // Routes in hash order; seek() resumes at a key.
  const RouteMap& route() const { return route_; }
  Kel::Ptr<Route> route(const RouteKey& k) const {
    const Kel::Ptr<Route>* r = route_.find(k);
    return r ? *r : nullptr;
  }
  uint32_t routeSize() const { return route_.size(); }
  // Files `r` under its key, replacing the route there.
  void routeIs(const Kel::Ptr<Route>& r);
  void routeDel(const RouteKey& k);
  void routeDelAll();

 private:
  Pando::AddressFamily af_;
  RouteMap route_;
};

Kel::Ptr<RouteList> routeListFactory(Pando::AddressFamily af);

}  // namespace Routing
