// The platform's entity types by framework type name (the string an
// entity's typeName() returns), for the services that must bring a table
// into being from its name alone: a state-database mount of an empty path,
// the first shared-memory mapper of a table.
//
// One explicit table (EntityTypes.cpp); a look-up is a walk of a dozen names.
// Decided here: the made entity is the type's empty one, with no capacity
// limit; a name-to-id wrapper is made holding an empty name-to-id map, so
// that a writer can fill it at once. An unknown name is a Kel::RangeError
// naming it.
#pragma once

#include <string_view>

#include "Kel/Entity.h"
#include "Kel/Ptr.h"

namespace Cairn {

Kel::Ptr<Kel::Entity> makeEntity(std::string_view typeName);
// Raises makeEntity's error for an unknown name; nothing otherwise.
void entityTypeCheck(std::string_view typeName);

}  // namespace Cairn
