#include "platform/Pando/IpGenPrefix.h"

#include <algorithm>
#include <optional>
#include <ostream>

#include "Kel/Error.h"

namespace Pando {

namespace {

[[noreturn]] void throwLength(unsigned len, AddressFamily af, std::string_view text) {
  throw Kel::RangeError("IP prefix length " + std::to_string(len) + " exceeds " +
                        std::to_string(IpGenPrefix::maxLen(af)) + " in \"" + std::string(text) +
                        "\"");
}

}  // namespace

IpGenPrefix::IpGenPrefix(std::string_view text) {
  if (text == "none") return;
  const size_t slash = text.find('/');
  const std::string_view lenText =
      slash == std::string_view::npos ? std::string_view() : text.substr(slash + 1);
  const std::optional<IpGenAddr> addr = IpGenAddr::fromText(text.substr(0, slash));
  if (!addr || lenText.empty() ||
      lenText.find_first_not_of("0123456789") != std::string_view::npos) {
    throw Kel::ParseError("invalid IP prefix \"" + std::string(text) + "\"");
  }
  unsigned len = 0;
  for (char c : lenText) len = std::min(len * 10 + unsigned(c - '0'), 1000u);
  if (len > maxLen(addr->af())) throwLength(len, addr->af(), text);
  *this = IpGenPrefix(*addr, uint8_t(len));
}

IpGenPrefix::IpGenPrefix(const IpGenAddr& addr, uint8_t len) : len_(len) {
  if (len > maxLen(addr.af()))
    throwLength(len, addr.af(), valueToStrep(addr) + "/" + std::to_string(len));
  const Masks m = masks(len);
  addr_ = IpGenAddr(addr.af(), addr.half(0) & m.hi, addr.half(1) & m.lo);
}

IpGenPrefix::IpGenPrefix(Kel::StrepIt& it, Kel::StrepIt end)
    : IpGenPrefix(addressStrepToken(it, end)) {}

std::string valueToStrep(const IpGenPrefix& p) {
  if (p.isEmpty()) return "none";
  return valueToStrep(p.addr()) + "/" + std::to_string(p.len());
}

std::ostream& operator<<(std::ostream& os, const IpGenPrefix& p) { return os << valueToStrep(p); }

}  // namespace Pando
