// What the protocol publishes: route, no route, initialized, leak, no leak.
#include <set>
#include <string>
#include <tuple>

#include "agent/Interpreter.h"

namespace IpRibAgent {

namespace {

using Routing::Protocol::ViaTypeEnum;

// via NEXTHOP[%IFNAME] [type T] [label L] [metric M] [bfd]
ViaSpec viaSpec(Line& line) {
  ViaSpec v;
  v.nextHop = line.nextHop();
  v.type = v.nextHop.intf.isEmpty() ? ViaTypeEnum::viaNextHopOnly : ViaTypeEnum::viaIntfNextHop;
  for (bool more = true; more;) {
    if (line.accept("type")) {
      static constexpr ViaTypeEnum types[] = {ViaTypeEnum::viaIntfNextHop,
                                              ViaTypeEnum::viaNextHopOnly, ViaTypeEnum::viaIntfOnly,
                                              ViaTypeEnum::viaDefault};
      v.type = types[line.keyword({"intf-nexthop", "nexthop", "intf", "default"})];
    } else if (line.accept("label")) {
      v.label = uint32_t(line.number("a label", Rib::Via::maxLabel));
    } else if (line.accept("metric")) {
      v.metric = Routing::RouteMetric(line.number("a metric", UINT32_MAX));
    } else if (line.accept("bfd")) {
      v.bfd = true;
    } else {
      more = false;
    }
  }
  return v;
}

void routeCommand(Line& line, Interpreter& in) {
  const L3::VrfName vrf = line.vrfName();
  const Pando::IpGenPrefix prefix = line.prefix();
  line.expect("pref");
  const auto pref = Routing::RoutePreference(line.number("a preference", 255));
  PrefSpec spec;
  bool fec = false;
  for (bool more = true; more;) {
    if (line.accept("fec")) {
      spec.fecType = uint8_t(line.number("a FEC type", 255));
      fec = true;
    } else if (line.accept("tag")) {
      spec.tag = uint32_t(line.number("a tag", UINT32_MAX));
    } else if (line.accept("no-fib")) {
      spec.installInFib = false;
    } else {
      more = false;
    }
  }
  std::set<std::tuple<ViaTypeEnum, NextHop, uint32_t>> seen;
  while (!line.atEnd() || (spec.vias.empty() && !fec)) {
    line.expect("via");
    ViaSpec v = viaSpec(line);
    if (!seen.emplace(v.type, v.nextHop, v.label).second) {
      line.refuseLast("each via once");
    }
    spec.vias.push_back(std::move(v));
  }
  line.end();
  in.world().protocol().routeIs(vrf, prefix, pref, spec);
}

void noRouteCommand(Line& line, Interpreter& in) {
  const L3::VrfName vrf = line.vrfName();
  const Pando::IpGenPrefix prefix = line.prefix();
  std::optional<Routing::RoutePreference> pref;
  if (line.accept("pref")) pref = Routing::RoutePreference(line.number("a preference", 255));
  line.end();
  if (!in.world().protocol().routeDel(vrf, prefix, pref)) {
    line.refuseLast(pref ? "a preference the route has" : "a route the protocol has");
  }
}

void initializedCommand(Line& line, Interpreter& in) {
  const L3::VrfName vrf = line.vrfName();
  const Pando::AddressFamily af = line.family();
  line.end();
  in.world().protocol().initializedIs(vrf, af);
}

// leak VRF PREFIX to VRF2: the target need not be declared yet; the route
// leaks once a VRF of that name is.
void leakCommand(Line& line, Interpreter& in) {
  const L3::VrfName vrf = line.vrfName();
  const std::string prefixWord(line.peek());
  const Pando::IpGenPrefix prefix = line.prefix();
  line.expect("to");
  const L3::VrfName to = line.vrfName();
  if (to == vrf) line.refuseLast("a VRF other than the route's own");
  line.end();
  if (!in.world().protocol().leakIs(vrf, prefix, to)) {
    throw CommandError(prefixWord, "a route the protocol has in VRF " + std::string(vrf.value()));
  }
}

void noLeakCommand(Line& line, Interpreter& in) {
  const L3::VrfName vrf = line.vrfName();
  const Pando::IpGenPrefix prefix = line.prefix();
  line.end();
  if (!in.world().protocol().leakDel(vrf, prefix)) line.refuseLast("a prefix that leaks");
}

}  // namespace

const std::vector<Command>& protocolCommands() {
  static const std::vector<Command> commands = {
      {"route",
       "route VRF PREFIX pref P [fec F] [tag T] [no-fib] via NEXTHOP[%IFNAME] "
       "[type intf-nexthop|nexthop|intf|default] [label L] [metric M] [bfd] ...",
       routeCommand},
      {"no route", "no route VRF PREFIX [pref P]", noRouteCommand},
      {"initialized", "initialized VRF ipv4|ipv6", initializedCommand},
      {"leak", "leak VRF PREFIX to VRF2", leakCommand},
      {"no leak", "no leak VRF PREFIX", noLeakCommand},
  };
  return commands;
}

}  // namespace IpRibAgent
