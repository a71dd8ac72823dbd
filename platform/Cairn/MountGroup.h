// Cairn::MountGroup: an agent's state-database mount requests, done on a
// later turn of the event loop. See detail/MountGroupBase.h for the
// contract, costs and what is decided there.
#pragma once

#include "Kel/Ptr.h"
#include "platform/Cairn/EntityManager.h"
#include "platform/Cairn/detail/MountGroupBase.h"

namespace Cairn {

class MountGroup final : public detail::MountGroupBase {
 public:
  // A null entity manager is a Kel::NullArgumentError.
  explicit MountGroup(const Kel::Ptr<EntityManager>& em) : MountGroupBase(em) {}
  const char* typeName() const override { return "Cairn::MountGroup"; }
};

Kel::Ptr<MountGroup> mountGroupFactory(const Kel::Ptr<EntityManager>& em);

}  // namespace Cairn
