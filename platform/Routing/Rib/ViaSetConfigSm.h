// Routing::Rib::ViaSetConfigSm: the RIB's reactor on one via set table. It
// keeps the table within its capacity for the RIB: counts the live via sets
// after every creation and release it hears, keeps their high-water mark,
// and reports each time the count grows past `maxViaSets`.
//
// Costs: a few stores per via set created or released.
// Decided here: the table itself never refuses a set (routes must not lose
// their vias), so exceeding the capacity is reported, not enforced: a
// level 0 trace of the facility "Rib::ViaSetConfigSm" and one count in
// capacityExceeded() each time the count crosses the capacity upwards.
#pragma once

#include <cstdint>

#include "Kel/Ptr.h"
#include "platform/Routing/Rib/ViaSetConfig.h"

namespace Routing::Rib {

class ViaSetConfigSm final : public ViaSetConfig::Notifiee {
 public:
  static constexpr uint32_t unlimited = UINT32_MAX;

  explicit ViaSetConfigSm(const Kel::Ptr<const ViaSetConfig>& config,
                          uint32_t maxViaSets = unlimited);
  static Kel::Ptr<ViaSetConfigSm> ViaSetConfigSmIs(const Kel::Ptr<const ViaSetConfig>& config,
                                                   uint32_t maxViaSets = unlimited);

  const Kel::Ptr<const ViaSetConfig>& config() const { return config_; }
  uint32_t maxViaSets() const { return maxViaSets_; }
  // Live via sets when last heard of.
  uint32_t liveViaSets() const { return liveViaSets_; }
  // The most live via sets seen at once.
  uint32_t highWaterMark() const { return highWaterMark_; }
  bool overCapacity() const { return liveViaSets_ > maxViaSets_; }
  // Times the live count grew past the capacity.
  uint64_t capacityExceeded() const { return capacityExceeded_; }

  void onViaSet(Id) override { liveViaSetsIs(config_->size()); }

 private:
  void liveViaSetsIs(uint32_t n);

  Kel::Ptr<const ViaSetConfig> config_;
  uint32_t maxViaSets_;
  uint32_t liveViaSets_ = 0;
  uint32_t highWaterMark_ = 0;
  uint64_t capacityExceeded_ = 0;
};

}  // namespace Routing::Rib
