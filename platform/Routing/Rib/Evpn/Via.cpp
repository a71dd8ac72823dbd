#include "platform/Routing/Rib/Evpn/Via.h"

#include <cstdio>
#include <ostream>

namespace Routing::Rib::Evpn {

std::ostream& operator<<(std::ostream& os, const Via& v) {
  const uint64_t m = v.routerMac();
  char mac[18];
  std::snprintf(mac, sizeof mac, "%02x:%02x:%02x:%02x:%02x:%02x", unsigned(m >> 40 & 0xff),
                unsigned(m >> 32 & 0xff), unsigned(m >> 24 & 0xff), unsigned(m >> 16 & 0xff),
                unsigned(m >> 8 & 0xff), unsigned(m & 0xff));
  return os << "vtep " << v.vtep() << " vni " << v.vni() << " routerMac " << mac;
}

}  // namespace Routing::Rib::Evpn
