// RootSm: construction, the watchers of its inputs, start-up and mounts,
// child reactors, path builders and the state dump. The VRF lifecycle is in
// ProtocolRootSmVrf.cpp, the readiness handshake in ProtocolRootSmReady.cpp.
#include "IpRib/ProtocolRootSm.h"

#include <algorithm>
#include <cstdlib>
#include <string>

#include "IpRib/ProtocolRootSmTrace.h"
#include "Kel/Assert.h"
#include "platform/Routing/RouteConfigLib.h"
#include "platform/Routing/ViaConfigLib.h"

namespace Routing::Protocol {

namespace {

// At namespace scope, so that the facility is registered (and its levels
// settable) before the first root traces.
Kel::TraceFacility trace("IpRib::ProtocolRootSm");

constexpr uint32_t tableTypeConfig = 0;
constexpr uint32_t tableTypeNhdGraph = 2;
constexpr uint32_t tableTypeVrfIdMap = 3;

// Tables that hold every VRF at once multiply a per-VRF capacity; the product
// saturates rather than wraps.
uint64_t times(uint32_t a, uint32_t b) { return uint64_t(a) * uint64_t(b); }

// The rib string, address-family string and transport of each IP via
// configuration family, in the order of RootSm's arrays.
struct IpFamily {
  const char* rib;
  const char* af;
  Rib::Transport transport;
};
constexpr IpFamily ipFamilies[4] = {{Rib::ribString, "ipv4", Rib::Transport::ipv4},
                                    {Rib::ribString, "ipv6", Rib::Transport::ipv6},
                                    {Rib::mribString, "ipv4", Rib::Transport::ipv4},
                                    {Rib::mribString, "ipv6", Rib::Transport::ipv6}};

template <class T>
Kel::Ptr<T> as(const Kel::Ptr<Kel::Entity>& e) {
  return Kel::Ptr<T>(dynamic_cast<T*>(e.ptr()));
}

}  // namespace

Kel::TraceFacility& rootSmTrace() { return trace; }

// ------------------------------------------------------------ ReadyVrfSets

void ReadyVrfSets::nameIs(Kind k, const L3::VrfName& name) {
  if (sets_[int(k)].insert(L3::VrfName(name)).second) notifyName(k, name);
}

void ReadyVrfSets::nameDel(Kind k, const L3::VrfName& name) {
  if (sets_[int(k)].erase(name)) notifyName(k, name);
}

void ReadyVrfSets::nameDelAll(Kind k) {
  while (!sets_[int(k)].empty()) {
    const L3::VrfName name = *sets_[int(k)].begin();
    nameDel(k, name);
  }
}

void ReadyVrfSets::notifyName(Kind k, const L3::VrfName& name) {
  switch (k) {
    case Kind::ipv4:
      return notifyKey(&Notifiee::onReadyVrfIpv4, name);
    case Kind::ipv6:
      return notifyKey(&Notifiee::onReadyVrfIpv6, name);
    case Kind::mcIpv4:
      return notifyKey(&Notifiee::onMcReadyVrfIpv4, name);
    case Kind::mcIpv6:
      return notifyKey(&Notifiee::onMcReadyVrfIpv6, name);
  }
}

// ------------------------------------------------------------ watchers

class RootSm::KelVrfIdStatus final : public Vrf::VrfIdMap::Status::Notifiee {
 public:
  KelVrfIdStatus(RootSm* sm, const Vrf::VrfIdMap::Status* s) : sm_(sm) { notifierIs(s); }
  void onVrfEntry(Vrf::VrfIdMap::VrfId vrfId) override {
    sm_->handleViaMetricStatus(vrfId);
    sm_->handleMcViaMetricStatus(vrfId);
  }

 private:
  RootSm* sm_;
};

class RootSm::KelVrfNameStatus final : public Vrf::VrfIdMap::NameToIdMapWrapper::Notifiee {
 public:
  KelVrfNameStatus(RootSm* sm, const Vrf::VrfIdMap::NameToIdMapWrapper* s) : sm_(sm) {
    notifierIs(s);
  }
  void onNameToIdMap() override {
    sm_->rebindNameToIdMap();
    sm_->handleVrfNameToIdMap();
  }

 private:
  RootSm* sm_;
};

class RootSm::KelNameToIdMap final : public Vrf::VrfIdMap::NameToIdMap::Notifiee {
 public:
  KelNameToIdMap(RootSm* sm, const Vrf::VrfIdMap::NameToIdMap* m) : sm_(sm) { notifierIs(m); }
  void onVrfNameToId(const L3::VrfName& name) override {
    sm_->doCreateOrDeleteVrfAsuState(name);
    sm_->setReadyVrf(name);
    sm_->setMcReadyVrf(name);
  }

 private:
  RootSm* sm_;
};

class RootSm::KelIpv4IntfStatus final : public Ip::Status::Notifiee {
 public:
  KelIpv4IntfStatus(RootSm* sm, const Ip::Status* s) : sm_(sm) { notifierIs(s); }
  void onVrfIpIntfStatus(const L3::VrfName& name) override {
    sm_->setReadyVrfIpv4(name);
    sm_->setMcReadyVrfIpv4(name);
  }

 private:
  RootSm* sm_;
};

class RootSm::KelIpv6IntfStatus final : public Ip6::Status::Notifiee {
 public:
  KelIpv6IntfStatus(RootSm* sm, const Ip6::Status* s) : sm_(sm) { notifierIs(s); }
  void onVrfIp6IntfStatus(const L3::VrfName& name) override {
    sm_->setReadyVrfIpv6(name);
    sm_->setMcReadyVrfIpv6(name);
  }

