#include "platform/Routing/Rib/LoopingRouteStatus.h"

namespace Routing::Rib {

void LoopingRouteStatus::loopingRouteIs(const Pando::IpGenPrefix& p) {
  if (loopingRoute_.insert(Pando::IpGenPrefix(p)).second) notifyKey(&Notifiee::onLoopingRoute, p);
}

void LoopingRouteStatus::loopingRouteDel(const Pando::IpGenPrefix& p) {
  if (loopingRoute_.erase(p)) notifyKey(&Notifiee::onLoopingRoute, p);
}

Kel::Ptr<LoopingRouteStatus> LoopingRouteStatusByVrf::loopingRouteStatus(
    Vrf::VrfIdMap::VrfId v) const {
  const auto* e = loopingRouteStatus_.find(v);
  return e ? *e : nullptr;
}

Kel::Ptr<LoopingRouteStatus> LoopingRouteStatusByVrf::loopingRouteStatusIs(Vrf::VrfIdMap::VrfId v) {
  if (const auto* e = loopingRouteStatus_.find(v)) return *e;
  Kel::Ptr<LoopingRouteStatus> status =
      *loopingRouteStatus_.insert(Kel::makePtr<LoopingRouteStatus>(v)).first;
  notify<Notifiee>([v](Notifiee* n) { n->onLoopingRouteStatus(v); });
  return status;
}

void LoopingRouteStatusByVrf::loopingRouteStatusDel(Vrf::VrfIdMap::VrfId v) {
  if (loopingRouteStatus_.erase(v)) {
    notify<Notifiee>([v](Notifiee* n) { n->onLoopingRouteStatus(v); });
  }
}

}  // namespace Routing::Rib
