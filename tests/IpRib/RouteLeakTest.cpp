// Route leaking, rule by rule, where the randomized model test does not
// already say it: value forms, the exact trace of each decision, the
// demux's choice told as a story, pacing, wiring order, bad arguments and
// the assertions.
//
//   VRFs red (1), blue (2), green (3), ipv4 unless said; VRF ids 5 and 3
//   leaking one prefix into 7 for the choice.
#include <gtest/gtest.h>

#include <csignal>
#include <map>
#include <string>
#include <vector>

#include "Kel/Error.h"
#include "Kel/Trace.h"
#include "tests/IpRib/RouteLeakWorld.h"

namespace Routing::Protocol::Test {
namespace {

using Pando::AddressFamily;
using Vrf::VrfIdMap::VrfId;

constexpr AddressFamily v4 = AddressFamily::ipv4;
const Routing::RouteKey p1(Pando::IpGenPrefix("10.1.0.0/16"), 1);

// ------------------------------------------------------------ values

TEST(RouteLeakValueTest, CanonicalFormsReadBackAndShortFormsTrace) {
  EXPECT_EQ(VrfIdAf().vrfId(), 0xffffffu);
  EXPECT_EQ(valueToStrep(VrfIdAf()),
            "Value('Routing::Protocol::VrfIdAf', ** {'vrfId': 16777215, 'af': ipunknown})");
  for (const VrfIdAf& v : {VrfIdAf(), VrfIdAf(3, v4), VrfIdAf(0, AddressFamily::ipv6)}) {
    EXPECT_EQ(Kel::strepToValue<VrfIdAf>(valueToStrep(v)), v);
  }
  const VrfPairAf pair(1, 2, AddressFamily::ipv6);
  EXPECT_EQ(valueToStrep(pair),
            "Value('Routing::Protocol::VrfPairAf', ** {'srcVrf': 1, 'dstVrf': 2, 'af': ipv6})");
  for (const VrfPairAf& v : {VrfPairAf(), pair}) {
    EXPECT_EQ(Kel::strepToValue<VrfPairAf>(valueToStrep(v)), v);
  }
  std::ostringstream os;
  os << VrfIdAf(3, v4) << " " << pair;
  EXPECT_EQ(os.str(), "(3, ipv4) (1-2, ipv6)");
}

TEST(RouteLeakValueTest, BadTextNamesWhatIsWrong) {
  try {
    Kel::strepToValue<VrfPairAf>(
        "Value('Routing::Protocol::VrfPairAf', ** {'srcVrf': 1, 'dstVrf': 99999999999, 'af': "
        "ipv4})");
    FAIL();
  } catch (const Kel::DeserializationError& e) {
    EXPECT_EQ(e.attribute(), "dstVrf");
  }
  EXPECT_THROW(Kel::strepToValue<VrfIdAf>(
                   "Value('Routing::Protocol::VrfIdAf', ** {'af': ipv4, 'vrfId': 1})"),
               Kel::ParseError);
  EXPECT_THROW(Kel::strepToValue<VrfIdAf>(
                   "Value('Routing::Protocol::VrfPairAf', ** {'vrfId': 1, 'af': ipv4})"),
               Kel::ParseError);
}

TEST(RouteLeakValueTest, OrderIsByVrfIdThenFamily) {
  EXPECT_LT(VrfIdAf(1, AddressFamily::ipv6), VrfIdAf(2, v4));
  EXPECT_LT(VrfIdAf(1, v4), VrfIdAf(1, AddressFamily::ipv6));
  EXPECT_LT(VrfIdAf(0xfffffe, v4), VrfIdAf(0xffffff, v4));
  EXPECT_LT(VrfPairAf(1, 9, v4), VrfPairAf(2, 0, v4));
  EXPECT_LT(VrfPairAf(1, 2, AddressFamily::ipv6), VrfPairAf(1, 3, v4));
  EXPECT_EQ(VrfIdAf(1, v4).hash(7), VrfIdAf(1, v4).hash(7));
  EXPECT_NE(VrfIdAf(1, v4).hash(7), VrfIdAf(1, v4).hash(8));
}

TEST(RouteLeakValueTest, HoldersKeepALeakRouteTheDirectoryDropped) {
  struct Counter : LeakRouteDir::Notifiee {
    int calls = 0;
    void onLeakRoute(const Routing::RouteKey&) override { ++calls; }
  };
  auto dir = leakRouteDirFactory();
  const auto counter = Kel::makePtr<Counter>();
  counter->notifierIs(dir.ptr());
  auto list = leakRouteListFactory(VrfPairAf(1, 2, v4));
  auto config = leakRouteConfigFactory(VrfIdAf(2, v4));
  const Kel::Ptr<const Routing::Route> route = RouteLeakWorld::route("10.1.0.0/16", 1, "blue");
  const Kel::Ptr<LeakRoute> lr = dir->leakRouteIs(VrfIdAf(1, v4), route);
  list->leakRouteIs(lr);
  config->leakRouteIs(lr);
  const LeakRoute* raw = lr.ptr();
  const_cast<Kel::Ptr<LeakRoute>&>(lr) = nullptr;
  dir->leakRouteDel(p1);
  dir->leakRouteDel(p1);
  EXPECT_EQ(counter->calls, 2) << "filed, then gone";
  EXPECT_EQ(list->leakRoute(p1).ptr(), raw);
  EXPECT_EQ(raw->references(), 2u);
  list->leakRouteDel(p1);
  EXPECT_EQ(config->leakRoute(p1)->route(), route);
  config->leakRouteDel(p1);
  EXPECT_EQ(route->references(), 1u);
  EXPECT_EQ(std::string(dir->typeName()), "Routing::Protocol::LeakRouteDir");
}

// ------------------------------------------------------------ the leak, with traces

// The facility's decisions (level 9) while it lives.
class LeakTrace {
 public:
  LeakTrace() : facility_(*Kel::TraceRegistry::instance().facility("IpRib::ProtocolRouteLeakSm")) {
    saved_ = facility_.textLevels();
    facility_.textLevelIs(9, true);
  }
  ~LeakTrace() { facility_.textLevelIs(9, (saved_ >> 9) & 1u); }
  std::vector<std::string> messages() const { return capture_.messages(); }
  void clear() { capture_.clear(); }

