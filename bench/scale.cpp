// iprib_scale: the route table at scale, one table size per process, so that
// the peak resident memory it reports is that table's. Not a test and not one
// of the benchmark programs: `make scale` runs it for 10K, 100K, 1M and 10M
// routes, `make plot` draws what it wrote.
//
// The world is the agent's protocol side without the platform: one status and
// RouteStatusSm per VRF and family, all of them writing one RIB route table
// and one via set table, and ViaMetricStatusSm over the whole directory.
// Every route has one preference and two vias of one type, drawn from 256
// resolved vias per family (VRF 1, next hops outside every route prefix).
// Routes go round-robin over the VRFs; "both" alternates the families.
//
// Phases, each timed on the wall clock:
// - load: the protocol writes each route (route, preference, two vias, its
//   routeChangedAt), which the tracker files and route computation writes to
//   the RIB as it arrives (--no-tracker leaves the tracker out);
// - review: the next-hop graph's generation bump, every VRF's full review
//   paced by the activity loop, until the loop is quiet;
// - restart: every VRF's route computation dropped and made again over its
//   status, the RIB keeping its routes, until the loop is quiet (attach,
//   first review, and the look for stale RIB routes).
// The load and the review are also timed in processor time, and the load in
// user mode alone.
// Memory: bytes malloc and the slabs hold for the load, per route (store,
// reactors, index, RIB), and the process's peak resident set. A progress line
// goes to stderr while a phase runs, when stderr is a terminal.
//
// Usage: iprib_scale --routes N [--family ipv4|ipv6|both] [--vrfs K]
//                    [--no-tracker] [--toggle NAME]... [--json FILE]
// --toggle turns a feature toggle on ("DeferredViaFilingStamp", say).
#include <malloc.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "IpRib/ProtocolRouteStatusSm.h"
#include "IpRib/ProtocolViaMetricStatusSm.h"
#include "Kel/Clock.h"
#include "Kel/Slab.h"
#include "Kel/String.h"
#include "Kel/System.h"
#include "platform/Flipset/Flipset.h"

namespace {

using Kel::Ptr;
using Pando::AddressFamily;
using Pando::IpGenPrefix;
namespace Protocol = Routing::Protocol;
namespace Rib = Routing::Rib;
using Clock = std::chrono::steady_clock;

constexpr Vrf::VrfIdMap::VrfId viaVrf = 1;
constexpr uint32_t viaSelector = 2;
constexpr uint32_t viaCount = 256;
constexpr Routing::RoutePreference preference = 20;
const Protocol::ViaType viaType(Protocol::ViaTypeEnum::viaIntfNextHop);

struct Options {
  uint64_t routes = 1'000'000;
  std::string family = "ipv4";
  uint32_t vrfs = 1;
  bool tracker = true;
  std::vector<std::string> toggles;  // turned on
  std::string json;
};

[[noreturn]] void usage(const std::string& what) {
  std::cerr << "iprib_scale: " << what
            << "\nusage: iprib_scale --routes N [--family ipv4|ipv6|both] [--vrfs K] "
               "[--no-tracker] [--toggle NAME]... [--json FILE]\n";
  std::exit(2);
}

Options parse(int argc, char** argv) {
  Options o;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    const auto value = [&]() -> std::string {
      if (i + 1 == argc) usage(arg + " needs a value");
      return argv[++i];
    };
    if (arg == "--routes") {
      o.routes = std::strtoull(value().c_str(), nullptr, 10);
    } else if (arg == "--family") {
      o.family = value();
    } else if (arg == "--vrfs") {
      o.vrfs = uint32_t(std::strtoul(value().c_str(), nullptr, 10));
    } else if (arg == "--no-tracker") {
      o.tracker = false;
    } else if (arg == "--toggle") {
      o.toggles.push_back(value());
    } else if (arg == "--json") {
      o.json = value();
    } else {
      usage("unknown argument " + arg);
    }
  }
  if (o.routes == 0 || o.vrfs == 0) usage("--routes and --vrfs must be positive");
  if (o.family != "ipv4" && o.family != "ipv6" && o.family != "both") {
    usage("--family is ipv4, ipv6 or both");
  }
  return o;
}

