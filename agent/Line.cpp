#include "agent/Line.h"

#include <charconv>
#include <cmath>

#include "Kel/Error.h"

namespace IpRibAgent {

namespace {

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

std::string choiceText(std::initializer_list<std::string_view> choices) {
  std::string out;
  size_t i = 0;
  for (std::string_view c : choices) {
    if (i > 0) out += i + 1 == choices.size() ? " or " : ", ";
    out += c;
    ++i;
  }
  return out;
}

}  // namespace

Line::Line(std::string_view text) {
  size_t i = 0;
  while (i < text.size()) {
    while (i < text.size() && isBlank(text[i])) ++i;
    if (i == text.size() || text[i] == '#') break;
    const size_t b = i;
    while (i < text.size() && !isBlank(text[i])) ++i;
    words_.emplace_back(text.substr(b, i - b));
  }
}

std::string_view Line::peek() const { return atEnd() ? std::string_view() : words_[next_]; }

bool Line::accept(std::string_view word) {
  if (atEnd() || words_[next_] != word) return false;
  ++next_;
  return true;
}

std::string Line::consumed() const {
  std::string out;
  for (size_t i = 0; i < next_; ++i) out += (i ? " " : "") + words_[i];
  return out;
}

const std::string& Line::take(std::string_view what) {
  if (atEnd()) throw CommandError("", std::string(what));
  return words_[next_++];
}

void Line::refuseLast(std::string expected) const {
  throw CommandError(next_ ? words_[next_ - 1] : "", std::move(expected));
}

size_t Line::keyword(std::initializer_list<std::string_view> choices) {
  const std::string& w = take(choiceText(choices));
  size_t i = 0;
  for (std::string_view c : choices) {
    if (w == c) return i;
    ++i;
  }
  refuseLast(choiceText(choices));
}

std::string Line::word(std::string_view what) { return take(what); }

uint64_t Line::number(std::string_view what, uint64_t max) {
  const std::string& w = take(what);
  uint64_t v = 0;
  const auto [end, ec] = std::from_chars(w.data(), w.data() + w.size(), v);
  if (ec != std::errc() || end != w.data() + w.size() || v > max) {
    refuseLast(std::string(what) + " (a number from 0 to " + std::to_string(max) + ")");
  }
  return v;
}

double Line::seconds() {
  const std::string& w = take("+SECONDS");
  double v = 0;
  if (w.size() < 2 || w[0] != '+') refuseLast("+SECONDS");
  const auto [end, ec] = std::from_chars(w.data() + 1, w.data() + w.size(), v);
  if (ec != std::errc() || end != w.data() + w.size() || !std::isfinite(v) || v < 0) {
    refuseLast("+SECONDS (a number of seconds, such as +0.5)");
  }
  return v;
}

L3::VrfName Line::vrfName() {
  const std::string& w = take("a VRF name");
  try {
    return L3::VrfName(Kel::String(w));
  } catch (const Kel::Exception& e) {
    refuseLast(std::string("a VRF name (") + e.what() + ")");
  }
}

Pando::IntfId Line::intf() { return Pando::IntfId(Kel::String(take("an interface name"))); }

Pando::AddressFamily Line::family() {
  return keyword({"ipv4", "ipv6"}) == 0 ? Pando::AddressFamily::ipv4 : Pando::AddressFamily::ipv6;
}

Pando::IpGenAddr Line::address() {
  const std::string& w = take("an address");
  if (std::optional<Pando::IpGenAddr> a = Pando::IpGenAddr::fromText(w)) return *a;
  refuseLast("an address, such as 192.0.2.1 or 2001:db8::1");
}

Pando::IpGenPrefix Line::prefix() {
  const std::string& w = take("a prefix");
  std::string why;
  try {
    Pando::IpGenPrefix p(w);
    if (!p.isEmpty()) return p;
  } catch (const Kel::Exception& e) {
    why = std::string(" (") + e.what() + ")";
  }
  refuseLast("a prefix, such as 10.1.0.0/24 or 2001:db8::/32" + why);
}

NextHop Line::nextHop() {
  const std::string& w = take("a next hop");
  const size_t pct = w.find('%');
  std::optional<Pando::IpGenAddr> a = Pando::IpGenAddr::fromText(w.substr(0, pct));
  if (!a || pct + 1 == w.size()) {
    refuseLast("a next hop, such as 192.0.2.1 or fe80::1%eth1");
  }
  NextHop nh{*a, {}};
  if (pct != std::string::npos) nh.intf = Pando::IntfId(Kel::String(w.substr(pct + 1)));
  return nh;
}

bool Line::onOff() { return keyword({"on", "off"}) == 0; }

std::string Line::rest() {
  std::string out;
  for (bool first = true; !atEnd(); first = false) out += (first ? "" : " ") + words_[next_++];
  return out;
}

void Line::end() {
  if (!atEnd()) throw CommandError(words_[next_], "end of line");
}

}  // namespace IpRibAgent
