// The world the agent runs in one process: the platform side it publishes
// (Platform), the protocol it plays (ProtocolSide), and the library side:
// the RIB's output tables and the protocol layer's containers.
//
// This is the one place that drives the library. For now it builds a
// ContainerSm for each VRF and unicast family whose inputs are all present
// (the VRF's id, its via metric status, looping-route status and, unless
// IP_INTF_CHECK_NOT_NEEDED is set, interface status of the family; the
// default VRF's IPv4, IPv6 and EVPN metric status), and drops it when one
// goes; the protocol's routes are written into each new container's Status.
// Until the root reactor takes over, this file also keeps the directory of
// the containers' status tables and the one ViaMetricStatusSm over it, so
// that a via metric change reaches the routes that use the via. When the
// root lands, the containers follow its ready sets here instead.
// The RIB's tables outlive containers, as a RIB's do: a dropped container's
// routes are deleted from them, its via configuration stays.
// One thread. Costs: refresh() is linear in the number of VRFs.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "IpRib/ProtocolContainerSm.h"
#include "IpRib/ProtocolGrTypes.h"
#include "IpRib/ProtocolViaMetricStatusSm.h"
#include "agent/Platform.h"
#include "agent/Protocol.h"

namespace IpRibAgent {

// What the agent is told before `start`.
struct Setup {
  Rib::RoutingProtocol protocol = 2;
  bool gracefulRestart = false;
  bool ipIntfCheckNotNeeded = false;
};

class World {
 public:
  explicit World(const Setup& setup);
  ~World();
  World(const World&) = delete;
  World& operator=(const World&) = delete;

  const Setup& setup() const { return setup_; }
  // Environment and toggles may change until the library starts.
  void ipIntfCheckNotNeededIs(bool v) { setup_.ipIntfCheckNotNeeded = v; }
  void gracefulRestartIs(bool v) { setup_.gracefulRestart = v; }
  bool started() const { return started_; }
  // Mounts are complete: the library starts serving VRFs.
  void start();

  Platform& platform() { return platform_; }
  const Platform& platform() const { return platform_; }
  ProtocolSide& protocol() { return protocol_; }

  // ------------------------------------------------------------ library side
  struct ContainerRef {
    L3::VrfName vrf;
    Vrf::VrfIdMap::VrfId vrfId;
    Pando::AddressFamily af;
    Routing::Protocol::ContainerSm* container;
  };
  // By VRF id, then family.
  std::vector<ContainerRef> containers() const;
  // Null when the VRF has no container for the family.
  Routing::Protocol::ContainerSm* container(const L3::VrfName& vrf, Pando::AddressFamily af) const;
  const Kel::Ptr<Routing::Protocol::AllVrfReadyStatus>& allVrfReadyStatus() const {
    return allVrfReadyStatus_;
  }
  // Brings the containers in line with the platform's inputs.
  void refresh();

  // ------------------------------------------------------------ RIB tables
  struct RibTable {
    Vrf::VrfIdMap::VrfId vrfId;
    Pando::AddressFamily af;
    const Rib::RouteConfig* routes;
  };
  // By VRF id, then family.
  std::vector<RibTable> ribTables() const;
  const Kel::Ptr<Rib::ViaSetConfig>& viaSetConfig() const { return viaSets_; }
  // The VRF's IP via configuration of a transport, made when first asked for.
  Kel::Ptr<Rib::Ip::ViaConfig> viaConfig(Vrf::VrfIdMap::VrfId vrfId, Rib::Transport transport);

  // Work done by containers dropped so far, for show stats.
  uint64_t droppedEvaluations() const { return droppedEvaluations_; }
  uint64_t droppedReviewSlices() const { return droppedReviewSlices_; }

 private:
  using Family = std::pair<L3::VrfName, Pando::AddressFamily>;
  bool inputsReady(const L3::VrfName& vrf, Vrf::VrfIdMap::VrfId id, Pando::AddressFamily af) const;
  void containerIs(const L3::VrfName& vrf, Vrf::VrfIdMap::VrfId id, Pando::AddressFamily af);
  void containerDel(const Family& f);
  Kel::Ptr<Rib::RouteConfig> ribConfig(Vrf::VrfIdMap::VrfId vrfId, Pando::AddressFamily af);

  Setup setup_;
  bool started_ = false;
  Platform platform_;
  std::map<std::pair<Vrf::VrfIdMap::VrfId, Rib::Transport>, Kel::Ptr<Rib::Ip::ViaConfig>>
      viaConfig_;
  std::map<std::pair<Vrf::VrfIdMap::VrfId, Pando::AddressFamily>, Kel::Ptr<Rib::RouteConfig>>
      ribConfig_;
  Kel::Ptr<Rib::ViaSetConfig> viaSets_ = Kel::makePtr<Rib::ViaSetConfig>();
  Kel::Ptr<Rib::Evpn::ViaConfig> evpnViaConfig_ = Kel::makePtr<Rib::Evpn::ViaConfig>();
  Kel::Ptr<Routing::Protocol::AllVrfReadyStatus> allVrfReadyStatus_;
  ProtocolSide protocol_;
  Kel::Ptr<Routing::Protocol::RouteStatusDir> routeStatusDir_ =
      Routing::Protocol::routeStatusDirFactory();
  Kel::Ptr<Routing::Protocol::ViaMetricStatusSm> viaMetricStatusSm_;
  std::map<Family, Kel::Ptr<Routing::Protocol::ContainerSm>> container_;
  uint64_t droppedEvaluations_ = 0;
  uint64_t droppedReviewSlices_ = 0;
};

}  // namespace IpRibAgent
