#include "IpRib/ProtocolGrTypes.h"

namespace Routing::Protocol {

Kel::Ptr<VrfReadyStatus> AllVrfReadyStatus::vrfReadyStatusIs(const L3::VrfName& name) {
  auto [record, created] = coll_.insert(name);
  if (created) notifyKey(&Notifiee::onVrfReadyStatus, name);
  return record;
}

void AllVrfReadyStatus::vrfReadyStatusDel(const L3::VrfName& name) {
  if (coll_.erase(name)) notifyKey(&Notifiee::onVrfReadyStatus, name);
}

void AllVrfReadyStatus::vrfReadyStatusDelAll() {
  while (!coll_.empty()) {
    Kel::Ptr<VrfReadyStatus> record = coll_.popFront();
    notifyKey(&Notifiee::onVrfReadyStatus, record->vrfName());
  }
}

Kel::Ptr<VrfRibSeqTrigger> AllVrfRibSeqTrigger::vrfRibSeqTriggerIs(const L3::VrfName& name) {
  auto [record, created] = coll_.insert(name);
  if (created) notifyKey(&Notifiee::onVrfRibSeqTrigger, name);
  return record;
}

void AllVrfRibSeqTrigger::vrfRibSeqTriggerDel(const L3::VrfName& name) {
  if (coll_.erase(name)) notifyKey(&Notifiee::onVrfRibSeqTrigger, name);
}

void AllVrfRibSeqTrigger::vrfRibSeqTriggerDelAll() {
  while (!coll_.empty()) {
    Kel::Ptr<VrfRibSeqTrigger> record = coll_.popFront();
    notifyKey(&Notifiee::onVrfRibSeqTrigger, record->vrfName());
  }
}

Kel::Ptr<GrState> grStateFactory(bool gracefulRestart) {
  return Kel::makePtr<GrState>(gracefulRestart);
}
Kel::Ptr<AllVrfReadyStatus> allVrfReadyStatusFactory() { return Kel::makePtr<AllVrfReadyStatus>(); }
Kel::Ptr<VrfReadyStatus> vrfReadyStatusFactory(const L3::VrfName& name) {
  return Kel::makePtr<VrfReadyStatus>(name);
}
Kel::Ptr<AllVrfRibSeqTrigger> allVrfRibSeqTriggerFactory() {
  return Kel::makePtr<AllVrfRibSeqTrigger>();
}
Kel::Ptr<VrfRibSeqTrigger> vrfRibSeqTriggerFactory(const L3::VrfName& name) {
  return Kel::makePtr<VrfRibSeqTrigger>(name);
}

}  // namespace Routing::Protocol
