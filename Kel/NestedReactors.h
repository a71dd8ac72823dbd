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

#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>

#include "Kel/Assert.h"
#include "Kel/Entity.h"
#include "Kel/FlatMap.h"
#include "Kel/Hash.h"
#include "Kel/HashTable.h"
#include "Kel/Prefetch.h"
#include "Kel/Slab.h"

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

// Container: a table template over the traits; further parameters (FlatMap's
// inline capacity) keep their defaults.
template <class K, class R, template <class, auto...> class Container = HashTable>
class NestedReactors final : public NestedReactorGroup {
  struct Traits : ReactorKeyHash<K> {
    using Entry = Ptr<R>;
    using Key = K;
    static decltype(auto) key(const Ptr<R>& r) { return r->key(); }
  };

 public:
  explicit NestedReactors(NotifieeBase* owner)
      : NestedReactorGroup(owner, kindOf<NestedReactors>()) {}

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

  void hasNotificationActiveIs(bool active) {
    for (const Ptr<R>& r : map_) r->hasNotificationActiveIs(active);
  }
  void handleOwnerDel() { clear(); }

 private:
  Container<Traits> map_;
};

// Nested reactors for a collection too large for a keyed table of its
// mirror: each reactor is reached through its element's entity (the parent
// finds the entity in its own collection, and the entity knows its
// reactors), and sits in a slab of the parent's own (Kel/Slab.h), so a
// reactor costs its own bytes and no more: no links (the parent walks the
// slab's marks) and no pointer to the parent (owner() finds it from the
// reactor's address), and no cache miss of a table of its own. The element's
// entity must tell its reactor when it leaves the collection (an attribute
// of its own, say), since the parent can no longer find the reactor by key
// once the element is gone; the reactor then asks the parent to erase it.
// R is made with make() and declares, in its own scope, `operator
// new(size_t, Kel::Slab&)` (slabAllocate), `operator delete(void*)` and
// `operator delete(void*, Kel::Slab&)` (Kel::Slab::deallocate), so that it
// comes from the slab and goes back to it. Otherwise as NestedReactors:
// handleDel as a reactor leaves (it is out of the group by then, still
// alive), the owner's active state passed on. The order of the reactors is
// unspecified. Every reactor must be gone when the parent goes. The group
// may hold reactors of a type derived from R instead, one type for all,
// chosen when the group is made (its block size).
template <class R>
class NestedReactorSlab final : public NestedReactorGroup {
 public:
  explicit NestedReactorSlab(NotifieeBase* owner, std::size_t blockSize = sizeof(R))
      : NestedReactorGroup(owner, kindOf<NestedReactorSlab>()), slab_(blockSize, owner) {}
  // Dropped with its owner: the reactors go without handleDel, as a table's would.
  ~NestedReactorSlab() {
    slab_.forEachMarked([](void* p) {
      Slab::markIs(p, false);
      static_cast<R*>(p)->delRef();
    });
  }

  uint32_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  // The parent of a reactor made here.
  static NotifieeBase* owner(const R* r) { return static_cast<NotifieeBase*>(Slab::of(r).owner()); }
  static void* slabAllocate(std::size_t size, Slab& slab) {
    KEL_ASSERT(size <= slab.blockSize());
    return slab.allocate();
  }

  // Makes a reactor (an R, or the D the group holds) from `args` and keeps
  // it; its entity has none of this group yet.
  template <class D = R, class... Args>
  D* make(Args&&... args) {
    static_assert(std::is_base_of_v<R, D>);
    D* r = new (slab_) D(std::forward<Args>(args)...);
    r->newRef();
    r->hasNotificationActiveIs(ownerActive());
    Slab::markIs(r, true);
    ++size_;
    return r;
  }

  // Drops `r` after its handleDel, which runs once `r` has left the group (so
  // that a handleDel erasing it again changes nothing).
  void erase(R* r) {
    if (!Slab::marked(r)) return;
    Slab::markIs(r, false);
    --size_;
    Ptr<R> keep(r);
    r->delRef();  // the group's own reference; `keep` holds it through handleDel
    r->doHandleDel();
  }

  // Calls f(r) on each reactor, in the slab's order; f makes and erases none.
  template <class F>
  void forEach(F&& f) const {
    slab_.forEachMarked([&f](void* p) { f(static_cast<R*>(p)); });
  }

  // Drops every reactor, each after its handleDel. Each lets go of its
  // entity, long out of cache: a reactor is dropped some places behind the
  // walk, which starts loading its entity first. Held meanwhile, so that a
  // handleDel erasing it first leaves it to be skipped, not freed. An R
  // with nested reactors of its own may offer readAheadDrop(step) for steps
  // 0 to R::dropSteps - 1: it is asked for each step between the walk and
  // the drop, each step reading only what the one before brought.
  void clear() {
    constexpr uint32_t lead = 8;
    Ptr<R> behind[lead];
    uint32_t seen = 0;
    slab_.forEachMarked([&](void* p) {
      R* r = static_cast<R*>(p);
      prefetchLine(notifierOf(r));
      if constexpr (requires(const R& x) { x.readAheadDrop(0); }) {
        for (uint32_t step = 0; step < R::dropSteps; ++step) {
          const uint32_t back = (step + 1) * lead / (R::dropSteps + 1);
          if (const R* a = behind[(seen + lead - back) % lead].ptr()) a->readAheadDrop(int(step));
        }
      }
      // Held before the one behind goes: its handleDel may erase this one.
      const Ptr<R> due = std::exchange(behind[seen++ % lead], Ptr<R>(r));
      if (due) erase(due.ptr());
    });
    for (uint32_t i = 0; i < lead; ++i) {
      Ptr<R>& slot = behind[(seen + i) % lead];
      if (slot) erase(slot.ptr());
      slot = nullptr;
    }
  }

  void hasNotificationActiveIs(bool active) {
    slab_.forEachMarked([active](void* p) { static_cast<R*>(p)->hasNotificationActiveIs(active); });
  }
  void handleOwnerDel() { clear(); }

 private:
  Slab slab_;
  uint32_t size_ = 0;
};

// One nested reactor (an input watched as a whole), switched with its owner.
template <class R>
class NestedReactor final : public NestedReactorGroup {
 public:
  explicit NestedReactor(NotifieeBase* owner)
      : NestedReactorGroup(owner, kindOf<NestedReactor>()) {}

  R* get() const { return r_.ptr(); }
  R* operator->() const { return r_.ptr(); }
  explicit operator bool() const { return bool(r_); }
  void reactorIs(Ptr<R> r) {
    if (r) r->hasNotificationActiveIs(ownerActive());
    r_ = std::move(r);
  }
  void hasNotificationActiveIs(bool active) {
    if (r_) r_->hasNotificationActiveIs(active);
  }
  // A whole input is not deleted with its owner's entity: nothing to do.
  void handleOwnerDel() {}

 private:
  Ptr<R> r_;
};

}  // namespace Kel
