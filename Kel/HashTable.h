// An ordered hash table: the iteration order depends only on the set of keys.
//
// Elements sit in slot order sorted by (seeded 32-bit hash, key): linear
// probing from a home slot taken from the hash's top bits, each cluster kept
// sorted, and no wrap-around (an overflow tail follows the last home slot).
// Hence:
// - iteration is by ascending (hash, key) whatever the history of inserts,
//   deletes and growth;
// - seek(key) finds the first element at or after key's place, present or not,
//   so a paused pass can resume from a key and see every element that stayed
//   present exactly once.
// Up to `denseMax` elements the table is a plain sorted array (no empty slots),
// which keeps the many tiny collections small.
// Iterators are invalidated by insert and erase; resume with seek.
// Costs: find, insert, erase are O(1) expected (insert and erase shift the
// rest of a cluster); growth is linear and keeps the order.
//
// Traits: `Entry` (stored), `Key`, `static KeyRef key(const Entry&)` and
// `static uint32_t hash(const Key&)`; keys need == and <.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

namespace Kel {

// Collections hash with one fixed seed so that orders are the same in every run.
inline constexpr uint32_t collectionHashSeed = 0x5eed1e55u;
// Tables filled by walking another table of the same keys in its order would
// receive keys in ascending hash order and pile them into one cluster; tables
// that mirror a collection (nested reactors) hash with a seed of their own.
inline constexpr uint32_t mirrorHashSeed = collectionHashSeed ^ 0x9e3779b9u;

template <class Traits>
class HashTable {
 public:
  using Entry = typename Traits::Entry;
  using Key = typename Traits::Key;

 private:
  struct Slot {
    uint32_t hash;
    bool used;
    alignas(Entry) unsigned char storage[sizeof(Entry)];
    Entry& entry() { return *std::launder(reinterpret_cast<Entry*>(storage)); }
    const Entry& entry() const { return *std::launder(reinterpret_cast<const Entry*>(storage)); }
  };

 public:
  static constexpr uint32_t denseMax = 8;

  class const_iterator {
   public:
    using value_type = Entry;
    using difference_type = std::ptrdiff_t;
    const_iterator() = default;
    const Entry& operator*() const { return t_->slots_[i_].entry(); }
    const Entry* operator->() const { return &t_->slots_[i_].entry(); }
    const_iterator& operator++() {
      i_ = t_->nextUsed(i_ + 1);
      return *this;
    }
    bool operator==(const const_iterator& o) const { return i_ == o.i_; }
    uint32_t hash() const { return t_->slots_[i_].hash; }

   private:
    friend class HashTable;
    const_iterator(const HashTable* t, uint32_t i) : t_(t), i_(i) {}
    const HashTable* t_ = nullptr;
    uint32_t i_ = 0;
  };

  HashTable() = default;
  HashTable(const HashTable&) = delete;
  HashTable& operator=(const HashTable&) = delete;
  ~HashTable() { release(); }

  uint32_t size() const { return size_; }
  bool empty() const { return size_ == 0; }

  // Moves the hint past emptied slots, so that taking the first element
  // over and over (emptying a table) stays linear.
  const_iterator begin() const { return const_iterator(this, first_ = nextUsed(first_)); }
  const_iterator end() const { return const_iterator(this, slotCount_); }

  // The first element at or after `key`'s place in iteration order.
  const_iterator seek(const Key& key) const {
    const uint32_t h = Traits::hash(key);
    uint32_t i = home(h);
    for (; i < slotCount_; ++i) {
      const Slot& s = slots_[i];
      if (s.used && !less(s, h, key)) break;
    }
    return const_iterator(this, i);
  }

  const Entry* find(const Key& key) const {
    const uint32_t h = Traits::hash(key);
    for (uint32_t i = home(h); i < slotCount_; ++i) {
      const Slot& s = slots_[i];
      if (!s.used || s.hash > h) return nullptr;
      if (s.hash == h && Traits::key(s.entry()) == key) return &s.entry();
    }
    return nullptr;
  }
  Entry* find(const Key& key) {
    return const_cast<Entry*>(static_cast<const HashTable*>(this)->find(key));
  }

  // Inserts `entry` unless its key is present; returns the stored entry and
  // whether it was inserted.
  std::pair<Entry*, bool> insert(Entry&& entry) {
    const uint32_t h = Traits::hash(Traits::key(entry));
    for (;;) {
      uint32_t p = home(h);
      for (; p < slotCount_; ++p) {
        Slot& s = slots_[p];
        if (!s.used || s.hash > h) break;
        if (s.hash == h) {
          const auto& k = Traits::key(s.entry());
          if (k == Traits::key(entry)) return {&s.entry(), false};
          if (Traits::key(entry) < k) break;
        }
      }
      const bool underLimit = size_ + 1 <= loadLimit();
      if (underLimit) {
        uint32_t e = p;
        while (e < slotCount_ && slots_[e].used) ++e;
        if (e < slotCount_) {
          shiftRight(p, e);
          first_ = std::min(first_, p);
          Slot& s = slots_[p];
          new (s.storage) Entry(std::move(entry));
          s.hash = h;
          s.used = true;
          ++size_;
          return {&s.entry(), true};
        }
      }
      grow(underLimit);
    }
  }

