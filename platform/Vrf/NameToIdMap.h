// The VRF name-to-id map the platform publishes, and the wrapper entity in
// the state database that holds it ("vrf/vrfNameStatus"):
//
//   NameToIdMapWrapper -> nameToIdMap -> vrfNameToId (VRF name -> VRF id)
//
// The platform writes; the protocol layer and the leak code read. Every
// change notifies at once with the VRF name; writing the id a name already
// has notifies nobody. Look-ups and changes are O(1) expected; iteration is
// in hash order of the names.
// Decided here: like a real VRF manager, ids are unique: mapping a name to
// an id another name holds, or to the invalid id, is a Kel::RangeError that
// changes nothing. A name is renumbered by mapping it to a new id.
#pragma once

#include <cstdint>
#include <utility>

#include "Kel/Collections.h"
#include "Kel/Entity.h"
#include "Kel/Hash.h"
#include "Kel/HashTable.h"
#include "platform/L3/VrfName.h"
#include "platform/Vrf/VrfId.h"

namespace Vrf::VrfIdMap {

class NameToIdMap final : public Kel::Entity {
 public:
  struct Entry {
    L3::VrfName name;
    VrfId id;
  };
  struct EntryTraits {
    using Entry = NameToIdMap::Entry;
    using Key = L3::VrfName;
    static const L3::VrfName& key(const Entry& e) { return e.name; }
    static uint32_t hash(const L3::VrfName& k) { return k.hash(Kel::collectionHashSeed); }
  };
  using Map = Kel::HashTable<EntryTraits>;
  class Notifiee : public Kel::NotifieeOf<NameToIdMap> {
   public:
    virtual void onVrfNameToId(const L3::VrfName&) {}
  };
  const char* typeName() const override { return "Vrf::VrfIdMap::NameToIdMap"; }

  const Map& vrfNameToId() const { return byName_; }
  // The id of `name`; invalidVrfId when the map does not hold it.
  VrfId vrfNameToId(const L3::VrfName& name) const {
    const Entry* e = byName_.find(name);
    return e ? e->id : invalidVrfId;
  }
  bool vrfNameToIdHas(const L3::VrfName& name) const { return byName_.find(name) != nullptr; }
  uint32_t vrfNameToIdSize() const { return byName_.size(); }
  // The name that holds `id`; null when none.
  const L3::VrfName* vrfName(VrfId id) const;

  // Adds `name` or gives it a new id.
  void vrfNameToIdIs(const L3::VrfName& name, VrfId id);
  void vrfNameToIdDel(const L3::VrfName& name);
  void vrfNameToIdDelAll();

 private:
  struct IdEntry {
    VrfId id;
    L3::VrfName name;
  };
  struct IdTraits {
    using Entry = IdEntry;
    using Key = VrfId;
    static VrfId key(const IdEntry& e) { return e.id; }
    static uint32_t hash(VrfId k) { return Kel::Hasher(Kel::collectionHashSeed).add(k).result(); }
  };
  Map byName_;
  Kel::HashTable<IdTraits> byId_;
};

// The state database's holder of the map: the platform may replace the
// whole map, which its readers hear as onNameToIdMap().
class NameToIdMapWrapper final : public Kel::Entity {
 public:
  class Notifiee : public Kel::NotifieeOf<NameToIdMapWrapper> {
   public:
    virtual void onNameToIdMap() {}
  };
  explicit NameToIdMapWrapper(Kel::Ptr<NameToIdMap> map = nullptr) : nameToIdMap_(std::move(map)) {}
  const char* typeName() const override { return "Vrf::VrfIdMap::NameToIdMapWrapper"; }

  const Kel::Ptr<NameToIdMap>& nameToIdMap() const { return nameToIdMap_; }
  void nameToIdMapIs(const Kel::Ptr<NameToIdMap>& map) {
    attributeIs(nameToIdMap_, map, &Notifiee::onNameToIdMap);
  }

 private:
  Kel::Ptr<NameToIdMap> nameToIdMap_;
};

}  // namespace Vrf::VrfIdMap
