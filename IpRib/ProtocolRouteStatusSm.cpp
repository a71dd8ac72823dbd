#include "IpRib/ProtocolRouteStatusSm.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <optional>

#include "Kel/Assert.h"
#include "Kel/Duallog.h"
#include "Kel/Slab.h"
#include "Kel/System.h"
#include "platform/Flipset/Flipset.h"

namespace Routing::Protocol {

namespace {
Kel::TraceFacility trace("IpRib::RouteStatusSm");

// Via set flags of a preference installed without vias.
constexpr uint32_t flagNoViaIpv4 = 2;
constexpr uint32_t flagNoViaIpv6 = 4;
// The fecType of a preference installed even when no via is usable.
constexpr uint8_t fecTypeInstallWithoutVia = 2;

// A level of the via metric tree from its map, without touching its count:
// this runs for every via of every evaluation.
template <class Map, class Key>
auto* metricLevel(const Map& map, const Key& key) {
  const auto* e = map.find(key);
  return e ? e->ptr() : nullptr;
}

}  // namespace

// Text traces start with the VRF name, ring traces with the VRF id.
#define RSM_TRACE(level, message) KEL_TRACE(trace, level, "Vrf: " << vrfName_ << message)
#define RSM_DUALLOG(level, message, format, ...)                                 \
  KEL_DUALLOG(trace, level, "Vrf: " << vrfName_ << message, "Vrf Id: %s" format, \
              vrfId_ __VA_OPT__(, ) __VA_ARGS__)

// ------------------------------------------------------------ nested reactors

// One per route of the status, kept in RouteStatusSm's slab: it finds
// RouteStatusSm from its own address. Either a KelRoute, with nested
// reactors that mirror the route's preferences and via types, or with
// "SingleRouteReactor" on a KelRouteSingle, which hears them through the
// route: 24 bytes a route instead of 120 in three objects.
class RouteStatusSm::KelRouteBase : public Route::Notifiee {
 public:
  static void* operator new(std::size_t size, Kel::Slab& slab) {
    return Kel::NestedReactorSlab<KelRouteBase>::slabAllocate(size, slab);
  }
  static void operator delete(void* p) { Kel::Slab::deallocate(p); }
  static void operator delete(void* p, Kel::Slab&) { Kel::Slab::deallocate(p); }

  const Pando::IpGenPrefix& key() const { return notifier()->prefix(); }
  void onRouteChangedAt() override { sm()->handleRouteOf(*notifier()); }
  // The route left the status: its reactor goes (the status's reactor then
  // deletes the RIB route).
  void onFiled() override {
    if (!notifier()->filed()) sm()->routeDel(this);
  }
  // A pass will change the route (a via sweep stamping it): what the
  // evaluation reads besides the route is its RIB route.
  void readAhead(int step) const override {
    const RouteStatusSm& sm = *this->sm();
    const Rib::RouteConfig& rib = *sm.ribConfig_;
    RibHashMemo& memo = ribHashMemo_[(reinterpret_cast<uintptr_t>(this) >> 3) % ribHashMemoSize];
    if (step == 0 || memo.reactor != this) {
      memo = {this, rib.routeHashOf(Rib::RouteKey(sm.vrfId_, key()))};
    }
    rib.prefetchRouteStep(memo.hash, step);
  }
  RouteStatusSm* sm() const {
    return static_cast<RouteStatusSm*>(Kel::NestedReactorSlab<KelRouteBase>::owner(this));
  }
  // The slab is dropping this reactor a few places on (Kel::NestedReactorSlab::clear).
  static constexpr int dropSteps = 2;
  virtual void readAheadDrop(int /*step*/) const {}
};

class RouteStatusSm::KelRoute final : public KelRouteBase {
 public:
  class KelRoutePref;
  explicit KelRoute(Route* route);
  void onRoutePref(const RoutePreference& pref) override;
  // Dropping it reads its preference reactors and their preferences, then
  // their via type reactors and via types.
  void readAheadDrop(int step) const override;

 private:
  Kel::NestedReactors<RoutePreference, KelRoutePref, Kel::FlatMap> kelRoutePref_;
};

class RouteStatusSm::KelRouteSingle final : public KelRouteBase {
 public:
  explicit KelRouteSingle(Route* route);
  ~KelRouteSingle() override { notifier()->nestedWatcherDel(); }
  void onRoutePref(const RoutePreference& pref) override {
    handlePref(pref, notifier()->routePref(pref).ptr());
  }
  // A change at one preference, or in one of its via types.
  void handleNested(const Kel::Entity& pref) override {
    const auto& routePref = static_cast<const RoutePref&>(pref);
    handlePref(routePref.preference(), &routePref);
  }
  void handleDel() override { sm()->bfdTrackedViaDelAll(key()); }

 private:
  void handlePref(RoutePreference pref, const RoutePref* routePref) {
    sm()->bfdTrackedViaSync(key(), pref, routePref);
    sm()->handleRouteOf(*notifier());
  }
};

RouteStatusSm::KelRouteSingle::KelRouteSingle(Route* route) {
  notifierIs(route);
  route->nestedWatcherIs();
  for (const Kel::Ptr<RoutePref>& p : route->routePref()) {
    sm()->bfdTrackedViaSync(key(), p->preference(), p.ptr());
  }
}

class RouteStatusSm::KelRoute::KelRoutePref final : public RoutePref::Notifiee {
 public:
  class KelDedupViaKeyByViaType;
  KelRoutePref(KelRoute* parent, RoutePref* pref);
  RoutePreference key() const { return notifier()->preference(); }
  const Pando::IpGenPrefix& prefix() const { return parent_->key(); }
  RouteStatusSm* sm() const { return parent_->sm(); }
  // Evaluates the route this preference belongs to.
  void handleRoute() const { sm()->handleRouteOf(*parent_->notifier()); }

  void onFecType() override { handleRoute(); }
  void onInstallInFib() override { handleRoute(); }
  void onFibRouteType() override { handleRoute(); }
  void onTag() override { handleRoute(); }
  void onDedupViaKeyByViaType(const ViaType& t) override;
  void onDedupEvpnVtepIpViaKey(const Rib::ViaKey&) override { handleRoute(); }
  void onBfdTrackedViaColl(const Rib::ViaKey& via) override { handleBfdTrackedVia(prefix(), via); }
  void handleBfdTrackedVia(const Pando::IpGenPrefix& prefix, const Rib::ViaKey& via);
  void deleteBfdTrackedVias(const Pando::IpGenPrefix& prefix);
  void handleDel() override { deleteBfdTrackedVias(prefix()); }
  // What dropping it reads below the preference.
  void readAheadDrop() const;

