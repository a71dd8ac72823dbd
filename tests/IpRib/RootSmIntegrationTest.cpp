// The library started, run and stopped the way an agent does it, through
// AgentBuilder: VRFs named before and after start, inputs appearing in every
// order, containers following the ready sets, routes reaching the RIB through
// them, the RIB's sequence trigger answered once reviews are done, a graceful
// restart keeping the previous RIB until the first complete review, a mount
// group that does not complete, and a teardown that leaves nothing mounted
// and nothing alive.
//
//   VRF "red" (id 1) named before start, "blue" (id 2) after; protocol 2
//   (static) with the multicast RIB; via i of a VRF has next hop 10.0.<i>.1.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "Kel/Pool.h"
#include "Kel/Trace.h"
#include "platform/Routing/Rib/DedupViaKey.h"
#include "tests/IpRib/RootWorldFixture.h"

namespace Routing::Protocol::Test {
namespace {

using Pando::AddressFamily;
using Pando::IpGenPrefix;

std::set<std::string> namesOf(const ReadyVrfSets::NameSet& set) {
  std::set<std::string> out;
  for (const L3::VrfName& n : set) out.emplace(n.value());
  return out;
}
using Names = std::set<std::string>;

// The protocol's side of one VRF: a via resolved in the RIB, a route over it.
struct Protocol {
  Kel::Ptr<Rib::DedupViaKeyTable> viaKeys = Kel::makePtr<Rib::DedupViaKeyTable>();

