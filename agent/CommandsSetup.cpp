// Set-up, time and life: protocol, graceful-restart, env, toggle, start,
// settle, time, echo, help.
#include <cstdlib>
#include <ostream>

#include "agent/Interpreter.h"
#include "platform/Flipset/Flipset.h"
#include "platform/Routing/ViaConfigLib.h"

namespace IpRibAgent {

namespace {

// Set-up that the library reads when it starts.
void beforeStart(Line& line, Interpreter& in) {
  if (in.worldMade() && in.world().started()) line.refuseLast("a command allowed after start");
}

void protocolCommand(Line& line, Interpreter& in) {
  if (in.worldMade()) {
    line.refuseLast("the protocol to be chosen before any VRF, route or start");
  }
  Rib::RoutingProtocol rp = 0;
  const std::string w(line.peek());
  if (line.accept("static")) {
    rp = 2;
  } else if (line.accept("route-input")) {
    rp = 4;
  } else {
    rp = Rib::RoutingProtocol(line.number("static, route-input or a protocol number",
                                          Rib::routingProtocolEnumInfo().enumerators().size() - 1));
  }
  line.end();
  in.setup().protocol = rp;
}

void gracefulRestartCommand(Line& line, Interpreter& in) {
  beforeStart(line, in);
  const bool on = line.onOff();
  line.end();
  in.setup().gracefulRestart = on;
  if (in.worldMade()) in.world().gracefulRestartIs(on);
}

void envCommand(Line& line, Interpreter& in) {
  beforeStart(line, in);
  line.keyword({"IP_INTF_CHECK_NOT_NEEDED"});
  line.end();
  in.setup().ipIntfCheckNotNeeded = true;
  if (in.worldMade()) in.world().ipIntfCheckNotNeededIs(true);
}

void toggleCommand(Line& line, Interpreter&) {
  const std::string name =
      line.word("a toggle name, such as StaticRouteMetric or PacedViaMetricSweep");
  const bool on = line.onOff();
  line.end();
  Flipset::toggleStateIs(name, on);
}

void startCommand(Line& line, Interpreter& in) {
  if (in.worldMade() && in.world().started()) line.refuseLast("start to be given once");
  line.end();
  in.world().start();
}

void restartCommand(Line& line, Interpreter& in) {
  if (!in.worldMade() || !in.world().started()) line.refuseLast("start first (nothing to restart)");
  line.end();
  in.world().restart();
  in.setup().gracefulRestart = true;
}

void settleCommand(Line& line, Interpreter& in) {
  line.end();
  in.settle();
}

void timeCommand(Line& line, Interpreter& in) {
  const double s = line.seconds();
  line.end();
  in.timePasses(s);
}

void echoCommand(Line& line, Interpreter& in) { in.out() << line.rest() << "\n"; }

void helpCommand(Line& line, Interpreter& in) {
  line.end();
  for (const auto& [name, c] : in.commands()) in.out() << "  " << c.usage << "\n";
}

}  // namespace

const std::vector<Command>& setupCommands() {
  static const std::vector<Command> commands = {
      {"protocol", "protocol static|route-input|N", protocolCommand},
      {"graceful-restart", "graceful-restart on|off", gracefulRestartCommand},
      {"env", "env IP_INTF_CHECK_NOT_NEEDED", envCommand},
      {"toggle", "toggle StaticRouteMetric|PacedViaMetricSweep|SingleRouteReactor on|off",
       toggleCommand},
      {"start", "start", startCommand},
      {"restart", "restart", restartCommand},
      {"settle", "settle", settleCommand},
      {"time", "time +SECONDS", timeCommand},
      {"echo", "echo TEXT", echoCommand},
      {"help", "help", helpCommand},
  };
  return commands;
}

}  // namespace IpRibAgent
