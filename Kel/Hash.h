// Seeded incremental 32-bit hashing. Fields are fed one 32-bit word at a time
// in declaration order; the result is taken once at the end. The mix is
// MurmurHash3's (x86_32), which spreads bits well and costs a few cycles a word.
#pragma once

#include <cstdint>
#include <string_view>

namespace Kel {

class Hasher {
 public:
  explicit Hasher(uint32_t seed) : h_(seed) {}

  Hasher& add(uint32_t k) {
    k *= 0xcc9e2d51u;
    k = rotl(k, 15);
    k *= 0x1b873593u;
    h_ ^= k;
    h_ = rotl(h_, 13);
    h_ = h_ * 5 + 0xe6546b64u;
    len_ += 4;
    return *this;
  }
  Hasher& add(std::string_view s);

  uint32_t result() const {
    uint32_t h = h_ ^ len_;
    h ^= h >> 16;
    h *= 0x85ebca6bu;
    h ^= h >> 13;
    h *= 0xc2b2ae35u;
    h ^= h >> 16;
    return h;
  }

 private:
  static uint32_t rotl(uint32_t x, int r) { return (x << r) | (x >> (32 - r)); }
  uint32_t h_;
  uint32_t len_ = 0;
};

// Two 64-bit words at once, for small fixed-size keys looked up on hot paths
// (a via key is asked of several tables for every via of every route):
// a multiply-rotate combine and MurmurHash3's 64-bit finalizer, a third of
// the cost of feeding the same bytes to Hasher, all bits well mixed.
inline uint32_t hashWords(uint64_t a, uint64_t b, uint32_t seed) {
  uint64_t h = (a ^ seed) * 0x9e3779b97f4a7c15ull;
  h ^= (b * 0xc2b2ae3d27d4eb4full) >> 31 | (b * 0xc2b2ae3d27d4eb4full) << 33;
  h ^= h >> 33;
  h *= 0xff51afd7ed558ccdull;
  h ^= h >> 33;
  h *= 0xc4ceb9fe1a85ec53ull;
  h ^= h >> 33;
  return uint32_t(h);
}

// The framework's hash of a string: its bytes, then its length.
inline uint32_t hashString(std::string_view s, uint32_t seed) {
  return Hasher(seed).add(s).result();
}

// Thomas Wang's 32-bit integer hash: cheap, and good enough to scatter
// addresses that differ only in their low bits.
inline uint32_t wangHash32(uint32_t x) {
  x = x * 32767u - 1u;
  x ^= x >> 12;
  x *= 5u;
  x ^= x >> 4;
  x *= 2057u;
  x ^= x >> 16;
  return x;
}

}  // namespace Kel
