// RouteStatusSm against the reference model of route selection, over random
// sequences of protocol writes and RIB input changes.
//
//   VRF "red" (id 3); 20 prefixes nested around the next hops of vias 1 to 14
//   (192.168.0.<i>, 10.1.1.<i>, 100.64.0.<i>, or the like in IPv6, where vias
//   11 and 12 share the link-local next hop fe80::1 on Ethernet11 and
//   Ethernet12); via 13 belongs to VRF 7, via 14 to the other family;
//   preferences 1, 2, 50, 200; every via type; protocol metrics 0, 1, 5, 10.
//   Vias 100 to 700 (next hops 198.18.<i/256>.<i%256>, 2001:db8:ff::<i>) come
//   in bulk to one preference: 601 of them, one more than a via set holds,
//   then 600, then none. The RIB starts with routes of earlier runs: some of
//   this VRF and family, some of the other family and of VRF 7, which are not
//   this reactor's to clean up.
//
// After (almost) every event the loop runs until quiet, and then the whole RIB
// of the VRF must be what the model says, the review must be complete, no via
// set may outlive its routes, and the BFD tracking list must hold exactly what
// the protocol's marks ask for (also when another writer takes an entry
// out), each entry in the state its session gives it (a session nobody runs
// leaves it down on the interface of its via). Inputs that RouteStatusSm does
// not watch per prefix are followed by what the rest of the system does about
// them: the via tracker (ViaMetricStatusSm, running beside it) stamps the
// routes that use a via whose metric changed; for other changes of a via the
// test stamps its users, or the RIB bumps a table's generation, which makes
// for a full review paced on the clock. Each run goes with the tracker's
// sweeps paced ("PacedViaMetricSweep" on, every sweep in slices) and unpaced,
// with its filing stamps deferred to the clock ("DeferredViaFilingStamp")
// or not, and with route computation's reactors nested per preference and
// via type, or one per route ("SingleRouteReactor").
//
// IPRIB_MODEL_SEED=<n> replays one seed; IPRIB_MODEL_EVENTS=<n> runs n events
// on one seed, checking every few events (a scale run).
#include <gtest/gtest.h>

#include <cstdlib>
#include <deque>
#include <iostream>
#include <map>
#include <optional>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "IpRib/ProtocolViaMetricStatusSm.h"
#include "tests/IpRib/RouteSelectionModel.h"
#include "tests/IpRib/RouteStatusSmFixture.h"

namespace Routing::Protocol::Test {
namespace {

using Pando::AddressFamily;
using Pando::IpGenPrefix;
using V = ViaTypeEnum;

constexpr uint32_t viaCount = 14;
constexpr uint32_t bulkFirst = 100;
constexpr uint32_t bulkCount = Rib::Brisk::ViaSet::maxVias + 1;
constexpr Vrf::VrfIdMap::VrfId otherVrfId = 7;
constexpr RoutePreference preferences[] = {1, 2, 50, 200};
constexpr ViaTypeEnum viaTypes[] = {V::viaInvalid, V::viaIntfNextHop, V::viaNextHopOnly,
                                    V::viaIntfOnly, V::viaDefault};
constexpr RouteMetric protocolMetrics[] = {0, 1, 5, 10};
constexpr double defaultQuantum = 0.1;

std::vector<IpGenPrefix> universe(AddressFamily af) {
  static const char* const v4[] = {
      "0.0.0.0/0",         "10.0.0.0/8",     "10.1.0.0/16",     "10.1.1.0/24",    "10.1.1.8/29",
      "10.2.0.0/16",       "172.16.0.0/12",  "172.16.1.0/24",   "192.168.0.0/16", "192.168.0.0/24",
      "192.168.0.0/29",    "192.168.0.4/30", "192.168.0.3/32",  "192.168.1.0/24", "198.51.100.0/24",
      "198.51.100.128/25", "203.0.113.0/24", "203.0.113.64/26", "100.64.1.0/24",  "100.65.0.0/16"};
  static const char* const v6[] = {"::/0",
                                   "2001:db8:a::/48",
                                   "2001:db8:a:1::/64",
                                   "2001:db8:a:1:1::/80",
                                   "2001:db8:a:1:1::8/125",
                                   "2001:db8:b::/48",
                                   "2001:db8:c::/48",
                                   "2001:db8:c:1::/64",
                                   "2001:db8::/64",
                                   "2001:db8::/120",
                                   "2001:db8::/125",
                                   "2001:db8::4/126",
                                   "2001:db8::3/128",
                                   "2001:db8:0:1::/64",
                                   "2001:db8:d::/48",
                                   "2001:db8:d:8000::/49",
                                   "2001:db8:e::/48",
                                   "2001:db8:e::/50",
                                   "2001:db8:f::/48",
                                   "2001:db8:10::/48"};
  std::vector<IpGenPrefix> out;
  for (const char* p : af == AddressFamily::ipv4 ? v4 : v6) out.emplace_back(p);
  return out;
}

// Vias 1 to 6 lead into one corner of the prefixes, 7 to 9 into another, 10
// to 13 where only the default route covers them (or to a link-local peer in
// IPv6), 14 to the other family; the bulk vias into a corner of their own.
Pando::IpGenAddr nextHopOf(AddressFamily af, uint32_t i) {
  const std::string n = std::to_string(i);
  const bool v4 = (af == AddressFamily::ipv4) != (i == 14);
  if (i >= bulkFirst) {
    return v4 ? Pando::IpGenAddr::fromV4(0xc6120000u + i)
              : Pando::IpGenAddr(AddressFamily::ipv6, 0x20010db800ff0000ull, i);
  }
  if (v4) return Pando::IpGenAddr((i <= 6 ? "192.168.0." : i <= 9 ? "10.1.1." : "100.64.0.") + n);
  if (i == 11 || i == 12) return Pando::IpGenAddr("fe80::1");
  return Pando::IpGenAddr((i <= 6   ? "2001:db8::"
                           : i <= 9 ? "2001:db8:a:1:1::"
                                    : "2001:db8:64::") +
                          n);
}

std::optional<uint64_t> envNumber(const char* name) {
  const char* text = std::getenv(name);
  if (text == nullptr || *text == '\0') return std::nullopt;
  return std::strtoull(text, nullptr, 10);
}

std::string describe(const std::optional<ModelRoute>& r) {
  if (!r) return "absent";
  std::ostringstream os;
  os << *r;
  return os.str();
}

// One seed's world and its random walk.
class RandomRun {
 public:
  RandomRun(AddressFamily af, bool pacedSweep, bool deferredStamp, bool singleReactor,
            uint64_t seed)
      : w_(af),
        rng_(seed),
        prefixes_(universe(af)),
        frozen_(prefixes_.size()),
        bulkVias_(deferredStamp) {
    Flipset::toggleStateIs("PacedViaMetricSweep", pacedSweep);
    Flipset::toggleStateIs("DeferredViaFilingStamp", deferredStamp);
    Flipset::toggleStateIs("SingleRouteReactor", singleReactor);
    dir_->statusIs(w_.status);
    // Each abandoned evaluation of the bulk route says so at level 0.
    trace().textLevelIs(0, false);
  }
  ~RandomRun() { trace().textLevelIs(0, true); }