 private:
  RootSm* sm_;
};

// One of the four looping-route inputs; `family` indexes RootSm's arrays.
class RootSm::KelLoopingRouteStatusByVrf final : public Rib::LoopingRouteStatusByVrf::Notifiee {
 public:
  KelLoopingRouteStatusByVrf(RootSm* sm, const Rib::LoopingRouteStatusByVrf* s, int family)
      : sm_(sm), family_(family) {
    notifierIs(s);
  }
  void onVrfStatus(const L3::VrfName& name) override {
    switch (family_) {
      case 0:
        return sm_->setReadyVrfIpv4(name);
      case 1:
        return sm_->setReadyVrfIpv6(name);
      case 2:
        return sm_->setMcReadyVrfIpv4(name);
      default:
        return sm_->setMcReadyVrfIpv6(name);
    }
  }

 private:
  RootSm* sm_;
  int family_;
};

// The protocol's member of one transport of one VRF's metric status.
class RootSm::KelTransportStatus final : public Rib::ViaMetricStatusByProtocol::Notifiee {
 public:
  KelTransportStatus(KelVrfMetricStatus* parent, const Rib::ViaMetricStatusByProtocol* s)
      : parent_(parent), kind_(s->kind()) {
    notifierIs(s);
  }
  uint8_t key() const { return kind_; }
  void onViaMetricStatus(uint32_t selector) override;

 private:
  KelVrfMetricStatus* parent_;
  uint8_t kind_;
};

// One VRF's metric status, unicast or multicast, with a child per transport.
class RootSm::KelVrfMetricStatus final : public Rib::ViaMetricStatusByTransport::Notifiee {
 public:
  KelVrfMetricStatus(RootSm* sm, const Rib::ViaMetricStatusByTransport* s, bool multicast)
      : sm_(sm), vrfId_(s->vrfId()), multicast_(multicast), transportStatus_(this) {
    notifierIs(s);
    for (const auto& byProtocol : s->viaMetricStatusByProtocol()) {
      transportStatus_.insert(Kel::makePtr<KelTransportStatus>(this, byProtocol.ptr()));
    }
  }
  Vrf::VrfIdMap::VrfId key() const { return vrfId_; }
  // The VRF this reactor serves; the invalid id once its entity is gone.
  Vrf::VrfIdMap::VrfId vrfId() const {
    return notifier() ? notifier()->vrfId() : Vrf::VrfIdMap::invalidVrfId;
  }
  void handleMetricStatus() { sm_->handleMetricStatusOf(multicast_, vrfId()); }
  RootSm* sm() const { return sm_; }

  void onViaMetricStatusByProtocol(uint8_t kind) override {
    handleMetricStatus();
    const auto byProtocol = notifier()->viaMetricStatusByProtocol(kind);
    if (byProtocol) {
      transportStatus_.replace(Kel::makePtr<KelTransportStatus>(this, byProtocol.ptr()));
    } else {
      transportStatus_.erase(kind);
    }
  }

 private:
  RootSm* sm_;
  Vrf::VrfIdMap::VrfId vrfId_;
  bool multicast_;
  Kel::NestedReactors<uint8_t, KelTransportStatus> transportStatus_;
};

void RootSm::KelTransportStatus::onViaMetricStatus(uint32_t selector) {
  if (selector == parent_->sm()->protocol()) parent_->handleMetricStatus();
}

class RootSm::KelViaMetricStatusByVrf final : public Rib::ViaMetricStatusByVrf::Notifiee {
 public:
  KelViaMetricStatusByVrf(RootSm* sm, const Rib::ViaMetricStatusByVrf* s, bool multicast)
      : sm_(sm), multicast_(multicast) {
    notifierIs(s);
  }
  void onViaMetricStatusByTransport(Vrf::VrfIdMap::VrfId vrfId) override {
    sm_->handleMetricStatusOf(multicast_, vrfId);
    auto& reactors = multicast_ ? sm_->mcVrfMetricStatus_ : sm_->vrfMetricStatus_;
    const auto byTransport = notifier()->viaMetricStatusByTransport(vrfId);
    if (byTransport) {
      reactors.replace(Kel::makePtr<KelVrfMetricStatus>(sm_, byTransport.ptr(), multicast_));
    } else {
      reactors.erase(vrfId);
    }
  }

 private:
  RootSm* sm_;
  bool multicast_;
};

class RootSm::KelGrState final : public GrState::Notifiee {
 public:
  KelGrState(RootSm* sm, const GrState* s) : sm_(sm) { notifierIs(s); }
  void onStartReadyVerification() override { sm_->handleStartReadyVerification(); }

 private:
  RootSm* sm_;
};

// The per-entry reactors act once as soon as they are bound, so that a
// record written before it was watched is still answered.
class RootSm::KelVrfReadyStatus final : public VrfReadyStatus::Notifiee {
 public:
  KelVrfReadyStatus(RootSm* sm, const VrfReadyStatus* s) : sm_(sm) { notifierIs(s); }
  const L3::VrfName& key() const { return notifier()->vrfName(); }
  void handleBound() { sm_->maybeUpdateRibReadySeqStatus(key()); }
  void onV4RouteReviewComplete() override { sm_->maybeUpdateRibReadySeqStatus(key()); }
  void onV6RouteReviewComplete() override { sm_->maybeUpdateRibReadySeqStatus(key()); }

