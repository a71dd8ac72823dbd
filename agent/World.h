// The world the agent runs in one process: the platform side it publishes
// (Platform), the protocol it plays (ProtocolSide), and the library, run
// through Routing::Protocol::AgentBuilder. This is the one place that drives
// the library.
//
// The agent platform (state database, shared memory, readiness collections,
// BFD tracking) is made with the world and outlives each run of the library.
// `start` makes the builder: RootSmIs and grStateIs, then the mount groups
// complete on the next turns of the loop (start settles) and the root starts
// serving VRFs. From then on containers come and go with the root's ready
// sets; the builder's hooks hand each new unicast container's Status and via
// tables to the protocol, which writes its routes there, and take them back
// before a container is dropped.
// The leak root (LeakSide) is made with the library and dropped with it.
// The RIB maps the route table of every unicast container (as a RIB process
// reads them) and forgets it when the container goes, unless the library
// is going as a whole: a restart finds the routes it left. `restart` drops
// the library (containers, then the root) and starts it again under
// graceful restart, with fresh readiness records, as a new agent process
// would.
// The environment variable IP_INTF_CHECK_NOT_NEEDED is set (or cleared) for
// the root as the set-up says, just before it is made.
// One thread.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "IpRib/ProtocolAgentBuilder.h"
#include "agent/Leak.h"
#include "agent/Platform.h"
#include "agent/Protocol.h"

namespace IpRibAgent {

// What the agent is told before `start`.
struct Setup {
  Rib::RoutingProtocol protocol = 2;
  bool gracefulRestart = false;
  bool ipIntfCheckNotNeeded = false;
};

class World {
 public:
  explicit World(const Setup& setup);
  ~World();
  World(const World&) = delete;
  World& operator=(const World&) = delete;

  const Setup& setup() const { return setup_; }
  // Environment and graceful restart may change until the library starts.
  void ipIntfCheckNotNeededIs(bool v) { setup_.ipIntfCheckNotNeeded = v; }
  void gracefulRestartIs(bool v) { setup_.gracefulRestart = v; }
  bool started() const { return builder_ != nullptr; }
  // Makes the builder (the root asks for its mounts) and runs the loop until
  // the mounts are complete.
  void start();
  // Drops the library and starts it again under graceful restart.
  void restart();
  // Drops the library (the leak root, containers, then the root); the
  // platform, the protocol and the RIB's mappings stay.
  void stop();

  Platform& platform() { return platform_; }
  const Platform& platform() const { return platform_; }
  ProtocolSide& protocol() { return protocol_; }
  const Routing::Protocol::AgentPlatform& agentPlatform() const { return agentPlatform_; }
  // Null before start.
  Routing::Protocol::RootSm* rootSm() const {
    return builder_ ? builder_->rootSm().ptr() : nullptr;
  }

  // Null before start.
  const LeakSide* leak() const { return leak_.ptr(); }

  // ------------------------------------------------------------ library side
  struct ContainerRef {
    L3::VrfName vrf;
    Vrf::VrfIdMap::VrfId vrfId;
    Pando::AddressFamily af;
    bool multicast;
    Routing::Protocol::ContainerSm* container;
  };
  // Unicast first, then by VRF id and family.
  std::vector<ContainerRef> containers() const;
  // Null when the VRF has no unicast container for the family.
  Routing::Protocol::ContainerSm* container(const L3::VrfName& vrf, Pando::AddressFamily af) const;

  // ------------------------------------------------------------ RIB tables
  // The route tables the unicast containers write, each once: a protocol
  // whose routes live in one table for all VRFs writes them all there.
  std::vector<const Rib::RouteConfig*> ribTables() const;
  // Null before start.
  const Rib::ViaSetConfig* viaSetConfig() const;

  // Work done by containers dropped so far, for show stats.
  uint64_t droppedEvaluations() const { return droppedEvaluations_; }
  uint64_t droppedReviewSlices() const { return droppedReviewSlices_; }
  // Route tables the RIB maps.
  uint64_t ribMounts() const { return ribMount_.size(); }

 private:
  void containerBuilt(Routing::Protocol::ContainerSm& c, bool multicast);
  void containerDropping(Routing::Protocol::ContainerSm& c, bool multicast);
  // The RIB maps a route table from its first container until the agent
  // cleans it up: across a restart it keeps the previous run's routes.
  void tablesCleaned(Vrf::VrfIdMap::VrfId vrfId, Pando::AddressFamily af, bool multicast);
  Kel::String ribPath(const Routing::Protocol::ContainerSm& c) const;

  Setup setup_;
  Routing::Protocol::AgentPlatform agentPlatform_ = Routing::Protocol::AgentPlatform::make();
  Platform platform_;
  ProtocolSide protocol_;
  Kel::Ptr<Routing::Protocol::AgentBuilder> builder_;
  Kel::Ptr<LeakSide> leak_;
  // The RIB's mappings of the route tables, by path.
  std::map<std::string, Kel::Ptr<KelBrisk::Mount>> ribMount_;
  uint64_t droppedEvaluations_ = 0;
  uint64_t droppedReviewSlices_ = 0;
};

}  // namespace IpRibAgent
