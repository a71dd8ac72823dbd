// The nested reactors of a parent reactor, one per element of the entity
// collection they mirror, keyed like that collection. The parent creates one
// when an element appears and drops it (after its handleDel) when the element
// goes. A new nested reactor takes its parent's active state, and
// hasNotificationActiveIs on the parent reaches all of them. When the parent's
// own entity goes, each nested reactor gets its handleDel too.
//
// R must offer `key()` returning the element key. Container is HashTable for
// large collections and FlatMap for the small ordered ones.
#pragma once

#include <type_traits>

#include "Kel/Entity.h"
#include "Kel/FlatMap.h"
#include "Kel/Hash.h"
#include "Kel/HashTable.h"

namespace Kel {

// Keys that hash themselves, and plain numbers (VRF ids, transports), which
// hash as one word. Reactors iterate in hash order; nothing relies on it.
template <class K>
struct ReactorKeyHash {
  static uint32_t hash(const K& k) requires requires { k.hash(0u); }
  { return k.hash(mirrorHashSeed); }
  static uint32_t hash(const K& k) requires std::is_integral_v<K> {
    return Hasher(mirrorHashSeed).add(uint32_t(k)).result();
  }
};

template <class K, class R, template <class> class Container = HashTable>
class NestedReactors final : public NestedReactorGroup {
  struct Traits : ReactorKeyHash<K> {
    using Entry = Ptr<R>;
    using Key = K;
    static decltype(auto) key(const Ptr<R>& r) { return r->key(); }
  };

 public:
  explicit NestedReactors(NotifieeBase* owner) : NestedReactorGroup(owner) {}

  uint32_t size() const { return map_.size(); }
  bool empty() const { return map_.empty(); }
  auto begin() const { return map_.begin(); }
  auto end() const { return map_.end(); }

  R* find(const K& key) const {
    auto* e = map_.find(key);
    return e ? e->ptr() : nullptr;
  }

  // Adds `r` unless a reactor for its key exists; returns the one kept.
  R* insert(Ptr<R> r) {
    r->hasNotificationActiveIs(ownerActive());
    return map_.insert(std::move(r)).first->ptr();
  }

  // Replaces any reactor for r's key.
  R* replace(Ptr<R> r) {
    erase(r->key());
    return insert(std::move(r));
  }

  void erase(const K& key) {
    if (R* r = find(key)) {
      Ptr<R> keep(r);
      r->doHandleDel();
      map_.erase(key);
    }
  }

  // Deletes every nested reactor, each after its handleDel.
  void clear() {
    while (!map_.empty()) {
      Ptr<R> r = *map_.begin();
      r->doHandleDel();
      map_.erase(r->key());
    }
  }

  void hasNotificationActiveIs(bool active) override {
    for (const Ptr<R>& r : map_) r->hasNotificationActiveIs(active);
  }
  void handleOwnerDel() override { clear(); }

 private:
  Container<Traits> map_;
};

// One nested reactor (an input watched as a whole), switched with its owner.
template <class R>
class NestedReactor final : public NestedReactorGroup {
 public:
  explicit NestedReactor(NotifieeBase* owner) : NestedReactorGroup(owner) {}

  R* get() const { return r_.ptr(); }
  R* operator->() const { return r_.ptr(); }
  explicit operator bool() const { return bool(r_); }
  void reactorIs(Ptr<R> r) {
    if (r) r->hasNotificationActiveIs(ownerActive());
    r_ = std::move(r);
  }
  void hasNotificationActiveIs(bool active) override {
    if (r_) r_->hasNotificationActiveIs(active);
  }
  // A whole input is not deleted with its owner's entity: nothing to do.
  void handleOwnerDel() override {}

 private:
  Ptr<R> r_;
};

}  // namespace Kel
