#include "platform/Routing/RouteTypes.h"

#include <ostream>

namespace Routing::Fib {

const Kel::EnumInfo& routeTypeEnumInfo() {
  static const Kel::EnumInfo info("Routing::Fib::RouteType",
                                  {{int64_t(RouteType::routeTypeForward), "routeTypeForward"},
                                   {int64_t(RouteType::routeTypeDrop), "routeTypeDrop"},
                                   {int64_t(RouteType::routeTypeReceive), "routeTypeReceive"},
                                   {int64_t(RouteType::routeTypeNextVrf), "routeTypeNextVrf"}});
  return info;
}

std::string valueToStrep(RouteType t) {
  return std::string(routeTypeEnumInfo().stringValue(int64_t(t)));
}

std::ostream& operator<<(std::ostream& os, RouteType t) {
  return os << routeTypeEnumInfo().stringValue(int64_t(t));
}

RouteType routeTypeFromStrep(Kel::StrepIt& it, Kel::StrepIt end) {
  return RouteType(routeTypeEnumInfo().sequenceToValue(it, end));
}

}  // namespace Routing::Fib
