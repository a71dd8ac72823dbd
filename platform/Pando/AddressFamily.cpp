#include "platform/Pando/AddressFamily.h"

#include <ostream>

namespace Pando {

const Kel::EnumInfo& addressFamilyEnumInfo() {
  static const Kel::EnumInfo info("Pando::AddressFamily",
                                  {{int64_t(AddressFamily::ipunknown), "ipunknown"},
                                   {int64_t(AddressFamily::ipv4), "ipv4"},
                                   {int64_t(AddressFamily::ipv6), "ipv6"}});
  return info;
}

std::string valueToStrep(AddressFamily af) {
  return std::string(addressFamilyEnumInfo().stringValue(int64_t(af)));
}

std::ostream& operator<<(std::ostream& os, AddressFamily af) {
  return os << addressFamilyEnumInfo().stringValue(int64_t(af));
}

AddressFamily addressFamilyFromStrep(Kel::StrepIt& it, Kel::StrepIt end) {
  return AddressFamily(addressFamilyEnumInfo().sequenceToValue(it, end));
}

}  // namespace Pando
