// RootSm and AgentBuilder against the lifecycle model, over random sequences
// of VRF names, ids and inputs, RIB sequence triggers, review reports and
// graceful-restart steps.
//
//   VRF names "default", "red", "blue", "green", "gold"; VRF ids 0 to 6;
//   protocol 2 (static), every table per VRF. Each seed picks its run's
//   switches from its low bits: bit 0 "IP_INTF_CHECK_NOT_NEEDED" set (to the
//   empty string), bit 1 a protocol without the multicast RIB, bit 2
//   graceful restart. Before the start most VRFs get every input, then a
//   few random changes follow, so that the start's bulk pass has VRFs to
//   evaluate in every family. Now and then the name map is replaced (the
//   builder stays on the old one until the agent restarts) or the agent
//   restarts, graceful or not, over the same records.
//
// After every event the loop runs until quiet, and then the four ready sets,
// every readiness record, the containers (and the VRF id each was built on)
// and the VRFs' mounted route and via tables must be what the model says. A
// closing pass touches each VRF's own inputs (and the default VRF's id
// entry); after it every set must hold exactly the VRFs whose inputs are all
// there.
//
// ROOT_SEED=<n> replays one seed; ROOT_EVENTS=<n> runs n events per seed.
#include <gtest/gtest.h>

#include <cstdlib>
#include <deque>
#include <iostream>
#include <map>
#include <optional>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "platform/Routing/Rib/RoutingProtocolHelper.h"
#include "tests/IpRib/RootSmLifecycleModel.h"
#include "tests/IpRib/RootWorldFixture.h"

namespace Routing::Protocol::Test {
namespace {

using Id = LifecycleModel::Id;
using Kind = ReadyVrfSets::Kind;
using Names = std::set<std::string>;

const std::vector<std::string> vrfNames = {"default", "red", "blue", "green", "gold"};
constexpr Id vrfIdCount = 7;
constexpr Rib::RoutingProtocol otherProtocol = 3;
const char* const ribOf[2] = {"rib", "mrib"};
const char* const afStringOf[2] = {"ipv4", "ipv6"};
const Rib::Transport transportOf[transportCount] = {Rib::Transport::ipv4, Rib::Transport::ipv6,
                                                    Rib::Transport::evpn};

std::optional<uint64_t> envNumber(const char* name) {
  const char* text = std::getenv(name);
  if (text == nullptr || *text == '\0') return std::nullopt;
  return std::strtoull(text, nullptr, 10);
}

LifecycleConfig configOf(uint64_t seed) {
  return LifecycleConfig{(seed & 2) == 0, (seed & 1) != 0, (seed & 4) != 0};
}

Names namesOf(const ReadyVrfSets::NameSet& set) {
  Names out;
  for (const L3::VrfName& n : set) out.emplace(n.value());
  return out;
}

std::string show(const Names& names) {
  std::string out = "{";
  for (const std::string& n : names) out += (out.size() > 1 ? " " : "") + n;
  return out + "}";
}

// The switches read at construction, set for one run and put back after.
class Environment {
 public:
  explicit Environment(const LifecycleConfig& config) {
    if (const char* value = std::getenv(RootSm::ipIntfCheckNotNeededEnvVar)) saved_ = value;
    if (config.intfCheckOff) {
      setenv(RootSm::ipIntfCheckNotNeededEnvVar, "", 1);
    } else {
      unsetenv(RootSm::ipIntfCheckNotNeededEnvVar);
    }
    Rib::RoutingProtocolHelper::mribProtocolIs(RootWorld::staticProtocol, config.mrib);
  }
  ~Environment() {
    if (saved_) {
      setenv(RootSm::ipIntfCheckNotNeededEnvVar, saved_->c_str(), 1);
    } else {
      unsetenv(RootSm::ipIntfCheckNotNeededEnvVar);
    }
    Rib::RoutingProtocolHelper::mribProtocolReset();
  }