// A bijection of 64-bit numbers (splitmix64's finaliser): distinct route
// numbers give distinct, well spread addresses.
uint64_t mix(uint64_t x) {
  x = (x ^ (x >> 30)) * 0xbf58476d1ce4e5b9ull;
  x = (x ^ (x >> 27)) * 0x94d049bb133111ebull;
  return x ^ (x >> 31);
}

// Route k of a family: IPv4 /32s below 128.0.0.0 (the vias' next hops lie in
// 192.168.0.0/24), IPv6 /64s in 2001:db8::/32 (next hops in 2001:db9::/64).
// 2^31 IPv4 routes at most.
IpGenPrefix routePrefix(AddressFamily af, uint64_t k) {
  if (af == AddressFamily::ipv4) {
    // An odd multiplier is a bijection modulo 2^31.
    return IpGenPrefix::fromV4(uint32_t((k * 0x9e3779b1ull) & 0x7fffffffu), 32);
  }
  const uint64_t hi = 0x20010db800000000ull | ((k * 0x9e3779b1ull) & 0xffffffffull);
  return IpGenPrefix(Pando::IpGenAddr(AddressFamily::ipv6, hi, 0), 64);
}

Pando::IpGenAddr nextHop(AddressFamily af, uint32_t i) {
  if (af == AddressFamily::ipv4) return Pando::IpGenAddr::fromV4(0xc0a80000u + i);
  return Pando::IpGenAddr(AddressFamily::ipv6, 0x20010db900000000ull, 1 + i);
}

Rib::ViaKey via(AddressFamily af, uint32_t i) {
  return Rib::ViaKey(af == AddressFamily::ipv4 ? Rib::ViaKey::kindIpv4 : Rib::ViaKey::kindIpv6,
                     viaVrf, viaSelector, i);
}

int fam(AddressFamily af) { return af == AddressFamily::ipv4 ? 0 : 1; }

struct World {
  explicit World(const Options& o) {
    for (AddressFamily af : {AddressFamily::ipv4, AddressFamily::ipv6}) {
      ipMetrics[fam(af)] = metricTree->viaMetricStatusIs(via(af, 0));
      for (uint32_t i = 0; i < viaCount; ++i) {
        viaConfig[fam(af)]->viaIs(
            via(af, i), Rib::Via(nextHop(af, i), Pando::IntfId("Ethernet" + std::to_string(i))));
        graph->viaNextHopIs(via(af, i), nextHop(af, i));
        ipMetrics[fam(af)]->viaMetricIs(via(af, i), Rib::ViaMetric(Rib::MetricPref(1, 1)));
        pool[fam(af)].push_back(viaKeys->dedupViaKeyIs(via(af, i)));
      }
    }
    for (uint32_t v = 0; v < o.vrfs; ++v) {
      for (AddressFamily af : {AddressFamily::ipv4, AddressFamily::ipv6}) {
        if (o.family != "both" && o.family != (af == AddressFamily::ipv4 ? "ipv4" : "ipv6")) {
          continue;
        }
        const L3::VrfName name("vrf" + std::to_string(v + 1));
        const Vrf::VrfIdMap::VrfId id = 10 + v;
        Container c{name, id, af, Protocol::statusFactory(Protocol::RouteStatusKey(id, af)),
                    nullptr};
        dir->statusIs(c.status);
        c.rsm = routeStatusSm(c);
        containers[fam(af)].push_back(c);
      }
    }
    if (o.tracker) vms = Protocol::viaMetricStatusSmFactory(metricTree, dir);
    for (const auto& byFamily : containers) {
      for (const Container& c : byFamily) c.status->initializedIs(true);
    }
    Kel::ActivityManager::instance().runUntilQuiet();
  }
  ~World() { vms = nullptr; }

  struct Container {
    L3::VrfName name;
    Vrf::VrfIdMap::VrfId id;
    AddressFamily af;
    Ptr<Protocol::Status> status;
    Ptr<Protocol::RouteStatusSm> rsm;
  };