  static Rib::ViaKey via(Vrf::VrfIdMap::VrfId vrfId, uint32_t i) {
    return Rib::ViaKey(Rib::ViaKey::kindIpv4, vrfId, RootWorld::staticProtocol, i);
  }
  // The RIB resolves via i of the VRF: its record and its metric.
  static void resolve(RootWorld& w, Vrf::VrfIdMap::VrfId vrfId, uint32_t i) {
    const Pando::IpGenAddr nextHop = Pando::IpGenAddr::fromV4(0x0a000001u | (i << 8));
    w.root()
        .vrfViaConfig(vrfId, "rib", Rib::Transport::ipv4)
        ->viaIs(via(vrfId, i), Rib::Via(nextHop, Pando::IntfId("Ethernet" + std::to_string(i))));
    w.metrics->viaMetricStatusByTransportIs(vrfId)
        ->viaMetricStatusByProtocolIs(Rib::ViaKey::kindIpv4)
        ->viaMetricStatusIs(RootWorld::staticProtocol)
        ->viaMetricIs(via(vrfId, i), Rib::ViaMetric(Rib::MetricPref(1, 1)));
  }
  void routeIs(Status& status, const std::string& prefix, uint32_t i) {
    status.routeIs(IpGenPrefix(prefix))
        ->routePrefIs(1)
        ->dedupViaKeyIs(ViaType(ViaTypeEnum::viaNextHopOnly),
                        viaKeys->dedupViaKeyIs(via(status.key().vrfId(), i)), 0);
  }
};

TEST(RootSmIntegrationTest, StartRunAndStop) {
  size_t afterRun[2];
  for (int run = 0; run < 2; ++run) {
    SCOPED_TRACE("run " + std::to_string(run));
    RootWorld w;
    w.defaultVrfMetricsIs(true);
    w.vrfIs("red", 1);
    w.vrfInputsIs("red", 1);
    w.start();
    ASSERT_TRUE(w.root().initialized());
    // The bulk pass at start evaluates IPv4 multicast only: red's IPv6
    // multicast waits for a trigger of its own.
    EXPECT_EQ(namesOf(w.root().readyVrfIpv4()), Names{"red"});
    EXPECT_EQ(namesOf(w.root().readyVrfIpv6()), Names{"red"});
    EXPECT_EQ(namesOf(w.root().mcReadyVrfIpv4()), Names{"red"});
    EXPECT_EQ(namesOf(w.root().mcReadyVrfIpv6()), Names{});
    w.loopingIs(3, "red", false);
    w.loopingIs(3, "red", true);
    EXPECT_EQ(namesOf(w.root().mcReadyVrfIpv6()), Names{"red"});
    EXPECT_EQ(w.agent->containerCount(), 4u);

    // blue's inputs arrive one by one, its name last but one: ready only
    // when the last is there.
    w.intfIs(AddressFamily::ipv4, "blue", true);
    w.metricIs(false, 2, Rib::Transport::ipv4, true);
    w.vrfIs("blue", 2);
    EXPECT_FALSE(w.root().readyVrfIpv4Has(L3::VrfName("blue")));
    EXPECT_TRUE(w.readyStatus("blue"));  // the records come with the id
    w.loopingIs(0, "blue", true);
    EXPECT_TRUE(w.root().readyVrfIpv4Has(L3::VrfName("blue")));
    ASSERT_NE(w.container("blue", AddressFamily::ipv4), nullptr);
    EXPECT_EQ(w.container("blue", AddressFamily::ipv6), nullptr);

    // A route of red reaches red's RIB table through its container.
    Protocol protocol;
    Protocol::resolve(w, 1, 7);
    Status& red4 = *w.container("red", AddressFamily::ipv4)->status();
    protocol.routeIs(red4, "192.0.2.0/24", 7);
    red4.initializedIs(true);
    w.settle();
    const Kel::Ptr<Rib::RouteConfig> redRib = w.root().vrfRibConfig(1, "rib", "ipv4");
    ASSERT_TRUE(redRib);
    const Rib::Route* route = redRib->route(Rib::RouteKey(1, IpGenPrefix("192.0.2.0/24")));
    ASSERT_NE(route, nullptr);
    EXPECT_EQ(route->viaSet()->viaKeys()[0], Protocol::via(1, 7));
    // A metric change reaches it through the root's ViaMetricStatusSm (which
    // stamps the route with the time: let some pass).
    w.time.time().advance(1);
    w.metrics->viaMetricStatusByTransport(1)
        ->viaMetricStatusByProtocol(Rib::ViaKey::kindIpv4)
        ->viaMetricStatus(RootWorld::staticProtocol)
        ->viaMetricDel(Protocol::via(1, 7));
    EXPECT_EQ(redRib->route(Rib::RouteKey(1, IpGenPrefix("192.0.2.0/24"))), nullptr);

    // Removing blue's name drops its container and its status, and cleans
    // up its tables.
    const Kel::Ptr<Rib::RouteConfig> blueRib = w.root().vrfRibConfig(2, "rib", "ipv4");
    ASSERT_TRUE(blueRib);
    blueRib->routeAdd(Rib::Route(Rib::RouteKey(2, IpGenPrefix("192.0.2.0/24"))));
    // Weighing blue's IPv6 mounted its tables though it has no container.
    ASSERT_TRUE(w.root().vrfRibConfig(2, "rib", "ipv6"));
    w.vrfDel("blue");
    EXPECT_EQ(w.container("blue", AddressFamily::ipv4), nullptr);
    EXPECT_FALSE(w.root().routeStatusDir()->status(RouteStatusKey(2, AddressFamily::ipv4)));
    EXPECT_FALSE(w.root().vrfRibConfig(2, "rib", "ipv4"));
    EXPECT_EQ(blueRib->routeSize(), 0u);
    EXPECT_FALSE(w.root().vrfRibConfig(2, "rib", "ipv6"));
    EXPECT_FALSE(w.root().vrfViaConfig(2, "rib", Rib::Transport::ipv6));
    EXPECT_FALSE(w.readyStatus("blue"));

    // Renumbering red moves its tables and rebuilds its containers on the new id.
    for (const bool mc : {false, true}) {
      w.metricIs(mc, 5, Rib::Transport::ipv4, true);
      w.metricIs(mc, 5, Rib::Transport::ipv6, true);
    }
    w.vrfIs("red", 5);
    EXPECT_FALSE(w.root().vrfRibConfig(1, "rib", "ipv4"));
    EXPECT_TRUE(w.root().vrfRibConfig(5, "rib", "ipv4"));
    EXPECT_EQ(w.container("red", AddressFamily::ipv4)->vrfId(), 5u);

    w.agent = nullptr;
    EXPECT_EQ(w.platform.stateDb->getEntity("routing/rib/routeConfig/ipv4/5/staticConfig"),
              nullptr);
    w.agent = nullptr;
    afterRun[run] = Kel::Pool::usage().requested;
  }
  // The second run allocated nothing that it did not free.
  EXPECT_EQ(afterRun[1], afterRun[0]);
}

TEST(RootSmIntegrationTest, AMountGroupThatDoesNotCompleteHoldsEverythingBackWithoutPolling) {
  RootWorld w;
  w.defaultVrfMetricsIs(true);
  w.vrfIs("red", 1);
  w.vrfInputsIs("red", 1);
  // red's route table as an earlier run left it.
  const auto rib = Kel::makePtr<Rib::RouteConfig>();
  Rib::Route kept(Rib::RouteKey(1, IpGenPrefix("192.0.2.0/24")));
  rib->routeAdd(kept);
  const char* ribPath = "routing/rib/routeConfig/ipv4/1/staticConfig";
  w.platform.stateDb->entityIs(ribPath, rib);
  w.agent = AgentBuilder::AgentBuilderIs(w.config, w.platform);
  w.agent->mountGroup()->heldIs(true);  // databases that never answer
  w.agent->shmemMountGroup()->heldIs(true);
  const size_t turns = w.settle();
  w.time.time().advance(3600);
  EXPECT_EQ(w.settle(), 0u) << "nothing polls while the mounts are pending";
  EXPECT_LT(turns, 10u);
  EXPECT_FALSE(w.agent->started());
  EXPECT_EQ(w.agent->containerCount(), 0u);
  EXPECT_TRUE(w.root().readyVrfIpv4().empty());
  EXPECT_FALSE(w.readyStatus("red")) << "no VRF is evaluated";
  EXPECT_EQ(w.platform.stateDb->mappingCount(ribPath), 0u);
  EXPECT_EQ(rib->routeSize(), 1u);
  // The databases answer at last, one, then the other: the start goes on
  // from there.
  w.agent->mountGroup()->heldIs(false);
  w.settle();
  EXPECT_FALSE(w.agent->started());
  w.agent->shmemMountGroup()->heldIs(false);
  w.settle();
  EXPECT_TRUE(w.agent->started());
  EXPECT_NE(w.container("red", AddressFamily::ipv4), nullptr);
  EXPECT_EQ(w.root().vrfRibConfig(1, "rib", "ipv4"), rib);
}

// Plays a RIB side that writes its trigger into green's record as soon as
// the record appears, before the root's own reactor on it is bound.
class EagerRibSide final : public AllVrfRibSeqTrigger::Notifiee {
 public:
  void onVrfRibSeqTrigger(const L3::VrfName& name) override {
    const Kel::Ptr<VrfRibSeqTrigger> t = notifier()->vrfRibSeqTrigger(name);
    if (t && name == L3::VrfName("green")) t->ribReadySeqTriggerIs(9);
  }
};

TEST(RootSmIntegrationTest, ARibSequenceTriggerIsAnsweredOnceBothReviewsAreComplete) {
  RootWorld w;
  const auto eager = Kel::makePtr<EagerRibSide>();  // heard before the root
  eager->notifierIs(w.platform.allVrfRibSeqTrigger.ptr());
  w.defaultVrfMetricsIs(true);
  w.vrfIs("red", 1);
  w.vrfInputsIs("red", 1);
  w.start();
  const Kel::Ptr<VrfReadyStatus> ready = w.readyStatus("red");
  const Kel::Ptr<VrfRibSeqTrigger> trigger =
      w.platform.allVrfRibSeqTrigger->vrfRibSeqTrigger(L3::VrfName("red"));
  ASSERT_TRUE(ready && trigger);
  trigger->ribReadySeqTriggerIs(7);
  w.settle();
  EXPECT_EQ(ready->ribReadySeqStatus(), 0u);  // both families have containers: wait
  w.container("red", AddressFamily::ipv4)->status()->initializedIs(true);
  w.settle();
  EXPECT_TRUE(ready->v4RouteReviewComplete());
  EXPECT_EQ(ready->ribReadySeqStatus(), 0u);
  w.container("red", AddressFamily::ipv6)->status()->initializedIs(true);
  w.settle();
  EXPECT_EQ(ready->ribReadySeqStatus(), 7u);
  // Without containers a trigger is answered at once.
  w.vrfIs("blue", 2);
  w.platform.allVrfRibSeqTrigger->vrfRibSeqTrigger(L3::VrfName("blue"))->ribReadySeqTriggerIs(3);
  EXPECT_EQ(w.readyStatus("blue")->ribReadySeqStatus(), 3u);
  // A trigger written before the root watched its record is answered too.
  w.vrfIs("green", 3);
  EXPECT_EQ(w.readyStatus("green")->ribReadySeqStatus(), 9u);
}

TEST(RootSmIntegrationTest, AGracefulRestartKeepsThePreviousRibUntilTheFirstCompleteReview) {
  RootWorld w;
  w.defaultVrfMetricsIs(true);
  w.vrfIs("red", 1);
  w.vrfInputsIs("red", 1);
  w.start();
  Protocol protocol;
  Protocol::resolve(w, 1, 7);
  Status& before = *w.container("red", AddressFamily::ipv4)->status();
  protocol.routeIs(before, "192.0.2.0/24", 7);
  protocol.routeIs(before, "198.51.100.0/24", 7);
  before.initializedIs(true);
  w.settle();
  // The RIB holds the protocol's tables, as a RIB process would across a restart.
  KelBrisk::MountInfo info(0);
  const Kel::String ribPath = w.root().ribMount(1, "rib", "ipv4");
  const auto ribHold = KelBrisk::mountFactory(w.platform.stateDb, ribPath,
                                              Kel::String("Routing::Rib::RouteConfig"), info);
  ribHold->doMount();
  const auto rib = ribHold->getEntity<Rib::RouteConfig>();
  ASSERT_EQ(rib->routeSize(), 2u);

  w.agent = nullptr;
  // A new agent process starts with fresh readiness records.
  w.platform.allVrfReadyStatus->vrfReadyStatusDel(L3::VrfName("red"));
  w.config.gracefulRestart = true;
  w.start();
  EXPECT_EQ(w.root().vrfRibConfig(1, "rib", "ipv4"), rib);
  Protocol::resolve(w, 1, 7);       // the via table went with the old root
  EXPECT_EQ(rib->routeSize(), 2u);  // nothing reviewed yet: the old routes stay
  // The protocol replays one route of the two, then says it is done.
  Status& after = *w.container("red", AddressFamily::ipv4)->status();
  protocol.routeIs(after, "192.0.2.0/24", 7);
  w.settle();
  EXPECT_EQ(rib->routeSize(), 2u);
  after.initializedIs(true);
  w.settle();
  EXPECT_EQ(rib->routeSize(), 1u);
  EXPECT_NE(rib->route(Rib::RouteKey(1, IpGenPrefix("192.0.2.0/24"))), nullptr);
  // Routes are marked ready once verification starts; red has interfaces,
  // so its families are left to another writer.
  w.root().grState()->startReadyVerificationIs(true);
  EXPECT_FALSE(w.readyStatus("red")->v4RoutesReady());
  w.intfIs(AddressFamily::ipv6, "red", false);
  EXPECT_TRUE(w.readyStatus("red")->v6RoutesReady());
  w.agent = nullptr;
  ribHold->doUnmount();
}

}  // namespace
}  // namespace Routing::Protocol::Test
