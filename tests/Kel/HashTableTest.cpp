#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <numeric>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "Kel/DenseHashTable.h"
#include "Kel/FlatMap.h"
#include "Kel/HashTable.h"
#include "Kel/Ptr.h"

namespace {

// A deliberately weak hash over keys 0..1023: the two keys of a pair share a
// hash; a quarter of the pairs share eight hash values (long runs of equal
// hashes); a quarter crowd into the last home of any table, so their cluster
// runs off its end.
uint32_t weakHash(uint32_t k) {
  const uint32_t pair = k / 2;
  const uint32_t h = pair * 0x9E3779B1u;
  switch (pair % 4) {
    case 1:
      return h & 0xE0000000u;
    case 2:
      return h | 0xFFFFFFF0u;
    default:
      return h;
  }
}
constexpr uint32_t universe = 1024;

struct WeakTraits {
  using Entry = uint32_t;
  using Key = uint32_t;
  static uint32_t key(const uint32_t& k) { return k; }
  static uint32_t hash(uint32_t k) { return weakHash(k); }
};
using Table = Kel::HashTable<WeakTraits>;
using Model = std::set<std::pair<uint32_t, uint32_t>>;  // (hash, key)

// An element that counts itself, and may erase a partner from its table as it
// dies (a destructor that re-enters the collection).
struct Counted : Kel::PtrInterface {
  static inline int live = 0;
  static inline int destroyed = 0;
  explicit Counted(uint32_t k) : key(k) { ++live; }
  ~Counted() override {
    --live;
    ++destroyed;
    if (onDeath) onDeath(key);
  }
  uint32_t key;
  std::function<void(uint32_t)> onDeath;
};

struct CountedTraits {
  using Entry = Kel::Ptr<Counted>;
  using Key = uint32_t;
  static uint32_t key(const Kel::Ptr<Counted>& c) { return c->key; }
  static uint32_t hash(uint32_t k) { return weakHash(k); }
};

// An entry of 64 KiB: 32 to a chunk of a dense table, so that every full
// chunk is a huge page of its own.
struct Fat {
  uint32_t key;
  std::array<char, 65532> payload;
};

struct FatTraits {
  using Entry = Fat;
  using Key = uint32_t;
  static uint32_t key(const Fat& f) { return f.key; }
  static uint32_t hash(uint32_t k) { return weakHash(k); }
};

uint32_t keyOf(uint32_t k) { return k; }
uint32_t keyOf(const Kel::Ptr<Counted>& c) { return c->key; }
uint32_t keyOf(const Fat& f) { return f.key; }

template <class T>
std::vector<uint32_t> keysOf(const T& t) {
  std::vector<uint32_t> out;
  for (auto it = t.begin(); it != t.end(); ++it) {
    EXPECT_EQ(it.hash(), weakHash(keyOf(*it)));
    out.push_back(keyOf(*it));
  }
  return out;
}

template <class T>
void expectMatches(const T& t, const Model& model, std::mt19937& rng) {
  ASSERT_EQ(t.size(), model.size());
  std::vector<uint32_t> expected;
  for (const auto& [h, k] : model) expected.push_back(k);
  ASSERT_EQ(keysOf(t), expected);
  for (int probe = 0; probe < 4; ++probe) {
    const uint32_t k = rng() % universe;
    const auto place = model.lower_bound({weakHash(k), k});
    auto it = t.seek(k);
    if (place == model.end()) {
      ASSERT_TRUE(it == t.end()) << "seek " << k;
    } else {
      ASSERT_FALSE(it == t.end()) << "seek " << k;
      ASSERT_EQ(keyOf(*it), place->second) << "seek " << k;
    }
    const bool present = model.count({weakHash(k), k}) != 0;
    ASSERT_EQ(t.find(k) != nullptr, present) << "find " << k;
    if (present) {
      ASSERT_EQ(keyOf(*t.find(k)), k);
    }
  }
}

TEST(HashTableTest, RandomOperationsKeepHashOrderAndAgreeWithAModel) {
  for (const unsigned seed : {7u, 20240611u, 99991u}) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 rng(seed);
    Table t;
    Model model;
    for (int step = 0; step < 4000; ++step) {
      SCOPED_TRACE("step " + std::to_string(step));
      // Alternate growing and shrinking phases so the table passes through
      // dense mode, growth and long erase runs more than once.
      const bool growing = (step / 500) % 2 == 0;
      const uint32_t k = rng() % universe;
      const unsigned op = rng() % 100;
      if (step == 1400) {
        t.clear();
        model.clear();
      } else if (op < (growing ? 75u : 30u)) {
        // Every other insert through insertWith, which makes the entry only when absent.
        bool made = false;
        const bool inserted = op % 2 == 0 ? t.insert(uint32_t(k)).second : t.insertWith(k, [&] {
                                                                              made = true;
                                                                              return k;
                                                                            }).second;
        EXPECT_EQ(inserted, model.insert({weakHash(k), k}).second);
        if (op % 2 != 0) {
          EXPECT_EQ(made, inserted);
        }
      } else if (op < 95) {
        EXPECT_EQ(t.erase(k), model.erase({weakHash(k), k}) == 1);
      } else if (!model.empty()) {
        EXPECT_EQ(t.popFront(), model.begin()->second);
        model.erase(model.begin());
      }
      expectMatches(t, model, rng);
      if (HasFatalFailure()) return;
    }
  }
}