 private:
  Kel::TraceFacility& facility_;
  uint32_t saved_;
  Kel::TraceCapture capture_;
};

class RouteLeakTest : public ::testing::Test {
 protected:
  RouteLeakTest() {
    w.names->vrfNameToIdIs(L3::VrfName("red"), 1);
    w.names->vrfNameToIdIs(L3::VrfName("blue"), 2);
    w.names->vrfNameToIdIs(L3::VrfName("green"), 3);
  }

  // Creates VRF `id` in the root with a route list and config of its own.
  void createVrf(VrfId id, AddressFamily af = v4) {
    lists[id] = Routing::routeListFactory(af);
    configs[id] = leakRouteConfigFactory(VrfIdAf(id, af));
    w.root->createVrf(VrfIdAf(id, af), lists[id], configs[id]);
  }
  Kel::Ptr<LeakRouteListSet> output(VrfId id) {
    return w.root->muxSm(VrfIdAf(id, v4))->outputLeakRouteListSet();
  }
  // The source VRF of what `id`'s config holds for `k`; 0 for nothing.
  VrfId sourceIn(VrfId id, const Routing::RouteKey& k = p1) {
    const Kel::Ptr<const LeakRoute> lr = configs[id]->leakRoute(k);
    return lr ? lr->vrfAf().vrfId() : 0;
  }

