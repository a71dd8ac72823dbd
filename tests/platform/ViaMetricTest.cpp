// RIB input tables: via metrics and their four-level tree, looping routes,
// via status. Notifications per element and on the table-level generation,
// checked against a plain model on random edits.
#include <gtest/gtest.h>

#include <map>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "platform/Routing/Rib/LoopingRouteStatus.h"
#include "platform/Routing/Rib/ViaMetricStatus.h"
#include "platform/Routing/Rib/ViaStatusByVrf.h"

namespace Routing::Rib {
namespace {

using Pando::IpGenPrefix;
using Vrf::VrfIdMap::VrfId;

template <class T>
std::string printed(const T& v) {
  std::ostringstream os;
  os << v;
  return os.str();
}

TEST(ViaMetric, EmptyMeansUnresolvedAndSpecialSourceRules) {
  const ViaMetric empty;
  EXPECT_TRUE(empty.isEmpty());
  EXPECT_EQ(empty, ViaMetric());
  EXPECT_FALSE(empty.usableAsVia());
  EXPECT_FALSE(empty.usableAsVtep());
  EXPECT_EQ(printed(empty), "unresolved");

  // A resolved metric of 0/0 is not the empty one.
  const ViaMetric zero(MetricPref(0, 0));
  EXPECT_FALSE(zero.isEmpty());
  EXPECT_FALSE(zero == empty);
  EXPECT_TRUE(zero.usableAsVia());
  EXPECT_EQ(printed(ViaMetric(MetricPref(1, 10), false, 2)), "1/10 source 2");
  EXPECT_EQ(printed(ViaMetric(MetricPref(1, 10), true)), "1/10 looping source 0");
  EXPECT_FALSE(ViaMetric(MetricPref(1, 10), true) == ViaMetric(MetricPref(1, 10)));
  EXPECT_FALSE(ViaMetric(MetricPref(1, 10), false, 3) == ViaMetric(MetricPref(1, 10)));

  // The special source: empty for a plain via; a VTEP only at the special preference.
  const ViaMetric specialAtVtepPref(MetricPref(ViaMetric::vtepSpecialPreference, 7), false,
                                    ViaMetric::sourceSpecial);
  const ViaMetric specialElsewhere(MetricPref(1, 7), false, ViaMetric::sourceSpecial);
  EXPECT_FALSE(specialAtVtepPref.usableAsVia());
  EXPECT_TRUE(specialAtVtepPref.usableAsVtep());
  EXPECT_FALSE(specialElsewhere.usableAsVia());
  EXPECT_FALSE(specialElsewhere.usableAsVtep());
  EXPECT_TRUE(ViaMetric(MetricPref(1, 7), false, 254).usableAsVtep());
}

// Records every notification of every level, one line each.
struct Log {
  std::vector<std::string> lines;
  std::vector<std::string> take() { return std::exchange(lines, {}); }
};

struct StatusWatch : ViaMetricStatus::Notifiee {
  explicit StatusWatch(Log* log) : log(log) {}
  void onViaMetric(const ViaKey& k) override { log->lines.push_back("metric " + printed(k)); }
  void onGeneration() override {
    log->lines.push_back("generation " + std::to_string(notifier()->generation()));
  }
  Log* log;
};
struct ByProtocolWatch : ViaMetricStatusByProtocol::Notifiee {
  explicit ByProtocolWatch(Log* log) : log(log) {}
  void onViaMetricStatus(uint32_t s) override {
    log->lines.push_back("selector " + std::to_string(s));
  }
  Log* log;
};
struct ByTransportWatch : ViaMetricStatusByTransport::Notifiee {
  explicit ByTransportWatch(Log* log) : log(log) {}
  void onViaMetricStatusByProtocol(uint8_t k) override {
    log->lines.push_back("kind " + std::to_string(k));
  }
  Log* log;
};
struct ByVrfWatch : ViaMetricStatusByVrf::Notifiee {
  explicit ByVrfWatch(Log* log) : log(log) {}
  void onViaMetricStatusByTransport(VrfId v) override {
    log->lines.push_back("vrf " + std::to_string(v));
  }
  Log* log;
};

using Lines = std::vector<std::string>;

TEST(ViaMetricStatusTree, PathIsCreatedOnceFoundAndNotifiedPerLevel) {
  Log log;
  auto byVrf = Kel::makePtr<ViaMetricStatusByVrf>();
  auto vrfWatch = Kel::makePtr<ByVrfWatch>(&log);
  vrfWatch->notifierIs(byVrf.ptr());

  const ViaKey a(ViaKey::kindIpv4, 3, 2, 1), b(ViaKey::kindIpv4, 3, 2, 9);
  EXPECT_EQ(byVrf->find(a), nullptr);
  Kel::Ptr<ViaMetricStatus> table = byVrf->viaMetricStatusIs(a);
  EXPECT_EQ(log.take(), Lines{"vrf 3"});  // the lower levels were made before anyone watched
  EXPECT_EQ(table->selector(), 2u);
  EXPECT_EQ(byVrf->find(a), table.ptr());
  EXPECT_EQ(byVrf->find(b), table.ptr());  // same VRF, kind and selector: same table
  EXPECT_EQ(byVrf->viaMetricStatusIs(b), table);
  EXPECT_TRUE(log.lines.empty());

  Kel::Ptr<ViaMetricStatusByTransport> byTransport = byVrf->viaMetricStatusByTransport(3);
  ASSERT_TRUE(byTransport);
  EXPECT_EQ(byTransport->vrfId(), 3u);
  Kel::Ptr<ViaMetricStatusByProtocol> byProtocol =
      byTransport->viaMetricStatusByProtocol(ViaKey::kindIpv4);
  ASSERT_TRUE(byProtocol);
  EXPECT_EQ(byProtocol->kind(), ViaKey::kindIpv4);
  EXPECT_EQ(byProtocol->viaMetricStatus(2), table);
  auto transportWatch = Kel::makePtr<ByTransportWatch>(&log);
  transportWatch->notifierIs(byTransport.ptr());
  auto protocolWatch = Kel::makePtr<ByProtocolWatch>(&log);
  protocolWatch->notifierIs(byProtocol.ptr());

  // Each missing level is made and announced by its parent, top down.
  byVrf->viaMetricStatusIs(ViaKey(ViaKey::kindIpv4, 3, 5, 1));
  byVrf->viaMetricStatusIs(ViaKey(ViaKey::kindEvpn, 3, 5, 1));
  byVrf->viaMetricStatusIs(ViaKey(ViaKey::kindIpv6, 4, 5, 1));
  EXPECT_EQ(log.take(), (Lines{"selector 5", "kind 3", "vrf 4"}));
  EXPECT_EQ(byTransport->viaMetricStatusByProtocolSize(), 2u);
  EXPECT_EQ(byVrf->viaMetricStatusByTransportSize(), 2u);
  EXPECT_EQ(byVrf->find(ViaKey(ViaKey::kindIpv6, 3, 5, 1)), nullptr);  // kind missing in VRF 3
  EXPECT_EQ(byVrf->find(ViaKey(ViaKey::kindIpv4, 3, 6, 1)), nullptr);  // selector missing

  byProtocol->viaMetricStatusDel(2);
  byProtocol->viaMetricStatusDel(2);
  byTransport->viaMetricStatusByProtocolDel(ViaKey::kindEvpn);
  byVrf->viaMetricStatusByTransportDel(4);
  byVrf->viaMetricStatusByTransportDel(4);
  EXPECT_EQ(log.take(), (Lines{"selector 2", "kind 3", "vrf 4"}));
  EXPECT_EQ(byVrf->find(a), nullptr);
}

TEST(ViaMetricStatusTree, GenerationNotifiesOnlyOnChange) {
  Log log;
  auto table = Kel::makePtr<ViaMetricStatus>(2);
  auto watch = Kel::makePtr<StatusWatch>(&log);
  watch->notifierIs(table.ptr());
  table->doBumpGeneration();
  table->doBumpGeneration();
  table->generationIs(2);
  table->generationIs(40);
  EXPECT_EQ(log.take(), (Lines{"generation 1", "generation 2", "generation 40"}));
}

// Random writes against a std::map: the table holds what the model holds,
// notifies exactly on the writes that change something, and iterates in an
// order that depends only on its keys.
TEST(ViaMetricStatusTree, RandomWritesMatchAModel) {
  const unsigned seed = 7177;
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 rng(seed);
  Log log;
  auto table = Kel::makePtr<ViaMetricStatus>();
  auto watch = Kel::makePtr<StatusWatch>(&log);
  watch->notifierIs(table.ptr());
  std::map<ViaKey, ViaMetric> model;
  for (int step = 0; step < 20000; ++step) {
    const ViaKey k(ViaKey::kindIpv4, 0, 0, rng() % 40);
    const size_t before = log.lines.size();
    bool changes;
    if (rng() % 3 == 0) {
      changes = model.erase(k) != 0;
      table->viaMetricDel(k);
    } else {
      const ViaMetric m =
          rng() % 5 == 0 ? ViaMetric() : ViaMetric(MetricPref(1, rng() % 3), rng() % 2 == 0);
      auto it = model.find(k);
      changes = it == model.end() || !(it->second == m);
      model[k] = m;
      table->viaMetricIs(k, m);
    }
    ASSERT_EQ(log.lines.size(), before + (changes ? 1 : 0)) << "step " << step;
    if (changes) {
      ASSERT_EQ(log.lines.back(), "metric " + printed(k));
    }
    ASSERT_EQ(table->viaMetricSize(), model.size());
  }
  for (const auto& [k, m] : model) {
    ASSERT_NE(table->viaMetric(k), nullptr) << k;
    EXPECT_EQ(*table->viaMetric(k), m) << k;
  }
  // The same keys written in reverse order iterate alike.
  ViaMetricStatus again;
  for (auto it = model.rbegin(); it != model.rend(); ++it) again.viaMetricIs(it->first, it->second);
  std::vector<ViaKey> order, orderAgain;
  for (const auto& e : table->viaMetric()) order.push_back(e.viaKey);
  for (const auto& e : again.viaMetric()) orderAgain.push_back(e.viaKey);
  EXPECT_EQ(order, orderAgain);
}

TEST(LoopingRouteStatus, PerVrfSetsNotifyOnChange) {
  struct Watch : LoopingRouteStatus::Notifiee {
    std::vector<IpGenPrefix> seen;
    void onLoopingRoute(const IpGenPrefix& p) override { seen.push_back(p); }
  };
  struct ByVrfWatch : LoopingRouteStatusByVrf::Notifiee {
    std::vector<L3::VrfName> seen;
    void onVrfStatus(const L3::VrfName& v) override { seen.push_back(v); }
  };
  auto byVrf = Kel::makePtr<LoopingRouteStatusByVrf>();
  auto vrfWatch = Kel::makePtr<ByVrfWatch>();
  vrfWatch->notifierIs(byVrf.ptr());
  const L3::VrfName redName(Kel::String("red"));
  Kel::Ptr<LoopingRouteStatus> red = byVrf->vrfStatusIs(redName);
  EXPECT_EQ(byVrf->vrfStatusIs(redName), red);
  EXPECT_EQ(red->vrfName(), redName);
  EXPECT_EQ(red->typeName(), std::string("Routing::Rib::LoopingRouteStatus"));
  auto watch = Kel::makePtr<Watch>();
  watch->notifierIs(red.ptr());

  const IpGenPrefix p("10.1.0.0/24"), q("2001:db8::/64");
  red->loopingRouteIs(p);
  red->loopingRouteIs(p);
  red->loopingRouteIs(q);
  EXPECT_TRUE(red->loopingRouteHas(p));
  EXPECT_FALSE(red->loopingRouteHas(IpGenPrefix("10.1.0.0/25")));
  EXPECT_EQ(red->loopingRouteSize(), 2u);
  red->loopingRouteDel(p);
  red->loopingRouteDel(p);
  EXPECT_EQ(watch->seen, (std::vector<IpGenPrefix>{p, q, p}));
  EXPECT_FALSE(red->loopingRouteHas(p));

  // Deleting by the set's own name: the name outlives the set.
  byVrf->vrfStatusDel(red->vrfName());
  byVrf->vrfStatusDel(redName);
  EXPECT_EQ(vrfWatch->seen, (std::vector<L3::VrfName>{redName, redName}));
  EXPECT_FALSE(byVrf->vrfStatus(redName));
}

TEST(ViaStatusByVrf, UpDownAndAbsentAreThreeStates) {
  struct Watch : ViaStatusByVrf::Notifiee {
    int changes = 0;
    void onViaStatus(const ViaKey&) override { ++changes; }
  };
  auto status = Kel::makePtr<ViaStatusByVrf>();
  auto watch = Kel::makePtr<Watch>();
  watch->notifierIs(status.ptr());
  const ViaKey a(ViaKey::kindIpv4, 1, 2, 3), sameIndexOtherVrf(ViaKey::kindIpv4, 2, 2, 3);
  EXPECT_EQ(status->viaStatus(a), std::nullopt);
  status->viaStatusIs(a, false);
  EXPECT_EQ(status->viaStatus(a), std::optional<bool>(false));
  status->viaStatusIs(a, false);
  status->viaStatusIs(a, true);
  EXPECT_EQ(status->viaStatus(a), std::optional<bool>(true));
  EXPECT_EQ(status->viaStatus(sameIndexOtherVrf), std::nullopt);
  status->viaStatusDel(a);
  status->viaStatusDel(a);
  EXPECT_EQ(status->viaStatus(a), std::nullopt);
  EXPECT_EQ(watch->changes, 3);
  EXPECT_EQ(status->viaStatusSize(), 0u);
}

}  // namespace
}  // namespace Routing::Rib