  // Route computation for one VRF and family, as the agent's container makes it.
  Ptr<Protocol::RouteStatusSm> routeStatusSm(const Container& c) {
    return Protocol::routeStatusSmFactory(
        c.name, c.af, c.id, c.status, ipMetrics[fam(c.af)], evpnMetrics, looping, graph, ribConfig,
        viaSets, 2, v4DefaultMetrics, v6DefaultMetrics, Protocol::vrfReadyStatusFactory(c.name),
        bfdList, viaConfig[fam(c.af)], viaConfig[1 - fam(c.af)], metricTree, Kel::String("rib"),
        viaStatus);
  }

  Ptr<Rib::DedupViaKeyTable> viaKeys = Kel::makePtr<Rib::DedupViaKeyTable>();
  Ptr<Rib::ViaMetricStatusByVrf> metricTree = Kel::makePtr<Rib::ViaMetricStatusByVrf>();
  Ptr<Rib::ViaMetricStatus> ipMetrics[2];
  Ptr<Rib::ViaMetricStatus> evpnMetrics = Kel::makePtr<Rib::ViaMetricStatus>();
  Ptr<Rib::ViaMetricStatus> v4DefaultMetrics = Kel::makePtr<Rib::ViaMetricStatus>();
  Ptr<Rib::ViaMetricStatus> v6DefaultMetrics = Kel::makePtr<Rib::ViaMetricStatus>();
  Ptr<Rib::LoopingRouteStatus> looping = Kel::makePtr<Rib::LoopingRouteStatus>();
  Ptr<Rib::Ip::GlobalNextHopDependencyGraph> graph =
      Kel::makePtr<Rib::Ip::GlobalNextHopDependencyGraph>();
  Ptr<Rib::RouteConfig> ribConfig = Kel::makePtr<Rib::RouteConfig>();
  Ptr<Rib::ViaSetConfig> viaSets = Kel::makePtr<Rib::ViaSetConfig>();
  Ptr<Routing::BfdTrackedStaticRoutesList> bfdList =
      Kel::makePtr<Routing::BfdTrackedStaticRoutesList>();
  Ptr<Rib::Ip::ViaConfig> viaConfig[2] = {Kel::makePtr<Rib::Ip::ViaConfig>(),
                                          Kel::makePtr<Rib::Ip::ViaConfig>()};
  Ptr<Rib::ViaStatusByVrf> viaStatus = Kel::makePtr<Rib::ViaStatusByVrf>();
  Ptr<Protocol::RouteStatusDir> dir = Protocol::routeStatusDirFactory();
  std::vector<Ptr<const Rib::DedupViaKey>> pool[2];
  std::vector<Container> containers[2];
  Ptr<Protocol::ViaMetricStatusSm> vms;
};

double seconds(Clock::time_point from, Clock::time_point to) {
  return std::chrono::duration<double>(to - from).count();
}

// What malloc hands out, and the slabs (Kel/Slab.h), which are mapped apart.
int64_t bytesInUse() {
  const struct mallinfo2 m = mallinfo2();
  return int64_t(m.uordblks + m.hblkhd + Kel::Slab::usage().held);
}

int64_t peakResidentBytes() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind("VmHWM:", 0) == 0) return std::strtoll(line.c_str() + 6, nullptr, 10) * 1024;
  }
  return 0;
}

// "\r<phase> <done> / <total> routes <rate>" at most four times a second.
class Progress {
 public:
  Progress(const char* phase, uint64_t total)
      : phase_(phase), total_(total), on_(isatty(2) != 0), start_(Clock::now()), last_(start_) {}
  void at(uint64_t done) {
    if (!on_) return;
    const Clock::time_point now = Clock::now();
    if (seconds(last_, now) < 0.25) return;
    last_ = now;
    std::fprintf(stderr, "\r  %s %12llu / %llu routes  %.2fM/s   ", phase_,
                 static_cast<unsigned long long>(done), static_cast<unsigned long long>(total_),
                 double(done) / seconds(start_, now) / 1e6);
  }
  void done() {
    if (on_) std::fprintf(stderr, "\r%70s\r", "");
  }

 private:
  const char* phase_;
  uint64_t total_;
  bool on_;
  Clock::time_point start_, last_;
};

// The process's processor time: on a shared machine the wall clock also
// counts the time other processes take.
double cpuSeconds() {
  timespec t;
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
  return double(t.tv_sec) + double(t.tv_nsec) * 1e-9;
}

