// Routing::Rib::ViaSetConfig: the RIB's shared via sets, one entry per
// distinct content (flags and via keys in order), each with a small id.
//
// dedupConfigViaSetIs returns the entry holding a content, creating it when
// there is none: one probe of an open-addressed index whose slots hold the
// hash and the entry, then a read of the entry, which carries its via keys in
// the same block (a new entry is one allocation). Routes hold their entry by
// Ptr; it leaves the table the moment the last Ptr goes (its destructor erases
// it through a plain back pointer), so route churn does not grow the table.
// The table's destructor detaches the entries still held, so table and
// entries may die in either order.
// Both creation and release notify onViaSet(id), after the table changed.
//
// restartingVrf is a record the RIB side consults: the VRFs whose protocols
// are replaying after a restart, whose via sets a RIB keeps from being
// collected until the replay is done. The table itself does not act on it.
// Given a via set collection (configViaSetCollIs), the table writes every
// entry it creates into it and removes every one released; the entries
// present are written when the collection is given. Finding a present
// content costs the same with or without one.
// Decided here: a new entry takes the smallest free id, starting at 1. A new
// content while the collection is full raises the collection's Kel::RangeError
// "ViaSetCollection::viaSet capacity exceeded" and creates nothing. The dump
// is a header line "Routing::Rib::ViaSetConfig <key> viaSets <n>" at the
// indent and one line "<id> flags 0x<flags>" per entry at indent + 2, in id
// order, followed by ": " and its via keys, comma separated, when it has some.
#pragma once

#include <cstddef>
#include <cstdint>
#include <new>
#include <span>
#include <vector>

#include "Kel/Collections.h"
#include "Kel/Entity.h"
#include "Kel/HashTable.h"
#include "Kel/Prefetch.h"
#include "Kel/Ptr.h"
#include "platform/L3/VrfName.h"
#include "platform/Quay/DumpContext.h"
#include "platform/Routing/Rib/Brisk/ViaSet.h"
#include "platform/Routing/Rib/Brisk/ViaSetCollection.h"
#include "platform/Routing/Rib/ViaKey.h"
#include "platform/Routing/Rib/ViaSetConfigKey.h"
#include "platform/Routing/Rib/ViaSetContent.h"
#include "platform/Routing/Rib/ViaSetKey.h"

namespace Routing::Rib {

using Id = uint32_t;

class ViaSetConfig;

class ViaSetEntry : public Kel::PtrInterface {
 public:
  ~ViaSetEntry() override;
  // The entry and its via keys are one heap block.
  static void operator delete(void* p) { ::operator delete(p); }

  Id id() const { return Id(key_.id()); }
  const ViaSetKey& key() const { return key_; }
  uint32_t flags() const { return flags_; }
  std::span<const ViaKey> viaKeys() const { return {keys(), size_}; }
  uint32_t size() const { return size_; }
  ViaSetContent content() const { return {flags_, viaKeys()}; }
  // Same flags and via keys, in order.
  bool holds(const Brisk::ViaSet& s) const { return content() == s.content(); }
  // Starts loading the entry with its first two keys, which may reach into
  // the next line: enough for most routes, without reading the size first
  // (an address, not a pointer into the block: a set may hold fewer keys).
  void prefetch() const {
    const auto at = reinterpret_cast<std::uintptr_t>(this);
    Kel::prefetchLine(this);
    Kel::prefetchLine(
        reinterpret_cast<const void*>(at + sizeof(ViaSetEntry) + 2 * sizeof(ViaKey) - 1));
  }

 private:
  friend class ViaSetConfig;
  // Made by ViaSetConfig only, with room for the keys after the entry.
  static void* operator new(size_t size, uint32_t keys) {
    return ::operator new(size + keys * sizeof(ViaKey));
  }
  static void operator delete(void* p, uint32_t) { ::operator delete(p); }
  ViaSetEntry(Id id, const Brisk::ViaSet& s);

  const ViaKey* keys() const { return std::launder(reinterpret_cast<const ViaKey*>(this + 1)); }

  ViaSetConfig* config_ = nullptr;  // null until filed, and once the table is gone
  const ViaSetKey key_;
  const uint32_t flags_;
  const uint32_t size_;
  // The via keys follow.
};

class ViaSetConfig final : public Kel::Entity {
 public:
  class Notifiee : public Kel::NotifieeOf<ViaSetConfig> {
   public:
    virtual void onViaSet(Id) {}
    virtual void onRestartingVrf(const L3::VrfName&) {}
  };

