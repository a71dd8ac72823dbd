// ContainerSm: what route status computation needs for one VRF and address
// family, tied together. It owns the protocol's Status of the VRF, the
// RouteStatusSm that turns it into RIB routes, the IntfSm that keeps the
// VRF's interface status view current and, when the VRF's IP via
// configuration is its own rather than one shared by all VRFs, the RIB's
// reactor on that configuration. It decides what to create, in which order,
// and what to drop; nothing else.
//
// The constructor runs handleInitialized: Status first, then the via
// configuration reactor, RouteStatusSm, IntfSm, so that the table exists
// before its reader and the reader before interface changes are counted.
// The 22 inputs are fixed for the container's life: a changed input means a
// new container. Each ...Is mutator keeps the present child when it was
// built from the same arguments, else replaces it; a null input leaves no
// child. Teardown drops Status, RouteStatusSm, the via configuration
// reactor, ViaSetConfigSm and IntfSm, in that order; each goes when its last
// reference does. hasNotificationActiveIs reaches every child reactor.
// A protocol number the RIB has no name for (Rib::stringValue) is a
// Kel::RangeError from the constructor when there is an IP via configuration.
// Cost: construction is that of its children (RouteStatusSm binds a reactor
// per route of the Status, which is empty when new).
#pragma once

#include <utility>

#include "IpRib/ProtocolContainerKey.h"
#include "IpRib/ProtocolGrTypes.h"
#include "IpRib/ProtocolIntf.h"
#include "IpRib/ProtocolIntfSm.h"
#include "IpRib/ProtocolRouteStatus.h"
#include "IpRib/ProtocolRouteStatusSm.h"
#include "Kel/Entity.h"
#include "Kel/NestedReactors.h"
#include "Kel/Ptr.h"
#include "Kel/String.h"
#include "platform/Routing/Bfd/BfdTrackedStaticRoutes.h"
#include "platform/Routing/Rib/Evpn/ViaConfig.h"
#include "platform/Routing/Rib/Ip/GlobalNextHopDependencyGraph.h"
#include "platform/Routing/Rib/Ip/ViaConfig.h"
#include "platform/Routing/Rib/Ip/ViaConfigSm.h"
#include "platform/Routing/Rib/LoopingRouteStatus.h"
#include "platform/Routing/Rib/RouteConfig.h"
#include "platform/Routing/Rib/Transport.h"
#include "platform/Routing/Rib/ViaMetricStatus.h"
#include "platform/Routing/Rib/ViaSetConfig.h"
#include "platform/Routing/Rib/ViaSetConfigSm.h"
#include "platform/Routing/Rib/ViaStatusByVrf.h"
#include "platform/Vrf/VrfId.h"

namespace Routing::Protocol {

class ContainerSm final : public Kel::NotifieeBase {
 public:
  ContainerSm(const ContainerKey& containerKey, Vrf::VrfIdMap::VrfId vrfId,
              const Kel::Ptr<const Rib::ViaMetricStatus>& ipViaMetricStatus,
              const Kel::Ptr<Rib::Ip::ViaConfig>& ipViaConfig,
              const Kel::Ptr<Rib::Ip::ViaConfig>& auxIpViaConfig,
              const Kel::Ptr<const Rib::ViaMetricStatus>& evpnViaMetricStatus,
              const Kel::Ptr<Rib::Evpn::ViaConfig>& evpnViaConfig,
              const Kel::Ptr<Rib::ViaSetConfig>& viaSetConfig,
              const Kel::Ptr<Rib::RouteConfig>& ribConfig,
              const Kel::Ptr<const Rib::LoopingRouteStatus>& loopingRouteStatus,
              const Kel::Ptr<IntfStatus>& intfStatus,
              const Kel::Ptr<const Rib::Ip::GlobalNextHopDependencyGraph>& nhdGraph,
              const Kel::Ptr<Rib::Ip::ViaConfig>& ipv4DefaultVrfViaConfig,
              const Kel::Ptr<const Rib::ViaMetricStatus>& ipv4DefaultVrfViaMetricStatus,
              const Kel::Ptr<Rib::Ip::ViaConfig>& ipv6DefaultVrfViaConfig,
              const Kel::Ptr<const Rib::ViaMetricStatus>& ipv6DefaultVrfViaMetricStatus,
              Rib::RoutingProtocol rp, const Kel::Ptr<VrfReadyStatus>& vrfReadyStatus,
              const Kel::Ptr<BfdTrackedStaticRoutesList>& bfdTrackedRoutesList,
              const Kel::Ptr<const Rib::ViaStatusByVrf>& viaStatusByVrf,
              const Kel::Ptr<const Rib::ViaMetricStatusByVrf>& viaMetricStatusByVrf,
              const Kel::String& ribString);
  ~ContainerSm() override;
  // Creates one from the constructor's arguments.
  template <class... Args>
  static Kel::Ptr<ContainerSm> ContainerSmIs(Args&&... args) {
    return Kel::makePtr<ContainerSm>(std::forward<Args>(args)...);
  }
  const char* typeName() const { return "Routing::Protocol::ContainerSm"; }

