#include "platform/Cairn/detail/EntityManagerBase.h"

#include <string>

#include "Kel/Error.h"
#include "platform/Cell/Path.h"

namespace Cairn::detail {

Kel::Ptr<Kel::Entity> EntityManagerBase::getEntity(std::string_view path) const {
  const auto it = entity_.find(Cell::path(path));
  return it == entity_.end() ? nullptr : it->second;
}

void EntityManagerBase::entityIs(std::string_view path, const Kel::Ptr<Kel::Entity>& e) {
  const Kel::String p = Cell::path(path);
  if (!e) throw Kel::NullArgumentError("entityIs: null entity for '" + std::string(p.view()) + "'");
  Kel::Ptr<Kel::Entity>& slot = entity_[p];
  if (slot == e) return;
  // The replaced entity goes after the notification: a reader may still hold it.
  Kel::Ptr<Kel::Entity> old = std::exchange(slot, e);
  notifyKey(&Notifiee::onEntity, p);
}

void EntityManagerBase::entityDel(std::string_view path) {
  const auto it = entity_.find(Cell::path(path));
  if (it == entity_.end()) return;
  const Kel::String p = it->first;
  Kel::Ptr<Kel::Entity> old = std::move(it->second);
  entity_.erase(it);
  notifyKey(&Notifiee::onEntity, p);
}

uint32_t EntityManagerBase::mappingCount(std::string_view path) const {
  const auto it = mapping_.find(Cell::path(path));
  return it == mapping_.end() ? 0 : it->second;
}

uint32_t EntityManagerBase::mappingIs(const Kel::String& path) {
  ++mappingsMade_;
  return ++mapping_[path];
}

uint32_t EntityManagerBase::mappingDel(const Kel::String& path) {
  const auto it = mapping_.find(path);
  if (it == mapping_.end()) return 0;
  ++mappingsReleased_;
  if (--it->second != 0) return it->second;
  mapping_.erase(it);
  return 0;
}

}  // namespace Cairn::detail
