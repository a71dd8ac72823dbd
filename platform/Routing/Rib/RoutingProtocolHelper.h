// Routing::Rib::RoutingProtocolHelper: what the RIB library knows about a
// routing protocol number.
//
// mribProtocol(rp): whether the protocol also feeds the multicast RIB (the
// RPF table), so that its agent mounts the "mrib" tables too.
// Decided here: by default only static configuration (2) does; a test or
// configuration sets the answer per protocol (mribProtocolIs) until
// mribProtocolReset. O(log n) in the answers set.
#pragma once

#include "platform/Routing/Rib/Transport.h"

namespace Routing::Rib {

struct RoutingProtocolHelper {
  static constexpr RoutingProtocol staticConfig = 2;

  static bool mribProtocol(RoutingProtocol rp);
  static void mribProtocolIs(RoutingProtocol rp, bool mrib);
  static void mribProtocolReset();
};

}  // namespace Routing::Rib
