#include "platform/KelBrisk/Mount.h"

#include <string>

#include "Kel/Error.h"
#include "platform/Cairn/EntityTypes.h"
#include "platform/Cell/Path.h"
#include "platform/KelBrisk/Table.h"

namespace KelBrisk {

Mount::Mount(const Kel::Ptr<Cairn::EntityManager>& em, const Kel::String& path,
             const Kel::String& typeName, const MountInfo& info)
    : em_(em), path_(Cell::path(path.view())), typeName_(typeName), info_(info) {
  if (!em_) {
    throw Kel::NullArgumentError("KelBrisk::Mount: null entity manager for '" +
                                 std::string(path_.view()) + "'");
  }
}

Mount::~Mount() { doUnmount(); }

void Mount::doMount() {
  if (mounted_) return;
  Kel::Ptr<Kel::Entity> table = em_->getEntity(path_.view());
  const bool created = !table;
  if (created) {
    table = Cairn::makeEntity(typeName_.view());
  } else if (typeName_.view() != table->typeName()) {
    throw Kel::RangeError("KelBrisk::Mount: '" + std::string(path_.view()) + "' holds a " +
                          table->typeName() + ", not a " + std::string(typeName_.view()));
  }
  // Every collection is checked before any capacity changes.
  Table* t = dynamic_cast<Table*>(table.ptr());
  for (const MountInfo::CollectionInfo& c : info_.collectionInfo()) {
    if (t == nullptr || !t->collectionHas(c.name.view())) {
      throwNoCollection(table->typeName(), c.name.view());
    }
  }
  for (const MountInfo::CollectionInfo& c : info_.collectionInfo()) {
    t->collectionCapacityIs(c.name.view(), c.capacity);
  }
  if (created) em_->entityIs(path_.view(), table);
  em_->mappingIs(path_);
  table_ = std::move(table);
  mounted_ = true;
}

void Mount::cleanup() {
  if (Table* t = dynamic_cast<Table*>(table_.ptr())) t->cleanup();
}

void Mount::doUnmount() {
  if (!mounted_) return;
  mounted_ = false;
  const Kel::Ptr<Kel::Entity> table = std::move(table_);
  table_ = nullptr;
  // Another writer may have replaced the table at the path: that one stays.
  if (em_->mappingDel(path_) == 0 && info_.ownedTable() && em_->getEntity(path_.view()) == table) {
    em_->entityDel(path_.view());
  }
}

Kel::Ptr<Mount> mountFactory(const Kel::Ptr<Cairn::EntityManager>& em, const Kel::String& path,
                             const Kel::String& typeName, const MountInfo& info) {
  return Kel::makePtr<Mount>(em, path, typeName, info);
}

}  // namespace KelBrisk
