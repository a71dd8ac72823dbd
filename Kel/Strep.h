// Canonical string forms ("streps") of values.
//
// A value type T offers `std::string valueToStrep(const T&)` and a parse
// constructor `T(StrepIt& it, StrepIt end)` that consumes exactly that form
// and leaves `it` behind it. Composite values frame their fields as
//   Value('Qualified::Type', ** {'field': <field strep>, ...})
// and parse by matching each literal piece in turn. Field forms chosen here:
// unsigned numbers in decimal, bools as True/False, strings single-quoted
// with \\ and \' escaped, enumerators by name, doubles in shortest round-trip form.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "Kel/Error.h"

namespace Kel {

using StrepIt = std::string_view::const_iterator;

// Consumes `literal` at `it`, or raises ParseError naming what was expected.
void strepLiteral(StrepIt& it, StrepIt end, std::string_view literal);

std::string valueToStrep(bool v);
std::string valueToStrep(uint8_t v);
std::string valueToStrep(uint16_t v);
std::string valueToStrep(uint32_t v);
std::string valueToStrep(uint64_t v);
std::string valueToStrep(double v);
std::string quoteStrep(std::string_view s);

// Field readers. A malformed text raises ParseError; a well-formed number
// above `max` raises RangeError naming `typeName`.
uint64_t strepToUnsigned(StrepIt& it, StrepIt end, uint64_t max, std::string_view typeName);
bool strepToBool(StrepIt& it, StrepIt end);
double strepToDouble(StrepIt& it, StrepIt end);
std::string strepToQuoted(StrepIt& it, StrepIt end);
// The longest run of letters, digits and '_' (an enumerator name).
std::string_view strepToName(StrepIt& it, StrepIt end);
// The longest run of characters that may appear in an address or prefix.
std::string_view strepToAddressText(StrepIt& it, StrepIt end);

// Runs `parse` for the field `attribute`; a RangeError from the field's own
// parser becomes a DeserializationError naming the attribute.
template <class F>
auto strepField(const char* attribute, F&& parse) -> decltype(parse()) {
  try {
    return parse();
  } catch (const RangeError& e) {
    throw DeserializationError(attribute, e.what());
  }
}

// Writes the framing of a composite value:
//   Value('Type', ** {'a': <a>, 'b': <b>})
class ValueStrepWriter {
 public:
  explicit ValueStrepWriter(std::string_view typeName);
  ValueStrepWriter& field(std::string_view name, std::string_view strep);
  std::string done();

 private:
  std::string out_;
  bool first_ = true;
};

// Reads that framing piece by piece; each field's own parser runs inside
// strepField, so its range errors name the attribute.
class ValueStrepReader {
 public:
  ValueStrepReader(StrepIt& it, StrepIt end, std::string_view typeName);
  template <class F>
  auto field(const char* name, F&& parse) -> decltype(parse(std::declval<StrepIt&>(), StrepIt())) {
    fieldHeader(name);
    return strepField(name, [&] { return parse(it_, end_); });
  }
  void done();

 private:
  void fieldHeader(const char* name);
  StrepIt& it_;
  StrepIt end_;
  bool first_ = true;
};

// Parses a whole string; anything left over is a ParseError.
template <class T>
T strepToValue(std::string_view s) {
  StrepIt it = s.begin();
  T value(it, s.end());
  if (it != s.end())
    throw ParseError("trailing text after value: '" + std::string(it, s.end()) + "'");
  return value;
}

}  // namespace Kel
