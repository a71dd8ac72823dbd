#include "IpRib/ProtocolAgentBuilder.h"

#include "IpRib/ProtocolIntf.h"
#include "Kel/Assert.h"
#include "platform/Routing/ViaConfigLib.h"

namespace Routing::Protocol {

namespace {

using Kind = ReadyVrfSets::Kind;

Pando::AddressFamily afOf(Kind kind) {
  return kind == Kind::ipv4 || kind == Kind::mcIpv4 ? Pando::AddressFamily::ipv4
                                                    : Pando::AddressFamily::ipv6;
}
bool multicastOf(Kind kind) { return kind == Kind::mcIpv4 || kind == Kind::mcIpv6; }
Kind kindOf(Pando::AddressFamily af, bool multicast) {
  if (af == Pando::AddressFamily::ipv4) return multicast ? Kind::mcIpv4 : Kind::ipv4;
  return multicast ? Kind::mcIpv6 : Kind::ipv6;
}
Rib::Transport transportOf(Pando::AddressFamily af) {
  return af == Pando::AddressFamily::ipv4 ? Rib::Transport::ipv4 : Rib::Transport::ipv6;
}
Rib::Transport otherTransport(Pando::AddressFamily af) {
  return af == Pando::AddressFamily::ipv4 ? Rib::Transport::ipv6 : Rib::Transport::ipv4;
}

// A per-VRF via table knows the RIB and transport it serves; a new one
// serves unicast IPv4 until told.
void viaTableServes(const Kel::Ptr<Rib::Ip::ViaConfig>& table, const char* rib,
                    Rib::Transport transport) {
  if (!table) return;
  table->ribStringIs(Kel::String(rib));
  table->transportIs(transport);
}

}  // namespace

AgentPlatform AgentPlatform::make() {
  return AgentPlatform{Cairn::entityManagerFactory(),
                       KelSharedMem::entityManagerFactory(),
                       allVrfReadyStatusFactory(),
                       allVrfRibSeqTriggerFactory(),
                       Kel::makePtr<BfdTrackedStaticRoutesList>(),
                       Kel::makePtr<Rib::ViaStatusByVrf>()};
}

// ------------------------------------------------------------ watchers

class AgentBuilder::KelReadyVrfSets final : public ReadyVrfSets::Notifiee {
 public:
  KelReadyVrfSets(AgentBuilder* b, const ReadyVrfSets* s) : b_(b) { notifierIs(s); }
  void onReadyVrfIpv4(const L3::VrfName& n) override { b_->handleReadyVrf(Kind::ipv4, n); }
  void onReadyVrfIpv6(const L3::VrfName& n) override { b_->handleReadyVrf(Kind::ipv6, n); }
  void onMcReadyVrfIpv4(const L3::VrfName& n) override { b_->handleReadyVrf(Kind::mcIpv4, n); }
  void onMcReadyVrfIpv6(const L3::VrfName& n) override { b_->handleReadyVrf(Kind::mcIpv6, n); }

 private:
  AgentBuilder* b_;
};

class AgentBuilder::KelNameToIdMap final : public Vrf::VrfIdMap::NameToIdMap::Notifiee {
 public:
  KelNameToIdMap(AgentBuilder* b, const Vrf::VrfIdMap::NameToIdMap* m) : b_(b) { notifierIs(m); }
  void onVrfNameToId(const L3::VrfName& n) override { b_->handleVrfNameToId(n); }

 private:
  AgentBuilder* b_;
};

class AgentBuilder::KelMountGroup final : public Cairn::MountGroup::Notifiee {
 public:
  KelMountGroup(AgentBuilder* b, const Cairn::MountGroup* g) : b_(b) { notifierIs(g); }
  void onComplete() override { b_->handleMountGroups(); }

 private:
  AgentBuilder* b_;
};

class AgentBuilder::KelShmemMountGroup final : public KelSharedMem::MountGroup::Notifiee {
 public:
  KelShmemMountGroup(AgentBuilder* b, const KelSharedMem::MountGroup* g) : b_(b) { notifierIs(g); }
  void onComplete() override { b_->handleMountGroups(); }

