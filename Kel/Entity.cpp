#include "Kel/Entity.h"

#include "Kel/Assert.h"

#include <algorithm>

namespace Kel {

Entity::Hub* Entity::Hub::make(uint32_t capacity) {
  static_assert(sizeof(Hub) % alignof(NotifieeBase*) == 0);
  Hub* hub = static_cast<Hub*>(::operator new(sizeof(Hub) + capacity * sizeof(NotifieeBase*)));
  hub->size = 0;
  hub->capacity = capacity;
  hub->depth = 0;
  hub->holes = false;
  return hub;
}

void Entity::Hub::compact() {
  NotifieeBase** l = list();
  size = uint32_t(std::remove(l, l + size, nullptr) - l);
  holes = false;
}

// Reactors hold their entity by Ptr, so none is bound any more here.
Entity::~Entity() {
  if (reactors_ & hubTag) ::operator delete(hub());
}

size_t Entity::notifieeCount() const {
  if ((reactors_ & hubTag) == 0) return reactors_ != 0 ? 1 : 0;
  NotifieeBase** l = hub()->list();
  return size_t(std::count_if(l, l + hub()->size, [](NotifieeBase* r) { return r != nullptr; }));
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
  if (hub->size == hub->capacity) {
    Hub* bigger = Hub::make(hub->capacity * 2);
    std::copy(hub->list(), hub->list() + hub->size, bigger->list());
    bigger->size = hub->size;
    bigger->depth = hub->depth;
    bigger->holes = hub->holes;
    ::operator delete(hub);
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

NotifieeBase::~NotifieeBase() {
  if (notifier_) notifier_->detach(this);
  for (NestedReactorGroup* g = groups_; g != nullptr; g = g->next_) g->owner_ = nullptr;
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
  for (NestedReactorGroup* g = groups_; g != nullptr; g = g->next_) g->handleOwnerDel();
}

void NotifieeBase::hasNotificationActiveIs(bool active) {
  if (active_ == active) return;
  active_ = active;
  for (NestedReactorGroup* g = groups_; g != nullptr; g = g->next_) {
    g->hasNotificationActiveIs(active);
  }
}

NestedReactorGroup::NestedReactorGroup(NotifieeBase* owner) : owner_(owner), next_(owner->groups_) {
  owner->groups_ = this;
}

NestedReactorGroup::~NestedReactorGroup() {
  if (owner_ == nullptr) return;
  NestedReactorGroup** p = &owner_->groups_;
  while (*p != this) p = &(*p)->next_;
  *p = next_;
}

}  // namespace Kel
