// Via values and via records: transports, metric-preference order, Via and
// its size limits, the stack via set Brisk::ViaSet, and the IP and EVPN via
// record tables.
#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "Kel/Error.h"
#include "platform/Routing/Rib/Brisk/ViaSet.h"
#include "platform/Routing/Rib/Evpn/ViaConfig.h"
#include "platform/Routing/Rib/Ip/ViaConfig.h"
#include "platform/Routing/Rib/MetricPref.h"
#include "platform/Routing/Rib/Transport.h"
#include "platform/Routing/Rib/Via.h"

namespace {

using Pando::IpGenAddr;
using Routing::Rib::MetricPref;
using Routing::Rib::RibType;
using Routing::Rib::Via;
using Routing::Rib::ViaKey;
using Routing::Rib::Brisk::ViaSet;

template <class T>
std::string printed(const T& v) {
  std::ostringstream os;
  os << v;
  return os.str();
}

template <class F>
std::string errorText(F&& f) {
  try {
    f();
  } catch (const Kel::Exception& e) {
    return e.what();
  }
  return "no error";
}

TEST(MetricPref, PreferenceRanksBeforeMetric) {
  const std::vector<MetricPref> ascending = {{0, 0}, {0, 100}, {1, 0}, {1, 10}, {200, 0}};
  for (size_t i = 0; i < ascending.size(); ++i) {
    for (size_t j = 0; j < ascending.size(); ++j) {
      EXPECT_EQ(ascending[i] < ascending[j], i < j) << ascending[i] << " " << ascending[j];
      EXPECT_EQ(ascending[i] == ascending[j], i == j);
    }
  }
  EXPECT_EQ(printed(MetricPref(1, 10)), "1/10");
  EXPECT_EQ(printed(MetricPref(255, UINT32_MAX)), "255/4294967295");
}

TEST(Via, TooManyValuesNameSizeAddressAndContentsAndLeaveTheViaAlone) {
  Via via(IpGenAddr("10.0.0.1"));
  const std::vector<RibType> ribs = {RibType::unicast, RibType::mrib, RibType::unicast,
                                     RibType::mrib};
  std::ostringstream address;
  address << static_cast<const void*>(ribs.data());
  EXPECT_EQ(errorText([&] { via.resolutionRibIs(ribs); }),
            "expected size <= 3, instead got 4. Buffer is at address: " + address.str() +
                " with contents: 0, 1, 0, 1");

  std::vector<uint32_t> colours(1025);
  std::string contents;
  for (uint32_t i = 0; i < colours.size(); ++i) {
    colours[i] = i * 7;
    contents += (i ? ", " : "") + std::to_string(i * 7);
  }
  address.str("");
  address << static_cast<const void*>(colours.data());
  EXPECT_EQ(errorText([&] { via.colourIs(colours); }),
            "expected size <= 1024, instead got 1025. Buffer is at address: " + address.str() +
                " with contents: " + contents);
  EXPECT_EQ(via, Via(IpGenAddr("10.0.0.1")));

  // At the limits the values are copied, not referenced.
  via.resolutionRibIs(std::span(ribs).first(3));
  colours.pop_back();
  via.colourIs(colours);
  colours[0] = 99;
  EXPECT_EQ(std::vector<RibType>(via.resolutionRib().begin(), via.resolutionRib().end()),
            std::vector<RibType>(ribs.begin(), ribs.begin() + 3));
  EXPECT_EQ(via.colour().size(), 1024u);
  EXPECT_EQ(via.colour()[0], 0u);
}

TEST(Via, EqualityCoversEveryFieldAndPrintingShowsWhatIsSet) {
  const Via base(IpGenAddr("2001:db8::1"), Pando::IntfId("Ethernet1"));
  EXPECT_FALSE(base.isLabelled());
  EXPECT_EQ(printed(base), "2001:db8::1 intf Ethernet1");
  EXPECT_EQ(printed(Via(IpGenAddr("10.0.0.1"))), "10.0.0.1");

  std::vector<Via> variants(6, base);
  variants[1].nextHopIs(IpGenAddr("2001:db8::2"));
  variants[2].intfIs(Pando::IntfId("Ethernet2"));
  variants[3].labelIs(0);
  const RibType mrib[] = {RibType::mrib};
  variants[4].resolutionRibIs(mrib);
  const uint32_t colour[] = {5, 7};
  variants[5].colourIs(colour);
  for (size_t i = 0; i < variants.size(); ++i) {
    for (size_t j = 0; j < variants.size(); ++j) EXPECT_EQ(variants[i] == variants[j], i == j);
  }

  Via full = base;
  full.labelIs(Via::maxLabel);
  full.resolutionRibIs(std::vector<RibType>{RibType::unicast, RibType::mrib});
  full.colourIs(colour);
  EXPECT_TRUE(full.isLabelled());
  EXPECT_EQ(printed(full),
            "2001:db8::1 intf Ethernet1 label 1048575 resolutionRib rib,mrib colour 5,7");
  // Fewer RIBs than before: the dropped ones leave no trace in ==.
  full.resolutionRibIs(mrib);
  Via other = base;
  other.labelIs(Via::maxLabel);
  other.resolutionRibIs(mrib);
  other.colourIs(colour);
  EXPECT_EQ(full, other);
}

TEST(ViaSet, WritesAppendOverwriteOrFillTheGap) {
  ViaSet s;
  s.flagsIs(0x2);
  s.viaKeyIs(0, ViaKey(1, 0, 2, 1));
  s.viaKeyIs(3, ViaKey(1, 0, 2, 4));
  s.viaKeyIs(0, ViaKey(2, 0, 2, 9));
  EXPECT_EQ(printed(s), "{flags 0x2: via(2:0:2:9), via(0:0:0:0), via(0:0:0:0), via(1:0:2:4)}");
  s.clear();
  EXPECT_EQ(printed(s), "{flags 0x0}");
  // Slots behind a clear hold stale keys; a gap must still read as empty.
  s.viaKeyIs(2, ViaKey(1, 0, 2, 7));
  EXPECT_EQ(printed(s), "{flags 0x0: via(0:0:0:0), via(0:0:0:0), via(1:0:2:7)}");

  EXPECT_EQ(errorText([&] { s.viaKeyIs(ViaSet::maxVias, ViaKey(1, 0, 2, 1)); }),
            "ViaIndex::value < ViaIndex::min or > ViaIndex::max not allowed");
  EXPECT_EQ(s.size(), 3u);
  s.viaKeyIs(ViaSet::maxVias - 1, ViaKey(1, 0, 2, 1));
  EXPECT_EQ(s.size(), ViaSet::maxVias);
  EXPECT_TRUE(s.viaKey(ViaSet::maxVias - 2).isEmpty());
}

// Random sets against a vector model: ==, the hash and copies agree with it.
TEST(ViaSet, MatchesAVectorModel) {
  const uint32_t seed = 20240611;
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 rng(seed);
  struct Model {
    uint32_t flags = 0;
    std::vector<ViaKey> keys;
  };
  const auto build = [&](Model& m) {
    ViaSet s;
    m = {};
    m.flags = rng() % 3;
    s.flagsIs(m.flags);
    const uint32_t writes = rng() % 6;
    for (uint32_t w = 0; w < writes; ++w) {
      const uint32_t index = rng() % 5;
      const ViaKey k(1, 0, 0, rng() % 3);
      if (index >= m.keys.size()) m.keys.resize(index + 1);
      m.keys[index] = k;
      s.viaKeyIs(index, k);
    }
    return s;
  };
  for (int round = 0; round < 2000; ++round) {
    Model ma, mb;
    const ViaSet a = build(ma);
    ViaSet b = build(mb);
    ASSERT_EQ(std::vector<ViaKey>(a.begin(), a.end()), ma.keys);
    const bool same = ma.flags == mb.flags && ma.keys == mb.keys;
    ASSERT_EQ(a == b, same) << a << " " << b;
    if (same) {
      ASSERT_EQ(a.hash(7), b.hash(7));
    }
    b = a;
    ASSERT_EQ(b, a);
    ASSERT_EQ(b.hash(7), a.hash(7));
  }
}

template <class Config>
class ViaRecorder : public Config::Notifiee {
 public:
  void onVia(const ViaKey& k) override { seen.push_back(k); }
  std::vector<ViaKey> seen;
};

template <class Config, class Record>
void checkViaRecordTable(const Record& one, const Record& two) {
  auto config = Kel::makePtr<Config>();
  auto recorder = Kel::makePtr<ViaRecorder<Config>>();
  recorder->notifierIs(config.ptr());
  const ViaKey a(3, 0, 1, 1), b(3, 0, 1, 2);

  config->viaIs(a, one);
  config->viaIs(a, one);
  config->viaIs(b, one);
  config->viaIs(a, two);
  EXPECT_EQ(recorder->seen, (std::vector<ViaKey>{a, b, a}));
  ASSERT_NE(config->via(a), nullptr);
  EXPECT_EQ(*config->via(a), two);
  EXPECT_EQ(config->viaSize(), 2u);
  uint32_t walked = 0;
  for (const auto& e : config->via()) walked += e.key == a ? e.via == two : e.via == one;
  EXPECT_EQ(walked, 2u);

  recorder->seen.clear();
  config->viaDel(a);
  config->viaDel(a);
  EXPECT_EQ(config->via(a), nullptr);
  config->viaDelAll();
  EXPECT_EQ(recorder->seen, (std::vector<ViaKey>{a, b}));
  EXPECT_EQ(config->viaSize(), 0u);
}

TEST(ViaConfig, IpRecordsNotifyOnlyOnChange) {
  Via labelled(IpGenAddr("10.0.0.1"));
  labelled.labelIs(16);
  checkViaRecordTable<Routing::Rib::Ip::ViaConfig>(Via(IpGenAddr("10.0.0.1")), labelled);
  EXPECT_STREQ(Routing::Rib::Ip::ViaConfig().typeName(), "Routing::Rib::Ip::ViaConfig");
}

TEST(ViaConfig, EvpnRecordsNotifyOnlyOnChange) {
  using Routing::Rib::Evpn::Via;
  const Via one(IpGenAddr("10.0.0.9"), 100, 0x001c73000001);
  checkViaRecordTable<Routing::Rib::Evpn::ViaConfig>(
      one, Via(IpGenAddr("10.0.0.9"), 101, 0x001c73000001));
  EXPECT_EQ(printed(one), "vtep 10.0.0.9 vni 100 routerMac 00:1c:73:00:00:01");
  EXPECT_STREQ(Routing::Rib::Evpn::ViaConfig().typeName(), "Routing::Rib::Evpn::ViaConfig");
}

}  // namespace
