// Ip::StatusMounter: asks a state-database mount group for the platform's
// interface status tables: "ip/status" (Ip::Status) and "ip6/status"
// (Ip6::Status), each in mode "r" and each only when asked for.
#pragma once

#include "Kel/Ptr.h"
#include "platform/Cairn/MountGroup.h"

namespace Ip {

struct StatusMounter {
  static void doMount(const Kel::Ptr<Cairn::MountGroup>& mg, bool ipv4, bool ipv6);
};

}  // namespace Ip
