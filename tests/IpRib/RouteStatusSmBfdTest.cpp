// BFD-tracked vias: the tracking requests RouteStatusSm keeps in the shared
// list, and the routes they hold back while a session is down.
//
//   VRF "red" (id 3); static routes 10.1.0.0/24 and 10.2.0.0/24 both track
//   via 1 (next hop 192.168.0.1); IPv6 link-local next hops carry their interface.
#include <gtest/gtest.h>

#include "tests/IpRib/RouteStatusSmFixture.h"

namespace Routing::Protocol::Test {
namespace {

using Pando::IpGenPrefix;
using V = ViaTypeEnum;

const IpGenPrefix p1("10.1.0.0/24");
const IpGenPrefix p2("10.2.0.0/24");

class BfdTest : public ::testing::Test {
 protected:
  void SetUp() override {
    w.resolve(1);
    w.resolve(2);
    w.start();
    for (const IpGenPrefix& p : {p1, p2}) {
      w.addVia(p, 1, V::viaIntfNextHop, 1);
      w.routePref(p, 1)->bfdTrackedViaCollIs(w.via(1));
      w.touch(p);
    }
  }
  BfdStatusKey key1() const { return BfdStatusKey(w.nextHop(1), Pando::IntfId()); }
  RouteStatusWorld w;
};

TEST_F(BfdTest, RoutesTrackingTheSameNextHopShareOneEntry) {
  ASSERT_EQ(w.bfdList->routeSize(), 1u);
  Kel::Ptr<BfdTrackedStaticRoutes> entry = w.bfdList->route(key1());
  ASSERT_TRUE(entry);
  EXPECT_EQ(entry->dependantRouteSize(), 2u);
  EXPECT_FALSE(entry->status());  // a new entry starts down
  EXPECT_EQ(entry->resolvedIntf(), Pando::IntfId("Ethernet1"));
  EXPECT_TRUE(entry->dependantRoute(RouteKey(p1, 1))
                  ->trackedViaHas(Routing::Via(w.nextHop(1), Pando::IntfId())));

  w.routePref(p1, 1)->bfdTrackedViaCollDel(w.via(1));
  EXPECT_EQ(entry->dependantRouteSize(), 1u);
  EXPECT_TRUE(entry->dependantRoute(RouteKey(p2, 1)));
  w.status->routeDel(p2);  // the preference's reactor withdraws its requests
  EXPECT_EQ(w.bfdList->routeSize(), 0u);
}

TEST_F(BfdTest, ASessionComingUpReleasesItsDependantRoutes) {
  EXPECT_EQ(w.ribRoute(p1), nullptr);
  EXPECT_EQ(w.ribRoute(p2), nullptr);
  w.bfdAgent->sessionIs(w.nextHop(1), Pando::IntfId(), true, Pando::IntfId("Ethernet1"));
  EXPECT_EQ(w.ribVias(p1), std::vector<uint32_t>{1});
  EXPECT_EQ(w.ribVias(p2), std::vector<uint32_t>{1});
  // Up but unresolved is not usable either.
  w.bfdAgent->sessionIs(w.nextHop(1), Pando::IntfId(), true, Pando::IntfId());
  EXPECT_EQ(w.ribRoute(p1), nullptr);
  RouteExplanation e = w.sm->explain(p1);
  EXPECT_EQ(e.finalVia(w.via(1))->verdict, ViaVerdict::bfdDown);
}

TEST_F(BfdTest, AnUntrackedViaIsNotHeldBackByAnotherRoutesSession) {
  const IpGenPrefix p3("10.3.0.0/24");
  w.addVia(p3, 1, V::viaIntfNextHop, 1);  // same next hop, not tracked by p3
  w.touch(p3);
  EXPECT_EQ(w.ribVias(p3), std::vector<uint32_t>{1});
}

TEST_F(BfdTest, RemovingAViaThatWasNeverTrackedChangesNothing) {
  w.sm->handleBfdTrackedVia(RouteKey(IpGenPrefix("10.9.0.0/24"), 1), w.via(1), false);
  w.sm->handleBfdTrackedVia(RouteKey(p1, 1), w.via(2), false);
  EXPECT_EQ(w.bfdList->routeSize(), 1u);
  EXPECT_EQ(w.bfdList->route(key1())->dependantRouteSize(), 2u);
}

TEST(BfdLinkLocalTest, ALinkLocalNextHopIsKeyedWithItsInterface) {
  RouteStatusWorld w(Pando::AddressFamily::ipv6);
  const Pando::IpGenAddr ll("fe80::1");
  w.viaConfig->viaIs(w.via(1), Rib::Via(ll, Pando::IntfId("Ethernet1")));
  w.viaConfig->viaIs(w.via(2), Rib::Via(ll, Pando::IntfId("Ethernet2")));
  w.start();
  const IpGenPrefix p("2001:db8:9::/48");
  for (uint32_t i : {1u, 2u}) {
    w.addVia(p, 1, V::viaIntfNextHop, i);
    w.routePref(p, 1)->bfdTrackedViaCollIs(w.via(i));
  }
  EXPECT_EQ(w.bfdList->routeSize(), 2u);
  EXPECT_TRUE(w.bfdList->route(BfdStatusKey(ll, Pando::IntfId("Ethernet1"))));
  EXPECT_TRUE(w.bfdList->route(BfdStatusKey(ll, Pando::IntfId("Ethernet2"))));
}

}  // namespace
}  // namespace Routing::Protocol::Test
