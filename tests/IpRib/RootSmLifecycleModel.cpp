#include "tests/IpRib/RootSmLifecycleModel.h"

namespace Routing::Protocol::Test {

LifecycleModel::LifecycleModel(const LifecycleConfig& config)
    : config_(config), nameMap_(NameMap{{"default", 0}}) {
  vrfIds_[0] = "default";
}

LifecycleModel::Id LifecycleModel::idOf(const std::string& name) const {
  if (!nameMap_) return invalidId;
  const auto it = nameMap_->find(name);
  return it == nameMap_->end() ? invalidId : it->second;
}

const LifecycleModel::MetricTree* LifecycleModel::metricTree(bool multicast, Id id) const {
  const auto it = metrics_[multicast].find(id);
  return it == metrics_[multicast].end() || !it->second.entry ? nullptr : &it->second;
}

bool LifecycleModel::metric(bool multicast, Id id, int transport) const {
  const MetricTree* tree = metricTree(multicast, id);
  return tree != nullptr && tree->member[transport][0];
}

bool LifecycleModel::inputsPresent(int family, const std::string& name) const {
  const Id id = idOf(name);
  if (id == invalidId) return false;
  const int af = afOf(family);
  if (multicastOf(family)) {
    return config_.mrib && metric(true, id, af) && intf(af, name) && looping(family, name);
  }
  return metric(false, id, af) && (intf(af, name) || config_.intfCheckOff) &&
         looping(family, name) && metric(false, 0, 0) && metric(false, 0, 1) && metric(false, 0, 2);
}

// ------------------------------------------------------------ platform side

void LifecycleModel::nameIs(const std::string& name, Id id) {
  const auto [it, added] = nameMap_->emplace(name, id);
  if (!added && it->second == id) return;  // the same id notifies nobody
  it->second = id;
  onVrfNameToId(name);
}

void LifecycleModel::nameDel(const std::string& name) {
  if (nameMap_->erase(name) == 0) return;
  onVrfNameToId(name);
}

void LifecycleModel::nameMapIs(const std::optional<NameMap>& map, const Names& order) {
  nameMap_ = map;
  // The builder binds at start to whatever map the root has then.
  if (!initialized_) return;
  builderFollowsMap_ = false;
  handleVrfNameToIdMap(order);
}

void LifecycleModel::vrfEntryIs(Id id, const std::string& name) {
  const auto [it, added] = vrfIds_.emplace(id, name);
  if (!added && it->second == name) return;
  it->second = name;
  handleMetricStatus(false, id);
  handleMetricStatus(true, id);
}

void LifecycleModel::vrfEntryDel(Id id) {
  if (vrfIds_.erase(id) == 0) return;
  handleMetricStatus(false, id);
  handleMetricStatus(true, id);
}

void LifecycleModel::onMetric(bool multicast, Id id) {
  // The multicast tree is watched only by a protocol of the multicast RIB.
  if (multicast && !config_.mrib) return;
  handleMetricStatus(multicast, id);
}

void LifecycleModel::metricIs(bool multicast, Id id, int transport, bool ours, bool present) {
  MetricTree& tree = metrics_[multicast][id];
  if (!present) {
    if (!tree.entry || !tree.byProtocol[transport] || !tree.member[transport][!ours]) return;
    tree.member[transport][!ours] = false;
    if (ours) onMetric(multicast, id);
    return;
  }
  // Each level made on the way notifies its parent's watcher.
  if (!tree.entry) {
    tree.entry = true;
    onMetric(multicast, id);
  }
  if (!tree.byProtocol[transport]) {
    tree.byProtocol[transport] = true;
    onMetric(multicast, id);
  }
  if (tree.member[transport][!ours]) return;
  tree.member[transport][!ours] = true;
  if (ours) onMetric(multicast, id);
}

void LifecycleModel::metricTransportDel(bool multicast, Id id, int transport) {
  MetricTree& tree = metrics_[multicast][id];
  if (!tree.entry || !tree.byProtocol[transport]) return;
  tree.byProtocol[transport] = false;
  tree.member[transport][0] = tree.member[transport][1] = false;
  onMetric(multicast, id);
}

void LifecycleModel::metricVrfDel(bool multicast, Id id) {
  MetricTree& tree = metrics_[multicast][id];
  if (!tree.entry) return;
  tree = MetricTree();
  onMetric(multicast, id);
}

void LifecycleModel::intfIs(int af, const std::string& name, bool present) {
  if (intf(af, name) == present) return;
  present ? void(intf_[af].insert(name)) : void(intf_[af].erase(name));
  setReady(familyOf(false, af), name);
  setReady(familyOf(true, af), name);
}

void LifecycleModel::loopingIs(int family, const std::string& name, bool present) {
  if (looping(family, name) == present) return;
  present ? void(looping_[family].insert(name)) : void(looping_[family].erase(name));
  // The multicast inputs are watched only by a protocol of the multicast RIB.
  if (multicastOf(family) && !config_.mrib) return;
  setReady(family, name);
}

// ------------------------------------------------------------ RIB and agent side

void LifecycleModel::ribSeqTriggerIs(const std::string& name, uint32_t seq) {
  Record& record = records_.at(name);
  if (record.ribReadySeqTrigger == seq) return;
  record.ribReadySeqTrigger = seq;
  handleRibSeqTrigger(name);
}

void LifecycleModel::routeReviewCompleteIs(const std::string& name, int af, bool complete) {
  reviewIs(name, records_.at(name).generation, af, complete);
}

void LifecycleModel::statusInitialized(const ContainerKey& key) {
  Container& c = containers_.at(key);
  if (c.statusInitialized) return;
  c.statusInitialized = true;
  reviewIs(key.first, c.record, afOf(key.second), true);
}

void LifecycleModel::scheduledReviewRan(const ContainerKey& key) {
  const Container& c = containers_.at(key);
  if (c.statusInitialized) reviewIs(key.first, c.record, afOf(key.second), true);
}

void LifecycleModel::startReadyVerificationIs(bool start) {
  if (startReadyVerification_ == start) return;
  startReadyVerification_ = start;
  handleStartReadyVerification();
}

void LifecycleModel::grStateIs(bool gracefulRestart) {
  if (config_.gracefulRestart == gracefulRestart) return;
  config_.gracefulRestart = gracefulRestart;
  startReadyVerification_ = false;
  handleStartReadyVerification();
}

void LifecycleModel::start(const Names& order) {
  refreshDefaultVrfMetrics();
  initialized_ = true;
  handleVrfNameToIdMap(order);
  if (nameMap_) weighed_ = *nameMap_;
}

void LifecycleModel::restart(bool gracefulRestart, bool keepRecords) {
  containers_.clear();
  if (!keepRecords) {
    for (auto& [name, record] : records_) {
      record = Record{{false, false}, 0, {false, false}, record.ribReadySeqTrigger, ++generations_};
    }
  }
  mounted_.clear();
  weighed_.clear();
  for (std::set<std::string>& set : ready_) set.clear();
  for (bool& present : defaultVrfMetric_) present = false;
  initialized_ = false;
  config_.gracefulRestart = gracefulRestart;
  startReadyVerification_ = false;
  builderFollowsMap_ = true;
}

// ------------------------------------------------------------ RootSm

void LifecycleModel::refreshDefaultVrfMetrics() {
  for (int t = 0; t < transportCount; ++t) defaultVrfMetric_[t] = metric(false, 0, t);
}

void LifecycleModel::onVrfNameToId(const std::string& name) {
  if (!initialized_) return;
  doCreateOrDeleteVrfAsuState(name);
  setReadyVrf(name);
  setMcReadyVrf(name);
  // The builder hears the map after the root.
  if (builderFollowsMap_) handleVrfNameToId(name);
}

void LifecycleModel::doCreateOrDeleteVrfAsuState(const std::string& name) {
  if (idOf(name) == invalidId) {
    records_.erase(name);
    return;
  }
  const auto [it, added] = records_.emplace(name, Record());
  if (added) it->second.generation = ++generations_;
}

void LifecycleModel::handleVrfNameToIdMap(const Names& order) {
  if (!initialized_ || !nameMap_) return;
  for (const std::string& name : order) {
    doCreateOrDeleteVrfAsuState(name);
    setReadyVrf(name);
    setReady(2, name);  // IPv4 multicast only
  }
}

void LifecycleModel::setReadyVrf(const std::string& name) {
  setReady(0, name);
  setReady(1, name);
}

void LifecycleModel::setMcReadyVrf(const std::string& name) {
  setReady(2, name);
  setReady(3, name);
}

void LifecycleModel::setReady(int family, const std::string& name) {
  if (!initialized_) return;
  const bool multicast = multicastOf(family);
  const Id id = idOf(name);
  if ((multicast && !config_.mrib) || id == invalidId) {
    readyIs(family, name, false);
    return;
  }
  const int af = afOf(family);
  if (multicast) {
    readyIs(family, name, metric(true, id, af) && intf(af, name) && looping(family, name));
    return;
  }
  mounted_.emplace(id, false, af);
  readyIs(family, name,
          metric(false, id, af) && defaultVrfMetric_[2] &&
              (intf(af, name) || config_.intfCheckOff) && looping(family, name) &&
              defaultVrfMetric_[0] && defaultVrfMetric_[1]);
  maybeSetRoutesReady(name);
}

void LifecycleModel::handleMetricStatus(bool multicast, Id id) {
  if (!initialized_) return;
  const auto entry = vrfIds_.find(id);
  if (entry == vrfIds_.end()) return;
  // Only this VRF is evaluated; the others see new default tables at their next trigger.
  if (!multicast && id == 0) refreshDefaultVrfMetrics();
  const std::string name = entry->second;
  multicast ? setMcReadyVrf(name) : setReadyVrf(name);
}

void LifecycleModel::readyIs(int family, const std::string& name, bool ready) {
  std::set<std::string>& set = ready_[family];
  if ((set.count(name) != 0) == ready) return;
  ready ? void(set.insert(name)) : void(set.erase(name));
  handleReadyVrf(family, name);
}

void LifecycleModel::maybeSetRoutesReady(const std::string& name) {
  const auto it = records_.find(name);
  if (!initialized_ || it == records_.end()) return;
  Record& record = it->second;
  if (!config_.gracefulRestart) {
    record.routesReady[0] = record.routesReady[1] = true;
    return;
  }
  if (!startReadyVerification_) return;
  if (!intf(1, name)) record.routesReady[1] = true;
  if (!intf(0, name)) record.routesReady[0] = true;
}

void LifecycleModel::handleStartReadyVerification() {
  if (!initialized_ || !nameMap_) return;
  for (const auto& [name, id] : *nameMap_) maybeSetRoutesReady(name);
}

void LifecycleModel::handleRibSeqTrigger(const std::string& name) {
  const auto it = records_.find(name);
  if (!initialized_ || it == records_.end() || it->second.ribReadySeqTrigger == 0) return;
  const uint64_t generation = it->second.generation;
  // A family without a container has nothing to review.
  if (ready_[0].count(name) == 0) reviewIs(name, generation, 0, true);
  if (ready_[1].count(name) == 0) reviewIs(name, generation, 1, true);
  maybeUpdateRibReadySeqStatus(name);
}

void LifecycleModel::maybeUpdateRibReadySeqStatus(const std::string& name) {
  const auto it = records_.find(name);
  if (!initialized_ || it == records_.end()) return;
  Record& record = it->second;
  const uint32_t seq = record.ribReadySeqTrigger;
  if (seq == 0 || record.ribReadySeqStatus == seq) return;
  if (record.routeReviewComplete[0] && record.routeReviewComplete[1]) {
    record.ribReadySeqStatus = seq;
  }
}

void LifecycleModel::reviewIs(const std::string& name, uint64_t generation, int af, bool complete) {
  const auto it = records_.find(name);
  // A record deleted since (or none at build): nobody watches the write.
  if (it == records_.end() || it->second.generation != generation) return;
  if (it->second.routeReviewComplete[af] == complete) return;
  it->second.routeReviewComplete[af] = complete;
  maybeUpdateRibReadySeqStatus(name);
}

// ------------------------------------------------------------ AgentBuilder

void LifecycleModel::handleReadyVrf(int family, const std::string& name) {
  const bool ready = ready_[family].count(name) != 0;
  const bool built = containers_.count({name, family}) != 0;
  if (ready && !built) doBuildContainer(family, name);
  if (!ready && built) doDropContainer(family, name);
}

void LifecycleModel::doBuildContainer(int family, const std::string& name) {
  const Id id = idOf(name);
  if (multicastOf(family)) mounted_.emplace(id, true, afOf(family));
  const auto record = records_.find(name);
  const uint64_t generation = record == records_.end() ? 0 : record->second.generation;
  containers_.emplace(ContainerKey(name, family), Container{id, generation, false, ++builds_});
  // The new RouteStatusSm schedules a review: its family is not reviewed yet.
  reviewIs(name, generation, afOf(family), false);
  if (!multicastOf(family) && protocolInitialized && protocolInitialized(name, afOf(family))) {
    statusInitialized(ContainerKey(name, family));
  }
}

void LifecycleModel::doDropContainer(int family, const std::string& name) {
  const auto it = containers_.find({name, family});
  const Id id = it->second.vrfId;
  containers_.erase(it);
  mounted_.erase(Mount(id, multicastOf(family), afOf(family)));
}

void LifecycleModel::handleVrfNameToId(const std::string& name) {
  const Id id = idOf(name);
  for (int family = 0; family < familyCount; ++family) {
    const auto it = containers_.find({name, family});
    if (it == containers_.end() || it->second.vrfId == id) continue;
    ++rebuilds_;
    doDropContainer(family, name);
    handleReadyVrf(family, name);
  }
  // The tables the root mounted weighing the name under its old id go back,
  // unless another name holds that id now.
  const auto weighed = weighed_.find(name);
  const Id prior = weighed == weighed_.end() ? invalidId : weighed->second;
  if (id != invalidId) {
    weighed_[name] = id;
  } else if (weighed != weighed_.end()) {
    weighed_.erase(weighed);
  }
  if (prior == invalidId || prior == id) return;
  for (const auto& [other, otherId] : *nameMap_) {
    if (otherId == prior) return;
  }
  mounted_.erase(Mount(prior, false, 0));
  mounted_.erase(Mount(prior, false, 1));
}

}  // namespace Routing::Protocol::Test