  // ------------------------------------------------------------ inputs
  const ContainerKey& containerKey() const { return containerKey_; }
  Vrf::VrfIdMap::VrfId vrfId() const { return vrfId_; }
  const Kel::Ptr<const Rib::ViaMetricStatus>& ipViaMetricStatus() const {
    return ipViaMetricStatus_;
  }
  const Kel::Ptr<Rib::Ip::ViaConfig>& ipViaConfig() const { return ipViaConfig_; }
  const Kel::Ptr<Rib::Ip::ViaConfig>& auxIpViaConfig() const { return auxIpViaConfig_; }
  const Kel::Ptr<const Rib::ViaMetricStatus>& evpnViaMetricStatus() const {
    return evpnViaMetricStatus_;
  }
  const Kel::Ptr<Rib::Evpn::ViaConfig>& evpnViaConfig() const { return evpnViaConfig_; }
  const Kel::Ptr<Rib::ViaSetConfig>& viaSetConfig() const { return viaSetConfig_; }
  const Kel::Ptr<Rib::RouteConfig>& ribConfig() const { return ribConfig_; }
  const Kel::Ptr<const Rib::LoopingRouteStatus>& loopingRouteStatus() const {
    return loopingRouteStatus_;
  }
  const Kel::Ptr<IntfStatus>& intfStatus() const { return intfStatus_; }
  const Kel::Ptr<const Rib::Ip::GlobalNextHopDependencyGraph>& nhdGraph() const {
    return nhdGraph_;
  }
  const Kel::Ptr<Rib::Ip::ViaConfig>& ipv4DefaultVrfViaConfig() const {
    return ipv4DefaultVrfViaConfig_;
  }
  const Kel::Ptr<const Rib::ViaMetricStatus>& ipv4DefaultVrfViaMetricStatus() const {
    return ipv4DefaultVrfViaMetricStatus_;
  }
  const Kel::Ptr<Rib::Ip::ViaConfig>& ipv6DefaultVrfViaConfig() const {
    return ipv6DefaultVrfViaConfig_;
  }
  const Kel::Ptr<const Rib::ViaMetricStatus>& ipv6DefaultVrfViaMetricStatus() const {
    return ipv6DefaultVrfViaMetricStatus_;
  }
  Rib::RoutingProtocol rp() const { return rp_; }
  const Kel::Ptr<VrfReadyStatus>& vrfReadyStatus() const { return vrfReadyStatus_; }
  const Kel::Ptr<BfdTrackedStaticRoutesList>& bfdTrackedRoutesList() const {
    return bfdTrackedRoutesList_;
  }
  const Kel::Ptr<const Rib::ViaStatusByVrf>& viaStatusByVrf() const { return viaStatusByVrf_; }
  const Kel::Ptr<const Rib::ViaMetricStatusByVrf>& viaMetricStatusByVrf() const {
    return viaMetricStatusByVrf_;
  }
  const Kel::String& ribString() const { return ribString_; }

  // ------------------------------------------------------------ owned
  const Kel::Ptr<Status>& status() const { return status_; }
  RouteStatusSm* routeStatusSm() const { return routeStatusSm_.get(); }
  Rib::Ip::ViaConfigSm* ipViaConfigSm() const { return ipViaConfigSm_.get(); }
  Rib::ViaSetConfigSm* viaSetConfigSm() const { return viaSetConfigSm_.get(); }
  IntfSm* intfSm() const { return intfSm_.get(); }
  bool initialized() const { return initialized_; }

  // Creates the children from the inputs (see the order above).
  void handleInitialized();
  void doInitSm();

