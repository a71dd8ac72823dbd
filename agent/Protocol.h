// The routing protocol the agent plays: its configured routes, and their
// publication into the protocol route status tables of the library.
//
// Routes are configuration: they are kept whether or not their VRF is ready,
// and written into a VRF's `Status` for a family while the library has one
// (statusIs .. statusDel, when the VRF's container comes and goes). A route
// line sets one preference of a prefix whole: its FEC type, tag, FIB flag
// and vias; vias that were there and are not any more are removed. Every
// write of a route stamps its `routeChangedAt` with the framework clock (a
// hair later than the last stamp when the clock has not moved, so that the
// stamp always notifies), and `initialized` is written as the protocol says.
// Vias become via keys of the VRF (kind by the next hop's family, selector =
// the protocol), one per next hop, interface and label; each key's record
// is written, whenever a route uses it, into the container's IP via
// configuration of the next hop's family (a container's tables are new
// when it is), and told to the RIB (Platform::viaIs), which resolves it.
// A key that no published route lists any more (its preferences rewritten
// or removed, its containers gone) is forgotten, and the RIB told so.
// The protocol's routes are also kept as the leak code reads them: per VRF
// and family a Routing::RouteList, one Routing::Route per configured
// preference, whose metric is the lowest of its vias and whose leak target
// is its prefix's (`leak`). The target belongs to the prefix: a route line
// re-issued keeps it, a new preference takes it, and it goes with the
// prefix's last preference. These lists are configuration like the routes:
// they are kept whether or not their VRF is ready, and across a restart.
// One thread. Costs: a route line is a few look-ups per via.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <tuple>
#include <vector>

#include "IpRib/ProtocolRouteStatus.h"
#include "agent/Line.h"
#include "agent/Platform.h"
#include "platform/Routing/Rib/DedupViaKey.h"
#include "platform/Routing/Rib/Ip/ViaConfig.h"
#include "platform/Routing/Route/Route.h"

namespace IpRibAgent {

namespace Protocol = Routing::Protocol;

struct ViaSpec {
  NextHop nextHop;
  Protocol::ViaTypeEnum type = Protocol::ViaTypeEnum::viaNextHopOnly;
  uint32_t label = Rib::Via::noLabel;
  Routing::RouteMetric metric = 0;
  bool bfd = false;
};

struct PrefSpec {
  uint8_t fecType = 0;
  uint32_t tag = 0;
  bool installInFib = true;
  std::vector<ViaSpec> vias;
};

class ProtocolSide {
 public:
  ProtocolSide(Rib::RoutingProtocol protocol, Platform& platform);

  void routeIs(const L3::VrfName& vrf, const Pando::IpGenPrefix& prefix,
               Routing::RoutePreference pref, const PrefSpec& spec);
  // Without `pref`, every preference. False when there was nothing to delete.
  bool routeDel(const L3::VrfName& vrf, const Pando::IpGenPrefix& prefix,
                std::optional<Routing::RoutePreference> pref);
  void initializedIs(const L3::VrfName& vrf, Pando::AddressFamily af);

  // Leaks every preference of a prefix the protocol has into `to`; false
  // when it has no such route.
  bool leakIs(const L3::VrfName& vrf, const Pando::IpGenPrefix& prefix, const L3::VrfName& to);
  // False when the prefix leaks nowhere.
  bool leakDel(const L3::VrfName& vrf, const Pando::IpGenPrefix& prefix);
  // The routes of a VRF and family as the leak code reads them (made empty
  // when first asked for).
  const Kel::Ptr<Routing::RouteList>& routeList(const L3::VrfName& vrf, Pando::AddressFamily af);
  // Files anew (as new route objects) every route that leaks into `to`: the
  // leak code reads a target's id only when a route changes, so a target
  // VRF that came, went or was renumbered is seen this way.
  void leakTargetChanged(const L3::VrfName& to);

  // The library's status table of a VRF and family appeared (or went), with
  // the via configurations of the family and of the other one.
  void statusIs(const L3::VrfName& vrf, Pando::AddressFamily af, Vrf::VrfIdMap::VrfId vrfId,
                const Kel::Ptr<Protocol::Status>& status,
                const Kel::Ptr<Rib::Ip::ViaConfig>& viaConfig,
                const Kel::Ptr<Rib::Ip::ViaConfig>& auxViaConfig);
  void statusDel(const L3::VrfName& vrf, Pando::AddressFamily af);
  // The protocol process starts again: its routes are configuration and
  // stay, but it says `initialized` anew once it has replayed them.
  void restart() { initialized_.clear(); }
  // Via keys handed out, one per VRF id, next hop and label.
  uint64_t viaKeys() const { return viaKey_.size(); }

 private:
  using Prefs = std::map<Routing::RoutePreference, PrefSpec>;
  using Family = std::pair<L3::VrfName, Pando::AddressFamily>;
  struct Published {
    Vrf::VrfIdMap::VrfId vrfId;
    Pando::AddressFamily af;
    Kel::Ptr<Protocol::Status> status;
    Kel::Ptr<Rib::Ip::ViaConfig> viaConfig;
    Kel::Ptr<Rib::Ip::ViaConfig> auxViaConfig;
  };

  Rib::ViaKey viaKey(const Published& p, const ViaSpec& via);
  // A route preference's vias, counted while a published Status lists them:
  // a via no route lists any more is forgotten, here and by the platform.
  void viaHeld(const Rib::ViaKey& key);
  void viaReleased(const Rib::ViaKey& key);
  void viasReleased(const Protocol::RoutePref& rp);
  void write(const Published& p, const Pando::IpGenPrefix& prefix, const Prefs& prefs);
  void writePref(const Published& p, Protocol::RoutePref& rp, const PrefSpec& spec);
  void stamp(Protocol::Route& route);
  // The prefix's leak target, read off its routes; empty for none.
  L3::VrfName leakTo(const Family& f, const Pando::IpGenPrefix& prefix, const Prefs& prefs);
  // Files the route of one preference (or updates its metric).
  void fileRoute(const Family& f, const Routing::RouteKey& key, const PrefSpec& spec,
                 const L3::VrfName& leakTo);

  Rib::RoutingProtocol protocol_;
  Platform& platform_;
  Kel::Ptr<Rib::DedupViaKeyTable> viaKeys_ = Kel::makePtr<Rib::DedupViaKeyTable>();
  using ViaSpecKey = std::tuple<Vrf::VrfIdMap::VrfId, uint8_t, NextHop, uint32_t>;
  struct ViaUse {
    ViaSpecKey spec;
    uint32_t uses = 0;  // route preferences of published Statuses, by via type
  };
  std::map<ViaSpecKey, Rib::ViaKey> viaKey_;
  std::map<Rib::ViaKey, ViaUse> viaUse_;
  std::map<std::pair<Vrf::VrfIdMap::VrfId, uint8_t>, uint32_t> nextViaIndex_;
  std::map<Family, std::map<Pando::IpGenPrefix, Prefs>> route_;
  std::set<Family> initialized_;
  std::map<Family, Published> published_;
  std::map<Family, Kel::Ptr<Routing::RouteList>> routeList_;
};

}  // namespace IpRibAgent
