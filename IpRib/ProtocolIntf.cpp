#include "IpRib/ProtocolIntf.h"

#include "Kel/Assert.h"

namespace Routing::Protocol {

bool IntfStatus::intf(const Pando::IntfId&) const {
  KEL_ASSERT(0 && "Must be implemented in derived class");
  return false;
}

uint32_t IntfStatus::intfStatusChangedInc(uint32_t inc) {
  intfStatusChangedIs(intfStatusChanged_ + inc);
  return intfStatusChanged_;
}

Kel::Ptr<IntfStatus> intfStatusFactory() { return Kel::makePtr<IntfStatus>(); }

namespace {
// The Ptr the look-up returns keeps the entry for the read and no longer.
template <class VrfStatus, class Entry>
bool dpRoutingEnabled(const VrfStatus* status,
                      Kel::Ptr<Entry> (VrfStatus::*lookup)(const Pando::IntfId&) const,
                      const Pando::IntfId& intfId) {
  if (status == nullptr) return false;
  const Kel::Ptr<Entry> entry = (status->*lookup)(intfId);
  return entry && entry->dpRoutingEnabled();
}
}  // namespace

bool Ipv4IntfStatus::intf(const Pando::IntfId& intfId) const {
  return dpRoutingEnabled(status_.ptr(), &Ip::VrfIpIntfStatus::ipIntfStatus, intfId);
}

Kel::Ptr<Ipv4IntfStatus> ipv4IntfStatusFactory(const Kel::Ptr<const Ip::VrfIpIntfStatus>& status) {
  return Kel::makePtr<Ipv4IntfStatus>(status);
}

bool Ipv6IntfStatus::intf(const Pando::IntfId& intfId) const {
  return dpRoutingEnabled(status_.ptr(), &Ip6::VrfIp6IntfStatus::ip6IntfStatus, intfId);
}

Kel::Ptr<Ipv6IntfStatus> ipv6IntfStatusFactory(
    const Kel::Ptr<const Ip6::VrfIp6IntfStatus>& status) {
  return Kel::makePtr<Ipv6IntfStatus>(status);
}

}  // namespace Routing::Protocol
