// RootSm: the one object the agent of a routing protocol creates to run this
// library. It owns the protocol's RouteStatusDir, mounts every table the
// protocol layer reads or writes, watches the VRF name and id maps and, per
// VRF and address family, decides when the VRF is ready for a container and
// when its routes are ready after a restart.
//
// Life: construction asks for the mounts (handleInitialized) and reads the
// environment variable "IP_INTF_CHECK_NOT_NEEDED"; the agent calls grStateIs,
// then doMountsComplete once the mount group reports completion; from then on
// every trigger re-evaluates exactly the VRF and family it names. A trigger
// never re-evaluates more than it names: a change of the default VRF's metric
// status re-evaluates the default VRF alone, and the bulk pass over the name
// map evaluates IPv4 multicast only; other VRFs pick a change up at their own
// next trigger.
//
// Outputs: the four ready sets (in ReadyVrfSets, an entity the agent
// watches), the per-VRF readiness records in the shared collections, the
// per-VRF route and via tables mounted while a VRF is ready, and the all-VRF
// via, route and via-set tables. The agent builds a ContainerSm while a name
// is in a ready set and calls the matching doCleanup... when it drops it.
//
// Faults: a required shared collection or GrState missing aborts through
// KEL_ASSERT; a missing input only holds a VRF back, with a level 9 trace.
// A corrupt read of a shared table is reported to it and read again, at most
// maxCorruptReads times in a row; a table that stays corrupt is then given up
// on for this trigger with a level 0 trace, changing nothing (the VRF keeps
// its state, the vias stay): the loop is never spun on it.
// Teardown unmounts every table this root mounted.
// One thread; every handler runs to completion. Cost: a trigger evaluates one
// VRF and family in a few hash look-ups; the bulk pass is linear in VRFs.
#pragma once

#include <cstdint>
#include <map>
#include <string_view>
#include <utility>
#include <vector>

#include "IpRib/ProtocolGrTypes.h"
#include "IpRib/ProtocolRouteStatus.h"
#include "IpRib/ProtocolViaMetricStatusSm.h"
#include "Kel/Collections.h"
#include "Kel/Entity.h"
#include "Kel/NestedReactors.h"
#include "Kel/Ptr.h"
#include "Kel/String.h"
#include "platform/Cairn/EntityManager.h"
#include "platform/Cairn/MountGroup.h"
#include "platform/Cell/Path.h"
#include "platform/Ip/IntfStatus.h"
#include "platform/Ip/StatusMounter.h"
#include "platform/Ip6/IntfStatus.h"
#include "platform/KelBrisk/Mount.h"
#include "platform/KelSharedMem/EntityManager.h"
#include "platform/KelSharedMem/MountGroup.h"
#include "platform/L3/VrfName.h"
#include "platform/Quay/DumpContext.h"
#include "platform/Routing/Rib/Brisk/ViaSetCollection.h"
#include "platform/Routing/Rib/Evpn/ViaConfig.h"
#include "platform/Routing/Rib/Evpn/ViaConfigSm.h"
#include "platform/Routing/Rib/Ip/GlobalNextHopDependencyGraph.h"
#include "platform/Routing/Rib/Ip/ViaConfig.h"
#include "platform/Routing/Rib/Ip/ViaConfigSm.h"
#include "platform/Routing/Rib/LoopingRouteStatus.h"
#include "platform/Routing/Rib/RouteConfig.h"
#include "platform/Routing/Rib/RoutingProtocolHelper.h"
#include "platform/Routing/Rib/Transport.h"
#include "platform/Routing/Rib/ViaMetricStatus.h"
#include "platform/Routing/Rib/ViaSetConfig.h"
#include "platform/Routing/Rib/ViaSetConfigKey.h"
#include "platform/Routing/Rib/ViaSetConfigSm.h"
#include "platform/Vrf/NameToIdMap.h"
#include "platform/Vrf/VrfIdMapStatus.h"

namespace Routing::Protocol {

// The four sets of VRF names RootSm publishes; each change notifies with the name.
class ReadyVrfSets final : public Kel::Entity {
 public:
  using NameSet = Kel::HashedSet<L3::VrfName>;
  class Notifiee : public Kel::NotifieeOf<ReadyVrfSets> {
   public:
    virtual void onReadyVrfIpv4(const L3::VrfName&) {}
    virtual void onReadyVrfIpv6(const L3::VrfName&) {}
    virtual void onMcReadyVrfIpv4(const L3::VrfName&) {}
    virtual void onMcReadyVrfIpv6(const L3::VrfName&) {}
  };
  // Which set: unicast or multicast, and the family.
  enum class Kind : uint8_t { ipv4, ipv6, mcIpv4, mcIpv6 };
  static constexpr int kinds = 4;

