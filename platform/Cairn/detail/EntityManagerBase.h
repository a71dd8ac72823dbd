// The body of an entity manager, shared by the state database
// (Cairn::EntityManager) and the shared-memory table service
// (KelSharedMem::EntityManager), which differ in their type names only.
//
// An entity manager is the agent's view of a database: published entities
// by normalised path (Cell::path). Writers publish with entityIs and
// withdraw with entityDel; each change notifies onEntity(path) after it is
// made, and publishing the entity a path already holds notifies nobody.
// Readers take entities with getEntity; the typed form reads an entity of
// another type as missing, as a reader of a mistyped path would.
// Shared-memory mappings of a path (KelBrisk::Mount) are counted here, so
// that every mount made on one database sees the same counts.
// Costs: O(log n) per call in the number of paths, plus the normalising of
// the path given.
#pragma once

#include <cstdint>
#include <map>
#include <string_view>

#include "Kel/Entity.h"
#include "Kel/Ptr.h"
#include "Kel/String.h"

namespace Cairn::detail {

// Orders paths by their bytes; finds a Kel::String by a string_view.
struct PathLess {
  using is_transparent = void;
  static std::string_view view(const Kel::String& s) { return s.view(); }
  static std::string_view view(std::string_view s) { return s; }
  template <class A, class B>
  bool operator()(const A& a, const B& b) const {
    return view(a) < view(b);
  }
};

class EntityManagerBase : public Kel::Entity {
 public:
  using EntityMap = std::map<Kel::String, Kel::Ptr<Kel::Entity>, PathLess>;
  using MappingMap = std::map<Kel::String, uint32_t, PathLess>;

  class Notifiee : public Kel::NotifieeOf<EntityManagerBase> {
   public:
    virtual void onEntity(const Kel::String& /*path*/) {}
  };

  // Null when the path holds nothing.
  Kel::Ptr<Kel::Entity> getEntity(std::string_view path) const;
  // Null when the path holds nothing or an entity of another type.
  template <class T>
  Kel::Ptr<T> getEntity(std::string_view path) const {
    const Kel::Ptr<Kel::Entity> e = getEntity(path);
    return Kel::Ptr<T>(dynamic_cast<T*>(e.ptr()));
  }
  // Publishes `e` at `path`, replacing what was there; a null `e` is a
  // Kel::NullArgumentError naming the path.
  void entityIs(std::string_view path, const Kel::Ptr<Kel::Entity>& e);
  // Nothing when the path holds nothing.
  void entityDel(std::string_view path);
  uint32_t entityCount() const { return uint32_t(entity_.size()); }
  // The published entities by path, in path order.
  const EntityMap& entity() const { return entity_; }

  // Shared-memory mappings per path; mappingIs and mappingDel return the
  // count after the change (mappingDel of an unmapped path is a no-op giving 0).
  uint32_t mappingCount(std::string_view path) const;
  uint32_t mappingIs(const Kel::String& path);
  uint32_t mappingDel(const Kel::String& path);
  const MappingMap& mapping() const { return mapping_; }
  uint64_t mappingsMade() const { return mappingsMade_; }
  uint64_t mappingsReleased() const { return mappingsReleased_; }

 protected:
  EntityManagerBase() = default;

 private:
  EntityMap entity_;
  MappingMap mapping_;
  uint64_t mappingsMade_ = 0;
  uint64_t mappingsReleased_ = 0;
};

}  // namespace Cairn::detail
