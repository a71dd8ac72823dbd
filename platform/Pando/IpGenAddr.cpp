#include "platform/Pando/IpGenAddr.h"

#include <charconv>
#include <ostream>

#include "Kel/Assert.h"
#include "Kel/Error.h"

namespace Pando {

namespace {

bool isDigit(char c) { return c >= '0' && c <= '9'; }

int hexValue(char c) {
  if (isDigit(c)) return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// Dotted quad, exactly four decimal octets. A leading zero is refused: some
// readers take it as octal, so "010" would not mean what it says.
bool parseV4(std::string_view s, uint8_t* out) {
  size_t i = 0;
  for (int part = 0; part < 4; ++part) {
    if (part > 0) {
      if (i == s.size() || s[i] != '.') return false;
      ++i;
    }
    const size_t start = i;
    unsigned v = 0;
    while (i < s.size() && i - start < 3 && isDigit(s[i])) v = v * 10 + unsigned(s[i++] - '0');
    if (i == start || v > 255 || (s[start] == '0' && i - start > 1)) return false;
    out[part] = uint8_t(v);
  }
  return i == s.size();
}

// Up to eight groups of 1 to 4 hex digits, at most one "::" standing for one
// or more zero groups, and optionally a dotted quad as the last 32 bits.
bool parseV6(std::string_view s, uint8_t* out) {
  uint16_t groups[8] = {};
  int n = 0;
  int gap = -1;
  size_t i = 0;
  if (s.substr(0, 2) == "::") {
    gap = 0;
    i = 2;
  }
  while (i < s.size()) {
    size_t j = i;
    unsigned v = 0;
    while (j < s.size() && hexValue(s[j]) >= 0) v = v * 16 + unsigned(hexValue(s[j++]));
    if (j < s.size() && s[j] == '.') {
      uint8_t quad[4];
      if (n > 6 || !parseV4(s.substr(i), quad)) return false;
      groups[n++] = uint16_t(quad[0] << 8 | quad[1]);
      groups[n++] = uint16_t(quad[2] << 8 | quad[3]);
      break;
    }
    if (j == i || j - i > 4 || n == 8) return false;
    groups[n++] = uint16_t(v);
    i = j;
    if (i == s.size()) break;
    if (s[i++] != ':' || i == s.size()) return false;
    if (s[i] == ':') {
      if (gap >= 0) return false;
      gap = n;
      ++i;
    }
  }
  if (gap < 0 ? n != 8 : n == 8) return false;
  const int zeros = 8 - n;
  uint16_t words[8] = {};
  for (int k = 0; k < n; ++k) words[gap >= 0 && k >= gap ? k + zeros : k] = groups[k];
  for (int k = 0; k < 8; ++k) {
    out[2 * k] = uint8_t(words[k] >> 8);
    out[2 * k + 1] = uint8_t(words[k]);
  }
  return true;
}

void appendNumber(std::string& out, unsigned v, int base) {
  char buf[8];
  const auto r = std::to_chars(buf, buf + sizeof buf, v, base);
  out.append(buf, r.ptr);
}

void appendV4(std::string& out, const uint8_t* b) {
  for (int i = 0; i < 4; ++i) {
    if (i > 0) out += '.';
    appendNumber(out, b[i], 10);
  }
}

// RFC 5952: lowercase hex without leading zeros, the longest run of two or
// more zero groups (the first on a tie) as "::", IPv4-mapped in mixed form.
void appendV6(std::string& out, const uint8_t* b) {
  uint16_t w[8];
  for (int i = 0; i < 8; ++i) w[i] = uint16_t(b[2 * i] << 8 | b[2 * i + 1]);
  if (w[0] == 0 && w[1] == 0 && w[2] == 0 && w[3] == 0 && w[4] == 0 && w[5] == 0xffff) {
    out += "::ffff:";
    appendV4(out, b + 12);
    return;
  }
  int bestStart = -1, bestLen = 1;
  for (int i = 0; i < 8;) {
    int j = i;
    while (j < 8 && w[j] == 0) ++j;
    if (j - i > bestLen) {
      bestStart = i;
      bestLen = j - i;
    }
    i = j == i ? i + 1 : j;
  }
  for (int i = 0; i < 8; ++i) {
    if (i == bestStart) {
      out += "::";
      i += bestLen - 1;
      continue;
    }
    if (i > 0 && i != bestStart + bestLen) out += ':';
    appendNumber(out, w[i], 16);
  }
}

}  // namespace

IpGenAddr::IpGenAddr(std::string_view text) {
  if (text == "none") return;
  const std::optional<IpGenAddr> a = fromText(text);
  if (!a) throw Kel::ParseError("invalid IP address \"" + std::string(text) + "\"");
  *this = *a;
}

IpGenAddr::IpGenAddr(AddressFamily af, uint64_t hi, uint64_t lo) : af_(uint8_t(af)) {
  KEL_ASSERT(af == AddressFamily::ipv6 || lo == 0);
  KEL_ASSERT(af == AddressFamily::ipv6 || (af == AddressFamily::ipv4 && uint32_t(hi) == 0) ||
             (af == AddressFamily::ipunknown && hi == 0));
  for (int i = 0; i < 8; ++i) {
    bytes_[i] = uint8_t(hi >> (56 - 8 * i));
    bytes_[8 + i] = uint8_t(lo >> (56 - 8 * i));
  }
}

IpGenAddr::IpGenAddr(Kel::StrepIt& it, Kel::StrepIt end) : IpGenAddr(addressStrepToken(it, end)) {}

std::optional<IpGenAddr> IpGenAddr::fromText(std::string_view text) {
  IpGenAddr a;
  const bool v6 = text.find(':') != std::string_view::npos;
  if (!(v6 ? parseV6(text, a.bytes_.data()) : parseV4(text, a.bytes_.data()))) return std::nullopt;
  a.af_ = uint8_t(v6 ? AddressFamily::ipv6 : AddressFamily::ipv4);
  return a;
}

std::string valueToStrep(const IpGenAddr& a) {
  std::string out;
  switch (a.af()) {
    case AddressFamily::ipv4:
      appendV4(out, a.bytes_.data());
      break;
    case AddressFamily::ipv6:
      appendV6(out, a.bytes_.data());
      break;
    default:
      out = "none";
  }
  return out;
}

std::ostream& operator<<(std::ostream& os, const IpGenAddr& a) { return os << valueToStrep(a); }

std::string_view addressStrepToken(Kel::StrepIt& it, Kel::StrepIt end) {
  const std::string_view text = Kel::strepToAddressText(it, end);
  return text.empty() ? Kel::strepToName(it, end) : text;
}

}  // namespace Pando
