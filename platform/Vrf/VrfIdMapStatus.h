// Vrf::VrfIdMap::Status: the shared-memory VRF id table ("vrf/vrfIdMapStatus",
// table type 3): one VrfEntry per VRF id. The VRF manager writes; the
// protocol layer reads the name of an id.
//
// Every change notifies onVrfEntry(id) after it is made; writing the entry
// an id already has notifies nobody. Costs: O(1) expected per call.
// Look-ups may meet a corrupt record (Vigil::CorruptionDetectedException):
// the reader reports the message through doCorruptionDetected and repeats
// the look-up (see Vigil/CorruptionMonitor.h; corruptionIs injects faults).
// Decided here: the table has one collection, "vrfEntry", whose capacity
// limits distinct ids: a new id in a full table is the Kel::RangeError
// "Status::vrfEntry capacity exceeded" and changes nothing. cleanup removes
// every entry.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "Kel/Entity.h"
#include "Kel/Hash.h"
#include "Kel/HashTable.h"
#include "platform/KelBrisk/Table.h"
#include "platform/L3/VrfName.h"
#include "platform/Vigil/CorruptionMonitor.h"
#include "platform/Vrf/VrfEntry.h"
#include "platform/Vrf/VrfId.h"

namespace Vrf::VrfIdMap {

class Status final : public Kel::Entity, public KelBrisk::SingleCollectionTable {
 public:
  struct EntryTraits {
    using Entry = VrfEntry;
    using Key = VrfId;
    static VrfId key(const VrfEntry& e) { return e.vrfId(); }
    static uint32_t hash(VrfId k) { return Kel::Hasher(Kel::collectionHashSeed).add(k).result(); }
  };
  using EntryMap = Kel::HashTable<EntryTraits>;

  class Notifiee : public Kel::NotifieeOf<Status> {
   public:
    virtual void onVrfEntry(VrfId) {}
  };
  Status() : SingleCollectionTable("Vrf::VrfIdMap::Status", "Status", "vrfEntry") {}
  const char* typeName() const override { return "Vrf::VrfIdMap::Status"; }

  // The invalid entry when absent; may raise Vigil::CorruptionDetectedException.
  VrfEntry vrfEntry(VrfId id) const;
  const EntryMap& vrfEntry() const { return vrfEntry_; }
  uint32_t vrfEntrySize() const { return vrfEntry_.size(); }
  // The invalid id is a Kel::RangeError.
  void vrfEntryIs(VrfId id, const L3::VrfName& name);
  void vrfEntryDel(VrfId id);
  void vrfEntryDelAll();

  void doCorruptionDetected(const std::string& message) const {
    monitor_.doCorruptionDetected(message);
  }
  uint32_t corruptionsDetected() const { return monitor_.corruptionsDetected(); }
  const std::string& lastCorruption() const { return monitor_.lastMessage(); }
  // Test hooks: the next `lookups` look-ups raise; a name stored unchecked.
  void corruptionIs(uint32_t lookups) { monitor_.corruptionIs(lookups); }
  void vrfEntryRawIs(VrfId id, std::string_view storedName);

  void cleanup() override { vrfEntryDelAll(); }

 private:
  void entryIs(const VrfEntry& e);
  void notifyVrfEntry(VrfId id);

  EntryMap vrfEntry_;
  Vigil::CorruptionMonitor monitor_;
};

}  // namespace Vrf::VrfIdMap
