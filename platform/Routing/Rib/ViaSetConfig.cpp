#include "platform/Routing/Rib/ViaSetConfig.h"

#include <algorithm>
#include <functional>
#include <memory>

#include "Kel/HashTable.h"

namespace Routing::Rib {

ViaSetEntry::~ViaSetEntry() {
  if (config_) config_->entryDel(*this);
}

bool ViaSetEntry::holds(const Brisk::ViaSet& s) const {
  return flags_ == s.flags() && std::equal(viaKeys_.begin(), viaKeys_.end(), s.begin(), s.end());
}

ViaSetConfig::~ViaSetConfig() {
  for (ViaSetEntry* e : byId_) {
    if (e) e->config_ = nullptr;
  }
}

Kel::Ptr<const ViaSetEntry> ViaSetConfig::dedupConfigViaSetIs(const Brisk::ViaSet& s) {
  const uint32_t hash = s.hash(Kel::collectionHashSeed);
  auto [first, last] = byContent_.equal_range(hash);
  for (auto it = first; it != last; ++it) {
    if (it->second->holds(s)) return Kel::Ptr<const ViaSetEntry>(it->second);
  }
  const Id id = freeIds_.empty() ? Id(byId_.size()) : freeIds_.front();
  if (id == byId_.size()) {
    // Room for every id in both lists: filing below and releasing (in a
    // destructor) must not allocate.
    byId_.reserve(std::max<size_t>(id + 1, 2 * byId_.size()));
    freeIds_.reserve(byId_.capacity());
  }
  // Not filed yet, so should emplace throw, the entry goes without touching the table.
  auto entry = std::unique_ptr<ViaSetEntry>(new ViaSetEntry(id, hash, s));
  byContent_.emplace(hash, entry.get());
  entry->config_ = this;
  if (id == byId_.size()) {
    byId_.push_back(entry.get());
  } else {
    std::pop_heap(freeIds_.begin(), freeIds_.end(), std::greater<>());
    freeIds_.pop_back();
    byId_[id] = entry.get();
  }
  ++size_;
  ++created_;
  Kel::Ptr<const ViaSetEntry> held(entry.release());
  notifyViaSet(id);
  return held;
}

Kel::Ptr<const ViaSetEntry> ViaSetConfig::viaSet(Id id) const {
  return Kel::Ptr<const ViaSetEntry>(id < byId_.size() ? byId_[id] : nullptr);
}

void ViaSetConfig::entryDel(const ViaSetEntry& e) {
  auto [first, last] = byContent_.equal_range(e.hash_);
  for (auto it = first; it != last; ++it) {
    if (it->second == &e) {
      byContent_.erase(it);
      break;
    }
  }
  byId_[e.id()] = nullptr;
  freeIds_.push_back(e.id());
  std::push_heap(freeIds_.begin(), freeIds_.end(), std::greater<>());
  --size_;
  ++released_;
  notifyViaSet(e.id());
}

void ViaSetConfig::notifyViaSet(Id id) {
  notify<Notifiee>([id](Notifiee* n) { n->onViaSet(id); });
}

void ViaSetConfig::restartingVrfIs(const L3::VrfName& vrf) {
  if (restartingVrf_.insert(L3::VrfName(vrf)).second) notifyKey(&Notifiee::onRestartingVrf, vrf);
}

void ViaSetConfig::restartingVrfDel(const L3::VrfName& vrf) {
  if (restartingVrf_.erase(vrf)) notifyKey(&Notifiee::onRestartingVrf, vrf);
}

}  // namespace Routing::Rib
