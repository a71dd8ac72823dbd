#include "Kel/String.h"

#include <cstring>
#include <new>
#include <ostream>

namespace Kel {

String::String(std::string_view s) {
  if (s.empty()) return;
  if (s.size() > UINT32_MAX) {
    throw InvalidSizeError("String size " + std::to_string(s.size()) + " exceeds " +
                           std::to_string(UINT32_MAX));
  }
  void* block = ::operator new(sizeof(Rep) + s.size());
  rep_ = new (block) Rep{1, uint32_t(s.size())};
  std::memcpy(rep_ + 1, s.data(), s.size());
}

String::String(StrepIt& it, StrepIt end) : String(strepToQuoted(it, end)) {}

void String::release() { ::operator delete(rep_); }

std::ostream& operator<<(std::ostream& os, const String& s) { return os << s.view(); }

std::string valueToStrep(const String& s) { return quoteStrep(s.view()); }

}  // namespace Kel
