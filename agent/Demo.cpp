#include "agent/Demo.h"

#include <initializer_list>
#include <iostream>
#include <string_view>

#include "agent/Interpreter.h"

namespace IpRibAgent {

namespace {

struct Step {
  const char* story;
  std::initializer_list<std::string_view> commands;
};

// clang-format off
const Step steps[] = {
    {"Three VRFs come up on the platform, with interfaces, and the RIB resolves\n"
     "their next hops. Then the mounts are complete and the library starts.",
     {"protocol static",
      "vrf red id 3",
      "vrf blue id 5",
      "vrf green id 7",
      "interface red eth1 ipv4 routing on",
      "interface red eth2 ipv4 routing on",
      "interface red eth3 ipv4 routing on",
      "interface blue eth4 ipv4 routing on",
      "via-metric red ipv4 192.0.2.1 metric 10",
      "via-metric red ipv4 192.0.2.2 metric 10",
      "via-metric red ipv4 192.0.2.3 metric 20",
      "via-metric blue ipv4 198.51.100.1 metric 10",
      "via-metric blue ipv4 198.51.100.2 metric 10",
      "via-metric green ipv4 203.0.113.1 metric 10",
      "start"}},
    {"ECMP static routes with metrics: of three next hops, the two of the lowest\n"
     "protocol metric (5) are installed, the one of metric 10 is left out.",
     {"route red 10.1.0.0/24 pref 1 via 192.0.2.1%eth1 metric 5 via 192.0.2.2%eth2 metric 5 "
      "via 192.0.2.3%eth3 metric 10",
      "route green 172.16.0.0/16 pref 1 tag 7 via 203.0.113.1",
      "initialized red ipv4",
      "initialized green ipv4",
      "settle",
      "show rib"}},
    {"A labelled via pushes out the unlabelled ones of its preference.",
     {"route red 10.2.0.0/24 pref 1 via 192.0.2.1%eth1 via 192.0.2.2%eth2 label 16002",
      "show explain red 10.2.0.0/24"}},
    {"A BFD-tracked via is installed only while its session is up. The session\n"
     "to 198.51.100.1 is not up yet, so only the other via is installed.",
     {"route blue 10.3.0.0/24 pref 1 via 198.51.100.1%eth4 metric 1 bfd "
      "via 198.51.100.2%eth4 metric 1",
      "initialized blue ipv4",
      "show rib blue",
      "show bfd"}},
    {"The session comes up: the tracked via joins the route.",
     {"bfd 198.51.100.1 up resolved eth4",
      "show rib blue",
      "show bfd"}},
    {"The session goes down again: the via leaves.",
     {"bfd 198.51.100.1 down",
      "show explain blue 10.3.0.0/24"}},
    {"The RIB withdraws the metric of 192.0.2.2: the via is unresolved, and the\n"
     "routes that use it are evaluated again.",
     {"no via-metric red ipv4 192.0.2.2",
      "show rib red",
      "show explain red 10.1.0.0/24"}},
    {"The metric comes back: so does the via.",
     {"via-metric red ipv4 192.0.2.2 metric 30",
      "show rib red 10.1.0.0/24",
      "show via-sets"}},
    {"Route leaking: red and blue both leak 10.9.0.0/24 into green, and red\n"
     "leaks 10.2.0.0/24 there too. Where two VRFs leak one prefix, the lower\n"
     "source VRF id wins: red (id 3) over blue (id 5).",
     {"route blue 10.9.0.0/24 pref 1 via 198.51.100.2%eth4",
      "route red 10.9.0.0/24 pref 1 via 192.0.2.1%eth1 metric 5",
      "leak blue 10.9.0.0/24 to green",
      "leak red 10.9.0.0/24 to green",
      "leak red 10.2.0.0/24 to green",
      "settle",
      "show leak green"}},
    {"red stops leaking 10.9.0.0/24: blue's route takes its place.",
     {"no leak red 10.9.0.0/24",
      "show leak green"}},
    {"A VRF is ready for a family only once all its inputs are there: yellow\n"
     "is declared bare, and gets them one by one.",
     {"vrf yellow id 9 bare",
      "show ready yellow",
      "vrf-input yellow metric ipv4 on",
      "vrf-input yellow looping ipv4 on",
      "interface yellow eth9 ipv4 routing on",
      "show ready yellow"}},
    {"The agent restarts gracefully. The RIB keeps the routes while the library\n"
     "starts again and the protocol replays; the RIB asks for a review of red\n"
     "(sequence 1), answered once the protocol says it is initialized and both\n"
     "of red's reviews are complete. The leaks are configuration of the\n"
     "protocol's routes: they come back with them.",
     {"restart",
      "show rib red",
      "rib-seq red 1",
      "settle",
      "show ready red",
      "initialized red ipv4",
      "initialized red ipv6",
      "settle",
      "show ready red",
      "show rib red",
      "show leak green"}},
};
// clang-format on

// Plays the steps in one agent; false at a refused command.
bool runStory(std::ostream& out) {
  Interpreter in(out, std::cerr, Interpreter::TimeMode::virtualTime);
  out << "iprib demo: the protocol layer of a RIB agent, driven step by step\n";
  unsigned n = 0;
  for (const Step& step : steps) {
    out << "\n== " << step.story << "\n";
    for (std::string_view command : step.commands) {
      out << "> " << command << "\n";
      if (!in.execute(command, "demo", ++n)) return false;
    }
  }
  return true;
}

}  // namespace

int runDemo(std::ostream& out) { return runStory(out) ? 0 : 1; }

}  // namespace IpRibAgent
