#include "platform/Routing/Rib/ViaMetricStatus.h"

namespace Routing::Rib {

// ------------------------------------------------------------ ViaMetricStatus

void ViaMetricStatus::viaMetricIs(const ViaKey& k, const ViaMetric& m) {
  auto [entry, inserted] = viaMetric_.insert(Entry{k, m});
  if (!inserted) {
    if (entry->viaMetric == m) return;
    entry->viaMetric = m;
  }
  notifyKey(&Notifiee::onViaMetric, k);
}

void ViaMetricStatus::viaMetricDel(const ViaKey& k) {
  if (viaMetric_.erase(k)) notifyKey(&Notifiee::onViaMetric, k);
}

// -------------------------------------------------- ViaMetricStatusByProtocol

Kel::Ptr<ViaMetricStatus> ViaMetricStatusByProtocol::viaMetricStatusIs(uint32_t selector) {
  if (const auto* e = viaMetricStatus_.find(selector)) return *e;
  Kel::Ptr<ViaMetricStatus> status =
      *viaMetricStatus_.insert(Kel::makePtr<ViaMetricStatus>(selector)).first;
  notify<Notifiee>([selector](Notifiee* n) { n->onViaMetricStatus(selector); });
  return status;
}

void ViaMetricStatusByProtocol::viaMetricStatusDel(uint32_t selector) {
  if (viaMetricStatus_.erase(selector)) {
    notify<Notifiee>([selector](Notifiee* n) { n->onViaMetricStatus(selector); });
  }
}

// ------------------------------------------------- ViaMetricStatusByTransport

Kel::Ptr<ViaMetricStatusByProtocol> ViaMetricStatusByTransport::viaMetricStatusByProtocolIs(
    uint8_t kind) {
  if (const auto* e = byProtocol_.find(kind)) return *e;
  Kel::Ptr<ViaMetricStatusByProtocol> level =
      *byProtocol_.insert(Kel::makePtr<ViaMetricStatusByProtocol>(kind)).first;
  notify<Notifiee>([kind](Notifiee* n) { n->onViaMetricStatusByProtocol(kind); });
  return level;
}

void ViaMetricStatusByTransport::viaMetricStatusByProtocolDel(uint8_t kind) {
  if (byProtocol_.erase(kind)) {
    notify<Notifiee>([kind](Notifiee* n) { n->onViaMetricStatusByProtocol(kind); });
  }
}

// ------------------------------------------------------- ViaMetricStatusByVrf

Kel::Ptr<ViaMetricStatusByTransport> ViaMetricStatusByVrf::viaMetricStatusByTransportIs(
    Vrf::VrfIdMap::VrfId v) {
  if (const auto* e = byTransport_.find(v)) return *e;
  Kel::Ptr<ViaMetricStatusByTransport> level =
      *byTransport_.insert(Kel::makePtr<ViaMetricStatusByTransport>(v)).first;
  notify<Notifiee>([v](Notifiee* n) { n->onViaMetricStatusByTransport(v); });
  return level;
}

void ViaMetricStatusByVrf::viaMetricStatusByTransportDel(Vrf::VrfIdMap::VrfId v) {
  if (byTransport_.erase(v)) {
    notify<Notifiee>([v](Notifiee* n) { n->onViaMetricStatusByTransport(v); });
  }
}

Kel::Ptr<ViaMetricStatus> ViaMetricStatusByVrf::viaMetricStatusIs(const ViaKey& k) {
  return viaMetricStatusByTransportIs(k.vrfId())
      ->viaMetricStatusByProtocolIs(k.kind())
      ->viaMetricStatusIs(k.selector());
}

const ViaMetricStatus* ViaMetricStatusByVrf::find(const ViaKey& k) const {
  const auto* byTransport = byTransport_.find(k.vrfId());
  if (byTransport == nullptr) return nullptr;
  const Kel::Ptr<ViaMetricStatusByProtocol> byProtocol =
      (*byTransport)->viaMetricStatusByProtocol(k.kind());
  if (!byProtocol) return nullptr;
  return byProtocol->viaMetricStatus(k.selector()).ptr();
}

}  // namespace Routing::Rib
