// Routing::Rib::MetricPref: a route's preference and metric, the pair that
// ranks candidate routes. Lower wins: by preference, then by metric.
// Printed "pref/metric" ("1/10"). Inline and free.
// Decided here: the default is 0/0, the most preferred pair.
#pragma once

#include <cstdint>
#include <ostream>

#include "Kel/Hash.h"
#include "platform/Routing/RouteTypes.h"

namespace Routing::Rib {

struct MetricPref {
  MetricPref() = default;
  MetricPref(RoutePreference pref, RouteMetric metric) : preference(pref), metric(metric) {}

  uint32_t hash(uint32_t seed) const {
    return Kel::Hasher(seed).add(preference).add(metric).result();
  }

  friend bool operator==(const MetricPref&, const MetricPref&) = default;
  friend bool operator<(const MetricPref& a, const MetricPref& b) {
    return a.preference != b.preference ? a.preference < b.preference : a.metric < b.metric;
  }

  RoutePreference preference = 0;
  RouteMetric metric = 0;
};

inline std::ostream& operator<<(std::ostream& os, const MetricPref& m) {
  return os << unsigned(m.preference) << '/' << m.metric;
}

}  // namespace Routing::Rib
