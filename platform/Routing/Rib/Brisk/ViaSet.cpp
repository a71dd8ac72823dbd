#include "platform/Routing/Rib/Brisk/ViaSet.h"

#include <algorithm>
#include <ostream>
#include <type_traits>

#include "Kel/Error.h"
#include "Kel/Hash.h"

namespace Routing::Rib::Brisk {

static_assert(std::is_trivially_copyable_v<ViaKey>);

void ViaSet::viaKeyIs(uint32_t index, const ViaKey& k) {
  if (index >= maxVias) {
    throw Kel::RangeError("ViaIndex::value < ViaIndex::min or > ViaIndex::max not allowed");
  }
  ViaKey* key = keys();
  if (index > size_) std::fill(key + size_, key + index, ViaKey());
  key[index] = k;
  if (index >= size_) size_ = index + 1;
}

uint32_t ViaSet::hash(uint32_t seed) const {
  Kel::Hasher h(seed);
  h.add(flags_);
  for (const ViaKey& k : *this) h.add(k.kind()).add(k.vrfId()).add(k.selector()).add(k.viaIndex());
  return h.result();
}

bool operator==(const ViaSet& a, const ViaSet& b) {
  return a.flags_ == b.flags_ && std::equal(a.begin(), a.end(), b.begin(), b.end());
}

std::ostream& operator<<(std::ostream& os, const ViaSet& s) {
  os << "{flags 0x" << std::hex << s.flags() << std::dec;
  const char* separator = ": ";
  for (const ViaKey& k : s) {
    os << separator << k;
    separator = ", ";
  }
  return os << '}';
}

}  // namespace Routing::Rib::Brisk
