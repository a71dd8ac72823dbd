#include "platform/Routing/Rib/Brisk/ViaSet.h"

#include <algorithm>
#include <ostream>
#include <type_traits>

#include "Kel/Error.h"

namespace Routing::Rib::Brisk {

static_assert(std::is_trivially_copyable_v<ViaKey>);

void ViaSet::throwIndexRange() {
  throw Kel::RangeError("ViaIndex::value < ViaIndex::min or > ViaIndex::max not allowed");
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
