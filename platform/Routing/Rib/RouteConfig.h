// Routing::Rib::RouteConfig: the routes the RIB is told to hold, by value,
// keyed by RouteKey.
//
// Routes sit densely in a Kel::DenseHashTable, so they iterate in hash order
// and a paused walk can resume with seek(). Every write that changes something
// notifies onRoute(key) after the change and counts in adds() or deletes(); a
// write that changes nothing does neither. Costs: one hash lookup per write,
// and one in a small table of counts per VRF and family when a key comes or
// goes; doDeleteRoutesForVrf walks the whole table.
// As a shared-memory table (KelBrisk::Table) it has one collection, "route".
// Decided here: the capacity limits distinct keys. Adding a new key to a full
// table raises Kel::RangeError "RouteConfig::route capacity exceeded" and
// changes nothing; replacing a present route is always allowed. Lowering the
// capacity below the size keeps every route. cleanup deletes every route.
#pragma once

#include <cstdint>

#include "Kel/DenseHashTable.h"
#include "Kel/Entity.h"
#include "Kel/Hash.h"
#include "Kel/HashTable.h"
#include "Kel/Prefetch.h"
#include "platform/KelBrisk/Table.h"
#include "platform/Routing/Rib/Route.h"
#include "platform/Routing/Rib/RouteKey.h"
#include "platform/Vrf/VrfId.h"

namespace Routing::Rib {

class RouteConfig final : public Kel::Entity, public KelBrisk::SingleCollectionTable {
 public:
  struct RouteTraits {
    using Entry = Route;
    using Key = RouteKey;
    static const RouteKey& key(const Route& r) { return r.key(); }
    static uint32_t hash(const RouteKey& k) { return k.hash(Kel::collectionHashSeed); }
  };
  using RouteTable = Kel::DenseHashTable<RouteTraits>;

  class Notifiee : public Kel::NotifieeOf<RouteConfig> {
   public:
    virtual void onRoute(const RouteKey&) {}
  };

  explicit RouteConfig(uint32_t maxRoutes = unlimited)
      : SingleCollectionTable("Routing::Rib::RouteConfig", "RouteConfig", "route", maxRoutes) {}
  const char* typeName() const override { return "Routing::Rib::RouteConfig"; }

  // Adds `r`, or replaces the route with its key.
  void routeAdd(const Route& r);
  // Nothing when absent.
  void routeDelete(const RouteKey& k);
  // Deletes every route of VRF `vrfId`, notifying each.
  void doDeleteRoutesForVrf(Vrf::VrfIdMap::VrfId vrfId);

  // Null when absent; valid until the next write.
  const Route* route(const RouteKey& k) const { return route_.find(k); }
  // Look-ahead for passes over many routes (see Kel/Prefetch.h), by the
  // key's hash: step 0 starts loading where the look-up begins, step 1 the
  // route, step 2 its via set; later steps do nothing. Each step reads only
  // what the one before brought.
  static constexpr int routePrefetchSteps = 3;
  uint32_t routeHashOf(const RouteKey& k) const { return route_.hashOf(k); }
  void prefetchRouteStep(uint32_t hash, int step) const {
    if (step == 0) {
      route_.prefetch(hash);
    } else if (step == 1) {
      route_.prefetchEntry(hash);
    } else if (step == 2) {
      const Route* r = route_.probable(hash);
      if (r != nullptr && r->viaSet()) r->viaSet()->prefetch();
    }
  }
  uint32_t routeSize() const { return route_.size(); }
  // The routes of one VRF and family, counted as keys come and go: a VRF's
  // share of an all-VRF table, without a walk.
  uint32_t routeCount(Vrf::VrfIdMap::VrfId vrfId, Pando::AddressFamily af) const {
    const FamilyCount* c = familyCount_.find(familyOf(vrfId, af));
    return c ? c->count : 0;
  }
  const RouteTable& route() const { return route_; }
  // Deletes every route, notifying each.
  void cleanup() override;
  uint64_t adds() const { return adds_; }
  uint64_t deletes() const { return deletes_; }

 private:
  struct FamilyCount {
    uint64_t family;  // familyOf
    uint32_t count;
  };
  struct FamilyCountTraits {
    using Entry = FamilyCount;
    using Key = uint64_t;
    static uint64_t key(const FamilyCount& c) { return c.family; }
    static uint32_t hash(uint64_t family) {
      return Kel::hashWords(family, 0, Kel::collectionHashSeed);
    }
  };
  static uint64_t familyOf(Vrf::VrfIdMap::VrfId vrfId, Pando::AddressFamily af) {
    return uint64_t(vrfId) << 32 | uint32_t(af);
  }
  // A key came (+1) or went (-1); a family that empties leaves the table.
  void familyCountIs(const RouteKey& k, int delta);

  RouteTable route_;
  Kel::HashTable<FamilyCountTraits> familyCount_;
  uint64_t adds_ = 0;
  uint64_t deletes_ = 0;
};

}  // namespace Routing::Rib
