// ViaMetricStatusSm: maps via metric changes back to the protocol routes that
// use the via, for all VRFs of one protocol.
//
// It keeps `routeByViaKey`, an index from via key to the route preferences
// (PrefixPrefVrfId) whose via types list that key, exact at every quiet
// moment: an entry exists exactly while its set is non-empty, and a via key
// under two via types of one preference gives one element. When the RIB
// changes a via's metric (any VRF, transport or protocol: the look-up is by
// via key alone; a table's generation bump counts as a change of each of its
// vias) every route found through the index gets routeChangedAt =
// Kel::System::currentTime(); so does a route when one of its preferences
// first lists a via key. A via metric table that goes (with its protocol,
// transport or VRF) stamps the users of every via it held: none of them is
// resolved any more. Route-side removals stamp nothing. Nothing else is
// written. A
// stamp equal to the route's present value (a clock that has not moved since)
// notifies nobody.
//
// Two reactor trees mirror the inputs: the RIB's via metrics (by VRF, then
// transport, then protocol selector) and the route status directory (status,
// route, preference, via type). The route side is one small reactor per
// route, preference and via type: a back pointer and the nested collection
// (a route's reactor finds its parent from its own address, in the status
// reactor's slab, and leaves when its route leaves the status).
//
// Costs: a via key change under a preference is O(via types) plus one index
// update; a metric change is O(routes using the via), two hash look-ups and
// a stamp each. The sweep reads ahead: the routes, their reactors and what
// those will read. Removing a route, preference or status withdraws each of
// its index elements exactly once.
//
// Paced sweeps (toggle "PacedViaMetricSweep", off by default): off, a metric
// change stamps all its routes in one go (a via of a million routes holds the
// loop some 0.4 s with route computation re-evaluating each). On, a change of
// a via used more than `sweepThreshold` times is swept in slices of
// `sweepQuantum` seconds by a clock reactor, like a route review: from a
// bookmark (an index element, resumed with seek), pending sweeps served in
// the order their vias changed; a via that changes again while its sweep is
// pending restarts that sweep from the beginning. Such a sweep stamps each
// route that stays present exactly once: a route whose routeChangedAt already
// lies between the change and now (reached through another preference, or
// stamped by anything else since) has been evaluated after the change and is
// left alone. Smaller sweeps run at once, as with the toggle off.
//
// Deferred filing stamps (toggle "DeferredViaFilingStamp", off by default):
// off, a route is stamped the moment one of its preferences first lists a
// via key, so a route loaded with n vias is evaluated once per via and once
// more for the protocol's own stamp. On, filing marks the route instead and
// the clock reactor stamps the marked routes on a later turn, in slices of
// `sweepQuantum` like a sweep, before any pending sweep. A route whose
// routeChangedAt is written after the mark (by its protocol, by a sweep) has
// been evaluated since, as the immediate stamp would have had it, and is
// left alone. The mark is a flag of the route reactor.
//
// One thread. Stamping notifies route computation synchronously; it must not
// change the protocol route status while a metric change is being handed
// out (route computation only writes the RIB).
#pragma once

#include <cstdint>
#include <list>
#include <optional>
#include <unordered_map>
#include <vector>

#include "IpRib/ProtocolContainerKey.h"
#include "IpRib/ProtocolRouteStatus.h"
#include "Kel/Clock.h"
#include "Kel/Collections.h"
#include "Kel/Entity.h"
#include "Kel/NestedReactors.h"
#include "Kel/Ptr.h"
#include "Kel/System.h"
#include "platform/Routing/Rib/Transport.h"
#include "platform/Routing/Rib/ViaKey.h"
#include "platform/Routing/Rib/ViaMetricStatus.h"
#include "platform/Vrf/VrfId.h"

namespace Routing::Protocol {

class ViaMetricStatusSm final : public Kel::NotifieeBase {
 public:
  using RouteByViaKeyMap = Kel::HashedPtrMap<Rib::ViaKey, RouteByViaKey, &RouteByViaKey::viaKey>;

  class KelViaMetricStatusByVrf;
  class KelVmsByTransport;
  class KelRouteStatusDir;
  class KelRouteStatus;
  class KelRoute;
  class KelClock;

