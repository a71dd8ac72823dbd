#include "platform/Routing/Rib/ViaSetConfigKey.h"

#include <ostream>

namespace Routing::Rib {

namespace {
constexpr const char* typeName = "Routing::Rib::ViaSetConfigKey";
}

ViaSetConfigKey::ViaSetConfigKey(Kel::StrepIt& it, Kel::StrepIt end) {
  Kel::ValueStrepReader r(it, end, typeName);
  protocol_ = r.field("protocol", [](Kel::StrepIt& i, Kel::StrepIt e) {
    return RoutingProtocol(Kel::strepToUnsigned(i, e, UINT8_MAX, "Routing::Rib::RoutingProtocol"));
  });
  instance_ = r.field("instance", [](Kel::StrepIt& i, Kel::StrepIt e) {
    return uint32_t(Kel::strepToUnsigned(i, e, UINT32_MAX, "uint32_t"));
  });
  r.done();
}

std::string valueToStrep(const ViaSetConfigKey& k) {
  return Kel::ValueStrepWriter(typeName)
      .field("protocol", Kel::valueToStrep(uint8_t(k.protocol())))
      .field("instance", Kel::valueToStrep(k.instance()))
      .done();
}

std::ostream& operator<<(std::ostream& os, const ViaSetConfigKey& k) {
  return os << valueToStrep(k);
}

}  // namespace Routing::Rib
