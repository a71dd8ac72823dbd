// ViaMetricStatusSm: the via-to-route index and the stamps it hands out.
//
//   Statuses of VRFs 1, 2 and 3, IPv4 and IPv6, in one RouteStatusDir; vias
//   via(af, vrf, i) with selector 2, their metrics in the RIB's tree (a via's
//   own table is the one of its VRF, kind and selector; VRF 9's tables belong
//   to nobody's vias). Virtual time: a stamp is the time of the event.
//
// IPRIB_VMS_SEED=<n> replays one seed of the random walk.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "IpRib/ProtocolViaMetricStatusSm.h"
#include "Kel/System.h"
#include "Kel/Trace.h"
#include "platform/Flipset/Flipset.h"
#include "tests/IpRib/RouteStatusSmFixture.h"

namespace Routing::Protocol::Test {
namespace {

using Pando::AddressFamily;
using Pando::IpGenPrefix;
using V = ViaTypeEnum;
using VrfId = Vrf::VrfIdMap::VrfId;

constexpr uint32_t viaSelector = 2;
constexpr VrfId foreignVrf = 9;
constexpr double startTime = 1000;

Rib::ViaKey via(AddressFamily af, VrfId vrf, uint32_t i) {
  return Rib::ViaKey(af == AddressFamily::ipv4 ? Rib::ViaKey::kindIpv4 : Rib::ViaKey::kindIpv6, vrf,
                     viaSelector, i);
}
Rib::ViaMetric metric(uint32_t m) { return Rib::ViaMetric(Rib::MetricPref(1, m)); }

const IpGenPrefix p1("10.1.0.0/24");
const IpGenPrefix p2("10.2.0.0/24");
const IpGenPrefix p3("10.3.0.0/24");

using Index = std::map<Rib::ViaKey, std::set<PrefixPrefVrfId>>;
using RouteId = std::pair<VrfId, IpGenPrefix>;

// What the index must be: every via key of every via type of every
// preference in the directory.
Index indexFromStore(const RouteStatusDir& dir) {
  Index index;
  for (const Kel::Ptr<Status>& status : dir.status()) {
    for (const Kel::Ptr<Route>& route : status->route()) {
      for (const Kel::Ptr<RoutePref>& pref : route->routePref()) {
        for (const Kel::Ptr<DedupViaKeyByViaType>& byType : pref->dedupViaKeyByViaType()) {
          for (const Kel::Ptr<DedupViaKeyMetric>& v : byType->dedupViaKey()) {
            index[v->viaKey()].insert(
                PrefixPrefVrfId(route->prefix(), pref->preference(), status->key().vrfId()));
          }
        }
      }
    }
  }
  return index;
}

Index indexOf(const ViaMetricStatusSm& sm) {
  Index index;
  for (const Kel::Ptr<RouteByViaKey>& r : sm.routeByViaKey()) {
    std::set<PrefixPrefVrfId>& routes = index[r->viaKey()];
    for (const PrefixPrefVrfId& e : r->route()) routes.insert(e);
  }
  return index;
}

// The routes of the directory whose routeChangedAt is `t`.
std::set<RouteId> stampedAt(const RouteStatusDir& dir, double t) {
  std::set<RouteId> out;
  for (const Kel::Ptr<Status>& status : dir.status()) {
    for (const Kel::Ptr<Route>& route : status->route()) {
      if (route->routeChangedAt() == t) out.emplace(status->key().vrfId(), route->prefix());
    }
  }
  return out;
}

std::set<RouteId> routesUsing(const Index& index, const Rib::ViaKey& k) {
  std::set<RouteId> out;
  if (auto it = index.find(k); it != index.end()) {
    for (const PrefixPrefVrfId& e : it->second) out.emplace(e.vrfId(), e.prefix());
  }
  return out;
}

// Every text level of the facility on while it lives; the lines captured.
class TraceAll {
 public:
  TraceAll() : facility_(*Kel::TraceRegistry::instance().facility("IpRib::ViaMetricStatusSm")) {
    saved_ = facility_.textLevels();
    for (int level = 0; level < Kel::TraceFacility::levels; ++level) {
      facility_.textLevelIs(level, true);
    }
  }
  ~TraceAll() {
    for (int level = 0; level < Kel::TraceFacility::levels; ++level) {
      facility_.textLevelIs(level, (saved_ >> level) & 1u);
    }
  }
  std::vector<std::string> messages() const {
    std::vector<std::string> out;
    for (const auto& e : capture_.entries()) {
      if (e.facility == facility_.name()) out.push_back(e.message);
    }
    return out;
  }
  size_t count(const std::string& prefix) const {
    size_t n = 0;
    for (const std::string& m : messages()) n += m.rfind(prefix, 0) == 0;
    return n;
  }
  void clear() { capture_.clear(); }

