// The protocol route status store: what one routing protocol wants installed,
// per VRF and address family.
//
//   RouteStatusDir -> Status (by RouteStatusKey) -> Route (by prefix)
//     -> RoutePref (by preference, ascending) -> DedupViaKeyByViaType (by
//     ViaType, ascending) -> DedupViaKeyMetric (by via key)
//
// plus RouteByViaKey, the reverse index from a via key to the route
// preferences that use it. Protocols write; the library reads and reacts.
// Every change notifies the entity's reactors at once with the element key;
// setting a scalar to its current value notifies nobody. Status.route is hash
// ordered, so a paced review can resume from a prefix bookmark with seek().
#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <ostream>
#include <string>

#include "IpRib/ProtocolContainerKey.h"
#include "Kel/Collections.h"
#include "Kel/Entity.h"
#include "Kel/Enum.h"
#include "Kel/Prefetch.h"
#include "platform/Pando/IpGenPrefix.h"
#include "platform/Routing/Rib/DedupViaKey.h"
#include "platform/Routing/Rib/ViaKey.h"
#include "platform/Routing/RouteTypes.h"

namespace Routing::Protocol {

// ---------------------------------------------------------------- value types

// One route preference of one prefix in one VRF.
class PrefixPrefVrfId {
 public:
  PrefixPrefVrfId() = default;
  PrefixPrefVrfId(const Pando::IpGenPrefix& prefix, RoutePreference pref,
                  Vrf::VrfIdMap::VrfId vrfId)
      : prefix_(prefix), pref_(pref), vrfId_(vrfId) {}
  PrefixPrefVrfId(Kel::StrepIt& it, Kel::StrepIt end);

  const Pando::IpGenPrefix& prefix() const { return prefix_; }
  RoutePreference pref() const { return pref_; }
  Vrf::VrfIdMap::VrfId vrfId() const { return vrfId_; }

  uint32_t hash(uint32_t seed) const;
  bool operator==(const PrefixPrefVrfId& o) const {
    return prefix_ == o.prefix_ && pref_ == o.pref_ && vrfId_ == o.vrfId_;
  }
  bool operator<(const PrefixPrefVrfId& o) const;
  // Trace form: " (<prefix>, pref: <pref>, vrf: <vrfId>)".
  std::string str() const;

 private:
  Pando::IpGenPrefix prefix_;
  RoutePreference pref_ = 1;
  Vrf::VrfIdMap::VrfId vrfId_ = Vrf::VrfIdMap::invalidVrfId;
};

// Kinds of via, most preferred first.
enum class ViaTypeEnum : uint32_t {
  viaInvalid = 0,
  viaIntfNextHop = 1,
  viaNextHopOnly = 2,
  viaIntfOnly = 3,
  viaDefault = 4,
};

const Kel::EnumInfo& viaTypeEnumInfo();
std::string_view stringValue(ViaTypeEnum v);
const Kel::Enumerator& ViaTypeEnumInstance(uint32_t value);
const Kel::Enumerator& ViaTypeEnumInstance(std::string_view name);
ViaTypeEnum sequenceToValue(Kel::StrepIt& it, Kel::StrepIt end);

// The key under which a preference files its vias; orders by number.
class ViaType {
 public:
  ViaType() = default;
  ViaType(ViaTypeEnum viaType) : viaType_(viaType) {}
  ViaType(Kel::StrepIt& it, Kel::StrepIt end);

  ViaTypeEnum viaType() const { return viaType_; }

  uint32_t hash(uint32_t seed) const;
  bool operator==(const ViaType& o) const { return viaType_ == o.viaType_; }
  bool operator<(const ViaType& o) const { return int32_t(viaType_) < int32_t(o.viaType_); }

 private:
  ViaTypeEnum viaType_ = ViaTypeEnum::viaInvalid;
};

std::string valueToStrep(const PrefixPrefVrfId& v);
std::string valueToStrep(ViaTypeEnum v);
std::string valueToStrep(const ViaType& v);
std::ostream& operator<<(std::ostream& os, const PrefixPrefVrfId& v);
std::ostream& operator<<(std::ostream& os, ViaTypeEnum v);
std::ostream& operator<<(std::ostream& os, const ViaType& v);

// ------------------------------------------------------------------- entities

// Container keys offered to the rest of the agent.
class ContainerKeySet final : public Kel::Entity {
 public:
  class Notifiee : public Kel::NotifieeOf<ContainerKeySet> {
   public:
    virtual void onContainerKey(const ContainerKey&) {}
  };
  const char* typeName() const override { return "Routing::Protocol::ContainerKeySet"; }

