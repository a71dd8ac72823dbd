#include "platform/Routing/Rib/ViaMetric.h"

#include <ostream>

namespace Routing::Rib {

std::ostream& operator<<(std::ostream& os, const ViaMetric& m) {
  if (m.isEmpty()) return os << "unresolved";
  os << m.metricPref();
  if (m.looping()) os << " looping";
  return os << " source " << unsigned(m.source());
}

}  // namespace Routing::Rib
