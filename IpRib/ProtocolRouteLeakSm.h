// The reactors of route leaking between VRFs (namespace
// Routing::Protocol::Leak), over the entities of ProtocolRouteLeak.h:
//
//   RootSm     the top: per VRF and family (createVrf/deleteVrf, called by
//              the agent) one MuxSm and one DemuxSm, and the one WiringSm.
//   MuxSm      one source VRF: sorts the routes of its Routing::RouteList
//              that name a leak target into one LeakRouteList per
//              destination VRF, in its output LeakRouteListSet.
//   WiringSm   puts every list into the LeakRouteListPtrSet of its
//              destination, whatever its source.
//   DemuxSm    one destination VRF: writes, for every key offered by its
//              input lists, the LeakRoute of the lowest source VRF into the
//              VRF's LeakRouteConfig, the subsystem's output.
//
// Per-key events are handled at once: a route's change costs a few look-ups
// in the mux, one per input list in the demux (about 1.5 us for a cold
// route of a million, its move included). Bulk work (a mux's first pass, a
// demux's re-decision of every key when a list goes) runs on the framework
// clock in slices of `reviewQuantum` (0.1 s) from a bookmark, so the loop is
// never held much longer than that; a slice handles at least one element.
// A mux sizes its directory for its whole route list before a full pass, so
// that no slice pays for a large table's growth. Passes and single changes
// read ahead the slots they will probe (Kel/Prefetch.h): a first pass runs at
// about 2 million routes a second. Memory: a watcher per source route (24
// bytes, in the mux's slab) and, per leaked route, its LeakRoute (40), its
// directory entry and index slot (8 plus 9 to 18) and its list and config
// slots (8 bytes each, 9 to 18 with the free ones).
// Programming faults (a reactor tree out of step with its entities) end the
// process through KEL_ASSERT; a route whose target VRF is unknown is simply
// not leaked until an event for it (or a review) finds the name mapped: a
// change of the name-to-id map alone does not trigger a review.
// One thread; handlers may run from any notification of the inputs.
#pragma once

#include <cstdint>
#include <utility>

#include "IpRib/ProtocolRouteLeak.h"
#include "Kel/Clock.h"
#include "Kel/Collections.h"
#include "Kel/NestedReactors.h"
#include "platform/Routing/Route/Route.h"
#include "platform/Vrf/NameToIdMap.h"

namespace Routing::Protocol::Leak {

// No VRF: a route that leaks nowhere.
inline constexpr Vrf::VrfIdMap::VrfId vrfIdNull = Vrf::VrfIdMap::invalidVrfId;

// ------------------------------------------------------------------ mux

class MuxSm final : public Kel::NotifieeBase {
 public:
  MuxSm(const VrfIdAf& vrfIdAf, const Kel::Ptr<const Routing::RouteList>& routeConfig,
        const Kel::Ptr<const Vrf::VrfIdMap::NameToIdMap>& vrfNameToIdMap);
  ~MuxSm() override;
  template <class... Args>
  static Kel::Ptr<MuxSm> MuxSmIs(Args&&... args) {
    return Kel::makePtr<MuxSm>(std::forward<Args>(args)...);
  }

  const VrfIdAf& vrfIdAf() const { return vrfIdAf_; }
  const Kel::Ptr<const Routing::RouteList>& routeConfig() const { return routeConfig_; }
  const Kel::Ptr<const Vrf::VrfIdMap::NameToIdMap>& vrfNameToIdMap() const {
    return vrfNameToIdMap_;
  }
  const Kel::Ptr<const Kel::Clock>& clock() const { return clock_; }
  bool initialized() const { return initialized_; }
  const Kel::Ptr<LeakRouteDir>& leakRouteDir() const { return leakRouteDir_; }
  const Kel::Ptr<LeakRouteListSet>& outputLeakRouteListSet() const {
    return outputLeakRouteListSet_;
  }
  // The destination a leaking route is filed under now; the default
  // (no VRF) when none. Kept beside the route's entry in leakRouteDir.
  VrfIdAf oldLeakTo(const Routing::RouteKey& k) const;
  const Routing::RouteKey& bookmark() const { return bookmark_; }
  bool bookmarkValid() const { return bookmarkValid_; }
  double reviewQuantum() const { return reviewQuantum_; }
  bool reviewScheduled() const { return reviewScheduled_; }
  // Reviews that paused before the end (for tests and benchmarks).
  uint64_t reviewPauses() const { return reviewPauses_; }

