// What the platform, the RIB and the BFD agent publish: vrf, vrf-input,
// interface, via-metric, looping-route, bfd, and their no forms.
#include <string>

#include "agent/Interpreter.h"

namespace IpRibAgent {

namespace {

void vrfCommand(Line& line, Interpreter& in) {
  const L3::VrfName name = line.vrfName();
  line.expect("id");
  const auto id = Vrf::VrfIdMap::VrfId(line.number("a VRF id", Vrf::VrfIdMap::invalidVrfId - 1));
  if (const L3::VrfName* holder = in.world().platform().vrfName(id); holder && *holder != name) {
    line.refuseLast("an id no other VRF holds (VRF " + std::string(holder->value()) + " has it)");
  }
  const bool bare = line.accept("bare");
  line.end();
  in.world().platform().vrfIs(name, id, bare);
}

void noVrfCommand(Line& line, Interpreter& in) {
  const L3::VrfName name = declaredVrf(line, in);
  line.end();
  in.world().platform().vrfDel(name);
}

void vrfInputCommand(Line& line, Interpreter& in) {
  const L3::VrfName name = declaredVrf(line, in);
  const auto input = VrfInput(line.keyword({"metric", "looping", "intf"}));
  const Pando::AddressFamily af = line.family();
  const RibKind rib = line.accept("mrib") ? RibKind::multicast : RibKind::unicast;
  const bool on = line.onOff();
  line.end();
  in.world().platform().vrfInputIs(name, input, af, rib, on);
}

struct InterfaceArgs {
  L3::VrfName vrf;
  Pando::IntfId intf;
  Pando::AddressFamily af;
};

InterfaceArgs interfaceArgs(Line& line, Interpreter& in) {
  InterfaceArgs a;
  a.vrf = declaredVrf(line, in);
  a.intf = line.intf();
  a.af = line.family();
  return a;
}

void interfaceCommand(Line& line, Interpreter& in) {
  const InterfaceArgs a = interfaceArgs(line, in);
  line.expect("routing");
  const bool on = line.onOff();
  line.end();
  in.world().platform().interfaceIs(a.vrf, a.intf, a.af, on);
}

void noInterfaceCommand(Line& line, Interpreter& in) {
  const InterfaceArgs a = interfaceArgs(line, in);
  line.end();
  if (!in.world().platform().interfaceDel(a.vrf, a.intf, a.af)) {
    line.refuseLast("an interface the VRF has");
  }
}

struct ViaMetricArgs {
  RibKind rib;
  L3::VrfName vrf;
  Rib::Transport transport;
  NextHop nextHop;
};

ViaMetricArgs viaMetricArgs(Line& line, Interpreter& in) {
  ViaMetricArgs a;
  a.rib = line.accept("mrib") ? RibKind::multicast : RibKind::unicast;
  a.vrf = declaredVrf(line, in);
  a.transport = Rib::Transport(line.keyword({"ipv4", "ipv6", "evpn"}) + 1);
  a.nextHop = line.nextHop();
  const Pando::AddressFamily af = a.nextHop.addr.af();
  if ((a.transport == Rib::Transport::ipv4 && af != Pando::AddressFamily::ipv4) ||
      (a.transport == Rib::Transport::ipv6 && af != Pando::AddressFamily::ipv6)) {
    line.refuseLast("a next hop of the transport's family");
  }
  return a;
}

void viaMetricCommand(Line& line, Interpreter& in) {
  const ViaMetricArgs a = viaMetricArgs(line, in);
  line.expect("metric");
  NextHopMetric m;
  m.metric = Routing::RouteMetric(line.number("a metric", UINT32_MAX));
  m.looping = line.accept("looping");
  line.end();
  in.world().platform().viaMetricIs(a.rib, a.vrf, a.transport, a.nextHop, m);
}

void noViaMetricCommand(Line& line, Interpreter& in) {
  const ViaMetricArgs a = viaMetricArgs(line, in);
  line.end();
  if (!in.world().platform().viaMetricDel(a.rib, a.vrf, a.transport, a.nextHop)) {
    line.refuseLast("a next hop given a metric with via-metric");
  }
}

struct LoopArgs {
  L3::VrfName vrf;
  Pando::IpGenPrefix prefix;
  NextHop nextHop;
};

LoopArgs loopArgs(Line& line, Interpreter& in) {
  LoopArgs a;
  a.vrf = declaredVrf(line, in);
  a.prefix = line.prefix();
  a.nextHop = line.nextHop();
  return a;
}

void loopingRouteCommand(Line& line, Interpreter& in) {
  const LoopArgs a = loopArgs(line, in);
  line.end();
  in.world().platform().loopingRouteIs(a.vrf, a.prefix, a.nextHop);
}

void noLoopingRouteCommand(Line& line, Interpreter& in) {
  const LoopArgs a = loopArgs(line, in);
  line.end();
  if (!in.world().platform().loopingRouteDel(a.vrf, a.prefix, a.nextHop)) {
    line.refuseLast("a next hop given to looping-route for the prefix");
  }
}

void bfdCommand(Line& line, Interpreter& in) {
  const NextHop peer = line.nextHop();
  const bool up = line.keyword({"up", "down"}) == 0;
  Pando::IntfId resolved = peer.intf;
  if (line.accept("resolved")) {
    resolved = line.intf();
  } else if (up && resolved.isEmpty()) {
    line.word("resolved IFNAME");
    line.refuseLast("resolved IFNAME (where the session runs)");
  }
  line.end();
  in.world().platform().bfdSessionIs(peer, up, resolved);
}

// The RIB side asks for a review of a VRF's routes.
void ribSeqCommand(Line& line, Interpreter& in) {
  const L3::VrfName vrf = declaredVrf(line, in);
  const auto seq = uint32_t(line.number("a sequence number", UINT32_MAX));
  line.end();
  const Kel::Ptr<Routing::Protocol::VrfRibSeqTrigger> trigger =
      in.world().agentPlatform().allVrfRibSeqTrigger->vrfRibSeqTrigger(vrf);
  if (!trigger) {
    throw CommandError(std::string(vrf.value()),
                       "a VRF with readiness records (the library makes them once it has started)");
  }
  trigger->ribReadySeqTriggerIs(seq);
}

void readyVerificationCommand(Line& line, Interpreter& in) {
  line.expect("start");
  if (!in.world().started()) line.refuseLast("start first (the library is not running)");
  line.end();
  in.world().rootSm()->grState()->startReadyVerificationIs(true);
}

}  // namespace

const std::vector<Command>& platformCommands() {
  static const std::vector<Command> commands = {
      {"vrf", "vrf NAME id N [bare]", vrfCommand},
      {"no vrf", "no vrf NAME", noVrfCommand},
      {"vrf-input", "vrf-input VRF metric|looping|intf ipv4|ipv6 [mrib] on|off", vrfInputCommand},
      {"interface", "interface VRF IFNAME ipv4|ipv6 routing on|off", interfaceCommand},
      {"no interface", "no interface VRF IFNAME ipv4|ipv6", noInterfaceCommand},
      {"via-metric", "via-metric [mrib] VRF ipv4|ipv6|evpn NEXTHOP[%IFNAME] metric M [looping]",
       viaMetricCommand},
      {"no via-metric", "no via-metric [mrib] VRF ipv4|ipv6|evpn NEXTHOP[%IFNAME]",
       noViaMetricCommand},
      {"looping-route", "looping-route VRF PREFIX NEXTHOP[%IFNAME]", loopingRouteCommand},
      {"no looping-route", "no looping-route VRF PREFIX NEXTHOP[%IFNAME]", noLoopingRouteCommand},
      {"bfd", "bfd NEXTHOP[%IFNAME] up|down [resolved IFNAME]", bfdCommand},
      {"rib-seq", "rib-seq VRF N", ribSeqCommand},
      {"ready-verification", "ready-verification start", readyVerificationCommand},
  };
  return commands;
}

}  // namespace IpRibAgent
