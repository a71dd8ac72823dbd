// Routing::Rib::Evpn::Via: one EVPN via record: the remote VTEP's address,
// the VNI, and the router MAC to rewrite to.
//
// A plain value; the router MAC is the 48-bit address in the low bits.
// Printed "vtep 10.0.0.9 vni 100 routerMac 00:1c:73:00:00:01".
// Decided here: a record with no VTEP (the empty address) is the default.
#pragma once

#include <cstdint>
#include <iosfwd>

#include "platform/Pando/IpGenAddr.h"

namespace Routing::Rib::Evpn {

class Via {
 public:
  Via() = default;
  Via(const Pando::IpGenAddr& vtep, uint32_t vni, uint64_t routerMac)
      : vtep_(vtep), vni_(vni), routerMac_(routerMac) {}

  const Pando::IpGenAddr& vtep() const { return vtep_; }
  uint32_t vni() const { return vni_; }
  uint64_t routerMac() const { return routerMac_; }

  void vtepIs(const Pando::IpGenAddr& a) { vtep_ = a; }
  void vniIs(uint32_t v) { vni_ = v; }
  void routerMacIs(uint64_t m) { routerMac_ = m; }

  friend bool operator==(const Via&, const Via&) = default;

 private:
  Pando::IpGenAddr vtep_;
  uint32_t vni_ = 0;
  uint64_t routerMac_ = 0;
};

std::ostream& operator<<(std::ostream& os, const Via& v);

}  // namespace Routing::Rib::Evpn
