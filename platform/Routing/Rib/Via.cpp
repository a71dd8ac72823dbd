#include "platform/Routing/Rib/Via.h"

#include <algorithm>
#include <ostream>
#include <sstream>

#include "Kel/Error.h"

namespace Routing::Rib {

namespace {

// Lists values as numbers, `separator` between them.
template <class T>
void printList(std::ostream& os, std::span<const T> values, const char* separator) {
  for (size_t i = 0; i < values.size(); ++i) os << (i ? separator : "") << uint64_t(values[i]);
}

template <class T>
void checkSize(std::span<const T> values, size_t max) {
  if (values.size() <= max) return;
  std::ostringstream os;
  os << "expected size <= " << max << ", instead got " << values.size()
     << ". Buffer is at address: " << static_cast<const void*>(values.data()) << " with contents: ";
  printList(os, values, ", ");
  throw Kel::InvalidSizeError(os.str());
}

}  // namespace

void Via::resolutionRibIs(std::span<const RibType> ribs) {
  checkSize(ribs, maxResolutionRibs);
  std::copy(ribs.begin(), ribs.end(), resolutionRib_.begin());
  resolutionRibs_ = uint8_t(ribs.size());
}

void Via::colourIs(std::span<const uint32_t> colours) {
  checkSize(colours, maxColours);
  colour_.assign(colours.begin(), colours.end());
}

bool operator==(const Via& a, const Via& b) {
  return a.nextHop_ == b.nextHop_ && a.intf_ == b.intf_ && a.label_ == b.label_ &&
         std::ranges::equal(a.resolutionRib(), b.resolutionRib()) && a.colour_ == b.colour_;
}

std::ostream& operator<<(std::ostream& os, const Via& v) {
  os << v.nextHop();
  if (!v.intf().isEmpty()) os << " intf " << v.intf();
  if (v.isLabelled()) os << " label " << v.label();
  if (!v.resolutionRib().empty()) {
    os << " resolutionRib ";
    for (size_t i = 0; i < v.resolutionRib().size(); ++i)
      os << (i ? "," : "") << v.resolutionRib()[i];
  }
  if (!v.colour().empty()) {
    os << " colour ";
    printList(os, std::span<const uint32_t>(v.colour()), ",");
  }
  return os;
}

}  // namespace Routing::Rib
