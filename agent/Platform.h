// The platform side the agent publishes around the library, playing in one
// process what other agents publish on a router: the VRF manager (VRF names
// and ids), the interface service (per-VRF interface status), the RIB's
// inputs to the protocol layer (via metric status per VRF and transport,
// looping-route status, the next-hop dependency graph) and the BFD agent
// (through BfdAgentStub).
//
// A VRF declared in full gets every input a configured VRF has: its via
// metric status for each transport (unicast and multicast), its
// looping-route status per family and RIB, and its interface status per
// family. A bare VRF has its name and id only; inputs come and go one by one.
// The RIB resolves vias by next hop: a metric given for a next hop in a VRF
// and transport is published for every via key the protocol configured with
// that next hop (and, when the metric names one, that interface), now and
// later, while the VRF's metric status for the transport is there.
// Every table is published where the root reactor finds it: in the state
// database (VRF name and id maps, interface status, looping-route status,
// the next-hop dependency graph) and in shared memory (via metric status).
// The BFD tracking list and via status are the agent platform's.
// Decided here: the default VRF (id 0) is declared at start, as on a router.
// Looping routes: `loopingRouteIs(vrf, prefix, via)` tells the dependency
// graph that the via's next hop resolves through `prefix` (a host route of
// the next hop whose only via points into the prefix) and marks the prefix in
// the VRF's looping-route status, which makes route computation ask again.
// Every method checks nothing that the command parser checks already; the
// callers validate first so that a refused command changes nothing.
// One thread. Costs: publishing a metric walks the via keys of its VRF and
// transport; a new via publishes its own metric only.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <tuple>
#include <vector>

#include "IpRib/ProtocolAgentBuilder.h"
#include "Kel/Ptr.h"
#include "agent/Line.h"
#include "platform/Ip/IntfStatus.h"
#include "platform/Ip6/IntfStatus.h"
#include "platform/L3/VrfName.h"
#include "platform/Routing/Bfd/BfdAgentStub.h"
#include "platform/Routing/Bfd/BfdTrackedStaticRoutes.h"
#include "platform/Routing/Rib/Ip/GlobalNextHopDependencyGraph.h"
#include "platform/Routing/Rib/LoopingRouteStatus.h"
#include "platform/Routing/Rib/Transport.h"
#include "platform/Routing/Rib/Via.h"
#include "platform/Routing/Rib/ViaMetricStatus.h"
#include "platform/Routing/RouteTypes.h"
#include "platform/Vrf/NameToIdMap.h"
#include "platform/Vrf/VrfIdMapStatus.h"

namespace IpRibAgent {

namespace Rib = Routing::Rib;

enum class RibKind : uint8_t { unicast = 0, multicast = 1 };
enum class VrfInput : uint8_t { metric, looping, intf };

// One metric the RIB publishes for a next hop.
struct NextHopMetric {
  Routing::RouteMetric metric = 0;
  bool looping = false;
};

class Platform {
 public:
  // Publishes the tables into the agent platform's databases.
  Platform(Rib::RoutingProtocol protocol, const Routing::Protocol::AgentPlatform& agentPlatform);

  // ------------------------------------------------------------ VRF manager
  const Vrf::VrfIdMap::NameToIdMap& nameToIdMap() const { return *vrfNameStatus_->nameToIdMap(); }
  // invalidVrfId when unknown.
  Vrf::VrfIdMap::VrfId vrfId(const L3::VrfName& name) const {
    return nameToIdMap().vrfNameToId(name);
  }
  // Null when no VRF has the id.
  const L3::VrfName* vrfName(Vrf::VrfIdMap::VrfId id) const { return nameToIdMap().vrfName(id); }
  // Declares (or renumbers) a VRF; in full unless `bare`. The id must be free.
  void vrfIs(const L3::VrfName& name, Vrf::VrfIdMap::VrfId id, bool bare);
  void vrfDel(const L3::VrfName& name);
  void vrfInputIs(const L3::VrfName& name, VrfInput input, Pando::AddressFamily af, RibKind rib,
                  bool on);
  bool vrfInput(const L3::VrfName& name, VrfInput input, Pando::AddressFamily af,
                RibKind rib) const;

  // ------------------------------------------------------------ interfaces
  const Kel::Ptr<Ip::Status>& ipStatus() const { return ipStatus_; }
  const Kel::Ptr<Ip6::Status>& ip6Status() const { return ip6Status_; }
  void interfaceIs(const L3::VrfName& vrf, const Pando::IntfId& intf, Pando::AddressFamily af,
                   bool routing);
  // False when there was no such interface.
  bool interfaceDel(const L3::VrfName& vrf, const Pando::IntfId& intf, Pando::AddressFamily af);

