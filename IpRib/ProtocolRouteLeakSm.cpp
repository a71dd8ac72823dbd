#include "IpRib/ProtocolRouteLeakSm.h"

#include <cstddef>
#include <sstream>

#include "Kel/Assert.h"
#include "Kel/Duallog.h"
#include "Kel/Error.h"
#include "Kel/Prefetch.h"
#include "Kel/System.h"

namespace Routing::Protocol::Leak {

namespace {
Kel::TraceFacility trace("IpRib::ProtocolRouteLeakSm");
}  // namespace

// A handler's entry, and its decisions, begin with its name.
#define LEAK_TRACE(level, handler, message) KEL_TRACE(trace, level, handler << message)
#define LEAK_DUALLOG(handler, message, format, ...) \
  KEL_DUALLOG(trace, 9, handler << message, handler format __VA_OPT__(, ) __VA_ARGS__)

// ================================================================== mux

class MuxSm::KelRouteConfig final : public Routing::RouteList::Notifiee {
 public:
  KelRouteConfig(MuxSm* sm, const Routing::RouteList* list) : sm_(sm) { notifierIs(list); }
  void onRoute(const Routing::RouteKey& k) override {
    const Kel::Ptr<Routing::Route> route = notifier()->route(k);
    sm_->classify(k, route.ptr());
    // A new route object (added or replacing another) is watched from now
    // on; one that left dropped its watcher already (KelRoute::onFiled).
    if (route) sm_->routeIs(route.ptr());
  }

 private:
  MuxSm* sm_;
};

// One per route of the list, kept in the mux's slab: it finds the mux from
// its own address, so it holds nothing but the framework's reactor fields.
class MuxSm::KelRoute final : public Routing::Route::Notifiee {
 public:
  explicit KelRoute(const Routing::Route* route) { notifierIs(route); }
  static void* operator new(std::size_t size, Kel::Slab& slab) {
    return Kel::NestedReactorSlab<KelRoute>::slabAllocate(size, slab);
  }
  static void operator delete(void* p) { Kel::Slab::deallocate(p); }
  static void operator delete(void* p, Kel::Slab&) { Kel::Slab::deallocate(p); }

  // While filed, the route is the list's route for its key: no look-up.
  void onLeakVrfName() override { sm()->handleRouteOf(*notifier()); }
  void onMetric() override { sm()->handleRouteOf(*notifier()); }
  void onFiled() override {
    if (notifier()->filed()) return;
    // Deleted rather than replaced: withdraw it now. A replacement is
    // classified when the list tells of its key.
    MuxSm* sm = this->sm();
    const Routing::RouteKey k = notifier()->key();
    if (!sm->routeConfig_->route(k)) sm->handleRouteDelete(k);
    sm->routeDel(this);
  }

 private:
  MuxSm* sm() const { return static_cast<MuxSm*>(Kel::NestedReactorSlab<KelRoute>::owner(this)); }
};

class MuxSm::KelClock final : public Kel::Clock::Notifiee {
 public:
  KelClock(MuxSm* sm, const Kel::Clock* clock) : sm_(sm) { notifierIs(clock); }
  void onTimeMin() override { sm_->doReview(); }