  RouteLeakWorld w;
  std::map<VrfId, Kel::Ptr<Routing::RouteList>> lists;
  std::map<VrfId, Kel::Ptr<LeakRouteConfig>> configs;
};

TEST_F(RouteLeakTest, ARouteLeaksOnlyIntoAnotherKnownVrf) {
  createVrf(1);
  createVrf(2);
  w.runUntilIdle();
  LeakTrace trace;
  for (const char* target : {"red", "ghost", ""}) {
    lists[1]->routeIs(RouteLeakWorld::route("10.1.0.0/16", 1, target));
  }
  EXPECT_EQ(trace.messages(),
            (std::vector<std::string>{"handleRoute leak to vrf is red (1)",
                                      "handleRoute leak to vrf is ghost (16777215)"}));
  EXPECT_EQ(w.root->muxSm(VrfIdAf(1, v4))->leakRouteDir()->leakRoutes(), 0u);
  // Leaking into blue, then withdrawn when the target turns into its own VRF.
  lists[1]->route(p1)->leakVrfNameIs(L3::VrfName("blue"));
  EXPECT_EQ(sourceIn(2), 1u);
  trace.clear();
  lists[1]->route(p1)->leakVrfNameIs(L3::VrfName("red"));
  EXPECT_EQ(trace.messages(),
            (std::vector<std::string>{"handleRoute leak to vrf is red (1)",
                                      "maybeCleanupLrl deleting LRL destined to 2",
                                      "handleLrl removing lrl for (1-2, ipv4) from (2, ipv4)"}));
  EXPECT_EQ(configs[2]->leakRoutes(), 0u);
  EXPECT_EQ(output(1)->leakRouteLists(), 0u);
}

TEST_F(RouteLeakTest, ANewTargetMovesTheRouteToAnotherList) {
  createVrf(1);
  w.runUntilIdle();
  lists[1]->routeIs(RouteLeakWorld::route("10.1.0.0/16", 1, "blue"));
  lists[1]->routeIs(RouteLeakWorld::route("10.2.0.0/16", 1, "blue"));
  LeakTrace trace;
  lists[1]->route(p1)->leakVrfNameIs(L3::VrfName("green"));
  EXPECT_EQ(trace.messages(),
            (std::vector<std::string>{
                "handleRoute leak to vrf is green (3)", "handleRoute old leak to is (2, ipv4)",
                "findLrl creating LRL from (1, ipv4) to (1-3, ipv4)",
                "handleLrl no demux SM for (3, ipv4)", "handleRoute deleting route from old vrf ",
                "maybeCleanupLrl nothing to do!"}));
  EXPECT_EQ(output(1)->leakRouteList(VrfPairAf(1, 2, v4))->leakRoutes(), 1u);
  EXPECT_EQ(output(1)->leakRouteList(VrfPairAf(1, 3, v4))->leakRoutes(), 1u);
  lists[1]->routeDel(Routing::RouteKey(Pando::IpGenPrefix("10.2.0.0/16"), 1));
  EXPECT_FALSE(output(1)->leakRouteList(VrfPairAf(1, 2, v4)));
}

TEST_F(RouteLeakTest, AReplacedRouteObjectIsANewLeakRouteInTheSameList) {
  createVrf(1);
  createVrf(2);
  w.runUntilIdle();
  lists[1]->routeIs(RouteLeakWorld::route("10.1.0.0/16", 1, "blue"));
  lists[1]->routeIs(RouteLeakWorld::route("10.9.0.0/16", 1, "blue"));
  const Kel::Ptr<const LeakRoute> before = configs[2]->leakRoute(p1);
  LeakTrace trace;
  const auto replacement = RouteLeakWorld::route("10.1.0.0/16", 1, "blue");
  lists[1]->routeIs(replacement);
  EXPECT_EQ(
      trace.messages(),
      (std::vector<std::string>{
          "handleRoute leak to vrf is blue (2)",
          "handleRoute route leaked with key 10.1.0.0/16 pref 1 has changed, deleting old "
          "one and recreating",
          "maybeCleanupLrl nothing to do!",
          "handleRoute creating leakRoute for 10.1.0.0/16 "
          "pref 1",
          "handleRoute old leak to is (16777215, ipunknown)", "maybeCleanupLrl nothing to do!"}));
  EXPECT_NE(configs[2]->leakRoute(p1), before);
  EXPECT_EQ(configs[2]->leakRoute(p1)->route().ptr(), replacement.ptr());
  // The same object and target again change nothing.
  trace.clear();
  replacement->metricIs(20);
  EXPECT_EQ(trace.messages(),
            (std::vector<std::string>{"handleRoute leak to vrf is blue (2)",
                                      "handleRoute old leak to is (2, ipv4)",
                                      "handleRoute old and new VRF are same ",
                                      "handleRoute no change for 10.1.0.0/16 pref 1"}));
}

TEST_F(RouteLeakTest, TheLowestSourceVrfWinsAKeyWhateverTheOrder) {
  w.names->vrfNameToIdIs(L3::VrfName("seven"), 7);
  createVrf(7);
  createVrf(5);
  createVrf(3);
  w.runUntilIdle();
  lists[5]->routeIs(RouteLeakWorld::route("10.1.0.0/16", 1, "seven"));
  EXPECT_EQ(sourceIn(7), 5u);
  lists[3]->routeIs(RouteLeakWorld::route("10.1.0.0/16", 1, "seven"));
  EXPECT_EQ(sourceIn(7), 3u);
  EXPECT_EQ(configs[7]->leakRoute(p1)->route().ptr(), lists[3]->route(p1).ptr());
  // 3 stops leaking P: its list goes, and with it every key of 7 is decided again.
  lists[3]->route(p1)->leakVrfNameIs(L3::VrfName());
  EXPECT_EQ(w.root->demuxSm(VrfIdAf(7, v4))->backlogs(), 1u);
  w.runUntilIdle();
  EXPECT_EQ(sourceIn(7), 5u);
  lists[5]->routeDel(p1);
  w.runUntilIdle();
  EXPECT_EQ(configs[7]->leakRoutes(), 0u);
}

TEST_F(RouteLeakTest, ReviewsRunInSlicesFromABookmark) {
  for (int i = 0; i < 10; ++i) {
    auto r = RouteLeakWorld::route("10." + std::to_string(i) + ".0.0/16", 1, "blue");
    (lists[1] = lists[1] ? lists[1] : Routing::routeListFactory(v4))->routeIs(r);
  }
  configs[1] = leakRouteConfigFactory(VrfIdAf(1, v4));
  createVrf(2);
  w.root->createVrf(VrfIdAf(1, v4), lists[1], configs[1]);
  // Nothing is examined at start; then each read of the clock takes 30 ms.
  EXPECT_EQ(configs[2]->leakRoutes(), 0u);
  w.time.time().stepIs(0.03);
  Kel::TraceFacility& facility =
      *Kel::TraceRegistry::instance().facility("IpRib::ProtocolRouteLeakSm");
  // The decisions go to the ring too (Duallog).
  const uint32_t saved = facility.ringLevels();
  facility.ringLevelIs(9, true);
  facility.ringlog().clear();
  w.runUntilIdle();
  facility.ringLevelIs(9, (saved >> 9) & 1u);
  std::ostringstream ring;
  facility.dump(ring);
  EXPECT_NE(ring.str().find("doReview pausing review after 4 checks this run."), std::string::npos);
  EXPECT_NE(ring.str().find("doReview review complete with 2 checks this run."), std::string::npos);
  EXPECT_EQ(w.root->muxSm(VrfIdAf(1, v4))->reviewPauses(), 2u);
  EXPECT_EQ(configs[2]->leakRoutes(), 10u);
  // The demux decides a lost list's keys again in slices too.
  w.root->deleteVrf(VrfIdAf(1, v4));
  EXPECT_EQ(w.root->demuxSm(VrfIdAf(2, v4))->backlogs(), 10u);
  w.runUntilIdle();
  EXPECT_EQ(w.root->demuxSm(VrfIdAf(2, v4))->reviewPauses(), 2u);
  EXPECT_EQ(configs[2]->leakRoutes(), 0u);
}

TEST_F(RouteLeakTest, AnEmptyBacklogLeavesTheClockAlone) {
  createVrf(2);
  w.runUntilIdle();
  const Kel::Ptr<Leak::DemuxSm> demux = w.root->demuxSm(VrfIdAf(2, v4));
  demux->scheduleReview();
  EXPECT_EQ(demux->clock()->timeMin(), Kel::Clock::never);
  demux->backlogIs(p1);
  demux->scheduleReview();
  EXPECT_EQ(demux->clock()->timeMin(), 0.0);
}

// ------------------------------------------------------------ wiring and root

TEST_F(RouteLeakTest, ADestinationCreatedLaterFindsTheListsAimedAtIt) {
  createVrf(1);
  createVrf(2, AddressFamily::ipv6);
  w.runUntilIdle();
  lists[1]->routeIs(RouteLeakWorld::route("10.1.0.0/16", 1, "green"));
  LeakTrace trace;
  createVrf(3);
  EXPECT_EQ(trace.messages(),
            (std::vector<std::string>{"handleLrlpSet adding lrl for (1-3, ipv4) to (3, ipv4)",
                                      "handleLrlpSet ignoring"}));
  w.runUntilIdle();
  EXPECT_EQ(sourceIn(3), 1u);
  // Deleting the source withdraws its list from every destination.
  trace.clear();
  w.root->deleteVrf(VrfIdAf(1, v4));
  EXPECT_EQ(trace.messages(),
            (std::vector<std::string>{"handleLrlpSet set deleted, nothing to do.",
                                      "handleLrlSet removing lrl for (1-3, ipv4) from (3, ipv4)"}));
  EXPECT_EQ(w.root->demuxSmSet(VrfIdAf(3, v4))->leakRouteLists(), 0u);
  w.root->deleteVrf(VrfIdAf(9, v4));  // unknown: harmless
}

TEST_F(RouteLeakTest, BadArgumentsOfCreateVrfChangeNothing) {
  const auto list = Routing::routeListFactory(v4);
  const auto config = leakRouteConfigFactory(VrfIdAf(1, v4));
  EXPECT_THROW(w.root->createVrf(VrfIdAf(1, v4), nullptr, config), Kel::NullArgumentError);
  try {
    w.root->createVrf(VrfIdAf(2, v4), list, config);
    FAIL();
  } catch (const Kel::RangeError& e) {
    EXPECT_STREQ(e.what(), "createVrf (2, ipv4): leak route config of (1, ipv4)");
  }
  EXPECT_THROW(w.root->createVrf(VrfIdAf(1, AddressFamily::ipv6), list, config), Kel::RangeError);
  EXPECT_FALSE(w.root->demuxSmSet(VrfIdAf(2, v4)));
  EXPECT_EQ(w.root->demuxSmSetDir()->lrlpSets(), 0u);
  w.root->createVrf(VrfIdAf(1, v4), list, config);
  EXPECT_TRUE(w.root->muxSm(VrfIdAf(1, v4)));
}

// ------------------------------------------------------------ assertions

using RouteLeakDeathTest = RouteLeakTest;

TEST_F(RouteLeakDeathTest, OutOfStepCallsEndTheProcess) {
  EXPECT_DEATH(Leak::rootSmFactory(nullptr),
               "Assertion failed: \"vrfNameToIdMap\\(\\)\" in module ProtocolRouteLeakSm, "
               "function handleInitialized");
  createVrf(1);
  EXPECT_DEATH(w.root->createVrf(VrfIdAf(1, v4), lists[1], configs[1]),
               "Assertion failed: \"!demuxSm\\( vrfIdAf \\) && !demuxSmSet\\( vrfIdAf \\)\" in "
               "module ProtocolRouteLeakSm, function createVrf");
  EXPECT_DEATH(w.root->demuxSm(VrfIdAf(1, v4))->handleLeakRouteList(VrfPairAf(2, 3, v4)),
               "Assertion failed: \"key.dstVrf\\(\\) == vrfIdAf\\(\\).vrfId\\(\\)\" in module "
               "ProtocolRouteLeakSm, function handleLeakRouteList");
  // A list deleted behind the mux's back.
  w.runUntilIdle();
  lists[1]->routeIs(RouteLeakWorld::route("10.1.0.0/16", 1, "blue"));
  output(1)->leakRouteListDel(VrfPairAf(1, 2, v4));
  EXPECT_DEATH(lists[1]->routeDel(p1),
               "Assertion failed: \"oldLrl\" in module ProtocolRouteLeakSm, function "
               "handleRouteDelete");
}

}  // namespace
}  // namespace Routing::Protocol::Test
