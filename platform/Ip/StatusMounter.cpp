#include "platform/Ip/StatusMounter.h"

namespace Ip {

void StatusMounter::doMount(const Kel::Ptr<Cairn::MountGroup>& mg, bool ipv4, bool ipv6) {
  if (ipv4) mg->doMount(Cairn::Mount("ip/status", "Ip::Status", "r"));
  if (ipv6) mg->doMount(Cairn::Mount("ip6/status", "Ip6::Status", "r"));
}

}  // namespace Ip
