// Cairn::EntityManager: the agent's handle on the state database, the
// entities published by path. See detail/EntityManagerBase.h for the
// contract and costs, shared with the shared-memory table service.
// Decided here: the database is in process; a test or the agent plays the
// writer through entityIs and entityDel.
#pragma once

#include "Kel/Ptr.h"
#include "platform/Cairn/detail/EntityManagerBase.h"

namespace Cairn {

class EntityManager final : public detail::EntityManagerBase {
 public:
  const char* typeName() const override { return "Cairn::EntityManager"; }
};

Kel::Ptr<EntityManager> entityManagerFactory();

}  // namespace Cairn