  // Builds both reactor trees (each via metric table sweeps itself once),
  // then handleInitialized fills the index from every status present.
  ViaMetricStatusSm(const Kel::Ptr<const Rib::ViaMetricStatusByVrf>& viaMetricStatusByVrf,
                    const Kel::Ptr<RouteStatusDir>& routeStatusDir);
  ~ViaMetricStatusSm() override;
  static Kel::Ptr<ViaMetricStatusSm> ViaMetricStatusSmIs(
      const Kel::Ptr<const Rib::ViaMetricStatusByVrf>& viaMetricStatusByVrf,
      const Kel::Ptr<RouteStatusDir>& routeStatusDir);

  const char* typeName() const { return "Routing::Protocol::ViaMetricStatusSm"; }
  const Kel::Ptr<const Rib::ViaMetricStatusByVrf>& viaMetricStatusByVrf() const {
    return viaMetricStatusByVrf_;
  }
  const Kel::Ptr<RouteStatusDir>& routeStatusDir() const { return routeStatusDir_; }
  bool initialized() const { return initialized_; }

  // ------------------------------------------------------------ the index
  const RouteByViaKeyMap& routeByViaKey() const { return routeByViaKey_; }
  // Null when no route preference uses `viaKey`.
  Kel::Ptr<RouteByViaKey> routeByViaKey(const Rib::ViaKey& viaKey) const;
  uint32_t routeByViaKeySize() const { return routeByViaKey_.size(); }
  // Returns the entry for `viaKey`, creating an empty one when absent.
  Kel::Ptr<RouteByViaKey> routeByViaKeyIs(const Rib::ViaKey& viaKey);
  void routeByViaKeyDel(const Rib::ViaKey& viaKey);
  void routeByViaKeyDelAll();

  // ------------------------------------------------------------ handlers
  void handleInitialized();
  // Files (forceDel false) or withdraws (true) every via key that the
  // reactors of status `key` track; nothing when there is no such reactor.
  void handleRouteStatus(const RouteStatusKey& key, bool forceDel);
  // Files or withdraws routePref's element under `viaKey`. With
  // viaKeyExists false, whether routePref still lists the key is looked up.
  // With deferred stamps, a filing called from outside looks for the route's
  // reactor among all its status's: O(routes of the status).
  void handleRouteViaKey(const Kel::Ptr<Status>& rs, const Kel::Ptr<Route>& route,
                         const Kel::Ptr<RoutePref>& routePref, const Rib::ViaKey& viaKey,
                         bool forceDel, bool viaKeyExists);
  // Stamps every route that uses `viaKey`; the other arguments name the
  // table the change came from and serve the trace only.
  void handleViaMetric(Vrf::VrfIdMap::VrfId vrfId, Rib::Transport transport, uint32_t proto,
                       const Rib::ViaKey& viaKey);

  // ------------------------------------------------------------ paced sweeps
  double sweepQuantum() const { return sweepQuantum_; }
  void sweepQuantumIs(double q) { sweepQuantum_ = q; }
  // A via with more index elements than this is swept in slices (toggle on).
  uint32_t sweepThreshold() const { return sweepThreshold_; }
  void sweepThresholdIs(uint32_t n) { sweepThreshold_ = n; }
  const Kel::Ptr<const Kel::Clock>& clock() const { return clock_; }
  // Vias whose sweep is pending.
  uint32_t sweepsPending() const { return uint32_t(sweeps_.size()); }
  bool sweepPending(const Rib::ViaKey& viaKey) const { return sweepOf_.count(viaKey) != 0; }
  // Runs one slice of the pending sweeps (the clock reactor's wake-up).
  void doSweep();
  uint64_t sweepSlices() const { return sweepSlices_; }

  // ------------------------------------------------------------ deferred stamps
  // Routes marked by a filing and not yet served (toggle on).
  uint32_t filingStampsPending() const { return uint32_t(filed_.size() - filedServed_); }
  // Serves the marked routes until `deadline` passes; whether it served them all.
  bool doFilingStamps(Kel::Deadline& deadline);

  // ------------------------------------------------------------ nested reactors
  // Keep the reactor of an element whose entity is unchanged, else replace it.
  void vmsByTransportIs(Vrf::VrfIdMap::VrfId vrfId);
  // Stamps the users of every via of the VRF's tables, then drops the reactor.
  void vmsByTransportDel(Vrf::VrfIdMap::VrfId vrfId);
  // A new or replaced status reactor then files the status's via keys.
  void routeStatusIs(const RouteStatusKey& key);
  void routeStatusDel(const RouteStatusKey& key);

