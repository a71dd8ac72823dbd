// The trace facility of RootSm, shared by its source files. Readiness
// decisions go both ways (text and ring) with the same pieces, each value a
// "%s" piece in the ring's format.
#pragma once

#include "Kel/Duallog.h"
#include "Kel/Trace.h"

namespace Routing::Protocol {

Kel::TraceFacility& rootSmTrace();

}  // namespace Routing::Protocol

#define ROOT_TRACE(level, text) KEL_TRACE(::Routing::Protocol::rootSmTrace(), level, text)
#define ROOT_DUALLOG(level, text, format, ...) \
  KEL_DUALLOG(::Routing::Protocol::rootSmTrace(), level, text, format __VA_OPT__(, ) __VA_ARGS__)
