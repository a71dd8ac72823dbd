// Small RIB enumerations: a via's transport, the RIB a route or via resolves
// in, and the routing protocol number.
//
// A ViaKey's kind byte is its transport. Everything here is inline and free.
// Decided here: EVPN, having no address family, maps to ipunknown.
#pragma once

#include <cstdint>
#include <ostream>

#include "platform/Pando/AddressFamily.h"

namespace Routing::Rib {

enum class Transport : uint8_t { none = 0, ipv4 = 1, ipv6 = 2, evpn = 3 };

// The address family of a via of transport `kind`: ipv4 for 1, ipv6 for 2,
// ipunknown otherwise.
inline Pando::AddressFamily transportAf(uint8_t kind) {
  switch (Transport(kind)) {
    case Transport::ipv4:
      return Pando::AddressFamily::ipv4;
    case Transport::ipv6:
      return Pando::AddressFamily::ipv6;
    default:
      return Pando::AddressFamily::ipunknown;
  }
}

// The unicast RIB, or the multicast RPF RIB.
enum class RibType : uint8_t { unicast = 0, mrib = 1 };

inline constexpr const char* ribString = "rib";
inline constexpr const char* mribString = "mrib";

// Prints "rib" or "mrib".
inline std::ostream& operator<<(std::ostream& os, RibType t) {
  return os << (t == RibType::mrib ? mribString : ribString);
}

// The protocol that owns a route (e.g. 2 = static configuration).
using RoutingProtocol = uint8_t;

}  // namespace Routing::Rib
