// Route attribute types shared by the RIB and the protocols.
//
// Routing::Fib::RouteType says what the forwarding plane does with a route;
// enumeration services come from one Kel::EnumInfo ("Routing::Fib::RouteType"),
// the canonical form is the enumerator's name, and routeTypeForward (0) is
// the default.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>

#include "Kel/Enum.h"
#include "Kel/Strep.h"

namespace Routing {

// Lower is preferred (administrative distance).
using RoutePreference = uint8_t;
// Lower is preferred among routes of one preference.
using RouteMetric = uint32_t;

}  // namespace Routing

namespace Routing::Fib {

enum class RouteType : uint8_t {
  routeTypeForward = 0,  // forward to the route's vias
  routeTypeDrop,         // discard matching packets
  routeTypeReceive,      // deliver to this host
  routeTypeNextVrf,      // look up again in another VRF
};

const Kel::EnumInfo& routeTypeEnumInfo();
std::string valueToStrep(RouteType t);
std::ostream& operator<<(std::ostream& os, RouteType t);
RouteType routeTypeFromStrep(Kel::StrepIt& it, Kel::StrepIt end);

}  // namespace Routing::Fib
