// IntfStatus: a protocol's view of which interfaces of one VRF and address
// family route in the data plane.
//
// intf(intfId) answers live from the platform's interface status (one hash
// look-up); nothing is stored per interface here. intfStatusChanged is a
// counter that IntfSm bumps once for every change that could alter an
// answer: its value means nothing beyond "ask again". It wraps at 2^32 and a
// wrap is a change like any other.
//
// Only the kinds Ipv4IntfStatus and Ipv6IntfStatus answer intf; the base
// aborts, as asking it is a programming fault. The plain base exists for the
// generic factory.
#pragma once

#include <cstdint>

#include "Kel/Entity.h"
#include "platform/Ip/IntfStatus.h"
#include "platform/Ip6/IntfStatus.h"
#include "platform/Pando/IntfId.h"

namespace Routing::Protocol {

class IntfStatus : public Kel::Entity {
 public:
  class Notifiee : public Kel::NotifieeOf<IntfStatus> {
   public:
    virtual void onIntfStatusChanged() {}
  };
  const char* typeName() const override { return "Routing::Protocol::IntfStatus"; }

  // Is the interface usable for routing.
  virtual bool intf(const Pando::IntfId& intfId) const;

  uint32_t intfStatusChanged() const { return intfStatusChanged_; }
  void intfStatusChangedIs(uint32_t v) {
    attributeIs(intfStatusChanged_, v, &Notifiee::onIntfStatusChanged);
  }
  // Adds `inc` (wrapping) through intfStatusChangedIs; returns the new value.
  uint32_t intfStatusChangedInc(uint32_t inc);

 private:
  uint32_t intfStatusChanged_ = 0;
};

Kel::Ptr<IntfStatus> intfStatusFactory();

// The IPv4 interfaces of one VRF.
class Ipv4IntfStatus final : public IntfStatus {
 public:
  explicit Ipv4IntfStatus(const Kel::Ptr<const Ip::VrfIpIntfStatus>& status) : status_(status) {}
  const char* typeName() const override { return "Routing::Protocol::Ipv4IntfStatus"; }

  const Kel::Ptr<const Ip::VrfIpIntfStatus>& status() const { return status_; }
  // False for an interface the VRF does not have (or without a status).
  bool intf(const Pando::IntfId& intfId) const override;

 private:
  const Kel::Ptr<const Ip::VrfIpIntfStatus> status_;
};

Kel::Ptr<Ipv4IntfStatus> ipv4IntfStatusFactory(const Kel::Ptr<const Ip::VrfIpIntfStatus>& status);

// The IPv6 interfaces of one VRF.
class Ipv6IntfStatus final : public IntfStatus {
 public:
  explicit Ipv6IntfStatus(const Kel::Ptr<const Ip6::VrfIp6IntfStatus>& status) : status_(status) {}
  const char* typeName() const override { return "Routing::Protocol::Ipv6IntfStatus"; }

  const Kel::Ptr<const Ip6::VrfIp6IntfStatus>& status() const { return status_; }
  // False for an interface the VRF does not have (or without a status).
  bool intf(const Pando::IntfId& intfId) const override;

 private:
  const Kel::Ptr<const Ip6::VrfIp6IntfStatus> status_;
};

Kel::Ptr<Ipv6IntfStatus> ipv6IntfStatusFactory(const Kel::Ptr<const Ip6::VrfIp6IntfStatus>& status);

}  // namespace Routing::Protocol
