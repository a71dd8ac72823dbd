// Routing::Rib::ViaMetric: what the RIB found when it resolved one via: the
// metric preference of the route it resolved over, whether the via loops, and
// which resolver produced the entry. The default value is the empty metric:
// the via is unresolved.
//
// A value of a few bytes; copies, == and printing are cheap.
// Decided here: a resolver may publish placeholder entries, marked with
// `source() == sourceSpecial`. Such an entry counts as empty for a via that is
// not EVPN, and resolves the VTEP of an EVPN via only when its preference is
// `vtepSpecialPreference`; usableAsVia() and usableAsVtep() apply these rules.
// Printed "unresolved", or e.g. "1/10 source 2" and "1/10 looping source 2".
#pragma once

#include <cstdint>
#include <iosfwd>

#include "platform/Routing/Rib/MetricPref.h"
#include "platform/Routing/RouteTypes.h"

namespace Routing::Rib {

class ViaMetric {
 public:
  static constexpr uint8_t sourceSpecial = 255;
  static constexpr RoutePreference vtepSpecialPreference = 0;

  // The empty metric.
  ViaMetric() = default;
  ViaMetric(const MetricPref& metricPref, bool looping = false, uint8_t source = 0)
      : metricPref_(metricPref), looping_(looping), source_(source), empty_(false) {}

  bool isEmpty() const { return empty_; }
  const MetricPref& metricPref() const { return metricPref_; }
  bool looping() const { return looping_; }
  uint8_t source() const { return source_; }

  // Resolves a via that is not EVPN (looping is checked apart).
  bool usableAsVia() const { return !empty_ && source_ != sourceSpecial; }
  // Resolves the VTEP via of an EVPN via.
  bool usableAsVtep() const {
    return !empty_ && (source_ != sourceSpecial || metricPref_.preference == vtepSpecialPreference);
  }

  friend bool operator==(const ViaMetric&, const ViaMetric&) = default;

 private:
  MetricPref metricPref_;
  bool looping_ = false;
  uint8_t source_ = 0;
  bool empty_ = true;
};

std::ostream& operator<<(std::ostream& os, const ViaMetric& m);

}  // namespace Routing::Rib
