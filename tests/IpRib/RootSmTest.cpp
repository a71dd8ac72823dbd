// RootSm by rule: the mounts it asks for and makes, its paths, the inputs
// that hold a VRF back and the traces that say which, the environment
// switch, protocols without the multicast RIB, the state dump, and the
// faults that end the process. The ready sets and records under random
// event sequences are checked against a model in RootSmLifecycleModelTest.
//
//   VRF "red" (id 1) with every input; protocol 2 (static) unless said.
#include <gtest/gtest.h>

#include <cstdlib>
#include <set>
#include <string>
#include <vector>

#include "Kel/Trace.h"
#include "platform/Routing/RouteConfigLib.h"
#include "platform/Routing/ViaConfigLib.h"
#include "tests/IpRib/RootWorldFixture.h"

namespace Routing::Protocol::Test {
namespace {

using Pando::AddressFamily;

Kel::TraceFacility& rootTrace() {
  return *Kel::TraceRegistry::instance().facility("IpRib::ProtocolRootSm");
}

// Text traces of the root at levels 0 to 9 while it lives.
struct RootTraces {
  RootTraces() { rootTrace().allLevelsIs(true); }
  ~RootTraces() {
    rootTrace().allLevelsIs(false);
    rootTrace().textLevelIs(0, true);
    for (int l = 0; l <= 8; ++l) rootTrace().ringLevelIs(l, true);
  }
  bool has(const std::string& message) const {
    for (const std::string& m : capture.messages()) {
      if (m == message) return true;
    }
    return false;
  }
  Kel::TraceCapture capture;
};

std::vector<std::string> mountsOf(const Cairn::detail::MountGroupBase& group) {
  std::vector<std::string> out;
  for (const Cairn::Mount& m : group.mount()) {
    out.push_back(std::string(m.path().view()) + " " + std::string(m.typeName().view()));
  }
  return out;
}

// ------------------------------------------------------------ start-up

TEST(RootSmTest, ConstructionAsksForEveryInputInOrder) {
  RootWorld w;
  w.start();
  EXPECT_EQ(mountsOf(*w.agent->mountGroup()),
            (std::vector<std::string>{
                "vrf/vrfNameStatus Vrf::VrfIdMap::NameToIdMapWrapper", "ip/status Ip::Status",
                "ip6/status Ip6::Status",
                "routing/rib/loopingRouteStatus Routing::Rib::LoopingRouteStatusByVrf",
                "routing6/rib/loopingRouteStatus Routing::Rib::LoopingRouteStatusByVrf",
                "routing/mrib/loopingRouteStatus Routing::Rib::LoopingRouteStatusByVrf",
                "routing6/mrib/loopingRouteStatus Routing::Rib::LoopingRouteStatusByVrf"}));
  EXPECT_EQ(mountsOf(*w.agent->shmemMountGroup()),
            (std::vector<std::string>{
                "routing/rib/viaMetricStatus Routing::Rib::ViaMetricStatusByVrf",
                "routing/mrib/viaMetricStatus Routing::Rib::ViaMetricStatusByVrf"}));
}

TEST(RootSmTest, PathsCarryTheProtocolsComponent) {
  RootWorld w;
  w.start();
  EXPECT_EQ(w.root().protocolName(), Kel::String("staticConfig"));
  EXPECT_EQ(w.root().viaConfigMount(7, "rib", Rib::Transport::ipv4),
            Kel::String("routing/rib/viaConfig/ipv4/7/staticConfig"));
  EXPECT_EQ(w.root().allVrfViaConfigMount("mrib", Rib::Transport::evpn),
            Kel::String("routing/mrib/viaConfig/evpn/staticConfig"));
  EXPECT_EQ(w.root().ribMount(7, "mrib", "ipv6"),
            Kel::String("routing/mrib/routeConfig/ipv6/7/staticConfig"));
  w.agent = nullptr;
  w.config.protocol = 4;
  w.start();
  EXPECT_EQ(w.root().protocolName(), Kel::String("routeInput"));
  w.agent = nullptr;
  w.config.protocol = 6;  // any other protocol: an empty last component
  w.start();
  EXPECT_EQ(w.root().viaConfigMount(7, "rib", Rib::Transport::ipv4),
            Kel::String("routing/rib/viaConfig/ipv4/7/"));
}

TEST(RootSmTest, PerVrfViaTablesClearTheDefaultVrfsAtStartAndSharedOnesDoNot) {
  RootWorld w;
  // Vias left by an earlier run in the default VRF's IPv4 table.
  const auto stale = Kel::makePtr<Rib::Ip::ViaConfig>();
  const Rib::ViaKey via(Rib::ViaKey::kindIpv4, 0, RootWorld::staticProtocol, 1);
  stale->viaIs(via, Rib::Via(Pando::IpGenAddr::fromV4(0x0a000001u)));
  w.platform.stateDb->entityIs("routing/rib/viaConfig/ipv4/0/staticConfig", stale);
  w.start();
  EXPECT_EQ(w.root().ipv4DefaultVrfViaConfig(), stale);
  EXPECT_EQ(stale->viaSize(), 0u);
  EXPECT_EQ(stale->rp(), RootWorld::staticProtocol);
  // Unicast IPv6 has no default-VRF table at start: the VRF's own mount brings it.
  EXPECT_FALSE(w.root().ipv6DefaultVrfViaConfig());
  EXPECT_FALSE(w.root().ipv4AllVrfViaConfig());
  w.agent = nullptr;

  ViaConfigLib::allVrfViaConfigIs("rib", "ipv4", "static", true);
  ViaConfigLib::allVrfViaConfigIs("rib", "ipv6", "static", true);
  ViaConfigLib::allVrfViaConfigIs("rib", "evpn", "static", true);
  RouteConfigLib::allVrfRouteConfigIs("rib", "ipv4", "static", true);
  const auto shared = Kel::makePtr<Rib::Ip::ViaConfig>();
  shared->viaIs(via, Rib::Via(Pando::IpGenAddr::fromV4(0x0a000001u)));
  w.platform.stateDb->entityIs("routing/rib/viaConfig/ipv4/staticConfig", shared);
  const auto sharedEvpn = Kel::makePtr<Rib::Evpn::ViaConfig>();
  const Rib::ViaKey evpnVia(Rib::ViaKey::kindEvpn, 0, RootWorld::staticProtocol, 1);
  sharedEvpn->viaIs(evpnVia, Rib::Evpn::Via());
  w.platform.stateDb->entityIs("routing/rib/viaConfig/evpn/staticConfig", sharedEvpn);
  w.config.maxRoutes = 100;
  w.config.maxVrfs = 4;
  w.start();
  EXPECT_EQ(w.root().evpnConfig(), sharedEvpn);
  EXPECT_TRUE(sharedEvpn->viaHas(evpnVia)) << "a shared EVPN via table is not cleared";
  EXPECT_EQ(w.root().ipv4AllVrfRibConfig()->capacity(), 400u) << "room for every VRF";
  EXPECT_EQ(w.root().ipv4AllVrfViaConfig(), shared);
  EXPECT_EQ(w.root().ipv4DefaultVrfViaConfig(), shared);
  EXPECT_EQ(shared->viaSize(), 1u);
  EXPECT_NE(w.root().ipv4AllVrfViaConfigSm(), nullptr);
  EXPECT_EQ(w.root().ipv6DefaultVrfViaConfig(), w.root().ipv6AllVrfViaConfig());
  // The VRF's vias stay in the shared table until the agent deletes them.
  w.vrfIs("red", 1);
  const Rib::ViaKey redVia(Rib::ViaKey::kindIpv4, 1, RootWorld::staticProtocol, 1);
  shared->viaIs(redVia, Rib::Via(Pando::IpGenAddr::fromV4(0x0a000002u)));
  // The shared route table loses red's routes with red's container, and no other.
  Rib::RouteConfig& routes = *w.root().ipv4AllVrfRibConfig();
  routes.routeAdd(Rib::Route(Rib::RouteKey(1, Pando::IpGenPrefix("192.0.2.0/24"))));
  routes.routeAdd(Rib::Route(Rib::RouteKey(2, Pando::IpGenPrefix("192.0.2.0/24"))));
  w.root().doCleanupContainer4(L3::VrfName("red"), 1);
  EXPECT_EQ(routes.routeSize(), 1u);
  EXPECT_TRUE(routes.route(Rib::RouteKey(2, Pando::IpGenPrefix("192.0.2.0/24"))));
  EXPECT_TRUE(shared->viaHas(redVia));
  shared->corruptionIs(2);  // the walk meets corruption twice, reports it, and goes on
  w.root().doDeleteViasForVrf(1, shared);
  EXPECT_FALSE(shared->viaHas(redVia));
  EXPECT_TRUE(shared->viaHas(via));
  EXPECT_EQ(shared->corruptionsDetected(), 2u);
  // A table that stays corrupt is given up on: nothing deleted, no spin.
  shared->viaIs(redVia, Rib::Via(Pando::IpGenAddr::fromV4(0x0a000002u)));
  shared->corruptionIs(1000);
  w.root().doDeleteViasForVrf(1, shared);
  EXPECT_TRUE(shared->viaHas(redVia));
  EXPECT_EQ(shared->corruptionsDetected(), 2u + RootSm::maxCorruptReads);
  shared->corruptionIs(0);
  w.agent = nullptr;
  ViaConfigLib::allVrfViaConfigReset();
  RouteConfigLib::allVrfRouteConfigReset();
}

TEST(RootSmTest, TheInterfaceCheckIsOffWhenTheVariableExistsEvenEmpty) {
  ASSERT_EQ(setenv(RootSm::ipIntfCheckNotNeededEnvVar, "", 1), 0);
  RootTraces traces;
  RootWorld w;
  w.defaultVrfMetricsIs(true);
  w.vrfIs("red", 1);
  w.vrfInputsIs("red", 1);
  w.intfIs(AddressFamily::ipv4, "red", false);
  w.start();
  unsetenv(RootSm::ipIntfCheckNotNeededEnvVar);
  EXPECT_TRUE(traces.has("ipIntfCheckNotNeeded is true"));
  EXPECT_TRUE(w.root().ipIntfCheckNotNeeded());
  // Ready without its interfaces, traced all the same; the multicast twin is not.
  EXPECT_TRUE(w.root().readyVrfIpv4Has(L3::VrfName("red")));
  EXPECT_TRUE(traces.has("setReadyVrfIpv4, No V4 IpIntfStatus for vrf red"));
  EXPECT_FALSE(w.root().mcReadyVrfIpv4Has(L3::VrfName("red")));
  EXPECT_TRUE(traces.has("setMcReadyVrfIpv4, No V4 McIpIntfStatus for vrf red"));
}

// ------------------------------------------------------------ readiness of a VRF

TEST(RootSmTest, EachMissingInputHoldsTheVrfBackAndIsNamed) {
  RootTraces traces;
  RootWorld w;
  w.vrfIs("red", 1);
  w.start();
  for (const char* m :
       {"setReadyVrfIpv4, No V4 ViaMetricStatus for vrf red",
        "setReadyVrfIpv4, No Evpn ViaMetricStatus for vrf red",
        "setReadyVrfIpv4, No V4 IpIntfStatus for vrf red",
        "setReadyVrfIpv4, No V4 LoopingRouteStatus for vrf red",
        "setReadyVrfIpv4, No V4 DefaultVrf ViaMetricStatus",
        "setReadyVrfIpv4, No V6 DefaultVrf ViaMetricStatus", "Deleting container sm for vrf red",
        "setReadyVrfIpv6, No V6 ViaMetricStatus for vrf red",
        "setReadyVrfIpv6, No V6 LoopingRouteStatus vrf red",
        "setMcReadyVrfIpv4, No V4 McViaMetricStatus for vrf red",
        "setMcReadyVrfIpv4, No V4 McLoopingRouteStatus for vrf red",
        "Deleting McContainer sm for vrf red", "viaMetricStatus(1), no Vrf Status",
        "doMountContainer4(red), VRF ID: 1", "doMountsComplete Initialized --> True",
        "Creating vrfReadyStatus and vrfRibSeqTrigger for vrf: red"}) {
    EXPECT_TRUE(traces.has(m)) << m;
  }
  // Everything but the default VRF's IPv6 metric table: still not ready,
  // for IPv4 too. Its arrival re-evaluates the default VRF alone.
  w.metricIs(false, 0, Rib::Transport::ipv4, true);
  w.metricIs(false, 0, Rib::Transport::evpn, true);
  w.vrfInputsIs("red", 1);
  EXPECT_FALSE(w.root().readyVrfIpv4Has(L3::VrfName("red")));
  w.metricIs(false, 0, Rib::Transport::ipv6, true);
  EXPECT_FALSE(w.root().readyVrfIpv4Has(L3::VrfName("red")));
  traces.capture.clear();
  w.loopingIs(0, "red", false);
  w.loopingIs(0, "red", true);
  EXPECT_TRUE(w.root().readyVrfIpv4Has(L3::VrfName("red")));
  EXPECT_TRUE(traces.has("Attempt to create container sm for vrf red"));
  // Evaluated again, a ready VRF stays ready: nobody hears of it.
  struct Counter : ReadyVrfSets::Notifiee {
    int calls = 0;
    void onReadyVrfIpv4(const L3::VrfName&) override { ++calls; }
  };
  const auto counter = Kel::makePtr<Counter>();
  counter->notifierIs(w.root().readyVrfSets().ptr());
  w.root().setReadyVrf(L3::VrfName("red"));
  EXPECT_EQ(counter->calls, 0);
  // A transport the VRF lacks is named by number.
  w.metrics->viaMetricStatusByTransportIs(9);
  traces.capture.clear();
  EXPECT_FALSE(w.root().viaMetricStatus(Rib::Transport::ipv6, 9, "rib"));
  EXPECT_TRUE(traces.has("viaMetricStatus(9), no transport 2 Status"));
}

TEST(RootSmTest, AProtocolWithoutTheMulticastRibMountsOnlyTheMulticastGraph) {
  Rib::RoutingProtocolHelper::mribProtocolIs(4, false);
  RootTraces traces;
  RootWorld w;
  w.config.protocol = 4;
  w.defaultVrfMetricsIs(true);
  w.vrfIs("red", 1);
  w.vrfInputsIs("red", 1);
  std::set<Kel::String> published;
  for (const auto& [path, entity] : w.platform.stateDb->entity()) published.insert(path);
  w.start();
  EXPECT_TRUE(w.root().readyVrfIpv4Has(L3::VrfName("red")));
  EXPECT_TRUE(w.root().mcReadyVrfIpv4().empty());
  EXPECT_TRUE(traces.has("setMcReadyVrfIpv4 No Mrib routing protocol configured"));
  w.intfIs(AddressFamily::ipv6, "red", false);
  EXPECT_TRUE(traces.has("setMcReadyVrfIpv6 No Mrib routing protocol configured"));
  // What the start added under "mrib" (the platform's own tables were there before).
  std::vector<std::string> multicast;
  for (const auto& [path, entity] : w.platform.stateDb->entity()) {
    if (path.view().find("mrib") != std::string_view::npos && !published.count(path)) {
      multicast.emplace_back(path.view());
    }
  }
  EXPECT_EQ(multicast, std::vector<std::string>{std::string(
                           Rib::Ip::GlobalNextHopDependencyGraph::mountPath("mrib").view())});
  EXPECT_EQ(mountsOf(*w.agent->shmemMountGroup()).size(), 1u);
  Rib::RoutingProtocolHelper::mribProtocolReset();
}

TEST(RootSmTest, TheVrfIdTableIsReadAgainAfterCorruption) {
  RootWorld w;
  w.defaultVrfMetricsIs(true);
  w.vrfInputsIs("red", 1);
  w.metricIs(false, 1, Rib::Transport::ipv4, false);
  w.names->vrfNameToIdIs(L3::VrfName("red"), 1);  // named, but not in the id table yet
  w.start();
  RootTraces traces;
  w.metricIs(false, 1, Rib::Transport::ipv4, true);
  EXPECT_TRUE(traces.has("handleViaMetricStatus(1), No Vrf Entry"));
  EXPECT_FALSE(w.root().readyVrfIpv4Has(L3::VrfName("red")));
  // The entry's arrival is read through three corrupt reads, each reported.
  w.vrfIds->corruptionIs(3);
  w.vrfIds->vrfEntryIs(1, L3::VrfName("red"));
  EXPECT_EQ(w.vrfIds->corruptionsDetected(), 3u);
  EXPECT_TRUE(w.root().readyVrfIpv4Has(L3::VrfName("red")));
  // A table that stays corrupt is given up on for the trigger, each read
  // reported: red keeps its state although its metric table went.
  w.vrfIds->corruptionIs(1000);
  w.metricIs(false, 1, Rib::Transport::ipv4, false);
  const uint32_t reported = w.vrfIds->corruptionsDetected() - 3;
  EXPECT_GT(reported, 0u);
  EXPECT_EQ(reported % RootSm::maxCorruptReads, 0u);
  EXPECT_TRUE(
      traces.has("vrfEntry(1), still corrupt: corruption detected in Vrf::VrfIdMap::Status"));
  EXPECT_TRUE(w.root().readyVrfIpv4Has(L3::VrfName("red")));
  // Repaired, the next trigger is read through.
  w.vrfIds->corruptionIs(0);
  w.metricIs(false, 1, Rib::Transport::ipv6, false);
  EXPECT_FALSE(w.root().readyVrfIpv4Has(L3::VrfName("red")));
  // A stored name longer than its buffer is the platform's invalid-size error.
  EXPECT_THROW(w.vrfIds->vrfEntryRawIs(1, std::string(140, 'x')), Kel::InvalidSizeError);
}

// ------------------------------------------------------------ dump

TEST(RootSmTest, TheDumpShowsTheSharedViaTablesAndTheViaSets) {
  RootWorld w;
  w.start();
  // Per-VRF via tables: both sections are NULL; the blanks end the line
  // before each title.
  const Kel::Ptr<Quay::DumpContext> perVrf = Quay::dumpContextFactory();
  w.root().dumpState(perVrf, 4);
  EXPECT_EQ(perVrf->text(),
            "    ProtocolRootSm\n"
            "      \nIPv4 ViaConfig\n"
            "      NULL\n"
            "      \nIPv6 ViaConfig\n"
            "      NULL\n"
            "    Routing::Rib::ViaSetConfig Value('Routing::Rib::ViaSetConfigKey', ** "
            "{'protocol': 2, 'instance': 0}) viaSets 0\n");
  w.agent = nullptr;

  ViaConfigLib::allVrfViaConfigIs("rib", "ipv4", "static", true);
  ViaConfigLib::allVrfViaConfigIs("rib", "ipv6", "static", true);
  w.start();
  const Rib::ViaKey via(Rib::ViaKey::kindIpv4, 1, RootWorld::staticProtocol, 3);
  w.root().ipv4AllVrfViaConfig()->viaIs(
      via, Rib::Via(Pando::IpGenAddr::fromV4(0xc0000201u), Pando::IntfId("Ethernet3")));
  Rib::Brisk::ViaSet set;
  set.viaKeyIs(0, via);
  const auto held = w.root().viaSetConfig()->dedupConfigViaSetIs(set);
  const Kel::Ptr<Quay::DumpContext> shared = Quay::dumpContextFactory();
  w.root().dumpState(shared, 0);
  EXPECT_EQ(shared->text(),
            "ProtocolRootSm\n"
            "  \nIPv4 ViaConfig\n"
            "  Routing::Rib::Ip::ViaConfig rib transport 1 rp 0 vias 1\n"
            "    via(1:1:2:3) 192.0.2.1 intf Ethernet3\n"
            "  \nIPv6 ViaConfig\n"
            "  Routing::Rib::Ip::ViaConfig rib transport 1 rp 0 vias 0\n"
            "Routing::Rib::ViaSetConfig Value('Routing::Rib::ViaSetConfigKey', ** "
            "{'protocol': 2, 'instance': 0}) viaSets 1\n"
            "  1 flags 0x0: via(1:1:2:3)\n");
  ViaConfigLib::allVrfViaConfigReset();
}

// ------------------------------------------------------------ faults

TEST(RootSmDeathTest, ReadinessNeedsGrStateBeforeTheMountsComplete) {
  EXPECT_DEATH(
      {
        RootWorld w;
        w.defaultVrfMetricsIs(true);
        w.vrfIs("red", 1);
        w.vrfInputsIs("red", 1);
        const auto mg = Cairn::mountGroupFactory(w.platform.stateDb);
        const auto smg = KelSharedMem::mountGroupFactory(w.platform.sharedMem);
        const auto root =
            RootSm::RootSmIs(w.platform.stateDb, mg, w.platform.sharedMem, smg, 100, 100, 4, 2,
                             w.platform.allVrfReadyStatus, w.platform.allVrfRibSeqTrigger);
        root->doMountsComplete();
      },
      "grState\\(\\)");
}

TEST(RootSmDeathTest, AVrfNeedsTheSharedReadinessCollections) {
  EXPECT_DEATH(
      {
        RootWorld w;
        w.vrfIs("red", 1);
        const auto mg = Cairn::mountGroupFactory(w.platform.stateDb);
        const auto smg = KelSharedMem::mountGroupFactory(w.platform.sharedMem);
        const auto root = RootSm::RootSmIs(w.platform.stateDb, mg, w.platform.sharedMem, smg, 100,
                                           100, 4, 2, nullptr, nullptr);
        root->grStateIs(false);
        root->doMountsComplete();
      },
      "allVrfReadyStatus\\(\\)");
}

}  // namespace
}  // namespace Routing::Protocol::Test
