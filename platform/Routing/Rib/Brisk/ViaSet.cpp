#include "platform/Routing/Rib/Brisk/ViaSet.h"

#include <algorithm>
#include <ostream>
#include <type_traits>

#include "Kel/Error.h"

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
