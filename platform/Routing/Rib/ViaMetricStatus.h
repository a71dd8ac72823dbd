// The RIB's via metrics, published per VRF, transport and routing protocol:
//
//   ViaMetricStatusByVrf -> ViaMetricStatusByTransport (by VRF id)
//     -> ViaMetricStatusByProtocol (by transport kind, a ViaKey's kind byte)
//     -> ViaMetricStatus (by selector, a ViaKey's selector) -> ViaMetric (by ViaKey)
//
// The RIB writes; route computation reads and reacts. Every change notifies
// the entity's reactors at once with the element key; writing the value an
// element or scalar already has notifies nobody. Look-ups and changes are
// O(1) expected; collections iterate in hash order.
// Decided here: besides the per-via entries, each ViaMetricStatus has one
// table-level attribute, `generation`, that the RIB bumps when a change
// touches every via at once (its resolution policy changed, say), so that a
// reader re-reads the whole table instead of hearing about each via.
#pragma once

#include <cstdint>

#include "Kel/Entity.h"
#include "Kel/HashTable.h"
#include "platform/Routing/Rib/IntKeyedPtrMap.h"
#include "platform/Routing/Rib/ViaKey.h"
#include "platform/Routing/Rib/ViaMetric.h"
#include "platform/Vrf/VrfId.h"

namespace Routing::Rib {

// The metrics of the vias of one VRF, transport and selector.
class ViaMetricStatus final : public Kel::Entity {
 public:
  struct Entry {
    ViaKey viaKey;
    ViaMetric viaMetric;
  };
  struct EntryTraits {
    using Entry = ViaMetricStatus::Entry;
    using Key = ViaKey;
    static const ViaKey& key(const Entry& e) { return e.viaKey; }
    static uint32_t hash(const ViaKey& k) { return k.tableHash(); }
  };
  using ViaMetricMap = Kel::HashTable<EntryTraits>;
  class Notifiee : public Kel::NotifieeOf<ViaMetricStatus> {
   public:
    virtual void onViaMetric(const ViaKey&) {}
    virtual void onGeneration() {}
  };
  explicit ViaMetricStatus(uint32_t selector = 0) : selector_(selector) {}
  const char* typeName() const override { return "Routing::Rib::ViaMetricStatus"; }

  uint32_t selector() const { return selector_; }

  const ViaMetricMap& viaMetric() const { return viaMetric_; }
  // Null when the RIB has no entry for `k`.
  const ViaMetric* viaMetric(const ViaKey& k) const { return viaMetric(k, k.tableHash()); }
  // With `h`, k.tableHash(), taken once.
  const ViaMetric* viaMetric(const ViaKey& k, uint32_t h) const {
    const Entry* e = viaMetric_.find(k, h);
    return e ? &e->viaMetric : nullptr;
  }
  uint32_t viaMetricSize() const { return viaMetric_.size(); }
  void viaMetricIs(const ViaKey& k, const ViaMetric& m);
  void viaMetricDel(const ViaKey& k);

  uint32_t generation() const { return generation_; }
  void generationIs(uint32_t g) { attributeIs(generation_, g, &Notifiee::onGeneration); }
  void doBumpGeneration() { generationIs(generation_ + 1); }

 private:
  uint32_t selector_;
  ViaMetricMap viaMetric_;
  uint32_t generation_ = 0;
};

// The via metric tables of one VRF and transport, by selector.
class ViaMetricStatusByProtocol final : public Kel::Entity {
 public:
  using ViaMetricStatusMap = IntKeyedPtrMap<uint32_t, ViaMetricStatus, &ViaMetricStatus::selector>;
  class Notifiee : public Kel::NotifieeOf<ViaMetricStatusByProtocol> {
   public:
    virtual void onViaMetricStatus(uint32_t) {}
  };
  explicit ViaMetricStatusByProtocol(uint8_t kind = ViaKey::kindNone) : kind_(kind) {}
  const char* typeName() const override { return "Routing::Rib::ViaMetricStatusByProtocol"; }

  // The transport kind this level sits under.
  uint8_t kind() const { return kind_; }

