// Budget: a route with one preference, one via type and two vias costs at most
// 400 bytes in a Status, its share of the hashed route table included. The via
// keys are shared through a DedupViaKeyTable, as in the agent (each route uses
// two of a pool of 1000), and are counted apart. Context: the time to write
// such a route into a Status that has no reactors. The first run prints the
// size of each object of a route to stderr, as allocated and as reserved.
//
// Global operator new and delete are replaced here to count, over the blocks
// made while counting is on, the bytes requested and the bytes malloc reserves
// (its usable size plus the 8-byte chunk header).
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <sys/mman.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <random>
#include <utility>
#include <vector>

#include "IpRib/ProtocolRouteStatus.h"
#include "bench/BenchData.h"
#include "platform/Routing/Rib/DedupViaKey.h"

namespace {

// The requested size of each counted live block, by address: not every free
// says its size. Linear probing with backward-shift deletion, in pages of its
// own so that it counts nothing itself.
class BlockSizes {
 public:
  bool empty() const { return count_ == 0; }

  void add(void* p, size_t n) {
    if (slots_ == nullptr) map();
    size_t i = home(p);
    while (slots_[i].p != nullptr && slots_[i].p != p) i = (i + 1) & mask;
    if (slots_[i].p == nullptr) ++count_;
    slots_[i] = {p, n};
  }

  // Forgets `p`; false when it was not counted.
  bool take(void* p, size_t& n) {
    size_t i = home(p);
    while (slots_[i].p != p) {
      if (slots_[i].p == nullptr) return false;
      i = (i + 1) & mask;
    }
    n = slots_[i].n;
    --count_;
    // Pull back each later entry of the run that may sit at i.
    for (size_t j = (i + 1) & mask; slots_[j].p != nullptr; j = (j + 1) & mask) {
      const size_t h = home(slots_[j].p);
      const bool between = i <= j ? (i < h && h <= j) : (i < h || h <= j);
      if (!between) {
        slots_[i] = slots_[j];
        i = j;
      }
    }
    slots_[i] = {};
    return true;
  }

