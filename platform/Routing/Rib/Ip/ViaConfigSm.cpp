#include "platform/Routing/Rib/Ip/ViaConfigSm.h"

namespace Routing::Rib::Ip {

namespace {
Kel::TraceFacility trace("Rib::Ip::ViaConfigSm");
}  // namespace

ViaConfigSm::ViaConfigSm(const Kel::Ptr<const ViaConfig>& config)
    : ViaConfigSmBase(config, trace) {}

Kel::Ptr<ViaConfigSm> ViaConfigSm::ViaConfigSmIs(const Kel::Ptr<const ViaConfig>& config) {
  return Kel::makePtr<ViaConfigSm>(config);
}

const char* ViaConfigSm::check(const ViaConfig& config, const ViaKey& key, const Via& via) {
  if (key.kind() != uint8_t(config.transport())) return "via key of another transport";
  if (!via.nextHop().isEmpty() && via.nextHop().af() != transportAf(key.kind())) {
    return "next hop of another family";
  }
  return nullptr;
}

}  // namespace Routing::Rib::Ip
