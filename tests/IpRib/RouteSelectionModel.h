// A reference model of route selection: what the RIB route of one prefix must
// be, computed from the current inputs alone, rule by rule, with no code
// shared with RouteStatusSm. Randomized tests hold the RIB against it.
//
// expectedRoute() costs one walk of the prefix's preferences and vias, with
// one next-hop graph query per resolved via. It knows IP vias only: the
// worlds it checks have no EVPN vias.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <vector>

#include "IpRib/ProtocolRouteStatus.h"
#include "platform/Pando/AddressFamily.h"
#include "platform/Pando/IpGenPrefix.h"
#include "platform/Routing/Bfd/BfdTrackedStaticRoutes.h"
#include "platform/Routing/Rib/Ip/GlobalNextHopDependencyGraph.h"
#include "platform/Routing/Rib/Ip/ViaConfig.h"
#include "platform/Routing/Rib/Route.h"
#include "platform/Routing/Rib/Via.h"
#include "platform/Routing/Rib/ViaKey.h"
#include "platform/Routing/Rib/ViaMetricStatus.h"
#include "platform/Routing/RouteTypes.h"
#include "platform/Vrf/VrfId.h"

namespace Routing::Protocol::Test {

// A RIB route in the terms route selection decides.
struct ModelRoute {
  RoutePreference preference = 0;
  RouteMetric metric = 0;
  uint32_t viaSetFlags = 0;
  std::vector<Rib::ViaKey> vias;
  uint32_t tag = 0;
  bool installInFib = true;
  Fib::RouteType fibRouteType = Fib::RouteType::routeTypeForward;
  Vrf::VrfIdMap::VrfId srcVrfId = Vrf::VrfIdMap::invalidVrfId;

  friend bool operator==(const ModelRoute&, const ModelRoute&) = default;
};

// "pref 1 metric 5 flags 0x0 vias [via(1:3:2:4) via(1:3:2:7)] tag 0 fib routeTypeForward
// installed srcVrf 16777215".
std::ostream& operator<<(std::ostream& os, const ModelRoute& r);

// The model's answer for one prefix.
struct Expectation {
  enum class Kind : uint8_t {
    absent,   // no RIB route
    unknown,  // not ready, or more vias than a via set holds: the RIB keeps whatever it had
    route,    // exactly `route`
  };
  Kind kind = Kind::absent;
  ModelRoute route;
};

// Everything selection reads, as it is now.
struct SelectionInputs {
  const Status& status;
  const Rib::ViaMetricStatusByVrf& viaMetrics;
  const Rib::Ip::ViaConfig& viaRecords;     // of the prefix's family
  const Rib::Ip::ViaConfig& auxViaRecords;  // of the other family
  const Rib::Ip::GlobalNextHopDependencyGraph& nhdGraph;
  const BfdTrackedStaticRoutesList& bfdList;
  bool staticRouteMetric;  // the "StaticRouteMetric" toggle
  Vrf::VrfIdMap::VrfId vrfId;
  Pando::AddressFamily af;
};

Expectation expectedRoute(const SelectionInputs& in, const Pando::IpGenPrefix& prefix);

// The record of a via: in the table of its transport's family; null when none.
const Rib::Via* viaRecordOf(const SelectionInputs& in, const Rib::ViaKey& via);

// The BFD session a via record needs: its next hop, plus its interface when
// the next hop is link-local.
BfdStatusKey bfdKeyOf(const Rib::Via& record);

// A RIB route in the model's terms (its protocol and key aside).
ModelRoute modelRouteOf(const Rib::Route& route);

}  // namespace Routing::Protocol::Test
