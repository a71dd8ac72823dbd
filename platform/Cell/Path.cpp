#include "platform/Cell/Path.h"

#include <string>

#include "Kel/Error.h"

namespace Cell {

Kel::String path(std::string_view p) {
  std::string out;
  out.reserve(p.size());
  size_t i = 0;
  while (i < p.size()) {
    if (p[i] == '/') {
      ++i;
      continue;
    }
    const size_t end = std::min(p.find('/', i), p.size());
    if (!out.empty()) out += '/';
    out.append(p.substr(i, end - i));
    i = end;
  }
  if (out.empty()) throw Kel::ParseError("Cell::path: '" + std::string(p) + "' has no component");
  return Kel::String(out);
}

}  // namespace Cell
