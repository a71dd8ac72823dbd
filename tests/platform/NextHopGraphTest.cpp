// The next-hop dependency graph: does a via of a route resolve back through
// the route? Small topologies for IPv4 and IPv6 alike, the depth limit, and
// random topologies checked against a full-scan reachability model.
#include <gtest/gtest.h>

#include <map>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "platform/Routing/Rib/Ip/GlobalNextHopDependencyGraph.h"

namespace Routing::Rib::Ip {
namespace {

using Pando::AddressFamily;
using Pando::IpGenAddr;
using Pando::IpGenPrefix;
using Vrf::VrfIdMap::VrfId;

ViaKey via(uint32_t i) { return ViaKey(ViaKey::kindIpv4, 0, 2, i); }

// Networks numbered n, each with a short and a long prefix and hosts h:
//   IPv4  net 10.n.0.0/16  sub 10.n.0.0/24   host 10.n.0.h
//   IPv6  net 2001:db8:n::/48  sub 2001:db8:n::/64  host 2001:db8:n::h
class NextHopGraphTest : public ::testing::TestWithParam<AddressFamily> {
 protected:
  bool v4() const { return GetParam() == AddressFamily::ipv4; }
  IpGenAddr host(uint32_t n, uint32_t h) const {
    return v4() ? IpGenAddr::fromV4(0x0a000000u | n << 16 | h)
                : IpGenAddr(AddressFamily::ipv6, 0x20010db800000000ull | uint64_t(n) << 16, h);
  }
  IpGenPrefix net(uint32_t n) const { return IpGenPrefix(host(n, 0), v4() ? 16 : 48); }
  IpGenPrefix sub(uint32_t n) const { return IpGenPrefix(host(n, 0), v4() ? 24 : 64); }
  IpGenPrefix anyRoute() const { return IpGenPrefix(v4() ? "0.0.0.0/0" : "::/0"); }

  bool looping(const IpGenPrefix& prefix, const ViaKey& v, VrfId vrfId = 0) const {
    return graph_->loopingRoute(prefix, MetricPref(1, 0), vrfId, v, 0, 0, RibType::unicast);
  }

