// Routing::Rib::ViaSetContent: what a via set holds, seen in place: its flags
// and its via keys in order. The content ViaSetConfig deduplicates by, read
// off a Brisk::ViaSet or a stored entry alike.
//
// == and < compare the flags, then the keys in order (lexicographically); the
// hash takes the flags and the count, then chains each key's hash. Inline.
#pragma once

#include <algorithm>
#include <cstdint>
#include <span>

#include "Kel/Hash.h"
#include "platform/Routing/Rib/ViaKey.h"

namespace Routing::Rib {

struct ViaSetContent {
  uint32_t flags = 0;
  std::span<const ViaKey> viaKeys;

  uint32_t hash(uint32_t seed) const {
    uint32_t h = Kel::hashWords(flags, viaKeys.size(), seed);
    for (const ViaKey& k : viaKeys) h = k.hash(h);
    return h;
  }

  friend bool operator==(const ViaSetContent& a, const ViaSetContent& b) {
    return a.flags == b.flags &&
           std::equal(a.viaKeys.begin(), a.viaKeys.end(), b.viaKeys.begin(), b.viaKeys.end());
  }
  friend bool operator<(const ViaSetContent& a, const ViaSetContent& b) {
    if (a.flags != b.flags) return a.flags < b.flags;
    return std::lexicographical_compare(a.viaKeys.begin(), a.viaKeys.end(), b.viaKeys.begin(),
                                        b.viaKeys.end());
  }
};

}  // namespace Routing::Rib
