#include "agent/LeakDemo.h"

#include <map>
#include <string>

#include "IpRib/ProtocolRouteLeakSm.h"
#include "Kel/Clock.h"
#include "Kel/System.h"

namespace IpRibAgent {

using Pando::AddressFamily;
using Routing::Protocol::LeakRoute;
using Routing::Protocol::LeakRouteConfig;
using Routing::Protocol::LeakRouteRef;
using Routing::Protocol::VrfIdAf;

namespace {

struct LeakScene {
  explicit LeakScene(std::ostream& out) : out(out) {}

  // A VRF known to the name map and created in the leak root.
  void vrfIs(const std::string& name, Vrf::VrfIdMap::VrfId id) {
    names->vrfNameToIdIs(L3::VrfName(name), id);
    const VrfIdAf key(id, AddressFamily::ipv4);
    routes[name] = Routing::routeListFactory(AddressFamily::ipv4);
    configs[name] = Routing::Protocol::leakRouteConfigFactory(key);
    root->createVrf(key, routes[name], configs[name]);
    out << "  VRF " << name << " (id " << id << ") created\n";
  }

  void leak(const std::string& from, const char* prefix, const std::string& to) {
    auto r = Kel::makePtr<Routing::Route>(Routing::RouteKey(Pando::IpGenPrefix(prefix), 1));
    r->leakVrfNameIs(L3::VrfName(to));
    routes[from]->routeIs(r);
    out << "  " << from << " asks to leak " << r->key() << " into " << to << "\n";
  }

  std::string nameOf(Vrf::VrfIdMap::VrfId id) const {
    const L3::VrfName* n = names->vrfName(id);
    return n ? std::string(n->value()) : "?";
  }

  // What `name` received, and from whom; every offer of each key too.
  void show(const std::string& name) {
    Kel::ActivityManager::instance().runUntilIdle();
    const LeakRouteConfig& config = *configs[name];
    const auto input = root->demuxSmSet(config.vrfAf());
    out << "  leak route config of " << name << " (id " << config.vrfAf().vrfId()
        << "): " << config.leakRoutes() << " route(s)\n";
    for (const LeakRouteRef& lr : config.leakRoute()) {
      const Vrf::VrfIdMap::VrfId won = lr->vrfAf().vrfId();
      out << "    " << lr->key() << "  from " << nameOf(won) << " (id " << won << ")";
      std::string others;
      for (const auto& list : input->leakRouteList()) {
        const Vrf::VrfIdMap::VrfId src = list->vrfAf().srcVrf();
        if (src != won && list->leakRoute(lr->key())) {
          others += " " + nameOf(src) + " (id " + std::to_string(src) + ")";
        }
      }
      out << (others.empty() ? "  (only source)" : "  wins over" + others) << "\n";
    }
  }

  std::ostream& out;
  Kel::VirtualTimeScope time;
  Kel::Ptr<Vrf::VrfIdMap::NameToIdMap> names = Kel::makePtr<Vrf::VrfIdMap::NameToIdMap>();
  Kel::Ptr<Routing::Protocol::Leak::RootSm> root = Routing::Protocol::Leak::rootSmFactory(names);
  std::map<std::string, Kel::Ptr<Routing::RouteList>> routes;
  std::map<std::string, Kel::Ptr<LeakRouteConfig>> configs;
};

}  // namespace

void runLeakDemo(std::ostream& out) {
  out << "\nRoute leaking between VRFs (IPv4): the lowest source VRF id wins a prefix\n";
  LeakScene s(out);
  s.vrfIs("green", 7);
  s.vrfIs("red", 5);
  s.vrfIs("blue", 3);
  s.leak("red", "10.1.0.0/16", "green");
  s.leak("blue", "10.1.0.0/16", "green");
  s.leak("red", "10.2.0.0/16", "green");
  s.leak("red", "10.3.0.0/16", "red");  // its own VRF: never leaked
  s.show("green");

  out << "  blue stops leaking 10.1.0.0/16:\n";
  s.routes["blue"]
      ->route(Routing::RouteKey(Pando::IpGenPrefix("10.1.0.0/16"), 1))
      ->leakVrfNameIs(L3::VrfName());
  s.show("green");

  out << "  VRF red deleted:\n";
  s.root->deleteVrf(VrfIdAf(5, AddressFamily::ipv4));
  s.show("green");
}

}  // namespace IpRibAgent
