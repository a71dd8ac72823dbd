// The show commands: each reads its arguments, builds the JSON model
// (Shows.h) and prints it as JSON (trailing `json`) or as text (ShowText.h).
#include <ostream>

#include "Kel/Trace.h"
#include "agent/Interpreter.h"
#include "agent/ShowText.h"

namespace IpRibAgent {

namespace {

using Show::Json;

// Reads the trailing `json` and the end of the line.
bool jsonAndEnd(Line& line) {
  const bool json = line.accept("json");
  line.end();
  return json;
}

void print(Interpreter& in, bool json, const Json& model,
           void (*text)(std::ostream&, const Json&)) {
  if (json) {
    // Names are bytes; JSON is UTF-8: a byte that is not prints as U+FFFD.
    in.out() << model.dump(2, ' ', false, Json::error_handler_t::replace) << "\n";
  } else {
    text(in.out(), model);
  }
}

// show rib [VRF] [ipv4|ipv6] [PREFIX] [json]
void showRib(Line& line, Interpreter& in) {
  Show::RibFilter f;
  const auto isFamily = [&] { return line.peek() == "ipv4" || line.peek() == "ipv6"; };
  const auto isPrefix = [&] {
    return Pando::IpGenAddr::fromText(line.peek().substr(0, line.peek().find('/'))).has_value();
  };
  if (!line.atEnd() && line.peek() != "json" && !isFamily() && !isPrefix()) {
    f.vrf = declaredVrf(line, in);
  }
  if (isFamily()) f.af = line.family();
  if (!line.atEnd() && line.peek() != "json") f.prefix = line.prefix();
  const bool json = jsonAndEnd(line);
  print(in, json, Show::rib(in.world(), f), Show::printRib);
}

void showViaSets(Line& line, Interpreter& in) {
  const bool json = jsonAndEnd(line);
  print(in, json, Show::viaSets(in.world()), Show::printViaSets);
}

void showExplain(Line& line, Interpreter& in) {
  const L3::VrfName vrf = declaredVrf(line, in);
  const std::string prefixWord(line.peek());
  const Pando::IpGenPrefix prefix = line.prefix();
  const bool json = jsonAndEnd(line);
  const Json model = Show::explain(in.world(), vrf, prefix);
  if (model.is_null()) {
    throw CommandError(prefixWord, "a prefix of a family the VRF serves (VRF " +
                                       std::string(vrf.value()) + " has no container for it)");
  }
  print(in, json, model, Show::printExplain);
}

void showBfd(Line& line, Interpreter& in) {
  const bool json = jsonAndEnd(line);
  print(in, json, Show::bfd(in.world()), Show::printBfd);
}

void showIntf(Line& line, Interpreter& in) {
  const L3::VrfName vrf = declaredVrf(line, in);
  const bool json = jsonAndEnd(line);
  print(in, json, Show::intf(in.world(), vrf), Show::printIntf);
}

void showTrace(Line& line, Interpreter& in) {
  const std::string facility = line.word("a trace facility, such as IpRib::RouteStatusSm");
  if (Kel::TraceRegistry::instance().facility(facility) == nullptr) {
    line.refuseLast("a trace facility, such as IpRib::RouteStatusSm");
  }
  size_t n = 20;
  if (!line.atEnd() && line.peek() != "json") n = line.number("a number of records", 100000);
  const bool json = jsonAndEnd(line);
  print(in, json, Show::trace(facility, n), Show::printTrace);
}

// show ready [VRF] [json]
void showReady(Line& line, Interpreter& in) {
  std::optional<L3::VrfName> vrf;
  if (!line.atEnd() && line.peek() != "json") vrf = declaredVrf(line, in);
  const bool json = jsonAndEnd(line);
  print(in, json, Show::ready(in.world(), vrf), Show::printReady);
}

void showLeak(Line& line, Interpreter& in) {
  const L3::VrfName vrf = declaredVrf(line, in);
  const bool json = jsonAndEnd(line);
  print(in, json, Show::leak(in.world(), vrf), Show::printLeak);
}

void showDump(Line& line, Interpreter& in) {
  const bool json = jsonAndEnd(line);
  print(in, json, Show::dump(in.world()), Show::printDump);
}

void showStats(Line& line, Interpreter& in) {
  const bool json = jsonAndEnd(line);
  print(in, json, Show::stats(in.world(), {in.longestSlice(), in.turns()}), Show::printStats);
}

void show(Line& line, Interpreter& in) {
  static constexpr void (*shows[])(Line&, Interpreter&) = {
      showRib,   showViaSets, showExplain, showBfd,   showIntf,
      showReady, showLeak,    showDump,    showTrace, showStats};
  shows[line.keyword({"rib", "via-sets", "explain", "bfd", "intf", "ready", "leak", "dump", "trace",
                      "stats"})](line, in);
}

}  // namespace

const std::vector<Command>& showCommands() {
  static const std::vector<Command> commands = {
      {"show",
       "show rib [VRF] [ipv4|ipv6] [PREFIX] | via-sets | explain VRF PREFIX | bfd | intf VRF | "
       "ready [VRF] | leak VRF | dump | trace FACILITY [N] | stats  [json]",
       show},
  };
  return commands;
}

}  // namespace IpRibAgent
