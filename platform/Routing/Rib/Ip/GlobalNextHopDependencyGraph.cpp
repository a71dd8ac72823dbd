#include "platform/Routing/Rib/Ip/GlobalNextHopDependencyGraph.h"

#include <string>
#include <utility>

#include "Kel/Assert.h"
#include "Kel/Error.h"

namespace Routing::Rib::Ip {

Kel::String GlobalNextHopDependencyGraph::mountPath(std::string_view ribString) {
  if (ribString != Rib::ribString && ribString != mribString) {
    throw Kel::RangeError("GlobalNextHopDependencyGraph::mountPath: unknown rib '" +
                          std::string(ribString) + "'");
  }
  return Kel::String("routing/" + std::string(ribString) + "/nhDependencyGraph");
}

void GlobalNextHopDependencyGraph::viaNextHopIs(const ViaKey& k, const Pando::IpGenAddr& nextHop) {
  viaNextHop_.insert(NextHopEntry{k, nextHop}).first->nextHop = nextHop;
}

void GlobalNextHopDependencyGraph::viaNextHopDel(const ViaKey& k) { viaNextHop_.erase(k); }

std::optional<size_t> GlobalNextHopDependencyGraph::familyIndex(Pando::AddressFamily af) {
  switch (af) {
    case Pando::AddressFamily::ipv4:
      return 0;
    case Pando::AddressFamily::ipv6:
      return 1;
    default:
      return std::nullopt;
  }
}

const std::vector<ViaKey>* GlobalNextHopDependencyGraph::routeVias(
    Vrf::VrfIdMap::VrfId vrfId, const Pando::IpGenPrefix& prefix) const {
  const VrfRoutes* vrf = vrfRoutes(vrfId);
  const std::optional<size_t> f = familyIndex(prefix.af());
  if (vrf == nullptr || !f) return nullptr;
  const std::vector<RouteMap>& byLen = vrf->byLen[*f];
  if (byLen.empty()) return nullptr;
  auto it = byLen[prefix.len()].find(prefix);
  return it == byLen[prefix.len()].end() ? nullptr : &it->second;
}

void GlobalNextHopDependencyGraph::routeViasIs(Vrf::VrfIdMap::VrfId vrfId,
                                               const Pando::IpGenPrefix& prefix,
                                               std::vector<ViaKey> vias) {
  const std::optional<size_t> f = familyIndex(prefix.af());
  KEL_ASSERT(f.has_value());
  VrfRoutes& vrf = routes_.insert(VrfEntry{vrfId, {}}).first->routes;
  std::vector<RouteMap>& byLen = vrf.byLen[*f];
  if (byLen.empty()) byLen.resize(Pando::IpGenPrefix::maxLen(prefix.af()) + 1u);
  auto [it, inserted] = byLen[prefix.len()].insert_or_assign(prefix, std::move(vias));
  if (inserted) {
    ++vrf.size;
    ++routeCount_;
  }
}

void GlobalNextHopDependencyGraph::routeViasDel(Vrf::VrfIdMap::VrfId vrfId,
                                                const Pando::IpGenPrefix& prefix) {
  VrfEntry* vrf = routes_.find(vrfId);
  const std::optional<size_t> f = familyIndex(prefix.af());
  if (vrf == nullptr || !f) return;
  std::vector<RouteMap>& byLen = vrf->routes.byLen[*f];
  if (byLen.empty() || byLen[prefix.len()].erase(prefix) == 0) return;
  --routeCount_;
  if (--vrf->routes.size == 0) routes_.erase(vrfId);
}

std::optional<GlobalNextHopDependencyGraph::Match> GlobalNextHopDependencyGraph::longestMatch(
    const VrfRoutes* routes, const Pando::IpGenAddr& addr, const Pando::IpGenPrefix& candidate) {
  const std::optional<size_t> f = familyIndex(addr.af());
  if (!f) return std::nullopt;
  const std::vector<RouteMap>* byLen = routes ? &routes->byLen[*f] : nullptr;
  if (byLen != nullptr && byLen->empty()) byLen = nullptr;
  for (int len = Pando::IpGenPrefix::maxLen(addr.af()); len >= 0; --len) {
    if (candidate.len() == len && candidate.contains(addr)) return Match{candidate, nullptr};
    if (byLen == nullptr || (*byLen)[len].empty()) continue;
    const Pando::IpGenPrefix p(addr, uint8_t(len));
    auto it = (*byLen)[len].find(p);
    if (it != (*byLen)[len].end()) return Match{p, &it->second};
  }
  return std::nullopt;
}

bool GlobalNextHopDependencyGraph::reaches(
    const VrfRoutes* routes, const Pando::IpGenAddr& addr, const Pando::IpGenPrefix& prefix,
    uint32_t depth, std::unordered_set<Pando::IpGenPrefix, PrefixHash>& visited) const {
  if (depth == maxDepth) return false;
  const std::optional<Match> m = longestMatch(routes, addr, prefix);
  if (!m) return false;
  if (m->prefix == prefix) return true;
  // A route met again adds no path; it also ends loops that miss `prefix`.
  if (!visited.insert(m->prefix).second) return false;
  for (const ViaKey& v : *m->vias) {
    const Pando::IpGenAddr* nextHop = viaNextHop(v);
    if (nextHop != nullptr && reaches(routes, *nextHop, prefix, depth + 1, visited)) return true;
  }
  return false;
}

bool GlobalNextHopDependencyGraph::reachesFrom(const VrfRoutes* routes,
                                               const Pando::IpGenAddr& nextHop,
                                               const Pando::IpGenPrefix& prefix) const {
  std::unordered_set<Pando::IpGenPrefix, PrefixHash> visited;
  return reaches(routes, nextHop, prefix, 0, visited);
}

}  // namespace Routing::Rib::Ip