  const char* typeName() const override { return "Routing::Protocol::ReadyVrfSets"; }
  const NameSet& set(Kind k) const { return sets_[int(k)]; }
  bool has(Kind k, const L3::VrfName& name) const { return set(k).find(name) != nullptr; }
  void nameIs(Kind k, const L3::VrfName& name);
  void nameDel(Kind k, const L3::VrfName& name);
  void nameDelAll(Kind k);

 private:
  void notifyName(Kind k, const L3::VrfName& name);
  NameSet sets_[kinds];
};

class RootSm final : public Kel::NotifieeBase {
 public:
  static constexpr const char* ipIntfCheckNotNeededEnvVar = "IP_INTF_CHECK_NOT_NEEDED";
  // Reads of a corrupt shared table before it is given up on.
  static constexpr uint32_t maxCorruptReads = 16;

  RootSm(const Kel::Ptr<Cairn::EntityManager>& entityManager,
         const Kel::Ptr<Cairn::MountGroup>& mountGroup,
         const Kel::Ptr<KelSharedMem::EntityManager>& shmemEm,
         const Kel::Ptr<KelSharedMem::MountGroup>& shmemMg, uint32_t maxRoutes, uint32_t maxViaSets,
         uint32_t maxVrfs, Rib::RoutingProtocol protocol,
         const Kel::Ptr<AllVrfReadyStatus>& allVrfReadyStatus,
         const Kel::Ptr<AllVrfRibSeqTrigger>& allVrfRibSeqTrigger);
  ~RootSm() override;
  static Kel::Ptr<RootSm> RootSmIs(const Kel::Ptr<Cairn::EntityManager>& entityManager,
                                   const Kel::Ptr<Cairn::MountGroup>& mountGroup,
                                   const Kel::Ptr<KelSharedMem::EntityManager>& shmemEm,
                                   const Kel::Ptr<KelSharedMem::MountGroup>& shmemMg,
                                   uint32_t maxRoutes, uint32_t maxViaSets, uint32_t maxVrfs,
                                   Rib::RoutingProtocol protocol,
                                   const Kel::Ptr<AllVrfReadyStatus>& allVrfReadyStatus,
                                   const Kel::Ptr<AllVrfRibSeqTrigger>& allVrfRibSeqTrigger);
  const char* typeName() const { return "Routing::Protocol::RootSm"; }

  // ------------------------------------------------------------ arguments
  const Kel::Ptr<Cairn::EntityManager>& entityManager() const { return entityManager_; }
  const Kel::Ptr<Cairn::MountGroup>& mountGroup() const { return mountGroup_; }
  const Kel::Ptr<KelSharedMem::EntityManager>& shmemEm() const { return shmemEm_; }
  const Kel::Ptr<KelSharedMem::MountGroup>& shmemMg() const { return shmemMg_; }
  uint32_t maxRoutes() const { return maxRoutes_; }
  uint32_t maxViaSets() const { return maxViaSets_; }
  uint32_t maxVrfs() const { return maxVrfs_; }
  Rib::RoutingProtocol protocol() const { return protocol_; }
  const Kel::Ptr<AllVrfReadyStatus>& allVrfReadyStatus() const { return allVrfReadyStatus_; }
  const Kel::Ptr<AllVrfRibSeqTrigger>& allVrfRibSeqTrigger() const { return allVrfRibSeqTrigger_; }

  // ------------------------------------------------------------ state
  bool initialized() const { return initialized_; }
  bool ipIntfCheckNotNeeded() const { return ipIntfCheckNotNeeded_; }
  const Kel::Ptr<RouteStatusDir>& routeStatusDir() const { return routeStatusDir_; }
  const Kel::Ptr<GrState>& grState() const { return grState_; }

