#include "platform/Routing/Rib/ViaSetConfigSm.h"

#include "Kel/Assert.h"
#include "Kel/Duallog.h"

namespace Routing::Rib {

namespace {
Kel::TraceFacility trace("Rib::ViaSetConfigSm");
}  // namespace

ViaSetConfigSm::ViaSetConfigSm(const Kel::Ptr<const ViaSetConfig>& config, uint32_t maxViaSets)
    : config_(config), maxViaSets_(maxViaSets) {
  KEL_ASSERT(config);
  notifierIs(config_);
  liveViaSetsIs(config_->size());
}

Kel::Ptr<ViaSetConfigSm> ViaSetConfigSm::ViaSetConfigSmIs(
    const Kel::Ptr<const ViaSetConfig>& config, uint32_t maxViaSets) {
  return Kel::makePtr<ViaSetConfigSm>(config, maxViaSets);
}

void ViaSetConfigSm::liveViaSetsIs(uint32_t n) {
  const bool wasOver = overCapacity();
  liveViaSets_ = n;
  if (n > highWaterMark_) highWaterMark_ = n;
  if (overCapacity() && !wasOver) {
    ++capacityExceeded_;
    KEL_DUALLOG(trace, 0, n << " via sets exceed the capacity of " << maxViaSets_,
                "%s via sets exceed the capacity of %s", n, maxViaSets_);
  }
}

}  // namespace Routing::Rib