  // Keeps the present Status when it has `key`, else makes a new, empty one.
  void statusIs(const RouteStatusKey& key);
  void statusDel();
  // RouteStatusSm's constructor arguments, in its order.
  void routeStatusSmIs(const L3::VrfName& vrfName, Pando::AddressFamily af,
                       Vrf::VrfIdMap::VrfId vrfId, const Kel::Ptr<Status>& status,
                       const Kel::Ptr<const Rib::ViaMetricStatus>& ipViaMetricStatus,
                       const Kel::Ptr<const Rib::ViaMetricStatus>& evpnViaMetricStatus,
                       const Kel::Ptr<const Rib::LoopingRouteStatus>& loopingRouteStatus,
                       const Kel::Ptr<const Rib::Ip::GlobalNextHopDependencyGraph>& nhdGraph,
                       const Kel::Ptr<Rib::RouteConfig>& ribConfig,
                       const Kel::Ptr<Rib::ViaSetConfig>& viaSetConfig,
                       Rib::RoutingProtocol routingProtocol,
                       const Kel::Ptr<const Rib::ViaMetricStatus>& ipv4DefaultVrfViaMetricStatus,
                       const Kel::Ptr<const Rib::ViaMetricStatus>& ipv6DefaultVrfViaMetricStatus,
                       const Kel::Ptr<VrfReadyStatus>& vrfReadyStatus,
                       const Kel::Ptr<BfdTrackedStaticRoutesList>& bfdTrackedRoutesList,
                       const Kel::Ptr<const Rib::Ip::ViaConfig>& ipViaConfig,
                       const Kel::Ptr<const Rib::Ip::ViaConfig>& auxIpViaConfig,
                       const Kel::Ptr<const Rib::ViaMetricStatusByVrf>& viaMetricStatusByVrf,
                       const Kel::String& ribString,
                       const Kel::Ptr<const Rib::ViaStatusByVrf>& viaStatusByVrf);
  void routeStatusSmDel();
  void ipViaConfigSmIs(const Kel::Ptr<const Rib::Ip::ViaConfig>& viaConfig);
  void ipViaConfigSmDel();
  void viaSetConfigSmIs(const Kel::Ptr<const Rib::ViaSetConfig>& viaSetConfig);
  void viaSetConfigSmDel();
  void intfSmIs(const Kel::Ptr<IntfStatus>& intfStatus);
  void intfSmDel();

 private:
  // Inputs, in the constructor's order.
  ContainerKey containerKey_;
  Vrf::VrfIdMap::VrfId vrfId_;
  Kel::Ptr<const Rib::ViaMetricStatus> ipViaMetricStatus_;
  Kel::Ptr<Rib::Ip::ViaConfig> ipViaConfig_;
  Kel::Ptr<Rib::Ip::ViaConfig> auxIpViaConfig_;
  Kel::Ptr<const Rib::ViaMetricStatus> evpnViaMetricStatus_;
  Kel::Ptr<Rib::Evpn::ViaConfig> evpnViaConfig_;
  Kel::Ptr<Rib::ViaSetConfig> viaSetConfig_;
  Kel::Ptr<Rib::RouteConfig> ribConfig_;
  Kel::Ptr<const Rib::LoopingRouteStatus> loopingRouteStatus_;
  Kel::Ptr<IntfStatus> intfStatus_;
  Kel::Ptr<const Rib::Ip::GlobalNextHopDependencyGraph> nhdGraph_;
  Kel::Ptr<Rib::Ip::ViaConfig> ipv4DefaultVrfViaConfig_;
  Kel::Ptr<const Rib::ViaMetricStatus> ipv4DefaultVrfViaMetricStatus_;
  Kel::Ptr<Rib::Ip::ViaConfig> ipv6DefaultVrfViaConfig_;
  Kel::Ptr<const Rib::ViaMetricStatus> ipv6DefaultVrfViaMetricStatus_;
  Rib::RoutingProtocol rp_;
  Kel::Ptr<VrfReadyStatus> vrfReadyStatus_;
  Kel::Ptr<BfdTrackedStaticRoutesList> bfdTrackedRoutesList_;
  Kel::Ptr<const Rib::ViaStatusByVrf> viaStatusByVrf_;
  Kel::Ptr<const Rib::ViaMetricStatusByVrf> viaMetricStatusByVrf_;
  Kel::String ribString_;

  Kel::Ptr<Status> status_;
  Kel::NestedReactor<RouteStatusSm> routeStatusSm_;
  Kel::NestedReactor<Rib::Ip::ViaConfigSm> ipViaConfigSm_;
  Kel::NestedReactor<Rib::ViaSetConfigSm> viaSetConfigSm_;
  Kel::NestedReactor<IntfSm> intfSm_;
  bool initialized_ = false;
};

// Takes the constructor's arguments.
template <class... Args>
Kel::Ptr<ContainerSm> containerSmFactory(Args&&... args) {
  return ContainerSm::ContainerSmIs(std::forward<Args>(args)...);
}

}  // namespace Routing::Protocol
