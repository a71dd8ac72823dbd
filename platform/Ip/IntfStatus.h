// The platform's IPv4 interface status, per VRF:
//   Ip::Status -> VrfIpIntfStatus (by VRF name) -> IpIntfStatus (by interface id)
// The interface service writes; readers watch. See detail/IntfStatusBase.h
// for the contract and costs, shared with Ip6/IntfStatus.h.
// Decided here: ipIntfStatusIs(entry) files a ready-made entry under its own
// interface id, replacing the one there (one notification); a replaced or
// deleted entry lives on while a reader holds it. A null entry raises
// Kel::NullArgumentError.
#pragma once

#include <cstdint>
#include <utility>

#include "platform/Ip/detail/IntfStatusBase.h"
#include "platform/L3/VrfName.h"

namespace Ip {

// One interface.
class IpIntfStatus final : public detail::IntfStatusBase<IpIntfStatus> {
 public:
  using IntfStatusBase::IntfStatusBase;
  const char* typeName() const override { return "Ip::IpIntfStatus"; }
};

// The IPv4 interfaces of one VRF.
class VrfIpIntfStatus final
    : public detail::ChildStatusMap<Pando::IntfId, IpIntfStatus, &IpIntfStatus::intfId> {
 public:
  class Notifiee : public Kel::NotifieeOf<VrfIpIntfStatus> {
   public:
    virtual void onIpIntfStatus(const Pando::IntfId&) {}
  };
  explicit VrfIpIntfStatus(const L3::VrfName& vrfName) : vrfName_(vrfName) {}
  const char* typeName() const override { return "Ip::VrfIpIntfStatus"; }

  const L3::VrfName& vrfName() const { return vrfName_; }

  const Map& ipIntfStatus() const { return children(); }
  Kel::Ptr<IpIntfStatus> ipIntfStatus(const Pando::IntfId& i) const { return child(i); }
  bool ipIntfStatusHas(const Pando::IntfId& i) const { return childHas(i); }
  uint32_t ipIntfStatusSize() const { return childSize(); }
  // Creates the entry when absent; returns it.
  Kel::Ptr<IpIntfStatus> ipIntfStatusIs(const Pando::IntfId& i) {
    return childIs(i, &Notifiee::onIpIntfStatus);
  }
  void ipIntfStatusIs(Kel::Ptr<IpIntfStatus> s) {
    childIs(std::move(s), &Notifiee::onIpIntfStatus, "ipIntfStatusIs");
  }
  void ipIntfStatusDel(const Pando::IntfId& i) { childDel(i, &Notifiee::onIpIntfStatus); }
  void ipIntfStatusDelAll() { childDelAll(&Notifiee::onIpIntfStatus); }

 private:
  L3::VrfName vrfName_;
};

// The IPv4 interface status of every VRF.
class Status final
    : public detail::ChildStatusMap<L3::VrfName, VrfIpIntfStatus, &VrfIpIntfStatus::vrfName> {
 public:
  class Notifiee : public Kel::NotifieeOf<Status> {
   public:
    virtual void onVrfIpIntfStatus(const L3::VrfName&) {}
  };
  const char* typeName() const override { return "Ip::Status"; }

  const Map& vrfIpIntfStatus() const { return children(); }
  Kel::Ptr<VrfIpIntfStatus> vrfIpIntfStatus(const L3::VrfName& v) const { return child(v); }
  bool vrfIpIntfStatusHas(const L3::VrfName& v) const { return childHas(v); }
  uint32_t vrfIpIntfStatusSize() const { return childSize(); }
  // Creates the VRF's entry when absent; returns it.
  Kel::Ptr<VrfIpIntfStatus> vrfIpIntfStatusIs(const L3::VrfName& v) {
    return childIs(v, &Notifiee::onVrfIpIntfStatus);
  }
  void vrfIpIntfStatusDel(const L3::VrfName& v) { childDel(v, &Notifiee::onVrfIpIntfStatus); }
  void vrfIpIntfStatusDelAll() { childDelAll(&Notifiee::onVrfIpIntfStatus); }
};

}  // namespace Ip