  const ViaMetricStatusMap& viaMetricStatus() const { return viaMetricStatus_; }
  Kel::Ptr<ViaMetricStatus> viaMetricStatus(uint32_t selector) const {
    const auto* e = viaMetricStatus_.find(selector);
    return e ? *e : nullptr;
  }
  uint32_t viaMetricStatusSize() const { return viaMetricStatus_.size(); }
  // Returns the table for `selector`, creating an empty one when absent.
  Kel::Ptr<ViaMetricStatus> viaMetricStatusIs(uint32_t selector);
  void viaMetricStatusDel(uint32_t selector);

 private:
  uint8_t kind_;
  ViaMetricStatusMap viaMetricStatus_;
};

// The via metric tables of one VRF, by transport kind.
class ViaMetricStatusByTransport final : public Kel::Entity {
 public:
  using ByProtocolMap =
      IntKeyedPtrMap<uint8_t, ViaMetricStatusByProtocol, &ViaMetricStatusByProtocol::kind>;
  class Notifiee : public Kel::NotifieeOf<ViaMetricStatusByTransport> {
   public:
    virtual void onViaMetricStatusByProtocol(uint8_t) {}
  };
  explicit ViaMetricStatusByTransport(Vrf::VrfIdMap::VrfId vrfId = Vrf::VrfIdMap::defaultVrfId)
      : vrfId_(vrfId) {}
  const char* typeName() const override { return "Routing::Rib::ViaMetricStatusByTransport"; }

  Vrf::VrfIdMap::VrfId vrfId() const { return vrfId_; }

  const ByProtocolMap& viaMetricStatusByProtocol() const { return byProtocol_; }
  Kel::Ptr<ViaMetricStatusByProtocol> viaMetricStatusByProtocol(uint8_t kind) const {
    const auto* e = byProtocol_.find(kind);
    return e ? *e : nullptr;
  }
  uint32_t viaMetricStatusByProtocolSize() const { return byProtocol_.size(); }
  // Returns the level for `kind`, creating an empty one when absent.
  Kel::Ptr<ViaMetricStatusByProtocol> viaMetricStatusByProtocolIs(uint8_t kind);
  void viaMetricStatusByProtocolDel(uint8_t kind);

 private:
  Vrf::VrfIdMap::VrfId vrfId_;
  ByProtocolMap byProtocol_;
};

// The via metric tables of all VRFs, by VRF id.
class ViaMetricStatusByVrf final : public Kel::Entity {
 public:
  using ByTransportMap = IntKeyedPtrMap<Vrf::VrfIdMap::VrfId, ViaMetricStatusByTransport,
                                        &ViaMetricStatusByTransport::vrfId>;
  class Notifiee : public Kel::NotifieeOf<ViaMetricStatusByVrf> {
   public:
    virtual void onViaMetricStatusByTransport(Vrf::VrfIdMap::VrfId) {}
  };
  const char* typeName() const override { return "Routing::Rib::ViaMetricStatusByVrf"; }

  const ByTransportMap& viaMetricStatusByTransport() const { return byTransport_; }
  Kel::Ptr<ViaMetricStatusByTransport> viaMetricStatusByTransport(Vrf::VrfIdMap::VrfId v) const {
    const auto* e = byTransport_.find(v);
    return e ? *e : nullptr;
  }
  uint32_t viaMetricStatusByTransportSize() const { return byTransport_.size(); }
  // Returns the level for VRF `v`, creating an empty one when absent.
  Kel::Ptr<ViaMetricStatusByTransport> viaMetricStatusByTransportIs(Vrf::VrfIdMap::VrfId v);
  void viaMetricStatusByTransportDel(Vrf::VrfIdMap::VrfId v);

  // The table `k` files under (its VRF id, kind and selector), creating the
  // levels that are missing; each new level notifies its parent.
  Kel::Ptr<ViaMetricStatus> viaMetricStatusIs(const ViaKey& k);
  // The table `k` files under; null when a level is missing.
  const ViaMetricStatus* find(const ViaKey& k) const;

 private:
  ByTransportMap byTransport_;
};

}  // namespace Routing::Rib
