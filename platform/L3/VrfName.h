// L3::VrfName: the name of a VRF, at most 100 bytes.
//
// A Kel::String inside, so copies share the name. A longer name raises
// Kel::RangeError, from construction and from parsing alike. The canonical
// form is the quoted name; operator<< prints it bare. The empty name is the
// default value, not the default VRF, which is named "default".
#pragma once

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>

#include "Kel/String.h"

namespace L3 {

class VrfName {
 public:
  static constexpr size_t maxLength = 100;

  VrfName() = default;
  explicit VrfName(Kel::String value);
  VrfName(Kel::StrepIt& it, Kel::StrepIt end);
  static const VrfName& defaultVrf();

  std::string_view value() const { return value_.view(); }
  uint32_t hash(uint32_t seed) const { return value_.hash(seed); }

  friend bool operator==(const VrfName& a, const VrfName& b) { return a.value_ == b.value_; }
  friend bool operator<(const VrfName& a, const VrfName& b) { return a.value_ < b.value_; }

 private:
  Kel::String value_;
};

std::ostream& operator<<(std::ostream& os, const VrfName& v);
std::string valueToStrep(const VrfName& v);

}  // namespace L3
