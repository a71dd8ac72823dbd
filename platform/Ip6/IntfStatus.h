// The platform's IPv6 interface status, per VRF:
//   Ip6::Status -> VrfIp6IntfStatus (by VRF name) -> IntfStatus (by interface id)
// The IPv6 twin of Ip/IntfStatus.h, with the same body (Ip/detail/IntfStatusBase.h),
// contract, costs and decisions.
#pragma once

#include <cstdint>
#include <utility>

#include "platform/Ip/detail/IntfStatusBase.h"
#include "platform/L3/VrfName.h"

namespace Ip6 {

// One interface.
class IntfStatus final : public Ip::detail::IntfStatusBase<IntfStatus> {
 public:
  using IntfStatusBase::IntfStatusBase;
  const char* typeName() const override { return "Ip6::IntfStatus"; }
};

// The IPv6 interfaces of one VRF.
class VrfIp6IntfStatus final
    : public Ip::detail::ChildStatusMap<Pando::IntfId, IntfStatus, &IntfStatus::intfId> {
 public:
  class Notifiee : public Kel::NotifieeOf<VrfIp6IntfStatus> {
   public:
    virtual void onIp6IntfStatus(const Pando::IntfId&) {}
  };
  explicit VrfIp6IntfStatus(const L3::VrfName& vrfName) : vrfName_(vrfName) {}
  const char* typeName() const override { return "Ip6::VrfIp6IntfStatus"; }

  const L3::VrfName& vrfName() const { return vrfName_; }

  const Map& ip6IntfStatus() const { return children(); }
  Kel::Ptr<IntfStatus> ip6IntfStatus(const Pando::IntfId& i) const { return child(i); }
  bool ip6IntfStatusHas(const Pando::IntfId& i) const { return childHas(i); }
  uint32_t ip6IntfStatusSize() const { return childSize(); }
  // Creates the entry when absent; returns it.
  Kel::Ptr<IntfStatus> ip6IntfStatusIs(const Pando::IntfId& i) {
    return childIs(i, &Notifiee::onIp6IntfStatus);
  }
  void ip6IntfStatusIs(Kel::Ptr<IntfStatus> s) {
    childIs(std::move(s), &Notifiee::onIp6IntfStatus, "ip6IntfStatusIs");
  }
  void ip6IntfStatusDel(const Pando::IntfId& i) { childDel(i, &Notifiee::onIp6IntfStatus); }
  void ip6IntfStatusDelAll() { childDelAll(&Notifiee::onIp6IntfStatus); }

 private:
  L3::VrfName vrfName_;
};

// The IPv6 interface status of every VRF.
class Status final
    : public Ip::detail::ChildStatusMap<L3::VrfName, VrfIp6IntfStatus, &VrfIp6IntfStatus::vrfName> {
 public:
  class Notifiee : public Kel::NotifieeOf<Status> {
   public:
    virtual void onVrfIp6IntfStatus(const L3::VrfName&) {}
  };
  const char* typeName() const override { return "Ip6::Status"; }

  const Map& vrfIp6IntfStatus() const { return children(); }
  Kel::Ptr<VrfIp6IntfStatus> vrfIp6IntfStatus(const L3::VrfName& v) const { return child(v); }
  bool vrfIp6IntfStatusHas(const L3::VrfName& v) const { return childHas(v); }
  uint32_t vrfIp6IntfStatusSize() const { return childSize(); }
  // Creates the VRF's entry when absent; returns it.
  Kel::Ptr<VrfIp6IntfStatus> vrfIp6IntfStatusIs(const L3::VrfName& v) {
    return childIs(v, &Notifiee::onVrfIp6IntfStatus);
  }
  void vrfIp6IntfStatusDel(const L3::VrfName& v) { childDel(v, &Notifiee::onVrfIp6IntfStatus); }
  void vrfIp6IntfStatusDelAll() { childDelAll(&Notifiee::onVrfIp6IntfStatus); }
};

}  // namespace Ip6
