// Traits that adapt the framework's collections to entity attributes:
// a set of values, and a map whose key is read off the stored entity.
// Keys hash with `key.hash(seed)`, values and entities both.
#pragma once

#include <functional>

#include "Kel/FlatMap.h"
#include "Kel/HashTable.h"
#include "Kel/Ptr.h"

namespace Kel {

template <class K>
struct SetTraits {
  using Entry = K;
  using Key = K;
  static const K& key(const K& k) { return k; }
  static uint32_t hash(const K& k) { return k.hash(collectionHashSeed); }
};

// Entries are Ptr<V>; `KeyOf` (a member function or function of V) gives the key.
template <class K, class V, auto KeyOf>
struct PtrMapTraits {
  using Entry = Ptr<V>;
  using Key = K;
  static decltype(auto) key(const Ptr<V>& v) { return std::invoke(KeyOf, *v); }
  static uint32_t hash(const K& k) { return k.hash(collectionHashSeed); }
};

template <class K>
using HashedSet = HashTable<SetTraits<K>>;
template <class K, class V, auto KeyOf>
using HashedPtrMap = HashTable<PtrMapTraits<K, V, KeyOf>>;
// Small and ordered by key: flat, first element inline.
template <class K, class V, auto KeyOf>
struct OrderedPtrMapTraits {
  using Entry = Ptr<V>;
  using Key = K;
  static decltype(auto) key(const Ptr<V>& v) { return std::invoke(KeyOf, *v); }
};
template <class K, class V, auto KeyOf>
using OrderedPtrMap = FlatMap<OrderedPtrMapTraits<K, V, KeyOf>>;
// Small and in hash order, like a HashedPtrMap, but flat with the first element inline.
template <class K, class V, auto KeyOf, uint32_t InlineCapacity = 1>
using FlatHashedPtrMap = FlatMap<PtrMapTraits<K, V, KeyOf>, InlineCapacity>;

}  // namespace Kel
