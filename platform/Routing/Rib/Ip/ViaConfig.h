// Routing::Rib::Ip::ViaConfig: the IP via records (next hop, interface,
// label, resolution RIBs, colours) that the RIB's via keys stand for.
// See detail/ViaRecordTable.h for the contract and costs.
// Decided here: a record is stored under any key it is given; the key's kind
// is not checked against the next hop's family.
#pragma once

#include "platform/Routing/Rib/Via.h"
#include "platform/Routing/Rib/detail/ViaRecordTable.h"

namespace Routing::Rib::Ip {

class ViaConfig final : public detail::ViaRecordTable<ViaConfig, Via> {
 public:
  const char* typeName() const override { return "Routing::Rib::Ip::ViaConfig"; }
};

}  // namespace Routing::Rib::Ip
