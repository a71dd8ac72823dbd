// RouteStatusSm: from protocol status to RIB routes, one scenario a case.
#include <gtest/gtest.h>

#include <algorithm>

#include "Kel/HashTable.h"
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

TEST_F(RouteStatusSmTest, ExplainTellsWhyEachViaIsOrIsNotUsed) {
  // A labelled via walked after vias 1 and 2 (vias of a type go in hash order).
  const auto walkOrder = [&](uint32_t i) { return w.via(i).hash(Kel::collectionHashSeed); };
  uint32_t labelled = 4;
  while (walkOrder(labelled) < std::max(walkOrder(1), walkOrder(2))) ++labelled;
  w.viaRecordIs(labelled, 100);
  w.addVia(p1, 1, V::viaIntfNextHop, 99);
  w.addVia(p1, 2, V::viaIntfNextHop, 1, 5);
  w.addVia(p1, 2, V::viaIntfNextHop, 2, 9);
  w.addVia(p1, 2, V::viaIntfNextHop, labelled, 9);
  w.addVia(p1, 2, V::viaDefault, 3);
  w.touch(p1);
  RouteExplanation e = w.sm->explain(p1);
  ASSERT_EQ(e.preferences().size(), 2u);
  EXPECT_FALSE(e.preferences()[0].won);
  EXPECT_EQ(e.preferences()[0].viaTypes[0].vias[0].verdict, ViaVerdict::unresolved);
  EXPECT_TRUE(e.preferences()[1].won);
  EXPECT_EQ(e.finalVia(w.via(1))->verdict, ViaVerdict::pushedOutByLabelledVia);
  EXPECT_EQ(e.finalVia(w.via(labelled))->verdict, ViaVerdict::added);
  ASSERT_NE(e.ribRoute(), nullptr);
  EXPECT_TRUE(*e.ribRoute() == *w.ribRoute(p1));
  EXPECT_NE(e.str().find("pushed out by a labelled via"), std::string::npos) << e.str();
}

}  // namespace
}  // namespace Routing::Protocol::Test
