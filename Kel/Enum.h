// Enumeration services: one descriptor table per enumeration gives the name of
// a value, the value of a name or a number, the canonical form (the
// enumerator's name) and its parse. Anything not in the table is a RangeError.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "Kel/Strep.h"

namespace Kel {

struct Enumerator {
  int64_t value;
  std::string_view name;
};

class EnumInfo {
 public:
  EnumInfo(std::string_view typeName, std::initializer_list<Enumerator> enumerators)
      : typeName_(typeName), enumerators_(enumerators) {}

  std::string_view typeName() const { return typeName_; }
  const std::vector<Enumerator>& enumerators() const { return enumerators_; }

  // The descriptor of a number or a name; RangeError when there is none.
  const Enumerator& instance(int64_t value) const;
  const Enumerator& instance(std::string_view name) const;
  std::string_view stringValue(int64_t value) const { return instance(value).name; }
  // Reads an enumerator name, or its number, at `it`.
  int64_t sequenceToValue(StrepIt& it, StrepIt end) const;

 private:
  std::string_view typeName_;
  std::vector<Enumerator> enumerators_;
};

}  // namespace Kel
