// The agent's command language: a refused line changes nothing. Before and
// after each line the check takes what every show reports (and the set-up
// the library is to start with); a line the interpreter refuses must leave
// all of it as it was. Accepted lines may do anything but crash.
//
// agent-line runs one line in a world that already has VRFs, interfaces,
// via metrics, routes and a started library; agent-script runs a whole
// script from a fresh agent, line by line, up to the first refused line.
#include <cstdlib>
#include <sstream>
#include <string>

#include "Kel/Strep.h"
#include "agent/Interpreter.h"
#include "agent/Shows.h"
#include "fuzz/FuzzTarget.h"
#include "platform/Flipset/Flipset.h"

namespace IpRibFuzz {

namespace {

using IpRibAgent::Interpreter;
namespace Show = IpRibAgent::Show;

std::string text(const Show::Json& model) {
  return model.dump(-1, ' ', false, Show::Json::error_handler_t::replace);
}

// Everything a line could change that a user can see.
std::string snapshot(Interpreter& in) {
  std::ostringstream os;
  const IpRibAgent::Setup& s = in.setup();
  os << "setup " << unsigned(s.protocol) << s.gracefulRestart << s.ipIntfCheckNotNeeded
     << " toggles " << Flipset::togglesVersion() << " world " << in.worldMade() << "\n";
  if (!in.worldMade()) return os.str();
  IpRibAgent::World& w = in.world();
  const Show::Json ready = Show::ready(w, std::nullopt);
  Show::Json stats = Show::stats(w, {0, in.turns()});
  stats.erase("memory");
  os << w.started() << w.setup().gracefulRestart << w.setup().ipIntfCheckNotNeeded << "\n"
     << text(ready) << "\n"
     << text(Show::rib(w, {})) << "\n"
     << text(Show::viaSets(w)) << "\n"
     << text(Show::bfd(w)) << "\n"
     << text(Show::dump(w)) << "\n"
     << text(stats) << "\n";
  for (const auto& vrf : ready["vrfs"]) {
    os << text(Show::intf(w, L3::VrfName(Kel::String(vrf["vrf"].get<std::string>())))) << "\n";
  }
  return os.str();
}

// Runs the lines of `text` up to the first refused one.
// Returns false when a line was refused.
bool runChecked(Interpreter& in, std::string_view text, std::string_view input) {
  unsigned n = 0;
  for (size_t at = 0; at <= text.size(); ++n) {
    const size_t nl = std::min(text.find('\n', at), text.size());
    const std::string_view line = text.substr(at, nl - at);
    at = nl + 1;
    const std::string before = snapshot(in);
    if (in.execute(line, "fuzz", n)) continue;
    if (snapshot(in) != before) {
      throw FuzzFault("refused line " + Kel::quoteStrep(line) + " changed the agent (input " +
                      Kel::quoteStrep(input) + ")");
    }
    return false;
  }
  return true;
}

// Toggles at their defaults, whatever the environment holds: a check
// leaves the process as it found it.
struct TogglesAtDefault {
  TogglesAtDefault() {
    setenv("IPRIB_TOGGLES", "", 1);
    Flipset::reloadToggles();
  }
  ~TogglesAtDefault() { Flipset::reloadToggles(); }
};

constexpr std::string_view preamble =
    "vrf red id 3\n"
    "vrf blue id 4\n"
    "vrf green id 5 bare\n"
    "interface red eth1 ipv4 routing on\n"
    "interface red eth2 ipv6 routing on\n"
    "via-metric red ipv4 192.0.2.1 metric 10\n"
    "via-metric red ipv4 192.0.2.2%eth1 metric 5\n"
    "via-metric red ipv6 2001:db8::1 metric 10\n"
    "via-metric blue ipv4 192.0.2.9 metric 1\n"
    "looping-route red 10.3.0.0/24 192.0.2.1\n"
    "bfd 192.0.2.9 up resolved eth1\n"
    "start\n"
    "route red 10.1.0.0/24 pref 1 via 192.0.2.1 metric 5 via 192.0.2.2%eth1 label 16\n"
    "route red 10.3.0.0/24 pref 1 via 192.0.2.1\n"
    "route red 2001:db8:1::/48 pref 2 tag 7 via 2001:db8::1\n"
    "route blue 10.2.0.0/24 pref 1 via 192.0.2.9 type intf bfd\n"
    "initialized red ipv4\n"
    "initialized red ipv6\n"
    "initialized blue ipv4\n"
    "settle";

void agentLine(std::string_view input) {
  TogglesAtDefault toggles;
  std::ostringstream out, err;
  Interpreter in(out, err, Interpreter::TimeMode::virtualTime);
  std::istringstream script{std::string(preamble)};
  if (!in.runScript(script, "preamble")) {
    throw FuzzFault("the agent-line preamble was refused: " + err.str());
  }
  // One line: its line breaks are blanks to the command parser.
  const std::string_view line = input.substr(0, std::min(input.find('\n'), input.size()));
  runChecked(in, line, input);
}

void agentScript(std::string_view input) {
  TogglesAtDefault toggles;
  std::ostringstream out, err;
  Interpreter in(out, err, Interpreter::TimeMode::virtualTime);
  runChecked(in, input, input);
}

}  // namespace

const std::vector<FuzzTarget>& agentTargets() {
  static const std::vector<FuzzTarget> targets = {
      {"agent-line", agentLine},
      {"agent-script", agentScript},
  };
  return targets;
}

}  // namespace IpRibFuzz
