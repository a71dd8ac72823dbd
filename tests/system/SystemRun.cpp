#include "tests/system/SystemRun.h"

namespace Routing::Protocol::Test {

namespace {

const char* const afText[2] = {"ipv4", "ipv6"};
const char* const inputText[3] = {"metric", "looping", "intf"};
const char* const viaTypes[4] = {"intf-nexthop", "nexthop", "intf", "default"};

}  // namespace

SystemRun::SystemRun(const SystemConfig& config)
    : config_(config),
      rng_(config.seed),
      interpreter_(sink_, sink_, IpRibAgent::Interpreter::TimeMode::virtualTime),
      model_(LifecycleConfig{true, (config.seed & 1) != 0, (config.seed & 2) != 0}) {
  names_.push_back("default");
  // Appending, not "v" + to_string(v): g++ 12 at -O3 warns falsely (-Wrestrict) on that.
  for (int v = 1; v <= config.vrfs; ++v)
    names_.push_back(std::string("v").append(std::to_string(v)));
  model_.protocolInitialized = [this](const std::string& name, int af) {
    return initialized(name, af);
  };
}

SystemRun::~SystemRun() = default;

std::string SystemRun::prefixText(int af, int index) const {
  return af == 0 ? "172.16." + std::to_string(index) + ".0/24"
                 : "2001:db8:1:" + std::to_string(index) + "::/64";
}

std::vector<std::string> SystemRun::declared() const {
  std::vector<std::string> out;
  for (const auto& [name, bare] : bare_) out.push_back(name);
  return out;
}

std::string SystemRun::nextHop(int af, bool withIntf, bool tracked) {
  const uint64_t n = tracked ? 8 + pick(3) : pick(6);
  std::string text =
      af == 0 ? "10.0." + std::to_string(n) + ".1" : "2001:db8::" + std::to_string(n + 1);
  if (withIntf) text += "%eth" + std::to_string(pick(3));
  return text;
}

// ------------------------------------------------------------ lines

void SystemRun::run(const std::string& line) {
  if (!refused_.empty()) return;
  if (config_.keepScript) script_ += line + "\n";
  const size_t before = sink_.tellp();
  if (!interpreter_.execute(line, "system", 0)) {
    refused_ = line + " -> " + sink_.str().substr(before);
  }
  // Nothing the agent prints is read: keep the sink from growing.
  sink_.str("");
}

void SystemRun::begin() {
  // The protocol and the restart flag first, as a script would.
  run("protocol static");
  if (model_.config().gracefulRestart) run("graceful-restart on");
  if (model_.config().intfCheckOff) run("env IP_INTF_CHECK_NOT_NEEDED");
  // The agent's platform declares "default" in full when it is made.
  declare("default", 0, false);
  for (int i = 0; i < config_.vrfs; ++i) vrfEvent();
  for (int i = 0; i < 4 * config_.vrfs; ++i) routeEvent();
  run("start");
  model_.start(model_.nameMap() ? [&] {
    LifecycleModel::Names order;
    for (const auto& entry : world().platform().nameToIdMap().vrfNameToId()) {
      order.emplace_back(entry.name.value());
    }
    return order;
  }()
                                : LifecycleModel::Names());
  run("settle");
}

void SystemRun::step() {
  touched_.clear();
  const uint64_t builds = model_.builds();
  if (pick(1000000) < uint64_t(config_.restartsPerMillion)) {
    restartEvent();
    run("settle");
    ++events_;
    return;
  }
  // Each kind of event below its bound, out of a thousand.
  struct Kind {
    uint64_t below;
    void (SystemRun::*event)();
  };
  static constexpr Kind kinds[] = {
      {60, &SystemRun::vrfEvent},          {140, &SystemRun::vrfInputEvent},
      {210, &SystemRun::interfaceEvent},   {340, &SystemRun::metricEvent},
      {390, &SystemRun::bfdEvent},         {840, &SystemRun::routeEvent},
      {880, &SystemRun::leakEvent},        {920, &SystemRun::initializedEvent},
      {970, &SystemRun::ribSeqEvent},      {990, &SystemRun::readyVerificationEvent},
      {1000, &SystemRun::initializedEvent}};
  const uint64_t r = pick(1000);
  for (const Kind& k : kinds) {
    if (r < k.below) {
      (this->*k.event)();
      break;
    }
  }
  // Each container built by the line scheduled a review of its Status, run
  // by the settle.
  if (model_.builds() > builds) {
    for (const auto& [key, c] : model_.containers()) {
      if (c.serial > builds) model_.scheduledReviewRan(key);
    }
  }
  run("settle");
  ++events_;
}

// ------------------------------------------------------------ events

void SystemRun::vrfEvent() {
  const std::string& name = names_[1 + pick(names_.size() - 1)];
  const bool known = bare_.count(name) != 0;
  if (known && chance(0.3)) {
    runf("no vrf ", name);
    undeclare(name);
    return;
  }
  // An id no other VRF holds, its own one most of the time.
  const Id own = model_.idOf(name);
  Id id = own;
  if (!known || chance(0.3)) {
    id = Id(1 + pick(2 * names_.size()));
    for (const auto& [n, i] : *model_.nameMap()) {
      if (i == id && n != name) return;
    }
  }
  const bool bare = chance(0.15);
  runf("vrf ", name, " id ", id, bare ? " bare" : "");
  declare(name, id, bare);
}

void SystemRun::vrfInputEvent() {
  const std::vector<std::string> vrfs = declared();
  const std::string& name = vrfs[pick(vrfs.size())];
  const int input = int(pick(3));
  const int af = int(pick(2));
  const bool multicast = input != 2 && chance(0.3);
  const Id id = model_.idOf(name);
  const int family = familyOf(multicast, af);
  const bool present = input == 0   ? model_.metric(multicast, id, af)
                       : input == 1 ? model_.looping(family, name)
                                    : model_.intf(af, name);
  // Inputs stay present most of the time.
  const bool on = !present || !chance(0.6);
  runf("vrf-input ", name, " ", inputText[input], " ", afText[af], multicast ? " mrib" : "",
       on ? " on" : " off");
  if (input == 0) {
    metricTableIs(multicast, id, af, on);
  } else if (input == 1) {
    model_.loopingIs(family, name, on);
  } else {
    intfIs(name, af, on);
  }
}

void SystemRun::interfaceEvent() {
  const std::vector<std::string> vrfs = declared();
  const std::string& name = vrfs[pick(vrfs.size())];
  const int af = int(pick(2));
  const std::string intf = "eth" + std::to_string(pick(3));
  const auto key = std::make_tuple(name, intf, af);
  if (interfaces_.count(key) != 0 && chance(0.2)) {
    runf("no interface ", name, " ", intf, " ", afText[af]);
    interfaces_.erase(key);
    return;
  }
  const bool routing = chance(0.7);
  runf("interface ", name, " ", intf, " ", afText[af], " routing ", routing ? "on" : "off");
  interfaces_[key] = routing;
  model_.intfIs(af, name, true);
}

void SystemRun::metricEvent() {
  const std::vector<std::string> vrfs = declared();
  const std::string& name = vrfs[pick(vrfs.size())];
  const int af = int(pick(2));
  const std::string nh = nextHop(af, chance(0.3), chance(0.3));
  const auto key = std::make_tuple(name, af, nh);
  if (metrics_.count(key) != 0 && chance(0.35)) {
    runf("no via-metric ", name, " ", afText[af], " ", nh);
    metrics_.erase(key);
    return;
  }
  std::ostringstream line;
  line << "via-metric " << name << " " << afText[af] << " " << nh << " metric " << pick(4)
       << (chance(0.1) ? " looping" : "");
  run(line.str());
  metrics_[key] = line.str();
}

void SystemRun::bfdEvent() {
  const int af = int(pick(2));
  const std::string nh = nextHop(af, false, true);
  const std::string line = chance(0.6) ? "bfd " + nh + " up resolved eth" + std::to_string(pick(3))
                                       : "bfd " + nh + " down";
  run(line);
  bfd_[nh] = line;
}

void SystemRun::routeEvent() {
  const std::string& name = anyVrf();
  const int af = int(pick(2));
  const int index = int(pick(config_.prefixes));
  const RouteKey key(name, af, index);
  const std::string prefix = prefixText(af, index);
  touched_.insert(key);
  auto it = routes_.find(key);
  if (it != routes_.end() && chance(0.3)) {
    if (chance(0.5)) {
      runf("no route ", name, " ", prefix);
      it->second.clear();
    } else {
      const auto pref = std::next(it->second.begin(), long(pick(it->second.size())));
      runf("no route ", name, " ", prefix, " pref ", pref->first);
      it->second.erase(pref);
    }
    if (it->second.empty()) {
      routes_.erase(it);
      leaks_.erase(key);
    }
    return;
  }
  const int pref = 1 + int(pick(3));
  std::ostringstream line;
  line << "route " << name << " " << prefix << " pref " << pref;
  const bool fec = chance(0.1);
  if (fec) line << " fec 2";
  if (chance(0.1)) line << " tag " << pick(3);
  if (chance(0.05)) line << " no-fib";
  std::set<std::tuple<std::string, std::string, int>> seen;
  const uint64_t vias = fec && chance(0.3) ? 0 : 1 + pick(3);
  for (uint64_t v = 0; v < vias; ++v) {
    const bool bfd = chance(0.2);
    const std::string nh = nextHop(af, chance(0.4), bfd);
    const std::string type = chance(0.7) ? "" : viaTypes[pick(4)];
    const int label = chance(0.1) ? 16 + int(pick(2)) : -1;
    // The agent takes each via once, by its type as it reads it.
    const std::string readAs = !type.empty()             ? type
                               : nh.find('%') != nh.npos ? viaTypes[0]
                                                         : viaTypes[1];
    if (!seen.emplace(nh, readAs, label).second) continue;
    line << " via " << nh;
    if (!type.empty()) line << " type " << type;
    if (label >= 0) line << " label " << label;
    if (chance(0.7)) line << " metric " << pick(3);
    if (bfd) line << " bfd";
  }
  // A via dropped as a repeat may leave none: a route needs one (or fec).
  if (seen.empty() && !fec) line << " via " << nextHop(af, false);
  run(line.str());
  routes_[key][pref] = line.str();
}

// A prefix with a route leaked to another VRF, or its leak withdrawn.
void SystemRun::leakEvent() {
  if (routes_.empty()) return;
  const RouteKey key = std::next(routes_.begin(), long(pick(routes_.size())))->first;
  const auto& [name, af, index] = key;
  const std::string prefix = prefixText(af, index);
  if (leaks_.count(key) != 0 && chance(0.3)) {
    runf("no leak ", name, " ", prefix);
    leaks_.erase(key);
    return;
  }
  const std::string& to = anyVrf();
  if (to == name) return;
  runf("leak ", name, " ", prefix, " to ", to);
  leaks_[key] = to;
}

std::map<std::string, SystemRun::Id> SystemRun::vrfIds() const {
  std::map<std::string, Id> out;
  for (const auto& [name, bare] : bare_) out.emplace(name, model_.idOf(name));
  return out;
}

void SystemRun::readyVerificationEvent() {
  if (model_.config().gracefulRestart && !model_.startReadyVerification()) {
    run("ready-verification start");
    model_.startReadyVerificationIs(true);
  }
}

void SystemRun::initializedEvent() {
  const std::string& name = anyVrf();
  const int af = int(pick(2));
  runf("initialized ", name, " ", afText[af]);
  if (!initialized_.emplace(name, af).second) return;
  const auto c = model_.containers().find({name, familyOf(false, af)});
  if (c != model_.containers().end()) model_.statusInitialized(c->first);
}

void SystemRun::ribSeqEvent() {
  if (model_.records().empty()) return;
  const auto it = std::next(model_.records().begin(), long(pick(model_.records().size())));
  const std::string name = it->first;
  // Mostly a new request; now and then a repeat or 0.
  const uint32_t seq = chance(0.8) ? ++seq_ : uint32_t(pick(2)) * it->second.ribReadySeqTrigger;
  runf("rib-seq ", name, " ", seq);
  model_.ribSeqTriggerIs(name, seq);
}

void SystemRun::restartEvent() {
  run("restart");
  // A restarted protocol says `initialized` anew; the agent's records start
  // afresh under graceful restart.
  initialized_.clear();
  model_.restart(true, false);
  LifecycleModel::Names order;
  for (const auto& entry : world().platform().nameToIdMap().vrfNameToId()) {
    order.emplace_back(entry.name.value());
  }
  model_.start(order);
}

// ------------------------------------------------------------ the platform, in the model

// As the agent's Platform::vrfIs does it: a known VRF's tables go first.
void SystemRun::declare(const std::string& name, Id id, bool bare) {
  const auto it = bare_.find(name);
  if (it != bare_.end()) {
    const Id old = model_.idOf(name);
    if (old == id && it->second == bare) return;
    tablesIs(name, old, false);
    if (bare) {
      intfIs(name, 0, false);
      intfIs(name, 1, false);
    }
    model_.vrfEntryDel(old);
  }
  bare_[name] = bare;
  model_.nameIs(name, id);
  model_.vrfEntryIs(id, name);
  if (bare) return;
  tablesIs(name, id, true);
  intfIs(name, 0, true);
  intfIs(name, 1, true);
}

void SystemRun::undeclare(const std::string& name) {
  const Id id = model_.idOf(name);
  tablesIs(name, id, false);
  intfIs(name, 0, false);
  intfIs(name, 1, false);
  std::erase_if(metrics_, [&](const auto& e) { return std::get<0>(e.first) == name; });
  bare_.erase(name);
  model_.vrfEntryDel(id);
  model_.nameDel(name);
}

void SystemRun::tablesIs(const std::string& name, Id id, bool on) {
  for (const bool multicast : {false, true}) {
    for (int t = 0; t < transportCount; ++t) metricTableIs(multicast, id, t, on);
    for (int af = 0; af < 2; ++af) model_.loopingIs(familyOf(multicast, af), name, on);
  }
}

// A table on creates the levels above it; off drops its transport level, and
// the VRF's level with its last transport.
void SystemRun::metricTableIs(bool multicast, Id id, int transport, bool on) {
  if (on) return model_.metricIs(multicast, id, transport, true, true);
  if (model_.metricTree(multicast, id) == nullptr) return;
  model_.metricTransportDel(multicast, id, transport);
  const LifecycleModel::MetricTree* tree = model_.metricTree(multicast, id);
  for (const bool level : tree->byProtocol) {
    if (level) return;
  }
  model_.metricVrfDel(multicast, id);
}

void SystemRun::intfIs(const std::string& name, int af, bool on) {
  if (!on)
    std::erase_if(interfaces_, [&](const auto& e) {
      return std::get<0>(e.first) == name && std::get<2>(e.first) == af;
    });
  model_.intfIs(af, name, on);
}

// ------------------------------------------------------------ fresh start

std::vector<std::string> SystemRun::closingPass() const {
  // The default VRF's inputs back first: every other VRF's readiness hangs on them.
  std::vector<std::string> out;
  for (int af = 0; af < 2; ++af) {
    for (const char* mrib : {"", " mrib"}) {
      out.push_back(std::string("vrf-input default metric ") + afText[af] + mrib + " on");
      out.push_back(std::string("vrf-input default looping ") + afText[af] + mrib + " on");
    }
    out.push_back(std::string("vrf-input default intf ") + afText[af] + " on");
  }
  out.push_back("vrf-input default metric ipv4 off");
  out.push_back("vrf-input default metric ipv4 on");
  for (const auto& [name, bare] : bare_) {
    for (const bool multicast : {false, true}) {
      for (int af = 0; af < 2; ++af) {
        const std::string line =
            "vrf-input " + name + " looping " + afText[af] + (multicast ? " mrib" : "");
        const bool present = name == "default" || model_.looping(familyOf(multicast, af), name);
        out.push_back(line + (present ? " off" : " on"));
        out.push_back(line + (present ? " on" : " off"));
      }
    }
  }
  out.push_back("settle");
  return out;
}

std::vector<std::string> SystemRun::freshStartScript() const {
  std::vector<std::string> out = {"protocol static"};
  if (model_.config().intfCheckOff) out.push_back("env IP_INTF_CHECK_NOT_NEEDED");
  for (const auto& [name, bare] : bare_) {
    if (name == "default") continue;
    out.push_back("vrf " + name + " id " + std::to_string(model_.idOf(name)) +
                  (bare ? " bare" : ""));
  }
  for (const auto& [name, bare] : bare_) {
    const Id id = model_.idOf(name);
    for (const bool multicast : {false, true}) {
      for (int af = 0; af < 2; ++af) {
        const char* mrib = multicast ? " mrib" : "";
        const int family = familyOf(multicast, af);
        out.push_back("vrf-input " + name + " metric " + afText[af] + mrib +
                      (model_.metric(multicast, id, af) ? " on" : " off"));
        out.push_back("vrf-input " + name + " looping " + afText[af] + mrib +
                      (model_.looping(family, name) ? " on" : " off"));
      }
    }
    for (int af = 0; af < 2; ++af) {
      out.push_back("vrf-input " + name + " intf " + afText[af] +
                    (model_.intf(af, name) ? " on" : " off"));
    }
  }
  for (const auto& [key, routing] : interfaces_) {
    const auto& [name, intf, af] = key;
    out.push_back("interface " + name + " " + intf + " " + afText[af] + " routing " +
                  (routing ? "on" : "off"));
  }
  for (const auto& [key, line] : metrics_) out.push_back(line);
  for (const auto& [nh, line] : bfd_) out.push_back(line);
  for (const auto& [key, prefs] : routes_) {
    for (const auto& [pref, line] : prefs) out.push_back(line);
  }
  for (const auto& [key, to] : leaks_) {
    const auto& [name, af, index] = key;
    out.push_back("leak " + name + " " + prefixText(af, index) + " to " + to);
  }
  out.push_back("start");
  for (const auto& [name, af] : initialized_) {
    out.push_back("initialized " + name + " " + afText[af]);
  }
  out.push_back("settle");
  return out;
}

}  // namespace Routing::Protocol::Test