  // ------------------------------------------------------------ handlers
  void handleInitialized();
  // The whole route collection: schedules a full review.
  void handleRoute();
  // Classifies one key: leaks it, moves it, or withdraws it.
  void handleRoute(const Routing::RouteKey& k);
  void handleRouteDelete(const Routing::RouteKey& k);
  // One run of the review.
  void doReview();

  // ------------------------------------------------------------ internals
  void scheduleReview();
  // The output list toward `dst`, made when absent if `create`; null for vrfIdNull.
  Kel::Ptr<LeakRouteList> findLrl(Vrf::VrfIdMap::VrfId dst, bool create);
  // Deletes the list toward `dst` if it is empty.
  void maybeCleanupLrl(Vrf::VrfIdMap::VrfId dst);

  // `k` must have its entry in leakRouteDir.
  void oldLeakToIs(const Routing::RouteKey& k, const VrfIdAf& v);
  void oldLeakToDel(const Routing::RouteKey& k);
  void bookmarkIs(const Routing::RouteKey& k) { bookmark_ = k; }
  void bookmarkValidIs(bool v) { bookmarkValid_ = v; }
  void reviewQuantumIs(double q) { reviewQuantum_ = q; }
  void reviewScheduledIs(bool v) { reviewScheduled_ = v; }
  void initializedIs(bool v) { initialized_ = v; }
  void leakRouteDirIs() { leakRouteDir_ = leakRouteDirFactory(); }
  void outputLeakRouteListSetIs(const VrfIdAf& v) {
    outputLeakRouteListSet_ = leakRouteListSetFactory(v);
  }

  class KelRouteConfig;
  class KelRoute;
  class KelClock;

 private:
  class ReadAhead;
  // handleRoute(k) for `route`, the route list's route under `k` (null when none).
  void classify(const Routing::RouteKey& k, const Routing::Route* route);
  // classify for a filed route that changed, reading ahead what it will touch.
  void handleRouteOf(const Routing::Route& route);
  // Look-ahead for the key of leak hash `h` in the list toward `dst`.
  void readAheadList(Vrf::VrfIdMap::VrfId dst, uint32_t h) const;
  void routeIs(const Routing::Route* route);
  void routeDel(KelRoute* reactor);

  VrfIdAf vrfIdAf_;
  Kel::Ptr<const Routing::RouteList> routeConfig_;
  Kel::Ptr<const Vrf::VrfIdMap::NameToIdMap> vrfNameToIdMap_;
  Kel::Ptr<const Kel::Clock> clock_;
  Kel::Ptr<LeakRouteDir> leakRouteDir_;
  Kel::Ptr<LeakRouteListSet> outputLeakRouteListSet_;
  Routing::RouteKey bookmark_;
  double reviewQuantum_ = 0.1;
  uint64_t reviewPauses_ = 0;
  bool bookmarkValid_ = false;
  bool reviewScheduled_ = false;
  bool initialized_ = false;

  Kel::NestedReactor<KelRouteConfig> kelRouteConfig_;
  // Reached through their routes: a keyed table of a million reactors
  // would cost a cache miss for every route the agent adds. In a slab, a
  // watcher costs 24 bytes: no links, no pointer back to the mux.
  Kel::NestedReactorSlab<KelRoute> kelRoute_;
  Kel::NestedReactor<KelClock> kelClock_;
};

Kel::Ptr<MuxSm> muxSmFactory(const VrfIdAf& vrfIdAf,
                             const Kel::Ptr<const Routing::RouteList>& routeConfig,
                             const Kel::Ptr<const Vrf::VrfIdMap::NameToIdMap>& vrfNameToIdMap);

// ------------------------------------------------------------------ demux

class DemuxSm final : public Kel::NotifieeBase {
 public:
  DemuxSm(const VrfIdAf& vrfIdAf, const Kel::Ptr<const LeakRouteListPtrSet>& input,
          const Kel::Ptr<LeakRouteConfig>& leakRouteConfig);
  ~DemuxSm() override;
  template <class... Args>
  static Kel::Ptr<DemuxSm> DemuxSmIs(Args&&... args) {
    return Kel::makePtr<DemuxSm>(std::forward<Args>(args)...);
  }

