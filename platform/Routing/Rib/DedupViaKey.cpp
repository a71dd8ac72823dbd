#include "platform/Routing/Rib/DedupViaKey.h"

namespace Routing::Rib {

DedupViaKey::~DedupViaKey() {
  if (table_) table_->entryDel(key_);
}

DedupViaKeyTable::~DedupViaKeyTable() {
  for (auto& [key, entry] : entries_) entry->table_ = nullptr;
}

Kel::Ptr<const DedupViaKey> DedupViaKeyTable::dedupViaKeyIs(const ViaKey& key) {
  auto [slot, added] = entries_.try_emplace(key, nullptr);
  if (added) {
    try {
      slot->second = new DedupViaKey(this, key);
    } catch (...) {
      entries_.erase(slot);
      throw;
    }
    ++created_;
  }
  return Kel::Ptr<const DedupViaKey>(slot->second);
}

void DedupViaKeyTable::entryDel(const ViaKey& key) {
  entries_.erase(key);
  ++released_;
}

}  // namespace Routing::Rib