 private:
  std::optional<std::string> saved_;
};

// What a walk reached, over all its seeds; a walk that never reaches these
// proves little.
struct Coverage {
  uint64_t ready[familyCount] = {};  // quiet moments with the set not empty
  uint64_t stale = 0;                // quiet moments with a set not what the inputs say
  uint64_t answered = 0;             // ribReadySeqStatus changes
  uint64_t rebuilt = 0;              // containers rebuilt on a VRF's new id
  uint64_t oldIds = 0;               // quiet moments with a container on an old id
  uint64_t mapsReplaced = 0;         // after the start
  uint64_t restarts = 0;
};

// One seed's world, model and random walk.
class LifecycleRun {
 public:
  LifecycleRun(uint64_t seed, const LifecycleConfig& config, Coverage& coverage)
      : environment_(config),
        w_(AgentConfig{RootWorld::staticProtocol, 1024, 1024, 16, config.gracefulRestart}),
        model_(config),
        rng_(seed),
        map_(w_.names),
        coverage_(coverage) {}

  bool failed() const { return failed_; }

  void run(uint64_t events) {
    populate();
    const uint64_t before = rng_() % 24;
    for (uint64_t i = 0; i < before; ++i) platformEvent(true);
    doStart();
    check();
    for (uint64_t i = 0; i < events && !failed_; ++i) {
      SCOPED_TRACE("event " + std::to_string(i));
      randomEvent();
      w_.settle();
      check();
    }
    if (failed_) return;
    SCOPED_TRACE("closing pass");
    closingPass();
    w_.settle();
    check();
    if (!failed_) checkAllInputsCount();
    coverage_.rebuilt += model_.rebuilds();
  }

 private:
  // ------------------------------------------------------------ randomness
  bool chance(double p) { return std::uniform_real_distribution<double>(0, 1)(rng_) < p; }
  template <class T>
  const T& pickOf(const std::vector<T>& v) {
    return v[rng_() % v.size()];
  }
  const std::string& anyName() { return pickOf(vrfNames); }
  Id anyId() { return Id(rng_() % vrfIdCount); }
  // An id no other name holds in the current map: the map refuses the others.
  std::optional<Id> freeIdFor(const std::string& name) {
    std::vector<Id> free;
    for (Id id = 0; id < vrfIdCount; ++id) {
      bool held = false;
      for (const auto& [n, i] : *model_.nameMap()) held |= (i == id && n != name);
      if (!held) free.push_back(id);
    }
    if (free.empty()) return std::nullopt;
    return pickOf(free);
  }
  // An input kept present about four times in five: picks up to four times,
  // adds an absent one, removes a present one one time in four.
  template <class Present, class Apply>
  void toggle(const Present& present, const Apply& apply) {
    for (int tries = 0; tries < 4; ++tries) {
      const uint64_t target = rng_();
      const bool is = present(target);
      if (!is || chance(0.25)) return apply(target, !is);
    }
  }

  // ------------------------------------------------------------ both sides
  void note(const std::string& what) {
    recent_.push_back(what);
    if (recent_.size() > 24) recent_.pop_front();
  }

