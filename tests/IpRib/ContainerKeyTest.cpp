// Keys and value types: canonical forms, parse errors, hash and order rules.
#include <gtest/gtest.h>

#include <sstream>

#include "IpRib/ProtocolContainerKey.h"
#include "IpRib/ProtocolRouteStatus.h"

namespace Routing::Protocol {
namespace {

using Pando::AddressFamily;
using Pando::IpGenPrefix;

template <class T>
void expectRoundTrip(const T& value, const std::string& text) {
  EXPECT_EQ(valueToStrep(value), text);
  std::ostringstream os;
  os << value;
  EXPECT_EQ(os.str(), text);
  T back = Kel::strepToValue<T>(text);
  EXPECT_TRUE(back == value) << text;
  // The parse constructor stops right behind the value.
  const std::string padded = text + " tail";
  std::string_view view(padded);
  Kel::StrepIt it = view.begin();
  T(it, view.end());
  EXPECT_EQ(std::string(it, view.end()), " tail");
}

TEST(ContainerKeyTest, CanonicalFormsRoundTripDefaultsIncluded) {
  expectRoundTrip(ContainerKey(L3::VrfName("red"), AddressFamily::ipv4),
                  "Value('Routing::Protocol::ContainerKey', ** {'vrfName': 'red', 'af': ipv4})");
  expectRoundTrip(ContainerKey(),
                  "Value('Routing::Protocol::ContainerKey', ** {'vrfName': '', 'af': ipunknown})");
  expectRoundTrip(ContainerKey(L3::VrfName("it's"), AddressFamily::ipv6),
                  "Value('Routing::Protocol::ContainerKey', ** {'vrfName': 'it\\'s', 'af': ipv6})");
  expectRoundTrip(RouteStatusKey(7, AddressFamily::ipv6),
                  "Value('Routing::Protocol::RouteStatusKey', ** {'vrfId': 7, 'af': ipv6})");
  expectRoundTrip(
      RouteStatusKey(),
      "Value('Routing::Protocol::RouteStatusKey', ** {'vrfId': 16777215, 'af': ipunknown})");
  expectRoundTrip(PrefixPrefVrfId(IpGenPrefix("10.1.0.0/24"), 200, 0),
                  "Value('Routing::Protocol::PrefixPrefVrfId', ** {'prefix': 10.1.0.0/24, "
                  "'pref': 200, 'vrfId': 0})");
  expectRoundTrip(PrefixPrefVrfId(),
                  "Value('Routing::Protocol::PrefixPrefVrfId', ** {'prefix': none, "
                  "'pref': 1, 'vrfId': 16777215})");
  expectRoundTrip(ViaType(), "viaInvalid");
  expectRoundTrip(ViaType(ViaTypeEnum::viaIntfNextHop), "viaIntfNextHop");
  expectRoundTrip(ViaType(ViaTypeEnum::viaNextHopOnly), "viaNextHopOnly");
  expectRoundTrip(ViaType(ViaTypeEnum::viaIntfOnly), "viaIntfOnly");
  expectRoundTrip(ViaType(ViaTypeEnum::viaDefault), "viaDefault");
}

TEST(ContainerKeyTest, TraceForms) {
  EXPECT_EQ(RouteStatusKey(3, AddressFamily::ipv4).str(), " (RSK 3, ipv4)");
  EXPECT_EQ(PrefixPrefVrfId(IpGenPrefix("2001:db8::/32"), 1, 5).str(),
            " (2001:db8::/32, pref: 1, vrf: 5)");
}

TEST(ContainerKeyTest, ParseErrorsNameTheFailingPieceOrAttribute) {
  // A literal piece that does not match is a parse error.
  EXPECT_THROW(Kel::strepToValue<RouteStatusKey>(
                   "Value('Routing::Protocol::ContainerKey', ** {'vrfId': 1, 'af': ipv4})"),
               Kel::ParseError);
  EXPECT_THROW(Kel::strepToValue<RouteStatusKey>(
                   "Value('Routing::Protocol::RouteStatusKey', ** {'vrfId': 1 'af': ipv4})"),
               Kel::ParseError);
  EXPECT_THROW(Kel::strepToValue<RouteStatusKey>(
                   "Value('Routing::Protocol::RouteStatusKey', ** {'vrfId': 1, 'af': ipv4}) x"),
               Kel::ParseError);

  auto attributeOf = [](auto parse) -> std::string {
    try {
      parse();
    } catch (const Kel::DeserializationError& e) {
      return e.attribute();
    }
    return "<no error>";
  };
  EXPECT_EQ(attributeOf([] {
              Kel::strepToValue<ContainerKey>(
                  "Value('Routing::Protocol::ContainerKey', ** "
                  "{'vrfName': '" +
                  std::string(101, 'x') + "', 'af': ipv4})");
            }),
            "vrfName");
  EXPECT_EQ(attributeOf([] {
              Kel::strepToValue<ContainerKey>(
                  "Value('Routing::Protocol::ContainerKey', ** {'vrfName': 'a', 'af': ipv9})");
            }),
            "af");
  EXPECT_EQ(
      attributeOf([] {
        Kel::strepToValue<RouteStatusKey>(
            "Value('Routing::Protocol::RouteStatusKey', ** {'vrfId': 4294967296, 'af': ipv4})");
      }),
      "vrfId");
  EXPECT_EQ(attributeOf([] {
              Kel::strepToValue<PrefixPrefVrfId>(
                  "Value('Routing::Protocol::PrefixPrefVrfId', ** "
                  "{'prefix': 10.0.0.0/33, 'pref': 1, 'vrfId': 0})");
            }),
            "prefix");
  EXPECT_EQ(attributeOf([] {
              Kel::strepToValue<PrefixPrefVrfId>(
                  "Value('Routing::Protocol::PrefixPrefVrfId', ** "
                  "{'prefix': 10.0.0.0/8, 'pref': 256, 'vrfId': 0})");
            }),
            "pref");
  EXPECT_EQ(attributeOf([] { Kel::strepToValue<ViaType>("viaSideways"); }), "viaType");
  EXPECT_EQ(attributeOf([] { Kel::strepToValue<ViaType>("5"); }), "viaType");
  // A number in range reads as its enumerator.
  EXPECT_TRUE(Kel::strepToValue<ViaType>("3") == ViaType(ViaTypeEnum::viaIntfOnly));
}

TEST(ContainerKeyTest, HashRules) {
  const ContainerKey v4(L3::VrfName("blue"), AddressFamily::ipv4);
  const ContainerKey v6(L3::VrfName("blue"), AddressFamily::ipv6);
  EXPECT_NE(v4.hash(0), v6.hash(0));
  EXPECT_EQ(v4.hash(17), ContainerKey(L3::VrfName("blue"), AddressFamily::ipv4).hash(17));
  EXPECT_NE(v4.hash(17), v4.hash(18));
  // Fields are fed in declaration order.
  EXPECT_EQ(v4.hash(9), Kel::Hasher(9).add(L3::VrfName("blue").hash(9)).add(uint32_t(1)).result());
  EXPECT_EQ(RouteStatusKey(5, AddressFamily::ipv6).hash(3),
            Kel::Hasher(3).add(uint32_t(5)).add(uint32_t(2)).result());
  const IpGenPrefix p("10.1.0.0/24");
  EXPECT_EQ(PrefixPrefVrfId(p, 20, 4).hash(1),
            Kel::Hasher(1).add(p.hash()).add(uint32_t(20)).add(uint32_t(4)).result());
  EXPECT_EQ(ViaType(ViaTypeEnum::viaIntfOnly).hash(2), Kel::Hasher(2).add(uint32_t(3)).result());
}

TEST(ContainerKeyTest, OrderRules) {
  const ContainerKey a4(L3::VrfName("a"), AddressFamily::ipv4);
  const ContainerKey a6(L3::VrfName("a"), AddressFamily::ipv6);
  const ContainerKey b4(L3::VrfName("b"), AddressFamily::ipv4);
  EXPECT_TRUE(a4 < a6);
  EXPECT_TRUE(a6 < b4);
  EXPECT_FALSE(a6 < a4);
  EXPECT_FALSE(a4 == a6);

  EXPECT_TRUE(RouteStatusKey(1, AddressFamily::ipv6) < RouteStatusKey(2, AddressFamily::ipv4));
  EXPECT_TRUE(RouteStatusKey(1, AddressFamily::ipv4) < RouteStatusKey(1, AddressFamily::ipv6));

  const IpGenPrefix p("10.1.0.0/24"), q("10.2.0.0/24");
  EXPECT_TRUE(PrefixPrefVrfId(p, 1, 9) < PrefixPrefVrfId(p, 200, 0));
  EXPECT_TRUE(PrefixPrefVrfId(p, 200, 9) < PrefixPrefVrfId(q, 1, 0));  // the prefix decides first
  EXPECT_TRUE(PrefixPrefVrfId(p, 1, 0) < PrefixPrefVrfId(p, 1, 1));

  const ViaTypeEnum order[] = {ViaTypeEnum::viaInvalid, ViaTypeEnum::viaIntfNextHop,
                               ViaTypeEnum::viaNextHopOnly, ViaTypeEnum::viaIntfOnly,
                               ViaTypeEnum::viaDefault};
  for (size_t i = 0; i + 1 < std::size(order); ++i) {
    EXPECT_TRUE(ViaType(order[i]) < ViaType(order[i + 1]));
    EXPECT_FALSE(ViaType(order[i + 1]) < ViaType(order[i]));
  }
}

TEST(ContainerKeySetTest, AddingTwiceKeepsOneAndNotifiesOnce) {
  struct Counter : ContainerKeySet::Notifiee {
    int calls = 0;
    void onContainerKey(const ContainerKey&) override { ++calls; }
  };
  auto set = Kel::makePtr<ContainerKeySet>();
  auto counter = Kel::makePtr<Counter>();
  counter->notifierIs(set.ptr());
  const ContainerKey k(L3::VrfName("red"), AddressFamily::ipv4);
  set->containerKeyIs(k);
  set->containerKeyIs(k);
  EXPECT_EQ(set->containerKeySize(), 1u);
  EXPECT_EQ(counter->calls, 1);
  EXPECT_TRUE(set->containerKeyDel(k));
  EXPECT_FALSE(set->containerKeyDel(k));
  EXPECT_EQ(counter->calls, 2);
  set->containerKeyIs(k);
  set->containerKeyIs(ContainerKey(L3::VrfName("red"), AddressFamily::ipv6));
  set->containerKeyDelAll();
  EXPECT_EQ(set->containerKeySize(), 0u);
  EXPECT_EQ(counter->calls, 6);
}

}  // namespace
}  // namespace Routing::Protocol
