// ContainerSm: what it builds for VRF "red" (id 3), in which order, what it
// keeps when asked again, and what it drops on teardown.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "tests/IpRib/ContainerSmFixture.h"

namespace Routing::Protocol::Test {
namespace {

using Pando::IpGenPrefix;
using V = ViaTypeEnum;

const IpGenPrefix p1("10.1.0.0/24");

class ContainerSmTest : public ::testing::Test {
 protected:
  ContainerWorld c;
};

TEST_F(ContainerSmTest, ChildrenAreBuiltOverTheInputsInTheirPlaces) {
  ContainerSm& cs = *c.build();
  EXPECT_STREQ(cs.typeName(), "Routing::Protocol::ContainerSm");
  EXPECT_TRUE(cs.initialized());
  ASSERT_TRUE(cs.status());
  EXPECT_EQ(cs.status()->key(), RouteStatusKey(testVrfId, Pando::AddressFamily::ipv4));
  EXPECT_EQ(cs.status()->routeSize(), 0u);
  ASSERT_NE(cs.ipViaConfigSm(), nullptr);
  EXPECT_TRUE(cs.ipViaConfigSm()->config() == Kel::Ptr<const Rib::Ip::ViaConfig>(c.w.viaConfig));
  ASSERT_NE(cs.intfSm(), nullptr);
  EXPECT_TRUE(cs.intfSm()->intfStatus() == c.intfStatus);
  EXPECT_EQ(cs.viaSetConfigSm(), nullptr);  // made on request only

  // Twenty-two inputs of a few types: each must land in its own place.
  EXPECT_EQ(cs.containerKey(), ContainerKey(L3::VrfName("red"), Pando::AddressFamily::ipv4));
  EXPECT_TRUE(cs.ipv4DefaultVrfViaConfig() == c.v4DefaultViaConfig);
  EXPECT_TRUE(cs.ipv6DefaultVrfViaConfig() == c.v6DefaultViaConfig);
  EXPECT_TRUE(cs.evpnViaConfig() == c.evpnViaConfig);
  EXPECT_TRUE(cs.intfStatus() == c.intfStatus);
  const RouteStatusSm& sm = *cs.routeStatusSm();
  const auto same = [](const auto& a, const auto& b) { return a.ptr() == b.ptr(); };
  EXPECT_EQ(sm.vrfName(), L3::VrfName("red"));
  EXPECT_EQ(sm.af(), Pando::AddressFamily::ipv4);
  EXPECT_EQ(sm.vrfId(), testVrfId);
  EXPECT_TRUE(same(sm.status(), cs.status()));
  EXPECT_TRUE(same(sm.ipViaMetricStatus(), c.w.ipMetrics));
  EXPECT_TRUE(same(sm.evpnViaMetricStatus(), c.w.evpnMetrics));
  EXPECT_TRUE(same(sm.loopingRouteStatus(), c.w.looping));
  EXPECT_TRUE(same(sm.nhdGraph(), c.w.graph));
  EXPECT_TRUE(same(sm.ribConfig(), c.w.ribConfig));
  EXPECT_TRUE(same(sm.viaSetConfig(), c.w.viaSets));
  EXPECT_EQ(sm.routingProtocol(), staticProtocol);
  EXPECT_TRUE(same(sm.ipv4DefaultVrfViaMetricStatus(), c.w.v4DefaultMetrics));
  EXPECT_TRUE(same(sm.ipv6DefaultVrfViaMetricStatus(), c.w.v6DefaultMetrics));
  EXPECT_TRUE(same(sm.vrfReadyStatus(), c.w.ready));
  EXPECT_TRUE(same(sm.bfdTrackedRoutesList(), c.w.bfdList));
  EXPECT_TRUE(same(sm.ipViaConfig(), c.w.viaConfig));
  EXPECT_TRUE(same(sm.auxIpViaConfig(), c.w.auxViaConfig));
  EXPECT_TRUE(same(sm.viaMetricStatusByVrf(), c.w.metricTree));
  EXPECT_EQ(sm.ribString(), Kel::String("rib"));
  EXPECT_TRUE(same(sm.viaStatusByVrf(), c.w.viaStatus));

  // The RouteStatusSm reads the container's Status: a route reaches the RIB.
  c.w.resolve(1);
  c.w.addVia(p1, 1, V::viaIntfNextHop, 1);
  c.w.touch(p1);
  EXPECT_EQ(c.w.ribVias(p1), std::vector<uint32_t>{1});
}

TEST_F(ContainerSmTest, AViaConfigSharedByAllVrfsGetsNoReactorHere) {
  for (Rib::RoutingProtocol rp : {Rib::RoutingProtocol(3), Rib::RoutingProtocol(5)}) {  // bgp, isis
    c.build(rp);
    EXPECT_EQ(c.container->ipViaConfigSm(), nullptr) << int(rp);
    EXPECT_NE(c.container->routeStatusSm(), nullptr) << int(rp);
    EXPECT_NE(c.container->intfSm(), nullptr) << int(rp);
  }
  c.w.viaConfig->ribStringIs(Kel::String("mrib"));  // static's own, in either RIB
  EXPECT_NE(c.build()->ipViaConfigSm(), nullptr);
  c.w.viaConfig = nullptr;  // no via configuration at all
  EXPECT_EQ(c.build()->ipViaConfigSm(), nullptr);
  EXPECT_NE(c.container->routeStatusSm(), nullptr);
}

TEST_F(ContainerSmTest, StatusIsKeepsTheStatusOfTheSameKeyAndItsRoutes) {
  ContainerSm& cs = *c.build();
  const Kel::Ptr<Status> first = cs.status();
  c.w.addVia(p1, 1, V::viaIntfNextHop, 1);
  cs.statusIs(RouteStatusKey(testVrfId, Pando::AddressFamily::ipv4));
  EXPECT_TRUE(cs.status() == first);
  EXPECT_TRUE(cs.status()->route(p1));

  // Starting again from the same inputs rebuilds nothing.
  RouteStatusSm* sm = cs.routeStatusSm();
  Rib::Ip::ViaConfigSm* viaConfigSm = cs.ipViaConfigSm();
  IntfSm* intfSm = cs.intfSm();
  cs.handleInitialized();
  EXPECT_TRUE(cs.status() == first);
  EXPECT_EQ(cs.routeStatusSm(), sm);
  EXPECT_EQ(cs.ipViaConfigSm(), viaConfigSm);
  EXPECT_EQ(cs.intfSm(), intfSm);

  const RouteStatusKey other(testVrfId + 1, Pando::AddressFamily::ipv4);
  cs.statusIs(other);
  EXPECT_FALSE(cs.status() == first);
  EXPECT_EQ(cs.status()->key(), other);
  EXPECT_EQ(cs.status()->routeSize(), 0u);
  cs.doInitSm();  // the RouteStatusSm follows its new Status; the others stay
  EXPECT_NE(cs.routeStatusSm(), sm);
  EXPECT_TRUE(cs.routeStatusSm()->status() == cs.status());
  EXPECT_EQ(cs.ipViaConfigSm(), viaConfigSm);
  EXPECT_EQ(cs.intfSm(), intfSm);
}

// The RouteStatusSm's twenty arguments, to be varied one at a time.
struct RouteStatusArgs {
  L3::VrfName vrfName;
  Pando::AddressFamily af;
  Vrf::VrfIdMap::VrfId vrfId;
  Kel::Ptr<Status> status;
  Kel::Ptr<const Rib::ViaMetricStatus> ipViaMetricStatus, evpnViaMetricStatus;
  Kel::Ptr<const Rib::LoopingRouteStatus> loopingRouteStatus;
  Kel::Ptr<const Rib::Ip::GlobalNextHopDependencyGraph> nhdGraph;
  Kel::Ptr<Rib::RouteConfig> ribConfig;
  Kel::Ptr<Rib::ViaSetConfig> viaSetConfig;
  Rib::RoutingProtocol rp;
  Kel::Ptr<const Rib::ViaMetricStatus> ipv4DefaultVrfViaMetricStatus, ipv6DefaultVrfViaMetricStatus;
  Kel::Ptr<VrfReadyStatus> vrfReadyStatus;
  Kel::Ptr<BfdTrackedStaticRoutesList> bfdTrackedRoutesList;
  Kel::Ptr<const Rib::Ip::ViaConfig> ipViaConfig, auxIpViaConfig;
  Kel::Ptr<const Rib::ViaMetricStatusByVrf> viaMetricStatusByVrf;
  Kel::String ribString;
  Kel::Ptr<const Rib::ViaStatusByVrf> viaStatusByVrf;