  // The names in the order the platform's map visits them.
  LifecycleModel::Names visitOrder() const {
    LifecycleModel::Names order;
    if (map_) {
      for (const auto& entry : map_->vrfNameToId()) order.emplace_back(entry.name.value());
    }
    return order;
  }
  void nameIs(const std::string& name, Id id) {
    note("name " + name + " -> " + std::to_string(id));
    map_->vrfNameToIdIs(L3::VrfName(name), id);
    model_.nameIs(name, id);
  }
  void nameDel(const std::string& name) {
    note("name " + name + " deleted");
    map_->vrfNameToIdDel(L3::VrfName(name));
    model_.nameDel(name);
  }
  void nameMapIs(const std::optional<LifecycleModel::NameMap>& content) {
    Kel::Ptr<Vrf::VrfIdMap::NameToIdMap> map;
    std::string what = "name map replaced by ";
    if (content) {
      map = Kel::makePtr<Vrf::VrfIdMap::NameToIdMap>();
      for (const auto& [name, id] : *content) {
        map->vrfNameToIdIs(L3::VrfName(name), id);
        what += name + ":" + std::to_string(id) + " ";
      }
    } else {
      what += "none";
    }
    note(what);
    w_.nameStatus->nameToIdMapIs(map);
    map_ = map;
    model_.nameMapIs(content, visitOrder());
    if (model_.initialized()) ++coverage_.mapsReplaced;
  }
  void vrfEntryIs(Id id, const std::string& name) {
    note("vrf id entry " + std::to_string(id) + " -> " + name);
    w_.vrfIds->vrfEntryIs(id, L3::VrfName(name));
    model_.vrfEntryIs(id, name);
  }
  void vrfEntryDel(Id id) {
    note("vrf id entry " + std::to_string(id) + " deleted");
    w_.vrfIds->vrfEntryDel(id);
    model_.vrfEntryDel(id);
  }
  Rib::ViaMetricStatusByVrf& metricsOf(bool multicast) {
    return multicast ? *w_.mcMetrics : *w_.metrics;
  }
  void metricIs(bool multicast, Id id, int transport, bool ours, bool present) {
    note(std::string(ribOf[multicast]) + " metric " + std::to_string(id) + "/" +
         std::to_string(transport + 1) + (ours ? "" : " of another protocol") +
         (present ? " added" : " removed"));
    const Rib::RoutingProtocol selector = ours ? RootWorld::staticProtocol : otherProtocol;
    Rib::ViaMetricStatusByVrf& tree = metricsOf(multicast);
    if (present) {
      tree.viaMetricStatusByTransportIs(id)
          ->viaMetricStatusByProtocolIs(uint8_t(transportOf[transport]))
          ->viaMetricStatusIs(selector);
    } else if (const auto byTransport = tree.viaMetricStatusByTransport(id)) {
      if (const auto byProtocol =
              byTransport->viaMetricStatusByProtocol(uint8_t(transportOf[transport]))) {
        byProtocol->viaMetricStatusDel(selector);
      }
    }
    model_.metricIs(multicast, id, transport, ours, present);
  }
  void metricTransportDel(bool multicast, Id id, int transport) {
    note(std::string(ribOf[multicast]) + " metric level " + std::to_string(id) + "/" +
         std::to_string(transport + 1) + " deleted");
    if (const auto byTransport = metricsOf(multicast).viaMetricStatusByTransport(id)) {
      byTransport->viaMetricStatusByProtocolDel(uint8_t(transportOf[transport]));
    }
    model_.metricTransportDel(multicast, id, transport);
  }
  void metricVrfDel(bool multicast, Id id) {
    note(std::string(ribOf[multicast]) + " metric entry " + std::to_string(id) + " deleted");
    metricsOf(multicast).viaMetricStatusByTransportDel(id);
    model_.metricVrfDel(multicast, id);
  }
  void intfIs(int af, const std::string& name, bool present) {
    note(std::string(afStringOf[af]) + " interfaces of " + name +
         (present ? " added" : " removed"));
    w_.intfIs(af == 0 ? Pando::AddressFamily::ipv4 : Pando::AddressFamily::ipv6, name, present);
    model_.intfIs(af, name, present);
  }
  void loopingIs(int family, const std::string& name, bool present) {
    note("looping status " + std::to_string(family) + " of " + name +
         (present ? " added" : " removed"));
    w_.loopingIs(family, name, present);
    model_.loopingIs(family, name, present);
  }
  void ribSeqTriggerIs(const std::string& name, uint32_t seq) {
    note("ribReadySeqTrigger of " + name + " = " + std::to_string(seq));
    w_.platform.allVrfRibSeqTrigger->vrfRibSeqTrigger(L3::VrfName(name))->ribReadySeqTriggerIs(seq);
    model_.ribSeqTriggerIs(name, seq);
  }
  void routeReviewCompleteIs(const std::string& name, int af, bool complete) {
    note("v" + std::string(af == 0 ? "4" : "6") + "RouteReviewComplete of " + name + " = " +
         (complete ? "true" : "false"));
    const Kel::Ptr<VrfReadyStatus> status = w_.readyStatus(name);
    af == 0 ? status->v4RouteReviewCompleteIs(complete) : status->v6RouteReviewCompleteIs(complete);
    model_.routeReviewCompleteIs(name, af, complete);
  }
  void statusInitialized(const LifecycleModel::ContainerKey& key) {
    note("Status of container " + key.first + "/" + std::to_string(key.second) + " initialized");
    w_.container(key.first,
                 afOf(key.second) == 0 ? Pando::AddressFamily::ipv4 : Pando::AddressFamily::ipv6,
                 multicastOf(key.second))
        ->status()
        ->initializedIs(true);
    model_.statusInitialized(key);
  }
  void startReadyVerificationIs(bool start) {
    note(std::string("startReadyVerification = ") + (start ? "true" : "false"));
    w_.root().grState()->startReadyVerificationIs(start);
    model_.startReadyVerificationIs(start);
  }
  void grStateIs(bool gracefulRestart) {
    note(std::string("grStateIs(") + (gracefulRestart ? "true" : "false") + ")");
    w_.root().grStateIs(gracefulRestart);
    model_.grStateIs(gracefulRestart);
  }