  // Runs `events` events, checking at a quiet moment after every
  // `checkEvery`-th. Stops at the first mismatch, which it reports.
  void run(uint64_t events, uint64_t checkEvery) {
    setUp();
    for (uint64_t n = 1; n <= events && !failed_; ++n) {
      w_.time.time().advance(0.001);
      std::ostringstream os;
      os << "#" << n << " ";
      const std::vector<bool> tracked = trackedVias();
      event(os);
      followTrackingEntries(os, tracked);
      remember(os.str());
      noteReadiness();
      if (pick(100) < 12) {
        // Leave the loop mid-way: the next event lands between review slices.
        Kel::ActivityManager::instance().runOnce();
        continue;
      }
      w_.runUntilQuiet();
      if (n % checkEvery == 0) check(n);
    }
  }

  // Expectations checked, by kind, and routes with several vias or none, or
  // with as many as a via set holds, or with one more over a RIB route kept.
  struct Coverage {
    uint64_t absent = 0, notReady = 0, present = 0, multiVia = 0, withoutVia = 0;
    uint64_t atLimit = 0, overLimit = 0;
    uint64_t sweepSlices = 0;
  };
  bool failed() const { return failed_; }
  const Coverage& coverage() const {
    coverage_.sweepSlices = vms_ ? vms_->sweepSlices() : 0;
    return coverage_;
  }

 private:
  // ------------------------------------------------------------ the world

  static Kel::TraceFacility& trace() {
    return *Kel::TraceRegistry::instance().facility("IpRib::RouteStatusSm");
  }
  uint64_t pick(uint64_t n) { return rng_() % n; }
  IpGenPrefix somePrefix() { return prefixes_[pick(prefixes_.size())]; }
  uint32_t someVia() { return 1 + uint32_t(pick(viaCount)); }
  bool linkLocal(uint32_t i) const { return nextHopOf(i).isLinkLocal(); }
  Pando::IpGenAddr nextHopOf(uint32_t i) const { return Test::nextHopOf(w_.af, i); }
  Pando::IntfId intfOf(uint32_t i) const { return Pando::IntfId("Ethernet" + std::to_string(i)); }

  // Via 13 belongs to another VRF, via 14 to the other family; the rest (bulk
  // vias included) are the fixture's.
  Rib::ViaKey key(uint32_t i) const {
    if (i == 13) return Rib::ViaKey(w_.via(i).kind(), otherVrfId, testSelector, i);
    if (i == 14) return Rib::ViaKey(3 - w_.via(i).kind(), testVrfId, testSelector, i);
    return w_.via(i);
  }

  void recordIs(uint32_t i) {
    Rib::Ip::ViaConfig& records = i == 14 ? *w_.auxViaConfig : *w_.viaConfig;
    const bool isLabelled = i <= viaCount && labelled_[i];
    records.viaIs(key(i),
                  Rib::Via(nextHopOf(i), intfOf(i), isLabelled ? 1000 + i : Rib::Via::noLabel));
    w_.graph->viaNextHopIs(key(i), nextHopOf(i));
  }

  void metricIs(uint32_t i, const Rib::ViaMetric& m) {
    w_.metricTree->viaMetricStatusIs(key(i))->viaMetricIs(key(i), m);
  }

  SelectionInputs inputs() const {
    return SelectionInputs{*w_.status,
                           *w_.metricTree,
                           *w_.viaConfig,
                           *w_.auxViaConfig,
                           *w_.graph,
                           *w_.bfdList,
                           Flipset::getToggleState("StaticRouteMetric"),
                           testVrfId,
                           w_.af};
  }

