// What the show commands report, as JSON values: the one model that both
// the `json` form prints as it is and the text form (ShowText.h) renders.
//
// Everything is sorted (VRF id, then family, then prefix; via sets by id;
// BFD entries by key), never in hash order, so that output is reproducible.
// Vias appear as next hop, interface and label, never as via keys.
// Shapes are documented in the README and are stable.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "agent/World.h"

namespace IpRibAgent::Show {

using Json = nlohmann::ordered_json;

struct RibFilter {
  std::optional<L3::VrfName> vrf;
  std::optional<Pando::AddressFamily> af;
  std::optional<Pando::IpGenPrefix> prefix;
};

// {"routes": [{"vrf", "vrfId", "prefix", "preference", "metric", "tag", "fib",
//   "viaSetId", "viaSetFlags", "vias": [{"nexthop", "interface", "label"}]}]}
Json rib(const World& world, const RibFilter& filter);
// {"viaSets": [{"id", "flags", "routes", "vias": [...]}]}
Json viaSets(const World& world);
// The evaluation's walk of one prefix, with each via's verdict; null when
// the VRF serves no container for the prefix's family.
Json explain(World& world, const L3::VrfName& vrf, const Pando::IpGenPrefix& prefix);
// {"entries": [{"nexthop", "interface", "up", "resolvedInterface",
//   "routes": [{"prefix", "preference", "vias": [...]}]}]}
Json bfd(const World& world);
// {"vrf", "interfaces": [{"interface", "family", "routing", "usable"}],
//  "changes": {"ipv4": N|null, "ipv6": N|null}}
Json intf(const World& world, const L3::VrfName& vrf);
// {"readyVrfIpv4": [NAME], "readyVrfIpv6", "mcReadyVrfIpv4", "mcReadyVrfIpv6",
//  "vrfs": [{"vrf", "vrfId", "families": [{"family", "multicast", "ready",
//    "waitingFor": [TEXT]}]}],
//  "vrfReadyStatus": [{"vrf", "v4RoutesReady", "v6RoutesReady",
//    "ribReadySeqStatus", "v4RouteReviewComplete", "v6RouteReviewComplete",
//    "ribReadySeqTrigger"}]}; with `vrf`, that VRF's entries only.
Json ready(const World& world, const std::optional<L3::VrfName>& vrf);
// {"vrf", "vrfId", "routes": [{"family", "prefix", "preference", "metric",
//   "sourceVrf", "sourceVrfId", "alsoOfferedBy": [{"vrf", "vrfId"}]}]}: the
// routes leaked into the VRF (its LeakRouteConfig), each with the source
// that won it and the others that offer it too.
Json leak(const World& world, const L3::VrfName& vrf);
// {"dump": TEXT|null}: the root's state dump (null before start).
Json dump(const World& world);
// {"facility", "records": [{"level", "message"}]}: the newest n of its ring.
Json trace(const std::string& facility, size_t n);

struct LoopStats {
  double longestSlice;
  uint64_t turns;
};
// {"evaluations", "reviewSlices", "reviewsComplete", "longestSlice", "turns",
//  "containers", "ribRoutes", "viaSets", "leakedRoutes",
//  "memory": {"requested", "held"}}
Json stats(const World& world, const LoopStats& loop);

}  // namespace IpRibAgent::Show
