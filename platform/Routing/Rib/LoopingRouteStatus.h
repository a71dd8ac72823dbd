// The prefixes the RIB has found looping (a route whose next hops resolve
// back through the route itself), one set per VRF, and the sets by VRF id.
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
#include "platform/Pando/IpGenPrefix.h"
#include "platform/Routing/Rib/IntKeyedPtrMap.h"
#include "platform/Vrf/VrfId.h"

namespace Routing::Rib {

class LoopingRouteStatus final : public Kel::Entity {
 public:
  class Notifiee : public Kel::NotifieeOf<LoopingRouteStatus> {
   public:
    virtual void onLoopingRoute(const Pando::IpGenPrefix&) {}
  };
  explicit LoopingRouteStatus(Vrf::VrfIdMap::VrfId vrfId = Vrf::VrfIdMap::defaultVrfId)
      : vrfId_(vrfId) {}
  const char* typeName() const override { return "Routing::Rib::LoopingRouteStatus"; }

  Vrf::VrfIdMap::VrfId vrfId() const { return vrfId_; }

  const Kel::HashedSet<Pando::IpGenPrefix>& loopingRoute() const { return loopingRoute_; }
  bool loopingRouteHas(const Pando::IpGenPrefix& p) const {
    return loopingRoute_.find(p) != nullptr;
  }
  uint32_t loopingRouteSize() const { return loopingRoute_.size(); }
  void loopingRouteIs(const Pando::IpGenPrefix& p);
  void loopingRouteDel(const Pando::IpGenPrefix& p);

 private:
  Vrf::VrfIdMap::VrfId vrfId_;
  Kel::HashedSet<Pando::IpGenPrefix> loopingRoute_;
};

class LoopingRouteStatusByVrf final : public Kel::Entity {
 public:
  using LoopingRouteStatusMap =
      IntKeyedPtrMap<Vrf::VrfIdMap::VrfId, LoopingRouteStatus, &LoopingRouteStatus::vrfId>;
  class Notifiee : public Kel::NotifieeOf<LoopingRouteStatusByVrf> {
   public:
    virtual void onLoopingRouteStatus(Vrf::VrfIdMap::VrfId) {}
  };
  const char* typeName() const override { return "Routing::Rib::LoopingRouteStatusByVrf"; }

  const LoopingRouteStatusMap& loopingRouteStatus() const { return loopingRouteStatus_; }
  Kel::Ptr<LoopingRouteStatus> loopingRouteStatus(Vrf::VrfIdMap::VrfId v) const;
  uint32_t loopingRouteStatusSize() const { return loopingRouteStatus_.size(); }
  // Returns the set of VRF `v`, creating an empty one when absent.
  Kel::Ptr<LoopingRouteStatus> loopingRouteStatusIs(Vrf::VrfIdMap::VrfId v);
  void loopingRouteStatusDel(Vrf::VrfIdMap::VrfId v);

 private:
  LoopingRouteStatusMap loopingRouteStatus_;
};

}  // namespace Routing::Rib
