#include "Kel/Assert.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace Kel {

namespace {
// "IpRib/ProtocolRootSm.cpp" -> "ProtocolRootSm": the module, not the build path.
void moduleName(const char* file, char* out, size_t size) {
  const char* base = std::strrchr(file, '/');
  base = base ? base + 1 : file;
  size_t n = std::strcspn(base, ".");
  if (n >= size) n = size - 1;
  std::memcpy(out, base, n);
  out[n] = '\0';
}
}  // namespace

void assertionFailed(const char* expr, const char* file, const char* function) {
  char module[128];
  moduleName(file, module, sizeof module);
  std::fprintf(stderr, "Assertion failed: \"%s\" in module %s, function %s\n", expr, module,
               function);
  std::fflush(stderr);
  std::abort();
}

}  // namespace Kel