 private:
  static constexpr unsigned bits = 24;  // room for ~6M live blocks at a low load
  static constexpr size_t mask = (size_t(1) << bits) - 1;
  struct Slot {
    void* p = nullptr;
    size_t n = 0;
  };
  static size_t home(void* p) { return (uintptr_t(p) >> 4) * 0x9e3779b97f4a7c15ull >> (64 - bits); }
  void map() {
    void* m = mmap(nullptr, sizeof(Slot) << bits, PROT_READ | PROT_WRITE,
                   MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (m == MAP_FAILED) std::abort();
    slots_ = static_cast<Slot*>(m);
  }

  Slot* slots_ = nullptr;
  size_t count_ = 0;
};

struct Bytes {
  int64_t requested = 0;
  int64_t reserved = 0;
};

bool counting = false;
Bytes live;  // of the counted blocks still allocated
BlockSizes sizes;

size_t reservedFor(void* p) { return malloc_usable_size(p) + 8; }

void* allocate(size_t n, size_t align) noexcept {
  void* p = nullptr;
  if (align <= alignof(std::max_align_t)) {
    p = std::malloc(n != 0 ? n : 1);
  } else if (posix_memalign(&p, align, n != 0 ? n : 1) != 0) {
    p = nullptr;
  }
  if (p != nullptr && counting) {
    sizes.add(p, n);
    live.requested += int64_t(n);
    live.reserved += int64_t(reservedFor(p));
  }
  return p;
}

void* allocateOrThrow(size_t n, size_t align) {
  void* p = allocate(n, align);
  if (p == nullptr) throw std::bad_alloc();
  return p;
}

void release(void* p) noexcept {
  if (p == nullptr) return;
  size_t n;
  if (!sizes.empty() && sizes.take(p, n)) {
    live.requested -= int64_t(n);
    live.reserved -= int64_t(reservedFor(p));
  }
  std::free(p);
}

// Counts the blocks made during its lifetime.
class Counting {
 public:
  Counting() { counting = true; }
  ~Counting() { counting = false; }
  Counting(const Counting&) = delete;
  Counting& operator=(const Counting&) = delete;
};

}  // namespace

constexpr size_t plainAlign = alignof(std::max_align_t);
void* operator new(size_t n) { return allocateOrThrow(n, plainAlign); }
void* operator new[](size_t n) { return allocateOrThrow(n, plainAlign); }
void* operator new(size_t n, const std::nothrow_t&) noexcept { return allocate(n, plainAlign); }
void* operator new[](size_t n, const std::nothrow_t&) noexcept { return allocate(n, plainAlign); }
void* operator new(size_t n, std::align_val_t a) { return allocateOrThrow(n, size_t(a)); }
void* operator new[](size_t n, std::align_val_t a) { return allocateOrThrow(n, size_t(a)); }
void* operator new(size_t n, std::align_val_t a, const std::nothrow_t&) noexcept {
  return allocate(n, size_t(a));
}
void* operator new[](size_t n, std::align_val_t a, const std::nothrow_t&) noexcept {
  return allocate(n, size_t(a));
}
void operator delete(void* p) noexcept { release(p); }
void operator delete[](void* p) noexcept { release(p); }
void operator delete(void* p, size_t) noexcept { release(p); }
void operator delete[](void* p, size_t) noexcept { release(p); }
void operator delete(void* p, std::align_val_t) noexcept { release(p); }
void operator delete[](void* p, std::align_val_t) noexcept { release(p); }
void operator delete(void* p, size_t, std::align_val_t) noexcept { release(p); }
void operator delete[](void* p, size_t, std::align_val_t) noexcept { release(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { release(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { release(p); }
void operator delete(void* p, std::align_val_t, const std::nothrow_t&) noexcept { release(p); }
void operator delete[](void* p, std::align_val_t, const std::nothrow_t&) noexcept { release(p); }

namespace {

using Kel::Ptr;
using Routing::Protocol::DedupViaKeyByViaType;
using Routing::Protocol::DedupViaKeyMetric;
using Routing::Protocol::Route;
using Routing::Protocol::RoutePref;
using Routing::Protocol::Status;
using Routing::Protocol::ViaType;
using Routing::Protocol::ViaTypeEnum;
using Routing::Rib::DedupViaKey;
using Routing::Rib::DedupViaKeyTable;
using Routing::Rib::ViaKey;

constexpr size_t routeCount = 1'000'000;
constexpr uint32_t viaKeyCount = 1000;

struct Data {
  std::vector<Pando::IpGenPrefix> prefixes;
  std::vector<std::pair<uint32_t, uint32_t>> vias;  // two distinct pool indices per route
};

const Data& data() {
  static const Data d = [] {
    Data d;
    d.prefixes = Bench::distinctPrefixes(routeCount, 1);
    std::mt19937_64 rng(4);
    d.vias.reserve(routeCount);
    for (size_t i = 0; i < routeCount; ++i) {
      const uint32_t a = uint32_t(rng() % viaKeyCount);
      const uint32_t b = (a + 1 + uint32_t(rng() % (viaKeyCount - 1))) % viaKeyCount;
      d.vias.emplace_back(a, b);
    }
    return d;
  }();
  return d;
}

using Pool = std::vector<Ptr<const DedupViaKey>>;

void fillPool(DedupViaKeyTable& table, Pool& pool) {
  for (uint32_t i = 0; i < viaKeyCount; ++i) {
    pool.push_back(table.dedupViaKeyIs(ViaKey(ViaKey::kindIpv4, 0, 1, i)));
  }
}

Ptr<Status> emptyStatus() {
  return Routing::Protocol::statusFactory(
      Routing::Protocol::RouteStatusKey(0, Pando::AddressFamily::ipv4));
}

// What a protocol writes for one route: the route, one preference, two vias of
// one type, and the time of the change.
void writeRoutes(Status& status, const Pool& pool) {
  const Data& d = data();
  const ViaType viaType(ViaTypeEnum::viaIntfNextHop);
  for (size_t i = 0; i < routeCount; ++i) {
    const Ptr<Route> route = status.routeIs(d.prefixes[i]);
    const Ptr<RoutePref> pref = route->routePrefIs(20);
    pref->dedupViaKeyIs(viaType, pool[d.vias[i].first], 10);
    pref->dedupViaKeyIs(viaType, pool[d.vias[i].second], 10);
    route->routeChangedAtIs(1);
  }
}

size_t chunk(size_t n) {
  void* p = std::malloc(n);
  const size_t c = reservedFor(p);
  std::free(p);
  return c;
}

void printBreakdown(const Status& status) {
  const Route& route = **status.route().begin();
  const RoutePref& pref = **route.routePref().begin();
  const DedupViaKeyByViaType& byType = **pref.dedupViaKeyByViaType().begin();
  std::fprintf(stderr, "%-40s %8s %9s\n", "object, per route", "sizeof", "reserved");
  double size = 0, reserved = 0;
  const auto row = [&](const char* what, double s, double r) {
    std::fprintf(stderr, "%-40s %8.1f %9.1f\n", what, s, r);
    size += s;
    reserved += r;
  };
  const auto object = [&](const char* what, size_t s, size_t count) {
    row(what, double(s * count), double(chunk(s) * count));
  };
  object("Route", sizeof(Route), 1);
  object("RoutePref", sizeof(RoutePref), 1);
  object("DedupViaKeyByViaType", sizeof(DedupViaKeyByViaType), 1);
  object("  its via table", byType.dedupViaKey().bytes(), 1);
  object("DedupViaKeyMetric x2", sizeof(DedupViaKeyMetric), 2);
  const double share = double(status.route().bytes()) / status.routeSize();
  row("route table share", share, share);
  std::fprintf(stderr, "%-40s %8.1f %9.1f\n", "total", size, reserved);
  std::fprintf(stderr, "%-40s %8zu %9zu\n", "DedupViaKey (shared, each)", sizeof(DedupViaKey),
               chunk(sizeof(DedupViaKey)));
}

void BM_RouteMemory(benchmark::State& state) {
  data();
  Bytes keys, routes;
  for (auto _ : state) {
    const Bytes start = live;
    Pool pool;
    pool.reserve(viaKeyCount);  // the benchmark's handles are not the store's
    {
      Counting on;
      const auto table = Kel::makePtr<DedupViaKeyTable>();
      fillPool(*table, pool);
      const Bytes afterKeys = live;
      Ptr<Status> status = emptyStatus();
      writeRoutes(*status, pool);
      const Bytes afterRoutes = live;
      keys = {afterKeys.requested - start.requested, afterKeys.reserved - start.reserved};
      routes = {afterRoutes.requested - afterKeys.requested,
                afterRoutes.reserved - afterKeys.reserved};
      static bool printed = false;
      if (!printed) printBreakdown(*status);
      printed = true;
      state.PauseTiming();  // the teardown is not timed
      status = nullptr;
      pool.clear();
    }
    if (live.requested != start.requested || live.reserved != start.reserved) {
      state.SkipWithError("the store leaked");
    }
    state.ResumeTiming();
  }
  state.counters["route_req_B"] = double(routes.requested) / routeCount;
  state.counters["route_rsv_B"] = double(routes.reserved) / routeCount;
  state.counters["viakeys_req_B"] = double(keys.requested);
  state.counters["viakeys_rsv_B"] = double(keys.reserved);
}
BENCHMARK(BM_RouteMemory)->Iterations(1)->Unit(benchmark::kMillisecond);

void BM_StatusWrite(benchmark::State& state) {
  data();
  const auto table = Kel::makePtr<DedupViaKeyTable>();
  Pool pool;
  fillPool(*table, pool);
  for (auto _ : state) {
    state.PauseTiming();
    Ptr<Status> status = emptyStatus();
    state.ResumeTiming();
    writeRoutes(*status, pool);
    state.PauseTiming();
    status = nullptr;
    // Coalesce the freed blocks now: left in malloc's fast bins, they would be
    // merged inside the next timed run, at the route table's first growth.
    malloc_trim(0);
    state.ResumeTiming();
  }
  state.counters["per_route"] =
      benchmark::Counter(double(routeCount), benchmark::Counter::kIsIterationInvariantRate |
                                                 benchmark::Counter::kInvert);
}
BENCHMARK(BM_StatusWrite)->Unit(benchmark::kMillisecond);

}  // namespace
