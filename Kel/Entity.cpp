#include "Kel/Entity.h"

#include "Kel/Assert.h"
#include "Kel/Prefetch.h"

#include <algorithm>
#include <bit>

namespace Kel {

Entity::Hub* Entity::Hub::make(uint32_t capacity) {
  static_assert(sizeof(Hub) == sizeof(NotifieeBase*));
  KEL_ASSERT(std::has_single_bit(capacity));
  Hub* hub = static_cast<Hub*>(Pool::allocate(bytes(capacity)));
  hub->size = 0;
  hub->capacityLog2 = uint8_t(std::countr_zero(capacity));
  hub->depth = 0;
  hub->holes = false;
  return hub;
}

uint32_t Entity::passes_ = 0;
uint64_t Entity::dispatches_ = 0;

void Entity::Hub::release(Hub* hub) { Pool::deallocate(hub, bytes(hub->capacity())); }

void Entity::Hub::compact() {
  NotifieeBase** l = list();
  size = uint32_t(std::remove(l, l + size, nullptr) - l);
  holes = false;
}

// Reactors hold their entity by Ptr, so none is bound any more here.
Entity::~Entity() {
  if (reactors_ & hubTag) Hub::release(hub());
}

size_t Entity::notifieeCount() const {
  if ((reactors_ & hubTag) == 0) return reactors_ != 0 && (reactors_ & parentTag) == 0 ? 1 : 0;
  NotifieeBase** l = hub()->list();
  return size_t(std::count_if(l, l + hub()->size,
                              [](NotifieeBase* r) { return r != nullptr && !isParentLink(r); }));
}

void Entity::notifyNested(const Entity& child) const {
  notify<NotifieeBase>([&child](NotifieeBase* n) { n->handleNested(child); });
}

const Entity* Entity::nestedParent() const {
  if ((reactors_ & hubTag) == 0) return reactors_ & parentTag ? parentOf(reactors_) : nullptr;
  NotifieeBase** l = hub()->list();
  NotifieeBase** it =
      std::find_if(l, l + hub()->size, [](NotifieeBase* r) { return isParentLink(r); });
  return it == l + hub()->size ? nullptr : parentOf(reinterpret_cast<uintptr_t>(*it));
}

void Entity::nestedParentIs(const Entity* parent) {
  const Entity* present = nestedParent();
  if (present == parent) return;
  if (present)
    detach(reinterpret_cast<NotifieeBase*>(reinterpret_cast<uintptr_t>(present) | parentTag));
  if (parent)
    attach(reinterpret_cast<NotifieeBase*>(reinterpret_cast<uintptr_t>(parent) | parentTag));
}

void Entity::readAheadReactors(int step) const {
  if (reactors_ == 0) return;
  if ((reactors_ & hubTag) == 0) {
    const NotifieeBase* r = reinterpret_cast<NotifieeBase*>(reactors_);
    if (isParentLink(r)) return;
    if (step == 0) {
      prefetchLine(r);
    } else if (step >= reactorListSteps && isActive(r)) {
      r->readAhead(step - reactorListSteps);
    }
    return;
  }
  Hub* h = hub();
  if (step == 0) {
    prefetchLine(h);
    return;
  }
  for (uint32_t i = 0; i < h->size; ++i) {
    const NotifieeBase* r = h->list()[i];
    if (r == nullptr || isParentLink(r)) continue;
    if (step == 1) {
      prefetchLine(r);
    } else if (isActive(r)) {
      r->readAhead(step - reactorListSteps);
    }
  }
}

void Entity::attach(NotifieeBase* r) const {
  if (reactors_ == 0) {
    reactors_ = reinterpret_cast<uintptr_t>(r);
    return;
  }
  if ((reactors_ & hubTag) == 0) {
    Hub* hub = Hub::make(2);
    hub->list()[hub->size++] = reinterpret_cast<NotifieeBase*>(reactors_);
    reactors_ = reinterpret_cast<uintptr_t>(hub) | hubTag;
  }
  Hub* hub = this->hub();
  if (hub->size == hub->capacity()) {
    Hub* bigger = Hub::make(hub->capacity() * 2);
    std::copy(hub->list(), hub->list() + hub->size, bigger->list());
    bigger->size = hub->size;
    bigger->depth = hub->depth;
    bigger->holes = hub->holes;
    Hub::release(hub);
    hub = bigger;
    reactors_ = reinterpret_cast<uintptr_t>(hub) | hubTag;
  }
  hub->list()[hub->size++] = r;
}

void Entity::detach(NotifieeBase* r) const {
  if ((reactors_ & hubTag) == 0) {
    if (reactors_ == reinterpret_cast<uintptr_t>(r)) reactors_ = 0;
    return;
  }
  Hub* hub = this->hub();
  NotifieeBase** l = hub->list();
  NotifieeBase** it = std::find(l, l + hub->size, r);
  if (it == l + hub->size) return;
  if (hub->depth > 0) {
    *it = nullptr;  // compacted when the outermost dispatch ends
    hub->holes = true;
  } else {
    std::copy(it + 1, l + hub->size, it);
    --hub->size;
  }
}

// Nested groups are members of the derived reactor: gone before this runs.
NotifieeBase::~NotifieeBase() {
  if (notifier_) notifier_->detach(this);
}

NestedReactorGroup* NotifieeBase::group(uint16_t place) const {
  if (place == 0) return nullptr;
  return reinterpret_cast<NestedReactorGroup*>(
      reinterpret_cast<char*>(const_cast<NotifieeBase*>(this)) + size_t(place) * sizeof(void*));
}

void NotifieeBase::notifierBaseIs(const Entity* e) {
  if (notifier_.ptr() == e) return;
  // A reactor's Ptr would free an entity that nobody counted (one on the stack).
  KEL_ASSERT(e == nullptr || e->references() > 0);
  if (notifier_) notifier_->detach(this);
  notifier_ = const_cast<Entity*>(e);
  if (notifier_) notifier_->attach(this);
}

void NotifieeBase::doHandleDel() {
  handleDel();
  for (NestedReactorGroup* g = group(firstGroup_); g != nullptr; g = g->next()) {
    g->ownerDel();
  }
}

void NotifieeBase::hasNotificationActiveIs(bool active) {
  if (active_ == active) return;
  active_ = active;
  for (NestedReactorGroup* g = group(firstGroup_); g != nullptr; g = g->next()) {
    g->ownerActiveIs(active);
  }
}

NestedReactorGroup::NestedReactorGroup(NotifieeBase* owner, uint16_t kind)
    : next_(owner->firstGroup_), kind_(kind) {
  const size_t distance = size_t(reinterpret_cast<char*>(this) - reinterpret_cast<char*>(owner));
  const size_t place = distance / sizeof(void*);
  KEL_ASSERT(reinterpret_cast<char*>(this) > reinterpret_cast<char*>(owner) &&
             distance % sizeof(void*) == 0 && place <= UINT16_MAX);
  place_ = uint16_t(place);
  owner->firstGroup_ = place_;
}

NestedReactorGroup::~NestedReactorGroup() {
  NotifieeBase* o = owner();
  uint16_t* p = &o->firstGroup_;
  while (*p != place_) p = &o->group(*p)->next_;
  *p = next_;
}

namespace {
// By kind: one per group template instance, and never freed. A fixed table,
// so that the first group of a kind allocates nothing.
constexpr uint16_t maxGroupKinds = 1024;
NestedReactorGroup::Kind groupKinds[maxGroupKinds];
uint16_t groupKindCount = 0;
}  // namespace

uint16_t NestedReactorGroup::kindIs(const Kind& kind) {
  KEL_ASSERT(groupKindCount < maxGroupKinds);
  groupKinds[groupKindCount] = kind;
  return groupKindCount++;
}

const NestedReactorGroup::Kind& NestedReactorGroup::kind(uint16_t k) { return groupKinds[k]; }

static_assert(sizeof(NotifieeBase) == 3 * sizeof(void*), "a reactor's base is three words");
static_assert(sizeof(NestedReactorGroup) <= sizeof(void*), "a group is one word");

}  // namespace Kel
