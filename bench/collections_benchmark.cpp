// Budgets for a hashed collection of 1,000,000 prefixes, per element: insert
// (building from empty, growth included) at most 150 ns, lookup of a present
// key 60 ns, in-order iteration 10 ns, seek to a key present or not 100 ns.
//
// Measured on Kel::HashedSet<Pando::IpGenPrefix> and on the store's route
// table (entries are Ptr<Route>, the key is read off the route), against
// std::unordered_set and std::unordered_map with the same hash. Keys are
// inserted in a random order and looked up in another. The per_elem counter is
// the time per element; "+route" iterations also read each route's prefix, as
// a review pass does.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "IpRib/ProtocolRouteStatus.h"
#include "Kel/Collections.h"
#include "bench/BenchData.h"

namespace {

using Kel::Ptr;
using Pando::IpGenPrefix;
using Routing::Protocol::Route;

constexpr size_t keyCount = 1'000'000;

struct Data {
  std::vector<IpGenPrefix> keys;     // in insertion order
  std::vector<Ptr<Route>> routes;    // routes[i] has prefix keys[i]
  std::vector<IpGenPrefix> lookups;  // the keys, shuffled
  std::vector<IpGenPrefix> seeks;    // half of them present, half absent, shuffled
};

const Data& data() {
  static const Data d = [] {
    Data d;
    const std::vector<IpGenPrefix> all = Bench::distinctPrefixes(2 * keyCount, 1);
    d.keys.assign(all.begin(), all.begin() + keyCount);
    d.routes.reserve(keyCount);
    for (const IpGenPrefix& k : d.keys) d.routes.push_back(Kel::makePtr<Route>(k));
    d.lookups = d.keys;
    Bench::shuffle(d.lookups, 2);
    d.seeks.assign(all.begin() + keyCount / 2, all.begin() + keyCount + keyCount / 2);
    Bench::shuffle(d.seeks, 3);
    return d;
  }();
  return d;
}

void perElement(benchmark::State& state, size_t count) {
  state.counters["per_elem"] = benchmark::Counter(
      double(count), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

// One adapter per table: how to insert element i, test a key, visit an entry.
struct KelSet {
  using Table = Kel::HashedSet<IpGenPrefix>;
  static void insert(Table& t, const Data& d, size_t i) { t.insert(IpGenPrefix(d.keys[i])); }
  static bool has(const Table& t, const IpGenPrefix& k) { return t.find(k) != nullptr; }
  static uintptr_t visit(const IpGenPrefix& e) { return e.len(); }
};

struct KelRouteMap {
  using Table = Routing::Protocol::Status::RouteMap;
  static void insert(Table& t, const Data& d, size_t i) { t.insert(Ptr<Route>(d.routes[i])); }
  static bool has(const Table& t, const IpGenPrefix& k) { return t.find(k) != nullptr; }
  static uintptr_t visit(const Ptr<Route>& e) { return uintptr_t(e.ptr()); }
  static uintptr_t visitRoute(const Ptr<Route>& e) { return e->prefix().len(); }
};

struct StdSet {
  using Table = std::unordered_set<IpGenPrefix, Bench::PrefixHash>;
  static void insert(Table& t, const Data& d, size_t i) { t.insert(d.keys[i]); }
  static bool has(const Table& t, const IpGenPrefix& k) { return t.find(k) != t.end(); }
  static uintptr_t visit(const IpGenPrefix& e) { return e.len(); }
};

struct StdMap {
  using Table = std::unordered_map<IpGenPrefix, Ptr<Route>, Bench::PrefixHash>;
  using Entry = Table::value_type;
  static void insert(Table& t, const Data& d, size_t i) { t.emplace(d.keys[i], d.routes[i]); }
  static bool has(const Table& t, const IpGenPrefix& k) { return t.find(k) != t.end(); }
  static uintptr_t visit(const Entry& e) { return uintptr_t(e.second.ptr()); }
  static uintptr_t visitRoute(const Entry& e) { return e.second->prefix().len(); }
};

// The table of all keys, built once and shared by the read-only benchmarks.
template <class Ops>
const typename Ops::Table& built() {
  static const std::unique_ptr<typename Ops::Table> t = [] {
    auto t = std::make_unique<typename Ops::Table>();
    for (size_t i = 0; i < keyCount; ++i) Ops::insert(*t, data(), i);
    return t;
  }();
  return *t;
}

template <class Ops>
void BM_Insert(benchmark::State& state) {
  const Data& d = data();
  for (auto _ : state) {
    state.PauseTiming();
    auto t = std::make_unique<typename Ops::Table>();
    state.ResumeTiming();
    for (size_t i = 0; i < keyCount; ++i) Ops::insert(*t, d, i);
    state.PauseTiming();
    if (t->size() != keyCount) state.SkipWithError("lost keys");
    t.reset();
    // Coalesce the freed nodes now: left in malloc's fast bins, they would be
    // merged inside the next timed run, at its first large allocation.
    malloc_trim(0);
    state.ResumeTiming();
  }
  perElement(state, keyCount);
}

template <class Ops>
void BM_Lookup(benchmark::State& state) {
  const auto& t = built<Ops>();
  const Data& d = data();
  for (auto _ : state) {
    size_t found = 0;
    for (const IpGenPrefix& k : d.lookups) found += Ops::has(t, k);
    if (found != keyCount) state.SkipWithError("a present key was not found");
  }
  perElement(state, keyCount);
}

template <class Ops, auto visit>
void BM_Iterate(benchmark::State& state) {
  const auto& t = built<Ops>();
  for (auto _ : state) {
    uintptr_t sum = 0;
    for (const auto& e : t) sum += visit(e);
    benchmark::DoNotOptimize(sum);
  }
  perElement(state, keyCount);
}

template <class Ops>
void BM_Seek(benchmark::State& state) {
  const auto& t = built<Ops>();
  const Data& d = data();
  for (auto _ : state) {
    uint64_t sum = 0;
    for (const IpGenPrefix& k : d.seeks) {
      const auto it = t.seek(k);
      sum += it == t.end() ? 0 : it.hash();
    }
    benchmark::DoNotOptimize(sum);
  }
  perElement(state, d.seeks.size());
}

[[maybe_unused]] const bool registered = [] {
  // A short minimum time keeps five repetitions of all of them within a minute.
  const auto add = [](const char* name, void (*run)(benchmark::State&)) {
    benchmark::RegisterBenchmark(name, run)->MinTime(0.2);
  };
  add("insert/HashedSet", BM_Insert<KelSet>);
  add("insert/unordered_set", BM_Insert<StdSet>);
  add("insert/RouteMap", BM_Insert<KelRouteMap>);
  add("insert/unordered_map", BM_Insert<StdMap>);
  add("lookup/HashedSet", BM_Lookup<KelSet>);
  add("lookup/unordered_set", BM_Lookup<StdSet>);
  add("lookup/RouteMap", BM_Lookup<KelRouteMap>);
  add("lookup/unordered_map", BM_Lookup<StdMap>);
  add("iterate/HashedSet", BM_Iterate<KelSet, &KelSet::visit>);
  add("iterate/unordered_set", BM_Iterate<StdSet, &StdSet::visit>);
  add("iterate/RouteMap", BM_Iterate<KelRouteMap, &KelRouteMap::visit>);
  add("iterate/unordered_map", BM_Iterate<StdMap, &StdMap::visit>);
  add("iterate/RouteMap+route", BM_Iterate<KelRouteMap, &KelRouteMap::visitRoute>);
  add("iterate/unordered_map+route", BM_Iterate<StdMap, &StdMap::visitRoute>);
  add("seek/HashedSet", BM_Seek<KelSet>);
  add("seek/RouteMap", BM_Seek<KelRouteMap>);
  return true;
}();

}  // namespace