 private:
  RootSm* sm_;
};

class RootSm::KelVrfRibSeqTrigger final : public VrfRibSeqTrigger::Notifiee {
 public:
  KelVrfRibSeqTrigger(RootSm* sm, const VrfRibSeqTrigger* s) : sm_(sm) { notifierIs(s); }
  const L3::VrfName& key() const { return notifier()->vrfName(); }
  void handleBound() { sm_->handleRibSeqTrigger(key()); }
  void onRibReadySeqTrigger() override { sm_->handleRibSeqTrigger(key()); }

 private:
  RootSm* sm_;
};

namespace {
// Mirrors one entry of a readiness collection: a reactor while the entry is
// there, bound (and run once) when it appears or is replaced.
template <class R, class Reactors, class Entry>
void mirrorEntry(RootSm* sm, Reactors& reactors, const L3::VrfName& name,
                 const Kel::Ptr<Entry>& entry) {
  if (!entry) {
    reactors.erase(name);
    return;
  }
  if (R* present = reactors.find(name); present && present->notifier() == entry.ptr()) return;
  R* bound = reactors.replace(Kel::makePtr<R>(sm, entry.ptr()));
  bound->handleBound();
}
}  // namespace

class RootSm::KelAllVrfReadyStatus final : public AllVrfReadyStatus::Notifiee {
 public:
  KelAllVrfReadyStatus(RootSm* sm, const AllVrfReadyStatus* s) : sm_(sm) { notifierIs(s); }
  void onVrfReadyStatus(const L3::VrfName& name) override {
    mirrorEntry<KelVrfReadyStatus>(sm_, sm_->vrfReadyStatus_, name,
                                   notifier()->vrfReadyStatus(name));
  }

 private:
  RootSm* sm_;
};

class RootSm::KelAllVrfRibSeqTrigger final : public AllVrfRibSeqTrigger::Notifiee {
 public:
  KelAllVrfRibSeqTrigger(RootSm* sm, const AllVrfRibSeqTrigger* s) : sm_(sm) { notifierIs(s); }
  void onVrfRibSeqTrigger(const L3::VrfName& name) override {
    mirrorEntry<KelVrfRibSeqTrigger>(sm_, sm_->vrfRibSeqTrigger_, name,
                                     notifier()->vrfRibSeqTrigger(name));
  }

