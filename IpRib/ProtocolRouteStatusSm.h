// RouteStatusSm: turns one protocol route status (one VRF, one address
// family) into RIB route and via set configuration, and keeps it exact.
//
// Every change of a route's preferences or vias, and every stamp of its
// routeChangedAt, re-evaluates that prefix at once (handleRoute(prefix)): the most preferred
// preference with usable vias wins, within it the most preferred via type that yields vias (less
// preferred types contribute only BFD-tracked vias), labelled vias push out
// unlabelled ones, and with "StaticRouteMetric" on only the lowest metric is
// kept. Changes that affect all vias (a via metric or dependency graph table
// changing as a whole) schedule a full review, which runs in slices of
// `reviewQuantum` seconds from a prefix bookmark on the framework clock, so
// the event loop is never held longer than one slice plus one evaluation. A
// review evaluates the routes it holds in place and reads ahead the routes
// to come and their RIB routes: at scale, evaluations wait on cache misses,
// not on work. For the same reason an evaluation starts loading its RIB slot and
// the via set it will most likely write before it walks the vias.
//
// explain(prefix) runs the very same evaluation with an observer and returns
// what it saw; nobody asking costs one pointer test per step.
//
// A BFD tracking entry taken out of the list by another writer while routes
// still track through it is filed again at once, down like any new entry,
// and those routes are re-evaluated: the list holds what the protocol asks.
//
// One thread. Handlers may run from any notification of the inputs; the
// RIB writes they make notify the RIB's own reactors synchronously.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "IpRib/ProtocolGrTypes.h"
#include "IpRib/ProtocolRouteStatus.h"
#include "IpRib/ProtocolRouteStatusExplain.h"
#include "Kel/Clock.h"
#include "Kel/NestedReactors.h"
#include "Kel/String.h"
#include "platform/Routing/Bfd/BfdTrackedStaticRoutes.h"
#include "platform/Routing/Rib/Brisk/ViaSet.h"
#include "platform/Routing/Rib/Ip/GlobalNextHopDependencyGraph.h"
#include "platform/Routing/Rib/Ip/ViaConfig.h"
#include "platform/Routing/Rib/LoopingRouteStatus.h"
#include "platform/Routing/Rib/RouteConfig.h"
#include "platform/Routing/Rib/Transport.h"
#include "platform/Routing/Rib/Via.h"
#include "platform/Routing/Rib/ViaMetricStatus.h"
#include "platform/Routing/Rib/ViaSetConfig.h"
#include "platform/Routing/Rib/ViaStatusByVrf.h"

namespace Routing::Protocol {

class RouteStatusSm final : public Kel::NotifieeBase {
 public:
  RouteStatusSm(const L3::VrfName& vrfName, Pando::AddressFamily af, Vrf::VrfIdMap::VrfId vrfId,
                const Kel::Ptr<Status>& status,
                const Kel::Ptr<const Rib::ViaMetricStatus>& ipViaMetricStatus,
                const Kel::Ptr<const Rib::ViaMetricStatus>& evpnViaMetricStatus,
                const Kel::Ptr<const Rib::LoopingRouteStatus>& loopingRouteStatus,
                const Kel::Ptr<const Rib::Ip::GlobalNextHopDependencyGraph>& nhdGraph,
                const Kel::Ptr<Rib::RouteConfig>& ribConfig,
                const Kel::Ptr<Rib::ViaSetConfig>& viaSetConfig,
                Rib::RoutingProtocol routingProtocol,
                const Kel::Ptr<const Rib::ViaMetricStatus>& ipv4DefaultVrfViaMetricStatus,
                const Kel::Ptr<const Rib::ViaMetricStatus>& ipv6DefaultVrfViaMetricStatus,
                const Kel::Ptr<VrfReadyStatus>& vrfReadyStatus,
                const Kel::Ptr<BfdTrackedStaticRoutesList>& bfdTrackedRoutesList,
                const Kel::Ptr<const Rib::Ip::ViaConfig>& ipViaConfig,
                const Kel::Ptr<const Rib::Ip::ViaConfig>& auxIpViaConfig,
                const Kel::Ptr<const Rib::ViaMetricStatusByVrf>& viaMetricStatusByVrf,
                const Kel::String& ribString,
                const Kel::Ptr<const Rib::ViaStatusByVrf>& viaStatusByVrf);
  ~RouteStatusSm() override;
  // Creates one from the constructor's arguments.
  template <class... Args>
  static Kel::Ptr<RouteStatusSm> RouteStatusSmIs(Args&&... args) {
    return Kel::makePtr<RouteStatusSm>(std::forward<Args>(args)...);
  }