 private:
  KelRoute* parent_;
  Kel::NestedReactors<ViaType, KelDedupViaKeyByViaType, Kel::FlatMap> kelDedupViaKeyByViaType_;
};

class RouteStatusSm::KelRoute::KelRoutePref::KelDedupViaKeyByViaType final
    : public DedupViaKeyByViaType::Notifiee {
 public:
  KelDedupViaKeyByViaType(KelRoutePref* parent, DedupViaKeyByViaType* byType) : parent_(parent) {
    notifierIs(byType);
  }
  ViaType key() const { return notifier()->viaType(); }
  void onDedupViaKey(const Rib::ViaKey&) override { parent_->handleRoute(); }

 private:
  KelRoutePref* parent_;
};

RouteStatusSm::KelRoute::KelRoute(Route* route) : kelRoutePref_(this) {
  notifierIs(route);
  for (const Kel::Ptr<RoutePref>& p : route->routePref()) {
    kelRoutePref_.insert(Kel::makePtr<KelRoutePref>(this, p.ptr()));
  }
}

void RouteStatusSm::KelRoute::readAheadDrop(int step) const {
  if (step == 0) {
    for (const Kel::Ptr<RoutePref>& p : notifier()->routePref()) Kel::prefetchObject(p.ptr());
    for (const Kel::Ptr<KelRoutePref>& r : kelRoutePref_) Kel::prefetchObject(r.ptr());
    return;
  }
  for (const Kel::Ptr<KelRoutePref>& r : kelRoutePref_) r->readAheadDrop();
}

void RouteStatusSm::KelRoute::onRoutePref(const RoutePreference& pref) {
  if (Kel::Ptr<RoutePref> p = notifier()->routePref(pref)) {
    kelRoutePref_.insert(Kel::makePtr<KelRoutePref>(this, p.ptr()));
  } else {
    kelRoutePref_.erase(pref);
  }
  sm()->handleRouteOf(*notifier());
}

RouteStatusSm::KelRoute::KelRoutePref::KelRoutePref(KelRoute* parent, RoutePref* pref)
    : parent_(parent), kelDedupViaKeyByViaType_(this) {
  notifierIs(pref);
  for (const Kel::Ptr<DedupViaKeyByViaType>& t : pref->dedupViaKeyByViaType()) {
    kelDedupViaKeyByViaType_.insert(Kel::makePtr<KelDedupViaKeyByViaType>(this, t.ptr()));
  }
  pref->forEachBfdTrackedVia([&](const Rib::ViaKey& via) {
    sm()->handleBfdTrackedVia(RouteKey(prefix(), key()), via, true);
  });
}

void RouteStatusSm::KelRoute::KelRoutePref::readAheadDrop() const {
  for (const Kel::Ptr<DedupViaKeyByViaType>& t : notifier()->dedupViaKeyByViaType()) {
    Kel::prefetchObject(t.ptr());
  }
  for (const Kel::Ptr<KelDedupViaKeyByViaType>& r : kelDedupViaKeyByViaType_) {
    Kel::prefetchObject(r.ptr());
  }
}

void RouteStatusSm::KelRoute::KelRoutePref::onDedupViaKeyByViaType(const ViaType& t) {
  if (Kel::Ptr<DedupViaKeyByViaType> byType = notifier()->dedupViaKeyByViaType(t)) {
    kelDedupViaKeyByViaType_.insert(Kel::makePtr<KelDedupViaKeyByViaType>(this, byType.ptr()));
  } else {
    kelDedupViaKeyByViaType_.erase(t);
  }
  handleRoute();
}

void RouteStatusSm::KelRoute::KelRoutePref::handleBfdTrackedVia(const Pando::IpGenPrefix& prefix,
                                                                const Rib::ViaKey& via) {
  const bool add = notifier()->bfdTrackedViaCollHas(via);
  sm()->handleBfdTrackedVia(RouteKey(prefix, key()), via, add);
  sm()->handleRoute(prefix);
}

void RouteStatusSm::KelRoute::KelRoutePref::deleteBfdTrackedVias(const Pando::IpGenPrefix& prefix) {
  notifier()->forEachBfdTrackedVia([&](const Rib::ViaKey& via) {
    sm()->handleBfdTrackedVia(RouteKey(prefix, key()), via, false);
  });
}

class RouteStatusSm::KelStatus final : public Status::Notifiee {
 public:
  KelStatus(RouteStatusSm* sm, Status* status) : sm_(sm) { notifierIs(status); }
  void onRoute(const Pando::IpGenPrefix& prefix) override {
    if (Kel::Ptr<Route> route = notifier()->route(prefix)) {
      sm_->routeIs(route);
    } else {
      // Its reactor left with it (KelRoute::onFiled).
      sm_->handleRoute(prefix);  // gone from the status: gone from the RIB
    }
  }
  void onInitialized() override { sm_->doReview(); }

 private:
  RouteStatusSm* sm_;
};

class RouteStatusSm::KelClock final : public Kel::Clock::Notifiee {
 public:
  KelClock(RouteStatusSm* sm, const Kel::Clock* clock) : sm_(sm) { notifierIs(clock); }
  void onTimeMin() override { sm_->doReview(); }

 private:
  RouteStatusSm* sm_;
};

// Watches the one table-level attribute of a via metric status.
class RouteStatusSm::KelViaMetricStatus final : public Rib::ViaMetricStatus::Notifiee {
 public:
  KelViaMetricStatus(RouteStatusSm* sm, const Rib::ViaMetricStatus* s) : sm_(sm) { notifierIs(s); }
  void onGeneration() override { sm_->handleRoute(); }

 private:
  RouteStatusSm* sm_;
};

class RouteStatusSm::KelNhdGraph final : public Rib::Ip::GlobalNextHopDependencyGraph::Notifiee {
 public:
  KelNhdGraph(RouteStatusSm* sm, const Rib::Ip::GlobalNextHopDependencyGraph* g) : sm_(sm) {
    notifierIs(g);
  }
  void onGeneration() override { sm_->handleRoute(); }

 private:
  RouteStatusSm* sm_;
};

class RouteStatusSm::KelLoopingRouteStatus final : public Rib::LoopingRouteStatus::Notifiee {
 public:
  KelLoopingRouteStatus(RouteStatusSm* sm, const Rib::LoopingRouteStatus* s) : sm_(sm) {
    notifierIs(s);
  }
  void onLoopingRoute(const Pando::IpGenPrefix& prefix) override { sm_->handleRoute(prefix); }

 private:
  RouteStatusSm* sm_;
};

class RouteStatusSm::KelBfdRoute final : public BfdTrackedStaticRoutes::Notifiee {
 public:
  KelBfdRoute(RouteStatusSm* sm, const BfdTrackedStaticRoutes* entry) : sm_(sm) {
    notifierIs(entry);
  }
  const BfdStatusKey& key() const { return notifier()->key(); }
  void onStatus() override { handleBfdStatusChange(); }
  void onResolvedIntf() override { handleBfdStatusChange(); }
  void handleBfdStatusChange();

 private:
  RouteStatusSm* sm_;
};

class RouteStatusSm::KelBfdTrackedRoutesList final : public BfdTrackedStaticRoutesList::Notifiee {
 public:
  KelBfdTrackedRoutesList(RouteStatusSm* sm, BfdTrackedStaticRoutesList* list) : sm_(sm) {
    notifierIs(list);
    for (const auto& entry : list->route()) sm_->bfdRouteIs(entry);
  }
  void onRoute(const BfdStatusKey& key) override { sm_->handleBfdRoute(key); }