  void doStart() {
    note("start");
    w_.agent = AgentBuilder::AgentBuilderIs(w_.config, w_.platform);
    // The agent may allow verification before the mounts complete.
    if (model_.config().gracefulRestart && chance(0.3)) startReadyVerificationIs(true);
    w_.settle();
    model_.start(visitOrder());
  }

  // The agent stopped and started again, with graceful restart or not.
  void restart() {
    const bool gracefulRestart = chance(0.5);
    note(std::string("restart, graceful ") + (gracefulRestart ? "true" : "false"));
    w_.agent = nullptr;
    w_.config.gracefulRestart = gracefulRestart;
    model_.restart(gracefulRestart);
    ++coverage_.restarts;
    doStart();
  }

  // ------------------------------------------------------------ events
  // Before the start: most VRFs named with every input, so that the start's
  // bulk pass finds VRFs ready in every family.
  void populate() {
    if (chance(0.8)) {
      for (int t = 0; t < transportCount; ++t) metricIs(false, 0, t, true, true);
    }
    for (const std::string& name : vrfNames) {
      if (!chance(0.7)) continue;
      const std::optional<Id> id = freeIdFor(name);
      if (!id) continue;
      nameIs(name, *id);
      vrfEntryIs(*id, name);
      for (int family = 0; family < familyCount; ++family) {
        metricIs(multicastOf(family), *id, afOf(family), true, true);
        loopingIs(family, name, true);
      }
      intfIs(0, name, true);
      intfIs(1, name, true);
    }
  }
  // A VRF named, renumbered or removed the way the platform does it: the
  // name map, then the id table.
  void vrfEvent() {
    const std::string& name = anyName();
    const Id old = model_.idOf(name);
    const auto oldEntry = model_.vrfIds().find(old);
    const bool ownsOld = oldEntry != model_.vrfIds().end() && oldEntry->second == name;
    if (old != LifecycleModel::invalidId && chance(0.3)) {
      nameDel(name);
      if (ownsOld) vrfEntryDel(old);
      return;
    }
    const std::optional<Id> id = freeIdFor(name);
    if (!id) return;
    nameIs(name, *id);
    if (ownsOld && old != *id) vrfEntryDel(old);
    vrfEntryIs(*id, name);
  }
  // The name map alone, the id table left as it is.
  void nameOnlyEvent() {
    const std::string& name = anyName();
    if (chance(0.4)) return nameDel(name);
    if (const std::optional<Id> id = freeIdFor(name)) nameIs(name, *id);
  }
  // A new map: the present one with a name dropped, added or renumbered, or none.
  void nameMapEvent() {
    if (model_.nameMap() && chance(0.15)) return nameMapIs(std::nullopt);
    LifecycleModel::NameMap content =
        model_.nameMap().value_or(LifecycleModel::NameMap{{"default", 0}});
    const std::string& name = anyName();
    content.erase(name);
    if (chance(0.7)) {
      std::set<Id> held;
      for (const auto& [n, id] : content) held.insert(id);
      const Id id = anyId();
      if (held.count(id) == 0) content[name] = id;
    }
    nameMapIs(content);
  }
  void metricEvent() {
    const bool multicast = chance(0.3);
    toggle(
        [&](uint64_t r) {
          const int transport = int(r % (multicast ? 2 : 3));
          return model_.metric(multicast, Id(r / 3 % vrfIdCount), transport);
        },
        [&](uint64_t r, bool present) {
          const int transport = int(r % (multicast ? 2 : 3));
          metricIs(multicast, Id(r / 3 % vrfIdCount), transport, !chance(0.1), present);
        });
  }
  void metricLevelEvent() {
    const bool multicast = chance(0.3);
    if (chance(0.5)) return metricVrfDel(multicast, anyId());
    metricTransportDel(multicast, anyId(), int(rng_() % (multicast ? 2 : 3)));
  }
  void intfEvent() {
    toggle([&](uint64_t r) { return model_.intf(int(r % 2), vrfNames[r / 2 % vrfNames.size()]); },
           [&](uint64_t r, bool present) {
             intfIs(int(r % 2), vrfNames[r / 2 % vrfNames.size()], present);
           });
  }
  void loopingEvent() {
    toggle(
        [&](uint64_t r) { return model_.looping(int(r % 4), vrfNames[r / 4 % vrfNames.size()]); },
        [&](uint64_t r, bool present) {
          loopingIs(int(r % 4), vrfNames[r / 4 % vrfNames.size()], present);
        });
  }
  void triggerEvent() {
    std::vector<std::string> named;
    for (const auto& [name, record] : model_.records()) named.push_back(name);
    if (named.empty()) return;
    const std::string& name = pickOf(named);
    const uint32_t present = model_.records().at(name).ribReadySeqTrigger;
    ribSeqTriggerIs(name, chance(0.6) ? present + 1 : uint32_t(rng_() % 4));
  }
  std::optional<LifecycleModel::ContainerKey> anyContainer() {
    std::vector<LifecycleModel::ContainerKey> keys;
    for (const auto& [key, c] : model_.containers()) keys.push_back(key);
    if (keys.empty()) return std::nullopt;
    return pickOf(keys);
  }
  // A RouteStatusSm's report: a review restarted or finished, or a Status
  // initialized, whose empty review completes at once.
  void reviewEvent() {
    const auto key = anyContainer();
    if (!key) return;
    if (chance(0.6) && !model_.containers().at(*key).statusInitialized) {
      return statusInitialized(*key);
    }
    if (model_.records().count(key->first) == 0) return;
    routeReviewCompleteIs(key->first, afOf(key->second), chance(0.5));
  }
  void platformEvent(bool beforeStart) {
    const uint64_t r = rng_() % 100;
    if ((beforeStart && r < 4) || !model_.nameMap()) return nameMapEvent();
    if (r < 18) return vrfEvent();
    if (r < 24) return nameOnlyEvent();
    if (r < 30) return chance(0.6) ? vrfEntryIs(anyId(), anyName()) : vrfEntryDel(anyId());
    if (r < 55) return metricEvent();
    if (r < 58) return metricLevelEvent();
    if (r < 73) return intfEvent();
    loopingEvent();
  }
  void randomEvent() {
    // Rare: a new name map leaves the builder on the old one until a restart.
    const uint64_t r = rng_() % 3000;
    if (r < 450) return triggerEvent();
    if (r < 750) return reviewEvent();
    if (r < 810) return startReadyVerificationIs(chance(0.7));
    if (r < 818) return grStateIs(!model_.config().gracefulRestart);
    if (r < 820) return nameMapEvent();
    if (r < 823) return restart();
    platformEvent(false);
  }