  // ------------------------------------------------------------ inputs
  const Kel::Ptr<const Vrf::VrfIdMap::Status>& vrfIdStatus() const { return vrfIdStatus_; }
  const Kel::Ptr<const Vrf::VrfIdMap::NameToIdMapWrapper>& vrfNameStatus() const {
    return vrfNameStatus_;
  }
  // The map inside vrfNameStatus; null while there is none.
  const Vrf::VrfIdMap::NameToIdMap* nameToIdMap() const;
  const Kel::Ptr<const Ip::Status>& ipv4IntfStatus() const { return ipv4IntfStatus_; }
  const Kel::Ptr<const Ip6::Status>& ipv6IntfStatus() const { return ipv6IntfStatus_; }
  const Kel::Ptr<const Rib::ViaMetricStatusByVrf>& viaMetricStatusByVrf() const {
    return viaMetricStatusByVrf_;
  }
  const Kel::Ptr<const Rib::ViaMetricStatusByVrf>& mcViaMetricStatusByVrf() const {
    return mcViaMetricStatusByVrf_;
  }
  const Kel::Ptr<const Rib::LoopingRouteStatusByVrf>& loopingRouteStatusByVrf4() const {
    return looping_[0];
  }
  const Kel::Ptr<const Rib::LoopingRouteStatusByVrf>& loopingRouteStatusByVrf6() const {
    return looping_[1];
  }
  const Kel::Ptr<const Rib::LoopingRouteStatusByVrf>& mcLoopingRouteStatusByVrf4() const {
    return looping_[2];
  }
  const Kel::Ptr<const Rib::LoopingRouteStatusByVrf>& mcLoopingRouteStatusByVrf6() const {
    return looping_[3];
  }
  const Kel::Ptr<const Rib::Ip::GlobalNextHopDependencyGraph>& nhdGraph() const {
    return nhdGraph_;
  }
  const Kel::Ptr<const Rib::Ip::GlobalNextHopDependencyGraph>& mcNhdGraph() const {
    return mcNhdGraph_;
  }
  // Setters of the inputs bind their watchers; doMountsComplete calls them.
  void vrfIdStatusIs(const Kel::Ptr<const Vrf::VrfIdMap::Status>& s);
  void vrfNameStatusIs(const Kel::Ptr<const Vrf::VrfIdMap::NameToIdMapWrapper>& s);
  void ipv4IntfStatusIs(const Kel::Ptr<const Ip::Status>& s);
  void ipv6IntfStatusIs(const Kel::Ptr<const Ip6::Status>& s);
  void viaMetricStatusByVrfIs(const Kel::Ptr<const Rib::ViaMetricStatusByVrf>& s);
  void mcViaMetricStatusByVrfIs(const Kel::Ptr<const Rib::ViaMetricStatusByVrf>& s);
  void loopingRouteStatusByVrf4Is(const Kel::Ptr<const Rib::LoopingRouteStatusByVrf>& s);
  void loopingRouteStatusByVrf6Is(const Kel::Ptr<const Rib::LoopingRouteStatusByVrf>& s);
  void mcLoopingRouteStatusByVrf4Is(const Kel::Ptr<const Rib::LoopingRouteStatusByVrf>& s);
  void mcLoopingRouteStatusByVrf6Is(const Kel::Ptr<const Rib::LoopingRouteStatusByVrf>& s);

