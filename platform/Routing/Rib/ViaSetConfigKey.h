// Routing::Rib::ViaSetConfigKey: names one via set configuration: the
// routing protocol that writes it and an instance number within the
// protocol (0 for a protocol's only one).
//
// A value type: seeded hash of both fields, == and < over the fields in
// order, and the canonical form
// "Value('Routing::Rib::ViaSetConfigKey', ** {'protocol': 2, 'instance': 0})",
// which operator<< prints and the parse constructor reads back.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>

#include "Kel/Hash.h"
#include "Kel/Strep.h"
#include "platform/Routing/Rib/Transport.h"

namespace Routing::Rib {

class ViaSetConfigKey {
 public:
  ViaSetConfigKey() = default;
  explicit ViaSetConfigKey(RoutingProtocol protocol, uint32_t instance = 0)
      : protocol_(protocol), instance_(instance) {}
  ViaSetConfigKey(Kel::StrepIt& it, Kel::StrepIt end);

  RoutingProtocol protocol() const { return protocol_; }
  uint32_t instance() const { return instance_; }
  uint32_t hash(uint32_t seed) const {
    return Kel::Hasher(seed).add(uint32_t(protocol_)).add(instance_).result();
  }

  friend bool operator==(const ViaSetConfigKey&, const ViaSetConfigKey&) = default;
  friend bool operator<(const ViaSetConfigKey& a, const ViaSetConfigKey& b) {
    return a.protocol_ != b.protocol_ ? a.protocol_ < b.protocol_ : a.instance_ < b.instance_;
  }

 private:
  RoutingProtocol protocol_ = 0;
  uint32_t instance_ = 0;
};

std::string valueToStrep(const ViaSetConfigKey& k);
std::ostream& operator<<(std::ostream& os, const ViaSetConfigKey& k);

}  // namespace Routing::Rib
