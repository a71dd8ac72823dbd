// Pando values: address family, addresses, prefixes, interface ids.
//
// Address texts are checked against the C library's inet_pton/inet_ntop on
// random addresses; prefixes against a bit-by-bit model.
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <sstream>
#include <tuple>
#include <vector>

#include "platform/Pando/AddressFamily.h"
#include "platform/Pando/IntfId.h"
#include "platform/Pando/IpGenAddr.h"
#include "platform/Pando/IpGenPrefix.h"

namespace {

using Pando::AddressFamily;
using Pando::IpGenAddr;
using Pando::IpGenPrefix;

template <class T>
std::string printed(const T& v) {
  std::ostringstream os;
  os << v;
  return os.str();
}

template <class E, class F>
std::string errorText(F&& f) {
  try {
    f();
  } catch (const E& e) {
    return e.what();
  }
  return "no error";
}

// Thomas Wang's 32-bit hash, written out here so the test does not trust Kel's.
uint32_t wang(uint32_t x) {
  x = x * 32767u - 1u;
  x ^= x >> 12;
  x *= 5u;
  x ^= x >> 4;
  x *= 2057u;
  x ^= x >> 16;
  return x;
}

bool bit(const IpGenAddr& a, unsigned k) { return (a.word(k / 32) >> (31 - k % 32)) & 1; }

TEST(AddressFamily, NamesAndNumbers) {
  EXPECT_EQ(Pando::valueToStrep(AddressFamily::ipv4), "ipv4");
  EXPECT_EQ(printed(AddressFamily::ipv6), "ipv6");
  for (AddressFamily af : {AddressFamily::ipunknown, AddressFamily::ipv4, AddressFamily::ipv6}) {
    const std::string s = Pando::valueToStrep(af);
    Kel::StrepIt it = std::string_view(s).begin();
    EXPECT_EQ(Pando::addressFamilyFromStrep(it, std::string_view(s).end()), af);
  }
  const std::string_view two = "2";
  Kel::StrepIt it = two.begin();
  EXPECT_EQ(Pando::addressFamilyFromStrep(it, two.end()), AddressFamily::ipv6);
  EXPECT_EQ(errorText<Kel::RangeError>([] {
              const std::string_view s = "ipv5";
              Kel::StrepIt i = s.begin();
              Pando::addressFamilyFromStrep(i, s.end());
            }),
            "Pando::AddressFamily: no enumerator named 'ipv5'");
  EXPECT_EQ(errorText<Kel::RangeError>([] {
              const std::string_view s = "3";
              Kel::StrepIt i = s.begin();
              Pando::addressFamilyFromStrep(i, s.end());
            }),
            "Pando::AddressFamily: no enumerator with value 3");
}

TEST(IpGenAddr, TextIsCanonical) {
  const std::pair<const char*, const char*> cases[] = {
      {"10.1.2.3", "10.1.2.3"},
      {"0.0.0.0", "0.0.0.0"},
      {"255.255.255.255", "255.255.255.255"},
      {"2001:db8::1", "2001:db8::1"},
      {"2001:DB8:0:0:0:0:0:1", "2001:db8::1"},
      {"2001:0db8::0001", "2001:db8::1"},
      {"::", "::"},
      {"0:0:0:0:0:0:0:0", "::"},
      {"::1", "::1"},
      {"fe80::1:2", "fe80::1:2"},
      {"1::", "1::"},
      {"1:2:3:4:5:6:7::", "1:2:3:4:5:6:7:0"},  // one zero group is not compressed
      {"2001:db8:0:1:1:1:1:1", "2001:db8:0:1:1:1:1:1"},
      {"2001:0:0:1:0:0:0:1", "2001:0:0:1::1"},        // the longest run
      {"2001:db8:0:0:1:0:0:1", "2001:db8::1:0:0:1"},  // the first of equal runs
      {"::ffff:10.1.2.3", "::ffff:10.1.2.3"},
      {"::ffff:a01:203", "::ffff:10.1.2.3"},
      {"1:2:3:4:5:6:1.2.3.4", "1:2:3:4:5:6:102:304"},
      {"none", "none"},
  };
  for (const auto& [text, canonical] : cases) {
    const IpGenAddr a(text);
    EXPECT_EQ(Pando::valueToStrep(a), canonical) << text;
    EXPECT_EQ(printed(a), canonical);
    EXPECT_EQ(Kel::strepToValue<IpGenAddr>(canonical), a) << text;
  }
  EXPECT_EQ(IpGenAddr("none"), IpGenAddr());
  EXPECT_EQ(IpGenAddr("10.1.2.3"), IpGenAddr::fromV4(0x0a010203));
  EXPECT_EQ(IpGenAddr("10.1.2.3").v4(), 0x0a010203u);
}

TEST(IpGenAddr, BadTextIsAParseErrorNamingIt) {
  for (const char* text : {"",
                           "10.1.2",
                           "10.1.2.256",
                           "010.1.2.3",
                           "1.2.3.4.5",
                           "1..2.3",
                           "1.2.3.4 ",
                           "2001:db8:::1",
                           "1::2::3",
                           "12345::",
                           ":1",
                           "1:",
                           "1:2:3:4:5:6:7:8:9",
                           "1:2:3:4:5:6:7:8::",
                           "::1.2.3",
                           "::1.2.3.4:5",
                           "1:2:3:4:5:6:7:1.2.3.4",
                           "fe80::1%eth0",
                           "g::1",
                           "nonE"}) {
    EXPECT_EQ(errorText<Kel::ParseError>([&] { IpGenAddr a(text); }),
              "invalid IP address \"" + std::string(text) + "\"");
    EXPECT_FALSE(IpGenAddr::fromText(text)) << text;
  }
}

TEST(IpGenAddr, StrepReadsOneTokenAndStops) {
  const std::string_view s = "2001:db8::1, none}";
  Kel::StrepIt it = s.begin();
  EXPECT_EQ(IpGenAddr(it, s.end()), IpGenAddr("2001:db8::1"));
  Kel::strepLiteral(it, s.end(), ", ");
  EXPECT_TRUE(IpGenAddr(it, s.end()).isEmpty());
  EXPECT_EQ(std::string(it, s.end()), "}");
}

// Random addresses, half their groups zero so that every run length occurs.
TEST(IpGenAddr, AgreesWithTheCLibrary) {
  const uint32_t seed = 20240611;
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 rng(seed);
  for (int n = 0; n < 20000; ++n) {
    uint8_t bytes[16];
    for (int g = 0; g < 8; ++g) {
      const uint16_t w = rng() % 2 ? 0 : uint16_t(rng() >> (rng() % 16));
      bytes[2 * g] = uint8_t(w >> 8);
      bytes[2 * g + 1] = uint8_t(w);
    }
    const bool v6 = n % 4 != 0;
    uint64_t hi = 0, lo = 0;
    for (int i = 0; i < 8; ++i) {
      hi = hi << 8 | bytes[i];
      lo = lo << 8 | bytes[8 + i];
    }
    const IpGenAddr a =
        v6 ? IpGenAddr(AddressFamily::ipv6, hi, lo) : IpGenAddr::fromV4(uint32_t(hi >> 32));
    const std::string mine = Pando::valueToStrep(a);
    uint8_t back[16];
    ASSERT_EQ(inet_pton(v6 ? AF_INET6 : AF_INET, mine.c_str(), back), 1) << mine;
    ASSERT_EQ(std::memcmp(back, bytes, v6 ? 16 : 4), 0) << mine;
    char theirs[INET6_ADDRSTRLEN];
    ASSERT_NE(inet_ntop(v6 ? AF_INET6 : AF_INET, bytes, theirs, sizeof theirs), nullptr);
    ASSERT_EQ(IpGenAddr(theirs), a) << theirs;
    // The C library prints the deprecated IPv4-compatible range (::/96) dotted.
    const bool compatible = v6 && std::all_of(bytes, bytes + 12, [](uint8_t b) { return b == 0; });
    if (!compatible) {
      ASSERT_EQ(mine, theirs);
    }
  }
}

TEST(IpGenAddr, FamilyLinkLocalAndOrder) {
  EXPECT_TRUE(IpGenAddr("fe80::1").isLinkLocal());
  EXPECT_TRUE(IpGenAddr("febf:ffff::1").isLinkLocal());
  EXPECT_FALSE(IpGenAddr("fec0::1").isLinkLocal());
  EXPECT_FALSE(IpGenAddr("fe00::1").isLinkLocal());
  EXPECT_FALSE(IpGenAddr("254.128.0.1").isLinkLocal());
  EXPECT_EQ(IpGenAddr("::1").af(), AddressFamily::ipv6);
  EXPECT_EQ(IpGenAddr("0.0.0.0").af(), AddressFamily::ipv4);
  EXPECT_TRUE(IpGenAddr().isEmpty());
  EXPECT_FALSE(IpGenAddr("0.0.0.0") == IpGenAddr());
  EXPECT_FALSE(IpGenAddr("::") == IpGenAddr("0.0.0.0"));
  // Family first, then bytes as unsigned, first octet most significant.
  const std::vector<IpGenAddr> ascending = {
      IpGenAddr(),
      IpGenAddr("0.0.0.0"),
      IpGenAddr("9.255.255.255"),
      IpGenAddr("10.0.0.0"),
      IpGenAddr("10.0.0.255"),
      IpGenAddr("10.0.1.0"),
      IpGenAddr("128.0.0.0"),
      IpGenAddr("::"),
      IpGenAddr("::1"),
      IpGenAddr("::1:0"),
      IpGenAddr("0:0:0:1::"),
      IpGenAddr("8000::"),
  };
  for (size_t i = 0; i < ascending.size(); ++i) {
    for (size_t j = 0; j < ascending.size(); ++j) {
      EXPECT_EQ(ascending[i] < ascending[j], i < j) << ascending[i] << " " << ascending[j];
      EXPECT_EQ(ascending[i] == ascending[j], i == j);
    }
  }
  EXPECT_EQ(IpGenAddr("10.1.2.3").hash(5), IpGenAddr::fromV4(0x0a010203).hash(5));
  EXPECT_NE(IpGenAddr("10.1.2.3").hash(5), IpGenAddr("10.1.2.4").hash(5));
}

TEST(IpGenPrefix, CanonicalFormsRoundTrip) {
  for (const char* text : {"10.1.0.0/24", "0.0.0.0/0", "10.1.2.3/32", "2001:db8::/32", "::/0",
                           "fe80::/10", "::1/128", "::ffff:10.0.0.0/104", "none"}) {
    const IpGenPrefix p(text);
    EXPECT_EQ(Pando::valueToStrep(p), text);
    EXPECT_EQ(printed(p), text);
    EXPECT_EQ(Kel::strepToValue<IpGenPrefix>(text), p);
  }
  EXPECT_EQ(IpGenPrefix("none"), IpGenPrefix());
  EXPECT_TRUE(IpGenPrefix().isEmpty());
  EXPECT_EQ(IpGenPrefix().af(), AddressFamily::ipunknown);
  EXPECT_EQ(IpGenPrefix().len(), 0);
  EXPECT_EQ(Pando::valueToStrep(IpGenPrefix(IpGenAddr(), 0)), "none");
  EXPECT_EQ(Pando::valueToStrep(IpGenPrefix("2001:DB8:0::/048")), "2001:db8::/48");
  const IpGenPrefix p("10.1.0.0/24");
  EXPECT_EQ(p.af(), AddressFamily::ipv4);
  EXPECT_EQ(p.addr(), IpGenAddr("10.1.0.0"));
  EXPECT_EQ(p.len(), 24);
  EXPECT_EQ(IpGenPrefix::fromV4(0x0a010000, 24), p);
}

TEST(IpGenPrefix, HostBitsAreZeroed) {
  EXPECT_EQ(Pando::valueToStrep(IpGenPrefix("10.1.2.3/24")), "10.1.2.0/24");
  EXPECT_EQ(Pando::valueToStrep(IpGenPrefix("10.255.255.255/9")), "10.128.0.0/9");
  EXPECT_EQ(Pando::valueToStrep(IpGenPrefix("255.255.255.255/0")), "0.0.0.0/0");
  EXPECT_EQ(Pando::valueToStrep(IpGenPrefix(IpGenAddr("2001:db8:ffff::1"), 33)),
            "2001:db8:8000::/33");
  EXPECT_EQ(Pando::valueToStrep(IpGenPrefix("1:2:3:4:ffff:6:7:8/65")), "1:2:3:4:8000::/65");
  EXPECT_EQ(Pando::valueToStrep(IpGenPrefix("1:2:3:4:ffff:6:7:8/64")), "1:2:3:4::/64");
  EXPECT_EQ(IpGenPrefix::fromV4(0x0a0102ff, 31), IpGenPrefix("10.1.2.254/31"));
  EXPECT_EQ(IpGenPrefix("10.1.2.3/24"), IpGenPrefix("10.1.2.200/24"));
  EXPECT_EQ(IpGenPrefix("10.1.2.3/24").hash(), IpGenPrefix("10.1.2.200/24").hash());
}

TEST(IpGenPrefix, BadTextAndLengthErrorsNameTheText) {
  for (const char* text : {"10.0.0.0", "10.0.0.0/", "10.0.0/8", "10.0.0.0/a", "10.0.0.0/-1",
                           "10.0.0.0/24/1", "none/0", "/8", "2001:db8::/3 2", ""}) {
    EXPECT_EQ(errorText<Kel::ParseError>([&] { IpGenPrefix p(text); }),
              "invalid IP prefix \"" + std::string(text) + "\"");
  }
  EXPECT_EQ(errorText<Kel::RangeError>([] { IpGenPrefix p("10.0.0.0/33"); }),
            "IP prefix length 33 exceeds 32 in \"10.0.0.0/33\"");
  EXPECT_EQ(errorText<Kel::RangeError>([] { IpGenPrefix p("::/129"); }),
            "IP prefix length 129 exceeds 128 in \"::/129\"");
  EXPECT_EQ(errorText<Kel::RangeError>([] { IpGenPrefix p("::/99999999999"); }),
            "IP prefix length 1000 exceeds 128 in \"::/99999999999\"");
  EXPECT_EQ(errorText<Kel::RangeError>([] { IpGenPrefix p(IpGenAddr("10.1.2.3"), 40); }),
            "IP prefix length 40 exceeds 32 in \"10.1.2.3/40\"");
  EXPECT_EQ(errorText<Kel::RangeError>([] { IpGenPrefix::fromV4(0, 33); }),
            "IP prefix length 33 exceeds 32 in \"0.0.0.0/33\"");
  EXPECT_EQ(errorText<Kel::RangeError>([] { IpGenPrefix p(IpGenAddr(), 1); }),
            "IP prefix length 1 exceeds 0 in \"none/1\"");
  EXPECT_EQ(errorText<Kel::RangeError>([] { Kel::strepToValue<IpGenPrefix>("10.0.0.0/33"); }),
            "IP prefix length 33 exceeds 32 in \"10.0.0.0/33\"");
}

TEST(IpGenPrefix, HashIsWangOfAddressXorLength) {
  // Pinned values, worked out by hand from the formula.
  EXPECT_EQ(IpGenPrefix("10.1.0.0/24").hash(), 0xa290198eu);
  EXPECT_EQ(IpGenPrefix("0.0.0.0/0").hash(), 0xcaa3caa3u);
  EXPECT_EQ(IpGenPrefix("192.168.1.1/32").hash(), 0x202e36f8u);
  EXPECT_EQ(IpGenPrefix("172.16.0.0/12").hash(), 0x3dcc7f7du);
  for (uint32_t a : {0x0a010000u, 0xc0a80100u, 0xffffffffu, 0x01000000u}) {
    for (uint8_t len : {8, 16, 24, 32}) {
      const IpGenPrefix p = IpGenPrefix::fromV4(a, len);
      EXPECT_EQ(p.hash(), wang(p.addr().v4() ^ len)) << p;
      EXPECT_EQ(p.hash(77), Kel::Hasher(77).add(p.hash()).result());
    }
  }
  const IpGenPrefix v6("2001:db8:1:2:3:4:5:6/128");
  const uint32_t words =
      Kel::Hasher(0).add(0x20010db8u).add(0x00010002u).add(0x00030004u).add(0x00050006u).result();
  EXPECT_EQ(v6.hash(), wang(words ^ 128));
  EXPECT_EQ(IpGenPrefix("2001:db8::/32").hash(),
            wang(Kel::Hasher(0).add(0x20010db8u).add(0u).add(0u).add(0u).result() ^ 32));
  EXPECT_EQ(IpGenPrefix().hash(), 0u);
  EXPECT_EQ(IpGenPrefix().hash(9), Kel::Hasher(9).add(0u).result());
}

TEST(IpGenPrefix, OrderIsFamilyThenBytesThenLength) {
  const std::vector<IpGenPrefix> ascending = {
      IpGenPrefix(),
      IpGenPrefix("0.0.0.0/0"),
      IpGenPrefix("0.0.0.0/8"),
      IpGenPrefix("10.0.0.0/8"),
      IpGenPrefix("10.0.0.0/24"),
      IpGenPrefix("10.0.1.0/24"),
      IpGenPrefix("255.255.255.255/32"),
      IpGenPrefix("::/0"),
      IpGenPrefix("::/128"),
      IpGenPrefix("::1/128"),
      IpGenPrefix("2001:db8::/32"),
      IpGenPrefix("2001:db8::/64"),
      IpGenPrefix("2001:db8::1/128"),
      IpGenPrefix("fe80::/10"),
  };
  for (size_t i = 0; i < ascending.size(); ++i) {
    for (size_t j = 0; j < ascending.size(); ++j) {
      EXPECT_EQ(ascending[i] < ascending[j], i < j) << ascending[i] << " " << ascending[j];
      EXPECT_EQ(ascending[i] == ascending[j], i == j) << ascending[i] << " " << ascending[j];
    }
  }
}

TEST(IpGenPrefix, ContainsMatchesTheLeadingBits) {
  const IpGenPrefix p("10.1.0.0/16");
  EXPECT_TRUE(p.contains(IpGenAddr("10.1.255.3")));
  EXPECT_FALSE(p.contains(IpGenAddr("10.2.0.0")));
  EXPECT_FALSE(p.contains(IpGenAddr("::a01:0")));
  EXPECT_TRUE(p.contains(IpGenPrefix("10.1.2.0/24")));
  EXPECT_TRUE(p.contains(p));
  EXPECT_FALSE(p.contains(IpGenPrefix("10.0.0.0/8")));
  EXPECT_TRUE(IpGenPrefix("::/0").contains(IpGenAddr("fe80::1")));
  EXPECT_FALSE(IpGenPrefix("::/0").contains(IpGenAddr("10.0.0.1")));
  EXPECT_FALSE(IpGenPrefix().contains(IpGenAddr()));
  EXPECT_FALSE(IpGenPrefix().contains(IpGenPrefix()));
  EXPECT_FALSE(IpGenPrefix("::/0").contains(IpGenPrefix()));
}

// Random prefixes of both families against a model made of the address bits.
TEST(IpGenPrefix, RandomPrefixesAgreeWithABitModel) {
  const uint32_t seed = 77031;
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937_64 rng(seed);
  const auto randomAddr = [&](bool v6) {
    return v6 ? IpGenAddr(AddressFamily::ipv6, rng(), rng()) : IpGenAddr::fromV4(uint32_t(rng()));
  };
  using Model = std::tuple<AddressFamily, std::vector<bool>, unsigned>;
  const auto model = [](const IpGenPrefix& p) {
    std::vector<bool> bits;
    for (unsigned k = 0; k < 128; ++k) bits.push_back(bit(p.addr(), k));
    return Model(p.af(), bits, p.len());
  };
  std::vector<IpGenPrefix> prefixes;
  for (int n = 0; n < 3000; ++n) {
    const bool v6 = rng() % 2;
    const IpGenAddr a = randomAddr(v6);
    const uint8_t len = uint8_t(rng() % (IpGenPrefix::maxLen(a.af()) + 1));
    const IpGenPrefix p(a, len);
    for (unsigned k = 0; k < 128; ++k) ASSERT_EQ(bit(p.addr(), k), k < len && bit(a, k)) << p;
    ASSERT_TRUE(p.contains(a)) << p << " " << a;
    ASSERT_EQ(Kel::strepToValue<IpGenPrefix>(Pando::valueToStrep(p)), p);
    // Flipping one bit of the address leaves it inside exactly when the bit is a host bit.
    const unsigned flip = unsigned(rng() % IpGenPrefix::maxLen(a.af()));
    const IpGenAddr b =
        v6 ? IpGenAddr(AddressFamily::ipv6, a.half(0) ^ (flip < 64 ? 1ull << (63 - flip) : 0),
                       a.half(1) ^ (flip >= 64 ? 1ull << (127 - flip) : 0))
           : IpGenAddr::fromV4(a.v4() ^ (1u << (31 - flip)));
    ASSERT_EQ(p.contains(b), flip >= len) << p << " " << b;
    prefixes.push_back(p);
    // Short prefixes of the same address, so that order and containment ties occur.
    prefixes.push_back(IpGenPrefix(a, uint8_t(len / 2)));
  }
  for (size_t i = 0; i + 1 < prefixes.size(); ++i) {
    const IpGenPrefix &p = prefixes[i], &q = prefixes[i + 1];
    ASSERT_EQ(p < q, model(p) < model(q)) << p << " " << q;
    ASSERT_EQ(q < p, model(q) < model(p)) << p << " " << q;
    ASSERT_EQ(p == q, model(p) == model(q)) << p << " " << q;
    ASSERT_EQ(q.contains(p), p.af() == q.af() && p.len() >= q.len() && q.contains(p.addr()));
  }
}

TEST(IntfId, NameCanonicalFormAndOrder) {
  const Pando::IntfId eth("Ethernet1"), vlan("Vlan10"), none;
  EXPECT_EQ(printed(eth), "Ethernet1");
  EXPECT_EQ(printed(none), "none");
  EXPECT_TRUE(none.isEmpty());
  EXPECT_EQ(Pando::valueToStrep(eth), "'Ethernet1'");
  EXPECT_EQ(Pando::valueToStrep(none), "''");
  for (const Pando::IntfId& i : {eth, vlan, none, Pando::IntfId("none")}) {
    EXPECT_EQ(Kel::strepToValue<Pando::IntfId>(Pando::valueToStrep(i)), i);
  }
  EXPECT_FALSE(Pando::IntfId("none") == none);
  EXPECT_LT(none, eth);
  EXPECT_LT(eth, vlan);
  EXPECT_EQ(eth.hash(4), Kel::hashString("Ethernet1", 4));
}

}  // namespace