  // ------------------------------------------------------------ outputs
  const Kel::Ptr<Rib::Ip::ViaConfig>& ipv4AllVrfViaConfig() const { return viaConfig_[0].all; }
  const Kel::Ptr<Rib::Ip::ViaConfig>& ipv6AllVrfViaConfig() const { return viaConfig_[1].all; }
  const Kel::Ptr<Rib::Ip::ViaConfig>& mcIpv4AllVrfViaConfig() const { return viaConfig_[2].all; }
  const Kel::Ptr<Rib::Ip::ViaConfig>& mcIpv6AllVrfViaConfig() const { return viaConfig_[3].all; }
  const Kel::Ptr<Rib::Ip::ViaConfig>& ipv4DefaultVrfViaConfig() const {
    return viaConfig_[0].defaultVrf;
  }
  const Kel::Ptr<Rib::Ip::ViaConfig>& ipv6DefaultVrfViaConfig() const {
    return viaConfig_[1].defaultVrf;
  }
  const Kel::Ptr<Rib::Ip::ViaConfig>& mcIpv4DefaultVrfViaConfig() const {
    return viaConfig_[2].defaultVrf;
  }
  const Kel::Ptr<Rib::Ip::ViaConfig>& mcIpv6DefaultVrfViaConfig() const {
    return viaConfig_[3].defaultVrf;
  }
  const Kel::Ptr<Rib::Evpn::ViaConfig>& evpnConfig() const { return evpnConfig_; }
  const Kel::Ptr<Rib::RouteConfig>& ipv4AllVrfRibConfig() const { return allVrfRibConfig_[0]; }
  const Kel::Ptr<Rib::RouteConfig>& ipv6AllVrfRibConfig() const { return allVrfRibConfig_[1]; }
  const Kel::Ptr<Rib::RouteConfig>& mcIpv4AllVrfRibConfig() const { return allVrfRibConfig_[2]; }
  const Kel::Ptr<Rib::RouteConfig>& mcIpv6AllVrfRibConfig() const { return allVrfRibConfig_[3]; }
  // The same by family, for callers that serve all four.
  const Kel::Ptr<Rib::Ip::ViaConfig>& allVrfViaConfig(ReadyVrfSets::Kind k) const {
    return viaConfig_[int(k)].all;
  }
  const Kel::Ptr<Rib::RouteConfig>& allVrfRibConfig(ReadyVrfSets::Kind k) const {
    return allVrfRibConfig_[int(k)];
  }
  const Kel::Ptr<const Rib::LoopingRouteStatusByVrf>& loopingRouteStatusByVrf(
      ReadyVrfSets::Kind k) const {
    return looping_[int(k)];
  }
  const Kel::Ptr<Rib::ViaSetConfig>& viaSetConfig() const { return viaSetConfig_; }
  const Kel::Ptr<Rib::ViaSetConfig>& mcViaSetConfig() const { return mcViaSetConfig_; }
  // Keeps the present via set configuration when it has `key`, else makes a new one.
  void viaSetConfigIs(const Rib::ViaSetConfigKey& key);
  void mcViaSetConfigIs(const Rib::ViaSetConfigKey& key);

  // The default VRF's metric tables, refreshed from viaMetricStatusByVrf.
  const Kel::Ptr<const Rib::ViaMetricStatus>& ipv4DefaultVrfViaMetricStatus() const {
    return ipv4DefaultVrfViaMetricStatus_;
  }
  const Kel::Ptr<const Rib::ViaMetricStatus>& ipv6DefaultVrfViaMetricStatus() const {
    return ipv6DefaultVrfViaMetricStatus_;
  }
  const Kel::Ptr<const Rib::ViaMetricStatus>& evpnViaMetricStatus() const {
    return evpnViaMetricStatus_;
  }
  // Nothing here fills it; an outside writer may.
  const Kel::Ptr<const Rib::ViaMetricStatus>& mcIpv4DefaultVrfViaMetricStatus() const {
    return mcIpv4DefaultVrfViaMetricStatus_;
  }
  void mcIpv4DefaultVrfViaMetricStatusIs(const Kel::Ptr<const Rib::ViaMetricStatus>& s) {
    mcIpv4DefaultVrfViaMetricStatus_ = s;
  }
  void setIpv4DefaultVrfViaMetricStatus(std::string_view ribString);
  void setIpv6DefaultVrfViaMetricStatus(std::string_view ribString);
  void setEvpnViaMetricStatus();

  // ------------------------------------------------------------ children
  Rib::Ip::ViaConfigSm* ipv4AllVrfViaConfigSm() const { return allVrfViaConfigSm_[0].get(); }
  Rib::Ip::ViaConfigSm* ipv6AllVrfViaConfigSm() const { return allVrfViaConfigSm_[1].get(); }
  Rib::Ip::ViaConfigSm* mcIpv4AllVrfViaConfigSm() const { return allVrfViaConfigSm_[2].get(); }
  Rib::Ip::ViaConfigSm* mcIpv6AllVrfViaConfigSm() const { return allVrfViaConfigSm_[3].get(); }
  Rib::Evpn::ViaConfigSm* evpnViaConfigSm() const { return evpnViaConfigSm_.get(); }
  Rib::ViaSetConfigSm* viaSetConfigSm() const { return viaSetConfigSm_.get(); }
  Rib::ViaSetConfigSm* mcViaSetConfigSm() const { return mcViaSetConfigSm_.get(); }
  ViaMetricStatusSm* viaMetricStatusSm() const { return viaMetricStatusSm_.get(); }
  // Each keeps the present child when built from the same input, else replaces it.
  void doInitIpv4AllVrfViaConfigSm();
  void doInitIpv6AllVrfViaConfigSm();
  void doInitMcIpv4AllVrfViaConfigSm();
  void doInitMcIpv6AllVrfViaConfigSm();
  // The same by family, in ReadyVrfSets::Kind order.
  void doInitAllVrfViaConfigSm(int family);
  void evpnViaConfigSmIs(const Kel::Ptr<const Rib::Evpn::ViaConfig>& evpnConfig);
  void viaSetConfigSmIs(const Kel::Ptr<const Rib::ViaSetConfig>& viaSetConfig);
  void mcViaSetConfigSmIs(const Kel::Ptr<const Rib::ViaSetConfig>& mcViaSetConfig);
  void viaMetricStatusSmIs(const Kel::Ptr<const Rib::ViaMetricStatusByVrf>& viaMetricStatusByVrf,
                           const Kel::Ptr<RouteStatusDir>& routeStatusDir);
  // Creates the RouteStatusDir when there is none, notification on.
  void routeStatusDirIs();

