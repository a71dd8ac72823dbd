// Restart readiness records: the per-VRF handshake between this library, the
// agent and the RIB side after a (re)start. The route status reactors write
// review completeness; the root reactor creates the records and answers the
// RIB's sequence triggers. Setting a scalar to its current value notifies nobody.
#pragma once

#include <cstdint>

#include "Kel/Collections.h"
#include "Kel/Entity.h"
#include "platform/L3/VrfName.h"

namespace Routing::Protocol {

// Whether this start is a graceful restart, and when readiness may be verified.
class GrState final : public Kel::Entity {
 public:
  class Notifiee : public Kel::NotifieeOf<GrState> {
   public:
    virtual void onStartReadyVerification() {}
  };
  explicit GrState(bool gracefulRestart) : gracefulRestart_(gracefulRestart) {}
  const char* typeName() const override { return "Routing::Protocol::GrState"; }

  bool gracefulRestart() const { return gracefulRestart_; }
  bool startReadyVerification() const { return startReadyVerification_; }
  void startReadyVerificationIs(bool v) {
    attributeIs(startReadyVerification_, v, &Notifiee::onStartReadyVerification);
  }

 private:
  const bool gracefulRestart_;
  bool startReadyVerification_ = false;
};

// Readiness of one VRF, per address family.
class VrfReadyStatus final : public Kel::Entity {
 public:
  class Notifiee : public Kel::NotifieeOf<VrfReadyStatus> {
   public:
    virtual void onV4RoutesReady() {}
    virtual void onV6RoutesReady() {}
    virtual void onRibReadySeqStatus() {}
    virtual void onV4RouteReviewComplete() {}
    virtual void onV6RouteReviewComplete() {}
  };
  explicit VrfReadyStatus(L3::VrfName vrfName) : vrfName_(std::move(vrfName)) {}
  const char* typeName() const override { return "Routing::Protocol::VrfReadyStatus"; }

  const L3::VrfName& vrfName() const { return vrfName_; }
  bool v4RoutesReady() const { return v4RoutesReady_; }
  bool v6RoutesReady() const { return v6RoutesReady_; }
  uint32_t ribReadySeqStatus() const { return ribReadySeqStatus_; }
  bool v4RouteReviewComplete() const { return v4RouteReviewComplete_; }
  bool v6RouteReviewComplete() const { return v6RouteReviewComplete_; }

  void v4RoutesReadyIs(bool v) { attributeIs(v4RoutesReady_, v, &Notifiee::onV4RoutesReady); }
  void v6RoutesReadyIs(bool v) { attributeIs(v6RoutesReady_, v, &Notifiee::onV6RoutesReady); }
  void ribReadySeqStatusIs(uint32_t v) {
    attributeIs(ribReadySeqStatus_, v, &Notifiee::onRibReadySeqStatus);
  }
  void v4RouteReviewCompleteIs(bool v) {
    attributeIs(v4RouteReviewComplete_, v, &Notifiee::onV4RouteReviewComplete);
  }
  void v6RouteReviewCompleteIs(bool v) {
    attributeIs(v6RouteReviewComplete_, v, &Notifiee::onV6RouteReviewComplete);
  }

 private:
  L3::VrfName vrfName_;
  bool v4RoutesReady_ = false;
  bool v6RoutesReady_ = false;
  uint32_t ribReadySeqStatus_ = 0;
  bool v4RouteReviewComplete_ = false;
  bool v6RouteReviewComplete_ = false;
};

// The RIB side's request for one VRF: a sequence number to answer (0: none).
class VrfRibSeqTrigger final : public Kel::Entity {
 public:
  class Notifiee : public Kel::NotifieeOf<VrfRibSeqTrigger> {
   public:
    virtual void onRibReadySeqTrigger() {}
  };
  explicit VrfRibSeqTrigger(L3::VrfName vrfName) : vrfName_(std::move(vrfName)) {}
  const char* typeName() const override { return "Routing::Protocol::VrfRibSeqTrigger"; }

