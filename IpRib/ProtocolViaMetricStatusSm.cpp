#include "IpRib/ProtocolViaMetricStatusSm.h"

#include <algorithm>

#include "Kel/Assert.h"
#include "Kel/System.h"
#include "Kel/Trace.h"
#include "platform/Flipset/Flipset.h"

namespace Routing::Protocol {

namespace {
Kel::TraceFacility trace("IpRib::ViaMetricStatusSm");

// Keeps the reactor of `key` while it watches `entity`, else makes one for
// `entity` (replacing any). Returns whether a reactor was made.
template <class K, class R, template <class, auto...> class C, class E, class Owner>
bool reactorIs(Kel::NestedReactors<K, R, C>& reactors, const K& key, E* entity, Owner* owner) {
  if (entity == nullptr) return false;
  if (const R* r = reactors.find(key); r != nullptr && r->notifier() == entity) return false;
  reactors.replace(Kel::makePtr<R>(owner, entity));
  return true;
}
}  // namespace

// ------------------------------------------------------------ via metric side

class ViaMetricStatusSm::KelViaMetricStatusByVrf final
    : public Rib::ViaMetricStatusByVrf::Notifiee {
 public:
  KelViaMetricStatusByVrf(ViaMetricStatusSm* sm, const Rib::ViaMetricStatusByVrf* byVrf) : sm_(sm) {
    notifierIs(byVrf);
  }
  void onViaMetricStatusByTransport(Vrf::VrfIdMap::VrfId vrfId) override {
    if (notifier()->viaMetricStatusByTransport(vrfId)) {
      sm_->vmsByTransportIs(vrfId);
    } else {
      sm_->vmsByTransportDel(vrfId);
    }
  }

 private:
  ViaMetricStatusSm* sm_;
};

class ViaMetricStatusSm::KelVmsByTransport final
    : public Rib::ViaMetricStatusByTransport::Notifiee {
 public:
  class KelVmsByProto;
  KelVmsByTransport(ViaMetricStatusSm* sm, Rib::ViaMetricStatusByTransport* byTransport);
  Vrf::VrfIdMap::VrfId key() const { return notifier()->vrfId(); }
  ViaMetricStatusSm* sm() const { return sm_; }
  void onViaMetricStatusByProtocol(uint8_t transport) override {
    if (notifier()->viaMetricStatusByProtocol(transport)) {
      vmsByProtoIs(transport);
    } else {
      vmsByProtoDel(transport);
    }
  }
  void vmsByProtoIs(uint8_t transport);
  void vmsByProtoDel(uint8_t transport);
  // Every via of every table below: the tables are going.
  void handleViaMetric();

 private:
  ViaMetricStatusSm* sm_;
  Kel::NestedReactors<uint8_t, KelVmsByProto> vmsByProto_;
};

class ViaMetricStatusSm::KelVmsByTransport::KelVmsByProto final
    : public Rib::ViaMetricStatusByProtocol::Notifiee {
 public:
  class KelVms;
  KelVmsByProto(KelVmsByTransport* parent, Rib::ViaMetricStatusByProtocol* byProtocol);
  uint8_t key() const { return notifier()->kind(); }
  Rib::Transport transport() const { return Rib::Transport(key()); }
  KelVmsByTransport* parent() const { return parent_; }
  void onViaMetricStatus(uint32_t proto) override {
    if (notifier()->viaMetricStatus(proto)) {
      vmsIs(proto);
    } else {
      vmsDel(proto);
    }
  }
  void vmsIs(uint32_t proto);
  void vmsDel(uint32_t proto);
  void handleViaMetric();

 private:
  KelVmsByTransport* parent_;
  Kel::NestedReactors<uint32_t, KelVms> vms_;
};

class ViaMetricStatusSm::KelVmsByTransport::KelVmsByProto::KelVms final
    : public Rib::ViaMetricStatus::Notifiee {
 public:
  KelVms(KelVmsByProto* parent, Rib::ViaMetricStatus* vms) : parent_(parent) {
    notifierIs(vms);
    handleInitialized();
  }
  uint32_t key() const { return notifier()->selector(); }
  void onViaMetric(const Rib::ViaKey& viaKey) override { handleViaMetric(viaKey); }
  // The RIB changed every via of the table at once.
  void onGeneration() override { handleViaMetric(); }

  void handleInitialized() {
    KEL_TRACE(trace, 8,
              "void Routing::Protocol::ViaMetricStatusSm::KelVmsByTransport::KelVmsByProto::"
              "KelVms::handleInitialized()");
    initialized_ = true;
    handleViaMetric();
  }
  // The full sweep: every via key of the table.
  void handleViaMetric() {
    if (!initialized_) return;
    for (const Rib::ViaMetricStatus::Entry& e : notifier()->viaMetric()) handleViaMetric(e.viaKey);
  }
  void handleViaMetric(const Rib::ViaKey& viaKey) {
    KEL_TRACE(trace, 8,
              "void Routing::Protocol::ViaMetricStatusSm::KelVmsByTransport::KelVmsByProto::"
              "KelVms::handleViaMetric(const Routing::Rib::ViaKey&)"
                  << " for " << viaKey << " in protocol " << key());
    KelVmsByTransport* byTransport = parent_->parent();
    byTransport->sm()->handleViaMetric(byTransport->key(), parent_->transport(), key(), viaKey);
  }

 private:
  KelVmsByProto* parent_;
  bool initialized_ = false;
};

ViaMetricStatusSm::KelVmsByTransport::KelVmsByTransport(
    ViaMetricStatusSm* sm, Rib::ViaMetricStatusByTransport* byTransport)
    : sm_(sm), vmsByProto_(this) {
  notifierIs(byTransport);
  for (const auto& byProtocol : byTransport->viaMetricStatusByProtocol()) {
    vmsByProtoIs(byProtocol->kind());
  }
}

void ViaMetricStatusSm::KelVmsByTransport::vmsByProtoIs(uint8_t transport) {
  reactorIs(vmsByProto_, transport, notifier()->viaMetricStatusByProtocol(transport).ptr(), this);
}

ViaMetricStatusSm::KelVmsByTransport::KelVmsByProto::KelVmsByProto(
    KelVmsByTransport* parent, Rib::ViaMetricStatusByProtocol* byProtocol)
    : parent_(parent), vms_(this) {
  notifierIs(byProtocol);
  for (const auto& vms : byProtocol->viaMetricStatus()) vmsIs(vms->selector());
}

void ViaMetricStatusSm::KelVmsByTransport::KelVmsByProto::vmsIs(uint32_t proto) {
  reactorIs(vms_, proto, notifier()->viaMetricStatus(proto).ptr(), this);
}

// A table that goes leaves its vias unresolved: each counts as removed. The
// reactor still holds the table, entries and all.
void ViaMetricStatusSm::KelVmsByTransport::KelVmsByProto::vmsDel(uint32_t proto) {
  if (KelVms* vms = vms_.find(proto)) vms->handleViaMetric();
  vms_.erase(proto);
}

void ViaMetricStatusSm::KelVmsByTransport::KelVmsByProto::handleViaMetric() {
  for (const auto& vms : vms_) vms->handleViaMetric();
}

void ViaMetricStatusSm::KelVmsByTransport::vmsByProtoDel(uint8_t transport) {
  if (KelVmsByProto* byProto = vmsByProto_.find(transport)) byProto->handleViaMetric();
  vmsByProto_.erase(transport);
}

void ViaMetricStatusSm::KelVmsByTransport::handleViaMetric() {
  for (const auto& byProto : vmsByProto_) byProto->handleViaMetric();
}

// ------------------------------------------------------------ route status side

class ViaMetricStatusSm::KelRouteStatusDir final : public RouteStatusDir::Notifiee {
 public:
  KelRouteStatusDir(ViaMetricStatusSm* sm, RouteStatusDir* dir) : sm_(sm) { notifierIs(dir); }
  void onStatus(const RouteStatusKey& key) override {
    if (notifier()->status(key)) {
      sm_->routeStatusIs(key);
    } else {
      sm_->routeStatusDel(key);
    }
  }