  // ------------------------------------------------------------ identity
  const L3::VrfName& vrfName() const { return vrfName_; }
  Pando::AddressFamily af() const { return af_; }
  Vrf::VrfIdMap::VrfId vrfId() const { return vrfId_; }
  const Kel::Ptr<Status>& status() const { return status_; }
  const Kel::Ptr<const Rib::ViaMetricStatus>& ipViaMetricStatus() const {
    return ipViaMetricStatus_;
  }
  const Kel::Ptr<const Rib::ViaMetricStatus>& evpnViaMetricStatus() const {
    return evpnViaMetricStatus_;
  }
  const Kel::Ptr<const Rib::LoopingRouteStatus>& loopingRouteStatus() const {
    return loopingRouteStatus_;
  }
  const Kel::Ptr<const Rib::Ip::GlobalNextHopDependencyGraph>& nhdGraph() const {
    return nhdGraph_;
  }
  const Kel::Ptr<Rib::RouteConfig>& ribConfig() const { return ribConfig_; }
  const Kel::Ptr<Rib::ViaSetConfig>& viaSetConfig() const { return viaSetConfig_; }
  Rib::RoutingProtocol routingProtocol() const { return routingProtocol_; }
  const Kel::Ptr<const Rib::ViaMetricStatus>& ipv4DefaultVrfViaMetricStatus() const {
    return ipv4DefaultVrfViaMetricStatus_;
  }
  const Kel::Ptr<const Rib::ViaMetricStatus>& ipv6DefaultVrfViaMetricStatus() const {
    return ipv6DefaultVrfViaMetricStatus_;
  }
  const Kel::Ptr<VrfReadyStatus>& vrfReadyStatus() const { return vrfReadyStatus_; }
  const Kel::Ptr<BfdTrackedStaticRoutesList>& bfdTrackedRoutesList() const {
    return bfdTrackedRoutesList_;
  }
  const Kel::Ptr<const Rib::Ip::ViaConfig>& ipViaConfig() const { return ipViaConfig_; }
  const Kel::Ptr<const Rib::Ip::ViaConfig>& auxIpViaConfig() const { return auxIpViaConfig_; }
  const Kel::Ptr<const Rib::ViaMetricStatusByVrf>& viaMetricStatusByVrf() const {
    return viaMetricStatusByVrf_;
  }
  const Kel::String& ribString() const { return ribString_; }
  const Kel::Ptr<const Rib::ViaStatusByVrf>& viaStatusByVrf() const { return viaStatusByVrf_; }
  Rib::RibType rib() const { return rib_; }
  void ribIs(Rib::RibType rib) { rib_ = rib; }

  // ------------------------------------------------------------ evaluation
  // Evaluates one prefix and writes (or deletes) its RIB route.
  void handleRoute(const Pando::IpGenPrefix& prefix);
  // Evaluates one prefix like handleRoute and tells what it saw.
  RouteExplanation explain(const Pando::IpGenPrefix& prefix);
  bool validVia(const Pando::IpGenPrefix& prefix, const Rib::ViaKey& via,
                const Rib::ViaKey& vtepVia, RoutePreference pref) const;
  Rib::Via getViaFromKey(const Rib::ViaKey& via) const;
  Kel::Ptr<const BfdTrackedStaticRoutes> getBfdTrackedRouteFromViaKey(const Rib::ViaKey& via) const;
  void doAddRoute(const Pando::IpGenPrefix& prefix, const Kel::Ptr<RoutePref>& routePref,
                  const Rib::Brisk::ViaSet& viaSet, Vrf::VrfIdMap::VrfId srcVrfId,
                  RouteMetric metric);
  void doAddRouteWithLowestMetric(const Pando::IpGenPrefix& prefix,
                                  const Kel::Ptr<RoutePref>& routePref,
                                  const Rib::Brisk::ViaSet& viaSet, Vrf::VrfIdMap::VrfId srcVrfId,
                                  ViaType viaType);
  void doDelRoute(const Pando::IpGenPrefix& prefix);
  void doCleanupRibConfig();