  bool containerKeyHas(const ContainerKey& k) const { return containerKey_.find(k) != nullptr; }
  uint32_t containerKeySize() const { return containerKey_.size(); }
  const Kel::HashedSet<ContainerKey>& containerKey() const { return containerKey_; }
  void containerKeyIs(const ContainerKey& k);
  bool containerKeyDel(const ContainerKey& k);
  void containerKeyDelAll();

 private:
  Kel::HashedSet<ContainerKey> containerKey_;
};

class Route;

// One via with its metric.
class DedupViaKeyMetric final : public Kel::Entity {
 public:
  class Notifiee : public Kel::NotifieeOf<DedupViaKeyMetric> {
   public:
    virtual void onMetric() {}
  };
  DedupViaKeyMetric(Kel::Ptr<const Rib::DedupViaKey> dedupViaKey, RouteMetric metric);
  const char* typeName() const override { return "Routing::Protocol::DedupViaKeyMetric"; }

  const Kel::Ptr<const Rib::DedupViaKey>& dedupViaKey() const { return dedupViaKey_; }
  const Rib::ViaKey& viaKey() const { return dedupViaKey_->key(); }
  // Kept in the entity's spare word.
  RouteMetric metric() const { return word_; }
  void metricIs(RouteMetric m) { attributeIs(word_, m, &Notifiee::onMetric); }

 private:
  Kel::Ptr<const Rib::DedupViaKey> dedupViaKey_;
};

// The vias of one via type at one preference. Never empty while reachable
// from a RoutePref (its convenience mutators keep that).
class DedupViaKeyByViaType final : public Kel::Entity {
 public:
  // Few vias a type as a rule: flat, in hash order, an ECMP pair inline.
  using DedupViaKeyMap =
      Kel::FlatHashedPtrMap<Rib::ViaKey, DedupViaKeyMetric, &DedupViaKeyMetric::viaKey, 2>;
  class Notifiee : public Kel::NotifieeOf<DedupViaKeyByViaType> {
   public:
    virtual void onDedupViaKey(const Rib::ViaKey&) {}
  };
  explicit DedupViaKeyByViaType(ViaType viaType) { word_ = uint32_t(viaType.viaType()); }
  const char* typeName() const override { return "Routing::Protocol::DedupViaKeyByViaType"; }

  // Kept in the entity's spare word.
  ViaType viaType() const { return ViaType(ViaTypeEnum(word_)); }
  Kel::Ptr<DedupViaKeyMetric> dedupViaKey(const Rib::ViaKey& k) const;
  const DedupViaKeyMap& dedupViaKey() const { return dedupViaKey_; }
  uint32_t dedupViaKeySize() const { return dedupViaKey_.size(); }
  // Stores `m` under `k`, which must be m's own via key; replaces any entry.
  void dedupViaKeyIs(const Rib::ViaKey& k, Kel::Ptr<DedupViaKeyMetric> m);
  void dedupViaKeyDel(const Rib::ViaKey& k);
  void dedupViaKeyDelAll();

 private:
  DedupViaKeyMap dedupViaKey_;
};

// The candidate set of a route at one preference.
class RoutePref final : public Kel::Entity {
 public:
  using ByViaTypeMap =
      Kel::OrderedPtrMap<ViaType, DedupViaKeyByViaType, &DedupViaKeyByViaType::viaType>;
  class Notifiee : public Kel::NotifieeOf<RoutePref> {
   public:
    virtual void onFecType() {}
    virtual void onInstallInFib() {}
    virtual void onFibRouteType() {}
    virtual void onTag() {}
    virtual void onDedupViaKeyByViaType(const ViaType&) {}
    virtual void onDedupViaSetKey() {}
    virtual void onDedupEvpnVtepIpViaKey(const Rib::ViaKey&) {}
    virtual void onBfdTrackedViaColl(const Rib::ViaKey&) {}
  };
  explicit RoutePref(RoutePreference preference);
  ~RoutePref() override;
  const char* typeName() const override { return "Routing::Protocol::RoutePref"; }

