// An ordered hash table whose entries sit densely apart from its index.
//
// The index is a Kel::HashTable of 8-byte slots (hash, position), so order,
// seek and their guarantees are HashTable's: iteration by ascending (hash,
// key) whatever the history of inserts, deletes and growth. The entries sit
// in an array with no holes: erase moves the last entry into the hole and
// re-points its slot. A large table so costs its entries plus 9 to 18 bytes
// of index each, where a HashTable holding the entries pays (entry + 8)
// bytes per slot, 1/8 to 9/16 of them empty.
// The array is cut into chunks of as many entries as fill a huge page (the
// first one starts small and doubles up to that): growing a large table never
// moves its entries and touches only fresh chunks, and entries read at random
// do not miss the TLB as they would on 4 KiB pages.
// Entry pointers stay valid until the next insert or erase; iterators too
// (resume with seek). Costs: find is one index probe and one entry access;
// insert and erase are HashTable's plus an entry move, and erase probes once
// more to re-point the moved entry.
//
// Traits: as HashTable's (static); Entry must be nothrow movable.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <new>
#include <optional>
#include <type_traits>
#include <utility>
#include <vector>

#include "Kel/HashTable.h"
#include "Kel/HugePages.h"
#include "Kel/Prefetch.h"

namespace Kel {

namespace detail {

// Entries per chunk: as many as fit in a huge page.
template <class Entry>
constexpr uint32_t denseChunkEntries() {
  return uint32_t(std::max<size_t>(1, HugePages::bytes / sizeof(Entry)));
}

}  // namespace detail

template <class Traits, uint32_t chunkEntries = detail::denseChunkEntries<typename Traits::Entry>()>
class DenseHashTable {
 public:
  using Entry = typename Traits::Entry;
  using Key = typename Traits::Key;
  static_assert(std::is_nothrow_move_constructible_v<Entry>);
  static_assert(alignof(Entry) <= __STDCPP_DEFAULT_NEW_ALIGNMENT__);

 private:
  // The entries by position.
  class Store {
   public:
    static constexpr uint32_t chunkSize = chunkEntries;
    // A full chunk takes a huge page of its own, unless it is far smaller.
    static constexpr bool hugeChunks = size_t(chunkSize) * sizeof(Entry) > HugePages::bytes / 2;

    Store() = default;
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;
    ~Store() {
      for (uint32_t i = 0; i < size_; ++i) (*this)[i].~Entry();
      freeChunks();
    }

    uint32_t size() const { return size_; }
    Entry& operator[](uint32_t i) const { return chunks_[i / chunkSize][i % chunkSize]; }

    void pushBack(Entry&& e) {
      if (size_ == capacity()) grow();
      new (&(*this)[size_]) Entry(std::move(e));
      ++size_;
    }

    Entry popBack() {
      Entry& last = (*this)[size_ - 1];
      Entry out(std::move(last));
      last.~Entry();
      --size_;
      // Keep one empty chunk at most, so that churn at a chunk's edge does
      // not allocate and free it over and over; an empty table keeps none.
      const size_t n = chunks_.size();
      if (size_ == 0) {
        freeChunks();
        std::vector<Entry*>().swap(chunks_);
        firstCapacity_ = 0;
      } else if (n >= 2 && size_ <= (n - 2) * chunkSize) {
        release(chunks_.back(), chunkSize);
        chunks_.pop_back();
      }
      return out;
    }

    template <class F>
    void forEachBlock(F&& f) const {
      if (chunks_.empty()) return;
      f(chunks_.capacity() * sizeof(Entry*));
      f(bytesOf(firstCapacity_));
      for (size_t c = 1; c < chunks_.size(); ++c) f(bytesOf(chunkSize));
    }

   private:
    uint32_t capacity() const {
      return chunks_.size() <= 1 ? firstCapacity_ : uint32_t(chunks_.size()) * chunkSize;
    }

    void grow() {
      if (firstCapacity_ == chunkSize) {
        chunks_.push_back(allocate(chunkSize));
        return;
      }
      // The only chunk doubles; its entries move.
      const uint32_t capacity =
          std::min(firstCapacity_ == 0 ? 4u : 2 * firstCapacity_, uint32_t(chunkSize));
      Entry* fresh = allocate(capacity);
      if (chunks_.empty()) {
        chunks_.push_back(fresh);
      } else {
        Entry* old = chunks_[0];
        for (uint32_t i = 0; i < size_; ++i) {
          new (&fresh[i]) Entry(std::move(old[i]));
          old[i].~Entry();
        }
        release(old, firstCapacity_);
        chunks_[0] = fresh;
      }
      firstCapacity_ = capacity;
    }

    static size_t bytesOf(uint32_t n) {
      return hugeChunks && n == chunkSize ? HugePages::bytes : size_t(n) * sizeof(Entry);
    }
    static Entry* allocate(uint32_t n) {
      return static_cast<Entry*>(HugePages::allocate(bytesOf(n)));
    }
    static void release(Entry* c, uint32_t n) { HugePages::release(c, bytesOf(n)); }
    void freeChunks() {
      for (size_t c = 0; c < chunks_.size(); ++c)
        release(chunks_[c], c == 0 ? firstCapacity_ : chunkSize);
    }