 private:
  ViaMetricStatusSm* sm_;
};

// The store makes routes and preferences empty: their via keys arrive
// through the via type reactors, which file what a new via type holds.
// The route reactors sit in a slab of the status's reactor, with no table
// by prefix: a million routes would pay a slot each, and a miss per route
// filed. Each is reached through its route, and leaves when the route does
// (KelRoute::onFiled), before the status tells of it.
class ViaMetricStatusSm::KelRouteStatus final : public Status::Notifiee {
 public:
  using RouteReactors = Kel::NestedReactorSlab<KelRoute>;
  KelRouteStatus(ViaMetricStatusSm* sm, Status* status);
  const RouteStatusKey& key() const { return notifier()->key(); }
  ViaMetricStatusSm* sm() const { return sm_; }
  const RouteReactors& route() const { return route_; }
  // Set once handleDel has withdrawn the whole status from the index.
  bool indexWithdrawn() const { return indexWithdrawn_; }

  // A route that went has lost its reactor already (KelRoute::onFiled).
  void onRoute(const Pando::IpGenPrefix& prefix) override {
    if (notifier()->route(prefix)) routeIs(prefix);
  }
  void routeIs(const Pando::IpGenPrefix& prefix);
  void routeDel(KelRoute* reactor) { route_.erase(reactor); }
  void handleDel() override {
    KEL_TRACE(trace, 8, "void Routing::Protocol::ViaMetricStatusSm::KelRouteStatus::handleDel()");
    sm_->handleRouteStatus(key(), true);
    // The framework's cascade runs the routes' and preferences' handleDel
    // next: they must not withdraw the same elements again.
    indexWithdrawn_ = true;
  }

