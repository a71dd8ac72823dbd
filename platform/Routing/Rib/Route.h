// Routing::Rib::Route: one route as the RIB stores it, a plain value.
//
// The route holds its via set by Ptr, which keeps the shared entry alive;
// viaSetKey() is read off that entry. == compares every field, the via set by
// pointer (entries are deduplicated, so equal contents share one pointer).
// A RIB holds a million of these: fields are laid out for 48 bytes (the
// preference is kept apart from the metric, so that the one-byte fields
// share a word).
// Decided here: a new route is protocol 0, 0/0, forward, tag 0, no via set,
// no source VRF (invalidVrfId) and no flags.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <utility>

#include "Kel/Ptr.h"
#include "platform/Routing/Rib/MetricPref.h"
#include "platform/Routing/Rib/RouteKey.h"
#include "platform/Routing/Rib/Transport.h"
#include "platform/Routing/Rib/ViaSetConfig.h"
#include "platform/Routing/Rib/ViaSetKey.h"
#include "platform/Routing/RouteTypes.h"
#include "platform/Vrf/VrfId.h"

namespace Routing::Rib {

class Route {
 public:
  // Bit 0 of flags(): do not install the route in the FIB.
  static constexpr uint8_t flagNoFibInstall = 0x1;

  explicit Route(const RouteKey& key) : key_(key) {}

  const RouteKey& key() const { return key_; }
  RoutingProtocol routingProtocol() const { return routingProtocol_; }
  MetricPref metricPref() const { return MetricPref(preference_, metric_); }
  Fib::RouteType fibRouteType() const { return fibRouteType_; }
  uint32_t tag() const { return tag_; }
  // The via set's key, or the empty key for none.
  const ViaSetKey& viaSetKey() const { return viaSet_ ? viaSet_->key() : noViaSetKey; }
  const Kel::Ptr<const ViaSetEntry>& viaSet() const { return viaSet_; }
  Vrf::VrfIdMap::VrfId srcVrfId() const { return srcVrfId_; }
  uint8_t flags() const { return flags_; }

  void routingProtocolIs(RoutingProtocol p) { routingProtocol_ = p; }
  void metricPrefIs(const MetricPref& m) {
    preference_ = m.preference;
    metric_ = m.metric;
  }
  void fibRouteTypeIs(Fib::RouteType t) { fibRouteType_ = t; }
  void tagIs(uint32_t t) { tag_ = t; }
  void viaSetIs(Kel::Ptr<const ViaSetEntry> s) { viaSet_ = std::move(s); }
  void srcVrfIdIs(Vrf::VrfIdMap::VrfId v) { srcVrfId_ = v; }
  void flagsIs(uint8_t f) { flags_ = f; }

  friend bool operator==(const Route&, const Route&) = default;

 private:
  static constexpr ViaSetKey noViaSetKey{};

  RouteKey key_;
  Kel::Ptr<const ViaSetEntry> viaSet_;
  RouteMetric metric_ = 0;
  uint32_t tag_ = 0;
  Vrf::VrfIdMap::VrfId srcVrfId_ = Vrf::VrfIdMap::invalidVrfId;
  RoutePreference preference_ = 0;
  RoutingProtocol routingProtocol_ = 0;
  Fib::RouteType fibRouteType_ = Fib::RouteType::routeTypeForward;
  uint8_t flags_ = 0;
};

static_assert(sizeof(Route) == 48);

// "0:10.1.0.0/24 proto 2 pref 1 metric 10 viaSet 3 tag 0 srcVrf 16777215 flags 0x0".
std::ostream& operator<<(std::ostream& os, const Route& r);

}  // namespace Routing::Rib
