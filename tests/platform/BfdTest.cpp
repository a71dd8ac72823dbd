// BFD tracking of static routes: the keys, the tracking list, and the stub
// agent that writes session state into it, including into entries made later.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "platform/Routing/Bfd/BfdAgentStub.h"
#include "platform/Routing/Bfd/BfdTrackedStaticRoutes.h"

namespace Routing {
namespace {

using Pando::IntfId;
using Pando::IpGenAddr;
using Pando::IpGenPrefix;

template <class T>
std::string printed(const T& v) {
  std::ostringstream os;
  os << v;
  return os.str();
}

const IntfId eth1(Kel::String("Ethernet1")), eth2(Kel::String("Ethernet2"));

TEST(BfdKeys, FormsOrderAndDefaults) {
  const IpGenAddr a("10.0.0.1"), b("10.0.0.2");
  EXPECT_EQ(printed(BfdStatusKey(a, IntfId())), "addr 10.0.0.1 intf none");
  EXPECT_EQ(printed(BfdStatusKey(IpGenAddr("fe80::1"), eth1)), "addr fe80::1 intf Ethernet1");
  EXPECT_EQ(printed(RouteKey(IpGenPrefix("10.1.0.0/24"), 1)), "10.1.0.0/24 pref 1");
  EXPECT_EQ(printed(Via(a, eth1)), "addr 10.0.0.1 intf Ethernet1");
  EXPECT_EQ(printed(Via(a, IntfId(), 16)), "addr 10.0.0.1 intf none label 16");
  EXPECT_EQ(Via(a, eth1).label(), 0x100000u);

  const BfdStatusKey none;
  EXPECT_TRUE(none.addr().isEmpty());
  EXPECT_EQ(none.addr().af(), Pando::AddressFamily::ipunknown);
  EXPECT_TRUE(none.intf().isEmpty());

  // Order by address, then interface (none first); == agrees with the hash.
  const std::vector<BfdStatusKey> ascending = {none, BfdStatusKey(a, IntfId()),
                                               BfdStatusKey(a, eth1), BfdStatusKey(a, eth2),
                                               BfdStatusKey(b, IntfId())};
  for (size_t i = 0; i < ascending.size(); ++i) {
    for (size_t j = 0; j < ascending.size(); ++j) {
      EXPECT_EQ(ascending[i] < ascending[j], i < j) << ascending[i] << " / " << ascending[j];
      EXPECT_EQ(ascending[i] == ascending[j], i == j);
    }
  }
  EXPECT_EQ(BfdStatusKey(a, eth1).hash(3), BfdStatusKey(IpGenAddr("10.0.0.1"), eth1).hash(3));
  EXPECT_LT(RouteKey(IpGenPrefix("10.1.0.0/24"), 200), RouteKey(IpGenPrefix("10.1.0.0/25"), 1));
  EXPECT_LT(Via(a, eth1, 5), Via(a, eth1));
  EXPECT_FALSE(Via(a, eth1, 5) == Via(a, eth1));
}

TEST(BfdTrackingList, EntriesRoutesAndViasAreMadeOnceAndNotified) {
  struct ListWatch : BfdTrackedStaticRoutesList::Notifiee {
    std::vector<BfdStatusKey> seen;
    void onRoute(const BfdStatusKey& k) override { seen.push_back(k); }
  };
  struct EntryWatch : BfdTrackedStaticRoutes::Notifiee {
    std::vector<std::string> seen;
    void onStatus() override { seen.push_back("status"); }
    void onResolvedIntf() override { seen.push_back("intf"); }
    void onDependantRoute(const RouteKey& k) override { seen.push_back(printed(k)); }
  };
  auto list = Kel::makePtr<BfdTrackedStaticRoutesList>();
  auto listWatch = Kel::makePtr<ListWatch>();
  listWatch->notifierIs(list.ptr());
  const BfdStatusKey key(IpGenAddr("10.0.0.1"), IntfId());
  Kel::Ptr<BfdTrackedStaticRoutes> entry = list->routeIs(key);
  EXPECT_EQ(list->routeIs(key), entry);
  EXPECT_EQ(list->route(key), entry);
  EXPECT_EQ(entry->key(), key);
  EXPECT_FALSE(entry->status());
  EXPECT_TRUE(entry->resolvedIntf().isEmpty());
  EXPECT_EQ(entry->typeName(), std::string("Routing::BfdTrackedStaticRoutes"));

  auto entryWatch = Kel::makePtr<EntryWatch>();
  entryWatch->notifierIs(entry.ptr());
  const RouteKey rk(IpGenPrefix("10.1.0.0/24"), 1);
  Kel::Ptr<TrackedViaList> vias = entry->dependantRouteIs(rk);
  EXPECT_EQ(entry->dependantRouteIs(rk), vias);
  EXPECT_EQ(vias->routeKey(), rk);
  const Via v(IpGenAddr("10.0.0.1"), eth1);
  vias->trackedViaIs(v);
  vias->trackedViaIs(v);
  EXPECT_TRUE(vias->trackedViaHas(v));
  EXPECT_EQ(vias->trackedViaSize(), 1u);
  entry->statusIs(false);
  entry->statusIs(true);
  entry->resolvedIntfIs(eth1);
  entry->resolvedIntfIs(eth1);
  entry->dependantRouteDel(rk);
  entry->dependantRouteDel(rk);
  EXPECT_EQ(entryWatch->seen, (std::vector<std::string>{"10.1.0.0/24 pref 1", "status", "intf",
                                                        "10.1.0.0/24 pref 1"}));
  EXPECT_EQ(entry->dependantRouteSize(), 0u);

  list->routeDel(key);
  list->routeDel(key);
  EXPECT_EQ(listWatch->seen, (std::vector<BfdStatusKey>{key, key}));
  EXPECT_FALSE(list->route(key));
}

// Records the entry's state at every status change.
struct StatusLog : BfdTrackedStaticRoutes::Notifiee {
  std::vector<std::pair<bool, std::string>> seen;
  void onStatus() override {
    seen.emplace_back(notifier()->status(), printed(notifier()->resolvedIntf()));
  }
};

// What the route side does for a new tracked via: make the entry, file the
// route and via, start it down.
Kel::Ptr<BfdTrackedStaticRoutes> track(BfdTrackedStaticRoutesList& list, const BfdStatusKey& key) {
  Kel::Ptr<BfdTrackedStaticRoutes> entry = list.routeIs(key);
  entry->dependantRouteIs(RouteKey(IpGenPrefix("10.9.0.0/16"), 1))
      ->trackedViaIs(Via(key.addr(), key.intf()));
  entry->statusIs(false);
  return entry;
}

class BfdAgentStubTest : public ::testing::Test {
 protected:
  Kel::Ptr<BfdTrackedStaticRoutesList> list_ = Kel::makePtr<BfdTrackedStaticRoutesList>();
  const IpGenAddr peer_{"10.0.0.1"}, other_{"10.0.0.2"}, linkLocal_{"fe80::1"};
};

TEST_F(BfdAgentStubTest, AnEntryMadeAfterTheSessionIsUpGetsItsState) {
  auto stub = Kel::makePtr<BfdAgentStub>(list_);
  stub->sessionIs(peer_, IntfId(), true, eth1);
  Kel::Ptr<BfdTrackedStaticRoutes> entry = track(*list_, BfdStatusKey(peer_, IntfId()));
  EXPECT_TRUE(entry->status());
  EXPECT_EQ(entry->resolvedIntf(), eth1);
  // An entry of an unknown session stays down and untouched.
  const uint64_t writes = stub->entryWrites();
  Kel::Ptr<BfdTrackedStaticRoutes> unknown = track(*list_, BfdStatusKey(other_, IntfId()));
  EXPECT_FALSE(unknown->status());
  EXPECT_EQ(stub->entryWrites(), writes);

  // Down and up again: whoever wakes on status already sees the interface.
  auto log = Kel::makePtr<StatusLog>();
  log->notifierIs(entry.ptr());
  stub->sessionIs(peer_, IntfId(), false, IntfId());
  stub->sessionIs(peer_, IntfId(), true, eth2);
  EXPECT_EQ(log->seen,
            (std::vector<std::pair<bool, std::string>>{{false, "none"}, {true, "Ethernet2"}}));
  // Someone else writing the state is answered with the session's.
  entry->statusIs(false);
  EXPECT_TRUE(entry->status());
  EXPECT_EQ(stub->sessionSize(), 1u);
  ASSERT_NE(stub->session(peer_, IntfId()), nullptr);
  EXPECT_EQ(stub->session(peer_, IntfId())->resolvedIntf, eth2);
  EXPECT_EQ(stub->session(other_, IntfId()), nullptr);
}

TEST_F(BfdAgentStubTest, SessionsMatchEntriesByInterfaceWhereTheKeyHasOne) {
  Kel::Ptr<BfdTrackedStaticRoutes> onEth1 = track(*list_, BfdStatusKey(linkLocal_, eth1));
  Kel::Ptr<BfdTrackedStaticRoutes> byAddr = track(*list_, BfdStatusKey(peer_, IntfId()));
  // Made after the entries: it takes them over as they are.
  auto stub = Kel::makePtr<BfdAgentStub>(list_);
  stub->sessionIs(linkLocal_, eth2, true, eth2);
  EXPECT_FALSE(onEth1->status());  // another interface's session
  stub->sessionIs(linkLocal_, eth1, true, eth1);
  EXPECT_TRUE(onEth1->status());
  EXPECT_EQ(onEth1->resolvedIntf(), eth1);

  // A key without interface takes the first up session of its peer.
  stub->sessionIs(peer_, eth1, false, eth1);
  EXPECT_FALSE(byAddr->status());
  EXPECT_EQ(byAddr->resolvedIntf(), eth1);
  stub->sessionIs(peer_, eth2, true, eth2);
  EXPECT_TRUE(byAddr->status());
  EXPECT_EQ(byAddr->resolvedIntf(), eth2);
  stub->sessionIs(peer_, eth1, true, eth1);
  EXPECT_EQ(byAddr->resolvedIntf(), eth1);
  stub->sessionIs(peer_, eth1, false, eth1);
  stub->sessionIs(peer_, eth2, false, eth2);
  EXPECT_FALSE(byAddr->status());
}

TEST_F(BfdAgentStubTest, ADeletedEntryIsLetGoAndAFreshOneServedAgain) {
  auto stub = Kel::makePtr<BfdAgentStub>(list_);
  stub->sessionIs(peer_, IntfId(), true, eth1);
  const BfdStatusKey key(peer_, IntfId());
  Kel::Ptr<BfdTrackedStaticRoutes> entry = track(*list_, key);
  EXPECT_EQ(entry->notifieeCount(), 1u);
  list_->routeDel(key);
  EXPECT_EQ(entry->notifieeCount(), 0u);
  entry->statusIs(false);  // no longer in the list: nobody answers
  EXPECT_FALSE(entry->status());
  Kel::Ptr<BfdTrackedStaticRoutes> fresh = track(*list_, key);
  EXPECT_TRUE(fresh->status());
  stub = nullptr;
  EXPECT_EQ(fresh->notifieeCount(), 0u);
}

}  // namespace
}  // namespace Routing
