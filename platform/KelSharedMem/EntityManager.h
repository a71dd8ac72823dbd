// KelSharedMem::EntityManager: the agent's handle on the shared-memory
// tables that the RIB publishes (via metric status). The state database's
// contract (Cairn/detail/EntityManagerBase.h) under another type name.
#pragma once

#include "Kel/Ptr.h"
#include "platform/Cairn/detail/EntityManagerBase.h"

namespace KelSharedMem {

class EntityManager final : public Cairn::detail::EntityManagerBase {
 public:
  const char* typeName() const override { return "KelSharedMem::EntityManager"; }
};

Kel::Ptr<EntityManager> entityManagerFactory();

}  // namespace KelSharedMem