  // ------------------------------------------------------------ start-up
  void handleInitialized();
  void doMountsComplete();

  // ------------------------------------------------------------ paths
  // "staticConfig" for protocol 2, "routeInput" for 4, else empty.
  Kel::String protocolName() const;
  Kel::String allVrfViaConfigMount(std::string_view ribString, Rib::Transport transport) const;
  Kel::String viaConfigMount(Vrf::VrfIdMap::VrfId vrfId, std::string_view ribString,
                             Rib::Transport transport) const;
  Kel::String ribMount(Vrf::VrfIdMap::VrfId vrfId, std::string_view ribString,
                       std::string_view afString) const;
  // This protocol's metric table of a VRF and transport; null (traced) when absent.
  Kel::Ptr<const Rib::ViaMetricStatus> viaMetricStatus(Rib::Transport transport,
                                                       Vrf::VrfIdMap::VrfId vrfId,
                                                       std::string_view ribString) const;

  // ------------------------------------------------------------ VRF lifecycle
  const ReadyVrfSets::NameSet& readyVrfIpv4() const { return sets(Kind::ipv4); }
  const ReadyVrfSets::NameSet& readyVrfIpv6() const { return sets(Kind::ipv6); }
  const ReadyVrfSets::NameSet& mcReadyVrfIpv4() const { return sets(Kind::mcIpv4); }
  const ReadyVrfSets::NameSet& mcReadyVrfIpv6() const { return sets(Kind::mcIpv6); }
  bool readyVrfIpv4Has(const L3::VrfName& n) const { return ready_->has(Kind::ipv4, n); }
  bool readyVrfIpv6Has(const L3::VrfName& n) const { return ready_->has(Kind::ipv6, n); }
  bool mcReadyVrfIpv4Has(const L3::VrfName& n) const { return ready_->has(Kind::mcIpv4, n); }
  bool mcReadyVrfIpv6Has(const L3::VrfName& n) const { return ready_->has(Kind::mcIpv6, n); }
  void readyVrfIpv4Is(const L3::VrfName& n) { ready_->nameIs(Kind::ipv4, n); }
  void readyVrfIpv6Is(const L3::VrfName& n) { ready_->nameIs(Kind::ipv6, n); }
  void mcReadyVrfIpv4Is(const L3::VrfName& n) { ready_->nameIs(Kind::mcIpv4, n); }
  void mcReadyVrfIpv6Is(const L3::VrfName& n) { ready_->nameIs(Kind::mcIpv6, n); }
  void readyVrfIpv4Del(const L3::VrfName& n) { ready_->nameDel(Kind::ipv4, n); }
  void readyVrfIpv6Del(const L3::VrfName& n) { ready_->nameDel(Kind::ipv6, n); }
  void mcReadyVrfIpv4Del(const L3::VrfName& n) { ready_->nameDel(Kind::mcIpv4, n); }
  void mcReadyVrfIpv6Del(const L3::VrfName& n) { ready_->nameDel(Kind::mcIpv6, n); }
  void readyVrfIpv4DelAll() { ready_->nameDelAll(Kind::ipv4); }
  void readyVrfIpv6DelAll() { ready_->nameDelAll(Kind::ipv6); }
  void mcReadyVrfIpv4DelAll() { ready_->nameDelAll(Kind::mcIpv4); }
  void mcReadyVrfIpv6DelAll() { ready_->nameDelAll(Kind::mcIpv6); }
  // The sets as one entity, for watchers.
  const Kel::Ptr<ReadyVrfSets>& readyVrfSets() const { return ready_; }

