// Routing::Rib::Brisk::ViaSetCollection: the shared-memory table of via sets
// by id that the RIB reads: for each id, the flags and via keys of the set.
// A ViaSetConfig given the collection (configViaSetCollIs) writes every via
// set it creates and removes every one it releases.
//
// Every change notifies onViaSet(id) after it is made; writing the content
// an id already has notifies nobody. Costs: O(1) expected per look-up; a
// write copies the via keys. Iteration is in hash order of the ids.
// As a shared-memory table (KelBrisk::Table) it has one collection,
// "viaSet". Decided here: its capacity limits distinct ids; a new id in a
// full collection is the Kel::RangeError "ViaSetCollection::viaSet capacity
// exceeded" and changes nothing; replacing a present set is always allowed.
// cleanup deletes every set.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "Kel/Entity.h"
#include "Kel/Hash.h"
#include "Kel/HashTable.h"
#include "platform/KelBrisk/Table.h"
#include "platform/Routing/Rib/ViaKey.h"

namespace Routing::Rib::Brisk {

class ViaSetCollection final : public Kel::Entity, public KelBrisk::SingleCollectionTable {
 public:
  struct Record {
    uint32_t id;
    uint32_t flags;
    std::vector<ViaKey> viaKeys;
  };
  struct RecordTraits {
    using Entry = Record;
    using Key = uint32_t;
    static uint32_t key(const Record& r) { return r.id; }
    static uint32_t hash(uint32_t k) {
      return Kel::Hasher(Kel::collectionHashSeed).add(k).result();
    }
  };
  using RecordMap = Kel::HashTable<RecordTraits>;

  class Notifiee : public Kel::NotifieeOf<ViaSetCollection> {
   public:
    virtual void onViaSet(uint32_t /*id*/) {}
  };
  ViaSetCollection()
      : SingleCollectionTable("Routing::Rib::Brisk::ViaSetCollection", "ViaSetCollection",
                              "viaSet") {}
  const char* typeName() const override { return "Routing::Rib::Brisk::ViaSetCollection"; }

  // Null when absent; valid until the next write.
  const Record* viaSet(uint32_t id) const { return viaSet_.find(id); }
  const RecordMap& viaSet() const { return viaSet_; }
  uint32_t viaSetSize() const { return viaSet_.size(); }
  // Whether viaSetIs(id, ...) would be taken: the id is present or there is room.
  bool viaSetFits(uint32_t id) const {
    return viaSet_.size() < capacity() || viaSet_.find(id) != nullptr;
  }
  void viaSetIs(uint32_t id, uint32_t flags, std::span<const ViaKey> viaKeys);
  void viaSetDel(uint32_t id);
  void viaSetDelAll();

  void cleanup() override { viaSetDelAll(); }

 private:
  void notifyViaSet(uint32_t id);

  RecordMap viaSet_;
};

}  // namespace Routing::Rib::Brisk