  // Each VRF's inputs touched: the default VRF's id entry re-written (its
  // metric tables read afresh), then every family's looping-route status of
  // every name removed and put back (or added and removed).
  void closingPass() {
    const auto entry = model_.vrfIds().find(0);
    if (entry != model_.vrfIds().end()) {
      const std::string name = entry->second;
      vrfEntryDel(0);
      vrfEntryIs(0, name);
    } else {
      vrfEntryIs(0, "default");
    }
    for (const std::string& name : vrfNames) {
      for (int family = 0; family < familyCount; ++family) {
        const bool present = model_.looping(family, name);
        loopingIs(family, name, !present);
        loopingIs(family, name, present);
      }
    }
  }

  // ------------------------------------------------------------ checks
  void fail(const std::string& what) {
    std::ostringstream os;
    os << what << "\nlast events:";
    for (const std::string& e : recent_) os << "\n  " << e;
    os << "\nmodel: map";
    for (const auto& [name, id] : model_.nameMap().value_or(LifecycleModel::NameMap())) {
      os << " " << name << ":" << id;
    }
    os << (model_.builderFollowsMap() ? "" : " (the builder follows an old map)") << "; containers";
    for (const auto& [key, c] : model_.containers()) {
      os << " " << key.first << "/" << key.second << "@" << c.vrfId;
    }
    os << "; tables";
    for (const auto& [id, multicast, af] : model_.mounted()) {
      os << " " << id << "/" << ribOf[multicast] << "/" << afStringOf[af];
    }
    ADD_FAILURE() << os.str();
    failed_ = true;
  }

