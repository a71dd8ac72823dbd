// Why a prefix is (or is not) in the RIB the way it is.
//
// RouteStatusSm's evaluation reports each step to a RouteEvaluationObserver
// when one is given; RouteExplanation is the observer that records the walk
// and prints it for people. There is one walk: the explanation is what the
// evaluation did, not a second reading of the rules.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "IpRib/ProtocolRouteStatus.h"
#include "platform/Routing/Rib/Route.h"

namespace Routing::Protocol {

enum class ViaVerdict : uint8_t {
  added,                       // in the via set
  unresolved,                  // no usable via metric
  looping,                     // resolving it leads back to the prefix
  pushedOutByLabelledVia,      // added, then dropped for a labelled via
  notLabelled,                 // a labelled via was found first
  lessPreferredNotBfdTracked,  // a less preferred via type adds only BFD-tracked vias
  bfdDown,                     // its BFD session is down or unresolved
  vtepUnresolved,              // its EVPN VTEP via has no usable metric
  cutByMetric,                 // a via of a higher metric than the lowest
};

std::string_view viaVerdictText(ViaVerdict v);

class RouteEvaluationObserver {
 public:
  virtual ~RouteEvaluationObserver() = default;
  virtual void noRoute() {}
  virtual void notReady() {}
  virtual void preference(const RoutePref&) {}
  virtual void viaType(ViaType, bool /*mostPreferred*/) {}
  virtual void via(const Rib::ViaKey&, RouteMetric, ViaVerdict) {}
  // The vias added so far in this preference are dropped for `labelled`.
  virtual void pushedOut() {}
  // The preference wins (perhaps without vias, for fecType 2) or not.
  virtual void preferenceDone(bool /*won*/) {}
  virtual void metricCut(RouteMetric /*lowest*/) {}
  virtual void added(const Rib::Route&, uint32_t /*vias*/) {}
  virtual void deleted() {}
  virtual void abandoned(const std::string& /*why*/) {}
};

class RouteExplanation final : public RouteEvaluationObserver {
 public:
  struct Via {
    Rib::ViaKey key;
    RouteMetric metric;
    ViaVerdict verdict;
  };
  struct ViaTypeStep {
    ViaType viaType;
    bool mostPreferred;
    std::vector<Via> vias;
  };
  struct PreferenceStep {
    RoutePreference preference;
    uint8_t fecType;
    std::vector<ViaTypeStep> viaTypes;
    bool won = false;
  };
  enum class Outcome : uint8_t { none, added, deleted, notReady, abandoned };

  explicit RouteExplanation(const Pando::IpGenPrefix& prefix) : prefix_(prefix) {}

  const Pando::IpGenPrefix& prefix() const { return prefix_; }
  const std::vector<PreferenceStep>& preferences() const { return preferences_; }
  Outcome outcome() const { return outcome_; }
  bool inStatus() const { return inStatus_; }
  // The RIB route written, when the outcome is `added`.
  const Rib::Route* ribRoute() const { return outcome_ == Outcome::added ? &route_ : nullptr; }
  bool metricCutApplied() const { return metricCut_; }
  RouteMetric lowestMetric() const { return lowestMetric_; }
  // The verdict of a via in the winning (else last) preference walked.
  const Via* finalVia(const Rib::ViaKey& key) const;
  std::string str() const;

  void noRoute() override { inStatus_ = false; }
  void notReady() override { outcome_ = Outcome::notReady; }
  void preference(const RoutePref& p) override;
  void viaType(ViaType t, bool mostPreferred) override;
  void via(const Rib::ViaKey& k, RouteMetric m, ViaVerdict v) override;
  void pushedOut() override;
  void preferenceDone(bool won) override;
  void metricCut(RouteMetric lowest) override;
  void added(const Rib::Route& route, uint32_t vias) override;
  void deleted() override { outcome_ = Outcome::deleted; }
  void abandoned(const std::string& why) override;

 private:
  Pando::IpGenPrefix prefix_;
  std::vector<PreferenceStep> preferences_;
  Outcome outcome_ = Outcome::none;
  bool inStatus_ = true;
  Rib::Route route_{Rib::RouteKey(0, Pando::IpGenPrefix())};
  uint32_t vias_ = 0;
  bool metricCut_ = false;
  RouteMetric lowestMetric_ = 0;
  std::string why_;
};

}  // namespace Routing::Protocol
