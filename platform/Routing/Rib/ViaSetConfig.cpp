#include "platform/Routing/Rib/ViaSetConfig.h"

#include <algorithm>
#include <functional>
#include <memory>

namespace Routing::Rib {

static_assert(sizeof(ViaSetEntry) % alignof(ViaKey) == 0, "the via keys follow the entry");

ViaSetEntry::ViaSetEntry(Id id, const Brisk::ViaSet& s)
    : key_(id), flags_(s.flags()), size_(s.size()) {
  std::uninitialized_copy(s.begin(), s.end(), reinterpret_cast<ViaKey*>(this + 1));
}

ViaSetEntry::~ViaSetEntry() {
  if (config_) config_->entryDel(*this);
}

ViaSetConfig::~ViaSetConfig() {
  for (ViaSetEntry* e : byId_) {
    if (e) e->config_ = nullptr;
  }
}

Kel::Ptr<const ViaSetEntry> ViaSetConfig::dedupConfigViaSetIs(const Brisk::ViaSet& s) {
  if (ViaSetEntry* const* present = byContent_.find(s.content())) {
    return Kel::Ptr<const ViaSetEntry>(*present);
  }
  const Id id = freeIds_.empty() ? Id(byId_.size()) : freeIds_.front();
  if (id == byId_.capacity()) {
    // Room for every id in both lists: filing below and releasing (in a
    // destructor) must not allocate. Doubling keeps growth linear.
    byId_.reserve(2 * byId_.capacity());
    freeIds_.reserve(byId_.capacity());
  }
  // Not filed yet, so should insert throw, the entry goes without touching the table.
  auto entry = std::unique_ptr<ViaSetEntry>(new (s.size()) ViaSetEntry(id, s));
  byContent_.insert(entry.get());
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
  byContent_.erase(e.content());
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