  // ------------------------------------------------------------ RIB inputs
  const Kel::Ptr<Rib::ViaMetricStatusByVrf>& viaMetricStatusByVrf(RibKind rib) const {
    return viaMetricStatusByVrf_[size_t(rib)];
  }
  // The VRF's via metric table of `transport` for the protocol; null while absent.
  Kel::Ptr<Rib::ViaMetricStatus> viaMetricStatus(RibKind rib, Vrf::VrfIdMap::VrfId vrfId,
                                                 Rib::Transport transport) const;
  Kel::Ptr<Rib::LoopingRouteStatus> loopingRouteStatus(RibKind rib, Pando::AddressFamily af,
                                                       const L3::VrfName& vrf) const;

  void viaMetricIs(RibKind rib, const L3::VrfName& vrf, Rib::Transport transport, const NextHop& nh,
                   NextHopMetric m);
  // False when no metric was given for the next hop.
  bool viaMetricDel(RibKind rib, const L3::VrfName& vrf, Rib::Transport transport,
                    const NextHop& nh);
  // A via the protocol configured: the RIB learns its next hop and resolves it.
  void viaIs(const Rib::ViaKey& key, const Rib::Via& via);
  // The protocol no longer has the via: its record and metric go.
  void viaDel(const Rib::ViaKey& key);
  // The record of a via the protocol configured; null when unknown.
  const Rib::Via* via(const Rib::ViaKey& key) const;
  uint64_t vias() const { return via_.size(); }
  // False when the loop was not there (for del).
  void loopingRouteIs(const L3::VrfName& vrf, const Pando::IpGenPrefix& prefix, const NextHop& nh);
  bool loopingRouteDel(const L3::VrfName& vrf, const Pando::IpGenPrefix& prefix, const NextHop& nh);

  // ------------------------------------------------------------ BFD agent
  const Kel::Ptr<Routing::BfdTrackedStaticRoutesList>& bfdList() const { return bfdList_; }
  void bfdSessionIs(const NextHop& peer, bool up, const Pando::IntfId& resolved);

 private:
  using MetricKey = std::tuple<RibKind, L3::VrfName, Rib::Transport, NextHop>;
  using LoopKey = std::tuple<L3::VrfName, Pando::IpGenPrefix, NextHop>;

  // The metric the RIB gives a via of the protocol, if any.
  std::optional<NextHopMetric> metricFor(RibKind rib, const L3::VrfName& vrf,
                                         const Rib::ViaKey& key, const Rib::Via& via) const;
  // Writes (or withdraws) the metrics of every known via of the VRF and transport.
  void publishMetrics(RibKind rib, const L3::VrfName& vrf, Rib::Transport transport);
  void publishMetric(Rib::ViaMetricStatus& table, RibKind rib, const L3::VrfName& vrf,
                     const Rib::ViaKey& key, const Rib::Via& via);
  void metricTableIs(RibKind rib, const L3::VrfName& vrf, Rib::Transport transport, bool on);
  // Writes the dependency graph's host route of a looping next hop in a VRF
  // (or drops it when no loop uses the next hop any more).
  void publishLoops(const L3::VrfName& vrf, const Pando::IpGenAddr& nextHop);
  // Publishes (or withdraws) what the VRF's id keys: its metric tables and
  // looping-route status; its interface status (keyed by name); its loops
  // in the graph.
  void vrfTablesIs(const L3::VrfName& vrf, bool on);
  void intfTablesIs(const L3::VrfName& vrf, bool on);
  void loopsIs(const L3::VrfName& vrf, bool on);

  Rib::RoutingProtocol protocol_;
  std::map<L3::VrfName, bool> bare_;  // every VRF declared, and whether bare
  Kel::Ptr<Vrf::VrfIdMap::NameToIdMapWrapper> vrfNameStatus_;
  Kel::Ptr<Ip::Status> ipStatus_ = Kel::makePtr<Ip::Status>();
  Kel::Ptr<Ip6::Status> ip6Status_ = Kel::makePtr<Ip6::Status>();
  std::array<Kel::Ptr<Rib::ViaMetricStatusByVrf>, 2> viaMetricStatusByVrf_;
  Kel::Ptr<Vrf::VrfIdMap::Status> vrfIdStatus_ = Kel::makePtr<Vrf::VrfIdMap::Status>();
  // By RIB, then family.
  std::array<std::array<Kel::Ptr<Rib::LoopingRouteStatusByVrf>, 2>, 2> looping_;
  Kel::Ptr<Rib::Ip::GlobalNextHopDependencyGraph> graph_ =
      Kel::makePtr<Rib::Ip::GlobalNextHopDependencyGraph>();
  Kel::Ptr<Routing::BfdTrackedStaticRoutesList> bfdList_;
  Kel::Ptr<Routing::BfdAgentStub> bfdAgent_;

  std::map<MetricKey, NextHopMetric> metric_;
  std::map<Rib::ViaKey, Rib::Via> via_;
  std::map<LoopKey, uint32_t> loop_;  // the loop's via index in the graph
  uint32_t nextLoopVia_ = 1;
};

}  // namespace IpRibAgent
