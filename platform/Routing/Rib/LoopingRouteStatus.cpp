#include "platform/Routing/Rib/LoopingRouteStatus.h"

namespace Routing::Rib {

void LoopingRouteStatus::loopingRouteIs(const Pando::IpGenPrefix& p) {
  if (loopingRoute_.insert(Pando::IpGenPrefix(p)).second) notifyKey(&Notifiee::onLoopingRoute, p);
}

void LoopingRouteStatus::loopingRouteDel(const Pando::IpGenPrefix& p) {
  if (loopingRoute_.erase(p)) notifyKey(&Notifiee::onLoopingRoute, p);
}

Kel::Ptr<LoopingRouteStatus> LoopingRouteStatusByVrf::vrfStatus(const L3::VrfName& v) const {
  const auto* e = vrfStatus_.find(v);
  return e ? *e : nullptr;
}

Kel::Ptr<LoopingRouteStatus> LoopingRouteStatusByVrf::vrfStatusIs(const L3::VrfName& v) {
  if (const auto* e = vrfStatus_.find(v)) return *e;
  Kel::Ptr<LoopingRouteStatus> status =
      *vrfStatus_.insert(Kel::makePtr<LoopingRouteStatus>(v)).first;
  notifyKey(&Notifiee::onVrfStatus, v);
  return status;
}

void LoopingRouteStatusByVrf::vrfStatusDel(const L3::VrfName& v) {
  const L3::VrfName name = v;  // `v` may be the name of the set that goes
  if (vrfStatus_.erase(name)) notifyKey(&Notifiee::onVrfStatus, name);
}

}  // namespace Routing::Rib