  void sessionIs(uint32_t i, bool up, bool resolved) {
    w_.bfdAgent->sessionIs(nextHopOf(i), linkLocal(i) ? intfOf(i) : Pando::IntfId(), up,
                           resolved ? intfOf(i) : Pando::IntfId());
  }

  Rib::Route staleRoute(Vrf::VrfIdMap::VrfId vrfId, const IpGenPrefix& p) {
    Rib::Route stale(Rib::RouteKey(vrfId, p));
    stale.routingProtocolIs(2);
    stale.metricPrefIs(Rib::MetricPref(7, 7));
    stale.viaSetIs(w_.viaSets->dedupConfigViaSetIs(Rib::Brisk::ViaSet()));
    w_.ribConfig->routeAdd(stale);
    return stale;
  }

  // Routes left in the RIB from before a restart, records, metrics and
  // sessions, some protocol writes; then RouteStatusSm starts.
  void setUp() {
    for (int k = 0; k < 2; ++k) {
      staleRoute(testVrfId, somePrefix());
      const std::vector<IpGenPrefix> others =
          universe(w_.af == AddressFamily::ipv4 ? AddressFamily::ipv6 : AddressFamily::ipv4);
      foreign_.push_back(staleRoute(testVrfId, others[pick(others.size())]));
      foreign_.push_back(staleRoute(otherVrfId, somePrefix()));
    }
    for (uint32_t i = 1; i <= viaCount; ++i) {
      labelled_[i] = pick(5) == 0;
      recordIs(i);
      if (pick(4) != 0) metricIs(i, Rib::ViaMetric(Rib::MetricPref(1, 1)));
      if (pick(2) == 0) sessionIs(i, pick(3) != 0, true);
    }
    for (uint32_t i = bulkFirst; i < bulkFirst + bulkCount; ++i) {
      recordIs(i);
      metricIs(i, Rib::ViaMetric(Rib::MetricPref(1, 1)));
    }
    noteReadiness();
    for (uint64_t n = pick(60); n > 0; --n) {
      std::ostringstream os;
      os << "before start: ";
      event(os);
      remember(os.str());
      noteReadiness();
    }
    w_.start();
    w_.sm->reviewQuantumIs(pick(2) == 0 ? 0 : defaultQuantum);
    vms_ = viaMetricStatusSmFactory(w_.metricTree, dir_);
    vms_->sweepThresholdIs(0);
    vms_->sweepQuantumIs(pick(2) == 0 ? 0 : defaultQuantum);
    w_.status->initializedIs(true);
    w_.runUntilQuiet();
    check(0);
  }

  // ------------------------------------------------------------ events

  // Existing (prefix, preference) pairs, and the vias filed under them.
  struct Slot {
    IpGenPrefix prefix;
    RoutePreference pref;
    ViaTypeEnum type;
    uint32_t via;
  };
  std::vector<std::pair<IpGenPrefix, RoutePreference>> existingPrefs() const {
    std::vector<std::pair<IpGenPrefix, RoutePreference>> out;
    for (const IpGenPrefix& p : prefixes_) {
      if (Kel::Ptr<Route> r = w_.status->route(p)) {
        for (const Kel::Ptr<RoutePref>& pref : r->routePref()) {
          out.emplace_back(p, pref->preference());
        }
      }
    }
    return out;
  }
  // The bulk vias aside: they come and go together.
  std::vector<Slot> existingVias() const {
    std::vector<Slot> out;
    for (const auto& [p, pref] : existingPrefs()) {
      for (const auto& byType : w_.status->route(p)->routePref(pref)->dedupViaKeyByViaType()) {
        for (const auto& entry : byType->dedupViaKey()) {
          if (entry->viaKey().viaIndex() >= bulkFirst) continue;
          out.push_back({p, pref, byType->viaType().viaType(), entry->viaKey().viaIndex()});
        }
      }
    }
    return out;
  }
  // A preference the protocol has, mostly; sometimes a new one.
  std::pair<IpGenPrefix, RoutePreference> somePref() {
    const auto existing = existingPrefs();
    if (!existing.empty() && pick(4) != 0) return existing[pick(existing.size())];
    return {somePrefix(), preferences[pick(4)]};
  }

  void stamp(const IpGenPrefix& p) {
    if (Kel::Ptr<Route> r = w_.status->route(p)) r->routeChangedAtIs(Kel::System::currentTime());
  }
  // What the via tracker would do had the via's metric changed.
  void stampUsers(const Rib::ViaKey& via) {
    for (const Slot& s : existingVias()) {
      if (key(s.via) == via) stamp(s.prefix);
    }
  }
  void bumpGeneration() {
    if (pick(2) == 0) {
      w_.ipMetrics->doBumpGeneration();
    } else {
      w_.graph->doBumpGeneration();
    }
  }
  void followViaChange(std::ostream& os, const Rib::ViaKey& via) {
    if (pick(2) == 0) {
      os << " +stamp users";
      stampUsers(via);
    } else {
      os << " +review";
      bumpGeneration();
    }
  }

