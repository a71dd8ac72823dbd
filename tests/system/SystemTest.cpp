// The whole system, run through the agent's command language, against its
// model at every quiet moment (see SystemRun and SystemCheck).
//
//   Seeds 1 to 4 by default, 1,500 events each; a seed's low bits choose
//   its run: bit 0 "IP_INTF_CHECK_NOT_NEEDED" set, bit 1 graceful restart.
//
// A failing seed is printed and its script written out, every line up to
// the one after which the system and the model differ: `iprib run FILE`
// replays it. SYSTEM_SEED=<n> starts at seed n, SYSTEM_SEEDS=<k> runs k
// seeds, SYSTEM_EVENTS=<n> runs n events a seed.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <optional>

#include "tests/system/SystemCheck.h"

namespace Routing::Protocol::Test {
namespace {

std::optional<uint64_t> envNumber(const char* name) {
  const char* text = std::getenv(name);
  if (text == nullptr || *text == '\0') return std::nullopt;
  return std::strtoull(text, nullptr, 10);
}

// The script of a failing run, beside the test's working directory.
std::string writeScript(const SystemRun& run, uint64_t seed, const std::string& difference) {
  const std::string path = "system-seed-" + std::to_string(seed) + ".iprib";
  std::ofstream out(path);
  out << "# system test, seed " << seed << ": after the last line, " << difference << "\n"
      << run.script() << "show ready\nshow rib\n";
  return path;
}

TEST(SystemTest, EveryQuietMomentMatchesTheModel) {
  const uint64_t first = envNumber("SYSTEM_SEED").value_or(1);
  const uint64_t seeds = envNumber("SYSTEM_SEEDS").value_or(envNumber("SYSTEM_SEED") ? 1 : 4);
  const uint64_t events = envNumber("SYSTEM_EVENTS").value_or(1500);
  uint64_t checked = 0;
  for (uint64_t seed = first; seed < first + seeds; ++seed) {
    SystemRun run(SystemConfig{seed, 6, 10, true});
    SystemCheck check;
    run.begin();
    std::string difference = check.afterStep(run);
    while (difference.empty() && run.events() < events) {
      run.step();
      difference = check.afterStep(run);
      ++checked;
    }
    if (!difference.empty()) {
      const std::string path = writeScript(run, seed, difference);
      FAIL() << "seed " << seed << " (SYSTEM_SEED=" << seed << "), after event " << run.events()
             << ": " << difference << "\nreplay: iprib run " << path;
    }
  }
  if (envNumber("SYSTEM_EVENTS")) std::cout << checked << " events checked\n";
}

}  // namespace
}  // namespace Routing::Protocol::Test
