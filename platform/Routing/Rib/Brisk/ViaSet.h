// Routing::Rib::Brisk::ViaSet: the via keys a route evaluation picks, built
// on the stack and handed to ViaSetConfig to be deduplicated.
//
// Up to maxVias keys in an inline array (9.6 KB, no heap) plus a flags word.
// Slots at and past size() are never read, so construction and clear() cost
// O(1) and a copy costs O(size()). Writing slot `index`: index == size()
// appends, index < size() overwrites, index > size() first fills the gap
// with empty keys; index >= maxVias raises Kel::RangeError.
// Decided here: the flags word is opaque to the set; it takes part in ==
// and the hash like the keys.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iosfwd>
#include <new>

#include "platform/Routing/Rib/ViaKey.h"
#include "platform/Routing/Rib/ViaSetContent.h"

namespace Routing::Rib::Brisk {

class ViaSet {
 public:
  static constexpr uint32_t maxVias = 600;

  // User-provided, so that even ViaSet{} leaves the 9.6 KB of slots untouched.
  ViaSet() {}
  ViaSet(const ViaSet& o) : size_(o.size_), flags_(o.flags_) {
    std::memcpy(storage_, o.storage_, size_ * sizeof(ViaKey));
  }
  ViaSet& operator=(const ViaSet& o) {
    if (this != &o) {
      size_ = o.size_;
      flags_ = o.flags_;
      std::memcpy(storage_, o.storage_, size_ * sizeof(ViaKey));
    }
    return *this;
  }

  // Sets key `index`; skipped slots below it become empty keys.
  void viaKeyIs(uint32_t index, const ViaKey& k) {
    if (index >= maxVias) throwIndexRange();
    ViaKey* key = keys();
    if (index > size_) std::fill(key + size_, key + index, ViaKey());
    key[index] = k;
    if (index >= size_) size_ = index + 1;
  }
  // Key `i`, which must be below size().
  const ViaKey& viaKey(uint32_t i) const { return keys()[i]; }
  uint32_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  uint32_t flags() const { return flags_; }
  void flagsIs(uint32_t f) { flags_ = f; }
  // Drops the keys and the flags.
  void clear() {
    size_ = 0;
    flags_ = 0;
  }

  const ViaKey* begin() const { return keys(); }
  const ViaKey* end() const { return keys() + size_; }
  ViaSetContent content() const { return {flags_, {begin(), end()}}; }

  // The content's hash (ViaSetContent's).
  uint32_t hash(uint32_t seed) const { return content().hash(seed); }
  friend bool operator==(const ViaSet& a, const ViaSet& b) { return a.content() == b.content(); }

 private:
  [[noreturn]] static void throwIndexRange();
  // ViaKey is trivially copyable, so the byte array holds ViaKeys without
  // constructing all 600 up front.
  const ViaKey* keys() const { return std::launder(reinterpret_cast<const ViaKey*>(storage_)); }
  ViaKey* keys() { return std::launder(reinterpret_cast<ViaKey*>(storage_)); }

  uint32_t size_ = 0;
  uint32_t flags_ = 0;
  alignas(ViaKey) unsigned char storage_[maxVias * sizeof(ViaKey)];
};

// "{flags 0x2: via(1:0:2:1), via(1:0:2:5)}"; an empty set is "{flags 0x0}".
std::ostream& operator<<(std::ostream& os, const ViaSet& s);

}  // namespace Routing::Rib::Brisk