  // Per via, whether its next hop has a tracking entry.
  std::vector<bool> trackedVias() const {
    const SelectionInputs in = inputs();
    std::vector<bool> out(viaCount + 1);
    for (uint32_t i = 1; i <= viaCount; ++i) {
      out[i] = bool(w_.bfdList->route(bfdKeyOf(*viaRecordOf(in, key(i)))));
    }
    return out;
  }
  // Whether a next hop has a tracking entry decides, for every route, whether
  // a less preferred via type may use it; but the rules re-evaluate only the
  // routes that track it. Bring the other users of the via up to date, so that
  // the comparison is about selection and not about that gap.
  void followTrackingEntries(std::ostream& os, const std::vector<bool>& before) {
    const std::vector<bool> after = trackedVias();
    for (uint32_t i = 1; i <= viaCount; ++i) {
      if (before[i] == after[i]) continue;
      os << ";"
         << " via " << i << (after[i] ? " tracked" : " untracked");
      followViaChange(os, key(i));
    }
  }

  enum class Event : uint8_t {
    // The protocol's writes.
    addVia,
    delVia,
    delViaType,
    delPref,
    delRoute,
    tag,
    installInFib,
    fecType,
    fibRouteType,
    srcVrfId,
    stamp,
    unready,
    // The RIB's inputs.
    viaMetric,
    viaLabel,
    graphRoute,
    bfdMark,
    bfdSession,
    bfdEntryGone,
    toggle,
    // The review's pace.
    pacing,
    // The bulk vias' next step.
    bulk,
  };
  struct Weighted {
    Event event;
    uint32_t weight;
  };
  static constexpr Weighted eventWeights[] = {
      {Event::addVia, 200},      {Event::delVia, 70},     {Event::delViaType, 15},
      {Event::delPref, 15},      {Event::delRoute, 12},   {Event::tag, 15},
      {Event::installInFib, 15}, {Event::fecType, 25},    {Event::fibRouteType, 12},
      {Event::srcVrfId, 12},     {Event::stamp, 90},      {Event::unready, 6},
      {Event::viaMetric, 120},   {Event::viaLabel, 30},   {Event::graphRoute, 50},
      {Event::bfdMark, 40},      {Event::bfdSession, 45}, {Event::bfdEntryGone, 8},
      {Event::toggle, 4},        {Event::pacing, 4},      {Event::bulk, 1},
  };

  void event(std::ostream& os) {
    // Bulk vias are costly to evaluate and to check: they stay a few events.
    if (bulkFiled() && pick(4) == 0) return bulk(os);
    uint64_t total = 0;
    for (const Weighted& e : eventWeights) total += e.weight;
    uint64_t roll = pick(total);
    const Weighted* e = eventWeights;
    while (roll >= e->weight) roll -= (e++)->weight;
    switch (e->event) {
      case Event::addVia:
        return addVia(os);
      case Event::delVia:
      case Event::delViaType:
        return delVia(os, e->event == Event::delViaType);
      case Event::delPref:
        return delPref(os);
      case Event::delRoute: {
        const IpGenPrefix p = somePrefix();
        os << "delRoute " << p;
        return w_.status->routeDel(p);
      }
      case Event::tag:
      case Event::installInFib:
      case Event::fecType:
      case Event::fibRouteType:
        return prefAttribute(os, e->event);
      case Event::srcVrfId:
        return srcVrfId(os);
      case Event::stamp: {
        const IpGenPrefix p = somePrefix();
        os << "stamp " << p;
        return w_.status->routeIs(p)->routeChangedAtIs(Kel::System::currentTime());
      }
      case Event::unready: {
        const IpGenPrefix p = somePrefix();
        os << "routeChangedAt 0 " << p;
        if (Kel::Ptr<Route> r = w_.status->route(p)) r->routeChangedAtIs(0);
        return;
      }
      case Event::viaMetric:
        return viaMetric(os);
      case Event::viaLabel: {
        const uint32_t i = someVia();
        labelled_[i] = !labelled_[i];
        os << "via " << i << (labelled_[i] ? " labelled" : " unlabelled");
        recordIs(i);
        return followViaChange(os, key(i));
      }
      case Event::graphRoute:
        return graphRoute(os);
      case Event::bfdMark:
        return bfdMark(os);
      case Event::bfdSession: {
        const uint32_t i = someVia();
        const bool up = pick(4) != 0;
        const bool resolved = pick(6) != 0;
        os << "session via " << i << (up ? " up" : " down") << (resolved ? "" : " unresolved");
        return sessionIs(i, up, resolved);
      }
      case Event::bfdEntryGone: {
        // Another writer takes a tracking entry out of the list.
        if (w_.bfdList->routeSize() == 0) return void(os << "no BFD entry to remove");
        auto it = w_.bfdList->route().begin();
        for (uint64_t n = pick(w_.bfdList->routeSize()); n > 0; --n) ++it;
        const BfdStatusKey k = (*it)->key();
        os << "BFD entry " << k << " removed";
        return w_.bfdList->routeDel(k);
      }
      case Event::toggle:
        return toggle(os);
      case Event::pacing:
        return pacing(os);
      case Event::bulk:
        return bulkVias_ ? bulk(os) : addVia(os);
    }
  }

