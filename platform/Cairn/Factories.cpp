#include "platform/Cairn/EntityManager.h"
#include "platform/Cairn/MountGroup.h"

namespace Cairn {

Kel::Ptr<EntityManager> entityManagerFactory() { return Kel::makePtr<EntityManager>(); }

Kel::Ptr<MountGroup> mountGroupFactory(const Kel::Ptr<EntityManager>& em) {
  return Kel::makePtr<MountGroup>(em);
}

}  // namespace Cairn