  const L3::VrfName& vrfName() const { return vrfName_; }
  uint32_t ribReadySeqTrigger() const { return ribReadySeqTrigger_; }
  void ribReadySeqTriggerIs(uint32_t v) {
    attributeIs(ribReadySeqTrigger_, v, &Notifiee::onRibReadySeqTrigger);
  }

 private:
  L3::VrfName vrfName_;
  uint32_t ribReadySeqTrigger_ = 0;
};

// A shared collection of per-VRF records keyed by VRF name.
template <class Record>
class VrfRecordCollection {
 public:
  using Map = Kel::HashedPtrMap<L3::VrfName, Record, &Record::vrfName>;

  const Map& all() const { return map_; }
  Kel::Ptr<Record> find(const L3::VrfName& name) const {
    const auto* e = map_.find(name);
    return e ? *e : nullptr;
  }
  // Returns the record, creating it when absent; reports creation.
  std::pair<Kel::Ptr<Record>, bool> insert(const L3::VrfName& name) {
    auto [entry, inserted] = map_.insert(Kel::makePtr<Record>(name));
    return {*entry, inserted};
  }
  bool erase(const L3::VrfName& name) { return map_.erase(name); }
  Kel::Ptr<Record> popFront() { return map_.popFront(); }
  bool empty() const { return map_.empty(); }

 private:
  Map map_;
};

class AllVrfReadyStatus final : public Kel::Entity {
 public:
  class Notifiee : public Kel::NotifieeOf<AllVrfReadyStatus> {
   public:
    virtual void onVrfReadyStatus(const L3::VrfName&) {}
  };
  const char* typeName() const override { return "Routing::Protocol::AllVrfReadyStatus"; }

  const auto& vrfReadyStatus() const { return coll_.all(); }
  Kel::Ptr<VrfReadyStatus> vrfReadyStatus(const L3::VrfName& name) const {
    return coll_.find(name);
  }
  // Creates the entry when absent; an existing one keeps its values.
  Kel::Ptr<VrfReadyStatus> vrfReadyStatusIs(const L3::VrfName& name);
  void vrfReadyStatusDel(const L3::VrfName& name);
  void vrfReadyStatusDelAll();

 private:
  VrfRecordCollection<VrfReadyStatus> coll_;
};

class AllVrfRibSeqTrigger final : public Kel::Entity {
 public:
  class Notifiee : public Kel::NotifieeOf<AllVrfRibSeqTrigger> {
   public:
    virtual void onVrfRibSeqTrigger(const L3::VrfName&) {}
  };
  const char* typeName() const override { return "Routing::Protocol::AllVrfRibSeqTrigger"; }

  const auto& vrfRibSeqTrigger() const { return coll_.all(); }
  Kel::Ptr<VrfRibSeqTrigger> vrfRibSeqTrigger(const L3::VrfName& name) const {
    return coll_.find(name);
  }
  Kel::Ptr<VrfRibSeqTrigger> vrfRibSeqTriggerIs(const L3::VrfName& name);
  void vrfRibSeqTriggerDel(const L3::VrfName& name);
  void vrfRibSeqTriggerDelAll();

 private:
  VrfRecordCollection<VrfRibSeqTrigger> coll_;
};

Kel::Ptr<GrState> grStateFactory(bool gracefulRestart);
Kel::Ptr<AllVrfReadyStatus> allVrfReadyStatusFactory();
Kel::Ptr<VrfReadyStatus> vrfReadyStatusFactory(const L3::VrfName& name);
Kel::Ptr<AllVrfRibSeqTrigger> allVrfRibSeqTriggerFactory();
Kel::Ptr<VrfRibSeqTrigger> vrfRibSeqTriggerFactory(const L3::VrfName& name);

}  // namespace Routing::Protocol
