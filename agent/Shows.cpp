#include "agent/Shows.h"

#include <algorithm>
#include <map>
#include <vector>

#include "IpRib/ProtocolRouteStatusExplain.h"
#include "Kel/Pool.h"
#include "Kel/Trace.h"
#include "platform/Quay/DumpContext.h"
#include "platform/Routing/Rib/RoutingProtocolHelper.h"

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

Json names(const Kel::HashedSet<L3::VrfName>& set, const std::optional<L3::VrfName>& only) {
  std::vector<std::string> out;
  for (const L3::VrfName& n : set) {
    if (!only || n == *only) out.emplace_back(n.value());
  }
  std::sort(out.begin(), out.end());
  return Json(out);
}

// The inputs a VRF's family still lacks, read off the platform: what the
// root's readiness rule asks for, in its order, for people to read.
Json waitingFor(const World& world, const L3::VrfName& vrf, Pando::AddressFamily af,
                bool multicast) {
  const Platform& p = world.platform();
  const RibKind rib = multicast ? RibKind::multicast : RibKind::unicast;
  const std::string family = familyName(af);
  const std::string prefix = multicast ? "mrib " : "";
  Json out = Json::array();
  if (multicast && !Rib::RoutingProtocolHelper::mribProtocol(world.setup().protocol)) {
    out.push_back("a protocol that feeds the mrib");
    return out;
  }
  if (!p.vrfInput(vrf, VrfInput::metric, af, rib)) {
    out.push_back(prefix + family + " via metric status");
  }
  if (!multicast) {
    const Rib::Transport dflt[] = {Rib::Transport::ipv4, Rib::Transport::ipv6,
                                   Rib::Transport::evpn};
    for (const Rib::Transport t : dflt) {
      if (!p.viaMetricStatus(RibKind::unicast, Vrf::VrfIdMap::defaultVrfId, t)) {
        out.push_back("the default VRF's " +
                      std::string(t == Rib::Transport::ipv4   ? "ipv4"
                                  : t == Rib::Transport::ipv6 ? "ipv6"
                                                              : "evpn") +
                      " via metric status");
      }
    }
  }
  if (!p.vrfInput(vrf, VrfInput::intf, af, rib) &&
      (multicast || !world.setup().ipIntfCheckNotNeeded)) {
    out.push_back(family + " interface status");
  }
  if (!p.vrfInput(vrf, VrfInput::looping, af, rib)) {
    out.push_back(prefix + family + " looping-route status");
  }
  // The start evaluates multicast IPv4 alone: the other families of a VRF
  // known before then wait for a change of their own inputs.
  if (out.empty()) out.push_back("a change of one of its inputs");
  return out;
}

}  // namespace

Json ready(const World& world, const std::optional<L3::VrfName>& vrf) {
  using Kind = Protocol::ReadyVrfSets::Kind;
  const Protocol::RootSm* root = world.rootSm();
  Json j;
  static constexpr std::pair<const char*, Kind> sets[] = {{"readyVrfIpv4", Kind::ipv4},
                                                          {"readyVrfIpv6", Kind::ipv6},
                                                          {"mcReadyVrfIpv4", Kind::mcIpv4},
                                                          {"mcReadyVrfIpv6", Kind::mcIpv6}};
  for (const auto& [name, kind] : sets) {
    j[name] = root ? names(root->readyVrfSets()->set(kind), vrf) : Json::array();
  }
  std::vector<std::pair<Vrf::VrfIdMap::VrfId, L3::VrfName>> vrfs;
  for (const auto& e : world.platform().nameToIdMap().vrfNameToId()) {
    if (!vrf || e.name == *vrf) vrfs.emplace_back(e.id, e.name);
  }
  std::sort(vrfs.begin(), vrfs.end());
  Json vj = Json::array();
  for (const auto& [id, name] : vrfs) {
    Json families = Json::array();
    for (const auto& [set, kind] : sets) {
      const bool mc = kind == Kind::mcIpv4 || kind == Kind::mcIpv6;
      const Pando::AddressFamily af = kind == Kind::ipv4 || kind == Kind::mcIpv4
                                          ? Pando::AddressFamily::ipv4
                                          : Pando::AddressFamily::ipv6;
      const bool isReady = root && root->readyVrfSets()->has(kind, name);
      families.push_back(Json{{"family", familyName(af)},
                              {"multicast", mc},
                              {"ready", isReady},
                              {"waitingFor", isReady ? Json::array()
                                             : root  ? waitingFor(world, name, af, mc)
                                                     : Json::array({"start"})}});
    }
    vj.push_back(Json{{"vrf", std::string(name.value())}, {"vrfId", id}, {"families", families}});
  }
  j["vrfs"] = vj;
  std::vector<const Protocol::VrfReadyStatus*> records;
  for (const auto& r : world.agentPlatform().allVrfReadyStatus->vrfReadyStatus()) {
    if (!vrf || r->vrfName() == *vrf) records.push_back(r.ptr());
  }
  std::sort(records.begin(), records.end(),
            [](const auto* a, const auto* b) { return a->vrfName() < b->vrfName(); });
  Json rj = Json::array();
  for (const Protocol::VrfReadyStatus* r : records) {
    const auto trigger = world.agentPlatform().allVrfRibSeqTrigger->vrfRibSeqTrigger(r->vrfName());
    rj.push_back(
        Json{{"vrf", std::string(r->vrfName().value())},
             {"v4RoutesReady", r->v4RoutesReady()},
             {"v6RoutesReady", r->v6RoutesReady()},
             {"ribReadySeqStatus", r->ribReadySeqStatus()},
             {"v4RouteReviewComplete", r->v4RouteReviewComplete()},
             {"v6RouteReviewComplete", r->v6RouteReviewComplete()},
             {"ribReadySeqTrigger", trigger ? Json(trigger->ribReadySeqTrigger()) : Json()}});
  }
  j["vrfReadyStatus"] = rj;
  return j;
}

