// A container over the RIB's tables with the agent's ViaMetricStatusSm
// beside it: the protocol loads routes, the RIB changes via metrics, and
// exactly the routes that use the changed via are evaluated again, with the
// RIB output held against the reference model of route selection.
//
//   VRF "red" (id 3), IPv4 and IPv6 alike; vias 1 to 8 of the protocol's
//   selector; prefixes 10.<n>.0.0/24 (2001:db8:<n+1>::/48, clear of the next hops), each with one
//   or two preferences of one to three vias of random types and metrics.
#include <gtest/gtest.h>

#include <map>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "IpRib/ProtocolViaMetricStatusSm.h"
#include "Kel/Trace.h"
#include "tests/IpRib/ContainerSmFixture.h"
#include "tests/IpRib/RouteSelectionModel.h"

namespace Routing::Protocol::Test {
namespace {

using Pando::IpGenPrefix;

constexpr uint32_t viaCount = 8;
constexpr uint32_t prefixCount = 40;

class ContainerIntegrationTest : public ::testing::TestWithParam<Pando::AddressFamily> {
 protected:
  void SetUp() override {
    c.build();
    dir->statusIs(c.container->status());
    metricSm = ViaMetricStatusSm::ViaMetricStatusSmIs(c.w.metricTree, dir);
    for (uint32_t i = 1; i <= viaCount; ++i) c.w.viaRecordIs(i);
  }
  void TearDown() override {
    trace().textLevelIs(8, false);
    metricSm = nullptr;
  }

  IpGenPrefix prefixOf(uint32_t n) const {
    return IpGenPrefix(GetParam() == Pando::AddressFamily::ipv4
                           ? "10." + std::to_string(n) + ".0.0/24"
                           : "2001:db8:" + std::to_string(n + 1) + "::/48");
  }
  static Kel::TraceFacility& trace() {
    return *Kel::TraceRegistry::instance().facility("IpRib::RouteStatusSm");
  }
  void metricIs(uint32_t i, const Rib::ViaMetric& m) { c.w.ipMetrics->viaMetricIs(c.w.via(i), m); }
  // The prefixes whose preferences list via i, from the protocol's status.
  std::set<std::string> usersOf(uint32_t i) const {
    std::set<std::string> out;
    for (const Kel::Ptr<Route>& route : c.container->status()->route()) {
      for (const Kel::Ptr<RoutePref>& pref : route->routePref()) {
        for (const Kel::Ptr<DedupViaKeyByViaType>& byType : pref->dedupViaKeyByViaType()) {
          if (byType->dedupViaKey(c.w.via(i))) out.insert(Pando::valueToStrep(route->prefix()));
        }
      }
    }
    return out;
  }
  // Evaluations per prefix, read off the level 8 trace " handleRoute <prefix>".
  static std::map<std::string, int> evaluated(const Kel::TraceCapture& capture) {
    std::map<std::string, int> count;
    const std::string mark = "Vrf: red handleRoute ";
    for (const std::string& m : capture.messages()) {
      if (m.rfind(mark, 0) == 0) ++count[m.substr(mark.size())];
    }
    return count;
  }
  // The RIB route of every loaded prefix is the model's; empty when so.
  std::string ribAgainstModel() const {
    const SelectionInputs in{*c.container->status(),
                             *c.w.metricTree,
                             *c.w.viaConfig,
                             *c.w.auxViaConfig,
                             *c.w.graph,
                             *c.w.bfdList,
                             true,
                             testVrfId,
                             GetParam()};
    std::ostringstream out;
    for (uint32_t n = 0; n < prefixCount; ++n) {
      const IpGenPrefix p = prefixOf(n);
      const Expectation e = expectedRoute(in, p);
      const Rib::Route* rib = c.w.ribRoute(p);
      if (e.kind == Expectation::Kind::unknown) {
        out << p << ": not ready\n";
      } else if (e.kind == Expectation::Kind::absent) {
        if (rib) out << p << ": model none, rib " << modelRouteOf(*rib) << "\n";
      } else if (!rib || !(modelRouteOf(*rib) == e.route)) {
        out << p << ": model " << e.route << ", rib ";
        if (rib) out << modelRouteOf(*rib);
        out << "\n";
      }
    }
    return out.str();
  }

