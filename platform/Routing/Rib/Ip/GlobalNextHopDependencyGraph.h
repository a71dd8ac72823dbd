// What the RIB knows about how next hops resolve: the next-hop address of
// each via key and the installed routes of each VRF with their via keys. It
// answers one question, loopingRoute(): would a via of a route resolve back
// through that route?
//
// The RIB writes; route computation asks. Writes notify nobody: the writer
// bumps the one table-level attribute, `generation`, after a batch of
// changes, and readers watching it re-ask their questions.
// Costs: writes are O(1) expected. A query walks at most 16 resolutions, each
// a longest-prefix match of one hash look-up per prefix length (33 for IPv4,
// 129 for IPv6, skipping lengths with no route); no table is scanned.
// Decided here: a query's MetricPref does not influence the answer: every
// installed route takes part in the match whatever its preference, where a
// real RIB would prefer better routes over the one asked about. The RIB type
// and the two reserved numbers of a query are ignored as well. The graph of
// RIB <rib> ("rib" or "mrib") is published at "routing/<rib>/nhDependencyGraph"
// (mountPath; another RIB string is a Kel::RangeError naming it).
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "Kel/Entity.h"
#include "Kel/Hash.h"
#include "Kel/HashTable.h"
#include "Kel/String.h"
#include "platform/Pando/IpGenAddr.h"
#include "platform/Pando/IpGenPrefix.h"
#include "platform/Routing/Rib/MetricPref.h"
#include "platform/Routing/Rib/Transport.h"
#include "platform/Routing/Rib/ViaKey.h"
#include "platform/Vrf/VrfId.h"

namespace Routing::Rib::Ip {

class GlobalNextHopDependencyGraph final : public Kel::Entity {
 public:
  // Resolutions a query follows before it gives up (answering false).
  static constexpr uint32_t maxDepth = 16;

  class Notifiee : public Kel::NotifieeOf<GlobalNextHopDependencyGraph> {
   public:
    virtual void onGeneration() {}
  };
  const char* typeName() const override { return "Routing::Rib::Ip::GlobalNextHopDependencyGraph"; }
  // Where the graph of RIB `ribString` is published.
  static Kel::String mountPath(std::string_view ribString);

  // The address a via resolves through; null when unknown.
  const Pando::IpGenAddr* viaNextHop(const ViaKey& k) const { return viaNextHop(k, k.tableHash()); }
  // With `h`, k.tableHash(), taken once.
  const Pando::IpGenAddr* viaNextHop(const ViaKey& k, uint32_t h) const {
    const NextHopEntry* e = viaNextHop_.find(k, h);
    return e ? &e->nextHop : nullptr;
  }
  uint32_t viaNextHopSize() const { return uint32_t(viaNextHop_.size()); }
  void viaNextHopIs(const ViaKey& k, const Pando::IpGenAddr& nextHop);
  void viaNextHopDel(const ViaKey& k);

  // The vias of an installed route; null when the route is not installed.
  // An installed route without vias is connected: resolution ends there.
  const std::vector<ViaKey>* routeVias(Vrf::VrfIdMap::VrfId vrfId,
                                       const Pando::IpGenPrefix& prefix) const;
  uint32_t routeViasSize() const { return routeCount_; }
  // `prefix` must not be the empty prefix.
  void routeViasIs(Vrf::VrfIdMap::VrfId vrfId, const Pando::IpGenPrefix& prefix,
                   std::vector<ViaKey> vias);
  void routeViasDel(Vrf::VrfIdMap::VrfId vrfId, const Pando::IpGenPrefix& prefix);

  uint32_t generation() const { return generation_; }
  void generationIs(uint32_t g) { attributeIs(generation_, g, &Notifiee::onGeneration); }
  void doBumpGeneration() { generationIs(generation_ + 1); }

