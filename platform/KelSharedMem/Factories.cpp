#include "platform/KelSharedMem/EntityManager.h"
#include "platform/KelSharedMem/MountGroup.h"

namespace KelSharedMem {

Kel::Ptr<EntityManager> entityManagerFactory() { return Kel::makePtr<EntityManager>(); }

Kel::Ptr<MountGroup> mountGroupFactory(const Kel::Ptr<EntityManager>& em) {
  return Kel::makePtr<MountGroup>(em);
}

}  // namespace KelSharedMem
