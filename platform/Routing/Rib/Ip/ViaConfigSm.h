// Routing::Rib::Ip::ViaConfigSm: the RIB's reactor on one IP via
// configuration. It validates the table for the RIB: counts the record
// writes it hears and keeps the records that break a rule of the RIB.
// See detail/ViaConfigSmBase.h for the contract and costs.
// Decided here: a record is invalid when its key's transport is not the
// table's, or when it has a next hop of another family than that transport.
// A change of the table's transport re-checks every record. Traces go to
// the facility "Rib::Ip::ViaConfigSm".
#pragma once

#include "Kel/Ptr.h"
#include "platform/Routing/Rib/Ip/ViaConfig.h"
#include "platform/Routing/Rib/Via.h"
#include "platform/Routing/Rib/ViaKey.h"
#include "platform/Routing/Rib/detail/ViaConfigSmBase.h"

namespace Routing::Rib::Ip {

class ViaConfigSm final : public detail::ViaConfigSmBase<ViaConfigSm, ViaConfig> {
 public:
  explicit ViaConfigSm(const Kel::Ptr<const ViaConfig>& config);
  static Kel::Ptr<ViaConfigSm> ViaConfigSmIs(const Kel::Ptr<const ViaConfig>& config);

  // The rule `via` under `key` breaks in `config`; null when none.
  static const char* check(const ViaConfig& config, const ViaKey& key, const Via& via);

  void onTransport() override { reviewAll(); }
};

}  // namespace Routing::Rib::Ip
