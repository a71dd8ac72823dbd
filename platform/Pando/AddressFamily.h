// Pando::AddressFamily: the IP family of an address or prefix.
//
// Enumeration services come from one Kel::EnumInfo ("Pando::AddressFamily");
// the canonical form is the enumerator's name ("ipv4"). Parsing accepts a
// name or a number; anything else is the EnumInfo's Kel::RangeError.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>

#include "Kel/Enum.h"
#include "Kel/Strep.h"

namespace Pando {

enum class AddressFamily : uint32_t { ipunknown = 0, ipv4 = 1, ipv6 = 2 };

const Kel::EnumInfo& addressFamilyEnumInfo();
std::string valueToStrep(AddressFamily af);
std::ostream& operator<<(std::ostream& os, AddressFamily af);
AddressFamily addressFamilyFromStrep(Kel::StrepIt& it, Kel::StrepIt end);

}  // namespace Pando