  // ------------------------------------------------------------ review
  const Pando::IpGenPrefix& reviewBookmark() const { return reviewBookmark_; }
  double reviewQuantum() const { return reviewQuantum_; }
  bool reviewedOnce() const { return reviewedOnce_; }
  bool initialized() const { return initialized_; }
  const Kel::Ptr<const Kel::Clock>& clock() const { return clock_; }
  void reviewBookmarkIs(const Pando::IpGenPrefix& p) { reviewBookmark_ = p; }
  void reviewQuantumIs(double q) { reviewQuantum_ = q; }
  void initializedIs(bool v) { initialized_ = v; }
  // Runs doCleanupRibConfig the first time it becomes true.
  void reviewedOnceIs(bool v);
  void clockIs(const Kel::Ptr<const Kel::Clock>& clock);
  // Schedules a full review from the beginning.
  void handleRoute();
  // Runs one slice of the review.
  void doReview();
  void updateRouteReviewState(bool complete);
  void handleInitialized();

  // ------------------------------------------------------------ BFD tracking
  void handleBfdTrackedVia(const RouteKey& routeKey, const Rib::ViaKey& via, bool add);
  // The list's entry for `key` changed: watch the one there now, and file
  // again this status's requests that were in an entry taken away.
  void handleBfdRoute(const BfdStatusKey& key);
  void bfdRouteIs(const Kel::Ptr<const BfdTrackedStaticRoutes>& entry);
  void bfdRouteDel(const BfdStatusKey& key);
  void bfdRouteDelAll();

  // Counters for tests and show output.
  uint64_t evaluations() const { return evaluations_; }
  uint64_t reviewSlices() const { return reviewSlices_; }

  class KelStatus;
  class KelRouteBase;
  class KelRoute;
  class KelRouteSingle;
  class KelClock;
  class KelViaMetricStatus;
  class KelNhdGraph;
  class KelLoopingRouteStatus;
  class KelBfdTrackedRoutesList;
  class KelBfdRoute;

