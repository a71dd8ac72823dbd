// The shared body of the RIB's via record tables (Ip::ViaConfig,
// Evpn::ViaConfig): records of type `Record` by ViaKey, in a Kel::HashTable,
// so they iterate in hash order and resume with seek(), plus the transport
// the table serves and the routing protocol that writes it.
//
// `Self` is the concrete table (CRTP), so that its reactors are
// NotifieeOf<Self>. A write that changes a record notifies onVia(key) after
// the change; a write that changes nothing notifies nobody; `transport` and
// `rp` are scalar attributes (onTransport, onRp). Costs: one hash lookup per
// call. `Record` needs copy, == and nothing else.
// As a shared-memory table (KelBrisk::Table) it has one collection, "via",
// whose capacity limits distinct keys: a new key in a full table is the
// Kel::RangeError "ViaConfig::via capacity exceeded" and changes nothing;
// replacing a present record is always allowed. cleanup is viaDelAll.
#pragma once

#include <cstdint>

#include "Kel/Entity.h"
#include "Kel/HashTable.h"
#include "platform/KelBrisk/Table.h"
#include "platform/Routing/Rib/Transport.h"
#include "platform/Routing/Rib/ViaKey.h"

namespace Routing::Rib::detail {

template <class Self, class Record>
class ViaRecordTable : public Kel::Entity, public KelBrisk::SingleCollectionTable {
 public:
  struct Entry {
    ViaKey key;
    Record via;
  };
  struct Traits {
    using Entry = ViaRecordTable::Entry;
    using Key = ViaKey;
    static const ViaKey& key(const Entry& e) { return e.key; }
    static uint32_t hash(const ViaKey& k) { return k.tableHash(); }
  };
  using ViaTable = Kel::HashTable<Traits>;

  class Notifiee : public Kel::NotifieeOf<Self> {
   public:
    virtual void onVia(const ViaKey&) {}
    virtual void onTransport() {}
    virtual void onRp() {}
  };
  // Null when absent; valid until the next write.
  const Record* via(const ViaKey& k) const { return via(k, k.tableHash()); }
  // With `h`, k.tableHash(), taken once.
  const Record* via(const ViaKey& k, uint32_t h) const {
    const Entry* e = via_.find(k, h);
    return e ? &e->via : nullptr;
  }
  bool viaHas(const ViaKey& k) const { return via_.find(k) != nullptr; }
  uint32_t viaSize() const { return via_.size(); }
  const ViaTable& via() const { return via_; }

  void viaIs(const ViaKey& k, const Record& v) {
    if (Entry* e = via_.find(k)) {
      if (e->via == v) return;
      e->via = v;
    } else {
      checkRoom(via_.size());
      via_.insert(Entry{k, v});
    }
    notifyKey(&Notifiee::onVia, k);
  }
  void viaDel(const ViaKey& k) {
    if (via_.erase(k)) notifyKey(&Notifiee::onVia, k);
  }
  void viaDelAll() {
    while (!via_.empty()) {
      const Entry gone = via_.popFront();
      notifyKey(&Notifiee::onVia, gone.key);
    }
  }

  Transport transport() const { return transport_; }
  void transportIs(Transport t) { attributeIs(transport_, t, &Notifiee::onTransport); }
  // The routing protocol whose vias these are.
  RoutingProtocol rp() const { return rp_; }
  void rpIs(RoutingProtocol rp) { attributeIs(rp_, rp, &Notifiee::onRp); }

  void cleanup() override { viaDelAll(); }

 protected:
  ViaRecordTable(const char* tableType, Transport transport)
      : SingleCollectionTable(tableType, "ViaConfig", "via"), transport_(transport) {}

 private:
  ViaTable via_;
  Transport transport_;
  RoutingProtocol rp_ = 0;
};

}  // namespace Routing::Rib::detail