 private:
  using RouteSet = Kel::HashedSet<PrefixPrefVrfId>;
  // One via's paced sweep.
  struct Sweep {
    Rib::ViaKey viaKey;
    double since;                             // when the via last changed
    std::optional<PrefixPrefVrfId> bookmark;  // where the next slice resumes
    uint32_t restarts = 0;                    // tells a slice its sweep started over
  };
  // The toggles "PacedViaMetricSweep" and "DeferredViaFilingStamp", read
  // again only when the toggles change.
  void readToggles();
  bool pacedSweep() {
    readToggles();
    return pacedSweep_;
  }
  bool deferredStamp() {
    readToggles();
    return deferredStamp_;
  }
  // handleRouteViaKey with the route's reactor when the caller has it (null:
  // looked up when a stamp is deferred).
  void fileRouteViaKey(const Kel::Ptr<Status>& rs, const Kel::Ptr<Route>& route,
                       const Kel::Ptr<RoutePref>& routePref, const Rib::ViaKey& viaKey,
                       bool forceDel, bool viaKeyExists, KelRoute* watcher);
  // Stamps `route` now, or marks it through its reactor for a later turn.
  void stampFiled(const Status& rs, Route& route, KelRoute* watcher);
  void sweepIs(const Rib::ViaKey& viaKey);
  // One slice of `sweep` until the quantum from `start` is used; whether it
  // finished the sweep.
  bool sweepSlice(Sweep& sweep, const RouteByViaKey& rbvk, Kel::Deadline& deadline);
  // The route `e` names, with the sweep's traces; null when gone. `status`
  // is the caller's, kept from the element before (statuses stay while
  // routes are stamped), looked up again when `e` is of another.
  Kel::Ptr<Route> sweptRoute(const PrefixPrefVrfId& e, Kel::Ptr<const Status>& status) const;
  // Calls visit(e) for the elements from `from` on, reading ahead the routes
  // and what stamping them will read, until visit says stop; returns the
  // element after the last one visited.
  template <class Visit>
  RouteSet::const_iterator visitAhead(const RouteSet& routes, RouteSet::const_iterator from,
                                      Visit&& visit);

  Kel::Ptr<const Rib::ViaMetricStatusByVrf> viaMetricStatusByVrf_;
  Kel::Ptr<RouteStatusDir> routeStatusDir_;
  RouteByViaKeyMap routeByViaKey_;
  bool initialized_ = false;
  double sweepQuantum_ = 0.1;
  uint32_t sweepThreshold_ = 4096;
  uint64_t toggleVersion_ = UINT64_MAX;
  bool pacedSweep_ = false;
  bool deferredStamp_ = false;
  Kel::Ptr<const Kel::Clock> clock_;
  std::list<Sweep> sweeps_;  // in the order their vias changed
  std::unordered_map<Rib::ViaKey, std::list<Sweep>::iterator, Rib::ViaKeyHash> sweepOf_;
  uint64_t sweepSlices_ = 0;
  // A marked route reactor, and the status reactor whose slab holds it: a
  // reactor that left with its status must not outlive the slab.
  struct FiledMark {
    Kel::Ptr<KelRouteStatus> status;
    Kel::Ptr<KelRoute> route;  // released first
  };
  // Marked route reactors in the order of their marks; the first
  // `filedServed_` are done. Emptied (and its memory given back) once served.
  std::vector<FiledMark> filed_;
  size_t filedServed_ = 0;

  Kel::NestedReactor<KelViaMetricStatusByVrf> kelViaMetricStatusByVrf_;
  Kel::NestedReactors<Vrf::VrfIdMap::VrfId, KelVmsByTransport> vmsByTransport_;
  Kel::NestedReactor<KelRouteStatusDir> kelRouteStatusDir_;
  Kel::NestedReactors<RouteStatusKey, KelRouteStatus> routeStatus_;
  Kel::NestedReactor<KelClock> kelClock_;
};

Kel::Ptr<ViaMetricStatusSm> viaMetricStatusSmFactory(
    const Kel::Ptr<const Rib::ViaMetricStatusByVrf>& viaMetricStatusByVrf,
    const Kel::Ptr<RouteStatusDir>& routeStatusDir);

}  // namespace Routing::Protocol