 private:
  MuxSm* sm_;
};

MuxSm::MuxSm(const VrfIdAf& vrfIdAf, const Kel::Ptr<const Routing::RouteList>& routeConfig,
             const Kel::Ptr<const Vrf::VrfIdMap::NameToIdMap>& vrfNameToIdMap)
    : vrfIdAf_(vrfIdAf),
      routeConfig_(routeConfig),
      vrfNameToIdMap_(vrfNameToIdMap),
      kelRouteConfig_(this),
      kelRoute_(this),
      kelClock_(this) {
  kelRouteConfig_.reactorIs(Kel::makePtr<KelRouteConfig>(this, routeConfig_.ptr()));
  for (const Kel::Ptr<Routing::Route>& route : routeConfig_->route()) routeIs(route.ptr());
  reviewQuantumIs(0.1);
  bookmarkValidIs(false);
  clock_ = Kel::ActivityManager::instance().newClock();
  kelClock_.reactorIs(Kel::makePtr<KelClock>(this, clock_.ptr()));
  handleInitialized();
}

MuxSm::~MuxSm() = default;

void MuxSm::routeIs(const Routing::Route* route) { kelRoute_.make(route); }

void MuxSm::routeDel(KelRoute* reactor) { kelRoute_.erase(reactor); }

VrfIdAf MuxSm::oldLeakTo(const Routing::RouteKey& k) const {
  const Vrf::VrfIdMap::VrfId to = leakRouteDir_ ? leakRouteDir_->leakTo(k) : vrfIdNull;
  return to == vrfIdNull ? VrfIdAf() : VrfIdAf(to, vrfIdAf_.af());
}

void MuxSm::oldLeakToIs(const Routing::RouteKey& k, const VrfIdAf& v) {
  leakRouteDir_->leakToIs(k, v.vrfId());
}

void MuxSm::handleInitialized() {
  LEAK_TRACE(8, "handleInitialized", " " << vrfIdAf_);
  outputLeakRouteListSetIs(vrfIdAf_);
  bookmarkValidIs(false);
  leakRouteDirIs();
  initializedIs(true);
  handleRoute();
}

void MuxSm::handleRoute() {
  LEAK_TRACE(8, "handleRoute", " " << vrfIdAf_);
  // Sized for every route before the pass: growing a large table inside a
  // slice would hold the loop for its whole copy.
  leakRouteDir_->reserve(routeConfig_->routeSize());
  scheduleReview();
}

void MuxSm::scheduleReview() {
  KEL_ASSERT(clock_);
  // As soon as possible, in a later turn of the loop.
  clock_->timeMinIs(0);
  reviewScheduledIs(true);
}

void MuxSm::handleRoute(const Routing::RouteKey& k) {
  const Kel::Ptr<Routing::Route> route = routeConfig_->route(k);
  classify(k, route.ptr());
}

void MuxSm::handleRouteOf(const Routing::Route& route) {
  if (!initialized_) return;
  // One route's change waits on cache misses one after the other: start
  // loading its directory slot and its new list's and config's now; its old
  // list's and config's once the directory has told which they are.
  const Vrf::VrfIdMap::VrfId id = route.leakVrfName().value().empty()
                                      ? vrfIdNull
                                      : vrfNameToIdMap_->vrfNameToId(route.leakVrfName());
  const uint32_t h = leakRouteDir_->leakRoute().hashOf(route.key());
  leakRouteDir_->leakRoute().prefetch(h);
  readAheadList(id, h);
  readAheadList(leakRouteDir_->leakTo(route.key()), h);
  classify(route.key(), &route);
}

void MuxSm::readAheadList(Vrf::VrfIdMap::VrfId dst, uint32_t h) const {
  if (dst == vrfIdNull) return;
  const Kel::Ptr<LeakRouteList> list =
      outputLeakRouteListSet_->leakRouteList(VrfPairAf(vrfIdAf_.vrfId(), dst, vrfIdAf_.af()));
  if (list) list->readAhead(h);
}

void MuxSm::classify(const Routing::RouteKey& k, const Routing::Route* current) {
  LEAK_TRACE(8, "handleRoute", " " << k);
  if (!initialized_) return;
  if (current == nullptr || current->leakVrfName().value().empty()) {
    handleRouteDelete(k);
    return;
  }
  const Kel::Ptr<const Routing::Route> route(current);
  const L3::VrfName& name = route->leakVrfName();
  const Vrf::VrfIdMap::VrfId id = vrfNameToIdMap_->vrfNameToId(name);
  LEAK_TRACE(9, "handleRoute", " leak to vrf is " << name << " (" << id << ")");
  if (id == vrfIdNull || id == vrfIdAf_.vrfId()) {
    handleRouteDelete(k);
    return;
  }
  // One look-up for the LeakRoute and the note beside it (oldLeakTo).
  const LeakRouteDir::Entry* entry = leakRouteDir_->leakRoute().find(k);
  Kel::Ptr<LeakRoute> lr = entry ? entry->leakRoute.get() : nullptr;
  Vrf::VrfIdMap::VrfId oldTo = entry ? entry->leakTo : vrfIdNull;
  if (lr && !(lr->route() == route)) {
    LEAK_DUALLOG("handleRoute",
                 " route leaked with key " << k << " has changed, deleting old one and recreating",
                 " route leaked with key %s has changed, deleting old one and recreating", k);
    handleRouteDelete(k);
    lr = nullptr;
  }
  if (!lr) {
    LEAK_DUALLOG("handleRoute", " creating leakRoute for " << k, " creating leakRoute for %s", k);
    lr = leakRouteDir_->leakRouteIs(vrfIdAf_, route);
    KEL_ASSERT(lr->route() == route);
    oldTo = vrfIdNull;  // a new entry has no note yet
  }
  const VrfIdAf old = oldTo == vrfIdNull ? VrfIdAf() : VrfIdAf(oldTo, vrfIdAf_.af());
  LEAK_TRACE(9, "handleRoute", " old leak to is " << old);
  const Kel::Ptr<LeakRouteList> oldLrl = findLrl(old.vrfId(), false);
  const Kel::Ptr<LeakRouteList> newLrl = findLrl(id, true);
  if (old.vrfId() != vrfIdNull && old.vrfId() == id) {
    LEAK_TRACE(9, "handleRoute", " old and new VRF are same ");
    // clang-format off
    KEL_ASSERT( oldLrl && ( oldLrl == newLrl ) );
    // clang-format on
    if (oldLrl->leakRoute(k) == Kel::Ptr<const LeakRoute>(lr)) {
      LEAK_TRACE(9, "handleRoute", " no change for " << k);
      return;
    }
    oldLrl->leakRouteIs(lr);
    LEAK_DUALLOG("handleRoute", " replacing leak route with key " << k << " in vrf " << id,
                 " replacing leak route with key %s in vrf %s", k, id);
    return;
  }
  if (oldLrl) {
    LEAK_DUALLOG("handleRoute", " deleting route from old vrf ", " deleting route from old vrf ");
    oldLrl->leakRouteDel(k);
  }
  KEL_ASSERT(newLrl);
  newLrl->leakRouteIs(lr);
  oldLeakToIs(k, VrfIdAf(id, vrfIdAf_.af()));
  maybeCleanupLrl(old.vrfId());
}

void MuxSm::handleRouteDelete(const Routing::RouteKey& k) {
  LEAK_TRACE(8, "handleRouteDelete", " " << k);
  if (!initialized_) return;
  // The destination is noted beside the route's entry: read it before the
  // entry goes, which forgets it (oldLeakTo loses k with leakRouteDir).
  const Vrf::VrfIdMap::VrfId oldDst = leakRouteDir_->leakTo(k);
  leakRouteDir_->leakRouteDel(k);
  if (oldDst == vrfIdNull) return;
  const Kel::Ptr<LeakRouteList> oldLrl = findLrl(oldDst, false);
  KEL_ASSERT(oldLrl);
  oldLrl->leakRouteDel(k);
  maybeCleanupLrl(oldDst);
}

Kel::Ptr<LeakRouteList> MuxSm::findLrl(Vrf::VrfIdMap::VrfId dst, bool create) {
  KEL_ASSERT(initialized());
  LEAK_TRACE(8, "findLrl", " vrf " << dst << " create: " << std::boolalpha << create);
  if (dst == vrfIdNull) return nullptr;
  const VrfPairAf pair(vrfIdAf_.vrfId(), dst, vrfIdAf_.af());
  Kel::Ptr<LeakRouteList> lrl = outputLeakRouteListSet_->leakRouteList(pair);
  if (!lrl && create) {
    LEAK_DUALLOG("findLrl", " creating LRL from " << vrfIdAf_ << " to " << pair,
                 " creating LRL from %s to %s", vrfIdAf_, pair);
    lrl = outputLeakRouteListSet_->leakRouteListIs(pair);
  }
  return lrl;
}

void MuxSm::maybeCleanupLrl(Vrf::VrfIdMap::VrfId dst) {
  KEL_ASSERT(initialized());
  const VrfPairAf pair(vrfIdAf_.vrfId(), dst, vrfIdAf_.af());
  const Kel::Ptr<LeakRouteList> lrl = outputLeakRouteListSet_->leakRouteList(pair);
  if (!lrl || lrl->leakRoutes() != 0) {
    LEAK_TRACE(9, "maybeCleanupLrl", " nothing to do!");
    return;
  }
  LEAK_DUALLOG("maybeCleanupLrl", " deleting LRL destined to " << dst,
               " deleting LRL destined to %s", dst);
  outputLeakRouteListSet_->leakRouteListDel(pair);
}

// The look-ahead of a review: stage 0 loads a route, stage 1 (once it is in
// cache) the slots its classification will probe. Only hints: a stale one
// costs a wasted load, never a wrong result.
class MuxSm::ReadAhead {
 public:
  explicit ReadAhead(const MuxSm& sm) : sm_(sm), routes_(sm.routeConfig_->route()) {}