  // None, then one via more than a via set holds (filed while the route is
  // not ready, then stamped: the RIB route of before must stay), then one
  // fewer (exactly as many as it holds), then none again.
  Kel::Ptr<RoutePref> bulkRoutePref() const {
    const Kel::Ptr<Route> route = w_.status->route(bulkPrefix_);
    return route ? route->routePref(bulkPref_) : nullptr;
  }
  bool bulkFiled() const {
    const Kel::Ptr<RoutePref> pref = bulkRoutePref();
    return pref && pref->dedupViaKeyByViaType(bulkType) &&
           pref->dedupViaKeyByViaType(bulkType)->dedupViaKey(key(bulkFirst));
  }
  void bulk(std::ostream& os) {
    Kel::Ptr<RoutePref> pref = bulkRoutePref();
    if (!bulkFiled()) {
      // Mostly over a route the RIB has.
      bulkPrefix_ = somePrefix();
      for (int tries = 0; tries < 8 && !w_.ribRoute(bulkPrefix_); ++tries) {
        bulkPrefix_ = somePrefix();
      }
      os << "bulk " << bulkCount << " vias to " << bulkPrefix_ << " pref " << unsigned(bulkPref_);
      const Kel::Ptr<Route> route = w_.status->routeIs(bulkPrefix_);
      route->routeChangedAtIs(0);
      pref = route->routePrefIs(bulkPref_);
      for (uint32_t i = bulkFirst; i < bulkFirst + bulkCount; ++i) {
        pref->dedupViaKeyIs(bulkType, w_.viaKeys->dedupViaKeyIs(key(i)), 1);
      }
      return stamp(bulkPrefix_);
    }
    const Kel::Ptr<DedupViaKeyByViaType> byType = pref->dedupViaKeyByViaType(bulkType);
    if (byType->dedupViaKey(key(bulkFirst + bulkCount - 1))) {
      os << "bulk via " << bulkFirst + bulkCount - 1 << " deleted";
      return pref->dedupViaKeyDel(bulkType, key(bulkFirst + bulkCount - 1));
    }
    // Not one evaluation per via: the protocol holds the route back meanwhile.
    os << "bulk vias deleted";
    w_.status->route(bulkPrefix_)->routeChangedAtIs(0);
    for (uint32_t i = bulkFirst; i < bulkFirst + bulkCount; ++i) {
      pref->dedupViaKeyDel(bulkType, key(i));
    }
    stamp(bulkPrefix_);
  }

  void addVia(std::ostream& os) {
    const IpGenPrefix p = somePrefix();
    const RoutePreference pref = preferences[pick(4)];
    // Mostly two via types and one metric, so that vias meet in a type and
    // tie on their metric.
    const ViaTypeEnum type = pick(3) == 0   ? viaTypes[pick(5)]
                             : pick(2) == 0 ? V::viaIntfNextHop
                                            : V::viaNextHopOnly;
    const uint32_t i = someVia();
    const RouteMetric m = pick(2) == 0 ? 1 : protocolMetrics[pick(4)];
    os << "addVia " << p << " pref " << unsigned(pref) << " " << type << " via " << i << " metric "
       << m;
    // The tracker stamps a route that takes on a new via.
    w_.routePref(p, pref)->dedupViaKeyIs(type, w_.viaKeys->dedupViaKeyIs(key(i)), m);
  }

  void delVia(std::ostream& os, bool wholeType) {
    const std::vector<Slot> slots = existingVias();
    if (slots.empty()) return void(os << "no via to delete");
    const Slot s = slots[pick(slots.size())];
    Kel::Ptr<RoutePref> pref = w_.status->route(s.prefix)->routePref(s.pref);
    os << s.prefix << " pref " << unsigned(s.pref) << " " << s.type;
    if (wholeType) {
      os << " deleted";
      pref->dedupViaKeyDelAll(s.type);
    } else {
      os << " via " << s.via << " deleted";
      pref->dedupViaKeyDel(s.type, key(s.via));
    }
  }

  void delPref(std::ostream& os) {
    const auto existing = existingPrefs();
    if (existing.empty()) return void(os << "no preference to delete");
    const auto [p, pref] = existing[pick(existing.size())];
    os << p << " pref " << unsigned(pref) << " deleted";
    w_.status->route(p)->routePrefDel(pref);
  }

  void prefAttribute(std::ostream& os, Event attribute) {
    const auto [p, prefValue] = somePref();
    Kel::Ptr<RoutePref> pref = w_.routePref(p, prefValue);
    os << p << " pref " << unsigned(prefValue) << " ";
    switch (attribute) {
      case Event::tag: {
        const uint32_t tag = uint32_t(pick(3));
        os << "tag " << tag;
        return pref->tagIs(tag);
      }
      case Event::installInFib: {
        const bool install = pick(3) != 0;
        os << "installInFib " << install;
        return pref->installInFibIs(install);
      }
      case Event::fecType: {
        const uint8_t fec = pick(3) == 0 ? 2 : 0;
        os << "fecType " << unsigned(fec);
        return pref->fecTypeIs(fec);
      }
      default: {
        const Fib::RouteType t = Fib::RouteType(pick(4));
        os << "fibRouteType " << t;
        return pref->fibRouteTypeIs(t);
      }
    }
  }

  void srcVrfId(std::ostream& os) {
    static constexpr Vrf::VrfIdMap::VrfId vrfs[] = {Vrf::VrfIdMap::invalidVrfId, 1, otherVrfId};
    const IpGenPrefix p = somePrefix();
    const Vrf::VrfIdMap::VrfId v = vrfs[pick(3)];
    os << p << " srcVrfId " << v << " +stamp";
    w_.status->routeIs(p)->srcVrfIdIs(v);
    // RouteStatusSm watches routeChangedAt, not srcVrfId: the protocol stamps
    // every change it makes to a route.
    stamp(p);
  }

