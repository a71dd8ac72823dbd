// A reference model of the VRF lifecycle around RootSm: what the four ready
// sets, the readiness records, the containers and the VRFs' mounted tables
// must be after a sequence of platform, RIB and agent changes.
//
// It follows the root's trigger tables step by step, not an invariant: each
// change runs, in the real order, exactly the handlers its watcher runs, so
// a set stays stale where the root leaves it stale (a change of the default
// VRF's metric status re-evaluates that VRF alone, the bulk pass over the
// name map evaluates IPv4 multicast only, the default-VRF metric pointers
// move only at start and when the VRF id table's id 0 is evaluated). Set
// changes reach a model of AgentBuilder at once, as the real notification
// does: it builds and drops containers (each new container's RouteStatusSm
// marks its family's review incomplete) and cleans up their tables.
//
// Names are plain strings, VRF ids plain numbers; protocol 2 with every via
// and route table per VRF. Families index the ready sets as
// ReadyVrfSets::Kind does: unicast IPv4, unicast IPv6, multicast IPv4,
// multicast IPv6. Transports index IPv4, IPv6, EVPN. Every call is O(VRFs)
// at most; the model shares no code with the library.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace Routing::Protocol::Test {

inline constexpr int familyCount = 4;
inline constexpr int transportCount = 3;
inline bool multicastOf(int family) { return family >= 2; }
// 0 for IPv4, 1 for IPv6: also the index of the family's transport.
inline int afOf(int family) { return family & 1; }
inline int familyOf(bool multicast, int af) { return (multicast ? 2 : 0) + af; }

struct LifecycleConfig {
  bool mrib = true;           // the protocol feeds the multicast RIB
  bool intfCheckOff = false;  // "IP_INTF_CHECK_NOT_NEEDED" set at construction
  bool gracefulRestart = false;
};

class LifecycleModel {
 public:
  using Id = uint32_t;
  using NameMap = std::map<std::string, Id>;
  using Names = std::vector<std::string>;
  static constexpr Id invalidId = 0xffffff;

  // A VRF's VrfReadyStatus and VrfRibSeqTrigger, made and deleted together.
  struct Record {
    bool routesReady[2] = {false, false};
    uint32_t ribReadySeqStatus = 0;
    bool routeReviewComplete[2] = {false, false};
    uint32_t ribReadySeqTrigger = 0;
    uint64_t generation = 0;  // which incarnation a container reports to
  };
  struct Container {
    Id vrfId;
    uint64_t record;  // the record's generation at build; 0 for none
    bool statusInitialized = false;
    uint64_t serial = 0;  // which build: a container rebuilt is a new one
  };
  // One VRF's via metric tree: the VRF's entry, a level per transport, and
  // per transport the member of this protocol and of another one.
  struct MetricTree {
    bool entry = false;
    bool byProtocol[transportCount] = {};
    bool member[transportCount][2] = {};
  };
  // A VRF's route and via table of one RIB and family: (VRF id, multicast, af).
  using Mount = std::tuple<Id, bool, int>;
  using ContainerKey = std::pair<std::string, int>;

  // The fixture's world: "default" named and numbered 0, nothing else.
  explicit LifecycleModel(const LifecycleConfig& config);

  // ------------------------------------------------------------ platform side
  // The name map; nameIs needs an id no other name holds.
  void nameIs(const std::string& name, Id id);
  void nameDel(const std::string& name);
  // The map replaced by another one, or by none. `order` is the order in
  // which the platform's map visits its names: where the builder keeps
  // containers on old ids, one name's evaluation can unmount the tables
  // another one mounted.
  void nameMapIs(const std::optional<NameMap>& map, const Names& order);
  void vrfEntryIs(Id id, const std::string& name);
  void vrfEntryDel(Id id);
  // The member of this protocol (`ours`) or another one of a VRF's metric
  // table, creating the levels above it; its removal keeps the levels.
  void metricIs(bool multicast, Id id, int transport, bool ours, bool present);
  void metricTransportDel(bool multicast, Id id, int transport);
  void metricVrfDel(bool multicast, Id id);
  void intfIs(int af, const std::string& name, bool present);
  void loopingIs(int family, const std::string& name, bool present);