  void applyTo(ContainerSm& cs) const {
    cs.routeStatusSmIs(vrfName, af, vrfId, status, ipViaMetricStatus, evpnViaMetricStatus,
                       loopingRouteStatus, nhdGraph, ribConfig, viaSetConfig, rp,
                       ipv4DefaultVrfViaMetricStatus, ipv6DefaultVrfViaMetricStatus, vrfReadyStatus,
                       bfdTrackedRoutesList, ipViaConfig, auxIpViaConfig, viaMetricStatusByVrf,
                       ribString, viaStatusByVrf);
  }
};

TEST_F(ContainerSmTest, RouteStatusSmIsKeepsTheReactorOnlyForTheSameTwentyArguments) {
  ContainerSm& cs = *c.build();
  const RouteStatusSm& sm = *cs.routeStatusSm();
  const RouteStatusArgs original{sm.vrfName(),
                                 sm.af(),
                                 sm.vrfId(),
                                 sm.status(),
                                 sm.ipViaMetricStatus(),
                                 sm.evpnViaMetricStatus(),
                                 sm.loopingRouteStatus(),
                                 sm.nhdGraph(),
                                 sm.ribConfig(),
                                 sm.viaSetConfig(),
                                 sm.routingProtocol(),
                                 sm.ipv4DefaultVrfViaMetricStatus(),
                                 sm.ipv6DefaultVrfViaMetricStatus(),
                                 sm.vrfReadyStatus(),
                                 sm.bfdTrackedRoutesList(),
                                 sm.ipViaConfig(),
                                 sm.auxIpViaConfig(),
                                 sm.viaMetricStatusByVrf(),
                                 sm.ribString(),
                                 sm.viaStatusByVrf()};
  const auto metrics = [] { return Kel::makePtr<Rib::ViaMetricStatus>(); };
  const auto viaConfig = [] { return Kel::makePtr<Rib::Ip::ViaConfig>(); };
  const std::vector<std::function<void(RouteStatusArgs&)>> changes = {
      [](RouteStatusArgs& a) { a.vrfName = L3::VrfName("blue"); },
      [](RouteStatusArgs& a) { a.af = Pando::AddressFamily::ipv6; },
      [](RouteStatusArgs& a) { a.vrfId = 4; },
      [](RouteStatusArgs& a) { a.status = statusFactory(RouteStatusKey(3, a.af)); },
      [&](RouteStatusArgs& a) { a.ipViaMetricStatus = metrics(); },
      [&](RouteStatusArgs& a) { a.evpnViaMetricStatus = metrics(); },
      [](RouteStatusArgs& a) { a.loopingRouteStatus = Kel::makePtr<Rib::LoopingRouteStatus>(); },
      [](RouteStatusArgs& a) {
        a.nhdGraph = Kel::makePtr<Rib::Ip::GlobalNextHopDependencyGraph>();
      },
      [](RouteStatusArgs& a) { a.ribConfig = Kel::makePtr<Rib::RouteConfig>(); },
      [](RouteStatusArgs& a) { a.viaSetConfig = Kel::makePtr<Rib::ViaSetConfig>(); },
      [](RouteStatusArgs& a) { a.rp = 4; },
      [&](RouteStatusArgs& a) { a.ipv4DefaultVrfViaMetricStatus = metrics(); },
      [&](RouteStatusArgs& a) { a.ipv6DefaultVrfViaMetricStatus = metrics(); },
      [](RouteStatusArgs& a) { a.vrfReadyStatus = vrfReadyStatusFactory(L3::VrfName("red")); },
      [](RouteStatusArgs& a) {
        a.bfdTrackedRoutesList = Kel::makePtr<BfdTrackedStaticRoutesList>();
      },
      [&](RouteStatusArgs& a) { a.ipViaConfig = viaConfig(); },
      [&](RouteStatusArgs& a) { a.auxIpViaConfig = viaConfig(); },
      [](RouteStatusArgs& a) {
        a.viaMetricStatusByVrf = Kel::makePtr<Rib::ViaMetricStatusByVrf>();
      },
      [](RouteStatusArgs& a) { a.ribString = Kel::String("mrib"); },
      [](RouteStatusArgs& a) { a.viaStatusByVrf = Kel::makePtr<Rib::ViaStatusByVrf>(); },
  };
  ASSERT_EQ(changes.size(), 20u);
  for (size_t k = 0; k < changes.size(); ++k) {
    RouteStatusArgs changed = original;
    changes[k](changed);
    const RouteStatusSm* before = cs.routeStatusSm();
    original.applyTo(cs);
    ASSERT_EQ(cs.routeStatusSm(), before) << "argument " << k;
    changed.applyTo(cs);
    ASSERT_NE(cs.routeStatusSm(), before) << "argument " << k;
    before = cs.routeStatusSm();
    changed.applyTo(cs);
    ASSERT_EQ(cs.routeStatusSm(), before) << "argument " << k;
    original.applyTo(cs);
    ASSERT_NE(cs.routeStatusSm(), before) << "argument " << k;
  }
}

TEST_F(ContainerSmTest, IntfSmIsKeepsTheReactorOfTheSameIntfStatus) {
  ContainerSm& cs = *c.build();
  IntfSm* first = cs.intfSm();
  cs.intfSmIs(c.intfStatus);
  EXPECT_EQ(cs.intfSm(), first);
  c.vrfIntfs->ipIntfStatusIs(Pando::IntfId("Ethernet1"))->dpRoutingEnabledIs(true);
  EXPECT_EQ(c.intfStatus->intfStatusChanged(), 2u);  // the new interface, then its flag
  EXPECT_TRUE(c.intfStatus->intf(Pando::IntfId("Ethernet1")));

  const Kel::Ptr<IntfStatus> other = ipv4IntfStatusFactory(c.vrfIntfs);
  cs.intfSmIs(other);
  ASSERT_NE(cs.intfSm(), nullptr);
  EXPECT_TRUE(cs.intfSm()->intfStatus() == other);
  c.vrfIntfs->ipIntfStatus(Pando::IntfId("Ethernet1"))->dpRoutingEnabledIs(false);
  EXPECT_EQ(c.intfStatus->intfStatusChanged(), 2u);  // no longer driven
  EXPECT_EQ(other->intfStatusChanged(), 1u);
  cs.intfSmIs(nullptr);
  EXPECT_EQ(cs.intfSm(), nullptr);
}

TEST_F(ContainerSmTest, ViaSetConfigSmIsKeepsTheReactorOfTheSameTable) {
  ContainerSm& cs = *c.build();
  cs.viaSetConfigSmIs(c.w.viaSets);
  Rib::ViaSetConfigSm* first = cs.viaSetConfigSm();
  ASSERT_NE(first, nullptr);
  cs.viaSetConfigSmIs(c.w.viaSets);
  EXPECT_EQ(cs.viaSetConfigSm(), first);
  c.w.resolve(1);
  c.w.addVia(p1, 1, V::viaIntfNextHop, 1);
  c.w.touch(p1);
  EXPECT_EQ(first->liveViaSets(), 1u);
  cs.viaSetConfigSmDel();
  EXPECT_EQ(cs.viaSetConfigSm(), nullptr);
}

TEST_F(ContainerSmTest, SwitchingNotificationReachesEveryChild) {
  ContainerSm& cs = *c.build();
  c.w.resolve(1);
  c.w.addVia(p1, 1, V::viaIntfNextHop, 1);
  cs.hasNotificationActiveIs(false);
  EXPECT_FALSE(cs.routeStatusSm()->hasNotificationActive());
  EXPECT_FALSE(cs.ipViaConfigSm()->hasNotificationActive());
  EXPECT_FALSE(cs.intfSm()->hasNotificationActive());
  c.w.touch(p1);
  c.vrfIntfs->ipIntfStatusIs(Pando::IntfId("Ethernet1"));
  EXPECT_EQ(c.w.ribRoute(p1), nullptr);
  EXPECT_EQ(c.intfStatus->intfStatusChanged(), 0u);

  cs.hasNotificationActiveIs(true);
  EXPECT_TRUE(cs.ipViaConfigSm()->hasNotificationActive());
  c.w.touch(p1);
  c.vrfIntfs->ipIntfStatusIs(Pando::IntfId("Ethernet2"));
  EXPECT_EQ(c.w.ribVias(p1), std::vector<uint32_t>{1});
  EXPECT_EQ(c.intfStatus->intfStatusChanged(), 1u);
}

// Hears the BFD tracking requests RouteStatusSm withdraws as it goes, and
// notes what the container still holds at that moment.
class TeardownProbe : public BfdTrackedStaticRoutesList::Notifiee {
 public:
  explicit TeardownProbe(const ContainerSm* cs) : cs_(cs) {}
  void onRoute(const BfdStatusKey&) override {
    seen.push_back(std::string(cs_->status() ? "status " : "") +
                   (cs_->routeStatusSm() ? "routeStatusSm " : "") +
                   (cs_->ipViaConfigSm() ? "ipViaConfigSm " : "") +
                   (cs_->intfSm() ? "intfSm" : ""));
  }
  std::vector<std::string> seen;

 private:
  const ContainerSm* cs_;
};

TEST_F(ContainerSmTest, TeardownDropsTheStatusFirstAndTheRoutesGoWithIt) {
  c.build();
  c.w.resolve(1);
  c.w.addVia(p1, 1, V::viaIntfNextHop, 1);
  c.w.routePref(p1, 1)->bfdTrackedViaCollIs(c.w.via(1));
  c.w.touch(p1);
  ASSERT_EQ(c.w.bfdList->routeSize(), 1u);
  const Kel::Ptr<Route> route = c.container->status()->route(p1);
  EXPECT_GT(route->references(), 1u);
  auto probe = Kel::makePtr<TeardownProbe>(c.container.ptr());
  probe->notifierIs(c.w.bfdList.ptr());

  c.w.status = nullptr;
  c.container = nullptr;
  // RouteStatusSm went second: the Status was gone already, the others not yet.
  EXPECT_EQ(probe->seen, std::vector<std::string>{"ipViaConfigSm intfSm"});
  EXPECT_EQ(c.w.bfdList->routeSize(), 0u);
  EXPECT_EQ(route->references(), 1u);  // nobody but this test holds the route
}

}  // namespace
}  // namespace Routing::Protocol::Test