TEST(HashTableTest, OrderDependsOnlyOnTheKeySet) {
  const unsigned seed = 4242;
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 rng(seed);
  std::vector<uint32_t> keys;
  for (uint32_t k = 0; k < universe; ++k) {
    if (rng() % 3 == 0) keys.push_back(k);
  }
  Table ascending;
  for (uint32_t k : keys) ascending.insert(uint32_t(k));

  // The other table grows large on every key, then loses the extra ones in
  // random order, and re-inserts some of the wanted keys on the way.
  Table churned;
  std::vector<uint32_t> all(universe);
  for (uint32_t k = 0; k < universe; ++k) all[k] = k;
  std::shuffle(all.begin(), all.end(), rng);
  for (uint32_t k : all) churned.insert(uint32_t(k));
  std::shuffle(all.begin(), all.end(), rng);
  const std::set<uint32_t> wanted(keys.begin(), keys.end());
  for (uint32_t k : all) {
    churned.erase(k);
    if (wanted.count(k) && rng() % 4 != 0) churned.insert(uint32_t(k));
  }
  for (uint32_t k : keys) churned.insert(uint32_t(k));
  EXPECT_EQ(keysOf(churned), keysOf(ascending));
}

TEST(HashTableTest, PausedPassVisitsEveryStayingKeyExactlyOnce) {
  for (const unsigned seed : {1u, 31337u, 5550123u}) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 rng(seed);
    Table t;
    for (int i = 0; i < 500; ++i) t.insert(uint32_t(rng() % universe));
    std::set<uint32_t> staying;
    for (uint32_t k : t) staying.insert(k);
    std::map<uint32_t, int> visits;

    auto it = t.begin();
    while (it != t.end()) {
      for (unsigned n = 1 + rng() % 6; n > 0 && it != t.end(); --n, ++it) ++visits[*it];
      if (it == t.end()) break;
      const uint32_t bookmark = *it;
      // Between slices other work inserts and deletes, sometimes the bookmark.
      for (unsigned n = rng() % 12; n > 0; --n) {
        const uint32_t k = rng() % 5 == 0 ? bookmark : rng() % universe;
        if (rng() % 2 == 0 && t.erase(k)) {
          staying.erase(k);
        } else {
          t.insert(uint32_t(k));
        }
      }
      it = t.seek(bookmark);
    }
    for (const auto& [k, n] : visits) EXPECT_EQ(n, 1) << "key " << k << " visited twice";
    for (uint32_t k : staying) EXPECT_EQ(visits.count(k), 1u) << "key " << k << " missed";
  }
}

TEST(HashTableTest, PtrEntriesAreDestroyedExactlyOnce) {
  Counted::live = Counted::destroyed = 0;
  {
    Kel::HashTable<CountedTraits> t;
    for (uint32_t k = 0; k < 300; ++k) t.insert(Kel::makePtr<Counted>(k));
    EXPECT_EQ(Counted::live, 300);
    // A refused duplicate is dropped by the caller, not kept.
    EXPECT_FALSE(t.insert(Kel::makePtr<Counted>(5)).second);
    EXPECT_EQ(Counted::live, 300);
    EXPECT_EQ(Counted::destroyed, 1);

    // Each key of a pair takes its partner with it as it dies (the two share
    // a hash, so the partner sits right before or after it), through the table.
    for (uint32_t k = 0; k < 300; ++k) {
      (*t.find(k))->onDeath = [&t](uint32_t key) { t.erase(key ^ 1u); };
    }
    for (uint32_t k = 0; k < 100; k += 3) EXPECT_TRUE(t.erase(k));
    EXPECT_EQ(t.size(), 232u);
    EXPECT_EQ(Counted::live, 232);
    for (uint32_t k = 0; k < 100; k += 3) EXPECT_EQ(t.find(k ^ 1u), nullptr);
    // The popped element dies when the caller drops it, partner included.
    const uint32_t first = t.popFront()->key;
    EXPECT_EQ(t.find(first ^ 1u), nullptr);
    EXPECT_EQ(t.size(), 230u);
    EXPECT_EQ(Counted::live, 230);
    t.clear();
    EXPECT_EQ(Counted::live, 0);
    for (uint32_t k = 0; k < 40; ++k) t.insert(Kel::makePtr<Counted>(k));
  }
  EXPECT_EQ(Counted::live, 0);
  EXPECT_EQ(Counted::destroyed, 341);
}

