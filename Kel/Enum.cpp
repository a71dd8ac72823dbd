#include "Kel/Enum.h"

#include <cctype>

namespace Kel {

const Enumerator& EnumInfo::instance(int64_t value) const {
  for (const Enumerator& e : enumerators_) {
    if (e.value == value) return e;
  }
  throw RangeError(std::string(typeName_) + ": no enumerator with value " + std::to_string(value));
}

const Enumerator& EnumInfo::instance(std::string_view name) const {
  for (const Enumerator& e : enumerators_) {
    if (e.name == name) return e;
  }
  throw RangeError(std::string(typeName_) + ": no enumerator named '" + std::string(name) + "'");
}

int64_t EnumInfo::sequenceToValue(StrepIt& it, StrepIt end) const {
  StrepIt start = it;
  std::string_view token = strepToName(it, end);
  if (token.empty()) {
    throw ParseError("expected a " + std::string(typeName_) + " enumerator at \"" +
                     std::string(start, end) + "\"");
  }
  if (std::isdigit(static_cast<unsigned char>(token.front()))) {
    StrepIt n = start;
    uint64_t v = strepToUnsigned(n, it, UINT32_MAX, typeName_);
    if (n != it) throw ParseError("malformed enumerator number \"" + std::string(token) + "\"");
    return instance(int64_t(v)).value;
  }
  return instance(token).value;
}

}  // namespace Kel
