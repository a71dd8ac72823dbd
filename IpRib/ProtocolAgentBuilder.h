// AgentBuilder: runs the library the way an agent does, so that an agent (and
// a test) needs a handful of calls instead of the whole start-up order:
//
//   AgentPlatform platform = AgentPlatform::make();   // state database, tables, ...
//   auto agent = AgentBuilder::AgentBuilderIs(AgentConfig{}, platform);
//   ...publish VRFs, interfaces, metrics into platform...
//   Kel::ActivityManager::instance().runUntilQuiet();  // mounts complete, VRFs ready
//   agent->container(ContainerKey(L3::VrfName("red"), ipv4), false)->status()->routeIs(...);
//
// Construction creates the two mount groups, calls RootSmIs and then grStateIs
// with the configured graceful-restart flag. When both mount groups report
// completion (on a later turn of the loop) it calls doMountsComplete; until
// then no VRF is evaluated, no container built and no table of a VRF
// touched, however long that takes, and nothing polls. It
// watches the four ready sets: a name entering a set gets a ContainerSm for
// that VRF and family, built from the root's tables and the VRF's own; a name
// leaving drops the container and then calls the matching doCleanup... with
// the VRF's id when the container was built. Unicast containers file their
// Status in the root's RouteStatusDir, so via metric changes reach their routes.
// Hooks tell the agent when a container is built (to publish its routes into
// the new Status), before one is dropped, and when a VRF's tables were
// cleaned up (so that the RIB can forget them).
//
// Decided here: a container takes as its auxiliary via configuration the
// VRF's via table of the other IP family, mounted by the builder while the
// container lives; per-VRF via tables are told their RIB and transport.
// Teardown drops the containers without cleaning their tables (a restart
// keeps the RIB's routes), then the root. A VRF renumbered while ready gets
// its containers rebuilt on the new id (the old id's tables cleaned up);
// the builder follows the name map the root had at start. Weighing a VRF
// for readiness mounts its unicast tables, and only a container's clean-up
// gives them back: a name that leaves the map or takes another id without
// a container on the old one has the old id's tables cleaned up too, unless
// another name holds that id by then, so that churn leaves no tables behind.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <utility>

#include "IpRib/ProtocolContainerKey.h"
#include "IpRib/ProtocolContainerSm.h"
#include "IpRib/ProtocolGrTypes.h"
#include "IpRib/ProtocolRootSm.h"
#include "Kel/Entity.h"
#include "Kel/NestedReactors.h"
#include "Kel/Ptr.h"
#include "platform/Routing/Bfd/BfdTrackedStaticRoutes.h"
#include "platform/Routing/Rib/ViaStatusByVrf.h"

namespace Routing::Protocol {

// What outlives one run of the library: the platform's state database and
// shared memory, the readiness collections, the BFD tracking lists and the
// RIB's via status.
struct AgentPlatform {
  Kel::Ptr<Cairn::EntityManager> stateDb;
  Kel::Ptr<KelSharedMem::EntityManager> sharedMem;
  Kel::Ptr<AllVrfReadyStatus> allVrfReadyStatus;
  Kel::Ptr<AllVrfRibSeqTrigger> allVrfRibSeqTrigger;
  Kel::Ptr<BfdTrackedStaticRoutesList> bfdTrackedRoutesList;
  Kel::Ptr<Rib::ViaStatusByVrf> viaStatusByVrf;
  // All of them new and empty.
  static AgentPlatform make();
};

struct AgentConfig {
  Rib::RoutingProtocol protocol = 2;
  uint32_t maxRoutes = 1u << 22;
  uint32_t maxViaSets = 1u << 20;
  uint32_t maxVrfs = 4096;
  bool gracefulRestart = false;
};

class AgentBuilder final : public Kel::NotifieeBase {
 public:
  using ContainerHook = std::function<void(ContainerSm& container, bool multicast)>;
  using TablesHook = std::function<void(const L3::VrfName& vrfName, Vrf::VrfIdMap::VrfId vrfId,
                                        Pando::AddressFamily af, bool multicast)>;
  struct Key {
    ContainerKey containerKey;
    bool multicast;
    friend bool operator<(const Key& a, const Key& b) {
      return a.multicast != b.multicast ? a.multicast < b.multicast
                                        : a.containerKey < b.containerKey;
    }
  };
  struct Container {
    Kel::Ptr<ContainerSm> sm;
    Vrf::VrfIdMap::VrfId vrfId;
    Kel::Ptr<KelBrisk::Mount> auxViaConfig;
  };
  using ContainerMap = std::map<Key, Container>;

  AgentBuilder(const AgentConfig& config, const AgentPlatform& platform);
  ~AgentBuilder() override;
  static Kel::Ptr<AgentBuilder> AgentBuilderIs(const AgentConfig& config,
                                               const AgentPlatform& platform) {
    return Kel::makePtr<AgentBuilder>(config, platform);
  }

  const AgentConfig& config() const { return config_; }
  const AgentPlatform& platform() const { return platform_; }
  const Kel::Ptr<RootSm>& rootSm() const { return rootSm_; }
  const Kel::Ptr<Cairn::MountGroup>& mountGroup() const { return mountGroup_; }
  const Kel::Ptr<KelSharedMem::MountGroup>& shmemMountGroup() const { return shmemMg_; }
  // doMountsComplete has run.
  bool started() const { return rootSm_->initialized(); }

  ContainerSm* container(const ContainerKey& key, bool multicast) const;
  const ContainerMap& containers() const { return containers_; }
  uint32_t containerCount() const { return uint32_t(containers_.size()); }

  void containerBuiltIs(ContainerHook hook) { containerBuilt_ = std::move(hook); }
  void containerDroppingIs(ContainerHook hook) { containerDropping_ = std::move(hook); }
  // After the root cleaned up a VRF's tables of one RIB and family.
  void tablesCleanedIs(TablesHook hook) { tablesCleaned_ = std::move(hook); }

  // The ready sets' handlers (also the agent's way to force a re-check).
  void handleReadyVrf(ReadyVrfSets::Kind kind, const L3::VrfName& vrfName);
  void handleMountGroups();
  void handleVrfNameToId(const L3::VrfName& vrfName);

 private:
  class KelReadyVrfSets;
  class KelMountGroup;
  class KelShmemMountGroup;
  class KelNameToIdMap;

  void doBuildContainer(const Key& key);
  void doDropContainer(const Key& key);
  void doReleaseWeighedTables(const L3::VrfName& vrfName, Vrf::VrfIdMap::VrfId vrfId);

  AgentConfig config_;
  AgentPlatform platform_;
  Kel::Ptr<Cairn::MountGroup> mountGroup_;
  Kel::Ptr<KelSharedMem::MountGroup> shmemMg_;
  Kel::Ptr<RootSm> rootSm_;
  ContainerMap containers_;
  // The id each name of the map was last weighed under.
  std::map<L3::VrfName, Vrf::VrfIdMap::VrfId> weighedIds_;
  ContainerHook containerBuilt_;
  ContainerHook containerDropping_;
  TablesHook tablesCleaned_;
  Kel::NestedReactor<KelReadyVrfSets> kelReadyVrfSets_;
  Kel::NestedReactor<KelMountGroup> kelMountGroup_;
  Kel::NestedReactor<KelShmemMountGroup> kelShmemMountGroup_;
  Kel::NestedReactor<KelNameToIdMap> kelNameToIdMap_;
};

}  // namespace Routing::Protocol