  const VrfIdAf& vrfIdAf() const { return vrfIdAf_; }
  const Kel::Ptr<const LeakRouteListPtrSet>& inputLeakRouteListSet() const {
    return inputLeakRouteListSet_;
  }
  const Kel::Ptr<LeakRouteConfig>& leakRouteConfig() const { return leakRouteConfig_; }
  const Kel::Ptr<const Kel::Clock>& clock() const { return clock_; }
  bool initialized() const { return initialized_; }
  bool backlogHas(const Routing::RouteKey& k) const { return backlog_.find(k) != nullptr; }
  uint32_t backlogs() const { return backlog_.size(); }
  const Routing::RouteKey& bookmark() const { return bookmark_; }
  bool bookmarkValid() const { return bookmarkValid_; }
  double reviewQuantum() const { return reviewQuantum_; }
  uint64_t reviewPauses() const { return reviewPauses_; }

  // ------------------------------------------------------------ handlers
  void handleInitialized();
  // A list came or went under `key`: its keys (or, once it is gone, every
  // key of the output) are decided again in a review.
  void handleLeakRouteList(const VrfPairAf& key);
  // Decides one key: the lowest source VRF that offers it wins.
  void handleLeakRoute(const Routing::RouteKey& k);
  // One run of the review of the backlog.
  void doReview();

  // ------------------------------------------------------------ internals
  void scheduleReview();
  void backlogIs(const Routing::RouteKey& k) { backlog_.insert(Routing::RouteKey(k)); }
  void backlogDel(const Routing::RouteKey& k) { backlog_.erase(k); }
  void bookmarkIs(const Routing::RouteKey& k) { bookmark_ = k; }
  void bookmarkValidIs(bool v) { bookmarkValid_ = v; }
  void reviewQuantumIs(double q) { reviewQuantum_ = q; }
  void initializedIs(bool v) { initialized_ = v; }
  // Watches one input list.
  void leakRouteListIs(const Kel::Ptr<const LeakRouteList>& list);
  void leakRouteListDel(const VrfPairAf& key);

  class KelInputLeakRouteListSet;
  class KelLeakRouteList;
  class KelClock;

 private:
  VrfIdAf vrfIdAf_;
  Kel::Ptr<const LeakRouteListPtrSet> inputLeakRouteListSet_;
  Kel::Ptr<LeakRouteConfig> leakRouteConfig_;
  Kel::Ptr<const Kel::Clock> clock_;
  Kel::HashedSet<Routing::RouteKey> backlog_;
  Routing::RouteKey bookmark_;
  double reviewQuantum_ = 0.1;
  uint64_t reviewPauses_ = 0;
  bool bookmarkValid_ = false;
  bool initialized_ = false;

  Kel::NestedReactor<KelInputLeakRouteListSet> kelInputLeakRouteListSet_;
  Kel::NestedReactors<VrfPairAf, KelLeakRouteList> kelLeakRouteList_;
  Kel::NestedReactor<KelClock> kelClock_;
};

Kel::Ptr<DemuxSm> demuxSmFactory(const VrfIdAf& vrfIdAf,
                                 const Kel::Ptr<const LeakRouteListPtrSet>& input,
                                 const Kel::Ptr<LeakRouteConfig>& leakRouteConfig);

// ------------------------------------------------------------------ wiring

class WiringSm final : public Kel::NotifieeBase {
 public:
  WiringSm(const Kel::Ptr<const LeakRouteListSetDir>& muxSmSetDir,
           const Kel::Ptr<LeakRouteListPtrSetDir>& demuxSmSetDir,
           const Kel::Ptr<const Vrf::VrfIdMap::NameToIdMap>& vrfNameToIdMap);
  ~WiringSm() override;

  const Kel::Ptr<const LeakRouteListSetDir>& muxSmSetDir() const { return muxSmSetDir_; }
  const Kel::Ptr<LeakRouteListPtrSetDir>& demuxSmSetDir() const { return demuxSmSetDir_; }
  const Kel::Ptr<const Vrf::VrfIdMap::NameToIdMap>& vrfNameToIdMap() const {
    return vrfNameToIdMap_;
  }