  void restart(Routing::RouteList::RouteMap::const_iterator from) {
    ahead_.clear();
    next_ = from;
    for (uint32_t i = 0; i < ahead_.lead; ++i) next();
  }
  void next() {
    if (next_ == routes_.end()) return;
    ahead_.push(next_.hash(), [this](uint32_t h, int stage) { load(h, stage); });
    ++next_;
  }

 private:
  void load(uint32_t h, int stage) {
    const Kel::Ptr<Routing::Route>* r = routes_.probable(h);
    if (r == nullptr) return;
    const Routing::Route& route = **r;
    if (stage == 0) {
      Kel::prefetchObject(&route);
      return;
    }
    const uint32_t leakHash = sm_.leakRouteDir_->leakRoute().hashOf(route.key());
    sm_.leakRouteDir_->leakRoute().prefetch(leakHash);
    if (route.leakVrfName().value().empty()) return;
    // Routes share few targets: the last one's list is likely this one's.
    if (!(route.leakVrfName() == name_)) {
      name_ = route.leakVrfName();
      const Vrf::VrfIdMap::VrfId id = sm_.vrfNameToIdMap_->vrfNameToId(name_);
      list_ = sm_.outputLeakRouteListSet_->leakRouteList(
          VrfPairAf(sm_.vrfIdAf_.vrfId(), id, sm_.vrfIdAf_.af()));
    }
    if (list_) list_->readAhead(leakHash);
  }

