// A random event stream for the whole system, written as agent command
// lines and run through the agent's interpreter (in virtual time), with the
// model of what the lines do to the library's inputs kept beside it.
//
//   VRFs "default" (id 0, never removed) and "v1".."vN", declared in full or
//   bare, renumbered and removed; their inputs (via metric tables, looping
//   status, interface status; unicast and multicast) switched one by one;
//   interfaces; next-hop metrics (also looping) and BFD sessions flapping
//   (on next hops of their own, which vias use only BFD-tracked);
//   static routes of up to three preferences set whole and removed, their
//   prefixes leaked to other VRFs (declared or not) and back; the
//   protocol's `initialized`; RIB sequence triggers; readiness verification
//   and restarts under graceful restart. Every event is one line followed by
//   `settle`, so each step ends at a quiet moment.
//
// The lifecycle half of the model (ready sets, readiness records,
// containers) is LifecycleModel, fed with the platform changes each line
// makes, in the order the agent's platform makes them. The protocol's
// configuration (routes, initialized families) is kept here; route
// selection is judged by SystemCheck from the inputs.
//
// Costs: a step is one generated line, its parse and its effects, and a
// settle; the script (every line so far) is kept when asked for.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "agent/Interpreter.h"
#include "tests/IpRib/RootSmLifecycleModel.h"

namespace Routing::Protocol::Test {

struct SystemConfig {
  uint64_t seed = 1;
  int vrfs = 6;       // besides "default"
  int prefixes = 10;  // per VRF and family
  int restartsPerMillion = 3000;
  bool keepScript = true;
};

class SystemRun {
 public:
  using Id = LifecycleModel::Id;
  // (VRF, af 0/1, prefix index) to the preferences' route lines.
  using RouteKey = std::tuple<std::string, int, int>;
  using Routes = std::map<RouteKey, std::map<int, std::string>>;

  explicit SystemRun(const SystemConfig& config);
  ~SystemRun();

  // The set-up lines, a few VRFs, `start`: the first quiet moment.
  void begin();
  // One random event and a settle.
  void step();
  // A refused line: the run is broken (the text says where).
  const std::string& refused() const { return refused_; }

  uint64_t events() const { return events_; }
  const std::string& script() const { return script_; }
  IpRibAgent::World& world() { return interpreter_.world(); }
  // Drops the agent's world (the run is over).
  void worldDel() { interpreter_.worldDel(); }
  const LifecycleModel& lifecycle() const { return model_; }
  const Routes& routes() const { return routes_; }
  // The prefixes that leak, to their target VRF's name.
  const std::map<RouteKey, std::string>& leaks() const { return leaks_; }
  // The declared VRFs, to their id.
  std::map<std::string, Id> vrfIds() const;
  // The routes the last step's line set or removed.
  const std::set<RouteKey>& touched() const { return touched_; }
  bool initialized(const std::string& vrf, int af) const {
    return initialized_.count({vrf, af}) != 0;
  }
  std::string prefixText(int af, int index) const;
  // The lines that declare today's inputs and routes in a new agent, then
  // start it and mark every family initialized.
  std::vector<std::string> freshStartScript() const;
  // Lines that leave every ready set as the inputs say, whatever the past:
  // the default VRF's inputs all on, its metric table touched (the others
  // read it afresh when next evaluated), then every family of every VRF
  // re-evaluated by taking its looping-route status away and back.
  std::vector<std::string> closingPass() const;
  void runLines(const std::vector<std::string>& lines) {
    for (const std::string& line : lines) run(line);
  }

 private:
  // ------------------------------------------------------------ lines
  void run(const std::string& line);
  template <class... Parts>
  void runf(const Parts&... parts) {
    std::ostringstream os;
    (os << ... << parts);
    run(os.str());
  }

  // ------------------------------------------------------------ randomness
  uint64_t pick(uint64_t n) { return rng_() % n; }
  bool chance(double p) { return std::uniform_real_distribution<double>(0, 1)(rng_) < p; }
  const std::string& anyVrf() { return names_[pick(names_.size())]; }
  std::vector<std::string> declared() const;
  // Next hops of BFD-tracked vias are never used untracked: a BFD entry
  // made for one would change, untold, what a less preferred via type may
  // give a route that uses it untracked (see SystemCheck).
  std::string nextHop(int af, bool withIntf, bool tracked = false);

  // ------------------------------------------------------------ events
  void vrfEvent();
  void vrfInputEvent();
  void interfaceEvent();
  void metricEvent();
  void bfdEvent();
  void routeEvent();
  void leakEvent();
  void initializedEvent();
  void ribSeqEvent();
  void readyVerificationEvent();
  void restartEvent();

  // ------------------------------------------------------------ the platform, in the model
  void declare(const std::string& name, Id id, bool bare);
  void undeclare(const std::string& name);
  void tablesIs(const std::string& name, Id id, bool on);
  void metricTableIs(bool multicast, Id id, int transport, bool on);
  void intfIs(const std::string& name, int af, bool on);

  SystemConfig config_;
  std::mt19937_64 rng_;
  std::ostringstream sink_;  // what the agent prints: not checked here
  IpRibAgent::Interpreter interpreter_;
  LifecycleModel model_;
  std::vector<std::string> names_;
  std::map<std::string, bool> bare_;  // declared VRFs
  std::map<std::tuple<std::string, std::string, int>, bool> interfaces_;
  std::map<std::tuple<std::string, int, std::string>, std::string> metrics_;  // their lines
  std::map<std::string, std::string> bfd_;                                    // their lines
  Routes routes_;
  std::map<RouteKey, std::string> leaks_;  // the target goes with the prefix's last preference
  std::set<RouteKey> touched_;
  std::set<std::pair<std::string, int>> initialized_;
  uint64_t events_ = 0;
  uint32_t seq_ = 0;
  std::string script_;
  std::string refused_;
};

}  // namespace Routing::Protocol::Test
