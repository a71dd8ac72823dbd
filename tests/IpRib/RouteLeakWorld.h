// The leak tests' world: a VRF name-to-id map, the leak root over it,
// virtual time, and the agent's side (route lists and leak configs).
#pragma once

#include <string>

#include "IpRib/ProtocolRouteLeakSm.h"
#include "Kel/Clock.h"
#include "Kel/System.h"
#include "platform/Routing/Route/Route.h"
#include "platform/Vrf/NameToIdMap.h"

namespace Routing::Protocol::Test {

struct RouteLeakWorld {
  Kel::VirtualTimeScope time;
  Kel::Ptr<Vrf::VrfIdMap::NameToIdMap> names = Kel::makePtr<Vrf::VrfIdMap::NameToIdMap>();
  Kel::Ptr<Leak::RootSm> root = Leak::rootSmFactory(names);

  // Runs every review to its end.
  static void runUntilIdle() { Kel::ActivityManager::instance().runUntilIdle(); }

  static Kel::Ptr<Routing::Route> route(const std::string& prefix, RoutePreference pref,
                                        const std::string& leakTo) {
    auto r = Kel::makePtr<Routing::Route>(Routing::RouteKey(Pando::IpGenPrefix(prefix), pref));
    r->leakVrfNameIs(L3::VrfName(leakTo));
    return r;
  }
};

}  // namespace Routing::Protocol::Test
