#include "tests/system/SystemCheck.h"

#include <set>
#include <sstream>

#include "platform/Flipset/Flipset.h"
#include "tests/IpRib/RouteSelectionModel.h"

namespace Routing::Protocol::Test {

namespace {

using Kind = ReadyVrfSets::Kind;

std::string show(const std::set<std::string>& names) {
  std::string out = "{";
  for (const std::string& n : names) out += (out.size() > 1 ? " " : "") + n;
  return out + "}";
}

std::string readySetsDifference(const RootSm& root, const LifecycleModel& model) {
  static constexpr Kind kinds[familyCount] = {Kind::ipv4, Kind::ipv6, Kind::mcIpv4, Kind::mcIpv6};
  for (int f = 0; f < familyCount; ++f) {
    std::set<std::string> real;
    for (const L3::VrfName& n : root.readyVrfSets()->set(kinds[f])) real.emplace(n.value());
    if (real != model.ready(f)) {
      return "ready set " + std::to_string(f) + " is " + show(real) + ", the model's " +
             show(model.ready(f));
    }
  }
  return "";
}

std::string recordsDifference(const AgentPlatform& platform, const LifecycleModel& model) {
  const AllVrfReadyStatus& statuses = *platform.allVrfReadyStatus;
  const AllVrfRibSeqTrigger& triggers = *platform.allVrfRibSeqTrigger;
  std::set<std::string> real, realTriggers, expected;
  for (const auto& s : statuses.vrfReadyStatus()) real.emplace(s->vrfName().value());
  for (const auto& t : triggers.vrfRibSeqTrigger()) realTriggers.emplace(t->vrfName().value());
  for (const auto& [name, record] : model.records()) expected.insert(name);
  if (real != expected || realTriggers != expected) {
    return "records " + show(real) + ", triggers " + show(realTriggers) + ", the model's " +
           show(expected);
  }
  for (const auto& [name, m] : model.records()) {
    const VrfReadyStatus& s = *statuses.vrfReadyStatus(L3::VrfName(name));
    std::ostringstream is, should;
    is << s.v4RoutesReady() << s.v6RoutesReady() << " seq " << s.ribReadySeqStatus() << " review "
       << s.v4RouteReviewComplete() << s.v6RouteReviewComplete() << " trigger "
       << triggers.vrfRibSeqTrigger(L3::VrfName(name))->ribReadySeqTrigger();
    should << m.routesReady[0] << m.routesReady[1] << " seq " << m.ribReadySeqStatus << " review "
           << m.routeReviewComplete[0] << m.routeReviewComplete[1] << " trigger "
           << m.ribReadySeqTrigger;
    if (is.str() != should.str()) {
      return "record of " + name + ": ready " + is.str() + ", the model's ready " + should.str();
    }
  }
  return "";
}

std::string containersDifference(IpRibAgent::World& world, const LifecycleModel& model) {
  std::map<LifecycleModel::ContainerKey, LifecycleModel::Id> real, expected;
  for (const IpRibAgent::World::ContainerRef& c : world.containers()) {
    const int af = c.af == Pando::AddressFamily::ipv4 ? 0 : 1;
    real.emplace(
        LifecycleModel::ContainerKey(std::string(c.vrf.value()), familyOf(c.multicast, af)),
        c.vrfId);
  }
  for (const auto& [key, c] : model.containers()) expected.emplace(key, c.vrfId);
  if (real == expected) return "";
  std::ostringstream os;
  os << "containers";
  for (const auto& [key, id] : real) os << " " << key.first << "/" << key.second << "@" << id;
  os << "; the model's";
  for (const auto& [key, id] : expected) os << " " << key.first << "/" << key.second << "@" << id;
  return os.str();
}

// A route is told of a change when it lists a via key whose metric entry
// changed.
bool listsAny(const Route& route, const std::set<Rib::ViaKey>& vias) {
  if (vias.empty()) return false;
  for (const Kel::Ptr<RoutePref>& pref : route.routePref()) {
    for (const Kel::Ptr<DedupViaKeyByViaType>& byType : pref->dedupViaKeyByViaType()) {
      for (const Kel::Ptr<DedupViaKeyMetric>& entry : byType->dedupViaKey()) {
        if (vias.count(entry->viaKey()) != 0) return true;
      }
    }
  }
  return false;
}

// Every via set of the RIB's table is used by a route of a current container.
std::string viaSetsDifference(IpRibAgent::World& world) {
  const Rib::ViaSetConfig* sets = world.viaSetConfig();
  std::set<const Rib::ViaSetEntry*> used;
  for (const Rib::RouteConfig* table : world.ribTables()) {
    for (const Rib::Route& r : table->route()) {
      if (r.viaSet() && sets->viaSet(r.viaSet()->id()) == r.viaSet()) used.insert(r.viaSet().ptr());
    }
  }
  if (used.size() == sets->size()) return "";
  return "the RIB's via set table holds " + std::to_string(sets->size()) + " sets, routes use " +
         std::to_string(used.size());
}

// Each declared VRF's leak configuration, per family: for every route key,
// the route of the lowest declared source VRF id whose prefix leaks to it,
// and nothing else.
std::string leakDifference(SystemRun& run) {
  IpRibAgent::World& world = run.world();
  if (world.leak() == nullptr) return "";
  const std::map<std::string, LifecycleModel::Id> ids = run.vrfIds();
  for (int af = 0; af < 2; ++af) {
    const Pando::AddressFamily family =
        af == 0 ? Pando::AddressFamily::ipv4 : Pando::AddressFamily::ipv6;
    // Target name to key to (source id, source name).
    std::map<std::string, std::map<Routing::RouteKey, std::pair<LifecycleModel::Id, std::string>>>
        expected;
    for (const auto& [key, to] : run.leaks()) {
      const auto& [name, routeAf, index] = key;
      const auto source = ids.find(name);
      if (routeAf != af || source == ids.end()) continue;
      for (const auto& [pref, line] : run.routes().at(key)) {
        const Routing::RouteKey k(Pando::IpGenPrefix(run.prefixText(af, index)),
                                  Routing::RoutePreference(pref));
        const auto [it, added] = expected[to].emplace(k, std::pair(source->second, name));
        if (!added && source->second < it->second.first) it->second = {source->second, name};
      }
    }
    for (const auto& [name, id] : ids) {
      const LeakRouteConfig* config = world.leak()->leakRouteConfig(L3::VrfName(name), family);
      const std::string who = "the leak config of " + name + " " + (af == 0 ? "ipv4" : "ipv6");
      if (config == nullptr) return who + " is missing";
      const auto& want = expected[name];
      if (config->leakRoutes() != want.size()) {
        return who + " holds " + std::to_string(config->leakRoutes()) + " routes, the model " +
               std::to_string(want.size());
      }
      for (const auto& [k, source] : want) {
        const Kel::Ptr<const LeakRoute> got = config->leakRoute(k);
        std::ostringstream os;
        os << who << ", " << k << ": ";
        if (!got) return os.str() + "missing, the model's from " + source.second;
        const Kel::Ptr<Routing::Route> route =
            world.protocol().routeList(L3::VrfName(source.second), family)->route(k);
        if (!(got->vrfAf() == VrfIdAf(source.first, family)) || got->route().ptr() != route.ptr()) {
          return os.str() + "from " + got->vrfAf().str() + ", the model's from " + source.second;
        }
      }
    }
  }
  return "";
}

}  // namespace

// The RIB routes of one unicast container's VRF and family.
std::string SystemCheck::ribDifference(SystemRun& run, const std::string& name, int af,
                                       bool reviewed, bool everything) {
  IpRibAgent::World& world = run.world();
  const Pando::AddressFamily family =
      af == 0 ? Pando::AddressFamily::ipv4 : Pando::AddressFamily::ipv6;
  const ContainerSm& c = *world.container(L3::VrfName(name), family);
  const Status& status = *c.status();
  const Rib::RouteConfig& rib = *c.ribConfig();
  const std::string who = name + " " + (af == 0 ? "ipv4" : "ipv6");

  // The protocol's configuration is what the Status holds.
  std::set<Pando::IpGenPrefix> configured, touched;
  for (const auto& [key, prefs] : run.routes()) {
    const auto& [vrf, routeAf, index] = key;
    if (vrf == name && routeAf == af)
      configured.insert(Pando::IpGenPrefix(run.prefixText(af, index)));
  }
  for (const auto& [vrf, routeAf, index] : run.touched()) {
    if (vrf == name && routeAf == af) touched.insert(Pando::IpGenPrefix(run.prefixText(af, index)));
  }
  if (configured.size() != status.routeSize()) {
    return "the Status of " + who + " holds " + std::to_string(status.routeSize()) + " prefixes, " +
           std::to_string(configured.size()) + " configured";
  }
  const SelectionInputs in{status,
                           *c.viaMetricStatusByVrf(),
                           *c.ipViaConfig(),
                           *c.auxIpViaConfig(),
                           *world.rootSm()->nhdGraph(),
                           *world.platform().bfdList(),
                           Flipset::getToggleState("StaticRouteMetric"),
                           c.vrfId(),
                           family};
  for (const Pando::IpGenPrefix& prefix : configured) {
    const Kel::Ptr<Route> route = status.route(prefix);
    if (!route) return "the Status of " + who + " lacks a configured prefix";
    const Prefix key(name, af, prefix);
    auto it = expected_.find(key);
    const bool told = everything || it == expected_.end() || touched.count(prefix) != 0;
    if (!told && newSessions_.count(prefix) != 0) {
      it = expected_.insert_or_assign(key, Expectation{Expectation::Kind::unknown, {}}).first;
    } else if (told || changedSessions_.count(prefix) != 0 || listsAny(*route, changedVias_)) {
      it = expected_.insert_or_assign(key, expectedRoute(in, prefix)).first;
    }
    const Expectation& e = it->second;
    const Rib::Route* r = rib.route(Rib::RouteKey(c.vrfId(), prefix));
    std::ostringstream os;
    os << who << " " << prefix << ": ";
    if (e.kind == Expectation::Kind::absent && r != nullptr) {
      os << "in the RIB as " << modelRouteOf(*r) << ", the model has none";
      return os.str();
    }
    if (e.kind != Expectation::Kind::route) continue;
    if (r == nullptr) {
      os << "not in the RIB, the model has " << e.route;
      return os.str();
    }
    if (!(modelRouteOf(*r) == e.route)) {
      os << "in the RIB as " << modelRouteOf(*r) << ", the model has " << e.route;
      return os.str();
    }
  }
  if (!reviewed) return "";
  for (const Rib::Route& r : rib.route()) {
    if (r.key().vrfId() != c.vrfId() || r.key().prefix().af() != family) continue;
    if (configured.count(r.key().prefix()) == 0) {
      std::ostringstream os;
      os << who << " " << r.key().prefix() << ": in the RIB without a route in the Status";
      return os.str();
    }
  }
  return "";
}

std::string SystemCheck::afterStep(SystemRun& run) {
  if (!run.refused().empty()) return "refused " + run.refused();
  IpRibAgent::World& world = run.world();
  const LifecycleModel& model = run.lifecycle();
  if (bfdWatch_.notifier() != world.platform().bfdList().ptr()) {
    bfdWatch_.notifierIs(world.platform().bfdList().ptr());
  }

  // The inputs routes are told about, against the last quiet moment.
  std::map<Rib::ViaKey, Rib::ViaMetric> metrics;
  for (const auto& byTransport : world.platform()
                                     .viaMetricStatusByVrf(IpRibAgent::RibKind::unicast)
                                     ->viaMetricStatusByTransport()) {
    for (const auto& byProtocol : byTransport->viaMetricStatusByProtocol()) {
      for (const auto& table : byProtocol->viaMetricStatus()) {
        for (const auto& entry : table->viaMetric()) metrics.emplace(entry.viaKey, entry.viaMetric);
      }
    }
  }
  changedVias_.clear();
  for (const auto& [key, metric] : metrics) {
    const auto old = metrics_.find(key);
    if (old == metrics_.end() || !(old->second == metric)) changedVias_.insert(key);
  }
  for (const auto& [key, metric] : metrics_) {
    if (metrics.count(key) == 0) changedVias_.insert(key);
  }
  metrics_ = std::move(metrics);
  std::map<Routing::BfdStatusKey, Session> sessions;
  for (const auto& entry : world.platform().bfdList()->route()) {
    Session& s = sessions[entry->key()];
    s.up = entry->status();
    s.resolved = entry->resolvedIntf();
    for (const auto& dependant : entry->dependantRoute())
      s.dependants.insert(dependant->routeKey());
  }
  changedSessions_.clear();
  newSessions_.clear();
  // An entry made or dropped since the last quiet moment, even one made
  // again since: the BFD agent writes a new entry as it hears of it, and
  // the routes of its prefixes hear of that or not depending on who heard
  // of the entry first and on which of them were listed by then.
  for (const Routing::BfdStatusKey& k : bfdWatch_.made) {
    for (const auto* m : {&sessions_, &sessions}) {
      if (const auto it = m->find(k); it != m->end()) {
        for (const Routing::RouteKey& d : it->second.dependants) newSessions_.insert(d.prefix());
      }
    }
  }
  bfdWatch_.made.clear();
  for (const auto& [key, s] : sessions) {
    const auto old = sessions_.find(key);
    if (old == sessions_.end()) continue;
    // Two VRFs' routes of one prefix and preference share their tracking:
    // one's going takes the other's off the entry, untold.
    for (const Routing::RouteKey& k : old->second.dependants) {
      if (s.dependants.count(k) == 0) newSessions_.insert(k.prefix());
    }
    for (const Routing::RouteKey& k : s.dependants) {
      if (old->second.dependants.count(k) == 0) newSessions_.insert(k.prefix());
    }
    if (old->second.up == s.up && old->second.resolved == s.resolved) continue;
    // A state change re-evaluates every preference of a dependant's prefix.
    for (const Routing::RouteKey& k : s.dependants) changedSessions_.insert(k.prefix());
    for (const Routing::RouteKey& k : old->second.dependants) changedSessions_.insert(k.prefix());
  }
  sessions_ = std::move(sessions);

  std::string d = readySetsDifference(*world.rootSm(), model);
  if (d.empty()) d = recordsDifference(world.agentPlatform(), model);
  if (d.empty()) d = containersDifference(world, model);
  if (!d.empty()) return d;
  std::map<LifecycleModel::ContainerKey, std::pair<uint64_t, bool>> containers;
  std::set<Prefix> current;
  for (const auto& [key, c] : model.containers()) {
    if (multicastOf(key.second)) continue;
    const std::pair<uint64_t, bool> now(c.serial, c.statusInitialized);
    containers.emplace(key, now);
    // A container built, or reviewing its Status for the first time, evaluates every route.
    const auto old = containers_.find(key);
    const bool everything = old == containers_.end() || old->second != now;
    d = ribDifference(run, key.first, afOf(key.second), c.statusInitialized, everything);
    if (!d.empty()) return d;
  }
  containers_ = std::move(containers);
  std::erase_if(expected_, [&](const auto& e) {
    return containers_.count({std::get<0>(e.first), familyOf(false, std::get<1>(e.first))}) == 0;
  });
  d = leakDifference(run);
  return d.empty() ? viaSetsDifference(world) : d;
}

}  // namespace Routing::Protocol::Test
