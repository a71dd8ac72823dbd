// Routing::Rib::Evpn::ViaConfigSm: the RIB's reactor on one EVPN via
// configuration. It validates the table for the RIB: counts the record
// writes it hears and keeps the records that break a rule of the RIB.
// See detail/ViaConfigSmBase.h for the contract and costs.
// Decided here: a record is invalid when its key is not of the EVPN
// transport, it has no VTEP, its VNI is not within 1 to 16777215 (24 bits),
// or its router MAC is wider than 48 bits. Traces go to the facility
// "Rib::Evpn::ViaConfigSm".
#pragma once

#include <cstdint>

#include "Kel/Ptr.h"
#include "platform/Routing/Rib/Evpn/Via.h"
#include "platform/Routing/Rib/Evpn/ViaConfig.h"
#include "platform/Routing/Rib/ViaKey.h"
#include "platform/Routing/Rib/detail/ViaConfigSmBase.h"

namespace Routing::Rib::Evpn {

class ViaConfigSm final : public detail::ViaConfigSmBase<ViaConfigSm, ViaConfig> {
 public:
  static constexpr uint32_t maxVni = 0xFFFFFF;

  explicit ViaConfigSm(const Kel::Ptr<const ViaConfig>& config);
  static Kel::Ptr<ViaConfigSm> ViaConfigSmIs(const Kel::Ptr<const ViaConfig>& config);

  // The rule `via` under `key` breaks; null when none.
  static const char* check(const ViaConfig& config, const ViaKey& key, const Via& via);
};

}  // namespace Routing::Rib::Evpn