  // ------------------------------------------------------------ RIB and agent side
  void ribSeqTriggerIs(const std::string& name, uint32_t seq);
  // A review flag written where a container's RouteStatusSm writes it.
  void routeReviewCompleteIs(const std::string& name, int af, bool complete);
  // The container's Status initialized: its (empty) review completes at once.
  void statusInitialized(const ContainerKey& key);
  // The review a container scheduled when it was built ran: complete when
  // its Status is initialized, else it waits.
  void scheduledReviewRan(const ContainerKey& key);
  void startReadyVerificationIs(bool start);
  void grStateIs(bool gracefulRestart);
  // doMountsComplete, its bulk pass visiting the names in `order`.
  void start(const Names& order);
  // The agent dropped (containers without cleanup, then the root and its
  // mounts) and a new one made. The readiness records stay, or (an agent
  // that empties its VrfReadyStatus collection first) start afresh while
  // the RIB's sequence triggers stay.
  void restart(bool gracefulRestart, bool keepRecords = true);
  // Asked when a unicast container is built: whether the protocol has said
  // the family is initialized, so that it marks the new Status at once.
  std::function<bool(const std::string& name, int af)> protocolInitialized;

  // ------------------------------------------------------------ state
  bool initialized() const { return initialized_; }
  const LifecycleConfig& config() const { return config_; }
  bool startReadyVerification() const { return startReadyVerification_; }
  const std::optional<NameMap>& nameMap() const { return nameMap_; }
  Id idOf(const std::string& name) const;
  const std::map<Id, std::string>& vrfIds() const { return vrfIds_; }
  bool metric(bool multicast, Id id, int transport) const;
  const MetricTree* metricTree(bool multicast, Id id) const;
  bool intf(int af, const std::string& name) const { return intf_[af].count(name) != 0; }
  bool looping(int family, const std::string& name) const {
    return looping_[family].count(name) != 0;
  }
  const std::set<std::string>& ready(int family) const { return ready_[family]; }
  const std::map<std::string, Record>& records() const { return records_; }
  const std::map<ContainerKey, Container>& containers() const { return containers_; }
  const std::set<Mount>& mounted() const { return mounted_; }
  // AgentBuilder watches the map the root had at start; false once replaced.
  bool builderFollowsMap() const { return builderFollowsMap_; }
  // Containers the builder rebuilt because their VRF's id changed.
  uint64_t rebuilds() const { return rebuilds_; }
  // Containers built so far: the newest container's serial.
  uint64_t builds() const { return builds_; }
  // Whether every input of the family is there now, default-VRF tables read
  // afresh: what the set holds for `name` once each of its inputs was touched.
  bool inputsPresent(int family, const std::string& name) const;

 private:
  // RootSm.
  void onVrfNameToId(const std::string& name);
  void doCreateOrDeleteVrfAsuState(const std::string& name);
  void handleVrfNameToIdMap(const Names& order);
  void setReadyVrf(const std::string& name);
  void setMcReadyVrf(const std::string& name);
  void setReady(int family, const std::string& name);
  void handleMetricStatus(bool multicast, Id id);
  void onMetric(bool multicast, Id id);
  void readyIs(int family, const std::string& name, bool ready);
  void maybeSetRoutesReady(const std::string& name);
  void handleStartReadyVerification();
  void handleRibSeqTrigger(const std::string& name);
  void maybeUpdateRibReadySeqStatus(const std::string& name);
  void reviewIs(const std::string& name, uint64_t generation, int af, bool complete);
  void refreshDefaultVrfMetrics();
  // AgentBuilder.
  void handleReadyVrf(int family, const std::string& name);
  void doBuildContainer(int family, const std::string& name);
  void doDropContainer(int family, const std::string& name);
  void handleVrfNameToId(const std::string& name);

  LifecycleConfig config_;
  // Platform.
  std::optional<NameMap> nameMap_;
  std::map<Id, std::string> vrfIds_;
  std::map<Id, MetricTree> metrics_[2];
  std::set<std::string> intf_[2];
  std::set<std::string> looping_[familyCount];
  bool startReadyVerification_ = false;
  // RootSm.
  bool initialized_ = false;
  bool defaultVrfMetric_[transportCount] = {};
  std::set<std::string> ready_[familyCount];
  std::map<std::string, Record> records_;
  uint64_t generations_ = 0;
  std::set<Mount> mounted_;
  // AgentBuilder.
  std::map<ContainerKey, Container> containers_;
  bool builderFollowsMap_ = true;
  NameMap weighed_;  // the id each name was last weighed under
  uint64_t rebuilds_ = 0;
  uint64_t builds_ = 0;
};

}  // namespace Routing::Protocol::Test
