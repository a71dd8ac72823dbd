// KelBrisk::Mount: one mapping of a shared-memory table at a path of an
// entity manager.
//
// doMount attaches to the table at the path, creating the type's empty table
// (Cairn::makeEntity) and publishing it when the path holds nothing, as the
// first mapper of a shared-memory region creates it; then applies every
// collection capacity of the mount info (KelBrisk::Table). Mappings of one
// path are counted in the entity manager: when the last mapping of a table
// of type 0 goes, the table leaves the entity manager; tables of types 2 and
// 3 belong to their writer and stay. The mount holds its table while mapped.
// Costs: O(log paths) per call, plus the capacities applied.
// Decided here: a path holding a table of another type is a Kel::RangeError
// naming path and both types; a capacity for a collection the table does
// not have (or for a table without collections) is a Kel::RangeError naming
// table and collection; both change nothing. doMount of a mapped mount does
// nothing. doUnmount twice, or cleanup and getEntity of an unmapped mount,
// are harmless (nothing, null). Dropping a mapped mount unmaps it.
#pragma once

#include <cstdint>

#include "Kel/Entity.h"
#include "Kel/Ptr.h"
#include "Kel/String.h"
#include "platform/Cairn/EntityManager.h"
#include "platform/KelBrisk/MountInfo.h"

namespace KelBrisk {

class Mount final : public Kel::PtrInterface {
 public:
  // The path is normalised (Cell::path).
  Mount(const Kel::Ptr<Cairn::EntityManager>& em, const Kel::String& path,
        const Kel::String& typeName, const MountInfo& info);
  ~Mount() override;

  void doMount();
  // Empties the table (its readers hear every element go).
  void cleanup();
  // Releases this mapping.
  void doUnmount();
  bool mounted() const { return mounted_; }

  // Null when not mapped.
  Kel::Ptr<Kel::Entity> getEntity() const { return table_; }
  // Null when not mapped or of another type.
  template <class T>
  Kel::Ptr<T> getEntity() const {
    return Kel::Ptr<T>(dynamic_cast<T*>(table_.ptr()));
  }

  const Kel::String& path() const { return path_; }
  const Kel::String& typeName() const { return typeName_; }
  const MountInfo& info() const { return info_; }

 private:
  Kel::Ptr<Cairn::EntityManager> em_;
  Kel::String path_;
  Kel::String typeName_;
  MountInfo info_;
  Kel::Ptr<Kel::Entity> table_;
  bool mounted_ = false;
};

Kel::Ptr<Mount> mountFactory(const Kel::Ptr<Cairn::EntityManager>& em, const Kel::String& path,
                             const Kel::String& typeName, const MountInfo& info);

}  // namespace KelBrisk