Json rib(const World& world, const RibFilter& filter) {
  const Platform& platform = world.platform();
  std::optional<Vrf::VrfIdMap::VrfId> vrfId;
  if (filter.vrf) vrfId = platform.vrfId(*filter.vrf);
  std::vector<const Rib::Route*> sorted;
  for (const Rib::RouteConfig* t : world.ribTables()) {
    for (const Rib::Route& r : t->route()) {
      const Rib::RouteKey& k = r.key();
      if ((vrfId && k.vrfId() != *vrfId) || (filter.af && k.prefix().af() != *filter.af) ||
          (filter.prefix && k.prefix() != *filter.prefix)) {
        continue;
      }
      sorted.push_back(&r);
    }
  }
  std::sort(sorted.begin(), sorted.end(), [](const Rib::Route* a, const Rib::Route* b) {
    const Rib::RouteKey &x = a->key(), &y = b->key();
    return x.vrfId() != y.vrfId() ? x.vrfId() < y.vrfId() : x.prefix() < y.prefix();
  });
  Json routes = Json::array();
  for (const Rib::Route* r : sorted) routes.push_back(routeJson(platform, *r));
  return Json{{"routes", routes}};
}

Json viaSets(const World& world) {
  std::map<Rib::Id, uint32_t> users;
  for (const Rib::RouteConfig* t : world.ribTables()) {
    for (const Rib::Route& r : t->route()) {
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

Json leak(const World& world, const L3::VrfName& vrf) {
  const Platform& platform = world.platform();
  const LeakSide* side = world.leak();
  Json routes = Json::array();
  for (const Pando::AddressFamily af : {Pando::AddressFamily::ipv4, Pando::AddressFamily::ipv6}) {
    const Protocol::LeakRouteConfig* config = side ? side->leakRouteConfig(vrf, af) : nullptr;
    if (config == nullptr) continue;
    std::vector<const Protocol::LeakRoute*> sorted;
    for (const Protocol::LeakRouteRef& lr : config->leakRoute()) sorted.push_back(lr.get());
    std::sort(sorted.begin(), sorted.end(),
              [](const auto* a, const auto* b) { return a->key() < b->key(); });
    const auto input = side->root().demuxSmSet(config->vrfAf());
    for (const Protocol::LeakRoute* lr : sorted) {
      const Vrf::VrfIdMap::VrfId won = lr->vrfAf().vrfId();
      std::vector<Vrf::VrfIdMap::VrfId> others;
      for (const auto& list : input->leakRouteList()) {
        const Vrf::VrfIdMap::VrfId src = list->vrfAf().srcVrf();
        if (src != won && list->leakRoute(lr->key())) others.push_back(src);
      }
      std::sort(others.begin(), others.end());
      Json also = Json::array();
      for (const Vrf::VrfIdMap::VrfId id : others) {
        also.push_back(Json{{"vrf", vrfNameOf(platform, id)}, {"vrfId", id}});
      }
      routes.push_back(Json{{"family", familyName(af)},
                            {"prefix", text(lr->key().prefix())},
                            {"preference", lr->key().preference()},
                            {"metric", lr->route()->metric()},
                            {"sourceVrf", vrfNameOf(platform, won)},
                            {"sourceVrfId", won},
                            {"alsoOfferedBy", also}});
    }
  }
  return Json{
      {"vrf", std::string(vrf.value())}, {"vrfId", platform.vrfId(vrf)}, {"routes", routes}};
}

Json dump(const World& world) {
  const Protocol::RootSm* root = world.rootSm();
  if (root == nullptr) return Json{{"dump", nullptr}};
  const Kel::Ptr<Quay::DumpContext> ctx = Quay::dumpContextFactory();
  root->dumpState(ctx, 0);
  return Json{{"dump", ctx->text()}};
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
  for (const Rib::RouteConfig* t : world.ribTables()) routes += t->routeSize();
  const Kel::Pool::Usage usage = Kel::Pool::usage();
  return Json{{"evaluations", evaluations},
              {"reviewSlices", slices},
              {"reviewsComplete", complete},
              {"longestSlice", loop.longestSlice},
              {"turns", loop.turns},
              {"containers", world.containers().size()},
              {"ribRoutes", routes},
              {"viaSets", world.viaSetConfig() ? world.viaSetConfig()->size() : 0},
              {"leakedRoutes", world.leak() ? world.leak()->leakedRoutes() : 0},
              {"memory", Json{{"requested", usage.requested}, {"held", usage.held}}}};
}

}  // namespace IpRibAgent::Show