 private:
  ViaMetricStatusSm* sm_;
  RouteReactors route_;
  bool indexWithdrawn_ = false;
};

class ViaMetricStatusSm::KelRoute final : public Route::Notifiee {
 public:
  class KelRoutePref;
  using RoutePrefReactors = Kel::NestedReactors<RoutePreference, KelRoutePref, Kel::FlatMap>;
  static void* operator new(std::size_t size, Kel::Slab& slab) {
    return KelRouteStatus::RouteReactors::slabAllocate(size, slab);
  }
  static void operator delete(void* p) { Kel::Slab::deallocate(p); }
  static void operator delete(void* p, Kel::Slab&) { Kel::Slab::deallocate(p); }

  explicit KelRoute(Route* route);
  const Pando::IpGenPrefix& key() const { return notifier()->prefix(); }
  // Found from the reactor's own address (its slab's owner).
  KelRouteStatus* parent() const {
    return static_cast<KelRouteStatus*>(KelRouteStatus::RouteReactors::owner(this));
  }
  const RoutePrefReactors& routePref() const { return routePref_; }
  // Marked by a filing whose stamp is deferred; any write of routeChangedAt
  // serves the mark, as it would have overwritten the stamp.
  bool stampMarked() const { return stampMarked_; }
  void stampMarkedIs(bool v) { stampMarked_ = v; }
  void onRouteChangedAt() override { stampMarkedIs(false); }
  // The route left its status: its reactor goes, withdrawing its elements.
  void onFiled() override {
    if (!notifier()->filed()) parent()->routeDel(this);
  }

  void onRoutePref(const RoutePreference& pref) override {
    if (notifier()->routePref(pref)) {
      routePrefIs(pref);
    } else {
      routePrefDel(pref);
    }
  }
  void routePrefIs(RoutePreference pref);
  void routePrefDel(RoutePreference pref) { routePref_.erase(pref); }
  // Each preference's handleDel follows in the framework's cascade and
  // withdraws that preference's elements.
  void handleDel() override {
    KEL_TRACE(trace, 8,
              "void Routing::Protocol::ViaMetricStatusSm::KelRouteStatus::KelRoute::handleDel()");
  }

 private:
  bool stampMarked_ = false;
  RoutePrefReactors routePref_;
};

class ViaMetricStatusSm::KelRoute::KelRoutePref final : public RoutePref::Notifiee {
 public:
  class KelDedupViaKeyByViaType;
  using ViaTypeReactors = Kel::NestedReactors<ViaType, KelDedupViaKeyByViaType, Kel::FlatMap>;
  KelRoutePref(KelRoute* parent, RoutePref* routePref);
  RoutePreference key() const { return notifier()->preference(); }
  const ViaTypeReactors& dedupViaKeyByViaType() const { return dedupViaKeyByViaType_; }

  void onDedupViaKeyByViaType(const ViaType& viaType) override {
    if (notifier()->dedupViaKeyByViaType(viaType)) {
      dedupViaKeyByViaTypeIs(viaType);
    } else {
      dedupViaKeyByViaTypeDel(viaType);
    }
  }
  void dedupViaKeyByViaTypeIs(const ViaType& viaType);
  // The via keys of the type that went are looked at again: another via
  // type may still list them.
  void dedupViaKeyByViaTypeDel(const ViaType& viaType);
  void handleViaKey(const Rib::ViaKey& viaKey) {
    KEL_TRACE(trace, 8,
              "void Routing::Protocol::ViaMetricStatusSm::KelRouteStatus::KelRoute::KelRoutePref::"
              "handleViaKey(const Routing::Rib::ViaKey&)"
                  << " for " << viaKey);
    KelRouteStatus* status = parent_->parent();
    status->sm()->fileRouteViaKey(status->notifier(), parent_->notifier(), notifier(), viaKey,
                                  false, false, parent_);
  }
  void handleDel() override;

