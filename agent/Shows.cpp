#include "agent/Shows.h"

#include <algorithm>
#include <map>
#include <vector>

#include "IpRib/ProtocolRouteStatusExplain.h"
#include "Kel/Pool.h"
#include "Kel/Trace.h"

namespace IpRibAgent::Show {

namespace {

namespace Protocol = Routing::Protocol;

std::string text(const auto& value) {
  std::ostringstream os;
  os << value;
  return os.str();
}

const char* familyName(Pando::AddressFamily af) {
  return af == Pando::AddressFamily::ipv4 ? "ipv4" : "ipv6";
}

Json viaJson(const Rib::Via& via) {
  Json j;
  j["nexthop"] = text(via.nextHop());
  j["interface"] = via.intf().isEmpty() ? Json() : Json(std::string(via.intf().name().view()));
  j["label"] = via.isLabelled() ? Json(via.label()) : Json();
  return j;
}

Json viaJson(const Platform& platform, const Rib::ViaKey& key) {
  if (const Rib::Via* via = platform.via(key)) return viaJson(*via);
  return Json{{"viaKey", text(key)}};
}

Json viasJson(const Platform& platform, std::span<const Rib::ViaKey> keys) {
  Json vias = Json::array();
  for (const Rib::ViaKey& k : keys) vias.push_back(viaJson(platform, k));
  return vias;
}

std::string vrfNameOf(const Platform& platform, Vrf::VrfIdMap::VrfId id) {
  const L3::VrfName* name = platform.vrfName(id);
  return name ? std::string(name->value()) : "?";
}

Json routeJson(const Platform& platform, const Rib::Route& r) {
  Json j;
  j["vrf"] = vrfNameOf(platform, r.key().vrfId());
  j["vrfId"] = r.key().vrfId();
  j["prefix"] = text(r.key().prefix());
  j["preference"] = r.metricPref().preference;
  j["metric"] = r.metricPref().metric;
  j["tag"] = r.tag();
  j["fib"] = !(r.flags() & Rib::Route::flagNoFibInstall);
  j["viaSetId"] = r.viaSet() ? Json(r.viaSet()->id()) : Json();
  j["viaSetFlags"] = r.viaSet() ? r.viaSet()->flags() : 0;
  j["vias"] = r.viaSet() ? viasJson(platform, r.viaSet()->viaKeys()) : Json::array();
  return j;
}

const char* outcomeName(Protocol::RouteExplanation::Outcome o) {
  using O = Protocol::RouteExplanation::Outcome;
  switch (o) {
    case O::added:
      return "added";
    case O::deleted:
      return "deleted";
    case O::notReady:
      return "notReady";
    case O::abandoned:
      return "abandoned";
    case O::none:
      break;
  }
  return "none";
}

}  // namespace

Json rib(const World& world, const RibFilter& filter) {
  const Platform& platform = world.platform();
  std::optional<Vrf::VrfIdMap::VrfId> vrfId;
  if (filter.vrf) vrfId = platform.vrfId(*filter.vrf);
  Json routes = Json::array();
  for (const World::RibTable& t : world.ribTables()) {
    if ((vrfId && t.vrfId != *vrfId) || (filter.af && t.af != *filter.af)) continue;
    std::vector<const Rib::Route*> sorted;
    for (const Rib::Route& r : t.routes->route()) {
      if (!filter.prefix || r.key().prefix() == *filter.prefix) sorted.push_back(&r);
    }
    std::sort(sorted.begin(), sorted.end(), [](const Rib::Route* a, const Rib::Route* b) {
      return a->key().prefix() < b->key().prefix();
    });
    for (const Rib::Route* r : sorted) routes.push_back(routeJson(platform, *r));
  }
  return Json{{"routes", routes}};
}

Json viaSets(const World& world) {
  std::map<Rib::Id, uint32_t> users;
  for (const World::RibTable& t : world.ribTables()) {
    for (const Rib::Route& r : t.routes->route()) {
      if (r.viaSet()) ++users[r.viaSet()->id()];
    }
  }
  std::vector<const Rib::ViaSetEntry*> sets;
  if (const Rib::ViaSetConfig* config = world.viaSetConfig()) {
    for (const Rib::ViaSetEntry& e : *config) sets.push_back(&e);
  }
  std::sort(sets.begin(), sets.end(),
            [](const Rib::ViaSetEntry* a, const Rib::ViaSetEntry* b) { return a->id() < b->id(); });
  Json out = Json::array();
  for (const Rib::ViaSetEntry* e : sets) {
    out.push_back(Json{{"id", e->id()},
                       {"flags", e->flags()},
                       {"routes", users[e->id()]},
                       {"vias", viasJson(world.platform(), e->viaKeys())}});
  }
  return Json{{"viaSets", out}};
}

Json explain(World& world, const L3::VrfName& vrf, const Pando::IpGenPrefix& prefix) {
  Protocol::ContainerSm* c = world.container(vrf, prefix.af());
  if (c == nullptr || c->routeStatusSm() == nullptr) return Json();
  const Protocol::RouteExplanation e = c->routeStatusSm()->explain(prefix);
  const Platform& platform = world.platform();
  Json prefs = Json::array();
  for (const Protocol::RouteExplanation::PreferenceStep& p : e.preferences()) {
    Json types = Json::array();
    for (const Protocol::RouteExplanation::ViaTypeStep& t : p.viaTypes) {
      Json vias = Json::array();
      for (const Protocol::RouteExplanation::Via& v : t.vias) {
        Json via = viaJson(platform, v.key);
        via["metric"] = v.metric;
        via["verdict"] = std::string(Protocol::viaVerdictText(v.verdict));
        vias.push_back(via);
      }
      types.push_back(Json{{"viaType", text(t.viaType.viaType())},
                           {"mostPreferred", t.mostPreferred},
                           {"vias", vias}});
    }
    prefs.push_back(Json{
        {"preference", p.preference}, {"fecType", p.fecType}, {"won", p.won}, {"viaTypes", types}});
  }
  Json j;
  j["vrf"] = std::string(vrf.value());
  j["prefix"] = text(prefix);
  j["inStatus"] = e.inStatus();
  j["outcome"] = outcomeName(e.outcome());
  j["preferences"] = prefs;
  j["lowestMetric"] = e.metricCutApplied() ? Json(e.lowestMetric()) : Json();
  j["route"] = e.ribRoute() ? routeJson(platform, *e.ribRoute()) : Json();
  return j;
}

Json bfd(const World& world) {
  const Platform& platform = world.platform();
  std::vector<const Routing::BfdTrackedStaticRoutes*> entries;
  for (const auto& e : platform.bfdList()->route()) entries.push_back(e.ptr());
  std::sort(entries.begin(), entries.end(),
            [](const auto* a, const auto* b) { return a->key() < b->key(); });
  Json out = Json::array();
  for (const Routing::BfdTrackedStaticRoutes* e : entries) {
    std::vector<const Routing::TrackedViaList*> routes;
    for (const auto& r : e->dependantRoute()) routes.push_back(r.ptr());
    std::sort(routes.begin(), routes.end(),
              [](const auto* a, const auto* b) { return a->routeKey() < b->routeKey(); });
    Json rj = Json::array();
    for (const Routing::TrackedViaList* r : routes) {
      std::vector<Routing::Via> vias;
      for (const Routing::Via& v : r->trackedVia()) vias.push_back(v);
      std::sort(vias.begin(), vias.end());
      Json vj = Json::array();
      for (const Routing::Via& v : vias)
        vj.push_back(viaJson(Rib::Via(v.addr(), v.intf(), v.label())));
      rj.push_back(Json{{"prefix", text(r->routeKey().prefix())},
                        {"preference", r->routeKey().preference()},
                        {"vias", vj}});
    }
    const Pando::IntfId& intf = e->key().intf();
    out.push_back(Json{
        {"nexthop", text(e->key().addr())},
        {"interface", intf.isEmpty() ? Json() : Json(std::string(intf.name().view()))},
        {"up", e->status()},
        {"resolvedInterface",
         e->resolvedIntf().isEmpty() ? Json() : Json(std::string(e->resolvedIntf().name().view()))},
        {"routes", rj}});
  }
  return Json{{"entries", out}};
}

Json intf(const World& world, const L3::VrfName& vrf) {
  const Platform& platform = world.platform();
  // Each family's interfaces and their routing flag, by name.
  std::map<Pando::IntfId, bool> byFamily[2];
  if (auto s = platform.ipStatus()->vrfIpIntfStatus(vrf)) {
    for (const auto& i : s->ipIntfStatus()) byFamily[0][i->intfId()] = i->dpRoutingEnabled();
  }
  if (auto s = platform.ip6Status()->vrfIp6IntfStatus(vrf)) {
    for (const auto& i : s->ip6IntfStatus()) byFamily[1][i->intfId()] = i->dpRoutingEnabled();
  }
  Json interfaces = Json::array();
  Json changes;
  for (const Pando::AddressFamily af : {Pando::AddressFamily::ipv4, Pando::AddressFamily::ipv6}) {
    Protocol::ContainerSm* c = world.container(vrf, af);
    const Protocol::IntfStatus* view = c ? c->intfStatus().ptr() : nullptr;
    changes[familyName(af)] = view ? Json(view->intfStatusChanged()) : Json();
    for (const auto& [name, routing] : byFamily[af == Pando::AddressFamily::ipv6]) {
      interfaces.push_back(Json{{"interface", std::string(name.name().view())},
                                {"family", familyName(af)},
                                {"routing", routing},
                                {"usable", view ? Json(view->intf(name)) : Json()}});
    }
  }
  return Json{{"vrf", std::string(vrf.value())}, {"interfaces", interfaces}, {"changes", changes}};
}

Json trace(const std::string& facility, size_t n) {
  const Kel::TraceFacility* f = Kel::TraceRegistry::instance().facility(facility);
  Json records = Json::array();
  if (f != nullptr) {
    const Kel::Ringlog& ring = f->ringlog();
    for (size_t i = ring.size() > n ? ring.size() - n : 0; i < ring.size(); ++i) {
      records.push_back(Json{{"level", int(ring.record(i).level)}, {"message", ring.message(i)}});
    }
  }
  return Json{{"facility", facility}, {"records", records}};
}

Json stats(const World& world, const LoopStats& loop) {
  uint64_t evaluations = world.droppedEvaluations();
  uint64_t slices = world.droppedReviewSlices();
  uint64_t complete = 0;
  for (const World::ContainerRef& c : world.containers()) {
    if (const Protocol::RouteStatusSm* sm = c.container->routeStatusSm()) {
      evaluations += sm->evaluations();
      slices += sm->reviewSlices();
      complete += sm->reviewedOnce();
    }
  }
  uint64_t routes = 0;
  for (const World::RibTable& t : world.ribTables()) routes += t.routes->routeSize();
  const Kel::Pool::Usage usage = Kel::Pool::usage();
  return Json{{"evaluations", evaluations},
              {"reviewSlices", slices},
              {"reviewsComplete", complete},
              {"longestSlice", loop.longestSlice},
              {"turns", loop.turns},
              {"containers", world.containers().size()},
              {"ribRoutes", routes},
              {"viaSets", world.viaSetConfig() ? world.viaSetConfig()->size() : 0},
              {"memory", Json{{"requested", usage.requested}, {"held", usage.held}}}};
}

}  // namespace IpRibAgent::Show