  const MuxSm& sm_;
  const Routing::RouteList::RouteMap& routes_;
  Routing::RouteList::RouteMap::const_iterator next_;
  Kel::Lookahead<uint32_t, 2, 8> ahead_;
  L3::VrfName name_;
  Kel::Ptr<const LeakRouteList> list_;
};

void MuxSm::doReview() {
  LEAK_TRACE(8, "doReview", " " << vrfIdAf_);
  if (!initialized_) return;
  Kel::Deadline deadline(reviewQuantum_);
  const Routing::RouteList::RouteMap& routes = routeConfig_->route();
  auto it = bookmarkValid_ ? routes.seek(bookmark_) : routes.begin();
  // At scale a pass waits on cache misses: the route, its directory slot,
  // its list's slot and its destination's config slot. Bring them in a few
  // routes ahead, each route found again by hash (one may have gone).
  ReadAhead ahead(*this);
  ahead.restart(it);
  uint64_t count = 0;
  while (it != routes.end()) {
    ++count;
    // Handling may reach the agent, which may change the list: hold the
    // route, and find the next one again behind it if the list changed.
    const Kel::Ptr<Routing::Route> route = *it;
    const uint32_t size = routes.size();
    classify(route->key(), route.ptr());
    if (routes.size() != size) {
      it = routes.seek(route->key());
      if (it != routes.end() && (*it)->key() == route->key()) ++it;
      ahead.restart(it);
    } else {
      ++it;
      ahead.next();
    }
    if (it == routes.end()) break;
    if (deadline.passed()) {
      LEAK_DUALLOG("doReview", " pausing review after " << count << " checks this run.",
                   " pausing review after %s checks this run.", count);
      bookmarkValidIs(true);
      bookmarkIs((*it)->key());
      ++reviewPauses_;
      scheduleReview();
      return;
    }
  }
  reviewScheduledIs(false);
  bookmarkValidIs(false);
  LEAK_DUALLOG("doReview", " review complete with " << count << " checks this run.",
               " review complete with %s checks this run.", count);
}

Kel::Ptr<MuxSm> muxSmFactory(const VrfIdAf& vrfIdAf,
                             const Kel::Ptr<const Routing::RouteList>& routeConfig,
                             const Kel::Ptr<const Vrf::VrfIdMap::NameToIdMap>& vrfNameToIdMap) {
  return Kel::makePtr<MuxSm>(vrfIdAf, routeConfig, vrfNameToIdMap);
}

// ================================================================== demux

class DemuxSm::KelInputLeakRouteListSet final : public LeakRouteListPtrSet::Notifiee {
 public:
  KelInputLeakRouteListSet(DemuxSm* sm, const LeakRouteListPtrSet* set) : sm_(sm) {
    notifierIs(set);
  }
  void onLeakRouteList(const VrfPairAf& key) override {
    sm_->handleLeakRouteList(key);
    if (const Kel::Ptr<const LeakRouteList> list = notifier()->leakRouteList(key)) {
      sm_->leakRouteListIs(list);
    } else {
      sm_->leakRouteListDel(key);
    }
  }

 private:
  DemuxSm* sm_;
};

class DemuxSm::KelLeakRouteList final : public LeakRouteList::Notifiee {
 public:
  KelLeakRouteList(DemuxSm* sm, const LeakRouteList* list) : sm_(sm) { notifierIs(list); }
  const VrfPairAf& key() const { return notifier()->vrfAf(); }
  void onLeakRoute(const Routing::RouteKey& k) override { sm_->handleLeakRoute(k); }
  // The list will file a key (LeakRouteRefs::readAhead): so will the config.
  void readAhead(int step) const override {
    if (step == 0) sm_->leakRouteConfig_->leakRoute().prefetch(notifier()->readAheadHash());
  }

 private:
  DemuxSm* sm_;
};

class DemuxSm::KelClock final : public Kel::Clock::Notifiee {
 public:
  KelClock(DemuxSm* sm, const Kel::Clock* clock) : sm_(sm) { notifierIs(clock); }
  void onTimeMin() override { sm_->doReview(); }

