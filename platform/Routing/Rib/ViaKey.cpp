#include "platform/Routing/Rib/ViaKey.h"

#include <ostream>

namespace Routing::Rib {

ViaKey::ViaKey(Kel::StrepIt& it, Kel::StrepIt end) {
  const auto field = [&](const char* literal, const char* name, uint64_t max, const char* type) {
    Kel::strepLiteral(it, end, literal);
    return Kel::strepField(name, [&] { return Kel::strepToUnsigned(it, end, max, type); });
  };
  Kel::strepLiteral(it, end, "Value('Routing::Rib::ViaKey', ** {");
  kind_ = uint8_t(field("'kind': ", "kind", UINT8_MAX, "uint8_t"));
  vrfId_ = Vrf::VrfIdMap::VrfId(field(", 'vrfId': ", "vrfId", UINT32_MAX, "Vrf::VrfIdMap::VrfId"));
  selector_ = uint32_t(field(", 'selector': ", "selector", UINT32_MAX, "uint32_t"));
  viaIndex_ = uint32_t(field(", 'viaIndex': ", "viaIndex", UINT32_MAX, "uint32_t"));
  Kel::strepLiteral(it, end, "})");
}

std::ostream& operator<<(std::ostream& os, const ViaKey& k) {
  return os << "via(" << unsigned(k.kind()) << ':' << k.vrfId() << ':' << k.selector() << ':'
            << k.viaIndex() << ')';
}

std::string valueToStrep(const ViaKey& k) {
  return "Value('Routing::Rib::ViaKey', ** {'kind': " + Kel::valueToStrep(k.kind()) +
         ", 'vrfId': " + Kel::valueToStrep(k.vrfId()) +
         ", 'selector': " + Kel::valueToStrep(k.selector()) +
         ", 'viaIndex': " + Kel::valueToStrep(k.viaIndex()) + "})";
}

}  // namespace Routing::Rib
