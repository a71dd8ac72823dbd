// Fuzz targets: one check function per parser of outside text.
//
// A check takes any bytes and parses them as its parser would. It returns
// quietly when the text parses and round-trips, or when it is refused with a
// Kel exception (or a refused agent line) that leaves the state it was given
// as it was. Anything else is a fault: the check throws FuzzFault, and any
// other exception or sanitizer report escapes as it is. libFuzzer runs a
// check per target (FuzzMain.cpp); the corpus replay test runs every file of
// fuzz/corpus/<target>/ through the same check under the normal build.
// One thread; checks may use process-wide state (toggles, trace levels) but
// leave it as they found it.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace IpRibFuzz {

// A check that found the code wrong.
class FuzzFault : public std::logic_error {
 public:
  using std::logic_error::logic_error;
};

struct FuzzTarget {
  std::string_view name;  // also the corpus folder's name
  void (*check)(std::string_view input);
};

// Every target, by area.
const std::vector<FuzzTarget>& valueTargets();
const std::vector<FuzzTarget>& textTargets();
const std::vector<FuzzTarget>& agentTargets();
const std::vector<FuzzTarget>& fuzzTargets();
// Null when no target has that name.
const FuzzTarget* fuzzTarget(std::string_view name);

}  // namespace IpRibFuzz
