// Cell::path: the platform's path normaliser. Every path the state database
// and the shared-memory tables are asked about goes through it, so that
// "routing//rib/" and "routing/rib" name one table.
//
// Costs: one pass over the text and one string allocation.
// Decided here: doubled, leading and trailing "/" are dropped; what is left
// must have a component, else Kel::ParseError naming the path as given.
#pragma once

#include <string_view>

#include "Kel/String.h"

namespace Cell {

Kel::String path(std::string_view p);

}  // namespace Cell
