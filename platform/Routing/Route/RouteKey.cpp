#include "platform/Routing/Route/RouteKey.h"

#include <ostream>

namespace Routing {

namespace {
constexpr const char* routeKeyType = "Routing::RouteKey";
}  // namespace

RouteKey::RouteKey(Kel::StrepIt& it, Kel::StrepIt end) {
  Kel::ValueStrepReader r(it, end, routeKeyType);
  prefix_ = r.field("prefix", [](auto& i, auto e) { return Pando::IpGenPrefix(i, e); });
  preference_ = r.field("preference", [](auto& i, auto e) {
    return RoutePreference(Kel::strepToUnsigned(i, e, UINT8_MAX, "Routing::RoutePreference"));
  });
  r.done();
}

std::string valueToStrep(const RouteKey& k) {
  return Kel::ValueStrepWriter(routeKeyType)
      .field("prefix", Pando::valueToStrep(k.prefix()))
      .field("preference", Kel::valueToStrep(k.preference()))
      .done();
}

std::ostream& operator<<(std::ostream& os, const RouteKey& k) {
  return os << k.prefix() << " pref " << unsigned(k.preference());
}

}  // namespace Routing
