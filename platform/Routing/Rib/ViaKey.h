// Routing::Rib::ViaKey: names one via (next hop) in the RIB's via tables.
//
// 16 bytes: the via's transport `kind` (kindIpv4, kindIpv6, kindEvpn; 0 only
// in the empty key), the VRF id, the `selector` the RIB uses to pick the
// per-protocol via table, and the `viaIndex` that identifies the next hop
// within the vias of that kind, VRF and selector. The default key is all zero,
// the empty via key. Order is by the fields in that order; the hash takes
// them as two words (kind and VRF id, selector and via index), Kel::hashWords. operator<< writes
// "via(kind:vrfId:selector:viaIndex)".
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <string>

#include "Kel/Hash.h"
#include "Kel/HashTable.h"
#include "Kel/Strep.h"
#include "platform/Vrf/VrfId.h"

namespace Routing::Rib {

class ViaKey {
 public:
  static constexpr uint8_t kindNone = 0;
  static constexpr uint8_t kindIpv4 = 1;
  static constexpr uint8_t kindIpv6 = 2;
  static constexpr uint8_t kindEvpn = 3;

  ViaKey() = default;
  ViaKey(uint8_t kind, Vrf::VrfIdMap::VrfId vrfId, uint32_t selector, uint32_t viaIndex)
      : kind_(kind), vrfId_(vrfId), selector_(selector), viaIndex_(viaIndex) {}
  // Reads the canonical form; a field out of range is a Kel::DeserializationError naming it.
  ViaKey(Kel::StrepIt& it, Kel::StrepIt end);

  uint8_t kind() const { return kind_; }
  Vrf::VrfIdMap::VrfId vrfId() const { return vrfId_; }
  uint32_t selector() const { return selector_; }
  uint32_t viaIndex() const { return viaIndex_; }
  bool isEmpty() const { return *this == ViaKey(); }

  uint32_t hash(uint32_t seed) const {
    return Kel::hashWords(uint64_t(kind_) << 32 | vrfId_, uint64_t(selector_) << 32 | viaIndex_,
                          seed);
  }
  // The hash the RIB's tables of via keys file a key under: a key looked up
  // in several of them is hashed once (their look-ups by key and hash).
  uint32_t tableHash() const { return hash(Kel::collectionHashSeed); }

  friend bool operator==(const ViaKey&, const ViaKey&) = default;
  friend std::strong_ordering operator<=>(const ViaKey&, const ViaKey&) = default;

 private:
  uint8_t kind_ = kindNone;
  Vrf::VrfIdMap::VrfId vrfId_ = 0;
  uint32_t selector_ = 0;
  uint32_t viaIndex_ = 0;
};

static_assert(sizeof(ViaKey) == 16);

// For std containers: the key's hash with seed 0.
struct ViaKeyHash {
  size_t operator()(const ViaKey& k) const { return k.hash(0); }
};

std::ostream& operator<<(std::ostream& os, const ViaKey& k);
std::string valueToStrep(const ViaKey& k);

}  // namespace Routing::Rib