  bool erase(const Key& key) {
    const uint32_t h = Traits::hash(key);
    for (uint32_t i = home(h); i < slotCount_; ++i) {
      Slot& s = slots_[i];
      if (!s.used || s.hash > h) return false;
      if (s.hash == h && Traits::key(s.entry()) == key) {
        // Move the entry out first: its destructor may re-enter this table.
        [[maybe_unused]] Entry gone(std::move(s.entry()));
        s.entry().~Entry();
        s.used = false;
        --size_;
        closeGap(i);
        return true;
      }
    }
    return false;
  }

  // Removes and returns the first element; the table must not be empty.
  Entry popFront() {
    // Start at the hint: rescanning the emptied front on every pop would make
    // emptying a large table quadratic.
    const uint32_t i = first_ = nextUsed(first_);
    Slot& s = slots_[i];
    Entry out(std::move(s.entry()));
    s.entry().~Entry();
    s.used = false;
    --size_;
    closeGap(i);
    return out;
  }

  void clear() {
    while (size_ != 0) popFront();
  }

  // Bytes held by the slot array (for memory accounting).
  size_t bytes() const { return size_t(slotCount_) * sizeof(Slot); }

 private:
  uint32_t home(uint32_t h) const { return bits_ == 0 ? 0 : h >> (32 - bits_); }
  uint32_t homeCount() const { return bits_ == 0 ? 1 : 1u << bits_; }
  uint32_t loadLimit() const {
    return bits_ == 0 ? slotCount_ : homeCount() - homeCount() / 8;  // 7/8 of the homes
  }
  static bool less(const Slot& s, uint32_t h, const Key& key) {
    return s.hash < h || (s.hash == h && Traits::key(s.entry()) < key);
  }
  uint32_t nextUsed(uint32_t i) const {
    while (i < slotCount_ && !slots_[i].used) ++i;
    return i;
  }

  static void moveSlot(Slot& to, Slot& from) {
    new (to.storage) Entry(std::move(from.entry()));
    from.entry().~Entry();
    to.hash = from.hash;
    to.used = true;
    from.used = false;
  }

  // Slots [p, e) move one to the right; e is free.
  void shiftRight(uint32_t p, uint32_t e) {
    for (uint32_t j = e; j > p; --j) moveSlot(slots_[j], slots_[j - 1]);
  }

  // Slot i was freed: pull back the displaced elements behind it.
  void closeGap(uint32_t i) {
    for (uint32_t j = i + 1; j < slotCount_; ++j) {
      Slot& s = slots_[j];
      if (!s.used || home(s.hash) == j) break;
      moveSlot(slots_[j - 1], s);
    }
  }

  // `tailOnly`: the load is fine but a cluster ran off the end. Doubling the
  // homes would not help keys whose hashes share their top bits (it would
  // double again on every insert), so only the overflow tail grows.
  void grow(bool tailOnly) {
    uint32_t newBits = bits_;
    uint32_t newSlots;
    if (tailOnly) {
      newSlots = slotCount_ + overflowFor(bits_);
    } else if (bits_ == 0 && slotCount_ < denseMax) {
      newSlots = slotCount_ == 0 ? 1 : slotCount_ * 2;
    } else {
      // Leave dense mode, or double the homes; an overflow tail takes the
      // clusters that run past the last home.
      newBits = bits_ == 0 ? 4 : bits_ + 1;
      newSlots = std::max((1u << newBits) + overflowFor(newBits), lastPlaceWith(newBits) + 1);
    }
    Slot* old = slots_;
    const uint32_t oldCount = slotCount_;
    slots_ = static_cast<Slot*>(::operator new(sizeof(Slot) * newSlots));
    for (uint32_t i = 0; i < newSlots; ++i) slots_[i].used = false;
    slotCount_ = newSlots;
    bits_ = newBits;
    first_ = 0;
    // Old slots are in final order: each lands at max(its home, previous + 1).
    uint32_t next = 0;
    for (uint32_t i = 0; i < oldCount; ++i) {
      if (!old[i].used) continue;
      uint32_t p = std::max(next, home(old[i].hash));
      moveSlot(slots_[p], old[i]);
      next = p + 1;
    }
    ::operator delete(old);
  }

  // The slot the last element would take with `bits` home bits.
  uint32_t lastPlaceWith(uint32_t bits) const {
    uint32_t next = 0;
    for (uint32_t i = 0; i < slotCount_; ++i) {
      if (slots_[i].used) next = std::max(next, slots_[i].hash >> (32 - bits)) + 1;
    }
    return next == 0 ? 0 : next - 1;
  }

  static uint32_t overflowFor(uint32_t bits) { return 8 + 2 * bits; }

  void release() {
    for (uint32_t i = 0; i < slotCount_; ++i) {
      if (slots_[i].used) slots_[i].entry().~Entry();
    }
    ::operator delete(slots_);
    slots_ = nullptr;
    slotCount_ = size_ = first_ = 0;
    bits_ = 0;
  }

  Slot* slots_ = nullptr;
  uint32_t slotCount_ = 0;
  uint32_t size_ = 0;
  uint32_t bits_ = 0;
  mutable uint32_t first_ = 0;  // no used slot before it
};

}  // namespace Kel
