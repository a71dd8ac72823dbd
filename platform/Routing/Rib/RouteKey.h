// Routing::Rib::RouteKey: a RIB route's identity, the VRF id and the prefix.
//
// Order is by VRF id, then prefix; the hash takes the VRF id and the prefix's
// own hash as one word (Kel::hashWords). Printed "0:10.1.0.0/24". Inline.
// Decided here: the default key is the empty prefix in no VRF (invalidVrfId).
#pragma once

#include <cstdint>
#include <ostream>

#include "Kel/Hash.h"
#include "platform/Pando/IpGenPrefix.h"
#include "platform/Vrf/VrfId.h"

namespace Routing::Rib {

class RouteKey {
 public:
  RouteKey() = default;
  RouteKey(Vrf::VrfIdMap::VrfId vrfId, const Pando::IpGenPrefix& prefix)
      : vrfId_(vrfId), prefix_(prefix) {}

  Vrf::VrfIdMap::VrfId vrfId() const { return vrfId_; }
  const Pando::IpGenPrefix& prefix() const { return prefix_; }

  uint32_t hash(uint32_t seed) const {
    return Kel::hashWords(uint64_t(vrfId_) << 32 | prefix_.hash(), 0, seed);
  }

  friend bool operator==(const RouteKey& a, const RouteKey& b) {
    return a.vrfId_ == b.vrfId_ && a.prefix_ == b.prefix_;
  }
  friend bool operator<(const RouteKey& a, const RouteKey& b) {
    return a.vrfId_ != b.vrfId_ ? a.vrfId_ < b.vrfId_ : a.prefix_ < b.prefix_;
  }

 private:
  Vrf::VrfIdMap::VrfId vrfId_ = Vrf::VrfIdMap::invalidVrfId;
  Pando::IpGenPrefix prefix_;
};

inline std::ostream& operator<<(std::ostream& os, const RouteKey& k) {
  return os << k.vrfId() << ':' << k.prefix();
}

}  // namespace Routing::Rib
