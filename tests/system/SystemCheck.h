// Holds the whole system against the model of a SystemRun at each quiet
// moment: the four ready sets, every readiness record and RIB sequence
// trigger, the containers (and the VRF id each was built on), for every
// unicast container the RIB routes of its VRF and family, every via set of
// the RIB's table used by some route, and every declared VRF's leak
// configuration (per key, the route of the lowest source VRF id that leaks
// it there).
//
// A RIB route is what route selection (RouteSelectionModel) computes from
// the inputs as they were when the route was last evaluated, and a route is
// evaluated only when something it is told about changes: its own
// preferences, an entry of the via metric tables for a via key it lists,
// the state of a BFD session whose entry lists its prefix and preference
// (in any VRF), or its container's build and first review. The routes of
// the prefixes of an entry made or dropped since the last quiet moment may
// or may not have heard of it (the BFD agent writes a new entry as it hears
// of it, and who hears first depends on the order of the entry's
// watchers): they are not judged until something tells them of a change
// again; nor are routes whose prefix and preference an entry gained or lost
// (two VRFs' routes of one prefix and preference share their tracking, and
// one's going takes the other's away without telling it). An input that
// changes without telling it (a BFD entry made or dropped for a next hop it
// uses without tracking it, say) leaves the route as it was. So the check
// watches the inputs between quiet moments, re-computes the routes so told,
// and keeps the others' last answers. Routes without a source go with the
// first complete review.
//
// afterStep returns the first difference found, in words, or an empty
// string. Costs: one walk of the VRFs, containers, their routes, the via
// metric tables and the BFD entries.
#pragma once

#include <map>
#include <set>
#include <string>
#include <tuple>
#include <utility>

#include "platform/Routing/Bfd/BfdTrackedStaticRoutes.h"
#include "tests/IpRib/RouteSelectionModel.h"
#include "tests/system/SystemRun.h"

namespace Routing::Protocol::Test {

class SystemCheck {
 public:
  std::string afterStep(SystemRun& run);

 private:
  using Prefix = std::tuple<std::string, int, Pando::IpGenPrefix>;  // VRF, af, prefix
  struct Session {
    bool up;
    Pando::IntfId resolved;
    // By prefix and preference: a route loses its tracking when its key
    // leaves the entry, even while another preference of its prefix stays.
    std::set<Routing::RouteKey> dependants;
  };
  // The BFD entries made or dropped between quiet moments.
  struct BfdWatch : Routing::BfdTrackedStaticRoutesList::Notifiee {
    std::set<Routing::BfdStatusKey> made;
    void onRoute(const Routing::BfdStatusKey& k) override { made.insert(k); }
  };

  std::string ribDifference(SystemRun& run, const std::string& name, int af, bool reviewed,
                            bool everything);

  std::map<Rib::ViaKey, Rib::ViaMetric> metrics_;
  std::map<Routing::BfdStatusKey, Session> sessions_;
  BfdWatch bfdWatch_;
  std::map<LifecycleModel::ContainerKey, std::pair<uint64_t, bool>> containers_;
  std::map<Prefix, Expectation> expected_;
  // What changed since the last quiet moment.
  std::set<Rib::ViaKey> changedVias_;
  std::set<Pando::IpGenPrefix> changedSessions_;
  std::set<Pando::IpGenPrefix> newSessions_;  // not judged until told again
};

}  // namespace Routing::Protocol::Test