  RoutePreference preference() const { return preference_; }
  uint8_t fecType() const { return fecType_; }
  bool installInFib() const { return installInFib_; }
  Fib::RouteType fibRouteType() const { return fibRouteType_; }
  uint32_t tag() const { return tag_; }
  const Kel::Ptr<const Rib::DedupViaSetKey>& dedupViaSetKey() const;

  void fecTypeIs(uint8_t v) { attributeIs(fecType_, v, &Notifiee::onFecType); }
  void installInFibIs(bool v) { attributeIs(installInFib_, v, &Notifiee::onInstallInFib); }
  void fibRouteTypeIs(Fib::RouteType v) {
    attributeIs(fibRouteType_, v, &Notifiee::onFibRouteType);
  }
  void tagIs(uint32_t v) { attributeIs(tag_, v, &Notifiee::onTag); }
  void dedupViaSetKeyIs(Kel::Ptr<const Rib::DedupViaSetKey> v);

  // Via types, most preferred first.
  const ByViaTypeMap& dedupViaKeyByViaType() const { return dedupViaKeyByViaType_; }
  Kel::Ptr<DedupViaKeyByViaType> dedupViaKeyByViaType(const ViaType& t) const;
  // Creates the by-type entry when absent; returns it.
  Kel::Ptr<DedupViaKeyByViaType> dedupViaKeyByViaTypeIs(const ViaType& t);
  void dedupViaKeyByViaTypeDel(const ViaType& t);
  void dedupViaKeyByViaTypeDelAll();

  // Convenience mutators that keep every by-type entry non-empty.
  void dedupViaKeyIs(const ViaType& t, Kel::Ptr<const Rib::DedupViaKey> k, RouteMetric metric);
  void dedupViaKeyDel(const ViaType& t, const Rib::ViaKey& k);
  void dedupViaKeyDelAll(const ViaType& t);

  // The VTEP (underlay) via an EVPN via depends on; null when none.
  Kel::Ptr<const Rib::DedupViaKey> dedupEvpnVtepIpViaKey(const Rib::ViaKey& k) const;
  void dedupEvpnVtepIpViaKeyIs(const Rib::ViaKey& k, Kel::Ptr<const Rib::DedupViaKey> vtep);
  void dedupEvpnVtepIpViaKeyDel(const Rib::ViaKey& k);
  void dedupEvpnVtepIpViaKeyDelAll();

  // Vias of this preference tracked by BFD.
  bool bfdTrackedViaCollHas(const Rib::ViaKey& k) const;
  uint32_t bfdTrackedViaCollSize() const;
  void bfdTrackedViaCollIs(const Rib::ViaKey& k);
  void bfdTrackedViaCollDel(const Rib::ViaKey& k);
  void bfdTrackedViaCollDelAll();
  template <class F>
  void forEachBfdTrackedVia(F&& f) const {
    if (extras_) {
      for (const Rib::ViaKey& k : extras_->bfdTrackedViaColl) f(k);
    }
  }

 private:
  struct VtepEntry {
    Rib::ViaKey via;
    Kel::Ptr<const Rib::DedupViaKey> vtep;
  };
  struct VtepTraits {
    using Entry = VtepEntry;
    using Key = Rib::ViaKey;
    static const Rib::ViaKey& key(const VtepEntry& e) { return e.via; }
    static uint32_t hash(const Rib::ViaKey& k) { return k.hash(Kel::collectionHashSeed); }
  };
  // EVPN and BFD data and a via set key are rare: kept out of line so a
  // plain preference stays small.
  struct Extras {
    Kel::Ptr<const Rib::DedupViaSetKey> dedupViaSetKey;
    Kel::HashTable<VtepTraits> dedupEvpnVtepIpViaKey;
    Kel::HashedSet<Rib::ViaKey> bfdTrackedViaColl;
  };
  Extras& extras();
  friend class Route;
  // Links this preference to `route` and its via types to it (null: unlinks them).
  void subtreeLinkIs(const Route* route);