 private:
  KelRoute* parent_;
  ViaTypeReactors dedupViaKeyByViaType_;
};

class ViaMetricStatusSm::KelRoute::KelRoutePref::KelDedupViaKeyByViaType final
    : public DedupViaKeyByViaType::Notifiee {
 public:
  KelDedupViaKeyByViaType(KelRoutePref* parent, DedupViaKeyByViaType* byType) : parent_(parent) {
    notifierIs(byType);
  }
  ViaType key() const { return notifier()->viaType(); }
  void onDedupViaKey(const Rib::ViaKey& viaKey) override { parent_->handleViaKey(viaKey); }

 private:
  KelRoutePref* parent_;
};

ViaMetricStatusSm::KelRouteStatus::KelRouteStatus(ViaMetricStatusSm* sm, Status* status)
    : sm_(sm), route_(this) {
  notifierIs(status);
  for (const Kel::Ptr<Route>& route : status->route()) route_.make(route.ptr());
}

void ViaMetricStatusSm::KelRouteStatus::routeIs(const Pando::IpGenPrefix& prefix) {
  route_.make(notifier()->route(prefix).ptr());
}

ViaMetricStatusSm::KelRoute::KelRoute(Route* route) : routePref_(this) {
  notifierIs(route);
  for (const Kel::Ptr<RoutePref>& pref : route->routePref()) {
    routePref_.insert(Kel::makePtr<KelRoutePref>(this, pref.ptr()));
  }
}

void ViaMetricStatusSm::KelRoute::routePrefIs(RoutePreference pref) {
  reactorIs(routePref_, pref, notifier()->routePref(pref).ptr(), this);
}

ViaMetricStatusSm::KelRoute::KelRoutePref::KelRoutePref(KelRoute* parent, RoutePref* routePref)
    : parent_(parent), dedupViaKeyByViaType_(this) {
  notifierIs(routePref);
  for (const Kel::Ptr<DedupViaKeyByViaType>& byType : routePref->dedupViaKeyByViaType()) {
    dedupViaKeyByViaType_.insert(Kel::makePtr<KelDedupViaKeyByViaType>(this, byType.ptr()));
  }
}

void ViaMetricStatusSm::KelRoute::KelRoutePref::dedupViaKeyByViaTypeIs(const ViaType& viaType) {
  const Kel::Ptr<DedupViaKeyByViaType> byType = notifier()->dedupViaKeyByViaType(viaType);
  if (!reactorIs(dedupViaKeyByViaType_, viaType, byType.ptr(), this)) return;
  for (const Kel::Ptr<DedupViaKeyMetric>& via : byType->dedupViaKey()) handleViaKey(via->viaKey());
}

void ViaMetricStatusSm::KelRoute::KelRoutePref::dedupViaKeyByViaTypeDel(const ViaType& viaType) {
  const KelDedupViaKeyByViaType* reactor = dedupViaKeyByViaType_.find(viaType);
  if (reactor == nullptr) return;
  const Kel::Ptr<DedupViaKeyByViaType> gone(reactor->notifier());
  dedupViaKeyByViaType_.erase(viaType);
  for (const Kel::Ptr<DedupViaKeyMetric>& via : gone->dedupViaKey()) handleViaKey(via->viaKey());
}

void ViaMetricStatusSm::KelRoute::KelRoutePref::handleDel() {
  KEL_TRACE(trace, 8,
            "void Routing::Protocol::ViaMetricStatusSm::KelRouteStatus::KelRoute::KelRoutePref::"
            "handleDel()");
  KelRouteStatus* status = parent_->parent();
  if (status->indexWithdrawn()) return;
  const Kel::Ptr<Status> rs(status->notifier());
  const Kel::Ptr<Route> route(parent_->notifier());
  const Kel::Ptr<RoutePref> routePref(notifier());
  for (const Kel::Ptr<KelDedupViaKeyByViaType>& byType : dedupViaKeyByViaType_) {
    for (const Kel::Ptr<DedupViaKeyMetric>& via : byType->notifier()->dedupViaKey()) {
      status->sm()->handleRouteViaKey(rs, route, routePref, via->viaKey(), true, true);
    }
  }
}

// ------------------------------------------------------------ construction

ViaMetricStatusSm::ViaMetricStatusSm(
    const Kel::Ptr<const Rib::ViaMetricStatusByVrf>& viaMetricStatusByVrf,
    const Kel::Ptr<RouteStatusDir>& routeStatusDir)
    : viaMetricStatusByVrf_(viaMetricStatusByVrf),
      routeStatusDir_(routeStatusDir),
      kelViaMetricStatusByVrf_(this),
      vmsByTransport_(this),
      kelRouteStatusDir_(this),
      routeStatus_(this),
      kelClock_(this) {
  KEL_ASSERT(viaMetricStatusByVrf_ && routeStatusDir_);
  clock_ = Kel::ActivityManager::instance().newClock();
  kelClock_.reactorIs(Kel::makePtr<KelClock>(this, clock_.ptr()));
  // The via metric side first: its sweeps then find an empty index and stamp
  // nothing that filing the routes does not stamp anyway.
  kelViaMetricStatusByVrf_.reactorIs(
      Kel::makePtr<KelViaMetricStatusByVrf>(this, viaMetricStatusByVrf_.ptr()));
  for (const auto& byTransport : viaMetricStatusByVrf_->viaMetricStatusByTransport()) {
    vmsByTransportIs(byTransport->vrfId());
  }
  kelRouteStatusDir_.reactorIs(Kel::makePtr<KelRouteStatusDir>(this, routeStatusDir_.ptr()));
  for (const Kel::Ptr<Status>& status : routeStatusDir_->status()) {
    routeStatus_.insert(Kel::makePtr<KelRouteStatus>(this, status.ptr()));
  }
  handleInitialized();
}

ViaMetricStatusSm::~ViaMetricStatusSm() = default;

Kel::Ptr<ViaMetricStatusSm> ViaMetricStatusSm::ViaMetricStatusSmIs(
    const Kel::Ptr<const Rib::ViaMetricStatusByVrf>& viaMetricStatusByVrf,
    const Kel::Ptr<RouteStatusDir>& routeStatusDir) {
  return Kel::makePtr<ViaMetricStatusSm>(viaMetricStatusByVrf, routeStatusDir);
}

Kel::Ptr<ViaMetricStatusSm> viaMetricStatusSmFactory(
    const Kel::Ptr<const Rib::ViaMetricStatusByVrf>& viaMetricStatusByVrf,
    const Kel::Ptr<RouteStatusDir>& routeStatusDir) {
  return ViaMetricStatusSm::ViaMetricStatusSmIs(viaMetricStatusByVrf, routeStatusDir);
}

void ViaMetricStatusSm::vmsByTransportIs(Vrf::VrfIdMap::VrfId vrfId) {
  reactorIs(vmsByTransport_, vrfId, viaMetricStatusByVrf_->viaMetricStatusByTransport(vrfId).ptr(),
            this);
}

void ViaMetricStatusSm::vmsByTransportDel(Vrf::VrfIdMap::VrfId vrfId) {
  if (KelVmsByTransport* byTransport = vmsByTransport_.find(vrfId)) byTransport->handleViaMetric();
  vmsByTransport_.erase(vrfId);
}

void ViaMetricStatusSm::routeStatusIs(const RouteStatusKey& key) {
  if (reactorIs(routeStatus_, key, routeStatusDir_->status(key).ptr(), this)) {
    handleRouteStatus(key, false);
  }
}

void ViaMetricStatusSm::routeStatusDel(const RouteStatusKey& key) {
  routeStatus_.erase(key);
  handleRouteStatus(key, false);
}

// ------------------------------------------------------------ the index

Kel::Ptr<RouteByViaKey> ViaMetricStatusSm::routeByViaKey(const Rib::ViaKey& viaKey) const {
  const auto* e = routeByViaKey_.find(viaKey);
  return e ? *e : nullptr;
}

Kel::Ptr<RouteByViaKey> ViaMetricStatusSm::routeByViaKeyIs(const Rib::ViaKey& viaKey) {
  if (const auto* e = routeByViaKey_.find(viaKey)) return *e;
  return *routeByViaKey_.insert(Kel::makePtr<RouteByViaKey>(viaKey)).first;
}

void ViaMetricStatusSm::routeByViaKeyDel(const Rib::ViaKey& viaKey) {
  routeByViaKey_.erase(viaKey);
}

void ViaMetricStatusSm::routeByViaKeyDelAll() { routeByViaKey_.clear(); }

// ------------------------------------------------------------ handlers

void ViaMetricStatusSm::handleInitialized() {
  KEL_TRACE(trace, 8, "void Routing::Protocol::ViaMetricStatusSm::handleInitialized()");
  initialized_ = true;
  for (const Kel::Ptr<Status>& status : routeStatusDir_->status()) {
    const RouteStatusKey key = status->key();
    KEL_TRACE(trace, 9, "handleInitialized key is " << key);
    handleRouteStatus(key, false);
  }
}

void ViaMetricStatusSm::handleRouteStatus(const RouteStatusKey& key, bool forceDel) {
  KEL_TRACE(trace, 8,
            "void Routing::Protocol::ViaMetricStatusSm::handleRouteStatus(const "
            "Routing::Protocol::RouteStatusKey&, bool)"
                << " for " << key << " forceDel is " << (forceDel ? "true" : "false"));
  const KelRouteStatus* kelRouteStatus = routeStatus_.find(key);
  if (kelRouteStatus == nullptr) {
    KEL_TRACE(trace, 9, "handleRouteStatus no routeStatus");
    return;
  }
  const Kel::Ptr<Status> rs(kelRouteStatus->notifier());
  kelRouteStatus->route().forEach([&](KelRoute* kelRoute) {
    const Kel::Ptr<Route> route = rs->route(kelRoute->key());
    KEL_ASSERT(route);
    for (const auto& kelRoutePref : kelRoute->routePref()) {
      const Kel::Ptr<RoutePref> routePref = route->routePref(kelRoutePref->key());
      KEL_ASSERT(routePref);
      for (const auto& kelByType : kelRoutePref->dedupViaKeyByViaType()) {
        const Kel::Ptr<DedupViaKeyByViaType> dedupViaKeyByViaType =
            routePref->dedupViaKeyByViaType(kelByType->key());
        KEL_ASSERT(dedupViaKeyByViaType);
        for (const Kel::Ptr<DedupViaKeyMetric>& via : dedupViaKeyByViaType->dedupViaKey()) {
          fileRouteViaKey(rs, route, routePref, via->viaKey(), forceDel, true, kelRoute);
        }
      }
    }
  });
}

void ViaMetricStatusSm::handleRouteViaKey(const Kel::Ptr<Status>& rs, const Kel::Ptr<Route>& route,
                                          const Kel::Ptr<RoutePref>& routePref,
                                          const Rib::ViaKey& viaKey, bool forceDel,
                                          bool viaKeyExists) {
  KEL_ASSERT(rs && route && routePref);
  fileRouteViaKey(rs, route, routePref, viaKey, forceDel, viaKeyExists, nullptr);
}

void ViaMetricStatusSm::fileRouteViaKey(const Kel::Ptr<Status>& rs, const Kel::Ptr<Route>& route,
                                        const Kel::Ptr<RoutePref>& routePref,
                                        const Rib::ViaKey& viaKey, bool forceDel, bool viaKeyExists,
                                        KelRoute* watcher) {
  KEL_TRACE(trace, 8,
            "void Routing::Protocol::ViaMetricStatusSm::handleRouteViaKey(const Ptr&, const Ptr&, "
            "const Ptr&, const Routing::Rib::ViaKey&, bool, bool)"
                << " rsk: " << rs->key().str() << " prefix: " << route->prefix() << " pref "
                << unsigned(routePref->preference()) << " viaKey: " << viaKey);
  const PrefixPrefVrfId e(route->prefix(), routePref->preference(), rs->key().vrfId());
  Kel::Ptr<RouteByViaKey> rbvk = routeByViaKey(viaKey);
  if (!viaKeyExists) {
    for (const Kel::Ptr<DedupViaKeyByViaType>& byType : routePref->dedupViaKeyByViaType()) {
      if (byType->dedupViaKey().find(viaKey) != nullptr) {
        viaKeyExists = true;
        break;
      }
    }
  }
  if (!forceDel && viaKeyExists) {
    if (!rbvk) {
      rbvk = routeByViaKeyIs(viaKey);
      KEL_ASSERT(rbvk);
    }
    const uint32_t before = rbvk->routeSize();
    rbvk->routeIs(e);
    if (rbvk->routeSize() != before) stampFiled(*rs, *route, watcher);
    return;
  }
  if (!rbvk) return;
  rbvk->routeDel(e);
  if (rbvk->routeSize() == 0) routeByViaKeyDel(viaKey);
}

void ViaMetricStatusSm::handleViaMetric(Vrf::VrfIdMap::VrfId vrfId, Rib::Transport transport,
                                        uint32_t proto, const Rib::ViaKey& viaKey) {
  KEL_TRACE(trace, 8,
            "void Routing::Protocol::ViaMetricStatusSm::handleViaMetric(Vrf::VrfIdMap::VrfId, "
            "Routing::Rib::Transport, Routing::RoutingProtocol, const Routing::Rib::ViaKey&)"
                << " vrf: " << vrfId << " transport: " << unsigned(transport) << " proto: " << proto
                << " key: " << viaKey);
  const Kel::Ptr<RouteByViaKey> rbvk = routeByViaKey(viaKey);
  if (!rbvk) return;
  // A pending sweep starts over even when its via has few users left: the
  // stamps it already made predate this change.
  if (pacedSweep() && (rbvk->routeSize() > sweepThreshold_ || sweepPending(viaKey))) {
    return sweepIs(viaKey);
  }
  Kel::Ptr<const Status> status;
  visitAhead(rbvk->route(), rbvk->route().begin(), [&](const PrefixPrefVrfId& e) {
    if (const Kel::Ptr<Route> route = sweptRoute(e, status)) {
      KEL_TRACE(trace, 9, "handleViaMetric setting route changed on " << e.str());
      route->routeChangedAtIs(Kel::System::currentTime());
    }
    return true;
  });
}

Kel::Ptr<Route> ViaMetricStatusSm::sweptRoute(const PrefixPrefVrfId& e,
                                              Kel::Ptr<const Status>& status) const {
  KEL_TRACE(trace, 9, "handleViaMetric looking at " << e.str());
  const RouteStatusKey rsk(e.vrfId(), e.prefix().af());
  if (!status || !(status->key() == rsk)) status = routeStatusDir_->status(rsk);
  if (!status) {
    KEL_TRACE(trace, 9, "handleViaMetric no status for this route");
    return nullptr;
  }
  Kel::Ptr<Route> route = status->route(e.prefix());
  if (!route) {
    KEL_TRACE(trace, 9, "handleViaMetric no route from " << rsk);
  }
  return route;
}

template <class Visit>
ViaMetricStatusSm::RouteSet::const_iterator ViaMetricStatusSm::visitAhead(
    const RouteSet& routes, RouteSet::const_iterator from, Visit&& visit) {
  // Each stamp re-evaluates its route at once, and waits on cache misses:
  // bring the routes ahead toward the cache (their status slot first), found
  // again by hash at each step, and once a route is in cache, its reactors
  // and what they will read (a route evaluation, its RIB route). A few
  // routes would never reach the later steps, and are not worth the ring.
  struct Upcoming {
    Kel::Ptr<const Status> status;
    uint32_t hash;
  };
  // Reactors read ahead as far as a RIB route and its via set. Stages one
  // route apart: a stamp's evaluation outlasts a miss, and more measured slower.
  static constexpr int reactorSteps = Kel::Entity::reactorListSteps + 3;
  using Ahead = Kel::Lookahead<Upcoming, 2 + std::max(routePrefetchSteps - 1, reactorSteps), 1>;
  auto it = from;
  if (routes.size() <= Ahead::lead) {
    while (it != routes.end()) {
      const PrefixPrefVrfId& e = *it;
      ++it;
      if (!visit(e)) break;
    }
    return it;
  }
  Ahead ahead;
  const Kel::Entity::ReadAheadPass pass;
  auto next = from;
  Kel::Ptr<const Status> nextStatus;  // of the last route pushed: mostly all of them
  const auto pushAhead = [&] {
    if (next == routes.end()) return;
    const PrefixPrefVrfId& e = *next;
    ++next;
    const RouteStatusKey rsk(e.vrfId(), e.prefix().af());
    if (!nextStatus || !(nextStatus->key() == rsk)) nextStatus = routeStatusDir_->status(rsk);
    if (!nextStatus) return;
    const uint32_t hash = nextStatus->route().hashOf(e.prefix());
    ahead.push({nextStatus, hash}, [](const Upcoming& u, int stage) {
      const Status::RouteMap& map = u.status->route();
      if (stage == 0) {
        map.prefetch(u.hash);
      } else if (const Kel::Ptr<Route>* route = map.probable(u.hash)) {
        if (stage - 1 < routePrefetchSteps) prefetchRouteStep(**route, stage - 1);
        if (stage >= 2) (*route)->readAheadReactors(stage - 2);
      }
    });
  };
  for (uint32_t i = 0; i < Ahead::lead; ++i) pushAhead();
  while (it != routes.end()) {
    pushAhead();
    const PrefixPrefVrfId& e = *it;
    ++it;
    if (!visit(e)) break;
  }
  return it;
}

// ------------------------------------------------------------ paced sweeps

class ViaMetricStatusSm::KelClock final : public Kel::Clock::Notifiee {
 public:
  KelClock(ViaMetricStatusSm* sm, const Kel::Clock* clock) : sm_(sm) { notifierIs(clock); }
  // Marked routes first, in turns of their own: their filings came before
  // the changes of any via whose sweep is pending.
  void onTimeMin() override {
    if (sm_->filingStampsPending() == 0) return sm_->doSweep();
    Kel::Deadline deadline(sm_->sweepQuantum());
    const double now = deadline.lastRead();
    if (sm_->doFilingStamps(deadline) && sm_->sweepsPending() != 0) sm_->clock()->timeMinIs(now);
  }