  void check() {
    const RootSm& root = w_.root();
    static constexpr Kind kinds[familyCount] = {Kind::ipv4, Kind::ipv6, Kind::mcIpv4, Kind::mcIpv6};
    bool stale = false;
    for (int f = 0; f < familyCount; ++f) {
      const Names real = namesOf(root.readyVrfSets()->set(kinds[f]));
      if (real != model_.ready(f)) {
        return fail("ready set " + std::to_string(f) + ": " + show(real) + ", model " +
                    show(model_.ready(f)));
      }
      coverage_.ready[f] += !real.empty();
      for (const std::string& name : vrfNames) {
        stale |= model_.inputsPresent(f, name) != (real.count(name) != 0);
      }
    }
    coverage_.stale += stale;
    checkRecords();
    if (!failed_) checkContainers();
    if (!failed_) checkMounts();
  }

  void checkRecords() {
    const AllVrfReadyStatus& statuses = *w_.platform.allVrfReadyStatus;
    const AllVrfRibSeqTrigger& triggers = *w_.platform.allVrfRibSeqTrigger;
    Names real, realTriggers, model;
    for (const auto& s : statuses.vrfReadyStatus()) real.emplace(s->vrfName().value());
    for (const auto& t : triggers.vrfRibSeqTrigger()) realTriggers.emplace(t->vrfName().value());
    for (const auto& [name, record] : model_.records()) model.insert(name);
    if (real != model || realTriggers != model) {
      return fail("records " + show(real) + ", triggers " + show(realTriggers) + ", model " +
                  show(model));
    }
    for (const auto& [name, m] : model_.records()) {
      const VrfReadyStatus& s = *statuses.vrfReadyStatus(L3::VrfName(name));
      const uint32_t trigger = triggers.vrfRibSeqTrigger(L3::VrfName(name))->ribReadySeqTrigger();
      std::ostringstream real, expected;
      real << s.v4RoutesReady() << s.v6RoutesReady() << " seq " << s.ribReadySeqStatus()
           << " review " << s.v4RouteReviewComplete() << s.v6RouteReviewComplete() << " trigger "
           << trigger;
      expected << m.routesReady[0] << m.routesReady[1] << " seq " << m.ribReadySeqStatus
               << " review " << m.routeReviewComplete[0] << m.routeReviewComplete[1] << " trigger "
               << m.ribReadySeqTrigger;
      if (real.str() != expected.str()) {
        return fail("record of " + name + ": ready " + real.str() + ", model: ready " +
                    expected.str());
      }
      const auto seen = answered_.find(name);
      if (seen != answered_.end() && seen->second != m.ribReadySeqStatus) ++coverage_.answered;
      answered_[name] = m.ribReadySeqStatus;
    }
  }

  void checkContainers() {
    const RootSm& root = w_.root();
    std::map<LifecycleModel::ContainerKey, Id> real;
    for (const auto& [key, c] : w_.agent->containers()) {
      const int af = key.containerKey.af() == Pando::AddressFamily::ipv4 ? 0 : 1;
      const int family = familyOf(key.multicast, af);
      const std::string name(key.containerKey.vrfName().value());
      real.emplace(LifecycleModel::ContainerKey(name, family), c.vrfId);
      if (c.sm->vrfId() != c.vrfId) return fail("container " + name + " on two ids");
      // Exactly the names in the sets.
      if (model_.ready(family).count(name) == 0) {
        return fail("container " + name + "/" + std::to_string(family) + " outside its set");
      }
      // Built on the VRF's id, and on its tables.
      if (model_.builderFollowsMap() && c.vrfId != model_.idOf(name)) {
        return fail("container " + name + "/" + std::to_string(family) + " on id " +
                    std::to_string(c.vrfId) + ", the VRF's id is " +
                    std::to_string(model_.idOf(name)));
      }
      if (model_.builderFollowsMap() &&
          !root.vrfRibConfig(c.vrfId, ribOf[key.multicast], afStringOf[af])) {
        return fail("container " + name + "/" + std::to_string(family) + " without its table");
      }
    }
    std::map<LifecycleModel::ContainerKey, Id> model;
    for (const auto& [key, c] : model_.containers()) model.emplace(key, c.vrfId);
    if (real != model) {
      std::ostringstream os;
      os << "containers:";
      for (const auto& [key, id] : real) os << " " << key.first << "/" << key.second << "@" << id;
      os << "; model:";
      for (const auto& [key, id] : model) os << " " << key.first << "/" << key.second << "@" << id;
      return fail(os.str());
    }
    for (const auto& [key, c] : model_.containers()) {
      const auto& [name, family] = key;
      if (model_.ready(family).count(name) == 0) return fail("model container outside its set");
      if (c.vrfId != model_.idOf(name)) ++coverage_.oldIds;
    }
  }

