// Every bad input the library can meet, with its exact error, and what stays
// as it was: the keys' canonical forms (a field's range error names the
// attribute), a route with more vias than a via set holds, and a full RIB
// route table. The README lists these rows beside the other layers'.
#include <gtest/gtest.h>

#include "IpRib/ProtocolContainerKey.h"
#include "IpRib/ProtocolRouteLeak.h"
#include "IpRib/ProtocolRouteStatus.h"
#include "tests/BadInputRows.h"
#include "tests/IpRib/RouteStatusSmFixture.h"

namespace Routing::Protocol::Test {
namespace {

using BadInput::expectRefused;
using Pando::AddressFamily;
using Pando::IpGenPrefix;

const std::string tooLongName(101, 'v');

TEST(BadInputTest, KeyTextsAreRefusedNamingThePieceOrAttribute) {
  expectRefused(
      ContainerKey(L3::VrfName("red"), AddressFamily::ipv4),
      {{"Value('Routing::Protocol::ContainerKey', ** {'vrfName': '" + tooLongName +
            "', 'af': ipv4})",
        "Failed to deserialize attribute 'vrfName': VrfName::value::bytes > VrfName::maxLength "
        "not allowed"},
       {"Value('Routing::Protocol::ContainerKey', ** {'vrfName': 'red', 'af': ipv5})",
        "Failed to deserialize attribute 'af': Pando::AddressFamily: no enumerator named 'ipv5'"},
       {"Value('Routing::Protocol::ContainerKey', ** {'vrfName': 'red, 'af': ipv4})",
        "expected \", \" at \"af': ipv4})\""},
       {"Value('Routing::Protocol::ContainerKey', ** {'vrfName': 'red', 'af': 7})",
        "Failed to deserialize attribute 'af': Pando::AddressFamily: no enumerator with value 7"}});
  expectRefused(
      RouteStatusKey(3, AddressFamily::ipv6),
      {{"Value('Routing::Protocol::RouteStatusKey', ** {'vrfId': 4294967296, 'af': ipv4})",
        "Failed to deserialize attribute 'vrfId': Vrf::VrfIdMap::VrfId value 4294967296 out of "
        "range"},
       {"Value('Routing::Protocol::RouteStatusKey', ** {'vrfId': -1, 'af': ipv4})",
        "expected a number at \"-1, 'af': ipv4})\""},
       {"Value('Routing::Protocol::RouteStatusKey', ** {'vrfId': 3, 'af': ipv4}) ",
        "trailing text after value: ' '"}});
  expectRefused(
      PrefixPrefVrfId(IpGenPrefix("10.1.0.0/24"), 1, 3),
      {{"Value('Routing::Protocol::PrefixPrefVrfId', ** {'prefix': 10.1.0.0/33, 'pref': 1, "
        "'vrfId': 3})",
        "Failed to deserialize attribute 'prefix': IP prefix length 33 exceeds 32 in "
        "\"10.1.0.0/33\""},
       {"Value('Routing::Protocol::PrefixPrefVrfId', ** {'prefix': 10.1.0/24, 'pref': 1, "
        "'vrfId': 3})",
        "invalid IP prefix \"10.1.0/24\""},
       {"Value('Routing::Protocol::PrefixPrefVrfId', ** {'prefix': 10.1.0.0/24, 'pref': 256, "
        "'vrfId': 3})",
        "Failed to deserialize attribute 'pref': Routing::RoutePreference value 256 out of "
        "range"}});
  expectRefused(ViaType(ViaTypeEnum::viaDefault),
                {{"viaUnknown",
                  "Failed to deserialize attribute 'viaType': Routing::Protocol::ViaTypeEnum: no "
                  "enumerator named 'viaUnknown'"},
                 {"5",
                  "Failed to deserialize attribute 'viaType': Routing::Protocol::ViaTypeEnum: no "
                  "enumerator with value 5"},
                 {"", "expected a Routing::Protocol::ViaTypeEnum enumerator at \"\""}});
  expectRefused(VrfIdAf(3, AddressFamily::ipv4),
                {{"Value('Routing::Protocol::VrfIdAf', ** {'vrfId': 3, 'af': ipv6, })",
                  "expected \"})\" at \", })\""}});
  expectRefused(
      VrfPairAf(1, 2, AddressFamily::ipv4),
      {{"Value('Routing::Protocol::VrfPairAf', ** {'srcVrf': 1, 'dstVrf': 99999999999, 'af': "
        "ipv4})",
        "Failed to deserialize attribute 'dstVrf': Vrf::VrfIdMap::VrfId value 99999999999 out of "
        "range"}});
}

TEST(BadInputTest, EnumeratorServicesRefuseUnknownNumbersAndNames) {
  const auto error = [](auto lookup) -> std::string {
    try {
      lookup();
    } catch (const Kel::RangeError& e) {
      return e.what();
    }
    return "<accepted>";
  };
  EXPECT_EQ(error([] { ViaTypeEnumInstance(5); }),
            "Routing::Protocol::ViaTypeEnum: no enumerator with value 5");
  EXPECT_EQ(error([] { ViaTypeEnumInstance("viaintfonly"); }),
            "Routing::Protocol::ViaTypeEnum: no enumerator named 'viaintfonly'");
}

// A via set holds 600 vias: the 601st abandons the prefix's evaluation with
// a notice, and the route the RIB has stays as it was.
TEST(BadInputTest, The601stViaLeavesTheRibRouteAsItWas) {
  RouteStatusWorld w;
  const IpGenPrefix p("10.9.0.0/24");
  for (uint32_t i = 1; i <= 601; ++i) w.resolve(i);
  for (uint32_t i = 1; i <= 600; ++i) w.addVia(p, 1, ViaTypeEnum::viaIntfNextHop, i);
  w.touch(p);
  w.start();
  w.status->initializedIs(true);
  w.runUntilQuiet();
  ASSERT_EQ(w.ribVias(p).size(), 600u);
  const std::vector<uint32_t> before = w.ribVias(p);
  const uint32_t viaSets = w.viaSets->size();

  Kel::TraceCapture capture;
  w.addVia(p, 1, ViaTypeEnum::viaIntfNextHop, 601);
  w.runUntilQuiet();
  EXPECT_EQ(capture.messages(),
            std::vector<std::string>{"Vrf: red (10.9.0.0/24), evaluation abandoned: "
                                     "ViaIndex::value < ViaIndex::min or > ViaIndex::max not "
                                     "allowed"});
  EXPECT_EQ(w.ribVias(p), before);
  EXPECT_EQ(w.viaSets->size(), viaSets);
}

// A full RIB route table refuses a new prefix; the routes it has stay, and
// no via set is left behind for the refused one.
TEST(BadInputTest, AFullRouteTableKeepsItsRoutes) {
  RouteStatusWorld w;
  w.ribConfig->capacityIs(1);
  const IpGenPrefix first("10.1.0.0/24"), second("10.2.0.0/24");
  w.resolve(1);
  w.resolve(2);
  w.addVia(first, 1, ViaTypeEnum::viaIntfNextHop, 1);
  w.touch(first);
  w.start();
  w.status->initializedIs(true);
  w.runUntilQuiet();
  ASSERT_EQ(w.ribVias(first), std::vector<uint32_t>{1});
  const uint32_t viaSets = w.viaSets->size();

  Kel::TraceCapture capture;
  w.addVia(second, 1, ViaTypeEnum::viaIntfNextHop, 2);
  w.touch(second);
  w.runUntilQuiet();
  EXPECT_EQ(capture.messages(),
            std::vector<std::string>{"Vrf: red (10.2.0.0/24), evaluation abandoned: "
                                     "RouteConfig::route capacity exceeded"});
  EXPECT_EQ(w.ribVias(first), std::vector<uint32_t>{1});
  EXPECT_EQ(w.ribRoute(second), nullptr);
  EXPECT_EQ(w.viaSets->size(), viaSets);
}

}  // namespace
}  // namespace Routing::Protocol::Test