// Its time in user mode alone: on a virtual machine the kernel's share,
// mostly the first touch of fresh memory, grows with the table (3 GiB of it
// took 1.5 to 6.7 s on the shared VM the figures came from).
double userSeconds() {
  rusage u;
  getrusage(RUSAGE_SELF, &u);
  return double(u.ru_utime.tv_sec) + double(u.ru_utime.tv_usec) * 1e-6;
}

struct Result {
  double loadSeconds = 0, reviewSeconds = 0, loadCpu = 0, reviewCpu = 0, restartSeconds = 0;
  double loadUser = 0;
  int64_t loadBytes = 0, peakRss = 0;
};

// The phases apart and out of line, so that a profile (callgrind's inclusive
// counts, say) tells their instructions apart.
[[gnu::noinline]] void loadPhase(World& w, const Options& o) {
  const bool both = o.family == "both";
  const AddressFamily only = o.family == "ipv6" ? AddressFamily::ipv6 : AddressFamily::ipv4;
  // The status and prefix of the i-th route.
  const auto target = [&](uint64_t i) {
    const AddressFamily af = both ? (i % 2 == 0 ? AddressFamily::ipv4 : AddressFamily::ipv6) : only;
    const uint64_t k = both ? i / 2 : i;
    return std::pair<const World::Container&, IpGenPrefix>(w.containers[fam(af)][k % o.vrfs],
                                                           routePrefix(af, k));
  };
  // How far ahead the protocol names the prefixes it writes.
  constexpr uint64_t writeAhead = 8;
  Progress load("load  ", o.routes);
  for (uint64_t i = 0; i < o.routes; ++i) {
    if (i + writeAhead < o.routes) {
      const auto [ahead, prefix] = target(i + writeAhead);
      ahead.status->routeWriteAhead(prefix);
    }
    const auto [c, prefix] = target(i);
    const AddressFamily af = prefix.af();
    const Ptr<Protocol::Route> route = c.status->routeIs(prefix);
    const Ptr<Protocol::RoutePref> pref = route->routePrefIs(preference);
    const uint64_t m = mix(i);
    const uint32_t a = uint32_t(m % viaCount);
    const uint32_t b = (a + 1 + uint32_t((m >> 32) % (viaCount - 1))) % viaCount;
    pref->dedupViaKeyIs(viaType, w.pool[fam(af)][a], 10);
    pref->dedupViaKeyIs(viaType, w.pool[fam(af)][b], 10);
    route->routeChangedAtIs(Kel::System::currentTime());
    if ((i & 0x3fff) == 0) load.at(i);
  }
  load.done();
}

[[gnu::noinline]] void reviewPhase(World& w, const Options& o) {
  Kel::ActivityManager& loop = Kel::ActivityManager::instance();
  w.graph->doBumpGeneration();
  const auto evaluations = [&] {
    uint64_t n = 0;
    for (const auto& byFamily : w.containers) {
      for (const World::Container& c : byFamily) n += c.rsm->evaluations();
    }
    return n;
  };
  const uint64_t evaluationsBefore = evaluations();
  Progress review("review", o.routes);
  while (loop.runOnce() != 0) review.at(evaluations() - evaluationsBefore);
  review.done();
}

// The start after a restart of route computation: every VRF's is made again
// over the status its protocol kept, with the RIB holding what it wrote
// before; each attaches to its routes, reviews them and then looks for RIB
// routes its status no longer has.
[[gnu::noinline]] void restartPhase(World& w, const Options& o) {
  for (auto& byFamily : w.containers) {
    for (World::Container& c : byFamily) c.rsm = nullptr;
  }
  Progress restart("restart", o.routes);
  uint64_t attached = 0;
  for (auto& byFamily : w.containers) {
    for (World::Container& c : byFamily) {
      c.rsm = w.routeStatusSm(c);
      attached += c.status->routeSize();
      restart.at(attached);
    }
  }
  Kel::ActivityManager::instance().runUntilQuiet();
  restart.done();
}