 private:
  Kel::TraceFacility& facility_;
  uint32_t saved_;
  Kel::TraceCapture capture_;
};

const std::string sigRouteViaKey =
    "void Routing::Protocol::ViaMetricStatusSm::handleRouteViaKey(const Ptr&, const Ptr&, const "
    "Ptr&, const Routing::Rib::ViaKey&, bool, bool)";
const std::string sigPrefDel =
    "void Routing::Protocol::ViaMetricStatusSm::KelRouteStatus::KelRoute::KelRoutePref::"
    "handleDel()";
const std::string sigRouteDel =
    "void Routing::Protocol::ViaMetricStatusSm::KelRouteStatus::KelRoute::handleDel()";
const std::string sigStatusDel =
    "void Routing::Protocol::ViaMetricStatusSm::KelRouteStatus::handleDel()";

struct World {
  void start() { sm = viaMetricStatusSmFactory(metrics, dir); }

  Kel::Ptr<Status> status(VrfId vrf, AddressFamily af) {
    const RouteStatusKey key(vrf, af);
    if (Kel::Ptr<Status> s = dir->status(key)) return s;
    Kel::Ptr<Status> s = statusFactory(key);
    dir->statusIs(s);
    return s;
  }
  Kel::Ptr<RoutePref> routePref(VrfId vrf, const IpGenPrefix& p, RoutePreference pref) {
    return status(vrf, p.af())->routeIs(p)->routePrefIs(pref);
  }
  void addVia(VrfId vrf, const IpGenPrefix& p, RoutePreference pref, V type, const Rib::ViaKey& k) {
    routePref(vrf, p, pref)->dedupViaKeyIs(type, viaKeys->dedupViaKeyIs(k), 0);
  }
  void delVia(VrfId vrf, const IpGenPrefix& p, RoutePreference pref, V type, const Rib::ViaKey& k) {
    routePref(vrf, p, pref)->dedupViaKeyDel(type, k);
  }
  Kel::Ptr<Route> route(VrfId vrf, const IpGenPrefix& p) const {
    Kel::Ptr<Status> s = dir->status(RouteStatusKey(vrf, p.af()));
    return s ? s->route(p) : nullptr;
  }
  double changedAt(VrfId vrf, const IpGenPrefix& p) const {
    return route(vrf, p)->routeChangedAt();
  }
  // The via's metric in its own table.
  void metricIs(const Rib::ViaKey& k, uint32_t m) {
    metrics->viaMetricStatusIs(k)->viaMetricIs(k, metric(m));
  }
  void now(double t) { time.time().timeIs(t); }
  void expectIndexExact() {
    EXPECT_EQ(indexOf(*sm), indexFromStore(*dir));
    for (const Kel::Ptr<RouteByViaKey>& r : sm->routeByViaKey()) {
      EXPECT_NE(r->routeSize(), 0u) << "empty entry for " << r->viaKey();
    }
  }

