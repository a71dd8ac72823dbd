// Routing::RouteConfigLib: which route configuration tables a protocol's
// routes go to: one table for all VRFs, or one per VRF, and where the
// all-VRF table lives.
//
// Decided here: the default answer is the via configuration's
// (ViaConfigLib::isAllVrfViaConfigDefault): protocols that run one instance
// for every VRF ("bgp", "isis") write one all-VRF table per RIB and address
// family; a test or configuration sets either answer (allVrfRouteConfigIs)
// until allVrfRouteConfigReset. The all-VRF table of RIB <rib>, family <af>
// and protocol <name> is at "routing/<rib>/routeConfig/<af>/all/<name>".
#pragma once

#include <string_view>

#include "Kel/String.h"

namespace Routing::RouteConfigLib {

bool isAllVrfRouteConfig(std::string_view rib, std::string_view af, std::string_view protocolName);
void allVrfRouteConfigIs(std::string_view rib, std::string_view af, std::string_view protocolName,
                         bool allVrf);
void allVrfRouteConfigReset();

Kel::String allVrfRibMount(std::string_view rib, std::string_view af,
                           std::string_view protocolName);

}  // namespace Routing::RouteConfigLib