 private:
  RootSm* sm_;
};

// ------------------------------------------------------------ construction

RootSm::RootSm(const Kel::Ptr<Cairn::EntityManager>& entityManager,
               const Kel::Ptr<Cairn::MountGroup>& mountGroup,
               const Kel::Ptr<KelSharedMem::EntityManager>& shmemEm,
               const Kel::Ptr<KelSharedMem::MountGroup>& shmemMg, uint32_t maxRoutes,
               uint32_t maxViaSets, uint32_t maxVrfs, Rib::RoutingProtocol protocol,
               const Kel::Ptr<AllVrfReadyStatus>& allVrfReadyStatus,
               const Kel::Ptr<AllVrfRibSeqTrigger>& allVrfRibSeqTrigger)
    : entityManager_(entityManager),
      mountGroup_(mountGroup),
      shmemEm_(shmemEm),
      shmemMg_(shmemMg),
      maxRoutes_(maxRoutes),
      maxViaSets_(maxViaSets),
      maxVrfs_(maxVrfs),
      protocol_(protocol),
      allVrfReadyStatus_(allVrfReadyStatus),
      allVrfRibSeqTrigger_(allVrfRibSeqTrigger),
      ready_(Kel::makePtr<ReadyVrfSets>()),
      allVrfViaConfigSm_{Kel::NestedReactor<Rib::Ip::ViaConfigSm>(this),
                         Kel::NestedReactor<Rib::Ip::ViaConfigSm>(this),
                         Kel::NestedReactor<Rib::Ip::ViaConfigSm>(this),
                         Kel::NestedReactor<Rib::Ip::ViaConfigSm>(this)},
      evpnViaConfigSm_(this),
      viaSetConfigSm_(this),
      mcViaSetConfigSm_(this),
      viaMetricStatusSm_(this),
      kelVrfIdStatus_(this),
      kelVrfNameStatus_(this),
      kel_NameToIdMapIn_(this),
      kelIpv4IntfStatus_(this),
      kelIpv6IntfStatus_(this),
      kelLooping_{Kel::NestedReactor<KelLoopingRouteStatusByVrf>(this),
                  Kel::NestedReactor<KelLoopingRouteStatusByVrf>(this),
                  Kel::NestedReactor<KelLoopingRouteStatusByVrf>(this),
                  Kel::NestedReactor<KelLoopingRouteStatusByVrf>(this)},
      kelViaMetricStatusByVrf_(this),
      kelMcViaMetricStatusByVrf_(this),
      vrfMetricStatus_(this),
      mcVrfMetricStatus_(this),
      kelGrState_(this),
      kelAllVrfReadyStatus_(this),
      kelAllVrfRibSeqTrigger_(this),
      vrfReadyStatus_(this),
      vrfRibSeqTrigger_(this) {
  if (allVrfReadyStatus_) {
    kelAllVrfReadyStatus_.reactorIs(
        Kel::makePtr<KelAllVrfReadyStatus>(this, allVrfReadyStatus_.ptr()));
    for (const auto& entry : allVrfReadyStatus_->vrfReadyStatus()) {
      mirrorEntry<KelVrfReadyStatus>(this, vrfReadyStatus_, entry->vrfName(), entry);
    }
  }
  if (allVrfRibSeqTrigger_) {
    kelAllVrfRibSeqTrigger_.reactorIs(
        Kel::makePtr<KelAllVrfRibSeqTrigger>(this, allVrfRibSeqTrigger_.ptr()));
    for (const auto& entry : allVrfRibSeqTrigger_->vrfRibSeqTrigger()) {
      mirrorEntry<KelVrfRibSeqTrigger>(this, vrfRibSeqTrigger_, entry->vrfName(), entry);
    }
  }
  handleInitialized();
  rebindNameToIdMap();
}

RootSm::~RootSm() {
  // Watchers first, so that releasing tables triggers nothing here.
  vrfReadyStatus_.clear();
  vrfRibSeqTrigger_.clear();
  vrfMetricStatus_.clear();
  mcVrfMetricStatus_.clear();
  viaMetricStatusSm_.reactorIs(nullptr);
  for (auto& [path, mount] : mounts_) mount->doUnmount();
  for (const Kel::Ptr<KelBrisk::Mount>& mount : startMounts_) mount->doUnmount();
}

Kel::Ptr<RootSm> RootSm::RootSmIs(const Kel::Ptr<Cairn::EntityManager>& entityManager,
                                  const Kel::Ptr<Cairn::MountGroup>& mountGroup,
                                  const Kel::Ptr<KelSharedMem::EntityManager>& shmemEm,
                                  const Kel::Ptr<KelSharedMem::MountGroup>& shmemMg,
                                  uint32_t maxRoutes, uint32_t maxViaSets, uint32_t maxVrfs,
                                  Rib::RoutingProtocol protocol,
                                  const Kel::Ptr<AllVrfReadyStatus>& allVrfReadyStatus,
                                  const Kel::Ptr<AllVrfRibSeqTrigger>& allVrfRibSeqTrigger) {
  return Kel::makePtr<RootSm>(entityManager, mountGroup, shmemEm, shmemMg, maxRoutes, maxViaSets,
                              maxVrfs, protocol, allVrfReadyStatus, allVrfRibSeqTrigger);
}

Kel::Ptr<RootSm> rootSmFactory(const Kel::Ptr<Cairn::EntityManager>& entityManager,
                               const Kel::Ptr<Cairn::MountGroup>& mountGroup,
                               const Kel::Ptr<KelSharedMem::EntityManager>& shmemEm,
                               const Kel::Ptr<KelSharedMem::MountGroup>& shmemMg,
                               uint32_t maxRoutes, uint32_t maxViaSets, uint32_t maxVrfs,
                               Rib::RoutingProtocol protocol,
                               const Kel::Ptr<AllVrfReadyStatus>& allVrfReadyStatus,
                               const Kel::Ptr<AllVrfRibSeqTrigger>& allVrfRibSeqTrigger) {
  return RootSm::RootSmIs(entityManager, mountGroup, shmemEm, shmemMg, maxRoutes, maxViaSets,
                          maxVrfs, protocol, allVrfReadyStatus, allVrfRibSeqTrigger);
}

// ------------------------------------------------------------ inputs

const Vrf::VrfIdMap::NameToIdMap* RootSm::nameToIdMap() const {
  return vrfNameStatus_ ? vrfNameStatus_->nameToIdMap().ptr() : nullptr;
}

void RootSm::rebindNameToIdMap() {
  const Vrf::VrfIdMap::NameToIdMap* map = nameToIdMap();
  if (kel_NameToIdMapIn_ && kel_NameToIdMapIn_->notifier() == map) return;
  kel_NameToIdMapIn_.reactorIs(map ? Kel::makePtr<KelNameToIdMap>(this, map) : nullptr);
}

void RootSm::vrfIdStatusIs(const Kel::Ptr<const Vrf::VrfIdMap::Status>& s) {
  if (vrfIdStatus_ == s) return;
  vrfIdStatus_ = s;
  kelVrfIdStatus_.reactorIs(s ? Kel::makePtr<KelVrfIdStatus>(this, s.ptr()) : nullptr);
}

void RootSm::vrfNameStatusIs(const Kel::Ptr<const Vrf::VrfIdMap::NameToIdMapWrapper>& s) {
  if (vrfNameStatus_ == s) return;
  vrfNameStatus_ = s;
  kelVrfNameStatus_.reactorIs(s ? Kel::makePtr<KelVrfNameStatus>(this, s.ptr()) : nullptr);
  rebindNameToIdMap();
}

void RootSm::ipv4IntfStatusIs(const Kel::Ptr<const Ip::Status>& s) {
  if (s) ipv4IntfStatusBound_ = true;
  if (ipv4IntfStatus_ == s) return;
  ipv4IntfStatus_ = s;
  kelIpv4IntfStatus_.reactorIs(s ? Kel::makePtr<KelIpv4IntfStatus>(this, s.ptr()) : nullptr);
}

void RootSm::ipv6IntfStatusIs(const Kel::Ptr<const Ip6::Status>& s) {
  if (s) ipv6IntfStatusBound_ = true;
  if (ipv6IntfStatus_ == s) return;
  ipv6IntfStatus_ = s;
  kelIpv6IntfStatus_.reactorIs(s ? Kel::makePtr<KelIpv6IntfStatus>(this, s.ptr()) : nullptr);
}

void RootSm::metricByVrfIs(bool multicast, const Kel::Ptr<const Rib::ViaMetricStatusByVrf>& s) {
  auto& input = multicast ? mcViaMetricStatusByVrf_ : viaMetricStatusByVrf_;
  auto& watcher = multicast ? kelMcViaMetricStatusByVrf_ : kelViaMetricStatusByVrf_;
  auto& reactors = multicast ? mcVrfMetricStatus_ : vrfMetricStatus_;
  if (input == s) return;
  input = s;
  reactors.clear();
  watcher.reactorIs(s ? Kel::makePtr<KelViaMetricStatusByVrf>(this, s.ptr(), multicast) : nullptr);
  if (!s) return;
  for (const auto& byTransport : s->viaMetricStatusByTransport()) {
    reactors.insert(Kel::makePtr<KelVrfMetricStatus>(this, byTransport.ptr(), multicast));
  }
}

void RootSm::viaMetricStatusByVrfIs(const Kel::Ptr<const Rib::ViaMetricStatusByVrf>& s) {
  metricByVrfIs(false, s);
}

void RootSm::mcViaMetricStatusByVrfIs(const Kel::Ptr<const Rib::ViaMetricStatusByVrf>& s) {
  metricByVrfIs(true, s);
}

void RootSm::loopingIs(int family, const Kel::Ptr<const Rib::LoopingRouteStatusByVrf>& s) {
  if (looping_[family] == s) return;
  looping_[family] = s;
  kelLooping_[family].reactorIs(s ? Kel::makePtr<KelLoopingRouteStatusByVrf>(this, s.ptr(), family)
                                  : nullptr);
}

void RootSm::loopingRouteStatusByVrf4Is(const Kel::Ptr<const Rib::LoopingRouteStatusByVrf>& s) {
  loopingIs(0, s);
}
void RootSm::loopingRouteStatusByVrf6Is(const Kel::Ptr<const Rib::LoopingRouteStatusByVrf>& s) {
  loopingIs(1, s);
}
void RootSm::mcLoopingRouteStatusByVrf4Is(const Kel::Ptr<const Rib::LoopingRouteStatusByVrf>& s) {
  loopingIs(2, s);
}
void RootSm::mcLoopingRouteStatusByVrf6Is(const Kel::Ptr<const Rib::LoopingRouteStatusByVrf>& s) {
  loopingIs(3, s);
}

// ------------------------------------------------------------ children

namespace {
// Keeps the held child when it watches `input`, else holds `make()`.
template <class R, class In, class Make>
void childIs(Kel::NestedReactor<R>& holder, const In& input, const Make& make) {
  if (holder && holder->config() == input) return;
  holder.reactorIs(input ? make() : nullptr);
}
}  // namespace

void RootSm::doInitIpv4AllVrfViaConfigSm() {
  const Kel::Ptr<const Rib::Ip::ViaConfig> in = viaConfig_[0].all;
  childIs(allVrfViaConfigSm_[0], in, [&] { return Rib::Ip::ViaConfigSm::ViaConfigSmIs(in); });
}
void RootSm::doInitIpv6AllVrfViaConfigSm() {
  const Kel::Ptr<const Rib::Ip::ViaConfig> in = viaConfig_[1].all;
  childIs(allVrfViaConfigSm_[1], in, [&] { return Rib::Ip::ViaConfigSm::ViaConfigSmIs(in); });
}
void RootSm::doInitMcIpv4AllVrfViaConfigSm() {
  const Kel::Ptr<const Rib::Ip::ViaConfig> in = viaConfig_[2].all;
  childIs(allVrfViaConfigSm_[2], in, [&] { return Rib::Ip::ViaConfigSm::ViaConfigSmIs(in); });
}
void RootSm::doInitMcIpv6AllVrfViaConfigSm() {
  const Kel::Ptr<const Rib::Ip::ViaConfig> in = viaConfig_[3].all;
  childIs(allVrfViaConfigSm_[3], in, [&] { return Rib::Ip::ViaConfigSm::ViaConfigSmIs(in); });
}

void RootSm::evpnViaConfigSmIs(const Kel::Ptr<const Rib::Evpn::ViaConfig>& evpnConfig) {
  childIs(evpnViaConfigSm_, evpnConfig,
          [&] { return Rib::Evpn::ViaConfigSm::ViaConfigSmIs(evpnConfig); });
}

void RootSm::viaSetConfigSmIs(const Kel::Ptr<const Rib::ViaSetConfig>& config) {
  childIs(viaSetConfigSm_, config, [&] { return Rib::ViaSetConfigSm::ViaSetConfigSmIs(config); });
}

void RootSm::mcViaSetConfigSmIs(const Kel::Ptr<const Rib::ViaSetConfig>& config) {
  childIs(mcViaSetConfigSm_, config, [&] { return Rib::ViaSetConfigSm::ViaSetConfigSmIs(config); });
}

void RootSm::viaMetricStatusSmIs(
    const Kel::Ptr<const Rib::ViaMetricStatusByVrf>& viaMetricStatusByVrf,
    const Kel::Ptr<RouteStatusDir>& routeStatusDir) {
  if (viaMetricStatusSm_ && viaMetricStatusSm_->viaMetricStatusByVrf() == viaMetricStatusByVrf &&
      viaMetricStatusSm_->routeStatusDir() == routeStatusDir) {
    return;
  }
  viaMetricStatusSm_.reactorIs(
      ViaMetricStatusSm::ViaMetricStatusSmIs(viaMetricStatusByVrf, routeStatusDir));
}

void RootSm::routeStatusDirIs() {
  if (routeStatusDir_) return;
  routeStatusDir_ = routeStatusDirFactory();
}

void RootSm::viaSetConfigIs(const Rib::ViaSetConfigKey& key) {
  if (viaSetConfig_ && viaSetConfig_->key() == key) return;
  viaSetConfig_ = Kel::makePtr<Rib::ViaSetConfig>(key);
}

void RootSm::mcViaSetConfigIs(const Rib::ViaSetConfigKey& key) {
  if (mcViaSetConfig_ && mcViaSetConfig_->key() == key) return;
  mcViaSetConfig_ = Kel::makePtr<Rib::ViaSetConfig>(key);
}

// ------------------------------------------------------------ paths

Kel::String RootSm::protocolName() const {
  if (protocol_ == 2) return Kel::String("staticConfig");
  if (protocol_ == 4) return Kel::String("routeInput");
  return Kel::String("");
}

Kel::String RootSm::allVrfViaConfigMount(std::string_view ribString,
                                         Rib::Transport transport) const {
  return Kel::String("routing/" + std::string(ribString) + "/viaConfig/" +
                     std::string(Rib::toStrep(transport).view()) + "/" +
                     std::string(protocolName().view()));
}

Kel::String RootSm::viaConfigMount(Vrf::VrfIdMap::VrfId vrfId, std::string_view ribString,
                                   Rib::Transport transport) const {
  return Kel::String("routing/" + std::string(ribString) + "/viaConfig/" +
                     std::string(Rib::toStrep(transport).view()) + "/" + std::to_string(vrfId) +
                     "/" + std::string(protocolName().view()));
}

Kel::String RootSm::ribMount(Vrf::VrfIdMap::VrfId vrfId, std::string_view ribString,
                             std::string_view afString) const {
  return Kel::String("routing/" + std::string(ribString) + "/routeConfig/" + std::string(afString) +
                     "/" + std::to_string(vrfId) + "/" + std::string(protocolName().view()));
}

Kel::String RootSm::protocolString() const { return Kel::String(Rib::stringValue(protocol_)); }

bool RootSm::isAllVrfViaConfig(std::string_view ribString, std::string_view afString) const {
  return ViaConfigLib::isAllVrfViaConfig(ribString, afString, Rib::stringValue(protocol_));
}

bool RootSm::isAllVrfRouteConfig(std::string_view ribString, std::string_view afString) const {
  return RouteConfigLib::isAllVrfRouteConfig(ribString, afString, Rib::stringValue(protocol_));
}

// ------------------------------------------------------------ metric status

Kel::Ptr<const Rib::ViaMetricStatus> RootSm::viaMetricStatus(Rib::Transport transport,
                                                             Vrf::VrfIdMap::VrfId vrfId,
                                                             std::string_view ribString) const {
  const auto& byVrf =
      ribString == Rib::mribString ? mcViaMetricStatusByVrf_ : viaMetricStatusByVrf_;
  const auto byTransport = byVrf ? byVrf->viaMetricStatusByTransport(vrfId) : nullptr;
  if (!byTransport) {
    ROOT_TRACE(9, "viaMetricStatus"
                      << "(" << vrfId << "), no Vrf Status");
    return nullptr;
  }
  const auto byProtocol = byTransport->viaMetricStatusByProtocol(uint8_t(transport));
  if (!byProtocol) {
    ROOT_TRACE(9, "viaMetricStatus"
                      << "(" << vrfId << "), no transport " << unsigned(transport) << " Status");
    return nullptr;
  }
  return byProtocol->viaMetricStatus(protocol_);
}

void RootSm::setIpv4DefaultVrfViaMetricStatus(std::string_view ribString) {
  ipv4DefaultVrfViaMetricStatus_ =
      viaMetricStatus(Rib::Transport::ipv4, Vrf::VrfIdMap::defaultVrfId, ribString);
}

void RootSm::setIpv6DefaultVrfViaMetricStatus(std::string_view ribString) {
  ipv6DefaultVrfViaMetricStatus_ =
      viaMetricStatus(Rib::Transport::ipv6, Vrf::VrfIdMap::defaultVrfId, ribString);
}

void RootSm::setEvpnViaMetricStatus() {
  evpnViaMetricStatus_ =
      viaMetricStatus(Rib::Transport::evpn, Vrf::VrfIdMap::defaultVrfId, Rib::ribString);
}

// ------------------------------------------------------------ start-up

void RootSm::handleInitialized() {
  ROOT_TRACE(8, "handleInitialized");
  routeStatusDirIs();
  const auto mountRead = [](Cairn::detail::MountGroupBase& group, const char* path,
                            const char* type) {
    group.doMount(Cairn::Mount(Cell::path(path), Kel::String(type), Kel::String("r")));
  };
  mountRead(*mountGroup_, "vrf/vrfNameStatus", "Vrf::VrfIdMap::NameToIdMapWrapper");
  Ip::StatusMounter::doMount(mountGroup_, true, true);
  mountRead(*shmemMg_, "routing/rib/viaMetricStatus", "Routing::Rib::ViaMetricStatusByVrf");
  mountRead(*mountGroup_, "routing/rib/loopingRouteStatus",
            "Routing::Rib::LoopingRouteStatusByVrf");
  mountRead(*mountGroup_, "routing6/rib/loopingRouteStatus",
            "Routing::Rib::LoopingRouteStatusByVrf");
  if (Rib::RoutingProtocolHelper::mribProtocol(protocol_)) {
    mountRead(*shmemMg_, "routing/mrib/viaMetricStatus", "Routing::Rib::ViaMetricStatusByVrf");
    mountRead(*mountGroup_, "routing/mrib/loopingRouteStatus",
              "Routing::Rib::LoopingRouteStatusByVrf");
    mountRead(*mountGroup_, "routing6/mrib/loopingRouteStatus",
              "Routing::Rib::LoopingRouteStatusByVrf");
  }
  if (std::getenv(ipIntfCheckNotNeededEnvVar) != nullptr) {
    ROOT_TRACE(0, "ipIntfCheckNotNeeded is true");
    ipIntfCheckNotNeeded_ = true;
  }
}

Kel::Ptr<KelBrisk::Mount> RootSm::doMountTable(const Kel::String& path, const char* typeName,
                                               uint32_t tableType, const char* collection,
                                               uint64_t capacity) const {
  KelBrisk::MountInfo info(tableType);
  if (collection != nullptr) {
    info.collectionInfoIs(Kel::String(collection),
                          uint32_t(std::min<uint64_t>(capacity, UINT32_MAX)));
  }
  const auto mount = KelBrisk::mountFactory(entityManager_, path, Kel::String(typeName), info);
  mount->doMount();
  return mount;
}

Kel::Ptr<Kel::Entity> RootSm::doMountStartTable(const Kel::String& path, const char* typeName,
                                                uint32_t tableType, const char* collection,
                                                uint64_t capacity) {
  startMounts_.push_back(doMountTable(path, typeName, tableType, collection, capacity));
  return startMounts_.back()->getEntity();
}

void RootSm::doMountViaConfigFamily(int family) {
  const IpFamily& f = ipFamilies[family];
  ViaConfigFamily& out = viaConfig_[family];
  const bool unicastIpv6 = family == 1;
  if (isAllVrfViaConfig(f.rib, f.af)) {
    out.all = as<Rib::Ip::ViaConfig>(
        doMountStartTable(allVrfViaConfigMount(f.rib, f.transport), "Routing::Rib::Ip::ViaConfig",
                          tableTypeConfig, "via", times(maxViaSets_, maxVrfs_)));
    // Unicast IPv6 takes its default-VRF pointer after its reactor, the others before.
    if (!unicastIpv6) out.defaultVrf = out.all;
    switch (family) {
      case 0:
        doInitIpv4AllVrfViaConfigSm();
        break;
      case 1:
        doInitIpv6AllVrfViaConfigSm();
        break;
      case 2:
        doInitMcIpv4AllVrfViaConfigSm();
        break;
      default:
        doInitMcIpv6AllVrfViaConfigSm();
        break;
    }
    if (unicastIpv6) out.defaultVrf = out.all;
    return;
  }
  // Unicast IPv6 has no table of the default VRF here: doMountContainer6
  // mounts it like any other VRF's.
  if (unicastIpv6) return;
  const auto config = as<Rib::Ip::ViaConfig>(
      doMountStartTable(viaConfigMount(Vrf::VrfIdMap::defaultVrfId, f.rib, f.transport),
                        "Routing::Rib::Ip::ViaConfig", tableTypeConfig, "via", maxViaSets_));
  if (config) {
    config->transportIs(f.transport);
    config->rpIs(protocol_);
    config->viaDelAll();
  }
  out.defaultVrf = config;
}

void RootSm::doMountAllVrfRibConfigs() {
  for (int family = 0; family < 4; ++family) {
    const IpFamily& f = ipFamilies[family];
    if (!isAllVrfRouteConfig(f.rib, f.af)) continue;
    allVrfRibConfig_[family] = as<Rib::RouteConfig>(doMountStartTable(
        RouteConfigLib::allVrfRibMount(f.rib, f.af, Rib::stringValue(protocol_)),
        "Routing::Rib::RouteConfig", tableTypeConfig, "route", times(maxRoutes_, maxVrfs_)));
  }
}

void RootSm::doMountEvpnConfig() {
  const bool allVrf = isAllVrfViaConfig(Rib::ribString, "evpn");
  const Kel::String path =
      allVrf ? allVrfViaConfigMount(Rib::ribString, Rib::Transport::evpn)
             : viaConfigMount(Vrf::VrfIdMap::defaultVrfId, Rib::ribString, Rib::Transport::evpn);
  const auto config = as<Rib::Evpn::ViaConfig>(
      doMountStartTable(path, "Routing::Rib::Evpn::ViaConfig", tableTypeConfig, "via",
                        allVrf ? times(maxViaSets_, maxVrfs_) : maxViaSets_));
  if (config) {
    config->transportIs(Rib::Transport::evpn);
    config->rpIs(protocol_);
    // A table shared by all VRFs keeps its vias: other VRFs' vias live there too.
    if (!allVrf) config->viaDelAll();
  }
  evpnConfig_ = config;
  evpnViaConfigSmIs(evpnConfig_);
}

void RootSm::doMountViaSets(std::string_view ribString, const Kel::Ptr<Rib::ViaSetConfig>& config) {
  const Kel::String path("routing/" + std::string(ribString) + "/viaSetConfig/" +
                         std::string(protocolName().view()));
  const auto collection = as<Rib::Brisk::ViaSetCollection>(doMountStartTable(
      path, "Routing::Rib::Brisk::ViaSetCollection", tableTypeConfig, "viaSet", maxViaSets_));
  config->configViaSetCollIs(collection);
}

void RootSm::doMountsComplete() {
  ROOT_TRACE(8, "doMountsComplete");
  vrfIdStatusIs(as<const Vrf::VrfIdMap::Status>(doMountStartTable(
      Kel::String("vrf/vrfIdMapStatus"), "Vrf::VrfIdMap::Status", tableTypeVrfIdMap, nullptr, 0)));
  vrfNameStatusIs(
      entityManager_->getEntity<Vrf::VrfIdMap::NameToIdMapWrapper>("vrf/vrfNameStatus"));
  ipv4IntfStatusIs(entityManager_->getEntity<Ip::Status>("ip/status"));
  ipv6IntfStatusIs(entityManager_->getEntity<Ip6::Status>("ip6/status"));
  const bool mrib = Rib::RoutingProtocolHelper::mribProtocol(protocol_);
  for (int family = 0; family < 4; ++family) {
    if (family < 2 || mrib) doMountViaConfigFamily(family);
  }
  doMountAllVrfRibConfigs();
  doMountEvpnConfig();
  const Rib::ViaSetConfigKey viaSetKey(protocol_, 0);
  viaSetConfigIs(viaSetKey);
  if (mrib) mcViaSetConfigIs(viaSetKey);
  doMountViaSets(Rib::ribString, viaSetConfig_);
  viaSetConfigSmIs(viaSetConfig_);
  // The multicast graph is mounted whatever the protocol.
  nhdGraph_ = as<const Rib::Ip::GlobalNextHopDependencyGraph>(doMountStartTable(
      Rib::Ip::GlobalNextHopDependencyGraph::mountPath(Rib::ribString),
      "Routing::Rib::Ip::GlobalNextHopDependencyGraph", tableTypeNhdGraph, nullptr, 0));
  mcNhdGraph_ = as<const Rib::Ip::GlobalNextHopDependencyGraph>(doMountStartTable(
      Rib::Ip::GlobalNextHopDependencyGraph::mountPath(Rib::mribString),
      "Routing::Rib::Ip::GlobalNextHopDependencyGraph", tableTypeNhdGraph, nullptr, 0));
  viaMetricStatusByVrfIs(
      shmemEm_->getEntity<Rib::ViaMetricStatusByVrf>("routing/rib/viaMetricStatus"));
  setIpv4DefaultVrfViaMetricStatus(Rib::ribString);
  setIpv6DefaultVrfViaMetricStatus(Rib::ribString);
  setEvpnViaMetricStatus();
  loopingRouteStatusByVrf4Is(
      entityManager_->getEntity<Rib::LoopingRouteStatusByVrf>("routing/rib/loopingRouteStatus"));
  loopingRouteStatusByVrf6Is(
      entityManager_->getEntity<Rib::LoopingRouteStatusByVrf>("routing6/rib/loopingRouteStatus"));
  if (mrib) {
    doMountViaSets(Rib::mribString, mcViaSetConfig_);
    mcViaSetConfigSmIs(mcViaSetConfig_);
    mcViaMetricStatusByVrfIs(
        shmemEm_->getEntity<Rib::ViaMetricStatusByVrf>("routing/mrib/viaMetricStatus"));
    mcLoopingRouteStatusByVrf4Is(
        entityManager_->getEntity<Rib::LoopingRouteStatusByVrf>("routing/mrib/loopingRouteStatus"));
    mcLoopingRouteStatusByVrf6Is(entityManager_->getEntity<Rib::LoopingRouteStatusByVrf>(
        "routing6/mrib/loopingRouteStatus"));
  }
  initialized_ = true;
  ROOT_TRACE(8, "doMountsComplete"
                    << " Initialized --> True");
  handleVrfNameToIdMap();
  viaMetricStatusSmIs(viaMetricStatusByVrf_, routeStatusDir_);
}

// ------------------------------------------------------------ readiness state

void RootSm::grStateIs(bool gracefulRestart) {
  if (grState_ && grState_->gracefulRestart() == gracefulRestart) return;
  grState_ = grStateFactory(gracefulRestart);
  kelGrState_.reactorIs(Kel::makePtr<KelGrState>(this, grState_.ptr()));
  handleStartReadyVerification();
}

// ------------------------------------------------------------ dump

void RootSm::dumpState(const Kel::Ptr<const Quay::DumpContext>& dumpCtx,
                       uint32_t indentCount) const {
  if (indentCount == 0) {
    Quay::objDumpPrintf(dumpCtx, "ProtocolRootSm\n");
  } else {
    Quay::objDumpPrintf(dumpCtx, "%*cProtocolRootSm\n", int(indentCount), ' ');
  }
  const uint32_t inner = indentCount + 2;
  // The blanks end the line before each title; the title starts at column 0.
  Quay::objDumpPrintf(dumpCtx, "%*c\nIPv4 ViaConfig\n", int(inner), ' ');
  Quay::ObjDumpChild(dumpCtx, ipv4AllVrfViaConfig().ptr(), inner);
  Quay::objDumpPrintf(dumpCtx, "%*c\nIPv6 ViaConfig\n", int(inner), ' ');
  Quay::ObjDumpChild(dumpCtx, ipv6AllVrfViaConfig().ptr(), inner);
  Quay::ObjDumpChild(dumpCtx, viaSetConfig().ptr(), indentCount);
}

}  // namespace Routing::Protocol
