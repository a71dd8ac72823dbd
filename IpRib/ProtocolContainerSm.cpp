#include "IpRib/ProtocolContainerSm.h"

#include <string>
#include <string_view>

#include "platform/Routing/ViaConfigLib.h"

namespace Routing::Protocol {

namespace {
// Keeps the held child when `same` says it was built from the same
// arguments; else stores what `make` builds, switched on (none for null).
template <class R, class Same, class Make>
void childIs(Kel::NestedReactor<R>& holder, const Same& same, const Make& make) {
  if (holder && same(*holder.get())) return;
  Kel::Ptr<R> created = make();
  if (created) created->hasNotificationActiveIs(true);
  holder.reactorIs(std::move(created));
}
}  // namespace

ContainerSm::ContainerSm(const ContainerKey& containerKey, Vrf::VrfIdMap::VrfId vrfId,
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
                         const Kel::String& ribString)
    : containerKey_(containerKey),
      vrfId_(vrfId),
      ipViaMetricStatus_(ipViaMetricStatus),
      ipViaConfig_(ipViaConfig),
      auxIpViaConfig_(auxIpViaConfig),
      evpnViaMetricStatus_(evpnViaMetricStatus),
      evpnViaConfig_(evpnViaConfig),
      viaSetConfig_(viaSetConfig),
      ribConfig_(ribConfig),
      loopingRouteStatus_(loopingRouteStatus),
      intfStatus_(intfStatus),
      nhdGraph_(nhdGraph),
      ipv4DefaultVrfViaConfig_(ipv4DefaultVrfViaConfig),
      ipv4DefaultVrfViaMetricStatus_(ipv4DefaultVrfViaMetricStatus),
      ipv6DefaultVrfViaConfig_(ipv6DefaultVrfViaConfig),
      ipv6DefaultVrfViaMetricStatus_(ipv6DefaultVrfViaMetricStatus),
      rp_(rp),
      vrfReadyStatus_(vrfReadyStatus),
      bfdTrackedRoutesList_(bfdTrackedRoutesList),
      viaStatusByVrf_(viaStatusByVrf),
      viaMetricStatusByVrf_(viaMetricStatusByVrf),
      ribString_(ribString),
      routeStatusSm_(this),
      ipViaConfigSm_(this),
      viaSetConfigSm_(this),
      intfSm_(this) {
  handleInitialized();
}

ContainerSm::~ContainerSm() {
  statusDel();
  routeStatusSmDel();
  ipViaConfigSmDel();
  viaSetConfigSmDel();
  intfSmDel();
}

void ContainerSm::handleInitialized() {
  initialized_ = true;
  statusIs(RouteStatusKey(vrfId_, containerKey_.af()));
  doInitSm();
}

void ContainerSm::doInitSm() {
  // A via configuration shared by all VRFs is driven once, by the root reactor.
  if (ipViaConfig_) {
    const std::string rib = ViaConfigLib::getRibStringFromIpViaConfig(*ipViaConfig_);
    const std::string_view transport = Rib::stringValue(ipViaConfig_->transport());
    if (!ViaConfigLib::isAllVrfViaConfig(rib, transport, Rib::stringValue(rp_))) {
      ipViaConfigSmIs(ipViaConfig_);
    }
  }
  routeStatusSmIs(containerKey_.vrfName(), containerKey_.af(), vrfId_, status_, ipViaMetricStatus_,
                  evpnViaMetricStatus_, loopingRouteStatus_, nhdGraph_, ribConfig_, viaSetConfig_,
                  rp_, ipv4DefaultVrfViaMetricStatus_, ipv6DefaultVrfViaMetricStatus_,
                  vrfReadyStatus_, bfdTrackedRoutesList_, ipViaConfig_, auxIpViaConfig_,
                  viaMetricStatusByVrf_, ribString_, viaStatusByVrf_);
  intfSmIs(intfStatus_);
}

void ContainerSm::statusIs(const RouteStatusKey& key) {
  if (status_ && status_->key() == key) return;
  status_ = statusFactory(key);
}

void ContainerSm::statusDel() { status_ = nullptr; }

void ContainerSm::routeStatusSmIs(
    const L3::VrfName& vrfName, Pando::AddressFamily af, Vrf::VrfIdMap::VrfId vrfId,
    const Kel::Ptr<Status>& status, const Kel::Ptr<const Rib::ViaMetricStatus>& ipViaMetricStatus,
    const Kel::Ptr<const Rib::ViaMetricStatus>& evpnViaMetricStatus,
    const Kel::Ptr<const Rib::LoopingRouteStatus>& loopingRouteStatus,
    const Kel::Ptr<const Rib::Ip::GlobalNextHopDependencyGraph>& nhdGraph,
    const Kel::Ptr<Rib::RouteConfig>& ribConfig, const Kel::Ptr<Rib::ViaSetConfig>& viaSetConfig,
    Rib::RoutingProtocol routingProtocol,
    const Kel::Ptr<const Rib::ViaMetricStatus>& ipv4DefaultVrfViaMetricStatus,
    const Kel::Ptr<const Rib::ViaMetricStatus>& ipv6DefaultVrfViaMetricStatus,
    const Kel::Ptr<VrfReadyStatus>& vrfReadyStatus,
    const Kel::Ptr<BfdTrackedStaticRoutesList>& bfdTrackedRoutesList,
    const Kel::Ptr<const Rib::Ip::ViaConfig>& ipViaConfig,
    const Kel::Ptr<const Rib::Ip::ViaConfig>& auxIpViaConfig,
    const Kel::Ptr<const Rib::ViaMetricStatusByVrf>& viaMetricStatusByVrf,
    const Kel::String& ribString, const Kel::Ptr<const Rib::ViaStatusByVrf>& viaStatusByVrf) {
  const auto sameArguments = [&](const RouteStatusSm& sm) {
    return sm.vrfName() == vrfName && sm.af() == af && sm.vrfId() == vrfId &&
           sm.status() == status && sm.ipViaMetricStatus() == ipViaMetricStatus &&
           sm.evpnViaMetricStatus() == evpnViaMetricStatus &&
           sm.loopingRouteStatus() == loopingRouteStatus && sm.nhdGraph() == nhdGraph &&
           sm.ribConfig() == ribConfig && sm.viaSetConfig() == viaSetConfig &&
           sm.routingProtocol() == routingProtocol &&
           sm.ipv4DefaultVrfViaMetricStatus() == ipv4DefaultVrfViaMetricStatus &&
           sm.ipv6DefaultVrfViaMetricStatus() == ipv6DefaultVrfViaMetricStatus &&
           sm.vrfReadyStatus() == vrfReadyStatus &&
           sm.bfdTrackedRoutesList() == bfdTrackedRoutesList && sm.ipViaConfig() == ipViaConfig &&
           sm.auxIpViaConfig() == auxIpViaConfig &&
           sm.viaMetricStatusByVrf() == viaMetricStatusByVrf && sm.ribString() == ribString &&
           sm.viaStatusByVrf() == viaStatusByVrf;
  };
  childIs(routeStatusSm_, sameArguments, [&] {
    return RouteStatusSm::RouteStatusSmIs(
        vrfName, af, vrfId, status, ipViaMetricStatus, evpnViaMetricStatus, loopingRouteStatus,
        nhdGraph, ribConfig, viaSetConfig, routingProtocol, ipv4DefaultVrfViaMetricStatus,
        ipv6DefaultVrfViaMetricStatus, vrfReadyStatus, bfdTrackedRoutesList, ipViaConfig,
        auxIpViaConfig, viaMetricStatusByVrf, ribString, viaStatusByVrf);
  });
}

void ContainerSm::routeStatusSmDel() { routeStatusSm_.reactorIs(nullptr); }

void ContainerSm::ipViaConfigSmIs(const Kel::Ptr<const Rib::Ip::ViaConfig>& viaConfig) {
  childIs(
      ipViaConfigSm_, [&](const Rib::Ip::ViaConfigSm& sm) { return sm.config() == viaConfig; },
      [&] { return viaConfig ? Rib::Ip::ViaConfigSm::ViaConfigSmIs(viaConfig) : nullptr; });
}

void ContainerSm::ipViaConfigSmDel() { ipViaConfigSm_.reactorIs(nullptr); }

void ContainerSm::viaSetConfigSmIs(const Kel::Ptr<const Rib::ViaSetConfig>& viaSetConfig) {
  childIs(
      viaSetConfigSm_, [&](const Rib::ViaSetConfigSm& sm) { return sm.config() == viaSetConfig; },
      [&] { return viaSetConfig ? Rib::ViaSetConfigSm::ViaSetConfigSmIs(viaSetConfig) : nullptr; });
}

void ContainerSm::viaSetConfigSmDel() { viaSetConfigSm_.reactorIs(nullptr); }

void ContainerSm::intfSmIs(const Kel::Ptr<IntfStatus>& intfStatus) {
  childIs(
      intfSm_, [&](const IntfSm& sm) { return sm.intfStatus() == intfStatus; },
      [&] { return intfStatus ? IntfSm::IntfSmIs(intfStatus) : nullptr; });
}

void ContainerSm::intfSmDel() { intfSm_.reactorIs(nullptr); }

}  // namespace Routing::Protocol