 private:
  RouteStatusSm* sm_;
};

void RouteStatusSm::KelBfdRoute::handleBfdStatusChange() {
  KEL_TRACE(trace, 8,
            "Vrf: " << sm_->vrfName_ << " handleBfdStatusChange"
                    << " for bfd route: " << key());
  // Collect first: re-evaluating may change the entry's dependants.
  std::vector<Pando::IpGenPrefix> prefixes;
  for (const auto& dependant : notifier()->dependantRoute()) {
    prefixes.push_back(dependant->routeKey().prefix());
  }
  for (const Pando::IpGenPrefix& prefix : prefixes) sm_->handleRoute(prefix);
}

// ------------------------------------------------------------ construction

RouteStatusSm::RouteStatusSm(
    const L3::VrfName& vrfName, Pando::AddressFamily af, Vrf::VrfIdMap::VrfId vrfId,
    const Kel::Ptr<Status>& status, const Kel::Ptr<const Rib::ViaMetricStatus>& ipViaMetricStatus,
    const Kel::Ptr<const Rib::ViaMetricStatus>& evpnViaMetricStatus,
    const Kel::Ptr<const Rib::LoopingRouteStatus>& loopingRouteStatus,
    const Kel::Ptr<const Rib::Ip::GlobalNextHopDependencyGraph>& nhdGraph,
    const Kel::Ptr<Rib::RouteConfig>& ribConfig, const Kel::Ptr<Rib::ViaSetConfig>& viaSetConfig,
    Rib::RoutingProtocol routingProtocol,
    const Kel::Ptr<const Rib::ViaMetricStatus>& ipv4DefaultVrfViaMetricStatus,
    const Kel::Ptr<const Rib::ViaMetricStatus>& ipv6DefaultVrfViaMetricStatus,
    const Kel::Ptr<VrfReadyStatus>& vrfReadyStatus,
    const Kel::Ptr<BfdTrackedStaticRoutesList>& bfdTrackedRoutesList,
    const Kel::Ptr<const Rib::Ip::ViaConfig>& ipViaConfig,
    const Kel::Ptr<const Rib::Ip::ViaConfig>& auxIpViaConfig,
    const Kel::Ptr<const Rib::ViaMetricStatusByVrf>& viaMetricStatusByVrf,
    const Kel::String& ribString, const Kel::Ptr<const Rib::ViaStatusByVrf>& viaStatusByVrf)
    : vrfName_(vrfName),
      af_(af),
      vrfId_(vrfId),
      status_(status),
      ipViaMetricStatus_(ipViaMetricStatus),
      evpnViaMetricStatus_(evpnViaMetricStatus),
      loopingRouteStatus_(loopingRouteStatus),
      nhdGraph_(nhdGraph),
      ribConfig_(ribConfig),
      viaSetConfig_(viaSetConfig),
      routingProtocol_(routingProtocol),
      ipv4DefaultVrfViaMetricStatus_(ipv4DefaultVrfViaMetricStatus),
      ipv6DefaultVrfViaMetricStatus_(ipv6DefaultVrfViaMetricStatus),
      vrfReadyStatus_(vrfReadyStatus),
      bfdTrackedRoutesList_(bfdTrackedRoutesList),
      ipViaConfig_(ipViaConfig),
      auxIpViaConfig_(auxIpViaConfig),
      viaMetricStatusByVrf_(viaMetricStatusByVrf),
      ribString_(ribString),
      viaStatusByVrf_(viaStatusByVrf),
      singleRouteReactor_(Flipset::getToggleState("SingleRouteReactor")),
      ribHeldOurs_(ribConfig ? ribConfig->routeCount(vrfId, af) != 0 : false),
      kelStatus_(this),
      kelRoute_(this, singleRouteReactor_ ? sizeof(KelRouteSingle) : sizeof(KelRoute)),
      kelClock_(this),
      kelIpViaMetricStatus_(this),
      kelEvpnViaMetricStatus_(this),
      kelNhdGraph_(this),
      kelLoopingRouteStatus_(this),
      kelBfdTrackedRoutesList_(this),
      kelBfdRoute_(this) {
  KEL_ASSERT(status_ && ribConfig_ && viaSetConfig_);
  kelStatus_.reactorIs(Kel::makePtr<KelStatus>(this, status_.ptr()));
  attachRoutes();
  if (ipViaMetricStatus_) {
    kelIpViaMetricStatus_.reactorIs(
        Kel::makePtr<KelViaMetricStatus>(this, ipViaMetricStatus_.ptr()));
  }
  if (evpnViaMetricStatus_) {
    kelEvpnViaMetricStatus_.reactorIs(
        Kel::makePtr<KelViaMetricStatus>(this, evpnViaMetricStatus_.ptr()));
  }
  if (nhdGraph_) kelNhdGraph_.reactorIs(Kel::makePtr<KelNhdGraph>(this, nhdGraph_.ptr()));
  if (loopingRouteStatus_) {
    kelLoopingRouteStatus_.reactorIs(
        Kel::makePtr<KelLoopingRouteStatus>(this, loopingRouteStatus_.ptr()));
  }
  if (bfdTrackedRoutesList_) {
    kelBfdTrackedRoutesList_.reactorIs(
        Kel::makePtr<KelBfdTrackedRoutesList>(this, bfdTrackedRoutesList_.ptr()));
  }
  handleInitialized();
}

RouteStatusSm::~RouteStatusSm() {
  // The route reactors go first: their preferences withdraw BFD tracking requests.
  kelRoute_.clear();
}

void RouteStatusSm::prefetchRibSlot(const Pando::IpGenPrefix& prefix) const {
  ribConfig_->prefetchRouteStep(ribConfig_->routeHashOf(Rib::RouteKey(vrfId_, prefix)), 0);
}

void RouteStatusSm::routeIs(const Kel::Ptr<Route>& route) {
  // The route will be evaluated soon: start loading its RIB slot, so that
  // this miss overlaps the reactor's.
  prefetchRibSlot(route->prefix());
  makeRouteReactor(route.ptr());
}

void RouteStatusSm::routeDel(KelRouteBase* reactor) { kelRoute_.erase(reactor); }

void RouteStatusSm::makeRouteReactor(Route* route) {
  if (singleRouteReactor_) {
    kelRoute_.make<KelRouteSingle>(route);
  } else {
    kelRoute_.make<KelRoute>(route);
  }
}

void RouteStatusSm::bfdTrackedViaSync(const Pando::IpGenPrefix& prefix, RoutePreference pref,
                                      const RoutePref* routePref) {
  const bool tracks = routePref && routePref->bfdTrackedViaCollSize() != 0;
  if (!tracks && bfdTrackedVia_.empty()) return;  // the rule: no BFD anywhere
  const RouteKey routeKey(prefix, pref);
  const auto filed = bfdTrackedVia_.find(routeKey);
  if (!tracks && filed == bfdTrackedVia_.end()) return;
  std::vector<Rib::ViaKey> was;
  if (filed != bfdTrackedVia_.end()) was = std::move(filed->second);
  std::vector<Rib::ViaKey> now;
  if (routePref)
    routePref->forEachBfdTrackedVia([&now](const Rib::ViaKey& via) { now.push_back(via); });
  for (const Rib::ViaKey& via : was) {
    if (std::find(now.begin(), now.end(), via) == now.end())
      handleBfdTrackedVia(routeKey, via, false);
  }
  for (const Rib::ViaKey& via : now) {
    if (std::find(was.begin(), was.end(), via) == was.end())
      handleBfdTrackedVia(routeKey, via, true);
  }
  if (now.empty()) {
    bfdTrackedVia_.erase(routeKey);
  } else {
    bfdTrackedVia_[routeKey] = std::move(now);
  }
}

void RouteStatusSm::bfdTrackedViaDelAll(const Pando::IpGenPrefix& prefix) {
  if (bfdTrackedVia_.empty()) return;  // the rule, and the prefix's line need not load
  auto it = bfdTrackedVia_.lower_bound(RouteKey(prefix, 0));
  while (it != bfdTrackedVia_.end() && it->first.prefix() == prefix) {
    for (const Rib::ViaKey& via : it->second) handleBfdTrackedVia(it->first, via, false);
    it = bfdTrackedVia_.erase(it);
  }
}

void RouteStatusSm::attachRoutes() {
  // A reactor reads its route, the route's preferences and their via types:
  // three misses in a row per route, overlapped across routes by loading
  // them a few routes ahead. Nothing here changes the status, so the routes
  // ahead stay where the walk saw them. No RIB slot is loaded: the first
  // review, not this walk, evaluates them.
  const Status::RouteMap& routes = status_->route();
  Kel::Lookahead<const Route*, 3, 2> ahead;
  Status::RouteMap::const_iterator next = routes.begin();
  const auto pushAhead = [&] {
    if (next == routes.end()) return;
    ahead.push(next->ptr(), [](const Route* route, int step) { prefetchRouteStep(*route, step); });
    ++next;
  };
  for (uint32_t i = 0; i < ahead.lead; ++i) pushAhead();
  for (const Kel::Ptr<Route>& route : routes) {
    makeRouteReactor(route.ptr());
    pushAhead();
  }
}

// ------------------------------------------------------------ evaluation

void RouteStatusSm::handleRoute(const Pando::IpGenPrefix& prefix) { evaluate(prefix, nullptr); }

RouteExplanation RouteStatusSm::explain(const Pando::IpGenPrefix& prefix) {
  RouteExplanation explanation(prefix);
  evaluate(prefix, &explanation);
  return explanation;
}

void RouteStatusSm::handleRouteOf(const Route& route) {
  if (!route.filed()) {
    handleRoute(route.prefix());
    return;
  }
  // Held: the evaluation may remove it from the status, and its reactor with it.
  const Kel::Ptr<const Route> held(&route);
  evaluate(route.prefix(), &route, nullptr);
}

void RouteStatusSm::evaluate(const Pando::IpGenPrefix& prefix, RouteEvaluationObserver* observer) {
  // The looked-up route is held until the evaluation ends.
  evaluate(prefix, status_->route(prefix).ptr(), observer);
}

void RouteStatusSm::evaluate(const Pando::IpGenPrefix& prefix, const Route* route,
                             RouteEvaluationObserver* observer) {
  ++evaluations_;
  RSM_TRACE(8, " handleRoute " << prefix);
  if (route == nullptr) {
    if (observer) observer->noRoute();
    delRoute(prefix, observer);
    return;
  }
  if (route->routeChangedAt() == 0) {
    RSM_TRACE(9, " routeChangedAt == 0 ");
    if (observer) observer->notReady();
    return;
  }
  // A nested evaluation (a RIB reactor re-entering) must not reuse the pick in use.
  const uint32_t depth = evaluationDepth_++;
  ViaPick local;
  ViaPick& pick = depth < 2 ? scratch_[depth] : local;
  try {
    evaluateRoute(*route, pick, observer);
  } catch (const Kel::Exception& e) {
    // Too many vias: this prefix keeps what the RIB has; the others go on.
    RSM_DUALLOG(0, " (" << prefix << "), evaluation abandoned: " << e.what(),
                " RouteStatusSm, route %s evaluation abandoned: %s", prefix,
                std::string_view(e.what()));
    if (observer) observer->abandoned(e.what());
  }
  --evaluationDepth_;
}

RouteStatusSm::ViaPick RouteStatusSm::scratch_[2];
RouteStatusSm::RibHashMemo RouteStatusSm::ribHashMemo_[ribHashMemoSize];
uint32_t RouteStatusSm::evaluationDepth_ = 0;
RouteStatusSm::ViaFactsSlot RouteStatusSm::viaFactsMemo_[viaFactsSlots];
uint32_t RouteStatusSm::viaFactsEpoch_ = 1;

void RouteStatusSm::viaFactsExpire() {
  if (++viaFactsEpoch_ != 0) return;
  // Wrapped: slots of the epochs ahead would come valid again.
  std::fill(std::begin(viaFactsMemo_), std::end(viaFactsMemo_), ViaFactsSlot());
  viaFactsEpoch_ = 1;
}

bool RouteStatusSm::keepsViaFacts(RouteEvaluationObserver* observer) const {
  // A nested evaluation runs inside a RIB write, while inputs may change.
  return reviewing_ && evaluationDepth_ == 1 && observer == nullptr && !trace.textOn(9) &&
         !trace.ringOn(9) && (!bfdTrackedRoutesList_ || bfdTrackedRoutesList_->routeSize() == 0);
}

RouteStatusSm::ViaFacts RouteStatusSm::viaFacts(const Pando::IpGenPrefix& prefix,
                                                const DedupViaKeyMetric& entry,
                                                const RoutePref& routePref, RoutePreference pref,
                                                MetricTableMemo* tables, bool keep) const {
  const Rib::DedupViaKey* interned = entry.dedupViaKey().ptr();
  ViaFactsSlot* slot = nullptr;
  if (keep) {
    const uint32_t mixed = uint32_t(reinterpret_cast<uintptr_t>(interned) >> 4) * 0x9e3779b1u;
    slot = &viaFactsMemo_[mixed >> (32 - std::bit_width(viaFactsSlots - 1))];
    if (slot->via == interned && slot->epoch == viaFactsEpoch_) {
      return {slot->check, slot->record, slot->nextHop};
    }
  }
  const Rib::ViaKey& via = entry.viaKey();
  const uint32_t viaHash = via.tableHash();
  Kel::Ptr<const Rib::DedupViaKey> vtep = routePref.dedupEvpnVtepIpViaKey(via);
  const Rib::ViaKey vtepVia = vtep ? vtep->key() : Rib::ViaKey();
  ViaFacts facts;
  facts.check = checkVia(prefix, via, viaHash, vtepVia, pref, tables);
  if (facts.check == ViaCheck::valid) {
    if (nhdGraph_) facts.nextHop = nhdGraph_->viaNextHop(via, viaHash);
    facts.record = viaRecord(via, viaHash);
  }
  if (slot && via.kind() != Rib::ViaKey::kindEvpn) {
    *slot = {interned, facts.record, facts.nextHop, viaFactsEpoch_, facts.check};
  }
  return facts;
}

bool RouteStatusSm::ribRouteReadAhead() const {
  return reviewing_ || Kel::Entity::readAheadPassActive();
}

std::optional<uint32_t> RouteStatusSm::guessViaSet(const Route& route) const {
  // A review, or a pass that read our reactors ahead, has the RIB route and
  // its via set on their way, and such a route mostly keeps its via set.
  if (ribRouteReadAhead() || route.routePref().empty()) return std::nullopt;
  const RoutePref::ByViaTypeMap& byType = route.routePref().front()->dedupViaKeyByViaType();
  if (byType.empty() || byType.front()->dedupViaKeySize() > maxGuessedVias) return std::nullopt;
  Rib::ViaKey keys[maxGuessedVias];
  uint32_t n = 0;
  for (const Kel::Ptr<DedupViaKeyMetric>& entry : byType.front()->dedupViaKey()) {
    keys[n++] = entry->viaKey();
  }
  return viaSetConfig_->contentHashOf(Rib::ViaSetContent{0, {keys, n}});
}

void RouteStatusSm::evaluateRoute(const Route& route, ViaPick& pick,
                                  RouteEvaluationObserver* observer) {
  const Pando::IpGenPrefix& prefix = route.prefix();
  Rib::Brisk::ViaSet& viaSet = pick.viaSet;
  // The usual winner is every via of the first preference's first via type:
  // start loading its via set now, so that the walk below hides the wait.
  // A wrong guess costs two prefetches.
  const std::optional<uint32_t> guess = guessViaSet(route);
  if (guess) viaSetConfig_->prefetchContentStep(*guess, 0);
  // Likewise the RIB route the result is compared with.
  if (!ribRouteReadAhead()) prefetchRibSlot(prefix);
  MetricTableMemo metricTables;
  const bool keepFacts = keepsViaFacts(observer);
  for (const Kel::Ptr<RoutePref>& routePref : route.routePref()) {
    const RoutePreference pref = routePref->preference();
    viaSet.clear();
    uint32_t count = 0;
    bool labelled = false;
    bool mostPreferred = true;
    if (observer) observer->preference(*routePref);

    for (const Kel::Ptr<DedupViaKeyByViaType>& byType : routePref->dedupViaKeyByViaType()) {
      const ViaType viaType = byType->viaType();
      RSM_DUALLOG(
          9, " RouteStatusSm, viaType: " << viaType << " mostPreferredViaType: " << mostPreferred,
          " RouteStatusSm, viaType: %s mostPreferredViaType: %s", viaType.viaType(), mostPreferred);
      if (observer) observer->viaType(viaType, mostPreferred);
      uint32_t addedOfType = 0;
      for (const Kel::Ptr<DedupViaKeyMetric>& entry : byType->dedupViaKey()) {
        const Rib::ViaKey& via = entry->viaKey();
        RSM_TRACE(9, " " << via << " via metric: " << entry->metric());
        const ViaFacts facts = viaFacts(prefix, *entry, *routePref, pref, &metricTables, keepFacts);
        const ViaCheck check = facts.check;
        if (check != ViaCheck::valid) {
          RSM_DUALLOG(9,
                      " (" << prefix << "), Preference: " << unsigned(pref) << ", Via " << via
                           << " is unresolved",
                      " RouteStatusSm, route %s Preference: %s Via %s is unresolved", prefix, pref,
                      via);
          if (observer) {
            observer->via(via, entry->metric(),
                          check == ViaCheck::bfdDown          ? ViaVerdict::bfdDown
                          : check == ViaCheck::vtepUnresolved ? ViaVerdict::vtepUnresolved
                          : check == ViaCheck::looping        ? ViaVerdict::looping
                                                              : ViaVerdict::unresolved);
          }
          continue;
        }
        if (nhdGraph_ && nhdGraph_->loopingFrom(prefix, vrfId_, facts.nextHop)) {
          RSM_DUALLOG(9,
                      " (" << prefix << "), Preference: " << unsigned(pref) << ", Via " << via
                           << " is looping",
                      " RouteStatusSm, route %s Preference: %s Via %s is looping", prefix, pref,
                      via);
          if (observer) observer->via(via, entry->metric(), ViaVerdict::looping);
          continue;
        }
        const bool viaLabelled = facts.record != nullptr && facts.record->isLabelled();
        if (!labelled && viaLabelled) {
          RSM_DUALLOG(9, " Route " << prefix << " First occurrence of labeled Via " << via,
                      " RouteStatusSm, route %s Preference: %s Via %s is labelled", prefix, pref,
                      via);
          viaSet.clear();
          count = 0;
          labelled = true;
          if (observer) observer->pushedOut();
        } else if (labelled && !viaLabelled) {
          RSM_DUALLOG(9, " Route " << prefix << " not a labelled Via " << via,
                      " RouteStatusSm, route %s Preference: %s Via %s is not labelled", prefix,
                      pref, via);
          if (observer) observer->via(via, entry->metric(), ViaVerdict::notLabelled);
          continue;
        }
        if (!mostPreferred && !getBfdTrackedRouteFromViaKey(via)) {
          RSM_DUALLOG(9,
                      " continue as neither mostPreferred "
                      "nor bfdTracked via",
                      " RouteStatusSm, via: %s neither mostPreferred nor bfdTracked via", via);
          if (observer) observer->via(via, entry->metric(), ViaVerdict::lessPreferredNotBfdTracked);
          continue;
        }
        viaSet.viaKeyIs(count, via);
        pick.metric[count] = entry->metric();
        ++count;
        ++addedOfType;
        RSM_DUALLOG(9,
                    " (" << prefix << "), Preference: " << unsigned(pref) << ", Adding Via " << via
                         << " to Via Set",
                    " RouteStatusSm, route %s Preference: %s adding Via %s to Via Set", prefix,
                    pref, via);
        if (observer) observer->via(via, entry->metric(), ViaVerdict::added);
      }
      if (addedOfType > 0) break;
      mostPreferred = false;
    }

    if (guess && &routePref == &route.routePref().front()) {
      viaSetConfig_->prefetchContentStep(*guess, 1);
    }
    if (count == 0) {
      if (routePref->fecType() != fecTypeInstallWithoutVia) {
        if (observer) observer->preferenceDone(false);
        continue;
      }
      viaSet.clear();
      viaSet.flagsIs(af_ == Pando::AddressFamily::ipv4 ? flagNoViaIpv4 : flagNoViaIpv6);
    }
    if (observer) observer->preferenceDone(true);
    if (staticRouteMetric()) {
      addRouteWithLowestMetric(prefix, *routePref, pick, route.srcVrfId(), observer);
    } else {
      addRoute(prefix, *routePref, viaSet, route.srcVrfId(), 0, observer);
    }
    return;
  }
  delRoute(prefix, observer);
}

RouteStatusSm::ViaCheck RouteStatusSm::checkEvpnVia(const Pando::IpGenPrefix& prefix,
                                                    const Rib::ViaKey& via,
                                                    const Rib::ViaKey& vtepVia) const {
  bool valid = false;
  ViaCheck check = ViaCheck::unresolved;
  if (evpnViaMetricStatus_) {
    const Rib::ViaMetric* metric = evpnViaMetricStatus_->viaMetric(via);
    valid = metric != nullptr && !metric->isEmpty();
    if (valid && !vtepVia.isEmpty()) {
      const Kel::Ptr<const Rib::ViaMetricStatus>& vtepStatus =
          vtepVia.kind() == Rib::ViaKey::kindIpv4 ? ipv4DefaultVrfViaMetricStatus_
                                                  : ipv6DefaultVrfViaMetricStatus_;
      const Rib::ViaMetric* vtepMetric = vtepStatus ? vtepStatus->viaMetric(vtepVia) : nullptr;
      valid = vtepMetric != nullptr && vtepMetric->usableAsVtep();
      if (!valid) check = ViaCheck::vtepUnresolved;
    }
  }
  RSM_TRACE(9, " Route: " << prefix << ", valid via: " << (valid ? "true" : "false"));
  return valid ? ViaCheck::valid : check;
}

RouteStatusSm::MetricTable RouteStatusSm::metricTable(const Rib::ViaKey& via) const {
  const Rib::ViaMetricStatusByTransport* byTransport =
      metricLevel(viaMetricStatusByVrf_->viaMetricStatusByTransport(), via.vrfId());
  if (byTransport == nullptr) return {MetricTable::Missing::vrf, nullptr};
  const Rib::ViaMetricStatusByProtocol* byProtocol =
      metricLevel(byTransport->viaMetricStatusByProtocol(), via.kind());
  if (byProtocol == nullptr) return {MetricTable::Missing::kind, nullptr};
  return {MetricTable::Missing::none, metricLevel(byProtocol->viaMetricStatus(), via.selector())};
}

RouteStatusSm::ViaCheck RouteStatusSm::checkVia(const Pando::IpGenPrefix& prefix,
                                                const Rib::ViaKey& via, uint32_t viaHash,
                                                const Rib::ViaKey& vtepVia, RoutePreference pref,
                                                MetricTableMemo* memo) const {
  RSM_TRACE(9, " validVia " << prefix << " and " << via << " evpn " << vtepVia << " pref "
                            << unsigned(pref));
  if (via.kind() == Rib::ViaKey::kindEvpn) return checkEvpnVia(prefix, via, vtepVia);

  if (Kel::Ptr<const BfdTrackedStaticRoutes> bfd = getBfdTrackedRouteFromViaKey(via)) {
    if (bfd->dependantRoute(RouteKey(prefix, pref)) &&
        !(bfd->status() && !bfd->resolvedIntf().isEmpty())) {
      RSM_DUALLOG(9,
                  " via: " << via
                           << " not valid as "
                              "no bfdTrackedRoutes/bfdTrackedRoutes->status",
                  " RouteStatusSm, via: %s not valid as no"
                  "bfdTrackedRoutes/bfdTrackedRoutesStatus",
                  via);
      return ViaCheck::bfdDown;
    }
  }
  if (!viaMetricStatusByVrf_) return ViaCheck::unresolved;
  MetricTable tree;
  if (memo != nullptr && memo->holds(via)) {
    tree = memo->result;
  } else {
    tree = metricTable(via);
    if (memo != nullptr) *memo = {true, via.vrfId(), via.kind(), via.selector(), tree};
  }
  if (tree.missing == MetricTable::Missing::vrf) {
    RSM_TRACE(9, " no vmt");
    return ViaCheck::unresolved;
  }
  if (tree.missing == MetricTable::Missing::kind) {
    RSM_TRACE(9, " no vmp");
    return ViaCheck::unresolved;
  }
  const Rib::ViaMetricStatus* metrics = tree.table;
  const Rib::ViaMetric* metric = metrics ? metrics->viaMetric(via, viaHash) : nullptr;
  if (metric == nullptr) {
    RSM_TRACE(9, " no vms");
    return ViaCheck::unresolved;
  }
  if (!metric->usableAsVia()) return ViaCheck::unresolved;
  if (metric->looping()) {
    RSM_DUALLOG(9, " (" << prefix << "), Looping Via: " << via,
                " RouteStatusSm, Route %s, Looping Via: %s", prefix, via);
    return ViaCheck::looping;
  }
  return ViaCheck::valid;
}

bool RouteStatusSm::validVia(const Pando::IpGenPrefix& prefix, const Rib::ViaKey& via,
                             const Rib::ViaKey& vtepVia, RoutePreference pref) const {
  return checkVia(prefix, via, via.tableHash(), vtepVia, pref) == ViaCheck::valid;
}

bool RouteStatusSm::staticRouteMetric() {
  const uint64_t version = Flipset::togglesVersion();
  if (version != toggleVersion_) {
    staticRouteMetric_ = Flipset::getToggleState("StaticRouteMetric");
    toggleVersion_ = version;
  }
  return staticRouteMetric_;
}

const Rib::Via* RouteStatusSm::viaRecord(const Rib::ViaKey& via, uint32_t viaHash) const {
  const Pando::AddressFamily transportAf = Rib::transportAf(via.kind());
  const Kel::Ptr<const Rib::Ip::ViaConfig>& config =
      transportAf == af_ || transportAf == Pando::AddressFamily::ipunknown ? ipViaConfig_
                                                                           : auxIpViaConfig_;
  return config ? config->via(via, viaHash) : nullptr;
}

Rib::Via RouteStatusSm::getViaFromKey(const Rib::ViaKey& via) const {
  const Rib::Via* record = viaRecord(via);
  return record ? *record : Rib::Via();
}

BfdStatusKey RouteStatusSm::bfdStatusKey(const Rib::Via& via) const {
  // A link-local next hop is only unique together with its interface.
  return BfdStatusKey(via.nextHop(), via.nextHop().isLinkLocal() ? via.intf() : Pando::IntfId());
}

Kel::Ptr<const BfdTrackedStaticRoutes> RouteStatusSm::getBfdTrackedRouteFromViaKey(
    const Rib::ViaKey& via) const {
  if (!bfdTrackedRoutesList_ || bfdTrackedRoutesList_->routeSize() == 0) return nullptr;
  const Rib::Via* record = viaRecord(via);
  if (record == nullptr) return nullptr;
  return bfdTrackedRoutesList_->route(bfdStatusKey(*record));
}

void RouteStatusSm::doAddRouteWithLowestMetric(const Pando::IpGenPrefix& prefix,
                                               const Kel::Ptr<RoutePref>& routePref,
                                               const Rib::Brisk::ViaSet& viaSet,
                                               Vrf::VrfIdMap::VrfId srcVrfId, ViaType viaType) {
  // The metrics an evaluation carries, looked up.
  ViaPick pick;
  pick.viaSet = viaSet;
  if (!viaSet.empty()) {
    const Kel::Ptr<DedupViaKeyByViaType> byType = routePref->dedupViaKeyByViaType(viaType);
    KEL_ASSERT(byType);
    for (uint32_t i = 0; i < viaSet.size(); ++i) {
      const Kel::Ptr<DedupViaKeyMetric> entry = byType->dedupViaKey(viaSet.viaKey(i));
      KEL_ASSERT(entry);
      pick.metric[i] = entry->metric();
    }
  }
  addRouteWithLowestMetric(prefix, *routePref, pick, srcVrfId, nullptr);
}

void RouteStatusSm::addRouteWithLowestMetric(const Pando::IpGenPrefix& prefix,
                                             const RoutePref& routePref, const ViaPick& pick,
                                             Vrf::VrfIdMap::VrfId srcVrfId,
                                             RouteEvaluationObserver* observer) {
  const RoutePreference pref = routePref.preference();
  const Rib::Brisk::ViaSet& viaSet = pick.viaSet;
  if (viaSet.empty()) {
    RSM_TRACE(9, " (" << prefix << "), Adding route, Preference: " << unsigned(pref)
                      << " has zero vias in viaSet ");
    addRoute(prefix, routePref, viaSet, srcVrfId, 0, observer);
    return;
  }
  const RouteMetric* metrics = pick.metric;
  const RouteMetric* const metricsEnd = metrics + viaSet.size();
  const RouteMetric lowest = *std::min_element(metrics, metricsEnd);
  // Vias of one metric, the rule, keep the set as it is: no copy.
  const bool cut =
      !std::all_of(metrics, metricsEnd, [lowest](RouteMetric m) { return m == lowest; });
  // Scratch for the cut set: the other scratch slot when free, else a local.
  Rib::Brisk::ViaSet local;
  Rib::Brisk::ViaSet& lowestSet =
      (&pick == &scratch_[0] && evaluationDepth_ == 1) ? scratch_[1].viaSet : local;
  uint32_t n = viaSet.size();
  if (cut) {
    lowestSet.clear();
    lowestSet.flagsIs(viaSet.flags());
    n = 0;
    for (uint32_t i = 0; i < viaSet.size(); ++i) {
      const Rib::ViaKey& via = viaSet.viaKey(i);
      if (metrics[i] == lowest) {
        lowestSet.viaKeyIs(n++, via);
      } else if (observer) {
        observer->via(via, metrics[i], ViaVerdict::cutByMetric);
      }
    }
  }
  RSM_TRACE(9, " (" << prefix << "), Adding route, Preference: " << unsigned(pref) << ", with " << n
                    << " vias of metric: " << lowest);
  if (observer) observer->metricCut(lowest);
  addRoute(prefix, routePref, cut ? lowestSet : viaSet, srcVrfId, lowest, observer);
}

void RouteStatusSm::doAddRoute(const Pando::IpGenPrefix& prefix,
                               const Kel::Ptr<RoutePref>& routePref,
                               const Rib::Brisk::ViaSet& viaSet, Vrf::VrfIdMap::VrfId srcVrfId,
                               RouteMetric metric) {
  addRoute(prefix, *routePref, viaSet, srcVrfId, metric, nullptr);
}

void RouteStatusSm::addRoute(const Pando::IpGenPrefix& prefix, const RoutePref& routePref,
                             const Rib::Brisk::ViaSet& viaSet, Vrf::VrfIdMap::VrfId srcVrfId,
                             RouteMetric metric, RouteEvaluationObserver* observer) {
  const ViaFactsWatch watch;  // declared first: it looks after our locals have gone
  // A re-evaluation usually keeps the via set the route has: skip the dedup index.
  const Rib::RouteKey key(vrfId_, prefix);
  const Rib::Route* present = ribConfig_->route(key);
  const bool sameViaSet = present && present->viaSet() && present->viaSet()->holds(viaSet);
  Kel::Ptr<const Rib::ViaSetEntry> entry =
      sameViaSet ? present->viaSet() : viaSetConfig_->dedupConfigViaSetIs(viaSet);
  const RoutePreference pref = routePref.preference();
  RSM_DUALLOG(8,
              " (" << prefix << "), Adding route, Preference: " << unsigned(pref)
                   << ", ViaSet: " << entry->id() << ", with " << viaSet.size() << " vias",
              " RouteStatusSm: add route %s to RIB, preference: %s ViaSet: %s, with %s vias",
              prefix, pref, entry->id(), viaSet.size());
  Rib::Route route(key);
  route.routingProtocolIs(routingProtocol_);
  route.metricPrefIs(Rib::MetricPref(pref, metric));
  route.fibRouteTypeIs(routePref.fibRouteType());
  route.tagIs(routePref.tag());
  route.viaSetIs(std::move(entry));
  route.srcVrfIdIs(srcVrfId);
  if (!routePref.installInFib()) route.flagsIs(Rib::Route::flagNoFibInstall);
  // Rewriting the very route the RIB has changes nothing: skip its look-up.
  // (`present` is still valid: reusing its via set wrote nothing.)
  if (!sameViaSet || !(*present == route)) ribConfig_->routeAdd(route);
  if (observer) observer->added(route, viaSet.size());
}

void RouteStatusSm::doDelRoute(const Pando::IpGenPrefix& prefix) { delRoute(prefix, nullptr); }

void RouteStatusSm::delRoute(const Pando::IpGenPrefix& prefix, RouteEvaluationObserver* observer) {
  RSM_DUALLOG(8, " (" << prefix << "), Deleting route", " RouteConfigSm: deleting route %s",
              prefix);
  const ViaFactsWatch watch;
  ribConfig_->routeDelete(Rib::RouteKey(vrfId_, prefix));
  if (observer) observer->deleted();
}

void RouteStatusSm::doCleanupRibConfig() {
  RSM_TRACE(8, " doCleanupRibConfig");
  if (mayHoldStaleRoutes()) deleteStaleRoutes();
  viaSetConfig_->restartingVrfDel(vrfName_);
}

bool RouteStatusSm::mayHoldStaleRoutes() const {
  // Every RIB route we write has its prefix in the status, and goes when the
  // prefix does: only routes kept from before we were made can be stale.
  if (!ribHeldOurs_) return false;
  const uint32_t ours = ribConfig_->routeCount(vrfId_, af_);
  if (ours == 0) return false;
  const Status::RouteMap& routes = status_->route();
  // More of ours than prefixes in the status: some are stale. A RIB of not
  // much more than ours: walking it costs no more than counting.
  if (ours > routes.size() || ribConfig_->routeSize() < 2 * routes.size()) return true;
  // None is stale when every one of ours has its prefix in the status: count
  // the status's prefixes that have a RIB route, each route and its RIB slot
  // and entry loaded a few routes ahead.
  const Rib::RouteConfig& rib = *ribConfig_;
  struct Upcoming {
    const Route* route;
    uint32_t ribHash;  // from step 1
  };
  Kel::Lookahead<Upcoming, 3, 2> ahead;
  Status::RouteMap::const_iterator next = routes.begin();
  const auto pushAhead = [&] {
    if (next == routes.end()) return;
    ahead.push({next->ptr(), 0}, [&](Upcoming& u, int step) {
      if (step == 0) {
        Kel::prefetchObject(u.route);
        return;
      }
      if (step == 1) u.ribHash = rib.routeHashOf(Rib::RouteKey(vrfId_, u.route->prefix()));
      rib.prefetchRouteStep(u.ribHash, step - 1);
    });
    ++next;
  };
  for (uint32_t i = 0; i < ahead.lead; ++i) pushAhead();
  uint32_t present = 0;
  for (const Kel::Ptr<Route>& route : routes) {
    if (rib.route(Rib::RouteKey(vrfId_, route->prefix())) != nullptr) ++present;
    pushAhead();
  }
  return present != ours;
}

void RouteStatusSm::deleteStaleRoutes() {
  // The RIB table holds every VRF's routes. Its entries are read as they sit
  // in memory, and this VRF's are looked up in the status a few entries
  // ahead (slot, then route), so that those misses overlap; the stale ones
  // then go in the RIB's own order.
  const Rib::RouteConfig::RouteTable& rib = ribConfig_->route();
  const Status::RouteMap& routes = status_->route();
  const auto ours = [this](const Rib::RouteKey& key) {
    return key.vrfId() == vrfId_ && key.prefix().af() == af_;
  };
  struct Upcoming {
    uint32_t position;  // in the RIB table
    uint32_t hash;      // in the status, from step 0
  };
  Kel::Lookahead<Upcoming, 2, 4> ahead;
  const uint32_t size = rib.size();
  uint32_t next = 0;
  const auto pushAhead = [&] {
    if (next == size) return;
    ahead.push({next++, 0}, [&](Upcoming& u, int step) {
      const Rib::RouteKey& key = rib.atPosition(u.position).key();
      if (!ours(key)) return;
      if (step == 0) {
        u.hash = routes.hashOf(key.prefix());
        routes.prefetch(u.hash);
      } else if (const Kel::Ptr<Route>* route = routes.probable(u.hash)) {
        Kel::prefetchObject(route->ptr());
      }
    });
  };
  for (uint32_t i = 0; i < ahead.lead; ++i) pushAhead();
  std::vector<Rib::RouteKey> stale;
  for (uint32_t i = 0; i < size; ++i) {
    const Rib::RouteKey& key = rib.atPosition(i).key();
    if (ours(key) && !routes.find(key.prefix())) stale.push_back(key);
    pushAhead();
  }
  std::sort(stale.begin(), stale.end(), [this](const Rib::RouteKey& a, const Rib::RouteKey& b) {
    const uint32_t ha = ribConfig_->routeHashOf(a), hb = ribConfig_->routeHashOf(b);
    return ha < hb || (ha == hb && a < b);
  });
  for (const Rib::RouteKey& key : stale) doDelRoute(key.prefix());
}

// ------------------------------------------------------------ review

void RouteStatusSm::handleInitialized() {
  RSM_TRACE(8, " handleInitialized");
  clockIs(Kel::ActivityManager::instance().newClock());
  ribIs(ribString_.view() == Rib::mribString ? Rib::RibType::mrib : Rib::RibType::unicast);
  initializedIs(true);
  viaSetConfig_->restartingVrfIs(vrfName_);
  handleRoute();
}

void RouteStatusSm::clockIs(const Kel::Ptr<const Kel::Clock>& clock) {
  if (clock_ == clock) return;
  clock_ = clock;
  kelClock_.reactorIs(clock ? Kel::makePtr<KelClock>(this, clock.ptr()) : nullptr);
}

void RouteStatusSm::handleRoute() {
  KEL_RINGLOG(trace, 8, "Vrf Id: %s RouteStatusSm, schedule review", vrfId_);
  RSM_TRACE(8, " RouteStatusSm, schedule review");
  updateRouteReviewState(false);
  reviewBookmarkIs(Pando::IpGenPrefix());
  if (clock_) clock_->timeMinIs(Kel::System::currentTime());
}

void RouteStatusSm::reviewedOnceIs(bool v) {
  if (reviewedOnce_ == v) return;
  reviewedOnce_ = v;
  doCleanupRibConfig();
}

void RouteStatusSm::updateRouteReviewState(bool complete) {
  if (!vrfReadyStatus_) return;
  if (af_ == Pando::AddressFamily::ipv4) {
    vrfReadyStatus_->v4RouteReviewCompleteIs(complete);
  } else {
    vrfReadyStatus_->v6RouteReviewCompleteIs(complete);
  }
}

void RouteStatusSm::doReview() {
  RSM_TRACE(8, " doReview");
  if (!initialized_ || !status_->initialized()) {
    RSM_TRACE(8, " exit doReview if status is not initialized ");
    return;
  }
  ++reviewSlices_;
  viaFactsExpire();
  const Status::RouteMap& routes = status_->route();
  Status::RouteMap::const_iterator it;
  if (!reviewBookmark_.isEmpty()) {
    it = routes.seek(reviewBookmark_);
    if (it != routes.end()) {
      RSM_DUALLOG(8, " Resuming review at " << (*it)->prefix(),
                  " RouteStatusSm: Resuming review at %s", (*it)->prefix());
    }
  } else {
    it = routes.begin();
    if (it != routes.end()) {
      RSM_DUALLOG(8, " Starting review at " << (*it)->prefix(),
                  " RouteStatusSm: Starting review at %s", (*it)->prefix());
    }
  }
  // Evaluations wait on cache misses: bring the routes ahead and their RIB
  // routes toward the cache, found again at each step where the walk saw
  // them, else by hash (one may have moved or gone meanwhile). The RIB side
  // starts once the route, which holds the prefix, is in cache.
  struct Upcoming {
    uint32_t hash;     // in the status
    uint32_t place;    // in the status, when pushed
    uint32_t ribHash;  // in the RIB, from step 1
  };
  Kel::Lookahead<Upcoming, routePrefetchSteps, 2> ahead;
  Status::RouteMap::const_iterator next;
  const auto pushAhead = [&] {
    if (next == routes.end()) return;
    ahead.push({next.hash(), next.place(), 0}, [&](Upcoming& u, int step) {
      const Kel::Ptr<Route>* route = routes.probable(u.hash, u.place);
      if (route == nullptr) return;
      prefetchRouteStep(**route, step);
      if (step == 1) u.ribHash = ribConfig_->routeHashOf(Rib::RouteKey(vrfId_, (*route)->prefix()));
      if (step >= 1 && step <= 3) ribConfig_->prefetchRouteStep(u.ribHash, step - 1);
    });
    ++next;
  };
  const auto restartAhead = [&] {
    ahead.clear();
    next = it;
    for (uint32_t i = 0; i < ahead.lead; ++i) pushAhead();
  };
  restartAhead();
  Kel::Deadline deadline(reviewQuantum_);
  while (it != routes.end()) {
    // Evaluating may change the collection (a RIB reactor re-entering):
    // hold the route and re-seek behind it.
    const Kel::Ptr<Route> route = *it;
    const uint32_t size = routes.size();
    reviewing_ = true;
    evaluate(route->prefix(), route.ptr(), nullptr);
    reviewing_ = false;
    if (routes.size() != size) {
      it = routes.seek(route->prefix());
      if (it != routes.end() && (*it)->prefix() == route->prefix()) ++it;
      restartAhead();
    } else {
      ++it;
      pushAhead();
    }
    if (deadline.passed()) {
      if (it == routes.end()) break;
      reviewBookmarkIs((*it)->prefix());
      RSM_DUALLOG(8, " Suspending review at: " << reviewBookmark_,
                  " RouteStatusSm: Suspending review at %s", reviewBookmark_);
      clock_->timeMinIs(Kel::System::currentTime());
      return;
    }
  }
  updateRouteReviewState(true);
  RSM_DUALLOG(8, " Finished review", " RouteStatusSm: Finished review ");
  reviewBookmarkIs(Pando::IpGenPrefix());
  reviewedOnceIs(true);
}

// ------------------------------------------------------------ BFD tracking

void RouteStatusSm::handleBfdTrackedVia(const RouteKey& routeKey, const Rib::ViaKey& via,
                                        bool add) {
  RSM_TRACE(8, " handleBfdTrackedVia"
                   << " for route " << routeKey << ", via " << via << ", add " << add);
  if (!bfdTrackedRoutesList_) return;
  const Rib::Via* record = viaRecord(via);
  const Rib::Via viaValue = record ? *record : Rib::Via();
  const BfdStatusKey key = bfdStatusKey(viaValue);
  const Routing::Via trackedVia(key.addr(), key.intf());
  RSM_TRACE(9, " Using bfdStatusKey: addr " << key.addr() << " intf " << key.intf());
  Kel::Ptr<BfdTrackedStaticRoutes> entry = bfdTrackedRoutesList_->route(key);
  if (add) {
    if (!entry) {
      RSM_TRACE(9, " New status object being created for bfdStatusKey addr "
                       << key.addr() << " intf " << key.intf());
      entry = bfdTrackedRoutesList_->routeIs(key);
      entry->dependantRouteIs(routeKey)->trackedViaIs(trackedVia);
      entry->statusIs(false);
      if (!viaValue.intf().isEmpty()) {
        RSM_TRACE(9, " Resolved interface is " << viaValue.intf());
        entry->resolvedIntfIs(viaValue.intf());
      }
      return;
    }
    RSM_TRACE(9, " Status object exists for key: " << key);
    if (!entry->dependantRoute(routeKey)) {
      RSM_TRACE(9, " New routeKey route " << routeKey.prefix() << " pref "
                                          << unsigned(routeKey.preference())
                                          << " is being added to status object");
      entry->dependantRouteIs(routeKey);
    }
    RSM_TRACE(9, " New via " << key.addr() << " " << key.intf()
                             << " is being added to the status object");
    entry->dependantRoute(routeKey)->trackedViaIs(trackedVia);
    return;
  }
  Kel::Ptr<TrackedViaList> tracked = entry ? entry->dependantRoute(routeKey) : nullptr;
  if (!tracked) {
    RSM_TRACE(9, " BFD was not enabled for this routeKey: " << routeKey);
    return;
  }
  RSM_TRACE(9, " Deleting via " << key.addr() << " " << key.intf() << " from status object");
  tracked->trackedViaDel(trackedVia);
  if (tracked->trackedViaSize() == 0) {
    RSM_TRACE(9, " No more BFD tracked vias for route " << routeKey.prefix() << " pref "
                                                        << unsigned(routeKey.preference()));
    entry->dependantRouteDel(routeKey);
  }
  if (entry->dependantRouteSize() == 0) {
    RSM_TRACE(9,
              " No more dependant routes for key: addr " << key.addr() << " intf " << key.intf());
    bfdTrackedRoutesList_->routeDel(key);
  }
}

void RouteStatusSm::handleBfdRoute(const BfdStatusKey& key) {
  const KelBfdRoute* watching = kelBfdRoute_.find(key);
  const Kel::Ptr<const BfdTrackedStaticRoutes> gone(watching ? watching->notifier() : nullptr);
  if (gone && gone.ptr() != bfdTrackedRoutesList_->route(key).ptr()) {
    // Dropped first: filing again below creates the entry that replaces it.
    bfdRouteDel(key);
    std::vector<RouteKey> dependants;
    for (const auto& d : gone->dependantRoute()) dependants.push_back(d->routeKey());
    for (const RouteKey& routeKey : dependants) {
      const Kel::Ptr<Route> route = status_->route(routeKey.prefix());
      const Kel::Ptr<RoutePref> pref = route ? route->routePref(routeKey.preference()) : nullptr;
      if (!pref) continue;
      bool filed = false;
      pref->forEachBfdTrackedVia([&](const Rib::ViaKey& via) {
        if (!(bfdStatusKey(getViaFromKey(via)) == key)) return;
        handleBfdTrackedVia(routeKey, via, true);
        filed = true;
      });
      if (filed) handleRoute(routeKey.prefix());
    }
  }
  if (const Kel::Ptr<BfdTrackedStaticRoutes> entry = bfdTrackedRoutesList_->route(key)) {
    bfdRouteIs(entry);
  } else {
    bfdRouteDel(key);
  }
}

void RouteStatusSm::bfdRouteIs(const Kel::Ptr<const BfdTrackedStaticRoutes>& entry) {
  if (const KelBfdRoute* r = kelBfdRoute_.find(entry->key()); r && r->notifier() == entry.ptr()) {
    return;
  }
  kelBfdRoute_.replace(Kel::makePtr<KelBfdRoute>(this, entry.ptr()));
}

void RouteStatusSm::bfdRouteDel(const BfdStatusKey& key) { kelBfdRoute_.erase(key); }

void RouteStatusSm::bfdRouteDelAll() { kelBfdRoute_.clear(); }

}  // namespace Routing::Protocol
