#include "platform/Routing/Rib/Brisk/ViaSetCollection.h"

#include <algorithm>

namespace Routing::Rib::Brisk {

void ViaSetCollection::viaSetIs(uint32_t id, uint32_t flags, std::span<const ViaKey> viaKeys) {
  if (Record* r = viaSet_.find(id)) {
    if (r->flags == flags &&
        std::equal(r->viaKeys.begin(), r->viaKeys.end(), viaKeys.begin(), viaKeys.end())) {
      return;
    }
    r->flags = flags;
    r->viaKeys.assign(viaKeys.begin(), viaKeys.end());
  } else {
    checkRoom(viaSet_.size());
    viaSet_.insert(Record{id, flags, {viaKeys.begin(), viaKeys.end()}});
  }
  notifyViaSet(id);
}

void ViaSetCollection::viaSetDel(uint32_t id) {
  if (viaSet_.erase(id)) notifyViaSet(id);
}

void ViaSetCollection::viaSetDelAll() {
  while (!viaSet_.empty()) notifyViaSet(viaSet_.popFront().id);
}

void ViaSetCollection::notifyViaSet(uint32_t id) {
  notify<Notifiee>([id](Notifiee* n) { n->onViaSet(id); });
}

}  // namespace Routing::Rib::Brisk
