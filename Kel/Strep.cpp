#include "Kel/Strep.h"

#include <cctype>
#include <charconv>
#include <cstring>

namespace Kel {

namespace {
std::string rest(StrepIt it, StrepIt end) {
  size_t n = std::min<size_t>(end - it, 40);
  return std::string(it, it + n);
}
}  // namespace

void strepLiteral(StrepIt& it, StrepIt end, std::string_view literal) {
  if (size_t(end - it) < literal.size() || std::string_view(it, literal.size()) != literal) {
    throw ParseError("expected \"" + std::string(literal) + "\" at \"" + rest(it, end) + "\"");
  }
  it += literal.size();
}

std::string valueToStrep(bool v) { return v ? "True" : "False"; }
std::string valueToStrep(uint8_t v) { return std::to_string(v); }
std::string valueToStrep(uint16_t v) { return std::to_string(v); }
std::string valueToStrep(uint32_t v) { return std::to_string(v); }
std::string valueToStrep(uint64_t v) { return std::to_string(v); }

std::string valueToStrep(double v) {
  char buf[32];
  auto r = std::to_chars(buf, buf + sizeof buf, v);
  return std::string(buf, r.ptr);
}

std::string quoteStrep(std::string_view s) {
  std::string out;
  out.reserve(s.size() + 2);
  out += '\'';
  for (char c : s) {
    if (c == '\'' || c == '\\') out += '\\';
    out += c;
  }
  out += '\'';
  return out;
}

uint64_t strepToUnsigned(StrepIt& it, StrepIt end, uint64_t max, std::string_view typeName) {
  StrepIt p = it;
  uint64_t v = 0;
  bool overflow = false;
  while (p != end && std::isdigit(static_cast<unsigned char>(*p))) {
    uint64_t d = uint64_t(*p - '0');
    if (v > (UINT64_MAX - d) / 10) overflow = true;
    v = v * 10 + d;
    ++p;
  }
  if (p == it) throw ParseError("expected a number at \"" + rest(it, end) + "\"");
  if (overflow || v > max) {
    throw RangeError(std::string(typeName) + " value " + std::string(it, p) + " out of range");
  }
  it = p;
  return v;
}

bool strepToBool(StrepIt& it, StrepIt end) {
  std::string_view name = strepToName(it, end);
  if (name == "True") return true;
  if (name == "False") return false;
  throw ParseError("expected True or False, got \"" + std::string(name) + "\"");
}

double strepToDouble(StrepIt& it, StrepIt end) {
  double v = 0;
  auto r = std::from_chars(&*it, &*it + (end - it), v);
  if (r.ec == std::errc::invalid_argument) {
    throw ParseError("expected a number at \"" + rest(it, end) + "\"");
  }
  if (r.ec == std::errc::result_out_of_range) throw RangeError("double value out of range");
  it += r.ptr - &*it;
  return v;
}

std::string strepToQuoted(StrepIt& it, StrepIt end) {
  strepLiteral(it, end, "'");
  std::string out;
  while (it != end && *it != '\'') {
    if (*it == '\\') {
      ++it;
      if (it == end) break;
    }
    out += *it++;
  }
  strepLiteral(it, end, "'");
  return out;
}

std::string_view strepToName(StrepIt& it, StrepIt end) {
  StrepIt p = it;
  while (p != end && (std::isalnum(static_cast<unsigned char>(*p)) || *p == '_')) ++p;
  std::string_view name(it, p - it);
  it = p;
  return name;
}

std::string_view strepToAddressText(StrepIt& it, StrepIt end) {
  StrepIt p = it;
  while (p != end && (std::isxdigit(static_cast<unsigned char>(*p)) || std::strchr(".:/%", *p))) {
    ++p;
  }
  std::string_view text(it, p - it);
  it = p;
  return text;
}

ValueStrepWriter::ValueStrepWriter(std::string_view typeName) {
  out_.reserve(96);
  out_ += "Value('";
  out_ += typeName;
  out_ += "', ** {";
}

ValueStrepWriter& ValueStrepWriter::field(std::string_view name, std::string_view strep) {
  if (!first_) out_ += ", ";
  first_ = false;
  out_ += '\'';
  out_ += name;
  out_ += "': ";
  out_ += strep;
  return *this;
}

std::string ValueStrepWriter::done() {
  out_ += "})";
  return std::move(out_);
}

ValueStrepReader::ValueStrepReader(StrepIt& it, StrepIt end, std::string_view typeName)
    : it_(it), end_(end) {
  strepLiteral(it_, end_, "Value('");
  strepLiteral(it_, end_, typeName);
  strepLiteral(it_, end_, "', ** {");
}

void ValueStrepReader::fieldHeader(const char* name) {
  if (!first_) strepLiteral(it_, end_, ", ");
  first_ = false;
  strepLiteral(it_, end_, "'");
  strepLiteral(it_, end_, name);
  strepLiteral(it_, end_, "': ");
}

void ValueStrepReader::done() { strepLiteral(it_, end_, "})"); }

}  // namespace Kel
