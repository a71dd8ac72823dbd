#include "platform/Routing/Bfd/BfdKeys.h"

#include <ostream>

namespace Routing {

std::ostream& operator<<(std::ostream& os, const Via& v) {
  os << "addr " << v.addr() << " intf " << v.intf();
  if (v.label() != Via::noLabel) os << " label " << v.label();
  return os;
}

std::ostream& operator<<(std::ostream& os, const BfdStatusKey& k) {
  return os << "addr " << k.addr() << " intf " << k.intf();
}

}  // namespace Routing