 private:
  enum class ViaCheck : uint8_t { valid, unresolved, looping, bfdDown, vtepUnresolved };
  // The via metric table a via files under (by its VRF id, kind and
  // selector), or the level of the tree that is missing.
  struct MetricTable {
    enum class Missing : uint8_t { none, vrf, kind };
    Missing missing = Missing::none;
    const Rib::ViaMetricStatus* table = nullptr;  // null with none: no table of the selector
  };
  // The last table a walk looked up: the vias of a route mostly share it,
  // and nothing changes the tree while a walk reads it.
  struct MetricTableMemo {
    bool holds(const Rib::ViaKey& via) const {
      return valid && via.vrfId() == vrfId && via.kind() == kind && via.selector() == selector;
    }
    bool valid = false;
    Vrf::VrfIdMap::VrfId vrfId = 0;
    uint8_t kind = 0;
    uint32_t selector = 0;
    MetricTable result;
  };
  MetricTable metricTable(const Rib::ViaKey& via) const;
  // What the checks of one via found, whichever route asked: its verdict
  // and, when valid, its record and its next hop in the dependency graph.
  struct ViaFacts {
    ViaCheck check = ViaCheck::unresolved;
    const Rib::Via* record = nullptr;
    const Pando::IpGenAddr* nextHop = nullptr;
  };
  // The facts of the entry's via. `keep`: the caller's pass may take them
  // from, and leave them in, the memo below.
  ViaFacts viaFacts(const Pando::IpGenPrefix& prefix, const DedupViaKeyMetric& entry,
                    const RoutePref& routePref, RoutePreference pref, MetricTableMemo* tables,
                    bool keep) const;
  // Whether the evaluation under way may use the memo of via facts.
  bool keepsViaFacts(RouteEvaluationObserver* observer) const;
  // Ends the memo's present epoch: what it holds may be stale.
  static void viaFactsExpire();
  // Lives across a RIB write: the memo's epoch ends with it if any reactor
  // ran meanwhile. One that did not leaves every input as it was: only a
  // reactor's handler, not the RIB's own code, writes to them.
  struct ViaFactsWatch {
    uint64_t dispatches = Kel::Entity::dispatches();
    ~ViaFactsWatch() {
      if (Kel::Entity::dispatches() != dispatches) viaFactsExpire();
    }
  };
  // `viaHash` is via.tableHash(): an evaluation hashes each via once for
  // every table it looks the via up in.
  ViaCheck checkVia(const Pando::IpGenPrefix& prefix, const Rib::ViaKey& via, uint32_t viaHash,
                    const Rib::ViaKey& vtepVia, RoutePreference pref,
                    MetricTableMemo* memo = nullptr) const;
  ViaCheck checkEvpnVia(const Pando::IpGenPrefix& prefix, const Rib::ViaKey& via,
                        const Rib::ViaKey& vtepVia) const;
  // The vias an evaluation picks and, slot for slot, their protocol metrics.
  struct ViaPick {
    Rib::Brisk::ViaSet viaSet;
    RouteMetric metric[Rib::Brisk::ViaSet::maxVias];
  };
  // handleRoute for the route a nested reactor watches: while the route is
  // filed it is the status's route for its prefix, and needs no look-up.
  void handleRouteOf(const Route& route);
  void evaluate(const Pando::IpGenPrefix& prefix, RouteEvaluationObserver* observer);
  // `route` is the status's route for `prefix` (null when none), held by the caller.
  void evaluate(const Pando::IpGenPrefix& prefix, const Route* route,
                RouteEvaluationObserver* observer);
  void evaluateRoute(const Route& route, ViaPick& pick, RouteEvaluationObserver* observer);
  // The content hash of the via set a route most likely gets (see evaluateRoute).
  static constexpr uint32_t maxGuessedVias = 8;
  std::optional<uint32_t> guessViaSet(const Route& route) const;
  // Whether the route being evaluated had its RIB route and via set read
  // ahead (a review, or a pass that read our reactors ahead).
  bool ribRouteReadAhead() const;
  void addRouteWithLowestMetric(const Pando::IpGenPrefix& prefix, const RoutePref& routePref,
                                const ViaPick& pick, Vrf::VrfIdMap::VrfId srcVrfId,
                                RouteEvaluationObserver* observer);
  void addRoute(const Pando::IpGenPrefix& prefix, const RoutePref& routePref,
                const Rib::Brisk::ViaSet& viaSet, Vrf::VrfIdMap::VrfId srcVrfId, RouteMetric metric,
                RouteEvaluationObserver* observer);
  void delRoute(const Pando::IpGenPrefix& prefix, RouteEvaluationObserver* observer);
  const Rib::Via* viaRecord(const Rib::ViaKey& via) const {
    return viaRecord(via, via.tableHash());
  }
  const Rib::Via* viaRecord(const Rib::ViaKey& via, uint32_t viaHash) const;
  // "StaticRouteMetric", read again only when the toggles change.
  bool staticRouteMetric();
  BfdStatusKey bfdStatusKey(const Rib::Via& via) const;
  void routeIs(const Kel::Ptr<Route>& route);
  // After the first review: whether the RIB may hold routes of this VRF and
  // family that the status does not (without walking the RIB when it holds
  // few of ours), and deleting them.
  bool mayHoldStaleRoutes() const;
  void deleteStaleRoutes();
  // A reactor for every route of the status (at construction).
  void attachRoutes();
  // Starts loading the RIB slot where the prefix's route is looked up.
  void prefetchRibSlot(const Pando::IpGenPrefix& prefix) const;
  // Drops a route's reactor (its route left the status).
  void routeDel(KelRouteBase* reactor);
  void makeRouteReactor(Route* route);
  // With "SingleRouteReactor" on, no preference has a reactor to hold its
  // BFD-tracked vias when it goes: the route's reactor files them here and
  // keeps what it filed. Syncs the requests of one preference with its
  // bfdTrackedViaColl (none when `routePref` is null, gone); withdraws all of a prefix.
  void bfdTrackedViaSync(const Pando::IpGenPrefix& prefix, RoutePreference pref,
                         const RoutePref* routePref);
  void bfdTrackedViaDelAll(const Pando::IpGenPrefix& prefix);

  // Inputs, in the constructor's order.
  L3::VrfName vrfName_;
  Pando::AddressFamily af_;
  Vrf::VrfIdMap::VrfId vrfId_;
  Kel::Ptr<Status> status_;
  Kel::Ptr<const Rib::ViaMetricStatus> ipViaMetricStatus_;
  Kel::Ptr<const Rib::ViaMetricStatus> evpnViaMetricStatus_;
  Kel::Ptr<const Rib::LoopingRouteStatus> loopingRouteStatus_;
  Kel::Ptr<const Rib::Ip::GlobalNextHopDependencyGraph> nhdGraph_;
  Kel::Ptr<Rib::RouteConfig> ribConfig_;
  Kel::Ptr<Rib::ViaSetConfig> viaSetConfig_;
  Rib::RoutingProtocol routingProtocol_;
  Kel::Ptr<const Rib::ViaMetricStatus> ipv4DefaultVrfViaMetricStatus_;
  Kel::Ptr<const Rib::ViaMetricStatus> ipv6DefaultVrfViaMetricStatus_;
  Kel::Ptr<VrfReadyStatus> vrfReadyStatus_;
  Kel::Ptr<BfdTrackedStaticRoutesList> bfdTrackedRoutesList_;
  Kel::Ptr<const Rib::Ip::ViaConfig> ipViaConfig_;
  Kel::Ptr<const Rib::Ip::ViaConfig> auxIpViaConfig_;
  Kel::Ptr<const Rib::ViaMetricStatusByVrf> viaMetricStatusByVrf_;
  Kel::String ribString_;
  Kel::Ptr<const Rib::ViaStatusByVrf> viaStatusByVrf_;

