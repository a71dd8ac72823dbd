// Duallog: one decision written both ways, as text (formatted only when the
// facility's text level is on, Trace.h) and as a ring record (when its ring
// level is on, Ringlog.h). Each half costs what it costs alone.
//
//   KEL_DUALLOG(trace, 8, "add route " << prefix << " vias " << n,
//               "add route %s vias %s", prefix, n);
//
// The text half is one macro argument: a stream expression with a comma
// outside parentheses (a template argument list) must be hoisted into a local.
#pragma once

#include "Kel/Ringlog.h"
#include "Kel/Trace.h"

#define KEL_DUALLOG(facility, level, text, format, ...)              \
  do {                                                               \
    KEL_TRACE(facility, level, text);                                \
    KEL_RINGLOG(facility, level, format __VA_OPT__(, ) __VA_ARGS__); \
  } while (0)
