#include "IpRib/ProtocolRouteStatusExplain.h"

#include <sstream>

namespace Routing::Protocol {

std::string_view viaVerdictText(ViaVerdict v) {
  switch (v) {
    case ViaVerdict::added:
      return "added";
    case ViaVerdict::unresolved:
      return "unresolved";
    case ViaVerdict::looping:
      return "looping";
    case ViaVerdict::pushedOutByLabelledVia:
      return "pushed out by a labelled via";
    case ViaVerdict::notLabelled:
      return "not labelled";
    case ViaVerdict::lessPreferredNotBfdTracked:
      return "less preferred via type, not BFD-tracked";
    case ViaVerdict::bfdDown:
      return "BFD down";
    case ViaVerdict::vtepUnresolved:
      return "VTEP unresolved";
    case ViaVerdict::cutByMetric:
      return "higher metric than the lowest";
  }
  return "?";
}

void RouteExplanation::preference(const RoutePref& p) {
  preferences_.push_back(PreferenceStep{p.preference(), p.fecType(), {}, false});
}

void RouteExplanation::viaType(ViaType t, bool mostPreferred) {
  preferences_.back().viaTypes.push_back(ViaTypeStep{t, mostPreferred, {}});
}

void RouteExplanation::via(const Rib::ViaKey& k, RouteMetric m, ViaVerdict v) {
  PreferenceStep& pref = preferences_.back();
  if (v == ViaVerdict::cutByMetric) {
    // The metric cut revisits vias already added: update their verdict.
    for (ViaTypeStep& t : pref.viaTypes) {
      for (Via& via : t.vias) {
        if (via.key == k && via.verdict == ViaVerdict::added) via.verdict = v;
      }
    }
    return;
  }
  pref.viaTypes.back().vias.push_back(Via{k, m, v});
}

void RouteExplanation::pushedOut() {
  for (ViaTypeStep& t : preferences_.back().viaTypes) {
    for (Via& via : t.vias) {
      if (via.verdict == ViaVerdict::added) via.verdict = ViaVerdict::pushedOutByLabelledVia;
    }
  }
}

void RouteExplanation::preferenceDone(bool won) { preferences_.back().won = won; }

void RouteExplanation::metricCut(RouteMetric lowest) {
  metricCut_ = true;
  lowestMetric_ = lowest;
}

void RouteExplanation::added(const Rib::Route& route, uint32_t vias) {
  outcome_ = Outcome::added;
  route_ = route;
  vias_ = vias;
}

void RouteExplanation::abandoned(const std::string& why) {
  outcome_ = Outcome::abandoned;
  why_ = why;
}

const RouteExplanation::Via* RouteExplanation::finalVia(const Rib::ViaKey& key) const {
  if (preferences_.empty()) return nullptr;
  for (const ViaTypeStep& t : preferences_.back().viaTypes) {
    for (const Via& via : t.vias) {
      if (via.key == key) return &via;
    }
  }
  return nullptr;
}

std::string RouteExplanation::str() const {
  std::ostringstream os;
  os << "route " << prefix_ << "\n";
  if (!inStatus_) os << "  not in the protocol's status\n";
  if (outcome_ == Outcome::notReady) {
    os << "  not ready (routeChangedAt is 0): the RIB is left as it is\n";
  }
  for (const PreferenceStep& p : preferences_) {
    os << "  preference " << unsigned(p.preference);
    if (p.fecType != 0) os << " (fecType " << unsigned(p.fecType) << ")";
    os << (p.won ? ": wins" : ": no usable via") << "\n";
    for (const ViaTypeStep& t : p.viaTypes) {
      os << "    " << t.viaType << (t.mostPreferred ? " (most preferred)" : "") << "\n";
      for (const Via& v : t.vias) {
        os << "      " << v.key << " metric " << v.metric << ": " << viaVerdictText(v.verdict)
           << "\n";
      }
    }
  }
  if (metricCut_) os << "  lowest metric " << lowestMetric_ << " kept\n";
  switch (outcome_) {
    case Outcome::added:
      os << "  RIB: " << route_ << " (" << vias_ << " vias)\n";
      break;
    case Outcome::deleted:
      os << "  RIB: route deleted" << (inStatus_ ? " (no preference has a usable via)" : "")
         << "\n";
      break;
    case Outcome::abandoned:
      os << "  evaluation abandoned: " << why_ << "\n";
      break;
    default:
      break;
  }
  return os.str();
}

}  // namespace Routing::Protocol
