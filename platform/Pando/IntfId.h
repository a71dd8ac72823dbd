// Pando::IntfId: an interface, by name ("Ethernet1", "Vlan10").
//
// A Kel::String inside, so copies share the name. The empty name is no
// interface and prints as "none"; the canonical form is the quoted name,
// so an interface called "none" still reads back exactly.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <utility>

#include "Kel/String.h"

namespace Pando {

class IntfId {
 public:
  IntfId() = default;
  explicit IntfId(Kel::String name) : name_(std::move(name)) {}
  IntfId(Kel::StrepIt& it, Kel::StrepIt end) : name_(it, end) {}

  const Kel::String& name() const { return name_; }
  bool isEmpty() const { return name_.empty(); }
  uint32_t hash(uint32_t seed) const { return name_.hash(seed); }

  friend bool operator==(const IntfId& a, const IntfId& b) { return a.name_ == b.name_; }
  friend bool operator<(const IntfId& a, const IntfId& b) { return a.name_ < b.name_; }

 private:
  Kel::String name_;
};

inline std::ostream& operator<<(std::ostream& os, const IntfId& i) {
  return i.isEmpty() ? os << "none" : os << i.name();
}
inline std::string valueToStrep(const IntfId& i) { return Kel::valueToStrep(i.name()); }

}  // namespace Pando
