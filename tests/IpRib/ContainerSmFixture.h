// A VRF served by a ContainerSm: the RouteStatusSm world (VRF "red", id 3,
// its RIB tables, on virtual time) plus what only a container takes: the
// VRF's interface status, the EVPN and default-VRF via configurations.
// Once built, the world's `status` is the container's own, so the world's
// helpers (addVia, routePref, ribRoute) work on it.
#pragma once

#include "IpRib/ProtocolContainerSm.h"
#include "IpRib/ProtocolIntf.h"
#include "tests/IpRib/RouteStatusSmFixture.h"

namespace Routing::Protocol::Test {

inline constexpr Rib::RoutingProtocol staticProtocol = 2;

struct ContainerWorld {
  explicit ContainerWorld(Pando::AddressFamily af = Pando::AddressFamily::ipv4) : w(af) {
    (af == Pando::AddressFamily::ipv4 ? w.auxViaConfig : w.viaConfig)
        ->transportIs(Rib::Transport::ipv6);
  }
  ~ContainerWorld() { container = nullptr; }

  Kel::Ptr<ContainerSm> build(Rib::RoutingProtocol rp = staticProtocol) {
    container = nullptr;
    container = containerSmFactory(
        ContainerKey(L3::VrfName("red"), w.af), testVrfId, w.ipMetrics, w.viaConfig, w.auxViaConfig,
        w.evpnMetrics, evpnViaConfig, w.viaSets, w.ribConfig, w.looping, intfStatus, w.graph,
        v4DefaultViaConfig, w.v4DefaultMetrics, v6DefaultViaConfig, w.v6DefaultMetrics, rp, w.ready,
        w.bfdList, w.viaStatus, w.metricTree, Kel::String("rib"));
    w.status = container->status();
    return container;
  }

  RouteStatusWorld w;
  Kel::Ptr<Ip::VrfIpIntfStatus> vrfIntfs = Kel::makePtr<Ip::VrfIpIntfStatus>(L3::VrfName("red"));
  Kel::Ptr<IntfStatus> intfStatus = ipv4IntfStatusFactory(vrfIntfs);
  Kel::Ptr<Rib::Evpn::ViaConfig> evpnViaConfig = Kel::makePtr<Rib::Evpn::ViaConfig>();
  Kel::Ptr<Rib::Ip::ViaConfig> v4DefaultViaConfig = Kel::makePtr<Rib::Ip::ViaConfig>();
  Kel::Ptr<Rib::Ip::ViaConfig> v6DefaultViaConfig =
      Kel::makePtr<Rib::Ip::ViaConfig>(Kel::String("rib"), Rib::Transport::ipv6);
  Kel::Ptr<ContainerSm> container;
};

}  // namespace Routing::Protocol::Test