  Kel::Ptr<GlobalNextHopDependencyGraph> graph_ = Kel::makePtr<GlobalNextHopDependencyGraph>();
};

INSTANTIATE_TEST_SUITE_P(Families, NextHopGraphTest,
                         ::testing::Values(AddressFamily::ipv4, AddressFamily::ipv6),
                         [](const auto& info) { return Pando::valueToStrep(info.param); });

//   sub(1) connected, later a host route of host(1,5);  via 1 -> host(1,5), via 2 -> host(7,1)
TEST_P(NextHopGraphTest, TheLongerMatchWins) {
  graph_->routeViasIs(0, sub(1), {});  // connected: resolution ends here
  graph_->viaNextHopIs(via(1), host(1, 5));
  // The installed sub is longer than net(1): the next hop resolves over it, no loop.
  EXPECT_FALSE(looping(net(1), via(1)));
  // Asked about the sub itself, the candidate is the match.
  EXPECT_TRUE(looping(sub(1), via(1)));
  // A host route of the next hop is longer still.
  graph_->routeViasIs(0, IpGenPrefix(host(1, 5), v4() ? 32 : 128), {});
  EXPECT_FALSE(looping(sub(1), via(1)));
  // A default route is the shortest of all: it wins only where nothing else matches.
  EXPECT_FALSE(looping(anyRoute(), via(1)));
  graph_->viaNextHopIs(via(2), host(7, 1));
  EXPECT_TRUE(looping(anyRoute(), via(2)));
}

// A chain: via 0 -> net 1 -> net 2 -> ... -> net n, whose via points into net 0.
// Reaching net 0 takes n + 1 resolutions: found up to maxDepth, not beyond.
TEST_P(NextHopGraphTest, PathsLongerThanTheDepthLimitAreNotFollowed) {
  const uint32_t depth = GlobalNextHopDependencyGraph::maxDepth;
  for (uint32_t n = 1; n <= depth; ++n) {
    graph_->viaNextHopIs(via(n - 1), host(n, 1));
    graph_->routeViasIs(0, net(n), {via(n)});
  }
  graph_->viaNextHopIs(via(depth), host(0, 1));
  EXPECT_FALSE(looping(net(0), via(0)));  // depth + 1 resolutions
  EXPECT_TRUE(looping(net(0), via(1)));   // depth resolutions
}

// Random routes and vias against a model: longest match by a full scan over
// the routes and the candidate, then plain reachability. Small enough that
// no path reaches the depth limit.
TEST_P(NextHopGraphTest, RandomTopologiesMatchAReachabilityModel) {
  const unsigned seed = 99173;
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 rng(seed);
  auto pick = [&](uint32_t n) { return uint32_t(rng() % n); };
  const std::vector<IpGenPrefix> pool = {
      anyRoute(), net(1), sub(1), net(2), sub(2), net(3), IpGenPrefix(host(1, 9), v4() ? 32 : 128)};
  std::map<IpGenPrefix, std::vector<ViaKey>> routes;
  std::map<ViaKey, IpGenAddr> nextHops;

  const auto modelMatch = [&](const IpGenAddr& a,
                              const IpGenPrefix& candidate) -> std::optional<IpGenPrefix> {
    std::optional<IpGenPrefix> best;
    if (candidate.contains(a)) best = candidate;
    for (const auto& [p, vias] : routes) {
      if (p.contains(a) && (!best || p.len() > best->len())) best = p;
    }
    return best;
  };
  const auto modelLooping = [&](const IpGenPrefix& prefix, const ViaKey& v) {
    std::set<IpGenPrefix> seen;
    std::vector<IpGenAddr> todo;
    if (nextHops.count(v)) todo.push_back(nextHops[v]);
    while (!todo.empty()) {
      const IpGenAddr a = todo.back();
      todo.pop_back();
      const std::optional<IpGenPrefix> m = modelMatch(a, prefix);
      if (!m) continue;
      if (*m == prefix) return true;
      if (!seen.insert(*m).second) continue;
      for (const ViaKey& w : routes[*m]) {
        if (nextHops.count(w)) todo.push_back(nextHops[w]);
      }
    }
    return false;
  };

  int loops = 0;
  for (int step = 0; step < 3000; ++step) {
    switch (pick(4)) {
      case 0: {
        std::vector<ViaKey> vias;
        for (uint32_t i = pick(3); i > 0; --i) vias.push_back(via(pick(6)));
        const IpGenPrefix p = pool[pick(uint32_t(pool.size()))];
        routes[p] = vias;
        graph_->routeViasIs(0, p, vias);
        break;
      }
      case 1: {
        const IpGenPrefix p = pool[pick(uint32_t(pool.size()))];
        routes.erase(p);
        graph_->routeViasDel(0, p);
        break;
      }
      case 2: {
        const ViaKey v = via(pick(6));
        if (pick(5) == 0) {
          nextHops.erase(v);
          graph_->viaNextHopDel(v);
        } else {
          nextHops[v] = host(pick(4), 1 + pick(10));
          graph_->viaNextHopIs(v, nextHops[v]);
        }
        break;
      }
      default:
        for (const IpGenPrefix& p : pool) {
          for (uint32_t i = 0; i < 6; ++i) {
            const bool expected = modelLooping(p, via(i));
            loops += expected;
            ASSERT_EQ(looping(p, via(i)), expected) << "step " << step << " " << p << " via " << i;
          }
        }
    }
    ASSERT_EQ(graph_->routeViasSize(), routes.size());
    ASSERT_EQ(graph_->viaNextHopSize(), nextHops.size());
  }
  EXPECT_GT(loops, 100);  // the topologies do loop
}

TEST(NextHopGraph, GenerationNotifiesItsWatchers) {
  struct Watch : GlobalNextHopDependencyGraph::Notifiee {
    int changes = 0;
    void onGeneration() override { ++changes; }
  };
  auto graph = Kel::makePtr<GlobalNextHopDependencyGraph>();
  auto watch = Kel::makePtr<Watch>();
  watch->notifierIs(graph.ptr());
  graph->routeViasIs(0, IpGenPrefix("10.0.0.0/8"), {});  // writes alone notify nobody
  graph->doBumpGeneration();
  graph->generationIs(1);
  graph->doBumpGeneration();
  EXPECT_EQ(watch->changes, 2);
  EXPECT_EQ(graph->generation(), 2u);
  EXPECT_EQ(graph->typeName(), std::string("Routing::Rib::Ip::GlobalNextHopDependencyGraph"));
}

}  // namespace
}  // namespace Routing::Rib::Ip
