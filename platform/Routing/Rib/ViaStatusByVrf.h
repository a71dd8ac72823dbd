// Whether the RIB considers each via up, for the vias of all VRFs.
//
// One table keyed by ViaKey, whose VRF id makes it per VRF. The RIB writes;
// route computation reads. Every change notifies at once with the via key;
// writing the state a via already has notifies nobody. Look-ups and changes
// are O(1) expected; iteration is in hash order.
// Decided here: a via absent from the table is neither up nor down
// (viaStatus() gives nothing), which a reader tells apart from down.
#pragma once

#include <cstdint>
#include <optional>

#include "Kel/Entity.h"
#include "Kel/HashTable.h"
#include "platform/Routing/Rib/ViaKey.h"

namespace Routing::Rib {

class ViaStatusByVrf final : public Kel::Entity {
 public:
  struct Entry {
    ViaKey viaKey;
    bool up;
  };
  struct EntryTraits {
    using Entry = ViaStatusByVrf::Entry;
    using Key = ViaKey;
    static const ViaKey& key(const Entry& e) { return e.viaKey; }
    static uint32_t hash(const ViaKey& k) { return k.hash(Kel::collectionHashSeed); }
  };
  using ViaStatusMap = Kel::HashTable<EntryTraits>;
  class Notifiee : public Kel::NotifieeOf<ViaStatusByVrf> {
   public:
    virtual void onViaStatus(const ViaKey&) {}
  };
  const char* typeName() const override { return "Routing::Rib::ViaStatusByVrf"; }

  const ViaStatusMap& viaStatus() const { return viaStatus_; }
  std::optional<bool> viaStatus(const ViaKey& k) const;
  uint32_t viaStatusSize() const { return viaStatus_.size(); }
  void viaStatusIs(const ViaKey& k, bool up);
  void viaStatusDel(const ViaKey& k);

 private:
  ViaStatusMap viaStatus_;
};

}  // namespace Routing::Rib
