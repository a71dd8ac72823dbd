#include "platform/Vrf/VrfIdMapStatus.h"

#include "Kel/Error.h"

namespace Vrf::VrfIdMap {

VrfEntry Status::vrfEntry(VrfId id) const {
  monitor_.check(typeName());
  const VrfEntry* e = vrfEntry_.find(id);
  return e ? *e : VrfEntry();
}

void Status::vrfEntryIs(VrfId id, const L3::VrfName& name) { entryIs(VrfEntry(id, name)); }

void Status::vrfEntryRawIs(VrfId id, std::string_view storedName) {
  entryIs(VrfEntry::raw(id, storedName));
}

void Status::entryIs(const VrfEntry& e) {
  if (!e.valid()) throw Kel::RangeError("Status::vrfEntryIs: the invalid VRF id has no entry");
  if (VrfEntry* present = vrfEntry_.find(e.vrfId())) {
    if (*present == e) return;
    *present = e;
  } else {
    checkRoom(vrfEntry_.size());
    vrfEntry_.insert(VrfEntry(e));
  }
  notifyVrfEntry(e.vrfId());
}

void Status::vrfEntryDel(VrfId id) {
  if (vrfEntry_.erase(id)) notifyVrfEntry(id);
}

void Status::vrfEntryDelAll() {
  while (!vrfEntry_.empty()) notifyVrfEntry(vrfEntry_.popFront().vrfId());
}

void Status::notifyVrfEntry(VrfId id) {
  notify<Notifiee>([id](Notifiee* n) { n->onVrfEntry(id); });
}

}  // namespace Vrf::VrfIdMap
