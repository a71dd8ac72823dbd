#include "agent/Demo.h"

#include "IpRib/ProtocolContainerKey.h"
#include "IpRib/ProtocolGrTypes.h"
#include "IpRib/ProtocolRouteStatus.h"
#include "IpRib/ProtocolRouteStatusSm.h"
#include "Kel/NestedReactors.h"
#include "Kel/System.h"
#include "agent/LeakDemo.h"
#include "platform/Flipset/Flipset.h"

namespace IpRibAgent {

using namespace Routing::Protocol;
using Pando::AddressFamily;
using Pando::IpGenPrefix;
using Routing::Rib::ViaKey;
namespace Rib = Routing::Rib;

namespace {

// Prints every change of a status and of its routes, the way a reactor sees it.
class StatusWatcher final : public Status::Notifiee {
 public:
  class KelRoute final : public Route::Notifiee {
   public:
    KelRoute(Route* r, std::ostream& out) : out_(out) { notifierIs(r); }
    const IpGenPrefix& key() const { return notifier()->prefix(); }
    void onRoutePref(const Routing::RoutePreference& p) override {
      out_ << "  notify " << key() << " routePref[" << unsigned(p) << "]"
           << (notifier()->routePref(p) ? " added" : " deleted") << "\n";
    }
    void onRouteChangedAt() override {
      out_ << "  notify " << key() << " routeChangedAt = " << notifier()->routeChangedAt() << "\n";
    }
    void handleDel() override { out_ << "  reactor of " << key() << " dropped\n"; }

   private:
    std::ostream& out_;
  };

  StatusWatcher(Status* s, std::ostream& out) : routes_(this), out_(out) { notifierIs(s); }
  void onRoute(const IpGenPrefix& prefix) override {
    Kel::Ptr<Route> r = notifier()->route(prefix);
    out_ << "  notify status.route[" << prefix << "]" << (r ? " added" : " deleted") << "\n";
    if (r) {
      routes_.insert(Kel::makePtr<KelRoute>(r.ptr(), out_));
    } else {
      routes_.erase(prefix);
    }
  }
  void onInitialized() override {
    out_ << "  notify status.initialized = " << Kel::valueToStrep(notifier()->initialized())
         << "\n";
  }