TEST(HashTableTest, ClearingReadingAheadStagesEachElementWhileItLives) {
  Counted::live = Counted::destroyed = 0;
  Kel::HashTable<CountedTraits> t;
  std::map<uint32_t, int> stages;  // by key: the stages it was given, in order
  std::set<uint32_t> dead;
  for (uint32_t k = 0; k < 300; ++k) {
    t.insert(Kel::makePtr<Counted>(k));
    (*t.find(k))->onDeath = [&dead](uint32_t key) { dead.insert(key); };
  }
  t.clearReadingAhead<3, 2>([&](const Kel::Ptr<Counted>& c, int step) {
    EXPECT_FALSE(dead.count(c->key)) << "key " << c->key << " staged after it died";
    EXPECT_EQ(stages[c->key]++, step) << "key " << c->key;
  });
  EXPECT_EQ(Counted::live, 0);
  EXPECT_EQ(Counted::destroyed, 300);
  EXPECT_TRUE(t.empty());
  ASSERT_EQ(stages.size(), 300u) << "every element is staged at least once";
  t.insert(Kel::makePtr<Counted>(7));
  EXPECT_EQ(t.size(), 1u);
}

struct FlatTraits {
  using Entry = Kel::Ptr<Counted>;
  using Key = uint32_t;
  static uint32_t key(const Kel::Ptr<Counted>& c) { return c->key; }
};

// Up to `Inline` elements live in the map itself, the rest on the heap.
template <uint32_t Inline>
void checkFlatMap(unsigned seed) {
  SCOPED_TRACE("seed " + std::to_string(seed) + ", inline " + std::to_string(Inline));
  std::mt19937 rng(seed);
  Counted::live = Counted::destroyed = 0;
  {
    Kel::FlatMap<FlatTraits, Inline> m;
    std::set<uint32_t> model;
    for (uint32_t k = 1; k <= Inline; ++k) {
      m.insert(Kel::makePtr<Counted>(10 * k));
      model.insert(10 * k);
    }
    EXPECT_EQ(m.bytes(), 0u) << "the first elements live inline";
    m.insert(Kel::makePtr<Counted>(5));
    model.insert(5);
    EXPECT_GT(m.bytes(), 0u);
    for (int step = 0; step < 3000; ++step) {
      SCOPED_TRACE("step " + std::to_string(step));
      const uint32_t k = rng() % 24;
      switch (rng() % 3) {
        case 0:
          EXPECT_EQ(m.insert(Kel::makePtr<Counted>(k)).second, model.insert(k).second);
          break;
        case 1:
          EXPECT_EQ(m.erase(k), model.erase(k) == 1);
          break;
        default:
          if (model.empty()) break;
          EXPECT_EQ(m.popBack()->key, *model.rbegin());
          model.erase(std::prev(model.end()));
      }
      std::vector<uint32_t> seen;
      for (const auto& c : m) seen.push_back(c->key);
      ASSERT_EQ(seen, std::vector<uint32_t>(model.begin(), model.end()));
      ASSERT_EQ(Counted::live, int(model.size()));
      ASSERT_EQ(m.find(k) != nullptr, model.count(k) == 1);
    }
    m.clear();
    EXPECT_EQ(Counted::live, 0);
    m.insert(Kel::makePtr<Counted>(1));
    m.insert(Kel::makePtr<Counted>(2));
  }
  EXPECT_EQ(Counted::live, 0);
}

TEST(FlatMapTest, RandomOperationsKeepKeyOrderAndCountEntries) {
  checkFlatMap<1>(8086);
  checkFlatMap<2>(6502);
}

// Eight entries a chunk, so that the table adds and frees chunks all along.
using DenseTable = Kel::DenseHashTable<CountedTraits, 8>;

