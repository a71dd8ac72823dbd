// IntfSm: keeps one IntfStatus (one VRF, one address family) telling its
// reader when to ask intf again.
//
// It watches the platform's interface set of the VRF (KelIpv4Status or
// KelIpv6Status) and, through one nested reactor per interface
// (KelIpv4IntfStatus, KelIpv6IntfStatus), each interface's dpRoutingEnabled.
// Every interface added, replaced or removed and every flag change calls
// handleIntfStatus, which bumps intfStatusChanged by exactly one. Pointing
// it at another interface set resynchronises the per-interface reactors
// without a bump. Dropping it bumps nothing.
//
// Costs: one flag change is one dispatch and one counter write; the
// interface set changing costs one hash look-up more. Start and resync are
// linear in the interfaces of the VRF. One thread; hasNotificationActiveIs
// switches the nested reactors with it. Held by Ptr (IntfSmIs): a reader
// woken by the counter may drop it, or point it at another set, safely.
#pragma once

#include <cstdint>

#include "IpRib/ProtocolIntf.h"
#include "Kel/NestedReactors.h"
#include "platform/Ip/IntfStatus.h"
#include "platform/Ip6/IntfStatus.h"
#include "platform/Pando/IntfId.h"

namespace Routing::Protocol {

class IntfSm final : public Kel::NotifieeBase {
 public:
  // `intfStatus` must be an Ipv4IntfStatus or an Ipv6IntfStatus: anything
  // else (null included) aborts at start.
  explicit IntfSm(const Kel::Ptr<IntfStatus>& intfStatus);
  ~IntfSm() override;
  static Kel::Ptr<IntfSm> IntfSmIs(const Kel::Ptr<IntfStatus>& intfStatus);
  const char* typeName() const { return "Routing::Protocol::IntfSm"; }

  const Kel::Ptr<IntfStatus>& intfStatus() const { return intfStatus_; }
  bool initialized() const { return initialized_; }

  // Runs at the end of the constructor: attaches to the kind's interface set.
  void handleInitialized();
  void handleIntfStatus(const Pando::IntfId& intfId);

  // The interface set watched, null when none. Setting it to the one watched
  // does nothing; null is ipv4StatusDel. Deleting it drops every
  // per-interface reactor too.
  const Ip::VrfIpIntfStatus* ipv4Status() const;
  void ipv4StatusIs(const Kel::Ptr<const Ip::VrfIpIntfStatus>& vrfIpIntfStatus);
  void ipv4StatusDel();
  // The entry the reactor for `intfId` watches; null without one.
  const Ip::IpIntfStatus* ipv4IntfStatus(const Pando::IntfId& intfId) const;
  uint32_t ipv4IntfStatusSize() const;
  // Keeps a reactor already on this very entry, else replaces it. Null
  // raises Kel::NullArgumentError.
  void ipv4IntfStatusIs(const Kel::Ptr<const Ip::IpIntfStatus>& ipIntfStatus);
  void ipv4IntfStatusDel(const Pando::IntfId& intfId);
  void ipv4IntfStatusDelAll();

  // The same for IPv6.
  const Ip6::VrfIp6IntfStatus* ipv6Status() const;
  void ipv6StatusIs(const Kel::Ptr<const Ip6::VrfIp6IntfStatus>& vrfIp6IntfStatus);
  void ipv6StatusDel();
  const Ip6::IntfStatus* ipv6IntfStatus(const Pando::IntfId& intfId) const;
  uint32_t ipv6IntfStatusSize() const;
  void ipv6IntfStatusIs(const Kel::Ptr<const Ip6::IntfStatus>& ip6IntfStatus);
  void ipv6IntfStatusDel(const Pando::IntfId& intfId);
  void ipv6IntfStatusDelAll();

  class KelIpv4Status;
  class KelIpv6Status;
  class KelIpv4IntfStatus;
  class KelIpv6IntfStatus;

 private:
  // One per family: the platform types and this reactor's members for it.
  struct Ipv4;
  struct Ipv6;
  template <class F>
  class KelStatusBase;
  template <class F>
  class KelIntfStatusBase;

  template <class F>
  void statusIs(const Kel::Ptr<const typename F::VrfStatus>& status);
  template <class F>
  void statusDel();
  template <class F>
  const typename F::VrfStatus* status() const;
  template <class F>
  void intfStatusIs(const Kel::Ptr<const typename F::Entry>& entry);
  template <class F>
  const typename F::Entry* intfStatusOf(const Pando::IntfId& intfId) const;

  // Destroyed bottom up: the per-interface reactors before the set reactors.
  Kel::Ptr<IntfStatus> intfStatus_;
  Kel::NestedReactor<KelIpv4Status> kelIpv4Status_;
  Kel::NestedReactor<KelIpv6Status> kelIpv6Status_;
  Kel::NestedReactors<Pando::IntfId, KelIpv4IntfStatus> kelIpv4IntfStatus_;
  Kel::NestedReactors<Pando::IntfId, KelIpv6IntfStatus> kelIpv6IntfStatus_;
  bool initialized_ = false;
};

Kel::Ptr<IntfSm> intfSmFactory(const Kel::Ptr<IntfStatus>& intfStatus);

}  // namespace Routing::Protocol
