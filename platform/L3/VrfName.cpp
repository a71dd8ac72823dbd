#include "platform/L3/VrfName.h"

#include <ostream>
#include <utility>

#include "Kel/Error.h"

namespace L3 {

VrfName::VrfName(Kel::String value) : value_(std::move(value)) {
  if (value_.size() > maxLength) {
    throw Kel::RangeError("VrfName::value::bytes > VrfName::maxLength not allowed");
  }
}

VrfName::VrfName(Kel::StrepIt& it, Kel::StrepIt end) : VrfName(Kel::String(it, end)) {}

const VrfName& VrfName::defaultVrf() {
  static const VrfName name("default");
  return name;
}

std::ostream& operator<<(std::ostream& os, const VrfName& v) { return os << v.value(); }

std::string valueToStrep(const VrfName& v) { return Kel::quoteStrep(v.value()); }

}  // namespace L3
