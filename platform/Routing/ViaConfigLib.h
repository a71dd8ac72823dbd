// Routing::ViaConfigLib: which via configuration tables a protocol's vias
// live in, and the names the RIB library gives its numbers.
//
// Decided here: "bgp" and "isis" each run one instance for every VRF and
// publish their vias in one table per RIB and transport, resolved for all
// VRFs at once; every other protocol (static configuration, connected,
// routeInput, ospf) has a table per VRF. A RIB name, transport or protocol
// name the RIB does not know gets a table per VRF, which never mixes VRFs.
// Protocol numbers: 0 "unknown", 1 "connected", 2 "static", 3 "bgp",
// 4 "routeInput", 5 "isis", 6 "ospf"; transports: 0 "none", 1 "ipv4",
// 2 "ipv6", 3 "evpn". A number outside these tables is a Kel::RangeError.
// Overrides (allVrfViaConfigIs) take precedence over these defaults until
// allVrfViaConfigReset; see AnswerOverride.h.
// All calls are free of allocation but getRibStringFromIpViaConfig's copy
// and the overrides.
#pragma once

#include <string>
#include <string_view>

#include "Kel/Enum.h"
#include "Kel/String.h"
#include "platform/Routing/Rib/Ip/ViaConfig.h"
#include "platform/Routing/Rib/Transport.h"

namespace Routing::Rib {

const Kel::EnumInfo& routingProtocolEnumInfo();
// The protocol's name, e.g. "static" for 2.
std::string_view stringValue(RoutingProtocol rp);

const Kel::EnumInfo& transportEnumInfo();
// The transport's name, the address-family string of its vias: "ipv4", "ipv6", "evpn".
std::string_view stringValue(Transport t);
// The same name as a Kel::String, for paths.
Kel::String toStrep(Transport t);

}  // namespace Routing::Rib

namespace Routing::ViaConfigLib {

// Whether protocol `protocolName` keeps the vias of RIB `ribName` ("rib",
// "mrib") and transport `transport` ("ipv4", "ipv6", "evpn") in one table
// shared by all VRFs.
bool isAllVrfViaConfig(std::string_view ribName, std::string_view transport,
                       std::string_view protocolName);
// The answer without overrides.
bool isAllVrfViaConfigDefault(std::string_view ribName, std::string_view transport,
                              std::string_view protocolName);
void allVrfViaConfigIs(std::string_view ribName, std::string_view transport,
                       std::string_view protocolName, bool allVrf);
void allVrfViaConfigReset();

// The RIB the via configuration serves: "rib" or "mrib".
std::string getRibStringFromIpViaConfig(const Rib::Ip::ViaConfig& config);

}  // namespace Routing::ViaConfigLib