  // The live entries in ascending id order. Creating an entry invalidates
  // iterators; releasing one does not.
  class const_iterator {
   public:
    using value_type = ViaSetEntry;
    using difference_type = std::ptrdiff_t;
    const_iterator() = default;
    const ViaSetEntry& operator*() const { return **p_; }
    const ViaSetEntry* operator->() const { return *p_; }
    const_iterator& operator++() {
      p_ = skipHoles(p_ + 1, end_);
      return *this;
    }
    bool operator==(const const_iterator& o) const { return p_ == o.p_; }

   private:
    friend class ViaSetConfig;
    const_iterator(ViaSetEntry* const* p, ViaSetEntry* const* end)
        : p_(skipHoles(p, end)), end_(end) {}
    static ViaSetEntry* const* skipHoles(ViaSetEntry* const* p, ViaSetEntry* const* end) {
      while (p != end && *p == nullptr) ++p;
      return p;
    }
    ViaSetEntry* const* p_ = nullptr;
    ViaSetEntry* const* end_ = nullptr;
  };

  ViaSetConfig() = default;
  explicit ViaSetConfig(const ViaSetConfigKey& key) : key_(key) {}
  ~ViaSetConfig() override;
  const char* typeName() const override { return "Routing::Rib::ViaSetConfig"; }
  const ViaSetConfigKey& key() const { return key_; }

  // The collection the entries are mirrored into; null for none. The entries
  // present are written into a new collection first: when they do not fit,
  // Kel::RangeError and nothing changes.
  const Kel::Ptr<Brisk::ViaSetCollection>& configViaSetColl() const { return configViaSetColl_; }
  void configViaSetCollIs(const Kel::Ptr<Brisk::ViaSetCollection>& coll);

  // The entry with the content of `s`, created with a fresh id if none.
  Kel::Ptr<const ViaSetEntry> dedupConfigViaSetIs(const Brisk::ViaSet& s);
  // Look-ahead for a caller that can tell a content before it asks for it
  // (see Kel/Prefetch.h), by the content's hash: step 0 starts loading where
  // the look-up begins, step 1 (once that is in cache) the entry found there.
  uint32_t contentHashOf(const ViaSetContent& c) const { return byContent_.hashOf(c); }
  void prefetchContentStep(uint32_t hash, int step) const {
    if (step == 0) {
      byContent_.prefetch(hash);
    } else if (ViaSetEntry* const* e = byContent_.probable(hash)) {
      (*e)->prefetch();
    }
  }
  // Null when no entry has id `id`.
  Kel::Ptr<const ViaSetEntry> viaSet(Id id) const;
  uint32_t size() const { return size_; }
  const_iterator begin() const { return {byId_.data(), byId_.data() + byId_.size()}; }
  const_iterator end() const { return {byId_.data() + byId_.size(), byId_.data() + byId_.size()}; }
  // Entries made, and entries gone with their last Ptr, since the table began.
  uint64_t created() const { return created_; }
  uint64_t released() const { return released_; }

  void dumpState(const Kel::Ptr<const Quay::DumpContext>& dumpCtx, uint32_t indent) const;

  void restartingVrfIs(const L3::VrfName& vrf);
  void restartingVrfDel(const L3::VrfName& vrf);
  bool restartingVrfHas(const L3::VrfName& vrf) const {
    return restartingVrf_.find(vrf) != nullptr;
  }
  const Kel::HashedSet<L3::VrfName>& restartingVrf() const { return restartingVrf_; }

 private:
  friend class ViaSetEntry;
  void entryDel(const ViaSetEntry& e);
  void notifyViaSet(Id id);
  Kel::Ptr<const ViaSetEntry> doCreate(const Brisk::ViaSet& s);

  struct ContentTraits {
    using Entry = ViaSetEntry*;
    using Key = ViaSetContent;
    static constexpr ViaSetEntry* vacant = nullptr;
    static ViaSetContent key(const ViaSetEntry* e) { return e->content(); }
    static uint32_t hash(const ViaSetContent& c) { return c.hash(Kel::collectionHashSeed); }
  };

  ViaSetConfigKey key_;
  Kel::Ptr<Brisk::ViaSetCollection> configViaSetColl_;
  // The entries by content.
  Kel::HashTable<ContentTraits> byContent_;
  // Slot `id` holds entry `id` or null; slot 0 is never used.
  std::vector<ViaSetEntry*> byId_{nullptr};
  // Released ids, a min-heap so the smallest is reused first.
  std::vector<Id> freeIds_;
  uint32_t size_ = 0;
  uint64_t created_ = 0;
  uint64_t released_ = 0;
  Kel::HashedSet<L3::VrfName> restartingVrf_;
};

}  // namespace Routing::Rib
