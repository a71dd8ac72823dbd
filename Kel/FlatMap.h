// A collection kept as a flat sorted array, for the small ones (a route's
// preferences, a preference's via types and vias). The first InlineCapacity
// elements (one unless told) live inline, so the common small cases
// allocate nothing.
// Iteration is by ascending key, or, when Traits define `hash(key)`
// (FlatHashedPtrMap), in the order a HashTable of the same keys iterates:
// ascending (hash, key). Insert, erase and find are O(n): keep it small.
// Iterators are invalidated by insert and erase.
//
// Traits: `Entry`, `Key`, `static KeyRef key(const Entry&)`, optionally
// `static uint32_t hash(const Key&)`; keys need == and <.
#pragma once

#include <cstdint>
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
  static_assert(alignof(Entry) <= alignof(void*), "pooled blocks are word-aligned");

  FlatMap() = default;
  FlatMap(const FlatMap&) = delete;
  FlatMap& operator=(const FlatMap&) = delete;
  ~FlatMap() {
    clearEntries();
    if (onHeap()) Pool::deallocate(heap_, bytes());
  }

  uint32_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  const Entry* begin() const { return data(); }
  const Entry* end() const { return data() + size_; }
  const Entry& front() const { return data()[0]; }

  const Entry* find(const Key& key) const {
    const Entry* e = lowerBound(key);
    return e != end() && Traits::key(*e) == key ? e : nullptr;
  }
  Entry* find(const Key& key) { return const_cast<Entry*>(std::as_const(*this).find(key)); }

  // Inserts unless the key is present; returns the stored entry and whether
  // it was inserted.
  std::pair<Entry*, bool> insert(Entry&& entry) {
    uint32_t p = uint32_t(lowerBound(Traits::key(entry)) - data());
    if (p < size_ && Traits::key(data()[p]) == Traits::key(entry)) return {data() + p, false};
    if (size_ == capacity_) reserve(capacity_ * 2);
    Entry* d = data();
    if (p == size_) {
      new (d + size_) Entry(std::move(entry));
    } else {
      new (d + size_) Entry(std::move(d[size_ - 1]));
      for (uint32_t i = size_ - 1; i > p; --i) d[i] = std::move(d[i - 1]);
      d[p] = std::move(entry);
    }
    ++size_;
    return {d + p, true};
  }

  bool erase(const Key& key) {
    Entry* e = find(key);
    if (e == nullptr) return false;
    // Keep the entry alive until the array is consistent: its destructor may re-enter.
    [[maybe_unused]] Entry gone(std::move(*e));
    Entry* d = data();
    for (Entry* i = e; i + 1 < d + size_; ++i) *i = std::move(*(i + 1));
    d[--size_].~Entry();
    return true;
  }

  // Removes and returns the last element; the map must not be empty.
  Entry popBack() {
    Entry out(std::move(data()[size_ - 1]));
    data()[--size_].~Entry();
    return out;
  }

  void clear() {
    while (size_ != 0) popBack();
  }

  size_t bytes() const { return onHeap() ? capacity_ * sizeof(Entry) : 0; }

 private:
  bool onHeap() const { return capacity_ > InlineCapacity; }
  Entry* data() { return onHeap() ? heap_ : reinterpret_cast<Entry*>(&inline_); }
  const Entry* data() const { return onHeap() ? heap_ : reinterpret_cast<const Entry*>(&inline_); }

  const Entry* lowerBound(const Key& key) const {
    const Entry* e = data();
    const Entry* last = e + size_;
    if constexpr (requires { Traits::hash(key); }) {
      const uint32_t h = Traits::hash(key);
      for (; e != last; ++e) {
        const uint32_t eh = Traits::hash(Traits::key(*e));
        if (eh > h || (eh == h && !(Traits::key(*e) < key))) break;
      }
    } else {
      while (e != last && Traits::key(*e) < key) ++e;
    }
    return e;
  }

  // Only ever grows past the inline capacity.
  void reserve(uint32_t capacity) {
    Entry* fresh = static_cast<Entry*>(Pool::allocate(sizeof(Entry) * capacity));
    Entry* d = data();
    for (uint32_t i = 0; i < size_; ++i) {
      new (fresh + i) Entry(std::move(d[i]));
      d[i].~Entry();
    }
    if (onHeap()) Pool::deallocate(heap_, bytes());
    heap_ = fresh;
    capacity_ = capacity;
  }

  void clearEntries() {
    Entry* d = data();
    for (uint32_t i = 0; i < size_; ++i) d[i].~Entry();
    size_ = 0;
  }

  union {
    Entry* heap_;
    alignas(Entry) unsigned char inline_[sizeof(Entry) * InlineCapacity];
  };
  uint32_t size_ = 0;
  uint32_t capacity_ = InlineCapacity;
};

}  // namespace Kel