 private:
  DemuxSm* sm_;
};

DemuxSm::DemuxSm(const VrfIdAf& vrfIdAf, const Kel::Ptr<const LeakRouteListPtrSet>& input,
                 const Kel::Ptr<LeakRouteConfig>& leakRouteConfig)
    : vrfIdAf_(vrfIdAf),
      inputLeakRouteListSet_(input),
      leakRouteConfig_(leakRouteConfig),
      kelInputLeakRouteListSet_(this),
      kelLeakRouteList_(this),
      kelClock_(this) {
  kelInputLeakRouteListSet_.reactorIs(
      Kel::makePtr<KelInputLeakRouteListSet>(this, inputLeakRouteListSet_.ptr()));
  for (const Kel::Ptr<const LeakRouteList>& list : inputLeakRouteListSet_->leakRouteList()) {
    leakRouteListIs(list);
  }
  reviewQuantumIs(0.1);
  bookmarkValidIs(false);
  clock_ = Kel::ActivityManager::instance().newClock();
  kelClock_.reactorIs(Kel::makePtr<KelClock>(this, clock_.ptr()));
  handleInitialized();
}

DemuxSm::~DemuxSm() = default;

void DemuxSm::leakRouteListIs(const Kel::Ptr<const LeakRouteList>& list) {
  kelLeakRouteList_.replace(Kel::makePtr<KelLeakRouteList>(this, list.ptr()));
}

void DemuxSm::leakRouteListDel(const VrfPairAf& key) { kelLeakRouteList_.erase(key); }

void DemuxSm::handleInitialized() {
  LEAK_TRACE(8, "handleInitialized", " " << vrfIdAf_);
  for (const Kel::Ptr<const LeakRouteList>& list : inputLeakRouteListSet_->leakRouteList()) {
    handleLeakRouteList(list->vrfAf());
  }
  bookmarkValidIs(false);
  initializedIs(true);
}

void DemuxSm::handleLeakRouteList(const VrfPairAf& key) {
  LEAK_TRACE(8, "handleLeakRouteList", " " << key);
  KEL_ASSERT(key.dstVrf() == vrfIdAf().vrfId());
  KEL_ASSERT(key.af() == vrfIdAf().af());
  if (const Kel::Ptr<const LeakRouteList> list = inputLeakRouteListSet_->leakRouteList(key)) {
    for (const LeakRouteRef& lr : list->leakRoute()) backlogIs(lr->key());
  } else {
    // Its keys went with it: decide every key of the output again.
    for (const LeakRouteRef& lr : leakRouteConfig_->leakRoute()) backlogIs(lr->key());
  }
  scheduleReview();
}

void DemuxSm::handleLeakRoute(const Routing::RouteKey& k) {
  LEAK_TRACE(8, "handleLeakRoute", " dst " << vrfIdAf_ << " key " << k);
  KEL_ASSERT(initialized());
  const LeakRoute* best = nullptr;
  for (const Kel::Ptr<const LeakRouteList>& list : inputLeakRouteListSet_->leakRouteList()) {
    const LeakRouteRef* l = list->leakRoute().find(k);
    if (l == nullptr) continue;
    // An equal source does not replace the first found.
    if (best == nullptr || (*l)->vrfAf() < best->vrfAf()) best = l->get();
  }
  if (best == nullptr) {
    leakRouteConfig_->leakRouteDel(k);
  } else {
    leakRouteConfig_->leakRouteIs(Kel::Ptr<const LeakRoute>(best));
  }
}

void DemuxSm::scheduleReview() {
  if (backlog_.empty()) return;
  KEL_ASSERT(clock_);
  clock_->timeMinIs(0);
}

void DemuxSm::doReview() {
  LEAK_TRACE(8, "doReview", " " << vrfIdAf_);
  if (!initialized_) return;
  Kel::Deadline deadline(reviewQuantum_);
  auto it = bookmarkValid_ ? backlog_.seek(bookmark_) : backlog_.begin();
  uint64_t count = 0;
  while (it != backlog_.end()) {
    const Routing::RouteKey k = *it;
    ++count;
    handleLeakRoute(k);
    backlogDel(k);
    // k has left: the next key is the first at its place.
    it = backlog_.seek(k);
    if (it == backlog_.end()) break;
    if (deadline.passed()) {
      LEAK_DUALLOG("doReview", " review suspending after " << count << " passes this run.",
                   " review suspending after %s passes this run.", count);
      bookmarkValidIs(true);
      bookmarkIs(*it);
      ++reviewPauses_;
      scheduleReview();
      return;
    }
  }
  bookmarkValidIs(false);
  LEAK_DUALLOG("doReview", " review complete after " << count << " passes this run.",
               " review complete after %s passes this run.", count);
  // Keys filed before the bookmark while this review was suspended are
  // still waiting: they get a review of their own.
  scheduleReview();
}

Kel::Ptr<DemuxSm> demuxSmFactory(const VrfIdAf& vrfIdAf,
                                 const Kel::Ptr<const LeakRouteListPtrSet>& input,
                                 const Kel::Ptr<LeakRouteConfig>& leakRouteConfig) {
  return Kel::makePtr<DemuxSm>(vrfIdAf, input, leakRouteConfig);
}

// ================================================================== wiring

class WiringSm::KelMuxSmSetDir final : public LeakRouteListSetDir::Notifiee {
 public:
  KelMuxSmSetDir(WiringSm* sm, const LeakRouteListSetDir* dir) : sm_(sm) { notifierIs(dir); }
  void onLrlSet(const VrfIdAf& k) override;

