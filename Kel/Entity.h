// Entities and the reactors bound to them.
//
// Contract:
// - One thread. An entity notifies its active reactors synchronously, at the
//   moment of the change, after the change is made, with the element's key for
//   collections. Reactors are called in the order they were bound.
// - A handler may change anything, the notifying entity included, and may
//   drop reactors (its own included) or the entity itself: dispatch holds the
//   entity alive, a reactor unbound during dispatch is not called afterwards,
//   and a reactor bound during dispatch first hears the next change.
// - Entities live on the heap and are held by Ptr. A reactor holds its
//   entity by Ptr; the entity points to its reactors with plain pointers that
//   reactors remove when they unbind or die.
// - Cost: with no reactor bound a notification is one pointer test; one
//   reactor costs no allocation.
// - Passing up: an entity filed under a parent may be linked to it
//   (nestedParentIs). Its changes then also reach the parent's reactors as
//   handleNested(child), in the link's place among its own reactors, and go
//   on up while the parent is linked in turn: one reactor on a parent hears
//   a whole subtree without a reactor on every entity in it. The parent
//   unlinks a child before dropping it, and every child before it goes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>

#include "Kel/Ptr.h"

namespace Kel {

class NotifieeBase;

class Entity : public PtrInterface {
 public:
  ~Entity() override;
  // The entity type's qualified name, e.g. "Routing::Protocol::Status".
  virtual const char* typeName() const = 0;
  size_t notifieeCount() const;

  // Look-ahead for a pass about to change many entities (see Kel/Prefetch.h):
  // step 0 starts loading this entity's reactor list, step 1 its reactors,
  // and each later step n asks every active reactor to readAhead(n - 2),
  // so that it starts loading what its handler will read. Each step reads
  // only what the one before brought. Changes nothing.
  static constexpr int reactorListSteps = 2;
  void readAheadReactors(int step) const;
  // Lives while a pass that reads reactors ahead notifies them: their
  // handlers may take what readAhead asked for as on its way, and skip
  // loading it again. A handler it wakes that was not read ahead (a nested
  // change) only loses that shortcut.
  class ReadAheadPass {
   public:
    ReadAheadPass() { ++passes_; }
    ~ReadAheadPass() { --passes_; }
    ReadAheadPass(const ReadAheadPass&) = delete;
    ReadAheadPass& operator=(const ReadAheadPass&) = delete;
  };
  static bool readAheadPassActive() { return passes_ != 0; }
  // Dispatches begun to entities with reactors, ever. When a call left it
  // unchanged, no reactor ran inside it: whatever changed is the callee's own.
  static uint64_t dispatches() { return dispatches_; }

  // Links this entity to the parent it is filed under (null: unlinks); for
  // the parent's own code.
  void nestedParentIs(const Entity* parent);
  const Entity* nestedParent() const;

 protected:
  // Calls `call(static_cast<N*>(reactor))` on each active bound reactor.
  template <class N, class F>
  void notify(F&& call) const {
    if (reactors_ == 0) return;
    ++dispatches_;
    // A handler may drop the last reference to this entity: keep it until
    // done, also when a handler throws.
    const bool counted = references() != 0;
    if (counted) newRef();
    struct Release {
      const Entity* e;
      bool counted;
      ~Release() {
        if (counted) e->delRef();
      }
    } release{this, counted};
    if ((reactors_ & hubTag) == 0) {
      if (reactors_ & parentTag) {
        parentOf(reactors_)->notifyNested(*this);
        return;
      }
      NotifieeBase* r = reinterpret_cast<NotifieeBase*>(reactors_);
      if (isActive(r)) call(static_cast<N*>(r));
    } else {
      // A handler may bind reactors and so move the hub: re-read it each time.
      ++hub()->depth;
      struct Leave {
        const Entity* e;
        ~Leave() {
          Hub* h = e->hub();
          if (--h->depth == 0 && h->holes) h->compact();
        }
      } leave{this};
      const uint32_t n = hub()->size;
      for (uint32_t i = 0; i < n; ++i) {
        NotifieeBase* r = hub()->list()[i];
        if (r == nullptr) continue;
        if (isParentLink(r)) {
          parentOf(reinterpret_cast<uintptr_t>(r))->notifyNested(*this);
        } else if (isActive(r)) {
          call(static_cast<N*>(r));
        }
      }
    }
  }