  Kel::VirtualTimeScope time{startTime};
  Kel::Ptr<Rib::DedupViaKeyTable> viaKeys = Kel::makePtr<Rib::DedupViaKeyTable>();
  Kel::Ptr<RouteStatusDir> dir = routeStatusDirFactory();
  Kel::Ptr<Rib::ViaMetricStatusByVrf> metrics = Kel::makePtr<Rib::ViaMetricStatusByVrf>();
  Kel::Ptr<ViaMetricStatusSm> sm;
};

// ------------------------------------------------------------ via metric changes

TEST(ViaMetricStatusSmTest, AStaleEntryIsSkippedWithItsTrace) {
  World w;
  w.start();
  w.status(1, AddressFamily::ipv4);
  const Rib::ViaKey k = via(AddressFamily::ipv4, 1, 3), k2 = via(AddressFamily::ipv4, 1, 4);
  w.sm->routeByViaKeyIs(k)->routeIs(PrefixPrefVrfId(p1, 1, 1));   // route absent
  w.sm->routeByViaKeyIs(k2)->routeIs(PrefixPrefVrfId(p1, 1, 4));  // status absent
  EXPECT_EQ(w.sm->routeByViaKeyIs(k), w.sm->routeByViaKey(k));
  TraceAll traces;
  w.metricIs(k, 1);
  w.metricIs(k2, 1);
  const std::vector<std::string> expected = {
      "void Routing::Protocol::ViaMetricStatusSm::KelVmsByTransport::KelVmsByProto::KelVms::"
      "handleInitialized()",
      "void Routing::Protocol::ViaMetricStatusSm::KelVmsByTransport::KelVmsByProto::KelVms::"
      "handleViaMetric(const Routing::Rib::ViaKey&) for via(1:1:2:3) in protocol 2",
      "void Routing::Protocol::ViaMetricStatusSm::handleViaMetric(Vrf::VrfIdMap::VrfId, "
      "Routing::Rib::Transport, Routing::RoutingProtocol, const Routing::Rib::ViaKey&) vrf: 1 "
      "transport: 1 proto: 2 key: via(1:1:2:3)",
      "handleViaMetric looking at  (10.1.0.0/24, pref: 1, vrf: 1)",
      "handleViaMetric no route from Value('Routing::Protocol::RouteStatusKey', ** {'vrfId': 1, "
      "'af': ipv4})",
      "void Routing::Protocol::ViaMetricStatusSm::KelVmsByTransport::KelVmsByProto::KelVms::"
      "handleViaMetric(const Routing::Rib::ViaKey&) for via(1:1:2:4) in protocol 2",
      "void Routing::Protocol::ViaMetricStatusSm::handleViaMetric(Vrf::VrfIdMap::VrfId, "
      "Routing::Rib::Transport, Routing::RoutingProtocol, const Routing::Rib::ViaKey&) vrf: 1 "
      "transport: 1 proto: 2 key: via(1:1:2:4)",
      "handleViaMetric looking at  (10.1.0.0/24, pref: 1, vrf: 4)",
      "handleViaMetric no status for this route",
  };
  EXPECT_EQ(traces.messages(), expected);
  EXPECT_EQ(w.status(1, AddressFamily::ipv4)->routeSize(), 0u);
}

// Enough users for the sweep to read ahead, spread over three statuses, with
// stale entries among them.
TEST(ViaMetricStatusSmTest, AViaOfManyRoutesStampsExactlyItsUsers) {
  World w;
  const Rib::ViaKey shared = via(AddressFamily::ipv4, 1, 1);
  const Rib::ViaKey other = via(AddressFamily::ipv4, 1, 2);
  std::set<RouteId> users;
  for (uint32_t i = 0; i < 60; ++i) {
    const VrfId vrf = VrfId(1 + i % 3);
    const IpGenPrefix p = IpGenPrefix::fromV4(0x0a000000u + (i << 8), 24);
    w.addVia(vrf, p, 1, V::viaIntfNextHop, i % 4 == 0 ? other : shared);
    if (i % 4 != 0) users.emplace(vrf, p);
  }
  w.metricIs(shared, 1);
  w.metricIs(other, 1);
  w.start();
  w.sm->routeByViaKeyIs(shared)->routeIs(PrefixPrefVrfId(p1, 1, 1));  // route absent
  w.sm->routeByViaKeyIs(shared)->routeIs(PrefixPrefVrfId(p1, 1, 4));  // status absent
  w.now(2000);
  w.metricIs(shared, 5);
  EXPECT_EQ(stampedAt(*w.dir, 2000), users);
}

// ------------------------------------------------------------ filing

TEST(ViaMetricStatusSmTest, StartFilesEveryStatusPresentAndStampsItsRoutes) {
  World w;
  w.addVia(1, p1, 1, V::viaIntfNextHop, via(AddressFamily::ipv4, 1, 1));
  w.addVia(3, IpGenPrefix("2001:db8::/32"), 7, V::viaDefault, via(AddressFamily::ipv6, 2, 1));
  w.status(2, AddressFamily::ipv4)->routeIs(p2);  // no via: not filed, not stamped
  w.metricIs(via(AddressFamily::ipv4, 1, 1), 1);
  w.now(2000);
  TraceAll traces;
  w.start();
  EXPECT_TRUE(w.sm->initialized());
  w.expectIndexExact();
  EXPECT_EQ(w.sm->routeByViaKeySize(), 2u);
  EXPECT_EQ(w.changedAt(1, p1), 2000);
  EXPECT_EQ(w.changedAt(3, IpGenPrefix("2001:db8::/32")), 2000);
  EXPECT_EQ(w.changedAt(2, p2), 0);
  EXPECT_EQ(traces.count("void Routing::Protocol::ViaMetricStatusSm::handleInitialized()"), 1u);
  EXPECT_EQ(traces.count("handleInitialized key is Value('Routing::Protocol::RouteStatusKey', "),
            3u);
  EXPECT_EQ(traces.count("void Routing::Protocol::ViaMetricStatusSm::KelVmsByTransport::"
                         "KelVmsByProto::KelVms::handleInitialized()"),
            1u);
}

// ------------------------------------------------------------ removal

TEST(ViaMetricStatusSmTest, RemovingAStatusWithdrawsEachElementOnceAndStampsNothing) {
  World w;
  w.start();
  const Rib::ViaKey k1 = via(AddressFamily::ipv4, 1, 1), k2 = via(AddressFamily::ipv4, 1, 2),
                    k3 = via(AddressFamily::ipv4, 2, 3);
  w.addVia(1, p1, 1, V::viaIntfNextHop, k1);
  w.addVia(1, p1, 1, V::viaIntfNextHop, k2);
  w.addVia(1, p1, 2, V::viaNextHopOnly, k1);
  w.addVia(1, p2, 1, V::viaIntfNextHop, k3);
  w.addVia(2, p1, 1, V::viaIntfNextHop, k1);
  const Kel::Ptr<Status> gone = w.status(1, AddressFamily::ipv4);

  w.now(2000);
  TraceAll traces;
  w.dir->statusDel(RouteStatusKey(1, AddressFamily::ipv4));
  EXPECT_EQ(indexOf(*w.sm), (Index{{k1, {PrefixPrefVrfId(p1, 1, 2)}}}));
  EXPECT_EQ(traces.count(sigRouteViaKey), 4u);  // four elements, each withdrawn once
  EXPECT_EQ(traces.count(sigStatusDel), 1u);
  EXPECT_EQ(traces.count(sigRouteDel), 2u);
  EXPECT_EQ(traces.count(sigPrefDel), 3u);
  EXPECT_EQ(traces.messages().back(), "handleRouteStatus no routeStatus");
  EXPECT_EQ(gone->route(p1)->routeChangedAt(), startTime);
  EXPECT_EQ(w.changedAt(2, p1), startTime);

  // Filed back whole, and stamped, when it returns.
  w.dir->statusIs(gone);
  w.expectIndexExact();
  EXPECT_EQ(w.changedAt(1, p1), 2000);
  EXPECT_EQ(w.changedAt(1, p2), 2000);
  EXPECT_EQ(w.changedAt(2, p1), startTime);

  // A route and a preference: each of their elements once.
  traces.clear();
  gone->routeDel(p1);
  EXPECT_EQ(traces.count(sigRouteViaKey), 3u);
  EXPECT_EQ(traces.count(sigRouteDel), 1u);
  EXPECT_EQ(traces.count(sigPrefDel), 2u);
  traces.clear();
  w.route(1, p2)->routePrefDel(1);
  EXPECT_EQ(traces.count(sigRouteViaKey), 1u);
  EXPECT_EQ(traces.count(sigPrefDel), 1u);
  w.expectIndexExact();
}

TEST(ViaMetricStatusSmTest, TheRouteSideTracesEachStep) {
  World w;
  w.start();
  const Rib::ViaKey k = via(AddressFamily::ipv4, 1, 7);
  w.routePref(1, p1, 1);
  TraceAll traces;
  w.addVia(1, p1, 1, V::viaIntfNextHop, k);
  w.dir->statusDel(RouteStatusKey(1, AddressFamily::ipv4));
  const std::string filing =
      sigRouteViaKey + " rsk:  (RSK 1, ipv4) prefix: 10.1.0.0/24 pref 1 viaKey: via(1:1:2:7)";
  const std::string routeStatus =
      "void Routing::Protocol::ViaMetricStatusSm::handleRouteStatus(const "
      "Routing::Protocol::RouteStatusKey&, bool) for Value('Routing::Protocol::RouteStatusKey', ** "
      "{'vrfId': 1, 'af': ipv4}) forceDel is ";
  const std::vector<std::string> expected = {
      "void Routing::Protocol::ViaMetricStatusSm::KelRouteStatus::KelRoute::KelRoutePref::"
      "handleViaKey(const Routing::Rib::ViaKey&) for via(1:1:2:7)",
      filing,
      sigStatusDel,
      routeStatus + "true",
      filing,
      sigRouteDel,
      sigPrefDel,
      routeStatus + "false",
      "handleRouteStatus no routeStatus",
  };
  EXPECT_EQ(traces.messages(), expected);
}

// ------------------------------------------------------------ with route computation

TEST(ViaMetricStatusSmTest, AViaResolvedLaterInstallsTheRouteThroughTheStamp) {
  RouteStatusWorld w;
  w.start();
  w.status->initializedIs(true);
  w.runUntilQuiet();
  Kel::Ptr<RouteStatusDir> dir = routeStatusDirFactory();
  dir->statusIs(w.status);
  Kel::Ptr<ViaMetricStatusSm> vms = viaMetricStatusSmFactory(w.metricTree, dir);
  w.viaRecordIs(5);
  w.addVia(p1, 1, V::viaIntfNextHop, 5);  // filed and stamped: evaluated, but unresolved
  EXPECT_NE(w.status->route(p1)->routeChangedAt(), 0);
  EXPECT_EQ(w.ribRoute(p1), nullptr);
  w.time.time().advance(1);  // a stamp equal to the last one would notify nobody
  w.resolve(5);
  EXPECT_EQ(w.ribVias(p1), std::vector<uint32_t>{5});
}

// ------------------------------------------------------------ paced sweeps

// A toggle on while it lives.
struct ToggleOn {
  explicit ToggleOn(const char* name) { Flipset::toggleStateIs(name, true); }
  ~ToggleOn() { Flipset::reloadToggles(); }
};

// The stamps one route gets.
class StampCount final : public Route::Notifiee {
 public:
  explicit StampCount(Route* route) { notifierIs(route); }
  void onRouteChangedAt() override { ++stamps; }
  int stamps = 0;
};

//   Via `shared` under ten routes of VRF 1, three of them through preferences
//   1 and 2 (thirteen elements); via `few` under two routes. Threshold 4,
//   quantum 0: a slice looks at one element; time moves 1 s a turn.
TEST(ViaMetricStatusSmTest, APacedSweepStampsEachRouteOnceAndStartsOverOnASecondChange) {
  ToggleOn paced("PacedViaMetricSweep");
  World w;
  const Rib::ViaKey shared = via(AddressFamily::ipv4, 1, 1), few = via(AddressFamily::ipv4, 1, 2);
  std::vector<IpGenPrefix> users;
  for (uint32_t i = 0; i < 10; ++i) {
    users.push_back(IpGenPrefix::fromV4(0x0a000000u + (i << 8), 24));
    w.addVia(1, users.back(), 1, V::viaIntfNextHop, shared);
    if (i < 3) w.addVia(1, users.back(), 2, V::viaNextHopOnly, shared);
  }
  w.addVia(1, p1, 1, V::viaIntfNextHop, few);
  w.addVia(1, p2, 1, V::viaIntfNextHop, few);
  w.metricIs(shared, 1);
  w.metricIs(few, 1);
  w.start();
  w.sm->sweepThresholdIs(4);
  w.sm->sweepQuantumIs(0);
  std::map<IpGenPrefix, Kel::Ptr<StampCount>> count;
  const auto countStamps = [&] {
    count.clear();
    for (const IpGenPrefix& p : users) count[p] = Kel::makePtr<StampCount>(w.route(1, p).ptr());
  };
  const auto stamped = [&] {
    int n = 0;
    for (const auto& [p, c] : count) n += c->stamps;
    return n;
  };
  const auto turn = [&](double t) {
    w.now(t);
    return Kel::ActivityManager::instance().runOnce();
  };
  countStamps();

  // A via of few routes is swept at once; one of many waits for the clock.
  w.now(2000);
  w.metricIs(few, 2);
  EXPECT_EQ(w.changedAt(1, p1), 2000);
  EXPECT_EQ(w.changedAt(1, p2), 2000);
  w.metricIs(shared, 2);
  EXPECT_TRUE(w.sm->sweepPending(shared));
  EXPECT_EQ(stamped(), 0);
  for (int k = 1; k <= 4; ++k) {
    EXPECT_EQ(turn(2000 + k), 1u);
    EXPECT_LE(stamped(), k);
  }
  EXPECT_GE(stamped(), 2);

  // Meanwhile a route of one preference goes and another takes on the via (a
  // stamp of its own).
  const auto unstamped = std::find_if(users.begin() + 3, users.end(),
                                      [&](const IpGenPrefix& p) { return count[p]->stamps == 0; });
  ASSERT_NE(unstamped, users.end());
  w.status(1, AddressFamily::ipv4)->routeDel(*unstamped);
  count.erase(*unstamped);
  users.erase(unstamped);
  users.push_back(p3);
  w.addVia(1, p3, 1, V::viaIntfNextHop, shared);
  EXPECT_EQ(w.changedAt(1, p3), 2004);

  // The via changes again: the sweep starts over, and every route it still
  // reaches is stamped once after the change, whatever the first pass did,
  // even one its protocol stamped with a time yet to come.
  w.route(1, users.front())->routeChangedAtIs(5000);
  w.now(2100);
  w.metricIs(shared, 3);
  EXPECT_EQ(w.sm->sweepsPending(), 1u);
  countStamps();
  const uint64_t slices = w.sm->sweepSlices();
  for (double t = 2101; w.sm->sweepPending(shared) && t < 2200; ++t) turn(t);
  EXPECT_FALSE(w.sm->sweepPending(shared));
  // One element a slice: 13 - 1 (the route gone) + 1 (the new one).
  EXPECT_EQ(w.sm->sweepSlices() - slices, 13u);
  for (const IpGenPrefix& p : users) {
    EXPECT_EQ(count[p]->stamps, 1) << p;
    EXPECT_GT(w.changedAt(1, p), 2100) << p;
    EXPECT_LT(w.changedAt(1, p), 2200) << p;
  }
  w.expectIndexExact();
}

// ------------------------------------------------------------ deferred stamps

// Filing marks a route once, whatever the vias; the clock stamps the marked
// routes later, one a turn with quantum 0, except those written since (the
// protocol's own stamp) or gone.
TEST(ViaMetricStatusSmTest, DeferredFilingStampsMarkEachRouteOnceAndYieldToLaterWrites) {
  ToggleOn deferred("DeferredViaFilingStamp");
  World w;
  w.start();
  w.sm->sweepQuantumIs(0);
  const Rib::ViaKey v1 = via(AddressFamily::ipv4, 1, 1), v2 = via(AddressFamily::ipv4, 1, 2);
  w.now(2000);
  for (const IpGenPrefix& p : {p1, p2, p3}) {
    w.addVia(1, p, 1, V::viaIntfNextHop, v1);
    w.addVia(1, p, 2, V::viaIntfNextHop, v2);
    EXPECT_EQ(w.changedAt(1, p), 0) << p;
  }
  EXPECT_EQ(w.sm->filingStampsPending(), 3u);
  w.expectIndexExact();
  w.route(1, p2)->routeChangedAtIs(1500);
  w.status(1, AddressFamily::ipv4)->routeDel(p3);
  const Kel::Ptr<StampCount> count1 = Kel::makePtr<StampCount>(w.route(1, p1).ptr());
  const Kel::Ptr<StampCount> count2 = Kel::makePtr<StampCount>(w.route(1, p2).ptr());
  for (double t = 2001; w.sm->filingStampsPending() != 0 && t < 2010; ++t) {
    w.now(t);
    Kel::ActivityManager::instance().runOnce();
  }
  EXPECT_EQ(w.sm->filingStampsPending(), 0u);
  EXPECT_EQ(count1->stamps, 1);
  EXPECT_GT(w.changedAt(1, p1), 2000);
  EXPECT_EQ(count2->stamps, 0);
  EXPECT_EQ(w.changedAt(1, p2), 1500);
  EXPECT_EQ(w.sm->sweepSlices(), 0u);
  w.expectIndexExact();
}

// Marks outlive their route reactors' status: a status that goes, and then
// the tracker itself, with filings still to stamp. The gone status's routes
// stay filed in it and are stamped; nothing is left behind.
TEST(ViaMetricStatusSmTest, DeferredFilingStampsOutliveTheirStatusAndTheTracker) {
  ToggleOn deferred("DeferredViaFilingStamp");
  World w;
  w.start();
  const Rib::ViaKey v1 = via(AddressFamily::ipv4, 1, 1);
  for (const IpGenPrefix& p : {p1, p2}) w.addVia(1, p, 1, V::viaIntfNextHop, v1);
  w.addVia(2, p3, 1, V::viaIntfNextHop, v1);
  const Kel::Ptr<Status> gone = w.status(1, AddressFamily::ipv4);
  w.dir->statusDel(RouteStatusKey(1, AddressFamily::ipv4));
  EXPECT_EQ(w.sm->filingStampsPending(), 3u);
  w.now(2000);
  Kel::ActivityManager::instance().runOnce();
  EXPECT_EQ(w.sm->filingStampsPending(), 0u);
  EXPECT_EQ(gone->route(p1)->routeChangedAt(), 2000);
  EXPECT_EQ(w.changedAt(2, p3), 2000);
  w.expectIndexExact();
  w.addVia(2, p1, 1, V::viaIntfNextHop, v1);
  EXPECT_EQ(w.sm->filingStampsPending(), 1u);
  w.sm = nullptr;
}

// ------------------------------------------------------------ assertions

TEST(ViaMetricStatusSmDeathTest, HandleRouteViaKeyNeedsAllThreeEntities) {
  World w;
  w.start();
  const Kel::Ptr<RoutePref> pref = w.routePref(1, p1, 1);
  const Kel::Ptr<Route> route = w.route(1, p1);
  EXPECT_DEATH(
      w.sm->handleRouteViaKey(nullptr, route, pref, via(AddressFamily::ipv4, 1, 1), false, false),
      "Assertion failed: \"rs && route && routePref\" in module "
      "ProtocolViaMetricStatusSm, function handleRouteViaKey");
}

// ------------------------------------------------------------ random walk

constexpr VrfId vrfs[] = {1, 2, 3};
constexpr AddressFamily families[] = {AddressFamily::ipv4, AddressFamily::ipv6};
constexpr RoutePreference preferences[] = {1, 2, 200};
constexpr V viaTypes[] = {V::viaInvalid, V::viaIntfNextHop, V::viaNextHopOnly, V::viaIntfOnly,
                          V::viaDefault};
constexpr uint32_t viasPerFamily = 6;

const std::vector<IpGenPrefix>& prefixes(AddressFamily af) {
  static const std::vector<IpGenPrefix> v4 = {IpGenPrefix("10.0.0.0/8"), IpGenPrefix("10.1.0.0/16"),
                                              IpGenPrefix("10.1.1.0/24"),
                                              IpGenPrefix("192.0.2.1/32")};
  static const std::vector<IpGenPrefix> v6 = {
      IpGenPrefix("2001:db8::/32"), IpGenPrefix("2001:db8:1::/48"),
      IpGenPrefix("2001:db8:1:1::/64"), IpGenPrefix("2001:db8::1/128")};
  return af == AddressFamily::ipv4 ? v4 : v6;
}

Kel::Ptr<Status> deepCopy(const Status& s) {
  Kel::Ptr<Status> copy = statusFactory(s.key());
  for (const Kel::Ptr<Route>& route : s.route()) {
    Kel::Ptr<Route> r = copy->routeIs(route->prefix());
    for (const Kel::Ptr<RoutePref>& pref : route->routePref()) {
      Kel::Ptr<RoutePref> p = r->routePrefIs(pref->preference());
      for (const Kel::Ptr<DedupViaKeyByViaType>& byType : pref->dedupViaKeyByViaType()) {
        Kel::Ptr<DedupViaKeyByViaType> t = p->dedupViaKeyByViaTypeIs(byType->viaType());
        for (const Kel::Ptr<DedupViaKeyMetric>& v : byType->dedupViaKey()) {
          t->dedupViaKeyIs(v->viaKey(),
                           Kel::makePtr<DedupViaKeyMetric>(v->dedupViaKey(), v->metric()));
        }
      }
    }
  }
  return copy;
}

// clang-format off
enum class Event {
  routeAdd, routeDel, routeDelAll, prefAdd, prefDel, prefDelAll, typeAdd, typeDel, typeDelVias,
  viaAdd, viaAddRaw, viaDel, viaDelRaw, viaReplace, statusDel, statusAdd, statusReplace, restart,
  metricSet, metricForeign, metricDel, generation, metricTableDel,
};
// clang-format on
// Weights: store events dominate; whole statuses and restarts are rare.
const std::vector<std::pair<Event, int>> eventWeights = {
    {Event::routeAdd, 6},   {Event::routeDel, 4},       {Event::routeDelAll, 1},
    {Event::prefAdd, 6},    {Event::prefDel, 4},        {Event::prefDelAll, 1},
    {Event::typeAdd, 3},    {Event::typeDel, 3},        {Event::typeDelVias, 2},
    {Event::viaAdd, 20},    {Event::viaAddRaw, 5},      {Event::viaDel, 10},
    {Event::viaDelRaw, 4},  {Event::viaReplace, 4},     {Event::statusDel, 1},
    {Event::statusAdd, 2},  {Event::statusReplace, 1},  {Event::restart, 1},
    {Event::metricSet, 10}, {Event::metricForeign, 3},  {Event::metricDel, 4},
    {Event::generation, 2}, {Event::metricTableDel, 2},
};

class RandomWalk {
 public:
  explicit RandomWalk(uint64_t seed) : rng_(seed) {
    for (const auto& [event, weight] : eventWeights) total_ += weight;
    w_.start();
  }