  RoutePreference preference_;
  uint8_t fecType_ = 0;
  bool installInFib_ = true;
  Fib::RouteType fibRouteType_{};
  uint32_t tag_ = 0;
  ByViaTypeMap dedupViaKeyByViaType_;
  std::unique_ptr<Extras> extras_;
};

// One prefix.
class Route final : public Kel::Entity {
 public:
  using RoutePrefMap = Kel::OrderedPtrMap<RoutePreference, RoutePref, &RoutePref::preference>;
  class Notifiee : public Kel::NotifieeOf<Route> {
   public:
    virtual void onRoutePref(const RoutePreference&) {}
    virtual void onSrcVrfId() {}
    virtual void onRouteChangedAt() {}
    virtual void onFiled() {}
  };
  explicit Route(const Pando::IpGenPrefix& prefix) : prefix_(prefix) {
    word_ = Vrf::VrfIdMap::invalidVrfId;
  }
  ~Route() override;
  const char* typeName() const override { return "Routing::Protocol::Route"; }

  const Pando::IpGenPrefix& prefix() const { return prefix_; }
  // Kept in the entity's spare word.
  Vrf::VrfIdMap::VrfId srcVrfId() const { return word_; }
  // Seconds on the framework clock of the last change; 0: not ready.
  double routeChangedAt() const { return routeChangedAt_; }
  void srcVrfIdIs(Vrf::VrfIdMap::VrfId v) { attributeIs(word_, v, &Notifiee::onSrcVrfId); }
  void routeChangedAtIs(double t) { attributeIs(routeChangedAt_, t, &Notifiee::onRouteChangedAt); }

  // Filed in a Status: from its creation there until its removal (a route
  // is never filed again), which its reactors hear first, before the
  // status's. A reactor of a filed route knows that route is its status's
  // route for the prefix, without a look-up.
  bool filed() const { return filed_; }

  // Preferences, most preferred (lowest) first.
  const RoutePrefMap& routePref() const { return routePref_; }
  Kel::Ptr<RoutePref> routePref(RoutePreference p) const;
  Kel::Ptr<RoutePref> routePrefIs(RoutePreference p);
  void routePrefDel(RoutePreference p);
  void routePrefDelAll();

  // A reactor that hears the whole route through handleNested, with the
  // preference whose part changed, rather than through a reactor on every
  // preference and via type (counted): from the first, the route's
  // preferences and via types pass their changes up (Kel::Entity), until
  // they leave the route or it goes.
  void nestedWatcherIs();
  void nestedWatcherDel();

 private:
  friend class Status;
  void filedIs(bool v) { attributeIs(filed_, v, &Notifiee::onFiled); }

  Pando::IpGenPrefix prefix_;
  bool filed_ = false;
  uint8_t nestedWatchers_ = 0;
  bool subtreeLinked_ = false;  // since the first nested watcher
  RoutePrefMap routePref_;
  double routeChangedAt_ = 0;
};

// One protocol's routes in one VRF and address family.
class Status final : public Kel::Entity {
 public:
  using RouteMap = Kel::HashedPtrMap<Pando::IpGenPrefix, Route, &Route::prefix>;
  class Notifiee : public Kel::NotifieeOf<Status> {
   public:
    virtual void onRoute(const Pando::IpGenPrefix&) {}
    virtual void onInitialized() {}
  };
  explicit Status(const RouteStatusKey& key) : key_(key) {}
  ~Status() override;
  const char* typeName() const override { return "Routing::Protocol::Status"; }

  const RouteStatusKey& key() const { return key_; }
  bool initialized() const { return initialized_; }
  void initializedIs(bool v) { attributeIs(initialized_, v, &Notifiee::onInitialized); }

  // Routes in hash order; seek() resumes at a prefix.
  const RouteMap& route() const { return route_; }
  Kel::Ptr<Route> route(const Pando::IpGenPrefix& p) const;
  uint32_t routeSize() const { return route_.size(); }
  // Returns the route for `p`, creating an empty one when absent.
  Kel::Ptr<Route> routeIs(const Pando::IpGenPrefix& p);
  // A writer that knows the prefixes it files next (a protocol loading a
  // table) names each a few routes ahead: the slot it will take starts
  // loading, so that the miss overlaps the writes before it.
  void routeWriteAhead(const Pando::IpGenPrefix& p) const { route_.prefetch(route_.hashOf(p)); }
  void routeDel(const Pando::IpGenPrefix& p);
  void routeDelAll();

