#include "agent/World.h"

#include <algorithm>
#include <cstdlib>

#include "Kel/Clock.h"

namespace IpRibAgent {

namespace Protocol = Routing::Protocol;

World::World(const Setup& setup)
    : setup_(setup),
      platform_(setup.protocol, agentPlatform_),
      protocol_(setup.protocol, platform_) {}

World::~World() {
  // The library before the tables it reads.
  stop();
  ribMount_.clear();
}

void World::start() {
  if (setup_.ipIntfCheckNotNeeded) {
    setenv(Protocol::RootSm::ipIntfCheckNotNeededEnvVar, "1", 1);
  } else {
    unsetenv(Protocol::RootSm::ipIntfCheckNotNeededEnvVar);
  }
  Protocol::AgentConfig config;
  config.protocol = setup_.protocol;
  config.gracefulRestart = setup_.gracefulRestart;
  builder_ = Protocol::AgentBuilder::AgentBuilderIs(config, agentPlatform_);
  builder_->containerBuiltIs(
      [this](Protocol::ContainerSm& c, bool multicast) { containerBuilt(c, multicast); });
  builder_->containerDroppingIs(
      [this](Protocol::ContainerSm& c, bool multicast) { containerDropping(c, multicast); });
  builder_->tablesCleanedIs([this](const L3::VrfName&, Vrf::VrfIdMap::VrfId vrfId,
                                   Pando::AddressFamily af,
                                   bool multicast) { tablesCleaned(vrfId, af, multicast); });
  leak_ = Kel::makePtr<LeakSide>(
      Kel::Ptr<const Vrf::VrfIdMap::NameToIdMap>(&platform_.nameToIdMap()), protocol_);
  Kel::ActivityManager::instance().runUntilQuiet();
}

void World::stop() {
  leak_ = nullptr;
  builder_ = nullptr;
}

void World::restart() {
  stop();
  protocol_.restart();
  agentPlatform_.allVrfReadyStatus->vrfReadyStatusDelAll();
  setup_.gracefulRestart = true;
  start();
}

Kel::String World::ribPath(const Protocol::ContainerSm& c) const {
  return builder_->rootSm()->ribMount(
      c.vrfId(), Rib::ribString,
      c.containerKey().af() == Pando::AddressFamily::ipv4 ? "ipv4" : "ipv6");
}

void World::containerBuilt(Protocol::ContainerSm& c, bool multicast) {
  if (multicast) return;
  const Kel::String path = ribPath(c);
  Kel::Ptr<KelBrisk::Mount>& mount = ribMount_[std::string(path.view())];
  if (!mount) {
    mount =
        KelBrisk::mountFactory(agentPlatform_.stateDb, path,
                               Kel::String("Routing::Rib::RouteConfig"), KelBrisk::MountInfo(0));
    mount->doMount();
  }
  protocol_.statusIs(c.containerKey().vrfName(), c.containerKey().af(), c.vrfId(), c.status(),
                     c.ipViaConfig(), c.auxIpViaConfig());
}

void World::containerDropping(Protocol::ContainerSm& c, bool multicast) {
  if (const Protocol::RouteStatusSm* sm = c.routeStatusSm()) {
    droppedEvaluations_ += sm->evaluations();
    droppedReviewSlices_ += sm->reviewSlices();
  }
  if (multicast) return;
  protocol_.statusDel(c.containerKey().vrfName(), c.containerKey().af());
}

void World::tablesCleaned(Vrf::VrfIdMap::VrfId vrfId, Pando::AddressFamily af, bool multicast) {
  if (multicast || !builder_) return;
  // A table that one protocol writes for all VRFs stays while another uses it.
  const Kel::String path = builder_->rootSm()->ribMount(
      vrfId, Rib::ribString, af == Pando::AddressFamily::ipv4 ? "ipv4" : "ipv6");
  for (const auto& [key, other] : builder_->containers()) {
    if (!key.multicast && ribPath(*other.sm) == path) return;
  }
  ribMount_.erase(std::string(path.view()));
}

std::vector<World::ContainerRef> World::containers() const {
  std::vector<ContainerRef> out;
  if (!builder_) return out;
  for (const auto& [key, c] : builder_->containers()) {
    out.push_back(
        {key.containerKey.vrfName(), c.vrfId, key.containerKey.af(), key.multicast, c.sm.ptr()});
  }
  std::sort(out.begin(), out.end(), [](const ContainerRef& a, const ContainerRef& b) {
    if (a.multicast != b.multicast) return b.multicast;
    return a.vrfId != b.vrfId ? a.vrfId < b.vrfId : a.af < b.af;
  });
  return out;
}

Protocol::ContainerSm* World::container(const L3::VrfName& vrf, Pando::AddressFamily af) const {
  return builder_ ? builder_->container(Protocol::ContainerKey(vrf, af), false) : nullptr;
}

std::vector<const Rib::RouteConfig*> World::ribTables() const {
  std::vector<const Rib::RouteConfig*> out;
  for (const ContainerRef& c : containers()) {
    const Rib::RouteConfig* t = c.container->ribConfig().ptr();
    if (!c.multicast && std::find(out.begin(), out.end(), t) == out.end()) out.push_back(t);
  }
  return out;
}

const Rib::ViaSetConfig* World::viaSetConfig() const {
  return builder_ ? builder_->rootSm()->viaSetConfig().ptr() : nullptr;
}

}  // namespace IpRibAgent
