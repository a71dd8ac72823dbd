// A collection kept as a flat sorted array, for the small ones (a route's
// preferences, a preference's via types and vias). The first InlineCapacity
// elements (one unless told) live inline, so the common small cases
// allocate nothing, and the map is as many words as that: entries are
// non-null pointers.
// Iteration is by ascending key, or, when Traits define `hash(key)`
// (FlatHashedPtrMap), in the order a HashTable of the same keys iterates:
// ascending (hash, key). Insert, erase and find are O(n): keep it small.
// Iterators are invalidated by insert and erase.
//
// Traits: `Entry`, `Key`, `static KeyRef key(const Entry&)`, optionally
// `static uint32_t hash(const Key&)`; keys need == and <.
#pragma once

#include <cstdint>
#include <cstring>
#include <new>
#include <utility>

#include "Kel/Pool.h"

namespace Kel {

template <class Traits, uint32_t InlineCapacity = 1>
class FlatMap {
 public:
  using Entry = typename Traits::Entry;
  using Key = typename Traits::Key;
  using const_iterator = const Entry*;
  // Entries are non-null pointers (Ptr): an inline slot holds one or is
  // zero, so that the map needs no count of its own, and past the inline
  // capacity the first slot holds the heap array's address, tagged in bit 0
  // (the array starts with its size and capacity). A route's preferences
  // then cost one word, not two.
  static_assert(sizeof(Entry) == sizeof(uintptr_t) && alignof(Entry) == alignof(uintptr_t),
                "entries are one pointer");
  static_assert(InlineCapacity >= 1);

  FlatMap() = default;
  FlatMap(const FlatMap&) = delete;
  FlatMap& operator=(const FlatMap&) = delete;
  ~FlatMap() {
    clearEntries();
    if (onHeap()) Pool::deallocate(header(), bytes());
  }

  uint32_t size() const {
    if (onHeap()) return header()->size;
    uint32_t n = 0;
    while (n < InlineCapacity && slot(n) != 0) ++n;
    return n;
  }
  bool empty() const { return onHeap() ? header()->size == 0 : slot(0) == 0; }
  const Entry* begin() const { return data(); }
  const Entry* end() const { return data() + size(); }
  const Entry& front() const { return data()[0]; }

  const Entry* find(const Key& key) const {
    const Entry* e = lowerBound(key);
    return e != end() && Traits::key(*e) == key ? e : nullptr;
  }
  Entry* find(const Key& key) { return const_cast<Entry*>(std::as_const(*this).find(key)); }

  // Inserts unless the key is present; returns the stored entry and whether
  // it was inserted. The entry must not be null.
  std::pair<Entry*, bool> insert(Entry&& entry) {
    const uint32_t n = size();
    uint32_t p = uint32_t(lowerBound(Traits::key(entry)) - data());
    if (p < n && Traits::key(data()[p]) == Traits::key(entry)) return {data() + p, false};
    if (n == capacity()) grow(capacity() * 2);
    Entry* d = data();
    if (p == n) {
      new (d + n) Entry(std::move(entry));
    } else {
      new (d + n) Entry(std::move(d[n - 1]));
      for (uint32_t i = n - 1; i > p; --i) d[i] = std::move(d[i - 1]);
      d[p] = std::move(entry);
    }
    sizeIs(n + 1);
    return {d + p, true};
  }

  bool erase(const Key& key) {
    Entry* e = find(key);
    if (e == nullptr) return false;
    // Counted first: inline, moving the entry out ends the count there.
    const uint32_t n = size();
    // Keep the entry alive until the array is consistent: its destructor may re-enter.
    [[maybe_unused]] Entry gone(std::move(*e));
    Entry* d = data();
    for (Entry* i = e; i + 1 < d + n; ++i) *i = std::move(*(i + 1));
    dropLast(n);
    return true;
  }

  // Removes and returns the last element; the map must not be empty.
  Entry popBack() {
    const uint32_t n = size();
    Entry out(std::move(data()[n - 1]));
    dropLast(n);
    return out;
  }

  void clear() {
    while (!empty()) popBack();
  }

  size_t bytes() const {
    return onHeap() ? sizeof(Header) + header()->capacity * sizeof(Entry) : 0;
  }

 private:
  struct Header {
    uint32_t size;
    uint32_t capacity;
  };
  static_assert(sizeof(Header) % alignof(Entry) == 0);

  uintptr_t slot(uint32_t i) const {
    uintptr_t w;
    std::memcpy(&w, slots_ + i * sizeof(Entry), sizeof w);
    return w;
  }
  void slotIs(uint32_t i, uintptr_t w) { std::memcpy(slots_ + i * sizeof(Entry), &w, sizeof w); }
  bool onHeap() const { return (slot(0) & 1) != 0; }
  Header* header() const { return reinterpret_cast<Header*>(slot(0) & ~uintptr_t(1)); }
  uint32_t capacity() const { return onHeap() ? header()->capacity : InlineCapacity; }
  Entry* data() {
    return onHeap() ? reinterpret_cast<Entry*>(header() + 1)
                    : std::launder(reinterpret_cast<Entry*>(slots_));
  }
  const Entry* data() const { return const_cast<FlatMap*>(this)->data(); }
  // Inline, the count is the entries themselves.
  void sizeIs(uint32_t n) {
    if (onHeap()) header()->size = n;
  }
  // The last of `n` entries, moved from, goes.
  void dropLast(uint32_t n) {
    data()[n - 1].~Entry();
    if (onHeap()) {
      header()->size = n - 1;
    } else {
      slotIs(n - 1, 0);
    }
  }

  const Entry* lowerBound(const Key& key) const {
    const Entry* e = data();
    const Entry* last = e + size();
    if constexpr (requires { Traits::hash(key); }) {
      const uint32_t h = Traits::hash(key);
      for (; e != last; ++e) {
        // The key itself stops the walk without hashing it again (a look-up
        // mostly finds its key, often the only one).
        if (Traits::key(*e) == key) break;
        const uint32_t eh = Traits::hash(Traits::key(*e));
        if (eh > h || (eh == h && !(Traits::key(*e) < key))) break;
      }
    } else {
      while (e != last && Traits::key(*e) < key) ++e;
    }
    return e;
  }

  // Only ever grows past the inline capacity.
  void grow(uint32_t capacity) {
    const uint32_t n = size();
    auto* fresh = static_cast<Header*>(Pool::allocate(sizeof(Header) + sizeof(Entry) * capacity));
    fresh->size = n;
    fresh->capacity = capacity;
    Entry* to = reinterpret_cast<Entry*>(fresh + 1);
    Entry* d = data();
    for (uint32_t i = 0; i < n; ++i) {
      new (to + i) Entry(std::move(d[i]));
      d[i].~Entry();
    }
    if (onHeap()) {
      Pool::deallocate(header(), bytes());
    } else {
      for (uint32_t i = 1; i < InlineCapacity; ++i) slotIs(i, 0);
    }
    slotIs(0, reinterpret_cast<uintptr_t>(fresh) | 1);
  }

  void clearEntries() {
    const uint32_t n = size();
    Entry* d = data();
    for (uint32_t i = 0; i < n; ++i) d[i].~Entry();
    if (onHeap()) {
      header()->size = 0;
    } else {
      for (uint32_t i = 0; i < InlineCapacity; ++i) slotIs(i, 0);
    }
  }

  alignas(Entry) unsigned char slots_[InlineCapacity * sizeof(Entry)] = {};
};

}  // namespace Kel