  // Sets a scalar attribute; notifies only on a real change.
  template <class N, class T, class V>
  void attributeIs(T& field, V&& value, void (N::*handler)()) {
    if (field == value) return;
    field = std::forward<V>(value);
    notify<N>([handler](N* n) { (n->*handler)(); });
  }
  // Notifies a change of the element `key` of a collection. The key is
  // copied: a handler may free the element it came from.
  template <class N, class K>
  void notifyKey(void (N::*handler)(const K&), const K& key) const {
    if (reactors_ == 0) return;
    const K copy = key;
    notify<N>([handler, &copy](N* n) { (n->*handler)(copy); });
  }

 private:
  friend class NotifieeBase;
  // The reactors of an entity with more than one, in one allocation. The
  // header is one word: a route watched by route computation and the via
  // tracker has a hub on each of its entities.
  struct Hub {
    uint32_t size;
    uint8_t capacityLog2;  // capacities are powers of two
    bool holes;
    uint16_t depth;  // nested dispatches of this entity
    uint32_t capacity() const { return 1u << capacityLog2; }
    NotifieeBase** list() { return reinterpret_cast<NotifieeBase**>(this + 1); }
    static Hub* make(uint32_t capacity);
    static void release(Hub* hub);
    static size_t bytes(uint32_t capacity) {
      return sizeof(Hub) + capacity * sizeof(NotifieeBase*);
    }
    void compact();
  };
  static bool isActive(const NotifieeBase* r);
  // A change below `child`, one of this entity's nested entities.
  void notifyNested(const Entity& child) const;
  // The parent link is kept like a reactor, tagged in bit 1.
  static bool isParentLink(const NotifieeBase* r) {
    return reinterpret_cast<uintptr_t>(r) & parentTag;
  }
  static const Entity* parentOf(uintptr_t link) {
    return reinterpret_cast<const Entity*>(link & ~parentTag);
  }
  void attach(NotifieeBase* r) const;
  void detach(NotifieeBase* r) const;
  Hub* hub() const { return reinterpret_cast<Hub*>(reactors_ & ~hubTag); }

 protected:
  // One 32-bit attribute of the derived entity may live here, in the gap
  // after the reference count that the derived class's own members cannot
  // fill: a via (a pointer and a metric) is then 32 bytes, not 40.
  uint32_t word_ = 0;

 private:
  // Most entities have one reactor or none: it is kept here directly, and a
  // list (a Hub, tagged in bit 0) is made only for a second one.
  static constexpr uintptr_t hubTag = 1;
  static constexpr uintptr_t parentTag = 2;
  mutable uintptr_t reactors_ = 0;
  static uint32_t passes_;  // ReadAheadPass objects alive
  static uint64_t dispatches_;
};

class NestedReactorGroup;

// Base of every reactor. Reactors are reference counted like entities.
class NotifieeBase : public PtrInterface {
 public:
  ~NotifieeBase() override;
  // Reactors have an arena of their own: passes over entities do not read them.
  static void* operator new(std::size_t size) {
    return Pool::allocate(size, Pool::Arena::reactors);
  }
  static void operator delete(void* p, std::size_t size) noexcept {
    Pool::deallocate(p, size, Pool::Arena::reactors);
  }