  Rib::RibType rib_ = Rib::RibType::unicast;
  Pando::IpGenPrefix reviewBookmark_;
  double reviewQuantum_ = 0.1;
  bool reviewedOnce_ = false;
  bool initialized_ = false;
  Kel::Ptr<const Kel::Clock> clock_;
  uint64_t toggleVersion_ = UINT64_MAX;
  bool staticRouteMetric_ = true;
  uint64_t evaluations_ = 0;
  uint64_t reviewSlices_ = 0;
  // Scratch picks: evaluation must not allocate. A nested evaluation
  // (a RIB reactor re-entering, this VRF's or another's) takes a fresh one.
  // Shared by every RouteStatusSm of the one event thread: 24 KB each would
  // be most of an empty VRF's memory.
  static ViaPick scratch_[2];
  static uint32_t evaluationDepth_;
  bool reviewing_ = false;  // a review's evaluation is under way
  // The RIB hashes of route reactors being read ahead, by reactor address:
  // each later step of a reactor's readAhead finds its hash here, unless
  // another took the place meanwhile (then it is computed again).
  struct RibHashMemo {
    const void* reactor = nullptr;
    uint32_t hash = 0;
  };
  static constexpr uint32_t ribHashMemoSize = 16;
  static RibHashMemo ribHashMemo_[ribHashMemoSize];
  // A review asks the same few vias route after route, and nothing their
  // checks read changes within a slice unless a reactor runs (one of the
  // RIB's, as we write). Their facts are kept by interned via for one epoch,
  // which each slice, and each RIB write that wakes a reactor, end. Not kept
  // when the checks depend on the route (BFD tracking, an EVPN via's VTEP)
  // or are traced (level 9).
  struct ViaFactsSlot {
    const Rib::DedupViaKey* via = nullptr;
    const Rib::Via* record = nullptr;
    const Pando::IpGenAddr* nextHop = nullptr;
    uint32_t epoch = 0;  // 0: never valid
    ViaCheck check = ViaCheck::unresolved;
  };
  static constexpr uint32_t viaFactsSlots = 1024;
  static ViaFactsSlot viaFactsMemo_[viaFactsSlots];
  static uint32_t viaFactsEpoch_;
  // "SingleRouteReactor", read once: a route's reactors are of one kind.
  bool singleRouteReactor_;
  // Whether the RIB held routes of this VRF and family when we were made
  // (kept across a restart); none of ours can be stale otherwise.
  bool ribHeldOurs_;
  // What the route reactors filed with "SingleRouteReactor" on, by route
  // and preference: rare, and ordered so that a prefix's preferences are
  // found together.
  std::map<RouteKey, std::vector<Rib::ViaKey>> bfdTrackedVia_;

  Kel::NestedReactor<KelStatus> kelStatus_;
  // Reached through their routes: a table of a million reactors would cost
  // a cache miss for every route the protocol adds. In a slab of their own,
  // they need neither links nor a pointer back (24 bytes a route).
  Kel::NestedReactorSlab<KelRouteBase> kelRoute_;
  Kel::NestedReactor<KelClock> kelClock_;
  Kel::NestedReactor<KelViaMetricStatus> kelIpViaMetricStatus_;
  Kel::NestedReactor<KelViaMetricStatus> kelEvpnViaMetricStatus_;
  Kel::NestedReactor<KelNhdGraph> kelNhdGraph_;
  Kel::NestedReactor<KelLoopingRouteStatus> kelLoopingRouteStatus_;
  Kel::NestedReactor<KelBfdTrackedRoutesList> kelBfdTrackedRoutesList_;
  Kel::NestedReactors<BfdStatusKey, KelBfdRoute> kelBfdRoute_;
};

// Takes the constructor's arguments.
template <class... Args>
Kel::Ptr<RouteStatusSm> routeStatusSmFactory(Args&&... args) {
  return Kel::makePtr<RouteStatusSm>(std::forward<Args>(args)...);
}

}  // namespace Routing::Protocol
