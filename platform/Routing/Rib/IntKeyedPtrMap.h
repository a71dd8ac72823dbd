// Hashed maps of child entities keyed by a plain integer (a VRF id, a
// transport kind, a selector) read off the child. Integers have no
// hash(seed) of their own, so the traits feed the value to Kel::Hasher with
// the collections' seed; order and costs are those of Kel::HashTable.
#pragma once

#include <cstdint>

#include "Kel/Collections.h"
#include "Kel/Hash.h"
#include "Kel/HashTable.h"

namespace Routing::Rib {

template <class K, class V, auto KeyOf>
struct IntPtrMapTraits : Kel::PtrMapTraits<K, V, KeyOf> {
  static uint32_t hash(K k) {
    return Kel::Hasher(Kel::collectionHashSeed).add(uint32_t(k)).result();
  }
};

template <class K, class V, auto KeyOf>
using IntKeyedPtrMap = Kel::HashTable<IntPtrMapTraits<K, V, KeyOf>>;

}  // namespace Routing::Rib