  void run(int events) {
    double t = startTime;
    for (int i = 0; i < events && !::testing::Test::HasFailure(); ++i) {
      w_.now(t += 1);
      const Index before = indexFromStore(*w_.dir);
      const Event event = pick();
      const std::set<RouteId> expected = apply(event, before);
      const Index after = indexFromStore(*w_.dir);
      ASSERT_EQ(indexOf(*w_.sm), after) << "after event " << i << " (" << int(event) << ")";
      ASSERT_EQ(stampedAt(*w_.dir, t), expected)
          << "after event " << i << " (" << int(event) << ")";
    }
  }

 private:
  Event pick() {
    int r = int(rng_() % uint64_t(total_));
    for (const auto& [event, weight] : eventWeights) {
      if ((r -= weight) < 0) return event;
    }
    return Event::viaAdd;
  }
  template <class T, size_t N>
  const T& any(const T (&options)[N]) {
    return options[rng_() % N];
  }
  const IpGenPrefix& anyPrefix(AddressFamily af) {
    const auto& ps = prefixes(af);
    return ps[rng_() % ps.size()];
  }
  // Vias of every VRF: a route may use another VRF's via.
  Rib::ViaKey anyVia(AddressFamily af) {
    const uint32_t i = uint32_t(rng_() % viasPerFamily);
    return via(af, vrfs[i % 3], i);
  }
  Kel::Ptr<const Rib::DedupViaKey> dedup(const Rib::ViaKey& k) {
    return w_.viaKeys->dedupViaKeyIs(k);
  }

