// The route status store: defaults, orders, the convenience mutators and
// their invariant, checked against a plain model on random edits.
#include <gtest/gtest.h>

#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "IpRib/ProtocolRouteStatus.h"
#include "Kel/NestedReactors.h"

namespace Routing::Protocol {
namespace {

using Pando::IpGenPrefix;
using Rib::ViaKey;

ViaKey via(uint32_t i) { return ViaKey(ViaKey::kindIpv4, 0, 2, i); }

class RouteStatusTest : public ::testing::Test {
 protected:
  Kel::Ptr<Rib::DedupViaKeyTable> viaKeys_ = Kel::makePtr<Rib::DedupViaKeyTable>();
  Kel::Ptr<Status> status_ = statusFactory(RouteStatusKey(0, Pando::AddressFamily::ipv4));
};

TEST_F(RouteStatusTest, PreferencesAndViaTypesIterateInAscendingOrder) {
  Kel::Ptr<Route> r = status_->routeIs(IpGenPrefix("10.0.0.0/8"));
  for (RoutePreference p : {200, 1, 20, 255, 0}) r->routePrefIs(p);
  std::vector<int> prefs;
  for (const auto& p : r->routePref()) prefs.push_back(p->preference());
  EXPECT_EQ(prefs, (std::vector<int>{0, 1, 20, 200, 255}));

  Kel::Ptr<RoutePref> p = r->routePref(1);
  for (ViaTypeEnum t : {ViaTypeEnum::viaDefault, ViaTypeEnum::viaIntfNextHop,
                        ViaTypeEnum::viaIntfOnly, ViaTypeEnum::viaNextHopOnly}) {
    p->dedupViaKeyIs(t, viaKeys_->dedupViaKeyIs(via(uint32_t(t))), 0);
  }
  std::vector<ViaTypeEnum> types;
  for (const auto& t : p->dedupViaKeyByViaType()) types.push_back(t->viaType().viaType());
  EXPECT_EQ(types,
            (std::vector<ViaTypeEnum>{ViaTypeEnum::viaIntfNextHop, ViaTypeEnum::viaNextHopOnly,
                                      ViaTypeEnum::viaIntfOnly, ViaTypeEnum::viaDefault}));
}

TEST_F(RouteStatusTest, ConvenienceMutatorsCreateReplaceAndRemoveTheViaType) {
  Kel::Ptr<RoutePref> p = status_->routeIs(IpGenPrefix("10.0.0.0/8"))->routePrefIs(1);
  const ViaType t(ViaTypeEnum::viaIntfNextHop);
  p->dedupViaKeyIs(t, viaKeys_->dedupViaKeyIs(via(1)), 10);
  ASSERT_TRUE(p->dedupViaKeyByViaType(t));
  p->dedupViaKeyIs(t, viaKeys_->dedupViaKeyIs(via(1)), 30);  // replaces the metric entry
  EXPECT_EQ(p->dedupViaKeyByViaType(t)->dedupViaKeySize(), 1u);
  EXPECT_EQ(p->dedupViaKeyByViaType(t)->dedupViaKey(via(1))->metric(), 30u);
  p->dedupViaKeyIs(t, viaKeys_->dedupViaKeyIs(via(2)), 10);
  p->dedupViaKeyDel(t, via(1));
  EXPECT_TRUE(p->dedupViaKeyByViaType(t));
  p->dedupViaKeyDel(t, via(2));
  EXPECT_FALSE(p->dedupViaKeyByViaType(t));  // the last via took its type along
  p->dedupViaKeyDel(t, via(2));              // absent type: nothing happens
  p->dedupViaKeyIs(t, viaKeys_->dedupViaKeyIs(via(3)), 1);
  p->dedupViaKeyDelAll(t);
  EXPECT_FALSE(p->dedupViaKeyByViaType(t));
  EXPECT_EQ(viaKeys_->size(), 0u);  // every shared via key was released
}

TEST_F(RouteStatusTest, DeletingARouteReleasesEverythingBelowIt) {
  {
    Kel::Ptr<Route> r = status_->routeIs(IpGenPrefix("10.0.0.0/8"));
    Kel::Ptr<RoutePref> p = r->routePrefIs(1);
    p->dedupViaKeyIs(ViaTypeEnum::viaIntfNextHop, viaKeys_->dedupViaKeyIs(via(1)), 1);
    p->dedupEvpnVtepIpViaKeyIs(via(1), viaKeys_->dedupViaKeyIs(via(9)));
    p->bfdTrackedViaCollIs(via(1));
    EXPECT_EQ(viaKeys_->size(), 2u);
  }
  status_->routeDel(IpGenPrefix("10.0.0.0/8"));
  EXPECT_EQ(viaKeys_->size(), 0u);
  EXPECT_FALSE(status_->route(IpGenPrefix("10.0.0.0/8")));
}

// A route is filed from its creation to its removal; its own reactors hear
// the removal before the status's do, and the status never answers with it.
TEST_F(RouteStatusTest, ARouteIsFiledUntilItLeavesAndItsReactorsHearFirst) {
  std::vector<std::string> heard;
  struct RouteWatch : Route::Notifiee {
    void onFiled() override {
      heard->push_back(std::string("route filed ") + (notifier()->filed() ? "yes" : "no"));
    }
    std::vector<std::string>* heard;
  };
  struct StatusWatch : Status::Notifiee {
    void onRoute(const IpGenPrefix& p) override {
      heard->push_back(std::string("status ") + (notifier()->route(p) ? "has" : "lost") + " it");
    }
    std::vector<std::string>* heard;
  };
  const IpGenPrefix a("10.0.0.0/8"), b("10.1.0.0/16");
  const auto statusWatch = Kel::makePtr<StatusWatch>();
  statusWatch->heard = &heard;
  statusWatch->notifierIs(status_.ptr());
  Kel::Ptr<Route> route = status_->routeIs(a);
  EXPECT_TRUE(route->filed());
  EXPECT_EQ(status_->routeIs(a), route) << "present: the same route";
  const auto routeWatch = Kel::makePtr<RouteWatch>();
  routeWatch->heard = &heard;
  routeWatch->notifierIs(route.ptr());
  status_->routeIs(b);
  status_->routeDel(a);
  EXPECT_FALSE(route->filed());
  EXPECT_EQ(heard, (std::vector<std::string>{"status has it", "status has it", "route filed no",
                                             "status lost it"}));
  EXPECT_EQ(status_->route(a), nullptr);
  status_->routeDel(b);  // the route filed last
  EXPECT_EQ(status_->route(b), nullptr);
  Kel::Ptr<Route> again = status_->routeIs(a);
  EXPECT_NE(again, route) << "a removed route is never filed again";
  status_->routeDelAll();
  EXPECT_FALSE(again->filed());
  EXPECT_EQ(status_->route(a), nullptr);
}

// Watches a whole route tree and checks, at every notification, that no
// by-type entry reachable from a preference is empty; counts the changes.
class TreeWatcher final : public Route::Notifiee {
 public:
  class KelRoutePref final : public RoutePref::Notifiee {
   public:
    KelRoutePref(RoutePref* p, TreeWatcher* w) : w_(w) { notifierIs(p); }
    RoutePreference key() const { return notifier()->preference(); }
    void onDedupViaKeyByViaType(const ViaType& t) override {
      ++w_->changes;
      w_->check();
      if (auto byType = notifier()->dedupViaKeyByViaType(t)) {
        EXPECT_EQ(byType->viaType(), t);
      }
    }
    void onTag() override { ++w_->changes; }
    void onBfdTrackedViaColl(const ViaKey&) override { ++w_->changes; }