 private:
  Kel::NestedReactors<IpGenPrefix, KelRoute> routes_;
  std::ostream& out_;
};

void printStatus(const Status& s, std::ostream& out) {
  out << "Status " << s.key() << "\n  initialized: " << Kel::valueToStrep(s.initialized())
      << ", routes: " << s.routeSize() << " (hash order)\n";
  for (const Kel::Ptr<Route>& r : s.route()) {
    out << "  Route " << r->prefix() << "  srcVrfId " << r->srcVrfId() << "  routeChangedAt "
        << r->routeChangedAt() << "\n";
    for (const Kel::Ptr<RoutePref>& p : r->routePref()) {
      out << "    RoutePref " << unsigned(p->preference()) << "  fecType " << unsigned(p->fecType())
          << "  installInFib " << Kel::valueToStrep(p->installInFib()) << "  tag " << p->tag()
          << "\n";
      for (const Kel::Ptr<DedupViaKeyByViaType>& t : p->dedupViaKeyByViaType()) {
        out << "      " << t->viaType() << "\n";
        for (const Kel::Ptr<DedupViaKeyMetric>& v : t->dedupViaKey()) {
          out << "        " << v->viaKey() << "  metric " << v->metric()
              << (p->bfdTrackedViaCollHas(v->viaKey()) ? "  bfd-tracked" : "") << "\n";
        }
      }
    }
  }
}

// From protocol status to RIB: VRF "red" (id 3), static routes, the RIB's
// view of each via (metric, label, next hop) and what RouteStatusSm makes of it.
void showRib(std::ostream& out) {
  out << "\nFrom status to RIB in VRF red (id 3), StaticRouteMetric "
      << (Flipset::getToggleState("StaticRouteMetric") ? "on" : "off") << ":\n";
  Kel::VirtualTimeScope time;
  auto viaKeys = Kel::makePtr<Rib::DedupViaKeyTable>();
  auto status = statusFactory(RouteStatusKey(3, AddressFamily::ipv4));
  auto metrics = Kel::makePtr<Rib::ViaMetricStatusByVrf>();
  auto viaConfig = Kel::makePtr<Rib::Ip::ViaConfig>();
  auto graph = Kel::makePtr<Rib::Ip::GlobalNextHopDependencyGraph>();
  auto ribConfig = Kel::makePtr<Rib::RouteConfig>();
  auto viaSets = Kel::makePtr<Rib::ViaSetConfig>();
  auto ready = vrfReadyStatusFactory(L3::VrfName("red"));
  auto via = [](uint32_t i) { return ViaKey(ViaKey::kindIpv4, 3, 2, i); };
  Kel::Ptr<Rib::ViaMetricStatus> ipMetrics = metrics->viaMetricStatusIs(via(0));
  // Via i: next hop 192.168.0.i; 1-4 resolved (via 3 labelled), 5 not.
  for (uint32_t i = 1; i <= 5; ++i) {
    const Pando::IpGenAddr nh = Pando::IpGenAddr::fromV4(0xc0a80000u + i);
    viaConfig->viaIs(via(i), Rib::Via(nh, Pando::IntfId("Ethernet" + std::to_string(i)),
                                      i == 3 ? 16003 : Rib::Via::noLabel));
    graph->viaNextHopIs(via(i), nh);
    if (i <= 4) ipMetrics->viaMetricIs(via(i), Rib::ViaMetric(Rib::MetricPref(1, 10 * i)));
  }
  auto sm =
      routeStatusSmFactory(L3::VrfName("red"), AddressFamily::ipv4, 3, status, ipMetrics, nullptr,
                           nullptr, graph, ribConfig, viaSets, 2, nullptr, nullptr, ready, nullptr,
                           viaConfig, nullptr, metrics, Kel::String("rib"), nullptr);
  auto write = [&](const char* prefix, Routing::RoutePreference pref, ViaTypeEnum type, uint32_t i,
                   Routing::RouteMetric metric) {
    Kel::Ptr<Route> r = status->routeIs(IpGenPrefix(prefix));
    r->routePrefIs(pref)->dedupViaKeyIs(type, viaKeys->dedupViaKeyIs(via(i)), metric);
    r->routeChangedAtIs(Kel::System::currentTime());
  };
  write("10.1.0.0/24", 1, ViaTypeEnum::viaIntfNextHop, 1, 5);  // two vias, lowest metric wins
  write("10.1.0.0/24", 1, ViaTypeEnum::viaIntfNextHop, 2, 7);
  write("10.2.0.0/24", 1, ViaTypeEnum::viaIntfNextHop, 5, 0);   // unresolved ...
  write("10.2.0.0/24", 20, ViaTypeEnum::viaIntfNextHop, 4, 0);  // ... so preference 20
  write("10.3.0.0/24", 1, ViaTypeEnum::viaIntfNextHop, 1, 0);   // labelled via 3 pushes out 1
  write("10.3.0.0/24", 1, ViaTypeEnum::viaIntfNextHop, 3, 0);
  write("192.168.0.0/24", 1, ViaTypeEnum::viaIntfNextHop, 2, 0);  // resolves through itself
  write("192.168.0.0/24", 1, ViaTypeEnum::viaIntfNextHop, 4, 0);
  status->initializedIs(true);
  Kel::ActivityManager::instance().runUntilQuiet();

  out << "  RIB routes (" << ribConfig->routeSize() << "), via sets (" << viaSets->size() << "):\n";
  for (const Routing::Rib::Route& r : ribConfig->route()) {
    out << "    " << r << "  vias:";
    for (const ViaKey& k : r.viaSet()->viaKeys()) out << " " << k;
    out << "\n";
  }
  out << "  review complete: " << Kel::valueToStrep(ready->v4RouteReviewComplete()) << "\n";
  for (const char* prefix : {"10.1.0.0/24", "10.2.0.0/24", "10.3.0.0/24", "192.168.0.0/24"}) {
    std::string why = sm->explain(IpGenPrefix(prefix)).str();
    out << "\n  why " << prefix << ":\n";
    for (size_t b = 0, e; b < why.size(); b = e + 1) {
      e = why.find('\n', b);
      out << "    " << why.substr(b, e - b) << "\n";
    }
  }
}

}  // namespace

int runDemo(std::ostream& out) {
  out << "IpRib demo: a protocol route status built in memory\n\n";
  auto viaKeys = Kel::makePtr<Routing::Rib::DedupViaKeyTable>();
  auto dir = routeStatusDirFactory();
  Kel::Ptr<Status> status = statusFactory(RouteStatusKey(0, AddressFamily::ipv4));
  dir->statusIs(status);
  auto watcher = Kel::makePtr<StatusWatcher>(status.ptr(), out);

  out << "The protocol writes its routes; a reactor watches:\n";
  const ViaKey nh1(ViaKey::kindIpv4, 0, 2, 1), nh2(ViaKey::kindIpv4, 0, 2, 2),
      nh3(ViaKey::kindIpv4, 0, 2, 3);
  Kel::Ptr<Route> r1 = status->routeIs(IpGenPrefix("10.1.0.0/24"));
  Kel::Ptr<RoutePref> p1 = r1->routePrefIs(1);
  p1->dedupViaKeyIs(ViaTypeEnum::viaIntfNextHop, viaKeys->dedupViaKeyIs(nh1), 10);
  p1->dedupViaKeyIs(ViaTypeEnum::viaIntfNextHop, viaKeys->dedupViaKeyIs(nh2), 20);
  p1->dedupViaKeyIs(ViaTypeEnum::viaNextHopOnly, viaKeys->dedupViaKeyIs(nh3), 5);
  p1->bfdTrackedViaCollIs(nh3);
  r1->routePrefIs(200)->dedupViaKeyIs(ViaTypeEnum::viaDefault, viaKeys->dedupViaKeyIs(nh3), 0);
  r1->routeChangedAtIs(1000.25);

  Kel::Ptr<Route> r2 = status->routeIs(IpGenPrefix("192.168.7.0/24"));
  Kel::Ptr<RoutePref> p2 = r2->routePrefIs(1);
  p2->tagIs(77);
  p2->installInFibIs(false);
  p2->dedupViaKeyIs(ViaTypeEnum::viaIntfOnly, viaKeys->dedupViaKeyIs(nh2), 0);
  r2->routeChangedAtIs(1000.5);
  status->routeIs(IpGenPrefix("10.9.9.9/32"))->routePrefIs(1)->fecTypeIs(2);
  status->initializedIs(true);

  out << "\n";
  printStatus(*status, out);
  out << "\nShared via keys in the dedup table: " << viaKeys->size() << "\n";

  out << "\nThe last via of a type goes, and the type with it:\n";
  p1->dedupViaKeyDel(ViaTypeEnum::viaNextHopOnly, nh3);
  out << "  viaNextHopOnly present: "
      << Kel::valueToStrep(bool(p1->dedupViaKeyByViaType(ViaTypeEnum::viaNextHopOnly))) << "\n";
  out << "A route is deleted:\n";
  status->routeDel(IpGenPrefix("10.9.9.9/32"));

  out << "\nCanonical forms, and each parsed back:\n";
  auto show = [&out](const auto& value) {
    using T = std::decay_t<decltype(value)>;
    const std::string text = valueToStrep(value);
    const bool same = Kel::strepToValue<T>(text) == value;
    out << "  " << text << (same ? "  (round trip ok)" : "  (ROUND TRIP FAILED)") << "\n";
  };
  show(ContainerKey(L3::VrfName("red"), AddressFamily::ipv6));
  show(RouteStatusKey(0, AddressFamily::ipv4));
  show(RouteStatusKey());
  show(PrefixPrefVrfId(IpGenPrefix("2001:db8::/32"), 20, 3));
  show(ViaType(ViaTypeEnum::viaIntfOnly));
  out << "Trace forms:" << RouteStatusKey(0, AddressFamily::ipv4).str()
      << PrefixPrefVrfId(IpGenPrefix("10.1.0.0/24"), 1, 0).str() << "\n";

  out << "\nA bad value names what is wrong:\n";
  try {
    Kel::strepToValue<ContainerKey>(
        "Value('Routing::Protocol::ContainerKey', ** {'vrfName': 'red', 'af': ipv5})");
  } catch (const Kel::Exception& e) {
    out << "  " << e.what() << "\n";
  }
  try {
    L3::VrfName(Kel::String(std::string(101, 'v')));
  } catch (const Kel::Exception& e) {
    out << "  " << e.what() << "\n";
  }

  auto ready = allVrfReadyStatusFactory();
  Kel::Ptr<VrfReadyStatus> rs = ready->vrfReadyStatusIs(L3::VrfName("default"));
  rs->v4RouteReviewCompleteIs(true);
  out << "\nReadiness of VRF " << rs->vrfName() << ": v4RouteReviewComplete "
      << Kel::valueToStrep(rs->v4RouteReviewComplete()) << ", ribReadySeqStatus "
      << rs->ribReadySeqStatus() << "\n";
  watcher = nullptr;
  showRib(out);
  runLeakDemo(out);
  return 0;
}

}  // namespace IpRibAgent