 private:
  RouteStatusKey key_;
  RouteMap route_;
  // The route filed last, asked for at once by every reactor that hears of
  // it: found without a probe. Null once it leaves.
  Route* lastFiled_ = nullptr;
  bool initialized_ = false;
};

Kel::Ptr<Status> statusFactory(const RouteStatusKey& key);

// ------------------------------------------------------------ look-ahead

// Passes that evaluate many routes (a review, the users of one via) wait on
// cache misses along route -> preference -> via type -> via list -> vias.
// Each step brings one link of that chain toward the cache, for the first
// preference and via type: step 0 the route itself, 1 its preference, 2 the
// via type, 3 the via list, 4 the vias. Step n reads only what step n - 1
// brought, so a pass runs the steps a few routes apart (see Kel::Lookahead).
inline constexpr int routePrefetchSteps = 5;

inline void prefetchRouteStep(const Route& route, int step) {
  if (step == 0) {
    Kel::prefetchObject(&route);
    return;
  }
  if (route.routePref().empty()) return;
  const RoutePref& pref = *route.routePref().front();
  if (step == 1) {
    Kel::prefetchObject(&pref);
    return;
  }
  if (pref.dedupViaKeyByViaType().empty()) return;
  const DedupViaKeyByViaType& byType = *pref.dedupViaKeyByViaType().front();
  if (step == 2) {
    Kel::prefetchObject(&byType);
    return;
  }
  const DedupViaKeyByViaType::DedupViaKeyMap& vias = byType.dedupViaKey();
  if (step == 3) {
    Kel::prefetchLine(vias.begin());
    return;
  }
  // A few: a long via list is rare, and its tail would evict what the next routes need.
  const uint32_t n = std::min(vias.size(), 4u);
  for (uint32_t i = 0; i < n; ++i) Kel::prefetchObject(vias.begin()[i].ptr());
}

// All statuses of one protocol.
class RouteStatusDir final : public Kel::Entity {
 public:
  using StatusMap = Kel::HashedPtrMap<RouteStatusKey, Status, &Status::key>;
  class Notifiee : public Kel::NotifieeOf<RouteStatusDir> {
   public:
    virtual void onStatus(const RouteStatusKey&) {}
  };
  const char* typeName() const override { return "Routing::Protocol::RouteStatusDir"; }

  const StatusMap& status() const { return status_; }
  Kel::Ptr<Status> status(const RouteStatusKey& k) const;
  // Files `s` under its key, replacing any status with that key.
  void statusIs(Kel::Ptr<Status> s);
  void statusDel(const RouteStatusKey& k);
  void statusDelAll();

 private:
  StatusMap status_;
};

Kel::Ptr<RouteStatusDir> routeStatusDirFactory();

// Reverse index: the route preferences that use one via key.
class RouteByViaKey final : public Kel::Entity {
 public:
  class Notifiee : public Kel::NotifieeOf<RouteByViaKey> {
   public:
    virtual void onRoute(const PrefixPrefVrfId&) {}
  };
  explicit RouteByViaKey(const Rib::ViaKey& viaKey) : viaKey_(viaKey) {}
  const char* typeName() const override { return "Routing::Protocol::RouteByViaKey"; }

  const Rib::ViaKey& viaKey() const { return viaKey_; }
  const Kel::HashedSet<PrefixPrefVrfId>& route() const { return route_; }
  bool routeHas(const PrefixPrefVrfId& r) const { return route_.find(r) != nullptr; }
  uint32_t routeSize() const { return route_.size(); }
  void routeIs(const PrefixPrefVrfId& r);
  void routeDel(const PrefixPrefVrfId& r);
  void routeDelAll();

 private:
  Rib::ViaKey viaKey_;
  Kel::HashedSet<PrefixPrefVrfId> route_;
};

}  // namespace Routing::Protocol
