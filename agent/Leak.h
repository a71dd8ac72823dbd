// Route leaking as the agent runs it: the leak root, and per VRF and family
// its mux and demux (createVrf/deleteVrf) over the protocol's route list of
// the VRF and a LeakRouteConfig that the agent owns and reads (show leak).
//
// Made with each run of the library and dropped with it, as a new agent
// process would make it again; the route lists are the protocol's and stay.
// VRFs follow the name map, not the ready sets: leaking works on the agent's
// configured routes and waits for none of the inputs readiness waits for.
// A VRF added, renumbered or deleted is created, moved or deleted in the
// leak root, then the routes that name it as their target are filed anew
// (ProtocolSide::leakTargetChanged), since the leak code resolves a target's
// name only on an event of its route.
// One thread. Costs: a VRF change is two createVrf or deleteVrf calls and a
// walk over the protocol's routes; reading a config is the config's size.
#pragma once

#include <array>
#include <cstdint>
#include <map>

#include "IpRib/ProtocolRouteLeakSm.h"
#include "agent/Protocol.h"
#include "platform/Vrf/NameToIdMap.h"

namespace IpRibAgent {

class LeakSide final : public Vrf::VrfIdMap::NameToIdMap::Notifiee {
 public:
  // Creates every VRF the map holds, then follows it.
  LeakSide(const Kel::Ptr<const Vrf::VrfIdMap::NameToIdMap>& names, ProtocolSide& protocol);
  ~LeakSide() override;

  const Protocol::Leak::RootSm& root() const { return *root_; }
  // The routes leaked into a VRF for a family; null when the VRF is unknown.
  const Protocol::LeakRouteConfig* leakRouteConfig(const L3::VrfName& vrf,
                                                   Pando::AddressFamily af) const;
  // Entries of every VRF's config.
  uint64_t leakedRoutes() const;

  void onVrfNameToId(const L3::VrfName& name) override;

 private:
  struct Created {
    Vrf::VrfIdMap::VrfId id;
    std::array<Kel::Ptr<Protocol::LeakRouteConfig>, 2> config;  // ipv4, ipv6
  };

  void vrfIs(const L3::VrfName& name, Vrf::VrfIdMap::VrfId id);
  void vrfDel(const L3::VrfName& name);

  ProtocolSide& protocol_;
  Kel::Ptr<Protocol::Leak::RootSm> root_;
  std::map<L3::VrfName, Created> vrf_;
};

}  // namespace IpRibAgent
