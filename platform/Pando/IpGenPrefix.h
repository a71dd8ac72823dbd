// Pando::IpGenPrefix: an IPv4 or IPv6 prefix (address and length), or the
// empty prefix.
//
// 18 bytes: the address (family byte, 16 bytes) then the length. Host bits are
// zeroed on construction, so equal prefixes have equal bytes. The hash, ==
// and < are inline and cost a few cycles: they sit on the path of
// million-route tables. Order is by family, then address bytes, then length.
// The canonical form is "10.1.0.0/24" or "2001:db8::/32"; the empty prefix is
// "none". Malformed text raises Kel::ParseError, a length beyond the family's
// (32 or 128) Kel::RangeError; both name the text. The empty prefix contains
// nothing.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>

#include "Kel/Hash.h"
#include "Kel/Strep.h"
#include "platform/Pando/AddressFamily.h"
#include "platform/Pando/IpGenAddr.h"

namespace Pando {

class IpGenPrefix {
 public:
  // The empty prefix: family ipunknown, all zero.
  IpGenPrefix() = default;
  // "10.1.0.0/24", "2001:db8::/32", or "none".
  explicit IpGenPrefix(std::string_view text);
  IpGenPrefix(const IpGenAddr& addr, uint8_t len);
  IpGenPrefix(Kel::StrepIt& it, Kel::StrepIt end);
  static IpGenPrefix fromV4(uint32_t addrHostOrder, uint8_t len) {
    return IpGenPrefix(IpGenAddr::fromV4(addrHostOrder), len);
  }
  // 32 for IPv4, 128 for IPv6, 0 otherwise.
  static uint8_t maxLen(AddressFamily af) {
    return af == AddressFamily::ipv4 ? 32 : af == AddressFamily::ipv6 ? 128 : 0;
  }

  AddressFamily af() const { return addr_.af(); }
  const IpGenAddr& addr() const { return addr_; }
  uint8_t len() const { return len_; }
  bool isEmpty() const { return addr_.isEmpty(); }

  bool contains(const IpGenAddr& a) const {
    if (a.af() != af() || isEmpty()) return false;
    const Masks m = masks(len_);
    // Both halves at once, without a branch.
    return (((a.half(0) & m.hi) ^ addr_.half(0)) | ((a.half(1) & m.lo) ^ addr_.half(1))) == 0;
  }
  bool contains(const IpGenPrefix& p) const { return p.len_ >= len_ && contains(p.addr_); }

  // IPv4: Wang's hash of the address (first octet most significant) XOR the
  // length. IPv6: Wang's hash of (Kel::Hasher(0) over the four address words,
  // first octet most significant in each) XOR the length: Wang alone would
  // drop the high words. Any other family: 0.
  uint32_t hash() const {
    switch (af()) {
      case AddressFamily::ipv4:
        return Kel::wangHash32(addr_.v4() ^ len_);
      case AddressFamily::ipv6:
        return Kel::wangHash32(Kel::Hasher(0)
                                   .add(addr_.word(0))
                                   .add(addr_.word(1))
                                   .add(addr_.word(2))
                                   .add(addr_.word(3))
                                   .result() ^
                               len_);
      default:
        return 0;
    }
  }
  uint32_t hash(uint32_t seed) const { return Kel::Hasher(seed).add(hash()).result(); }

  friend bool operator==(const IpGenPrefix& a, const IpGenPrefix& b) {
    return a.len_ == b.len_ && a.addr_ == b.addr_;
  }
  friend bool operator<(const IpGenPrefix& a, const IpGenPrefix& b) {
    if (a.af() != b.af()) return a.af() < b.af();
    for (size_t i = 0; i < 2; ++i) {
      const uint64_t x = a.addr_.half(i), y = b.addr_.half(i);
      if (x != y) return x < y;
    }
    return a.len_ < b.len_;
  }

 private:
  // The network bits of each address half for a length.
  struct Masks {
    uint64_t hi;
    uint64_t lo;
  };
  static Masks masks(unsigned len) {
    const auto top = [](unsigned bits) { return bits == 0 ? 0 : ~uint64_t(0) << (64 - bits); };
    return {top(len < 64 ? len : 64), top(len > 64 ? len - 64 : 0)};
  }

  IpGenAddr addr_;
  uint8_t len_ = 0;
};

static_assert(sizeof(IpGenPrefix) <= 20);

std::string valueToStrep(const IpGenPrefix& p);
std::ostream& operator<<(std::ostream& os, const IpGenPrefix& p);

}  // namespace Pando
