#include "platform/Routing/Rib/ViaStatusByVrf.h"

namespace Routing::Rib {

std::optional<bool> ViaStatusByVrf::viaStatus(const ViaKey& k) const {
  const Entry* e = viaStatus_.find(k);
  if (e == nullptr) return std::nullopt;
  return e->up;
}

void ViaStatusByVrf::viaStatusIs(const ViaKey& k, bool up) {
  auto [entry, inserted] = viaStatus_.insert(Entry{k, up});
  if (!inserted) {
    if (entry->up == up) return;
    entry->up = up;
  }
  notifyKey(&Notifiee::onViaStatus, k);
}

void ViaStatusByVrf::viaStatusDel(const ViaKey& k) {
  if (viaStatus_.erase(k)) notifyKey(&Notifiee::onViaStatus, k);
}

}  // namespace Routing::Rib