Result run(const Options& o) {
  Result r;
  World w(o);
  const int64_t ready = bytesInUse();
  const Clock::time_point start = Clock::now();
  const double cpuStart = cpuSeconds(), userStart = userSeconds();
  loadPhase(w, o);
  r.loadSeconds = seconds(start, Clock::now());
  r.loadCpu = cpuSeconds() - cpuStart;
  r.loadUser = userSeconds() - userStart;
  r.loadBytes = bytesInUse() - ready;
  if (w.ribConfig->routeSize() != o.routes) {
    std::cerr << "iprib_scale: " << w.ribConfig->routeSize() << " RIB routes for " << o.routes
              << " written\n";
    std::exit(1);
  }

  const Clock::time_point reviewStart = Clock::now();
  const double reviewCpuStart = cpuSeconds();
  reviewPhase(w, o);
  r.reviewSeconds = seconds(reviewStart, Clock::now());
  r.reviewCpu = cpuSeconds() - reviewCpuStart;

  const Clock::time_point restartStart = Clock::now();
  restartPhase(w, o);
  r.restartSeconds = seconds(restartStart, Clock::now());
  if (w.ribConfig->routeSize() != o.routes) {
    std::cerr << "iprib_scale: " << w.ribConfig->routeSize() << " RIB routes after the restart\n";
    std::exit(1);
  }
  r.peakRss = peakResidentBytes();
  return r;
}

std::string loadAverage() {
  double l[3] = {0, 0, 0};
  if (getloadavg(l, 3) != 3) return "[]";
  std::ostringstream os;
  os << "[" << l[0] << ", " << l[1] << ", " << l[2] << "]";
  return os.str();
}

}  // namespace

int main(int argc, char** argv) {
  const Options o = parse(argc, argv);
  Flipset::toggleStateIs("StaticRouteMetric", true);
  for (const std::string& name : o.toggles) Flipset::toggleStateIs(name, true);
  const std::string load = loadAverage();
  const Result r = run(o);
  const double perRoute = double(r.loadBytes) / double(o.routes);
  std::printf(
      "routes %llu %s vrfs %u%s: load %.3f s (%.0f routes/s), review %.3f s (%.0f routes/s), "
      "restart %.3f s (%.0f routes/s), %.0f bytes/route, peak resident %.2f GiB; processor "
      "time: load %.0f routes/s (user mode %.0f), review %.0f routes/s\n",
      static_cast<unsigned long long>(o.routes), o.family.c_str(), o.vrfs,
      o.tracker ? "" : " no tracker", r.loadSeconds, double(o.routes) / r.loadSeconds,
      r.reviewSeconds, double(o.routes) / r.reviewSeconds, r.restartSeconds,
      double(o.routes) / r.restartSeconds, perRoute, double(r.peakRss) / double(1ull << 30),
      double(o.routes) / r.loadCpu, double(o.routes) / r.loadUser, double(o.routes) / r.reviewCpu);
  if (!o.json.empty()) {
    std::ofstream out(o.json);
    char date[32];
    const std::time_t now = std::time(nullptr);
    std::strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%SZ", std::gmtime(&now));
    out << "{\n  \"context\": {\"program\": \"iprib_scale\", \"date\": \"" << date
        << "\", \"cores\": " << std::thread::hardware_concurrency() << ", \"load_avg\": " << load
        << "},\n  \"scale\": [{\"routes\": " << o.routes << ", \"family\": \"" << o.family
        << "\", \"vrfs\": " << o.vrfs << ", \"tracker\": " << (o.tracker ? "true" : "false")
        << ", \"load_s\": " << r.loadSeconds
        << ", \"load_routes_per_s\": " << double(o.routes) / r.loadSeconds
        << ", \"review_s\": " << r.reviewSeconds
        << ", \"review_routes_per_s\": " << double(o.routes) / r.reviewSeconds
        << ", \"restart_s\": " << r.restartSeconds
        << ", \"restart_routes_per_s\": " << double(o.routes) / r.restartSeconds
        << ", \"load_cpu_routes_per_s\": " << double(o.routes) / r.loadCpu
        << ", \"load_user_routes_per_s\": " << double(o.routes) / r.loadUser
        << ", \"review_cpu_routes_per_s\": " << double(o.routes) / r.reviewCpu
        << ", \"bytes_per_route\": " << perRoute << ", \"peak_rss_bytes\": " << r.peakRss
        << "}]\n}\n";
  }
  return 0;
}