  void handleVrfNameToIdMap();
  void setReadyVrf(const L3::VrfName& vrfName);
  void setReadyVrfIpv4(const L3::VrfName& vrfName);
  void setReadyVrfIpv6(const L3::VrfName& vrfName);
  void setMcReadyVrf(const L3::VrfName& vrfName);
  void setMcReadyVrfIpv4(const L3::VrfName& vrfName);
  void setMcReadyVrfIpv6(const L3::VrfName& vrfName);
  void handleViaMetricStatus(Vrf::VrfIdMap::VrfId vrfId);
  void handleMcViaMetricStatus(Vrf::VrfIdMap::VrfId vrfId);

  // The VRF's tables, mounted while it is ready (agent entry points).
  void doMountContainer4(const L3::VrfName& vrfName);
  void doMountContainer6(const L3::VrfName& vrfName);
  void doMountMcContainer4(const L3::VrfName& vrfName);
  void doMountMcContainer6(const L3::VrfName& vrfName);
  void doCleanupContainer4(const L3::VrfName& vrfName, Vrf::VrfIdMap::VrfId vrfId);
  void doCleanupContainer6(const L3::VrfName& vrfName, Vrf::VrfIdMap::VrfId vrfId);
  void doCleanupMcContainer4(const L3::VrfName& vrfName, Vrf::VrfIdMap::VrfId vrfId);
  void doCleanupMcContainer6(const L3::VrfName& vrfName, Vrf::VrfIdMap::VrfId vrfId);
  void doDeleteViasForVrf(Vrf::VrfIdMap::VrfId vrfId,
                          const Kel::Ptr<Rib::Ip::ViaConfig>& viaConfig);
  // A per-VRF table mounted by doMountContainer...; null when not mounted.
  Kel::Ptr<Rib::RouteConfig> vrfRibConfig(Vrf::VrfIdMap::VrfId vrfId, std::string_view ribString,
                                          std::string_view afString) const;
  Kel::Ptr<Rib::Ip::ViaConfig> vrfViaConfig(Vrf::VrfIdMap::VrfId vrfId, std::string_view ribString,
                                            Rib::Transport transport) const;
  // The VRFs' tables this root holds mounted now.
  uint32_t mountedVrfTables() const { return uint32_t(mounts_.size()); }

  // ------------------------------------------------------------ readiness
  void grStateIs(bool gracefulRestart);
  void doCreateOrDeleteVrfAsuState(const L3::VrfName& vrfName);
  void maybeSetRoutesReady(const L3::VrfName& vrfName);
  void handleRibSeqTrigger(const L3::VrfName& vrfName);
  void maybeUpdateRibReadySeqStatus(const L3::VrfName& vrfName);
  void handleStartReadyVerification();

  // ------------------------------------------------------------ dump
  void dumpState(const Kel::Ptr<const Quay::DumpContext>& dumpCtx, uint32_t indentCount) const;

 private:
  using Kind = ReadyVrfSets::Kind;
  class KelVrfIdStatus;
  class KelVrfNameStatus;
  class KelNameToIdMap;
  class KelIpv4IntfStatus;
  class KelIpv6IntfStatus;
  class KelLoopingRouteStatusByVrf;
  class KelViaMetricStatusByVrf;
  class KelVrfMetricStatus;
  class KelTransportStatus;
  class KelGrState;
  class KelAllVrfReadyStatus;
  class KelVrfReadyStatus;
  class KelAllVrfRibSeqTrigger;
  class KelVrfRibSeqTrigger;

  // One family of IP via configuration: "rib"/"mrib" and IPv4/IPv6.
  struct ViaConfigFamily {
    Kel::Ptr<Rib::Ip::ViaConfig> all;
    Kel::Ptr<Rib::Ip::ViaConfig> defaultVrf;
  };
  // A family's evaluation: which set, which inputs, which messages.
  struct UnicastFamily;
  struct MulticastFamily;