  // True when resolving `via`'s next hop in `vrfId` leads back to `prefix`:
  // the longest match for the next hop among the VRF's installed routes and
  // `prefix` itself (as if installed) is `prefix`, or is a route whose vias
  // resolve, recursively in the same VRF, to `prefix`. An unknown via, a
  // next hop that matches nothing and a path longer than maxDepth answer
  // false. `mp`, `a`, `b` and `rib` do not change the answer (see above).
  bool loopingRoute(const Pando::IpGenPrefix& prefix, const MetricPref& mp,
                    Vrf::VrfIdMap::VrfId vrfId, const ViaKey& via, uint32_t a, uint32_t b,
                    RibType rib) const {
    return loopingRoute(prefix, mp, vrfId, via, a, b, rib, via.tableHash());
  }
  // With `viaHash`, via.tableHash(), taken once.
  bool loopingRoute(const Pando::IpGenPrefix& prefix, const MetricPref& /*mp*/,
                    Vrf::VrfIdMap::VrfId vrfId, const ViaKey& via, uint32_t /*a*/, uint32_t /*b*/,
                    RibType /*rib*/, uint32_t viaHash) const {
    return loopingFrom(prefix, vrfId, viaNextHop(via, viaHash));
  }
  // The same, from the via's next hop as viaNextHop gives it (null: unknown
  // via), for a caller that keeps it across routes.
  bool loopingFrom(const Pando::IpGenPrefix& prefix, Vrf::VrfIdMap::VrfId vrfId,
                   const Pando::IpGenAddr* nextHop) const {
    if (nextHop == nullptr) return false;
    const VrfRoutes* vrf = vrfRoutes(vrfId);
    // No route installed in the VRF: only the asked prefix itself can resolve the next hop.
    if (vrf == nullptr) return prefix.contains(*nextHop);
    return reachesFrom(vrf, *nextHop, prefix);
  }

 private:
  struct PrefixHash {
    size_t operator()(const Pando::IpGenPrefix& p) const { return p.hash(); }
  };
  using RouteMap = std::unordered_map<Pando::IpGenPrefix, std::vector<ViaKey>, PrefixHash>;
  // One route map per prefix length, per family (IPv4, IPv6); a family's
  // maps are made with its first route.
  struct VrfRoutes {
    std::array<std::vector<RouteMap>, 2> byLen;
    uint32_t size = 0;
  };
  // The longest match of an address: a route's prefix and vias, or the
  // candidate (with no vias: it ends the query).
  struct Match {
    Pando::IpGenPrefix prefix;
    const std::vector<ViaKey>* vias;
  };

  static std::optional<size_t> familyIndex(Pando::AddressFamily af);
  static std::optional<Match> longestMatch(const VrfRoutes* routes, const Pando::IpGenAddr& addr,
                                           const Pando::IpGenPrefix& candidate);
  bool reaches(const VrfRoutes* routes, const Pando::IpGenAddr& addr,
               const Pando::IpGenPrefix& prefix, uint32_t depth,
               std::unordered_set<Pando::IpGenPrefix, PrefixHash>& visited) const;

  // Asked once per via of every route evaluated: open-addressed tables.
  struct NextHopEntry {
    ViaKey via;
    Pando::IpGenAddr nextHop;
  };
  struct NextHopTraits {
    using Entry = NextHopEntry;
    using Key = ViaKey;
    static const ViaKey& key(const NextHopEntry& e) { return e.via; }
    static uint32_t hash(const ViaKey& k) { return k.tableHash(); }
  };
  struct VrfEntry {
    Vrf::VrfIdMap::VrfId vrfId;
    VrfRoutes routes;
  };
  struct VrfTraits {
    using Entry = VrfEntry;
    using Key = Vrf::VrfIdMap::VrfId;
    static Vrf::VrfIdMap::VrfId key(const VrfEntry& e) { return e.vrfId; }
    static uint32_t hash(Vrf::VrfIdMap::VrfId v) {
      return Kel::Hasher(Kel::collectionHashSeed).add(v).result();
    }
  };
  const VrfRoutes* vrfRoutes(Vrf::VrfIdMap::VrfId vrfId) const {
    const VrfEntry* e = routes_.find(vrfId);
    return e ? &e->routes : nullptr;
  }
  bool reachesFrom(const VrfRoutes* routes, const Pando::IpGenAddr& nextHop,
                   const Pando::IpGenPrefix& prefix) const;

  Kel::HashTable<NextHopTraits> viaNextHop_;
  Kel::HashTable<VrfTraits> routes_;
  uint32_t routeCount_ = 0;
  uint32_t generation_ = 0;
};

}  // namespace Routing::Rib::Ip