  bool hasNotificationActive() const { return active_; }
  // Switches this reactor and all its nested reactors on or off.
  void hasNotificationActiveIs(bool active);
  // Runs on a nested reactor just before its parent drops it because its
  // entity left the collection.
  virtual void handleDel() {}
  // handleDel, then the same for every nested reactor below: the entities
  // under a deleted one are gone too.
  void doHandleDel();
  // Something changed below `nested`, an entity filed under this reactor's
  // notifier and linked to it (Entity::nestedParentIs).
  virtual void handleNested(const Entity& /*nested*/) {}
  // A change of the entity is coming (Entity::readAheadReactors): start
  // loading, in steps, what the handler will read. Must change nothing.
  virtual void readAhead(int /*step*/) const {}

 protected:
  Entity* notifierBase() const { return notifier_.ptr(); }
  void notifierBaseIs(const Entity* e);

 private:
  friend class Entity;
  friend class NestedReactorGroup;
  NestedReactorGroup* group(uint16_t place) const;
  // These two share a word with the reference count.
  bool active_ = true;
  // The first group of nested reactors (groups are members of their owner),
  // by its place: its distance from this object in words; 0 for none.
  uint16_t firstGroup_ = 0;
  Ptr<Entity> notifier_;
};

inline bool Entity::isActive(const NotifieeBase* r) { return r->active_; }

// Typed reactor base for entity type E (E may watch a const entity too).
template <class E>
class NotifieeOf : public NotifieeBase {
 public:
  using Notifier = E;
  E* notifier() const { return static_cast<E*>(notifierBase()); }
  void notifierIs(const Ptr<const E>& e) { notifierBaseIs(e.ptr()); }
  void notifierIs(const E* e) { notifierBaseIs(e); }
};

// A collection of nested reactors, a member of its owner reactor, registers
// itself with it so that hasNotificationActiveIs and handleDel reach every
// nested reactor. A group is one word and has no virtual table: a route's
// reactors hold two groups, and a million routes would carry a pointer
// each. What a kind of group does is found by its kind, a small number the
// kind takes when its first group is made.
class NestedReactorGroup {
 public:
  NestedReactorGroup(const NestedReactorGroup&) = delete;
  NestedReactorGroup& operator=(const NestedReactorGroup&) = delete;

  bool ownerActive() const { return owner()->active_; }
  // What a kind of group does for its owner.
  struct Kind {
    void (*hasNotificationActiveIs)(NestedReactorGroup*, bool);
    void (*handleOwnerDel)(NestedReactorGroup*);
  };

 protected:
  // G, the derived group, offers hasNotificationActiveIs(bool) and
  // handleOwnerDel() (the owner's entity is deleted: delete every nested reactor).
  template <class G>
  static uint16_t kindOf() {
    static const uint16_t kind = kindIs({
        [](NestedReactorGroup* g, bool active) {
          static_cast<G*>(g)->hasNotificationActiveIs(active);
        },
        [](NestedReactorGroup* g) { static_cast<G*>(g)->handleOwnerDel(); },
    });
    return kind;
  }
  NestedReactorGroup(NotifieeBase* owner, uint16_t kind);
  ~NestedReactorGroup();
  // For groups that drop many reactors at once, reading their entities ahead.
  static const Entity* notifierOf(const NotifieeBase* r) { return r->notifier_.ptr(); }

 private:
  friend class NotifieeBase;
  static uint16_t kindIs(const Kind& kind);
  static const Kind& kind(uint16_t k);
  void ownerActiveIs(bool active) { kind(kind_).hasNotificationActiveIs(this, active); }
  void ownerDel() { kind(kind_).handleOwnerDel(this); }
  // A group lives inside its owner: places (distances in words) instead of
  // pointers keep the chain in the owner's spare bytes.
  NotifieeBase* owner() const {
    return reinterpret_cast<NotifieeBase*>(
        reinterpret_cast<char*>(const_cast<NestedReactorGroup*>(this)) -
        size_t(place_) * sizeof(void*));
  }
  NestedReactorGroup* next() const { return owner()->group(next_); }
  uint16_t place_;  // this group's place in its owner
  uint16_t next_;   // the owner's next group, by place; 0 for none
  uint16_t kind_;
};

}  // namespace Kel