 private:
  ViaMetricStatusSm* sm_;
};

void ViaMetricStatusSm::readToggles() {
  const uint64_t version = Flipset::togglesVersion();
  if (version == toggleVersion_) return;
  pacedSweep_ = Flipset::getToggleState("PacedViaMetricSweep");
  deferredStamp_ = Flipset::getToggleState("DeferredViaFilingStamp");
  toggleVersion_ = version;
}

void ViaMetricStatusSm::stampFiled(const Status& rs, Route& route, KelRoute* watcher) {
  if (deferredStamp() && watcher == nullptr) {
    // Only a direct call of handleRouteViaKey comes without the reactor,
    // which no table by prefix finds: the status's reactors are looked over.
    if (const KelRouteStatus* status = routeStatus_.find(rs.key())) {
      status->route().forEach([&](KelRoute* r) {
        if (r->key() == route.prefix()) watcher = r;
      });
    }
  }
  if (!deferredStamp() || watcher == nullptr) {
    route.routeChangedAtIs(Kel::System::currentTime());
    return;
  }
  if (watcher->stampMarked()) return;
  KEL_TRACE(trace, 9, "handleRouteViaKey deferring the stamp of " << route.prefix());
  watcher->stampMarkedIs(true);
  // The first mark wakes the clock; it stays due until every mark is served.
  if (filed_.empty()) clock_->timeMinIs(Kel::System::currentTime());
  filed_.push_back({watcher->parent(), watcher});
}

bool ViaMetricStatusSm::doFilingStamps(Kel::Deadline& deadline) {
  while (filedServed_ != filed_.size()) {
    KelRoute& watcher = *filed_[filedServed_++].route;
    if (!watcher.stampMarked()) continue;
    watcher.stampMarkedIs(false);
    Route& route = *watcher.notifier();
    if (route.filed()) route.routeChangedAtIs(Kel::System::currentTime());
    if (deadline.passed()) break;
  }
  if (filedServed_ != filed_.size()) {
    clock_->timeMinIs(Kel::System::currentTime());
    return false;
  }
  std::vector<FiledMark>().swap(filed_);
  filedServed_ = 0;
  return true;
}

void ViaMetricStatusSm::sweepIs(const Rib::ViaKey& viaKey) {
  const double now = Kel::System::currentTime();
  if (auto found = sweepOf_.find(viaKey); found != sweepOf_.end()) {
    KEL_TRACE(trace, 8, "handleViaMetric restarting the sweep of " << viaKey);
    Sweep& sweep = *found->second;
    sweep.since = now;
    sweep.bookmark.reset();
    ++sweep.restarts;
  } else {
    KEL_TRACE(trace, 8, "handleViaMetric scheduling the sweep of " << viaKey);
    sweeps_.push_back(Sweep{viaKey, now, std::nullopt, 0});
    sweepOf_.emplace(viaKey, std::prev(sweeps_.end()));
  }
  clock_->timeMinIs(now);
}

void ViaMetricStatusSm::doSweep() {
  KEL_TRACE(trace, 8, "void Routing::Protocol::ViaMetricStatusSm::doSweep()");
  ++sweepSlices_;
  Kel::Deadline deadline(sweepQuantum_);
  while (!sweeps_.empty()) {
    Sweep& sweep = sweeps_.front();
    // Held: stamping may not change the index, but the entry outlives no
    // slice by accident either.
    const Kel::Ptr<RouteByViaKey> rbvk = routeByViaKey(sweep.viaKey);
    if (rbvk && !sweepSlice(sweep, *rbvk, deadline)) {
      clock_->timeMinIs(Kel::System::currentTime());
      return;
    }
    KEL_TRACE(trace, 8, "doSweep finished the sweep of " << sweep.viaKey);
    sweepOf_.erase(sweep.viaKey);
    sweeps_.pop_front();
  }
}

bool ViaMetricStatusSm::sweepSlice(Sweep& sweep, const RouteByViaKey& rbvk,
                                   Kel::Deadline& deadline) {
  const RouteSet& routes = rbvk.route();
  const auto from = sweep.bookmark ? routes.seek(*sweep.bookmark) : routes.begin();
  if (from != routes.end()) {
    KEL_TRACE(trace, 8,
              "doSweep " << (sweep.bookmark ? "resuming" : "starting") << " the sweep of "
                         << sweep.viaKey << " at " << from->str());
  }
  const uint32_t restarts = sweep.restarts;
  bool suspended = false;
  Kel::Ptr<const Status> status;
  const auto it = visitAhead(routes, from, [&](const PrefixPrefVrfId& e) {
    if (const Kel::Ptr<Route> route = sweptRoute(e, status)) {
      // The deadline's last read saves a read a route; a stamp since then
      // (a nested change's) is weighed against a read of our own.
      const double at = route->routeChangedAt();
      double now = deadline.lastRead();
      if (at > now) now = Kel::System::currentTime();
      if (sweep.since <= at && at <= now) {
        KEL_TRACE(trace, 9, "handleViaMetric evaluated since the change: " << e.str());
      } else {
        KEL_TRACE(trace, 9, "handleViaMetric setting route changed on " << e.str());
        route->routeChangedAtIs(now);
      }
    }
    // A change of the via while its route was evaluated started the sweep
    // over: the next slice begins again.
    suspended = sweep.restarts != restarts || deadline.passed();
    return !suspended;
  });
  if (sweep.restarts != restarts) return false;
  if (!suspended || it == routes.end()) return true;
  sweep.bookmark = *it;
  KEL_TRACE(trace, 8, "doSweep suspending the sweep of " << sweep.viaKey << " at " << it->str());
  return false;
}

}  // namespace Routing::Protocol
