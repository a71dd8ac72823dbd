#include "platform/Routing/Rib/Evpn/ViaConfigSm.h"

namespace Routing::Rib::Evpn {

namespace {
Kel::TraceFacility trace("Rib::Evpn::ViaConfigSm");
}  // namespace

ViaConfigSm::ViaConfigSm(const Kel::Ptr<const ViaConfig>& config)
    : ViaConfigSmBase(config, trace) {}

Kel::Ptr<ViaConfigSm> ViaConfigSm::ViaConfigSmIs(const Kel::Ptr<const ViaConfig>& config) {
  return Kel::makePtr<ViaConfigSm>(config);
}

const char* ViaConfigSm::check(const ViaConfig&, const ViaKey& key, const Via& via) {
  if (key.kind() != ViaKey::kindEvpn) return "via key of another transport";
  if (via.vtep().isEmpty()) return "no VTEP";
  if (via.vni() == 0 || via.vni() > maxVni) return "VNI out of range";
  if (via.routerMac() >> 48 != 0) return "router MAC wider than 48 bits";
  return nullptr;
}

}  // namespace Routing::Rib::Evpn
