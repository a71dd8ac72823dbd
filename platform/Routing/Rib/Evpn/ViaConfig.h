// Routing::Rib::Evpn::ViaConfig: the EVPN via records (VTEP, VNI, router
// MAC) that the RIB's EVPN via keys stand for, with the transport and the
// routing protocol of the table.
// See detail/ViaRecordTable.h for the contract, costs and capacity.
// Decided here: a record is stored under any key it is given; the key's kind
// is not checked to be EVPN. A new table serves Transport::evpn.
#pragma once

#include "platform/Routing/Rib/Evpn/Via.h"
#include "platform/Routing/Rib/detail/ViaRecordTable.h"

namespace Routing::Rib::Evpn {

class ViaConfig final : public detail::ViaRecordTable<ViaConfig, Via> {
 public:
  explicit ViaConfig(Transport transport = Transport::evpn)
      : ViaRecordTable("Routing::Rib::Evpn::ViaConfig", transport) {}
  const char* typeName() const override { return "Routing::Rib::Evpn::ViaConfig"; }
};

}  // namespace Routing::Rib::Evpn
