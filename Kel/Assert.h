// Programming faults end the process here: a broken invariant is never an
// exception to be caught. The report names the expression, the source module
// and the function so that a core file is not needed to find the fault.
#pragma once

namespace Kel {

[[noreturn]] void assertionFailed(const char* expr, const char* file, const char* function);

}  // namespace Kel

#define KEL_ASSERT(expr) \
  ((expr) ? static_cast<void>(0) : ::Kel::assertionFailed(#expr, __FILE__, __func__))
