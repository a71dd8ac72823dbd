// Values of BFD tracking for static routes: the tracked via and the status
// key of the BFD session it needs (the route a via belongs to is a
// Routing::RouteKey, Route/RouteKey.h).
//
// All are small values: copies are cheap (interface names are shared), ==,
// < and hash(seed) cost a few cycles. Order and hash go through the fields in
// declaration order.
// Decided here: Routing::Via prints as "addr 10.0.0.1 intf Ethernet1 label 16"
// and leaves out the label when it is noLabel.
#pragma once

#include <cstdint>
#include <iosfwd>

#include "platform/Pando/IntfId.h"
#include "platform/Pando/IpGenAddr.h"
#include "platform/Pando/IpGenPrefix.h"
#include "platform/Routing/Route/RouteKey.h"
#include "platform/Routing/RouteTypes.h"

namespace Routing {

// One tracked next hop of a static route.
class Via {
 public:
  // Labels are 20 bits; this value is none.
  static constexpr uint32_t noLabel = 0x100000;

  Via() = default;
  Via(const Pando::IpGenAddr& addr, const Pando::IntfId& intf, uint32_t label = noLabel)
      : addr_(addr), intf_(intf), label_(label) {}

  const Pando::IpGenAddr& addr() const { return addr_; }
  const Pando::IntfId& intf() const { return intf_; }
  uint32_t label() const { return label_; }

  uint32_t hash(uint32_t seed) const {
    return Kel::Hasher(seed).add(addr_.hash(seed)).add(intf_.hash(seed)).add(label_).result();
  }
  friend bool operator==(const Via& a, const Via& b) {
    return a.addr_ == b.addr_ && a.intf_ == b.intf_ && a.label_ == b.label_;
  }
  friend bool operator<(const Via& a, const Via& b) {
    if (!(a.addr_ == b.addr_)) return a.addr_ < b.addr_;
    if (!(a.intf_ == b.intf_)) return a.intf_ < b.intf_;
    return a.label_ < b.label_;
  }

 private:
  Pando::IpGenAddr addr_;
  Pando::IntfId intf_;
  uint32_t label_ = noLabel;
};

// The BFD session a tracked via needs: its next-hop address, and the
// interface only where the address alone is ambiguous (IPv6 link-local).
// The default key has the empty address (family 0) and no interface.
class BfdStatusKey {
 public:
  BfdStatusKey() = default;
  BfdStatusKey(const Pando::IpGenAddr& addr, const Pando::IntfId& intf)
      : addr_(addr), intf_(intf) {}

  const Pando::IpGenAddr& addr() const { return addr_; }
  const Pando::IntfId& intf() const { return intf_; }

  uint32_t hash(uint32_t seed) const {
    return Kel::Hasher(seed).add(addr_.hash(seed)).add(intf_.hash(seed)).result();
  }
  friend bool operator==(const BfdStatusKey& a, const BfdStatusKey& b) {
    return a.addr_ == b.addr_ && a.intf_ == b.intf_;
  }
  friend bool operator<(const BfdStatusKey& a, const BfdStatusKey& b) {
    if (!(a.addr_ == b.addr_)) return a.addr_ < b.addr_;
    return a.intf_ < b.intf_;
  }

 private:
  Pando::IpGenAddr addr_;
  Pando::IntfId intf_;
};

// "addr 10.0.0.1 intf Ethernet1", and " label 16" when labelled.
std::ostream& operator<<(std::ostream& os, const Via& v);
// "addr 10.0.0.1 intf none".
std::ostream& operator<<(std::ostream& os, const BfdStatusKey& k);

}  // namespace Routing
