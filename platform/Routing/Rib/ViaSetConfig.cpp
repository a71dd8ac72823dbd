#include "platform/Routing/Rib/ViaSetConfig.h"

#include <algorithm>
#include <functional>
#include <memory>
#include <sstream>

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
  return doCreate(s);
}

Kel::Ptr<const ViaSetEntry> ViaSetConfig::doCreate(const Brisk::ViaSet& s) {
  const Id id = freeIds_.empty() ? Id(byId_.size()) : freeIds_.front();
  if (id == byId_.capacity()) {
    // Room for every id in both lists: filing below and releasing (in a
    // destructor) must not allocate. Doubling keeps growth linear.
    byId_.reserve(2 * byId_.capacity());
    freeIds_.reserve(byId_.capacity());
  }
  if (configViaSetColl_ && !configViaSetColl_->viaSetFits(id)) {
    KelBrisk::throwCapacityExceeded("ViaSetCollection", "viaSet");
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
  if (configViaSetColl_) configViaSetColl_->viaSetIs(id, held->flags(), held->viaKeys());
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
  if (configViaSetColl_) configViaSetColl_->viaSetDel(e.id());
  notifyViaSet(e.id());
}

void ViaSetConfig::configViaSetCollIs(const Kel::Ptr<Brisk::ViaSetCollection>& coll) {
  if (coll == configViaSetColl_) return;
  if (coll) {
    uint32_t missing = 0;
    for (const ViaSetEntry& e : *this) missing += coll->viaSet(e.id()) == nullptr;
    if (missing != 0 && coll->viaSetSize() + uint64_t(missing) > coll->capacity()) {
      KelBrisk::throwCapacityExceeded("ViaSetCollection", "viaSet");
    }
    for (const ViaSetEntry& e : *this) coll->viaSetIs(e.id(), e.flags(), e.viaKeys());
  }
  configViaSetColl_ = coll;
}

void ViaSetConfig::dumpState(const Kel::Ptr<const Quay::DumpContext>& dumpCtx,
                             uint32_t indent) const {
  std::ostringstream header;
  header << key_;
  Quay::objDumpPrintf(dumpCtx, "%*s%s %s viaSets %u\n", int(indent), "", typeName(),
                      header.str().c_str(), size_);
  for (const ViaSetEntry& e : *this) {
    std::ostringstream line;
    const char* separator = ": ";
    for (const ViaKey& k : e.viaKeys()) {
      line << separator << k;
      separator = ", ";
    }
    Quay::objDumpPrintf(dumpCtx, "%*s%u flags 0x%x%s\n", int(indent + 2), "", e.id(), e.flags(),
                        line.str().c_str());
  }
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
