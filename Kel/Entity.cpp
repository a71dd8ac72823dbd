#include "Kel/Entity.h"

#include "Kel/Assert.h"

#include <algorithm>

namespace Kel {

void Entity::Hub::compact() {
  list.erase(std::remove(list.begin(), list.end(), nullptr), list.end());
  holes = false;
}

// Reactors hold their entity by Ptr, so none is bound any more here.
Entity::~Entity() {
  if (reactors_ & hubTag) delete hub();
}

size_t Entity::notifieeCount() const {
  if ((reactors_ & hubTag) == 0) return reactors_ != 0 ? 1 : 0;
  const auto& list = hub()->list;
  return size_t(
      std::count_if(list.begin(), list.end(), [](NotifieeBase* r) { return r != nullptr; }));
}

void Entity::attach(NotifieeBase* r) const {
  if (reactors_ == 0) {
    reactors_ = reinterpret_cast<uintptr_t>(r);
    return;
  }
  if ((reactors_ & hubTag) == 0) {
    Hub* hub = new Hub;
    hub->list.push_back(reinterpret_cast<NotifieeBase*>(reactors_));
    reactors_ = reinterpret_cast<uintptr_t>(hub) | hubTag;
  }
  hub()->list.push_back(r);
}

void Entity::detach(NotifieeBase* r) const {
  if ((reactors_ & hubTag) == 0) {
    if (reactors_ == reinterpret_cast<uintptr_t>(r)) reactors_ = 0;
    return;
  }
  Hub* hub = this->hub();
  auto& list = hub->list;
  auto it = std::find(list.begin(), list.end(), r);
  if (it == list.end()) return;
  if (hub->depth > 0) {
    *it = nullptr;  // compacted when the outermost dispatch ends
    hub->holes = true;
  } else {
    list.erase(it);
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
