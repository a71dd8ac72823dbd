// RouteStatusSm: from protocol status to RIB routes, one scenario a case.
#include <gtest/gtest.h>

#include "tests/IpRib/RouteStatusSmFixture.h"

namespace Routing::Protocol::Test {
namespace {

using Pando::IpGenPrefix;
using V = ViaTypeEnum;

const IpGenPrefix p1("10.1.0.0/24");
const IpGenPrefix p2("10.2.0.0/24");

class RouteStatusSmTest : public ::testing::Test {
 protected:
  void SetUp() override {
    for (uint32_t i = 1; i <= 8; ++i) w.resolve(i);
    w.start();
    w.status->initializedIs(true);
    w.runUntilQuiet();
  }
  RouteStatusWorld w;
};

TEST_F(RouteStatusSmTest, AReadyRouteReachesTheRibWithItsVias) {
  w.addVia(p1, 1, V::viaIntfNextHop, 1, 10);
  w.addVia(p1, 1, V::viaIntfNextHop, 2, 10);
  w.routePref(p1, 1)->tagIs(77);
  EXPECT_EQ(w.ribRoute(p1), nullptr);  // not ready: routeChangedAt is 0
  w.touch(p1);
  const Rib::Route* r = w.ribRoute(p1);
  ASSERT_NE(r, nullptr);
  EXPECT_EQ(r->metricPref(), Rib::MetricPref(1, 10));
  EXPECT_EQ(r->tag(), 77u);
  EXPECT_EQ(r->routingProtocol(), 2);
  EXPECT_EQ(r->flags(), 0);
  EXPECT_EQ(w.ribVias(p1).size(), 2u);
  w.routePref(p1, 1)->installInFibIs(false);
  EXPECT_EQ(w.ribRoute(p1)->flags(), Rib::Route::flagNoFibInstall);
}

TEST_F(RouteStatusSmTest, NotReadyRouteLeavesTheRibRouteAlone) {
  w.addVia(p1, 1, V::viaIntfNextHop, 1);
  w.touch(p1);
  ASSERT_NE(w.ribRoute(p1), nullptr);
  w.status->routeIs(p1)->routeChangedAtIs(0);
  w.routePref(p1, 1)->dedupViaKeyDel(V::viaIntfNextHop, w.via(1));
  EXPECT_EQ(w.ribVias(p1), std::vector<uint32_t>{1});
}

TEST_F(RouteStatusSmTest, AnUnresolvedPreferenceGivesWayToTheNext) {
  w.addVia(p1, 1, V::viaIntfNextHop, 99);  // never resolved
  w.addVia(p1, 2, V::viaIntfNextHop, 3);
  w.touch(p1);
  EXPECT_EQ(w.ribRoute(p1)->metricPref().preference, 2);
  w.resolve(99);
  w.touch(p1);
  EXPECT_EQ(w.ribRoute(p1)->metricPref().preference, 1);
  EXPECT_EQ(w.ribVias(p1), std::vector<uint32_t>{99});
}

TEST_F(RouteStatusSmTest, FecType2InstallsWithoutViasFlagged) {
  w.routePref(p1, 1)->fecTypeIs(2);
  w.addVia(p1, 1, V::viaIntfNextHop, 99);
  w.touch(p1);
  ASSERT_NE(w.ribRoute(p1), nullptr);
  EXPECT_TRUE(w.ribVias(p1).empty());
  EXPECT_EQ(w.ribRoute(p1)->viaSet()->flags(), 2u);
  w.routePref(p1, 1)->fecTypeIs(0);
  EXPECT_EQ(w.ribRoute(p1), nullptr);
}

TEST(RouteStatusSmV6Test, FecType2FlagsIpv6With4) {
  RouteStatusWorld w(Pando::AddressFamily::ipv6);
  w.start();
  const IpGenPrefix p("2001:db8:1::/48");
  w.routePref(p, 1)->fecTypeIs(2);
  w.touch(p);
  ASSERT_NE(w.ribRoute(p), nullptr);
  EXPECT_EQ(w.ribRoute(p)->viaSet()->flags(), 4u);
}

TEST_F(RouteStatusSmTest, LabelledViasPushOutUnlabelledOnes) {
  w.viaRecordIs(3, 1000);
  w.viaRecordIs(5, 2000);
  for (uint32_t i : {1, 2, 3, 4, 5}) w.addVia(p1, 1, V::viaIntfNextHop, i);
  w.touch(p1);
  std::vector<uint32_t> vias = w.ribVias(p1);
  std::sort(vias.begin(), vias.end());
  EXPECT_EQ(vias, (std::vector<uint32_t>{3, 5}));
}

TEST_F(RouteStatusSmTest, LowestMetricIsKeptWhenTheToggleIsOn) {
  w.addVia(p1, 1, V::viaIntfNextHop, 1, 10);
  w.addVia(p1, 1, V::viaIntfNextHop, 2, 5);
  w.addVia(p1, 1, V::viaIntfNextHop, 3, 5);
  w.touch(p1);
  EXPECT_EQ(w.ribRoute(p1)->metricPref().metric, 5u);
  std::vector<uint32_t> vias = w.ribVias(p1);
  std::sort(vias.begin(), vias.end());
  EXPECT_EQ(vias, (std::vector<uint32_t>{2, 3}));

  Flipset::toggleStateIs("StaticRouteMetric", false);
  w.touch(p1);
  EXPECT_EQ(w.ribRoute(p1)->metricPref().metric, 0u);
  EXPECT_EQ(w.ribVias(p1).size(), 3u);
}

TEST_F(RouteStatusSmTest, LessPreferredViaTypesAddOnlyBfdTrackedVias) {
  w.addVia(p1, 1, V::viaIntfNextHop, 99);  // unresolved: the type yields nothing
  w.addVia(p1, 1, V::viaNextHopOnly, 4);
  w.touch(p1);
  EXPECT_EQ(w.ribRoute(p1), nullptr);
  // Tracking via 4 by BFD makes it eligible once its session is up.
  w.routePref(p1, 1)->bfdTrackedViaCollIs(w.via(4));
  EXPECT_EQ(w.ribRoute(p1), nullptr);  // session down
  w.bfdAgent->sessionIs(w.nextHop(4), Pando::IntfId(), true, Pando::IntfId("Ethernet4"));
  EXPECT_EQ(w.ribVias(p1), std::vector<uint32_t>{4});
  w.bfdAgent->sessionIs(w.nextHop(4), Pando::IntfId(), false, Pando::IntfId("Ethernet4"));
  EXPECT_EQ(w.ribRoute(p1), nullptr);
}

TEST_F(RouteStatusSmTest, ARouteThatLeavesTheStatusLeavesTheRibAtOnce) {
  w.addVia(p1, 1, V::viaIntfNextHop, 1);
  w.touch(p1);
  ASSERT_NE(w.ribRoute(p1), nullptr);
  w.status->routeDel(p1);
  EXPECT_EQ(w.ribRoute(p1), nullptr);
  EXPECT_EQ(w.viaSets->size(), 0u);  // the via set went with its last route
}

TEST_F(RouteStatusSmTest, ExplainTellsWhyEachViaIsOrIsNotUsed) {
  w.viaRecordIs(6, 100);
  w.addVia(p1, 1, V::viaIntfNextHop, 99);
  w.addVia(p1, 2, V::viaIntfNextHop, 1, 5);
  w.addVia(p1, 2, V::viaIntfNextHop, 2, 9);
  w.addVia(p1, 2, V::viaIntfNextHop, 6, 9);
  w.addVia(p1, 2, V::viaDefault, 3);
  w.touch(p1);
  RouteExplanation e = w.sm->explain(p1);
  ASSERT_EQ(e.preferences().size(), 2u);
  EXPECT_FALSE(e.preferences()[0].won);
  EXPECT_EQ(e.preferences()[0].viaTypes[0].vias[0].verdict, ViaVerdict::unresolved);
  EXPECT_TRUE(e.preferences()[1].won);
  EXPECT_EQ(e.finalVia(w.via(1))->verdict, ViaVerdict::pushedOutByLabelledVia);
  EXPECT_EQ(e.finalVia(w.via(6))->verdict, ViaVerdict::added);
  ASSERT_NE(e.ribRoute(), nullptr);
  EXPECT_TRUE(*e.ribRoute() == *w.ribRoute(p1));
  EXPECT_NE(e.str().find("pushed out by a labelled via"), std::string::npos) << e.str();
}

}  // namespace
}  // namespace Routing::Protocol::Test
