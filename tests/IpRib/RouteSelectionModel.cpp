#include "tests/IpRib/RouteSelectionModel.h"

#include <algorithm>
#include <ostream>

#include "platform/Routing/Rib/Brisk/ViaSet.h"
#include "platform/Routing/Rib/Transport.h"

namespace Routing::Protocol::Test {

namespace {

// A preference with this fecType is installed even when none of its vias is.
constexpr uint8_t fecTypeInstallWithoutVia = 2;

struct Candidate {
  Rib::ViaKey via;
  RouteMetric metric;  // under the via type it was taken from
};

const BfdTrackedStaticRoutes* bfdEntryOf(const SelectionInputs& in, const Rib::ViaKey& via) {
  const Rib::Via* record = viaRecordOf(in, via);
  return record ? in.bfdList.route(bfdKeyOf(*record)).ptr() : nullptr;
}

bool labelled(const SelectionInputs& in, const Rib::ViaKey& via) {
  const Rib::Via* record = viaRecordOf(in, via);
  return record != nullptr && record->isLabelled();
}

// A via that this route tracks by BFD is held back while its session is not
// up on an interface; then the RIB must have resolved it, by a real resolver,
// without a loop.
bool validVia(const SelectionInputs& in, const Pando::IpGenPrefix& prefix, RoutePreference pref,
              const Rib::ViaKey& via) {
  const BfdTrackedStaticRoutes* bfd = bfdEntryOf(in, via);
  const bool trackedByThisRoute = bfd != nullptr && bfd->dependantRoute(RouteKey(prefix, pref));
  if (trackedByThisRoute && !(bfd->status() && !bfd->resolvedIntf().isEmpty())) return false;
  const Rib::ViaMetricStatus* table = in.viaMetrics.find(via);
  const Rib::ViaMetric* metric = table ? table->viaMetric(via) : nullptr;
  if (metric == nullptr || metric->isEmpty()) return false;
  if (metric->source() == Rib::ViaMetric::sourceSpecial) return false;
  return !metric->looping();
}

// The vias one preference yields, in the order they were found. The first via
// type is the most preferred; the walk stops at the first type that yields a
// via, and a later type yields only vias that some route tracks by BFD. The
// first labelled via found drops the unlabelled ones found before it and
// shuts out those after it. One via more than a via set holds sets `overflow`.
std::vector<Candidate> viasOf(const SelectionInputs& in, const Pando::IpGenPrefix& prefix,
                              const RoutePref& routePref, bool& overflow) {
  const RoutePreference pref = routePref.preference();
  std::vector<Candidate> chosen;
  bool labelledOnly = false;
  bool mostPreferred = true;
  for (const Kel::Ptr<DedupViaKeyByViaType>& byType : routePref.dedupViaKeyByViaType()) {
    bool typeYielded = false;
    for (const Kel::Ptr<DedupViaKeyMetric>& entry : byType->dedupViaKey()) {
      const Rib::ViaKey& via = entry->viaKey();
      if (!validVia(in, prefix, pref, via)) continue;
      if (in.nhdGraph.loopingRoute(prefix, Rib::MetricPref(pref, entry->metric()), in.vrfId, via, 0,
                                   0, Rib::RibType::unicast)) {
        continue;
      }
      if (labelled(in, via) && !labelledOnly) {
        chosen.clear();
        labelledOnly = true;
      }
      if (labelledOnly && !labelled(in, via)) continue;
      if (!mostPreferred && bfdEntryOf(in, via) == nullptr) continue;
      if (chosen.size() == Rib::Brisk::ViaSet::maxVias) {
        overflow = true;
        return {};
      }
      chosen.push_back({via, entry->metric()});
      typeYielded = true;
    }
    if (typeYielded) break;
    mostPreferred = false;
  }
  return chosen;
}

}  // namespace

Expectation expectedRoute(const SelectionInputs& in, const Pando::IpGenPrefix& prefix) {
  const Kel::Ptr<Route> route = in.status.route(prefix);
  if (!route) return {Expectation::Kind::absent, {}};
  if (route->routeChangedAt() == 0) return {Expectation::Kind::unknown, {}};

  // The most preferred preference that yields a via, or may go without.
  for (const Kel::Ptr<RoutePref>& routePref : route->routePref()) {
    bool overflow = false;
    std::vector<Candidate> chosen = viasOf(in, prefix, *routePref, overflow);
    // The evaluation is abandoned: no preference, however far down, wins.
    if (overflow) return {Expectation::Kind::unknown, {}};
    uint32_t flags = 0;
    if (chosen.empty()) {
      if (routePref->fecType() != fecTypeInstallWithoutVia) continue;
      flags = in.af == Pando::AddressFamily::ipv4 ? 2 : 4;
    }
    // With the toggle on, only the vias of the lowest metric stay, and the
    // route takes that metric; with it off, all stay and the metric is 0.
    RouteMetric metric = 0;
    if (in.staticRouteMetric && !chosen.empty()) {
      metric = std::min_element(
                   chosen.begin(), chosen.end(),
                   [](const Candidate& a, const Candidate& b) { return a.metric < b.metric; })
                   ->metric;
      std::erase_if(chosen, [&](const Candidate& c) { return c.metric != metric; });
    }
    Expectation e{Expectation::Kind::route, {}};
    e.route.preference = routePref->preference();
    e.route.metric = metric;
    e.route.viaSetFlags = flags;
    for (const Candidate& c : chosen) e.route.vias.push_back(c.via);
    e.route.tag = routePref->tag();
    e.route.installInFib = routePref->installInFib();
    e.route.fibRouteType = routePref->fibRouteType();
    e.route.srcVrfId = route->srcVrfId();
    return e;
  }
  return {Expectation::Kind::absent, {}};
}

const Rib::Via* viaRecordOf(const SelectionInputs& in, const Rib::ViaKey& via) {
  const Pando::AddressFamily family = Rib::transportAf(via.kind());
  const bool ownFamily = family == in.af || family == Pando::AddressFamily::ipunknown;
  return (ownFamily ? in.viaRecords : in.auxViaRecords).via(via);
}

BfdStatusKey bfdKeyOf(const Rib::Via& record) {
  return BfdStatusKey(record.nextHop(),
                      record.nextHop().isLinkLocal() ? record.intf() : Pando::IntfId());
}

ModelRoute modelRouteOf(const Rib::Route& route) {
  ModelRoute r;
  r.preference = route.metricPref().preference;
  r.metric = route.metricPref().metric;
  if (route.viaSet()) {
    r.viaSetFlags = route.viaSet()->flags();
    r.vias.assign(route.viaSet()->viaKeys().begin(), route.viaSet()->viaKeys().end());
  }
  r.tag = route.tag();
  r.installInFib = (route.flags() & Rib::Route::flagNoFibInstall) == 0;
  r.fibRouteType = route.fibRouteType();
  r.srcVrfId = route.srcVrfId();
  return r;
}

std::ostream& operator<<(std::ostream& os, const ModelRoute& r) {
  os << "pref " << unsigned(r.preference) << " metric " << r.metric << " flags 0x" << std::hex
     << r.viaSetFlags << std::dec << " vias [";
  const char* sep = "";
  for (const Rib::ViaKey& v : r.vias) {
    os << sep << v;
    sep = " ";
  }
  return os << "] tag " << r.tag << " fib " << r.fibRouteType << " "
            << (r.installInFib ? "installed" : "not installed") << " srcVrf " << r.srcVrfId;
}

}  // namespace Routing::Protocol::Test