  void viaMetric(std::ostream& os) {
    const uint32_t i = someVia();
    os << "via " << i << " metric ";
    // Out of 20: 13 resolved, 2 empty, 2 looping, 1 placeholder, 2 gone.
    const uint64_t roll = pick(20);
    if (roll < 13) {
      const Rib::ViaMetric m(Rib::MetricPref(1, 1 + uint32_t(pick(3))));
      os << m;
      metricIs(i, m);
    } else if (roll < 15) {
      os << "empty";
      metricIs(i, Rib::ViaMetric());
    } else if (roll < 17) {
      const Rib::ViaMetric m(Rib::MetricPref(1, 1), true);
      os << m;
      metricIs(i, m);
    } else if (roll < 18) {
      const Rib::ViaMetric m(Rib::MetricPref(RoutePreference(pick(2)), 1), false,
                             Rib::ViaMetric::sourceSpecial);
      os << m;
      metricIs(i, m);
    } else if (i == 13 && pick(2) == 0) {
      // A table that goes tells its entries' trackers nothing.
      os << "table gone with its VRF";
      w_.metricTree->viaMetricStatusByTransportDel(otherVrfId);
      return followViaChange(os, key(i));
    } else if (i == 14 && pick(2) == 0) {
      os << "table gone with its transport";
      w_.metricTree->viaMetricStatusByTransport(testVrfId)->viaMetricStatusByProtocolDel(
          key(i).kind());
      return followViaChange(os, key(i));
    } else {
      os << "deleted";
      w_.metricTree->viaMetricStatusIs(key(i))->viaMetricDel(key(i));
    }
  }

  // An installed route of the next-hop graph: 0 to 3 vias (none: connected).
  void graphRoute(std::ostream& os) {
    const IpGenPrefix p = somePrefix();
    os << "graph route " << p;
    if (pick(4) == 0) {
      os << " deleted";
      w_.graph->routeViasDel(testVrfId, p);
    } else {
      std::vector<Rib::ViaKey> vias;
      os << " vias";
      for (uint64_t n = pick(4); n > 0; --n) {
        const uint32_t i = someVia();
        os << " " << i;
        vias.push_back(key(i));
      }
      w_.graph->routeViasIs(testVrfId, p, std::move(vias));
    }
    // The graph notifies nobody per route: the RIB bumps its generation.
    os << " +review";
    bumpGeneration();
  }

  // Marks or unmarks a via, mostly one of the preference's own.
  void bfdMark(std::ostream& os) {
    const auto [p, prefValue] = somePref();
    Kel::Ptr<RoutePref> pref = w_.routePref(p, prefValue);
    std::vector<uint32_t> own;
    for (const auto& byType : pref->dedupViaKeyByViaType()) {
      for (const auto& entry : byType->dedupViaKey()) own.push_back(entry->viaKey().viaIndex());
    }
    const uint32_t i = !own.empty() && pick(4) != 0 ? own[pick(own.size())] : someVia();
    os << p << " pref " << unsigned(prefValue);
    if (pref->bfdTrackedViaCollHas(key(i))) {
      os << " untrack via " << i;
      pref->bfdTrackedViaCollDel(key(i));
    } else {
      os << " track via " << i;
      pref->bfdTrackedViaCollIs(key(i));
    }
  }

  void toggle(std::ostream& os) {
    const bool on = !Flipset::getToggleState("StaticRouteMetric");
    os << "StaticRouteMetric " << (on ? "on" : "off");
    Flipset::toggleStateIs("StaticRouteMetric", on);
    if (pick(2) == 0) {
      os << " +stamp all";
      for (const IpGenPrefix& p : prefixes_) stamp(p);
    } else {
      os << " +review";
      bumpGeneration();
    }
  }

  void pacing(std::ostream& os) {
    static constexpr double steps[] = {0, 0.01, 0.05};
    const double quantum = pick(2) == 0 ? 0 : defaultQuantum;
    const double step = steps[pick(3)];
    os << "quantum " << quantum << " step " << step;
    if (w_.sm) w_.sm->reviewQuantumIs(quantum);
    if (vms_) vms_->sweepQuantumIs(quantum);
    w_.time.time().stepIs(step);
  }

  void remember(std::string text) {
    recent_.push_back(std::move(text));
    if (recent_.size() > 16) recent_.pop_front();
  }

  // ------------------------------------------------------------ checks

  std::optional<ModelRoute> ribRoute(const IpGenPrefix& p) const {
    const Rib::Route* r = w_.ribRoute(p);
    return r ? std::optional<ModelRoute>(modelRouteOf(*r)) : std::nullopt;
  }

  // A route that is not ready, or that has more vias than a via set holds,
  // keeps the RIB route it had when it became so.
  void noteReadiness() {
    for (size_t k = 0; k < prefixes_.size(); ++k) {
      Kel::Ptr<Route> r = w_.status->route(prefixes_[k]);
      const bool kept =
          r && (r->routeChangedAt() == 0 ||
                (prefixes_[k] == bulkPrefix_ &&
                 expectedRoute(inputs(), prefixes_[k]).kind == Expectation::Kind::unknown));
      if (kept && !frozen_[k]) frozen_[k].emplace(ribRoute(prefixes_[k]));
      if (!kept) frozen_[k].reset();
    }
  }

  std::string recentEvents() const {
    std::string out;
    for (const std::string& e : recent_) out += "  " + e + "\n";
    return out;
  }

