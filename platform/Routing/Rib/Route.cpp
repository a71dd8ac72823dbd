#include "platform/Routing/Rib/Route.h"

#include <ostream>

namespace Routing::Rib {

std::ostream& operator<<(std::ostream& os, const Route& r) {
  return os << r.key() << " proto " << unsigned(r.routingProtocol()) << " pref "
            << unsigned(r.metricPref().preference) << " metric " << r.metricPref().metric
            << " viaSet " << r.viaSetKey().id() << " tag " << r.tag() << " srcVrf " << r.srcVrfId()
            << " flags 0x" << std::hex << unsigned(r.flags()) << std::dec;
}

}  // namespace Routing::Rib
