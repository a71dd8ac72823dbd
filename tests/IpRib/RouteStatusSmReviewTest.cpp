// RouteStatusSm's paced review on virtual time, its completeness report and
// the one-time clean-up; and the exact trace texts of its decisions.
//
//   VRF "red" (id 3); routes 10.<i>.0.0/16, each with one resolved via.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <optional>
#include <set>

#include "tests/IpRib/RouteStatusSmFixture.h"

namespace Routing::Protocol::Test {
namespace {

using Pando::IpGenPrefix;
using V = ViaTypeEnum;

IpGenPrefix prefixOf(uint32_t i) { return IpGenPrefix::fromV4(0x0a000000u + (i << 16), 16); }

class ReviewTest : public ::testing::Test {
 protected:
  void SetUp() override {
    w.resolve(1);
    w.resolve(2);
  }
  void addRoutes(uint32_t n) {
    for (uint32_t i = 0; i < n; ++i) {
      w.addVia(prefixOf(i), 1, V::viaIntfNextHop, 1 + i % 2);
      w.touch(prefixOf(i));
    }
  }
  // n routes with vias 1 and 2, reviewed into the RIB.
  void startReviewedWithTwoVias(uint32_t n) {
    for (uint32_t i = 0; i < n; ++i) {
      w.addVia(prefixOf(i), 1, V::viaIntfNextHop, 1);
      w.addVia(prefixOf(i), 1, V::viaIntfNextHop, 2);
      w.touch(prefixOf(i));
    }
    w.start();
    w.status->initializedIs(true);
    w.runUntilQuiet();
  }
  Kel::TraceFacility& facility() {
    return *Kel::TraceRegistry::instance().facility("IpRib::RouteStatusSm");
  }
  // Evaluations per prefix, read off the level 8 text trace " handleRoute <prefix>".
  static std::map<std::string, int> evaluated(const Kel::TraceCapture& capture) {
    std::map<std::string, int> count;
    const std::string mark = "Vrf: red handleRoute ";
    for (const std::string& m : capture.messages()) {
      if (m.rfind(mark, 0) == 0) ++count[m.substr(mark.size())];
    }
    return count;
  }
  RouteStatusWorld w;
};

TEST_F(ReviewTest, AnEmptyStatusCompletesAtOnce) {
  w.start();
  EXPECT_TRUE(w.viaSets->restartingVrfHas(L3::VrfName("red")));
  w.status->initializedIs(true);
  EXPECT_TRUE(w.ready->v4RouteReviewComplete());
  EXPECT_TRUE(w.sm->reviewedOnce());
  EXPECT_FALSE(w.viaSets->restartingVrfHas(L3::VrfName("red")));
}

TEST_F(ReviewTest, AStatusNotInitializedNeverReportsCompleteness) {
  addRoutes(5);
  w.start();
  w.runUntilQuiet();
  EXPECT_FALSE(w.ready->v4RouteReviewComplete());
  EXPECT_FALSE(w.sm->reviewedOnce());
  EXPECT_EQ(w.sm->reviewSlices(), 0u);
}

TEST_F(ReviewTest, QuantumZeroEvaluatesOneRouteASlice) {
  addRoutes(20);
  w.start();
  w.sm->reviewQuantumIs(0);
  Kel::ActivityManager& loop = Kel::ActivityManager::instance();
  w.status->initializedIs(true);  // runs the first slice at once
  EXPECT_EQ(w.sm->reviewSlices(), 1u);
  EXPECT_FALSE(w.sm->reviewBookmark().isEmpty());
  EXPECT_FALSE(w.ready->v4RouteReviewComplete());
  size_t turns = 0;
  while (loop.runOnce() != 0) ++turns;
  EXPECT_EQ(turns, 19u);  // one route a turn
  EXPECT_EQ(w.sm->reviewSlices(), 20u);
  EXPECT_TRUE(w.ready->v4RouteReviewComplete());
  EXPECT_TRUE(w.sm->reviewBookmark().isEmpty());
}

TEST_F(ReviewTest, APausedReviewVisitsEveryRouteThatStaysExactlyOnce) {
  addRoutes(60);
  w.start();
  w.sm->reviewQuantumIs(0.35);
  w.time.time().stepIs(0.1);  // every clock read "takes" 0.1 s: a few routes a slice
  facility().textLevelIs(8, true);
  Kel::TraceCapture capture;
  w.status->initializedIs(true);
  std::set<std::string> touched;
  uint32_t next = 1000;
  Kel::ActivityManager& loop = Kel::ActivityManager::instance();
  for (int turn = 0; !w.sm->reviewBookmark().isEmpty() && turn < 1000; ++turn) {
    // Between slices the protocol deletes routes (the bookmarked one first)
    // and adds routes that nothing evaluates until the review reaches them.
    const IpGenPrefix bookmark = w.sm->reviewBookmark();
    if (turn % 3 == 0 && w.status->route(bookmark)) {
      touched.insert(Pando::valueToStrep(bookmark));
      w.status->routeDel(bookmark);
    }
    const IpGenPrefix added = prefixOf(next++);
    w.status->routeIs(added);
    touched.insert(Pando::valueToStrep(added));
    loop.runOnce();
  }
  facility().textLevelIs(8, false);
  EXPECT_TRUE(w.ready->v4RouteReviewComplete());
  EXPECT_GT(w.sm->reviewSlices(), 10u);
  const std::map<std::string, int> count = evaluated(capture);
  for (uint32_t i = 0; i < 60; ++i) {
    const std::string p = Pando::valueToStrep(prefixOf(i));
    if (touched.count(p)) continue;
    EXPECT_EQ(count.count(p) ? count.at(p) : 0, 1) << p;
  }
}

// The review reads ahead of the route it evaluates; a RIB reactor deleting
// protocol routes mid-review (ahead of it or behind) must not trip it.
TEST_F(ReviewTest, RoutesDeletedByARibReactorMidReviewAreLeftAndTheRestReviewedOnce) {
  startReviewedWithTwoVias(60);
  // Each rewrite deletes one more route, until ten are gone.
  struct Deleter : Rib::RouteConfig::Notifiee {
    void onRoute(const Rib::RouteKey& key) override {
      if (notifier()->route(key) == nullptr || gone.size() == 10) return;  // a delete, or done
      const IpGenPrefix victim = prefixOf(uint32_t(6 * gone.size() + 1));
      gone.insert(victim);
      status->routeDel(victim);
    }
    Status* status = nullptr;
    std::set<IpGenPrefix> gone;
  };
  const Kel::Ptr<Deleter> deleter = Kel::makePtr<Deleter>();
  deleter->status = w.status.ptr();
  deleter->notifierIs(w.ribConfig.ptr());
  facility().textLevelIs(8, true);
  Kel::TraceCapture capture;
  w.ipMetrics->viaMetricDel(w.via(1));
  w.ipMetrics->doBumpGeneration();  // every route loses via 1
  w.runUntilQuiet();
  facility().textLevelIs(8, false);
  EXPECT_TRUE(w.ready->v4RouteReviewComplete());
  ASSERT_EQ(deleter->gone.size(), 10u);
  const std::map<std::string, int> count = evaluated(capture);
  for (uint32_t i = 0; i < 60; ++i) {
    const IpGenPrefix p = prefixOf(i);
    if (deleter->gone.count(p)) {
      EXPECT_EQ(w.ribRoute(p), nullptr) << p;
      continue;
    }
    EXPECT_EQ(count.at(Pando::valueToStrep(p)), 1) << p;
    EXPECT_EQ(w.ribVias(p), std::vector<uint32_t>{2}) << p;
  }
}

// A review keeps what it found of each via while nothing can change it: a
// RIB reactor that unresolves a via (without a review of its own) while the
// review writes must be seen by every route evaluated after that write.
TEST_F(ReviewTest, ARibReactorUnresolvingAViaMidReviewIsSeenByTheRoutesAfterIt) {
  startReviewedWithTwoVias(40);
  struct Unresolver : Rib::RouteConfig::Notifiee {
    void onRoute(const Rib::RouteKey& key) override {
      if (first) return;
      first = key.prefix();
      metrics->viaMetricDel(via);
    }
    Rib::ViaMetricStatus* metrics = nullptr;
    Rib::ViaKey via;
    std::optional<IpGenPrefix> first;
  };
  const Kel::Ptr<Unresolver> unresolver = Kel::makePtr<Unresolver>();
  unresolver->metrics = w.ipMetrics.ptr();
  unresolver->via = w.via(2);
  unresolver->notifierIs(w.ribConfig.ptr());
  w.ipMetrics->viaMetricDel(w.via(1));
  w.ipMetrics->doBumpGeneration();  // one slice: every route rewritten or deleted
  w.runUntilQuiet();
  ASSERT_TRUE(unresolver->first);
  for (uint32_t i = 0; i < 40; ++i) {
    const IpGenPrefix p = prefixOf(i);
    if (p == *unresolver->first) {
      EXPECT_EQ(w.ribVias(p), std::vector<uint32_t>{2}) << p;
    } else {
      EXPECT_EQ(w.ribRoute(p), nullptr) << p;
    }
  }
}

TEST_F(ReviewTest, ABookmarkWithNothingBehindItFinishesTheReview) {
  addRoutes(2);
  w.start();
  w.sm->reviewQuantumIs(0);
  w.status->initializedIs(true);
  ASSERT_FALSE(w.sm->reviewBookmark().isEmpty());
  w.status->routeDel(w.sm->reviewBookmark());
  Kel::ActivityManager::instance().runOnce();
  EXPECT_TRUE(w.ready->v4RouteReviewComplete());
}

TEST_F(ReviewTest, StaleRibRoutesAreCleanedUpAfterTheFirstCompleteReviewOnly) {
  addRoutes(3);
  // What the RIB kept from before a restart: one route the protocol no longer has.
  Rib::Route stale(Rib::RouteKey(testVrfId, IpGenPrefix("192.0.2.0/24")));
  Rib::Brisk::ViaSet empty;
  stale.viaSetIs(w.viaSets->dedupConfigViaSetIs(empty));
  w.ribConfig->routeAdd(stale);
  w.start();
  w.runUntilQuiet();
  EXPECT_NE(w.ribRoute(IpGenPrefix("192.0.2.0/24")), nullptr);  // survives until the review
  w.status->initializedIs(true);
  w.runUntilQuiet();
  EXPECT_EQ(w.ribRoute(IpGenPrefix("192.0.2.0/24")), nullptr);
  EXPECT_EQ(w.ribConfig->routeSize(), 3u);
  // A later review does not clean up again.
  Rib::Route late(Rib::RouteKey(testVrfId, IpGenPrefix("198.51.100.0/24")));
  late.viaSetIs(w.viaSets->dedupConfigViaSetIs(empty));
  w.ribConfig->routeAdd(late);
  w.ipMetrics->doBumpGeneration();
  EXPECT_FALSE(w.ready->v4RouteReviewComplete());
  w.runUntilQuiet();
  EXPECT_TRUE(w.ready->v4RouteReviewComplete());
  EXPECT_NE(w.ribRoute(IpGenPrefix("198.51.100.0/24")), nullptr);
}

// In a RIB mostly of other VRFs' routes the clean-up counts this VRF's
// instead of walking the RIB: it still finds a stale route when the status
// also has a route the RIB lacks (an unresolved one), and it deletes nothing
// when none is stale.
class StaleAmongOtherVrfsTest : public ReviewTest, public ::testing::WithParamInterface<bool> {};

TEST_P(StaleAmongOtherVrfsTest, OnlyTheStaleRouteGoes) {
  const bool withStale = GetParam();
  Rib::Brisk::ViaSet empty;
  const auto ribRouteIs = [&](Vrf::VrfIdMap::VrfId vrfId, const IpGenPrefix& prefix) {
    Rib::Route r(Rib::RouteKey(vrfId, prefix));
    r.viaSetIs(w.viaSets->dedupConfigViaSetIs(empty));
    w.ribConfig->routeAdd(r);
  };
  addRoutes(3);
  const IpGenPrefix unresolved("10.200.0.0/16");
  w.addVia(unresolved, 1, V::viaIntfNextHop, 99);
  w.touch(unresolved);
  for (uint32_t i = 0; i < 40; ++i) ribRouteIs(testVrfId + 1, prefixOf(i));
  if (withStale) ribRouteIs(testVrfId, IpGenPrefix("192.0.2.0/24"));
  w.start();
  w.status->initializedIs(true);
  w.runUntilQuiet();
  EXPECT_TRUE(w.sm->reviewedOnce());
  EXPECT_EQ(w.ribRoute(IpGenPrefix("192.0.2.0/24")), nullptr);
  EXPECT_EQ(w.ribRoute(unresolved), nullptr);
  EXPECT_EQ(w.ribConfig->routeCount(testVrfId, Pando::AddressFamily::ipv4), 3u);
  EXPECT_EQ(w.ribConfig->routeSize(), 43u) << "the other VRF's routes stay";
  EXPECT_EQ(w.ribConfig->deletes(), withStale ? 1u : 0u);
}

INSTANTIATE_TEST_SUITE_P(Stale, StaleAmongOtherVrfsTest, ::testing::Bool(),
                         [](const auto& info) { return info.param ? "OneStale" : "NoneStale"; });

TEST_F(ReviewTest, DecisionsAreTracedInTextAndInTheRing) {
  w.start();
  w.status->initializedIs(true);
  facility().allLevelsIs(true);
  Kel::TraceCapture capture;
  const IpGenPrefix p("10.1.0.0/24");
  w.addVia(p, 1, V::viaIntfNextHop, 99);
  w.addVia(p, 1, V::viaIntfNextHop, 1, 7);
  w.touch(p);
  w.status->routeDel(p);
  facility().allLevelsIs(false);
  facility().textLevelIs(0, true);
  for (int level = 0; level <= 8; ++level) facility().ringLevelIs(level, true);

  const std::vector<std::string> text = capture.messages();
  auto hasText = [&](const std::string& m) {
    return std::find(text.begin(), text.end(), m) != text.end();
  };
  EXPECT_TRUE(hasText("Vrf: red (10.1.0.0/24), Preference: 1, Via via(1:3:2:99) is unresolved"));
  EXPECT_TRUE(hasText("Vrf: red (10.1.0.0/24), Preference: 1, Adding Via via(1:3:2:1) to Via Set"));
  EXPECT_TRUE(
      hasText("Vrf: red (10.1.0.0/24), Adding route, Preference: 1, with 1 vias of metric: 7"));
  EXPECT_TRUE(hasText("Vrf: red (10.1.0.0/24), Deleting route"));
  EXPECT_TRUE(hasText("Vrf: red routeChangedAt == 0 "));
  EXPECT_TRUE(hasText("Vrf: red validVia 10.1.0.0/24 and via(1:3:2:99) evpn via(0:0:0:0) pref 1"));
  EXPECT_TRUE(hasText("Vrf: red no vms"));

  const std::vector<std::string> ring = facility().ringlog().messages(40);
  auto hasRing = [&](const std::string& m) {
    return std::find(ring.begin(), ring.end(), m) != ring.end();
  };
  EXPECT_TRUE(hasRing(
      "Vrf Id: 3 RouteStatusSm, route 10.1.0.0/24 Preference: 1 Via via(1:3:2:99) is unresolved"));
  EXPECT_TRUE(
      hasRing("Vrf Id: 3 RouteStatusSm, route 10.1.0.0/24 Preference: 1 adding Via via(1:3:2:1) to "
              "Via Set"));
  EXPECT_TRUE(hasRing("Vrf Id: 3 RouteConfigSm: deleting route 10.1.0.0/24"));
  bool added = false;
  for (const std::string& m : ring) {
    added |=
        m.rfind("Vrf Id: 3 RouteStatusSm: add route 10.1.0.0/24 to RIB, preference: 1 ViaSet: ",
                0) == 0 &&
        m.find(", with 1 vias") != std::string::npos;
  }
  EXPECT_TRUE(added);
}

}  // namespace
}  // namespace Routing::Protocol::Test
