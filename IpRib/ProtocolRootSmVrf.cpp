// RootSm: the VRF lifecycle. Per VRF and family, whether every input its
// container needs is there (the four ready sets), and the VRF's own route
// and via tables, mounted while it is ready and cleaned up after.
#include <iomanip>
#include <vector>

#include "IpRib/ProtocolRootSm.h"
#include "IpRib/ProtocolRootSmTrace.h"
#include "Kel/Assert.h"
#include "platform/Vigil/CorruptionDetectedException.h"

namespace Routing::Protocol {

// What differs between the unicast families: the set, the inputs and the texts.
struct RootSm::UnicastFamily {
  const char* function;
  Kind kind;
  Rib::Transport transport;
  int looping;  // index of the looping-route input
  void (RootSm::*mount)(const L3::VrfName&);
  const char* noMetric;
  const char* noIntf;
  const char* noLooping;
};

struct RootSm::MulticastFamily {
  const char* function;
  Kind kind;
  Rib::Transport transport;
  int looping;
  const char* noMetric;
  const char* noIntf;
  const char* noLooping;
  const char* ready;
  const char* notReady;
};

// A missing input of a VRF: the function, the message and the name.
#define ROOT_MISSING(function, message, vrfName) \
  ROOT_DUALLOG(9, function << message << vrfName, "%s%s%s", function, message, (vrfName).value())

Vrf::VrfIdMap::VrfId RootSm::vrfIdOf(const L3::VrfName& vrfName) const {
  const Vrf::VrfIdMap::NameToIdMap* map = nameToIdMap();
  return map ? map->vrfNameToId(vrfName) : Vrf::VrfIdMap::invalidVrfId;
}

void RootSm::handleVrfNameToIdMap() {
  ROOT_DUALLOG(8, "handleVrfNameToIdMap", "handleVrfNameToIdMap");
  const Vrf::VrfIdMap::NameToIdMap* map = nameToIdMap();
  if (!initialized_ || map == nullptr) return;
  // The handlers build containers; take the names first.
  std::vector<L3::VrfName> names;
  names.reserve(map->vrfNameToIdSize());
  for (const auto& entry : map->vrfNameToId()) names.push_back(entry.name);
  for (const L3::VrfName& name : names) {
    doCreateOrDeleteVrfAsuState(name);
    setReadyVrf(name);
    // Only IPv4 multicast here; IPv6 multicast waits for its own triggers.
    setMcReadyVrfIpv4(name);
  }
}

void RootSm::setReadyVrf(const L3::VrfName& vrfName) {
  ROOT_DUALLOG(8,
               "setReadyVrf"
                   << "(" << vrfName << ")",
               "setReadyVrf(%s)", vrfName.value());
  KEL_ASSERT(allVrfReadyStatus_);
  setReadyVrfIpv4(vrfName);
  setReadyVrfIpv6(vrfName);
}

void RootSm::setMcReadyVrf(const L3::VrfName& vrfName) {
  setMcReadyVrfIpv4(vrfName);
  setMcReadyVrfIpv6(vrfName);
}

void RootSm::setReadyVrfIpv4(const L3::VrfName& vrfName) {
  static const UnicastFamily family{"setReadyVrfIpv4",
                                    Kind::ipv4,
                                    Rib::Transport::ipv4,
                                    0,
                                    &RootSm::doMountContainer4,
                                    ", No V4 ViaMetricStatus for vrf ",
                                    ", No V4 IpIntfStatus for vrf ",
                                    ", No V4 LoopingRouteStatus for vrf "};
  setReadyVrfFamily(family, vrfName);
}

void RootSm::setReadyVrfIpv6(const L3::VrfName& vrfName) {
  static const UnicastFamily family{"setReadyVrfIpv6",
                                    Kind::ipv6,
                                    Rib::Transport::ipv6,
                                    1,
                                    &RootSm::doMountContainer6,
                                    ", No V6 ViaMetricStatus for vrf ",
                                    ", No V6 IpIntfStatus for vrf ",
                                    ", No V6 LoopingRouteStatus vrf "};
  setReadyVrfFamily(family, vrfName);
}

void RootSm::setReadyVrfFamily(const UnicastFamily& family, const L3::VrfName& vrfName) {
  if (!initialized_) return;
  const Vrf::VrfIdMap::VrfId vrfId = vrfIdOf(vrfName);
  if (vrfId == Vrf::VrfIdMap::invalidVrfId) {
    ready_->nameDel(family.kind, vrfName);
    return;
  }
  (this->*family.mount)(vrfName);
  const bool ipv6 = family.kind == Kind::ipv6;
  KEL_ASSERT(ipv6 ? ipv6IntfStatusBound_ : ipv4IntfStatusBound_);
  const bool metric = bool(viaMetricStatus(family.transport, vrfId, Rib::ribString));
  const bool looping = looping_[family.looping] && looping_[family.looping]->vrfStatus(vrfName);
  const bool intf = ipv6 ? ipv6IntfStatus_ && ipv6IntfStatus_->vrfIp6IntfStatus(vrfName)
                         : ipv4IntfStatus_ && ipv4IntfStatus_->vrfIpIntfStatus(vrfName);
  const char* fn = family.function;
  if (!metric) ROOT_MISSING(fn, family.noMetric, vrfName);
  if (!evpnViaMetricStatus_) ROOT_MISSING(fn, ", No Evpn ViaMetricStatus for vrf ", vrfName);
  if (!intf) ROOT_MISSING(fn, family.noIntf, vrfName);
  if (!looping) ROOT_MISSING(fn, family.noLooping, vrfName);
  if (!ipv4DefaultVrfViaMetricStatus_) {
    ROOT_DUALLOG(9, fn << ", No V4 DefaultVrf ViaMetricStatus",
                 "%s, No V4 DefaultVrf ViaMetricStatus", fn);
  }
  if (!ipv6DefaultVrfViaMetricStatus_) {
    ROOT_DUALLOG(9, fn << ", No V6 DefaultVrf ViaMetricStatus",
                 "%s, No V6 DefaultVrf ViaMetricStatus", fn);
  }
  const bool ready = metric && evpnViaMetricStatus_ && (intf || ipIntfCheckNotNeeded_) && looping &&
                     ipv4DefaultVrfViaMetricStatus_ && ipv6DefaultVrfViaMetricStatus_;
  if (ready) {
    ROOT_DUALLOG(9, "Attempt to create container sm for vrf " << vrfName,
                 "Attempt to create container sm for vrf %s", vrfName.value());
    ready_->nameIs(family.kind, vrfName);
  } else {
    ROOT_DUALLOG(9, "Deleting container sm for vrf " << vrfName, "Deleting container sm for vrf %s",
                 vrfName.value());
    ready_->nameDel(family.kind, vrfName);
  }
  maybeSetRoutesReady(vrfName);
}

void RootSm::setMcReadyVrfIpv4(const L3::VrfName& vrfName) {
  static const MulticastFamily family{"setMcReadyVrfIpv4",
                                      Kind::mcIpv4,
                                      Rib::Transport::ipv4,
                                      2,
                                      ", No V4 McViaMetricStatus for vrf ",
                                      ", No V4 McIpIntfStatus for vrf ",
                                      ", No V4 McLoopingRouteStatus for vrf ",
                                      "Attempt to create McContainer sm for vrf ",
                                      "Deleting McContainer sm for vrf "};
  setMcReadyVrfFamily(family, vrfName);
}

void RootSm::setMcReadyVrfIpv6(const L3::VrfName& vrfName) {
  static const MulticastFamily family{"setMcReadyVrfIpv6",
                                      Kind::mcIpv6,
                                      Rib::Transport::ipv6,
                                      3,
                                      ", No V6 McViaMetricStatus for vrf ",
                                      ", No V6 McIpIntfStatus for vrf ",
                                      ", No V6 McLoopingRouteStatus for vrf ",
                                      "Attempt to create V6 McContainer sm for vrf ",
                                      "Deleting V6 McContainer sm for vrf "};
  setMcReadyVrfFamily(family, vrfName);
}

void RootSm::setMcReadyVrfFamily(const MulticastFamily& family, const L3::VrfName& vrfName) {
  if (!initialized_) return;
  const char* fn = family.function;
  if (!Rib::RoutingProtocolHelper::mribProtocol(protocol_)) {
    ROOT_DUALLOG(9, fn << " No Mrib routing protocol configured",
                 "%s No Mrib routing protocol configured", fn);
    ready_->nameDel(family.kind, vrfName);
    return;
  }
  const Vrf::VrfIdMap::VrfId vrfId = vrfIdOf(vrfName);
  if (vrfId == Vrf::VrfIdMap::invalidVrfId) {
    ready_->nameDel(family.kind, vrfName);
    return;
  }
  const bool ipv6 = family.kind == Kind::mcIpv6;
  const bool metric = bool(viaMetricStatus(family.transport, vrfId, Rib::mribString));
  const bool intf = ipv6 ? ipv6IntfStatus_ && ipv6IntfStatus_->vrfIp6IntfStatus(vrfName)
                         : ipv4IntfStatus_ && ipv4IntfStatus_->vrfIpIntfStatus(vrfName);
  const bool looping = looping_[family.looping] && looping_[family.looping]->vrfStatus(vrfName);
  if (!metric) ROOT_MISSING(fn, family.noMetric, vrfName);
  if (!intf) ROOT_MISSING(fn, family.noIntf, vrfName);
  if (!looping) ROOT_MISSING(fn, family.noLooping, vrfName);
  if (metric && intf && looping) {
    ROOT_DUALLOG(9, family.ready << vrfName, "%s%s", family.ready, vrfName.value());
    ready_->nameIs(family.kind, vrfName);
  } else {
    ROOT_DUALLOG(9, family.notReady << vrfName, "%s%s", family.notReady, vrfName.value());
    ready_->nameDel(family.kind, vrfName);
  }
}

// ------------------------------------------------------------ metric status triggers

void RootSm::handleViaMetricStatus(Vrf::VrfIdMap::VrfId vrfId) {
  handleMetricStatusOf(false, vrfId);
}

void RootSm::handleMcViaMetricStatus(Vrf::VrfIdMap::VrfId vrfId) {
  handleMetricStatusOf(true, vrfId);
}

Vrf::VrfIdMap::VrfEntry RootSm::vrfEntryOf(Vrf::VrfIdMap::VrfId vrfId) const {
  // A corrupt read is reported to the table, which repairs it; then read again.
  for (uint32_t reads = 1;; ++reads) {
    try {
      return vrfIdStatus_->vrfEntry(vrfId);
    } catch (const Vigil::CorruptionDetectedException& e) {
      vrfIdStatus_->doCorruptionDetected(e.what());
      if (reads == maxCorruptReads) {
        ROOT_DUALLOG(0, "vrfEntry(" << vrfId << "), still corrupt: " << e.what(),
                     "vrfEntry(%s), still corrupt: %s", vrfId, std::string_view(e.what()));
        return Vrf::VrfIdMap::VrfEntry();
      }
    }
  }
}

void RootSm::handleMetricStatusOf(bool multicast, Vrf::VrfIdMap::VrfId vrfId) {
  const char* fn = multicast ? "handleMcViaMetricStatus" : "handleViaMetricStatus";
  ROOT_DUALLOG(8, fn, "%s", fn);
  if (!vrfIdStatus_) {
    ROOT_DUALLOG(9,
                 fn << "(" << vrfId << ")"
                    << ", Vrf ID status is null",
                 "%s(%s), Vrf ID status is null", fn, vrfId);
    return;
  }
  const Vrf::VrfIdMap::VrfEntry entry = vrfEntryOf(vrfId);
  if (entry.vrfId() == Vrf::VrfIdMap::invalidVrfId) {
    ROOT_DUALLOG(9,
                 fn << "(" << vrfId << ")"
                    << ", No Vrf Entry",
                 "%s(%s), No Vrf Entry", fn, vrfId);
    return;
  }
  if (!multicast && vrfId == Vrf::VrfIdMap::defaultVrfId) {
    setIpv4DefaultVrfViaMetricStatus(Rib::ribString);
    setIpv6DefaultVrfViaMetricStatus(Rib::ribString);
    setEvpnViaMetricStatus();
  }
  // Only this VRF: the others see a new default-VRF status at their next trigger.
  const L3::VrfName vrfName = entry.vrfName();
  if (multicast) {
    setMcReadyVrf(vrfName);
  } else {
    setReadyVrf(vrfName);
  }
}

// ------------------------------------------------------------ per-VRF tables

void RootSm::doMountVrfTable(const Kel::String& path, const char* typeName, const char* collection,
                             uint32_t capacity) {
  if (mounts_.count(path) != 0) return;
  mounts_.emplace(path, doMountTable(path, typeName, 0, collection, capacity));
}

void RootSm::doUnmountVrfTable(const Kel::String& path) {
  const auto it = mounts_.find(path);
  if (it == mounts_.end()) return;
  const Kel::Ptr<KelBrisk::Mount> mount = it->second;
  mounts_.erase(it);
  mount->cleanup();
  mount->doUnmount();
}

Kel::Ptr<Kel::Entity> RootSm::vrfTable(const Kel::String& path) const {
  const auto it = mounts_.find(path);
  return it == mounts_.end() ? nullptr : it->second->getEntity();
}

Kel::Ptr<Rib::RouteConfig> RootSm::vrfRibConfig(Vrf::VrfIdMap::VrfId vrfId,
                                                std::string_view ribString,
                                                std::string_view afString) const {
  return Kel::Ptr<Rib::RouteConfig>(
      dynamic_cast<Rib::RouteConfig*>(vrfTable(ribMount(vrfId, ribString, afString)).ptr()));
}

Kel::Ptr<Rib::Ip::ViaConfig> RootSm::vrfViaConfig(Vrf::VrfIdMap::VrfId vrfId,
                                                  std::string_view ribString,
                                                  Rib::Transport transport) const {
  return Kel::Ptr<Rib::Ip::ViaConfig>(dynamic_cast<Rib::Ip::ViaConfig*>(
      vrfTable(viaConfigMount(vrfId, ribString, transport)).ptr()));
}

void RootSm::doMountContainer(const L3::VrfName& vrfName, std::string_view ribString,
                              std::string_view afString, Rib::Transport transport,
                              const char* function) {
  // An unknown name mounts the tables of the invalid id.
  const Vrf::VrfIdMap::VrfId vrfId = vrfIdOf(vrfName);
  ROOT_DUALLOG(8, function << "(" << vrfName << "), VRF ID: " << std::hex << vrfId << std::dec,
               "%s(%s), VRF ID: %s", function, vrfName.value(), vrfId);
  if (!isAllVrfRouteConfig(ribString, afString)) {
    doMountVrfTable(ribMount(vrfId, ribString, afString), "Routing::Rib::RouteConfig", "route",
                    maxRoutes_);
  }
  if (!isAllVrfViaConfig(ribString, afString)) {
    doMountVrfTable(viaConfigMount(vrfId, ribString, transport), "Routing::Rib::Ip::ViaConfig",
                    "via", maxViaSets_);
  }
}

void RootSm::doMountContainer4(const L3::VrfName& vrfName) {
  doMountContainer(vrfName, Rib::ribString, "ipv4", Rib::Transport::ipv4, "doMountContainer4");
}
void RootSm::doMountContainer6(const L3::VrfName& vrfName) {
  doMountContainer(vrfName, Rib::ribString, "ipv6", Rib::Transport::ipv6, "doMountContainer6");
}
void RootSm::doMountMcContainer4(const L3::VrfName& vrfName) {
  doMountContainer(vrfName, Rib::mribString, "ipv4", Rib::Transport::ipv4, "doMountMcContainer4");
}
void RootSm::doMountMcContainer6(const L3::VrfName& vrfName) {
  doMountContainer(vrfName, Rib::mribString, "ipv6", Rib::Transport::ipv6, "doMountMcContainer6");
}

void RootSm::doCleanupContainer(const L3::VrfName& vrfName, Vrf::VrfIdMap::VrfId vrfId,
                                std::string_view ribString, std::string_view afString,
                                Rib::Transport transport, const Kel::Ptr<Rib::RouteConfig>& allVrf,
                                const char* function) {
  ROOT_DUALLOG(8, function << "(" << vrfName << "), VRF ID: " << vrfId, "%s(%s), VRF ID: %s",
               function, vrfName.value(), vrfId);
  if (isAllVrfRouteConfig(ribString, afString)) {
    if (allVrf) allVrf->doDeleteRoutesForVrf(vrfId);
  } else {
    doUnmountVrfTable(ribMount(vrfId, ribString, afString));
  }
  // A shared via table keeps the VRF's vias until doDeleteViasForVrf.
  if (!isAllVrfViaConfig(ribString, afString)) {
    doUnmountVrfTable(viaConfigMount(vrfId, ribString, transport));
  }
}

void RootSm::doCleanupContainer4(const L3::VrfName& vrfName, Vrf::VrfIdMap::VrfId vrfId) {
  doCleanupContainer(vrfName, vrfId, Rib::ribString, "ipv4", Rib::Transport::ipv4,
                     allVrfRibConfig_[0], "doCleanupContainer4");
}
void RootSm::doCleanupContainer6(const L3::VrfName& vrfName, Vrf::VrfIdMap::VrfId vrfId) {
  doCleanupContainer(vrfName, vrfId, Rib::ribString, "ipv6", Rib::Transport::ipv6,
                     allVrfRibConfig_[1], "doCleanupContainer6");
}
void RootSm::doCleanupMcContainer4(const L3::VrfName& vrfName, Vrf::VrfIdMap::VrfId vrfId) {
  doCleanupContainer(vrfName, vrfId, Rib::mribString, "ipv4", Rib::Transport::ipv4,
                     allVrfRibConfig_[2], "doCleanupMcContainer4");
}
void RootSm::doCleanupMcContainer6(const L3::VrfName& vrfName, Vrf::VrfIdMap::VrfId vrfId) {
  doCleanupContainer(vrfName, vrfId, Rib::mribString, "ipv6", Rib::Transport::ipv6,
                     allVrfRibConfig_[3], "doCleanupMcContainer6");
}

void RootSm::doDeleteViasForVrf(Vrf::VrfIdMap::VrfId vrfId,
                                const Kel::Ptr<Rib::Ip::ViaConfig>& viaConfig) {
  ROOT_DUALLOG(8,
               "doDeleteViasForVrf"
                   << " (" << vrfId << ")",
               "doDeleteViasForVrf (%s)", vrfId);
  if (!viaConfig) return;
  std::vector<Rib::ViaKey> doomed;
  for (uint32_t reads = 1;; ++reads) {
    doomed.clear();
    try {
      viaConfig->forEachVia([&](const Rib::ViaKey& key, const Rib::Via&) {
        if (key.vrfId() == vrfId) doomed.push_back(key);
      });
      break;
    } catch (const Vigil::CorruptionDetectedException& e) {
      viaConfig->doCorruptionDetected(e.what());
      if (reads == maxCorruptReads) {
        ROOT_DUALLOG(0, "doDeleteViasForVrf (" << vrfId << "), still corrupt: " << e.what(),
                     "doDeleteViasForVrf (%s), still corrupt: %s", vrfId,
                     std::string_view(e.what()));
        return;
      }
    }
  }
  for (const Rib::ViaKey& key : doomed) viaConfig->viaDel(key);
}

}  // namespace Routing::Protocol
