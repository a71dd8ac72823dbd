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
// rest of a cluster); growth is linear and keeps the order. A table that
// empties gives its slots back, so that entries gone for good leave no
// memory behind.
//
// Traits: `Entry` (stored), `Key`, `KeyRef key(const Entry&)` and
// `uint32_t hash(const Key&)`; keys need == and <. The traits may carry state
// (a table made with a traits object calls it); they may also name a `vacant`
// Entry value, never stored, that marks free slots in place of a used flag,
// so small trivially copyable entries make small slots.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <type_traits>
#include <utility>

#include "Kel/HugePages.h"
#include "Kel/Prefetch.h"

namespace Kel {

// Collections hash with one fixed seed so that orders are the same in every run.
inline constexpr uint32_t collectionHashSeed = 0x5eed1e55u;
// Tables filled by walking another table of the same keys in its order would
// receive keys in ascending hash order and pile them into one cluster; tables
// that mirror a collection (nested reactors) hash with a seed of their own.
inline constexpr uint32_t mirrorHashSeed = collectionHashSeed ^ 0x9e3779b9u;

namespace detail {

template <class Traits>
concept NamesVacant = requires {
  Traits::vacant;
};

// A HashTable slot: the hash, the entry and a used flag.
template <class Traits, bool = NamesVacant<Traits>>
struct HashSlot {
  using Entry = typename Traits::Entry;
  uint32_t hash;
  bool used_;
  alignas(Entry) unsigned char storage[sizeof(Entry)];

  bool used() const { return used_; }
  Entry& entry() { return *std::launder(reinterpret_cast<Entry*>(storage)); }
  const Entry& entry() const { return *std::launder(reinterpret_cast<const Entry*>(storage)); }
  // On raw memory too.
  void clear() { used_ = false; }
  void put(uint32_t h, Entry&& e) {
    new (storage) Entry(std::move(e));
    hash = h;
    used_ = true;
  }
  Entry take() {
    Entry out(std::move(entry()));
    entry().~Entry();
    used_ = false;
    return out;
  }
  void moveFrom(HashSlot& from) {
    new (storage) Entry(std::move(from.entry()));
    from.entry().~Entry();
    hash = from.hash;
    used_ = true;
    from.used_ = false;
  }
  void destroy() { entry().~Entry(); }
};

// The traits name a vacant entry: it marks a free slot.
template <class Traits>
struct HashSlot<Traits, true> {
  using Entry = typename Traits::Entry;
  static_assert(std::is_trivially_copyable_v<Entry>);
  uint32_t hash;
  Entry e;

  bool used() const { return !(e == Traits::vacant); }
  Entry& entry() { return e; }
  const Entry& entry() const { return e; }
  void clear() { e = Traits::vacant; }
  void put(uint32_t h, Entry&& v) {
    e = v;
    hash = h;
  }
  Entry take() { return std::exchange(e, Traits::vacant); }
  void moveFrom(HashSlot& from) {
    e = std::exchange(from.e, Traits::vacant);
    hash = from.hash;
  }
  void destroy() {}
};

}  // namespace detail

template <class Traits>
class HashTable {
 public:
  using Entry = typename Traits::Entry;
  using Key = typename Traits::Key;

 private:
  using Slot = detail::HashSlot<Traits>;

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
    // Where the element sits now: a hint for probable(h, place).
    uint32_t place() const { return i_; }
    decltype(auto) key() const { return t_->traits_.key(t_->slots_[i_].entry()); }

   private:
    friend class HashTable;
    const_iterator(const HashTable* t, uint32_t i) : t_(t), i_(i) {}
    const HashTable* t_ = nullptr;
    uint32_t i_ = 0;
  };

