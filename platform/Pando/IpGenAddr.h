// Pando::IpGenAddr: an IPv4 or IPv6 address, or the empty address.
//
// 17 bytes: the family, then 16 address bytes in network order (IPv4 uses the
// first 4, the rest stay zero, so equal addresses have equal bytes). Equality
// is two 64-bit word compares; order is by family, then bytes. The canonical
// form is the address text, lowercase and compressed for IPv6 (RFC 5952); the
// empty address is "none". Text that is no address raises Kel::ParseError
// naming it. Zone suffixes ("%eth0") are not addresses here.
#pragma once

#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>

#include "Kel/Hash.h"
#include "Kel/Strep.h"
#include "platform/Pando/AddressFamily.h"

namespace Pando {

class IpGenAddr {
 public:
  // The empty address: family ipunknown, all bytes zero.
  IpGenAddr() = default;
  // "10.1.2.3", "2001:db8::1", or "none".
  explicit IpGenAddr(std::string_view text);
  // Built from the two 64-bit halves, first octet most significant. An IPv4
  // address is the top 32 bits of `hi`; bits outside the family are a fault.
  IpGenAddr(AddressFamily af, uint64_t hi, uint64_t lo);
  IpGenAddr(Kel::StrepIt& it, Kel::StrepIt end);
  // The address `text` spells, or nothing; "none" is not an address here.
  static std::optional<IpGenAddr> fromText(std::string_view text);
  static IpGenAddr fromV4(uint32_t addrHostOrder) {
    return IpGenAddr(AddressFamily::ipv4, uint64_t(addrHostOrder) << 32, 0);
  }

  AddressFamily af() const { return AddressFamily(af_); }
  bool isEmpty() const { return af_ == uint8_t(AddressFamily::ipunknown); }
  // IPv6 fe80::/10.
  bool isLinkLocal() const {
    return af_ == uint8_t(AddressFamily::ipv6) && bytes_[0] == 0xfe && (bytes_[1] & 0xc0) == 0x80;
  }
  // The IPv4 address in host order (the first four bytes for any family).
  uint32_t v4() const { return word(0); }
  // Word i (0 to 3) or half i (0 or 1) of the 16 bytes, first octet most significant.
  uint32_t word(size_t i) const { return uint32_t(half(i / 2) >> (i % 2 ? 0 : 32)); }
  uint64_t half(size_t i) const {
    const uint64_t w = raw(i);
    if constexpr (std::endian::native == std::endian::little) return __builtin_bswap64(w);
    return w;
  }
  // The family, then the four words.
  uint32_t hash(uint32_t seed) const {
    return Kel::Hasher(seed).add(af_).add(word(0)).add(word(1)).add(word(2)).add(word(3)).result();
  }

  friend bool operator==(const IpGenAddr& a, const IpGenAddr& b) {
    return ((a.raw(0) ^ b.raw(0)) | (a.raw(1) ^ b.raw(1)) | uint64_t(a.af_ ^ b.af_)) == 0;
  }
  friend bool operator<(const IpGenAddr& a, const IpGenAddr& b) {
    if (a.af_ != b.af_) return a.af_ < b.af_;
    const uint64_t ah = a.half(0), bh = b.half(0);
    return ah != bh ? ah < bh : a.half(1) < b.half(1);
  }

 private:
  friend std::string valueToStrep(const IpGenAddr& a);
  uint64_t raw(size_t i) const {
    uint64_t w;
    std::memcpy(&w, bytes_.data() + 8 * i, 8);
    return w;
  }

  uint8_t af_ = uint8_t(AddressFamily::ipunknown);
  std::array<uint8_t, 16> bytes_{};
};

std::string valueToStrep(const IpGenAddr& a);
std::ostream& operator<<(std::ostream& os, const IpGenAddr& a);

// Reads the token an address or prefix strep is made of: a run of address
// characters, or else a name (the empty value's "none").
std::string_view addressStrepToken(Kel::StrepIt& it, Kel::StrepIt end);

}  // namespace Pando
