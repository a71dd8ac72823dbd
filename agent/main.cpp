// iprib: the reference agent. It plays the routing protocol, the RIB, the
// BFD agent and the platform around the library in one process, driven by
// a small command language, and shows what the library decides.
#include <cstring>
#include <iostream>
#include <string>
#include <vector>

#include "agent/Demo.h"
#include "agent/Modes.h"

namespace {

constexpr const char* usageText =
    "usage: iprib COMMAND [ARGS]\n"
    "\n"
    "commands:\n"
    "  run FILE...   run scripts in virtual time (the same script prints the same output)\n"
    "  shell         read commands at a prompt, in real time\n"
    "  demo          run the embedded demo scenario\n"
    "\n"
    "iprib COMMAND --help tells more about each; `help` in a script or at the prompt\n"
    "lists the command language.\n";

constexpr const char* runHelp =
    "usage: iprib run FILE...\n"
    "\n"
    "Runs the scripts one after the other in one agent, in virtual time: time\n"
    "starts at 1000 s and moves only on `time +SECONDS`, so a script's output is\n"
    "the same on every run. One command a line; `#` starts a comment. The first\n"
    "refused line is reported as FILE:LINE: at 'WORD': expected ... and ends\n"
    "the run with status 1.\n";

constexpr const char* shellHelp =
    "usage: iprib shell\n"
    "\n"
    "Reads commands at a prompt, with line editing and history, in real time\n"
    "(from standard input, line by line, when it is not a terminal). A refused\n"
    "line is reported and the shell goes on. `help` lists the commands.\n";

constexpr const char* demoHelp =
    "usage: iprib demo\n"
    "\n"
    "Runs an embedded scenario and prints each step's commands and what the\n"
    "library made of them: VRFs, ECMP static routes with metrics, a labelled\n"
    "via pushing out unlabelled ones, a BFD session going down and up, a via\n"
    "metric change, a route leaked from two VRFs with the lower VRF id winning,\n"
    "a VRF becoming ready input by input, and a graceful restart answering a\n"
    "RIB sequence trigger.\n";

bool wantsHelp(int argc, char** argv) {
  for (int i = 2; i < argc; ++i) {
    if (std::strcmp(argv[i], "--help") == 0 || std::strcmp(argv[i], "-h") == 0) return true;
  }
  return false;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::cerr << usageText;
    return 2;
  }
  const std::string command = argv[1];
  if (command == "--help" || command == "-h" || command == "help") {
    std::cout << usageText;
    return 0;
  }
  const bool help = wantsHelp(argc, argv);
  if (command == "run") {
    if (help || argc < 3) {
      (help ? std::cout : std::cerr) << runHelp;
      return help ? 0 : 2;
    }
    return IpRibAgent::runScripts(std::vector<std::string>(argv + 2, argv + argc));
  }
  if (command == "shell" || command == "demo") {
    if (help) {
      std::cout << (command == "shell" ? shellHelp : demoHelp);
      return 0;
    }
    if (argc > 2) {
      std::cerr << "iprib: " << command << " takes no arguments\n";
      return 2;
    }
    return command == "shell" ? IpRibAgent::runShell() : IpRibAgent::runDemo(std::cout);
  }
  std::cerr << "iprib: unknown command '" << command << "'\n\n" << usageText;
  return 2;
}