  void fail(uint64_t event, const std::string& what) {
    failed_ = true;
    ADD_FAILURE() << "after event " << event << ": " << what << "\nrecent events:\n"
                  << recentEvents();
  }

  void check(uint64_t event) {
    if (!w_.sm->reviewBookmark().isEmpty() ||
        !(w_.af == AddressFamily::ipv4 ? w_.ready->v4RouteReviewComplete()
                                       : w_.ready->v6RouteReviewComplete())) {
      return fail(event, "the review is not complete at a quiet moment");
    }
    if (vms_->sweepsPending() != 0) return fail(event, "a via sweep is pending at a quiet moment");
    if (vms_->filingStampsPending() != 0) {
      return fail(event, "a filing stamp is pending at a quiet moment");
    }
    const SelectionInputs in = inputs();
    for (size_t k = 0; k < prefixes_.size() && !failed_; ++k) checkPrefix(event, in, k);
    if (!failed_) checkRibHasNothingElse(event);
    if (!failed_) checkViaSets(event);
    if (!failed_) checkBfdList(event);
  }

  void checkPrefix(uint64_t event, const SelectionInputs& in, size_t k) {
    const IpGenPrefix& p = prefixes_[k];
    const Expectation e = expectedRoute(in, p);
    std::optional<ModelRoute> want;
    switch (e.kind) {
      case Expectation::Kind::absent:
        ++coverage_.absent;
        break;
      case Expectation::Kind::unknown:
        ++coverage_.notReady;
        if (!frozen_[k]) return fail(event, "no RIB route recorded for a route not ready");
        want = *frozen_[k];
        if (want && w_.status->route(p)->routeChangedAt() != 0) ++coverage_.overLimit;
        break;
      case Expectation::Kind::route:
        ++coverage_.present;
        if (e.route.vias.size() > 1) ++coverage_.multiVia;
        if (e.route.vias.empty()) ++coverage_.withoutVia;
        if (e.route.vias.size() == Rib::Brisk::ViaSet::maxVias) ++coverage_.atLimit;
        want = e.route;
        break;
    }
    const Rib::Route* rib = w_.ribRoute(p);
    const std::optional<ModelRoute> got = ribRoute(p);
    const bool wellFormed = rib == nullptr || (rib->routingProtocol() == 2 && rib->viaSet() &&
                                               (rib->flags() & ~Rib::Route::flagNoFibInstall) == 0);
    if (want == got && wellFormed) return;
    std::ostringstream os;
    os << "prefix " << p << (e.kind == Expectation::Kind::unknown ? " (not ready)" : "")
       << "\n  model: " << describe(want) << "\n  rib:   " << describe(got);
    if (rib) os << "\n  rib route: " << *rib;
    os << "\n" << w_.sm->explain(p).str();
    fail(event, os.str());
  }

  // Besides this VRF's routes of this family, only the other writers' routes,
  // as they were.
  void checkRibHasNothingElse(uint64_t event) {
    for (const Rib::Route& r : foreign_) {
      const Rib::Route* now = w_.ribConfig->route(r.key());
      if (now == nullptr || !(*now == r)) {
        std::ostringstream os;
        os << "another writer's RIB route changed: " << r;
        return fail(event, os.str());
      }
    }
    for (const Rib::Route& r : w_.ribConfig->route()) {
      bool ours = false;
      for (const IpGenPrefix& p : prefixes_) ours |= r.key().prefix() == p;
      bool foreign = false;
      for (const Rib::Route& f : foreign_) foreign |= f.key() == r.key();
      if (!foreign && (r.key().vrfId() != testVrfId || !ours)) {
        std::ostringstream os;
        os << "unexpected RIB route " << r;
        return fail(event, os.str());
      }
    }
  }

  // No via set outlives the routes that use it.
  void checkViaSets(uint64_t event) {
    std::set<Rib::Id> used;
    for (const Rib::Route& r : w_.ribConfig->route()) used.insert(r.viaSet()->id());
    if (w_.viaSets->size() != used.size()) {
      fail(event, "via sets: " + std::to_string(w_.viaSets->size()) + " in the table, " +
                      std::to_string(used.size()) + " used by routes");
    }
  }

  // Entry, dependant route, tracked vias.
  using BfdRequests = std::map<BfdStatusKey, std::map<RouteKey, std::set<Routing::Via>>>;

  static std::string describeRequests(const BfdRequests& requests) {
    std::ostringstream os;
    for (const auto& [key, routes] : requests) {
      os << "  " << key << ":";
      for (const auto& [route, vias] : routes) {
        os << " [" << route << ":";
        for (const Routing::Via& v : vias) os << " " << v;
        os << "]";
      }
      os << "\n";
    }
    return os.str();
  }

