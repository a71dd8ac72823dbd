// The RIB's reactors on its configuration tables (IP and EVPN via records,
// via sets) and the via configuration library's names and sharing rule.
//
// Via keys below are ViaKey(kind, VRF 3, selector 2, index); the IP table
// serves transport ipv4 unless a case changes it.
#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "Kel/Error.h"
#include "Kel/Trace.h"
#include "platform/Routing/Rib/Evpn/ViaConfigSm.h"
#include "platform/Routing/Rib/Ip/ViaConfigSm.h"
#include "platform/Routing/Rib/ViaSetConfigSm.h"
#include "platform/Routing/ViaConfigLib.h"

namespace Routing::Rib {
namespace {

using Pando::IpGenAddr;

ViaKey key(uint8_t kind, uint32_t index) { return ViaKey(kind, 3, 2, index); }

Kel::TraceFacility& facility(const char* name) {
  return *Kel::TraceRegistry::instance().facility(name);
}

// ------------------------------------------------------------ names and sharing

TEST(ViaConfigLib, ProtocolAndTransportNames) {
  const std::vector<std::string> names = {"unknown",    "connected", "static", "bgp",
                                          "routeInput", "isis",      "ospf"};
  for (uint32_t rp = 0; rp < names.size(); ++rp) {
    EXPECT_EQ(stringValue(RoutingProtocol(rp)), names[rp]);
  }
  try {
    stringValue(RoutingProtocol(7));
    FAIL() << "protocol 7 has a name";
  } catch (const Kel::RangeError& e) {
    EXPECT_STREQ(e.what(), "Routing::Rib::RoutingProtocol: no enumerator with value 7");
  }
  EXPECT_EQ(stringValue(Transport::none), "none");
  EXPECT_EQ(stringValue(Transport::ipv4), "ipv4");
  EXPECT_EQ(stringValue(Transport::ipv6), "ipv6");
  EXPECT_EQ(stringValue(Transport::evpn), "evpn");
  EXPECT_THROW(stringValue(Transport(4)), Kel::RangeError);
}

TEST(ViaConfigLib, OnlyBgpAndIsisShareOneTableForAllVrfs) {
  const std::set<std::string> shared = {"bgp", "isis"};
  for (const char* rib : {"rib", "mrib", "urib", ""}) {
    for (const char* transport : {"ipv4", "ipv6", "evpn", "none"}) {
      for (RoutingProtocol rp = 0; rp <= 6; ++rp) {
        const std::string protocol(stringValue(rp));
        const bool knownRib = std::string(rib) == "rib" || std::string(rib) == "mrib";
        const bool want = knownRib && std::string(transport) != "none" && shared.count(protocol);
        EXPECT_EQ(ViaConfigLib::isAllVrfViaConfig(rib, transport, protocol), want)
            << rib << " " << transport << " " << protocol;
      }
    }
  }
}

class AttributeRecorder : public Ip::ViaConfig::Notifiee {
 public:
  void onVia(const ViaKey&) override { ++vias; }
  void onRibString() override { ++ribStrings; }
  void onTransport() override { ++transports; }
  void onRp() override { ++rps; }
  int vias = 0, ribStrings = 0, transports = 0, rps = 0;
};

TEST(ViaConfigLib, TheRibOfAnIpViaConfigIsItsAttribute) {
  auto config = Kel::makePtr<Ip::ViaConfig>();
  EXPECT_EQ(ViaConfigLib::getRibStringFromIpViaConfig(*config), "rib");
  EXPECT_EQ(config->transport(), Transport::ipv4);
  auto recorder = Kel::makePtr<AttributeRecorder>();
  recorder->notifierIs(config.ptr());
  config->ribStringIs(Kel::String("mrib"));
  config->ribStringIs(Kel::String("mrib"));
  config->transportIs(Transport::ipv6);
  config->transportIs(Transport::ipv6);
  config->rpIs(2);
  config->rpIs(2);
  config->viaIs(key(2, 1), Via(IpGenAddr("2001:db8::1")));
  EXPECT_EQ(ViaConfigLib::getRibStringFromIpViaConfig(*config), "mrib");
  EXPECT_EQ(recorder->ribStrings, 1);
  EXPECT_EQ(recorder->transports, 1);
  EXPECT_EQ(recorder->rps, 1);
  EXPECT_EQ(config->rp(), 2);
  EXPECT_EQ(recorder->vias, 1);
  EXPECT_EQ(Kel::makePtr<Ip::ViaConfig>(Kel::String("mrib"), Transport::ipv6)->transport(),
            Transport::ipv6);
  EXPECT_EQ(Kel::makePtr<Evpn::ViaConfig>()->transport(), Transport::evpn);
}

// ------------------------------------------------------------ IP via records

// The rule, restated: the key's transport is the table's, and a next hop, if
// any, is of that transport's family.
bool ipRecordValid(Transport table, const ViaKey& k, const Via& v) {
  if (k.kind() != uint8_t(table)) return false;
  if (v.nextHop().isEmpty()) return true;
  // An EVPN key has no family: no IP next hop fits it.
  return (k.kind() == ViaKey::kindIpv4 && v.nextHop().af() == Pando::AddressFamily::ipv4) ||
         (k.kind() == ViaKey::kindIpv6 && v.nextHop().af() == Pando::AddressFamily::ipv6);
}

TEST(IpViaConfigSm, InvalidRecordsMatchTheRuleOverRandomWrites) {
  const uint32_t seed = 20240611;
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 rng(seed);
  auto config = Kel::makePtr<Ip::ViaConfig>();
  config->viaIs(key(2, 0), Via(IpGenAddr("10.0.0.1")));  // there before the reactor
  Kel::Ptr<Ip::ViaConfigSm> sm = Ip::ViaConfigSm::ViaConfigSmIs(config);
  EXPECT_TRUE(sm->config() == Kel::Ptr<const Ip::ViaConfig>(config));
  EXPECT_TRUE(sm->invalidViaHas(key(2, 0)));
  auto recorder = Kel::makePtr<AttributeRecorder>();
  recorder->notifierIs(config.ptr());

  const IpGenAddr hops[] = {IpGenAddr(), IpGenAddr("10.0.0.1"), IpGenAddr("2001:db8::1")};
  for (int step = 0; step < 3000; ++step) {
    const uint32_t op = rng() % 20;
    const ViaKey k = key(uint8_t(1 + rng() % 3), rng() % 12);
    if (op == 0) {
      config->transportIs(Transport(1 + rng() % 3));
    } else if (op < 5) {
      config->viaDel(k);
    } else {
      config->viaIs(k, Via(hops[rng() % 3], Pando::IntfId(), rng() % 2 ? 16 : Via::noLabel));
    }
    std::set<ViaKey> bad;
    for (const auto& e : config->via()) {
      if (!ipRecordValid(config->transport(), e.key, e.via)) bad.insert(e.key);
    }
    ASSERT_EQ(sm->invalidViaSize(), bad.size()) << "step " << step;
    for (const ViaKey& b : bad) ASSERT_TRUE(sm->invalidViaHas(b)) << "step " << step << " " << b;
    ASSERT_EQ(sm->viaChanges(), uint64_t(recorder->vias)) << "step " << step;
  }
}

TEST(IpViaConfigSm, ABadRecordIsTracedOnceWhileItStaysBad) {
  auto config = Kel::makePtr<Ip::ViaConfig>();
  Kel::Ptr<Ip::ViaConfigSm> sm = Ip::ViaConfigSm::ViaConfigSmIs(config);
  Kel::TraceFacility& trace = facility("Rib::Ip::ViaConfigSm");
  trace.textLevelIs(1, true);
  Kel::TraceCapture capture;
  config->viaIs(key(1, 1), Via(IpGenAddr("2001:db8::1"), Pando::IntfId("Ethernet1")));
  config->viaIs(key(1, 1), Via(IpGenAddr("2001:db8::2")));
  config->viaIs(key(2, 2), Via(IpGenAddr("2001:db8::2")));
  config->viaIs(key(1, 1), Via(IpGenAddr("10.0.0.1")));
  trace.textLevelIs(1, false);
  EXPECT_EQ(capture.messages(),
            (std::vector<std::string>{
                "invalid via via(1:3:2:1) (2001:db8::1 intf Ethernet1): next hop of another family",
                "invalid via via(2:3:2:2) (2001:db8::2): via key of another transport"}));
  EXPECT_EQ(sm->invalidViaSize(), 1u);
  EXPECT_EQ(Ip::ViaConfigSm::check(*config, key(3, 1), Via()),
            std::string("via key of another transport"));
}

// ------------------------------------------------------------ EVPN via records

TEST(EvpnViaConfigSm, EachRuleOfAnEvpnRecord) {
  auto config = Kel::makePtr<Evpn::ViaConfig>();
  Kel::Ptr<Evpn::ViaConfigSm> sm = Evpn::ViaConfigSm::ViaConfigSmIs(config);
  const IpGenAddr vtep("10.0.0.9");
  const struct {
    ViaKey key;
    Evpn::Via via;
    const char* broken;
  } cases[] = {
      {key(3, 1), Evpn::Via(vtep, 100, 0x001c73000001), nullptr},
      {key(3, 2), Evpn::Via(vtep, 0xFFFFFF, 0xFFFFFFFFFFFF), nullptr},
      {key(1, 3), Evpn::Via(vtep, 100, 1), "via key of another transport"},
      {key(3, 4), Evpn::Via(IpGenAddr(), 100, 1), "no VTEP"},
      {key(3, 5), Evpn::Via(vtep, 0, 1), "VNI out of range"},
      {key(3, 6), Evpn::Via(vtep, 0x1000000, 1), "VNI out of range"},
      {key(3, 7), Evpn::Via(vtep, 100, 0x1000000000000), "router MAC wider than 48 bits"},
  };
  for (const auto& c : cases) {
    config->viaIs(c.key, c.via);
    const char* broken = Evpn::ViaConfigSm::check(*config, c.key, c.via);
    EXPECT_EQ(broken ? std::string(broken) : "", c.broken ? std::string(c.broken) : "") << c.key;
    EXPECT_EQ(sm->invalidViaHas(c.key), c.broken != nullptr) << c.key;
  }
  EXPECT_EQ(sm->invalidViaSize(), 5u);
  config->viaIs(key(3, 5), Evpn::Via(vtep, 5, 1));  // mended
  config->viaDel(key(3, 4));
  EXPECT_EQ(sm->invalidViaSize(), 3u);
  EXPECT_EQ(sm->viaChanges(), 9u);
}

// ------------------------------------------------------------ via sets

Brisk::ViaSet viaSetOf(uint32_t index) {
  Brisk::ViaSet s;
  s.viaKeyIs(0, key(1, index));
  return s;
}

TEST(ViaSetConfigSm, CountsLiveSetsAndReportsEachCrossingOfTheCapacity) {
  auto config = Kel::makePtr<ViaSetConfig>();
  std::vector<Kel::Ptr<const ViaSetEntry>> held;
  held.push_back(config->dedupConfigViaSetIs(viaSetOf(1)));
  Kel::Ptr<ViaSetConfigSm> sm = ViaSetConfigSm::ViaSetConfigSmIs(config, 2);
  EXPECT_TRUE(sm->config() == Kel::Ptr<const ViaSetConfig>(config));
  EXPECT_EQ(sm->liveViaSets(), 1u);

  Kel::TraceCapture capture;
  held.push_back(config->dedupConfigViaSetIs(viaSetOf(2)));
  held.push_back(config->dedupConfigViaSetIs(viaSetOf(2)));  // the same set
  EXPECT_FALSE(sm->overCapacity());
  held.push_back(config->dedupConfigViaSetIs(viaSetOf(3)));
  held.push_back(config->dedupConfigViaSetIs(viaSetOf(4)));
  EXPECT_TRUE(sm->overCapacity());
  EXPECT_EQ(sm->liveViaSets(), 4u);
  EXPECT_EQ(sm->capacityExceeded(), 1u);
  held.resize(2);  // sets 3 and 4 released
  EXPECT_EQ(sm->liveViaSets(), 2u);
  EXPECT_FALSE(sm->overCapacity());
  held.push_back(config->dedupConfigViaSetIs(viaSetOf(5)));
  EXPECT_EQ(sm->capacityExceeded(), 2u);
  EXPECT_EQ(sm->highWaterMark(), 4u);
  EXPECT_EQ(capture.messages(), (std::vector<std::string>{"3 via sets exceed the capacity of 2",
                                                          "3 via sets exceed the capacity of 2"}));

  // A reactor bound to a table already too full reports at once.
  capture.clear();
  EXPECT_EQ(ViaSetConfigSm::ViaSetConfigSmIs(config, 1)->capacityExceeded(), 1u);
  EXPECT_EQ(capture.messages(), std::vector<std::string>{"3 via sets exceed the capacity of 1"});
  EXPECT_FALSE(ViaSetConfigSm::ViaSetConfigSmIs(config)->overCapacity());
}

}  // namespace
}  // namespace Routing::Rib
