// Shared, deduplicated via keys and via set keys.
//
// A DedupViaKey holds one ViaKey; the DedupViaKeyTable hands out at most one
// per content, so holders compare keys by pointer and share their memory.
// An entry leaves the table the moment its last Ptr goes (its destructor
// erases it through a plain back pointer). The table's destructor detaches
// the entries still held, so table and entries may die in either order.
// Cost: dedupViaKeyIs is one hash lookup, plus an allocation for a new key.
//
// DedupViaSetKey holds one ViaSetKey in the same way; its table is still to come.
#pragma once

#include <cstddef>
#include <cstdint>
#include <unordered_map>

#include "Kel/Ptr.h"
#include "platform/Routing/Rib/ViaKey.h"
#include "platform/Routing/Rib/ViaSetKey.h"

namespace Routing::Rib {

class DedupViaKeyTable;

class DedupViaKey : public Kel::PtrInterface {
 public:
  ~DedupViaKey() override;
  const ViaKey& key() const { return key_; }

 private:
  friend class DedupViaKeyTable;
  DedupViaKey(DedupViaKeyTable* table, const ViaKey& key) : table_(table), key_(key) {}

  DedupViaKeyTable* table_;  // null once the table is gone
  const ViaKey key_;
};

class DedupViaKeyTable : public Kel::PtrInterface {
 public:
  DedupViaKeyTable() = default;
  ~DedupViaKeyTable() override;

  // The entry holding `key`, created if there is none.
  Kel::Ptr<const DedupViaKey> dedupViaKeyIs(const ViaKey& key);
  size_t size() const { return entries_.size(); }
  // Entries made, and entries gone with their last Ptr, since the table began.
  uint64_t created() const { return created_; }
  uint64_t released() const { return released_; }

 private:
  friend class DedupViaKey;
  void entryDel(const ViaKey& key);

  std::unordered_map<ViaKey, DedupViaKey*, ViaKeyHash> entries_;
  uint64_t created_ = 0;
  uint64_t released_ = 0;
};

class DedupViaSetKey : public Kel::PtrInterface {
 public:
  explicit DedupViaSetKey(const ViaSetKey& key) : key_(key) {}
  const ViaSetKey& key() const { return key_; }

 private:
  const ViaSetKey key_;
};

}  // namespace Routing::Rib