 private:
  WiringSm* sm_;
};

class WiringSm::KelDemuxSmSetDir final : public LeakRouteListPtrSetDir::Notifiee {
 public:
  KelDemuxSmSetDir(WiringSm* sm, const LeakRouteListPtrSetDir* dir) : sm_(sm) { notifierIs(dir); }
  void onLrlpSet(const VrfIdAf& k) override { sm_->handleLrlpSet(k); }

 private:
  WiringSm* sm_;
};

class WiringSm::KelLrlSet final : public LeakRouteListSet::Notifiee {
 public:
  KelLrlSet(WiringSm* sm, const LeakRouteListSet* set) : sm_(sm) { notifierIs(set); }
  const VrfIdAf& key() const { return notifier()->vrfAf(); }
  void onLeakRouteList(const VrfPairAf& vpa) override { handleLrl(vpa); }
  void handleLrl(const VrfPairAf& vpa);

 private:
  WiringSm* sm_;
};

void WiringSm::KelMuxSmSetDir::onLrlSet(const VrfIdAf& k) {
  sm_->handleLrlSet(k);
  if (const Kel::Ptr<LeakRouteListSet> set = notifier()->lrlSet(k)) {
    sm_->lrlSet_.replace(Kel::makePtr<KelLrlSet>(sm_, set.ptr()));
  } else {
    sm_->lrlSet_.erase(k);
  }
}

void WiringSm::KelLrlSet::handleLrl(const VrfPairAf& vpa) {
  LEAK_TRACE(8, "handleLrl", " " << vpa);
  const VrfIdAf dst(vpa.dstVrf(), vpa.af());
  const Kel::Ptr<LeakRouteListPtrSet> lrlps = sm_->demuxSmSetDir_->lrlpSet(dst);
  if (!lrlps) {
    LEAK_TRACE(9, "handleLrl", " no demux SM for " << dst);
    return;
  }
  if (const Kel::Ptr<LeakRouteList> lrl = notifier()->leakRouteList(vpa)) {
    // clang-format off
    KEL_ASSERT( !lrlps->leakRouteList( vpa ) );
    // clang-format on
    LEAK_TRACE(9, "handleLrl", " adding lrl for " << vpa << " to " << dst);
    lrlps->leakRouteListIs(lrl);
  } else {
    // clang-format off
    KEL_ASSERT( lrlps->leakRouteList( vpa ) );
    // clang-format on
    LEAK_TRACE(9, "handleLrl", " removing lrl for " << vpa << " from " << dst);
    lrlps->leakRouteListDel(vpa);
  }
}

WiringSm::WiringSm(const Kel::Ptr<const LeakRouteListSetDir>& muxSmSetDir,
                   const Kel::Ptr<LeakRouteListPtrSetDir>& demuxSmSetDir,
                   const Kel::Ptr<const Vrf::VrfIdMap::NameToIdMap>& vrfNameToIdMap)
    : muxSmSetDir_(muxSmSetDir),
      demuxSmSetDir_(demuxSmSetDir),
      vrfNameToIdMap_(vrfNameToIdMap),
      kelMuxSmSetDir_(this),
      kelDemuxSmSetDir_(this),
      lrlSet_(this) {
  kelMuxSmSetDir_.reactorIs(Kel::makePtr<KelMuxSmSetDir>(this, muxSmSetDir_.ptr()));
  kelDemuxSmSetDir_.reactorIs(Kel::makePtr<KelDemuxSmSetDir>(this, demuxSmSetDir_.ptr()));
  for (const Kel::Ptr<LeakRouteListSet>& set : muxSmSetDir_->lrlSet()) {
    lrlSet_.insert(Kel::makePtr<KelLrlSet>(this, set.ptr()));
  }
}

WiringSm::~WiringSm() = default;

void WiringSm::handleLrlSet(const VrfIdAf& muxSmKey) {
  LEAK_TRACE(8, "handleLrlSet", " " << muxSmKey);
  const Kel::Ptr<const LeakRouteListSet> lrlSet = muxSmSetDir_->lrlSet(muxSmKey);
  if (!lrlSet) {
    // Withdraw every list of that source from the other VRFs of its family.
    for (const Kel::Ptr<LeakRouteListPtrSet>& lrlps : demuxSmSetDir_->lrlpSet()) {
      KEL_ASSERT(lrlps);
      const VrfIdAf& dst = lrlps->vrfAf();
      if (dst.af() != muxSmKey.af() || dst.vrfId() == muxSmKey.vrfId()) continue;
      const VrfPairAf pair(muxSmKey.vrfId(), dst.vrfId(), muxSmKey.af());
      if (!lrlps->leakRouteList(pair)) continue;
      LEAK_TRACE(9, "handleLrlSet", " removing lrl for " << pair << " from " << dst);
      lrlps->leakRouteListDel(pair);
    }
    return;
  }
  KEL_ASSERT(!lrlSet || lrlSet->leakRouteLists() == 0);
  for (auto it = lrlSet->leakRouteList().begin(); it != lrlSet->leakRouteList().end(); ++it) {
    const Kel::Ptr<LeakRouteList>& lrl = *it;
    KEL_ASSERT(lrl);
    KEL_ASSERT(it.key().af() == muxSmKey.af());
    const VrfIdAf dst(it.key().dstVrf(), it.key().af());
    const Kel::Ptr<LeakRouteListPtrSet> lrlps = demuxSmSetDir_->lrlpSet(dst);
    if (!lrlps || lrlps->leakRouteList(it.key())) continue;
    LEAK_TRACE(9, "handleLrlSet", " adding LRL for " << it.key() << " for " << dst);
    lrlps->leakRouteListIs(lrl);
  }
}

void WiringSm::handleLrlpSet(const VrfIdAf& demuxSmKey) {
  LEAK_TRACE(8, "handleLrlpSet", " " << demuxSmKey);
  const Kel::Ptr<LeakRouteListPtrSet> lrlps = demuxSmSetDir_->lrlpSet(demuxSmKey);
  if (!lrlps) {
    LEAK_TRACE(9, "handleLrlpSet", " set deleted, nothing to do.");
    return;
  }
  KEL_ASSERT(lrlps->leakRouteLists() == 0);
  for (const Kel::Ptr<LeakRouteListSet>& set : muxSmSetDir_->lrlSet()) {
    const VrfIdAf& src = set->vrfAf();
    if (src.af() != demuxSmKey.af() || src.vrfId() == demuxSmKey.vrfId()) {
      LEAK_TRACE(9, "handleLrlpSet", " ignoring");
      continue;
    }
    const VrfPairAf pair(src.vrfId(), demuxSmKey.vrfId(), demuxSmKey.af());
    if (const Kel::Ptr<LeakRouteList> lrl = set->leakRouteList(pair)) {
      LEAK_TRACE(9, "handleLrlpSet", " adding lrl for " << pair << " to " << demuxSmKey);
      lrlps->leakRouteListIs(lrl);
    }
  }
}

Kel::Ptr<WiringSm> wiringSmFactory(
    const Kel::Ptr<const LeakRouteListSetDir>& muxSmSetDir,
    const Kel::Ptr<LeakRouteListPtrSetDir>& demuxSmSetDir,
    const Kel::Ptr<const Vrf::VrfIdMap::NameToIdMap>& vrfNameToIdMap) {
  return Kel::makePtr<WiringSm>(muxSmSetDir, demuxSmSetDir, vrfNameToIdMap);
}

// ================================================================== root

RootSm::RootSm(const Kel::Ptr<const Vrf::VrfIdMap::NameToIdMap>& vrfNameToIdMap)
    : vrfNameToIdMap_(vrfNameToIdMap) {
  handleInitialized();
}

RootSm::~RootSm() {
  // The wiring first, so that nothing is re-wired while the VRFs go.
  wiringSm_ = nullptr;
  demuxSm_.clear();
  muxSm_.clear();
}

Kel::Ptr<MuxSm> RootSm::muxSm(const VrfIdAf& k) const {
  const Kel::Ptr<MuxSm>* m = muxSm_.find(k);
  return m ? *m : nullptr;
}

Kel::Ptr<DemuxSm> RootSm::demuxSm(const VrfIdAf& k) const {
  const Kel::Ptr<DemuxSm>* d = demuxSm_.find(k);
  return d ? *d : nullptr;
}

Kel::Ptr<LeakRouteListPtrSet> RootSm::demuxSmSet(const VrfIdAf& k) const {
  const Kel::Ptr<LeakRouteListPtrSet>* s = demuxSmSet_.find(k);
  return s ? *s : nullptr;
}

void RootSm::handleInitialized() {
  LEAK_TRACE(8, "handleInitialized", "");
  initialized_ = true;
  KEL_ASSERT(vrfNameToIdMap());
  muxSmSetDir_ = leakRouteListSetDirFactory();
  demuxSmSetDir_ = leakRouteListPtrSetDirFactory();
  wiringSm_ = wiringSmFactory(muxSmSetDir_, demuxSmSetDir_, vrfNameToIdMap_);
}

namespace {

// Bad arguments of createVrf, found before anything changes.
void checkCreateVrf(const VrfIdAf& vrfIdAf, const Kel::Ptr<const Routing::RouteList>& routeList,
                    const Kel::Ptr<LeakRouteConfig>& leakRouteConfig) {
  if (!routeList || !leakRouteConfig) {
    throw Kel::NullArgumentError("createVrf " + vrfIdAf.str() + ": null " +
                                 (routeList ? "leak route config" : "route list"));
  }
  std::ostringstream msg;
  msg << "createVrf " << vrfIdAf << ": ";
  if (vrfIdAf.vrfId() == vrfIdNull) {
    msg << "no VRF id";
  } else if (vrfIdAf.af() != Pando::AddressFamily::ipv4 &&
             vrfIdAf.af() != Pando::AddressFamily::ipv6) {
    msg << "not an IP address family";
  } else if (routeList->af() != vrfIdAf.af()) {
    msg << "route list of address family " << routeList->af();
  } else if (!(leakRouteConfig->vrfAf() == vrfIdAf)) {
    msg << "leak route config of " << leakRouteConfig->vrfAf();
  } else {
    return;
  }
  throw Kel::RangeError(msg.str());
}

}  // namespace

void RootSm::createVrf(const VrfIdAf& vrfIdAf, const Kel::Ptr<const Routing::RouteList>& routeList,
                       const Kel::Ptr<LeakRouteConfig>& leakRouteConfig) {
  LEAK_TRACE(8, "createVrf", " " << vrfIdAf);
  KEL_ASSERT(initialized());
  // clang-format off
  KEL_ASSERT( !demuxSm( vrfIdAf ) && !demuxSmSet( vrfIdAf ) );
  // clang-format on
  checkCreateVrf(vrfIdAf, routeList, leakRouteConfig);
  // The destination side first, so that the mux's first lists find it.
  const Kel::Ptr<LeakRouteListPtrSet> set = leakRouteListPtrSetFactory(vrfIdAf);
  demuxSmSet_.insert(Kel::Ptr<LeakRouteListPtrSet>(set));
  demuxSmSetDir_->lrlpSetIs(set);
  const Kel::Ptr<DemuxSm> dsm = demuxSmFactory(vrfIdAf, set, leakRouteConfig);
  demuxSm_.insert(Kel::Ptr<DemuxSm>(dsm));
  KEL_ASSERT(dsm);
  // clang-format off
  KEL_ASSERT( !muxSm( vrfIdAf ) );
  // clang-format on
  const Kel::Ptr<MuxSm> msm = muxSmFactory(vrfIdAf, routeList, vrfNameToIdMap_);
  muxSm_.insert(Kel::Ptr<MuxSm>(msm));
  muxSmSetDir_->lrlSetIs(msm->outputLeakRouteListSet());
}

void RootSm::deleteVrf(const VrfIdAf& vrfIdAf) {
  LEAK_TRACE(8, "deleteVrf", " " << vrfIdAf);
  KEL_ASSERT(initialized());
  Kel::Ptr<LeakRouteConfig> config;
  if (const Kel::Ptr<DemuxSm> dsm = demuxSm(vrfIdAf)) config = dsm->leakRouteConfig();
  demuxSm_.erase(vrfIdAf);
  demuxSmSet_.erase(vrfIdAf);
  demuxSmSetDir_->lrlpSetDel(vrfIdAf);
  muxSmSetDir_->lrlSetDel(vrfIdAf);
  muxSm_.erase(vrfIdAf);
  // A removed VRF keeps no leaked-in routes.
  if (config) config->leakRouteDelAll();
}

Kel::Ptr<RootSm> rootSmFactory(const Kel::Ptr<const Vrf::VrfIdMap::NameToIdMap>& vrfNameToIdMap) {
  return Kel::makePtr<RootSm>(vrfNameToIdMap);
}

}  // namespace Routing::Protocol::Leak