  ContainerWorld c{GetParam()};
  Kel::Ptr<RouteStatusDir> dir = routeStatusDirFactory();
  Kel::Ptr<ViaMetricStatusSm> metricSm;
};

TEST_P(ContainerIntegrationTest, AViaMetricChangeReevaluatesExactlyTheRoutesThatUseTheVia) {
  // p0: via 1 at preference 1, via 2 at preference 2; p1: via 2; p2: via 3.
  const IpGenPrefix p0 = prefixOf(0), p1 = prefixOf(1), p2 = prefixOf(2);
  for (uint32_t i = 1; i <= 3; ++i) metricIs(i, Rib::ViaMetric(Rib::MetricPref(1, 1)));
  c.w.addVia(p0, 1, ViaTypeEnum::viaIntfNextHop, 1);
  c.w.addVia(p0, 2, ViaTypeEnum::viaIntfNextHop, 2);
  c.w.addVia(p1, 1, ViaTypeEnum::viaIntfNextHop, 2);
  c.w.addVia(p2, 1, ViaTypeEnum::viaIntfNextHop, 3);
  c.container->status()->initializedIs(true);
  c.w.runUntilQuiet();
  // Adding a via stamped each route: all are ready and in the RIB.
  ASSERT_NE(c.w.ribRoute(p0), nullptr);
  EXPECT_EQ(c.w.ribRoute(p0)->metricPref().preference, 1);
  EXPECT_EQ(c.w.ribVias(p1), std::vector<uint32_t>{2});

  trace().textLevelIs(8, true);
  Kel::TraceCapture capture;
  const uint64_t before = c.container->routeStatusSm()->evaluations();
  c.w.time.time().advance(1);
  metricIs(1, Rib::ViaMetric());  // via 1 unresolved: p0 falls back to preference 2
  EXPECT_EQ(evaluated(capture), (std::map<std::string, int>{{Pando::valueToStrep(p0), 1}}));
  EXPECT_EQ(c.container->routeStatusSm()->evaluations(), before + 1);
  ASSERT_NE(c.w.ribRoute(p0), nullptr);
  EXPECT_EQ(c.w.ribRoute(p0)->metricPref().preference, 2);

  capture.clear();
  c.w.time.time().advance(1);
  metricIs(2, Rib::ViaMetric(Rib::MetricPref(1, 1), true));  // via 2 loops
  EXPECT_EQ(evaluated(capture), (std::map<std::string, int>{{Pando::valueToStrep(p0), 1},
                                                            {Pando::valueToStrep(p1), 1}}));
  EXPECT_EQ(c.w.ribRoute(p0), nullptr);
  EXPECT_EQ(c.w.ribRoute(p1), nullptr);
  EXPECT_EQ(c.w.ribVias(p2), std::vector<uint32_t>{3});
  EXPECT_EQ(ribAgainstModel(), "");
}

TEST_P(ContainerIntegrationTest, RandomMetricChangesKeepTheRibOnTheModel) {
  const uint32_t seed = 61101;
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 rng(seed);
  const ViaTypeEnum types[] = {ViaTypeEnum::viaIntfNextHop, ViaTypeEnum::viaNextHopOnly,
                               ViaTypeEnum::viaIntfOnly};
  for (uint32_t i = 1; i <= viaCount; ++i) {
    if (rng() % 4 != 0) metricIs(i, Rib::ViaMetric(Rib::MetricPref(1, 1 + rng() % 3)));
  }
  for (uint32_t n = 0; n < prefixCount; ++n) {
    const uint32_t prefs = 1 + rng() % 2;
    for (uint32_t k = 0; k < prefs; ++k) {
      const RoutePreference pref = RoutePreference(1 + rng() % 3);
      const uint32_t vias = 1 + rng() % 3;
      for (uint32_t v = 0; v < vias; ++v) {
        c.w.addVia(prefixOf(n), pref, types[rng() % 3], 1 + rng() % viaCount, rng() % 3);
      }
    }
  }
  c.container->status()->initializedIs(true);
  c.w.runUntilQuiet();
  ASSERT_EQ(ribAgainstModel(), "") << "after loading";

  trace().textLevelIs(8, true);
  Kel::TraceCapture capture;
  for (int event = 0; event < 200; ++event) {
    const uint32_t i = 1 + rng() % viaCount;
    const uint32_t op = rng() % 4;
    const Rib::ViaMetric* now = c.w.ipMetrics->viaMetric(c.w.via(i));
    Rib::ViaMetric next;
    if (op == 1) next = Rib::ViaMetric(Rib::MetricPref(1, 1 + rng() % 3));
    if (op == 2) next = Rib::ViaMetric(Rib::MetricPref(1, 1), true);
    if (op == 3) next = Rib::ViaMetric(Rib::MetricPref(2, 5), false, Rib::ViaMetric::sourceSpecial);
    const bool changes = op == 0 ? now != nullptr : !(now && *now == next);
    capture.clear();
    c.w.time.time().advance(1);
    if (op == 0) {
      c.w.ipMetrics->viaMetricDel(c.w.via(i));
    } else {
      metricIs(i, next);
    }
    c.w.runUntilQuiet();
    std::map<std::string, int> want;
    if (changes) {
      for (const std::string& p : usersOf(i)) want[p] = 1;
    }
    ASSERT_EQ(evaluated(capture), want) << "event " << event << ": via " << i << " op " << op;
    ASSERT_EQ(ribAgainstModel(), "") << "event " << event << ": via " << i << " op " << op;
  }
}

TEST_P(ContainerIntegrationTest, TheIndexForgetsAStatusThatLeaves) {
  metricIs(1, Rib::ViaMetric(Rib::MetricPref(1, 1)));
  c.w.addVia(prefixOf(0), 1, ViaTypeEnum::viaIntfNextHop, 1);
  c.w.addVia(prefixOf(1), 1, ViaTypeEnum::viaIntfNextHop, 2);
  EXPECT_EQ(metricSm->routeByViaKeySize(), 2u);
  const RouteStatusKey key = c.container->status()->key();
  c.w.status = nullptr;
  c.container = nullptr;
  dir->statusDel(key);
  EXPECT_EQ(metricSm->routeByViaKeySize(), 0u);
  metricIs(1, Rib::ViaMetric(Rib::MetricPref(1, 2)));  // nobody to stamp
}

INSTANTIATE_TEST_SUITE_P(Families, ContainerIntegrationTest,
                         ::testing::Values(Pando::AddressFamily::ipv4, Pando::AddressFamily::ipv6),
                         [](const auto& info) { return Pando::valueToStrep(info.param); });

}  // namespace
}  // namespace Routing::Protocol::Test
