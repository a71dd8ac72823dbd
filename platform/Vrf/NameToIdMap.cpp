#include "platform/Vrf/NameToIdMap.h"

#include <sstream>

#include "Kel/Error.h"

namespace Vrf::VrfIdMap {

const L3::VrfName* NameToIdMap::vrfName(VrfId id) const {
  const IdEntry* e = byId_.find(id);
  return e ? &e->name : nullptr;
}

void NameToIdMap::vrfNameToIdIs(const L3::VrfName& name, VrfId id) {
  if (id == invalidVrfId) {
    std::ostringstream msg;
    msg << "VRF " << name << " cannot take the invalid VRF id " << id;
    throw Kel::RangeError(msg.str());
  }
  if (const IdEntry* holder = byId_.find(id); holder != nullptr && !(holder->name == name)) {
    std::ostringstream msg;
    msg << "VRF id " << id << " is already mapped to VRF " << holder->name;
    throw Kel::RangeError(msg.str());
  }
  if (Entry* e = byName_.find(name)) {
    if (e->id == id) return;
    byId_.erase(e->id);
    e->id = id;
  } else {
    byName_.insert(Entry{name, id});
  }
  byId_.insert(IdEntry{id, name});
  notifyKey(&Notifiee::onVrfNameToId, name);
}

void NameToIdMap::vrfNameToIdDel(const L3::VrfName& name) {
  const Entry* e = byName_.find(name);
  if (e == nullptr) return;
  byId_.erase(e->id);
  byName_.erase(name);
  notifyKey(&Notifiee::onVrfNameToId, name);
}

void NameToIdMap::vrfNameToIdDelAll() {
  while (!byName_.empty()) {
    const L3::VrfName name = byName_.begin()->name;
    vrfNameToIdDel(name);
  }
}

}  // namespace Vrf::VrfIdMap
