// The prefixes the RIB has found looping (a route whose next hops resolve
// back through the route itself), one set per VRF, and the sets by VRF name.
//
// The RIB writes; route computation reads and re-evaluates the prefix it is
// told about. Every change notifies at once with the element key; adding a
// present prefix or deleting an absent one notifies nobody. Look-ups and
// changes are O(1) expected; iteration is in hash order.
// Decided here: the mark is per prefix, not per route preference: a RIB
// finds the loop in resolution, where only the prefix counts.
#pragma once

#include <cstdint>

#include "Kel/Collections.h"
#include "Kel/Entity.h"
#include "platform/L3/VrfName.h"
#include "platform/Pando/IpGenPrefix.h"

namespace Routing::Rib {

class LoopingRouteStatus final : public Kel::Entity {
 public:
  class Notifiee : public Kel::NotifieeOf<LoopingRouteStatus> {
   public:
    virtual void onLoopingRoute(const Pando::IpGenPrefix&) {}
  };
  LoopingRouteStatus() = default;
  explicit LoopingRouteStatus(const L3::VrfName& vrfName) : vrfName_(vrfName) {}
  const char* typeName() const override { return "Routing::Rib::LoopingRouteStatus"; }

  const L3::VrfName& vrfName() const { return vrfName_; }

  const Kel::HashedSet<Pando::IpGenPrefix>& loopingRoute() const { return loopingRoute_; }
  bool loopingRouteHas(const Pando::IpGenPrefix& p) const {
    return loopingRoute_.find(p) != nullptr;
  }
  uint32_t loopingRouteSize() const { return loopingRoute_.size(); }
  void loopingRouteIs(const Pando::IpGenPrefix& p);
  void loopingRouteDel(const Pando::IpGenPrefix& p);

 private:
  L3::VrfName vrfName_;
  Kel::HashedSet<Pando::IpGenPrefix> loopingRoute_;
};

class LoopingRouteStatusByVrf final : public Kel::Entity {
 public:
  using VrfStatusMap =
      Kel::HashedPtrMap<L3::VrfName, LoopingRouteStatus, &LoopingRouteStatus::vrfName>;
  class Notifiee : public Kel::NotifieeOf<LoopingRouteStatusByVrf> {
   public:
    virtual void onVrfStatus(const L3::VrfName&) {}
  };
  const char* typeName() const override { return "Routing::Rib::LoopingRouteStatusByVrf"; }

  const VrfStatusMap& vrfStatus() const { return vrfStatus_; }
  // Null when absent.
  Kel::Ptr<LoopingRouteStatus> vrfStatus(const L3::VrfName& v) const;
  uint32_t vrfStatusSize() const { return vrfStatus_.size(); }
  // Returns the set of VRF `v`, creating an empty one when absent.
  Kel::Ptr<LoopingRouteStatus> vrfStatusIs(const L3::VrfName& v);
  void vrfStatusDel(const L3::VrfName& v);

 private:
  VrfStatusMap vrfStatus_;
};

}  // namespace Routing::Rib
