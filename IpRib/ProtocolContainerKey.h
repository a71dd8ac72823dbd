// Keys of the per-VRF containers and of the protocol route status tables.
//
// Both are plain copyable values with a seeded hash, ==, < (fields in
// declaration order), a canonical string form and its parse:
//   Value('Routing::Protocol::ContainerKey', ** {'vrfName': 'red', 'af': ipv4})
//   Value('Routing::Protocol::RouteStatusKey', ** {'vrfId': 3, 'af': ipv6})
#pragma once

#include <cstdint>
#include <ostream>
#include <string>

#include "Kel/Strep.h"
#include "platform/L3/VrfName.h"
#include "platform/Pando/AddressFamily.h"
#include "platform/Vrf/VrfId.h"

namespace Routing::Protocol {

// Which container (VRF name, address family) a reactor serves.
class ContainerKey {
 public:
  ContainerKey() = default;
  ContainerKey(L3::VrfName vrfName, Pando::AddressFamily af)
      : vrfName_(std::move(vrfName)), af_(af) {}
  ContainerKey(Kel::StrepIt& it, Kel::StrepIt end);

  const L3::VrfName& vrfName() const { return vrfName_; }
  Pando::AddressFamily af() const { return af_; }

  uint32_t hash(uint32_t seed) const;
  bool operator==(const ContainerKey& o) const { return vrfName_ == o.vrfName_ && af_ == o.af_; }
  bool operator<(const ContainerKey& o) const;
  // False only for the default key (empty name, zero family).
  explicit operator bool() const { return !(*this == ContainerKey()); }

 private:
  L3::VrfName vrfName_;
  Pando::AddressFamily af_ = Pando::AddressFamily::ipunknown;
};

// Which protocol route status table (VRF id, address family) is meant.
class RouteStatusKey {
 public:
  RouteStatusKey() = default;
  RouteStatusKey(Vrf::VrfIdMap::VrfId vrfId, Pando::AddressFamily af) : vrfId_(vrfId), af_(af) {}
  RouteStatusKey(Kel::StrepIt& it, Kel::StrepIt end);

  Vrf::VrfIdMap::VrfId vrfId() const { return vrfId_; }
  Pando::AddressFamily af() const { return af_; }

  uint32_t hash(uint32_t seed) const;
  bool operator==(const RouteStatusKey& o) const { return vrfId_ == o.vrfId_ && af_ == o.af_; }
  bool operator<(const RouteStatusKey& o) const {
    return vrfId_ != o.vrfId_ ? vrfId_ < o.vrfId_ : uint32_t(af_) < uint32_t(o.af_);
  }
  // Trace form: " (RSK <vrfId>, <af>)".
  std::string str() const;

 private:
  Vrf::VrfIdMap::VrfId vrfId_ = Vrf::VrfIdMap::invalidVrfId;
  Pando::AddressFamily af_ = Pando::AddressFamily::ipunknown;
};

std::string valueToStrep(const ContainerKey& k);
std::string valueToStrep(const RouteStatusKey& k);
std::ostream& operator<<(std::ostream& os, const ContainerKey& k);
std::ostream& operator<<(std::ostream& os, const RouteStatusKey& k);

}  // namespace Routing::Protocol
