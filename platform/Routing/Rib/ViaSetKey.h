// Routing::Rib::ViaSetKey: the id the RIB gives a deduplicated via set.
//
// A 64-bit id; 0 is the empty key. Order is by id; the hash feeds the low
// then the high 32 bits to Kel::Hasher. operator<< writes "viaSet(<id>)".
#pragma once

#include <cstdint>
#include <ostream>

#include "Kel/Hash.h"

namespace Routing::Rib {

class ViaSetKey {
 public:
  ViaSetKey() = default;
  explicit ViaSetKey(uint64_t id) : id_(id) {}

  uint64_t id() const { return id_; }
  bool isEmpty() const { return id_ == 0; }
  uint32_t hash(uint32_t seed) const {
    return Kel::Hasher(seed).add(uint32_t(id_)).add(uint32_t(id_ >> 32)).result();
  }

  friend bool operator==(const ViaSetKey& a, const ViaSetKey& b) { return a.id_ == b.id_; }
  friend bool operator<(const ViaSetKey& a, const ViaSetKey& b) { return a.id_ < b.id_; }

 private:
  uint64_t id_ = 0;
};

inline std::ostream& operator<<(std::ostream& os, const ViaSetKey& k) {
  return os << "viaSet(" << k.id() << ')';
}

}  // namespace Routing::Rib
