#include "Kel/Hash.h"

#include <cstring>

namespace Kel {

Hasher& Hasher::add(std::string_view s) {
  size_t i = 0;
  for (; i + 4 <= s.size(); i += 4) {
    uint32_t w;
    std::memcpy(&w, s.data() + i, 4);
    add(w);
  }
  uint32_t tail = 0;
  for (size_t j = 0; i + j < s.size(); ++j) tail |= uint32_t(uint8_t(s[i + j])) << (8 * j);
  return add(tail).add(uint32_t(s.size()));
}

}  // namespace Kel
