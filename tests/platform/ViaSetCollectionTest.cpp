// The via set collection a via set configuration mirrors into: every entry
// the configuration holds is in the collection with its flags and keys, and
// nothing else, through random creations, releases and capacity changes; a
// full collection refuses a new content with its error and the
// configuration creates nothing, while present contents are still found.
//
// Contents are drawn from 12 small via sets of via(1:0:2:n) keys.
// IPRIB_VIASET_SEED=<n> replays one seed; IPRIB_VIASET_EVENTS=<n> runs n events.
#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "Kel/Error.h"
#include "platform/Routing/Rib/Brisk/ViaSetCollection.h"
#include "platform/Routing/Rib/ViaSetConfig.h"

namespace {

using Routing::Rib::ViaKey;
using Routing::Rib::ViaSetConfig;
using Routing::Rib::ViaSetConfigKey;
using Routing::Rib::ViaSetEntry;
using Routing::Rib::Brisk::ViaSet;
using Routing::Rib::Brisk::ViaSetCollection;

std::optional<uint64_t> envNumber(const char* name) {
  const char* text = std::getenv(name);
  if (text == nullptr || *text == '\0') return std::nullopt;
  return std::strtoull(text, nullptr, 10);
}

// Content `c` of the 12: flags c % 3, keys 1 .. c % 4 + 1 offset by c.
ViaSet content(uint32_t c) {
  ViaSet s;
  s.flagsIs(c % 3);
  for (uint32_t i = 0; i <= c % 4; ++i) s.viaKeyIs(i, ViaKey(1, 0, 2, c * 10 + i));
  return s;
}

// The collection holds exactly the configuration's entries.
void expectMirrored(const ViaSetConfig& config, const ViaSetCollection& coll) {
  ASSERT_EQ(coll.viaSetSize(), config.size());
  for (const ViaSetEntry& e : config) {
    const ViaSetCollection::Record* r = coll.viaSet(e.id());
    ASSERT_NE(r, nullptr) << "id " << e.id();
    EXPECT_EQ(r->flags, e.flags());
    EXPECT_EQ(r->viaKeys, std::vector<ViaKey>(e.viaKeys().begin(), e.viaKeys().end()));
  }
}

TEST(ViaSetCollection, MirrorsTheConfigurationAndRefusesNewContentsWhenFull) {
  const std::optional<uint64_t> replay = envNumber("IPRIB_VIASET_SEED");
  const std::optional<uint64_t> events = envNumber("IPRIB_VIASET_EVENTS");
  std::vector<uint64_t> seeds = {1, 2, 3};
  if (replay || events) seeds = {replay.value_or(1)};
  for (uint64_t seed : seeds) {
    SCOPED_TRACE("seed " + std::to_string(seed) +
                 " (replay with IPRIB_VIASET_SEED=" + std::to_string(seed) + ")");
    std::mt19937_64 random(seed);
    auto config = Kel::makePtr<ViaSetConfig>(ViaSetConfigKey(2, 0));
    auto coll = Kel::makePtr<ViaSetCollection>();
    coll->collectionCapacityIs("viaSet", 6);
    // Entries made before the collection is given are written into it.
    std::map<uint32_t, Kel::Ptr<const ViaSetEntry>> held;
    held[0] = config->dedupConfigViaSetIs(content(0));
    config->configViaSetCollIs(coll);
    expectMirrored(*config, *coll);
    uint64_t refused = 0;
    for (uint64_t i = 0; i < events.value_or(3000) && !HasFailure(); ++i) {
      const uint32_t c = uint32_t(random() % 12);
      switch (random() % 4) {
        case 0:
        case 1: {
          const bool present = held.count(c) != 0;
          const uint32_t size = config->size();
          const bool full = coll->viaSetSize() >= coll->capacity();
          try {
            held[c] = config->dedupConfigViaSetIs(content(c));
            EXPECT_TRUE(present || !full);
          } catch (const Kel::RangeError& e) {
            ++refused;
            EXPECT_TRUE(full && !present);
            EXPECT_EQ(std::string(e.what()), "ViaSetCollection::viaSet capacity exceeded");
            EXPECT_EQ(config->size(), size);
          }
          break;
        }
        case 2:
          held.erase(c);
          break;
        default:
          // Lowering the capacity keeps what is there.
          coll->collectionCapacityIs("viaSet", uint32_t(3 + random() % 6));
      }
      expectMirrored(*config, *coll);
    }
    EXPECT_GT(refused, 0u);
    // Released entries leave; an unmirrored configuration leaves it alone.
    config->configViaSetCollIs(nullptr);
    held.clear();
    EXPECT_EQ(config->size(), 0u);
    EXPECT_GT(coll->viaSetSize(), 0u);
  }
}

TEST(ViaSetCollection, AConfigurationThatDoesNotFitIsNotGivenTheCollection) {
  auto config = Kel::makePtr<ViaSetConfig>();
  std::vector<Kel::Ptr<const ViaSetEntry>> held;
  for (uint32_t c = 0; c < 3; ++c) held.push_back(config->dedupConfigViaSetIs(content(c)));
  auto coll = Kel::makePtr<ViaSetCollection>();
  coll->collectionCapacityIs("viaSet", 2);
  EXPECT_THROW(config->configViaSetCollIs(coll), Kel::RangeError);
  EXPECT_FALSE(config->configViaSetColl());
  EXPECT_EQ(coll->viaSetSize(), 0u);
  coll->collectionCapacityIs("viaSet", 3);
  config->configViaSetCollIs(coll);
  expectMirrored(*config, *coll);
  EXPECT_EQ(config->key(), ViaSetConfigKey());
}

}  // namespace
