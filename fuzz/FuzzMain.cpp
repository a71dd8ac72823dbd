// libFuzzer's entry point for one target, named at build time by
// IPRIB_FUZZ_TARGET (fuzz/CMakeLists.txt builds one program per target).
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "fuzz/FuzzTarget.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const IpRibFuzz::FuzzTarget* target = [] {
    const IpRibFuzz::FuzzTarget* t = IpRibFuzz::fuzzTarget(IPRIB_FUZZ_TARGET);
    if (t == nullptr) {
      std::fprintf(stderr, "no fuzz target named %s\n", IPRIB_FUZZ_TARGET);
      std::abort();
    }
    return t;
  }();
  target->check(std::string_view(reinterpret_cast<const char*>(data), size));
  return 0;
}