  const ReadyVrfSets::NameSet& sets(Kind k) const { return ready_->set(k); }
  Vrf::VrfIdMap::VrfId vrfIdOf(const L3::VrfName& vrfName) const;
  Kel::String protocolString() const;
  void setReadyVrfFamily(const UnicastFamily& family, const L3::VrfName& vrfName);
  void setMcReadyVrfFamily(const MulticastFamily& family, const L3::VrfName& vrfName);
  void handleMetricStatusOf(bool multicast, Vrf::VrfIdMap::VrfId vrfId);
  // The invalid entry when the table stays corrupt.
  Vrf::VrfIdMap::VrfEntry vrfEntryOf(Vrf::VrfIdMap::VrfId vrfId) const;
  // The VRF's readiness record and the sequence number asked of it; a null
  // record when either record is missing.
  std::pair<Kel::Ptr<VrfReadyStatus>, uint32_t> seqTriggerOf(const L3::VrfName& vrfName) const;
  void doMountViaConfigFamily(int family);
  void doMountAllVrfRibConfigs();
  void doMountEvpnConfig();
  void doMountViaSets(std::string_view ribString, const Kel::Ptr<Rib::ViaSetConfig>& config);
  void doMountContainer(const L3::VrfName& vrfName, std::string_view ribString,
                        std::string_view afString, Rib::Transport transport, const char* function);
  void doCleanupContainer(const L3::VrfName& vrfName, Vrf::VrfIdMap::VrfId vrfId,
                          std::string_view ribString, std::string_view afString,
                          Rib::Transport transport, const Kel::Ptr<Rib::RouteConfig>& allVrf,
                          const char* function);
  // A new mount of a table through KelBrisk, with one collection's capacity
  // (none when `collection` is null); capacities saturate at 32 bits.
  Kel::Ptr<KelBrisk::Mount> doMountTable(const Kel::String& path, const char* typeName,
                                         uint32_t tableType, const char* collection,
                                         uint64_t capacity) const;
  // A table of start-up, held until the root goes.
  Kel::Ptr<Kel::Entity> doMountStartTable(const Kel::String& path, const char* typeName,
                                          uint32_t tableType, const char* collection,
                                          uint64_t capacity);
  // A VRF's table, held by path until its container is cleaned up; a path
  // held already is not mounted again.
  void doMountVrfTable(const Kel::String& path, const char* typeName, const char* collection,
                       uint32_t capacity);
  void doUnmountVrfTable(const Kel::String& path);
  Kel::Ptr<Kel::Entity> vrfTable(const Kel::String& path) const;
  bool isAllVrfViaConfig(std::string_view ribString, std::string_view afString) const;
  bool isAllVrfRouteConfig(std::string_view ribString, std::string_view afString) const;
  void loopingIs(int index, const Kel::Ptr<const Rib::LoopingRouteStatusByVrf>& s);
  void metricByVrfIs(bool multicast, const Kel::Ptr<const Rib::ViaMetricStatusByVrf>& s);
  void rebindNameToIdMap();

  // Arguments.
  Kel::Ptr<Cairn::EntityManager> entityManager_;
  Kel::Ptr<Cairn::MountGroup> mountGroup_;
  Kel::Ptr<KelSharedMem::EntityManager> shmemEm_;
  Kel::Ptr<KelSharedMem::MountGroup> shmemMg_;
  uint32_t maxRoutes_;
  uint32_t maxViaSets_;
  uint32_t maxVrfs_;
  Rib::RoutingProtocol protocol_;
  Kel::Ptr<AllVrfReadyStatus> allVrfReadyStatus_;
  Kel::Ptr<AllVrfRibSeqTrigger> allVrfRibSeqTrigger_;

  bool initialized_ = false;
  bool ipIntfCheckNotNeeded_ = false;
  // A unicast family is never evaluated before its interface status was bound.
  bool ipv4IntfStatusBound_ = false;
  bool ipv6IntfStatusBound_ = false;
  Kel::Ptr<RouteStatusDir> routeStatusDir_;
  Kel::Ptr<GrState> grState_;
  Kel::Ptr<ReadyVrfSets> ready_;

  // Inputs.
  Kel::Ptr<const Vrf::VrfIdMap::Status> vrfIdStatus_;
  Kel::Ptr<const Vrf::VrfIdMap::NameToIdMapWrapper> vrfNameStatus_;
  Kel::Ptr<const Ip::Status> ipv4IntfStatus_;
  Kel::Ptr<const Ip6::Status> ipv6IntfStatus_;
  Kel::Ptr<const Rib::ViaMetricStatusByVrf> viaMetricStatusByVrf_;
  Kel::Ptr<const Rib::ViaMetricStatusByVrf> mcViaMetricStatusByVrf_;
  // Unicast IPv4, unicast IPv6, multicast IPv4, multicast IPv6.
  Kel::Ptr<const Rib::LoopingRouteStatusByVrf> looping_[4];
  Kel::Ptr<const Rib::Ip::GlobalNextHopDependencyGraph> nhdGraph_;
  Kel::Ptr<const Rib::Ip::GlobalNextHopDependencyGraph> mcNhdGraph_;