  // Routes the store event filed something new for.
  static std::set<RouteId> newlyFiled(const Index& before, const Index& after) {
    std::set<RouteId> out;
    for (const auto& [k, routes] : after) {
      auto it = before.find(k);
      for (const PrefixPrefVrfId& e : routes) {
        if (it == before.end() || it->second.count(e) == 0) out.emplace(e.vrfId(), e.prefix());
      }
    }
    return out;
  }
  // Routes that use a via at all, of one status or of all.
  std::set<RouteId> routesWithVias(std::optional<RouteStatusKey> only) const {
    std::set<RouteId> out;
    for (const auto& [k, routes] : indexFromStore(*w_.dir)) {
      for (const PrefixPrefVrfId& e : routes) {
        if (!only || (only->vrfId() == e.vrfId() && only->af() == e.prefix().af())) {
          out.emplace(e.vrfId(), e.prefix());
        }
      }
    }
    return out;
  }

  // Applies one event; returns the routes it must stamp.
  std::set<RouteId> apply(Event event, const Index& before) {
    const VrfId vrf = any(vrfs);
    const AddressFamily af = any(families);
    const RouteStatusKey key(vrf, af);
    const IpGenPrefix& prefix = anyPrefix(af);
    const RoutePreference pref = any(preferences);
    const ViaType type = any(viaTypes);
    const Rib::ViaKey k = anyVia(af);
    const RouteMetric protocolMetric = RouteMetric(rng_() % 3);

    switch (event) {
      case Event::statusDel:
        if (Kel::Ptr<Status> s = w_.dir->status(key)) {
          aside_[key] = s;
          w_.dir->statusDel(key);
        }
        return {};
      case Event::statusAdd:
        if (!w_.dir->status(key)) {
          auto it = aside_.find(key);
          w_.dir->statusIs(it != aside_.end() ? it->second : statusFactory(key));
          if (it != aside_.end()) aside_.erase(it);
        }
        return newlyFiled(before, indexFromStore(*w_.dir));
      case Event::statusReplace:
        if (Kel::Ptr<Status> s = w_.dir->status(key)) w_.dir->statusIs(deepCopy(*s));
        return routesWithVias(key);
      case Event::restart:
        w_.sm = nullptr;
        w_.start();
        return routesWithVias(std::nullopt);
      case Event::metricSet:
      case Event::metricForeign: {
        const Kel::Ptr<Rib::ViaMetricStatus> table =
            event == Event::metricSet ? w_.metrics->viaMetricStatusIs(k)
                                      : w_.metrics->viaMetricStatusByTransportIs(foreignVrf)
                                            ->viaMetricStatusByProtocolIs(k.kind())
                                            ->viaMetricStatusIs(viaSelector);
        const Rib::ViaMetric m = metric(uint32_t(rng_() % 3));
        const Rib::ViaMetric* old = table->viaMetric(k);
        const bool changes = old == nullptr || !(*old == m);
        table->viaMetricIs(k, m);
        return changes ? routesUsing(before, k) : std::set<RouteId>{};
      }
      case Event::metricDel: {
        const Kel::Ptr<Rib::ViaMetricStatus> table = w_.metrics->viaMetricStatusIs(k);
        const bool present = table->viaMetric(k) != nullptr;
        table->viaMetricDel(k);
        return present ? routesUsing(before, k) : std::set<RouteId>{};
      }
      case Event::generation: {
        const Kel::Ptr<Rib::ViaMetricStatus> table = w_.metrics->viaMetricStatusIs(k);
        std::set<RouteId> out;
        for (const Rib::ViaMetricStatus::Entry& e : table->viaMetric()) {
          out.merge(routesUsing(before, e.viaKey));
        }
        table->doBumpGeneration();
        return out;
      }
      case Event::metricTableDel: {
        // The tables of a transport, or of the whole VRF: their vias count
        // as removed.
        const auto byTransport = w_.metrics->viaMetricStatusByTransport(k.vrfId());
        if (!byTransport) return {};
        const bool wholeVrf = rng_() % 2 == 0;
        std::set<RouteId> out;
        for (const auto& byProtocol : byTransport->viaMetricStatusByProtocol()) {
          if (!wholeVrf && byProtocol->kind() != k.kind()) continue;
          for (const auto& table : byProtocol->viaMetricStatus()) {
            for (const Rib::ViaMetricStatus::Entry& e : table->viaMetric()) {
              out.merge(routesUsing(before, e.viaKey));
            }
          }
        }
        if (wholeVrf) {
          w_.metrics->viaMetricStatusByTransportDel(k.vrfId());
        } else {
          byTransport->viaMetricStatusByProtocolDel(k.kind());
        }
        return out;
      }
      default:
        break;
    }

    // Store events on one status of the directory.
    Kel::Ptr<Status> s = w_.dir->status(key);
    if (!s) return {};
    Kel::Ptr<Route> route = s->route(prefix);
    Kel::Ptr<RoutePref> routePref = route ? route->routePref(pref) : nullptr;
    Kel::Ptr<DedupViaKeyByViaType> byType =
        routePref ? routePref->dedupViaKeyByViaType(type) : nullptr;
    switch (event) {
      case Event::routeAdd:
        s->routeIs(prefix);
        break;
      case Event::routeDel:
        s->routeDel(prefix);
        break;
      case Event::routeDelAll:
        s->routeDelAll();
        break;
      case Event::prefAdd:
        s->routeIs(prefix)->routePrefIs(pref);
        break;
      case Event::prefDel:
        if (route) route->routePrefDel(pref);
        break;
      case Event::prefDelAll:
        if (route) route->routePrefDelAll();
        break;
      case Event::typeAdd:
        if (routePref) routePref->dedupViaKeyByViaTypeIs(type);
        break;
      case Event::typeDel:
        if (routePref) routePref->dedupViaKeyByViaTypeDel(type);
        break;
      case Event::typeDelVias:
        if (routePref) routePref->dedupViaKeyDelAll(type);
        break;
      case Event::viaAdd:
        s->routeIs(prefix)->routePrefIs(pref)->dedupViaKeyIs(type, dedup(k), protocolMetric);
        break;
      case Event::viaAddRaw:
        if (byType)
          byType->dedupViaKeyIs(k, Kel::makePtr<DedupViaKeyMetric>(dedup(k), protocolMetric));
        break;
      case Event::viaDel:
        if (routePref) routePref->dedupViaKeyDel(type, k);
        break;
      case Event::viaDelRaw:
        if (byType) byType->dedupViaKeyDel(k);  // may leave the type empty
        break;
      case Event::viaReplace:
        if (byType && byType->dedupViaKey(k)) {
          routePref->dedupViaKeyIs(type, dedup(k), protocolMetric + 10);
        }
        break;
      default:
        break;
    }
    return newlyFiled(before, indexFromStore(*w_.dir));
  }

  World w_;
  std::mt19937_64 rng_;
  int total_ = 0;
  std::map<RouteStatusKey, Kel::Ptr<Status>> aside_;  // statuses taken out of the directory
};

std::vector<uint64_t> seeds() {
  if (const char* text = std::getenv("IPRIB_VMS_SEED"); text != nullptr && *text != '\0') {
    return {std::strtoull(text, nullptr, 10)};
  }
  return {1, 2, 3, 4};
}

TEST(ViaMetricStatusSmTest, TheIndexIsTheStoreAndStampsReachExactlyTheUsers) {
  for (uint64_t seed : seeds()) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    RandomWalk(seed).run(3000);
    if (HasFailure()) return;
  }
}

}  // namespace
}  // namespace Routing::Protocol::Test