  void checkMounts() {
    const RootSm& root = w_.root();
    for (const auto& [id, multicast, af] : model_.mounted()) {
      if (!root.vrfRibConfig(id, ribOf[multicast], afStringOf[af]) ||
          !root.vrfViaConfig(id, ribOf[multicast], transportOf[af])) {
        return fail(std::string("tables of VRF ") + std::to_string(id) + " " + ribOf[multicast] +
                    " " + afStringOf[af] + " not mounted");
      }
    }
    if (root.mountedVrfTables() != 2 * model_.mounted().size()) {
      return fail("VRF tables mounted: " + std::to_string(root.mountedVrfTables()) +
                  ", model: " + std::to_string(2 * model_.mounted().size()));
    }
  }

  // After the closing pass: no set is stale any more.
  void checkAllInputsCount() {
    for (int f = 0; f < familyCount; ++f) {
      Names expected;
      for (const std::string& name : vrfNames) {
        if (model_.inputsPresent(f, name)) expected.insert(name);
      }
      if (model_.ready(f) != expected) {
        return fail("after the closing pass, set " + std::to_string(f) + " is " +
                    show(model_.ready(f)) + ", its VRFs with every input " + show(expected));
      }
    }
    for (const auto& [key, c] : model_.containers()) {
      if (c.vrfId != model_.idOf(key.first)) return fail("container left on an old id");
    }
  }

  Environment environment_;
  RootWorld w_;
  LifecycleModel model_;
  std::mt19937_64 rng_;
  Kel::Ptr<Vrf::VrfIdMap::NameToIdMap> map_;  // the map the platform writes now
  Coverage& coverage_;
  std::map<std::string, uint32_t> answered_;
  std::deque<std::string> recent_;
  bool failed_ = false;
};

TEST(RootSmLifecycleModelTest, ReadySetsRecordsContainersAndTablesFollowTheModel) {
  const std::optional<uint64_t> replay = envNumber("ROOT_SEED");
  const uint64_t events = envNumber("ROOT_EVENTS").value_or(600);
  std::vector<uint64_t> seeds = {0, 1, 2, 3, 4, 5, 6, 7};
  if (replay) seeds = {*replay};
  Coverage coverage;
  for (const uint64_t seed : seeds) {
    SCOPED_TRACE("seed " + std::to_string(seed) +
                 " (replay with ROOT_SEED=" + std::to_string(seed) + ")");
    LifecycleRun run(seed, configOf(seed), coverage);
    run.run(events);
    if (run.failed()) return;
  }
  if (envNumber("ROOT_EVENTS")) {
    std::cout << seeds.size() << " seeds x " << events << " events; quiet moments with a set "
              << "not empty: " << coverage.ready[0] << " " << coverage.ready[1] << " "
              << coverage.ready[2] << " " << coverage.ready[3] << "; stale: " << coverage.stale
              << "; answers: " << coverage.answered
              << "; containers rebuilt on a new id: " << coverage.rebuilt
              << "; moments with one on an old id: " << coverage.oldIds
              << "; maps replaced: " << coverage.mapsReplaced << "; restarts: " << coverage.restarts
              << "\n";
  }
  if (replay) return;
  for (int f = 0; f < familyCount; ++f) EXPECT_GT(coverage.ready[f], 0u) << "family " << f;
  EXPECT_GT(coverage.stale, 0u);
  EXPECT_GT(coverage.answered, 0u);
  EXPECT_GT(coverage.rebuilt, 0u);
  EXPECT_GT(coverage.oldIds, 0u);
  EXPECT_GT(coverage.mapsReplaced, 0u);
  EXPECT_GT(coverage.restarts, 0u);
}

}  // namespace
}  // namespace Routing::Protocol::Test