  // Outputs: IP via configurations by family, as looping_.
  ViaConfigFamily viaConfig_[4];
  Kel::Ptr<Rib::Evpn::ViaConfig> evpnConfig_;
  Kel::Ptr<Rib::RouteConfig> allVrfRibConfig_[4];
  Kel::Ptr<Rib::ViaSetConfig> viaSetConfig_;
  Kel::Ptr<Rib::ViaSetConfig> mcViaSetConfig_;
  Kel::Ptr<const Rib::ViaMetricStatus> ipv4DefaultVrfViaMetricStatus_;
  Kel::Ptr<const Rib::ViaMetricStatus> ipv6DefaultVrfViaMetricStatus_;
  Kel::Ptr<const Rib::ViaMetricStatus> evpnViaMetricStatus_;
  Kel::Ptr<const Rib::ViaMetricStatus> mcIpv4DefaultVrfViaMetricStatus_;
  // The tables mounted at start-up, and the VRFs' tables by path.
  std::vector<Kel::Ptr<KelBrisk::Mount>> startMounts_;
  std::map<Kel::String, Kel::Ptr<KelBrisk::Mount>> mounts_;

  // Children.
  Kel::NestedReactor<Rib::Ip::ViaConfigSm> allVrfViaConfigSm_[4];
  Kel::NestedReactor<Rib::Evpn::ViaConfigSm> evpnViaConfigSm_;
  Kel::NestedReactor<Rib::ViaSetConfigSm> viaSetConfigSm_;
  Kel::NestedReactor<Rib::ViaSetConfigSm> mcViaSetConfigSm_;
  Kel::NestedReactor<ViaMetricStatusSm> viaMetricStatusSm_;

  // Watchers of the inputs and the readiness records.
  Kel::NestedReactor<KelVrfIdStatus> kelVrfIdStatus_;
  Kel::NestedReactor<KelVrfNameStatus> kelVrfNameStatus_;
  Kel::NestedReactor<KelNameToIdMap> kel_NameToIdMapIn_;
  Kel::NestedReactor<KelIpv4IntfStatus> kelIpv4IntfStatus_;
  Kel::NestedReactor<KelIpv6IntfStatus> kelIpv6IntfStatus_;
  Kel::NestedReactor<KelLoopingRouteStatusByVrf> kelLooping_[4];
  Kel::NestedReactor<KelViaMetricStatusByVrf> kelViaMetricStatusByVrf_;
  Kel::NestedReactor<KelViaMetricStatusByVrf> kelMcViaMetricStatusByVrf_;
  Kel::NestedReactors<Vrf::VrfIdMap::VrfId, KelVrfMetricStatus> vrfMetricStatus_;
  Kel::NestedReactors<Vrf::VrfIdMap::VrfId, KelVrfMetricStatus> mcVrfMetricStatus_;
  Kel::NestedReactor<KelGrState> kelGrState_;
  Kel::NestedReactor<KelAllVrfReadyStatus> kelAllVrfReadyStatus_;
  Kel::NestedReactor<KelAllVrfRibSeqTrigger> kelAllVrfRibSeqTrigger_;
  Kel::NestedReactors<L3::VrfName, KelVrfReadyStatus> vrfReadyStatus_;
  Kel::NestedReactors<L3::VrfName, KelVrfRibSeqTrigger> vrfRibSeqTrigger_;
};

// Takes RootSm's constructor arguments.
Kel::Ptr<RootSm> rootSmFactory(const Kel::Ptr<Cairn::EntityManager>& entityManager,
                               const Kel::Ptr<Cairn::MountGroup>& mountGroup,
                               const Kel::Ptr<KelSharedMem::EntityManager>& shmemEm,
                               const Kel::Ptr<KelSharedMem::MountGroup>& shmemMg,
                               uint32_t maxRoutes, uint32_t maxViaSets, uint32_t maxVrfs,
                               Rib::RoutingProtocol protocol,
                               const Kel::Ptr<AllVrfReadyStatus>& allVrfReadyStatus,
                               const Kel::Ptr<AllVrfRibSeqTrigger>& allVrfRibSeqTrigger);

}  // namespace Routing::Protocol