    std::vector<Entry*> chunks_;
    uint32_t size_ = 0;
    uint32_t firstCapacity_ = 0;
  };

  struct IndexTraits {
    using Entry = uint32_t;  // a position in the store
    using Key = typename Traits::Key;
    static constexpr uint32_t vacant = UINT32_MAX;
    decltype(auto) key(uint32_t pos) const { return Traits::key((*store)[pos]); }
    static uint32_t hash(const Key& k) { return Traits::hash(k); }
    const Store* store = nullptr;
  };
  using Index = HashTable<IndexTraits>;

 public:
  class const_iterator {
   public:
    using value_type = Entry;
    using difference_type = std::ptrdiff_t;
    const_iterator() = default;
    const Entry& operator*() const { return (*store_)[*it_]; }
    const Entry* operator->() const { return &**this; }
    const_iterator& operator++() {
      ++it_;
      return *this;
    }
    bool operator==(const const_iterator& o) const { return it_ == o.it_; }
    uint32_t hash() const { return it_.hash(); }

   private:
    friend class DenseHashTable;
    const_iterator(typename Index::const_iterator it, const Store* store)
        : it_(it), store_(store) {}
    typename Index::const_iterator it_;
    const Store* store_ = nullptr;
  };

  DenseHashTable() = default;
  DenseHashTable(const DenseHashTable&) = delete;
  DenseHashTable& operator=(const DenseHashTable&) = delete;

  uint32_t size() const { return store_.size(); }

  const_iterator begin() const { return {index_.begin(), &store_}; }
  const_iterator end() const { return {index_.end(), &store_}; }
  // The first element at or after `key`'s place in iteration order.
  const_iterator seek(const Key& key) const { return {index_.seek(key), &store_}; }

  const Entry* find(const Key& key) const {
    const uint32_t* pos = index_.find(key);
    return pos ? &store_[*pos] : nullptr;
  }
  Entry* find(const Key& key) {
    return const_cast<Entry*>(static_cast<const DenseHashTable*>(this)->find(key));
  }

  // The entries as they sit in memory, positions 0 to size() - 1: a pass
  // that needs no order reads them one after the other, where iteration
  // order jumps about the store. Valid until the next insert or erase.
  const Entry& atPosition(uint32_t pos) const { return store_[pos]; }

  // Look-ahead by hash, as HashTable's: prefetch starts loading the index
  // slot where a look-up begins; once that is in cache, prefetchEntry starts
  // loading the entry filed under the hash, if any.
  uint32_t hashOf(const Key& key) const { return index_.hashOf(key); }
  void prefetch(uint32_t h) const { index_.prefetch(h); }
  void prefetchEntry(uint32_t h) const {
    if (const Entry* e = probable(h)) prefetchObject(e);
  }
  // The entry filed under the hash (the key's, unless another shares it), or
  // null; reads no key.
  const Entry* probable(uint32_t h) const {
    const uint32_t* pos = index_.probable(h);
    return pos ? &store_[*pos] : nullptr;
  }

  // Inserts `entry` unless its key is present (then `entry` is left as it
  // was); returns the stored entry and whether it was inserted.
  std::pair<Entry*, bool> insert(Entry&& entry) {
    // The index reads keys from the store, so the entry goes there first.
    const uint32_t pos = store_.size();
    store_.pushBack(std::move(entry));
    std::pair<uint32_t*, bool> filed;
    try {
      filed = index_.insert(uint32_t(pos));
    } catch (...) {
      entry = store_.popBack();
      throw;
    }
    if (!filed.second) {
      entry = store_.popBack();
      return {&store_[*filed.first], false};
    }
    return {&store_[pos], true};
  }

  // Returns the entry with `key`, or files make() (an entry with that key)
  // when there is none: one probe, and no entry made in vain.
  template <class Make>
  std::pair<Entry*, bool> insertWith(const Key& key, Make&& make) {
    bool made = false;
    try {
      // The index reads keys from the store, so a new entry goes there first.
      const auto [pos, inserted] = index_.insertWith(key, [&] {
        store_.pushBack(make());
        made = true;
        return store_.size() - 1;
      });
      return {&store_[*pos], inserted};
    } catch (...) {
      if (made) store_.popBack();
      throw;
    }
  }

  bool erase(const Key& key) {
    const std::optional<uint32_t> pos = index_.extract(key);
    if (!pos) return false;
    const uint32_t last = store_.size() - 1;
    // Re-point the last entry's slot while the index can still read its key.
    if (*pos != last) *index_.find(Traits::key(store_[last])) = *pos;
    Entry gone = store_.popBack();
    if (*pos != last) std::swap(gone, store_[*pos]);
    // `gone` dies once the table is whole: its destructor may re-enter it.
    return true;
  }

  // Makes room in the index for `n` entries (HashTable::reserve).
  void reserve(uint32_t n) { index_.reserve(n); }

  // Calls f(bytes) for each heap block the table holds (memory accounting).
  template <class F>
  void forEachBlock(F&& f) const {
    if (index_.bytes() != 0) f(index_.bytes());
    store_.forEachBlock(f);
  }

 private:
  Store store_;
  Index index_{IndexTraits{&store_}};
};

}  // namespace Kel
