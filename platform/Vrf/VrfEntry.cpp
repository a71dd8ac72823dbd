#include "platform/Vrf/VrfEntry.h"

#include <algorithm>
#include <cstdio>
#include <string>

#include "Kel/Error.h"

namespace Vrf::VrfIdMap {

VrfEntry::VrfEntry(VrfId id, std::string_view storedName)
    : vrfId_(id), size_(uint32_t(storedName.size())) {
  std::copy_n(storedName.begin(), std::min<size_t>(storedName.size(), bufferSize), name_);
}

L3::VrfName VrfEntry::vrfName() const {
  if (size_ > bufferSize) {
    char address[32];
    std::snprintf(address, sizeof address, "%p", buffer());
    throw Kel::InvalidSizeError("expected size <= " + std::to_string(bufferSize) +
                                ", instead got " + std::to_string(size_) +
                                ". Buffer is at address: " + address +
                                " with contents: " + std::string(stored()));
  }
  return L3::VrfName(Kel::String(stored()));
}

}  // namespace Vrf::VrfIdMap