  HashTable() = default;
  explicit HashTable(const Traits& traits) : traits_(traits) {}
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
    const uint32_t h = traits_.hash(key);
    uint32_t i = home(h);
    for (; i < slotCount_; ++i) {
      const Slot& s = slots_[i];
      if (s.used() && !less(s, h, key)) break;
    }
    return const_iterator(this, i);
  }

  const Entry* find(const Key& key) const { return find(key, traits_.hash(key)); }
  // As find(key), with `h` its hash (hashOf(key)), taken once for a key
  // looked up in several tables that hash it alike.
  const Entry* find(const Key& key, uint32_t h) const {
    const uint32_t i = slotOf(key, h);
    return i == slotCount_ ? nullptr : &slots_[i].entry();
  }
  Entry* find(const Key& key) {
    return const_cast<Entry*>(static_cast<const HashTable*>(this)->find(key));
  }

  // Look-ahead for passes over many keys, by hash (hashOf, or an iterator's
  // hash()): prefetch starts loading the slot where a look-up begins; once it
  // is in cache, probable reads no key, so it never misses on one: it returns
  // the entry of that hash (the key's, unless another shares the hash) or null.
  uint32_t hashOf(const Key& key) const { return traits_.hash(key); }
  void prefetch(uint32_t h) const { prefetchLine(slots_ + home(h)); }
  const Entry* probable(uint32_t h) const {
    for (uint32_t i = home(h); i < slotCount_; ++i) {
      const Slot& s = slots_[i];
      if (!s.used() || s.hash > h) return nullptr;
      if (s.hash == h) return &s.entry();
    }
    return nullptr;
  }
  // As probable(h), trying first `place` (an iterator's place()): a pass
  // that walks the table finds its elements ahead again without a probe,
  // unless a write moved them meanwhile.
  const Entry* probable(uint32_t h, uint32_t place) const {
    if (place < slotCount_ && slots_[place].used() && slots_[place].hash == h) {
      return &slots_[place].entry();
    }
    return probable(h);
  }

  // Inserts `entry` unless its key is present; returns the stored entry and
  // whether it was inserted.
  std::pair<Entry*, bool> insert(Entry&& entry) {
    const uint32_t h = traits_.hash(traits_.key(entry));
    const auto [p, present] = probe(h, traits_.key(entry));
    if (present) return {&slots_[p].entry(), false};
    return {place(p, h, std::move(entry)), true};
  }

  // Returns the element with `key`, or files make() (an entry with that key)
  // when there is none: one probe, and no entry made in vain.
  template <class Make>
  std::pair<Entry*, bool> insertWith(const Key& key, Make&& make) {
    const uint32_t h = traits_.hash(key);
    const auto [p, present] = probe(h, key);
    if (present) return {&slots_[p].entry(), false};
    return {place(p, h, make()), true};
  }

  bool erase(const Key& key) {
    const uint32_t i = slotOf(key);
    if (i == slotCount_) return false;
    // The entry dies once the table is whole: its destructor may re-enter it.
    removeAt(i);
    return true;
  }

  // Removes and returns the element with `key`, if present.
  std::optional<Entry> extract(const Key& key) {
    const uint32_t i = slotOf(key);
    if (i == slotCount_) return std::nullopt;
    return removeAt(i);
  }

  // Removes and returns the first element; the table must not be empty.
  Entry popFront() {
    // Start at the hint: rescanning the emptied front on every pop would make
    // emptying a large table quadratic.
    first_ = nextUsed(first_);
    return removeAt(first_);
  }

  void clear() {
    while (size_ != 0) popFront();
  }

  // Destroys every element, calling stage(entry, k) for the elements ahead
  // of the one destroyed (see Lookahead): dropping a big table of owned
  // objects otherwise waits on one cache miss per element, one after another.
  template <int Stages, int Spacing, class Stage>
  void clearReadingAhead(Stage&& stage) {
    Lookahead<uint32_t, Stages, Spacing> ahead;
    uint32_t next = 0;
    const auto pushAhead = [&] {
      while (next < slotCount_ && !slots_[next].used()) ++next;
      if (next == slotCount_) return;
      ahead.push(next++, [&](uint32_t i, int k) { stage(std::as_const(slots_[i].entry()), k); });
    };
    for (uint32_t i = 0; i < ahead.lead; ++i) pushAhead();
    for (uint32_t i = 0; i < slotCount_; ++i) {
      if (!slots_[i].used()) continue;
      pushAhead();
      slots_[i].destroy();
      slots_[i].clear();
    }
    release();
  }

  // Makes room for `n` elements now, so that inserting up to that many
  // grows nothing: a paced pass that knows its size keeps the linear cost of
  // growth out of its slices. Keeps the order.
  void reserve(uint32_t n) {
    if (n <= denseMax) return;
    uint32_t bits = std::max(bits_, 4u);
    while ((1u << bits) - (1u << bits) / 8 < n) ++bits;
    if (bits != bits_) rehash(bits);
  }

  // Bytes held by the slot array (for memory accounting).
  size_t bytes() const { return size_t(slotCount_) * sizeof(Slot); }

 private:
  uint32_t home(uint32_t h) const { return bits_ == 0 ? 0 : h >> (32 - bits_); }
  uint32_t homeCount() const { return bits_ == 0 ? 1 : 1u << bits_; }
  uint32_t loadLimit() const {
    return bits_ == 0 ? slotCount_ : homeCount() - homeCount() / 8;  // 7/8 of the homes
  }
  bool less(const Slot& s, uint32_t h, const Key& key) const {
    return s.hash < h || (s.hash == h && traits_.key(s.entry()) < key);
  }
  uint32_t nextUsed(uint32_t i) const {
    while (i < slotCount_ && !slots_[i].used()) ++i;
    return i;
  }

  // The slot holding `key` (true), or the slot where it would go (false).
  std::pair<uint32_t, bool> probe(uint32_t h, const Key& key) const {
    uint32_t p = home(h);
    for (; p < slotCount_; ++p) {
      const Slot& s = slots_[p];
      if (!s.used() || s.hash > h) break;
      if (s.hash == h) {
        const auto& k = traits_.key(s.entry());
        if (k == key) return {p, true};
        if (key < k) break;
      }
    }
    return {p, false};
  }

  // Files `entry`, absent and of hash `h`, at `p`, its place; grows (and
  // finds its place again) when the table is full.
  Entry* place(uint32_t p, uint32_t h, Entry&& entry) {
    for (;;) {
      const bool underLimit = size_ + 1 <= loadLimit();
      if (underLimit) {
        uint32_t e = p;
        while (e < slotCount_ && slots_[e].used()) ++e;
        if (e < slotCount_) {
          shiftRight(p, e);
          first_ = std::min(first_, p);
          Slot& s = slots_[p];
          s.put(h, std::move(entry));
          ++size_;
          return &s.entry();
        }
      }
      grow(underLimit);
      p = probe(h, traits_.key(entry)).first;
    }
  }

  // The slot holding `key`, or slotCount_.
  uint32_t slotOf(const Key& key) const { return slotOf(key, traits_.hash(key)); }
  uint32_t slotOf(const Key& key, uint32_t h) const {
    for (uint32_t i = home(h); i < slotCount_; ++i) {
      const Slot& s = slots_[i];
      if (!s.used() || s.hash > h) break;
      if (s.hash == h && traits_.key(s.entry()) == key) return i;
    }
    return slotCount_;
  }

  Entry removeAt(uint32_t i) {
    Entry out = slots_[i].take();
    --size_;
    closeGap(i);
    if (size_ == 0) release();
    return out;
  }

  // Slots [p, e) move one to the right; e is free.
  void shiftRight(uint32_t p, uint32_t e) {
    for (uint32_t j = e; j > p; --j) slots_[j].moveFrom(slots_[j - 1]);
  }

  // Slot i was freed: pull back the displaced elements behind it.
  void closeGap(uint32_t i) {
    for (uint32_t j = i + 1; j < slotCount_; ++j) {
      Slot& s = slots_[j];
      if (!s.used() || home(s.hash) == j) break;
      slots_[j - 1].moveFrom(s);
    }
  }

  // `tailOnly`: the load is fine but a cluster ran off the end. Doubling the
  // homes would not help keys whose hashes share their top bits (it would
  // double again on every insert), so only the overflow tail grows.
  void grow(bool tailOnly) {
    if (tailOnly) {
      rehash(bits_, slotCount_ + overflowFor(bits_));
    } else if (bits_ == 0 && slotCount_ < denseMax) {
      rehash(0, slotCount_ == 0 ? 1 : slotCount_ * 2);
    } else {
      // Leave dense mode, or double the homes.
      rehash(bits_ == 0 ? 4 : bits_ + 1);
    }
  }

  // With `newBits` home bits; an overflow tail takes the clusters that run
  // past the last home.
  void rehash(uint32_t newBits) {
    rehash(newBits, std::max((1u << newBits) + overflowFor(newBits), lastPlaceWith(newBits) + 1));
  }

  void rehash(uint32_t newBits, uint32_t newSlots) {
    Slot* old = slots_;
    const uint32_t oldCount = slotCount_;
    slots_ = static_cast<Slot*>(HugePages::allocate(sizeof(Slot) * newSlots));
    for (uint32_t i = 0; i < newSlots; ++i) slots_[i].clear();
    slotCount_ = newSlots;
    bits_ = newBits;
    first_ = 0;
    // Old slots are in final order: each lands at max(its home, previous + 1).
    uint32_t next = 0;
    for (uint32_t i = 0; i < oldCount; ++i) {
      if (!old[i].used()) continue;
      uint32_t p = std::max(next, home(old[i].hash));
      slots_[p].moveFrom(old[i]);
      next = p + 1;
    }
    HugePages::release(old, sizeof(Slot) * oldCount);
  }

  // The slot the last element would take with `bits` home bits.
  uint32_t lastPlaceWith(uint32_t bits) const {
    uint32_t next = 0;
    for (uint32_t i = 0; i < slotCount_; ++i) {
      if (slots_[i].used()) next = std::max(next, slots_[i].hash >> (32 - bits)) + 1;
    }
    return next == 0 ? 0 : next - 1;
  }

  static uint32_t overflowFor(uint32_t bits) { return 8 + 2 * bits; }

  void release() {
    for (uint32_t i = 0; i < slotCount_; ++i) {
      if (slots_[i].used()) slots_[i].destroy();
    }
    HugePages::release(slots_, sizeof(Slot) * slotCount_);
    slots_ = nullptr;
    slotCount_ = size_ = first_ = 0;
    bits_ = 0;
  }

  [[no_unique_address]] Traits traits_;
  Slot* slots_ = nullptr;
  uint32_t slotCount_ = 0;
  uint32_t size_ = 0;
  uint32_t bits_ = 0;
  mutable uint32_t first_ = 0;  // no used slot before it
};

}  // namespace Kel
