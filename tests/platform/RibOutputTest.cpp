// The RIB's output tables: deduplicated via sets (ViaSetConfig) and the route
// configuration (RouteConfig) whose routes hold them.
//
// Via sets below are built from via keys via(1:0:2:n); a route is in VRF 0
// or 1 with prefixes 10.n.0.0/24.
#include <gtest/gtest.h>

#include <map>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "Kel/Error.h"
#include "platform/Routing/Rib/Brisk/ViaSet.h"
#include "platform/Routing/Rib/Route.h"
#include "platform/Routing/Rib/RouteConfig.h"
#include "platform/Routing/Rib/ViaSetConfig.h"

namespace {

using Routing::Rib::Id;
using Routing::Rib::MetricPref;
using Routing::Rib::Route;
using Routing::Rib::RouteConfig;
using Routing::Rib::RouteKey;
using Routing::Rib::ViaKey;
using Routing::Rib::ViaSetConfig;
using Routing::Rib::ViaSetEntry;
using Routing::Rib::Brisk::ViaSet;
using EntryPtr = Kel::Ptr<const ViaSetEntry>;

template <class T>
std::string printed(const T& v) {
  std::ostringstream os;
  os << v;
  return os.str();
}

ViaSet viaSet(std::vector<uint32_t> indexes, uint32_t flags = 0) {
  ViaSet s;
  s.flagsIs(flags);
  for (uint32_t i = 0; i < indexes.size(); ++i) s.viaKeyIs(i, ViaKey(1, 0, 2, indexes[i]));
  return s;
}

std::vector<ViaKey> keysOf(const EntryPtr& e) {
  return std::vector<ViaKey>(e->viaKeys().begin(), e->viaKeys().end());
}

RouteKey routeKey(uint32_t vrfId, uint32_t n) {
  return RouteKey(vrfId, Pando::IpGenPrefix::fromV4((10u << 24) | (n << 16), 24));
}

class ViaSetRecorder : public ViaSetConfig::Notifiee {
 public:
  void onViaSet(Id id) override { viaSets.push_back(id); }
  void onRestartingVrf(const L3::VrfName& v) override { vrfs.emplace_back(v.value()); }
  std::vector<Id> viaSets;
  std::vector<std::string> vrfs;
};

class RouteRecorder : public RouteConfig::Notifiee {
 public:
  void onRoute(const RouteKey& k) override { routes.push_back(k); }
  std::vector<RouteKey> routes;
};

TEST(ViaSetConfig, EqualContentSharesOneEntryThatGoesWithItsLastHolder) {
  auto config = Kel::makePtr<ViaSetConfig>();
  auto recorder = Kel::makePtr<ViaSetRecorder>();
  recorder->notifierIs(config.ptr());

  EntryPtr a = config->dedupConfigViaSetIs(viaSet({1, 2}));
  EntryPtr a2 = config->dedupConfigViaSetIs(viaSet({1, 2}));
  EntryPtr reordered = config->dedupConfigViaSetIs(viaSet({2, 1}));
  EntryPtr flagged = config->dedupConfigViaSetIs(viaSet({1, 2}, 0x2));
  EXPECT_EQ(a, a2);
  EXPECT_EQ(a->id(), 1u);
  EXPECT_EQ(reordered->id(), 2u);
  EXPECT_EQ(flagged->id(), 3u);
  EXPECT_EQ(flagged->flags(), 0x2u);
  EXPECT_EQ(keysOf(a), (std::vector<ViaKey>{ViaKey(1, 0, 2, 1), ViaKey(1, 0, 2, 2)}));
  EXPECT_EQ(a->key(), Routing::Rib::ViaSetKey(1));
  EXPECT_EQ(config->size(), 3u);
  EXPECT_EQ(config->viaSet(2), reordered);
  EXPECT_EQ(config->viaSet(4), nullptr);

  a = nullptr;
  EXPECT_EQ(config->size(), 3u);
  a2 = nullptr;
  reordered = nullptr;
  EXPECT_EQ(config->size(), 1u);
  EXPECT_EQ(config->viaSet(1), nullptr);
  EXPECT_EQ(recorder->viaSets, (std::vector<Id>{1, 2, 3, 1, 2}));
  // The smallest free id comes back first; the content is new.
  EntryPtr b = config->dedupConfigViaSetIs(viaSet({5}));
  EntryPtr c = config->dedupConfigViaSetIs(viaSet({}));
  EXPECT_EQ(b->id(), 1u);
  EXPECT_EQ(c->id(), 2u);
  EXPECT_EQ(c->size(), 0u);
  std::vector<Id> walked;
  for (const ViaSetEntry& e : *config) walked.push_back(e.id());
  EXPECT_EQ(walked, (std::vector<Id>{1, 2, 3}));
  EXPECT_EQ(config->created(), 5u);
  EXPECT_EQ(config->released(), 2u);

  // The table goes first: the entries it leaves behind stay readable and free cleanly.
  recorder = nullptr;
  config = nullptr;
  EXPECT_EQ(keysOf(b), std::vector<ViaKey>{ViaKey(1, 0, 2, 5)});
  b = nullptr;
  c = nullptr;
  flagged = nullptr;
}

TEST(ViaSetConfig, RestartingVrfsAreARecordThatNotifiesOnChange) {
  auto config = Kel::makePtr<ViaSetConfig>();
  auto recorder = Kel::makePtr<ViaSetRecorder>();
  recorder->notifierIs(config.ptr());
  const L3::VrfName red("red"), blue("blue");
  config->restartingVrfIs(red);
  config->restartingVrfIs(red);
  config->restartingVrfIs(blue);
  config->restartingVrfDel(red);
  config->restartingVrfDel(red);
  EXPECT_EQ(recorder->vrfs, (std::vector<std::string>{"red", "blue", "red"}));
  EXPECT_FALSE(config->restartingVrfHas(red));
  EXPECT_TRUE(config->restartingVrfHas(blue));
}

// A release handler may create entries: the id it frees is already reusable.
TEST(ViaSetConfig, ReleaseHandlerMayCreateEntries) {
  auto config = Kel::makePtr<ViaSetConfig>();
  class Recreate : public ViaSetConfig::Notifiee {
   public:
    void onViaSet(Id id) override {
      if (!notifier()->viaSet(id) && !made) made = notifier()->dedupConfigViaSetIs(viaSet({9}));
    }
    EntryPtr made;
  };
  auto recreate = Kel::makePtr<Recreate>();
  recreate->notifierIs(config.ptr());
  EntryPtr a = config->dedupConfigViaSetIs(viaSet({1}));
  a = nullptr;
  ASSERT_TRUE(recreate->made);
  EXPECT_EQ(recreate->made->id(), 1u);
  EXPECT_EQ(config->size(), 1u);
  recreate->hasNotificationActiveIs(false);
  recreate = nullptr;
  EXPECT_EQ(config->size(), 0u);
}

TEST(Route, PrintsOnOneLineAndComparesEveryField) {
  auto config = Kel::makePtr<ViaSetConfig>();
  Route r(routeKey(0, 1));
  EXPECT_EQ(printed(r),
            "0:10.1.0.0/24 proto 0 pref 0 metric 0 viaSet 0 tag 0 srcVrf 16777215 flags 0x0");
  r.routingProtocolIs(2);
  r.metricPrefIs(MetricPref(1, 10));
  r.viaSetIs(config->dedupConfigViaSetIs(viaSet({1, 2})));
  EXPECT_EQ(printed(r),
            "0:10.1.0.0/24 proto 2 pref 1 metric 10 viaSet 1 tag 0 srcVrf 16777215 flags 0x0");
  r.flagsIs(Route::flagNoFibInstall);
  r.tagIs(0x2a);
  EXPECT_EQ(printed(r),
            "0:10.1.0.0/24 proto 2 pref 1 metric 10 viaSet 1 tag 42 srcVrf 16777215 flags 0x1");

  std::vector<Route> variants(8, r);
  variants[1] = Route(routeKey(1, 1));
  variants[2].routingProtocolIs(3);
  variants[3].metricPrefIs(MetricPref(1, 11));
  variants[4].fibRouteTypeIs(Routing::Fib::RouteType::routeTypeDrop);
  variants[5].viaSetIs(config->dedupConfigViaSetIs(viaSet({3})));
  variants[6].srcVrfIdIs(0);
  variants[7].flagsIs(0);
  for (size_t i = 0; i < variants.size(); ++i) {
    for (size_t j = 0; j < variants.size(); ++j) EXPECT_EQ(variants[i] == variants[j], i == j);
  }
  variants[5].viaSetIs(nullptr);
  EXPECT_TRUE(variants[5].viaSetKey().isEmpty());
}

TEST(RouteConfig, WritesCountAndNotifyOnlyWhenTheyChangeSomething) {
  auto config = Kel::makePtr<RouteConfig>();
  auto recorder = Kel::makePtr<RouteRecorder>();
  recorder->notifierIs(config.ptr());
  Route r(routeKey(0, 1));
  config->routeAdd(r);
  config->routeAdd(r);
  r.tagIs(5);
  config->routeAdd(r);
  config->routeAdd(Route(routeKey(1, 1)));
  config->routeDelete(routeKey(0, 2));
  EXPECT_EQ(recorder->routes,
            (std::vector<RouteKey>{routeKey(0, 1), routeKey(0, 1), routeKey(1, 1)}));
  ASSERT_NE(config->route(routeKey(0, 1)), nullptr);
  EXPECT_EQ(config->route(routeKey(0, 1))->tag(), 5u);
  EXPECT_EQ(config->routeSize(), 2u);
  EXPECT_EQ(config->adds(), 3u);

  config->routeDelete(routeKey(1, 1));
  EXPECT_EQ(config->route(routeKey(1, 1)), nullptr);
  EXPECT_EQ(config->deletes(), 1u);
  EXPECT_STREQ(config->typeName(), "Routing::Rib::RouteConfig");
}

TEST(RouteConfig, DeletingAVrfLeavesTheOthers) {
  auto config = Kel::makePtr<RouteConfig>();
  for (uint32_t n = 0; n < 40; ++n) config->routeAdd(Route(routeKey(n % 3, n)));
  config->routeAdd(Route(RouteKey(1, Pando::IpGenPrefix("2001:db8::/64"))));
  auto recorder = Kel::makePtr<RouteRecorder>();
  recorder->notifierIs(config.ptr());
  EXPECT_EQ(config->routeCount(1, Pando::AddressFamily::ipv4), 13u);
  EXPECT_EQ(config->routeCount(1, Pando::AddressFamily::ipv6), 1u);
  EXPECT_EQ(config->routeCount(2, Pando::AddressFamily::ipv4), 13u);
  config->doDeleteRoutesForVrf(1);
  EXPECT_EQ(recorder->routes.size(), 14u);
  EXPECT_EQ(config->routeSize(), 27u);
  EXPECT_EQ(config->routeCount(1, Pando::AddressFamily::ipv4), 0u);
  EXPECT_EQ(config->routeCount(1, Pando::AddressFamily::ipv6), 0u);
  EXPECT_EQ(config->routeCount(0, Pando::AddressFamily::ipv4), 14u);
  for (const Route& r : config->route()) EXPECT_NE(r.key().vrfId(), 1u);
  for (const RouteKey& k : recorder->routes) EXPECT_EQ(k.vrfId(), 1u);
  config->doDeleteRoutesForVrf(1);
  EXPECT_EQ(recorder->routes.size(), 14u);
  EXPECT_EQ(config->deletes(), 14u);
}

TEST(RouteConfig, CapacityRefusesNewKeysButNotReplacements) {
  auto config = Kel::makePtr<RouteConfig>(2);
  config->routeAdd(Route(routeKey(0, 1)));
  config->routeAdd(Route(routeKey(0, 2)));
  std::string error;
  try {
    config->routeAdd(Route(routeKey(0, 3)));
  } catch (const Kel::RangeError& e) {
    error = e.what();
  }
  EXPECT_EQ(error, "RouteConfig::route capacity exceeded");
  EXPECT_EQ(config->routeSize(), 2u);
  EXPECT_EQ(config->adds(), 2u);
  Route replaced(routeKey(0, 2));
  replaced.tagIs(1);
  config->routeAdd(replaced);
  EXPECT_EQ(config->route(routeKey(0, 2))->tag(), 1u);
  config->routeDelete(routeKey(0, 1));
  config->routeAdd(Route(routeKey(0, 3)));
  EXPECT_EQ(config->routeSize(), 2u);
}

// Routes replaced and deleted at random with changing via sets: the via set
// table holds exactly the contents some route uses, and its ids stay below
// the most sets ever live at once.
TEST(RouteConfig, ChurnDoesNotGrowTheViaSetTable) {
  const uint32_t seed = 77031;
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 rng(seed);
  auto viaSets = Kel::makePtr<ViaSetConfig>();
  auto routes = Kel::makePtr<RouteConfig>();
  const uint32_t keys = 64;
  std::map<RouteKey, std::vector<uint32_t>> model;
  for (int step = 0; step < 10000; ++step) {
    const RouteKey k = routeKey(rng() % 2, rng() % (keys / 2));
    if (rng() % 8 == 0) {
      routes->routeDelete(k);
      model.erase(k);
    } else {
      std::vector<uint32_t> vias = {uint32_t(rng() % 6), uint32_t(6 + rng() % 6)};
      Route r(k);
      r.viaSetIs(viaSets->dedupConfigViaSetIs(viaSet(vias)));
      routes->routeAdd(r);
      model[k] = vias;
    }
    std::set<std::vector<uint32_t>> inUse;
    std::map<uint32_t, uint32_t> perVrf;
    for (const auto& [key, vias] : model) {
      inUse.insert(vias);
      ++perVrf[key.vrfId()];
    }
    ASSERT_EQ(viaSets->size(), inUse.size()) << "step " << step;
    ASSERT_EQ(routes->routeSize(), model.size());
    for (uint32_t vrf : {0u, 1u}) {
      ASSERT_EQ(routes->routeCount(vrf, Pando::AddressFamily::ipv4), perVrf[vrf])
          << "step " << step;
    }
  }
  for (const Route& r : routes->route()) {
    const ViaSet expected = viaSet(model.at(r.key()));
    ASSERT_EQ(keysOf(r.viaSet()), std::vector<ViaKey>(expected.begin(), expected.end()));
    ASSERT_EQ(viaSets->viaSet(r.viaSetKey().id()), r.viaSet());
  }
  Id maxId = 0;
  for (const ViaSetEntry& e : *viaSets) maxId = std::max(maxId, e.id());
  EXPECT_LE(maxId, keys + 1);
  EXPECT_EQ(viaSets->created() - viaSets->released(), viaSets->size());
  routes->doDeleteRoutesForVrf(0);
  EXPECT_EQ(routes->routeCount(0, Pando::AddressFamily::ipv4), 0u);
  routes->cleanup();
  EXPECT_EQ(routes->routeCount(1, Pando::AddressFamily::ipv4), 0u);
  EXPECT_EQ(viaSets->size(), 0u);
}

}  // namespace
