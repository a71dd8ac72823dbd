// RIB keys: ViaKey and ViaSetKey values, route types, and the deduplicating
// via key table.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <sstream>
#include <unordered_set>
#include <vector>

#include "platform/Routing/Rib/DedupViaKey.h"
#include "platform/Routing/Rib/ViaKey.h"
#include "platform/Routing/Rib/ViaSetKey.h"
#include "platform/Routing/RouteTypes.h"

namespace {

using Routing::Rib::DedupViaKey;
using Routing::Rib::DedupViaKeyTable;
using Routing::Rib::ViaKey;
using Routing::Rib::ViaSetKey;

template <class T>
std::string printed(const T& v) {
  std::ostringstream os;
  os << v;
  return os.str();
}

TEST(ViaKey, CanonicalFormRoundTrips) {
  const ViaKey k(ViaKey::kindIpv4, 0, 2, 17);
  EXPECT_EQ(
      Routing::Rib::valueToStrep(k),
      "Value('Routing::Rib::ViaKey', ** {'kind': 1, 'vrfId': 0, 'selector': 2, 'viaIndex': 17})");
  EXPECT_EQ(printed(k), "via(1:0:2:17)");
  EXPECT_EQ(printed(ViaKey()), "via(0:0:0:0)");
  for (const ViaKey& v : {k, ViaKey(), ViaKey(255, UINT32_MAX, UINT32_MAX, UINT32_MAX),
                          ViaKey(ViaKey::kindEvpn, 7, 0, 1)}) {
    EXPECT_EQ(Kel::strepToValue<ViaKey>(Routing::Rib::valueToStrep(v)), v) << v;
  }
  EXPECT_TRUE(ViaKey().isEmpty());
  EXPECT_EQ(ViaKey(), ViaKey(ViaKey::kindNone, 0, 0, 0));
  EXPECT_FALSE(ViaKey(0, 0, 0, 1).isEmpty());
}

TEST(ViaKey, FieldOutOfRangeNamesTheField) {
  const auto error = [](std::string_view strep) -> std::string {
    try {
      Kel::strepToValue<ViaKey>(strep);
    } catch (const Kel::DeserializationError& e) {
      return e.what();
    }
    return "no error";
  };
  EXPECT_EQ(error("Value('Routing::Rib::ViaKey', ** {'kind': 256, 'vrfId': 0, 'selector': 2, "
                  "'viaIndex': 17})"),
            "Failed to deserialize attribute 'kind': uint8_t value 256 out of range");
  EXPECT_EQ(error("Value('Routing::Rib::ViaKey', ** {'kind': 1, 'vrfId': 4294967296, "
                  "'selector': 2, 'viaIndex': 17})"),
            "Failed to deserialize attribute 'vrfId': Vrf::VrfIdMap::VrfId value 4294967296 out "
            "of range");
  EXPECT_EQ(error("Value('Routing::Rib::ViaKey', ** {'kind': 1, 'vrfId': 0, 'selector': 2, "
                  "'viaIndex': 99999999999999999999999})"),
            "Failed to deserialize attribute 'viaIndex': uint32_t value 99999999999999999999999 "
            "out of range");
  EXPECT_THROW(Kel::strepToValue<ViaKey>("Value('Routing::Rib::ViaKey', ** {'kind': 1, "
                                         "'selector': 2, 'vrfId': 0, 'viaIndex': 17})"),
               Kel::ParseError);
}

TEST(ViaKey, OrderAndHashFollowTheFieldsInOrder) {
  const std::vector<ViaKey> ascending = {
      ViaKey(),           ViaKey(0, 0, 0, 1),          ViaKey(0, 0, 1, 0), ViaKey(0, 1, 0, 0),
      ViaKey(1, 0, 0, 0), ViaKey(1, 0, 0, UINT32_MAX), ViaKey(2, 0, 0, 0),
  };
  for (size_t i = 0; i < ascending.size(); ++i) {
    for (size_t j = 0; j < ascending.size(); ++j) {
      EXPECT_EQ(ascending[i] < ascending[j], i < j) << ascending[i] << " " << ascending[j];
      EXPECT_EQ(ascending[i] == ascending[j], i == j);
    }
  }
  const ViaKey k(2, 5, 3, 9);
  EXPECT_EQ(k.hash(11), Kel::hashWords(uint64_t(2) << 32 | 5u, uint64_t(3) << 32 | 9u, 11));
  EXPECT_NE(k.hash(11), k.hash(12));
  EXPECT_NE(k.hash(11), ViaKey(2, 5, 9, 3).hash(11))
      << "selector and index are not interchangeable";
  EXPECT_EQ(Routing::Rib::ViaKeyHash()(k), size_t(k.hash(0)));
  std::unordered_set<ViaKey, Routing::Rib::ViaKeyHash> set(ascending.begin(), ascending.end());
  set.insert(ViaKey(1, 0, 0, 0));
  EXPECT_EQ(set.size(), ascending.size());
}

TEST(DedupViaKey, EntriesOutliveTheirTable) {
  Kel::Ptr<DedupViaKeyTable> table = Kel::makePtr<DedupViaKeyTable>();
  Kel::Ptr<const DedupViaKey> a = table->dedupViaKeyIs(ViaKey(1, 0, 0, 1));
  Kel::Ptr<const DedupViaKey> b = table->dedupViaKeyIs(ViaKey(2, 0, 0, 1));
  b = nullptr;
  table = nullptr;  // detaches `a`; dropping it later must not touch the table
  EXPECT_EQ(a->key(), ViaKey(1, 0, 0, 1));
  a = nullptr;
}

// Random takes and drops against a model of the counts each key is held by.
TEST(DedupViaKey, RandomTakesAndDropsMatchAModel) {
  const uint32_t seed = 4242;
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 rng(seed);
  Kel::Ptr<DedupViaKeyTable> table = Kel::makePtr<DedupViaKeyTable>();
  std::vector<Kel::Ptr<const DedupViaKey>> held;
  std::map<ViaKey, const DedupViaKey*> live;
  uint64_t created = 0, released = 0;
  for (int step = 0; step < 20000; ++step) {
    if (held.empty() || rng() % 2) {
      const ViaKey k(uint8_t(rng() % 3), rng() % 2, rng() % 3, rng() % 5);
      Kel::Ptr<const DedupViaKey> p = table->dedupViaKeyIs(k);
      ASSERT_EQ(p->key(), k);
      const auto [it, added] = live.emplace(k, p.ptr());
      created += added;
      ASSERT_EQ(it->second, p.ptr()) << k;
      held.push_back(std::move(p));
    } else {
      std::swap(held[rng() % held.size()], held.back());
      const ViaKey k = held.back()->key();
      held.pop_back();
      const bool stillHeld =
          std::any_of(held.begin(), held.end(), [&](const auto& p) { return p->key() == k; });
      if (!stillHeld) {
        live.erase(k);
        ++released;
      }
    }
    ASSERT_EQ(table->size(), live.size());
    ASSERT_EQ(table->created(), created);
    ASSERT_EQ(table->released(), released);
  }
}

}  // namespace
