// The RIB library's configurable answers (all-VRF via and route tables,
// multicast protocols) taken both ways and reset, the paths it names, the
// transport strings, and the via set configuration key's canonical form.
#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "Kel/Error.h"
#include "Kel/Strep.h"
#include "platform/Routing/Rib/Ip/GlobalNextHopDependencyGraph.h"
#include "platform/Routing/Rib/RoutingProtocolHelper.h"
#include "platform/Routing/Rib/ViaSetConfigKey.h"
#include "platform/Routing/RouteConfigLib.h"
#include "platform/Routing/ViaConfigLib.h"

namespace Routing {
namespace {

TEST(RibLibraryAnswers, AllVrfTablesDefaultPerProtocolAndTakeOverrides) {
  // One instance for all VRFs: bgp and isis; static configuration has a table per VRF.
  for (auto* isAllVrf : {&ViaConfigLib::isAllVrfViaConfig, &RouteConfigLib::isAllVrfRouteConfig}) {
    EXPECT_TRUE(isAllVrf("rib", "ipv4", "bgp"));
    EXPECT_TRUE(isAllVrf("mrib", "ipv6", "isis"));
    EXPECT_FALSE(isAllVrf("rib", "ipv4", "static"));
    EXPECT_FALSE(isAllVrf("rib", "ipv4", "routeInput"));
  }
  // Each answer is set on its own, per table, until reset.
  ViaConfigLib::allVrfViaConfigIs("rib", "ipv4", "static", true);
  RouteConfigLib::allVrfRouteConfigIs("rib", "ipv4", "bgp", false);
  EXPECT_TRUE(ViaConfigLib::isAllVrfViaConfig("rib", "ipv4", "static"));
  EXPECT_FALSE(ViaConfigLib::isAllVrfViaConfig("rib", "ipv6", "static"));
  EXPECT_FALSE(RouteConfigLib::isAllVrfRouteConfig("rib", "ipv4", "static"));
  EXPECT_FALSE(RouteConfigLib::isAllVrfRouteConfig("rib", "ipv4", "bgp"));
  EXPECT_TRUE(ViaConfigLib::isAllVrfViaConfig("rib", "ipv4", "bgp"));
  ViaConfigLib::allVrfViaConfigReset();
  RouteConfigLib::allVrfRouteConfigReset();
  EXPECT_FALSE(ViaConfigLib::isAllVrfViaConfig("rib", "ipv4", "static"));
  EXPECT_TRUE(RouteConfigLib::isAllVrfRouteConfig("rib", "ipv4", "bgp"));
}

TEST(RibLibraryAnswers, MribProtocolsDefaultToStaticConfigurationAndTakeOverrides) {
  using Rib::RoutingProtocolHelper;
  EXPECT_TRUE(RoutingProtocolHelper::mribProtocol(2));
  EXPECT_FALSE(RoutingProtocolHelper::mribProtocol(4));
  RoutingProtocolHelper::mribProtocolIs(4, true);
  RoutingProtocolHelper::mribProtocolIs(2, false);
  EXPECT_TRUE(RoutingProtocolHelper::mribProtocol(4));
  EXPECT_FALSE(RoutingProtocolHelper::mribProtocol(2));
  RoutingProtocolHelper::mribProtocolReset();
  EXPECT_TRUE(RoutingProtocolHelper::mribProtocol(2));
  EXPECT_FALSE(RoutingProtocolHelper::mribProtocol(4));
}

TEST(RibLibraryPaths, TablePathsAndTransportStrings) {
  EXPECT_EQ(RouteConfigLib::allVrfRibMount("mrib", "ipv6", "bgp").view(),
            "routing/mrib/routeConfig/ipv6/all/bgp");
  using Rib::Ip::GlobalNextHopDependencyGraph;
  EXPECT_EQ(GlobalNextHopDependencyGraph::mountPath("rib").view(), "routing/rib/nhDependencyGraph");
  EXPECT_EQ(GlobalNextHopDependencyGraph::mountPath("mrib").view(),
            "routing/mrib/nhDependencyGraph");
  EXPECT_THROW(GlobalNextHopDependencyGraph::mountPath("rib6"), Kel::RangeError);
  EXPECT_EQ(Rib::toStrep(Rib::Transport::ipv4).view(), "ipv4");
  EXPECT_EQ(Rib::toStrep(Rib::Transport::ipv6).view(), "ipv6");
  EXPECT_EQ(Rib::toStrep(Rib::Transport::evpn).view(), "evpn");
}

TEST(RibLibraryKeys, ViaSetConfigKeyCanonicalFormOrderAndHash) {
  const Rib::ViaSetConfigKey k(2, 7);
  std::ostringstream os;
  os << k;
  EXPECT_EQ(os.str(), "Value('Routing::Rib::ViaSetConfigKey', ** {'protocol': 2, 'instance': 7})");
  EXPECT_EQ(Kel::strepToValue<Rib::ViaSetConfigKey>(os.str()), k);
  EXPECT_TRUE(Rib::ViaSetConfigKey(2, 7) < Rib::ViaSetConfigKey(3, 0));
  EXPECT_TRUE(Rib::ViaSetConfigKey(2, 0) < Rib::ViaSetConfigKey(2, 7));
  EXPECT_NE(k.hash(1), Rib::ViaSetConfigKey(7, 2).hash(1));
  EXPECT_THROW(Kel::strepToValue<Rib::ViaSetConfigKey>(
                   "Value('Routing::Rib::ViaSetConfigKey', ** {'protocol': 256, 'instance': 0})"),
               Kel::DeserializationError);
}

}  // namespace
}  // namespace Routing
