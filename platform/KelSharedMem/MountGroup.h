// KelSharedMem::MountGroup: an agent's shared-memory mount requests (a
// Cairn::Mount each). The state database's contract
// (Cairn/detail/MountGroupBase.h) under another type name.
#pragma once

#include "Kel/Ptr.h"
#include "platform/Cairn/detail/MountGroupBase.h"
#include "platform/KelSharedMem/EntityManager.h"

namespace KelSharedMem {

class MountGroup final : public Cairn::detail::MountGroupBase {
 public:
  // A null entity manager is a Kel::NullArgumentError.
  explicit MountGroup(const Kel::Ptr<EntityManager>& em) : MountGroupBase(em) {}
  const char* typeName() const override { return "KelSharedMem::MountGroup"; }
};

Kel::Ptr<MountGroup> mountGroupFactory(const Kel::Ptr<EntityManager>& em);

}  // namespace KelSharedMem