  void checkBfdList(uint64_t event) {
    const SelectionInputs in = inputs();
    BfdRequests wanted;
    std::map<BfdStatusKey, Pando::IntfId> viaIntf;  // one via per next hop here
    for (const Kel::Ptr<Route>& route : w_.status->route()) {
      for (const Kel::Ptr<RoutePref>& pref : route->routePref()) {
        pref->forEachBfdTrackedVia([&](const Rib::ViaKey& via) {
          const Rib::Via& record = *viaRecordOf(in, via);
          const BfdStatusKey session = bfdKeyOf(record);
          wanted[session][RouteKey(route->prefix(), pref->preference())].insert(
              Routing::Via(session.addr(), session.intf()));
          viaIntf[session] = record.intf();
        });
      }
    }
    for (const Kel::Ptr<BfdTrackedStaticRoutes>& entry : w_.bfdList->route()) {
      const BfdStatusKey& k = entry->key();
      const BfdAgentStub::Session* session = w_.bfdAgent->session(k.addr(), k.intf());
      const bool up = session && session->up;
      const Pando::IntfId intf = session ? session->resolvedIntf : viaIntf[k];
      if (entry->status() != up || !(entry->resolvedIntf() == intf)) {
        std::ostringstream os;
        os << "BFD entry " << k << ": status " << entry->status() << " on " << entry->resolvedIntf()
           << ", its session " << (session ? "" : "(none) ") << up << " on " << intf;
        return fail(event, os.str());
      }
    }
    BfdRequests held;
    for (const Kel::Ptr<BfdTrackedStaticRoutes>& entry : w_.bfdList->route()) {
      auto& routes = held[entry->key()];
      for (const Kel::Ptr<TrackedViaList>& dependant : entry->dependantRoute()) {
        auto& vias = routes[dependant->routeKey()];
        for (const Routing::Via& v : dependant->trackedVia()) vias.insert(v);
      }
    }
    if (wanted != held) {
      fail(event, "BFD tracking list\n wanted:\n" + describeRequests(wanted) + " held:\n" +
                      describeRequests(held));
    }
  }

  RouteStatusWorld w_;
  Kel::Ptr<RouteStatusDir> dir_ = routeStatusDirFactory();
  Kel::Ptr<ViaMetricStatusSm> vms_;  // after the world: it goes first
  std::mt19937_64 rng_;
  std::vector<IpGenPrefix> prefixes_;
  bool labelled_[viaCount + 1] = {};
  // The other writers' RIB routes.
  std::vector<Rib::Route> foreign_;
  // Where the bulk vias go.
  static constexpr ViaTypeEnum bulkType = V::viaIntfNextHop;
  IpGenPrefix bulkPrefix_;
  static constexpr RoutePreference bulkPref_ = 1;
  // Per prefix, while its route is not ready: the RIB route it must keep.
  std::vector<std::optional<std::optional<ModelRoute>>> frozen_;
  std::deque<std::string> recent_;
  mutable Coverage coverage_;
  bool failed_ = false;
  // Filed one by one with each filing stamping the route, 601 vias cost 601
  // evaluations of up to 600 vias each (minutes under the sanitizers): only
  // runs whose filing stamps are deferred, one evaluation a bulk, file them.
  const bool bulkVias_;
};

// The family, whether the tracker's sweeps are paced, whether its filing
// stamps are deferred, whether a route has a single reactor.
using ModelParam = std::tuple<AddressFamily, bool, bool, bool>;
class RouteStatusSmModelTest : public ::testing::TestWithParam<ModelParam> {};

TEST_P(RouteStatusSmModelTest, TheRibIsWhatTheModelSelects) {
  const std::optional<uint64_t> replay = envNumber("IPRIB_MODEL_SEED");
  const std::optional<uint64_t> scale = envNumber("IPRIB_MODEL_EVENTS");
  std::vector<uint64_t> seeds = {1, 2, 3, 4};
  if (replay || scale) seeds = {replay.value_or(1)};
  uint64_t atLimit = 0, overLimit = 0;
  const auto& [af, paced, deferred, single] = GetParam();
  for (uint64_t seed : seeds) {
    SCOPED_TRACE("seed " + std::to_string(seed) +
                 " (replay with IPRIB_MODEL_SEED=" + std::to_string(seed) + ")");
    RandomRun run(af, paced, deferred, single, seed);
    run.run(scale.value_or(2000), scale ? 16 : 1);
    if (run.failed()) return;
    // A walk that never reaches these cases proves little.
    const RandomRun::Coverage& c = run.coverage();
    EXPECT_GT(c.absent, 0u);
    EXPECT_GT(c.notReady, 0u);
    EXPECT_GT(c.multiVia, 0u);
    EXPECT_GT(c.withoutVia, 0u);
    // Rarer: over all seeds.
    atLimit += c.atLimit;
    overLimit += c.overLimit;
    EXPECT_EQ(c.sweepSlices > 0, paced);
    if (scale) {
      std::cout << "seed " << seed << ": " << *scale
                << " events; expectations checked: " << c.present << " routes (" << c.multiVia
                << " with several vias, " << c.withoutVia << " without via), " << c.absent
                << " absent, " << c.notReady << " not ready\n";
    }
  }
  // Only runs with deferred filing stamps file bulk vias.
  if (seeds.size() > 1 && deferred) {
    EXPECT_GT(atLimit, 0u);
    EXPECT_GT(overLimit, 0u);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Families, RouteStatusSmModelTest,
    ::testing::Combine(::testing::Values(AddressFamily::ipv4, AddressFamily::ipv6),
                       ::testing::Bool(), ::testing::Bool(), ::testing::Bool()),
    [](const ::testing::TestParamInfo<ModelParam>& info) {
      return std::string(std::get<0>(info.param) == AddressFamily::ipv4 ? "Ipv4" : "Ipv6") +
             (std::get<1>(info.param) ? "PacedViaSweep" : "") +
             (std::get<2>(info.param) ? "DeferredStamp" : "") +
             (std::get<3>(info.param) ? "SingleReactor" : "");
    });

}  // namespace
}  // namespace Routing::Protocol::Test