   private:
    TreeWatcher* w_;
  };

  explicit TreeWatcher(Route* r) : prefs_(this) {
    notifierIs(r);
    for (const auto& p : r->routePref()) prefs_.insert(Kel::makePtr<KelRoutePref>(p.ptr(), this));
  }
  void onRoutePref(const RoutePreference& pref) override {
    ++changes;
    if (auto p = notifier()->routePref(pref)) {
      prefs_.insert(Kel::makePtr<KelRoutePref>(p.ptr(), this));
    } else {
      prefs_.erase(pref);
    }
    check();
  }
  void check() {
    for (const auto& p : notifier()->routePref()) {
      for (const auto& t : p->dedupViaKeyByViaType()) {
        EXPECT_GT(t->dedupViaKeySize(), 0u) << "empty by-type entry reachable";
      }
    }
    EXPECT_EQ(prefs_.size(), notifier()->routePref().size());
  }
  int changes = 0;

 private:
  Kel::NestedReactors<RoutePreference, KelRoutePref, Kel::FlatMap> prefs_;
};

// A reactor that watches a whole route hears every change below it, with
// the preference it was under, and nothing from what has left the route.
TEST_F(RouteStatusTest, ANestedWatcherHearsTheWholeRouteAndNothingThatLeftIt) {
  struct Watch : Route::Notifiee {
    void onRoutePref(const RoutePreference& p) override {
      heard.push_back("pref " + std::to_string(p));
    }
    void handleNested(const Kel::Entity& e) override {
      heard.push_back("below " + std::to_string(static_cast<const RoutePref&>(e).preference()));
    }
    std::vector<std::string> heard;
  };
  Kel::Ptr<Route> route = status_->routeIs(IpGenPrefix("10.0.0.0/8"));
  const Kel::Ptr<RoutePref> early = route->routePrefIs(1);
  early->dedupViaKeyIs(ViaTypeEnum::viaIntfNextHop, viaKeys_->dedupViaKeyIs(via(1)), 0);
  const auto watch = Kel::makePtr<Watch>();
  watch->notifierIs(route.ptr());
  route->nestedWatcherIs();
  route->nestedWatcherIs();  // a second watcher: links stay until both are gone
  route->nestedWatcherDel();

  const auto entry = [this](uint32_t i) {
    return Kel::makePtr<DedupViaKeyMetric>(viaKeys_->dedupViaKeyIs(via(i)), 0);
  };
  const ViaTypeEnum first = ViaTypeEnum::viaIntfNextHop, second = ViaTypeEnum::viaNextHopOnly;
  early->tagIs(7);                                                      // below 1
  early->dedupViaKeyByViaType(first)->dedupViaKeyIs(via(2), entry(2));  // below 1
  const Kel::Ptr<RoutePref> late = route->routePrefIs(5);               // pref 5
  late->dedupViaKeyIs(second, viaKeys_->dedupViaKeyIs(via(3)), 1);      // below 5
  const Kel::Ptr<DedupViaKeyByViaType> byType = late->dedupViaKeyByViaType(second);
  byType->dedupViaKeyIs(via(4), entry(4));  // below 5
  late->bfdTrackedViaCollIs(via(3));        // below 5
  late->dedupViaKeyDelAll(second);          // below 5
  byType->dedupViaKeyDel(via(4));           // left the preference: unheard
  route->routePrefDel(1);                   // pref 1
  early->tagIs(8);                          // left the route: unheard
  EXPECT_EQ(watch->heard, (std::vector<std::string>{"below 1", "below 1", "pref 5", "below 5",
                                                    "below 5", "below 5", "below 5", "pref 1"}));
  // The links outlive the watchers, not the route.
  route->nestedWatcherDel();
  EXPECT_EQ(late->nestedParent(), route.ptr());
  watch->notifierIs(static_cast<Route*>(nullptr));
  status_->routeDel(IpGenPrefix("10.0.0.0/8"));
  route = nullptr;
  EXPECT_EQ(late->nestedParent(), nullptr);
  late->tagIs(9);  // its route is gone: nothing to pass up to
}

TEST_F(RouteStatusTest, RandomEditsMatchAModelAndKeepByTypeEntriesNonEmpty) {
  const unsigned seed = 20261122;
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 rng(seed);
  using Model = std::map<RoutePreference, std::map<ViaTypeEnum, std::map<uint32_t, uint32_t>>>;
  Model model;
  Kel::Ptr<Route> r = status_->routeIs(IpGenPrefix("10.1.0.0/16"));
  auto watcher = Kel::makePtr<TreeWatcher>(r.ptr());
  auto pick = [&](int n) { return int(rng() % unsigned(n)); };

  for (int step = 0; step < 5000; ++step) {
    const RoutePreference pref = RoutePreference(pick(4) * 50 + 1);
    const ViaTypeEnum type = ViaTypeEnum(1 + pick(4));
    const uint32_t v = uint32_t(pick(6));
    switch (pick(6)) {
      case 0:
      case 1: {
        const uint32_t metric = uint32_t(pick(3));
        r->routePrefIs(pref)->dedupViaKeyIs(type, viaKeys_->dedupViaKeyIs(via(v)), metric);
        model[pref][type][v] = metric;
        break;
      }
      case 2:
      case 3:
        if (auto p = r->routePref(pref)) p->dedupViaKeyDel(type, via(v));
        if (model.count(pref) && model[pref].count(type)) {
          model[pref][type].erase(v);
          if (model[pref][type].empty()) model[pref].erase(type);
        }
        break;
      case 4:
        if (auto p = r->routePref(pref)) p->dedupViaKeyDelAll(type);
        if (model.count(pref)) model[pref].erase(type);
        break;
      case 5:
        if (pick(4) == 0) {
          r->routePrefDel(pref);
          model.erase(pref);
        } else {
          r->routePrefIs(pref);
          model[pref];
        }
        break;
    }
    // The store equals the model, in order.
    Model seen;
    for (const auto& p : r->routePref()) {
      auto& byType = seen[p->preference()];
      for (const auto& t : p->dedupViaKeyByViaType()) {
        for (const auto& m : t->dedupViaKey()) {
          byType[t->viaType().viaType()][m->viaKey().viaIndex()] = m->metric();
        }
      }
    }
    ASSERT_EQ(seen, model) << "step " << step;
  }
  EXPECT_GT(watcher->changes, 1000);
  r->routePrefDelAll();
  EXPECT_TRUE(r->routePref().empty());
  watcher = nullptr;
  r = nullptr;
  status_->routeDelAll();
  EXPECT_EQ(viaKeys_->size(), 0u);
}

TEST_F(RouteStatusTest, StatusRoutesResumeFromABookmarkInHashOrder) {
  std::vector<IpGenPrefix> prefixes;
  for (uint32_t i = 0; i < 300; ++i) {
    prefixes.push_back(IpGenPrefix::fromV4(0x0a000000u + (i << 8), 24));
    status_->routeIs(prefixes.back());
  }
  // Walk in slices of 7, deleting the bookmarked route and adding others in between.
  std::map<IpGenPrefix, int> visits;
  std::set<IpGenPrefix> removed;
  IpGenPrefix bookmark;
  bool started = false;
  uint32_t added = 0;
  for (;;) {
    auto it = started ? status_->route().seek(bookmark) : status_->route().begin();
    started = true;
    int n = 0;
    for (; it != status_->route().end() && n < 7; ++it, ++n) ++visits[(*it)->prefix()];
    if (it == status_->route().end()) break;
    bookmark = (*it)->prefix();
    if (n % 2 == 0) {
      status_->routeDel(bookmark);
      removed.insert(bookmark);
    }
    status_->routeIs(IpGenPrefix::fromV4(0x0b000000u + (added++ << 8), 24));
  }
  for (const IpGenPrefix& p : prefixes) {
    if (!removed.count(p)) {
      EXPECT_EQ(visits[p], 1) << p;
    }
  }
  for (const auto& [p, count] : visits) EXPECT_EQ(count, 1) << p;
}

TEST_F(RouteStatusTest, ALookUpByHashAloneFindsTheRouteFiledUnderIt) {
  for (uint32_t i = 0; i < 100; ++i)
    status_->routeIs(IpGenPrefix::fromV4(0x0a000000u + (i << 8), 24));
  const Status::RouteMap& routes = status_->route();
  for (auto it = routes.begin(); it != routes.end(); ++it) {
    routes.prefetch(it.hash());
    const Kel::Ptr<Route>* found = routes.probable(routes.hashOf((*it)->prefix()));
    ASSERT_NE(found, nullptr) << (*it)->prefix();
    EXPECT_EQ(found->ptr(), it->ptr());
  }
  EXPECT_EQ(routes.probable(routes.hashOf(IpGenPrefix("192.0.2.0/24"))), nullptr);
  // Given where a walk saw it, also once later routes have moved it.
  struct Seen {
    const Route* route;
    uint32_t hash, place;
  };
  std::vector<Seen> seen;
  for (auto it = routes.begin(); it != routes.end(); ++it) {
    seen.push_back({it->ptr(), it.hash(), it.place()});
  }
  for (uint32_t i = 100; i < 1000; ++i)
    status_->routeIs(IpGenPrefix::fromV4(0x0a000000u + (i << 8), 24));
  for (const Seen& s : seen) {
    const Kel::Ptr<Route>* found = routes.probable(s.hash, s.place);
    ASSERT_NE(found, nullptr) << s.route->prefix();
    EXPECT_EQ(found->ptr(), s.route);
  }
}

TEST(RouteStatusDirTest, StatusIsReplacesByKeyAndNotifies) {
  struct Watcher : RouteStatusDir::Notifiee {
    std::vector<RouteStatusKey> keys;
    void onStatus(const RouteStatusKey& k) override { keys.push_back(k); }
  };
  auto dir = routeStatusDirFactory();
  auto w = Kel::makePtr<Watcher>();
  w->notifierIs(dir.ptr());
  const RouteStatusKey k(3, Pando::AddressFamily::ipv6);
  Kel::Ptr<Status> first = statusFactory(k);
  dir->statusIs(first);
  dir->statusIs(first);  // the same object again: no change
  Kel::Ptr<Status> second = statusFactory(k);
  dir->statusIs(second);
  EXPECT_EQ(dir->status(k), second);
  EXPECT_EQ(w->keys.size(), 2u);
  dir->statusDel(k);
  EXPECT_FALSE(dir->status(k));
  EXPECT_EQ(w->keys.size(), 3u);
}

TEST(RouteByViaKeyTest, IndexesRoutePreferencesOnceAndNotifiesEachChangeOnce) {
  struct Counter : RouteByViaKey::Notifiee {
    int calls = 0;
    void onRoute(const PrefixPrefVrfId&) override { ++calls; }
  };
  const auto index = Kel::makePtr<RouteByViaKey>(via(4));
  const auto counter = Kel::makePtr<Counter>();
  counter->notifierIs(index.ptr());
  const PrefixPrefVrfId a(IpGenPrefix("10.0.0.0/8"), 1, 0), b(IpGenPrefix("10.0.0.0/8"), 2, 0);
  index->routeIs(a);
  index->routeIs(a);
  index->routeIs(b);
  EXPECT_EQ(index->routeSize(), 2u);
  EXPECT_EQ(counter->calls, 2) << "filing an element again changes nothing";
  EXPECT_TRUE(index->routeHas(b));
  index->routeDel(b);
  index->routeDel(b);
  EXPECT_FALSE(index->routeHas(b));
  EXPECT_EQ(counter->calls, 3);
  index->routeIs(b);
  index->routeDelAll();
  EXPECT_EQ(index->routeSize(), 0u);
  EXPECT_EQ(counter->calls, 6);
  EXPECT_EQ(index->viaKey(), via(4));
}

}  // namespace
}  // namespace Routing::Protocol