  // A mux's output set was registered or withdrawn.
  void handleLrlSet(const VrfIdAf& muxSmKey);
  // A demux's input set was registered or withdrawn.
  void handleLrlpSet(const VrfIdAf& demuxSmKey);

  class KelMuxSmSetDir;
  class KelDemuxSmSetDir;
  class KelLrlSet;

 private:
  Kel::Ptr<const LeakRouteListSetDir> muxSmSetDir_;
  Kel::Ptr<LeakRouteListPtrSetDir> demuxSmSetDir_;
  Kel::Ptr<const Vrf::VrfIdMap::NameToIdMap> vrfNameToIdMap_;

  Kel::NestedReactor<KelMuxSmSetDir> kelMuxSmSetDir_;
  Kel::NestedReactor<KelDemuxSmSetDir> kelDemuxSmSetDir_;
  Kel::NestedReactors<VrfIdAf, KelLrlSet> lrlSet_;
};

Kel::Ptr<WiringSm> wiringSmFactory(
    const Kel::Ptr<const LeakRouteListSetDir>& muxSmSetDir,
    const Kel::Ptr<LeakRouteListPtrSetDir>& demuxSmSetDir,
    const Kel::Ptr<const Vrf::VrfIdMap::NameToIdMap>& vrfNameToIdMap);

// ------------------------------------------------------------------ root

class RootSm final : public Kel::NotifieeBase {
 public:
  explicit RootSm(const Kel::Ptr<const Vrf::VrfIdMap::NameToIdMap>& vrfNameToIdMap);
  ~RootSm() override;
  static Kel::Ptr<RootSm> RootSmIs(const Kel::Ptr<const Vrf::VrfIdMap::NameToIdMap>& map) {
    return Kel::makePtr<RootSm>(map);
  }

  const Kel::Ptr<const Vrf::VrfIdMap::NameToIdMap>& vrfNameToIdMap() const {
    return vrfNameToIdMap_;
  }
  bool initialized() const { return initialized_; }
  Kel::Ptr<MuxSm> muxSm(const VrfIdAf& k) const;
  Kel::Ptr<DemuxSm> demuxSm(const VrfIdAf& k) const;
  Kel::Ptr<LeakRouteListPtrSet> demuxSmSet(const VrfIdAf& k) const;
  uint32_t muxSms() const { return muxSm_.size(); }
  const Kel::Ptr<LeakRouteListSetDir>& muxSmSetDir() const { return muxSmSetDir_; }
  const Kel::Ptr<LeakRouteListPtrSetDir>& demuxSmSetDir() const { return demuxSmSetDir_; }
  const Kel::Ptr<WiringSm>& wiringSm() const { return wiringSm_; }

  void handleInitialized();
  // Builds the mux and demux of one VRF and family: its routes (those that
  // name a target leak there) and its output for routes leaked into it,
  // which the caller owns. Once per key.
  void createVrf(const VrfIdAf& vrfIdAf, const Kel::Ptr<const Routing::RouteList>& routeList,
                 const Kel::Ptr<LeakRouteConfig>& leakRouteConfig);
  // Tears them down and empties the VRF's output; an unknown key is harmless.
  void deleteVrf(const VrfIdAf& vrfIdAf);

 private:
  using MuxSmMap = Kel::HashedPtrMap<VrfIdAf, MuxSm, &MuxSm::vrfIdAf>;
  using DemuxSmMap = Kel::HashedPtrMap<VrfIdAf, DemuxSm, &DemuxSm::vrfIdAf>;
  using DemuxSmSetMap =
      Kel::HashedPtrMap<VrfIdAf, LeakRouteListPtrSet, &LeakRouteListPtrSet::vrfAf>;

  Kel::Ptr<const Vrf::VrfIdMap::NameToIdMap> vrfNameToIdMap_;
  bool initialized_ = false;
  MuxSmMap muxSm_;
  DemuxSmMap demuxSm_;
  DemuxSmSetMap demuxSmSet_;
  Kel::Ptr<LeakRouteListSetDir> muxSmSetDir_;
  Kel::Ptr<LeakRouteListPtrSetDir> demuxSmSetDir_;
  Kel::Ptr<WiringSm> wiringSm_;
};

Kel::Ptr<RootSm> rootSmFactory(const Kel::Ptr<const Vrf::VrfIdMap::NameToIdMap>& vrfNameToIdMap);

}  // namespace Routing::Protocol::Leak
