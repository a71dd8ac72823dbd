// Shared-memory tables (KelBrisk): mappings counted per path, tables of type
// 0 leaving with their last mapper while the writer's tables (types 2 and 3)
// stay, collection capacities applied on mount and enforced by every table
// with its exact error text, leaving the table as it was.
//
// Tables below sit at the root's paths: "routing/rib/routeConfig/ipv4/0/
// staticConfig" (type 0), "vrf/vrfIdMapStatus" (type 3) and the next-hop
// graph (type 2).
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Kel/Error.h"
#include "platform/Cairn/EntityManager.h"
#include "platform/KelBrisk/Mount.h"
#include "platform/Routing/Rib/Brisk/ViaSetCollection.h"
#include "platform/Routing/Rib/Evpn/ViaConfig.h"
#include "platform/Routing/Rib/Ip/GlobalNextHopDependencyGraph.h"
#include "platform/Routing/Rib/Ip/ViaConfig.h"
#include "platform/Routing/Rib/RouteConfig.h"
#include "platform/Vrf/VrfIdMapStatus.h"

namespace {

using KelBrisk::MountInfo;
using Routing::Rib::RouteConfig;
using Routing::Rib::RouteKey;
using Routing::Rib::ViaKey;

template <class F>
std::string errorOf(F&& f) {
  try {
    f();
  } catch (const Kel::Exception& e) {
    return e.what();
  }
  return "no error";
}

const char* const routePath = "routing/rib/routeConfig/ipv4/0/staticConfig";

MountInfo routeInfo(uint32_t capacity) {
  MountInfo info(MountInfo::configTable);
  info.collectionInfoIs("route", capacity);
  return info;
}

RouteKey routeKey(uint32_t n) {
  return RouteKey(0, Pando::IpGenPrefix::fromV4((10u << 24) | (n << 16), 24));
}

TEST(KelBriskMount, MappingsAreCountedAndOnlyOwnedTablesLeaveWithTheLast) {
  auto em = Cairn::entityManagerFactory();
  auto first = KelBrisk::mountFactory(em, routePath, "Routing::Rib::RouteConfig", routeInfo(10));
  auto second = KelBrisk::mountFactory(em, "/" + std::string(routePath) + "/",
                                       "Routing::Rib::RouteConfig", routeInfo(20));
  EXPECT_FALSE(first->getEntity());
  first->doMount();
  first->doMount();  // a mapped mount does not map twice
  second->doMount();
  EXPECT_EQ(em->mappingCount(routePath), 2u);
  EXPECT_EQ(em->mappingsMade(), 2u);
  const auto table = first->getEntity<RouteConfig>();
  ASSERT_TRUE(table);
  EXPECT_EQ(second->getEntity<RouteConfig>(), table);
  EXPECT_FALSE(first->getEntity<Routing::Rib::Ip::ViaConfig>());
  EXPECT_EQ(table->capacity(), 20u);  // the last mapper's capacity
  EXPECT_EQ(em->getEntity<RouteConfig>(routePath), table);

  first->doUnmount();
  first->doUnmount();
  EXPECT_FALSE(first->mounted());
  EXPECT_FALSE(first->getEntity());
  first->cleanup();  // harmless when unmapped
  EXPECT_EQ(em->getEntity<RouteConfig>(routePath), table);
  second->doUnmount();
  EXPECT_FALSE(em->getEntity(routePath));
  EXPECT_EQ(em->mappingCount(routePath), 0u);
  EXPECT_EQ(em->mappingsReleased(), 2u);

  // The writer's tables stay when their readers go; so does a dropped mount's.
  auto vrfIds = KelBrisk::mountFactory(em, "vrf/vrfIdMapStatus", "Vrf::VrfIdMap::Status",
                                       MountInfo(MountInfo::vrfIdMapTable));
  auto graph = KelBrisk::mountFactory(
      em, Routing::Rib::Ip::GlobalNextHopDependencyGraph::mountPath("rib"),
      "Routing::Rib::Ip::GlobalNextHopDependencyGraph", MountInfo(MountInfo::nextHopGraphTable));
  vrfIds->doMount();
  graph->doMount();
  vrfIds->doUnmount();
  graph = nullptr;
  EXPECT_TRUE(em->getEntity<Vrf::VrfIdMap::Status>("vrf/vrfIdMapStatus"));
  EXPECT_TRUE(em->getEntity("routing/rib/nhDependencyGraph"));
  EXPECT_EQ(em->mappingCount("routing/rib/nhDependencyGraph"), 0u);
  auto owned = KelBrisk::mountFactory(em, routePath, "Routing::Rib::RouteConfig", routeInfo(1));
  owned->doMount();
  owned = nullptr;
  EXPECT_FALSE(em->getEntity(routePath));
}

TEST(KelBriskMount, BadRequestsChangeNothing) {
  auto em = Cairn::entityManagerFactory();
  EXPECT_EQ(errorOf([] { MountInfo(1); }), "KelBrisk::MountInfo: unknown table type 1");
  auto routes = Kel::makePtr<RouteConfig>(5);
  em->entityIs(routePath, routes);
  auto wrongType = KelBrisk::mountFactory(em, routePath, "Routing::Rib::Ip::ViaConfig",
                                          MountInfo(MountInfo::configTable));
  EXPECT_EQ(errorOf([&] { wrongType->doMount(); }),
            "KelBrisk::Mount: 'routing/rib/routeConfig/ipv4/0/staticConfig' holds a "
            "Routing::Rib::RouteConfig, not a Routing::Rib::Ip::ViaConfig");
  // Every collection is checked before any capacity changes.
  MountInfo info = routeInfo(9);
  info.collectionInfoIs("via", 3);
  auto badCollection = KelBrisk::mountFactory(em, routePath, "Routing::Rib::RouteConfig", info);
  EXPECT_EQ(errorOf([&] { badCollection->doMount(); }),
            "Routing::Rib::RouteConfig has no collection 'via'");
  EXPECT_EQ(routes->capacity(), 5u);
  MountInfo graphInfo(MountInfo::nextHopGraphTable);
  graphInfo.collectionInfoIs("route", 3);
  auto graph = KelBrisk::mountFactory(em, "routing/mrib/nhDependencyGraph",
                                      "Routing::Rib::Ip::GlobalNextHopDependencyGraph", graphInfo);
  EXPECT_EQ(errorOf([&] { graph->doMount(); }),
            "Routing::Rib::Ip::GlobalNextHopDependencyGraph has no collection 'route'");
  EXPECT_FALSE(wrongType->mounted() || badCollection->mounted() || graph->mounted());
  EXPECT_EQ(em->entityCount(), 1u);
  EXPECT_EQ(em->mappingsMade(), 0u);
  EXPECT_THROW(KelBrisk::mountFactory(nullptr, routePath, "Routing::Rib::RouteConfig", info),
               Kel::NullArgumentError);
}

// Fills a table to its capacity of 2, then checks that a third key is
// refused with `error` and that the table keeps its elements; replacing a
// present element still works, and so does lowering the capacity.
template <class Table, class Add, class Has>
void checkCapacity(const char* collection, const std::string& error, Add add, Has has) {
  auto table = Kel::makePtr<Table>();
  table->collectionCapacityIs(collection, 2);
  add(*table, 1, 0);
  add(*table, 2, 0);
  EXPECT_EQ(errorOf([&] { add(*table, 3, 0); }), error);
  EXPECT_TRUE(has(*table, 1) && has(*table, 2));
  EXPECT_FALSE(has(*table, 3));
  add(*table, 2, 1);                           // a replacement is always taken
  table->collectionCapacityIs(collection, 1);  // lowering keeps what is there
  EXPECT_TRUE(has(*table, 1) && has(*table, 2));
  table->cleanup();
  EXPECT_FALSE(has(*table, 1) || has(*table, 2));
}

TEST(KelBriskCapacity, FullTablesRefuseNewKeysAndKeepWhatTheyHave) {
  checkCapacity<RouteConfig>(
      "route", "RouteConfig::route capacity exceeded",
      [](RouteConfig& t, uint32_t n, uint32_t v) {
        Routing::Rib::Route r(routeKey(n));
        r.tagIs(v);
        t.routeAdd(r);
      },
      [](const RouteConfig& t, uint32_t n) { return t.route(routeKey(n)) != nullptr; });
  checkCapacity<Routing::Rib::Ip::ViaConfig>(
      "via", "ViaConfig::via capacity exceeded",
      [](Routing::Rib::Ip::ViaConfig& t, uint32_t n, uint32_t v) {
        t.viaIs(ViaKey(1, 0, 2, n), Routing::Rib::Via(Pando::IpGenAddr::fromV4(v)));
      },
      [](const Routing::Rib::Ip::ViaConfig& t, uint32_t n) {
        return t.viaHas(ViaKey(1, 0, 2, n));
      });
  checkCapacity<Routing::Rib::Evpn::ViaConfig>(
      "via", "ViaConfig::via capacity exceeded",
      [](Routing::Rib::Evpn::ViaConfig& t, uint32_t n, uint32_t v) {
        t.viaIs(ViaKey(3, 0, 2, n), Routing::Rib::Evpn::Via(Pando::IpGenAddr(), v + 1, 0));
      },
      [](const Routing::Rib::Evpn::ViaConfig& t, uint32_t n) {
        return t.viaHas(ViaKey(3, 0, 2, n));
      });
  checkCapacity<Routing::Rib::Brisk::ViaSetCollection>(
      "viaSet", "ViaSetCollection::viaSet capacity exceeded",
      [](Routing::Rib::Brisk::ViaSetCollection& t, uint32_t n, uint32_t v) {
        const ViaKey k(1, 0, 2, n);
        t.viaSetIs(n, v, {&k, 1});
      },
      [](const Routing::Rib::Brisk::ViaSetCollection& t, uint32_t n) {
        return t.viaSet(n) != nullptr;
      });
  checkCapacity<Vrf::VrfIdMap::Status>(
      "vrfEntry", "Status::vrfEntry capacity exceeded",
      [](Vrf::VrfIdMap::Status& t, uint32_t n, uint32_t v) {
        t.vrfEntryIs(n, L3::VrfName(Kel::String("vrf" + std::to_string(n + v))));
      },
      [](const Vrf::VrfIdMap::Status& t, uint32_t n) { return t.vrfEntry(n).valid(); });
}

TEST(KelBriskCapacity, CleanupThroughTheMountNotifiesEveryElement) {
  auto em = Cairn::entityManagerFactory();
  MountInfo info(MountInfo::configTable);
  info.collectionInfoIs("via", 8);
  auto mount = KelBrisk::mountFactory(em, "routing/rib/viaConfig/ipv4/7/",
                                      "Routing::Rib::Ip::ViaConfig", info);
  mount->doMount();
  const auto vias = mount->getEntity<Routing::Rib::Ip::ViaConfig>();
  ASSERT_TRUE(vias);
  EXPECT_EQ(vias->capacity(), 8u);
  EXPECT_TRUE(em->getEntity("routing/rib/viaConfig/ipv4/7"));
  struct Gone : Routing::Rib::Ip::ViaConfig::Notifiee {
    std::vector<ViaKey> keys;
    void onVia(const ViaKey& k) override { keys.push_back(k); }
  };
  for (uint32_t n = 1; n <= 3; ++n) {
    vias->viaIs(ViaKey(1, 7, 2, n), Routing::Rib::Via(Pando::IpGenAddr::fromV4(n)));
  }
  auto gone = Kel::makePtr<Gone>();
  gone->notifierIs(vias.ptr());
  mount->cleanup();
  EXPECT_EQ(vias->viaSize(), 0u);
  EXPECT_EQ(gone->keys.size(), 3u);
}

}  // namespace
