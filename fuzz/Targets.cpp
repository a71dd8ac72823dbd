// The list of every fuzz target, for the fuzzers and the corpus replay.
#include "fuzz/FuzzTarget.h"

namespace IpRibFuzz {

const std::vector<FuzzTarget>& fuzzTargets() {
  static const std::vector<FuzzTarget> all = [] {
    std::vector<FuzzTarget> out;
    for (const auto* area : {&valueTargets(), &textTargets(), &agentTargets()}) {
      out.insert(out.end(), area->begin(), area->end());
    }
    return out;
  }();
  return all;
}

const FuzzTarget* fuzzTarget(std::string_view name) {
  for (const FuzzTarget& t : fuzzTargets()) {
    if (t.name == name) return &t;
  }
  return nullptr;
}

}  // namespace IpRibFuzz