 private:
  AgentBuilder* b_;
};

// ------------------------------------------------------------ life

AgentBuilder::AgentBuilder(const AgentConfig& config, const AgentPlatform& platform)
    : config_(config),
      platform_(platform),
      mountGroup_(Cairn::mountGroupFactory(platform.stateDb)),
      shmemMg_(KelSharedMem::mountGroupFactory(platform.sharedMem)),
      kelReadyVrfSets_(this),
      kelMountGroup_(this),
      kelShmemMountGroup_(this),
      kelNameToIdMap_(this) {
  rootSm_ = RootSm::RootSmIs(platform.stateDb, mountGroup_, platform.sharedMem, shmemMg_,
                             config.maxRoutes, config.maxViaSets, config.maxVrfs, config.protocol,
                             platform.allVrfReadyStatus, platform.allVrfRibSeqTrigger);
  rootSm_->grStateIs(config.gracefulRestart);
  kelReadyVrfSets_.reactorIs(Kel::makePtr<KelReadyVrfSets>(this, rootSm_->readyVrfSets().ptr()));
  kelMountGroup_.reactorIs(Kel::makePtr<KelMountGroup>(this, mountGroup_.ptr()));
  kelShmemMountGroup_.reactorIs(Kel::makePtr<KelShmemMountGroup>(this, shmemMg_.ptr()));
  handleMountGroups();
}

AgentBuilder::~AgentBuilder() {
  kelReadyVrfSets_.reactorIs(nullptr);
  kelNameToIdMap_.reactorIs(nullptr);
  while (!containers_.empty()) {
    auto node = containers_.extract(containers_.begin());
    Container& c = node.mapped();
    if (containerDropping_) containerDropping_(*c.sm, node.key().multicast);
    if (!node.key().multicast) {
      rootSm_->routeStatusDir()->statusDel(c.sm->status()->key());
    }
    c.sm = nullptr;
    if (c.auxViaConfig) c.auxViaConfig->doUnmount();
  }
  rootSm_ = nullptr;
}

void AgentBuilder::handleMountGroups() {
  if (rootSm_->initialized() || !mountGroup_->complete() || !shmemMg_->complete()) return;
  rootSm_->doMountsComplete();
  // After the root's own watcher, so that the sets are current when it runs.
  const Vrf::VrfIdMap::NameToIdMap* map = rootSm_->nameToIdMap();
  kelNameToIdMap_.reactorIs(map ? Kel::makePtr<KelNameToIdMap>(this, map) : nullptr);
  // The start's pass weighed every name in the map.
  if (map) {
    for (const auto& entry : map->vrfNameToId()) weighedIds_[entry.name] = entry.id;
  }
}

void AgentBuilder::handleVrfNameToId(const L3::VrfName& vrfName) {
  const Vrf::VrfIdMap::NameToIdMap* map = rootSm_->nameToIdMap();
  const Vrf::VrfIdMap::VrfId vrfId = map ? map->vrfNameToId(vrfName) : Vrf::VrfIdMap::invalidVrfId;
  // A VRF renumbered while ready keeps its name in the sets: its containers
  // are rebuilt on the new id.
  for (const Kind kind : {Kind::ipv4, Kind::ipv6, Kind::mcIpv4, Kind::mcIpv6}) {
    const Key key{ContainerKey(vrfName, afOf(kind)), multicastOf(kind)};
    const auto it = containers_.find(key);
    if (it == containers_.end() || it->second.vrfId == vrfId) continue;
    doDropContainer(key);
    handleReadyVrf(kind, vrfName);
  }
  doReleaseWeighedTables(vrfName, vrfId);
}

void AgentBuilder::doReleaseWeighedTables(const L3::VrfName& vrfName, Vrf::VrfIdMap::VrfId vrfId) {
  const auto it = weighedIds_.find(vrfName);
  const Vrf::VrfIdMap::VrfId prior =
      it == weighedIds_.end() ? Vrf::VrfIdMap::invalidVrfId : it->second;
  if (vrfId != Vrf::VrfIdMap::invalidVrfId) {
    weighedIds_[vrfName] = vrfId;
  } else if (it != weighedIds_.end()) {
    weighedIds_.erase(it);
  }
  const Vrf::VrfIdMap::NameToIdMap* map = rootSm_->nameToIdMap();
  if (prior == Vrf::VrfIdMap::invalidVrfId || prior == vrfId ||
      (map && map->vrfName(prior) != nullptr)) {
    return;
  }
  // A container there would have been cleaned up as it was dropped.
  for (const Pando::AddressFamily af : {Pando::AddressFamily::ipv4, Pando::AddressFamily::ipv6}) {
    const bool ipv4 = af == Pando::AddressFamily::ipv4;
    if (!rootSm_->vrfRibConfig(prior, Rib::ribString, ipv4 ? "ipv4" : "ipv6") &&
        !rootSm_->vrfViaConfig(prior, Rib::ribString, transportOf(af))) {
      continue;
    }
    ipv4 ? rootSm_->doCleanupContainer4(vrfName, prior)
         : rootSm_->doCleanupContainer6(vrfName, prior);
    if (tablesCleaned_) tablesCleaned_(vrfName, prior, af, false);
  }
}

ContainerSm* AgentBuilder::container(const ContainerKey& key, bool multicast) const {
  const auto it = containers_.find(Key{key, multicast});
  return it == containers_.end() ? nullptr : it->second.sm.ptr();
}

// ------------------------------------------------------------ containers

void AgentBuilder::handleReadyVrf(Kind kind, const L3::VrfName& vrfName) {
  const Key key{ContainerKey(vrfName, afOf(kind)), multicastOf(kind)};
  const bool ready = rootSm_->readyVrfSets()->has(kind, vrfName);
  const bool built = containers_.count(key) != 0;
  if (ready && !built) doBuildContainer(key);
  if (!ready && built) doDropContainer(key);
}

void AgentBuilder::doBuildContainer(const Key& key) {
  const RootSm& root = *rootSm_;
  const L3::VrfName& vrfName = key.containerKey.vrfName();
  const Pando::AddressFamily af = key.containerKey.af();
  const bool ipv4 = af == Pando::AddressFamily::ipv4;
  // The root mounts a unicast VRF's tables as it finds it ready; multicast
  // tables are the agent's to ask for.
  if (key.multicast) {
    ipv4 ? rootSm_->doMountMcContainer4(vrfName) : rootSm_->doMountMcContainer6(vrfName);
  }
  const char* rib = key.multicast ? Rib::mribString : Rib::ribString;
  const std::string_view afString = ipv4 ? "ipv4" : "ipv6";
  const Vrf::VrfIdMap::VrfId vrfId = root.nameToIdMap()->vrfNameToId(vrfName);
  const Kind kind = kindOf(af, key.multicast);
  const std::string_view protocolName = Rib::stringValue(config_.protocol);

  // The VRF's IP via tables: the one shared by all VRFs, or its own.
  Kel::Ptr<Rib::Ip::ViaConfig> ipViaConfig =
      ViaConfigLib::isAllVrfViaConfig(rib, afString, protocolName)
          ? root.allVrfViaConfig(kind)
          : root.vrfViaConfig(vrfId, rib, transportOf(af));
  viaTableServes(ipViaConfig, rib, transportOf(af));
  Container c{nullptr, vrfId, nullptr};
  Kel::Ptr<Rib::Ip::ViaConfig> auxViaConfig;
  const Rib::Transport auxTransport = otherTransport(af);
  const std::string_view auxAf = ipv4 ? "ipv6" : "ipv4";
  if (ViaConfigLib::isAllVrfViaConfig(rib, auxAf, protocolName)) {
    auxViaConfig = root.allVrfViaConfig(
        kindOf(ipv4 ? Pando::AddressFamily::ipv6 : Pando::AddressFamily::ipv4, key.multicast));
  } else {
    KelBrisk::MountInfo info(0);
    info.collectionInfoIs(Kel::String("via"), config_.maxViaSets);
    c.auxViaConfig =
        KelBrisk::mountFactory(platform_.stateDb, root.viaConfigMount(vrfId, rib, auxTransport),
                               Kel::String("Routing::Rib::Ip::ViaConfig"), info);
    c.auxViaConfig->doMount();
    auxViaConfig = c.auxViaConfig->getEntity<Rib::Ip::ViaConfig>();
    viaTableServes(auxViaConfig, rib, auxTransport);
  }

  // The VRF's route table: the one shared by all VRFs, or its own.
  Kel::Ptr<Rib::RouteConfig> ribConfig = root.allVrfRibConfig(kind);
  if (!ribConfig) ribConfig = root.vrfRibConfig(vrfId, rib, afString);

  const auto& loopingByVrf = root.loopingRouteStatusByVrf(kind);
  Kel::Ptr<IntfStatus> intfStatus =
      ipv4 ? Kel::Ptr<IntfStatus>(ipv4IntfStatusFactory(
                 root.ipv4IntfStatus() ? root.ipv4IntfStatus()->vrfIpIntfStatus(vrfName) : nullptr))
           : Kel::Ptr<IntfStatus>(ipv6IntfStatusFactory(
                 root.ipv6IntfStatus() ? root.ipv6IntfStatus()->vrfIp6IntfStatus(vrfName)
                                       : nullptr));
  c.sm = ContainerSm::ContainerSmIs(
      key.containerKey, vrfId, root.viaMetricStatus(transportOf(af), vrfId, rib), ipViaConfig,
      auxViaConfig, root.evpnViaMetricStatus(), root.evpnConfig(),
      key.multicast ? root.mcViaSetConfig() : root.viaSetConfig(), ribConfig,
      loopingByVrf ? loopingByVrf->vrfStatus(vrfName) : nullptr, intfStatus,
      key.multicast ? root.mcNhdGraph() : root.nhdGraph(), root.ipv4DefaultVrfViaConfig(),
      root.ipv4DefaultVrfViaMetricStatus(), root.ipv6DefaultVrfViaConfig(),
      root.ipv6DefaultVrfViaMetricStatus(), config_.protocol,
      platform_.allVrfReadyStatus->vrfReadyStatus(vrfName), platform_.bfdTrackedRoutesList,
      platform_.viaStatusByVrf,
      key.multicast ? root.mcViaMetricStatusByVrf() : root.viaMetricStatusByVrf(),
      Kel::String(rib));
  if (!key.multicast) root.routeStatusDir()->statusIs(c.sm->status());
  ContainerSm& built = *c.sm;
  containers_.emplace(key, std::move(c));
  if (containerBuilt_) containerBuilt_(built, key.multicast);
}

void AgentBuilder::doDropContainer(const Key& key) {
  auto node = containers_.extract(key);
  Container& c = node.mapped();
  if (containerDropping_) containerDropping_(*c.sm, key.multicast);
  if (!key.multicast) rootSm_->routeStatusDir()->statusDel(c.sm->status()->key());
  c.sm = nullptr;
  if (c.auxViaConfig) c.auxViaConfig->doUnmount();
  const L3::VrfName& vrfName = key.containerKey.vrfName();
  const bool ipv4 = key.containerKey.af() == Pando::AddressFamily::ipv4;
  if (key.multicast) {
    ipv4 ? rootSm_->doCleanupMcContainer4(vrfName, c.vrfId)
         : rootSm_->doCleanupMcContainer6(vrfName, c.vrfId);
  } else {
    ipv4 ? rootSm_->doCleanupContainer4(vrfName, c.vrfId)
         : rootSm_->doCleanupContainer6(vrfName, c.vrfId);
  }
  if (tablesCleaned_) tablesCleaned_(vrfName, c.vrfId, key.containerKey.af(), key.multicast);
}

}  // namespace Routing::Protocol