TEST(DenseHashTableTest, RandomOperationsKeepHashOrderAndAgreeWithAModel) {
  for (const unsigned seed : {11u, 4049u, 86243u}) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 rng(seed);
    Counted::live = 0;
    {
      DenseTable t;
      Model model;
      for (int step = 0; step < 4000; ++step) {
        SCOPED_TRACE("step " + std::to_string(step));
        const bool growing = (step / 500) % 2 == 0;
        const uint32_t k = rng() % universe;
        const unsigned op = rng() % 100;
        if (op < (growing ? 75u : 30u) && op % 2 == 0) {
          Kel::Ptr<Counted> c = Kel::makePtr<Counted>(k);
          const auto [stored, inserted] = t.insert(std::move(c));
          ASSERT_EQ(inserted, model.insert({weakHash(k), k}).second);
          ASSERT_EQ((*stored)->key, k);
          ASSERT_EQ(c == nullptr, inserted) << "a refused entry stays with the caller";
        } else if (op < (growing ? 75u : 30u)) {
          const int before = Counted::live;
          const auto [stored, inserted] = t.insertWith(k, [k] { return Kel::makePtr<Counted>(k); });
          ASSERT_EQ(inserted, model.insert({weakHash(k), k}).second);
          ASSERT_EQ((*stored)->key, k);
          ASSERT_EQ(Counted::live, before + (inserted ? 1 : 0)) << "made only when absent";
        } else {
          ASSERT_EQ(t.erase(k), model.erase({weakHash(k), k}) == 1);
        }
        expectMatches(t, model, rng);
        ASSERT_EQ(Counted::live, int(model.size()));
      }
    }
    EXPECT_EQ(Counted::live, 0);
  }
}

// Chunks that are huge pages are taken as the table grows and given back as it
// shrinks; entries keep their contents through moves, and the walk by position
// sees each entry once.
TEST(DenseHashTableTest, HugePageChunksComeAndGo) {
  std::mt19937 rng(2026);
  Kel::DenseHashTable<FatTraits> t;
  Model model;
  std::vector<uint32_t> keys(universe);
  std::iota(keys.begin(), keys.end(), 0u);
  constexpr uint32_t count = 150;  // the first chunk doubling to full, then four more
  for (int round = 0; round < 2; ++round) {
    std::shuffle(keys.begin(), keys.end(), rng);
    for (uint32_t i = 0; i < count; ++i) {
      auto fat = std::make_unique<Fat>();
      fat->key = keys[i];
      fat->payload.fill(char(keys[i]));
      ASSERT_TRUE(t.insert(std::move(*fat)).second);
      model.insert({weakHash(keys[i]), keys[i]});
    }
    expectMatches(t, model, rng);
    std::set<uint32_t> seen;
    for (uint32_t pos = 0; pos < t.size(); ++pos) {
      const Fat& f = t.atPosition(pos);
      seen.insert(f.key);
      ASSERT_EQ(f.payload.back(), char(f.key)) << "entry " << f.key;
    }
    EXPECT_EQ(seen.size(), count);
    std::shuffle(keys.begin(), keys.begin() + count, rng);
    for (uint32_t i = 0; i < count; ++i) {
      ASSERT_TRUE(t.erase(keys[i]));
      model.erase({weakHash(keys[i]), keys[i]});
      if (i % 37 == 0) expectMatches(t, model, rng);
    }
    EXPECT_EQ(t.size(), 0u);
  }
}

// Each key of a pair takes its partner with it as it dies, through the table:
// erase lets the entry die only once the moved entry is re-pointed.
TEST(DenseHashTableTest, AnEntryDyingMayEraseOthers) {
  Counted::live = 0;
  DenseTable t;
  Model model;
  for (uint32_t k = 0; k < 300; ++k) {
    t.insert(Kel::makePtr<Counted>(k));
    (*t.find(k))->onDeath = [&t](uint32_t key) { t.erase(key ^ 1u); };
    model.insert({weakHash(k), k});
  }
  for (uint32_t k = 0; k < 100; k += 3) {
    EXPECT_TRUE(t.erase(k));
    model.erase({weakHash(k), k});
    model.erase({weakHash(k ^ 1u), k ^ 1u});
  }
  std::mt19937 rng(5);
  expectMatches(t, model, rng);
  EXPECT_EQ(Counted::live, 232);
  for (const Kel::Ptr<Counted>& c : t) c->onDeath = nullptr;
}

}  // namespace
